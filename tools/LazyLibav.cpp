// libavformat, libavcodec and libswscale, loaded when first called rather than
// when evc-encode starts: with what they link in they are over a hundred
// libraries, some 20 ms of processor time at every start, which an encode of
// a YUV4MPEG2 file into a raw stream or a segment file never uses. Each
// function below stands in for the library's own of the same name and calls
// it through a pointer looked up once. A library that cannot be loaded makes
// the call throw std::runtime_error naming it.
#include <dlfcn.h>

#include <mutex>
#include <stdexcept>
#include <string>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libswscale/swscale.h>
}

namespace {

enum Library { kFormat, kCodec, kScale, kLibraries };

// The versions the headers describe.
const char* const kSonames[kLibraries] = {
    "libavformat.so." AV_STRINGIFY(LIBAVFORMAT_VERSION_MAJOR),
    "libavcodec.so." AV_STRINGIFY(LIBAVCODEC_VERSION_MAJOR),
    "libswscale.so." AV_STRINGIFY(LIBSWSCALE_VERSION_MAJOR),
};

// The library's function of that name; its handle is never closed.
void* Symbol(Library library, const char* name)
{
    static std::mutex mutex;
    static void* handles[kLibraries] = {};
    void* handle = nullptr;
    {
        std::lock_guard<std::mutex> lock(mutex);
        if (handles[library] == nullptr)
            handles[library] = dlopen(kSonames[library], RTLD_NOW | RTLD_LOCAL);
        handle = handles[library];
    }
    if (handle == nullptr)
        throw std::runtime_error(std::string("cannot load ") + kSonames[library] + ": " + dlerror());
    // Looked up in the library and what it links, never in this program.
    void* function = dlsym(handle, name);
    if (function == nullptr)
        throw std::runtime_error(std::string(kSonames[library]) + " has no " + name);
    return function;
}

}  // namespace

