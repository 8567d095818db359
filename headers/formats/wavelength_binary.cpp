/*
 * headers/formats/wavelength_binary.cpp - the data of "spectral"
 * "1.0-binary": measurements x samples floats of 4 bytes with nothing
 * between them, in the byte order of the machine that wrote them (no key
 * names it, and nothing is reversed).
 */
#include <cstring>

#include "headers/formats/formats.h"

namespace {

/* Measurements of a load that asks for none. */
constexpr uint32_t kDefaultMeasurements = 5;

HalvSpectralHeader *AsSpectral(HalvHeaderStruct *header) { return reinterpret_cast<HalvSpectralHeader *>(header); }

} // namespace

extern "C" {

HALV_API int __HVHdrSpectralLoadChunk_B10(HalvHeaderStruct *header, HalvIO *in, HalvChunk *chunk,
                                          uint32_t measurements) noexcept {
    if (header == nullptr || in == nullptr || chunk == nullptr)
        return 0;
    HalvSpectralHeader *h = AsSpectral(header);
    if (measurements == 0)
        measurements = kDefaultMeasurements;
    int result = 1;
    uint32_t size = h->bytesPerMeasurement;
    if (size == 0)
        return 1;
    uint32_t total = header->dims[1];
    if (total != 0) {
        uint32_t left = total > h->linesRead ? total - h->linesRead : 0;
        measurements = measurements < left ? measurements : left;
    } else {
        measurements = 1;
    }
    // A larger buffer that can't be had leaves the one there is: fewer
    // measurements than asked for, and the caller goes on.
    if (measurements > h->bufferCapacity) {
        void *grown = halv::SpectralAllocate(size, measurements, true);
        if (grown != nullptr) {
            halv_internal_free(h->chunkBuffer);
            h->chunkBuffer = grown;
            h->bufferCapacity = measurements;
        } else {
            measurements = h->bufferCapacity;
            result = measurements != 0 ? 2 : 0;
        }
    }
    chunk->auxWord = 0;
    if (measurements == 0) {
        halv::SpectralEndChunk(h, chunk);
        return result;
    }
    uint32_t want = size * measurements; // within the buffer, at most 256 MiB
    int32_t got = HalvIOReadBytes(in, h->chunkBuffer, want);
    if (got > 0) {
        // A short read still counts whole measurements; what didn't come
        // reads as zeros, not as the last load's samples.
        if ((uint32_t)got < want)
            std::memset(static_cast<unsigned char *>(h->chunkBuffer) + got, 0, want - (uint32_t)got);
        chunk->data = h->chunkBuffer;
        chunk->capacity = h->bufferCapacity * size;
        chunk->bytes = want;
        chunk->lines = measurements;
        chunk->flags = 0;
    } else {
        halv::SpectralEndChunk(h, chunk);
        measurements = 0;
    }
    h->linesRead += measurements;
    if (total != 0 && h->linesRead >= total)
        chunk->flags |= HALV_CHUNK_END;
    return result;
}

HALV_API int __HVHdrSpectralEmitChunk_B10(HalvHeaderStruct *header, HalvChunk *chunk, HalvIO *out) noexcept {
    if (header == nullptr || chunk == nullptr || out == nullptr || (chunk->bytes != 0 && chunk->data == nullptr))
        return 0;
    (void)HalvIOWriteBytes(out, chunk->data, chunk->bytes);
    return 1;
}

} // extern "C"
