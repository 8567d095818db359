// The "internal" raster format at the C interface: the exact stored form,
// round trips through real files and memory streams, byte order, the old
// version's rules, the loader's line counts and end marks, compressed
// blocks, and hostile sizes.
#include <gtest/gtest.h>

#include <string>

#include "dpk_hvsup.h"
#include "headers/formats/support.h"

using namespace fmt_test;

TEST(RasterInternal, MadeHeaderWritesTheExactStoredFormAndReadsBackFromAFile) {
    HVHdrManager m = Manager("internal", "2.1");
    HalvHeaderStruct *h = nullptr;
    ASSERT_EQ(HVHdrCreateHeader(m, &h), 1);
    EXPECT_EQ(Fields(h), "type 0 dims 2: 0 0 parts 0 0 0 endian 0 il 0");
    h->dims[0] = 100;
    h->dims[1] = 50;
    h->parts[0] = 3;
    for (int i = 0; i < 3; ++i)
        h->bitsPerSample[i] = 8;
    h->color = HalvStr2Clr("rgbLinear");
    EXPECT_EQ(HalvHeaderFillInBytes(h), 300u);

    const std::string stored =
        "[ID]\nformat: internal\n" + kBinary +
        "version: 2.1\narchitecture: type 2\n\n[Raster]\npixels: 100\nscanlines: 50\n\n"
        "[Encoding]\nimageParts: 3 0 0\nbytes/sl: 100 100 100\nbits/sample: 8 8 8\n"
        "interleave: scanline\n\n[Photometry]\nname: rgbLinear\n\n" +
        kEndMarker;
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
    EXPECT_EQ(ReadFile(path), stored + data);

    // Back from the file: 32 lines, then the 18 left with the end mark on,
    // then an empty chunk that ends the image again; the buffer only grows.
    HalvIO *in = HalvIO_FileName(path.c_str(), "rb");
    ASSERT_NE(in, nullptr);
    HVHdrManager got{};
    ASSERT_EQ(HVHdrRead_Header(in, &got, &h), 1);
    auto *ih = reinterpret_cast<HalvInternalHeader *>(h);
    EXPECT_EQ(ih->bytesPerLine, 300u);
    EXPECT_EQ(ih->sepCount, 3u);
    EXPECT_EQ(ih->swapBytes, 0u);
    EXPECT_EQ(h->color, 2);
    std::vector<Load> loads = {LoadOne(got, h, in), LoadOne(got, h, in), LoadOne(got, h, in)};
    EXPECT_EQ(Briefs(loads), "1 32L 9600B f0 a0; 1 18L 5400B f1 a0; 1 0L 0B f1 a0");
    EXPECT_EQ(loads[1].capacity, 9600u);
    EXPECT_EQ(Concat(loads), data);
    EXPECT_EQ(ih->linesRead, 50u);

    // And out again through the header that was read: the same bytes.
    EXPECT_EQ(WriteImage(h, got, loads), stored + data);
    in->close(in);
    h->free(h);
}

TEST(RasterInternal, InterleaveAndByteOrder) {
    HeaderText pixel;
    pixel.raster = {"pixels: 5", "scanlines: 2"};
    pixel.encoding = {"imageParts: 3 0 0", "bytes/sl: 15", "bits/sample: 8", "interleave: pixel"};
    pixel.photometry = {"name: rgbLinear"};
    std::string data = Samples(30, 1, false);
    Opened p(pixel.Text() + data);
    ASSERT_EQ(p.result, 1);
    EXPECT_EQ(p.header->interleave, 1u);
    EXPECT_EQ(p.internal()->sepCount, 1u) << "pixel interleave keeps one list entry";
    EXPECT_EQ(p.internal()->bytesPerLine, 15u);
    std::vector<Load> loads = p.All();
    EXPECT_EQ(Briefs(loads), "1 2L 30B f1 a0");
    EXPECT_EQ(WriteImage(p.header, p.manager, loads), pixel.Text() + data);

    // Big-endian samples of 8, 16 and 32 bits (3, 6 and 12 bytes a line)
    // are reversed, and written back in the machine's order; little-endian
    // words and an unknown order are left alone, the unknown one written
    // as the machine's.
    HeaderText t;
    t.raster = {"pixels: 3", "scanlines: 4"};
    t.encoding = {"imageParts: 2 1 0", "bytes/sl: 3 6 12", "bits/sample: 8 16 32", "interleave: scanline"};
    t.photometry = {"name: MultiPart"};
    std::string big, little;
    for (uint32_t line = 0; line < 4; ++line)
        for (bool b : {true, false})
            (b ? big : little) += Samples(3, 1, b, line) + Samples(3, 2, b, 0x1100 + line) +
                                  Samples(3, 4, b, 0x22334455 + line);
    for (const char *architecture : {"type 1", "big", "BIG", "little", "type 2", "vax", ""}) {
        SCOPED_TRACE(architecture);
        const std::string a = architecture;
        bool isBig = a == "type 1" || a == "big" || a == "BIG";
        t.architecture = a;
        Opened o(t.Text() + (isBig ? big : little));
        ASSERT_EQ(o.result, 1);
        EXPECT_EQ(o.header->endian, isBig || a == "little" || a == "type 2" ? 0 : -1);
        EXPECT_EQ(o.internal()->swapBytes, isBig ? 1u : 0u);
        std::vector<Load> loads = o.All(3);
        EXPECT_EQ(Briefs(loads), "1 3L 63B f0 a0; 1 1L 21B f1 a0");
        EXPECT_EQ(Concat(loads), little);
        HeaderText back = t;
        back.architecture = "type 2";
        EXPECT_EQ(WriteImage(o.header, o.manager, loads), back.Text() + little);
    }
}

