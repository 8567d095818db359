/*
 * text/format_parser.cpp - the directive parser of the print and scan
 * engines.
 *
 * A directive is '%', any number of qualifiers in any order, and one
 * conversion byte.  Every byte of a directive is looked up in one table that
 * says what it is, and the parser loop moves on by that kind.  Size letters
 * go through a second table, so that "hh" and "ll" are sizes of their own, a
 * third 'h' or 'l' is refused, and an I size stands alone.
 *
 * Literal text is passed over byte by byte looking for '%'.  The bytes of a
 * multi-byte UTF-8 sequence are all 0x80 or above, so walking the text by
 * characters would stop at exactly the same places.
 */
#include <cstring>

#include "text/format_internal.h"

namespace halv {
namespace {

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

/* Size letters, the rows of kSizeRules. */
enum SizeLetter : uint8_t { kLetterH, kLetterL, kLetterLD, kLetterZ, kLetterT, kLetterJ, kLetterI, kSizeLetters };

constexpr auto kByteRules = [] {
    struct {
        ByteRule rule[256];
    } t{}; /* zeroed: every byte not listed is a Conversion */
    t.rule[' '] = {ByteKind::Flag, kFlagBlank};
    t.rule['+'] = {ByteKind::Flag, kFlagPlus};
    t.rule['-'] = {ByteKind::Flag, kFlagLeft};
    t.rule['#'] = {ByteKind::Flag, kFlagAlt};
    t.rule['0'] = {ByteKind::Zero, 0};
    for (int c = '1'; c <= '9'; ++c)
        t.rule[c] = {ByteKind::Digit, 0};
    t.rule['*'] = {ByteKind::Star, 0};
    t.rule['.'] = {ByteKind::Dot, 0};
    t.rule['h'] = {ByteKind::Size, kLetterH};
    t.rule['l'] = {ByteKind::Size, kLetterL};
    t.rule['L'] = {ByteKind::Size, kLetterLD};
    t.rule['z'] = {ByteKind::Size, kLetterZ};
    t.rule['t'] = {ByteKind::Size, kLetterT};
    t.rule['j'] = {ByteKind::Size, kLetterJ};
    t.rule['I'] = {ByteKind::SizeI, kLetterI};
    return t;
}();

/* What a size letter sets: `once` the first time, `twice` in its place the
 * second time ("hh", "ll"); a letter that is no counted pair has both the
 * same and may repeat.  A third 'h' or 'l' is malformed, and so is an I size
 * behind any other size.  Sizes behind an I are taken, and the I decides. */
struct SizeRule {
    uint32_t once;
    uint32_t twice;
};

constexpr SizeRule kSizeRules[kSizeLetters] = {
    /* h */ {kFlagSizeH, kFlagSizeHH},
    /* l */ {kFlagSizeL, kFlagSizeLL},
    /* L */ {kFlagSizeLD, kFlagSizeLD},
    /* z */ {kFlagSizeZ, kFlagSizeZ},
    /* t */ {kFlagSizeT, kFlagSizeT},
    /* j */ {kFlagSizeJ, kFlagSizeJ},
    /* I */ {kFlagSizeI, 0},
};

/* The size flags after one more letter, or 0 when the sizes are malformed. */
uint32_t AddSize(uint32_t sizes, SizeLetter letter) noexcept {
    const SizeRule rule = kSizeRules[letter];
    if (letter == kLetterI && sizes != 0)
        return 0;
    if (rule.once == rule.twice || (sizes & (rule.once | rule.twice)) == 0)
        return sizes | rule.once;
    if (sizes & rule.twice)
        return 0;
    return (sizes & ~rule.once) | rule.twice;
}

/* What each conversion byte takes.  fixedBase 0 means the base qualifier
 * decides, with defaultBase when there is none. */
struct ConversionRule {
    int8_t type; /* 0: not a conversion */
    int8_t fixedBase;
    int8_t defaultBase;
};

constexpr auto kConversionRules = [] {
    struct {
        ConversionRule rule[256];
    } t{}; /* zeroed: type 0, no conversion */
    t.rule['d'] = {HALV_FORMAT_INTEGER, 10, 10};
    t.rule['i'] = {HALV_FORMAT_INTEGER, 0, 10};
    t.rule['u'] = {HALV_FORMAT_INTEGER, 0, 10};
    t.rule['o'] = {HALV_FORMAT_INTEGER, 8, 8};
    t.rule['x'] = {HALV_FORMAT_INTEGER, 16, 16};
    t.rule['X'] = {HALV_FORMAT_INTEGER, 16, 16};
    for (const char c : "fFeEgG")
        if (c != '\0')
            t.rule[static_cast<unsigned char>(c)] = {HALV_FORMAT_FLOATING, 0, 10};
    t.rule['a'] = {HALV_FORMAT_FLOATING, 16, 16};
    t.rule['A'] = {HALV_FORMAT_FLOATING, 16, 16};
    t.rule['c'] = {HALV_FORMAT_CHARACTER, 0, 0};
    t.rule['s'] = {HALV_FORMAT_STRING, 0, 0};
    t.rule['p'] = {HALV_FORMAT_POINTER, 16, 16};
    t.rule['n'] = {HALV_FORMAT_COUNT, 0, 0};
    t.rule['['] = {HALV_FORMAT_GROUP, 0, 0};
    return t;
}();

/* Reads the byte count behind an 'I': 8, 16, 32 or 64, and nothing more. */
int32_t ReadVarSize(const char *&p) noexcept {
    static constexpr struct {
        const char *digits;
        int32_t bytes;
    } kSizes[] = {{"8", 1}, {"16", 2}, {"32", 4}, {"64", 8}};
    const char *start = p;
    while (*p >= '0' && *p <= '9')
        ++p;
    const size_t length = static_cast<size_t>(p - start);
    for (const auto &size : kSizes)
        if (length == std::strlen(size.digits) && std::memcmp(start, size.digits, length) == 0)
            return size.bytes;
    return -1;
}

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

/* Parses the directives of one format into its table. */
class FormatParser {
public:
    FormatParser(const char *format, FormatMode mode, FormatTable &table) noexcept
        : format_(format), mode_(mode), table_(table) {}

