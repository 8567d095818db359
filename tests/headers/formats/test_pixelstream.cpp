// The "pixelstream" "1.0-ascii" format at the C interface: pixels as text
// read token by token from seekable and unseekable streams (which must
// agree, down to where the stream stands afterwards), every sample width,
// streams that stop inside a pixel, hostile headers, the keys it reads and
// writes, and standard input of a child process fed through a pipe.
#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "dpk_hvsup.h"
#include "headers/formats/raster_support.h"
#include "headers/support.h"

using namespace raster_test;

namespace {

HVHdrManager PixelStream() {
    HVHdrManager m{};
    EXPECT_EQ(HVHdrGetManager_Str("pixelstream", "1.0-ascii", &m), 1);
    return m;
}

std::string StreamHeaderText(const std::string &encoding, const std::string &more = "") {
    return "[ID]\nformat: pixelstream\nversion: 1.0-ascii\n\n[Encoding]\n" + encoding + "\n" + more + "\n" +
           kEndMarker;
}

HalvPixelStreamHeader *AsPixels(HalvHeaderStruct *h) { return reinterpret_cast<HalvPixelStreamHeader *>(h); }

/* A header from its Encoding lines, through the exported toHeader. */
HalvHeaderStruct *MakeHeader(const std::string &encoding) {
    HalvUserCMData *tree = hdr_test::Parse("[ID]\nformat: pixelstream\nversion: 1.0-ascii\n[Encoding]\n" + encoding +
                                           "\n[End]\n");
    EXPECT_NE(tree, nullptr);
    HalvHeaderStruct *h = nullptr;
    EXPECT_EQ(__HVHdrPixelStreamToHeader_10_ascii(tree, &h), 1);
    HVHdrFree(tree);
    return h;
}

struct Loaded {
    int result;
    HalvChunk chunk;
    std::string data;
};

Loaded LoadFrom(HalvHeaderStruct *h, HalvIO *in, uint32_t pixels) {
    Loaded l{};
    std::memset(&l.chunk, 0xA5, sizeof l.chunk);
    l.result = __HVHdrPixelStreamLoadChunk_10_ascii(h, in, &l.chunk, pixels);
    if (l.result == 1 && l.chunk.bytes != 0)
        l.data.assign(static_cast<const char *>(l.chunk.data), l.chunk.bytes);
    return l;
}

/* The same load from a seekable string stream (read in blocks) and from a
 * stream without a seek slot (read a byte at a time): both must give the
 * same chunk and leave the same rest. */
struct BothWays {
    Loaded block, single;
    std::string blockRest, singleRest;
};

std::string Rest(HalvIO *in) {
    std::string rest;
    char buffer[256];
    int32_t got;
    while ((got = in->read(in, buffer, sizeof buffer)) > 0)
        rest.append(buffer, (size_t)got);
    return rest;
}

BothWays LoadBothWays(const std::string &encoding, const std::string &text, uint32_t pixels) {
    BothWays b;
    HalvHeaderStruct *h = MakeHeader(encoding);
    Input seekable(text);
    b.block = LoadFrom(h, seekable.io(), pixels);
    b.blockRest = Rest(seekable.io());
    h->free(h);
    h = MakeHeader(encoding);
    hdr_test::Source unseekable(text);
    b.single = LoadFrom(h, unseekable.io(), pixels);
    b.singleRest = unseekable.rest();
    h->free(h);
    EXPECT_EQ(b.block.result, b.single.result);
    EXPECT_EQ(b.block.data, b.single.data);
    EXPECT_EQ(b.block.chunk.lines, b.single.chunk.lines);
    EXPECT_EQ(b.block.chunk.flags, b.single.chunk.flags);
    EXPECT_EQ(b.blockRest, b.singleRest) << "a block reader must give back what it didn't use";
    return b;
}

const char kRgb8[] = "imageParts: 3 0 0\nbits/sample: 8";

std::string Bytes(std::initializer_list<int> values) {
    std::string s;
    for (int v : values)
        s.push_back((char)v);
    return s;
}

} // namespace

