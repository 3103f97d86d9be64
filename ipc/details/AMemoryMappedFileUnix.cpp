#include "ipc/details/AMemoryMappedFile.h"

#include <atomic>
#include <cassert>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <iostream>
#include <stdexcept>

#include <fcntl.h>
#include <openssl/sha.h>
#include <pthread.h>
#include <semaphore.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

namespace {

// The error text is taken first: writing to the stream may change errno.
std::string zkErrorText(const char* file, int line, const char* function)
{
    const std::string reason = ZKLastError();
    return std::string(file) + ":" + std::to_string(line) + ", " + function + " -- " + reason;
}

void zkReportError(const char* file, int line, const char* function)
{
    const std::string text = zkErrorText(file, line, function);
    std::cerr << "ERROR: " << text << std::endl;
}

#define ZK_REPORT_ERROR() zkReportError(__FILE__, __LINE__, __PRETTY_FUNCTION__)

#ifndef __APPLE__
void fillRandomCharacters(char* out, size_t count)
{
    static const char letters[] = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
    unsigned char random[16] = {};
    if (getentropy(random, count) != 0) {
        // Uniqueness still comes from mkstemp; these only vary the name further.
        timeval now;
        gettimeofday(&now, nullptr);
        for (size_t i = 0; i < count; ++i)
            random[i] = static_cast<unsigned char>((now.tv_usec >> (6 * i)) ^ getpid());
    }
    for (size_t i = 0; i < count; ++i)
        out[i] = letters[random[i] % 62];
}
#endif

const char kSafeKeyAlphabet[] = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz_.";

// The polling loop of every timed operation here: try, give up once more than
// ms milliseconds have passed, else sleep 1 ms and try again. The test is
// strictly greater, so a limit of 0 still makes a second try.
template <class Attempt>
bool pollUntil(unsigned int ms, Attempt attempt)
{
    const CASystemTime clock;
    for (;;) {
        if (attempt())
            return true;
        if (clock.elapsed() > ms)
            return false;
        CASystemTime::msleep(1);
    }
}

}  // namespace

// ---------------------------------------------------------------------------
// Free functions

namespace {
std::atomic<TLockWaitWatch> g_lockWaitWatch{nullptr};
}  // namespace

void ZKSetLockWaitWatch(TLockWaitWatch watch)
{
    g_lockWaitWatch.store(watch);
}

TLockWaitWatch ZKLockWaitWatch()
{
    return g_lockWaitWatch.load();
}

void ZKEncodeBase64(const std::vector<unsigned char>& bytes, std::string& out)
{
    const size_t n = bytes.size();
    std::string encoded;
    encoded.reserve((n * 8 + 5) / 6);
    for (size_t p = 0; p < 8 * n; p += 6) {
        const size_t lo = p / 8;
        const size_t hi = (p + 5) / 8;
        const unsigned s = p % 8;
        unsigned value = bytes[lo] >> s;
        if (lo != hi && hi < n)
            value |= static_cast<unsigned>(bytes[hi]) << (8 - s);
        encoded += kSafeKeyAlphabet[value & 63];
    }
    out.swap(encoded);
}

std::string ZKMakePlatformSafeKey(const char* key)
{
    const unsigned int length = static_cast<unsigned int>(std::strlen(key));
    std::vector<unsigned char> digest(SHA_DIGEST_LENGTH);
    // SHA1 is deprecated in OpenSSL 3 but the names derived from it are part of
    // the protocol between the two processes.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
    SHA1(reinterpret_cast<const unsigned char*>(key), length, digest.data());
#pragma GCC diagnostic pop
    std::string name;
    ZKEncodeBase64(digest, name);
    return name;
}

std::string ZKLastError()
{
    return std::strerror(errno);
}

bool zk_set_str(std::string& str, const char* text)
{
    if (text == nullptr || *text == '\0')
        return false;
    str = text;
    return true;
}

// ---------------------------------------------------------------------------
// CASystemTime

CASystemTime::CASystemTime()
{
    timeval now;
    gettimeofday(&now, nullptr);
    m_seconds = now.tv_sec;
    m_microseconds = now.tv_usec;
}

unsigned int CASystemTime::elapsed() const
{
    timeval now;
    gettimeofday(&now, nullptr);
    const int micro = static_cast<int>(now.tv_usec - m_microseconds);
    const long long total = micro / 1000 + (now.tv_sec - m_seconds) * 1000;
    return static_cast<unsigned int>(total);
}

