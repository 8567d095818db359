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

} // namespace
} // namespace halv

extern "C" {

HALV_API HalvIO *HalvIO_SB(HalvSmartBuffer *sb) noexcept {
    using namespace halv;
    if (sb == nullptr)
        return nullptr;
    SmartBufferStream *s = AllocStreamRecord<SmartBufferStream>();
    if (s == nullptr)
        return nullptr;
    s->sb = sb;
    s->io.close = SBStreamClose;
    s->io.read = SBStreamRead;
    s->io.write = SBStreamWrite;
    s->io.flush = FlushNothing;
    s->io.seek = SBStreamSeek;
    return &s->io;
}

} // extern "C"
