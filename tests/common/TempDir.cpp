// Scratch folders and byte files for tests.
#include "common/TempDir.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <system_error>

#include <stdlib.h>
#include <unistd.h>

namespace evctest {

Bytes Cat(std::initializer_list<Bytes> parts)
{
    Bytes all;
    for (const Bytes& p : parts)
        all.insert(all.end(), p.begin(), p.end());
    return all;
}

Bytes Pattern(std::size_t n, unsigned seed)
{
    Bytes bytes(n);
    std::uint32_t x = seed * 2654435761u + 1;
    for (auto& b : bytes) {
        x = x * 1664525u + 1013904223u;
        b = static_cast<std::uint8_t>(x >> 24);
    }
    return bytes;
}

void WriteBytes(const std::filesystem::path& path, const Bytes& bytes)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

Bytes ReadBytes(const std::filesystem::path& path)
{
    std::ifstream in(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

namespace {

constexpr char kPrefix[] = "evc-test-";

// A process killed before its scratch folders' owners ran leaves them behind. They carry the
// process id in their name; the next test process removes those whose process has ended.
void RemoveOrphans(const std::filesystem::path& temp)
{
    std::error_code ignored;
    for (const auto& entry : std::filesystem::directory_iterator(temp, ignored)) {
        const std::string name = entry.path().filename().string();
        char* end = nullptr;
        const long pid = name.rfind(kPrefix, 0) == 0 ? std::strtol(name.c_str() + sizeof kPrefix - 1, &end, 10) : 0;
        if (pid > 0 && *end == '-' && kill(pid_t(pid), 0) != 0 && errno == ESRCH)
            std::filesystem::remove_all(entry.path(), ignored);
    }
}

}  // namespace

TempDir::TempDir()
{
    const std::filesystem::path temp = std::filesystem::temp_directory_path();
    static const bool swept = (RemoveOrphans(temp), true);
    (void)swept;
    std::string pattern = (temp / (kPrefix + std::to_string(getpid()) + "-XXXXXX")).string();
    if (mkdtemp(pattern.data()) != nullptr)
        m_path = pattern;
}

TempDir::~TempDir()
{
    std::error_code ignored;
    if (!m_path.empty())
        std::filesystem::remove_all(m_path, ignored);
}

std::filesystem::path TempDir::Folder(const std::string& relative) const
{
    std::filesystem::create_directories(m_path / relative);
    return m_path / relative;
}

std::string TempDir::Write(const std::string& relative, const Bytes& bytes) const
{
    std::filesystem::create_directories((m_path / relative).parent_path());
    WriteBytes(m_path / relative, bytes);
    return File(relative);
}

std::string TempDir::Write(const std::string& relative, const std::string& text) const
{
    return Write(relative, Bytes(text.begin(), text.end()));
}

}  // namespace evctest
