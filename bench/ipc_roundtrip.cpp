// Round trip of an empty command through the client/service record: the
// client posts a command, a second process takes it and posts the response.
// Measured in one run with futex wake-ups (a post wakes the sleeping peer),
// again with the two processes held on two different processors (as a quiet
// machine places them; a busy one often runs both on one), and with
// EVC_NO_FUTEX=1 (both sides poll once a millisecond), so the figures are
// printed next to that polling period.

#include "ipc/CAExternalEncodeProxyMPI.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr double kPollingPeriodMs = 1.0;

struct Summary {
    size_t samples = 0;
    double medianMs = 0;
    double p99Ms = 0;
};
// By mode: polling, wake-ups, wake-ups on two processors.
Summary g_results[3];

// Holds the calling process on one processor; true when it could.
bool HoldOn(int cpu)
{
    cpu_set_t set;
    CPU_ZERO(&set);
    CPU_SET(cpu, &set);
    return sched_setaffinity(0, sizeof set, &set) == 0;
}

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
    // cpu: the processor the service is held on, or -1.
    ServiceProcess(const std::string& key, int cpu) : m_pid(fork())
    {
        if (m_pid == 0) {
            if (cpu >= 0 && !HoldOn(cpu))
                _exit(3);
            serve(key);
        }
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
    const int mode = static_cast<int>(state.range(0));
    const bool wakeUps = mode != 0, apart = mode == 2;
    // Both sides read the switch when they open the segment; the service is a
    // fork of this process and inherits it.
    setenv("EVC_NO_FUTEX", wakeUps ? "0" : "1", 1);
    cpu_set_t everywhere;
    sched_getaffinity(0, sizeof everywhere, &everywhere);
    if (apart &&
        (CPU_COUNT(&everywhere) < 2 || !CPU_ISSET(0, &everywhere) || !CPU_ISSET(1, &everywhere) || !HoldOn(0))) {
        state.SkipWithError("processors 0 and 1 are not both available");
        return;
    }
    struct Release {
        const cpu_set_t& set;
        ~Release() { sched_setaffinity(0, sizeof set, &set); }
    } release{everywhere};
    CAExternalEncodeProxyMPI client(1 << 16);
    ServiceProcess service(client.GetSharedMemoryName(), apart ? 1 : -1);
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
    Summary& summary = g_results[mode];
    summary.samples = roundTripsMs.size();
    summary.medianMs = percentile(roundTripsMs, 0.5);
    summary.p99Ms = percentile(roundTripsMs, 0.99);
    state.counters["median_ms"] = summary.medianMs;
    state.counters["p99_ms"] = summary.p99Ms;
    state.counters["median/poll"] = summary.medianMs / kPollingPeriodMs;
    state.counters["p99/poll"] = summary.p99Ms / kPollingPeriodMs;
}

BENCHMARK(BM_EmptyCommandRoundTrip)
    ->ArgName("mode")  // 1: wake-ups, 2: wake-ups on two processors, 0: polling
    ->Arg(1)
    ->Arg(2)
    ->Arg(0)
    ->UseManualTime()
    ->MinTime(3.0)
    ->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    std::printf("\nempty command round trip     samples   median ms   p99 ms   median/poll  p99/poll\n");
    const char* names[3] = {"polling (EVC_NO_FUTEX=1)", "futex wake-ups", "futex, on two processors"};
    for (int mode : {1, 2, 0}) {
        const Summary& r = g_results[mode];
        if (r.samples != 0)
            std::printf("%-28s %8zu %11.3f %8.3f %13.3f %9.3f\n", names[mode], r.samples, r.medianMs, r.p99Ms,
                        r.medianMs / kPollingPeriodMs, r.p99Ms / kPollingPeriodMs);
    }
    if (g_results[0].samples != 0 && g_results[1].samples != 0)
        std::printf("polling period %.1f ms; polling median / futex median %.1f (goals with futexes: median <= "
                    "0.050 ms, p99 <= 0.200 ms)\n",
                    kPollingPeriodMs, g_results[0].medianMs / g_results[1].medianMs);
    return 0;
}
