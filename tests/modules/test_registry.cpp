/*
 * The registry file and the library list, with real bundles: the sample
 * bundle dpk_halv, a second good bundle and broken ones, all beside this
 * program.
 */
#include "modules/support.h"

#include <sys/stat.h>

#include <cstring>
#include <fstream>

#include "streams/file_fixture.h"

using modtest::AllNames;
using modtest::Engine;
using modtest::Names;
using modtest::Registered;
using modtest::Strings;
using modtest::TempDir;
using Texts = std::vector<std::string>;

namespace {

const Texts kHalvFunctions = {"copy", "invert", "gain", "threshold"};
const Texts kExtraFunctions = {"describe-only", "fill"};

/* Debug text collected through the logging callback. */
std::string traces;

void Collect(const char *text, int kind, intptr_t) {
    if (kind == HALV_LOG_DEBUG)
        traces += text;
}

struct TraceCapture {
    TraceCapture() {
        traces.clear();
        HalvSetLoggingCallback(Collect, 0);
        HalvSetDebug(1);
    }
    ~TraceCapture() {
        HalvSetDebug(0);
        HalvSetLoggingCallback(nullptr, 0);
    }
};

} // namespace

TEST(ModulesRegistry, RegistryFileLoadsTheSampleBundleAndDescribesIt) {
    Registered session("# the sample bundle\n[libraries]\nrequired: halv\n");
    ASSERT_EQ(session.started(), 1);
    HalvFuncDesc **all = nullptr;
    ASSERT_EQ(HalvFindAllFuncDesc(&all), 1);
    EXPECT_EQ(Names(all), kHalvFunctions);
    for (uint32_t i = 0; all[i] != nullptr; ++i) {
        SCOPED_TRACE(all[i]->name);
        EXPECT_EQ(all[i]->inputs, 1);
        EXPECT_EQ(all[i]->outputs, 1);
        EXPECT_NE(all[i]->initPoint, nullptr);
        EXPECT_NE(all[i]->description, nullptr);
        EXPECT_NE(all[i]->documentation, nullptr);
        EXPECT_FALSE(Strings(all[i]->args).empty());
        EXPECT_FALSE(Strings(all[i]->categories).empty());
        EXPECT_FALSE(Strings(all[i]->formats).empty());
        /* fields a module doesn't give keep the defaults of a new record */
        EXPECT_EQ(all[i]->init, nullptr);
        EXPECT_EQ(all[i]->bits, nullptr);
        EXPECT_EQ(all[i]->synchronous, 1);
        EXPECT_EQ(all[i]->interleave, 15);
        EXPECT_NE(all[i]->copy, nullptr);
    }
    EXPECT_EQ(Strings(all[2]->args)[0].rfind("factor:d", 0), 0u);
    HalvFreeSmartArray(all);
    HalvFuncDesc *desc = HalvAllocFuncDesc();
    ASSERT_EQ(HalvFindAndReadFuncDesc("threshold", desc), 1);
    EXPECT_STREQ(desc->name, "threshold");
    EXPECT_EQ(Strings(desc->categories), (Texts{"point", "tone"}));
    HalvFreeFuncDesc(desc);
}

TEST(ModulesRegistry, SectionsAndLabelsIgnoreCaseAndVariablesComeFirst) {
    Registered session("stray: before any section\n[Variables]\nHALV_TEST_BUNDLE_NAME: extra\n"
                       "[elsewhere]\nrequired: nosuchbundle\n"
                       "[LIBRARIES]\nOPTIONAL: extra\nRequired: halv\nsomething: else\n");
    ASSERT_EQ(session.started(), 1);
    EXPECT_STREQ(HalvGetenv("HALV_TEST_BUNDLE_NAME"), "extra");
    HalvFuncDesc **all = nullptr;
    ASSERT_EQ(HalvFindAllFuncDesc(&all), 1);
    /* newest first: halv was registered after extra; "ghost" is listed by
     * extra but not given, so it is left out */
    EXPECT_EQ(Names(all), (Texts{"copy", "invert", "gain", "threshold", "describe-only", "fill"}));
    EXPECT_EQ(all[4]->inputs, 2);
    EXPECT_EQ(all[4]->outputs, 0);
    EXPECT_EQ(all[4]->initPoint, nullptr);
    EXPECT_EQ(all[4]->documentation, nullptr);
    EXPECT_EQ(all[4]->args, nullptr);
    HalvFreeSmartArray(all);

    /* a module without an init point gives none by name */
    HalvInitPoint init = reinterpret_cast<HalvInitPoint>(&traces);
    for (const char *none : {"describe-only", "ghost", "no-such-function"})
        EXPECT_EQ(HalvLoadInitPointByName(none, &init), 0) << none;
    EXPECT_EQ(init, reinterpret_cast<HalvInitPoint>(&traces));
    EXPECT_EQ(HalvLoadInitPointByName("invert", &init), 1);
    EXPECT_NE(init, nullptr);

    /* the other bundle's function runs by name */
    unsigned char bytes[5] = {1, 2, 3, 4, 5};
    int32_t value = 0x5A;
    intptr_t args[8];
    HalvBuildArgs(args, HALV_ARG("value:i"), HALV_ARG(&value), HALV_ARG_NULL, HALV_ARG_END);
    HalvState *state = nullptr;
    ASSERT_EQ(HalvCallInitByName("fill", args, &state), 1);
    void *out = nullptr;
    uint32_t outBytes = 0, outLines = 0;
    ASSERT_EQ(HalvProcessSISO(state, bytes, 5, 1, &out, &outBytes, &outLines), 1);
    EXPECT_EQ(outBytes, 5u);
    EXPECT_EQ(std::string((char *)bytes, 5), std::string(5, 0x5A));
    EXPECT_EQ(HalvCallEnd(state), 1);
}

