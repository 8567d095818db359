// The layers of HalvGetenv and their order, each case in a fresh process
// (tests/env/env_probe) with an environment of its own; and the release
// directory that HV_RELEASE falls back on, derived from where the executable
// lies: copies of the probe run from directories of a temporary release tree.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "env/probe_runner.h"

namespace fs = std::filesystem;
using probe::Lines;
using probe::Probe;
using probe::ProbeAt;

namespace {

// The release directory the probe derives for itself: build/tests/env/env_probe
// lies in a directory named env, so the release is build/tests.
std::string ProbeRelease() { return fs::canonical(probe::ProbePath()).parent_path().parent_path().string(); }

bool Contains(const std::string &text, const std::string &part) {
    return text.find(part) != std::string::npos;
}

// Copies the probe into root/directory and returns the copy's path.
std::string PlaceProbe(const std::string &root, const std::string &directory) {
    fs::path target = fs::path(root) / directory;
    fs::create_directories(target);
    fs::path copy = target / "env_probe";
    fs::copy_file(probe::ProbePath(), copy, fs::copy_options::overwrite_existing);
    fs::permissions(copy, fs::perms::owner_all, fs::perm_options::add);
    return copy.string();
}

} // namespace

TEST(EnvLayers, NothingSetGivesDefaultsAndLastResorts) {
    probe::TempDir dir;
    const std::string cwd = fs::canonical(dir.path()).string();
    auto r = Probe({"prefix", "chdir", cwd, "init",
                    "get", "HV_OS", "get", "HV_VERS", "get", "HV_ROTATE_BUFFERSIZE", "get", "HV_CHUNKBUFFER_CAP",
                    "get", "HALV_MEMORY_MAX", "get", "HALV_TEMPFILE_MAX",
                    "get", "HV_COLORPREFS_TODEVICERGB", "get", "HV_COLORPREFS_TODEVICEGRAY",
                    "get", "HV_COLORPREFS_TODEVICECMYK", "get", "HV_COLORPREFS_FROMDEVICERGB",
                    "get", "HV_COLORPREFS_FROMDEVICEGRAY", "get", "HV_COLORPREFS_FROMDEVICECMYK",
                    "get", "HVTOP", "get", "HV_RELEASE", "get", "KOVTOP", "get", "KOV_RELEASE",
                    "get", "HV_DATA_PATH", "get", "HOME", "get", "TEMP", "get", "HALV_TEMP", "get", "PWD",
                    "get", "USER", "get", "NO_SUCH_NAME", "get", "HV_PROXY", "get", "TZ", "get", "",
                    "end"},
                   {});
    ASSERT_FALSE(r.lines.empty());
    ASSERT_EQ(r.lines[0].rfind("prefix=/", 0), 0u);
    const std::string prefix = r.lines[0].substr(7);
    const std::string release = ProbeRelease();
    Lines expected = {r.lines[0], "init=1",
                      "HV_OS=", "HV_VERS=3.8.0", "HV_ROTATE_BUFFERSIZE=4096", "HV_CHUNKBUFFER_CAP=",
                      "HALV_MEMORY_MAX=15360", "HALV_TEMPFILE_MAX=10240",
                      "HV_COLORPREFS_TODEVICERGB=sRGB", "HV_COLORPREFS_TODEVICEGRAY=sGray",
                      "HV_COLORPREFS_TODEVICECMYK=cmykLinear", "HV_COLORPREFS_FROMDEVICERGB=sRGB",
                      "HV_COLORPREFS_FROMDEVICEGRAY=sGray", "HV_COLORPREFS_FROMDEVICECMYK=cmykLinear",
                      "HVTOP=" + prefix, "HV_RELEASE=" + release, "KOVTOP=" + release, "KOV_RELEASE=" + release,
                      "HV_DATA_PATH=.,${HOME},${HOME}/data,${KOVTOP}/data",
                      "HOME=.", "TEMP=/tmp", "HALV_TEMP=/tmp", "PWD=" + cwd,
                      "USER=(null)", "NO_SUCH_NAME=(null)", "HV_PROXY=(null)", "TZ=(null)", "=(null)",
                      "end=1"};
    EXPECT_EQ(r.lines, expected);
}

