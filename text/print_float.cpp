/*
 * text/print_float.cpp - the floating-point writer.
 *
 * All of it is double arithmetic: the number is rounded by adding half a
 * unit of the last place and its digits are taken by repeated multiplication.
 * That is not exact, and it is not meant to be: digits beyond what a double
 * holds come out as the arithmetic makes them, and stored texts rely on this
 * writer producing the same digits every time.  So the order of operations
 * below is part of the output; don't "improve" it.
 *
 * Forms: f (fixed), e (exponent), g (the shorter, with trailing zeros
 * dropped), a (hexadecimal: base 16, exponent in bits, no normalisation to a
 * leading 1).  A base qualifier prints in any base from 2 to 36.  The 'j'
 * size asks for the rounding form, which keeps only the digits a double
 * holds; 'h' sizes the accuracy for a float.
 */
#include <cmath>
#include <cstring>
#include <iterator>

#include "text/print_internal.h"
#include "text/scale_power.h"

namespace halv {
namespace {

/* log of x to the base; -infinity for 0. */
double Log(double x, int32_t base) noexcept {
    return base == 10 ? std::log10(x) : std::log10(x) / std::log10(static_cast<double>(base));
}

/* The powers of ten a double holds exactly.  pow is within about half a
 * unit of the last place, so for these it gives exactly the same values:
 * the table only saves the call. */
constexpr double kTens[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11,
                            1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};

/* base to the n. */
double Power(int32_t base, int64_t n) noexcept {
    if (base == 10 && n >= 0 && n < static_cast<int64_t>(std::size(kTens)))
        return kTens[n];
    return std::pow(static_cast<double>(base), static_cast<double>(n));
}

/* Digits of the integer part, at least 1: 1 + (int)log(integerNumber).
 * A whole number in base 10 below 1e9 is at least 1 from the next power of
 * ten, far more than log10's rounding can bridge there, so counting against
 * the table gives the same digits without the logarithm. */
int64_t IntegerDigits(double integerNumber, int32_t base, double epsilon) noexcept {
    if (!(integerNumber > epsilon))
        return 1;
    if (base == 10 && integerNumber < kTens[9] && integerNumber == std::floor(integerNumber)) {
        int64_t digits = 1;
        while (integerNumber >= kTens[digits])
            ++digits;
        return digits;
    }
    return 1 + static_cast<int64_t>(Log(integerNumber, base));
}

/* A digit value from w mod base.  The arithmetic keeps it in range; the
 * guards only keep the table safe when a value beyond the largest double
 * (an adjustment added to it) made w infinite. */
int DigitIndex(double w, int32_t base) noexcept {
    /* w is a whole number: below 2^63 the integer remainder is exactly what
     * fmod gives, and much cheaper. */
    if (w >= 0 && w < 9223372036854775808.0) {
        const auto whole = static_cast<uint64_t>(w);
        /* A constant divisor is a multiplication; base 10 is nearly all. */
        return static_cast<int>(base == 10 ? whole % 10 : whole % static_cast<uint32_t>(base));
    }
    const double rest = std::fmod(w, static_cast<double>(base));
    if (std::isnan(rest))
        return 0;
    const int index = static_cast<int>(rest);
    return index < 0 ? index + base : index;
}

/* number / base^exponent, in steps where the power alone would leave the
 * double range (subnormal numbers, exponents near the top). */
double ScaleDown(double number, int32_t base, int exponent) noexcept {
    return ScaleByPower(number, std::pow(static_cast<double>(base), exponent), base, exponent, true);
}

enum class FloatForm { Fixed, Exponent, Shorter };

/* The form letter of a conversion, lower case; 'a' is the exponent form in
 * base 16, which the base alone decides. */
FloatForm FormOf(char conversion) noexcept {
    switch (conversion | 0x20) {
    case 'e':
    case 'a':
        return FloatForm::Exponent;
    case 'g':
        return FloatForm::Shorter;
    default:
        return FloatForm::Fixed;
    }
}

bool IsUpperConversion(char conversion) noexcept {
    return conversion >= 'A' && conversion <= 'Z';
}

void WriteNonFinite(PrintSink &sink, double number, const HalvFormatParameter &field) noexcept {
    /* Blocks the copy may read whole. */
    static constexpr char kWords[3][2][16] = {{"nan", "NAN"}, {"-inf", "-INF"}, {"inf", "INF"}};
    const int word = std::isnan(number) ? 0 : number < 0 ? 1 : 2;
    WriteString(sink, kWords[word][IsUpperConversion(ConversionOf(field)) ? 1 : 0], field.flags, field.width,
                field.precision);
}

} // namespace

void WriteFloat(PrintSink &sink, double number, const HalvFormatParameter &field) noexcept {
    /* 1. Classify. */
    if (!std::isfinite(number)) {
        WriteNonFinite(sink, number, field);
        return;
    }
    const uint32_t flags = field.flags;
    const int32_t base = field.base;
    const bool upper = IsUpperConversion(ConversionOf(field));
    const char *digitSet = upper ? kUpperDigits : kLowerDigits;
    const FloatForm form = FormOf(ConversionOf(field));
    const bool isShorter = form == FloatForm::Shorter;
    const bool negative = std::signbit(number);
    int64_t precision = field.precision;

    /* 2. Accuracy. */
    const bool single = (flags & (kFlagSizeH | kFlagSizeHH)) != 0;
    const int64_t baseDigits =
        base == 10 ? (single ? 6 : 15)
                   : static_cast<int64_t>(std::floor((single ? 24 : 53) / std::log2(static_cast<double>(base))));
    const double epsilon = single ? 1.1920928955078125e-07 : 2.220446049250313e-16;

    /* 3, 4. Precision and what becomes of trailing zeros. */
    const bool isHex = base == 16;
    const bool roundingForm = (flags & kFlagSizeJ) != 0;
    bool keepTrailingZeroes = !(roundingForm || (isShorter && !(flags & kFlagAlt)));
    if (roundingForm)
        precision = baseDigits;
    if (precision < 0) {
        precision = isHex ? 24 : 6;
        if (isHex)
            keepTrailingZeroes = false;
    }

    /* 5. */
    number = std::fabs(number);
    bool exponentForm = form == FloatForm::Exponent || isHex;

    /* 6. The shorter form picks fixed or exponent, and counts the zeros
     * behind the point of a number below 1. */
    int64_t zeroes = 0;
    if (isShorter) {
        if (precision == 0)
            precision = 1;
        if (number < 0.0001 || number > Power(base, precision)) {
            exponentForm = true;
        } else if (number < 1) {
            double w = std::fabs(Log(number, base));
            if (w - std::floor(w) < 0.001)
                w -= 1;
            zeroes = static_cast<int64_t>(std::floor(w));
        }
    }

    /* 7. Exponent form: scale the number to one integer digit. */
    int exponent = 0;
    uint64_t uExponent = 0;
    const auto setExponent = [&](int value) {
        exponent = value;
        uExponent = static_cast<uint64_t>(value < 0 ? -static_cast<int64_t>(value) : value) * (isHex ? 4 : 1);
    };
    if (exponentForm) {
        const double w = Log(number, base);
        if (std::isinf(w)) {
            setExponent(0);
            if (isShorter)
                exponentForm = false;
        } else {
            setExponent(static_cast<int>(std::floor(w)));
            number = ScaleDown(number, base, exponent);
            /* The logarithm is inexact next to a power of the base and may
             * be one off: the mantissa then lands just below 1 or at the
             * base, and would print a leading 0 or two integer digits. */
            if (number < 1) {
                number *= base;
                setExponent(exponent - 1);
            } else if (number >= base) {
                number /= base;
                setExponent(exponent + 1);
            }
        }
    }

    /* 8. Split, and size the fraction. */
    double integerNumber = std::floor(number);
    double fractionNumber = number - integerNumber;
    int64_t integerDigits = IntegerDigits(integerNumber, base, epsilon);
    int64_t fractionDigits = (isShorter && zeroes == 0) ? precision - integerDigits : zeroes + precision;
    double fractionBase = Power(base, fractionDigits);

    /* 9. Carry: rounding at the last place reaches the integer part, so
     * every fraction digit has rounded up and the units digit rises by one.
     * floor(number + 0.5) is floor(w) wherever the last place is at or
     * behind the point, which it always is in exponent form; only the
     * shorter form's exact power of the base (integer digits beyond the
     * precision) rounds in front of it, and keeps its digits.  Only a units
     * digit that reaches the base raises the exponent. */
    if (std::floor(number + 0.5 / fractionBase) != std::floor(number)) {
        integerNumber = std::floor(number + 0.5);
        fractionNumber = 0;
        if (exponentForm && integerNumber >= base) {
            setExponent(exponent + 1);
            integerNumber = 1;
        }
        integerDigits = IntegerDigits(integerNumber, base, epsilon);
    }

    /* 10. Accuracy limits: thresholds count the digits that are real. */
    double integerAdjust = 0.5;
    double fractionAdjust = 0.5;
    int64_t integerThreshold = INT32_MAX;
    int64_t fractionThreshold = INT32_MAX;
    if (roundingForm) {
        if (integerDigits > baseDigits) {
            integerThreshold = baseDigits;
            fractionDigits = 0;
            fractionBase = 1;
            fractionThreshold = 0;
            precision = 0;
            integerAdjust = Power(base, integerDigits - baseDigits - 1);
            fractionAdjust = 0;
        } else {
            integerThreshold = integerDigits;
            fractionThreshold = fractionDigits - integerDigits;
            fractionAdjust = 1;
        }
    }

    /* 11. */
    fractionAdjust /= fractionBase;
    const bool hasOnlyZeroes = std::floor((fractionNumber + fractionAdjust) * fractionBase) < epsilon;
    const bool keepDecimalPoint =
        (flags & kFlagAlt) || !(precision == 0 || (!keepTrailingZeroes && hasOnlyZeroes));

    /* 12. */
    int64_t exponentDigits = 0;
    if (exponentForm)
        exponentDigits = uExponent == 0
                             ? 1
                             : static_cast<int64_t>(std::ceil(Log(static_cast<double>(uExponent + 1),
                                                                  isHex ? 10 : base)));
    const bool requireTwoDigits = base == 10 && exponentDigits == 1;

    /* 13. The width the text is expected to take, counting fraction digits
     * that may be dropped later, so the shorter form pads by its estimate. */
    const char *point = DecimalPointOf(sink.context);
    const uint32_t pointLength = static_cast<uint32_t>(std::strlen(point));
    const char sign = negative ? '-' : (flags & kFlagPlus) ? '+' : (flags & kFlagBlank) ? ' ' : '\0';
    int64_t expectedWidth = integerDigits + fractionDigits + (keepDecimalPoint ? pointLength : 0);
    if (sign != '\0')
        expectedWidth += 1;
    if (exponentDigits > 0)
        expectedWidth += exponentDigits + (requireTwoDigits ? 3 : 2);
    if (isHex)
        expectedWidth += 2;
    const int64_t padding = field.width - expectedWidth;
    const bool left = (flags & kFlagLeft) != 0;

    /* 14. Padding, sign and prefix. */
    if (!(flags & kFlagZero) && !left && padding > 0)
        PutFill(sink, ' ', padding);
    if (sign != '\0')
        PutByte(sink, sign);
    if (isHex)
        Put(sink, upper ? "0X" : "0x", 2);
    if ((flags & kFlagZero) && !left && padding > 0)
        PutFill(sink, '0', padding);

    /* 15. Integer digits, from the most significant. */
    double scale = 1 / Power(base, integerDigits - 1);
    for (int64_t i = 0; i < integerDigits; ++i) {
        int digit = 0;
        if (i < integerThreshold)
            digit = DigitIndex(std::floor((integerNumber + integerAdjust) * scale), base);
        PutByte(sink, digitSet[digit]);
        scale *= base;
    }

    /* 16. */
    if (keepDecimalPoint)
        Put(sink, point, pointLength);

    /* 17, 18. Fraction digits.  Zeros are only noted until a later digit
     * shows they are not trailing. */
    int64_t notedZeros = 0;
    for (int64_t position = 1; position <= fractionDigits; ++position) {
        if (integerDigits > integerThreshold || position > fractionThreshold) {
            ++notedZeros;
            continue;
        }
        if (fractionNumber == 0 && fractionAdjust == 0) {
            /* Nothing can make a digit any more: the rest are zeros. */
            notedZeros += fractionDigits - position + 1;
            break;
        }
        fractionNumber *= base;
        fractionAdjust *= base;
        double w = std::floor(fractionNumber + fractionAdjust);
        /* fractionNumber + fractionAdjust stays in [0, 1) before the step,
         * so w is a digit; only rounding where the two nearly cancel, or
         * nearly reach 1, pushes it one past the ends.  Kept at the nearest
         * digit, the rest of the text stays next to the number instead of
         * wrapping to 9 or 0. */
        if (w < 0)
            w = 0;
        else if (w >= base)
            w = base - 1;
        fractionNumber -= w;
        const int index = DigitIndex(w, base);
        if (index == 0) {
            ++notedZeros;
        } else {
            PutFill(sink, '0', notedZeros);
            notedZeros = 0;
            PutByte(sink, digitSet[index]);
        }
    }
    if (keepTrailingZeroes)
        PutFill(sink, '0', notedZeros);

    /* 19. Exponent: its digits in decimal for the hexadecimal form, else in
     * the number's own base. */
    if (exponentDigits > 0) {
        PutByte(sink, isHex ? (upper ? 'P' : 'p') : (upper ? 'E' : 'e'));
        PutByte(sink, exponent < 0 ? '-' : '+');
        if (requireTwoDigits)
            PutByte(sink, '0');
        /* Exactly exponentDigits digits, from the most significant. */
        const uint64_t exponentBase = isHex ? 10 : static_cast<uint64_t>(base);
        char digits[64];
        uint64_t rest = uExponent;
        const int64_t count = exponentDigits < 64 ? exponentDigits : 64;
        for (int64_t i = count - 1; i >= 0; --i) {
            digits[i] = digitSet[rest % exponentBase];
            rest /= exponentBase;
        }
        Put(sink, digits, static_cast<size_t>(count));
    }

    /* 20. */
    if (left && padding > 0)
        PutFill(sink, ' ', padding);
}

void PrintFloatField(PrintSink &sink, const HalvFormatParameter &p) noexcept {
    WriteFloat(sink, p.data.d, p);
}

} // namespace halv
