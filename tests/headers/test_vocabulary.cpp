// The image vocabulary: every word both ways, the aliases accepted on
// reading, and the colour facts.
#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <utility>

#include "dpk_hvsup.h"

namespace {

TEST(Vocabulary, ColourWordsAndFacts) {
    for (int32_t code = 0; code <= 116; ++code) {
        if (code == 29)
            code = 100;
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

    // Words match by their beginning, in table order, ignoring case.
    const std::pair<const char *, int32_t> words[] = {
        {"rgbLinearPlus", 2}, {"RGB", 2}, {"kx", 21}, {"Kodak", 21}, {"KODAKYCBCR", 115}, {"unknownThing", 0},
        {"unknownYCbCr", 15}, {"nothing at all", 0}, {"", 0}, {nullptr, 0}, {"xyzicc", 113}, {"xyz", 7},
        {"grey", 1}, {"sgrey", 22}, {"devicegrey", 23}, {"prophotorgb", 19}, {"gencmyk", 107},
        {"gencmy", 106}, {"lstar", 17}, {"hsb", 109}, {"photoycbcr", 115}, {"jpgycbcr", 15}, {"ciecam", 101},
        {"map", 12}, {"sBGR", 13}};
    for (auto [word, code] : words)
        EXPECT_EQ(HalvStr2Clr(word), code) << (word ? word : "null");

    for (auto [code, parts] : {std::pair{14, -1}, {116, -1}, {0, -1}, {28, 8}})
        EXPECT_EQ(HalvGetImageParts(code), parts) << code;
    for (auto [a, b, order] : {std::tuple{2, 6, -1}, {6, 2, 1}, {2, 4, 0}, {2, 500, 4}})
        EXPECT_EQ(HalvCompareColor(a, b), order) << a << " " << b;
    const struct {
        int32_t code;
        uint32_t query;
        int result;
    } queries[] = {{18, HALV_COLOR_RGB, 1},   {18, HALV_COLOR_DEVICE, 1}, {2, HALV_COLOR_DEVICE, 0},
                   {14, HALV_COLOR_PLAIN, 0}, {8, HALV_COLOR_PLAIN, 0},   {0, HALV_COLOR_UNKNOWN, 1},
                   {12, HALV_COLOR_MAP, 1},   {23, HALV_COLOR_GRAY, 1}};
    for (const auto &q : queries)
        EXPECT_EQ(HalvColorQuery(q.code, q.query), q.result) << q.code << " " << q.query;
    for (auto [parts, color] : {std::pair{1, 1}, {3, 2}, {4, 6}, {2, 0}})
        EXPECT_EQ(HalvGetDefaultColor(parts), color) << parts;
}

TEST(Vocabulary, WholeWordVocabularies) {
    for (int32_t code = 0; code <= 18; ++code)
        EXPECT_EQ(HalvStr2Comp(HalvComp2Str(code)), code);
    for (int32_t code = 0; code <= 3; ++code)
        EXPECT_EQ(HalvStr2Interleave(HalvInterleave2Str(code)), code);
    for (int32_t code = 0; code <= 7; ++code)
        EXPECT_EQ(HalvStr2ScanDir(HalvScanDir2Str(code)), code);
    EXPECT_STREQ(HalvComp2Str(14), "base16");
    EXPECT_STREQ(HalvComp2Str(19), "unknown");
    EXPECT_STREQ(HalvInterleave2Str(9), "scanline");
    EXPECT_STREQ(HalvOrient2Str(1), "BT");
    EXPECT_STREQ(HalvOrient2Str(2), "unknown");
    EXPECT_STREQ(HalvScanDir2Str(8), "unknown");

    const struct {
        int32_t (*read)(const char *);
        const char *word;
        int32_t code;
    } rows[] = {
        {HalvStr2Comp, "hex", 14},        {HalvStr2Comp, "HEX", 14},         {HalvStr2Comp, "jpegfoo", -1},
        {HalvStr2Comp, "", -1},           {HalvStr2Comp, nullptr, -1},       {HalvStr2Interleave, "PIXEL", 1},
        {HalvStr2Interleave, "pixels", 0}, {HalvStr2Interleave, nullptr, 0}, {HalvStr2Orient, "TB", 0},
        {HalvStr2Orient, "bt", 1},        {HalvStr2Orient, "LRTB", 0},       {HalvStr2Orient, "LRBT", 1},
        {HalvStr2Orient, "TBLR", -1},     {HalvStr2Orient, "", -1},          {HalvStr2Orient, nullptr, 0},
        {HalvStr2ScanDir, "btlr", 7},     {HalvStr2ScanDir, "TB", -1},       {HalvStr2ScanDir, nullptr, 0},
    };
    for (const auto &r : rows)
        EXPECT_EQ(r.read(r.word), r.code) << (r.word ? r.word : "null");
}

} // namespace
