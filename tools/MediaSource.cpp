// Demuxing, decoding and conversion of the input with the libav libraries.
#include "tools/MediaSource.h"
#include "tools/Y4mSource.h"

#include <algorithm>
#include <cmath>
#include <iostream>

extern "C" {
#include <libavutil/imgutils.h>
#include <libavutil/pixdesc.h>
}

namespace evc {
namespace tools {

namespace {

constexpr uint32_t kMaxDimension = 16384;

// libav's planar YUV formats that are a plug-in colour format as they lie;
// the full-range (J) names are the same layout.
struct Planar {
    AVPixelFormat libav;
    AVPixelFormat layout;
    uint32_t colorFormat;
};
constexpr Planar kPlanar[] = {
    {AV_PIX_FMT_YUV420P, AV_PIX_FMT_YUV420P, 6},          {AV_PIX_FMT_YUVJ420P, AV_PIX_FMT_YUV420P, 6},
    {AV_PIX_FMT_YUV420P10LE, AV_PIX_FMT_YUV420P10LE, 31}, {AV_PIX_FMT_YUV422P10LE, AV_PIX_FMT_YUV422P10LE, 32},
    {AV_PIX_FMT_YUV444P, AV_PIX_FMT_YUV444P, 13},         {AV_PIX_FMT_YUVJ444P, AV_PIX_FMT_YUV444P, 13},
    {AV_PIX_FMT_YUV444P10LE, AV_PIX_FMT_YUV444P10LE, 24},
};

const Planar* FindPlanar(int format)
{
    for (const Planar& planar : kPlanar)
        if (planar.libav == format)
            return &planar;
    return nullptr;
}

const char* PixelFormatName(int format)
{
    const char* name = av_get_pix_fmt_name(static_cast<AVPixelFormat>(format));
    return name != nullptr ? name : "unknown";
}

class MediaSource : public FrameSource {
public:
    explicit MediaSource(const InputPlan& plan) : m_plan(plan)
    {

        AVFormatContext* raw = nullptr;
        const std::string url = plan.path == "-" ? "pipe:0" : plan.path;
        int error = avformat_open_input(&raw, url.c_str(), nullptr, nullptr);
        if (error < 0)
            throw InputError(error == AVERROR_INVALIDDATA
                                 ? "not a video file, or a damaged one (" + AvError(error) + ")"
                                 : AvError(error));
        m_input.reset(raw);
        error = avformat_find_stream_info(m_input.get(), nullptr);
        if (error < 0)
            throw InputError("cannot read the stream information: " + AvError(error));
        m_video = av_find_best_stream(m_input.get(), AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
        if (m_video < 0)
            throw InputError("holds no video stream");
        AVStream* stream = m_input->streams[m_video];
        OpenDecoder(stream);
        DescribeFormat(stream);
        ChooseAudio();
        Seek();
        m_packet.reset(av_packet_alloc());
        m_frame.reset(av_frame_alloc());
        if (!m_packet || !m_frame)
            throw std::bad_alloc();
    }

    const VideoFormat& format() const override { return m_format; }
    std::string name() const override { return m_plan.path == "-" ? "standard input" : m_plan.path; }
    const std::vector<AudioTrack>& audioTracks() const override { return m_tracks; }

    bool next(Picture& picture, std::vector<AudioPacket>& audio) override
    {
        if (m_plan.audioOnly && m_havePts) {
            while (!m_drained)
                ReadPacket();
            m_done = true;
        }
        while (!m_done) {
            if (m_plan.maxFrames != 0 && m_delivered >= m_plan.maxFrames) {
                ReadAudioToPictureEnd();
                break;
            }
            const int received = avcodec_receive_frame(m_decoder.get(), m_frame.get());
            if (received == 0) {
                const bool keep = Take(picture);
                av_frame_unref(m_frame.get());
                if (keep && SeekToChunk(picture))
                    continue;
                if (keep) {
                    ++m_delivered;
                    HandOutAudio(audio);
                    return true;
                }
                continue;
            }
            if (received == AVERROR_EOF)
                break;
            if (received != AVERROR(EAGAIN))
                throw InputError("corrupt video after picture " + std::to_string(m_delivered) + ": " +
                                 AvError(received));
            ReadPacket();
        }
        m_done = true;
        HandOutAudio(audio);
        return false;
    }

private:
    void OpenDecoder(AVStream* stream)
    {
        const AVCodec* codec = avcodec_find_decoder(stream->codecpar->codec_id);
        if (codec == nullptr)
            throw InputError(std::string("no decoder for its ") + avcodec_get_name(stream->codecpar->codec_id) +
                             " video");
        m_decoder.reset(avcodec_alloc_context3(codec));
        if (!m_decoder || avcodec_parameters_to_context(m_decoder.get(), stream->codecpar) < 0)
            throw InputError("cannot set up the video decoder");
        m_decoder->thread_count = 0;
        m_decoder->pkt_timebase = stream->time_base;
        const int error = avcodec_open2(m_decoder.get(), codec, nullptr);
        if (error < 0)
            throw InputError(std::string("cannot open the ") + codec->name + " decoder: " + AvError(error));
    }

    void DescribeFormat(AVStream* stream)
    {
        const AVCodecParameters& p = *stream->codecpar;
        if (p.width <= 0 || p.height <= 0 || p.width % 2 != 0 || p.height % 2 != 0 ||
            uint32_t(p.width) > kMaxDimension || uint32_t(p.height) > kMaxDimension)
            throw InputError("picture size " + std::to_string(p.width) + "x" + std::to_string(p.height) +
                             " is not supported (even sizes from 2 to 16384)");
        const Planar* planar = FindPlanar(p.format);
        const std::vector<uint32_t> accepted =
            m_plan.acceptedFormats.empty() ? std::vector<uint32_t>{6} : m_plan.acceptedFormats;
        if (planar != nullptr && std::find(accepted.begin(), accepted.end(), planar->colorFormat) != accepted.end()) {
            m_format.pixelFormat = planar->layout;
            m_format.colorFormat = planar->colorFormat;
        } else {
            m_format.pixelFormat = AV_PIX_FMT_YUV420P;
            m_format.colorFormat = 6;
            if (p.format != AV_PIX_FMT_NONE && !sws_isSupportedInput(AVPixelFormat(p.format)))
                throw InputError(std::string("pixel format ") + PixelFormatName(p.format) +
                                 " cannot be converted to 8-bit 4:2:0");
        }
        m_format.width = uint32_t(p.width);
        m_format.height = uint32_t(p.height);
        m_timeBase = stream->time_base;
        if (m_timeBase.num <= 0 || m_timeBase.den <= 0)
            throw InputError("the video stream has no time base");
        m_format.timeScale = uint64_t(m_timeBase.den);
        AVRational rate = av_guess_frame_rate(m_input.get(), stream, nullptr);
        if (rate.num <= 0 || rate.den <= 0)
            rate = AVRational{25, 1};
        const AVRational average = stream->avg_frame_rate;
        m_format.variableRate = average.num > 0 && average.den > 0 && av_cmp_q(average, rate) != 0 &&
                                std::fabs(av_q2d(average) / av_q2d(rate) - 1) > 0.002;
        if (m_format.variableRate)
            rate = average;
        m_format.fpsNum = uint32_t(rate.num);
        m_format.fpsDen = uint32_t(rate.den);
        const AVRational sar = av_guess_sample_aspect_ratio(m_input.get(), stream, nullptr);
        if (sar.num > 0 && sar.den > 0) {
            m_format.sarNum = uint32_t(sar.num);
            m_format.sarDen = uint32_t(sar.den);
        }
        m_format.fieldOrder = p.field_order;
        m_format.colorRange = p.color_range != AVCOL_RANGE_UNSPECIFIED ? p.color_range
                              : p.format == AV_PIX_FMT_YUVJ420P || p.format == AV_PIX_FMT_YUVJ444P
                                  ? AVCOL_RANGE_JPEG
                                  : AVCOL_RANGE_UNSPECIFIED;
        m_format.colorPrimaries = p.color_primaries;
        m_format.colorTransfer = p.color_trc;
        m_format.colorMatrix = p.color_space;

        uint64_t frames = stream->nb_frames > 0 ? uint64_t(stream->nb_frames) : 0;
        if (frames == 0 && m_input->duration > 0)
            frames = uint64_t(std::llround(m_input->duration / double(AV_TIME_BASE) * av_q2d(rate)));
        const uint64_t skipped = m_plan.seekFrames + uint64_t(std::llround(m_plan.seekSeconds * av_q2d(rate)));
        frames = frames > skipped ? frames - skipped : 0;
        if (m_plan.maxFrames != 0 && (frames == 0 || frames > m_plan.maxFrames))
            frames = m_plan.maxFrames;
        m_format.expectedFrames = frames;
    }

    void ChooseAudio()
    {
        m_trackOf.assign(m_input->nb_streams, -1);
        if (!m_plan.copyAudio || !m_plan.audioAccepted)
            return;
        for (unsigned i = 0; i < m_input->nb_streams; ++i) {
            const AVStream* stream = m_input->streams[i];
            if (stream->codecpar->codec_type != AVMEDIA_TYPE_AUDIO)
                continue;
            if (!m_plan.audioAccepted(*stream->codecpar)) {
                std::cerr << "evc-encode: " << name() << ": audio stream " << i << " ("
                          << avcodec_get_name(stream->codecpar->codec_id)
                          << ") is left out: the output format cannot hold it\n";
                continue;
            }
            AudioTrack track;
            track.parameters.reset(avcodec_parameters_alloc());
            if (!track.parameters || avcodec_parameters_copy(track.parameters.get(), stream->codecpar) < 0)
                throw std::bad_alloc();
            track.timeBaseNum = stream->time_base.num;
            track.timeBaseDen = stream->time_base.den;
            m_trackOf[i] = int(m_tracks.size());
            m_tracks.push_back(std::move(track));
        }
    }

    void Seek()
    {
        if (m_plan.seekSeconds <= 0)
            return;
        m_startTime = int64_t(std::llround(m_plan.seekSeconds * m_timeBase.den / m_timeBase.num));
        const AVStream* stream = m_input->streams[m_video];
        if (stream->start_time != AV_NOPTS_VALUE)
            m_startTime += stream->start_time;
        // Lands on the key picture before the time; the pictures up to it are
        // decoded and dropped. A pipe cannot seek: then everything is.
        if (avformat_seek_file(m_input.get(), m_video, INT64_MIN, m_startTime, m_startTime, 0) >= 0)
            avcodec_flush_buffers(m_decoder.get());
    }

    // Called with the first picture, which sets the input's clock: when the
    // chunk starts later, seeks to the key picture at or before it. True
    // when the picture is to be dropped.
    bool SeekToChunk(const Picture& picture)
    {
        if (m_chunkSought || picture.time >= m_plan.chunkStart)
            return false;
        m_chunkSought = true;
        if (!m_hadPts || (m_input->iformat->flags & AVFMT_NOTIMESTAMPS) || m_input->pb == nullptr ||
            !(m_input->pb->seekable & AVIO_SEEKABLE_NORMAL))
            return false;
        m_firstPts = m_lastPts;
        m_chunkPts = int64_t(m_plan.chunkStart / uint64_t(m_timeBase.num)) + m_offset;
        return SeekBefore(m_chunkPts);
    }

    // The pictures before the chunk are dropped as times that do not grow.
    bool SeekBefore(int64_t at)
    {
        if (avformat_seek_file(m_input.get(), m_video, INT64_MIN, at, at, 0) < 0)
            return false;
        avcodec_flush_buffers(m_decoder.get());
        m_drained = false;
        m_landing = true;
        m_lastPts = m_chunkPts - 1;
        return true;
    }

    // A demuxer without an index lands where it guesses, and decoding starts
    // at the key picture after that: a seek that lands past the chunk is
    // repeated further back, twice as far each time, until it goes back
    // before the first picture. True when the picture is to be dropped.
    bool Overshot(int64_t pts)
    {
        m_landing = false;
        if (pts <= m_chunkPts)
            return false;
        const int64_t second = std::max<int64_t>(1, m_timeBase.den / m_timeBase.num);
        const bool fromFirst = m_chunkPts - m_back < m_firstPts;  // and still late
        m_back = m_back == 0 ? second : m_back * 2;
        if (fromFirst || !SeekBefore(m_chunkPts - m_back))
            throw InputError("cannot seek to the picture at " + std::to_string(m_chunkPts) +
                             " in the stream's time base");
        return true;
    }

    void ReadPacket()
    {
        if (m_drained)
            return;
        while (true) {
            const int error = av_read_frame(m_input.get(), m_packet.get());
            if (error == AVERROR_EOF || (error < 0 && avio_feof(m_input->pb))) {
                CheckComplete();
                m_drained = true;
                avcodec_send_packet(m_decoder.get(), nullptr);
                return;
            }
            if (error < 0)
                throw InputError("cannot read: " + AvError(error));
            const int index = m_packet->stream_index;
            if (index == m_video) {
                if (m_packet->pos >= 0)
                    m_videoEnd = m_packet->pos + m_packet->size;
                if ((m_plan.audioOnly && m_havePts) || m_picturesEnd != AV_NOPTS_VALUE) {
                    av_packet_unref(m_packet.get());
                    continue;
                }
                const int sent = avcodec_send_packet(m_decoder.get(), m_packet.get());
                av_packet_unref(m_packet.get());
                if (sent < 0 && sent != AVERROR(EAGAIN))
                    throw InputError("corrupt video after picture " + std::to_string(m_delivered) + ": " +
                                     AvError(sent));
                return;
            }
            if (index >= 0 && size_t(index) < m_trackOf.size() && m_trackOf[size_t(index)] >= 0) {
                AudioPacket audio;
                audio.track = size_t(m_trackOf[size_t(index)]);
                audio.packet.reset(av_packet_clone(m_packet.get()));
                if (!audio.packet)
                    throw std::bad_alloc();
                m_audio.push_back(std::move(audio));
            }
            av_packet_unref(m_packet.get());
            if (m_picturesEnd != AV_NOPTS_VALUE)
                return;  // the caller looks at each packet
        }
    }

    // When the pictures stop before the input does (--frames), so does the
    // audio: it is read on until every track has passed the last picture's
    // end, and what starts from there on is dropped. A join of chunks cuts
    // its audio the same way.
    void ReadAudioToPictureEnd()
    {
        if (m_tracks.empty() || !m_havePts || m_picturesEnd != AV_NOPTS_VALUE)
            return;
        m_picturesEnd = m_lastPts + (m_lastDuration > 0 ? m_lastDuration : m_step);
        auto starts = [&](const AudioPacket& a) {
            const AVPacket& p = *a.packet;
            const int64_t at = p.dts != AV_NOPTS_VALUE ? p.dts : p.pts;
            const AudioTrack& track = m_tracks[a.track];
            return at == AV_NOPTS_VALUE
                       ? -1
                       : av_compare_ts(at, AVRational{track.timeBaseNum, track.timeBaseDen}, m_picturesEnd, m_timeBase);
        };
        std::vector<bool> passed(m_tracks.size(), false);
        size_t seen = 0;
        while (!m_drained && std::count(passed.begin(), passed.end(), true) < long(passed.size())) {
            ReadPacket();
            for (; seen < m_audio.size(); ++seen)
                if (starts(m_audio[seen]) >= 0)
                    passed[m_audio[seen].track] = true;
        }
        m_audio.erase(
            std::remove_if(m_audio.begin(), m_audio.end(), [&](const AudioPacket& a) { return starts(a) >= 0; }),
            m_audio.end());
    }

    // A raw picture stream that stops inside a picture is cut short: its
    // reader ends quietly, but the picture is lost.
    void CheckComplete() const
    {
        const std::string name = m_input->iformat->name;
        if (name != "yuv4mpegpipe" && name != "rawvideo")
            return;
        const int64_t size = m_input->pb != nullptr ? avio_size(m_input->pb) : -1;
        if (size > 0 && m_videoEnd > 0 && size > m_videoEnd)
            throw InputError("truncated: its last picture is incomplete");
    }

    // Whether the decoded picture is kept; converts it into picture.
    bool Take(Picture& picture)
    {
        int64_t pts = m_frame->best_effort_timestamp;
        if (pts == AV_NOPTS_VALUE)
            pts = m_havePts ? m_lastPts + m_step : 0;
        if (m_landing && Overshot(pts))
            return false;
        if (m_plan.seekSeconds > 0 && pts < m_startTime)
            return false;
        if (m_skipped < m_plan.seekFrames) {
            ++m_skipped;
            return false;
        }
        // Times must grow; a picture that repeats or goes back is dropped.
        if (m_havePts && pts <= m_lastPts)
            return false;
        if (m_frame->width != int(m_format.width) || m_frame->height != int(m_format.height))
            throw InputError("the picture size changes from " + std::to_string(m_format.width) + "x" +
                             std::to_string(m_format.height) + " to " + std::to_string(m_frame->width) + "x" +
                             std::to_string(m_frame->height) + " at picture " + std::to_string(m_delivered + 1));
        if (!m_havePts) {
            m_hadPts = m_frame->best_effort_timestamp != AV_NOPTS_VALUE;
            // Pictures start at 0 after a seek, and never before 0.
            m_offset = (m_plan.seekSeconds > 0 || m_plan.seekFrames > 0 || pts < 0) ? pts : 0;
            m_step = std::max<int64_t>(
                1, av_rescale_q(1, av_inv_q(AVRational{int(m_format.fpsNum), int(m_format.fpsDen)}), m_timeBase));
        } else {
            m_step = std::max<int64_t>(1, pts - m_lastPts);
        }
        m_havePts = true;
        m_lastPts = pts;
        m_lastDuration = m_frame->pkt_duration;
        picture.time = uint64_t(pts - m_offset) * uint64_t(m_timeBase.num);
        picture.duration = m_frame->pkt_duration > 0 ? uint64_t(m_frame->pkt_duration) * uint64_t(m_timeBase.num) : 0;
        Convert(picture);
        return true;
    }

    void Convert(Picture& picture)
    {
        const int format = m_frame->format;
        const Planar* planar = FindPlanar(format);
        if (planar != nullptr && planar->layout == m_format.pixelFormat) {
            // Copied once, into the shared segment, when it is sent.
            picture.frame.reset(av_frame_alloc());
            if (!picture.frame || av_frame_ref(picture.frame.get(), m_frame.get()) < 0)
                throw std::bad_alloc();
            return;
        }
        picture.frame.reset();
        picture.pixels.resize(m_format.frameBytes());
        uint8_t* planes[4] = {};
        int strides[4] = {};
        const AVPixelFormat target = AVPixelFormat(m_format.pixelFormat);
        av_image_fill_arrays(planes, strides, picture.pixels.data(), target, int(m_format.width), int(m_format.height),
                             1);
        if (!sws_isSupportedInput(AVPixelFormat(format)))
            throw InputError(std::string("pixel format ") + PixelFormatName(format) +
                             " cannot be converted to 8-bit 4:2:0");
        if (!m_scaler || format != m_scalerFormat) {
            if (m_plan.verbose)
                std::cerr << "evc-encode: converting " << PixelFormatName(format) << " to " << PixelFormatName(target)
                          << "\n";
            m_scaler.reset(sws_getContext(int(m_format.width), int(m_format.height), AVPixelFormat(format),
                                          int(m_format.width), int(m_format.height), target,
                                          SWS_BICUBIC | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INT, nullptr, nullptr,
                                          nullptr));
            if (!m_scaler)
                throw InputError(std::string("pixel format ") + PixelFormatName(format) +
                                 " cannot be converted to 8-bit 4:2:0");
            m_scalerFormat = format;
        }
        sws_scale(m_scaler.get(), m_frame->data, m_frame->linesize, 0, int(m_format.height), planes, strides);
    }

    // The audio read so far, on the output's clock: shifted like the
    // pictures, nothing before the first picture.
    void HandOutAudio(std::vector<AudioPacket>& audio)
    {
        if (!m_havePts && !m_done)
            return;
        for (AudioPacket& a : m_audio) {
            AVPacket& p = *a.packet;
            const AudioTrack& track = m_tracks[a.track];
            const AVRational tb{track.timeBaseNum, track.timeBaseDen};
            const int64_t shift = av_rescale_q(m_offset, m_timeBase, tb);
            if (p.pts != AV_NOPTS_VALUE)
                p.pts -= shift;
            if (p.dts != AV_NOPTS_VALUE)
                p.dts -= shift;
            // After a seek what lies before the first picture goes; otherwise
            // the source's own lead-in (an audio priming packet) stays.
            const bool seeking = m_plan.seekSeconds > 0 || m_plan.seekFrames > 0;
            if (!m_havePts || (seeking && p.pts != AV_NOPTS_VALUE && p.pts < 0))
                continue;
            audio.push_back(std::move(a));
        }
        m_audio.clear();
    }

    InputPlan m_plan;
    InputPtr m_input;
    CodecContextPtr m_decoder;
    PacketPtr m_packet;
    FramePtr m_frame;
    ScalerPtr m_scaler;
    int m_scalerFormat = AV_PIX_FMT_NONE;
    int m_video = -1;
    AVRational m_timeBase{1, 25};
    VideoFormat m_format;
    std::vector<int> m_trackOf;  // input stream -> audio track, -1 when not copied
    std::vector<AudioTrack> m_tracks;
    std::vector<AudioPacket> m_audio;
    int64_t m_startTime = 0;
    uint64_t m_skipped = 0;
    uint64_t m_delivered = 0;
    bool m_havePts = false;
    int64_t m_lastPts = 0;
    int64_t m_step = 1;
    int64_t m_offset = 0;
    int64_t m_lastDuration = 0;              // the last picture's, when known
    int64_t m_picturesEnd = AV_NOPTS_VALUE;  // set when --frames ends the pictures
    int64_t m_videoEnd = 0;                  // file position after the last video packet read
    bool m_hadPts = false;                   // the first picture had its own time
    bool m_chunkSought = false;
    bool m_landing = false;  // the first picture after a seek is still to come
    int64_t m_firstPts = 0;  // the first picture's, before a seek to a chunk
    int64_t m_chunkPts = 0;  // the chunk's first picture's
    int64_t m_back = 0;      // how far before it the last seek went
    bool m_drained = false;
    bool m_done = false;
};

}  // namespace

std::unique_ptr<FrameSource> OpenMediaSource(const InputPlan& plan)
{
    if (std::unique_ptr<FrameSource> mapped = OpenMappedY4m(plan))
        return mapped;
    return OpenLibavSource(plan);
}

std::unique_ptr<FrameSource> OpenLibavSource(const InputPlan& plan)
{
    return std::make_unique<MediaSource>(plan);
}

}  // namespace tools
}  // namespace evc
