// The halvern command run as a user runs it: the built binary, spawned on
// real files in a fresh temporary directory, its exit status, standard
// error and output files checked.  Input images are written byte by byte
// here, and expected outputs computed here.
#include <sys/resource.h>

#include <chrono>
#include <cmath>
#include <functional>

#include "streams/peer.h"
#include "tools/halvern_fixture.h"

namespace {

using namespace halvern_test;

// What the sample functions do to one sample s of maximum m.
struct Function {
    std::string name;
    Args args;
    std::function<uint32_t(uint32_t, uint32_t)> apply;
};

std::vector<Function> Functions(uint32_t bits) {
    uint32_t level = bits == 16 ? 30000 : 100;
    return {
        {"copy", {}, [](uint32_t s, uint32_t) { return s; }},
        {"invert", {}, [](uint32_t s, uint32_t m) { return m - s; }},
        {"gain", {"factor=1.5"}, [](uint32_t s, uint32_t m) { return std::min(m, uint32_t(s * 1.5 + .5)); }},
        {"threshold", {"level=" + std::to_string(level)},
         [level](uint32_t s, uint32_t m) { return s >= level ? m : 0u; }},
    };
}

TEST_F(Halvern, RunsAndExportsEveryDepthFormatAndByteOrder) {
    for (uint32_t bits : {8u, 16u})
        for (std::string format : {"internal", "image-ext"})
            for (bool big : {false, true})
                for (bool pixel : {false, true}) {
                    Layout l{.bits = bits, .pixelInterleave = pixel, .big = big};
                    WriteFile(Path("in"), StoredImage(l, format));
                    // Exported as netpbm: pixel after pixel, samples adjacent, big-endian words.
                    std::vector<uint32_t> stored = SampleValues(l), pixels;
                    for (uint32_t y = 0; y < l.height; ++y)
                        for (uint32_t x = 0; x < l.width; ++x)
                            for (uint32_t s = 0; s < l.parts; ++s)
                                pixels.push_back(stored[(y * l.parts + (pixel ? 0 : s)) * l.width +
                                                        (pixel ? x * l.parts + s : x)]);
                    ASSERT_EQ(Run(Line("export @in @in.ppm")).status, 0);
                    EXPECT_EQ(ReadFile(Path("in.ppm")), "P6\n5 7\n" + std::to_string(l.MaxValue()) + "\n" +
                                                            StoreSamples(pixels, bits, true));
                    for (const Function &f : Functions(bits)) {
                        SCOPED_TRACE(f.name + " " + std::to_string(bits) + "-bit " + format +
                                     (big ? " big" : " little") + (pixel ? " pixel" : " scanline"));
                        Args args = {"run", f.name, Path("in"), Path("out")};
                        args.insert(args.end(), f.args.begin(), f.args.end());
                        Result r = Run(args);
                        ASSERT_EQ(r.status, 0) << r.err;
                        EXPECT_EQ(r.err, "");
                        // Loaded data are turned to this machine's order, and the
                        // header says so; the rest of the tree survives.
                        Bytes out = ReadFile(Path("out"));
                        EXPECT_EQ(HeaderKeys(out, {"format", "architecture", "pixels", "scanlines", "site"}),
                                  format + " | type 2 | 5 | 7 | testbench");
                        std::vector<uint32_t> expected = SampleValues(l), aux;
                        for (uint32_t &v : expected)
                            v = f.apply(v, l.MaxValue());
                        EXPECT_EQ(StoredData(out, l, &aux), StoreSamples(expected, bits, false));
                        EXPECT_EQ(aux, (format == "internal" ? std::vector<uint32_t>{}
                                                             : std::vector<uint32_t>{7, 8}));
                        // From flat arguments and a header block alone, the same bytes.
                        args.insert(args.begin() + 1, "--binary");
                        args[4] = Path("out-binary");
                        Result binary = Run(args);
                        ASSERT_EQ(binary.status, 0) << binary.err;
                        EXPECT_EQ(ReadFile(Path("out-binary")), out);
                        unlink(Path("out").c_str()), unlink(Path("out-binary").c_str());
                    }
                }
}

TEST_F(Halvern, InfoShowsTheHeaderOfAnImageAndOfItsBlock) {
    WriteFile(Path("in"), StoredImage(Layout{.bits = 16, .big = true}, "image-ext"));
    Result r = Run(Line("info @in"));
    ASSERT_EQ(r.status, 0) << r.err;
    const char *common[] = {"size:          5 pixels x 7 scanlines", "separations:   3", "[Origin]",
                            "bit depth:     16 16 16", "colour space:  rgbLinear", "interleave:    scanline",
                            "compression:   none", "site: testbench"};
    for (const char *line : common)
        EXPECT_NE(r.out.find(line), std::string::npos) << line << "\n" << r.out;
    for (const char *line :
         {"format:        image-ext", "version:       1.0", "byte order:    big-endian (type 1)"})
        EXPECT_NE(r.out.find(line), std::string::npos) << line << "\n" << r.out;

    // The header as a flat block, in either word order, shows the same.
    for (std::string order : {"little", "big"}) {
        SCOPED_TRACE(order);
        Result pack = Run(Line("pack @in @in.bh --byte-order " + order));
        ASSERT_EQ(pack.status, 0) << pack.err;
        Result info = Run(Line("info @in.bh"));
        ASSERT_EQ(info.status, 0) << info.err;
        for (std::string line : common)
            EXPECT_NE(info.out.find(line), std::string::npos) << line << "\n" << info.out;
        for (std::string line : {std::string("format:        image-ext (manager type 11)"),
                                 "form:          flat header block, its words " + order + "-endian"})
            EXPECT_NE(info.out.find(line), std::string::npos) << line << "\n" << info.out;
    }
    WriteFile(Path("cut.bh"), ReadFile(Path("in.bh")).substr(0, 600));
    ExpectRefused(Line("info @cut.bh"), "damaged header block");
}

// The stored bytes of every format and order are the format tests' matter;
// here the options reach the files and nothing of the image or its tree is
// lost on the way.
TEST_F(Halvern, ConvertCarriesAnImageThroughEveryFormatAndByteOrder) {
    for (uint32_t bits : {8u, 16u})
        for (bool big : {false, true}) {
            SCOPED_TRACE(std::to_string(bits) + (big ? " big" : " little"));
            Layout l{.bits = bits, .big = big};
            const std::string order = big ? "big" : "little", other = big ? "little" : "big";
            const std::string type = big ? "type 1" : "type 2", otherType = big ? "type 2" : "type 1";
            Bytes original = StoredImage(l, "internal");
            WriteFile(Path("a"), original);
            auto convert = [&](const std::string &line) { // the output's bytes
                Result r = Run(Line("convert " + line));
                EXPECT_EQ(r.status, 0) << line << ": " << r.err;
                return ReadFile(Line(line)[1]);
            };
            // Through image-ext in this machine's order and back into the stored one.
            Bytes b = convert("@a @b --format image-ext --byte-order little");
            EXPECT_EQ(HeaderKeys(b, {"format", "architecture"}), "image-ext | type 2");
            EXPECT_EQ(StoredData(b, l), StoreSamples(SampleValues(l), bits, false));
            Bytes c = convert("@b @c --format internal --byte-order " + order);
            EXPECT_EQ(HeaderKeys(c, {"architecture", "site"}), type + " | testbench");
            EXPECT_EQ(Behind(c), Behind(original));
            // Once in the library's own spelling, a round trip gives the same bytes.
            convert("@c @d --format image-ext --byte-order " + order);
            EXPECT_EQ(convert("@d @e --format internal"), c);

            // pixr keeps the file's order; a pixel stream carries the geometry
            // in Raster; through the raster formats in the other order and
            // back, the same stream.
            Bytes pixr = convert("@a @b.pixr --format pixr");
            EXPECT_EQ(HeaderKeys(pixr, {"format", "architecture", "parts", "frame"}),
                      "pixr | " + type + " | 3 0 0 | 0");
            Bytes stream = convert("@b.pixr @c.px --format pixelstream");
            EXPECT_EQ(HeaderKeys(stream, {"format", "bits/sample", "pixels", "scanlines", "site"}),
                      "pixelstream | " + std::to_string(bits) + " | 5 | 7 | testbench");
            EXPECT_EQ(HeaderKeys(convert("@c.px @d --format image-ext --byte-order " + other),
                                 {"interleave", "architecture", "pixels", "scanlines"}),
                      "pixel | " + otherType + " | 5 | 7");
            convert("@d @e.pixr --format pixr");
            convert("@e.pixr @f --format internal --byte-order " + order);
            EXPECT_EQ(convert("@f @g.px --format pixelstream"), stream);
            EXPECT_EQ(convert("@b.pixr @h --format internal"), original);

            // Exported, the pixel stream and the image it came from are one picture.
            ASSERT_EQ(Run(Line("export @c.px @from-stream.ppm")).status, 0);
            ASSERT_EQ(Run(Line("export @a @from-image.ppm")).status, 0);
            EXPECT_EQ(ReadFile(Path("from-stream.ppm")), ReadFile(Path("from-image.ppm")));
            for (auto [name, line] : {std::pair{"@c.px", "size:          5 pixels x 7 scanlines"},
                                      {"@c.px", "read from:     the file"}, {"@b.pixr", "frame:         0"},
                                      {"@b.pixr", "format:        pixr"}}) {
                Result info = Run(Line("info " + std::string(name)));
                EXPECT_NE(info.out.find(line), std::string::npos) << line << "\n" << info.out;
            }
        }
}

// A stored spectrum's header as the format writes it, with the lines of
// its wavelength section given.
Bytes SpectrumHeader(const std::string &version, const std::vector<std::string> &keys) {
    Bytes h = "[ID]\nformat: spectral\n" +
              (version == "1.0-binary" ? "binary: " + std::string(4, '\0') + "\n" : "") +
              "version: " + version + "\n\n[Spectral]\n";
    for (const std::string &k : keys)
        h += k + "\n";
    return h + "\n[End]\f\n";
}

std::vector<std::string> SpectrumKeys(uint32_t samples, uint32_t measurements,
                                      const std::string &type = "illuminant",
                                      const std::string &step = "25.000000") {
    return {"numberOfSamples: " + std::to_string(samples),
            "numberOfMeasurements: " + std::to_string(measurements), "startWaveLength: 400.000000",
            "samplingInterval: " + step, "spectrumType: " + type};
}

std::string G(double v, const char *form = "%g") {
    char text[32];
    snprintf(text, sizeof text, form, v);
    return text;
}

// glibc's " %g" text of each value, a line each, and the raw floats.
Bytes SpectrumText(const std::vector<float> &values) {
    Bytes text;
    for (float v : values)
        text += G(v, " %g\n");
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

TEST_F(Halvern, SpectraAreShownConvertedBothWaysAndExportedAsCsv) {
    std::vector<float> values = SpectrumValues(5, 3);
    Bytes ascii = SpectrumHeader("1.0-ascii", SpectrumKeys(5, 3)) + SpectrumText(values);
    Bytes binary = SpectrumHeader("1.0-binary", SpectrumKeys(5, 3)) + SpectrumRaw(values);
    WriteFile(Path("a.hvs"), ascii);
    Result info = Run(Line("info @a.hvs"));
    ASSERT_EQ(info.status, 0) << info.err;
    for (const char *line :
         {"format:        spectral\n", "version:       1.0-ascii\n", "spectrum type: illuminant\n",
          "samples:       5 per measurement\n", "measurements:  3\n",
          "wavelengths:   from 400 nm in steps of 25 nm, to 500 nm\n",
          "data:          one number a line, as text\n"})
        EXPECT_NE(info.out.find(line), std::string::npos) << line << info.out;

    // Text to floats and back: the stored bytes of each version exactly.
    Result r = Run(Line("convert @a.hvs @b.hvs --format spectral"));
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(ReadFile(Path("b.hvs")), binary);
    r = Run(Line("convert @b.hvs @c.hvs --format spectral --version 1.0-ascii"));
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.err, "") << "six digits hold these values";
    EXPECT_EQ(ReadFile(Path("c.hvs")), ascii);
    EXPECT_NE(Run(Line("info @b.hvs")).out.find("data:          32-bit floats"), std::string::npos);

    // A row a wavelength, a column a measurement, from either version.
    Bytes csv = "wavelength (nm),measurement 1,measurement 2,measurement 3\n";
    for (uint32_t s = 0; s < 5; ++s)
        csv += G(400 + 25 * s) + "," + G(values[s]) + "," + G(values[5 + s]) + "," + G(values[10 + s]) + "\n";
    for (const char *input : {"a.hvs", "b.hvs"}) {
        r = Run(Line("export @" + std::string(input) + " @out.csv"));
        ASSERT_EQ(r.status, 0) << r.err;
        EXPECT_EQ(ReadFile(Path("out.csv")), csv) << input;
    }

    // Wavelengths from a table: shown as one, and the CSV's first column.
    WriteFile(Path("t.hvs"),
              SpectrumHeader("1.0-ascii", {"numberOfSamples: 5", "numberOfMeasurements: 1",
                                           "wavelengths: 400 410.5 430 455 500", "spectrumType: filter"}) +
                  SpectrumText(SpectrumValues(5, 1)));
    info = Run(Line("info @t.hvs"));
    EXPECT_NE(info.out.find("wavelengths:   a table of 5, in nm:\n    400 410.5 430 455 500\n"),
              std::string::npos)
        << info.out;
    ASSERT_EQ(Run(Line("export @t.hvs @t.csv")).status, 0);
    EXPECT_EQ(ReadFile(Path("t.csv")),
              "wavelength (nm),measurement 1\n400,0.1\n410.5,0.11\n430,0.12\n455,0.13\n500,0.14\n");

    // Floats the text can't hold are rounded on the way to text, and said so.
    std::vector<float> thirds = {1.0f / 3, 2.0f / 3, 0.5f, 1e-9f / 3};
    WriteFile(Path("thirds.hvs"), SpectrumHeader("1.0-binary", SpectrumKeys(2, 2)) + SpectrumRaw(thirds));
    r = Run(Line("convert @thirds.hvs @thirds.txt --format spectral --version 1.0-ascii"));
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.err.find("note: 3 samples of " + Path("thirds.hvs") + " were rounded"), std::string::npos)
        << r.err;
    EXPECT_EQ(ReadFile(Path("thirds.txt")),
              SpectrumHeader("1.0-ascii", SpectrumKeys(2, 2)) + SpectrumText(thirds));
}

