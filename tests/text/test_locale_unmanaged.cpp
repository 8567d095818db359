/*
 * tests/text/test_locale_unmanaged.cpp - the user locale in a process that
 * never started the engine: no cleanup can be registered, so the record,
 * once filled, stays filled for good.  One test, since that state can't be
 * undone within the process.
 */
#include <gtest/gtest.h>

#include <cstdlib>

#include "dpk_hvsup.h"

namespace {

TEST(UnmanagedUserLocale, FilledWithoutTheEngineAndKept) {
    unsetenv("LC_ALL");
    unsetenv("LC_NUMERIC");
    unsetenv("LANG");
    HalvLocale *user = HalvGetUserLocale();
    ASSERT_NE(user, nullptr);
    EXPECT_STREQ(user->decimalPoint, ".");
    const HalvLocale comma = {",", ".", "3;0"};
    HalvSetUserLocale(&comma);
    EXPECT_EQ(HalvGetUserLocale(), user);
    EXPECT_STREQ(user->decimalPoint, ",");
    /* A start and stop afterwards has no cleanup of the record to run. */
    HalvernDisableRegistryLoad(1);
    ASSERT_EQ(HalvernInit(), 1);
    ASSERT_EQ(HalvernEnd(), 1);
    EXPECT_STREQ(HalvGetUserLocale()->decimalPoint, ",");
    EXPECT_STREQ(HalvGetUserLocale()->grouping, "3;0");
}

} // namespace
