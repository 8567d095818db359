/*
 * thread/clock.cpp - clocks, and the deadlines that every timed wait of the
 * thread layer is measured by.
 *
 * Intervals run on CLOCK_MONOTONIC, so a change of the wall clock neither
 * stretches nor cuts a time-out.
 */
#include <cerrno>

#include "thread/internal.h"

namespace {

constexpr uint64_t kNanosPerSecond = 1000000000u;

uint64_t MonotonicNanos() noexcept {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return (uint64_t)now.tv_sec * kNanosPerSecond + (uint64_t)now.tv_nsec;
}

} // namespace

namespace halv {

Deadline DeadlineAfter(uint32_t timeoutMs, clockid_t clock) noexcept {
    Deadline deadline = {timeoutMs == HALV_WAIT_FOREVER, timeoutMs == 0, {}};
    if (deadline.forever || deadline.immediate)
        return deadline;
    clock_gettime(clock, &deadline.at);
    deadline.at.tv_sec += timeoutMs / 1000;
    deadline.at.tv_nsec += (long)(timeoutMs % 1000) * 1000000L;
    if (deadline.at.tv_nsec >= (long)kNanosPerSecond) {
        deadline.at.tv_sec += 1;
        deadline.at.tv_nsec -= (long)kNanosPerSecond;
    }
    return deadline;
}

int WaitCondUntil(pthread_cond_t *cond, pthread_mutex_t *mutex, const Deadline &deadline) noexcept {
    if (deadline.immediate)
        return 2;
    if (deadline.forever) {
        pthread_cond_wait(cond, mutex);
        return 1;
    }
    return pthread_cond_timedwait(cond, mutex, &deadline.at) == ETIMEDOUT ? 2 : 1;
}

int InitMonotonicCond(pthread_cond_t *cond) noexcept {
    pthread_condattr_t attributes;
    if (pthread_condattr_init(&attributes) != 0)
        return 0;
    int ok = pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC) == 0 && pthread_cond_init(cond, &attributes) == 0;
    pthread_condattr_destroy(&attributes);
    return ok ? 1 : 0;
}

} // namespace halv

extern "C" {

HALV_API uint32_t HalvGetClockTick(void) noexcept { return (uint32_t)(MonotonicNanos() / 1000000u); }

HALV_API int HalvGetPerfFrequency(uint64_t *out) noexcept {
    if (out == nullptr)
        return 0;
    *out = kNanosPerSecond;
    return 1;
}

HALV_API int HalvGetPerfCounter(uint64_t *out) noexcept {
    if (out == nullptr)
        return 0;
    *out = MonotonicNanos();
    return 1;
}

} // extern "C"
