// The AV1 compressor over SVT-AV1 and the entry points of the av1.qv64
// bundle: 8- and 10-bit 4:2:0 in, one temporal unit per shown picture out,
// the sequence header once in the descriptors.
#include <svt-av1/EbSvtAv1Enc.h>

#include <cmath>
#include <cstdlib>
#include <iterator>
#include <string>

#include "evc/Av1Codec.h"
#include "evc/PluginCompressor.h"
#include "evc/PluginEntryPoints.h"

namespace av1 {
namespace {

using namespace evc::plugin;
namespace codes = evc::av1;

// The library refuses smaller pictures.
constexpr uint32_t kMinSide = 64;

class CAv1Compressor : public TCompressor {
public:
    CAv1Compressor()
        : TCompressor("av1", {std::begin(codes::kInputColorFormats), std::end(codes::kInputColorFormats)},
                      {IntRow(codes::kBitrate, 0, 0, 100000), IntRow(codes::kKeyFrameInterval, 0, 0)},
                      {IntRow(codes::kCRF, 35, 1, 63), IntRow(codes::kPreset, 10, 0, 13),
                       IntRow(codes::kThreads, 0, 0, 256), IntRow(codes::kFilmGrain, 0, 0, 50),
                       DoubleRow(codes::kFrameRate, 0.0, 0, 1000)})
    {
    }
    ~CAv1Compressor() override { CloseStream(); }
    IVideoCompressor* CreateInstance() override { return new CAv1Compressor; }

private:
    uint32_t Open(const TStreamInfo& stream) override
    {
        if (stream.width < kMinSide || stream.height < kMinSide)
            return Refuse(kZKErrBadArgument, "SVT-AV1 needs pictures of at least 64x64");
        // Only warnings and errors from the library, unless the user asked
        // for more.
        setenv("SVT_LOG", "2", 0);
        EbSvtAv1EncConfiguration config;
        if (svt_av1_enc_init_handle(&m_handle, nullptr, &config) != EB_ErrorNone)
            return Refuse(kZKErrGeneral, "SVT-AV1 did not start");
        const double frameRate =
            m_nonStandard.Double(codes::kFrameRate) == 0.0 ? 25.0 : m_nonStandard.Double(codes::kFrameRate);
        const int32_t bitrate = m_standard.Int(codes::kBitrate);
        const int32_t keyInterval = m_standard.Int(codes::kKeyFrameInterval);
        config.enc_mode = int8_t(m_nonStandard.Int(codes::kPreset));
        config.source_width = stream.width;
        config.source_height = stream.height;
        config.frame_rate_numerator = uint32_t(std::lround(frameRate * 1000.0));
        config.frame_rate_denominator = 1000;
        SetNominalDuration((stream.timeScale * 1000 + config.frame_rate_numerator / 2) / config.frame_rate_numerator);
        config.encoder_bit_depth = stream.format.bitDepth;
        config.encoder_color_format = EB_YUV420;
        config.profile = MAIN_PROFILE;
        // Key pictures are whole restarts, and the host may ask for one.
        config.intra_refresh_type = SVT_AV1_KF_REFRESH;
        config.force_key_frames = 1;
        if (keyInterval > 0)
            config.intra_period_length = keyInterval - 1;
        if (bitrate > 0) {
            config.rate_control_mode = 1;  // variable bit rate
            config.target_bit_rate = uint32_t(bitrate) * 1000;
        } else {
            config.rate_control_mode = 0;  // constant quality
            config.qp = uint32_t(m_nonStandard.Int(codes::kCRF));
        }
        config.logical_processors = uint32_t(m_nonStandard.Int(codes::kThreads));
        config.film_grain_denoise_strength = uint32_t(m_nonStandard.Int(codes::kFilmGrain));
        if (svt_av1_enc_set_parameter(m_handle, &config) != EB_ErrorNone)
            return Refuse(kZKErrBadArgument, "SVT-AV1 refused these settings");
        if (svt_av1_enc_init(m_handle) != EB_ErrorNone)
            return Refuse(kZKErrBadArgument, "SVT-AV1 did not open with these settings");
        m_initialised = true;

        EbBufferHeaderType* header = nullptr;
        if (svt_av1_enc_stream_header(m_handle, &header) != EB_ErrorNone || header == nullptr)
            return Refuse(kZKErrGeneral, "SVT-AV1 gave no sequence header");
        AddHeader(codes::kSequenceHeaderPacket, header->p_buffer, header->n_filled_len);
        svt_av1_enc_stream_header_release(header);
        return kZKNoErr;
    }

