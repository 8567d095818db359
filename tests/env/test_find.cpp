// HalvFindFile along a search path: the order of elements and suffixes,
// references in the path, absolute names, directories and network paths
// that don't count, and the traces of the debug switch.
#include <gtest/gtest.h>

#include <string>

#include "streams/file_fixture.h"

using namespace files_test;

namespace {

std::string Find(const char *name, const char *extension, const char *path) {
    char *found = HalvFindFile(name, extension, path);
    std::string result = found != nullptr ? found : "<null>";
    halv_internal_free(found);
    return result;
}

class Settings {
public:
    ~Settings() {
        for (const char *name : {"HV_OS", "HV_DATA_PATH", "HALV_FIND_A", "HALV_FIND_NET"})
            HalvSetenv(name, nullptr);
        if (chdir("/") != 0)
            std::perror("chdir");
    }
};

} // namespace

TEST(FindFile, AbsoluteNamesAsTheyAreAndElementsAndSuffixesInOrder) {
    EXPECT_EQ(Find("/no/such/file", "dot", nullptr), "/no/such/file");
    EXPECT_EQ(Find("/a\\b/c:d", nullptr, "/elsewhere"), "/a\\b/c:d");
    EXPECT_EQ(Find(nullptr, "dot", "."), "<null>");

    Settings restore;
    ScratchDir a, b;
    ASSERT_TRUE(WriteFile(b / "hvregistry.dot", "b"));
    std::string path = a.path() + "," + b.path();
    HalvSetenv("HV_OS", "");
    EXPECT_EQ(Find("hvregistry", "dot", path.c_str()), b / "hvregistry.dot");

    // The first element wins over a later one.
    ASSERT_TRUE(WriteFile(a / "hvregistry.dot", "a"));
    EXPECT_EQ(Find("hvregistry", "dot", path.c_str()), a / "hvregistry.dot");

    // With HV_OS set, the variant of the name comes first in each element,
    // but a plain name in an earlier element still beats a variant later.
    HalvSetenv("HV_OS", "linux");
    ASSERT_TRUE(WriteFile(b / "hvregistry.linux.dot", "b-linux"));
    EXPECT_EQ(Find("hvregistry", "dot", path.c_str()), a / "hvregistry.dot");
    ASSERT_TRUE(WriteFile(a / "hvregistry.linux.dot", "a-linux"));
    EXPECT_EQ(Find("hvregistry", "dot", path.c_str()), a / "hvregistry.linux.dot");

    // Without an extension, and with an empty one, the name ends there.
    ASSERT_TRUE(WriteFile(b / "plain", ""));
    ASSERT_TRUE(WriteFile(b / "plain.linux", ""));
    EXPECT_EQ(Find("plain", nullptr, path.c_str()), b / "plain.linux");
    HalvSetenv("HV_OS", nullptr);
    HalvSetenv("HV_OS", "");
    EXPECT_EQ(Find("plain", "", path.c_str()), b / "plain");
    EXPECT_EQ(Find("missing", "dot", path.c_str()), "<null>");
    // Empty elements stand for no directory: the name alone, here not found.
    EXPECT_EQ(Find("plain", nullptr, ",,"), "<null>");
}

