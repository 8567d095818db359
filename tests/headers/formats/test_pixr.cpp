// The "pixr" "1.0" format at the C interface: its keys (frame and offset,
// blobs, parts, lists that name every separation), chunk records in both
// byte orders with the payload left in the file's order, the emitChunk it
// shares with image-ext, hostile records, and one image carried through
// all four raster formats and back in both byte orders, every sample
// compared.
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <string>
#include <vector>

#include "dpk_hvsup.h"
#include "headers/formats/support.h"

using namespace fmt_test;

namespace {

HeaderText PixrText(const std::string &architecture = "type 2") {
    HeaderText t;
    t.format = "pixr";
    t.version = "1.0";
    t.architecture = architecture;
    t.raster = {"pixels: 3", "scanlines: 2", "frame: 7"};
    t.encoding = {"parts: 2 0 0", "offset: 11", "bytes/sl: 6 12", "bits/sample: 16 32",
                  "interleave: scanline"};
    t.photometry = {"name: MultiPart"};
    return t;
}

/* The tree that writing the header would store. */
HalvUserCMData *Written(Opened &o) { return WrittenTree(o.manager, o.header); }

/* Each {section, key, value} of rows against the tree. */
void ExpectParams(const HalvUserCMData *tree, std::initializer_list<std::array<const char *, 3>> rows) {
    for (const auto &r : rows)
        EXPECT_EQ(Param(tree, r[0], r[1]), r[2]) << r[0] << "/" << r[1];
}

} // namespace

TEST(RasterPixr, KeysReadAndWritten) {
    HeaderText t = PixrText();
    t.raster.push_back("blobs: 4");
    t.encoding.insert(t.encoding.end(), {"alignment: 4", "minimumChunk: 18", "preferredChunk: 180"});
    t.extra = {"[Origin]\nunits: mm\n"};
    Opened o(t.Text());
    ASSERT_EQ(o.result, 1);
    HalvHeaderStruct *h = o.header;
    // pixels, scanlines, frame, offset (from Encoding), blobs
    EXPECT_EQ(Fields(h), "type 12 dims 5: 3 2 7 11 4 parts 2 0 0 endian 0 il 0");
    EXPECT_EQ(h->bitsPerSample[1], 32u);
    EXPECT_EQ(h->bytesPerSep[1], 12u);
    EXPECT_EQ(h->alignment, 4u);
    EXPECT_EQ(h->minimumChunk, 18u);
    EXPECT_EQ(h->preferredChunk, 180u);
    EXPECT_EQ(o.ext()->swapBytes, 0u);
    // What was read is gone from the tree; the sections and the rest stay.
    for (const char *key : {"pixels", "scanlines", "frame", "blobs"})
        EXPECT_EQ(HVHdrGetHeaderParam(h->userData, "Raster", key), nullptr) << key;
    for (const char *key : {"parts", "offset", "bytes/sl", "bits/sample", "interleave", "alignment"})
        EXPECT_EQ(HVHdrGetHeaderParam(h->userData, "Encoding", key), nullptr) << key;
    EXPECT_EQ(Param(h->userData, "Origin", "units"), "mm");

    // The key is parts here, not imageParts, and offset stands in Encoding.
    HalvUserCMData *tree = Written(o);
    ExpectParams(tree, {{"ID", "format", "pixr"},
                        {"ID", "version", "1.0"},
                        {"ID", "architecture", "type 2"},
                        {"Raster", "frame", "7"},
                        {"Raster", "blobs", "4"},
                        {"Encoding", "parts", "2 0 0"},
                        {"Encoding", "imageParts", "(none)"},
                        {"Encoding", "offset", "11"},
                        {"Raster", "offset", "(none)"},
                        {"Encoding", "bytes/sl", "6 12"},
                        {"Encoding", "minimumChunk", "18"}});
    HVHdrFree(tree);

    // Written whole: the text comes back as it was, in the writer's order.
    std::string text = WriteImage(h, o.manager);
    EXPECT_NE(text.find("[Raster]\npixels: 3\nscanlines: 2\nframe: 7\nblobs: 4\n"), std::string::npos)
        << text;
    EXPECT_NE(text.find("[Encoding]\nparts: 2 0 0\noffset: 11\nbytes/sl: 6 12\nbits/sample: 16 32\n"
                        "interleave: scanline\nalignment: 4\nminimumChunk: 18\npreferredChunk: 180\n"),
              std::string::npos)
        << text;
}

