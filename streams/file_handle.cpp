/*
 * streams/file_handle.cpp - HalvIO_HANDLE, the stream over a platform file
 * handle, which on this platform is a descriptor carried in a machine word.
 *
 * Unlike the descriptor stream it hides failures of read and write as 0,
 * moves to the end before each write of an append stream, and leaves the
 * refusal of a seek to the system.  HalvIO_FileName and HalvIO_Mktemp build
 * on it.
 */
#include <sys/stat.h>
#include <unistd.h>

#include "streams/file_internal.h"
#include "streams/internal.h"

namespace halv {
namespace {

HandleStream *AsHandle(HalvIO *io) noexcept { return reinterpret_cast<HandleStream *>(io); }

int Descriptor(const HandleStream *s) noexcept { return static_cast<int>(s->handle); }

int32_t HandleRead(HalvIO *io, void *buffer, uint32_t count) noexcept {
    ssize_t n = ReadRetrying(Descriptor(AsHandle(io)), buffer, ClampFileCount(count));
    return n < 0 ? 0 : static_cast<int32_t>(n);
}

int32_t HandleWrite(HalvIO *io, const void *bytes, uint32_t count) noexcept {
    HandleStream *s = AsHandle(io);
    if (s->append && lseek(Descriptor(s), 0, SEEK_END) < 0)
        return 0;
    ssize_t n = WriteRetrying(Descriptor(s), bytes, ClampFileCount(count));
    return n < 0 ? 0 : static_cast<int32_t>(n);
}

int64_t HandleSeek(HalvIO *io, int64_t offset, int32_t whence) noexcept {
    int origin = SeekOrigin(whence);
    return lseek(Descriptor(AsHandle(io)), static_cast<off_t>(offset), origin < 0 ? SEEK_SET : origin);
}

int32_t HandleSetAutoClose(HalvIO *io, int32_t flag) noexcept {
    AsHandle(io)->autoClose = flag;
    return flag;
}

void HandleClose(HalvIO *io) noexcept {
    HandleStream *s = AsHandle(io);
    if (s->autoClose)
        close(Descriptor(s));
    halv_internal_free(s);
}

/* The slots every stream of this back end starts with. */
constexpr HalvIO kHandleSlots = {
    .copy = nullptr,
    .reservedWord = 0,
    .close = HandleClose,
    .read = HandleRead,
    .write = HandleWrite,
    .flush = FlushNothing,
    .seek = HandleSeek,
    .setAutoClose = HandleSetAutoClose,
};

} // namespace
} // namespace halv

extern "C" {

HALV_API HalvIO *HalvIO_HANDLE(intptr_t handle) noexcept {
    using namespace halv;
    HandleStream *s = AllocStreamRecord<HandleStream>(kHandleSlots);
    if (s == nullptr)
        return nullptr;
    struct stat info;
    s->handle = handle;
    s->seekable = fstat(static_cast<int>(handle), &info) == 0 && (S_ISREG(info.st_mode) || S_ISBLK(info.st_mode));
    return &s->io;
}

} // extern "C"
