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

#define HALV_WAIT_FOREVER 0xFFFFFFFFu /* a time-out that waits without limit */
#define HALV_SEMAPHORE_MAX 65535       /* the largest count of a semaphore */
#define HALV_WAIT_MAX_EVENTS 64        /* the most events one HalvWaitMultipleEvent call waits on */

/* A critical section: a recursive lock within one process, in a heap
 * record that HalvInitCriticalSection makes and HalvFreeCriticalSection
 * frees. */
typedef struct HalvCriticalSectionRecord *HalvCriticalSection;

/* A mutex: recursive, in a waitable cell shared with semaphores and events,
 * made by HalvInitMutex and freed by HalvFreeMutex. */
typedef struct HalvWaitableCell *HalvMutex;

/* A counting semaphore, in a waitable cell, made by HalvInitSemaphore and
 * freed by HalvFreeSemaphore. */
typedef struct HalvWaitableCell *HalvSemaphore;

/* An event, in a waitable cell, made by HalvInitEvent and freed by
 * HalvFreeEvent. */
typedef struct HalvWaitableCell *HalvEvent;

/* A condition variable over a HalvMutex, made by HalvInitConditional and
 * freed by HalvFreeConditional. */
typedef struct HalvConditionalRecord *HalvConditional;

/* A thread, from HalvCreateThread (released by HalvJoinThread) or
 * HalvGetCurrentThread. */
typedef struct HalvThreadRecord *HalvThread;

/* A thread function: takes the argument given to HalvCreateThread and
 * returns the thread's exit code. */
typedef uint32_t (*HalvThreadFn)(void *argument);

/* ------------------------------------------------------------------------
 * Critical sections
 * ------------------------------------------------------------------------ */

/* Creates an unowned recursive section in *out, which the caller frees with
 * HalvFreeCriticalSection.  1; 0 if out is null or no memory (out
 * untouched). */
HALV_API int HalvInitCriticalSection(HalvCriticalSection *out) HALV_NOEXCEPT;

/* Deletes the section and frees its record; no thread may hold or wait for
 * it.  1, also for null. */
HALV_API int HalvFreeCriticalSection(HalvCriticalSection section) HALV_NOEXCEPT;

/* Blocks until the calling thread owns the section (again, if it already
 * does; it must then leave as often).  1, also for null, which does
 * nothing. */
HALV_API int HalvEnterCriticalSection(HalvCriticalSection section) HALV_NOEXCEPT;

/* Gives up one level of the calling thread's ownership.  1, also for null,
 * which does nothing. */
HALV_API int HalvLeaveCriticalSection(HalvCriticalSection section) HALV_NOEXCEPT;

/* ------------------------------------------------------------------------
 * Mutexes, semaphores and events
 *
 * The three share one cell type, and with it the free entry and the
 * lock/try-lock entries, which wait on a cell of any kind.
 * ------------------------------------------------------------------------ */

/* Creates an unowned recursive mutex in *out, which the caller frees with
 * HalvFreeMutex.  1; 0 if out is null or it can't be made (out
 * untouched). */
HALV_API int HalvInitMutex(HalvMutex *out) HALV_NOEXCEPT;

/* Waits without limit until the calling thread owns mutex (again, if it
 * already does: it unlocks as often).  1 got it; 0 failure, also when the
 * previous owner ended while holding it: the caller then owns it all the
 * same.  1 for null, which does nothing.  On a semaphore or an event it
 * waits as HalvWaitSemaphore or HalvWaitSingleEvent do. */
HALV_API int HalvLockMutex(HalvMutex mutex) HALV_NOEXCEPT;

/* Waits without limit until it can take one count of semaphore.  1 got it;
 * 1 for null, which does nothing.  The same entry as HalvLockMutex. */
HALV_API int HalvWaitSemaphore(HalvSemaphore semaphore) HALV_NOEXCEPT;

/* HalvLockMutex without blocking: 1 got it (the owner gets it again: the
 * mutex is recursive); 2 another thread holds it; 0 failure.  1 for null,
 * which does nothing. */
HALV_API int HalvTryLockMutex(HalvMutex mutex) HALV_NOEXCEPT;

/* Takes one count of semaphore if it has one, without blocking: 1 got it;
 * 2 the count is 0.  1 for null, which does nothing.  The same entry as
 * HalvTryLockMutex. */
