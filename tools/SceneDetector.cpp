// Cut scores and cost estimates from coarse luma.
#include "tools/SceneDetector.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

extern "C" {
#include <libavutil/pixdesc.h>
}

namespace evc {
namespace tools {

namespace {

// Samples are taken every kStep pixels and rows; a cost block is kBlock by
// kBlock samples (a 16 by 16 macroblock).
constexpr uint32_t kStep = 4;
constexpr uint32_t kBlock = 4;
// A block whose samples moved by at most this on average is taken as
// unchanged (an encoder skips it, or nearly).
constexpr double kUnchanged = 2;
// Measured with single-threaded x264 at slow on 1080p scenes that stand
// still, move, zoom and teem: a changed block costs about 32 times what an
// unchanged one does, and as much again per 28 of mean deviation from its
// mean (detail that must be coded).
constexpr double kChangedCost = 32;
constexpr double kDetailScale = 28;

}  // namespace

SceneDetector::SceneDetector(const VideoFormat& format)
{
    const AVPixFmtDescriptor* descriptor = av_pix_fmt_desc_get(AVPixelFormat(format.pixelFormat));
    const int depth = descriptor != nullptr ? descriptor->comp[0].depth : 8;
    m_bytesPerSample = depth > 8 ? 2 : 1;
    m_shift = std::max(depth - 8, 0);
    // Pictures too small for one sample a block of the cut grid score 0.
    m_step = std::min<uint32_t>({kStep, format.width / kColumns, format.height / kRows});
    if (m_step != 0) {
        m_columns = format.width / m_step;
        m_rows = format.height / m_step;
    }
    m_rowBytes = format.width * uint32_t(m_bytesPerSample);
}

double SceneDetector::next(const Picture& picture)
{
    const uint8_t* luma = picture.frame ? picture.frame->data[0] : picture.pixels.data();
    const size_t stride = picture.frame ? size_t(picture.frame->linesize[0]) : m_rowBytes;
    m_cost = 1;
    if (luma == nullptr || m_step == 0)
        return 0;
    // The coarse picture, in 8 bits (deep samples are little-endian).
    m_samples.resize(size_t(m_columns) * m_rows);
    for (uint32_t y = 0; y < m_rows; ++y) {
        const uint8_t* row = luma + size_t(y) * m_step * stride;
        uint8_t* out = &m_samples[size_t(y) * m_columns];
        if (m_bytesPerSample == 1)
            for (uint32_t x = 0; x < m_columns; ++x)
                out[x] = row[x * m_step];
        else
            for (uint32_t x = 0; x < m_columns; ++x) {
                const uint8_t* at = row + 2 * x * m_step;
                out[x] = uint8_t(std::min((at[0] | at[1] << 8) >> m_shift, 255));
            }
    }
    const double score = cutScore();
    m_cost = estimateCost();
    m_before.swap(m_samples);
    return score;
}

double SceneDetector::cutScore()
{
    // Block means on a coarse grid: enough to see a cut, blind to motion.
    std::vector<double> means(kColumns * kRows, 0.0);
    for (uint32_t by = 0; by < kRows; ++by)
        for (uint32_t bx = 0; bx < kColumns; ++bx) {
            const uint32_t x0 = m_columns * bx / kColumns, x1 = m_columns * (bx + 1) / kColumns;
            const uint32_t y0 = m_rows * by / kRows, y1 = m_rows * (by + 1) / kRows;
            uint32_t sum = 0;
            for (uint32_t y = y0; y < y1; ++y)
                for (uint32_t x = x0; x < x1; ++x)
                    sum += m_samples[size_t(y) * m_columns + x];
            means[by * kColumns + bx] = double(sum) / ((x1 - x0) * (y1 - y0)) / 255;
        }
    double score = 0;
    if (!m_previous.empty()) {
        for (size_t i = 0; i < means.size(); ++i)
            score += std::fabs(means[i] - m_previous[i]);
        score /= double(means.size());
    }
    m_previous = std::move(means);
    return std::min(score, 1.0);
}

double SceneDetector::estimateCost() const
{
    // Every block counts as changed in a first picture.
    const bool first = m_before.size() != m_samples.size();
    constexpr int kArea = int(kBlock * kBlock);
    double work = 0;
    uint32_t blocks = 0;
    for (uint32_t by = 0; by + kBlock <= m_rows; by += kBlock)
        for (uint32_t bx = 0; bx + kBlock <= m_columns; bx += kBlock, ++blocks) {
            int sum = 0, moved = 0;
            for (uint32_t y = by; y < by + kBlock; ++y)
                for (uint32_t x = bx; x < bx + kBlock; ++x) {
                    const size_t i = size_t(y) * m_columns + x;
                    sum += m_samples[i];
                    if (!first)
                        moved += std::abs(int(m_samples[i]) - int(m_before[i]));
                }
            if (!first && moved <= kUnchanged * kArea)
                continue;
            // The mean deviation, in sixteenths of a sample.
            int deviation = 0;
            for (uint32_t y = by; y < by + kBlock; ++y)
                for (uint32_t x = bx; x < bx + kBlock; ++x)
                    deviation += std::abs(kArea * m_samples[size_t(y) * m_columns + x] - sum);
            work += 1 + double(deviation) / (kArea * kArea) / kDetailScale;
        }
    return 1 + (blocks != 0 ? kChangedCost * work / blocks : 0);
}

}  // namespace tools
}  // namespace evc