TEST(ModulesRegistry, StartUpWithMissingBrokenAndMalformedEntries) {
    struct Case {
        const char *registry; /* null: no registry file at all */
        int started;
        Texts traces, names;
    } cases[] = {
        /* a required bundle that isn't there fails start-up; earlier ones stay */
        {"[libraries]\nrequired: extra\nrequired: nosuchbundle\noptional: halv\n", 0,
         {"Failed to open shared library<nosuchbundle>.\n",
          "Failed to register the library<nosuchbundle>.\n"},
         kExtraFunctions},
        /* optional bundles that are missing or broken are passed over */
        {"[libraries]\noptional: nosuchbundle\noptional: oldmajor\noptional: nolist\nrequired: halv\n", 1,
         {"Library bundle 'oldmajor' opened with a different Halvern major version 2.",
          "Registered the library halv with a version of 3.8.0 and timestamp of"},
         kHalvFunctions},
        {"[libraries]\nrequired: oldmajor\n", 0, {}, {}},
        {"[libraries]\nrequired: nolist\n", 0, {}, {}},
        /* without a registry file the halv bundle is optional */
        {nullptr, 1, {"No registry file found, using default of halv.\n"}, kHalvFunctions},
        {"", 1, {}, {}}, /* empty, but there: no default bundle */
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.registry ? c.registry : "(no registry file)");
        TempDir dir;
        if (c.registry != nullptr)
            dir.Write("hvregistry.dot", c.registry);
        TraceCapture capture;
        Engine engine(dir.path());
        EXPECT_EQ(engine.started(), c.started);
        for (const std::string &trace : c.traces)
            EXPECT_NE(traces.find(trace), std::string::npos) << trace;
        EXPECT_EQ(AllNames(), c.names);
    }
    /* a bundle name far past any buffer: refused, not a crash */
    Registered hostile("[libraries]\noptional: " + std::string(5000, 'x') +
                       "\nrequired: " + std::string(60, 'y'));
    EXPECT_EQ(hostile.started(), 0);
    /* a failed start is a start all the same: one end pass stops it, and a
     * new first start reads the registry again */
    EXPECT_EQ(HalvernEnd(), 1);
    EXPECT_EQ(HalvernInit(), 0);
}

TEST(ModulesRegistry, SameBundleTwiceIsOneLibraryWithTwoRegistrations) {
    Registered session("[libraries]\nrequired: extra\noptional: extra\n");
    ASSERT_EQ(session.started(), 1);
    HalvLibrary *library = nullptr;
    ASSERT_EQ(HalvRegisterLibrary("extra", &library), 1);
    EXPECT_EQ(library->refCount, 3u);
    const HalvBundleVersion *version = HalvGetLibraryVersion(library);
    ASSERT_NE(version, nullptr);
    EXPECT_EQ(version->major, 3);
    EXPECT_STREQ(version->version, "1.2.3");
    HalvFuncDesc **mine = nullptr;
    ASSERT_EQ(HalvGetAllLibraryFuncDesc(library, &mine), 1);
    EXPECT_EQ(Names(mine), kExtraFunctions);
    HalvFreeSmartArray(mine);
    EXPECT_EQ(HalvUnregisterLibrary(library), 1);
    EXPECT_EQ(library->refCount, 2u);
    EXPECT_EQ(HalvUnregisterLibrary(nullptr), 0);
    HalvLibrary stranger = {};
    EXPECT_EQ(HalvUnregisterLibrary(&stranger), 0);
    EXPECT_EQ(HalvGetLibraryVersion(nullptr), nullptr);
    EXPECT_EQ(HalvGetAllLibraryFuncDesc(nullptr, &mine), 0);
}

