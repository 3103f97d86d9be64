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

} // namespace

void TZKVideoInfo::encode(uint8_t (&out)[kSize]) const
{
    std::memset(out, 0, kSize);
    // Eleven 32-bit values, each in the low half of an 8-byte slot.
    const uint32_t slots[11] = {colorFormat, width, height, bottomUp,
                                rowBytes[0], rowBytes[1], rowBytes[2], rowBytes[3],
                                planeOffsets[0], planeOffsets[1], planeOffsets[2]};
    for (size_t i = 0; i < 11; ++i)
        ZKPutLE<4>(out + 8 * i, slots[i]);
    ZKPutLE<8>(out + 88, time);
    ZKPutLE<8>(out + 96, timeScale);
    ZKPutLE<8>(out + 104, originalTime);
    ZKPutLE<8>(out + 112, originalTimeScale);
    ZKPutLE<4>(out + 120, originalFrameWithinSecond);
    ZKPutLE<4>(out + 128, streamFlags);
    ZKPutLE<8>(out + 136, streamValue);
}

bool TZKVideoInfo::decode(const uint8_t* in, size_t size)
{
    if (in == nullptr || (size != kSize && size != kShortSize))
        return false;
    // The long form spaces the eleven values 8 bytes apart, the short form packs them.
    const size_t stride = size == kSize ? 8 : 4;
    uint32_t slots[11];
    for (size_t i = 0; i < 11; ++i)
        slots[i] = get32(in + stride * i);
    colorFormat = slots[0];
    width = slots[1];
    height = slots[2];
    bottomUp = slots[3];
    for (size_t k = 0; k < 4; ++k)
        rowBytes[k] = slots[4 + k];
    for (size_t k = 0; k < 3; ++k)
        planeOffsets[k] = slots[8 + k];
    if (size == kSize) {
        time = ZKGetLE<8>(in + 88);
        timeScale = ZKGetLE<8>(in + 96);
        originalTime = ZKGetLE<8>(in + 104);
        originalTimeScale = ZKGetLE<8>(in + 112);
        originalFrameWithinSecond = get32(in + 120);
        streamFlags = get32(in + 128);
        streamValue = ZKGetLE<8>(in + 136);
    } else {
        time = ZKGetLE<8>(in + 48);
        timeScale = ZKGetLE<8>(in + 56);
        originalTime = ZKGetLE<8>(in + 64);
        originalTimeScale = ZKGetLE<8>(in + 72);
        originalFrameWithinSecond = get32(in + 80);
        streamFlags = get32(in + 84);
        streamValue = ZKGetLE<8>(in + 88);
    }
    return true;
}

void TZKAudioInfo::encode(uint8_t (&out)[kSize]) const
{
    std::memset(out, 0, kSize);
    ZKPutLE<8>(out + 0, time);
    ZKPutLE<8>(out + 8, timeScale);
    ZKPutLE<8>(out + 16, duration);
    ZKPutLE<4>(out + 24, format);
    ZKPutLE<2>(out + 32, channels);
    ZKPutLE<2>(out + 40, sampleSize);
    ZKPutLE<4>(out + 48, sampleRate);
    ZKPutLE<4>(out + 56, numberSamples);
    ZKPutLE<4>(out + 64, trackIndex);
}

bool TZKAudioInfo::decode(const uint8_t* in, size_t size)
{
    if (in == nullptr || (size != kSize && size != kShortSize))
        return false;
    time = ZKGetLE<8>(in + 0);
    timeScale = ZKGetLE<8>(in + 8);
    duration = ZKGetLE<8>(in + 16);
    format = get32(in + 24);
    if (size == kSize) {
        channels = get16(in + 32);
        sampleSize = get16(in + 40);
        sampleRate = get32(in + 48);
        numberSamples = get32(in + 56);
        trackIndex = get32(in + 64);
    } else {
        channels = get16(in + 28);
        sampleSize = get16(in + 30);
        sampleRate = get32(in + 32);
        numberSamples = get32(in + 36);
        trackIndex = get32(in + 40);
    }
    return true;
}
