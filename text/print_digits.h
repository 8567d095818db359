/*
 * text/print_digits.h - counting and making the digits of an integer, for
 * the integer writer.
 *
 * Both are inline: a field of a few digits costs less than the call to a
 * function that makes them.  Digits are written backwards from an end, so
 * a caller that knows the count writes them straight into place.
 */
#ifndef HALV_TEXT_PRINT_DIGITS_H
#define HALV_TEXT_PRINT_DIGITS_H

#include <stdint.h>
#include <string.h>

namespace halv {

namespace digits_detail {

/* "00" to "99": decimal digits are made two at a time. */
inline constexpr auto kDigitPairs = [] {
    struct {
        char pair[200];
    } t{};
    for (int i = 0; i < 100; ++i) {
        t.pair[2 * i] = static_cast<char>('0' + i / 10);
        t.pair[2 * i + 1] = static_cast<char>('0' + i % 10);
    }
    return t;
}();

inline constexpr auto kPowersOfTen = [] {
    struct {
        uint64_t power[20];
    } t{};
    uint64_t power = 1;
    for (auto &p : t.power) {
        p = power;
        power *= 10;
    }
    return t;
}();

/* Bits up to the highest one set; 1 for 0, which still has a digit. */
inline int BitLength(uint64_t value) noexcept {
    return 64 - __builtin_clzll(value | 1);
}

inline void PutPair(char *at, uint32_t pair) noexcept {
    memcpy(at, &kDigitPairs.pair[2 * pair], 2);
}

} // namespace digits_detail

/* How many digits value has in base, 1 for 0.  In base 10 the bit length
 * gives the count within one (1233 / 4096 is just above log10(2)), and one
 * compare settles it.  The compare is made with the low bit set, which
 * changes no answer (every power of ten from 10 on is even) but makes 0
 * reach 1 >= 10^0 and count its one digit. */
inline int DigitCount(uint64_t value, uint32_t base) noexcept {
    using namespace digits_detail;
    switch (base) {
    case 10: {
        const uint64_t odd = value | 1;
        const int estimate = (BitLength(odd) * 1233) >> 12;
        return estimate + (odd >= kPowersOfTen.power[estimate] ? 1 : 0);
    }
    case 16:
        return (BitLength(value) + 3) / 4;
    case 8:
        return (BitLength(value) + 2) / 3;
    case 2:
        return BitLength(value);
    default:
        break;
    }
    int count = 1;
    while (value >= base) {
        value /= base;
        ++count;
    }
    return count;
}

/* The decimal digits of value backwards, ending at `end`.  Divisions are by
 * constants, which the compiler turns into multiplications, and in 32 bits
 * once the value fits. */
inline void WriteDecimalDigits(uint64_t value, char *end) noexcept {
    using namespace digits_detail;
    char *p = end;
    while (value > UINT32_MAX) {
        const auto pair = static_cast<uint32_t>(value % 100);
        value /= 100;
        p -= 2;
        PutPair(p, pair);
    }
    auto small = static_cast<uint32_t>(value);
    /* Four digits a step: the steps depend on each other, and a
     * multiplication fewer in that chain is worth more than the two
     * independent ones that split the four. */
    while (small >= 10000) {
        const uint32_t four = small % 10000;
        small /= 10000;
        p -= 4;
        PutPair(p, four / 100);
        PutPair(p + 2, four % 100);
    }
    while (small >= 100) {
        const uint32_t pair = small % 100;
        small /= 100;
        p -= 2;
        PutPair(p, pair);
    }
    if (small >= 10) {
        p -= 2;
        PutPair(p, small);
    } else {
        *--p = static_cast<char>('0' + small);
    }
}

/* The digits of value in a base that is a power of two, `bits` to a digit. */
inline void WritePowerOfTwoDigits(uint64_t value, unsigned bits, const char *set, char *end) noexcept {
    const uint64_t mask = (uint64_t{1} << bits) - 1;
    char *p = end;
    do {
        *--p = set[value & mask];
        value >>= bits;
    } while (value != 0);
}

/* The digits of value in base from `set`, backwards, ending at `end`: a run
 * of DigitCount digits. */
inline void WriteDigits(uint64_t value, uint32_t base, const char *set, char *end) noexcept {
    switch (base) {
    case 10:
        return WriteDecimalDigits(value, end);
    case 16:
        return WritePowerOfTwoDigits(value, 4, set, end);
    case 8:
        return WritePowerOfTwoDigits(value, 3, set, end);
    case 2:
        return WritePowerOfTwoDigits(value, 1, set, end);
    default:
        break;
    }
    char *p = end;
    do {
        *--p = set[value % base];
        value /= base;
    } while (value != 0);
}

} // namespace halv

#endif
