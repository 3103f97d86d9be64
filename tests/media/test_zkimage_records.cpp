// Kept first: the public records header must compile with nothing before it.
#include "evc/ZKImage.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <vector>

namespace {

struct FieldOffset {
    const char* field;
    size_t actual;
    size_t expected;
};

void ExpectOffsets(const std::vector<FieldOffset>& table)
{
    for (const FieldOffset& f : table)
        EXPECT_EQ(f.actual, f.expected) << f.field;
}

TEST(ZKRecords, ImageOffsets)
{
    EXPECT_EQ(sizeof(ZKImage_t), 120u);
    ExpectOffsets({
        {"colorFormat", offsetof(ZKImage_t, colorFormat), 0},
        {"colorRange", offsetof(ZKImage_t, colorRange), 4},
        {"width", offsetof(ZKImage_t, width), 8},
        {"height", offsetof(ZKImage_t, height), 12},
        {"bottomUp", offsetof(ZKImage_t, bottomUp), 16},
        {"rowBytes", offsetof(ZKImage_t, rowBytes), 20},
        {"planes", offsetof(ZKImage_t, planes), 40},
        {"time", offsetof(ZKImage_t, time), 72},
        {"timeScale", offsetof(ZKImage_t, timeScale), 80},
        {"originalTime", offsetof(ZKImage_t, originalTime), 88},
        {"originalTimeScale", offsetof(ZKImage_t, originalTimeScale), 96},
        {"originalFrameWithinSecond", offsetof(ZKImage_t, originalFrameWithinSecond), 104},
        {"dataSize", offsetof(ZKImage_t, dataSize), 108},
        {"dataPackets", offsetof(ZKImage_t, dataPackets), 112},
    });
}

TEST(ZKRecords, EncImageOffsets)
{
    EXPECT_EQ(sizeof(ZKEncImage_t), 144u);
    ExpectOffsets({
        {"image", offsetof(ZKEncImage_t, image), 0},
        {"descriptors", offsetof(ZKEncImage_t, descriptors), 120},
        {"streamValue", offsetof(ZKEncImage_t, streamValue), 128},
        {"streamFlags", offsetof(ZKEncImage_t, streamFlags), 136},
    });
}

TEST(ZKRecords, AudioOffsets)
{
    EXPECT_EQ(sizeof(ZKAudio_t), 56u);
    EXPECT_EQ(sizeof(ZKEncAudio_t), 72u);
    ExpectOffsets({
        {"time", offsetof(ZKAudio_t, time), 0},
        {"timeScale", offsetof(ZKAudio_t, timeScale), 8},
        {"duration", offsetof(ZKAudio_t, duration), 16},
        {"format", offsetof(ZKAudio_t, format), 24},
        {"channels", offsetof(ZKAudio_t, channels), 28},
        {"sampleSize", offsetof(ZKAudio_t, sampleSize), 30},
        {"sampleRate", offsetof(ZKAudio_t, sampleRate), 32},
        {"numberSamples", offsetof(ZKAudio_t, numberSamples), 36},
        {"dataSize", offsetof(ZKAudio_t, dataSize), 40},
        {"trackIndex", offsetof(ZKAudio_t, trackIndex), 44},
        {"data", offsetof(ZKAudio_t, data), 48},
        {"enc.audio", offsetof(ZKEncAudio_t, audio), 0},
        {"enc.descriptors", offsetof(ZKEncAudio_t, descriptors), 56},
        {"enc.dataPackets", offsetof(ZKEncAudio_t, dataPackets), 64},
    });
}

// The bytes a plug-in built elsewhere would read: little-endian fields at
// their fixed offsets.
TEST(ZKRecords, ImageBytesAreLittleEndianAtFixedOffsets)
{
    ZKEncImage_t enc;
    std::memset(&enc, 0, sizeof enc);
    enc.image.colorFormat = 0x04030201;
    enc.image.height = 0x0D0C0B0A;
    enc.image.rowBytes[3] = 0xA1A2A3A4;
    enc.image.timeScale = 0x1122334455667788ull;
    enc.image.dataSize = 0xCAFEBABE;
    enc.streamValue = 0x0102030405060708ull;
    enc.streamFlags = 0xF00DF00D;

    unsigned char bytes[sizeof enc];
    std::memcpy(bytes, &enc, sizeof enc);
    const struct {
        size_t offset;
        std::vector<unsigned char> expected;
    } cases[] = {
        {0, {0x01, 0x02, 0x03, 0x04}},   {12, {0x0A, 0x0B, 0x0C, 0x0D}},
        {32, {0xA4, 0xA3, 0xA2, 0xA1}},  {80, {0x88, 0x77, 0x66, 0x55, 0x44, 0x33, 0x22, 0x11}},
        {108, {0xBE, 0xBA, 0xFE, 0xCA}}, {128, {0x08, 0x07, 0x06, 0x05, 0x04, 0x03, 0x02, 0x01}},
        {136, {0x0D, 0xF0, 0x0D, 0xF0}},
    };
    for (const auto& c : cases) {
        for (size_t i = 0; i < c.expected.size(); ++i)
            EXPECT_EQ(bytes[c.offset + i], c.expected[i]) << "offset " << c.offset + i;
    }
}

TEST(ZKRecords, AudioBytesAreLittleEndianAtFixedOffsets)
{
    ZKAudio_t audio;
    std::memset(&audio, 0, sizeof audio);
    audio.channels = 0x0102;
    audio.sampleSize = 0x0304;
    audio.trackIndex = 0x05060708;

    unsigned char bytes[sizeof audio];
    std::memcpy(bytes, &audio, sizeof audio);
    const unsigned char expected[] = {0x02, 0x01, 0x04, 0x03};
    EXPECT_EQ(0, std::memcmp(bytes + 28, expected, sizeof expected));
    const unsigned char track[] = {0x08, 0x07, 0x06, 0x05};
    EXPECT_EQ(0, std::memcmp(bytes + 44, track, sizeof track));
}

TEST(ZKRecords, EnumerationValuesAreTheContract)
{
    EXPECT_EQ(sizeof(EColorFormats), 4u);
    EXPECT_EQ(sizeof(ColorRanges_e), 4u);
    EXPECT_EQ(eColorFormatYUV420Planar, 6u);
    EXPECT_EQ(eColorFormatYUV444Planar, 13u);
    EXPECT_EQ(eColorFormatNoPixels, 17u);
    EXPECT_EQ(eColorFormatYUV444Planar10, 24u);
    EXPECT_EQ(eColorFormatYUV422Packed10, 30u);
    EXPECT_EQ(eColorFormatYUV422Planar10, 32u);
    EXPECT_EQ(eColorRangeDefault, 1u);
    EXPECT_EQ(eAudioFormat16Bit, 2u);
    EXPECT_EQ(eAudioFormatUnsized, 12u);
    EXPECT_EQ(eChannelMode2_1, 9);
    EXPECT_EQ(eChannelMode8Channel, 14);
}

}  // namespace
