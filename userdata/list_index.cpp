/*
 * userdata/list_index.cpp - open-addressing tables keyed by sibling list,
 * for the tree reader.  Both tables double when half full and never shrink:
 * they live for one read.
 */
#include "userdata/list_index.h"

namespace halv {
namespace {

constexpr uint32_t kFirstCapacity = 16;

uint32_t HashLink(ListLink list) noexcept {
    const uint64_t bits = (uint64_t)(uintptr_t)list >> 3;
    return (uint32_t)((bits * 0x9E3779B97F4A7C15ull) >> 32);
}

/* Doubles a table of slots (null list = empty), starting at 16 slots, and
 * moves every slot to its new place.  Result: false when memory runs out;
 * the old table then stays as it was. */
template <class Slot, class HashOf> bool Regrow(Slot *&slots, uint32_t &mask, HashOf hashOf) noexcept {
    const uint64_t capacity = slots == nullptr ? kFirstCapacity : ((uint64_t)mask + 1) * 2;
    if (capacity > (1u << 30))
        return false;
    auto *grown = static_cast<Slot *>(halv_internal_calloc((size_t)capacity, sizeof(Slot)));
    if (grown == nullptr)
        return false;
    const uint32_t newMask = (uint32_t)capacity - 1;
    for (uint32_t i = 0; slots != nullptr && i <= mask; ++i) {
        if (slots[i].list == nullptr)
            continue;
        uint32_t j = hashOf(slots[i]) & newMask;
        while (grown[j].list != nullptr)
            j = (j + 1) & newMask;
        grown[j] = slots[i];
    }
    halv_internal_free(slots);
    slots = grown;
    mask = newMask;
    return true;
}

} // namespace

/* ---- ListTable -------------------------------------------------------- */

ListTable::Slot *ListTable::Find(ListLink list) const noexcept {
    if (slots_ == nullptr)
        return nullptr;
    for (uint32_t i = HashLink(list) & mask_;; i = (i + 1) & mask_) {
        if (slots_[i].list == list)
            return &slots_[i];
        if (slots_[i].list == nullptr)
            return nullptr;
    }
}

bool ListTable::Grow() noexcept {
    return Regrow(slots_, mask_, [](const Slot &slot) { return HashLink(slot.list); });
}

ListTable::Slot *ListTable::Insert(ListLink list) noexcept {
    if (Slot *slot = Find(list))
        return slot;
    if ((slots_ == nullptr || (used_ + 1) * 2 > mask_ + 1) && !Grow())
        return nullptr;
    uint32_t i = HashLink(list) & mask_;
    while (slots_[i].list != nullptr)
        i = (i + 1) & mask_;
    slots_[i].list = list;
    ++used_;
    return &slots_[i];
}

HalvUserCMData *ListTable::Tail(ListLink list) const noexcept {
    const Slot *slot = Find(list);
    return slot != nullptr ? slot->tail : nullptr;
}

void ListTable::SetTail(ListLink list, HalvUserCMData *tail) noexcept {
    if (Slot *slot = Insert(list))
        slot->tail = tail;
}

bool ListTable::Indexed(ListLink list) const noexcept {
    if (indexedLists_ == 0)
        return false;
    const Slot *slot = Find(list);
    return slot != nullptr && slot->indexed;
}

bool ListTable::MarkIndexed(ListLink list) noexcept {
    Slot *slot = Insert(list);
    if (slot == nullptr)
        return false;
    if (!slot->indexed)
        ++indexedLists_;
    slot->indexed = true;
    return true;
}

/* ---- NameIndex -------------------------------------------------------- */

uint32_t NameIndex::Hash(ListLink list, const char *text, uint32_t length) noexcept {
    uint32_t hash = 2166136261u;
    for (uint32_t i = 0; i < length; ++i)
        hash = (hash ^ FoldAscii((unsigned char)text[i])) * 16777619u;
    return hash ^ HashLink(list);
}

bool NameIndex::Grow() noexcept {
    return Regrow(slots_, mask_, [](const Slot &slot) { return slot.hash; });
}

bool NameIndex::Add(ListLink list, HalvUserCMData *node) noexcept {
    if ((slots_ == nullptr || (used_ + 1) * 2 > mask_ + 1) && !Grow())
        return false;
    const uint32_t hash = Hash(list, node->text, node->length);
    uint32_t i = hash & mask_;
    for (; slots_[i].list != nullptr; i = (i + 1) & mask_) {
        const Slot &slot = slots_[i];
        if (slot.hash == hash && slot.list == list && NodeNamed(slot.node, node->text, node->length))
            return true; // the earlier node of that name stays the one found
    }
    slots_[i] = Slot{list, node, hash};
    ++used_;
    return true;
}

HalvUserCMData *NameIndex::Find(ListLink list, const char *text, uint32_t length) const noexcept {
    if (slots_ == nullptr)
        return nullptr;
    const uint32_t hash = Hash(list, text, length);
    for (uint32_t i = hash & mask_; slots_[i].list != nullptr; i = (i + 1) & mask_) {
        const Slot &slot = slots_[i];
        if (slot.hash == hash && slot.list == list && NodeNamed(slot.node, text, length))
            return slot.node;
    }
    return nullptr;
}

/* ---- SiblingLists ----------------------------------------------------- */

bool SiblingLists::IndexWholeList(HalvUserCMData **list) noexcept {
    for (HalvUserCMData *node = *list; node != nullptr; node = node->next) {
        if (!names_.Add(list, node)) {
            namesBroken_ = true;
            return false;
        }
    }
    return lists_.MarkIndexed(list);
}

HalvUserCMData *SiblingLists::Find(HalvUserCMData **list, const char *text, uint32_t length) noexcept {
    if (!namesBroken_ && lists_.Indexed(list))
        return names_.Find(list, text, length);
    uint32_t walked = 0;
    for (HalvUserCMData *node = *list; node != nullptr; node = node->next, ++walked)
        if (NodeNamed(node, text, length))
            return node;
    if (walked >= kIndexFrom && !namesBroken_)
        IndexWholeList(list);
    return nullptr;
}

void SiblingLists::Append(HalvUserCMData **list, HalvUserCMData *&tail, HalvUserCMData *node) noexcept {
    if (*list == nullptr) {
        *list = node;
    } else {
        HalvUserCMData *last = tail != nullptr ? tail : *list;
        while (last->next != nullptr)
            last = last->next;
        last->next = node;
    }
    tail = node;
    if (!namesBroken_ && lists_.Indexed(list) && !names_.Add(list, node))
        namesBroken_ = true;
}

void SiblingLists::RememberTail(HalvUserCMData **list, HalvUserCMData *tail) noexcept {
    if (tail != nullptr)
        lists_.SetTail(list, tail);
}

} // namespace halv
