/*
 * streams/str_stream.cpp - the string stream over a caller's buffer.
 *
 * A sized stream never lets either pointer pass base + size.  Its write
 * leaves one NUL behind bytes that didn't use up the room, so a token written
 * into it reads as a C string with no step of the caller's.  A stream of
 * size 0 holds NUL-terminated text: reads stop at the NUL and nothing guards
 * the end of the buffer on writes, which is the caller's promise.
 *
 * Bytes move with memmove: the source of a write may lie in the same buffer
 * (a copy between two string streams over one buffer).
 */
#include <cstring>

#include "streams/internal.h"

namespace halv {
namespace {

StrStream *AsStr(HalvIO *io) noexcept { return reinterpret_cast<StrStream *>(io); }

size_t RoomFrom(const StrStream *s, const char *at) noexcept {
    return static_cast<size_t>(s->base + s->size - at);
}

int32_t StrRead(HalvIO *io, void *buffer, uint32_t count) noexcept {
    StrStream *s = AsStr(io);
    count = ClampSlotCount(count);
    size_t n = s->size != 0 ? RoomFrom(s, s->readPtr) : strnlen(s->readPtr, count);
    if (n > count)
        n = count;
    std::memmove(buffer, s->readPtr, n);
    s->readPtr += n;
    return static_cast<int32_t>(n);
}

int32_t StrWrite(HalvIO *io, const void *bytes, uint32_t count) noexcept {
    StrStream *s = AsStr(io);
    count = ClampSlotCount(count);
    if (s->size == 0) {
        std::memmove(s->writePtr, bytes, count);
        s->writePtr += count;
        return static_cast<int32_t>(count);
    }
    size_t room = RoomFrom(s, s->writePtr);
    size_t n = count < room ? count : room;
    std::memmove(s->writePtr, bytes, n);
    s->writePtr += n;
    if (n < room)
        *s->writePtr = '\0';
    return static_cast<int32_t>(n);
}

int64_t StrSeek(HalvIO *io, int64_t offset, int32_t whence) noexcept {
    StrStream *s = AsStr(io);
    /* The text length of an unsized stream costs a scan: only for whence 2. */
    int64_t end = s->size != 0 || whence != 2 ? s->size : static_cast<int64_t>(std::strlen(s->base));
    int64_t reference = SeekReference(whence, s->readPtr - s->base, end);
    if (reference < 0)
        return -1;
    int64_t target = reference + SeekOffset32(offset);
    /* A sized stream refuses its own end: only positions that hold a byte. */
    if (target < 0 || (s->size != 0 && target >= s->size))
        return -1;
    s->readPtr = s->writePtr = s->base + target;
    return target;
}

int32_t StrSetAutoClose(HalvIO *io, int32_t flag) noexcept {
    AsStr(io)->own = flag;
    return flag;
}

void StrClose(HalvIO *io) noexcept {
    StrStream *s = AsStr(io);
    if (s->own)
        halv_internal_free(s->base);
    halv_internal_free(s);
}

void StrConsume(HalvIO *io, size_t n) noexcept { AsStr(io)->readPtr += n; }

} // namespace

/* Only a sized stream has a known end; one of size 0 is read by its slot. */
bool StrPeekReadable(HalvIO *io, ReadView *view) noexcept {
    if (io->read != StrRead || AsStr(io)->size == 0)
        return false;
    StrStream *s = AsStr(io);
    *view = ReadView{s->readPtr, RoomFrom(s, s->readPtr), StrConsume};
    return true;
}

bool StrCanWriteFromView(const HalvIO *dst, const ReadView *) noexcept { return dst->write == StrWrite; }

/* The slots every stream of this back end starts with. */
constexpr HalvIO kStrSlots = {
    .copy = nullptr,
    .reservedWord = 0,
    .close = StrClose,
    .read = StrRead,
    .write = StrWrite,
    .flush = FlushNothing,
    .seek = StrSeek,
    .setAutoClose = StrSetAutoClose,
};

} // namespace halv

using halv::StrStream;

extern "C" {

HALV_API HalvIO *HalvIO_Str(void *buffer, uint32_t size) noexcept {
    if (buffer == nullptr)
        return nullptr;
    auto *s = halv::AllocStreamRecord<StrStream>(halv::kStrSlots);
    if (s == nullptr)
        return nullptr;
    s->base = static_cast<char *>(buffer);
    s->size = size;
    s->readPtr = s->writePtr = s->base;
    return &s->io;
}

HALV_API void HalvIOStrReset(HalvIO *io) noexcept {
    if (io == nullptr || io->close != halv::StrClose)
        return;
    StrStream *s = halv::AsStr(io);
    s->readPtr = s->writePtr = s->base;
}

} // extern "C"
