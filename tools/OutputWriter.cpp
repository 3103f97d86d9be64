// The raw elementary stream and segment file writers, and the choice of format.
#include "tools/OutputWriter.h"

#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "transport/TPacketBundle.h"
#include "transport/TQVAPIPacket.h"
#include "tools/OutputFile.h"
#include "transport/TZKSegmentWriter.h"

extern "C" {
#include <libavformat/avformat.h>
}

namespace evc {
namespace tools {

namespace {

std::string SystemError(const std::string& path, const std::string& what)
{
    return path + ": " + what + ": " + std::strerror(errno);
}

struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
};

// SPS and PPS (the descriptors, already with start codes) before the first
// picture, then every picture's bytes in decode order.
class AnnexBWriter : public OutputWriter {
public:
    explicit AnnexBWriter(const OutputPlan& plan)
        : m_target(plan.path, plan.overwrite),
          m_file(m_target.toStandardOutput() ? fdopen(dup(STDOUT_FILENO), "wb")
                                             : std::fopen(m_target.writePath().c_str(), "wb"))
    {
        if (!m_file)
            throw std::runtime_error(SystemError(m_target.name(), "cannot create"));
    }
    // The target is declared first, so it removes the file after it is closed.
    ~AnnexBWriter() override = default;

    void write(const EncodedFrame& frame) override
    {
        for (const Packet& packet : frame.descriptors)
            put(packet.data);
        for (const Packet& packet : frame.packets)
            put(packet.data);
    }

    void close() override
    {
        std::FILE* file = m_file.release();
        if (file == nullptr)
            return;
        if (std::fclose(file) != 0)
            throw std::runtime_error(SystemError(m_target.name(), "cannot write"));
        m_target.commit();
    }

    uint64_t bytesWritten() const override { return m_bytes; }

private:
    void put(const std::vector<uint8_t>& bytes)
    {
        if (bytes.empty())
            return;
        if (!m_file || std::fwrite(bytes.data(), 1, bytes.size(), m_file.get()) != bytes.size())
            throw std::runtime_error(SystemError(m_target.name(), "cannot write"));
        m_bytes += bytes.size();
    }

    OutputFile m_target;
    std::unique_ptr<std::FILE, FileCloser> m_file;
    uint64_t m_bytes = 0;
};

struct BundleDeleter {
    void operator()(TPacketBundle* bundle) const { bundle->destroy(); }
};
using BundlePtr = std::unique_ptr<TPacketBundle, BundleDeleter>;

// Rebuilds a transport bundle from the client's flattened copies.
BundlePtr MakeBundle(const std::vector<Packet>& packets, uint64_t& bytes)
{
    BundlePtr bundle(new TPacketBundle());
    for (const Packet& source : packets) {
        auto* packet = new TQVAPIPacket();
        packet->setType(source.type);
        packet->setTrack(source.track);
        packet->setTime(source.time);
        packet->setTimeBase(source.timeBase);
        packet->setDuration(source.duration);
        packet->setDescriptor(source.descriptor.data(), source.descriptor.size());
        packet->setData(source.data.data(), source.data.size());
        bundle->append(packet);
        bytes += source.data.size();
    }
    return bundle;
}

// One "EncImage" element per output that holds packets: the picture's
// geometry and time, its data packets and, once, the descriptors.
class SegmentFileWriter : public OutputWriter {
public:
    SegmentFileWriter(const OutputPlan& plan, const VideoFormat& format)
        : m_target(plan.path, plan.overwrite), m_format(format), m_chunk(plan.chunk)
    {
        errno = 0;
        if (!m_writer.open(m_target.writePath(), CATime(0, format.timeScale)))
            throw std::runtime_error(SystemError(m_target.name(), "cannot create"));
    }

    void write(const EncodedFrame& frame) override
    {
        if (frame.packets.empty() && frame.descriptors.empty())
            return;
        m_pictures += frame.packets.size();
        BundlePtr data = MakeBundle(frame.packets, m_bytes);
        BundlePtr descriptors = MakeBundle(frame.descriptors, m_bytes);

        ZKEncImage_t record{};
        record.image.colorFormat = m_format.colorFormat;
        record.image.colorRange = eColorRangeDefault;
        record.image.width = m_format.width;
        record.image.height = m_format.height;
        record.image.time = frame.time;
        record.image.timeScale = frame.timeScale != 0 ? frame.timeScale : m_format.timeScale;
        record.image.dataPackets = data.get();
        record.descriptors = descriptors->size() > 0 ? descriptors.get() : nullptr;
        record.streamValue = frame.streamValue;
        record.streamFlags = frame.streamFlags;

        if (!m_writer.writeImage(&record, Span(frame, record.image.timeScale)))
            throw std::runtime_error(m_target.name() + ": cannot write");
    }

    void cutShort() override
    {
        if (m_chunk)
            m_chunk->frames = m_pictures;
    }

