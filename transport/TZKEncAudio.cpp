#include "transport/TZKEncAudio.h"

#include "transport/TimeOffset.h"

#include <cstring>

void TZKEncAudio::importFrame(const ZKEncAudio_t* record, const CATime& offset)
{
    clearInfoAndBytes();
    if (record == nullptr) {
        importBundles(nullptr, nullptr, offset);
        return;
    }
    const ZKAudio_t& audio = record->audio;
    TZKAudioInfo info;
    info.time = ZKAddTimeOffset(audio.time, audio.timeScale, offset);
    info.timeScale = audio.timeScale;
    info.duration = audio.duration;
    info.format = audio.format;
    info.channels = audio.channels;
    info.sampleSize = audio.sampleSize;
    info.sampleRate = audio.sampleRate;
    info.numberSamples = audio.numberSamples;
    info.trackIndex = audio.trackIndex;
    setInfo(info);
    setBytes(audio.data, audio.dataSize);
    importBundles(record->descriptors, record->dataPackets, offset);
}

TZKAudioFramePtr TZKEncAudio::exportFrame(const CATime& offset) const
{
    TZKAudioInfo info;
    uint32_t dataSize = 0;
    if (!getInfo(info) || !bytesSize(dataSize))
        return TZKAudioFramePtr();

    ZKEncAudio_t record;
    std::memset(&record, 0, sizeof record);
    ZKAudio_t& audio = record.audio;
    audio.time = ZKAddTimeOffset(info.time, info.timeScale, offset);
    audio.timeScale = info.timeScale;
    audio.duration = info.duration;
    audio.format = info.format;
    audio.channels = info.channels;
    audio.sampleSize = info.sampleSize;
    audio.sampleRate = info.sampleRate;
    audio.numberSamples = info.numberSamples;
    audio.trackIndex = info.trackIndex;
    audio.dataSize = dataSize;

    TZKAudioFramePtr frame(new CAAudioFrame);
    if (frame->ImportEncAudio(&record) != 0)
        return TZKAudioFramePtr();
    if (dataSize != 0) {
        const CABuffer* buffer = frame->GetBuffer();
        if (buffer == nullptr || buffer->GetSize() < dataSize)
            return TZKAudioFramePtr();
        bytes().get(buffer->GetData());
    }
    attachBundles(*frame, offset);
    return frame;
}
