/*
 * streams/io_block.cpp - reading a whole stream into one buffer.
 *
 * A stream that tells its length is read in one go from position 0 into a
 * buffer of exactly that size.  One that can't seek is read from where it
 * stands into a buffer that doubles, starting at 1024 bytes; a pass that
 * fills the buffer exactly means there may be more.
 */
#include "streams/internal.h"

namespace {

constexpr uint32_t kLargestBlock = 0x7FFFFFFE;
constexpr uint32_t kFirstCapacity = 512; /* doubled before the first pass */
constexpr uint32_t kCapacityLimit = 0x7FFFFFFF;

int32_t ReadKnownLength(HalvIO *io, int64_t length, char **data, uint32_t *size) noexcept {
    if (length > kLargestBlock)
        return 0;
    auto wanted = static_cast<uint32_t>(length);
    char *block = static_cast<char *>(halv_internal_malloc(wanted + 1u));
    *data = block;
    *size = wanted;
    if (block == nullptr)
        return 0;
    io->seek(io, 0, 0);
    if (HalvIOReadBytes(io, block, wanted) != static_cast<int32_t>(wanted)) {
        halv_internal_free(block);
        *data = nullptr;
        return 0;
    }
    block[wanted] = '\0';
    return 1;
}

int32_t ReadToEnd(HalvIO *io, char **data, uint32_t *size) noexcept {
    *data = nullptr;
    *size = 0;
    char *block = nullptr;
    uint32_t used = 0;
    uint32_t capacity = kFirstCapacity;
    for (;;) {
        char *grown = capacity < kCapacityLimit
                          ? static_cast<char *>(halv_internal_realloc(block, 2 * static_cast<size_t>(capacity)))
                          : nullptr;
        if (grown == nullptr)
            break;
        block = grown;
        capacity *= 2;
        int32_t got = HalvIOReadBytes(io, block + used, capacity - used);
        if (got < 0)
            break;
        used += static_cast<uint32_t>(got);
        if (used < capacity) {
            block[used] = '\0';
            *data = block;
            *size = used;
            return 1;
        }
    }
    halv_internal_free(block);
    return 0;
}

} // namespace

extern "C" {

HALV_API int32_t HalvIOReadBlock(HalvIO *io, char **data, uint32_t *size) noexcept {
    if (data == nullptr || size == nullptr)
        return 0;
    /* Only -1 says "can't seek"; any other negative answer is no length
     * either, and the stream is read as one that can't seek. */
    int64_t length = io->seek != nullptr ? io->seek(io, 0, 2) : -1;
    if (length >= 0)
        return ReadKnownLength(io, length, data, size);
    return ReadToEnd(io, data, size);
}

} // extern "C"
