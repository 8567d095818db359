/*
 * The sample bundle's functions, run on chunks of scanlines through their
 * init points as a host finds them: by name through the registry, and by a
 * description file's init retrieval text.
 */
#include "modules/support.h"

#include <cctype>
#include <cstring>

using modtest::Registered;
using Bytes = std::vector<unsigned char>;

namespace {

const char kSampleOnly[] = "[libraries]\nrequired: halv\n";

/* An argument list of "key:type" and value pairs: doubles for :d, 32-bit
 * integers otherwise.  The list is built where it is used, so copies of a
 * row never point into each other. */
struct Args {
    std::vector<std::pair<const char *, double>> pairs;
    std::vector<int32_t> ints;
    std::vector<double> doubles;
    std::vector<intptr_t> list;
    Args(std::initializer_list<std::pair<const char *, double>> given = {}) : pairs(given) {}
    intptr_t *List() {
        ints.assign(pairs.size(), 0), doubles.assign(pairs.size(), 0), list.clear();
        for (size_t i = 0; i < pairs.size(); ++i) {
            const char *key = pairs[i].first;
            bool isDouble = std::tolower(key[std::strlen(key) - 1]) == 'd';
            ints[i] = (int32_t)pairs[i].second, doubles[i] = pairs[i].second;
            list.insert(list.end(),
                        {(intptr_t)key, isDouble ? (intptr_t)&doubles[i] : (intptr_t)&ints[i], 0});
        }
        list.push_back(HALV_ARG_END);
        return list.data();
    }
};

struct Outcome {
    int initResult = -9, processResult = -9;
    Bytes output;
    uint32_t lines = 0, flags = 0;
    std::string error;
};

/* Inits function name with args, passes one chunk through, ends it. */
Outcome RunOnce(const char *name, Args args, Bytes input, uint32_t lines = 1, uint32_t flags = 0) {
    Outcome run;
    HalvState *state = nullptr;
    run.initResult = HalvCallInitByName(name, args.List(), &state);
    if (state == nullptr)
        return run;
    if (run.initResult == 1) {
        HalvSetChunkFlags(state->inputChunks, 0, flags);
        void *out = nullptr;
        uint32_t bytes = 0;
        run.processResult =
            HalvProcessSISO(state, input.data(), (uint32_t)input.size(), lines, &out, &bytes, &run.lines);
        if (run.processResult == 1) {
            run.output.assign(static_cast<unsigned char *>(out), static_cast<unsigned char *>(out) + bytes);
            HalvGetChunkFlags(state->outputChunks, 0, &run.flags);
        }
    }
    if (const char *message = HalvGetErrorMsg(state))
        run.error = message;
    EXPECT_EQ(HalvCallEnd(state), 1);
    return run;
}

Bytes Samples16(const std::vector<uint16_t> &values) {
    Bytes bytes(values.size() * 2);
    std::memcpy(bytes.data(), values.data(), bytes.size());
    return bytes;
}

} // namespace

