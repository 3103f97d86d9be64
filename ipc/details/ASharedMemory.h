#pragma once
// A shared-memory segment on one memory-mapped file: named blocks found through
// a self-describing chain of fragments, and counting semaphores kept inside
// the blocks. Every process keeps a cached copy of the chain and reloads it
// when the change counter at the start of the segment has moved.

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <new>
#include <string>

#include "ipc/details/AMemoryMappedFile.h"

class CASharedMemory {
public:
    // Counting semaphore living inside a block of the segment; the segment's
    // cross-process lock protects it.
    struct TSemaphore {
        explicit TSemaphore(int32_t count = 0) : m_count(count) {}
        int32_t m_count;
    };

    // Sizes of the segment's own bookkeeping, in bytes.
    static constexpr size_t kChangeCounterSize = 8;
    static constexpr size_t kFragmentHeaderSize = 24;  // size, data size, name size

    CASharedMemory();
    ~CASharedMemory();
    CASharedMemory(const CASharedMemory&) = delete;
    CASharedMemory& operator=(const CASharedMemory&) = delete;

    bool create(const char* key, size_t size);
    bool attach(const char* key);
    bool waitToAttach(const char* key);
    void detach();

    bool isOpen() const { return m_backend != nullptr; }
    std::string key() const;
    size_t size() const;
    // Start of the mapping (the change counter); null when empty.
    void* data() const;

    // A new zero-filled block of at least size bytes named name, or null when no
    // free fragment is large enough, the name exists or the table is damaged.
    void* allocate(const char* name, size_t size);
    // Frees the block whose data contains address; false when none does.
    bool deallocate(void* address);
    // The data of the block named name, or null; dataSize receives its length.
    void* findAddr(const char* name, size_t* dataSize = nullptr);

    // The semaphore must lie inside this segment; false otherwise. A waiter
    // takes the count under the segment's lock and, between looks, sleeps
    // until a post wakes it or 1 ms has passed, so a peer that never wakes
    // anybody (it only polls) is still seen within a millisecond. Once a post
    // has woken this side, the sleeps last up to 20 ms: a waking peer ends
    // them at once, and a long wait costs a few wake-ups instead of one a
    // millisecond. A post found after such a sleep ran out (a peer that only
    // polls after all) brings back the 1 ms sleeps. A sleep that ends without
    // a post reads the count without the lock and sleeps again while it is
    // zero. Before its first sleep a wait watches the count for a few
    // microseconds, as long as such watches have found a post.
    // A timed wait given a stop flag also ends, without taking anything, once
    // the flag is raised: it looks at the flag before each sleep, and whoever
    // raises it calls semaphoreWake so a sleep under way ends too.
    bool semaphoreWait(TSemaphore* semaphore) const;
    bool semaphoreWaitTimed(TSemaphore* semaphore, unsigned int ms, const std::atomic<bool>* stop = nullptr) const;
    bool semaphorePost(TSemaphore* semaphore) const;
    // Wakes the sleeping waiters without posting; safe from any thread.
    void semaphoreWake(TSemaphore* semaphore) const;
    // Whether the count is above zero now (read without the lock).
    bool semaphorePosted(const TSemaphore* semaphore) const;

    static void yield(int ms);

    // Whether posts wake sleeping waiters and waits sleep until woken; fixed
    // when the segment is created or attached (off with EVC_NO_FUTEX=1).
    bool wakeUps() const { return m_wakeUps; }

    template <class T>
    T* construct(const char* name)
    {
        void* block = allocate(name, sizeof(T));
        return block ? new (block) T() : nullptr;
    }

    template <class T>
    T* waitToFindTimed(const char* name, unsigned int ms)
    {
        const CASystemTime clock;
        for (;;) {
            if (void* block = findAddr(name, nullptr))
                return static_cast<T*>(block);
            if (clock.elapsed() >= ms)
                return nullptr;
            yield(1);
        }
    }

private:
    struct TFragment {
        std::string m_name;
        size_t m_offset = 0;
        size_t m_size = 0;
        size_t m_dataSize = 0;
        size_t m_headerSize = 0;

        bool contains(const TFragment& other) const;
        bool isAdjacent(const TFragment& other) const;
        bool operator<(const TFragment& other) const { return m_size < other.m_size; }
    };

    unsigned char* base() const;
    // End of the part of the mapping that fragments tile (a multiple of 8).
    size_t tableEnd() const;
    uint64_t readWord(size_t offset) const;
    void writeWord(size_t offset, uint64_t value);
    bool isInside(const TSemaphore* semaphore) const;
    // One look at the count under the lock; seen receives the count when
    // nothing was taken.
    bool tryTake(TSemaphore* semaphore, int32_t& seen) const;
    static int32_t peek(const TSemaphore* semaphore);
    // The look-only watch before the first sleep; true when the count looked
    // positive within it.
    bool spin(const TSemaphore* semaphore) const;
    static void relax();
    static constexpr unsigned int kSpinMicroseconds = 50;
    static constexpr unsigned int kMostSpinSkips = 1024;
    // The longest sleep between two looks once the peer is known to wake us.
    static constexpr unsigned int kWokenSleepMs = 20;
    // Sleeps at most limitMs; answers whether a sleep longer than 1 ms ran
    // out its time.
    bool pause(const TSemaphore* semaphore, int32_t seen, unsigned int limitMs) const;
    bool waitUntil(TSemaphore* semaphore, const unsigned int* ms, const std::atomic<bool>* stop) const;

    bool loadTableOfContents();
    bool loadFragment(size_t offset, TFragment& fragment) const;
    void saveFragment(const TFragment& fragment);
    void saveTableOfContents();
    void bumpChangeCount();
    void reclaim(TFragment fragment);
    void clearCache();

    std::map<std::string, TFragment> m_fragments;
    std::list<TFragment> m_freeFragments;
    std::unique_ptr<CAMemoryMappedFile> m_backend;
    uint64_t m_changeCount = 0;
    bool m_wakeUps = false;
    // Whether the peer has been seen waking this side's waits.
    mutable std::atomic<bool> m_peerWakes{false};
    // Waits left before the next watch, and how many the next empty watch skips.
    mutable std::atomic<unsigned int> m_spinSkip{0};
    mutable std::atomic<unsigned int> m_spinBackoff{1};
};
