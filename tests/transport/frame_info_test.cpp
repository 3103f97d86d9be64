#include "transport/TZKFrameInfo.h"
#include "transport/TZKPacketHeaders.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

std::vector<uint8_t> le(uint64_t value, size_t n)
{
    std::vector<uint8_t> out;
    for (size_t i = 0; i < n; ++i)
        out.push_back(static_cast<uint8_t>(value >> (8 * i)));
    return out;
}

void put(std::vector<uint8_t>& to, uint64_t value, size_t n)
{
    const std::vector<uint8_t> bytes = le(value, n);
    to.insert(to.end(), bytes.begin(), bytes.end());
}

TEST(TZKVideoInfo, ReadsThePackedShortForm)
{
    std::vector<uint8_t> bytes;
    // colour format, width, height, bottom-up, row bytes 0-3, plane offsets 1-3
    for (uint32_t v : {6u, 1920u, 1080u, 1u, 1920u, 960u, 960u, 0u, 2073600u, 2592000u, 3110400u})
        put(bytes, v, 4);
    put(bytes, 0xEEEEEEEE, 4);             // reserved
    put(bytes, 3003, 8);                   // time
    put(bytes, 30000, 8);                  // time scale
    put(bytes, 77, 8);                     // original time
    put(bytes, 25, 8);                     // original time scale
    put(bytes, 24, 4);                     // original frame within second
    put(bytes, 0xA5, 4);                   // stream flags
    put(bytes, 0x1122334455667788ull, 8);  // stream value
    ASSERT_EQ(bytes.size(), TZKVideoInfo::kShortSize);

    TZKVideoInfo info;
    ASSERT_TRUE(info.decode(bytes.data(), bytes.size()));
    EXPECT_EQ(info.colorFormat, 6u);
    EXPECT_EQ(info.width, 1920u);
    EXPECT_EQ(info.height, 1080u);
    EXPECT_EQ(info.bottomUp, 1u);
    EXPECT_EQ(info.rowBytes[1], 960u);
    EXPECT_EQ(info.rowBytes[3], 0u);
    EXPECT_EQ(info.planeOffsets[0], 2073600u);
    EXPECT_EQ(info.planeOffsets[2], 3110400u);
    EXPECT_EQ(info.time, 3003u);
    EXPECT_EQ(info.timeScale, 30000u);
    EXPECT_EQ(info.originalTime, 77u);
    EXPECT_EQ(info.originalTimeScale, 25u);
    EXPECT_EQ(info.originalFrameWithinSecond, 24u);
    EXPECT_EQ(info.streamFlags, 0xA5u);
    EXPECT_EQ(info.streamValue, 0x1122334455667788ull);

    // The long form written from the same values reads back identically.
    uint8_t full[TZKVideoInfo::kSize];
    info.encode(full);
    TZKVideoInfo again;
    ASSERT_TRUE(again.decode(full, sizeof full));
    EXPECT_EQ(again.planeOffsets[1], 2592000u);
    EXPECT_EQ(again.streamValue, info.streamValue);
    EXPECT_EQ(full[4], 0) << "reserved half of the first slot";
}

TEST(TZKAudioInfo, ReadsThePackedShortForm)
{
    std::vector<uint8_t> bytes;
    put(bytes, 96000, 8);  // time
    put(bytes, 48000, 8);  // time scale
    put(bytes, 1024, 8);   // duration
    put(bytes, 2, 4);      // format
    put(bytes, 2, 2);      // channels
    put(bytes, 16, 2);     // sample size
    put(bytes, 48000, 4);  // sample rate
    put(bytes, 1024, 4);   // number of samples
    put(bytes, 3, 4);      // track index
    put(bytes, 0, 4);      // reserved
    ASSERT_EQ(bytes.size(), TZKAudioInfo::kShortSize);

    TZKAudioInfo info;
    ASSERT_TRUE(info.decode(bytes.data(), bytes.size()));
    EXPECT_EQ(info.time, 96000u);
    EXPECT_EQ(info.timeScale, 48000u);
    EXPECT_EQ(info.duration, 1024u);
    EXPECT_EQ(info.format, 2u);
    EXPECT_EQ(info.channels, 2u);
    EXPECT_EQ(info.sampleSize, 16u);
    EXPECT_EQ(info.sampleRate, 48000u);
    EXPECT_EQ(info.numberSamples, 1024u);
    EXPECT_EQ(info.trackIndex, 3u);

    uint8_t full[TZKAudioInfo::kSize];
    info.encode(full);
    EXPECT_EQ(full[32], 2) << "channels at 32";
    EXPECT_EQ(full[40], 16) << "sample size at 40";
    EXPECT_EQ(full[64], 3) << "track index at 64";
}