TEST(PixelStream, WholePixelsCountAndAShortLoadEndsTheData) {
    BothWays b = LoadBothWays(kRgb8, "1 2 3 4 5 6", 4);
    EXPECT_EQ(b.block.result, 1);
    EXPECT_EQ(b.block.chunk.lines, 2u);
    EXPECT_EQ(b.block.chunk.bytes, 6u);
    EXPECT_EQ(b.block.chunk.flags, HALV_CHUNK_END);
    EXPECT_EQ(b.block.chunk.auxWord, 0u);
    EXPECT_EQ(b.block.data, Bytes({1, 2, 3, 4, 5, 6}));

    // A full load carries no end flag, and the stream stands behind the
    // white space that ended the last value taken.
    b = LoadBothWays(kRgb8, " 10 20\n30 40\t50 60\n", 1);
    EXPECT_EQ(b.block.result, 1);
    EXPECT_EQ(b.block.chunk.flags, 0u);
    EXPECT_EQ(b.block.data, Bytes({10, 20, 30}));
    EXPECT_EQ(b.blockRest, "40\t50 60\n");

    // Lines mean nothing: a pixel may straddle them.
    b = LoadBothWays(kRgb8, "7\n8\n\n9 10", 2);
    EXPECT_EQ(b.block.result, -1);
}

TEST(PixelStream, DataThatStopInsideAPixelFail) {
    EXPECT_EQ(LoadBothWays(kRgb8, "1 2 3 4", 4).block.result, -1);
    EXPECT_EQ(LoadBothWays(kRgb8, "1 2", 1).block.result, -1);

    // Pixel by pixel: the first load is whole, the one that meets the
    // broken pixel fails.
    HalvHeaderStruct *h = MakeHeader(kRgb8);
    Input in("1 2 3 4 5");
    EXPECT_EQ(LoadFrom(h, in.io(), 1).result, 1);
    EXPECT_EQ(LoadFrom(h, in.io(), 1).result, -1);
    h->free(h);

    // An empty stream is the end, not a broken pixel.
    BothWays empty = LoadBothWays(kRgb8, "  \n ", 3);
    EXPECT_EQ(empty.block.result, 1);
    EXPECT_EQ(empty.block.chunk.lines, 0u);
    EXPECT_EQ(empty.block.chunk.bytes, 0u);
    EXPECT_EQ(empty.block.chunk.flags, HALV_CHUNK_END);
}

TEST(PixelStream, AZeroLoadReadsOnePixel) {
    BothWays b = LoadBothWays(kRgb8, "1 2 3 4 5 6", 0);
    EXPECT_EQ(b.block.result, 1);
    EXPECT_EQ(b.block.chunk.lines, 1u);
    EXPECT_EQ(b.block.chunk.flags, 0u);
    EXPECT_EQ(b.blockRest, "4 5 6");
}

