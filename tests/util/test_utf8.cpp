// UTF-8 walking and the converters to and from UTF-16 and UCS-4: every
// scalar value round trip, invalid and overlong input, surrogates, byte
// order marks, and results that grow far past the first buffer.  Then the
// UTF-16 bridge against a one-character-at-a-time model of its rules, on
// generated text with one fault placed at every offset, so that faults fall
// on every position of the converters' blocks and spans: block starts and
// ends, the look-ahead bytes, and span borders.
#include <gtest/gtest.h>

#include <cstring>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "util/support.h"

namespace {

using halvtest::AppendUtf16;
using halvtest::Owned;
using halvtest::Take;
using halvtest::Units;
using halvtest::Utf8Of;

bool IsScalar(uint32_t v) { return v < 0xD800 || (v > 0xDFFF && v <= 0x10FFFF); }

} // namespace

TEST(UtilUtf8, DecodingOneCharacter) {
    struct Case {
        const char *bytes;
        uint32_t value;
        int length; // 0: invalid
    } cases[] = {
        {"", 0, 1}, {"A", 'A', 1}, {"\x7F", 0x7F, 1}, {"\xC2\x80", 0x80, 2}, {"\xC3\xA9x", 0xE9, 2},
        {"\xDF\xBF", 0x7FF, 2}, {"\xE0\xA0\x80", 0x800, 3}, {"\xEF\xBF\xBF", 0xFFFF, 3},
        {"\xF0\x90\x80\x80", 0x10000, 4}, {"\xF4\x8F\xBF\xBF", 0x10FFFF, 4},
        // Beyond Unicode, and a surrogate, but well formed.
        {"\xF4\x90\x80\x80", 0x110000, 4}, {"\xF7\xBF\xBF\xBF", 0x1FFFFF, 4}, {"\xED\xA0\x80", 0xD800, 3},
        // Overlong NUL, 0x7F, 0x7FF, 0xFFFF.
        {"\xC0\x80", 0, 0}, {"\xC1\xBF", 0, 0}, {"\xE0\x80\x80", 0, 0}, {"\xE0\x9F\xBF", 0, 0},
        {"\xF0\x80\x80\x80", 0, 0}, {"\xF0\x8F\xBF\xBF", 0, 0},
        // Lone continuation bytes, bad leads, a five-byte lead.
        {"\x80", 0, 0}, {"\xBF", 0, 0}, {"\xFF", 0, 0}, {"\xF8\x88\x80\x80\x80", 0, 0},
        // Truncated by the NUL, a continuation missing, a new lead where a
        // continuation belongs.
        {"\xC3", 0, 0}, {"\xE2\x82", 0, 0}, {"\xF0\x9F\x98", 0, 0}, {"\xC3" "A", 0, 0}, {"\xE2\x82\xC3\xA9", 0, 0},
        {nullptr, 0, 0},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(testing::Message() << "case of value " << std::hex << c.value << " length " << c.length);
        EXPECT_EQ(HalvUTF8NextChar(c.bytes), c.value);
        EXPECT_EQ(HalvUTF8NextCharLen(c.bytes), c.length);
        EXPECT_EQ(HalvUTF8IsNextCharValid(c.bytes), c.length != 0);
        EXPECT_EQ(HalvUTF8Inc(c.bytes), c.length != 0 ? c.bytes + c.length : nullptr);
    }
}

TEST(UtilUtf8, TruncatedSequencesAreNotReadPastTheirEnd) {
    // Each truncated sequence sits at the very end of its own allocation, so
    // a read beyond the NUL shows up under the address sanitizer.
    for (const std::string bytes : {"\xC3", "\xE2\x82", "\xF0\x9F", "\xF0\x9F\x98"}) {
        Owned<char> block(static_cast<char *>(halv_internal_malloc(bytes.size() + 1)));
        std::memcpy(block.p, bytes.c_str(), bytes.size() + 1);
        const char *text = block.p;
        EXPECT_EQ(HalvUTF8NextCharLen(text), 0);
        EXPECT_EQ(HalvUTF8StrLen(text), 0);
        EXPECT_EQ(HalvUTF8StrNLen(text, 100), 0);
        Owned<uint16_t> wide(HalvUTF8ConvertToUTF16(text));
        EXPECT_EQ(wide.p, nullptr);
        Owned<uint32_t> ucs(HalvUTF8ConvertToUCS4(text));
        ASSERT_NE(ucs.p, nullptr);
        EXPECT_EQ(ucs.p[0], 0u);
    }
}