TEST(RasterInternal, ColourNamesKnownUnknownAndMissing) {
    const struct {
        std::vector<std::string> photometry;
        int32_t color;
        std::vector<std::string> written;
    } cases[] = {
        {{}, 0, {"name: unknown"}},
        {{"name: someothername"}, 0, {"name: someothername"}},
        {{"name: Map"}, 12, {"name: Map"}},
        {{"name: cielab", "gamma: 2.2"}, 4, {"gamma: 2.2", "name: cielab"}}, // set again behind what stayed
    };
    for (const auto &c : cases) {
        HeaderText t;
        t.photometry = c.photometry;
        Opened o(t.Text());
        ASSERT_EQ(o.result, 1);
        EXPECT_EQ(o.header->color, c.color);
        bool kept = HVHdrCheckHeaderParam(o.header->userData, "Photometry", "name") == 1;
        EXPECT_EQ(kept, c.color == 0 && !c.photometry.empty()) << "a known name leaves the tree";
        t.photometry = c.written;
        EXPECT_EQ(WriteImage(o.header, o.manager), t.Text());
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
    HVHdrManager old = Manager("INTERNAL", "2.0"), now = Manager("internal", "2.1");
    Opened o(t.Text() + data);
    ASSERT_EQ(o.result, 1);
    EXPECT_EQ(o.manager.toHeader, old.toHeader);
    EXPECT_NE(o.manager.toHeader, now.toHeader);
    EXPECT_EQ(o.manager.loadChunk, now.loadChunk);
    EXPECT_EQ(o.header->endian, 0);
    EXPECT_EQ(o.internal()->swapBytes, 0u);
    EXPECT_EQ(o.header->interleave, 0u);
    EXPECT_EQ(o.header->color, 0);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(o.header->bitsPerSample[i], 8u) << i;
        EXPECT_EQ(o.header->bytesPerSep[i], 2u) << i;
    }
    EXPECT_EQ(o.internal()->bytesPerLine, 6u);
    std::vector<Load> loads = o.All();
    EXPECT_EQ(Concat(loads), data);
    HeaderText back;
    back.raster = t.raster;
    back.encoding = {"imageParts: 3 0 0", "bytes/sl: 2 2 2", "bits/sample: 8 8 8", "interleave: scanline"};
    back.photometry = {"name: Map"};
    EXPECT_EQ(WriteImage(o.header, o.manager, loads), back.Text() + data);
    Opened n(back.Text());
    EXPECT_EQ(n.header->color, 12) << "the same name in the new version is the map colour";

    const struct {
        std::vector<std::string> encoding;
        uint32_t parts0, parts1;
        uint32_t bits[3], bytes[3];
    } cases[] = {
        {{"bits/sample: 16", "bytes/sl: 8"}, 1, 0, {16, 0, 0}, {8, 0, 0}}, // no imageParts: one part
        // A mask with both lists counts; maskBits/sample alone is ignored.
        {{"imageParts: 2", "bits/sample: 8", "bytes/sl: 4", "maskBits/sample: 1", "maskBytes/sl: 1"},
         2, 1, {8, 8, 1}, {4, 4, 1}},
        {{"imageParts: 2", "bits/sample: 8", "bytes/sl: 4", "maskBits/sample: 1"},
         2, 0, {8, 8, 0}, {4, 4, 0}},
    };
    for (const auto &c : cases) {
        t.encoding = c.encoding;
        Opened m(t.Text());
        ASSERT_EQ(m.result, 1);
        EXPECT_EQ(m.header->parts[0], c.parts0);
        EXPECT_EQ(m.header->parts[1], c.parts1);
        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ(m.header->bitsPerSample[i], c.bits[i]) << i;
            EXPECT_EQ(m.header->bytesPerSep[i], c.bytes[i]) << i;
        }
        EXPECT_FALSE(HVHdrCheckHeaderParam(m.header->userData, "Encoding", "maskBits/sample"));
    }
}

