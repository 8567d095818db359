/*
 * The sample bundle's functions, run on chunks of scanlines through their
 * init points as a host finds them: by name through the registry, and by a
 * description file's init retrieval text.
 */
#include "modules/support.h"

#include <cstring>

using modtest::Engine;
using modtest::TempDir;

namespace {

/* Starts the engine with only the sample bundle registered. */
struct SampleEngine {
    TempDir dir;
    Engine *engine = nullptr;
    SampleEngine() {
        dir.Write("hvregistry.dot", "[libraries]\nrequired: halv\n");
        engine = new Engine(dir.path());
    }
    ~SampleEngine() { delete engine; }
};

struct Outcome {
    int initResult = -9;
    int processResult = -9;
    std::vector<unsigned char> output;
    uint32_t lines = 0;
    uint32_t flags = 0;
    std::string error;
};

/* Inits function name with args, passes one chunk through, ends it. */
Outcome RunOnce(const char *name, intptr_t *args, std::vector<unsigned char> input, uint32_t lines, uint32_t flags = 0) {
    Outcome run;
    HalvState *state = nullptr;
    run.initResult = HalvCallInitByName(name, args, &state);
    if (state == nullptr)
        return run;
    if (run.initResult == 1) {
        HalvSetChunkFlags(state->inputChunks, 0, flags);
        void *out = nullptr;
        uint32_t bytes = 0;
        run.processResult = HalvProcessSISO(state, input.data(), (uint32_t)input.size(), lines, &out, &bytes,
                                            &run.lines);
        if (run.processResult == 1) {
            auto *p = static_cast<unsigned char *>(out);
            run.output.assign(p, p + bytes);
            HalvGetChunkFlags(state->outputChunks, 0, &run.flags);
        }
    }
    if (const char *message = HalvGetErrorMsg(state))
        run.error = message;
    EXPECT_EQ(HalvCallEnd(state), 1);
    return run;
}

std::vector<unsigned char> Samples16(std::initializer_list<uint16_t> values) {
    std::vector<unsigned char> bytes(values.size() * 2);
    size_t i = 0;
    for (uint16_t v : values)
        std::memcpy(&bytes[2 * i++], &v, 2);
    return bytes;
}

} // namespace

TEST(ModulesSample, EachFunctionOnEightBitChunks) {
    SampleEngine session;
    ASSERT_EQ(session.engine->started(), 1);
    const std::vector<unsigned char> input = {0, 1, 7, 100, 127, 128, 200, 255};
    int32_t bits8 = 8;
    double factor = 2.0;
    int32_t level = 128;

    intptr_t plain[4];
    HalvBuildArgs(plain, HALV_ARG_END);
    Outcome copy = RunOnce("copy", plain, input, 2, HALV_CHUNK_END);
    EXPECT_EQ(copy.initResult, 1);
    EXPECT_EQ(copy.processResult, 1);
    EXPECT_EQ(copy.output, input);
    EXPECT_EQ(copy.lines, 2u);
    EXPECT_EQ(copy.flags, HALV_CHUNK_END);

    intptr_t withBits[8];
    HalvBuildArgs(withBits, HALV_ARG("bits:i"), HALV_ARG(&bits8), HALV_ARG_NULL, HALV_ARG_END);
    Outcome invert = RunOnce("invert", withBits, input, 1);
    EXPECT_EQ(invert.output, (std::vector<unsigned char>{255, 254, 248, 155, 128, 127, 55, 0}));
    EXPECT_EQ(invert.flags, 0u);

    intptr_t gainArgs[8];
    HalvBuildArgs(gainArgs, HALV_ARG("factor:d"), HALV_ARG(&factor), HALV_ARG_NULL, HALV_ARG_END);
    EXPECT_EQ(RunOnce("gain", gainArgs, input, 1).output,
              (std::vector<unsigned char>{0, 2, 14, 200, 254, 255, 255, 255}));
    factor = 0.5; /* rounds half up */
    EXPECT_EQ(RunOnce("gain", gainArgs, input, 1).output,
              (std::vector<unsigned char>{0, 1, 4, 50, 64, 64, 100, 128}));

    intptr_t thresholdArgs[8];
    HalvBuildArgs(thresholdArgs, HALV_ARG("LEVEL:I"), HALV_ARG(&level), HALV_ARG_NULL, HALV_ARG_END);
    EXPECT_EQ(RunOnce("threshold", thresholdArgs, input, 1).output,
              (std::vector<unsigned char>{0, 0, 0, 0, 0, 255, 255, 255}));

    /* an empty end chunk passes through with its flag */
    Outcome empty = RunOnce("invert", plain, {}, 0, HALV_CHUNK_END);
    EXPECT_EQ(empty.processResult, 1);
    EXPECT_TRUE(empty.output.empty());
    EXPECT_EQ(empty.flags, HALV_CHUNK_END);
}

