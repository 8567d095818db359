/*
 * thread/workerpool_queue.cpp - the task ring: adding, clearing one
 * client's tasks, and waiting for a client's tasks to be taken.
 *
 * The ring is one strict first-in-first-out queue for all clients of a
 * core.  It starts at 8 slots and doubles when full; a queued task costs no
 * allocation of its own.
 */
#include <cstring>

#include "thread/workerpool.h"

namespace {

using halv::pool::CoreLock;

constexpr uint32_t kFirstRingCapacity = 8;

bool AtLimit(const HalvWorkerPoolClient &client) noexcept {
    return client.queueLimit != 0 && client.pendingCount >= client.queueLimit;
}

/* Doubles a full ring.  Full means taskHead == taskTail: the entries in the
 * physical slots below taskTail are the newest, and move up behind the old
 * end, so that taskHead, and with it the order, stays.  False when memory
 * runs out (the ring is as it was). */
bool GrowRing(HalvWorkerPoolCore *core) noexcept {
    uint32_t old = core->taskCapacity;
    if (old > UINT32_MAX / 2)
        return false;
    uint32_t capacity = old == 0 ? kFirstRingCapacity : old * 2;
    auto *ring = static_cast<HalvWorkerPoolTask *>(
        halv_internal_realloc(core->tasks, (size_t)capacity * sizeof(HalvWorkerPoolTask)));
    if (ring == nullptr)
        return false;
    memcpy(ring + old, ring, (size_t)core->taskTail * sizeof(HalvWorkerPoolTask));
    core->taskTail += old;
    core->tasks = ring;
    core->taskCapacity = capacity;
    return true;
}

uint32_t NextSlot(const HalvWorkerPoolCore *core, uint32_t slot) noexcept {
    return slot + 1 == core->taskCapacity ? 0 : slot + 1;
}

} // namespace

extern "C" {

HALV_API int HalvWorkerPoolAddTask(HalvWorkerPool *pool, HalvWorkerPoolTaskFn function, void *argument) noexcept {
    HalvWorkerPoolCore *core = pool->core;
    CoreLock hold(core);
    /* The slot is looked up afresh after each wait: the table may grow. */
    while (AtLimit(core->clients[pool->clientIndex]) && pool->blockWhenFull)
        HalvWaitConditional(core->queueDrained, core->mutex);
    HalvWorkerPoolClient &client = core->clients[pool->clientIndex];
    if (AtLimit(client))
        return 2;
    if (core->taskCount == core->taskCapacity && !GrowRing(core))
        return 0;
    core->tasks[core->taskTail] = {pool->clientIndex, function, argument};
    core->taskTail = NextSlot(core, core->taskTail);
    core->taskCount++;
    client.pendingCount++;
    HalvSignalConditional(core->workAvailable);
    return 1;
}

HALV_API int HalvWorkerPoolClearTasks(HalvWorkerPool *pool) noexcept {
    HalvWorkerPoolCore *core = pool->core;
    CoreLock hold(core);
    uint32_t read = core->taskHead, write = core->taskHead, kept = 0;
    for (uint32_t i = 0; i < core->taskCount; ++i) {
        if (core->tasks[read].clientIndex != pool->clientIndex) {
            core->tasks[write] = core->tasks[read];
            write = NextSlot(core, write);
            kept++;
        }
        read = NextSlot(core, read);
    }
    core->taskTail = write;
    core->taskCount = kept;
    core->clients[pool->clientIndex].pendingCount = 0;
    /* Producers blocked at this client's limit and waiters for its empty
     * queue must not sit until some other client's task is taken. */
    HalvBroadcastConditional(core->queueDrained);
    return 1;
}

HALV_API int HalvWorkerPoolWaitForEmpty(HalvWorkerPool *pool) noexcept {
    HalvWorkerPoolCore *core = pool->core;
    CoreLock hold(core);
    while (core->clients[pool->clientIndex].pendingCount != 0)
        HalvWaitConditional(core->queueDrained, core->mutex);
    return 1;
}

} // extern "C"
