// The VP9 compressor over libvpx and the entry points of the vp9.qv64
// bundle: planar YUV in (profiles 0 to 3), one VP9 frame per shown picture
// out, the codec configuration record once in the descriptors.
#include <vpx/vp8cx.h>
#include <vpx/vpx_encoder.h>

#include <algorithm>
#include <climits>
#include <iterator>
#include <string>
#include <thread>
#include <utility>

#include "evc/PluginCompressor.h"
#include "evc/PluginEntryPoints.h"
#include "evc/Vp9Codec.h"

namespace vp9 {
namespace {

using namespace evc::plugin;
namespace codes = evc::vp9;

// The libvpx image format and the profile for each accepted colour format.
struct TFormatChoice {
    uint32_t colorFormat;
    vpx_img_fmt_t imageFormat;
    unsigned profile;
    uint8_t chromaSubsampling;  // as the configuration record codes it
};
constexpr TFormatChoice kChoices[] = {
    {6, VPX_IMG_FMT_I420, 0, 1},    {13, VPX_IMG_FMT_I444, 1, 3},   {31, VPX_IMG_FMT_I42016, 2, 1},
    {32, VPX_IMG_FMT_I42216, 3, 2}, {24, VPX_IMG_FMT_I44416, 3, 3},
};

// The smallest level whose picture size admits the stream (rates ignored).
uint8_t Level(uint64_t lumaSamples)
{
    const std::pair<uint64_t, uint8_t> levels[] = {{36864, 10},   {73728, 11},   {122880, 20},
                                                   {245760, 21},  {552960, 30},  {983040, 31},
                                                   {2228224, 40}, {8912896, 50}, {35651584, 60}};
    for (const auto& level : levels)
        if (lumaSamples <= level.first)
            return level.second;
    return 62;
}

class CVp9Compressor : public TCompressor {
public:
    CVp9Compressor()
        : TCompressor("vp9", {std::begin(codes::kInputColorFormats), std::end(codes::kInputColorFormats)},
                      {IntRow(codes::kBitrate, 0, 0), IntRow(codes::kKeyFrameInterval, 0, 0)},
                      {IntRow(codes::kCRF, 32, 0, 63), IntRow(codes::kSpeed, 1, -9, 9),
                       IntRow(codes::kThreads, 0, 0, 64), BoolRow(codes::kRowMT, true),
                       IntRow(codes::kTileColumns, 2, 0, 6),
                       EnumRow(codes::kDeadline, {"good", "realtime", "best"}, "good")})
    {
    }
    ~CVp9Compressor() override { CloseStream(); }
    IVideoCompressor* CreateInstance() override { return new CVp9Compressor; }

private:
    uint32_t Open(const TStreamInfo& stream) override
    {
        const TFormatChoice* choice = nullptr;
        for (const TFormatChoice& c : kChoices)
            if (c.colorFormat == stream.format.colorFormat)
                choice = &c;
        vpx_codec_iface_t* iface = vpx_codec_vp9_cx();
        if (choice == nullptr)
            return Refuse(kZKErrFormatMismatch, "no VP9 profile for this format");
        if (stream.timeScale > INT_MAX)  // libvpx keeps its time base in an int
            return Refuse(kZKErrBadArgument, "time scale " + std::to_string(stream.timeScale) + " is too fine for VP9");
        if (stream.format.bitDepth > 8 && (vpx_codec_get_caps(iface) & VPX_CODEC_CAP_HIGHBITDEPTH) == 0)
            return Refuse(kZKErrFormatMismatch, "this libvpx was built without 10-bit support");

        vpx_codec_enc_cfg_t cfg;
        if (vpx_codec_enc_config_default(iface, &cfg, 0) != VPX_CODEC_OK)
            return Refuse(kZKErrGeneral, "libvpx gave no default configuration");
        const std::string& deadline = m_nonStandard.Enum(codes::kDeadline);
        const int32_t threads = m_nonStandard.Int(codes::kThreads);
        const int32_t bitrate = m_standard.Int(codes::kBitrate);
        const int32_t keyInterval = m_standard.Int(codes::kKeyFrameInterval);
        cfg.g_w = stream.width;
        cfg.g_h = stream.height;
        cfg.g_timebase.num = 1;
        cfg.g_timebase.den = static_cast<int>(stream.timeScale);
        cfg.g_profile = choice->profile;
        cfg.g_bit_depth = stream.format.bitDepth > 8 ? VPX_BITS_10 : VPX_BITS_8;
        cfg.g_input_bit_depth = stream.format.bitDepth;
        cfg.g_threads = threads > 0 ? unsigned(threads) : std::max(1u, std::thread::hardware_concurrency());
        if (deadline == "realtime")
            cfg.g_lag_in_frames = 0;  // every picture comes out of its own call
        if (bitrate > 0) {
            cfg.rc_end_usage = VPX_VBR;
            cfg.rc_target_bitrate = unsigned(bitrate);
        } else {
            cfg.rc_end_usage = VPX_Q;
            cfg.rc_min_quantizer = 0;
            cfg.rc_max_quantizer = 63;
        }
        if (keyInterval > 0)
            cfg.kf_max_dist = unsigned(keyInterval);
        m_deadline = deadline == "realtime" ? VPX_DL_REALTIME
                     : deadline == "best"   ? VPX_DL_BEST_QUALITY
                                            : VPX_DL_GOOD_QUALITY;

        const vpx_codec_flags_t flags = stream.format.bitDepth > 8 ? VPX_CODEC_USE_HIGHBITDEPTH : 0;
        if (vpx_codec_enc_init(&m_codec, iface, &cfg, flags) != VPX_CODEC_OK)
            return Refuse(kZKErrBadArgument, std::string("libvpx refused the settings: ") + vpx_codec_error(&m_codec));
        m_codecOpen = true;
        const bool controlled =
            vpx_codec_control(&m_codec, VP8E_SET_CPUUSED, int(m_nonStandard.Int(codes::kSpeed))) == VPX_CODEC_OK &&
            vpx_codec_control(&m_codec, VP9E_SET_ROW_MT, m_nonStandard.Bool(codes::kRowMT) ? 1u : 0u) == VPX_CODEC_OK &&
            vpx_codec_control(&m_codec, VP9E_SET_TILE_COLUMNS, int(m_nonStandard.Int(codes::kTileColumns))) ==
                VPX_CODEC_OK &&
            (bitrate > 0 ||
             vpx_codec_control(&m_codec, VP8E_SET_CQ_LEVEL, unsigned(m_nonStandard.Int(codes::kCRF))) == VPX_CODEC_OK);
        if (!controlled)
            return Refuse(kZKErrBadArgument, std::string("libvpx refused a setting: ") + vpx_codec_error(&m_codec));

        m_imageFormat = choice->imageFormat;
        const uint8_t record[8] = {uint8_t(choice->profile),
                                   Level(uint64_t(stream.width) * stream.height),
                                   uint8_t(stream.format.bitDepth << 4 | choice->chromaSubsampling << 1),
                                   2,  // primaries, transfer and matrix unspecified
                                   2,
                                   2,
                                   0,
                                   0};
        AddHeader(codes::kConfigurationPacket, record, sizeof record);
        return kZKNoErr;
    }

