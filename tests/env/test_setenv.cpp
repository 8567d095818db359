// HalvSetenv, HalvGetenv and HalvExpandString inside one started engine: the
// override list, its hashes and copies, and references, their ends, and what
// comes out empty.  What the last stop forgets is checked in test_layers.
#include <gtest/gtest.h>

#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "dpk_hvsup.h"

namespace {

class EnvSetenv : public ::testing::Test {
protected:
    void SetUp() override {
        HalvernDisableRegistryLoad(1);
        ASSERT_EQ(HalvernInit(), 1);
    }
    void TearDown() override { HalvernEnd(); }
};

std::string Get(const char *name) {
    const char *value = HalvGetenv(name);
    return value != nullptr ? std::string(value) : std::string("(null)");
}

// The expansion as a std::string; "(null)" for a null result.
std::string Expand(const char *text) {
    std::unique_ptr<char, void (*)(void *)> result(HalvExpandString(text), halv_internal_free);
    return result ? std::string(result.get()) : std::string("(null)");
}

} // namespace

TEST_F(EnvSetenv, SetCopyReplaceRemove) {
    EXPECT_EQ(HalvGetenv(nullptr), nullptr);
    EXPECT_EQ(HalvSetenv(nullptr, "x"), 0);
    EXPECT_EQ(HalvSetenv(nullptr, nullptr), 0);
    EXPECT_EQ(HalvSetenv("SETENV_NEVER", nullptr), 1);
    EXPECT_EQ(HalvGetenv("SETENV_NEVER"), nullptr);

    char buffer[] = "original";
    ASSERT_EQ(HalvSetenv("SETENV_COPY", buffer), 1);
    buffer[0] = 'X';
    EXPECT_EQ(Get("SETENV_COPY"), "original");
    EXPECT_NE(HalvGetenv("SETENV_COPY"), buffer);

    ASSERT_EQ(HalvSetenv("SETENV_ONE", "1"), 1);
    const char *first = HalvGetenv("SETENV_ONE");
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(HalvGetenv("SETENV_ONE"), first); // the same stored text each time

    // Other names come and go; the first value stays where it is.
    ASSERT_EQ(HalvSetenv("SETENV_TWO", "2"), 1);
    ASSERT_EQ(HalvSetenv("SETENV_TWO", nullptr), 1);
    EXPECT_STREQ(first, "1");

    ASSERT_EQ(HalvSetenv("SETENV_ONE", "one again"), 1);
    EXPECT_EQ(Get("SETENV_ONE"), "one again");
    ASSERT_EQ(HalvSetenv("SETENV_ONE", ""), 1);
    EXPECT_EQ(Get("SETENV_ONE"), "");
    ASSERT_EQ(HalvSetenv("SETENV_ONE", nullptr), 1);
    EXPECT_EQ(Get("SETENV_ONE"), "(null)");

    // Names are case-sensitive.
    ASSERT_EQ(HalvSetenv("setenv_case", "lower"), 1);
    EXPECT_EQ(Get("SETENV_CASE"), "(null)");
    EXPECT_EQ(Get("setenv_case"), "lower");
}

TEST_F(EnvSetenv, ManyNamesAndNamesWithEqualHashesStayApart) {
    // The list compares 16-bit hashes first; many names share one.
    std::map<uint32_t, std::string> seen;
    std::vector<std::pair<std::string, std::string>> collisions;
    for (int i = 0; collisions.size() < 20 && i < 100000; ++i) {
        std::string name = "SETENV_H" + std::to_string(i);
        uint32_t hash = HalvHashBytes(name.data(), (uint32_t)name.size());
        auto [it, inserted] = seen.emplace(hash, name);
        if (!inserted)
            collisions.emplace_back(it->second, name);
    }
    ASSERT_EQ(collisions.size(), 20u);
    for (const auto &[a, b] : collisions) {
        ASSERT_EQ(HalvSetenv(a.c_str(), ("value of " + a).c_str()), 1);
        ASSERT_EQ(HalvSetenv(b.c_str(), ("value of " + b).c_str()), 1);
    }
    for (const auto &[a, b] : collisions) {
        EXPECT_EQ(Get(a.c_str()), "value of " + a);
        EXPECT_EQ(Get(b.c_str()), "value of " + b);
        ASSERT_EQ(HalvSetenv(a.c_str(), nullptr), 1);
        EXPECT_EQ(Get(a.c_str()), "(null)");
        EXPECT_EQ(Get(b.c_str()), "value of " + b);
    }
    // Many names, a third of them removed again.
    auto many = [](int i) { return "SETENV_MANY_" + std::to_string(i); };
    for (int i = 0; i < 2000; ++i)
        ASSERT_EQ(HalvSetenv(many(i).c_str(), std::to_string(i * 7).c_str()), 1);
    for (int i = 0; i < 2000; i += 3)
        ASSERT_EQ(HalvSetenv(many(i).c_str(), nullptr), 1);
    for (int i = 0; i < 2000; ++i)
        EXPECT_EQ(Get(many(i).c_str()), i % 3 == 0 ? std::string("(null)") : std::to_string(i * 7)) << many(i);
}

