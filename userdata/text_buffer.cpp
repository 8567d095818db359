/*
 * userdata/text_buffer.cpp - growth of the buffer that collects token text,
 * and the private read-only memory stream that parses caller-built text.
 */
#include "userdata/internal.h"

namespace halv {

/* Doubles, starting at 256 bytes, so collecting a token costs amortised
 * constant time per byte; the length stays within 32 bits. */
bool TextBuffer::Grow(uint32_t more) noexcept {
    const uint64_t needed = (uint64_t)length_ + more;
    if (needed > UINT32_MAX)
        return false;
    uint64_t capacity = capacity_ < 256 ? 256 : capacity_;
    while (capacity < needed)
        capacity *= 2;
    if (capacity > UINT32_MAX)
        capacity = UINT32_MAX;
    auto *grown = static_cast<char *>(halv_internal_realloc(bytes_, (size_t)capacity));
    if (grown == nullptr)
        return false;
    bytes_ = grown;
    capacity_ = (uint32_t)capacity;
    return true;
}

namespace {

int32_t MemoryRead(HalvIO *io, void *buffer, uint32_t count) noexcept {
    auto *reader = reinterpret_cast<MemoryReader *>(io);
    uint32_t left = reader->length - reader->position;
    if (count > left)
        count = left;
    if (count > INT32_MAX)
        count = INT32_MAX;
    if (count == 0)
        return 0;
    std::memcpy(buffer, reader->bytes + reader->position, count);
    reader->position += count;
    return (int32_t)count;
}

int32_t RefuseWrite(HalvIO *, const void *, uint32_t) noexcept { return -1; }
void NoFlush(HalvIO *) noexcept {}
void NoClose(HalvIO *) noexcept {}
int64_t NoSeek(HalvIO *, int64_t, int32_t) noexcept { return -1; }

} // namespace

void OpenMemoryReader(MemoryReader *reader, const void *bytes, uint32_t length) noexcept {
    std::memset(reader, 0, sizeof *reader);
    reader->io.close = NoClose;
    reader->io.read = MemoryRead;
    reader->io.write = RefuseWrite;
    reader->io.flush = NoFlush;
    reader->io.seek = NoSeek;
    reader->bytes = static_cast<const unsigned char *>(bytes);
    reader->length = length;
}

} // namespace halv
