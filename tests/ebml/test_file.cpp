#include "ebml/ebmlFile.h"

#include "ebml/test_file_util.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <random>

using namespace Ebml;

namespace {

class FileTest : public EbmlTest::TempDirTest {};

}  // namespace

TEST_F(FileTest, OpeningFollowsTheAccessMode)
{
    struct Case {
        const char* what;
        std::string path;
        File::AccessMode mode;
        bool opens;
        bool existsAfter;
    };
    const std::string existing = make("ten", 10);
    const Case cases[] = {
        {"missing, read-only", dir_.file("a"), File::kReadOnly, false, false},
        {"missing, read-write creates", dir_.file("b"), File::kReadWrite, true, true},
        {"empty path", "", File::kReadWrite, false, false},
        {"a folder", dir_.path(), File::kReadOnly, false, true},
        {"in a missing folder", dir_.file("no/such"), File::kReadWrite, false, false},
        {"existing, read-only", existing, File::kReadOnly, true, true},
    };
    for (const Case& c : cases) {
        File file(c.path, c.mode);
        EXPECT_EQ(c.opens, file.isOpen()) << c.what;
        EXPECT_EQ(c.existsAfter, !c.path.empty() && std::filesystem::exists(c.path)) << c.what;
        if (file.isOpen()) {
            EXPECT_EQ(c.path, file.filename()) << c.what;
            EXPECT_EQ(0u, file.absolutePosition()) << c.what;
            EXPECT_EQ(EbmlTest::diskSize(c.path), file.size()) << c.what;
            ASSERT_NE(nullptr, file.cache());
            EXPECT_EQ(4096u, file.cache()->lineSize());
            EXPECT_EQ(1u, file.cache()->maxLines());
        }
    }
    // An existing file keeps its bytes when opened for writing.
    File file(existing, File::kReadWrite);
    EXPECT_EQ(10u, file.size());
}

TEST_F(FileTest, ShortReadsAtTheEnd)
{
    File file(make("ten", 10), File::kReadOnly);
    const std::vector<uint8> bytes = EbmlTest::pattern(10);
    ASSERT_TRUE(file.seek(8, kAbsolutePosition));

    uint8 got[4] = {0, 0, 0xEE, 0xEE};
    EXPECT_EQ(2u, file.peek(got, 4));
    EXPECT_EQ(8u, file.absolutePosition());
    EXPECT_EQ(bytes[8], got[0]);
    EXPECT_EQ(bytes[9], got[1]);
    EXPECT_EQ(0xEE, got[2]);  // nothing written beyond what was read

    EXPECT_FALSE(file.load(got, 4));
    EXPECT_EQ(10u, file.absolutePosition());
    EXPECT_EQ(bytes[9], got[1]);
    EXPECT_FALSE(file.load(got, 1));
    EXPECT_EQ(10u, file.absolutePosition());
    EXPECT_TRUE(file.load(got, 0));
}

TEST_F(FileTest, ALargeReadIsOneLine)
{
    File file(make("big", 30000), File::kReadOnly);
    const std::vector<uint8> bytes = EbmlTest::pattern(30000);
    ASSERT_TRUE(file.seek(5, kAbsolutePosition));
    std::vector<uint8> got(10000);
    ASSERT_TRUE(file.load(got.data(), got.size()));
    EXPECT_EQ(12288u, file.cache()->lineSize());
    EXPECT_EQ(10005u, file.absolutePosition());
    EXPECT_TRUE(std::equal(got.begin(), got.end(), bytes.begin() + 5));
}

TEST_F(FileTest, SeekingPastTheEndGrowsTheLogicalSizeOnly)
{
    const std::string path = make("ten", 10);
    File file(path, File::kReadWrite);
    EXPECT_TRUE(file.seek(20, kAbsolutePosition));
    EXPECT_EQ(20u, file.size());
    EXPECT_EQ(10u, EbmlTest::diskSize(path));
    EXPECT_TRUE(file.seek(-5, kRelativePosition));
    EXPECT_EQ(15u, file.absolutePosition());
    EXPECT_TRUE(file.seek(123, kPositionFromEnd));  // the offset is not used
    EXPECT_EQ(20u, file.absolutePosition());
    EXPECT_FALSE(file.seek(-21, kRelativePosition));
    EXPECT_FALSE(file.seek(-1, kAbsolutePosition));
    EXPECT_EQ(20u, file.absolutePosition());

    // Writing there leaves a hole of zeros on disk.
    const uint8 x = 0xAB;
    ASSERT_TRUE(file.save(&x, 1));
    EXPECT_EQ(21u, file.size());
    ASSERT_TRUE(file.close());
    const std::vector<uint8> disk = EbmlTest::readBytes(path);
    ASSERT_EQ(21u, disk.size());
    EXPECT_EQ(std::vector<uint8>(10, 0), std::vector<uint8>(disk.begin() + 10, disk.begin() + 20));
    EXPECT_EQ(0xAB, disk[20]);
}

