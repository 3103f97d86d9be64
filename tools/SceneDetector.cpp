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

SceneDetector::SceneDetector(const VideoFormat& format) : m_format(format)
{
    const AVPixFmtDescriptor* descriptor = av_pix_fmt_desc_get(AVPixelFormat(format.pixelFormat));
    const int depth = descriptor != nullptr ? descriptor->comp[0].depth : 8;
    m_bytesPerSample = depth > 8 ? 2 : 1;
    m_shift = std::max(depth - 8, 0);
    m_top = double((1 << depth) - 1);
}

uint32_t SceneDetector::sample(const uint8_t* luma, size_t stride, uint32_t x, uint32_t y) const
{
    // Deep samples are little-endian.
    const uint8_t* at = luma + y * stride + x * m_bytesPerSample;
    return m_bytesPerSample == 2 ? uint32_t(at[0] | at[1] << 8) : at[0];
}

double SceneDetector::next(const Picture& picture)
{
    const uint8_t* luma = picture.frame ? picture.frame->data[0] : picture.pixels.data();
    const size_t stride = picture.frame ? size_t(picture.frame->linesize[0]) : m_format.width * m_bytesPerSample;
    if (luma == nullptr || m_format.width < kColumns || m_format.height < kRows) {
        m_cost = 1;
        return 0;
    }
    m_cost = estimateCost(luma, stride);
    return cutScore(luma, stride);
}

double SceneDetector::cutScore(const uint8_t* luma, size_t stride)
{
    // Block means on a coarse grid: enough to see a cut, cheap at any size.
    const uint32_t width = m_format.width;
    const uint32_t height = m_format.height;
    std::vector<double> means(kColumns * kRows, 0.0);
    for (int by = 0; by < kRows; ++by)
        for (int bx = 0; bx < kColumns; ++bx) {
            const uint32_t x0 = width * bx / kColumns, x1 = width * (bx + 1) / kColumns;
            const uint32_t y0 = height * by / kRows, y1 = height * (by + 1) / kRows;
            double sum = 0;
            uint32_t n = 0;
            for (uint32_t y = y0; y < y1; y += kStep)
                for (uint32_t x = x0; x < x1; x += kStep, ++n)
                    sum += sample(luma, stride, x, y);
            means[by * kColumns + bx] = n != 0 ? sum / n / m_top : 0;
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

double SceneDetector::estimateCost(const uint8_t* luma, size_t stride)
{
    const uint32_t columns = m_format.width / kStep, rows = m_format.height / kStep;
    m_samples.resize(size_t(columns) * rows);
    for (uint32_t y = 0; y < rows; ++y)
        for (uint32_t x = 0; x < columns; ++x)
            m_samples[y * columns + x] =
                uint8_t(std::min<uint32_t>(sample(luma, stride, x * kStep, y * kStep) >> m_shift, 255));
    const bool first = m_before.size() != m_samples.size();
    double work = 0;
    uint32_t blocks = 0;
    for (uint32_t by = 0; by + kBlock <= rows; by += kBlock)
        for (uint32_t bx = 0; bx + kBlock <= columns; bx += kBlock, ++blocks) {
            int sum = 0, moved = 0;
            for (uint32_t y = by; y < by + kBlock; ++y)
                for (uint32_t x = bx; x < bx + kBlock; ++x) {
                    const size_t i = y * columns + x;
                    sum += m_samples[i];
                    if (!first)
                        moved += std::abs(int(m_samples[i]) - int(m_before[i]));
                }
            if (!first && moved <= kUnchanged * kBlock * kBlock)
                continue;
            const double mean = double(sum) / (kBlock * kBlock);
            double deviation = 0;
            for (uint32_t y = by; y < by + kBlock; ++y)
                for (uint32_t x = bx; x < bx + kBlock; ++x)
                    deviation += std::fabs(m_samples[y * columns + x] - mean);
            work += 1 + deviation / (kBlock * kBlock) / kDetailScale;
        }
    m_before.swap(m_samples);
    return 1 + (blocks != 0 ? kChangedCost * work / blocks : 0);
}

}  // namespace tools
}  // namespace evc
