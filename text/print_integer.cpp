/*
 * text/print_integer.cpp - the integer writer, and the integer and pointer
 * conversions built on it.
 *
 * The writer lays a field out as: blanks, sign, prefix, zeros, digits,
 * blanks.  Which of them appear, and how many, follows from the flags, the
 * width and the precision in a fixed order of steps; the comments number the
 * places where a step decides something.
 */
#include "text/print_internal.h"

namespace halv {
namespace {

/* The "#" prefix of a base, by case: none for bases without one. */
const char *AltPrefix(int32_t base, bool upper) noexcept {
    switch (base) {
    case 2:
        return upper ? "0B" : "0b";
    case 8:
        return "0";
    case 16:
        return upper ? "0X" : "0x";
    default:
        return "";
    }
}

/* Writes the digits of value backwards, ending at `end`; returns their
 * count.  The common bases get divisions by a constant, which the compiler
 * turns into multiplications, and values that fit use 32-bit arithmetic. */
template <uint32_t Base>
int64_t DigitsInBase(uint64_t value, const char *set, char *end) noexcept {
    char *p = end;
    while (value > UINT32_MAX) {
        *--p = set[value % Base];
        value /= Base;
    }
    uint32_t small = static_cast<uint32_t>(value);
    do {
        *--p = set[small % Base];
        small /= Base;
    } while (small != 0);
    return end - p;
}

int64_t DigitsInAnyBase(uint64_t value, uint32_t base, const char *set, char *end) noexcept {
    switch (base) {
    case 10:
        return DigitsInBase<10>(value, set, end);
    case 16:
        return DigitsInBase<16>(value, set, end);
    case 8:
        return DigitsInBase<8>(value, set, end);
    default:
        break;
    }
    char *p = end;
    do {
        *--p = set[value % base];
        value /= base;
    } while (value != 0);
    return end - p;
}

} // namespace

void WriteInteger(Staging &out, uint64_t value, const IntegerSpec &spec) noexcept {
    uint32_t flags = spec.flags;
    int64_t width = spec.width;
    int64_t precision = spec.precision;
    const bool hasPrecision = precision >= 0;
    const uint32_t base = static_cast<uint32_t>(spec.base);

    /* Value 0 at precision 0 prints no digit, except as octal under '#'. */
    const bool noDigits = value == 0 && precision == 0 && !((flags & kFlagAlt) && base == 8);

    bool negative = false;
    if (!spec.isSigned) {
        flags &= ~kFlagPlus;
    } else if (static_cast<int64_t>(value) < 0) {
        value = 0 - value; /* in 64 bits, so INT32_MIN and INT64_MIN survive */
        negative = true;
    }
    if (!spec.wide)
        value &= 0xFFFFFFFFu;

    char digits[64];
    const int64_t digitCount =
        DigitsInAnyBase(value, base, spec.upper ? kUpperDigits : kLowerDigits, digits + sizeof digits);

    if (!noDigits)
        width -= digitCount;
    /* A precision pads with zeros, whatever the flags said. */
    if (hasPrecision) {
        precision = precision > digitCount ? precision - digitCount : 0;
        flags |= kFlagZero;
    }
    const int64_t count = ((flags & kFlagLeft) || !hasPrecision) ? 0 : precision;

    const char sign = negative ? '-' : (flags & kFlagPlus) ? '+' : (flags & kFlagBlank) ? ' ' : '\0';
    if (sign != '\0')
        --width;
    const char *prefix = "";
    if ((flags & kFlagAlt) && value != 0 && !(base == 8 && (flags & kFlagZero) && count != 0))
        prefix = AltPrefix(spec.base, spec.upper);
    uint32_t prefixLength = 0;
    while (prefix[prefixLength] != '\0')
        ++prefixLength;
    width -= prefixLength;

    if (!(flags & kFlagLeft) && !((flags & kFlagZero) && !hasPrecision) && width > count) {
        out.Fill(' ', width - count);
        width = count;
    }
    if (sign != '\0')
        out.Add(sign);
    out.Add(prefix, prefixLength);
    if (flags & kFlagZero) {
        const int64_t zeros = hasPrecision ? precision : width;
        if (zeros > 0) {
            out.Fill('0', zeros);
            width -= zeros;
        }
    }
    if (!noDigits)
        out.Add(digits + sizeof digits - digitCount, static_cast<uint32_t>(digitCount));
    if ((flags & kFlagLeft) && width > 0)
        out.Fill(' ', width);
}

void PrintIntegerField(PrintSink &sink, const HalvFormatParameter &p, const PrintField &field) noexcept {
    const bool wide = IsWideInteger(p);
    IntegerSpec spec{};
    spec.flags = field.flags;
    spec.width = field.width;
    spec.precision = field.precision;
    spec.base = field.base;
    /* A size_t is unsigned whatever the conversion says. */
    spec.isSigned = IsSignedConversion(field.conversion) && !(p.flags & kFlagSizeZ);
    spec.wide = wide;
    spec.upper = field.conversion == 'X';
    Staging out(sink);
    WriteInteger(out, p.data.u, spec);
}

void PrintPointerField(PrintSink &sink, const HalvFormatParameter &p, const PrintField &field) noexcept {
    if (p.data.p == nullptr) {
        sink.ops->bytes(sink, "(nil)", 5); /* no padding, whatever the width */
        return;
    }
    IntegerSpec spec{};
    spec.flags = field.flags | kFlagAlt | kFlagZero;
    spec.width = 10; /* "0x" and at least eight digits */
    spec.precision = -1;
    spec.base = 16;
    spec.isSigned = false;
    spec.wide = true;
    spec.upper = false;
    Staging out(sink);
    WriteInteger(out, reinterpret_cast<uintptr_t>(p.data.p), spec);
}

} // namespace halv
