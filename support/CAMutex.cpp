#include "support/CAMutex.h"

#include <boost/thread/mutex.hpp>

CAMutex::CAMutex() : m_mutex(new boost::mutex) {}

CAMutex::~CAMutex()
{
    delete m_mutex;
}

void CAMutex::lock()
{
    m_mutex->lock();
}

void CAMutex::unlock()
{
    m_mutex->unlock();
}

bool CAMutex::trylock()
{
    return m_mutex->try_lock();
}