TEST(ModulesRegistry, HostRegistrationsAndRefusals) {
    Registered session("[libraries]\n");
    ASSERT_EQ(session.started(), 1);
    HalvLibrary *library = reinterpret_cast<HalvLibrary *>(&traces);
    EXPECT_EQ(HalvRegisterLibrary("nosuchbundle", &library), -1);
    EXPECT_EQ(library, nullptr);
    for (const std::string &broken : {std::string("oldmajor"), std::string("nolist"), std::string(40, 'z')})
        EXPECT_EQ(HalvRegisterLibrary(broken.c_str(), &library), -1) << broken;
    EXPECT_EQ(HalvRegisterLibrary(nullptr, &library), 0);
    EXPECT_EQ(HalvRegisterLibrary("halv", nullptr), 0);

    HalvFuncDesc *desc = HalvAllocFuncDesc();
    desc->inputs = 77;
    EXPECT_EQ(HalvFindAndReadFuncDesc("copy", desc), -1); /* nothing registered yet */
    EXPECT_EQ(desc->inputs, 77);
    EXPECT_EQ(desc->name, nullptr);
    ASSERT_EQ(HalvRegisterLibrary("halv", &library), 1);
    EXPECT_EQ(library->refCount, 1u);
    EXPECT_EQ(HalvFindAndReadFuncDesc("copy", desc), 1);
    EXPECT_EQ(desc->inputs, 1);
    EXPECT_STREQ(desc->name, "copy");
    EXPECT_EQ(HalvFindAndReadFuncDesc("gain", desc), 1); /* refilled, the old texts released */
    EXPECT_STREQ(desc->name, "gain");
    HalvFreeFuncDesc(desc);

    EXPECT_EQ(HalvUnregisterLibrary(library), 1);
    EXPECT_EQ(HalvUnregisterLibrary(library), 0); /* gone from the list */
    EXPECT_TRUE(AllNames().empty());
    EXPECT_EQ(HalvFindAllFuncDesc(nullptr), 0);
    HalvState *state = nullptr;
    intptr_t args[1] = {HALV_ARG_END};
    EXPECT_EQ(HalvCallInitByName("copy", args, &state), 0);
    EXPECT_EQ(state, nullptr);
}

TEST(ModulesRegistry, StartUpReportTellsEveryBundlesOutcomeWithoutDebugging) {
    /* A file that starts like a 32-bit shared object, which this 64-bit
     * process's loader must refuse by its class. */
    const std::string elf32 = std::string(HALV_TEST_BINARY_DIR) + "/dpk_elf32.so";
    std::string bytes(256, '\0');
    const unsigned char ident[] = {0x7f, 'E', 'L', 'F', 1 /* 32-bit */, 1, 1};
    std::memcpy(bytes.data(), ident, sizeof ident);
    bytes[16] = 3; /* ET_DYN */
    bytes[18] = 3; /* i386 */
    bytes[20] = 1;
    std::ofstream(elf32, std::ios::binary) << bytes;
    ASSERT_EQ(HalvGetRegistryReport(), nullptr) << "no report before the first start";
    {
        Registered session("[libraries]\noptional: nosuchbundle\noptional: oldmajor\noptional: nolist\n"
                           "optional: unresolved\noptional: elf32\nrequired: halv\n");
        ASSERT_EQ(session.started(), 1);
        HalvRegistryReport *report = HalvGetRegistryReport();
        ASSERT_NE(report, nullptr);
        EXPECT_EQ(report->state, HALV_REGISTRY_READ);
        ASSERT_NE(report->path, nullptr);
        EXPECT_EQ(std::string(report->path), session.dir.path() + "/hvregistry.dot");
        EXPECT_EQ(report->problems, nullptr);
        ASSERT_EQ(report->bundleCount, 6u);
        const char *expected[][2] = {
            {"nosuchbundle",
             "dpk_nosuchbundle.so: cannot open shared object file: No such file or directory"},
            {"oldmajor", "built for major version 2; this engine takes 3"},
            {"nolist", "lacks the entry point HalvernBundleGetList_nolist"},
            {"unresolved", "undefined symbol: HalvNoSuchFunction"},
            {"elf32", "wrong ELF class: ELFCLASS32"},
        };
        for (size_t i = 0; i < 5; ++i) {
            SCOPED_TRACE(expected[i][0]);
            const HalvBundleReport &b = report->bundles[i];
            EXPECT_STREQ(b.name, expected[i][0]);
            EXPECT_EQ(b.loaded, 0);
            EXPECT_EQ(b.optional, 1);
            std::string reason = b.reason ? b.reason : "";
            EXPECT_NE(reason.find(expected[i][1]), std::string::npos) << reason;
            EXPECT_EQ(reason.find('\n'), std::string::npos);
        }
        const HalvBundleReport &halv = report->bundles[5];
        EXPECT_STREQ(halv.name, "halv");
        EXPECT_EQ(halv.loaded, 1);
        EXPECT_EQ(halv.optional, 0);
        EXPECT_EQ(std::string(halv.path ? halv.path : ""),
                  std::string(HALV_TEST_BINARY_DIR) + "/dpk_halv.so");
        EXPECT_STREQ(halv.version, "3.8.0");
        EXPECT_EQ(halv.reason, nullptr);
        halv_internal_free(report);
    }
    EXPECT_EQ(HalvGetRegistryReport(), nullptr) << "the report goes with the last end";
    std::remove(elf32.c_str());
}

