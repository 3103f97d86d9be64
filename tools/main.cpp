// evc-encode: raw video in, compressed video out, through evc-service.
#include <linux/limits.h>
#include <unistd.h>

#include <iostream>
#include <string>
#include <vector>

#include "tools/EncodeOptions.h"
#include "tools/Encoder.h"
#include "tools/FrameSource.h"
#include "tools/Progress.h"

namespace {

std::string ProgramFolder()
{
    char path[PATH_MAX];
    const ssize_t n = readlink("/proc/self/exe", path, sizeof path - 1);
    const std::string text = n > 0 ? std::string(path, static_cast<size_t>(n)) : std::string(".");
    const size_t slash = text.rfind('/');
    return slash == std::string::npos ? "." : text.substr(0, slash);
}

// Failures are reported on one line: a service's last words are folded in.
std::string OneLine(const std::string& text)
{
    std::string line;
    for (char c : text)
        line += c == '\n' ? ' ' : c;
    while (!line.empty() && line.back() == ' ')
        line.pop_back();
    return line;
}

int Fail(const std::string& message, int status = 1)
{
    std::cerr << "evc-encode: " << OneLine(message) << std::endl;
    return status;
}

}  // namespace

int main(int argc, char** argv)
{
    using namespace evc::tools;
    // Pictures from standard input are read in large blocks, not through stdio.
    std::ios::sync_with_stdio(false);
    EncodeOptions options;
    try {
        options = ParseEncodeOptions(std::vector<std::string>(argv + 1, argv + argc));
    } catch (const UsageError& e) {
        return Fail(std::string(e.what()) + " (evc-encode --help shows the usage)", 2);
    }
    if (options.help) {
        std::cout << EncodeUsage();
        return 0;
    }

    std::unique_ptr<Progress> progress;
    try {
        std::unique_ptr<FrameSource> source;
        uint64_t expectedFrames = 0;
        if (!options.testPattern.empty()) {
            const TestPatternPlan plan = ParseTestPattern(options.testPattern);
            expectedFrames = plan.frames;
            source = MakeTestPatternSource(plan);
        } else {
            source = OpenY4mSource(options.input);
        }
        EncodeJob job;
        job.presetPath = ResolvePresetPath(options.preset, ProgramFolder());
        job.outputPath = options.output;
        job.client.applicationName = "evc-encode";
        progress = std::make_unique<Progress>(std::cerr, !options.quiet, source->format(), expectedFrames);
        const EncodeResult result = Encode(*source, job, *progress);
        progress->finish(result.frames, result.bytes, options.output);
        return 0;
    } catch (const Y4mError& e) {
        if (progress)
            progress->abandon();
        return Fail(options.input == "-" ? std::string("standard input: ") + e.what()
                                         : options.input + ": " + e.what());
    } catch (const std::exception& e) {
        if (progress)
            progress->abandon();
        return Fail(e.what());
    }
}
