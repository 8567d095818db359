// The "pixelstream" "1.0-ascii" format at the C interface: pixels as text
// read token by token from seekable and unseekable streams (which must
// agree, down to where the stream stands afterwards), every sample width,
// streams that stop inside a pixel, hostile headers, the keys it reads and
// writes, and standard input of a child process fed through a pipe.
#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "dpk_hvsup.h"
#include "headers/formats/support.h"
#include "headers/support.h"

using namespace fmt_test;

namespace {

HalvPixelStreamHeader *AsPixels(HalvHeaderStruct *h) { return reinterpret_cast<HalvPixelStreamHeader *>(h); }

/* A header from its Encoding lines, through the exported toHeader. */
HalvHeaderStruct *MakeHeader(const std::string &encoding) {
    HalvUserCMData *tree = hdr_test::Parse("[ID]\nformat: pixelstream\nversion: 1.0-ascii\n[Encoding]\n" +
                                           encoding + "\n[End]\n");
    EXPECT_NE(tree, nullptr);
    HalvHeaderStruct *h = nullptr;
    EXPECT_EQ(__HVHdrPixelStreamToHeader_10_ascii(tree, &h), 1);
    HVHdrFree(tree);
    return h;
}

Load LoadFrom(HalvHeaderStruct *h, HalvIO *in, uint32_t pixels) {
    HalvChunk c;
    std::memset(&c, 0xA5, sizeof c);
    Load l{
        __HVHdrPixelStreamLoadChunk_10_ascii(h, in, &c, pixels), c.flags, c.auxWord, c.lines, c.bytes, 0, ""};
    if (l.result == 1 && c.bytes != 0)
        l.data.assign(static_cast<const char *>(c.data), c.bytes);
    return l;
}

/* A load told in one line; a failed load by its result alone. */
std::string Said(const Load &l) { return l.result == 1 ? Brief(l) : std::to_string(l.result); }

/* The samples of data as text, read as the width of bits says. */
std::string Numbers(const std::string &data, uint32_t bits) {
    std::string s;
    char text[32];
    size_t step = bits == 16 ? 2 : bits == 8 ? 1 : 4;
    for (size_t at = 0; at + step <= data.size(); at += step) {
        uint16_t w;
        float f;
        if (bits == 8) {
            std::snprintf(text, sizeof text, "%u", (unsigned char)data[at]);
        } else if (bits == 16) {
            std::memcpy(&w, &data[at], 2);
            std::snprintf(text, sizeof text, "%u", w);
        } else {
            std::memcpy(&f, &data[at], 4);
            std::snprintf(text, sizeof text, "%g", (double)f);
        }
        s += (s.empty() ? "" : " ") + std::string(text);
    }
    return s;
}

std::string Rest(HalvIO *in) {
    std::string rest;
    char buffer[256];
    int32_t got;
    while ((got = in->read(in, buffer, sizeof buffer)) > 0)
        rest.append(buffer, (size_t)got);
    return rest;
}

/* The same load from a seekable string stream (read in blocks) and from a
 * stream without a seek slot (read a byte at a time): both must give the
 * same chunk and leave the same rest. */
struct BothWays {
    Load load;
    std::string rest;
};

BothWays LoadBothWays(const std::string &encoding, const std::string &text, uint32_t pixels) {
    BothWays b;
    HalvHeaderStruct *h = MakeHeader(encoding);
    Input seekable(text);
    b.load = LoadFrom(h, seekable.io(), pixels);
    b.rest = Rest(seekable.io());
    h->free(h);
    h = MakeHeader(encoding);
    hdr_test::Source unseekable(text);
    Load single = LoadFrom(h, unseekable.io(), pixels);
    h->free(h);
    EXPECT_EQ(Said(b.load), Said(single));
    EXPECT_EQ(b.load.data, single.data);
    EXPECT_EQ(b.rest, unseekable.rest()) << "a block reader must give back what it didn't use";
    return b;
}

const char kRgb8[] = "imageParts: 3 0 0\nbits/sample: 8";
const char kGray8[] = "imageParts: 1 0 0\nbits/sample: 8";

/* The 16-bit samples that sscanf's "%u" makes of the tokens. */
std::string ScanfWords(std::initializer_list<const char *> tokens) {
    std::string s;
    for (const char *t : tokens) {
        unsigned v = 0;
        std::sscanf(t, "%u", &v);
        s += (s.empty() ? "" : " ") + std::to_string((uint16_t)v);
    }
    return s;
}

} // namespace

