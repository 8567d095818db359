// The UTF-16 bridge against a one-character-at-a-time model of its rules,
// on generated text with one fault placed at every offset, so that faults
// fall on every position of the converters' blocks and spans: block
// starts and ends, the look-ahead bytes, and span borders.
#include <gtest/gtest.h>

#include <optional>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

#include "util/support.h"

namespace {

// ---- The model ------------------------------------------------------------

// The bulk converters against the library's own one-character reader,
// which test_utf8 checks case by case.
std::optional<std::vector<uint16_t>> ModelToUtf16(const std::string &text) {
    std::vector<uint16_t> units;
    for (const char *p = text.c_str();;) {
        const uint32_t value = HalvUTF8NextChar(p);
        const int length = HalvUTF8NextCharLen(p);
        if (length == 0)
            return std::nullopt;
        if (value == 0)
            return units;
        p += length;
        halvtest::AppendUtf16(units, value);
    }
}

std::optional<std::string> ModelFromUtf16(const std::vector<uint16_t> &units) {
    std::string out;
    bool swap = false;
    auto unitAt = [&](size_t i) -> uint32_t {
        uint16_t u = i < units.size() ? units[i] : 0;
        return swap ? (uint16_t)((u << 8) | (u >> 8)) : u;
    };
    for (size_t i = 0;; ++i) {
        uint32_t u = unitAt(i);
        if (u == 0)
            return out;
        if (u == 0xFEFF)
            continue;
        if (u == 0xFFFE) {
            swap = true;
            continue;
        }
        if (u >= 0xDC00 && u < 0xE000)
            return std::nullopt;
        if (u >= 0xD800 && u < 0xDC00) {
            uint32_t low = unitAt(i + 1);
            if (low < 0xDC00 || low >= 0xE000)
                return std::nullopt;
            ++i;
            u = 0x10000 + ((u & 0x3FF) << 10) + (low & 0x3FF);
        }
        halvtest::AppendUtf8(u, out);
    }
}

// ---- Text generation ---------------------------------------------------------

// Characters of every length, weighted towards runs as real text has them.
uint32_t RandomCharacter(std::mt19937 &rng, int script) {
    std::uniform_int_distribution<int> pick(0, 9);
    if (pick(rng) < 2)
        return ' ';
    switch (script) {
    case 0: return 'a' + rng() % 26;
    case 1: return 0x3B1 + rng() % 25;   // Greek, two bytes
    case 2: return 0x4E00 + rng() % 2000; // CJK, three bytes
    case 3: return 0x80 + rng() % 0x780;  // the whole two-byte range
    case 4: return 0x800 + rng() % 0xF000 % (0xD800 - 0x800); // three bytes, below the surrogates
    default: return 0x10000 + rng() % 0x100000; // four bytes
    }
}

std::string RandomText(std::mt19937 &rng, size_t characters) {
    std::string text;
    int script = 0;
    for (size_t i = 0; i < characters; ++i) {
        if (rng() % 12 == 0)
            script = (int)(rng() % 6);
        halvtest::AppendUtf8(RandomCharacter(rng, script), text);
    }
    return text;
}

using halvtest::Units;

/* The converter's result against the model's: both null, or equal. */
template <class Got, class Want> void ExpectSame(Got *got, const std::optional<Want> &expected, const char *what) {
    if (!expected) {
        EXPECT_EQ(got, nullptr) << what;
    } else if (got == nullptr) {
        ADD_FAILURE() << what << ": null result";
    } else if constexpr (std::is_same_v<Got, char>) {
        EXPECT_TRUE(*expected == got) << what;
    } else {
        EXPECT_TRUE(Units(got) == *expected) << what;
    }
    halv_internal_free(got);
}

void ExpectToUtf16MatchesModel(const std::string &text, const char *what) {
    ExpectSame(HalvUTF8ConvertToUTF16(text.c_str()), ModelToUtf16(text), what);
}

void ExpectFromUtf16MatchesModel(std::vector<uint16_t> units, const char *what) {
    std::optional<std::string> expected = ModelFromUtf16(units);
    units.push_back(0);
    ExpectSame(HalvUTF8ConvertFromUTF16(units.data()), expected, what);
}

} // namespace

TEST(UtilUtf8Blocks, ValidTextOfEveryLengthAndMix) {
    std::mt19937 rng(12345);
    for (size_t characters = 0; characters < 300; ++characters) {
        for (int round = 0; round < 4; ++round) {
            std::string text = RandomText(rng, characters);
            ExpectToUtf16MatchesModel(text, "valid text");
            std::optional<std::vector<uint16_t>> units = ModelToUtf16(text);
            ASSERT_TRUE(units.has_value());
            ExpectFromUtf16MatchesModel(*units, "valid units");
        }
    }
}