TEST(PixelStream, SampleWidths) {
    // 16 bits: unsigned 16-bit numbers in this machine's order; 8 bits
    // keep the low byte (300 is 44), 16 bits the low two.
    BothWays b = LoadBothWays("imageParts: 2 0 0\nbits/sample: 16", "258 65535 65536 70000", 2);
    ASSERT_EQ(b.block.result, 1);
    uint16_t words[4];
    ASSERT_EQ(b.block.data.size(), sizeof words);
    std::memcpy(words, b.block.data.data(), sizeof words);
    EXPECT_EQ(words[0], 258);
    EXPECT_EQ(words[1], 65535);
    EXPECT_EQ(words[2], 0);
    EXPECT_EQ(words[3], (uint16_t)70000);
    EXPECT_EQ(LoadBothWays("imageParts: 1 0 0\nbits/sample: 8", "300", 1).block.data, Bytes({44}));

    // Numbers as sscanf's "%u" takes them: a sign, digits behind which
    // text follows, a run too long for nine digits.
    b = LoadBothWays("imageParts: 4 0 0\nbits/sample: 16", "+7 12abc 4294967297 0x10", 1);
    ASSERT_EQ(b.block.result, 1);
    std::memcpy(words, b.block.data.data(), sizeof words);
    unsigned expect[4];
    std::sscanf("+7", "%u", &expect[0]);
    std::sscanf("12abc", "%u", &expect[1]);
    std::sscanf("4294967297", "%u", &expect[2]);
    std::sscanf("0x10", "%u", &expect[3]);
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(words[i], (uint16_t)expect[i]) << i;

    // 32 bits: floats; 64 bits: pairs of floats, each pair one value.
    b = LoadBothWays("imageParts: 2 0 0\nbits/sample: 32", "0.5 -2e3 1.25 7", 2);
    ASSERT_EQ(b.block.result, 1);
    float floats[4];
    std::memcpy(floats, b.block.data.data(), sizeof floats);
    EXPECT_EQ(floats[0], 0.5f);
    EXPECT_EQ(floats[1], -2000.0f);
    EXPECT_EQ(floats[3], 7.0f);
    b = LoadBothWays("imageParts: 1 0 0\nbits/sample: 64", "1.5 2.5 3 4 5", 3);
    ASSERT_EQ(b.block.result, 1);
    EXPECT_EQ(b.block.chunk.lines, 2u) << "half a pair is no value";
    EXPECT_EQ(b.block.chunk.bytes, 16u);
    std::memcpy(floats, b.block.data.data(), sizeof floats);
    EXPECT_EQ(floats[0], 1.5f);
    EXPECT_EQ(floats[1], 2.5f);
    EXPECT_EQ(floats[2], 3.0f);
    EXPECT_EQ(floats[3], 4.0f);
}

TEST(PixelStream, ATokenThatIsNoNumberCostsOneValue) {
    // Six tries for two pixels; one is lost, five values stop inside a pixel.
    EXPECT_EQ(LoadBothWays(kRgb8, "1 x 2 3 4 5 6", 2).block.result, -1);
    // With one value a pixel any shortfall is whole pixels.
    BothWays b = LoadBothWays("imageParts: 1 0 0\nbits/sample: 8", "5 x 6 7", 3);
    EXPECT_EQ(b.block.result, 1);
    EXPECT_EQ(b.block.data, Bytes({5, 6}));
    EXPECT_EQ(b.block.chunk.flags, HALV_CHUNK_END);
    EXPECT_EQ(b.blockRest, "7");
    // Two bad tokens in a pixel of two: whole again.
    b = LoadBothWays("imageParts: 2 0 0\nbits/sample: 8", "a 1 b 2 3 4", 3);
    EXPECT_EQ(b.block.result, 1);
    EXPECT_EQ(b.block.data, Bytes({1, 2, 3, 4}));
    // A token longer than its 31 characters is no number, and all of it goes.
    b = LoadBothWays("imageParts: 1 0 0\nbits/sample: 8", std::string(100, '9') + " 8 9", 2);
    EXPECT_EQ(b.block.data, Bytes({8}));
    EXPECT_EQ(b.blockRest, "9");
}

TEST(PixelStream, ByteFourEndsTheDataAsTheStreamsEndDoes) {
    BothWays b = LoadBothWays(kRgb8, "1 2 3 \x04 4 5 6", 3);
    EXPECT_EQ(b.block.result, 1);
    EXPECT_EQ(b.block.chunk.lines, 1u);
    EXPECT_EQ(b.block.chunk.flags, HALV_CHUNK_END);
    EXPECT_EQ(b.blockRest, " 4 5 6");
    b = LoadBothWays(kRgb8, "1 2 3\x04" "4 5 6", 3);
    EXPECT_EQ(b.block.chunk.lines, 1u);
    EXPECT_EQ(b.blockRest, "4 5 6");
    b = LoadBothWays(kRgb8, "1 2 3\xff 4 5 6", 3);
    EXPECT_EQ(b.block.chunk.lines, 1u);
}

