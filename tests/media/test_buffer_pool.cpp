#include "media/CABufferPool.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <thread>
#include <vector>

namespace {

// Every test starts from a pool without free buffers of registered sizes, so
// that reuse can only come from buffers the test made itself.
class BufferPoolTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        pool = CABufferPool::GetBufferPool();
        ASSERT_EQ(pool->GetUsedBufferCount(), 0u);
        pool->ReleaseBuffers();
        baseCount = pool->GetPoolSize();
    }

    void TearDown() override { pool->ReleaseBuffers(); }

    CABufferPool* pool = nullptr;
    int baseCount = 0;
};

TEST_F(BufferPoolTest, IsOneProcessWidePool)
{
    CABufferPool* fromThreads[4] = {};
    std::vector<std::thread> threads;
    for (auto& slot : fromThreads)
        threads.emplace_back([&slot] { slot = CABufferPool::GetBufferPool(); });
    for (auto& t : threads)
        t.join();
    for (CABufferPool* p : fromThreads)
        EXPECT_EQ(p, pool);
}

TEST_F(BufferPoolTest, ReleasedBufferIsReusedForTheSameSize)
{
    CABuffer* first = pool->AquireBuffer(1000);
    CABuffer* second = pool->AquireBuffer(1000);
    ASSERT_NE(first, nullptr);
    ASSERT_NE(second, nullptr);
    EXPECT_NE(first, second);
    EXPECT_EQ(pool->GetPoolSize(), baseCount + 2);
    EXPECT_EQ(pool->GetUsedBufferCount(), 2u);

    EXPECT_EQ(first->Release(), 0u);
    EXPECT_EQ(pool->GetUsedBufferCount(), 1u);
    EXPECT_EQ(pool->AquireBuffer(1000), first);
    EXPECT_EQ(pool->GetPoolSize(), baseCount + 2);

    EXPECT_EQ(first->Release(), 0u);
    EXPECT_EQ(second->Release(), 0u);
}

TEST_F(BufferPoolTest, ReuseWindowReachesExactly1024BytesAboveTheRequest)
{
    CABuffer* big = pool->AquireBuffer(2000);
    ASSERT_NE(big, nullptr);
    ASSERT_EQ(big->Release(), 0u);

    const struct {
        unsigned int request;
        bool reused;
    } cases[] = {
        {2000, true},   // same size
        {1000, true},   // 1000 bytes larger
        {976, true},    // 1024 bytes larger: the edge of the window
        {975, false},   // 1025 bytes larger
        {2001, false},  // a smaller buffer never serves a larger request
    };
    for (const auto& c : cases) {
        CABuffer* got = pool->AquireBuffer(c.request);
        ASSERT_NE(got, nullptr);
        EXPECT_EQ(got == big, c.reused) << "request " << c.request;
        EXPECT_GE(got->GetSize(), c.request);
        if (!c.reused) {
            EXPECT_EQ(got->GetSize(), c.request) << "a new buffer has the requested size";
        }
        ASSERT_EQ(got->Release(), 0u);
    }
}

TEST_F(BufferPoolTest, FirstQualifyingBufferInCreationOrderWins)
{
    CABuffer* a = pool->AquireBuffer(3000);
    CABuffer* b = pool->AquireBuffer(3500);
    CABuffer* c = pool->AquireBuffer(3000);
    ASSERT_TRUE(a && b && c);
    ASSERT_EQ(c->Release(), 0u);
    ASSERT_EQ(b->Release(), 0u);
    // b (3500) was made before c (3000) and lies within the window of 3000.
    EXPECT_EQ(pool->AquireBuffer(3000), b);
    EXPECT_EQ(pool->AquireBuffer(3000), c);
    for (CABuffer* buffer : {a, b, c})
        EXPECT_EQ(buffer->Release(), 0u);
}

TEST_F(BufferPoolTest, DoubleAquireAndDoubleReleaseAreRefused)
{
    CABuffer* buffer = pool->AquireBuffer(4000);
    ASSERT_NE(buffer, nullptr);
    EXPECT_FALSE(buffer->IsAvailable());
    EXPECT_EQ(buffer->Aquire(), kCABufferAlreadyInUse);
    EXPECT_FALSE(buffer->IsAvailable());

    EXPECT_EQ(buffer->Release(), 0u);
    EXPECT_TRUE(buffer->IsAvailable());
    EXPECT_EQ(buffer->Release(), kCABufferAlreadyAvailable);
    EXPECT_TRUE(buffer->IsAvailable());
    EXPECT_EQ(pool->GetUsedBufferCount(), 0u);
}

