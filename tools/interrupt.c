/*
 * interrupt.c - Ctrl-C and its kin.
 *
 * The first SIGINT, SIGTERM, SIGHUP or SIGPIPE only records the signal:
 * every command reads its input through ImageNextChunk, which asks here
 * before each chunk, so the command stops between two chunks and removes
 * its unfinished output on its one ordinary failure path.  A read that
 * blocks (a pipe, a slow server) doesn't return to that check; a second
 * signal then removes the pending file itself and ends the process with
 * the signal, as if no handler were there.
 */
#define _POSIX_C_SOURCE 200809L
#include <signal.h>
#include <string.h>
#include <unistd.h>

#include "host.h"

static volatile sig_atomic_t gStopSignal;
static char gPendingPath[4096];
static volatile sig_atomic_t gPending;

static void OnSignal(int sig) {
    if (gStopSignal == 0) {
        gStopSignal = sig;
        return;
    }
    if (gPending)
        unlink(gPendingPath);
    signal(sig, SIG_DFL);
    raise(sig);
}

void InterruptGuardInstall(void) {
    static int installed;
    if (installed)
        return;
    installed = 1;
    static const int kSignals[] = {SIGINT, SIGTERM, SIGHUP, SIGPIPE};
    for (size_t i = 0; i < sizeof kSignals / sizeof kSignals[0]; ++i) {
        struct sigaction action;
        memset(&action, 0, sizeof action);
        action.sa_handler = OnSignal;
        sigemptyset(&action.sa_mask);
        sigaction(kSignals[i], &action, NULL);
    }
}

int InterruptStatus(void) { return gStopSignal != 0 ? 128 + gStopSignal : kExitOk; }

void InterruptSetPendingFile(const char *path) {
    gPending = 0;
    if (path != NULL && strlen(path) < sizeof gPendingPath) {
        memcpy(gPendingPath, path, strlen(path) + 1);
        gPending = 1;
    }
}
