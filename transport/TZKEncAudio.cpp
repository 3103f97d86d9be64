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

TZKAudioFramePtr TZKEncAudio::exportFrame(const CATime& offset, uint64_t maxBuffer) const
{
    TZKAudioInfo info;
    uint32_t dataSize = 0;
    if (!getInfo(info) || !bytesSize(dataSize))
        return TZKAudioFramePtr();

    ZKEncAudio_t record;
    std::memset(&record, 0, sizeof record);
    ZKAudio_t& audio = record.audio;
    CopyAudioFields(audio, info, offset);
    // The buffer is sized by the description, not by the bytes that follow;
    // only a block whose size no sample count gives takes the bytes' size.
    const bool sized = audio.format != eAudioFormatUnsized;
    audio.dataSize = sized ? 0 : dataSize;

    TZKAudioFramePtr frame(new CAAudioFrame);
    if (frame->ImportEncAudio(&record) != 0 || frame->CalcFrameSize() > maxBuffer)
        return TZKAudioFramePtr();
    if (!sized) {
        if (dataSize != 0)
            bytes().get(frame->GetBuffer()->GetData());
    } else if (dataSize != 0 || frame->CalcFrameSize() != 0) {
        const ZKEncAudio_t laidOut = frame->GetZKEncAudio();
        uint8_t* data = static_cast<uint8_t*>(laidOut.audio.data);
        if (data == nullptr || dataSize > laidOut.audio.dataSize)
            return TZKAudioFramePtr();
        bytes().get(data);
        // Fewer sample bytes than described: silence, not stale buffer bytes.
        std::memset(data + dataSize, 0, laidOut.audio.dataSize - dataSize);
    }
    if (!attachBundles(*frame, offset))
        return TZKAudioFramePtr();
    return frame;
}
