#include "support/CAThread.h"

#include <boost/thread/thread.hpp>

#include <exception>
#include <iostream>

#include <unistd.h>

void CAThreadHelper::operator()() const
{
    m_thread->runBody();
}

CAThread::CAThread()
{
    m_threadEntry.SetThread(this);
}

CAThread::~CAThread()
{
    stop();
    wait();
}

bool CAThread::start()
{
    CAMutexLocker locker(m_mutex);
    if (isRunning())
        return true;
    m_state = eStateStarting;
    try {
        m_thread = new boost::thread(m_threadEntry);
    } catch (const std::exception& e) {
        std::cerr << "CAThread::start caught exception: " << e.what() << std::endl;
        m_thread = nullptr;
        return false;
    } catch (...) {
        std::cerr << "CAThread::start caught unexpected exception" << std::endl;
        m_thread = nullptr;
        return false;
    }
    return true;
}

void CAThread::stop()
{
    CAMutexLocker locker(m_mutex);
    m_state = eStateStopRequested;
}

void CAThread::wait()
{
    if (m_thread == nullptr)
        return;
    m_thread->join();
    CAMutexLocker locker(m_mutex);
    delete m_thread;
    m_thread = nullptr;
}

int CAThread::state() const
{
    return m_state;
}

bool CAThread::isRunning() const
{
    return m_thread != nullptr;
}

bool CAThread::isFinished() const
{
    return m_state == eStateFinished;
}

bool CAThread::stopRequested() const
{
    return m_state == eStateStopRequested;
}

unsigned int CAThread::getError() const
{
    return m_error;
}

void CAThread::threadFinished(unsigned int result)
{
    CAMutexLocker locker(m_mutex);
    m_error = result;
}

void CAThread::sleep(double seconds)
{
    if (seconds < 0.0)
        return;
    usleep(static_cast<useconds_t>(seconds * 1000000.0));
}

void CAThread::runBody()
{
    {
        CAMutexLocker locker(m_mutex);
        // A stop requested before the body began stays visible to the body.
        if (m_state != eStateStopRequested) {
            m_state = eStateRunning;
            m_error = 0;
        }
    }
    const unsigned int result = run();
    {
        CAMutexLocker locker(m_mutex);
        m_state = eStateFinished;
    }
    threadFinished(result);
}
