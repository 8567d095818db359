// Byte counts of scanlines and window conversions of the generic header.
#include <gtest/gtest.h>

#include <cstring>

#include "dpk_hvsup.h"

namespace {

TEST(ByteCounts, PerSeparationRoundingClasses) {
    EXPECT_EQ(HalvCalcBytesPerSep(1, 1000), 125u);
    EXPECT_EQ(HalvCalcBytesPerSep(1, 1001), 126u);
    EXPECT_EQ(HalvCalcBytesPerSep(8, 3), 3u);
    EXPECT_EQ(HalvCalcBytesPerSep(12, 101), 152u);
    EXPECT_EQ(HalvCalcBytesPerSep(16, 3), 6u);
    EXPECT_EQ(HalvCalcBytesPerSep(32, 3), 12u);
    EXPECT_EQ(HalvCalcBytesPerSep(24, 1), 4u);
    EXPECT_EQ(HalvCalcBytesPerSep(0, 100), 0u);
    EXPECT_EQ(HalvCalcBytesPerSep(8, 0x20000000u), 0u);           // bits x pixels wraps to 0
    EXPECT_EQ(HalvCalcBytesPerSep(8, 0xFFFFFFFFu), 0x1FFFFFFFu);  // and the sum wraps too
}

TEST(ByteCounts, NaturalAlignmentPadsTheSeparationBefore) {
    uint32_t out[4] = {};
    const uint32_t bits1[] = {8, 16, 8};
    EXPECT_EQ(HalvCalcBytesArray(out, 3, bits1, 3), 13u);
    EXPECT_EQ(out[0], 4u);
    EXPECT_EQ(out[1], 6u);
    EXPECT_EQ(out[2], 3u);

    const uint32_t bits2[] = {16, 8};
    EXPECT_EQ(HalvCalcBytesArray(out, 2, bits2, 1), 4u);
    EXPECT_EQ(out[0], 2u);
    EXPECT_EQ(out[1], 2u);

    const uint32_t bits3[] = {8, 32, 1};
    EXPECT_EQ(HalvCalcBytesArray(out, 3, bits3, 1), 9u); // 1+3 pad, 4, 1; the next line starts with 8 bits
    EXPECT_EQ(out[0], 4u);
    EXPECT_EQ(out[1], 4u);
    EXPECT_EQ(out[2], 1u);
    const uint32_t bits4[] = {32, 8};
    EXPECT_EQ(HalvCalcBytesArray(out, 2, bits4, 1), 8u); // the end pads for the next line's 32 bits
    EXPECT_EQ(out[0], 4u);
    EXPECT_EQ(out[1], 4u);
    EXPECT_EQ(HalvCalcBytesArray(out, 0, bits3, 1), 0u);

    // Alignment: byte rounding first, then up to the alignment, no moving padding.
    EXPECT_EQ(HalvCalcAlignedBytesArray(out, 4, 2, bits1, 3), 12u);
    EXPECT_EQ(out[0], 4u);
    EXPECT_EQ(out[1], 8u);
    const uint32_t twelve[] = {12};
    EXPECT_EQ(HalvCalcAlignedBytesArray(out, 1, 1, twelve, 101), 152u); // (1212+7)>>3 = 152
    EXPECT_EQ(HalvCalcAlignedBytesArray(out, 0, 3, bits1, 3), 13u);
}

TEST(ByteCounts, Interleaves) {
    uint32_t out[3] = {7, 7, 7};
    const uint32_t bits[] = {8, 8, 8};
    EXPECT_EQ(HalvCalcInterleaveBytesArray(1, out, 3, bits, 5), 15u);
    EXPECT_EQ(out[0], 15u);
    EXPECT_EQ(out[1], 0u);
    EXPECT_EQ(out[2], 0u);
    uint32_t untouched[3] = {7, 7, 7};
    EXPECT_EQ(HalvCalcInterleaveBytesArray(2, untouched, 3, bits, 5), 0u);
    EXPECT_EQ(HalvCalcInterleaveBytesArray(3, untouched, 3, bits, 5), 0u);
    EXPECT_EQ(HalvCalcAlignedInterleaveBytesArray(2, untouched, 4, 3, bits, 5), 0u);
    EXPECT_EQ(untouched[0], 7u);
    EXPECT_EQ(HalvCalcAlignedInterleaveBytesArray(1, out, 8, 3, bits, 5), 16u);
    EXPECT_EQ(out[0], 16u);
    EXPECT_EQ(HalvCalcAlignedInterleaveBytesArray(1, out, 0, 3, bits, 5), 15u);
    EXPECT_EQ(HalvCalcAlignedInterleaveBytesArray(0, out, 0, 3, bits, 5), 15u);
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

    // Three separations, scanline interleave: the sum of their lines.
    HalvHeaderStruct rgb = MakeHeader();
    rgb.parts[0] = 2;
    rgb.parts[2] = 1;
    rgb.bitsPerSample[1] = 16;
    rgb.bitsPerSample[2] = 8;
    rgb.dims[0] = 3;
    EXPECT_EQ(HalvHeaderFillInBytes(&rgb), 13u);
    EXPECT_EQ(HalvHeaderGetTotalBytes(&rgb), 13u);
    rgb.interleave = 2;
    EXPECT_EQ(HalvHeaderGetTotalBytes(&rgb), 13u); // frame counts like scanline
    rgb.interleave = 3;
    EXPECT_EQ(HalvHeaderGetTotalBytes(&rgb), 0u);
    rgb.interleave = 1;
    EXPECT_EQ(HalvHeaderGetTotalBytes(&rgb), rgb.bytesPerSep[0]);
    rgb.compression = -1;
    EXPECT_EQ(HalvHeaderGetTotalBytes(&rgb), 1024u);
    rgb.managerType = HALV_HDR_INFO;
    EXPECT_EQ(HalvHeaderGetTotalBytes(&rgb), rgb.bytesPerSep[0]);

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
    const double fwin[4] = {0.25, 0.5, 0.5, 0.25};
    int32_t win[4] = {};
    EXPECT_EQ(HalvFWinToWin(1000, 500, fwin, win), 1);
    EXPECT_EQ(win[0], 250);
    EXPECT_EQ(win[1], 250);
    EXPECT_EQ(win[2], 500);
    EXPECT_EQ(win[3], 125);

    const double zero[4] = {0.1, 0.1, 0.0, 0.0};
    EXPECT_EQ(HalvFWinToWin(1000, 500, zero, win), 1);
    EXPECT_EQ(win[2], 0);

    const double negative[4] = {-0.1, -0.2, 0.5, 0.5};
    EXPECT_EQ(HalvFWinToWin(1000, 500, negative, win), 1);
    EXPECT_EQ(win[0], -100);
    EXPECT_EQ(win[1], -100);
    EXPECT_EQ(win[2], 500);

    // A near edge just above a half rounds down; a far edge rounds up.
    const double edges[4] = {0.00050005, 0.0, 0.00050005 * 0 + 0.0005, 0.0};
    EXPECT_EQ(HalvFWinToWin(1000, 1000, edges, win), 1);
    EXPECT_EQ(win[0], 0);  // 0.50005 + 0.4999 < 1
    EXPECT_EQ(win[2], 1);  // (0.00100005 * 1000) + 0.5 -> 1, minus 0

    int32_t before[4] = {1, 2, 3, 4};
    const double bad[4] = {0.0, 0.0, -0.1, 0.5};
    EXPECT_EQ(HalvFWinToWin(100, 100, bad, before), 0);
    EXPECT_EQ(before[0], 1);

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
    int32_t win[4] = {90, 90, 20, 20};
    EXPECT_EQ(HalvCropWin(100, 100, win), 2);
    EXPECT_EQ(win[0], 90);
    EXPECT_EQ(win[2], 10);
    EXPECT_EQ(win[3], 10);

    int32_t outside[4] = {120, 0, 10, 10};
    EXPECT_EQ(HalvCropWin(100, 100, outside), 2);
    EXPECT_EQ(outside[0], 100);
    EXPECT_EQ(outside[1], 0);
    EXPECT_EQ(outside[2], 0);
    EXPECT_EQ(outside[3], 10);

    int32_t fits[4] = {10, 10, 50, 50};
    EXPECT_EQ(HalvCropWin(100, 100, fits), 1);
    EXPECT_EQ(fits[2], 50);

    int32_t inverted[4] = {50, 50, -20, 10};
    EXPECT_EQ(HalvCropWin(100, 100, inverted), 2);
    EXPECT_EQ(inverted[0], 50);
    EXPECT_EQ(inverted[2], 0);

    int32_t same[4] = {1, 2, 3, 4};
    EXPECT_EQ(HalvCropWin(0, 100, same), 0);
    EXPECT_EQ(HalvCropWin(100, 0, same), 0);
    EXPECT_EQ(same[0], 1);
}

} // namespace