    int32_t Count() const noexcept { return count_; }

    /* Parses one directive, p pointing behind its '%'.  Gives 0 and p behind
     * the directive, or a negative result. */
    int32_t Parse(const char *&p) noexcept {
        /* Most directives are a bare conversion; with the qualifiers known
         * to be none, the entry is made of constants. */
        if (kByteRules.rule[static_cast<unsigned char>(*p)].kind == ByteKind::Conversion)
            return Conversion(Qualifiers{}, p);
        Qualifiers q;
        for (;;) {
            const ByteRule rule = kByteRules.rule[static_cast<unsigned char>(*p)];
            if (rule.kind == ByteKind::Conversion)
                return Conversion(q, p);
            int32_t result = 0;
            switch (rule.kind) {
            case ByteKind::Flag:
                q.flags |= rule.value;
                if (rule.value == kFlagLeft)
                    q.flags &= ~kFlagZero;
                ++p;
                break;
            case ByteKind::Zero:
                if (q.flags & kFlagLeft) {
                    SetWidth(q, ReadFormatNumber(p));
                } else {
                    q.flags |= kFlagZero;
                    ++p;
                }
                break;
            case ByteKind::Digit:
                SetWidth(q, ReadFormatNumber(p));
                break;
            case ByteKind::Star:
                ++p;
                result = Star(q);
                break;
            case ByteKind::Dot:
                ++p;
                result = Dot(q, p);
                break;
            case ByteKind::Size:
            case ByteKind::SizeI:
                ++p;
                q.sizes = AddSize(q.sizes, static_cast<SizeLetter>(rule.value));
                if (rule.kind == ByteKind::SizeI)
                    q.varsize = ReadVarSize(p);
                if (q.sizes == 0 || (rule.kind == ByteKind::SizeI && q.varsize < 0))
                    return HALV_FORMAT_MALFORMED;
                break;
            case ByteKind::Conversion:
                break;
            }
            if (result < 0)
                return result;
        }
    }

private:
    /* A new table entry with all its fields, or -1 when the table is full. */
    int32_t NewEntry(int32_t type, uint32_t flags, const Qualifiers &q, int32_t base, int32_t after) noexcept {
        if (count_ >= HALV_FORMAT_MAX_ARGS)
            return -1;
        HalvFormatParameter &entry = table_[count_];
        entry.type = type;
        entry.flags = flags;
        entry.width = q.width;
        entry.precision = q.precision;
        entry.base = base;
        entry.varsize = q.varsize;
        entry.indexAfterSpecifier = after;
        entry.data.u = 0;
        return count_++;
    }

    /* The entry of a '*' argument: only its type and value matter. */
    int32_t StarEntry() noexcept {
        return NewEntry(HALV_FORMAT_STAR, 0, Qualifiers{}, 0, -1);
    }

    static void SetWidth(Qualifiers &q, int32_t width) noexcept {
        q.width = width;
        q.flags &= ~kFlagWidthArg;
    }

