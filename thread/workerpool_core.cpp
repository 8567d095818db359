/*
 * thread/workerpool_core.cpp - a worker pool's core: building it, taking it
 * down, its client table and the number of workers it keeps.
 *
 * A core keeps the sum of its clients' exclusive counts plus the largest
 * shared count.  Raising the target starts workers at once; lowering it
 * ends none, since idle surplus workers retire by themselves when an age is
 * set (thread/workerpool_worker.cpp).
 */
#include <cstring>

#include "halv_env.h"
#include "halv_text.h"
#include "thread/workerpool.h"

namespace {

constexpr uint32_t kFirstClientCapacity = 4;

/* HV_WORKERPOOL_AGE counts seconds; unset, 0 or text that is no number
 * means that workers never retire. */
uint32_t ReadAgeMs() noexcept {
    int32_t seconds = 0;
    if (const char *text = HalvGetenv("HV_WORKERPOOL_AGE"))
        HalvSScanf(text, "%d", &seconds);
    uint32_t ageMs = (uint32_t)seconds * 1000u;
    return ageMs == 0 ? HALV_WAIT_FOREVER : ageMs;
}

/* Grows an array of count entries to capacity entries, the new ones zeroed.
 * The new block, or null with the old one untouched. */
template <class T> T *GrowArray(T *array, uint32_t count, uint32_t capacity) noexcept {
    auto *grown = static_cast<T *>(halv_internal_realloc(array, (size_t)capacity * sizeof(T)));
    if (grown != nullptr)
        memset(grown + count, 0, (size_t)(capacity - count) * sizeof(T));
    return grown;
}

/* The first free slot of the table, grown when all are in use; the table's
 * size on failure. */
uint32_t FreeClientSlot(HalvWorkerPoolCore *core) noexcept {
    for (uint32_t i = 0; i < core->clientCapacity; ++i)
        if (!core->clients[i].inUse)
            return i;
    uint32_t old = core->clientCapacity;
    if (old > UINT32_MAX / 2)
        return old;
    uint32_t capacity = old == 0 ? kFirstClientCapacity : old * 2;
    HalvWorkerPoolClient *grown = GrowArray(core->clients, old, capacity);
    if (grown == nullptr)
        return old;
    core->clients = grown;
    core->clientCapacity = capacity;
    return old;
}

int FreeParts(HalvWorkerPoolCore *core) noexcept {
    halv_internal_free(core->threads);
    halv_internal_free(core->clients);
    halv_internal_free(core->tasks);
    int closed = HalvFreeConditional(core->queueDrained) == 1;
    closed &= HalvFreeConditional(core->workAvailable) == 1;
    closed &= HalvFreeMutex(core->mutex) == 1;
    halv_internal_free(core);
    return closed ? 1 : 0;
}

} // namespace

namespace halv::pool {

int CreateCore(HalvWorkerPoolCore **out) noexcept {
    *out = nullptr;
    auto *core = static_cast<HalvWorkerPoolCore *>(halv_internal_calloc(1, sizeof(HalvWorkerPoolCore)));
    if (core == nullptr)
        return 0;
    if (HalvInitMutex(&core->mutex) != 1) {
        halv_internal_free(core);
        return 0;
    }
    if (HalvInitConditional(&core->workAvailable) != 1) {
        HalvFreeMutex(core->mutex);
        halv_internal_free(core);
        return 0;
    }
    if (HalvInitConditional(&core->queueDrained) != 1) {
        HalvFreeConditional(core->workAvailable);
        HalvFreeMutex(core->mutex);
        halv_internal_free(core);
        return 0;
    }
    core->ageMs = ReadAgeMs();
    core->lastRetireTick = HalvGetClockTick();
    *out = core;
    return 1;
}

int DestroyCore(HalvWorkerPoolCore *core) noexcept {
    {
        CoreLock hold(core);
        core->shutdown = 1;
        HalvBroadcastConditional(core->workAvailable);
    }
    /* No worker retires once shutdown is set, so the table only shrinks by
     * nobody; still, each round reads it under the lock. */
    for (uint32_t i = 0;; ++i) {
        HalvThread worker;
        {
            CoreLock hold(core);
            if (i >= core->threadCount)
                break;
            worker = core->threads[i];
        }
        uint32_t exitCode = 0;
        HalvJoinThread(worker, &exitCode);
    }
    return FreeParts(core);
}

int AddClient(HalvWorkerPool *pool, uint32_t sharedThreads, uint32_t exclusiveThreads, uint32_t queueLimit,
              void *clientData) noexcept {
    HalvWorkerPoolCore *core = pool->core;
    CoreLock hold(core);
    uint32_t index = FreeClientSlot(core);
    if (index == core->clientCapacity)
        return 0;
    pool->clientIndex = index;
    HalvWorkerPoolClient &client = core->clients[index];
    client = {0, sharedThreads, exclusiveThreads, queueLimit, 1, clientData};
    if (AdjustThreads(core) == 1)
        return 1;
    client = {};
    RecountTarget(core);
    return 0;
}

void RecountTarget(HalvWorkerPoolCore *core) noexcept {
    uint32_t exclusiveSum = 0, sharedMax = 0;
    for (uint32_t i = 0; i < core->clientCapacity; ++i) {
        exclusiveSum += core->clients[i].exclusiveThreads;
        if (core->clients[i].sharedThreads > sharedMax)
            sharedMax = core->clients[i].sharedThreads;
    }
    core->threadTarget = exclusiveSum + sharedMax;
}

int AdjustThreads(HalvWorkerPoolCore *core) noexcept {
    RecountTarget(core);
    if (core->threadTarget <= core->threadCount)
        return 1;
    if (core->threadTarget > core->threadCapacity) {
        HalvThread *grown = GrowArray(core->threads, core->threadCapacity, core->threadTarget);
        if (grown == nullptr)
            return 0;
        core->threads = grown;
        core->threadCapacity = core->threadTarget;
    }
    /* Each new worker first blocks on the mutex, which is held here. */
    while (core->threadCount < core->threadTarget) {
        if (HalvCreateThread(&core->threads[core->threadCount], WorkerMain, core) != 1)
            return 0;
        core->threadCount++;
    }
    return 1;
}

} // namespace halv::pool
