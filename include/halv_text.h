/*
 * halv_text.h - print and scan engines, locale, dates.
 */
#ifndef HALV_TEXT_H
#define HALV_TEXT_H

#include "halv_base.h"
#include "halv_streams.h"

HALV_BEGIN_DECLS

/* ------------------------------------------------------------------------
 * Locale: the number punctuation the print and scan engines honour.  Only
 * decimalPoint is read by the library; the other two are carried along.
 * ------------------------------------------------------------------------ */

/* A locale record: three NUL-terminated UTF-8 texts.  A record handed to a
 * print or scan function stays the caller's; the call only reads it. */
typedef struct HalvLocale {
    const char *decimalPoint;      /* written whole by print, matched byte by byte by scan; null counts as "." */
    const char *thousandSeparator; /* "," in the fixed record; not read by the library */
    /* Group sizes joined by ';', ending in ";0" when the last size repeats
     * ("3;0"); "" in the fixed record.  Not read by the library. */
    const char *grouping;
} HalvLocale;

/* The fixed record: ".", "," and "".  Used by every print and scan function
 * without the final 'l'.  Never changes and is never freed. */
HALV_API const HalvLocale *HalvGetHalvernLocale(void) HALV_NOEXCEPT;

/* The process-wide user record.  Filled on first use from the process's
 * locale (LC_ALL, LC_NUMERIC, LANG; "C" when none is set), unless the program
 * set it first; later calls return the same record without asking again.
 * The strings belong to the library and are released at the last
 * HalvernEnd, after which the next call reads the process's locale again;
 * a record filled while the engine isn't running is kept for the life of
 * the process.  A text the locale lacks (or that can't be had as UTF-8)
 * is the fixed record's.
 * The record is shared: don't change it while anyone formats with it. */
HALV_API HalvLocale *HalvGetUserLocale(void) HALV_NOEXCEPT;

/* Replaces the user record with copies of the three strings of `locale` (a
 * null field counts as the fixed record's).  A null pointer does nothing.
 * Frees the previous strings, so no thread may be formatting with the user
 * record meanwhile. */
HALV_API void HalvSetUserLocale(const HalvLocale *locale) HALV_NOEXCEPT;

/* ------------------------------------------------------------------------
 * Dates.  A time is a signed 64-bit count of milliseconds since 1 January
 * 1970, 00:00:00 UTC; a HalvDate is one broken down, in UTC or in the
 * process's zone (TZ, else the system's).  Leap seconds are not counted.
 *
 * zoneOffset 0 marks a UTC date for HalvToLocalTime, HalvToUTC and
 * HalvFormatDate, so a local date of a zone whose standard time is UTC
 * counts as UTC there.
 * ------------------------------------------------------------------------ */

/* A broken-down time, as HalvMakeDate fills it and HalvMakeTime reads it.
 * The ranges are those of a normalised date; HalvMakeTime also takes
 * fields outside them. */
typedef struct HalvDate {
    int32_t second;     /* 0 to 60 */
    int32_t minute;     /* 0 to 59 */
    int32_t hour;       /* 0 to 23 */
    int32_t day;        /* day of the month, from 1 */
    int32_t month;      /* 1 to 12 */
    int32_t year;       /* the full year: 2026 */
    int32_t weekDay;    /* 0 is Sunday */
    int32_t yearDay;    /* 0 is 1 January */
    int32_t isDST;      /* nonzero in summer time */
    /* Seconds west of Greenwich of the zone's standard time (the C
     * library's `timezone`), without summer time; 0 for a UTC date. */
    int32_t zoneOffset;
    /* "GMT" for a UTC date, else the C library's abbreviation of the zone
     * at that time ("CET", "CEST", "+1030"), cut to 63 bytes; the bytes
     * behind the terminator are zero. */
    char zoneName[64];
} HalvDate;

/* Breaks the current time down, in UTC when utc is nonzero, else in the
 * process's zone, as HalvMakeDate does.  A null date stores nothing. */
HALV_API void HalvGetCurrentDate(HalvDate *date, int32_t utc) HALV_NOEXCEPT;

/* Breaks `milliseconds` down into *date: the count is divided by 1000
 * towards zero (1500 and 1999 give second 1, -1500 gives 23:59:59 of 31
 * December 1969), then broken down in UTC when utc is nonzero, with
 * zoneOffset 0 and zoneName "GMT", or else in the process's zone, with
 * isDST, the zone's standard offset and the zone's abbreviation at that
 * time.  Every count has a date; times before 1970 too.  A null date
 * stores nothing. */
