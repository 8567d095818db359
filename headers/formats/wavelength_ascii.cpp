/*
 * headers/formats/wavelength_ascii.cpp - the data of "spectral" "1.0-ascii":
 * every sample a number of its own line, " %g", the samples of the first
 * measurement first.  Reading goes token by token through the shared ASCII
 * codec and keeps whole measurements only.
 */
#include "headers/formats/formats.h"

namespace halv {

namespace {

HalvSpectralHeader *AsSpectral(HalvHeaderStruct *header) { return reinterpret_cast<HalvSpectralHeader *>(header); }

/* Bytes that the codec moves for one sample position across parts parts
 * (at most 36). */
uint64_t GroupBytes(const HalvHeaderStruct *header, uint32_t parts) {
    uint64_t bytes = 0;
    for (uint32_t j = 0; j < parts; ++j)
        bytes += TextSampleBytes(header->bitsPerSample[j]);
    return bytes;
}

} // namespace

} // namespace halv

extern "C" {

HALV_API int __HVHdrSpectralLoadChunk_A10(HalvHeaderStruct *header, HalvIO *in, HalvChunk *chunk,
                                          uint32_t measurements) noexcept {
    if (header == nullptr || in == nullptr || chunk == nullptr)
        return 0;
    HalvSpectralHeader *h = halv::AsSpectral(header);
    if (measurements == 0)
        measurements = 1;
    uint32_t total = header->dims[1];
    if (total != 0) {
        uint32_t left = total > h->linesRead ? total - h->linesRead : 0;
        measurements = measurements < left ? measurements : left;
        if (measurements == 0) {
            halv::SpectralEndChunk(h, chunk);
            return 1;
        }
    } else {
        measurements = 1;
    }
    // The codec must neither run past a measurement's bytes nor divide by
    // an empty one.
    uint32_t samples = header->dims[0], parts = header->parts[0];
    if (samples == 0 || parts == 0 || parts > HALV_MAX_SEPARATIONS ||
        samples * halv::GroupBytes(header, parts) > h->bytesPerMeasurement)
        return -1;

    if (h->bufferCapacity < measurements) {
        halv_internal_free(h->chunkBuffer);
        h->chunkBuffer = halv::SpectralAllocate(h->bytesPerMeasurement, measurements, false);
        h->bufferCapacity = h->chunkBuffer != nullptr ? measurements : 0;
    }
    uint32_t got = 0;
    if (h->chunkBuffer != nullptr) {
        void *cursor = h->chunkBuffer;
        // Fits: samples x measurements x 1 byte at least is within the buffer.
        (void)__HVHdrReadAsciiValues(in, header->bitsPerSample, samples * measurements, parts, &cursor, &got);
    }
    if (got % parts != 0)
        return -1;
    uint32_t whole = (uint32_t)(got / ((uint64_t)samples * parts));
    h->linesRead += whole;
    chunk->data = h->chunkBuffer;
    chunk->capacity = h->bufferCapacity * h->bytesPerMeasurement;
    chunk->bytes = h->bytesPerMeasurement * whole;
    chunk->lines = whole;
    chunk->auxWord = 0;
    chunk->flags = whole == measurements ? 0 : HALV_CHUNK_END;
    return 1;
}

HALV_API int __HVHdrSpectralEmitChunk_A10(HalvHeaderStruct *header, HalvChunk *chunk, HalvIO *out) noexcept {
    if (header == nullptr || chunk == nullptr || out == nullptr)
        return 0;
    if (chunk->auxWord != 0)
        return 1; // not sample data: nothing of it is stored
    uint64_t parts = (uint64_t)header->parts[0] + header->parts[1] + header->parts[2];
    if (parts > HALV_MAX_SEPARATIONS)
        return 0;
    uint64_t count = (uint64_t)header->dims[0] * chunk->lines;
    uint64_t need = count * halv::GroupBytes(header, (uint32_t)parts);
    if (count > UINT32_MAX || need > chunk->bytes || (need != 0 && chunk->data == nullptr))
        return 0;
    void *cursor = chunk->data;
    return __HVHdrWriteAsciiValues(out, header->bitsPerSample, (uint32_t)count, (uint32_t)parts, &cursor, 1);
}

} // extern "C"