TEST(PixelStream, LoadsFromText) {
    const struct {
        std::string encoding, text;
        uint32_t pixels;
        std::string said, values;
        const char *rest; // null: not checked
    } rows[] = {
        // Whole pixels count, and a short load ends the data.
        {kRgb8, "1 2 3 4 5 6", 4, "1 2L 6B f1 a0", "1 2 3 4 5 6", ""},
        // A full load carries no end flag; the stream stands behind the
        // white space that ended the last value taken.
        {kRgb8, " 10 20\n30 40\t50 60\n", 1, "1 1L 3B f0 a0", "10 20 30", "40\t50 60\n"},
        {kRgb8, "1 2 3 4 5 6", 0, "1 1L 3B f0 a0", "1 2 3", "4 5 6"}, // a zero load reads one pixel
        // Lines mean nothing, and data that stop inside a pixel fail.
        {kRgb8, "7\n8\n\n9 10", 2, "-1", "", nullptr},
        {kRgb8, "1 2 3 4", 4, "-1", "", nullptr},
        {kRgb8, "1 2", 1, "-1", "", nullptr},
        {kRgb8, "  \n ", 3, "1 0L 0B f1 a0", "", ""}, // an empty stream is the end, not a broken pixel
        // A token that is no number costs one value: six tries for two
        // pixels lose one; with one value a pixel any shortfall is whole
        // pixels, and so are two bad tokens in a pixel of two.
        {kRgb8, "1 x 2 3 4 5 6", 2, "-1", "", nullptr},
        {kGray8, "5 x 6 7", 3, "1 2L 2B f1 a0", "5 6", "7"},
        {"imageParts: 2 0 0\nbits/sample: 8", "a 1 b 2 3 4", 3, "1 2L 4B f1 a0", "1 2 3 4", nullptr},
        // A token longer than its 31 characters is no number, and all of it goes.
        {kGray8, std::string(100, '9') + " 8 9", 2, "1 1L 1B f1 a0", "8", "9"},
        // Byte 0x04 ends the data as the stream's end does, 0xff ends a token.
        {kRgb8, "1 2 3 \x04 4 5 6", 3, "1 1L 3B f1 a0", "1 2 3", " 4 5 6"},
        {kRgb8, "1 2 3\x04" "4 5 6", 3, "1 1L 3B f1 a0", "1 2 3", "4 5 6"},
        {kRgb8, "1 2 3\xff 4 5 6", 3, "1 1L 3B f1 a0", "1 2 3", nullptr},
        // 8 bits keep the low byte, 16 bits the low two, in this machine's order.
        {kGray8, "300", 1, "1 1L 1B f0 a0", "44", nullptr},
        {"imageParts: 2 0 0\nbits/sample: 16", "258 65535 65536 70000", 2, "1 2L 8B f0 a0",
         "258 65535 0 4464", nullptr},
        // Numbers as sscanf's "%u" takes them: a sign, text behind digits, a long run.
        {"imageParts: 4 0 0\nbits/sample: 16", "+7 12abc 4294967297 0x10", 1, "1 1L 8B f0 a0",
         ScanfWords({"+7", "12abc", "4294967297", "0x10"}), nullptr},
        // 32 bits: floats; 64 bits: pairs of floats, and half a pair is no value.
        {"imageParts: 2 0 0\nbits/sample: 32", "0.5 -2e3 1.25 7", 2, "1 2L 16B f0 a0", "0.5 -2000 1.25 7",
         nullptr},
        {"imageParts: 1 0 0\nbits/sample: 64", "1.5 2.5 3 4 5", 3, "1 2L 16B f1 a0", "1.5 2.5 3 4", nullptr},
        // Hostile headers: no parts, parts whose sum wraps, pixels far too
        // large to hold, a load of four billion pixels (no buffer of 12 GB:
        // nothing read), and widths other than 8, 16, 32, 64.
        {"imageParts: 0 0 0\nbits/sample: 8", "1 2 3", 1, "-1", "", nullptr},
        {"bits/sample: 8", "1 2 3", 1, "-1", "", nullptr},
        {"imageParts: 4294967295 1 0\nbits/sample: 8", "1 2 3", 1, "-1", "", nullptr},
        {"imageParts: 100000000 0 0\nbits/sample: 64", "1 2 3", 1, "1 0L 0B f1 a0", "", nullptr},
        {kRgb8, "1 2 3", 0xFFFFFFFFu, "1 0L 0B f1 a0", "", "1 2 3"},
        {"imageParts: 1 0 0\nbits/sample: 12", "1 2 3", 2, "1 0L 0B f1 a0", "", nullptr},
        {"imageParts: 1 0 0\nbits/sample: 0", "1 2 3", 2, "1 0L 0B f1 a0", "", nullptr},
        {"imageParts: 1 0 0\nbits/sample: 4294967295", "1 2 3", 2, "1 0L 0B f1 a0", "", nullptr},
        {"imageParts: 1 0 0", "1 2 3", 2, "1 0L 0B f1 a0", "", nullptr},
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(r.encoding + " | " + r.text.substr(0, 40));
        BothWays b = LoadBothWays(r.encoding, r.text, r.pixels);
        EXPECT_EQ(Said(b.load), r.said);
        size_t at = r.encoding.find("bits/sample: ");
        uint32_t bits = at == std::string::npos ? 8 : (uint32_t)std::stoul(r.encoding.substr(at + 13));
        EXPECT_EQ(Numbers(b.load.data, bits), r.values);
        if (r.rest != nullptr) {
            EXPECT_EQ(b.rest, r.rest);
        }
    }

    // Pixel by pixel: the first load is whole, the one that meets the
    // broken pixel fails.
    HalvHeaderStruct *h = MakeHeader(kRgb8);
    Input in("1 2 3 4 5");
    EXPECT_EQ(LoadFrom(h, in.io(), 1).result, 1);
    EXPECT_EQ(LoadFrom(h, in.io(), 1).result, -1);
    // A record whose pixel size a caller broke is refused, not overrun.
    AsPixels(h)->bytesPerPixel = 2;
    Input again("1 2 3");
    EXPECT_EQ(LoadFrom(h, again.io(), 1).result, -1);
    h->free(h);
}

