// The "image-ext" raster format at the C interface: chunk records in both
// byte orders, the flags a stored chunk keeps, streams that end inside or
// exactly behind a chunk, hostile lengths, the keys it reads and writes,
// and a stored image read over HTTP from a server on 127.0.0.1.
#include <gtest/gtest.h>

#include <string>

#include "dpk_hvsup.h"
#include "streams/peer.h"
#include "headers/formats/support.h"

using namespace fmt_test;

namespace {

HVHdrManager ImageExt() { return Manager("image-ext", "1.0"); }

HeaderText ExtText(const std::string &architecture = "type 2") {
    HeaderText t;
    t.format = "image-ext";
    t.version = "1.0";
    t.architecture = architecture;
    t.raster = {"pixels: 3", "scanlines: 2"};
    t.encoding = {"imageParts: 2 0 0", "bytes/sl: 6 12", "bits/sample: 16 32", "interleave: scanline"};
    t.photometry = {"name: MultiPart"};
    return t;
}

/* Two lines of a 16-bit and a 32-bit separation of 3 pixels each. */
std::string TwoLines(bool big, uint32_t seed) {
    std::string s;
    for (uint32_t line = 0; line < 2; ++line)
        s += Samples(3, 2, big, 0x0A00 + seed + line, 0x0102) + Samples(3, 4, big, 0x10203040 + seed + line);
    return s;
}

} // namespace

TEST(RasterImageExt, ChunksRoundTripWithTheirRecordsAndKeptFlags) {
    HeaderText t = ExtText();
    std::string a = TwoLines(false, 1), b = TwoLines(false, 2);
    std::string stored = t.Text() + ExtChunk(a, 2, 7, 0x20, false) + ExtChunk("", 0, 0, 0, false) +
                         ExtChunk(b, 2, 0xDEADBEEF, 0xFFFFFFFF, false);
    Opened o(stored);
    ASSERT_EQ(o.result, 1);
    EXPECT_EQ(Fields(o.header), "type 11 dims 2: 3 2 parts 2 0 0 endian 0 il 0");
    EXPECT_EQ(o.ext()->swapBytes, 0u);
    // Lines asked for are ignored; an empty chunk is no end; only flags
    // 0x01 and 0x20 survive; the stream ends exactly behind a payload, and
    // the next load ends it.
    std::vector<Load> loads = {o.Next(99), o.Next(99), o.Next(99)};
    EXPECT_EQ(Briefs(loads), "1 2L 36B f20 a7; 1 0L 0B f0 a0; 1 2L 36B f21 adeadbeef");
    EXPECT_EQ(Concat(loads), a + b);
    EXPECT_EQ(loads[2].capacity, (uint32_t)b.size());
    EXPECT_EQ(Brief(o.Next()), "1 0L 0B f1 a0");

    // Written back: the same bytes but for the flags dropped.
    std::string expected = t.Text() + ExtChunk(a, 2, 7, 0x20, false) + ExtChunk("", 0, 0, 0, false) +
                           ExtChunk(b, 2, 0xDEADBEEF, 0x21, false);
    EXPECT_EQ(WriteImage(o.header, o.manager, loads), expected);
    Load dropped = loads[0];
    dropped.flags = 0xFFFFFFDE; // everything but the two kept bits
    EXPECT_EQ(WriteImage(o.header, o.manager, {dropped}), t.Text() + ExtChunk(a, 2, 7, 0, false));
}

TEST(RasterImageExt, BigEndianRecordsAndSamplesAreReversedOnReading) {
    HeaderText t = ExtText("type 1");
    std::string big = TwoLines(true, 5), little = TwoLines(false, 5);
    // A chunk whose lines claim more than its payload holds: reversal stops
    // at the payload's end.
    std::string stored =
        t.Text() + ExtChunk(big, 2, 0x01020304, 0x21, true) + ExtChunk(big.substr(0, 18), 50, 0, 0, true);
    Opened o(stored);
    ASSERT_EQ(o.result, 1);
    EXPECT_EQ(o.header->endian, 0);
    EXPECT_EQ(o.ext()->swapBytes, 1u);
    Load l = o.Next(), claim = o.Next();
    EXPECT_EQ(Briefs({l, claim}), "1 2L 36B f21 a1020304; 1 50L 18B f0 a0");
    EXPECT_EQ(l.data, little);
    EXPECT_EQ(claim.data, little.substr(0, 18));

    // Written again as the machine's order: records and samples little.
    HeaderText back = t;
    back.architecture = "type 2";
    EXPECT_EQ(WriteImage(o.header, o.manager, {l}),
              back.Text() + ExtChunk(little, 2, 0x01020304, 0x21, false));

    // A header that says big endian in memory gets big records, and its
    // payload is left as it is.
    HVHdrManager m = ImageExt();
    HalvHeaderStruct *h = nullptr;
    ASSERT_EQ(HVHdrCreateHeader(m, &h), 1);
    h->endian = 1;
    HalvIO *out = HalvIO_Mem(64);
    char payload[] = "abcd";
    HalvChunk c{1, 2, 3, 4, 4, 0, payload};
    EXPECT_EQ(HVHdrFromChunk(m, h, &c, out), 1);
    EXPECT_EQ(Contents(out), ExtChunk("abcd", 3, 2, 1, true));
    out->close(out);
    h->endian = -1; // unknown: the machine's order
    out = HalvIO_Mem(64);
    EXPECT_EQ(HVHdrFromChunk(m, h, &c, out), 1);
    EXPECT_EQ(Contents(out), ExtChunk("abcd", 3, 2, 1, false));
    out->close(out);
    char small[10];
    out = HalvIO_Str(small, sizeof small);
    EXPECT_EQ(HVHdrFromChunk(m, h, &c, out), -1);
    out->close(out);
    h->free(h);
}

