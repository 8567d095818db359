/*
 * thread/section.cpp - critical sections: recursive locks of their own.
 *
 * One futex word in the classic three states (free, held, held with
 * waiters possibly asleep), an owner and a depth.  The owner is the
 * holder's thread pointer, which the CPU hands out without a call, so a
 * re-entry costs one compare and an uncontended entry one compare-and-swap:
 * the engine takes its hash locks on every keyed access, and a recursive
 * pthread mutex costs a call and a type dispatch more.  A thread is woken
 * only when a waiter may be asleep.
 *
 * While the process has a single thread, no other can hold or wait for the
 * word, and plain loads and stores take the place of the atomic
 * instructions, as the C library's own locks do.  A thread created while a
 * section is held finds it held; the holder's leave, then in a process of
 * several threads, wakes it as usual.
 *
 * The engine's hash locks and master lock are sections, and the engine runs
 * before its locks exist, so every operation on a null section does nothing
 * and succeeds.  Leaving a section the caller doesn't hold does nothing
 * either, as a recursive pthread mutex refuses it.
 */
#include <linux/futex.h>
#include <sys/single_threaded.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "thread/internal.h"

namespace {

/* Unique to the calling thread while it lives, and never 0. */
uintptr_t ThreadToken() noexcept {
#if defined(__has_builtin) && __has_builtin(__builtin_thread_pointer)
    return reinterpret_cast<uintptr_t>(__builtin_thread_pointer());
#else
    return static_cast<uintptr_t>(pthread_self());
#endif
}

void FutexWait(std::atomic<uint32_t> *word, uint32_t value) noexcept {
    syscall(SYS_futex, reinterpret_cast<uint32_t *>(word), FUTEX_WAIT_PRIVATE, value, nullptr, nullptr, 0);
}

void FutexWakeOne(std::atomic<uint32_t> *word) noexcept {
    syscall(SYS_futex, reinterpret_cast<uint32_t *>(word), FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
}

/* Taken when the word wasn't free: mark it waited for, sleep while it is
 * held, and take it marked, since others may still sleep on it. */
void EnterContended(HalvCriticalSectionRecord *section) noexcept {
    uint32_t seen = section->state.exchange(2, std::memory_order_acquire);
    while (seen != 0) {
        FutexWait(&section->state, 2);
        seen = section->state.exchange(2, std::memory_order_acquire);
    }
}

void Enter(HalvCriticalSectionRecord *section) noexcept {
    uintptr_t self = ThreadToken();
    if (section->owner.load(std::memory_order_relaxed) == self) {
        ++section->depth;
        return;
    }
    uint32_t expected = 0;
    if (__libc_single_threaded)
        section->state.store(1, std::memory_order_relaxed);
    else if (!section->state.compare_exchange_strong(expected, 1, std::memory_order_acquire,
                                                     std::memory_order_relaxed))
        EnterContended(section);
    section->owner.store(self, std::memory_order_relaxed);
    section->depth = 1;
}

void Leave(HalvCriticalSectionRecord *section) noexcept {
    if (section->owner.load(std::memory_order_relaxed) != ThreadToken())
        return;
    if (--section->depth != 0)
        return;
    section->owner.store(0, std::memory_order_relaxed);
    if (__libc_single_threaded)
        section->state.store(0, std::memory_order_relaxed);
    else if (section->state.exchange(0, std::memory_order_release) == 2)
        FutexWakeOne(&section->state);
}

} // namespace

namespace halv {

void InitSectionRecord(HalvCriticalSectionRecord *section) noexcept {
    section->state.store(0, std::memory_order_relaxed);
    section->owner.store(0, std::memory_order_relaxed);
    section->depth = 0;
}

void DestroySectionRecord(HalvCriticalSectionRecord *) noexcept {}

} // namespace halv

extern "C" {

HALV_API int HalvInitCriticalSection(HalvCriticalSection *out) noexcept {
    if (out == nullptr)
        return 0;
    auto *section = static_cast<HalvCriticalSectionRecord *>(halv_internal_malloc(sizeof(HalvCriticalSectionRecord)));
    if (section == nullptr)
        return 0;
    halv::InitSectionRecord(section);
    *out = section;
    return 1;
}

HALV_API int HalvFreeCriticalSection(HalvCriticalSection section) noexcept {
    if (section == nullptr)
        return 1;
    halv::DestroySectionRecord(section);
    halv_internal_free(section);
    return 1;
}

HALV_API int HalvEnterCriticalSection(HalvCriticalSection section) noexcept {
    if (section != nullptr)
        Enter(section);
    return 1;
}

HALV_API int HalvLeaveCriticalSection(HalvCriticalSection section) noexcept {
    if (section != nullptr)
        Leave(section);
    return 1;
}

} // extern "C"
