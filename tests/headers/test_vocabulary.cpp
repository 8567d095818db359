// The image vocabulary: every word both ways, the aliases accepted on
// reading, and the colour facts.
#include <gtest/gtest.h>

#include <string>

#include "dpk_hvsup.h"

namespace {

const int32_t kColorCodes[] = {0,  1,  2,  3,  4,  5,   6,   7,   8,   9,   10,  11,  12,  13,  14,  15,
                               16, 17, 18, 19, 20, 21,  22,  23,  24,  25,  26,  27,  28,  100, 101, 102,
                               103, 104, 105, 106, 107, 108, 109, 110, 111, 112, 113, 114, 115, 116};

TEST(Vocabulary, EveryColourWordReadsBackToItsCode) {
    for (int32_t code : kColorCodes) {
        ASSERT_EQ(HalvValidColor(code), 1) << code;
        std::string word = HalvClr2Str(code);
        EXPECT_EQ(HalvStr2Clr(word.c_str()), code) << word;
    }
    for (int32_t code : {29, 50, 99, 117, -1, 1000}) {
        EXPECT_EQ(HalvValidColor(code), 0) << code;
        EXPECT_STREQ(HalvClr2Str(code), "Unknown");
        EXPECT_EQ(HalvGetImageParts(code), -1);
        EXPECT_EQ(HalvColorQuery(code, 0xFF), 0);
    }
    EXPECT_STREQ(HalvClr2Str(0), "unknown");
}

TEST(Vocabulary, ColourWordsMatchByTheirBeginningInTableOrder) {
    EXPECT_EQ(HalvStr2Clr("rgbLinearPlus"), 2);
    EXPECT_EQ(HalvStr2Clr("RGB"), 2);
    EXPECT_EQ(HalvStr2Clr("kx"), 21);
    EXPECT_EQ(HalvStr2Clr("Kodak"), 21);
    EXPECT_EQ(HalvStr2Clr("KODAKYCBCR"), 115);
    EXPECT_EQ(HalvStr2Clr("unknownThing"), 0);
    EXPECT_EQ(HalvStr2Clr("unknownYCbCr"), 15);
    EXPECT_EQ(HalvStr2Clr("nothing at all"), 0);
    EXPECT_EQ(HalvStr2Clr(""), 0);
    EXPECT_EQ(HalvStr2Clr(nullptr), 0);
    EXPECT_EQ(HalvStr2Clr("xyzicc"), 113);
    EXPECT_EQ(HalvStr2Clr("xyz"), 7);
    EXPECT_EQ(HalvStr2Clr("grey"), 1);
    EXPECT_EQ(HalvStr2Clr("sgrey"), 22);
    EXPECT_EQ(HalvStr2Clr("devicegrey"), 23);
    EXPECT_EQ(HalvStr2Clr("prophotorgb"), 19);
    EXPECT_EQ(HalvStr2Clr("gencmyk"), 107);
    EXPECT_EQ(HalvStr2Clr("gencmy"), 106);
    EXPECT_EQ(HalvStr2Clr("lstar"), 17);
    EXPECT_EQ(HalvStr2Clr("hsb"), 109);
    EXPECT_EQ(HalvStr2Clr("photoycbcr"), 115);
    EXPECT_EQ(HalvStr2Clr("jpgycbcr"), 15);
    EXPECT_EQ(HalvStr2Clr("ciecam"), 101);
    EXPECT_EQ(HalvStr2Clr("map"), 12);
    EXPECT_EQ(HalvStr2Clr("sBGR"), 13);
}

TEST(Vocabulary, ColourFacts) {
    EXPECT_EQ(HalvGetImageParts(14), -1);
    EXPECT_EQ(HalvGetImageParts(116), -1);
    EXPECT_EQ(HalvGetImageParts(0), -1);
    EXPECT_EQ(HalvGetImageParts(28), 8);
    EXPECT_EQ(HalvCompareColor(2, 6), -1);
    EXPECT_EQ(HalvCompareColor(6, 2), 1);
    EXPECT_EQ(HalvCompareColor(2, 4), 0);
    EXPECT_EQ(HalvCompareColor(2, 500), 4);
    EXPECT_EQ(HalvColorQuery(18, HALV_COLOR_RGB), 1);
    EXPECT_EQ(HalvColorQuery(18, HALV_COLOR_DEVICE), 1);
    EXPECT_EQ(HalvColorQuery(2, HALV_COLOR_DEVICE), 0);
    EXPECT_EQ(HalvColorQuery(14, HALV_COLOR_PLAIN), 0);
    EXPECT_EQ(HalvColorQuery(8, HALV_COLOR_PLAIN), 0);
    EXPECT_EQ(HalvColorQuery(0, HALV_COLOR_UNKNOWN), 1);
    EXPECT_EQ(HalvColorQuery(12, HALV_COLOR_MAP), 1);
    EXPECT_EQ(HalvColorQuery(23, HALV_COLOR_GRAY), 1);
    EXPECT_EQ(HalvGetDefaultColor(1), 1);
    EXPECT_EQ(HalvGetDefaultColor(3), 2);
    EXPECT_EQ(HalvGetDefaultColor(4), 6);
    EXPECT_EQ(HalvGetDefaultColor(2), 0);
}

TEST(Vocabulary, WholeWordVocabularies) {
    for (int32_t code = 0; code <= 18; ++code)
        EXPECT_EQ(HalvStr2Comp(HalvComp2Str(code)), code);
    EXPECT_EQ(HalvStr2Comp("hex"), 14);
    EXPECT_EQ(HalvStr2Comp("HEX"), 14);
    EXPECT_STREQ(HalvComp2Str(14), "base16");
    EXPECT_EQ(HalvStr2Comp("jpegfoo"), -1);
    EXPECT_EQ(HalvStr2Comp(""), -1);
    EXPECT_EQ(HalvStr2Comp(nullptr), -1);
    EXPECT_STREQ(HalvComp2Str(19), "unknown");

    for (int32_t code = 0; code <= 3; ++code)
        EXPECT_EQ(HalvStr2Interleave(HalvInterleave2Str(code)), code);
    EXPECT_EQ(HalvStr2Interleave("PIXEL"), 1);
    EXPECT_EQ(HalvStr2Interleave("pixels"), 0);
    EXPECT_EQ(HalvStr2Interleave(nullptr), 0);
    EXPECT_STREQ(HalvInterleave2Str(9), "scanline");

    EXPECT_EQ(HalvStr2Orient("TB"), 0);
    EXPECT_EQ(HalvStr2Orient("bt"), 1);
    EXPECT_EQ(HalvStr2Orient("LRTB"), 0);
    EXPECT_EQ(HalvStr2Orient("LRBT"), 1);
    EXPECT_EQ(HalvStr2Orient("TBLR"), -1);
    EXPECT_EQ(HalvStr2Orient(""), -1);
    EXPECT_EQ(HalvStr2Orient(nullptr), 0);
    EXPECT_STREQ(HalvOrient2Str(1), "BT");
    EXPECT_STREQ(HalvOrient2Str(2), "unknown");

    for (int32_t code = 0; code <= 7; ++code)
        EXPECT_EQ(HalvStr2ScanDir(HalvScanDir2Str(code)), code);
    EXPECT_EQ(HalvStr2ScanDir("btlr"), 7);
    EXPECT_EQ(HalvStr2ScanDir("TB"), -1);
    EXPECT_EQ(HalvStr2ScanDir(nullptr), 0);
    EXPECT_STREQ(HalvScanDir2Str(8), "unknown");
}

} // namespace