HALV_API void HalvMakeDate(HalvDate *date, int32_t utc, int64_t milliseconds) HALV_NOEXCEPT;

/* Turns *date into a time, reading its fields in UTC when utc is nonzero,
 * else in the process's zone with summer time as the C library decides
 * for that wall time.  weekDay, yearDay, isDST, zoneOffset and zoneName
 * are not read; the other fields may lie outside their ranges (the 32nd
 * of January, minute -1, month 14) and count on as in a calendar.  On
 * success the date is rewritten normalised, every field recomputed and
 * the zone fields set as HalvMakeDate sets them, and *milliseconds (null
 * allowed) gets the time, a whole number of seconds.
 * Result: 1; 0 when the date is before the epoch, or so far ahead that its
 * milliseconds or its year leave 64 or 32 bits, and the date is then left
 * as it was; -1 for a null date.  A wall time that summer time skips or
 * repeats gives whatever the C library's mktime makes of it. */
HALV_API int32_t HalvMakeTime(int64_t *milliseconds, int32_t utc, HalvDate *date) HALV_NOEXCEPT;

/* *result becomes the local date of the moment *source stands for.  A
 * UTC source (zoneOffset 0) goes through its time; a local one is only
 * normalised, as HalvMakeTime without the UTC flag does, and copied.  The
 * source is normalised in place either way; source and result may be the
 * same record.  Result: 1; 0 when the source has no time (see
 * HalvMakeTime), with result untouched; -1 when either is null. */
HALV_API int32_t HalvToLocalTime(HalvDate *source, HalvDate *result) HALV_NOEXCEPT;

/* The mirror of HalvToLocalTime: *result becomes the UTC date of *source.
 * A local source (zoneOffset nonzero) goes through its time; a UTC one is
 * normalised and copied.  Results as HalvToLocalTime. */
HALV_API int32_t HalvToUTC(HalvDate *source, HalvDate *result) HALV_NOEXCEPT;

/* A new string (for halv_internal_free) of *date written by `pattern`.
 * The date is first normalised in place by HalvMakeTime, in UTC when its
 * zoneOffset is 0, so weekDay and yearDay are always recomputed and a date
 * before 1970 can't be formatted.
 *
 * A run of one ASCII letter is a field; anything else is literal text up to
 * the next letter outside quotes.  A single quote switches quoting on or
 * off and is not written; two in a row write one quote, inside quotes or
 * out ("'at' HH", "'o''clock'", "''").  Numbers are padded to the field's
 * digit count, with blanks for a run of one letter and with zeros for a
 * longer run; a run longer than that doesn't widen the field and a longer
 * value is not cut ("d" of the 5th is " 5", "dd" and "dddd" "05").
 *
 *   y Y   "yy": year - 1900, 2 digits ("126" for 2026); any other run: the
 *         year, 4 digits with zeros even for "y"
 *   M     1-2: month, 2 digits; 3: abbreviated name; 4 or more: full name
 *   d     day, 2          D  yearDay + 1, 3        e  weekDay, 2
 *   E     1-3: abbreviated weekday name; 4 or more: full name
 *   w     (yearDay - weekDay + 7) / 7, 2 (weeks begin on Sunday)
 *   H     hour, 2         k  hour + 1, 2           K  hour % 12, 2
 *   h     hour % 12 with 12 for 0, 2               m  minute, 2    s second, 2
 *   a     the locale's morning text before 12:00, else its afternoon text
 *         (empty in many locales)
 *   Z     "+hhmm"; ZZ "+hh:mm": zoneOffset as it stands, '-' only when it
 *         is negative (so zones west of Greenwich print '+'), summer time
 *         not in it; ZZZ and longer: "UTC" for zoneOffset 0, else the zone
 *         identifier of the process (below), which may be empty
 *
 * Names come from the locale named by LC_ALL, LC_TIME or LANG (the first
 * set), "C" when none is or it can't be loaded, as UTF-8: months in their
 * nominative form.  The zone identifier is taken once per process: TZ
 * without quotes and without a leading ':', cut to 255 bytes, else the
 * system's zone ("Europe/Berlin" from /etc/localtime, else /etc/timezone).
 *
 * Null for a null argument, a date HalvMakeTime refuses, any other ASCII
 * letter outside quotes, a literal text that comes out empty (a lone quote
 * ending the pattern, as in "HH'"), or no memory.  Safe to call from
 * several threads at once. */
