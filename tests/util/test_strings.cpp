// The string family at its edges, where it parts from the C library: no
// padding in the bounded copies, signed against unsigned comparison, the
// library's own ASCII fold, and in-place trimming.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "util/support.h"

using halvtest::Take;

TEST(UtilStrings, DuplicatesAndLengths) {
    EXPECT_EQ(HalvStrDup(nullptr), nullptr);
    EXPECT_EQ(HalvStrNDup(nullptr, 4), nullptr);
    const char source[] = "halvern";
    char *whole = HalvStrDup(source);
    EXPECT_NE(whole, source);
    EXPECT_EQ(Take(whole), "halvern");
    EXPECT_EQ(Take(HalvStrNDup(source, 4)), "halv");
    EXPECT_EQ(Take(HalvStrNDup(source, 100)), "halvern");
    EXPECT_EQ(Take(HalvStrNDup(source, 0)), "");
    // max bounds what is read: no NUL is needed inside it.
    char unterminated[3] = {'a', 'b', 'c'};
    EXPECT_EQ(Take(HalvStrNDup(unterminated, 3)), "abc");
    EXPECT_EQ(HalvStrNLen(unterminated, 2), 2u);
    EXPECT_EQ(HalvStrLen(""), 0u);
    EXPECT_EQ(HalvStrLen("h\xC3\xA9"), 3u); // bytes, not characters
    EXPECT_EQ(HalvStrNLen("abcdef", 4), 4u);
    EXPECT_EQ(HalvStrNLen("ab", 4), 2u);
    const uint16_t wide[] = {0x48, 0xD83D, 0xDE00, 0x1234, 0}, empty[] = {0};
    EXPECT_EQ(HalvWideStrLen(wide), 4u);
    EXPECT_EQ(HalvWideStrLen(empty), 0u);
}

TEST(UtilStrings, BoundedCopyAndConcatenationNeverPad) {
    // The 8 bytes of a '#'-filled buffer after a copy of n bytes of text.
    auto copied = [](const char *text, size_t n) {
        char buffer[8];
        std::memset(buffer, '#', sizeof buffer);
        HalvStrNCpy(buffer, text, n);
        return std::string(buffer, 8);
    };
    EXPECT_EQ(copied("abc", 3), "abc#####"); // no terminator with n == length
    EXPECT_EQ(copied("abc", 4), std::string("abc\0####", 8));
    EXPECT_EQ(copied("abc", 7), std::string("abc\0####", 8)); // no padding behind the NUL
    EXPECT_EQ(copied("abcdef", 2), "ab######");
    char buffer[16];
    HalvStrCpy(buffer, "xyz");
    EXPECT_STREQ(buffer, "xyz");
    std::memset(buffer, '#', sizeof buffer);
    std::strcpy(buffer, "ab");
    HalvStrCat(buffer, "cd");
    EXPECT_STREQ(buffer, "abcd");
    EXPECT_EQ(HalvStrNCat(buffer, "efgh", 9), buffer);
    EXPECT_STREQ(buffer, "abcdefgh");
    std::memset(buffer, '#', sizeof buffer);
    std::strcpy(buffer, "ab");
    EXPECT_EQ(HalvStrNCat(buffer, "cdef", 2), buffer);
    EXPECT_EQ(std::string(buffer, 6), "abcd##"); // cut off: no terminator
}