TEST(PixelStream, LargeLoadsCrossBlocksExactly) {
    // Far more text than one block, with numbers cut at every offset.
    std::string text;
    std::string expect;
    for (int i = 0; i < 30000; ++i) {
        int v = (i * 37) % 256;
        text += std::to_string(v) + (i % 7 == 0 ? "\n" : i % 5 == 0 ? "   " : " ");
        expect.push_back((char)v);
    }
    BothWays b = LoadBothWays(kRgb8, text, 7001);
    EXPECT_EQ(b.block.result, 1);
    EXPECT_EQ(b.block.chunk.lines, 7001u);
    EXPECT_EQ(b.block.data, expect.substr(0, 21003));

    HalvHeaderStruct *h = MakeHeader(kRgb8);
    Input in(text);
    std::string all;
    Loaded l;
    do {
        l = LoadFrom(h, in.io(), 999);
        ASSERT_EQ(l.result, 1);
        all += l.data;
    } while (!(l.chunk.flags & HALV_CHUNK_END));
    EXPECT_EQ(all, expect);
    h->free(h);
}

TEST(PixelStream, HostileHeaders) {
    // No parts: no pixel can be read.
    HalvHeaderStruct *h = MakeHeader("imageParts: 0 0 0\nbits/sample: 8");
    Input in("1 2 3");
    EXPECT_EQ(LoadFrom(h, in.io(), 1).result, -1);
    h->free(h);
    h = MakeHeader("bits/sample: 8");
    EXPECT_EQ(AsPixels(h)->valuesPerPixel, 0u);
    EXPECT_EQ(LoadFrom(h, in.io(), 1).result, -1);
    h->free(h);

    // Parts whose sum wraps, and pixels far too large to hold: the load
    // reads nothing and ends the data.
    h = MakeHeader("imageParts: 4294967295 1 0\nbits/sample: 8");
    EXPECT_EQ(LoadFrom(h, in.io(), 1).result, -1);
    h->free(h);
    h = MakeHeader("imageParts: 100000000 0 0\nbits/sample: 64");
    Loaded l = LoadFrom(h, in.io(), 1);
    EXPECT_EQ(l.result, 1);
    EXPECT_EQ(l.chunk.lines, 0u);
    EXPECT_EQ(l.chunk.flags, HALV_CHUNK_END);
    h->free(h);
    h = MakeHeader(kRgb8);
    l = LoadFrom(h, in.io(), 0xFFFFFFFFu);
    EXPECT_EQ(l.result, 1);
    EXPECT_EQ(l.chunk.lines, 0u) << "no buffer of 12 GB: nothing read";
    EXPECT_EQ(l.chunk.flags, HALV_CHUNK_END);
    EXPECT_EQ(Rest(in.io()), "1 2 3");
    h->free(h);

    // Widths other than 8, 16, 32, 64 read nothing and write nothing.
    for (const char *bits : {"bits/sample: 12", "bits/sample: 0", "bits/sample: 4294967295", ""}) {
        h = MakeHeader(std::string("imageParts: 1 0 0\n") + bits);
        Input text("1 2 3");
        l = LoadFrom(h, text.io(), 2);
        EXPECT_EQ(l.result, 1) << bits;
        EXPECT_EQ(l.chunk.lines, 0u) << bits;
        EXPECT_EQ(l.chunk.flags, HALV_CHUNK_END) << bits;
        uint8_t sample = 9;
        HalvChunk c{0, 0, 1, 1, 1, 0, &sample};
        hdr_test::Sink out;
        EXPECT_EQ(__HVHdrPixelStreamEmitChunk_10_ascii(h, &c, out.io()), 0) << bits;
        EXPECT_EQ(out.text(), "\n") << "the pixel's line feed still goes out";
        h->free(h);
    }

    // A record whose pixel size a caller broke is refused, not overrun.
    h = MakeHeader(kRgb8);
    AsPixels(h)->bytesPerPixel = 2;
    EXPECT_EQ(LoadFrom(h, in.io(), 1).result, -1);
    h->free(h);

    // Null arguments.
    HalvChunk c{};
    EXPECT_EQ(__HVHdrPixelStreamLoadChunk_10_ascii(nullptr, in.io(), &c, 1), 0);
    h = MakeHeader(kRgb8);
    EXPECT_EQ(__HVHdrPixelStreamLoadChunk_10_ascii(h, nullptr, &c, 1), 0);
    EXPECT_EQ(__HVHdrPixelStreamLoadChunk_10_ascii(h, in.io(), nullptr, 1), 0);
    EXPECT_EQ(__HVHdrPixelStreamEmitChunk_10_ascii(h, nullptr, in.io()), 0);
    EXPECT_EQ(__HVHdrPixelStreamFromHeader_10_ascii(h, nullptr), 0);
    EXPECT_EQ(__HVHdrPixelStreamToHeader_10_ascii(nullptr, nullptr), 0);
    EXPECT_EQ(__HVHdrPixelStreamCreateHeader_10_ascii(nullptr), 0);
    h->free(h);
}

