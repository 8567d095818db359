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

/* Every field of a record on one line ("-" for null), for one comparison. */
std::string Show(const HalvFuncDesc *d) {
    auto text = [](const char *t) { return std::string(t ? t : "-"); };
    auto words = [](char **array) {
        std::string out;
        for (const std::string &w : Strings(array))
            out += (out.empty() ? "" : ",") + w;
        return array ? out : "-";
    };
    std::string bits = d->bits ? "" : "-";
    for (size_t i = 0; d->bits != nullptr; ++i) {
        bits += (i ? "," : "") + std::to_string(d->bits[i]);
        if (d->bits[i] == -1)
            break;
    }
    return text(d->name) + " | " + text(d->init) + " | " + text(d->description) + " | " +
           text(d->documentation) + " | " + words(d->args) + " | " + words(d->tests) + " | " +
           words(d->formats) + " | " + bits + " | " + words(d->cspaces) + " | " + words(d->categories) +
           " | in " + std::to_string(d->inputs) + " out " + std::to_string(d->outputs) + " interleave " +
           std::to_string(d->interleave) + " sync " + std::to_string(d->synchronous);
}

} // namespace

TEST(ModulesFuncDesc, LinesLandByTheirRules) {
    const std::string blur =
        "[blur]\ninit: first!BlurInit\ninit: second!Other\n"
        "description: \"Blurs: gently.\"\ndescription: ignored\ndocumentation: long text\n"
        "arg: a1\narg: a2\narg: a3\narg: a4\narg: a5\ntest: t1\nformat: f1\nformat: f2\n"
        "bits: 1 2\nbitdepths: 8   16\ncspaces: rgb gray\ncategory: old\n"
        "categories: filter spatial\ninput: 3\ninput: 9\noutput: zero\n"
        "interleave: pixel frame\nsynchronous: no\nunknown: passed over\nInit: case matters\n";
    const std::string none = "- | - | - | - | - | - | - | ";
    const struct {
        std::string text, record;
    } cases[] = {
        {"", none + "- | - | - | in 1 out 1 interleave 15 sync 1"},
        {blur, "blur | first!BlurInit | Blurs: gently. | long text | a1,a2,a3,a4,a5 | t1 | f1,f2 | 8,16,-1 | "
               "rgb,gray | filter,spatial | in 3 out 0 interleave 6 sync 0"},
        // a second section ends the first
        {"[one]\ninput: 2\n[two]\ninput: 5\narg: late\n",
         "one | " + none + "- | - | in 2 out 1 interleave 15 sync 1"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.text);
        HalvFuncDesc *desc = Read(c.text);
        ASSERT_NE(desc, nullptr);
        EXPECT_EQ(Show(desc), c.record);
        if (desc->args != nullptr) {
            EXPECT_EQ(HalvGetArraySize(desc->args), 5u);
        }
        HalvFreeFuncDesc(desc);
    }

    HalvFuncDesc *fresh = HalvAllocFuncDesc();
    ASSERT_NE(fresh, nullptr);
    EXPECT_EQ(Show(fresh), none + "- | - | - | in 0 out 0 interleave 15 sync 1");
    // The smart-record slots are the library's own functions.
    auto *copy = static_cast<HalvFuncDesc *>(fresh->copy(fresh));
    ASSERT_NE(copy, nullptr);
    EXPECT_NE(copy, fresh);
    copy->free(copy);
    fresh->free(fresh);
    EXPECT_EQ(HalvReadFuncDesc(nullptr, nullptr), 0);
    HalvFreeFuncDesc(nullptr);
    EXPECT_EQ(HalvCopyFuncDesc(nullptr), nullptr);
}

TEST(ModulesFuncDesc, ConsecutiveReadsAndTruncatedOrHostileInput) {
    // Consecutive reads on one stream give consecutive descriptions; the
    // section that ended the first is used up.
    std::string text = "[one]\ninput: 2\n[two]\ninput: 5\n";
    HalvIO *io = HalvIO_Str(text.data(), (uint32_t)text.size());
    HalvFuncDesc *a = HalvAllocFuncDesc(), *b = HalvAllocFuncDesc();
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
    // Hostile lengths: cut by the buffers, never past them.
    HalvFuncDesc *big =
        Read("[" + std::string(3000, 'n') + "]\narg: " + std::string(9000, 'v') + "\ninput: 4\n");
    if (big != nullptr) {
        EXPECT_LT(std::strlen(big->name ? big->name : ""), 512u);
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
    setenv("HVTOP", dir.path().c_str(), 1);
    {
        modtest::Engine engine(dir.path());
        ASSERT_EQ(engine.started(), 1);
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
    }
    unsetenv("HVTOP");
}
