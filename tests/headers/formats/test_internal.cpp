// The "internal" raster format at the C interface: the exact stored form,
// round trips through real files and memory streams, byte order, the old
// version's rules, the loader's line counts and end marks, compressed
// blocks, and hostile sizes.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "dpk_hvsup.h"
#include "headers/formats/raster_support.h"

using namespace raster_test;

namespace {

HVHdrManager Internal() {
    HVHdrManager m{};
    EXPECT_EQ(HVHdrGetManager_Str("internal", "2.1", &m), 1);
    return m;
}

std::string Concat(const std::vector<Load> &loads) {
    std::string s;
    for (const Load &l : loads)
        s += l.data;
    return s;
}

std::string ReadFile(const std::string &path) {
    std::string s;
    if (FILE *f = std::fopen(path.c_str(), "rb")) {
        char buffer[4096];
        size_t n;
        while ((n = std::fread(buffer, 1, sizeof buffer, f)) > 0)
            s.append(buffer, n);
        std::fclose(f);
    }
    return s;
}

const std::string kExampleHeader = "[ID]\nformat: internal\n" + kBinary +
                                   "version: 2.1\narchitecture: type 2\n\n"
                                   "[Raster]\npixels: 100\nscanlines: 50\n\n"
                                   "[Encoding]\nimageParts: 3 0 0\nbytes/sl: 100 100 100\nbits/sample: 8 8 8\n"
                                   "interleave: scanline\n\n"
                                   "[Photometry]\nname: rgbLinear\n\n" +
                                   kEndMarker;

} // namespace

TEST(RasterInternal, MadeHeaderWritesTheExactStoredFormAndReadsBackFromAFile) {
    HVHdrManager m = Internal();
    HalvHeaderStruct *h = nullptr;
    ASSERT_EQ(HVHdrCreateHeader(m, &h), 1);
    EXPECT_EQ(h->managerType, 0);
    EXPECT_EQ(h->dimCount, 2u);
    EXPECT_EQ(h->endian, HalvIdentifyEndian());
    h->dims[0] = 100;
    h->dims[1] = 50;
    h->parts[0] = 3;
    for (int i = 0; i < 3; ++i)
        h->bitsPerSample[i] = 8;
    h->color = HalvStr2Clr("rgbLinear");
    EXPECT_EQ(HalvHeaderFillInBytes(h), 300u);

    std::string data;
    for (int i = 0; i < 15000; ++i)
        data.push_back((char)(i * 7 + i / 300));
    TempDir dir;
    std::string path = dir.File("example.img");
    HalvIO *out = HalvIO_FileName(path.c_str(), "wb");
    ASSERT_NE(out, nullptr);
    ASSERT_EQ(HVHdrWrite_Header(h, &m, out), 1);
    HalvChunk whole{0, 0, 50, 15000, 15000, 0, data.data()};
    EXPECT_EQ(HVHdrFromChunk(m, h, &whole, out), 1);
    out->close(out);
    h->free(h);
    EXPECT_EQ(ReadFile(path), kExampleHeader + data);

    // Back from the file: 32 lines, then the 18 left with the end mark on,
    // then an empty chunk that ends the image again.
    HalvIO *in = HalvIO_FileName(path.c_str(), "rb");
    ASSERT_NE(in, nullptr);
    HVHdrManager got{};
    ASSERT_EQ(HVHdrRead_Header(in, &got, &h), 1);
    auto *ih = reinterpret_cast<HalvInternalHeader *>(h);
    EXPECT_EQ(ih->bytesPerLine, 300u);
    EXPECT_EQ(ih->sepCount, 3u);
    EXPECT_EQ(ih->swapBytes, 0u);
    EXPECT_EQ(h->color, 2);
    Load first = LoadOne(got, h, in);
    EXPECT_EQ(first.result, 1);
    EXPECT_EQ(first.lines, 32u);
    EXPECT_EQ(first.bytes, 9600u);
    EXPECT_EQ(first.flags, 0u);
    EXPECT_EQ(first.capacity, 9600u);
    Load second = LoadOne(got, h, in);
    EXPECT_EQ(second.result, 1);
    EXPECT_EQ(second.lines, 18u);
    EXPECT_EQ(second.flags, HALV_CHUNK_END);
    EXPECT_EQ(second.capacity, 9600u) << "the buffer only grows";
    EXPECT_EQ(first.data + second.data, data);
    Load after = LoadOne(got, h, in);
    EXPECT_EQ(after.result, 1);
    EXPECT_EQ(after.bytes, 0u);
    EXPECT_EQ(after.lines, 0u);
    EXPECT_EQ(after.flags, HALV_CHUNK_END);
    EXPECT_EQ(ih->linesRead, 50u);

    // And out again through the header that was read: the same bytes.
    EXPECT_EQ(WriteImage(h, got, {first, second}), kExampleHeader + data);
    in->close(in);
    h->free(h);
}

