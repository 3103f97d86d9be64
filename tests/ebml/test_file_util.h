#pragma once
// Temporary folders and files for the file tests; everything is removed on scope exit,
// whether the test passed or not.

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>
#include <vector>

namespace EbmlTest {

class TempDir {
public:
    TempDir()
    {
        const char* base = std::getenv("TMPDIR");
        std::string pattern = std::string(base && *base ? base : "/tmp") + "/evc-ebml-XXXXXX";
        std::vector<char> buf(pattern.begin(), pattern.end());
        buf.push_back('\0');
        if (mkdtemp(buf.data()))
            path_ = buf.data();
    }
    ~TempDir()
    {
        std::error_code ec;
        if (!path_.empty())
            std::filesystem::remove_all(path_, ec);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    bool ok() const { return !path_.empty(); }
    const std::string& path() const { return path_; }
    std::string file(const std::string& name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

inline void writeBytes(const std::string& path, const std::vector<std::uint8_t>& bytes)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

inline std::vector<std::uint8_t> readBytes(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::vector<std::uint8_t>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline std::uintmax_t diskSize(const std::string& path)
{
    std::error_code ec;
    const std::uintmax_t n = std::filesystem::file_size(path, ec);
    return ec ? 0 : n;
}

// Bytes that differ from their neighbours, so a misplaced copy shows.
inline std::vector<std::uint8_t> pattern(std::size_t n, unsigned seed = 1)
{
    std::vector<std::uint8_t> bytes(n);
    std::uint32_t x = seed * 2654435761u + 1;
    for (auto& b : bytes) {
        x = x * 1664525u + 1013904223u;
        b = static_cast<std::uint8_t>(x >> 24);
    }
    return bytes;
}

// A temporary folder for each test, with files of pattern bytes made on request.
class TempDirTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(dir_.ok()); }

    std::string make(const std::string& name, std::size_t n)
    {
        const std::string path = dir_.file(name);
        writeBytes(path, pattern(n));
        return path;
    }

    TempDir dir_;
};

}  // namespace EbmlTest
