/*
 * tests/text/test_print_differential.cpp - the print engine against the C
 * library's snprintf in the "C" locale.
 *
 * Over many random directives and values where the two are meant to agree
 * byte for byte.  The domain leaves out what the engine does differently on
 * purpose: blank on unsigned conversions, no truncation under h, "%zd" of
 * negatives, the I sizes, ties in rounding and digits beyond a double's
 * accuracy, the exponent carry of a mantissa scaled to just below a whole
 * digit, the shorter form's padding estimate and its digit count below 1,
 * and "%#o" with a left-adjusted precision.
 *
 * And the exponent form over a million random doubles, subnormal ones
 * included, at every precision from 0 to 17.  The C library prints the
 * exact decimal value correctly rounded; the engine scales in double
 * arithmetic and rounds half up.  So the sweep checks what the engine
 * promises: its text stands for the double within half a unit of its last
 * digit plus one unit of the 15th significant digit, and its leading digit
 * and exponent are the C library's, except where the double lies within
 * that slack of a carry boundary (where (d-1).99..9 turns into d.00..0, or
 * 9.99..9 into 1.00..0 of the next exponent): then the two leading digits
 * must be neighbours across it ("%.1e" of 9.95 is "9.9e+00" there,
 * "1.0e+01" here).  A leading 0, a wrong digit away from a boundary or an
 * exponent one off without a carry between all fail.
 */
#include <gtest/gtest.h>

#include <clocale>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>

#include "text/print_support.h"

namespace {

constexpr int kRounds = 20000;

/* Both printers on one directive and one value; the failure message shows
 * the format and both texts. */
template <typename Value>
::testing::AssertionResult Agree(const std::string &format, Value value) {
    char engine[512];
    char libc[512];
    const int32_t engineResult = HalvSNPrintf(engine, sizeof engine, format.c_str(), value);
    const int libcResult = std::snprintf(libc, sizeof libc, format.c_str(), value);
    if (engineResult == libcResult && std::strcmp(engine, libc) == 0)
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "format \"" << format << "\": engine " << engineResult << " \""
                                         << engine << "\", libc " << libcResult << " \"" << libc << "\"";
}

class Differential : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_NE(std::setlocale(LC_ALL, "C"), nullptr); }
    /* Flags, width and precision; '-' and '0' never together, as the two
     * printers resolve that pair the same way but the test reads simpler. */
    std::string Qualifiers(const char *allowedFlags, bool precision) {
        std::string text = "%";
        for (const char *f = allowedFlags; *f != '\0'; ++f)
            if (Chance(4))
                text += *f;
        if (text.find('-') != std::string::npos && text.find('0') != std::string::npos)
            text.erase(text.find('0'), 1);
        if (Chance(2))
            text += std::to_string(Pick(1, 25));
        if (precision && Chance(2))
            text += "." + std::to_string(Pick(0, 20));
        return text;
    }
    bool Chance(int oneIn) { return std::uniform_int_distribution<int>(1, oneIn)(random_) == 1; }
    int Pick(int low, int high) { return std::uniform_int_distribution<int>(low, high)(random_); }
    template <typename T>
    T Any() {
        return static_cast<T>(std::uniform_int_distribution<uint64_t>()(random_) >> Pick(0, 63));
    }
    std::mt19937_64 random_{20240611};
};

TEST_F(Differential, Integers) {
    static const char *const kSigned[] = {"d", "i", "ld", "lld", "jd", "td", "lli", "li"};
    static const char *const kUnsigned[] = {"u", "x", "X", "o", "lu", "llx", "zu", "lX", "zo", "jx"};
    for (int round = 0; round < kRounds; ++round) {
        const bool isSigned = Chance(2);
        const char *conversion = isSigned ? kSigned[Pick(0, 7)] : kUnsigned[Pick(0, 9)];
        std::string format = Qualifiers(isSigned ? "-+ 0" : "-+0#", true);
        if (conversion[std::strlen(conversion) - 1] == 'o' && format.find('#') != std::string::npos &&
            format.find('-') != std::string::npos && format.find('.') != std::string::npos)
            continue; /* "%#o" with a left-adjusted precision */
        format += conversion;
        if (std::strlen(conversion) > 1)
            ASSERT_TRUE(Agree(format, Chance(2) ? Any<int64_t>() : -Any<int64_t>()));
        else
            ASSERT_TRUE(Agree(format, Chance(2) ? Any<int32_t>() : -Any<int32_t>()));
    }
}

