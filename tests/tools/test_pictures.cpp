// halvern import and export against an independent reader and writer of
// pictures: Pillow (tests/tools/pil_pictures.py) writes a picture of
// samples made here, halvern imports it, the stored samples are checked
// byte by byte, halvern exports it again and Pillow reads the export back.
// TIFF layouts Pillow doesn't write (tiles, separate planes, 16-bit RGB)
// are written here byte by byte.
#include <zlib.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "tools/halvern_fixture.h"

namespace {

using namespace halvern_test;

// Samples that differ from pixel to pixel and from sample to sample.
Bytes Pattern(size_t count, uint32_t seed) {
    Bytes bytes(count, '\0');
    for (size_t i = 0; i < count; ++i)
        bytes[i] = (char)((i * 131 + seed * 17 + i / 7 * 29) & 0xFF);
    return bytes;
}

class Pictures : public Halvern {
  protected:
    // Pillow saves samples (its layout of mode) as out.
    void PilWrite(const Bytes &samples, const std::string &mode, uint32_t width, uint32_t height,
                  const std::string &out, const std::vector<std::string> &options = {}) {
        WriteFile(Path("pil.raw"), samples);
        Args args = {kPilScript, "write", Path("pil.raw"), mode, std::to_string(width),
                                         std::to_string(height), Path(out)};
        args.insert(args.end(), options.begin(), options.end());
        Result r = Run(args, HALV_TEST_PYTHON);
        ASSERT_EQ(r.status, 0) << r.err;
        unlink(Path("pil.raw").c_str());
    }

