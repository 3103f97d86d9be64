// The HEVC compressor over x265 and the entry points of the hevc.qv64
// bundle: planar YUV in (8 and 10 bits, 4:2:0, 4:2:2, 4:4:4; x265's build for
// the stream's bit depth does the work), one packet of Annex-B bytes per
// compressed picture out, VPS, SPS and PPS once in the descriptors.
#include <x265.h>

#include <cmath>
#include <iterator>
#include <string>
#include <vector>

#include "evc/HevcCodec.h"
#include "evc/PluginCompressor.h"
#include "evc/PluginEntryPoints.h"

namespace hevc {
namespace {

using namespace evc::plugin;
namespace codes = evc::hevc;

int ColorSpace(const TPlanarFormat& format)
{
    return format.chromaShiftX == 0 ? X265_CSP_I444 : format.chromaShiftY == 0 ? X265_CSP_I422 : X265_CSP_I420;
}

bool IsIdr(uint32_t nalType)
{
    return nalType == NAL_UNIT_CODED_SLICE_IDR_W_RADL || nalType == NAL_UNIT_CODED_SLICE_IDR_N_LP;
}

class CHevcCompressor : public TCompressor {
public:
    CHevcCompressor()
        : TCompressor(
              "hevc", {std::begin(codes::kInputColorFormats), std::end(codes::kInputColorFormats)},
              {IntRow(codes::kBitrate, 0, 0), IntRow(codes::kKeyFrameInterval, 0, 0)},
              {EnumRow(codes::kPreset, NameList(x265_preset_names), "medium"),
               EnumRow(codes::kTune, NameList(x265_tune_names, "none"), "none"),
               EnumRow(codes::kProfile, {"auto", "main", "main10", "main422-10", "main444-8", "main444-10"}, "auto"),
               DoubleRow(codes::kCRF, 28.0, 0, 51), IntRow(codes::kThreads, 0, 0, 256),
               DoubleRow(codes::kFrameRate, 0.0, 0, 1000)})
    {
    }
    ~CHevcCompressor() override { CloseStream(); }
    IVideoCompressor* CreateInstance() override { return new CHevcCompressor; }

private:
    uint32_t Open(const TStreamInfo& stream) override
    {
        m_api = x265_api_get(int(stream.format.bitDepth));
        if (m_api == nullptr)
            return Refuse(kZKErrFormatMismatch,
                          "this x265 has no " + std::to_string(stream.format.bitDepth) + "-bit encoder");
        m_param = m_api->param_alloc();
        m_picture = m_api->picture_alloc();
        if (m_param == nullptr || m_picture == nullptr)
            return Refuse(kZKErrGeneral, "x265 could not allocate its parameters");
        const std::string& preset = m_nonStandard.Enum(codes::kPreset);
        const std::string& tune = m_nonStandard.Enum(codes::kTune);
        if (m_api->param_default_preset(m_param, preset.c_str(), tune == "none" ? nullptr : tune.c_str()) < 0)
            return Refuse(kZKErrBadArgument, "x265 refused preset \"" + preset + "\" with tune \"" + tune + "\"");

        const double frameRate =
            m_nonStandard.Double(codes::kFrameRate) == 0.0 ? 25.0 : m_nonStandard.Double(codes::kFrameRate);
        const int32_t bitrate = m_standard.Int(codes::kBitrate);
        const int32_t keyInterval = m_standard.Int(codes::kKeyFrameInterval);
        const int32_t threads = m_nonStandard.Int(codes::kThreads);
        m_param->logLevel = X265_LOG_ERROR;
        m_param->sourceWidth = int(stream.width);
        m_param->sourceHeight = int(stream.height);
        m_param->internalCsp = ColorSpace(stream.format);
        m_param->fpsNum = uint32_t(std::lround(frameRate * 1000.0));
        m_param->fpsDenom = 1000;
        SetNominalDuration((stream.timeScale * 1000 + m_param->fpsNum / 2) / m_param->fpsNum);
        // The headers travel once in the descriptors; every key picture is
        // an IDR, so each one starts a stream a decoder can join.
        m_param->bRepeatHeaders = 0;
        m_param->bAnnexB = 1;
        m_param->bOpenGOP = 0;
        if (keyInterval > 0)
            m_param->keyframeMax = keyInterval;
        if (bitrate > 0) {
            m_param->rc.rateControlMode = X265_RC_ABR;
            m_param->rc.bitrate = bitrate;
            m_param->rc.vbvMaxBitrate = bitrate;
            m_param->rc.vbvBufferSize = bitrate;
        } else {
            m_param->rc.rateControlMode = X265_RC_CRF;
            m_param->rc.rfConstant = m_nonStandard.Double(codes::kCRF);
        }
        if (threads > 0 && m_api->param_parse(m_param, "pools", std::to_string(threads).c_str()) != 0)
            return Refuse(kZKErrBadArgument, "x265 refused the thread count");
        const std::string& profile = m_nonStandard.Enum(codes::kProfile);
        if (profile != "auto" && m_api->param_apply_profile(m_param, profile.c_str()) < 0)
            return Refuse(kZKErrBadArgument,
                          "profile \"" + profile + "\" does not allow this format or these settings");

        m_encoder = m_api->encoder_open(m_param);
        if (m_encoder == nullptr)
            return Refuse(kZKErrBadArgument, "x265 did not open with these settings");
        x265_nal* nals = nullptr;
        uint32_t count = 0;
        if (m_api->encoder_headers(m_encoder, &nals, &count) < 0)
            return Refuse(kZKErrGeneral, "x265 gave no stream headers");
        for (uint32_t i = 0; i < count; ++i)
            if (nals[i].type >= NAL_UNIT_VPS && nals[i].type <= NAL_UNIT_PPS)
                AddHeader(nals[i].type, nals[i].payload, nals[i].sizeBytes);
        m_api->picture_init(m_param, m_picture);
        return kZKNoErr;
    }

