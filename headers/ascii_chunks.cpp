/*
 * headers/ascii_chunks.cpp - whole chunks and mixed-width runs of samples
 * as text: one token for each 8-bit, 16-bit or float sample, two for a
 * complex (64-bit) one.
 *
 * One codec for each width moves a sample between memory and the stream;
 * memory is reached with memcpy, since a cursor over mixed widths is not
 * aligned.
 */
#include <cstring>

#include "headers/internal.h"

namespace {

struct SampleCodec {
    uint32_t bits;
    uint32_t bytes;
    int (*read)(HalvIO *in, unsigned char *sample);   /* 0, 1 no number, -1 end */
    int (*write)(HalvIO *out, const unsigned char *sample); /* 0, -1 short */
};

int ReadNarrow(HalvIO *in, unsigned char *sample, uint32_t bytes) {
    uint32_t value = 0;
    int result = __HVHdrReadAsciiInt(in, &value);
    if (result != 0)
        return result;
    if (bytes == 1) {
        sample[0] = (unsigned char)value;
    } else {
        uint16_t low = (uint16_t)value;
        std::memcpy(sample, &low, sizeof low);
    }
    return 0;
}

int WriteNarrow(HalvIO *out, const unsigned char *sample, uint32_t bytes) {
    uint32_t value = sample[0];
    if (bytes == 2) {
        uint16_t word;
        std::memcpy(&word, sample, sizeof word);
        value = word;
    }
    return __HVHdrWriteAsciiInt(out, &value);
}

int ReadFloats(HalvIO *in, unsigned char *sample, int count) {
    float values[2] = {};
    int result = count == 1 ? __HVHdrReadAsciiFloat(in, values) : __HVHdrReadAsciiComplex(in, values);
    if (result == 0)
        std::memcpy(sample, values, sizeof(float) * (size_t)count);
    return result;
}

int WriteFloats(HalvIO *out, const unsigned char *sample, int count) {
    float values[2];
    std::memcpy(values, sample, sizeof(float) * (size_t)count);
    return count == 1 ? __HVHdrWriteAsciiFloat(out, values) : __HVHdrWriteAsciiComplex(out, values);
}

constexpr SampleCodec kCodecs[] = {
    {8, 1, [](HalvIO *in, unsigned char *s) { return ReadNarrow(in, s, 1); },
     [](HalvIO *out, const unsigned char *s) { return WriteNarrow(out, s, 1); }},
    {16, 2, [](HalvIO *in, unsigned char *s) { return ReadNarrow(in, s, 2); },
     [](HalvIO *out, const unsigned char *s) { return WriteNarrow(out, s, 2); }},
    {32, 4, [](HalvIO *in, unsigned char *s) { return ReadFloats(in, s, 1); },
     [](HalvIO *out, const unsigned char *s) { return WriteFloats(out, s, 1); }},
    {64, 8, [](HalvIO *in, unsigned char *s) { return ReadFloats(in, s, 2); },
     [](HalvIO *out, const unsigned char *s) { return WriteFloats(out, s, 2); }},
};

const SampleCodec *CodecFor(uint32_t bits) {
    for (const SampleCodec &codec : kCodecs)
        if (codec.bits == bits)
            return &codec;
    return nullptr;
}

const unsigned char kLineFeed = '\n';

/* count samples as one line; a stream that ends before the first sample
 * gives an empty last chunk. */
int LoadChunk(const SampleCodec &codec, HalvIO *in, HalvChunk *chunk, uint32_t count) {
    if (in == nullptr || chunk == nullptr || count == 0)
        return 0;
    uint64_t bytes = (uint64_t)count * codec.bytes;
    if (bytes > UINT32_MAX)
        return 0;
    // A buffer the caller brings must hold count values; where its capacity
    // is told (not 0) and too small, nothing is read into it.
    if (chunk->data != nullptr && chunk->capacity != 0 && chunk->capacity < bytes)
        return 0;
    if (chunk->data == nullptr) {
        chunk->data = halv_internal_calloc((size_t)bytes, 1);
        if (chunk->data == nullptr)
            return 0;
        chunk->capacity = (uint32_t)bytes;
    }
    chunk->flags = 0;
    chunk->lines = 1;
    chunk->bytes = (uint32_t)bytes;
    auto *sample = static_cast<unsigned char *>(chunk->data);
    for (uint32_t i = 0; i < count; ++i, sample += codec.bytes) {
        int result = codec.read(in, sample);
        if (result == -1 && i == 0) {
            chunk->lines = 0;
            chunk->bytes = 0;
            chunk->flags = 1;
            return 1;
        }
        if (result != 0)
            return 0;
    }
    return 1;
}

/* The number of samples comes from the chunk's bytes; number only has to
 * be nonzero. */
int EmitChunk(const SampleCodec &codec, HalvIO *out, HalvChunk *chunk, uint32_t number) {
    if (out == nullptr || chunk == nullptr || chunk->data == nullptr || number == 0)
        return 0;
    const auto *sample = static_cast<const unsigned char *>(chunk->data);
    for (uint32_t i = 0; i < chunk->bytes / codec.bytes; ++i, sample += codec.bytes)
        if (codec.write(out, sample) != 0)
            return 0;
    if (chunk->bytes % codec.bytes != 0)
        return -1;
    if (out->write != nullptr)
        (void)out->write(out, &kLineFeed, 1);
    return 1;
}

} // namespace

