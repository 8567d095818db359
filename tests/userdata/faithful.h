// Which trees the writer prints so that the reader gives them back exactly.
//
// The writer escapes nothing, so a node reads back the same only when its
// text holds no syntax of its place, and the tree has the shape the reader
// builds: one kind at the top, items over sections over labels over values,
// names that the reader would not merge, and a top-level End only last.
// The round-trip tests and the fuzz target share this rule.
#ifndef HALV_TESTS_USERDATA_FAITHFUL_H
#define HALV_TESTS_USERDATA_FAITHFUL_H

#include <cstdint>
#include <cstring>

#include "dpk_hvsup.h"

namespace ucm_test {

inline unsigned char Fold(unsigned char c) { return (c >= 'A' && c <= 'Z') ? (unsigned char)(c + 32) : c; }

inline bool SameName(const HalvUserCMData *a, const HalvUserCMData *b) {
    if (a->length != b->length)
        return false;
    for (uint32_t i = 0; i < a->length; ++i)
        if (Fold((unsigned char)a->text[i]) != Fold((unsigned char)b->text[i]))
            return false;
    return true;
}

inline bool NamedEnd(const HalvUserCMData *node) {
    return node->length == 3 && Fold((unsigned char)node->text[0]) == 'e' &&
           Fold((unsigned char)node->text[1]) == 'n' && Fold((unsigned char)node->text[2]) == 'd';
}

inline bool HasAny(const HalvUserCMData *node, uint32_t from, const char *bytes) {
    for (uint32_t i = from; i < node->length; ++i)
        if (node->text[i] != '\0' && std::strchr(bytes, node->text[i]) != nullptr)
            return true;
    return false;
}

inline bool IsBlankByte(unsigned char c) { return c == ' ' || (c >= 9 && c <= 13); }

/* Bytes that break any text but data: the end byte and CR, which the
 * reader never delivers. */
constexpr const char *kNeverText = "\r\xFF";

/* Text of one node that reads back as the same token. */
inline bool FaithfulText(const HalvUserCMData *node) {
    if (node->text == nullptr && node->length != 0)
        return false;
    const auto first = node->length != 0 ? (unsigned char)node->text[0] : 0;
    switch (node->kind) {
    case HALV_UCM_ITEM:
        return !HasAny(node, 0, "\r\xFF>=\\\"");
    case HALV_UCM_SECTION:
        return !HasAny(node, 0, "\r\xFF]=\\\"");
    case HALV_UCM_LABEL:
    case HALV_UCM_WORD:
        // Bare text: its first byte opens the token, the rest must not end,
        // escape, quote or comment it.
        if (node->length == 0 || IsBlankByte(first) || (first != 0 && std::strchr("#<[\"{", first) != nullptr))
            return false;
        return !HasAny(node, 0, kNeverText) && !HasAny(node, 1, "\n:=#\\\"");
    case HALV_UCM_STRING: {
        if (HasAny(node, 0, "\r\xFF\"\\"))
            return false;
        // A string that starts like a Base64 mark would be read as a block.
        static const char mark[] = "<<<<base64data";
        bool likeMark = node->length >= 14;
        for (uint32_t i = 0; likeMark && i < 14; ++i)
            likeMark = Fold((unsigned char)node->text[i]) == (unsigned char)mark[i];
        return !likeMark;
    }
    case HALV_UCM_DATA:
        return true;
    default:
        return false;
    }
}

/* The kinds a list below a node of kind parent may hold. */
inline bool FitsBelow(int32_t parent, int32_t kind) {
    return parent == HALV_UCM_ITEM      ? kind == HALV_UCM_SECTION
           : parent == HALV_UCM_SECTION ? kind == HALV_UCM_LABEL
                                        : parent == HALV_UCM_LABEL && kind >= HALV_UCM_WORD && kind <= HALV_UCM_DATA;
}

inline bool FaithfulList(const HalvUserCMData *list, int32_t parentKind, int32_t rootKind, bool top) {
    for (const HalvUserCMData *node = list; node != nullptr; node = node->next) {
        if (top) {
            const bool values = rootKind >= HALV_UCM_WORD;
            if (values ? node->kind < HALV_UCM_WORD || node->kind > HALV_UCM_DATA : node->kind != rootKind)
                return false;
        } else if (!FitsBelow(parentKind, node->kind)) {
            return false;
        }
        if (!FaithfulText(node))
            return false;
        // Item and section names are reopened, not repeated, by the reader.
        if (node->kind <= HALV_UCM_SECTION)
            for (const HalvUserCMData *later = node->next; later != nullptr; later = later->next)
                if (SameName(node, later))
                    return false;
        // A top-level End ends the text: it must be last, with nothing below.
        if (top && node->kind <= HALV_UCM_SECTION && NamedEnd(node) && (node->next != nullptr || node->children != nullptr))
            return false;
        if (node->children != nullptr && !FaithfulList(node->children, node->kind, rootKind, false))
            return false;
    }
    return true;
}

inline bool Faithful(const HalvUserCMData *tree) {
    return tree == nullptr || FaithfulList(tree, -1, tree->kind, true);
}

/* Same kinds, texts and shape. */
inline bool SameTree(const HalvUserCMData *a, const HalvUserCMData *b) {
    for (; a != nullptr && b != nullptr; a = a->next, b = b->next) {
        const uint32_t la = a->text != nullptr ? a->length : 0, lb = b->text != nullptr ? b->length : 0;
        if (a->kind != b->kind || la != lb || (la != 0 && std::memcmp(a->text, b->text, la) != 0))
            return false;
        if (!SameTree(a->children, b->children))
            return false;
    }
    return a == nullptr && b == nullptr;
}

} // namespace ucm_test

#endif
