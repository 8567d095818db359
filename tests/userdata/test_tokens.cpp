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

TEST(UserDataTokens, EmptyStreamsAndCommentsGiveTheEnd) {
    EXPECT_EQ(Tokens(""), (TokenList{{101, ""}}));
    EXPECT_EQ(Tokens("  \n\t\r\n# only a comment\n\n   # another: with = syntax [x]\n\v\f"),
              (TokenList{{101, ""}}));
    EXPECT_EQ(Tokens("# comment without line end"), (TokenList{{101, ""}}));
}

TEST(UserDataTokens, BracketedNamesLabelsAssignmentsAndWords) {
    EXPECT_EQ(Tokens("<Item one>\n[Section]\nlabel: value\nname=x\nlast"),
              (TokenList{{120, "Item one"}, {110, "Section"}, {108, "label"}, {112, "value"}, {97, "name"},
                         {112, "x"}, {112, "last"}, {101, ""}}));
    // Inside brackets ':' '#' and LF are text; '=' ends the name and leaves
    // the rest of the line for the next token.
    EXPECT_EQ(Tokens("<a:b#c>[x\ny]"), (TokenList{{120, "a:b#c"}, {110, "x\ny"}, {101, ""}}));
    EXPECT_EQ(Tokens("[a=b]"), (TokenList{{110, "a"}, {112, "b]"}, {101, ""}}));
    // A bracketed name cut off by the end keeps its code.
    EXPECT_EQ(Tokens("[open"), (TokenList{{110, "open"}, {101, ""}}));
    // The opening byte of bare text is never syntax.
    EXPECT_EQ(Tokens(":x: =y= \\z:"), (TokenList{{108, ":x"}, {97, "=y"}, {108, "\\z"}, {101, ""}}));
    // Blanks inside and behind a token stay; the LF ending a word doesn't.
    EXPECT_EQ(Tokens("  key : value # note"), (TokenList{{108, "key "}, {112, "value "}, {101, ""}}));
    EXPECT_EQ(Tokens("one\ntwo  \n"), (TokenList{{112, "one"}, {112, "two  "}, {101, ""}}));
}

TEST(UserDataTokens, CommentsBehindTextStillEndTokens) {
    // The colon inside the comment ends the label.
    EXPECT_EQ(Tokens("a # b: c"), (TokenList{{108, "a "}, {112, "c"}, {101, ""}}));
    EXPECT_EQ(Tokens("a # b= c"), (TokenList{{97, "a "}, {112, "c"}, {101, ""}}));
    // Backslashes and quotes inside the comment are dropped, not honoured.
    EXPECT_EQ(Tokens("w # \\: \"x\ny"), (TokenList{{108, "w "}, {115, "x\ny"}, {101, ""}}));
}

TEST(UserDataTokens, EscapesAndVerbatimRunsInText) {
    EXPECT_EQ(Tokens("path: C:\\\\dir\\:x"), (TokenList{{108, "path"}, {108, "C"}, {112, "\\dir:x"}, {101, ""}}));
    EXPECT_EQ(Tokens("a\\=b\\#c\\\"d\\\\e"), (TokenList{{112, "a=b#c\"d\\e"}, {101, ""}}));
    // Backslash LF continues a value and keeps the line end.
    EXPECT_EQ(Tokens("k: one\\\ntwo\nnext"), (TokenList{{108, "k"}, {112, "one\ntwo"}, {112, "next"}, {101, ""}}));
    // Escapes work inside brackets too.
    EXPECT_EQ(Tokens("[a\\]b]<c\\>d>"), (TokenList{{110, "a]b"}, {120, "c>d"}, {101, ""}}));
    // A backslash at the very end is dropped.
    EXPECT_EQ(Tokens("ab\\"), (TokenList{{112, "ab"}, {101, ""}}));
    // A quoted run inside text is taken verbatim, quotes included.
    EXPECT_EQ(Tokens("key: say \"a: b\" now"), (TokenList{{108, "key"}, {112, "say \"a: b\" now"}, {101, ""}}));
    EXPECT_EQ(Tokens("w \"a#b\\c=d\ne\" f\n"), (TokenList{{112, "w \"a#b\\c=d\ne\" f"}, {101, ""}}));
    EXPECT_EQ(Tokens("[x\"]\"]"), (TokenList{{110, "x\"]\""}, {101, ""}}));
    EXPECT_EQ(Tokens("w \"open to the end"), (TokenList{{112, "w \"open to the end"}, {101, ""}}));
}

