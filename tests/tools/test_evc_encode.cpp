// evc-encode end to end: the built program drives the real service and the
// H.264 plug-in; ffmpeg decodes what it wrote.
#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <string>
#include <vector>

#include "ToolTestSupport.h"
#include "evc/H264Codec.h"
#include "plugins/bundles/TestPluginCodes.h"
#include "tools/TestPattern.h"
#include "transport/TZKEncImage.h"
#include "transport/TZKIntermediateSegment.h"

using namespace tool_test;

namespace {

constexpr uint32_t kWidth = 320;
constexpr uint32_t kHeight = 240;
constexpr size_t kFrames = 60;
constexpr size_t kPictureBytes = kWidth * kHeight * 3 / 2;

std::vector<std::vector<uint8_t>> Pictures(uint32_t width, uint32_t height, size_t count, uint64_t step)
{
    std::vector<std::vector<uint8_t>> pictures(count, std::vector<uint8_t>(width * height * 3 / 2));
    for (size_t n = 0; n < count; ++n)
        evc::tools::DrawTestPattern(pictures[n].data(), width, height, n * step);
    return pictures;
}

// Mean squared error over all planes of every picture, as PSNR in dB.
double Psnr(const std::vector<std::vector<uint8_t>>& source, const std::vector<uint8_t>& decoded)
{
    double squared = 0;
    size_t samples = 0;
    for (size_t n = 0; n < source.size(); ++n) {
        const uint8_t* picture = decoded.data() + n * source[n].size();
        for (size_t i = 0; i < source[n].size(); ++i) {
            const double d = double(source[n][i]) - picture[i];
            squared += d * d;
        }
        samples += source[n].size();
    }
    return squared == 0 ? 100 : 10 * std::log10(255.0 * 255.0 / (squared / samples));
}

class EvcEncodeTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        m_dir = std::make_unique<TempDir>();
        // The segment's backing file goes here, so the test sees it removed.
        m_segments = m_dir->file("segments");
        ASSERT_EQ(RunCommand("mkdir '" + m_segments + "'", *m_dir).status, 0);
    }

    void TearDown() override
    {
        EXPECT_TRUE(RunCommand("ls -A '" + m_segments + "'", *m_dir).out.empty()) << "the segment was removed";
        EXPECT_TRUE(ProcessesMentioning(m_segments).empty()) << "no service outlived its encoder";
        m_dir.reset();
    }

    CommandResult Encode(const std::string& arguments, const std::string& stdinPath = "")
    {
        std::string line = "TMPDIR='" + m_segments + "' '" + EncoderPath() + "' " + arguments;
        if (!stdinPath.empty())
            line += " <'" + stdinPath + "'";
        return RunCommand(line, *m_dir);
    }

    std::string Preset(const std::string& name) const { return "'" + SourceDir() + "/presets/" + name + "'"; }

    // Decodes an Annex-B file with ffmpeg and checks what ffprobe says of it.
    std::vector<uint8_t> Decode(const std::string& h264, uint32_t width, uint32_t height, size_t frames)
    {
        const CommandResult probe =
            RunCommand("ffprobe -v error -count_frames -select_streams v:0 -show_entries "
                       "stream=codec_name,width,height,nb_read_frames -of default=noprint_wrappers=1 '" +
                           h264 + "'",
                       *m_dir);
        EXPECT_EQ(probe.status, 0) << probe.err;
        EXPECT_NE(probe.out.find("codec_name=h264"), std::string::npos) << probe.out;
        EXPECT_NE(probe.out.find("width=" + std::to_string(width) + "\n"), std::string::npos) << probe.out;
        EXPECT_NE(probe.out.find("height=" + std::to_string(height) + "\n"), std::string::npos) << probe.out;
        EXPECT_NE(probe.out.find("nb_read_frames=" + std::to_string(frames) + "\n"), std::string::npos) << probe.out;

        const std::string raw = m_dir->file("decoded.yuv");
        const CommandResult decode =
            RunCommand("ffmpeg -v error -y -i '" + h264 + "' -f rawvideo -pix_fmt yuv420p '" + raw + "'", *m_dir);
        EXPECT_EQ(decode.status, 0) << decode.err;
        std::vector<uint8_t> bytes = ReadFile(raw);
        std::remove(raw.c_str());
        return bytes;
    }

    static bool HaveFfmpeg() { return HaveProgram("ffmpeg") && HaveProgram("ffprobe"); }

    std::unique_ptr<TempDir> m_dir;
    std::string m_segments;
};

