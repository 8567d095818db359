// The UTF-16 bridge against a one-character-at-a-time model of its rules,
// on generated text with one fault placed at every offset, so that faults
// fall on every position of the converters' blocks and spans: block starts
// and ends, the look-ahead bytes, and span borders.
#include <gtest/gtest.h>

#include <optional>
#include <random>
#include <string>
#include <vector>

#include "util/support.h"

namespace {

using halvtest::Units;
using Units16 = std::vector<uint16_t>;

// To UTF-16 by the library's own one-character reader, which test_utf8
// checks case by case.
std::optional<Units16> ModelToUtf16(const std::string &text) {
    Units16 units;
    for (const char *p = text.c_str();; p += HalvUTF8NextCharLen(p)) {
        const uint32_t value = HalvUTF8NextChar(p);
        if (HalvUTF8NextCharLen(p) == 0)
            return std::nullopt;
        if (value == 0)
            return units;
        halvtest::AppendUtf16(units, value);
    }
}

std::optional<std::string> ModelFromUtf16(const Units16 &units) {
    std::string out;
    bool swap = false;
    auto unitAt = [&](size_t i) -> uint32_t {
        const uint16_t u = i < units.size() ? units[i] : 0;
        return swap ? (uint16_t)((u << 8) | (u >> 8)) : u;
    };
    for (size_t i = 0;; ++i) {
        uint32_t u = unitAt(i);
        if (u == 0)
            return out;
        if (u == 0xFEFF || u == 0xFFFE) {
            swap = swap || u == 0xFFFE;
            continue;
        }
        if (u >= 0xDC00 && u < 0xE000)
            return std::nullopt;
        if (u >= 0xD800 && u < 0xDC00) {
            const uint32_t low = unitAt(++i);
            if (low < 0xDC00 || low >= 0xE000)
                return std::nullopt;
            u = 0x10000 + ((u & 0x3FF) << 10) + (low & 0x3FF);
        }
        halvtest::AppendUtf8(u, out);
    }
}

// Characters of every length in runs of one script, as real text has them:
// ASCII, Greek, CJK, the whole two-byte range, three bytes below the
// surrogates, four bytes; a fifth of them blanks.
std::string RandomText(std::mt19937 &rng, size_t characters) {
    static const uint32_t kScripts[][2] = {{'a', 26},     {0x3B1, 25},         {0x4E00, 2000},
                                           {0x80, 0x780}, {0x800, 0xD800 - 0x800}, {0x10000, 0x100000}};
    std::string text;
    int script = 0;
    for (size_t i = 0; i < characters; ++i) {
        if (rng() % 12 == 0)
            script = (int)(rng() % 6);
        halvtest::AppendUtf8(rng() % 10 < 2 ? ' ' : kScripts[script][0] + rng() % kScripts[script][1], text);
    }
    return text;
}

/* Both conversions against the model: both null, or equal. */
void ExpectToUtf16MatchesModel(const std::string &text, const char *what) {
    const std::optional<Units16> expected = ModelToUtf16(text);
    const halvtest::Owned<uint16_t> got(HalvUTF8ConvertToUTF16(text.c_str()));
    EXPECT_EQ(got.p == nullptr ? std::nullopt : std::optional(Units(got.p)), expected) << what;
}

void ExpectFromUtf16MatchesModel(Units16 units, const char *what) {
    const std::optional<std::string> expected = ModelFromUtf16(units);
    units.push_back(0);
    const halvtest::Owned<char> got(HalvUTF8ConvertFromUTF16(units.data()));
    EXPECT_EQ(got.p == nullptr ? std::nullopt : std::optional<std::string>(got.p), expected) << what;
}

} // namespace

TEST(UtilUtf8Blocks, ValidTextOfEveryLengthAndMix) {
    std::mt19937 rng(12345);
    for (size_t characters = 0; characters < 300; ++characters)
        for (int round = 0; round < 4; ++round) {
            const std::string text = RandomText(rng, characters);
            ExpectToUtf16MatchesModel(text, "valid text");
            ExpectFromUtf16MatchesModel(ModelToUtf16(text).value(), "valid units");
        }
}

