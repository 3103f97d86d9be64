#include "transport/TZKFrameInfo.h"

#include "transport/LittleEndian.h"

#include <cstring>

namespace {

uint32_t get32(const uint8_t* in)
{
    return static_cast<uint32_t>(ZKGetLE<4>(in));
}

uint16_t get16(const uint8_t* in)
{
    return static_cast<uint16_t>(ZKGetLE<2>(in));
}

}  // namespace

namespace {

// Where the fields after the eleven 32-bit values lie in each form.
struct TVideoLayout {
    size_t stride;  // distance between the eleven 32-bit values
    size_t time, timeScale, originalTime, originalTimeScale, originalFrameWithinSecond, streamFlags, streamValue;
};
constexpr TVideoLayout kVideoLong = {8, 88, 96, 104, 112, 120, 128, 136};
constexpr TVideoLayout kVideoShort = {4, 48, 56, 64, 72, 80, 84, 88};

struct TAudioLayout {
    size_t channels, sampleSize, sampleRate, numberSamples, trackIndex;
};
constexpr TAudioLayout kAudioLong = {32, 40, 48, 56, 64};
constexpr TAudioLayout kAudioShort = {28, 30, 32, 36, 40};

}  // namespace

void TZKVideoInfo::encode(uint8_t (&out)[kSize]) const
{
    std::memset(out, 0, kSize);
    const TVideoLayout& at = kVideoLong;
    const uint32_t slots[11] = {colorFormat, width,       height,          bottomUp,        rowBytes[0],    rowBytes[1],
                                rowBytes[2], rowBytes[3], planeOffsets[0], planeOffsets[1], planeOffsets[2]};
    for (size_t i = 0; i < 11; ++i)
        ZKPutLE<4>(out + at.stride * i, slots[i]);
    ZKPutLE<8>(out + at.time, time);
    ZKPutLE<8>(out + at.timeScale, timeScale);
    ZKPutLE<8>(out + at.originalTime, originalTime);
    ZKPutLE<8>(out + at.originalTimeScale, originalTimeScale);
    ZKPutLE<4>(out + at.originalFrameWithinSecond, originalFrameWithinSecond);
    ZKPutLE<4>(out + at.streamFlags, streamFlags);
    ZKPutLE<8>(out + at.streamValue, streamValue);
}

bool TZKVideoInfo::decode(const uint8_t* in, size_t size)
{
    if (in == nullptr || (size != kSize && size != kShortSize))
        return false;
    const TVideoLayout& at = size == kSize ? kVideoLong : kVideoShort;
    uint32_t slots[11];
    for (size_t i = 0; i < 11; ++i)
        slots[i] = get32(in + at.stride * i);
    colorFormat = slots[0];
    width = slots[1];
    height = slots[2];
    bottomUp = slots[3];
    for (size_t k = 0; k < 4; ++k)
        rowBytes[k] = slots[4 + k];
    for (size_t k = 0; k < 3; ++k)
        planeOffsets[k] = slots[8 + k];
    time = ZKGetLE<8>(in + at.time);
    timeScale = ZKGetLE<8>(in + at.timeScale);
    originalTime = ZKGetLE<8>(in + at.originalTime);
    originalTimeScale = ZKGetLE<8>(in + at.originalTimeScale);
    originalFrameWithinSecond = get32(in + at.originalFrameWithinSecond);
    streamFlags = get32(in + at.streamFlags);
    streamValue = ZKGetLE<8>(in + at.streamValue);
    return true;
}

void TZKAudioInfo::encode(uint8_t (&out)[kSize]) const
{
    std::memset(out, 0, kSize);
    const TAudioLayout& at = kAudioLong;
    ZKPutLE<8>(out + 0, time);
    ZKPutLE<8>(out + 8, timeScale);
    ZKPutLE<8>(out + 16, duration);
    ZKPutLE<4>(out + 24, format);
    ZKPutLE<2>(out + at.channels, channels);
    ZKPutLE<2>(out + at.sampleSize, sampleSize);
    ZKPutLE<4>(out + at.sampleRate, sampleRate);
    ZKPutLE<4>(out + at.numberSamples, numberSamples);
    ZKPutLE<4>(out + at.trackIndex, trackIndex);
}

bool TZKAudioInfo::decode(const uint8_t* in, size_t size)
{
    if (in == nullptr || (size != kSize && size != kShortSize))
        return false;
    const TAudioLayout& at = size == kSize ? kAudioLong : kAudioShort;
    time = ZKGetLE<8>(in + 0);
    timeScale = ZKGetLE<8>(in + 8);
    duration = ZKGetLE<8>(in + 16);
    format = get32(in + 24);
    channels = get16(in + at.channels);
    sampleSize = get16(in + at.sampleSize);
    sampleRate = get32(in + at.sampleRate);
    numberSamples = get32(in + at.numberSamples);
    trackIndex = get32(in + at.trackIndex);
    return true;
}