extern "C" {

HALV_API int HVHdrLoadChunk_Ascii_8(HalvIO *in, HalvChunk *chunk, uint32_t count) noexcept {
    return LoadChunk(*CodecFor(8), in, chunk, count);
}
HALV_API int HVHdrLoadChunk_Ascii_16(HalvIO *in, HalvChunk *chunk, uint32_t count) noexcept {
    return LoadChunk(*CodecFor(16), in, chunk, count);
}
HALV_API int HVHdrLoadChunk_Ascii_32(HalvIO *in, HalvChunk *chunk, uint32_t count) noexcept {
    return LoadChunk(*CodecFor(32), in, chunk, count);
}
HALV_API int HVHdrLoadChunk_Ascii_64(HalvIO *in, HalvChunk *chunk, uint32_t count) noexcept {
    return LoadChunk(*CodecFor(64), in, chunk, count);
}

HALV_API int HVHdrEmitChunk_Ascii_8(HalvIO *out, HalvChunk *chunk, uint32_t number) noexcept {
    return EmitChunk(*CodecFor(8), out, chunk, number);
}
HALV_API int HVHdrEmitChunk_Ascii_16(HalvIO *out, HalvChunk *chunk, uint32_t number) noexcept {
    return EmitChunk(*CodecFor(16), out, chunk, number);
}
HALV_API int HVHdrEmitChunk_Ascii_32(HalvIO *out, HalvChunk *chunk, uint32_t number) noexcept {
    return EmitChunk(*CodecFor(32), out, chunk, number);
}
HALV_API int HVHdrEmitChunk_Ascii_64(HalvIO *out, HalvChunk *chunk, uint32_t number) noexcept {
    return EmitChunk(*CodecFor(64), out, chunk, number);
}

HALV_API int __HVHdrReadAsciiValues(HalvIO *in, const uint32_t *bits, uint32_t count, uint32_t parts, void **cursor,
                                    uint32_t *read) noexcept {
    if (in == nullptr || (bits == nullptr && parts != 0) || cursor == nullptr || read == nullptr)
        return 0;
    int result = 1;
    for (uint32_t i = 0; i < count && result == 1; ++i) {
        for (uint32_t j = 0; j < parts && result == 1; ++j) {
            const SampleCodec *codec = CodecFor(bits[j]);
            if (codec == nullptr) {
                result = 0;
            } else if (codec->read(in, static_cast<unsigned char *>(*cursor)) != 0) {
                result = -1;
            } else {
                ++*read;
                *cursor = static_cast<unsigned char *>(*cursor) + codec->bytes;
            }
        }
    }
    return result;
}

HALV_API int __HVHdrWriteAsciiValues(HalvIO *out, const uint32_t *bits, uint32_t count, uint32_t parts,
                                     void **cursor, int32_t flag) noexcept {
    if (out == nullptr || (bits == nullptr && parts != 0) || cursor == nullptr)
        return 0;
    int result = 1;
    auto lineFeed = [&] {
        if (HalvIOWriteBytes(out, &kLineFeed, 1) != 1)
            result = -1;
    };
    for (uint32_t i = 0; i < count; ++i) {
        for (uint32_t j = 0; j < parts; ++j) {
            const SampleCodec *codec = CodecFor(bits[j]);
            if (codec == nullptr) {
                result = 0;
            } else {
                if (codec->write(out, static_cast<const unsigned char *>(*cursor)) != 0)
                    result = -1;
                *cursor = static_cast<unsigned char *>(*cursor) + codec->bytes;
            }
            if (flag != 0)
                lineFeed();
        }
        if (flag == 0)
            lineFeed();
    }
    return result;
}

} // extern "C"
