// What the chunk planner knows of each picture, from a cheap look at its
// luma (every fourth sample of every fourth row, fewer in small pictures): how much it differs from
// the picture before (a scene cut scores high, motion low), and roughly
// what it costs to encode, so that chunks can be cut to equal work rather
// than equal length.
#pragma once

#include <cstdint>
#include <vector>

#include "tools/FrameSource.h"

namespace evc {
namespace tools {

class SceneDetector {
public:
    explicit SceneDetector(const VideoFormat& format);
    // The picture's cut score, from 0 (the same as the one before) to 1
    // (black to white everywhere); the first picture scores 0.
    double next(const Picture& picture);
    // The last picture's encode cost, in units of a picture that repeats the
    // one before it: unchanged areas cost next to nothing in any encoder,
    // changed ones more the more detail they hold.
    double cost() const { return m_cost; }

private:
    double cutScore();
    double estimateCost() const;

    static constexpr uint32_t kColumns = 32;
    static constexpr uint32_t kRows = 18;
    int m_bytesPerSample = 1;
    int m_shift = 0;  // to 8-bit samples
    uint32_t m_rowBytes = 0;
    // The coarse picture: every m_step-th sample of every m_step-th row.
    uint32_t m_step = 0;
    uint32_t m_columns = 0, m_rows = 0;
    std::vector<uint8_t> m_samples, m_before;
    std::vector<double> m_previous;  // block means of the cut score
    double m_cost = 1;
};

// A picture whose score reaches this starts a new scene.
constexpr double kSceneCut = 0.08;

}  // namespace tools
}  // namespace evc
