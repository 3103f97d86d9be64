// A block of bytes lent out by the process-wide buffer pool.
#pragma once

#include <atomic>
#include <cstdint>

// Result codes of the buffer pool.
constexpr uint32_t kCABufferPoolArrayError = 0x800F0002;    // the pool sizes could not grow or shrink
constexpr uint32_t kCABufferAlreadyInUse = 0x800F0003;      // Aquire of a buffer in use
constexpr uint32_t kCABufferAlreadyAvailable = 0x800F0004;  // Release of a buffer that is available
constexpr uint32_t kCABufferPoolSizeUnknown = 0x800F0005;   // RemovePoolSize of an unregistered size

class CABuffer {
public:
    // The usable bytes start 4 bytes past a 32-byte boundary.
    static constexpr unsigned int kAlignment = 32;
    static constexpr unsigned int kDataOffset = 4;

    // Allocates the block; throws std::bad_alloc when memory is exhausted.
    // The buffer starts available.
    explicit CABuffer(unsigned int size);
    ~CABuffer();

    CABuffer(const CABuffer&) = delete;
    CABuffer& operator=(const CABuffer&) = delete;

    // Marks the buffer in use; kCABufferAlreadyInUse when it is. Called by the
    // pool under its lock.
    unsigned int Aquire();
    // Gives the buffer back to the pool (it stays there for reuse);
    // kCABufferAlreadyAvailable when it was not in use.
    unsigned int Release();

    unsigned char* GetData() const { return m_data; }
    // The size asked for; at least GetSize() + 4 bytes are usable at GetData().
    unsigned int GetSize() const { return m_size; }
    bool IsAvailable() const { return m_isAvailable.load(std::memory_order_relaxed); }

private:
    // Written under the pool's lock; atomic so that snapshot counts stay defined.
    std::atomic<bool> m_isAvailable{true};
    unsigned char* m_data = nullptr;
    unsigned int m_size;
    void* m_block = nullptr;
};
