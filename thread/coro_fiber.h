/*
 * thread/coro_fiber.h - a coroutine's fiber: a stack of its own below a
 * guard page, and the switch between it and the context that resumed it.
 *
 * The switch is the library's own (thread/coro_fiber.cpp): it saves the
 * callee-saved registers and the floating-point control words on the
 * stack it leaves and keeps that stack's pointer.  Under AddressSanitizer
 * and ThreadSanitizer each switch also tells the sanitizer which stack runs
 * next.
 */
#ifndef HALV_THREAD_CORO_FIBER_H
#define HALV_THREAD_CORO_FIBER_H

#include <stddef.h>

#include "halv_thread.h"

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define HALV_CORO_ASAN 1
#endif
#if __has_feature(thread_sanitizer)
#define HALV_CORO_TSAN 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__)
#define HALV_CORO_ASAN 1
#endif
#if defined(__SANITIZE_THREAD__)
#define HALV_CORO_TSAN 1
#endif

struct HalvCoroFiber {
    void *stackPointer; /* the coroutine's saved context while it is not running */
    char *mapping;      /* the guard page, then the stack */
    size_t mappingSize;
    size_t guardSize;   /* one page */
    int running;        /* between a resume and the yield or end that answers it */
#if HALV_CORO_ASAN
    int started;            /* resumed at least once */
    int abandoned;          /* being freed while suspended */
    void *fakeStack;        /* the coroutine's, kept while it is suspended */
    void *resumerFakeStack; /* the resumer's, kept while the coroutine runs */
    const void *resumerBottom;
    size_t resumerSize;
#endif
#if HALV_CORO_TSAN
    void *tsanFiber;
    void *tsanResumer;
#endif
};

namespace halv::coro {

/* Maps a stack for coro (0 bytes: 1 MiB; else whole pages, at least
 * 64 KiB) with a guard page below it, and prepares it so that the first
 * switch in starts halv_coro_main(coro).  Null when it can't be mapped. */
HalvCoroFiber *NewFiber(HalvCoro *coro, size_t stackSize) noexcept;

/* Unmaps the stack and frees the record.  The fiber must not be running. */
void DeleteFiber(HalvCoroFiber *fiber) noexcept;

/* On the resumer's side: stores the resumer's context in coro->resumer and
 * runs the coroutine until it switches out again. */
void SwitchIn(HalvCoro *coro) noexcept;

/* On the coroutine's side: to the resumer, until the next SwitchIn. */
void SwitchOut(HalvCoro *coro) noexcept;

/* On the coroutine's side, once its function has returned: to the
 * resumer, never to come back. */
[[noreturn]] void SwitchOutForGood(HalvCoro *coro) noexcept;

/* Before a coroutine that has not finished is freed.  In builds with
 * AddressSanitizer a suspended coroutine is switched into once more, and
 * straight out again for good, so that the sanitizer can drop the frames it
 * keeps for it; otherwise nothing. */
void Abandon(HalvCoro *coro) noexcept;

/* First thing a coroutine does on its own stack. */
void Arrived(HalvCoroFiber *fiber) noexcept;

} // namespace halv::coro

/* Where a new fiber starts; never returns.  Defined in thread/coro.cpp. */
extern "C" [[noreturn]] void halv_coro_main(HalvCoro *coro) noexcept;

#endif
