// Chunks of one input, encoded apart into segment files, joined in order
// into one output: the pictures as they came back, with the source's times,
// the compressor's stream headers from the first chunk.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tools/ChunkPlan.h"
#include "tools/OutputWriter.h"
#include "tools/Progress.h"

struct AVRational;

namespace evc {
namespace tools {

struct JoinResult {
    uint64_t frames = 0;
    uint64_t bytes = 0;
};

// Chunks written into one output as they are given, in order.
class ChunkJoiner {
public:
    // plan.codec is taken from the chunks; the audio as for JoinChunks.
    ChunkJoiner(OutputPlan plan, Progress* progress, SceneScan* audio);
    ~ChunkJoiner();
    // The next chunk's segment file and its description. Throws
    // EncodeError naming the file at fault, EncodeAbandoned at a second
    // Ctrl-C.
    void append(const std::string& path, const ChunkTrailer& chunk);
    // The rest of the audio, and the output put in place; without it, no
    // output is left. Throws EncodeError.
    JoinResult finish();

private:
    // The audio up to time (or all of it), or only what starts before it.
    void writeAudioUntil(const AVRational* until, int64_t time, bool before = false);

    OutputPlan m_plan;
    Progress* m_progress;
    SceneScan* m_audio;
    std::unique_ptr<OutputWriter> m_writer;
    VideoFormat m_format;
    size_t m_nextAudio = 0;
    int64_t m_first = INT64_MAX, m_end = 0;  // of the pictures, in the input's time scale
    JoinResult m_result;
};

// The segment files may come in any order; they must be every chunk of one
// input exactly once. plan.codec is taken from the chunks. The audio of a
// scan of the same input (when given; at least its first picture) goes
// beside the pictures, on their clock; the packets are taken from it.
// Throws EncodeError naming the file at fault.
JoinResult JoinChunks(const std::vector<std::string>& segments, OutputPlan plan, Progress* progress,
                      SceneScan* audio = nullptr);

// The chunk descriptions of segment files, in chunk order; throws
// EncodeError unless they are every chunk of one input exactly once.
std::vector<std::pair<std::string, ChunkTrailer>> OrderChunks(const std::vector<std::string>& segments);

}  // namespace tools
}  // namespace evc