    void ExpectImported(const std::string &picture, const std::string &stored, const Bytes &samples,
                        const std::vector<std::string> &options = {}) {
        std::vector<std::string> args = {"import", Path(picture), Path(stored)};
        args.insert(args.end(), options.begin(), options.end());
        Result r = Run(args);
        ASSERT_EQ(r.status, 0) << r.err;
        EXPECT_EQ(Behind(ReadFile(Path(stored))), samples);
    }
};

// Pillow's modes and what halvern stores of them: separations and depth.
struct Mode {
    std::string pil;
    uint32_t samples, bytes;
    std::string parts, bits;
};

const Mode kModes[] = {
    {"L", 1, 1, "1 0 0", "8"},       {"LA", 2, 1, "1 1 0", "8 8"},        {"RGB", 3, 1, "3 0 0", "8 8 8"},
    {"RGBA", 4, 1, "3 1 0", "8 8 8 8"}, {"I;16", 1, 2, "1 0 0", "16"},
};

TEST_F(Pictures, PngAndTiffRoundTripEverySampleThroughPillow) {
    const uint32_t width = 37, height = 23; // odd sizes: no row is a power of two
    for (const std::string options : {"png", "tif", "tif compression=tiff_lzw",
                                      "tif compression=tiff_adobe_deflate", "tif compression=packbits"})
        for (const Mode &m : kModes) {
            Args words = Line(options);
            const std::string extension = words[0];
            if (extension == "tif" && m.pil == "LA")
                continue; // Pillow writes no grey and alpha TIFF
            SCOPED_TRACE(options + " " + m.pil);
            Bytes samples = Pattern((size_t)width * height * m.samples * m.bytes, m.samples);
            PilWrite(samples, m.pil, width, height, "in." + extension, {words.begin() + 1, words.end()});
            // 16-bit samples are stored in this machine's order, as Pillow's I;16.
            ExpectImported("in." + extension, "in.hv", samples);
            EXPECT_EQ(HeaderKeys(ReadFile(Path("in.hv")), {"imageParts", "interleave", "name"}),
                      m.parts + " | pixel | " + (m.samples >= 3 ? "sRGB" : "sLum"));
            Result r = Run({"export", Path("in.hv"), Path("out." + extension)});
            ASSERT_EQ(r.status, 0) << r.err;
            Pil back = PilRead("out." + extension);
            EXPECT_EQ(back.width, width);
            EXPECT_EQ(back.height, height);
            EXPECT_EQ(back.mode, m.pil);
            EXPECT_TRUE(back.samples == samples) << "the export's samples differ";
        }
}

TEST_F(Pictures, AlphaIsAMaskSeparationOrDropped) {
    const uint32_t width = 9, height = 4;
    Bytes rgba = Pattern(width * height * 4, 3), rgb;
    for (size_t i = 0; i < rgba.size(); ++i)
        if (i % 4 != 3)
            rgb += rgba[i];
    PilWrite(rgba, "RGBA", width, height, "in.png");
    ExpectImported("in.png", "rgb.hv", rgb, {"--drop-alpha"});
    EXPECT_EQ(HeaderKey(ReadFile(Path("rgb.hv")), "imageParts"), "3 0 0");
    // The image with its alpha goes to PNG and TIFF with it, not to JPEG or PPM.
    ExpectImported("in.png", "rgba.hv", rgba);
    ExpectRefused({"export", Path("rgba.hv"), Path("out.jpg")}, "JPEG holds no alpha");
    ExpectRefused({"export", Path("rgba.hv"), Path("out.ppm")}, "4 separations");
    ASSERT_EQ(Run({"export", Path("rgb.hv"), Path("out.ppm")}).status, 0);
    EXPECT_EQ(ReadFile(Path("out.ppm")), "P6\n9 4\n255\n" + rgb);
}

TEST_F(Pictures, JpegKeepsItsSamplesWithinItsQuality) {
    const uint32_t width = 64, height = 48;
    for (const std::string mode : {"L", "RGB"}) {
        SCOPED_TRACE(mode);
        uint32_t samples = mode == "L" ? 1 : 3;
        // Smooth ramps, which JPEG keeps well.
        Bytes picture;
        for (uint32_t y = 0; y < height; ++y)
            for (uint32_t x = 0; x < width; ++x)
                for (uint32_t s = 0; s < samples; ++s)
                    picture += (char)(x * 2 + y + s * 30);
        PilWrite(picture, mode, width, height, "in.jpg", {"quality=95"});
        // The import decodes as Pillow's libjpeg decodes.
        Pil decoded = PilRead("in.jpg");
        ASSERT_EQ(Run({"import", Path("in.jpg"), Path("in.hv")}).status, 0);
        Bytes stored = Behind(ReadFile(Path("in.hv")));
        ASSERT_EQ(stored.size(), decoded.samples.size());
        int worstDecode = 0;
        for (size_t i = 0; i < stored.size(); ++i)
            worstDecode = std::max(worstDecode, std::abs((uint8_t)stored[i] - (uint8_t)decoded.samples[i]));
        EXPECT_LE(worstDecode, 1);
        // The export at quality 95 stays near the samples; quality 10 is smaller.
        for (const char *quality : {"95", "10"}) {
            std::string name = std::string("q") + quality + ".jpg";
            Result r = Run({"export", Path("in.hv"), Path(name), "--quality", quality});
            ASSERT_EQ(r.status, 0) << r.err;
        }
        Pil back = PilRead("q95.jpg");
        ASSERT_EQ(back.mode, mode);
        ASSERT_EQ(back.samples.size(), picture.size());
        double total = 0;
        for (size_t i = 0; i < picture.size(); ++i)
            total += std::abs((uint8_t)back.samples[i] - (uint8_t)picture[i]);
        EXPECT_LT(total / (double)picture.size(), 3.0);
        EXPECT_LT(ReadFile(Path("q10.jpg")).size(), ReadFile(Path("q95.jpg")).size());
    }
    // JPEG holds 8 bits; --quality belongs to JPEG and runs from 1 to 100.
    WriteFile(Path("g16.pgm"), "P5\n2 1\n65535\n" + Pattern(4, 1));
    ASSERT_EQ(Run({"import", Path("g16.pgm"), Path("g16.hv")}).status, 0);
    ExpectRefused({"export", Path("g16.hv"), Path("out.jpg")}, "JPEG holds 8-bit samples");
    ExpectRefused({"export", Path("g16.hv"), Path("out.png"), "--quality", "50"}, "--quality is for .jpg");
    ExpectRefused({"export", Path("g16.hv"), Path("out.jpg"), "--quality", "101"}, "1 to 100");
}

std::vector<uint32_t> Words(size_t count, uint32_t seed, uint32_t mask = 0xFFFF) {
    std::vector<uint32_t> values;
    for (size_t i = 0; i < count; ++i)
        values.push_back((i * 4099 + seed * 257 + 13) & mask);
    return values;
}

TEST_F(Pictures, NetpbmPlainAndBinaryOfBothDepths) {
    const uint32_t width = 6, height = 5;
    for (uint32_t samples : {1u, 3u})
        for (bool wide : {false, true}) {
            SCOPED_TRACE(std::to_string(samples) + (wide ? " 16-bit" : " 8-bit"));
            std::vector<uint32_t> values = Words(width * height * samples, samples, wide ? 0xFFFF : 0xFF);
            std::string head = "\n# made by the test\n" + std::to_string(width) + " " +
                               std::to_string(height) + "\n" + (wide ? "65535" : "255") + "\n";
            std::string plainText;
            for (uint32_t v : values)
                plainText += std::to_string(v) + (plainText.size() % 60 > 50 ? "\n" : " ");
            Bytes binary = StoreSamples(values, wide ? 16 : 8, true),
                  stored = StoreSamples(values, wide ? 16 : 8, false);
            WriteFile(Path("plain.pnm"), (samples == 1 ? "P2" : "P3") + head + plainText);
            std::string magic = samples == 1 ? "5" : "6";
            WriteFile(Path("binary.pnm"), "P" + magic + head + binary);
            ExpectImported("plain.pnm", "plain.hv", stored);
            ExpectImported("binary.pnm", "binary.hv", stored);
            // Out again as binary netpbm, exactly; as PNG and TIFF, which
            // Pillow reads (16-bit colour only as its top 8 bits).
            std::string extension = samples == 1 ? ".pgm" : ".ppm";
            const Bytes netpbm = "P" + magic + "\n6 5\n" + (wide ? "65535" : "255") + "\n" + binary;
            ASSERT_EQ(Run(Line("export @plain.hv @out" + extension)).status, 0);
            EXPECT_EQ(ReadFile(Path("out" + extension)), netpbm);
            // Stored as image-ext in either order: the same words come out.
            for (const std::string order : {"big", "little"}) {
                Result r = Run(Line("import @binary.pnm @ext.hv --format image-ext --byte-order " + order));
                ASSERT_EQ(r.status, 0) << r.err;
                EXPECT_EQ(HeaderKeys(ReadFile(Path("ext.hv")), {"format", "architecture"}),
                          std::string("image-ext | type ") + (order == "big" ? "1" : "2"));
                ASSERT_EQ(Run(Line("export @ext.hv @ext" + extension)).status, 0);
                EXPECT_EQ(ReadFile(Path("ext" + extension)), netpbm) << order;
            }
            std::vector<uint32_t> top;
            for (uint32_t v : values)
                top.push_back(v >> 8);
            const Bytes pillowSees = wide && samples == 3 ? StoreSamples(top, 8, false) : stored;
            for (const std::string picture : {"out.png", "out.tif"}) {
                Result r = Run(Line("export @binary.hv @" + picture));
                ASSERT_EQ(r.status, 0) << r.err;
                ExpectImported(picture, "back.hv", stored); // halvern reads its own export
                EXPECT_TRUE(PilRead(picture).samples == pillowSees) << picture;
            }
        }
    // A maxval below 255 keeps the samples as they are, and says so.
    WriteFile(Path("low.pgm"), "P5 2 1 15 \x03\x0f");
    Result r = Run({"import", Path("low.pgm"), Path("low.hv")});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.err.find("maxval 15"), std::string::npos) << r.err;
    EXPECT_EQ(Behind(ReadFile(Path("low.hv"))), "\x03\x0f");
    ExpectRefused({"import", Path("low.pgm"), Path("x.hv"), "--format", "spectral"}, "internal or image-ext");
}

