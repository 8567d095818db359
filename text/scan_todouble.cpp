/*
 * text/scan_todouble.cpp - the scan engine's own text-to-double conversion.
 *
 * It works digit by digit in double arithmetic and applies one power of the
 * base at the end; it makes no attempt at an exactly rounded result.  The
 * integer part is exact up to 2^53, hexadecimal text is exact to 53 bits,
 * and "digits.e-N" is one correctly rounded division for N up to 22.
 * Exponents whose power leaves the double range are applied in steps.  A
 * decimal fraction adds up inexact tenths: "0.3" gives 0.1 * 3.
 */
#include <cmath>

#include "text/scale_power.h"
#include "text/scan_internal.h"

namespace halv {
namespace {

/* Powers of ten that a double holds exactly. */
constexpr double kExactTens[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                 1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
                                 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};

/* The scale of the k-th decimal fraction digit is 1 divided by 10 k times
 * over, each division rounded.  The sequence doesn't depend on the text, so
 * it is made once, at compile time, with the same rounded divisions.  A
 * field has at most 511 bytes, so no text has more fraction digits. */
struct ScaleTable {
    double scale[512];
};

constexpr ScaleTable MakeScaleTable() {
    ScaleTable t{};
    t.scale[0] = 1;
    for (int k = 1; k < 512; ++k)
        t.scale[k] = t.scale[k - 1] / 10;
    return t;
}

constinit const ScaleTable kTenthScales = MakeScaleTable();

/* Below this an integer part can take one more digit of any base up to 16
 * and stay below 2^53, where a double holds every integer exactly. */
constexpr uint64_t kExactIntegerLimit = (uint64_t)1 << 49;

double Power(int base, uint32_t exponent) {
    if (base == 10 && exponent < sizeof kExactTens / sizeof kExactTens[0])
        return kExactTens[exponent];
    return std::pow((double)base, (double)exponent);
}

} // namespace

double ScanTextToDouble(const char *text, const char **end) noexcept {
    const unsigned char *p = (const unsigned char *)text;
    bool negative = false;
    if (*p == '+' || *p == '-')
        negative = *p++ == '-';
    int base = 10;
    if (p[0] == '0' && (p[1] | 0x20) == 'x') {
        base = 16;
        p += 2;
    }
    /* integer = integer * base + digit in doubles.  While the value is
     * below 2^53 that is exact, and 64-bit integers give the same. */
    int digit;
    uint64_t exact = 0;
    if (base == 10) { /* the usual text: a digit is a byte from '0' to '9' */
        for (unsigned d; exact < kExactIntegerLimit && (d = (unsigned)*p - '0') < 10; ++p)
            exact = exact * 10 + d;
    }
    for (; exact < kExactIntegerLimit && (digit = DigitValue(*p)) >= 0 && digit < base; ++p)
        exact = exact * (uint64_t)base + (uint64_t)digit;
    double integer = (double)exact;
    for (; (digit = DigitValue(*p)) >= 0 && digit < base; ++p)
        integer = integer * base + digit;

    double fraction = 0;
    uint32_t exponent = 0;
    bool exponentNegative = false;
    if (*p == '.') {
        ++p;
        /* Each fraction digit is worth a tenth (a sixteenth) of the one
         * before it. */
        if (base == 10) {
            for (unsigned k = 1, d; k < 512 && (d = (unsigned)*p - '0') < 10; ++p, ++k)
                fraction += kTenthScales.scale[k] * (int)d;
        } else {
            double scale = 1;
            for (; (digit = DigitValue(*p)) >= 0 && digit < 16; ++p) {
                scale *= 0.0625;
                fraction += scale * digit;
            }
        }
        if ((*p | 0x20) == (base == 16 ? 'p' : 'e')) {
            ++p;
            if (*p == '+' || *p == '-')
                exponentNegative = *p++ == '-';
            for (; *p >= '0' && *p <= '9'; ++p)
                exponent = exponent * 10u + (uint32_t)(*p - '0');
        }
    }
    if (end != nullptr)
        *end = reinterpret_cast<const char *>(p);
    double value = integer + fraction;
    /* Zero stays zero even against an infinite power.  A power beyond the
     * double range is applied in steps, so that a long mantissa with a large
     * negative exponent, or a short one with a large positive exponent,
     * still gives the finite value it stands for. */
    if (exponent != 0 && value != 0) {
        const int powerBase = base == 16 ? 2 : 10;
        value = ScaleByPower(value, Power(powerBase, exponent), powerBase, exponent, exponentNegative);
    }
    return negative ? -value : value;
}

} // namespace halv
