// evc-encode's command line: what to read, what to write, and the encoder
// settings under the names the x264 and ffmpeg command lines use.
#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace evc {
namespace tools {

struct EncodeOptions {
    std::string input;        // a file libavformat reads, or "-"; empty with a test pattern
    std::string testPattern;  // WxH@FPS:SECONDS
    std::string output;       // a path, or "-" (standard output, needs format)
    std::string format;       // -f: empty means by the output's extension
    std::string codec;        // --codec: empty means h264
    std::string presetFile;   // --preset-file (or --preset FILE.xml)

    // Settings that override the preset file's; unset ones are left alone.
    std::optional<double> crf;
    std::optional<int32_t> bitrate;  // kbit/s
    std::string preset;              // the encoder's speed preset, e.g. "veryfast"
    std::string tune;
    std::string profile;
    std::optional<int32_t> keyint;
    std::optional<int32_t> threads;

    uint64_t frames = 0;      // 0: every picture
    uint64_t seekFrames = 0;  // pictures skipped at the start
    double seekSeconds = 0;   // --ss: start time in the input
    int maxRestarts = 3;
    // --chunk K/N: only the K-th (from 1) of N chunks, into an .evcseg file.
    uint32_t chunkIndex = 0;
    uint32_t chunkCount = 0;
    // Chunk lengths in pictures (0: no limit); boundaries stay within them.
    uint64_t minChunk = 0;
    uint64_t maxChunk = 0;
    // --chunk-plan: the chunk boundaries read from this file, or computed and
    // written to it when it does not exist (without -o: only that).
    std::string chunkPlan;
    // --join: segment files of chunks joined into the output.
    std::vector<std::string> joinInputs;
    // --audio-from: the chunks' input, whose audio the join copies.
    std::string audioFrom;
    // --jobs N: services in parallel, each on its own chunks.
    uint32_t jobs = 1;
    double timeoutSeconds = 0;  // 0: the client's own limits
    bool overwrite = false;
    bool noAudio = false;
    bool quiet = false;
    bool verbose = false;
    bool help = false;
    bool version = false;
    bool listCodecs = false;
};

// A command line that cannot be used; the text is one line.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

EncodeOptions ParseEncodeOptions(const std::vector<std::string>& arguments);
const char* EncodeUsage();

// "1:02:03.5", "62.5" or "90" as seconds; throws UsageError.
double ParseTime(const std::string& text);

// The preset file to read: the path itself when it exists; a bare name (or
// the default, CODEC-quality.xml) is looked up in EVC_PRESETS, then in the
// source tree's presets/ beside the build, then in the installed share
// folder. programFolder is the folder of the running executable.
std::string ResolvePresetPath(const std::string& preset, const std::string& codec, const std::string& programFolder);

}  // namespace tools
}  // namespace evc
