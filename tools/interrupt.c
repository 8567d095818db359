/*
 * interrupt.c - Ctrl-C and its kin.
 *
 * The first SIGINT, SIGTERM, SIGHUP or SIGPIPE only records the signal:
 * every command reads its input through ImageNextChunk, which asks here
 * before each chunk, so the command stops between two chunks and removes
 * its unfinished output on its one ordinary failure path.  A batch runs
 * several images at once, each on a thread of its own, and every one of
 * them stops so.  A read that blocks (a pipe, a slow server) doesn't return
 * to that check; a second signal then removes every pending file itself
 * and ends the process with the signal, as if no handler were there.
 *
 * The handler may run on any thread while others claim and drop slots, so
 * the slots' states are lock-free atomics, which a handler may read.
 */
#define _POSIX_C_SOURCE 200809L
#include <signal.h>
#include <stdatomic.h>
#include <string.h>
#include <unistd.h>

#include "host.h"

enum { kSlotFree, kSlotFilling, kSlotArmed };

static atomic_int gStopSignal;
static char gPendingPaths[kInterruptSlots][4096];
static atomic_int gSlotState[kInterruptSlots];

static void OnSignal(int sig) {
    int none = 0;
    if (atomic_compare_exchange_strong(&gStopSignal, &none, sig))
        return;
    for (int i = 0; i < kInterruptSlots; ++i)
        if (atomic_load(&gSlotState[i]) == kSlotArmed)
            unlink(gPendingPaths[i]);
    signal(sig, SIG_DFL);
    raise(sig);
}

void InterruptGuardInstall(void) {
    static atomic_int installed;
    if (atomic_exchange(&installed, 1) != 0)
        return;
    static const int kSignals[] = {SIGINT, SIGTERM, SIGHUP, SIGPIPE};
    for (size_t i = 0; i < sizeof kSignals / sizeof kSignals[0]; ++i) {
        struct sigaction action;
        memset(&action, 0, sizeof action);
        action.sa_handler = OnSignal;
        sigemptyset(&action.sa_mask);
        sigaction(kSignals[i], &action, NULL);
    }
}

int InterruptStatus(void) {
    int sig = atomic_load(&gStopSignal);
    return sig != 0 ? 128 + sig : kExitOk;
}

int InterruptAddPendingFile(const char *path) {
    if (strlen(path) >= sizeof gPendingPaths[0])
        return -1;
    for (int i = 0; i < kInterruptSlots; ++i) {
        int expected = kSlotFree;
        if (!atomic_compare_exchange_strong(&gSlotState[i], &expected, kSlotFilling))
            continue;
        memcpy(gPendingPaths[i], path, strlen(path) + 1);
        atomic_store(&gSlotState[i], kSlotArmed);
        return i;
    }
    return -1; /* all taken: the file is then removed only on the first signal's path */
}

void InterruptDropPendingFile(int slot) {
    if (slot >= 0 && slot < kInterruptSlots)
        atomic_store(&gSlotState[slot], kSlotFree);
}
