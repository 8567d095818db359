/*
 * halv_thread.h - threads, lock objects, the conditional, clocks, worker pools, coroutines.
 *
 * Results: 1 success, 0 failure, 2 timed out or not available now.
 * Time-outs are milliseconds; HALV_WAIT_FOREVER waits without limit and 0
 * does not wait at all.
 *
 * Null handles: every operation on a handle (enter, leave, lock, unlock,
 * wait, signal, set, free) does nothing and returns 1 when the handle is
 * null, so code can run over a lock that has not been created yet.  Init
 * operations return 0 when their out pointer is null and write it only on
 * success.
 */
#ifndef HALV_THREAD_H
#define HALV_THREAD_H

#include "halv_base.h"

HALV_BEGIN_DECLS

#define HALV_WAIT_FOREVER 0xFFFFFFFFu
/* Largest count of a semaphore. */
#define HALV_SEMAPHORE_MAX 65535
/* Largest number of events one HalvWaitMultipleEvent call waits on. */
#define HALV_WAIT_MAX_EVENTS 64

/* A recursive lock within one process. */
typedef struct HalvCriticalSectionRecord *HalvCriticalSection;

/* Mutexes, semaphores and events share one cell type, and with it the free
 * entry and the lock/try-lock entries (which wait on any of them). */
typedef struct HalvWaitableCell *HalvMutex;
typedef struct HalvWaitableCell *HalvSemaphore;
typedef struct HalvWaitableCell *HalvEvent;

typedef struct HalvConditionalRecord *HalvConditional;
typedef struct HalvThreadRecord *HalvThread;

/* A thread function: takes the argument given to HalvCreateThread and
 * returns the thread's exit code. */
typedef uint32_t (*HalvThreadFn)(void *argument);

/* ------------------------------------------------------------------------
 * Critical sections
 * ------------------------------------------------------------------------ */

/* Creates an unowned recursive section in *out.  1; 0 if out is null or no
 * memory (out untouched). */
HALV_API int HalvInitCriticalSection(HalvCriticalSection *out) HALV_NOEXCEPT;
/* Deletes the section and frees it.  1. */
HALV_API int HalvFreeCriticalSection(HalvCriticalSection section) HALV_NOEXCEPT;
/* Blocks until the calling thread owns the section (again, if it already
 * does; it must then leave as often).  1. */
HALV_API int HalvEnterCriticalSection(HalvCriticalSection section) HALV_NOEXCEPT;
/* Gives up one level of ownership.  1. */
HALV_API int HalvLeaveCriticalSection(HalvCriticalSection section) HALV_NOEXCEPT;

/* ------------------------------------------------------------------------
 * Mutexes, semaphores and events
 * ------------------------------------------------------------------------ */

/* Creates an unowned recursive mutex.  1; 0 if out is null or it can't be
 * made. */
HALV_API int HalvInitMutex(HalvMutex *out) HALV_NOEXCEPT;
/* Waits without limit for the object: owns a mutex, takes one count of a
 * semaphore, is released by an event.  1 got it; 0 failure, also when the
 * previous owner of a mutex ended while holding it (the caller then owns
 * it all the same). */
HALV_API int HalvLockMutex(HalvMutex mutex) HALV_NOEXCEPT;
HALV_API int HalvWaitSemaphore(HalvSemaphore semaphore) HALV_NOEXCEPT;
/* As HalvLockMutex without blocking: 1 got it; 2 not available; 0 failure.
 * The owner of a mutex gets it again (it is recursive). */
HALV_API int HalvTryLockMutex(HalvMutex mutex) HALV_NOEXCEPT;
HALV_API int HalvTryWaitSemaphore(HalvSemaphore semaphore) HALV_NOEXCEPT;
/* Gives up one level of ownership.  1; 0 if the caller is not the owner or
 * the handle is not a mutex. */
HALV_API int HalvUnlockMutex(HalvMutex mutex) HALV_NOEXCEPT;
/* Close the object and free the cell (in every case).  1; 0 if the close
 * failed.  No thread may wait on the object. */
HALV_API int HalvFreeMutex(HalvMutex mutex) HALV_NOEXCEPT;
HALV_API int HalvFreeSemaphore(HalvSemaphore semaphore) HALV_NOEXCEPT;
HALV_API int HalvFreeEvent(HalvEvent event) HALV_NOEXCEPT;

/* Creates a semaphore holding initialCount (0 to HALV_SEMAPHORE_MAX).  1;
 * 0 if out is null or the count is out of range. */
HALV_API int HalvInitSemaphore(HalvSemaphore *out, int32_t initialCount) HALV_NOEXCEPT;
/* Takes one count, waiting at most timeoutMs.  1 got it; 2 timed out; 0
 * failure. */
HALV_API int HalvTimedWaitSemaphore(HalvSemaphore semaphore, uint32_t timeoutMs) HALV_NOEXCEPT;
/* Raises the count by one.  1; 0 at HALV_SEMAPHORE_MAX or if the handle is
 * not a semaphore. */
HALV_API int HalvPostSemaphore(HalvSemaphore semaphore) HALV_NOEXCEPT;

/* Creates an event.  A manual-reset event stays set until reset; with
 * manualReset 0 the event clears itself when it releases one waiter.  1; 0
 * if out is null. */
HALV_API int HalvInitEvent(HalvEvent *out, int manualReset, int initialState) HALV_NOEXCEPT;
/* Set, clear, or release the present waiters and leave clear (only one
 * waiter for an auto-reset event).  1; 0 if the handle is not an event. */
