/*
 * text/format_parser.h - the directive parser of the print and scan engines:
 * its walk over a format, inline in both cores.
 *
 * A directive is '%', any number of qualifiers in any order, and one
 * conversion byte.  Every byte of a directive is looked up in one table that
 * says what it is.  Most directives are a bare conversion, or have only the
 * few qualifiers of everyday formats; the walk reads those itself.  Any
 * other directive is read by ParseQualified (format_parser.cpp), byte by
 * byte by the kind of each.
 *
 * The walk keeps its place, its count and what it has learnt in locals, and
 * hands them to the qualified reader and back by value: nothing of the walk
 * lives in memory, which keeps the common directive a short chain of
 * register operations.
 *
 * Literal text is passed over byte by byte looking for '%'.  The bytes of a
 * multi-byte UTF-8 sequence are all 0x80 or above, so walking the text by
 * characters would stop at exactly the same places.
 */
#ifndef HALV_TEXT_FORMAT_PARSER_H
#define HALV_TEXT_FORMAT_PARSER_H

#include "text/format_internal.h"

namespace halv {
namespace format_parser {

enum class ByteKind : uint8_t {
    Conversion, /* anything not listed: the conversion byte, valid or not */
    Flag,       /* value: the flag bit */
    Zero,
    Digit,
    Star,
    Dot,
    Size,  /* value: the size letter */
    SizeI, /* 'I' and its byte count */
};

struct ByteRule {
    ByteKind kind;
    uint32_t value;
};

/* Size letters, the rows of the size rules. */
enum SizeLetter : uint8_t { kLetterH, kLetterL, kLetterLD, kLetterZ, kLetterT, kLetterJ, kLetterI, kSizeLetters };

inline constexpr auto kByteRules = [] {
    struct {
        ByteRule rule[256];
    } t{}; /* zeroed: every byte not listed is a Conversion */
    constexpr struct {
        const char *bytes;
        ByteRule rule;
    } kQualifiers[] = {
        {" ", {ByteKind::Flag, kFlagBlank}}, {"+", {ByteKind::Flag, kFlagPlus}}, {"-", {ByteKind::Flag, kFlagLeft}},
        {"#", {ByteKind::Flag, kFlagAlt}},   {"0", {ByteKind::Zero, 0}},         {"123456789", {ByteKind::Digit, 0}},
        {"*", {ByteKind::Star, 0}},          {".", {ByteKind::Dot, 0}},          {"h", {ByteKind::Size, kLetterH}},
        {"l", {ByteKind::Size, kLetterL}},   {"L", {ByteKind::Size, kLetterLD}}, {"z", {ByteKind::Size, kLetterZ}},
        {"t", {ByteKind::Size, kLetterT}},   {"j", {ByteKind::Size, kLetterJ}},  {"I", {ByteKind::SizeI, kLetterI}},
    };
    for (const auto &qualifier : kQualifiers)
        for (const char *b = qualifier.bytes; *b != '\0'; ++b)
            t.rule[static_cast<unsigned char>(*b)] = qualifier.rule;
    return t;
}();

/* What each conversion byte takes.  fixedBase 0 means the base qualifier
 * decides, with defaultBase when there is none. */
struct ConversionRule {
    int8_t type; /* 0: not a conversion */
    int8_t fixedBase;
    int8_t defaultBase;
};

inline constexpr auto kConversionRules = [] {
    struct {
        ConversionRule rule[256];
    } t{}; /* zeroed: type 0, no conversion */
    constexpr struct {
        const char *bytes;
        ConversionRule rule;
    } kConversions[] = {
        {"d", {HALV_FORMAT_INTEGER, 10, 10}}, {"iu", {HALV_FORMAT_INTEGER, 0, 10}}, {"o", {HALV_FORMAT_INTEGER, 8, 8}},
        {"xX", {HALV_FORMAT_INTEGER, 16, 16}}, {"fFeEgG", {HALV_FORMAT_FLOATING, 0, 10}},
        {"aA", {HALV_FORMAT_FLOATING, 16, 16}}, {"c", {HALV_FORMAT_CHARACTER, 0, 0}}, {"s", {HALV_FORMAT_STRING, 0, 0}},
        {"p", {HALV_FORMAT_POINTER, 16, 16}}, {"n", {HALV_FORMAT_COUNT, 0, 0}}, {"[", {HALV_FORMAT_GROUP, 0, 0}},
    };
    for (const auto &conversion : kConversions)
        for (const char *b = conversion.bytes; *b != '\0'; ++b)
            t.rule[static_cast<unsigned char>(*b)] = conversion.rule;
    return t;
}();

/* The qualifiers of the directive being read. */
struct Qualifiers {
    uint32_t flags = 0;
    int32_t width = 0;
    int32_t precision = -1;
    int32_t base = 0;
    int32_t varsize = -1;
    int dots = 0;
    uint32_t sizes = 0; /* the kFlagSize* bits */
};

/* Where the walk stands after a directive: the byte behind it, the number
 * of entries, or in count a negative result, and whether the directive was
 * an everyday one: one entry, a string, or an integer of no size or an 'l'
 * or "ll" size. */
struct ParseStep {
    const char *next;
    int32_t count;
    bool everyday;
};

/* Makes table[count] with all its fields; false when the table is full. */
inline bool NewEntry(FormatTable &table, int32_t count, int32_t type, uint32_t flags, const Qualifiers &q,
                     int32_t base, int32_t after) noexcept {
    if (count >= HALV_FORMAT_MAX_ARGS)
        return false;
    HalvFormatParameter &entry = table[count];
    entry.type = type;
    entry.flags = flags;
    entry.width = q.width;
    entry.precision = q.precision;
    entry.base = base;
    entry.varsize = q.varsize;
    entry.indexAfterSpecifier = after;
    return true;
}

/* The entry of the conversion byte at p, behind the qualifiers q. */
[[gnu::always_inline]] inline ParseStep ConversionEntry(FormatTable &table, int32_t count, const Qualifiers &q,
                                                        const char *p, const char *format, FormatMode mode) noexcept {
    const unsigned char conversion = static_cast<unsigned char>(*p);
    const ConversionRule rule = kConversionRules.rule[conversion];
    if (__builtin_expect(rule.type == 0 || (rule.type == HALV_FORMAT_GROUP && mode == FormatMode::Print), 0))
        return {p, HALV_FORMAT_MALFORMED, false};
    ++p;
    uint32_t flags = q.flags | q.sizes | (static_cast<uint32_t>(conversion) << kConversionShift);
    int32_t base = q.base;
    if (__builtin_expect(rule.type == HALV_FORMAT_GROUP, 0)) {
        /* A group has no base: the slot keeps where its set starts. */
        flags &= ~kFlagBaseArg;
        base = static_cast<int32_t>(p - format);
        p = GroupEnd(p);
        if (*p == ']')
            ++p;
    } else if (rule.fixedBase != 0) {
        /* A '*' base still took its argument; the output pass skips it. */
        flags &= ~kFlagBaseArg;
        base = rule.fixedBase;
    } else if ((q.flags & kFlagBaseArg) == 0 && q.base == 0) {
        base = rule.defaultBase;
    }
    if (!NewEntry(table, count, rule.type, flags, q, base, static_cast<int32_t>(p - format)))
        return {p, HALV_FORMAT_TOO_MANY_ARGS, false};
    const bool everyday = rule.type == HALV_FORMAT_STRING ||
                          (rule.type == HALV_FORMAT_INTEGER && (q.sizes & ~(kFlagSizeL | kFlagSizeLL)) == 0);
    return {p, count + 1, everyday};
}

/* The qualifiers of nearly every directive, read in line: a '-' or zeros, a
 * width, a precision, and 'l' or "ll", in that order and in plain digits.
 * Gives the conversion byte behind them, with q filled as the full reader
 * would fill it, or null when the directive has any other qualifier (or
 * these in another order), for the full reader to read from its start. */
[[gnu::always_inline]] inline const char *ReadCommonQualifiers(const char *p, Qualifiers &q) noexcept {
    if (*p == '-') {
        q.flags |= kFlagLeft;
        ++p;
    } else {
        while (*p == '0') {
            q.flags |= kFlagZero;
            ++p;
        }
    }
    if (*p >= '1' && *p <= '9')
        q.width = ReadFormatNumber(p);
    if (*p == '.') {
        ++p;
        if (*p == '.' || *p == '*')
            return nullptr;
        q.dots = 1;
        q.precision = ReadFormatNumber(p);
    }
    if (*p == 'l') {
        ++p;
        q.sizes = kFlagSizeL;
        if (*p == 'l') {
            ++p;
            q.sizes = kFlagSizeLL;
        }
    }
    return kByteRules.rule[static_cast<unsigned char>(*p)].kind == ByteKind::Conversion ? p : nullptr;
}

/* A directive with qualifiers, p behind its '%': its entries (those of its
 * '*' arguments, then its own) from table[count] on. */
ParseStep ParseQualified(FormatTable &table, int32_t count, const char *p, const char *format,
                         FormatMode mode) noexcept;

} // namespace format_parser

/* Parses `format` into `table`, and gives its outline, whose count is the
 * number of entries, or HALV_FORMAT_MALFORMED or HALV_FORMAT_TOO_MANY_ARGS.
 * Unless directiveStart is null it gets the offset of each directive's '%'
 * at the table index of the directive's own entry.  In scan mode '*'
 * suppresses instead of taking an argument and "%[" is a group, whose entry
 * keeps the format offset just behind its '[' in `base`. */
[[gnu::always_inline]] inline FormatOutline ParseFormat(const char *format, FormatMode mode, FormatTable &table,
                                                        int32_t *directiveStart = nullptr) noexcept {
    using namespace format_parser;
    if (format == nullptr)
        return {HALV_FORMAT_MALFORMED, 0, false, false};
    int32_t count = 0;
    bool hasEscapedPercent = false;
    bool everyday = true;
    const char *p = format;
    while (*(p = NextPercent(p)) != '\0') {
        if (__builtin_expect(p[1] == '%', 0)) {
            hasEscapedPercent = true;
            p += 2;
            continue;
        }
        /* The limit comes first: a 65th directive is too many even when it
         * would also be malformed. */
        if (__builtin_expect(count >= HALV_FORMAT_MAX_ARGS, 0))
            return {HALV_FORMAT_TOO_MANY_ARGS, 0, false, false};
        const auto start = static_cast<int32_t>(p - format);
        ++p;
        /* A conversion byte right behind the '%' is no qualifier. */
        Qualifiers q;
        const char *conversion =
            kConversionRules.rule[static_cast<unsigned char>(*p)].type != 0 ? p : ReadCommonQualifiers(p, q);
        const ParseStep step = conversion != nullptr ? ConversionEntry(table, count, q, conversion, format, mode)
                                                     : ParseQualified(table, count, p, format, mode);
        if (__builtin_expect(step.count < 0, 0))
            return {step.count, 0, false, false};
        everyday = everyday && step.everyday;
        count = step.count;
        p = step.next;
        if (directiveStart != nullptr) /* the directive's own entry is the last one made */
            directiveStart[count - 1] = start;
    }
    return {count, static_cast<int32_t>(p - format), hasEscapedPercent, everyday};
}

} // namespace halv

#endif
