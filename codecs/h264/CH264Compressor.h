// The H.264 compressor over libx264: 8-bit 4:2:0 pictures in, one packet of
// Annex-B bytes per compressed picture out, the stream headers (SPS, PPS)
// once in the descriptors.
//
// Ownership of the output: the bundles CompressFrame places in the output
// record stay the compressor's. They remain valid until the next
// CompressFrame or End (or the compressor's destruction), which destroys
// them; the host never releases them.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <x264.h>

#include "evc/IVideoCompressor.h"
#include "H264Packets.h"
#include "H264Settings.h"

namespace h264 {

// Status codes the compressor answers.
constexpr uint32_t kStatusOk = 0;
constexpr uint32_t kStatusFailure = 0x80010001;         // not started, finished, or libx264 failed
constexpr uint32_t kStatusBadArgument = 0x80010002;     // missing record, bad geometry or setting value
constexpr uint32_t kStatusFormatMismatch = 0x800F0007;  // colour format or size differs from the stream

class CH264Compressor : public IVideoCompressor {
public:
    CH264Compressor();
    ~CH264Compressor() override;
    CH264Compressor(const CH264Compressor&) = delete;
    CH264Compressor& operator=(const CH264Compressor&) = delete;

    // The hints mean nothing to this compressor; they are kept only.
    void SetFileFormatHint(uint32_t hint) override { m_fileFormatHint = hint; }
    void SetStreamModeHint(uint32_t hint) override { m_streamModeHint = hint; }
    // The input format is the one of the Begin sample; this value is kept only.
    void SetInputColorFormat(uint32_t colorFormat) override { m_inputColorFormat = colorFormat; }

    // Opens the encoder from the sample's geometry and time scale and the
    // settings as they are now; the flag has no meaning here. A stream that
    // was open is closed first (its delayed pictures are dropped).
    uint32_t Begin(const ZKEncImage_t* sample, bool flag) override;
    // Feeds input (forcing an IDR picture when isKeyFrame) and puts every
    // picture the encoder hands back into output. isLastFrame flushes every
    // delayed picture into the same output and finishes the stream; input
    // may then be null.
    uint32_t CompressFrame(const ZKEncImage_t* input, bool isKeyFrame, bool isLastFrame, ZKEncImage_t* output) override;
    // Closes the stream; pictures still delayed in the encoder are dropped
    // (a last frame delivers them). Releases the last output's bundles.
    void End() override;
    // One pass only: always ready.
    bool IsLastPassEncodingReady() override { return true; }
    IVideoCompressor* CreateInstance() override { return new CH264Compressor; }

    ISettingArray* GetStandardSettings() override { return &m_standard; }
    ISettingArray* GetNonStandardSettings() override { return &m_nonStandard; }

private:
    struct TEncoderCloser {
        void operator()(x264_t* encoder) const { x264_encoder_close(encoder); }
    };
    using TBundlePtr = std::unique_ptr<IPacketBundle, TBundleDeleter>;

    // Fills param from the settings; false (with a message) for a bad value.
    bool MakeParameters(x264_param_t& param) const;
    uint32_t CheckPicture(const ZKImage_t& image) const;
    // The input's time in the stream's time base; false when it does not fit
    // or does not follow the previous one.
    bool StreamTime(const ZKImage_t& image, int64_t& pts) const;
    uint32_t Encode(x264_picture_t* picture, TBundle& pictures);
    void AddPicture(TBundle& pictures, const x264_nal_t* nals, int size, const x264_picture_t& out);
    void Close();
    void ReleaseOutput();

    TSettingArray m_standard;
    TSettingArray m_nonStandard;
    TIntSetting* m_bitrate;
    TIntSetting* m_keyFrameInterval;
    TEnumSetting* m_preset;
    TEnumSetting* m_tune;
    TEnumSetting* m_profile;
    TDoubleSetting* m_crf;
    TIntSetting* m_threads;
    TDoubleSetting* m_frameRate;

    uint32_t m_fileFormatHint = 0;
    uint32_t m_streamModeHint = 0;
    uint32_t m_inputColorFormat = 0;

    // The open stream.
    std::unique_ptr<x264_t, TEncoderCloser> m_encoder;
    uint32_t m_width = 0;
    uint32_t m_height = 0;
    uint64_t m_timeScale = 0;
    uint64_t m_nominalDuration = 1;                                    // one picture at the nominal frame rate
    std::vector<std::pair<uint32_t, std::vector<uint8_t>>> m_headers;  // (NAL type, Annex-B bytes)
    bool m_headersSent = false;
    bool m_finished = false;
    bool m_hasLastPts = false;
    int64_t m_lastPts = 0;
    uint64_t m_lastInterval = 0;
    // Duration of each picture still in the encoder; 0 until the next
    // input's time is known.
    std::map<int64_t, uint64_t> m_durations;

    // What the last CompressFrame handed out.
    TBundlePtr m_data;
    TBundlePtr m_descriptors;
};

}  // namespace h264
