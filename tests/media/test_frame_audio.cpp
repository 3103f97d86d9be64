#include "media/CAAudioFrame.h"
#include "media/CABufferPool.h"
#include "evc/ZKResult.h"
#include "TestPacketBundle.h"

#include <gtest/gtest.h>

#include <cstring>

namespace {

class AudioFrameTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        liveBundles = TestPacketBundle::Live();
        CABufferPool::GetBufferPool()->ReleaseBuffers();
    }
    void TearDown() override
    {
        EXPECT_EQ(TestPacketBundle::Live(), liveBundles);
        EXPECT_EQ(CABufferPool::GetBufferPool()->GetUsedBufferCount(), 0u);
    }
    int liveBundles = 0;
};

TEST_F(AudioFrameTest, NewFrameIsSixteenBitStereoAt8000)
{
    CAAudioFrame frame;
    EXPECT_EQ(frame.GetFormat(), eAudioFormat16Bit);
    EXPECT_EQ(frame.GetSampleSize(), 16u);
    EXPECT_EQ(frame.GetNumberChannels(), 2u);
    EXPECT_EQ(frame.GetSampleRate(), 8000u);
    EXPECT_EQ(frame.GetNumberSamples(), 0u);
    EXPECT_EQ(frame.GetTrackIndex(), 0u);
    EXPECT_EQ(frame.CalcFrameSize(), 0u);
    EXPECT_EQ(frame.GetBuffer(), nullptr);
}

TEST_F(AudioFrameTest, SetFormatDerivesTheSampleSize)
{
    const struct {
        EAudioFormatType format;
        uint16_t bits;
    } cases[] = {{eAudioFormat8Bit, 8},
                 {eAudioFormat16BitA, 16},
                 {eAudioFormat24Bit, 24},
                 {eAudioFormat32BitB, 32},
                 {eAudioFormatUnsized, 0}};
    CAAudioFrame frame;
    for (const auto& c : cases) {
        EXPECT_EQ(frame.SetFormat(c.format), kZKNoErr);
        EXPECT_EQ(frame.GetFormat(), c.format);
        EXPECT_EQ(frame.GetSampleSize(), c.bits) << "format " << c.format;
    }
}

TEST_F(AudioFrameTest, GetZKEncAudioSizesTheBufferAndConvertsTheDuration)
{
    CAAudioFrame frame;
    frame.SetNumberSamples(1024);
    frame.SetTrackIndex(3);
    frame.SetTime(CATime(96000, 48000));
    frame.SetDuration(CATime(1, 50));  // 20 ms
    const ZKEncAudio_t record = frame.GetZKEncAudio();
    ASSERT_NE(frame.GetBuffer(), nullptr);
    EXPECT_EQ(frame.GetBuffer()->GetSize(), 4096u);
    EXPECT_EQ(record.audio.data, frame.GetBuffer()->GetData());
    EXPECT_EQ(record.audio.dataSize, 4096u);
    EXPECT_EQ(record.audio.time, 96000u);
    EXPECT_EQ(record.audio.timeScale, 48000u);
    EXPECT_EQ(record.audio.duration, 960u);
    EXPECT_EQ(record.audio.trackIndex, 3u);

    // Fewer samples keep the buffer; more replace it.
    const CABuffer* buffer = frame.GetBuffer();
    frame.SetNumberSamples(512);
    EXPECT_EQ(frame.GetZKAudio().dataSize, 2048u);
    EXPECT_EQ(frame.GetBuffer(), buffer);
    frame.SetNumberSamples(2048);
    EXPECT_EQ(frame.GetZKAudio().dataSize, 8192u);
    EXPECT_NE(frame.GetBuffer(), buffer);
    EXPECT_TRUE(buffer->IsAvailable());
}

TEST_F(AudioFrameTest, SetZKAudioRecomputesTheDurationAndChecksTheData)
{
    CAAudioFrame frame;
    frame.SetNumberSamples(1024);
    ZKAudio_t record = frame.GetZKAudio();
    uint8_t* start = record.data;
    ASSERT_NE(start, nullptr);

    EXPECT_EQ(frame.SetZKAudio(nullptr), kZKErrBadArgument);

    const struct {
        const char* name;
        uint8_t* data;
        uint32_t sampleRate;
        uint32_t expected;
    } cases[] = {
        {"at the start", start, 48000, kZKNoErr},
        {"at the end", start + 4096, 48000, kZKNoErr},
        {"past the end", start + 4097, 48000, kZKErrBadArgument},
        {"before the start", start - 1, 48000, kZKErrBadArgument},
        {"sample rate 0", start, 0, kZKErrBadArgument},
    };
    for (const auto& c : cases) {
        ZKAudio_t input = record;
        input.data = c.data;
        input.numberSamples = 1024;
        input.sampleRate = c.sampleRate;
        input.time = 480;
        input.timeScale = 48000;
        input.duration = 1;  // recomputed
        const CATime timeBefore = frame.GetTime();
        EXPECT_EQ(frame.SetZKAudio(&input), c.expected) << c.name;
        if (c.expected == kZKNoErr) {
            EXPECT_EQ(frame.GetDuration(), CATime(1024, 48000)) << c.name;
            EXPECT_EQ(frame.GetTime(), CATime(480, 48000)) << c.name;
        } else {
            EXPECT_EQ(frame.GetTime(), timeBefore) << c.name;
        }
    }

    // Truncating integer arithmetic: 1000 samples at 44100 Hz in 90 kHz units.
    ZKAudio_t input = record;
    input.numberSamples = 1000;
    input.sampleRate = 44100;
    input.timeScale = 90000;
    ASSERT_EQ(frame.SetZKAudio(&input), kZKNoErr);
    EXPECT_EQ(frame.GetDuration().GetTime(), 2040u);  // 2040.8 truncated

    CAAudioFrame empty;
    EXPECT_EQ(empty.SetZKAudio(&record), kZKErrBadArgument) << "no buffer: data must be null";
}

