/*
 * text/print_plain.cpp - the short way through the engine for the formats
 * most calls use: text with %d, %i, %u, %x, %X and %s, with at most a
 * '-' or zeros, a width, 'l' or "ll" for the integers, and for %s a
 * precision.
 *
 * Such a format cannot fail to parse, takes no '*' argument, stores no count
 * and needs no locale.  One walk over it outlines it: where each literal run
 * lies and what each directive asks for.  A format that turns out to be of
 * another kind is handed to the general engine before any argument is read
 * or any byte written.  Otherwise the text is made from the outline, without
 * looking at the format again, straight into the destination: literal runs
 * and strings are copied from where they lie, and integer digits are written
 * in place.  Nothing is staged and copied on, which matters at this size:
 * bytes just written narrowly and read back widely wait on the store buffer.
 */
#include <cstring>

#include "halv_core.h"
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

inline bool IsDigit(char byte) noexcept {
    return static_cast<unsigned char>(byte - '0') < 10;
}

/* A width or precision: the digits at p, p moved behind them.  Nine digits
 * cannot pass INT32_MAX; longer runs go to the parser's own reader, which
 * saturates there. */
inline int32_t ReadPlainNumber(const char *&p) noexcept {
    const char *start = p;
    int32_t value = 0;
    for (int i = 0; i < 9 && IsDigit(*p); ++i, ++p)
        value = value * 10 + (*p - '0');
    if (!IsDigit(*p))
        return value;
    p = start;
    return ReadFormatNumber(p);
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
inline const char *ReadPlainDirective(const char *p, PlainDirective &request) noexcept {
    request.kind = PlainOf(*p);
    request.left = false;
    request.zero = false;
    request.wide = false;
    request.width = 0;
    request.precision = -1;
    if (request.kind != Plain::Other) /* the usual bare conversion */
        return p + 1;
    if (*p == '-') {
        request.left = true;
        ++p;
    } else {
        while (*p == '0') {
            request.zero = true;
            ++p;
        }
    }
    if (*p >= '1' && *p <= '9')
        request.width = ReadPlainNumber(p);
    if (*p == '.') {
        ++p;
        request.precision = ReadPlainNumber(p);
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

/* A format of this route read once: each directive with the literal text
 * in front of it, and the literal text behind the last.  "%%" ends a
 * literal run that keeps its first '%', in a piece of its own with no
 * directive; the pieces are limited, and a format with more goes the
 * general way. */
struct PlainPiece {
    int32_t literalStart; /* offset in the format */
    int32_t literalLength;
    PlainDirective directive; /* kind Other: no directive */
};

constexpr int32_t kPlainPieces = HALV_FORMAT_MAX_ARGS + 16;

struct PlainOutline {
    PlainPiece pieces[kPlainPieces];
    int32_t count;
    int32_t tailStart;
    int32_t tailLength;
};

/* Outlines format.  False when a directive is not of this route, when a
 * sixty-fifth directive comes (the general engine refuses it), or when the
 * pieces run out. */
[[gnu::always_inline]] inline bool OutlinePlain(const char *format, PlainOutline &outline) noexcept {
    int32_t directives = 0;
    int32_t count = 0;
    const char *p = format;
    for (;;) {
        const char *percent = NextPercent(p);
        if (*percent == '\0')
            break;
        if (count == kPlainPieces)
            return false;
        PlainPiece &piece = outline.pieces[count++];
        piece.literalStart = static_cast<int32_t>(p - format);
        if (percent[1] == '%') {
            piece.literalLength = static_cast<int32_t>(percent + 1 - p);
            piece.directive.kind = Plain::Other;
            p = percent + 2;
            continue;
        }
        piece.literalLength = static_cast<int32_t>(percent - p);
        p = ReadPlainDirective(percent + 1, piece.directive);
        if (p == nullptr || ++directives > HALV_FORMAT_MAX_ARGS)
            return false;
    }
    outline.count = count;
    outline.tailStart = static_cast<int32_t>(p - format);
    outline.tailLength = static_cast<int32_t>(NextPercent(p) - p);
    return true;
}

/* The destination: stores while there is room, counts everything. */
struct PlainOut {
    char *cursor;
    char *limit;
    uint64_t total;

    size_t Room() const noexcept { return static_cast<size_t>(limit - cursor); }

    void Put(const char *bytes, size_t count) noexcept {
        total += count;
        const size_t room = Room();
        const size_t take = count <= room ? count : room;
        CopyBytes(cursor, bytes, take);
        cursor += take;
    }

    void Fill(char byte, int64_t count) noexcept {
        if (count <= 0)
            return;
        total += static_cast<uint64_t>(count);
        const size_t room = Room();
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
 * conversions, zeros between it and the digits when asked.  A field that
 * fits is laid out in place; one that meets the limit goes piece by piece,
 * so that the bytes kept are the field's first ones. */
void PutInteger(PlainOut &out, int64_t value, const PlainDirective &request) noexcept {
    const Plain kind = request.kind;
    uint64_t magnitude = request.wide ? static_cast<uint64_t>(value) : static_cast<uint32_t>(value);
    const bool negative = kind == Plain::Signed && value < 0;
    if (negative)
        magnitude = 0 - static_cast<uint64_t>(value);
    const uint32_t base = kind == Plain::Hex || kind == Plain::UpperHex ? 16 : 10;
    const char *set = kind == Plain::UpperHex ? kUpperDigits : kLowerDigits;
    const int count = DigitCount(magnitude, base);
    const int64_t body = count + (negative ? 1 : 0);
    const int64_t pad = request.width > body ? request.width - body : 0;
    const uint64_t field = static_cast<uint64_t>(body + pad);
    if (field <= out.Room()) {
        char *p = out.cursor;
        if (!request.left && !request.zero && pad > 0) {
            std::memset(p, ' ', static_cast<size_t>(pad));
            p += pad;
        }
        if (negative)
            *p++ = '-';
        if (request.zero && pad > 0) {
            std::memset(p, '0', static_cast<size_t>(pad));
            p += pad;
        }
        p += count;
        WriteDigits(magnitude, base, set, p);
        if (request.left && pad > 0) {
            std::memset(p, ' ', static_cast<size_t>(pad));
            p += pad;
        }
        out.cursor = p;
        out.total += field;
        return;
    }
    char digits[24]; /* a sign and twenty digits */
    char *end = digits + sizeof digits;
    char *start = end - count;
    WriteDigits(magnitude, base, set, end);
    if (request.zero) {
        if (negative)
            out.Put("-", 1);
        out.Fill('0', pad);
        out.Put(start, static_cast<size_t>(count));
        return;
    }
    if (negative)
        *--start = '-';
    out.PutField(start, static_cast<size_t>(end - start), request);
}

/* Never read past the precision: the text need not be terminated there. */
[[gnu::always_inline]] inline void PutText(PlainOut &out, const char *text, const PlainDirective &request) noexcept {
    if (text == nullptr)
        text = "(nil)";
    size_t length = request.precision >= 0 ? strnlen(text, static_cast<size_t>(request.precision)) : std::strlen(text);
    if (length > UINT32_MAX)
        length = UINT32_MAX;
    out.PutField(text, length, request);
}

/* The text of an outlined format into out, arguments read in order. */
[[gnu::always_inline]] inline void EmitPlain(PlainOut &out, const char *format, const PlainOutline &outline,
                                             FormatArgs &args) noexcept {
    PlainReader reader{args};
    for (int32_t i = 0; i < outline.count; ++i) {
        const PlainPiece &piece = outline.pieces[i];
        if (piece.literalLength != 0)
            out.Put(format + piece.literalStart, static_cast<size_t>(piece.literalLength));
        switch (piece.directive.kind) {
        case Plain::Other:
            break;
        case Plain::Text:
            PutText(out, reader.Text(), piece.directive);
            break;
        default:
            PutInteger(out, piece.directive.wide ? reader.Integer<long long>() : reader.Integer<int>(),
                       piece.directive);
            break;
        }
    }
    if (outline.tailLength != 0)
        out.Put(format + outline.tailStart, static_cast<size_t>(outline.tailLength));
}

} // namespace

bool PrintPlain(char *buffer, size_t limit, const char *format, FormatArgs &args, uint64_t &total) noexcept {
    PlainOutline outline;
    if (format == nullptr || !OutlinePlain(format, outline))
        return false;
    PlainOut out{buffer, buffer != nullptr ? buffer + limit : nullptr, 0};
    EmitPlain(out, format, outline, args);
    total = out.total;
    return true;
}

bool PrintPlainToNewString(char **out, const char *format, FormatArgs &args, int32_t &result) noexcept {
    PlainOutline outline;
    if (format == nullptr || !OutlinePlain(format, outline))
        return false;
    /* The text is made on the stack, or made again in its allocation when it
     * is longer, so the string gets the size the growing sink would give it.
     * The first run reads a copy of the list; the second the list itself. */
    char stage[512];
    va_list copy;
    if (args.list != nullptr)
        va_copy(copy, *args.list);
    FormatArgs first{args.list != nullptr ? &copy : nullptr, args.array};
    PlainOut staged{stage, stage + sizeof stage, 0};
    EmitPlain(staged, format, outline, first);
    if (args.list != nullptr)
        va_end(copy);
    const uint64_t length = staged.total;
    const uint64_t capacity = GrownCapacity(0, length);
    char *text = capacity != 0 ? static_cast<char *>(halv_internal_malloc(capacity + 1)) : nullptr;
    if (text != nullptr) {
        if (length <= sizeof stage) {
            std::memcpy(text, stage, length);
        } else {
            PlainOut direct{text, text + length, 0};
            EmitPlain(direct, format, outline, args);
        }
        text[length] = '\0';
        *out = text;
    }
    result = text != nullptr ? static_cast<int32_t>(length) : -1;
    return true;
}

} // namespace halv