TEST(PixelStream, EmitWritesOnePixelALine) {
    HalvHeaderStruct *h = MakeHeader(kRgb8);
    uint8_t rgb[6] = {10, 20, 30, 0, 255, 7};
    HalvChunk c{0, 0, 2, 6, 6, 0, rgb};
    hdr_test::Sink out;
    EXPECT_EQ(__HVHdrPixelStreamEmitChunk_10_ascii(h, &c, out.io()), 1);
    EXPECT_EQ(out.text(), " 10 20 30\n 0 255 7\n");

    // No lines, or an aux word: nothing.
    hdr_test::Sink none;
    HalvChunk empty{0, 0, 0, 6, 6, 0, rgb};
    EXPECT_EQ(__HVHdrPixelStreamEmitChunk_10_ascii(h, &empty, none.io()), 1);
    HalvChunk aux{0, 3, 2, 6, 6, 0, rgb};
    EXPECT_EQ(__HVHdrPixelStreamEmitChunk_10_ascii(h, &aux, none.io()), 1);
    EXPECT_EQ(none.text(), "");

    // Bytes that don't hold the lines are refused before anything goes out.
    HalvChunk shortChunk{0, 0, 3, 6, 6, 0, rgb};
    EXPECT_EQ(__HVHdrPixelStreamEmitChunk_10_ascii(h, &shortChunk, none.io()), 0);
    EXPECT_EQ(none.text(), "");

    // A short write is -1, and the rest is still tried.
    hdr_test::Sink full(5);
    EXPECT_EQ(__HVHdrPixelStreamEmitChunk_10_ascii(h, &c, full.io()), -1);
    EXPECT_EQ(full.text(), " 10 2");
    h->free(h);

    h = MakeHeader("imageParts: 1 0 0\nbits/sample: 64");
    float pair[2] = {0.25f, -3.0f};
    HalvChunk complex{0, 0, 1, 8, 8, 0, pair};
    hdr_test::Sink text;
    EXPECT_EQ(__HVHdrPixelStreamEmitChunk_10_ascii(h, &complex, text.io()), 1);
    EXPECT_EQ(text.text(), " 0.25 -3\n");
    h->free(h);
}

