// The encodes side by side and the join.
#include "tools/ParallelEncode.h"

#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <exception>
#include <iostream>
#include <mutex>
#include <numeric>
#include <thread>

#include "tools/Interrupts.h"

namespace evc {
namespace tools {

namespace {

constexpr const char* kNothingDone = "interrupted before a picture from the start was encoded";

// A private folder for the chunks' segment files, removed with them.
class ScratchFolder {
public:
    ScratchFolder()
    {
        const char* base = std::getenv("TMPDIR");
        std::string pattern = std::string(base != nullptr && *base ? base : "/tmp") + "/evc-chunks-XXXXXX";
        if (mkdtemp(pattern.data()) == nullptr)
            throw EncodeError("cannot create a temporary folder in " + pattern.substr(0, pattern.rfind('/')));
        m_path = pattern;
    }
    ~ScratchFolder()
    {
        for (const std::string& file : m_files)
            unlink(file.c_str());
        rmdir(m_path.c_str());
    }
    std::string file(size_t index)
    {
        m_files.push_back(m_path + "/chunk-" + std::to_string(index) + ".evcseg");
        return m_files.back();
    }

private:
    std::string m_path;
    std::vector<std::string> m_files;
};

// When each phase ran, for -v: where the wall time of a parallel encode goes.
class Timeline {
public:
    explicit Timeline(std::ostream* out) : m_out(out), m_start(std::chrono::steady_clock::now()) {}
    double now() const { return std::chrono::duration<double>(std::chrono::steady_clock::now() - m_start).count(); }
    // A phase from start until now; job 0 is none (the scan, the join).
    void add(uint32_t job, const std::string& what, double start, uint64_t pictures = 0)
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_rows.push_back({job, what, start, now(), pictures});
    }
    // The phases in the order they ended, and each job's time without a
    // chunk while any job had one.
    void print(uint32_t jobs) const
    {
        if (m_out == nullptr)
            return;
        double first = 1e300, last = 0;
        std::vector<double> busy(jobs + 1, 0.0);
        char line[160];
        *m_out << "evc-encode: timeline, seconds from the start\n";
        for (const Row& row : m_rows) {
            const std::string what = (row.job != 0 ? "job " + std::to_string(row.job) + " " : "") + row.what;
            std::snprintf(line, sizeof line, "evc-encode:   %-22s %8.2f %8.2f", what.c_str(), row.start, row.end);
            *m_out << line;
            if (row.pictures != 0)
                *m_out << "  " << row.pictures << " pictures";
            *m_out << "\n";
            if (row.job != 0 && row.job <= jobs) {
                busy[row.job] += row.end - row.start;
                first = std::min(first, row.start);
                last = std::max(last, row.end);
            }
        }
        for (uint32_t j = 1; j <= jobs && last > first; ++j) {
            std::snprintf(line, sizeof line, "evc-encode:   job %u idle %.2f s of %.2f\n", j, last - first - busy[j],
                          last - first);
            *m_out << line;
        }
    }

private:
    struct Row {
        uint32_t job;
        std::string what;
        double start, end;
        uint64_t pictures;
    };
    std::ostream* m_out;
    std::chrono::steady_clock::time_point m_start;
    std::mutex m_mutex;
    std::vector<Row> m_rows;
};

}  // namespace

EncodeResult EncodeInParallel(const ParallelPlan& plan, Progress& progress)
{
    Timeline timeline(plan.timeline);
    SceneScan scan;
    uint64_t longScene = 0;  // ten seconds, where encoders put key frames anyway
    {
        std::unique_ptr<FrameSource> whole = plan.openSource(std::nullopt);
        const VideoFormat& format = whole->format();
        longScene = format.fpsDen != 0 ? 10 * uint64_t(format.fpsNum) / format.fpsDen : 250;
        scan = ScanScenes(*whole, [] { return InterruptCount() >= 1; });
    }
    timeline.add(0, "scan", 0, scan.scores.size());
    if (InterruptCount() >= 1)
        throw EncodeAbandoned(kNothingDone);
    if (scan.scores.empty())
        throw EncodeError("the input holds no pictures");
    const uint64_t total = scan.scores.size();
    const ChunkBounds bounds = PlanSceneChunks(scan, plan.jobs, plan.limits, longScene);
    const uint32_t count = uint32_t(bounds.starts.size());
    std::vector<uint64_t> starts = bounds.starts;
    starts.push_back(total);

    // The costliest first, so that what is left at the end is short.
    std::vector<double> chunkWork(count, 0.0);
    for (size_t i = 0; i < count; ++i)
        for (uint64_t k = starts[i]; k < starts[i + 1]; ++k)
            chunkWork[i] += k < scan.costs.size() ? scan.costs[k] : 1.0;
    std::vector<size_t> order(count);
    std::iota(order.begin(), order.end(), 0);
    std::stable_sort(order.begin(), order.end(), [&](size_t a, size_t b) { return chunkWork[a] > chunkWork[b]; });
    const double allWork = std::accumulate(chunkWork.begin(), chunkWork.end(), 0.0);

    ScratchFolder scratch;
    std::vector<std::string> files;
    for (size_t i = 0; i < count; ++i)
        files.push_back(scratch.file(i));

    struct Done {
        uint64_t frames = 0, pictures = 0, bytes = 0;
    };
    std::vector<Done> done(count);
    std::mutex mutex;
    std::condition_variable changed;  // a chunk ended, a job left, or all is stopping
    // Each chunk's description once its encode ended: whole, or cut short by
    // a first Ctrl-C (then with the pictures its file really holds).
    std::vector<std::optional<ChunkTrailer>> ended(count);
    std::atomic<size_t> next{0};
    std::exception_ptr failure;
    const uint32_t jobs = std::min<uint32_t>(plan.jobs, count);
    uint32_t working = jobs;
    auto fail = [&](std::exception_ptr error) {
        std::lock_guard<std::mutex> lock(mutex);
        if (!failure)
            failure = error;
        changed.notify_all();
    };
    auto planned = [&](size_t chunk) { return starts[chunk + 1] - starts[chunk]; };

    std::atomic<uint32_t> workers{0};
    auto work = [&] {
        const uint32_t worker = ++workers;
        while (true) {
            const size_t slot = next++;
            {
                // After a first Ctrl-C no chunk starts.
                std::lock_guard<std::mutex> lock(mutex);
                if (slot >= count || failure || InterruptCount() >= 1)
                    break;
            }
            const size_t chunk = order[slot];
            const double start = timeline.now();
            try {
                const uint64_t first = bounds.times[chunk];
                std::unique_ptr<FrameSource> source = MakeChunkSource(plan.openSource(first), first, planned(chunk));
                EncodeJob job = plan.job;
                job.output.path = files[chunk];
                job.output.format = "evcseg";
                job.output.overwrite = true;
                ChunkTrailer trailer;
                trailer.index = uint32_t(chunk);
                trailer.count = count;
                trailer.first = starts[chunk];
                trailer.frames = planned(chunk);
                trailer.totalFrames = total;
                trailer.codec = plan.job.output.codec;
                trailer.format = source->format();
                job.output.chunk = trailer;
                job.onProgress = [&, chunk](uint64_t frames, uint64_t pictures, uint64_t bytes) {
                    std::lock_guard<std::mutex> lock(mutex);
                    done[chunk] = {frames, pictures, bytes};
                    Done sum;
                    for (const Done& d : done) {
                        sum.frames += d.frames;
                        sum.pictures += d.pictures;
                        sum.bytes += d.bytes;
                    }
                    progress.update(sum.frames, sum.pictures, sum.bytes);
                };
                VideoFormat quiet;
                Progress silent(std::cerr, false, quiet);
                // After an interruption or a failure the reader may still
                // be inside the source: it is left to the process's exit.
                EncodeResult result;
                try {
                    result = Encode(*source, job, silent);
                } catch (...) {
                    source.release();
                    throw;
                }
                std::optional<ChunkTrailer> written = trailer;
                if (result.interrupted) {
                    source.release();
                    // The file says how much of the chunk it holds.
                    written = ReadChunkTrailer(files[chunk]);
                    if (!written || written->index != chunk || written->first != starts[chunk] ||
                        written->frames > planned(chunk))
                        throw EncodeError(files[chunk] + ": no valid chunk after the interruption");
                }
                char what[64];
                std::snprintf(what, sizeof what, "chunk %zu/%u (%.0f%%)", chunk + 1, count,
                              100 * chunkWork[chunk] / allWork);
                timeline.add(worker, what, start, result.frames);
                std::lock_guard<std::mutex> lock(mutex);
                ended[chunk] = written;
                changed.notify_all();
            } catch (const InterruptedBeforeStart&) {
                // Stopped before its first picture: a gap in the output.
            } catch (...) {
                fail(std::current_exception());
            }
        }
        std::lock_guard<std::mutex> lock(mutex);
        --working;
        changed.notify_all();
    };
    // The join follows the encodes: each chunk goes into the output as soon
    // as it and those before it are done, so that at the end only what the
    // last chunks hold is left to write. After a first Ctrl-C it stops at
    // the first chunk that is not whole (a part of it is the last one in),
    // so that the output is the input's start without a gap.
    ChunkJoiner joiner(plan.job.output, nullptr, &scan);
    double joinStart = -1;
    uint64_t joinedPictures = 0;
    auto join = [&] {
        try {
            for (size_t chunk = 0; chunk < count; ++chunk) {
                std::unique_lock<std::mutex> lock(mutex);
                changed.wait(lock, [&] { return ended[chunk] || failure || working == 0; });
                if (!ended[chunk] || failure || ended[chunk]->frames == 0)
                    return;
                const ChunkTrailer chunkTrailer = *ended[chunk];
                lock.unlock();
                if (joinStart < 0)
                    joinStart = timeline.now();
                joiner.append(files[chunk], chunkTrailer);
                joinedPictures += chunkTrailer.frames;
                if (chunkTrailer.frames < planned(chunk))
                    return;
            }
        } catch (...) {
            fail(std::current_exception());
        }
    };
    std::vector<std::thread> threads;
    for (uint32_t j = 0; j < jobs; ++j)
        threads.emplace_back(work);
    threads.emplace_back(join);
    for (std::thread& thread : threads)
        thread.join();
    if (failure)
        std::rethrow_exception(failure);
    if (joinedPictures == 0)
        throw EncodeAbandoned(kNothingDone);

    // Cut short, the audio ends with the last picture, as in an interrupted
    // encode of the whole.
    const bool whole = joinedPictures == total;
    scan.toPictureEnd = !whole;
    const JoinResult joined = joiner.finish();
    timeline.add(0, "join", joinStart, joined.frames);
    timeline.print(plan.jobs);
    EncodeResult result;
    result.frames = result.pictures = joined.frames;
    result.bytes = joined.bytes;
    result.interrupted = !whole;
    return result;
}

}  // namespace tools
}  // namespace evc