TEST(UtilUtf8Blocks, OneFaultAtEveryOffset) {
    // Bytes that break a sequence where they land: stray continuation bytes,
    // leads that are never valid, overlong leads, a lead in place of a
    // continuation byte.
    const unsigned char faults[] = {0x80, 0xBF, 0xC0, 0xC1, 0xE0, 0xF5, 0xF8, 0xFF, 0xC3, 0xED, 'x'};
    std::mt19937 rng(777);
    for (int round = 0; round < 12; ++round) {
        std::string base = RandomText(rng, 60);
        for (size_t at = 0; at < base.size(); ++at) {
            for (unsigned char fault : faults) {
                std::string text = base;
                text[at] = (char)fault;
                ExpectToUtf16MatchesModel(text, "replaced byte");
            }
            std::string cut = base.substr(0, at); // truncated anywhere
            ExpectToUtf16MatchesModel(cut, "truncated text");
            std::string inserted = base;
            inserted.insert(at, 1, (char)0x80);
            ExpectToUtf16MatchesModel(inserted, "inserted continuation byte");
        }
    }
    // Overlong forms and the E0 / ED edges inside ASCII, at every offset.
    const char *sequences[] = {"\xC0\xAF", "\xC1\xBF", "\xE0\x80\xAF", "\xE0\x9F\xBF", "\xE0\xA0\x80",
                               "\xED\xA0\x80", "\xED\xBF\xBF", "\xEF\xBF\xBF", "\xF0\x8F\xBF\xBF", "\xF4\x90\x80\x80",
                               "\xC2\x80", "\xDF\xBF"};
    for (const char *sequence : sequences) {
        for (size_t at = 0; at < 40; ++at) {
            std::string text = std::string(at, 'a') + sequence + std::string(40, 'b');
            ExpectToUtf16MatchesModel(text, sequence);
            std::string greek = std::string("\xCE\xB1\xCE\xB2\xCE\xB3") + std::string(at, 'c') + sequence + "\xE4\xB8\x80";
            ExpectToUtf16MatchesModel(greek, sequence);
        }
    }
}

TEST(UtilUtf8Blocks, SpanBordersInLongText) {
    // Long text cut around the internal span size with a character of each
    // length straddling the border.
    for (size_t pad = 4080; pad < 4100; ++pad) {
        for (const char *tail : {"\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9F\x98\x80", "\xC3", "\xE2\x82"}) {
            std::string text = std::string(pad, 'z') + tail + "end";
            ExpectToUtf16MatchesModel(text, tail);
        }
    }
}

TEST(UtilUtf8Blocks, Utf16FaultsAtEveryOffset) {
    const uint16_t specials[] = {0xD800, 0xDBFF, 0xDC00, 0xDFFF, 0xFEFF, 0xFFFE, 0xFFFF, 0x7FF, 0x800, 0x80, 0x7F};
    std::mt19937 rng(99);
    for (int round = 0; round < 10; ++round) {
        std::optional<std::vector<uint16_t>> base = ModelToUtf16(RandomText(rng, 50));
        ASSERT_TRUE(base.has_value());
        for (size_t at = 0; at < base->size(); ++at) {
            for (uint16_t special : specials) {
                std::vector<uint16_t> units = *base;
                units[at] = special;
                ExpectFromUtf16MatchesModel(units, "replaced unit");
                units.insert(units.begin() + (long)at, special);
                ExpectFromUtf16MatchesModel(units, "inserted unit");
            }
        }
    }
    // The swapped mark in front of text of every kind: everything behind it
    // reads swapped, pairs included.
    for (int round = 0; round < 50; ++round) {
        std::optional<std::vector<uint16_t>> units = ModelToUtf16(RandomText(rng, 40));
        std::vector<uint16_t> swapped = {0xFFFE};
        for (uint16_t u : *units)
            swapped.push_back((uint16_t)((u << 8) | (u >> 8)));
        ExpectFromUtf16MatchesModel(swapped, "swapped text");
    }
}

TEST(UtilUtf8Blocks, Utf16TerminatorAtEveryAlignment) {
    // Strings of every length starting at every unit offset from an aligned
    // base, so the terminator lands at every place of a 16-byte block.
    alignas(16) uint16_t buffer[96];
    for (size_t offset = 0; offset < 8; ++offset) {
        for (size_t length = 0; length < 64; ++length) {
            for (size_t i = 0; i < 96; ++i)
                buffer[i] = (uint16_t)('A' + i % 26);
            buffer[offset + length] = 0;
            char *utf8 = HalvUTF8ConvertFromUTF16(buffer + offset);
            ASSERT_NE(utf8, nullptr);
            EXPECT_EQ(std::string(utf8).size(), length) << offset << " " << length;
            halv_internal_free(utf8);
        }
    }
}