TEST(EnvLayers, LastResortsAreComputedOnce) {
    probe::TempDir first, second;
    const std::string a = fs::canonical(first.path()).string();
    const std::string b = fs::canonical(second.path()).string();
    auto r = Probe({"chdir", a, "get", "NO_SUCH_NAME", "chdir", b, "get", "PWD", "putenv", "TMPDIR", "/late",
                    "get", "TEMP"},
                   {});
    EXPECT_EQ(r.lines, (Lines{"NO_SUCH_NAME=(null)", "PWD=" + a, "TEMP=/tmp"}));

    // A shell's PWD is found in the real environment before the last resort.
    r = Probe({"chdir", a, "get", "PWD"}, {"PWD=/from/shell"});
    EXPECT_EQ(r.lines, (Lines{"PWD=/from/shell"}));
}

// Sessions whose printed lines tell it all: the layers' order for each name.
TEST(EnvLayers, EachNameFindsItsLayersInOrder) {
    const std::string longValue(5000, 'v');
    const struct {
        const char *why;
        Lines args, environment, expected;
    } cases[] = {
        {"the older temp name wins", {"get", "HALV_TEMP"}, {"KOV_TEMP=/kov", "HALV_TEMP=/halv", "TEMP=/t"},
         {"HALV_TEMP=/kov"}},
        {"then the name itself", {"get", "HALV_TEMP"}, {"HALV_TEMP=/halv", "TEMP=/t"}, {"HALV_TEMP=/halv"}},
        {"an empty older name", {"get", "HALV_TEMP"}, {"KOV_TEMP=", "HALV_TEMP=/halv"}, {"HALV_TEMP=/halv"}},
        {"then the alternative", {"get", "HALV_TEMP"}, {"TEMP=/t", "TMPDIR=/tmpdir"}, {"HALV_TEMP=/t"}},
        {"with TEMP unset too, TEMP's last resort answers, not HALV_TEMP's default",
         {"get", "HALV_TEMP", "get", "TEMP"}, {"TMPDIR=/tmpdir"}, {"HALV_TEMP=/tmpdir", "TEMP=/tmpdir"}},
        {"what an alternative gives isn't kept under the name asked for",
         {"get", "HALV_TEMP", "set", "TEMP", "/u", "get", "HALV_TEMP", "unset", "TEMP", "get", "HALV_TEMP"},
         {"TEMP=/t"}, {"HALV_TEMP=/t", "set=1", "HALV_TEMP=/u", "unset=1", "HALV_TEMP=/t"}},
        {"older names win",
         {"get", "HVTOP", "get", "HV_RELEASE", "get", "HV_DATA_PATH", "get", "KOVTOP", "get", "KOV_RELEASE",
          "get", "HV_VERS"},
         {"KOVTOP=/old", "HVTOP=/new", "HV_RELEASE=/rel", "KOV_DATA_PATH=/kd", "HV_DATA_PATH=/hd",
          "HV_VERS=7"},
         {"HVTOP=/old", "HV_RELEASE=/old", "HV_DATA_PATH=/kd", "KOVTOP=/old", "KOV_RELEASE=/old",
          "HV_VERS=7"}},
        {"without the older names the new ones stand, and the old ones fall back",
         {"get", "HVTOP", "get", "HV_RELEASE", "get", "KOVTOP", "get", "KOV_RELEASE", "get", "HV_DATA_PATH"},
         {"HVTOP=/new", "HV_RELEASE=/rel", "HV_DATA_PATH=/hd"},
         {"HVTOP=/new", "HV_RELEASE=/rel", "KOVTOP=/rel", "KOV_RELEASE=/rel", "HV_DATA_PATH=/hd"}},
        {"an older name set in the process doesn't win: it is a real-environment layer only",
         {"set", "KOVTOP", "/inside", "get", "HVTOP", "get", "KOVTOP"}, {"HVTOP=/new"},
         {"set=1", "HVTOP=/new", "KOVTOP=/inside"}},
        {"alternative", {"get", "USER"}, {"LOGNAME=bob"}, {"USER=bob"}},
        {"the name before its alternative", {"get", "USER"}, {"USER=alice", "LOGNAME=bob"}, {"USER=alice"}},
        {"alternatives ask with all layers",
         {"set", "LOGNAME", "carol", "get", "USER", "set", "HV_RELEASE", "/set", "get", "KOVTOP", "get",
          "KOV_RELEASE", "get", "LOGNAME"},
         {}, {"set=1", "USER=carol", "set=1", "KOVTOP=/set", "KOV_RELEASE=/set", "LOGNAME=carol"}},
        {"an empty real variable counts as unset",
         {"get", "HOME", "get", "HV_VERS", "get", "HV_OS", "get", "USER", "get", "NOTHING"},
         {"HOME=", "HV_VERS=", "HV_OS=", "USER=", "LOGNAME=dan", "NOTHING="},
         {"HOME=.", "HV_VERS=3.8.0", "HV_OS=", "USER=dan", "NOTHING=(null)"}},
        {"long values are taken whole", {"get", "LONG"}, {"LONG=" + longValue}, {"LONG=" + longValue}},
        {"a real value is read once",
         {"get", "FOO", "putenv", "FOO", "second", "get", "FOO", "set", "FOO", "mine", "get", "FOO",
          "unset", "FOO", "get", "FOO", "putenv", "FOO", "third", "get", "FOO",
          "get", "BAR", "putenv", "BAR", "late", "get", "BAR"},
         {"FOO=first"},
         {"FOO=first", "FOO=first", "set=1", "FOO=mine", "unset=1", "FOO=second", "FOO=second", "BAR=(null)",
          "BAR=late"}},
        {"a value set in the process overrides every layer",
         {"init", "set", "HOME", "/mine", "get", "HOME", "unset", "HOME", "get", "HOME",
          "set", "HVTOP", "/set", "get", "HVTOP",
          "set", "HV_VERS", "4", "get", "HV_VERS", "unset", "HV_VERS", "get", "HV_VERS",
          "set", "PWD", "/p", "get", "PWD", "set", "EMPTY", "", "get", "EMPTY",
          "unset", "NEVER_SET", "get", "NEVER_SET", "end"},
         {"HOME=/home/real", "KOVTOP=/old"},
         {"init=1", "set=1", "HOME=/mine", "unset=1", "HOME=/home/real", "set=1", "HVTOP=/set", "set=1",
          "HV_VERS=4", "unset=1", "HV_VERS=3.8.0", "set=1", "PWD=/p", "set=1", "EMPTY=", "unset=1",
          "NEVER_SET=(null)", "end=1"}},
        {"not the last stop: nothing is forgotten yet",
         {"init", "init", "set", "MINE", "v", "end", "get", "MINE", "end", "get", "MINE"}, {},
         {"init=1", "init=1", "set=1", "end=1", "MINE=v", "end=1", "MINE=(null)"}},
        {"a store before the first start is kept: its cleanup can't be registered before a start",
         {"set", "EARLY", "1", "init", "end", "get", "EARLY"}, {}, {"set=1", "init=1", "end=1", "EARLY=1"}},
    };
    for (const auto &c : cases)
        EXPECT_EQ(Probe(c.args, c.environment).lines, c.expected) << c.why;
}