TEST(RasterInternal, PixelInterleaveKeepsOneListEntry) {
    HeaderText t;
    t.raster = {"pixels: 5", "scanlines: 2"};
    t.encoding = {"imageParts: 3 0 0", "bytes/sl: 15", "bits/sample: 8", "interleave: pixel"};
    t.photometry = {"name: rgbLinear"};
    std::string data = Samples(30, 1, false);
    Opened o(t.Text() + data);
    ASSERT_EQ(o.result, 1);
    EXPECT_EQ(o.header->interleave, 1u);
    EXPECT_EQ(o.internal()->sepCount, 1u);
    EXPECT_EQ(o.internal()->bytesPerLine, 15u);
    auto loads = LoadAll(o.manager, o.header, o.input.io());
    ASSERT_EQ(loads.size(), 1u);
    EXPECT_EQ(loads[0].lines, 2u);
    EXPECT_EQ(WriteImage(o.header, o.manager, loads), t.Text() + data);
}

TEST(RasterInternal, BigEndianSamplesAreReversedAndWrittenBackInTheMachinesOrder) {
    // Three separations of 8, 16 and 32 bits, 3 pixels: 3, 6 and 12 bytes.
    for (const char *architecture : {"type 1", "big", "BIG"}) {
        HeaderText t;
        t.architecture = architecture;
        t.raster = {"pixels: 3", "scanlines: 4"};
        t.encoding = {"imageParts: 2 1 0", "bytes/sl: 3 6 12", "bits/sample: 8 16 32", "interleave: scanline"};
        t.photometry = {"name: MultiPart"};
        std::string big, little;
        for (uint32_t line = 0; line < 4; ++line) {
            big += Samples(3, 1, true, line) + Samples(3, 2, true, 0x1100 + line) +
                   Samples(3, 4, true, 0x22334455 + line);
            little += Samples(3, 1, false, line) + Samples(3, 2, false, 0x1100 + line) +
                      Samples(3, 4, false, 0x22334455 + line);
        }
        Opened o(t.Text() + big);
        ASSERT_EQ(o.result, 1) << architecture;
        EXPECT_EQ(o.header->endian, 0) << "the loader reverses, so memory holds the machine's order";
        EXPECT_EQ(o.internal()->swapBytes, 1u);
        auto loads = LoadAll(o.manager, o.header, o.input.io(), 3);
        ASSERT_EQ(loads.size(), 2u);
        EXPECT_EQ(loads[1].flags, HALV_CHUNK_END);
        EXPECT_EQ(Concat(loads), little);
        HeaderText back = t;
        back.architecture = "type 2";
        EXPECT_EQ(WriteImage(o.header, o.manager, loads), back.Text() + little);
    }
    // Little-endian words and an unknown order are left alone; the unknown
    // one is written as the machine's.
    for (const char *architecture : {"little", "type 2", "vax", ""}) {
        HeaderText t;
        t.architecture = architecture;
        t.encoding = {"imageParts: 1 0 0", "bytes/sl: 8", "bits/sample: 16", "interleave: scanline"};
        std::string data = Samples(12, 2, true);
        Opened o(t.Text() + data);
        ASSERT_EQ(o.result, 1);
        bool known = std::string(architecture) == "little" || std::string(architecture) == "type 2";
        EXPECT_EQ(o.header->endian, known ? 0 : -1) << architecture;
        EXPECT_EQ(o.internal()->swapBytes, 0u);
        auto loads = LoadAll(o.manager, o.header, o.input.io());
        EXPECT_EQ(Concat(loads), data);
        HeaderText back = t;
        back.architecture = "type 2";
        EXPECT_EQ(WriteImage(o.header, o.manager, loads), back.Text() + data);
    }
}