TEST_F(FileTest, SetSizeTruncatesClampsAndDropsCachedData)
{
    const std::string path = make("ten", 10);
    const std::vector<uint8> bytes = EbmlTest::pattern(10);
    File file(path, File::kReadWrite);
    const uint8 dirty[2] = {0xD1, 0xD2};
    ASSERT_TRUE(file.seek(7, kAbsolutePosition));
    ASSERT_TRUE(file.save(dirty, 2));  // cached, beyond the new size
    ASSERT_TRUE(file.seek(8, kAbsolutePosition));
    ASSERT_TRUE(file.setSize(5));
    EXPECT_EQ(5u, file.absolutePosition());
    EXPECT_EQ(5u, file.size());
    EXPECT_EQ(5u, EbmlTest::diskSize(path));
    ASSERT_TRUE(file.seek(0, kAbsolutePosition));
    uint8 got[10] = {};
    EXPECT_FALSE(file.load(got, 10));
    EXPECT_EQ(5u, file.absolutePosition());

    // Growing again reads zeros, not the dropped bytes.
    ASSERT_TRUE(file.setSize(9));
    ASSERT_TRUE(file.seek(0, kAbsolutePosition));
    ASSERT_TRUE(file.load(got, 9));
    EXPECT_TRUE(std::equal(got, got + 5, bytes.begin()));
    EXPECT_EQ(std::vector<uint8>(4, 0), std::vector<uint8>(got + 5, got + 9));
    ASSERT_TRUE(file.close());
    const std::vector<uint8> disk = EbmlTest::readBytes(path);
    ASSERT_EQ(9u, disk.size());
    EXPECT_EQ(std::vector<uint8>(4, 0), std::vector<uint8>(disk.begin() + 5, disk.end()));
}

TEST_F(FileTest, WritesReachTheDiskOnClose)
{
    const std::string path = dir_.file("out");
    const std::vector<uint8> data = EbmlTest::pattern(100);
    {
        File file(path, File::kReadWrite);
        ASSERT_TRUE(file.save(data.data(), data.size()));
        EXPECT_EQ(100u, file.size());
        EXPECT_EQ(0u, EbmlTest::diskSize(path));  // still in the cache
        ASSERT_TRUE(file.close());
        EXPECT_FALSE(file.isOpen());
        EXPECT_EQ(data, EbmlTest::readBytes(path));
    }
    // The last handle's destruction writes back too.
    {
        File file(path, File::kReadWrite);
        File copy(file);
        ASSERT_TRUE(file.seek(0, kPositionFromEnd));
        ASSERT_TRUE(file.save(data.data(), 3));
    }
    const std::vector<uint8> disk = EbmlTest::readBytes(path);
    ASSERT_EQ(103u, disk.size());
    EXPECT_TRUE(std::equal(data.begin(), data.begin() + 3, disk.begin() + 100));
}

TEST_F(FileTest, ReadOnlyFilesRefuseWrites)
{
    const std::string path = make("ten", 10);
    File file(path, File::kReadOnly);
    const uint8 x = 1;
    EXPECT_FALSE(file.save(&x, 1));
    EXPECT_FALSE(file.setSize(3));
    EXPECT_EQ(0u, file.absolutePosition());
    EXPECT_TRUE(file.close());
    EXPECT_EQ(EbmlTest::pattern(10), EbmlTest::readBytes(path));
}

TEST_F(FileTest, CopiesShareOneState)
{
    File a(make("ten", 10), File::kReadOnly);
    File b(a);
    File c;
    EXPECT_FALSE(c.isOpen());
    c = b;
    ASSERT_TRUE(a.seek(6, kAbsolutePosition));
    EXPECT_EQ(6u, b.absolutePosition());
    uint8 got[2];
    ASSERT_TRUE(c.load(got, 2));
    EXPECT_EQ(8u, a.absolutePosition());
    EXPECT_EQ(a.cache(), c.cache());
    b.close();
    EXPECT_FALSE(a.isOpen());
    EXPECT_FALSE(c.load(got, 1));
}

