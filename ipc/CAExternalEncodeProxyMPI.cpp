#include "ipc/CAExternalEncodeProxyMPI.h"

#include <cassert>
#include <cstdio>
#include <cstring>
#include <memory>
#include <stdexcept>

#include <dirent.h>
#include <uuid/uuid.h>

namespace {

const char kKeyPrefix[] = "TMessagePassingInterface";

// A new lower-case UUID text, 36 characters with hyphens.
std::string ZKGetGUID()
{
    uuid_t uuid;
    uuid_generate(uuid);
    char text[37];
    uuid_unparse_lower(uuid, text);
    return text;
}

bool zk_remove_UTF8(const std::string& path)
{
    return std::remove(path.c_str()) == 0;
}

// The timed waits take whole seconds; a limit below zero counts as none.
unsigned int secondsToMs(int seconds)
{
    return seconds > 0 ? static_cast<unsigned int>(seconds) * 1000u : 0u;
}

}  // namespace

CAExternalEncodeProxyMPI::CAExternalEncodeProxyMPI() : m_shared(nullptr), m_externalProcessId(0) {}

CAExternalEncodeProxyMPI::CAExternalEncodeProxyMPI(size_t size) : m_shared(nullptr), m_externalProcessId(0)
{
    const std::string prefix = kKeyPrefix + ZKGetGUID();
    if (!CAMemoryMappedFile::makeTempFile(m_key, prefix.c_str())) {
        const std::string text = "TMessagePassingInterface failed to generate a "
                                 "shared memory mapped file key: " +
                                 m_key;
        m_key.clear();  // nothing was created, so the destructor has nothing to remove
        throw std::runtime_error(text);
    }
    if (!m_sharedMemory.create(m_key.c_str(), size)) {
        removeBackingFile();
        throw std::runtime_error("TMessagePassingInterface failed to create "
                                 "shared memory segment " +
                                 m_key + " of size " + std::to_string(size) + " bytes");
    }
    m_shared = m_sharedMemory.construct<CAExternalVideoProxySharedData>(kSharedDataName);
    // The other side finds the payload at the fixed offset, so the record must sit there.
    if (m_shared != nullptr && m_shared->m_payload != static_cast<uint8_t*>(m_sharedMemory.data()) + kPayloadOffset)
        m_shared = nullptr;
    if (m_shared == nullptr) {
        removeBackingFile();
        throw std::runtime_error("TMessagePassingInterface failed to construct "
                                 "client/server synchronization structure");
    }
}

CAExternalEncodeProxyMPI::CAExternalEncodeProxyMPI(const std::string& key, unsigned int ms)
    : m_shared(nullptr), m_externalProcessId(0)
{
    if (!m_sharedMemory.attach(key.c_str()))
        throw std::runtime_error("TMessagePassingInterface failed to attach to "
                                 "shared memory segment, key: " +
                                 key);
    CAExternalVideoProxySharedData* shared =
        m_sharedMemory.waitToFindTimed<CAExternalVideoProxySharedData>(kSharedDataName, ms);
    // A block too short for the record would let the fields run past it.
    size_t dataSize = 0;
    if (shared == nullptr || m_sharedMemory.findAddr(kSharedDataName, &dataSize) != shared ||
        dataSize < sizeof(CAExternalVideoProxySharedData)) {
        m_sharedMemory.detach();
        throw std::runtime_error("TMessagePassingInterface failed to discover "
                                 "client/server synchronization structure "
                                 "within " +
                                 std::to_string(ms) + " msec");
    }
    m_shared = shared;
}

CAExternalEncodeProxyMPI::~CAExternalEncodeProxyMPI()
{
    if (!m_key.empty())
        removeBackingFile();
    else
        m_sharedMemory.detach();
}

// The creating side owns both the file and the lock named after it; Linux
// would keep the lock's name until reboot otherwise.
void CAExternalEncodeProxyMPI::removeBackingFile()
{
    m_sharedMemory.detach();
    m_shared = nullptr;
    zk_remove_UTF8(m_key);
    CASystemSemaphore::remove(m_key.c_str());
}

unsigned CAExternalEncodeProxyMPI::RemoveAbandonedSegments()
{
    const std::string folder = CAMemoryMappedFile::temporaryFolder();
    std::unique_ptr<DIR, int (*)(DIR*)> dir(opendir(folder.c_str()), closedir);
    if (!dir)
        return 0;
    unsigned removed = 0;
    while (const dirent* entry = readdir(dir.get())) {
        if (std::strncmp(entry->d_name, kKeyPrefix, sizeof kKeyPrefix - 1) == 0 &&
            CAMemoryMappedFile::removeIfAbandoned((folder + "/" + entry->d_name).c_str()))
            ++removed;
    }
    return removed;
}

