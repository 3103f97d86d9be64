// The growable array and the worker thread. Aligned allocation is checked through the buffer
// pool that uses it.
#include "support/Array_c.h"
#include "support/CAThread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>

namespace {

// Runs once, or until asked to stop, and records what it saw when it began.
class TestThread : public CAThread {
public:
    TestThread(unsigned result, bool loop) : m_result(result), m_loop(loop) {}
    unsigned run() override
    {
        // Qualified, non-virtual calls: the base destructor may already be running.
        m_stateInBody = CAThread::state();
        m_entered = true;
        while (m_loop && !CAThread::stopRequested())
            CAThread::sleep(0.001);
        ++m_runs;
        return m_result;
    }

    std::atomic<bool> m_entered{false};
    std::atomic<int> m_stateInBody{-1}, m_runs{0};

private:
    const unsigned m_result;
    const bool m_loop;
};

}  // namespace

TEST(Array, GrowsInStepsOfTenKeepsSparesAndShrinksOnlyFarAboveTarget)
{
    Array_c<int> array;
    EXPECT_EQ(array[0], nullptr);
    int index = -1;
    for (int i = 0; i < 11; ++i)
        ASSERT_TRUE(array.Append(100 + i, &index));
    EXPECT_EQ(index, 10);
    EXPECT_EQ(array.GetCapacity(), 20);
    EXPECT_EQ(array[11], nullptr);  // a spare slot is not in use
    const struct {
        int size, capacity;
    } steps[] = {
        {25, 30}, {12, 30} /* not above 2 * 12 + 10 */, {2, 10} /* above 14 and the target */, {0, 10}, {2, 10}};
    for (const auto& step : steps) {
        ASSERT_TRUE(array.SetSize(step.size));
        EXPECT_EQ(array.GetSize(), step.size);
        EXPECT_EQ(array.GetCapacity(), step.capacity) << step.size;
    }
    EXPECT_EQ(*array[1], 101);  // spares kept their items
    EXPECT_FALSE(array.SetSize(-1));

    // Removing keeps the order and turns the item into a spare in the former last place.
    ASSERT_TRUE(array.Append(102));
    int* first = array[0];
    ASSERT_TRUE(array.Remove(0));
    EXPECT_EQ(*array[0], 101);
    EXPECT_EQ(*array[1], 102);
    EXPECT_EQ(array[2], nullptr);
    ASSERT_TRUE(array.SetSize(3));
    EXPECT_EQ(array[2], first);
    EXPECT_FALSE(array.Remove(-1));
    EXPECT_FALSE(array.Remove(3));
    array.FreeAllItems();
    EXPECT_EQ(array.GetCapacity(), 0);
    EXPECT_FALSE(array.Remove(0));
}

TEST(CAThread, RunsTheBodyOnceAndKeepsItsResult)
{
    TestThread thread(0x1234u, false);
    EXPECT_EQ(thread.state(), CAThread::eStateStarting);
    EXPECT_FALSE(thread.isRunning());
    ASSERT_TRUE(thread.start());
    thread.wait();
    EXPECT_FALSE(thread.isRunning());
    EXPECT_TRUE(thread.isFinished());
    EXPECT_EQ(thread.m_stateInBody, CAThread::eStateRunning);
    EXPECT_EQ(thread.getError(), 0x1234u);
    ASSERT_TRUE(thread.start());  // after wait() it may start again
    thread.wait();
    EXPECT_EQ(thread.m_runs, 2);
    thread.stop();  // a stop after the body moves a finished thread back
    EXPECT_TRUE(thread.stopRequested());
    EXPECT_FALSE(thread.isFinished());

    CAThread::sleep(-1.0);  // must not turn into a huge unsigned sleep
}

TEST(CAThread, StopEndsTheBody)
{
    TestThread looping(9, true);
    ASSERT_TRUE(looping.start());
    while (!looping.m_entered)
        CAThread::sleep(0.001);
    looping.stop();
    looping.wait();
    EXPECT_TRUE(looping.isFinished());
    EXPECT_EQ(looping.getError(), 9u);
}