    void close() override
    {
        if (!m_writer.isOpen())
            return;
        if (!m_writer.close() || (m_chunk && !AppendChunkTrailer(m_target.writePath(), *m_chunk)))
            throw std::runtime_error(m_target.name() + ": cannot write");
        m_target.commit();
    }

    uint64_t bytesWritten() const override { return m_bytes; }

private:
    // From the record's time to the end of its latest picture, so that the
    // segment's duration covers every picture.
    CATime Span(const EncodedFrame& frame, uint64_t timeScale) const
    {
        uint64_t end = frame.time;
        for (const Packet& packet : frame.packets) {
            const CATime packetEnd(packet.time + packet.duration, packet.timeBase != 0 ? packet.timeBase : timeScale);
            end = std::max(end, packetEnd.GetTime(timeScale));
        }
        return CATime(end - frame.time, timeScale);
    }

    OutputFile m_target;
    VideoFormat m_format;
    std::optional<ChunkTrailer> m_chunk;
    TZKSegmentWriter m_writer;
    uint64_t m_bytes = 0;
    uint64_t m_pictures = 0;  // packets written
};

}  // namespace

std::string OutputFormat(const std::string& path, const std::string& requested)
{
    static const std::vector<std::pair<std::string, std::vector<std::string>>> kFormats = {
        {"mkv", {"mkv", "matroska"}}, {"webm", {"webm"}},     {"mp4", {"mp4"}}, {"mov", {"mov"}},
        {"h264", {"h264", "264"}},    {"evcseg", {"evcseg"}},
    };
    std::string name = requested;
    if (name.empty()) {
        const size_t dot = path.rfind('.');
        if (dot == std::string::npos || path.find('/', dot) != std::string::npos)
            return "";
        name = path.substr(dot + 1);
        for (char& c : name)
            c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    for (const auto& format : kFormats)
        for (const std::string& alias : format.second)
            if (name == alias)
                return format.first;
    return "";
}

std::string CodecName(uint32_t codec)
{
    switch (codec) {
    case 0x61766331:  // 'avc1'
        return "h264";
    case 0x68766331:  // 'hvc1'
    case 0x68657631:  // 'hev1'
        return "hevc";
    case 0x76703039:  // 'vp09'
        return "vp9";
    case 0x61763031:  // 'av01'
        return "av1";
    default:
        return "";
    }
}

namespace {

const AVOutputFormat* Muxer(const std::string& format)
{
    const char* name = format == "mkv" ? "matroska" : format.c_str();
    return av_guess_format(name, nullptr, nullptr);
}

}  // namespace

bool FormatHoldsVideo(const std::string& format, uint32_t codec)
{
    const std::string name = CodecName(codec);
    if (format == "evcseg")
        return true;
    if (format == "h264")
        return name == "h264";
    const AVCodecDescriptor* descriptor = avcodec_descriptor_get_by_name(name.c_str());
    const AVOutputFormat* muxer = Muxer(format);
    return descriptor != nullptr && muxer != nullptr &&
           avformat_query_codec(muxer, descriptor->id, FF_COMPLIANCE_NORMAL) == 1;
}

AVStream* AddCopiedStream(AVFormatContext* context, const AVCodecParameters& source)
{
    AVStream* stream = avformat_new_stream(context, nullptr);
    if (stream == nullptr || avcodec_parameters_copy(stream->codecpar, &source) < 0)
        return nullptr;
    stream->codecpar->codec_tag = 0;
    return stream;
}

bool FormatHoldsAudio(const std::string& format, const AVCodecParameters& audio)
{
    const AVOutputFormat* muxer = format == "h264" || format == "evcseg" ? nullptr : Muxer(format);
    if (muxer == nullptr || avformat_query_codec(muxer, audio.codec_id, FF_COMPLIANCE_NORMAL) != 1)
        return false;
    // Set up a file of that stream alone in memory: the muxer's own checks decide.
    AVFormatContext* probe = nullptr;
    if (avformat_alloc_output_context2(&probe, muxer, nullptr, nullptr) < 0)
        return false;
    AVStream* stream = AddCopiedStream(probe, audio);
    bool holds = stream != nullptr && avio_open_dyn_buf(&probe->pb) >= 0;
    if (holds) {
        stream->time_base = AVRational{1, audio.sample_rate > 0 ? audio.sample_rate : 48000};
        holds = avformat_init_output(probe, nullptr) >= 0;
        uint8_t* bytes = nullptr;
        avio_close_dyn_buf(probe->pb, &bytes);
        av_free(bytes);
        probe->pb = nullptr;
    }
    avformat_free_context(probe);
    return holds;
}

std::unique_ptr<OutputWriter> MakeOutputWriter(const OutputPlan& plan, const VideoFormat& format,
                                               const std::vector<AudioTrack>& audio)
{
    if (plan.format == "h264")
        return std::make_unique<AnnexBWriter>(plan);
    if (plan.format == "evcseg")
        return std::make_unique<SegmentFileWriter>(plan, format);
    return MakeContainerWriter(plan, format, audio);
}

}  // namespace tools
}  // namespace evc
