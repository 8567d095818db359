/*
 * halv_text.h - print and scan engines, locale, dates.
 */
#ifndef HALV_TEXT_H
#define HALV_TEXT_H

#include "halv_base.h"

HALV_BEGIN_DECLS

/* ------------------------------------------------------------------------
 * Locale: the number punctuation the print and scan engines honour.  Only
 * decimalPoint is read by the library; the other two are carried along.
 * ------------------------------------------------------------------------ */

typedef struct HalvLocale {
    const char *decimalPoint;
    const char *thousandSeparator;
    const char *grouping;
} HalvLocale;

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
 * z, t, j and I64 64 bits.  %n stores the bytes taken so far, by the same
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
 * Streams have no push-back: the byte behind the last field is consumed and
 * lost, so after "%d" on "12 34" the stream goes on at "34".  A stream byte
 * 0xFF reads as the end of input.  A null stream, or null text, is input
 * that has ended; a null format is malformed.
 * ------------------------------------------------------------------------ */

#define HALV_SCAN_END (-1)
#define HALV_SCAN_MALFORMED (-2)
#define HALV_SCAN_TOO_MANY (-3)
#define HALV_SCAN_BAD_RANGE (-7)
#define HALV_SCAN_STREAM_FAILED (-8)

struct HalvIO;

/* Scans text (the terminating zero is the end of input). */
HALV_API int32_t HalvSScanf(const char *text, const char *format, ...) HALV_NOEXCEPT;
HALV_API int32_t HalvVSScanf(const char *text, const char *format, va_list args) HALV_NOEXCEPT;
/* L form: args[i] is the i-th destination pointer (for a "%..*i" base, a
 * pointer to the int). */
HALV_API int32_t HalvLSScanf(const char *text, const char *format, void **args) HALV_NOEXCEPT;

/* Scans a stream, one read of one byte at a time. */
HALV_API int32_t HalvIOScanf(struct HalvIO *io, const char *format, ...) HALV_NOEXCEPT;
HALV_API int32_t HalvIOVScanf(struct HalvIO *io, const char *format, va_list args) HALV_NOEXCEPT;
HALV_API int32_t HalvIOLScanf(struct HalvIO *io, const char *format, void **args) HALV_NOEXCEPT;

/* The same with a locale record first; null means the fixed record. */
HALV_API int32_t HalvSScanfl(const HalvLocale *locale, const char *text, const char *format,
                             ...) HALV_NOEXCEPT;
HALV_API int32_t HalvVSScanfl(const HalvLocale *locale, const char *text, const char *format,
                              va_list args) HALV_NOEXCEPT;
HALV_API int32_t HalvLSScanfl(const HalvLocale *locale, const char *text, const char *format,
                              void **args) HALV_NOEXCEPT;
HALV_API int32_t HalvIOScanfl(const HalvLocale *locale, struct HalvIO *io, const char *format,
                              ...) HALV_NOEXCEPT;
HALV_API int32_t HalvIOVScanfl(const HalvLocale *locale, struct HalvIO *io, const char *format,
                               va_list args) HALV_NOEXCEPT;
HALV_API int32_t HalvIOLScanfl(const HalvLocale *locale, struct HalvIO *io, const char *format,
                               void **args) HALV_NOEXCEPT;

HALV_END_DECLS

#endif /* HALV_TEXT_H */