HALV_API int HalvTryWaitSemaphore(HalvSemaphore semaphore) HALV_NOEXCEPT;

/* Gives up one level of the calling thread's ownership.  1, also for null;
 * 0 if the caller is not the owner or the handle is not a mutex. */
HALV_API int HalvUnlockMutex(HalvMutex mutex) HALV_NOEXCEPT;

/* Closes the mutex and frees its cell, in every case; no thread may hold or
 * wait for it.  1, also for null; 0 if the close failed.  The same entry
 * as HalvFreeSemaphore and HalvFreeEvent. */
HALV_API int HalvFreeMutex(HalvMutex mutex) HALV_NOEXCEPT;

/* Closes the semaphore and frees its cell, in every case; no thread may
 * wait on it.  1, also for null; 0 if the close failed. */
HALV_API int HalvFreeSemaphore(HalvSemaphore semaphore) HALV_NOEXCEPT;

/* Closes the event and frees its cell, in every case; no thread may wait on
 * it.  1, also for null; 0 if the close failed. */
HALV_API int HalvFreeEvent(HalvEvent event) HALV_NOEXCEPT;

/* Creates a semaphore holding initialCount (0 to HALV_SEMAPHORE_MAX) in
 * *out, which the caller frees with HalvFreeSemaphore.  1; 0 if out is
 * null, the count is out of range, or it can't be made (out untouched). */
HALV_API int HalvInitSemaphore(HalvSemaphore *out, int32_t initialCount) HALV_NOEXCEPT;

/* Takes one count, waiting at most timeoutMs milliseconds for one
 * (HALV_WAIT_FOREVER: without limit; 0: not at all).  1 got it (also when
 * the count arrives with the deadline); 2 timed out.  1 for null, which
 * does nothing. */
HALV_API int HalvTimedWaitSemaphore(HalvSemaphore semaphore, uint32_t timeoutMs) HALV_NOEXCEPT;

/* Raises the count by one, waking a waiter.  1, also for null; 0 when the
 * count is at HALV_SEMAPHORE_MAX or the handle is not a semaphore. */
HALV_API int HalvPostSemaphore(HalvSemaphore semaphore) HALV_NOEXCEPT;

/* Creates an event in *out, set when initialState is non-zero, which the
 * caller frees with HalvFreeEvent.  A manual-reset event (manualReset
 * non-zero) stays set until it is reset; with manualReset 0 the event
 * clears itself when it releases one waiter.  1; 0 if out is null or it
 * can't be made (out untouched). */
HALV_API int HalvInitEvent(HalvEvent *out, int manualReset, int initialState) HALV_NOEXCEPT;

/* Sets the event, releasing its waiters (only one for an auto-reset event,
 * which then clears itself).  1, also for null; 0 if the handle is not an
 * event. */
HALV_API int HalvSetEvent(HalvEvent event) HALV_NOEXCEPT;

/* Clears the event.  1, also for null; 0 if the handle is not an event. */
HALV_API int HalvResetEvent(HalvEvent event) HALV_NOEXCEPT;

/* Releases the threads waiting on the event now (only one of them for an
 * auto-reset event) and leaves it clear.  1, also for null; 0 if the handle
 * is not an event. */
HALV_API int HalvPulseEvent(HalvEvent event) HALV_NOEXCEPT;

/* Waits at most timeoutMs milliseconds (HALV_WAIT_FOREVER: without limit)
 * for the event to be set; an auto-reset event is cleared by the wait that
 * it releases.  1 signalled (also when it is set with the deadline); 2
 * timed out; 0 failure.  1 for null, which does nothing. */
HALV_API int HalvWaitSingleEvent(HalvEvent event, uint32_t timeoutMs) HALV_NOEXCEPT;

/* Stores 0 in *index (index may be null) and, with a null array, returns 1
 * at once.  Otherwise waits at most timeoutMs milliseconds for any of the
 * count events (the lowest signalled index is stored) or, with waitAll, for
 * all of them at once (index 0); auto-reset events are cleared by the wait
 * they release.  1 signalled; 2 timed out; 0 failure: count 0 or above
 * HALV_WAIT_MAX_EVENTS, or an entry that is null or not an event. */
HALV_API int HalvWaitMultipleEvent(HalvEvent *events, uint32_t count, int waitAll, uint32_t timeoutMs,
                                   uint32_t *index) HALV_NOEXCEPT;

