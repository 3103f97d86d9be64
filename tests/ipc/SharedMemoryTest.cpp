// The shared segment: its bytes after create, allocate and free, best fit,
// merging, damaged chains, two processes and the in-segment semaphores.

#include "ipc/IpcTestSupport.h"
#include "ipc/details/ASharedMemory.h"

#include <cstdint>
#include <cstring>

namespace {

constexpr size_t kSegmentSize = 4096;

uint64_t word(const void* segment, size_t offset)
{
    uint64_t value;
    std::memcpy(&value, static_cast<const unsigned char*>(segment) + offset, sizeof value);
    return value;
}

void setWord(void* segment, size_t offset, uint64_t value)
{
    std::memcpy(static_cast<unsigned char*>(segment) + offset, &value, sizeof value);
}

bool allZero(const void* segment, size_t from, size_t to)
{
    const unsigned char* bytes = static_cast<const unsigned char*>(segment);
    for (size_t i = from; i < to; ++i)
        if (bytes[i] != 0)
            return false;
    return true;
}

size_t offsetOf(const CASharedMemory& segment, const void* address)
{
    return static_cast<size_t>(static_cast<const unsigned char*>(address) -
                               static_cast<const unsigned char*>(segment.data()));
}

class SharedMemoryTest : public IpcScratchTest {
protected:
    void SetUp() override
    {
        IpcScratchTest::SetUp();
        m_key = path("segment");
        ownLock(m_key);
    }
    void TearDown() override
    {
        std::remove(m_key.c_str());
        IpcScratchTest::TearDown();
    }
    std::string m_key;
};

TEST_F(SharedMemoryTest, BytesAfterCreateAllocateAndFree)
{
    CASharedMemory segment;
    ASSERT_TRUE(segment.create(m_key.c_str(), kSegmentSize));
    const void* s = segment.data();
    ASSERT_EQ(segment.size(), kSegmentSize);
    EXPECT_EQ(segment.key(), m_key);

    // Change counter 1, then one free fragment covering everything else.
    EXPECT_EQ(word(s, 0), 1u);
    EXPECT_EQ(word(s, 8), kSegmentSize - 8);
    EXPECT_TRUE(allZero(s, 16, kSegmentSize));

    const char name[] = "CAExternalVideoProxySharedData";
    unsigned char* block = static_cast<unsigned char*>(segment.allocate(name, 120));
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(offsetOf(segment, block), 64u);
    EXPECT_EQ(word(s, 0), 2u);
    EXPECT_EQ(word(s, 8), 176u);  // 24 + 32 + 120
    EXPECT_EQ(word(s, 16), 120u);
    EXPECT_EQ(word(s, 24), 30u);
    EXPECT_EQ(std::memcmp(static_cast<const char*>(s) + 32, name, 30), 0);
    EXPECT_TRUE(allZero(s, 62, 184));  // name padding and the new block
    EXPECT_EQ(word(s, 184), kSegmentSize - 184);
    EXPECT_TRUE(allZero(s, 192, kSegmentSize));

    size_t dataSize = 0;
    EXPECT_EQ(segment.findAddr(name, &dataSize), block);
    EXPECT_EQ(dataSize, 120u);
    EXPECT_EQ(segment.findAddr("CAExternalVideoProxySharedDat"), nullptr);

    std::memset(block, 0xAB, 120);
    EXPECT_TRUE(segment.deallocate(block + 50));  // any address inside the data
    EXPECT_EQ(word(s, 0), 3u);
    EXPECT_EQ(word(s, 8), kSegmentSize - 8);
    EXPECT_TRUE(allZero(s, 16, kSegmentSize));
    EXPECT_EQ(segment.findAddr(name), nullptr);
    EXPECT_FALSE(segment.deallocate(block));  // nothing there any more
}

TEST_F(SharedMemoryTest, NeighboursMergeWhateverTheOrderOfFreeing)
{
    const int orders[][3] = {{0, 2, 1}, {1, 0, 2}, {2, 1, 0}};
    for (const auto& order : orders) {
        CASharedMemory segment;
        ASSERT_TRUE(segment.create(m_key.c_str(), kSegmentSize));
        void* blocks[3] = {segment.allocate("a", 40), segment.allocate("b", 40), segment.allocate("c", 40)};
        ASSERT_NE(segment.allocate("guard", 8), nullptr);  // keeps the tail apart
        for (int i : order)
            ASSERT_TRUE(segment.deallocate(blocks[i]));
        const void* s = segment.data();
        EXPECT_EQ(word(s, 8), 3u * 72);  // three fragments of 24 + 8 + 40
        EXPECT_TRUE(allZero(s, 16, 8 + 3 * 72));
        EXPECT_EQ(word(s, 8 + 3 * 72 + 16), 5u);  // the guard's name size

        // Another process's view walks the same chain and reuses the merged hole.
        CASharedMemory view;
        ASSERT_TRUE(view.attach(m_key.c_str()));
        EXPECT_EQ(offsetOf(view, view.allocate("big", 3 * 72 - 32)), 8u + 32);
        segment.detach();
        view.detach();
        std::remove(m_key.c_str());
        CASystemSemaphore::remove(m_key.c_str());
    }
}

TEST_F(SharedMemoryTest, AllocationTakesTheSmallestHoleThatFits)
{
    CASharedMemory segment;
    ASSERT_TRUE(segment.create(m_key.c_str(), kSegmentSize));
    void* big = segment.allocate("big", 200);
    ASSERT_NE(segment.allocate("sep1", 8), nullptr);
    void* small = segment.allocate("small", 64);
    ASSERT_NE(segment.allocate("sep2", 8), nullptr);
    const size_t smallOffset = offsetOf(segment, small);
    ASSERT_TRUE(segment.deallocate(big));
    ASSERT_TRUE(segment.deallocate(small));

    // "x" needs 32 + 64 bytes: the 96-byte hole, not the earlier 232-byte one.
    void* x = segment.allocate("x", 64);
    EXPECT_EQ(offsetOf(segment, x), smallOffset);

    // Nothing fits: no block, and the table is left alone.
    const uint64_t counter = word(segment.data(), 0);
    EXPECT_EQ(segment.allocate("huge", kSegmentSize), nullptr);
    EXPECT_EQ(segment.allocate("x", 8), nullptr);  // the name exists
    EXPECT_EQ(word(segment.data(), 0), counter);
}

TEST_F(SharedMemoryTest, RemainderTooSmallForAHeaderGoesWithTheBlock)
{
    struct Case {
        size_t leftover;
        size_t expectedFragment;  // size word of the new block's fragment
    };
    const Case cases[] = {{8, 136}, {16, 136}, {24, 112}};
    for (const Case& c : cases) {
        CASharedMemory segment;
        ASSERT_TRUE(segment.create(m_key.c_str(), kSegmentSize));
        void* hole = segment.allocate("h", 104);  // fragment 24 + 8 + 104 = 136
        ASSERT_NE(segment.allocate("guard", 8), nullptr);
        ASSERT_TRUE(segment.deallocate(hole));

        void* block = segment.allocate("k", 104 - c.leftover);
        ASSERT_NE(block, nullptr);
        const void* s = segment.data();
        EXPECT_EQ(word(s, 8), c.expectedFragment) << c.leftover;
        EXPECT_EQ(word(s, 16), 104 - c.leftover);
        if (c.expectedFragment != 136) {
            EXPECT_EQ(word(s, 8 + c.expectedFragment), c.leftover);
        }

        // The chain stays walkable for a fresh reader.
        CASharedMemory view;
        ASSERT_TRUE(view.attach(m_key.c_str()));
        EXPECT_EQ(offsetOf(view, view.findAddr("guard")), 136u + 8 + 32);
        ASSERT_TRUE(view.deallocate(view.findAddr("k")));
        EXPECT_EQ(word(s, 8), 136u);  // merged back into one hole
        segment.detach();
        view.detach();
        std::remove(m_key.c_str());
        CASystemSemaphore::remove(m_key.c_str());
    }
}

TEST_F(SharedMemoryTest, DamagedChainIsRefused)
{
    // Offsets: block "blk" at 8 (fragment 24 + 8 + 16 = 48), free tail at 56.
    struct Case {
        const char* what;
        size_t offset;
        uint64_t value;
    };
    const Case cases[] = {
        {"tail size 0", 56, 0},
        {"tail size not a multiple of 8", 56, 12},
        {"tail running past the end", 56, kSegmentSize},
        {"block smaller than a header", 8, 16},
        {"block size far past the end", 8, ~uint64_t(0) - 7},
        {"name longer than the fragment", 8 + 16, uint64_t(1) << 62},
        {"data longer than the fragment", 8 + 8, 17},
    };
    for (const Case& c : cases) {
        CASharedMemory segment;
        ASSERT_TRUE(segment.create(m_key.c_str(), kSegmentSize));
        void* block = segment.allocate("blk", 16);
        ASSERT_EQ(offsetOf(segment, block), 40u);

        CASharedMemory stale;  // attached before the damage
        ASSERT_TRUE(stale.attach(m_key.c_str()));

        setWord(segment.data(), c.offset, c.value);
        setWord(segment.data(), 0, word(segment.data(), 0) + 1);  // everybody reloads

        CASharedMemory fresh;
        ::testing::internal::CaptureStderr();
        EXPECT_FALSE(fresh.attach(m_key.c_str())) << c.what;
        ::testing::internal::GetCapturedStderr();
        EXPECT_FALSE(fresh.isOpen());
        EXPECT_EQ(stale.findAddr("blk"), nullptr) << c.what;
        EXPECT_EQ(stale.allocate("new", 8), nullptr) << c.what;
        EXPECT_FALSE(stale.deallocate(block)) << c.what;
        // Attaching to the key already held does not reload.
        EXPECT_TRUE(stale.attach(m_key.c_str()));

        segment.detach();
        stale.detach();
        std::remove(m_key.c_str());
        CASystemSemaphore::remove(m_key.c_str());
    }
}

TEST_F(SharedMemoryTest, TooSmallSegmentIsNotCreated)
{
    CASharedMemory segment;
    EXPECT_FALSE(segment.create(m_key.c_str(), 24));  // no room for counter and one header
    EXPECT_FALSE(segment.isOpen());
}

struct Probe {
    Probe() : m_value(7) {}
    CASharedMemory::TSemaphore m_semaphore;
    int32_t m_value;
    char m_text[16];
};

TEST_F(SharedMemoryTest, TwoProcessesShareBlocksAndSemaphores)
{
    CASharedMemory segment;
    ASSERT_TRUE(segment.create(m_key.c_str(), kSegmentSize));
    Probe* probe = segment.construct<Probe>("probe");
    ASSERT_NE(probe, nullptr);
    EXPECT_EQ(probe->m_value, 7);
    EXPECT_EQ(probe->m_semaphore.m_count, 0);

    ChildProcess child([&]() -> std::string {
        CASharedMemory other;
        if (!other.attach(m_key.c_str()))
            return "attach failed";
        size_t dataSize = 0;
        Probe* seen = static_cast<Probe*>(other.findAddr("probe", &dataSize));
        if (seen == nullptr || dataSize != sizeof(Probe) || offsetOf(other, seen) != 40)
            return "probe not found at its offset";
        if (seen->m_value != 7)
            return "constructed value not visible";
        seen->m_value = 42;
        char* text = static_cast<char*>(other.allocate("fromChild", 16));
        if (text == nullptr)
            return "child allocation failed";
        std::strcpy(text, "hello");
        CASharedMemory::yield(30);
        other.semaphorePost(&seen->m_semaphore);
        return "";
    });
    EXPECT_TRUE(segment.semaphoreWaitTimed(&probe->m_semaphore, 10000));
    EXPECT_EQ(probe->m_semaphore.m_count, 0);
    EXPECT_EQ(child.finish(), "");
    EXPECT_EQ(probe->m_value, 42);
    // The child's allocation moved the change counter, so the cache reloads.
    const char* text = static_cast<const char*>(segment.findAddr("fromChild"));
    ASSERT_NE(text, nullptr);
    EXPECT_STREQ(text, "hello");
}

TEST_F(SharedMemoryTest, TimedWaitsTimeOutAndFindLateBlocks)
{
    CASharedMemory segment;
    ASSERT_TRUE(segment.create(m_key.c_str(), kSegmentSize));
    Probe* probe = segment.construct<Probe>("probe");
    ASSERT_NE(probe, nullptr);

    CASystemTime clock;
    EXPECT_FALSE(segment.semaphoreWaitTimed(&probe->m_semaphore, 5));
    EXPECT_GE(clock.elapsed(), 5u);

    EXPECT_TRUE(segment.semaphorePost(&probe->m_semaphore));
    EXPECT_TRUE(segment.semaphoreWaitTimed(&probe->m_semaphore, 0));  // looks before timing
    EXPECT_EQ(probe->m_semaphore.m_count, 0);

    clock = CASystemTime();
    EXPECT_EQ(segment.waitToFindTimed<Probe>("late", 30), nullptr);
    EXPECT_GE(clock.elapsed(), 30u);

    ChildProcess child([&]() -> std::string {
        CASharedMemory other;
        if (!other.attach(m_key.c_str()))
            return "attach failed";
        CASharedMemory::yield(50);
        return other.construct<Probe>("late") ? "" : "construct failed";
    });
    Probe* late = segment.waitToFindTimed<Probe>("late", 10000);
    ASSERT_NE(late, nullptr);
    EXPECT_EQ(child.finish(), "");
    EXPECT_EQ(late->m_value, 7);
}

}  // namespace
