// Parses evc-encode's arguments; everything that cannot be used is a
// UsageError (status 2), checked before any file is touched.
#include "tools/EncodeOptions.h"

#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstdlib>

namespace evc {
namespace tools {

namespace {

bool Readable(const std::string& path)
{
    return access(path.c_str(), R_OK) == 0;
}

bool EndsWith(const std::string& text, const std::string& suffix)
{
    return text.size() >= suffix.size() && text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

double ParseNumber(const std::string& name, const std::string& text, double low, double high)
{
    char* end = nullptr;
    errno = 0;
    const double value = std::strtod(text.c_str(), &end);
    if (text.empty() || *end != '\0' || errno != 0 || !(value >= low && value <= high))
        throw UsageError(name + " takes a number from " + std::to_string(int64_t(low)) + " to " +
                         std::to_string(int64_t(high)) + ", not \"" + text + "\"");
    return value;
}

int32_t ParseWhole(const std::string& name, const std::string& text, int32_t low, int32_t high)
{
    const double value = ParseNumber(name, text, low, high);
    if (value != std::floor(value))
        throw UsageError(name + " takes a whole number, not \"" + text + "\"");
    return static_cast<int32_t>(value);
}

}  // namespace

const char* EncodeUsage()
{
    return "usage: evc-encode [options] INPUT -o OUTPUT\n"
           "       evc-encode [options] --test-pattern WxH@FPS:SECONDS -o OUTPUT\n"
           "       evc-encode [options] --chunk K/N [--chunk-plan FILE] INPUT [-o PART.evcseg]\n"
           "       evc-encode [options] --join PART.evcseg... -o OUTPUT\n"
           "       evc-encode --list-codecs | --version | --help\n"
           "\n"
           "Input and output\n"
           "  INPUT                   any video file or pipe ffmpeg reads (.mp4 .mkv .mov .webm .y4m ...); - is stdin\n"
           "  --test-pattern PATTERN  a moving test pattern instead of a file, e.g. 640x360@25:4\n"
           "  -o, --output FILE       .mkv .webm .mp4 .mov (containers), .h264/.264 (raw stream), .evcseg\n"
           "                          (intermediate segment file); - is stdout and needs -f\n"
           "  -f FORMAT               mkv, webm, mp4, mov, h264 or evcseg, whatever the extension\n"
           "  -y, --overwrite         replace an existing output (without it an existing file is kept)\n"
           "  --no-audio              leave the input's audio out (by default it is copied unchanged)\n"
           "  --frames N              encode at most N pictures\n"
           "  --seek N                skip the first N pictures\n"
           "  --ss TIME               start at TIME in the input (seconds or [[H:]M:]S[.frac])\n"
           "\n"
           "Encoder\n"
           "  --codec NAME            h264 (default), hevc, vp9 or av1: the plug-in and its quality preset\n"
           "  --preset-file FILE.xml  the compressor and its settings (default: presets/CODEC-quality.xml);\n"
           "                          the options below override the file's settings\n"
           "  --crf N                 constant quality (lower is better; 18 is visually lossless)\n"
           "  --bitrate KBITS         target bit rate in kbit/s instead of constant quality\n"
           "  --preset NAME           speed preset: ultrafast ... veryslow (a FILE.xml means --preset-file)\n"
           "  --tune NAME             e.g. film, animation, grain, zerolatency\n"
           "  --profile NAME          e.g. baseline, main, high\n"
           "  --keyint N              at most N pictures between key frames\n"
           "  --threads N             encoder threads (0: automatic)\n"
           "  --list-codecs           the installed plug-ins, their codes and settings\n"
           "\n"
           "Service\n"
           "  --max-restarts N        restarts of a crashed service before giving up (0: fail at once)\n"
           "  --timeout SECONDS       longest wait for one command of the service\n"
           "\n"
           "Chunks (one video on many services or machines)\n"
           "  --chunk K/N             encode only the K-th of N chunks into an .evcseg file; chunks\n"
           "                          start at scene changes, the same ones on every machine\n"
           "  --join SEG...           join the chunks' .evcseg files, in order, into the output\n"
           "  --audio-from INPUT      with --join: the chunks' input, whose audio is copied (give\n"
           "                          the chunks' --ss, --seek and --frames too)\n"
           "  --jobs N                N services in parallel on one machine, each on its own chunks\n"
           "  --chunk-plan FILE       with --chunk: the boundaries from FILE, or found and written\n"
           "                          there for the other chunks (without -o: only that)\n"
           "  --min-chunk N           no chunk shorter than N pictures (where the input allows)\n"
           "  --max-chunk N           no chunk longer than N pictures (where the chunk count allows)\n"
           "\n"
           "  -q, --quiet             no progress and no summary\n"
           "  -v, --verbose           say what is chosen and converted\n"
           "  --version               the version\n"
           "  -h, --help              this text\n"
           "\n"
           "Exit status: 0 done, 1 failed (one line on stderr, no output file), 2 bad command line,\n"
           "130 interrupted (a first Ctrl-C finishes a playable file of the pictures done).\n";
}

double ParseTime(const std::string& text)
{
    double seconds = 0;
    size_t start = 0;
    int parts = 0;
    while (true) {
        const size_t colon = text.find(':', start);
        const std::string part = text.substr(start, colon == std::string::npos ? std::string::npos : colon - start);
        const bool last = colon == std::string::npos;
        if (part.empty() || part.find_first_not_of(last ? "0123456789." : "0123456789") != std::string::npos ||
            ++parts > 3)
            throw UsageError("--ss takes seconds or [[H:]M:]S, not \"" + text + "\"");
        seconds = seconds * 60 + std::strtod(part.c_str(), nullptr);
        if (last)
            break;
        start = colon + 1;
    }
    if (!std::isfinite(seconds) || seconds > 1e7)
        throw UsageError("--ss takes seconds or [[H:]M:]S, not \"" + text + "\"");
    return seconds;
}

EncodeOptions ParseEncodeOptions(const std::vector<std::string>& arguments)
{
    EncodeOptions o;
    bool optionsEnded = false;
    bool haveOutput = false;
    bool join = false;
    std::vector<std::string> inputs;
    for (size_t i = 0; i < arguments.size(); ++i) {
        const std::string& a = arguments[i];
        auto value = [&]() -> std::string {
            if (i + 1 >= arguments.size())
                throw UsageError(a + " needs a value");
            return arguments[++i];
        };
        if (optionsEnded || a == "-" || a.empty() || a[0] != '-') {
            inputs.push_back(a);
        } else if (a == "--") {
            optionsEnded = true;
        } else if (a == "-o" || a == "--output") {
            o.output = value();
            haveOutput = true;
        } else if (a == "-f" || a == "--format") {
            o.format = value();
        } else if (a == "--codec") {
            o.codec = value();
        } else if (a == "--preset-file") {
            o.presetFile = value();
        } else if (a == "--preset") {
            // Today's presets are files; an x264 speed name is not.
            const std::string v = value();
            (EndsWith(v, ".xml") ? o.presetFile : o.preset) = v;
        } else if (a == "--crf") {
            o.crf = ParseNumber(a, value(), 0, 63);
        } else if (a == "--bitrate") {
            o.bitrate = ParseWhole(a, value(), 1, 2000000);
        } else if (a == "--tune") {
            o.tune = value();
        } else if (a == "--profile") {
            o.profile = value();
        } else if (a == "--keyint") {
            o.keyint = ParseWhole(a, value(), 1, 100000);
        } else if (a == "--threads") {
            o.threads = ParseWhole(a, value(), 0, 128);
        } else if (a == "--frames") {
            o.frames = static_cast<uint64_t>(ParseWhole(a, value(), 1, INT32_MAX));
        } else if (a == "--seek") {
            o.seekFrames = static_cast<uint64_t>(ParseWhole(a, value(), 0, INT32_MAX));
        } else if (a == "--ss") {
            o.seekSeconds = ParseTime(value());
        } else if (a == "--max-restarts") {
            o.maxRestarts = ParseWhole(a, value(), 0, 100);
        } else if (a == "--timeout") {
            o.timeoutSeconds = ParseNumber(a, value(), 1, 86400);
        } else if (a == "--chunk") {
            const std::string v = value();
            const size_t slash = v.find('/');
            if (slash == std::string::npos)
                throw UsageError("--chunk takes K/N, not \"" + v + "\"");
            o.chunkCount = uint32_t(ParseWhole(a, v.substr(slash + 1), 1, 100000));
            o.chunkIndex = uint32_t(ParseWhole(a, v.substr(0, slash), 1, int32_t(o.chunkCount)));
        } else if (a == "--min-chunk") {
            o.minChunk = uint64_t(ParseWhole(a, value(), 1, INT32_MAX));
        } else if (a == "--max-chunk") {
            o.maxChunk = uint64_t(ParseWhole(a, value(), 1, INT32_MAX));
        } else if (a == "--chunk-plan") {
            o.chunkPlan = value();
        } else if (a == "--jobs") {
            o.jobs = uint32_t(ParseWhole(a, value(), 1, 256));
        } else if (a == "--join") {
            join = true;
        } else if (a == "--audio-from") {
            o.audioFrom = value();
        } else if (a == "--test-pattern") {
            o.testPattern = value();
        } else if (a == "-y" || a == "--overwrite") {
            o.overwrite = true;
        } else if (a == "--no-audio") {
            o.noAudio = true;
        } else if (a == "-q" || a == "--quiet") {
            o.quiet = true;
        } else if (a == "-v" || a == "--verbose") {
            o.verbose = true;
        } else if (a == "-h" || a == "--help") {
            o.help = true;
        } else if (a == "--version") {
            o.version = true;
        } else if (a == "--list-codecs") {
            o.listCodecs = true;
        } else {
            throw UsageError("unknown option " + a);
        }
    }
    if (o.help || o.version || o.listCodecs)
        return o;
    if (join) {
        if (inputs.empty())
            throw UsageError("--join needs the segment files of the chunks");
        if (!o.testPattern.empty() || o.chunkCount != 0 || o.jobs != 1)
            throw UsageError("--join takes segment files only, without --test-pattern, --chunk or --jobs");
        o.joinInputs = inputs;
        if (o.audioFrom == "-")
            throw UsageError("--audio-from needs a file, not standard input");
        if (o.output.empty())
            throw UsageError("no output (-o OUTPUT.mkv, .mp4, .h264, ...)");
        return o;
    }
    if (!o.audioFrom.empty())
        throw UsageError("--audio-from goes with --join (an encode copies its own input's audio)");
    if (inputs.size() > 1)
        throw UsageError("more than one input: " + inputs[0] + " and " + inputs[1]);
    if (!inputs.empty())
        o.input = inputs[0];
    if (o.chunkCount != 0 && o.jobs != 1)
        throw UsageError("give either --chunk or --jobs, not both");
    if (!o.chunkPlan.empty() && o.chunkCount == 0)
        throw UsageError("--chunk-plan goes with --chunk K/N");
    if (o.minChunk != 0 && o.maxChunk != 0 && o.minChunk > o.maxChunk)
        throw UsageError("--min-chunk is above --max-chunk");
    if (o.input.empty() == o.testPattern.empty())
        throw UsageError(o.input.empty() ? "no input (give INPUT, - or --test-pattern)"
                                         : "give either an input or --test-pattern, not both");
    if ((!haveOutput || o.output.empty()) && o.chunkPlan.empty())
        throw UsageError("no output (-o OUTPUT.mkv, .mp4, .h264, ...)");
    if (o.output == "-" && o.format.empty())
        throw UsageError("-o - writes to standard output and needs -f FORMAT");
    if (o.crf && o.bitrate)
        throw UsageError("give either --crf or --bitrate, not both");
    return o;
}

std::string ResolvePresetPath(const std::string& preset, const std::string& codec, const std::string& programFolder)
{
    const std::string name = preset.empty() ? (codec.empty() ? "h264" : codec) + "-quality.xml" : preset;
    if (!preset.empty() && (Readable(preset) || preset.find('/') != std::string::npos))
        return preset;

    std::vector<std::string> folders;
    if (const char* fromEnvironment = std::getenv("EVC_PRESETS"); fromEnvironment != nullptr && *fromEnvironment)
        folders.push_back(fromEnvironment);
    folders.push_back(programFolder + "/../../presets");               // build/bin in the source tree
    folders.push_back(programFolder + "/" EVC_PRESETDIR_FROM_BINDIR);  // installed
    for (const std::string& folder : folders)
        if (Readable(folder + "/" + name))
            return folder + "/" + name;
    // Not found anywhere: the name as given, so the error names it.
    return name;
}

}  // namespace tools
}  // namespace evc
