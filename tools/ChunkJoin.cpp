// Joining chunk segment files.
#include "tools/ChunkJoin.h"

#include <algorithm>
#include <climits>
#include <memory>

#include "client/PacketCopy.h"
#include "tools/Encoder.h"
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

JoinResult JoinChunks(const std::vector<std::string>& segments, OutputPlan plan, Progress* progress, SceneScan* audio)
{
    const auto chunks = OrderChunks(segments);
    VideoFormat format = chunks.front().second.format;
    format.expectedFrames = chunks.front().second.totalFrames;
    plan.codec = chunks.front().second.codec;
    plan.chunk.reset();
    std::unique_ptr<OutputWriter> writer;
    try {
        const std::vector<AudioTrack> none;
        writer = MakeOutputWriter(plan, format, audio ? audio->tracks : none);
    } catch (const std::exception& e) {
        throw EncodeError(e.what());
    }
    // Audio goes out as the pictures' times pass it, the way the muxer
    // interleaves best.
    size_t nextAudio = 0;
    auto writeAudioUntil = [&](const AVRational* until, int64_t time) {
        for (; audio && nextAudio < audio->audio.size(); ++nextAudio) {
            AudioPacket& packet = audio->audio[nextAudio];
            const AudioTrack& track = audio->tracks[packet.track];
            const int64_t at = packet.packet->dts != AV_NOPTS_VALUE ? packet.packet->dts : packet.packet->pts;
            if (until && at != AV_NOPTS_VALUE &&
                av_compare_ts(at, AVRational{track.timeBaseNum, track.timeBaseDen}, time, *until) > 0)
                return;
            writer->writeAudio(std::move(packet));
        }
    };
    JoinResult result;
    // Where the pictures start and end, in the input's time scale.
    int64_t first = INT64_MAX, end = 0;
    const AVRational inputScale{1, int(std::min<uint64_t>(format.timeScale, INT_MAX))};
    for (const auto& [path, chunk] : chunks) {
        TZKIntermediateSegment segment;
        if (!segment.open(path))
            throw EncodeError(path + ": cannot read");
        uint64_t pictures = 0;
        while (std::unique_ptr<Ebml::IElement> element{segment.readNext()}) {
            if (element->getId() != TZKEncImageElt::kId)
                continue;
            TZKImageFramePtr image = static_cast<TZKEncImageElt&>(*element)->exportFrame(
                CATime(0, 0), TZKIntermediateSegment::kMaxFrameBytes);
            if (!image)
                throw EncodeError(path + ": a damaged picture after " + std::to_string(pictures));
            EncodedFrame frame = CopyEncodedFrame(image->GetZKEncImage());
            pictures += frame.packets.size();
            for (const Packet& packet : frame.packets) {
                const AVRational base{
                    1, int(std::min<uint64_t>(packet.timeBase ? packet.timeBase : uint64_t(inputScale.den), INT_MAX))};
                first = std::min(first, av_rescale_q(int64_t(packet.time), base, inputScale));
                end = std::max(end, av_rescale_q(int64_t(packet.time + packet.duration), base, inputScale));
            }
            const uint64_t scale = frame.timeScale != 0 ? frame.timeScale : format.timeScale;
            const AVRational timeBase{1, int(std::min<uint64_t>(scale, INT_MAX))};
            try {
                writeAudioUntil(&timeBase, int64_t(frame.time));
                writer->write(frame);
            } catch (const std::exception& e) {
                throw EncodeError(e.what());
            }
            if (progress)
                progress->update(result.frames + pictures, result.frames + pictures, writer->bytesWritten());
        }
        if (pictures != chunk.frames)
            throw EncodeError(path + ": holds " + std::to_string(pictures) + " of the chunk's " +
                              std::to_string(chunk.frames) + " pictures");
        if (audio && !audio->times.empty() && chunk.index == 0 && int64_t(audio->times.front()) != first)
            throw EncodeError("the audio's input starts at " + std::to_string(audio->times.front()) + "/" +
                              std::to_string(inputScale.den) + ", the chunks at " + std::to_string(first) +
                              ": not the input of the chunks (or another --ss or --seek)");
        result.frames += pictures;
    }
    try {
        writeAudioUntil(audio && audio->toPictureEnd ? &inputScale : nullptr, end);
        writer->close();
    } catch (const std::exception& e) {
        throw EncodeError(e.what());
    }
    result.bytes = writer->bytesWritten();
    return result;
}

}  // namespace tools
}  // namespace evc