TEST(PixelStream, LargeLoadsCrossBlocksExactly) {
    // Far more text than one block, with numbers cut at every offset.
    std::string text, expect;
    for (int i = 0; i < 30000; ++i) {
        int v = (i * 37) % 256;
        text += std::to_string(v) + (i % 7 == 0 ? "\n" : i % 5 == 0 ? "   " : " ");
        expect.push_back((char)v);
    }
    BothWays b = LoadBothWays(kRgb8, text, 7001);
    EXPECT_EQ(Said(b.load), "1 7001L 21003B f0 a0");
    EXPECT_EQ(b.load.data, expect.substr(0, 21003));

    HalvHeaderStruct *h = MakeHeader(kRgb8);
    Input in(text);
    std::string all;
    Load l;
    do {
        l = LoadFrom(h, in.io(), 999);
        ASSERT_EQ(l.result, 1);
        all += l.data;
    } while (!(l.flags & HALV_CHUNK_END));
    EXPECT_EQ(all, expect);
    h->free(h);
}

TEST(PixelStream, EmitWritesOnePixelALineAndRefusesWhatItCant) {
    HalvHeaderStruct *h = MakeHeader(kRgb8);
    uint8_t rgb[6] = {10, 20, 30, 0, 255, 7};
    const struct {
        HalvChunk chunk;
        size_t room;
        int result;
        const char *text;
    } rows[] = {
        {{0, 0, 2, 6, 6, 0, rgb}, SIZE_MAX, 1, " 10 20 30\n 0 255 7\n"},
        {{0, 0, 0, 6, 6, 0, rgb}, SIZE_MAX, 1, ""}, // no lines
        {{0, 3, 2, 6, 6, 0, rgb}, SIZE_MAX, 1, ""}, // an aux word: no samples
        {{0, 0, 3, 6, 6, 0, rgb}, SIZE_MAX, 0, ""}, // bytes that don't hold the lines: refused up front
        {{0, 0, 2, 6, 6, 0, rgb}, 5, -1, " 10 2"},  // a short write, and the rest still tried
    };
    for (const auto &r : rows) {
        hdr_test::Sink out(r.room);
        HalvChunk c = r.chunk;
        EXPECT_EQ(__HVHdrPixelStreamEmitChunk_10_ascii(h, &c, out.io()), r.result) << r.text;
        EXPECT_EQ(out.text(), r.text);
    }
    EXPECT_EQ(__HVHdrPixelStreamLoadChunk_10_ascii(nullptr, nullptr, nullptr, 1), 0);
    HalvChunk c{};
    Input in("1");
    EXPECT_EQ(__HVHdrPixelStreamLoadChunk_10_ascii(h, nullptr, &c, 1), 0);
    EXPECT_EQ(__HVHdrPixelStreamLoadChunk_10_ascii(h, in.io(), nullptr, 1), 0);
    EXPECT_EQ(__HVHdrPixelStreamEmitChunk_10_ascii(h, nullptr, in.io()), 0);
    EXPECT_EQ(__HVHdrPixelStreamFromHeader_10_ascii(h, nullptr), 0);
    EXPECT_EQ(__HVHdrPixelStreamToHeader_10_ascii(nullptr, nullptr), 0);
    EXPECT_EQ(__HVHdrPixelStreamCreateHeader_10_ascii(nullptr), 0);
    h->free(h);

    // Widths other than 8, 16, 32, 64 write nothing, but the pixel's line
    // feed still goes out.
    for (const char *bits : {"bits/sample: 12", "bits/sample: 0", "bits/sample: 4294967295", ""}) {
        h = MakeHeader(std::string("imageParts: 1 0 0\n") + bits);
        uint8_t sample = 9;
        HalvChunk one{0, 0, 1, 1, 1, 0, &sample};
        hdr_test::Sink out;
        EXPECT_EQ(__HVHdrPixelStreamEmitChunk_10_ascii(h, &one, out.io()), 0) << bits;
        EXPECT_EQ(out.text(), "\n") << bits;
        h->free(h);
    }
}

