#include "ipc/details/ASharedMemory.h"

#include "ipc/details/FutexWake.h"

#include <algorithm>
#include <chrono>
#include <cassert>
#include <climits>
#include <cstring>

namespace {

constexpr size_t align8(size_t n)
{
    return (n + 7) & ~size_t(7);
}

}  // namespace

// ---------------------------------------------------------------------------
// TFragment

bool CASharedMemory::TFragment::contains(const TFragment& other) const
{
    return other.m_offset >= m_offset && other.m_offset + other.m_size <= m_offset + m_size;
}

bool CASharedMemory::TFragment::isAdjacent(const TFragment& other) const
{
    return m_offset + m_size == other.m_offset || other.m_offset + other.m_size == m_offset;
}

// ---------------------------------------------------------------------------
// Life cycle

CASharedMemory::CASharedMemory() = default;

CASharedMemory::~CASharedMemory()
{
    detach();
}

bool CASharedMemory::create(const char* key, size_t size)
{
    if (m_backend) {
        if (m_backend->name() == key)
            return m_backend->size() <= size;
        detach();
    }
    clearCache();
    m_changeCount = 0;
    m_wakeUps = ZKFutexWakeUpsEnabled();
    // The mapped file takes the size as a signed 32-bit count.
    if (size > static_cast<size_t>(INT_MAX))
        return false;
    auto backend = std::make_unique<CAMemoryMappedFile>();
    if (!backend->create(key, size))
        return false;
    m_backend = std::move(backend);

    // The fragments tile whole 8-byte words; a file longer than asked for (an
    // existing file) is used in full so that every process walks the same chain.
    const size_t end = tableEnd();
    if (end < kChangeCounterSize + kFragmentHeaderSize) {
        detach();
        return false;
    }
    TFragment all;
    all.m_offset = kChangeCounterSize;
    all.m_size = end - kChangeCounterSize;
    all.m_headerSize = kFragmentHeaderSize;
    m_freeFragments.push_back(all);

    m_backend->lock();
    saveTableOfContents();
    m_backend->unlock();
    return true;
}

bool CASharedMemory::attach(const char* key)
{
    if (m_backend && m_backend->name() == key)
        return true;
    detach();
    auto backend = std::make_unique<CAMemoryMappedFile>();
    if (!backend->attach(key))
        return false;
    m_backend = std::move(backend);
    m_wakeUps = ZKFutexWakeUpsEnabled();

    bool loaded = false;
    if (m_backend->lock()) {
        loaded = loadTableOfContents();
        m_backend->unlock();
    }
    // A segment whose chain cannot be walked is refused rather than half used.
    if (!loaded) {
        detach();
        return false;
    }
    return true;
}

bool CASharedMemory::waitToAttach(const char* key)
{
    while (!attach(key))
        yield(1);
    return true;
}

void CASharedMemory::detach()
{
    m_backend.reset();
    clearCache();
    m_changeCount = 0;
}

std::string CASharedMemory::key() const
{
    assert(m_backend);
    return m_backend ? m_backend->name() : std::string();
}

size_t CASharedMemory::size() const
{
    assert(m_backend);
    return m_backend ? m_backend->size() : 0;
}

void* CASharedMemory::data() const
{
    return m_backend ? m_backend->data() : nullptr;
}

// ---------------------------------------------------------------------------
// Blocks

void* CASharedMemory::allocate(const char* name, size_t size)
{
    assert(m_backend);
    if (!m_backend || name == nullptr || !m_backend->lock())
        return nullptr;

    void* block = nullptr;
    const size_t nameSize = std::strlen(name);
    const size_t end = tableEnd();
    if (loadTableOfContents() && m_fragments.count(name) == 0 && nameSize < end && size < end) {
        const size_t headerSize = kFragmentHeaderSize + align8(nameSize);
        size_t needed = headerSize + align8(size);

        auto best = m_freeFragments.begin();  // sorted by size: the first fit is the best fit
        while (best != m_freeFragments.end() && best->m_size < needed)
            ++best;
        if (best != m_freeFragments.end()) {
            // A remainder too small for a header of its own goes with the block.
            if (best->m_size - needed < kFragmentHeaderSize)
                needed = best->m_size;

            TFragment fragment;
            fragment.m_name = name;
            fragment.m_offset = best->m_offset;
            fragment.m_size = needed;
            fragment.m_dataSize = size;
            fragment.m_headerSize = headerSize;

            best->m_offset += needed;
            best->m_size -= needed;
            bumpChangeCount();
            if (best->m_size != 0) {
                saveFragment(*best);
                m_freeFragments.sort();
            } else {
                m_freeFragments.erase(best);
            }
            m_fragments.emplace(fragment.m_name, fragment);
            saveFragment(fragment);

            unsigned char* data = base() + fragment.m_offset + headerSize;
            // Free space is kept zeroed, but the payload area of a channel may have
            // been written over it; a new block always starts clean.
            std::memset(data, 0, fragment.m_size - headerSize);
            block = data;
        }
    }
    m_backend->unlock();
    return block;
}

