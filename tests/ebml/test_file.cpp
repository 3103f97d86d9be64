// Files through their line cache and the file storage: opening, handles that share one state,
// receipts into a file (a size field patched through one after the storage moved on), a random
// model of reads, writes, seeks and resizes, and a binary that refers into a file.
#include "EbmlTestTypes.h"

#include "ebml/ebmlFile.h"
#include "ebml/ebmlFileStorage.h"

#include <algorithm>
#include <random>
#include <stdexcept>

using namespace EbmlTest;
using evctest::Pattern;
using evctest::ReadBytes;
using EbmlFileTest = evctest::TempDirTest;

TEST_F(EbmlFileTest, OpeningFollowsTheAccessMode)
{
    const std::string existing = m_dir.Write("ten", Pattern(10));
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
        {"existing, read-write keeps its bytes", existing, File::kReadWrite, true, true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        File file(row.path, row.mode);
        EXPECT_EQ(file.isOpen(), row.opens);
        EXPECT_EQ(!row.path.empty() && std::filesystem::exists(row.path), row.existsAfter);
        EXPECT_EQ(file.size(), row.opens ? std::filesystem::file_size(row.path) : 0u);
    }
    File readOnly(existing, File::kReadOnly);
    EXPECT_FALSE(readOnly.save(existing.data(), 1) || readOnly.setSize(3));
    EXPECT_TRUE(File::remove(existing.c_str()));
    EXPECT_FALSE(File::remove(existing.c_str()));
}

// Random reads, writes, seeks and resizes through a cache of a few small lines agree with a
// plain byte vector, while open and on disk after close; copies of a handle share one state.
TEST_F(EbmlFileTest, RandomUseMatchesAModel)
{
    for (const size_t lines : {1u, 3u}) {
        SCOPED_TRACE(testing::Message() << lines << " lines");
        const std::string path = m_dir.Write("model" + std::to_string(lines), Pattern(300));
        Bytes model = Pattern(300);
        uint64 pos = 0;
        std::mt19937 rng{unsigned(lines)};
        File file(path, File::kReadWrite);
        File copy(file);
        file.cache()->resize(lines, 16);
        for (int step = 0; step < 1500; ++step) {
            File& handle = step % 2 ? file : copy;
            const unsigned op = rng() % 10;
            const size_t n = rng() % 40;
            if (op < 4) {
                Bytes got(n, 0xCC);
                const size_t expected = pos < model.size() ? std::min<size_t>(n, model.size() - pos) : 0;
                ASSERT_EQ(handle.peek(got.data(), n), expected) << step;
                ASSERT_EQ(handle.load(got.data(), n), expected == n) << step;
                ASSERT_TRUE(std::equal(got.begin(), got.begin() + long(expected), model.begin() + long(pos))) << step;
                pos += expected;
            } else if (op < 7) {
                const Bytes data = Pattern(n, unsigned(step));
                ASSERT_TRUE(handle.save(data.data(), n)) << step;
                model.resize(std::max<size_t>(model.size(), pos + n), 0);
                std::copy(data.begin(), data.end(), model.begin() + long(pos));
                pos += n;
            } else if (op < 9) {
                const int64 offset = int64(rng() % (model.size() + 20)) - int64(pos);
                ASSERT_EQ(handle.seek(offset, kRelativePosition), int64(pos) + offset >= 0) << step;
                pos = uint64(int64(pos) + offset);
                if (pos > model.size()) {  // grows the logical size only; write there to keep it
                    ASSERT_TRUE(handle.save(Bytes{0x5A}.data(), 1));
                    model.resize(pos, 0);
                    model.push_back(0x5A);
                    ++pos;
                }
            } else {
                const size_t size = rng() % (model.size() + 30);
                ASSERT_TRUE(handle.setSize(int64(size)));
                model.resize(size, 0);
                pos = std::min<uint64>(pos, size);
            }
            ASSERT_EQ(handle.absolutePosition(), pos) << step;
            ASSERT_EQ(handle.size(), model.size()) << step;
        }
        EXPECT_FALSE(file.seek(-int64(pos) - 1, kRelativePosition) || file.seek(-1, kAbsolutePosition));
        ASSERT_TRUE(file.seek(123, kPositionFromEnd));  // the offset is not used
        EXPECT_EQ(file.absolutePosition(), model.size());
        ASSERT_TRUE(copy.close());
        EXPECT_FALSE(file.isOpen());
        EXPECT_EQ(ReadBytes(path), model);
    }
    {
        File last(m_dir.File("last"), File::kReadWrite);  // the last handle's destruction writes back
        ASSERT_TRUE(last.save("ab", 2));
    }
    EXPECT_EQ(ReadBytes(m_dir.File("last")), (Bytes{'a', 'b'}));
}

