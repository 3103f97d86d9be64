// Where a video is cut into chunks that encode independently: a cheap scene
// detector over downscaled luma scores every picture, and the boundaries are
// chosen from those scores alone, so every worker that reads the same input
// with the same options finds the same chunks.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "tools/FrameSource.h"

namespace evc {
namespace tools {

// How much each picture differs from the one before it, from 0 (the same)
// to 1 (black to white everywhere); the first picture scores 0.
class SceneDetector {
public:
    explicit SceneDetector(const VideoFormat& format);
    double next(const Picture& picture);

private:
    static constexpr int kColumns = 32;
    static constexpr int kRows = 18;
    VideoFormat m_format;
    int m_bytesPerSample = 1;
    double m_top = 255;
    std::vector<double> m_previous;
};

// A picture whose score reaches this starts a new scene.
constexpr double kSceneCut = 0.08;

struct ChunkLimits {
    uint64_t minLength = 0;  // pictures; 0: no limit
    uint64_t maxLength = 0;
};

// The first picture of each of count chunks (the first is 0): each boundary
// is the strongest scene cut near its even share of the pictures, else the
// even share itself, kept within the limits where they can be met. Needs
// count <= scores.size().
std::vector<uint64_t> ChunkStarts(const std::vector<double>& scores, uint32_t count, const ChunkLimits& limits);

// Reads the whole source and scores every picture.
std::vector<double> ScoreScenes(FrameSource& source);

// The pictures [first, end) of a source, with the source's own times; the
// pictures before them are read and dropped, audio is dropped.
std::unique_ptr<FrameSource> MakeChunkSource(std::unique_ptr<FrameSource> source, uint64_t first, uint64_t end);

}  // namespace tools
}  // namespace evc
