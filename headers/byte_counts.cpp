/*
 * headers/byte_counts.cpp - how many bytes one scanline of each separation
 * takes, for every interleave, bit depth and alignment.
 *
 * All sums and products are unsigned 32-bit and wrap without notice, as the
 * stored headers that carry these numbers expect; rounding up assumes the
 * alignment is a power of two.
 */
#include "halv_headers.h"

namespace {

uint32_t RoundUp(uint32_t value, uint32_t alignment) { return (value + alignment - 1) & ~(alignment - 1); }

/* The natural boundary a separation of these bits must start on. */
uint32_t NaturalBoundary(uint32_t bits) { return bits > 16 ? 4u : bits > 8 ? 2u : 1u; }

/* Pads total up to the boundary of bits, adding the padding to *owner too. */
void PadTo(uint32_t bits, uint32_t &total, uint32_t *owner) {
    uint32_t padding = RoundUp(total, NaturalBoundary(bits)) - total;
    total += padding;
    *owner += padding;
}

uint32_t PixelInterleavedLine(uint32_t count, const uint32_t *bits, uint32_t pixels) {
    return (bits[0] * count * pixels + 7) >> 3;
}

/* out[0] holds the whole pixel-interleaved line; the rest are 0. */
uint32_t FillPixelInterleaved(uint32_t *out, uint32_t line, uint32_t count) {
    out[0] = line;
    for (uint32_t i = 1; i < count; ++i)
        out[i] = 0;
    return line;
}

/* The array functions' one refusal of null arrays: nothing is read or written. */
bool Missing(const uint32_t *out, const uint32_t *bits) { return out == nullptr || bits == nullptr; }

} // namespace

extern "C" {

HALV_API uint32_t HalvCalcBytesPerSep(uint32_t bits, uint32_t pixels) noexcept {
    uint32_t product = bits * pixels;
    if (bits <= 8)
        return (product + 7) >> 3;
    if (bits <= 16)
        return ((product + 15) >> 4) * 2;
    return ((product + 31) >> 5) * 4;
}

HALV_API uint32_t HalvCalcBytesArray(uint32_t *out, uint32_t count, const uint32_t *bits, uint32_t pixels) noexcept {
    if (count == 0 || Missing(out, bits))
        return 0;
    for (uint32_t i = 0; i < count; ++i)
        out[i] = HalvCalcBytesPerSep(bits[i], pixels);
    uint32_t total = 0;
    for (uint32_t i = 0; i < count; ++i) {
        if (i > 0)
            PadTo(bits[i], total, &out[i - 1]);
        total += out[i];
    }
    PadTo(bits[0], total, &out[count - 1]);
    return total;
}

HALV_API uint32_t HalvCalcInterleaveBytesArray(uint32_t interleave, uint32_t *out, uint32_t count, const uint32_t *bits,
                                               uint32_t pixels) noexcept {
    switch (interleave) {
    case 0: return HalvCalcBytesArray(out, count, bits, pixels);
    case 1:
        if (count == 0 || Missing(out, bits))
            return 0;
        return FillPixelInterleaved(out, PixelInterleavedLine(count, bits, pixels), count);
    default: return 0;
    }
}

HALV_API uint32_t HalvCalcAlignedBytesArray(uint32_t *out, uint32_t alignment, int32_t count, const uint32_t *bits,
                                            uint32_t pixels) noexcept {
    if (alignment == 0)
        return HalvCalcBytesArray(out, (uint32_t)(count < 0 ? 0 : count), bits, pixels);
    if (Missing(out, bits))
        return 0;
    uint32_t total = 0;
    for (int32_t i = 0; i < count; ++i) {
        out[i] = RoundUp((bits[i] * pixels + 7) >> 3, alignment);
        total += out[i];
    }
    return total;
}

HALV_API uint32_t HalvCalcAlignedInterleaveBytesArray(uint32_t interleave, uint32_t *out, uint32_t alignment,
                                                      int32_t count, const uint32_t *bits, uint32_t pixels) noexcept {
    if (interleave == 0)
        return HalvCalcAlignedBytesArray(out, alignment, count, bits, pixels);
    if (interleave != 1 || count <= 0 || Missing(out, bits))
        return 0;
    if (alignment == 0)
        return HalvCalcInterleaveBytesArray(1, out, (uint32_t)count, bits, pixels);
    uint32_t line = RoundUp(PixelInterleavedLine((uint32_t)count, bits, pixels), alignment);
    return FillPixelInterleaved(out, line, (uint32_t)count);
}

HALV_API uint32_t HalvHeaderFillInBytes(HalvHeaderStruct *header) noexcept {
    if (header == nullptr)
        return 0;
    /* Summed in 64 bits: three hostile parts can't wrap below the limit. */
    uint64_t sum = uint64_t{header->parts[0]} + header->parts[1] + header->parts[2];
    uint32_t separations = sum > HALV_MAX_SEPARATIONS ? HALV_MAX_SEPARATIONS : static_cast<uint32_t>(sum);
    uint32_t line = HalvCalcAlignedInterleaveBytesArray(header->interleave, header->bytesPerSep, header->alignment,
                                                        (int32_t)separations, header->bitsPerSample, header->dims[0]);
    if (header->preferredChunk != 0 && header->minimumChunk != 0 && header->preferredChunk >= header->minimumChunk) {
        uint32_t ratio = header->preferredChunk / header->minimumChunk;
        header->minimumChunk = line;
        header->preferredChunk = ratio * line;
    } else {
        header->preferredChunk = line * 32;
        header->minimumChunk = line;
    }
    return line;
}

HALV_API uint32_t HalvHeaderGetTotalBytes(const HalvHeaderStruct *header) noexcept {
    if (header == nullptr)
        return 0;
    if (header->managerType == HALV_HDR_INFO)
        return header->bytesPerSep[0];
    if (header->compression != 0)
        return 1024;
    switch (header->interleave) {
    case 1: return header->bytesPerSep[0];
    case 0:
    case 2: {
        uint32_t separations = header->parts[0] + header->parts[1] + header->parts[2];
        uint32_t total = 0;
        for (uint32_t i = 0; i < separations && i < HALV_MAX_SEPARATIONS; ++i)
            total += header->bytesPerSep[i];
        return total;
    }
    default: return 0;
    }
}

HALV_API uint32_t HalvHeaderGetPreferredBytes(const HalvHeaderStruct *header) noexcept {
    if (header == nullptr)
        return 0;
    uint32_t total = HalvHeaderGetTotalBytes(header);
    return header->preferredChunk < total ? total * 32 : header->preferredChunk;
}

} // extern "C"
