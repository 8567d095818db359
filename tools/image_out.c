/*
 * image_out.c - writing OUTPUT all or nothing.
 *
 * The file is made under a temporary name beside OUTPUT, so that the
 * rename at the end stays on one file system; a failure or an interrupt
 * (interrupt.c) removes it.  Nobody ever sees a half-written OUTPUT.
 */
#define _POSIX_C_SOURCE 200809L
#include <errno.h>
#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "host.h"

/* The file's stream behind one that remembers the first failed write:
 * some writers don't tell (the end marker behind a header, raw spectra),
 * and OUTPUT must never be committed with bytes missing. */
typedef struct GuardedIO {
    HalvIO io;
    HalvIO *file;
    int error; /* errno of the first failed write, -1 when it set none */
} GuardedIO;

static int32_t GuardedWrite(HalvIO *io, const void *bytes, uint32_t count) {
    GuardedIO *g = (GuardedIO *)io;
    errno = 0;
    int32_t written = g->file->write(g->file, bytes, count);
    if (count > 0 && written <= 0 && g->error == 0)
        g->error = errno != 0 ? errno : -1;
    return written;
}

static int32_t GuardedRead(HalvIO *io, void *buffer, uint32_t count) {
    GuardedIO *g = (GuardedIO *)io;
    return g->file->read(g->file, buffer, count);
}

static void GuardedFlush(HalvIO *io) { ((GuardedIO *)io)->file->flush(((GuardedIO *)io)->file); }

static int64_t GuardedSeek(HalvIO *io, int64_t offset, int32_t whence) {
    GuardedIO *g = (GuardedIO *)io;
    return g->file->seek(g->file, offset, whence);
}

static void GuardedClose(HalvIO *io) {
    GuardedIO *g = (GuardedIO *)io;
    g->file->close(g->file);
    free(g);
}

/* A guard around file, which it owns from now on; null when memory runs
 * out (file is then closed). */
static HalvIO *Guard(HalvIO *file) {
    GuardedIO *g = calloc(1, sizeof *g);
    if (g == NULL) {
        file->close(file);
        return NULL;
    }
    g->file = file;
    g->io.close = GuardedClose;
    g->io.read = GuardedRead;
    g->io.write = GuardedWrite;
    g->io.flush = GuardedFlush;
    g->io.seek = GuardedSeek;
    return &g->io;
}

int OutputOpen(Output *out, const char *path) {
    memset(out, 0, sizeof *out);
    out->path = path;
    out->pendingSlot = -1;
    size_t length = strlen(path);
    out->tempPath = malloc(length + 16);
    if (out->tempPath == NULL)
        return Complain("no memory");
    snprintf(out->tempPath, length + 16, "%s.halvern-XXXXXX", path);
    InterruptGuardInstall();
    int fd = mkstemp(out->tempPath);
    if (fd < 0) {
        int error = errno;
        free(out->tempPath);
        out->tempPath = NULL;
        return Complain("can't write %s: %s", path, strerror(error));
    }
    out->pendingSlot = InterruptAddPendingFile(out->tempPath);
    mode_t mask = umask(0);
    umask(mask);
    fchmod(fd, 0666 & ~mask); /* mkstemp's 0600 would stick to OUTPUT */
    HalvIO *file = HalvIO_FD(fd);
    if (file == NULL) {
        close(fd);
        OutputAbort(out);
        return Complain("no memory");
    }
    file->setAutoClose(file, 1);
    out->io = Guard(file);
    if (out->io == NULL) {
        OutputAbort(out);
        return Complain("no memory");
    }
    return kExitOk;
}

static int WriteFailed(Output *out) {
    return Complain("can't write %s: %s", out->path, errno != 0 ? strerror(errno) : "the write failed");
}

int OutputWriteHeader(Output *out, HalvHeaderStruct *header, HVHdrManager manager, int swapBytes) {
    out->header = header;
    out->manager = manager;
    out->swapBytes = swapBytes;
    errno = 0;
    if (HVHdrWrite_Header(header, &out->manager, out->io) != 1)
        return WriteFailed(out);
    return kExitOk;
}

static void *Scratch(Output *out, uint32_t bytes) {
    if (bytes > out->scratchCapacity) {
        void *grown = realloc(out->scratch, bytes);
        if (grown == NULL)
            return NULL;
        out->scratch = grown;
        out->scratchCapacity = bytes;
    }
    return out->scratch;
}

int OutputWriteChunk(Output *out, const HalvChunk *chunk) {
    if (chunk->bytes == 0 && chunk->lines == 0)
        return kExitOk;
    HalvChunk copy = *chunk;
    if (out->pixelsPerLine != 0)
        copy.lines *= out->pixelsPerLine; /* the same bytes: at most 1 GiB of pixels */
    if (out->swapBytes && chunk->bytes > 0) {
        copy.data = Scratch(out, chunk->bytes);
        if (copy.data == NULL)
            return Complain("no memory for %u bytes", chunk->bytes);
        copy.capacity = chunk->bytes;
        memcpy(copy.data, chunk->data, chunk->bytes);
        HalvHeaderReverseLines(out->header, copy.data, copy.bytes, copy.lines);
    }
    errno = 0;
    if (HVHdrFromChunk(out->manager, out->header, &copy, out->io) != 1)
        return WriteFailed(out);
    return kExitOk;
}

