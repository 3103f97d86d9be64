#include "transport/TZKEncAudio.h"

#include "ebml/ebmlMemoryStorage.h"
#include "transport/TZKFrameBundles.h"
#include "transport/TZKFrameInfo.h"
#include "transport/TimeOffset.h"

#include <cstring>
#include <limits>

bool TZKEncAudio::eval(Ebml::IElementCrawler& crawler)
{
    return evalChildren(crawler, {&m_audioInfo, &m_sampleBuffer, &m_descriptors, &m_dataPackets});
}

bool TZKEncAudio::isDefault() const
{
    return !m_audioInfo.mustSave() && !m_sampleBuffer.mustSave() && !m_descriptors.mustSave() &&
           !m_dataPackets.mustSave();
}

Ebml::uint64 TZKEncAudio::calcSize() const
{
    return calcChildrenSize({&m_audioInfo, &m_sampleBuffer, &m_descriptors, &m_dataPackets});
}

Ebml::TReceiptPtr TZKEncAudio::save(Ebml::IStorage& storage) const
{
    return saveChildren(storage, {&m_audioInfo, &m_sampleBuffer, &m_descriptors, &m_dataPackets});
}

Ebml::uint64 TZKEncAudio::load(Ebml::IStorage& storage, Ebml::uint64 bytesToRead,
                               Ebml::IDelegateLoad* delegate)
{
    return loadChildren(storage, bytesToRead, delegate,
                        {&m_audioInfo, &m_sampleBuffer, &m_descriptors, &m_dataPackets});
}

void TZKEncAudio::importFrame(const ZKEncAudio_t* record, const CATime& offset)
{
    m_audioInfo->data().clear();
    m_sampleBuffer->data().clear();
    if (record == nullptr) {
        ZKImportFrameBundles(m_descriptors, m_dataPackets, nullptr, nullptr, offset);
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
    uint8_t block[TZKAudioInfo::kSize];
    info.encode(block);
    m_audioInfo->set(block, sizeof block, Ebml::HodgePodgeStorage::Instance);
    if (audio.data != nullptr && audio.dataSize != 0)
        m_sampleBuffer->set(Ebml::receiptForConstMemory(audio.data, audio.dataSize));
    ZKImportFrameBundles(m_descriptors, m_dataPackets, record->descriptors, record->dataPackets, offset);
}

TZKAudioFramePtr TZKEncAudio::exportFrame(const CATime& offset) const
{
    const Ebml::HodgePodge& infoBytes = m_audioInfo->data();
    const Ebml::uint64 infoSize = infoBytes.numBytes();
    if (infoSize != TZKAudioInfo::kSize && infoSize != TZKAudioInfo::kShortSize)
        return TZKAudioFramePtr();
    uint8_t block[TZKAudioInfo::kSize];
    TZKAudioInfo info;
    if (!infoBytes.get(block) || !info.decode(block, infoSize))
        return TZKAudioFramePtr();
    const Ebml::HodgePodge& samples = m_sampleBuffer->data();
    if (samples.numBytes() > std::numeric_limits<uint32_t>::max())
        return TZKAudioFramePtr();
    const uint32_t dataSize = static_cast<uint32_t>(samples.numBytes());

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
        samples.get(buffer->GetData());
    }
    ZKAttachFrameBundles(*frame, ZKExportFrameBundles(m_descriptors, m_dataPackets, offset));
    return frame;
}
