/*
 * thread/coro.cpp - coroutines: create, resume, yield, free.
 *
 * A coroutine runs only inside a resume, on its own stack, and comes back
 * to its resumer when it yields or its function returns.  The resumer's
 * context is stored at every resume, so successive resumes may come from
 * different threads, or from inside another coroutine, where they nest.
 * The stack of a finished coroutine is released on the resumer's side,
 * before the resume that saw it finish returns.
 */
#include "halv_core.h"
#include "thread/coro_fiber.h"

extern "C" {

void halv_coro_main(HalvCoro *coro) noexcept {
    halv::coro::Arrived(coro->fiber);
    coro->entry(coro, coro->userArgument);
    coro->finished = 1;
    halv::coro::SwitchOutForGood(coro);
}

HALV_API int HalvCoroCreate(HalvCoro **out, HalvCoroFn entry, void *userArgument, size_t stackSize) noexcept {
    if (out == nullptr)
        return 0;
    *out = nullptr;
    if (entry == nullptr)
        return 0;
    auto *coro = static_cast<HalvCoro *>(halv_internal_calloc(1, sizeof(HalvCoro)));
    if (coro == nullptr)
        return 0;
    coro->userArgument = userArgument;
    coro->entry = entry;
    coro->fiber = halv::coro::NewFiber(coro, stackSize);
    if (coro->fiber == nullptr) {
        halv_internal_free(coro);
        return 0;
    }
    *out = coro;
    return 1;
}

HALV_API int HalvCoroResume(HalvCoro *coro) noexcept {
    if (coro == nullptr || coro->finished || coro->fiber == nullptr || coro->fiber->running)
        return 0;
    /* A coroutine that ends has its fiber released on this side before
     * this returns (halv_coro_release). */
    return halv::coro::SwitchIn(coro);
}

HALV_API int HalvCoroYield(HalvCoro *coro) noexcept {
    if (coro == nullptr || coro->fiber == nullptr || !coro->fiber->running)
        return 0;
    return halv::coro::SwitchOut(coro);
}

HALV_API void HalvCoroFree(HalvCoro *coro) noexcept {
    if (coro == nullptr)
        return;
    if (coro->fiber != nullptr)
        halv::coro::Abandon(coro);
    if (coro->fiber != nullptr)
        halv::coro::DeleteFiber(coro->fiber);
    halv_internal_free(coro);
}

} // extern "C"
