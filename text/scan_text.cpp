/*
 * text/scan_text.cpp - the readers behind %c, %s and %[.
 *
 * %c takes exactly width bytes (default 1) and stores no terminator; %s
 * and %[ store a terminator and succeed on nothing.  Under '#', %c and %s
 * read backslash escapes back; one escape counts as one byte of the width.
 */
#include <initializer_list>
#include <string.h>

#include "text/scan_internal.h"

namespace halv {
namespace {

constexpr int32_t kNoWidth = 0x7FFFFFFF;

struct EscapeTable {
    char value[128]; /* 0: not a one-letter escape */
};

constexpr EscapeTable MakeEscapeTable() {
    EscapeTable t{};
    t.value['\\'] = '\\';
    t.value['a'] = '\a';
    t.value['b'] = '\b';
    t.value['f'] = '\f';
    t.value['n'] = '\n';
    t.value['r'] = '\r';
    t.value['t'] = '\t';
    t.value['v'] = '\v';
    return t;
}

constinit const EscapeTable kEscapes = MakeEscapeTable();

/* Up to maxDigits digits of base; the byte they make, or -1 for none. */
int ReadEscapeNumber(ScanSource &in, int base, int maxDigits) {
    int value = 0, digits = 0;
    for (; digits < maxDigits; ++digits) {
        int digit = DigitValue(in.Current());
        if (digit < 0 || digit >= base)
            break;
        value = value * base + digit;
        in.Advance();
    }
    return digits > 0 ? (value & 0xFF) : -1;
}

/* Takes one character of a field, resolving an escape when asked to.
 * Gives the byte, or -1 when an escape has no number behind it, or nothing
 * at all; that ends the field. */
int TakeFieldChar(ScanSource &in, bool escapes) {
    int c = in.Current();
    in.Advance();
    if (!escapes || c != '\\')
        return c;
    c = in.Current();
    if (c < 0)
        return -1;
    if (c < 128 && kEscapes.value[c] != 0) {
        in.Advance();
        return kEscapes.value[c];
    }
    if (c >= '0' && c <= '9')
        return ReadEscapeNumber(in, 8, 3);
    if ((c | 0x20) == 'x') {
        in.Advance();
        return ReadEscapeNumber(in, 16, 2);
    }
    in.Advance();
    return c;
}

char *Destination(const HalvFormatParameter &p) {
    return static_cast<char *>(DestinationOf(p));
}

int32_t Limit(const HalvFormatParameter &p) {
    return p.width > 0 ? p.width : kNoWidth;
}

/* Takes up to limit characters while keep(byte) holds, each escape resolved
 * when asked to, into out (null: nowhere); gives the number taken.  An
 * escape without its number ends the field. */
template <class Keep>
int32_t TakeChars(ScanSource &in, int32_t limit, char *out, bool escapes, Keep keep) {
    int32_t n = 0;
    for (; n < limit && in.Current() != -1 && keep(in.Current()); ++n) {
        const int c = TakeFieldChar(in, escapes);
        if (c < 0)
            break;
        if (out != nullptr)
            out[n] = (char)c;
    }
    return n;
}

/* Takes the run of bytes that keep accepts into out (null: nowhere) and
 * closes it with a terminator. */
template <class Keep>
void TakeIntoString(ScanSource &in, int32_t limit, char *out, Keep keep) {
    int32_t stored = 0;
    in.TakeRun(limit, keep, [out, &stored](int32_t c) {
        if (out != nullptr)
            out[stored++] = (char)c;
    });
    if (out != nullptr)
        out[stored] = '\0';
}

/* Fills members from the set text between the brackets of a %[ directive,
 * whose entry keeps where the set starts in its base.  Gives 0, -2 for a
 * range cut off by the end of the format, or -7 for a range that runs
 * backwards. */
int BuildSet(const char *format, const HalvFormatParameter &p, unsigned char *members, bool *negated) {
    const unsigned char *text = (const unsigned char *)format;
    memset(members, 0, 256);
    int32_t pos = p.base;
    *negated = text[pos] == '^';
    pos += *negated ? 1 : 0;
    /* A leading ']' or '-' is a member, not a closer or a range. */
    for (unsigned char lead : {']', '-'}) {
        if (text[pos] == lead) {
            members[lead] = 1;
            ++pos;
        }
    }
    const auto end = static_cast<int32_t>(GroupEnd(format + p.base) - format);
    const bool closed = text[end] == ']';
    int previous = -1;
    while (pos < end) {
        unsigned char c = text[pos];
        if (c == '-' && previous >= 0) {
            if (pos + 1 >= end) {
                if (!closed)
                    return HALV_FORMAT_MALFORMED;
                members['-'] = 1; /* right before the closing ']' */
                ++pos;
                continue;
            }
            int last = text[pos + 1];
            if (last < previous)
                return HALV_FORMAT_BAD_RANGE;
            for (int v = previous; v <= last; ++v)
                members[v] = 1;
            previous = last; /* ranges chain: a-c-e is a to e */
            pos += 2;
            continue;
        }
        members[c] = 1;
        previous = c;
        ++pos;
    }
    return 0;
}

} // namespace

int ReadScanChars(ScanSource &in, const HalvFormatParameter &p) noexcept {
    const int32_t count = p.width > 0 ? p.width : 1;
    TakeChars(in, count, Destination(p), (p.flags & kFlagAlt) != 0, [](int32_t) { return true; });
    return kFieldDone;
}

int ReadScanString(ScanSource &in, const HalvFormatParameter &p) noexcept {
    char *out = Destination(p);
    const auto notSpace = [](int32_t c) { return !IsScanSpace(c); };
    SkipScanSpace(in);
    if (!(p.flags & kFlagAlt)) {
        TakeIntoString(in, Limit(p), out, notSpace);
        return kFieldDone;
    }
    /* With escapes one character of the width may be several bytes. */
    const int32_t taken = TakeChars(in, Limit(p), out, true, notSpace);
    if (out != nullptr)
        out[taken] = '\0';
    return kFieldDone;
}

int ReadScanGroup(ScanSource &in, const HalvFormatParameter &p, const char *format) noexcept {
    unsigned char members[256];
    bool negated = false;
    int built = BuildSet(format, p, members, &negated);
    if (built < 0)
        return built;
    TakeIntoString(in, Limit(p), Destination(p),
                   [&members, negated](int32_t c) { return (members[c] != 0) != negated; });
    return kFieldDone;
}

} // namespace halv
