#include "media/ZKFrameRates.h"
#include "media/ZKUtils.h"

#include <gtest/gtest.h>

namespace {

TEST(StdFrameRates, Closest)
{
    const struct {
        double rate, tolerance, expected, difference;
    } cases[] = {
        {29.9, 0.1, 29.97, 0.07},  {29.9, 0.01, 0.0, 0.07},  // too far, but the difference is still reported
        {24.0, 0.0, 24.0, 0.0},    {23.98, 0.01, 23.976, -0.004},
        {2.0, 1.0, 1.0, -1.0},  // tie between 1 and 3: the lower stays
        {0.0, 5.0, 1.0, 1.0},      {1000.0, 1e9, 240.0, -760.0},
        {59.9, 0.05, 59.94, 0.04},
    };
    for (const auto& c : cases) {
        double difference = -12345.0;
        EXPECT_DOUBLE_EQ(ZKFindClosestStdFrameRate(c.rate, c.tolerance, &difference), c.expected)
            << c.rate << " within " << c.tolerance;
        EXPECT_NEAR(difference, c.difference, 1e-9) << c.rate;
        EXPECT_DOUBLE_EQ(ZKFindClosestStdFrameRate(c.rate, c.tolerance, nullptr), c.expected);
    }
}

TEST(StdFrameRates, Next)
{
    const struct {
        double rate, expected;
    } cases[] = {
        {24.0, 24.0}, {23.99, 23.976}, {300.0, 300.0}, {0.5, 3.0},     {1.0, 3.0},
        {3.01, 3.0},  {3.02, 5.0},     {29.98, 29.97}, {240.0, 240.0}, {240.03, 240.03},
    };
    for (const auto& c : cases)
        EXPECT_DOUBLE_EQ(ZKFindNextStdFrameRate(c.rate), c.expected) << c.rate;
}

TEST(ZKUtils, RebaseTimeRoundsLikeTimeConversion)
{
    EXPECT_EQ(ZKUtils::rebaseTime(1, 3, 2), 1u);
    EXPECT_EQ(ZKUtils::rebaseTime(1, 4, 2), 1u);
    EXPECT_EQ(ZKUtils::rebaseTime(1, 5, 2), 0u);
    EXPECT_EQ(ZKUtils::rebaseTime((uint64_t{1} << 60) + 1, 9, 9), (uint64_t{1} << 60) + 1);
    EXPECT_EQ(ZKUtils::rebaseTime(1001, 30000, 90000), 3003u);
    EXPECT_EQ(ZKUtils::rebaseTime(UINT64_MAX, 1, 1000), UINT64_MAX);  // saturates
}

TEST(ZKUtils, CloseEnoughIsInclusive)
{
    EXPECT_TRUE(ZKCloseEnough(1.0, 1.5, 0.5));
    EXPECT_FALSE(ZKCloseEnough(1.0, 1.5, 0.49));
    EXPECT_TRUE(ZKCloseEnough(1.5f, 1.0f, 0.5f));
    EXPECT_FALSE(ZKCloseEnough(1.5f, 1.0f, 0.49f));
}

}  // namespace
