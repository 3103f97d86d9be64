// What a codec crash costs an encode session: a 1080p H.264 encode whose
// service is killed from outside (SIGKILL) every N pictures. Prints the
// recovery time (median and max: from the fault until every pending picture
// was encoded again) and its restart part (until a service was ready again)
// against a cold start of the same service measured in the same run, and the
// time one picture takes in steady state; the pictures re-sent, and the
// pictures missing from the output (must be 0).
//
// Usage: recovery [--frames=N] (default 120) [--every=N] (default 30)
//                 [--preset=NAME] (x264 preset, default veryfast) [--size=WxH] (default 1920x1080)
// The build dir comes from EVC_BUILD_DIR, else the parent of the folder this program runs from.

#include <linux/limits.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "evc/EncodeSession.h"
#include "evc/H264Codec.h"
#include "media/ZKImageLayout.h"

namespace {

using Clock = std::chrono::steady_clock;

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

// A moving gradient: cheap to make, not trivial to encode.
void Draw(std::vector<uint8_t>& bytes, uint32_t width, uint32_t height, uint64_t n)
{
    for (uint32_t y = 0; y < height; ++y)
        for (uint32_t x = 0; x < width; ++x)
            bytes[size_t(y) * width + x] = static_cast<uint8_t>((x ^ y) + 4 * n);
    std::fill(bytes.begin() + size_t(width) * height, bytes.end(), static_cast<uint8_t>(128 + n));
}

}  // namespace

int main(int argc, char** argv)
{
    const uint64_t frames = std::strtoull(Option(argc, argv, "--frames", "120"), nullptr, 10);
    const uint64_t every = std::max<uint64_t>(1, std::strtoull(Option(argc, argv, "--every", "30"), nullptr, 10));
    const std::string preset = Option(argc, argv, "--preset", "veryfast");
    unsigned width = 1920, height = 1080;
    std::sscanf(Option(argc, argv, "--size", "1920x1080"), "%ux%u", &width, &height);
    const std::string build = BuildDir();

    evc::SessionOptions options;
    options.client.servicePath = build + "/bin/evc-service";
    options.client.applicationFolder = build;
    options.client.largestFrameBytes = uint64_t(width) * height * 3 / 2;
    options.maxRestarts = 3;
    const std::string presetXml =
        "<Output><VideoCompressor Manufacture4cc=\"" + std::to_string(evc::h264::kManufacturer) + "\" Codec4cc=\"" +
        std::to_string(evc::h264::kCodec) + "\"><NonStandardSettings><Preset Type=\"eEnum\" Value=\"" + preset +
        "\"/><Threads Type=\"eInt\" Value=\"2\"/></NonStandardSettings>"
        "</VideoCompressor></Output>";

    std::vector<uint8_t> pixels(options.client.largestFrameBytes);
    ZKEncImage_t picture{};
    if (InitZKImage(&picture.image, static_cast<uint32_t>(pixels.size()), pixels.data(), eColorFormatYUV420Planar,
                    false, static_cast<int>(width), static_cast<int>(height), false, 0, 25) != 0) {
        std::fprintf(stderr, "recovery: no layout for %ux%u\n", width, height);
        return 1;
    }
    ZKEncImage_t description = picture;
    description.image.planes[0] = description.image.planes[1] = description.image.planes[2] = nullptr;
    description.image.dataSize = 0;

    try {
        // The reference: a cold start of the same service with the same preset.
        std::vector<double> starts;
        for (int i = 0; i < 3; ++i) {
            const auto start = Clock::now();
            evc::EncodeSession cold(options, presetXml, description);
            starts.push_back(std::chrono::duration<double, std::milli>(Clock::now() - start).count());
        }

        evc::EncodeSession session(options, presetXml, description);
        std::vector<evc::EncodedFrame> out;
        const auto begin = Clock::now();
        for (uint64_t n = 0; n < frames; ++n) {
            if (n > 0 && n % every == 0)
                kill(session.servicePid(), SIGKILL);
            Draw(pixels, width, height, n);
            picture.image.time = n;
            session.Encode(picture, n == 0, n + 1 == frames, out);
        }
        session.Close();
        const double seconds = std::chrono::duration<double>(Clock::now() - begin).count();

        uint64_t pictures = 0;
        for (const evc::EncodedFrame& frame : out)
            pictures += frame.packets.size();
        std::vector<double> recoveries;
        std::vector<double> restarts;
        uint64_t resent = 0;
        for (const evc::RecoveryEvent& event : session.recoveries()) {
            recoveries.push_back(event.recoveryTime.count() / 1000.0);
            restarts.push_back(event.restartTime.count() / 1000.0);
            resent += event.resentFrames.size();
        }
        const double median = Median(recoveries);
        const double worst = recoveries.empty() ? 0 : *std::max_element(recoveries.begin(), recoveries.end());
        std::printf("%ux%u x264 %s, %llu pictures in %.1f s, service killed every %llu pictures\n", width, height,
                    preset.c_str(), static_cast<unsigned long long>(frames), seconds,
                    static_cast<unsigned long long>(every));
        std::printf("recoveries: %zu, recovery time median %.1f ms, max %.1f ms (target < 150 ms)\n", recoveries.size(),
                    median, worst);
        std::printf("of which restart (a service ready again): median %.1f ms, max %.1f ms\n", Median(restarts),
                    restarts.empty() ? 0 : *std::max_element(restarts.begin(), restarts.end()));
        std::printf("references: cold start of the service %.1f ms (recovery / cold start = %.2f), "
                    "one picture %.1f ms on average\n",
                    Median(starts), Median(starts) > 0 ? median / Median(starts) : 0.0, 1000 * seconds / frames);
        std::printf("pictures re-sent: %llu (%.1f per recovery); pictures missing: %lld\n",
                    static_cast<unsigned long long>(resent),
                    recoveries.empty() ? 0.0 : double(resent) / recoveries.size(),
                    static_cast<long long>(frames) - static_cast<long long>(pictures));
        return pictures == frames ? 0 : 1;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "recovery: %s\n", e.what());
        return 1;
    }
}
