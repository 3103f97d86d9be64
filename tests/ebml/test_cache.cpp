#include "ebml/ebmlCache.h"

#include <gtest/gtest.h>

#include <cstring>
#include <utility>
#include <vector>

using namespace Ebml;

namespace {

// An in-memory disk that records every call the cache makes.
class FakeDisk : public ICacheDataProvider {
public:
    explicit FakeDisk(std::vector<uint8> bytes = {}) : bytes_(std::move(bytes)) {}

    bool load(uint64 addr, size_t* numBytes, uint8* dst) override
    {
        loads_.push_back({addr, *numBytes});
        const size_t available = addr < bytes_.size() ? bytes_.size() - static_cast<size_t>(addr) : 0;
        *numBytes = std::min(*numBytes, available);
        if (*numBytes)
            std::memcpy(dst, bytes_.data() + addr, *numBytes);
        return true;
    }

    bool save(uint64 addr, size_t numBytes, const uint8* src) override
    {
        saves_.push_back({addr, numBytes});
        if (refuseSaves_)
            return false;
        if (bytes_.size() < addr + numBytes)
            bytes_.resize(static_cast<size_t>(addr + numBytes), 0);
        std::memcpy(bytes_.data() + addr, src, numBytes);
        return true;
    }

    std::vector<uint8> bytes_;
    std::vector<std::pair<uint64, size_t>> loads_;
    std::vector<std::pair<uint64, size_t>> saves_;
    bool refuseSaves_ = false;
};

std::vector<uint8> counting(size_t n)
{
    std::vector<uint8> bytes(n);
    for (size_t i = 0; i < n; ++i)
        bytes[i] = static_cast<uint8>(i * 7 + i / 256);
    return bytes;
}

}  // namespace

TEST(Cache, SmallReadsCostOneProviderReadPerLine)
{
    FakeDisk disk(counting(10000));
    TCache cache(&disk, 1, 4096);
    std::vector<uint8> got(5000);
    for (size_t i = 0; i < got.size(); ++i)
        ASSERT_EQ(1u, cache.load(i, 1, &got[i])) << i;
    EXPECT_EQ(std::vector<uint8>(disk.bytes_.begin(), disk.bytes_.begin() + 5000), got);
    ASSERT_EQ(2u, disk.loads_.size());
    EXPECT_EQ(std::make_pair(uint64(0), size_t(4096)), disk.loads_[0]);
    EXPECT_EQ(std::make_pair(uint64(4096), size_t(4096)), disk.loads_[1]);
}

TEST(Cache, ReadsStopAtTheEndOfTheData)
{
    FakeDisk disk(counting(10));
    TCache cache(&disk, 2, 8);
    uint8 got[16] = {};
    // Spans the full first line and the 2-byte second one.
    EXPECT_EQ(4u, cache.load(6, 8, got));
    EXPECT_EQ(0, std::memcmp(got, disk.bytes_.data() + 6, 4));
    EXPECT_EQ(0u, cache.load(10, 1, got));
    EXPECT_EQ(0u, cache.load(40, 4, got));
}

TEST(Cache, WritesAreDeferredUntilEvictionOrClear)
{
    FakeDisk disk(counting(64));
    const std::vector<uint8> before = disk.bytes_;
    TCache cache(&disk, 2, 16);
    const uint8 data[3] = {0xA1, 0xA2, 0xA3};
    ASSERT_EQ(3u, cache.save(14, 3, data));  // lines 0 and 16
    EXPECT_TRUE(disk.saves_.empty());
    EXPECT_EQ(before, disk.bytes_);

    // Reading back comes from the cache, not the disk.
    uint8 got[3] = {};
    ASSERT_EQ(3u, cache.load(14, 3, got));
    EXPECT_EQ(0, std::memcmp(data, got, 3));

    // Line 0 is the least recently used one and goes first, whole.
    uint8 one = 0;
    cache.load(16, 1, &one);
    ASSERT_EQ(1u, cache.load(32, 1, &one));
    ASSERT_EQ(1u, disk.saves_.size());
    EXPECT_EQ(std::make_pair(uint64(0), size_t(16)), disk.saves_[0]);

    EXPECT_TRUE(cache.clear());
    ASSERT_EQ(2u, disk.saves_.size());
    EXPECT_EQ(std::make_pair(uint64(16), size_t(16)), disk.saves_[1]);
    std::vector<uint8> expected = before;
    std::memcpy(expected.data() + 14, data, 3);
    EXPECT_EQ(expected, disk.bytes_);
    EXPECT_EQ(0u, cache.numLines());
}

TEST(Cache, DestructionWritesBack)
{
    FakeDisk disk;
    {
        TCache cache(&disk, 1, 16);
        const uint8 data[2] = {1, 2};
        ASSERT_EQ(2u, cache.save(0, 2, data));
    }
    EXPECT_EQ((std::vector<uint8>{1, 2}), disk.bytes_);
}

TEST(Cache, LargeRequestsGrowTheLineSize)
{
    struct Case {
        size_t request;
        size_t lineSize;
    };
    const Case cases[] = {
        {4096, 4096}, {4097, 8192}, {10000, 12288}, {0x1000000, 0x1000000}, {0x1000001, 4096},
    };
    for (const Case& c : cases) {
        FakeDisk disk(counting(c.request + 10));
        TCache cache(&disk, 1, 4096);
        std::vector<uint8> got(c.request);
        EXPECT_EQ(c.request, cache.load(3, c.request, got.data())) << c.request;
        EXPECT_EQ(c.lineSize, cache.lineSize()) << c.request;
        EXPECT_EQ(0, std::memcmp(got.data(), disk.bytes_.data() + 3, c.request)) << c.request;
    }
}