TEST(UtilStrings, ComparisonSignednessAndCase) {
    // Exact differences, not just signs.  0x80 is -128 as a signed byte, so
    // it sorts below 0x01, while the case-insensitive compare takes bytes
    // unsigned and folds only the ASCII letters: '[' (0x5B) and '{' (0x7B)
    // are not a case pair, nor are the Latin-1 letters.
    const struct {
        const char *a;
        const char *b;
        int exact;
        int folded;
    } pairs[] = {
        {"abc", "abc", 0, 0},     {"abd", "abc", 1, 1},         {"ab", "abc", -'c', -'c'}, {"", "", 0, 0},
        {"\x80", "\x01", -129, 127}, {"Input:H", "input:h", 'I' - 'i', 0}, {"ABC", "abd", 'A' - 'a', 'c' - 'd'},
        {"a", "A", 'a' - 'A', 0}, {"[", "{", '[' - '{', '[' - '{'}, {"\xC9", "\xE9", -32, 0xC9 - 0xE9},
    };
    for (const auto &p : pairs) {
        EXPECT_EQ(HalvStrCmp(p.a, p.b), p.exact) << p.a << " " << p.b;
        EXPECT_EQ(HalvStrCaseCmp(p.a, p.b), p.folded) << p.a << " " << p.b;
    }
    EXPECT_EQ(HalvStrNCmp("abcX", "abcY", 3), 0);
    EXPECT_LT(HalvStrNCmp("abcX", "abcY", 4), 0);
    EXPECT_EQ(HalvStrNCmp("a", "b", 0), 0);
    EXPECT_EQ(HalvStrNCmp("ab", "ab", 10), 0); // stops at the NUL
    EXPECT_EQ(HalvStrNCaseCmp("NAME:f", "name:i", 5), 0);
    EXPECT_NE(HalvStrNCaseCmp("NAME:f", "name:i", 6), 0);
    EXPECT_EQ(HalvStrNCaseCmp("x", "y", 0), 0);
}

TEST(UtilStrings, ByteAndSubstringSearch) {
    const char text[] = "a.b.c";
    EXPECT_EQ(HalvStrChr(text, '.'), text + 1);
    EXPECT_EQ(HalvStrRChr(text, '.'), text + 3);
    EXPECT_EQ(HalvStrChr(text, 'x'), nullptr);
    EXPECT_EQ(HalvStrRChr(text, 'x'), nullptr);
    EXPECT_EQ(HalvStrChr(text, 0), nullptr); // the NUL isn't found
    EXPECT_EQ(HalvStrRChr(text, 0), nullptr);
    // Bytes compare as signed char: the value must come from a char.
    const char latin[] = "caf\xE9";
    EXPECT_EQ(HalvStrChr(latin, (char)0xE9), latin + 3);
    EXPECT_EQ(HalvStrChr(latin, 0xE9), nullptr);
    const uint16_t wide[] = {'x', 0x263A, 'y', 0x263A, 0};
    EXPECT_EQ(HalvWideStrChr(wide, 0x263A), wide + 1);
    EXPECT_EQ(HalvWideStrRChr(wide, 0x263A), wide + 3);
    EXPECT_EQ(HalvWideStrChr(wide, 'z'), nullptr);
    EXPECT_EQ(HalvWideStrChr(wide, 0), nullptr);
    const char two[] = "one two two";
    EXPECT_EQ(HalvStrStr(two, "two"), two + 4);
    EXPECT_EQ(HalvStrStr(two, "three"), nullptr);
    EXPECT_EQ(HalvStrStr(two, ""), two);    // empty sub in non-empty text
    EXPECT_EQ(HalvStrStr("", ""), nullptr); // but not in empty text
    EXPECT_EQ(HalvStrStr("", "x"), nullptr);
    EXPECT_EQ(HalvStrStr("ab", "abc"), nullptr);
}

TEST(UtilStrings, StrippingWorksInPlace) {
    char text[] = " \t\r\n\v\f value  x \n\t ";
    EXPECT_EQ(HalvStripLeadingSpaces(text), text);
    EXPECT_STREQ(text, "value  x \n\t ");
    EXPECT_EQ(HalvStripTrailingSpaces(text), text);
    EXPECT_STREQ(text, "value  x");
    char blanks[] = "    ", blanks2[] = " \t ", empty[] = "", latin[] = "\xA0x\xA0";
    EXPECT_STREQ(HalvStripLeadingSpaces(blanks), "");
    EXPECT_STREQ(HalvStripTrailingSpaces(blanks2), "");
    EXPECT_EQ(std::memcmp(blanks2, "\0\0\0", 4), 0); // NULs over every blank, not just the first
    EXPECT_STREQ(HalvStripLeadingSpaces(empty), "");
    EXPECT_STREQ(HalvStripTrailingSpaces(empty), "");
    // Non-ASCII bytes are not white space (0xA0 is NBSP in Latin-1).
    EXPECT_STREQ(HalvStripLeadingSpaces(latin), "\xA0x\xA0");
    EXPECT_STREQ(HalvStripTrailingSpaces(latin), "\xA0x\xA0");
}

