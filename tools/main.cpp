// evc-encode: any video in, a compressed file out, through evc-service.
#include <linux/limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <iostream>
#include <string>
#include <vector>

#include "evc/Codecs.h"
#include "tools/ChunkJoin.h"
#include "tools/ChunkPlan.h"
#include "tools/CodecList.h"
#include "tools/EncodeOptions.h"
#include "tools/Encoder.h"
#include "tools/Interrupts.h"
#include "tools/LibavHandles.h"
#include "tools/MediaSource.h"
#include "tools/ParallelEncode.h"
#include "tools/PresetDocument.h"
#include "tools/Progress.h"

#ifndef EVC_VERSION
#define EVC_VERSION "0.0"
#endif

namespace {

using namespace evc::tools;

constexpr int kInterruptedStatus = 130;

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

std::string Number(double value)
{
    char text[32];
    std::snprintf(text, sizeof text, "%.17g", value);
    return text;
}

// The command line's settings, and the source's frame rate, over the
// preset's.
std::vector<SettingOverride> Overrides(const EncodeOptions& o, const VideoFormat& format)
{
    std::vector<SettingOverride> list;
    if (o.crf) {
        list.push_back({true, "Bitrate", "eInt", "0"});
        list.push_back({false, "CRF", "eDouble", Number(*o.crf)});
    }
    if (o.bitrate)
        list.push_back({true, "Bitrate", "eInt", std::to_string(*o.bitrate)});
    if (o.keyint)
        list.push_back({true, "KeyFrameInterval", "eInt", std::to_string(*o.keyint)});
    if (!o.preset.empty())
        list.push_back({false, "Preset", "eEnum", o.preset});
    if (!o.tune.empty())
        list.push_back({false, "Tune", "eEnum", o.tune});
    if (!o.profile.empty())
        list.push_back({false, "Profile", "eEnum", o.profile});
    if (o.threads)
        list.push_back({false, "Threads", "eInt", std::to_string(*o.threads)});
    // What the source says about its pictures, for codecs that signal it.
    if (format.sarNum != 0) {
        list.push_back({false, "SarWidth", "eInt", std::to_string(format.sarNum)});
        list.push_back({false, "SarHeight", "eInt", std::to_string(format.sarDen)});
    }
    list.push_back({false, "ColourPrimaries", "eInt", std::to_string(format.colorPrimaries)});
    list.push_back({false, "TransferCharacteristics", "eInt", std::to_string(format.colorTransfer)});
    list.push_back({false, "MatrixCoefficients", "eInt", std::to_string(format.colorMatrix)});
    list.push_back({false, "FullRange", "eBool", format.colorRange == AVCOL_RANGE_JPEG ? "True" : "False"});
    const int fields = format.fieldOrder;
    list.push_back({false, "FieldOrder", "eEnum",
                    fields == AV_FIELD_TT || fields == AV_FIELD_BT   ? "tff"
                    : fields == AV_FIELD_BB || fields == AV_FIELD_TB ? "bff"
                                                                     : "progressive"});
    if (!format.variableRate && format.fpsNum != 0 && format.fpsDen != 0)
        list.push_back({false, "FrameRate", "eDouble", Number(double(format.fpsNum) / format.fpsDen)});
    return list;
}

// The colour formats a compressor takes as they are; 8-bit 4:2:0 for one we
// do not ship.
std::vector<uint32_t> AcceptedFormats(uint32_t codec)
{
    const evc::ShippedCodec* shipped = evc::FindShippedCodec(codec);
    if (shipped == nullptr)
        return {6};
    return {shipped->inputColorFormats, shipped->inputColorFormats + shipped->inputColorFormatCount};
}

// What a chunk plan is computed from: the input (as far as a file can be
// told apart cheaply) and the options that move the boundaries.
std::string PlanBasis(const EncodeOptions& o)
{
    struct stat info {};
    const bool known = !o.input.empty() && stat(o.input.c_str(), &info) == 0;
    const size_t slash = o.input.rfind('/');
    return std::to_string(o.chunkCount) + " chunks of " +
           (o.input.empty() ? o.testPattern : o.input.substr(slash == std::string::npos ? 0 : slash + 1)) + " (" +
           std::to_string(known ? uint64_t(info.st_size) : 0) + " bytes, modified " +
           std::to_string(known ? int64_t(info.st_mtime) : 0) + ") --ss " + Number(o.seekSeconds) + " --seek " +
           std::to_string(o.seekFrames) + " --frames " + std::to_string(o.frames) + " --min-chunk " +
           std::to_string(o.minChunk) + " --max-chunk " + std::to_string(o.maxChunk);
}

int Join(const EncodeOptions& options, const std::string& format, const std::string& outputName)
{
    try {
        const auto chunks = OrderChunks(options.joinInputs);
        OutputPlan output;
        output.path = options.output;
        output.format = format;
        output.overwrite = options.overwrite;
        output.codec = chunks.front().second.codec;
        if (!FormatHoldsVideo(format, output.codec))
            return Fail(outputName + ": the " + format + " format cannot hold " +
                        (CodecName(output.codec).empty() ? "this compressor's" : CodecName(output.codec)) + " video");
        // The audio is the input's, read once more; only the first picture
        // is decoded, to place it on the pictures' clock.
        std::optional<SceneScan> audio;
        if (!options.audioFrom.empty() && !options.noAudio) {
            InputPlan plan;
            plan.path = options.audioFrom;
            plan.seekFrames = options.seekFrames;
            plan.seekSeconds = options.seekSeconds;
            plan.audioOnly = true;
            plan.audioAccepted = [format](const AVCodecParameters& audio) { return FormatHoldsAudio(format, audio); };
            plan.acceptedFormats = AcceptedFormats(output.codec);
            try {
                audio = ScanScenes(*OpenMediaSource(plan));
                // Cut where an encode with --frames stops, unless the input
                // ended first.
                audio->toPictureEnd = options.frames != 0 && chunks.front().second.totalFrames >= options.frames;
            } catch (const InputError& e) {
                return Fail(options.audioFrom + ": " + e.what());
            }
        }
        VideoFormat video = chunks.front().second.format;
        video.expectedFrames = chunks.front().second.totalFrames;
        Progress progress(std::cerr, !options.quiet, video);
        const JoinResult result = JoinChunks(options.joinInputs, output, &progress, audio ? &*audio : nullptr);
        progress.finish(result.frames, result.bytes, outputName);
        return 0;
    } catch (const EncodeAbandoned& e) {
        return Fail(std::string(e.what()) + "; nothing was written", kInterruptedStatus);
    } catch (const std::exception& e) {
        return Fail(e.what());
    }
}

int Run(const EncodeOptions& options)
{
    const std::string outputName = options.output == "-" ? "standard output" : options.output;
    // Without an output a chunk's encode writes its plan file only.
    const std::string format = options.output.empty() ? "evcseg" : OutputFormat(options.output, options.format);
    if (format.empty())
        return Fail(options.format.empty()
                        ? "cannot tell the output format of " + options.output +
                              " (use .mkv, .webm, .mp4, .mov, .h264 or .evcseg, or -f)"
                        : "unknown output format " + options.format + " (mkv, webm, mp4, mov, h264 or evcseg)",
                    2);
    if (format == "evcseg" && options.output == "-")
        return Fail("an .evcseg file cannot be written to standard output", 2);
    if (!options.codec.empty() && !options.presetFile.empty())
        return Fail("give either --codec or --preset-file, not both", 2);
    if (!options.joinInputs.empty())
        return Join(options, format, outputName);
    if ((options.chunkCount != 0 || options.jobs > 1) && options.input == "-")
        return Fail("chunks need an input that can be read more than once, not standard input", 2);
    if (options.chunkCount != 0 && format != "evcseg" && !options.output.empty())
        return Fail("--chunk writes an .evcseg file (join the chunks with --join)", 2);

    std::unique_ptr<Progress> progress;
    try {
        const std::string presetPath = ResolvePresetPath(options.presetFile, options.codec, ProgramFolder());
        PresetDocument preset = ReadPresetFile(presetPath);
        if (!options.codec.empty() && CodecName(preset.codec()) != options.codec && !CodecName(preset.codec()).empty())
            return Fail("preset " + presetPath + " is for " + CodecName(preset.codec()) + ", not " + options.codec);

        OutputPlan output;
        output.path = options.output;
        output.format = format;
        output.overwrite = options.overwrite;
        output.codec = preset.codec();
        if (!FormatHoldsVideo(format, preset.codec()))
            return Fail(outputName + ": the " + format + " format cannot hold " +
                        (CodecName(preset.codec()).empty() ? "this compressor's" : CodecName(preset.codec())) +
                        " video");

        const std::string inputName = !options.testPattern.empty() ? "test pattern"
                                      : options.input == "-"       ? "standard input"
                                                                   : options.input;
        // The whole input (with its audio), or the pictures of one chunk from
        // the given time on.
        auto openSource = [&](std::optional<uint64_t> chunkStart) -> std::unique_ptr<FrameSource> {
            if (!options.testPattern.empty()) {
                TestPatternPlan plan = ParseTestPattern(options.testPattern);
                if (options.frames != 0 && options.frames < plan.frames)
                    plan.frames = plan.format.expectedFrames = options.frames;
                return MakeTestPatternSource(plan);
            }
            InputPlan plan;
            plan.path = options.input;
            plan.copyAudio = !options.noAudio && !chunkStart;
            plan.chunkStart = chunkStart.value_or(0);
            plan.seekFrames = options.seekFrames;
            plan.seekSeconds = options.seekSeconds;
            plan.maxFrames = options.frames;
            plan.verbose = options.verbose;
            plan.audioAccepted = [format](const AVCodecParameters& audio) { return FormatHoldsAudio(format, audio); };
            plan.acceptedFormats = AcceptedFormats(preset.codec());
            return OpenMediaSource(plan);
        };
        std::unique_ptr<FrameSource> source;
        ChunkLimits limits{options.minChunk, options.maxChunk};
        try {
            if (options.chunkCount != 0) {
                // The scene changes are read once per input where a plan file
                // keeps them; the chunk then decodes from the key picture
                // before its own pictures, not from the start.
                const std::string basis = PlanBasis(options);
                std::optional<ChunkBounds> bounds;
                if (!options.chunkPlan.empty())
                    bounds = ReadChunkPlan(options.chunkPlan, basis, options.chunkCount);
                if (!bounds) {
                    bounds = PlanChunks(ScanScenes(*openSource(0)), options.chunkCount, limits);
                    if (!options.chunkPlan.empty())
                        WriteChunkPlan(options.chunkPlan, basis, *bounds);
                }
                if (options.output.empty())
                    return 0;  // the plan alone
                const uint32_t k = options.chunkIndex - 1;
                const uint64_t first = bounds->starts[k];
                const uint64_t end = k + 1 < bounds->starts.size() ? bounds->starts[k + 1] : bounds->total;
                source = MakeChunkSource(openSource(bounds->times[k]), bounds->times[k], end - first);
                ChunkTrailer chunk;
                chunk.index = k;
                chunk.count = options.chunkCount;
                chunk.first = first;
                chunk.frames = end - first;
                chunk.totalFrames = bounds->total;
                chunk.codec = preset.codec();
                chunk.format = source->format();
                output.chunk = chunk;
            } else {
                source = openSource(std::nullopt);
            }
        } catch (const std::invalid_argument& e) {
            return Fail(e.what(), 2);
        } catch (const InputError& e) {
            return Fail(inputName + ": " + e.what());
        }
        preset.apply(Overrides(options, source->format()));
        if (options.verbose)
            std::cerr << "evc-encode: preset " << presetPath << " as sent:\n" << preset.text() << "\n";

        EncodeJob job;
        job.presetXml = preset.text();
        job.presetName = presetPath;
        job.output = output;
        job.client.applicationName = "evc-encode";
        job.maxRestarts = options.maxRestarts;
        if (options.timeoutSeconds > 0)
            job.client.commandTimeout = std::chrono::milliseconds(int64_t(options.timeoutSeconds * 1000));
        progress = std::make_unique<Progress>(std::cerr, !options.quiet, source->format());
        EncodeResult result;
        if (options.jobs > 1) {
            source.reset();
            ParallelPlan parallel;
            parallel.jobs = options.jobs;
            parallel.limits = limits;
            parallel.openSource = openSource;
            parallel.job = job;
            if (options.verbose)
                parallel.timeline = &std::cerr;
            try {
                result = EncodeInParallel(parallel, *progress);
            } catch (const InputError& e) {
                progress->abandon();
                return Fail(inputName + ": " + e.what());
            }
        } else {
            // A reader thread may still wait on a pipe after an interruption:
            // the source is left to the process's exit.
            try {
                result = Encode(*source, job, *progress);
            } catch (const InputError& e) {
                source.release();
                progress->abandon();
                return Fail(inputName + ": " + e.what());
            } catch (...) {
                source.release();
                throw;
            }
            source.release();
        }
        if (result.interrupted && output.chunk) {
            // A chunk is whole or absent, so that a re-run encodes it again.
            std::remove(options.output.c_str());
            progress->abandon();
            return Fail("interrupted; the chunk was not written", kInterruptedStatus);
        }
        progress->finish(result.frames, result.bytes, outputName);
        if (result.interrupted) {
            if (!options.quiet)
                std::cerr << "evc-encode: interrupted; " << outputName << " holds the " << result.frames
                          << " pictures done\n";
            return kInterruptedStatus;
        }
        return 0;
    } catch (const EncodeAbandoned& e) {
        if (progress)
            progress->abandon();
        return Fail(std::string(e.what()) + "; nothing was written", kInterruptedStatus);
    } catch (const std::exception& e) {
        if (progress)
            progress->abandon();
        if (InterruptCount() >= 2)
            return Fail("interrupted; nothing was written", kInterruptedStatus);
        return Fail(e.what());
    }
}

}  // namespace

int main(int argc, char** argv)
{
    InstallInterrupts();
    // A reader that goes away (evc-encode -o - | head) is a write error
    // reported like any other, with the service shut down, not a silent death.
    signal(SIGPIPE, SIG_IGN);
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
    if (options.version) {
        std::cout << "evc-encode " << EVC_VERSION << " (" << LIBAVFORMAT_IDENT << ")\n";
        return 0;
    }
    // libav's own messages only when asked for: failures are reported here.
    av_log_set_level(options.verbose ? AV_LOG_WARNING : AV_LOG_QUIET);
    if (options.listCodecs)
        return ListCodecs(std::cout, std::cerr);
    const int status = Run(options);
    // Threads that still wait on input are not waited for.
    std::cout.flush();
    std::fflush(nullptr);
    _exit(status);
}
