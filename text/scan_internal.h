/*
 * text/scan_internal.h - the pieces of the scan engine: the byte source
 * every reader pulls from, and the field readers the scan loop dispatches
 * to.  The format is parsed by the directive parser the print engine uses,
 * in scan mode, into the same table of HalvFormatParameter entries.
 *
 * The engine never looks more than one byte ahead: `current` of the context
 * is the look-ahead, and every reader leaves in it the first byte it refused.
 */
#ifndef HALV_TEXT_SCAN_INTERNAL_H
#define HALV_TEXT_SCAN_INTERNAL_H

#include <stdint.h>

#include "text/format_internal.h"

namespace halv {

/* ------------------------------------------------------------------------
 * Byte source
 * ------------------------------------------------------------------------ */

/* The context's inChar reads the next byte into `current` (-1 at the end),
 * raises `processed` and `committed` for a byte read, and stores it through
 * `out` unless that is null.  At the end it stays at the end and reads
 * nothing more, so the string source never runs past its terminator and a
 * stream is not read behind its end.  `current` starts at 0, which is no
 * end. */
struct ScanSource {
    HalvFormatContext context; /* first, so a context leads back to its source */
    const unsigned char *text; /* string source: the next unread byte (location
                                  holds its address); null for a stream */

    int32_t Current() const noexcept { return context.current; }

    /* The string source's read, inline for the readers' loops. */
    int32_t NextTextByte() noexcept {
        const unsigned char byte = *text;
        if (byte == 0) {
            context.current = -1;
        } else {
            ++text;
            ++context.processed;
            ++context.committed;
            context.current = byte;
        }
        return context.current;
    }

    int32_t Advance() noexcept {
        return text != nullptr ? NextTextByte() : context.inChar(&context, nullptr);
    }

    /* The string source only, with a look-ahead: the look-ahead's own byte
     * in the string, from which a reader may look at the rest directly. */
    const unsigned char *CurrentText() const noexcept { return text - 1; }

    /* The string source only: takes the bytes from the look-ahead up to
     * `end`, which a reader found in the string, as that many Advance calls
     * would.  `end` is no further than the terminator. */
    void AdvanceTo(const unsigned char *end) noexcept {
        const auto behind = static_cast<int32_t>(end - text); /* read past the look-ahead */
        context.processed += behind;
        context.committed += behind;
        text = end;
        NextTextByte();
    }

    /* Takes bytes while keep(byte) holds and limit lasts, handing each to
     * use(byte) before the next is read; gives the number taken.  The same
     * as a loop over Advance, with the string source kept in registers. */
    template <class Keep, class Use>
    int32_t TakeRun(int32_t limit, Keep keep, Use use) noexcept {
        int32_t taken = 0;
        if (text == nullptr) {
            for (; taken < limit && Current() >= 0 && keep(Current()); ++taken) {
                use(Current());
                Advance();
            }
            return taken;
        }
        const unsigned char *next = text;
        int32_t c = context.current;
        for (; taken < limit && c >= 0 && keep(c); ++taken) {
            use(c);
            const unsigned char byte = *next;
            if (byte == 0) {
                c = -1;
            } else {
                ++next;
                c = byte;
            }
        }
        const auto read = static_cast<int32_t>(next - text);
        context.processed += read;
        context.committed += read;
        text = next;
        context.current = c;
        return taken;
    }
};

/* A source over NUL-terminated text (null reads as the empty text), and one
 * over a stream (null reads as a stream that has ended). */
void InitTextSource(ScanSource &in, const HalvLocale *locale, const char *text) noexcept;
void InitStreamSource(ScanSource &in, const HalvLocale *locale, HalvIO *io) noexcept;

/* The six white-space bytes: blank, tab, LF, VT, FF, CR. */
inline bool IsScanSpace(int32_t c) noexcept {
    return c == ' ' || (c >= 9 && c <= 13);
}

inline void SkipScanSpace(ScanSource &in) noexcept {
    while (IsScanSpace(in.Current()))
        in.Advance();
}

/* Digit values of the 128 ASCII bytes: 0-9, a-z and A-Z give 0 to 35,
 * all others -1.  A constant, so no thread ever fills it. */
struct DigitTable {
    int8_t value[128];
};

constexpr DigitTable MakeDigitTable() {
    DigitTable t{};
    for (int c = 0; c < 128; ++c)
        t.value[c] = -1;
    for (int c = '0'; c <= '9'; ++c)
        t.value[c] = (int8_t)(c - '0');
    for (int c = 'a'; c <= 'z'; ++c) {
        t.value[c] = (int8_t)(c - 'a' + 10);
        t.value[c - 'a' + 'A'] = (int8_t)(c - 'a' + 10);
    }
    return t;
}

inline constexpr DigitTable kDigitTable = MakeDigitTable();

/* Digit value of a byte in bases up to 36; -1 for anything else. */
inline int DigitValue(int32_t c) noexcept {
    return ((uint32_t)c < 128) ? kDigitTable.value[c] : -1;
}

/* ------------------------------------------------------------------------
 * Field readers
 * ------------------------------------------------------------------------ */

/* A reader's answer to the scan loop. */
enum FieldResult : int {
    kFieldFailed = 0,   /* nothing stored; the scan ends with its count */
    kFieldDone = 1,     /* read; stored unless suppressed */
    /* negative values end the call with that result */
};

/* Where a field is stored: the fetched pointer, null when suppressed. */
inline void *DestinationOf(const HalvFormatParameter &p) noexcept {
    return (p.flags & kFlagSuppress) ? nullptr : p.data.p;
}

/* Reads an integer field: optional sign (signed only), '#' prefix rules,
 * digits below base while width (0: none) lasts.  Gives 1 and *value, or 0. */
int ReadScanInteger(ScanSource &in, int base, bool isUnsigned, bool alternative, int32_t width,
                    uint64_t *value) noexcept;

/* Collects a float field honouring the context's decimal point and
 * converts it. */
int ReadScanFloat(ScanSource &in, int32_t width, double *value) noexcept;

/* Converts float text ("-12.5e3", "0x1.8p4") with double arithmetic
 * only: digit by digit, then one power of the base.  It reads what the float
 * reader collects and stops at the first byte that continues no such text;
 * *end (unless end is null) is set to that byte. */
double ScanTextToDouble(const char *text, const char **end = nullptr) noexcept;

/* The readers behind %c, %s and %[, each storing into its destination
 * unless that is null.  `format` is the whole format, for the set of %[. */
int ReadScanChars(ScanSource &in, const HalvFormatParameter &p) noexcept;
int ReadScanString(ScanSource &in, const HalvFormatParameter &p) noexcept;
int ReadScanGroup(ScanSource &in, const HalvFormatParameter &p, const char *format) noexcept;

/* ------------------------------------------------------------------------
 * The core
 * ------------------------------------------------------------------------ */

/* Runs one whole scan over a source that is set up: parse, fetch, loop.
 * Result: the number of assignments, or a negative code. */
int32_t ScanCore(ScanSource &in, const char *format, FormatArgs &args) noexcept;

} // namespace halv

#endif