TEST(UtilStrings, BlocksSwapAndCompare) {
    // 11 bytes: two 32-bit steps and three single bytes, at odd addresses.
    unsigned char a[13], b[13];
    for (int i = 0; i < 13; ++i) {
        a[i] = (unsigned char)i;
        b[i] = (unsigned char)(100 + i);
    }
    HalvSwapBlock(a + 1, b + 1, 11);
    HalvSwapBlock(a, b, 0);
    for (int i = 0; i < 13; ++i) {
        const bool swapped = i >= 1 && i <= 11;
        EXPECT_EQ(a[i], swapped ? 100 + i : i) << i;
        EXPECT_EQ(b[i], swapped ? i : 100 + i) << i;
    }
    const unsigned char x[] = {1, 2, 0xF0, 4}, y[] = {1, 2, 0x10, 9};
    EXPECT_EQ(HalvCmpBlock(x, y, 4), 0xF0 - 0x10); // unsigned difference
    EXPECT_EQ(HalvCmpBlock(y, x, 4), 0x10 - 0xF0);
    EXPECT_EQ(HalvCmpBlock(x, y, 2), 0);
    EXPECT_EQ(HalvCmpBlock(x, y, 0), 0);
    EXPECT_EQ(HalvCmpBlock(x, x, 4), 0);
}

TEST(UtilStrings, CharacterClassesAndCaseOverEveryByte) {
    for (int c = -300; c < 600; ++c) {
        const bool byte = c >= 0 && c < 256;
        const bool upper = c >= 'A' && c <= 'Z', lower = c >= 'a' && c <= 'z', digit = c >= '0' && c <= '9';
        EXPECT_EQ(HalvIsAsciiPrint(c), byte && c >= 32 && c <= 126) << c;
        EXPECT_EQ(HalvIsAsciiChar(c), (c & 0x80) == 0) << c; // only bit 7 is looked at
        EXPECT_EQ(HalvIsAsciiSpace(c), c == 32 || (c >= 9 && c <= 13)) << c;
        EXPECT_EQ(HalvIsAsciiAlpha(c), upper || lower) << c;
        EXPECT_EQ(HalvIsAsciiDigit(c), digit) << c;
        EXPECT_EQ(HalvIsAsciiHexDigit(c), digit || (c >= 'A' && c <= 'F') || (c >= 'a' && c <= 'f')) << c;
        // Only the low 8 bits of the argument count for the case tables.
        const int low = c & 0xFF;
        EXPECT_EQ(HalvAsciiToUpper(c), low >= 'a' && low <= 'z' ? low - 32 : low) << c;
        EXPECT_EQ(HalvAsciiToLower(c), low >= 'A' && low <= 'Z' ? low + 32 : low) << c;
    }
}

TEST(UtilStrings, ImmediateDataTellsNumbersFromNames) {
    // At least a quarter of the bytes digits (rounded down), and a separator
    // (any ASCII white space or a comma).
    const struct {
        const char *text;
        int immediate;
    } cases[] = {
        {"1 2 3", 1},      {"10,20", 1},         {"0.5, 0.25, 0.125", 1}, {"12345", 0}, {"image 1.tif", 0},
        {"img 12.tif", 1}, {"image 12.tif", 0}, {"abc", 0},               {"", 0},      {nullptr, 0},
        {"1\t2", 1},
    };
    for (const auto &c : cases)
        EXPECT_EQ(HalvIsImmediateData(c.text), c.immediate) << (c.text ? c.text : "(null)");
}
