#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tools/EncodeOptions.h"
#include "tools/FrameSource.h"
#include "tools/TestPattern.h"

using namespace evc::tools;

namespace {

TEST(TestPatternPlan, Table)
{
    struct Case {
        const char* text;
        uint32_t width, height, fpsNum, fpsDen;
        uint64_t frames;  // 0: refused
    };
    const std::vector<Case> cases = {
        {"640x360@25:4", 640, 360, 25, 1, 100},  {"320x240@30000/1001:2", 320, 240, 30000, 1001, 60},
        {"16x16@25:0.01", 16, 16, 25, 1, 1},  // never fewer than one picture
        {"352x288@25:2.4", 352, 288, 25, 1, 60}, {"640x360@25", 0, 0, 0, 0, 0},
        {"640x360:25@4", 0, 0, 0, 0, 0},         {"0x360@25:4", 0, 0, 0, 0, 0},
        {"640x360@0:4", 0, 0, 0, 0, 0},          {"640x360@25:-1", 0, 0, 0, 0, 0},
        {"640x360@25:4s", 0, 0, 0, 0, 0},        {"99999x360@25:4", 0, 0, 0, 0, 0},
        {"-640x360@25:4", 0, 0, 0, 0, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        if (c.frames == 0) {
            EXPECT_THROW(ParseTestPattern(c.text), std::invalid_argument);
            continue;
        }
        const TestPatternPlan plan = ParseTestPattern(c.text);
        EXPECT_EQ(plan.format.width, c.width);
        EXPECT_EQ(plan.format.height, c.height);
        EXPECT_EQ(plan.format.fpsNum, c.fpsNum);
        EXPECT_EQ(plan.format.fpsDen, c.fpsDen);
        EXPECT_EQ(plan.frames, c.frames);
    }
}

TEST(TestPattern, MovesAndStaysInVideoRange)
{
    const uint32_t w = 64, h = 48;
    const size_t size = w * h * 3 / 2;
    std::vector<uint8_t> first(size), again(size), later(size);
    DrawTestPattern(first.data(), w, h, 0);
    DrawTestPattern(again.data(), w, h, 0);
    DrawTestPattern(later.data(), w, h, 5);
    EXPECT_EQ(first, again) << "deterministic";
    EXPECT_NE(first, later) << "it moves";
    for (size_t i = 0; i < w * h; ++i) {
        ASSERT_GE(first[i], 16) << i;
        ASSERT_LE(first[i], 235) << i;
    }
    // A source made from the same plan gives the same pictures.
    TestPatternPlan plan = ParseTestPattern("64x48@25:0.08");
    auto source = MakeTestPatternSource(plan);
    std::vector<uint8_t> picture;
    ASSERT_TRUE(source->next(picture));
    EXPECT_EQ(picture, first);
    ASSERT_TRUE(source->next(picture));
    EXPECT_FALSE(source->next(picture)) << "two pictures in 0.08 s at 25 fps";
}

TEST(EncodeOptions, CommandLines)
{
    EncodeOptions o = ParseEncodeOptions({"in.y4m", "-o", "out.h264", "--preset", "p.xml", "-q"});
    EXPECT_EQ(o.input, "in.y4m");
    EXPECT_EQ(o.output, "out.h264");
    EXPECT_EQ(o.preset, "p.xml");
    EXPECT_TRUE(o.quiet);

    o = ParseEncodeOptions({"--test-pattern", "64x48@25:1", "--output", "x.evcseg"});
    EXPECT_EQ(o.testPattern, "64x48@25:1");
    EXPECT_TRUE(o.input.empty());

    EXPECT_EQ(ParseEncodeOptions({"-", "-o", "x.h264"}).input, "-");
    EXPECT_TRUE(ParseEncodeOptions({"--help"}).help);

    const std::vector<std::vector<std::string>> bad = {
        {},
        {"in.y4m"},
        {"in.y4m", "-o"},
        {"in.y4m", "other.y4m", "-o", "x.h264"},
        {"in.y4m", "--test-pattern", "64x48@25:1", "-o", "x.h264"},
        {"in.y4m", "-o", "x.h264", "--bogus"},
    };
    for (const auto& arguments : bad)
        EXPECT_THROW(ParseEncodeOptions(arguments), UsageError) << arguments.size();
}

}  // namespace
