// Acquiring and releasing 1080p 4:2:0 frame buffers through the process-wide
// pool against a plain aligned allocation and free of the same block, side by
// side in one run. "Touch" variants write one byte per page, as a frame
// filled with pixels would, so that page faults of fresh blocks are counted.

#include "media/CABufferPool.h"
#include "support/ZKAlignedAlloc.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <string>
#include <vector>

namespace {

constexpr unsigned int kFrameSize = 1920 * 1080 * 3 / 2;  // 4:2:0, 8 bits
constexpr size_t kPage = 4096;

void TouchPages(unsigned char* data, size_t size)
{
    for (size_t offset = 0; offset < size; offset += kPage)
        data[offset] = static_cast<unsigned char>(offset);
    benchmark::ClobberMemory();
}

void PoolAcquireRelease(benchmark::State& state)
{
    const bool touch = state.range(0) != 0;
    CABufferPool* pool = CABufferPool::GetBufferPool();
    for (auto _ : state) {
        CABuffer* buffer = pool->AquireBuffer(kFrameSize);
        if (buffer == nullptr) {
            state.SkipWithError("pool out of memory");
            break;
        }
        if (touch)
            TouchPages(buffer->GetData(), kFrameSize);
        benchmark::DoNotOptimize(buffer->GetData());
        buffer->Release();
    }
}

void AlignedAllocFree(benchmark::State& state)
{
    const bool touch = state.range(0) != 0;
    for (auto _ : state) {
        // The same block the pool makes: size + 8 bytes at 32-byte alignment.
        auto* block = static_cast<unsigned char*>(ZKAllocPtrAligned(kFrameSize + 8, CABuffer::kAlignment));
        if (block == nullptr) {
            state.SkipWithError("out of memory");
            break;
        }
        if (touch)
            TouchPages(block + CABuffer::kDataOffset, kFrameSize);
        benchmark::DoNotOptimize(block);
        ZKFreePtrAligned(block);
    }
}

// Several frames in flight at once, as a stream with a few frames queued.
void PoolInFlight(benchmark::State& state)
{
    CABufferPool* pool = CABufferPool::GetBufferPool();
    std::vector<CABuffer*> held(static_cast<size_t>(state.range(0)));
    for (auto _ : state) {
        for (CABuffer*& buffer : held) {
            buffer = pool->AquireBuffer(kFrameSize);
            TouchPages(buffer->GetData(), kFrameSize);
        }
        for (CABuffer* buffer : held)
            buffer->Release();
    }
}

void AlignedInFlight(benchmark::State& state)
{
    std::vector<unsigned char*> held(static_cast<size_t>(state.range(0)));
    for (auto _ : state) {
        for (unsigned char*& block : held) {
            block = static_cast<unsigned char*>(ZKAllocPtrAligned(kFrameSize + 8, CABuffer::kAlignment));
            TouchPages(block + CABuffer::kDataOffset, kFrameSize);
        }
        for (unsigned char* block : held)
            ZKFreePtrAligned(block);
    }
}

BENCHMARK(PoolAcquireRelease)->ArgName("touch")->Arg(0)->Arg(1);
BENCHMARK(AlignedAllocFree)->ArgName("touch")->Arg(0)->Arg(1);
BENCHMARK(PoolInFlight)->ArgName("frames")->Arg(4);
BENCHMARK(AlignedInFlight)->ArgName("frames")->Arg(4);

// Prints the usual table and remembers each run's time per iteration.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override
    {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs)
            if (!run.error_occurred && run.run_type == Run::RT_Iteration)
                times[run.benchmark_name()] = {run.GetAdjustedRealTime(), run.GetAdjustedCPUTime()};
    }
    struct Times {
        double real;
        double cpu;
    };
    std::map<std::string, Times> times;
};

}  // namespace

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);

    const struct {
        const char* label;
        const char* pool;
        const char* plain;
    } pairs[] = {
        {"acquire+release, untouched", "PoolAcquireRelease/touch:0", "AlignedAllocFree/touch:0"},
        {"acquire+release, pages written", "PoolAcquireRelease/touch:1", "AlignedAllocFree/touch:1"},
        {"4 frames in flight, pages written", "PoolInFlight/frames:4", "AlignedInFlight/frames:4"},
    };
    std::printf("\nbuffer pool vs aligned allocation, 1080p 4:2:0 (%u bytes)\n", kFrameSize);
    for (const auto& pair : pairs) {
        const auto pool = reporter.times.find(pair.pool);
        const auto plain = reporter.times.find(pair.plain);
        if (pool == reporter.times.end() || plain == reporter.times.end() || pool->second.real <= 0 ||
            pool->second.cpu <= 0)
            continue;
        std::printf("  %-36s plain / pool = %8.2f (real time), %8.2f (CPU time)\n", pair.label,
                    plain->second.real / pool->second.real, plain->second.cpu / pool->second.cpu);
    }
    benchmark::Shutdown();
    return 0;
}
