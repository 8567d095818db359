/*
 * modules/shared_cache.cpp - the libraries loaded for retrieved functions.
 *
 * A fixed table of 32 entries under lock key SHRD.  An entry keeps the hash
 * and length of the name it was loaded by, never the text, so a lookup is
 * one hash and at most 32 pairs of word comparisons.  Libraries stay loaded
 * until the cleanup of the last HalvernEnd closes them all.
 */
#include <cstring>

#include "core/internal.h"
#include "halv_util.h"
#include "modules/internal.h"

namespace {

constexpr int kCacheEntries = 32;

struct CacheEntry {
    uint32_t nameHash;
    uint32_t nameLength;
    void *handle;
};

struct SharedCache {
    CacheEntry entries[kCacheEntries];
    bool prepared; /* cleared and its cleanup registered */
};

constinit SharedCache cache = {};

using CacheLock = halv::ScopedKeyLock<HALV_LOCK_SHRD>;

/* Closes every cached library.  A close that fails stops the pass with -1;
 * the entries before it are gone, the rest wait for the next pass. */
int32_t CloseCachedLibraries(intptr_t) noexcept {
    CacheLock lock;
    for (CacheEntry &entry : cache.entries) {
        if (entry.handle == nullptr)
            continue;
        void *handle = entry.handle;
        entry.handle = nullptr;
        if (HalvDLClose(handle) != 1)
            return -1;
    }
    cache.prepared = false;
    return 1;
}

/* The first load sets the table up.  The flag is set even when the engine
 * is stopped and the cleanup can't be registered. */
void PrepareCache() noexcept {
    if (cache.prepared)
        return;
    HalvernRegisterCleanupFunc(CloseCachedLibraries, 0);
    std::memset(cache.entries, 0, sizeof cache.entries);
    cache.prepared = true;
}

CacheEntry *FindEntry(uint32_t hash, uint32_t length) noexcept {
    for (CacheEntry &entry : cache.entries)
        if (entry.handle != nullptr && entry.nameHash == hash && entry.nameLength == length)
            return &entry;
    return nullptr;
}

CacheEntry *FreeEntry() noexcept {
    for (CacheEntry &entry : cache.entries)
        if (entry.handle == nullptr)
            return &entry;
    return nullptr;
}

} // namespace

namespace halv {

void *CachedLoad(const char *name) noexcept {
    uint32_t length = (uint32_t)std::strlen(name);
    uint32_t hash = HalvHashBytes(name, length);
    CacheLock lock;
    if (CacheEntry *entry = FindEntry(hash, length))
        return entry->handle;
    void *handle = OpenSharedObject(name, nullptr);
    if (handle == nullptr)
        return nullptr;
    if (EngineSharedDebug())
        HalvDebug("hvshared: loading <%s>\n", name);
    PrepareCache();
    CacheEntry *entry = FreeEntry();
    if (entry == nullptr)
        return nullptr; /* the table is full; the library stays loaded */
    *entry = {hash, length, handle};
    return handle;
}

} // namespace halv