TEST(FindFile, ReferencesDefaultsAndTheCurrentDirectory) {
    Settings restore;
    ScratchDir dir;
    ASSERT_EQ(mkdir((dir / "data").c_str(), 0755), 0);
    ASSERT_TRUE(WriteFile(dir / "data/palette.txt", ""));
    HalvSetenv("HV_OS", "");
    HalvSetenv("HALV_FIND_A", dir.path().c_str());
    EXPECT_EQ(Find("palette", "txt", "/nowhere,${HALV_FIND_A}/data"), dir / "data/palette.txt");
    // The name and the extension are expanded as well.
    EXPECT_EQ(Find("pal${HALV_UNSET_NAME}ette", "t${HALV_UNSET_NAME}xt", "${HALV_FIND_A}/data"),
              dir / "data/palette.txt");

    // A null path takes HV_DATA_PATH; set to "" the only candidate is the
    // name itself, relative to the current directory.
    ASSERT_EQ(chdir((dir / "data").c_str()), 0);
    HalvSetenv("HV_DATA_PATH", "");
    EXPECT_EQ(Find("palette", "txt", nullptr), "palette.txt");
    HalvSetenv("HV_DATA_PATH", "${HALV_FIND_A}/data");
    EXPECT_EQ(Find("palette", "txt", nullptr), dir / "data/palette.txt");

    // UTF-8 names are found as they are.
    const std::string name = "\xC3\xA9t\xC3\xA9_\xE5\x9B\xBE";
    ASSERT_TRUE(WriteFile(dir / "data/" + name + ".cfg", ""));
    EXPECT_EQ(Find(name.c_str(), "cfg", dir.path().c_str()), "<null>");
    EXPECT_EQ(Find(name.c_str(), "cfg", (dir / "data").c_str()), dir / "data/" + name + ".cfg");
}

TEST(FindFile, DirectoriesAndNetworkPathsDontCount) {
    Settings restore;
    ScratchDir a, b;
    HalvSetenv("HV_OS", "");
    ASSERT_EQ(mkdir((a / "thing.dot").c_str(), 0755), 0);
    ASSERT_TRUE(WriteFile(b / "thing.dot", ""));
    std::string path = a.path() + "," + b.path();
    EXPECT_EQ(Find("thing", "dot", path.c_str()), b / "thing.dot");

    // "//tmp/..." names the same file as "/tmp/...", but a candidate that
    // begins with two slashes is passed over.
    HalvSetenv("HALV_FIND_NET", ("/" + a.path()).c_str());
    ASSERT_TRUE(WriteFile(a / "net.dot", ""));
    EXPECT_EQ(Find("net", "dot", "${HALV_FIND_NET}"), "<null>");
    EXPECT_EQ(Find("net", "dot", "/"), "<null>");
    EXPECT_EQ(Find("net", "dot", ("${HALV_FIND_NET}," + a.path()).c_str()), a / "net.dot");

    // A URL element goes to the URL stream, which isn't linked in here.
    HalvSetenv("HALV_FIND_NET", "http://127.0.0.1:9");
    EXPECT_EQ(Find("net", "dot", "${HALV_FIND_NET}"), "<null>");
}

TEST(FindFile, DebugSwitchTracesEveryCandidate) {
    ScratchDir dir;
    ASSERT_TRUE(WriteFile(dir / "hit.dot", ""));
    const std::string traceFile = dir / "stderr.txt";
    std::string path = "/nowhere," + dir.path();
    // The search in a child whose standard error goes to the trace file.
    auto traced = [&](bool debug) {
        return RunInChild([&] {
            int out = open(traceFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
            if (out < 0 || dup2(out, 2) < 0)
                return Fail("redirect");
            if (debug)
                HalvSetenv("HVFINDFILE_DEBUG", "1");
            HalvSetenv("HV_OS", "os");
            HalvernDisableRegistryLoad(1);
            if (HalvernInit() != 1)
                return Fail("init");
            char *found = HalvFindFile("hit", "dot", path.c_str());
            halv_internal_free(found);
            HalvernEnd();
            return found != nullptr ? 0 : Fail("not found");
        });
    };
    ASSERT_EQ(traced(true), 0);
    std::string d = dir.path();
    EXPECT_EQ(ReadFile(traceFile), "HalvFindFile: checking </nowhere/hit.os.dot> -- (not)\n"
                                   "HalvFindFile: checking </nowhere/hit.dot> -- (not)\n"
                                   "HalvFindFile: checking <" + d + "/hit.os.dot> -- (not)\n"
                                   "HalvFindFile: checking <" + d + "/hit.dot> -- (found)\n");
    // Without the switch the search is silent.
    ASSERT_EQ(traced(false), 0);
    EXPECT_EQ(ReadFile(traceFile), "");
}
