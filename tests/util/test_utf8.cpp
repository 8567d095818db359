// UTF-8 walking and the converters to and from UTF-16 and UCS-4: every
// scalar value round trip, invalid and overlong input, surrogates, byte
// order marks, and results that grow far past the first buffer.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "dpk_hvsup.h"

namespace {

template <typename T>
struct Owned {
    T *p;
    explicit Owned(T *value) : p(value) {}
    ~Owned() { halv_internal_free(p); }
    Owned(const Owned &) = delete;
    Owned &operator=(const Owned &) = delete;
};

std::string Utf8Of(uint32_t v) {
    std::string s;
    if (v < 0x80) {
        s += (char)v;
    } else if (v < 0x800) {
        s += (char)(0xC0 | (v >> 6));
        s += (char)(0x80 | (v & 0x3F));
    } else if (v < 0x10000) {
        s += (char)(0xE0 | (v >> 12));
        s += (char)(0x80 | ((v >> 6) & 0x3F));
        s += (char)(0x80 | (v & 0x3F));
    } else {
        s += (char)(0xF0 | (v >> 18));
        s += (char)(0x80 | ((v >> 12) & 0x3F));
        s += (char)(0x80 | ((v >> 6) & 0x3F));
        s += (char)(0x80 | (v & 0x3F));
    }
    return s;
}

void AppendUtf16(std::vector<uint16_t> &units, uint32_t v) {
    if (v < 0x10000) {
        units.push_back((uint16_t)v);
    } else {
        units.push_back((uint16_t)(0xD800 + ((v - 0x10000) >> 10)));
        units.push_back((uint16_t)(0xDC00 + ((v - 0x10000) & 0x3FF)));
    }
}

std::vector<uint16_t> Units(const uint16_t *wide) {
    std::vector<uint16_t> out;
    if (wide != nullptr)
        for (; *wide != 0; ++wide)
            out.push_back(*wide);
    return out;
}

std::vector<uint32_t> Values(const uint32_t *ucs) {
    std::vector<uint32_t> out;
    if (ucs != nullptr)
        for (; *ucs != 0; ++ucs)
            out.push_back(*ucs);
    return out;
}

bool IsScalar(uint32_t v) { return v < 0xD800 || (v > 0xDFFF && v <= 0x10FFFF); }

} // namespace

TEST(UtilUtf8, DecodingOneCharacter) {
    struct Case {
        const char *bytes;
        uint32_t value;
        int length; // 0: invalid
    } cases[] = {
        {"", 0, 1},
        {"A", 'A', 1},
        {"\x7F", 0x7F, 1},
        {"\xC2\x80", 0x80, 2},
        {"\xC3\xA9x", 0xE9, 2},
        {"\xDF\xBF", 0x7FF, 2},
        {"\xE0\xA0\x80", 0x800, 3},
        {"\xEF\xBF\xBF", 0xFFFF, 3},
        {"\xF0\x90\x80\x80", 0x10000, 4},
        {"\xF4\x8F\xBF\xBF", 0x10FFFF, 4},
        {"\xF4\x90\x80\x80", 0x110000, 4}, // beyond Unicode, but well formed
        {"\xF7\xBF\xBF\xBF", 0x1FFFFF, 4},
        {"\xED\xA0\x80", 0xD800, 3}, // a surrogate, but well formed
        {"\xC0\x80", 0, 0},          // overlong NUL
        {"\xC1\xBF", 0, 0},          // overlong 0x7F
        {"\xE0\x80\x80", 0, 0},      // overlong
        {"\xE0\x9F\xBF", 0, 0},      // overlong 0x7FF
        {"\xF0\x80\x80\x80", 0, 0},  // overlong
        {"\xF0\x8F\xBF\xBF", 0, 0},  // overlong 0xFFFF
        {"\x80", 0, 0},              // lone continuation byte
        {"\xBF", 0, 0},
        {"\xFF", 0, 0},
        {"\xF8\x88\x80\x80\x80", 0, 0}, // five-byte lead
        {"\xC3", 0, 0},                 // truncated by the NUL
        {"\xE2\x82", 0, 0},
        {"\xF0\x9F\x98", 0, 0},
        {"\xC3" "A", 0, 0},             // continuation missing
        {"\xE2\x82\xC3\xA9", 0, 0},     // new lead where a continuation belongs
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(testing::Message() << "case of value " << std::hex << c.value << " length " << c.length);
        EXPECT_EQ(HalvUTF8NextChar(c.bytes), c.value);
        EXPECT_EQ(HalvUTF8NextCharLen(c.bytes), c.length);
        EXPECT_EQ(HalvUTF8IsNextCharValid(c.bytes), c.length != 0);
        EXPECT_EQ(HalvUTF8Inc(c.bytes), c.length != 0 ? c.bytes + c.length : nullptr);
    }
    EXPECT_EQ(HalvUTF8NextChar(nullptr), 0u);
    EXPECT_EQ(HalvUTF8NextCharLen(nullptr), 0);
    EXPECT_EQ(HalvUTF8IsNextCharValid(nullptr), 0);
    EXPECT_EQ(HalvUTF8Inc(nullptr), nullptr);
}

