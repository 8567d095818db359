// The release directory that HV_RELEASE falls back on, derived from where the
// executable lies: copies of tests/env/env_probe are run from directories of
// a temporary release tree.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "env/probe_runner.h"

namespace fs = std::filesystem;

namespace {

using Lines = std::vector<std::string>;

// Copies the probe into root/directory and returns the copy's path.
std::string PlaceProbe(const std::string &root, const std::string &directory) {
    fs::path target = fs::path(root) / directory;
    fs::create_directories(target);
    fs::path copy = target / "env_probe";
    fs::copy_file(probe::ProbePath(), copy, fs::copy_options::overwrite_existing);
    fs::permissions(copy, fs::perms::owner_all, fs::perm_options::add);
    return copy.string();
}

probe::Result RunAt(const std::string &exe, const Lines &args, const Lines &environment = {}) {
    probe::Result result = probe::Run(exe, args, environment);
    EXPECT_FALSE(result.timedOut);
    EXPECT_EQ(result.exitCode, 0) << exe << ": " << result.err;
    return result;
}

} // namespace

TEST(EnvRelease, DerivedFromTheExecutablesDirectory) {
    probe::TempDir temp;
    ASSERT_FALSE(temp.path().empty());
    const std::string root = fs::canonical(temp.path()).string();
    const struct {
        const char *directory;
        const char *release;
    } cases[] = {
        {"R/bin", "R"},         {"R/lib", "R"},           {"R/output", "R"},
        {"R/tools", "R"},       {"R/bin/x", "R"},         {"R/lib/x", "R"},
        {"R/output/x", "R"},    {"R/bin/bin", "R"},       {"R/x/y", "R/x"},
        {"R/lib64/x", "R/lib64"}, {"R/Bin/x", "R/Bin"},   {"R/binary/x", "R/binary"},
        {"R/x/bin", "R/x"},     {"R/outputs/x", "R/outputs"},
    };
    for (const auto &c : cases) {
        const std::string exe = PlaceProbe(root, c.directory);
        auto r = RunAt(exe, {"exepath", "get", "HV_RELEASE", "get", "KOVTOP", "get", "KOV_RELEASE"});
        const std::string release = root + "/" + c.release;
        EXPECT_EQ(r.lines, (Lines{"exepath=" + root + "/" + c.directory, "HV_RELEASE=" + release,
                                  "KOVTOP=" + release, "KOV_RELEASE=" + release}))
            << c.directory;
    }

    // An executable right in the temporary directory: its parent is the release.
    const std::string exe = PlaceProbe(root, ".");
    auto r = RunAt(exe, {"exepath", "get", "HV_RELEASE"});
    EXPECT_EQ(r.lines, (Lines{"exepath=" + root, "HV_RELEASE=" + fs::path(root).parent_path().string()}));
}

TEST(EnvRelease, FollowsSymbolicLinksToTheRealExecutable) {
    probe::TempDir temp;
    const std::string root = fs::canonical(temp.path()).string();
    const std::string real = PlaceProbe(root, "R/lib/x");
    fs::create_directories(fs::path(root) / "S/bin");
    const std::string link = root + "/S/bin/env_probe";
    fs::create_symlink(real, link);
    auto r = RunAt(link, {"exepath", "get", "HV_RELEASE"});
    EXPECT_EQ(r.lines, (Lines{"exepath=" + root + "/R/lib/x", "HV_RELEASE=" + root + "/R"}));
}

TEST(EnvRelease, OtherLayersComeFirst) {
    probe::TempDir temp;
    const std::string root = fs::canonical(temp.path()).string();
    const std::string exe = PlaceProbe(root, "R/bin");
    auto r = RunAt(exe, {"get", "HV_RELEASE", "get", "KOVTOP"}, {"KOVTOP=/k"});
    EXPECT_EQ(r.lines, (Lines{"HV_RELEASE=/k", "KOVTOP=/k"}));
    r = RunAt(exe, {"get", "HV_RELEASE", "get", "KOVTOP"}, {"HV_RELEASE=/r"});
    EXPECT_EQ(r.lines, (Lines{"HV_RELEASE=/r", "KOVTOP=/r"}));
    r = RunAt(exe, {"set", "HV_RELEASE", "/s", "get", "HV_RELEASE", "unset", "HV_RELEASE", "get", "HV_RELEASE"});
    EXPECT_EQ(r.lines, (Lines{"set=1", "HV_RELEASE=/s", "unset=1", "HV_RELEASE=" + root + "/R"}));

    // HVTOP has no such derivation: its default is the build's install prefix.
    r = RunAt(exe, {"prefix", "get", "HVTOP"});
    ASSERT_EQ(r.lines.size(), 2u);
    EXPECT_EQ(r.lines[1], "HVTOP=" + r.lines[0].substr(7));
}

TEST(EnvRelease, UnreadableLocationFallsBackOnTheBuildPrefix) {
    // A path of 1023 bytes or more can't be read whole: no executable path,
    // and HV_RELEASE takes its built-in default.
    probe::TempDir temp;
    const std::string root = fs::canonical(temp.path()).string();
    std::string deep;
    while (root.size() + deep.size() < 1100)
        deep += std::string(100, 'd') + "/";
    deep += "bin";
    const std::string exe = PlaceProbe(root, deep);
    auto r = RunAt(exe, {"prefix", "exepath", "get", "HV_RELEASE", "get", "KOVTOP"});
    ASSERT_EQ(r.lines.size(), 4u);
    const std::string prefix = r.lines[0].substr(7);
    EXPECT_EQ(r.lines[1], "exepath=(null)");
    EXPECT_EQ(r.lines[2], "HV_RELEASE=" + prefix);
    EXPECT_EQ(r.lines[3], "KOVTOP=" + prefix);
}
