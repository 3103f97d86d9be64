// The H.264 compressor over libx264: planar YUV pictures in (8-bit 4:2:0,
// 10-bit 4:2:0 and 4:2:2, 8-bit 4:4:4), one packet of Annex-B bytes per
// compressed picture out, the stream headers (SPS, PPS) once in the
// descriptors. The checks, times and bundles are the plug-in base's.
#pragma once

#include <cstdint>
#include <map>
#include <memory>

#include <x264.h>

#include "evc/PluginCompressor.h"

namespace h264 {

class CH264Compressor : public evc::plugin::TCompressor {
public:
    CH264Compressor();
    ~CH264Compressor() override { CloseStream(); }

    IVideoCompressor* CreateInstance() override { return new CH264Compressor; }

private:
    struct TEncoderCloser {
        void operator()(x264_t* encoder) const { x264_encoder_close(encoder); }
    };

    uint32_t Open(const evc::plugin::TStreamInfo& stream) override;
    uint32_t Encode(const evc::plugin::TInputPicture& picture) override;
    uint32_t Drain() override;
    void Close() override { m_encoder.reset(); }

    // Fills param from the settings; false (with a message) when libx264
    // refuses them.
    bool MakeParameters(const evc::plugin::TStreamInfo& stream, x264_param_t& param) const;
    uint32_t EncodeOne(x264_picture_t* picture);

    std::unique_ptr<x264_t, TEncoderCloser> m_encoder;
    int m_colorSpace = X264_CSP_I420;
    // The encoder's time base (ticks / scale seconds), and for each picture
    // in the encoder its time on that clock -> its own time.
    uint64_t m_timeScale = 1;
    uint64_t m_encoderTicks = 1;
    uint64_t m_encoderScale = 1;
    std::map<int64_t, int64_t> m_streamTimes;
};

}  // namespace h264