TEST_F(Halvern, SpectraPlotIsDrawnByARealRenderer) {
    // Three flat spectra, at 0.2, 0.5 and 0.8, and a fourth that climbs.
    std::vector<float> values;
    for (float level : {0.2f, 0.5f, 0.8f})
        values.insert(values.end(), 31, level);
    for (int s = 0; s < 31; ++s)
        values.push_back(0.03f * (float)s);
    WriteFile(Path("in.hvs"), SpectrumHeader("1.0-binary", SpectrumKeys(31, 4, "reflectance", "10.000000")) +
                                  SpectrumRaw(values));
    Result r = Run(Line("export @in.hvs @plot.svg"));
    ASSERT_EQ(r.status, 0) << r.err;
    Bytes svg = ReadFile(Path("plot.svg"));
    for (const char *text : {">wavelength (nm)</text>", ">reflectance</text>", ">400</text>", ">700</text>",
                             ">measurement 4</text>"})
        EXPECT_NE(svg.find(text), std::string::npos) << text;
    const std::string line = "<polyline fill=\"none\" stroke=\"#";
    std::vector<std::string> colours;
    for (size_t at = svg.find(line); at != std::string::npos; at = svg.find(line, at + 1))
        colours.push_back(svg.substr(at + line.size(), 6));
    ASSERT_EQ(colours.size(), 4u);

    // rsvg-convert draws it, Pillow reads what it drew.
    std::string command = "rsvg-convert '" + Path("plot.svg") + "' -o '" + Path("plot.png") + "' 2>'" +
                          Path("rsvg.err") + "'";
    ASSERT_EQ(std::system(command.c_str()), 0) << "rsvg-convert (Debian librsvg2-bin) must be installed: "
                                               << ReadFile(Path("rsvg.err"));
    EXPECT_EQ(ReadFile(Path("rsvg.err")), "");
    Pil image = PilRead("plot.png");
    ASSERT_EQ(image.width, 800u);
    ASSERT_EQ(image.height, 500u);
    const size_t channels = image.mode.size(); // RGB or RGBA
    ASSERT_EQ(image.samples.size(), (size_t)image.width * image.height * channels) << image.mode;

    // Each line is there in its own colour across most of the width; the
    // flat ones stand in the order of their values, the climbing one climbs.
    struct Seen {
        uint32_t columns = 0;
        double meanRow = -1, rowAtLeft = -1, rowAtRight = -1;
    };
    std::vector<Seen> seen;
    for (const std::string &hex : colours) {
        uint32_t rgb = (uint32_t)std::strtoul(hex.c_str(), nullptr, 16);
        int want[3] = {(int)(rgb >> 16), (int)(rgb >> 8 & 0xFF), (int)(rgb & 0xFF)};
        Seen s;
        uint64_t rows = 0, count = 0;
        for (uint32_t x = 0; x < image.width; ++x) {
            uint64_t sum = 0, n = 0;
            for (uint32_t y = 0; y < image.height; ++y) {
                const uint8_t *p = (const uint8_t *)&image.samples[((size_t)y * image.width + x) * channels];
                if (std::abs(p[0] - want[0]) <= 12 && std::abs(p[1] - want[1]) <= 12 &&
                    std::abs(p[2] - want[2]) <= 12)
                    sum += y, ++n;
            }
            if (n == 0)
                continue;
            ++s.columns, rows += sum, count += n;
            s.rowAtRight = (double)sum / (double)n;
            if (s.rowAtLeft < 0)
                s.rowAtLeft = s.rowAtRight;
        }
        s.meanRow = count ? (double)rows / (double)count : -1;
        seen.push_back(s);
    }
    for (size_t i = 0; i < seen.size(); ++i)
        EXPECT_GT(seen[i].columns, image.width / 2) << "measurement " << i + 1 << " in " << colours[i];
    EXPECT_LT(seen[2].meanRow, seen[1].meanRow) << "0.8 above 0.5";
    EXPECT_LT(seen[1].meanRow, seen[0].meanRow) << "0.5 above 0.2";
    EXPECT_LT(seen[3].rowAtRight + 100, seen[3].rowAtLeft) << "the fourth climbs from left to right";
}

