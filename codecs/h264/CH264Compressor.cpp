#include "CH264Compressor.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdio>

#include "evc/H264Codec.h"

namespace h264 {

namespace {

using namespace evc::h264;

constexpr double kDefaultFrameRate = 25.0;
constexpr double kMaxCRF = 51.0;
// libx264 refuses more threads than this.
constexpr int32_t kMaxThreads = 128;

std::vector<std::string> Names(const char* const* names, const char* first = nullptr)
{
    std::vector<std::string> result;
    if (first != nullptr)
        result.emplace_back(first);
    for (; *names != nullptr; ++names)
        result.emplace_back(*names);
    return result;
}

void Complain(const std::string& text)
{
    std::fprintf(stderr, "h264: %s\n", text.c_str());
}

bool CheckEnum(const TEnumSetting& setting)
{
    if (setting.IsKnown())
        return true;
    Complain(std::string(setting.GetName()) + " \"" + setting.Value() + "\" is not one of: " + setting.Enumerators());
    return false;
}

}  // namespace

CH264Compressor::CH264Compressor()
{
    m_bitrate = m_standard.Add(std::make_unique<TIntSetting>(kBitrate, 0));
    m_keyFrameInterval = m_standard.Add(std::make_unique<TIntSetting>(kKeyFrameInterval, 0));
    m_preset = m_nonStandard.Add(std::make_unique<TEnumSetting>(kPreset, Names(x264_preset_names), "medium"));
    m_tune = m_nonStandard.Add(std::make_unique<TEnumSetting>(kTune, Names(x264_tune_names, "none"), "none"));
    // Profiles for 8-bit 4:2:0; "auto" leaves the choice to the encoder.
    m_profile = m_nonStandard.Add(
        std::make_unique<TEnumSetting>(kProfile, std::vector<std::string>{"auto", "baseline", "main", "high"}, "auto"));
    m_crf = m_nonStandard.Add(std::make_unique<TDoubleSetting>(kCRF, 23.0));
    m_threads = m_nonStandard.Add(std::make_unique<TIntSetting>(kThreads, 0));
    m_frameRate = m_nonStandard.Add(std::make_unique<TDoubleSetting>(kFrameRate, 0.0));
}

CH264Compressor::~CH264Compressor()
{
    Close();
    ReleaseOutput();
}

bool CH264Compressor::MakeParameters(x264_param_t& param) const
{
    if (!CheckEnum(*m_preset) || !CheckEnum(*m_tune) || !CheckEnum(*m_profile))
        return false;
    const char* tune = m_tune->Value() == "none" ? nullptr : m_tune->Value().c_str();
    if (x264_param_default_preset(&param, m_preset->Value().c_str(), tune) < 0) {
        Complain("the encoder refused preset \"" + m_preset->Value() + "\" with tune \"" + m_tune->Value() + "\"");
        return false;
    }

    const int32_t bitrate = m_bitrate->Get();
    const int32_t keyInterval = m_keyFrameInterval->Get();
    const double crf = m_crf->Get();
    const int32_t threads = m_threads->Get();
    const double frameRate = m_frameRate->Get() == 0.0 ? kDefaultFrameRate : m_frameRate->Get();
    if (bitrate < 0) {
        Complain("Bitrate must be 0 (quality mode) or a positive number of kbit/s, not " + std::to_string(bitrate));
        return false;
    }
    if (keyInterval < 0) {
        Complain("KeyFrameInterval must not be negative: " + std::to_string(keyInterval));
        return false;
    }
    if (!(crf >= 0.0 && crf <= kMaxCRF)) {
        Complain("CRF must lie between 0 and 51, not " + std::to_string(crf));
        return false;
    }
    if (threads < 0 || threads > kMaxThreads) {
        Complain("Threads must lie between 0 (automatic) and " + std::to_string(kMaxThreads));
        return false;
    }
    if (!(frameRate > 0.0 && frameRate <= 1000.0)) {
        Complain("FrameRate must lie between 0 and 1000, not " + std::to_string(m_frameRate->Get()));
        return false;
    }

    param.i_log_level = X264_LOG_ERROR;
    param.i_threads = threads;
    param.i_width = static_cast<int>(m_width);
    param.i_height = static_cast<int>(m_height);
    param.i_csp = X264_CSP_I420;
    // Rate control follows the pictures' times, which costs one picture of
    // delay (a picture's duration is known when the next one arrives). For
    // zero latency it relies on the nominal frame rate instead.
    param.b_vfr_input = m_tune->Value() == "zerolatency" ? 0 : 1;
    param.i_timebase_num = 1;
    param.i_timebase_den = static_cast<uint32_t>(m_timeScale);
    param.i_fps_num = static_cast<uint32_t>(std::lround(frameRate * 1000.0));
    param.i_fps_den = 1000;
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
        param.rc.f_rf_constant = static_cast<float>(crf);
    }
    // The headers travel once in the descriptors, the pictures as Annex-B.
    param.b_repeat_headers = 0;
    param.b_annexb = 1;

