/*
 * text/locale_platform.cpp - reads the number punctuation of the process's
 * locale without touching the global locale.
 *
 * The name comes from the environment as the C library would pick it for
 * numbers (LC_ALL, then LC_NUMERIC, then LANG, else "C").  A locale object
 * of that name answers through nl_langinfo_l; its character set comes along
 * with it, so texts in another encoding are converted to UTF-8.
 */
#include <cstdlib>
#include <cstring>
#include <iconv.h>
#include <langinfo.h>
#include <locale.h>

#include "halv_core.h"
#include "text/locale_internal.h"

namespace halv {

const char *LocaleNameOf(const char *category) noexcept {
    /* The C library's order: LC_ALL, then the category, then LANG. */
    const char *variables[] = {"LC_ALL", category, "LANG"};
    for (const char *variable : variables) {
        const char *value = std::getenv(variable);
        if (value != nullptr && value[0] != '\0')
            return value;
    }
    return "C";
}

namespace {

/* A locale text as UTF-8; null for an empty text or a failure. */
char *Utf8Field(const char *text, const char *codeSet) noexcept {
    if (text == nullptr || text[0] == '\0')
        return nullptr;
    if (!NeedsConversion(text, codeSet))
        return CopyString(text);
    return ConvertToUtf8(text, codeSet);
}

/* The C library's grouping bytes in the ';' spelling: "\3" is "3;0",
 * "\3\2" is "3;2;0", and a CHAR_MAX (or any value out of range) ends the
 * groups without repeating the last: "\3\x7f" is "3". */
char *GroupingField(const char *groups) noexcept {
    if (groups == nullptr || groups[0] == '\0')
        return nullptr;
    char text[64 * 4 + 3];
    size_t used = 0;
    bool repeats = true;
    for (const char *g = groups; *g != '\0' && used < sizeof text - 8; ++g) {
        const int size = static_cast<signed char>(*g);
        if (size <= 0 || size >= 127) {
            repeats = false;
            break;
        }
        if (used > 0)
            text[used++] = ';';
        if (size >= 100)
            text[used++] = static_cast<char>('0' + size / 100);
        if (size >= 10)
            text[used++] = static_cast<char>('0' + size / 10 % 10);
        text[used++] = static_cast<char>('0' + size % 10);
    }
    if (used == 0)
        return nullptr;
    if (repeats) {
        text[used++] = ';';
        text[used++] = '0';
    }
    text[used] = '\0';
    return CopyString(text);
}

} // namespace

namespace {

bool IsAscii(const char *text) noexcept {
    for (; *text != '\0'; ++text)
        if (static_cast<unsigned char>(*text) >= 0x80)
            return false;
    return true;
}

bool IsUtf8CodeSet(const char *codeSet) noexcept {
    return std::strcmp(codeSet, "UTF-8") == 0 || std::strcmp(codeSet, "utf8") == 0;
}

} // namespace

bool NeedsConversion(const char *text, const char *codeSet) noexcept {
    return !IsAscii(text) && !IsUtf8CodeSet(codeSet);
}

char *ConvertToUtf8(const char *text, const char *codeSet) noexcept {
    iconv_t converter = iconv_open("UTF-8", codeSet);
    if (converter == reinterpret_cast<iconv_t>(-1))
        return nullptr;
    size_t inLeft = std::strlen(text);
    const size_t capacity = inLeft * 4 + 1; /* no byte grows beyond 4 */
    auto *result = static_cast<char *>(halv_internal_malloc(capacity));
    if (result != nullptr) {
        char *in = const_cast<char *>(text);
        char *out = result;
        size_t outLeft = capacity - 1;
        if (iconv(converter, &in, &inLeft, &out, &outLeft) == static_cast<size_t>(-1)) {
            halv_internal_free(result);
            result = nullptr;
        } else {
            *out = '\0';
        }
    }
    iconv_close(converter);
    return result;
}

char *CopyString(const char *text) noexcept {
    const size_t length = std::strlen(text);
    auto *copy = static_cast<char *>(halv_internal_malloc(length + 1));
    if (copy != nullptr)
        std::memcpy(copy, text, length + 1);
    return copy;
}

PlatformPunctuation ReadPlatformPunctuation() noexcept {
    PlatformPunctuation result{nullptr, nullptr, nullptr};
    locale_t locale = newlocale(LC_NUMERIC_MASK | LC_CTYPE_MASK, LocaleNameOf("LC_NUMERIC"), static_cast<locale_t>(0));
    if (locale == static_cast<locale_t>(0))
        return result;
    const char *codeSet = nl_langinfo_l(CODESET, locale);
    result.decimalPoint = Utf8Field(nl_langinfo_l(RADIXCHAR, locale), codeSet);
    result.thousandSeparator = Utf8Field(nl_langinfo_l(THOUSEP, locale), codeSet);
    result.grouping = GroupingField(nl_langinfo_l(GROUPING, locale));
    freelocale(locale);
    return result;
}

} // namespace halv