/* ------------------------------------------------------------------------
 * The conditional
 *
 * A condition variable over a HalvMutex, built on a semaphore, an event and
 * a lock.  A wake-up may be spurious, as a count may stay behind after a
 * time-out or a signal that crosses a wait: test the predicate in a loop.
 * ------------------------------------------------------------------------ */

/* Creates a conditional in *out, which the caller frees with
 * HalvFreeConditional.  1; 0 if out is null, no memory or a part can't be
 * made (out untouched). */
HALV_API int HalvInitConditional(HalvConditional *out) HALV_NOEXCEPT;

/* Closes the conditional's parts and frees it, in every case; no thread may
 * be waiting.  1 if its parts closed well, also for null; else 0. */
HALV_API int HalvFreeConditional(HalvConditional conditional) HALV_NOEXCEPT;

/* Wakes one waiter, if there is one; a signal with no waiter is lost, and a
 * later wait blocks.  1, also for null. */
HALV_API int HalvSignalConditional(HalvConditional conditional) HALV_NOEXCEPT;

/* Wakes every waiter.  The caller holds the waiters' mutex, so that one
 * broadcast at a time is in progress; the call waits until the last waiter
 * is woken, 1000 ms at most.  1, also with no waiter or for null; 0 after
 * the 1000 ms, with the message "HalvBroadcastConditional: timed out
 * waiting for cv waiters to wake up.\n" through HalvError (the late waiters
 * still wake, and the conditional stays usable). */
HALV_API int HalvBroadcastConditional(HalvConditional conditional) HALV_NOEXCEPT;

/* Releases mutex, which the caller holds, waits for a wake-up without
 * limit, and takes the mutex back before it returns.  1, also when either
 * handle is null, which does nothing. */
HALV_API int HalvWaitConditional(HalvConditional conditional, HalvMutex mutex) HALV_NOEXCEPT;

/* HalvWaitConditional for at most timeoutMs milliseconds (HALV_WAIT_FOREVER:
 * without limit; 0: only a pending wake-up); the mutex is held again on
 * return in every case.  1 woken; 2 timed out; 0 the wait failed.  1 when
 * either handle is null, which does nothing. */
HALV_API int HalvTimedWaitConditional(HalvConditional conditional, HalvMutex mutex,
                                      uint32_t timeoutMs) HALV_NOEXCEPT;

/* ------------------------------------------------------------------------
 * Thread-local storage
 * ------------------------------------------------------------------------ */

/* Makes a new key in *key, under which every thread has a value of its own,
 * null at first.  Free it with HalvTLSFree.  1; 0 if key is null or no key
 * is free. */
HALV_API int HalvTLSAlloc(uint32_t *key) HALV_NOEXCEPT;

/* Gives the key back; the values stored under it are not released.  1; 0
 * for a key that isn't allocated. */
HALV_API int HalvTLSFree(uint32_t key) HALV_NOEXCEPT;

/* Sets the calling thread's value under key.  1; 0 for a key that isn't
 * allocated or no memory. */
HALV_API int HalvTLSSetValue(uint32_t key, void *value) HALV_NOEXCEPT;

/* The calling thread's value under key; null if it has set none. */
HALV_API void *HalvTLSGetValue(uint32_t key) HALV_NOEXCEPT;

/* ------------------------------------------------------------------------
 * Threads
 * ------------------------------------------------------------------------ */

/* Starts fn(argument) on a new thread with the default stack size and
 * stores its handle in *out, which the caller releases with exactly one
 * HalvJoinThread.  A null out starts the thread detached: it can't be
 * joined and releases itself.  1, the thread running; 0 if it could not be
 * started or fn is null (out untouched). */
HALV_API int HalvCreateThread(HalvThread *out, HalvThreadFn fn, void *argument) HALV_NOEXCEPT;

/* Ends the calling thread with exitCode, as if its thread function had
 * returned it.  The stack is not unwound: destructors of the frames between
 * the thread function and this call do not run.  Does not return. */
HALV_NORETURN HALV_API void HalvExitThread(uint32_t exitCode) HALV_NOEXCEPT;

/* Waits without limit for the thread's end, stores its exit code in
 * *exitCode and releases the handle.  A thread is joined once.  1.  0 if
 * thread or exitCode is null, or the thread can't be joined (not from
 * HalvCreateThread with an out pointer, or a thread joining itself); the
 * handle then stays open. */
