// Where a video is cut into chunks that encode independently: a cheap scene
// detector over downscaled luma scores every picture, and the boundaries are
// chosen from those scores alone, so every worker that reads the same input
// with the same options finds the same chunks.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tools/FrameSource.h"
#include "tools/SceneDetector.h"

namespace evc {
namespace tools {

struct ChunkLimits {
    uint64_t minLength = 0;  // pictures; 0: no limit
    uint64_t maxLength = 0;
};

// The first picture of each of count chunks (the first is 0): each boundary
// is the strongest scene cut near its even share of the pictures, else the
// even share itself, kept within the limits where they can be met. Needs
// count <= scores.size().
std::vector<uint64_t> ChunkStarts(const std::vector<double>& scores, uint32_t count, const ChunkLimits& limits);

// The first picture of each chunk when the count is free, for the given
// number of encodes side by side: every chunk starts at a scene cut and
// holds whole scenes, as many as fit in a quarter of one encode's share of
// the work, at least the minimum length where the input allows. A scene
// with more stays whole (a key frame inside it costs quality), unless it
// holds more than a share and lasts at least longScene pictures (where the
// encoder puts key frames of its own): then it is cut in parts of equal
// work, a quarter share each where they last longScene or more, else as few
// as fit a share each. A stretch longer than the maximum is split into
// equal parts.
constexpr uint32_t kPiecesPerJob = 4;
std::vector<uint64_t> SceneChunkStarts(const std::vector<double>& scores, const std::vector<double>& costs,
                                       uint32_t jobs, const ChunkLimits& limits, uint64_t longScene);

// One reading of a whole input: every picture's scene score and time, and
// the audio the source copies (kept for the join, which writes it beside
// the chunks' pictures).
struct SceneScan {
    std::vector<double> scores;
    std::vector<double> costs;  // SceneDetector::cost
    std::vector<uint64_t> times;
    std::vector<AudioTrack> tracks;
    std::vector<AudioPacket> audio;
    // The audio from the pictures' end on is left out (it was read to the
    // end of an input whose pictures were cut short by --frames).
    bool toPictureEnd = false;
};
// stop, when given, is asked before each picture; once it says so the scan
// ends there, short of the input's end.
SceneScan ScanScenes(FrameSource& source, const std::function<bool()>& stop = nullptr);

// The chunks of one input: each one's first picture and that picture's
// time, and the input's picture count. Throws InputError when the input
// has fewer pictures than chunks.
struct ChunkBounds {
    std::vector<uint64_t> starts;
    std::vector<uint64_t> times;
    uint64_t total = 0;
};
ChunkBounds PlanChunks(const SceneScan& scan, uint32_t count, const ChunkLimits& limits);
// The same with SceneChunkStarts.
ChunkBounds PlanSceneChunks(const SceneScan& scan, uint32_t jobs, const ChunkLimits& limits, uint64_t longScene);

// A plan file keeps the bounds for the other chunks' encodes, with a line
// naming what they were computed from (the input and the options), so that
// the scene changes are read once per input. Reading gives nothing when
// there is no file, else the bounds of count chunks; both throw std::runtime_error naming the file when it
// cannot be used (damaged, or made from another basis).
void WriteChunkPlan(const std::string& path, const std::string& basis, const ChunkBounds& bounds);
std::optional<ChunkBounds> ReadChunkPlan(const std::string& path, const std::string& basis, uint32_t count);

// frames pictures of a source from the one at time first (on the whole
// input's clock, as ScanScenes saw it), with the source's own times. A
// source that seeks has started there; pictures before it are dropped
// here. Audio is dropped. Throws EncodeError when no picture has that time.
std::unique_ptr<FrameSource> MakeChunkSource(std::unique_ptr<FrameSource> source, uint64_t first, uint64_t frames);

}  // namespace tools
}  // namespace evc