// Counting and searching are compared with a model of the rules on every
// corpus input by fuzz_utf; these are the null inputs and the edges.
TEST(UtilUtf8, CountingAndFindingCharacters) {
    EXPECT_EQ(HalvUTF8StrLen("a\x80" "bc"), 1); // an invalid sequence ends the count
    EXPECT_EQ(HalvUTF8StrLen(nullptr), -1);
    EXPECT_EQ(HalvUTF8StrNLen(nullptr, 5), -1);
    EXPECT_EQ(HalvUTF8StrNLen("\xC3\xA9", 1), 0); // a sequence must fit entirely
    // maxBytes is a real bound: no byte behind it is looked at.
    char unterminated[3] = {'a', (char)0xC3, (char)0xA9};
    EXPECT_EQ(HalvUTF8StrNLen(unterminated, 3), 2);
    EXPECT_EQ(HalvUTF8StrNLen(unterminated, 2), 1);
    // The address behind the character is given; its bytes are not
    // characters of their own.
    const char text[] = "\xE2\x82\xAC" "1\xE2\x82\xAC" "2";
    EXPECT_EQ(HalvUTF8StrChr(text, 0x20AC), text + 3);
    EXPECT_EQ(HalvUTF8StrRChr(text, 0x20AC), text + 7);
    EXPECT_EQ(HalvUTF8StrChr(text, 0x82), nullptr);
    // An invalid sequence ends the search; RChr keeps what it found first.
    const char broken[] = "xa\xFFxa";
    EXPECT_EQ(HalvUTF8StrChr(broken, 'a'), broken + 2);
    EXPECT_EQ(HalvUTF8StrRChr(broken, 'a'), broken + 2);
    EXPECT_EQ(HalvUTF8StrChr(text, 0), nullptr);
    EXPECT_EQ(HalvUTF8StrChr(nullptr, 'a'), nullptr);
    EXPECT_EQ(HalvUTF8StrRChr(nullptr, 'a'), nullptr);
}

TEST(UtilUtf8, EveryScalarValueRoundTrips) {
    // All scalar values in one string, in order: through UTF-16 and back,
    // and through UCS-4 and back, must give the same bytes.
    std::string utf8, unmarked8;
    std::vector<uint16_t> utf16, unmarked16;
    std::vector<uint32_t> ucs4;
    for (uint32_t v = 1; v <= 0x10FFFF; ++v) {
        if (!IsScalar(v))
            continue;
        utf8 += Utf8Of(v);
        AppendUtf16(utf16, v);
        ucs4.push_back(v);
        // On the way back U+FEFF and U+FFFE are byte order marks, so they
        // are taken out of both sides; every other value must come back.
        if (v != 0xFEFF && v != 0xFFFE) {
            unmarked8 += Utf8Of(v);
            AppendUtf16(unmarked16, v);
        }
    }
    unmarked16.push_back(0);
    EXPECT_EQ(HalvUTF8StrLen(utf8.c_str()), (int32_t)ucs4.size());
    Owned<uint16_t> wide(HalvUTF8ConvertToUTF16(utf8.c_str()));
    EXPECT_TRUE(Units(wide.p) == utf16);
    EXPECT_TRUE(Take(HalvUTF8ConvertFromUTF16(unmarked16.data())) == unmarked8);
    Owned<uint32_t> ucs(HalvUTF8ConvertToUCS4(utf8.c_str()));
    EXPECT_TRUE(Units(ucs.p) == ucs4);
    EXPECT_TRUE(Take(HalvUTF8ConvertFromUCS4(ucs.p)) == utf8);
}

using Units16 = std::vector<uint16_t>;
using Values32 = std::vector<uint32_t>;

