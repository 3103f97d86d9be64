#include "media/CATime.h"

#include <gtest/gtest.h>

#include <string>

namespace {

constexpr uint64_t kTwo53 = uint64_t{1} << 53;

TEST(CATime, DefaultIsZeroAtScaleOne)
{
    const CATime t;
    EXPECT_EQ(t.GetTime(), 0u);
    EXPECT_EQ(t.GetTimeScale(), 1u);
    EXPECT_EQ(t.GetSeconds(), 0.0);
}

TEST(CATime, SetTimeScaleDoesNotConvert)
{
    CATime t(30, 10);
    t.SetTimeScale(1000);
    EXPECT_EQ(t.GetTime(), 30u);
    t.SetTime(0);
    EXPECT_EQ(t.GetTime(), 0u);
}

TEST(CATime, ConversionRoundsHalfUp)
{
    const struct {
        uint64_t time, scale, to, expected;
    } cases[] = {
        {1, 3, 2, 1},  // 0.667 rounds up
        {1, 4, 2, 1},  // exactly a half rounds up
        {1, 5, 2, 0},  // 0.4 rounds down
        {1, 3, 1000, 333},
        {2, 3, 1000, 667},
        {3003, 30000, 90000, 9009},
        {90000, 90000, 1, 1},
        {kTwo53 + 1, 10, 10, kTwo53 + 1},  // same scale: no floating point
        {UINT64_MAX, 7, 7, UINT64_MAX},
    };
    for (const auto& c : cases) {
        const CATime t(c.time, c.scale);
        EXPECT_EQ(t.GetTime(c.to), c.expected) << c.time << "/" << c.scale << " -> " << c.to;
        const CATime changed = t.ChangeTimeScale(c.to);
        EXPECT_EQ(changed.GetTime(), c.expected);
        EXPECT_EQ(changed.GetTimeScale(), c.to);
        EXPECT_EQ(t.GetTime(), c.time) << "ChangeTimeScale must leave the original alone";
    }
}

TEST(CATime, Equality)
{
    const struct {
        CATime a, b;
        bool equal;
    } cases[] = {
        {CATime(1, 2), CATime(2, 4), true},
        {CATime(1, 2), CATime(1, 3), false},
        {CATime(0, 1), CATime(0, 90000), true},
        // Exact while the cross products fit: 1/3 s and 0.333333 s differ.
        {CATime(1, 3), CATime(333333, 1000000), false},
        // A zero time scale equals only the identical time.
        {CATime(5, 0), CATime(5, 0), true},
        {CATime(0, 0), CATime(0, 1), false},
        {CATime(0, 1), CATime(0, 0), false},
        {CATime(10, 0), CATime(20, 0), false},
        // Cross products overflow 64 bits: equal within one unit of the
        // coarser scale (1/3e9 s), not exactly.
        {CATime(3000000000, 3000000000), CATime(5000000001, 5000000000), true},
        {CATime(3000000000, 3000000000), CATime(5000000002, 5000000000), false},
        {CATime(3000000000, 3000000000), CATime(4999999999, 5000000000), true},
        // Same products, both sides overflowing and exactly equal in seconds.
        {CATime(4000000000000000000ull, 4000000000), CATime(8000000000000000000ull, 8000000000), true},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.a == c.b, c.equal) << c.a.GetTime() << "/" << c.a.GetTimeScale() << " vs " << c.b.GetTime() << "/"
                                       << c.b.GetTimeScale();
        EXPECT_EQ(c.b == c.a, c.equal) << "equality must be symmetric";
        EXPECT_EQ(c.a != c.b, !c.equal);
    }
}