TEST(RasterInternal, LinesPerLoadFollowTheAskAndTheHeight) {
    std::string data = Samples(160, 1, false);
    const struct {
        std::vector<std::string> raster;
        size_t bytes;
        uint32_t ask;
        const char *briefs;
    } rows[] = {
        // Lines 0 means 32, then the rest.
        {{"pixels: 4", "scanlines: 40"}, 160, 0, "1 32L 128B f0 a0; 1 8L 32B f1 a0"},
        // Lines asked for exactly; the last load ends on the image's end.
        {{"pixels: 4", "scanlines: 40"}, 160, 10,
         "1 10L 40B f0 a0; 1 10L 40B f0 a0; 1 10L 40B f0 a0; 1 10L 40B f1 a0"},
        // Without a height, or height 0: one line a load, and the first
        // short read ends the image without failing.
        {{"pixels: 4"}, 14, 5, "1 1L 4B f0 a0; 1 1L 4B f0 a0; 1 1L 4B f0 a0; 1 0L 2B f1 a0"},
        {{"pixels: 4", "scanlines: 0"}, 14, 5, "1 1L 4B f0 a0; 1 1L 4B f0 a0; 1 1L 4B f0 a0; 1 0L 2B f1 a0"},
    };
    for (const auto &r : rows) {
        HeaderText t;
        t.raster = r.raster;
        Opened o(t.Text() + data.substr(0, r.bytes));
        std::vector<Load> loads = o.All(r.ask);
        EXPECT_EQ(Briefs(loads), r.briefs) << r.raster.size() << " " << r.ask;
        EXPECT_EQ(Concat(loads), data.substr(0, r.bytes));
    }

    // A truncated image: two whole lines and half of the third.  The load
    // fails after reversing what arrived, but not the partial line.
    HeaderText t;
    t.architecture = "type 1";
    t.raster = {"pixels: 2", "scanlines: 5"};
    t.encoding = {"imageParts: 1 0 0", "bytes/sl: 4", "bits/sample: 16", "interleave: scanline"};
    std::string cut = Samples(5, 2, true, 0x0102, 0x0101);
    Opened o(t.Text() + cut);
    Load l = o.Next();
    EXPECT_EQ(Brief(l), "0 2L 10B f0 a0");
    EXPECT_EQ(l.data, Samples(4, 2, false, 0x0102, 0x0101) + cut.substr(8));
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
    EXPECT_EQ(o.header->compression, HalvStr2Comp("lzw"));
    EXPECT_EQ(o.internal()->bytesPerLine, 0u);
    std::vector<Load> loads = o.All();
    EXPECT_EQ(Briefs(loads), "1 0L 32768B f0 a0; 1 0L 7232B f1 a0");
    // compressors stays in the tree and goes out as it came.
    EXPECT_EQ(WriteImage(o.header, o.manager, loads), t.Text() + data);

    // Lines 1: blocks of 1024; a stream that ends on a block's end ends
    // with an empty chunk.
    Opened b(t.Text() + data.substr(0, 2048));
    EXPECT_EQ(Briefs(b.All(1)), "1 0L 1024B f0 a0; 1 0L 1024B f0 a0; 1 0L 0B f1 a0");

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

    const struct {
        const char *text;
        int32_t code;
    } words[] = {
        {"   lzw", HalvStr2Comp("lzw")}, {"lzw(2)", HalvStr2Comp("lzw")}, {"nosuchpacker 3", -1}, {"   ", 0},
        {"(lzw)", 0},
        {"abcdefghijklmnopqrstuvwxyz0123456789", -1}, // longer than the word buffer
    };
    for (const auto &w : words) {
        t.extra = {std::string("[Compression]\ncompressors: ") + w.text + "\n"};
        Opened k(t.Text());
        ASSERT_EQ(k.result, 1);
        EXPECT_EQ(k.header->compression, w.code) << w.text;
        EXPECT_EQ(k.internal()->bytesPerLine, w.code == 0 ? 4u : 0u) << w.text;
    }
}

