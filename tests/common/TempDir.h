// Scratch folders for tests: a fresh folder under the temporary directory that is removed with
// everything in it when its owner goes, whether the test passed or not (and, should the process be
// killed first, by the next test process); byte-file helpers.
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace evctest {

using Bytes = std::vector<std::uint8_t>;

// The parts one after the other (golden bytes written piece by piece).
Bytes Cat(std::initializer_list<Bytes> parts);
// Bytes that differ from their neighbours, so a misplaced copy shows.
Bytes Pattern(std::size_t n, unsigned seed = 1);
void WriteBytes(const std::filesystem::path& path, const Bytes& bytes);
Bytes ReadBytes(const std::filesystem::path& path);

class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    bool Ok() const { return !m_path.empty(); }
    const std::filesystem::path& Path() const { return m_path; }
    std::string File(const std::string& relative) const { return (m_path / relative).string(); }
    // Makes the folder (and its parents) below the scratch folder.
    std::filesystem::path Folder(const std::string& relative) const;
    // Writes a file (making its folders) and returns its path.
    std::string Write(const std::string& relative, const Bytes& bytes) const;
    std::string Write(const std::string& relative, const std::string& text) const;

private:
    std::filesystem::path m_path;
};

// One scratch folder per test.
class TempDirTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(m_dir.Ok()); }
    TempDir m_dir;
};

}  // namespace evctest