TEST(EnvLayers, LastStopForgetsWhatWasRead) {
    auto r = Probe({"init", "get", "FOO", "set", "MINE", "v", "putenv", "FOO", "second", "get", "FOO", "end",
                    "init", "get", "FOO", "get", "MINE", "end"},
                   {"FOO=first", "HV_DEBUG=1"});
    EXPECT_EQ(r.lines, (Lines{"init=1", "FOO=first", "set=1", "FOO=first", "end=1",
                              "init=1", "FOO=second", "MINE=(null)", "end=1"}));
    EXPECT_TRUE(Contains(r.err, "Cleaning up EnvVar FOO=first\n")) << r.err;
    EXPECT_TRUE(Contains(r.err, "Cleaning up EnvVar MINE=v\n")) << r.err;
    EXPECT_TRUE(Contains(r.err, "Cleaning up EnvVar FOO=second\n")) << r.err;
}

TEST(EnvLayers, DebugSwitchTracesTheLayers) {
    auto r = Probe({"init", "get", "HVTOP", "get", "USER", "get", "HV_VERS", "end"},
                   {"HVENV_DEBUG=1", "HV_DEBUG=1", "KOVTOP=/old", "LOGNAME=bob"});
    EXPECT_EQ(r.lines, (Lines{"init=1", "HVTOP=/old", "USER=bob", "HV_VERS=3.8.0", "end=1"}));
    EXPECT_TRUE(Contains(r.err, "HalvGetenv: Overriding HVTOP with KOVTOP\n")) << r.err;
    EXPECT_TRUE(Contains(r.err, "HalvGetenv: didn't find USER, using LOGNAME\n")) << r.err;
    EXPECT_TRUE(Contains(r.err, "HalvGetenv: didn't find HV_VERS, defaulting to 3.8.0\n")) << r.err;

    // The switch is read at the start through HalvGetenv: an empty variable is off,
    // one set inside the process is on, and before a start nothing is traced.
    r = Probe({"init", "get", "HVTOP", "end"}, {"HVENV_DEBUG=", "HV_DEBUG=1", "KOVTOP=/old"});
    EXPECT_FALSE(Contains(r.err, "Overriding")) << r.err;
    r = Probe({"set", "HVENV_DEBUG", "yes", "init", "get", "HVTOP", "end"}, {"HV_DEBUG=1", "KOVTOP=/old"});
    EXPECT_TRUE(Contains(r.err, "HalvGetenv: Overriding HVTOP with KOVTOP\n")) << r.err;
    r = Probe({"get", "HVTOP"}, {"HVENV_DEBUG=1", "HV_DEBUG=1", "KOVTOP=/old"});
    EXPECT_FALSE(Contains(r.err, "Overriding")) << r.err;
}