/* A conversion's result as units or values, freed; nullopt for null. */
template <class T> std::optional<std::vector<T>> Read(T *result) {
    const Owned<T> owned(result);
    return result == nullptr ? std::nullopt : std::optional(Units(result));
}

/* The UTF-8 made from terminated units or values; "<null>" for null. */
std::string From16(Units16 units) {
    units.push_back(0);
    return Take(HalvUTF8ConvertFromUTF16(units.data()));
}
std::string From32(Values32 values) {
    values.push_back(0);
    return Take(HalvUTF8ConvertFromUCS4(values.data()));
}

TEST(UtilUtf8, Utf16BothWays) {
    EXPECT_EQ(Read(HalvUTF8ConvertToUTF16("")), Units16{});
    EXPECT_EQ(HalvUTF8ConvertToUTF16(nullptr), nullptr);
    EXPECT_EQ(Read(HalvUTF8ConvertToUTF16("\xF0\x9F\x98\x80")), (Units16{0xD83D, 0xDE00}));
    EXPECT_EQ(Read(HalvUTF8ConvertToUTF16("Az")), (Units16{'A', 'z'})); // no byte order mark is written
    // Well-formed surrogates pass decoding.
    EXPECT_EQ(Read(HalvUTF8ConvertToUTF16("\xED\xA0\x80")), (Units16{0xD800}));
    // Any invalid sequence, anywhere, fails the whole conversion, also deep
    // in a long text after the result has grown.
    for (const char *bad : {"\xC0\x80", "\xE0\x80\x80", "\xF0\x80\x80\x80", "\x80", "\xFF", "ok\xC3"}) {
        EXPECT_EQ(HalvUTF8ConvertToUTF16(bad), nullptr);
        const std::string late = std::string(5000, 'x') + "\xC3\xA9" + bad + "tail";
        EXPECT_EQ(HalvUTF8ConvertToUTF16(late.c_str()), nullptr);
    }
    EXPECT_EQ(HalvUTF8ConvertFromUTF16(nullptr), nullptr);
    const struct {
        Units16 units;
        const char *text;
    } cases[] = {
        {{}, ""}, {{0xD83D, 0xDE00}, "\xF0\x9F\x98\x80"},
        {{0xFEFF, 'a', 0xFEFF, 'b'}, "ab"}, // byte order marks are dropped wherever they stand
        // A swapped mark makes the rest read swapped, surrogate partners
        // too; units before it still read as they are.
        {{0xFFFE, 0x4100, 0xE900, 0x3DD8, 0x00DE}, "A\xC3\xA9\xF0\x9F\x98\x80"},
        {{'x', 0xFFFE, 0x4200}, "xB"},
        // 0xFFFF and the private use area are plain values.
        {{0x7F, 0x80, 0x7FF, 0x800, 0xFFFF, 0xE000}, "\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF\xEE\x80\x80"},
        // Lone surrogates fail.
        {{0xD800}, "<null>"}, {{0xD800, 'a'}, "<null>"}, {{0xDC00}, "<null>"}, {{'a', 0xDFFF, 'b'}, "<null>"},
        {{0xDBFF, 0xD800, 0xDC00}, "<null>"}, {{0xFFFE, 0x00D8, 0x4100}, "<null>"},
    };
    for (const auto &c : cases)
        EXPECT_EQ(From16(c.units), c.text);
}