TEST_F(Halvern, AWriteThatFailsLeavesNoOutput) {
    // Files of this process and its children may grow to 16 KiB: writing
    // past that fails (SIGXFSZ ignored, so the write says EFBIG).  Raw
    // spectra are written by a method that never reports a failed write,
    // and the header's end marker neither; the output is refused all the same.
    WriteFile(Path("a.hvs"),
              SpectrumHeader("1.0-ascii", SpectrumKeys(500, 20)) + SpectrumText(SpectrumValues(500, 20)));
    WriteFile(Path("image.hv"), StoredImage(Layout{.width = 100, .height = 100}, "internal"));
    struct rlimit old;
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &old), 0);
    struct rlimit small = old;
    small.rlim_cur = 16384;
    signal(SIGXFSZ, SIG_IGN);
    for (const char *line : {"convert @a.hvs @out --format spectral",
                             "convert @a.hvs @out --format spectral --version 1.0-ascii",
                             "export @a.hvs @out.csv", "convert @image.hv @out --format image-ext"}) {
        SCOPED_TRACE(line);
        Args args = Line(line);
        ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
        std::vector<std::string> before = Listing();
        Result r = Run(args);
        setrlimit(RLIMIT_FSIZE, &old);
        EXPECT_NE(r.status, 0);
        EXPECT_NE(r.err.find("can't write " + args[2]), std::string::npos) << r.err;
        EXPECT_EQ(Listing(), before) << "neither the output nor its temporary stays";
    }
    signal(SIGXFSZ, SIG_DFL);
}

