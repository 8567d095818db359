/*
 * streams/smartbuffer_stream.cpp - HalvIO_SB, a stream over a smart
 * buffer that stays the caller's.
 *
 * Reading consumes from the head and writing appends at the tail, so one
 * stream is a pipe that never blocks: a read of 0 only says that nothing is
 * there now.
 */
#include "streams/file_internal.h"
#include "streams/internal.h"

namespace halv {
namespace {

struct SmartBufferStream {
    HalvIO io;
    HalvSmartBuffer *sb;
};

HalvSmartBuffer *BufferOf(HalvIO *io) noexcept { return reinterpret_cast<SmartBufferStream *>(io)->sb; }

int32_t SBStreamRead(HalvIO *io, void *buffer, uint32_t count) noexcept {
    return static_cast<int32_t>(HalvSBRead(BufferOf(io), buffer, ClampSlotCount(count)));
}

int32_t SBStreamWrite(HalvIO *io, const void *bytes, uint32_t count) noexcept {
    return HalvSBAppend(BufferOf(io), bytes, ClampSlotCount(count));
}

int64_t SBStreamSeek(HalvIO *, int64_t, int32_t) noexcept { return -1; }

void SBStreamClose(HalvIO *io) noexcept { halv_internal_free(io); }

/* The slots every stream of this back end starts with. */
constexpr HalvIO kSmartBufferSlots = {
    .copy = nullptr,
    .reservedWord = 0,
    .close = SBStreamClose,
    .read = SBStreamRead,
    .write = SBStreamWrite,
    .flush = FlushNothing,
    .seek = SBStreamSeek,
    .setAutoClose = nullptr,
};

} // namespace
} // namespace halv

extern "C" {

HALV_API HalvIO *HalvIO_SB(HalvSmartBuffer *sb) noexcept {
    using namespace halv;
    if (sb == nullptr)
        return nullptr;
    SmartBufferStream *s = AllocStreamRecord<SmartBufferStream>(kSmartBufferSlots);
    if (s == nullptr)
        return nullptr;
    s->sb = sb;
    return &s->io;
}

} // extern "C"