    if (m_profile->Value() != "auto" && x264_param_apply_profile(&param, m_profile->Value().c_str()) < 0) {
        Complain("profile \"" + m_profile->Value() + "\" does not allow these settings");
        return false;
    }
    return true;
}

uint32_t CH264Compressor::Begin(const ZKEncImage_t* sample, bool /*flag*/)
{
    Close();
    if (sample == nullptr) {
        Complain("Begin needs a sample picture");
        return kStatusBadArgument;
    }
    const ZKImage_t& image = sample->image;
    if (image.colorFormat != kInputColorFormat) {
        Complain("colour format " + std::to_string(image.colorFormat) + " is not supported (only 6, 8-bit 4:2:0)");
        return kStatusFormatMismatch;
    }
    // 4:2:0 needs whole chroma samples; the limit keeps sizes inside int.
    if (image.width == 0 || image.height == 0 || image.width % 2 != 0 || image.height % 2 != 0 || image.width > 16384 ||
        image.height > 16384) {
        Complain("picture size " + std::to_string(image.width) + "x" + std::to_string(image.height) +
                 " is not supported (even sizes from 2 to 16384)");
        return kStatusBadArgument;
    }
    if (image.timeScale == 0 || image.timeScale > UINT32_MAX) {
        Complain("time scale " + std::to_string(image.timeScale) + " is not supported");
        return kStatusBadArgument;
    }
    m_width = image.width;
    m_height = image.height;
    m_timeScale = image.timeScale;

    x264_param_t param;
    if (!MakeParameters(param))
        return kStatusBadArgument;
    m_nominalDuration = std::max<uint64_t>(1, (m_timeScale * param.i_fps_den + param.i_fps_num / 2) / param.i_fps_num);

    m_encoder.reset(x264_encoder_open(&param));
    if (!m_encoder) {
        Complain("the encoder did not open");
        return kStatusFailure;
    }
    x264_nal_t* nals = nullptr;
    int count = 0;
    if (x264_encoder_headers(m_encoder.get(), &nals, &count) < 0) {
        Complain("the encoder gave no stream headers");
        m_encoder.reset();
        return kStatusFailure;
    }
    for (int i = 0; i < count; ++i) {
        if (nals[i].i_type == NAL_SPS || nals[i].i_type == NAL_PPS)
            m_headers.emplace_back(nals[i].i_type,
                                   std::vector<uint8_t>(nals[i].p_payload, nals[i].p_payload + nals[i].i_payload));
    }
    return kStatusOk;
}

namespace {

// The usual 4:2:0 layout leaves row bytes 2 at 0: both chroma planes then
// share row bytes 1.
uint32_t PlaneRowBytes(const ZKImage_t& image, int plane)
{
    return plane == 2 && image.rowBytes[2] == 0 ? image.rowBytes[1] : image.rowBytes[plane];
}

}  // namespace

uint32_t CH264Compressor::CheckPicture(const ZKImage_t& image) const
{
    if (image.colorFormat != kInputColorFormat || image.width != m_width || image.height != m_height) {
        Complain("picture " + std::to_string(image.width) + "x" + std::to_string(image.height) + " format " +
                 std::to_string(image.colorFormat) + " differs from the stream's");
        return kStatusFormatMismatch;
    }
    const uint32_t chromaWidth = m_width / 2;
    if (image.planes[0] == nullptr || image.planes[1] == nullptr || image.planes[2] == nullptr ||
        image.rowBytes[0] < m_width || image.rowBytes[1] < chromaWidth || PlaneRowBytes(image, 2) < chromaWidth ||
        image.rowBytes[0] > INT_MAX || image.rowBytes[1] > INT_MAX || PlaneRowBytes(image, 2) > INT_MAX) {
        Complain("picture planes are missing or their row bytes are too small");
        return kStatusBadArgument;
    }
    // When the buffer's size is known, the planes must fit in it.
    const uint64_t needed = uint64_t(image.rowBytes[0]) * m_height +
                            (uint64_t(image.rowBytes[1]) + PlaneRowBytes(image, 2)) * (m_height / 2);
    if (image.dataSize != 0 && needed > image.dataSize) {
        Complain("picture planes need " + std::to_string(needed) + " bytes, the buffer holds " +
                 std::to_string(image.dataSize));
        return kStatusFormatMismatch;
    }
    return kStatusOk;
}

bool CH264Compressor::StreamTime(const ZKImage_t& image, int64_t& pts) const
{
    unsigned __int128 time = image.time;
    if (image.timeScale != 0 && image.timeScale != m_timeScale)
        time = time * m_timeScale / image.timeScale;
    if (time > INT64_MAX) {
        Complain("picture time does not fit the stream's time base");
        return false;
    }
    pts = static_cast<int64_t>(time);
    if (m_hasLastPts && pts <= m_lastPts) {
        Complain("picture time " + std::to_string(pts) + " does not follow the previous one, " +
                 std::to_string(m_lastPts));
        return false;
    }
    return true;
}