TEST(UtilUtf8, TruncatedSequencesAreNotReadPastTheirEnd) {
    // Each truncated sequence sits at the very end of its own allocation, so
    // a read beyond the NUL shows up under the address sanitizer.
    const std::vector<std::vector<unsigned char>> truncated = {
        {0xC3}, {0xE2, 0x82}, {0xF0, 0x9F}, {0xF0, 0x9F, 0x98}};
    for (const auto &bytes : truncated) {
        Owned<char> block(static_cast<char *>(halv_internal_malloc(bytes.size() + 1)));
        std::memcpy(block.p, bytes.data(), bytes.size());
        block.p[bytes.size()] = '\0';
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

TEST(UtilUtf8, CountingCharacters) {
    EXPECT_EQ(HalvUTF8StrLen("a\xC3\xA9" "b"), 3);
    EXPECT_EQ(HalvUTF8StrLen("a\x80" "bc"), 1); // stops at the invalid byte
    EXPECT_EQ(HalvUTF8StrLen(""), 0);
    EXPECT_EQ(HalvUTF8StrLen("\xF0\x9F\x98\x80\xE2\x82\xAC"), 2);
    EXPECT_EQ(HalvUTF8StrLen(nullptr), -1);

    EXPECT_EQ(HalvUTF8StrNLen("\xC3\xA9", 1), 0); // the sequence doesn't fit
    EXPECT_EQ(HalvUTF8StrNLen("\xC3\xA9", 2), 1);
    EXPECT_EQ(HalvUTF8StrNLen("a\xC3\xA9" "b", 3), 2);
    EXPECT_EQ(HalvUTF8StrNLen("a\xC3\xA9" "b", 2), 1);
    EXPECT_EQ(HalvUTF8StrNLen("ab", 10), 2);
    EXPECT_EQ(HalvUTF8StrNLen("ab", 0), 0);
    EXPECT_EQ(HalvUTF8StrNLen("a\xFF" "b", 10), 1);
    EXPECT_EQ(HalvUTF8StrNLen(nullptr, 5), -1);

    // maxBytes is a real bound: no byte behind it is looked at.
    char unterminated[3] = {'a', (char)0xC3, (char)0xA9};
    EXPECT_EQ(HalvUTF8StrNLen(unterminated, 3), 2);
    EXPECT_EQ(HalvUTF8StrNLen(unterminated, 2), 1);
}

TEST(UtilUtf8, FindingCharactersGivesTheAddressBehindThem) {
    const char abc[] = "abc";
    EXPECT_EQ(HalvUTF8StrChr(abc, 'b'), abc + 2);
    EXPECT_EQ(HalvUTF8StrRChr(abc, 'b'), abc + 2);
    EXPECT_EQ(HalvUTF8StrChr(abc, 'z'), nullptr);

    const char text[] = "\xE2\x82\xAC" "1\xE2\x82\xAC" "2";
    EXPECT_EQ(HalvUTF8StrChr(text, 0x20AC), text + 3);
    EXPECT_EQ(HalvUTF8StrRChr(text, 0x20AC), text + 7);
    EXPECT_EQ(HalvUTF8StrChr(text, '2'), text + 8);
    // The bytes of a character are not characters of their own.
    EXPECT_EQ(HalvUTF8StrChr(text, 0x82), nullptr);

    // An invalid sequence ends the search; RChr keeps what it found first.
    const char broken[] = "xa\xFFxa";
    EXPECT_EQ(HalvUTF8StrChr(broken, 'a'), broken + 2);
    EXPECT_EQ(HalvUTF8StrRChr(broken, 'a'), broken + 2);
    const char brokenEarly[] = "x\xFF" "a";
    EXPECT_EQ(HalvUTF8StrChr(brokenEarly, 'a'), nullptr);
    EXPECT_EQ(HalvUTF8StrRChr(brokenEarly, 'a'), nullptr);

    EXPECT_EQ(HalvUTF8StrChr(abc, 0), nullptr);
    EXPECT_EQ(HalvUTF8StrChr(nullptr, 'a'), nullptr);
    EXPECT_EQ(HalvUTF8StrRChr(nullptr, 'a'), nullptr);
}

TEST(UtilUtf8, EveryScalarValueRoundTrips) {
    // All scalar values in one string, in order: through UTF-16 and back,
    // and through UCS-4 and back, must give the same bytes.
    std::string utf8;
    std::vector<uint16_t> utf16;
    std::vector<uint32_t> ucs4;
    for (uint32_t v = 1; v <= 0x10FFFF; ++v) {
        if (!IsScalar(v))
            continue;
        utf8 += Utf8Of(v);
        AppendUtf16(utf16, v);
        ucs4.push_back(v);
    }
    EXPECT_EQ(HalvUTF8StrLen(utf8.c_str()), (int32_t)ucs4.size());

    Owned<uint16_t> wide(HalvUTF8ConvertToUTF16(utf8.c_str()));
    ASSERT_NE(wide.p, nullptr);
    EXPECT_TRUE(Units(wide.p) == utf16);

    // On the way back U+FEFF and U+FFFE are byte order marks, so they are
    // taken out of both sides; every other value must come back.
    std::vector<uint16_t> unmarked;
    for (uint16_t unit : utf16)
        if (unit != 0xFEFF && unit != 0xFFFE)
            unmarked.push_back(unit);
    unmarked.push_back(0);
    std::string expected;
    for (uint32_t v : ucs4)
        if (v != 0xFEFF && v != 0xFFFE)
            expected += Utf8Of(v);
    Owned<char> back(HalvUTF8ConvertFromUTF16(unmarked.data()));
    ASSERT_NE(back.p, nullptr);
    EXPECT_TRUE(expected == back.p);

    Owned<uint32_t> ucs(HalvUTF8ConvertToUCS4(utf8.c_str()));
    ASSERT_NE(ucs.p, nullptr);
    EXPECT_TRUE(Values(ucs.p) == ucs4);
    Owned<char> again(HalvUTF8ConvertFromUCS4(ucs.p));
    ASSERT_NE(again.p, nullptr);
    EXPECT_TRUE(utf8 == again.p);

    // One value at a time as well: short strings stay within the first
    // buffer, where the long one above exercises its growth.
    for (uint32_t v = 1; v <= 0x10FFFF; v += (v < 0x3000 ? 1 : 97)) {
        if (!IsScalar(v) || v == 0xFEFF || v == 0xFFFE)
            continue;
        std::string one = Utf8Of(v);
        Owned<uint16_t> w(HalvUTF8ConvertToUTF16(one.c_str()));
        Owned<char> b(HalvUTF8ConvertFromUTF16(w.p));
        ASSERT_NE(b.p, nullptr) << v;
        ASSERT_EQ(one, b.p) << v;
        ASSERT_EQ(HalvUTF8NextChar(one.c_str()), v);
    }
}

TEST(UtilUtf8, ToUtf16) {
    Owned<uint16_t> empty(HalvUTF8ConvertToUTF16(""));
    ASSERT_NE(empty.p, nullptr);
    EXPECT_EQ(empty.p[0], 0);
    EXPECT_EQ(HalvUTF8ConvertToUTF16(nullptr), nullptr);

    Owned<uint16_t> smile(HalvUTF8ConvertToUTF16("\xF0\x9F\x98\x80"));
    ASSERT_NE(smile.p, nullptr);
    EXPECT_EQ(Units(smile.p), (std::vector<uint16_t>{0xD83D, 0xDE00}));

    // No byte order mark is written.
    Owned<uint16_t> plain(HalvUTF8ConvertToUTF16("Az"));
    EXPECT_EQ(Units(plain.p), (std::vector<uint16_t>{'A', 'z'}));

    // Well-formed surrogates and values past 0x10FFFF pass decoding.
    Owned<uint16_t> surrogate(HalvUTF8ConvertToUTF16("\xED\xA0\x80"));
    ASSERT_NE(surrogate.p, nullptr);
    EXPECT_EQ(Units(surrogate.p), (std::vector<uint16_t>{0xD800}));

    // Any invalid sequence, anywhere, fails the whole conversion, also deep
    // in a long text after the result has grown.
    for (const char *bad : {"\xC0\x80", "\xE0\x80\x80", "\xF0\x80\x80\x80", "\x80", "\xFF", "ok\xC3"}) {
        EXPECT_EQ(HalvUTF8ConvertToUTF16(bad), nullptr);
        std::string late = std::string(5000, 'x') + "\xC3\xA9" + bad + "tail";
        EXPECT_EQ(HalvUTF8ConvertToUTF16(late.c_str()), nullptr);
    }
}

TEST(UtilUtf8, FromUtf16) {
    EXPECT_EQ(HalvUTF8ConvertFromUTF16(nullptr), nullptr);
    const uint16_t empty[] = {0};
    Owned<char> none(HalvUTF8ConvertFromUTF16(empty));
    ASSERT_NE(none.p, nullptr);
    EXPECT_STREQ(none.p, "");

    const uint16_t pair[] = {0xD83D, 0xDE00, 0};
    Owned<char> smile(HalvUTF8ConvertFromUTF16(pair));
    EXPECT_STREQ(smile.p, "\xF0\x9F\x98\x80");

    // Byte order marks are dropped wherever they stand.
    const uint16_t marks[] = {0xFEFF, 'a', 0xFEFF, 'b', 0};
    Owned<char> dropped(HalvUTF8ConvertFromUTF16(marks));
    EXPECT_STREQ(dropped.p, "ab");

    // A swapped mark makes the rest read swapped, surrogate partners too.
    const uint16_t swapped[] = {0xFFFE, 0x4100, 0xE900, 0x3DD8, 0x00DE, 0};
    Owned<char> turned(HalvUTF8ConvertFromUTF16(swapped));
    EXPECT_STREQ(turned.p, "A\xC3\xA9\xF0\x9F\x98\x80");
    // Units before the swapped mark still read as they are.
    const uint16_t late[] = {'x', 0xFFFE, 0x4200, 0};
    Owned<char> lateSwap(HalvUTF8ConvertFromUTF16(late));
    EXPECT_STREQ(lateSwap.p, "xB");

    // Lone surrogates fail.
    const std::vector<std::vector<uint16_t>> lone = {
        {0xD800, 0},       {0xD800, 'a', 0}, {0xDC00, 0},           {'a', 0xDFFF, 'b', 0},
        {0xDBFF, 0xD800, 0xDC00, 0}, {0xFFFE, 0x00D8, 0x4100, 0}};
    for (const auto &units : lone)
        EXPECT_EQ(HalvUTF8ConvertFromUTF16(units.data()), nullptr);

    // 0xFFFF and the private use area are plain values.
    const uint16_t edges[] = {0x7F, 0x80, 0x7FF, 0x800, 0xFFFF, 0xE000, 0};
    Owned<char> edge(HalvUTF8ConvertFromUTF16(edges));
    EXPECT_STREQ(edge.p, "\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF\xEE\x80\x80");
}

TEST(UtilUtf8, Ucs4IsLenientInAndStrictOut) {
    EXPECT_EQ(HalvUTF8ConvertToUCS4(nullptr), nullptr);
    Owned<uint32_t> empty(HalvUTF8ConvertToUCS4(""));
    ASSERT_NE(empty.p, nullptr);
    EXPECT_EQ(empty.p[0], 0u);

    // An invalid sequence ends the result but doesn't fail it.
    Owned<uint32_t> cut(HalvUTF8ConvertToUCS4("a\xC3\xA9\xC0\x80zz"));
    ASSERT_NE(cut.p, nullptr);
    EXPECT_EQ(Values(cut.p), (std::vector<uint32_t>{'a', 0xE9}));
    Owned<uint32_t> beyond(HalvUTF8ConvertToUCS4("\xF4\x90\x80\x80"));
    EXPECT_EQ(Values(beyond.p), (std::vector<uint32_t>{0x110000}));

    EXPECT_EQ(HalvUTF8ConvertFromUCS4(nullptr), nullptr);
    const uint32_t top[] = {0x10FFFF, 0};
    Owned<char> four(HalvUTF8ConvertFromUCS4(top));
    ASSERT_NE(four.p, nullptr);
    EXPECT_STREQ(four.p, "\xF4\x8F\xBF\xBF");
    const uint32_t tooBig[] = {'a', 0x110000, 0};
    EXPECT_EQ(HalvUTF8ConvertFromUCS4(tooBig), nullptr);
    const uint32_t huge[] = {0xFFFFFFFFu, 0};
    EXPECT_EQ(HalvUTF8ConvertFromUCS4(huge), nullptr);
    // Surrogate values pass on this road.
    const uint32_t surrogate[] = {0xDC00, 0};
    Owned<char> s(HalvUTF8ConvertFromUCS4(surrogate));
    EXPECT_STREQ(s.p, "\xED\xB0\x80");
}

TEST(UtilUtf8, LongMixedTextGrowsTheResult) {
    // Long enough to double the result many times, with every length of
    // sequence at every offset against the batch boundaries.
    std::string text;
    std::vector<uint32_t> values;
    const uint32_t sample[] = {'a', 0xE9, 0x20AC, 0x1F600, 'Z', 0x3042, 0x10FFFF, 0x7FF, 0x800};
    for (int i = 0; i < 20000; ++i) {
        uint32_t v = sample[(i * 7 + i / 9) % 9];
        text += Utf8Of(v);
        values.push_back(v);
    }
    Owned<uint32_t> ucs(HalvUTF8ConvertToUCS4(text.c_str()));
    EXPECT_TRUE(Values(ucs.p) == values);
    Owned<uint16_t> wide(HalvUTF8ConvertToUTF16(text.c_str()));
    ASSERT_NE(wide.p, nullptr);
    Owned<char> back(HalvUTF8ConvertFromUTF16(wide.p));
    ASSERT_NE(back.p, nullptr);
    EXPECT_TRUE(text == back.p);
    Owned<char> again(HalvUTF8ConvertFromUCS4(ucs.p));
    EXPECT_TRUE(text == again.p);
}