TEST(ModulesRegistry, StartUpReportOfFailedStartsAndOfTheRegistryFileItself) {
    {
        SCOPED_TRACE("a required bundle that fails: the start fails, the report says which and why");
        Registered session("[libraries]\nrequired: oldmajor\n");
        ASSERT_EQ(session.started(), 0);
        HalvRegistryReport *report = HalvGetRegistryReport();
        ASSERT_NE(report, nullptr);
        ASSERT_EQ(report->bundleCount, 1u);
        EXPECT_STREQ(report->bundles[0].name, "oldmajor");
        EXPECT_EQ(report->bundles[0].optional, 0);
        EXPECT_EQ(report->bundles[0].loaded, 0);
        EXPECT_EQ(report->bundles[0].path, nullptr);
        halv_internal_free(report);
    }
    {
        SCOPED_TRACE("no registry file: the default bundle, optional");
        TempDir dir;
        Engine engine(dir.path());
        HalvRegistryReport *report = HalvGetRegistryReport();
        ASSERT_NE(report, nullptr);
        EXPECT_EQ(report->state, HALV_REGISTRY_DEFAULT);
        EXPECT_EQ(report->path, nullptr);
        ASSERT_EQ(report->bundleCount, 1u);
        EXPECT_STREQ(report->bundles[0].name, "halv");
        EXPECT_EQ(report->bundles[0].optional, 1);
        EXPECT_EQ(report->bundles[0].loaded, 1);
        halv_internal_free(report);
    }
    {
        SCOPED_TRACE("skipped text is reported line by line, the first eight of it");
        std::string text =
            "before: all\n[libraries]\nhalv\nmaybe: halv\n[colours]\nred: 1\n[variables]\n\"loose\"\n";
        for (int i = 0; i < 9; ++i)
            text += "[libraries]\nstray" + std::to_string(i) + "\n";
        Registered session(text + "[libraries]\nrequired:");
        EXPECT_EQ(session.started(), 1);
        HalvRegistryReport *report = HalvGetRegistryReport();
        ASSERT_NE(report, nullptr);
        EXPECT_EQ(report->state, HALV_REGISTRY_READ);
        ASSERT_NE(report->problems, nullptr);
        EXPECT_EQ(std::string(report->problems),
                  "\"before: all\" before the first section; skipped\n"
                  "[libraries]: \"halv\" is not a \"label: value\" line; skipped\n"
                  "[libraries]: \"maybe:\" is neither required: nor optional:; skipped\n"
                  "[colours] is not a section the registry knows (libraries, variables); skipped\n"
                  "[variables]: \"loose\" is not a \"label: value\" line; skipped\n"
                  "[libraries]: \"stray0\" is not a \"label: value\" line; skipped\n"
                  "[libraries]: \"stray1\" is not a \"label: value\" line; skipped\n"
                  "[libraries]: \"stray2\" is not a \"label: value\" line; skipped\n"
                  "... and 7 more\n");
        EXPECT_EQ(report->bundleCount, 0u);
        halv_internal_free(report);
    }
    {
        SCOPED_TRACE("a registry file that can't be read fails the start and says why");
        TempDir dir;
        dir.Write("hvregistry.dot", "[libraries]\nrequired: halv\n");
        ASSERT_EQ(chmod((dir.path() + "/hvregistry.dot").c_str(), 0), 0);
        ASSERT_EQ(chmod(dir.path().c_str(), 0755), 0); /* nobody may look in, not read the file */
        int code = files_test::RunInChild([&] {
            if (!files_test::BecomeNobody())
                return files_test::Fail("can't become nobody");
            Engine engine(dir.path());
            HalvRegistryReport *report = HalvGetRegistryReport();
            bool ok = engine.started() == 0 && report != nullptr &&
                      report->state == HALV_REGISTRY_UNREADABLE && report->path != nullptr &&
                      report->bundleCount == 0 &&
                      std::string(report->problems ? report->problems : "") ==
                          "it can't be opened: Permission denied\n";
            halv_internal_free(report);
            return ok ? 0 : files_test::Fail("the report of an unreadable registry file is wrong");
        });
        EXPECT_EQ(code, 0);
    }
}