HALV_API int HalvJoinThread(HalvThread thread, uint32_t *exitCode) HALV_NOEXCEPT;

/* The calling thread's identifier, unique among live threads. */
HALV_API uint32_t HalvGetCurrentThreadId(void) HALV_NOEXCEPT;

/* A handle standing for the calling thread, good only inside it and never
 * released; it is not joinable and not comparable with handles from
 * HalvCreateThread. */
HALV_API HalvThread HalvGetCurrentThread(void) HALV_NOEXCEPT;

/* ------------------------------------------------------------------------
 * Clocks
 * ------------------------------------------------------------------------ */

/* Milliseconds of a monotonic clock, cut to 32 bits: a counter that wraps
 * after about 49 days, so only differences have a meaning.  Worker pools
 * age their threads by it. */
HALV_API uint32_t HalvGetClockTick(void) HALV_NOEXCEPT;

/* Stores the counts per second of HalvGetPerfCounter, 1000000000, in *out.
 * 1; 0 if out is null. */
HALV_API int HalvGetPerfFrequency(uint64_t *out) HALV_NOEXCEPT;

/* Stores the value of the high-resolution counter, nanoseconds of a
 * monotonic clock, in *out.  1; 0 if out is null. */
HALV_API int HalvGetPerfCounter(uint64_t *out) HALV_NOEXCEPT;

/* ------------------------------------------------------------------------
 * Worker pools
 *
 * A client handle (HalvWorkerPool) stands on a core (HalvWorkerPoolCore):
 * one strict first-in-first-out ring of tasks, the worker threads and a
 * table of clients.  A local pool is a core with exactly one client, made
 * and destroyed with its handle.  The global pool is one process-wide core
 * that any number of clients attach to; it lives until the engine's last
 * HalvernEnd, which drops the tasks still queued uncalled and joins the
 * workers.
 *
 * Workers are never tied to a client: each takes the oldest task of the
 * core, whoever queued it.  A core keeps the sum of its clients' exclusive
 * thread counts plus the largest of their shared counts.  Lowering a count
 * only lowers that target; idle surplus workers retire one per age period
 * when HV_WORKERPOOL_AGE (seconds, read once by each core at its creation)
 * is set to a number other than 0, and otherwise stay until the core goes.
 *
 * The records are public so that a host can inspect a core, but every
 * field behind the core's mutex is read and written under that mutex only.
 * No operation checks its handle for null.  Every operation may be called
 * from any thread, also from inside a task; a task must not free its own
 * local pool, which would join the worker running it.
 * ------------------------------------------------------------------------ */

/* A task: takes the argument given to HalvWorkerPoolAddTask and the
 * client's clientData; its result is ignored. */
typedef int32_t (*HalvWorkerPoolTaskFn)(void *argument, void *clientData);

/* One entry of the ring; a queued task costs no allocation of its own. */
typedef struct HalvWorkerPoolTask {
    uint32_t clientIndex;          /* the slot of the client that queued it */
    HalvWorkerPoolTaskFn function; /* the task's entry */
    void *argument;                /* handed to the task untouched */
} HalvWorkerPoolTask;

/* One slot of the client table.  Slots stay at their index when the table
 * grows; a freed slot is reused, lowest index first. */
typedef struct HalvWorkerPoolClient {
    uint32_t pendingCount;     /* this client's tasks in the ring (taken ones don't count) */
    uint32_t sharedThreads;    /* the client's shared thread count */
    uint32_t exclusiveThreads; /* the client's exclusive thread count */
    uint32_t queueLimit;       /* largest pendingCount AddTask fills up to; 0: no limit */
    uint32_t inUse;            /* 1 while a client holds the slot */
    void *clientData;          /* second argument of every task of this client */
} HalvWorkerPoolClient;

/* The core.  mutex guards every field behind it, also in the arrays.
 * Invariants: taskTail == (taskHead + taskCount) % taskCapacity; taskCount
 * is the sum of all pendingCount; threadCount may be above threadTarget
 * (until surplus workers retire) and, after a failed thread start, below. */