TEST(RasterInternal, WhatTheFormatDoesntReadStaysAndGoesOutAgain) {
    HeaderText t;
    t.raster = {"pixels: 4", "scanlines: 3", "frame: 7"};
    t.encoding = {"imageParts: 1 0 0", "bytes/sl: 4", "bits/sample: 8",
                  "interleave: frame", "alignment: 4", "minimumChunk: 4"};
    t.extra = {"[Origin]\nresolution: 300\nunits: dpi\n"};
    Opened o(t.Text());
    ASSERT_EQ(o.result, 1);
    EXPECT_EQ(o.header->alignment, 4u);
    EXPECT_EQ(o.header->interleave, 2u);
    EXPECT_EQ(o.header->minimumChunk, 0u) << "internal doesn't read it";
    EXPECT_EQ(o.internal()->sepCount, 1u) << "frame interleave sums the parts";
    t.raster = {"frame: 7", "pixels: 4", "scanlines: 3"};
    t.encoding = {"minimumChunk: 4", "imageParts: 1 0 0", "bytes/sl: 4",
                  "bits/sample: 8",  "interleave: frame", "alignment: 4"};
    EXPECT_EQ(WriteImage(o.header, o.manager), t.Text());
}

TEST(RasterInternal, HostileAndEmptySizes) {
    HeaderText t;
    t.raster = {"pixels: 1", "scanlines: 100"};
    // A line of 2 GB times 32 lines would wrap: refused, not wrapped.
    t.encoding = {"imageParts: 1 0 0", "bytes/sl: 2147483647", "bits/sample: 8", "interleave: scanline"};
    Opened o(t.Text() + "short");
    EXPECT_EQ(o.Next().result, 0);
    EXPECT_EQ(o.internal()->bufferCapacity, 0u);
    // Two entries that wrap in 32 bits sum as all byte counts do.
    t.encoding = {"imageParts: 2 0 0", "bytes/sl: 4294967295 5", "bits/sample: 8 8", "interleave: scanline"};
    Opened w(t.Text() + "abcdefgh");
    EXPECT_EQ(w.internal()->bytesPerLine, 4u);
    EXPECT_EQ(w.Next(2).bytes, 8u);
    // Parts past the lists' size: the lists stop at 36 entries.
    t.raster = HeaderText().raster;
    t.encoding = {"imageParts: 4000000000 4000000000 4000000000", "bytes/sl: 1 1", "bits/sample: 16 16"};
    Opened p(t.Text() + std::string(100, 'x'));
    ASSERT_EQ(p.result, 1);
    EXPECT_EQ(p.internal()->sepCount, 36u);
    EXPECT_EQ(p.internal()->bytesPerLine, 2u);
    EXPECT_EQ(p.All().back().result, 1);
    EXPECT_NE(WriteImage(p.header, p.manager).find("bytes/sl: 1 1 0 0"), std::string::npos);

    // Nothing at all: compressed blocks for a huge line count are refused
    // too; blocks of 1024 bytes, the first short one ends it.  Lists of no
    // numbers are left out: a label without a value would run on into the
    // next.
    t.raster = {};
    t.encoding = {};
    Opened e(t.Text() + "abc");
    EXPECT_EQ(e.internal()->bytesPerLine, 0u);
    EXPECT_EQ(e.Next(0xFFFFFFFFu).result, 0);
    Load l = e.Next(1);
    EXPECT_EQ(Brief(l), "1 0L 3B f1 a0");
    EXPECT_EQ(l.data, "abc");
    EXPECT_EQ(
        WriteImage(e.header, e.manager),
        "[ID]\nformat: internal\n" + kBinary +
            "version: 2.1\narchitecture: type 2\n\n[Raster]\npixels: 0\nscanlines: 0\n\n"
            "[Encoding]\nimageParts: 0 0 0\ninterleave: scanline\n\n[Photometry]\nname: grayLinear\n\n" +
            kEndMarker);

    HVHdrManager m = Manager("internal", "2.1");
    HalvChunk chunk{};
    EXPECT_EQ(m.loadChunk(nullptr, nullptr, &chunk, 0), 0);
    EXPECT_EQ(m.emitChunk(nullptr, &chunk, nullptr), 0);
    EXPECT_EQ(m.fromHeader(nullptr, nullptr), 0);
    EXPECT_EQ(m.createHeader(nullptr), 0);
}

TEST(RasterInternal, ShortWritesAndTheTableEntries) {
    HVHdrManager m = Manager("internal", "2.1");
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
    ASSERT_EQ(HVHdrGetManager_Type(HALV_HDR_INTERNAL, &byType), 1);
    EXPECT_EQ(byType.toHeader, m.toHeader);
    ASSERT_EQ(HVHdrGetManager_Type(HALV_HDR_IMAGE_EXT, &byType), 1);
    EXPECT_NE(byType.toHeader, m.toHeader);
    EXPECT_EQ(HVHdrGetManager_Str("internal", "3.0", &byType), 0);
}
