// The process-wide buffer pool (reuse window, order, alignment, cleaning, concurrent users) and
// the reference counts that keep frames alive across threads.
#include "media/CAImageFrame.h"
#include "media/CASharedPtr.h"

#include "MediaTestSupport.h"

#include <cstring>
#include <thread>
#include <vector>

namespace {

// A frame that reports its destruction.
class TracedFrame : public CAImageFrame {
public:
    explicit TracedFrame(std::atomic<int>& destroyed) : m_destroyed(destroyed) {}
    ~TracedFrame() override { ++m_destroyed; }

private:
    std::atomic<int>& m_destroyed;
};
using FramePtr = CASharedPtr<CAImageFrame, CAFrame>;

}  // namespace

TEST_F(MediaTest, ReuseWindowReachesExactly1024BytesAboveTheRequest)
{
    CABuffer* big = m_pool->AquireBuffer(2000);
    ASSERT_NE(big, nullptr);
    ASSERT_EQ(big->Release(), 0u);
    const struct {
        unsigned request;
        bool reused;
    } rows[] = {
        {2000, true},   // same size
        {976, true},    // 1024 bytes larger: the edge of the window
        {975, false},   // 1025 bytes larger
        {2001, false},  // a smaller buffer never serves a larger request
    };
    for (const auto& row : rows) {
        CABuffer* got = m_pool->AquireBuffer(row.request);
        ASSERT_NE(got, nullptr);
        EXPECT_EQ(got == big, row.reused) << row.request;
        EXPECT_EQ(got->GetSize(), row.reused ? 2000u : row.request);
        ASSERT_EQ(got->Release(), 0u);
    }

    // Taking a buffer twice or giving it back twice is refused.
    CABuffer* a = m_pool->AquireBuffer(3000);
    ASSERT_EQ(a->Release(), 0u);
    EXPECT_EQ(a->Release(), kCABufferAlreadyAvailable);
    ASSERT_EQ(a->Aquire(), 0u);
    EXPECT_EQ(a->Aquire(), kCABufferAlreadyInUse);
    EXPECT_EQ(a->Release(), 0u);
}

TEST_F(MediaTest, DataLiesFourBytesPastA32ByteBoundaryWithSpareBytes)
{
    std::vector<CABuffer*> buffers;
    for (unsigned size : {0u, 31u, 4095u}) {
        CABuffer* buffer = m_pool->AquireBuffer(size);
        ASSERT_NE(buffer, nullptr);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(buffer->GetData()) % 32, 4u) << size;
        std::memset(buffer->GetData(), 0xA5, size + 4);  // 4 bytes past the size are writable
        buffers.push_back(buffer);
    }
    for (CABuffer* buffer : buffers)
        EXPECT_EQ(buffer->Release(), 0u);
}

TEST_F(MediaTest, CleaningFreesOnlySizesWithNoBufferInUse)
{
    CABuffer* held = m_pool->AquireBuffer(1000);
    CABuffer* free1 = m_pool->AquireBuffer(1000);
    CABuffer* other = m_pool->AquireBuffer(5000);
    ASSERT_TRUE(held && free1 && other);
    ASSERT_EQ(free1->Release(), 0u);
    ASSERT_EQ(other->Release(), 0u);
    m_pool->ReleaseBuffers();  // one of 1000 in use: both stay; 5000 goes
    EXPECT_EQ(m_pool->GetPoolSize(), m_baseCount + 2);
    ASSERT_EQ(held->Release(), 0u);
    m_pool->ReleaseBuffers();
    EXPECT_EQ(m_pool->GetPoolSize(), m_baseCount);
}

TEST_F(MediaTest, ConcurrentUsersNeverShareABuffer)
{
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([this, t, &failures] {
            for (int round = 0; round < 1000; ++round) {
                CABuffer* buffer = m_pool->AquireBuffer(8000 + (round % 3) * 100);
                if (buffer == nullptr) {
                    ++failures;
                    continue;
                }
                std::memset(buffer->GetData(), t + 1, 64);
                std::this_thread::yield();
                failures += std::count(buffer->GetData(), buffer->GetData() + 64, t + 1) != 64;
                failures += buffer->Release() != 0;
            }
        });
    for (auto& t : threads)
        t.join();
    EXPECT_EQ(failures, 0);
    EXPECT_LE(m_pool->GetPoolSize(), m_baseCount + 3 * 4);  // reuse bounds the pool
    EXPECT_EQ(CABufferPool::GetBufferPool(), m_pool);
}

TEST_F(MediaTest, LastReferenceOnAnyThreadDestroysTheFrameWithItsBundleAndBuffer)
{
    std::atomic<int> destroyed{0};
    {
        FramePtr shared(new TracedFrame(destroyed));
        shared->SetWidth(64);
        shared->SetHeight(64);
        ASSERT_NE(shared->GetZKImage().planes[0], nullptr);
        IPacketBundle* bundle = new TestPacketBundle;
        shared->ExchangeDataPacketsWith(bundle);
        std::vector<std::thread> threads;
        for (int t = 0; t < 4; ++t)
            threads.emplace_back([&shared] {
                std::vector<FramePtr> held;
                for (int round = 0; round < 5000; ++round) {
                    held.push_back(shared);
                    if (held.size() > 5)
                        held.erase(held.begin());
                }
            });
        for (auto& t : threads)
            t.join();
        FramePtr second = shared;
        const FramePtr& same = second;
        second = same;  // same holder: nothing changes
        EXPECT_EQ(shared.GetRefCount(), 2);
        shared = FramePtr();
        EXPECT_EQ(destroyed, 0);
    }
    EXPECT_EQ(destroyed, 1);         // the fixture sees the buffer and the bundle back
    for (int i = 0; i < 100; ++i) {  // the last copy dropped on either thread destroys it once
        FramePtr* a = new FramePtr(new TracedFrame(destroyed));
        FramePtr* b = new FramePtr(*a);
        std::thread dropA([a] { delete a; });
        delete b;
        dropA.join();
    }
    EXPECT_EQ(destroyed, 101);
}
