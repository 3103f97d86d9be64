// What a codec crash costs an encode session: a 1080p H.264 encode whose
// service is killed from outside (SIGKILL) every N pictures, while it works on
// one (between the session's post and collect of the picture), run alternately
// with kills and without. Prints one recovery broken into its phases (median
// and max): the fault noticed, a service ready again (and whether the standby
// took over), back where it was (the new service has accepted every pending
// picture again: the host can hand over the next), every re-sent picture's
// packets handed out; then what the kills add to the whole encode (wall time
// and the services' processor time, per kill), the references measured in the
// same run (a cold start in its steps, one picture in steady state, how long a
// picture's packets take to come out normally), what the idle standby costs,
// and the pictures missing from the output (must be 0).
//
// Usage: recovery [--frames=N] (default 120) [--every=N] (default 30)
//                 [--preset=NAME] (x264 preset, default veryfast) [--size=WxH] (default 1920x1080)
//                 [--runs=N] (encodes with kills, and as many without; default 2)
// The build dir comes from EVC_BUILD_DIR, else the parent of the folder this program runs from.

#include <dirent.h>
#include <linux/limits.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "evc/EncodeSession.h"
#include "evc/H264Codec.h"
#include "media/ZKImageLayout.h"

namespace {

using Clock = std::chrono::steady_clock;

double Ms(Clock::duration d)
{
    return std::chrono::duration<double, std::milli>(d).count();
}

double Ms(std::chrono::microseconds d)
{
    return d.count() / 1000.0;
}

std::string BuildDir()
{
    const char* fromEnvironment = std::getenv("EVC_BUILD_DIR");
    if (fromEnvironment != nullptr && *fromEnvironment != '\0')
        return fromEnvironment;
    char path[PATH_MAX];
    const ssize_t n = readlink("/proc/self/exe", path, sizeof path - 1);
    std::string bin = n > 0 ? std::string(path, static_cast<size_t>(n)) : "./x";
    bin = bin.substr(0, bin.rfind('/'));
    return bin.substr(0, bin.rfind('/'));
}

const char* Option(int argc, char** argv, const char* name, const char* fallback)
{
    const size_t length = std::strlen(name);
    for (int i = 1; i < argc; ++i)
        if (std::strncmp(argv[i], name, length) == 0 && argv[i][length] == '=')
            return argv[i] + length + 1;
    return fallback;
}

double Median(std::vector<double> values)
{
    if (values.empty())
        return 0;
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

double Max(const std::vector<double>& values)
{
    return values.empty() ? 0 : *std::max_element(values.begin(), values.end());
}

// Processor time of every service this process has reaped, in ms.
double ReapedChildrenCpuMs()
{
    rusage usage{};
    getrusage(RUSAGE_CHILDREN, &usage);
    return (usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) * 1e3 +
           (usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e3;
}

// This process's live children (the services).
std::vector<int> Children()
{
    std::vector<int> children;
    DIR* proc = opendir("/proc");
    if (proc == nullptr)
        return children;
    while (const dirent* entry = readdir(proc)) {
        const int pid = std::atoi(entry->d_name);
        if (pid <= 0)
            continue;
        std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
        std::string text((std::istreambuf_iterator<char>(stat)), std::istreambuf_iterator<char>());
        const size_t end = text.rfind(')');
        int parent = 0;
        if (end != std::string::npos && std::sscanf(text.c_str() + end + 1, " %*c %d", &parent) == 1 &&
            parent == getpid())
            children.push_back(pid);
    }
    closedir(proc);
    return children;
}

// Processor time of all threads of a process, in ms (nanosecond counts).
double CpuMs(int pid)
{
    double total = 0;
    const std::string tasks = "/proc/" + std::to_string(pid) + "/task";
    DIR* dir = opendir(tasks.c_str());
    if (dir == nullptr)
        return 0;
    while (const dirent* entry = readdir(dir)) {
        if (entry->d_name[0] == '.')
            continue;
        std::ifstream schedstat(tasks + "/" + entry->d_name + "/schedstat");
        unsigned long long ns = 0;
        if (schedstat >> ns)
            total += ns / 1e6;
    }
    closedir(dir);
    return total;
}

double RssMiB(int pid)
{
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    std::string line;
    while (std::getline(status, line))
        if (line.rfind("VmRSS:", 0) == 0)
            return std::strtod(line.c_str() + 6, nullptr) / 1024;
    return 0;
}

// A moving gradient: cheap to make, not trivial to encode.
void Draw(std::vector<uint8_t>& bytes, uint32_t width, uint32_t height, uint64_t n)
{
    for (uint32_t y = 0; y < height; ++y)
        for (uint32_t x = 0; x < width; ++x)
            bytes[size_t(y) * width + x] = static_cast<uint8_t>((x ^ y) + 4 * n);
    std::fill(bytes.begin() + size_t(width) * height, bytes.end(), static_cast<uint8_t>(128 + n));
}

struct Setup {
    evc::SessionOptions options;
    std::string presetXml;
    ZKEncImage_t picture{};
    ZKEncImage_t description{};
    std::vector<uint8_t> pixels;
    uint64_t frames = 0;
    uint64_t every = 0;
};

struct Run {
    double wallMs = 0;
    double servicesCpuMs = 0;
    uint64_t pictures = 0;
    std::vector<evc::RecoveryEvent> recoveries;
    std::vector<double> resendCpuMs;  // the new service's processor time by the end of its re-send
    std::vector<double> latencies;    // from a picture's send until its packets are out
    double standbyRssMiB = 0, serviceRssMiB = 0, standbyIdleCpuMsPerS = -1;
};

Run Encode(Setup& setup, bool kills)
{
    Run run;
    const double cpuBefore = ReapedChildrenCpuMs();
    std::map<uint64_t, Clock::time_point> sentAt;
    {
        evc::SessionOptions options = setup.options;
        const evc::EncodeSession* current = nullptr;
        // Called once the re-send is done: what the new service has used so
        // far (its start-up, a few ms, and the re-encode).
        options.onRecovery = [&](const evc::RecoveryEvent&) {
            run.resendCpuMs.push_back(CpuMs(current->servicePid()));
        };
        evc::EncodeSession session(options, setup.presetXml, setup.description);
        current = &session;
        std::vector<evc::EncodedFrame> out;
        size_t seen = 0, seenPackets = 0;  // packets already counted
        const auto begin = Clock::now();
        for (uint64_t n = 0; n < setup.frames; ++n) {
            // Each picture in a buffer of its own that the session keeps until
            // its packets are out, as evc-encode does: nothing is copied to be
            // re-sent.
            auto pixels = std::make_shared<std::vector<uint8_t>>(setup.pixels.size());
            Draw(*pixels, setup.picture.image.width, setup.picture.image.height, n);
            ZKEncImage_t picture = setup.picture;
            for (uint8_t*& plane : picture.image.planes)
                if (plane != nullptr)
                    plane = pixels->data() + (plane - setup.pixels.data());
            picture.image.time = n;
            sentAt[n] = Clock::now();
            session.Post(picture, std::move(pixels), n == 0, n + 1 == setup.frames);
            // Killed while it works on the picture, as a crash would end it.
            if (kills && n > 0 && n % setup.every == 0)
                kill(session.servicePid(), SIGKILL);
            session.Collect(out);
            const auto now = Clock::now();
            // Packets are added to the last output too, not only in new ones.
            while (seen < out.size()) {
                for (; seenPackets < out[seen].packets.size(); ++seenPackets) {
                    const evc::Packet& packet = out[seen].packets[seenPackets];
                    ++run.pictures;
                    // The times are picture numbers (time scale 25).
                    const uint64_t frame = packet.time * 25 / packet.timeBase;
                    if (!kills && sentAt.count(frame) != 0 && frame + 1 < setup.frames)
                        run.latencies.push_back(Ms(now - sentAt[frame]));
                }
                if (seen + 1 == out.size())
                    break;
                ++seen;
                seenPackets = 0;
            }
        }
        run.wallMs = Ms(Clock::now() - begin);
        if (!kills) {
            // The standby has waited through the whole encode: what it holds,
            // and what it burns in one idle second.
            for (int pid : Children()) {
                if (pid == session.servicePid()) {
                    run.serviceRssMiB = RssMiB(pid);
                    continue;
                }
                run.standbyRssMiB = RssMiB(pid);
                const double cpu = CpuMs(pid);
                std::this_thread::sleep_for(std::chrono::seconds(1));
                run.standbyIdleCpuMsPerS = CpuMs(pid) - cpu;
            }
        }
        session.Close();
        run.recoveries = session.recoveries();
    }
    run.servicesCpuMs = ReapedChildrenCpuMs() - cpuBefore;
    return run;
}

// A cold start in its steps: the service started and attached, the preset
// applied (plug-in loaded), the stream begun (the encoder opened).
void ColdStart(const Setup& setup, std::vector<double>& spawn, std::vector<double>& preset, std::vector<double>& begin)
{
    auto t0 = Clock::now();
    evc::Client client(setup.options.client);
    auto t1 = Clock::now();
    if (client.SetOutput(setup.presetXml) != kZKNoErr)
        throw std::runtime_error("the service refused the preset");
    auto t2 = Clock::now();
    if (client.Begin(&setup.description) != kZKNoErr)
        throw std::runtime_error("the compressor refused the stream");
    auto t3 = Clock::now();
    spawn.push_back(Ms(t1 - t0));
    preset.push_back(Ms(t2 - t1));
    begin.push_back(Ms(t3 - t2));
}

}  // namespace

int main(int argc, char** argv)
{
    Setup setup;
    setup.frames = std::strtoull(Option(argc, argv, "--frames", "120"), nullptr, 10);
    setup.every = std::max<uint64_t>(1, std::strtoull(Option(argc, argv, "--every", "30"), nullptr, 10));
    const int runs = std::max(1, std::atoi(Option(argc, argv, "--runs", "2")));
    const std::string preset = Option(argc, argv, "--preset", "veryfast");
    unsigned width = 1920, height = 1080;
    std::sscanf(Option(argc, argv, "--size", "1920x1080"), "%ux%u", &width, &height);
    const std::string build = BuildDir();

    evc::SessionOptions& options = setup.options;
    options.client.servicePath = build + "/bin/evc-service";
    options.client.applicationFolder = build;
    options.client.largestFrameBytes = uint64_t(width) * height * 3 / 2;
    options.maxRestarts = 3;
    setup.presetXml = "<Output><VideoCompressor Manufacture4cc=\"" + std::to_string(evc::h264::kManufacturer) +
                      "\" Codec4cc=\"" + std::to_string(evc::h264::kCodec) +
                      "\"><NonStandardSettings><Preset Type=\"eEnum\" Value=\"" + preset +
                      "\"/><Threads Type=\"eInt\" Value=\"2\"/></NonStandardSettings>"
                      "</VideoCompressor></Output>";

    setup.pixels.resize(options.client.largestFrameBytes);
    if (InitZKImage(&setup.picture.image, static_cast<uint32_t>(setup.pixels.size()), setup.pixels.data(),
                    eColorFormatYUV420Planar, false, static_cast<int>(width), static_cast<int>(height), false, 0,
                    25) != 0) {
        std::fprintf(stderr, "recovery: no layout for %ux%u\n", width, height);
        return 1;
    }
    setup.description = setup.picture;
    for (uint8_t*& plane : setup.description.image.planes)
        plane = nullptr;
    setup.description.image.dataSize = 0;

    try {
        std::vector<double> spawn, presetLoad, begin;
        for (int i = 0; i < 3; ++i)
            ColdStart(setup, spawn, presetLoad, begin);

        // Alternated, so that a change in the machine's load falls on both.
        std::vector<Run> quiet, killed;
        for (int r = 0; r < runs; ++r) {
            quiet.push_back(Encode(setup, false));
            killed.push_back(Encode(setup, true));
        }

        std::vector<double> detect, restart, back, delivered, resent, quietWall, killedWall, quietCpu, killedCpu,
            latency, resendCpu;
        size_t fromStandby = 0, kills = 0;
        uint64_t missing = 0;
        for (const Run& run : killed) {
            killedWall.push_back(run.wallMs);
            killedCpu.push_back(run.servicesCpuMs);
            missing += setup.frames - std::min(setup.frames, run.pictures);
            kills += run.recoveries.size();
            resendCpu.insert(resendCpu.end(), run.resendCpuMs.begin(), run.resendCpuMs.end());
            for (const evc::RecoveryEvent& event : run.recoveries) {
                detect.push_back(Ms(event.detectTime));
                restart.push_back(Ms(event.restartTime));
                back.push_back(Ms(event.recoveryTime));
                delivered.push_back(Ms(event.deliveryTime));
                resent.push_back(double(event.resentFrames.size()));
                fromStandby += event.fromStandby ? 1 : 0;
            }
        }
        double standbyRss = 0, serviceRss = 0, standbyIdle = 0;
        for (const Run& run : quiet) {
            quietWall.push_back(run.wallMs);
            quietCpu.push_back(run.servicesCpuMs);
            missing += setup.frames - std::min(setup.frames, run.pictures);
            latency.insert(latency.end(), run.latencies.begin(), run.latencies.end());
            standbyRss = std::max(standbyRss, run.standbyRssMiB);
            serviceRss = std::max(serviceRss, run.serviceRssMiB);
            standbyIdle = std::max(standbyIdle, run.standbyIdleCpuMsPerS);
        }
        const double perKill = killed.empty() ? 0 : double(kills) / double(killed.size());
        double resentTotal = 0;
        for (double n : resent)
            resentTotal += n;

        std::printf("%ux%u x264 %s (2 threads), %llu pictures, service killed every %llu; %d encodes with kills, "
                    "%d without, alternated\n",
                    width, height, preset.c_str(), static_cast<unsigned long long>(setup.frames),
                    static_cast<unsigned long long>(setup.every), runs, runs);
        std::printf("one recovery (median / max of %zu):\n", back.size());
        std::printf("  fault noticed (from the failed command's start)      %7.1f / %7.1f ms\n", Median(detect),
                    Max(detect));
        std::printf("  a service ready again (the standby in %zu of %zu)        %7.1f / %7.1f ms after the fault\n",
                    fromStandby, back.size(), Median(restart), Max(restart));
        std::printf("  back where it was (%.1f pictures accepted again)     %7.1f / %7.1f ms after the fault "
                    "(target < 150 ms)\n",
                    back.empty() ? 0.0 : resentTotal / double(back.size()), Median(back), Max(back));
        std::printf("  every re-sent picture's packets handed out           %7.1f / %7.1f ms after the fault\n",
                    Median(delivered), Max(delivered));
        const double steadyCpu = Median(quietCpu) / double(setup.frames);
        std::printf("  the re-send's processor time in the new service     %7.1f / %7.1f ms (its start-up included): "
                    "%.1f pictures' worth at %.1f ms each in steady state\n",
                    Median(resendCpu), Max(resendCpu), steadyCpu > 0 ? Median(resendCpu) / steadyCpu : 0.0, steadyCpu);
        const double extraWall = (Median(killedWall) - Median(quietWall)) / std::max(perKill, 1.0);
        const double extraCpu = (Median(killedCpu) - Median(quietCpu)) / std::max(perKill, 1.0);
        std::printf("whole encode: %.0f ms without kills, %.0f ms with %.0f: %+.0f ms wall per kill; the services' "
                    "processor time %.0f ms and %.0f ms: %+.0f ms per kill\n",
                    Median(quietWall), Median(killedWall), perKill, extraWall, Median(quietCpu), Median(killedCpu),
                    extraCpu);
        std::printf("references: one picture %.1f ms in steady state; a picture's packets come out %.0f ms after it "
                    "is sent (median, no kills);\n  a cold start: service started %.1f ms, preset applied %.1f ms, "
                    "stream begun %.1f ms\n",
                    Median(quietWall) / double(setup.frames), Median(latency), Median(spawn), Median(presetLoad),
                    Median(begin));
        std::printf("the idle standby: %.0f MiB resident (the working service %.0f MiB), %.2f ms of processor time "
                    "per idle second\n",
                    standbyRss, serviceRss, standbyIdle);
        std::printf("pictures missing: %llu\n", static_cast<unsigned long long>(missing));
        return missing == 0 ? 0 : 1;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "recovery: %s\n", e.what());
        return 1;
    }
}
