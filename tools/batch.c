/*
 * batch.c - halvern run NAME IN... --out DIR [--jobs N] [key=value ...]:
 * one function over many images at once on the engine's global worker
 * pool.  Each image is one task with a state, streams and output of its
 * own, so all its chunks pass on the one worker that took it; the images
 * run side by side.  DIR/<name of IN> is each output.
 *
 * A failed image is said on standard error and the others go on; the
 * summary names every one that failed.  Ctrl-C stops every running image
 * between two chunks (each removes its unfinished output), and the images
 * not yet started are not started.
 */
#define _POSIX_C_SOURCE 200809L
#include <errno.h>
#include <pthread.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "host.h"

typedef struct BatchImage {
    const char *input;
    char *output;
    int status; /* -1 until its task has ended */
} BatchImage;

typedef struct Batch {
    const HalvFuncDesc *desc;
    char *const *pairs;
    int pairCount;
    int binary;
    Progress progress; /* the one bar, which every image adds to */
    pthread_mutex_t lock;
    pthread_cond_t allDone;
    uint32_t done;
} Batch;

static int32_t RunImage(void *argument, void *clientData) {
    BatchImage *image = argument;
    Batch *batch = clientData;
    int status = InterruptStatus();
    if (status == kExitOk) {
        RunRequest request = {batch->desc, image->input, image->output, batch->pairs, batch->pairCount, 0,
                              batch->binary, &batch->progress};
        status = RunDescribed(&request);
    }
    pthread_mutex_lock(&batch->lock);
    image->status = status;
    ++batch->done;
    pthread_cond_signal(&batch->allDone);
    pthread_mutex_unlock(&batch->lock);
    return 0;
}

/* The base name of path: what the output is called in DIR. */
static const char *BaseName(const char *path) {
    const char *slash = strrchr(path, '/');
    return slash != NULL ? slash + 1 : path;
}

static int IsPair(const char *word) {
    size_t key = strspn(word, "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_");
    return key > 0 && word[key] == '=';
}

typedef struct BatchOptions {
    const char *name;
    const char *dir;
    long jobs;
    int binary;
    const char **inputs;
    int inputCount;
    char **pairs;
    int pairCount;
} BatchOptions;

static const char kBatchUsage[] = "usage: halvern run [--binary] NAME INPUT... --out DIR [--jobs N] [key=value ...]";

/* Sorts the words into inputs and pairs (arrays of argc entries the
 * caller frees). */
static int ParseOptions(int argc, char **argv, BatchOptions *options) {
    memset(options, 0, sizeof *options);
    long processors = sysconf(_SC_NPROCESSORS_ONLN);
    options->jobs = processors > 0 ? processors : 1;
    options->inputs = calloc((size_t)argc + 1, sizeof *options->inputs);
    options->pairs = calloc((size_t)argc + 1, sizeof *options->pairs);
    if (options->inputs == NULL || options->pairs == NULL)
        return Complain("no memory");
    for (int i = 0; i < argc; ++i) {
        if (strcmp(argv[i], "--out") == 0 && i + 1 < argc) {
            options->dir = argv[++i];
        } else if (strcmp(argv[i], "--jobs") == 0 && i + 1 < argc) {
            char *end = NULL;
            options->jobs = strtol(argv[++i], &end, 10);
            if (end == argv[i] || *end != '\0' || options->jobs < 1 || options->jobs > kInterruptSlots)
                return Complain("--jobs %s: a whole number from 1 to %d", argv[i], kInterruptSlots), kExitUsage;
        } else if (strcmp(argv[i], "--binary") == 0 && options->name == NULL) {
            options->binary = 1;
        } else if (strncmp(argv[i], "--", 2) == 0) {
            return Complain("run: unknown option %s (%s)", argv[i], kBatchUsage), kExitUsage;
        } else if (options->name == NULL) {
            options->name = argv[i];
        } else if (IsPair(argv[i])) {
            options->pairs[options->pairCount++] = argv[i];
        } else {
            options->inputs[options->inputCount++] = argv[i];
        }
    }
    if (options->name == NULL || options->dir == NULL || options->inputCount == 0)
        return Complain("%s", kBatchUsage), kExitUsage;
    return kExitOk;
}

/* DIR exists (it is made if it doesn't), and no two outputs share a name
 * or overwrite their own input. */