size_t CAExternalEncodeProxyMPI::payloadCapacity() const
{
    if (m_shared == nullptr)
        return 0;
    const uint8_t* start = static_cast<const uint8_t*>(m_sharedMemory.data());
    return m_sharedMemory.size() - static_cast<size_t>(m_shared->m_payload - start);
}

void CAExternalEncodeProxyMPI::setExternalProcessInfo(long long pid, const std::string& name)
{
    m_externalProcessId = pid;
    m_externalProcessName = name;
}

long long CAExternalEncodeProxyMPI::getExternalProcessInfo(std::string& name) const
{
    name = m_externalProcessName;
    return m_externalProcessId;
}

void CAExternalEncodeProxyMPI::lockRecord() const
{
    const TLockWaitWatch watch = ZKLockWaitWatch();
    if (watch == nullptr) {
        m_sharedMemory.semaphoreWait(&m_shared->m_lock);
        return;
    }
    for (unsigned int waited = 0; !m_sharedMemory.semaphoreWaitTimed(&m_shared->m_lock, kLockWatchSliceMs);)
        watch(waited += kLockWatchSliceMs);
}

template <class T>
T CAExternalEncodeProxyMPI::readLocked(const T& field) const
{
    assert(m_shared);
    lockRecord();
    const T value = field;
    m_sharedMemory.semaphorePost(&m_shared->m_lock);
    return value;
}

template <class T>
void CAExternalEncodeProxyMPI::writeLocked(T& field, T value)
{
    assert(m_shared);
    lockRecord();
    field = value;
    m_sharedMemory.semaphorePost(&m_shared->m_lock);
}

void CAExternalEncodeProxyMPI::SetCommand(TCommand command)
{
    writeLocked(m_shared->m_command, command);
}

CAExternalEncodeProxyMPI::TCommand CAExternalEncodeProxyMPI::GetCommand() const
{
    return readLocked(m_shared->m_command);
}

void CAExternalEncodeProxyMPI::SetStatus(unsigned int status)
{
    writeLocked(m_shared->m_status, uint32_t{status});
}

unsigned int CAExternalEncodeProxyMPI::GetStatus() const
{
    return readLocked(m_shared->m_status);
}

void CAExternalEncodeProxyMPI::SetIsKeyFrame(bool isKeyFrame)
{
    writeLocked(m_shared->m_isKeyFrame, uint8_t{isKeyFrame});
}

bool CAExternalEncodeProxyMPI::GetIsKeyFrame() const
{
    return readLocked(m_shared->m_isKeyFrame) != 0;
}

void CAExternalEncodeProxyMPI::SetIsLastFrame(bool isLastFrame)
{
    writeLocked(m_shared->m_isLastFrame, uint8_t{isLastFrame});
}

bool CAExternalEncodeProxyMPI::GetIsLastFrame() const
{
    return readLocked(m_shared->m_isLastFrame) != 0;
}

void CAExternalEncodeProxyMPI::PostCommand()
{
    assert(m_shared);
    m_sharedMemory.semaphorePost(&m_shared->m_commandSemaphore);
}

void CAExternalEncodeProxyMPI::WaitForCommand() const
{
    assert(m_shared);
    m_sharedMemory.semaphoreWait(&m_shared->m_commandSemaphore);
}

bool CAExternalEncodeProxyMPI::TimedWaitForCommand(int seconds) const
{
    assert(m_shared);
    return m_sharedMemory.semaphoreWaitTimed(&m_shared->m_commandSemaphore, secondsToMs(seconds));
}

void CAExternalEncodeProxyMPI::PostResponse()
{
    assert(m_shared);
    m_sharedMemory.semaphorePost(&m_shared->m_responseSemaphore);
}

void CAExternalEncodeProxyMPI::WaitForResponse() const
{
    assert(m_shared);
    m_sharedMemory.semaphoreWait(&m_shared->m_responseSemaphore);
}

bool CAExternalEncodeProxyMPI::TimedWaitForResponse(int seconds) const
{
    assert(m_shared);
    return m_sharedMemory.semaphoreWaitTimed(&m_shared->m_responseSemaphore, secondsToMs(seconds));
}

bool CAExternalEncodeProxyMPI::WaitForResponseWithin(unsigned int ms, const std::atomic<bool>* stop) const
{
    assert(m_shared);
    return m_sharedMemory.semaphoreWaitTimed(&m_shared->m_responseSemaphore, ms, stop);
}

void CAExternalEncodeProxyMPI::WakeResponseWaiter() const
{
    assert(m_shared);
    m_sharedMemory.semaphoreWake(&m_shared->m_responseSemaphore);
}

bool CAExternalEncodeProxyMPI::CommandWaiting() const
{
    assert(m_shared);
    return m_sharedMemory.semaphorePosted(&m_shared->m_commandSemaphore);
}