TEST(ModulesSample, EachFunctionOnSixteenBitChunksOverSeveralPasses) {
    SampleEngine session;
    ASSERT_EQ(session.engine->started(), 1);
    int32_t bits = 16;
    double factor = 3.0;
    int32_t level = 40000;

    intptr_t args[16];
    HalvBuildArgs(args, HALV_ARG("bits:i"), HALV_ARG(&bits), HALV_ARG_NULL, HALV_ARG("factor:d"), HALV_ARG(&factor),
                  HALV_ARG_NULL, HALV_ARG("level:i"), HALV_ARG(&level), HALV_ARG_NULL, HALV_ARG_END);
    auto input = Samples16({0, 1, 255, 256, 20000, 39999, 40000, 65535});
    EXPECT_EQ(RunOnce("copy", args, input, 1).output, input);
    EXPECT_EQ(RunOnce("invert", args, input, 1).output,
              Samples16({65535, 65534, 65280, 65279, 45535, 25536, 25535, 0}));
    EXPECT_EQ(RunOnce("gain", args, input, 1).output, Samples16({0, 3, 765, 768, 60000, 65535, 65535, 65535}));
    EXPECT_EQ(RunOnce("threshold", args, input, 1).output, Samples16({0, 0, 0, 0, 0, 0, 65535, 65535}));

    /* one state over several chunks of different sizes; the odd byte
     * offset shows samples needn't be aligned */
    HalvState *state = nullptr;
    ASSERT_EQ(HalvCallInitByName("invert", args, &state), 1);
    std::vector<unsigned char> storage(1 + 2 * 1000);
    for (uint32_t pass = 1; pass <= 3; ++pass) {
        uint32_t samples = pass * 300;
        for (uint32_t i = 0; i < samples; ++i) {
            uint16_t v = (uint16_t)(i * 211 + pass);
            std::memcpy(&storage[1 + 2 * i], &v, 2);
        }
        void *out = nullptr;
        uint32_t bytes = 0, lines = 0;
        ASSERT_EQ(HalvProcessSISO(state, &storage[1], samples * 2, pass, &out, &bytes, &lines), 1);
        ASSERT_EQ(bytes, samples * 2);
        EXPECT_EQ(lines, pass);
        for (uint32_t i = 0; i < samples; ++i) {
            uint16_t v;
            std::memcpy(&v, static_cast<unsigned char *>(out) + 2 * i, 2);
            ASSERT_EQ(v, (uint16_t)(65535 - (uint16_t)(i * 211 + pass))) << "pass " << pass << " sample " << i;
        }
    }
    EXPECT_EQ(HalvCallEnd(state), 1);
}

TEST(ModulesSample, BadArgumentsAndChunksAreReportedInTheState) {
    SampleEngine session;
    ASSERT_EQ(session.engine->started(), 1);
    int32_t bits = 12, bits16 = 16, level = 300, negativeLevel = -1;
    double negative = -1.0;

    intptr_t none[2];
    HalvBuildArgs(none, HALV_ARG_END);
    Outcome missingFactor = RunOnce("gain", none, {1}, 1);
    EXPECT_EQ(missingFactor.initResult, 0);
    EXPECT_NE(missingFactor.error.find("factor:d is required"), std::string::npos);
    Outcome missingLevel = RunOnce("threshold", none, {1}, 1);
    EXPECT_EQ(missingLevel.initResult, 0);
    EXPECT_NE(missingLevel.error.find("level:i is required"), std::string::npos);

    intptr_t args[8];
    HalvBuildArgs(args, HALV_ARG("bits:i"), HALV_ARG(&bits), HALV_ARG_NULL, HALV_ARG_END);
    Outcome badBits = RunOnce("copy", args, {1}, 1);
    EXPECT_EQ(badBits.initResult, 0);
    EXPECT_NE(badBits.error.find("bits must be 8 or 16, not 12"), std::string::npos);

    HalvBuildArgs(args, HALV_ARG("factor:d"), HALV_ARG(&negative), HALV_ARG_NULL, HALV_ARG_END);
    EXPECT_EQ(RunOnce("gain", args, {1}, 1).initResult, 0);
    HalvBuildArgs(args, HALV_ARG("level:i"), HALV_ARG(&level), HALV_ARG_NULL, HALV_ARG_END);
    Outcome highLevel = RunOnce("threshold", args, {1}, 1);
    EXPECT_EQ(highLevel.initResult, 0);
    EXPECT_NE(highLevel.error.find("level 300 is outside 0 to 255"), std::string::npos);
    HalvBuildArgs(args, HALV_ARG("level:i"), HALV_ARG(&negativeLevel), HALV_ARG_NULL, HALV_ARG_END);
    EXPECT_EQ(RunOnce("threshold", args, {1}, 1).initResult, 0);

    /* a 16-bit function refuses a chunk with half a sample */
    HalvBuildArgs(args, HALV_ARG("bits:i"), HALV_ARG(&bits16), HALV_ARG_NULL, HALV_ARG_END);
    Outcome odd = RunOnce("invert", args, {1, 2, 3}, 1);
    EXPECT_EQ(odd.initResult, 1);
    EXPECT_EQ(odd.processResult, 0);
    EXPECT_NE(odd.error.find("3 bytes"), std::string::npos);

    HalvState *state = nullptr;
    EXPECT_EQ(HalvCallInitByName("copy", nullptr, &state), 0);
    EXPECT_EQ(HalvCallInitByName("copy", none, nullptr), 0);
    EXPECT_EQ(HalvCallInitByName("sharpen", none, &state), 0);
    EXPECT_EQ(state, nullptr);
}