TEST(RasterInternal, ColourNamesKnownUnknownAndMissing) {
    struct Case {
        std::vector<std::string> photometry;
        int32_t color;
        std::string written;
    } cases[] = {
        {{}, 0, "name: unknown"},
        {{"name: someothername"}, 0, "name: someothername"},
        {{"name: Map"}, 12, "name: Map"},
        {{"name: cielab", "gamma: 2.2"}, 4, ""},
    };
    for (const Case &c : cases) {
        HeaderText t;
        t.photometry = c.photometry;
        Opened o(t.Text());
        ASSERT_EQ(o.result, 1);
        EXPECT_EQ(o.header->color, c.color);
        bool kept = HVHdrCheckHeaderParam(o.header->userData, "Photometry", "name") == 1;
        EXPECT_EQ(kept, c.color == 0 && !c.photometry.empty()) << "a known name leaves the tree";
        HeaderText back = t;
        if (c.photometry.empty())
            back.photometry = {c.written};
        else if (c.color == 4)
            back.photometry = {"gamma: 2.2", "name: cielab"}; // set again behind what stayed
        EXPECT_EQ(WriteImage(o.header, o.manager, {}), back.Text());
    }
}

TEST(RasterInternal, OldVersionReadsByItsOwnRulesAndGoesOutAsTheNewOne) {
    // Map counts as no colour and stays in the tree; architecture and
    // interleave aren't read; one width stands for all image parts.
    HeaderText t;
    t.version = "2.0";
    t.architecture = "type 1";
    t.binary = false;
    t.raster = {"pixels: 2", "scanlines: 2"};
    t.encoding = {"imageParts: 3", "bits/sample: 8 1 1", "bytes/sl: 2 9 9", "interleave: pixel"};
    t.photometry = {"name: Map"};
    std::string data = Samples(12, 1, true);
    HVHdrManager old{};
    ASSERT_EQ(HVHdrGetManager_Str("INTERNAL", "2.0", &old), 1);
    Opened o(t.Text() + data);
    ASSERT_EQ(o.result, 1);
    EXPECT_EQ(o.manager.toHeader, old.toHeader);
    EXPECT_NE(o.manager.toHeader, Internal().toHeader);
    EXPECT_EQ(o.manager.loadChunk, Internal().loadChunk);
    EXPECT_EQ(o.header->endian, 0);
    EXPECT_EQ(o.internal()->swapBytes, 0u);
    EXPECT_EQ(o.header->interleave, 0u);
    EXPECT_EQ(o.header->color, 0);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(o.header->bitsPerSample[i], 8u) << i;
        EXPECT_EQ(o.header->bytesPerSep[i], 2u) << i;
    }
    EXPECT_EQ(o.internal()->bytesPerLine, 6u);
    auto loads = LoadAll(o.manager, o.header, o.input.io());
    EXPECT_EQ(Concat(loads), data);
    HeaderText back;
    back.raster = t.raster;
    back.encoding = {"imageParts: 3 0 0", "bytes/sl: 2 2 2", "bits/sample: 8 8 8", "interleave: scanline"};
    back.photometry = {"name: Map"};
    EXPECT_EQ(WriteImage(o.header, o.manager, loads), back.Text() + data);

    // The same name in the new version is the map colour.
    HeaderText now;
    now.photometry = {"name: Map"};
    Opened n(now.Text());
    EXPECT_EQ(n.header->color, 12);
}

TEST(RasterInternal, OldVersionPartsAndMasks) {
    struct Case {
        std::vector<std::string> encoding;
        uint32_t parts0, parts1;
        uint32_t bits[3], bytes[3];
    } cases[] = {
        // No imageParts: one part.
        {{"bits/sample: 16", "bytes/sl: 8"}, 1, 0, {16, 0, 0}, {8, 0, 0}},
        // A mask with both lists counts.
        {{"imageParts: 2", "bits/sample: 8", "bytes/sl: 4", "maskBits/sample: 1", "maskBytes/sl: 1"},
         2, 1, {8, 8, 1}, {4, 4, 1}},
        // maskBits/sample alone is ignored.
        {{"imageParts: 2", "bits/sample: 8", "bytes/sl: 4", "maskBits/sample: 1"}, 2, 0, {8, 8, 0}, {4, 4, 0}},
    };
    for (const Case &c : cases) {
        HeaderText t;
        t.version = "2.0";
        t.encoding = c.encoding;
        Opened o(t.Text());
        ASSERT_EQ(o.result, 1);
        EXPECT_EQ(o.header->parts[0], c.parts0);
        EXPECT_EQ(o.header->parts[1], c.parts1);
        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ(o.header->bitsPerSample[i], c.bits[i]) << i;
            EXPECT_EQ(o.header->bytesPerSep[i], c.bytes[i]) << i;
        }
        EXPECT_FALSE(HVHdrCheckHeaderParam(o.header->userData, "Encoding", "maskBits/sample"));
    }
}

