// Chunk boundaries from scene scores, and the chunk trailer byte for byte.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <tuple>
#include <vector>

#include "ToolTestSupport.h"
#include "common/Golden.h"
#include "tools/ChunkPlan.h"
#include "tools/ChunkTrailer.h"

using namespace evc::tools;

namespace {

// Scores of `frames` pictures with cuts at the given pictures, each
// stronger than the one before (cut, cut + 0.1, ...).
std::vector<double> Scores(uint64_t frames, std::vector<uint64_t> cuts, double cut = 0.5)
{
    std::vector<double> scores(frames, 0.01);
    for (size_t i = 0; i < cuts.size(); ++i)
        scores[cuts[i]] = cut + 0.1 * double(i);
    return scores;
}

// Costs of 1 for the first half of the pictures, 3 for the second.
std::vector<double> CostlySecondHalf(uint64_t frames)
{
    std::vector<double> costs(frames, 1.0);
    std::fill(costs.begin() + frames / 2, costs.end(), 3.0);
    return costs;
}

TEST(ChunkPlan, BoundariesFollowCutsWithinTheLimits)
{
    // With a count, boundaries near even shares of the pictures; without one
    // (count 0 here, one job), whole scenes up to a quarter of the work.
    struct Row {
        const char* name;
        std::vector<double> scores;
        uint32_t count;
        ChunkLimits limits;
        std::vector<uint64_t> starts;
        std::vector<double> costs = {};
    };
    const std::vector<Row> rows = {
        {"no cuts: even shares", Scores(100, {}), 4, {}, {0, 25, 50, 75}},
        {"cuts near the shares win", Scores(100, {20, 55, 70}), 4, {}, {0, 20, 55, 70}},
        {"the strongest cut in the window", Scores(100, {30, 70}), 2, {}, {0, 70}},
        {"a cut too far from the share is left", Scores(100, {10}), 2, {}, {0, 50}},
        {"a weak change is no cut", Scores(100, {40}, kSceneCut / 2), 2, {}, {0, 50}},
        {"the minimum keeps a cut out", Scores(100, {30}), 2, {35, 0}, {0, 50}},
        {"the maximum keeps a cut out", Scores(100, {70}), 2, {0, 60}, {0, 50}},
        {"limits that cannot be met are dropped", Scores(10, {}), 2, {8, 0}, {0, 5}},
        {"one chunk", Scores(10, {5}), 1, {}, {0}},
        {"a picture a chunk", Scores(3, {1}), 3, {}, {0, 1, 2}},
        {"fewer pictures than chunks", Scores(2, {}), 3, {}, {0}},
        {"scenes gathered up to a quarter", Scores(100, {10, 20, 30, 60}), 0, {}, {0, 20, 30, 60}},
        {"costly scenes stand alone", Scores(100, {25, 50, 75}), 0, {}, {0, 50, 75}, CostlySecondHalf(100)},
        {"short scenes join the next", Scores(100, {5, 50}), 0, {10, 0}, {0, 50}},
        {"and a short last one the one before", Scores(100, {95}), 0, {10, 0}, {0}},
        {"a long scene is split evenly", Scores(100, {}), 0, {0, 40}, {0, 33, 66}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(row.count != 0 ? ChunkStarts(row.scores, row.count, row.limits)
                                 : SceneChunkStarts(row.scores, row.costs, 1, row.limits, 10),
                  row.starts);
    }
    // With two jobs, a scene holding more than one's share is cut when it is
    // long: in quarter shares where the parts stay long, else in fewer parts
    // (never parts of more than a share); a short one is kept whole.
    EXPECT_EQ(SceneChunkStarts(Scores(100, {90}), {}, 2, {}, 10),
              (std::vector<uint64_t>{0, 12, 23, 34, 45, 57, 68, 79, 90}));
    EXPECT_EQ(SceneChunkStarts(Scores(100, {90}), {}, 2, {}, 90), (std::vector<uint64_t>{0, 45, 90}));
    EXPECT_EQ(SceneChunkStarts(Scores(100, {90}), {}, 2, {}, 91), (std::vector<uint64_t>{0, 90}));
}

TEST(ChunkPlan, SceneScoresSeeACutAndNotMotion)
{
    TestPatternPlan plan = ParseTestPattern("64x48@25:1");
    auto source = MakeTestPatternSource(plan);
    SceneDetector detector(source->format());
    Picture picture;
    std::vector<AudioPacket> audio;
    std::vector<double> scores;
    while (source->next(picture, audio))
        scores.push_back(detector.next(picture));
    ASSERT_EQ(scores.size(), 25u);
    for (double s : scores)
        EXPECT_LT(s, kSceneCut) << "a moving pattern has no cut";
    // A black picture after the pattern is one.
    if (picture.frame)
        for (int y = 0; y < 48; ++y)
            std::memset(picture.frame->data[0] + y * picture.frame->linesize[0], 0, 64);
    else
        std::fill(picture.pixels.begin(), picture.pixels.begin() + 64 * 48, 0);
    EXPECT_GE(detector.next(picture), kSceneCut);
}

TEST(ChunkTrailer, BytesAndWhatIsRefused)
{
    static_assert(ChunkTrailer::kSize == 112, "the trailer's size is part of the file layout");
    const evctest::Bytes golden =
        evctest::Hex("00 45 56 43 43 48 4B 31  01000000 03000000  0001000000000000  8000000000000000"
                     "905F010000000000  31637661  06000000  00000000  80070000  38040000  30750000  E9030000"
                     "01000000  01000000 01000000  01000000 01000000 01000000 01000000 01000000  00000000"
                     "0002000000000000");
    uint8_t bytes[ChunkTrailer::kSize];
    ASSERT_EQ(golden.size(), sizeof bytes);
    std::memcpy(bytes, golden.data(), sizeof bytes);
    const std::optional<ChunkTrailer> t = ChunkTrailer::decode(bytes);
    ASSERT_TRUE(t);
    const VideoFormat& f = t->format;
    EXPECT_EQ(std::make_tuple(t->index, t->count, t->first, t->frames, t->totalFrames, t->codec),
              std::make_tuple(1u, 3u, 0x100ull, 0x80ull, 0x200ull, 0x61766331u));
    EXPECT_EQ(std::make_tuple(f.width, f.height, f.timeScale, f.fpsNum, f.fpsDen, f.variableRate, f.colorFormat),
              std::make_tuple(1920u, 1080u, 90000ull, 30000u, 1001u, true, 6u));
    EXPECT_EQ(std::make_tuple(f.sarNum, f.sarDen, f.fieldOrder, f.colorRange, f.colorPrimaries, f.colorTransfer,
                              f.colorMatrix),
              std::make_tuple(1u, 1u, 1, 1, 1, 1, 1));
    std::memset(bytes, 0, sizeof bytes);
    t->encode(bytes);
    EXPECT_EQ(evctest::Bytes(bytes, bytes + sizeof bytes), golden);

    struct Row {
        const char* name;
        size_t offset;
        uint8_t value;
    };
    const std::vector<Row> refused = {{"another magic", 7, '2'},
                                      {"index past the count", 8, 3},
                                      {"no time scale", 32, 0},
                                      {"pictures past the input", 25, 0x02},
                                      {"a width past 16384", 54, 0x01}};
    for (const Row& row : refused) {
        SCOPED_TRACE(row.name);
        uint8_t bad[ChunkTrailer::kSize];
        std::memcpy(bad, bytes, sizeof bad);
        bad[row.offset] = row.value;
        if (row.offset == 32)
            std::memset(bad + 32, 0, 8);
        EXPECT_FALSE(ChunkTrailer::decode(bad));
    }
}

}  // namespace