void CASystemTime::msleep(unsigned int ms)
{
    usleep(static_cast<unsigned int>(ms * 1000u));
}

// ---------------------------------------------------------------------------
// CASystemSemaphore

class CASystemSemaphore::TPrivate {
public:
    explicit TPrivate(sem_t* handle) : m_handle(handle) {}
    ~TPrivate()
    {
        if (sem_close(m_handle) != 0)
            ZK_REPORT_ERROR();
    }
    TPrivate(const TPrivate&) = delete;
    TPrivate& operator=(const TPrivate&) = delete;

    sem_t* m_handle;
};

CASystemSemaphore::CASystemSemaphore() = default;
CASystemSemaphore::~CASystemSemaphore() = default;

bool CASystemSemaphore::create(const char* name, unsigned int initialCount)
{
    assert(!m_private && "create on an open semaphore");
    if (m_private)
        return false;
    const std::string key = ZKMakePlatformSafeKey(name);
    sem_t* handle = sem_open(key.c_str(), O_CREAT | O_EXCL, 0600, initialCount);
    if (handle == SEM_FAILED) {
        ZK_REPORT_ERROR();
        return false;
    }
    m_private = std::make_unique<TPrivate>(handle);
    return true;
}

bool CASystemSemaphore::attach(const char* name)
{
    assert(!m_private && "attach on an open semaphore");
    if (m_private)
        return false;
    const std::string key = ZKMakePlatformSafeKey(name);
    sem_t* handle = sem_open(key.c_str(), 0);
    if (handle == SEM_FAILED) {
        ZK_REPORT_ERROR();
        return false;
    }
    m_private = std::make_unique<TPrivate>(handle);
    return true;
}

bool CASystemSemaphore::waitToAttach(const char* name, unsigned int ms)
{
    return pollUntil(ms, [&] { return attach(name); });
}

bool CASystemSemaphore::wait()
{
    int rc = -1;
    if (m_private) {
        do
            rc = sem_wait(m_private->m_handle);
        while (rc != 0 && errno == EINTR);
    }
    if (!m_private || rc != 0) {
        ZK_REPORT_ERROR();
        return false;
    }
    return true;
}

bool CASystemSemaphore::tryWait()
{
    if (!m_private || sem_trywait(m_private->m_handle) != 0) {
        // A busy semaphore is the normal case of a polling loop; only real faults
        // are worth a line.
        if (!m_private || errno != EAGAIN)
            ZK_REPORT_ERROR();
        return false;
    }
    return true;
}

bool CASystemSemaphore::timedWait(unsigned int ms)
{
    assert(m_private && "timedWait on an empty semaphore");
    return pollUntil(ms, [this] { return tryWait(); });
}

bool CASystemSemaphore::waitWithin(unsigned int ms)
{
    assert(m_private && "waitWithin on an empty semaphore");
#ifdef __linux__
    if (!m_private)
        return false;
    timespec deadline;
    clock_gettime(CLOCK_MONOTONIC, &deadline);
    deadline.tv_sec += static_cast<time_t>(ms / 1000u);
    deadline.tv_nsec += static_cast<long>(ms % 1000u) * 1000000L;
    if (deadline.tv_nsec >= 1000000000L) {
        deadline.tv_nsec -= 1000000000L;
        ++deadline.tv_sec;
    }
    int rc;
    while ((rc = sem_clockwait(m_private->m_handle, CLOCK_MONOTONIC, &deadline)) != 0 && errno == EINTR) {}
    if (rc != 0 && errno != ETIMEDOUT)
        ZK_REPORT_ERROR();
    return rc == 0;
#else
    return timedWait(ms);
#endif
}

bool CASystemSemaphore::post()
{
    if (!m_private || sem_post(m_private->m_handle) != 0) {
        ZK_REPORT_ERROR();
        return false;
    }
    return true;
}

bool CASystemSemaphore::remove(const char* name)
{
    const std::string key = ZKMakePlatformSafeKey(name);
    if (sem_unlink(key.c_str()) != 0) {
        if (errno != ENOENT)
            ZK_REPORT_ERROR();
        return false;
    }
    return true;
}

// ---------------------------------------------------------------------------
// CAThreadMutex

