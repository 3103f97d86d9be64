#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "tools/Y4mReader.h"

using evc::tools::Y4mError;
using evc::tools::Y4mHeader;
using evc::tools::Y4mReader;

namespace {

struct HeaderCase {
    const char* name;
    std::string text;
    // Expected on success.
    uint32_t width, height, fpsNum, fpsDen, aspectNum, aspectDen;
    char interlace;
    const char* chroma;
    size_t frameBytes;
    // Non-empty: the header must be refused with a message holding this.
    const char* error;
};

TEST(Y4mReader, HeaderTable)
{
    const std::vector<HeaderCase> cases = {
        {"every tag", "YUV4MPEG2 W320 H240 F30000:1001 Ip A1:1 C420jpeg XYSCSS=420JPEG\n", 320, 240, 30000, 1001, 1, 1,
         'p', "420jpeg", 320 * 240 * 3 / 2, ""},
        {"no C tag means 4:2:0", "YUV4MPEG2 W4 H2 F25:1\n", 4, 2, 25, 1, 0, 0, '?', "420jpeg", 12, ""},
        {"no F tag means 25 fps", "YUV4MPEG2 W2 H2\n", 2, 2, 25, 1, 0, 0, '?', "420jpeg", 6, ""},
        {"paldv siting", "YUV4MPEG2 H2 W2 C420paldv It\n", 2, 2, 25, 1, 0, 0, 't', "420paldv", 6, ""},
        {"mpeg2 siting", "YUV4MPEG2 W2 H2 C420mpeg2\n", 2, 2, 25, 1, 0, 0, '?', "420mpeg2", 6, ""},
        {"plain 420, odd sizes round chroma up", "YUV4MPEG2 W3 H3 C420\n", 3, 3, 25, 1, 0, 0, '?', "420", 9 + 2 * 4,
         ""},
        {"bad magic", "YUV4MPEG W2 H2\n", 0, 0, 0, 0, 0, 0, 0, "", 0, "not a YUV4MPEG2 stream"},
        {"magic glued to a tag", "YUV4MPEG2W2 H2\n", 0, 0, 0, 0, 0, 0, 0, "", 0, "not a YUV4MPEG2 stream"},
        {"empty input", "", 0, 0, 0, 0, 0, 0, 0, "", 0, "cut short"},
        {"no end of line", "YUV4MPEG2 W2 H2", 0, 0, 0, 0, 0, 0, 0, "", 0, "cut short"},
        {"4:4:4", "YUV4MPEG2 W2 H2 C444\n", 0, 0, 0, 0, 0, 0, 0, "", 0, "unsupported YUV4MPEG2 colour space C444"},
        {"10-bit 4:2:0", "YUV4MPEG2 W2 H2 C420p10\n", 0, 0, 0, 0, 0, 0, 0, "", 0, "C420p10"},
        {"monochrome", "YUV4MPEG2 W2 H2 Cmono\n", 0, 0, 0, 0, 0, 0, 0, "", 0, "Cmono"},
        {"no height", "YUV4MPEG2 W2\n", 0, 0, 0, 0, 0, 0, 0, "", 0, "no picture size"},
        {"zero width", "YUV4MPEG2 W0 H2\n", 0, 0, 0, 0, 0, 0, 0, "", 0, "no picture size"},
        {"negative width", "YUV4MPEG2 W-2 H2\n", 0, 0, 0, 0, 0, 0, 0, "", 0, "tag W-2"},
        {"huge width", "YUV4MPEG2 W99999 H2\n", 0, 0, 0, 0, 0, 0, 0, "", 0, "too large"},
        {"width beyond 32 bits", "YUV4MPEG2 W99999999999 H2\n", 0, 0, 0, 0, 0, 0, 0, "", 0, "tag W"},
        {"frame rate without colon", "YUV4MPEG2 W2 H2 F25\n", 0, 0, 0, 0, 0, 0, 0, "", 0, "expected N:D"},
        {"zero frame rate", "YUV4MPEG2 W2 H2 F25:0\n", 0, 0, 0, 0, 0, 0, 0, "", 0, "frame rate"},
        {"bad interlace", "YUV4MPEG2 W2 H2 Ix\n", 0, 0, 0, 0, 0, 0, 0, "", 0, "interlace"},
        {"endless header", "YUV4MPEG2 " + std::string(5000, 'X') + "\n", 0, 0, 0, 0, 0, 0, 0, "", 0, "longer than"},
    };
    for (const HeaderCase& c : cases) {
        SCOPED_TRACE(c.name);
        std::istringstream in(c.text);
        if (*c.error != '\0') {
            try {
                Y4mReader reader(in);
                ADD_FAILURE() << "accepted";
            } catch (const Y4mError& e) {
                EXPECT_NE(std::string(e.what()).find(c.error), std::string::npos) << e.what();
                EXPECT_EQ(std::string(e.what()).find('\n'), std::string::npos) << "one line";
            }
            continue;
        }
        Y4mReader reader(in);
        const Y4mHeader& h = reader.header();
        EXPECT_EQ(h.width, c.width);
        EXPECT_EQ(h.height, c.height);
        EXPECT_EQ(h.fpsNum, c.fpsNum);
        EXPECT_EQ(h.fpsDen, c.fpsDen);
        EXPECT_EQ(h.aspectNum, c.aspectNum);
        EXPECT_EQ(h.aspectDen, c.aspectDen);
        EXPECT_EQ(h.interlace, c.interlace);
        EXPECT_EQ(h.chroma, c.chroma);
        EXPECT_EQ(reader.frameBytes(), c.frameBytes);
    }
}

// A 2x2 stream: 4 luma bytes and one byte per chroma plane.
const std::string kHeader = "YUV4MPEG2 W2 H2 F25:1 C420jpeg\n";

TEST(Y4mReader, FramesTable)
{
    struct FrameCase {
        const char* name;
        std::string body;
        size_t goodFrames;
        const char* error;  // empty: a clean end after goodFrames
    };
    const std::vector<FrameCase> cases = {
        {"no pictures", "", 0, ""},
        {"two pictures", "FRAME\nABCDEFFRAME\nabcdef", 2, ""},
        {"frame parameters are skipped", "FRAME Ixyz XFOO=1\nABCDEF", 1, ""},
        {"truncated picture", "FRAME\nABCDEFFRAME\nabc", 1, "picture 2 of the YUV4MPEG2 stream is truncated (3 of 6"},
        {"marker cut short", "FRAME\nABCDEFFRA", 1, "cut short"},
        {"missing marker", "ABCDEF", 0, "picture 1 of the YUV4MPEG2 stream does not start with \"FRAME\""},
        {"marker glued to a word", "FRAMES\nABCDEF", 0, "does not start with \"FRAME\""},
        {"extra byte shifts the next marker", "FRAME\nABCDEFGFRAME\nabcdef", 1, "picture 2"},
    };
    for (const FrameCase& c : cases) {
        SCOPED_TRACE(c.name);
        std::istringstream in(kHeader + c.body);
        Y4mReader reader(in);
        ASSERT_EQ(reader.frameBytes(), 6u);
        std::vector<uint8_t> picture(reader.frameBytes());
        for (size_t n = 0; n < c.goodFrames; ++n)
            ASSERT_TRUE(reader.readFrame(picture.data())) << n;
        EXPECT_EQ(reader.framesRead(), c.goodFrames);
        if (*c.error == '\0') {
            EXPECT_FALSE(reader.readFrame(picture.data()));
            EXPECT_FALSE(reader.readFrame(picture.data())) << "the end stays the end";
        } else {
            try {
                reader.readFrame(picture.data());
                ADD_FAILURE() << "accepted";
            } catch (const Y4mError& e) {
                EXPECT_NE(std::string(e.what()).find(c.error), std::string::npos) << e.what();
            }
        }
    }
}

TEST(Y4mReader, PlanesArriveInStreamOrder)
{
    std::istringstream in(kHeader + "FRAME\nYYYYUVFRAME X\n\x01\x02\x03\x04\x05\x06");
    Y4mReader reader(in);
    std::vector<uint8_t> picture(reader.frameBytes());
    ASSERT_TRUE(reader.readFrame(picture.data()));
    EXPECT_EQ(std::string(picture.begin(), picture.end()), "YYYYUV");
    ASSERT_TRUE(reader.readFrame(picture.data()));
    EXPECT_EQ(picture, (std::vector<uint8_t>{1, 2, 3, 4, 5, 6}));
}

}  // namespace