    uint32_t Encode(const TInputPicture& input) override
    {
        m_picture->colorSpace = m_param->internalCsp;
        m_picture->bitDepth = int(Stream().format.bitDepth);
        for (int p = 0; p < 3; ++p) {
            m_picture->planes[p] = const_cast<uint8_t*>(input.planes[p]);
            m_picture->stride[p] = input.rowBytes[p];
        }
        m_picture->pts = input.pts;
        m_picture->sliceType = input.forceKey ? X265_TYPE_IDR : X265_TYPE_AUTO;
        return EncodeOne(m_picture);
    }

    uint32_t Drain() override
    {
        for (;;) {
            int got = 0;
            const uint32_t status = EncodeOne(nullptr, &got);
            if (status != kZKNoErr || got == 0)
                return status;
        }
    }

    // Feeds picture (null drains one); got tells whether a picture came out.
    uint32_t EncodeOne(x265_picture* picture, int* got = nullptr)
    {
        x265_nal* nals = nullptr;
        uint32_t count = 0;
        x265_picture out;
        m_api->picture_init(m_param, &out);
        const int result = m_api->encoder_encode(m_encoder, &nals, &count, picture, &out);
        if (got != nullptr)
            *got = result;
        if (result < 0)
            return Refuse(kZKErrGeneral, "x265 failed on a picture");
        if (result == 0 || count == 0)
            return kZKNoErr;
        // The NAL units of one picture lie back to back in one buffer.
        size_t size = 0;
        bool key = false;
        for (uint32_t i = 0; i < count; ++i) {
            size += nals[i].sizeBytes;
            key = key || IsIdr(nals[i].type);
        }
        Emit(key ? codes::kKeyPicturePacket : codes::kPicturePacket, nals[0].payload, size, out.pts);
        return kZKNoErr;
    }

    void Close() override
    {
        if (m_api == nullptr)
            return;
        if (m_encoder != nullptr)
            m_api->encoder_close(m_encoder);
        if (m_picture != nullptr)
            m_api->picture_free(m_picture);
        if (m_param != nullptr)
            m_api->param_free(m_param);
        m_encoder = nullptr;
        m_picture = nullptr;
        m_param = nullptr;
    }

    const x265_api* m_api = nullptr;
    x265_param* m_param = nullptr;
    x265_picture* m_picture = nullptr;
    x265_encoder* m_encoder = nullptr;
};

}  // namespace
}  // namespace hevc

EVC_COMPRESSOR_PLUGIN(evc::hevc::kManufacturer, evc::hevc::kCodec, hevc::CHevcCompressor);
