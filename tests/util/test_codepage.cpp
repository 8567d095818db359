/*
 * Code pages: names, copies, round trips through real character sets, and
 * what becomes of text a code page can't hold or bytes it doesn't define.
 */
#include <gtest/gtest.h>

#include <string>

#include "util/support.h"

namespace {

using halvtest::Take;

std::string To(const char *text, const char *codePage, int32_t *sizeOut = nullptr) {
    int32_t size = -1;
    char *result = HalvUTF8ConvertTo(text, codePage, &size);
    if (sizeOut != nullptr)
        *sizeOut = size;
    return Take(result, result != nullptr ? size : -1);
}

std::string From(const char *text, const char *codePage, int32_t size = -1) {
    return Take(HalvUTF8ConvertFrom(text, size, codePage));
}

TEST(UtilCodePage, CopiesAndUnknownPages) {
    for (const char *name : {"utf-8", "UTF-8", "utf8", "Utf8"}) {
        int32_t size = -77;
        EXPECT_EQ(Take(HalvUTF8ConvertTo("caf\xC3\xA9", name, &size)), "caf\xC3\xA9") << name;
        EXPECT_EQ(size, -77) << name; /* a copy leaves size alone */
        EXPECT_EQ(From("caf\xC3\xA9", name), "caf\xC3\xA9") << name;
    }
    int32_t size = -77;
    EXPECT_EQ(Take(HalvUTF8ConvertTo("x", nullptr, &size)), "x");
    EXPECT_EQ(size, -77);
    /* A copy is a copy, valid UTF-8 or not, and takes the size given. */
    EXPECT_EQ(Take(HalvUTF8ConvertTo("\xFF\xFE", "utf8", nullptr)), "\xFF\xFE");
    EXPECT_EQ(From("abcdef", nullptr, 3), "abc");
    EXPECT_EQ(Take(HalvUTF8ConvertToFilename("d\xC3\xA9j\xC3\xA0")), "d\xC3\xA9j\xC3\xA0");
    EXPECT_EQ(Take(HalvUTF8ConvertFromFilename("plain")), "plain");
    EXPECT_EQ(HalvUTF8ConvertToFilename(nullptr), nullptr);
    EXPECT_EQ(HalvUTF8ConvertFromFilename(nullptr), nullptr);
    EXPECT_EQ(HalvUTF8ConvertTo(nullptr, "utf8", &size), nullptr);
    EXPECT_EQ(HalvUTF8ConvertFrom(nullptr, -1, "CP1252"), nullptr);
    for (const char *name : {"latin1", "", "UTF-16", "EBCDIC", "ANSI", "CP42", "CP720", "cp-5"}) {
        EXPECT_EQ(HalvUTF8ConvertTo("abc", name, &size), nullptr) << name;
        EXPECT_EQ(HalvUTF8ConvertFrom("abc", -1, name), nullptr) << name;
    }
    EXPECT_EQ(size, -77);
}

TEST(UtilCodePage, NamesAndNumbers) {
    /* ACP is Windows-1252, in any case, and so is a CP without a number. */
    for (const char *name : {"ACP", "acp", "CP1252", "cp1252", "CP0", "CP3", "CP", "CPnone", "CP 1252"}) {
        int32_t size = 0;
        EXPECT_EQ(To("caf\xC3\xA9 \xE2\x82\xAC", name, &size), "caf\xE9 \x80") << name;
        EXPECT_EQ(size, 6) << name;
    }
    /* OEMCP is code page 437, CP1 and CP2 the OEM and Mac Roman pages. */
    const struct {
        const char *page;
        const char *text;
        const char *bytes;
    } single[] = {
        {"OEMCP", "\xC3\xA9", "\x82"},      {"cp1", "\xC3\xA9", "\x82"},          {"CP2", "\xC3\xA9", "\x8E"},
        {"CP28595", "\xD0\x96", "\xB6"},    {"CP28599", "\xC4\x9E", "\xD0"},      {"CP28605", "\xE2\x82\xAC", "\xA4"},
        {"CP20866", "\xD0\x96", "\xF6"},    {"CP20127", "A", "A"},
    };
    for (const auto &c : single)
        EXPECT_EQ(To(c.text, c.page), c.bytes) << c.page;
    /* UTF-16 and UTF-32 pages, with the size in bytes. */
    int32_t size = 0;
    EXPECT_EQ(To("A\xE2\x82\xAC", "CP1200", &size), std::string("A\0\xAC\x20", 4));
    EXPECT_EQ(size, 4);
    EXPECT_EQ(To("A", "CP1201", &size), std::string("\0A", 2));
    EXPECT_EQ(To("A", "CP12000", &size), std::string("A\0\0\0", 4));
    EXPECT_EQ(To("A", "CP12001", &size), std::string("\0\0\0A", 4));
    EXPECT_EQ(size, 4);
    /* UTF-8 by number goes through the converter, and comes back the same. */
    EXPECT_EQ(To("\xF0\x9F\x98\x80", "CP65001"), "\xF0\x9F\x98\x80");
    EXPECT_EQ(To("+", "CP65000"), "+-");
}

TEST(UtilCodePage, RoundTrips) {
    struct {
        const char *page;
        const char *text;
    } const cases[] = {
        {"CP1251", "\xD0\x9F\xD1\x80\xD0\xB8\xD0\xB2\xD0\xB5\xD1\x82"},
        {"CP932", "\xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E"}, {"CP936", "\xE4\xB8\xAD\xE6\x96\x87"},
        {"CP949", "\xED\x95\x9C\xEA\xB5\xAD\xEC\x96\xB4"}, {"CP950", "\xE4\xB8\xAD\xE6\x96\x87"},
        {"CP54936", "emoji \xF0\x9F\x98\x80"}, {"CP51932", "\xE6\x97\xA5\xE6\x9C\xAC"},
        {"CP50220", "a\xE6\x97\xA5\xE6\x9C\xAC" "b"}, {"CP1253", "\xCE\xB1\xCE\xB2\xCE\xB3"},
        {"CP437", "\xE2\x94\x8C\xE2\x94\x80\xE2\x94\x90"},
    };
    for (const auto &c : cases) {
        int32_t size = -1;
        const std::string encoded = To(c.text, c.page, &size);
        EXPECT_NE(encoded, c.text) << c.page;
        EXPECT_EQ(From(encoded.c_str(), c.page, size), c.text) << c.page;
    }
}

TEST(UtilCodePage, TextATargetCannotHold) {
    int32_t size = 0;
    /* Each UTF-16 unit that doesn't map is one '?'; a pair is two units. */
    EXPECT_EQ(To("a\xE6\x97\xA5\xE6\x9C\xAC" "b", "CP1252", &size), "a??b");
    EXPECT_EQ(size, 4);
    EXPECT_EQ(To("\xF0\x9F\x98\x80", "CP1252"), "??");
    EXPECT_EQ(To("\xE2\x82\xAC", "CP28591"), "?");
    EXPECT_EQ(To("\xC3\xA9", "CP20127"), "?");
    /* In a page with shift states the '?' comes out in the right state. */
    EXPECT_EQ(From(To("\xE6\x97\xA5\xF0\x9F\x98\x80\xE6\x9C\xAC", "CP50220").c_str(), "CP50220"),
              "\xE6\x97\xA5??\xE6\x9C\xAC");
    /* A '?' in a UTF-16 target is a whole unit. */
    EXPECT_EQ(To("\xED\xA0\x80", "CP1200", &size), std::string("?\0", 2)); /* lone surrogate */
    /* Invalid UTF-8 can't be converted at all. */
    EXPECT_EQ(To("ab\xC3", "CP1252"), "<null>");
    EXPECT_EQ(To("\xC0\x80", "ACP"), "<null>");
    EXPECT_EQ(To("\xFF", "CP65001"), "<null>");
    /* The empty text converts to empty text. */
    EXPECT_EQ(To("", "CP1252", &size), "");
    EXPECT_EQ(size, 0);
}

TEST(UtilCodePage, BytesASourceDoesNotDefine) {
    /* Each undefined byte becomes U+FFFD. */
    EXPECT_EQ(From("a\x81z", "CP1252"), "a\xEF\xBF\xBDz");
    EXPECT_EQ(From("caf\xE9 \x80", "ACP"), "caf\xC3\xA9 \xE2\x82\xAC");
    EXPECT_EQ(From("x\x80\xFFy", "CP20127"), "x\xEF\xBF\xBD\xEF\xBF\xBDy");
    EXPECT_EQ(From("a\xFF" "b", "CP65001"), "a\xEF\xBF\xBD" "b");
    /* A sequence cut off by the end of the text. */
    EXPECT_EQ(From("a\xC3", "CP65001"), "a\xEF\xBF\xBD");
    EXPECT_EQ(From("\x82\xA0", "CP932", 1), "\xEF\xBF\xBD");
    /* size bounds the text, and the NUL bounds size. */
    EXPECT_EQ(From("abcdef", "CP1252", 3), "abc");
    EXPECT_EQ(From("abc", "CP1252", 100), "abc");
    EXPECT_EQ(From("abc", "CP1252", 0), "");
    EXPECT_EQ(From("", "CP1252"), "");
}

/* Source text reaches UTF-8 by way of UTF-16 and HalvUTF8ConvertFromUTF16,
 * so a U+FEFF or U+FFFE of the source is a byte order mark there: dropped,
 * and after U+FFFE every later unit reads byte-swapped.  Where the swap
 * leaves a surrogate alone, the conversion gives null. */
TEST(UtilCodePage, ByteOrderMarksInTheSourceActAsMarks) {
    EXPECT_EQ(From("a\xEF\xBB\xBF" "b", "CP65001"), "ab");
    EXPECT_EQ(From("a\xEF\xBF\xBE" "b", "CP65001"), "a\xE6\x88\x80"); /* U+0062 read as U+6200 */
    EXPECT_EQ(From("\xEF\xBF\xBE\xC3\x98", "CP65001"), "<null>");      /* U+00D8 read as U+D800 */
    /* UTF-16LE bytes of U+FFFE, then a cut unit, whose U+FFFD reads swapped. */
    EXPECT_EQ(From("\xFE\xFF" "A", "CP1200"), "\xEF\xB7\xBF");
    /* No single-byte page has either character: their bytes convert as ever. */
    EXPECT_EQ(From("\xFE\xFF", "CP1252"), "\xC3\xBE\xC3\xBF");
}

} // namespace
