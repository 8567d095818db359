// Sample values as text on streams: single tokens, whole chunks of each
// width, and mixed widths part by part.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

#include "dpk_hvsup.h"
#include "headers/support.h"

using hdr_test::Sink;
using hdr_test::Source;

namespace {

/* "result:value" of n reads from text, one after the other; a value a
 * read leaves alone shows the one before it. */
template <class T>
std::string Reads(int (*read)(HalvIO *, T *), const std::string &text, int n, size_t failAt = SIZE_MAX) {
    Source in(text, failAt);
    std::ostringstream s;
    s.precision(9); // enough to tell floats apart
    T v = 5;
    for (int i = 0; i < n; ++i) {
        int result = read(in.io(), &v);
        s << (i ? " " : "") << result << ":" << v;
    }
    return s.str();
}

TEST(AsciiValues, TokensAndTheirResults) {
    // No number leaves the value; 0x04 before a token is the end, behind
    // one it ends the token and is consumed; so does the stream's end.
    EXPECT_EQ(Reads(__HVHdrReadAsciiInt, "  12\t\n-3 4294967295 x1 \x04 7\x04" "8", 8),
              "0:12 0:4294967293 0:4294967295 1:4294967295 -1:4294967295 0:7 0:8 -1:8");
    EXPECT_EQ(Reads(__HVHdrReadAsciiInt, "\xFF" "1", 1), "-1:5");
    EXPECT_EQ(Reads(__HVHdrReadAsciiInt, "3\xFF" "1", 1), "0:3");
    EXPECT_EQ(Reads(__HVHdrReadAsciiInt, "9", 1, 0), "-1:5");
    // Tokens must fit 31 (integers) or 63 (floats) bytes; a long token is
    // read to its end.
    EXPECT_EQ(Reads(__HVHdrReadAsciiInt, std::string(31, '1') + " " + std::string(32, '1') + " 5", 3),
              "0:4294967295 1:4294967295 0:5");
    EXPECT_EQ(Reads(__HVHdrReadAsciiFloat, "0." + std::string(61, '5') + " 0." + std::string(62, '5'), 2),
              "0:0.555555582 1:0.555555582");
    // Narrowed to float: 1e40 is infinity.
    EXPECT_EQ(Reads(__HVHdrReadAsciiFloat, "1.5 -2e3 1e40 nan? .", 5), "0:1.5 0:-2000 0:inf 0:nan 1:nan");

    float pair[2] = {9, 9};
    Source half("1.25 x");
    EXPECT_EQ(__HVHdrReadAsciiComplex(half.io(), pair), 1);
    EXPECT_EQ(pair[0], 1.25f);
    Source skip("x 2");
    EXPECT_EQ(__HVHdrReadAsciiComplex(skip.io(), pair), 1);
    EXPECT_EQ(skip.rest(), "2"); // a failed first number reads no second one
}

TEST(AsciiValues, WritersPutOneBlankInFront) {
    Sink out;
    uint32_t v = 4000000000u;
    float f = 0.1f;
    float pair[2] = {1e6f, -0.5f};
    EXPECT_EQ(__HVHdrWriteAsciiInt(out.io(), &v), 0);
    EXPECT_EQ(__HVHdrWriteAsciiFloat(out.io(), &f), 0);
    EXPECT_EQ(__HVHdrWriteAsciiComplex(out.io(), pair), 0);
    EXPECT_EQ(out.text(), " 4000000000 0.1 1e+06 -0.5");

    Sink tight(4);
    EXPECT_EQ(__HVHdrWriteAsciiInt(tight.io(), &v), -1);
    Sink halfway(6);
    EXPECT_EQ(__HVHdrWriteAsciiComplex(halfway.io(), pair), -1);
    EXPECT_EQ(halfway.text(), " 1e+06");
    Sink first(3);
    EXPECT_EQ(__HVHdrWriteAsciiComplex(first.io(), pair), -1);
    EXPECT_EQ(first.text(), " 1e");
}

TEST(AsciiChunks, EachWidthRoundTrips) {
    const uint8_t bytes[] = {0, 7, 255};
    const uint16_t words[] = {0, 300, 65535};
    const float floats[] = {1.5f, -0.25f, 1e-3f};
    const float complexes[] = {1, 2, -3, 4.5f};
    struct Case {
        int (*emit)(HalvIO *, HalvChunk *, uint32_t);
        int (*load)(HalvIO *, HalvChunk *, uint32_t);
        const void *data;
        uint32_t count, width;
        const char *text;
    } cases[] = {
        {HVHdrEmitChunk_Ascii_8, HVHdrLoadChunk_Ascii_8, bytes, 3, 1, " 0 7 255\n"},
        {HVHdrEmitChunk_Ascii_16, HVHdrLoadChunk_Ascii_16, words, 3, 2, " 0 300 65535\n"},
        {HVHdrEmitChunk_Ascii_32, HVHdrLoadChunk_Ascii_32, floats, 3, 4, " 1.5 -0.25 0.001\n"},
        {HVHdrEmitChunk_Ascii_64, HVHdrLoadChunk_Ascii_64, complexes, 2, 8, " 1 2 -3 4.5\n"},
    };
    for (const Case &c : cases) {
        HalvChunk chunk{};
        chunk.bytes = c.count * c.width;
        chunk.data = const_cast<void *>(c.data);
        Sink out;
        ASSERT_EQ(c.emit(out.io(), &chunk, 1), 1) << c.width;
        EXPECT_EQ(out.text(), c.text);

        Source in(out.text());
        HalvChunk back{};
        back.flags = 5;
        ASSERT_EQ(c.load(in.io(), &back, c.count), 1) << c.width;
        EXPECT_EQ(back.flags, 0u);
        EXPECT_EQ(back.lines, 1u);
        EXPECT_EQ(back.bytes, c.count * c.width);
        EXPECT_EQ(std::memcmp(back.data, c.data, back.bytes), 0) << c.width;
        // The stream then ends: an empty last chunk.
        EXPECT_EQ(c.load(in.io(), &back, c.count), 1);
        EXPECT_EQ(back.flags, 1u);
        EXPECT_EQ(back.lines, 0u);
        EXPECT_EQ(back.bytes, 0u);
        halv_internal_free(back.data);
    }
}

TEST(AsciiChunks, LoadKeepsLowBitsAndFailsPartWay) {
    Source in(" 257 65537 3");
    HalvChunk chunk{};
    uint8_t room[3];
    chunk.data = room;
    ASSERT_EQ(HVHdrLoadChunk_Ascii_8(in.io(), &chunk, 2), 1);
    EXPECT_EQ(room[0], 1);
    EXPECT_EQ(room[1], 1);
    EXPECT_EQ(chunk.data, room); // the caller's room is used
    // Part way through: the stream ends, or a token is no number.
    EXPECT_EQ(HVHdrLoadChunk_Ascii_8(in.io(), &chunk, 2), 0);
    Source bad(" 1 x 3");
    EXPECT_EQ(HVHdrLoadChunk_Ascii_16(bad.io(), &chunk, 3), 0);
    Source first("x");
    EXPECT_EQ(HVHdrLoadChunk_Ascii_8(first.io(), &chunk, 1), 0);
    // A complex pair that ends half way counts as the stream's end.
    Source halfPair(" 1");
    HalvChunk pair{};
    EXPECT_EQ(HVHdrLoadChunk_Ascii_64(halfPair.io(), &pair, 1), 1);
    EXPECT_EQ(pair.flags, 1u);
    halv_internal_free(pair.data);
    Source halfSecond(" 1 2 3");
    pair = HalvChunk{};
    EXPECT_EQ(HVHdrLoadChunk_Ascii_64(halfSecond.io(), &pair, 2), 0);
    halv_internal_free(pair.data);

    EXPECT_EQ(HVHdrLoadChunk_Ascii_8(nullptr, &chunk, 1), 0);
    EXPECT_EQ(HVHdrLoadChunk_Ascii_8(in.io(), nullptr, 1), 0);
    EXPECT_EQ(HVHdrLoadChunk_Ascii_8(in.io(), &chunk, 0), 0);
    HalvChunk huge{};
    EXPECT_EQ(HVHdrLoadChunk_Ascii_64(in.io(), &huge, 0x40000000u), 0); // bytes wouldn't fit 32 bits
    EXPECT_EQ(huge.data, nullptr);
    // Room whose told capacity is short is refused before a byte is read.
    Source more(" 9 9 9");
    uint8_t two[2] = {5, 5};
    HalvChunk small{};
    small.data = two;
    small.capacity = sizeof two;
    EXPECT_EQ(HVHdrLoadChunk_Ascii_8(more.io(), &small, 3), 0);
    EXPECT_EQ(two[0], 5);
    EXPECT_EQ(HVHdrLoadChunk_Ascii_8(more.io(), &small, 2), 1);
    EXPECT_EQ(two[0], 9);
}

TEST(AsciiChunks, EmitChecksItsArguments) {
    uint16_t words[2] = {1, 2};
    HalvChunk chunk{};
    chunk.data = words;
    chunk.bytes = 3; // one whole value and a stray byte
    Sink out;
    EXPECT_EQ(HVHdrEmitChunk_Ascii_16(out.io(), &chunk, 1), -1);
    EXPECT_EQ(out.text(), " 1"); // no line feed
    chunk.bytes = 4;
    EXPECT_EQ(HVHdrEmitChunk_Ascii_16(out.io(), &chunk, 0), 0);
    EXPECT_EQ(HVHdrEmitChunk_Ascii_16(nullptr, &chunk, 1), 0);
    EXPECT_EQ(HVHdrEmitChunk_Ascii_16(out.io(), nullptr, 1), 0);
    Sink shortSink(3);
    EXPECT_EQ(HVHdrEmitChunk_Ascii_16(shortSink.io(), &chunk, 1), 0);
    EXPECT_EQ(shortSink.text(), " 1 ");
    // The line feed's write isn't checked.
    Sink noRoom(4);
    EXPECT_EQ(HVHdrEmitChunk_Ascii_16(noRoom.io(), &chunk, 9), 1);
    EXPECT_EQ(noRoom.text(), " 1 2");
    chunk.data = nullptr;
    EXPECT_EQ(HVHdrEmitChunk_Ascii_16(out.io(), &chunk, 1), 0);
    HalvChunk empty{};
    empty.data = words;
    Sink lf;
    EXPECT_EQ(HVHdrEmitChunk_Ascii_32(lf.io(), &empty, 1), 1);
    EXPECT_EQ(lf.text(), "\n");
}

TEST(AsciiValuesMixed, PartsOfEachWidth) {
    // Two pixels of an 8-bit, a 16-bit, a float and a complex part, packed.
    const uint32_t bits[] = {8, 16, 32, 64};
    unsigned char packed[2 * 15] = {};
    void *cursor = packed;
    Source in(" 200 1000 0.5 1 -1\n 7 65535 -2 0.25 3\n tail");
    uint32_t read = 10;
    ASSERT_EQ(__HVHdrReadAsciiValues(in.io(), bits, 2, 4, &cursor, &read), 1);
    EXPECT_EQ(read, 18u); // counted on from where the caller started
    EXPECT_EQ(cursor, packed + 30);
    EXPECT_EQ(packed[0], 200);
    uint16_t w;
    std::memcpy(&w, packed + 16, 2);
    EXPECT_EQ(w, 65535);
    float c[2];
    std::memcpy(c, packed + 22, 8);
    EXPECT_EQ(c[0], 0.25f);
    EXPECT_EQ(c[1], 3.0f);

    Sink out;
    cursor = packed;
    ASSERT_EQ(__HVHdrWriteAsciiValues(out.io(), bits, 2, 4, &cursor, 0), 1);
    EXPECT_EQ(out.text(), " 200 1000 0.5 1 -1\n 7 65535 -2 0.25 3\n");
    EXPECT_EQ(cursor, packed + 30);
    Sink each;
    cursor = packed;
    ASSERT_EQ(__HVHdrWriteAsciiValues(each.io(), bits, 1, 2, &cursor, 1), 1);
    EXPECT_EQ(each.text(), " 200\n 1000\n");

    // A failed read moves neither the count nor the cursor.
    Source bad(" 5 x");
    cursor = packed;
    read = 0;
    EXPECT_EQ(__HVHdrReadAsciiValues(bad.io(), bits, 1, 2, &cursor, &read), -1);
    EXPECT_EQ(read, 1u);
    EXPECT_EQ(cursor, packed + 1);
    // An unsupported width stops reading with 0; writing goes on around it.
    const uint32_t odd[] = {8, 12, 8};
    Source more(" 1 2 3");
    cursor = packed;
    EXPECT_EQ(__HVHdrReadAsciiValues(more.io(), odd, 1, 3, &cursor, &read), 0);
    EXPECT_EQ(cursor, packed + 1);
    Sink around;
    cursor = packed;
    EXPECT_EQ(__HVHdrWriteAsciiValues(around.io(), odd, 1, 3, &cursor, 0), 0);
    EXPECT_EQ(around.text(), " 1 232\n"); // byte 1 still holds the low byte of 1000
    EXPECT_EQ(cursor, packed + 2);
    // A short write gives -1 but the run goes on.
    Sink tight(3);
    cursor = packed;
    EXPECT_EQ(__HVHdrWriteAsciiValues(tight.io(), bits, 1, 2, &cursor, 0), -1);
    EXPECT_EQ(cursor, packed + 3);
    Sink none;
    EXPECT_EQ(__HVHdrWriteAsciiValues(none.io(), bits, 0, 4, &cursor, 0), 1);
    EXPECT_EQ(none.text(), "");
    EXPECT_EQ(__HVHdrReadAsciiValues(nullptr, bits, 1, 1, &cursor, &read), 0);
}

} // namespace
