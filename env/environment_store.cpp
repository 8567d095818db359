/*
 * env/environment_store.cpp - the override list: variables set in the
 * process, and values read once from the real environment.
 *
 * A short singly linked list, newest first, each node carrying the 16-bit
 * hash of its name so that a walk compares numbers before strings.  The list
 * registers a cleanup function at its first store and is emptied at the last
 * HalvernEnd, so that the next start reads the environment anew.
 */
#include <cstring>

#include "env/environment_internal.h"
#include "halv_util.h"

namespace {

struct OverrideList {
    HalvEnvVar *head;
    bool cleanupRegistered;
};

constinit OverrideList overrides = {};

uint32_t HashOfName(const char *name) noexcept { return HalvHashBytes(name, (uint32_t)std::strlen(name)); }

/* The link that points at the node for name, or null. */
HalvEnvVar **FindLink(const char *name, uint32_t hash) noexcept {
    for (HalvEnvVar **link = &overrides.head; *link != nullptr; link = &(*link)->next) {
        HalvEnvVar *node = *link;
        if (node->nameHash == hash && std::strcmp(node->name, name) == 0)
            return link;
    }
    return nullptr;
}

void FreeNode(HalvEnvVar *node) noexcept {
    halv_internal_free(node->name);
    halv_internal_free(node->value);
    halv_internal_free(node);
}

const char *OrNull(const char *text) noexcept { return text != nullptr ? text : "NULL"; }

int32_t CleanupOverrides(intptr_t) noexcept {
    halv::EnvLock lock;
    HalvEnvVar *node = overrides.head;
    while (node != nullptr) {
        HalvEnvVar *next = node->next;
        HalvDebug("Cleaning up EnvVar %s=%s\n", OrNull(node->name), OrNull(node->value));
        FreeNode(node);
        node = next;
    }
    overrides.head = nullptr;
    overrides.cleanupRegistered = false;
    return 1;
}

/* A new head node for name holding value, or false when memory runs out. */
bool PushNode(const char *name, uint32_t hash, char *value) noexcept {
    auto *node = static_cast<HalvEnvVar *>(halv_internal_malloc(sizeof(HalvEnvVar)));
    char *nameCopy = halv::CopyEnvText(name);
    if (node == nullptr || nameCopy == nullptr) {
        halv_internal_free(node);
        halv_internal_free(nameCopy);
        return false;
    }
    node->name = nameCopy;
    node->nameHash = hash;
    node->value = value;
    node->next = overrides.head;
    overrides.head = node;
    return true;
}

} // namespace

namespace halv {

char *CopyEnvText(const char *text) noexcept {
    size_t size = std::strlen(text) + 1;
    auto *copy = static_cast<char *>(halv_internal_malloc(size));
    if (copy != nullptr)
        std::memcpy(copy, text, size);
    return copy;
}

HalvEnvVar *FindEnvVar(const char *name) noexcept {
    HalvEnvVar **link = FindLink(name, HashOfName(name));
    return link != nullptr ? *link : nullptr;
}

bool StoreEnvVar(const char *name, char *value, bool takeOver) noexcept {
    /* Registered once even if it fails (before HalvernInit it does): the
     * list then simply lives on. */
    if (!overrides.cleanupRegistered) {
        HalvernRegisterCleanupFunc(CleanupOverrides, 0);
        overrides.cleanupRegistered = true;
    }
    uint32_t hash = HashOfName(name);
    HalvEnvVar **link = FindLink(name, hash);
    if (value == nullptr) {
        if (link != nullptr) {
            HalvEnvVar *node = *link;
            *link = node->next;
            FreeNode(node);
        }
        return true;
    }
    char *stored = takeOver ? value : CopyEnvText(value);
    if (stored == nullptr)
        return false;
    if (link != nullptr) {
        halv_internal_free((*link)->value);
        (*link)->value = stored;
        return true;
    }
    if (PushNode(name, hash, stored))
        return true;
    halv_internal_free(stored);
    return false;
}

} // namespace halv

extern "C" {

HALV_API int HalvSetenv(const char *name, const char *value) noexcept {
    if (name == nullptr)
        return 0;
    halv::EnvLock lock;
    /* Without takeOver the value is only read, never released. */
    return halv::StoreEnvVar(name, const_cast<char *>(value), false) ? 1 : 0;
}

} // extern "C"