typedef struct HalvWorkerPoolCore {
    HalvMutex mutex;           /* the only lock of the pool, never held while a task runs */
    uint32_t ageMs;            /* idle age; HALV_WAIT_FOREVER: workers never retire */
    uint32_t lastRetireTick;   /* HalvGetClockTick at creation and at each retirement */
    HalvConditional workAvailable; /* idle workers wait on it */
    HalvConditional queueDrained;  /* producers and HalvWorkerPoolWaitForEmpty wait on it */
    int32_t shutdown;          /* set once, when the core is being destroyed */
    uint32_t taskTail;         /* where the next task is written */
    uint32_t taskHead;         /* the oldest task */
    uint32_t taskCapacity;     /* 0 until the first task; then 8, doubling */
    uint32_t taskCount;        /* tasks queued, all clients together */
    HalvWorkerPoolTask *tasks; /* the ring */
    uint32_t threadCapacity;   /* entries allocated in threads */
    uint32_t threadCount;      /* workers on the list */
    uint32_t threadTarget;     /* workers wanted: the exclusive counts plus the largest shared one */
    HalvThread *threads;       /* the workers */
    uint32_t clientCapacity;   /* slots in clients */
    HalvWorkerPoolClient *clients; /* the client table */
} HalvWorkerPoolCore;

/* A client's handle, held from Create to HalvWorkerPoolFree. */
typedef struct HalvWorkerPool {
    uint32_t clientIndex;      /* the client's slot in core->clients */
    int32_t blockWhenFull;     /* non-zero: AddTask waits at the limit; zero: it returns 2 */
    HalvWorkerPoolCore *core;  /* the core it stands on */
} HalvWorkerPool;

/* Makes a pool of its own core with one client, whose shared thread count
 * is threadCount (0 is allowed: tasks then wait until a count is raised).
 * queueLimit bounds the client's tasks queued at once (0: no bound);
 * blockWhenFull says what AddTask does at the bound.  clientData goes to
 * every task.  The caller releases the pool with HalvWorkerPoolFree.  1
 * with the handle in *out; 0 if out is null, memory runs out or a thread
 * can't be started, with everything built taken down again and *out null
 * (where out is given). */
HALV_API int HalvWorkerPoolCreateLocal(HalvWorkerPool **out, uint32_t queueLimit, int blockWhenFull,
                                       uint32_t threadCount, void *clientData) HALV_NOEXCEPT;

/* Attaches a new client to the global core, building the core at the first
 * call after each engine start (its cleanup is registered with the engine;
 * a core built while the engine is stopped has none and lives until the
 * process ends).  sharedThreads and exclusiveThreads are the client's
 * counts; limit and data as for a local pool.  The caller releases the
 * handle with HalvWorkerPoolFree.  1 with the handle in *out; 0 if out is
 * null, memory runs out or a thread can't be started, with the client's
 * slot given back and *out null (where out is given). */
HALV_API int HalvWorkerPoolCreateGlobal(HalvWorkerPool **out, uint32_t queueLimit, int blockWhenFull,
                                        uint32_t sharedThreads, uint32_t exclusiveThreads,
                                        void *clientData) HALV_NOEXCEPT;

/* Stores the client's exclusive thread count, which adds to the core's
 * target, and starts workers up to the new target.  Lowering the count
 * ends no worker at once.  1; 0 if a worker could not be started or the
 * thread table could not grow (the count stays stored, and a later change
 * tries again). */
HALV_API int HalvWorkerPoolSetExclusiveThreadCount(HalvWorkerPool *pool, uint32_t count) HALV_NOEXCEPT;

/* Stores the client's shared thread count, of which only the largest among
 * the core's clients adds to its target, and starts workers up to the new
 * target.  Lowering the count ends no worker at once.  1; 0 if a worker
 * could not be started or the thread table could not grow (the count stays
 * stored, and a later change tries again). */
HALV_API int HalvWorkerPoolSetSharedThreadCount(HalvWorkerPool *pool, uint32_t count) HALV_NOEXCEPT;

/* Queues function(argument, clientData) behind every task of the core.  At
 * the client's limit it waits for a worker to take one of the client's
 * tasks (or for a clear) when blockWhenFull is set.  1 queued; 2 not
 * queued, the client is at its limit and blockWhenFull is zero; 0 not
 * queued, no memory to grow the ring. */
HALV_API int HalvWorkerPoolAddTask(HalvWorkerPool *pool, HalvWorkerPoolTaskFn function,
                                   void *argument) HALV_NOEXCEPT;

