/*
 * thread/thread.cpp - threads.
 *
 * Every thread of HalvCreateThread starts in a trampoline that calls the
 * thread function and hands its result to pthread as the exit value.
 * HalvExitThread jumps back into that trampoline rather than unwinding: an
 * unwind (pthread_exit) would abort as soon as it met a noexcept frame, and
 * the library's own code is noexcept throughout.  So, like a thread that
 * ends itself on other systems, it skips the destructors of the frames in
 * between.
 */
#include <setjmp.h>
#include <unistd.h>

#include "thread/internal.h"

struct HalvThreadRecord {
    pthread_t thread;
    uint32_t exitCode;
    int joinable; /* 0 for the pseudo handle of HalvGetCurrentThread */
    HalvThreadFn fn;
    void *argument;
};

namespace {

/* Where HalvExitThread lands in a thread of HalvCreateThread; null in other
 * threads. */
thread_local jmp_buf *exitPoint;
thread_local uint32_t exitCodeInFlight;
thread_local HalvThreadRecord currentThread;

/* Takes fn and argument out of the record first: a detached thread owns the
 * record and frees it at once. */
void *Trampoline(void *raw) noexcept {
    auto *record = static_cast<HalvThreadRecord *>(raw);
    HalvThreadFn fn = record->fn;
    void *argument = record->argument;
    if (!record->joinable)
        halv_internal_free(record);

    jmp_buf landing;
    if (setjmp(landing) != 0) {
        exitPoint = nullptr;
        return (void *)(uintptr_t)exitCodeInFlight;
    }
    exitPoint = &landing;
    uint32_t code = fn(argument);
    exitPoint = nullptr;
    return (void *)(uintptr_t)code;
}

/* A thread that did not come from HalvCreateThread ends through pthread_exit.
 * It is called through a pointer typed nothrow, so that the frame of
 * HalvExitThread holds no handler that would stop the unwind. */
using ExitFn = void (*)(void *) noexcept;

[[noreturn]] void ExitForeignThread(uint32_t exitCode) noexcept {
    auto exit = reinterpret_cast<ExitFn>(&pthread_exit);
    exit((void *)(uintptr_t)exitCode);
    __builtin_unreachable();
}

} // namespace

namespace halv {

bool IsCallingThread(HalvThread thread) noexcept {
    return thread != nullptr && thread->joinable && pthread_equal(thread->thread, pthread_self());
}

void ReleaseCallingThread(HalvThread thread) noexcept {
    pthread_detach(pthread_self());
    halv_internal_free(thread);
}

} // namespace halv

extern "C" {

HALV_API int HalvCreateThread(HalvThread *out, HalvThreadFn fn, void *argument) noexcept {
    if (fn == nullptr)
        return 0;
    auto *record = static_cast<HalvThreadRecord *>(halv_internal_calloc(1, sizeof(HalvThreadRecord)));
    if (record == nullptr)
        return 0;
    record->joinable = out != nullptr;
    record->fn = fn;
    record->argument = argument;

    pthread_attr_t attributes;
    if (pthread_attr_init(&attributes) != 0) {
        halv_internal_free(record);
        return 0;
    }
    pthread_attr_setdetachstate(&attributes, record->joinable ? PTHREAD_CREATE_JOINABLE : PTHREAD_CREATE_DETACHED);
    /* A detached thread may free the record before pthread_create returns,
     * so its id goes to a local. */
    pthread_t started;
    bool joinable = record->joinable;
    int failed = pthread_create(&started, &attributes, Trampoline, record);
    pthread_attr_destroy(&attributes);
    if (failed != 0) {
        halv_internal_free(record);
        return 0;
    }
    if (joinable) {
        record->thread = started;
        *out = record;
    }
    return 1;
}

HALV_API void HalvExitThread(uint32_t exitCode) noexcept {
    if (exitPoint != nullptr) {
        exitCodeInFlight = exitCode;
        longjmp(*exitPoint, 1);
    }
    ExitForeignThread(exitCode);
}

HALV_API int HalvJoinThread(HalvThread thread, uint32_t *exitCode) noexcept {
    if (thread == nullptr || exitCode == nullptr || !thread->joinable)
        return 0;
    void *result = nullptr;
    if (pthread_join(thread->thread, &result) != 0)
        return 0;
    thread->exitCode = (uint32_t)(uintptr_t)result;
    *exitCode = thread->exitCode;
    halv_internal_free(thread);
    return 1;
}

HALV_API uint32_t HalvGetCurrentThreadId(void) noexcept { return (uint32_t)gettid(); }

HALV_API HalvThread HalvGetCurrentThread(void) noexcept {
    currentThread.thread = pthread_self();
    currentThread.joinable = 0;
    return &currentThread;
}

} // extern "C"
