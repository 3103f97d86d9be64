#include "media/ZKAudio.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace {

TEST(ZKAudio, BytesPerSample)
{
    const uint32_t expected[] = {1, 2, 2, 3, 4, 4, 1, 2, 2, 3, 4, 4, 0, 0, 0};
    for (uint32_t format = 0; format < sizeof expected / sizeof expected[0]; ++format)
        EXPECT_EQ(BytesPerSample(format), expected[format]) << "format " << format;
    EXPECT_EQ(BytesPerSample(0xFFFFFFFF), 0u);
}

TEST(ZKAudio, FrameSize)
{
    ZKAudio_t audio{};
    audio.format = eAudioFormat24Bit;
    audio.channels = 6;
    audio.numberSamples = 1001;
    EXPECT_EQ(CalcFrameSize(audio), 3u * 6 * 1001);
    audio.format = eAudioFormatUnsized;
    EXPECT_EQ(CalcFrameSize(audio), 0u);
}

TEST(ZKAudio, PadsOnlyTheTailWithSilence)
{
    uint8_t buffer[24];
    ZKAudio_t audio{};
    audio.format = eAudioFormat16Bit;
    audio.channels = 2;
    audio.numberSamples = 3;  // 12 bytes of samples
    audio.data = buffer;

    std::memset(buffer, 0x5A, sizeof buffer);
    audio.dataSize = 20;
    ZKPadAudioBufferWithSilence(&audio);
    for (size_t i = 0; i < sizeof buffer; ++i) {
        const uint8_t expected = (i >= 12 && i < 20) ? 0 : 0x5A;
        EXPECT_EQ(buffer[i], expected) << "byte " << i;
    }

    // Samples filling or exceeding the size: nothing is written.
    std::memset(buffer, 0x5A, sizeof buffer);
    audio.dataSize = 8;
    ZKPadAudioBufferWithSilence(&audio);
    audio.format = eAudioFormatUnsized;
    audio.dataSize = 24;
    ZKPadAudioBufferWithSilence(&audio);
    for (uint8_t b : buffer)
        EXPECT_EQ(b, 0x5A);
    ZKPadAudioBufferWithSilence(nullptr);
}

TEST(ZKAudio, ChannelModes)
{
    const struct {
        int32_t mode;
        const char* name;
        int channels;
    } table[] = {
        {1, "Mono", 1},       {2, "Stereo", 2},     {3, "Joint Stereo", 2}, {4, "Dual Channel", 2}, {5, "4.1", 5},
        {6, "5.1", 6},        {7, "6.1", 7},        {8, "7.1", 8},          {9, "2.1", 3},          {10, "Quad", 4},
        {11, "2 Channel", 2}, {12, "4 Channel", 4}, {13, "6 Channel", 6},   {14, "8 Channel", 8},
    };
    for (const auto& row : table) {
        EXPECT_STREQ(ZKGetChannelModeName(row.mode), row.name);
        EXPECT_EQ(ZKGetNumberChannels(row.mode), row.channels) << row.name;
        EXPECT_EQ(ZKGetChannelMode(row.name), row.mode) << row.name;
    }
    for (int32_t unknown : {0, 15, -1, 1000}) {
        EXPECT_STREQ(ZKGetChannelModeName(unknown), "undefined");
        EXPECT_EQ(ZKGetNumberChannels(unknown), 0);
    }
    EXPECT_EQ(ZKGetChannelMode("stereo"), eChannelModeUndefined);
    EXPECT_EQ(ZKGetChannelMode("7.1 "), eChannelModeUndefined);
    EXPECT_EQ(ZKGetChannelMode("undefined"), eChannelModeUndefined);
    EXPECT_EQ(ZKGetChannelMode(static_cast<const char*>(nullptr)), eChannelModeUndefined);
}

TEST(ZKAudio, ChannelModeForCount)
{
    const EChannelMode expected[] = {eChannelModeUndefined, eChannelModeMono,     eChannelModeStereo, eChannelMode2_1,
                                     eChannelModeQuad,      eChannelMode4_1,      eChannelMode5_1,    eChannelMode6_1,
                                     eChannelMode7_1,       eChannelModeUndefined};
    for (int count = 0; count < 10; ++count)
        EXPECT_EQ(ZKGetChannelMode(count), expected[count]) << count << " channels";
    EXPECT_EQ(ZKGetChannelMode(-2), eChannelModeUndefined);
}

}  // namespace
