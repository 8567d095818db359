/*
 * thread/event.cpp - events, and waits on several of them at once.
 *
 * All event state sits under one process-wide lock, and every change is
 * broadcast on one process-wide condition variable.  That makes a wait on
 * any or all of several events one predicate tested under one lock: a
 * wait-any takes the lowest ready event, a wait-all takes all of them in the
 * same step, and an auto-reset event is cleared by the waiter it releases.
 *
 * A pulse raises the event's pulse counter; a waiter that started before the
 * raise sees the difference and is released (for an auto-reset event only
 * the first such waiter, which uses up the one release the pulse owes).  The
 * event itself stays clear.
 */
#include "thread/internal.h"

namespace {

struct EventHub {
    pthread_mutex_t lock;
    pthread_cond_t changed; /* re-made on the monotonic clock before first use */
    uint32_t sleepers;
};

constinit EventHub hub = {PTHREAD_MUTEX_INITIALIZER, PTHREAD_COND_INITIALIZER, 0};
constinit pthread_once_t hubOnce = PTHREAD_ONCE_INIT;

void MakeHubCond() noexcept { halv::InitMonotonicCond(&hub.changed); }

void EnterHub() noexcept {
    pthread_once(&hubOnce, MakeHubCond);
    pthread_mutex_lock(&hub.lock);
}

void LeaveHub(bool wakeWaiters) noexcept {
    if (wakeWaiters && hub.sleepers > 0)
        pthread_cond_broadcast(&hub.changed);
    pthread_mutex_unlock(&hub.lock);
}

/* One waiter's view: the events and the pulse counts it started with. */
struct EventWait {
    HalvWaitableCell *const *cells;
    uint32_t count;
    uint64_t seen[HALV_WAIT_MAX_EVENTS];
};

bool IsReady(const HalvEventState &event, uint64_t seen) noexcept {
    if (event.signalled)
        return true;
    return event.pulses != seen && (event.manualReset || event.pulseReleaseLeft);
}

void Take(HalvEventState &event) noexcept {
    if (event.manualReset)
        return;
    if (event.signalled)
        event.signalled = 0;
    else
        event.pulseReleaseLeft = 0;
}

bool TryTakeAny(EventWait &wait, uint32_t *index) noexcept {
    for (uint32_t i = 0; i < wait.count; ++i) {
        HalvEventState &event = wait.cells[i]->event;
        if (IsReady(event, wait.seen[i])) {
            Take(event);
            *index = i;
            return true;
        }
    }
    return false;
}

/* A pulse that passes while the others are not all set is lost to a
 * wait-all, as it is gone by the time they are. */
bool TryTakeAll(EventWait &wait, uint32_t *index) noexcept {
    bool allReady = true;
    for (uint32_t i = 0; i < wait.count && allReady; ++i)
        allReady = IsReady(wait.cells[i]->event, wait.seen[i]);
    for (uint32_t i = 0; i < wait.count; ++i) {
        HalvEventState &event = wait.cells[i]->event;
        if (allReady)
            Take(event);
        else
            wait.seen[i] = event.pulses;
    }
    *index = 0;
    return allReady;
}

bool IsWaitableEventList(HalvWaitableCell *const *cells, uint32_t count) noexcept {
    if (count == 0 || count > HALV_WAIT_MAX_EVENTS)
        return false;
    for (uint32_t i = 0; i < count; ++i)
        if (cells[i] == nullptr || cells[i]->kind != kCellEvent)
            return false;
    return true;
}

int WaitEvents(HalvWaitableCell *const *cells, uint32_t count, bool all, uint32_t timeoutMs,
               uint32_t *index) noexcept {
    if (!IsWaitableEventList(cells, count))
        return 0;
    halv::Deadline deadline = halv::DeadlineAfter(timeoutMs, CLOCK_MONOTONIC);
    EventWait wait;
    wait.cells = cells;
    wait.count = count;
    EnterHub();
    for (uint32_t i = 0; i < count; ++i)
        wait.seen[i] = cells[i]->event.pulses;
    /* An event set together with the deadline still counts. */
    bool expired = false;
    int result;
    for (;;) {
        if (all ? TryTakeAll(wait, index) : TryTakeAny(wait, index)) {
            result = 1;
            break;
        }
        if (expired) {
            result = 2;
            break;
        }
        ++hub.sleepers;
        expired = halv::WaitCondUntil(&hub.changed, &hub.lock, deadline) == 2;
        --hub.sleepers;
    }
    LeaveHub(false);
    return result;
}

int InitEvent(HalvWaitableCell *cell, intptr_t manualReset, intptr_t initialState) noexcept {
    cell->event.manualReset = manualReset != 0;
    cell->event.signalled = initialState != 0;
    return 1;
}

int WaitOne(HalvWaitableCell *cell, uint32_t timeoutMs) noexcept {
    uint32_t index;
    return WaitEvents(&cell, 1, false, timeoutMs, &index);
}

int SetOne(HalvWaitableCell *cell) noexcept {
    EnterHub();
    cell->event.signalled = 1;
    LeaveHub(true);
    return 1;
}

int CloseEvent(HalvWaitableCell *) noexcept { return 1; }

/* Applies a change to an event handle: null does nothing, a cell of another
 * kind is refused. */
int ChangeEvent(HalvEvent event, int (*change)(HalvWaitableCell *)) noexcept {
    if (event == nullptr)
        return 1;
    return event->kind == kCellEvent ? change(event) : 0;
}

int ResetOne(HalvWaitableCell *cell) noexcept {
    EnterHub();
    cell->event.signalled = 0;
    LeaveHub(false);
    return 1;
}

int PulseOne(HalvWaitableCell *cell) noexcept {
    EnterHub();
    HalvEventState &event = cell->event;
    event.pulses++;
    event.signalled = 0;
    if (!event.manualReset)
        event.pulseReleaseLeft = 1;
    LeaveHub(true);
    return 1;
}

} // namespace

namespace halv {
constinit const CellOps kEventOps = {InitEvent, WaitOne, SetOne, CloseEvent};
} // namespace halv

extern "C" {

HALV_API int HalvInitEvent(HalvEvent *out, int manualReset, int initialState) noexcept {
    return halv::CreateCell(out, kCellEvent, manualReset, initialState);
}

HALV_API int HalvSetEvent(HalvEvent event) noexcept { return ChangeEvent(event, SetOne); }
HALV_API int HalvResetEvent(HalvEvent event) noexcept { return ChangeEvent(event, ResetOne); }
HALV_API int HalvPulseEvent(HalvEvent event) noexcept { return ChangeEvent(event, PulseOne); }

HALV_API int HalvWaitSingleEvent(HalvEvent event, uint32_t timeoutMs) noexcept {
    return halv::WaitCell(event, timeoutMs);
}

HALV_API int HalvWaitMultipleEvent(HalvEvent *events, uint32_t count, int waitAll, uint32_t timeoutMs,
                                   uint32_t *index) noexcept {
    uint32_t ignored;
    uint32_t *slot = index != nullptr ? index : &ignored;
    *slot = 0;
    if (events == nullptr)
        return 1;
    return WaitEvents(events, count, waitAll != 0, timeoutMs, slot);
}

} // extern "C"