// TIFFs written byte by byte: strips or tiles, contiguous or separate
// planes, either byte order.
struct TiffLayout {
    uint32_t width = 21, height = 11, samples = 3, bits = 8;
    bool big = false, tiled = false, separate = false, alpha = false;
    uint32_t tile = 16, rowsPerStrip = 4;
    uint16_t photometric = 2;
};

// values: the pixel-interleaved samples, row after row.
Bytes HandTiff(const TiffLayout &l, const std::vector<uint32_t> &values) {
    auto word16 = [&](uint32_t v) {
        return l.big ? Bytes{(char)(v >> 8), (char)v} : Bytes{(char)v, (char)(v >> 8)};
    };
    // The directory's offset comes in last, in place of the zero.
    Bytes t = (l.big ? Bytes("MM\0*", 4) : Bytes("II*\0", 4)) + Word32(0, l.big);
    uint32_t planes = l.separate ? l.samples : 1, perPlane = l.separate ? 1 : l.samples;
    uint32_t pieceWidth = l.tiled ? l.tile : l.width, pieceRows = l.tiled ? l.tile : l.rowsPerStrip;
    uint32_t across = (l.width + pieceWidth - 1) / pieceWidth, down = (l.height + pieceRows - 1) / pieceRows;
    std::vector<uint32_t> offsets, counts;
    for (uint32_t p = 0; p < planes; ++p)
        for (uint32_t ty = 0; ty < down; ++ty)
            for (uint32_t tx = 0; tx < across; ++tx) {
                offsets.push_back((uint32_t)t.size());
                uint32_t rows = l.tiled ? pieceRows : std::min(pieceRows, l.height - ty * pieceRows);
                for (uint32_t y = ty * pieceRows; y < ty * pieceRows + rows; ++y)
                    for (uint32_t x = tx * pieceWidth; x < tx * pieceWidth + pieceWidth; ++x)
                        for (uint32_t s = 0; s < perPlane; ++s) {
                            bool inside = x < l.width && y < l.height; // tiles run past the edge
                            uint32_t v =
                                inside ? values[((size_t)y * l.width + x) * l.samples + p + s] : 0xABCD;
                            t += l.bits == 8 ? Bytes(1, (char)v) : word16(v);
                        }
                counts.push_back((uint32_t)t.size() - offsets.back());
            }
    auto array32 = [&](const std::vector<uint32_t> &a) {
        uint32_t at = (uint32_t)t.size();
        for (uint32_t v : a)
            t += Word32(v, l.big);
        return a.size() == 1 ? a[0] : at;
    };
    uint32_t offsetsAt = array32(offsets), countsAt = array32(counts), bitsAt = (uint32_t)t.size();
    for (uint32_t s = 0; s < l.samples; ++s)
        t += word16(l.bits);
    struct Entry {
        uint16_t tag, type;
        uint32_t count, value;
    };
    const uint32_t pieces = (uint32_t)offsets.size();
    std::vector<Entry> entries = {{256, 4, 1, l.width}, {257, 4, 1, l.height}};
    entries.push_back(l.samples <= 2 ? Entry{258, 3, l.samples, l.bits | (l.samples == 2 ? l.bits << 16 : 0)}
                                     : Entry{258, 3, l.samples, bitsAt});
    entries.insert(entries.end(), {{259, 3, 1, 1}, {262, 3, 1, l.photometric}});
    if (!l.tiled)
        entries.push_back({273, 4, pieces, offsetsAt});
    entries.push_back({277, 3, 1, l.samples});
    if (!l.tiled)
        entries.insert(entries.end(), {{278, 4, 1, l.rowsPerStrip}, {279, 4, pieces, countsAt}});
    entries.push_back({284, 3, 1, l.separate ? 2u : 1u});
    if (l.tiled)
        entries.insert(entries.end(), {{322, 4, 1, l.tile}, {323, 4, 1, l.tile}, {324, 4, pieces, offsetsAt},
                                       {325, 4, pieces, countsAt}});
    if (l.alpha)
        entries.push_back({338, 3, 1, 2});
    if (t.size() % 2)
        t += '\0';
    t.replace(4, 4, Word32((uint32_t)t.size(), l.big));
    t += word16((uint32_t)entries.size());
    for (const Entry &e : entries) // shorts stand left-justified in the value
        t += word16(e.tag) + word16(e.type) + Word32(e.count, l.big) +
             (e.type == 3 && e.count <= 2 ? word16(e.value & 0xFFFF) + word16(e.value >> 16)
                                          : Word32(e.value, l.big));
    return t + Word32(0, l.big);
}

