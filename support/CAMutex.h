// Process-local, non-recursive mutex used by the buffer pool and the worker
// thread.
#pragma once

namespace boost {
class mutex;
}

class CAMutex {
public:
    // Throws boost::thread_resource_error when the system mutex cannot be made.
    CAMutex();
    ~CAMutex();

    CAMutex(const CAMutex&) = delete;
    CAMutex& operator=(const CAMutex&) = delete;

    void lock();
    void unlock();
    // True when the mutex was taken, false when another holder has it.
    bool trylock();

private:
    boost::mutex* m_mutex;
};

// Holds a CAMutex for the life of a scope.
class CAMutexLocker {
public:
    explicit CAMutexLocker(CAMutex& mutex) : m_mutex(mutex) { m_mutex.lock(); }
    ~CAMutexLocker() { m_mutex.unlock(); }

    CAMutexLocker(const CAMutexLocker&) = delete;
    CAMutexLocker& operator=(const CAMutexLocker&) = delete;

private:
    CAMutex& m_mutex;
};
