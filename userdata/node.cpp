/*
 * userdata/node.cpp - making nodes and linking them into sibling lists.
 */
#include "userdata/internal.h"

namespace halv {

HalvUserCMData *NewNode(int32_t kind, const void *bytes, uint32_t length) noexcept {
    auto *node = static_cast<HalvUserCMData *>(halv_internal_malloc(sizeof(HalvUserCMData)));
    if (node == nullptr)
        return nullptr;
    auto *text = static_cast<char *>(halv_internal_malloc((size_t)length + 1));
    if (text == nullptr) {
        halv_internal_free(node);
        return nullptr;
    }
    if (length != 0)
        std::memcpy(text, bytes, length);
    text[length] = '\0';
    *node = HalvUserCMData{text, length, 0, kind, nullptr, nullptr};
    return node;
}

bool AppendToList(HalvUserCMData **head, HalvUserCMData *node) noexcept {
    if (node->next != nullptr)
        return false;
    HalvUserCMData **link = head;
    for (; *link != nullptr; link = &(*link)->next)
        if (*link == node)
            return false;
    *link = node;
    return true;
}

} // namespace halv
