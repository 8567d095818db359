/*
 * Shared objects and retrieval texts, on real bundle files beside
 * this program.
 */
#include "modules/support.h"

#include <cstring>

using modtest::TempDir;

namespace {

using IntFn = int (*)(void);

const std::string kDir = HALV_TEST_BINARY_DIR;

/* The engine started with no registry file, so the cache's cleanup runs at
 * the end of each test. */
struct Started {
    TempDir dir;
    Started() {
        setenv("HV_DATA_PATH", dir.path().c_str(), 1);
        HalvernDisableRegistryLoad(1);
        EXPECT_EQ(HalvernInit(), 1);
    }
    ~Started() {
        EXPECT_EQ(HalvernAbsoluteEnd(), 1);
        HalvernDisableRegistryLoad(0);
        unsetenv("HV_DATA_PATH");
    }
};

int Call(void *fn) { return reinterpret_cast<IntFn>(fn)(); }

/* One of 32 and more spellings of the extra bundle's path, each its own
 * entry of the cache. */
std::string Spelling(int n, const char *step = "/.") {
    std::string path = kDir;
    for (int i = 0; i < n; ++i)
        path += step;
    return path + "/dpk_extra.so!extra_plain_symbol";
}

} // namespace

TEST(ModulesRetrieve, OpenCloseAndLookUp) {
    int marker = 0;
    void *handle = &marker;
    EXPECT_EQ(HalvDLOpen("nosuchbundle", &handle), 0);
    EXPECT_EQ(handle, nullptr);
    handle = static_cast<void *>(&marker);
    EXPECT_EQ(HalvDLOpen(std::string(1020, 'q').c_str(), &handle), 0);
    EXPECT_EQ(handle, static_cast<void *>(&marker)); /* too long: nothing stored */
    EXPECT_EQ(HalvDLOpen(nullptr, &handle), 0);

    ASSERT_EQ(HalvDLOpen("extra", &handle), 1);
    void *symbol = nullptr;
    EXPECT_EQ(HalvDLSymbolLookup(handle, "extra_plain_symbol", &symbol), 1);
    EXPECT_EQ(Call(symbol), 42);
    EXPECT_EQ(HalvDLSymbolLookup(handle, "missing_symbol", &symbol), -1);
    EXPECT_EQ(symbol, nullptr);
    symbol = handle;
    EXPECT_EQ(HalvDLSymbolLookup(nullptr, "extra_plain_symbol", &symbol), 0);
    EXPECT_EQ(symbol, handle);
    EXPECT_EQ(HalvDLClose(handle), 1);
    EXPECT_EQ(HalvDLClose(nullptr), 0);
}

TEST(ModulesRetrieve, RetrievalTextForms) {
    Started engine;
    const struct {
        std::string text;
        std::string library; /* the default library; none when empty */
        int result, value;   /* value: what the function found returns; 0: not called */
    } cases[] = {
        {"extra_plain_symbol", "extra", 1, 42}, /* a plain symbol: dpk_<default> first, */
        {"extra_plain_symbol", "dpk_extra", 1, 42},
        {"extra_plain_symbol", kDir + "/dpk_extra.so", 1, 42}, /* the default's plain name after */
        {"extra_underscored", "extra", 1, 7},                  /* only with an underscore in front */
        {"extra_plain_symbol", "", -1, 0},                     /* no default library: no load */
        {"dpk_extra!extra_plain_symbol", "", 1, 42},           /* lib!symbol, in the first of a list */
        {"dpk_halv,dpk_extra!extra_plain_symbol", "", 0, 0},
        {"dpk_extra,dpk_halv!extra_plain_symbol", "", 1, 42},
        /* the second fails at the '!': the default takes its place */
        {"dpk_extra,nosuchlib!extra_plain_symbol", "dpk_halv", 1, 42},
        {"dpk_extra,nosuchlib!extra_plain_symbol", "", -1, 0},
        {"nosuchlib,dpk_extra!extra_plain_symbol", "dpk_extra", -1, 0}, /* the first fails at a ',': over */
        {"nosuchlib!extra_plain_symbol", "dpk_extra", 1, 42}, /* one that doesn't load: the default */
        {kDir + "/dpk_extra.so!extra_plain_symbol", "", 1, 42},
        {"dpk_extra.so!extra_plain_symbol", "", 1, 42},
        {std::string(2000, 'L') + "!sym", "", -1, 0}, /* an over-long library name fails as a load */
        {"dpk_extra!" + std::string(3000, 's'), "", 0, 0},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.text.substr(0, 60) + " in " + c.library);
        void *fn = &engine;
        EXPECT_EQ(HalvRetrieveFunc(c.text.c_str(), c.library.empty() ? nullptr : c.library.c_str(), &fn),
                  c.result);
        if (c.result != 1) {
            EXPECT_EQ(fn, nullptr);
        } else {
            ASSERT_NE(fn, nullptr);
            EXPECT_EQ(Call(fn), c.value);
        }
    }
    void *fn = &engine;
    EXPECT_EQ(HalvRetrieveFunc("absent_symbol", "extra", &fn), 0) << "the library is there, the symbol isn't";
    EXPECT_EQ(fn, nullptr);
    EXPECT_EQ(HalvRetrieveFunc(nullptr, "halv", &fn), 0);
    HalvInitPoint init = nullptr;
    EXPECT_EQ(HalvRetrieveInit("HalvSampleCopyInit", &init), 1); /* default library halv */
    EXPECT_NE(init, nullptr);
    EXPECT_EQ(HalvRetrieveInit("HalvSampleCopyInit", nullptr), 0);
}

TEST(ModulesRetrieve, CacheHoldsThirtyTwoLibrariesAndIsEmptiedAtTheLastStop) {
    void *fn = nullptr;
    {
        Started engine;
        for (int n = 0; n < 32; ++n)
            ASSERT_EQ(HalvRetrieveFunc(Spelling(n).c_str(), nullptr, &fn), 1) << n;
        /* known names still resolve from the full table; the 33rd fails like a load */
        EXPECT_EQ(HalvRetrieveFunc(Spelling(5).c_str(), nullptr, &fn), 1);
        EXPECT_EQ(HalvRetrieveFunc(Spelling(32).c_str(), nullptr, &fn), -1);
        EXPECT_EQ(fn, nullptr);
    }
    for (int round = 0; round < 3; ++round) {
        Started engine; /* after each stop the table is free again: 32 fresh names fit */
        for (int n = 0; n < 32; ++n)
            ASSERT_EQ(HalvRetrieveFunc(Spelling(n, "/").c_str(), nullptr, &fn), 1)
                << "round " << round << " " << n;
    }
}
