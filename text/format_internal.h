/*
 * text/format_internal.h - the directive parser and argument fetch that the
 * print and scan engines share.
 *
 * A format is parsed once into a table of HalvFormatParameter entries, one
 * for each argument, then the arguments are fetched into the table in order,
 * and only then does the engine walk the format again to produce or consume
 * text.  So a format that fails to parse never touches an argument or the
 * output.
 */
#ifndef HALV_TEXT_FORMAT_INTERNAL_H
#define HALV_TEXT_FORMAT_INTERNAL_H

#include <stdarg.h>
#include <stdint.h>

#include "halv_text.h"
#include "text/locale_internal.h"

namespace halv {

/* Qualifier bits of HalvFormatParameter::flags (the low 24 bits). */
enum FormatFlag : uint32_t {
    kFlagBlank = 1u << 0,    /* ' ': a blank before positive numbers */
    kFlagPlus = 1u << 1,     /* '+': a plus before positive numbers */
    kFlagLeft = 1u << 2,     /* '-': left-adjust */
    kFlagAlt = 1u << 3,      /* '#': alternative form, escapes */
    kFlagZero = 1u << 4,     /* '0': zero padding */
    kFlagWidthArg = 1u << 5, /* width is the table index of its argument */
    kFlagPrecisionArg = 1u << 6,
    kFlagBaseArg = 1u << 7,
    kFlagSuppress = 1u << 8, /* scan: '*' suppresses the assignment */
    kFlagSizeH = 1u << 9,    /* the size qualifiers seen; h and hh exclude each other, as do l and ll */
    kFlagSizeHH = 1u << 10,
    kFlagSizeL = 1u << 11,   /* 'l': the platform's long, 64 bits */
    kFlagSizeLL = 1u << 12,
    kFlagSizeLD = 1u << 13,  /* 'L': long double */
    kFlagSizeZ = 1u << 14,
    kFlagSizeT = 1u << 15,
    kFlagSizeJ = 1u << 16,   /* 'j': 64 bits, or the rounding form of floats */
    kFlagSizeI = 1u << 17,   /* I8, I16, I32 or I64; see varsize */
};

constexpr uint32_t kFlagSizeMask = kFlagSizeH | kFlagSizeHH | kFlagSizeL | kFlagSizeLL | kFlagSizeLD |
                                   kFlagSizeZ | kFlagSizeT | kFlagSizeJ | kFlagSizeI;

constexpr int kConversionShift = 24;

/* The conversion byte stored in the high bits of flags. */
inline char ConversionOf(const HalvFormatParameter &p) noexcept {
    return static_cast<char>(p.flags >> kConversionShift);
}

/* True when an integer of this size is read, printed and stored in 64 bits:
 * ll, j, I64, and the pointer-sized l, z and t.  An I size decides alone;
 * otherwise a wide size outranks h. */
inline bool IsWideInteger(const HalvFormatParameter &p) noexcept {
    if (p.flags & kFlagSizeI)
        return p.varsize == 8;
    return (p.flags & (kFlagSizeL | kFlagSizeLL | kFlagSizeZ | kFlagSizeT | kFlagSizeJ)) != 0;
}

/* The bytes a %n count, or a scanned integer, is stored in: 8 for the wide
 * sizes, 2 for h and hh, 4 for none and for I8, I16 and I32. */
inline int IntegerStoreBytes(const HalvFormatParameter &p) noexcept {
    if (IsWideInteger(p))
        return 8;
    if ((p.flags & kFlagSizeI) == 0 && (p.flags & (kFlagSizeH | kFlagSizeHH)) != 0)
        return 2;
    return 4;
}

/* Stores value through target in the width IntegerStoreBytes gives; the
 * value is cut to that width.  A null target is passed over. */
inline void StoreInteger(const HalvFormatParameter &p, void *target, uint64_t value) noexcept {
    if (target == nullptr)
        return;
    switch (IntegerStoreBytes(p)) {
    case 2:
        *static_cast<int16_t *>(target) = static_cast<int16_t>(value);
        break;
    case 4:
        *static_cast<int32_t *>(target) = static_cast<int32_t>(value);
        break;
    default:
        *static_cast<int64_t *>(target) = static_cast<int64_t>(value);
        break;
    }
}

/* The conversions whose value has a sign. */
inline bool IsSignedConversion(char conversion) noexcept {
    return conversion == 'd' || conversion == 'i';
}

/* The record a call works with: the caller's, or the fixed one of
 * HalvGetHalvernLocale(). */
inline const HalvLocale *LocaleOrFixed(const HalvLocale *locale) noexcept {
    return locale != nullptr ? locale : &kHalvernLocale;
}

/* The decimal point of a call; a record without one has the fixed ".". */
inline const char *DecimalPointOf(const HalvFormatContext &context) noexcept {
    const HalvLocale *locale = context.locale;
    return locale != nullptr && locale->decimalPoint != nullptr ? locale->decimalPoint : ".";
}

enum class FormatMode { Print = 1, Scan = 2 };

using FormatTable = HalvFormatParameter[HALV_FORMAT_MAX_ARGS];

/* What the parser's walk learns of a format beside its table: the number
 * of entries (or the negative result of a format that fails to parse), the
 * format's length, whether a "%%" occurs (then literal runs are no plain
 * copies of the format), and whether the format is an everyday one: every
 * directive a string, or an integer of no size or an 'l' or "ll" size, with
 * no '*' argument.  Then each entry is a whole field by itself, with an
 * argument of a type known in advance, which is the short mode of the print
 * core's walk and the shape of nearly every format printed.  Small, so that
 * it comes back in registers. */
struct FormatOutline {
    int32_t count;
    int32_t length;
    bool hasEscapedPercent;
    bool everyday;
};

/* The parser, ParseFormat, is in format_parser.h. */

/* Where the set of a "%[" ends.  `set` is the text behind the '['; a leading
 * '^', and then a leading ']' or '-', belong to the set, and from there '['
 * and ']' pair up.  Gives the closing ']', or the format's terminating NUL
 * when none closes the set. */
const char *GroupEnd(const char *set) noexcept;

/* The base a conversion has by default, for a '*' base argument outside 2
 * to 36. */
int32_t DefaultBase(const HalvFormatParameter &p) noexcept;

/* The base of an entry, its '*' argument resolved. */
inline int32_t ResolveBase(const HalvFormatParameter &p, const FormatTable &table) noexcept {
    if ((p.flags & kFlagBaseArg) == 0)
        return p.base;
    const auto base = static_cast<int32_t>(table[p.base].data.i);
    return base >= 2 && base <= 36 ? base : DefaultBase(p);
}

/* Where the arguments come from: a va_list, or an array of pointers. */
struct FormatArgs {
    va_list *list;      /* non-null for the plain and V forms */
    void *const *array; /* the L forms; entry i belongs to the i-th argument */
};

/* The bytes a literal run of a format ends at: '%' and the terminator. */
inline constexpr auto kLiteralEnds = [] {
    struct {
        bool at[256];
    } t{};
    t.at[0] = true;
    t.at[static_cast<unsigned char>('%')] = true;
    return t;
}();

/* The next '%' of a format, or its terminating NUL.  Literal runs between
 * directives are short, so a loop beats a library search here; it looks a
 * byte up instead of comparing it twice, and takes four per round.  Each
 * byte is read only once the one before it is known not to end the format:
 * nothing past the terminator is ever touched. */
inline const char *NextPercent(const char *p) noexcept {
    const auto ends = [](const char *at) { return kLiteralEnds.at[static_cast<unsigned char>(*at)]; };
    for (;; p += 4) {
        if (ends(p))
            return p;
        if (ends(p + 1))
            return p + 1;
        if (ends(p + 2))
            return p + 2;
        if (ends(p + 3))
            return p + 3;
    }
}

/* Digits of every number conversion, by case. */
inline constexpr char kLowerDigits[] = "0123456789abcdefghijklmnopqrstuvwxyz";
inline constexpr char kUpperDigits[] = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ";

/* Reads the decimal digits at p, moving p behind them; saturates at
 * INT32_MAX, as widths and precisions do. */
inline int32_t ReadFormatNumber(const char *&p) noexcept {
    int64_t value = 0;
    while (*p >= '0' && *p <= '9') {
        value = value * 10 + (*p++ - '0');
        if (value > INT32_MAX)
            value = INT32_MAX;
    }
    return static_cast<int32_t>(value);
}

} // namespace halv

#endif
