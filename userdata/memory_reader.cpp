/*
 * userdata/memory_reader.cpp - a read-only stream over bytes the caller
 * holds, through which HalvSetParam parses the text it builds.
 */
#include "userdata/internal.h"

namespace halv {
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