TEST(EnvLayers, ExpandsThroughAllLayers) {
    const std::string release = ProbeRelease();
    auto r = Probe({"expand", "${HOME}/x", "expand", "$HOME/x", "expand", "${NO_SUCH}/x", "expand", "$NO_SUCH",
                    "get", "HV_DATA_PATH", "expand", "${HV_DATA_PATH}", "expand", "${HALV_TEMP}/a/b"},
                   {"HOME=/home/u", "TMPDIR=/scratch"});
    EXPECT_EQ(r.lines, (Lines{"expand=/home/u/x", "expand=/home/u/x", "expand=/x", "expand=(null)",
                              "HV_DATA_PATH=.,${HOME},${HOME}/data,${KOVTOP}/data",
                              "expand=.,${HOME},${HOME}/data,${KOVTOP}/data", "expand=/scratch/a/b"}));

    // The default data path expands one level at a time: first the variable,
    // then the text it holds.
    r = Probe({"expand", ".,${HOME},${HOME}/data,${KOVTOP}/data"}, {"HOME=/home/u"});
    EXPECT_EQ(r.lines, (Lines{"expand=.,/home/u,/home/u/data," + release + "/data"}));
    r = Probe({"expand", ".,${HOME},${HOME}/data,${KOVTOP}/data"}, {});
    EXPECT_EQ(r.lines, (Lines{"expand=.,.,./data," + release + "/data"}));
}

TEST(EnvLayers, ProbeRejectsUnknownCommands) {
    // Guards the harness itself: a typo in a command list must not pass silently.
    auto r = probe::Run(probe::ProbePath(), {"nonsense"}, {});
    EXPECT_EQ(r.exitCode, 2);
}

