/*
 * userdata/list_index.h - what keeps the tree reader at constant time per
 * token on trees of any size: where each sibling list ends, and a name index
 * over the lists it searches once they grow long.
 *
 * A list is known by the address of the link that leads to its first node
 * (the reader's root pointer, or a parent's children field).  Nodes never
 * move or leave a list while the reader runs, so that address stays valid,
 * and any node of a list is a correct start for the walk to its end.  The
 * tables are shortcuts only: when memory runs out they stop growing, and the
 * reader walks instead, with the same result.
 */
#ifndef HALV_USERDATA_LIST_INDEX_H
#define HALV_USERDATA_LIST_INDEX_H

#include "userdata/internal.h"

namespace halv {

using ListLink = HalvUserCMData *const *;

/* An open-addressing map from list to a node of that list. */
class ListMap {
  public:
    ListMap() noexcept = default;
    ListMap(const ListMap &) = delete;
    ListMap &operator=(const ListMap &) = delete;
    ~ListMap();

    bool Empty() const noexcept { return used_ == 0; }
    /* The node stored for list, or null. */
    HalvUserCMData *Get(ListLink list) const noexcept;
    /* Result: whether node could be stored. */
    bool Put(ListLink list, HalvUserCMData *node) noexcept;

  private:
    struct Slot {
        ListLink list;
        HalvUserCMData *node;
    };
    bool Grow() noexcept;

    Slot *slots_ = nullptr;
    uint32_t mask_ = 0;
    uint32_t used_ = 0;
};

/* The first node of each name, for the lists that have been indexed. */
class NameIndex {
  public:
    NameIndex() noexcept = default;
    NameIndex(const NameIndex &) = delete;
    NameIndex &operator=(const NameIndex &) = delete;
    ~NameIndex();

    /* Adds node unless its list already has a node of that name.  Result:
     * false when memory ran out. */
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

/* A sibling list the reader appends to: where it ends, as far as known, how
 * many nodes it is known to hold, and whether the name index covers it. */
struct ListCursor {
    HalvUserCMData **list = nullptr;
    HalvUserCMData *tail = nullptr;
    uint32_t known = 0;
    bool indexed = false;
};

/* Searching and appending for the tree reader. */
class SiblingLists {
  public:
    /* Lists at least this long are indexed by name at their next search,
     * and their end is remembered when the reader leaves them. */
    static constexpr uint32_t kLongList = 16;

    /* The first node of the cursor's list whose name is text, or null. */
    HalvUserCMData *Find(ListCursor &cursor, const char *text, uint32_t length) noexcept;

    /* Points cursor at list: one that is new and empty, or one that may
     * hold nodes already (reopened, or the caller's tree). */
    void Open(ListCursor &cursor, HalvUserCMData **list, bool mayHoldNodes) noexcept;
    /* Remembers the end of a long list for a later Open. */
    void Close(const ListCursor &cursor) noexcept;
    /* Links node (which has no next sibling) at the end of the list. */
    void Append(ListCursor &cursor, HalvUserCMData *node) noexcept;

  private:
    bool IndexWholeList(HalvUserCMData **list) noexcept;

    ListMap tails_;   // ends of long lists the reader has left
    ListMap indexed_; // lists NameIndex covers, mapped to their first node
    NameIndex names_;
    bool namesBroken_ = false;
};

} // namespace halv

#endif
