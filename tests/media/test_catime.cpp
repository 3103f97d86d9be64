// Time values: conversion between time scales, the one use outside the media library.
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
