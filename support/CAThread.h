// Abstract worker thread: a subclass supplies the body, the base class runs it
// on a thread of its own, tracks its state and joins it.
#pragma once

#include "support/CAMutex.h"

#include <atomic>

namespace boost {
class thread;
}

class CAThread;

// The callable handed to the thread library; runs the body of its CAThread.
class CAThreadHelper {
public:
    void SetThread(CAThread* thread) { m_thread = thread; }
    void operator()() const;

private:
    CAThread* m_thread = nullptr;
};

class CAThread {
public:
    enum EState : int {
        eStateStarting = 0,
        eStateRunning = 1,
        eStateStopRequested = 2,
        eStateFinished = 3,
    };

    CAThread();
    // Requests a stop and blocks until the body has returned. A subclass whose
    // body touches its own members must stop and wait in its own destructor,
    // because those members are gone by the time this one runs.
    virtual ~CAThread();

    CAThread(const CAThread&) = delete;
    CAThread& operator=(const CAThread&) = delete;

    // The work; runs on the new thread. Its result becomes getError().
    virtual unsigned int run() = 0;

    // True when the thread was started or already exists (started, not joined).
    virtual bool start();
    // Asks the body to return; the body is expected to poll stopRequested().
    virtual void stop();
    // Joins the thread, if any, and drops it.
    virtual void wait();

    virtual int state() const;
    // True from start() until wait(), whether or not the body has ended.
    virtual bool isRunning() const;
    virtual bool isFinished() const;
    virtual bool stopRequested() const;
    virtual unsigned int getError() const;
    // Called on the worker thread after the body with its result.
    virtual void threadFinished(unsigned int result);

    // Sleeps the given seconds (whole microseconds); negative returns at once.
    static void sleep(double seconds);

private:
    friend class CAThreadHelper;
    void runBody();

    CAMutex m_mutex;
    boost::thread* m_thread = nullptr;
    // Written under m_mutex, read without it: atomics keep those reads defined.
    std::atomic<int> m_state{eStateStarting};
    std::atomic<unsigned int> m_error{0};
    CAThreadHelper m_threadEntry;
};
