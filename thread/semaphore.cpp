/*
 * thread/semaphore.cpp - counting semaphores: a count under a mutex, and a
 * condition variable on the monotonic clock for the threads that wait for
 * it to become positive.  The count never passes HALV_SEMAPHORE_MAX.
 */
#include "thread/internal.h"

namespace {

int InitSemaphore(HalvWaitableCell *cell, intptr_t initialCount, intptr_t) noexcept {
    if (initialCount < 0 || initialCount > HALV_SEMAPHORE_MAX)
        return 0;
    HalvSemaphoreState &state = cell->semaphore;
    if (halv::InitMonotonicCond(&state.wake) != 1)
        return 0;
    pthread_mutex_init(&state.lock, nullptr);
    state.count = (uint32_t)initialCount;
    state.sleepers = 0;
    return 1;
}

int WaitSemaphore(HalvWaitableCell *cell, uint32_t timeoutMs) noexcept {
    HalvSemaphoreState &state = cell->semaphore;
    halv::Deadline deadline = halv::DeadlineAfter(timeoutMs, CLOCK_MONOTONIC);
    pthread_mutex_lock(&state.lock);
    /* A count that arrives together with the deadline is still taken. */
    bool expired = false;
    while (state.count == 0 && !expired) {
        ++state.sleepers;
        expired = halv::WaitCondUntil(&state.wake, &state.lock, deadline) == 2;
        --state.sleepers;
    }
    int result = 2;
    if (state.count > 0) {
        --state.count;
        result = 1;
    }
    pthread_mutex_unlock(&state.lock);
    return result;
}

int PostBy(HalvWaitableCell *cell, uint32_t n) noexcept {
    HalvSemaphoreState &state = cell->semaphore;
    pthread_mutex_lock(&state.lock);
    if (n > (uint32_t)HALV_SEMAPHORE_MAX - state.count) {
        pthread_mutex_unlock(&state.lock);
        return 0;
    }
    state.count += n;
    if (state.sleepers > 0) {
        if (n == 1)
            pthread_cond_signal(&state.wake);
        else
            pthread_cond_broadcast(&state.wake);
    }
    pthread_mutex_unlock(&state.lock);
    return 1;
}

int PostOne(HalvWaitableCell *cell) noexcept { return PostBy(cell, 1); }

int CloseSemaphore(HalvWaitableCell *cell) noexcept {
    HalvSemaphoreState &state = cell->semaphore;
    int closed = pthread_cond_destroy(&state.wake) == 0;
    closed &= pthread_mutex_destroy(&state.lock) == 0;
    return closed ? 1 : 0;
}

} // namespace

namespace halv {

constinit const CellOps kSemaphoreOps = {InitSemaphore, WaitSemaphore, PostOne, CloseSemaphore};

int PostSemaphoreBy(HalvWaitableCell *cell, uint32_t n) noexcept {
    if (cell == nullptr)
        return 1;
    return cell->kind == kCellSemaphore ? PostBy(cell, n) : 0;
}

} // namespace halv

extern "C" {

HALV_API int HalvInitSemaphore(HalvSemaphore *out, int32_t initialCount) noexcept {
    return halv::CreateCell(out, kCellSemaphore, initialCount, 0);
}

HALV_API int HalvTimedWaitSemaphore(HalvSemaphore semaphore, uint32_t timeoutMs) noexcept {
    return halv::WaitCell(semaphore, timeoutMs);
}

HALV_API int HalvPostSemaphore(HalvSemaphore semaphore) noexcept { return halv::PostSemaphoreBy(semaphore, 1); }

} // extern "C"
