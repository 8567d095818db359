/*
 * userdata/list_index.h - what lets the tree reader keep constant time per
 * token on trees of any size: where each sibling list ends, and a name index
 * over the lists it searches once they grow long.
 *
 * A list is known by the address of the link that leads to its first node
 * (the reader's root pointer, or a parent's children field); nodes never move
 * or leave a list while the reader runs, so the address stays valid and any
 * node of a list is a correct starting point for the walk to its end.  The
 * tables are hints and shortcuts only: when memory runs out they switch
 * themselves off and the reader falls back to walking, with the same result.
 */
#ifndef HALV_USERDATA_LIST_INDEX_H
#define HALV_USERDATA_LIST_INDEX_H

#include "userdata/internal.h"

namespace halv {

using ListLink = HalvUserCMData *const *;

/* Per list: a node known to be near its end, and whether NameIndex covers
 * the list.  Lookups keep working after a failed insertion; stored tails are
 * hints and may be stale, never wrong. */
class ListTable {
  public:
    ListTable() noexcept = default;
    ListTable(const ListTable &) = delete;
    ListTable &operator=(const ListTable &) = delete;
    ~ListTable() { halv_internal_free(slots_); }

    HalvUserCMData *Tail(ListLink list) const noexcept;
    void SetTail(ListLink list, HalvUserCMData *tail) noexcept;
    bool Indexed(ListLink list) const noexcept;
    /* Result: whether the mark could be stored. */
    bool MarkIndexed(ListLink list) noexcept;

  private:
    struct Slot {
        ListLink list;
        HalvUserCMData *tail;
        bool indexed;
    };
    Slot *Find(ListLink list) const noexcept;
    Slot *Insert(ListLink list) noexcept;
    bool Grow() noexcept;

    Slot *slots_ = nullptr;
    uint32_t mask_ = 0;
    uint32_t used_ = 0;
    uint32_t indexedLists_ = 0;
};

/* First node of each name, for the lists that have been indexed. */
class NameIndex {
  public:
    NameIndex() noexcept = default;
    NameIndex(const NameIndex &) = delete;
    NameIndex &operator=(const NameIndex &) = delete;
    ~NameIndex() { halv_internal_free(slots_); }

    /* Adds node unless its list already has a node of that name.  Result:
     * false when memory ran out; the index then holds no trustworthy
     * answer for the list. */
    bool Add(ListLink list, HalvUserCMData *node) noexcept;
    HalvUserCMData *Find(ListLink list, const char *text, uint32_t length) const noexcept;

  private:
    struct Slot {
        ListLink list;
        HalvUserCMData *node;
        uint32_t hash;
    };
    static uint32_t Hash(ListLink list, const char *text, uint32_t length) noexcept;
    bool Grow() noexcept;

    Slot *slots_ = nullptr;
    uint32_t mask_ = 0;
    uint32_t used_ = 0;
};

/* Both tables together, as the tree reader uses them.  The reader keeps a
 * tail hint for each list it is appending to; the table remembers hints of
 * item and section lists that it leaves and may reopen. */
class SiblingLists {
  public:
    /* Lists shorter than this are walked; a longer one is indexed at the
     * walk that finds it so long. */
    static constexpr uint32_t kIndexFrom = 16;

    /* The first node of the list whose name is text, or null. */
    HalvUserCMData *Find(HalvUserCMData **list, const char *text, uint32_t length) noexcept;
    /* Links node (which has no next sibling) at the end of the list; tail
     * is a hint, a node of the list or null, and comes back as node. */
    void Append(HalvUserCMData **list, HalvUserCMData *&tail, HalvUserCMData *node) noexcept;
    void RememberTail(HalvUserCMData **list, HalvUserCMData *tail) noexcept;
    HalvUserCMData *RecallTail(HalvUserCMData **list) const noexcept { return lists_.Tail(list); }

  private:
    bool IndexWholeList(HalvUserCMData **list) noexcept;

    ListTable lists_;
    NameIndex names_;
    bool namesBroken_ = false;
};

} // namespace halv

#endif