TEST_F(FileTest, Crc32OverARangeLeavesThePosition)
{
    File file(make("data", 9000), File::kReadOnly);
    const std::vector<uint8> bytes = EbmlTest::pattern(9000);
    ASSERT_TRUE(file.seek(17, kAbsolutePosition));
    Crc32 expected;
    expected.compute(bytes.data() + 100, 8900);
    Crc32 crc;
    ASSERT_TRUE(file.calcCrc32(100, 8900, crc));  // more than one 4096-byte chunk
    EXPECT_EQ(expected.checksum(), crc.checksum());
    EXPECT_EQ(17u, file.absolutePosition());

    Crc32 none;
    EXPECT_TRUE(file.calcCrc32(9000, 0, none));
    EXPECT_EQ(0u, none.checksum());
    EXPECT_FALSE(file.calcCrc32(8999, 2, none));
    EXPECT_FALSE(file.calcCrc32(0xFFFFFFFFFFFFFFF0ull, 0x20, none));
    EXPECT_EQ(9000u, file.size());
    EXPECT_EQ(17u, file.absolutePosition());
}

TEST_F(FileTest, RemoveAndFopen)
{
    const std::string path = make("gone", 1);
    EXPECT_EQ(nullptr, fopen_utf8(nullptr, "rb"));
    EXPECT_EQ(nullptr, fopen_utf8("", "rb"));
    std::FILE* f = fopen_utf8(path.c_str(), "rb");
    ASSERT_NE(nullptr, f);
    std::fclose(f);
    EXPECT_TRUE(File::remove(path.c_str()));
    EXPECT_FALSE(File::remove(path.c_str()));
    EXPECT_FALSE(File::remove(nullptr));
}

// Random reads, writes, seeks and resizes through a cache of a few small lines agree
// with a plain byte vector, while open and on disk after close.
TEST_F(FileTest, RandomUseMatchesAModel)
{
    for (const size_t lines : {1u, 3u}) {
        const std::string path = make("model" + std::to_string(lines), 300);
        std::vector<uint8> model = EbmlTest::pattern(300);
        uint64 pos = 0;
        std::mt19937 rng(lines);
        File file(path, File::kReadWrite);
        file.cache()->resize(lines, 16);
        for (int step = 0; step < 3000; ++step) {
            const unsigned op = rng() % 10;
            const size_t n = rng() % 40;
            if (op < 4) {
                std::vector<uint8> got(n, 0xCC);
                const size_t expected = pos < model.size() ? std::min<size_t>(n, model.size() - pos) : 0;
                const bool ok = file.load(got.data(), n);
                ASSERT_EQ(expected == n, ok) << step;
                ASSERT_TRUE(std::equal(got.begin(), got.begin() + expected, model.begin() + pos)) << step;
                pos += expected;
            } else if (op < 7) {
                const std::vector<uint8> data = EbmlTest::pattern(n, step);
                ASSERT_TRUE(file.save(data.data(), n)) << step;
                if (model.size() < pos + n)
                    model.resize(pos + n, 0);
                std::copy(data.begin(), data.end(), model.begin() + pos);
                pos += n;
            } else if (op < 9) {
                pos = rng() % (model.size() + 20);
                ASSERT_TRUE(file.seek(static_cast<int64>(pos), kAbsolutePosition));
                // A seek past the end grows the logical size; reads there find nothing yet.
                if (pos > model.size()) {
                    const std::vector<uint8> data = EbmlTest::pattern(1, step);
                    ASSERT_TRUE(file.save(data.data(), 1));
                    model.resize(pos, 0);
                    model.push_back(data[0]);
                    ++pos;
                }
            } else {
                const size_t size = rng() % (model.size() + 30);
                ASSERT_TRUE(file.setSize(static_cast<int64>(size)));
                model.resize(size, 0);
                pos = std::min<uint64>(pos, size);
            }
            ASSERT_EQ(pos, file.absolutePosition()) << step;
            ASSERT_EQ(model.size(), file.size()) << step;
        }
        ASSERT_TRUE(file.seek(0, kAbsolutePosition));
        std::vector<uint8> all(model.size());
        ASSERT_TRUE(file.load(all.data(), all.size()));
        EXPECT_EQ(model, all);
        ASSERT_TRUE(file.close());
        EXPECT_EQ(model, EbmlTest::readBytes(path));
    }
}
