#include "support/CAMutex.h"
#include "support/CAThread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

namespace {

// Runs until asked to stop (or at once with quickResult) and reports whether
// it saw a stop request when it began.
class TestThread : public CAThread {
public:
    explicit TestThread(unsigned int result, bool loopUntilStopped)
        : m_result(result), m_loopUntilStopped(loopUntilStopped)
    {
    }

    unsigned int run() override
    {
        // Qualified, non-virtual calls: the base destructor may already be
        // running while this loop polls.
        m_sawStopAtStart = CAThread::stopRequested();
        m_stateInBody = CAThread::state();
        m_entered = true;
        while (m_loopUntilStopped && !CAThread::stopRequested())
            CAThread::sleep(0.001);
        ++m_runs;
        return m_result;
    }

    std::atomic<bool> m_entered{false};
    std::atomic<bool> m_sawStopAtStart{false};
    std::atomic<int> m_stateInBody{-1};
    std::atomic<int> m_runs{0};

private:
    const unsigned int m_result;
    const bool m_loopUntilStopped;
};

TEST(CAThreadTest, RunsBodyAndKeepsItsResultAfterWait)
{
    TestThread thread(0x1234u, false);
    EXPECT_EQ(thread.state(), CAThread::eStateStarting);
    EXPECT_FALSE(thread.isRunning());
    EXPECT_EQ(thread.getError(), 0u);

    ASSERT_TRUE(thread.start());
    EXPECT_TRUE(thread.isRunning());
    thread.wait();
    EXPECT_FALSE(thread.isRunning());
    EXPECT_TRUE(thread.isFinished());
    EXPECT_EQ(thread.m_stateInBody, CAThread::eStateRunning);
    EXPECT_FALSE(thread.m_sawStopAtStart);
    EXPECT_EQ(thread.getError(), 0x1234u);
    EXPECT_EQ(thread.m_runs, 1);

    // After wait() the object may be started again.
    ASSERT_TRUE(thread.start());
    thread.wait();
    EXPECT_EQ(thread.m_runs, 2);
}

TEST(CAThreadTest, StartOfAnUnjoinedFinishedThreadStartsNothing)
{
    TestThread thread(5, false);
    ASSERT_TRUE(thread.start());
    while (!thread.isFinished())
        CAThread::sleep(0.001);
    EXPECT_TRUE(thread.isRunning());
    EXPECT_TRUE(thread.start());
    thread.wait();
    EXPECT_EQ(thread.m_runs, 1);
}

TEST(CAThreadTest, StopBeforeTheBodyBeginsStillRunsItOnce)
{
    // A stop issued right after start() nearly always lands before the new
    // thread reaches the body; retry until it does once.
    bool sawEarlyStop = false;
    for (int attempt = 0; attempt < 200 && !sawEarlyStop; ++attempt) {
        TestThread thread(7, false);
        ASSERT_TRUE(thread.start());
        thread.stop();
        thread.wait();
        EXPECT_EQ(thread.m_runs, 1);
        EXPECT_EQ(thread.getError(), 7u);
        // A stop after the body ended moves a finished thread back to 2.
        EXPECT_TRUE(thread.isFinished() || thread.stopRequested());
        if (thread.m_sawStopAtStart) {
            // The early request is not overwritten by "running", and the end
            // of the body still marks the thread finished.
            EXPECT_EQ(thread.m_stateInBody, CAThread::eStateStopRequested);
            EXPECT_TRUE(thread.isFinished());
            sawEarlyStop = true;
        }
    }
    // Some schedulers (the thread sanitizer's) always let the worker in first.
    if (!sawEarlyStop)
        GTEST_SKIP() << "no stop landed before the body began";
}

TEST(CAThreadTest, StopMovesAFinishedThreadToStopRequested)
{
    TestThread thread(0, false);
    ASSERT_TRUE(thread.start());
    thread.wait();
    ASSERT_TRUE(thread.isFinished());
    thread.stop();
    EXPECT_TRUE(thread.stopRequested());
    EXPECT_FALSE(thread.isFinished());
}

TEST(CAThreadTest, StopEndsALoopingBody)
{
    TestThread thread(9, true);
    ASSERT_TRUE(thread.start());
    while (!thread.m_entered)
        CAThread::sleep(0.001);
    EXPECT_EQ(thread.state(), CAThread::eStateRunning);
    thread.stop();
    thread.wait();
    EXPECT_TRUE(thread.isFinished());
    EXPECT_EQ(thread.getError(), 9u);
}

// Outside the object: the body reports after the subclass part is destroyed.
std::atomic<bool> g_bodyEntered{false};
std::atomic<bool> g_bodyReturned{false};

class StopsOnlyInBaseDestructor : public CAThread {
public:
    unsigned int run() override
    {
        g_bodyEntered = true;
        while (!CAThread::stopRequested())
            CAThread::sleep(0.001);
        CAThread::sleep(0.02);  // still running while the destructor waits
        g_bodyReturned = true;
        return 0;
    }
};

TEST(CAThreadTest, DestroyingARunningThreadWaitsForTheBody)
{
    {
        StopsOnlyInBaseDestructor thread;
        ASSERT_TRUE(thread.start());
        while (!g_bodyEntered)
            CAThread::sleep(0.001);
        EXPECT_FALSE(g_bodyReturned);
    }
    EXPECT_TRUE(g_bodyReturned);
}

TEST(CAThreadTest, SleepConvertsSecondsAndIgnoresNegativeValues)
{
    using Clock = std::chrono::steady_clock;
    auto begin = Clock::now();
    CAThread::sleep(0.25);
    EXPECT_GE(Clock::now() - begin, std::chrono::microseconds(250000));

    // A negative value must not turn into a huge unsigned sleep.
    begin = Clock::now();
    CAThread::sleep(-1.0);
    EXPECT_LT(Clock::now() - begin, std::chrono::seconds(5));
}

TEST(CAMutexTest, TrylockFailsWhileAnotherThreadHoldsTheMutex)
{
    CAMutex mutex;
    ASSERT_TRUE(mutex.trylock());
    bool takenElsewhere = true;
    std::thread other([&] { takenElsewhere = mutex.trylock(); });
    other.join();
    EXPECT_FALSE(takenElsewhere);
    mutex.unlock();

    std::thread again([&] {
        takenElsewhere = mutex.trylock();
        if (takenElsewhere)
            mutex.unlock();
    });
    again.join();
    EXPECT_TRUE(takenElsewhere);
}

TEST(CAMutexTest, SerialisesIncrementsFromManyThreads)
{
    CAMutex mutex;
    long counter = 0;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&] {
            for (int i = 0; i < 10000; ++i) {
                CAMutexLocker locker(mutex);
                ++counter;
            }
        });
    for (auto& t : threads)
        t.join();
    EXPECT_EQ(counter, 40000);
}

}  // namespace