TEST(RasterPixr, AbsentFrameZeroBlobsAndPixelInterleaveLists) {
    HeaderText t = PixrText();
    t.raster = {"pixels: 5", "scanlines: 2", "blobs: 0"};
    t.encoding = {"parts: 3 0 0", "bytes/sl: 15", "bits/sample: 8 8 8", "interleave: pixel"};
    Opened o(t.Text());
    ASSERT_EQ(o.result, 1);
    EXPECT_EQ(o.header->dims[2], 0u);
    EXPECT_EQ(o.header->dimCount, 5u) << "blobs: 0 is there";
    // Blobs 0 is not written back; n numbers for every interleave.
    HalvUserCMData *tree = Written(o);
    ExpectParams(tree, {{"Raster", "frame", "0"},
                        {"Raster", "blobs", "(none)"},
                        {"Encoding", "offset", "0"},
                        {"Encoding", "bytes/sl", "15 0 0"},
                        {"Encoding", "bits/sample", "8 8 8"}});
    HVHdrFree(tree);

    // A header of nothing but the ID: zeroes throughout, four dimensions.
    HeaderText bare = PixrText();
    bare.raster.clear();
    bare.encoding.clear();
    bare.photometry.clear();
    Opened b(bare.Text());
    ASSERT_EQ(b.result, 1);
    EXPECT_EQ(b.header->dimCount, 4u);
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(b.header->dims[i], 0u) << i;
    tree = Written(b);
    ExpectParams(tree, {{"Raster", "scanlines", "0"}, {"Photometry", "name", "unknown"}});
    HVHdrFree(tree);

    // No parts: the lists of no numbers are left out, not written empty,
    // where they would run on into the next key; the text reads back.
    std::string text = WriteImage(b.header, b.manager) + ExtChunk("ab", 1, 0, 0, HalvIdentifyEndian() == 1);
    EXPECT_EQ(text.find("bytes/sl"), std::string::npos) << text;
    EXPECT_NE(text.find("offset: 0\ninterleave: scanline\n"), std::string::npos) << text;
    Opened again(text);
    ASSERT_EQ(again.result, 1);
    EXPECT_EQ(again.header->interleave, 0u);
    EXPECT_EQ(again.Next().data, "ab");

    // Compressors give their word and stay.
    bare.extra = {"[Compression]\ncompressors: jpeg(quality)\n"};
    Opened c(bare.Text());
    ASSERT_EQ(c.result, 1);
    EXPECT_EQ(c.header->compression, 1);
    EXPECT_EQ(Param(c.header->userData, "Compression", "compressors"), "jpeg(quality)");
}

TEST(RasterPixr, OtherByteOrderReversesTheRecordNotThePayload) {
    bool machineBig = HalvIdentifyEndian() == 1;
    HeaderText t = PixrText(machineBig ? "type 2" : "type 1");
    std::string payload = Samples(3, 2, !machineBig, 0x0A01, 0x0102) + Samples(3, 4, !machineBig, 0x10203040);
    payload += payload;
    std::string stored = t.Text() + ExtChunk(payload, 2, 5, 0x21, !machineBig);
    Opened o(stored);
    ASSERT_EQ(o.result, 1);
    EXPECT_EQ(o.header->endian, HalvIdentifyEndian()) << "endian says the machine's";
    EXPECT_EQ(o.ext()->swapBytes, 1u);
    Load l = o.Next();
    EXPECT_EQ(Brief(l), "1 2L 36B f21 a5");
    EXPECT_EQ(l.data, payload) << "the payload stays in the file's order";

    // image-ext, from the same bytes, turns the payload around.
    std::string ext = stored;
    ext.replace(ext.find("format: pixr"), 12, "format: image-ext");
    ext.replace(ext.find("version: 1.0"), 12, "version: 1.0");
    ext.replace(ext.find("parts: 2 0 0"), 12, "imageParts: 2 0 0");
    Opened e(ext);
    ASSERT_EQ(e.result, 1);
    EXPECT_EQ(e.Next().data,
              Samples(3, 2, machineBig, 0x0A01, 0x0102) + Samples(3, 4, machineBig, 0x10203040) +
                  Samples(3, 2, machineBig, 0x0A01, 0x0102) + Samples(3, 4, machineBig, 0x10203040));
}

