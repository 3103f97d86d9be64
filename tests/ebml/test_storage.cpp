// Memory, null and copying storages, their receipts, the seek guard and the byte collections
// built from receipts.
#include "EbmlTestTypes.h"

#include "ebml/ebmlHodgePodge.h"

#include <cstring>
#include <numeric>
#include <stdexcept>

using namespace EbmlTest;

namespace {

const uint8* Text(const char* text)
{
    return reinterpret_cast<const uint8*>(text);
}

}  // namespace

TEST(EbmlStorage, MemoryStorageStaysInsideItsArea)
{
    uint8 area[10] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9};
    ConstMemoryStorage readOnly(area, sizeof area);
    readOnly.seekTo(8);
    uint8 out[4] = {0xAA, 0xAA, 0xAA, 0xAA};
    EXPECT_EQ(readOnly.peek(out, 4), 2u);
    EXPECT_EQ(Bytes(out, out + 4), (Bytes{8, 9, 0xAA, 0xAA}));
    EXPECT_FALSE(readOnly.load(out, 4));
    EXPECT_EQ(readOnly.skip(3), 0u);
    EXPECT_FALSE(readOnly.save(out, 1));
    EXPECT_THROW(readOnly.seekTo(11), std::runtime_error);
    EXPECT_EQ(readOnly.absolutePosition(), 8u);

    // Seeks: absolute, relative, from the end; anything outside is refused and moves nothing.
    FileInMemory file(area, sizeof area);
    const struct {
        int64 offset;
        TPositionReference from;
        bool ok;
        uint64 position;
    } seeks[] = {
        {10, kAbsolutePosition, true, 10}, {11, kAbsolutePosition, false, 10},       {-1, kAbsolutePosition, false, 10},
        {-4, kRelativePosition, true, 6},  {INT64_MAX, kRelativePosition, false, 6}, {3, kPositionFromEnd, true, 7},
        {11, kPositionFromEnd, false, 7},  {INT64_MIN, kPositionFromEnd, false, 7},

    };
    for (const auto& s : seeks) {
        EXPECT_EQ(file.seek(s.offset, s.from), s.ok) << s.offset;
        EXPECT_EQ(file.position(), s.position) << s.offset;
    }
    EXPECT_FALSE(file.seek(0, TPositionReference(7)));
    EXPECT_FALSE(file.save("abcd", 4));  // 7 + 4 > 10: nothing written
    EXPECT_EQ(area[7], 7);
}

TEST(EbmlStorage, ReceiptsRereadRewriteAndChecksumInPlace)
{
    uint8 area[16];
    std::memcpy(area, "ab1234XXXX56789!", 16);
    MemoryStorage storage(area, sizeof area);
    storage.skip(2);
    TReceiptPtr r = storage.skipWithReceipt(13);
    Crc32 crc;  // leaving out the XXXX
    EXPECT_TRUE(r->calcCrc32(crc, r->receipt(4, 4)));
    EXPECT_EQ(crc.checksum(), 0xCBF43926u);
    EXPECT_TRUE(r->save(Text("XY"), 2));
    uint8 back[3] = {};
    EXPECT_TRUE(r->receipt(2, 3)->load(back));
    EXPECT_EQ(std::string(back, back + 3), "34X");
    EXPECT_EQ(storage.absolutePosition(), 15u);
    *r += storage.skipWithReceipt(1);
    EXPECT_EQ(r->numBytes(), 14u);
    uint8 dst[16] = {};  // copied in chunks that do not divide the length
    MemoryStorage to(dst, sizeof dst);
    to.skip(1);
    EXPECT_EQ(r->saveTo(to, 3)->position(), 1u);
    EXPECT_EQ(std::string(dst + 1, dst + 15), "XY34XXXX56789!");

    // Receipts for plain memory: writable ones stay inside, const ones refuse.
    uint8 buf[4] = {1, 2, 3, 4};
    TReceiptPtr mem = receiptForMemory(buf, 4);
    EXPECT_FALSE(mem->save(buf, 5));
    EXPECT_TRUE(mem->receipt(1, 2)->save(Text("\x09"), 1));
    EXPECT_EQ(Bytes(buf, buf + 4), (Bytes{1, 9, 3, 4}));
    EXPECT_FALSE(receiptForConstMemory(buf, 4)->receipt(1, 2)->save(buf, 1));

    NullStorage counter(100);  // counts without keeping anything
    EXPECT_EQ(counter.save(Text("abc"), 3)->receipt(1, 2)->position(), 101u);
    EXPECT_EQ(counter.absolutePosition(), 103u);
    EXPECT_FALSE(counter.load(buf, 1));
    EXPECT_THROW(counter.seekTo(0), std::runtime_error);
    {
        Seek<IStorage> guard(storage);  // returns unless released
        storage.skip(1);
    }
    EXPECT_EQ(storage.absolutePosition(), 16u);
}

