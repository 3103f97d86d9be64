#include "ebml/ebmlFileStorage.h"
#include "ebml/ebmlMemoryStorage.h"

#include "ebml/test_file_util.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

using namespace Ebml;

namespace {

class FileStorageTest : public EbmlTest::TempDirTest {};

}  // namespace

TEST_F(FileStorageTest, SaveAndLoadHandOutReceiptsOfTheBytes)
{
    const std::string path = dir_.file("s");
    FileStorage storage(path, File::kReadWrite);
    ASSERT_TRUE(storage.isOpen());
    const uint8 a[3] = {1, 2, 3};
    const uint8 b[2] = {4, 5};
    TReceiptPtr ra = storage.save(a, 3);
    TReceiptPtr rb = storage.save(b, 2);
    ASSERT_TRUE(ra && rb);
    EXPECT_EQ(0u, ra->position());
    EXPECT_EQ(3u, ra->numBytes());
    EXPECT_EQ(3u, rb->position());
    EXPECT_EQ(2u, rb->numBytes());
    EXPECT_EQ(5u, storage.absolutePosition());
    TReceiptPtr here = storage.receipt();
    EXPECT_EQ(5u, here->position());
    EXPECT_EQ(0u, here->numBytes());

    storage.seekTo(1);
    uint8 got[4] = {};
    EXPECT_EQ(4u, storage.peek(got, 4));
    EXPECT_EQ(1u, storage.absolutePosition());
    TReceiptPtr r = storage.load(got, 4);
    ASSERT_TRUE(r);
    EXPECT_EQ(1u, r->position());
    EXPECT_EQ(4u, r->numBytes());
    EXPECT_EQ((std::vector<uint8>{2, 3, 4, 5}), std::vector<uint8>(got, got + 4));

    // Past the end: a null receipt, the position advanced by what was there.
    storage.seekTo(3);
    EXPECT_FALSE(storage.load(got, 4));
    EXPECT_EQ(5u, storage.absolutePosition());
    EXPECT_EQ(0u, storage.peek(got, 1));
}

TEST_F(FileStorageTest, ReceiptsRereadAndRewriteInPlace)
{
    const std::string path = make("r", 100);
    const std::vector<uint8> bytes = EbmlTest::pattern(100);
    FileStorage storage(path, File::kReadWrite);
    ASSERT_EQ(60u, storage.skip(60));
    TReceiptPtr r = storage.skipWithReceipt(10);
    ASSERT_TRUE(r);
    EXPECT_EQ(60u, r->position());
    EXPECT_EQ(10u, r->numBytes());
    storage.seekTo(7);

    std::vector<uint8> got(10);
    ASSERT_TRUE(r->load(got.data()));
    EXPECT_TRUE(std::equal(got.begin(), got.end(), bytes.begin() + 60));
    EXPECT_EQ(7u, storage.absolutePosition());

    // A size field patched after the fact: fewer bytes than the receipt keeps its count.
    const uint8 patch[2] = {0x40, 0x02};
    ASSERT_TRUE(r->save(patch, 2));
    EXPECT_EQ(10u, r->numBytes());
    EXPECT_EQ(7u, storage.absolutePosition());
    TReceiptPtr sub = r->receipt(1, 3);
    ASSERT_TRUE(sub);
    EXPECT_EQ(61u, sub->position());
    EXPECT_EQ(3u, sub->numBytes());
    uint8 three[3] = {};
    ASSERT_TRUE(sub->load(three));
    EXPECT_EQ(0x02, three[0]);
    EXPECT_EQ(bytes[62], three[1]);

    // A receipt reaching past the end of the file fails to load.
    TReceiptPtr beyond = r->receipt(0, 10);
    beyond->setNumBytes(50);
    std::vector<uint8> big(50);
    EXPECT_FALSE(beyond->load(big.data()));
    EXPECT_EQ(7u, storage.absolutePosition());
    EXPECT_EQ(100u, storage.file().size());

    // Rewrites through receipts reach the disk with the file's other writes.
    ASSERT_TRUE(storage.file().close());
    const std::vector<uint8> disk = EbmlTest::readBytes(path);
    ASSERT_EQ(100u, disk.size());
    EXPECT_EQ(0x40, disk[60]);
    EXPECT_EQ(0x02, disk[61]);
    EXPECT_EQ(bytes[62], disk[62]);
}

TEST_F(FileStorageTest, ReceiptsOutliveTheStorage)
{
    const std::string path = make("o", 10);
    TReceiptPtr r;
    {
        FileStorage storage(path, File::kReadOnly);
        storage.seekTo(2);
        r = storage.skipWithReceipt(3);
    }
    uint8 got[3] = {};
    ASSERT_TRUE(r && r->load(got));
    EXPECT_EQ(EbmlTest::pattern(10)[4], got[2]);
}