TEST(PixelStream, EveryWidthRoundTripsThroughText) {
    struct Case {
        const char *encoding;
        uint32_t width;
    } cases[] = {{"imageParts: 2 1 0\nbits/sample: 8", 1},
                 {"imageParts: 2 1 0\nbits/sample: 16", 2},
                 {"imageParts: 3 0 0\nbits/sample: 32", 4},
                 {"imageParts: 2 0 1\nbits/sample: 64", 8}};
    for (const Case &k : cases) {
        HalvHeaderStruct *h = MakeHeader(k.encoding);
        const uint32_t pixels = 500, values = 3;
        std::vector<unsigned char> data(pixels * values * k.width);
        for (uint32_t i = 0; i < pixels * values; ++i) {
            unsigned char *p = &data[i * k.width];
            if (k.width == 1) {
                *p = (unsigned char)(i * 7);
            } else if (k.width == 2) {
                uint16_t v = (uint16_t)(i * 131 + 40000);
                std::memcpy(p, &v, 2);
            } else {
                // Values that six digits hold: the text keeps them exactly.
                float f[2] = {(float)i * 0.125f - 50.0f, -(float)(i % 97) / 4.0f};
                std::memcpy(p, f, k.width);
            }
        }
        HalvChunk c{0, 0, pixels, (uint32_t)data.size(), (uint32_t)data.size(), 0, data.data()};
        HalvIO *mem = HalvIO_Mem(0);
        ASSERT_EQ(__HVHdrPixelStreamEmitChunk_10_ascii(h, &c, mem), 1) << k.encoding;
        std::string text = Contents(mem);
        mem->close(mem);
        BothWays b = LoadBothWays(k.encoding, text, pixels);
        EXPECT_EQ(b.block.result, 1) << k.encoding;
        EXPECT_EQ(b.block.chunk.flags, 0u) << k.encoding;
        EXPECT_TRUE(b.block.data == std::string(data.begin(), data.end())) << k.encoding;
        h->free(h);
    }
}

TEST(PixelStream, HeaderKeysReadAndWritten) {
    std::string stored = StreamHeaderText("useStdin: false\nimageParts: 2 1 0\nbits/sample: 16 8 8\nbytes/sl: 99",
                                    "\n[Photometry]\nname: rgbLinear\n\n[Origin]\nunits: mm\n");
    Opened o(stored);
    ASSERT_EQ(o.result, 1);
    HalvPixelStreamHeader *p = AsPixels(o.header);
    EXPECT_EQ(o.header->managerType, 1);
    EXPECT_EQ(o.header->dimCount, 1u);
    EXPECT_EQ(o.header->dims[0], 1u);
    EXPECT_EQ(o.header->interleave, 1u);
    EXPECT_EQ(o.header->endian, 0);
    EXPECT_EQ(p->initialised, 1u);
    EXPECT_EQ(p->valuesPerPixel, 3u);
    EXPECT_EQ(p->bytesPerPixel, 6u);
    EXPECT_EQ(o.header->bytesPerSep[0], 6u);
    EXPECT_EQ(o.header->bitsPerSample[1], 8u) << "later widths are read, though they play no part";
    EXPECT_EQ(p->stdinStream, nullptr);
    EXPECT_EQ(o.header->color, HalvStr2Clr("rgbLinear"));
    EXPECT_EQ(HVHdrGetHeaderParam(o.header->userData, "Encoding", "useStdin"), nullptr);
    EXPECT_EQ(HVHdrGetHeaderParam(o.header->userData, "Encoding", "imageParts"), nullptr);
    EXPECT_STREQ(HVHdrGetHeaderParam(o.header->userData, "Encoding", "bytes/sl"), "99");

    HalvUserCMData *tree = nullptr;
    ASSERT_EQ(HVHdrFromHeader(o.manager, o.header, &tree), 1);
    EXPECT_STREQ(HVHdrGetHeaderParam(tree, "ID", "format"), "pixelstream");
    EXPECT_STREQ(HVHdrGetHeaderParam(tree, "ID", "version"), "1.0-ascii");
    EXPECT_EQ(HVHdrGetHeaderParam(tree, "ID", "binary"), nullptr);
    EXPECT_EQ(HVHdrGetHeaderParam(tree, "ID", "architecture"), nullptr);
    EXPECT_STREQ(HVHdrGetHeaderParam(tree, "Encoding", "imageParts"), "2 1 0");
    EXPECT_STREQ(HVHdrGetHeaderParam(tree, "Encoding", "bits/sample"), "16");
    EXPECT_STREQ(HVHdrGetHeaderParam(tree, "Encoding", "bytes/sl"), "6");
    EXPECT_EQ(HVHdrGetHeaderParam(tree, "Encoding", "useStdin"), nullptr);
    EXPECT_STREQ(HVHdrGetHeaderParam(tree, "Photometry", "name"), "rgbLinear");
    EXPECT_STREQ(HVHdrGetHeaderParam(tree, "Origin", "units"), "mm");
    HVHdrFree(tree);

    // Written and read back, the header says the same.
    HalvIO *mem = HalvIO_Mem(0);
    ASSERT_EQ(HVHdrWrite_Header(o.header, &o.manager, mem), 1);
    std::string text = Contents(mem);
    mem->close(mem);
    EXPECT_EQ(text.find("[ID]\nformat: pixelstream\nversion: 1.0-ascii\n"), 0u) << text;
    Opened again(text);
    ASSERT_EQ(again.result, 1);
    EXPECT_EQ(AsPixels(again.header)->valuesPerPixel, 3u);
    EXPECT_EQ(again.header->bitsPerSample[0], 16u);

    // No name at all gives "unknown"; an outside name comes back as it was.
    Opened bare(StreamHeaderText("imageParts: 1 0 0\nbits/sample: 8"));
    tree = nullptr;
    ASSERT_EQ(HVHdrFromHeader(bare.manager, bare.header, &tree), 1);
    EXPECT_STREQ(HVHdrGetHeaderParam(tree, "Photometry", "name"), "unknown");
    HVHdrFree(tree);
    Opened outside(StreamHeaderText("imageParts: 1 0 0\nbits/sample: 8", "\n[Photometry]\nname: someothername\n"));
    tree = nullptr;
    ASSERT_EQ(HVHdrFromHeader(outside.manager, outside.header, &tree), 1);
    EXPECT_STREQ(HVHdrGetHeaderParam(tree, "Photometry", "name"), "someothername");
    HVHdrFree(tree);
}

