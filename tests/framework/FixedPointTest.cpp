#include <gtest/gtest.h>

#include "framework/FixedPoint.h"

using Fixed = FixedPoint<16u>;

TEST(FixedPoint, PrintsShortestDecimal) {
    EXPECT_STREQ(Fixed(1u).toString().get(), "1");
    EXPECT_STREQ((Fixed(1u) / 2).toString().get(), "0.5");
    EXPECT_STREQ((Fixed(30000u) / Fixed(1001u)).toString().get(), "29.97002");
    EXPECT_STREQ(Fixed(-3).toString().get(), "-3");
}

TEST(FixedPoint, MultipliesWithoutOverflowForLargeOperands) {
    Fixed big(100000u);  // raw value above 2^31
    EXPECT_EQ((big * Fixed(3u)).uintValue(), 300000u);
    EXPECT_EQ((Fixed(3u) * Fixed(AlreadyFixed{}, 0x8000)).raw(), 0x18000);  // 3 * 0.5
    EXPECT_EQ((big * 2).uintValue(), 200000u);
}

TEST(FixedPoint, DividesLargeDividendsInParts) {
    Fixed huge(AlreadyFixed{}, int64_t(1) << 50);
    Fixed q = huge / Fixed(4u);
    EXPECT_EQ(q.raw(), int64_t(1) << 48);
    EXPECT_EQ((Fixed(10u) / Fixed(4u)).raw(), 0x28000);
    // An unsigned divisor that is negative as a signed value goes through the fixed division.
    EXPECT_EQ((Fixed(AlreadyFixed{}, int64_t(1) << 40) / 0x80000000u).raw(), 0x200);
}

TEST(FixedPoint, RoundsAndTruncates) {
    Fixed v(AlreadyFixed{}, 0x18000);  // 1.5
    EXPECT_EQ(v.uintValue(), 1u);
    EXPECT_EQ(v.round().uintValue(), 2u);
    EXPECT_EQ(Fixed(AlreadyFixed{}, 0x17FFF).round().uintValue(), 1u);
    EXPECT_DOUBLE_EQ(v.floatValue(), 1.5);
    EXPECT_EQ(Fixed::fractionMask(), 0xFFFF);
}