    uint32_t Encode(const TInputPicture& picture) override
    {
        vpx_image_t image;
        const TStreamInfo& s = Stream();
        if (vpx_img_wrap(&image, m_imageFormat, s.width, s.height, 1, const_cast<uint8_t*>(picture.planes[0])) ==
            nullptr)
            return Refuse(kZKErrGeneral, "libvpx did not take the picture");
        image.bit_depth = s.format.bitDepth;
        for (int p = 0; p < 3; ++p) {
            image.planes[p] = const_cast<uint8_t*>(picture.planes[p]);
            image.stride[p] = picture.rowBytes[p];
        }
        const vpx_enc_frame_flags_t flags = picture.forceKey ? VPX_EFLAG_FORCE_KF : 0;
        if (vpx_codec_encode(&m_codec, &image, picture.pts, picture.duration, flags, m_deadline) != VPX_CODEC_OK)
            return Refuse(kZKErrGeneral, std::string("libvpx failed on a picture: ") + vpx_codec_error(&m_codec));
        Collect();
        return kZKNoErr;
    }

    uint32_t Drain() override
    {
        // A null picture asks for what the look-ahead still holds, until
        // nothing more comes.
        do {
            if (vpx_codec_encode(&m_codec, nullptr, 0, 1, 0, m_deadline) != VPX_CODEC_OK)
                return Refuse(kZKErrGeneral, std::string("libvpx failed to flush: ") + vpx_codec_error(&m_codec));
        } while (Collect());
        return kZKNoErr;
    }

    void Close() override
    {
        if (m_codecOpen)
            vpx_codec_destroy(&m_codec);
        m_codecOpen = false;
    }

    // Emits every frame packet waiting; whether there was one.
    bool Collect()
    {
        bool any = false;
        vpx_codec_iter_t iter = nullptr;
        while (const vpx_codec_cx_pkt_t* packet = vpx_codec_get_cx_data(&m_codec, &iter)) {
            if (packet->kind != VPX_CODEC_CX_FRAME_PKT)
                continue;
            any = true;
            const bool key = (packet->data.frame.flags & VPX_FRAME_IS_KEY) != 0;
            Emit(key ? codes::kKeyPicturePacket : codes::kPicturePacket,
                 static_cast<const uint8_t*>(packet->data.frame.buf), packet->data.frame.sz, packet->data.frame.pts);
        }
        return any;
    }

    vpx_codec_ctx_t m_codec{};
    bool m_codecOpen = false;
    vpx_img_fmt_t m_imageFormat = VPX_IMG_FMT_I420;
    unsigned long m_deadline = VPX_DL_GOOD_QUALITY;
};

}  // namespace
}  // namespace vp9

EVC_COMPRESSOR_PLUGIN(evc::vp9::kManufacturer, evc::vp9::kCodec, vp9::CVp9Compressor);