TEST(PixelStream, CreateCopyAndWorkOut) {
    HVHdrManager m = PixelStream();
    HalvHeaderStruct *h = nullptr;
    ASSERT_EQ(HVHdrCreateHeader(m, &h), 1);
    HalvPixelStreamHeader *p = AsPixels(h);
    EXPECT_EQ(h->managerType, 1);
    EXPECT_EQ(h->dimCount, 1u);
    EXPECT_EQ(h->dims[0], 1u);
    EXPECT_EQ(h->interleave, 1u);
    EXPECT_EQ(h->endian, 0);
    EXPECT_EQ(p->initialised, 0u);
    h->parts[0] = 4;
    h->bitsPerSample[0] = 16;
    HalvUserCMData *tree = nullptr;
    ASSERT_EQ(HVHdrFromHeader(m, h, &tree), 1);
    EXPECT_EQ(p->initialised, 1u);
    EXPECT_EQ(p->valuesPerPixel, 4u);
    EXPECT_STREQ(HVHdrGetHeaderParam(tree, "Encoding", "bytes/sl"), "8");
    HVHdrFree(tree);

    // The copy reads afresh: no buffer, no stdin stream, worked out again.
    Input in("1 2 3 4");
    ASSERT_EQ(LoadFrom(h, in.io(), 1).result, 1);
    HalvHeaderStruct *c = h->copy(h);
    ASSERT_NE(c, nullptr);
    EXPECT_EQ(AsPixels(c)->chunkBuffer, nullptr);
    EXPECT_EQ(AsPixels(c)->bufferCapacity, 0u);
    EXPECT_EQ(AsPixels(c)->initialised, 0u);
    EXPECT_EQ(AsPixels(c)->valuesPerPixel, 4u);
    Input more("5 6 7 8");
    Loaded l = LoadFrom(c, more.io(), 2);
    EXPECT_EQ(l.result, 1);
    EXPECT_EQ(l.chunk.lines, 1u);
    EXPECT_EQ(l.chunk.bytes, 8u);
    c->free(c);
    h->free(h);
}