TEST_F(AudioFrameTest, SetZKEncAudioTakesTheBundles)
{
    CAAudioFrame frame;
    frame.SetNumberSamples(16);
    ZKEncAudio_t record = frame.GetZKEncAudio();
    record.audio.sampleRate = 16;
    record.descriptors = new TestPacketBundle(1);
    record.dataPackets = new TestPacketBundle(2);
    ASSERT_EQ(frame.SetZKEncAudio(&record), kZKNoErr);
    const ZKEncAudio_t after = frame.GetZKEncAudio();
    EXPECT_EQ(after.descriptors, record.descriptors);
    EXPECT_EQ(after.dataPackets, record.dataPackets);
    EXPECT_EQ(after.audio.duration, 1u);  // 16 samples at 16 Hz, time scale 1

    // A refused record leaves the bundles alone.
    ZKEncAudio_t bad = after;
    bad.audio.data = nullptr;
    bad.descriptors = nullptr;
    EXPECT_EQ(frame.SetZKEncAudio(&bad), kZKErrBadArgument);
    EXPECT_EQ(frame.GetZKEncAudio().descriptors, record.descriptors);
}

TEST_F(AudioFrameTest, ImportEncAudioTakesABufferOfTheDataSize)
{
    uint8_t foreign[8];
    ZKEncAudio_t record{};
    record.audio.time = 100;
    record.audio.timeScale = 1000;
    record.audio.duration = 21;
    record.audio.format = eAudioFormat16Bit;
    record.audio.channels = 1;
    record.audio.sampleRate = 48000;
    record.audio.numberSamples = 1000;
    record.audio.dataSize = 2000;
    record.audio.data = foreign;
    record.dataPackets = new TestPacketBundle(3);

    CAAudioFrame frame;
    EXPECT_EQ(frame.ImportEncAudio(nullptr), kZKErrBadArgument);
    ASSERT_EQ(frame.ImportEncAudio(&record), kZKNoErr);
    ASSERT_NE(frame.GetBuffer(), nullptr);
    EXPECT_EQ(frame.GetBuffer()->GetSize(), 2000u);
    EXPECT_EQ(frame.GetTime(), CATime(100, 1000));
    EXPECT_EQ(frame.GetDuration(), CATime(21, 1000));
    EXPECT_EQ(frame.GetNumberChannels(), 1u);
    const ZKEncAudio_t after = frame.GetZKEncAudio();
    EXPECT_EQ(after.audio.data, frame.GetBuffer()->GetData());
    EXPECT_EQ(after.dataPackets, record.dataPackets);

    // No data size: no buffer, and the sender's pointer is not kept.
    record.audio.dataSize = 0;
    record.dataPackets = nullptr;
    ASSERT_EQ(frame.ImportEncAudio(&record), kZKNoErr);
    EXPECT_EQ(frame.GetBuffer(), nullptr);
    ZKAudio_t probe{};
    probe.sampleRate = 1;
    EXPECT_EQ(frame.SetZKAudio(&probe), kZKNoErr) << "only a null data pointer lies in no buffer";
}

TEST_F(AudioFrameTest, BundlesAreExchangedAndDestroyedWithTheFrame)
{
    const int before = TestPacketBundle::Live();
    {
        CAAudioFrame frame;
        IPacketBundle* descriptors = new TestPacketBundle(1);
        IPacketBundle* packets = new TestPacketBundle(2);
        frame.ExchangeDescriptorsWith(descriptors);
        frame.ExchangeDataPacketsWith(packets);
        EXPECT_EQ(descriptors, nullptr);
        EXPECT_EQ(packets, nullptr);
        EXPECT_EQ(TestPacketBundle::Live(), before + 2);
    }
    EXPECT_EQ(TestPacketBundle::Live(), before);
}

}  // namespace