TEST_F(Pictures, TiffOfStripsTilesPlanesAndByteOrders) {
    for (bool tiled : {false, true})
        for (bool separate : {false, true})
            for (bool big : {false, true})
                for (uint32_t bits : {8u, 16u})
                    for (uint32_t samples : {1u, 3u, 4u}) {
                        if (samples == 1 && separate)
                            continue;
                        TiffLayout l{.samples = samples, .bits = bits, .big = big, .tiled = tiled,
                                     .separate = separate, .alpha = samples == 4,
                                     .photometric = (uint16_t)(samples == 1 ? 1 : 2)};
                        SCOPED_TRACE(std::string(tiled ? "tiled" : "stripped") +
                                     (separate ? " separate" : "") + (big ? " big" : " little") + " " +
                                     std::to_string(bits) + "-bit, " + std::to_string(samples) + " samples");
                        std::vector<uint32_t> values = Words((size_t)l.width * l.height * samples,
                                                             bits + samples, bits == 8 ? 0xFF : 0xFFFF);
                        WriteFile(Path("in.tif"), HandTiff(l, values));
                        ExpectImported("in.tif", "in.hv", StoreSamples(values, bits, false));
                        EXPECT_EQ(HeaderKey(ReadFile(Path("in.hv")), "imageParts"),
                                  samples == 4 ? "3 1 0" : samples == 3 ? "3 0 0" : "1 0 0");
                    }
    // White as zero is turned into black as zero; Lab, and more pages than
    // one, are refused by name.
    TiffLayout l{.samples = 1, .photometric = 0};
    std::vector<uint32_t> values = Words(l.width * l.height, 5, 0xFF), inverted;
    for (uint32_t v : values)
        inverted.push_back(255 - v);
    WriteFile(Path("white.tif"), HandTiff(l, values));
    ExpectImported("white.tif", "white.hv", StoreSamples(inverted, 8, false));
    l.samples = 3, l.photometric = 8;
    WriteFile(Path("lab.tif"), HandTiff(l, Words(l.width * l.height * 3, 5, 0xFF)));
    ExpectRefused(Line("import @lab.tif @out.hv"), "photometric interpretation 8");
    PilWrite(Pattern(8 * 8 * 3, 1), "RGB", 8, 8, "pages.tif", {"pages=3"});
    ASSERT_EQ(PilRead("pages.tif").pages, 3u);
    ExpectRefused({"import", Path("pages.tif"), Path("out.hv")}, "a TIFF of 3 pages");
}

