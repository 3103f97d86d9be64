#pragma once
// Lowest layer of the inter-process channel: platform-safe semaphore names, the
// named system semaphore, a process-local mutex, a millisecond clock and the
// memory-mapped backing file of a shared segment with its cross-process lock.

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

// Turns any key (in practice the path of a backing file) into a 27-character
// name that every platform accepts for a named semaphore.
std::string ZKMakePlatformSafeKey(const char* key);

// Packs bytes six bits at a time, least significant bit first, into the
// alphabet 0-9 A-Z a-z _ . (not standard Base64: no padding, other order).
void ZKEncodeBase64(const std::vector<unsigned char>& bytes, std::string& out);

// The system's text for the current errno.
std::string ZKLastError();

// Assigns text to str unless it is null or empty; tells whether it did.
bool zk_set_str(std::string& str, const char* text);

// A process may bound its waits for a segment's locks (the file's named lock and
// the lock of the shared record): while one is not taken, the watch is called
// every kLockWatchSliceMs with the milliseconds waited so far and ends the
// process when the wait must stop. Without a watch (the default) these waits
// have no bound.
typedef void (*TLockWaitWatch)(unsigned int waitedMs);
constexpr unsigned int kLockWatchSliceMs = 100;
void ZKSetLockWaitWatch(TLockWaitWatch watch);
TLockWaitWatch ZKLockWaitWatch();

// Millisecond stopwatch started at construction.
class CASystemTime {
public:
    CASystemTime();

    // Milliseconds since construction; wraps after about 49.7 days.
    unsigned int elapsed() const;

    static void msleep(unsigned int ms);

private:
    long long m_seconds;
    long long m_microseconds;
};

// Counting semaphore with a system-wide name, shared by unrelated processes.
// The system object is opened under ZKMakePlatformSafeKey(name).
class CASystemSemaphore {
public:
    CASystemSemaphore();
    ~CASystemSemaphore();
    CASystemSemaphore(const CASystemSemaphore&) = delete;
    CASystemSemaphore& operator=(const CASystemSemaphore&) = delete;

    bool create(const char* name, unsigned int initialCount);
    bool attach(const char* name);
    bool waitToAttach(const char* name, unsigned int ms);

    bool wait();
    bool tryWait();
    bool timedWait(unsigned int ms);
    // Sleeps in the kernel until the count is taken or ms milliseconds have
    // passed: a post ends the wait at once, not at the next poll. Quiet on a
    // time-out.
    bool waitWithin(unsigned int ms);
    bool post();

    bool isOpen() const { return m_private != nullptr; }

    // Removes the name from the system's name space; open handles stay valid.
    // Linux keeps named semaphores until reboot, so whoever made a name for a
    // session removes it when the session ends. A missing name is not an error.
    static bool remove(const char* name);

private:
    class TPrivate;
    std::unique_ptr<TPrivate> m_private;
};

// Process-local mutex with a polled timed lock.
class CAThreadMutex {
public:
    CAThreadMutex();
    ~CAThreadMutex();
    CAThreadMutex(const CAThreadMutex&) = delete;
    CAThreadMutex& operator=(const CAThreadMutex&) = delete;

    bool lock();
    bool unlock();
    bool tryLock();
    bool timedLock(unsigned int ms);

private:
    class TPrivate;
    std::unique_ptr<TPrivate> m_private;
};

// A file mapped read-write and shared by every process that opens the same
// path, with a binary cross-process lock named after the path.
class CAMemoryMappedFile {
public:
    CAMemoryMappedFile();
    ~CAMemoryMappedFile();
    CAMemoryMappedFile(const CAMemoryMappedFile&) = delete;
    CAMemoryMappedFile& operator=(const CAMemoryMappedFile&) = delete;

    bool create(const char* path, size_t size);
    bool attach(const char* path);
    bool waitToAttach(const char* path, unsigned int ms);
    void detach();

    void* data() const;
    size_t size() const;
    std::string name() const;

    bool lock();
    bool unlock();
    bool tryLock();
    bool timedLock(unsigned int ms);

    // Creates a new empty file named prefix + ten unique characters in the
    // temporary folder and stores its path.
    static bool makeTempFile(std::string& path, const char* prefix);
    // TMPDIR, TEMP or TMP, else the system's temporary folder.
    static std::string temporaryFolder();

    // The creator of a file (create) holds a shared ownership lock on it until
    // it detaches or dies. Removes the file and its lock's name when nobody
    // holds that lock any more; true when it did. A live owner's file is never
    // touched, nor an empty file younger than this (its creator may not have
    // reached create yet).
    static bool removeIfAbandoned(const char* path);
    static constexpr long kAbandonedEmptyFileSeconds = 60;

private:
    class TPrivate;
    std::unique_ptr<TPrivate> m_private;
};
