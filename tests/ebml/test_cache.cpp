// The line cache over a disk that records its writes: writes wait for eviction or clearing, a
// refused write-back keeps the line, holes read as zeros. Reads are checked by the file model.
#include "ebml/ebmlCache.h"

#include "common/TempDir.h"

#include <cstring>

using namespace Ebml;
using evctest::Bytes;
using Calls = std::vector<std::pair<uint64, size_t>>;

namespace {

class FakeDisk : public ICacheDataProvider {
public:
    explicit FakeDisk(Bytes bytes = {}) : bytes_(std::move(bytes)) {}
    bool load(uint64 addr, size_t* numBytes, uint8* dst) override
    {
        *numBytes = std::min(*numBytes, addr < bytes_.size() ? bytes_.size() - size_t(addr) : 0);
        if (*numBytes)
            std::memcpy(dst, bytes_.data() + addr, *numBytes);
        return true;
    }
    bool save(uint64 addr, size_t numBytes, const uint8* src) override
    {
        saves_.push_back({addr, numBytes});
        if (refuse_)
            return false;
        bytes_.resize(std::max(bytes_.size(), size_t(addr + numBytes)), 0);
        std::memcpy(bytes_.data() + addr, src, numBytes);
        return true;
    }
    Bytes bytes_;
    Calls saves_;
    bool refuse_ = false;
};

}  // namespace

TEST(EbmlCache, WritesWaitForEvictionOrClearingAndHolesReadAsZeros)
{
    FakeDisk disk(evctest::Pattern(64));
    TCache cache(&disk, 2, 16);
    const uint8 data[3] = {0xA1, 0xA2, 0xA3};
    ASSERT_EQ(cache.save(14, 3, data), 3u);  // lines 0 and 16
    EXPECT_TRUE(disk.saves_.empty());
    Bytes got(21, 0xFF);
    cache.load(16, 1, got.data());  // line 0 is now the least recently used and goes first, whole
    ASSERT_EQ(cache.load(32, 1, got.data()), 1u);
    EXPECT_EQ(disk.saves_, (Calls{{0, 16}}));
    disk.refuse_ = true;  // a refused write-back keeps the dirty line: no room for another
    EXPECT_EQ(cache.load(48, 1, got.data()), 0u);
    disk.refuse_ = false;
    EXPECT_TRUE(cache.clear());
    EXPECT_EQ(Bytes(disk.bytes_.begin() + 14, disk.bytes_.begin() + 17), Bytes(data, data + 3));

    FakeDisk shortDisk(Bytes(4, 0x55));  // a short line before cached data reads as a hole
    TCache holes(&shortDisk, 2, 16);
    ASSERT_EQ(holes.load(0, 1, got.data()), 1u);
    ASSERT_EQ(holes.save(20, 1, data), 1u);
    ASSERT_EQ(holes.load(0, 21, got.data()), 21u);
    EXPECT_EQ(got, evctest::Cat({Bytes(4, 0x55), Bytes(16, 0), {0xA1}}));
}
