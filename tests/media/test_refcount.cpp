#include "media/CABufferPool.h"
#include "media/CAImageFrame.h"
#include "media/CARefCount.h"
#include "media/CASharedPtr.h"
#include "TestPacketBundle.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

namespace {

class Counted : public CARefCountBase {
public:
    explicit Counted(int& destroyed) : m_destroyed(destroyed) {}
    ~Counted() override { ++m_destroyed; }

private:
    int& m_destroyed;
};

TEST(RefCountTest, LastRemoveReferenceDeletesTheObject)
{
    int destroyed = 0;
    Counted* counted = new Counted(destroyed);
    EXPECT_EQ(counted->GetRefCount(), 0);
    counted->AddReference();
    EXPECT_FALSE(counted->IsShared());
    counted->AddReference();
    EXPECT_TRUE(counted->IsShared());
    EXPECT_EQ(counted->GetRefCount(), 2);
    counted->RemoveReference();
    EXPECT_EQ(destroyed, 0);
    EXPECT_EQ(counted->GetRefCount(), 1);
    counted->RemoveReference();
    EXPECT_EQ(destroyed, 1);
}

// A frame that reports its destruction.
class TracedFrame : public CAImageFrame {
public:
    explicit TracedFrame(std::atomic<int>& destroyed) : m_destroyed(destroyed) {}
    ~TracedFrame() override { ++m_destroyed; }

private:
    std::atomic<int>& m_destroyed;
};

using FramePtr = CASharedPtr<CAImageFrame, CAFrame>;

TEST(SharedPtrTest, EmptyPointerHasAHolderOfItsOwn)
{
    FramePtr empty;
    EXPECT_EQ(empty.get(), nullptr);
    EXPECT_FALSE(empty);
    EXPECT_EQ(empty.GetRefCount(), 1);
    FramePtr copy(empty);
    EXPECT_EQ(empty.GetRefCount(), 2);
}

TEST(SharedPtrTest, FrameLivesUntilTheLastCopyDropsAndTakesBundlesAndBufferAlong)
{
    CABufferPool* pool = CABufferPool::GetBufferPool();
    const unsigned int usedBefore = pool->GetUsedBufferCount();
    const int bundlesBefore = TestPacketBundle::Live();
    std::atomic<int> destroyed{0};
    {
        FramePtr first(new TracedFrame(destroyed));
        first->SetWidth(64);
        first->SetHeight(64);
        ASSERT_NE(first->GetZKImage().planes[0], nullptr);
        IPacketBundle* bundle = new TestPacketBundle;
        first->ExchangeDataPacketsWith(bundle);
        EXPECT_EQ(pool->GetUsedBufferCount(), usedBefore + 1);
        EXPECT_EQ(TestPacketBundle::Live(), bundlesBefore + 1);

        FramePtr second;
        {
            FramePtr copy(first);
            EXPECT_EQ(first.GetRefCount(), 2);
            EXPECT_TRUE(copy.IsShared());
            EXPECT_EQ(copy.get(), first.get());
            second = copy;
            EXPECT_EQ(first.GetRefCount(), 3);
            second = second;  // same holder: nothing changes
            EXPECT_EQ(first.GetRefCount(), 3);
        }
        EXPECT_EQ(first.GetRefCount(), 2);
        first = FramePtr();  // dropping the first keeps the frame
        EXPECT_EQ(destroyed, 0);
        EXPECT_EQ(second.GetRefCount(), 1);
        EXPECT_EQ(second->GetWidth(), 64u);
    }
    EXPECT_EQ(destroyed, 1);
    EXPECT_EQ(pool->GetUsedBufferCount(), usedBefore);
    EXPECT_EQ(TestPacketBundle::Live(), bundlesBefore);
}

TEST(SharedPtrTest, ManyThreadsCopyingAndDroppingOnePointer)
{
    constexpr int kThreads = 8;
    constexpr int kRounds = 20000;
    std::atomic<int> destroyed{0};
    std::atomic<bool> go{false};
    {
        FramePtr shared(new TracedFrame(destroyed));
        std::vector<std::thread> threads;
        for (int t = 0; t < kThreads; ++t)
            threads.emplace_back([&shared, &go] {
                while (!go)
                    std::this_thread::yield();
                std::vector<FramePtr> held;
                for (int round = 0; round < kRounds; ++round) {
                    FramePtr copy(shared);
                    if (round % 3 == 0)
                        held.push_back(copy);
                    if (held.size() > 5)
                        held.erase(held.begin());
                    // Read through the pointer while others change the count.
                    if (copy->GetWidth() != 0)
                        std::abort();
                }
            });
        go = true;
        for (auto& t : threads)
            t.join();
        EXPECT_EQ(shared.GetRefCount(), 1);
        EXPECT_EQ(destroyed, 0);
    }
    EXPECT_EQ(destroyed, 1);
}

TEST(SharedPtrTest, LastCopyDroppedOnAnotherThreadDestroysTheFrameOnce)
{
    constexpr int kFrames = 200;
    std::atomic<int> destroyed{0};
    for (int i = 0; i < kFrames; ++i) {
        FramePtr* a = new FramePtr(new TracedFrame(destroyed));
        FramePtr* b = new FramePtr(*a);
        std::thread dropA([a] { delete a; });
        std::thread dropB([b] { delete b; });
        dropA.join();
        dropB.join();
    }
    EXPECT_EQ(destroyed, kFrames);
}

}  // namespace