Bytes PngChunk(const std::string &type, const Bytes &data) {
    uint32_t crc = (uint32_t)crc32(0, reinterpret_cast<const Bytef *>(type.data()), 4);
    crc = (uint32_t)crc32(crc, reinterpret_cast<const Bytef *>(data.data()), (uInt)data.size());
    return Word32((uint32_t)data.size(), true) + type + data + Word32(crc, true);
}

TEST_F(Pictures, DamagedAndHostilePicturesAreRefusedWithNothingLeft) {
    const uint32_t width = 120, height = 90;
    Bytes rgb = Pattern(width * height * 3, 9);
    PilWrite(rgb, "RGB", width, height, "whole.png");
    PilWrite(rgb, "RGB", width, height, "whole.jpg");
    PilWrite(rgb, "RGB", width, height, "whole.tif");
    PilWrite(rgb, "RGB", width, height, "progressive.jpg", {"progressive=1"});
    struct Cut {
        std::string source, phrase;
    };
    for (const Cut &c : {Cut{"whole.png", "damaged PNG: it is cut short"},
                         Cut{"whole.jpg", "damaged JPEG: Premature end of JPEG file"},
                         Cut{"progressive.jpg", "damaged JPEG"}, Cut{"whole.tif", "damaged TIFF"}}) {
        SCOPED_TRACE(c.source);
        Bytes whole = ReadFile(Path(c.source));
        WriteFile(Path("cut"), whole.substr(0, whole.size() * 2 / 3));
        ExpectRefused({"import", Path("cut"), Path("out.hv")}, c.phrase);
    }
    // PNGs whose header promises 2^31 - 1 by 2^31 - 1 pixels, or whose data
    // stop after the header; netpbm headers that lie or overflow.
    auto png = [](uint32_t size, const char *form) {
        const Bytes data = PngChunk("IDAT", Bytes("\x78\x9c\x63\x60", 4));
        return "\x89PNG\r\n\x1a\n" +
               PngChunk("IHDR", Word32(size, true) + Word32(size, true) + Bytes(form, 5)) + data +
               PngChunk("IEND", "");
    };
    const struct {
        std::string name;
        Bytes file;
        std::string phrase;
    } cases[] = {
        {"huge.png", png(0x7FFFFFFF, "\x08\x02\x00\x00\x00"), "is 2147483647 pixels wide"},
        {"empty.png", png(4000, "\x08\x00\x00\x00\x00"), "damaged PNG"},
        {"tall.pgm", "P5\n100000 100000\n255\nabc", "cut short: it ends after 0 of its 100000 rows"},
        {"wide.ppm", "P6\n4000000000 2\n255\n", "4000000000 pixels wide"},
        {"long.pgm", "P2\n2 1\n255\n7 99999999999999999999\n", "above its maxval 255"},
        {"zero.pgm", "P5\n0 3\n255\n", "no pixels"},
        {"text.png", "hello\n", "not a picture this host reads"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        WriteFile(Path(c.name), c.file);
        ExpectRefused(Line("import @" + c.name + " @out.hv"), c.phrase);
    }
    ExpectRefused(Line("import @nothing.png @out.hv"), "can't read");
    // An export that its kind refuses leaves nothing either.
    WriteFile(Path("one.pgm"), "P5\n1 1\n255\n\x07");
    ASSERT_EQ(Run(Line("import @one.pgm @one.hv")).status, 0);
    ExpectRefused(Line("export @one.hv @out.ppm"), "1 separations; .ppm takes three");
    ExpectRefused(Line("export @one.hv @out.gif"), ".png, .tif, .jpg, .pgm or .ppm");
}

TEST_F(Pictures, DemoShowsItsResultsAndWritesEachAsAPng) {
    env_ = {"TMPDIR=" + dir_};
    Result r = Run({"demo", "--keep"});
    ASSERT_EQ(r.status, 0) << r.err;
    size_t at = r.out.find("The files are in ");
    ASSERT_NE(at, std::string::npos) << r.out;
    std::string demoDir = r.out.substr(at + 17, r.out.find('.', at + 17 + dir_.size()) - at - 17);
    for (const char *line :
         {"invert     255 238 221 204 187 170 153 136 119 102  85  68  51  34  17   0\n",
          "threshold    0   0   0   0   0   0   0   0 255 255", "31 samples from 400 to 700 nm",
          "    nm    blue     red   green    grey\n", "   400  0.1758  0.0500  0.0501  0.1800\n",
          "   700  0.0500  0.8490  0.0500  0.1800\n", "Plotted all four to", "invert.png"})
        EXPECT_NE(r.out.find(line), std::string::npos) << line << r.out;
    std::string relative = demoDir.substr(dir_.size() + 1) + "/invert.png";
    Pil invert = PilRead(relative);
    ASSERT_EQ(invert.width, 16u);
    ASSERT_EQ(invert.height, 4u);
    // The sample's first row rises by 17; inverted it falls from 255.
    for (uint32_t x = 0; x < 16; ++x)
        EXPECT_EQ((uint8_t)invert.samples[x], 255 - x * 17);
}

} // namespace
