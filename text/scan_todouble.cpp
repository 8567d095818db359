/*
 * text/scan_todouble.cpp - the scan engine's own text-to-double conversion.
 *
 * It works digit by digit in double arithmetic and applies one power of the
 * base at the end; it makes no attempt at an exactly rounded result.  The
 * integer part is exact up to 2^53, hexadecimal text is exact to 53 bits,
 * and "digits.e-N" is one correctly rounded division for N up to 22.  A
 * decimal fraction adds up inexact tenths: "0.3" gives 0.1 * 3.
 */
#include <cmath>

#include "text/scan_internal.h"

namespace halv {
namespace {

/* Powers of ten that a double holds exactly. */
constexpr double kExactTens[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                 1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
                                 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};

double Power(int base, uint32_t exponent) {
    if (base == 10 && exponent < sizeof kExactTens / sizeof kExactTens[0])
        return kExactTens[exponent];
    return std::pow((double)base, (double)exponent);
}

} // namespace

double ScanTextToDouble(const char *text) noexcept {
    const unsigned char *p = (const unsigned char *)text;
    bool negative = false;
    if (*p == '+' || *p == '-')
        negative = *p++ == '-';
    int base = 10;
    if (p[0] == '0' && (p[1] | 0x20) == 'x') {
        base = 16;
        p += 2;
    }
    int digit;
    double integer = 0;
    for (; (digit = DigitValue(*p)) >= 0 && digit < base; ++p)
        integer = integer * base + digit;

    double fraction = 0;
    uint32_t exponent = 0;
    bool exponentNegative = false;
    if (*p == '.') {
        ++p;
        /* Each fraction digit is worth a tenth (a sixteenth) of the one
         * before it. */
        double scale = 1;
        for (; (digit = DigitValue(*p)) >= 0 && digit < base; ++p) {
            scale = base == 16 ? scale * 0.0625 : scale / 10;
            fraction += scale * digit;
        }
        if ((*p | 0x20) == (base == 16 ? 'p' : 'e')) {
            ++p;
            if (*p == '+' || *p == '-')
                exponentNegative = *p++ == '-';
            for (; *p >= '0' && *p <= '9'; ++p)
                exponent = exponent * 10u + (uint32_t)(*p - '0');
        }
    }
    double value = integer + fraction;
    /* Zero stays zero even against an infinite power. */
    if (exponent != 0 && value != 0) {
        double power = Power(base == 16 ? 2 : 10, exponent);
        value = exponentNegative ? value / power : value * power;
    }
    return negative ? -value : value;
}

} // namespace halv