static int CheckOutputs(const BatchOptions *options, BatchImage *images) {
    struct stat info;
    if (stat(options->dir, &info) != 0 && (errno != ENOENT || mkdir(options->dir, 0777) != 0))
        return Complain("can't use %s as the output directory: %s", options->dir, strerror(errno));
    if (stat(options->dir, &info) != 0 || !S_ISDIR(info.st_mode))
        return Complain("--out %s is not a directory", options->dir);
    for (int i = 0; i < options->inputCount; ++i) {
        const char *base = BaseName(options->inputs[i]);
        for (int j = 0; j < i; ++j)
            if (strcmp(base, BaseName(options->inputs[j])) == 0)
                return Complain("%s and %s would both be written as %s/%s", options->inputs[j], options->inputs[i],
                                options->dir, base),
                       kExitUsage;
        size_t size = strlen(options->dir) + strlen(base) + 2;
        images[i].input = options->inputs[i];
        images[i].status = -1;
        images[i].output = malloc(size);
        if (images[i].output == NULL)
            return Complain("no memory");
        snprintf(images[i].output, size, "%s/%s", options->dir, base);
        struct stat in, out;
        if (stat(images[i].input, &in) == 0 && stat(images[i].output, &out) == 0 && in.st_dev == out.st_dev &&
            in.st_ino == out.st_ino)
            return Complain("%s would be written over itself; --out must name another directory", images[i].input),
                   kExitUsage;
    }
    return kExitOk;
}

/* Queues every image on the global pool with jobs threads and waits for
 * the last to end. */
static int RunAll(Batch *batch, BatchImage *images, int count, long jobs) {
    HalvWorkerPool *pool = NULL;
    uint32_t threads = (uint32_t)(jobs < count ? jobs : count);
    if (HalvWorkerPoolCreateGlobal(&pool, 0, 0, threads, 0, batch) != 1)
        return Complain("can't start %u worker threads", threads);
    int queued = 0;
    for (; queued < count; ++queued)
        if (HalvWorkerPoolAddTask(pool, RunImage, &images[queued]) != 1)
            break;
    pthread_mutex_lock(&batch->lock);
    while (batch->done < (uint32_t)queued)
        pthread_cond_wait(&batch->allDone, &batch->lock);
    pthread_mutex_unlock(&batch->lock);
    HalvWorkerPoolFree(pool);
    for (int i = queued; i < count; ++i)
        images[i].status = Complain("%s: no memory to queue it", images[i].input);
    return kExitOk;
}

/* The batch's status: 0 all written, 1 any failed, 128 + the signal when
 * interrupted; the images that failed named. */
static int Summarise(const Batch *batch, const BatchImage *images, int count) {
    int failed = 0, written = 0;
    for (int i = 0; i < count; ++i) {
        failed += images[i].status != kExitOk && images[i].status != InterruptStatus();
        written += images[i].status == kExitOk;
    }
    if (InterruptStatus() != kExitOk) {
        Complain("interrupted: %d of %d images were written in full; no unfinished output is left", written, count);
        return InterruptStatus();
    }
    if (failed == 0)
        return kExitOk;
    flockfile(stderr);
    fprintf(stderr, "halvern: %s failed on %d of %d images:", batch->desc->name, failed, count);
    for (int i = 0; i < count; ++i)
        if (images[i].status != kExitOk)
            fprintf(stderr, " %s", images[i].input);
    fputc('\n', stderr);
    funlockfile(stderr);
    return kExitFailed;
}

int CommandRunBatch(int argc, char **argv) {
    BatchOptions options;
    int status = ParseOptions(argc, argv, &options);
    BatchImage *images = status == kExitOk ? calloc((size_t)options.inputCount, sizeof *images) : NULL;
    if (status == kExitOk && images == NULL)
        status = Complain("no memory");
    if (status == kExitOk)
        status = CheckOutputs(&options, images);
    HalvFuncDesc *desc = status == kExitOk ? FindFunction(options.name) : NULL;
    if (status == kExitOk && desc == NULL)
        status = kExitFailed;
    if (status == kExitOk) {
        Batch batch = {.desc = desc, .pairs = options.pairs, .pairCount = options.pairCount, .binary = options.binary};
        pthread_mutex_init(&batch.lock, NULL);
        pthread_cond_init(&batch.allDone, NULL);
        uint64_t total = 0;
        for (int i = 0; i < options.inputCount; ++i) {
            struct stat info;
            total += stat(images[i].input, &info) == 0 && S_ISREG(info.st_mode) ? (uint64_t)info.st_size : 0;
        }
        ProgressStart(&batch.progress, desc->name, total);
        InterruptGuardInstall(); /* before any thread runs */
        status = RunAll(&batch, images, options.inputCount, options.jobs);
        ProgressFinish(&batch.progress);
        if (status == kExitOk)
            status = Summarise(&batch, images, options.inputCount);
        pthread_cond_destroy(&batch.allDone);
        pthread_mutex_destroy(&batch.lock);
    }
    if (desc != NULL)
        HalvFreeFuncDesc(desc);
    for (int i = 0; images != NULL && i < options.inputCount; ++i)
        free(images[i].output);
    free(images);
    free(options.inputs);
    free(options.pairs);
    return status;
}
