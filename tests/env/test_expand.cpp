// HalvExpandString: references, their ends, and what comes out empty.
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "dpk_hvsup.h"

namespace {

class EnvExpand : public ::testing::Test {
protected:
    void SetUp() override {
        HalvernDisableRegistryLoad(1);
        ASSERT_EQ(HalvernInit(), 1);
        ASSERT_EQ(HalvSetenv("EXP_A", "/va"), 1);
        ASSERT_EQ(HalvSetenv("EXP_B", "vb"), 1);
        ASSERT_EQ(HalvSetenv("EXP_EMPTY", ""), 1);
        ASSERT_EQ(HalvSetenv("EXP_DOLLAR", "$EXP_A/${EXP_B}"), 1);
    }
    void TearDown() override { HalvernEnd(); }
};

// The expansion as a std::string; "(null)" for a null result.
std::string Expand(const char *text) {
    std::unique_ptr<char, void (*)(void *)> result(HalvExpandString(text), halv_internal_free);
    return result ? std::string(result.get()) : std::string("(null)");
}

} // namespace

TEST_F(EnvExpand, References) {
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
}

TEST_F(EnvExpand, LongNamesAreCutAndLongValuesKept) {
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

TEST_F(EnvExpand, HomeSetInsideTheProcess) {
    ASSERT_EQ(HalvSetenv("HOME", "/home/t"), 1);
    EXPECT_EQ(Expand("${HOME}/x"), "/home/t/x");
    EXPECT_EQ(Expand("$HOME/x"), "/home/t/x");
    ASSERT_EQ(HalvSetenv("HOME", nullptr), 1);
}