class CAThreadMutex::TPrivate {
public:
    TPrivate()
    {
        const int rc = pthread_mutex_init(&m_mutex, nullptr);
        if (rc != 0) {
            errno = rc;
            throw std::runtime_error(zkErrorText(__FILE__, __LINE__, __PRETTY_FUNCTION__));
        }
    }
    ~TPrivate()
    {
        const int rc = pthread_mutex_destroy(&m_mutex);
        if (rc != 0) {
            errno = rc;
            ZK_REPORT_ERROR();
        }
    }
    TPrivate(const TPrivate&) = delete;
    TPrivate& operator=(const TPrivate&) = delete;

    pthread_mutex_t m_mutex;
};

CAThreadMutex::CAThreadMutex() : m_private(std::make_unique<TPrivate>()) {}
CAThreadMutex::~CAThreadMutex() = default;

bool CAThreadMutex::lock()
{
    const int rc = pthread_mutex_lock(&m_private->m_mutex);
    if (rc != 0) {
        errno = rc;
        ZK_REPORT_ERROR();
        return false;
    }
    return true;
}

bool CAThreadMutex::unlock()
{
    const int rc = pthread_mutex_unlock(&m_private->m_mutex);
    if (rc != 0) {
        errno = rc;
        ZK_REPORT_ERROR();
        return false;
    }
    return true;
}

bool CAThreadMutex::tryLock()
{
    return pthread_mutex_trylock(&m_private->m_mutex) == 0;
}

bool CAThreadMutex::timedLock(unsigned int ms)
{
    return pollUntil(ms, [this] { return tryLock(); });
}

// ---------------------------------------------------------------------------
// CAMemoryMappedFile

class CAMemoryMappedFile::TPrivate {
public:
    TPrivate() = default;
    ~TPrivate() { releaseHandle(); }
    TPrivate(const TPrivate&) = delete;
    TPrivate& operator=(const TPrivate&) = delete;

    // owner: take the shared ownership lock that tells others the creator lives.
    bool acquireHandle(const char* path, size_t size, bool owner = false);
    void releaseHandle();

    int m_fd = -1;
    void* m_memory = nullptr;
    size_t m_length = 0;
    std::string m_name;
    CASystemSemaphore m_lock;
};

