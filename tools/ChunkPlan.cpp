// Scene scores, chunk boundaries and the chunk's view of a source.
#include "tools/ChunkPlan.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <string>

#include "tools/MediaSource.h"

extern "C" {
#include <libavutil/pixdesc.h>
}

namespace evc {
namespace tools {

SceneDetector::SceneDetector(const VideoFormat& format) : m_format(format)
{
    const AVPixFmtDescriptor* descriptor = av_pix_fmt_desc_get(AVPixelFormat(format.pixelFormat));
    const int depth = descriptor != nullptr ? descriptor->comp[0].depth : 8;
    m_bytesPerSample = depth > 8 ? 2 : 1;
    m_top = double((1 << depth) - 1);
}

double SceneDetector::next(const Picture& picture)
{
    const uint8_t* luma = picture.frame ? picture.frame->data[0] : picture.pixels.data();
    const size_t stride = picture.frame ? size_t(picture.frame->linesize[0]) : m_format.width * m_bytesPerSample;
    const uint32_t width = m_format.width;
    const uint32_t height = m_format.height;
    if (luma == nullptr || width < kColumns || height < kRows)
        return 0;
    // Block means on a coarse grid, every fourth sample of every fourth row:
    // enough to see a cut, cheap at any size. Deep samples are
    // little-endian.
    std::vector<double> means(kColumns * kRows, 0.0);
    for (int by = 0; by < kRows; ++by)
        for (int bx = 0; bx < kColumns; ++bx) {
            const uint32_t x0 = width * bx / kColumns, x1 = width * (bx + 1) / kColumns;
            const uint32_t y0 = height * by / kRows, y1 = height * (by + 1) / kRows;
            double sum = 0;
            uint32_t n = 0;
            for (uint32_t y = y0; y < y1; y += 4)
                for (uint32_t x = x0; x < x1; x += 4, ++n) {
                    const uint8_t* sample = luma + y * stride + x * m_bytesPerSample;
                    sum += m_bytesPerSample == 2 ? sample[0] | sample[1] << 8 : sample[0];
                }
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

std::vector<uint64_t> ChunkStarts(const std::vector<double>& scores, uint32_t count, const ChunkLimits& limits)
{
    const uint64_t total = scores.size();
    std::vector<uint64_t> starts{0};
    if (count <= 1 || total < count)
        return starts;
    const uint64_t minLength = std::max<uint64_t>(limits.minLength, 1);
    const uint64_t maxLength = limits.maxLength != 0 ? limits.maxLength : total;
    const uint64_t window = total / (2 * uint64_t(count));
    auto clamp = [](uint64_t value, uint64_t low, uint64_t high) { return std::min(std::max(value, low), high); };
    uint64_t previous = 0;
    for (uint32_t j = 1; j < count; ++j) {
        const uint64_t left = count - j;  // chunks after this boundary
        const uint64_t ideal = (total * j + count / 2) / count;
        // Where the limits allow it (one picture per later chunk at least);
        // limits that cannot all be met are dropped.
        uint64_t low =
            std::max({previous + minLength, total > left * maxLength ? total - left * maxLength : 0, previous + 1});
        uint64_t high =
            std::min({previous + maxLength, total > left * minLength ? total - left * minLength : 0, total - left});
        if (low > high) {
            low = previous + 1;
            high = total - left;
        }
        // Near the even share; a cut outside the window is not worth a
        // lopsided chunk.
        const uint64_t nearLow = std::max(low, ideal > window ? ideal - window : 0);
        const uint64_t nearHigh = std::min(high, ideal + window);
        if (nearLow <= nearHigh) {
            low = nearLow;
            high = nearHigh;
        } else {
            low = high = clamp(ideal, low, high);
        }
        uint64_t chosen = clamp(ideal, low, high);
        double best = 0;
        for (uint64_t i = low; i <= high; ++i) {
            const uint64_t distance = i > ideal ? i - ideal : ideal - i;
            const uint64_t bestDistance = chosen > ideal ? chosen - ideal : ideal - chosen;
            if (scores[i] >= kSceneCut && (scores[i] > best || (scores[i] == best && distance < bestDistance))) {
                best = scores[i];
                chosen = i;
            }
        }
        starts.push_back(chosen);
        previous = chosen;
    }
    return starts;
}

SceneScan ScanScenes(FrameSource& source)
{
    SceneDetector detector(source.format());
    SceneScan scan;
    Picture picture;
    std::vector<AudioPacket> audio;
    while (source.next(picture, audio)) {
        scan.scores.push_back(detector.next(picture));
        scan.times.push_back(picture.time);
    }
    scan.audio = std::move(audio);
    for (const AudioTrack& track : source.audioTracks()) {
        AudioTrack copy;
        copy.parameters.reset(avcodec_parameters_alloc());
        if (!copy.parameters || avcodec_parameters_copy(copy.parameters.get(), track.parameters.get()) < 0)
            throw std::bad_alloc();
        copy.timeBaseNum = track.timeBaseNum;
        copy.timeBaseDen = track.timeBaseDen;
        scan.tracks.push_back(std::move(copy));
    }
    return scan;
}

ChunkBounds PlanChunks(const SceneScan& scan, uint32_t count, const ChunkLimits& limits)
{
    ChunkBounds bounds;
    bounds.total = scan.scores.size();
    if (bounds.total < count)
        throw InputError("holds " + std::to_string(bounds.total) + " pictures, fewer than " + std::to_string(count) +
                         " chunks");
    bounds.starts = ChunkStarts(scan.scores, count, limits);
    for (uint64_t start : bounds.starts)
        bounds.times.push_back(scan.times[start]);
    return bounds;
}

namespace {

constexpr const char* kPlanMagic = "evc chunk plan 1";

}  // namespace

void WriteChunkPlan(const std::string& path, const std::string& basis, const ChunkBounds& bounds)
{
    // Written aside and renamed, so that a reader never sees half a plan
    // (and encodes that write the same plan at once do no harm).
    const std::string aside = path + ".part" + std::to_string(getpid());
    {
        std::ofstream out(aside);
        out << kPlanMagic << "\n" << basis << "\n" << bounds.total << "\n";
        for (size_t i = 0; i < bounds.starts.size(); ++i)
            out << bounds.starts[i] << " " << bounds.times[i] << "\n";
        out.close();
        if (!out || std::rename(aside.c_str(), path.c_str()) != 0) {
            std::remove(aside.c_str());
            throw std::runtime_error(path + ": cannot write the chunk plan");
        }
    }
}

std::optional<ChunkBounds> ReadChunkPlan(const std::string& path, const std::string& basis, uint32_t count)
{
    std::ifstream in(path);
    if (!in)
        return std::nullopt;
    std::string magic, madeFrom;
    ChunkBounds bounds;
    std::getline(in, magic);
    std::getline(in, madeFrom);
    if (magic == kPlanMagic && madeFrom != basis)
        throw std::runtime_error(path + ": planned for " + madeFrom + ", not for " + basis +
                                 " (remove it to plan again)");
    in >> bounds.total;
    uint64_t start = 0, time = 0;
    while (bounds.starts.size() < count && in >> start >> time) {
        // Boundaries grow within the input, from its first picture.
        if (start >= bounds.total || (bounds.starts.empty() ? start != 0 : start <= bounds.starts.back()))
            break;
        bounds.starts.push_back(start);
        bounds.times.push_back(time);
    }
    if (magic != kPlanMagic || bounds.starts.size() != count || !(in >> std::ws).eof())
        throw std::runtime_error(path + ": not a chunk plan, or a damaged one");
    return bounds;
}

namespace {

class ChunkSource : public FrameSource {
public:
    ChunkSource(std::unique_ptr<FrameSource> source, uint64_t first, uint64_t frames)
        : m_source(std::move(source)), m_format(m_source->format()), m_first(first), m_left(frames)
    {
        m_format.expectedFrames = frames;
    }
    const VideoFormat& format() const override { return m_format; }
    std::string name() const override { return m_source->name(); }
    bool next(Picture& picture, std::vector<AudioPacket>& audio) override
    {
        (void)audio;
        std::vector<AudioPacket> dropped;
        if (m_left == 0)
            return false;
        do {
            if (!m_source->next(picture, dropped))
                return false;
            dropped.clear();
        } while (!m_started && picture.time < m_first);
        // The chunk must start where it was planned, or the join would
        // repeat or lose pictures.
        if (!m_started && picture.time != m_first)
            throw InputError("no picture at time " + std::to_string(m_first) + "/" +
                             std::to_string(m_format.timeScale) + ", where the chunk starts (has the input changed?)");
        m_started = true;
        --m_left;
        return true;
    }

private:
    std::unique_ptr<FrameSource> m_source;
    VideoFormat m_format;
    uint64_t m_first;
    uint64_t m_left;
    bool m_started = false;
};

}  // namespace

std::unique_ptr<FrameSource> MakeChunkSource(std::unique_ptr<FrameSource> source, uint64_t first, uint64_t frames)
{
    return std::make_unique<ChunkSource>(std::move(source), first, frames);
}

}  // namespace tools
}  // namespace evc
