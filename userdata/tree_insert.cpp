/*
 * userdata/tree_insert.cpp - making paths and storing values.
 *
 * Items and sections are found (by name, of any kind) or made; a label is
 * always made anew, so setting a label twice gives two labels and a lookup
 * keeps finding the first.  A node that doesn't fit under the root's kind
 * is dropped, and the path ends there.
 */
#include "userdata/internal.h"

namespace halv {
namespace {

HalvUserCMData *FindNamed(HalvUserCMData *list, const char *name, uint32_t length) noexcept {
    for (; list != nullptr; list = list->next)
        if (NodeNamed(list, name, length))
            return list;
    return nullptr;
}

/* A new node named name placed in the tree: as the tree when it is empty,
 * else under parent, else at the top when the root has the node's kind.
 * Result: the node, or null (no memory, or it fits nowhere and was
 * dropped). */
HalvUserCMData *Place(HalvUserCMData *&tree, HalvUserCMData *parent, int32_t kind, const char *name,
                      uint32_t length) noexcept {
    HalvUserCMData *node = NewNode(kind, name, length);
    if (node == nullptr)
        return nullptr;
    if (tree == nullptr)
        tree = node;
    else if (parent != nullptr)
        AppendToList(&parent->children, node);
    else if (tree->kind == kind)
        AppendToList(&tree, node);
    else {
        HalvFreeUserCMData(node);
        return nullptr;
    }
    return node;
}

/* Found or made: an item (parent null) or a section (parent the item, or
 * null for the top list). */
HalvUserCMData *Open(HalvUserCMData *&tree, HalvUserCMData *parent, int32_t kind, const char *name) noexcept {
    const uint32_t length = (uint32_t)std::strlen(name);
    if (HalvUserCMData *found = FindNamed(parent != nullptr ? parent->children : tree, name, length))
        return found;
    return Place(tree, parent, kind, name, length);
}

/* The merge walk.  *node gets the deepest node reached; the result tells
 * whether every level named was reached. */
bool MergePath(HalvUserCMData *&tree, const char *item, const char *section, const char *label,
               HalvUserCMData **node) noexcept {
    *node = nullptr;
    HalvUserCMData *itemNode = nullptr;
    HalvUserCMData *sectionNode = nullptr;
    if (item != nullptr) {
        if ((itemNode = Open(tree, nullptr, HALV_UCM_ITEM, item)) == nullptr)
            return false;
        *node = itemNode;
    }
    if (section != nullptr) {
        if ((sectionNode = Open(tree, itemNode, HALV_UCM_SECTION, section)) == nullptr)
            return false;
        *node = sectionNode;
    }
    if (label == nullptr)
        return true;
    HalvUserCMData *labelNode = Place(tree, sectionNode, HALV_UCM_LABEL, label, (uint32_t)std::strlen(label));
    if (labelNode == nullptr)
        return false;
    *node = labelNode;
    return true;
}

/* Merges the path and makes value the only child of its deepest node;
 * stores nothing (and frees value) when the path couldn't be completed. */
HalvUserCMData *StoreValue(HalvUserCMData *tree, const char *item, const char *section, const char *label,
                           int32_t kind, const void *bytes, uint32_t length) noexcept {
    HalvUserCMData *node = nullptr;
    if (!MergePath(tree, item, section, label, &node) || node == nullptr)
        return tree;
    HalvUserCMData *value = NewNode(kind, bytes, length);
    if (value == nullptr)
        return tree;
    HalvFreeUserCMData(node->children);
    node->children = value;
    return tree;
}

/* Appends text to a buffer being assembled. */
char *Emit(char *to, const char *text, size_t length) noexcept {
    if (length != 0)
        std::memcpy(to, text, length);
    return to + length;
}

} // namespace
} // namespace halv

extern "C" {

HALV_API HalvUserCMData *HalvMergeUserCMData(HalvUserCMData *tree, const char *item, const char *section,
                                             const char *label, HalvUserCMData **node) noexcept {
    HalvUserCMData *reached = nullptr;
    halv::MergePath(tree, item, section, label, &reached);
    if (node != nullptr)
        *node = reached;
    return tree;
}

HALV_API HalvUserCMData *HalvSetString(HalvUserCMData *tree, const char *item, const char *section,
                                       const char *label, const char *value) noexcept {
    if (value == nullptr)
        return tree;
    return halv::StoreValue(tree, item, section, label, HALV_UCM_STRING, value, (uint32_t)std::strlen(value));
}

HALV_API HalvUserCMData *HalvSetData(HalvUserCMData *tree, const char *item, const char *section,
                                     const char *label, const void *bytes, uint32_t size) noexcept {
    if (bytes == nullptr && size != 0)
        return tree;
    return halv::StoreValue(tree, item, section, label, HALV_UCM_DATA, bytes, size);
}

HALV_API HalvUserCMData *HalvSetParam(HalvUserCMData *tree, const char *item, const char *section,
                                      const char *label, const char *value, uint32_t valueLength) noexcept {
    if (value == nullptr)
        valueLength = 0;
    if (item == nullptr && section == nullptr && label == nullptr && valueLength == 0)
        return tree;
    // The text "<item>\n[section]\nlabel: value", each part only when given,
    // read as source text of the language.
    const size_t itemLength = item != nullptr ? std::strlen(item) : 0;
    const size_t sectionLength = section != nullptr ? std::strlen(section) : 0;
    const size_t labelLength = label != nullptr ? std::strlen(label) : 0;
    const size_t total = (item != nullptr ? itemLength + 3 : 0) + (section != nullptr ? sectionLength + 3 : 0) +
                         (label != nullptr ? labelLength + 2 : 0) + valueLength;
    if (total > UINT32_MAX)
        return tree;
    auto *text = static_cast<char *>(halv_internal_malloc(total != 0 ? total : 1));
    if (text == nullptr)
        return tree;
    char *at = text;
    if (item != nullptr) {
        at = halv::Emit(at, "<", 1);
        at = halv::Emit(at, item, itemLength);
        at = halv::Emit(at, ">\n", 2);
    }
    if (section != nullptr) {
        at = halv::Emit(at, "[", 1);
        at = halv::Emit(at, section, sectionLength);
        at = halv::Emit(at, "]\n", 2);
    }
    if (label != nullptr) {
        at = halv::Emit(at, label, labelLength);
        at = halv::Emit(at, ": ", 2);
    }
    halv::Emit(at, value, valueLength);
    // total isn't 0: size 0 would make the stream look for a NUL.
    if (HalvIO *in = HalvIO_Str(text, (uint32_t)total)) {
        HalvReadUserCMData(in, &tree, 0);
        in->close(in);
    }
    halv_internal_free(text);
    return tree;
}

} // extern "C"
