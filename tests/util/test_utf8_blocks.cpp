// The UTF-16 bridge against a plain one-character-at-a-time model of its
// rules, on generated text with one fault placed at every offset, so that
// faults fall on every position of the converters' blocks and spans: block
// starts and ends, the look-ahead bytes, and span borders.
#include <gtest/gtest.h>

#include <optional>
#include <random>
#include <string>
#include <vector>

#include "dpk_hvsup.h"

namespace {

// ---- The model ------------------------------------------------------------

// Decodes one character: {value, length}, length 0 when invalid.
std::pair<uint32_t, size_t> ModelDecode(const unsigned char *p) {
    unsigned char b = p[0];
    if (b < 0x80)
        return {b, 1};
    size_t length = b >= 0xF8 ? 0 : b >= 0xF0 ? 4 : b >= 0xE0 ? 3 : b >= 0xC0 ? 2 : 0;
    if (length == 0)
        return {0, 0};
    uint32_t value = b & (0x7F >> length);
    for (size_t i = 1; i < length; ++i) {
        if ((p[i] & 0xC0) != 0x80)
            return {0, 0};
        value = (value << 6) | (p[i] & 0x3F);
    }
    const uint32_t least[] = {0, 0, 0x80, 0x800, 0x10000};
    if (value < least[length])
        return {0, 0};
    return {value, length};
}

std::optional<std::vector<uint16_t>> ModelToUtf16(const std::string &text) {
    std::vector<uint16_t> units;
    auto *p = reinterpret_cast<const unsigned char *>(text.c_str());
    for (;;) {
        auto [value, length] = ModelDecode(p);
        if (length == 0)
            return std::nullopt;
        if (value == 0)
            return units;
        p += length;
        if (value < 0x10000) {
            units.push_back((uint16_t)value);
        } else {
            units.push_back((uint16_t)(0xD800 | (((value - 0x10000) >> 10) & 0x3FF)));
            units.push_back((uint16_t)(0xDC00 | ((value - 0x10000) & 0x3FF)));
        }
    }
}

void ModelEncode(uint32_t v, std::string &out) {
    if (v < 0x80) {
        out += (char)v;
    } else if (v < 0x800) {
        out += (char)(0xC0 | (v >> 6));
        out += (char)(0x80 | (v & 0x3F));
    } else if (v < 0x10000) {
        out += (char)(0xE0 | (v >> 12));
        out += (char)(0x80 | ((v >> 6) & 0x3F));
        out += (char)(0x80 | (v & 0x3F));
    } else {
        out += (char)(0xF0 | (v >> 18));
        out += (char)(0x80 | ((v >> 12) & 0x3F));
        out += (char)(0x80 | ((v >> 6) & 0x3F));
        out += (char)(0x80 | (v & 0x3F));
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
        ModelEncode(u, out);
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
        ModelEncode(RandomCharacter(rng, script), text);
    }
    return text;
}

std::vector<uint16_t> Units(const uint16_t *wide) {
    std::vector<uint16_t> out;
    for (; *wide != 0; ++wide)
        out.push_back(*wide);
    return out;
}

void ExpectToUtf16MatchesModel(const std::string &text, const char *what) {
    std::optional<std::vector<uint16_t>> expected = ModelToUtf16(text);
    uint16_t *wide = HalvUTF8ConvertToUTF16(text.c_str());
    if (!expected) {
        EXPECT_EQ(wide, nullptr) << what;
    } else {
        EXPECT_NE(wide, nullptr) << what;
        if (wide != nullptr) {
            EXPECT_TRUE(Units(wide) == *expected) << what;
        }
    }
    halv_internal_free(wide);
}

void ExpectFromUtf16MatchesModel(const std::vector<uint16_t> &units, const char *what) {
    std::vector<uint16_t> terminated = units;
    terminated.push_back(0);
    std::optional<std::string> expected = ModelFromUtf16(units);
    char *utf8 = HalvUTF8ConvertFromUTF16(terminated.data());
    if (!expected) {
        EXPECT_EQ(utf8, nullptr) << what;
    } else {
        EXPECT_NE(utf8, nullptr) << what;
        if (utf8 != nullptr) {
            EXPECT_TRUE(*expected == utf8) << what;
        }
    }
    halv_internal_free(utf8);
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
