/*
 * streams/file_fp.cpp - HalvIO_FP, the stream over a FILE*, and HalvFOpen.
 *
 * A transfer that moves nothing asks ferror whether it was the end or a
 * failure; the stream itself keeps no state but the FILE* and its flags.
 */
#include <cstdio>
#include <cstring>

#include "streams/file_internal.h"
#include "streams/internal.h"

namespace halv {
namespace {

struct FpStream {
    HalvIO io;
    FILE *fp;
    int32_t seekable;
    int32_t autoClose;
};

FpStream *AsFp(HalvIO *io) noexcept { return reinterpret_cast<FpStream *>(io); }

int32_t FpResult(FILE *fp, size_t moved) noexcept {
    if (moved != 0)
        return static_cast<int32_t>(moved);
    return ferror(fp) ? -1 : 0;
}

int32_t FpRead(HalvIO *io, void *buffer, uint32_t count) noexcept {
    FILE *fp = AsFp(io)->fp;
    return FpResult(fp, fread(buffer, 1, ClampFileCount(count), fp));
}

int32_t FpWrite(HalvIO *io, const void *bytes, uint32_t count) noexcept {
    FILE *fp = AsFp(io)->fp;
    return FpResult(fp, fwrite(bytes, 1, ClampFileCount(count), fp));
}

void FpFlush(HalvIO *io) noexcept { fflush(AsFp(io)->fp); }

int64_t FpSeek(HalvIO *io, int64_t offset, int32_t whence) noexcept {
    FpStream *s = AsFp(io);
    int origin = SeekOrigin(whence);
    if (!s->seekable || origin < 0)
        return -1;
    if (fseeko(s->fp, static_cast<off_t>(offset), origin) != 0)
        return -1;
    return ftello(s->fp);
}

int32_t FpSetAutoClose(HalvIO *io, int32_t flag) noexcept {
    AsFp(io)->autoClose = flag;
    return flag;
}

void FpClose(HalvIO *io) noexcept {
    FpStream *s = AsFp(io);
    if (s->autoClose)
        fclose(s->fp);
    halv_internal_free(s);
}

/* The slots every stream of this back end starts with. */
constexpr HalvIO kFpSlots = {
    .copy = nullptr,
    .reservedWord = 0,
    .close = FpClose,
    .read = FpRead,
    .write = FpWrite,
    .flush = FpFlush,
    .seek = FpSeek,
    .setAutoClose = FpSetAutoClose,
};

} // namespace
} // namespace halv

extern "C" {

HALV_API HalvIO *HalvIO_FP(FILE *fp) noexcept {
    using namespace halv;
    if (fp == nullptr)
        return nullptr;
    FpStream *s = AllocStreamRecord<FpStream>(kFpSlots);
    if (s == nullptr)
        return nullptr;
    s->fp = fp;
    s->seekable = IsRegularFile(fileno(fp));
    return &s->io;
}

HALV_API FILE *HalvFOpen(const char *name, const char *mode) noexcept {
    if (name == nullptr || mode == nullptr)
        return nullptr;
    /* "e" asks for close-on-exec; it goes behind the caller's letters. */
    size_t length = strlen(mode);
    char *withCloexec = static_cast<char *>(halv_internal_malloc(length + 2));
    if (withCloexec == nullptr)
        return nullptr;
    std::memcpy(withCloexec, mode, length);
    withCloexec[length] = 'e';
    withCloexec[length + 1] = '\0';
    FILE *fp = fopen(name, withCloexec);
    halv_internal_free(withCloexec);
    return fp;
}

} // extern "C"
