/*
 * text/print_plain.cpp - the short way through the engine for the formats
 * most calls use: text with %d, %i, %u, %x, %X and %s, with at most a
 * '-' or zeros, a width, 'l' or "ll" for the integers, and for %s a
 * precision.
 *
 * Such a format cannot fail to parse, takes no '*' argument, stores no count
 * and needs no locale, so one cheap look over it decides, and a second pass
 * copies text, reads each argument and writes its field straight into the
 * destination.  The general engine would give the same bytes; it only costs
 * a table, an outline and a sink to get there.
 */
#include <cstring>

#include "text/print_internal.h"

namespace halv {
namespace {

/* What a bare conversion byte prints, or Other for any byte that is not a
 * conversion this route knows (a qualifier, a '%', anything else). */
enum class Plain : uint8_t { Other, Signed, Unsigned, Hex, UpperHex, Text };

constexpr auto kPlainConversions = [] {
    struct {
        Plain of[256];
    } t{};
    t.of['d'] = Plain::Signed;
    t.of['i'] = Plain::Signed;
    t.of['u'] = Plain::Unsigned;
    t.of['x'] = Plain::Hex;
    t.of['X'] = Plain::UpperHex;
    t.of['s'] = Plain::Text;
    return t;
}();

inline Plain PlainOf(char byte) noexcept {
    return kPlainConversions.of[static_cast<unsigned char>(byte)];
}

/* A directive of this route: a bare conversion, or one with a '-' or zeros,
 * a width, and for %s a precision, all plain digits; the integers may be
 * 'l' or "ll" wide, and zeros pad them. */
struct PlainDirective {
    Plain kind;
    bool left;
    bool zero;
    bool wide;
    int32_t width;
    int32_t precision; /* -1 for none */
};

/* Reads the directive behind a '%' into request; gives the byte behind it, or
 * null when it is no directive of this route. */
const char *ReadPlainDirective(const char *p, PlainDirective &request) noexcept {
    request.kind = PlainOf(*p);
    if (request.kind != Plain::Other) { /* the usual bare conversion */
        request.left = false;
        request.zero = false;
        request.wide = false;
        request.width = 0;
        request.precision = -1;
        return p + 1;
    }
    request.left = *p == '-';
    request.zero = false;
    if (request.left) {
        ++p;
    } else {
        while (*p == '0') {
            request.zero = true;
            ++p;
        }
    }
    request.width = *p >= '1' && *p <= '9' ? ReadFormatNumber(p) : 0;
    request.precision = -1;
    if (*p == '.') {
        ++p;
        request.precision = ReadFormatNumber(p);
    }
    request.wide = *p == 'l';
    if (request.wide)
        p += p[1] == 'l' ? 2 : 1;
    request.kind = PlainOf(*p);
    if (request.kind == Plain::Other)
        return nullptr;
    if (request.kind == Plain::Text ? request.zero || request.wide : request.precision >= 0)
        return nullptr;
    return p + 1;
}

/* True when every directive of the format is "%%" or one of this route, and
 * no more of them take arguments than the table holds. */
bool IsPlainFormat(const char *format) noexcept {
    int32_t directives = 0;
    PlainDirective request;
    for (const char *p = NextPercent(format); *p != '\0'; p = NextPercent(p)) {
        if (p[1] == '%') {
            p += 2;
            continue;
        }
        p = ReadPlainDirective(p + 1, request);
        if (p == nullptr || ++directives > HALV_FORMAT_MAX_ARGS)
            return false;
    }
    return true;
}

/* The destination: stores while there is room, counts everything. */
struct PlainOut {
    char *cursor;
    char *limit;
    uint64_t total;

    void Put(const char *bytes, size_t count) noexcept {
        total += count;
        const size_t room = static_cast<size_t>(limit - cursor);
        const size_t take = count <= room ? count : room;
        CopyBytes(cursor, bytes, take);
        cursor += take;
    }

