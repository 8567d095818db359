// The token parser: empty tokens, delimiter skipping, quote groups, escapes,
// the caller-held cursor, and the copying variant that leaves text alone.
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "dpk_hvsup.h"

namespace {

constexpr int kSkip = HALV_TOKEN_SKIP_DELIMITERS;
constexpr int kSingle = HALV_TOKEN_SINGLE_QUOTES;
constexpr int kDouble = HALV_TOKEN_DOUBLE_QUOTES;
constexpr int kEscapes = HALV_TOKEN_ESCAPES;
constexpr int kKeep = HALV_TOKEN_KEEP_QUOTES;

// Every token of input, cut in place, until the parser gives null; a
// runaway parser fails the bound instead of hanging.
std::vector<std::string> Tokens(const std::string &input, const char *delimiters, int flags) {
    std::vector<char> text(input.begin(), input.end());
    text.push_back('\0');
    std::vector<std::string> tokens;
    char *next = nullptr;
    for (int guard = 0; guard < 1000; ++guard) {
        char *token = HalvTokenParseEx(text.data(), delimiters, flags, &next);
        if (token == nullptr)
            return tokens;
        EXPECT_GE(token, text.data());
        EXPECT_LT(token, text.data() + text.size());
        tokens.emplace_back(token);
    }
    ADD_FAILURE() << "parser did not end";
    return tokens;
}

// The same through the copying parser, which must leave input as it was.
std::vector<std::string> DupTokens(const std::string &input, const char *delimiters, int flags) {
    std::vector<std::string> tokens;
    const char *next = nullptr;
    for (int guard = 0; guard < 1000; ++guard) {
        char *token = HalvDupTokenParseEx(input.c_str(), delimiters, flags, &next);
        if (token == nullptr)
            return tokens;
        tokens.emplace_back(token);
        halv_internal_free(token);
    }
    ADD_FAILURE() << "parser did not end";
    return tokens;
}

using Strings = std::vector<std::string>;

// Both parsers must agree on every case.
void ExpectTokens(const std::string &input, const char *delimiters, int flags, const Strings &expected) {
    EXPECT_EQ(Tokens(input, delimiters, flags), expected) << "in place: [" << input << "] flags " << flags;
    EXPECT_EQ(DupTokens(input, delimiters, flags), expected) << "copying: [" << input << "] flags " << flags;
}

} // namespace

TEST(UtilTokens, EmptyTokensAndSkipping) {
    ExpectTokens("a,,b", ",", 0, Strings{"a", "", "b"});
    ExpectTokens("a,,b", ",", kSkip, Strings{"a", "b"});
    ExpectTokens("a,", ",", 0, Strings{"a", ""});
    ExpectTokens("a,", ",", kSkip, Strings{"a"});
    ExpectTokens("", ",", 0, Strings{""});
    ExpectTokens("", ",", kSkip, Strings{});
    ExpectTokens(",,,", ",", kSkip, Strings{});
    ExpectTokens(",a", ",", 0, Strings{"", "a"});
    ExpectTokens("  a  b ", " ", kSkip, Strings{"a", "b"});
    ExpectTokens("abc", ",", 0, Strings{"abc"});
    // Several delimiters, each a single byte.
    ExpectTokens("k=v;x=y", "=;", 0, Strings{"k", "v", "x", "y"});
    // No delimiters at all: the whole text is one token.
    ExpectTokens("a b,c", "", 0, Strings{"a b,c"});
    ExpectTokens("a b,c", nullptr, 0, Strings{"a b,c"});
}

TEST(UtilTokens, CursorAndCutting) {
    char text[] = "alpha beta";
    char *next = nullptr;
    char *first = HalvTokenParse(text, " ", &next);
    EXPECT_EQ(first, text);
    EXPECT_STREQ(first, "alpha");
    EXPECT_EQ(next, text + 6); // behind the delimiter, which became a NUL
    EXPECT_EQ(text[5], '\0');
    char *second = HalvTokenParse(text, " ", &next);
    EXPECT_EQ(second, text + 6);
    EXPECT_EQ(next, text); // used up: the cursor marks the end with text itself
    EXPECT_EQ(HalvTokenParse(text, " ", &next), nullptr);
    EXPECT_EQ(HalvTokenParse(text, " ", &next), nullptr); // and stays there

    // Two parsers over two texts, interleaved: the cursor is all the state.
    char left[] = "1 2 3";
    char right[] = "x,y";
    char *nextLeft = nullptr, *nextRight = nullptr;
    EXPECT_STREQ(HalvTokenParse(left, " ", &nextLeft), "1");
    EXPECT_STREQ(HalvTokenParse(right, ",", &nextRight), "x");
    EXPECT_STREQ(HalvTokenParse(left, " ", &nextLeft), "2");
    EXPECT_STREQ(HalvTokenParse(right, ",", &nextRight), "y");
    EXPECT_STREQ(HalvTokenParse(left, " ", &nextLeft), "3");
    EXPECT_EQ(HalvTokenParse(right, ",", &nextRight), nullptr);
    EXPECT_EQ(HalvTokenParse(left, " ", &nextLeft), nullptr);

    // Null text or cursor pointer: nothing to parse.
    char *cursor = nullptr;
    EXPECT_EQ(HalvTokenParse(nullptr, " ", &cursor), nullptr);
    EXPECT_EQ(HalvTokenParse(text, " ", nullptr), nullptr);
}

