/*
 * userdata/tree_path.h - the three-level key (item, section, label) that
 * the tree operations share.
 */
#ifndef HALV_USERDATA_TREE_PATH_H
#define HALV_USERDATA_TREE_PATH_H

#include "userdata/internal.h"

namespace halv {

/* Levels in order, each with the kind its node must have: item 0,
 * section 1, label 2. */
constexpr int kPathLevels = 3;

struct PathNames {
    const char *name[kPathLevels]; // null where a level isn't used
};

/* The link (the caller's top pointer, a children field or a next field)
 * that leads to the node at the deepest level named, passing over index[l]
 * earlier matches of the name at level l.  Each level searches the children
 * of the node found above it, or the top list.  Null for an empty tree, a
 * tree that starts with a word, no names, no match or a wrong kind. */
HalvUserCMData **FindPathLink(HalvUserCMData **top, const PathNames &path, const int32_t index[kPathLevels]) noexcept;

/* The node for the first match at every level, or null. */
HalvUserCMData *FindPath(HalvUserCMData *tree, const char *item, const char *section, const char *label) noexcept;

} // namespace halv

#endif
