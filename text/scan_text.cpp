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
constexpr int kRangeBackwards = -7;
constexpr int kMalformed = -2;

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
int ReadEscapeNumber(ScanInput &in, int base, int maxDigits) {
    int value = 0, digits = 0;
    for (; digits < maxDigits; ++digits) {
        int digit = DigitValue(in.current);
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
int TakeFieldChar(ScanInput &in, bool escapes) {
    int c = in.current;
    in.Advance();
    if (!escapes || c != '\\')
        return c;
    c = in.current;
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

char *Destination(const ScanDirective &d) {
    return (d.flags & kFlagSuppress) ? nullptr : (char *)d.target;
}

int32_t Limit(const ScanDirective &d) {
    return d.width > 0 ? d.width : kNoWidth;
}

/* Takes the run of bytes that keep accepts into out (null: nowhere) and
 * closes it with a terminator. */
template <class Keep>
void TakeIntoString(ScanInput &in, int32_t limit, char *out, Keep keep) {
    int32_t stored = 0;
    in.TakeRun(limit, keep, [out, &stored](int32_t c) {
        if (out != nullptr)
            out[stored++] = (char)c;
    });
    if (out != nullptr)
        out[stored] = '\0';
}

/* Fills members from the set text between the brackets of a %[ directive.
 * Gives 0, -2 for a range cut off by the end of the format, or -7 for a
 * range that runs backwards. */
int BuildSet(const char *format, const ScanDirective &d, unsigned char *members, bool *negated) {
    const unsigned char *text = (const unsigned char *)format;
    memset(members, 0, 256);
    int32_t pos = d.setStart;
    *negated = text[pos] == '^';
    pos += *negated ? 1 : 0;
    /* A leading ']' or '-' is a member, not a closer or a range. */
    for (unsigned char lead : {']', '-'}) {
        if (text[pos] == lead) {
            members[lead] = 1;
            ++pos;
        }
    }
    const int32_t end = d.setEnd;
    const bool closed = text[end] == ']';
    int previous = -1;
    while (pos < end) {
        unsigned char c = text[pos];
        if (c == '-' && previous >= 0) {
            if (pos + 1 >= end) {
                if (!closed)
                    return kMalformed;
                members['-'] = 1; /* right before the closing ']' */
                ++pos;
                continue;
            }
            int last = text[pos + 1];
            if (last < previous)
                return kRangeBackwards;
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

int ReadScanChars(ScanInput &in, const ScanDirective &d, const char *) noexcept {
    char *out = Destination(d);
    const bool escapes = (d.flags & kFlagAlternative) != 0;
    const int32_t count = d.width > 0 ? d.width : 1;
    for (int32_t n = 0; n < count && in.current != -1; ++n) {
        int c = TakeFieldChar(in, escapes);
        if (c < 0)
            break;
        if (out != nullptr)
            out[n] = (char)c;
    }
    return kFieldDone;
}

int ReadScanString(ScanInput &in, const ScanDirective &d, const char *) noexcept {
    char *out = Destination(d);
    const int32_t limit = Limit(d);
    SkipScanSpace(in);
    if (!(d.flags & kFlagAlternative)) {
        TakeIntoString(in, limit, out, [](int32_t c) { return !IsScanSpace(c); });
        return kFieldDone;
    }
    /* With escapes one character of the width may be several bytes. */
    int32_t n = 0;
    for (; n < limit && in.current != -1 && !IsScanSpace(in.current); ++n) {
        int c = TakeFieldChar(in, true);
        if (c < 0)
            break;
        if (out != nullptr)
            out[n] = (char)c;
    }
    if (out != nullptr)
        out[n] = '\0';
    return kFieldDone;
}

int ReadScanGroup(ScanInput &in, const ScanDirective &d, const char *format) noexcept {
    unsigned char members[256];
    bool negated = false;
    int built = BuildSet(format, d, members, &negated);
    if (built < 0)
        return built;
    TakeIntoString(in, Limit(d), Destination(d),
                   [&members, negated](int32_t c) { return (members[c] != 0) != negated; });
    return kFieldDone;
}

} // namespace halv
