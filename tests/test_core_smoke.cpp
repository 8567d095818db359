#include <gtest/gtest.h>

#include "dpk_hvsup.h"

TEST(CoreSmoke, EngineStartsAndStops) {
    EXPECT_EQ(HalvernInit(), 1);
    EXPECT_EQ(HalvernEnd(), 1);
    EXPECT_EQ(HalvernEnd(), 0);
}