// 8 and 16 bits go out and back on every input of the pixel stream fuzz target.
TEST(PixelStream, FloatWidthsRoundTripThroughText) {
    const struct {
        const char *encoding;
        uint32_t width;
    } cases[] = {{"imageParts: 3 0 0\nbits/sample: 32", 4}, {"imageParts: 2 0 1\nbits/sample: 64", 8}};
    for (const auto &k : cases) {
        SCOPED_TRACE(k.encoding);
        HalvHeaderStruct *h = MakeHeader(k.encoding);
        const uint32_t pixels = 500, values = 3;
        std::vector<unsigned char> data(pixels * values * k.width);
        for (uint32_t i = 0; i < pixels * values; ++i) {
            unsigned char *p = &data[i * k.width];
            // Floats that six digits hold: the text keeps them exactly.
            float f[2] = {(float)i * 0.125f - 50.0f, -(float)(i % 97) / 4.0f};
            std::memcpy(p, f, k.width);
        }
        HalvChunk c{0, 0, pixels, (uint32_t)data.size(), (uint32_t)data.size(), 0, data.data()};
        HalvIO *mem = HalvIO_Mem(0);
        ASSERT_EQ(__HVHdrPixelStreamEmitChunk_10_ascii(h, &c, mem), 1);
        std::string text = Contents(mem);
        mem->close(mem);
        BothWays b = LoadBothWays(k.encoding, text, pixels);
        EXPECT_EQ(b.load.result, 1);
        EXPECT_EQ(b.load.flags, 0u);
        EXPECT_TRUE(b.load.data == std::string(data.begin(), data.end()));
        h->free(h);
    }
}

TEST(PixelStream, HeaderKeysReadAndWritten) {
    const std::string id = "[ID]\nformat: pixelstream\nversion: 1.0-ascii\n\n[Encoding]\n";
    Opened o(id +
             "useStdin: false\nimageParts: 2 1 0\nbits/sample: 16 8 8\nbytes/sl: 99\n\n"
             "[Photometry]\nname: rgbLinear\n\n[Origin]\nunits: mm\n\n" +
             kEndMarker);
    ASSERT_EQ(o.result, 1);
    HalvHeaderStruct *h = o.header;
    HalvPixelStreamHeader *p = AsPixels(h);
    EXPECT_EQ(Fields(h), "type 1 dims 1: 1 parts 2 1 0 endian 0 il 1");
    EXPECT_EQ(p->initialised, 1u);
    EXPECT_EQ(p->valuesPerPixel, 3u);
    EXPECT_EQ(p->bytesPerPixel, 6u);
    EXPECT_EQ(h->bytesPerSep[0], 6u);
    EXPECT_EQ(h->bitsPerSample[1], 8u) << "later widths are read, though they play no part";
    EXPECT_EQ(p->stdinStream, nullptr);
    EXPECT_EQ(h->color, HalvStr2Clr("rgbLinear"));
    EXPECT_EQ(Param(h->userData, "Encoding", "useStdin"), "(none)");
    EXPECT_EQ(Param(h->userData, "Encoding", "imageParts"), "(none)");
    EXPECT_EQ(Param(h->userData, "Encoding", "bytes/sl"), "99");

    HalvUserCMData *tree = WrittenTree(o.manager, h);
    const char *const written[][3] = {{"ID", "format", "pixelstream"},     {"ID", "version", "1.0-ascii"},
                                      {"ID", "binary", "(none)"},          {"ID", "architecture", "(none)"},
                                      {"Encoding", "imageParts", "2 1 0"}, {"Encoding", "bits/sample", "16"},
                                      {"Encoding", "bytes/sl", "6"},       {"Encoding", "useStdin", "(none)"},
                                      {"Photometry", "name", "rgbLinear"}, {"Origin", "units", "mm"}};
    for (const auto &w : written)
        EXPECT_EQ(Param(tree, w[0], w[1]), w[2]) << w[0] << "/" << w[1];
    HVHdrFree(tree);
    // Written text read back as the same header: the header text fuzz target, on every input.

    // No name at all gives "unknown"; an outside name comes back as it was.
    for (const char *photometry : {"", "[Photometry]\nname: someothername\n\n"}) {
        Opened bare(id + kGray8 + "\n\n" + photometry + kEndMarker);
        ASSERT_EQ(bare.result, 1) << photometry;
        tree = WrittenTree(bare.manager, bare.header);
        EXPECT_EQ(Param(tree, "Photometry", "name"), *photometry ? "someothername" : "unknown");
        HVHdrFree(tree);
    }
}

