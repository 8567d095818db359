/*
 * headers/vocabulary.cpp - the words stored headers use for colour spaces,
 * compressions, interleaves, orientations and scan directions, and the few
 * facts known about each colour space.  Pure table lookups.
 *
 * Colour words are matched by their beginning, in table order, so a longer
 * word that shares a beginning with a shorter one must come first
 * ("xyzicc" before "xyz").  All other words are matched whole.  Case is
 * folded in ASCII terms only.
 */
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

#include "halv_headers.h"
#include "halv_util.h"

namespace {

struct ColorSpace {
    int32_t code;
    const char *word;
    int32_t parts;
    uint32_t classBits;
};

constexpr ColorSpace kColorSpaces[] = {
    {0, "unknown", -1, 0x01},        {1, "grayLinear", 1, 0x4C},  {2, "rgbLinear", 3, 0x4A},
    {3, "yesLinear", 3, 0x48},       {4, "cielab", 3, 0x48},      {5, "cieluv", 3, 0x48},
    {6, "cmykLinear", 4, 0x28},      {7, "xyz", 3, 0x48},         {8, "yhs", 3, 0x50},
    {9, "PhotoYCC", 3, 0x48},        {10, "BGR", 3, 0x4A},        {11, "BuildMap", 1, 0x80},
    {12, "Map", 1, 0x80},            {13, "sBGR", 3, 0x4A},       {14, "MultiPart", -1, 0x20},
    {15, "YCbCr", 3, 0x48},          {16, "faxlab", 3, 0x48},     {17, "itul", 1, 0x4C},
    {18, "DeviceRGB", 3, 0x2A},      {19, "ROMMRGB", 3, 0x4A},    {20, "itulab", 3, 0x48},
    {21, "klinear", 1, 0x4C},        {22, "sLum", 1, 0x4C},       {23, "DeviceGray", 1, 0x2C},
    {24, "sYCC", 3, 0x48},           {25, "Device5INK", 5, 0x28}, {26, "Device6INK", 6, 0x28},
    {27, "Device7INK", 7, 0x28},     {28, "Device8INK", 8, 0x28}, {100, "plRGB", 3, 0x4A},
    {101, "ciecam97s", 3, 0x50},     {102, "cielch", 3, 0x50},    {103, "cmyLinear", 3, 0x28},
    {104, "hclab", 3, 0x48},         {105, "GenRGB", 3, 0x4A},    {106, "DeviceCMY", 3, 0x28},
    {107, "DeviceCMYK", 4, 0x28},    {108, "GenGRAY", 1, 0x4C},   {109, "hsv", 3, 0x50},
    {110, "rlab", 3, 0x48},          {111, "sRGB", 3, 0x4A},      {112, "xyY", 3, 0x48},
    {113, "iccxyz", 3, 0x48},        {114, "lms", 3, 0x48},       {115, "PhotometricYCbCr", 3, 0x48},
    {116, "Spectral", -1, 0x20},
};

/* Words accepted for a colour space, in the order they are tested. */
struct ColorAlias {
    const char *prefix;
    int32_t code;
};

constexpr ColorAlias kColorAliases[] = {
    {"unknownycbcr", 15}, {"kodakycbcr", 115}, {"unknown", 0},
    {"grayLinear", 1},    {"gray", 1},         {"grey", 1},
    {"sLum", 22},         {"sgray", 22},       {"sgrey", 22},
    {"klinear", 21},      {"k", 21},           {"rgbLinear", 2},
    {"rgb", 2},           {"marlorgb", 2},     {"mrgb", 2},
    {"plRGB", 100},       {"plumrgb", 100},    {"sRGB", 111},
    {"sBGR", 13},         {"BGR", 10},         {"GenRGB", 105},
    {"DeviceGray", 23},   {"devicegrey", 23},  {"DeviceRGB", 18},
    {"ROMMRGB", 19},      {"romm", 19},        {"prophotorgb", 19},
    {"cmykLinear", 6},    {"cmyk", 6},         {"cmyLinear", 103},
    {"cmy", 103},         {"DeviceCMYK", 107}, {"gencmyk", 107},
    {"DeviceCMY", 106},   {"gencmy", 106},     {"GenGRAY", 108},
    {"gengrey", 108},     {"yesLinear", 3},    {"yes", 3},
    {"yhs", 8},           {"iccxyz", 113},     {"xyzicc", 113},
    {"xyz", 7},           {"xyY", 112},        {"cielab", 4},
    {"lab", 4},           {"cielch", 102},     {"lch", 102},
    {"cieluv", 5},        {"luv", 5},          {"faxlab", 16},
    {"itulab", 20},       {"itul", 17},        {"lstar", 17},
    {"hclab", 104},       {"hlab", 104},       {"rlab", 110},
    {"ciecam97s", 101},   {"ciecam97", 101},   {"ciecam", 101},
    {"PhotoYCC", 9},      {"ycc", 9},          {"YCbCr", 15},
    {"jpegycbcr", 15},    {"jpgycbcr", 15},    {"PhotometricYCbCr", 115},
    {"photoycbcr", 115},  {"hsv", 109},        {"hsb", 109},
    {"lms", 114},         {"BuildMap", 11},    {"Map", 12},
    {"MultiPart", 14},    {"Spectral", 116},   {"sYCC", 24},
    {"Device5INK", 25},   {"Device6INK", 26},  {"Device7INK", 27},
    {"Device8INK", 28},
};

/* A code and its word, for the vocabularies matched whole. */
struct WordEntry {
    int32_t code;
    const char *word;
};

constexpr WordEntry kCompressions[] = {
    {0, "uncompressed"}, {1, "jpeg"},      {2, "ccitt-g3"},   {3, "ccitt-g4"},   {4, "ccitt-g3-2d"},
    {5, "fg"},           {6, "deflate"},   {7, "jbig2"},      {8, "jpeg2000"},   {9, "hlz"},
    {10, "lzw"},         {11, "ascii85"},  {12, "base64"},    {13, "base32"},    {14, "base16"},
    {15, "predictor"},   {16, "ccitt-rle"}, {17, "ccitt-rlew"}, {18, "jpeg-xr"},
};
constexpr WordEntry kCompressionReadAliases[] = {{14, "hex"}};

constexpr WordEntry kInterleaves[] = {{0, "scanline"}, {1, "pixel"}, {2, "frame"}, {3, "compression"}};

constexpr WordEntry kOrientations[] = {{0, "TB"}, {1, "BT"}};
constexpr WordEntry kOrientationReadAliases[] = {{0, "LRTB"}, {1, "LRBT"}};

constexpr WordEntry kScanDirections[] = {
    {0, "LRTB"}, {1, "LRBT"}, {2, "RLTB"}, {3, "RLBT"}, {4, "TBRL"}, {5, "TBLR"}, {6, "BTRL"}, {7, "BTLR"},
};

/* Whether text begins with prefix, ignoring ASCII case. */
bool BeginsWith(const char *text, const char *prefix) {
    return HalvStrNCaseCmp(text, prefix, (uint32_t)std::strlen(prefix)) == 0;
}

const ColorSpace *FindColor(int32_t code) {
    for (const ColorSpace &space : kColorSpaces)
        if (space.code == code)
            return &space;
    return nullptr;
}

/* The code of a word that equals text as a whole: the written words first,
 * then those accepted only on reading; notFound for null or no match. */
int32_t CodeOfWord(const char *text, std::span<const WordEntry> words, int32_t notFound,
                   std::span<const WordEntry> readAliases = {}) {
    if (text == nullptr)
        return notFound;
    for (auto table : {words, readAliases})
        for (const WordEntry &entry : table)
            if (HalvStrCaseCmp(text, entry.word) == 0)
                return entry.code;
    return notFound;
}

const char *WordOfCode(int32_t code, std::span<const WordEntry> words, const char *fallback) {
    for (const WordEntry &entry : words)
        if (entry.code == code)
            return entry.word;
    return fallback;
}

} // namespace