TEST(RasterImageExt, LineCountsThatTheBytesDontBack) {
    // Lines of no bytes, and lines of one byte each: a record that claims
    // four billion lines costs no more than its payload.
    for (const char *sizes : {"bytes/sl: 0 0", "bytes/sl: 1 0"}) {
        HeaderText t = ExtText("type 1");
        t.encoding = {"imageParts: 2 0 0", sizes, "bits/sample: 16 32", "interleave: scanline"};
        Opened o(t.Text() + ExtChunk("abcdefgh", 0xFFFFFFFFu, 0, 0, true));
        Load l = o.Next();
        EXPECT_EQ(Brief(l), "1 4294967295L 8B f0 a0");
        EXPECT_EQ(l.data, "abcdefgh") << "no whole sample to reverse";
    }
}

TEST(RasterImageExt, StreamsThatEndInsideAChunkFail) {
    HeaderText t = ExtText();
    std::string chunk = ExtChunk(TwoLines(false, 0), 2, 0, 0, false);
    for (size_t cut : {size_t(1), size_t(15), size_t(16), size_t(17), chunk.size() - 1}) {
        Opened o(t.Text() + chunk + chunk.substr(0, cut));
        ASSERT_EQ(o.result, 1);
        EXPECT_EQ(o.Next().result, 1);
        EXPECT_EQ(o.Next().result, 0) << "cut at " << cut;
    }
}

TEST(RasterImageExt, HostileLengthsFailWithoutAllocatingWhatTheyClaim) {
    HeaderText t = ExtText();
    for (uint32_t length : {0xFFFFFFF0u, 0x80000000u, 0x7FFFFFFFu, 5000000u}) {
        Opened o(t.Text() + ExtChunk("only a few bytes", 1, 0, 0, false, length));
        ASSERT_EQ(o.result, 1);
        EXPECT_EQ(o.Next().result, 0) << length;
        EXPECT_LE(o.ext()->bufferCapacity, 2u << 20) << "the buffer grows with what arrives";
    }
    // A large chunk that is all there arrives whole, in a buffer of its size.
    std::string big(3u << 20, '\0');
    for (size_t i = 0; i < big.size(); ++i)
        big[i] = (char)(i * 31 >> 3);
    Opened o(t.Text() + ExtChunk(big, 0, 0, 0, false) + ExtChunk("tail", 0, 0, 1, false));
    Load l = o.Next();
    ASSERT_EQ(l.result, 1);
    EXPECT_TRUE(l.data == big);
    EXPECT_EQ(o.ext()->bufferCapacity, (uint32_t)big.size());
    Load tail = o.Next();
    EXPECT_EQ(tail.data, "tail");
    EXPECT_EQ(tail.capacity, (uint32_t)big.size()) << "a smaller chunk reuses the buffer";
    EXPECT_EQ(tail.flags, 1u);
}