    int32_t Star(Qualifiers &q) noexcept {
        if (mode_ == FormatMode::Scan) {
            q.flags |= kFlagSuppress;
            return 0;
        }
        const int32_t index = StarEntry();
        if (index < 0)
            return HALV_FORMAT_TOO_MANY_ARGS;
        q.width = index;
        q.flags |= kFlagWidthArg;
        return 0;
    }

    /* The first dot starts a precision, the second a base. */
    int32_t Dot(Qualifiers &q, const char *&p) noexcept {
        const bool isPrecision = ++q.dots == 1;
        if (q.dots > 2)
            return HALV_FORMAT_MALFORMED;
        const uint32_t argFlag = isPrecision ? kFlagPrecisionArg : kFlagBaseArg;
        int32_t &value = isPrecision ? q.precision : q.base;
        if (*p == '*') {
            ++p;
            const int32_t index = StarEntry();
            if (index < 0)
                return HALV_FORMAT_TOO_MANY_ARGS;
            value = index;
            q.flags |= argFlag;
            return 0;
        }
        q.flags &= ~argFlag;
        if (isPrecision) {
            /* "%..16i" goes straight on to the base: no precision. */
            value = *p == '.' ? -1 : ReadFormatNumber(p);
            return 0;
        }
        if (*p < '0' || *p > '9') {
            value = 0; /* "%..i": no base, the conversion's default */
            return 0;
        }
        value = ReadFormatNumber(p);
        return value < 2 || value > 36 ? HALV_FORMAT_MALFORMED : 0;
    }

    __attribute__((always_inline)) int32_t Conversion(const Qualifiers &q, const char *&p) noexcept {
        const unsigned char conversion = static_cast<unsigned char>(*p);
        const ConversionRule rule = kConversionRules.rule[conversion];
        if (rule.type == 0 || (rule.type == HALV_FORMAT_GROUP && mode_ == FormatMode::Print))
            return HALV_FORMAT_MALFORMED;
        ++p;
        uint32_t flags = q.flags | q.sizes | (static_cast<uint32_t>(conversion) << kConversionShift);
        int32_t base = q.base;
        if (rule.type == HALV_FORMAT_GROUP) {
            /* A group has no base: the slot keeps where its set starts. */
            flags &= ~kFlagBaseArg;
            base = static_cast<int32_t>(p - format_);
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
        if (NewEntry(rule.type, flags, q, base, static_cast<int32_t>(p - format_)) < 0)
            return HALV_FORMAT_TOO_MANY_ARGS;
        return 0;
    }

    const char *format_;
    FormatMode mode_;
    FormatTable &table_;
    int32_t count_ = 0;
};

} // namespace

/* See format_internal.h. */
int32_t ReadFormatNumber(const char *&p) noexcept {
    int64_t value = 0;
    while (*p >= '0' && *p <= '9') {
        value = value * 10 + (*p++ - '0');
        if (value > INT32_MAX)
            value = INT32_MAX;
    }
    return static_cast<int32_t>(value);
}

const char *GroupEnd(const char *set) noexcept {
    const char *p = set;
    if (*p == '^')
        ++p;
    if (*p == ']' || *p == '-')
        ++p;
    for (int depth = 1; *p != '\0'; ++p) {
        if (*p == '[')
            ++depth;
        else if (*p == ']' && --depth == 0)
            break;
    }
    return p;
}

int32_t ParseFormat(const char *format, FormatMode mode, FormatTable &table, FormatOutline *outline) noexcept {
    if (format == nullptr)
        return HALV_FORMAT_MALFORMED;
    FormatParser parser(format, mode, table);
    bool hasEscapedPercent = false;
    const char *p = format;
    while (*(p = NextPercent(p)) != '\0') {
        if (p[1] == '%') {
            hasEscapedPercent = true;
            p += 2;
            continue;
        }
        /* The limit comes first: a 65th directive is too many even when it
         * would also be malformed. */
        if (parser.Count() >= HALV_FORMAT_MAX_ARGS)
            return HALV_FORMAT_TOO_MANY_ARGS;
        const auto start = static_cast<int32_t>(p - format);
        ++p;
        const int32_t result = parser.Parse(p);
        if (result < 0)
            return result;
        if (outline != nullptr) /* the directive's own entry is the last one made */
            outline->directiveStart[parser.Count() - 1] = start;
    }
    if (outline != nullptr) {
        outline->length = static_cast<int32_t>(p - format);
        outline->hasEscapedPercent = hasEscapedPercent;
    }
    return parser.Count();
}

} // namespace halv
