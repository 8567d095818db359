/*
 * thread/internal.h - the records behind the lock handles, shared by the
 * files of the thread layer and by the engine core (whose master lock is a
 * statically initialised critical section).
 */
#ifndef HALV_THREAD_INTERNAL_H
#define HALV_THREAD_INTERNAL_H

#include <pthread.h>
#include <time.h>

#include <atomic>

#include "halv_core.h"
#include "halv_thread.h"

/* A critical section: a recursive lock on one futex word (thread/section.cpp).
 * A static record is initialised with HALV_CRITICAL_SECTION_INIT, all zero,
 * and needs no constructor. */
struct HalvCriticalSectionRecord {
    std::atomic<uint32_t> state;  /* 0 free, 1 held, 2 held and perhaps waited for */
    std::atomic<uintptr_t> owner; /* the holder's thread pointer; 0 while free */
    uint32_t depth;               /* the holder's entries; only the holder touches it */
};
#define HALV_CRITICAL_SECTION_INIT {}

/* The waitable cell: one record for mutexes, semaphores and events, which
 * share the lock, try-lock and free entries.  The kind picks the operations
 * out of a table (thread/waitable.cpp). */
enum HalvCellKind : int { kCellMutex, kCellSemaphore, kCellEvent, kCellKinds };

struct HalvSemaphoreState {
    pthread_mutex_t lock;
    pthread_cond_t wake; /* waits measure CLOCK_MONOTONIC */
    uint32_t count;
    uint32_t sleepers; /* threads blocked in a wait; posts skip the wake-up without them */
};

/* Event state lives under the one process-wide event lock (thread/event.cpp). */
struct HalvEventState {
    int manualReset;
    int signalled;
    uint64_t pulses;      /* raised by every pulse; a waiter compares it with its start */
    int pulseReleaseLeft; /* auto-reset: the one release the last pulse still owes */
};

struct HalvWaitableCell {
    int kind;
    union {
        pthread_mutex_t mutex;
        HalvSemaphoreState semaphore;
        HalvEventState event;
    };
};

namespace halv {

/* Time-outs in milliseconds, HALV_WAIT_FOREVER meaning no limit. */
struct Deadline {
    bool forever;
    bool immediate;
    timespec at; /* on the clock it was made for */
};
Deadline DeadlineAfter(uint32_t timeoutMs, clockid_t clock) noexcept;

/* Waits on cond until woken or the deadline passes; 1 woken (perhaps
 * spuriously), 2 deadline passed.  The cond measures CLOCK_MONOTONIC. */
int WaitCondUntil(pthread_cond_t *cond, pthread_mutex_t *mutex, const Deadline &deadline) noexcept;
/* Initialises a condition variable that measures CLOCK_MONOTONIC. */
int InitMonotonicCond(pthread_cond_t *cond) noexcept;

/* In-place forms used where a section is embedded in another record. */
void InitSectionRecord(HalvCriticalSectionRecord *section) noexcept;
void DestroySectionRecord(HalvCriticalSectionRecord *section) noexcept;

/* The operations of one kind of cell. */
struct CellOps {
    int (*init)(HalvWaitableCell *cell, intptr_t a, intptr_t b); /* 1 or 0 */
    int (*wait)(HalvWaitableCell *cell, uint32_t timeoutMs);      /* 1 got, 2 timed out, 0 failed */
    int (*signal)(HalvWaitableCell *cell);                        /* unlock, post or set; 1 or 0 */
    int (*close)(HalvWaitableCell *cell);                         /* 1 or 0 */
};
extern const CellOps kMutexOps;
extern const CellOps kSemaphoreOps;
extern const CellOps kEventOps;

/* Allocates a cell and initialises its object; *out is written only when
 * both steps succeed.  1 or 0. */
int CreateCell(HalvWaitableCell **out, int kind, intptr_t a, intptr_t b) noexcept;
/* Waits on a cell of any kind; null gives 1. */
int WaitCell(HalvWaitableCell *cell, uint32_t timeoutMs) noexcept;
/* Releases a cell of any kind: unlocks a mutex, posts a semaphore, sets an
 * event.  1 or 0. */
int SignalCell(HalvWaitableCell *cell) noexcept;
/* Raises a semaphore by n in one step; 0 (and nothing raised) if the count
 * would pass HALV_SEMAPHORE_MAX. */
int PostSemaphoreBy(HalvWaitableCell *cell, uint32_t n) noexcept;

/* Whether a handle of HalvCreateThread stands for the calling thread. */
bool IsCallingThread(HalvThread thread) noexcept;
/* Lets the calling thread, started joinable, end without anyone joining it:
 * detaches it and frees its handle, which nobody may use afterwards. */
void ReleaseCallingThread(HalvThread thread) noexcept;

} // namespace halv

#endif