TEST(UtilTokens, ParsersRunSideBySideOnThreads) {
    std::vector<std::thread> threads;
    std::vector<int> counts(4, 0);
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([t, &counts] {
            for (int round = 0; round < 200; ++round) {
                std::string line;
                for (int i = 0; i < 50; ++i)
                    line += std::to_string(t) + (t % 2 ? ";" : " ");
                std::vector<char> text(line.begin(), line.end());
                text.push_back('\0');
                char *next = nullptr;
                int n = 0;
                const char *delimiter = t % 2 ? ";" : " ";
                while (char *token = HalvTokenParseEx(text.data(), delimiter, kSkip, &next)) {
                    if (std::string(token) == std::to_string(t))
                        ++n;
                    if (n > 100)
                        break;
                }
                counts[t] += n;
            }
        });
    }
    for (auto &thread : threads)
        thread.join();
    for (int t = 0; t < 4; ++t)
        EXPECT_EQ(counts[t], 200 * 50) << t;
}

TEST(UtilTokens, DoubleQuotesGroupAndDisappear) {
    ExpectTokens("x \"a b\" y", " ", kDouble, Strings{"x", "a b", "y"});
    ExpectTokens("x \"a b\" y", " ", kDouble | kKeep, Strings{"x", "\"a b\"", "y"});
    // A quote in the middle of a token groups the same way.
    ExpectTokens("k=\"a b\"c d", " ", kDouble, Strings{"k=a bc", "d"});
    // Without the flag the quote is an ordinary byte.
    ExpectTokens("x \"a b\" y", " ", 0, Strings{"x", "\"a", "b\"", "y"});
    // Single quotes do nothing under the double-quote flag.
    ExpectTokens("'a b'", " ", kDouble, Strings{"'a", "b'"});
    // An empty group gives an empty token.
    ExpectTokens("\"\" z", " ", kDouble, Strings{"", "z"});
}

TEST(UtilTokens, SingleQuotes) {
    ExpectTokens("a'b c'd", " ", kSingle, Strings{"ab cd"});
    ExpectTokens("a'b c'd", " ", kSingle | kKeep, Strings{"a'b c'd"});
    // Each kind of quote is plain inside the other.
    ExpectTokens("'say \"hi there\"' \"it's me\"", " ", kSingle | kDouble,
                 Strings{"say \"hi there\"", "it's me"});
}

TEST(UtilTokens, EscapesInsideQuotes) {
    ExpectTokens("\"a\\\"b c\"", " ", kDouble | kEscapes, Strings{"a\"b c"});
    ExpectTokens("\"a\\tb\"", " ", kDouble | kEscapes, Strings{"a\tb"});
    ExpectTokens("\"\\n\\r\\t\\\\\\q\"", " ", kDouble | kEscapes, Strings{"\n\r\t\\q"});
    ExpectTokens("'it\\'s here'", " ", kSingle | kEscapes, Strings{"it's here"});
    // Outside quotes a backslash is an ordinary byte and escapes nothing.
    ExpectTokens("a\\ b", " ", kDouble | kEscapes, Strings{"a\\", "b"});
    // With kept quotes the backslash still goes, the escaped byte stays.
    ExpectTokens("\"a\\\"b\"", " ", kDouble | kEscapes | kKeep, Strings{"\"a\"b\""});
    // An escaped delimiter inside quotes doesn't split.
    ExpectTokens("\"a\\ b\" c", " ", kDouble | kEscapes, Strings{"a b", "c"});
}

TEST(UtilTokens, WithoutEscapesABackslashIsPlain) {
    // The quote ends at the second quote character; the last quote opens a
    // group that stays empty.
    ExpectTokens("\"a\\\"b c\"", " ", kDouble, Strings{"a\\b", "c"});
}

TEST(UtilTokens, UnclosedQuotesRunToTheEnd) {
    ExpectTokens("x \"a b, c", " ,", kDouble, Strings{"x", "a b, c"});
    ExpectTokens("x 'a b", " ", kSingle | kKeep, Strings{"x", "'a b"});
    // A trailing backslash inside an escaping quote: the text just ends.
    ExpectTokens("\"ab\\", " ", kDouble | kEscapes, Strings{"ab"});
}

TEST(UtilTokens, QuoteCharacterAmongDelimiters) {
    // With its flag the quote acts as a quote even when listed as delimiter.
    ExpectTokens("a\"b c\"d", " \"", kDouble, Strings{"ab cd"});
    // Without it, it delimits.
    ExpectTokens("a\"b c\"d", " \"", 0, Strings{"a", "b", "c", "d"});
}

TEST(UtilTokens, HighBytesAreOrdinary) {
    ExpectTokens("caf\xC3\xA9 \xFF\x80", " ", kSkip | kDouble, Strings{"caf\xC3\xA9", "\xFF\x80"});
    ExpectTokens("a\xA0" "b", "\xA0", 0, Strings{"a", "b"});
}

TEST(UtilTokens, CopyingParserLeavesTextAlone) {
    const std::string original = "x \"a b\",y";
    std::string text = original;
    const char *next = nullptr;
    char *first = HalvDupTokenParseEx(text.c_str(), " ,", kDouble, &next);
    ASSERT_NE(first, nullptr);
    EXPECT_STREQ(first, "x");
    EXPECT_NE(first, text.c_str());
    char *second = HalvDupTokenParseEx(text.c_str(), " ,", kDouble, &next);
    ASSERT_NE(second, nullptr);
    EXPECT_STREQ(second, "a b");
    EXPECT_EQ(text, original);
    halv_internal_free(first);
    halv_internal_free(second);

    const char *cursor = nullptr;
    char *plain = HalvDupTokenParse("p;q", ";", &cursor);
    EXPECT_STREQ(plain, "p");
    halv_internal_free(plain);
}
