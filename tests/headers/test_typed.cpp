// Keys of a header tree as arrays of integers, floats and doubles, and the
// resolution and units kept in section Origin.
#include <gtest/gtest.h>

#include <cfloat>
#include <clocale>
#include <cmath>
#include <sstream>
#include <string>

#include "dpk_hvsup.h"
#include "headers/support.h"

using hdr_test::Parse;
using hdr_test::Text;

namespace {

std::string Value(HalvUserCMData *tree, const char *section, const char *key) {
    char **list = nullptr;
    int n = HVHdrGetHeaderList(tree, section, key, &list);
    std::string all;
    for (int i = 0; i < n; ++i)
        all += std::string(list[i]) + "|";
    HVHdrFreeList(&list);
    return all;
}

/* "result count: v0 v1 ..." of a typed get into capacity entries that
 * hold 9 beforehand; all entries are shown, so that untouched ones show. */
template <class T>
std::string Got(int (*get)(HalvUserCMData *, const char *, const char *, T *, uint32_t *),
                HalvUserCMData *tree, const char *section, const char *key, uint32_t capacity) {
    T values[8] = {9, 9, 9, 9, 9, 9, 9, 9};
    uint32_t n = capacity;
    std::ostringstream s;
    s << get(tree, section, key, values, &n) << " " << n << ":";
    for (uint32_t i = 0; i < capacity; ++i)
        s << " " << values[i];
    return s.str();
}

TEST(TypedKeys, SetWritesLinesOfPerLineNumbers) {
    HalvUserCMData *tree = nullptr;
    const int32_t ints[] = {3, 0, 0};
    tree = HVHdrSetHeaderInts(tree, "Raster", "imageParts", ints, 3, 3);
    EXPECT_EQ(Text(tree), "[Raster]\nimageParts: 3 0 0\n");
    const int32_t table[] = {1, -2, 3, 4, 5, 6, 7};
    tree = HVHdrSetHeaderInts(tree, "Raster", "table", table, 7, 3);
    EXPECT_EQ(Value(tree, "Raster", "table"), "1 -2 3|4 5 6|7 |");
    const float f[] = {0.5f, -1.25f};
    tree = HVHdrSetHeaderFloats(tree, "Origin", "pair", f, 2, 2);
    EXPECT_EQ(HVHdrGetHeaderParam(tree, "Origin", "pair"), std::string("0.500000 -1.250000"));
    // Setting again replaces the old value; count 0 leaves the key without one.
    tree = HVHdrSetHeaderInts(tree, "Raster", "imageParts", ints, 1, 1);
    EXPECT_EQ(Value(tree, "Raster", "imageParts"), "3|");
    tree = HVHdrSetHeaderInts(tree, "Raster", "imageParts", ints, 0, 1);
    EXPECT_EQ(HVHdrCheckHeaderParam(tree, "Raster", "imageParts"), 0);
    EXPECT_NE(HalvGetUserCMData(tree, nullptr, "Raster", "imageParts"), nullptr);

    // Huge doubles get the room they need.
    const double big[] = {DBL_MAX, -DBL_MAX, 1e300};
    tree = HVHdrSetHeaderDoubles(tree, "S", "big", big, 3, 3);
    EXPECT_GT(std::string(HVHdrGetHeaderParam(tree, "S", "big")).size(), 600u);
    double back[3] = {};
    uint32_t n = 3;
    ASSERT_EQ(HVHdrGetHeaderDoubles(tree, "S", "big", back, &n), 1);
    EXPECT_EQ(n, 3u);
    EXPECT_EQ(back[0], DBL_MAX);
    EXPECT_EQ(back[1], -DBL_MAX);
    EXPECT_EQ(back[2], 1e300);
    HVHdrFree(tree);
}

TEST(TypedKeys, RoundTripKeepsSixDecimals) {
    const double doubles[] = {0.1234564, 1.0 / 3.0, -2.5e-7, 123456789.125};
    const float floats[] = {0.1f, 3.14159274f, -7.0000005f};
    const int32_t ints[] = {INT32_MIN, -1, 0, INT32_MAX};
    HalvUserCMData *tree = HVHdrSetHeaderDoubles(nullptr, "S", "d", doubles, 4, 4);
    tree = HVHdrSetHeaderFloats(tree, "S", "f", floats, 3, 3);
    tree = HVHdrSetHeaderInts(tree, "S", "i", ints, 4, 4);
    EXPECT_EQ(HVHdrGetHeaderParam(tree, "S", "d"),
              std::string("0.123456 0.333333 -0.000000 123456789.125000"));

    double d[4];
    float f[3];
    int32_t i[4];
    uint32_t nd = 4, nf = 3, ni = 4;
    ASSERT_EQ(HVHdrGetHeaderDoubles(tree, "S", "d", d, &nd), 1);
    ASSERT_EQ(HVHdrGetHeaderFloats(tree, "S", "f", f, &nf), 1);
    ASSERT_EQ(HVHdrGetHeaderInts(tree, "S", "i", i, &ni), 1);
    EXPECT_EQ(nd * 100 + nf * 10 + ni, 434u);
    EXPECT_EQ(d[0], 0.123456);
    EXPECT_EQ(d[1], 0.333333);
    EXPECT_EQ(d[2], -0.0);
    EXPECT_TRUE(std::signbit(d[2]));
    EXPECT_EQ(d[3], 123456789.125);
    EXPECT_EQ(f[0], 0.1f);
    EXPECT_EQ(f[1], 3.141593f);
    EXPECT_EQ(f[2], -7.0f);
    for (int k = 0; k < 4; ++k)
        EXPECT_EQ(i[k], ints[k]);
    HVHdrFree(tree);
}

TEST(TypedKeys, NumbersIgnoreTheHostLocale) {
    // A host locale with a decimal comma, when the machine has one.
    const char *old = std::setlocale(LC_NUMERIC, nullptr);
    std::string saved = old != nullptr ? old : "C";
    bool comma = false;
    for (const char *name : {"de_DE.UTF-8", "de_DE.utf8", "fr_FR.UTF-8", "C.UTF-8"}) {
        if (std::setlocale(LC_NUMERIC, name) != nullptr) {
            comma = *std::localeconv()->decimal_point == ',';
            if (comma)
                break;
        }
    }
    const double d = 300.0;
    HalvUserCMData *tree = HVHdrSetHeaderDoubles(nullptr, "Origin", "resolution", &d, 1, 1);
    EXPECT_EQ(HVHdrGetHeaderParam(tree, "Origin", "resolution"), std::string("300.000000"));
    tree = HVHdrSetHeaderParam(tree, "Origin", "aspect", "2.5");
    double back = 0;
    uint32_t n = 1;
    HVHdrGetHeaderDoubles(tree, "Origin", "aspect", &back, &n);
    EXPECT_EQ(back, 2.5);
    if (comma) { // the host's own formatting is left as the host set it
        EXPECT_EQ(*std::localeconv()->decimal_point, ',');
    }
    std::setlocale(LC_NUMERIC, saved.c_str());
    HVHdrFree(tree);
}

TEST(TypedKeys, GetCountsTokens) {
    HalvUserCMData *tree = Parse("[S]\nthree: 1 2 3\ntwo: 1 2\nbad: 4 x 6\nlead:   7 8\nempty:\n");
    ASSERT_NE(tree, nullptr);
    // Text behind the capacity is ignored; a short text leaves the rest;
    // a token that doesn't scan keeps its entry and still counts; a key
    // without a value line, or no key: 0 and the count stays; capacity 0
    // on an existing key: 1 and count 0.
    EXPECT_EQ(Got(HVHdrGetHeaderInts, tree, "S", "three", 2), "1 2: 1 2");
    EXPECT_EQ(Got(HVHdrGetHeaderInts, tree, "S", "two", 5), "1 2: 1 2 9 9 9");
    EXPECT_EQ(Got(HVHdrGetHeaderDoubles, tree, "S", "two", 5), "1 2: 1 2 9 9 9");
    EXPECT_EQ(Got(HVHdrGetHeaderFloats, tree, "S", "two", 5), "1 2: 1 2 9 9 9");
    EXPECT_EQ(Got(HVHdrGetHeaderInts, tree, "S", "bad", 3), "1 3: 4 9 6");
    EXPECT_EQ(Got(HVHdrGetHeaderDoubles, tree, "S", "lead", 2), "1 2: 7 8");
    EXPECT_EQ(Got(HVHdrGetHeaderInts, tree, "S", "empty", 4), "0 4: 9 9 9 9");
    EXPECT_EQ(Got(HVHdrGetHeaderInts, tree, "S", "nosuch", 4), "0 4: 9 9 9 9");
    EXPECT_EQ(Got(HVHdrGetHeaderInts, tree, "T", "two", 4), "0 4: 9 9 9 9");
    EXPECT_EQ(Got(HVHdrGetHeaderFloats, tree, "S", "two", 0), "1 0:");
    int32_t i[1];
    EXPECT_EQ(HVHdrGetHeaderInts(tree, "S", "two", i, nullptr), 0);
    HVHdrFree(tree);

    // Text ending in white space counts one more.
    tree = HVHdrSetHeaderString(nullptr, "S", "trail", "1 2 ");
    ASSERT_EQ(HVHdrGetHeaderParam(tree, "S", "trail"), std::string("1 2 "));
    EXPECT_EQ(Got(HVHdrGetHeaderInts, tree, "S", "trail", 4), "1 3: 1 2 9 9");
    HVHdrFree(tree);
}

TEST(TypedKeys, ListsReadTables) {
    HalvUserCMData *tree =
        Parse("[S]\nrows: 1 2 3\n4 5\n6 7 8 9\n\n[F]\nrows: a 1.5 -2 .5\n3\n\n[E]\nnone:\n");
    ASSERT_NE(tree, nullptr);
    int32_t *ints = nullptr;
    uint32_t perLine = 0;
    ASSERT_EQ(HVHdrGetHeaderIntsList(tree, "S", "rows", &ints, &perLine), 3);
    ASSERT_EQ(perLine, 3u);
    // Integers run on: the short line's successors follow straight behind.
    const int32_t wantInts[] = {1, 2, 3, 4, 5, 6, 7, 8, 0};
    for (int k = 0; k < 9; ++k)
        EXPECT_EQ(ints[k], wantInts[k]) << k;
    halv_internal_free(ints);

    double *doubles = nullptr;
    ASSERT_EQ(HVHdrGetHeaderDoublesList(tree, "S", "rows", &doubles, &perLine), 3);
    const double wantDoubles[] = {1, 2, 3, 4, 5, 0, 6, 7, 8};
    for (int k = 0; k < 9; ++k)
        EXPECT_EQ(doubles[k], wantDoubles[k]) << k;
    halv_internal_free(doubles);

    // Floating forms count only tokens that begin like a number: "a" isn't
    // a column, though it is still scanned in its place.
    float *floats = nullptr;
    ASSERT_EQ(HVHdrGetHeaderFloatsList(tree, "F", "rows", &floats, &perLine), 2);
    ASSERT_EQ(perLine, 3u);
    const float wantFloats[] = {0, 1.5f, -2, 3, 0};
    for (int k = 0; k < 5; ++k)
        EXPECT_EQ(floats[k], wantFloats[k]) << k;
    halv_internal_free(floats);

    // No lines: null and 0.
    ints = reinterpret_cast<int32_t *>(&perLine);
    perLine = 5;
    EXPECT_EQ(HVHdrGetHeaderIntsList(tree, "E", "none", &ints, &perLine), 0);
    EXPECT_EQ(ints, nullptr);
    EXPECT_EQ(perLine, 0u);
    EXPECT_EQ(HVHdrGetHeaderIntsList(tree, "E", "nosuch", &ints, &perLine), 0);
    HVHdrFree(tree);

    // A first line with no numeric token: lines counted, no array.
    tree = Parse("[W]\nrows: x y\n1 2\n");
    double *none = nullptr;
    EXPECT_EQ(HVHdrGetHeaderDoublesList(tree, "W", "rows", &none, &perLine), 2);
    EXPECT_EQ(none, nullptr);
    EXPECT_EQ(perLine, 0u);
    HVHdrFree(tree);
}

TEST(Resolution, StoredInOriginAndReadBack) {
    HalvHeaderStruct h{};
    HalvInitGenericHeader(&h);
    auto get = [&h] {
        double first = 0, second = 0;
        int result = HalvHeaderGetResolution(&h, &first, &second);
        std::ostringstream s;
        s << result << ": " << first << " " << second;
        return s.str();
    };
    EXPECT_EQ(get(), "0: 1 1");
    EXPECT_EQ(HalvHeaderSetResolution(&h, 300.0, 150.0), 1);
    EXPECT_EQ(HVHdrGetHeaderParam(h.userData, "Origin", "resolution"), std::string("300.000000"));
    EXPECT_EQ(HVHdrGetHeaderParam(h.userData, "Origin", "aspect"), std::string("2.000000"));
    EXPECT_EQ(get(), "1: 300 150");

    // A first of 1.0 is never stored; aspect alone gives 2.
    EXPECT_EQ(HalvHeaderSetResolution(&h, 1.0, 2.0), 1);
    EXPECT_EQ(HVHdrCheckHeaderParam(h.userData, "Origin", "resolution"), 0);
    EXPECT_EQ(get(), "2: 1 2");
    h.userData = HVHdrSetHeaderParam(h.userData, "Origin", "aspect", "2.0");
    EXPECT_EQ(get(), "2: 1 0.5");

    // A second of 0 deletes both; an aspect of 0 or below is ignored but
    // there; a resolution that doesn't scan still counts as there.
    EXPECT_EQ(HalvHeaderSetResolution(&h, 300.0, 0.0), 1);
    EXPECT_EQ(HVHdrCheckHeaderParam(h.userData, "Origin", "resolution"), 0);
    EXPECT_EQ(HVHdrCheckHeaderParam(h.userData, "Origin", "aspect"), 0);
    h.userData = HVHdrSetHeaderParam(h.userData, "Origin", "aspect", "-3");
    h.userData = HVHdrSetHeaderParam(h.userData, "Origin", "resolution", "72");
    EXPECT_EQ(get(), "1: 72 72");
    h.userData = HVHdrSetHeaderParam(h.userData, "Origin", "resolution", "dpi");
    EXPECT_EQ(get().substr(0, 4), "1: 1");

    EXPECT_EQ(HalvHeaderGetUnits(&h), nullptr);
    EXPECT_EQ(HalvHeaderSetUnits(&h, "cm"), 1);
    EXPECT_EQ(HalvHeaderSetUnits(&h, "inch"), 1);
    EXPECT_EQ(HalvHeaderGetUnits(&h), std::string("inch"));
    EXPECT_EQ(HalvHeaderSetUnits(nullptr, "cm"), 0);
    EXPECT_EQ(HalvHeaderGetUnits(nullptr), nullptr);
    EXPECT_EQ(HalvHeaderSetResolution(nullptr, 1, 1), 0);
    double first, second;
    EXPECT_EQ(HalvHeaderGetResolution(nullptr, &first, &second), 0);
    HVHdrFree(h.userData);
}

} // namespace
