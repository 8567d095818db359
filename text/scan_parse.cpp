/*
 * text/scan_parse.cpp - the directive parser in scan mode.
 *
 * One pass over the format fills the directive table.  Each byte behind a
 * '%' is looked up in a class table and acted on until a byte that is no
 * qualifier, which is the conversion and is looked up in a second table.
 * In scan mode '*' suppresses the assignment, every conversion argument is
 * a pointer, and '%[' is a conversion whose end counts brackets in pairs.
 */
#include <initializer_list>

#include "halv_util.h"
#include "text/scan_internal.h"

namespace halv {
namespace {

constexpr int kMalformed = -2;
constexpr int kTooManyArguments = -3;
constexpr int32_t kWidthLimit = 0x7FFFFFFF;
constexpr int kMaxBase = 36;

enum QualifierAction : uint8_t {
    kNotQualifier = 0, /* the byte is the conversion (or malformed) */
    kSetFlag,
    kZero,
    kWidthDigit,
    kStar,
    kDot,
    kShortLetter,    /* h, hh */
    kLongLetter,     /* l, ll */
    kSizeLetter,     /* L z t j */
    kExplicitSize,   /* I8 I16 I32 I64 */
    kRefused,        /* ^ $ ': no positions, no grouping */
};

struct Qualifier {
    QualifierAction action;
    uint32_t flag;
};

struct QualifierTable {
    Qualifier entry[128];
};

constexpr QualifierTable MakeQualifierTable() {
    QualifierTable t{};
    t.entry[' '] = {kSetFlag, kFlagBlank};
    t.entry['+'] = {kSetFlag, kFlagPlus};
    t.entry['-'] = {kSetFlag, kFlagLeft};
    t.entry['#'] = {kSetFlag, kFlagAlternative};
    t.entry['0'] = {kZero, 0};
    for (char c = '1'; c <= '9'; ++c)
        t.entry[(int)c] = {kWidthDigit, 0};
    t.entry['*'] = {kStar, kFlagSuppress};
    t.entry['.'] = {kDot, 0};
    t.entry['h'] = {kShortLetter, 0};
    t.entry['l'] = {kLongLetter, 0};
    t.entry['L'] = {kSizeLetter, kFlagLongDouble};
    t.entry['z'] = {kSizeLetter, kFlagSize};
    t.entry['t'] = {kSizeLetter, kFlagPtrDiff};
    t.entry['j'] = {kSizeLetter, kFlagMax};
    t.entry['I'] = {kExplicitSize, kFlagExplicitSize};
    t.entry['^'] = {kRefused, 0};
    t.entry['$'] = {kRefused, 0};
    t.entry['\''] = {kRefused, 0};
    return t;
}

constinit const QualifierTable kQualifiers = MakeQualifierTable();

struct Conversion {
    uint8_t type;     /* ScanType, 0 for none */
    uint8_t base;     /* fixed base, 0 when the qualifier chooses */
    uint8_t isUnsigned;
};

struct ConversionTable {
    Conversion entry[128];
};

constexpr ConversionTable MakeConversionTable() {
    ConversionTable t{};
    t.entry['d'] = {kScanInteger, 10, 0};
    t.entry['i'] = {kScanInteger, 0, 0};
    t.entry['u'] = {kScanInteger, 0, 1};
    t.entry['o'] = {kScanInteger, 8, 1};
    t.entry['x'] = {kScanInteger, 16, 1};
    t.entry['X'] = {kScanInteger, 16, 1};
    for (char c : {'e', 'E', 'f', 'F', 'g', 'G', 'a', 'A'})
        t.entry[(int)c] = {kScanFloat, 0, 0};
    t.entry['c'] = {kScanChar, 0, 0};
    t.entry['s'] = {kScanString, 0, 0};
    t.entry['p'] = {kScanPointer, 16, 1};
    t.entry['n'] = {kScanCount, 0, 0};
    t.entry['['] = {kScanGroup, 0, 0};
    return t;
}

constinit const ConversionTable kConversions = MakeConversionTable();

/* Reads decimal digits at format[*pos], saturating; returns the value. */
int32_t ReadNumber(const unsigned char *format, int32_t *pos) {
    int64_t value = 0;
    while (format[*pos] >= '0' && format[*pos] <= '9') {
        value = value * 10 + (format[*pos] - '0');
        if (value > kWidthLimit)
            value = kWidthLimit;
        ++*pos;
    }
    return (int32_t)value;
}

/* Reads the digits behind an I qualifier; gives the byte size or -1. */
int32_t ReadExplicitSize(const unsigned char *format, int32_t *pos) {
    int32_t start = *pos;
    int32_t bits = ReadNumber(format, pos);
    int32_t digits = *pos - start;
    if ((bits == 8 && digits == 1) || (digits == 2 && (bits == 16 || bits == 32 || bits == 64)))
        return bits / 8;
    return -1;
}

/* Where a '%[' directive ends: behind the lead, '[' and ']' pair up, and
 * the end of the format ends it too.  Sets *setEnd to the closing ']' or to
 * the end of the format. */
int32_t FindSetEnd(const char *format, int32_t start, int32_t *setEnd) {
    int32_t pos = SkipSetLead(format, start);
    int depth = 1;
    for (; format[pos] != '\0'; ++pos) {
        if (format[pos] == '[') {
            ++depth;
        } else if (format[pos] == ']' && --depth == 0) {
            *setEnd = pos;
            return pos + 1;
        }
    }
    *setEnd = pos;
    return pos;
}

class DirectiveParser {
public:
    DirectiveParser(const char *format, ScanDirective *table)
        : format_(format), bytes_((const unsigned char *)format), table_(table) {}

