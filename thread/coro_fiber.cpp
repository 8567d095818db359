/*
 * thread/coro_fiber.cpp - a coroutine's stack and the switch in and out of
 * it.
 *
 * The switch saves what the x86-64 calling convention makes the callee
 * keep (rbx, rbp, r12 to r15, the MXCSR and the x87 control word) on the
 * stack it leaves, stores that stack's pointer, and loads the same from the
 * stack it goes to.  Unlike swapcontext it makes no system call: the signal
 * mask is the thread's, whichever stack runs.
 *
 * A new stack holds one such saved frame whose return address is a start
 * stub, and whose r12 carries the coroutine to it; the stub calls
 * halv_coro_main, which never returns.  The frame pointer starts at 0 and
 * the stub marks the return address undefined, so backtraces end there.
 */
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>

#include "halv_core.h"
#include "thread/coro_fiber.h"

#if HALV_CORO_ASAN
#include <sanitizer/asan_interface.h>
#include <sanitizer/common_interface_defs.h>
#endif
#if HALV_CORO_TSAN
#include <sanitizer/tsan_interface.h>
#endif

/* Saves the running context, stores its stack pointer in *save, and goes
 * on in the context saved at to. */
extern "C" __attribute__((visibility("hidden"))) void halv_coro_switch(void **save, void *to) noexcept;
/* The start stub; only its address is used. */
extern "C" __attribute__((visibility("hidden"))) void halv_coro_start(void) noexcept;

asm(R"(
    .text
    .p2align 4
    .globl halv_coro_switch
    .hidden halv_coro_switch
    .type halv_coro_switch, @function
halv_coro_switch:
    pushq %rbp
    pushq %rbx
    pushq %r12
    pushq %r13
    pushq %r14
    pushq %r15
    subq $8, %rsp
    stmxcsr (%rsp)
    fnstcw 4(%rsp)
    movq %rsp, (%rdi)
    movq %rsi, %rsp
    ldmxcsr (%rsp)
    fldcw 4(%rsp)
    addq $8, %rsp
    popq %r15
    popq %r14
    popq %r13
    popq %r12
    popq %rbx
    popq %rbp
    ret
    .size halv_coro_switch, .-halv_coro_switch

    .p2align 4
    .globl halv_coro_start
    .hidden halv_coro_start
    .type halv_coro_start, @function
halv_coro_start:
    .cfi_startproc
    .cfi_undefined rip
    movq %r12, %rdi
    call halv_coro_main
    ud2
    .cfi_endproc
    .size halv_coro_start, .-halv_coro_start
)");

namespace {

constexpr size_t kDefaultStack = 1u << 20;
constexpr size_t kSmallestStack = 64u << 10;

/* The saved frame that halv_coro_switch pops, lowest address first. */
struct SavedFrame {
    uint32_t mxcsr;
    uint16_t x87Control;
    uint16_t unused;
    uintptr_t r15, r14, r13, r12, rbx, rbp;
    uintptr_t returnAddress;
};

size_t PageSize() noexcept {
    static const size_t page = (size_t)sysconf(_SC_PAGESIZE);
    return page;
}

/* The usable size for a request: 0 gives the default, anything else whole
 * pages and at least the smallest stack.  0 when rounding would overflow. */
size_t StackBytes(size_t requested, size_t page) noexcept {
    if (requested == 0)
        return kDefaultStack;
    if (requested > SIZE_MAX / 2)
        return 0;
    size_t rounded = (requested + page - 1) / page * page;
    return rounded < kSmallestStack ? kSmallestStack : rounded;
}

/* The first frame: returns into the start stub with the coroutine in r12,
 * under the creator's floating-point control words.  After the stub's
 * address is popped the stack pointer is 16-byte aligned, as a call wants
 * it; the two words above it stay 0 for unwinders. */
void *PrepareStack(char *top, HalvCoro *coro) noexcept {
    auto *frame = reinterpret_cast<SavedFrame *>(top - 2 * sizeof(uintptr_t) - sizeof(SavedFrame));
    *frame = {};
    asm volatile("stmxcsr %0" : "=m"(frame->mxcsr));
    asm volatile("fnstcw %0" : "=m"(frame->x87Control));
    frame->r12 = reinterpret_cast<uintptr_t>(coro);
    frame->returnAddress = reinterpret_cast<uintptr_t>(&halv_coro_start);
    return frame;
}

[[maybe_unused]] const void *StackBottom(const HalvCoroFiber *fiber) noexcept { return fiber->mapping + fiber->guardSize; }
[[maybe_unused]] size_t StackSize(const HalvCoroFiber *fiber) noexcept { return fiber->mappingSize - fiber->guardSize; }

} // namespace

