/*
 * core/lifecycle.cpp - engine start and stop.
 *
 * A use count pairs HalvernInit with HalvernEnd.  The first start creates
 * eight recursive hash locks that the rest of the library takes by key; the
 * last stop unregisters the bundles, runs the cleanup functions newest first
 * and destroys the hash locks again.  The master lock that orders all of this
 * is a statically initialised recursive mutex, usable before any call.
 */
#include <pthread.h>

#include "core/internal.h"
#include "halv_env.h"

namespace {

/* A hash lock: a recursive mutex on the heap, null before the first start. */
struct HashLock {
    pthread_mutex_t mutex;
};

struct Engine {
    uint32_t useCount;
    int registryLoadDisabled;
    HalvCleanupEntry *cleanupList;
    HashLock *hashLocks[8];
    int envDebug;
    int sharedDebug;
    int findFileDebug;
};

constinit Engine engine = {};
pthread_mutex_t masterLock = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP;

constexpr int kCleanupLockIndex = 4;

HashLock *CreateHashLock() noexcept {
    auto *lock = static_cast<HashLock *>(halv_internal_calloc(1, sizeof(HashLock)));
    if (lock == nullptr)
        return nullptr;
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutex_init(&lock->mutex, &attributes);
    pthread_mutexattr_destroy(&attributes);
    return lock;
}

void DestroyHashLock(HashLock *lock) noexcept {
    if (lock == nullptr)
        return;
    pthread_mutex_destroy(&lock->mutex);
    halv_internal_free(lock);
}

/* Entering or leaving a lock that does not exist yet does nothing. */
void EnterHashLock(int index) noexcept {
    if (HashLock *lock = engine.hashLocks[index])
        pthread_mutex_lock(&lock->mutex);
}

void LeaveHashLock(int index) noexcept {
    if (HashLock *lock = engine.hashLocks[index])
        pthread_mutex_unlock(&lock->mutex);
}

int HashOfKey(uint32_t key) noexcept { return (int)(((key >> 16) + key) & 7u); }

/* A switch is on when HalvGetenv knows the name at all (an empty real
 * variable counts as unset there). */
int SwitchFromEnvironment(const char *name) noexcept { return HalvGetenv(name) != nullptr ? 1 : 0; }

/* Registry step and its undo; the registry is wired in by the modules layer. */
int LoadRegistry() noexcept { return 1; }
int UnregisterLibraries() noexcept { return 1; }

/* One end pass; the body of HalvernEnd. */
int EndPass() noexcept {
    HalvDebug("Halvern System shutdown.\n");
    pthread_mutex_lock(&masterLock);
    if (engine.useCount == 0) {
        pthread_mutex_unlock(&masterLock);
        return 0;
    }
    if (--engine.useCount > 0) {
        pthread_mutex_unlock(&masterLock);
        return 1;
    }
    int result = UnregisterLibraries();
    if (result != 1) {
        engine.useCount = 1;
        pthread_mutex_unlock(&masterLock);
        return result;
    }
    HalvCleanupEntry *entry = engine.cleanupList;
    while (entry != nullptr) {
        HalvCleanupEntry *next = entry->next;
        int32_t outcome = entry->fn(entry->arg);
        if (outcome != 1 && outcome != 0) {
            engine.useCount = 1;
            pthread_mutex_unlock(&masterLock);
            return outcome;
        }
        engine.cleanupList = next;
        halv_internal_free(entry);
        if (outcome == 0) {
            engine.useCount = 1;
            pthread_mutex_unlock(&masterLock);
            return 0;
        }
        entry = next;
    }
    engine.cleanupList = nullptr;
    for (HashLock *&lock : engine.hashLocks) {
        DestroyHashLock(lock);
        lock = nullptr;
    }
    HalvDebug("Halvern System shutdown complete.\n");
    pthread_mutex_unlock(&masterLock);
    return 1;
}

} // namespace

namespace halv {
int EngineEnvDebug() noexcept { return engine.envDebug; }
int EngineSharedDebug() noexcept { return engine.sharedDebug; }
int EngineFindFileDebug() noexcept { return engine.findFileDebug; }
} // namespace halv

extern "C" {

HALV_API int HalvernInit(void) noexcept {
    HalvDebug("Halvern System initialization\n");
    pthread_mutex_lock(&masterLock);
    if (engine.useCount++ != 0) {
        pthread_mutex_unlock(&masterLock);
        return 1;
    }
    for (HashLock *&lock : engine.hashLocks)
        lock = CreateHashLock();
    engine.envDebug = SwitchFromEnvironment("HVENV_DEBUG");
    engine.sharedDebug = SwitchFromEnvironment("HVSHARED_DEBUG");
    engine.findFileDebug = SwitchFromEnvironment("HVFINDFILE_DEBUG");
    if (!engine.registryLoadDisabled && LoadRegistry() != 1) {
        pthread_mutex_unlock(&masterLock);
        return 0;
    }
    HalvDebug("Halvern System initialized.\n");
    pthread_mutex_unlock(&masterLock);
    return 1;
}

HALV_API int HalvernEnd(void) noexcept { return EndPass(); }

HALV_API int HalvernAbsoluteEnd(void) noexcept {
    for (;;) {
        int result = EndPass();
        if (result == 0 || result == 1)
            return result;
    }
}

HALV_API int HalvernDisableRegistryLoad(int disable) noexcept {
    pthread_mutex_lock(&masterLock);
    engine.registryLoadDisabled = disable != 0 ? 1 : 0;
    pthread_mutex_unlock(&masterLock);
    return 1;
}

HALV_API int HalvernLock(uint32_t key) noexcept {
    EnterHashLock(HashOfKey(key));
    return 1;
}

HALV_API int HalvernUnlock(uint32_t key) noexcept {
    LeaveHashLock(HashOfKey(key));
    return 1;
}

HALV_API int HalvernRegisterCleanupFunc(HalvCleanupFn fn, intptr_t arg) noexcept {
    if (engine.useCount == 0 || fn == nullptr)
        return 0;
    auto *entry = static_cast<HalvCleanupEntry *>(halv_internal_calloc(1, sizeof(HalvCleanupEntry)));
    if (entry == nullptr)
        return 0;
    entry->fn = fn;
    entry->arg = arg;
    EnterHashLock(kCleanupLockIndex);
    entry->next = engine.cleanupList;
    engine.cleanupList = entry;
    LeaveHashLock(kCleanupLockIndex);
    return 1;
}

} // extern "C"
