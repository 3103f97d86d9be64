// Files through their line cache and the file storage: opening, short reads, logical growth,
// truncation, write-back, receipts into a file, and a random model of all of it.
#include "EbmlTestTypes.h"

#include "ebml/ebmlFile.h"
#include "ebml/ebmlFileStorage.h"

#include <algorithm>
#include <random>
#include <stdexcept>

using namespace EbmlTest;
using evctest::Pattern;
using evctest::ReadBytes;

namespace {

class EbmlFileTest : public evctest::TempDirTest {
protected:
    // A file of n pattern bytes.
    std::string Make(const std::string& name, std::size_t n) { return m_dir.Write(name, Pattern(n)); }
};

}  // namespace

TEST_F(EbmlFileTest, OpeningFollowsTheAccessMode)
{
    const std::string existing = Make("ten", 10);
    const struct {
        const char* name;
        std::string path;
        File::AccessMode mode;
        bool opens, existsAfter;
    } rows[] = {
        {"missing, read-only", m_dir.File("a"), File::kReadOnly, false, false},
        {"missing, read-write creates", m_dir.File("b"), File::kReadWrite, true, true},
        {"empty path", "", File::kReadWrite, false, false},
        {"a folder", m_dir.Path().string(), File::kReadOnly, false, true},
        {"in a missing folder", m_dir.File("no/such"), File::kReadWrite, false, false},
        {"existing, read-only", existing, File::kReadOnly, true, true},
        {"existing, read-write keeps its bytes", existing, File::kReadWrite, true, true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        File file(row.path, row.mode);
        EXPECT_EQ(file.isOpen(), row.opens);
        EXPECT_EQ(!row.path.empty() && std::filesystem::exists(row.path), row.existsAfter);
        if (file.isOpen()) {
            EXPECT_EQ(file.absolutePosition(), 0u);
            EXPECT_EQ(file.size(), std::filesystem::file_size(row.path));
        }
    }
    EXPECT_TRUE(File::remove(existing.c_str()));
    EXPECT_FALSE(File::remove(existing.c_str()));
    EXPECT_FALSE(File::remove(nullptr));
}

TEST_F(EbmlFileTest, ShortReadsGrowthTruncationAndWriteBack)
{
    const std::string path = Make("ten", 10);
    const Bytes bytes = Pattern(10);
    File file(path, File::kReadWrite);
    ASSERT_TRUE(file.seek(8, kAbsolutePosition));
    uint8 got[10] = {0, 0, 0xEE};
    EXPECT_EQ(file.peek(got, 4), 2u);
    EXPECT_EQ(Bytes(got, got + 3), (Bytes{bytes[8], bytes[9], 0xEE}));  // nothing beyond what was read
    EXPECT_FALSE(file.load(got, 4));
    EXPECT_EQ(file.absolutePosition(), 10u);
    EXPECT_TRUE(file.load(got, 0));

    // Seeking past the end grows the logical size only; writing there leaves zeros.
    EXPECT_TRUE(file.seek(20, kAbsolutePosition));
    EXPECT_EQ(file.size(), 20u);
    EXPECT_EQ(std::filesystem::file_size(path), 10u);
    EXPECT_TRUE(file.seek(-5, kRelativePosition));
    EXPECT_EQ(file.absolutePosition(), 15u);
    EXPECT_TRUE(file.seek(123, kPositionFromEnd));  // the offset is not used
    EXPECT_EQ(file.absolutePosition(), 20u);
    EXPECT_FALSE(file.seek(-21, kRelativePosition));
    EXPECT_FALSE(file.seek(-1, kAbsolutePosition));
    const uint8 x = 0xAB;
    ASSERT_TRUE(file.save(&x, 1));
    EXPECT_EQ(std::filesystem::file_size(path), 10u);  // still in the cache

    // Truncation drops cached bytes beyond; growing again reads zeros, not the dropped bytes.
    ASSERT_TRUE(file.setSize(5));
    EXPECT_EQ(file.absolutePosition(), 5u);
    EXPECT_EQ(std::filesystem::file_size(path), 5u);
    ASSERT_TRUE(file.setSize(9));
    ASSERT_TRUE(file.seek(0, kAbsolutePosition));
    ASSERT_TRUE(file.load(got, 9));
    EXPECT_EQ(Bytes(got, got + 9), Cat({Bytes(bytes.begin(), bytes.begin() + 5), Bytes(4, 0)}));
    File copy(file);  // copies share one state
    ASSERT_TRUE(copy.seek(0, kPositionFromEnd));
    ASSERT_TRUE(copy.save(&x, 1));
    EXPECT_EQ(file.absolutePosition(), 10u);
    ASSERT_TRUE(file.close());
    EXPECT_FALSE(copy.isOpen());
    EXPECT_EQ(ReadBytes(path), Cat({Bytes(bytes.begin(), bytes.begin() + 5), Bytes(4, 0), {0xAB}}));

    // The last handle's destruction writes back too; read-only files refuse writes.
    {
        File last(path, File::kReadWrite);
        ASSERT_TRUE(last.save(&x, 1));
        ASSERT_TRUE(last.save(&x, 1));
    }
    EXPECT_EQ(ReadBytes(path)[1], 0xAB);
    File readOnly(path, File::kReadOnly);
    EXPECT_FALSE(readOnly.save(&x, 1));
    EXPECT_FALSE(readOnly.setSize(3));
    EXPECT_EQ(readOnly.size(), 10u);
}

TEST_F(EbmlFileTest, StorageReceiptsRereadRewriteAndCopy)
{
    const std::string path = Make("r", 5000);
    const Bytes bytes = Pattern(5000);
    TReceiptPtr kept;
    {
        FileStorage storage(path, File::kReadWrite);
        ASSERT_EQ(storage.skip(100), 100u);
        TReceiptPtr r = storage.skipWithReceipt(4800);
        ASSERT_TRUE(r && r->position() == 100u);
        storage.seekTo(7);
        Crc32 crc, expected;  // leaving out 6 bytes at 110
        expected.compute(bytes.data() + 100, 10);
        expected.compute(bytes.data() + 116, 4784);
        ASSERT_TRUE(r->calcCrc32(crc, r->receipt(10, 6)));
        EXPECT_EQ(crc.checksum(), expected.checksum());

        // A size field patched after the fact: the receipt keeps its count, the storage its place.
        ASSERT_TRUE(r->save(Bytes{0x40, 0x02}.data(), 2));
        EXPECT_EQ(r->numBytes(), 4800u);
        EXPECT_EQ(storage.absolutePosition(), 7u);
        uint8 three[3];
        ASSERT_TRUE(r->receipt(1, 3)->load(three));
        EXPECT_EQ(Bytes(three, three + 3), (Bytes{0x02, bytes[102], bytes[103]}));

        storage.seekTo(4999);
        TReceiptPtr tail = storage.skipWithReceipt(1);  // up to the last byte works
        EXPECT_TRUE(tail->calcCrc32(crc, TReceiptPtr()));
        tail->add(1);
        EXPECT_FALSE(tail->calcCrc32(crc, TReceiptPtr()));
        Bytes big(4901);
        TReceiptPtr beyond = r->receipt(0, 10);
        beyond->setNumBytes(4901);
        EXPECT_FALSE(beyond->load(big.data()));
        kept = r->receipt(0, 3);
    }
    uint8 got[3];
    ASSERT_TRUE(kept->load(got));  // receipts outlive their storage
    EXPECT_EQ(Bytes(got, got + 3), (Bytes{0x40, 0x02, bytes[102]}));
    const Bytes disk = ReadBytes(path);
    EXPECT_EQ(Bytes(disk.begin() + 99, disk.begin() + 103), (Bytes{bytes[99], 0x40, 0x02, bytes[102]}));
}

TEST_F(EbmlFileTest, StorageSeeksAndFailures)
{
    // A read-only file cannot grow: positions past its end are refused.
    FileStorage readOnly(Make("ten", 10), File::kReadOnly);
    readOnly.seekTo(10);
    EXPECT_EQ(readOnly.skip(1), 0u);
    readOnly.seekTo(4);
    EXPECT_EQ(readOnly.skip(6), 6u);
    EXPECT_FALSE(readOnly.skipWithReceipt(1));
    EXPECT_THROW(readOnly.seekTo(11), std::runtime_error);
    EXPECT_THROW(readOnly.seekTo(0x8000000000000000ull), std::runtime_error);
    EXPECT_EQ(readOnly.absolutePosition(), 10u);
    readOnly.seekTo(3);
    uint8 got[8];
    EXPECT_FALSE(readOnly.load(got, 8));  // past the end: no receipt, moved by what was there
    EXPECT_EQ(readOnly.absolutePosition(), 10u);

    // A writable one grows its logical size; nothing is read there until written.
    FileStorage writable(Make("w", 10), File::kReadWrite);
    writable.seekTo(20);
    EXPECT_EQ(writable.peek(got, 1), 0u);
    EXPECT_EQ(writable.skip(5), 5u);
    EXPECT_EQ(writable.file().size(), 25u);
    EXPECT_EQ(writable.skip(0xFFFFFFFFFFFFFFF0ull), 0u);
    EXPECT_EQ(writable.absolutePosition(), 25u);

    FileStorage missing(m_dir.File("missing"), File::kReadOnly);
    EXPECT_FALSE(missing.isOpen() || missing.save(got, 1) || missing.load(got, 1) || missing.skip(1));
    EXPECT_THROW(missing.seekTo(0), std::runtime_error);
}

// Random reads, writes, seeks and resizes through a cache of a few small lines agree with a
// plain byte vector, while open and on disk after close.
TEST_F(EbmlFileTest, RandomUseMatchesAModel)
{
    for (const size_t lines : {1u, 3u}) {
        SCOPED_TRACE(testing::Message() << lines << " lines");
        const std::string path = Make("model" + std::to_string(lines), 300);
        Bytes model = Pattern(300);
        uint64 pos = 0;
        std::mt19937 rng{unsigned(lines)};
        File file(path, File::kReadWrite);
        file.cache()->resize(lines, 16);
        for (int step = 0; step < 1500; ++step) {
            const unsigned op = rng() % 10;
            const size_t n = rng() % 40;
            if (op < 4) {
                Bytes got(n, 0xCC);
                const size_t expected = pos < model.size() ? std::min<size_t>(n, model.size() - pos) : 0;
                ASSERT_EQ(file.load(got.data(), n), expected == n) << step;
                ASSERT_TRUE(std::equal(got.begin(), got.begin() + long(expected), model.begin() + long(pos))) << step;
                pos += expected;
            } else if (op < 7) {
                const Bytes data = Pattern(n, unsigned(step));
                ASSERT_TRUE(file.save(data.data(), n)) << step;
                model.resize(std::max<size_t>(model.size(), pos + n), 0);
                std::copy(data.begin(), data.end(), model.begin() + long(pos));
                pos += n;
            } else if (op < 9) {
                pos = rng() % (model.size() + 20);
                ASSERT_TRUE(file.seek(int64(pos), kAbsolutePosition));
                if (pos > model.size()) {  // grows the logical size; write there to keep it
                    ASSERT_TRUE(file.save(Bytes{0x5A}.data(), 1));
                    model.resize(pos, 0);
                    model.push_back(0x5A);
                    ++pos;
                }
            } else {
                const size_t size = rng() % (model.size() + 30);
                ASSERT_TRUE(file.setSize(int64(size)));
                model.resize(size, 0);
                pos = std::min<uint64>(pos, size);
            }
            ASSERT_EQ(file.absolutePosition(), pos) << step;
            ASSERT_EQ(file.size(), model.size()) << step;
        }
        ASSERT_TRUE(file.close());
        EXPECT_EQ(ReadBytes(path), model);
    }
}
