// Containers through libavformat. The compressor hands out pictures in
// decoding order with presentation times only; DecodeTimes supplies the
// decoding times the muxer needs. The stream headers become the codec
// private data, so the header is written when the first pictures arrive;
// audio read before then waits.
#include <cerrno>
#include <climits>
#include <cstring>

#include "tools/DecodeTimes.h"
#include "tools/OutputFile.h"
#include "tools/OutputWriter.h"

extern "C" {
#include <libavutil/opt.h>
}

namespace evc {
namespace tools {

namespace {

struct ContextFree {
    void operator()(AVFormatContext* context) const
    {
        if (context->pb != nullptr)
            avio_closep(&context->pb);
        avformat_free_context(context);
    }
};

// The compressor's key pictures carry packet type 1.
constexpr uint32_t kKeyPacket = 1;

// The reordering the shipped H.264 and HEVC encoders may use at any point (a
// B-pyramid: a picture decoded after two that are shown later), whatever the
// first pictures showed; VP9 and AV1 hand pictures out in order.
size_t ReorderFloor(uint32_t codec)
{
    const std::string name = CodecName(codec);
    return name == "h264" || name == "hevc" ? 2 : 0;
}

class ContainerWriter : public OutputWriter {
public:
    ContainerWriter(const OutputPlan& plan, const VideoFormat& format, const std::vector<AudioTrack>& audio)
        : m_target(plan.path, plan.overwrite), m_format(format), m_order(32, ReorderFloor(plan.codec))
    {
        const char* muxer = plan.format == "mkv" ? "matroska" : plan.format.c_str();
        AVFormatContext* context = nullptr;
        if (avformat_alloc_output_context2(&context, nullptr, muxer, nullptr) < 0 || context == nullptr)
            throw std::runtime_error(m_target.name() + ": libavformat cannot write " + plan.format);
        m_context.reset(context);

        AVStream* video = avformat_new_stream(context, nullptr);
        if (video == nullptr)
            throw std::bad_alloc();
        AVCodecParameters& p = *video->codecpar;
        p.codec_type = AVMEDIA_TYPE_VIDEO;
        const AVCodecDescriptor* descriptor = avcodec_descriptor_get_by_name(CodecName(plan.codec).c_str());
        p.codec_id = descriptor != nullptr ? descriptor->id : AV_CODEC_ID_NONE;
        p.width = int(format.width);
        p.height = int(format.height);
        p.format = format.pixelFormat;
        if (format.sarNum != 0)
            p.sample_aspect_ratio = AVRational{int(format.sarNum), int(format.sarDen)};
        video->sample_aspect_ratio = p.sample_aspect_ratio;
        p.field_order = AVFieldOrder(format.fieldOrder);
        p.color_range = AVColorRange(format.colorRange);
        p.color_primaries = AVColorPrimaries(format.colorPrimaries);
        p.color_trc = AVColorTransferCharacteristic(format.colorTransfer);
        p.color_space = AVColorSpace(format.colorMatrix);
        m_videoTimeBase = AVRational{1, int(std::min<uint64_t>(format.timeScale, INT_MAX))};
        video->time_base = m_videoTimeBase;
        if (!format.variableRate) {
            video->avg_frame_rate = AVRational{int(format.fpsNum), int(format.fpsDen)};
            video->r_frame_rate = video->avg_frame_rate;
        }

        for (const AudioTrack& track : audio) {
            AVStream* stream = AddCopiedStream(context, *track.parameters);
            if (stream == nullptr)
                throw std::bad_alloc();
            stream->time_base = AVRational{track.timeBaseNum, track.timeBaseDen};
            m_audioTimeBases.push_back(stream->time_base);
        }

        const std::string url = m_target.toStandardOutput() ? "pipe:1" : "file:" + m_target.writePath();
        // The MP4 muxer reopens the file by this name to move its index.
        av_freep(&context->url);
        context->url = av_strdup(url.c_str());
        const int error = avio_open(&context->pb, url.c_str(), AVIO_FLAG_WRITE);
        if (error < 0)
            throw std::runtime_error(m_target.name() + ": cannot create: " + AvError(error));
        if (plan.format == "mp4" || plan.format == "mov")
            // The index goes first where the file can be rewritten, else the
            // file is written in fragments a pipe can carry.
            av_dict_set(&m_options, "movflags",
                        m_target.seekable() ? "+faststart" : "+frag_keyframe+empty_moov+delay_moov", 0);
        // Pictures keep the source's presentation times; the decoding times
        // before the first one may be negative.
        context->avoid_negative_ts = AVFMT_AVOID_NEG_TS_DISABLED;
    }

    ~ContainerWriter() override { av_dict_free(&m_options); }

