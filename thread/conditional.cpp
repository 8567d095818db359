/*
 * thread/conditional.cpp - the conditional: a condition variable made of a
 * semaphore that waiters sleep on, an auto-reset event through which the
 * last waiter of a broadcast reports, and a small lock around the count of
 * waiters.
 *
 * A count of the semaphore can stay behind (a time-out that crosses a
 * signal), which gives the next waiter a spurious wake-up; callers test
 * their predicate in a loop.  A broadcast waits at most a second for its
 * waiters to get going, so a slow waiter never holds its caller longer.
 */
#include <atomic>

#include "thread/internal.h"

struct HalvConditionalRecord {
    /* Threads inside a wait: changed only under waitersLock, and read
     * without it where a snapshot is all that is needed. */
    std::atomic<uint32_t> waiters;
    std::atomic<int32_t> broadcastActive;
    HalvCriticalSectionRecord waitersLock;
    HalvWaitableCell *wakeSemaphore;
    HalvWaitableCell *waitersDone;
};

namespace {

constexpr uint32_t kBroadcastBoundMs = 1000;

/* Releases one object and then waits on another.  The pair needs no
 * atomicity here: a post of the semaphore that comes before the wait is
 * counted, not lost.  If the release fails, nothing is waited for. */
int SignalAndWait(HalvWaitableCell *toSignal, HalvWaitableCell *toWaitOn, uint32_t timeoutMs) noexcept {
    if (halv::SignalCell(toSignal) != 1)
        return 0;
    return halv::WaitCell(toWaitOn, timeoutMs);
}

/* The wait shared by both wait entries: 1 woken, 2 timed out, 0 failed.
 * The mutex is taken back whatever the wait's outcome. */
int WaitOn(HalvConditional conditional, HalvMutex mutex, uint32_t timeoutMs) noexcept {
    HalvCriticalSectionRecord *lock = &conditional->waitersLock;
    HalvEnterCriticalSection(lock);
    conditional->waiters.fetch_add(1, std::memory_order_relaxed);
    HalvLeaveCriticalSection(lock);

    int outcome = SignalAndWait(mutex, conditional->wakeSemaphore, timeoutMs);

    HalvEnterCriticalSection(lock);
    uint32_t left = conditional->waiters.fetch_sub(1, std::memory_order_relaxed) - 1;
    bool lastOfBroadcast = conditional->broadcastActive.load(std::memory_order_relaxed) != 0 && left == 0;
    HalvLeaveCriticalSection(lock);

    if (lastOfBroadcast)
        SignalAndWait(conditional->waitersDone, mutex, HALV_WAIT_FOREVER);
    else
        halv::WaitCell(mutex, HALV_WAIT_FOREVER);
    return outcome == 1 || outcome == 2 ? outcome : 0;
}

} // namespace

extern "C" {

HALV_API int HalvInitConditional(HalvConditional *out) noexcept {
    if (out == nullptr)
        return 0;
    auto *conditional = static_cast<HalvConditionalRecord *>(halv_internal_calloc(1, sizeof(HalvConditionalRecord)));
    if (conditional == nullptr)
        return 0;
    if (HalvInitSemaphore(&conditional->wakeSemaphore, 0) != 1) {
        halv_internal_free(conditional);
        return 0;
    }
    if (HalvInitEvent(&conditional->waitersDone, 0, 0) != 1) {
        HalvFreeSemaphore(conditional->wakeSemaphore);
        halv_internal_free(conditional);
        return 0;
    }
    halv::InitSectionRecord(&conditional->waitersLock);
    *out = conditional;
    return 1;
}

HALV_API int HalvFreeConditional(HalvConditional conditional) noexcept {
    if (conditional == nullptr)
        return 1;
    int closed = HalvFreeSemaphore(conditional->wakeSemaphore) == 1;
    closed &= HalvFreeEvent(conditional->waitersDone) == 1;
    halv::DestroySectionRecord(&conditional->waitersLock);
    halv_internal_free(conditional);
    return closed ? 1 : 0;
}

/* Whether the conditional has waiters is one word's snapshot, the same
 * with the lock as without it: a waiter counts itself before it releases
 * the mutex, so a signaller that holds the mutex sees it either way.  The
 * pool signals once per task, and the lock would double its cost. */
HALV_API int HalvSignalConditional(HalvConditional conditional) noexcept {
    if (conditional == nullptr)
        return 1;
    if (conditional->waiters.load(std::memory_order_acquire) > 0)
        halv::PostSemaphoreBy(conditional->wakeSemaphore, 1);
    return 1;
}

HALV_API int HalvBroadcastConditional(HalvConditional conditional) noexcept {
    if (conditional == nullptr || conditional->waiters.load(std::memory_order_acquire) == 0)
        return 1;
    HalvEnterCriticalSection(&conditional->waitersLock);
    uint32_t waiters = conditional->waiters.load(std::memory_order_relaxed);
    if (waiters == 0) {
        HalvLeaveCriticalSection(&conditional->waitersLock);
        return 1;
    }
    conditional->broadcastActive.store(1, std::memory_order_relaxed);
    halv::PostSemaphoreBy(conditional->wakeSemaphore, waiters);
    HalvLeaveCriticalSection(&conditional->waitersLock);

    /* The caller holds the waiters' mutex, so they get no further than
     * queueing for it; the last one sets the event on its way there. */
    int waited = halv::WaitCell(conditional->waitersDone, kBroadcastBoundMs);
    conditional->broadcastActive.store(0, std::memory_order_relaxed);
    if (waited == 2) {
        HalvError("HalvBroadcastConditional: timed out waiting for cv waiters to wake up.\n");
        return 0;
    }
    return 1;
}

HALV_API int HalvWaitConditional(HalvConditional conditional, HalvMutex mutex) noexcept {
    if (conditional != nullptr && mutex != nullptr)
        WaitOn(conditional, mutex, HALV_WAIT_FOREVER);
    return 1;
}

HALV_API int HalvTimedWaitConditional(HalvConditional conditional, HalvMutex mutex, uint32_t timeoutMs) noexcept {
    if (conditional == nullptr || mutex == nullptr)
        return 1;
    return WaitOn(conditional, mutex, timeoutMs);
}

} // extern "C"