TEST(PixelStream, CreateCopyAndUseStdin) {
    HVHdrManager m = Manager("pixelstream", "1.0-ascii");
    HalvHeaderStruct *h = nullptr;
    ASSERT_EQ(HVHdrCreateHeader(m, &h), 1);
    HalvPixelStreamHeader *p = AsPixels(h);
    EXPECT_EQ(Fields(h), "type 1 dims 1: 1 parts 0 0 0 endian 0 il 1");
    EXPECT_EQ(p->initialised, 0u);
    h->parts[0] = 4;
    h->bitsPerSample[0] = 16;
    HalvUserCMData *tree = WrittenTree(m, h);
    EXPECT_EQ(p->initialised, 1u);
    EXPECT_EQ(p->valuesPerPixel, 4u);
    EXPECT_EQ(Param(tree, "Encoding", "bytes/sl"), "8");
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
    EXPECT_EQ(Said(LoadFrom(c, more.io(), 2)), "1 1L 8B f1 a0");
    c->free(c);
    h->free(h);

    const struct {
        const char *value;
        bool switches;
    } cases[] = {{"true", true},   {"1", true},    {"True", true}, {"t", true},
                 {"false", false}, {"yes", false}, {"0", false},   {"nope", false}};
    for (const auto &k : cases) {
        h = MakeHeader(std::string("useStdin: ") + k.value + "\n" + kRgb8);
        ASSERT_NE(h, nullptr);
        EXPECT_EQ(AsPixels(h)->stdinStream != nullptr, k.switches) << k.value;
        c = h->copy(h);
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
    HalvHeaderStruct *h = MakeHeader(std::string("useStdin: true\n") + kRgb8);
    std::string told;
    Input ignored("99 99 99 99 99 99");
    for (int i = 0; h != nullptr && i < 10; ++i) {
        Load l = LoadFrom(h, ignored.io(), 2);
        told += std::to_string(l.result);
        if (l.result == 1) {
            told += " " + std::to_string(l.lines) + " " + std::to_string(l.flags);
            for (unsigned char v : l.data)
                told += " " + std::to_string(v);
        }
        told += ";";
        if (l.result != 1 || (l.flags & HALV_CHUNK_END))
            break;
    }
    if (h != nullptr)
        h->free(h);
    told += "rest:";
    int c;
    while ((c = std::fgetc(stdin)) != EOF)
        told.push_back((char)c);
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
    EXPECT_EQ(FeedChild({"1 2", " 3\n4 5 6\n", "7 8 9\n"}), "1 2 0 1 2 3 4 5 6;1 1 1 7 8 9;rest:");
    // A pixel cut short by the end of the input fails the load.
    EXPECT_EQ(FeedChild({"10 20 30 40"}), "-1;rest:");
    // A byte 0x04 ends the data; standard input goes on behind it.
    EXPECT_EQ(FeedChild({"1 1 1 2 2 2 3 3 3 \x04 tail"}), "1 2 0 1 1 1 2 2 2;1 1 1 3 3 3;rest: tail");
}
