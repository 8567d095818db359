/*
 * The scan engine's own text-to-double conversion: exact where its double
 * arithmetic is exact, and in agreement with the C library's reader over
 * classes of text where both must give the same double.
 */
#include <gtest/gtest.h>

#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "dpk_hvsup.h"

namespace {

double Scan(const std::string &text) {
    double value = -12345.0;
    EXPECT_EQ(HalvSScanf(text.c_str(), "%lf", &value), 1) << text;
    return value;
}

double Reference(const std::string &text) {
    double value = 0;
    EXPECT_EQ(std::sscanf(text.c_str(), "%lf", &value), 1) << text;
    return value;
}

TEST(TextScanDouble, ExactValues) {
    EXPECT_TRUE(std::signbit(Scan("-0.0")));
    /* "12.e-1" is one division, correctly rounded.  2^1074 is beyond the
     * double range: the division goes in steps and gives the smallest
     * subnormal. */
    const struct {
        const char *text;
        double value;
    } exact[] = {
        /* Integers, dyadic fractions, "N.e-K" and hexadecimal text of every
         * size are compared with sscanf below; these are their edges. */
        {"0", 0.0}, {"9007199254740991", 9007199254740991.0}, {"-4503599627370495.5", -4503599627370495.5},
        {"2.5e+22", 2.5e22}, {"0x.8", 0.5}, {"0X1F.Cp-2", 7.9375},
        {"0x1.fffffffffffffp1023", 1.7976931348623157e308}, {"0x1.p-1022", std::ldexp(1.0, -1022)},
        {"0x1.p-1074", std::ldexp(1.0, -1074)}, {"0x1.p-1075", 0.0},
        /* Subnormal results, and values beyond the range either way; the
         * exponent wraps as an unsigned 32-bit number. */
        {"49406564584124654.e-340", 4.9406564584124654e-324}, {"1.e-400", 0.0}, {"1.e+400", HUGE_VAL},
        {"-1000.e+306", -HUGE_VAL}, {"0.e+400", 0.0}, {"1.e+4294967295", HUGE_VAL}, {"1.0e400", HUGE_VAL},
        {"-1.0e400", -HUGE_VAL}, {"1.0e-400", 0.0}, {"0.0e999999", 0.0}, {"2.5e4294967297", 25.0},
    };
    for (const auto &e : exact)
        EXPECT_EQ(Scan(e.text), e.value) << e.text;
    /* A hexadecimal exponent is only read behind the point. */
    int n = 0;
    double d = 0;
    EXPECT_EQ(HalvSScanf("0x10p4", "%f%n", &d, &n), 1);
    EXPECT_EQ(d, 16.0);
    EXPECT_EQ(n, 4);
}

TEST(TextScanDouble, FollowsItsOwnArithmetic) {
    /* A decimal fraction adds up tenths that are not exact: these differ
     * from the nearest double, and give what the digit sums give. */
    volatile double tenth = 1.0, hundredth = 0.0;
    tenth = tenth / 10;
    hundredth = tenth / 10;
    EXPECT_EQ(Scan("0.3"), (double)(0.0 + tenth * 3));
    EXPECT_NE(Scan("0.3"), 0.3);
    EXPECT_EQ(Scan("0.75"), (double)(0.0 + tenth * 7 + hundredth * 5));
}

/* Random text of several classes, each one where the conversion is exact
 * and so must equal the C library's correctly rounded result, and random
 * integers. */
TEST(TextScanDouble, AgreesWithTheCLibrary) {
    std::mt19937_64 random(20240611);
    const int kRounds = 20000;
    char text[96];
    for (int i = 0; i < kRounds; ++i) {
        /* Integers below 2^53, either sign, as "N" and "N.". */
        int64_t integer = (int64_t)(random() >> 11);
        if (random() & 1)
            integer = -integer;
        snprintf(text, sizeof text, (i & 1) ? "%" PRId64 : "%" PRId64 ".", integer);
        ASSERT_EQ(Scan(text), Reference(text)) << text;
        /* Short integers with short dyadic fractions. */
        static const char *const kFractions[] = {"5", "25", "125", "0625", "5e3", "25e-2"};
        uint64_t small = random() % 1000000;
        snprintf(text, sizeof text, "%" PRIu64 ".%s", small, kFractions[random() % 6]);
        ASSERT_EQ(Scan(text), Reference(text)) << text;
        /* "N.e-K": one division of two exact doubles. */
        uint64_t numerator = random() >> 11;
        snprintf(text, sizeof text, "%" PRIu64 ".e-%d", numerator, (int)(random() % 23));
        ASSERT_EQ(Scan(text), Reference(text)) << text;
        /* Halves with a positive exponent, integral and below 2^53. */
        snprintf(text, sizeof text, "%" PRIu64 ".5e%d", random() % 100000, 1 + (int)(random() % 10));
        ASSERT_EQ(Scan(text), Reference(text)) << text;
        /* Hexadecimal text of 53 bits with a binary exponent. */
        uint64_t mantissa = random() >> 11;
        int exponent = (int)(random() % 400) - 200;
        snprintf(text, sizeof text, "0x%" PRIx64 ".%" PRIx64 "p%d", mantissa >> 20,
                 (mantissa & 0xFFFFF) << 4, exponent);
        ASSERT_EQ(Scan(text), Reference(text)) << text;

        /* Integers of 32 bits in decimal, of 64 bits in hexadecimal. */
        int32_t ours = 0, theirs = 0;
        snprintf(text, sizeof text, "%" PRId32, (int32_t)random());
        ASSERT_EQ(HalvSScanf(text, "%d", &ours), 1);
        ASSERT_EQ(std::sscanf(text, "%" SCNd32, &theirs), 1);
        ASSERT_EQ(ours, theirs) << text;
        uint64_t wideOurs = 0, wideTheirs = 0;
        snprintf(text, sizeof text, "%" PRIx64, (uint64_t)random());
        ASSERT_EQ(HalvSScanf(text, "%llx", &wideOurs), 1);
        ASSERT_EQ(std::sscanf(text, "%" SCNx64, &wideTheirs), 1);
        ASSERT_EQ(wideOurs, wideTheirs) << text;
    }
}

/* Within a few units of the last place of the C library's reading. */
::testing::AssertionResult Near(const std::string &text) {
    const double ours = Scan(text);
    const double theirs = Reference(text);
    if (std::fabs(ours - theirs) <= 8 * std::fabs(theirs) * 2.220446049250313e-16)
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << text << ": " << ours << ", the C library " << theirs;
}

TEST(TextScanDouble, PowersBeyondTheRangeStillGiveValuesInsideIt) {
    /* A long mantissa against an exponent whose power underflows, and a
     * short one against a power that overflows. */
    EXPECT_TRUE(Near("80017839920080990553263568214226053959934848795101730207.84213e-310"));
    EXPECT_NEAR(Scan("80017839920080990553263568214226053959934848795101730207.84213e-310") / 8.0017839920080990e-255,
                1.0, 1e-14);
    EXPECT_TRUE(Near("0.0000000001e+310"));
    EXPECT_NEAR(Scan("0.0000000001e+310") / 1e300, 1.0, 1e-14);
    EXPECT_TRUE(Near("123456789.e-320"));
    EXPECT_TRUE(Near("-0.000000000000000000000000000000000000000000000000000000000000000000000000000001e+380"));
    EXPECT_TRUE(Near("0x1000.p-1086"));
    EXPECT_TRUE(Near("0x.0001p+1030"));
    /* Random mantissas of up to 17 digits at exponents near both ends. */
    std::mt19937_64 random(310);
    char text[96];
    for (int i = 0; i < 20000; ++i) {
        const uint64_t mantissa = random() % 100000000000000000ull + 1;
        const int digits = snprintf(text, sizeof text, "%" PRIu64, mantissa);
        const bool low = (random() & 1) != 0;
        const int exponent = low ? -(300 + (int)(random() % 40)) + digits : 290 + (int)(random() % 18) - digits;
        snprintf(text, sizeof text, "%" PRIu64 ".e%d", mantissa, exponent);
        const double theirs = Reference(text);
        if (theirs < 2.2250738585072014e-308) /* subnormal: fewer bits to compare */
            ASSERT_NEAR(Scan(text), theirs, 4.9406564584124654e-324 * 2) << text;
        else
            ASSERT_TRUE(Near(text));
    }
}

/* What one scan of text gives: the result, the double's bits, and the
 * bytes taken (%n), for a format of "%<width>lf%n". */
struct Reading {
    int result;
    uint64_t bits;
    int taken;
    bool operator==(const Reading &) const = default;
};

Reading ReadString(const std::string &text, const char *format) {
    double value = -7.0;
    int taken = -1;
    Reading r{HalvSScanf(text.c_str(), format, &value, &taken), 0, taken};
    std::memcpy(&r.bits, &value, sizeof value);
    return r;
}

Reading ReadStream(const std::string &text, const char *format) {
    std::string copy = text;
    HalvIO *io = HalvIO_Str(copy.data(), static_cast<uint32_t>(copy.size()));
    double value = -7.0;
    int taken = -1;
    Reading r{HalvIOScanf(io, format, &value, &taken), 0, taken};
    io->close(io);
    std::memcpy(&r.bits, &value, sizeof value);
    return r;
}

/* A float field from a string with no width is converted where it stands;
 * with a width, or from a stream, it is collected first.  Both roads must
 * take the same bytes and give the same double, also on text that is only
 * partly a number. */
TEST(TextScanDouble, StringFieldsReadAsCollectedFields) {
    std::mt19937_64 random(99);
    const std::string alphabet = "0123456789..eE+-xXpPaAfFinN \t,";
    const char *const kSamples[] = {"1.5", "-0.25e3x", "+.e", "0x", "0x1.8p", "-", "+", ".", "..5", "1e5",
                                    "12.5e+-3", "0x.Fp-3", "-nan", "nan", "-inf", "Infinite", "7.e999",
                                    "3.25,1", "0X1F.cP2tail", "000000.000001e-0005"};
    std::vector<std::string> texts(std::begin(kSamples), std::end(kSamples));
    for (int i = 0; i < 20000; ++i) {
        std::string text;
        const size_t length = 1 + random() % 24;
        for (size_t k = 0; k < length; ++k)
            text += alphabet[random() % alphabet.size()];
        texts.push_back(text);
        char number[64];
        snprintf(number, sizeof number, "%.*e", (int)(random() % 20), (double)(int64_t)random() / 1e9);
        texts.push_back(number);
    }
    texts.push_back(std::string(300, '1') + ".5"); /* longer than the in-place reading takes */
    texts.push_back("0." + std::string(600, '3'));
    for (const std::string &text : texts) {
        const Reading inPlace = ReadString(text, "%lf%n");
        ASSERT_EQ(inPlace, ReadString(text, "%1000lf%n")) << text;
        ASSERT_EQ(inPlace, ReadStream(text, "%lf%n")) << text;
    }
}

} // namespace