TEST(PixelStream, UseStdinSwitchesOnlyForTrueWords) {
    const struct {
        const char *value;
        bool switches;
    } cases[] = {{"true", true}, {"1", true},  {"True", true},   {"t", true},
                 {"false", false}, {"yes", false}, {"0", false}, {"nope", false}};
    for (const auto &k : cases) {
        HalvHeaderStruct *h = MakeHeader(std::string("useStdin: ") + k.value + "\n" + kRgb8);
        ASSERT_NE(h, nullptr);
        EXPECT_EQ(AsPixels(h)->stdinStream != nullptr, k.switches) << k.value;
        HalvHeaderStruct *c = h->copy(h);
        EXPECT_EQ(AsPixels(c)->stdinStream, nullptr) << "a copy doesn't take standard input";
        c->free(c);
        h->free(h);
    }
}

namespace {

/* In a child whose standard input is the read end of a pipe: a header
 * with useStdin, loads of two pixels until the data end or fail, each told
 * as "result lines flags [samples]" on report; then, with the header
 * freed, what standard input still holds, to show that it stayed open. */
[[noreturn]] void ChildLoads(int report) {
    HalvUserCMData *tree = hdr_test::Parse(
        "[ID]\nformat: pixelstream\nversion: 1.0-ascii\n[Encoding]\nuseStdin: true\nimageParts: 3 0 0\n"
        "bits/sample: 8\n[End]\n");
    HalvHeaderStruct *h = nullptr;
    std::string told;
    if (tree == nullptr || __HVHdrPixelStreamToHeader_10_ascii(tree, &h) != 1) {
        told = "no header";
    } else {
        Input ignored("99 99 99 99 99 99");
        for (int i = 0; i < 10; ++i) {
            Loaded l = LoadFrom(h, ignored.io(), 2);
            told += std::to_string(l.result);
            if (l.result == 1) {
                told += " " + std::to_string(l.chunk.lines) + " " + std::to_string(l.chunk.flags);
                for (unsigned char v : l.data)
                    told += " " + std::to_string(v);
            }
            told += ";";
            if (l.result != 1 || (l.chunk.flags & HALV_CHUNK_END))
                break;
        }
        h->free(h);
        told += "rest:";
        int c;
        while ((c = std::fgetc(stdin)) != EOF)
            told.push_back((char)c);
    }
    HVHdrFree(tree);
    (void)!write(report, told.data(), told.size());
    _exit(0);
}

/* What the child told after text went down its standard input. */
std::string FeedChild(const std::vector<std::string> &pieces) {
    int down[2], up[2];
    if (pipe(down) != 0 || pipe(up) != 0)
        return "no pipe";
    pid_t pid = fork();
    if (pid == 0) {
        dup2(down[0], 0);
        close(down[0]);
        close(down[1]);
        close(up[0]);
        ChildLoads(up[1]);
    }
    close(down[0]);
    close(up[1]);
    for (const std::string &piece : pieces)
        EXPECT_EQ(write(down[1], piece.data(), piece.size()), (ssize_t)piece.size());
    close(down[1]);
    std::string told;
    char buffer[512];
    ssize_t got;
    while ((got = read(up[0], buffer, sizeof buffer)) > 0)
        told.append(buffer, (size_t)got);
    close(up[0]);
    int status = 0;
    EXPECT_EQ(waitpid(pid, &status, 0), pid);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    return told;
}

} // namespace

TEST(PixelStream, StandardInputOfAChildThroughAPipe) {
    // The stream passed to the load is ignored: the pixels come down the
    // pipe, across the pieces in which they were written.
    EXPECT_EQ(FeedChild({"1 2", " 3\n4 5 6\n", "7 8 9\n"}),
              "1 2 0 1 2 3 4 5 6;1 1 1 7 8 9;rest:");
    // A pixel cut short by the end of the input fails the load.
    EXPECT_EQ(FeedChild({"10 20 30 40"}), "-1;rest:");
    // A byte 0x04 ends the data; standard input goes on behind it.
    EXPECT_EQ(FeedChild({"1 1 1 2 2 2 3 3 3 \x04 tail"}), "1 2 0 1 1 1 2 2 2;1 1 1 3 3 3;rest: tail");
}