    void Fill(char byte, int64_t count) noexcept {
        if (count <= 0)
            return;
        total += static_cast<uint64_t>(count);
        const size_t room = static_cast<size_t>(limit - cursor);
        const size_t take = static_cast<uint64_t>(count) <= room ? static_cast<size_t>(count) : room;
        if (take > 0)
            std::memset(cursor, byte, take);
        cursor += take;
    }

    /* A piece in a field of `width` bytes, blanks before it or after it. */
    void PutField(const char *bytes, size_t count, const PlainDirective &request) noexcept {
        const int64_t blanks = static_cast<int64_t>(request.width) - static_cast<int64_t>(count);
        if (!request.left)
            Fill(' ', blanks);
        Put(bytes, count);
        if (request.left)
            Fill(' ', blanks);
    }
};

/* The next argument, read the way the general fetch reads an unsized
 * integer or a string: an int from a va_list or behind an array entry, a
 * null array or entry reading as 0; a pointer, which the entry itself is. */
struct PlainReader {
    FormatArgs &args;
    size_t next = 0;

    const void *Entry() noexcept { return args.array != nullptr ? args.array[next++] : nullptr; }

    template <typename T>
    T Integer() noexcept {
        if (args.list != nullptr)
            return va_arg(*args.list, T);
        const void *entry = Entry();
        return entry != nullptr ? *static_cast<const T *>(entry) : 0;
    }

    const char *Text() noexcept {
        if (args.list != nullptr)
            return va_arg(*args.list, const char *);
        return static_cast<const char *>(Entry());
    }
};

/* An integer of 32 bits, or 64 when wide; a sign only for the signed
 * conversions, zeros between it and the digits when asked. */
void PutInteger(PlainOut &out, int64_t value, const PlainDirective &request) noexcept {
    const Plain kind = request.kind;
    char digits[32]; /* room beyond the twenty-one a 64-bit field needs */
    char *end = digits + sizeof digits;
    uint64_t magnitude = request.wide ? static_cast<uint64_t>(value) : static_cast<uint32_t>(value);
    const bool negative = kind == Plain::Signed && value < 0;
    if (negative)
        magnitude = 0 - static_cast<uint64_t>(value);
    const uint32_t base = kind == Plain::Hex || kind == Plain::UpperHex ? 16 : 10;
    const int count = DigitCount(magnitude, base);
    WriteDigits(magnitude, base, kind == Plain::UpperHex ? kUpperDigits : kLowerDigits, end);
    char *start = end - count;
    if (request.zero) {
        if (negative)
            out.Put("-", 1);
        out.Fill('0', static_cast<int64_t>(request.width) - count - (negative ? 1 : 0));
        out.Put(start, static_cast<size_t>(count));
        return;
    }
    if (negative)
        *--start = '-';
    out.PutField(start, static_cast<size_t>(end - start), request);
}

/* Never read past the precision: the text need not be terminated there. */
void PutText(PlainOut &out, const char *text, const PlainDirective &request) noexcept {
    if (text == nullptr)
        text = "(nil)";
    size_t length = request.precision >= 0 ? strnlen(text, static_cast<size_t>(request.precision)) : std::strlen(text);
    if (length > UINT32_MAX)
        length = UINT32_MAX;
    out.PutField(text, length, request);
}

} // namespace

bool PrintPlain(char *buffer, size_t limit, const char *format, FormatArgs &args, uint64_t &total) noexcept {
    if (format == nullptr || !IsPlainFormat(format))
        return false;
    PlainOut out{buffer, buffer != nullptr ? buffer + limit : nullptr, 0};
    PlainReader reader{args};
    const char *p = format;
    for (;;) {
        const char *percent = NextPercent(p);
        out.Put(p, static_cast<size_t>(percent - p));
        if (*percent == '\0')
            break;
        if (percent[1] == '%') {
            out.Put("%", 1);
            p = percent + 2;
            continue;
        }
        PlainDirective request;
        p = ReadPlainDirective(percent + 1, request);
        if (request.kind == Plain::Text)
            PutText(out, reader.Text(), request);
        else
            PutInteger(out, request.wide ? reader.Integer<long long>() : reader.Integer<int>(), request);
    }
    total = out.total;
    return true;
}

} // namespace halv
