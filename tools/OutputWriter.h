// Where evc-encode puts what the service returns, chosen by -f or by the
// output's extension: a container through libavformat (Matroska, WebM,
// MP4, MOV) with the input's audio copied, the raw elementary stream
// (stream headers, then every picture in decoding order), or an
// intermediate segment file holding the returned frame elements.
#pragma once

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "evc/Client.h"
#include "tools/ChunkTrailer.h"
#include "tools/FrameSource.h"

struct AVCodecParameters;  // libavcodec's description of a stream
struct AVFormatContext;
struct AVStream;

namespace evc {
namespace tools {

struct OutputPlan {
    std::string path;    // "-": standard output
    std::string format;  // one of OutputFormats()
    bool overwrite = false;
    uint32_t codec = 0;  // the compressor's four-character code
    // A segment file of one chunk ends with this, for the join.
    std::optional<ChunkTrailer> chunk;
};

// "mkv", "webm", "mp4", "mov", "h264", "evcseg" for the -f value or, when
// it is empty, the path's extension; "" when neither names a format.
std::string OutputFormat(const std::string& path, const std::string& requested);
// Whether the format can hold video of the compressor's code, and an audio
// stream copied unchanged (asked of the muxer itself: some accept a codec's
// tag yet refuse it when the file is set up, e.g. FLAC in .mov).
bool FormatHoldsVideo(const std::string& format, uint32_t codec);
bool FormatHoldsAudio(const std::string& format, const AVCodecParameters& audio);
// A new stream of the container holding a copy of a source stream's parameters, without the
// source container's codec tag (the muxer picks its own); nullptr when it cannot be made.
AVStream* AddCopiedStream(AVFormatContext* context, const AVCodecParameters& source);
// The libavcodec name of a compressor's code, e.g. "h264".
std::string CodecName(uint32_t codec);

class OutputWriter {
public:
    // A writer destroyed without a successful close() leaves nothing (and
    // whatever was at the path before stays as it was).
    virtual ~OutputWriter() = default;
    // One CompressFrame result; outputs without packets are skipped. Throws
    // std::runtime_error (its text starts with the path) when writing fails.
    virtual void write(const EncodedFrame& frame) = 0;
    // An audio packet of track audioTracks[packet.track]; dropped by
    // formats that carry no audio.
    virtual void writeAudio(AudioPacket&& packet) { (void)packet; }
    // The input ended early (a first Ctrl-C): a chunk's trailer then
    // counts the pictures written, not the chunk's planned ones.
    virtual void cutShort() {}
    // Completes the file and puts it in place. Throws std::runtime_error.
    virtual void close() = 0;
    // Compressed video bytes written so far.
    virtual uint64_t bytesWritten() const = 0;
};

// Throws std::runtime_error when the output cannot be created (or exists
// and may not be replaced).
std::unique_ptr<OutputWriter> MakeOutputWriter(const OutputPlan& plan, const VideoFormat& format,
                                               const std::vector<AudioTrack>& audio);
std::unique_ptr<OutputWriter> MakeContainerWriter(const OutputPlan& plan, const VideoFormat& format,
                                                  const std::vector<AudioTrack>& audio);

}  // namespace tools
}  // namespace evc
