/*
 * text/print_integer.cpp - the integer writer, and the integer and pointer
 * conversions built on it.
 *
 * The writer lays a field out as: blanks, sign, prefix, zeros, digits,
 * blanks.  Which of them appear, and how many, follows from the flags, the
 * width and the precision in a fixed order of steps; the comments number the
 * places where a step decides something.
 */
#include <cstring>

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

/* The parts of an integer field, in the order they are written. */
struct IntegerLayout {
    int64_t leftBlanks;
    char sign; /* 0 for none */
    const char *prefix;
    uint32_t prefixLength;
    int64_t zeros;
    int digits; /* 0 when the number prints no digit */
    int64_t rightBlanks;

    int64_t Total() const noexcept {
        return leftBlanks + (sign != 0 ? 1 : 0) + prefixLength + zeros + digits + rightBlanks;
    }
};

IntegerLayout LayOut(uint64_t value, uint32_t flags, int64_t width, int64_t precision, uint32_t base, bool upper,
                     bool negative, int digitCount) noexcept {
    const bool hasPrecision = precision >= 0;
    IntegerLayout layout{};
    /* Value 0 at precision 0 prints no digit, except as octal under '#'. */
    const bool noDigits = value == 0 && precision == 0 && !((flags & kFlagAlt) && base == 8);
    if (!noDigits) {
        width -= digitCount;
        layout.digits = digitCount;
    }
    /* A precision pads with zeros, whatever the flags said. */
    if (hasPrecision) {
        precision = precision > digitCount ? precision - digitCount : 0;
        flags |= kFlagZero;
    }
    const int64_t count = ((flags & kFlagLeft) || !hasPrecision) ? 0 : precision;

    layout.sign = negative ? '-' : (flags & kFlagPlus) ? '+' : (flags & kFlagBlank) ? ' ' : '\0';
    if (layout.sign != '\0')
        --width;
    layout.prefix = "";
    if ((flags & kFlagAlt) && value != 0 && !(base == 8 && (flags & kFlagZero) && count != 0))
        layout.prefix = AltPrefix(static_cast<int32_t>(base), upper);
    while (layout.prefix[layout.prefixLength] != '\0')
        ++layout.prefixLength;
    width -= layout.prefixLength;

    if (!(flags & kFlagLeft) && !((flags & kFlagZero) && !hasPrecision) && width > count) {
        layout.leftBlanks = width - count;
        width = count;
    }
    if (flags & kFlagZero) {
        const int64_t zeros = hasPrecision ? precision : width;
        if (zeros > 0) {
            layout.zeros = zeros;
            width -= zeros;
        }
    }
    if ((flags & kFlagLeft) && width > 0)
        layout.rightBlanks = width;
    return layout;
}

/* Sign and prefix at p; gives the end. */
char *WriteHead(char *p, const IntegerLayout &layout) noexcept {
    if (layout.sign != '\0')
        *p++ = layout.sign;
    for (uint32_t i = 0; i < layout.prefixLength; ++i)
        *p++ = layout.prefix[i];
    return p;
}

void FillAt(char *&p, char byte, int64_t count) noexcept {
    if (count > 0) {
        std::memset(p, byte, static_cast<size_t>(count));
        p += count;
    }
}

} // namespace

void WriteInteger(PrintSink &out, uint64_t value, const IntegerRequest &request) noexcept {
    uint32_t flags = request.flags;
    const uint32_t base = static_cast<uint32_t>(request.base);
    const char *set = request.upper ? kUpperDigits : kLowerDigits;

    bool negative = false;
    if (!request.isSigned) {
        flags &= ~kFlagPlus;
    } else if (static_cast<int64_t>(value) < 0) {
        value = 0 - value; /* in 64 bits, so INT32_MIN and INT64_MIN survive */
        negative = true;
    }
    if (!request.wide)
        value &= 0xFFFFFFFFu;

    const int digitCount = DigitCount(value, base);
    const IntegerLayout layout =
        LayOut(value, flags, request.width, request.precision, base, request.upper, negative, digitCount);

    /* The whole field fits the window: it is written in place. */
    if (static_cast<uint64_t>(layout.Total()) <= Room(out)) {
        char *p = out.cursor;
        FillAt(p, ' ', layout.leftBlanks);
        p = WriteHead(p, layout);
        FillAt(p, '0', layout.zeros);
        if (layout.digits > 0) {
            p += layout.digits;
            WriteDigits(value, base, set, p);
        }
        FillAt(p, ' ', layout.rightBlanks);
        out.cursor = p;
        return;
    }
    /* Otherwise part by part: the fills may be wide, the rest is small. */
    PutFill(out, ' ', layout.leftBlanks);
    char small[72];
    Put(out, small, static_cast<size_t>(WriteHead(small, layout) - small));
    PutFill(out, '0', layout.zeros);
    if (layout.digits > 0) {
        WriteDigits(value, base, set, small + layout.digits);
        Put(out, small, static_cast<size_t>(layout.digits));
    }
    PutFill(out, ' ', layout.rightBlanks);
}

void PrintIntegerField(PrintSink &sink, const HalvFormatParameter &p) noexcept {
    WriteIntegerField(sink, p.data.u, p);
}

void PrintPointerField(PrintSink &sink, const HalvFormatParameter &p) noexcept {
    if (p.data.p == nullptr) {
        Put(sink, "(nil)", 5); /* no padding, whatever the width */
        return;
    }
    IntegerRequest request{};
    request.flags = p.flags | kFlagAlt | kFlagZero;
    request.width = 10; /* "0x" and at least eight digits */
    request.precision = -1;
    request.base = 16;
    request.isSigned = false;
    request.wide = true;
    request.upper = false;
    WriteInteger(sink, reinterpret_cast<uintptr_t>(p.data.p), request);
}

} // namespace halv