TEST(RasterInternal, LinesPerLoadFollowTheAskAndTheHeight) {
    HeaderText t;
    t.raster = {"pixels: 4", "scanlines: 40"};
    std::string data = Samples(160, 1, false);
    {
        // Lines 0 means 32, then the rest.
        Opened o(t.Text() + data);
        auto loads = LoadAll(o.manager, o.header, o.input.io());
        ASSERT_EQ(loads.size(), 2u);
        EXPECT_EQ(loads[0].lines, 32u);
        EXPECT_EQ(loads[1].lines, 8u);
        EXPECT_EQ(loads[1].flags, HALV_CHUNK_END);
    }
    {
        // Lines asked for exactly; the last load ends on the image's end.
        Opened o(t.Text() + data);
        auto loads = LoadAll(o.manager, o.header, o.input.io(), 10);
        ASSERT_EQ(loads.size(), 4u);
        for (const Load &l : loads)
            EXPECT_EQ(l.lines, 10u);
        EXPECT_EQ(loads[3].flags, HALV_CHUNK_END);
        EXPECT_EQ(Concat(loads), data);
    }
    // Without a height, one line for each load, and the first short read
    // ends the image without failing; the same for height 0.
    for (const std::vector<std::string> &raster :
         {std::vector<std::string>{"pixels: 4"}, std::vector<std::string>{"pixels: 4", "scanlines: 0"}}) {
        HeaderText u;
        u.raster = raster;
        Opened o(u.Text() + data.substr(0, 14));
        auto loads = LoadAll(o.manager, o.header, o.input.io(), 5);
        ASSERT_EQ(loads.size(), 4u);
        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ(loads[i].result, 1);
            EXPECT_EQ(loads[i].lines, 1u);
            EXPECT_EQ(loads[i].flags, 0u);
        }
        EXPECT_EQ(loads[3].result, 1);
        EXPECT_EQ(loads[3].lines, 0u);
        EXPECT_EQ(loads[3].bytes, 2u);
        EXPECT_EQ(loads[3].flags, HALV_CHUNK_END);
        EXPECT_EQ(Concat(loads), data.substr(0, 14));
    }
}

TEST(RasterInternal, TruncatedImageFailsAfterSwappingWhatArrived) {
    HeaderText t;
    t.architecture = "type 1";
    t.raster = {"pixels: 2", "scanlines: 5"};
    t.encoding = {"imageParts: 1 0 0", "bytes/sl: 4", "bits/sample: 16", "interleave: scanline"};
    // Two whole lines and half of the third.
    std::string data = Samples(5, 2, true, 0x0102, 0x0101);
    Opened o(t.Text() + data);
    Load l = LoadOne(o.manager, o.header, o.input.io());
    EXPECT_EQ(l.result, 0);
    EXPECT_EQ(l.bytes, 10u);
    EXPECT_EQ(l.lines, 2u);
    EXPECT_EQ(l.data.substr(0, 8), Samples(4, 2, false, 0x0102, 0x0101));
    EXPECT_EQ(l.data.substr(8), data.substr(8)) << "a partial line isn't reversed";
    EXPECT_EQ(o.internal()->linesRead, 2u);
}

