// One input encoded by several services side by side on this machine: the
// input cut into chunks at scene changes, the largest chunks handed out
// first to whichever encode is free, each chunk into a segment file in a
// private temporary folder, and the segment files joined into the output.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "tools/ChunkJoin.h"
#include "tools/ChunkPlan.h"
#include "tools/Encoder.h"

namespace evc {
namespace tools {

struct ParallelPlan {
    uint32_t jobs = 2;
    ChunkLimits limits;
    // A fresh source over the whole input (called once per chunk, from the
    // encodes' threads, and once for the scene scores).
    std::function<std::unique_ptr<FrameSource>()> openSource;
    // The preset, the service options and the final output.
    EncodeJob job;
};

// How many chunks the given encodes share: two each, so that the last ones
// to finish are short.
uint32_t ChunkCountForJobs(uint32_t jobs, uint64_t frames);

// Throws what an encode or the join throws (the first failure).
EncodeResult EncodeInParallel(const ParallelPlan& plan, Progress& progress);

}  // namespace tools
}  // namespace evc
