#include "media/CABuffer.h"

#include "media/CABufferPool.h"
#include "support/ZKAlignedAlloc.h"

#include <new>

CABuffer::CABuffer(unsigned int size) : m_size(size)
{
    m_block = ZKAllocPtrAligned(static_cast<size_t>(size) + 8, kAlignment);
    if (m_block == nullptr)
        throw std::bad_alloc();
    m_data = static_cast<unsigned char*>(m_block) + kDataOffset;
}

CABuffer::~CABuffer()
{
    ZKFreePtrAligned(m_block);
}

unsigned int CABuffer::Aquire()
{
    if (!m_isAvailable.load(std::memory_order_relaxed))
        return kCABufferAlreadyInUse;
    m_isAvailable.store(false, std::memory_order_relaxed);
    return 0;
}

unsigned int CABuffer::Release()
{
    CAMutexLocker locker(*CABufferPool::GetBufferPool()->GetMutexPtr());
    if (m_isAvailable.load(std::memory_order_relaxed))
        return kCABufferAlreadyAvailable;
    m_isAvailable.store(true, std::memory_order_relaxed);
    return 0;
}
