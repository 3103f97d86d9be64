#include "ebml/ebmlHodgePodge.h"
#include "ebml/ebmlMemoryStorage.h"

#include <gtest/gtest.h>

#include <numeric>
#include <vector>

using namespace Ebml;

namespace {
typedef std::vector<uint8> Bytes;
}

TEST(EbmlHodgePodge, CollectsReceiptsFromSeveralStorages)
{
    uint8 area[32] = {};
    MemoryStorage storage(area, sizeof area);
    const uint8 external[3] = {'x', 'y', 'z'};

    HodgePodge podge;
    podge.add(storage.receipt());  // empty: not kept
    EXPECT_TRUE(podge.empty());
    Bytes empty{1};
    EXPECT_TRUE(podge.get(empty));
    EXPECT_TRUE(empty.empty());
    uint8 none[1];
    EXPECT_FALSE(podge.get(none));

    podge.add(Bytes{'a', 'b'}, storage);  // copied into the storage
    podge.add(receiptForConstMemory(external, 3));
    podge.add(reinterpret_cast<const uint8*>("cd"), 2, storage);
    EXPECT_EQ(podge.receipts().size(), 3u);
    EXPECT_EQ(podge.numBytes(), 7u);
    Bytes all;
    EXPECT_TRUE(podge.get(all));
    EXPECT_EQ(std::string(all.begin(), all.end()), "abxyzcd");

    uint8 part[4];
    EXPECT_TRUE(podge.getRange(1, 4, part));
    EXPECT_EQ(std::string(part, part + 4), "bxyz");
    EXPECT_FALSE(podge.getRange(5, 3, part));

    // A failed save adds nothing.
    uint8 tiny[1];
    MemoryStorage full(tiny, 1);
    podge.add(Bytes{1, 2}, full);
    EXPECT_EQ(podge.numBytes(), 7u);
}

TEST(EbmlHodgePodge, EqualityIsByBytes)
{
    uint8 area[16] = {};
    MemoryStorage storage(area, sizeof area);
    HodgePodge split, whole, shorter, empty1, empty2;
    split.add(Bytes{1, 2}, storage);
    split.add(Bytes{3}, storage);
    whole.set(Bytes{1, 2, 3}, storage);
    shorter.set(Bytes{1, 2}, storage);
    EXPECT_TRUE(split == whole);
    EXPECT_TRUE(split != shorter);
    EXPECT_TRUE(empty1 == empty2);
    whole.set(Bytes{1, 2, 4}, storage);
    EXPECT_TRUE(split != whole);
}

TEST(EbmlHodgePodge, SavesContiguouslyAndLoadsWithoutCopying)
{
    const uint8 a[2] = {1, 2};
    const uint8 b[3] = {3, 4, 5};
    HodgePodge podge;
    podge.add(receiptForConstMemory(a, 2));
    podge.add(receiptForConstMemory(b, 3));

    NullStorage counter(0);
    TReceiptPtr measured = podge.save(counter);
    EXPECT_EQ(measured->position(), 0u);
    EXPECT_EQ(measured->numBytes(), 5u);
    EXPECT_EQ(counter.absolutePosition(), 5u);

    uint8 area[8] = {};
    MemoryStorage storage(area, sizeof area);
    storage.skip(1);
    TReceiptPtr saved = podge.save(storage);
    EXPECT_EQ(saved->position(), 1u);
    EXPECT_EQ(saved->numBytes(), 5u);
    EXPECT_EQ(Bytes(area, area + 7), (Bytes{0, 1, 2, 3, 4, 5, 0}));

    storage.seekTo(2);
    HodgePodge loaded;
    EXPECT_EQ(loaded.load(storage, 3), 3u);
    ASSERT_EQ(loaded.receipts().size(), 1u);
    EXPECT_EQ(loaded.receipts().front()->position(), 2u);  // refers into the area
    area[3] = 42;
    Bytes bytes;
    loaded.get(bytes);
    EXPECT_EQ(bytes, (Bytes{2, 42, 4}));
    EXPECT_EQ(loaded.load(storage, 100), 0u);  // not there: unchanged
    EXPECT_EQ(loaded.numBytes(), 3u);
}

TEST(EbmlHodgePodge, IteratorReadsAcrossReceiptsAndWindows)
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
    EXPECT_EQ(*(it + 255), 255);

    // The vsize decoder over the iterator.
    HodgePodge sized;
    const uint8 vsize[] = {0x10, 0x00, 0x00, 0x05};
    sized.add(receiptForConstMemory(vsize, 2));
    sized.add(receiptForConstMemory(vsize + 2, 2));
    uint64 width = 0;
    EXPECT_EQ(vsizeDecode(HodgePodgeConstIter(sized), width), 5u);
    EXPECT_EQ(width, 4u);

    HodgePodgeSubReceipt sub(podge, 198, 4);
    uint8 out[4];
    EXPECT_TRUE(sub.load(out));
    EXPECT_EQ(Bytes(out, out + 4), (Bytes{198, 199, 200, 201}));
    EXPECT_FALSE(sub.save(out, 1));
}

TEST(EbmlHodgePodge, CopyingStorageCollectsBlocks)
{
    HodgePodgeStorage& storage = HodgePodgeStorage::Instance;
    TReceiptPtr r = storage.receipt();
    EXPECT_EQ(r->numBytes(), 0u);
    *r += storage.save(reinterpret_cast<const uint8*>("ab"), 2);
    *r += storage.save(reinterpret_cast<const uint8*>("cde"), 3);
    EXPECT_EQ(r->numBytes(), 5u);
    uint8 out[5];
    EXPECT_TRUE(r->load(out));
    EXPECT_EQ(std::string(out, out + 5), "abcde");
    EXPECT_TRUE(r->save(reinterpret_cast<const uint8*>("XYZ"), 3));  // in place, across blocks
    EXPECT_TRUE(r->load(out));
    EXPECT_EQ(std::string(out, out + 5), "XYZde");
    uint8 mid[2];
    EXPECT_TRUE(r->receipt(1, 2)->load(mid));
    EXPECT_EQ(std::string(mid, mid + 2), "YZ");
}