TEST_F(EvcEncodeTest, Y4mFileDecodesWithFfmpegAboveQualityBar)
{
    if (!HaveFfmpeg())
        GTEST_SKIP() << "ffmpeg and ffprobe are not installed";
    const auto pictures = Pictures(kWidth, kHeight, kFrames, 3);
    const std::string input = m_dir->file("clip.y4m");
    // Frame parameters and an X tag, as other tools write them.
    WriteFile(input, MakeY4m(kWidth, kHeight, " F30:1 Ip A1:1 C420jpeg XYSCSS=420JPEG", pictures, " Ip"));

    const std::string output = m_dir->file("clip.h264");
    const CommandResult run =
        Encode("--quiet --preset " + Preset("h264-quality.xml") + " '" + input + "' -o '" + output + "'");
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.err, "") << "--quiet writes nothing";

    const std::vector<uint8_t> decoded = Decode(output, kWidth, kHeight, kFrames);
    ASSERT_EQ(decoded.size(), kFrames * kPictureBytes);
    const double psnr = Psnr(pictures, decoded);
    EXPECT_GT(psnr, 35.0);
    RecordProperty("psnr_db", std::to_string(psnr));
}

TEST_F(EvcEncodeTest, TestPatternWithDefaultPresetAndSummary)
{
    if (!HaveFfmpeg())
        GTEST_SKIP() << "ffmpeg and ffprobe are not installed";
    const std::string output = m_dir->file("pattern.h264");
    // No --preset: the bundled quality preset is found beside the build.
    const CommandResult run = Encode("--test-pattern 352x288@25:2.4 -o '" + output + "'");
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_NE(run.err.find("encoded 60 frames 352x288 at 25 fps into " + output), std::string::npos) << run.err;
    EXPECT_NE(run.err.find("kbit/s"), std::string::npos) << run.err;

    const std::vector<uint8_t> decoded = Decode(output, 352, 288, 60);
    ASSERT_EQ(decoded.size(), 60u * 352 * 288 * 3 / 2);
    EXPECT_GT(Psnr(Pictures(352, 288, 60, 1), decoded), 35.0);

    // The stream opens with the parameter sets, then an IDR picture.
    const std::vector<uint8_t> bytes = ReadFile(output);
    ASSERT_GT(bytes.size(), 5u);
    EXPECT_EQ(std::vector<uint8_t>(bytes.begin(), bytes.begin() + 4), (std::vector<uint8_t>{0, 0, 0, 1}));
    EXPECT_EQ(bytes[4] & 0x1F, 7) << "SPS first";
}

TEST_F(EvcEncodeTest, StandardInputToSegmentFile)
{
    const auto pictures = Pictures(kWidth, kHeight, kFrames, 2);
    const std::string input = m_dir->file("clip.y4m");
    WriteFile(input, MakeY4m(kWidth, kHeight, " F25:1", pictures));
    const std::string output = m_dir->file("clip.evcseg");
    const CommandResult run = Encode("-q --preset " + Preset("h264-preview.xml") + " - -o '" + output + "'", input);
    ASSERT_EQ(run.status, 0) << run.err;

    TZKIntermediateSegment segment;
    ASSERT_TRUE(segment.open(output));
    EXPECT_EQ(segment.getStart().GetTime(), 0u);
    EXPECT_EQ(segment.getStart().GetTimeScale(), 25u);
    EXPECT_NEAR(segment.getDuration().GetSeconds(), kFrames / 25.0, 1e-9) << "sixty pictures of 1/25 s";

    size_t elements = 0, pictureCount = 0, keyPictures = 0, descriptorBundles = 0;
    while (std::unique_ptr<Ebml::IElement> element{segment.readNext()}) {
        ASSERT_EQ(element->getId(), TZKEncImageElt::kId);
        TZKImageFramePtr frame = static_cast<TZKEncImageElt&>(*element)->exportFrame(CATime(0, 0));
        ASSERT_TRUE(frame);
        const ZKEncImage_t record = frame->GetZKEncImage();
        EXPECT_EQ(record.image.width, kWidth);
        EXPECT_EQ(record.image.height, kHeight);
        if (record.descriptors != nullptr && record.descriptors->size() > 0) {
            ++descriptorBundles;
            EXPECT_EQ(pictureCount, 0u) << "the parameter sets come with the first picture";
        }
        ASSERT_NE(record.image.dataPackets, nullptr);
        for (uint32_t i = 0; i < record.image.dataPackets->size(); ++i) {
            const IPacket* packet = record.image.dataPackets->get(i);
            if (packet->getType() == evc::h264::kKeyPicturePacket)
                ++keyPictures;
            EXPECT_GT(packet->getDataSize(), 0u);
            ++pictureCount;
        }
        ++elements;
    }
    EXPECT_TRUE(segment.isEOF());
    EXPECT_GT(elements, 0u);
    EXPECT_EQ(pictureCount, kFrames);
    EXPECT_EQ(descriptorBundles, 1u);
    EXPECT_GE(keyPictures, 1u);
}