HALV_API char *HalvFormatDate(HalvDate *date, const char *pattern) HALV_NOEXCEPT;

/* ------------------------------------------------------------------------
 * Formatting engine records, shared by the print and scan engines.
 * ------------------------------------------------------------------------ */

/* Results of the print and scan families besides counts. */
#define HALV_FORMAT_MALFORMED (-2)     /* a directive is malformed */
#define HALV_FORMAT_TOO_MANY_ARGS (-3) /* more than HALV_FORMAT_MAX_ARGS arguments */
#define HALV_FORMAT_BAD_RANGE (-7)     /* a %[ range runs backwards (scan) */
#define HALV_FORMAT_STREAM_ERROR (-8)  /* the stream refused or failed a byte */

#define HALV_FORMAT_MAX_ARGS 64 /* most table entries of one format: directives and '*' arguments */

typedef struct HalvFormatContext HalvFormatContext;

/* The per-call record of one print or scan run; it lives on the stack of the
 * engine and is handed to the sink and source functions. */
struct HalvFormatContext {
    void (*outChar)(HalvFormatContext *context, int32_t byte); /* the sink */
    int32_t (*inChar)(HalvFormatContext *context, char *out);  /* the source (scan) */
    void *location;   /* a stream, or the address of a moving text pointer */
    int32_t current;  /* last byte read, -1 at end of input (scan) */
    int32_t processed; /* bytes offered to the sink, stored or not */
    int32_t committed; /* bytes the sink really took */
    int32_t max;       /* bounded sink's limit; growing sink's capacity */
    int32_t error;     /* 0, or HALV_FORMAT_STREAM_ERROR */
    const HalvLocale *locale; /* the call's record; the fixed one when the caller gave null */
};

/* Parameter types, the type of a HalvFormatParameter. */
#define HALV_FORMAT_INTEGER 1   /* %d %i %u %o %x %X */
#define HALV_FORMAT_FLOATING 2  /* %e %E %f %F %g %G %a %A */
#define HALV_FORMAT_CHARACTER 3 /* %c */
#define HALV_FORMAT_STRING 4    /* %s */
#define HALV_FORMAT_POINTER 5   /* %p */
#define HALV_FORMAT_COUNT 6     /* %n */
#define HALV_FORMAT_STAR 7      /* a width, precision or base argument */
#define HALV_FORMAT_GROUP 8     /* a %[ character group (scan only) */

/* The argument of one table entry, as the engine fetched it. */
typedef union HalvFormatValue {
    int64_t i;  /* a signed integer, a character, or a '*' argument, sign-extended */
    uint64_t u; /* an unsigned integer, zero-extended */
    double d;   /* a floating value, whatever its size qualifier */
    void *p;    /* a string, a pointer, a %n target, or a scan destination */
} HalvFormatValue;

/* One entry of the table the directive parser fills, one for each argument.
 * `flags` holds the qualifiers seen in its low 24 bits and the conversion
 * byte in its high 8 bits.  `width`, `precision` and `base` hold the table
 * index of their argument when it came from a '*'. */
typedef struct HalvFormatParameter {
    int32_t type;      /* HALV_FORMAT_INTEGER to HALV_FORMAT_GROUP */
    uint32_t flags;    /* qualifier bits, and the conversion byte in bits 24 to 31 */
    int32_t width;     /* the field width, 0 for none */
    int32_t precision; /* -1 for none */
    /* The number base: the conversion's own or the one given, 2 to 36, and
     * 0 when there is neither; for a %[ group, the format offset just
     * behind its '['. */
    int32_t base;
    int32_t varsize;   /* byte size of an I qualifier (1, 2, 4 or 8), -1 for none */
    int32_t indexAfterSpecifier; /* format offset of the byte behind the directive; -1 for a '*' entry */
    HalvFormatValue data; /* print: the argument's value; scan: the destination (null when suppressed) */
} HalvFormatParameter;

