// The halvern command run as a user runs it: the built binary, spawned on
// real files in a fresh temporary directory, its exit status, standard
// error and output files checked.  Input images are written byte by byte
// here, and expected outputs computed here.
#include <gtest/gtest.h>

#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "tools/halvern_fixture.h"
#include "tools/png_reader.h"

namespace {

using namespace halvern_test;

// ---------------------------------------------------------------------------
// Images written by hand
// ---------------------------------------------------------------------------

struct Layout {
    uint32_t width = 5, height = 7, parts = 3, bits = 8;
    bool pixelInterleave = false;
    bool big = false; // stored byte order
    uint32_t SampleBytes() const { return bits == 16 ? 2 : 1; }
    uint32_t SepBytes() const { return width * SampleBytes() * (pixelInterleave ? parts : 1); }
    uint32_t Seps() const { return pixelInterleave ? 1 : parts; }
    uint32_t LineBytes() const { return SepBytes() * Seps(); }
    uint32_t MaxValue() const { return bits == 16 ? 0xFFFF : 0xFF; }
};

// Sample values in reading order of the stored lines.
std::vector<uint32_t> SampleValues(const Layout &l) {
    std::vector<uint32_t> values;
    uint32_t count = l.width * l.parts * l.height;
    for (uint32_t i = 0; i < count; ++i)
        values.push_back(l.bits == 16 ? (i * 2311u + 977u) & 0xFFFF : (i * 37u + 11u) & 0xFF);
    return values;
}

Bytes StoreSamples(const std::vector<uint32_t> &values, uint32_t bits, bool big) {
    Bytes out;
    for (uint32_t v : values) {
        if (bits == 8) {
            out += (char)v;
        } else if (big) {
            out += (char)(v >> 8);
            out += (char)(v & 0xFF);
        } else {
            out += (char)(v & 0xFF);
            out += (char)(v >> 8);
        }
    }
    return out;
}

std::string Repeat(uint32_t value, uint32_t count) {
    std::string text;
    for (uint32_t i = 0; i < count; ++i)
        text += (i ? " " : "") + std::to_string(value);
    return text;
}

// The header text of a stored image, end marker included.
Bytes HeaderText(const Layout &l, const std::string &format, const std::string &extraEncoding = "",
                 const std::string &pixels = "", const std::string &scanlines = "") {
    Bytes h = "[ID]\nformat: " + format + "\nbinary: " + std::string(4, '\0') + "\nversion: " +
              (format == "internal" ? "2.1" : "1.0") + "\narchitecture: " + (l.big ? "type 1" : "type 2") +
              "\n\n[Raster]\npixels: " + (pixels.empty() ? std::to_string(l.width) : pixels) + "\nscanlines: " +
              (scanlines.empty() ? std::to_string(l.height) : scanlines) + "\n\n[Encoding]\nimageParts: " +
              std::to_string(l.parts) + " 0 0\nbytes/sl: " + Repeat(l.SepBytes(), l.Seps()) +
              "\nbits/sample: " + Repeat(l.bits, l.Seps()) + "\ninterleave: " +
              (l.pixelInterleave ? "pixel" : "scanline") + "\n" + extraEncoding + "\n[Photometry]\nname: " +
              (l.parts == 3 ? "rgbLinear" : "grayLinear") + "\n\n[Origin]\nsite: testbench\n\n[End]\f\n";
    return h;
}

Bytes Word32(uint32_t v, bool big) {
    Bytes out(4, '\0');
    for (int i = 0; i < 4; ++i)
        out[big ? 3 - i : i] = (char)((v >> (8 * i)) & 0xFF);
    return out;
}

uint32_t ReadWord32(const Bytes &b, size_t at, bool big) {
    uint32_t v = 0;
    for (int i = 0; i < 4; ++i)
        v |= (uint32_t)(unsigned char)b[at + (big ? 3 - i : i)] << (8 * i);
    return v;
}

Bytes ExtRecord(uint32_t bytes, uint32_t lines, uint32_t aux, uint32_t flags, bool big) {
    return Word32(bytes, big) + Word32(lines, big) + Word32(aux, big) + Word32(flags, big);
}

// The image in either format: image-ext data as two chunks (3 lines, then
// the rest) with aux words 7 and 8.
Bytes StoredImage(const Layout &l, const std::string &format) {
    Bytes data = StoreSamples(SampleValues(l), l.bits, l.big);
    Bytes file = HeaderText(l, format);
    if (format == "internal")
        return file + data;
    uint32_t first = 3 * l.LineBytes();
    file += ExtRecord(first, 3, 7, 0, l.big) + data.substr(0, first);
    file += ExtRecord((uint32_t)data.size() - first, l.height - 3, 8, 0, l.big) + data.substr(first);
    return file;
}

size_t DataStart(const Bytes &file) {
    size_t end = file.find("[End]\f\n");
    return end == std::string::npos ? std::string::npos : end + 7;
}

std::string HeaderKey(const Bytes &file, const std::string &key) {
    size_t at = file.find("\n" + key + ": ");
    if (at == std::string::npos || at > DataStart(file))
        return "";
    at += key.size() + 3;
    return file.substr(at, file.find('\n', at) - at);
}

// The payload of a stored image (records checked and stripped for
// image-ext), and the aux words seen.
Bytes StoredData(const Bytes &file, const Layout &l, std::vector<uint32_t> *aux = nullptr) {
    size_t start = DataStart(file);
    EXPECT_NE(start, std::string::npos);
    if (start == std::string::npos)
        return "";
    if (HeaderKey(file, "format") == "internal")
        return file.substr(start);
    bool big = HeaderKey(file, "architecture") == "type 1";
    Bytes payload;
    uint32_t lines = 0;
    for (size_t at = start; at < file.size();) {
        EXPECT_LE(at + 16, file.size());
        if (at + 16 > file.size())
            break;
        uint32_t bytes = ReadWord32(file, at, big), chunkLines = ReadWord32(file, at + 4, big);
        EXPECT_EQ(bytes, chunkLines * l.LineBytes());
        if (aux)
            aux->push_back(ReadWord32(file, at + 8, big));
        payload += file.substr(at + 16, bytes);
        lines += chunkLines;
        at += 16 + bytes;
    }
    EXPECT_EQ(lines, l.height);
    return payload;
}

// ---------------------------------------------------------------------------
// What the sample functions do to one sample
// ---------------------------------------------------------------------------

struct Function {
    std::string name;
    std::vector<std::string> args;
    std::function<uint32_t(uint32_t, uint32_t)> apply; // (sample, max)
};

std::vector<Function> Functions(uint32_t bits) {
    uint32_t level = bits == 16 ? 30000 : 100;
    return {
        {"copy", {}, [](uint32_t s, uint32_t) { return s; }},
        {"invert", {}, [](uint32_t s, uint32_t max) { return max - s; }},
        {"gain",
         {"factor=1.5"},
         [](uint32_t s, uint32_t max) {
             double v = std::floor(s * 1.5 + 0.5);
             return v >= max ? max : (uint32_t)v;
         }},
        {"threshold", {"level=" + std::to_string(level)},
         [level](uint32_t s, uint32_t max) { return s >= level ? max : 0u; }},
    };
}

// ---------------------------------------------------------------------------
// run
// ---------------------------------------------------------------------------

TEST_F(Halvern, RunsEveryFunctionOverEveryDepthFormatAndByteOrder) {
    for (uint32_t bits : {8u, 16u})
        for (std::string format : {"internal", "image-ext"})
            for (bool big : {false, true})
                for (bool pixel : {false, true}) {
                    Layout l;
                    l.bits = bits;
                    l.big = big;
                    l.pixelInterleave = pixel;
                    WriteFile(Path("in"), StoredImage(l, format));
                    for (const Function &f : Functions(bits)) {
                        SCOPED_TRACE(f.name + " " + std::to_string(bits) + "-bit " + format +
                                     (big ? " big" : " little") + (pixel ? " pixel" : " scanline"));
                        std::vector<std::string> args = {"run", f.name, Path("in"), Path("out")};
                        args.insert(args.end(), f.args.begin(), f.args.end());
                        Result r = Run(args);
                        ASSERT_EQ(r.status, 0) << r.err;
                        EXPECT_EQ(r.err, "");
                        Bytes out = ReadFile(Path("out"));
                        EXPECT_EQ(HeaderKey(out, "format"), format);
                        // Loaded data are turned to this machine's order, and the
                        // header says so.
                        EXPECT_EQ(HeaderKey(out, "architecture"), "type 2");
                        EXPECT_EQ(HeaderKey(out, "pixels"), "5");
                        EXPECT_EQ(HeaderKey(out, "scanlines"), "7");
                        EXPECT_EQ(HeaderKey(out, "site"), "testbench"); // the rest of the tree survives
                        std::vector<uint32_t> expected = SampleValues(l);
                        for (uint32_t &v : expected)
                            v = f.apply(v, l.MaxValue());
                        std::vector<uint32_t> aux;
                        EXPECT_EQ(StoredData(out, l, &aux), StoreSamples(expected, bits, false));
                        if (format == "image-ext") {
                            EXPECT_EQ(aux, (std::vector<uint32_t>{7, 8}));
                        }
                        // From flat arguments and a header block alone, the
                        // same bytes.
                        args.insert(args.begin() + 1, "--binary");
                        args[4] = Path("out-binary");
                        Result binary = Run(args);
                        ASSERT_EQ(binary.status, 0) << binary.err;
                        EXPECT_EQ(ReadFile(Path("out-binary")), out);
                        unlink(Path("out").c_str());
                        unlink(Path("out-binary").c_str());
                    }
                }
}

TEST_F(Halvern, RunChecksArgumentsBeforeWritingAnything) {
    Layout l;
    WriteFile(Path("in"), StoredImage(l, "internal"));
    ExpectRefused({"run", "no-such-function", Path("in"), Path("out")}, "out", "unknown function no-such-function");
    ExpectRefused({"run", "gain", Path("in"), Path("out")}, "out", "factor:d is required");
    ExpectRefused({"run", "gain", Path("in"), Path("out"), "factor=abc"}, "out", "factor=abc: not a number");
    ExpectRefused({"run", "gain", Path("in"), Path("out"), "factor"}, "out", "expected key=value");
    ExpectRefused({"run", "gain", Path("in"), Path("out"), "factor=2", "colour=red"}, "out",
                  "gain has no argument colour");
    ExpectRefused({"run", "gain", Path("in"), Path("out"), "factor=2", "factor=3"}, "out", "given twice");
    ExpectRefused({"run", "gain", Path("in"), Path("out"), "factor=-1"}, "out", "finite number of 0 or more");
    ExpectRefused({"run", "threshold", Path("in"), Path("out"), "level=300"}, "out", "outside 0 to 255");
    ExpectRefused({"run", "copy", Path("in"), Path("out"), "bits=16"}, "out", "bits=16 doesn't match the image");
    ExpectRefused({"run", "copy", Path("missing"), Path("out")}, "out", "can't read");
    ExpectRefused({"run", "copy", Path("in"), Path("no/such/dir/out")}, "", "can't write");
    Result usage = Run({"run", "copy"});
    EXPECT_EQ(usage.status, 2);
    // bits given and agreeing is fine; keys fold case.
    Result ok = Run({"run", "gain", Path("in"), Path("out"), "FACTOR=2", "bits=8"});
    EXPECT_EQ(ok.status, 0) << ok.err;
}

TEST_F(Halvern, AFailedRunLeavesAnExistingOutputAlone) {
    Layout l;
    WriteFile(Path("in"), StoredImage(l, "internal").substr(0, DataStart(StoredImage(l, "internal")) + 20));
    WriteFile(Path("out"), "old contents");
    Result r = Run({"run", "copy", Path("in"), Path("out")});
    EXPECT_NE(r.status, 0);
    EXPECT_NE(r.err.find("cut short"), std::string::npos) << r.err;
    EXPECT_EQ(ReadFile(Path("out")), "old contents");
    EXPECT_EQ(Listing(), (std::vector<std::string>{"in", "out"}));
}

// ---------------------------------------------------------------------------
// Hostile input
// ---------------------------------------------------------------------------

TEST_F(Halvern, RefusesDamagedAndLyingImages) {
    Layout l;
    Bytes good = StoredImage(l, "internal");
    Bytes data = good.substr(DataStart(good));
    struct Case {
        std::string name;
        Bytes file;
        std::string phrase;
    } cases[] = {
        {"truncated", good.substr(0, good.size() - 7), "cut short"},
        {"header only", HeaderText(l, "internal"), "cut short"},
        {"more scanlines than data", HeaderText(l, "internal", "", "", "9") + data, "cut short"},
        {"too few bytes per line", HeaderText(l, "internal", "", "50") + data, "bytes per scanline"},
        {"width 0", HeaderText(l, "internal", "", "0") + data, "width is 0"},
        {"no scanlines at all", HeaderText(l, "internal", "", "", "0"), "holds no scanlines"},
        {"huge width", HeaderText(l, "internal", "", "2000000000") + data, "more than this host handles"},
        {"huge height", HeaderText(l, "internal", "", "", "2000000000") + data, "cut short"},
        {"not a header", "P5\n5 7\n255\n" + data, "not a stored image"},
        {"empty file", "", "not a stored image"},
        {"unknown format", "[ID]\nformat: nosuch\nversion: 1.0\n\n[End]\f\n" + data, "\"nosuch\""},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        WriteFile(Path("bad"), c.file);
        ExpectRefused({"run", "invert", Path("bad"), Path("out")}, "out", c.phrase);
        ExpectRefused({"convert", Path("bad"), Path("out"), "--format", "image-ext"}, "out", "");
        ExpectRefused({"export", Path("bad"), Path("out.ppm")}, "out.ppm", "");
    }
}

TEST_F(Halvern, CompressedDataAreConvertedButNotProcessed) {
    Layout l;
    Bytes header = HeaderText(l, "internal");
    header.insert(header.find("[Origin]"), "[Compression]\ncompressors: lzw (level 3)\n\n");
    Bytes payload = "not really compressed, but nobody here looks";
    WriteFile(Path("in"), header + payload);
    ExpectRefused({"run", "invert", Path("in"), Path("out")}, "out", "compressed data");
    ExpectRefused({"export", Path("in"), Path("out.ppm")}, "out.ppm", "compressed data");
    Result r = Run({"convert", Path("in"), Path("out"), "--format", "internal"});
    ASSERT_EQ(r.status, 0) << r.err;
    Bytes out = ReadFile(Path("out"));
    EXPECT_EQ(out.substr(DataStart(out)), payload);
    EXPECT_EQ(HeaderKey(out, "compressors"), "lzw (level 3)");
}

TEST_F(Halvern, RefusesImageExtChunksWithHostileLengths) {
    Layout l;
    Bytes header = HeaderText(l, "image-ext");
    Bytes line(l.LineBytes(), 'x');
    struct Case {
        std::string name;
        Bytes body;
        std::string phrase;
    } cases[] = {
        {"length far beyond the file", ExtRecord(0xFFFFFFF0u, 1, 0, 0, false) + line, "damaged"},
        {"length beyond the file", ExtRecord(1000, 1, 0, 0, false) + line, "damaged"},
        {"length against lines", ExtRecord(l.LineBytes() - 1, 1, 0, 0, false) + line.substr(1), "scanline"},
        {"lines against length", ExtRecord(l.LineBytes(), 2, 0, 0, false) + line, "damaged"},
        {"record cut short", ExtRecord(l.LineBytes(), 1, 0, 0, false).substr(0, 9), "damaged"},
        {"more lines than the header", ExtRecord(8 * l.LineBytes(), 8, 0, 0, false) + Bytes(8 * l.LineBytes(), 'y'),
         "more scanlines"},
        {"fewer lines than the header", ExtRecord(l.LineBytes(), 1, 0, 0, false) + line, "cut short"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        WriteFile(Path("bad"), header + c.body);
        ExpectRefused({"run", "copy", Path("bad"), Path("out")}, "out", c.phrase);
        ExpectRefused({"convert", Path("bad"), Path("out"), "--format", "internal"}, "out", "");
    }
}

TEST_F(Halvern, UnreadableInputIsSaidSo) {
    ExpectRefused({"info", Path("missing")}, "", "No such file");
    ExpectRefused({"run", "copy", dir_, Path("out")}, "out", "is a directory");
    if (geteuid() != 0) { // root reads anything
        Layout l;
        WriteFile(Path("locked"), StoredImage(l, "internal"));
        chmod(Path("locked").c_str(), 0);
        ExpectRefused({"run", "copy", Path("locked"), Path("out")}, "out", "Permission denied");
    }
}

// ---------------------------------------------------------------------------
// info, convert, export
// ---------------------------------------------------------------------------

TEST_F(Halvern, InfoShowsTheHeaderOfAnImageAndOfItsBlock) {
    Layout l;
    l.bits = 16;
    l.big = true;
    WriteFile(Path("in"), StoredImage(l, "image-ext"));
    Result r = Run({"info", Path("in")});
    ASSERT_EQ(r.status, 0) << r.err;
    const char *common[] = {"size:          5 pixels x 7 scanlines", "separations:   3", "bit depth:     16 16 16",
                            "colour space:  rgbLinear", "interleave:    scanline", "compression:   none",
                            "[Origin]", "site: testbench"};
    for (const char *line : common)
        EXPECT_NE(r.out.find(line), std::string::npos) << line << "\n" << r.out;
    for (const char *line : {"format:        image-ext", "version:       1.0", "byte order:    big-endian (type 1)"})
        EXPECT_NE(r.out.find(line), std::string::npos) << line << "\n" << r.out;

    // The header as a flat block, in either word order, shows the same.
    for (const char *order : {"little", "big"}) {
        SCOPED_TRACE(order);
        Result pack = Run({"pack", Path("in"), Path("in.bh"), "--byte-order", order});
        ASSERT_EQ(pack.status, 0) << pack.err;
        Bytes block = ReadFile(Path("in.bh"));
        ASSERT_GT(block.size(), 556u);
        EXPECT_EQ(block.substr(0, 4), std::string("BH") + (order[0] == 'b' ? "B" : "L") + "L")
            << "the pixel data are little-endian once loaded";
        Result info = Run({"info", Path("in.bh")});
        ASSERT_EQ(info.status, 0) << info.err;
        for (const char *line : common)
            EXPECT_NE(info.out.find(line), std::string::npos) << line << "\n" << info.out;
        EXPECT_NE(info.out.find("format:        image-ext (manager type 11)"), std::string::npos) << info.out;
        EXPECT_NE(info.out.find(std::string("form:          flat header block, its words ") + order + "-endian"),
                  std::string::npos)
            << info.out;
    }
    ExpectRefused({"pack", Path("in"), Path("x.bh"), "--byte-order", "middle"}, "x.bh", "big or little");
    Bytes block = ReadFile(Path("in.bh"));
    WriteFile(Path("cut.bh"), block.substr(0, 600));
    ExpectRefused({"info", Path("cut.bh")}, "", "damaged header block");
}

TEST_F(Halvern, ConvertRoundTripsThroughBothFormatsAndOrders) {
    for (uint32_t bits : {8u, 16u}) {
        Layout l;
        l.bits = bits;
        l.big = true;
        Bytes original = StoredImage(l, "internal");
        WriteFile(Path("a"), original);
        Result r = Run({"convert", Path("a"), Path("b"), "--format", "image-ext", "--byte-order", "little"});
        ASSERT_EQ(r.status, 0) << r.err;
        Bytes b = ReadFile(Path("b"));
        EXPECT_EQ(HeaderKey(b, "format"), "image-ext");
        EXPECT_EQ(HeaderKey(b, "architecture"), "type 2");
        EXPECT_EQ(StoredData(b, l), StoreSamples(SampleValues(l), bits, false));
        r = Run({"convert", Path("b"), Path("c"), "--format", "internal", "--byte-order", "big"});
        ASSERT_EQ(r.status, 0) << r.err;
        Bytes c = ReadFile(Path("c"));
        EXPECT_EQ(HeaderKey(c, "architecture"), "type 1");
        EXPECT_EQ(HeaderKey(c, "site"), "testbench");
        EXPECT_EQ(c.substr(DataStart(c)), original.substr(DataStart(original)));
        // Once in the library's own spelling, a round trip gives the same bytes.
        r = Run({"convert", Path("c"), Path("d"), "--format", "image-ext", "--byte-order", "big"});
        ASSERT_EQ(r.status, 0) << r.err;
        r = Run({"convert", Path("d"), Path("e"), "--format", "internal"});
        ASSERT_EQ(r.status, 0) << r.err;
        EXPECT_EQ(ReadFile(Path("e")), c);
    }
    ExpectRefused({"convert", Path("a"), Path("x"), "--format", "tiff"}, "x", "internal, image-ext, pixr or pixelstream");
    ExpectRefused({"convert", Path("a"), Path("x"), "--format", "internal", "--byte-order", "middle"}, "x",
                  "big or little");
    ExpectRefused({"convert", Path("a"), Path("x")}, "x", "usage");
}

TEST_F(Halvern, ExportWritesNetpbm) {
    for (uint32_t bits : {8u, 16u})
        for (uint32_t parts : {1u, 3u})
            for (bool pixel : {false, true}) {
                SCOPED_TRACE(std::to_string(bits) + "-bit, parts " + std::to_string(parts));
                Layout l;
                l.bits = bits;
                l.parts = parts;
                l.pixelInterleave = pixel;
                l.big = bits == 16;
                WriteFile(Path("in"), StoredImage(l, "image-ext"));
                std::string name = parts == 1 ? "out.pgm" : "out.ppm";
                Result r = Run({"export", Path("in"), Path(name)});
                ASSERT_EQ(r.status, 0) << r.err;
                // netpbm: pixel after pixel, samples adjacent, big-endian words.
                std::vector<uint32_t> stored = SampleValues(l), pixels;
                for (uint32_t y = 0; y < l.height; ++y)
                    for (uint32_t x = 0; x < l.width; ++x)
                        for (uint32_t s = 0; s < parts; ++s) {
                            uint32_t base = y * l.width * parts;
                            pixels.push_back(stored[base + (pixel ? x * parts + s : s * l.width + x)]);
                        }
                Bytes expected = std::string(parts == 1 ? "P5" : "P6") + "\n5 7\n" +
                                 (bits == 8 ? "255" : "65535") + "\n" + StoreSamples(pixels, bits, true);
                EXPECT_EQ(ReadFile(Path(name)), expected);
                unlink(Path(name).c_str());
            }
    Layout l;
    WriteFile(Path("in"), StoredImage(l, "internal"));
    ExpectRefused({"export", Path("in"), Path("out.pgm")}, "out.pgm", "3 separations");
    ExpectRefused({"export", Path("in"), Path("out.bmp")}, "out.bmp", ".png, .tif, .jpg, .pgm or .ppm");
}

// ---------------------------------------------------------------------------
// Spectra: info, convert, export as CSV and as a plot a real renderer draws
// ---------------------------------------------------------------------------

// A stored spectrum's header as the format writes it, with the lines of
// section Spectral given.
Bytes SpectrumHeader(const std::string &version, const std::vector<std::string> &keys) {
    Bytes h = "[ID]\nformat: spectral\n";
    if (version == "1.0-binary")
        h += "binary: " + std::string(4, '\0') + "\n";
    h += "version: " + version + "\n\n[Spectral]\n";
    for (const std::string &k : keys)
        h += k + "\n";
    return h + "\n[End]\f\n";
}

std::vector<std::string> SpectrumKeys(uint32_t samples, uint32_t measurements, const std::string &type = "illuminant",
                                      const std::string &start = "400.000000",
                                      const std::string &step = "25.000000") {
    return {"numberOfSamples: " + std::to_string(samples), "numberOfMeasurements: " + std::to_string(measurements),
            "startWaveLength: " + start, "samplingInterval: " + step, "spectrumType: " + type};
}

// glibc's " %g" text of each value, a line each, and the raw floats.
Bytes SpectrumText(const std::vector<float> &values) {
    Bytes text;
    char number[64];
    for (float v : values) {
        snprintf(number, sizeof number, " %g\n", (double)v);
        text += number;
    }
    return text;
}

Bytes SpectrumRaw(const std::vector<float> &values) {
    return Bytes(reinterpret_cast<const char *>(values.data()), values.size() * sizeof(float));
}

// measurements x samples values of at most six digits, which the text
// holds exactly.
std::vector<float> SpectrumValues(uint32_t samples, uint32_t measurements) {
    std::vector<float> values;
    for (uint32_t m = 0; m < measurements; ++m)
        for (uint32_t s = 0; s < samples; ++s)
            values.push_back((float)(0.1 * (m + 1) + 0.01 * s));
    return values;
}

std::string G(double v) {
    char text[32];
    snprintf(text, sizeof text, "%g", v);
    return text;
}

TEST_F(Halvern, SpectraAreShownConvertedBothWaysAndExportedAsCsv) {
    std::vector<float> values = SpectrumValues(5, 3);
    Bytes ascii = SpectrumHeader("1.0-ascii", SpectrumKeys(5, 3)) + SpectrumText(values);
    Bytes binary = SpectrumHeader("1.0-binary", SpectrumKeys(5, 3)) + SpectrumRaw(values);
    WriteFile(Path("a.hvs"), ascii);
    Result info = Run({"info", Path("a.hvs")});
    ASSERT_EQ(info.status, 0) << info.err;
    for (const char *line :
         {"format:        spectral\n", "version:       1.0-ascii\n", "spectrum type: illuminant\n",
          "samples:       5 per measurement\n", "measurements:  3\n",
          "wavelengths:   from 400 nm in steps of 25 nm, to 500 nm\n", "data:          one number a line, as text\n"})
        EXPECT_NE(info.out.find(line), std::string::npos) << line << info.out;

    // Text to floats and back: the stored bytes of each version exactly.
    Result r = Run({"convert", Path("a.hvs"), Path("b.hvs"), "--format", "spectral"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(ReadFile(Path("b.hvs")), binary);
    r = Run({"convert", Path("b.hvs"), Path("c.hvs"), "--format", "spectral", "--version", "1.0-ascii"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.err, "") << "six digits hold these values";
    EXPECT_EQ(ReadFile(Path("c.hvs")), ascii);
    Result binaryInfo = Run({"info", Path("b.hvs")});
    EXPECT_NE(binaryInfo.out.find("data:          32-bit floats"), std::string::npos) << binaryInfo.out;

    // A row a wavelength, a column a measurement, from either version.
    Bytes csv = "wavelength (nm),measurement 1,measurement 2,measurement 3\n";
    for (uint32_t s = 0; s < 5; ++s)
        csv += G(400 + 25 * s) + "," + G(values[s]) + "," + G(values[5 + s]) + "," + G(values[10 + s]) + "\n";
    for (const char *input : {"a.hvs", "b.hvs"}) {
        r = Run({"export", Path(input), Path("out.csv")});
        ASSERT_EQ(r.status, 0) << r.err;
        EXPECT_EQ(ReadFile(Path("out.csv")), csv) << input;
    }

    // Wavelengths from a table: shown as one, and the CSV's first column.
    Bytes table = SpectrumHeader("1.0-ascii", {"numberOfSamples: 5", "numberOfMeasurements: 1",
                                               "wavelengths: 400 410.5 430 455 500", "spectrumType: filter"}) +
                  SpectrumText(SpectrumValues(5, 1));
    WriteFile(Path("t.hvs"), table);
    info = Run({"info", Path("t.hvs")});
    ASSERT_EQ(info.status, 0) << info.err;
    EXPECT_NE(info.out.find("wavelengths:   a table of 5, in nm:\n    400 410.5 430 455 500\n"), std::string::npos)
        << info.out;
    r = Run({"export", Path("t.hvs"), Path("t.csv")});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(ReadFile(Path("t.csv")), "wavelength (nm),measurement 1\n400,0.1\n410.5,0.11\n430,0.12\n455,0.13\n500,0.14\n");
    r = Run({"convert", Path("t.hvs"), Path("t2.hvs"), "--format", "spectral"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(ReadFile(Path("t2.hvs")).find("\nwavelength: 400.000000 410.500000 430.000000 455.000000 500.000000\n"),
              std::string::npos);

    // Floats the text can't hold are rounded on the way to text, and said so.
    std::vector<float> thirds = {1.0f / 3, 2.0f / 3, 0.5f, 1e-9f / 3};
    WriteFile(Path("thirds.hvs"), SpectrumHeader("1.0-binary", SpectrumKeys(2, 2)) + SpectrumRaw(thirds));
    r = Run({"convert", Path("thirds.hvs"), Path("thirds.txt"), "--format", "spectral", "--version", "1.0-ascii"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.err.find("note: 3 samples of " + Path("thirds.hvs") + " were rounded"), std::string::npos) << r.err;
    EXPECT_EQ(ReadFile(Path("thirds.txt")), SpectrumHeader("1.0-ascii", SpectrumKeys(2, 2)) + SpectrumText(thirds));

    // Images and spectra don't mix.
    ExpectRefused({"convert", Path("a.hvs"), Path("x"), "--format", "internal"}, "x", "can be converted to spectral");
    ExpectRefused({"convert", Path("a.hvs"), Path("x"), "--format", "spectral", "--version", "2.1"}, "x",
                  "1.0-ascii or 1.0-binary");
    ExpectRefused({"convert", Path("a.hvs"), Path("x"), "--format", "spectral", "--byte-order", "big"}, "x",
                  "this machine's byte order");
    ExpectRefused({"export", Path("a.hvs"), Path("x.pgm")}, "x.pgm", "only internal, image-ext, pixr and pixelstream");
    ExpectRefused({"run", "invert", Path("a.hvs"), Path("x")}, "x", "only internal, image-ext, pixr and pixelstream");
    Layout l;
    WriteFile(Path("image.hv"), StoredImage(l, "internal"));
    ExpectRefused({"export", Path("image.hv"), Path("x.csv")}, "x.csv", "exports take spectra and info tables");
    ExpectRefused({"convert", Path("image.hv"), Path("x"), "--format", "spectral"}, "x", "not a spectrum");
}

TEST_F(Halvern, SpectraPlotIsDrawnByARealRenderer) {
    // Three flat spectra, at 0.2, 0.5 and 0.8, and a fourth that climbs.
    std::vector<float> values;
    for (float level : {0.2f, 0.5f, 0.8f})
        values.insert(values.end(), 31, level);
    for (int s = 0; s < 31; ++s)
        values.push_back(0.03f * (float)s);
    WriteFile(Path("in.hvs"), SpectrumHeader("1.0-binary", SpectrumKeys(31, 4, "reflectance", "400.000000",
                                                                           "10.000000")) +
                                  SpectrumRaw(values));
    Result r = Run({"export", Path("in.hvs"), Path("plot.svg")});
    ASSERT_EQ(r.status, 0) << r.err;
    Bytes svg = ReadFile(Path("plot.svg"));
    for (const char *text : {">wavelength (nm)</text>", ">reflectance</text>", ">400</text>", ">700</text>",
                             ">measurement 4</text>"})
        EXPECT_NE(svg.find(text), std::string::npos) << text;
    std::vector<std::string> colours;
    for (size_t at = svg.find("<polyline fill=\"none\" stroke=\"#"); at != std::string::npos;
         at = svg.find("<polyline fill=\"none\" stroke=\"#", at + 1))
        colours.push_back(svg.substr(at + 31, 6));
    ASSERT_EQ(colours.size(), 4u);

    std::string command = "rsvg-convert '" + Path("plot.svg") + "' -o '" + Path("plot.png") + "' 2>'" +
                          Path("rsvg.err") + "'";
    ASSERT_EQ(std::system(command.c_str()), 0) << "rsvg-convert (Debian librsvg2-bin) must be installed: "
                                               << ReadFile(Path("rsvg.err"));
    EXPECT_EQ(ReadFile(Path("rsvg.err")), "");
    png::Image image = png::Read(ReadFile(Path("plot.png")));
    ASSERT_EQ(image.error, "");
    EXPECT_EQ(image.width, 800u);
    EXPECT_EQ(image.height, 500u);

    // Each line is there in its own colour across most of the width; the
    // flat ones stand in the order of their values, the climbing one
    // climbs.
    struct Seen {
        uint32_t columns = 0;
        double meanRow = 0;
        double rowAtLeft = 0, rowAtRight = 0;
    };
    std::vector<Seen> seen;
    for (const std::string &hex : colours) {
        uint32_t rgb = (uint32_t)std::strtoul(hex.c_str(), nullptr, 16);
        int want[3] = {(int)(rgb >> 16), (int)(rgb >> 8 & 0xFF), (int)(rgb & 0xFF)};
        Seen s;
        uint64_t rows = 0, count = 0;
        std::vector<double> columnRow(image.width, -1);
        for (uint32_t x = 0; x < image.width; ++x) {
            uint64_t sum = 0, n = 0;
            for (uint32_t y = 0; y < image.height; ++y) {
                const uint8_t *p = image.At(x, y);
                if (std::abs(p[0] - want[0]) <= 12 && std::abs(p[1] - want[1]) <= 12 && std::abs(p[2] - want[2]) <= 12)
                    sum += y, ++n;
            }
            if (n > 0) {
                ++s.columns;
                columnRow[x] = (double)sum / (double)n;
                rows += sum, count += n;
            }
        }
        s.meanRow = count ? (double)rows / (double)count : -1;
        for (uint32_t x = 0; x < image.width && s.rowAtLeft == 0; ++x)
            if (columnRow[x] >= 0)
                s.rowAtLeft = columnRow[x];
        for (uint32_t x = image.width; x-- > 0 && s.rowAtRight == 0;)
            if (columnRow[x] >= 0)
                s.rowAtRight = columnRow[x];
        seen.push_back(s);
    }
    for (size_t i = 0; i < seen.size(); ++i)
        EXPECT_GT(seen[i].columns, image.width / 2) << "measurement " << i + 1 << " in " << colours[i];
    EXPECT_LT(seen[2].meanRow, seen[1].meanRow) << "0.8 above 0.5";
    EXPECT_LT(seen[1].meanRow, seen[0].meanRow) << "0.5 above 0.2";
    EXPECT_LT(seen[3].rowAtRight + 100, seen[3].rowAtLeft) << "the fourth climbs from left to right";
}

TEST_F(Halvern, RefusesDamagedAndHostileSpectra) {
    std::vector<float> values = SpectrumValues(5, 3);
    Bytes text = SpectrumText(values), raw = SpectrumRaw(values);
    struct Case {
        std::string name;
        Bytes file;
        std::string phrase;
    } cases[] = {
        {"text cut inside a measurement", SpectrumHeader("1.0-ascii", SpectrumKeys(5, 3)) + text.substr(0, text.size() - 9),
         "it ends after 2 of the 3 measurements"},
        {"a word among the numbers",
         SpectrumHeader("1.0-ascii", SpectrumKeys(5, 3)) + text.substr(0, 40) + " blue\n" + text.substr(40),
         "cut short"},
        {"floats cut short", SpectrumHeader("1.0-binary", SpectrumKeys(5, 3)) + raw.substr(0, 40), "cut short"},
        {"floats end inside a measurement", SpectrumHeader("1.0-binary", SpectrumKeys(5, 0)) + raw.substr(0, 50),
         "ends in the middle of a measurement"},
        {"no samples", SpectrumHeader("1.0-binary", SpectrumKeys(0, 3)) + raw, "no samples"},
        {"text where numbers belong",
         SpectrumHeader("1.0-ascii", {"numberOfSamples: five", "startWaveLength: 400", "samplingInterval: 10"}) + text,
         "no samples"},
        {"a huge measurement", SpectrumHeader("1.0-binary", SpectrumKeys(100000000, 1)) + raw,
         "more than this host handles"},
        {"samples beyond 32-bit bytes", SpectrumHeader("1.0-ascii", SpectrumKeys(2000000000, 1)) + text,
         "breaks a rule of that format"},
        {"huge measurement counts, binary", SpectrumHeader("1.0-binary", SpectrumKeys(5, 4000000000u)) + raw,
         "cut short"},
        {"huge measurement counts, text", SpectrumHeader("1.0-ascii", SpectrumKeys(5, 4000000000u)) + text,
         "it ends after 3 of the 4000000000 measurements"},
        {"a table that doesn't rise",
         SpectrumHeader("1.0-ascii", {"numberOfSamples: 5", "wavelengths: 400 410 410 420 430"}) + text,
         "breaks a rule of that format"},
        {"a table longer than 500",
         SpectrumHeader("1.0-ascii", {"numberOfSamples: 600", "wavelengths: 400 401 402"}) + text,
         "breaks a rule of that format"},
        {"neither table nor interval", SpectrumHeader("1.0-ascii", {"numberOfSamples: 5"}) + text,
         "breaks a rule of that format"},
        {"no data", SpectrumHeader("1.0-ascii", SpectrumKeys(5, 0)), "holds no"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        WriteFile(Path("bad.hvs"), c.file);
        ExpectRefused({"convert", Path("bad.hvs"), Path("out.hvs"), "--format", "spectral", "--version", "1.0-ascii"},
                      "out.hvs", c.phrase);
        ExpectRefused({"export", Path("bad.hvs"), Path("out.svg")}, "out.svg", c.phrase);
    }
}

TEST_F(Halvern, AWriteThatFailsLeavesNoOutput) {
    // Files of this process and its children may grow to 16 KiB: writing
    // past that fails (SIGXFSZ ignored, so the write says EFBIG).  Raw
    // spectra are written by a method that never reports a failed write,
    // and the header's end marker neither; the output is refused all the same.
    std::vector<float> values = SpectrumValues(500, 20);
    WriteFile(Path("a.hvs"), SpectrumHeader("1.0-ascii", SpectrumKeys(500, 20)) + SpectrumText(values));
    Layout l;
    l.width = 100;
    l.height = 100;
    WriteFile(Path("image.hv"), StoredImage(l, "internal"));
    const std::vector<std::vector<std::string>> commands = {
        {"convert", Path("a.hvs"), Path("out"), "--format", "spectral"},
        {"convert", Path("a.hvs"), Path("out"), "--format", "spectral", "--version", "1.0-ascii"},
        {"export", Path("a.hvs"), Path("out.csv")},
        {"convert", Path("image.hv"), Path("out"), "--format", "image-ext"},
    };
    struct rlimit old;
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &old), 0);
    struct rlimit small = old;
    small.rlim_cur = 16384;
    signal(SIGXFSZ, SIG_IGN);
    for (const auto &args : commands) {
        SCOPED_TRACE(args[0] + " " + args[2]);
        std::vector<std::string> before = Listing();
        ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
        Result r = Run(args);
        setrlimit(RLIMIT_FSIZE, &old);
        EXPECT_NE(r.status, 0);
        EXPECT_NE(r.err.find("can't write " + args[2]), std::string::npos) << r.err;
        EXPECT_EQ(Listing(), before) << "neither the output nor its temporary stays";
    }
    signal(SIGXFSZ, SIG_DFL);
}

// ---------------------------------------------------------------------------
// Images over HTTP
// ---------------------------------------------------------------------------

// A server on 127.0.0.1 that gives every connection the same answer, run
// from the test's own thread while one halvern process lives: it serves
// until the process has ended, so halvern may connect as often as it likes.
class OneAnswerServer {
  public:
    OneAnswerServer() {
        fd_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        bind(fd_, reinterpret_cast<sockaddr *>(&address), sizeof address);
        listen(fd_, 8);
        socklen_t length = sizeof address;
        getsockname(fd_, reinterpret_cast<sockaddr *>(&address), &length);
        port_ = ntohs(address.sin_port);
    }
    ~OneAnswerServer() { close(fd_); }
    std::string Url(const std::string &path) const { return "http://127.0.0.1:" + std::to_string(port_) + path; }

    // Answers connections until pid ends (60 s at most); answer empty: read
    // the request and say nothing until the client gives up.
    void ServeUntilExit(pid_t pid, const std::string &answer) {
        int pidfd = static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
        ASSERT_GE(pidfd, 0);
        auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (std::chrono::steady_clock::now() < end) {
            pollfd entries[2] = {{pidfd, POLLIN, 0}, {fd_, POLLIN, 0}};
            if (poll(entries, 2, 1000) < 0 && errno != EINTR)
                break;
            if (entries[0].revents != 0)
                break;
            if (entries[1].revents == 0)
                continue;
            int connection = accept4(fd_, nullptr, nullptr, SOCK_CLOEXEC);
            if (connection < 0)
                continue;
            Converse(connection, answer, pidfd);
            close(connection);
        }
        close(pidfd);
    }

  private:
    // Reads the request head, sends the answer, or waits for the client's
    // close (or its end) when there is none.
    static void Converse(int fd, const std::string &answer, int pidfd) {
        std::string head;
        char buffer[4096];
        for (;;) {
            pollfd entries[2] = {{fd, POLLIN, 0}, {pidfd, POLLIN, 0}};
            if (poll(entries, 2, 10000) <= 0 || entries[1].revents != 0)
                return;
            ssize_t got = recv(fd, buffer, sizeof buffer, 0);
            if (got <= 0)
                return;
            head.append(buffer, static_cast<size_t>(got));
            if (!answer.empty() && head.find("\r\n\r\n") != std::string::npos)
                break;
        }
        for (size_t at = 0; at < answer.size();) {
            ssize_t sent = send(fd, answer.data() + at, answer.size() - at, MSG_NOSIGNAL);
            if (sent <= 0)
                return;
            at += static_cast<size_t>(sent);
        }
    }

    int fd_ = -1;
    uint16_t port_ = 0;
};

TEST_F(Halvern, ImagesOverHttpAreReadAndTruncatedOnesRefused) {
    // The URL stream ends a body cut short as an ordinary end; halvern
    // notices the missing scanlines and writes nothing.
    env_ = {"HV_URL_TIMEOUT=1000"};
    Layout l;
    l.height = 40;
    for (std::string format : {"internal", "image-ext"}) {
        Bytes image = StoredImage(l, format);
        Bytes cut = image.substr(0, DataStart(image) + 2 * l.LineBytes() + 3);
        std::string length = "Content-Length: " + std::to_string(image.size()) + "\r\n";
        char size[16];
        snprintf(size, sizeof size, "%zx", image.size());
        // image-ext data come in chunk records, one of which the cut leaves short.
        std::string cutShort = format == "internal" ? "is cut short" : "its data end inside a chunk";
        struct Case {
            std::string name;
            std::string answer;
            std::string phrase; // empty: the run succeeds
        } cases[] = {
            {"whole, with its length", "HTTP/1.1 200 OK\r\n" + length + "\r\n" + image, ""},
            {"whole, chunked", "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n" + std::string(size) + "\r\n" +
                                   image + "\r\n0\r\n\r\n", ""},
            {"closed before its length", "HTTP/1.1 200 OK\r\n" + length + "\r\n" + cut, cutShort},
            {"closed, no length", "HTTP/1.1 200 OK\r\n\r\n" + cut, cutShort},
            {"closed inside a chunk", "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n" + std::string(size) +
                                          "\r\n" + cut, cutShort},
            {"not found", "HTTP/1.1 404 Not Found\r\nContent-Length: 0\r\n\r\n", "can't open"},
            {"never answers", "", "can't open"},
        };
        for (const Case &c : cases) {
            SCOPED_TRACE(format + ": " + c.name);
            OneAnswerServer server;
            std::vector<std::string> before = Listing();
            pid_t pid = Spawn({"run", "copy", server.Url("/images/in.hv"), Path("out")});
            ASSERT_GT(pid, 0);
            server.ServeUntilExit(pid, c.answer);
            Result r = Wait(pid);
            if (c.phrase.empty()) {
                ASSERT_EQ(r.status, 0) << r.err;
                EXPECT_EQ(StoredData(ReadFile(Path("out")), l), StoreSamples(SampleValues(l), l.bits, false));
                unlink(Path("out").c_str());
            } else {
                EXPECT_NE(r.status, 0);
                EXPECT_NE(r.err.find(c.phrase), std::string::npos) << r.err;
                EXPECT_EQ(Listing(), before) << "no output, no temporary";
            }
        }
    }
}

// ---------------------------------------------------------------------------
// The catalogue, the demo, the command line
// ---------------------------------------------------------------------------

TEST_F(Halvern, ListsDescribesAndDemonstrates) {
    Result list = Run({"list"});
    ASSERT_EQ(list.status, 0) << list.err;
    for (const char *name : {"copy ", "invert ", "gain ", "threshold "})
        EXPECT_NE(list.out.find(name), std::string::npos) << list.out;
    Result describe = Run({"describe", "gain"});
    EXPECT_EQ(describe.status, 0);
    EXPECT_NE(describe.out.find("factor:d"), std::string::npos) << describe.out;
    Result demo = Run({"demo"});
    EXPECT_EQ(demo.status, 0) << demo.err;
    EXPECT_NE(demo.out.find("invert     255 238 221 204 187 170 153 136 119 102  85  68  51  34  17   0\n"),
              std::string::npos)
        << demo.out;
    EXPECT_NE(demo.out.find("threshold    0   0   0   0   0   0   0   0 255 255"), std::string::npos) << demo.out;
    for (const char *line : {"31 samples from 400 to 700 nm", "    nm    blue     red   green    grey\n",
                             "   400  0.1758  0.0500  0.0501  0.1800\n", "   700  0.0500  0.8490  0.0500  0.1800\n",
                             "Plotted all four to"})
        EXPECT_NE(demo.out.find(line), std::string::npos) << line << demo.out;
    Result help = Run({"help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_NE(help.out.find("convert INPUT OUTPUT --format"), std::string::npos);
    Result bare = Run({});
    EXPECT_EQ(bare.status, 2);
    EXPECT_NE(bare.err.find("usage: halvern"), std::string::npos);
    Result unknown = Run({"frobnicate"});
    EXPECT_EQ(unknown.status, 2);
    EXPECT_NE(unknown.err.find("unknown command frobnicate"), std::string::npos);
}

// ---------------------------------------------------------------------------
// Start-up: which bundle failed and why, without any debug switch
// ---------------------------------------------------------------------------

TEST_F(Halvern, AFailedStartNamesTheRegistryFileTheBundleAndTheReason) {
    // The registry is the test's own; the broken bundles are built beside
    // the test programs, where the loader's search is pointed.
    env_ = {"HV_DATA_PATH=" + dir_, std::string("LD_LIBRARY_PATH=") + HALV_TEST_BUNDLE_DIR};
    const std::string registry = Path("hvregistry.dot");
    const struct {
        const char *bundle, *reason;
    } kCases[] = {
        {"nosuchbundle", "dpk_nosuchbundle.so: cannot open shared object file: No such file or directory"},
        {"nolist", "lacks the entry point HalvernBundleGetList_nolist"},
        {"oldmajor", "it was built for major version 2; this engine takes 3"},
        {"unresolved", "undefined symbol: HalvNoSuchFunction"},
    };
    for (const auto &c : kCases) {
        SCOPED_TRACE(c.bundle);
        WriteFile(registry, std::string("[libraries]\nrequired: halv\nrequired: ") + c.bundle + "\n");
        for (const char *command : {"list", "demo"}) {
            Result r = Run({command});
            EXPECT_EQ(r.status, 1);
            EXPECT_EQ(r.out, "");
            std::istringstream lines(r.err);
            std::string first, second, third, rest;
            std::getline(lines, first);
            std::getline(lines, second);
            std::getline(lines, third);
            std::getline(lines, rest, '\0');
            EXPECT_EQ(first, "halvern: the engine did not start");
            EXPECT_EQ(second, "halvern: registry file: " + registry);
            EXPECT_EQ(third.rfind(std::string("halvern: bundle ") + c.bundle + " (required): ", 0), 0u) << third;
            EXPECT_NE(third.find(c.reason), std::string::npos) << third;
            EXPECT_EQ(rest, "");
        }
        Result status = Run({"status"});
        EXPECT_EQ(status.status, 1);
        EXPECT_NE(status.out.find("bundle halv     loaded, version 3.8.0"), std::string::npos) << status.out;
        EXPECT_NE(status.out.find(std::string("bundle ") + c.bundle), std::string::npos) << status.out;
        EXPECT_NE(status.out.find(c.reason), std::string::npos) << status.out;
    }
}

TEST_F(Halvern, ListAndStatusTellLoadedAndFailedBundles) {
    env_ = {"HV_DATA_PATH=" + dir_, std::string("LD_LIBRARY_PATH=") + HALV_TEST_BUNDLE_DIR};
    WriteFile(Path("hvregistry.dot"), "[libraries]\noptional: oldmajor\nrequired: halv\noptional: nosuchbundle\n");
    Result list = Run({"list"});
    EXPECT_EQ(list.status, 0) << list.err;
    EXPECT_EQ(list.err, "");
    size_t failedPart = list.out.find("\nbundles that failed to load:\n  oldmajor (optional): it was built for major "
                                      "version 2; this engine takes 3\n  nosuchbundle (optional): ");
    EXPECT_NE(failedPart, std::string::npos) << list.out;
    EXPECT_LT(list.out.find("threshold "), failedPart);
    Result failed = Run({"list", "--failed"});
    EXPECT_EQ(failed.status, 0);
    EXPECT_EQ(failed.out.rfind("oldmajor (optional): it was built for major version 2", 0), 0u) << failed.out;
    EXPECT_EQ(failed.out.find("threshold"), std::string::npos);
    EXPECT_EQ(std::count(failed.out.begin(), failed.out.end(), '\n'), 2);
    EXPECT_EQ(Run({"list", "--exists", "gain"}).status, 0);
    Result missing = Run({"list", "--exists", "no-such-function"});
    EXPECT_EQ(missing.status, 1);
    EXPECT_EQ(missing.out + missing.err, "");
    Result status = Run({"status"});
    EXPECT_EQ(status.status, 0) << status.err;
    EXPECT_NE(status.out.find("registry file: " + Path("hvregistry.dot") + "\n"), std::string::npos) << status.out;
    EXPECT_NE(status.out.find("data path      " + dir_ + "\n"), std::string::npos) << status.out;
    EXPECT_NE(status.out.find("temporary dir  "), std::string::npos) << status.out;
    EXPECT_NE(status.out.find("/dpk_halv.so\n"), std::string::npos) << status.out;
    EXPECT_NE(status.out.find("bundle oldmajor failed (optional): it was built for major version 2"), std::string::npos)
        << status.out;
    EXPECT_EQ(Listing(), std::vector<std::string>{"hvregistry.dot"}) << "status leaves nothing behind";
}

// ---------------------------------------------------------------------------
// Ctrl-C
// ---------------------------------------------------------------------------

TEST_F(Halvern, InterruptStopsBetweenChunksAndRemovesTheUnfinishedOutput) {
    // The input is a pipe the test feeds, so the signal lands mid-run for
    // certain: 4 MiB of a 16 MiB image are through before it is sent, and
    // the rest follows after it.
    Layout l;
    l.width = 4096;
    l.height = 4096;
    l.parts = 1;
    const std::string input = Path("in.hv");
    ASSERT_EQ(mkfifo(input.c_str(), 0600), 0);
    for (const char *command : {"run", "convert", "export"}) {
        SCOPED_TRACE(command);
        std::vector<std::string> args = {command};
        const std::string output = std::string(command) == "export" ? "out.pgm" : "out.hv";
        if (std::string(command) == "run")
            args.push_back("invert");
        args.push_back(input);
        args.push_back(Path(output));
        if (std::string(command) == "convert")
            args.insert(args.end(), {"--format", "image-ext"});
        pid_t pid = Spawn(args);
        ASSERT_GT(pid, 0);
        int fifo = open(input.c_str(), O_WRONLY); // returns once halvern opened it
        ASSERT_GE(fifo, 0);
        signal(SIGPIPE, SIG_IGN);
        const std::string header = HeaderText(l, "internal");
        const std::string line(l.LineBytes(), '\x5a');
        auto send = [&](const std::string &bytes) {
            return write(fifo, bytes.data(), bytes.size()) == (ssize_t)bytes.size();
        };
        ASSERT_TRUE(send(header));
        for (uint32_t i = 0; i < 1024; ++i)
            ASSERT_TRUE(send(line));
        ASSERT_EQ(kill(pid, SIGINT), 0);
        for (uint32_t i = 1024; i < l.height && send(line); ++i) {
        }
        close(fifo);
        Result r = Wait(pid);
        signal(SIGPIPE, SIG_DFL);
        EXPECT_EQ(r.status, 130) << r.err;
        EXPECT_NE(r.err.find("halvern: interrupted: stopped between two chunks; " + Path(output) + " was not written"),
                  std::string::npos)
            << r.err;
        EXPECT_EQ(Listing(), std::vector<std::string>{"in.hv"}) << "nothing is left under either name";
    }
}

// ---------------------------------------------------------------------------
// Info tables: import-table, export to CSV, info
// ---------------------------------------------------------------------------

// One entry of the test's table "id:1i tag:5c w:3f n:2i note:12c z:1f",
// as its values and as the packed bytes of this machine's order.
const char kTableFields[] = "id:1i tag:5c w:3f n:2i note:12c z:1f";
constexpr uint32_t kTableEntry = 4 + 5 + 24 + 8 + 12 + 8;

struct TableRow {
    int32_t id;
    std::string tag;
    double w[3];
    int32_t n[2];
    std::string note;
    double z;

    Bytes Packed(bool big = false) const {
        Bytes e;
        auto number = [&](const void *v, size_t width) {
            Bytes b(static_cast<const char *>(v), width);
            if (big)
                std::reverse(b.begin(), b.end());
            e += b;
        };
        auto text = [&](const std::string &t, size_t width) { e += t + std::string(width - t.size(), '\0'); };
        number(&id, 4);
        text(tag, 5);
        for (double v : w)
            number(&v, 8);
        for (int32_t v : n)
            number(&v, 4);
        text(note, 12);
        number(&z, 8);
        return e;
    }
};

std::vector<TableRow> TableRows() {
    const double inf = HUGE_VAL;
    return {
        {1, "ab", {0.1, 1.0 / 3.0, -0.0}, {INT32_MIN, INT32_MAX}, "plain", 2.5},
        {-7, "", {1e300, 4.9406564584124654e-324, 1.7976931348623157e308}, {0, -1}, "a,b", -inf},
        {2147483647, "five!", {inf, -1e-300, 6.02214076e23}, {42, -42}, "say \"hi\"", 0.0},
        {0, "x y", {123456789.125, -2.2250738585072014e-308, 9007199254740993.0}, {7, 8}, "two\nlines", 1e-5},
        {-1, "\xc3\xa9t\xc3\xa9", {3.0, 0.30000000000000004, 100.0}, {1, 2}, "exactly12byt", std::nan("")},
    };
}

// The CSV of rows with the columns in the order given (header names of
// export), written the way a spreadsheet might: CRLF line ends, quotes
// only where needed, numbers in forms of its own.
Bytes TableCsv(const std::vector<TableRow> &rows) {
    auto quote = [](const std::string &t) {
        if (t.find_first_of(",\"\n\r") == std::string::npos)
            return t;
        std::string q = "\"";
        for (char c : t)
            q += c == '"' ? std::string("\"\"") : std::string(1, c);
        return q + "\"";
    };
    auto number = [](double v) {
        char b[64];
        snprintf(b, sizeof b, "%.17e", v); // long forms that read back exactly
        return std::string(std::isnan(v) ? "NaN" : b);
    };
    Bytes csv = "note,id,tag,w[0],w[1],w[2],n[0],n[1],z\r\n";
    for (const TableRow &r : rows)
        csv += quote(r.note) + "," + std::to_string(r.id) + "," + quote(r.tag) + "," + number(r.w[0]) + "," +
               number(r.w[1]) + "," + number(r.w[2]) + "," + std::to_string(r.n[0]) + ", " + std::to_string(r.n[1]) +
               " ," + number(r.z) + "\r\n";
    return csv;
}

// A stored info table written by hand: the header with these Info and
// Encoding lines, then one chunk record and payload for each payload.
Bytes TableFile(const std::vector<std::string> &info, const std::string &bytesPerEntry,
                const std::vector<Bytes> &payloads, const std::vector<uint32_t> &lines, bool big) {
    Bytes h = "[ID]\nformat: info\nbinary: " + std::string(4, '\0') + "\nversion: 1.0\narchitecture: " +
              (big ? "type 1" : "type 2") + "\n\n[Encoding]\nname: packed\nbytes/entry: " + bytesPerEntry +
              "\n\n[Info]\n";
    for (const std::string &line : info)
        h += line + "\n";
    h += "\n[End]\f\n";
    for (size_t i = 0; i < payloads.size(); ++i)
        h += ExtRecord((uint32_t)payloads[i].size(), lines[i], 0, 0, big) + payloads[i];
    return h;
}

const std::vector<std::string> kTableInfo = {"field-0: \"id:1i\"", "field-1: \"tag:5c\"",  "field-2: \"w:3f\"",
                                             "field-3: \"n:2i\"",  "field-4: \"note:12c\"", "field-5: \"z:1f\""};

// The payload of a stored table (records checked and stripped), in this
// machine's order.
Bytes TablePayload(const Bytes &file, uint32_t *entries = nullptr) {
    size_t at = DataStart(file);
    Bytes payload;
    uint32_t lines = 0;
    while (at != std::string::npos && at + 16 <= file.size()) {
        uint32_t bytes = ReadWord32(file, at, false);
        lines += ReadWord32(file, at + 4, false);
        payload += file.substr(at + 16, bytes);
        at += 16 + bytes;
    }
    if (entries != nullptr)
        *entries = lines;
    return payload;
}

// Runs python3 with script and args; its standard output, or nothing with
// *ran false when there is no python3.
std::string Python(const std::string &script, const std::vector<std::string> &args, const std::string &dir,
                   bool *ran) {
    std::string scriptPath = dir + "/.check.py", outPath = dir + "/.python-out";
    WriteFile(scriptPath, script);
    // The system's own, as deps.sh installs it, before any shim on PATH.
    std::string command = std::string(access("/usr/bin/python3", X_OK) == 0 ? "/usr/bin/python3" : "python3") +
                          " '" + scriptPath + "'";
    for (const std::string &a : args)
        command += " '" + a + "'";
    command += " > '" + outPath + "' 2>&1";
    int status = std::system(command.c_str());
    *ran = WIFEXITED(status) && WEXITSTATUS(status) != 127;
    std::string out = ReadFile(outPath);
    unlink(scriptPath.c_str());
    unlink(outPath.c_str());
    EXPECT_TRUE(!*ran || WEXITSTATUS(status) == 0) << out;
    return out;
}

std::string HexOf(const void *bytes, size_t n) {
    static const char kDigits[] = "0123456789abcdef";
    std::string hex;
    for (size_t i = 0; i < n; ++i) {
        unsigned char b = static_cast<const unsigned char *>(bytes)[i];
        hex += kDigits[b >> 4];
        hex += kDigits[b & 15];
    }
    return hex;
}

TEST_F(Halvern, TablesRoundTripThroughCsvAndKeepEveryValue) {
    std::vector<TableRow> rows = TableRows();
    WriteFile(Path("in.csv"), TableCsv(rows));
    Result r = Run({"import-table", Path("in.csv"), kTableFields, Path("t.tbl")});
    ASSERT_EQ(r.status, 0) << r.err;

    // The stored table: its keys, and the entries packed as the test
    // packs them.
    Bytes table = ReadFile(Path("t.tbl"));
    EXPECT_EQ(HeaderKey(table, "format"), "info");
    EXPECT_EQ(HeaderKey(table, "bytes/entry"), std::to_string(kTableEntry));
    EXPECT_EQ(HeaderKey(table, "entries"), "5");
    EXPECT_EQ(HeaderKey(table, "field-2"), "\"w:3f\"");
    uint32_t entries = 0;
    Bytes expected;
    for (const TableRow &row : rows)
        expected += row.Packed();
    EXPECT_EQ(TablePayload(table, &entries), expected);
    EXPECT_EQ(entries, 5u);

    // Exported, and the export imported again: the very same table.
    r = Run({"export", Path("t.tbl"), Path("out.csv")});
    ASSERT_EQ(r.status, 0) << r.err;
    Bytes csv = ReadFile(Path("out.csv"));
    EXPECT_EQ(csv.substr(0, csv.find('\n') + 1), "id,tag,w[0],w[1],w[2],n[0],n[1],note,z\n");
    r = Run({"import-table", Path("out.csv"), kTableFields, Path("again.tbl")});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(ReadFile(Path("again.tbl")), table);

    // An outside CSV reader finds every value in the export: numbers by
    // their bits, texts by their bytes.
    bool ran = false;
    std::string seen = Python("import csv, struct, sys\n"
                              "kinds = 'itfffiitf'\n"
                              "with open(sys.argv[1], newline='', encoding='utf-8') as f:\n"
                              "    rows = list(csv.reader(f))\n"
                              "for row in rows[1:]:\n"
                              "    out = []\n"
                              "    for kind, cell in zip(kinds, row):\n"
                              "        if kind == 'i': out.append(str(int(cell)))\n"
                              "        elif kind == 'f': out.append(struct.pack('<d', float(cell)).hex())\n"
                              "        else: out.append(cell.encode('utf-8').hex())\n"
                              "    print(len(row), ' '.join(out))\n",
                              {Path("out.csv")}, dir_, &ran);
    if (!ran)
        GTEST_SKIP() << "python3 is not installed (scripts/deps.sh installs it)";
    std::string want;
    for (const TableRow &row : rows) {
        auto d = [](double v) { return HexOf(&v, 8); };
        want += "9 " + std::to_string(row.id) + " " + HexOf(row.tag.data(), row.tag.size()) + " " + d(row.w[0]) +
                " " + d(row.w[1]) + " " + d(row.w[2]) + " " + std::to_string(row.n[0]) + " " +
                std::to_string(row.n[1]) + " " + HexOf(row.note.data(), row.note.size()) + " " + d(row.z) + "\n";
    }
    EXPECT_EQ(seen, want);
}

TEST_F(Halvern, InfoAndExportReadATableOfTheOtherByteOrder) {
    std::vector<TableRow> rows = TableRows();
    Bytes first, second;
    for (size_t i = 0; i < rows.size(); ++i)
        (i < 3 ? first : second) += rows[i].Packed(true);
    WriteFile(Path("big.tbl"),
              TableFile(kTableInfo, std::to_string(kTableEntry), {first, second}, {3, 2}, true));
    Result info = Run({"info", Path("big.tbl")});
    ASSERT_EQ(info.status, 0) << info.err;
    for (const char *line :
         {"format:        info", "byte order:    big-endian (type 1)", "bytes/entry:   61",
          "entries:       5 (the header doesn't say)", "fields:        6, 9 columns",
          "    id                   integer          1         0         4",
          "    w                    double           3         9        24",
          "    note                 text            12        41        12"})
        EXPECT_NE(info.out.find(line), std::string::npos) << line << "\n" << info.out;

    Result r = Run({"export", Path("big.tbl"), Path("big.csv")});
    ASSERT_EQ(r.status, 0) << r.err;
    r = Run({"import-table", Path("big.csv"), kTableFields, Path("little.tbl")});
    ASSERT_EQ(r.status, 0) << r.err;
    Bytes expected;
    for (const TableRow &row : rows)
        expected += row.Packed();
    EXPECT_EQ(TablePayload(ReadFile(Path("little.tbl"))), expected);
}

TEST_F(Halvern, ImportRefusesBadFieldListsAndCells) {
    WriteFile(Path("in.csv"), "x,w[0],w[1],label\n1,0.5,2,ab\n");
    const std::string fields = "x:1i w:2f label:2c";
    ASSERT_EQ(Run({"import-table", Path("in.csv"), fields, Path("ok.tbl")}).status, 0);
    unlink(Path("ok.tbl").c_str());

    struct FieldCase {
        std::string fields, phrase;
    } fieldCases[] = {
        {"x1i", "field \"x1i\""},           {"x:1q", "field \"x:1q\""},      {"x:", "field \"x:\""},
        {":1i", "field \":1i\""},           {"a,b:1i", "field \"a,b:1i\""},  {"", "the field list is empty"},
        {"x:1i X:2f", "names X twice"},      {"big:20000000f", "at most"},
    };
    for (const FieldCase &c : fieldCases) {
        SCOPED_TRACE(c.fields);
        Result r = Run({"import-table", Path("in.csv"), c.fields, Path("out.tbl")});
        EXPECT_EQ(r.status, 2) << r.err;
        EXPECT_NE(r.err.find(c.phrase), std::string::npos) << r.err;
        EXPECT_FALSE(Exists(Path("out.tbl")));
    }

    struct CsvCase {
        Bytes csv;
        std::string phrase;
    } csvCases[] = {
        {"", "is empty"},
        {"x,w[0],label\n1,2,ab\n", "no column \"w[1]\""},
        {"x,w[0],w[1],label,extra\n1,2,3,ab,4\n", "column \"extra\" is not one"},
        {"x,w[0],w[1],label,x\n1,2,3,ab,4\n", "column \"x\" twice"},
        {"x,w[0],w[1],label\n1,2,3\n", "line 2: 3 cells, where the first row has 4"},
        {"x,w[0],w[1],label\n1,2,3,ab\n\n12,0x,3,ab\n", "line 4, column w[0]: \"0x\" is not a number"},
        {"x,w[0],w[1],label\n2147483648,2,3,ab\n", "column x: \"2147483648\" is out of the range"},
        {"x,w[0],w[1],label\n1.5,2,3,ab\n", "column x: \"1.5\" is not an integer"},
        {"x,w[0],w[1],label\n,2,3,ab\n", "column x: \"\" is not an integer"},
        {"x,w[0],w[1],label\n1,1e999,3,ab\n", "beyond the range of a double"},
        {"x,w[0],w[1],label\n1,2,3,abc\n", "the text has 3 bytes; the field takes 2"},
        {"x,w[0],w[1],label\n1,2,3,\"ab\n", "a quoted cell is never closed"},
        {Bytes("x,w[0],w[1],label\n1,2,3,a") + '\0' + "\n", "NUL"},
    };
    for (const CsvCase &c : csvCases) {
        SCOPED_TRACE(c.phrase);
        WriteFile(Path("bad.csv"), c.csv);
        ExpectRefused({"import-table", Path("bad.csv"), fields, Path("out.tbl")}, "out.tbl", c.phrase);
    }
    ExpectRefused({"import-table", Path("missing.csv"), fields, Path("out.tbl")}, "out.tbl", "can't read");
    ExpectRefused({"import-table", Path("in.csv"), fields}, "", "usage");

    // Headings fold case, a byte order mark is passed over, and a table
    // of no entries is a table.
    WriteFile(Path("bom.csv"), "\xEF\xBB\xBFLABEL,X,W[1],w[0]\n");
    Result r = Run({"import-table", Path("bom.csv"), fields, Path("empty.tbl")});
    ASSERT_EQ(r.status, 0) << r.err;
    Bytes empty = ReadFile(Path("empty.tbl"));
    EXPECT_EQ(HeaderKey(empty, "entries"), "");
    EXPECT_EQ(empty.size(), DataStart(empty));
    Result info = Run({"info", Path("empty.tbl")});
    EXPECT_EQ(info.status, 0) << info.err;
    EXPECT_NE(info.out.find("entries:       0 (the header doesn't say)"), std::string::npos) << info.out;
}

Bytes Cut(const Bytes &file, size_t bytes) { return file.substr(0, file.size() - bytes); }

TEST_F(Halvern, ExportAndInfoRefuseTablesThatDontAddUp) {
    TableRow row = TableRows()[0];
    Bytes one = row.Packed(), two = one + one;
    std::vector<std::string> entries5 = kTableInfo;
    entries5.push_back("entries: 5");
    std::vector<std::string> badField = kTableInfo;
    badField[2] = "field-2: \"w:3d\"";
    struct Case {
        std::string name;
        Bytes file;
        std::string phrase;
    } cases[] = {
        {"fewer", TableFile(entries5, "61", {two}, {2}, false), "holds 2 of the 5 entries its header gives"},
        {"more", TableFile(entries5, "61", {two + two, two}, {4, 2}, false), "more entries than the 5"},
        {"zero", TableFile(kTableInfo, "0", {two}, {2}, false), "its header gives no bytes/entry"},
        {"billions", TableFile(kTableInfo, "4000000000", {two}, {2}, false), "bytes/entry 4000000000"},
        {"field", TableFile(badField, "61", {two}, {2}, false), "its field field-2 is \"w:3d\""},
        {"nofields", TableFile({}, "61", {two}, {2}, false), "it has no fields"},
        {"lines", TableFile(kTableInfo, "61", {two}, {3}, false), "a chunk holds 122 bytes for 3 entries"},
        {"cut", Cut(TableFile(kTableInfo, "61", {two}, {2}, false), 10), "data end inside a chunk"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        WriteFile(Path(c.name + ".tbl"), c.file);
        ExpectRefused({"export", Path(c.name + ".tbl"), Path("out.csv")}, "out.csv", c.phrase);
        Result info = Run({"info", Path(c.name + ".tbl")});
        EXPECT_EQ(info.status, 1);
        EXPECT_NE(info.err.find(c.phrase), std::string::npos) << info.err;
        EXPECT_NE(info.out.find("format:        info"), std::string::npos) << info.out;
    }
    // An image is no table, and a table no image.
    Layout l;
    WriteFile(Path("image"), StoredImage(l, "internal"));
    ExpectRefused({"export", Path("image"), Path("out.csv")}, "out.csv", "exports take spectra and info tables");
    WriteFile(Path("t.tbl"), TableFile(kTableInfo, "61", {two}, {2}, false));
    ExpectRefused({"export", Path("t.tbl"), Path("out.pgm")}, "out.pgm", "only internal, image-ext, pixr and pixelstream");
}

// A text field that holds bytes behind its NUL keeps its text up to it;
// the export says so.
TEST_F(Halvern, ExportNotesTextsWithBytesBehindTheirEnd) {
    TableRow row = TableRows()[0];
    Bytes entry = row.Packed();
    entry[4 + 3] = 'Z'; // tag "ab\0Z\0"
    WriteFile(Path("t.tbl"), TableFile(kTableInfo, "61", {entry}, {1}, false));
    Result r = Run({"export", Path("t.tbl"), Path("out.csv")});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.err.find("note: 1 text values"), std::string::npos) << r.err;
    Bytes csv = ReadFile(Path("out.csv"));
    EXPECT_NE(csv.find("\n1,ab,0.1,"), std::string::npos) << csv;
}

// ---------------------------------------------------------------------------
// pixr and pixel streams
// ---------------------------------------------------------------------------

// The pixel stream text of the layout's samples: one pixel a line, each
// number behind a blank.
std::string PixelText(const Layout &l, const std::vector<uint32_t> &stored) {
    std::string text;
    for (uint32_t y = 0; y < l.height; ++y)
        for (uint32_t x = 0; x < l.width; ++x) {
            for (uint32_t s = 0; s < l.parts; ++s) {
                size_t at = l.pixelInterleave ? ((size_t)y * l.width + x) * l.parts + s
                                              : ((size_t)y * l.parts + s) * l.width + x;
                text += " " + std::to_string(stored[at]);
            }
            text += "\n";
        }
    return text;
}

Bytes PixelStreamHeader(const std::string &encoding, const std::string &more = "") {
    return "[ID]\nformat: pixelstream\nversion: 1.0-ascii\n\n" + more + "[Encoding]\n" + encoding + "\n\n[End]\f\n";
}

// Starts halvern with input written down its standard input, a pipe.
Result RunWithInput(const std::string &dir, const std::vector<std::string> &args, const std::string &input) {
    int down[2];
    Result result;
    if (pipe(down) != 0)
        return result;
    std::vector<std::string> copies = args;
    std::string program = HALVERN_PATH;
    std::vector<char *> argv = {program.data()};
    for (std::string &a : copies)
        argv.push_back(a.data());
    argv.push_back(nullptr);
    std::string outPath = dir + "/.stdout", errPath = dir + "/.stderr";
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, down[0], 0);
    posix_spawn_file_actions_addclose(&actions, down[1]);
    posix_spawn_file_actions_addopen(&actions, 1, outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_addopen(&actions, 2, errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    pid_t pid = 0;
    int spawned = posix_spawn(&pid, program.c_str(), &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(down[0]);
    if (spawned == 0) {
        // Piece by piece, so that reads see pixels cut across writes.
        for (size_t at = 0; at < input.size(); at += 7) {
            std::string piece = input.substr(at, 7);
            EXPECT_EQ(write(down[1], piece.data(), piece.size()), (ssize_t)piece.size());
        }
    }
    close(down[1]);
    int status = 0;
    if (spawned == 0)
        waitpid(pid, &status, 0);
    result.status = spawned == 0 && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    result.out = ReadFile(outPath);
    result.err = ReadFile(errPath);
    return result;
}

TEST_F(Halvern, ConvertCarriesAnImageThroughPixrAndPixelStreamsAndBack) {
    for (uint32_t bits : {8u, 16u})
        for (bool big : {false, true}) {
            SCOPED_TRACE(std::to_string(bits) + (big ? " big" : " little"));
            Layout l;
            l.bits = bits;
            l.big = big;
            std::vector<uint32_t> values = SampleValues(l);
            Bytes original = StoredImage(l, "internal");
            WriteFile(Path("a"), original);
            Result r = Run({"convert", Path("a"), Path("b.pixr"), "--format", "pixr"});
            ASSERT_EQ(r.status, 0) << r.err;
            Bytes pixr = ReadFile(Path("b.pixr"));
            EXPECT_EQ(HeaderKey(pixr, "format"), "pixr");
            EXPECT_EQ(HeaderKey(pixr, "architecture"), big ? "type 1" : "type 2") << "the stored order is kept";
            EXPECT_EQ(HeaderKey(pixr, "parts"), "3 0 0");
            EXPECT_EQ(HeaderKey(pixr, "frame"), "0");
            EXPECT_EQ(StoredData(pixr, l), StoreSamples(values, bits, big)) << "pixr keeps the file's order";

            r = Run({"convert", Path("b.pixr"), Path("c.px"), "--format", "pixelstream"});
            ASSERT_EQ(r.status, 0) << r.err;
            Bytes stream = ReadFile(Path("c.px"));
            EXPECT_EQ(HeaderKey(stream, "format"), "pixelstream");
            EXPECT_EQ(HeaderKey(stream, "bits/sample"), std::to_string(bits));
            EXPECT_EQ(HeaderKey(stream, "pixels"), "5") << "the geometry travels in Raster";
            EXPECT_EQ(HeaderKey(stream, "scanlines"), "7");
            EXPECT_EQ(HeaderKey(stream, "site"), "testbench");
            EXPECT_EQ(stream.substr(DataStart(stream)), PixelText(l, values));

            // Back into the raster formats, in the other byte order, and
            // once more into a pixel stream: the same text.
            r = Run({"convert", Path("c.px"), Path("d"), "--format", "image-ext", "--byte-order", big ? "little" : "big"});
            ASSERT_EQ(r.status, 0) << r.err;
            Layout pixel = l;
            pixel.pixelInterleave = true;
            pixel.big = !big;
            Bytes ext = ReadFile(Path("d"));
            EXPECT_EQ(HeaderKey(ext, "interleave"), "pixel");
            EXPECT_EQ(HeaderKey(ext, "pixels"), "5");
            EXPECT_EQ(HeaderKey(ext, "scanlines"), "7");
            std::vector<uint32_t> interleaved;
            for (uint32_t y = 0; y < l.height; ++y)
                for (uint32_t x = 0; x < l.width; ++x)
                    for (uint32_t s = 0; s < l.parts; ++s)
                        interleaved.push_back(values[((size_t)y * l.parts + s) * l.width + x]);
            EXPECT_EQ(StoredData(ext, pixel), StoreSamples(interleaved, bits, !big));
            r = Run({"convert", Path("d"), Path("e.pixr"), "--format", "pixr"});
            ASSERT_EQ(r.status, 0) << r.err;
            r = Run({"convert", Path("e.pixr"), Path("f"), "--format", "internal", "--byte-order", big ? "big" : "little"});
            ASSERT_EQ(r.status, 0) << r.err;
            r = Run({"convert", Path("f"), Path("g.px"), "--format", "pixelstream"});
            ASSERT_EQ(r.status, 0) << r.err;
            EXPECT_EQ(ReadFile(Path("g.px")), stream);
            // And the pixr of the first step back to internal: the original bytes.
            r = Run({"convert", Path("b.pixr"), Path("h"), "--format", "internal"});
            ASSERT_EQ(r.status, 0) << r.err;
            EXPECT_EQ(ReadFile(Path("h")), original);

            // Exported, the pixel stream and the image it came from are one picture.
            r = Run({"export", Path("c.px"), Path("from-stream.ppm")});
            ASSERT_EQ(r.status, 0) << r.err;
            r = Run({"export", Path("a"), Path("from-image.ppm")});
            ASSERT_EQ(r.status, 0) << r.err;
            EXPECT_EQ(ReadFile(Path("from-stream.ppm")), ReadFile(Path("from-image.ppm")));

            r = Run({"info", Path("c.px")});
            ASSERT_EQ(r.status, 0) << r.err;
            EXPECT_NE(r.out.find("size:          5 pixels x 7 scanlines"), std::string::npos) << r.out;
            EXPECT_NE(r.out.find("read from:     the file"), std::string::npos) << r.out;
            r = Run({"info", Path("b.pixr")});
            ASSERT_EQ(r.status, 0) << r.err;
            EXPECT_NE(r.out.find("frame:         0"), std::string::npos) << r.out;
            EXPECT_NE(r.out.find("format:        pixr"), std::string::npos) << r.out;
        }
    ExpectRefused({"convert", Path("a"), Path("x"), "--format", "pixelstream", "--byte-order", "big"}, "x",
                  "no byte order");
}

TEST_F(Halvern, RunFeedsStandardInputThroughAFunction) {
    Bytes header = PixelStreamHeader("useStdin: true\nimageParts: 3 0 0\nbits/sample: 8",
                                     "[Raster]\npixels: 2\n\n");
    WriteFile(Path("hdr"), header);
    Result r = RunWithInput(dir_, {"run", "invert", Path("hdr"), Path("out")}, "1 2 3\n4 5 6\n250 0 7 8 9 10");
    ASSERT_EQ(r.status, 0) << r.err;
    Bytes out = ReadFile(Path("out"));
    EXPECT_EQ(HeaderKey(out, "format"), "pixelstream");
    EXPECT_EQ(HeaderKey(out, "useStdin"), "") << "the output holds its own pixels";
    EXPECT_EQ(HeaderKey(out, "pixels"), "2");
    EXPECT_EQ(out.substr(DataStart(out)), " 254 253 252\n 251 250 249\n 5 255 248\n 247 246 245\n");

    // A shell pipeline, as a user types it.
    std::string command = "printf '10 20 30\\n40 50 60\\n' | '" + std::string(HALVERN_PATH) + "' run invert '" +
                          Path("hdr") + "' '" + Path("piped") + "'";
    ASSERT_EQ(std::system(command.c_str()), 0);
    Bytes piped = ReadFile(Path("piped"));
    EXPECT_EQ(piped.substr(DataStart(piped)), " 245 235 225\n 215 205 195\n");

    // Without the switch the text behind the header is read, and standard
    // input is left alone.
    WriteFile(Path("file"), PixelStreamHeader("imageParts: 1 0 0\nbits/sample: 16") + "1\n65535\n0\n");
    r = RunWithInput(dir_, {"run", "invert", Path("file"), Path("out2")}, "7 7 7");
    ASSERT_EQ(r.status, 0) << r.err;
    Bytes out2 = ReadFile(Path("out2"));
    EXPECT_EQ(out2.substr(DataStart(out2)), " 65534\n 0\n 65535\n");

    // Input that stops inside a pixel, or inside a scanline of the Raster
    // width, is refused and leaves no output.
    r = RunWithInput(dir_, {"run", "invert", Path("hdr"), Path("cut")}, "1 2 3 4 5");
    EXPECT_NE(r.status, 0);
    EXPECT_NE(r.err.find("middle of a pixel"), std::string::npos) << r.err;
    EXPECT_FALSE(Exists(Path("cut")));
    r = RunWithInput(dir_, {"run", "invert", Path("hdr"), Path("cut")}, "1 2 3 4 5 6 7 8 9");
    EXPECT_NE(r.status, 0);
    EXPECT_NE(r.err.find("middle of a scanline"), std::string::npos) << r.err;
    EXPECT_FALSE(Exists(Path("cut")));
}

TEST_F(Halvern, RefusesHostilePixelStreamsAndPixrImages) {
    struct Case {
        std::string name;
        Bytes file;
        std::string phrase;
    } cases[] = {
        {"no parts", PixelStreamHeader("imageParts: 0 0 0\nbits/sample: 8") + "1 2 3\n", "separations"},
        {"12 bits", PixelStreamHeader("imageParts: 1 0 0\nbits/sample: 12") + "1 2 3\n", "12 bits per sample"},
        {"64 bits", PixelStreamHeader("imageParts: 1 0 0\nbits/sample: 64") + "1 2\n", "64 bits per sample"},
        {"huge parts", PixelStreamHeader("imageParts: 100000000 0 0\nbits/sample: 8") + "1\n", "separations"},
        {"huge width", PixelStreamHeader("imageParts: 3 0 0\nbits/sample: 8", "[Raster]\npixels: 2000000000\n\n"),
         "scanlines have no bytes"},
        {"not a number", PixelStreamHeader("imageParts: 2 0 0\nbits/sample: 8") + "1 2 x 4\n", "no number"},
        {"pixr chunk longer than the file",
         "[ID]\nformat: pixr\nversion: 1.0\narchitecture: type 2\n\n[Raster]\npixels: 2\nscanlines: 1\n\n"
         "[Encoding]\nparts: 1 0 0\nbytes/sl: 2\nbits/sample: 8\ninterleave: scanline\n\n[End]\f\n" +
             ExtRecord(0x7FFFFFF0, 1, 0, 0, false) + "ab",
         "damaged"},
        {"pixr with no pixels",
         "[ID]\nformat: pixr\nversion: 1.0\narchitecture: type 2\n\n[Raster]\npixels: 0\n\n"
         "[Encoding]\nparts: 1 0 0\nbits/sample: 8\n\n[End]\f\n",
         "width is 0"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        WriteFile(Path("bad"), c.file);
        ExpectRefused({"run", "copy", Path("bad"), Path("out")}, "out", c.phrase);
        ExpectRefused({"convert", Path("bad"), Path("out"), "--format", "internal"}, "out", "");
    }
}

} // namespace