int OutputWriteBytes(Output *out, const void *bytes, uint32_t count) {
    errno = 0;
    if (count > 0 && HalvIOWriteBytes(out->io, bytes, count) != (int32_t)count)
        return WriteFailed(out);
    return kExitOk;
}

static void Release(Output *out) {
    if (out->io != NULL)
        out->io->close(out->io);
    if (out->header != NULL && out->header->free != NULL)
        out->header->free(out->header);
    free(out->scratch);
    out->io = NULL;
    out->header = NULL;
    out->scratch = NULL;
}

int OutputCommit(Output *out) {
    int error = out->io != NULL ? ((GuardedIO *)out->io)->error : 0;
    if (error != 0) {
        errno = error > 0 ? error : 0;
        WriteFailed(out);
        OutputAbort(out);
        return kExitFailed;
    }
    Release(out);
    int status = kExitOk;
    if (rename(out->tempPath, out->path) != 0) {
        status = Complain("can't write %s: %s", out->path, strerror(errno));
        unlink(out->tempPath);
    }
    InterruptDropPendingFile(out->pendingSlot);
    out->pendingSlot = -1;
    free(out->tempPath);
    out->tempPath = NULL;
    return status;
}

void OutputAbort(Output *out) {
    Release(out);
    if (out->tempPath != NULL)
        unlink(out->tempPath);
    InterruptDropPendingFile(out->pendingSlot);
    out->pendingSlot = -1;
    free(out->tempPath);
    out->tempPath = NULL;
}

int OutputFinish(Output *out, int status) {
    if (status == kExitOk)
        return OutputCommit(out);
    OutputAbort(out);
    if (status == InterruptStatus())
        Complain("interrupted: stopped between two chunks; %s was not written", out->path);
    return status;
}

int OutputWholeFile(const char *path, HalvHeaderStruct *header, HVHdrManager manager, const HalvChunk *chunk) {
    Output out;
    if (OutputOpen(&out, path) != kExitOk) {
        header->free(header);
        return kExitFailed;
    }
    int status = OutputWriteHeader(&out, header, manager, 0);
    if (status == kExitOk)
        status = OutputWriteChunk(&out, chunk);
    return OutputFinish(&out, status);
}

/* ------------------------------------------------------------------------
 * Headers of another format, and byte order.
 * ------------------------------------------------------------------------ */

static const struct {
    const char *format;
    const char *version; /* written by default */
    const char *other;   /* a second version it writes, or null */
} kWritableFormats[] = {{"internal", "2.1", NULL},
                        {"image-ext", "1.0", NULL},
                        {"pixr", "1.0", NULL},
                        {"pixelstream", "1.0-ascii", NULL},
                        {"spectral", "1.0-binary", "1.0-ascii"}};

const char *WritableVersion(const char *format, const char *version) {
    for (size_t i = 0; i < sizeof kWritableFormats / sizeof kWritableFormats[0]; ++i) {
        if (strcmp(kWritableFormats[i].format, format) != 0)
            continue;
        if (version == NULL || strcmp(version, kWritableFormats[i].version) == 0)
            return kWritableFormats[i].version;
        if (kWritableFormats[i].other != NULL && strcmp(version, kWritableFormats[i].other) == 0)
            return kWritableFormats[i].other;
    }
    return NULL;
}

HalvHeaderStruct *MakeHeaderAs(const HalvHeaderStruct *source, const char *format, const char *version,
                               HVHdrManager *manager) {
    const char *written = WritableVersion(format, version);
    if (written == NULL) {
        Complain("this build can't write format %s%s%s", format, version != NULL ? " version " : "",
                 version != NULL ? version : "");
        return NULL;
    }
    HalvHeaderStruct *header = NULL;
    if (HVHdrGetManager_Str(format, written, manager) != 1 || HVHdrCreateHeader(*manager, &header) != 1 ||
        header == NULL) {
        Complain("this build can't write format %s", format);
        return NULL;
    }
    /* The description is the run of generic fields from endian up to
     * userData, and for a spectrum its wavelengths and type too; the rest
     * of the format's own fields stay as made. */
    size_t from = offsetof(HalvHeaderStruct, endian), to = offsetof(HalvHeaderStruct, userData);
    memcpy((char *)header + from, (const char *)source + from, to - from);
    if (header->managerType == HALV_HDR_SPECTRAL && source->managerType == HALV_HDR_SPECTRAL) {
        from = offsetof(HalvSpectralHeader, spectrumType);
        to = offsetof(HalvSpectralHeader, bufferCapacity);
        memcpy((char *)header + from, (const char *)source + from, to - from);
    }
    if (source->userData != NULL) {
        header->userData = HalvUserCMDupData(source->userData);
        if (header->userData == NULL) {
            header->free(header);
            Complain("no memory");
            return NULL;
        }
    }
    return header;
}
