/*
 * tests/text/test_print_directives.cpp - the directives of the print engine:
 * integers and their qualifiers, characters, strings, pointers, counts,
 * literal text, the formats the parser refuses, and floating point.
 *
 * The floating-point writer works in double arithmetic by fixed steps
 * (round by adding half a unit, digits by repeated multiplication), so its
 * text is not always the exact decimal value.  Stored texts depend on it,
 * so these tests pin the text the steps give, including where it differs
 * from an exact printer.
 */
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "text/print_support.h"

namespace {

/* Widths, precisions and flags of everyday values are compared with snprintf
 * in test_print_differential; these are the edges it leaves out or rarely
 * meets: the extreme value, a zero under precision 0, '-' with '0'. */
TEST(PrintIntegers, WidthPrecisionAndSign) {
    EXPECT_EQ(Text("%d", INT_MIN), "-2147483648");
    EXPECT_EQ(Print("%.0d", 0), (Printed{0, ""}));
    EXPECT_EQ(Text("[%5.0d|%+.0d|%#.0o]", 0, 0, 0), "[     |+|0]");
    EXPECT_EQ(Text("[%-05d]", 42), "[42   ]");  /* '0' after '-' reads as width */
    EXPECT_EQ(Text("[%0-5d]", 42), "[42   ]");  /* '-' turns zero padding off */
}

/* Every power of ten and the number before it, in 32 and 64 bits, through
 * the everyday route and through the general one (a '+' sends it there):
 * the digit count is estimated from the bit length and corrected by one
 * compare, and digits are made four and two at a time. */
TEST(PrintIntegers, DecimalDigitCountsAtEveryPowerOfTen) {
    unsigned long long power = 1;
    for (int digits = 1; digits <= 20; ++digits, power *= digits <= 20 ? 10 : 1) {
        for (unsigned long long value : {power - 1, power, power + 1}) {
            const std::string expected = std::to_string(value);
            EXPECT_EQ(Text("%llu|%+llu", value, value), expected + "|" + expected);
            EXPECT_EQ(Text("[%22llu]", value), "[" + std::string(22 - expected.size(), ' ') + expected + "]");
            if (value <= UINT32_MAX) {
                EXPECT_EQ(Text("%u|%+u", (unsigned)value, (unsigned)value), expected + "|" + expected);
            }
        }
    }
    EXPECT_EQ(Text("%llu", ULLONG_MAX), "18446744073709551615");
    EXPECT_EQ(Text("%u|%d|%d", UINT_MAX, INT_MAX, 0), "4294967295|2147483647|0");
}

TEST(PrintIntegers, UnsignedConversionsAndAlternativeForms) {
    EXPECT_EQ(Text("%u|%x|%X|%o", -1, -1, 255, 8), "4294967295|ffffffff|FF|10");
    EXPECT_EQ(Text("% u|% x|% o", 5, 255, 8), " 5| ff| 10");  /* blank has an effect here */
    EXPECT_EQ(Text("%#x|%#o", 0, 0), "0|0");
    /* Octal's '0' prefix is kept where left-adjust leaves the count of
     * precision zeros at nothing. */
    EXPECT_EQ(Text("[%#-.3o]", 8), "[0010]");
}

TEST(PrintIntegers, SizesFollowThePlatformWords) {
    EXPECT_EQ(Text("%hd|%hhd|%hu", 70000, 300, -1), "70000|300|4294967295");
    EXPECT_EQ(Text("%ld|%lu", LONG_MIN, ULONG_MAX), "-9223372036854775808|18446744073709551615");
    EXPECT_EQ(Text("%lld|%llx", LLONG_MIN, ULLONG_MAX), "-9223372036854775808|ffffffffffffffff");
    EXPECT_EQ(Text("%jd|%I64d|%I64u", static_cast<intmax_t>(-5), INT64_MIN, UINT64_MAX),
              "-5|-9223372036854775808|18446744073709551615");
    EXPECT_EQ(Text("%zd|%zu", static_cast<size_t>(-1), static_cast<size_t>(7)), "18446744073709551615|7");
    EXPECT_EQ(Text("%td|%tx", static_cast<ptrdiff_t>(-5), static_cast<ptrdiff_t>(-1)), "-5|ffffffffffffffff");
    EXPECT_EQ(Text("%I8d|%I16d|%I32d|%I32u", -1, 70000, INT_MIN, -1), "-1|70000|-2147483648|4294967295");
    EXPECT_EQ(Text("%Ld|%Lu", -3, 3), "-3|3");  /* L has no effect on integers */
    /* A size behind an I size is taken, and the I decides the width. */
    EXPECT_EQ(Text("%I64hd|%I32lld|%d", INT64_MIN, 7, 8), "-9223372036854775808|7|8");
    int64_t wide = -1;
    int32_t narrow = -1;
    EXPECT_EQ(Text("ab%I64hn|%I32lln", &wide, &narrow), "ab|");
    EXPECT_EQ(wide, 2);
    EXPECT_EQ(narrow, 3);
    /* Arguments after a 64-bit one still line up. */
    EXPECT_EQ(Text("%lld %d %ld %d", 1LL << 40, 2, 3L, 4), "1099511627776 2 3 4");
}

TEST(PrintIntegers, BaseQualifier) {
    EXPECT_EQ(Text("%..2i|%..8i|%..16i|%..36i", 5, 8, 255, 35), "101|10|ff|z");
    EXPECT_EQ(Text("%#..2i|%#..2u|%#..16i|%#..8u", 5, 5, 255, 8), "0b101|0b101|0xff|010");
    EXPECT_EQ(Text("%..3i|%..3i", -10, 0), "-101|0");
    EXPECT_EQ(Text("%.5.2i|%8..2i", 5, 5), "00101|     101");
    EXPECT_EQ(Text("%..2u", -1), "11111111111111111111111111111111");
    EXPECT_EQ(Text("%..2llu", ~0ULL).size(), 64u);
    EXPECT_EQ(Text("%..*i", 2, 6), "110");
    /* d, o and x keep their base, but a '*' base still takes its argument. */
    EXPECT_EQ(Text("%..2d|%..2x|%..2o", 5, 255, 8), "5|ff|10");
    EXPECT_EQ(Text("%..*d %d", 2, 5, 6), "5 6");
    /* A base argument out of range falls back to the conversion's own. */
    EXPECT_EQ(Text("%..*i|%..*i", 1, 42, 99, 42), "42|42");
    EXPECT_EQ(Text("%..i", 42), "42");
}

TEST(PrintIntegers, StarArguments) {
    EXPECT_EQ(Text("[%*d]", -5, 42), "[42   ]");
    EXPECT_EQ(Text("[%0*d]", -5, 42), "[42   ]");
    EXPECT_EQ(Text("[%*d]", 5, 42), "[   42]");
    EXPECT_EQ(Text("[%.*d]", 3, 7), "[007]");
    EXPECT_EQ(Text("[%.*d]", -1, 0), "[0]");  /* negative precision: none */
    EXPECT_EQ(Text("[%*.*d]", 6, 3, 7), "[   007]");
    EXPECT_EQ(Text("[%*.*.*i]", 8, 4, 2, 5), "[    0101]");
    /* A later width overrides an earlier one; the '*' still takes its argument. */
    EXPECT_EQ(Text("[%*3d]", 9, 1), "[  1]");
    EXPECT_EQ(Text("[%3*d]", 5, 1), "[    1]");
}

/* Strings of any bytes under '-', width and precision, null and unterminated
 * text and literal text are compared with snprintf in test_print_differential
 * and test_print_sinks. */
TEST(PrintCharacters, CharactersStringsAndEscapes) {
    EXPECT_EQ(Text("%c%c%lc", 'a', 'b', 'c'), "abc");
    EXPECT_EQ(Text("[%3c|%-3c|%03c]", 'x', 'y', 'z'), "[  x|y  |  z]");
    EXPECT_EQ(Print("%c", 0).result, 1);  /* the NUL byte counts */
    EXPECT_EQ(Text("%#c%#c%#c%#c", '\n', 1, 0xff, '\\'), "\\n\\x01\\xff\\\\");
    EXPECT_EQ(Text("[%8s|%-8s|%08s]", "abc", "abc", "abc"), "[     abc|abc     |     abc]");
    EXPECT_EQ(Text("%ls", "wide is bytes"), "wide is bytes");
    EXPECT_EQ(Text("%#s", "q\"\\\a\b\t\n\v\f\r\x7f\x80 ~"),
              "q\"\\\\\\a\\b\\t\\n\\v\\f\\r\\x7f\\x80 ~");
    /* Width counts the text's own bytes, not what escapes add. */
    EXPECT_EQ(Text("[%#5s]", "\n"), "[    \\n]");
}

TEST(PrintPointersCountsLiterals, NilDigitsCountsAndUtf8) {
    EXPECT_EQ(Text("[%p]", static_cast<void *>(nullptr)), "[(nil)]");
    EXPECT_EQ(Text("[%20p|%-20p]", static_cast<void *>(nullptr), static_cast<void *>(nullptr)), "[(nil)|(nil)]");
    EXPECT_EQ(Text("%p", reinterpret_cast<void *>(0x1234)), "0x00001234");
    EXPECT_EQ(Text("%p", reinterpret_cast<void *>(0x123456789abcULL)), "0x123456789abc");
    EXPECT_EQ(Text("%p", reinterpret_cast<void *>(~uintptr_t{0})), "0xffffffffffffffff");
    EXPECT_EQ(Text("[%30p]", reinterpret_cast<void *>(0xab)), "[0x000000ab]");  /* width is fixed */
    int32_t n32 = -1;
    int16_t n16[2] = {-1, 0x5a5a};
    int64_t n64 = -1, nll = -1, nz = -1;
    EXPECT_EQ(Print("abc%n%hn%ln%lln%zn|", &n32, &n16[0], &n64, &nll, &nz), (Printed{4, "abc|"}));
    EXPECT_EQ(n32, 3);
    EXPECT_EQ(n16[0], 3);
    EXPECT_EQ(n16[1], 0x5a5a);  /* 16 bits, no more */
    EXPECT_EQ(n64, 3);
    EXPECT_EQ(nll, 3);
    EXPECT_EQ(nz, 3);
    EXPECT_EQ(Print("a%nb", static_cast<int *>(nullptr)), (Printed{2, "ab"}));
    /* On a bounded buffer the count stops at the limit, the result doesn't. */
    char small[4];
    int32_t count = -1;
    EXPECT_EQ(HalvSNPrintf(small, sizeof small, "abcdef%n", &count), 6);
    EXPECT_EQ(count, 3);
    EXPECT_STREQ(small, "abc");
    /* Bytes that start no valid sequence are copied one by one. */
    EXPECT_EQ(Print("\xff%d\x80\xc3", 1), (Printed{4, "\xff" "1\x80\xc3"}));
    EXPECT_EQ(Text("\xc3%d", 2), "\xc3" "2");
}

/* The parser reads the qualifiers of everyday directives ('-' or zeros, a
 * width, a precision, l or ll, in that order) in line, and hands any other
 * spelling to its full reader.  The same qualifiers in another order, or
 * repeated, must give the same field, and the edges of the short reading
 * (a '0' behind '-', a second dot, a third 'l') what the full one gives. */
TEST(PrintIntegers, QualifierSpellingsReadAlike) {
    const struct {
        const char *common;
        const char *other;
    } kSame[] = {
        {"[%08ld]", "[%l08d]"},    {"[%-12lld]", "[%ll-12d]"}, {"[%-8.3s]", "[%.3-8s]"},
        {"[%012llx]", "[%ll012x]"}, {"[%6.2s]", "[%.2l6s]"},  {"[%-6x]", "[%--6x]"},
        {"[%05u]", "[%0005u]"},     {"[%.0s]", "[%.s]"},        {"[%lu]", "[%1lu]"},
    };
    for (const auto &pair : kSame) {
        SCOPED_TRACE(pair.common);
        if (std::strchr(pair.common, 's') != nullptr)
            EXPECT_EQ(Text(pair.common, "abcdef"), Text(pair.other, "abcdef"));
        else
            EXPECT_EQ(Text(pair.common, -123456789L), Text(pair.other, -123456789L));
    }
    EXPECT_EQ(Text("[%-05d|%0-5d|%l5d|%5.d]", 42, 42, 42L, 0), "[42   |42   |   42|     ]");
    EXPECT_EQ(Text("[%.5d|%.s|%..2d]", 42, "x", 5), "[00042||5]");
    EXPECT_EQ(Print("%llld", 1LL).result, HALV_FORMAT_MALFORMED);
    EXPECT_EQ(Print("%5.3.2.1d", 1).result, HALV_FORMAT_MALFORMED);
}

TEST(PrintMalformed, RefusedFormatsWriteNothing) {
    const char *const malformed[] = {
        "%y", "%b", "%B", "%C", "%S", "%D", "%O", "%U", "%k", "%1$d", "%'d", "%^d", "%[a]", "%hhhd", "%lllu",
        "%I5d", "%Id", "%I320d", "%hI32d", "%I32I32d", "%...2i", "%..37i", "%..1i", "%..0i", "x%", "%5",
        "%-", "%.", "%\xc3\xa9",
    };
    /* Text before the bad directive is not written either, nor are fields
     * of everyday directives before it: the terminator is the one byte that
     * changes, in every memory sink. */
    const std::string untouched(47, 'Z');
    char buffer[48];
    for (const char *format : malformed) {
        SCOPED_TRACE(format);
        std::memset(buffer, 'Z', sizeof buffer);
        EXPECT_EQ(HalvSNPrintf(buffer, sizeof buffer, format, 1, 2, 3), HALV_FORMAT_MALFORMED);
        EXPECT_EQ(buffer[0], '\0');
        std::memset(buffer, 'Z', sizeof buffer);
        EXPECT_EQ(HalvSPrintf(buffer, format, 1, 2, 3), HALV_FORMAT_MALFORMED);
        EXPECT_EQ(buffer[0], '\0');
        char *allocated = buffer;
        EXPECT_EQ(HalvASPrintf(&allocated, format, 1, 2, 3), HALV_FORMAT_MALFORMED);
        EXPECT_EQ(allocated, nullptr);
    }
    for (const char *format : {"lots of text %d then %y", "%d %s %-5x %y", "%s %s %.2s %d %hhhd",
                               "%d %5d%%%08x %lllu"}) {
        SCOPED_TRACE(format);
        std::memset(buffer, 'Z', sizeof buffer);
        EXPECT_EQ(HalvSNPrintf(buffer, sizeof buffer, format, 12345, "text", 3, 4), HALV_FORMAT_MALFORMED);
        EXPECT_EQ(std::string(buffer, 48), '\0' + untouched);
        std::memset(buffer, 'Z', sizeof buffer);
        EXPECT_EQ(HalvSPrintf(buffer, format, 12345, "text", 3, 4), HALV_FORMAT_MALFORMED);
        EXPECT_EQ(std::string(buffer, 48), '\0' + untouched);
    }
    EXPECT_EQ(HalvSNPrintf(buffer, sizeof buffer, nullptr), HALV_FORMAT_MALFORMED);
    /* Qualifiers in any order and repeated are fine. */
    EXPECT_EQ(Text("%-+-+5d|%hhd|%lld|%jd|%zu", 1, 2, 3LL, static_cast<intmax_t>(4), size_t{5}), "+1   |2|3|4|5");
}

/* A format of n directives "%d", and the array of pointers it needs. */
std::string Directives(int n) {
    std::string format;
    for (int i = 0; i < n; ++i)
        format += "%d,";
    return format;
}

TEST(PrintLimits, SixtyFourArgumentsAndHostileSizes) {
    std::vector<int> values(65);
    std::vector<void *> pointers(65);
    std::string expected;
    for (int i = 0; i < 65; ++i) {
        values[i] = i * 3;
        pointers[i] = &values[i];
        expected += i < 64 ? std::to_string(i * 3) + "," : "";
    }
    char buffer[1024];
    EXPECT_EQ(HalvLSNPrintf(buffer, sizeof buffer, Directives(64).c_str(), pointers.data()),
              static_cast<int32_t>(expected.size()));
    EXPECT_EQ(buffer, expected);
    std::strcpy(buffer, "unchanged");
    EXPECT_EQ(HalvLSNPrintf(buffer, sizeof buffer, Directives(65).c_str(), pointers.data()),
              HALV_FORMAT_TOO_MANY_ARGS);
    EXPECT_STREQ(buffer, "");
    /* The parse fails before any argument is fetched, so none are needed. */
    EXPECT_EQ(HalvSNPrintf(buffer, sizeof buffer, Directives(100).c_str()), HALV_FORMAT_TOO_MANY_ARGS);
    /* The limit is tested before the directive is read: a malformed 65th
     * directive is too many, a malformed 64th is malformed. */
    EXPECT_EQ(HalvLSNPrintf(buffer, sizeof buffer, (Directives(64) + "%y").c_str(), pointers.data()),
              HALV_FORMAT_TOO_MANY_ARGS);
    EXPECT_EQ(HalvLSNPrintf(buffer, sizeof buffer, (Directives(63) + "%y").c_str(), pointers.data()),
              HALV_FORMAT_MALFORMED);
    /* '*' arguments count: 32 "%*d" take all 64 entries, one more is too many,
     * also when only the '*' of the last directive would still fit. */
    std::string stars, padded;
    for (int i = 0; i < 32; ++i) {
        stars += "%*d";
        const std::string digits = std::to_string(values[2 * i + 1]);
        padded += std::string(std::max(0, values[2 * i] - static_cast<int>(digits.size())), ' ') + digits;
    }
    std::vector<char> wide(8192);
    EXPECT_EQ(HalvLSNPrintf(wide.data(), 8192, stars.c_str(), pointers.data()),
              static_cast<int32_t>(padded.size()));
    EXPECT_EQ(wide.data(), padded);
    EXPECT_EQ(HalvLSNPrintf(buffer, sizeof buffer, (stars + "%d").c_str(), pointers.data()),
              HALV_FORMAT_TOO_MANY_ARGS);
    EXPECT_EQ(HalvLSNPrintf(buffer, sizeof buffer, (Directives(63) + "%*d").c_str(), pointers.data()),
              HALV_FORMAT_TOO_MANY_ARGS);
    EXPECT_EQ(HalvLSNPrintf(buffer, sizeof buffer, (Directives(62) + "%.*.*i").c_str(), pointers.data()),
              HALV_FORMAT_TOO_MANY_ARGS);
    EXPECT_EQ(HalvSNPrintf(buffer, 16, "%2147483647d", 1), INT32_MAX);
    EXPECT_STREQ(buffer, "               ");
    EXPECT_EQ(HalvSNPrintf(buffer, 16, "%99999999999999999999d", 1), INT32_MAX);
    EXPECT_EQ(HalvSNPrintf(nullptr, 0, "%.2147483647d", 1), INT32_MAX);
    EXPECT_EQ(HalvSNPrintf(nullptr, 0, "%-2147483647s", "x"), INT32_MAX);
    EXPECT_EQ(HalvSNPrintf(nullptr, 0, "%.2147483647s", "short"), 5);
    EXPECT_EQ(HalvSNPrintf(buffer, 16, "%*d", INT_MIN, 1), INT32_MAX);
    EXPECT_STREQ(buffer, "1              ");
}

const double kInf = std::numeric_limits<double>::infinity();
const double kNaN = std::numeric_limits<double>::quiet_NaN();

/* Everyday values, flags and widths are compared with snprintf in
 * test_print_differential; these are the sizes, signs and precisions it
 * leaves out. */
TEST(PrintFloat, FixedExponentAndShorterForms) {
    EXPECT_EQ(Text("%g|%g|%g", 1000000.0, 1000001.0, 1234567.0), "1000000|1e+06|1.23457e+06");
    EXPECT_EQ(Text("%g|%g|%G|%g", 0.0001, 0.00001, 0.00001, 123456.7), "0.0001|1e-05|1E-05|123457");
    EXPECT_EQ(Text("%f", 0.999999999), "1.000000");  /* the carry into the integer part */
    EXPECT_EQ(Text("%.0e|%#.0e", 3.25, 2.0), "3e+00|2.e+00");
    EXPECT_EQ(Text("%f|%e|%g", -0.0, -0.0, -0.0), "-0.000000|-0.000000e+00|-0");
    EXPECT_EQ(Text("%.3f|%.10f", 3.14159265, 0.1), "3.142|0.1000000000");
    EXPECT_EQ(Text("%f", 123456789.123456789), "123456789.123457");
}

TEST(PrintFloat, HalfUpRoundingInDoubleArithmetic) {
    /* An exact printer gives 0.12, 2, 0 and 0.10000000000000000555. */
    EXPECT_EQ(Text("%.2f|%.0f|%.0f", 0.125, 2.5, 0.5), "0.13|3|1");
    EXPECT_EQ(Text("%.20f", 0.1), "0.10000000000000000000");
    EXPECT_EQ(Text("%.2f", 1.005), "1.00");
    /* Above about 1e15 the scaled digits drift, into the leading ones too. */
    EXPECT_EQ(Text("%.0f|%.0f", 1e17, 1e22), "100000000000000064|10000000000000004826206");
    const std::string big = Text("%.0f", 1e300);
    EXPECT_EQ(big.size(), 301u);
    EXPECT_EQ(big.substr(0, 24), "100909999999900004206882");
    EXPECT_EQ(Text("%f", 1e16), "10000000000000006.000000");
}

TEST(PrintFloat, CarryRaisesTheExponentOnlyWhenTheMantissaReachesTheBase) {
    /* Rounding that carries into the units digit raises that digit; only a
     * digit that reaches the base moves the exponent. */
    EXPECT_EQ(Text("%.0e|%.0e|%e|%.2e", 1.5, 29437.0, 0.3, 6.997e-28), "2e+00|3e+04|3.000000e-01|7.00e-28");
    EXPECT_EQ(Text("%e|%e|%.4e|%.3e", 0.7, 3.0, 1.99999, 2.5), "7.000000e-01|3.000000e+00|2.0000e+00|2.500e+00");
    EXPECT_EQ(Text("%e|%.0e|%.2E|%.1e", 9.9999999, 9.5, 999.9999, -0.0996), "1.000000e+01|1e+01|1.00E+03|-1.0e-01");
    EXPECT_EQ(Text("%f|%.1f|%g|%f", 0.999999999, 9.96, 0.3, 2.9999999), "1.000000|10.0|0.3|3.000000");
    /* The shorter form in exponent form, and other bases. */
    EXPECT_EQ(Text("%g|%.3g|%.0.2e", 9.9999995e10, 1.9996e-7, 7.0), "1e+11|2e-07|1e+11");
    EXPECT_EQ(Text("%.0a|%.1a", 255.0, 31.99), "0x1p+8|0x2.0p+4");
}

TEST(PrintFloat, MantissaStaysOneDigitWhereTheLogarithmMisjudges) {
    /* log10 of these doubles rounds to the next whole number, which used to
     * leave a mantissa just below 1 and a leading 0. */
    EXPECT_EQ(Text("%.16e", 0x1.c5416bb92e3ep+730), "9.9999999999999929e+219");
    EXPECT_EQ(Text("%.14e", 0x1.f37ad21436cc1p-476), "9.99999999999991e-144");
    EXPECT_EQ(Text("%.0e|%.17e", 1e23, 1e23).substr(0, 11), "1e+23|9.999");
    /* A fraction digit where the number and its rounding adjustment nearly
     * cancel is a 0, not a 9 wrapped round from -1: this printed
     * "3.1999999999999999e+03". */
    EXPECT_EQ(Text("%.16e", 3190.0), "3.1900000000000000e+03");
}

TEST(PrintFloat, ShorterFormKeepsItsOwnRules) {
    /* Zeros behind the point are counted by the logarithm with a tolerance,
     * so a value just under a power of ten keeps one digit fewer. */
    EXPECT_EQ(Text("%g|%g", 0.099867, 0.099), "0.09987|0.099");
    /* Below 1 the digits count from the point: five of them here, not six. */
    EXPECT_EQ(Text("%g|%#g", 0.123456789, 0.125), "0.12346|0.12500");
    /* The switch to the exponent form is for values above the power. */
    EXPECT_EQ(Text("%g|%.2g|%.2g", 999999.5, 100.0, 101.0), "1000000|100|1e+02");
    /* The width is estimated with the digits that are then dropped. */
    EXPECT_EQ(Text("[%10g]|[%-10g]|[%010g]", 1.5, 1.5, 1.5), "[   1.5]|[1.5   ]|[0001.5]");
    EXPECT_EQ(Text("%.0g|%#g|%#.3g", 2.0, 1.0, 1.0), "2|1.00000|1.00");
}

TEST(PrintFloat, FlagsAndWidths) {
    EXPECT_EQ(Text("[%12.2e]|[%-+12.2e]", 12345.678, 12345.678), "[    1.23e+04]|[+1.23e+04   ]");
    EXPECT_EQ(Text("[%*.*f]", -8, 1, 2.25), "[2.3     ]");
    EXPECT_EQ(Text("[%.*f]", -3, 2.5), "[2.500000]");  /* negative precision: none */
}

TEST(PrintFloat, InfinityAndNanAreTextCutByPrecision) {
    EXPECT_EQ(Text("%f|%F|%e|%G", kNaN, kNaN, kInf, -kInf), "nan|NAN|inf|-INF");
    EXPECT_EQ(Text("%.1f|%.2f|%.0f|", kInf, -kInf, kNaN), "i|-i||");
    EXPECT_EQ(Text("%+f|% f|%+e", kInf, kNaN, kNaN), "inf|nan|nan");
    EXPECT_EQ(Text("[%5f]|[%-5f]|[%05f]|[%5.2f]", kInf, -kInf, kNaN, kNaN), "[  inf]|[-inf ]|[  nan]|[   na]");
    EXPECT_EQ(Text("%a|%g", -kInf, kNaN), "-inf|nan");
}

TEST(PrintFloat, HexadecimalFormDoesNotNormalise) {
    EXPECT_EQ(Text("%a|%a|%a|%a", 255.0, 1.0, 0.0, 1.5), "0xf.fp+4|0x1p+0|0x0p+0|0x1.8p+0");
    EXPECT_EQ(Text("%A|%a", 255.0, -2.5), "0XF.FP+4|-0x2.8p+0");
    EXPECT_EQ(Text("%a|%.4a|%.1a", 0.1, 1.0 / 3, 255.0), "0x1.999999999999ap-4|0x5.5555p-4|0xf.fp+4");
    EXPECT_EQ(Text("%..16f|%..16e", 255.0, 255.5), "0xf.fp+4|0xf.f8p+4");
}

TEST(PrintFloat, OtherBasesAreApproximate) {
    EXPECT_EQ(Text("%..2f|%.2.3f|%.2.3e|%.3.2e", 2.5, 10.0, 27.0, 100.0),
              "10.100000|101.00|1.00e+10|1.101e+110");
    EXPECT_EQ(Text("%..3f|%..36e", 0.3, 123.456), "0.022010|3.fgez4we+1");
}

TEST(PrintFloat, AccuracyAndRoundingForms) {
    /* 'h' sizes the accuracy for a float. */
    EXPECT_EQ(Text("%hf|%.10he", 2.0 / 3, 2.0 / 3), "0.666667|6.6666666667e-01");
    /* 'j' keeps the digits a double holds and hides the noise beyond them. */
    EXPECT_EQ(Text("%jf|%jf|%jf", 0.1 + 0.2, 0.7 - 0.4, 2.0 / 3), "0.3|0.3|0.66666666666666");
    EXPECT_EQ(Text("%jg|%jf", 1.0 / 3, 1.5), "0.3333333333333|1.5");
    EXPECT_EQ(Text("%jf|%jf", 12345678901234567890.0, 1e20), "12345678901234500000|100000000000000000000");
    /* The rounding form keeps the point where only its adjustment is left. */
    EXPECT_EQ(Text("%je|%jf", 0.1 + 0.2, 1e9), "3.e-01|1000000000.");
    EXPECT_EQ(Text("%hjf", 0.1 + 0.2), "0.3");
}

TEST(PrintFloat, DecimalPointComesFromTheLocale) {
    const HalvLocale comma = {",", ".", "3;0"};
    EXPECT_EQ(PrintWith(&comma, "%.1f", 1.5).text, "1,5");
    EXPECT_EQ(PrintWith(&comma, "%g|%e|%#.0f|%.0f", 0.25, 1.5, 2.0, 2.0).text, "0,25|1,500000e+00|2,|2");
    EXPECT_EQ(PrintWith(nullptr, "%.1f", 1.5).text, "1.5");
    EXPECT_EQ(Text("%.1f", 1.5), "1.5");
    /* A point of several bytes is written whole and counts its bytes in the
     * width: seven bytes here, three of them blanks. */
    const HalvLocale arabic = {"\xd9\xab", ",", ""};
    const Printed wide = PrintWith(&arabic, "[%7.1f]", 1.5);
    EXPECT_EQ(wide.text, "[   1\xd9\xab" "5]");
    EXPECT_EQ(wide.result, 9);
    const HalvLocale angle = {"<>", ",", ""};
    EXPECT_EQ(PrintWith(&angle, "%.1e", 1.5).text, "1<>5e+00");
    /* A record whose point is missing prints with ".". */
    const HalvLocale missing = {nullptr, nullptr, nullptr};
    EXPECT_EQ(PrintWith(&missing, "%.1f", 1.5).text, "1.5");
    /* The fixed record is the one the plain forms use. */
    const HalvLocale *fixed = HalvGetHalvernLocale();
    ASSERT_NE(fixed, nullptr);
    EXPECT_STREQ(fixed->decimalPoint, ".");
    EXPECT_STREQ(fixed->thousandSeparator, ",");
    EXPECT_STREQ(fixed->grouping, "");
    EXPECT_EQ(fixed, HalvGetHalvernLocale());
}

TEST(PrintFloat, ExtremeValuesStayInBounds) {
    const double tiny = std::numeric_limits<double>::denorm_min();
    const double huge = std::numeric_limits<double>::max();
    EXPECT_EQ(Text("%e|%g|%.3f", tiny, tiny, tiny), "4.940656e-324|4.94066e-324|0.000");
    /* Scaled in two steps where the power of ten underflows. */
    EXPECT_EQ(Text("%.0e|%.2e|%.3e", tiny, 2.5e-320, -1.23456e-310), "5e-324|2.50e-320|-1.235e-310");
    EXPECT_EQ(Text("%.0e|%.1a", 4.94e-324, tiny), "5e-324|0x4.0p-1076");
    EXPECT_EQ(Text("%.3e|%g", huge, -huge), "1.798e+308|-1.79769e+308");
    EXPECT_EQ(Text("%.0f", huge).size(), 309u);
    /* Binary digits of the largest double, also where the rounding form's
     * adjustment runs past it: text of the expected length, no more. */
    EXPECT_EQ(Text("%..2jf", huge).size(), 1025u);
    EXPECT_EQ(Text("%..2f", huge).size(), 1025u + 7);
    /* Precisions far beyond any digit a double has end in zeros. */
    EXPECT_EQ(Print("%.100000f", 0.5).result, 100002);
    EXPECT_EQ(HalvSNPrintf(nullptr, 0, "%.2000000000f", 0.25), 2000000002);
}

TEST(PrintFloat, ArgumentTypesByForm) {
    /* A va_list brings doubles; 'L' brings a long double, 'h' still a double. */
    EXPECT_EQ(Text("%Lf|%hf|%f", 2.5L, 0.1, 0.25), "2.500000|0.100000|0.250000");
    /* The array form points at each value in its own type. */
    float single = 1.1f;
    double value = 0.1;
    long double extended = 2.75L;
    void *args[] = {&single, &value, &extended, &value};
    char buffer[128];
    EXPECT_GT(HalvLSNPrintf(buffer, sizeof buffer, "%.10hf|%.10f|%Lf|%.3e", args), 0);
    EXPECT_STREQ(buffer, "1.1000000238|0.1000000000|2.750000|1.000e-01");
}

} // namespace
