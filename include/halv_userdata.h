/*
 * halv_userdata.h - user data trees and their text language.
 *
 * One small text language carries all structured text of the engine: the
 * registry file, function descriptions and every image header.  A tree of
 * HalvUserCMData nodes is its in-memory form.
 *
 *   <item>            kind 0, top level
 *   [section]         kind 1, below an item or at the top
 *   label: value      kind 2, below a section or at the top, followed by
 *                     values: a word up to the line end (kind 3), a "string"
 *                     (kind 4) or a "<<<<Base64Data:...>>>>" block (kind 5)
 *   # comment         to the end of the line
 *
 * A tree is the pointer to the first node of its top sibling list; null is
 * the empty tree.  Functions that may change the first node return the tree,
 * and the caller stores it back.  Names compare by length first and then
 * ignoring the case of the 26 ASCII letters; other bytes compare as they
 * are.  Trees have no lock: one tree belongs to one thread at a time.
 */
#ifndef HALV_USERDATA_H
#define HALV_USERDATA_H

#include "halv_base.h"
#include "halv_streams.h"

HALV_BEGIN_DECLS

#define HALV_UCM_ITEM 0    /* node kind: <item>, holds sections */
#define HALV_UCM_SECTION 1 /* node kind: [section], holds labels */
#define HALV_UCM_LABEL 2   /* node kind: label, holds its values */
#define HALV_UCM_WORD 3    /* node kind: a word value, up to the line end */
#define HALV_UCM_STRING 4  /* node kind: a "string" value */
#define HALV_UCM_DATA 5    /* node kind: a Base64 data value, arbitrary bytes */

/* Token codes of HalvReadUserCM: the ASCII codes of their letters. */
#define HALV_UCM_TOKEN_SECTION 110 /* 'n' [name]                        */
#define HALV_UCM_TOKEN_ITEM 120    /* 'x' <name>                        */
#define HALV_UCM_TOKEN_LABEL 108   /* 'l' text ended by ':'             */
#define HALV_UCM_TOKEN_ASSIGN 97   /* 'a' text ended by '='             */
#define HALV_UCM_TOKEN_WORD 112    /* 'p' word to the line end, {group} */
#define HALV_UCM_TOKEN_STRING 115  /* 's' "string"                      */
#define HALV_UCM_TOKEN_DATA 100    /* 'd' decoded Base64 block          */
#define HALV_UCM_TOKEN_END 101     /* 'e' end of the stream             */
#define HALV_UCM_TOKEN_ERROR 69    /* 'E' failed write, cut-off block   */

/* One node of a user data tree.  text has a NUL behind its length bytes
 * (kind 5 holds arbitrary bytes); it may be null in a copy of a node of
 * length 0.  A nonzero borrowed flag means that text points into memory the
 * node doesn't own and that freeing the node leaves it alone.  A node owns
 * its children and its next sibling. */
typedef struct HalvUserCMData {
    char *text;                      /* the name or value, a NUL behind its length bytes */
    uint32_t length;                 /* bytes of text, the NUL not counted */
    int32_t borrowed;                /* nonzero: text isn't the node's and isn't freed with it */
    int32_t kind;                    /* HALV_UCM_ITEM to HALV_UCM_DATA */
    struct HalvUserCMData *children; /* the first child, or null */
    struct HalvUserCMData *next;     /* the next sibling, or null */
} HalvUserCMData;

/* ------------------------------------------------------------------------
 * The text language
 * ------------------------------------------------------------------------ */

/* Reads one token from in, calling only its read slot (count 1, or 4 inside
 * a Base64 block), and writes the token's text to out through its write slot
 * alone, one byte per call (a decoded Base64 group in one call).  Nothing
 * terminates the text.  Result: one of the HALV_UCM_TOKEN_ codes; 69 when a
 * write took nothing (a full string stream cuts the token at the first byte
 * that doesn't fit), a {group} or Base64 block was cut off, or a stream is
 * null. */
HALV_API int32_t HalvReadUserCM(HalvIO *in, HalvIO *out) HALV_NOEXCEPT;

/* The same for the old dialect: no '=' terminator, no {groups}, no Base64
 * blocks, and strings may be quoted with ' as well as ". */
