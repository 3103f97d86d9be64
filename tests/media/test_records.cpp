// The plug-in records byte for byte, and the tables behind the audio ones: formats and channel
// modes. The colour format table is checked through the layouts it gives.
#include "evc/ZKImage.h"

#include "MediaTestSupport.h"
#include "media/ZKAudio.h"
#include "media/ZKColorFormats.h"

#include <cstring>
#include <numeric>

using evctest::Bytes;

namespace {

// The value whose little-endian bytes are at, at + 1, ...: a field written with it shows its
// offset and width in the record's bytes.
template <typename T>
T Seq(std::size_t at)
{
    uint64_t v = 0;
    for (std::size_t i = sizeof(T); i-- > 0;)
        v = v << 8 | uint8_t(at + i);
    return T(v);
}
template <typename T>
T* Ptr(std::size_t at)
{
    return reinterpret_cast<T*>(Seq<uintptr_t>(at));
}
// 0, 1, 2, ... with the padding ranges left zero.
Bytes Offsets(std::size_t size, std::initializer_list<std::pair<std::size_t, std::size_t>> padding)
{
    Bytes bytes(size);
    std::iota(bytes.begin(), bytes.end(), 0);
    for (const auto& gap : padding)
        std::fill(bytes.begin() + long(gap.first), bytes.begin() + long(gap.second), 0);
    return bytes;
}

}  // namespace

TEST(ZKRecords, FieldsAtTheirOffsetsLittleEndian)
{
    ZKEncImage_t enc;
    std::memset(&enc, 0, sizeof enc);
    ZKImage_t& image = enc.image;
    image.colorFormat = Seq<uint32_t>(0);
    image.colorRange = Seq<uint32_t>(4);
    image.width = Seq<uint32_t>(8);
    image.height = Seq<uint32_t>(12);
    image.bottomUp = Seq<uint32_t>(16);
    for (int p = 0; p < 4; ++p) {
        image.rowBytes[p] = Seq<uint32_t>(20 + 4 * p);
        image.planes[p] = Ptr<uint8_t>(40 + 8 * p);
    }
    image.time = Seq<uint64_t>(72);
    image.timeScale = Seq<uint64_t>(80);
    image.originalTime = Seq<uint64_t>(88);
    image.originalTimeScale = Seq<uint64_t>(96);
    image.originalFrameWithinSecond = Seq<uint32_t>(104);
    image.dataSize = Seq<uint32_t>(108);
    image.dataPackets = Ptr<IPacketBundle>(112);
    enc.descriptors = Ptr<IPacketBundle>(120);
    enc.streamValue = Seq<uint64_t>(128);
    enc.streamFlags = Seq<uint32_t>(136);
    EXPECT_EQ(evctest::BytesOf(enc), Offsets(144, {{36, 40}, {140, 144}}));

    ZKEncAudio_t audio;
    std::memset(&audio, 0, sizeof audio);
    audio.audio.time = Seq<uint64_t>(0);
    audio.audio.timeScale = Seq<uint64_t>(8);
    audio.audio.duration = Seq<uint64_t>(16);
    audio.audio.format = Seq<uint32_t>(24);
    audio.audio.channels = Seq<uint16_t>(28);
    audio.audio.sampleSize = Seq<uint16_t>(30);
    audio.audio.sampleRate = Seq<uint32_t>(32);
    audio.audio.numberSamples = Seq<uint32_t>(36);
    audio.audio.dataSize = Seq<uint32_t>(40);
    audio.audio.trackIndex = Seq<uint32_t>(44);
    audio.audio.data = Ptr<uint8_t>(48);
    audio.descriptors = Ptr<IPacketBundle>(56);
    audio.dataPackets = Ptr<IPacketBundle>(64);
    EXPECT_EQ(evctest::BytesOf(audio), Offsets(72, {}));
    EXPECT_EQ(sizeof(ZKImage_t), 120u);
    EXPECT_EQ(sizeof(ZKAudio_t), 56u);
}

TEST(ZKRecords, AudioFormatsAndChannelModes)
{
    uint8_t buffer[24];  // silence only in the tail between the samples and the data size
    std::memset(buffer, 0x5A, sizeof buffer);
    ZKAudio_t audio{};
    audio.format = eAudioFormat24Bit;
    audio.channels = 2;
    audio.numberSamples = 2;
    audio.data = buffer;
    audio.dataSize = 20;
    EXPECT_EQ(CalcFrameSize(audio), 12u);
    ZKPadAudioBufferWithSilence(&audio);
    audio.dataSize = 8;  // samples exceeding the size: nothing written
    ZKPadAudioBufferWithSilence(&audio);
    EXPECT_EQ(Bytes(buffer, buffer + 24), evctest::Cat({Bytes(12, 0x5A), Bytes(8, 0), Bytes(4, 0x5A)}));

    // Names and modes find each other both ways; a count picks the usual mode for it.
    for (int32_t mode = 0; mode < 15; ++mode)
        EXPECT_EQ(ZKGetChannelMode(ZKGetChannelModeName(mode)), mode) << ZKGetChannelModeName(mode);
    EXPECT_EQ(std::string(ZKGetChannelModeName(eChannelMode5_1)) + " " + ZKGetChannelModeName(15), "5.1 undefined");
    EXPECT_EQ(ZKGetNumberChannels(eChannelMode5_1), 6);
    EXPECT_EQ(ZKGetChannelMode("stereo"), eChannelModeUndefined);
    EXPECT_EQ(ZKGetChannelMode(static_cast<const char*>(nullptr)), eChannelModeUndefined);
    const int modeForCount[] = {0, 1, 2, 9, 10, 5, 6, 7, 8, 0};
    for (int count = 0; count < 10; ++count)
        EXPECT_EQ(ZKGetChannelMode(count), modeForCount[count]) << count << " channels";
}
