// Shared by the evc-encode tests: a scratch folder (the common one) with a
// listing, commands with standard output and error captured apart, and the
// processes that outlived their encoder.
#pragma once

#include <string>
#include <vector>

#include "common/Process.h"
#include "common/TempDir.h"

namespace tool_test {

class TempDir : public evctest::TempDir {
public:
    std::string path() const { return Path().string(); }
    std::string file(const std::string& name) const { return File(name); }
    // Names of the entries in the folder, sorted.
    std::vector<std::string> entries() const;
};

struct CommandResult {
    int status = -1;  // exit status; -1 when it did not exit normally
    std::string out;
    std::string err;
};

// Runs a shell command line; its standard error goes through a file in scratch.
CommandResult RunCommand(const std::string& commandLine, const TempDir& scratch);

using evctest::Quote;
// The non-empty lines of text.
std::vector<std::string> Lines(const std::string& text);

// The built evc-encode (EVC_BUILD_DIR from CTest).
std::string EncoderPath();
bool HaveProgram(const std::string& name);

// ffprobe's times of a file's video packets in time order, and those of its
// key packets in file order.
struct VideoTimes {
    std::vector<std::string> all;
    std::vector<std::string> keys;
};
VideoTimes ProbeVideoTimes(const std::string& file, const TempDir& scratch);

// Processes whose command line mentions text (a service that outlived its
// client names the segment's folder).
std::vector<int> ProcessesMentioning(const std::string& text);

}  // namespace tool_test
