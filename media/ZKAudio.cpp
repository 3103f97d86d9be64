#include "media/ZKAudio.h"

#include <cstring>

namespace {

struct ChannelModeInfo {
    EChannelMode mode;
    const char* name;
    int channels;
};

// In EChannelMode order, starting at 1.
constexpr ChannelModeInfo kChannelModes[] = {
    {eChannelModeMono, "Mono", 1},
    {eChannelModeStereo, "Stereo", 2},
    {eChannelModeJointStereo, "Joint Stereo", 2},
    {eChannelModeDualChannel, "Dual Channel", 2},
    {eChannelMode4_1, "4.1", 5},
    {eChannelMode5_1, "5.1", 6},
    {eChannelMode6_1, "6.1", 7},
    {eChannelMode7_1, "7.1", 8},
    {eChannelMode2_1, "2.1", 3},
    {eChannelModeQuad, "Quad", 4},
    {eChannelMode2Channel, "2 Channel", 2},
    {eChannelMode4Channel, "4 Channel", 4},
    {eChannelMode6Channel, "6 Channel", 6},
    {eChannelMode8Channel, "8 Channel", 8},
};

const ChannelModeInfo* FindMode(int32_t mode)
{
    for (const ChannelModeInfo& info : kChannelModes) {
        if (info.mode == mode)
            return &info;
    }
    return nullptr;
}

uint32_t UsedBytes(const ZKAudio_t& audio)
{
    return BytesPerSample(audio.format) * audio.channels * audio.numberSamples;
}

}  // namespace

uint32_t BytesPerSample(uint32_t format)
{
    static constexpr uint8_t kBytes[] = {1, 2, 2, 3, 4, 4, 1, 2, 2, 3, 4, 4};
    return format < sizeof kBytes ? kBytes[format] : 0;
}

uint32_t CalcFrameSize(const ZKAudio_t& audio)
{
    return audio.format == eAudioFormatUnsized ? 0 : UsedBytes(audio);
}

void ZKPadAudioBufferWithSilence(ZKAudio_t* audio)
{
    if (audio == nullptr || audio->data == nullptr || audio->format == eAudioFormatUnsized)
        return;
    const uint32_t used = UsedBytes(*audio);
    if (used < audio->dataSize)
        std::memset(audio->data + used, 0, audio->dataSize - used);
}

int ZKGetNumberChannels(int32_t mode)
{
    const ChannelModeInfo* info = FindMode(mode);
    return info != nullptr ? info->channels : 0;
}

const char* ZKGetChannelModeName(int32_t mode)
{
    const ChannelModeInfo* info = FindMode(mode);
    return info != nullptr ? info->name : "undefined";
}

EChannelMode ZKGetChannelMode(const char* name)
{
    if (name == nullptr)
        return eChannelModeUndefined;
    for (const ChannelModeInfo& info : kChannelModes) {
        if (std::strcmp(info.name, name) == 0)
            return info.mode;
    }
    return eChannelModeUndefined;
}

EChannelMode ZKGetChannelMode(int channels)
{
    switch (channels) {
    case 1:
        return eChannelModeMono;
    case 2:
        return eChannelModeStereo;
    case 3:
        return eChannelMode2_1;
    case 4:
        return eChannelModeQuad;
    case 5:
        return eChannelMode4_1;
    case 6:
        return eChannelMode5_1;
    case 7:
        return eChannelMode6_1;
    case 8:
        return eChannelMode7_1;
    default:
        return eChannelModeUndefined;
    }
}