TEST(UserDataTokens, StringsAndTheirOneEscape) {
    EXPECT_EQ(Tokens("key: \"two words\""), (TokenList{{108, "key"}, {115, "two words"}, {101, ""}}));
    EXPECT_EQ(Tokens("\"\""), (TokenList{{115, ""}, {101, ""}}));
    // In the first 31 bytes a backslash is text and a quote always closes.
    EXPECT_EQ(Tokens("\"a\\b\""), (TokenList{{115, "a\\b"}, {101, ""}}));
    EXPECT_EQ(Tokens("\"abc\\\""), (TokenList{{115, "abc\\"}, {101, ""}}));
    // A colon ends the prefix early; behind it backslashes vanish.
    EXPECT_EQ(Tokens("\"a:\\b\""), (TokenList{{115, "a:b"}, {101, ""}}));
    EXPECT_EQ(Tokens("\":\\\\x\\\"y\\\"\""), (TokenList{{115, ":x\"y\""}, {101, ""}}));
    const std::string a30(30, 'a'), a31(31, 'a');
    EXPECT_EQ(Tokens("\"" + a30 + "\\\""), (TokenList{{115, a30 + "\\"}, {101, ""}}));
    EXPECT_EQ(Tokens("\"" + a31 + "\\\"x\""), (TokenList{{115, a31 + "\"x"}, {101, ""}}));
    // An escaped quote directly followed by a quote closes the string.
    EXPECT_EQ(Tokens("\"" + a31 + "\\\"\"next"), (TokenList{{115, a31 + "\""}, {112, "next"}, {101, ""}}));
    EXPECT_EQ(Tokens("\"" + a31 + "x\\\\y\\z\""), (TokenList{{115, a31 + "xyz"}, {101, ""}}));
    // Strings hold line ends, '#', '=' and ':' as text.
    EXPECT_EQ(Tokens("\"l1\nl2 # x = y: z\""), (TokenList{{115, "l1\nl2 # x = y: z"}, {101, ""}}));
    // Unterminated strings end with the stream.
    EXPECT_EQ(Tokens("\"abc"), (TokenList{{115, "abc"}, {101, ""}}));
    EXPECT_EQ(Tokens("\"a:bc"), (TokenList{{115, "a:bc"}, {101, ""}}));
    // Text right behind the closing quote is a new token.
    EXPECT_EQ(Tokens("\"s\"tail"), (TokenList{{115, "s"}, {112, "tail"}, {101, ""}}));
}

TEST(UserDataTokens, GroupsAreDeliveredWholeWithTheByteBehindThemDropped) {
    EXPECT_EQ(Tokens("{a {b} c}\n"), (TokenList{{112, "{a {b} c}"}, {101, ""}}));
    EXPECT_EQ(Tokens("{a {b} c}"), (TokenList{{69, "{a {b} c}"}}));
    EXPECT_EQ(Tokens("{a # b: \\c \"d}Xrest"), (TokenList{{112, "{a # b: \\c \"d}"}, {112, "rest"}, {101, ""}}));
    EXPECT_EQ(Tokens("{x\r\ny}\r\n"), (TokenList{{112, "{x\ny}"}, {101, ""}}));
    EXPECT_EQ(Tokens("{never {closed}"), (TokenList{{69, "{never {closed}"}}));
    EXPECT_EQ(Tokens(std::string("{a\xFF}\n")), (TokenList{{69, "{a"}}));
    // A group is only a group at the opening of a token.
    EXPECT_EQ(Tokens("k: x{y}"), (TokenList{{108, "k"}, {112, "x{y}"}, {101, ""}}));
}