TEST(ModulesSample, EachFunctionOnChunksOfBothDepthsAndItsRefusals) {
    Registered session(kSampleOnly);
    ASSERT_EQ(session.started(), 1);
    const Bytes in8 = {0, 1, 7, 100, 127, 128, 200, 255};
    // Chunks long enough for the wide loops, of lengths that leave tails:
    // every sample value inverted and halved (floor(x * 0.5 + 0.5)).
    Bytes long8(256 * 3 + 13), inverted8(long8.size()), halved8(long8.size());
    for (size_t i = 0; i < long8.size(); ++i) {
        long8[i] = (unsigned char)(i * 7 + i / 256);
        inverted8[i] = (unsigned char)(255 - long8[i]);
        halved8[i] = (unsigned char)((long8[i] + 1) / 2);
    }
    std::vector<uint16_t> long16(65536 + 5), inverted16(long16.size()), halved16(long16.size());
    for (size_t i = 0; i < long16.size(); ++i) {
        long16[i] = (uint16_t)(i * 40503u);
        inverted16[i] = (uint16_t)(65535 - long16[i]);
        halved16[i] = (uint16_t)((long16[i] + 1) / 2);
    }
    struct Case {
        const char *name;
        Args args;
        Bytes input, expected;
        int init = 1, process = 1;
        std::string error = "";
    } cases[] = {
        // Each function on whole images of both depths is halvern's run test; here the edges.
        {"gain", {{"factor:d", 0.5}}, in8, {0, 1, 4, 50, 64, 64, 100, 128}}, // rounds half up
        {"threshold", {{"LEVEL:I", 128}}, in8, {0, 0, 0, 0, 0, 255, 255, 255}},
        {"invert", {{"bits:i", 8}, {"factor:d", 0.5}}, long8, inverted8},
        {"gain", {{"bits:i", 8}, {"factor:d", 0.5}}, long8, halved8},
        {"invert", {{"bits:i", 16}, {"factor:d", 0.5}}, Samples16(long16), Samples16(inverted16)},
        {"gain", {{"bits:i", 16}, {"factor:d", 0.5}}, Samples16(long16), Samples16(halved16)},
        {"gain", {}, {1}, {}, 0, -9, "factor:d is required"},
        {"threshold", {}, {1}, {}, 0, -9, "level:i is required"},
        {"copy", {{"bits:i", 12}}, {1}, {}, 0, -9, "bits must be 8 or 16, not 12"},
        {"gain", {{"factor:d", -1}}, {1}, {}, 0, -9},
        {"threshold", {{"level:i", 300}}, {1}, {}, 0, -9, "level 300 is outside 0 to 255"},
        {"threshold", {{"level:i", -1}}, {1}, {}, 0, -9},
        {"invert", {{"bits:i", 16}}, {1, 2, 3}, {}, 1, 0, "3 bytes"}, // half a sample
    };
    for (Case &c : cases) {
        SCOPED_TRACE(std::string(c.name) + " of " + std::to_string(c.input.size()) + " bytes, " +
                     (c.args.pairs.empty() ? "" : c.args.pairs[0].first));
        Outcome run = RunOnce(c.name, c.args, c.input);
        EXPECT_EQ(run.initResult, c.init);
        EXPECT_EQ(run.processResult, c.process);
        EXPECT_TRUE(run.output == c.expected);
        EXPECT_NE(run.error.find(c.error), std::string::npos) << run.error;
    }
    // The lines and the end flag travel with the chunk, an empty one too.
    Outcome copy = RunOnce("copy", {}, in8, 2, HALV_CHUNK_END);
    EXPECT_EQ(copy.output, in8);
    EXPECT_EQ(copy.lines, 2u);
    EXPECT_EQ(copy.flags, HALV_CHUNK_END);
    EXPECT_EQ(RunOnce("invert", {}, in8).flags, 0u);
    Outcome empty = RunOnce("invert", {}, {}, 0, HALV_CHUNK_END);
    EXPECT_EQ(empty.processResult, 1);
    EXPECT_TRUE(empty.output.empty());
    EXPECT_EQ(empty.flags, HALV_CHUNK_END);

    HalvState *state = nullptr;
    Args none;
    EXPECT_EQ(HalvCallInitByName("copy", nullptr, &state), 0);
    EXPECT_EQ(HalvCallInitByName("copy", none.List(), nullptr), 0);
    EXPECT_EQ(HalvCallInitByName("sharpen", none.List(), &state), 0);
    EXPECT_EQ(state, nullptr);
}

TEST(ModulesSample, OneStateOverSeveralUnalignedChunks) {
    Registered session(kSampleOnly);
    ASSERT_EQ(session.started(), 1);
    Args args = {{"bits:i", 16}};
    HalvState *state = nullptr;
    ASSERT_EQ(HalvCallInitByName("invert", args.List(), &state), 1);
    Bytes storage(1 + 2 * 1000); // from an odd byte: samples needn't be aligned
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
            ASSERT_EQ(v, (uint16_t)(65535 - (uint16_t)(i * 211 + pass)))
                << "pass " << pass << " sample " << i;
        }
    }
    EXPECT_EQ(HalvCallEnd(state), 1);
}

TEST(ModulesSample, DescriptionFileOfTheBundleLeadsToItsInitPoint) {
    Registered session(kSampleOnly);
    ASSERT_EQ(session.started(), 1);
    // The bundle's own description file, as the build installs it.
    std::string source = std::string(HALV_TEST_SOURCE_DIR) + "/../plugins/halv/gain.dot";
    HalvIO *io = HalvIO_FileName(source.c_str(), "r");
    ASSERT_NE(io, nullptr);
    HalvFuncDesc *desc = HalvAllocFuncDesc();
    ASSERT_EQ(HalvReadFuncDesc(io, desc), 1);
    io->close(io);
    EXPECT_STREQ(desc->name, "gain");
    ASSERT_NE(desc->bits, nullptr);
    EXPECT_EQ(std::vector<int32_t>(desc->bits, desc->bits + 3), (std::vector<int32_t>{8, 16, -1}));
    EXPECT_EQ(desc->cspaces, nullptr);
    EXPECT_EQ(desc->interleave, HALV_INTERLEAVE_SCANLINE | HALV_INTERLEAVE_PIXEL);
    EXPECT_EQ(modtest::Strings(desc->args).size(), 2u);

    HalvInitPoint init = nullptr;
    ASSERT_EQ(HalvRetrieveInit(desc->init, &init), 1);
    HalvFreeFuncDesc(desc);
    Args args = {{"factor:d", 4}};
    HalvState *state = nullptr;
    ASSERT_EQ(HalvCallInit(init, args.List(), &state), 1);
    unsigned char bytes[3] = {1, 60, 64};
    void *out = nullptr;
    uint32_t outBytes = 0, lines = 0;
    ASSERT_EQ(HalvProcessSISO(state, bytes, 3, 1, &out, &outBytes, &lines), 1);
    EXPECT_EQ(Bytes(static_cast<unsigned char *>(out), static_cast<unsigned char *>(out) + 3),
              (Bytes{4, 240, 255}));
    EXPECT_EQ(HalvCallEnd(state), 1);
}
