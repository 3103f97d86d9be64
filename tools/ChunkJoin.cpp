// Joining chunk segment files.
#include "tools/ChunkJoin.h"

#include <algorithm>
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

JoinResult JoinChunks(const std::vector<std::string>& segments, OutputPlan plan, Progress* progress)
{
    const auto chunks = OrderChunks(segments);
    VideoFormat format = chunks.front().second.format;
    format.expectedFrames = chunks.front().second.totalFrames;
    plan.codec = chunks.front().second.codec;
    plan.chunk.reset();
    std::unique_ptr<OutputWriter> writer;
    try {
        writer = MakeOutputWriter(plan, format, {});
    } catch (const std::exception& e) {
        throw EncodeError(e.what());
    }
    JoinResult result;
    for (const auto& [path, chunk] : chunks) {
        TZKIntermediateSegment segment;
        if (!segment.open(path))
            throw EncodeError(path + ": cannot read");
        uint64_t pictures = 0;
        while (std::unique_ptr<Ebml::IElement> element{segment.readNext()}) {
            if (element->getId() != TZKEncImageElt::kId)
                continue;
            TZKImageFramePtr image = static_cast<TZKEncImageElt&>(*element)->exportFrame(CATime(0, 0));
            if (!image)
                throw EncodeError(path + ": a damaged picture after " + std::to_string(pictures));
            const ZKEncImage_t record = image->GetZKEncImage();
            EncodedFrame frame;
            CopyPackets(record.descriptors, 0, frame.descriptors);
            CopyPackets(record.image.dataPackets, 0, frame.packets);
            frame.time = record.image.time;
            frame.timeScale = record.image.timeScale;
            frame.streamValue = record.streamValue;
            frame.streamFlags = record.streamFlags;
            pictures += frame.packets.size();
            try {
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
        result.frames += pictures;
    }
    try {
        writer->close();
    } catch (const std::exception& e) {
        throw EncodeError(e.what());
    }
    result.bytes = writer->bytesWritten();
    return result;
}

}  // namespace tools
}  // namespace evc