void CH264Compressor::AddPicture(TBundle& pictures, const x264_nal_t* nals, int size, const x264_picture_t& out)
{
    uint64_t duration = 0;
    const auto known = m_durations.find(out.i_pts);
    if (known != m_durations.end()) {
        duration = known->second;
        m_durations.erase(known);
    }
    // The next picture's time is not known yet: assume the last spacing.
    if (duration == 0)
        duration = m_lastInterval != 0 ? m_lastInterval : m_nominalDuration;
    const uint32_t type = out.b_keyframe ? kKeyPicturePacket : kPicturePacket;
    // With Annex-B output the NAL units of one picture lie back to back.
    pictures.append(new TPacket(type, nals[0].p_payload, static_cast<size_t>(size), static_cast<uint64_t>(out.i_pts),
                                m_timeScale, duration));
}

uint32_t CH264Compressor::Encode(x264_picture_t* picture, TBundle& pictures)
{
    x264_nal_t* nals = nullptr;
    int count = 0;
    x264_picture_t out;
    const int size = x264_encoder_encode(m_encoder.get(), &nals, &count, picture, &out);
    if (size < 0) {
        Complain("the encoder failed on a picture");
        return kStatusFailure;
    }
    if (size > 0 && count > 0)
        AddPicture(pictures, nals, size, out);
    return kStatusOk;
}

uint32_t CH264Compressor::CompressFrame(const ZKEncImage_t* input, bool isKeyFrame, bool isLastFrame,
                                        ZKEncImage_t* output)
{
    ReleaseOutput();
    if (output != nullptr) {
        output->image.dataPackets = nullptr;
        output->descriptors = nullptr;
    }
    if (!m_encoder || m_finished) {
        Complain(m_encoder ? "the stream has ended; Begin starts a new one" : "CompressFrame before Begin");
        return kStatusFailure;
    }
    // Without an output the pictures would be lost; with neither input nor
    // a flush there is nothing to do.
    if (output == nullptr || (input == nullptr && !isLastFrame)) {
        Complain("CompressFrame needs an output and an input or the last-frame flag");
        return kStatusBadArgument;
    }

    auto pictures = std::make_unique<TBundle>(m_timeScale);
    uint32_t status = kStatusOk;
    if (input != nullptr) {
        const ZKImage_t& image = input->image;
        status = CheckPicture(image);
        int64_t pts = 0;
        if (status == kStatusOk && !StreamTime(image, pts))
            status = kStatusBadArgument;
        if (status != kStatusOk)
            return status;

        x264_picture_t picture;
        x264_picture_init(&picture);
        picture.img.i_csp = X264_CSP_I420 | (image.bottomUp ? X264_CSP_VFLIP : 0);
        picture.img.i_plane = 3;
        for (int p = 0; p < 3; ++p) {
            picture.img.plane[p] = image.planes[p];
            picture.img.i_stride[p] = static_cast<int>(PlaneRowBytes(image, p));
        }
        picture.i_pts = pts;
        picture.i_type = isKeyFrame ? X264_TYPE_IDR : X264_TYPE_AUTO;

        if (m_hasLastPts) {
            m_lastInterval = static_cast<uint64_t>(pts - m_lastPts);
            const auto previous = m_durations.find(m_lastPts);
            if (previous != m_durations.end())
                previous->second = m_lastInterval;
        }
        m_durations[pts] = 0;
        m_hasLastPts = true;
        m_lastPts = pts;
        status = Encode(&picture, *pictures);
    }
    if (isLastFrame) {
        while (status == kStatusOk && x264_encoder_delayed_frames(m_encoder.get()) > 0)
            status = Encode(nullptr, *pictures);
        m_finished = true;
    }

    // Whatever was compressed is handed out, even when a later step failed.
    if (pictures->size() > 0) {
        if (!m_headersSent) {
            auto descriptors = std::make_unique<TBundle>(m_timeScale);
            for (const auto& header : m_headers)
                descriptors->append(
                    new TPacket(header.first, header.second.data(), header.second.size(), 0, m_timeScale, 0));
            m_headersSent = true;
            m_descriptors.reset(descriptors.release());
            output->descriptors = m_descriptors.get();
        }
        m_data.reset(pictures.release());
        output->image.dataPackets = m_data.get();
    }
    return status;
}

void CH264Compressor::End()
{
    Close();
    ReleaseOutput();
}

void CH264Compressor::Close()
{
    m_encoder.reset();
    m_headers.clear();
    m_headersSent = false;
    m_finished = false;
    m_hasLastPts = false;
    m_lastPts = 0;
    m_lastInterval = 0;
    m_durations.clear();
}

void CH264Compressor::ReleaseOutput()
{
    m_data.reset();
    m_descriptors.reset();
}

}  // namespace h264
