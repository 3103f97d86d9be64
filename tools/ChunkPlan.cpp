// Scene scores, chunk boundaries and the chunk's view of a source.
#include "tools/ChunkPlan.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <string>

#include "tools/MediaSource.h"

namespace evc {
namespace tools {

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

std::vector<uint64_t> SceneChunkStarts(const std::vector<double>& scores, const std::vector<double>& costs,
                                       uint32_t jobs, const ChunkLimits& limits, uint64_t longScene)
{
    const uint64_t total = scores.size();
    auto cost = [&](uint64_t i) { return costs.size() == total ? std::max(costs[i], 0.0) : 1.0; };
    double work = 0;
    for (uint64_t i = 0; i < total; ++i)
        work += cost(i);
    jobs = std::max<uint32_t>(jobs, 1);
    longScene = std::max<uint64_t>(longScene, 1);
    const double share = work / jobs, target = share / kPiecesPerJob;
    // Scenes gathered into chunks while they fit the target, or while the
    // chunk is shorter than the minimum.
    std::vector<uint64_t> starts{0};
    double chunkWork = 0;
    for (uint64_t scene = 0; scene < total;) {
        uint64_t end = scene + 1;
        double sceneWork = cost(scene);
        for (; end < total && scores[end] < kSceneCut; ++end)
            sceneWork += cost(end);
        const bool split = sceneWork > share && end - scene >= longScene;
        if (scene != 0 && scene - starts.back() >= limits.minLength && (split || chunkWork + sceneWork > target)) {
            starts.push_back(scene);
            chunkWork = 0;
        }
        if (split) {
            // In even parts of the work: a quarter share each where they
            // last longScene or more, else as few as fit a share each (and
            // no shorter than the minimum).
            const uint64_t length = end - scene;
            const uint64_t parts = std::min<uint64_t>(
                std::max<uint64_t>(uint64_t(std::ceil(sceneWork / share)),
                                   std::min<uint64_t>(uint64_t(std::ceil(sceneWork / target)), length / longScene)),
                length / std::max<uint64_t>(limits.minLength, 1));
            double done = 0;
            uint64_t part = 1;
            for (uint64_t i = scene; i < end && part < parts; done += cost(i++))
                if (done >= sceneWork * double(part) / double(parts) && i > starts.back()) {
                    starts.push_back(i);
                    ++part;
                }
            chunkWork = target;  // the next scene starts a chunk of its own
        } else {
            chunkWork += sceneWork;
        }
        scene = end;
    }
    // A last chunk below the minimum joins the one before.
    if (starts.size() > 1 && total - starts.back() < limits.minLength)
        starts.pop_back();
    if (limits.maxLength == 0)
        return starts;
    std::vector<uint64_t> split;
    for (size_t i = 0; i < starts.size(); ++i) {
        const uint64_t begin = starts[i], length = (i + 1 < starts.size() ? starts[i + 1] : total) - begin;
        const uint64_t parts = (length + limits.maxLength - 1) / limits.maxLength;
        for (uint64_t k = 0; k < parts; ++k)
            split.push_back(begin + length * k / parts);
    }
    return split;
}

SceneScan ScanScenes(FrameSource& source, const std::function<bool()>& stop)
{
    SceneDetector detector(source.format());
    SceneScan scan;
    Picture picture;
    std::vector<AudioPacket> audio;
    while (!(stop && stop()) && source.next(picture, audio)) {
        scan.scores.push_back(detector.next(picture));
        scan.costs.push_back(detector.cost());
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

ChunkBounds PlanSceneChunks(const SceneScan& scan, uint32_t jobs, const ChunkLimits& limits, uint64_t longScene)
{
    ChunkBounds bounds;
    bounds.total = scan.scores.size();
    bounds.starts = SceneChunkStarts(scan.scores, scan.costs, jobs, limits, longScene);
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