TEST_F(EnvSetenv, ExecutablePathIsComputedOnceForTheProcess) {
    const char *path = HalvGetExecutablePath();
    ASSERT_NE(path, nullptr);
    EXPECT_EQ(std::string(path), std::filesystem::read_symlink("/proc/self/exe").parent_path().string());
    ASSERT_EQ(HalvernEnd(), 1);
    EXPECT_EQ(HalvGetExecutablePath(), path) << "not the same text after a stop";
    ASSERT_EQ(HalvernInit(), 1);
}

TEST_F(EnvSetenv, ExpandReferences) {
    ASSERT_EQ(HalvSetenv("EXP_A", "/va"), 1);
    ASSERT_EQ(HalvSetenv("EXP_B", "vb"), 1);
    ASSERT_EQ(HalvSetenv("EXP_EMPTY", ""), 1);
    ASSERT_EQ(HalvSetenv("EXP_DOLLAR", "$EXP_A/${EXP_B}"), 1);
    const struct {
        const char *text;
        const char *expanded;
    } cases[] = {
        // Braced and plain references.
        {"${EXP_A}/x", "/va/x"}, {"$EXP_A/x", "/va/x"}, {"${EXP_A}x", "/vax"}, {"a/${EXP_B}/b/$EXP_B", "a/vb/b/vb"},
        {"${EXP_A}${EXP_B}", "/vavb"}, {"$EXP_B/$EXP_B/", "vb/vb/"}, {"${EXP_B}}", "vb}"}, {"/a//b/", "/a//b/"},
        {"plain text, no references", "plain text, no references"},
        // "$NAME" runs to the next '/', so what follows belongs to the name:
        // "$EXP_A${EXP_B}" is one name.
        {"$EXP_B.txt", "(null)"}, {"x$EXP_B.txt/y", "x/y"}, {"$EXP_A${EXP_B}", "(null)"},
        // Unknown and empty values put nothing, and nothing is null; a
        // default of "" is a value, but an empty one.
        {"${EXP_UNKNOWN}/x", "/x"}, {"$EXP_UNKNOWN/x", "/x"}, {"a${EXP_EMPTY}b", "ab"}, {"${EXP_UNKNOWN}", "(null)"},
        {"${EXP_EMPTY}", "(null)"}, {"$EXP_UNKNOWN$EXP_EMPTY", "(null)"}, {"", "(null)"}, {nullptr, "(null)"},
        {"${HV_OS}", "(null)"}, {"name.${HV_OS}.ext", "name..ext"},
        // References open at the end are closed; "$$" is no escape but a
        // name "$" nobody knows.
        {"x/$EXP_B", "x/vb"}, {"x/${EXP_B", "x/vb"}, {"x$", "x"}, {"x${", "x"}, {"$", "(null)"}, {"${}", "(null)"},
        {"${}/a", "/a"}, {"$/a", "/a"}, {"$$", "(null)"},
        // Values are not expanded again.
        {"${EXP_DOLLAR}", "$EXP_A/${EXP_B}"}, {"[$EXP_DOLLAR/]", "[$EXP_A/${EXP_B}/]"},
    };
    for (const auto &c : cases)
        EXPECT_EQ(Expand(c.text), c.expanded) << (c.text ? c.text : "(null)");
    // Names with dots and braces are names like any other.
    ASSERT_EQ(HalvSetenv("EXP_B.txt", "dotted"), 1);
    EXPECT_EQ(Expand("$EXP_B.txt/y"), "dotted/y");
    ASSERT_EQ(HalvSetenv("EXP_A${EXP_B}", "odd"), 1);
    EXPECT_EQ(Expand("$EXP_A${EXP_B}"), "odd");
    // HOME set inside the process wins over the real one.
    ASSERT_EQ(HalvSetenv("HOME", "/home/t"), 1);
    EXPECT_EQ(Expand("${HOME}/x"), "/home/t/x");
    EXPECT_EQ(Expand("$HOME/x"), "/home/t/x");
    ASSERT_EQ(HalvSetenv("HOME", nullptr), 1);
}

TEST_F(EnvSetenv, ExpandLongNamesAreCutAndLongValuesKept) {
    ASSERT_EQ(HalvSetenv("EXP_B", "vb"), 1);
    const std::string name255(255, 'N');
    const std::string longValue(10000, 'v');
    ASSERT_EQ(HalvSetenv(name255.c_str(), "cut"), 1);
    ASSERT_EQ(HalvSetenv("EXP_LONG", longValue.c_str()), 1);
    // The 300-byte name is read as its first 255 bytes.
    EXPECT_EQ(Expand(("${" + name255 + std::string(45, 'X') + "}/z").c_str()), "cut/z");
    EXPECT_EQ(Expand(("$" + name255 + "/z").c_str()), "cut/z");
    EXPECT_EQ(Expand("${EXP_LONG}${EXP_LONG}"), longValue + longValue);
    std::string many, expected;
    for (int i = 0; i < 200; ++i) {
        many += "$EXP_B/";
        expected += "vb/";
    }
    EXPECT_EQ(Expand(many.c_str()), expected);
}
