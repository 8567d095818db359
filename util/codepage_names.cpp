/*
 * util/codepage_names.cpp - code page names and numbers, and the names the
 * platform's converter (iconv) knows their character sets by.
 *
 * There is no system ANSI or OEM code page here: "ACP" is Windows-1252 and
 * "OEMCP" is code page 437.  Other numbers map through a table, or else to
 * "CP<n>", which the converter may or may not know.
 */
#include "halv_text.h"
#include "halv_util.h"
#include "util/codepage_internal.h"

namespace halv {
namespace {

struct NumberedSet {
    int first, last;  /* a range of code page numbers */
    const char *name; /* the set's name, or the part before its number */
    int numberBase;   /* -1: no number; else first..last give base.. */
};

constexpr NumberedSet kNumberedSets[] = {
    {0, 0, "CP1252", -1},  /* the ANSI code page */
    {1, 1, "CP437", -1},   /* the OEM code page */
    {2, 2, "MACINTOSH", -1},
    {3, 3, "CP1252", -1},  /* the thread's ANSI code page */
    {1200, 1200, "UTF-16LE", -1},
    {1201, 1201, "UTF-16BE", -1},
    {1361, 1361, "JOHAB", -1},
    {10000, 10000, "MACINTOSH", -1},
    {10007, 10007, "MAC-CYRILLIC", -1},
    {12000, 12000, "UTF-32LE", -1},
    {12001, 12001, "UTF-32BE", -1},
    {20127, 20127, "ASCII", -1},
    {20866, 20866, "KOI8-R", -1},
    {20932, 20932, "EUC-JP", -1},
    {21866, 21866, "KOI8-U", -1},
    {28591, 28599, "ISO-8859-", 1},
    {28603, 28603, "ISO-8859-13", -1},
    {28605, 28605, "ISO-8859-15", -1},
    {50220, 50220, "ISO-2022-JP", -1},
    {51932, 51932, "EUC-JP", -1},
    {51936, 51936, "EUC-CN", -1},
    {51949, 51949, "EUC-KR", -1},
    {54936, 54936, "GB18030", -1},
    {65000, 65000, "UTF-7", -1},
    {65001, 65001, "UTF-8", -1},
};

/* Writes prefix and, unless number is absent, its decimal digits. */
void WriteName(const char *prefix, bool withNumber, int number, char *name, size_t capacity) {
    size_t n = 0;
    for (; *prefix != '\0' && n + 1 < capacity; ++prefix)
        name[n++] = *prefix;
    if (withNumber) {
        char digits[12];
        int count = 0;
        long long value = number;
        bool negative = value < 0;
        value = negative ? -value : value;
        do {
            digits[count++] = (char)('0' + value % 10);
            value /= 10;
        } while (value != 0);
        if (negative && n + 1 < capacity)
            name[n++] = '-';
        while (count > 0 && n + 1 < capacity)
            name[n++] = digits[--count];
    }
    name[n] = '\0';
}

constexpr int kAnsiCodePage = 0;
constexpr int kOemCodePage = 1;

void NameNumber(int number, char *name, size_t capacity) {
    for (const NumberedSet &set : kNumberedSets) {
        if (number >= set.first && number <= set.last) {
            WriteName(set.name, set.numberBase >= 0, number - set.first + set.numberBase, name,
                      capacity);
            return;
        }
    }
    WriteName("CP", true, number, name, capacity);
}

} // namespace

CodePageKind ResolveCodePage(const char *codePage, char *name, size_t capacity) noexcept {
    if (codePage == nullptr || HalvStrCaseCmp(codePage, "utf8") == 0 ||
        HalvStrCaseCmp(codePage, "utf-8") == 0)
        return kCodePageCopy;
    int number = 0;
    if (HalvStrCaseCmp(codePage, "ACP") == 0) {
        number = kAnsiCodePage;
    } else if (HalvStrCaseCmp(codePage, "OEMCP") == 0) {
        number = kOemCodePage;
    } else if (HalvStrNCaseCmp(codePage, "CP", 2) == 0) {
        /* A number that doesn't scan is 0, the ANSI page. */
        if (HalvSScanf(codePage + 2, "%d", &number) != 1)
            number = kAnsiCodePage;
    } else {
        return kCodePageUnsupported;
    }
    NameNumber(number, name, capacity);
    return kCodePageConverter;
}

} // namespace halv
