#include "media/CAAudioFrame.h"

#include "media/ZKAudio.h"

#include <cstring>
#include <utility>

CAAudioFrame::CAAudioFrame()
{
    std::memset(&m_record, 0, sizeof(m_record));
    SetFormat(eAudioFormat16Bit);
    m_record.audio.channels = 2;
    m_record.audio.sampleRate = 8000;
}

CAAudioFrame::~CAAudioFrame()
{
    ZKDestroyPacket(m_record.descriptors);
    m_record.descriptors = nullptr;
    ZKDestroyPacket(m_record.dataPackets);
    m_record.dataPackets = nullptr;
}

uint32_t CAAudioFrame::SetFormat(EAudioFormatType format)
{
    m_record.audio.format = format;
    m_record.audio.sampleSize = static_cast<uint16_t>(BytesPerSample(format) * 8);
    return kZKNoErr;
}

uint32_t CAAudioFrame::CalcFrameSize() const
{
    return ::CalcFrameSize(m_record.audio);
}

uint32_t CAAudioFrame::AdoptAudio(const ZKAudio_t& audio)
{
    if (!PointsInto(audio.data, CalcFrameSize()) || audio.sampleRate == 0)
        return kZKErrBadArgument;
    m_record.audio = audio;
    m_record.audio.duration = static_cast<uint64_t>(audio.numberSamples) * audio.timeScale / audio.sampleRate;
    m_time.Init(audio.time, audio.timeScale);
    m_duration.Init(m_record.audio.duration, audio.timeScale);
    return kZKNoErr;
}

uint32_t CAAudioFrame::SetZKAudio(const ZKAudio_t* audio)
{
    if (audio == nullptr)
        return kZKErrBadArgument;
    return AdoptAudio(*audio);
}

uint32_t CAAudioFrame::SetZKEncAudio(const ZKEncAudio_t* audio)
{
    if (audio == nullptr)
        return kZKErrBadArgument;
    const uint32_t code = AdoptAudio(audio->audio);
    if (code != kZKNoErr)
        return code;
    ZKReplaceOwnedBundle(m_record.descriptors, audio->descriptors);
    ZKReplaceOwnedBundle(m_record.dataPackets, audio->dataPackets);
    return kZKNoErr;
}

uint32_t CAAudioFrame::ImportEncAudio(const ZKEncAudio_t* audio)
{
    if (audio == nullptr)
        return kZKErrBadArgument;
    return Guarded([this, audio] {
        ReleaseBuffer();
        ZKReplaceOwnedBundle(m_record.descriptors, audio->descriptors);
        ZKReplaceOwnedBundle(m_record.dataPackets, audio->dataPackets);
        m_record = *audio;
        m_time.Init(audio->audio.time, audio->audio.timeScale);
        m_duration.Init(audio->audio.duration, audio->audio.timeScale);
        // The imported pointer refers to someone else's memory.
        m_record.audio.data = nullptr;
        if (m_record.audio.dataSize != 0) {
            ReplaceBuffer(m_record.audio.dataSize);
            m_record.audio.data = m_buffer->GetData();
        }
        return kZKNoErr;
    });
}

ZKEncAudio_t CAAudioFrame::GetZKEncAudio()
{
    ZKEncAudio_t result;
    std::memset(&result, 0, sizeof(result));
    const uint32_t code = Guarded([this] {
        const uint32_t frameSize = CalcFrameSize();
        if (m_buffer == nullptr || m_buffer->GetSize() < frameSize)
            ReplaceBuffer(frameSize);
        ZKAudio_t& audio = m_record.audio;
        audio.data = m_buffer->GetData();
        audio.dataSize = frameSize;
        audio.time = m_time.GetTime();
        audio.timeScale = m_time.GetTimeScale();
        audio.duration = m_duration.GetTime(m_time.GetTimeScale());
        return kZKNoErr;
    });
    if (code == kZKNoErr)
        result = m_record;
    return result;
}

ZKAudio_t CAAudioFrame::GetZKAudio()
{
    return GetZKEncAudio().audio;
}

void CAAudioFrame::ExchangeDescriptorsWith(IPacketBundle*& descriptors)
{
    std::swap(m_record.descriptors, descriptors);
}

void CAAudioFrame::ExchangeDataPacketsWith(IPacketBundle*& dataPackets)
{
    std::swap(m_record.dataPackets, dataPackets);
}
