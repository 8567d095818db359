/*
 * text/locale_internal.h - the fixed locale record, what the user's record
 * needs from the platform, and the conversion of locale texts to UTF-8
 * that the date names share.
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

/* The locale the process's environment names for category ("LC_TIME",
 * "LC_NUMERIC"): the first set of LC_ALL, the category and LANG, else "C". */
const char *LocaleNameOf(const char *category) noexcept;

/* A copy from halv_internal_malloc, or null. */
char *CopyString(const char *text) noexcept;

/* Whether a text of a locale whose data is in codeSet (as nl_langinfo
 * names it) must be converted to be UTF-8: it has bytes above 127 and the
 * set isn't UTF-8 already. */
bool NeedsConversion(const char *text, const char *codeSet) noexcept;

/* text in codeSet as a new UTF-8 string from halv_internal_malloc, or null
 * when the set is unknown, the text invalid in it, or memory runs out. */
char *ConvertToUtf8(const char *text, const char *codeSet) noexcept;

} // namespace halv

#endif
