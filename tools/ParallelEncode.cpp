// The encodes side by side and the join.
#include "tools/ParallelEncode.h"

#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <exception>
#include <iostream>
#include <mutex>
#include <numeric>
#include <thread>

namespace evc {
namespace tools {

namespace {

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

}  // namespace

uint32_t ChunkCountForJobs(uint32_t jobs, uint64_t frames)
{
    return uint32_t(std::max<uint64_t>(1, std::min<uint64_t>(uint64_t(jobs) * 2, frames)));
}

EncodeResult EncodeInParallel(const ParallelPlan& plan, Progress& progress)
{
    SceneScan scan;
    {
        std::unique_ptr<FrameSource> whole = plan.openSource(std::nullopt);
        scan = ScanScenes(*whole);
    }
    if (scan.scores.empty())
        throw EncodeError("the input holds no pictures");
    const uint64_t total = scan.scores.size();
    const uint32_t count = ChunkCountForJobs(plan.jobs, total);
    const ChunkBounds bounds = PlanChunks(scan, count, plan.limits);
    std::vector<uint64_t> starts = bounds.starts;
    starts.push_back(total);

    // Largest first, so that no long chunk starts last.
    std::vector<size_t> order(count);
    std::iota(order.begin(), order.end(), 0);
    std::stable_sort(order.begin(), order.end(),
                     [&](size_t a, size_t b) { return starts[a + 1] - starts[a] > starts[b + 1] - starts[b]; });

    ScratchFolder scratch;
    std::vector<std::string> files;
    for (size_t i = 0; i < count; ++i)
        files.push_back(scratch.file(i));

    struct Done {
        uint64_t frames = 0, pictures = 0, bytes = 0;
    };
    std::vector<Done> done(count);
    std::mutex mutex;
    std::atomic<size_t> next{0};
    std::exception_ptr failure;
    bool interrupted = false;

    auto work = [&] {
        while (true) {
            const size_t slot = next++;
            {
                std::lock_guard<std::mutex> lock(mutex);
                if (slot >= count || failure)
                    return;
            }
            const size_t chunk = order[slot];
            try {
                const uint64_t first = bounds.times[chunk];
                std::unique_ptr<FrameSource> source =
                    MakeChunkSource(plan.openSource(first), first, starts[chunk + 1] - starts[chunk]);
                EncodeJob job = plan.job;
                job.output.path = files[chunk];
                job.output.format = "evcseg";
                job.output.overwrite = true;
                ChunkTrailer trailer;
                trailer.index = uint32_t(chunk);
                trailer.count = count;
                trailer.first = starts[chunk];
                trailer.frames = starts[chunk + 1] - starts[chunk];
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
                const EncodeResult result = Encode(*source, job, silent);
                if (result.interrupted)
                    source.release();  // its reader may still wait on the input
                std::lock_guard<std::mutex> lock(mutex);
                interrupted = interrupted || result.interrupted;
            } catch (...) {
                std::lock_guard<std::mutex> lock(mutex);
                if (!failure)
                    failure = std::current_exception();
            }
        }
    };
    std::vector<std::thread> threads;
    for (uint32_t j = 0; j < std::min(plan.jobs, count); ++j)
        threads.emplace_back(work);
    for (std::thread& thread : threads)
        thread.join();
    if (failure)
        std::rethrow_exception(failure);
    if (interrupted)
        throw EncodeAbandoned();

    const JoinResult joined = JoinChunks(files, plan.job.output, nullptr, &scan);
    EncodeResult result;
    result.frames = result.pictures = joined.frames;
    result.bytes = joined.bytes;
    return result;
}

}  // namespace tools
}  // namespace evc
