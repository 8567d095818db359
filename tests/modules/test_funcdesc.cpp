/*
 * Function description records and their text form.
 */
#include "modules/support.h"

#include <cstring>

using modtest::Strings;
using modtest::TempDir;

namespace {

/* Reads text as a description; the record, or null when the read gave
 * anything but 1 (*result holds what it gave). */
HalvFuncDesc *Read(const std::string &text, int *result = nullptr) {
    std::vector<char> buffer(text.begin(), text.end());
    buffer.push_back('\0');
    HalvIO *io = HalvIO_Str(buffer.data(), (uint32_t)text.size());
    HalvFuncDesc *desc = HalvAllocFuncDesc();
    int got = HalvReadFuncDesc(io, desc);
    io->close(io);
    if (result != nullptr)
        *result = got;
    if (got != 1) {
        HalvFreeFuncDesc(desc);
        return nullptr;
    }
    return desc;
}

std::vector<int32_t> Bits(const int32_t *bits) {
    std::vector<int32_t> out;
    for (size_t i = 0; bits != nullptr; ++i) {
        out.push_back(bits[i]);
        if (bits[i] == -1)
            break;
    }
    return out;
}

} // namespace

TEST(ModulesFuncDesc, NewRecordAndEmptyRead) {
    HalvFuncDesc *fresh = HalvAllocFuncDesc();
    ASSERT_NE(fresh, nullptr);
    EXPECT_EQ(fresh->inputs, 0);
    EXPECT_EQ(fresh->outputs, 0);
    EXPECT_EQ(fresh->synchronous, 1);
    EXPECT_EQ(fresh->interleave, 15);
    EXPECT_EQ(fresh->name, nullptr);
    /* the smart-record slots are the library's own functions */
    auto *copy = static_cast<HalvFuncDesc *>(fresh->copy(fresh));
    ASSERT_NE(copy, nullptr);
    EXPECT_NE(copy, fresh);
    copy->free(copy);
    fresh->free(fresh);

    HalvFuncDesc *empty = Read("");
    ASSERT_NE(empty, nullptr);
    EXPECT_EQ(empty->inputs, 1);
    EXPECT_EQ(empty->outputs, 1);
    EXPECT_EQ(empty->synchronous, 1);
    EXPECT_EQ(empty->interleave, 15);
    EXPECT_EQ(empty->name, nullptr);
    HalvFreeFuncDesc(empty);

    EXPECT_EQ(HalvReadFuncDesc(nullptr, nullptr), 0);
    HalvFreeFuncDesc(nullptr);
    EXPECT_EQ(HalvCopyFuncDesc(nullptr), nullptr);
}

TEST(ModulesFuncDesc, LinesLandByTheirRules) {
    HalvFuncDesc *desc = Read("[blur]\n"
                              "init: first!BlurInit\ninit: second!Other\n"
                              "description: \"Blurs: gently.\"\ndescription: ignored\n"
                              "documentation: long text\n"
                              "arg: a1\narg: a2\narg: a3\narg: a4\narg: a5\n"
                              "test: t1\nformat: f1\nformat: f2\n"
                              "bits: 1 2\nbitdepths: 8   16\n"
                              "cspaces: rgb gray\n"
                              "category: old\ncategories: filter spatial\n"
                              "input: 3\ninput: 9\noutput: zero\n"
                              "interleave: pixel frame\n"
                              "synchronous: no\n"
                              "unknown: passed over\n"
                              "Init: case matters\n");
    ASSERT_NE(desc, nullptr);
    EXPECT_STREQ(desc->name, "blur");
    EXPECT_STREQ(desc->init, "first!BlurInit");
    EXPECT_STREQ(desc->description, "Blurs: gently.");
    EXPECT_STREQ(desc->documentation, "long text");
    EXPECT_EQ(Strings(desc->args), (std::vector<std::string>{"a1", "a2", "a3", "a4", "a5"}));
    EXPECT_EQ(HalvGetArraySize(desc->args), 5u);
    EXPECT_EQ(Strings(desc->tests), (std::vector<std::string>{"t1"}));
    EXPECT_EQ(Strings(desc->formats), (std::vector<std::string>{"f1", "f2"}));
    EXPECT_EQ(Bits(desc->bits), (std::vector<int32_t>{8, 16, -1}));
    EXPECT_EQ(Strings(desc->cspaces), (std::vector<std::string>{"rgb", "gray"}));
    EXPECT_EQ(Strings(desc->categories), (std::vector<std::string>{"filter", "spatial"}));
    EXPECT_EQ(desc->inputs, 3);
    EXPECT_EQ(desc->outputs, 0);
    EXPECT_EQ(desc->interleave, 6);
    EXPECT_EQ(desc->synchronous, 0);

    HalvFuncDesc *copy = HalvCopyFuncDesc(desc);
    ASSERT_NE(copy, nullptr);
    EXPECT_NE(copy->bits, desc->bits);
    EXPECT_EQ(Bits(copy->bits), (std::vector<int32_t>{8, 16, -1}));
    EXPECT_EQ(Strings(copy->args), Strings(desc->args));
    EXPECT_NE(copy->args, desc->args);
    EXPECT_STREQ(copy->documentation, "long text");
    EXPECT_EQ(copy->interleave, 6);
    EXPECT_EQ(copy->synchronous, 0);
    HalvFreeFuncDesc(desc);
    HalvFreeFuncDesc(copy);
}

