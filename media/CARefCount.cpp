#include "media/CARefCount.h"

#include <boost/thread/mutex.hpp>

#include <atomic>
#include <mutex>

struct CARefCountBase::TCount {
    boost::mutex mutex;
    // Changed under the mutex; atomic so that the unlocked reads stay defined.
    std::atomic<int64_t> count{0};
};

CARefCountBase::CARefCountBase() : m_count(new TCount) {}

CARefCountBase::~CARefCountBase()
{
    delete m_count;
}

void CARefCountBase::AddReference()
{
    std::lock_guard<boost::mutex> lock(m_count->mutex);
    m_count->count.fetch_add(1, std::memory_order_relaxed);
}

void CARefCountBase::RemoveReference()
{
    int64_t remaining;
    {
        std::lock_guard<boost::mutex> lock(m_count->mutex);
        remaining = m_count->count.fetch_sub(1, std::memory_order_relaxed) - 1;
    }
    // Outside the lock: the holder's mutex dies with it.
    if (remaining == 0)
        delete this;
}

bool CARefCountBase::IsShared() const
{
    return GetRefCount() > 1;
}

int64_t CARefCountBase::GetRefCount() const
{
    return m_count->count.load(std::memory_order_relaxed);
}
