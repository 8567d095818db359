// The token parser: empty tokens, delimiter skipping, quote groups, escapes,
// and the caller-held cursor.
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

using Strings = std::vector<std::string>;

} // namespace

/* The copying parser's agreement with this one, and its untouched input,
 * are checked by fuzz_tokens under every flag combination. */
TEST(UtilTokens, QuotesEscapesAndEmptyTokens) {
    const struct {
        const char *input;
        const char *delimiters;
        int flags;
        Strings expected;
    } cases[] = {
        // Empty tokens, and skipping them; several delimiters, each a byte;
        // no delimiters at all: the whole text is one token.
        {"a,,b", ",", 0, {"a", "", "b"}}, {"a,,b", ",", kSkip, {"a", "b"}}, {"a,", ",", 0, {"a", ""}},
        {"a,", ",", kSkip, {"a"}},        {"", ",", 0, {""}},               {"", ",", kSkip, {}},
        {",,,", ",", kSkip, {}},          {",a", ",", 0, {"", "a"}},        {"  a  b ", " ", kSkip, {"a", "b"}},
        {"abc", ",", 0, {"abc"}},         {"k=v;x=y", "=;", 0, {"k", "v", "x", "y"}},
        {"a b,c", "", 0, {"a b,c"}},      {"a b,c", nullptr, 0, {"a b,c"}},
        // Double quotes group, also in the middle of a token, and disappear
        // unless kept; without the flag, or as single quotes under the
        // double-quote flag, they are ordinary bytes; an empty group gives an
        // empty token.
        {"x \"a b\" y", " ", kDouble, {"x", "a b", "y"}},
        {"x \"a b\" y", " ", kDouble | kKeep, {"x", "\"a b\"", "y"}},
        {"k=\"a b\"c d", " ", kDouble, {"k=a bc", "d"}}, {"x \"a b\" y", " ", 0, {"x", "\"a", "b\"", "y"}},
        {"'a b'", " ", kDouble, {"'a", "b'"}}, {"\"\" z", " ", kDouble, {"", "z"}},
        // Single quotes; each kind of quote is plain inside the other.
        {"a'b c'd", " ", kSingle, {"ab cd"}}, {"a'b c'd", " ", kSingle | kKeep, {"a'b c'd"}},
        {"'say \"hi there\"' \"it's me\"", " ", kSingle | kDouble, {"say \"hi there\"", "it's me"}},
        // Escapes inside quotes.  Outside quotes a backslash is an ordinary
        // byte; with kept quotes the backslash still goes, the escaped byte
        // stays; an escaped delimiter inside quotes doesn't split.
        {"\"a\\\"b c\"", " ", kDouble | kEscapes, {"a\"b c"}},
        {"\"a\\tb\"", " ", kDouble | kEscapes, {"a\tb"}},
        {"\"\\n\\r\\t\\\\\\q\"", " ", kDouble | kEscapes, {"\n\r\t\\q"}},
        {"'it\\'s here'", " ", kSingle | kEscapes, {"it's here"}},
        {"a\\ b", " ", kDouble | kEscapes, {"a\\", "b"}},
        {"\"a\\\"b\"", " ", kDouble | kEscapes | kKeep, {"\"a\"b\""}},
        {"\"a\\ b\" c", " ", kDouble | kEscapes, {"a b", "c"}},
        // Without escapes a backslash is plain: the quote ends at the second
        // quote character; the last quote opens a group that stays empty.
        {"\"a\\\"b c\"", " ", kDouble, {"a\\b", "c"}},
        // Unclosed quotes run to the end; so does a trailing backslash inside
        // an escaping quote.
        {"x \"a b, c", " ,", kDouble, {"x", "a b, c"}}, {"x 'a b", " ", kSingle | kKeep, {"x", "'a b"}},
        {"\"ab\\", " ", kDouble | kEscapes, {"ab"}},
        // With its flag a quote listed as delimiter acts as a quote; without
        // it, it delimits.
        {"a\"b c\"d", " \"", kDouble, {"ab cd"}}, {"a\"b c\"d", " \"", 0, {"a", "b", "c", "d"}},
        // High bytes are ordinary.
        {"caf\xC3\xA9 \xFF\x80", " ", kSkip | kDouble, {"caf\xC3\xA9", "\xFF\x80"}},
        {"a\xA0" "b", "\xA0", 0, {"a", "b"}},
    };
    for (const auto &c : cases)
        EXPECT_EQ(Tokens(c.input, c.delimiters, c.flags), c.expected)
            << "[" << c.input << "] flags " << c.flags;
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
    // The copying form without flags.
    const char *copyCursor = nullptr;
    char *plain = HalvDupTokenParse("p;q", ";", &copyCursor);
    EXPECT_STREQ(plain, "p");
    halv_internal_free(plain);
}

TEST(UtilTokens, ParsersRunSideBySideOnThreads) {
    std::vector<std::thread> threads;
    std::vector<int> counts(4, 0);
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([t, &counts] {
            const char *delimiter = t % 2 ? ";" : " ";
            for (int round = 0; round < 200; ++round) {
                std::string line;
                for (int i = 0; i < 50; ++i)
                    line += std::to_string(t) + delimiter;
                char *next = nullptr;
                for (int n = 0; n <= 100; ++n) {
                    char *token = HalvTokenParseEx(line.data(), delimiter, kSkip, &next);
                    if (token == nullptr)
                        break;
                    counts[t] += std::string(token) == std::to_string(t);
                }
            }
        });
    for (auto &thread : threads)
        thread.join();
    for (int t = 0; t < 4; ++t)
        EXPECT_EQ(counts[t], 200 * 50) << t;
}
