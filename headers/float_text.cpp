/*
 * headers/float_text.cpp - " %g" of floats and "%lf" of plain decimals by
 * exact integer arithmetic, so that the ASCII sample codec needn't go
 * through printf's and scanf's multi-precision engines for every sample.
 *
 * Writing: a float is m x 2^q with m below 2^24.  Its six significant
 * digits are that value times 10^(5 - X), X being its decimal exponent,
 * rounded to the nearest integer with ties to even, as glibc rounds; in
 * the range taken here numerator and denominator of that product fit 128
 * bits, so the rounding is exact.  The digits are then laid out as "%g"
 * does: fixed for X from -4 to 5, else with an exponent of at least two
 * digits, trailing zeros and a bare point dropped.
 *
 * Reading: a decimal of at most 19 significant digits is an integer times
 * 10^e; when the integer is below 2^53 and e within 22 of 0, both are
 * exact doubles and one multiplication or division rounds correctly, which
 * is what strtod and scanf give too (Clinger's fast path).  Longer ones,
 * trailing zeros and all, go to sscanf.
 */
#include "headers/float_text.h"

#include <cstring>

namespace halv {

namespace {

using u128 = unsigned __int128;

/* The decimal exponents written on the quick road. */
constexpr int kMinExponent = -10, kMaxExponent = 14;

constexpr double kExactPowers[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11,
                                   1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};

constexpr uint64_t kPowers[] = {1ull,
                                10ull,
                                100ull,
                                1000ull,
                                10000ull,
                                100000ull,
                                1000000ull,
                                10000000ull,
                                100000000ull,
                                1000000000ull,
                                10000000000ull,
                                100000000000ull,
                                1000000000000ull,
                                10000000000000ull,
                                100000000000000ull,
                                1000000000000000ull,
                                10000000000000000ull,
                                100000000000000000ull};

/* m x 2^q x 10^(5 - x), split into its integer part and whether rounding
 * to nearest, ties to even, takes it one up.  Small numbers, where 5 - x
 * is not negative, have a power of two below them and need no division. */
uint64_t SixDigits(uint64_t m, int q, int x, bool *up) {
    int k = 5 - x;
    u128 whole, rest, half;
    if (k >= 0 && q < 0) {
        u128 num = (u128)m * kPowers[k];
        whole = num >> -q;
        rest = num & (((u128)1 << -q) - 1);
        half = (u128)1 << (-q - 1);
    } else {
        u128 num = m, den = 1;
        if (k >= 0)
            num *= kPowers[k];
        else
            den = kPowers[-k];
        if (q >= 0)
            num <<= q;
        else
            den <<= -q;
        whole = num / den;
        rest = (num % den) * 2;
        half = den;
    }
    *up = rest > half || (rest == half && (whole & 1) != 0);
    return (uint64_t)whole;
}

char *PutExponent(char *p, int x) {
    *p++ = 'e';
    *p++ = x < 0 ? '-' : '+';
    int a = x < 0 ? -x : x;
    *p++ = (char)('0' + a / 10);
    *p++ = (char)('0' + a % 10);
    return p;
}

} // namespace

int FloatToG(float value, char *out) noexcept {
    uint32_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    uint32_t exponent = bits >> 23 & 0xFF, fraction = bits & 0x7FFFFF;
    char *p = out;
    if (exponent == 0xFF || (exponent == 0 && fraction != 0))
        return -1;
    if (bits >> 31)
        *p++ = '-';
    if (exponent == 0) {
        *p++ = '0';
        return (int)(p - out);
    }
    uint64_t m = fraction | 0x800000;
    int q = (int)exponent - 150;
    // value lies in [2^e2, 2^(e2+1)), so its decimal exponent is
    // floor(e2 log10 2) or one more.
    int e2 = q + 23;
    int x = (e2 * 78913) >> 18;
    if (x < kMinExponent - 1 || x > kMaxExponent)
        return -1;
    bool up = false;
    uint64_t digits = SixDigits(m, q, x + 1, &up);
    if (digits >= 100000)
        ++x;
    else
        digits = SixDigits(m, q, x, &up);
    if (x < kMinExponent || x > kMaxExponent)
        return -1;
    digits += up;
    if (digits == 1000000) { // 999999.5 and above: one more digit in front
        digits = 100000;
        ++x;
    }
    char d[6];
    for (int i = 5; i >= 0; --i, digits /= 10)
        d[i] = (char)('0' + digits % 10);
    int significant = 6;
    while (significant > 1 && d[significant - 1] == '0')
        --significant;

    if (x < -4 || x >= 6) {
        *p++ = d[0];
        if (significant > 1) {
            *p++ = '.';
            for (int i = 1; i < significant; ++i)
                *p++ = d[i];
        }
        return (int)(PutExponent(p, x) - out);
    }
    if (x >= 0) {
        for (int i = 0; i <= x; ++i)
            *p++ = d[i];
        if (significant > x + 1) {
            *p++ = '.';
            for (int i = x + 1; i < significant; ++i)
                *p++ = d[i];
        }
        return (int)(p - out);
    }
    *p++ = '0';
    *p++ = '.';
    for (int i = -1; i > x; --i)
        *p++ = '0';
    for (int i = 0; i < significant; ++i)
        *p++ = d[i];
    return (int)(p - out);
}

namespace {

inline bool IsDigit(char c) { return (unsigned)(unsigned char)c - '0' < 10; }

/* Appends the digits at *p to mantissa; how many there were.  More than 19
 * wrap, which the caller refuses. */
inline int TakeDigits(const char *&p, uint64_t &mantissa) {
    const char *from = p;
    for (; IsDigit(*p); ++p)
        mantissa = mantissa * 10 + (uint64_t)(*p - '0');
    return (int)(p - from);
}

} // namespace

bool DecimalToDouble(const char *text, double *value) noexcept {
    const char *p = text;
    bool negative = *p == '-';
    if (*p == '-' || *p == '+')
        ++p;
    // Zeros in front of the first other digit don't count, but say that
    // there is a number.
    const char *start = p;
    while (*p == '0')
        ++p;
    uint64_t mantissa = 0;
    int digits = TakeDigits(p, mantissa), scale = 0;
    bool any = p != start;
    if (*p == '.') {
        const char *fraction = ++p;
        if (mantissa == 0) {
            while (*p == '0')
                ++p;
            scale -= (int)(p - fraction);
        }
        int more = TakeDigits(p, mantissa);
        digits += more;
        scale -= more;
        any |= p != fraction;
    }
    if (!any || digits > 19)
        return false;
    if (*p == 'e' || *p == 'E') {
        ++p;
        bool minus = *p == '-';
        if (*p == '-' || *p == '+')
            ++p;
        if (!IsDigit(*p))
            return false;
        int e = 0;
        for (; IsDigit(*p); ++p) {
            if (e > 9999)
                return false;
            e = e * 10 + (*p - '0');
        }
        scale += minus ? -e : e;
    }
    if (*p != '\0')
        return false;
    double v = 0.0;
    if (mantissa != 0) {
        if (mantissa > (uint64_t)1 << 53 || scale < -22 || scale > 22)
            return false;
        v = scale >= 0 ? (double)mantissa * kExactPowers[scale] : (double)mantissa / kExactPowers[-scale];
    }
    *value = negative ? -v : v;
    return true;
}

} // namespace halv