TEST_F(Differential, ShortSizesStringsAndCharacters) {
    for (int round = 0; round < kRounds / 4; ++round) {
        ASSERT_TRUE(Agree(Qualifiers("-+0", true) + (Chance(2) ? "hd" : "hhd"), Pick(-128, 127)));
        ASSERT_TRUE(Agree(Qualifiers("-0#", true) + "hx", Pick(0, 32767)));
    }
    for (int round = 0; round < kRounds; ++round) {
        std::string text;
        for (int n = Pick(0, 40); n > 0; --n)
            text += static_cast<char>(Pick(1, 255));
        ASSERT_TRUE(Agree(Qualifiers("-", true) + "s", text.c_str()));
        ASSERT_TRUE(Agree(Qualifiers("-", false) + "c", Pick(1, 255)));
    }
    ASSERT_TRUE(Agree("%s|%%|%%%%", "literal % signs"));
}

/* A double with at most five significant digits, as the text says it. */
double FewDigits(std::mt19937_64 &random, int &fractionDigits) {
    const int mantissa = std::uniform_int_distribution<int>(0, 99999)(random);
    fractionDigits = std::uniform_int_distribution<int>(0, 8)(random);
    const int sign = std::uniform_int_distribution<int>(0, 1)(random) ? -1 : 1;
    const std::string text = std::to_string(sign * mantissa) + "e-" + std::to_string(fractionDigits);
    return std::strtod(text.c_str(), nullptr);
}

TEST_F(Differential, FixedDoublesWithFewDigits) {
    for (int round = 0; round < kRounds; ++round) {
        int fractionDigits = 0;
        const double value = FewDigits(random_, fractionDigits);
        /* A precision that keeps every digit, so no rounding decides. */
        const std::string precision = "." + std::to_string(Pick(fractionDigits, 12));
        ASSERT_TRUE(Agree(Qualifiers("-+ 0#", false) + precision + (Chance(2) ? "f" : "F"), value));
    }
}

/* A whole number of at most five significant digits times an exact power
 * of ten, so that scaling it to one integer digit is exact and no rounding
 * step can carry into the integer digit. */
double WholeFewDigits(std::mt19937_64 &random) {
    const int mantissa = std::uniform_int_distribution<int>(1, 99999)(random);
    const double scale = std::pow(10.0, std::uniform_int_distribution<int>(0, 15)(random));
    return (std::uniform_int_distribution<int>(0, 1)(random) ? -1 : 1) * mantissa * scale;
}

TEST_F(Differential, ExponentDoublesWithFewDigits) {
    ASSERT_TRUE(Agree("%e", 0.0));
    for (int round = 0; round < kRounds; ++round) {
        const std::string format = Qualifiers("-+ 0#", false) + "." + std::to_string(Pick(4, 12));
        ASSERT_TRUE(Agree(format + (Chance(2) ? "e" : "E"), WholeFewDigits(random_)));
    }
}

TEST_F(Differential, ShorterDoublesWithFewDigits) {
    for (int round = 0; round < kRounds; ++round) {
        int fractionDigits = 0;
        double value = Chance(2) ? WholeFewDigits(random_) : FewDigits(random_, fractionDigits);
        /* Below 1e-4 the value is scaled inexactly; below 1 a value just
         * under a power of ten counts its zeros by a tolerance. */
        const double magnitude = std::fabs(value);
        if (magnitude != 0 && magnitude < 1e-4)
            continue;
        if (magnitude != 0 && magnitude < 1) {
            const double leading = magnitude / std::pow(10.0, std::floor(std::log10(magnitude)));
            if (leading >= 9.97)
                continue;
        }
        /* No width, since the shorter form pads by its estimate, and
         * precision 6 or more so that five digits below 1 suffice. */
        std::string format = std::string("%") + (Chance(3) ? "+" : "") + (Chance(3) ? " " : "");
        if (Chance(2))
            format += "." + std::to_string(Pick(6, 12));
        ASSERT_TRUE(Agree(format + (Chance(2) ? "g" : "G"), value));
    }
}

} // namespace

