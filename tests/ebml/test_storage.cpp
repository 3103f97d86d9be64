// Memory, null and copying storages, their receipts, and the byte collections built from
// receipts.
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
    EXPECT_FALSE(readOnly.load(out, 4) || readOnly.skip(3) || readOnly.save(out, 1));
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
    *r += storage.skipWithReceipt(1);
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
    EXPECT_FALSE(counter.load(buf, 1));
}

TEST(EbmlHodgePodge, CollectsAndReadsAcrossReceipts)
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
    uint8 part[5];
    EXPECT_TRUE(podge.getRange(1, 4, part));
    EXPECT_EQ(std::string(part, part + 4), "bxyz");
    EXPECT_FALSE(podge.getRange(5, 3, part));
    std::memset(part, 0, sizeof part);
    HodgePodgeSubReceipt sub(podge, 1, 5);
    EXPECT_TRUE(sub.load(part));
    EXPECT_EQ(std::string(part, part + 5), "bxyzc");
    EXPECT_FALSE(sub.save(part, 1));
    EXPECT_EQ(HodgePodgeConstIter(podge)[7], 0);  // outside reads as 0

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
    Bytes all;
    loaded.get(all);
    EXPECT_EQ(std::string(all.begin(), all.end()), "b!y");
    EXPECT_EQ(loaded.load(target, 100), 0u);

    HodgePodge sized;  // a size field split over two receipts
    const uint8 vsize[] = {0x10, 0x00, 0x00, 0x05};
    sized.add(receiptForConstMemory(vsize, 2));
    sized.add(receiptForConstMemory(vsize + 2, 2));
    uint64 width = 0;
    EXPECT_EQ(vsizeDecode(HodgePodgeConstIter(sized), width), 5u);
    EXPECT_EQ(width, 4u);
    HodgePodgeStorage& copies = HodgePodgeStorage::Instance;  // in place, across blocks
    TReceiptPtr r = copies.receipt();
    *r += copies.save(Text("ab"), 2);
    *r += copies.save(Text("cde"), 3);
    EXPECT_TRUE(r->save(Text("XYZ"), 3));
    EXPECT_TRUE(r->receipt(1, 4)->load(out));
    EXPECT_EQ(std::string(out, out + 4), "YZde");
}