TEST_F(FileStorageTest, Crc32LeavesOutTheSkippedReceipt)
{
    const std::string path = make("c", 5000);
    const std::vector<uint8> bytes = EbmlTest::pattern(5000);
    FileStorage storage(path, File::kReadOnly);
    storage.seekTo(100);
    TReceiptPtr whole = storage.skipWithReceipt(4800);
    TReceiptPtr skip = whole->receipt(10, 6);
    Crc32 expected;
    expected.compute(bytes.data() + 100, 10);
    expected.compute(bytes.data() + 116, 4784);
    Crc32 crc;
    ASSERT_TRUE(whole->calcCrc32(crc, skip));
    EXPECT_EQ(expected.checksum(), crc.checksum());
    EXPECT_EQ(4900u, storage.absolutePosition());

    Crc32 all;
    Crc32 allExpected;
    allExpected.compute(bytes.data() + 100, 4800);
    ASSERT_TRUE(whole->calcCrc32(all, TReceiptPtr()));
    EXPECT_EQ(allExpected.checksum(), all.checksum());

    // Up to the last byte works; one past it does not.
    storage.seekTo(4999);
    TReceiptPtr tail = storage.skipWithReceipt(1);
    Crc32 one;
    EXPECT_TRUE(tail->calcCrc32(one, TReceiptPtr()));
    tail->add(1);
    EXPECT_FALSE(tail->calcCrc32(one, TReceiptPtr()));
}

TEST_F(FileStorageTest, SaveToCopiesIntoAnotherStorage)
{
    const std::string path = make("src", 3000);
    const std::vector<uint8> bytes = EbmlTest::pattern(3000);
    FileStorage storage(path, File::kReadOnly);
    storage.seekTo(500);
    TReceiptPtr r = storage.skipWithReceipt(2000);
    std::vector<uint8> buffer(2100, 0);
    Storage<FileInMemory> memory(buffer.data(), buffer.size());
    memory.seekTo(50);
    TReceiptPtr copied = r->saveTo(memory, 333);
    ASSERT_TRUE(copied);
    EXPECT_EQ(50u, copied->position());
    EXPECT_EQ(2000u, copied->numBytes());
    EXPECT_TRUE(std::equal(bytes.begin() + 500, bytes.begin() + 2500, buffer.begin() + 50));
    EXPECT_EQ(2500u, storage.absolutePosition());
}

TEST_F(FileStorageTest, SeekToAndFailures)
{
    // A read-only file cannot grow: positions past its end are refused.
    FileStorage readOnly(make("ten", 10), File::kReadOnly);
    readOnly.seekTo(10);
    EXPECT_EQ(0u, readOnly.skip(1));
    EXPECT_EQ(10u, readOnly.absolutePosition());
    readOnly.seekTo(4);
    EXPECT_EQ(6u, readOnly.skip(6));
    EXPECT_FALSE(readOnly.skipWithReceipt(1));
    struct Case {
        uint64 position;
        const char* message;
    };
    const Case cases[] = {
        {11, "FileStorage::seekTo(11) failed"},
        {0x8000000000000000ull, "FileStorage::seekTo(9223372036854775808) failed"},
    };
    for (const Case& c : cases) {
        try {
            readOnly.seekTo(c.position);
            ADD_FAILURE() << "no exception for " << c.position;
        } catch (const std::runtime_error& e) {
            EXPECT_EQ(std::string(c.message), e.what());
        }
        EXPECT_EQ(10u, readOnly.absolutePosition());
        EXPECT_EQ(10u, readOnly.file().size());
    }

    // A writable one grows its logical size; nothing is read there until written.
    FileStorage writable(make("w", 10), File::kReadWrite);
    writable.seekTo(20);
    EXPECT_EQ(20u, writable.file().size());
    uint8 b = 0;
    EXPECT_EQ(0u, writable.peek(&b, 1));
    EXPECT_EQ(5u, writable.skip(5));
    EXPECT_EQ(25u, writable.file().size());
    EXPECT_EQ(0u, writable.skip(0xFFFFFFFFFFFFFFF0ull));
    EXPECT_EQ(25u, writable.absolutePosition());

    FileStorage missing(dir_.file("missing"), File::kReadOnly);
    EXPECT_FALSE(missing.isOpen());
    EXPECT_FALSE(missing.save(&b, 1));
    EXPECT_FALSE(missing.load(&b, 1));
    EXPECT_EQ(0u, missing.skip(1));
    EXPECT_THROW(missing.seekTo(0), std::runtime_error);
}
