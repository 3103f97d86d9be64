#include "transport/TZKEncAudio.h"

#include "transport/TimeOffset.h"

#include <cstring>

namespace {

// The fields the record and the information block share, either way; the
// time is moved by the offset on its own.
template <class To, class From>
void CopyAudioFields(To& to, const From& from, const CATime& offset)
{
    to.time = ZKAddTimeOffset(from.time, from.timeScale, offset);
    to.timeScale = from.timeScale;
    to.duration = from.duration;
    to.format = from.format;
    to.channels = from.channels;
    to.sampleSize = from.sampleSize;
    to.sampleRate = from.sampleRate;
    to.numberSamples = from.numberSamples;
    to.trackIndex = from.trackIndex;
}

}  // namespace

void TZKEncAudio::importFrame(const ZKEncAudio_t* record, const CATime& offset)
{
    if (!beginImport(record, offset))
        return;
    const ZKAudio_t& audio = record->audio;
    TZKAudioInfo info;
    CopyAudioFields(info, audio, offset);
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
    CopyAudioFields(audio, info, offset);
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
