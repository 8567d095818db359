/*
 * userdata/list_index.cpp - open-addressing tables keyed by sibling list,
 * for the tree reader.  Both double when half full and never shrink: they
 * live for one read, in scratch memory that keeps out of the way of the
 * heap the nodes come from.
 */
#include "userdata/list_index.h"

#include "core/internal.h"

namespace halv {
namespace {

constexpr uint32_t kFirstCapacity = 16;

uint32_t HashLink(ListLink list) noexcept {
    const uint64_t bits = (uint64_t)(uintptr_t)list >> 3;
    return (uint32_t)((bits * 0x9E3779B97F4A7C15ull) >> 32);
}

/* Makes room for one more slot in a table of slots (a null list is an
 * empty slot), doubling it and moving every slot to its new place when it
 * is half full.  Result: false when memory runs out; the table then stays
 * as it was. */
template <class Slot, class HashOf>
bool MakeRoom(Slot *&slots, uint32_t &mask, uint32_t used, HashOf hashOf) noexcept {
    if (slots != nullptr && (uint64_t)(used + 1) * 2 <= (uint64_t)mask + 1)
        return true;
    const uint64_t capacity = slots == nullptr ? kFirstCapacity : ((uint64_t)mask + 1) * 2;
    if (capacity > (1u << 30))
        return false;
    auto *grown = static_cast<Slot *>(ScratchAlloc((size_t)capacity * sizeof(Slot)));
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
    ScratchFree(slots);
    slots = grown;
    mask = newMask;
    return true;
}

} // namespace

/* ---- ListMap ---------------------------------------------------------- */

HalvUserCMData *ListMap::Get(ListLink list) const noexcept {
    if (used_ == 0)
        return nullptr;
    for (uint32_t i = HashLink(list) & mask_; slots_[i].list != nullptr; i = (i + 1) & mask_)
        if (slots_[i].list == list)
            return slots_[i].node;
    return nullptr;
}

bool ListMap::Put(ListLink list, HalvUserCMData *node) noexcept {
    if (!MakeRoom(slots_, mask_, used_, [](const Slot &slot) { return HashLink(slot.list); }))
        return false;
    uint32_t i = HashLink(list) & mask_;
    for (; slots_[i].list != nullptr; i = (i + 1) & mask_) {
        if (slots_[i].list == list) {
            slots_[i].node = node;
            return true;
        }
    }
    slots_[i] = Slot{list, node};
    ++used_;
    return true;
}

/* ---- NameIndex -------------------------------------------------------- */

uint32_t NameIndex::Hash(ListLink list, const char *text, uint32_t length) noexcept {
    uint32_t hash = 2166136261u;
    // Names compare as texts, up to a NUL, so the hash stops there too.
    for (uint32_t i = 0; i < length && text[i] != '\0'; ++i)
        hash = (hash ^ (uint32_t)HalvAsciiToLower((unsigned char)text[i])) * 16777619u;
    return hash ^ HashLink(list);
}

bool NameIndex::Add(ListLink list, HalvUserCMData *node) noexcept {
    if (!MakeRoom(slots_, mask_, used_, [](const Slot &slot) { return slot.hash; }))
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
    if (used_ == 0)
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
    return indexed_.Put(list, *list);
}

HalvUserCMData *SiblingLists::Find(ListCursor &cursor, const char *text, uint32_t length) noexcept {
    if (cursor.indexed && !namesBroken_)
        return names_.Find(cursor.list, text, length);
    uint32_t walked = 0;
    for (HalvUserCMData *node = *cursor.list; node != nullptr; node = node->next, ++walked)
        if (NodeNamed(node, text, length))
            return node;
    if (walked >= kLongList && !namesBroken_)
        cursor.indexed = IndexWholeList(cursor.list);
    return nullptr;
}

void SiblingLists::Open(ListCursor &cursor, HalvUserCMData **list, bool mayHoldNodes) noexcept {
    cursor.list = list;
    cursor.tail = nullptr;
    cursor.known = 0;
    cursor.indexed = false;
    if (!mayHoldNodes || *list == nullptr)
        return;
    cursor.indexed = !indexed_.Empty() && indexed_.Get(list) != nullptr;
    if ((cursor.tail = tails_.Get(list)) != nullptr) {
        cursor.known = kLongList;
        return;
    }
    // A list left short (or never seen): one walk, and if it is long its end
    // is remembered from now on.
    cursor.tail = *list;
    for (cursor.known = 1; cursor.tail->next != nullptr; ++cursor.known)
        cursor.tail = cursor.tail->next;
}

void SiblingLists::Close(const ListCursor &cursor) noexcept {
    if (cursor.list != nullptr && cursor.tail != nullptr && cursor.known >= kLongList)
        tails_.Put(cursor.list, cursor.tail);
}

void SiblingLists::Append(ListCursor &cursor, HalvUserCMData *node) noexcept {
    HalvUserCMData **list = cursor.list;
    if (*list == nullptr) {
        *list = node;
    } else {
        HalvUserCMData *last = cursor.tail != nullptr ? cursor.tail : *list;
        while (last->next != nullptr)
            last = last->next;
        last->next = node;
    }
    cursor.tail = node;
    ++cursor.known;
    if (cursor.indexed && !namesBroken_ && !names_.Add(list, node))
        namesBroken_ = true;
}

ListMap::~ListMap() { ScratchFree(slots_); }

NameIndex::~NameIndex() { ScratchFree(slots_); }

} // namespace halv
