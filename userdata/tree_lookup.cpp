/*
 * userdata/tree_lookup.cpp - finding nodes by item, section and label, and
 * handing out what hangs below them.  A get allocates nothing, but for the
 * list that HalvGetUserCMList makes for its caller.
 */
#include "userdata/internal.h"
#include "userdata/tree_path.h"

namespace halv {

HalvUserCMData **FindPathLink(HalvUserCMData **top, const PathNames &path, const int32_t index[kPathLevels]) noexcept {
    if (*top == nullptr || (*top)->kind == HALV_UCM_WORD)
        return nullptr;
    HalvUserCMData **found = nullptr;
    for (int level = 0; level < kPathLevels; ++level) {
        const char *name = path.name[level];
        if (name == nullptr)
            continue;
        HalvUserCMData **link = found != nullptr ? &(*found)->children : top;
        const uint32_t length = (uint32_t)std::strlen(name);
        int32_t toPass = index[level];
        if (toPass < 0)
            return nullptr;
        for (; *link != nullptr; link = &(*link)->next)
            if (NodeNamed(*link, name, length) && toPass-- == 0)
                break;
        // The match must be of its level's kind even when a later node of
        // that name would be.
        if (*link == nullptr || (*link)->kind != level)
            return nullptr;
        found = link;
    }
    return found;
}

HalvUserCMData *FindPath(HalvUserCMData *tree, const char *item, const char *section, const char *label) noexcept {
    static constexpr int32_t kFirst[kPathLevels] = {0, 0, 0};
    HalvUserCMData **link = FindPathLink(&tree, PathNames{{item, section, label}}, kFirst);
    return link != nullptr ? *link : nullptr;
}

} // namespace halv

extern "C" {

HALV_API HalvUserCMData *HalvIndexedGetUserCMData(HalvUserCMData *tree, const char *item, int32_t itemIndex,
                                                  const char *section, int32_t sectionIndex,
                                                  const char *label, int32_t labelIndex) noexcept {
    const int32_t index[halv::kPathLevels] = {itemIndex, sectionIndex, labelIndex};
    HalvUserCMData **link = halv::FindPathLink(&tree, halv::PathNames{{item, section, label}}, index);
    return link != nullptr ? *link : nullptr;
}

HALV_API HalvUserCMData *HalvGetUserCMData(HalvUserCMData *tree, const char *item, const char *section,
                                           const char *label) noexcept {
    return halv::FindPath(tree, item, section, label);
}

HALV_API char *HalvGetParam(HalvUserCMData *tree, const char *item, const char *section,
                            const char *label) noexcept {
    const HalvUserCMData *node = halv::FindPath(tree, item, section, label);
    return node != nullptr && node->children != nullptr ? node->children->text : nullptr;
}

HALV_API int32_t HalvGetData(HalvUserCMData *tree, const char *item, const char *section, const char *label,
                             void **data, uint32_t *size) noexcept {
    if (data != nullptr)
        *data = nullptr;
    if (size != nullptr)
        *size = 0;
    const HalvUserCMData *node = halv::FindPath(tree, item, section, label);
    const HalvUserCMData *value = node != nullptr ? node->children : nullptr;
    if (value == nullptr || value->kind != HALV_UCM_DATA)
        return 0;
    if (data != nullptr)
        *data = value->text;
    if (size != nullptr)
        *size = value->length;
    return 1;
}

HALV_API int32_t HalvGetUserCMList(HalvUserCMData *tree, const char *item, const char *section,
                                   const char *label, char ***list) noexcept {
    const HalvUserCMData *node = halv::FindPath(tree, item, section, label);
    if (node == nullptr || list == nullptr)
        return 0;
    int32_t count = 0;
    for (const HalvUserCMData *child = node->children; child != nullptr; child = child->next)
        ++count;
    if (count == 0)
        return 0;
    auto **copies = static_cast<char **>(halv_internal_calloc((size_t)count + 1, sizeof(char *)));
    if (copies == nullptr)
        return 0;
    int32_t made = 0;
    for (const HalvUserCMData *child = node->children; child != nullptr; child = child->next, ++made) {
        const uint32_t length = child->text != nullptr ? child->length : 0;
        copies[made] = static_cast<char *>(halv_internal_malloc((size_t)length + 1));
        if (copies[made] == nullptr) {
            HalvFreeUserCMList(&copies);
            return 0;
        }
        if (length != 0)
            std::memcpy(copies[made], child->text, length);
        copies[made][length] = '\0';
    }
    *list = copies;
    return count;
}

HALV_API void HalvFreeUserCMList(char ***list) noexcept {
    if (list == nullptr || *list == nullptr)
        return;
    for (char **entry = *list; *entry != nullptr; ++entry)
        halv_internal_free(*entry);
    halv_internal_free(*list);
    *list = nullptr;
}

} // extern "C"
