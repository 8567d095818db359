/*
 * thread/mutex.cpp - mutexes: recursive and robust pthread mutexes in a
 * waitable cell.
 *
 * Robustness stands in for abandonment: when the owner ends while holding
 * the mutex, the next locker is told so (result 0) but owns the mutex, which
 * is made consistent again at once.
 */
#include <cerrno>

#include "thread/internal.h"

namespace {

int InitMutex(HalvWaitableCell *cell, intptr_t, intptr_t) noexcept {
    pthread_mutexattr_t attributes;
    if (pthread_mutexattr_init(&attributes) != 0)
        return 0;
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutexattr_setrobust(&attributes, PTHREAD_MUTEX_ROBUST);
    int made = pthread_mutex_init(&cell->mutex, &attributes) == 0;
    pthread_mutexattr_destroy(&attributes);
    return made ? 1 : 0;
}

int AcquireMutex(pthread_mutex_t *mutex, uint32_t timeoutMs) noexcept {
    if (timeoutMs == HALV_WAIT_FOREVER)
        return pthread_mutex_lock(mutex);
    if (timeoutMs == 0)
        return pthread_mutex_trylock(mutex);
    /* pthread_mutex_timedlock measures the wall clock. */
    halv::Deadline deadline = halv::DeadlineAfter(timeoutMs, CLOCK_REALTIME);
    return pthread_mutex_timedlock(mutex, &deadline.at);
}

int WaitMutex(HalvWaitableCell *cell, uint32_t timeoutMs) noexcept {
    switch (AcquireMutex(&cell->mutex, timeoutMs)) {
    case 0:
        return 1;
    case EBUSY:
    case ETIMEDOUT:
        return 2;
    case EOWNERDEAD:
        pthread_mutex_consistent(&cell->mutex);
        return 0;
    default:
        return 0;
    }
}

int ReleaseMutex(HalvWaitableCell *cell) noexcept { return pthread_mutex_unlock(&cell->mutex) == 0 ? 1 : 0; }

int CloseMutex(HalvWaitableCell *cell) noexcept { return pthread_mutex_destroy(&cell->mutex) == 0 ? 1 : 0; }

} // namespace

namespace halv {
constinit const CellOps kMutexOps = {InitMutex, WaitMutex, ReleaseMutex, CloseMutex};
} // namespace halv

extern "C" {

HALV_API int HalvInitMutex(HalvMutex *out) noexcept { return halv::CreateCell(out, kCellMutex, 0, 0); }

HALV_API int HalvUnlockMutex(HalvMutex mutex) noexcept {
    if (mutex == nullptr)
        return 1;
    return mutex->kind == kCellMutex ? ReleaseMutex(mutex) : 0;
}

} // extern "C"