bool CASharedMemory::deallocate(void* address)
{
    assert(m_backend);
    if (!m_backend || !m_backend->lock())
        return false;

    bool freed = false;
    if (loadTableOfContents()) {
        const unsigned char* target = static_cast<const unsigned char*>(address);
        for (auto it = m_fragments.begin(); it != m_fragments.end(); ++it) {
            const unsigned char* start = base() + it->second.m_offset;
            if (start + it->second.m_headerSize <= target && target < start + it->second.m_size) {
                TFragment fragment = it->second;
                m_fragments.erase(it);
                reclaim(fragment);
                freed = true;
                break;
            }
        }
    }
    m_backend->unlock();
    return freed;
}

void* CASharedMemory::findAddr(const char* name, size_t* dataSize)
{
    assert(m_backend);
    if (!m_backend || name == nullptr || !m_backend->lock())
        return nullptr;

    void* block = nullptr;
    if (loadTableOfContents()) {
        const auto it = m_fragments.find(name);
        if (it != m_fragments.end()) {
            if (dataSize)
                *dataSize = it->second.m_dataSize;
            block = base() + it->second.m_offset + it->second.m_headerSize;
        }
    }
    m_backend->unlock();
    return block;
}

// ---------------------------------------------------------------------------
// In-segment semaphores

// One poll of a semaphore: takes a count if one is there. A count below zero
// can only come from a damaged segment: nothing to take.
bool CASharedMemory::tryTake(TSemaphore* semaphore, int32_t& seen) const
{
    volatile int32_t* count = &semaphore->m_count;
    m_backend->lock();
    seen = *count;
    const bool taken = seen > 0;
    if (taken)
        --*count;
    m_backend->unlock();
    return taken;
}

// The count without the lock: enough to tell whether a look under the lock
// can take anything. An idle wake-up then costs no lock at all.
int32_t CASharedMemory::peek(const TSemaphore* semaphore)
{
    return __atomic_load_n(&semaphore->m_count, __ATOMIC_ACQUIRE);
}

// Before the first sleep, the count is watched for a few microseconds: a peer
// that answers that fast (a command's round trip) is then taken without a
// sleep and a wake-up, which cost more than the watch on a virtual machine. A
// watch that ends empty skips the next 1, 2, 4 ... 1024 waits, so a side whose
// waits are long (an encode) or that shares its processor with the peer
// watches in one wait of 1024 at most.
bool CASharedMemory::spin(const TSemaphore* semaphore) const
{
    const unsigned int skip = m_spinSkip.load(std::memory_order_relaxed);
    if (skip != 0) {
        m_spinSkip.store(skip - 1, std::memory_order_relaxed);
        return false;
    }
    const auto end = std::chrono::steady_clock::now() + std::chrono::microseconds(kSpinMicroseconds);
    do {
        if (peek(semaphore) > 0) {
            m_spinBackoff.store(1, std::memory_order_relaxed);
            return true;
        }
        relax();
    } while (std::chrono::steady_clock::now() < end);
    const unsigned int backoff = m_spinBackoff.load(std::memory_order_relaxed);
    m_spinSkip.store(backoff, std::memory_order_relaxed);
    m_spinBackoff.store(std::min(2 * backoff, kMostSpinSkips), std::memory_order_relaxed);
    return false;
}

void CASharedMemory::relax()
{
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#elif defined(__aarch64__)
    asm volatile("yield");
#endif
}