TEST(RasterPixr, EmitChunkIsImageExtsAndWritesTheHeadersOrder) {
    HVHdrManager pixr = Manager("pixr", "1.0"), ext = Manager("image-ext", "1.0");
    EXPECT_EQ(pixr.emitChunk, ext.emitChunk) << "one piece of code for both";
    EXPECT_NE(pixr.loadChunk, ext.loadChunk);

    HalvHeaderStruct *h = nullptr;
    ASSERT_EQ(HVHdrCreateHeader(pixr, &h), 1);
    EXPECT_EQ(Fields(h), "type 12 dims 4: 0 0 0 0 parts 0 0 0 endian 0 il 0");
    EXPECT_EQ(h->dims[4], 0u);
    bool machineBig = HalvIdentifyEndian() == 1;
    h->endian = machineBig ? 0 : 1;
    char payload[4] = {1, 2, 3, 4};
    HalvChunk c{0xFF, 9, 1, 4, 4, 0, payload};
    HalvIO *mem = HalvIO_Mem(0);
    EXPECT_EQ(HVHdrFromChunk(pixr, h, &c, mem), 1);
    EXPECT_EQ(Contents(mem), ExtChunk(std::string(payload, 4), 1, 9, 0x21, !machineBig));
    mem->close(mem);

    // The copy is image-ext's: its own tree, no buffer.
    h->userData = HVHdrSetHeaderParam(h->userData, "Origin", "units", "mm");
    HalvHeaderStruct *copy = h->copy(h);
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(copy->managerType, HALV_HDR_PIXR);
    EXPECT_NE(copy->userData, h->userData);
    EXPECT_EQ(reinterpret_cast<HalvImageExtHeader *>(copy)->chunkBuffer, nullptr);
    copy->free(copy);
    h->free(h);
}

TEST(RasterPixr, HostileRecordsAndStreams) {
    HeaderText t = PixrText();
    // A record that claims a gigabyte on a short stream fails at its end,
    // without an allocation of what it claimed.
    Opened liar(t.Text() + ExtChunk("abcd", 1, 0, 0, false, 0x40000000));
    ASSERT_EQ(liar.result, 1);
    EXPECT_EQ(liar.Next().result, 0);
    EXPECT_LE(liar.ext()->bufferCapacity, 1u << 20);
    // Huge dimensions are carried, not computed with.
    HeaderText huge = PixrText();
    huge.raster = {"pixels: 4294967295", "scanlines: 4294967295", "frame: 4294967295"};
    huge.encoding = {"parts: 4294967295 4294967295 5", "offset: 4294967295", "bits/sample: 0"};
    Opened big(huge.Text() + ExtChunk("xy", 1, 0, 0, false));
    ASSERT_EQ(big.result, 1);
    EXPECT_EQ(big.header->dims[2], 4294967295u);
    EXPECT_EQ(big.Next().data, "xy");
    HalvUserCMData *tree = Written(big);
    EXPECT_EQ(Param(tree, "Encoding", "bytes/sl"),
              std::string("0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 "
                          "0 0 0 0 0 0 0 0 0"))
        << "at most 36 numbers";
    HVHdrFree(tree);
}

// ---- one image through internal, image-ext, pixr and the pixel stream ----