TEST(Cache, GrowingTheLineSizeWritesBackFirst)
{
    FakeDisk disk(counting(100));
    TCache cache(&disk, 1, 16);
    const uint8 data = 0xEE;
    ASSERT_EQ(1u, cache.save(5, 1, &data));
    std::vector<uint8> got(40);
    ASSERT_EQ(40u, cache.load(0, 40, got.data()));
    EXPECT_EQ(48u, cache.lineSize());
    EXPECT_EQ(0xEE, disk.bytes_[5]);
    EXPECT_EQ(0xEE, got[5]);
}

TEST(Cache, WritingPastTheDataLeavesZeros)
{
    FakeDisk disk(std::vector<uint8>(4, 0x55));
    {
        TCache cache(&disk, 1, 16);
        const uint8 x = 0x99;
        ASSERT_EQ(1u, cache.save(10, 1, &x));
        std::vector<uint8> got(11, 0xFF);
        ASSERT_EQ(11u, cache.load(0, 11, got.data()));
        EXPECT_EQ((std::vector<uint8>{0x55, 0x55, 0x55, 0x55, 0, 0, 0, 0, 0, 0, 0x99}), got);
    }
    EXPECT_EQ((std::vector<uint8>{0x55, 0x55, 0x55, 0x55, 0, 0, 0, 0, 0, 0, 0x99}), disk.bytes_);

    // A reused line slot still holds the bytes of its previous line; none may leak.
    TCache memoryOnly(nullptr, 1, 16);
    const std::vector<uint8> junk(16, 0x77);
    ASSERT_EQ(16u, memoryOnly.save(0, 16, junk.data()));
    const uint8 y = 0x42;
    ASSERT_EQ(1u, memoryOnly.save(20, 1, &y));
    std::vector<uint8> got(5, 0xFF);
    ASSERT_EQ(5u, memoryOnly.load(16, 5, got.data()));
    EXPECT_EQ((std::vector<uint8>{0, 0, 0, 0, 0x42}), got);
}

TEST(Cache, AShortLineBeforeCachedDataReadsAsAHole)
{
    FakeDisk disk(std::vector<uint8>(4, 0x55));
    TCache cache(&disk, 2, 16);
    uint8 b = 0;
    ASSERT_EQ(1u, cache.load(0, 1, &b));  // line 0 now holds 4 bytes
    const uint8 x = 0x99;
    ASSERT_EQ(1u, cache.save(20, 1, &x));  // data further on, not yet on disk
    std::vector<uint8> got(21, 0xFF);
    ASSERT_EQ(21u, cache.load(0, 21, got.data()));
    EXPECT_EQ(0x55, got[3]);
    for (size_t i = 4; i < 20; ++i)
        EXPECT_EQ(0, got[i]) << i;
    EXPECT_EQ(0x99, got[20]);
}

TEST(Cache, TruncateDropsLinesBeyondAndCutsTheStraddlingLine)
{
    FakeDisk disk(counting(64));
    TCache cache(&disk, 4, 16);
    const std::vector<uint8> ones(16, 1);
    for (uint64 head = 0; head < 64; head += 16)
        ASSERT_EQ(16u, cache.save(head, 16, ones.data()));
    ASSERT_EQ(4u, cache.numLines());
    disk.bytes_.resize(20);  // the file's own truncation comes first
    cache.truncate(20);
    EXPECT_EQ(2u, cache.numLines());
    std::vector<uint8> got(16);
    EXPECT_EQ(16u, cache.load(0, 16, got.data()));
    EXPECT_EQ(4u, cache.load(16, 16, got.data()));
    EXPECT_EQ(0u, cache.load(32, 16, got.data()));
    ASSERT_TRUE(cache.clear());
    // Only what lies below 20 was written back.
    ASSERT_EQ(2u, disk.saves_.size());
    size_t written = 0;
    for (const auto& s : disk.saves_) {
        EXPECT_LT(s.first, 20u);
        written += s.second;
    }
    EXPECT_EQ(20u, written);
}

TEST(Cache, RefusedWriteBackKeepsTheLine)
{
    FakeDisk disk;
    TCache cache(&disk, 1, 16);
    const uint8 data[2] = {7, 8};
    ASSERT_EQ(2u, cache.save(0, 2, data));
    disk.refuseSaves_ = true;
    uint8 b = 0;
    // Making room for another line would lose the dirty one.
    EXPECT_EQ(0u, cache.load(16, 1, &b));
    EXPECT_EQ(0u, cache.save(16, 1, &b));
    uint8 got[2] = {};
    ASSERT_EQ(2u, cache.load(0, 2, got));
    EXPECT_EQ(7, got[0]);
    disk.refuseSaves_ = false;
    EXPECT_TRUE(cache.clear());
    EXPECT_EQ((std::vector<uint8>{7, 8}), disk.bytes_);
}

TEST(Cache, ResizeAndAdjustKeepTheLineCountAndRoundUp)
{
    FakeDisk disk;
    TCache cache(&disk, 3, 4096);
    EXPECT_TRUE(cache.adjustLineSize(1));
    EXPECT_EQ(4096u, cache.lineSize());
    EXPECT_TRUE(cache.adjustLineSize(8193));
    EXPECT_EQ(12288u, cache.lineSize());
    EXPECT_EQ(3u, cache.maxLines());
    EXPECT_TRUE(cache.resize(2, 64));
    EXPECT_EQ(64u, cache.lineSize());
    EXPECT_EQ(2u, cache.maxLines());
}