namespace {

constexpr int kValues = 1000000;
constexpr int kMaxPrecision = 17;

/* What an exponent-form text says. */
struct ExponentText {
    int leading = -1;
    int exponent = 0;
    double value = 0;
};

/* Parses "[-]d[.ddd]e(+|-)dd".  False for anything else. */
bool ParseExponentText(const char *text, ExponentText &out) {
    const char *digit = text + (*text == '-');
    const char *e = std::strchr(text, 'e');
    if (*digit < '0' || *digit > '9' || e == nullptr || (digit[1] != '.' && digit + 1 != e) ||
        (e[1] != '+' && e[1] != '-'))
        return false;
    char *end = nullptr;
    out.leading = *digit - '0';
    out.exponent = static_cast<int>(std::strtol(e + 1, &end, 10));
    out.value = std::strtod(text, nullptr);
    return *end == '\0';
}

/* Random doubles of every kind the sweep needs. */
class Doubles {
public:
    double Next() {
        const int kind = Pick(0, 9);
        if (kind == 0) /* subnormal: an exponent field of 0 */
            return FromBits(random_() & 0x800FFFFFFFFFFFFFull);
        if (kind <= 2) /* close to a carry boundary, but off it by more than the slack */
            return NearCarry();
        if (kind == 3) /* small whole numbers and halves, where ties sit */
            return (Pick(0, 1) ? -1 : 1) * Pick(0, 2000000) / 2.0;
        double value; /* any finite double */
        do
            value = FromBits(random_());
        while (!std::isfinite(value));
        return value;
    }

private:
    int Pick(int low, int high) { return std::uniform_int_distribution<int>(low, high)(random_); }
    static double FromBits(uint64_t bits) {
        double value;
        std::memcpy(&value, &bits, sizeof value);
        return value;
    }
    /* (d + 1 - 10^-q / 2 * (1 +- f)) * 10^e: just below or above where
     * rounding to q fraction digits carries into the leading digit. */
    double NearCarry() {
        const int d = Pick(0, 9);
        const int q = Pick(0, kMaxPrecision);
        const double f = std::uniform_real_distribution<double>(1e-3, 0.9)(random_) * (Pick(0, 1) ? 1 : -1);
        const double mantissa = (d + 1) - 0.5 * std::pow(10.0, -q) * (1 + f);
        return mantissa * std::pow(10.0, Pick(-320, 307));
    }
    std::mt19937_64 random_{0x5EED2020};
};

TEST(PrintExponentSweep, LeadingDigitAndExponentMatchTheCLibrary) {
    ASSERT_NE(std::setlocale(LC_ALL, "C"), nullptr);
    char formats[kMaxPrecision + 1][8];
    for (int p = 0; p <= kMaxPrecision; ++p)
        std::snprintf(formats[p], sizeof formats[p], "%%.%de", p);
    Doubles doubles;
    int failures = 0;
    long boundaryCases = 0;
    long comparisons = 0;
    for (int round = 0; round < kValues && failures < 20; ++round) {
        const double x = doubles.Next();
        for (int p = 0; p <= kMaxPrecision && failures < 20; ++p) {
            char engine[64];
            char libc[64];
            ++comparisons;
            HalvSNPrintf(engine, sizeof engine, formats[p], x);
            std::snprintf(libc, sizeof libc, formats[p], x);
            if (std::strcmp(engine, libc) == 0)
                continue;
            ExponentText e, c;
            const bool parsed = ParseExponentText(engine, e) && ParseExponentText(libc, c);
            /* Half a unit of the last digit, plus one unit of the 15th
             * significant digit. */
            const double unit = std::pow(10.0, c.exponent - p);
            const double slack = std::pow(10.0, c.exponent - 14);
            bool ok = parsed && std::fabs(e.value - x) <= 0.5 * unit + slack;
            if (ok && (e.leading != c.leading || e.exponent != c.exponent)) {
                /* Only neighbours across a carry boundary, with the double
                 * within the slack of it.  The higher text leads with d at
                 * its exponent; the boundary lies half a unit of the lower
                 * text's last digit below d * 10^exponent. */
                const ExponentText &low = e.value < c.value ? e : c;
                const ExponentText &high = e.value < c.value ? c : e;
                const bool neighbours =
                    (high.exponent == low.exponent && high.leading == low.leading + 1) ||
                    (high.exponent == low.exponent + 1 && high.leading == 1 && low.leading == 9);
                const double boundary =
                    high.leading * std::pow(10.0, high.exponent) - 0.5 * std::pow(10.0, low.exponent - p);
                ok = neighbours && std::fabs(x - boundary) <= slack;
                boundaryCases += ok ? 1 : 0;
            }
            if (!ok) {
                ++failures;
                ADD_FAILURE() << "%." << p << "e of " << std::hexfloat << x << std::defaultfloat << " ("
                              << libc << "): engine \"" << engine << "\"";
            }
        }
    }
    EXPECT_EQ(failures, 0);
    /* The exception stays rare, though a fifth of the values are made to
     * lie near a boundary: the sweep has not turned into a formality. */
    EXPECT_LT(boundaryCases, comparisons / 100);
}

} // namespace