TEST(ModulesSample, DescriptionFileOfTheBundleLeadsToItsInitPoint) {
    SampleEngine session;
    ASSERT_EQ(session.engine->started(), 1);
    /* the bundle's own description file, as the build installs it */
    std::string source = std::string(HALV_TEST_SOURCE_DIR) + "/../plugins/halv/gain.dot";
    HalvIO *io = HalvIO_FileName(source.c_str(), "r");
    ASSERT_NE(io, nullptr);
    HalvFuncDesc *desc = HalvAllocFuncDesc();
    ASSERT_EQ(HalvReadFuncDesc(io, desc), 1);
    io->close(io);
    EXPECT_STREQ(desc->name, "gain");
    ASSERT_NE(desc->bits, nullptr);
    EXPECT_EQ(desc->bits[0], 8);
    EXPECT_EQ(desc->bits[1], 16);
    EXPECT_EQ(desc->bits[2], -1);
    EXPECT_EQ(desc->cspaces, nullptr);
    EXPECT_EQ(desc->interleave, HALV_INTERLEAVE_SCANLINE | HALV_INTERLEAVE_PIXEL);
    EXPECT_EQ(modtest::Strings(desc->args).size(), 2u);

    HalvInitPoint init = nullptr;
    ASSERT_EQ(HalvRetrieveInit(desc->init, &init), 1);
    double factor = 4.0;
    intptr_t args[8];
    HalvBuildArgs(args, HALV_ARG("factor:d"), HALV_ARG(&factor), HALV_ARG_NULL, HALV_ARG_END);
    HalvState *state = nullptr;
    ASSERT_EQ(HalvCallInit(init, args, &state), 1);
    unsigned char bytes[3] = {1, 60, 64};
    void *out = nullptr;
    uint32_t outBytes = 0, lines = 0;
    ASSERT_EQ(HalvProcessSISO(state, bytes, 3, 1, &out, &outBytes, &lines), 1);
    auto *result = static_cast<unsigned char *>(out);
    EXPECT_EQ(result[0], 4);
    EXPECT_EQ(result[1], 240);
    EXPECT_EQ(result[2], 255);
    EXPECT_EQ(HalvCallEnd(state), 1);
    HalvFreeFuncDesc(desc);
}

/* Chunks long enough for the wide loops, of lengths that leave tails: every
 * sample value, each inverted and each through gain, in both depths. */
TEST(ModulesSample, LongChunksMapEverySampleValue) {
    SampleEngine session;
    ASSERT_EQ(session.engine->started(), 1);
    int32_t bits8 = 8, bits16 = 16;
    double factor = 0.5;
    intptr_t args8[12], args16[12];
    HalvBuildArgs(args8, HALV_ARG("bits:i"), HALV_ARG(&bits8), HALV_ARG_NULL, HALV_ARG("factor:d"),
                  HALV_ARG(&factor), HALV_ARG_NULL, HALV_ARG_END);
    HalvBuildArgs(args16, HALV_ARG("bits:i"), HALV_ARG(&bits16), HALV_ARG_NULL, HALV_ARG("factor:d"),
                  HALV_ARG(&factor), HALV_ARG_NULL, HALV_ARG_END);
    std::vector<unsigned char> input8(256 * 3 + 13);
    for (size_t i = 0; i < input8.size(); ++i)
        input8[i] = static_cast<unsigned char>(i * 7 + i / 256);
    std::vector<unsigned char> inverted8(input8.size()), gained8(input8.size());
    for (size_t i = 0; i < input8.size(); ++i) {
        inverted8[i] = static_cast<unsigned char>(255 - input8[i]);
        gained8[i] = static_cast<unsigned char>((input8[i] + 1) / 2); /* floor(x * 0.5 + 0.5) */
    }
    EXPECT_EQ(RunOnce("invert", args8, input8, 1).output, inverted8);
    EXPECT_EQ(RunOnce("gain", args8, input8, 1).output, gained8);

    std::vector<unsigned char> input16(2 * (65536 + 5)), inverted16(input16.size()), gained16(input16.size());
    for (size_t i = 0; i < input16.size() / 2; ++i) {
        const auto sample = static_cast<uint16_t>(i * 40503u);
        const auto inverse = static_cast<uint16_t>(65535 - sample);
        const auto half = static_cast<uint16_t>((sample + 1) / 2);
        std::memcpy(&input16[2 * i], &sample, 2);
        std::memcpy(&inverted16[2 * i], &inverse, 2);
        std::memcpy(&gained16[2 * i], &half, 2);
    }
    EXPECT_EQ(RunOnce("invert", args16, input16, 1).output, inverted16);
    EXPECT_EQ(RunOnce("gain", args16, input16, 1).output, gained16);
}
