// The line cache over a disk that records every call: reads cost one disk read per line,
// writes wait for eviction or clearing, lines grow for large requests, truncation cuts them.
#include "ebml/ebmlCache.h"

#include "common/TempDir.h"

#include <cstring>
#include <utility>

using namespace Ebml;
using evctest::Bytes;
using evctest::Cat;

namespace {

class FakeDisk : public ICacheDataProvider {
public:
    explicit FakeDisk(Bytes bytes = {}) : bytes_(std::move(bytes)) {}

    bool load(uint64 addr, size_t* numBytes, uint8* dst) override
    {
        loads_.push_back({addr, *numBytes});
        *numBytes = std::min(*numBytes, addr < bytes_.size() ? bytes_.size() - size_t(addr) : 0);
        if (*numBytes)
            std::memcpy(dst, bytes_.data() + addr, *numBytes);
        return true;
    }
    bool save(uint64 addr, size_t numBytes, const uint8* src) override
    {
        saves_.push_back({addr, numBytes});
        if (refuseSaves_)
            return false;
        bytes_.resize(std::max(bytes_.size(), size_t(addr + numBytes)), 0);
        std::memcpy(bytes_.data() + addr, src, numBytes);
        return true;
    }

    Bytes bytes_;
    std::vector<std::pair<uint64, size_t>> loads_, saves_;
    bool refuseSaves_ = false;
};

typedef std::vector<std::pair<uint64, size_t>> Calls;

}  // namespace

TEST(EbmlCache, ReadsCostOneDiskReadPerLineAndStopAtTheEnd)
{
    FakeDisk disk(evctest::Pattern(10000));
    TCache cache(&disk, 1, 4096);
    Bytes got(5000);
    for (size_t i = 0; i < got.size(); ++i)
        ASSERT_EQ(cache.load(i, 1, &got[i]), 1u) << i;
    EXPECT_EQ(got, Bytes(disk.bytes_.begin(), disk.bytes_.begin() + 5000));
    EXPECT_EQ(disk.loads_, (Calls{{0, 4096}, {4096, 4096}}));
    EXPECT_EQ(cache.load(9998, 8, got.data()), 2u);
    EXPECT_EQ(cache.load(10000, 1, got.data()), 0u);
    EXPECT_EQ(cache.load(40000, 4, got.data()), 0u);

    const struct {
        size_t request, lineSize;
    } rows[] = {{4096, 4096}, {4097, 8192}, {10000, 12288}, {0x1000000, 0x1000000}, {0x1000001, 4096}};
    for (const auto& row : rows) {
        FakeDisk big(evctest::Pattern(row.request + 10));
        TCache grown(&big, 1, 4096);
        Bytes all(row.request);
        EXPECT_EQ(grown.load(3, row.request, all.data()), row.request);
        EXPECT_EQ(grown.lineSize(), row.lineSize) << row.request;
        EXPECT_EQ(std::memcmp(all.data(), big.bytes_.data() + 3, row.request), 0);
    }
}

TEST(EbmlCache, WritesWaitForEvictionClearingOrDestruction)
{
    FakeDisk disk(evctest::Pattern(64));
    Bytes expected = disk.bytes_;
    TCache cache(&disk, 2, 16);
    const uint8 data[3] = {0xA1, 0xA2, 0xA3};
    ASSERT_EQ(cache.save(14, 3, data), 3u);  // lines 0 and 16
    EXPECT_TRUE(disk.saves_.empty());
    uint8 got[3] = {};
    ASSERT_EQ(cache.load(14, 3, got), 3u);
    EXPECT_EQ(std::memcmp(data, got, 3), 0);
    // Line 0 is the least recently used and goes first, whole.
    cache.load(16, 1, got);
    ASSERT_EQ(cache.load(32, 1, got), 1u);
    EXPECT_EQ(disk.saves_, (Calls{{0, 16}}));
    EXPECT_TRUE(cache.clear());
    EXPECT_EQ(disk.saves_, (Calls{{0, 16}, {16, 16}}));
    std::memcpy(expected.data() + 14, data, 3);
    EXPECT_EQ(disk.bytes_, expected);

    // Growing the line size writes back first.
    ASSERT_EQ(cache.save(5, 1, data), 1u);
    Bytes wide(40);
    ASSERT_EQ(cache.load(0, 40, wide.data()), 40u);
    EXPECT_EQ(cache.lineSize(), 48u);
    EXPECT_EQ(disk.bytes_[5], 0xA1);

    FakeDisk fresh;
    {
        TCache last(&fresh, 1, 16);
        ASSERT_EQ(last.save(0, 2, data), 2u);
    }
    EXPECT_EQ(fresh.bytes_, (Bytes{0xA1, 0xA2}));
}

TEST(EbmlCache, HolesReadAsZerosAndTruncationCutsLines)
{
    FakeDisk disk(Bytes(4, 0x55));
    TCache cache(&disk, 2, 16);
    uint8 b = 0;
    ASSERT_EQ(cache.load(0, 1, &b), 1u);  // line 0 now holds 4 bytes
    const uint8 x = 0x99;
    ASSERT_EQ(cache.save(20, 1, &x), 1u);  // further on, not yet on disk
    Bytes got(21, 0xFF);
    ASSERT_EQ(cache.load(0, 21, got.data()), 21u);
    EXPECT_EQ(got, Cat({Bytes(4, 0x55), Bytes(16, 0), {0x99}}));

    // A reused line slot still holds its previous line's bytes; none may leak.
    TCache memoryOnly(nullptr, 1, 16);
    const Bytes junk(16, 0x77);
    ASSERT_EQ(memoryOnly.save(0, 16, junk.data()), 16u);
    ASSERT_EQ(memoryOnly.save(20, 1, &x), 1u);
    ASSERT_EQ(memoryOnly.load(16, 5, got.data()), 5u);
    EXPECT_EQ(Bytes(got.begin(), got.begin() + 5), (Bytes{0, 0, 0, 0, 0x99}));

    FakeDisk full(evctest::Pattern(64));
    TCache four(&full, 4, 16);
    for (uint64 head = 0; head < 64; head += 16)
        ASSERT_EQ(four.save(head, 16, junk.data()), 16u);
    full.bytes_.resize(20);  // the file's own truncation comes first
    four.truncate(20);
    EXPECT_EQ(four.numLines(), 2u);
    EXPECT_EQ(four.load(16, 16, got.data()), 4u);
    EXPECT_EQ(four.load(32, 16, got.data()), 0u);
    ASSERT_TRUE(four.clear());
    EXPECT_EQ(full.saves_, (Calls{{0, 16}, {16, 4}}));
}

TEST(EbmlCache, RefusedWriteBackKeepsTheLine)
{
    FakeDisk disk;
    TCache cache(&disk, 1, 16);
    const uint8 data[2] = {7, 8};
    ASSERT_EQ(cache.save(0, 2, data), 2u);
    disk.refuseSaves_ = true;
    uint8 b = 0;
    EXPECT_EQ(cache.load(16, 1, &b), 0u);  // making room would lose the dirty line
    EXPECT_EQ(cache.save(16, 1, &b), 0u);
    disk.refuseSaves_ = false;
    EXPECT_TRUE(cache.clear());
    EXPECT_EQ(disk.bytes_, (Bytes{7, 8}));
    EXPECT_TRUE(cache.adjustLineSize(8193));
    EXPECT_EQ(cache.lineSize(), 8208u);  // a whole number of the old lines
    EXPECT_TRUE(cache.resize(2, 64));
    EXPECT_EQ(cache.lineSize(), 64u);
    EXPECT_EQ(cache.maxLines(), 2u);
}
