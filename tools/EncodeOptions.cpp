#include "tools/EncodeOptions.h"

#include <unistd.h>

#include <cstdlib>

namespace evc {
namespace tools {

namespace {

constexpr char kDefaultPreset[] = "h264-quality.xml";

bool Readable(const std::string& path)
{
    return access(path.c_str(), R_OK) == 0;
}

}  // namespace

const char* EncodeUsage()
{
    return "usage: evc-encode [options] INPUT.y4m -o OUTPUT\n"
           "       evc-encode [options] --test-pattern WxH@FPS:SECONDS -o OUTPUT\n"
           "\n"
           "  INPUT.y4m               8-bit 4:2:0 YUV4MPEG2 video; - reads standard input\n"
           "  -o, --output FILE       .h264 (Annex-B stream) or .evcseg (intermediate segment file)\n"
           "  --preset FILE.xml       compressor and settings (default: presets/h264-quality.xml)\n"
           "  --test-pattern PATTERN  encode a moving test pattern instead of a file, e.g. 640x360@25:4\n"
           "  -q, --quiet             no progress and no summary\n"
           "  -h, --help              this text\n";
}

EncodeOptions ParseEncodeOptions(const std::vector<std::string>& arguments)
{
    EncodeOptions options;
    bool optionsEnded = false;
    for (size_t i = 0; i < arguments.size(); ++i) {
        const std::string& argument = arguments[i];
        auto value = [&](const std::string& name) -> std::string {
            if (i + 1 >= arguments.size())
                throw UsageError(name + " needs a value");
            return arguments[++i];
        };
        if (optionsEnded || argument == "-" || argument.empty() || argument[0] != '-') {
            if (!options.input.empty())
                throw UsageError("more than one input: " + options.input + " and " + argument);
            options.input = argument;
        } else if (argument == "--") {
            optionsEnded = true;
        } else if (argument == "-o" || argument == "--output") {
            options.output = value(argument);
        } else if (argument == "--preset") {
            options.preset = value(argument);
        } else if (argument == "--test-pattern") {
            options.testPattern = value(argument);
        } else if (argument == "-q" || argument == "--quiet") {
            options.quiet = true;
        } else if (argument == "-h" || argument == "--help") {
            options.help = true;
        } else {
            throw UsageError("unknown option " + argument);
        }
    }
    if (options.help)
        return options;
    if (options.input.empty() == options.testPattern.empty())
        throw UsageError(options.input.empty() ? "no input (give INPUT.y4m, - or --test-pattern)"
                                               : "give either an input or --test-pattern, not both");
    if (options.output.empty())
        throw UsageError("no output (-o OUTPUT.h264 or -o OUTPUT.evcseg)");
    return options;
}

std::string ResolvePresetPath(const std::string& preset, const std::string& programFolder)
{
    const std::string name = preset.empty() ? kDefaultPreset : preset;
    if (!preset.empty() && (Readable(preset) || preset.find('/') != std::string::npos))
        return preset;

    std::vector<std::string> folders;
    if (const char* fromEnvironment = std::getenv("EVC_PRESETS"); fromEnvironment != nullptr && *fromEnvironment)
        folders.push_back(fromEnvironment);
    folders.push_back(programFolder + "/../../presets");         // build/bin in the source tree
    folders.push_back(programFolder + "/../share/evc/presets");  // installed
    for (const std::string& folder : folders)
        if (Readable(folder + "/" + name))
            return folder + "/" + name;
    // Not found anywhere: the name as given, so the error names it.
    return name;
}

}  // namespace tools
}  // namespace evc
