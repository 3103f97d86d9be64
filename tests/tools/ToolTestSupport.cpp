#include "ToolTestSupport.h"

#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

#include "common/Process.h"

namespace fs = std::filesystem;

namespace tool_test {

namespace {

std::string Slurp(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

}  // namespace

std::vector<std::string> TempDir::entries() const
{
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(Path()))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

CommandResult RunCommand(const std::string& commandLine, const TempDir& scratch)
{
    const std::string err = scratch.file(".command-err");
    const evctest::CommandResult run = evctest::RunCommand("{ { " + commandLine + "; } 2>'" + err + "'; }");
    CommandResult result{run.status, run.output, Slurp(err)};
    std::remove(err.c_str());
    return result;
}

std::vector<std::string> Lines(const std::string& text)
{
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        if (!line.empty())
            lines.push_back(line);
    return lines;
}

std::string EncoderPath()
{
    return evctest::BuildPath("bin/evc-encode");
}

bool HaveProgram(const std::string& name)
{
    return evctest::RunCommand("command -v " + name).status == 0;
}

VideoTimes ProbeVideoTimes(const std::string& file, const TempDir& scratch)
{
    VideoTimes times;
    const std::string probe = "ffprobe -v error -select_streams v:0 -show_entries packet=pts_time,flags -of csv=p=0 ";
    for (const std::string& line : Lines(RunCommand(probe + Quote(file), scratch).out)) {
        times.all.push_back(line.substr(0, line.find(',')));
        if (line.find(",K") != std::string::npos)
            times.keys.push_back(times.all.back());
    }
    std::sort(times.all.begin(), times.all.end(),
              [](const std::string& a, const std::string& b) { return std::stod(a) < std::stod(b); });
    return times;
}

std::vector<int> ProcessesMentioning(const std::string& text)
{
    std::vector<int> pids;
    for (const auto& entry : fs::directory_iterator("/proc")) {
        const std::string name = entry.path().filename().string();
        if (name.find_first_not_of("0123456789") == std::string::npos && std::stoi(name) != getpid() &&
            Slurp(entry.path().string() + "/cmdline").find(text) != std::string::npos)
            pids.push_back(std::stoi(name));
    }
    return pids;
}

}  // namespace tool_test
