/*
 * headers/scanline.cpp - the layout of one stored scanline: how many
 * separations lie side by side in it, how many bytes it has, and the
 * reversal of its samples between byte orders.  The raster formats and
 * every host that walks scanlines share these.
 */
#include "halv_headers.h"
#include "halv_util.h"

namespace {

uint32_t SampleWidth(uint32_t bits) noexcept { return bits > 16 ? 4 : bits > 8 ? 2 : 1; }

/* Reverses every whole group of width bytes in [p, p + n). */
void ReverseGroups(unsigned char *p, uint32_t n, uint32_t width) noexcept {
    if (width == 4)
        HalvSwabLongArray(p, n / 4);
    else if (width == 2)
        HalvSwabShortArray(p, n / 2);
}

} // namespace

extern "C" {

HALV_API uint32_t HalvHeaderSepCount(const HalvHeaderStruct *header) noexcept {
    if (header == nullptr)
        return 0;
    if (header->interleave == 1)
        return 1;
    uint64_t sum = (uint64_t)header->parts[0] + header->parts[1] + header->parts[2];
    return sum > HALV_MAX_SEPARATIONS ? HALV_MAX_SEPARATIONS : (uint32_t)sum;
}

HALV_API uint64_t HalvHeaderLineBytes(const HalvHeaderStruct *header) noexcept {
    uint32_t count = HalvHeaderSepCount(header);
    uint64_t sum = 0;
    for (uint32_t i = 0; i < count; ++i)
        sum += header->bytesPerSep[i];
    return sum;
}

HALV_API void HalvHeaderReverseLines(const HalvHeaderStruct *header, void *data, uint32_t size,
                                     uint32_t lines) noexcept {
    if (header == nullptr || data == nullptr)
        return;
    auto *p = static_cast<unsigned char *>(data);
    uint32_t left = size;
    uint32_t count = HalvHeaderSepCount(header);
    // A stored chunk's line count is whatever its record says: the lines
    // that fit the bytes bound the walk, and lines of no bytes end it.
    uint64_t stride = HalvHeaderLineBytes(header);
    if (stride == 0)
        return;
    uint64_t fitting = ((uint64_t)size + stride - 1) / stride;
    if (lines > fitting)
        lines = (uint32_t)fitting;
    for (uint32_t line = 0; line < lines && left > 0; ++line) {
        for (uint32_t i = 0; i < count && left > 0; ++i) {
            uint32_t n = header->bytesPerSep[i] < left ? header->bytesPerSep[i] : left;
            ReverseGroups(p, n, SampleWidth(header->bitsPerSample[i]));
            p += n;
            left -= n;
        }
    }
}

} // extern "C"
