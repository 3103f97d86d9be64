// Streams made by the H.264 bundle, checked by ffprobe and ffmpeg: picture
// count, size, key pictures, times, the flush of delayed pictures, lossless
// round trips of padded and bottom-up input, and the bundled presets.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <numeric>

#include "codecs/H264Fixture.h"
#include "evc/H264Codec.h"
#include "service/PresetReader.h"

using namespace evctest;
namespace codes = evc::h264;

namespace {

// Writes the stream to a temporary file and checks what ffprobe and ffmpeg
// make of it.
void ExpectDecodes(const TStream& stream, uint32_t width, uint32_t height, size_t pictures)
{
    TTempFile file;
    file.Write(stream.AnnexB());
    EXPECT_EQ(ProbeStream(file.Path()), "width=" + std::to_string(width) + "\nheight=" + std::to_string(height) +
                                            "\nnb_read_frames=" + std::to_string(pictures) + "\n");
    const TCommandResult decode = RunCommand("ffmpeg -nostdin -v error -f h264 -i '" + file.Path() + "' -f null -");
    EXPECT_EQ(decode.status, 0);
    EXPECT_EQ(decode.output, "") << "the decoder complained";
}

TEST_F(H264Test, UltrafastStreamDecodesWithEveryPictureInTime)
{
    constexpr int kFrames = 30;
    SetEnum(*m_compressor, "Preset", "ultrafast");
    SetInt(*m_compressor, "KeyFrameInterval", 250);
    TPicture picture(640, 360, 32);
    picture.Record().image.timeScale = 1000;
    ASSERT_EQ(m_compressor->Begin(&picture.Record(), false), 0u);
    const TStream stream = EncodeStream(*m_compressor, picture, kFrames, {0, 17}, 40);
    m_compressor->End();

    EXPECT_TRUE(std::all_of(stream.statuses.begin(), stream.statuses.end(), [](uint32_t s) { return s == 0; }));
    EXPECT_EQ(stream.descriptorOutputs, 1);
    ASSERT_EQ(stream.descriptors.size(), 2u);
    ASSERT_EQ(stream.pictures.size(), size_t(kFrames)) << "every picture in is a packet out";
    for (int n = 0; n < kFrames; ++n) {
        const TPacketCopy& packet = stream.pictures[size_t(n)];
        // Without B pictures, decode order is display order.
        EXPECT_EQ(packet.time, uint64_t(n) * 40) << n;
        EXPECT_EQ(packet.duration, 40u) << n;
        EXPECT_EQ(packet.timeBase, 1000u) << n;
        EXPECT_EQ(packet.type, (n == 0 || n == 17) ? codes::kKeyPicturePacket : codes::kPicturePacket) << n;
    }
    ExpectDecodes(stream, 640, 360, kFrames);

    TTempFile file;
    file.Write(stream.AnnexB());
    std::vector<int> keys = ProbeKeyFrames(file.Path());
    ASSERT_EQ(keys.size(), size_t(kFrames));
    EXPECT_EQ(keys[0], 1);
    EXPECT_EQ(keys[17], 1) << "a key frame was asked for at 17";
    EXPECT_EQ(std::accumulate(keys.begin(), keys.end(), 0), 2);

    std::printf("[ measure  ] 640x360 ultrafast: %.0f frames/s\n", kFrames / stream.seconds);
}

TEST_F(H264Test, DelayedPicturesComeOutWithTheLastFrame)
{
    constexpr int kFrames = 30;
    for (const bool flushWithNull : {false, true}) {
        SCOPED_TRACE(flushWithNull ? "null input flushes" : "last frame flushes");
        TCompressorPtr compressor = MakeCompressor(*m_library);
        // The default preset looks ahead and reorders B pictures.
        SetDouble(*compressor, "FrameRate", 30);
        TPicture picture(320, 180, 0);
        picture.Record().image.timeScale = 30000;
        ASSERT_EQ(compressor->Begin(&picture.Record(), false), 0u);
        const TStream stream = EncodeStream(*compressor, picture, kFrames, {}, 1001, flushWithNull);
        compressor->End();

        EXPECT_TRUE(std::all_of(stream.statuses.begin(), stream.statuses.end(), [](uint32_t s) { return s == 0; }));
        ASSERT_EQ(stream.pictures.size(), size_t(kFrames));
        EXPECT_EQ(stream.picturesPerCall.front(), 0u) << "the encoder holds the first picture back";
        EXPECT_GT(stream.picturesPerCall.back(), 1u) << "the flush delivers the held pictures";
        EXPECT_EQ(stream.descriptorOutputs, 1);
        EXPECT_EQ(stream.pictures.front().type, codes::kKeyPicturePacket);

        std::vector<uint64_t> times;
        for (const TPacketCopy& packet : stream.pictures) {
            times.push_back(packet.time);
            EXPECT_EQ(packet.duration, 1001u);
        }
        EXPECT_FALSE(std::is_sorted(times.begin(), times.end())) << "B pictures come after their references";
        std::sort(times.begin(), times.end());
        for (int n = 0; n < kFrames; ++n)
            EXPECT_EQ(times[size_t(n)], uint64_t(n) * 1001);
        ExpectDecodes(stream, 320, 180, kFrames);
    }
}

TEST_F(H264Test, LosslessRoundTripKeepsPaddedAndBottomUpRows)
{
    constexpr int kFrames = 6;
    constexpr uint32_t kWidth = 96, kHeight = 64;
    for (const bool bottomUp : {false, true}) {
        SCOPED_TRACE(bottomUp ? "bottom-up" : "top-down");
        TCompressorPtr compressor = MakeCompressor(*m_library);
        SetEnum(*compressor, "Preset", "ultrafast");
        SetDouble(*compressor, "CRF", 0);
        TPicture picture(kWidth, kHeight, 13, bottomUp);
        ASSERT_EQ(compressor->Begin(&picture.Record(), false), 0u);
        std::vector<uint8_t> expected;
        TStream stream;
        for (int n = 0; n < kFrames; ++n) {
            picture.Draw(n);
            const std::vector<uint8_t> packed = picture.Packed();
            expected.insert(expected.end(), packed.begin(), packed.end());
            ZKEncImage_t output = EmptyOutput();
            ASSERT_EQ(compressor->CompressFrame(&picture.Record(), false, n == kFrames - 1, &output), 0u);
            CopyOutput(output, stream);
        }
        compressor->End();

        TTempFile encoded, decoded;
        encoded.Write(stream.AnnexB());
        const TCommandResult result = RunCommand("ffmpeg -nostdin -y -v error -f h264 -i '" + encoded.Path() +
                                                 "' -f rawvideo -pix_fmt yuv420p '" + decoded.Path() + "'");
        ASSERT_EQ(result.status, 0) << result.output;
        const std::vector<uint8_t> pixels = decoded.Read();
        ASSERT_EQ(pixels.size(), expected.size());
        EXPECT_TRUE(pixels == expected) << "decoded pictures differ from the input";
    }
}

std::string ReadPreset(const std::string& name)
{
    std::ifstream file(std::string(EVC_PRESETS_DIR) + "/" + name);
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

TEST_F(H264Test, BundledPresetsNameThisCompressorAndEncode)
{
    constexpr int kFrames = 20;
    std::map<std::string, size_t> sizes;
    for (const char* name : {"h264-preview.xml", "h264-quality.xml", "h264-cbr.xml"}) {
        SCOPED_TRACE(name);
        std::string preset = ReadPreset(name);
        ASSERT_FALSE(preset.empty());
        unsigned int manufacturer = 0, codec = 0;
        ASSERT_TRUE(DeSerializeVideoCodec4cc(preset, manufacturer, codec));
        EXPECT_EQ(manufacturer, codes::kManufacturer);
        EXPECT_EQ(codec, codes::kCodec);

        TCompressorPtr compressor = MakeCompressor(*m_library);
        ASSERT_TRUE(DeSerializeVideoCodecSettings(preset, compressor.get()));
        TPicture picture(320, 180);
        ASSERT_EQ(compressor->Begin(&picture.Record(), false), 0u) << "every value of the preset is accepted";
        const TStream stream = EncodeStream(*compressor, picture, kFrames);
        compressor->End();
        ASSERT_EQ(stream.pictures.size(), size_t(kFrames));
        ExpectDecodes(stream, 320, 180, kFrames);
        sizes[name] = stream.AnnexB().size();
    }
}

TEST_F(H264Test, BitrateModeSpendsTheBitsItIsGiven)
{
    // 2 seconds of pictures at 25/s; the looser bound allows for the
    // encoder's start-up while the pattern stays easy to compress.
    constexpr int kFrames = 50;
    std::map<int32_t, size_t> sizes;
    for (const int32_t kbits : {30, 300}) {
        TCompressorPtr compressor = MakeCompressor(*m_library);
        SetEnum(*compressor, "Preset", "veryfast");
        SetInt(*compressor, "Bitrate", kbits);
        TPicture picture(320, 180);
        ASSERT_EQ(compressor->Begin(&picture.Record(), false), 0u);
        const TStream stream = EncodeStream(*compressor, picture, kFrames);
        compressor->End();
        ASSERT_EQ(stream.pictures.size(), size_t(kFrames));
        sizes[kbits] = stream.AnnexB().size();
        const size_t target = size_t(kbits) * 1000 / 8 * 2;
        EXPECT_LT(sizes[kbits], target * 3 / 2) << kbits << " kbit/s";
        std::printf("[ measure  ] %d kbit/s: %zu bytes, target %zu\n", kbits, sizes[kbits], target);
    }
    EXPECT_GT(sizes[300], 3 * sizes[30]);
}

}  // namespace