TEST(FrameInfo, OtherSizesAreRefused)
{
    const std::vector<uint8_t> bytes(200, 0);
    for (size_t size : {0u, 47u, 49u, 71u, 73u, 95u, 97u, 100u, 143u, 145u}) {
        TZKVideoInfo video;
        EXPECT_EQ(video.decode(bytes.data(), size), size == 144 || size == 96) << size;
        TZKAudioInfo audio;
        EXPECT_EQ(audio.decode(bytes.data(), size), size == 72 || size == 48) << size;
    }
}

TEST(TZKPacketView, RefusesChildrenShorterThanWhatTheyAnnounce)
{
    struct Case {
        size_t childSize;
        uint32_t descriptorSize;
        uint32_t dataSize;
        bool accepted;
    };
    const Case cases[] = {
        {0, 0, 0, false},
        {39, 0, 0, false},
        {40, 0, 0, true},
        {44, 4, 0, true},
        {44, 4, 1, false},
        {144, 4, 100, true},
        {143, 4, 100, false},
        {200, 4, 100, true},                  // trailing bytes are ignored
        {64, 0xFFFFFFFF, 0xFFFFFFFF, false},  // the sum must not wrap
    };
    for (const Case& c : cases) {
        std::vector<uint8_t> child(c.childSize + 8, 0x5A);
        if (c.childSize >= 40) {
            TZKPacketHeader header;
            header.type = 9;
            header.descriptorSize = c.descriptorSize;
            header.dataSize = c.dataSize;
            header.encode(child.data());
        }
        TZKPacketView view;
        EXPECT_EQ(view.parse(child.data(), c.childSize), c.accepted) << c.childSize;
        if (c.accepted) {
            EXPECT_EQ(view.header.type, 9u);
            EXPECT_EQ(view.descriptor != nullptr, c.descriptorSize != 0);
            EXPECT_EQ(view.data != nullptr, c.dataSize != 0);
            if (view.data != nullptr) {
                EXPECT_EQ(view.data, child.data() + 40 + c.descriptorSize);
            }
        }
    }
}

TEST(TZKBundleView, RefusesChildrenShorterThanWhatTheyAnnounce)
{
    std::vector<uint8_t> child(60, 0);
    TZKBundleHeader header;
    header.track = 4;
    header.time = 5;
    header.timeBase = 90000;
    header.duration = 6;
    header.descriptorSize = 20;
    header.encode(child.data());
    EXPECT_EQ(child[16], 0x90);  // time base at 16, little-endian
    EXPECT_EQ(child[32], 20);    // descriptor size at 32

    TZKBundleView view;
    EXPECT_FALSE(view.parse(child.data(), 39));
    EXPECT_FALSE(view.parse(child.data(), 59));
    ASSERT_TRUE(view.parse(child.data(), 60));
    EXPECT_EQ(view.header.track, 4u);
    EXPECT_EQ(view.header.time, 5u);
    EXPECT_EQ(view.header.timeBase, 90000u);
    EXPECT_EQ(view.header.duration, 6u);
    EXPECT_EQ(view.descriptor, child.data() + 40);
}

}  // namespace