namespace halv::coro {

HalvCoroFiber *NewFiber(HalvCoro *coro, size_t stackSize) noexcept {
    size_t page = PageSize();
    size_t usable = StackBytes(stackSize, page);
    if (usable == 0)
        return nullptr;
    auto *fiber = static_cast<HalvCoroFiber *>(halv_internal_calloc(1, sizeof(HalvCoroFiber)));
    if (fiber == nullptr)
        return nullptr;
    size_t total = usable + page;
    void *mapping = mmap(nullptr, total, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE | MAP_STACK,
                         -1, 0);
    if (mapping == MAP_FAILED) {
        halv_internal_free(fiber);
        return nullptr;
    }
    if (mprotect(mapping, page, PROT_NONE) != 0) {
        munmap(mapping, total);
        halv_internal_free(fiber);
        return nullptr;
    }
    fiber->mapping = static_cast<char *>(mapping);
    fiber->mappingSize = total;
    fiber->guardSize = page;
    fiber->stackPointer = PrepareStack(fiber->mapping + total, coro);
#if HALV_CORO_TSAN
    fiber->tsanFiber = __tsan_create_fiber(0);
#endif
    return fiber;
}

void DeleteFiber(HalvCoroFiber *fiber) noexcept {
#if HALV_CORO_TSAN
    __tsan_destroy_fiber(fiber->tsanFiber);
#endif
#if HALV_CORO_ASAN
    /* Frames abandoned on the stack leave their red zones poisoned; memory
     * mapped here later must not inherit them. */
    ASAN_UNPOISON_MEMORY_REGION(StackBottom(fiber), StackSize(fiber));
#endif
    munmap(fiber->mapping, fiber->mappingSize);
    halv_internal_free(fiber);
}

void SwitchIn(HalvCoro *coro) noexcept {
    HalvCoroFiber *fiber = coro->fiber;
    fiber->running = 1;
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
    __sanitizer_finish_switch_fiber(fiber->resumerFakeStack, nullptr, nullptr);
#endif
    fiber->running = 0;
}

void SwitchOut(HalvCoro *coro) noexcept {
    HalvCoroFiber *fiber = coro->fiber;
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
}

void SwitchOutForGood(HalvCoro *coro) noexcept {
    HalvCoroFiber *fiber = coro->fiber;
#if HALV_CORO_ASAN
    /* No save place: this stack's fake frames go now. */
    __sanitizer_start_switch_fiber(nullptr, fiber->resumerBottom, fiber->resumerSize);
#endif
#if HALV_CORO_TSAN
    __tsan_switch_to_fiber(fiber->tsanResumer, 0);
#endif
    halv_coro_switch(&fiber->stackPointer, coro->resumer);
    __builtin_unreachable();
}

void Abandon([[maybe_unused]] HalvCoro *coro) noexcept {
#if HALV_CORO_ASAN
    if (!coro->fiber->started)
        return;
    coro->fiber->abandoned = 1;
    SwitchIn(coro);
#endif
}

void Arrived([[maybe_unused]] HalvCoroFiber *fiber) noexcept {
#if HALV_CORO_ASAN
    /* Also learns the resumer's stack, which differs from resume to
     * resume. */
    __sanitizer_finish_switch_fiber(fiber->fakeStack, &fiber->resumerBottom, &fiber->resumerSize);
#endif
}

} // namespace halv::coro
