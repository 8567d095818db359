/*
 * text/scan_internal.h - the pieces of the scan engine: the directive table
 * the parser fills, the byte source every reader pulls from, and the field
 * readers the scan loop dispatches to.
 *
 * The engine never looks more than one byte ahead: `current` in ScanInput is
 * the look-ahead, and every reader leaves in it the first byte it refused.
 */
#ifndef HALV_TEXT_SCAN_INTERNAL_H
#define HALV_TEXT_SCAN_INTERNAL_H

#include <stdarg.h>
#include <stdint.h>

#include "halv_streams.h"
#include "halv_text.h"

namespace halv {

/* ------------------------------------------------------------------------
 * Directive table
 * ------------------------------------------------------------------------ */

/* What a table entry stands for.  Argument entries hold the value of a `*`
 * precision or base and come right before the directive that uses them. */
enum ScanType : uint8_t {
    kScanInteger = 1,
    kScanFloat = 2,
    kScanChar = 3,
    kScanString = 4,
    kScanPointer = 5,
    kScanCount = 6,
    kScanArgument = 7,
    kScanGroup = 8,
};

/* Qualifier bits of ScanDirective::flags. */
enum ScanFlag : uint32_t {
    kFlagBlank = 1u << 0,
    kFlagPlus = 1u << 1,
    kFlagLeft = 1u << 2,
    kFlagAlternative = 1u << 3, /* '#' */
    kFlagZeroPad = 1u << 4,
    kFlagSuppress = 1u << 5,    /* '*' */
    kFlagShort = 1u << 6,       /* h */
    kFlagShortShort = 1u << 7,  /* hh */
    kFlagLong = 1u << 8,        /* l */
    kFlagLongLong = 1u << 9,    /* ll */
    kFlagLongDouble = 1u << 10, /* L */
    kFlagSize = 1u << 11,       /* z */
    kFlagPtrDiff = 1u << 12,    /* t */
    kFlagMax = 1u << 13,        /* j */
    kFlagExplicitSize = 1u << 14, /* I8 / I16 / I32 / I64, see varsize */
    kFlagUnsigned = 1u << 15,   /* the conversion takes no sign */
    kFlagBaseArgument = 1u << 16, /* base is the index of a `*` entry */
};

constexpr uint32_t kSizeFlags = kFlagShort | kFlagShortShort | kFlagLong | kFlagLongLong |
                                kFlagLongDouble | kFlagSize | kFlagPtrDiff | kFlagMax |
                                kFlagExplicitSize;

constexpr int kScanMaxEntries = 64;

struct ScanDirective {
    ScanType type;
    char conversion;
    uint32_t flags;
    int32_t width;       /* 0: none */
    int32_t base;        /* 0: the conversion's default; or an entry index */
    int32_t varsize;     /* byte size of an I qualifier, -1 for none */
    int32_t setStart;    /* %[: offset of the first byte behind '[' */
    int32_t setEnd;      /* %[: offset of the closing ']' or of the end */
    int32_t indexAfterSpecifier;
    void *target;        /* the destination pointer fetched for it */
    int32_t value;       /* argument entries: the fetched int */
};

/* Parses a format in scan mode into table (kScanMaxEntries entries).  Gives
 * the number of entries, -2 for a malformed directive, -3 when the table
 * would overflow. */
int ParseScanFormat(const char *format, ScanDirective *table) noexcept;

/* Where the destination pointers come from: a va_list or an array. */
struct ScanArguments {
    va_list *list;
    void **array;
};

/* Fetches every argument the table needs, once and in order. */
void FetchScanArguments(ScanDirective *table, int entries, ScanArguments args) noexcept;

/* ------------------------------------------------------------------------
 * Byte source
 * ------------------------------------------------------------------------ */

struct ScanInput {
    int32_t current;         /* look-ahead byte 0..255, -1 at end of input */
    int32_t committed;       /* bytes taken from the source */
    int32_t error;           /* 0, or -8 once the stream failed */
    const unsigned char *text; /* string source: next unread byte; else null */
    HalvIO *io;              /* stream source */

    /* Reads the next byte into current.  At the end it stays at the end
     * and reads nothing more, so the string source never runs past its
     * terminator and a stream is not read behind its end.  Starts with
     * current at 0, which is no end. */
    inline int32_t Advance() noexcept {
        if (text != nullptr) {
            unsigned char byte = *text;
            if (byte == 0) {
                current = -1;
            } else {
                ++text;
                ++committed;
                current = byte;
            }
            return current;
        }
        return AdvanceStream();
    }

    int32_t AdvanceStream() noexcept;

    /* Takes bytes while keep(byte) holds and limit lasts, handing each to
     * use(byte) before the next is read; gives the number taken.  The same
     * as a loop over Advance, with the string source kept in registers. */
    template <class Keep, class Use>
    inline int32_t TakeRun(int32_t limit, Keep keep, Use use) noexcept {
        int32_t taken = 0;
        if (text == nullptr) {
            for (; taken < limit && current >= 0 && keep(current); ++taken) {
                use(current);
                Advance();
            }
            return taken;
        }
        const unsigned char *next = text;
        int32_t c = current;
        for (; taken < limit && c >= 0 && keep(c); ++taken) {
            use(c);
            unsigned char byte = *next;
            if (byte == 0) {
                c = -1;
            } else {
                ++next;
                c = byte;
            }
        }
        committed += (int32_t)(next - text);
        text = next;
        current = c;
        return taken;
    }
};

/* The six white-space bytes: blank, tab, LF, VT, FF, CR. */
inline bool IsScanSpace(int32_t c) noexcept {
    return c == ' ' || (c >= 9 && c <= 13);
}

inline void SkipScanSpace(ScanInput &in) noexcept {
    while (IsScanSpace(in.current))
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

/* Reads an integer field: optional sign (signed only), '#' prefix rules,
 * digits below base while width (0: none) lasts.  Gives 1 and *value, or 0. */
int ReadScanInteger(ScanInput &in, int base, bool isUnsigned, bool alternative, int32_t width,
                    uint64_t *value) noexcept;

/* Collects a float field honouring decimalPoint and converts it. */
int ReadScanFloat(ScanInput &in, const char *decimalPoint, int32_t width, double *value) noexcept;

/* Converts collected float text ("-12.5e3", "0x1.8p4") with double
 * arithmetic only: digit by digit, then one power of the base. */
double ScanTextToDouble(const char *text) noexcept;

/* The readers behind %c, %s, %[, each storing into target unless null. */
int ReadScanChars(ScanInput &in, const ScanDirective &d, const char *format) noexcept;
int ReadScanString(ScanInput &in, const ScanDirective &d, const char *format) noexcept;
int ReadScanGroup(ScanInput &in, const ScanDirective &d, const char *format) noexcept;

/* Position behind the leading '^', ']' and '-' of a set's text. */
int32_t SkipSetLead(const char *format, int32_t start) noexcept;

/* ------------------------------------------------------------------------
 * The core
 * ------------------------------------------------------------------------ */

/* Runs one whole scan: parse, fetch, loop.  locale may be null for the
 * fixed record. */
int32_t ScanCore(ScanInput &in, const HalvLocale *locale, const char *format,
                 ScanArguments args) noexcept;

/* The fixed record used by the functions without a final l. */
const HalvLocale *ScanFixedLocale() noexcept;

} // namespace halv

#endif