TEST(UtilUtf8Blocks, OneFaultAtEveryOffset) {
    // Stray continuation bytes, leads that are never valid, overlong leads,
    // a lead in place of a continuation byte.
    const unsigned char faults[] = {0x80, 0xBF, 0xC0, 0xC1, 0xE0, 0xF5, 0xF8, 0xFF, 0xC3, 0xED, 'x'};
    std::mt19937 rng(777);
    for (int round = 0; round < 12; ++round) {
        const std::string base = RandomText(rng, 60);
        for (size_t at = 0; at < base.size(); ++at) {
            for (unsigned char fault : faults) {
                std::string text = base;
                text[at] = (char)fault;
                ExpectToUtf16MatchesModel(text, "replaced byte");
            }
            ExpectToUtf16MatchesModel(base.substr(0, at), "truncated text");
            ExpectToUtf16MatchesModel(std::string(base).insert(at, 1, (char)0x80), "inserted continuation byte");
        }
    }
    // Overlong forms and the E0 / ED edges inside ASCII, at every offset.
    for (const char *sequence : {"\xC0\xAF", "\xC1\xBF", "\xE0\x80\xAF", "\xE0\x9F\xBF", "\xE0\xA0\x80",
                                 "\xED\xA0\x80", "\xED\xBF\xBF", "\xEF\xBF\xBF", "\xF0\x8F\xBF\xBF",
                                 "\xF4\x90\x80\x80", "\xC2\x80", "\xDF\xBF"})
        for (size_t at = 0; at < 40; ++at) {
            ExpectToUtf16MatchesModel(std::string(at, 'a') + sequence + std::string(40, 'b'), sequence);
            ExpectToUtf16MatchesModel("\xCE\xB1\xCE\xB2\xCE\xB3" + std::string(at, 'c') + sequence + "\xE4\xB8\x80",
                                      sequence);
        }
    // Long text cut around the internal span size, a character of each
    // length straddling the border.
    for (size_t pad = 4080; pad < 4100; ++pad)
        for (const char *tail : {"\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9F\x98\x80", "\xC3", "\xE2\x82"})
            ExpectToUtf16MatchesModel(std::string(pad, 'z') + tail + "end", tail);
}

TEST(UtilUtf8Blocks, Utf16FaultsAtEveryOffset) {
    const uint16_t specials[] = {0xD800, 0xDBFF, 0xDC00, 0xDFFF, 0xFEFF, 0xFFFE, 0xFFFF, 0x7FF, 0x800, 0x80, 0x7F};
    std::mt19937 rng(99);
    for (int round = 0; round < 10; ++round) {
        const Units16 base = ModelToUtf16(RandomText(rng, 50)).value();
        for (size_t at = 0; at < base.size(); ++at)
            for (uint16_t special : specials) {
                Units16 units = base;
                units[at] = special;
                ExpectFromUtf16MatchesModel(units, "replaced unit");
                units.insert(units.begin() + (long)at, special);
                ExpectFromUtf16MatchesModel(units, "inserted unit");
            }
    }
    // The swapped mark in front of text of every kind: everything behind it
    // reads swapped, pairs included.
    for (int round = 0; round < 50; ++round) {
        Units16 swapped = {0xFFFE};
        for (uint16_t u : ModelToUtf16(RandomText(rng, 40)).value())
            swapped.push_back((uint16_t)((u << 8) | (u >> 8)));
        ExpectFromUtf16MatchesModel(swapped, "swapped text");
    }
    // Strings of every length at every unit offset from an aligned base, so
    // the terminator lands at every place of a 16-byte block.
    alignas(16) uint16_t buffer[96];
    for (size_t offset = 0; offset < 8; ++offset)
        for (size_t length = 0; length < 64; ++length) {
            for (size_t i = 0; i < 96; ++i)
                buffer[i] = (uint16_t)('A' + i % 26);
            buffer[offset + length] = 0;
            EXPECT_EQ(halvtest::Take(HalvUTF8ConvertFromUTF16(buffer + offset)),
                      std::string(buffer + offset, buffer + offset + length)) << offset;
        }
}
