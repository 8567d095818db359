/*
 * The scan engine over strings: every directive, its qualifiers, sets,
 * widths, early ends and the results of malformed formats; and over
 * streams: what a scan takes from a stream and what it leaves there, read
 * failures, and the look-alike end byte 0xFF.
 */
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <string>

#include "dpk_hvsup.h"

namespace {

/* One scan of text by format into a value of type T and an int behind it
 * (for a %n or a second field; formats with one directive leave it alone):
 * the result, and both values as the scan left them. */
template <class T> struct Row {
    const char *text;
    const char *format;
    int32_t result;
    T value;
    int second = -1;
};

template <class T, size_t N> void ExpectRows(const Row<T> (&rows)[N], T start, const HalvLocale *locale = nullptr) {
    for (const Row<T> &row : rows) {
        SCOPED_TRACE(std::string("\"") + row.text + "\" with " + row.format);
        T value = start;
        int second = -1;
        EXPECT_EQ(locale != nullptr ? HalvSScanfl(locale, row.text, row.format, &value, &second)
                                    : HalvSScanf(row.text, row.format, &value, &second),
                  row.result);
        EXPECT_EQ(value, row.value);
        EXPECT_EQ(second, row.second);
    }
}

/* The same for text fields into two buffers. */
struct TextRow {
    const char *text;
    const char *format;
    int32_t result;
    const char *first;
    const char *second = "";
};

template <size_t N> void ExpectTexts(const TextRow (&rows)[N]) {
    for (const TextRow &row : rows) {
        SCOPED_TRACE(std::string("\"") + row.text + "\" with " + row.format);
        char a[16] = "", b[16] = "";
        std::strcpy(a, "junk");
        EXPECT_EQ(HalvSScanf(row.text, row.format, a, b), row.result);
        EXPECT_STREQ(a, row.first);
        EXPECT_STREQ(b, row.second);
    }
}

TEST(TextScan, SignedIntegers) {
    const Row<int> rows[] = {
        {"  -42 +17", "%d%d", 2, -42, 17},
        {"-123", "%2d%d", 2, -12, 3}, /* the sign is outside an integer's width */
        {"-x", "%d", 0, 0},           /* a sign with no digit behind it fails */
        {"-2147483648", "%d", 1, INT32_MIN},
        {"4294967297", "%d", 1, 1}, /* wraps without a word */
        /* %i has no prefix detection: 010 is ten, 0x1f stops at the x. */
        {"010", "%i", 1, 10}, {"0x1f", "%i%n", 1, 0, 1},
    };
    ExpectRows(rows, 0);
}

TEST(TextScan, UnsignedAndBases) {
    const Row<unsigned> rows[] = {
        {"-5", "%u", 0, 5}, {"+5", "%u", 0, 5}, {"4294967295", "%u", 1, 4294967295u},
        {"777 8", "%o %o", 1, 0777u},
        {"0x1f", "%x%n", 1, 0, 1}, /* stopped at the x */
        {"0x1f", "%#x", 1, 31}, {"0X1F", "%#X", 1, 31}, {"DeadBeef", "%x", 1, 0xDEADBEEFu},
        /* '#' wants the leading 0. */
        {"1f", "%#x", 0, 5}, {"0", "%#x", 1, 0}, {"017", "%#o", 1, 017u},
        /* A base from the qualifier. */
        {"1011", "%..2i", 1, 11}, {"0b101", "%#..2u", 1, 5}, {"zz", "%..36u", 1, 35u * 36 + 35},
        {"1", "%..37i", HALV_SCAN_MALFORMED, 5},
    };
    ExpectRows(rows, 5u);
    /* ... or from an argument; %d is always decimal, but a base argument
     * is still taken. */
    int n = 0;
    unsigned u = 0;
    EXPECT_EQ(HalvSScanf("-ff", "%..*i", 16, &n), 1);
    EXPECT_EQ(n, -255);
    EXPECT_EQ(HalvSScanf("19 7", "%..*d %d", 16, &n, &u), 2);
    EXPECT_EQ(n, 19);
    EXPECT_EQ(u, 7u);
}

TEST(TextScan, IntegerStoreSizes) {
    struct {
        const char *format;
        size_t bytes;
    } const cases[] = {
        {"%d", 4},   {"%hd", 2},  {"%hhd", 2},  {"%ld", 8},   {"%lld", 8}, {"%jd", 8},
        {"%zd", 8},  {"%td", 8},  {"%I8d", 4},  {"%I16d", 4}, {"%I32d", 4}, {"%I64d", 8},
        {"%Ld", 4},  {"%hn", 2},  {"%lln", 8},  {"%n", 4},
        /* An I size decides over any size behind it. */
        {"%I32hd", 4}, {"%I64hd", 8}, {"%I16lld", 4}, {"%I8hn", 4},
    };
    for (const auto &c : cases) {
        unsigned char buffer[16];
        memset(buffer, 0xAA, sizeof buffer);
        const bool isCount = strchr(c.format, 'n') != nullptr;
        EXPECT_EQ(HalvSScanf(isCount ? "" : "-1", c.format, buffer), isCount ? 0 : 1) << c.format;
        size_t written = 0;
        while (written < sizeof buffer && buffer[written] != 0xAA)
            ++written;
        EXPECT_EQ(written, c.bytes) << c.format;
    }
    int64_t big = 0;
    EXPECT_EQ(HalvSScanf("-9223372036854775808", "%lld", &big), 1);
    EXPECT_EQ(big, INT64_MIN);
    short s = 0;
    EXPECT_EQ(HalvSScanf("70000", "%hd", &s), 1);
    EXPECT_EQ(s, (short)4464);
}

TEST(TextScan, Floats) {
    const Row<double> rows[] = {
        {"1.5e3", "%f", 1, 1500.0}, {"-123", "%3f", 1, -12.0}, {"  +0.25", "%lf", 1, 0.25},
        {"12.5E-1", "%e", 1, 1.25}, {"7.", "%g", 1, 7.0}, {".5", "%G", 1, 0.5},
        /* Hexadecimal text, exact; p only behind a point. */
        {"0x1.8p3", "%a", 1, 12.0}, {"0xff", "%A", 1, 255.0}, {"-0x.01p-4", "%f", 1, -std::ldexp(1.0, -12)},
        /* Words. */
        {"inf", "%f", 1, HUGE_VAL}, {"-INFINITE", "%f", 1, -HUGE_VAL}, {"infinite", "%3f", 1, HUGE_VAL},
        {"-nan", "%f", 0, 3}, {"infinity", "%f", 0, 3}, {"info", "%f", 0, 3},
        /* Nothing behind the sign fails. */
        {"-", "%f", 0, 3}, {"e5", "%f", 0, 3},
    };
    ExpectRows(rows, 3.0);
    /* Suppressed: read, nothing stored, not counted. */
    int n = 0;
    EXPECT_EQ(HalvSScanf("2.5 x", "%*f%n", &n), 0);
    EXPECT_EQ(n, 3);
    double d = 0;
    EXPECT_EQ(HalvSScanf("NaN", "%f", &d), 1);
    EXPECT_TRUE(std::isnan(d));
    /* No point, no exponent: "e3" stays. */
    char rest[8] = "";
    EXPECT_EQ(HalvSScanf("1e3", "%f%s", &d, rest), 2);
    EXPECT_EQ(d, 1.0);
    EXPECT_STREQ(rest, "e3");
    /* All float conversions store a double, with or without l or L. */
    double slots[3] = {0, 0, 0};
    EXPECT_EQ(HalvSScanf("1.5 2.5 3.5", "%hf %Lf %lf", &slots[0], &slots[1], &slots[2]), 3);
    EXPECT_EQ(slots[0], 1.5);
    EXPECT_EQ(slots[1], 2.5);
    EXPECT_EQ(slots[2], 3.5);
}

/* A float, then the text or integer behind it. */
struct FloatThen {
    const char *text;
    const char *format;
    double value;
    const char *rest;
};

TEST(TextScan, FloatWidthCountsTheSignAndTheDigits) {
    const FloatThen rows[] = {
        /* Sign and digits count; the exponent's letter and sign do not. */
        {"-1.25e+2", "%4f%s", -1.25, "e+2"}, /* the width ended before the exponent */
        {"-1.25e+2x", "%5f%s", -125.0, "x"},
        {"1.25e-12", "%4f%s", 1.25e-1, "2"}, /* one exponent digit was left */
        /* A used-up width ends the field before the point. */
        {"7.5", "%1f%s", 7.0, ".5"},
    };
    for (const FloatThen &row : rows) {
        double d = 0;
        char rest[16] = "";
        EXPECT_EQ(HalvSScanf(row.text, row.format, &d, rest), 2) << row.text;
        EXPECT_DOUBLE_EQ(d, row.value) << row.text;
        EXPECT_STREQ(rest, row.rest) << row.text;
    }
    /* The point uses no width: three digits, then the integer behind; nor
     * does a locale's point of several bytes, nor the 0x of hexadecimal. */
    const HalvLocale arabic = {"\xd9\xab", ",", ""};
    const Row<double> points[] = {{"1.2345", "%3f%d", 2, 1.23, 45}, {"0x1.8p1", "%4f", 1, 3.0}};
    ExpectRows(points, 0.0);
    const Row<double> arabicRows[] = {{"12\xd9\xab" "75", "%3f%d", 2, 12.7, 5}};
    ExpectRows(arabicRows, 0.0, &arabic);
}

TEST(TextScan, FloatFieldStaysWithin511CollectedBytes) {
    /* "0." and 600 digits: 511 bytes are collected, point included. */
    const std::string longText = "0." + std::string(600, '1');
    /* Marks count against the 511 bytes too: the point as the 511th byte
     * ends the field, and so do an exponent's letter and sign. */
    const std::string pointLast = std::string(509, '0') + "1.25";
    const std::string exponentLast = std::string(506, '0') + "1.5e+1";
    /* A width of its own: the marks don't use it, the 511 bytes still hold. */
    const std::string signedText = "-" + std::string(300, '4') + "." + std::string(300, '5');
    struct {
        const std::string &text;
        const char *format;
        int consumed;
        double value;
    } const rows[] = {
        {longText, "%f%n", 511, 1.0 / 9},      {longText, "%9999f%n", 511, 1.0 / 9},
        {longText, "%511f%n", 511, 1.0 / 9},   {pointLast, "%f%n", 511, 1.0},
        {exponentLast, "%f%n", 511, 1.5}, /* the exponent's digit found no room */
        {signedText, "%600f%n", 511, -4e300 / 9}, {signedText, "%400f%n", 401, -4e300 / 9},
    };
    for (const auto &row : rows) {
        double d = 0;
        int n = 0;
        EXPECT_EQ(HalvSScanf(row.text.c_str(), row.format, &d, &n), 1) << row.format;
        EXPECT_EQ(n, row.consumed) << row.format; /* for 401: the sign, 399 digits and the point */
        EXPECT_NEAR(d / row.value, 1.0, 1e-12) << row.format;
    }
}

TEST(TextScan, LocaleDecimalPoint) {
    /* A point of several bytes; a partial match eats what it matched; bytes
     * above 127 compare as unsigned bytes; integers ignore the locale. */
    const HalvLocale comma = {",", ".", "3;0"}, arrow = {"->", ",", ""}, middot = {"\xC2\xB7", ",", ""};
    struct {
        const HalvLocale *locale;
        const char *text;
        const char *format;
        int32_t result;
        double value;
        const char *rest;
    } const rows[] = {
        {&comma, "1,5", "%f%s", 1, 1.5, ""}, {&comma, "1.5", "%f%s", 2, 1.0, ".5"},
        {&arrow, "3->25e1", "%f%s", 1, 32.5, ""}, {&arrow, "3-25", "%f%s", 2, 3.0, "25"},
        {&middot, "2\xC2\xB7" "5", "%f%s", 1, 2.5, ""},
        /* The fixed record has "."; a null record means it. */
        {nullptr, "2.5", "%f%s", 1, 2.5, ""}, {nullptr, "2,5", "%f%s", 2, 2.0, ",5"},
    };
    for (const auto &row : rows) {
        double d = 0;
        char rest[8] = "";
        EXPECT_EQ(HalvSScanfl(row.locale, row.text, row.format, &d, rest), row.result) << row.text;
        EXPECT_EQ(d, row.value) << row.text;
        EXPECT_STREQ(rest, row.rest) << row.text;
    }
    int i = 0;
    EXPECT_EQ(HalvSScanfl(&comma, "1,5", "%d", &i), 1);
    EXPECT_EQ(i, 1);
}

TEST(TextScan, Characters) {
    /* %c doesn't skip white space and stores no terminator; under '#' one
     * escape is one byte of the width, without it a backslash is a byte;
     * a failed escape number ends the field. */
    struct {
        const char *text;
        const char *format;
        size_t stored;
        const char *bytes;
        int consumed;
    } const rows[] = {
        {" x", "%c%n", 2, " #", 1}, {"ab", "%3c%n", 3, "ab#", 2},
        {"\\n\\x41\\101\\\\\\q", "%#5c%n", 6, "\nAA\\q#", 14},
        {"\\t\\a\\b\\f\\r\\v", "%#6c%n", 6, "\t\a\b\f\r\v", 12}, {"\\n", "%2c%n", 2, "\\n", 2},
        {"a\\xg", "%#3c%n", 2, "a#", 3},
    };
    for (const auto &row : rows) {
        char buffer[8];
        memset(buffer, '#', sizeof buffer);
        int n = 0;
        EXPECT_EQ(HalvSScanf(row.text, row.format, buffer, &n), 1) << row.format;
        EXPECT_EQ(std::string(buffer, row.stored), std::string(row.bytes, row.stored)) << row.format;
        EXPECT_EQ(n, row.consumed) << row.format;
    }
    char buffer[8];
    EXPECT_EQ(HalvSScanf("abcdef", "%2c%c", buffer, buffer + 2), 2);
    EXPECT_EQ(std::string(buffer, 3), "abc");
}

TEST(TextScan, StringsAndCharacterSets) {
    const TextRow rows[] = {
        {"  hello world", "%s%s", 2, "hello", "world"},
        {"   ", "%s", 1, ""}, /* white space only: an empty string, and it counts */
        {"abcdef", "%3s%s", 2, "abc", "def"}, {"a\\ b\\tc d", "%#s", 1, "a b\tc"},
        {"abcdef", "%0s", 1, "abcdef"}, /* a width of 0 is no width */
        {"xy", "%ls", 1, "xy"},         /* l before s has no effect */
        {"abcd", "%[a-c]%s", 2, "abc", "d"}, {"x,y", "%[^,],%s", 2, "x", "y"}, {"]x]y", "%[]x]", 1, "]x]"},
        {"a-a-b", "%[a-]", 1, "a-a-"}, {"-a-", "%[-a]", 1, "-a-"},
        {"abc", "%[c-a]", HALV_SCAN_BAD_RANGE, "junk"},
        {"abcdef", "%[a-c-e]", 1, "abcde"}, /* ranges chain */
        {"abcdef", "%[a-e-c]", HALV_SCAN_BAD_RANGE, "junk"},
        {"abc", "%[a-", HALV_SCAN_MALFORMED, "junk"}, /* a range cut off by the format's end */
        {"abcx", "%[abc", 1, "abc"},                   /* the format's end ends an open set */
        {"[a]b]c", "%[[a]b]%s", 2, "[a]b]", "c"},      /* a '[' inside needs its own ']' */
        /* No white-space skip, empty match counts, width bounds. */
        {" abc", "%[a-z]", 1, ""}, {"abcabc", "%2[a-z]%[a-z]", 2, "ab", "cabc"},
        {"line one\nline two", "%[^\n]", 1, "line one"},
        /* Negated set over high bytes. */
        {"\xC3\xA9t\xC3\xA9!", "%[^!]", 1, "\xC3\xA9t\xC3\xA9"},
        {"\x80\xFF" "a", "%[\x80-\xFF]", 1, "\x80\xFF"},
        /* A lone leading ']' with the format ending behind it is the whole
         * set; "]-" both lead, and the ']' behind them closes. */
        {"]]x", "%[]", 1, "]]"}, {"-]-x", "%[]-]%s", 2, "-]-", "x"},
    };
    ExpectTexts(rows);
    /* The set's range error is met when the scan gets there. */
    char a[16];
    int v = 0;
    EXPECT_EQ(HalvSScanf("5 x", "%d %[z-a]", &v, a), HALV_SCAN_BAD_RANGE);
    EXPECT_EQ(v, 5);
    /* A '*' base on a set still takes its argument, and means nothing. */
    EXPECT_EQ(HalvSScanf("ab 7", "%..*[ab] %d", 99, a, &v), 2);
    EXPECT_STREQ(a, "ab");
    EXPECT_EQ(v, 7);
}

TEST(TextScan, Pointers) {
    /* 18 characters at most. */
    const Row<void *> rows[] = {
        {"0x7ffe12345678", "%p%n", 1, (void *)0x7ffe12345678ull, 14},
        {"0xffffffffffffffff", "%p", 1, (void *)UINTPTR_MAX},
        {"0x1234567890abcdef12", "%p%n", 1, (void *)0x1234567890abcdefull, 18}, {"  (nil)", "%p", 1, nullptr},
        {"(nul)", "%p", 0, (void *)1}, {"(ni", "%p", 0, (void *)1}, {"1234", "%p", 0, (void *)1},
    };
    ExpectRows(rows, (void *)1);
}

TEST(TextScan, EmptyInputsCountLiteralsWhiteSpaceAndSuppression) {
    const Row<int> rows[] = {
        {"", "%d", HALV_SCAN_END, -7}, {"abc", "%d", 0, -7}, {"anything", "", 0, -7}, {"", "", 0, -7},
        {"", "abc", HALV_SCAN_END, -7}, {"12", "%d %d", 1, 12},
        {"   ", "%d", 0, -7}, /* white space only: a failed field, not an early end */
        {"12 ", "%d%n", 1, 12, 2}, {"12", "%d%n", 1, 12, 2},
        {"", "%n", 0, 0}, /* %n runs even when the input has ended */
        {"7", "%d %n", 1, 7, 1}, {"abd", "abc%d", 0, -7}, {"x", "%%", HALV_SCAN_MALFORMED, -7},
        {"%5", "%%%d", 1, 5},
        {" %5", "%%%d", HALV_SCAN_MALFORMED, -7}, /* %% doesn't skip white space */
        {"(1, 2)", "(%d,%d)", 2, 1, 2},
        /* Format white space matches any run, also none. */
        {"1\t\n\v\f\r 2", "%d %d", 2, 1, 2}, {"1:2", "%d \t: %d", 2, 1, 2},
        /* A literal mismatch after a field keeps the count. */
        {"3;4", "%d,%d", 1, 3},
        /* Early end: the count, or -1 before the first assignment. */
        {"8", "%d,%d", 1, 8}, {"ab", "ab%d", HALV_SCAN_END, -7},
        /* UTF-8 literals match byte for byte; a mismatch is malformed. */
        {"\xC3\xA9=9", "\xC3\xA9=%d", 1, 9}, {"\xC3\xA8=9", "\xC3\xA9=%d", HALV_SCAN_MALFORMED, -7},
        {"", "\xE2\x82\xAC", HALV_SCAN_MALFORMED, -7},
        /* A byte that starts no sequence is a plain literal. */
        {"\xFF" "4", "\xFF%d", 1, 4}, {"x4", "\xFF%d", 0, -7},
        {"\xC0\x80" "6", "\xC0\x80%d", 1, 6}, /* overlong */
        /* Suppressed fields; everything suppressed, then the input ends. */
        {"1 2", "%*d %d", 1, 2}, {"ab cd 3", "%*s %*[a-z] %*c%d", HALV_SCAN_END, -7},
        {"ab cd 3", "%*s %*[a-z] %d", 1, 3}, {"ab", "%*2c%n", 0, 2},
        /* Qualifiers in any order, repeated; a later width wins. */
        {"12345", "%-+ #04 3d", 1, 123}, {"12345", "%.7.10I32hd", 1, 12345},
    };
    ExpectRows(rows, -7);
    int a = 77;
    EXPECT_EQ(HalvSScanf(nullptr, "%d", &a), HALV_SCAN_END);
    EXPECT_EQ(HalvSScanf("1", nullptr), HALV_SCAN_MALFORMED);
    EXPECT_EQ(a, 77);
    /* A null pointer is passed over. */
    EXPECT_EQ(HalvSScanf("5", "%n%d", nullptr, &a), 1);
    EXPECT_EQ(a, 5);
    int64_t wide = -1;
    EXPECT_EQ(HalvSScanf("abc", "abc%lln", &wide), 0);
    EXPECT_EQ(wide, 3);
    char text[8];
    EXPECT_EQ(HalvSScanf("(nil) x", "%*p %s", text), 1);
    EXPECT_STREQ(text, "x");
}

TEST(TextScan, MalformedFormats) {
    const char *bad[] = {
        "%y", "%b", "%D", "%S", "%C", "%", "%5", "%hhhd", "%llld", "%...i", "%1$d",
        "%'d", "%^d", "%lI32d", "%I32I32d", "%I7d", "%I016d", "%Id", "%I128d", "%\xC3\xA9",
        "%..1i", "%..0u", "%[a]%..40[b]",
    };
    for (const char *format : bad) {
        int a = 99;
        EXPECT_EQ(HalvSScanf("123", format, &a, &a), HALV_SCAN_MALFORMED) << format;
        EXPECT_EQ(a, 99) << format;
    }
}

TEST(TextScan, ArgumentLimit) {
    std::string format;
    for (int i = 0; i < 64; ++i)
        format += "%d";
    int values[65] = {};
    void *slots[65];
    std::string text;
    for (int i = 0; i < 65; ++i) {
        slots[i] = &values[i];
        text += std::to_string(i) + " ";
    }
    EXPECT_EQ(HalvLSScanf(text.c_str(), format.c_str(), slots), 64);
    EXPECT_EQ(values[63], 63);
    /* The limit comes before the directive is read, a '*' directive takes
     * an entry too, and so does a `*` base entry that pushes past it. */
    for (const std::string &over : {format + "%d", format + "%y", format + "%*d", format.substr(2) + "%..*i"})
        EXPECT_EQ(HalvLSScanf(text.c_str(), over.c_str(), slots), HALV_SCAN_TOO_MANY) << over.substr(126);
}

int32_t CallVl(const HalvLocale *locale, const char *text, const char *format, ...) {
    va_list args;
    va_start(args, format);
    int32_t result = locale != nullptr ? HalvVSScanfl(locale, text, format, args) : HalvVSScanf(text, format, args);
    va_end(args);
    return result;
}

TEST(TextScan, ArrayAndListForms) {
    int a = 0, b = 0;
    double d = 0;
    char s[8] = "";
    int base = 16;
    void *args[] = {&a, &d, s};
    EXPECT_EQ(HalvLSScanf("7 2.5 hi", "%d %f %s", args), 3);
    EXPECT_EQ(a, 7);
    EXPECT_EQ(d, 2.5);
    EXPECT_STREQ(s, "hi");
    /* A suppressed field takes no entry; a base argument points to an int. */
    void *withBase[] = {&base, &a};
    EXPECT_EQ(HalvLSScanf("9 ff", "%*d %..*i", withBase), 1);
    EXPECT_EQ(a, 255);
    const HalvLocale comma = {",", ".", ""};
    void *one[] = {&d};
    EXPECT_EQ(HalvLSScanfl(&comma, "0,5", "%f", one), 1);
    EXPECT_EQ(d, 0.5);
    EXPECT_EQ(CallVl(nullptr, "3 4", "%d %d", &a, &b), 2);
    EXPECT_EQ(a + b, 7);
    /* A `*` precision takes an int and means nothing; a `*` base takes one
     * and is used. */
    EXPECT_EQ(CallVl(nullptr, "12 z", "%.*d %..*i", 5, &a, 36, &b), 2);
    EXPECT_EQ(a, 12);
    EXPECT_EQ(b, 35);
    EXPECT_EQ(CallVl(&comma, "4,5", "%f", &d), 1);
    EXPECT_EQ(d, 4.5);
}

/* A stream over a fixed byte string, built by filling the record's slots.
 * It gives stopResult (-1 failure, -2 would block) at offset stopAt, and
 * counts reads. */
struct ByteStream {
    HalvIO io{};
    std::string data;
    size_t stopAt = std::string::npos;
    int32_t stopResult = -1;
    size_t position = 0;
    int reads = 0;
    int widerReads = 0; /* reads that asked for more than one byte */

