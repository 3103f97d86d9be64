// Time values: conversion between time scales, exact comparison and arithmetic.
#include "media/CATime.h"

#include <gtest/gtest.h>

#include <string>

namespace {

std::string Text(const CATime& t)
{
    return std::to_string(t.GetTime()) + "/" + std::to_string(t.GetTimeScale());
}

}  // namespace

TEST(CATime, ConversionRoundsHalfUp)
{
    const uint64_t two53 = uint64_t{1} << 53;
    const struct {
        uint64_t time, scale, to, expected;
    } rows[] = {
        {1, 4, 2, 1},  // exactly a half rounds up
        {1, 5, 2, 0},  // 0.4 rounds down
        {2, 3, 1000, 667},
        {3003, 30000, 90000, 9009},
        {two53 + 1, 10, 10, two53 + 1},  // same scale: no floating point
        {UINT64_MAX, 7, 7, UINT64_MAX},
    };
    for (const auto& row : rows) {
        const CATime t(row.time, row.scale);
        SCOPED_TRACE(Text(t) + " -> " + std::to_string(row.to));
        EXPECT_EQ(t.GetTime(row.to), row.expected);
        const CATime changed = t.ChangeTimeScale(row.to);
        EXPECT_EQ(Text(changed), Text(CATime(row.expected, row.to)));
        EXPECT_EQ(t.GetTime(), row.time);
    }
}

TEST(CATime, ComparisonIsExactWhileItCanBe)
{
    const struct {
        CATime a, b;
        bool equal, less;
    } rows[] = {
        {CATime(1, 2), CATime(2, 4), true, false},
        {CATime(1, 3), CATime(1, 2), false, true},
        {CATime(0, 1), CATime(0, 90000), true, false},
        {CATime(1, 3), CATime(333333, 1000000), false, false},  // 1/3 s and 0.333333 s differ
        {CATime(3, 2), CATime(2, 1), false, true},
        // A zero time scale equals only the identical time.
        {CATime(5, 0), CATime(5, 0), true, false},
        {CATime(10, 0), CATime(20, 0), false, true},
        // One scale: integers, exact where doubles would see two equal values.
        {CATime(uint64_t{1} << 60, 1), CATime((uint64_t{1} << 60) + 1, 1), false, true},
        // Cross products overflow 64 bits: equal within one unit of the coarser scale, not
        // exactly; ordering has no tolerance, so == and < can hold together.
        {CATime(3000000000, 3000000000), CATime(5000000001, 5000000000), true, true},
        {CATime(3000000000, 3000000000), CATime(5000000002, 5000000000), false, true},
        {CATime(4000000000000000000ull, 4000000000), CATime(8000000000000000000ull, 8000000000), true, false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(Text(row.a) + " vs " + Text(row.b));
        EXPECT_EQ(row.a == row.b, row.equal);
        EXPECT_EQ(row.a != row.b, !row.equal);
        EXPECT_EQ(row.a < row.b, row.less);
        EXPECT_EQ(row.b > row.a, row.less);
        EXPECT_EQ(row.a >= row.b, !row.less);
    }
    EXPECT_FALSE(CATime(0, 0) == CATime(0, 1));  // and no order at all
    EXPECT_TRUE(CATime(1, 1).CloseEnough(CATime(3, 2), 0.5));
    EXPECT_FALSE(CATime(1, 1).CloseEnough(CATime(3, 2), 0.4999));
    EXPECT_TRUE(CATime(3, 2).CloseEnough(CATime(1, 1), 0.5));
}

TEST(CATime, Arithmetic)
{
    const struct {
        uint64_t time, scale;
        double seconds;
        uint64_t expected;
    } rows[] = {
        {5, 1, -10.0, 0},                             // never below zero
        {5, 1, -4.0, 1},       {5, 1000, 0.0015, 6},  // 1.5 units + 1/2000: truncated to 1, not rounded to 2
        {5, 1000, -0.0015, 4}, {0, 100, 2.3, 230},    // 229.99999999999997 + 0.005 reaches 230
    };
    for (const auto& row : rows) {
        CATime t(row.time, row.scale);
        t.Add(row.seconds);
        EXPECT_EQ(Text(t), Text(CATime(row.expected, row.scale))) << row.seconds;
    }
    CATime t(10, 1000);
    t.Add(CATime(1, 3));  // 333.3 units, rounded to 333
    EXPECT_EQ(Text(t), "343/1000");
    t.Add(CATime(1, 2000));  // half a unit rounds up
    EXPECT_EQ(Text(t), "344/1000");
}