HALV_API int HalvSetEvent(HalvEvent event) HALV_NOEXCEPT;
HALV_API int HalvResetEvent(HalvEvent event) HALV_NOEXCEPT;
HALV_API int HalvPulseEvent(HalvEvent event) HALV_NOEXCEPT;
/* Waits at most timeoutMs for the event.  1 signalled; 2 timed out; 0
 * failure. */
HALV_API int HalvWaitSingleEvent(HalvEvent event, uint32_t timeoutMs) HALV_NOEXCEPT;
/* Stores 0 in *index (if index is given) and, with a null array, returns 1.
 * Otherwise waits at most timeoutMs for any of count events (the lowest
 * signalled index is stored) or, with waitAll, for all of them at once
 * (index 0).  1 signalled; 2 timed out; 0 failure: count 0 or above
 * HALV_WAIT_MAX_EVENTS, or an entry that is null or not an event. */
HALV_API int HalvWaitMultipleEvent(HalvEvent *events, uint32_t count, int waitAll, uint32_t timeoutMs,
                                   uint32_t *index) HALV_NOEXCEPT;

/* ------------------------------------------------------------------------
 * The conditional: a condition variable over a HalvMutex.  A wake-up may be
 * spurious; test the predicate in a loop.
 * ------------------------------------------------------------------------ */

/* 1; 0 if out is null or a part can't be made. */
HALV_API int HalvInitConditional(HalvConditional *out) HALV_NOEXCEPT;
/* Frees the conditional; 1 if its parts closed well, else 0.  No thread may
 * be waiting. */
HALV_API int HalvFreeConditional(HalvConditional conditional) HALV_NOEXCEPT;
/* Wakes one waiter, if there is one; a signal with no waiter is lost.  1. */
HALV_API int HalvSignalConditional(HalvConditional conditional) HALV_NOEXCEPT;
/* Wakes every waiter; the caller holds the waiters' mutex.  1; 0 (with a
 * message) if the waiters did not all wake within 1000 ms. */
HALV_API int HalvBroadcastConditional(HalvConditional conditional) HALV_NOEXCEPT;
/* Releases the held mutex, waits for a wake-up, takes the mutex back.  1. */
HALV_API int HalvWaitConditional(HalvConditional conditional, HalvMutex mutex) HALV_NOEXCEPT;
/* As HalvWaitConditional for at most timeoutMs; the mutex is held again on
 * return in every case.  1 woken; 2 timed out; 0 wait failed. */
HALV_API int HalvTimedWaitConditional(HalvConditional conditional, HalvMutex mutex,
                                      uint32_t timeoutMs) HALV_NOEXCEPT;

/* ------------------------------------------------------------------------
 * Thread-local storage
 * ------------------------------------------------------------------------ */

/* 1; 0 if key is null or no key is free. */
HALV_API int HalvTLSAlloc(uint32_t *key) HALV_NOEXCEPT;
/* 1 or 0. */
HALV_API int HalvTLSFree(uint32_t key) HALV_NOEXCEPT;
/* Sets the calling thread's value.  1 or 0. */
HALV_API int HalvTLSSetValue(uint32_t key, void *value) HALV_NOEXCEPT;
/* The calling thread's value; null if it has set none. */
HALV_API void *HalvTLSGetValue(uint32_t key) HALV_NOEXCEPT;

/* ------------------------------------------------------------------------
 * Threads
 * ------------------------------------------------------------------------ */

/* Starts fn(argument) on a new thread with the default stack.  1, the thread
 * running; 0 if it could not be started (or fn is null).  A null out starts
 * the thread detached: it can't be joined. */
HALV_API int HalvCreateThread(HalvThread *out, HalvThreadFn fn, void *argument) HALV_NOEXCEPT;
/* Ends the calling thread with exitCode, as if its thread function had
 * returned it.  The stack is not unwound: destructors of the frames between
 * the thread function and this call do not run. */
#if defined(__GNUC__)
__attribute__((noreturn))
#endif
HALV_API void HalvExitThread(uint32_t exitCode) HALV_NOEXCEPT;
/* Waits without limit for the thread's end, stores its exit code and
 * releases the handle.  1.  0 if thread or exitCode is null, or the thread
 * can't be joined (not from HalvCreateThread, or a thread joining itself);
 * the handle then stays open. */
HALV_API int HalvJoinThread(HalvThread thread, uint32_t *exitCode) HALV_NOEXCEPT;
/* The calling thread's identifier, unique among live threads. */
HALV_API uint32_t HalvGetCurrentThreadId(void) HALV_NOEXCEPT;
/* A handle standing for the calling thread, good only inside it; it is not
 * joinable and not comparable with handles from HalvCreateThread. */
HALV_API HalvThread HalvGetCurrentThread(void) HALV_NOEXCEPT;

/* ------------------------------------------------------------------------
 * Clocks
 * ------------------------------------------------------------------------ */

/* A wrapping millisecond counter; only differences have a meaning. */
HALV_API uint32_t HalvGetClockTick(void) HALV_NOEXCEPT;
/* Store the counts per second of the performance counter, and its value.
 * 1; 0 if out is null. */
HALV_API int HalvGetPerfFrequency(uint64_t *out) HALV_NOEXCEPT;
HALV_API int HalvGetPerfCounter(uint64_t *out) HALV_NOEXCEPT;

HALV_END_DECLS

#endif /* HALV_THREAD_H */
