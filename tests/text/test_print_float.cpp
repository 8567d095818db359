/*
 * tests/text/test_print_float.cpp - the floating-point writer.
 *
 * The writer works in double arithmetic by fixed steps (round by adding half
 * a unit, digits by repeated multiplication), so its text is not always the
 * exact decimal value.  Stored texts depend on it, so these tests pin the
 * text the steps give, including where it differs from an exact printer.
 */
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>

#include "text/print_support.h"

namespace {

const double kInf = std::numeric_limits<double>::infinity();
const double kNaN = std::numeric_limits<double>::quiet_NaN();

TEST(PrintFloat, FixedExponentAndShorterForms) {
    EXPECT_EQ(Text("%f|%f|%f", 0.0, 1.5, -2.5), "0.000000|1.500000|-2.500000");
    EXPECT_EQ(Text("%e|%E", 0.0, 1234.5), "0.000000e+00|1.234500E+03");
    EXPECT_EQ(Text("%e|%e|%E", 1e100, 1e-300, 1.5e-10), "1.000000e+100|1.000000e-300|1.500000E-10");
    EXPECT_EQ(Text("%g|%g|%g|%g", 0.0, 100000.0, 1000000.0, 1000001.0), "0|100000|1000000|1e+06");
    EXPECT_EQ(Text("%g|%g|%G|%g", 0.0001, 0.00001, 0.00001, 123456.7), "0.0001|1e-05|1E-05|123457");
    EXPECT_EQ(Text("%g|%g", 1234567.0, 0.5), "1.23457e+06|0.5");
    EXPECT_EQ(Text("%f", 0.999999999), "1.000000");  /* the carry into the integer part */
    EXPECT_EQ(Text("%e", 9.9999999), "1.000000e+01");  /* the carry into the exponent */
    EXPECT_EQ(Text("%.0f|%.0e|%#.0f|%#.0e", 3.25, 3.25, 2.0, 2.0), "3|3e+00|2.|2.e+00");
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
    EXPECT_EQ(Text("%+.1f|% .1f|%+.1f", 1.5, 1.5, -1.5), "+1.5| 1.5|-1.5");
    EXPECT_EQ(Text("[%08.2f]|[%-8.2f]|[%+08.2f]", -1.5, 1.5, 1.5), "[-0001.50]|[1.50    ]|[+0001.50]");
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
