/*
 * text/format_parser.cpp - the directive parser's reader of directives with
 * qualifiers, and the number and set readers it shares with the engines.
 *
 * Qualifiers are read in a loop until a byte that is no qualifier, and that
 * byte is the conversion.  Size letters go through a table of their own, so
 * that "hh" and "ll" are sizes of their own, a third 'h' or 'l' is refused,
 * and an I size stands alone.  The walk over the format is in
 * format_parser.h.
 */
#include <cstring>

#include "text/format_parser.h"

namespace halv {
namespace format_parser {
namespace {

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

/* Reads the qualifiers of one directive and makes its entries. */
class QualifierReader {
public:
    QualifierReader(FormatTable &table, int32_t count, const char *format, FormatMode mode) noexcept
        : table_(table), count_(count), first_(count), format_(format), mode_(mode) {}

    ParseStep Read(const char *p) noexcept {
        Qualifiers q;
        for (;;) {
            const ByteRule rule = kByteRules.rule[static_cast<unsigned char>(*p)];
            if (rule.kind == ByteKind::Conversion) {
                /* Behind '*' entries a directive is no everyday one. */
                ParseStep step = ConversionEntry(table_, count_, q, p, format_, mode_);
                step.everyday = step.everyday && count_ == first_;
                return step;
            }
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
                    return {p, HALV_FORMAT_MALFORMED, false};
                break;
            case ByteKind::Conversion:
                break;
            }
            if (result < 0)
                return {p, result, false};
        }
    }

private:
    /* The entry of a '*' argument: only its type and value matter.  Its
     * index, or -1 when the table is full. */
    int32_t StarEntry() noexcept {
        if (!NewEntry(table_, count_, HALV_FORMAT_STAR, 0, Qualifiers{}, 0, -1))
            return -1;
        return count_++;
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

    FormatTable &table_;
    int32_t count_;
    const int32_t first_; /* the count before this directive */
    const char *format_;
    FormatMode mode_;
};

} // namespace

ParseStep ParseQualified(FormatTable &table, int32_t count, const char *p, const char *format,
                         FormatMode mode) noexcept {
    return QualifierReader(table, count, format, mode).Read(p);
}

} // namespace format_parser

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

} // namespace halv
