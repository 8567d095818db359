/*
 * text/locale_internal.h - the fixed locale record, and what the user's
 * record needs from the platform.
 */
#ifndef HALV_TEXT_LOCALE_INTERNAL_H
#define HALV_TEXT_LOCALE_INTERNAL_H

#include "halv_text.h"

namespace halv {

/* The fixed record that HalvGetHalvernLocale() gives: ".", "," and "".  The
 * engines use it directly for a call without a record of its own. */
extern const HalvLocale kHalvernLocale;

/* The number punctuation of the process's locale, as new UTF-8 strings from
 * halv_internal_malloc.  A field is null where the platform has no answer
 * (no such locale, an empty text, a failed conversion, no memory); the
 * caller puts its fallback there.  grouping is spelled as sizes joined by
 * ';', with ";0" when the last size repeats. */
struct PlatformPunctuation {
    char *decimalPoint;
    char *thousandSeparator;
    char *grouping;
};

PlatformPunctuation ReadPlatformPunctuation() noexcept;

/* A copy from halv_internal_malloc, or null. */
char *CopyString(const char *text) noexcept;

} // namespace halv

#endif
