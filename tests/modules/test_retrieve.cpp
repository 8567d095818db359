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
    void *fn = nullptr;
    /* a plain symbol: dpk_<default> first */
    EXPECT_EQ(HalvRetrieveFunc("extra_plain_symbol", "extra", &fn), 1);
    EXPECT_EQ(Call(fn), 42);
    /* ... and the default under its plain name when that doesn't load */
    EXPECT_EQ(HalvRetrieveFunc("extra_plain_symbol", (kDir + "/dpk_extra.so").c_str(), &fn), 1);
    EXPECT_EQ(Call(fn), 42);
    EXPECT_EQ(HalvRetrieveFunc("extra_plain_symbol", "dpk_extra", &fn), 1);
    /* only with an underscore in front */
    EXPECT_EQ(HalvRetrieveFunc("extra_underscored", "extra", &fn), 1);
    EXPECT_EQ(Call(fn), 7);
    /* the library is there, the symbol isn't */
    fn = &engine;
    EXPECT_EQ(HalvRetrieveFunc("absent_symbol", "extra", &fn), 0);
    EXPECT_EQ(fn, nullptr);
    /* a plain symbol and no default library: nothing loaded */
    fn = &engine;
    EXPECT_EQ(HalvRetrieveFunc("extra_plain_symbol", nullptr, &fn), -1);
    EXPECT_EQ(fn, nullptr);

    /* lib!symbol, in the first library of a list */
    EXPECT_EQ(HalvRetrieveFunc("dpk_extra!extra_plain_symbol", nullptr, &fn), 1);
    EXPECT_EQ(HalvRetrieveFunc("dpk_halv,dpk_extra!extra_plain_symbol", nullptr, &fn), 0);
    EXPECT_EQ(HalvRetrieveFunc("dpk_extra,dpk_halv!extra_plain_symbol", nullptr, &fn), 1);
    /* the second fails at the '!': the default takes its place */
    EXPECT_EQ(HalvRetrieveFunc("dpk_extra,nosuchlib!extra_plain_symbol", "dpk_halv", &fn), 1);
    EXPECT_EQ(Call(fn), 42);
    EXPECT_EQ(HalvRetrieveFunc("dpk_extra,nosuchlib!extra_plain_symbol", nullptr, &fn), -1);
    /* the first fails at a ',': over, whatever the default */
    EXPECT_EQ(HalvRetrieveFunc("nosuchlib,dpk_extra!extra_plain_symbol", "dpk_extra", &fn), -1);
    /* one library that doesn't load: the default library answers */
    EXPECT_EQ(HalvRetrieveFunc("nosuchlib!extra_plain_symbol", "dpk_extra", &fn), 1);
    EXPECT_EQ(Call(fn), 42);
    /* a path as library name, and a name that already ends in .so */
    EXPECT_EQ(HalvRetrieveFunc((kDir + "/dpk_extra.so!extra_plain_symbol").c_str(), nullptr, &fn), 1);
    EXPECT_EQ(HalvRetrieveFunc("dpk_extra.so!extra_plain_symbol", nullptr, &fn), 1);
    /* an over-long library name fails as a load */
    EXPECT_EQ(HalvRetrieveFunc((std::string(2000, 'L') + "!sym").c_str(), nullptr, &fn), -1);
    EXPECT_EQ(HalvRetrieveFunc((std::string("dpk_extra!") + std::string(3000, 's')).c_str(), nullptr, &fn), 0);

    HalvInitPoint init = nullptr;
    EXPECT_EQ(HalvRetrieveInit("HalvSampleCopyInit", &init), 1); /* default library halv */
    EXPECT_NE(init, nullptr);
    EXPECT_EQ(HalvRetrieveInit("HalvSampleCopyInit", nullptr), 0);
    EXPECT_EQ(HalvRetrieveFunc(nullptr, "halv", &fn), 0);
}

TEST(ModulesRetrieve, CacheHoldsThirtyTwoLibraries) {
    Started engine;
    void *fn = nullptr;
    /* Distinct names of one file: each spelling is its own entry. */
    auto spelling = [](int n) {
        std::string path = kDir;
        for (int i = 0; i < n; ++i)
            path += "/.";
        return path + "/dpk_extra.so";
    };
    for (int n = 0; n < 32; ++n) {
        SCOPED_TRACE(n);
        ASSERT_EQ(HalvRetrieveFunc((spelling(n) + "!extra_plain_symbol").c_str(), nullptr, &fn), 1);
    }
    /* known names still resolve from the full table */
    EXPECT_EQ(HalvRetrieveFunc((spelling(5) + "!extra_plain_symbol").c_str(), nullptr, &fn), 1);
    /* the 33rd distinct name fails like a load */
    EXPECT_EQ(HalvRetrieveFunc((spelling(32) + "!extra_plain_symbol").c_str(), nullptr, &fn), -1);
    EXPECT_EQ(fn, nullptr);
}

TEST(ModulesRetrieve, CacheIsEmptiedAtTheLastStop) {
    void *fn = nullptr;
    for (int round = 0; round < 3; ++round) {
        Started engine;
        /* after each stop the table is free again: 32 fresh names fit */
        for (int n = 0; n < 32; ++n) {
            std::string path = kDir;
            for (int i = 0; i < n; ++i)
                path += "/";
            path += "/dpk_extra.so!extra_plain_symbol";
            ASSERT_EQ(HalvRetrieveFunc(path.c_str(), nullptr, &fn), 1) << "round " << round << " name " << n;
        }
    }
}