TEST_F(EbmlFileTest, StorageReceiptsSeeksAndFailures)
{
    const std::string path = m_dir.Write("r", Pattern(5000));
    const Bytes bytes = Pattern(5000);
    TReceiptPtr kept;
    {
        FileStorage storage(path, File::kReadWrite);
        ASSERT_EQ(storage.skip(100), 100u);
        TReceiptPtr r = storage.skipWithReceipt(4800);
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
        kept = r->receipt(0, 3);
    }
    uint8 got[8];
    ASSERT_TRUE(kept->load(got));  // receipts outlive their storage
    EXPECT_EQ(Bytes(got, got + 3), (Bytes{0x40, 0x02, bytes[102]}));
    // A writable file grows its logical size; nothing is read there until written.
    FileStorage writable(m_dir.File("w"), File::kReadWrite);
    writable.seekTo(20);
    EXPECT_EQ(writable.peek(got, 1), 0u);
    EXPECT_EQ(writable.skip(5), 5u);
    EXPECT_EQ(writable.file().size(), 25u);
    EXPECT_EQ(writable.skip(0xFFFFFFFFFFFFFFF0ull), 0u);

    // A read-only file cannot grow: positions past its end are refused.
    FileStorage readOnly(path, File::kReadOnly);
    readOnly.seekTo(4990);
    EXPECT_EQ(readOnly.skip(11), 0u);
    EXPECT_EQ(readOnly.skip(10), 10u);
    EXPECT_FALSE(readOnly.skipWithReceipt(1));
    EXPECT_THROW(readOnly.seekTo(5001), std::runtime_error);
    EXPECT_THROW(readOnly.seekTo(0x8000000000000000ull), std::runtime_error);
    readOnly.seekTo(4995);
    EXPECT_FALSE(readOnly.load(got, 8));  // past the end: no receipt, moved by what was there
    EXPECT_EQ(readOnly.absolutePosition(), 5000u);
    FileStorage missing(m_dir.File("missing"), File::kReadOnly);
    EXPECT_FALSE(missing.isOpen() || missing.save(got, 1) || missing.load(got, 1) || missing.skip(1));
    EXPECT_THROW(missing.seekTo(0), std::runtime_error);
}

namespace {

EBML_TEST_NAME(TNameBlob, "Blob");
typedef TElt<VBinary, 0xA1, TNameBlob> TBlob;

}  // namespace

// A large binary loaded from one file refers into it and is saved into another.
TEST_F(EbmlFileTest, BinaryCopiedBetweenFiles)
{
    const Bytes data = Pattern(9000, 5);
    const std::string src = m_dir.Write("src", Cat({{0xA1, 0x10, 0x00, 0x23, 0x28}, data}));
    const std::string dst = m_dir.File("dst");
    {
        FileStorage in(src, File::kReadOnly);
        FileStorage out(dst, File::kReadWrite);
        TBlob blob;
        ASSERT_EQ(blob.load(in, 9005), 9005u);
        EXPECT_EQ(blob->data().receipts().size(), 1u);
        ASSERT_TRUE(blob.save(out));
    }
    EXPECT_EQ(ReadBytes(dst), Cat({{0xA1, 0x63, 0x28}, data}));
}