/* ------------------------------------------------------------------------
 * Print family.
 *
 * One engine behind all of these.  The sink is named by the letters after
 * "Halv": IO a stream (null only counts), S a caller's buffer with no bound,
 * SN a caller's buffer of `size` bytes, AS a string the call allocates; S
 * and SN with a null buffer only count.  The plain forms take the
 * arguments behind the format.  The V forms take a va_list, which they read
 * through a copy, so the caller's list is not consumed.  The L forms take
 * an array of pointers in which entry i points at the i-th value in its own
 * C type (an int, a long, a short for h, a char for %c, a float for an h
 * floating directive, a long double for L), or is the pointer itself for
 * %s, %p and %n; a null array or a null entry reads as 0.  The forms ending
 * in 'l' take the locale record first (null means the fixed one); the
 * others use HalvGetHalvernLocale().  Only the record's decimalPoint is
 * used.
 *
 * Result: the number of bytes the format produced, or HALV_FORMAT_MALFORMED
 * (also for a null format), HALV_FORMAT_TOO_MANY_ARGS, or
 * HALV_FORMAT_STREAM_ERROR when the stream refused a byte (the rest was
 * still offered).  A format that fails to parse writes nothing and reads no
 * argument: S and SN leave an empty string, AS a null pointer.
 *
 * SN stores at most size - 1 bytes and a terminator (nothing at all when size
 * is 0) but returns the full length, so a null buffer with size 0 measures.
 * AS sets *out to a new string the caller frees with halv_internal_free,
 * never null on success ("" for no text); when memory runs out it gives -1
 * and *out is null.
 * ------------------------------------------------------------------------ */

/* Prints to the stream io, with the arguments behind format and the fixed
 * locale.  Each byte is one write call; a null io only counts. */
HALV_API int32_t HalvIOPrintf(HalvIO *io, const char *format, ...) HALV_NOEXCEPT;

/* Prints into buffer, with no bound, with the arguments behind format and
 * the fixed locale.  The buffer must hold the text and its terminator; a
 * null buffer only counts. */
HALV_API int32_t HalvSPrintf(char *buffer, const char *format, ...) HALV_NOEXCEPT;

/* Prints into the size bytes at buffer, with the arguments behind format
 * and the fixed locale.  The result is the full length, whatever was
 * stored. */
HALV_API int32_t HalvSNPrintf(char *buffer, uint32_t size, const char *format, ...) HALV_NOEXCEPT;

/* Prints into a new string in *out, with the arguments behind format and
 * the fixed locale.  A null out gives -1. */
HALV_API int32_t HalvASPrintf(char **out, const char *format, ...) HALV_NOEXCEPT;

/* Prints to the stream io, with the arguments in the va_list args and the
 * fixed locale. */
HALV_API int32_t HalvIOVPrintf(HalvIO *io, const char *format, va_list args) HALV_NOEXCEPT;

/* Prints into buffer, with no bound, with the arguments in the va_list
 * args and the fixed locale. */
HALV_API int32_t HalvVSPrintf(char *buffer, const char *format, va_list args) HALV_NOEXCEPT;

/* Prints into the size bytes at buffer, with the arguments in the va_list
 * args and the fixed locale. */
HALV_API int32_t HalvVSNPrintf(char *buffer, uint32_t size, const char *format, va_list args) HALV_NOEXCEPT;

/* Prints into a new string in *out, with the arguments in the va_list args
 * and the fixed locale. */
HALV_API int32_t HalvVASPrintf(char **out, const char *format, va_list args) HALV_NOEXCEPT;

/* Prints to the stream io, with the arguments as an array of pointers and
 * the fixed locale. */
HALV_API int32_t HalvIOLPrintf(HalvIO *io, const char *format, void **args) HALV_NOEXCEPT;

/* Prints into buffer, with no bound, with the arguments as an array of
 * pointers and the fixed locale. */
HALV_API int32_t HalvLSPrintf(char *buffer, const char *format, void **args) HALV_NOEXCEPT;

/* Prints into the size bytes at buffer, with the arguments as an array of
 * pointers and the fixed locale. */
HALV_API int32_t HalvLSNPrintf(char *buffer, uint32_t size, const char *format, void **args) HALV_NOEXCEPT;

/* Prints into a new string in *out, with the arguments as an array of
 * pointers and the fixed locale. */
HALV_API int32_t HalvLASPrintf(char **out, const char *format, void **args) HALV_NOEXCEPT;

/* Prints to the stream io, with the arguments behind format and the
 * punctuation of locale (null: the fixed record). */
HALV_API int32_t HalvIOPrintfl(const HalvLocale *locale, HalvIO *io, const char *format, ...) HALV_NOEXCEPT;

/* Prints into buffer, with no bound, with the arguments behind format and
 * the punctuation of locale (null: the fixed record). */
HALV_API int32_t HalvSPrintfl(const HalvLocale *locale, char *buffer, const char *format, ...) HALV_NOEXCEPT;

/* Prints into the size bytes at buffer, with the arguments behind format
 * and the punctuation of locale (null: the fixed record). */