TEST(UserDataTokens, Base64Blocks) {
    EXPECT_EQ(Tokens("\"<<<<Base64Data:QUJD>>>>\""), (TokenList{{100, "ABC"}, {101, ""}}));
    EXPECT_EQ(Tokens("\"<<<<base64data:QUI=>>>>\""), (TokenList{{100, "AB"}, {101, ""}}));
    EXPECT_EQ(Tokens("\"<<<<Base64Data:QQ==>>>>\""), (TokenList{{100, "A"}, {101, ""}}));
    EXPECT_EQ(Tokens("\"<<<<BASE64DATA:>>>>\"x"), (TokenList{{100, ""}, {112, "x"}, {101, ""}}));
    EXPECT_EQ(Tokens("\"<<<<Base64Data:SGVsbG8sIHdvcmxkIQ==>>>>\"\n"), (TokenList{{100, "Hello, world!"}, {101, ""}}));
    // Characters are masked to 7 bits; those outside the alphabet count as 0.
    EXPECT_EQ(Tokens("\"<<<<Base64Data:\xD1UJD>>>>\""), (TokenList{{100, "ABC"}, {101, ""}}));
    EXPECT_EQ(Tokens("\"<<<<Base64Data:!!!!>>>>\""), (TokenList{{100, std::string(3, '\0')}, {101, ""}}));
    // A third '=' gives one byte whatever the fourth is.
    EXPECT_EQ(Tokens("\"<<<<Base64Data:QU=J>>>>\""), (TokenList{{100, "A"}, {101, ""}}));
    // Binary bytes, NUL and 0xFF included, pass.
    EXPECT_EQ(Tokens("\"<<<<Base64Data:AP8A>>>>\""), (TokenList{{100, std::string("\0\xFF\0", 3)}, {101, ""}}));
    // Cut-off blocks give 69 with what was decoded so far.
    EXPECT_EQ(Tokens("\"<<<<Base64Data:QUJDQU"), (TokenList{{69, "ABC"}}));
    EXPECT_EQ(Tokens("\"<<<<Base64Data:QUJD>>>"), (TokenList{{69, "ABC"}}));
    // No CR is dropped and no line may break the block.
    EXPECT_EQ(Tokens("\"<<<<Base64Data:QUJD\r\n>>>>\"").front().code, 69);
    // Anything but the exact mark is an ordinary string.
    EXPECT_EQ(Tokens("\"<<<Base64Data:QUJD>>>>\""), (TokenList{{115, "<<<Base64Data:QUJD>>>>"}, {101, ""}}));
    EXPECT_EQ(Tokens("\"<<<<Base64Data QUJD>>>>\""), (TokenList{{115, "<<<<Base64Data QUJD>>>>"}, {101, ""}}));
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

TEST(UserDataTokens, CarriageReturnsVanishAndLinesReadTheSame) {
    const std::string unix = "[S]\nk: v\n\"s\ntext\"\nw\\\nx\n";
    std::string dos;
    for (char c : unix)
        dos += c == '\n' ? std::string("\r\n") : std::string(1, c);
    EXPECT_EQ(Tokens(dos), Tokens(unix));
    EXPECT_EQ(Tokens("a\rb:\r"), (TokenList{{108, "ab"}, {101, ""}}));
}

TEST(UserDataTokens, ByteFFEndsTheTokenAndReadingGoesOnBehindIt) {
    EXPECT_EQ(Tokens(std::string("ab\xFF" "cd")), (TokenList{{112, "ab"}, {112, "cd"}, {101, ""}}));
    // At the start of a token it reads as the end, once.
    ReadStream in(std::string("\xFFnext:"));
    WriteStream out;
    EXPECT_EQ(HalvReadUserCM(in.io(), out.io()), 101);
    EXPECT_EQ(HalvReadUserCM(in.io(), out.io()), 108);
    EXPECT_EQ(out.text(), "next");
    // It ends a comment, and skipping goes on.
    EXPECT_EQ(Tokens(std::string("# c\xFFnext:")), (TokenList{{108, "next"}, {101, ""}}));
    EXPECT_EQ(Tokens(std::string("<it\xFF" "em>")), (TokenList{{120, "it"}, {112, "em>"}, {101, ""}}));
    EXPECT_EQ(Tokens(std::string("\"ab\xFF" "cd\"")), (TokenList{{115, "ab"}, {112, "cd\""}, {101, ""}}));
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
}

TEST(UserDataTokens, AFullOutputCutsTheTokenWith69) {
    {
        ReadStream in("abcdef: x");
        WriteStream out(3);
        EXPECT_EQ(HalvReadUserCM(in.io(), out.io()), 69);
        EXPECT_EQ(out.text(), "abc");
        // Cut at the first byte that no longer fits: nothing more was read.
        EXPECT_EQ(in.rest(), "ef: x");
    }
    for (const char *text : {"<abcdef>", "[abcdef]", "\"abcdef\"", "\"ab:cdef\"", "{abcdef}\n", "abc\\def",
                             "ab\"cdef\""}) {
        ReadStream in(text);
        WriteStream out(3);
        EXPECT_EQ(HalvReadUserCM(in.io(), out.io()), 69) << text;
        EXPECT_EQ(out.text().size(), 3u) << text;
    }
    {
        ReadStream in("\"<<<<Base64Data:QUJDQUJD>>>>\"");
        WriteStream out(4); // the second group doesn't fit whole
        EXPECT_EQ(HalvReadUserCM(in.io(), out.io()), 69);
        EXPECT_EQ(out.text(), "ABCA");
    }
    {
        ReadStream in("\"\"");
        WriteStream out(0); // an empty token needs no room
        EXPECT_EQ(HalvReadUserCM(in.io(), out.io()), 115);
    }
    WriteStream out;
    ReadStream in("x");
    EXPECT_EQ(HalvReadUserCM(nullptr, out.io()), 69);
    EXPECT_EQ(HalvReadUserCM(in.io(), nullptr), 69);
}

TEST(UserDataTokens, OldDialect) {
    EXPECT_EQ(Tokens("<I>\n[S]\nk: 'single' \"double\"\na=b: x=y\n", true),
              (TokenList{{120, "I"}, {110, "S"}, {108, "k"}, {115, "single"}, {115, "double"}, {108, "a=b"},
                         {112, "x=y"}, {101, ""}}));
    // No groups and no Base64 blocks.
    EXPECT_EQ(Tokens("{x}\n", true), (TokenList{{112, "{x}"}, {101, ""}}));
    EXPECT_EQ(Tokens("\"<<<<Base64Data:QUJD>>>>\"", true), (TokenList{{115, "<<<<Base64Data:QUJD>>>>"}, {101, ""}}));
    // [a=b] is one name.
    EXPECT_EQ(Tokens("[a=b]", true), (TokenList{{110, "a=b"}, {101, ""}}));
    // Escapes: a backslash before the quote keeps it, other backslashes
    // vanish from the first byte on.
    EXPECT_EQ(Tokens("'it\\'s' \"a\\b\"", true), (TokenList{{115, "it's"}, {115, "ab"}, {101, ""}}));
    // Verbatim runs exist for both quotes inside text.
    EXPECT_EQ(Tokens("k: x 'a: b' \"c: d\" y", true), (TokenList{{108, "k"}, {112, "x 'a: b' \"c: d\" y"}, {101, ""}}));
    EXPECT_EQ(Tokens("a # c: d\n", true), (TokenList{{108, "a "}, {112, "d"}, {101, ""}}));
}

} // namespace
