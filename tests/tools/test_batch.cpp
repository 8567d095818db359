// halvern run over many images at once: one function, many inputs, --out
// DIR, the images side by side on the engine's global worker pool
// (HalvWorkerPool), each on one thread.  Real processes on real files and
// FIFOs; under ThreadSanitizer the host built with it runs here too.
#include "tools/halvern_fixture.h"

namespace {

using namespace halvern_test;

// An internal 8-bit grey image of width x height, its samples from seed.
Bytes GreyImage(uint32_t width, uint32_t height, uint32_t seed, Bytes *samples = nullptr) {
    Bytes image = StoredImage(Layout{.width = width, .height = height, .parts = 1, .seed = seed}, "internal");
    if (samples)
        *samples = Behind(image);
    return image;
}

class Batch : public Halvern {};

TEST_F(Batch, EveryImageIsWrittenAsASingleRunWritesIt) {
    const uint32_t count = 12;
    std::vector<std::string> args = {"run", "gain"};
    std::vector<Bytes> inputs(count);
    std::vector<std::string> expected;
    for (uint32_t i = 0; i < count; ++i) {
        std::string name = "img" + std::to_string(i) + ".hv";
        WriteFile(Path(name), GreyImage(40 + i, 30, i, &inputs[i]));
        args.push_back(Path(name));
        expected.push_back(name);
    }
    std::sort(expected.begin(), expected.end());
    args.insert(args.end(), {"factor=1.5", "--out", Path("out"), "--jobs", "3"});
    Result r = Run(args);
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.err, "");
    ASSERT_EQ(Names(Path("out")), expected) << "one output each, and no temporary left";
    for (uint32_t i = 0; i < count; ++i) {
        SCOPED_TRACE(i);
        // The same bytes as halvern run of that image alone (whose gain the
        // single-image tests check sample by sample).
        ASSERT_EQ(Run(Line("run gain @img" + std::to_string(i) + ".hv @single.hv factor=1.5")).status, 0);
        EXPECT_TRUE(ReadFile(Path("single.hv")) == ReadFile(Path("out/img" + std::to_string(i) + ".hv")));
    }
    // --jobs defaults to the processors; one job runs them one by one.
    for (const char *jobs : {"", " --jobs 1"}) {
        ASSERT_EQ(Run(Line("run invert @img0.hv @img1.hv --out @inv" + std::string(jobs))).status, 0);
        Bytes inverted = Behind(ReadFile(Path("inv/img1.hv")));
        ASSERT_EQ(inverted.size(), inputs[1].size());
        for (size_t k = 0; k < inverted.size(); ++k)
            ASSERT_EQ((uint8_t)inverted[k], 255 - (uint8_t)inputs[1][k]);
    }
}

TEST_F(Batch, AFailedImageIsNamedAndTheOthersAreWritten) {
    WriteFile(Path("good1.hv"), GreyImage(16, 8, 1));
    WriteFile(Path("good2.hv"), GreyImage(16, 8, 2));
    Bytes whole = GreyImage(16, 8, 3);
    WriteFile(Path("short.hv"), whole.substr(0, whole.size() - 20));
    WriteFile(Path("text.hv"), "not an image\n");
    Result r = Run(Line("run invert @good1.hv @short.hv @missing.hv @text.hv @good2.hv --out @out --jobs 2"));
    EXPECT_EQ(r.status, 1);
    for (const char *bad : {"short.hv is cut short", "missing.hv", "text.hv is not a stored image"})
        EXPECT_NE(r.err.find(bad), std::string::npos) << bad << " in " << r.err;
    EXPECT_NE(r.err.find("invert failed on 3 of 5 images: " + Path("short.hv") + " " + Path("missing.hv") +
                         " " + Path("text.hv") + "\n"),
              std::string::npos)
        << r.err;
    EXPECT_EQ(Names(Path("out")), (std::vector<std::string>{"good1.hv", "good2.hv"}));
}

TEST_F(Batch, AWrongCommandLineRunsNothing) {
    WriteFile(Path("a.hv"), GreyImage(4, 4, 1));
    ASSERT_EQ(mkdir(Path("sub").c_str(), 0777), 0);
    WriteFile(Path("sub/a.hv"), GreyImage(4, 4, 2));
    const struct {
        std::string line, phrase;
    } cases[] = {
        {"run invert @a.hv @sub/a.hv --out @out", "would both be written as"},
        {"run invert @a.hv --out @", "would be written over itself"},
        {"run invert @a.hv --out @out --jobs 0", "--jobs 0: a whole number"},
        {"run invert --out @out", "usage: halvern run"},
        {"run invert @a.hv --out @out --fast", "unknown option --fast"},
        {"run invert @a.hv --out @out factor=2",
         "invert failed on 1 of 1 images: " + Path("a.hv")}, // every image
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.line);
        Result r = Run(Line(c.line));
        EXPECT_EQ(r.status, c.line.find('=') == std::string::npos ? 2 : 1) << r.err;
        EXPECT_NE(r.err.find(c.phrase), std::string::npos) << r.err;
        EXPECT_TRUE(Names(Path("out")).empty());
    }
}

TEST_F(Batch, InterruptStopsEveryImageAndLeavesNoUnfinishedOutput) {
    // Two images come through pipes that the test feeds, so both are
    // mid-run for certain when the signal comes; three more wait behind
    // them in the queue and are never started.
    Args args = Line("run invert @pipe1.hv @pipe2.hv");
    for (int i = 0; i < 3; ++i) {
        WriteFile(Path("queued" + std::to_string(i) + ".hv"), GreyImage(16, 16, i));
        args.push_back(Path("queued" + std::to_string(i) + ".hv"));
    }
    args.insert(args.end(), {"--out", Path("out"), "--jobs", "2"});
    Result r = RunInterrupted(args, {"pipe1.hv", "pipe2.hv"},
                              Layout{.width = 4096, .height = 4096, .parts = 1}, 512);
    EXPECT_EQ(r.status, 130) << r.err;
    for (const char *fifo : {"/pipe1.hv", "/pipe2.hv"})
        EXPECT_NE(
            r.err.find("interrupted: stopped between two chunks; " + Path("out") + fifo + " was not written"),
            std::string::npos)
            << r.err;
    EXPECT_NE(r.err.find("interrupted: 0 of 5 images were written in full"), std::string::npos) << r.err;
    EXPECT_TRUE(Names(Path("out")).empty()) << "nothing is left under either name";
}

} // namespace