TEST(RasterInternal, CompressedDataComeInBlocks) {
    HeaderText t;
    t.extra = {"[Compression]\ncompressors: lzw (level 2)\n"};
    std::string data(40000, 'z');
    for (size_t i = 0; i < data.size(); ++i)
        data[i] = (char)(i % 251);
    Opened o(t.Text() + data);
    ASSERT_EQ(o.result, 1);
    EXPECT_NE(o.header->compression, 0);
    EXPECT_EQ(o.header->compression, HalvStr2Comp("lzw"));
    EXPECT_EQ(o.internal()->bytesPerLine, 0u);
    auto loads = LoadAll(o.manager, o.header, o.input.io());
    ASSERT_EQ(loads.size(), 2u);
    EXPECT_EQ(loads[0].bytes, 32768u);
    EXPECT_EQ(loads[0].lines, 0u);
    EXPECT_EQ(loads[0].flags, 0u);
    EXPECT_EQ(loads[1].bytes, 40000u - 32768u);
    EXPECT_EQ(loads[1].flags, HALV_CHUNK_END);
    // compressors stays in the tree and goes out as it came.
    EXPECT_EQ(WriteImage(o.header, o.manager, loads), t.Text() + data);

    // Lines 1: blocks of 1024; a stream that ends on a block's end ends
    // with an empty chunk.
    Opened b(t.Text() + data.substr(0, 2048));
    auto blocks = LoadAll(b.manager, b.header, b.input.io(), 1);
    ASSERT_EQ(blocks.size(), 3u);
    EXPECT_EQ(blocks[0].bytes, 1024u);
    EXPECT_EQ(blocks[2].bytes, 0u);
    EXPECT_EQ(blocks[2].flags, HALV_CHUNK_END);

    // The copy works the line out anew, also for compressed data.
    HalvHeaderStruct *c = b.header->copy(b.header);
    ASSERT_NE(c, nullptr);
    auto *ci = reinterpret_cast<HalvInternalHeader *>(c);
    EXPECT_EQ(ci->bytesPerLine, 4u);
    EXPECT_EQ(ci->chunkBuffer, nullptr);
    EXPECT_EQ(ci->bufferCapacity, 0u);
    EXPECT_EQ(ci->linesRead, 0u);
    EXPECT_NE(c->userData, b.header->userData);
    EXPECT_EQ(c->free, b.header->free);
    c->free(c);
    b.header->free(nullptr); // ignored
}

TEST(RasterInternal, CompressionWords) {
    struct Case {
        const char *text;
        int32_t code;
    } cases[] = {
        {"   lzw", HalvStr2Comp("lzw")},
        {"lzw(2)", HalvStr2Comp("lzw")},
        {"nosuchpacker 3", -1},
        {"   ", 0},
        {"(lzw)", 0},
        {"abcdefghijklmnopqrstuvwxyz0123456789", -1}, // longer than the word buffer
    };
    for (const Case &c : cases) {
        HeaderText t;
        t.extra = {std::string("[Compression]\ncompressors: ") + c.text + "\n"};
        Opened o(t.Text());
        ASSERT_EQ(o.result, 1);
        EXPECT_EQ(o.header->compression, c.code) << c.text;
        EXPECT_EQ(o.internal()->bytesPerLine, c.code == 0 ? 4u : 0u);
    }
}

TEST(RasterInternal, WhatTheFormatDoesntReadStaysAndGoesOutAgain) {
    HeaderText t;
    t.raster = {"pixels: 4", "scanlines: 3", "frame: 7"};
    t.encoding = {"imageParts: 1 0 0", "bytes/sl: 4",        "bits/sample: 8",
                  "interleave: frame", "alignment: 4",       "minimumChunk: 4"};
    t.extra = {"[Origin]\nresolution: 300\nunits: dpi\n"};
    Opened o(t.Text());
    ASSERT_EQ(o.result, 1);
    EXPECT_EQ(o.header->alignment, 4u);
    EXPECT_EQ(o.header->interleave, 2u);
    EXPECT_EQ(o.header->minimumChunk, 0u) << "internal doesn't read it";
    EXPECT_EQ(o.internal()->sepCount, 1u) << "frame interleave sums the parts";
    HeaderText back = t;
    back.raster = {"frame: 7", "pixels: 4", "scanlines: 3"};
    back.encoding = {"minimumChunk: 4", "imageParts: 1 0 0", "bytes/sl: 4", "bits/sample: 8", "interleave: frame",
                     "alignment: 4"};
    EXPECT_EQ(WriteImage(o.header, o.manager, {}), back.Text());
}

