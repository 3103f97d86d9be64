#include "media/CABufferPool.h"

#include <new>

CABufferPool* CABufferPool::GetBufferPool()
{
    // Never destroyed: buffers may be released by static objects at exit.
    static CABufferPool* const pool = new CABufferPool;
    return pool;
}

CABufferPool::~CABufferPool()
{
    CAMutexLocker locker(m_mutex);
    CleanPool();
    // Buffers still in use are left to their holders.
    for (int i = m_buffers.GetSize() - 1; i >= 0; --i) {
        CABuffer* buffer = *m_buffers[i];
        if (buffer->IsAvailable()) {
            m_buffers.Remove(i);
            delete buffer;
        }
    }
}

CABuffer* CABufferPool::AquireBuffer(unsigned int size)
{
    CAMutexLocker locker(m_mutex);
    // 32-bit arithmetic on purpose: near the top of the range the window wraps
    // and nothing is reused.
    const unsigned int largest = size + kReuseWindow;
    for (int i = 0; i < m_buffers.GetSize(); ++i) {
        CABuffer* buffer = *m_buffers[i];
        if (buffer->IsAvailable() && buffer->GetSize() >= size && buffer->GetSize() <= largest) {
            buffer->Aquire();
            return buffer;
        }
    }
    CABuffer* buffer = nullptr;
    try {
        buffer = new CABuffer(size);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
    if (!m_buffers.Append(buffer)) {
        delete buffer;
        return nullptr;
    }
    AddPoolSizeLocked(size);
    buffer->Aquire();
    return buffer;
}

unsigned int CABufferPool::AddPoolSize(unsigned int size)
{
    CAMutexLocker locker(m_mutex);
    return AddPoolSizeLocked(size);
}

unsigned int CABufferPool::AddPoolSizeLocked(unsigned int size)
{
    if (FindPoolSize(size) >= 0)
        return 0;
    return m_poolSizes.Append(size) ? 0u : kCABufferPoolArrayError;
}

unsigned int CABufferPool::RemovePoolSize(unsigned int size)
{
    CAMutexLocker locker(m_mutex);
    unsigned int result = kCABufferPoolSizeUnknown;
    const int index = FindPoolSize(size);
    if (index >= 0)
        result = m_poolSizes.Remove(index) ? 0u : kCABufferPoolArrayError;
    CleanPool();
    return result;
}

void CABufferPool::ReleaseBuffers()
{
    CAMutexLocker locker(m_mutex);
    CleanPool();
}

int CABufferPool::GetPoolSize()
{
    // Locked although only a snapshot: the arrays may be reallocated meanwhile.
    CAMutexLocker locker(m_mutex);
    return m_buffers.GetSize();
}

unsigned int CABufferPool::GetUsedBufferCount()
{
    CAMutexLocker locker(m_mutex);
    unsigned int used = 0;
    for (int i = 0; i < m_buffers.GetSize(); ++i)
        if (!(*m_buffers[i])->IsAvailable())
            ++used;
    return used;
}

int CABufferPool::FindPoolSize(unsigned int size) const
{
    for (int i = 0; i < m_poolSizes.GetSize(); ++i)
        if (*m_poolSizes[i] == size)
            return i;
    return -1;
}

void CABufferPool::CleanPool()
{
    int index = 0;
    while (index < m_poolSizes.GetSize()) {
        const unsigned int size = *m_poolSizes[index];
        bool inUse = false;
        for (int i = 0; i < m_buffers.GetSize() && !inUse; ++i) {
            const CABuffer* buffer = *m_buffers[i];
            inUse = buffer->GetSize() == size && !buffer->IsAvailable();
        }
        if (inUse) {
            ++index;
            continue;
        }
        for (int i = m_buffers.GetSize() - 1; i >= 0; --i) {
            CABuffer* buffer = *m_buffers[i];
            if (buffer->GetSize() == size) {
                m_buffers.Remove(i);
                delete buffer;
            }
        }
        // The next size moves into this index.
        m_poolSizes.Remove(index);
    }
}
