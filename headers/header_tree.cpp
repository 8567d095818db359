/*
 * headers/header_tree.cpp - a header's tree by section and key: thin
 * layers over the user data tree operations, with no item level.
 */
#include <cstring>

#include "halv_userdata.h"
#include "halv_util.h"
#include "headers/internal.h"

namespace halv {

/* Counts the labels first and then deletes as many, each delete taking the
 * first that is left, by the same rule of matching. */
HalvUserCMData *DeleteEveryHeaderField(HalvUserCMData *tree, const char *section, const char *key) noexcept {
    const HalvUserCMData *node = HalvGetUserCMData(tree, nullptr, section, nullptr);
    if (node == nullptr || key == nullptr)
        return tree;
    uint32_t labels = 0;
    for (const HalvUserCMData *child = node->children; child != nullptr; child = child->next)
        if (child->text != nullptr && HalvStrCaseCmp(child->text, key) == 0)
            ++labels;
    for (; labels > 0; --labels)
        HalvDeleteParam(tree, nullptr, section, key);
    return tree;
}

} // namespace halv

extern "C" {

HALV_API char *HVHdrGetHeaderParam(HalvUserCMData *tree, const char *section, const char *key) noexcept {
    return HalvGetParam(tree, nullptr, section, key);
}

HALV_API int HVHdrCheckHeaderParam(HalvUserCMData *tree, const char *section, const char *key) noexcept {
    return HVHdrGetHeaderParam(tree, section, key) != nullptr ? 1 : 0;
}

HALV_API int HVHdrGetHeaderData(HalvUserCMData *tree, const char *section, const char *key, void **data,
                                uint32_t *length) noexcept {
    return HalvGetData(tree, nullptr, section, key, data, length);
}

HALV_API int HVHdrGetHeaderList(HalvUserCMData *tree, const char *section, const char *key, char ***list) noexcept {
    return HalvGetUserCMList(tree, nullptr, section, key, list);
}

/* The label is made anew by the parser, so the old one goes first. */
HALV_API HalvUserCMData *HVHdrSetHeaderField(HalvUserCMData *tree, const char *section, const char *key,
                                             const char *bytes, uint32_t length) noexcept {
    HalvDeleteParam(tree, nullptr, section, key);
    return HalvSetParam(tree, nullptr, section, key, bytes, length);
}

HALV_API HalvUserCMData *HVHdrSetHeaderParam(HalvUserCMData *tree, const char *section, const char *key,
                                             const char *text) noexcept {
    return HVHdrSetHeaderField(tree, section, key, text, text != nullptr ? (uint32_t)std::strlen(text) : 0u);
}

HALV_API HalvUserCMData *HVHdrSetHeaderString(HalvUserCMData *tree, const char *section, const char *key,
                                              const char *text) noexcept {
    return HalvSetString(tree, nullptr, section, key, text);
}

HALV_API HalvUserCMData *HVHdrSetHeaderData(HalvUserCMData *tree, const char *section, const char *key,
                                            const void *bytes, uint32_t length) noexcept {
    return HalvSetData(tree, nullptr, section, key, bytes, length);
}

HALV_API HalvUserCMData *HVHdrDeleteHeaderField(HalvUserCMData *tree, const char *section, const char *key) noexcept {
    HalvDeleteParam(tree, nullptr, section, key);
    return tree;
}

HALV_API HalvUserCMData *HVHdrDeleteHeaderSection(HalvUserCMData *tree, const char *section) noexcept {
    return HalvDeleteUserCMData(tree, nullptr, section, nullptr);
}

HALV_API int HVHdrFree(HalvUserCMData *tree) noexcept {
    HalvFreeUserCMData(tree);
    return 1;
}

HALV_API int HVHdrFreeList(char ***list) noexcept {
    HalvFreeUserCMList(list);
    return 1;
}

} // extern "C"
