// Owning pointers for the libav objects evc-encode holds.
#pragma once

#include <memory>
#include <string>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libswscale/swscale.h>
}

namespace evc {
namespace tools {

struct PacketFree {
    void operator()(AVPacket* p) const { av_packet_free(&p); }
};
struct FrameFree {
    void operator()(AVFrame* f) const { av_frame_free(&f); }
};
struct CodecContextFree {
    void operator()(AVCodecContext* c) const { avcodec_free_context(&c); }
};
struct CodecParametersFree {
    void operator()(AVCodecParameters* p) const { avcodec_parameters_free(&p); }
};
struct InputClose {
    void operator()(AVFormatContext* f) const { avformat_close_input(&f); }
};
struct ScalerFree {
    void operator()(SwsContext* s) const { sws_freeContext(s); }
};

using PacketPtr = std::unique_ptr<AVPacket, PacketFree>;
using FramePtr = std::unique_ptr<AVFrame, FrameFree>;
using CodecContextPtr = std::unique_ptr<AVCodecContext, CodecContextFree>;
using CodecParametersPtr = std::unique_ptr<AVCodecParameters, CodecParametersFree>;
using InputPtr = std::unique_ptr<AVFormatContext, InputClose>;
using ScalerPtr = std::unique_ptr<SwsContext, ScalerFree>;

// libav's text for an error code.
inline std::string AvError(int code)
{
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(code, text, sizeof text);
    return text;
}

}  // namespace tools
}  // namespace evc