    int Run() {
        int32_t pos = 0;
        while (bytes_[pos] != 0) {
            unsigned char c = bytes_[pos];
            if (c >= 0x80) {
                int len = HalvUTF8NextCharLen((const char *)bytes_ + pos);
                pos += len > 0 ? len : 1;
            } else if (c != '%') {
                ++pos;
            } else if (bytes_[pos + 1] == '%') {
                pos += 2;
            } else {
                int result = ParseDirective(&pos);
                if (result < 0)
                    return result;
            }
        }
        return count_;
    }

private:
    /* Takes the next table entry, or fails when the table is full. */
    ScanDirective *NewEntry() {
        if (count_ >= kScanMaxEntries)
            return nullptr;
        ScanDirective *d = &table_[count_++];
        *d = ScanDirective{};
        d->varsize = -1;
        return d;
    }

    /* A precision or base given by '*': an entry of its own. */
    int ArgumentEntry() {
        ScanDirective *arg = NewEntry();
        if (arg == nullptr)
            return -1;
        arg->type = kScanArgument;
        return count_ - 1;
    }

    int ParseDirective(int32_t *cursor) {
        if (count_ >= kScanMaxEntries)
            return kTooManyArguments;
        int32_t pos = *cursor + 1;
        uint32_t flags = 0;
        int32_t width = 0, base = 0, varsize = -1;
        int dots = 0;
        for (;;) {
            unsigned char c = bytes_[pos];
            Qualifier q = c < 128 ? kQualifiers.entry[c] : Qualifier{kRefused, 0};
            if (q.action == kNotQualifier)
                break;
            ++pos;
            switch (q.action) {
            case kSetFlag:
            case kStar:
            case kSizeLetter:
                flags |= q.flag;
                break;
            case kZero:
                if (flags & kFlagLeft) {
                    --pos;
                    width = ReadNumber(bytes_, &pos);
                } else {
                    flags |= kFlagZeroPad;
                }
                break;
            case kWidthDigit:
                --pos;
                width = ReadNumber(bytes_, &pos);
                break;
            case kDot: {
                if (++dots > 2)
                    return kMalformed;
                int32_t number = 0;
                bool fromArgument = bytes_[pos] == '*';
                if (fromArgument) {
                    ++pos;
                    number = ArgumentEntry();
                    if (number < 0)
                        return kTooManyArguments;
                } else {
                    number = ReadNumber(bytes_, &pos);
                }
                if (dots == 2) {
                    if (!fromArgument && number > kMaxBase)
                        return kMalformed;
                    base = number;
                    flags = fromArgument ? flags | kFlagBaseArgument : flags & ~kFlagBaseArgument;
                }
                break; /* a precision means nothing to a scan */
            }
            case kShortLetter:
                if (flags & kFlagShortShort)
                    return kMalformed;
                flags |= (flags & kFlagShort) ? kFlagShortShort : kFlagShort;
                break;
            case kLongLetter:
                if (flags & kFlagLongLong)
                    return kMalformed;
                flags |= (flags & kFlagLong) ? kFlagLongLong : kFlagLong;
                break;
            case kExplicitSize:
                if (flags & kSizeFlags)
                    return kMalformed;
                varsize = ReadExplicitSize(bytes_, &pos);
                if (varsize < 0)
                    return kMalformed;
                flags |= kFlagExplicitSize;
                break;
            case kRefused:
            case kNotQualifier:
                return kMalformed;
            }
        }
        unsigned char conv = bytes_[pos];
        Conversion kind = conv < 128 ? kConversions.entry[conv] : Conversion{};
        if (kind.type == 0)
            return kMalformed;
        ScanDirective *d = NewEntry();
        if (d == nullptr)
            return kTooManyArguments;
        d->type = (ScanType)kind.type;
        d->conversion = (char)conv;
        d->flags = flags | (kind.isUnsigned ? kFlagUnsigned : 0u);
        d->width = width;
        d->varsize = varsize;
        /* %d, %o, %x and %p read in their own base; a base argument is
         * still taken, and then ignored. */
        if (kind.base != 0) {
            base = kind.base;
            d->flags &= ~kFlagBaseArgument;
        }
        d->base = base;
        ++pos;
        if (d->type == kScanGroup) {
            d->setStart = pos;
            pos = FindSetEnd(format_, pos, &d->setEnd);
        }
        d->indexAfterSpecifier = pos;
        *cursor = pos;
        return 0;
    }

    const char *format_;
    const unsigned char *bytes_;
    ScanDirective *table_;
    int count_ = 0;
};

} // namespace

int32_t SkipSetLead(const char *format, int32_t start) noexcept {
    int32_t pos = start;
    if (format[pos] == '^')
        ++pos;
    if (format[pos] == ']')
        ++pos;
    if (format[pos] == '-')
        ++pos;
    return pos;
}

int ParseScanFormat(const char *format, ScanDirective *table) noexcept {
    DirectiveParser parser(format, table);
    return parser.Run();
}

} // namespace halv
