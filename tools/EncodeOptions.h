// evc-encode's command line.
#pragma once

#include <stdexcept>
#include <string>
#include <vector>

namespace evc {
namespace tools {

struct EncodeOptions {
    std::string input;        // YUV4MPEG2 path or "-"; empty with a test pattern
    std::string testPattern;  // WxH@FPS:SECONDS
    std::string output;
    std::string preset;  // empty: the bundled quality preset
    bool quiet = false;
    bool help = false;
};

// A command line that cannot be used; the text is one line.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

EncodeOptions ParseEncodeOptions(const std::vector<std::string>& arguments);
const char* EncodeUsage();

// The preset file to read: the path itself when it exists; a bare name (or
// the default, "h264-quality.xml") is looked up in EVC_PRESETS, then in the
// source tree's presets/ beside the build, then in the installed share
// folder. programFolder is the folder of the running executable.
std::string ResolvePresetPath(const std::string& preset, const std::string& programFolder);

}  // namespace tools
}  // namespace evc