HALV_API int32_t HalvReadOldUserCM(HalvIO *in, HalvIO *out) HALV_NOEXCEPT;

/* Reads tokens from in until its end, a top-level End, or an error, adding
 * them to *tree (which may be null): an item or section that exists is
 * reopened, labels and values are always added.  With strict set, the first
 * name must be ID.  Reading stops directly behind the bracket of End, so
 * other data may follow in the stream.
 * Result: 1 success; 0 for a null in or tree pointer, a malformed stream or
 * a strict violation, and then the whole tree, the caller's old nodes too,
 * is freed and *tree is null; -1 for no memory or a node that fits nowhere
 * under the root's kind, with the partly built tree kept in *tree. */
HALV_API int32_t HalvReadUserCMData(HalvIO *in, HalvUserCMData **tree, int32_t strict) HALV_NOEXCEPT;

/* Prints tree to out in the text language; sections and items after the
 * first in their list get an empty line in front, and a top-level End gets
 * no line end and ends the output.  Nothing is escaped or quoted.
 * Result: 1 success (a null tree writes nothing), 0 for a null out, -1 when
 * a write took fewer bytes than it was given. */
HALV_API int32_t HalvWriteUserCMData(const HalvUserCMData *tree, HalvIO *out) HALV_NOEXCEPT;

/* ------------------------------------------------------------------------
 * Lookup
 *
 * A key is up to three names, item, section and label, each null when that
 * level isn't used; there is no path syntax.  Names match by equal length
 * first and then ignoring case, and duplicates keep their order of
 * insertion.  Pointers handed out point into the tree: they live as long
 * as their node and are not to be freed.  A lookup allocates nothing.
 * ------------------------------------------------------------------------ */

/* The node at the deepest level named, passing over index earlier matches
 * of the name at each level (0 the first node of that name, 1 the second);
 * a negative index matches nothing.  Each level searches the children of
 * the node found above it, or the top list when no level above is named,
 * and the node found must be of that level's kind (item, section, label),
 * even when a later node of the same name would fit.  Result: the node,
 * which stays the tree's, or null for a null tree, a tree whose first node
 * is a word, no name at all, no match or the wrong kind. */
HALV_API HalvUserCMData *HalvIndexedGetUserCMData(HalvUserCMData *tree, const char *item, int32_t itemIndex,
                                                  const char *section, int32_t sectionIndex,
                                                  const char *label, int32_t labelIndex) HALV_NOEXCEPT;

/* HalvIndexedGetUserCMData with every index 0: the first node of each name.
 * HalvGetUserCMData(tree, item, section, null) gives the section. */
HALV_API HalvUserCMData *HalvGetUserCMData(HalvUserCMData *tree, const char *item, const char *section,
                                           const char *label) HALV_NOEXCEPT;

/* The text of the first child of the node that HalvGetUserCMData finds, of
 * any kind: a label's first value.  It points into the tree.  Null when
 * there is no such node or it has no child. */
HALV_API char *HalvGetParam(HalvUserCMData *tree, const char *item, const char *section,
                            const char *label) HALV_NOEXCEPT;

/* Sets the given out-pointers (either may be null) to null and 0, then, if
 * the first child of the node that HalvGetUserCMData finds is a data node,
 * to its bytes (which point into the tree) and their length.  Result: 1 for
 * a data node, else 0. */
HALV_API int32_t HalvGetData(HalvUserCMData *tree, const char *item, const char *section, const char *label,
                             void **data, uint32_t *size) HALV_NOEXCEPT;

/* The number of children of the node that HalvGetUserCMData finds, with
 * *list a new null-terminated array of copies of their texts, which the
 * caller releases with HalvFreeUserCMList.  With no node or no children the
 * result is 0 and *list isn't touched; so too for a null list pointer or
 * when memory runs out. */
HALV_API int32_t HalvGetUserCMList(HalvUserCMData *tree, const char *item, const char *section,
                                   const char *label, char ***list) HALV_NOEXCEPT;

/* Frees the strings and the array of a list from HalvGetUserCMList and sets
 * *list to null.  A null list, or a null *list, does nothing. */
