// One block of audio: its ZKEncAudio_t description, the pooled buffer holding
// its samples, and the packet bundles attached to it, which the frame owns.
#pragma once

#include "media/CAFrame.h"
#include "evc/ZKImage.h"

class CAAudioFrame : public CAFrame {
public:
    // 16-bit samples (format 2), 2 channels at 8000 Hz, no samples, no buffer.
    CAAudioFrame();
    // Destroys the descriptors and data packets bundles.
    ~CAAudioFrame() override;

    EAudioFormatType GetFormat() const { return static_cast<EAudioFormatType>(m_record.audio.format); }
    // Also sets the sample size to the format's bits per sample.
    uint32_t SetFormat(EAudioFormatType format);
    uint32_t SetNumberChannels(uint16_t channels) { return Store(m_record.audio.channels, channels); }
    uint16_t GetNumberChannels() const { return m_record.audio.channels; }
    uint32_t SetSampleRate(uint32_t sampleRate) { return Store(m_record.audio.sampleRate, sampleRate); }
    uint32_t GetSampleRate() const { return m_record.audio.sampleRate; }
    // Bits per sample.
    uint16_t GetSampleSize() const { return m_record.audio.sampleSize; }
    uint32_t SetNumberSamples(uint32_t samples) { return Store(m_record.audio.numberSamples, samples); }
    uint32_t GetNumberSamples() const { return m_record.audio.numberSamples; }
    uint32_t SetTrackIndex(uint32_t trackIndex) { return Store(m_record.audio.trackIndex, trackIndex); }
    uint32_t GetTrackIndex() const { return m_record.audio.trackIndex; }
    uint32_t CalcFrameSize() const;

    // Adopt a description whose data lies inside the frame's buffer; the
    // duration is recomputed from the samples and the sample rate.
    uint32_t SetZKAudio(const ZKAudio_t* audio);
    // ... and take over its bundles (an old bundle is destroyed).
    uint32_t SetZKEncAudio(const ZKEncAudio_t* audio);
    // Adopt a description from elsewhere over a new buffer of its data size;
    // the caller fills the samples.
    uint32_t ImportEncAudio(const ZKEncAudio_t* audio);

    // The description with the frame's times over a buffer large enough for
    // the samples (acquired when missing or too small). All zero on failure.
    ZKEncAudio_t GetZKEncAudio();
    ZKAudio_t GetZKAudio();

    // Swap the frame's bundle with the caller's; ownership moves with it.
    void ExchangeDescriptorsWith(IPacketBundle*& descriptors);
    void ExchangeDataPacketsWith(IPacketBundle*& dataPackets);

private:
    uint32_t AdoptAudio(const ZKAudio_t& audio);

    ZKEncAudio_t m_record;
};
