// The token reader: every token kind and code, strings and escapes,
// comments, groups, Base64 blocks, the end byte 0xFF and output limits.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "dpk_hvsup.h"
#include "userdata/streams.h"

using ucm_test::ReadStream;
using ucm_test::Token;
using ucm_test::Tokens;
using ucm_test::WriteStream;

namespace {

using TokenList = std::vector<Token>;

/* A text and its tokens; the final {101, ""} is implied unless the last
 * token is a 69. */
struct Case {
    std::string text;
    TokenList tokens;
    bool old = false;
};

TEST(UserDataTokens, EveryTokenOfATextInBothDialects) {
    const std::string a30(30, 'a'), a31(31, 'a');
    const Case cases[] = {
        {"", {}}, {"  \n\t\r\n# only a comment\n\n   # another: with = syntax [x]\n\v\f", {}},
        {"# comment without line end", {}},
        {"<Item one>\n[Section]\nlabel: value\nname=x\nlast",
         {{120, "Item one"}, {110, "Section"}, {108, "label"}, {112, "value"}, {97, "name"}, {112, "x"},
          {112, "last"}}},
        // Inside brackets ':' '#' and LF are text; '=' ends the name and
        // leaves the rest of the line for the next token.
        {"<a:b#c>[x\ny]", {{120, "a:b#c"}, {110, "x\ny"}}}, {"[a=b]", {{110, "a"}, {112, "b]"}}},
        {"[open", {{110, "open"}}}, // cut off by the end, it keeps its code
        // The opening byte of bare text is never syntax.
        {":x: =y= \\z:", {{108, ":x"}, {97, "=y"}, {108, "\\z"}}},
        // Blanks inside and behind a token stay; the LF ending a word doesn't.
        {"  key : value # note", {{108, "key "}, {112, "value "}}},
        {"one\ntwo  \n", {{112, "one"}, {112, "two  "}}},
        // A colon or '=' inside a comment behind text still ends the token;
        // backslashes and quotes there are dropped, not honoured.
        {"a # b: c", {{108, "a "}, {112, "c"}}}, {"a # b= c", {{97, "a "}, {112, "c"}}},
        {"w # \\: \"x\ny", {{108, "w "}, {115, "x\ny"}}},
        // Escapes and verbatim runs in text.
        {"path: C:\\\\dir\\:x", {{108, "path"}, {108, "C"}, {112, "\\dir:x"}}},
        {"a\\=b\\#c\\\"d\\\\e", {{112, "a=b#c\"d\\e"}}},
        {"k: one\\\ntwo\nnext", {{108, "k"}, {112, "one\ntwo"}, {112, "next"}}}, // backslash LF keeps the LF
        {"[a\\]b]<c\\>d>", {{110, "a]b"}, {120, "c>d"}}},
        {"ab\\", {{112, "ab"}}}, // a backslash at the very end is dropped
        // A quoted run inside text is taken verbatim, quotes included.
        {"key: say \"a: b\" now", {{108, "key"}, {112, "say \"a: b\" now"}}},
        {"w \"a#b\\c=d\ne\" f\n", {{112, "w \"a#b\\c=d\ne\" f"}}}, {"[x\"]\"]", {{110, "x\"]\""}}},
        {"w \"open to the end", {{112, "w \"open to the end"}}},
        // Strings: in the first 31 bytes a backslash is text and a quote
        // always closes; a colon ends that prefix early; behind it
        // backslashes vanish.
        {"key: \"two words\"", {{108, "key"}, {115, "two words"}}}, {"\"\"", {{115, ""}}},
        {"\"a\\b\"", {{115, "a\\b"}}}, {"\"abc\\\"", {{115, "abc\\"}}}, {"\"a:\\b\"", {{115, "a:b"}}},
        {"\":\\\\x\\\"y\\\"\"", {{115, ":x\"y\""}}}, {"\"" + a30 + "\\\"", {{115, a30 + "\\"}}},
        {"\"" + a31 + "\\\"x\"", {{115, a31 + "\"x"}}},
        // An escaped quote directly followed by a quote closes the string.
        {"\"" + a31 + "\\\"\"next", {{115, a31 + "\""}, {112, "next"}}},
        {"\"" + a31 + "x\\\\y\\z\"", {{115, a31 + "xyz"}}},
        {"\"l1\nl2 # x = y: z\"", {{115, "l1\nl2 # x = y: z"}}},
        {"\"abc", {{115, "abc"}}}, // unterminated strings end with the stream
        {"\"a:bc", {{115, "a:bc"}}}, {"\"s\"tail", {{115, "s"}, {112, "tail"}}},
        // Groups are delivered whole, the byte behind them dropped; only at
        // the opening of a token.
        {"{a {b} c}\n", {{112, "{a {b} c}"}}}, {"{a {b} c}", {{69, "{a {b} c}"}}},
        {"{a # b: \\c \"d}Xrest", {{112, "{a # b: \\c \"d}"}, {112, "rest"}}},
        {"{x\r\ny}\r\n", {{112, "{x\ny}"}}}, {"{never {closed}", {{69, "{never {closed}"}}},
        {"{a\xFF}\n", {{69, "{a"}}}, {"k: x{y}", {{108, "k"}, {112, "x{y}"}}},
        // Base64 blocks; characters are masked to 7 bits, those outside the
        // alphabet count as 0, and a third '=' gives one byte.
        {"\"<<<<Base64Data:QUJD>>>>\"", {{100, "ABC"}}}, {"\"<<<<base64data:QUI=>>>>\"", {{100, "AB"}}},
        {"\"<<<<Base64Data:QQ==>>>>\"", {{100, "A"}}}, {"\"<<<<BASE64DATA:>>>>\"x", {{100, ""}, {112, "x"}}},
        {"\"<<<<Base64Data:SGVsbG8sIHdvcmxkIQ==>>>>\"\n", {{100, "Hello, world!"}}},
        {"\"<<<<Base64Data:\xD1UJD>>>>\"", {{100, "ABC"}}},
        {"\"<<<<Base64Data:!!!!>>>>\"", {{100, std::string(3, '\0')}}},
        {"\"<<<<Base64Data:QU=J>>>>\"", {{100, "A"}}},
        {"\"<<<<Base64Data:AP8A>>>>\"", {{100, std::string("\0\xFF\0", 3)}}},
        {"\"<<<<Base64Data:QUJDQU", {{69, "ABC"}}}, // cut off: what was decoded so far
        {"\"<<<<Base64Data:QUJD>>>", {{69, "ABC"}}},
        {"\"<<<Base64Data:QUJD>>>>\"", {{115, "<<<Base64Data:QUJD>>>>"}}}, // not the exact mark
        {"\"<<<<Base64Data QUJD>>>>\"", {{115, "<<<<Base64Data QUJD>>>>"}}},
        // CRs vanish; 0xFF ends the token, and reading goes on behind it.
        {"a\rb:\r", {{108, "ab"}}}, {"ab\xFF" "cd", {{112, "ab"}, {112, "cd"}}},
        {"# c\xFFnext:", {{108, "next"}}}, {"<it\xFF" "em>", {{120, "it"}, {112, "em>"}}},
        {"\"ab\xFF" "cd\"", {{115, "ab"}, {112, "cd\""}}},
        // The old dialect: single quotes, no groups, no Base64 blocks, [a=b]
        // one name; a backslash keeps a quote, others vanish from the first
        // byte on; verbatim runs for both quotes.
        {"<I>\n[S]\nk: 'single' \"double\"\na=b: x=y\n",
         {{120, "I"}, {110, "S"}, {108, "k"}, {115, "single"}, {115, "double"}, {108, "a=b"}, {112, "x=y"}},
         true},
        {"{x}\n", {{112, "{x}"}}, true},
        {"\"<<<<Base64Data:QUJD>>>>\"", {{115, "<<<<Base64Data:QUJD>>>>"}}, true},
        {"[a=b]", {{110, "a=b"}}, true}, {"'it\\'s' \"a\\b\"", {{115, "it's"}, {115, "ab"}}, true},
        {"k: x 'a: b' \"c: d\" y", {{108, "k"}, {112, "x 'a: b' \"c: d\" y"}}, true},
        {"a # c: d\n", {{108, "a "}, {112, "d"}}, true},
    };
    for (const Case &c : cases) {
        TokenList expected = c.tokens;
        if (expected.empty() || expected.back().code != 69)
            expected.push_back({101, ""});
        EXPECT_EQ(Tokens(c.text, c.old), expected) << c.text;
    }
    // No CR is dropped and no line may break a Base64 block.
    EXPECT_EQ(Tokens("\"<<<<Base64Data:QUJD\r\n>>>>\"").front().code, 69);
    // Lines ending in CR LF read as those ending in LF.
    const std::string unix = "[S]\nk: v\n\"s\ntext\"\nw\\\nx\n";
    std::string dos;
    for (char c : unix)
        dos += c == '\n' ? std::string("\r\n") : std::string(1, c);
    EXPECT_EQ(Tokens(dos), Tokens(unix));
}

TEST(UserDataTokens, Base64BlocksAreReadInGroupsOfFourAndTheRestByteByByte) {
    ReadStream in("k: \"<<<<Base64Data:QUJDREVG>>>>\" w\n");
    WriteStream out;
    EXPECT_EQ(HalvReadUserCM(in.io(), out.io()), 108);
    EXPECT_EQ(HalvReadUserCM(in.io(), out.io()), 100);
    EXPECT_EQ(in.rest(), " w\n");
    std::vector<uint32_t> raw;
    for (uint32_t count : in.counts())
        if (count != 1)
            raw.push_back(count);
    EXPECT_EQ(raw, (std::vector<uint32_t>{4, 4, 4}));
    // Each decoded group went out in one write.
    EXPECT_EQ(out.text(), "kABCDEF");
    EXPECT_EQ(out.counts(), (std::vector<uint32_t>{1, 3, 3}));
    // A stream that delivers fewer than four bytes at once cuts the block.
    ReadStream trickle("\"<<<<Base64Data:QUJD>>>>\"");
    trickle.LimitPieces(2);
    WriteStream sink;
    EXPECT_EQ(HalvReadUserCM(trickle.io(), sink.io()), 69);
}

TEST(UserDataTokens, ReadingStopsRightBehindTheToken) {
    ReadStream in("a: b\n[End]\x01\x02");
    WriteStream out;
    EXPECT_EQ(HalvReadUserCM(in.io(), out.io()), 108);
    EXPECT_EQ(in.rest(), " b\n[End]\x01\x02");
    EXPECT_EQ(HalvReadUserCM(in.io(), out.io()), 112);
    EXPECT_EQ(in.rest(), "[End]\x01\x02");
    EXPECT_EQ(HalvReadUserCM(in.io(), out.io()), 110);
    EXPECT_EQ(in.rest(), "\x01\x02");
    for (uint32_t count : in.counts())
        EXPECT_EQ(count, 1u);
    EXPECT_EQ(out.text(), "abEnd");
    // 0xFF at the start of a token reads as the end, once.
    ReadStream ff(std::string("\xFFnext:"));
    WriteStream next;
    EXPECT_EQ(HalvReadUserCM(ff.io(), next.io()), 101);
    EXPECT_EQ(HalvReadUserCM(ff.io(), next.io()), 108);
    EXPECT_EQ(next.text(), "next");
}

TEST(UserDataTokens, AFullOutputCutsTheTokenWith69) {
    ReadStream label("abcdef: x");
    WriteStream three(3);
    EXPECT_EQ(HalvReadUserCM(label.io(), three.io()), 69);
    EXPECT_EQ(three.text(), "abc");
    EXPECT_EQ(label.rest(), "ef: x"); // cut at the first byte that no longer fits: nothing more read
    const struct {
        const char *text;
        size_t capacity;
        int32_t code;
        const char *written;
    } cases[] = {
        {"<abcdef>", 3, 69, "abc"},    {"[abcdef]", 3, 69, "abc"},  {"\"abcdef\"", 3, 69, "abc"},
        {"\"ab:cdef\"", 3, 69, "ab:"}, {"{abcdef}\n", 3, 69, "{ab"}, {"abc\\def", 3, 69, "abc"},
        {"ab\"cdef\"", 3, 69, "ab\""},
        {"\"<<<<Base64Data:QUJDQUJD>>>>\"", 4, 69, "ABCA"}, // the second group doesn't fit whole
        {"\"\"", 0, 115, ""},                               // an empty token needs no room
    };
    for (const auto &c : cases) {
        ReadStream in(c.text);
        WriteStream out(c.capacity);
        EXPECT_EQ(HalvReadUserCM(in.io(), out.io()), c.code) << c.text;
        EXPECT_EQ(out.text(), c.written) << c.text;
    }
    WriteStream out;
    ReadStream in("x");
    EXPECT_EQ(HalvReadUserCM(nullptr, out.io()), 69);
    EXPECT_EQ(HalvReadUserCM(in.io(), nullptr), 69);
}

} // namespace