extern "C" {

HALV_API int32_t HalvStr2Clr(const char *text) noexcept {
    if (text == nullptr)
        return 0;
    for (const ColorAlias &alias : kColorAliases)
        if (BeginsWith(text, alias.prefix))
            return alias.code;
    return 0;
}

HALV_API const char *HalvClr2Str(int32_t code) noexcept {
    const ColorSpace *space = FindColor(code);
    return space != nullptr ? space->word : "Unknown";
}

HALV_API int HalvValidColor(int32_t code) noexcept { return FindColor(code) != nullptr ? 1 : 0; }

HALV_API int32_t HalvGetDefaultColor(int32_t parts) noexcept {
    switch (parts) {
    case 1: return 1;
    case 3: return 2;
    case 4: return 6;
    default: return 0;
    }
}

HALV_API int32_t HalvGetImageParts(int32_t code) noexcept {
    const ColorSpace *space = FindColor(code);
    return space != nullptr ? space->parts : -1;
}

HALV_API int32_t HalvCompareColor(int32_t a, int32_t b) noexcept { return HalvGetImageParts(a) - HalvGetImageParts(b); }

HALV_API int HalvColorQuery(int32_t code, uint32_t mask) noexcept {
    const ColorSpace *space = FindColor(code);
    return space != nullptr && (space->classBits & mask) != 0 ? 1 : 0;
}

HALV_API int32_t HalvStr2Comp(const char *text) noexcept {
    return CodeOfWord(text, kCompressions, -1, kCompressionReadAliases);
}

HALV_API const char *HalvComp2Str(int32_t code) noexcept { return WordOfCode(code, kCompressions, "unknown"); }

HALV_API int32_t HalvStr2Interleave(const char *text) noexcept { return CodeOfWord(text, kInterleaves, 0); }

HALV_API const char *HalvInterleave2Str(int32_t code) noexcept { return WordOfCode(code, kInterleaves, "scanline"); }

HALV_API int32_t HalvStr2Orient(const char *text) noexcept {
    if (text == nullptr)
        return 0;
    return CodeOfWord(text, kOrientations, -1, kOrientationReadAliases);
}

HALV_API const char *HalvOrient2Str(int32_t code) noexcept { return WordOfCode(code, kOrientations, "unknown"); }

HALV_API int32_t HalvStr2ScanDir(const char *text) noexcept {
    if (text == nullptr)
        return 0;
    return CodeOfWord(text, kScanDirections, -1);
}

HALV_API const char *HalvScanDir2Str(int32_t code) noexcept { return WordOfCode(code, kScanDirections, "unknown"); }

} // extern "C"
