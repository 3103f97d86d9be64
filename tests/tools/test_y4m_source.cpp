// The mapped YUV4MPEG2 reader against libavformat's on the same files: the
// same format, the same pictures with the same times, the same errors; and
// the files it leaves to libavformat.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "ToolTestSupport.h"
#include "tools/MediaSource.h"
#include "tools/Y4mSource.h"

using namespace evc::tools;
using evctest::Bytes;

namespace {

constexpr uint32_t kWidth = 18, kHeight = 10;  // pictures that are not whole pages

// Every second frame line carries tags, which are skipped (libavformat's
// seek assumes none: no tags where a row seeks).
Bytes Y4m(const std::string& header, int pictures, size_t cut = 0, bool tags = true)
{
    std::string text = "YUV4MPEG2 " + header + "\n";
    Bytes bytes(text.begin(), text.end());
    for (int n = 0; n < pictures; ++n) {
        const std::string frame = n % 2 && tags ? "FRAME Ixyz\n" : "FRAME\n";
        bytes.insert(bytes.end(), frame.begin(), frame.end());
        const Bytes pixels = evctest::Pattern(kWidth * kHeight * 3 / 2, unsigned(n + 1));
        bytes.insert(bytes.end(), pixels.begin(), pixels.end());
    }
    bytes.resize(bytes.size() - cut);
    return bytes;
}

struct Read {
    VideoFormat format;
    std::vector<uint64_t> times, durations;
    std::vector<Bytes> pictures;
    std::string error;
};

Read ReadAll(FrameSource& source)
{
    Read read;
    read.format = source.format();
    try {
        Picture picture;
        std::vector<AudioPacket> audio;
        while (source.next(picture, audio)) {
            Bytes pixels(read.format.frameBytes());
            const uint32_t rows[3] = {kWidth, kWidth / 2, kWidth / 2};
            uint8_t* planes[3] = {pixels.data(), pixels.data() + kWidth * kHeight,
                                  pixels.data() + kWidth * kHeight * 5 / 4};
            CopyPicture(picture, read.format, planes, rows);
            read.pictures.push_back(pixels);
            read.times.push_back(picture.time);
            read.durations.push_back(picture.duration);
        }
    } catch (const InputError& e) {
        read.error = e.what();
    }
    return read;
}

TEST(Y4mSource, GivesWhatLibavformatGives)
{
    const std::string size = "W18 H10 ";
    const struct Row {
        const char* name;
        std::string header;
        size_t cut;  // bytes cut from the end
        uint64_t seekFrames, maxFrames;
        double seekSeconds;
        uint64_t chunkStart = 0;
    } rows[] = {
        {"plain", size + "F25:1 Ip A1:1 C420jpeg", 0, 0, 0, 0},
        {"NTSC rate, top field first, full range, wide pixels",
         size + "F30000:1001 It A4:3 C420mpeg2 XYSCSS=420MPEG2 XCOLORRANGE=FULL", 0, 0, 0, 0},
        {"a rate to reduce, bottom field first", size + "F50:2 Ib A0:0 C420paldv", 0, 0, 0, 0},
        {"seek by time and by pictures, fewer pictures", size + "F30000:1001 C420", 0, 2, 3, 0.1},
        {"cut inside the last picture", size + "F25:1 C420jpeg", 7, 0, 0, 0},
        {"cut inside the last frame line", size + "F25:1 C420jpeg", kWidth * kHeight * 3 / 2 + 3, 0, 0, 0},
        {"a chunk from the fourth picture after one skipped", size + "F25:1 C420jpeg", 0, 1, 0, 0, 3},
    };
    tool_test::TempDir dir;
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        InputPlan plan;
        plan.path = dir.Write("in.y4m", Y4m(row.header, 7, row.cut, row.seekSeconds == 0 && row.chunkStart == 0));
        plan.chunkStart = row.chunkStart;
        plan.seekFrames = row.seekFrames;
        plan.maxFrames = row.maxFrames;
        plan.seekSeconds = row.seekSeconds;
        const std::unique_ptr<FrameSource> mapped = OpenMappedY4m(plan);
        ASSERT_TRUE(mapped);
        const Read got = ReadAll(*mapped);
        const Read want = ReadAll(*OpenLibavSource(plan));
        for (const auto& field : {&VideoFormat::width, &VideoFormat::height, &VideoFormat::fpsNum, &VideoFormat::fpsDen,
                                  &VideoFormat::sarNum, &VideoFormat::sarDen})
            EXPECT_EQ(got.format.*field, want.format.*field);
        for (const auto& field : {&VideoFormat::fieldOrder, &VideoFormat::colorRange, &VideoFormat::pixelFormat})
            EXPECT_EQ(got.format.*field, want.format.*field);
        EXPECT_EQ(got.format.timeScale, want.format.timeScale);
        EXPECT_EQ(got.format.expectedFrames, want.format.expectedFrames);
        EXPECT_EQ(got.times, want.times);
        EXPECT_EQ(got.durations, want.durations);
        EXPECT_TRUE(got.pictures == want.pictures);
        EXPECT_EQ(got.error, want.error);
        EXPECT_FALSE(got.pictures.empty());
    }
    // Left to libavformat: a pipe, other colour spaces, odd sizes, unknown tags, not a stream.
    for (const std::string& header :
         {size + "F25:1 C444", std::string("W17 H10 F25:1 C420jpeg"), size + "F25:1 C420jpeg Q1", size + "F25:1"}) {
        SCOPED_TRACE(header);
        InputPlan plan;
        plan.path = dir.Write("other.y4m", Y4m(header, 2));
        EXPECT_FALSE(OpenMappedY4m(plan));
    }
    InputPlan plan;
    plan.path = "-";
    EXPECT_FALSE(OpenMappedY4m(plan));
    plan.path = dir.Write("text.y4m", std::string("not a video\n"));
    EXPECT_FALSE(OpenMappedY4m(plan));
}

}  // namespace