TEST_F(EvcEncodeTest, FailuresExitWithOneClearLine)
{
    const std::string good = m_dir->file("good.y4m");
    WriteFile(good, MakeY4m(64, 48, " F25:1", Pictures(64, 48, 3, 1)));
    const std::string chroma444 = m_dir->file("444.y4m");
    WriteFile(chroma444, "YUV4MPEG2 W64 H48 F25:1 C444\n");
    const std::string odd = m_dir->file("odd.y4m");
    WriteFile(odd, "YUV4MPEG2 W63 H48 F25:1\n");
    const std::string truncated = m_dir->file("truncated.y4m");
    WriteFile(truncated, MakeY4m(64, 48, "", Pictures(64, 48, 2, 1)).substr(0, 100 + 64 * 48 * 3 / 2));
    const std::string notXml = m_dir->file("not-xml.xml");
    WriteFile(notXml, "this is not a preset");
    const std::string wrongRoot = m_dir->file("wrong-root.xml");
    WriteFile(wrongRoot, "<Input><VideoCompressor Manufacture4cc=\"1702257440\" Codec4cc=\"1635148593\"/></Input>");
    const std::string nobody = m_dir->file("nobody.xml");
    WriteFile(nobody, "<Output><VideoCompressor Manufacture4cc=\"1\" Codec4cc=\"2\"/></Output>");
    const std::string crashing = m_dir->file("crashing.xml");
    WriteFile(crashing, "<Output><VideoCompressor Manufacture4cc=\"" + std::to_string(evctest::kTestManufacturer) +
                            "\" Codec4cc=\"" + std::to_string(evctest::kFaultyCodec) +
                            "\"><NonStandardSettings><Fault Type=\"eEnum\" Value=\"CompressFrame:segv:1\"/>"
                            "</NonStandardSettings></VideoCompressor></Output>");
    const std::string out = m_dir->file("out.h264");

    struct Case {
        const char* name;
        std::string arguments;
        std::string message;
        int status;
    };
    const std::vector<Case> cases = {
        {"missing input", "'" + m_dir->file("missing.y4m") + "' -o '" + out + "'", "cannot open", 1},
        {"4:4:4 input", "'" + chroma444 + "' -o '" + out + "'", "unsupported YUV4MPEG2 colour space C444", 1},
        {"odd size", "'" + odd + "' -o '" + out + "'", "picture size 63x48 is not supported", 1},
        {"truncated picture", "'" + truncated + "' -o '" + out + "'", "truncated", 1},
        {"preset not XML", "--preset '" + notXml + "' '" + good + "' -o '" + out + "'", "0x800300EA", 1},
        {"preset with another root", "--preset '" + wrongRoot + "' '" + good + "' -o '" + out + "'", "0x800300EA", 1},
        {"codes nobody offers", "--preset '" + nobody + "' '" + good + "' -o '" + out + "'", "0x800300E9", 1},
        {"missing preset", "--preset '" + m_dir->file("none.xml") + "' '" + good + "' -o '" + out + "'",
         "cannot read preset", 1},
        {"codec crashes", "--preset '" + crashing + "' '" + good + "' -o '" + out + "'",
         "evc-service was killed by signal 11", 1},
        {"unknown output type", "'" + good + "' -o '" + m_dir->file("out.mp4") + "'", "cannot tell the output format",
         1},
        {"bad test pattern", "--test-pattern 64x48 -o '" + out + "'", "bad test pattern", 1},
        {"no output", "'" + good + "'", "no output", 2},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const CommandResult run = Encode(c.arguments);
        EXPECT_EQ(run.status, c.status) << run.err;
        // A progress line may have been drawn before the failure; it is
        // wiped, and what stays on the terminal is the message alone.
        const std::string shown = run.err.substr(run.err.rfind('\r') + 1);
        EXPECT_EQ(shown.compare(0, 12, "evc-encode: "), 0) << run.err;
        EXPECT_NE(shown.find(c.message), std::string::npos) << run.err;
        ASSERT_FALSE(shown.empty());
        EXPECT_EQ(shown.find('\n'), shown.size() - 1) << "one line: " << run.err;
        EXPECT_EQ(run.err.find('\n'), run.err.size() - 1) << "one line: " << run.err;
        EXPECT_EQ(RunCommand("test -e '" + out + "'", *m_dir).status, 1) << "no partial output is left";
    }
}

}  // namespace