// Serves the same answer to every connection on listener, from the test's
// own thread, until the process pid has ended (60 s at most), so halvern may
// connect as often as it likes.  An empty answer: read the request and say
// nothing until the client gives up (or ends).
void ServeUntilExit(int listener, pid_t pid, const std::string &answer) {
    int pidfd = static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
    ASSERT_GE(pidfd, 0);
    auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (std::chrono::steady_clock::now() < end) {
        pollfd entries[2] = {{pidfd, POLLIN, 0}, {listener, POLLIN, 0}};
        if ((poll(entries, 2, 1000) < 0 && errno != EINTR) || entries[0].revents != 0)
            break;
        int connection = entries[1].revents ? accept4(listener, nullptr, nullptr, SOCK_CLOEXEC) : -1;
        if (connection < 0)
            continue;
        if (answer.empty())
            peer::ReadToEnd(connection);
        else if (!peer::ReadHead(connection).empty())
            peer::SendAll(connection, answer);
        close(connection);
    }
    close(pidfd);
}

TEST_F(Halvern, ImagesOverHttpAreReadAndTruncatedOnesRefused) {
    // The URL stream ends a body cut short as an ordinary end; halvern
    // notices the missing scanlines and writes nothing.
    env_ = {"HV_URL_TIMEOUT=1000"};
    Layout l{.height = 40};
    for (std::string format : {"internal", "image-ext"}) {
        Bytes image = StoredImage(l, format);
        Bytes cut = image.substr(0, DataStart(image) + 2 * l.LineBytes() + 3);
        const std::string length = "Content-Length: " + std::to_string(image.size()) + "\r\n";
        const std::string chunked =
            peer::Response("Transfer-Encoding: chunked\r\n", peer::Chunked(image, image.size()));
        // image-ext data come in chunk records, one of which the cut leaves short.
        std::string cutShort = format == "internal" ? "is cut short" : "its data end inside a chunk";
        const struct {
            std::string name, answer;
            std::string phrase; // empty: the run succeeds
        } cases[] = {
            {"whole, with its length", peer::Response(length, image), ""},
            {"whole, chunked", chunked, ""},
            {"closed before its length", peer::Response(length, cut), cutShort},
            {"closed, no length", peer::Response("", cut), cutShort},
            {"closed inside a chunk", chunked.substr(0, chunked.size() - 7 - (image.size() - cut.size())),
             cutShort},
            {"not found", peer::Response("Content-Length: 0\r\n", "", "404 Not Found"), "can't open"},
            {"never answers", "", "can't open"},
        };
        for (const auto &c : cases) {
            SCOPED_TRACE(format + ": " + c.name);
            int listener = peer::BindLoopback(8);
            std::vector<std::string> before = Listing();
            pid_t pid = Spawn({"run", "copy", peer::LoopbackUrl(peer::PortOf(listener), "/images/in.hv"),
                               Path("out")});
            ASSERT_GT(pid, 0);
            ServeUntilExit(listener, pid, c.answer);
            close(listener);
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

TEST_F(Halvern, ListsDescribesAndHelps) {
    Result list = Run({"list"});
    ASSERT_EQ(list.status, 0) << list.err;
    for (const char *name : {"copy ", "invert ", "gain ", "threshold ", "Makes every sample black or white"})
        EXPECT_NE(list.out.find(name), std::string::npos) << list.out;
    Result describe = Run({"describe", "gain"});
    EXPECT_EQ(describe.status, 0);
    EXPECT_NE(describe.out.find("factor:d"), std::string::npos) << describe.out;
    EXPECT_NE(Run({"describe", "no-such-function"}).status, 0);
    Result help = Run({"help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_NE(help.out.find("convert INPUT OUTPUT --format"), std::string::npos);
}

// Start-up: which bundle failed and why, without any debug switch.  The
// registry is the test's own; the broken bundles are built beside the test
// programs, where the loader's search is pointed.
TEST_F(Halvern, StartUpTellsWhichBundleFailedAndWhy) {
    env_ = {"HV_DATA_PATH=" + dir_, std::string("LD_LIBRARY_PATH=") + HALV_TEST_BUNDLE_DIR};
    const std::string registry = Path("hvregistry.dot");
    const struct {
        const char *bundle, *reason;
    } cases[] = {
        {"nosuchbundle", "dpk_nosuchbundle.so: cannot open shared object file: No such file or directory"},
        {"nolist", "lacks the entry point HalvernBundleGetList_nolist"},
        {"oldmajor", "it was built for major version 2; this engine takes 3"},
        {"unresolved", "undefined symbol: HalvNoSuchFunction"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.bundle);
        WriteFile(registry, std::string("[libraries]\nrequired: halv\nrequired: ") + c.bundle + "\n");
        for (const char *command : {"list", "demo"}) {
            Result r = Run({command});
            EXPECT_EQ(r.status, 1);
            EXPECT_EQ(r.out, "");
            size_t at = r.err.find("halvern: bundle " + std::string(c.bundle) + " (required): ");
            ASSERT_NE(at, std::string::npos) << r.err;
            EXPECT_EQ(r.err.substr(0, at),
                      "halvern: the engine did not start\nhalvern: registry file: " + registry + "\n");
            std::string last = r.err.substr(at);
            EXPECT_NE(last.find(c.reason), std::string::npos) << last;
            EXPECT_EQ(std::count(last.begin(), last.end(), '\n'), 1) << "and nothing after it: " << last;
        }
        Result status = Run({"status"});
        EXPECT_EQ(status.status, 1);
        for (std::string line : {std::string("bundle halv     loaded, version 3.8.0"),
                                 "bundle " + std::string(c.bundle), std::string(c.reason)})
            EXPECT_NE(status.out.find(line), std::string::npos) << line << "\n" << status.out;
    }

    // Optional bundles that fail leave the rest running; list and status tell them.
    WriteFile(Path("hvregistry.dot"),
              "[libraries]\noptional: oldmajor\nrequired: halv\noptional: nosuchbundle\n");
    Result list = Run({"list"});
    EXPECT_EQ(list.status, 0) << list.err;
    EXPECT_EQ(list.err, "");
    size_t failedPart =
        list.out.find("\nbundles that failed to load:\n  oldmajor (optional): it was built for major "
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
    for (std::string line :
         {"registry file: " + Path("hvregistry.dot") + "\n", "data path      " + dir_ + "\n",
          std::string("temporary dir  "), std::string("/dpk_halv.so\n"),
          std::string("bundle oldmajor failed (optional): it was built for major version 2")})
        EXPECT_NE(status.out.find(line), std::string::npos) << line << "\n" << status.out;
    EXPECT_EQ(Listing(), std::vector<std::string>{"hvregistry.dot"}) << "status leaves nothing behind";
}

TEST_F(Halvern, InterruptStopsBetweenChunksAndRemovesTheUnfinishedOutput) {
    // 4 MiB of a 16 MiB image are through before the signal.
    for (const char *line : {"run invert @in.hv @out.hv", "convert @in.hv @out.hv --format image-ext",
                             "export @in.hv @out.pgm"}) {
        SCOPED_TRACE(line);
        Args args = Line(line);
        Result r = RunInterrupted(args, {"in.hv"}, Layout{.width = 4096, .height = 4096, .parts = 1}, 1024);
        EXPECT_EQ(r.status, 130) << r.err;
        const std::string output = args[args[0] == "run" ? 3 : 2];
        EXPECT_NE(
            r.err.find("halvern: interrupted: stopped between two chunks; " + output + " was not written"),
            std::string::npos)
            << r.err;
        EXPECT_TRUE(Listing().empty()) << "nothing is left under either name";
    }
}

// One entry of the test's table "id:1i tag:5c w:3f n:2i note:12c z:1f",
// as its values and as the packed bytes of either order.
const char kTableFields[] = "id:1i tag:5c w:3f n:2i note:12c z:1f";
constexpr uint32_t kTableEntry = 4 + 5 + 24 + 8 + 12 + 8;
const std::vector<std::string> kTableInfo = {"field-0: \"id:1i\"",    "field-1: \"tag:5c\"",
                                             "field-2: \"w:3f\"",     "field-3: \"n:2i\"",
                                             "field-4: \"note:12c\"", "field-5: \"z:1f\""};

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

Bytes Packed(const std::vector<TableRow> &rows, bool big = false) {
    Bytes packed;
    for (const TableRow &row : rows)
        packed += row.Packed(big);
    return packed;
}

// The CSV of rows with the columns in another order than export's, written
// the way a spreadsheet might: CRLF line ends, quotes only where needed,
// numbers in forms of its own.
Bytes TableCsv(const std::vector<TableRow> &rows) {
    auto quote = [](const std::string &t) {
        if (t.find_first_of(",\"\n\r") == std::string::npos)
            return t;
        std::string q = "\"";
        for (char c : t)
            q += c == '"' ? std::string("\"\"") : std::string(1, c);
        return q + "\"";
    };
    auto number = [](double v) { return std::isnan(v) ? "NaN" : G(v, "%.17e"); }; // long forms that read back
    Bytes csv = "note,id,tag,w[0],w[1],w[2],n[0],n[1],z\r\n";
    for (const TableRow &r : rows)
        csv += quote(r.note) + "," + std::to_string(r.id) + "," + quote(r.tag) + "," + number(r.w[0]) + "," +
               number(r.w[1]) + "," + number(r.w[2]) + "," + std::to_string(r.n[0]) + ", " +
               std::to_string(r.n[1]) + " ," + number(r.z) + "\r\n";
    return csv;
}

// A stored info table written by hand: the header with these Info and
// Encoding lines, then one chunk record and payload for each payload.
Bytes TableFile(const std::vector<std::string> &info, const std::string &bytesPerEntry,
                const std::vector<Bytes> &payloads, const std::vector<uint32_t> &lines, bool big = false) {
    Bytes h = "[ID]\nformat: info\nbinary: " + std::string(4, '\0') + "\nversion: 1.0\narchitecture: " +
              (big ? "type 1" : "type 2") + "\n\n[Encoding]\nname: packed\nbytes/entry: " + bytesPerEntry +
              "\n\n[Info]\n";
    for (const std::string &line : info)
        h += line + "\n";
    h += "\n[End]\f\n";
    for (size_t i = 0; i < payloads.size(); ++i)
        h += ExtRecord((uint32_t)payloads[i].size(), lines[i], 0, big) + payloads[i];
    return h;
}

std::string HexOf(const void *bytes, size_t n) {
    std::string hex;
    for (size_t i = 0; i < n; ++i) {
        unsigned char b = static_cast<const unsigned char *>(bytes)[i];
        hex += {"0123456789abcdef"[b >> 4], "0123456789abcdef"[b & 15]};
    }
    return hex;
}

TEST_F(Halvern, TablesRoundTripThroughCsvAndKeepEveryValue) {
    std::vector<TableRow> rows = TableRows();
    WriteFile(Path("in.csv"), TableCsv(rows));
    Result r = Run({"import-table", Path("in.csv"), kTableFields, Path("t.tbl")});
    ASSERT_EQ(r.status, 0) << r.err;
    // The stored table: its keys, and the entries packed as the test packs them.
    Bytes table = ReadFile(Path("t.tbl"));
    EXPECT_EQ(HeaderKeys(table, {"format", "bytes/entry", "entries", "field-2"}),
              "info | " + std::to_string(kTableEntry) + " | 5 | \"w:3f\"");
    EXPECT_EQ(StoredData(table, kTableEntry, 5), Packed(rows));

    // Exported, and the export imported again: the very same table.
    ASSERT_EQ(Run(Line("export @t.tbl @out.csv")).status, 0);
    Bytes csv = ReadFile(Path("out.csv"));
    EXPECT_EQ(csv.substr(0, csv.find('\n') + 1), "id,tag,w[0],w[1],w[2],n[0],n[1],note,z\n");
    ASSERT_EQ(Run({"import-table", Path("out.csv"), kTableFields, Path("again.tbl")}).status, 0);
    EXPECT_EQ(ReadFile(Path("again.tbl")), table);

    // An outside CSV reader finds every value in the export: numbers by
    // their bits, texts by their bytes.
    WriteFile(Path("check.py"), "import csv, struct, sys\n"
                                "kinds = 'itfffiitf'\n"
                                "with open(sys.argv[1], newline='', encoding='utf-8') as f:\n"
                                "    rows = list(csv.reader(f))\n"
                                "for row in rows[1:]:\n"
                                "    out = []\n"
                                "    for kind, cell in zip(kinds, row):\n"
                                "        if kind == 'i': out.append(str(int(cell)))\n"
                                "        elif kind == 'f': out.append(struct.pack('<d', float(cell)).hex())\n"
                                "        else: out.append(cell.encode('utf-8').hex())\n"
                                "    print(len(row), ' '.join(out))\n");
    Result seen = Run({Path("check.py"), Path("out.csv")}, HALV_TEST_PYTHON);
    ASSERT_EQ(seen.status, 0) << seen.err;
    std::string want;
    for (const TableRow &row : rows) {
        auto d = [](double v) { return HexOf(&v, 8); };
        want += "9 " + std::to_string(row.id) + " " + HexOf(row.tag.data(), row.tag.size()) + " " +
                d(row.w[0]) + " " + d(row.w[1]) + " " + d(row.w[2]) + " " + std::to_string(row.n[0]) + " " +
                std::to_string(row.n[1]) + " " + HexOf(row.note.data(), row.note.size()) + " " + d(row.z) +
                "\n";
    }
    EXPECT_EQ(seen.out, want);

    // A table of the other byte order, in two chunks: shown, exported and
    // imported into this machine's order.
    Bytes first = Packed({rows.begin(), rows.begin() + 3}, true),
          second = Packed({rows.begin() + 3, rows.end()}, true);
    WriteFile(Path("big.tbl"),
              TableFile(kTableInfo, std::to_string(kTableEntry), {first, second}, {3, 2}, true));
    Result info = Run(Line("info @big.tbl"));
    ASSERT_EQ(info.status, 0) << info.err;
    for (const char *line :
         {"format:        info", "byte order:    big-endian (type 1)", "bytes/entry:   61",
          "entries:       5 (the header doesn't say)", "fields:        6, 9 columns",
          "    id                   integer          1         0         4",
          "    w                    double           3         9        24",
          "    note                 text            12        41        12"})
        EXPECT_NE(info.out.find(line), std::string::npos) << line << "\n" << info.out;
    ASSERT_EQ(Run(Line("export @big.tbl @big.csv")).status, 0);
    ASSERT_EQ(Run({"import-table", Path("big.csv"), kTableFields, Path("little.tbl")}).status, 0);
    EXPECT_EQ(StoredData(ReadFile(Path("little.tbl")), kTableEntry, 5), Packed(rows));

    // A text field that holds bytes behind its NUL keeps its text up to
    // it; the export says so.
    Bytes entry = rows[0].Packed();
    entry[4 + 3] = 'Z'; // tag "ab\0Z\0"
    WriteFile(Path("z.tbl"), TableFile(kTableInfo, "61", {entry}, {1}));
    r = Run(Line("export @z.tbl @z.csv"));
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.err.find("note: 1 text values"), std::string::npos) << r.err;
    EXPECT_NE(ReadFile(Path("z.csv")).find("\n1,ab,0.1,"), std::string::npos);
}

TEST_F(Halvern, ImportRefusesBadFieldListsAndCells) {
    const std::string fields = "x:1i w:2f label:2c", head = "x,w[0],w[1],label\n";
    WriteFile(Path("in.csv"), head + "1,0.5,2,ab\n");
    ASSERT_EQ(Run({"import-table", Path("in.csv"), fields, Path("ok.tbl")}).status, 0);
    unlink(Path("ok.tbl").c_str());
    const struct {
        std::string fields, phrase;
    } fieldCases[] = {
        {"x1i", "field \"x1i\""},   {"x:1q", "field \"x:1q\""},    {"x:", "field \"x:\""},
        {":1i", "field \":1i\""},   {"a,b:1i", "field \"a,b:1i\""}, {"", "the field list is empty"},
        {"x:1i X:2f", "names X twice"}, {"big:20000000f", "at most"},
    };
    for (const auto &c : fieldCases) {
        SCOPED_TRACE(c.fields);
        EXPECT_EQ(ExpectRefused({"import-table", Path("in.csv"), c.fields, Path("out.tbl")}, c.phrase).status,
                  2);
    }
    const struct {
        Bytes csv;
        std::string phrase;
    } csvCases[] = {
        {"", "is empty"},
        {"x,w[0],label\n1,2,ab\n", "no column \"w[1]\""},
        {"x,w[0],w[1],label,extra\n1,2,3,ab,4\n", "column \"extra\" is not one"},
        {"x,w[0],w[1],label,x\n1,2,3,ab,4\n", "column \"x\" twice"},
        {head + "1,2,3\n", "line 2: 3 cells, where the first row has 4"},
        {head + "1,2,3,ab\n\n12,0x,3,ab\n", "line 4, column w[0]: \"0x\" is not a number"},
        {head + "2147483648,2,3,ab\n", "column x: \"2147483648\" is out of the range"},
        {head + "1.5,2,3,ab\n", "column x: \"1.5\" is not an integer"},
        {head + ",2,3,ab\n", "column x: \"\" is not an integer"},
        {head + "1,1e999,3,ab\n", "beyond the range of a double"},
        {head + "1,2,3,abc\n", "the text has 3 bytes; the field takes 2"},
        {head + "1,2,3,\"ab\n", "a quoted cell is never closed"},
        {head + "1,2,3,a" + '\0' + "\n", "NUL"},
    };
    for (const auto &c : csvCases) {
        SCOPED_TRACE(c.phrase);
        WriteFile(Path("bad.csv"), c.csv);
        ExpectRefused({"import-table", Path("bad.csv"), fields, Path("out.tbl")}, c.phrase);
    }
    // Headings fold case, a byte order mark is passed over, and a table
    // of no entries is a table.
    WriteFile(Path("bom.csv"), "\xEF\xBB\xBFLABEL,X,W[1],w[0]\n");
    Result r = Run({"import-table", Path("bom.csv"), fields, Path("empty.tbl")});
    ASSERT_EQ(r.status, 0) << r.err;
    Bytes empty = ReadFile(Path("empty.tbl"));
    EXPECT_EQ(HeaderKey(empty, "entries"), "");
    EXPECT_EQ(empty.size(), DataStart(empty));
    Result info = Run(Line("info @empty.tbl"));
    EXPECT_EQ(info.status, 0) << info.err;
    EXPECT_NE(info.out.find("entries:       0 (the header doesn't say)"), std::string::npos) << info.out;
}

Bytes PixelStreamHeader(const std::string &encoding, const std::string &more = "") {
    return "[ID]\nformat: pixelstream\nversion: 1.0-ascii\n\n" + more + "[Encoding]\n" + encoding +
           "\n\n[End]\f\n";
}

TEST_F(Halvern, RunFeedsStandardInputThroughAFunction) {
    WriteFile(Path("hdr"), PixelStreamHeader("useStdin: true\nimageParts: 3 0 0\nbits/sample: 8",
                                             "[Raster]\npixels: 2\n\n"));
    Result r = RunWithInput(Line("run invert @hdr @out"), "1 2 3\n4 5 6\n250 0 7 8 9 10");
    ASSERT_EQ(r.status, 0) << r.err;
    Bytes out = ReadFile(Path("out"));
    EXPECT_EQ(HeaderKeys(out, {"format", "useStdin", "pixels"}), "pixelstream |  | 2")
        << "it holds its own pixels";
    EXPECT_EQ(Behind(out), " 254 253 252\n 251 250 249\n 5 255 248\n 247 246 245\n");

    // A shell pipeline, as a user types it.
    std::string command = "printf '10 20 30\\n40 50 60\\n' | '" + std::string(HALVERN_PATH) +
                          "' run invert '" + Path("hdr") + "' '" + Path("piped") + "'";
    ASSERT_EQ(std::system(command.c_str()), 0);
    EXPECT_EQ(Behind(ReadFile(Path("piped"))), " 245 235 225\n 215 205 195\n");

    // Without the switch the text behind the header is read, and standard
    // input is left alone.
    WriteFile(Path("file"), PixelStreamHeader("imageParts: 1 0 0\nbits/sample: 16") + "1\n65535\n0\n");
    r = RunWithInput(Line("run invert @file @out2"), "7 7 7");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(Behind(ReadFile(Path("out2"))), " 65534\n 0\n 65535\n");

    // Input that stops inside a pixel, or inside a scanline of the Raster
    // width, is refused and leaves no output.
    for (auto [input, phrase] :
         {std::pair{"1 2 3 4 5", "middle of a pixel"}, {"1 2 3 4 5 6 7 8 9", "middle of a scanline"}}) {
        r = RunWithInput(Line("run invert @hdr @cut"), input);
        EXPECT_NE(r.status, 0);
        EXPECT_NE(r.err.find(phrase), std::string::npos) << r.err;
        EXPECT_NE(access(Path("cut").c_str(), F_OK), 0) << "no output";
    }
}

// Damaged, lying and hostile files of every kind: each command that reads
// them refuses, with the reason where the row's first command gives it,
// writes nothing and leaves an existing output alone.
TEST_F(Halvern, RefusesDamagedAndHostileFiles) {
    enum Kind { kImage, kExt, kSpectrum, kTable }; // kExt: image-ext, pixr and pixel streams
    const std::vector<std::vector<std::string>> commands = {
        {"run invert @bad @out", "convert @bad @out --format image-ext", "export @bad @out.ppm"},
        {"run copy @bad @out", "convert @bad @out --format internal"},
        {"convert @bad @out.hvs --format spectral --version 1.0-ascii", "export @bad @out.svg"},
        {"export @bad @out.csv", "info @bad"},
    };
    Layout l;
    Bytes good = StoredImage(l, "internal"), data = Behind(good), ext = HeaderText(l, "image-ext");
    Bytes line(l.LineBytes(), 'x');
    std::vector<float> values = SpectrumValues(5, 3);
    Bytes text = SpectrumText(values), raw = SpectrumRaw(values);
    const Bytes ascii = SpectrumHeader("1.0-ascii", SpectrumKeys(5, 3));
    auto rule = "breaks a rule of that format";
    Bytes two = Packed({TableRows()[0], TableRows()[0]});
    std::vector<std::string> entries5 = kTableInfo, badField = kTableInfo;
    entries5.push_back("entries: 5");
    badField[2] = "field-2: \"w:3d\"";
    Bytes whole = TableFile(kTableInfo, "61", {two}, {2});
    const Bytes pixr = "[ID]\nformat: pixr\nversion: 1.0\narchitecture: type 2\n\n[Raster]\npixels: ";
    const struct {
        Kind kind;
        std::string name;
        Bytes file;
        std::string phrase;
    } cases[] = {
        {kImage, "truncated", good.substr(0, good.size() - 7), "cut short"},
        {kImage, "header only", HeaderText(l, "internal"), "cut short"},
        {kImage, "more scanlines than data", HeaderText(l, "internal", "", "9") + data, "cut short"},
        {kImage, "too few bytes per line", HeaderText(l, "internal", "50") + data, "bytes per scanline"},
        {kImage, "width 0", HeaderText(l, "internal", "0") + data, "width is 0"},
        {kImage, "no scanlines at all", HeaderText(l, "internal", "", "0"), "holds no scanlines"},
        {kImage, "huge width", HeaderText(l, "internal", "2000000000") + data,
         "more than this host handles"},
        {kImage, "huge height", HeaderText(l, "internal", "", "2000000000") + data, "cut short"},
        {kImage, "not a header", "P5\n5 7\n255\n" + data, "not a stored image"},
        {kImage, "empty file", "", "not a stored image"},
        {kImage, "unknown format", "[ID]\nformat: nosuch\nversion: 1.0\n\n[End]\f\n" + data, "\"nosuch\""},
        {kExt, "length far beyond the file", ext + ExtRecord(0xFFFFFFF0u, 1, 0, false) + line, "damaged"},
        {kExt, "length beyond the file", ext + ExtRecord(1000, 1, 0, false) + line, "damaged"},
        {kExt, "length against lines", ext + ExtRecord(l.LineBytes() - 1, 1, 0, false) + line.substr(1),
         "scanline"},
        {kExt, "lines against length", ext + ExtRecord(l.LineBytes(), 2, 0, false) + line, "damaged"},
        {kExt, "record cut short", ext + ExtRecord(l.LineBytes(), 1, 0, false).substr(0, 9), "damaged"},
        {kExt, "more lines than the header",
         ext + ExtRecord(8 * l.LineBytes(), 8, 0, false) + Bytes(8 * l.LineBytes(), 'y'), "more scanlines"},
        {kExt, "fewer lines than the header", ext + ExtRecord(l.LineBytes(), 1, 0, false) + line,
         "cut short"},
        {kSpectrum, "text cut inside a measurement", ascii + text.substr(0, text.size() - 9),
         "it ends after 2 of the 3 measurements"},
        {kSpectrum, "a word among the numbers", ascii + text.substr(0, 40) + " blue\n" + text.substr(40),
         "cut short"},
        {kSpectrum, "floats cut short", SpectrumHeader("1.0-binary", SpectrumKeys(5, 3)) + raw.substr(0, 40),
         "cut short"},
        {kSpectrum, "floats end inside a measurement",
         SpectrumHeader("1.0-binary", SpectrumKeys(5, 0)) + raw.substr(0, 50),
         "ends in the middle of a measurement"},
        {kSpectrum, "no samples", SpectrumHeader("1.0-binary", SpectrumKeys(0, 3)) + raw, "no samples"},
        {kSpectrum, "text where numbers belong",
         SpectrumHeader("1.0-ascii",
                        {"numberOfSamples: five", "startWaveLength: 400", "samplingInterval: 10"}) +
             text,
         "no samples"},
        {kSpectrum, "a huge measurement", SpectrumHeader("1.0-binary", SpectrumKeys(100000000, 1)) + raw,
         "more than this host handles"},
        {kSpectrum, "samples beyond 32-bit bytes",
         SpectrumHeader("1.0-ascii", SpectrumKeys(2000000000, 1)) + text, rule},
        {kSpectrum, "huge measurement counts, binary",
         SpectrumHeader("1.0-binary", SpectrumKeys(5, 4000000000u)) + raw, "cut short"},
        {kSpectrum, "huge measurement counts, text",
         SpectrumHeader("1.0-ascii", SpectrumKeys(5, 4000000000u)) + text,
         "it ends after 3 of the 4000000000 measurements"},
        {kSpectrum, "a table that doesn't rise",
         SpectrumHeader("1.0-ascii", {"numberOfSamples: 5", "wavelengths: 400 410 410 420 430"}) + text,
         rule},
        {kSpectrum, "a table longer than 500",
         SpectrumHeader("1.0-ascii", {"numberOfSamples: 600", "wavelengths: 400 401 402"}) + text, rule},
        {kSpectrum, "neither table nor interval", SpectrumHeader("1.0-ascii", {"numberOfSamples: 5"}) + text,
         rule},
        {kSpectrum, "no data", SpectrumHeader("1.0-ascii", SpectrumKeys(5, 0)), "holds no"},
        {kTable, "fewer", TableFile(entries5, "61", {two}, {2}), "holds 2 of the 5 entries its header gives"},
        {kTable, "more", TableFile(entries5, "61", {two + two, two}, {4, 2}), "more entries than the 5"},
        {kTable, "zero", TableFile(kTableInfo, "0", {two}, {2}), "its header gives no bytes/entry"},
        {kTable, "billions", TableFile(kTableInfo, "4000000000", {two}, {2}), "bytes/entry 4000000000"},
        {kTable, "field", TableFile(badField, "61", {two}, {2}), "its field field-2 is \"w:3d\""},
        {kTable, "nofields", TableFile({}, "61", {two}, {2}), "it has no fields"},
        {kTable, "lines", TableFile(kTableInfo, "61", {two}, {3}), "a chunk holds 122 bytes for 3 entries"},
        {kTable, "cut", whole.substr(0, whole.size() - 10), "data end inside a chunk"},
        {kExt, "no parts", PixelStreamHeader("imageParts: 0 0 0\nbits/sample: 8") + "1 2 3\n", "separations"},
        {kExt, "12 bits", PixelStreamHeader("imageParts: 1 0 0\nbits/sample: 12") + "1 2 3\n",
         "12 bits per sample"},
        {kExt, "64 bits", PixelStreamHeader("imageParts: 1 0 0\nbits/sample: 64") + "1 2\n",
         "64 bits per sample"},
        {kExt, "huge parts", PixelStreamHeader("imageParts: 100000000 0 0\nbits/sample: 8") + "1\n",
         "separations"},
        {kExt, "huge width",
         PixelStreamHeader("imageParts: 3 0 0\nbits/sample: 8", "[Raster]\npixels: 2000000000\n\n"),
         "scanlines have no bytes"},
        {kExt, "not a number", PixelStreamHeader("imageParts: 2 0 0\nbits/sample: 8") + "1 2 x 4\n",
         "no number"},
        {kExt, "pixr chunk longer than the file",
         pixr + "2\nscanlines: 1\n\n[Encoding]\nparts: 1 0 0\nbytes/sl: 2\nbits/sample: 8\n"
                "interleave: scanline\n\n[End]\f\n" + ExtRecord(0x7FFFFFF0, 1, 0, false) + "ab",
         "damaged"},
        {kExt, "pixr with no pixels", pixr + "0\n\n[Encoding]\nparts: 1 0 0\nbits/sample: 8\n\n[End]\f\n",
         "width is 0"},
    };
    WriteFile(Path("out"), "old contents");
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        WriteFile(Path("bad"), c.file);
        for (size_t i = 0; i < commands[c.kind].size(); ++i) {
            Result r =
                ExpectRefused(Line(commands[c.kind][i]), i == 0 || c.kind >= kSpectrum ? c.phrase : "");
            if (c.kind == kTable && i == 1) {
                EXPECT_EQ(r.status, 1);
                EXPECT_NE(r.out.find("format:        info"), std::string::npos) << r.out;
            }
        }
    }
    EXPECT_EQ(ReadFile(Path("out")), "old contents");
}

// Command lines refused before anything is written: the reason on stderr,
// and the exit status where it is a usage error (2).
TEST_F(Halvern, RefusesBadCommandLinesAndWrongKindsOfInput) {
    Layout l;
    WriteFile(Path("in"), StoredImage(l, "internal"));
    Bytes compressed = HeaderText(l, "internal");
    compressed.insert(compressed.find("[Origin]"), "[Compression]\ncompressors: lzw (level 3)\n\n");
    WriteFile(Path("z"), compressed + "not really compressed, but nobody here looks");
    WriteFile(Path("a.hvs"),
              SpectrumHeader("1.0-ascii", SpectrumKeys(5, 3)) + SpectrumText(SpectrumValues(5, 3)));
    WriteFile(Path("t.tbl"), TableFile(kTableInfo, "61", {TableRows()[0].Packed()}, {1}));
    const std::string images = "only internal, image-ext, pixr and pixelstream";
    const struct {
        std::string line, phrase;
        int status = -1; // -1: any but 0
    } cases[] = {
        {"run no-such-function @in @out", "unknown function no-such-function"},
        {"run gain @in @out", "factor:d is required"},
        {"run gain @in @out factor=abc", "factor=abc: not a number"},
        {"run gain @in @out factor", "expected key=value"},
        {"run gain @in @out factor=2 colour=red", "gain has no argument colour"},
        {"run gain @in @out factor=2 factor=3", "given twice"},
        {"run gain @in @out factor=-1", "finite number of 0 or more"},
        {"run threshold @in @out level=300", "outside 0 to 255"},
        {"run copy @in @out bits=16", "bits=16 doesn't match the image"},
        {"run copy @missing @out", "can't read"},
        {"run copy @in @no/such/dir/out", "can't write"},
        {"run copy @ @out", "is a directory"},
        {"info @missing", "No such file"},
        {"run copy", "usage", 2},
        {"frobnicate", "unknown command frobnicate", 2},
        {"pack @in @x.bh --byte-order middle", "big or little"},
        {"convert @in @x --format tiff", "internal, image-ext, pixr or pixelstream"},
        {"convert @in @x --format internal --byte-order middle", "big or little"},
        {"convert @in @x", "usage"},
        {"convert @in @x --format pixelstream --byte-order big", "no byte order"},
        {"convert @in @x --format spectral", "not a spectrum"},
        {"export @in @x.pgm", "3 separations"},
        {"export @in @x.bmp", ".png, .tif, .jpg, .pgm or .ppm"},
        {"export @in @x.csv", "exports take spectra and info tables"},
        {"run invert @z @x", "compressed data"},
        {"export @z @x.ppm", "compressed data"},
        {"convert @a.hvs @x --format internal", "can be converted to spectral"},
        {"convert @a.hvs @x --format spectral --version 2.1", "1.0-ascii or 1.0-binary"},
        {"convert @a.hvs @x --format spectral --byte-order big", "this machine's byte order"},
        {"export @a.hvs @x.pgm", images},
        {"run invert @a.hvs @x", images},
        {"export @t.tbl @x.pgm", images},
        {"import-table @missing.csv x:1i @x.tbl", "can't read"},
        {"import-table @a.hvs x:1i", "usage"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.line);
        Result r = ExpectRefused(Line(c.line), c.phrase);
        if (c.status >= 0) {
            EXPECT_EQ(r.status, c.status);
        }
    }
    if (geteuid() != 0) { // root reads anything
        WriteFile(Path("locked"), StoredImage(l, "internal"));
        chmod(Path("locked").c_str(), 0);
        ExpectRefused(Line("run copy @locked @out"), "Permission denied");
    }
    Result bare = Run({});
    EXPECT_EQ(bare.status, 2);
    EXPECT_NE(bare.err.find("usage: halvern"), std::string::npos);
    // bits given and agreeing is fine; keys fold case.
    Result ok = Run(Line("run gain @in @out FACTOR=2 bits=8"));
    EXPECT_EQ(ok.status, 0) << ok.err;
    // Compressed data are converted as they stand, though not processed.
    Result r = Run(Line("convert @z @out --format internal"));
    ASSERT_EQ(r.status, 0) << r.err;
    Bytes out = ReadFile(Path("out"));
    EXPECT_EQ(Behind(out), "not really compressed, but nobody here looks");
    EXPECT_EQ(HeaderKey(out, "compressors"), "lzw (level 3)");
}

} // namespace
