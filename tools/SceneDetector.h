// What the chunk planner knows of each picture, from a cheap look at its
// luma (every fourth sample of every fourth row): how much it differs from
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
    double cutScore(const uint8_t* luma, size_t stride);
    double estimateCost(const uint8_t* luma, size_t stride);
    uint32_t sample(const uint8_t* luma, size_t stride, uint32_t x, uint32_t y) const;

    static constexpr int kColumns = 32;
    static constexpr int kRows = 18;
    VideoFormat m_format;
    int m_bytesPerSample = 1;
    int m_shift = 0;  // to 8-bit samples
    double m_top = 255;
    std::vector<double> m_previous;            // block means of the cut score
    std::vector<uint8_t> m_samples, m_before;  // the coarse luma, for the cost
    double m_cost = 1;
};

// A picture whose score reaches this starts a new scene.
constexpr double kSceneCut = 0.08;

}  // namespace tools
}  // namespace evc