// Defines the stand-in for the library's function name.
#define EVC_LAZY(library, result, name, parameters, arguments)                                                         \
    extern "C" result name parameters                                                                                  \
    {                                                                                                                  \
        static const auto function = reinterpret_cast<decltype(&name)>(Symbol(library, #name));                        \
        return function arguments;                                                                                     \
    }

// libavformat
EVC_LAZY(kFormat, int, av_find_best_stream,
         (AVFormatContext * ic, enum AVMediaType type, int wanted_stream_nb, int related_stream,
          const AVCodec** decoder_ret, int flags),
         (ic, type, wanted_stream_nb, related_stream, decoder_ret, flags))
EVC_LAZY(kFormat, const AVOutputFormat*, av_guess_format,
         (const char* short_name, const char* filename, const char* mime_type), (short_name, filename, mime_type))
EVC_LAZY(kFormat, AVRational, av_guess_frame_rate, (AVFormatContext * ctx, AVStream* stream, AVFrame* frame),
         (ctx, stream, frame))
EVC_LAZY(kFormat, AVRational, av_guess_sample_aspect_ratio,
         (AVFormatContext * format, AVStream* stream, AVFrame* frame), (format, stream, frame))
EVC_LAZY(kFormat, int, av_interleaved_write_frame, (AVFormatContext * s, AVPacket* pkt), (s, pkt))
EVC_LAZY(kFormat, int, av_read_frame, (AVFormatContext * s, AVPacket* pkt), (s, pkt))
EVC_LAZY(kFormat, int, av_write_trailer, (AVFormatContext * s), (s))
EVC_LAZY(kFormat, int, avformat_alloc_output_context2,
         (AVFormatContext * *ctx, const AVOutputFormat* oformat, const char* format_name, const char* filename),
         (ctx, oformat, format_name, filename))
EVC_LAZY(kFormat, void, avformat_close_input, (AVFormatContext * *s), (s))
EVC_LAZY(kFormat, int, avformat_find_stream_info, (AVFormatContext * ic, AVDictionary** options), (ic, options))
EVC_LAZY(kFormat, void, avformat_free_context, (AVFormatContext * s), (s))
EVC_LAZY(kFormat, int, avformat_init_output, (AVFormatContext * s, AVDictionary** options), (s, options))
EVC_LAZY(kFormat, AVStream*, avformat_new_stream, (AVFormatContext * s, const AVCodec* c), (s, c))
EVC_LAZY(kFormat, int, avformat_open_input,
         (AVFormatContext * *ps, const char* url, const AVInputFormat* fmt, AVDictionary** options),
         (ps, url, fmt, options))
EVC_LAZY(kFormat, int, avformat_query_codec, (const AVOutputFormat* ofmt, enum AVCodecID codec_id, int std_compliance),
         (ofmt, codec_id, std_compliance))
EVC_LAZY(kFormat, int, avformat_seek_file,
         (AVFormatContext * s, int stream_index, int64_t min_ts, int64_t ts, int64_t max_ts, int flags),
         (s, stream_index, min_ts, ts, max_ts, flags))
EVC_LAZY(kFormat, int, avformat_write_header, (AVFormatContext * s, AVDictionary** options), (s, options))
EVC_LAZY(kFormat, int, avio_close_dyn_buf, (AVIOContext * s, uint8_t** pbuffer), (s, pbuffer))
EVC_LAZY(kFormat, int, avio_closep, (AVIOContext * *s), (s))
EVC_LAZY(kFormat, int, avio_feof, (AVIOContext * s), (s))
EVC_LAZY(kFormat, void, avio_flush, (AVIOContext * s), (s))
EVC_LAZY(kFormat, int, avio_open, (AVIOContext * *s, const char* url, int flags), (s, url, flags))
EVC_LAZY(kFormat, int, avio_open_dyn_buf, (AVIOContext * *s), (s))
EVC_LAZY(kFormat, int64_t, avio_size, (AVIOContext * s), (s))
// libavcodec
EVC_LAZY(kCodec, int, av_new_packet, (AVPacket * pkt, int size), (pkt, size))
EVC_LAZY(kCodec, AVPacket*, av_packet_alloc, (), ())
EVC_LAZY(kCodec, AVPacket*, av_packet_clone, (const AVPacket* src), (src))
EVC_LAZY(kCodec, void, av_packet_free, (AVPacket * *pkt), (pkt))
EVC_LAZY(kCodec, void, av_packet_rescale_ts, (AVPacket * pkt, AVRational tb_src, AVRational tb_dst),
         (pkt, tb_src, tb_dst))
EVC_LAZY(kCodec, void, av_packet_unref, (AVPacket * pkt), (pkt))
EVC_LAZY(kCodec, AVCodecContext*, avcodec_alloc_context3, (const AVCodec* codec), (codec))
EVC_LAZY(kCodec, const AVCodecDescriptor*, avcodec_descriptor_get_by_name, (const char* name), (name))
EVC_LAZY(kCodec, const AVCodec*, avcodec_find_decoder, (enum AVCodecID id), (id))
EVC_LAZY(kCodec, void, avcodec_flush_buffers, (AVCodecContext * avctx), (avctx))
EVC_LAZY(kCodec, void, avcodec_free_context, (AVCodecContext * *avctx), (avctx))
EVC_LAZY(kCodec, const char*, avcodec_get_name, (enum AVCodecID id), (id))
EVC_LAZY(kCodec, int, avcodec_open2, (AVCodecContext * avctx, const AVCodec* codec, AVDictionary** options),
         (avctx, codec, options))
EVC_LAZY(kCodec, AVCodecParameters*, avcodec_parameters_alloc, (), ())
EVC_LAZY(kCodec, int, avcodec_parameters_copy, (AVCodecParameters * dst, const AVCodecParameters* src), (dst, src))
EVC_LAZY(kCodec, void, avcodec_parameters_free, (AVCodecParameters * *par), (par))
EVC_LAZY(kCodec, int, avcodec_parameters_to_context, (AVCodecContext * codec, const AVCodecParameters* par),
         (codec, par))
EVC_LAZY(kCodec, int, avcodec_receive_frame, (AVCodecContext * avctx, AVFrame* frame), (avctx, frame))
EVC_LAZY(kCodec, int, avcodec_send_packet, (AVCodecContext * avctx, const AVPacket* avpkt), (avctx, avpkt))
// libswscale
EVC_LAZY(kScale, void, sws_freeContext, (struct SwsContext * swsContext), (swsContext))
EVC_LAZY(kScale, struct SwsContext*, sws_getContext,
         (int srcW, int srcH, enum AVPixelFormat srcFormat, int dstW, int dstH, enum AVPixelFormat dstFormat, int flags,
          SwsFilter* srcFilter, SwsFilter* dstFilter, const double* param),
         (srcW, srcH, srcFormat, dstW, dstH, dstFormat, flags, srcFilter, dstFilter, param))
EVC_LAZY(kScale, int, sws_isSupportedInput, (enum AVPixelFormat pix_fmt), (pix_fmt))
EVC_LAZY(kScale, int, sws_scale,
         (struct SwsContext * c, const uint8_t* const srcSlice[], const int srcStride[], int srcSliceY, int srcSliceH,
          uint8_t* const dst[], const int dstStride[]),
         (c, srcSlice, srcStride, srcSliceY, srcSliceH, dst, dstStride))