    uint32_t Encode(const TInputPicture& input) override
    {
        const unsigned bytes = Stream().format.bytesPerSample;
        EbSvtIOFormat planes{};
        planes.luma = const_cast<uint8_t*>(input.planes[0]);
        planes.cb = const_cast<uint8_t*>(input.planes[1]);
        planes.cr = const_cast<uint8_t*>(input.planes[2]);
        // The library counts strides in samples.
        planes.y_stride = uint32_t(input.rowBytes[0]) / bytes;
        planes.cb_stride = uint32_t(input.rowBytes[1]) / bytes;
        planes.cr_stride = uint32_t(input.rowBytes[2]) / bytes;
        EbBufferHeaderType buffer{};
        buffer.size = sizeof buffer;
        buffer.p_buffer = reinterpret_cast<uint8_t*>(&planes);
        buffer.n_filled_len = uint32_t(uint64_t(input.rowBytes[0]) * Stream().height * 3 / 2);
        buffer.n_alloc_len = buffer.n_filled_len;
        buffer.pts = input.pts;
        buffer.pic_type = input.forceKey ? EB_AV1_KEY_PICTURE : EB_AV1_INVALID_PICTURE;
        if (svt_av1_enc_send_picture(m_handle, &buffer) != EB_ErrorNone)
            return Refuse(kZKErrGeneral, "SVT-AV1 failed on a picture");
        return Collect(false);
    }

    uint32_t Drain() override
    {
        EbBufferHeaderType end{};
        end.size = sizeof end;
        end.flags = EB_BUFFERFLAG_EOS;
        end.pic_type = EB_AV1_INVALID_PICTURE;
        if (svt_av1_enc_send_picture(m_handle, &end) != EB_ErrorNone)
            return Refuse(kZKErrGeneral, "SVT-AV1 did not take the end of the stream");
        return Collect(true);
    }

    // Emits the packets ready; at the end, waits for every one up to the
    // packet that carries the end-of-stream flag.
    uint32_t Collect(bool toTheEnd)
    {
        for (;;) {
            EbBufferHeaderType* packet = nullptr;
            const EbErrorType result = svt_av1_enc_get_packet(m_handle, &packet, toTheEnd ? 1 : 0);
            if (result == EB_NoErrorEmptyQueue && !toTheEnd)
                return kZKNoErr;
            if (result != EB_ErrorNone || packet == nullptr)
                return toTheEnd && result == EB_ErrorMax ? kZKNoErr : Refuse(kZKErrGeneral, "SVT-AV1 failed");
            if ((packet->flags & EB_BUFFERFLAG_ERROR_MASK) != 0) {
                svt_av1_enc_release_out_buffer(&packet);
                return Refuse(kZKErrGeneral, "SVT-AV1 failed on a picture");
            }
            const bool last = (packet->flags & EB_BUFFERFLAG_EOS) != 0;
            if (packet->n_filled_len > 0)
                Emit(packet->pic_type == EB_AV1_KEY_PICTURE ? codes::kKeyPicturePacket : codes::kPicturePacket,
                     packet->p_buffer, packet->n_filled_len, packet->pts);
            svt_av1_enc_release_out_buffer(&packet);
            if (last)
                return kZKNoErr;
        }
    }

    void Close() override
    {
        if (m_initialised)
            svt_av1_enc_deinit(m_handle);
        if (m_handle != nullptr)
            svt_av1_enc_deinit_handle(m_handle);
        m_initialised = false;
        m_handle = nullptr;
    }

    EbComponentType* m_handle = nullptr;
    bool m_initialised = false;
};

}  // namespace
}  // namespace av1

EVC_COMPRESSOR_PLUGIN(evc::av1::kManufacturer, evc::av1::kCodec, av1::CAv1Compressor);
