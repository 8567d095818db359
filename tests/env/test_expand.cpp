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

TEST_F(EnvExpand, BracedAndPlainReferences) {
    EXPECT_EQ(Expand("${EXP_A}/x"), "/va/x");
    EXPECT_EQ(Expand("$EXP_A/x"), "/va/x");
    EXPECT_EQ(Expand("${EXP_A}x"), "/vax");
    EXPECT_EQ(Expand("a/${EXP_B}/b/$EXP_B"), "a/vb/b/vb");
    EXPECT_EQ(Expand("${EXP_A}${EXP_B}"), "/vavb");
    EXPECT_EQ(Expand("$EXP_B/$EXP_B/"), "vb/vb/");
    EXPECT_EQ(Expand("${EXP_B}}"), "vb}");
    EXPECT_EQ(Expand("plain text, no references"), "plain text, no references");
    EXPECT_EQ(Expand("/a//b/"), "/a//b/");
}

TEST_F(EnvExpand, PlainReferenceEndsOnlyAtSlash) {
    // "$NAME" runs to the next '/', so what follows belongs to the name.
    EXPECT_EQ(Expand("$EXP_B.txt"), "(null)");
    EXPECT_EQ(Expand("x$EXP_B.txt/y"), "x/y");
    EXPECT_EQ(Expand("$EXP_A${EXP_B}"), "(null)"); // one name, "EXP_A${EXP_B}"
    ASSERT_EQ(HalvSetenv("EXP_B.txt", "dotted"), 1);
    EXPECT_EQ(Expand("$EXP_B.txt/y"), "dotted/y");
    ASSERT_EQ(HalvSetenv("EXP_A${EXP_B}", "odd"), 1);
    EXPECT_EQ(Expand("$EXP_A${EXP_B}"), "odd");
}

TEST_F(EnvExpand, UnknownAndEmptyValuesPutNothing) {
    EXPECT_EQ(Expand("${EXP_UNKNOWN}/x"), "/x");
    EXPECT_EQ(Expand("$EXP_UNKNOWN/x"), "/x");
    EXPECT_EQ(Expand("a${EXP_EMPTY}b"), "ab");
    EXPECT_EQ(Expand("${EXP_UNKNOWN}"), "(null)");
    EXPECT_EQ(Expand("${EXP_EMPTY}"), "(null)");
    EXPECT_EQ(Expand("$EXP_UNKNOWN$EXP_EMPTY"), "(null)");
    EXPECT_EQ(Expand(""), "(null)");
    EXPECT_EQ(Expand(nullptr), "(null)");
    // A default of "" is a value, but an empty one.
    EXPECT_EQ(Expand("${HV_OS}"), "(null)");
    EXPECT_EQ(Expand("name.${HV_OS}.ext"), "name..ext");
}

TEST_F(EnvExpand, ReferencesOpenAtTheEndAreClosed) {
    EXPECT_EQ(Expand("x/$EXP_B"), "x/vb");
    EXPECT_EQ(Expand("x/${EXP_B"), "x/vb");
    EXPECT_EQ(Expand("x$"), "x");
    EXPECT_EQ(Expand("x${"), "x");
    EXPECT_EQ(Expand("$"), "(null)");
    EXPECT_EQ(Expand("${}"), "(null)");
    EXPECT_EQ(Expand("${}/a"), "/a");
    EXPECT_EQ(Expand("$/a"), "/a");
    EXPECT_EQ(Expand("$$"), "(null)"); // no escape: a name "$" nobody knows
}

TEST_F(EnvExpand, ValuesAreNotExpandedAgain) {
    EXPECT_EQ(Expand("${EXP_DOLLAR}"), "$EXP_A/${EXP_B}");
    EXPECT_EQ(Expand("[$EXP_DOLLAR/]"), "[$EXP_A/${EXP_B}/]");
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
    std::string many;
    for (int i = 0; i < 200; ++i)
        many += "$EXP_B/";
    std::string expected;
    for (int i = 0; i < 200; ++i)
        expected += "vb/";
    EXPECT_EQ(Expand(many.c_str()), expected);
}

TEST_F(EnvExpand, HomeSetInsideTheProcess) {
    ASSERT_EQ(HalvSetenv("HOME", "/home/t"), 1);
    EXPECT_EQ(Expand("${HOME}/x"), "/home/t/x");
    EXPECT_EQ(Expand("$HOME/x"), "/home/t/x");
    ASSERT_EQ(HalvSetenv("HOME", nullptr), 1);
}
