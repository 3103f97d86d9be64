// Shared by the evc-encode tests: a private temporary folder removed with
// everything in it, running a command with its output captured, and making
// YUV4MPEG2 clips.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tool_test {

class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::string& path() const { return m_path; }
    std::string file(const std::string& name) const { return m_path + "/" + name; }
    // Names of the entries in the folder, sorted.
    std::vector<std::string> entries() const;

private:
    std::string m_path;
};

struct CommandResult {
    int status = -1;  // exit status; -1 when it did not exit normally
    std::string out;
    std::string err;
};

// Runs a shell command line with standard output and error captured through
// files in scratch (which are removed again).
CommandResult RunCommand(const std::string& commandLine, const TempDir& scratch);

// The built programs (EVC_BUILD_DIR from CTest, else the current folder).
std::string BuildDir();
std::string EncoderPath();
std::string SourceDir();

// Whether a program is on PATH.
bool HaveProgram(const std::string& name);

// Processes whose command line mentions text (used to find a service that
// outlived its client: its command line holds the segment key).
std::vector<int> ProcessesMentioning(const std::string& text);

// A YUV4MPEG2 stream of the given pictures (each width x height 4:2:0).
std::string MakeY4m(uint32_t width, uint32_t height, const std::string& extraTags,
                    const std::vector<std::vector<uint8_t>>& pictures, const std::string& frameParameters = "");

std::vector<uint8_t> ReadFile(const std::string& path);
void WriteFile(const std::string& path, const std::string& bytes);

}  // namespace tool_test