HALV_API int32_t HalvSNPrintfl(const HalvLocale *locale, char *buffer, uint32_t size, const char *format,
                               ...) HALV_NOEXCEPT;

/* Prints into a new string in *out, with the arguments behind format and
 * the punctuation of locale (null: the fixed record). */
HALV_API int32_t HalvASPrintfl(const HalvLocale *locale, char **out, const char *format, ...) HALV_NOEXCEPT;

/* Prints to the stream io, with the arguments in the va_list args and the
 * punctuation of locale (null: the fixed record). */
HALV_API int32_t HalvIOVPrintfl(const HalvLocale *locale, HalvIO *io, const char *format,
                                va_list args) HALV_NOEXCEPT;

/* Prints into buffer, with no bound, with the arguments in the va_list
 * args and the punctuation of locale (null: the fixed record). */
HALV_API int32_t HalvVSPrintfl(const HalvLocale *locale, char *buffer, const char *format,
                               va_list args) HALV_NOEXCEPT;

/* Prints into the size bytes at buffer, with the arguments in the va_list
 * args and the punctuation of locale (null: the fixed record). */
HALV_API int32_t HalvVSNPrintfl(const HalvLocale *locale, char *buffer, uint32_t size, const char *format,
                                va_list args) HALV_NOEXCEPT;

/* Prints into a new string in *out, with the arguments in the va_list args
 * and the punctuation of locale (null: the fixed record). */
HALV_API int32_t HalvVASPrintfl(const HalvLocale *locale, char **out, const char *format,
                                va_list args) HALV_NOEXCEPT;

/* Prints to the stream io, with the arguments as an array of pointers and
 * the punctuation of locale (null: the fixed record). */
HALV_API int32_t HalvIOLPrintfl(const HalvLocale *locale, HalvIO *io, const char *format,
                                void **args) HALV_NOEXCEPT;

/* Prints into buffer, with no bound, with the arguments as an array of
 * pointers and the punctuation of locale (null: the fixed record). */
HALV_API int32_t HalvLSPrintfl(const HalvLocale *locale, char *buffer, const char *format,
                               void **args) HALV_NOEXCEPT;

/* Prints into the size bytes at buffer, with the arguments as an array of
 * pointers and the punctuation of locale (null: the fixed record). */
HALV_API int32_t HalvLSNPrintfl(const HalvLocale *locale, char *buffer, uint32_t size, const char *format,
                                void **args) HALV_NOEXCEPT;

/* Prints into a new string in *out, with the arguments as an array of
 * pointers and the punctuation of locale (null: the fixed record). */
HALV_API int32_t HalvLASPrintfl(const HalvLocale *locale, char **out, const char *format,
                                void **args) HALV_NOEXCEPT;

/* ------------------------------------------------------------------------
 * Scan: formatted input from a string or a stream.
 *
 * One engine reads the input a byte at a time against a format and stores
 * through the caller's pointers.  Directives: %d %i %u %o %x %X (integers),
 * %e %E %f %F %g %G %a %A (all store a double), %c %s %[set] %p %n and %%.
 * Qualifiers: '*' suppresses the assignment; a width bounds the field
 * (0: none); "%..16i" gives a base (2 to 36) to %i and %u, "%..*i" takes it
 * from an int argument; '#' lets %x take a 0x prefix (%o a leading 0, base 2
 * a 0b) and lets %c and %s read backslash escapes.
 * Stored sizes: none, I8, I16, I32 store 32 bits; h and hh 16 bits; l, ll,
 * z, t, j and I64 64 bits; an I size decides over any size behind it.  %n stores the bytes taken so far, by the same
 * sizes; %p stores a pointer and reads "(nil)" as null.
 * Unlike the C library: %i reads no prefix, %x takes 0x only with '#', the
 * unsigned conversions refuse a sign, an integer's sign is outside its
 * width, a float's exponent is read only behind a decimal point ("1e5" is
 * 1), "inf", "infinite" and "nan" are read, and an empty %s or %[ succeeds
 * and counts.  A float's decimal point is the locale record's, matched byte
 * by byte; the functions without a final l use the fixed record (".").
 *
 * Results: the number of assignments (suppressed fields and %n don't
 * count); HALV_SCAN_END when the input ended before the first assignment;
 * HALV_SCAN_MALFORMED for a malformed directive, a %% that met another byte
 * or a multi-byte literal that didn't match; HALV_SCAN_TOO_MANY for a
 * format of more than 64 argument entries; HALV_SCAN_BAD_RANGE for a %[
 * range that runs backwards; HALV_SCAN_STREAM_FAILED when reading the
 * stream failed, which replaces the count.  Fields stored before a failure
 * stay stored.
 *
 * Forms: the plain ones take the destination pointers behind the format;
 * the V forms a va_list, read through a copy, so the caller's list is not
 * consumed; the L forms an array in which args[i] is the i-th destination
 * pointer (for a "%..*i" base, a pointer to the int).  A null array or a
 * null entry reads the field and stores nothing; the field still counts.
 * The forms ending in 'l' take the locale record first.
 *
 * Streams have no push-back: the byte behind the last field is consumed and
 * lost, so after "%d" on "12 34" the stream goes on at "34".  A stream byte
 * 0xFF reads as the end of input, and so does a read that would block or a
 * stream without a read slot.  A null stream, or null text, is input that
 * has ended; a null format is malformed.
 * ------------------------------------------------------------------------ */