namespace {

/* Samples of an image, [scanline][pixel][separation]. */
struct Picture {
    uint32_t width = 0, height = 0, seps = 0, bits = 0;
    std::vector<uint32_t> samples;
    uint32_t &At(uint32_t y, uint32_t x, uint32_t s) { return samples[((size_t)y * width + x) * seps + s]; }
};

uint32_t GetSample(const unsigned char *p, uint32_t bytes, bool big) {
    uint32_t v = 0;
    for (uint32_t b = 0; b < bytes; ++b)
        v |= (uint32_t)p[b] << (big ? 8 * (bytes - 1 - b) : 8 * b);
    return v;
}

/* One scanline laid out as the header says, in the byte order asked for. */
std::string Line(Picture &p, uint32_t y, const HalvHeaderStruct *h, bool big) {
    uint32_t bytes = p.bits / 8;
    std::string line;
    if (h->interleave == 1) {
        for (uint32_t x = 0; x < p.width; ++x)
            for (uint32_t s = 0; s < p.seps; ++s)
                line += Samples(1, bytes, big, p.At(y, x, s), 0);
        if (h->managerType != HALV_HDR_PIXELSTREAM) // which has no scanlines to pad
            line.resize(h->bytesPerSep[0], '\0');
        return line;
    }
    for (uint32_t s = 0; s < p.seps; ++s) {
        std::string plane;
        for (uint32_t x = 0; x < p.width; ++x)
            plane += Samples(1, bytes, big, p.At(y, x, s), 0);
        plane.resize(h->bytesPerSep[s], '\0');
        line += plane;
    }
    return line;
}

/* Stores the picture in format with the given interleave and byte order;
 * a pixel stream takes pixels in this machine's order, one a chunk line. */
std::string Store(const char *format, const char *version, Picture &p, uint32_t interleave, bool big) {
    HVHdrManager m = Manager(format, version);
    HalvHeaderStruct *h = nullptr;
    EXPECT_EQ(HVHdrCreateHeader(m, &h), 1);
    bool stream = h->managerType == HALV_HDR_PIXELSTREAM;
    h->parts[0] = p.seps;
    for (uint32_t s = 0; s < p.seps; ++s)
        h->bitsPerSample[s] = p.bits;
    if (stream) {
        big = HalvIdentifyEndian() == 1;
    } else {
        h->dims[0] = p.width;
        h->dims[1] = p.height;
        h->dimCount = h->dimCount < 2 ? 2 : h->dimCount;
        h->interleave = interleave;
        h->endian = big ? 1 : 0;
        HalvHeaderFillInBytes(h);
    }
    h->color = HalvStr2Clr("rgbLinear");
    HalvIO *out = HalvIO_Mem(0);
    EXPECT_EQ(HVHdrWrite_Header(h, &m, out), 1);
    // Two chunks: the first scanline, then the rest.
    for (uint32_t first = 0; first < p.height;) {
        uint32_t lines = first == 0 ? 1 : p.height - first;
        std::string data;
        for (uint32_t y = first; y < first + lines; ++y)
            data += Line(p, y, h, big);
        uint32_t size = (uint32_t)data.size();
        HalvChunk c{first + lines == p.height ? 1u : 0u, 0, stream ? lines * p.width : lines, size, size, 0,
                    data.data()};
        EXPECT_EQ(HVHdrFromChunk(m, h, &c, out), 1) << format;
        first += lines;
    }
    std::string bytes = Contents(out);
    out->close(out);
    h->free(h);
    return bytes;
}

/* Reads a stored picture of the given geometry back; samples are taken in
 * the order the loader hands them: this machine's, except pixr, which
 * leaves them in the file's. */
Picture Read(const std::string &bytes, const Picture &shape) {
    Picture p = shape;
    p.samples.assign(shape.samples.size(), 0xFFFFFFFF);
    Opened o(bytes);
    EXPECT_EQ(o.result, 1);
    if (o.result != 1)
        return p;
    std::string architecture = bytes.find("architecture: type 1") != std::string::npos ? "big" : "little";
    bool loadedBig =
        o.header->managerType == HALV_HDR_PIXR ? architecture == "big" : HalvIdentifyEndian() == 1;
    std::string data;
    std::vector<Load> loads = LoadAll(o.manager, o.header, o.input.io(), 2);
    for (const Load &l : loads) {
        EXPECT_EQ(l.result, 1);
        data += l.data;
    }
    uint32_t bytesPer = p.bits / 8;
    const auto *d = reinterpret_cast<const unsigned char *>(data.data());
    bool stream = o.header->managerType == HALV_HDR_PIXELSTREAM;
    size_t lineBytes = stream ? (size_t)p.width * p.seps * bytesPer : (size_t)HalvHeaderLineBytes(o.header);
    EXPECT_EQ(data.size(), lineBytes * p.height);
    if (data.size() != lineBytes * p.height)
        return p;
    for (uint32_t y = 0; y < p.height; ++y) {
        const unsigned char *line = d + lineBytes * y;
        for (uint32_t x = 0; x < p.width; ++x)
            for (uint32_t s = 0; s < p.seps; ++s) {
                size_t at = o.header->interleave == 1 ? ((size_t)x * p.seps + s) * bytesPer : 0;
                if (o.header->interleave != 1) {
                    for (uint32_t k = 0; k < s; ++k)
                        at += o.header->bytesPerSep[k];
                    at += (size_t)x * bytesPer;
                }
                p.At(y, x, s) = GetSample(line + at, bytesPer, loadedBig);
            }
    }
    return p;
}

} // namespace

TEST(RasterPixr, OneImageThroughAllFourFormatsAndBack) {
    for (uint32_t bits : {8u, 16u}) {
        for (bool big : {false, true}) {
            Picture p;
            p.width = 5;
            p.height = 4;
            p.seps = 3;
            p.bits = bits;
            for (uint32_t i = 0; i < p.width * p.height * p.seps; ++i)
                p.samples.push_back((i * 2654435761u >> 7) & (bits == 8 ? 0xFF : 0xFFFF));
            std::string where = std::to_string(bits) + (big ? " big" : " little");

            // Each step stores what the one before read back.
            const struct {
                const char *format, *version;
                uint32_t interleave;
                bool otherOrder;
            } steps[] = {{"internal", "2.1", 0, false},        {"image-ext", "1.0", 1, false},
                         {"pixr", "1.0", 0, false},            {"pixr", "1.0", 1, false},
                         {"pixelstream", "1.0-ascii", 1, false}, {"internal", "2.1", 1, true}};
            Picture current = p;
            for (const auto &s : steps) {
                current = Read(Store(s.format, s.version, current, s.interleave, big != s.otherOrder), p);
                EXPECT_TRUE(current.samples == p.samples) << s.format << " " << s.interleave << " " << where;
            }
        }
    }
}
