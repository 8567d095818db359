/*
 * thread/coro_fiber.h - a coroutine's fiber: a stack of its own below a
 * guard page, and the switch between it and the context that resumed it.
 *
 * The switch is the library's own (thread/coro_fiber.cpp): it saves what
 * the calling convention makes a callee keep (rbx, rbp, r12 to r15, the
 * MXCSR and the x87 control word) on the stack it leaves, keeps that
 * stack's pointer, and goes on where the other context left off, where it
 * returns 1.  Resume and yield end in the switch as a tail call, so that
 * each side goes on straight in the code that called them: no return runs
 * on the wrong stack, and the processor's return prediction stays right.
 *
 * Under AddressSanitizer and ThreadSanitizer each switch also tells the
 * sanitizer which stack runs next, and then work follows the switch.
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
#if HALV_CORO_ASAN || HALV_CORO_TSAN
#define HALV_CORO_SANITIZED 1
#endif

#if HALV_CORO_ASAN
#include <sanitizer/common_interface_defs.h>
#endif
#if HALV_CORO_TSAN
#include <sanitizer/tsan_interface.h>
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

extern "C" {
/* Saves the running context, stores its stack pointer in *save, and goes on
 * in the context saved at to.  Returns 1 when the saved context is resumed. */
__attribute__((visibility("hidden"))) int halv_coro_switch(void **save, void *to) noexcept;
/* Goes on in the context saved at to for good, after calling
 * halv_coro_release(coro) on that context's stack. */
[[noreturn]] __attribute__((visibility("hidden"))) void halv_coro_exit(void *to, HalvCoro *coro) noexcept;
/* Releases the fiber of a coroutine that has left it for good and sets
 * coro->fiber to null; runs on the resumer's stack. */
void halv_coro_release(HalvCoro *coro) noexcept;
/* Where a new fiber starts; never returns.  Defined in thread/coro.cpp. */
[[noreturn]] void halv_coro_main(HalvCoro *coro) noexcept;
}

namespace halv::coro {

/* Maps a stack for coro (0 bytes: 1 MiB; else whole pages, at least
 * 64 KiB) with a guard page below it, and prepares it so that the first
 * switch in starts halv_coro_main(coro).  Null when it can't be mapped. */
HalvCoroFiber *NewFiber(HalvCoro *coro, size_t stackSize) noexcept;

/* Unmaps the stack and frees the record.  The fiber must not be running. */
void DeleteFiber(HalvCoroFiber *fiber) noexcept;

/* Before a coroutine that has not finished is freed.  In builds with
 * AddressSanitizer a suspended coroutine is switched into once more, and
 * straight out again for good, so that the sanitizer can drop the frames it
 * keeps for it; otherwise nothing. */
void Abandon(HalvCoro *coro) noexcept;

/* On the coroutine's side, once its function has returned: to the
 * resumer, never to come back; the resumer releases the fiber. */
[[noreturn]] void SwitchOutForGood(HalvCoro *coro) noexcept;

inline const void *StackBottom(const HalvCoroFiber *fiber) noexcept { return fiber->mapping + fiber->guardSize; }
inline size_t StackSize(const HalvCoroFiber *fiber) noexcept { return fiber->mappingSize - fiber->guardSize; }

/* First thing a coroutine does on its stack, at its start and after every
 * yield: it learns the resumer's stack, which differs from resume to
 * resume. */
inline void Arrived([[maybe_unused]] HalvCoroFiber *fiber) noexcept {
#if HALV_CORO_ASAN
    __sanitizer_finish_switch_fiber(fiber->fakeStack, &fiber->resumerBottom, &fiber->resumerSize);
#endif
}

/* On the resumer's side: stores the resumer's context in coro->resumer and
 * runs the coroutine until it yields or ends.  1. */
inline int SwitchIn(HalvCoro *coro) noexcept {
    HalvCoroFiber *fiber = coro->fiber;
    fiber->running = 1;
#if !HALV_CORO_SANITIZED
    return halv_coro_switch(&coro->resumer, fiber->stackPointer);
#else
#if HALV_CORO_ASAN
    fiber->started = 1;
    __sanitizer_start_switch_fiber(&fiber->resumerFakeStack, StackBottom(fiber), StackSize(fiber));
#endif
#if HALV_CORO_TSAN
    fiber->tsanResumer = __tsan_get_current_fiber();
    __tsan_switch_to_fiber(fiber->tsanFiber, 0);
#endif
    halv_coro_switch(&coro->resumer, fiber->stackPointer);
#if HALV_CORO_ASAN
    /* After an end the release has told the sanitizer already. */
    if (coro->fiber != nullptr)
        __sanitizer_finish_switch_fiber(coro->fiber->resumerFakeStack, nullptr, nullptr);
#endif
    return 1;
#endif
}

/* On the coroutine's side: to the resumer, until the next SwitchIn.  1. */
inline int SwitchOut(HalvCoro *coro) noexcept {
    HalvCoroFiber *fiber = coro->fiber;
    fiber->running = 0;
#if !HALV_CORO_SANITIZED
    return halv_coro_switch(&fiber->stackPointer, coro->resumer);
#else
#if HALV_CORO_ASAN
    __sanitizer_start_switch_fiber(&fiber->fakeStack, fiber->resumerBottom, fiber->resumerSize);
#endif
#if HALV_CORO_TSAN
    __tsan_switch_to_fiber(fiber->tsanResumer, 0);
#endif
    halv_coro_switch(&fiber->stackPointer, coro->resumer);
    Arrived(fiber);
#if HALV_CORO_ASAN
    if (fiber->abandoned)
        SwitchOutForGood(coro);
#endif
    return 1;
#endif
}

} // namespace halv::coro

#endif
