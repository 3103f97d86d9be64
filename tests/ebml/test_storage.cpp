#include "ebml/ebmlMemoryStorage.h"

#include <gtest/gtest.h>

#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

using namespace Ebml;

namespace {

typedef std::vector<uint8> Bytes;

struct Counted {
    explicit Counted(int& deaths) : deaths_(deaths) {}
    virtual ~Counted() { ++deaths_; }
    int& deaths_;
};
struct CountedChild : Counted {
    using Counted::Counted;
};

}  // namespace

TEST(EbmlSharedPtr, SharesOneBlockAndDeletesOnce)
{
    int deaths = 0;
    {
        TSharedPtr<CountedChild, Counted> child(new CountedChild(deaths));
        TSharedPtr<Counted, Counted> base(child);  // upcast shares the block
        EXPECT_EQ(base.useCount(), 2u);
        EXPECT_EQ(base.get(), child.get());
        TSharedPtr<Counted, Counted> other;
        EXPECT_FALSE(other);
        other = base;
        other = other;
        EXPECT_EQ(child.useCount(), 3u);
        base.reset();
        EXPECT_FALSE(base);
        EXPECT_EQ(deaths, 0);
    }
    EXPECT_EQ(deaths, 1);
}

TEST(EbmlMemoryStorage, WritesWithinItsCapacityOnly)
{
    uint8 area[10] = {};
    MemoryStorage storage(area, sizeof area);
    const uint8 data[10] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10};
    TReceiptPtr r = storage.save(data, 10);
    ASSERT_TRUE(r);
    EXPECT_EQ(r->position(), 0u);
    EXPECT_EQ(r->numBytes(), 10u);
    EXPECT_EQ(std::memcmp(area, data, 10), 0);

    EXPECT_FALSE(storage.save(data, 1));
    EXPECT_EQ(storage.absolutePosition(), 10u);
    try {
        storage.seekTo(11);
        FAIL() << "seekTo past the end must throw";
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "ConstMemoryStorage::seekTo(11) failed");
    }
    EXPECT_EQ(storage.absolutePosition(), 10u);
}

TEST(EbmlMemoryStorage, ShortReadsAndPeeks)
{
    const uint8 area[10] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9};
    ConstMemoryStorage storage(area, sizeof area);
    storage.seekTo(8);
    uint8 out[4] = {0xAA, 0xAA, 0xAA, 0xAA};
    EXPECT_EQ(storage.peek(out, 4), 2u);
    EXPECT_EQ(out[0], 8);
    EXPECT_EQ(out[1], 9);
    EXPECT_EQ(out[2], 0xAA);
    EXPECT_EQ(storage.absolutePosition(), 8u);

    EXPECT_FALSE(storage.load(out, 4));  // what was there was copied, position unchanged
    EXPECT_EQ(storage.absolutePosition(), 8u);
    EXPECT_EQ(storage.skip(3), 0u);
    EXPECT_EQ(storage.skip(2), 2u);
    EXPECT_FALSE(storage.skipWithReceipt(1));
    EXPECT_EQ(storage.absolutePosition(), 10u);

    // A read-only area refuses writes.
    storage.seekTo(0);
    EXPECT_FALSE(storage.save(out, 1));
}

TEST(EbmlMemoryStorage, FileSeekRules)
{
    uint8 area[10] = {};
    FileInMemory file(area, sizeof area);
    EXPECT_TRUE(file.seek(10, kAbsolutePosition));
    EXPECT_FALSE(file.seek(11, kAbsolutePosition));
    EXPECT_FALSE(file.seek(-1, kAbsolutePosition));
    EXPECT_TRUE(file.seek(-4, kRelativePosition));
    EXPECT_EQ(file.position(), 6u);
    EXPECT_FALSE(file.seek(INT64_MAX, kRelativePosition));
    EXPECT_TRUE(file.seek(3, kPositionFromEnd));
    EXPECT_EQ(file.position(), 7u);
    EXPECT_FALSE(file.seek(11, kPositionFromEnd));
    EXPECT_FALSE(file.seek(0, TPositionReference(7)));
    EXPECT_EQ(file.position(), 7u);
    EXPECT_FALSE(file.save("abcd", 4));  // 7 + 4 > 10: nothing written
    EXPECT_EQ(area[7], 0);
}

