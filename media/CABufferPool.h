// The process-wide pool of CABuffers. A released buffer is kept and handed out
// again for a later request of a similar size; memory goes back to the system
// only when the pool is cleaned.
#pragma once

#include "media/CABuffer.h"
#include "support/Array_c.h"
#include "support/CAMutex.h"

class CABufferPool {
public:
    // A free buffer serves requests from its own size down to 1024 bytes less.
    static constexpr unsigned int kReuseWindow = 1024;

    // The pool of this process, made on the first call and never destroyed.
    static CABufferPool* GetBufferPool();

    CAMutex* GetMutexPtr() { return &m_mutex; }

    // An in-use buffer of at least size bytes, or null when memory is exhausted.
    CABuffer* AquireBuffer(unsigned int size);
    // Registers a size; 0, or kCABufferPoolArrayError.
    unsigned int AddPoolSize(unsigned int size);
    // Unregisters a size, then cleans the pool; 0, kCABufferPoolSizeUnknown or
    // kCABufferPoolArrayError. Buffers of that size are not freed by this call.
    unsigned int RemovePoolSize(unsigned int size);
    // Frees every buffer of each registered size of which no buffer is in use.
    void ReleaseBuffers();

    // Snapshots: the number of buffers the pool owns and of those in use.
    int GetPoolSize();
    unsigned int GetUsedBufferCount();

    CABufferPool(const CABufferPool&) = delete;
    CABufferPool& operator=(const CABufferPool&) = delete;

private:
    CABufferPool() = default;
    ~CABufferPool();

    unsigned int AddPoolSizeLocked(unsigned int size);
    int FindPoolSize(unsigned int size) const;
    void CleanPool();

    CAMutex m_mutex;
    Array_c<unsigned int> m_poolSizes;  // distinct sizes, in order of first appearance
    Array_c<CABuffer*> m_buffers;       // every owned buffer, in order of creation
};