HALV_API void HalvFreeUserCMList(char ***list) HALV_NOEXCEPT;

/* ------------------------------------------------------------------------
 * Insertion
 *
 * Each function returns the tree, whose first node may have been made by
 * the call: the caller stores it back.  New nodes go to the end of their
 * list, and every name and value is copied.
 * ------------------------------------------------------------------------ */

/* Makes sure the path exists: an item or section is found by name (a node
 * of any kind) or made, a label is always made anew, so a repeated merge
 * gives a second label of that name.  In an empty tree the first node made
 * becomes the tree; a node that doesn't fit under the root's kind is
 * dropped and the walk ends there.  *node (node may be null) receives the
 * deepest node reached, or null when none was.  Result: the tree. */
HALV_API HalvUserCMData *HalvMergeUserCMData(HalvUserCMData *tree, const char *item, const char *section,
                                             const char *label, HalvUserCMData **node) HALV_NOEXCEPT;

/* Merges the path, then makes a string node with a copy of value the only
 * child of the deepest node, freeing the children it had.  When the deepest
 * level named couldn't be reached (a label under an item with no section
 * among them, a node that fits nowhere, no memory), or value is null,
 * nothing is stored.  Result: the tree. */
HALV_API HalvUserCMData *HalvSetString(HalvUserCMData *tree, const char *item, const char *section,
                                       const char *label, const char *value) HALV_NOEXCEPT;

/* HalvSetString with a data node holding a copy of the size bytes at bytes,
 * with a NUL behind them; bytes may be null for size 0.  Result: the
 * tree. */
HALV_API HalvUserCMData *HalvSetData(HalvUserCMData *tree, const char *item, const char *section,
                                     const char *label, const void *bytes, uint32_t size) HALV_NOEXCEPT;

/* Parses "<item>\n[section]\nlabel: " (each part only when its name is
 * given) followed by valueLength bytes of value, as text of the language,
 * into the tree with HalvReadUserCMData: a plain value gives a word, a
 * quoted one a string, a Base64 block a data node, several lines several
 * values, and '#' starts a comment.  An item or section that exists is
 * reopened; the label is always new, so replacing a value takes
 * HalvDeleteParam first.  Without names and value the tree comes back
 * unchanged; a null value counts as empty.  Result: the tree; a malformed
 * value may free the whole tree and give null. */
HALV_API HalvUserCMData *HalvSetParam(HalvUserCMData *tree, const char *item, const char *section,
                                      const char *label, const char *value, uint32_t valueLength) HALV_NOEXCEPT;

/* ------------------------------------------------------------------------
 * Removal, copy, free
 * ------------------------------------------------------------------------ */

/* Unlinks the node that HalvGetUserCMData finds and frees it with its
 * children; the rest of its list stays.  Result: the tree, which may now
 * start at another node or be null; unchanged when nothing is found, no
 * name is given, or the tree's first node is a word. */
HALV_API HalvUserCMData *HalvDeleteUserCMData(HalvUserCMData *tree, const char *item, const char *section,
                                              const char *label) HALV_NOEXCEPT;

/* Among the children of the node that HalvGetUserCMData(tree, item,
 * section, null) finds, unlinks and frees, with its children, the first
 * whose text equals label ignoring case, of any kind.  Without such a node
 * or child, or with a null label, nothing happens.  It can't remove the
 * tree's first node. */
HALV_API void HalvDeleteParam(HalvUserCMData *tree, const char *item, const char *section,
                              const char *label) HALV_NOEXCEPT;

/* A deep copy of node, its children and all its following siblings, which
 * owns its bytes (borrowed texts are copied too; a node of length 0 gets a
 * null text) and is released with HalvFreeUserCMData.  Null for a null node
 * or no memory. */
HALV_API HalvUserCMData *HalvUserCMDupData(const HalvUserCMData *node) HALV_NOEXCEPT;

/* Frees node, its children and its following siblings, with their texts
 * unless borrowed.  Null does nothing. */
HALV_API void HalvFreeUserCMData(HalvUserCMData *node) HALV_NOEXCEPT;

HALV_END_DECLS

#endif /* HALV_USERDATA_H */
