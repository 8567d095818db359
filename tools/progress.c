/*
 * progress.c - a progress bar on standard error.  Drawn only when standard
 * error is a terminal and the job is long enough to wait for, so that logs
 * and pipes never see it.
 */
#define _POSIX_C_SOURCE 200809L
#include <pthread.h>
#include <stdio.h>
#include <unistd.h>

#include "host.h"

enum { kBarWidth = 40 };
/* Smaller jobs are over before a bar would be read. */
static const uint64_t kWorthShowing = 16u << 20;

static void Draw(Progress *progress, int percent) {
    int filled = percent * kBarWidth / 100;
    char bar[kBarWidth + 1];
    for (int i = 0; i < kBarWidth; ++i)
        bar[i] = i < filled ? '#' : '-';
    bar[kBarWidth] = '\0';
    fprintf(stderr, "\r%-10s [%s] %3d%%", progress->label ? progress->label : "", bar, percent);
    fflush(stderr);
    progress->shown = percent;
}

void ProgressStart(Progress *progress, const char *label, uint64_t total) {
    progress->enabled = total >= kWorthShowing && isatty(STDERR_FILENO);
    progress->total = total;
    progress->done = 0;
    progress->shown = -1;
    progress->label = label;
    progress->shared = NULL;
}

/* The images of a batch advance one bar from their threads. */
static pthread_mutex_t gSharedBar = PTHREAD_MUTEX_INITIALIZER;

void ProgressAdvance(Progress *progress, uint64_t amount) {
    if (progress->shared != NULL) {
        pthread_mutex_lock(&gSharedBar);
        ProgressAdvance(progress->shared, amount);
        pthread_mutex_unlock(&gSharedBar);
        return;
    }
    if (!progress->enabled)
        return;
    progress->done += amount;
    uint64_t done = progress->done < progress->total ? progress->done : progress->total;
    int percent = (int)(done * 100 / progress->total);
    if (percent != progress->shown)
        Draw(progress, percent);
}

void ProgressFinish(Progress *progress) {
    if (progress->shared == NULL && progress->enabled && progress->shown >= 0)
        fputs("\r\033[K", stderr); /* clear the line: what follows starts clean */
}