#define HALV_SCAN_END (-1)           /* the input ended before the first assignment */
#define HALV_SCAN_MALFORMED (-2)     /* a malformed directive, or a %% or multi-byte literal that didn't match */
#define HALV_SCAN_TOO_MANY (-3)      /* more than HALV_FORMAT_MAX_ARGS argument entries */
#define HALV_SCAN_BAD_RANGE (-7)     /* a %[ range that runs backwards */
#define HALV_SCAN_STREAM_FAILED (-8) /* a read of the stream failed */

struct HalvIO;

/* Scans text, with the destinations behind format and the fixed locale.
 * The terminating zero is the end of input. */
HALV_API int32_t HalvSScanf(const char *text, const char *format, ...) HALV_NOEXCEPT;

/* Scans text, with the destinations in the va_list args and the fixed
 * locale. */
HALV_API int32_t HalvVSScanf(const char *text, const char *format, va_list args) HALV_NOEXCEPT;

/* Scans text, with the destinations as an array of pointers and the fixed
 * locale. */
HALV_API int32_t HalvLSScanf(const char *text, const char *format, void **args) HALV_NOEXCEPT;

/* Scans the stream io, with the destinations behind format and the fixed
 * locale.  One read call of one byte at a time, and no push-back. */
HALV_API int32_t HalvIOScanf(struct HalvIO *io, const char *format, ...) HALV_NOEXCEPT;

/* Scans the stream io, with the destinations in the va_list args and the
 * fixed locale. */
HALV_API int32_t HalvIOVScanf(struct HalvIO *io, const char *format, va_list args) HALV_NOEXCEPT;

/* Scans the stream io, with the destinations as an array of pointers and
 * the fixed locale. */
HALV_API int32_t HalvIOLScanf(struct HalvIO *io, const char *format, void **args) HALV_NOEXCEPT;

/* Scans text, with the destinations behind format and the decimal point of
 * locale (null: the fixed record). */
HALV_API int32_t HalvSScanfl(const HalvLocale *locale, const char *text, const char *format,
                             ...) HALV_NOEXCEPT;

/* Scans text, with the destinations in the va_list args and the decimal
 * point of locale (null: the fixed record). */
HALV_API int32_t HalvVSScanfl(const HalvLocale *locale, const char *text, const char *format,
                              va_list args) HALV_NOEXCEPT;

/* Scans text, with the destinations as an array of pointers and the
 * decimal point of locale (null: the fixed record). */
HALV_API int32_t HalvLSScanfl(const HalvLocale *locale, const char *text, const char *format,
                              void **args) HALV_NOEXCEPT;

/* Scans the stream io, with the destinations behind format and the decimal
 * point of locale (null: the fixed record). */
HALV_API int32_t HalvIOScanfl(const HalvLocale *locale, struct HalvIO *io, const char *format,
                              ...) HALV_NOEXCEPT;

/* Scans the stream io, with the destinations in the va_list args and the
 * decimal point of locale (null: the fixed record). */
HALV_API int32_t HalvIOVScanfl(const HalvLocale *locale, struct HalvIO *io, const char *format,
                               va_list args) HALV_NOEXCEPT;

/* Scans the stream io, with the destinations as an array of pointers and
 * the decimal point of locale (null: the fixed record). */
HALV_API int32_t HalvIOLScanfl(const HalvLocale *locale, struct HalvIO *io, const char *format,
                               void **args) HALV_NOEXCEPT;

HALV_END_DECLS

#endif /* HALV_TEXT_H */