    ByteStream(const std::string &bytes, size_t stop = std::string::npos, int32_t result = -1)
        : data(bytes), stopAt(stop), stopResult(result) {
        io.read = Read;
    }
    std::string Rest() const { return data.substr(position); }

    static int32_t Read(HalvIO *io, void *buffer, uint32_t count) {
        ByteStream *s = reinterpret_cast<ByteStream *>(io);
        ++s->reads;
        s->widerReads += count != 1;
        if (s->position == s->stopAt)
            return s->stopResult;
        if (count == 0 || s->position >= s->data.size())
            return 0;
        static_cast<unsigned char *>(buffer)[0] = static_cast<unsigned char>(s->data[s->position++]);
        return 1;
    }
};

TEST(TextScanStream, WhatAScanTakesAndLeaves) {
    int a = 0, b = 0;
    ByteStream s("12 34");
    EXPECT_EQ(HalvIOScanf(&s.io, "%d", &a), 1);
    EXPECT_EQ(a, 12);
    EXPECT_EQ(s.Rest(), "34"); /* the look-ahead is consumed */
    EXPECT_EQ(s.widerReads, 0);
    EXPECT_EQ(s.reads, 3);
    /* Two scans in a row lose the byte between them. */
    ByteStream t("123456");
    EXPECT_EQ(HalvIOScanf(&t.io, "%2d", &a), 1);
    EXPECT_EQ(HalvIOScanf(&t.io, "%2d", &b), 1);
    EXPECT_EQ(a * 100 + b, 1245);
    EXPECT_EQ(t.Rest(), "");

    double d = 0;
    ByteStream e("1e5;");
    EXPECT_EQ(HalvIOScanf(&e.io, "%f", &d), 1);
    EXPECT_EQ(d, 1.0);
    EXPECT_EQ(e.Rest(), "5;"); /* no point, no exponent; the e was the look-ahead, and is gone */
    ByteStream f("1.5e2;");
    EXPECT_EQ(HalvIOScanf(&f.io, "%f", &d), 1);
    EXPECT_EQ(d, 150.0);
    EXPECT_EQ(f.Rest(), "");
    /* A partial locale point keeps what it consumed. */
    const HalvLocale arrow = {"->", ",", ""};
    ByteStream u("7-x9");
    EXPECT_EQ(HalvIOScanfl(&arrow, &u.io, "%f", &d), 1);
    EXPECT_EQ(d, 7.0);
    EXPECT_EQ(u.Rest(), "9");

    ByteStream v("abc");
    EXPECT_EQ(HalvIOScanf(&v.io, ""), 0);
    EXPECT_EQ(v.Rest(), "bc"); /* the look-ahead is read even for nothing */
    EXPECT_EQ(HalvIOScanf(&v.io, "%y", &a), HALV_SCAN_MALFORMED);
    EXPECT_EQ(v.Rest(), "bc"); /* a format that fails to parse reads nothing */
    EXPECT_EQ(HalvIOScanf(&v.io, "%c", (char *)&a), 1);
    EXPECT_EQ((char)a, 'b');
    EXPECT_EQ(v.Rest(), ""); /* the byte behind %c was the next look-ahead */
}

TEST(TextScanStream, FailuresEndsAndZeroBytes) {
    int a = 0, b = 0;
    ByteStream s("12 34", 4);
    EXPECT_EQ(HalvIOScanf(&s.io, "%d %d", &a, &b), HALV_SCAN_STREAM_FAILED);
    EXPECT_EQ(a, 12); /* stored before the failure, and stays */
    EXPECT_EQ(b, 3);  /* the field ended at the failure */
    ByteStream first("12", 0);
    EXPECT_EQ(HalvIOScanf(&first.io, ""), HALV_SCAN_STREAM_FAILED);
    EXPECT_EQ(first.reads, 1);
    /* Would-block is no failure: the input just ends there, and nothing is
     * read again once it has ended. */
    ByteStream blocked("12 34", 3, -2);
    EXPECT_EQ(HalvIOScanf(&blocked.io, "%d %d", &a, &b), 1);
    ByteStream blockedFirst("9", 0, -2);
    EXPECT_EQ(HalvIOScanf(&blockedFirst.io, "%d", &a), HALV_SCAN_END);
    EXPECT_EQ(blockedFirst.reads, 1);

    ByteStream end(std::string("12\xFF" "34", 5));
    EXPECT_EQ(HalvIOScanf(&end.io, "%d%d", &a, &b), 1);
    EXPECT_EQ(a, 12);
    EXPECT_EQ(end.Rest(), "34");
    /* A zero byte is an ordinary byte on a stream. */
    char text[8];
    memset(text, '#', sizeof text);
    ByteStream z(std::string("a\0b c", 5));
    EXPECT_EQ(HalvIOScanf(&z.io, "%s", text), 1);
    EXPECT_EQ(std::string(text, 4), std::string("a\0b\0", 4));
    ByteStream zc(std::string("\0", 1));
    EXPECT_EQ(HalvIOScanf(&zc.io, "%c", text), 1);
    EXPECT_EQ(text[0], '\0');
    /* The end of the stream ends the input: count, then -1. */
    ByteStream e("5");
    EXPECT_EQ(HalvIOScanf(&e.io, "%d,%d", &a, &b), 1);
    ByteStream empty("");
    EXPECT_EQ(HalvIOScanf(&empty.io, "%d", &a), HALV_SCAN_END);
    EXPECT_EQ(empty.reads, 1);
    /* A null stream, or one without a read slot, has ended. */
    EXPECT_EQ(HalvIOScanf(nullptr, "%d", &a), HALV_SCAN_END);
    EXPECT_EQ(HalvIOScanf(nullptr, ""), 0);
    ByteStream noRead("1");
    noRead.io.read = nullptr;
    EXPECT_EQ(HalvIOScanf(&noRead.io, "%d", &a), HALV_SCAN_END);
}

int32_t CallIOV(const HalvLocale *locale, HalvIO *io, const char *format, ...) {
    va_list args;
    va_start(args, format);
    const int32_t result =
        locale != nullptr ? HalvIOVScanfl(locale, io, format, args) : HalvIOVScanf(io, format, args);
    va_end(args);
    return result;
}

TEST(TextScanStream, EveryStreamForm) {
    double d = 0;
    int a = 0;
    const HalvLocale comma = {",", ".", ""};
    ByteStream s1("5 6,5");
    EXPECT_EQ(CallIOV(nullptr, &s1.io, "%d", &a), 1);
    EXPECT_EQ(a, 5);
    EXPECT_EQ(CallIOV(&comma, &s1.io, "%lf", &d), 1);
    EXPECT_EQ(d, 6.5);
    ByteStream s2("8 1,5 9");
    void *args[] = {&a, &d}, *one[] = {&a};
    EXPECT_EQ(HalvIOLScanfl(&comma, &s2.io, "%d %f", args), 2);
    EXPECT_EQ(a, 8);
    EXPECT_EQ(d, 1.5);
    EXPECT_EQ(HalvIOLScanf(&s2.io, "%d", one), 1);
    EXPECT_EQ(a, 9);
}

} // namespace
