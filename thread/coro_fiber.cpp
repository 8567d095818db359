/*
 * thread/coro_fiber.cpp - a coroutine's stack, and the switch in and out of
 * it.
 *
 * A saved context is a frame on the stack it belongs to: the control words,
 * r12 to r15, rbx, rbp, and above them the return address that the call of
 * the switch pushed.  The switch builds that frame, stores the stack
 * pointer, loads the other one, takes the frame down and jumps to its
 * return address with 1 in eax.  It makes no system call (swapcontext
 * changes the signal mask at each switch): the signal mask is the thread's,
 * whichever stack runs.
 *
 * A new stack holds one such frame whose return address is a start stub,
 * with the coroutine in r12; the stub calls halv_coro_main, which never
 * returns.  The frame pointer starts at 0 and the stub marks the return
 * address undefined, so backtraces end there.
 */
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>

#include "halv_core.h"
#include "thread/coro_fiber.h"

#if HALV_CORO_ASAN
#include <sanitizer/asan_interface.h>
#endif

/* The start stub; only its address is used. */
extern "C" __attribute__((visibility("hidden"))) void halv_coro_start(void) noexcept;

asm(R"(
    .text
    .p2align 4
    .globl halv_coro_switch
    .hidden halv_coro_switch
    .type halv_coro_switch, @function
halv_coro_switch:
    leaq -0x38(%rsp), %rsp
    stmxcsr (%rsp)
    fnstcw 4(%rsp)
    movq %r12, 0x08(%rsp)
    movq %r13, 0x10(%rsp)
    movq %r14, 0x18(%rsp)
    movq %r15, 0x20(%rsp)
    movq %rbx, 0x28(%rsp)
    movq %rbp, 0x30(%rsp)
    movq %rsp, (%rdi)
    movq %rsi, %rsp
.Lhalv_coro_restore:
    movq 0x38(%rsp), %r8
    ldmxcsr (%rsp)
    fldcw 4(%rsp)
    movq 0x08(%rsp), %r12
    movq 0x10(%rsp), %r13
    movq 0x18(%rsp), %r14
    movq 0x20(%rsp), %r15
    movq 0x28(%rsp), %rbx
    movq 0x30(%rsp), %rbp
    leaq 0x40(%rsp), %rsp
    movl $1, %eax
    jmp *%r8
    .size halv_coro_switch, .-halv_coro_switch

    .p2align 4
    .globl halv_coro_exit
    .hidden halv_coro_exit
    .type halv_coro_exit, @function
halv_coro_exit:
    movq %rdi, %rsp
    movq %rsi, %rdi
    call halv_coro_release
    jmp .Lhalv_coro_restore
    .size halv_coro_exit, .-halv_coro_exit

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

/* A saved context, lowest address first.  A saved stack pointer is 16-byte
 * aligned: the switch was called with the stack at 8 past that, and takes
 * 0x38 bytes; so a call made right on it is aligned as the ABI wants. */
struct SavedFrame {
    uint32_t mxcsr;
    uint16_t x87Control;
    uint16_t unused;
    uintptr_t r12, r13, r14, r15, rbx, rbp;
    uintptr_t returnAddress;
};
static_assert(sizeof(SavedFrame) == 0x40);

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
 * under the creator's floating-point control words.  The stub starts with
 * the stack 16-byte aligned, as a call wants it; the two words above stay 0
 * for unwinders. */
void *PrepareStack(char *top, HalvCoro *coro) noexcept {
    auto *frame = reinterpret_cast<SavedFrame *>(top - 2 * sizeof(uintptr_t) - sizeof(SavedFrame));
    *frame = {};
    asm volatile("stmxcsr %0" : "=m"(frame->mxcsr));
    asm volatile("fnstcw %0" : "=m"(frame->x87Control));
    frame->r12 = reinterpret_cast<uintptr_t>(coro);
    frame->returnAddress = reinterpret_cast<uintptr_t>(&halv_coro_start);
    return frame;
}

} // namespace

extern "C" void halv_coro_release(HalvCoro *coro) noexcept {
#if HALV_CORO_ASAN
    __sanitizer_finish_switch_fiber(coro->fiber->resumerFakeStack, nullptr, nullptr);
#endif
    halv::coro::DeleteFiber(coro->fiber);
    coro->fiber = nullptr;
}

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

void SwitchOutForGood(HalvCoro *coro) noexcept {
    [[maybe_unused]] HalvCoroFiber *fiber = coro->fiber;
    fiber->running = 0;
#if HALV_CORO_ASAN
    /* No save place: this stack's fake frames go now. */
    __sanitizer_start_switch_fiber(nullptr, fiber->resumerBottom, fiber->resumerSize);
#endif
#if HALV_CORO_TSAN
    __tsan_switch_to_fiber(fiber->tsanResumer, 0);
#endif
    halv_coro_exit(coro->resumer, coro);
}

void Abandon([[maybe_unused]] HalvCoro *coro) noexcept {
#if HALV_CORO_ASAN
    if (!coro->fiber->started)
        return;
    coro->fiber->abandoned = 1;
    SwitchIn(coro);
#endif
}

} // namespace halv::coro
