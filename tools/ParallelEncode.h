// One input encoded by several services side by side on this machine: the
// input cut into chunks of whole scenes, the costliest chunks (by the
// planner's estimate) handed out first to whichever encode is free, each
// chunk into a segment file in a private temporary folder, and the segment
// files joined into the output.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <ostream>
#include <vector>

#include "tools/ChunkJoin.h"
#include "tools/ChunkPlan.h"
#include "tools/Encoder.h"

namespace evc {
namespace tools {

struct ParallelPlan {
    uint32_t jobs = 2;
    ChunkLimits limits;
    // A fresh source: without a start, the whole input with the audio the
    // output keeps (read once, for the scene changes and the audio); with
    // one, a chunk's pictures from that time on (called from the encodes'
    // threads).
    std::function<std::unique_ptr<FrameSource>(std::optional<uint64_t> chunkStart)> openSource;
    // The preset, the service options and the final output.
    EncodeJob job;
    // When set, where each phase ran is written there at the end (-v).
    std::ostream* timeline = nullptr;
};

// Throws what an encode or the join throws (the first failure). After a
// first Ctrl-C no chunk starts, the running ones are finished early, and the
// output holds the pictures from the start up to the first gap
// (result.interrupted); EncodeAbandoned when there are none.
EncodeResult EncodeInParallel(const ParallelPlan& plan, Progress& progress);

}  // namespace tools
}  // namespace evc