TEST(CATime, Ordering)
{
    EXPECT_TRUE(CATime(3, 2) < CATime(2, 1));        // seconds compared
    EXPECT_TRUE(CATime(5, 1000) > CATime(4, 1000));  // counts compared
    EXPECT_TRUE(CATime(4, 1000) <= CATime(4, 1000));
    EXPECT_TRUE(CATime(4, 1000) >= CATime(4, 1000));
    EXPECT_FALSE(CATime(4, 1000) < CATime(4, 1000));
    EXPECT_TRUE(CATime(1, 2) <= CATime(2, 4));
    EXPECT_TRUE(CATime(1, 2) >= CATime(2, 4));

    // One scale: integers, exact where doubles would see two equal values.
    const CATime big(uint64_t{1} << 60, 1);
    const CATime bigger((uint64_t{1} << 60) + 1, 1);
    EXPECT_TRUE(big < bigger);
    EXPECT_TRUE(bigger > big);
    EXPECT_FALSE(bigger <= big);

    // Ordering has no tolerance: == and < can hold together.
    const CATime a(3000000000, 3000000000);
    const CATime b(5000000001, 5000000000);
    EXPECT_TRUE(a == b);
    EXPECT_TRUE(a < b);
}

TEST(CATime, CloseEnoughIsInclusive)
{
    EXPECT_TRUE(CATime(1, 1).CloseEnough(CATime(3, 2), 0.5));
    EXPECT_FALSE(CATime(1, 1).CloseEnough(CATime(3, 2), 0.4999));
    EXPECT_TRUE(CATime(3, 2).CloseEnough(CATime(1, 1), 0.5));
}

TEST(CATime, AddSeconds)
{
    const struct {
        uint64_t time, scale;
        double seconds;
        uint64_t expected;
    } cases[] = {
        {5, 1, -10.0, 0},  // never below zero
        {5, 1, -5.0, 0},
        {5, 1, -4.0, 1},
        {5, 1000, 0.0015, 6},  // 1.5 units + 1/2000: truncated to 1, not rounded to 2
        {5, 1000, -0.0015, 4},
        {0, 100, 2.3, 230},  // 229.99999999999997 + 0.005 reaches 230
        {0, 10000000, 1.0, 10000000},
        {7, 3, 0.0, 7},
    };
    for (const auto& c : cases) {
        CATime t(c.time, c.scale);
        t.Add(c.seconds);
        EXPECT_EQ(t.GetTime(), c.expected) << c.time << "/" << c.scale << " + " << c.seconds;
        EXPECT_EQ(t.GetTimeScale(), c.scale);
    }
}

TEST(CATime, AddTimeConvertsToOwnScale)
{
    CATime t(10, 1000);
    t.Add(CATime(1, 3));  // 333.3 units, rounded to 333
    EXPECT_EQ(t.GetTime(), 343u);
    EXPECT_EQ(t.GetTimeScale(), 1000u);
    t.Add(CATime(1, 2000));  // half a unit rounds up
    EXPECT_EQ(t.GetTime(), 344u);
}

TEST(CATime, SetTimeFromText)
{
    const struct {
        const char* text;
        uint64_t expected;
    } cases[] = {
        {"1.5", 15000000},     {"abc", 0}, {"", 0}, {"  2.25xyz", 22500000}, {"0.00000019", 1},  // 1.9 units truncated
        {"3600", 36000000000}, {"-3", 0},  // a time is never negative
        {nullptr, 0},
    };
    for (const auto& c : cases) {
        CATime t(99, 7);
        t.SetTime(c.text);
        EXPECT_EQ(t.GetTime(), c.expected) << (c.text ? c.text : "(null)");
        EXPECT_EQ(t.GetTimeScale(), 10000000u);
    }
}

TEST(CATime, ToString)
{
    const struct {
        uint64_t time, scale;
        const char* expected;
    } cases[] = {
        {0, 1, "000000.000000"},
        {3723500, 1000, "010203.500000"},
        {360000, 1, "1000000.000000"},  // 100 hours, not wrapped at 24
        {86399, 1, "235959.000000"},
        {1, 3, "000000.333333"},
        {2, 3, "000000.666666"},  // truncated, not rounded
        {1234567, 10000000, "000000.123456"},
        {59999999, 1000000, "000059.999999"},
        // remainder x 10^6 exceeds 64 bits at this scale
        {999999999999999999ull, 1000000000000000000ull, "000000.999999"},
    };
    for (const auto& c : cases) {
        std::string text = "stale";
        CATime(c.time, c.scale).ToString(text);
        EXPECT_EQ(text, c.expected) << c.time << "/" << c.scale;
    }
}

}  // namespace
