// Round trip of an empty command through the client/service record: the
// client posts a command, a second process takes it and posts the response.
// Both sides poll their in-segment semaphore once a millisecond, so the
// figures are printed next to that polling period.

#include "ipc/CAExternalEncodeProxyMPI.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <vector>

#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr double kPollingPeriodMs = 1.0;

struct Summary {
    size_t samples = 0;
    double medianMs = 0;
    double p99Ms = 0;
} g_last;

// The service side: answers every command until the quit code.
[[noreturn]] void serve(const std::string& key)
{
    try {
        CAExternalEncodeProxyMPI service(key, 10000);
        service.PostResponse();
        for (;;) {
            if (!service.TimedWaitForCommand(10))
                _exit(1);
            if (service.GetCommand() == CAExternalVideoProxySharedData::kQuit)
                _exit(0);
            service.SetStatus(0);
            service.PostResponse();
        }
    } catch (...) {
        _exit(2);
    }
}

// Reaps the service process, killing it first if it is still running.
class ServiceProcess {
public:
    explicit ServiceProcess(const std::string& key) : m_pid(fork())
    {
        if (m_pid == 0)
            serve(key);
    }
    ~ServiceProcess()
    {
        if (m_pid <= 0)
            return;
        int status = 0;
        for (int i = 0; i < 1000 && waitpid(m_pid, &status, WNOHANG) == 0; ++i)
            usleep(1000);
        if (waitpid(m_pid, &status, WNOHANG) == 0) {
            kill(m_pid, SIGKILL);
            waitpid(m_pid, &status, 0);
        }
    }
    ServiceProcess(const ServiceProcess&) = delete;
    ServiceProcess& operator=(const ServiceProcess&) = delete;
    bool started() const { return m_pid > 0; }

private:
    pid_t m_pid;
};

double percentile(std::vector<double>& sorted, double fraction)
{
    const size_t index = static_cast<size_t>(fraction * static_cast<double>(sorted.size() - 1));
    return sorted[index];
}

void BM_EmptyCommandRoundTrip(benchmark::State& state)
{
    CAExternalEncodeProxyMPI client(1 << 16);
    ServiceProcess service(client.GetSharedMemoryName());
    if (!service.started() || !client.TimedWaitForResponse(10)) {
        state.SkipWithError("service did not start");
        return;
    }
    std::vector<double> roundTripsMs;
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        client.SetCommand(CAExternalVideoProxySharedData::kNone);
        client.PostCommand();
        client.WaitForResponse();
        benchmark::DoNotOptimize(client.GetStatus());
        const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
        state.SetIterationTime(took.count());
        roundTripsMs.push_back(took.count() * 1000.0);
    }
    client.SetCommand(CAExternalVideoProxySharedData::kQuit);
    client.PostCommand();

    if (roundTripsMs.empty())
        return;
    std::sort(roundTripsMs.begin(), roundTripsMs.end());
    g_last.samples = roundTripsMs.size();
    g_last.medianMs = percentile(roundTripsMs, 0.5);
    g_last.p99Ms = percentile(roundTripsMs, 0.99);
    state.counters["median_ms"] = g_last.medianMs;
    state.counters["p99_ms"] = g_last.p99Ms;
    state.counters["median/poll"] = g_last.medianMs / kPollingPeriodMs;
    state.counters["p99/poll"] = g_last.p99Ms / kPollingPeriodMs;
}

BENCHMARK(BM_EmptyCommandRoundTrip)->UseManualTime()->MinTime(3.0)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    if (g_last.samples != 0)
        std::printf("\nempty command round trip over %zu samples: median %.3f ms, 99th percentile "
                    "%.3f ms; polling period %.1f ms; ratio median/poll %.2f, p99/poll %.2f\n",
                    g_last.samples, g_last.medianMs, g_last.p99Ms, kPollingPeriodMs, g_last.medianMs / kPollingPeriodMs,
                    g_last.p99Ms / kPollingPeriodMs);
    return 0;
}
