/*
 * streams/file_fd.cpp - HalvIO_FD, the stream over a descriptor.
 *
 * The slots hand on the results of read, write and lseek as they are.  The
 * stream refuses to seek unless the descriptor was a regular file when the
 * stream was made, so that pipes and terminals read forward only.
 */
#include <unistd.h>

#include "streams/file_internal.h"
#include "streams/internal.h"

namespace halv {
namespace {

struct FdStream {
    HalvIO io;
    int32_t fd;
    int32_t seekable;
    int32_t autoClose;
};

FdStream *AsFd(HalvIO *io) noexcept { return reinterpret_cast<FdStream *>(io); }

int32_t FdRead(HalvIO *io, void *buffer, uint32_t count) noexcept {
    return static_cast<int32_t>(ReadRetrying(AsFd(io)->fd, buffer, ClampFileCount(count)));
}

int32_t FdWrite(HalvIO *io, const void *bytes, uint32_t count) noexcept {
    return static_cast<int32_t>(WriteRetrying(AsFd(io)->fd, bytes, ClampFileCount(count)));
}

int64_t FdSeek(HalvIO *io, int64_t offset, int32_t whence) noexcept {
    FdStream *s = AsFd(io);
    int origin = SeekOrigin(whence);
    if (!s->seekable || origin < 0)
        return -1;
    return lseek(s->fd, static_cast<off_t>(offset), origin);
}

int32_t FdSetAutoClose(HalvIO *io, int32_t flag) noexcept {
    AsFd(io)->autoClose = flag;
    return flag;
}

void FdClose(HalvIO *io) noexcept {
    FdStream *s = AsFd(io);
    if (s->autoClose)
        close(s->fd);
    halv_internal_free(s);
}

/* The slots every stream of this back end starts with. */
constexpr HalvIO kFdSlots = {
    .copy = nullptr,
    .reservedWord = 0,
    .close = FdClose,
    .read = FdRead,
    .write = FdWrite,
    .flush = FlushNothing,
    .seek = FdSeek,
    .setAutoClose = FdSetAutoClose,
};

} // namespace
} // namespace halv

extern "C" {

/* Files have no text mode here, so standard input and output need no
 * switch to binary. */
HALV_API HalvIO *HalvIO_FD(int fd) noexcept {
    using namespace halv;
    FdStream *s = AllocStreamRecord<FdStream>(kFdSlots);
    if (s == nullptr)
        return nullptr;
    s->fd = fd;
    s->seekable = IsRegularFile(fd);
    return &s->io;
}

} // extern "C"