TEST(EbmlMemoryStorage, ReceiptsRereadAndRewriteWithoutMovingTheStorage)
{
    uint8 area[16] = {};
    MemoryStorage storage(area, sizeof area);
    const uint8 data[6] = {'a', 'b', 'c', 'd', 'e', 'f'};
    storage.save(data, 2);
    TReceiptPtr r = storage.save(data, 6);
    ASSERT_TRUE(r);
    EXPECT_EQ(storage.absolutePosition(), 8u);

    uint8 back[6] = {};
    EXPECT_TRUE(r->load(back));
    EXPECT_EQ(std::memcmp(back, data, 6), 0);
    EXPECT_TRUE(r->save(reinterpret_cast<const uint8*>("XY"), 2));
    EXPECT_EQ(area[2], 'X');
    EXPECT_EQ(area[4], 'c');
    EXPECT_EQ(storage.absolutePosition(), 8u);

    TReceiptPtr sub = r->receipt(2, 3);
    EXPECT_EQ(sub->position(), 4u);
    EXPECT_EQ(sub->numBytes(), 3u);

    // += extends by the other's count; a null receipt changes nothing.
    TReceiptPtr tail = storage.save(data, 1);
    *r += tail;
    *r += TReceiptPtr();
    EXPECT_EQ(r->numBytes(), 7u);
}

TEST(EbmlMemoryStorage, Crc32OverReceiptsLeavingOutARange)
{
    uint8 area[13];
    std::memcpy(area, "1234XXXX56789", 13);
    MemoryStorage storage(area, sizeof area);
    TReceiptPtr all = storage.skipWithReceipt(13);
    ASSERT_TRUE(all);
    Crc32 crc;
    EXPECT_TRUE(all->calcCrc32(crc, all->receipt(4, 4)));
    EXPECT_EQ(crc.checksum(), 0xCBF43926u);

    Crc32 whole;  // up to the very last byte of the area
    EXPECT_TRUE(all->calcCrc32(whole, TReceiptPtr()));
    Crc32 reference;
    reference.compute(area, 13);
    EXPECT_EQ(whole.checksum(), reference.checksum());
}

TEST(EbmlMemoryStorage, SaveToCopiesInChunks)
{
    const uint8 src[10] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9};
    ConstMemoryStorage from(src, sizeof src);
    TReceiptPtr r = from.skipWithReceipt(10);
    uint8 dst[12] = {};
    MemoryStorage to(dst, sizeof dst);
    to.skip(1);
    TReceiptPtr copied = r->saveTo(to, 3);
    EXPECT_EQ(copied->position(), 1u);
    EXPECT_EQ(copied->numBytes(), 10u);
    EXPECT_EQ(std::memcmp(dst + 1, src, 10), 0);
}

TEST(EbmlMemoryStorage, MemoryReceipts)
{
    uint8 buf[4] = {1, 2, 3, 4};
    TReceiptPtr r = receiptForMemory(buf, 4);
    EXPECT_EQ(r->position(), uint64(reinterpret_cast<std::uintptr_t>(buf)));
    EXPECT_FALSE(r->save(buf, 5));
    const uint8 two[2] = {9, 9};
    EXPECT_TRUE(r->save(two, 2));
    EXPECT_EQ(buf[1], 9);
    EXPECT_EQ(buf[2], 3);
    uint8 out[2];
    EXPECT_TRUE(r->receipt(2, 2)->load(out));
    EXPECT_EQ(out[0], 3);
    Crc32 crc;
    EXPECT_FALSE(r->calcCrc32(crc, TReceiptPtr()));

    TReceiptPtr c = receiptForConstMemory(buf, 4);
    EXPECT_FALSE(c->save(two, 1));
    EXPECT_FALSE(c->receipt(1, 2)->save(two, 1));
}

TEST(EbmlNullStorage, CountsWithoutWriting)
{
    NullStorage storage(100);
    EXPECT_TRUE(storage.isNullStorage());
    const uint8 data[3] = {};
    TReceiptPtr r = storage.save(data, 3);
    EXPECT_EQ(r->position(), 100u);
    EXPECT_EQ(r->numBytes(), 3u);
    EXPECT_EQ(storage.skip(5), 5u);
    EXPECT_EQ(storage.absolutePosition(), 108u);
    uint8 out[1];
    EXPECT_FALSE(storage.load(out, 1));
    EXPECT_EQ(storage.peek(out, 1), 0u);
    EXPECT_FALSE(r->load(out));
    EXPECT_EQ(r->receipt(1, 2)->position(), 101u);
    EXPECT_THROW(storage.seekTo(0), std::runtime_error);
}

TEST(EbmlSeekGuard, ReturnsUnlessReleased)
{
    const uint8 area[8] = {};
    ConstMemoryStorage storage(area, sizeof area);
    {
        Seek<IStorage> guard(storage);
        storage.skip(5);
    }
    EXPECT_EQ(storage.absolutePosition(), 0u);
    {
        Seek<IStorage> guard(storage, 3);
        EXPECT_EQ(storage.absolutePosition(), 3u);
        guard.seekBack_ = false;
    }
    EXPECT_EQ(storage.absolutePosition(), 3u);
    {
        Seek<IStorage> guard(storage);
        EXPECT_THROW(guard.seekTo(9), std::runtime_error);
    }
    EXPECT_EQ(storage.absolutePosition(), 3u);
}