// Between two looks, on the count word: the kernel compares it with seen as
// the sleep begins, so a post made since seen was read ends the sleep at once.
// The sleep is 1 ms until the peer has woken this side once, so a peer that
// only polls (and never wakes us) is seen within a millisecond; after that it
// lasts up to 20 ms, and an idle side wakes 50 times a second instead of
// 1000 (each wake-up costs 10 to 20 us of CPU time on a virtual machine).
// Answers whether such a long sleep ran out its time.
bool CASharedMemory::pause(const TSemaphore* semaphore, int32_t seen, unsigned int limitMs) const
{
    if (!m_wakeUps) {
        yield(1);
        return false;
    }
    const unsigned int sleepMs =
        m_peerWakes.load(std::memory_order_relaxed) ? std::max(1u, std::min(limitMs, kWokenSleepMs)) : 1u;
    switch (ZKFutexWait(&semaphore->m_count, seen, sleepMs * 1000u)) {
    case TZKFutexWaitEnd::kWoken:
        m_peerWakes.store(true, std::memory_order_relaxed);
        return false;
    case TZKFutexWaitEnd::kTimedOut:
        return sleepMs > 1;
    default:
        return false;
    }
}

// ms null: no time limit. stop null: nothing to look at.
bool CASharedMemory::waitUntil(TSemaphore* semaphore, const unsigned int* ms, const std::atomic<bool>* stop) const
{
    if (!isInside(semaphore))
        return false;
    const CASystemTime clock;
    // The count is looked at once before the time, so a limit of 0 still takes
    // an available count.
    int32_t seen = 0;
    if (tryTake(semaphore, seen))
        return true;
    if (m_wakeUps && (ms == nullptr || *ms != 0) && spin(semaphore) && tryTake(semaphore, seen))
        return true;
    for (;;) {
        // Sleeps until the count looks positive; another waiter may still take
        // it first, which the look under the lock settles.
        bool ranOut = false;
        do {
            const unsigned int elapsed = ms != nullptr ? clock.elapsed() : 0;
            if (ms != nullptr && elapsed >= *ms)
                return false;
            if (stop != nullptr && stop->load())
                return false;
            ranOut = pause(semaphore, seen, ms != nullptr ? *ms - elapsed : kWokenSleepMs);
            seen = peek(semaphore);
        } while (seen <= 0);
        if (tryTake(semaphore, seen)) {
            // Found when a long sleep ran out, without a wake: the peer only
            // polls after all, and the sleeps go back to 1 ms.
            if (ranOut)
                m_peerWakes.store(false, std::memory_order_relaxed);
            return true;
        }
    }
}

bool CASharedMemory::semaphoreWait(TSemaphore* semaphore) const
{
    return waitUntil(semaphore, nullptr, nullptr);
}

bool CASharedMemory::semaphoreWaitTimed(TSemaphore* semaphore, unsigned int ms, const std::atomic<bool>* stop) const
{
    return waitUntil(semaphore, &ms, stop);
}

// The count changes under the lock as for a polling peer; the wake only
// shortens the sleep of a waiter that uses futexes.
bool CASharedMemory::semaphorePost(TSemaphore* semaphore) const
{
    if (!isInside(semaphore))
        return false;
    volatile int32_t* count = &semaphore->m_count;
    m_backend->lock();
    ++*count;
    m_backend->unlock();
    if (m_wakeUps)
        ZKFutexWake(count);
    return true;
}

void CASharedMemory::semaphoreWake(TSemaphore* semaphore) const
{
    if (m_wakeUps && isInside(semaphore))
        ZKFutexWake(&semaphore->m_count);
}

bool CASharedMemory::semaphorePosted(const TSemaphore* semaphore) const
{
    return isInside(semaphore) && peek(semaphore) > 0;
}

void CASharedMemory::yield(int ms)
{
    CASystemTime::msleep(static_cast<unsigned int>(ms));
}

// ---------------------------------------------------------------------------
// Table of contents

unsigned char* CASharedMemory::base() const
{
    return static_cast<unsigned char*>(m_backend->data());
}

size_t CASharedMemory::tableEnd() const
{
    const size_t length = m_backend->size();
    if (length < kChangeCounterSize)
        return 0;
    return kChangeCounterSize + ((length - kChangeCounterSize) & ~size_t(7));
}

uint64_t CASharedMemory::readWord(size_t offset) const
{
    uint64_t value;
    std::memcpy(&value, base() + offset, sizeof value);
    return value;
}

void CASharedMemory::writeWord(size_t offset, uint64_t value)
{
    std::memcpy(base() + offset, &value, sizeof value);
}

bool CASharedMemory::isInside(const TSemaphore* semaphore) const
{
    assert(m_backend);
    if (!m_backend)
        return false;
    const unsigned char* p = reinterpret_cast<const unsigned char*>(semaphore);
    const bool inside = p >= base() && p + sizeof(TSemaphore) <= base() + m_backend->size();
    assert(inside && "semaphore outside the segment");
    return inside;
}

