/*
 * headers/formats/chunk_records.cpp - stored chunks as the chunked formats
 * keep them: a 16-byte record of four words (payload bytes, lines,
 * auxWord, flags), then the payload.  The stream ends with the last chunk,
 * so its end is a chunk boundary.
 */
#include <cstring>

#include "halv_util.h"
#include "headers/formats/formats.h"

namespace halv {

namespace {

constexpr uint32_t kRecordBytes = 16;
/* The only flags a stored chunk keeps: end of data, and kept by the format. */
constexpr uint32_t kStoredFlags = HALV_CHUNK_END | HALV_CHUNK_STORED;
/* The buffer grows by at most this much ahead of the bytes that have
 * arrived, so a record that claims gigabytes on a short stream fails at
 * the end of the stream, not in an allocation of what it claimed. */
constexpr uint32_t kGrowthStep = 1u << 20;

/* Reads bytes of payload into the buffer, growing it as the bytes arrive;
 * its capacity ends at bytes exactly when it had to grow.  False for a
 * short read, a failed read or no memory. */
bool ReadPayload(HalvIO *in, uint32_t bytes, void **buffer, uint32_t *capacity) {
    uint32_t have = 0;
    while (have < bytes) {
        if (*capacity <= have) {
            uint64_t next = (uint64_t)have + (have > kGrowthStep ? have : kGrowthStep);
            uint32_t size = next < bytes ? (uint32_t)next : bytes;
            void *grown = halv_internal_realloc(*buffer, size);
            if (grown == nullptr)
                return false;
            *buffer = grown;
            *capacity = size;
        }
        uint32_t end = *capacity < bytes ? *capacity : bytes;
        uint32_t piece = end - have;
        int32_t got = HalvIOReadBytes(in, static_cast<unsigned char *>(*buffer) + have, piece);
        if (got < 0 || (uint32_t)got != piece)
            return false;
        have = end;
    }
    return true;
}

} // namespace

int ReadStoredChunk(HalvIO *in, HalvChunk *chunk, bool reverseWords, void **buffer, uint32_t *capacity) noexcept {
    std::memset(chunk, 0, sizeof *chunk);
    unsigned char record[kRecordBytes];
    int32_t got = HalvIOReadBytes(in, record, kRecordBytes);
    if (got == 0) {
        chunk->flags = HALV_CHUNK_END;
        return 1;
    }
    if (got != (int32_t)kRecordBytes)
        return 0;
    uint32_t words[4];
    std::memcpy(words, record, sizeof words);
    if (reverseWords)
        HalvSwabLongArray(words, 4);
    chunk->bytes = words[0];
    chunk->lines = words[1];
    chunk->auxWord = words[2];
    chunk->flags = words[3] & kStoredFlags;

    bool complete = ReadPayload(in, chunk->bytes, buffer, capacity);
    chunk->data = *buffer;
    chunk->capacity = *capacity;
    return complete ? 1 : 0;
}

int WriteStoredChunk(const HalvChunk *chunk, HalvIO *out, bool reverseWords) noexcept {
    uint32_t words[4] = {chunk->bytes, chunk->lines, chunk->auxWord, chunk->flags & kStoredFlags};
    if (reverseWords)
        HalvSwabLongArray(words, 4);
    unsigned char record[kRecordBytes];
    std::memcpy(record, words, sizeof record);
    if (HalvIOWriteBytes(out, record, kRecordBytes) != (int32_t)kRecordBytes)
        return -1;
    return RasterWritePayload(chunk, out);
}

} // namespace halv