TEST(RasterInternal, HostileAndEmptySizes) {
    HVHdrManager m = Internal();
    {
        // A line of 2 GB times 32 lines would wrap: refused, not wrapped.
        HeaderText t;
        t.raster = {"pixels: 1", "scanlines: 100"};
        t.encoding = {"imageParts: 1 0 0", "bytes/sl: 2147483647", "bits/sample: 8", "interleave: scanline"};
        Opened o(t.Text() + "short");
        EXPECT_EQ(LoadOne(o.manager, o.header, o.input.io()).result, 0);
        EXPECT_EQ(o.internal()->bufferCapacity, 0u);
        // Two entries that wrap in 32 bits sum as all byte counts do.
        t.encoding = {"imageParts: 2 0 0", "bytes/sl: 4294967295 5", "bits/sample: 8 8", "interleave: scanline"};
        Opened w(t.Text() + "abcdefgh");
        EXPECT_EQ(w.internal()->bytesPerLine, 4u);
        EXPECT_EQ(LoadOne(w.manager, w.header, w.input.io(), 2).bytes, 8u);
    }
    {
        // Compressed blocks for a huge line count are refused too.
        HeaderText t;
        t.raster = {};
        t.encoding = {};
        Opened o(t.Text() + "abc");
        EXPECT_EQ(o.internal()->bytesPerLine, 0u);
        EXPECT_EQ(LoadOne(o.manager, o.header, o.input.io(), 0xFFFFFFFFu).result, 0);
        // Nothing at all: blocks of 1024 bytes, the first short one ends it.
        Load l = LoadOne(o.manager, o.header, o.input.io(), 1);
        EXPECT_EQ(l.result, 1);
        EXPECT_EQ(l.data, "abc");
        EXPECT_EQ(l.flags, HALV_CHUNK_END);
        EXPECT_EQ(WriteImage(o.header, o.manager, {}),
                  "[ID]\nformat: internal\n" + kBinary +
                      "version: 2.1\narchitecture: type 2\n\n[Raster]\npixels: 0\nscanlines: 0\n\n"
                      // No separations: lists of no numbers are left out; a
                      // label without a value would run on into the next.
                      "[Encoding]\nimageParts: 0 0 0\ninterleave: scanline\n\n"
                      "[Photometry]\nname: grayLinear\n\n" +
                      kEndMarker);
    }
    {
        // Parts past the lists' size: the lists stop at 36 entries.
        HeaderText t;
        t.encoding = {"imageParts: 4000000000 4000000000 4000000000", "bytes/sl: 1 1", "bits/sample: 16 16"};
        Opened o(t.Text() + std::string(100, 'x'));
        ASSERT_EQ(o.result, 1);
        EXPECT_EQ(o.internal()->sepCount, 36u);
        EXPECT_EQ(o.internal()->bytesPerLine, 2u);
        auto loads = LoadAll(o.manager, o.header, o.input.io());
        EXPECT_EQ(loads.back().result, 1);
        std::string out = WriteImage(o.header, o.manager, {});
        EXPECT_NE(out.find("bytes/sl: 1 1 0 0"), std::string::npos);
    }
    // Null arguments through the slots and dispatch.
    HalvChunk chunk{};
    EXPECT_EQ(m.loadChunk(nullptr, nullptr, &chunk, 0), 0);
    EXPECT_EQ(m.emitChunk(nullptr, &chunk, nullptr), 0);
    EXPECT_EQ(m.fromHeader(nullptr, nullptr), 0);
    EXPECT_EQ(m.createHeader(nullptr), 0);
}

TEST(RasterInternal, ShortWritesAndTheTableEntries) {
    HVHdrManager m = Internal();
    HalvHeaderStruct *h = nullptr;
    ASSERT_EQ(HVHdrCreateHeader(m, &h), 1);
    char buffer[8];
    HalvIO *small = HalvIO_Str(buffer, sizeof buffer);
    char data[16] = "0123456789abcde";
    HalvChunk c{0, 0, 1, 16, 16, 0, data};
    EXPECT_EQ(HVHdrFromChunk(m, h, &c, small), -1);
    small->close(small);
    HalvIO *mem = HalvIO_Mem(0);
    EXPECT_EQ(HVHdrFromChunk(m, h, &c, mem), 1);
    EXPECT_EQ(Contents(mem), std::string(data, 16)) << "nothing but the bytes";
    mem->close(mem);
    h->free(h);

    HVHdrManager byType{};
    ASSERT_EQ(HVHdrGetManager_Type(0, &byType), 1);
    EXPECT_EQ(byType.toHeader, m.toHeader);
    ASSERT_EQ(HVHdrGetManager_Type(11, &byType), 1);
    EXPECT_NE(byType.toHeader, m.toHeader);
    EXPECT_EQ(HVHdrGetManager_Str("internal", "3.0", &byType), 0);
}
