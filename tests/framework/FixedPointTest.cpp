#include <gtest/gtest.h>

#include "framework/FixedPoint.h"

TEST(FixedPoint, PrintsShortestDecimal) {
    EXPECT_STREQ(FixedPoint<16u>(1u).toString().get(), "1");
    EXPECT_STREQ((FixedPoint<16u>(1u) / 2).toString().get(), "0.5");
}
