#include "ToolTestSupport.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>

namespace fs = std::filesystem;

namespace tool_test {

TempDir::TempDir()
{
    const char* tmp = std::getenv("TMPDIR");
    std::string pattern = std::string(tmp && *tmp ? tmp : "/tmp") + "/evc-encode-test-XXXXXX";
    std::vector<char> buffer(pattern.begin(), pattern.end());
    buffer.push_back('\0');
    if (mkdtemp(buffer.data()) == nullptr)
        throw std::runtime_error("mkdtemp failed");
    m_path = buffer.data();
}

TempDir::~TempDir()
{
    std::error_code ignored;
    fs::remove_all(m_path, ignored);
}

std::vector<std::string> TempDir::entries() const
{
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(m_path))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

namespace {

std::string Slurp(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

}  // namespace

CommandResult RunCommand(const std::string& commandLine, const TempDir& scratch)
{
    const std::string out = scratch.file(".command-out");
    const std::string err = scratch.file(".command-err");
    const int raw = std::system((commandLine + " >'" + out + "' 2>'" + err + "'").c_str());
    CommandResult result;
    result.status = raw != -1 && WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
    result.out = Slurp(out);
    result.err = Slurp(err);
    std::remove(out.c_str());
    std::remove(err.c_str());
    return result;
}

std::string BuildDir()
{
    const char* dir = std::getenv("EVC_BUILD_DIR");
    return dir && *dir ? dir : ".";
}

std::string EncoderPath()
{
    return BuildDir() + "/bin/evc-encode";
}

std::string SourceDir()
{
    return EVC_SOURCE_DIR;
}

bool HaveProgram(const std::string& name)
{
    return std::system(("command -v " + name + " >/dev/null 2>&1").c_str()) == 0;
}

std::vector<int> ProcessesMentioning(const std::string& text)
{
    std::vector<int> pids;
    for (const auto& entry : fs::directory_iterator("/proc")) {
        const std::string name = entry.path().filename().string();
        if (name.find_first_not_of("0123456789") != std::string::npos)
            continue;
        const std::string commandLine = Slurp(entry.path().string() + "/cmdline");
        if (commandLine.find(text) != std::string::npos && std::stoi(name) != getpid())
            pids.push_back(std::stoi(name));
    }
    return pids;
}

std::string MakeY4m(uint32_t width, uint32_t height, const std::string& extraTags,
                    const std::vector<std::vector<uint8_t>>& pictures, const std::string& frameParameters)
{
    std::ostringstream text;
    text << "YUV4MPEG2 W" << width << " H" << height << extraTags << "\n";
    for (const auto& picture : pictures) {
        text << "FRAME" << frameParameters << "\n";
        text.write(reinterpret_cast<const char*>(picture.data()), static_cast<std::streamsize>(picture.size()));
    }
    return text.str();
}

std::vector<uint8_t> ReadFile(const std::string& path)
{
    const std::string bytes = Slurp(path);
    return std::vector<uint8_t>(bytes.begin(), bytes.end());
}

void WriteFile(const std::string& path, const std::string& bytes)
{
    std::ofstream file(path, std::ios::binary);
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

}  // namespace tool_test