TEST_F(BufferPoolTest, DataLiesFourBytesPastA32ByteBoundaryWithEightSpareBytes)
{
    std::vector<CABuffer*> buffers;
    for (unsigned int size : {0u, 1u, 31u, 32u, 33u, 4095u, 1920u * 1080u * 3u / 2u}) {
        CABuffer* buffer = pool->AquireBuffer(size);
        ASSERT_NE(buffer, nullptr);
        const auto address = reinterpret_cast<uintptr_t>(buffer->GetData());
        EXPECT_EQ(address % 32, 4u) << "size " << size;
        // The whole requested size plus 4 more bytes is writable.
        std::memset(buffer->GetData(), 0xA5, size + 4);
        buffers.push_back(buffer);
    }
    for (CABuffer* buffer : buffers)
        EXPECT_EQ(buffer->Release(), 0u);
}

TEST_F(BufferPoolTest, CleaningFreesOnlySizesWithNoBufferInUse)
{
    CABuffer* held = pool->AquireBuffer(1000);
    CABuffer* freeOne = pool->AquireBuffer(1000);
    CABuffer* freeTwo = pool->AquireBuffer(1000);
    CABuffer* other = pool->AquireBuffer(5000);
    ASSERT_TRUE(held && freeOne && freeTwo && other);
    ASSERT_EQ(freeOne->Release(), 0u);
    ASSERT_EQ(freeTwo->Release(), 0u);
    ASSERT_EQ(other->Release(), 0u);
    ASSERT_EQ(pool->GetPoolSize(), baseCount + 4);

    // One buffer of 1000 is in use: all three stay; 5000 has none in use.
    pool->ReleaseBuffers();
    EXPECT_EQ(pool->GetPoolSize(), baseCount + 3);
    EXPECT_EQ(pool->GetUsedBufferCount(), 1u);

    ASSERT_EQ(held->Release(), 0u);
    pool->ReleaseBuffers();
    EXPECT_EQ(pool->GetPoolSize(), baseCount);
    // 1000 left the pool sizes with its buffers: removing it is now refused.
    EXPECT_EQ(pool->RemovePoolSize(1000), kCABufferPoolSizeUnknown);
}

TEST_F(BufferPoolTest, RemovePoolSizeUnregistersThenCleansTheOthers)
{
    // A size far from the others: its buffers outlive this test unregistered.
    const unsigned int kept = 900000;
    CABuffer* keptBuffer = pool->AquireBuffer(kept);
    CABuffer* cleaned = pool->AquireBuffer(6000);
    ASSERT_TRUE(keptBuffer && cleaned);
    ASSERT_EQ(keptBuffer->Release(), 0u);
    ASSERT_EQ(cleaned->Release(), 0u);

    EXPECT_EQ(pool->RemovePoolSize(7777), kCABufferPoolSizeUnknown);
    // The unknown size still cleaned the others.
    EXPECT_EQ(pool->GetPoolSize(), baseCount);

    keptBuffer = pool->AquireBuffer(kept);
    ASSERT_EQ(keptBuffer->Release(), 0u);
    EXPECT_EQ(pool->RemovePoolSize(kept), 0u);
    // Removed before cleaning, so its buffer is not freed, now or later.
    EXPECT_EQ(pool->GetPoolSize(), baseCount + 1);
    pool->ReleaseBuffers();
    EXPECT_EQ(pool->GetPoolSize(), baseCount + 1);
    EXPECT_EQ(pool->AquireBuffer(kept), keptBuffer);
    ASSERT_EQ(keptBuffer->Release(), 0u);

    // Registering the size again lets cleaning free it.
    EXPECT_EQ(pool->AddPoolSize(kept), 0u);
    EXPECT_EQ(pool->AddPoolSize(kept), 0u);  // already registered
    pool->ReleaseBuffers();
    EXPECT_EQ(pool->GetPoolSize(), baseCount);
}

TEST_F(BufferPoolTest, ConcurrentUsersNeverShareABuffer)
{
    constexpr int kThreads = 4;
    constexpr int kRounds = 2000;
    std::vector<std::thread> threads;
    std::vector<int> failures(kThreads, 0);
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([this, t, &failures] {
            const unsigned char mark = static_cast<unsigned char>(t + 1);
            for (int round = 0; round < kRounds; ++round) {
                CABuffer* buffer = pool->AquireBuffer(8000 + (round % 3) * 100);
                if (buffer == nullptr) {
                    ++failures[t];
                    continue;
                }
                std::memset(buffer->GetData(), mark, 64);
                std::this_thread::yield();
                for (int i = 0; i < 64; ++i)
                    if (buffer->GetData()[i] != mark) {
                        ++failures[t];
                        break;
                    }
                if (buffer->Release() != 0)
                    ++failures[t];
            }
        });
    for (auto& t : threads)
        t.join();
    for (int t = 0; t < kThreads; ++t)
        EXPECT_EQ(failures[t], 0) << "thread " << t;
    EXPECT_EQ(pool->GetUsedBufferCount(), 0u);
    // Reuse bounds the pool: each thread holds one buffer of one of 3 sizes.
    EXPECT_LE(pool->GetPoolSize(), baseCount + 3 * kThreads);
}

}  // namespace
