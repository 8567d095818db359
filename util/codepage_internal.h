/*
 * util/codepage_internal.h - the two halves of code page conversion: what
 * a code page name means, and the run of text through the platform's
 * converter with replacement characters.
 */
#ifndef HALV_UTIL_CODEPAGE_INTERNAL_H
#define HALV_UTIL_CODEPAGE_INTERNAL_H

#include <stddef.h>

namespace halv {

/* What a code page name asks for. */
enum CodePageKind {
    kCodePageCopy,        /* null, "utf8", "utf-8": no conversion */
    kCodePageConverter,   /* a converter name was written */
    kCodePageUnsupported, /* anything else, or a number without converter */
};

/* Resolves a name ("ACP", "OEMCP", "CP<n>", ...) to the converter's name of
 * the character set, written into name (capacity bytes). */
CodePageKind ResolveCodePage(const char *codePage, char *name, size_t capacity) noexcept;

/* Bytes made by a conversion, from halv_internal_malloc, with four zero
 * bytes behind size so that any unit width reads a terminator. */
struct ConvertedText {
    char *data;
    size_t size;
};

/* Converts length bytes of input from one character set to another.  Where
 * the input can't be converted, skip bytes of it are passed over and a
 * replacement is put in: either replacementInput (bytes in the source set,
 * run through the converter so that shift states stay right) or
 * replacementOutput (bytes in the target set, appended as they are).
 * False when the converter can't be opened or memory runs out. */
struct Replacement {
    size_t skip;
    const char *input;
    size_t inputSize;
    const char *output;
    size_t outputSize;
};

bool ConvertCharacterSet(const char *to, const char *from, const char *input, size_t length,
                         const Replacement &replacement, ConvertedText *out) noexcept;

} // namespace halv

#endif
