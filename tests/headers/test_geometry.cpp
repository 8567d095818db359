// Byte counts of scanlines and window conversions of the generic header.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "dpk_hvsup.h"

namespace {

std::string Join(const uint32_t *v, size_t n) {
    std::string s;
    for (size_t i = 0; i < n; ++i)
        s += (i ? " " : "") + std::to_string(v[i]);
    return s;
}

TEST(ByteCounts, PerSeparationAndArrays) {
    const struct {
        uint32_t bits, pixels, bytes;
    } each[] = {{1, 1000, 125}, {1, 1001, 126}, {8, 3, 3},   {12, 101, 152}, {16, 3, 6},
                {32, 3, 12},    {24, 1, 4},     {0, 100, 0}, {8, 0x20000000u, 0}, // bits x pixels wraps to 0
                {8, 0xFFFFFFFFu, 0x1FFFFFFFu}};                                    // and the sum wraps too
    for (const auto &e : each)
        EXPECT_EQ(HalvCalcBytesPerSep(e.bits, e.pixels), e.bytes) << e.bits << " x " << e.pixels;

    // Natural alignment pads the separation before; at the end the line
    // pads for the next line's first separation.  With an alignment: byte
    // rounding first, then up to the alignment, no moving padding.
    const struct {
        std::vector<uint32_t> bits;
        uint32_t pixels, alignment; // alignment 0: natural
        uint32_t total;
        const char *each;
    } arrays[] = {
        {{8, 16, 8}, 3, 0, 13, "4 6 3"},
        {{16, 8}, 1, 0, 4, "2 2"},
        {{8, 32, 1}, 1, 0, 9, "4 4 1"}, // 1+3 pad, 4, 1; the next line starts with 8 bits
        {{32, 8}, 1, 0, 8, "4 4"},
        {{8, 16}, 3, 4, 12, "4 8"},
        {{12}, 101, 1, 152, "152"}, // (1212+7)>>3
    };
    for (const auto &a : arrays) {
        uint32_t out[4] = {};
        uint32_t n = (uint32_t)a.bits.size();
        uint32_t total = a.alignment ? HalvCalcAlignedBytesArray(out, a.alignment, n, a.bits.data(), a.pixels)
                                     : HalvCalcBytesArray(out, n, a.bits.data(), a.pixels);
        EXPECT_EQ(total, a.total) << a.each;
        const std::string each = a.each;
        EXPECT_EQ(Join(out, 1 + std::count(each.begin(), each.end(), ' ')), a.each);
    }
    uint32_t out[3] = {};
    const uint32_t bits[] = {8, 16, 8};
    EXPECT_EQ(HalvCalcBytesArray(out, 0, bits, 1), 0u);
    EXPECT_EQ(HalvCalcAlignedBytesArray(out, 0, 3, bits, 3), 13u) << "alignment 0 is natural alignment";
}

TEST(ByteCounts, Interleaves) {
    uint32_t out[3] = {7, 7, 7};
    const uint32_t bits[] = {8, 8, 8};
    EXPECT_EQ(HalvCalcInterleaveBytesArray(1, out, 3, bits, 5), 15u);
    EXPECT_EQ(Join(out, 3), "15 0 0");
    uint32_t untouched[3] = {7, 7, 7};
    EXPECT_EQ(HalvCalcInterleaveBytesArray(2, untouched, 3, bits, 5), 0u);
    EXPECT_EQ(HalvCalcInterleaveBytesArray(3, untouched, 3, bits, 5), 0u);
    EXPECT_EQ(HalvCalcAlignedInterleaveBytesArray(2, untouched, 4, 3, bits, 5), 0u);
    EXPECT_EQ(Join(untouched, 3), "7 7 7");
    EXPECT_EQ(HalvCalcAlignedInterleaveBytesArray(1, out, 8, 3, bits, 5), 16u);
    EXPECT_EQ(out[0], 16u);
    EXPECT_EQ(HalvCalcAlignedInterleaveBytesArray(1, out, 0, 3, bits, 5), 15u);
    EXPECT_EQ(HalvCalcAlignedInterleaveBytesArray(0, out, 0, 3, bits, 5), 15u);
    // Null arrays give 0 on every route instead of being touched.
    for (uint32_t alignment : {0u, 8u})
        for (uint32_t interleave : {0u, 1u}) {
            EXPECT_EQ(HalvCalcAlignedInterleaveBytesArray(interleave, nullptr, alignment, 3, bits, 5), 0u);
            EXPECT_EQ(HalvCalcAlignedInterleaveBytesArray(interleave, out, alignment, 3, nullptr, 5), 0u);
        }
    EXPECT_EQ(HalvCalcInterleaveBytesArray(1, nullptr, 3, bits, 5), 0u);
}

HalvHeaderStruct MakeHeader() {
    HalvHeaderStruct header;
    std::memset(&header, 0, sizeof header);
    header.parts[0] = 1;
    header.bitsPerSample[0] = 8;
    header.dims[0] = 40;
    header.dimCount = 2;
    return header;
}

TEST(ByteCounts, HeaderFillInAndTotals) {
    HalvHeaderStruct header = MakeHeader();
    header.minimumChunk = 100;
    header.preferredChunk = 350;
    EXPECT_EQ(HalvHeaderFillInBytes(&header), 40u);
    EXPECT_EQ(header.minimumChunk, 40u);
    EXPECT_EQ(header.preferredChunk, 120u);
    EXPECT_EQ(header.bytesPerSep[0], 40u);
    header.preferredChunk = 0;
    EXPECT_EQ(HalvHeaderFillInBytes(&header), 40u);
    EXPECT_EQ(header.preferredChunk, 1280u);

    // Three separations: scanline and frame interleave count the sum of
    // their lines, pixel interleave the one entry, an unknown one nothing;
    // compressed data and tables count otherwise.
    HalvHeaderStruct rgb = MakeHeader();
    rgb.parts[0] = 2;
    rgb.parts[2] = 1;
    rgb.bitsPerSample[1] = 16;
    rgb.bitsPerSample[2] = 8;
    rgb.dims[0] = 3;
    EXPECT_EQ(HalvHeaderFillInBytes(&rgb), 13u);
    const struct {
        uint32_t interleave;
        int32_t compression, managerType;
        uint32_t total;
    } totals[] = {{0, 0, 0, 13}, {2, 0, 0, 13}, {3, 0, 0, 0}, {1, 0, 0, rgb.bytesPerSep[0]},
                  {1, -1, 0, 1024}, {1, -1, HALV_HDR_INFO, rgb.bytesPerSep[0]}};
    for (const auto &t : totals) {
        rgb.interleave = t.interleave;
        rgb.compression = t.compression;
        rgb.managerType = t.managerType;
        EXPECT_EQ(HalvHeaderGetTotalBytes(&rgb), t.total) << t.interleave << " " << t.compression;
    }

    // Parts that sum past the separations a header holds (or wrap 32 bits)
    // fill the 36 it has and no more: ASan sees a write past bytesPerSep.
    HalvHeaderStruct hostile = MakeHeader();
    hostile.parts[0] = 0xFFFFFFFFu;
    hostile.parts[1] = 2;
    for (uint32_t &bits : hostile.bitsPerSample)
        bits = 8;
    EXPECT_EQ(HalvHeaderFillInBytes(&hostile), 40u * HALV_MAX_SEPARATIONS);
    EXPECT_EQ(HalvHeaderFillInBytes(nullptr), 0u);
    EXPECT_EQ(HalvHeaderGetTotalBytes(nullptr), 0u);
    EXPECT_EQ(HalvHeaderGetPreferredBytes(nullptr), 0u);

    HalvHeaderStruct small = MakeHeader();
    small.bytesPerSep[0] = 100;
    EXPECT_EQ(HalvHeaderGetPreferredBytes(&small), 3200u);
    small.preferredChunk = 500;
    EXPECT_EQ(HalvHeaderGetPreferredBytes(&small), 500u);
}

TEST(Windows, FractionalToPixelAndBack) {
    const struct {
        uint32_t width, height;
        double fwin[4];
        int result;
        int32_t win[4];
    } rows[] = {
        {1000, 500, {0.25, 0.5, 0.5, 0.25}, 1, {250, 250, 500, 125}},
        {1000, 500, {0.1, 0.1, 0.0, 0.0}, 1, {100, 50, 0, 0}},
        {1000, 500, {-0.1, -0.2, 0.5, 0.5}, 1, {-100, -100, 500, 250}},
        // A near edge just above a half rounds down; a far edge rounds up.
        {1000, 1000, {0.00050005, 0.0, 0.0005, 0.0}, 1, {0, 0, 1, 0}},
        {100, 100, {0.0, 0.0, -0.1, 0.5}, 0, {1, 2, 3, 4}}, // refused: the window stays
    };
    for (const auto &r : rows) {
        int32_t win[4] = {1, 2, 3, 4};
        EXPECT_EQ(HalvFWinToWin(r.width, r.height, r.fwin, win), r.result) << r.fwin[0];
        EXPECT_EQ(std::memcmp(win, r.win, sizeof win), 0)
            << r.fwin[0] << ": " << win[0] << " " << win[1] << " " << win[2] << " " << win[3];
    }

    double back[4] = {};
    const int32_t pixels[4] = {250, 250, 500, 125};
    EXPECT_EQ(HalvWinToFWin(1000, 500, pixels, back), 1);
    EXPECT_DOUBLE_EQ(back[0], 0.25);
    EXPECT_DOUBLE_EQ(back[1], 0.5);
    EXPECT_DOUBLE_EQ(back[2], 0.5);
    EXPECT_DOUBLE_EQ(back[3], 0.25);
    EXPECT_EQ(HalvWinToFWin(0, 500, pixels, back), 0);
    const int32_t negativeWin[4] = {-10, 0, -1, 0};
    EXPECT_EQ(HalvWinToFWin(100, 100, negativeWin, back), 1);
    EXPECT_DOUBLE_EQ(back[0], -0.1);
    EXPECT_DOUBLE_EQ(back[2], 4294967295.0 / 100.0); // width is taken unsigned
}

TEST(Windows, Crop) {
    const struct {
        uint32_t width, height;
        int32_t win[4];
        int result;
        int32_t cropped[4];
    } rows[] = {
        {100, 100, {90, 90, 20, 20}, 2, {90, 90, 10, 10}},
        {100, 100, {120, 0, 10, 10}, 2, {100, 0, 0, 10}}, // outside
        {100, 100, {10, 10, 50, 50}, 1, {10, 10, 50, 50}}, // fits
        {100, 100, {50, 50, -20, 10}, 2, {50, 50, 0, 10}}, // inverted
        {0, 100, {1, 2, 3, 4}, 0, {1, 2, 3, 4}},
        {100, 0, {1, 2, 3, 4}, 0, {1, 2, 3, 4}},
    };
    for (const auto &r : rows) {
        int32_t win[4];
        std::memcpy(win, r.win, sizeof win);
        EXPECT_EQ(HalvCropWin(r.width, r.height, win), r.result) << r.win[0] << " " << r.win[2];
        EXPECT_EQ(std::memcmp(win, r.cropped, sizeof win), 0)
            << r.win[0] << ": " << win[0] << " " << win[1] << " " << win[2] << " " << win[3];
    }
}

} // namespace
