// Chunks of one input, encoded apart into segment files, joined in order
// into one output: the pictures as they came back, with the source's times,
// the compressor's stream headers from the first chunk.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/ChunkPlan.h"
#include "tools/OutputWriter.h"
#include "tools/Progress.h"

namespace evc {
namespace tools {

struct JoinResult {
    uint64_t frames = 0;
    uint64_t bytes = 0;
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