void CASharedMemory::clearCache()
{
    m_fragments.clear();
    m_freeFragments.clear();
}

bool CASharedMemory::loadTableOfContents()
{
    if (tableEnd() < kChangeCounterSize + kFragmentHeaderSize) {
        clearCache();
        m_changeCount = 0;
        return false;
    }
    const uint64_t changeCount = readWord(0);
    if (changeCount <= m_changeCount)
        return true;

    std::map<std::string, TFragment> fragments;
    std::list<TFragment> freeFragments;
    const size_t end = tableEnd();
    bool intact = true;
    for (size_t offset = kChangeCounterSize; offset < end;) {
        TFragment fragment;
        if (!loadFragment(offset, fragment)) {
            intact = false;
            break;
        }
        offset += fragment.m_size;
        if (fragment.m_name.empty())
            freeFragments.push_back(fragment);
        else if (!fragments.emplace(fragment.m_name, fragment).second) {
            intact = false;  // two blocks of one name
            break;
        }
    }
    if (!intact) {
        // Refuse the whole table; the next operation walks it again.
        clearCache();
        m_changeCount = 0;
        return false;
    }
    freeFragments.sort();  // stable: equal sizes stay in address order
    m_fragments.swap(fragments);
    m_freeFragments.swap(freeFragments);
    m_changeCount = changeCount;
    return true;
}

// Reads the header at offset; false for any header that does not describe a
// fragment lying wholly inside the tiled part of the segment.
bool CASharedMemory::loadFragment(size_t offset, TFragment& fragment) const
{
    const size_t end = tableEnd();
    if (offset > end || end - offset < kFragmentHeaderSize)
        return false;
    const uint64_t size = readWord(offset);
    if (size < kFragmentHeaderSize || size % 8 != 0 || size > end - offset)
        return false;
    const uint64_t dataSize = readWord(offset + 8);
    const uint64_t nameSize = readWord(offset + 16);
    if (nameSize > size - kFragmentHeaderSize)
        return false;
    const size_t headerSize = kFragmentHeaderSize + align8(nameSize);
    if (headerSize > size || (nameSize != 0 && dataSize > size - headerSize))
        return false;

    fragment.m_name.assign(reinterpret_cast<const char*>(base() + offset + kFragmentHeaderSize), nameSize);
    fragment.m_offset = offset;
    fragment.m_size = size;
    fragment.m_dataSize = nameSize != 0 ? dataSize : 0;
    fragment.m_headerSize = headerSize;
    return true;
}

void CASharedMemory::saveFragment(const TFragment& fragment)
{
    const size_t nameSize = fragment.m_name.size();
    assert(fragment.m_offset + kFragmentHeaderSize + align8(nameSize) <= tableEnd() &&
           "toc + align<8>(nameSize) <= end");
    unsigned char* toc = base() + fragment.m_offset;
    writeWord(fragment.m_offset, fragment.m_size);
    writeWord(fragment.m_offset + 8, fragment.m_dataSize);
    writeWord(fragment.m_offset + 16, nameSize);
    std::memcpy(toc + kFragmentHeaderSize, fragment.m_name.data(), nameSize);
    std::memset(toc + kFragmentHeaderSize + nameSize, 0, align8(nameSize) - nameSize);
}

void CASharedMemory::saveTableOfContents()
{
    bumpChangeCount();
    for (const auto& entry : m_fragments)
        saveFragment(entry.second);
    for (const TFragment& fragment : m_freeFragments)
        saveFragment(fragment);
}

void CASharedMemory::bumpChangeCount()
{
    m_changeCount = readWord(0) + 1;
    writeWord(0, m_changeCount);
}

void CASharedMemory::reclaim(TFragment fragment)
{
    fragment.m_name.clear();
    fragment.m_dataSize = 0;
    fragment.m_headerSize = kFragmentHeaderSize;
    for (bool merged = true; merged;) {
        merged = false;
        for (auto it = m_freeFragments.begin(); it != m_freeFragments.end(); ++it) {
            if (fragment.isAdjacent(*it)) {
                fragment.m_offset = std::min(fragment.m_offset, it->m_offset);
                fragment.m_size += it->m_size;
                m_freeFragments.erase(it);
                merged = true;
                break;
            }
        }
    }
    bumpChangeCount();
    saveFragment(fragment);
    std::memset(base() + fragment.m_offset + 8, 0, fragment.m_size - 8);
    m_freeFragments.push_back(fragment);
    m_freeFragments.sort();
}
