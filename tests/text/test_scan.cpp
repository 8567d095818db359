/*
 * The scan engine over strings: every directive, its qualifiers, sets,
 * widths, early ends and the results of malformed formats.
 */
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <string>

#include "dpk_hvsup.h"

namespace {

TEST(TextScan, EmptyInputsAndFormats) {
    int v = 77;
    EXPECT_EQ(HalvSScanf("", "%d", &v), HALV_SCAN_END);
    EXPECT_EQ(HalvSScanf("abc", "%d", &v), 0);
    EXPECT_EQ(HalvSScanf("anything", ""), 0);
    EXPECT_EQ(HalvSScanf("", ""), 0);
    EXPECT_EQ(HalvSScanf("", "abc"), HALV_SCAN_END);
    EXPECT_EQ(HalvSScanf(nullptr, "%d", &v), HALV_SCAN_END);
    EXPECT_EQ(HalvSScanf("1", nullptr), HALV_SCAN_MALFORMED);
    EXPECT_EQ(v, 77);
    /* White space only: the field finds no digit, which is a failed field,
     * not an early end. */
    EXPECT_EQ(HalvSScanf("   ", "%d", &v), 0);
    EXPECT_EQ(HalvSScanf("12", "%d %d", &v, &v), 1);
    EXPECT_EQ(v, 12);
}

TEST(TextScan, SignedIntegers) {
    int a = 0, b = 0;
    EXPECT_EQ(HalvSScanf("  -42 +17", "%d%d", &a, &b), 2);
    EXPECT_EQ(a, -42);
    EXPECT_EQ(b, 17);
    /* The sign is outside an integer's width. */
    EXPECT_EQ(HalvSScanf("-123", "%2d%d", &a, &b), 2);
    EXPECT_EQ(a, -12);
    EXPECT_EQ(b, 3);
    /* A sign with no digit behind it fails and is gone. */
    EXPECT_EQ(HalvSScanf("-x", "%d", &a), 0);
    EXPECT_EQ(HalvSScanf("-2147483648", "%d", &a), 1);
    EXPECT_EQ(a, INT32_MIN);
    /* Wraps without a word. */
    EXPECT_EQ(HalvSScanf("4294967297", "%d", &a), 1);
    EXPECT_EQ(a, 1);
    /* %i has no prefix detection: 010 is ten, 0x1f stops at the x. */
    EXPECT_EQ(HalvSScanf("010", "%i", &a), 1);
    EXPECT_EQ(a, 10);
    EXPECT_EQ(HalvSScanf("0x1f", "%i%n", &a, &b), 1);
    EXPECT_EQ(a, 0);
    EXPECT_EQ(b, 1);
}

TEST(TextScan, UnsignedAndBases) {
    unsigned u = 5;
    int n = 0;
    EXPECT_EQ(HalvSScanf("-5", "%u", &u), 0);
    EXPECT_EQ(u, 5u);
    EXPECT_EQ(HalvSScanf("+5", "%u", &u), 0);
    EXPECT_EQ(HalvSScanf("4294967295", "%u", &u), 1);
    EXPECT_EQ(u, 4294967295u);
    EXPECT_EQ(HalvSScanf("777 8", "%o %o", &u, &n), 1);
    EXPECT_EQ(u, 0777u);
    EXPECT_EQ(HalvSScanf("0x1f", "%x%n", &u, &n), 1);
    EXPECT_EQ(u, 0u);
    EXPECT_EQ(n, 1); /* stopped at the x */
    EXPECT_EQ(HalvSScanf("0x1f", "%#x", &u), 1);
    EXPECT_EQ(u, 31u);
    EXPECT_EQ(HalvSScanf("0X1F", "%#X", &u), 1);
    EXPECT_EQ(u, 31u);
    EXPECT_EQ(HalvSScanf("DeadBeef", "%x", &u), 1);
    EXPECT_EQ(u, 0xDEADBEEFu);
    /* '#' wants the leading 0. */
    EXPECT_EQ(HalvSScanf("1f", "%#x", &u), 0);
    EXPECT_EQ(HalvSScanf("0", "%#x", &u), 1);
    EXPECT_EQ(u, 0u);
    EXPECT_EQ(HalvSScanf("017", "%#o", &u), 1);
    EXPECT_EQ(u, 017u);
    /* A base from the qualifier, literal or from an argument. */
    EXPECT_EQ(HalvSScanf("1011", "%..2i", &u), 1);
    EXPECT_EQ(u, 11u);
    EXPECT_EQ(HalvSScanf("0b101", "%#..2u", &u), 1);
    EXPECT_EQ(u, 5u);
    EXPECT_EQ(HalvSScanf("zz", "%..36u", &u), 1);
    EXPECT_EQ(u, 35u * 36 + 35);
    EXPECT_EQ(HalvSScanf("-ff", "%..*i", 16, &n), 1);
    EXPECT_EQ(n, -255);
    /* %d is always decimal, but a base argument is still taken. */
    EXPECT_EQ(HalvSScanf("19 7", "%..*d %d", 16, &n, &u), 2);
    EXPECT_EQ(n, 19);
    EXPECT_EQ(u, 7u);
    EXPECT_EQ(HalvSScanf("1", "%..37i", &n), HALV_SCAN_MALFORMED);
}

TEST(TextScan, IntegerStoreSizes) {
    struct {
        const char *format;
        size_t bytes;
    } const cases[] = {
        {"%d", 4},   {"%hd", 2},  {"%hhd", 2},  {"%ld", 8},   {"%lld", 8}, {"%jd", 8},
        {"%zd", 8},  {"%td", 8},  {"%I8d", 4},  {"%I16d", 4}, {"%I32d", 4}, {"%I64d", 8},
        {"%Ld", 4},  {"%hn", 2},  {"%lln", 8},  {"%n", 4},
        /* An I size decides over any size behind it. */
        {"%I32hd", 4}, {"%I64hd", 8}, {"%I16lld", 4}, {"%I8hn", 4},
    };
    for (const auto &c : cases) {
        unsigned char buffer[16];
        memset(buffer, 0xAA, sizeof buffer);
        int32_t result = HalvSScanf("", c.format, buffer);
        bool isCount = strchr(c.format, 'n') != nullptr;
        if (!isCount) {
            result = HalvSScanf("-1", c.format, buffer);
            EXPECT_EQ(result, 1) << c.format;
        } else {
            EXPECT_EQ(result, 0) << c.format;
        }
        size_t written = 0;
        while (written < sizeof buffer && buffer[written] != 0xAA)
            ++written;
        EXPECT_EQ(written, c.bytes) << c.format;
    }
    int64_t big = 0;
    EXPECT_EQ(HalvSScanf("-9223372036854775808", "%lld", &big), 1);
    EXPECT_EQ(big, INT64_MIN);
    short s = 0;
    EXPECT_EQ(HalvSScanf("70000", "%hd", &s), 1);
    EXPECT_EQ(s, (short)4464);
}

TEST(TextScan, Floats) {
    double d = 0;
    EXPECT_EQ(HalvSScanf("1.5e3", "%f", &d), 1);
    EXPECT_EQ(d, 1500.0);
    /* No point, no exponent: "e3" stays. */
    char rest[8] = "";
    EXPECT_EQ(HalvSScanf("1e3", "%f%s", &d, rest), 2);
    EXPECT_EQ(d, 1.0);
    EXPECT_STREQ(rest, "e3");
    EXPECT_EQ(HalvSScanf("-123", "%3f", &d), 1);
    EXPECT_EQ(d, -12.0);
    EXPECT_EQ(HalvSScanf("  +0.25", "%lf", &d), 1);
    EXPECT_EQ(d, 0.25);
    EXPECT_EQ(HalvSScanf("12.5E-1", "%e", &d), 1);
    EXPECT_EQ(d, 1.25);
    EXPECT_EQ(HalvSScanf("7.", "%g", &d), 1);
    EXPECT_EQ(d, 7.0);
    EXPECT_EQ(HalvSScanf(".5", "%G", &d), 1);
    EXPECT_EQ(d, 0.5);
    /* Hexadecimal text, exact; p only behind a point. */
    EXPECT_EQ(HalvSScanf("0x1.8p3", "%a", &d), 1);
    EXPECT_EQ(d, 12.0);
    EXPECT_EQ(HalvSScanf("0xff", "%A", &d), 1);
    EXPECT_EQ(d, 255.0);
    EXPECT_EQ(HalvSScanf("-0x.01p-4", "%f", &d), 1);
    EXPECT_EQ(d, -std::ldexp(1.0, -12));
    /* Words. */
    EXPECT_EQ(HalvSScanf("inf", "%f", &d), 1);
    EXPECT_TRUE(std::isinf(d) && d > 0);
    EXPECT_EQ(HalvSScanf("-INFINITE", "%f", &d), 1);
    EXPECT_TRUE(std::isinf(d) && d < 0);
    EXPECT_EQ(HalvSScanf("NaN", "%f", &d), 1);
    EXPECT_TRUE(std::isnan(d));
    d = 3;
    EXPECT_EQ(HalvSScanf("-nan", "%f", &d), 0);
    EXPECT_EQ(HalvSScanf("infinity", "%f", &d), 0);
    EXPECT_EQ(HalvSScanf("info", "%f", &d), 0);
    EXPECT_EQ(HalvSScanf("infinite", "%3f", &d), 1);
    EXPECT_TRUE(std::isinf(d));
    EXPECT_EQ(d, HUGE_VAL);
    /* Nothing behind the sign fails. */
    d = 3;
    EXPECT_EQ(HalvSScanf("-", "%f", &d), 0);
    EXPECT_EQ(HalvSScanf("e5", "%f", &d), 0);
    EXPECT_EQ(d, 3.0);
    /* Suppressed: read, nothing stored, not counted. */
    int n = 0;
    EXPECT_EQ(HalvSScanf("2.5 x", "%*f%n", &n), 0);
    EXPECT_EQ(n, 3);
    /* All float conversions store a double, with or without l or L. */
    double slots[3] = {0, 0, 0};
    EXPECT_EQ(HalvSScanf("1.5 2.5 3.5", "%hf %Lf %lf", &slots[0], &slots[1], &slots[2]), 3);
    EXPECT_EQ(slots[0], 1.5);
    EXPECT_EQ(slots[1], 2.5);
    EXPECT_EQ(slots[2], 3.5);
}

TEST(TextScan, FloatWidthCountsTheSignAndTheDigits) {
    double d = 0;
    int i = 0;
    char rest[16] = "";
    /* The point uses no width: three digits, then the integer behind. */
    EXPECT_EQ(HalvSScanf("1.2345", "%3f%d", &d, &i), 2);
    EXPECT_DOUBLE_EQ(d, 1.23);
    EXPECT_EQ(i, 45);
    /* Sign and digits count; the exponent's letter and sign do not. */
    EXPECT_EQ(HalvSScanf("-1.25e+2", "%4f%s", &d, rest), 2);
    EXPECT_EQ(d, -1.25); /* the width ended before the exponent */
    EXPECT_STREQ(rest, "e+2");
    EXPECT_EQ(HalvSScanf("-1.25e+2x", "%5f%s", &d, rest), 2);
    EXPECT_EQ(d, -125.0);
    EXPECT_STREQ(rest, "x");
    EXPECT_EQ(HalvSScanf("1.25e-12", "%4f%s", &d, rest), 2);
    EXPECT_DOUBLE_EQ(d, 1.25e-1); /* one exponent digit was left */
    EXPECT_STREQ(rest, "2");
    /* The 0x of hexadecimal text is no digit either. */
    EXPECT_EQ(HalvSScanf("0x1.8p1", "%4f", &d), 1);
    EXPECT_EQ(d, 3.0);
    /* A used-up width ends the field before the point. */
    EXPECT_EQ(HalvSScanf("7.5", "%1f%s", &d, rest), 2);
    EXPECT_EQ(d, 7.0);
    EXPECT_STREQ(rest, ".5");
    /* A locale's point of several bytes uses none either. */
    const HalvLocale arabic = {"\xd9\xab", ",", ""};
    EXPECT_EQ(HalvSScanfl(&arabic, "12\xd9\xab" "75", "%3f%d", &d, &i), 2);
    EXPECT_DOUBLE_EQ(d, 12.7);
    EXPECT_EQ(i, 5);
}

TEST(TextScan, FloatFieldStaysWithin511CollectedBytes) {
    double d = 0;
    int n = 0;
    /* "0." and 600 digits: 511 bytes are collected, point included. */
    std::string longText(600, '1');
    longText = "0." + longText;
    EXPECT_EQ(HalvSScanf(longText.c_str(), "%f%n", &d, &n), 1);
    EXPECT_EQ(n, 511);
    EXPECT_NEAR(d, 1.0 / 9, 1e-12);
    EXPECT_EQ(HalvSScanf(longText.c_str(), "%9999f%n", &d, &n), 1);
    EXPECT_EQ(n, 511);
    EXPECT_EQ(HalvSScanf(longText.c_str(), "%511f%n", &d, &n), 1);
    EXPECT_EQ(n, 511);
    /* Marks count against the 511 bytes too: the point as the 511th byte
     * ends the field, and so do an exponent's letter and sign. */
    std::string marked = std::string(509, '0') + "1.25";
    EXPECT_EQ(HalvSScanf(marked.c_str(), "%f%n", &d, &n), 1);
    EXPECT_EQ(n, 511);
    EXPECT_EQ(d, 1.0);
    marked = std::string(506, '0') + "1.5e+1";
    EXPECT_EQ(HalvSScanf(marked.c_str(), "%f%n", &d, &n), 1);
    EXPECT_EQ(n, 511);
    EXPECT_EQ(d, 1.5); /* the exponent's digit found no room */
    /* A width of its own: the marks don't use it, the 511 bytes still hold. */
    std::string signedText = "-" + std::string(300, '4') + "." + std::string(300, '5');
    EXPECT_EQ(HalvSScanf(signedText.c_str(), "%600f%n", &d, &n), 1);
    EXPECT_EQ(n, 511);
    EXPECT_EQ(HalvSScanf(signedText.c_str(), "%400f%n", &d, &n), 1);
    EXPECT_EQ(n, 401); /* the sign, 399 digits and the point */
}

TEST(TextScan, LocaleDecimalPoint) {
    const HalvLocale comma = {",", ".", "3;0"};
    double d = 0;
    char rest[8] = "";
    EXPECT_EQ(HalvSScanfl(&comma, "1,5", "%f", &d), 1);
    EXPECT_EQ(d, 1.5);
    EXPECT_EQ(HalvSScanfl(&comma, "1.5", "%f%s", &d, rest), 2);
    EXPECT_EQ(d, 1.0);
    EXPECT_STREQ(rest, ".5");
    /* A point of several bytes; a partial match eats what it matched. */
    const HalvLocale arrow = {"->", ",", ""};
    EXPECT_EQ(HalvSScanfl(&arrow, "3->25e1", "%f", &d), 1);
    EXPECT_EQ(d, 32.5);
    EXPECT_EQ(HalvSScanfl(&arrow, "3-25", "%f%s", &d, rest), 2);
    EXPECT_EQ(d, 3.0);
    EXPECT_STREQ(rest, "25");
    /* Bytes above 127 compare as unsigned bytes. */
    const HalvLocale middot = {"\xC2\xB7", ",", ""};
    EXPECT_EQ(HalvSScanfl(&middot, "2\xC2\xB7" "5", "%f", &d), 1);
    EXPECT_EQ(d, 2.5);
    /* The fixed record has "."; a null record means it. */
    EXPECT_EQ(HalvSScanfl(nullptr, "2.5", "%f", &d), 1);
    EXPECT_EQ(d, 2.5);
    EXPECT_EQ(HalvSScanf("2,5", "%f%s", &d, rest), 2);
    EXPECT_EQ(d, 2.0);
    /* Integers ignore the locale. */
    int i = 0;
    EXPECT_EQ(HalvSScanfl(&comma, "1,5", "%d", &i), 1);
    EXPECT_EQ(i, 1);
}

TEST(TextScan, Characters) {
    char buffer[8];
    memset(buffer, '#', sizeof buffer);
    /* %c doesn't skip white space and stores no terminator. */
    EXPECT_EQ(HalvSScanf(" x", "%c", buffer), 1);
    EXPECT_EQ(buffer[0], ' ');
    EXPECT_EQ(buffer[1], '#');
    memset(buffer, '#', sizeof buffer);
    EXPECT_EQ(HalvSScanf("ab", "%3c", buffer), 1);
    EXPECT_EQ(std::string(buffer, 3), "ab#");
    EXPECT_EQ(HalvSScanf("abcdef", "%2c%c", buffer, buffer + 2), 2);
    EXPECT_EQ(std::string(buffer, 3), "abc");
    /* Escapes under '#': one escape is one byte of the width. */
    memset(buffer, '#', sizeof buffer);
    EXPECT_EQ(HalvSScanf("\\n\\x41\\101\\\\\\q", "%#5c", buffer), 1);
    EXPECT_EQ(std::string(buffer, 6), "\nAA\\q#");
    memset(buffer, '#', sizeof buffer);
    EXPECT_EQ(HalvSScanf("\\t\\a\\b\\f\\r\\v", "%#6c", buffer), 1);
    EXPECT_EQ(std::string(buffer, 6), "\t\a\b\f\r\v");
    /* Without '#' a backslash is a byte. */
    EXPECT_EQ(HalvSScanf("\\n", "%2c", buffer), 1);
    EXPECT_EQ(std::string(buffer, 2), "\\n");
    /* A failed escape number ends the field. */
    memset(buffer, '#', sizeof buffer);
    int n = 0;
    EXPECT_EQ(HalvSScanf("a\\xg", "%#3c%n", buffer, &n), 1);
    EXPECT_EQ(buffer[0], 'a');
    EXPECT_EQ(buffer[1], '#');
    EXPECT_EQ(n, 3);
}

TEST(TextScan, Strings) {
    char a[16], b[16];
    EXPECT_EQ(HalvSScanf("  hello world", "%s%s", a, b), 2);
    EXPECT_STREQ(a, "hello");
    EXPECT_STREQ(b, "world");
    /* White space only: an empty string, and it counts. */
    strcpy(a, "junk");
    EXPECT_EQ(HalvSScanf("   ", "%s", a), 1);
    EXPECT_STREQ(a, "");
    EXPECT_EQ(HalvSScanf("abcdef", "%3s%s", a, b), 2);
    EXPECT_STREQ(a, "abc");
    EXPECT_STREQ(b, "def");
    EXPECT_EQ(HalvSScanf("a\\ b\\tc d", "%#s", a), 1);
    EXPECT_STREQ(a, "a b\tc");
    /* A width of 0 is no width. */
    EXPECT_EQ(HalvSScanf("abcdef", "%0s", a), 1);
    EXPECT_STREQ(a, "abcdef");
    /* l before s has no effect. */
    EXPECT_EQ(HalvSScanf("xy", "%ls", a), 1);
    EXPECT_STREQ(a, "xy");
}

TEST(TextScan, CharacterSets) {
    char a[16], b[16];
    EXPECT_EQ(HalvSScanf("abcd", "%[a-c]%s", a, b), 2);
    EXPECT_STREQ(a, "abc");
    EXPECT_STREQ(b, "d");
    EXPECT_EQ(HalvSScanf("x,y", "%[^,],%s", a, b), 2);
    EXPECT_STREQ(a, "x");
    EXPECT_STREQ(b, "y");
    EXPECT_EQ(HalvSScanf("]x]y", "%[]x]", a), 1);
    EXPECT_STREQ(a, "]x]");
    EXPECT_EQ(HalvSScanf("a-a-b", "%[a-]", a), 1);
    EXPECT_STREQ(a, "a-a-");
    EXPECT_EQ(HalvSScanf("-a-", "%[-a]", a), 1);
    EXPECT_STREQ(a, "-a-");
    EXPECT_EQ(HalvSScanf("abc", "%[c-a]", a), HALV_SCAN_BAD_RANGE);
    /* Ranges chain. */
    EXPECT_EQ(HalvSScanf("abcdef", "%[a-c-e]", a), 1);
    EXPECT_STREQ(a, "abcde");
    EXPECT_EQ(HalvSScanf("abcdef", "%[a-e-c]", a), HALV_SCAN_BAD_RANGE);
    /* A range cut off by the end of the format. */
    EXPECT_EQ(HalvSScanf("abc", "%[a-", a), HALV_SCAN_MALFORMED);
    /* The end of the format ends an open set. */
    EXPECT_EQ(HalvSScanf("abcx", "%[abc", a), 1);
    EXPECT_STREQ(a, "abc");
    /* A '[' inside a set needs its own ']'. */
    EXPECT_EQ(HalvSScanf("[a]b]c", "%[[a]b]%s", a, b), 2);
    EXPECT_STREQ(a, "[a]b]");
    EXPECT_STREQ(b, "c");
    /* No white-space skip, empty match counts, width bounds. */
    strcpy(a, "junk");
    EXPECT_EQ(HalvSScanf(" abc", "%[a-z]", a), 1);
    EXPECT_STREQ(a, "");
    EXPECT_EQ(HalvSScanf("abcabc", "%2[a-z]%[a-z]", a, b), 2);
    EXPECT_STREQ(a, "ab");
    EXPECT_STREQ(b, "cabc");
    EXPECT_EQ(HalvSScanf("line one\nline two", "%[^\n]", a), 1);
    EXPECT_STREQ(a, "line one");
    /* Negated set over high bytes. */
    EXPECT_EQ(HalvSScanf("\xC3\xA9t\xC3\xA9!", "%[^!]", a), 1);
    EXPECT_STREQ(a, "\xC3\xA9t\xC3\xA9");
    EXPECT_EQ(HalvSScanf("\x80\xFF" "a", "%[\x80-\xFF]", a), 1);
    EXPECT_STREQ(a, "\x80\xFF");
    /* The set's range error is met when the scan gets there. */
    int v = 0;
    EXPECT_EQ(HalvSScanf("5 x", "%d %[z-a]", &v, a), HALV_SCAN_BAD_RANGE);
    EXPECT_EQ(v, 5);
    /* A lone leading ']' with the format ending behind it is the whole set;
     * "]-" both lead, and the ']' behind them closes. */
    EXPECT_EQ(HalvSScanf("]]x", "%[]", a), 1);
    EXPECT_STREQ(a, "]]");
    EXPECT_EQ(HalvSScanf("-]-x", "%[]-]%s", a, b), 2);
    EXPECT_STREQ(a, "-]-");
    EXPECT_STREQ(b, "x");
    /* A '*' base on a set still takes its argument, and means nothing. */
    EXPECT_EQ(HalvSScanf("ab 7", "%..*[ab] %d", 99, a, &v), 2);
    EXPECT_STREQ(a, "ab");
    EXPECT_EQ(v, 7);
}

TEST(TextScan, Pointers) {
    void *p = (void *)1;
    EXPECT_EQ(HalvSScanf("0x7ffe12345678", "%p", &p), 1);
    EXPECT_EQ((uintptr_t)p, (uintptr_t)0x7ffe12345678ull);
    EXPECT_EQ(HalvSScanf("0xffffffffffffffff", "%p", &p), 1);
    EXPECT_EQ((uintptr_t)p, UINTPTR_MAX);
    /* 18 characters at most. */
    int n = 0;
    EXPECT_EQ(HalvSScanf("0x1234567890abcdef12", "%p%n", &p, &n), 1);
    EXPECT_EQ((uintptr_t)p, (uintptr_t)0x1234567890abcdefull);
    EXPECT_EQ(n, 18);
    EXPECT_EQ(HalvSScanf("  (nil)", "%p", &p), 1);
    EXPECT_EQ(p, nullptr);
    p = (void *)1;
    EXPECT_EQ(HalvSScanf("(nul)", "%p", &p), 0);
    EXPECT_EQ(HalvSScanf("(ni", "%p", &p), 0);
    EXPECT_EQ(HalvSScanf("1234", "%p", &p), 0);
    EXPECT_EQ(p, (void *)1);
}

TEST(TextScan, CountDirective) {
    int a = 0, n = -1;
    EXPECT_EQ(HalvSScanf("12 ", "%d%n", &a, &n), 1);
    EXPECT_EQ(n, 2);
    EXPECT_EQ(HalvSScanf("12", "%d%n", &a, &n), 1);
    EXPECT_EQ(n, 2);
    /* %n runs even when the input has ended. */
    n = -1;
    EXPECT_EQ(HalvSScanf("", "%n", &n), 0);
    EXPECT_EQ(n, 0);
    n = -1;
    EXPECT_EQ(HalvSScanf("7", "%d %n", &a, &n), 1);
    EXPECT_EQ(n, 1);
    /* A null pointer is passed over. */
    EXPECT_EQ(HalvSScanf("5", "%n%d", nullptr, &a), 1);
    EXPECT_EQ(a, 5);
    int64_t wide = -1;
    EXPECT_EQ(HalvSScanf("abc", "abc%lln", &wide), 0);
    EXPECT_EQ(wide, 3);
}

TEST(TextScan, LiteralsAndWhiteSpace) {
    int a = 0, b = 0;
    EXPECT_EQ(HalvSScanf("abd", "abc%d", &a), 0);
    EXPECT_EQ(HalvSScanf("x", "%%"), HALV_SCAN_MALFORMED);
    EXPECT_EQ(HalvSScanf("%5", "%%%d", &a), 1);
    EXPECT_EQ(a, 5);
    /* %% doesn't skip white space. */
    EXPECT_EQ(HalvSScanf(" %5", "%%%d", &a), HALV_SCAN_MALFORMED);
    EXPECT_EQ(HalvSScanf("(1, 2)", "(%d,%d)", &a, &b), 2);
    EXPECT_EQ(b, 2);
    /* Format white space matches any run, also none. */
    EXPECT_EQ(HalvSScanf("1\t\n\v\f\r 2", "%d %d", &a, &b), 2);
    EXPECT_EQ(HalvSScanf("1:2", "%d \t: %d", &a, &b), 2);
    /* A literal mismatch after a field keeps the count. */
    EXPECT_EQ(HalvSScanf("3;4", "%d,%d", &a, &b), 1);
    EXPECT_EQ(a, 3);
    /* Early end: the count, or -1 before the first assignment. */
    EXPECT_EQ(HalvSScanf("8", "%d,%d", &a, &b), 1);
    EXPECT_EQ(HalvSScanf("ab", "ab%d", &a), HALV_SCAN_END);
    /* UTF-8 literals match byte for byte; a mismatch is malformed. */
    EXPECT_EQ(HalvSScanf("\xC3\xA9=9", "\xC3\xA9=%d", &a), 1);
    EXPECT_EQ(a, 9);
    EXPECT_EQ(HalvSScanf("\xC3\xA8=9", "\xC3\xA9=%d", &a), HALV_SCAN_MALFORMED);
    EXPECT_EQ(HalvSScanf("", "\xE2\x82\xAC"), HALV_SCAN_MALFORMED);
    /* A byte that starts no sequence is a plain literal. */
    EXPECT_EQ(HalvSScanf("\xFF" "4", "\xFF%d", &a), 1);
    EXPECT_EQ(a, 4);
    EXPECT_EQ(HalvSScanf("x4", "\xFF%d", &a), 0);
    EXPECT_EQ(HalvSScanf("\xC0\x80" "6", "\xC0\x80%d", &a), 1); /* overlong */
    EXPECT_EQ(a, 6);
}

TEST(TextScan, Suppression) {
    int a = 0;
    EXPECT_EQ(HalvSScanf("1 2", "%*d %d", &a), 1);
    EXPECT_EQ(a, 2);
    char text[8];
    /* Everything suppressed, then the input ends before %d. */
    EXPECT_EQ(HalvSScanf("ab cd 3", "%*s %*[a-z] %*c%d", &a), HALV_SCAN_END);
    EXPECT_EQ(HalvSScanf("ab cd 3", "%*s %*[a-z] %d", &a), 1);
    EXPECT_EQ(a, 3);
    EXPECT_EQ(HalvSScanf("ab", "%*2c%n", &a), 0);
    EXPECT_EQ(a, 2);
    EXPECT_EQ(HalvSScanf("(nil) x", "%*p %s", text), 1);
    EXPECT_STREQ(text, "x");
}

TEST(TextScan, MalformedFormats) {
    int a = 0;
    const char *bad[] = {
        "%y", "%b", "%D", "%S", "%C", "%", "%5", "%hhhd", "%llld", "%...i", "%1$d",
        "%'d", "%^d", "%lI32d", "%I32I32d", "%I7d", "%I016d", "%Id", "%I128d", "%\xC3\xA9",
        "%..1i", "%..0u", "%[a]%..40[b]",
    };
    for (const char *format : bad) {
        a = 99;
        EXPECT_EQ(HalvSScanf("123", format, &a, &a), HALV_SCAN_MALFORMED) << format;
        EXPECT_EQ(a, 99) << format;
    }
    /* Qualifiers in any order, repeated; a later width wins. */
    EXPECT_EQ(HalvSScanf("12345", "%-+ #04 3d", &a), 1);
    EXPECT_EQ(a, 123);
    EXPECT_EQ(HalvSScanf("12345", "%.7.10I32hd", &a), 1);
}

TEST(TextScan, ArgumentLimit) {
    std::string format;
    for (int i = 0; i < 64; ++i)
        format += "%d";
    int values[65] = {};
    void *slots[65];
    for (int i = 0; i < 65; ++i)
        slots[i] = &values[i];
    std::string text;
    for (int i = 0; i < 65; ++i)
        text += std::to_string(i) + " ";
    EXPECT_EQ(HalvLSScanf(text.c_str(), format.c_str(), slots), 64);
    EXPECT_EQ(values[63], 63);
    EXPECT_EQ(HalvLSScanf(text.c_str(), (format + "%d").c_str(), slots), HALV_SCAN_TOO_MANY);
    /* The limit comes before the directive is read, and a '*' directive
     * takes an entry too. */
    EXPECT_EQ(HalvLSScanf(text.c_str(), (format + "%y").c_str(), slots), HALV_SCAN_TOO_MANY);
    EXPECT_EQ(HalvLSScanf(text.c_str(), (format + "%*d").c_str(), slots), HALV_SCAN_TOO_MANY);
    /* A `*` base entry that pushes past the table also overflows it. */
    std::string pushed;
    for (int i = 0; i < 63; ++i)
        pushed += "%d";
    EXPECT_EQ(HalvLSScanf(text.c_str(), (pushed + "%..*i").c_str(), slots), HALV_SCAN_TOO_MANY);
}

TEST(TextScan, ArrayForm) {
    int a = 0;
    double d = 0;
    char s[8] = "";
    int base = 16;
    void *args[] = {&a, &d, s};
    EXPECT_EQ(HalvLSScanf("7 2.5 hi", "%d %f %s", args), 3);
    EXPECT_EQ(a, 7);
    EXPECT_EQ(d, 2.5);
    EXPECT_STREQ(s, "hi");
    /* A suppressed field takes no entry; a base argument points to an int. */
    void *withBase[] = {&base, &a};
    EXPECT_EQ(HalvLSScanf("9 ff", "%*d %..*i", withBase), 1);
    EXPECT_EQ(a, 255);
    const HalvLocale comma = {",", ".", ""};
    void *one[] = {&d};
    EXPECT_EQ(HalvLSScanfl(&comma, "0,5", "%f", one), 1);
    EXPECT_EQ(d, 0.5);
}

int32_t CallV(const char *text, const char *format, ...) {
    va_list args;
    va_start(args, format);
    int32_t result = HalvVSScanf(text, format, args);
    va_end(args);
    return result;
}

int32_t CallVl(const HalvLocale *locale, const char *text, const char *format, ...) {
    va_list args;
    va_start(args, format);
    int32_t result = HalvVSScanfl(locale, text, format, args);
    va_end(args);
    return result;
}

TEST(TextScan, ListForm) {
    int a = 0, b = 0;
    EXPECT_EQ(CallV("3 4", "%d %d", &a, &b), 2);
    EXPECT_EQ(a + b, 7);
    /* A `*` precision takes an int and means nothing; a `*` base takes one
     * and is used. */
    EXPECT_EQ(CallV("12 z", "%.*d %..*i", 5, &a, 36, &b), 2);
    EXPECT_EQ(a, 12);
    EXPECT_EQ(b, 35);
    const HalvLocale comma = {",", ".", ""};
    double d = 0;
    EXPECT_EQ(CallVl(&comma, "4,5", "%f", &d), 1);
    EXPECT_EQ(d, 4.5);
}

} // namespace