TEST(RasterImageExt, KeysReadAndWritten) {
    HeaderText t = ExtText();
    t.raster = {"pixels: 640", "scanlines: 0", "blobs: 9"};
    t.encoding = {"imageParts: 1 0 0", "bytes/sl: 640",     "bits/sample: 8",       "interleave: scanline",
                  "alignment: 8",      "minimumChunk: 640", "preferredChunk: 20480"};
    t.photometry = {"name: grayLinear"};
    Opened o(t.Text());
    ASSERT_EQ(o.result, 1);
    EXPECT_EQ(Fields(o.header), "type 11 dims 3: 640 0 9 parts 1 0 0 endian 0 il 0");
    EXPECT_EQ(o.header->alignment, 8u);
    EXPECT_EQ(o.header->minimumChunk, 640u);
    EXPECT_EQ(o.header->preferredChunk, 20480u);
    EXPECT_EQ(o.header->color, 1);
    // Section ID stays in the tree without the keys read; End stays.
    EXPECT_EQ(HVHdrCheckHeaderParam(o.header->userData, "ID", "format"), 0);
    HeaderText back = t;
    back.raster = {"pixels: 640", "blobs: 9"}; // scanlines 0 isn't written
    EXPECT_EQ(WriteImage(o.header, o.manager), back.Text());

    // Without pixels the image is one pixel wide; without scanlines it has
    // one dimension, and other keys of ID and other sections survive; a
    // Photometry section that wasn't there comes in behind them.
    HeaderText bare = ExtText();
    bare.raster = {};
    bare.photometry = {};
    bare.extra = {"[Origin]\nunits: mm\n"};
    std::string text = bare.Text();
    text.insert(text.find("version:"), "creator: test\n");
    Opened p(text);
    ASSERT_EQ(p.result, 1);
    EXPECT_EQ(Fields(p.header), "type 11 dims 1: 1 parts 2 0 0 endian 0 il 0");
    std::string out = WriteImage(p.header, p.manager);
    EXPECT_EQ(out.substr(0, 6 + 22 + 14), "[ID]\ncreator: test\nformat: image-ext\n" + kBinary.substr(0, 5));
    EXPECT_NE(out.find("[Raster]\npixels: 1\n\n"), std::string::npos);
    EXPECT_NE(out.find("[Origin]\nunits: mm\n\n[Photometry]\nname: unknown\n\n[End]\x0c\n"),
              std::string::npos);

    // A made header: one dimension of one pixel, type 11; copies own no buffer.
    HVHdrManager m = ImageExt();
    HalvHeaderStruct *h = nullptr;
    ASSERT_EQ(HVHdrCreateHeader(m, &h), 1);
    EXPECT_EQ(Fields(h), "type 11 dims 1: 1 parts 0 0 0 endian 0 il 0");
    HalvHeaderStruct *c = o.header->copy(o.header);
    ASSERT_NE(c, nullptr);
    auto *ce = reinterpret_cast<HalvImageExtHeader *>(c);
    EXPECT_EQ(ce->chunkBuffer, nullptr);
    EXPECT_EQ(ce->bufferCapacity, 0u);
    EXPECT_EQ(c->preferredChunk, 20480u);
    EXPECT_EQ(WriteImage(c, m), back.Text());
    c->free(c);
    void (*release)(HalvHeaderStruct *) = h->free;
    release(h);
    release(nullptr); // ignored
}

/* A key the format reads may stand twice, for instance where a second [ID]
 * reopens the first.  The first label is the one read, and none of them
 * stays behind: a repeat left in the tree would come before the label that
 * writing puts back, and the written text would name another format (here
 * "internal", read as such) or other values. */
TEST(RasterImageExt, RepeatedKeysAreReadOnceAndNoneStaysBehind) {
    HeaderText t = ExtText();
    t.encoding.push_back("bits/sample: 8 8");
    t.photometry.push_back("name: RGB");
    t.extra = {"[id]\nformat: internal\nversion: 2.1\nformat: image-ext\n"};
    Opened o(t.Text());
    ASSERT_EQ(o.result, 1);
    EXPECT_EQ(o.header->managerType, HALV_HDR_IMAGE_EXT);
    EXPECT_EQ(o.header->bitsPerSample[0], 16u);
    EXPECT_EQ(o.header->bitsPerSample[1], 32u);
    EXPECT_EQ(o.header->color, HalvStr2Clr("MultiPart"));
    EXPECT_EQ(HVHdrCheckHeaderParam(o.header->userData, "ID", "format"), 0);
    EXPECT_EQ(HVHdrCheckHeaderParam(o.header->userData, "Encoding", "bits/sample"), 0);
    EXPECT_EQ(HVHdrCheckHeaderParam(o.header->userData, "Photometry", "name"), 0);

    EXPECT_EQ(WriteImage(o.header, o.manager), ExtText().Text());
}

TEST(RasterImageExt, ReadOverHttp) {
    HeaderText t = ExtText("type 1");
    std::string big = TwoLines(true, 9), little = TwoLines(false, 9);
    std::string body = t.Text() + ExtChunk(big, 2, 0, 0, true) + ExtChunk(big, 2, 0, 1, true);
    peer::Server server;
    server.Respond(peer::Response("Content-Length: " + std::to_string(body.size()) + "\r\n", body));
    HalvIO *in = HalvIO_FileName(server.Url("/image.ext").c_str(), "r");
    ASSERT_NE(in, nullptr);
    HVHdrManager m{};
    HalvHeaderStruct *h = nullptr;
    ASSERT_EQ(HVHdrRead_Header(in, &m, &h), 1);
    auto loads = LoadAll(m, h, in);
    ASSERT_EQ(loads.size(), 2u);
    EXPECT_EQ(loads[0].data, little);
    EXPECT_EQ(loads[1].data, little);
    EXPECT_EQ(loads[1].flags, 1u);
    in->close(in);
    server.Join();
    EXPECT_EQ(server.request().rfind("GET /image.ext HTTP/1.1\r\n", 0), 0u);
    h->free(h);
}