bool CAMemoryMappedFile::TPrivate::acquireHandle(const char* path, size_t size, bool owner)
{
    assert(m_fd == -1);
    // Close-on-exec: a child the host starts must not inherit its segments.
    m_fd = open(path, O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (m_fd == -1) {
        ZK_REPORT_ERROR();
        return false;
    }
    // The kernel drops this lock when the creator dies, however it dies; that
    // is how a later process tells an abandoned file from a live one.
    if (owner && flock(m_fd, LOCK_SH | LOCK_NB) != 0) {
        ZK_REPORT_ERROR();
        releaseHandle();
        return false;
    }
    // The length only ever grows: an existing longer file keeps its bytes and is
    // mapped in full.
    struct stat status;
    const bool known = fstat(m_fd, &status) == 0;
    if (size != 0 && (!known || static_cast<size_t>(status.st_size) < size) &&
        ftruncate(m_fd, static_cast<off_t>(size)) != 0) {
        ZK_REPORT_ERROR();
        releaseHandle();
        return false;
    }
    if (fstat(m_fd, &status) != 0 || static_cast<size_t>(status.st_size) < size) {
        ZK_REPORT_ERROR();
        releaseHandle();
        return false;
    }
    const size_t length = static_cast<size_t>(status.st_size);
#ifdef __APPLE__
    const int flags = MAP_SHARED | MAP_HASSEMAPHORE;
#else
    const int flags = MAP_SHARED;
#endif
    void* memory = mmap(nullptr, length, PROT_READ | PROT_WRITE, flags, m_fd, 0);
    if (memory == MAP_FAILED) {
        ZK_REPORT_ERROR();
        releaseHandle();
        return false;
    }
    m_memory = memory;
    m_length = length;
    m_name = path;
    return true;
}

void CAMemoryMappedFile::TPrivate::releaseHandle()
{
    if (m_memory) {
        if (munmap(m_memory, m_length) != 0)
            ZK_REPORT_ERROR();
        m_memory = nullptr;
        m_length = 0;
    }
    if (m_fd != -1) {
        if (close(m_fd) != 0)
            ZK_REPORT_ERROR();
        m_fd = -1;
    }
}

CAMemoryMappedFile::CAMemoryMappedFile() = default;
CAMemoryMappedFile::~CAMemoryMappedFile() = default;

bool CAMemoryMappedFile::create(const char* path, size_t size)
{
    auto fresh = std::make_unique<TPrivate>();
    if (!fresh->m_lock.create(path, 1)) {
        ZK_REPORT_ERROR();
        return false;
    }
    if (!fresh->acquireHandle(path, size, true)) {
        ZK_REPORT_ERROR();
        return false;
    }
    m_private = std::move(fresh);
    return true;
}

bool CAMemoryMappedFile::attach(const char* path)
{
    auto fresh = std::make_unique<TPrivate>();
    if (!fresh->m_lock.attach(path)) {
        ZK_REPORT_ERROR();
        return false;
    }
    if (!fresh->acquireHandle(path, 0)) {
        ZK_REPORT_ERROR();
        return false;
    }
    m_private = std::move(fresh);
    return true;
}

bool CAMemoryMappedFile::waitToAttach(const char* path, unsigned int ms)
{
    return pollUntil(ms, [&] { return attach(path); });
}

void CAMemoryMappedFile::detach()
{
    m_private.reset();
}

void* CAMemoryMappedFile::data() const
{
    return m_private ? m_private->m_memory : nullptr;
}

size_t CAMemoryMappedFile::size() const
{
    return m_private ? m_private->m_length : 0;
}

std::string CAMemoryMappedFile::name() const
{
    return m_private ? m_private->m_name : std::string();
}

bool CAMemoryMappedFile::lock()
{
    assert(m_private && "lock of an empty mapped file");
    if (const TLockWaitWatch watch = ZKLockWaitWatch(); m_private && watch != nullptr) {
        for (unsigned int waited = 0; !m_private->m_lock.waitWithin(kLockWatchSliceMs);)
            watch(waited += kLockWatchSliceMs);
        return true;
    }
    if (!m_private || !m_private->m_lock.wait()) {
        ZK_REPORT_ERROR();
        return false;
    }
    return true;
}

bool CAMemoryMappedFile::unlock()
{
    assert(m_private && "unlock of an empty mapped file");
    if (!m_private || !m_private->m_lock.post()) {
        ZK_REPORT_ERROR();
        return false;
    }
    return true;
}

bool CAMemoryMappedFile::tryLock()
{
    assert(m_private && "tryLock of an empty mapped file");
    return m_private && m_private->m_lock.tryWait();
}

bool CAMemoryMappedFile::timedLock(unsigned int ms)
{
    assert(m_private && "timedLock of an empty mapped file");
    return m_private && m_private->m_lock.timedWait(ms);
}

std::string CAMemoryMappedFile::temporaryFolder()
{
    std::string folder;
    if (!zk_set_str(folder, std::getenv("TMPDIR")) && !zk_set_str(folder, std::getenv("TEMP")) &&
        !zk_set_str(folder, std::getenv("TMP"))) {
#ifdef __APPLE__
        folder = "/private/tmp";
#else
        folder = "/tmp";
#endif
    }
    return folder;
}

bool CAMemoryMappedFile::removeIfAbandoned(const char* path)
{
    const int fd = open(path, O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
    if (fd == -1)
        return false;
    bool removed = false;
    struct stat status;
    // Only our own regular files, and only when no creator holds the
    // ownership lock. An empty file may be one whose creator has not taken
    // the lock yet; it counts as abandoned only once it is old.
    if (fstat(fd, &status) == 0 && S_ISREG(status.st_mode) && status.st_uid == geteuid() &&
        flock(fd, LOCK_EX | LOCK_NB) == 0 &&
        (status.st_size > 0 || time(nullptr) - status.st_mtime > kAbandonedEmptyFileSeconds)) {
        // The lock's name first: a file left without it is still found next time.
        CASystemSemaphore::remove(path);
        removed = unlink(path) == 0;
    }
    close(fd);
    return removed;
}

bool CAMemoryMappedFile::makeTempFile(std::string& path, const char* prefix)
{
    const std::string folder = temporaryFolder();
    path = folder + "/" + prefix + "XXXXXXXXXX";
    std::vector<char> name(path.begin(), path.end());
    name.push_back('\0');
#ifndef __APPLE__
    // glibc replaces only the last six X; the four before them get random
    // characters here so that every name ends in ten unique characters.
    fillRandomCharacters(name.data() + path.size() - 10, 4);
#endif
    const int fd = mkostemp(name.data(), O_CLOEXEC);
    if (fd == -1) {
        ZK_REPORT_ERROR();
        return false;
    }
    path = name.data();
    if (close(fd) != 0)
        ZK_REPORT_ERROR();
    return true;
}