/* Drops this client's queued tasks uncalled (their arguments stay the
 * caller's); other clients' tasks keep their order, and a task already
 * taken runs on.  Wakes this client's blocked AddTask and WaitForEmpty
 * callers.  1. */
HALV_API int HalvWorkerPoolClearTasks(HalvWorkerPool *pool) HALV_NOEXCEPT;

/* Waits until a worker has taken this client's last queued task (it may
 * still be running) or the tasks were cleared.  1. */
HALV_API int HalvWorkerPoolWaitForEmpty(HalvWorkerPool *pool) HALV_NOEXCEPT;

/* Drops the client's queued tasks and frees the handle.  A local pool's
 * core goes with it: its workers are joined, so no task runs any more when
 * this returns.  A global client's tasks already taken may still run.  The
 * caller must have stopped using the pool.  After the engine's last
 * HalvernEnd a global handle has lost its core: release it with
 * halv_internal_free instead.  1; 0 if the local core's parts did not close
 * well (everything is freed all the same). */
HALV_API int HalvWorkerPoolFree(HalvWorkerPool *pool) HALV_NOEXCEPT;

/* ------------------------------------------------------------------------
 * Coroutines
 *
 * A cooperative coroutine with a stack of its own: HalvCoroResume runs it
 * on that stack until it yields or its function returns, then control comes
 * back to the resumer in the same thread.  Nothing is scheduled.  The stack
 * has a guard page below it, so an overflow faults there (SIGSEGV) instead
 * of running into other memory.
 *
 * Successive resumes may come from different threads, one at a time; a
 * coroutine may resume another, and the resumes nest.  Code inside a
 * coroutine must not keep the address of a thread_local object across a
 * yield, as the next resume may come from another thread.
 * ------------------------------------------------------------------------ */

typedef struct HalvCoro HalvCoro;

/* The coroutine's function: takes the coroutine, so that it can yield, and
 * the user argument.  Its result is ignored. */
typedef int32_t (*HalvCoroFn)(HalvCoro *coro, void *userArgument);

/* A coroutine's stack and saved context, private to the library. */
typedef struct HalvCoroFiber HalvCoroFiber;

/* A coroutine, owned by whoever created it until HalvCoroFree. */
struct HalvCoro {
    int32_t finished;          /* 1 once the function has returned */
    void *userArgument;        /* the function's second argument */
    HalvCoroFn entry;          /* the coroutine's function */
    HalvCoroFiber *fiber;      /* the stack and context; null once released */
    void *resumer;             /* the context to go back to; set at each resume */
};

/* Makes a coroutine that will run entry(coro, userArgument), not started
 * yet, and stores it in *out; the caller frees it with HalvCoroFree.
 * stackSize 0 gives 1 MiB; other sizes are rounded up to whole pages and to
 * at least 64 KiB.  The coroutine starts with its creator's floating-point
 * control settings (rounding, exception masks), and from then on the
 * coroutine and each resumer keep their own across switches.  1; 0 if out
 * or entry is null, or the record or stack can't be made (*out null then,
 * where out is given). */
HALV_API int HalvCoroCreate(HalvCoro **out, HalvCoroFn entry, void *userArgument, size_t stackSize) HALV_NOEXCEPT;

/* Runs the coroutine on its own stack until it yields or its function
 * returns; in the latter case finished becomes 1 and the stack is released
 * here.  1 then; 0 with nothing run if coro is null, has finished, or is
 * running (it resumed itself, or resumes it further up the chain). */
HALV_API int HalvCoroResume(HalvCoro *coro) HALV_NOEXCEPT;

/* Suspends the running coroutine and returns to its resumer; 1 when it is
 * resumed again.  Called only from within coro itself: 0 at once if coro is
 * null or not running. */
HALV_API int HalvCoroYield(HalvCoro *coro) HALV_NOEXCEPT;

/* Releases the stack, if still there, and frees the record.  May be called
 * on a coroutine that has not finished, from outside it: its stack is
 * abandoned without unwinding, so what the function still held is not
 * released.  Not on a running coroutine.  A null coro does nothing. */
HALV_API void HalvCoroFree(HalvCoro *coro) HALV_NOEXCEPT;

HALV_END_DECLS

#endif /* HALV_THREAD_H */
