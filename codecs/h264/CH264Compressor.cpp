#include "CH264Compressor.h"

#include <cmath>
#include <string>
#include <vector>

#include "evc/H264Codec.h"

namespace h264 {

namespace {

using namespace evc::h264;
using namespace evc::plugin;

// libx264 refuses more threads than this.
constexpr int32_t kMaxThreads = 128;

// The libx264 colour space and the member of the High family for a format.
struct TFormatChoice {
    uint32_t colorFormat;
    int colorSpace;
    const char* highProfile;
};
constexpr TFormatChoice kChoices[] = {
    {6, X264_CSP_I420, "high"},
    {31, X264_CSP_I420 | X264_CSP_HIGH_DEPTH, "high10"},
    {32, X264_CSP_I422 | X264_CSP_HIGH_DEPTH, "high422"},
    {13, X264_CSP_I444, "high444"},
};

// The rate as an exact fraction where one with a usual denominator fits
// (29.97002997 is 30000/1001), else in thousandths.
void RateFraction(double rate, uint32_t& num, uint32_t& den)
{
    for (uint32_t d : {1u, 1001u, 1000u, 100u}) {
        const double n = std::round(rate * d);
        if (std::fabs(n / d - rate) < 1e-9 * rate) {
            num = static_cast<uint32_t>(n);
            den = d;
            return;
        }
    }
    num = static_cast<uint32_t>(std::lround(rate * 1000.0));
    den = 1000;
}

}  // namespace

CH264Compressor::CH264Compressor()
    : TCompressor("h264", {std::begin(kInputColorFormats), std::end(kInputColorFormats)},
                  {IntRow(kBitrate, 0, 0), IntRow(kKeyFrameInterval, 0, 0)},
                  {EnumRow(kPreset, NameList(x264_preset_names), "medium"),
                   EnumRow(kTune, NameList(x264_tune_names, "none"), "none"),
                   // "auto" leaves the choice to the encoder.
                   EnumRow(kProfile, {"auto", "baseline", "main", "high"}, "auto"), DoubleRow(kCRF, 23.0, 0, 51),
                   IntRow(kThreads, 0, 0, kMaxThreads), DoubleRow(kFrameRate, 0.0, 0, 1000),
                   IntRow(kSarWidth, 0, 0, 65535), IntRow(kSarHeight, 0, 0, 65535), IntRow(kColourPrimaries, 2, 0, 255),
                   IntRow(kTransfer, 2, 0, 255), IntRow(kMatrix, 2, 0, 255), BoolRow(kFullRange, false),
                   EnumRow(kFieldOrder, {"progressive", "tff", "bff"}, "progressive")})
{
}

bool CH264Compressor::MakeParameters(const TStreamInfo& stream, x264_param_t& param) const
{
    const std::string& preset = m_nonStandard.Enum(kPreset);
    const std::string& tune = m_nonStandard.Enum(kTune);
    if (x264_param_default_preset(&param, preset.c_str(), tune == "none" ? nullptr : tune.c_str()) < 0) {
        Complain("the encoder refused preset \"" + preset + "\" with tune \"" + tune + "\"");
        return false;
    }
    const int32_t bitrate = m_standard.Int(kBitrate);
    const int32_t keyInterval = m_standard.Int(kKeyFrameInterval);
    const double frameRate = m_nonStandard.Double(kFrameRate) == 0.0 ? 25.0 : m_nonStandard.Double(kFrameRate);

    param.i_log_level = X264_LOG_ERROR;
    param.i_threads = m_nonStandard.Int(kThreads);
    param.i_width = static_cast<int>(stream.width);
    param.i_height = static_cast<int>(stream.height);
    param.i_csp = m_colorSpace;
    param.i_bitdepth = static_cast<int>(stream.format.bitDepth);
    // Rate control follows the pictures' times, which costs one picture of
    // delay (a picture's duration is known when the next one arrives). For
    // zero latency it relies on the nominal frame rate instead.
    param.b_vfr_input = tune == "zerolatency" ? 0 : 1;
    param.i_timebase_num = 1;
    param.i_timebase_den = static_cast<uint32_t>(stream.timeScale);
    RateFraction(frameRate, param.i_fps_num, param.i_fps_den);
    // Given a nominal rate, the encoder counts in pictures, so the stream
    // announces that rate (a time base of 1/time scale reads as thousands
    // of pictures a second); each packet gets its picture's own time back.
    if (m_nonStandard.Double(kFrameRate) != 0.0) {
        param.i_timebase_num = param.i_fps_den;
        param.i_timebase_den = param.i_fps_num;
    }
    if (keyInterval > 0)
        param.i_keyint_max = keyInterval;
    if (bitrate > 0) {
        // A one-second buffer at the target rate keeps the rate near constant.
        param.rc.i_rc_method = X264_RC_ABR;
        param.rc.i_bitrate = bitrate;
        param.rc.i_vbv_max_bitrate = bitrate;
        param.rc.i_vbv_buffer_size = bitrate;
    } else {
        param.rc.i_rc_method = X264_RC_CRF;
        param.rc.f_rf_constant = static_cast<float>(m_nonStandard.Double(kCRF));
    }
    // What the source says about its pictures.
    param.vui.i_sar_width = m_nonStandard.Int(kSarWidth);
    param.vui.i_sar_height = m_nonStandard.Int(kSarHeight);
    param.vui.i_colorprim = m_nonStandard.Int(kColourPrimaries);
    param.vui.i_transfer = m_nonStandard.Int(kTransfer);
    param.vui.i_colmatrix = m_nonStandard.Int(kMatrix);
    param.vui.b_fullrange = m_nonStandard.Bool(kFullRange) ? 1 : 0;
    const std::string& fields = m_nonStandard.Enum(kFieldOrder);
    param.b_interlaced = fields != "progressive";
    param.b_tff = fields == "tff";
    // The headers travel once in the descriptors, the pictures as Annex-B.
    param.b_repeat_headers = 0;
    param.b_annexb = 1;

    std::string profile = m_nonStandard.Enum(kProfile);
    if (profile == "auto")
        return true;
    for (const TFormatChoice& choice : kChoices)
        if (choice.colorFormat == stream.format.colorFormat && profile == "high")
            profile = choice.highProfile;
    if (x264_param_apply_profile(&param, profile.c_str()) < 0) {
        Complain("profile \"" + m_nonStandard.Enum(kProfile) + "\" does not allow these settings");
        return false;
    }
    return true;
}

uint32_t CH264Compressor::Open(const TStreamInfo& stream)
{
    for (const TFormatChoice& choice : kChoices)
        if (choice.colorFormat == stream.format.colorFormat)
            m_colorSpace = choice.colorSpace;
    x264_param_t param;
    if (!MakeParameters(stream, param))
        return kZKErrBadArgument;
    SetNominalDuration((stream.timeScale * param.i_fps_den + param.i_fps_num / 2) / param.i_fps_num);
    m_timeScale = stream.timeScale;
    m_encoderTicks = param.i_timebase_num;
    m_encoderScale = param.i_timebase_den;
    m_streamTimes.clear();

    m_encoder.reset(x264_encoder_open(&param));
    if (!m_encoder)
        return Refuse(kZKErrGeneral, "the encoder did not open");
    x264_nal_t* nals = nullptr;
    int count = 0;
    if (x264_encoder_headers(m_encoder.get(), &nals, &count) < 0)
        return Refuse(kZKErrGeneral, "the encoder gave no stream headers");
    for (int i = 0; i < count; ++i)
        if (nals[i].i_type == NAL_SPS || nals[i].i_type == NAL_PPS)
            AddHeader(static_cast<uint32_t>(nals[i].i_type), nals[i].p_payload, size_t(nals[i].i_payload));
    return kZKNoErr;
}

uint32_t CH264Compressor::EncodeOne(x264_picture_t* picture)
{
    x264_nal_t* nals = nullptr;
    int count = 0;
    x264_picture_t out;
    const int size = x264_encoder_encode(m_encoder.get(), &nals, &count, picture, &out);
    if (size < 0)
        return Refuse(kZKErrGeneral, "the encoder failed on a picture");
    // With Annex-B output the NAL units of one picture lie back to back.
    if (size > 0 && count > 0) {
        int64_t pts = out.i_pts;
        const auto original = m_streamTimes.find(out.i_pts);
        if (original != m_streamTimes.end()) {
            pts = original->second;
            m_streamTimes.erase(original);
        }
        Emit(out.b_keyframe ? evc::h264::kKeyPicturePacket : evc::h264::kPicturePacket, nals[0].p_payload, size_t(size),
             pts);
    }
    return kZKNoErr;
}

uint32_t CH264Compressor::Encode(const TInputPicture& input)
{
    x264_picture_t picture;
    x264_picture_init(&picture);
    picture.img.i_csp = m_colorSpace;
    picture.img.i_plane = 3;
    for (int p = 0; p < 3; ++p) {
        picture.img.plane[p] = const_cast<uint8_t*>(input.planes[p]);
        picture.img.i_stride[p] = input.rowBytes[p];
    }
    // On the encoder's clock, kept increasing.
    int64_t pts = static_cast<int64_t>(
        (static_cast<unsigned __int128>(input.pts) * m_encoderScale + m_timeScale * m_encoderTicks / 2) /
        (m_timeScale * m_encoderTicks));
    if (!m_streamTimes.empty() && pts <= m_streamTimes.rbegin()->first)
        pts = m_streamTimes.rbegin()->first + 1;
    m_streamTimes[pts] = input.pts;
    picture.i_pts = pts;
    picture.i_type = input.forceKey ? X264_TYPE_IDR : X264_TYPE_AUTO;
    return EncodeOne(&picture);
}

uint32_t CH264Compressor::Drain()
{
    uint32_t status = kZKNoErr;
    while (status == kZKNoErr && x264_encoder_delayed_frames(m_encoder.get()) > 0)
        status = EncodeOne(nullptr);
    return status;
}

}  // namespace h264
