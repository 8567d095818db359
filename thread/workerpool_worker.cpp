/*
 * thread/workerpool_worker.cpp - the worker: takes the oldest task of its
 * core and runs it with no lock held, sleeps while the ring is empty, and
 * retires when it has idled a whole age period while the core has more
 * workers than it wants.
 *
 * The core's lastRetireTick is reset by every retirement, so a surplus
 * drains one worker per age period, each of which has itself sat idle for
 * that long.
 */
#include "thread/internal.h"
#include "thread/workerpool.h"

namespace {

/* Under the mutex, after a wait of the worker timed out.  A core that is
 * being destroyed keeps its table as it is: its destroyer joins the workers
 * on it. */
bool ShouldRetire(const HalvWorkerPoolCore *core) noexcept {
    if (core->shutdown || core->ageMs == HALV_WAIT_FOREVER || core->threadCount <= core->threadTarget)
        return false;
    /* An interval by difference: the tick wraps. */
    return HalvGetClockTick() - core->lastRetireTick >= core->ageMs;
}

/* Under the mutex: takes the calling worker off the table, the last entry
 * moving into its place.  Its handle, or null when it is not on the table. */
HalvThread LeaveTable(HalvWorkerPoolCore *core) noexcept {
    for (uint32_t i = 0; i < core->threadCount; ++i) {
        HalvThread worker = core->threads[i];
        if (!halv::IsCallingThread(worker))
            continue;
        core->threads[i] = core->threads[core->threadCount - 1];
        core->threads[core->threadCount - 1] = nullptr;
        core->threadCount--;
        core->lastRetireTick = HalvGetClockTick();
        return worker;
    }
    return nullptr;
}

/* Waits with the mutex held until there is a task or the core shuts down.
 * False when the worker has retired: it is off the table and has given the
 * mutex up. */
bool AwaitTask(HalvWorkerPoolCore *core) noexcept {
    while (core->taskCount == 0 && !core->shutdown) {
        int waited = HalvTimedWaitConditional(core->workAvailable, core->mutex, core->ageMs);
        if (waited != 2 || !ShouldRetire(core))
            continue;
        if (HalvThread self = LeaveTable(core)) {
            HalvUnlockMutex(core->mutex);
            halv::ReleaseCallingThread(self);
            return false;
        }
    }
    return true;
}

} // namespace

namespace halv::pool {

uint32_t WorkerMain(void *raw) noexcept {
    auto *core = static_cast<HalvWorkerPoolCore *>(raw);
    for (;;) {
        HalvLockMutex(core->mutex);
        if (!AwaitTask(core))
            return 0;
        /* Shutdown is tested before the ring: tasks still queued then are
         * dropped uncalled. */
        if (core->shutdown) {
            HalvUnlockMutex(core->mutex);
            return 0;
        }
        HalvWorkerPoolTask task = core->tasks[core->taskHead];
        HalvWorkerPoolClient &client = core->clients[task.clientIndex];
        void *clientData = client.clientData;
        if (++core->taskHead == core->taskCapacity)
            core->taskHead = 0;
        core->taskCount--;
        client.pendingCount--;
        HalvBroadcastConditional(core->queueDrained);
        HalvUnlockMutex(core->mutex);
        task.function(task.argument, clientData);
    }
}

} // namespace halv::pool