TEST(UtilUtf8, Ucs4IsLenientInAndStrictOut) {
    EXPECT_EQ(HalvUTF8ConvertToUCS4(nullptr), nullptr);
    EXPECT_EQ(Read(HalvUTF8ConvertToUCS4("")), Values32{});
    // An invalid sequence ends the result but doesn't fail it.
    EXPECT_EQ(Read(HalvUTF8ConvertToUCS4("a\xC3\xA9\xC0\x80zz")), (Values32{'a', 0xE9}));
    EXPECT_EQ(Read(HalvUTF8ConvertToUCS4("\xF4\x90\x80\x80")), (Values32{0x110000}));
    EXPECT_EQ(HalvUTF8ConvertFromUCS4(nullptr), nullptr);
    EXPECT_EQ(From32({0x10FFFF}), "\xF4\x8F\xBF\xBF");
    EXPECT_EQ(From32({'a', 0x110000}), "<null>");
    EXPECT_EQ(From32({0xFFFFFFFFu}), "<null>");
    EXPECT_EQ(From32({0xDC00}), "\xED\xB0\x80"); // surrogate values pass on this road
    // Long enough to double the result many times, with every length of
    // sequence at every offset against the batch boundaries.
    std::string text;
    Values32 values;
    const uint32_t sample[] = {'a', 0xE9, 0x20AC, 0x1F600, 'Z', 0x3042, 0x10FFFF, 0x7FF, 0x800};
    for (int i = 0; i < 20000; ++i) {
        values.push_back(sample[(i * 7 + i / 9) % 9]);
        text += Utf8Of(values.back());
    }
    Owned<uint32_t> ucs(HalvUTF8ConvertToUCS4(text.c_str()));
    EXPECT_TRUE(Units(ucs.p) == values);
    EXPECT_TRUE(Take(HalvUTF8ConvertFromUCS4(ucs.p)) == text);
    Owned<uint16_t> wide(HalvUTF8ConvertToUTF16(text.c_str()));
    EXPECT_TRUE(Take(HalvUTF8ConvertFromUTF16(wide.p)) == text);
}

namespace {

// To UTF-16 by the library's own one-character reader, checked case by case
// above.
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
            ExpectToUtf16MatchesModel(std::string(base).insert(at, 1, (char)0x80), "inserted byte 0x80");
        }
    }
    // Overlong forms and the E0 / ED edges inside ASCII, at every offset.
    for (const char *sequence : {"\xC0\xAF", "\xC1\xBF", "\xE0\x80\xAF", "\xE0\x9F\xBF", "\xE0\xA0\x80",
                                 "\xED\xA0\x80", "\xED\xBF\xBF", "\xEF\xBF\xBF", "\xF0\x8F\xBF\xBF",
                                 "\xF4\x90\x80\x80", "\xC2\x80", "\xDF\xBF"})
        for (size_t at = 0; at < 40; ++at) {
            ExpectToUtf16MatchesModel(std::string(at, 'a') + sequence + std::string(40, 'b'), sequence);
            const std::string greek = "\xCE\xB1\xCE\xB2\xCE\xB3" + std::string(at, 'c') + sequence;
            ExpectToUtf16MatchesModel(greek + "\xE4\xB8\x80", sequence);
        }
    // Long text cut around the internal span size, a character of each
    // length straddling the border.
    for (size_t pad = 4080; pad < 4100; ++pad)
        for (const char *tail : {"\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9F\x98\x80", "\xC3", "\xE2\x82"})
            ExpectToUtf16MatchesModel(std::string(pad, 'z') + tail + "end", tail);
}

TEST(UtilUtf8Blocks, Utf16FaultsAtEveryOffset) {
    const uint16_t oddUnits[] = {0xD800, 0xDBFF, 0xDC00, 0xDFFF, 0xFEFF, 0xFFFE,
                                 0xFFFF, 0x7FF,  0x800,  0x80,   0x7F};
    std::mt19937 rng(99);
    for (int round = 0; round < 10; ++round) {
        const Units16 base = ModelToUtf16(RandomText(rng, 50)).value();
        for (size_t at = 0; at < base.size(); ++at)
            for (uint16_t odd : oddUnits) {
                Units16 units = base;
                units[at] = odd;
                ExpectFromUtf16MatchesModel(units, "replaced unit");
                units.insert(units.begin() + (long)at, odd);
                ExpectFromUtf16MatchesModel(units, "inserted unit");
            }
    }
    // The swapped mark in front of text of every kind: everything behind it
    // reads swapped, pairs included.
    for (int round = 0; round < 50; ++round) {
        Units16 swapped = {0xFFFE};
        const Units16 units = ModelToUtf16(RandomText(rng, 40)).value();
        for (uint16_t u : units)
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