TEST(EnvRelease, DerivedFromTheExecutablesDirectoryAfterTheOtherLayers) {
    probe::TempDir temp;
    ASSERT_FALSE(temp.path().empty());
    const std::string root = fs::canonical(temp.path()).string();
    const struct {
        const char *directory, *release;
    } cases[] = {
        {"R/bin", "R"},        {"R/lib", "R"},         {"R/output", "R"},          {"R/tools", "R"},
        {"R/bin/x", "R"},      {"R/lib/x", "R"},       {"R/output/x", "R"},        {"R/bin/bin", "R"},
        {"R/x/y", "R/x"},      {"R/lib64/x", "R/lib64"}, {"R/Bin/x", "R/Bin"},     {"R/binary/x", "R/binary"},
        {"R/x/bin", "R/x"},    {"R/outputs/x", "R/outputs"},
    };
    for (const auto &c : cases) {
        auto r = ProbeAt(PlaceProbe(root, c.directory),
                         {"exepath", "get", "HV_RELEASE", "get", "KOVTOP", "get", "KOV_RELEASE"});
        const std::string release = root + "/" + c.release;
        EXPECT_EQ(r.lines, (Lines{"exepath=" + root + "/" + c.directory, "HV_RELEASE=" + release,
                                  "KOVTOP=" + release, "KOV_RELEASE=" + release}))
            << c.directory;
    }
    // An executable right in the temporary directory: its parent is the release.
    auto r = ProbeAt(PlaceProbe(root, "."), {"exepath", "get", "HV_RELEASE"});
    EXPECT_EQ(r.lines, (Lines{"exepath=" + root, "HV_RELEASE=" + fs::path(root).parent_path().string()}));

    // Symbolic links are followed to the real executable.
    fs::create_directories(fs::path(root) / "S/bin");
    fs::create_symlink(root + "/R/lib/x/env_probe", root + "/S/bin/env_probe");
    r = ProbeAt(root + "/S/bin/env_probe", {"exepath", "get", "HV_RELEASE"});
    EXPECT_EQ(r.lines, (Lines{"exepath=" + root + "/R/lib/x", "HV_RELEASE=" + root + "/R"}));

    // Other layers come first.
    const std::string exe = root + "/R/bin/env_probe";
    r = ProbeAt(exe, {"get", "HV_RELEASE", "get", "KOVTOP"}, {"KOVTOP=/k"});
    EXPECT_EQ(r.lines, (Lines{"HV_RELEASE=/k", "KOVTOP=/k"}));
    r = ProbeAt(exe, {"get", "HV_RELEASE", "get", "KOVTOP"}, {"HV_RELEASE=/r"});
    EXPECT_EQ(r.lines, (Lines{"HV_RELEASE=/r", "KOVTOP=/r"}));
    r = ProbeAt(exe, {"set", "HV_RELEASE", "/s", "get", "HV_RELEASE", "unset", "HV_RELEASE",
                      "get", "HV_RELEASE"});
    EXPECT_EQ(r.lines, (Lines{"set=1", "HV_RELEASE=/s", "unset=1", "HV_RELEASE=" + root + "/R"}));

    // HVTOP has no such derivation: its default is the build's install prefix.
    r = ProbeAt(exe, {"prefix", "get", "HVTOP"});
    ASSERT_EQ(r.lines.size(), 2u);
    EXPECT_EQ(r.lines[1], "HVTOP=" + r.lines[0].substr(7));

    // A path of 1023 bytes or more can't be read whole: no executable path,
    // and HV_RELEASE takes its built-in default.
    std::string deep;
    while (root.size() + deep.size() < 1100)
        deep += std::string(100, 'd') + "/";
    r = ProbeAt(PlaceProbe(root, deep + "bin"), {"prefix", "exepath", "get", "HV_RELEASE", "get", "KOVTOP"});
    ASSERT_EQ(r.lines.size(), 4u);
    const std::string prefix = r.lines[0].substr(7);
    EXPECT_EQ(r.lines, (Lines{r.lines[0], "exepath=(null)", "HV_RELEASE=" + prefix, "KOVTOP=" + prefix}));
}
