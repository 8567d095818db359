/*
 * core/lifecycle.cpp - engine start and stop.
 *
 * A use count pairs HalvernInit with HalvernEnd.  The first start creates
 * eight recursive hash locks (critical sections) that the rest of the
 * library takes by key and runs the start steps the layers above declare
 * (the registry file and its bundles); the last stop runs their stop steps
 * (the bundles are unregistered), runs the cleanup functions newest first
 * and destroys the hash locks again.  The
 * master lock that orders all of this is a statically initialised critical
 * section, usable before any call and never destroyed.
 *
 * The hash lock handles and the use count are read without the master lock
 * (HalvernLock, HalvernRegisterCleanupFunc), so they are atomics; all their
 * changes still happen under the master lock.
 */
#include <atomic>

#include "core/internal.h"
#include "halv_env.h"
#include "thread/internal.h"

/* The engine steps, gathered by the linker from every HALV_ENGINE_STEP. */
extern "C" const halv::EngineStep __start_halv_engine_steps[];
extern "C" const halv::EngineStep __stop_halv_engine_steps[];

namespace {

constexpr int kHashLockCount = 8;
constexpr int kCleanupLockIndex = 4;

enum DebugSwitch { kEnvDebug, kSharedDebug, kFindFileDebug, kDebugSwitches };

/* Read by the first start, in this order. */
constexpr const char *kDebugVariables[kDebugSwitches] = {"HVENV_DEBUG", "HVSHARED_DEBUG", "HVFINDFILE_DEBUG"};

struct Engine {
    std::atomic<uint32_t> useCount;
    int registryLoadDisabled;
    HalvCleanupEntry *cleanupList; /* newest first; under hash lock 4 */
    std::atomic<HalvCriticalSection> hashLocks[kHashLockCount];
    std::atomic<int> debugSwitches[kDebugSwitches];
};

constinit Engine engine = {};
constinit HalvCriticalSectionRecord masterLockRecord = HALV_CRITICAL_SECTION_INIT;
HalvCriticalSection const masterLock = &masterLockRecord;

/* Entering or leaving a lock that does not exist yet does nothing: the
 * section operations accept null. */
void EnterHashLock(uint32_t index) noexcept {
    HalvEnterCriticalSection(engine.hashLocks[index].load(std::memory_order_acquire));
}

void LeaveHashLock(uint32_t index) noexcept {
    HalvLeaveCriticalSection(engine.hashLocks[index].load(std::memory_order_acquire));
}

uint32_t HashOfKey(uint32_t key) noexcept { return ((key >> 16) + key) & 7u; }

void CreateHashLocks() noexcept {
    for (auto &slot : engine.hashLocks) {
        HalvCriticalSection lock = nullptr;
        HalvInitCriticalSection(&lock);
        slot.store(lock, std::memory_order_release);
    }
}

void DestroyHashLocks() noexcept {
    for (auto &slot : engine.hashLocks)
        HalvFreeCriticalSection(slot.exchange(nullptr, std::memory_order_acq_rel));
}

/* A switch is on when HalvGetenv knows the name at all (an empty real
 * variable counts as unset there). */
void ReadDebugSwitches() noexcept {
    for (int i = 0; i < kDebugSwitches; ++i)
        engine.debugSwitches[i].store(HalvGetenv(kDebugVariables[i]) != nullptr ? 1 : 0, std::memory_order_relaxed);
}

/* The start steps in table order; 1, or 0 at the first that fails. */
int RunStartSteps() noexcept {
    for (const halv::EngineStep *step = __start_halv_engine_steps; step != __stop_halv_engine_steps; ++step)
        if (step->start() != 1)
            return 0;
    return 1;
}

/* The stop steps in reverse table order; 1, or the first failing result. */
int RunStopSteps() noexcept {
    for (const halv::EngineStep *step = __stop_halv_engine_steps; step != __start_halv_engine_steps;) {
        int result = (--step)->stop();
        if (result != 1)
            return result;
    }
    return 1;
}

HalvCleanupEntry *NewestCleanup() noexcept {
    EnterHashLock(kCleanupLockIndex);
    HalvCleanupEntry *entry = engine.cleanupList;
    LeaveHashLock(kCleanupLockIndex);
    return entry;
}

void DropCleanup(HalvCleanupEntry *entry) noexcept {
    EnterHashLock(kCleanupLockIndex);
    HalvCleanupEntry **link = &engine.cleanupList;
    while (*link != entry)
        link = &(*link)->next;
    *link = entry->next;
    LeaveHashLock(kCleanupLockIndex);
    halv_internal_free(entry);
}

/* Runs the cleanup functions newest first.  Each runs with no hash lock
 * held, so it may take any key; a new entry can't come in meanwhile, as the
 * use count is already 0.  1 when all are done, else the failing result. */
int RunCleanups() noexcept {
    while (HalvCleanupEntry *entry = NewestCleanup()) {
        int32_t outcome = entry->fn(entry->arg);
        if (outcome != 1 && outcome != 0)
            return outcome; /* the entry stays for the next pass */
        DropCleanup(entry);
        if (outcome == 0)
            return 0;
    }
    return 1;
}

/* One end pass; the body of HalvernEnd. */
int EndPass() noexcept {
    HalvDebug("Halvern System shutdown.\n");
    halv::ScopedSection hold(masterLock);
    uint32_t count = engine.useCount.load(std::memory_order_relaxed);
    if (count == 0)
        return 0;
    engine.useCount.store(count - 1, std::memory_order_relaxed);
    if (count - 1 > 0)
        return 1;
    int result = RunStopSteps();
    if (result == 1)
        result = RunCleanups();
    if (result != 1) {
        /* A failed pass leaves the engine started once, for a later pass
         * to go on where this one stopped. */
        engine.useCount.store(1, std::memory_order_relaxed);
        return result;
    }
    DestroyHashLocks();
    HalvDebug("Halvern System shutdown complete.\n");
    return 1;
}

int DebugSwitchValue(DebugSwitch which) noexcept { return engine.debugSwitches[which].load(std::memory_order_relaxed); }

} // namespace

namespace halv {
bool EngineRegistryLoadDisabled() noexcept { return engine.registryLoadDisabled != 0; }
int EngineEnvDebug() noexcept { return DebugSwitchValue(kEnvDebug); }
int EngineSharedDebug() noexcept { return DebugSwitchValue(kSharedDebug); }
int EngineFindFileDebug() noexcept { return DebugSwitchValue(kFindFileDebug); }
} // namespace halv

extern "C" {

HALV_API int HalvernInit(void) noexcept {
    HalvDebug("Halvern System initialization\n");
    halv::ScopedSection hold(masterLock);
    if (engine.useCount.fetch_add(1, std::memory_order_relaxed) != 0)
        return 1;
    CreateHashLocks();
    ReadDebugSwitches();
    if (RunStartSteps() != 1)
        return 0;
    HalvDebug("Halvern System initialized.\n");
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
    halv::ScopedSection hold(masterLock);
    engine.registryLoadDisabled = disable != 0 ? 1 : 0;
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
    if (engine.useCount.load(std::memory_order_relaxed) == 0 || fn == nullptr)
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