    void write(const EncodedFrame& frame) override
    {
        if (!m_headerWritten)
            for (const Packet& header : frame.descriptors)
                m_extradata.insert(m_extradata.end(), header.data.begin(), header.data.end());
        for (const Packet& packet : frame.packets) {
            const uint64_t base = packet.timeBase != 0 ? packet.timeBase : m_format.timeScale;
            const AVRational packetBase{1, int(std::min<uint64_t>(base, INT_MAX))};
            const int64_t pts = av_rescale_q(int64_t(packet.time), packetBase, m_videoTimeBase);
            const int64_t duration = av_rescale_q(int64_t(packet.duration), packetBase, m_videoTimeBase);
            m_order.push(Pending{packet.data, packet.type == kKeyPacket, duration}, pts, duration);
            m_bytes += packet.data.size();
        }
        Release(false);
    }

    void writeAudio(AudioPacket&& packet) override
    {
        if (!m_headerWritten) {
            m_waitingAudio.push_back(std::move(packet));
            return;
        }
        AVPacket& p = *packet.packet;
        const size_t stream = packet.track + 1;
        p.stream_index = int(stream);
        av_packet_rescale_ts(&p, m_audioTimeBases[packet.track], m_context->streams[stream]->time_base);
        Check(av_interleaved_write_frame(m_context.get(), &p));
    }

    void close() override
    {
        Release(true);
        if (!m_headerWritten)
            throw std::runtime_error(m_target.name() + ": no pictures to write");
        Check(av_interleaved_write_frame(m_context.get(), nullptr));
        Check(av_write_trailer(m_context.get()));
        avio_flush(m_context->pb);
        const int error = m_context->pb->error;
        Check(error);
        Check(avio_closep(&m_context->pb));
        m_target.commit();
    }

    uint64_t bytesWritten() const override { return m_bytes; }

private:
    struct Pending {
        std::vector<uint8_t> data;
        bool key = false;
        int64_t duration = 0;
    };

    void Check(int error)
    {
        if (error < 0)
            throw std::runtime_error(m_target.name() + ": cannot write: " + AvError(error));
    }

    void WriteHeader()
    {
        AVCodecParameters& p = *m_context->streams[0]->codecpar;
        if (!m_extradata.empty()) {
            p.extradata = static_cast<uint8_t*>(av_mallocz(m_extradata.size() + AV_INPUT_BUFFER_PADDING_SIZE));
            if (p.extradata == nullptr)
                throw std::bad_alloc();
            std::memcpy(p.extradata, m_extradata.data(), m_extradata.size());
            p.extradata_size = int(m_extradata.size());
        }
        const int error = avformat_write_header(m_context.get(), &m_options);
        if (error < 0)
            throw std::runtime_error(m_target.name() + ": cannot write the container header: " + AvError(error));
        m_headerWritten = true;
        for (AudioPacket& audio : m_waitingAudio)
            writeAudio(std::move(audio));
        m_waitingAudio.clear();
    }

    void Release(bool flush)
    {
        m_order.release(flush, [this](Pending&& pending, int64_t pts, int64_t dts) {
            if (!m_headerWritten)
                WriteHeader();
            PacketPtr packet(av_packet_alloc());
            if (!packet || av_new_packet(packet.get(), int(pending.data.size())) < 0)
                throw std::bad_alloc();
            std::memcpy(packet->data, pending.data.data(), pending.data.size());
            packet->pts = pts;
            packet->dts = dts;
            packet->duration = pending.duration;
            packet->flags = pending.key ? AV_PKT_FLAG_KEY : 0;
            packet->stream_index = 0;
            av_packet_rescale_ts(packet.get(), m_videoTimeBase, m_context->streams[0]->time_base);
            Check(av_interleaved_write_frame(m_context.get(), packet.get()));
        });
    }

    OutputFile m_target;
    VideoFormat m_format;
    std::unique_ptr<AVFormatContext, ContextFree> m_context;
    AVDictionary* m_options = nullptr;
    AVRational m_videoTimeBase{1, 25};
    std::vector<AVRational> m_audioTimeBases;
    std::vector<uint8_t> m_extradata;
    DecodeTimes<Pending> m_order;
    std::vector<AudioPacket> m_waitingAudio;
    bool m_headerWritten = false;
    uint64_t m_bytes = 0;
};

}  // namespace

std::unique_ptr<OutputWriter> MakeContainerWriter(const OutputPlan& plan, const VideoFormat& format,
                                                  const std::vector<AudioTrack>& audio)
{
    return std::make_unique<ContainerWriter>(plan, format, audio);
}

}  // namespace tools
}  // namespace evc
