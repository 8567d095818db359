/*
 * userdata/tree_remove.cpp - unlinking nodes, deep copies and freeing.
 */
#include "userdata/internal.h"
#include "userdata/tree_path.h"

namespace {

/* Takes the node at *link out of its list and frees it with its children. */
void Unlink(HalvUserCMData **link) noexcept {
    HalvUserCMData *node = *link;
    *link = node->next;
    node->next = nullptr;
    HalvFreeUserCMData(node);
}

} // namespace

extern "C" {

HALV_API HalvUserCMData *HalvDeleteUserCMData(HalvUserCMData *tree, const char *item, const char *section,
                                              const char *label) noexcept {
    static constexpr int32_t kFirst[halv::kPathLevels] = {0, 0, 0};
    HalvUserCMData **link = halv::FindPathLink(&tree, halv::PathNames{{item, section, label}}, kFirst);
    if (link != nullptr)
        Unlink(link);
    return tree;
}

HALV_API void HalvDeleteParam(HalvUserCMData *tree, const char *item, const char *section,
                              const char *label) noexcept {
    HalvUserCMData *node = halv::FindPath(tree, item, section, nullptr);
    if (node == nullptr || label == nullptr)
        return;
    for (HalvUserCMData **link = &node->children; *link != nullptr; link = &(*link)->next) {
        if ((*link)->text != nullptr && HalvStrCaseCmp((*link)->text, label) == 0) {
            Unlink(link);
            return;
        }
    }
}

HALV_API HalvUserCMData *HalvUserCMDupData(const HalvUserCMData *node) noexcept {
    HalvUserCMData *copies = nullptr;
    HalvUserCMData **link = &copies;
    for (; node != nullptr; node = node->next) {
        auto *copy = static_cast<HalvUserCMData *>(halv_internal_calloc(1, sizeof(HalvUserCMData)));
        if (copy == nullptr)
            goto failed;
        *link = copy;
        link = &copy->next;
        copy->kind = node->kind;
        copy->length = node->length;
        // A copy of length 0 has no text at all; the copy owns what it has.
        if (node->length != 0 && node->text != nullptr) {
            copy->text = static_cast<char *>(halv_internal_malloc((size_t)node->length + 1));
            if (copy->text == nullptr)
                goto failed;
            std::memcpy(copy->text, node->text, node->length);
            copy->text[node->length] = '\0';
        }
        if (node->children != nullptr && (copy->children = HalvUserCMDupData(node->children)) == nullptr)
            goto failed;
    }
    return copies;
failed:
    HalvFreeUserCMData(copies);
    return nullptr;
}

HALV_API void HalvFreeUserCMData(HalvUserCMData *node) noexcept {
    // Siblings iteratively, so a long list costs no stack.
    while (node != nullptr) {
        HalvUserCMData *next = node->next;
        if (!node->borrowed)
            halv_internal_free(node->text);
        HalvFreeUserCMData(node->children);
        halv_internal_free(node);
        node = next;
    }
}

} // extern "C"