TEST(EbmlHodgePodge, CollectsReceiptsFromSeveralStorages)
{
    uint8 area[32] = {};
    MemoryStorage storage(area, sizeof area);
    HodgePodge podge;
    podge.add(storage.receipt());         // empty: not kept
    podge.add(Bytes{'a', 'b'}, storage);  // copied into the storage
    podge.add(receiptForConstMemory(Text("xyz"), 3));
    podge.add(Text("cd"), 2, storage);
    uint8 tiny[1];
    MemoryStorage full(tiny, 1);
    podge.add(Bytes{1, 2}, full);  // a failed save adds nothing
    EXPECT_EQ(podge.receipts().size(), 3u);
    Bytes all;
    EXPECT_TRUE(podge.get(all));
    EXPECT_EQ(std::string(all.begin(), all.end()), "abxyzcd");
    uint8 part[4];
    EXPECT_TRUE(podge.getRange(1, 4, part));
    EXPECT_EQ(std::string(part, part + 4), "bxyz");
    EXPECT_FALSE(podge.getRange(5, 3, part));
    HodgePodge same, other;
    same.set(Bytes{'a', 'b', 'x', 'y', 'z', 'c', 'd'}, storage);
    other.set(Bytes{'a', 'b', 'x', 'y', 'z', 'c', 'e'}, storage);
    EXPECT_TRUE(podge == same && podge != other);

    // Saved contiguously; loaded without copying.
    uint8 out[10] = {};
    MemoryStorage target(out, sizeof out);
    target.skip(1);
    EXPECT_EQ(podge.save(target)->position(), 1u);
    EXPECT_EQ(std::string(out + 1, out + 8), "abxyzcd");
    target.seekTo(2);
    HodgePodge loaded;
    EXPECT_EQ(loaded.load(target, 3), 3u);
    out[3] = '!';
    loaded.get(all);
    EXPECT_EQ(std::string(all.begin(), all.end()), "b!y");
    EXPECT_EQ(loaded.load(target, 100), 0u);
}

TEST(EbmlHodgePodge, IteratorsAndCopyingStorageReadAcrossReceipts)
{
    Bytes first(200), second(100);
    std::iota(first.begin(), first.end(), 0);
    std::iota(second.begin(), second.end(), 200);
    HodgePodge podge;
    podge.add(receiptForConstMemory(first.data(), first.size()));
    podge.add(receiptForConstMemory(second.data(), second.size()));
    HodgePodgeConstIter it(podge);
    for (int i = 0; i < 300; i += 7)
        EXPECT_EQ(it[i], uint8(i)) << i;
    EXPECT_EQ(it[300], 0);  // outside reads as 0
    HodgePodgeSubReceipt sub(podge, 198, 4);
    uint8 out[5];
    EXPECT_TRUE(sub.load(out));
    EXPECT_EQ(Bytes(out, out + 4), (Bytes{198, 199, 200, 201}));
    EXPECT_FALSE(sub.save(out, 1));
    HodgePodge sized;  // a size field split over two receipts
    const uint8 vsize[] = {0x10, 0x00, 0x00, 0x05};
    sized.add(receiptForConstMemory(vsize, 2));
    sized.add(receiptForConstMemory(vsize + 2, 2));
    uint64 width = 0;
    EXPECT_EQ(vsizeDecode(HodgePodgeConstIter(sized), width), 5u);
    EXPECT_EQ(width, 4u);

    HodgePodgeStorage& storage = HodgePodgeStorage::Instance;
    TReceiptPtr r = storage.receipt();
    *r += storage.save(Text("ab"), 2);
    *r += storage.save(Text("cde"), 3);
    EXPECT_TRUE(r->save(Text("XYZ"), 3));  // in place, across blocks
    EXPECT_TRUE(r->load(out));
    EXPECT_EQ(std::string(out, out + 5), "XYZde");
    EXPECT_TRUE(r->receipt(1, 2)->load(out));
    EXPECT_EQ(std::string(out, out + 2), "YZ");
}