TEST(ModulesFuncDesc, AnyWordsAndWordListEdges) {
    struct Case {
        const char *text;
        int32_t interleave;
        std::vector<int32_t> bits;
        bool cspacesNull;
        int synchronous;
    };
    const Case cases[] = {
        {"interleave: any\nbits: any\ncspace: anything\nsynchronous: true\n", 15, {}, true, 1},
        {"interleave: pixel mystery frame\nbits: 8 x\ncspaces: lab\nsynchronous: 1\n", 2, {8, 0, -1}, false, 1},
        {"interleave: compression scanline\nbits: 16\nsynchronous: nope\n", 9, {16, -1}, true, 0},
        {"interleave: \"  \"\nbits: \"  \"\ncspaces: rgb\ncspaces: any\nsynchronous: Yes\n", 15, {}, true, 1},
        {"bits: 8\nbits: any\ninterleave: weird\n", 0, {}, true, 1},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.text);
        HalvFuncDesc *desc = Read(c.text);
        ASSERT_NE(desc, nullptr);
        EXPECT_EQ(desc->interleave, c.interleave);
        EXPECT_EQ(Bits(desc->bits), c.bits);
        EXPECT_EQ(desc->cspaces == nullptr, c.cspacesNull);
        EXPECT_EQ(desc->synchronous, c.synchronous);
        EXPECT_EQ(desc->name, nullptr); /* no section: no name */
        HalvFreeFuncDesc(desc);
    }
}

TEST(ModulesFuncDesc, SecondSectionEndsAndTruncatedInputFails) {
    HalvFuncDesc *first = Read("[one]\ninput: 2\n[two]\ninput: 5\narg: late\n");
    ASSERT_NE(first, nullptr);
    EXPECT_STREQ(first->name, "one");
    EXPECT_EQ(first->inputs, 2);
    EXPECT_EQ(first->args, nullptr);
    HalvFreeFuncDesc(first);

    /* consecutive reads on one stream give consecutive descriptions; the
     * section that ended the first is used up */
    std::string text = "[one]\ninput: 2\n[two]\ninput: 5\n";
    HalvIO *io = HalvIO_Str(text.data(), (uint32_t)text.size());
    HalvFuncDesc *a = HalvAllocFuncDesc();
    HalvFuncDesc *b = HalvAllocFuncDesc();
    EXPECT_EQ(HalvReadFuncDesc(io, a), 1);
    EXPECT_EQ(HalvReadFuncDesc(io, b), 1);
    EXPECT_EQ(b->name, nullptr);
    EXPECT_EQ(b->inputs, 5);
    io->close(io);
    HalvFreeFuncDesc(a);
    HalvFreeFuncDesc(b);

    int result = -9;
    EXPECT_EQ(Read("[cut]\narg: a\narg:", &result), nullptr);
    EXPECT_EQ(result, 0);

    /* hostile lengths: cut by the buffers, never past them */
    std::string longName = "[" + std::string(3000, 'n') + "]\n";
    std::string longValue = "arg: " + std::string(9000, 'v') + "\ninput: 4\n";
    HalvFuncDesc *big = Read(longName + longValue, &result);
    if (big != nullptr) {
        if (big->name != nullptr) {
            EXPECT_LT(std::strlen(big->name), 512u);
        }
        for (const std::string &arg : Strings(big->args))
            EXPECT_LT(arg.size(), 2048u);
        HalvFreeFuncDesc(big);
    }
    std::string garbage;
    for (int i = 0; i < 2000; ++i)
        garbage += static_cast<char>((i * 73 + 11) % 256);
    HalvFuncDesc *noise = Read(garbage, &result);
    EXPECT_TRUE(result == 0 || result == 1);
    HalvFreeFuncDesc(noise);
}

TEST(ModulesFuncDesc, DescriptionFileIsFoundAlongItsPath) {
    TempDir dir;
    dir.Write("data/halv/warp.dot", "[warp]\ninit: warp!WarpInit\n");
    setenv("HV_DATA_PATH", dir.path().c_str(), 1);
    setenv("HVTOP", dir.path().c_str(), 1);
    ASSERT_EQ(HalvernInit(), 1);
    char *path = HalvFuncDescFileName("warp");
    ASSERT_NE(path, nullptr);
    EXPECT_EQ(std::string(path), dir.path() + "/data/halv/warp.dot");
    HalvIO *io = HalvIO_FileName(path, "r");
    ASSERT_NE(io, nullptr);
    HalvFuncDesc *desc = HalvAllocFuncDesc();
    EXPECT_EQ(HalvReadFuncDesc(io, desc), 1);
    EXPECT_STREQ(desc->init, "warp!WarpInit");
    io->close(io);
    HalvFreeFuncDesc(desc);
    halv_internal_free(path);
    EXPECT_EQ(HalvFuncDescFileName("no-such-description"), nullptr);
    EXPECT_EQ(HalvFuncDescFileName(nullptr), nullptr);
    EXPECT_EQ(HalvernAbsoluteEnd(), 1);
    unsetenv("HVTOP");
    unsetenv("HV_DATA_PATH");
}
