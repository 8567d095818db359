/*
 * thread/workerpool.h - the steps the worker pool's files share: building
 * and taking down a core, its client table, and the count of workers it
 * keeps.
 */
#ifndef HALV_THREAD_WORKERPOOL_H
#define HALV_THREAD_WORKERPOOL_H

#include "halv_core.h"
#include "halv_thread.h"

namespace halv::pool {

/* Holds a core's mutex for the life of a scope. */
class CoreLock {
  public:
    explicit CoreLock(HalvWorkerPoolCore *core) noexcept : mutex_(core->mutex) { HalvLockMutex(mutex_); }
    ~CoreLock() { HalvUnlockMutex(mutex_); }
    CoreLock(const CoreLock &) = delete;
    CoreLock &operator=(const CoreLock &) = delete;

  private:
    HalvMutex mutex_;
};

/* Builds a core with its lock, its two conditionals and its idle age (read
 * from HV_WORKERPOOL_AGE now).  1 with the core in *out; 0 with *out null. */
int CreateCore(HalvWorkerPoolCore **out) noexcept;

/* Sets shutdown, joins every worker (each ends its running task first;
 * queued tasks are dropped uncalled) and frees the core.  1; 0 if one of
 * its parts did not close well, though all is freed. */
int DestroyCore(HalvWorkerPoolCore *core) noexcept;

/* Takes the first free client slot (growing the table when none is free),
 * fills it, stores its index in the handle and starts workers up to the new
 * target.  1; 0 if the table could not grow or a worker could not start,
 * and then the slot is given back. */
int AddClient(HalvWorkerPool *pool, uint32_t sharedThreads, uint32_t exclusiveThreads, uint32_t queueLimit,
              void *clientData) noexcept;

/* With the mutex held: threadTarget becomes the sum of all exclusive counts
 * plus the largest shared count. */
void RecountTarget(HalvWorkerPoolCore *core) noexcept;

/* With the mutex held: recounts the target and starts workers up to it.
 * Ends none.  1; 0 if the thread table could not grow or a start failed
 * (those started stay). */
int AdjustThreads(HalvWorkerPoolCore *core) noexcept;

/* The body of every worker; the argument is the core. */
uint32_t WorkerMain(void *core) noexcept;

} // namespace halv::pool

#endif
