// Joining chunk segment files.
#include "tools/ChunkJoin.h"

#include <algorithm>
#include <climits>
#include <memory>

#include "client/PacketCopy.h"
#include "tools/Encoder.h"
#include "tools/Interrupts.h"
#include "transport/TZKEncImage.h"
#include "transport/TZKIntermediateSegment.h"

namespace evc {
namespace tools {

std::vector<std::pair<std::string, ChunkTrailer>> OrderChunks(const std::vector<std::string>& segments)
{
    std::vector<std::pair<std::string, ChunkTrailer>> chunks;
    for (const std::string& path : segments) {
        std::optional<ChunkTrailer> trailer = ReadChunkTrailer(path);
        if (!trailer)
            throw EncodeError(path + ": not the segment file of a chunk (evc-encode --chunk K/N writes them)");
        chunks.emplace_back(path, *trailer);
    }
    std::stable_sort(chunks.begin(), chunks.end(),
                     [](const auto& a, const auto& b) { return a.second.index < b.second.index; });
    const ChunkTrailer& first = chunks.front().second;
    uint64_t next = 0;
    for (size_t i = 0; i < chunks.size(); ++i) {
        const std::string& path = chunks[i].first;
        const ChunkTrailer& c = chunks[i].second;
        const std::string which = "chunk " + std::to_string(i + 1) + " of " + std::to_string(first.count);
        if (c.count != first.count || c.codec != first.codec || c.totalFrames != first.totalFrames ||
            c.format.width != first.format.width || c.format.height != first.format.height ||
            c.format.timeScale != first.format.timeScale || c.format.colorFormat != first.format.colorFormat)
            throw EncodeError(path + ": a chunk of another input or other settings than " + chunks.front().first);
        if (c.index > i)
            throw EncodeError(which + " is missing");
        if (c.index < i)
            throw EncodeError(path + ": chunk " + std::to_string(c.index + 1) + " is given twice");
        if (c.first != next)
            throw EncodeError(path + ": does not continue the chunk before it (chunked with other limits?)");
        next = c.first + c.frames;
    }
    if (chunks.size() != first.count)
        throw EncodeError("chunk " + std::to_string(chunks.size() + 1) + " of " + std::to_string(first.count) +
                          " is missing");
    if (next != first.totalFrames)
        throw EncodeError(chunks.back().first + ": the chunks hold " + std::to_string(next) + " of " +
                          std::to_string(first.totalFrames) + " pictures");
    return chunks;
}

ChunkJoiner::ChunkJoiner(OutputPlan plan, Progress* progress, SceneScan* audio)
    : m_plan(std::move(plan)), m_progress(progress), m_audio(audio)
{
    m_plan.chunk.reset();
}

ChunkJoiner::~ChunkJoiner() = default;

void ChunkJoiner::writeAudioUntil(const AVRational* until, int64_t time, bool before)
{
    for (; m_audio && m_nextAudio < m_audio->audio.size(); ++m_nextAudio) {
        AudioPacket& packet = m_audio->audio[m_nextAudio];
        const AudioTrack& track = m_audio->tracks[packet.track];
        const int64_t at = packet.packet->dts != AV_NOPTS_VALUE ? packet.packet->dts : packet.packet->pts;
        if (until && at != AV_NOPTS_VALUE &&
            av_compare_ts(at, AVRational{track.timeBaseNum, track.timeBaseDen}, time, *until) >= (before ? 0 : 1))
            return;
        m_writer->writeAudio(std::move(packet));
    }
}

void ChunkJoiner::append(const std::string& path, const ChunkTrailer& chunk)
{
    if (!m_writer) {
        m_format = chunk.format;
        m_format.expectedFrames = chunk.totalFrames;
        m_plan.codec = chunk.codec;
        try {
            const std::vector<AudioTrack> none;
            m_writer = MakeOutputWriter(m_plan, m_format, m_audio ? m_audio->tracks : none);
        } catch (const std::exception& e) {
            throw EncodeError(e.what());
        }
    }
    // Where the pictures start and end, in the input's time scale.
    const AVRational inputScale{1, int(std::min<uint64_t>(m_format.timeScale, INT_MAX))};
    TZKIntermediateSegment segment;
    if (!segment.open(path))
        throw EncodeError(path + ": cannot read");
    uint64_t pictures = 0;
    while (std::unique_ptr<Ebml::IElement> element{segment.readNext()}) {
        if (InterruptCount() >= 2)
            throw EncodeAbandoned();
        if (element->getId() != TZKEncImageElt::kId)
            continue;
        TZKImageFramePtr image =
            static_cast<TZKEncImageElt&>(*element)->exportFrame(CATime(0, 0), TZKIntermediateSegment::kMaxFrameBytes);
        if (!image)
            throw EncodeError(path + ": a damaged picture after " + std::to_string(pictures));
        EncodedFrame frame = CopyEncodedFrame(image->GetZKEncImage());
        pictures += frame.packets.size();
        for (const Packet& packet : frame.packets) {
            const AVRational base{
                1, int(std::min<uint64_t>(packet.timeBase ? packet.timeBase : uint64_t(inputScale.den), INT_MAX))};
            m_first = std::min(m_first, av_rescale_q(int64_t(packet.time), base, inputScale));
            m_end = std::max(m_end, av_rescale_q(int64_t(packet.time + packet.duration), base, inputScale));
        }
        const uint64_t scale = frame.timeScale != 0 ? frame.timeScale : m_format.timeScale;
        const AVRational timeBase{1, int(std::min<uint64_t>(scale, INT_MAX))};
        try {
            // Audio goes out as the pictures' times pass it, the way the
            // muxer interleaves best.
            writeAudioUntil(&timeBase, int64_t(frame.time));
            m_writer->write(frame);
        } catch (const std::exception& e) {
            throw EncodeError(e.what());
        }
        if (m_progress)
            m_progress->update(m_result.frames + pictures, m_result.frames + pictures, m_writer->bytesWritten());
    }
    if (pictures != chunk.frames)
        throw EncodeError(path + ": holds " + std::to_string(pictures) + " of the chunk's " +
                          std::to_string(chunk.frames) + " pictures");
    if (m_audio && !m_audio->times.empty() && chunk.index == 0 && int64_t(m_audio->times.front()) != m_first)
        throw EncodeError("the audio's input starts at " + std::to_string(m_audio->times.front()) + "/" +
                          std::to_string(inputScale.den) + ", the chunks at " + std::to_string(m_first) +
                          ": not the input of the chunks (or another --ss or --seek)");
    m_result.frames += pictures;
}

JoinResult ChunkJoiner::finish()
{
    if (!m_writer)
        throw EncodeError("no chunks to join");
    const AVRational inputScale{1, int(std::min<uint64_t>(m_format.timeScale, INT_MAX))};
    try {
        // What starts before the pictures' end, like an encode cut short.
        writeAudioUntil(m_audio && m_audio->toPictureEnd ? &inputScale : nullptr, m_end, true);
        m_writer->close();
    } catch (const std::exception& e) {
        throw EncodeError(e.what());
    }
    m_result.bytes = m_writer->bytesWritten();
    return m_result;
}

JoinResult JoinChunks(const std::vector<std::string>& segments, OutputPlan plan, Progress* progress, SceneScan* audio)
{
    ChunkJoiner joiner(std::move(plan), progress, audio);
    for (const auto& [path, chunk] : OrderChunks(segments))
        joiner.append(path, chunk);
    return joiner.finish();
}

}  // namespace tools
}  // namespace evc
