#pragma once
// The conversation between the host application (the client, which creates the
// channel) and the compression service (which attaches to it): one shared
// segment holding one CAExternalVideoProxySharedData record followed by the
// payload area. The two sides alternate strictly, command then response.

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>

#include "ipc/CAExternalVideoProxySharedData.h"
#include "ipc/details/ASharedMemory.h"

class CAExternalEncodeProxyMPI {
public:
    using TCommand = CAExternalVideoProxySharedData::TCommand;

    // Name of the record's block in the segment.
    static constexpr char kSharedDataName[] = "CAExternalVideoProxySharedData";
    // Where the payload area starts in the segment: the record is the first
    // block, so the change counter, the block's header with the name padded to
    // 8 bytes, and the record's fixed fields come before it. A segment of
    // size bytes carries size - kPayloadOffset bytes of payload.
    static constexpr size_t kPayloadOffset = CASharedMemory::kChangeCounterSize + CASharedMemory::kFragmentHeaderSize +
                                             (sizeof kSharedDataName - 1 + 7) / 8 * 8 +
                                             offsetof(CAExternalVideoProxySharedData, m_payload);
    // The most the service's reply (one output frame's element) occupies,
    // from the start of the payload area; segments for the service hold it.
    static constexpr size_t kReplyAreaBytes = 0x4000000;

    // Empty object: no segment, no record.
    CAExternalEncodeProxyMPI();
    // Creating side (client): a new backing file in the temporary folder, a
    // segment of size bytes on it and the record in it. Throws std::runtime_error.
    explicit CAExternalEncodeProxyMPI(size_t size);
    // Attaching side (service): joins the segment whose backing file is key and
    // waits up to ms milliseconds for the record. Throws std::runtime_error.
    CAExternalEncodeProxyMPI(const std::string& key, unsigned int ms);
    // Detaches; the creating side also removes the backing file and its lock.
    virtual ~CAExternalEncodeProxyMPI();

    CAExternalEncodeProxyMPI(const CAExternalEncodeProxyMPI&) = delete;
    CAExternalEncodeProxyMPI& operator=(const CAExternalEncodeProxyMPI&) = delete;

    // Removes the segments in the temporary folder whose creating host has
    // died (their backing files and lock names); live sessions are left
    // alone. Answers how many it removed.
    static unsigned RemoveAbandonedSegments();

    // The key to hand to the other process; empty on the attaching side.
    const std::string& GetSharedMemoryName() const { return m_key; }
    const std::string& key() const { return m_key; }

    void setExternalProcessInfo(long long pid, const std::string& name);
    long long getExternalProcessInfo(std::string& name) const;

    // Fields taken under the record's lock.
    void SetCommand(TCommand command);
    TCommand GetCommand() const;
    void SetStatus(unsigned int status);
    unsigned int GetStatus() const;
    void SetIsKeyFrame(bool isKeyFrame);
    bool GetIsKeyFrame() const;
    void SetIsLastFrame(bool isLastFrame);
    bool GetIsLastFrame() const;

    // Handshake. The timed waits take whole seconds and return true when a post
    // was taken.
    void PostCommand();
    void WaitForCommand() const;
    bool TimedWaitForCommand(int seconds) const;
    void PostResponse();
    void WaitForResponse() const;
    bool TimedWaitForResponse(int seconds) const;
    // The same with a limit in milliseconds, for a caller that waits in
    // slices and watches the other process between them. With stop, the wait
    // also ends (false) once the flag is raised and WakeResponseWaiter called,
    // from any thread: a watcher that saw the other process end.
    bool WaitForResponseWithin(unsigned int ms, const std::atomic<bool>* stop = nullptr) const;
    void WakeResponseWaiter() const;
    // Whether a posted command still waits to be taken by the service.
    bool CommandWaiting() const;

    // The record itself, for the fields without accessors (hints, payload
    // sizes, begin flag, last-pass answer). Touch them only on your turn of the
    // alternation. Null in an empty object.
    CAExternalVideoProxySharedData* sharedData() const { return m_shared; }
    // Start of the payload area and the bytes available from there to the end
    // of the segment. Lengths read from the other side must be checked against
    // payloadCapacity() before use.
    uint8_t* payload() const { return m_shared ? m_shared->m_payload : nullptr; }
    size_t payloadCapacity() const;

protected:
    CAExternalVideoProxySharedData* m_shared;
    std::string m_key;
    mutable CASharedMemory m_sharedMemory;
    long long m_externalProcessId;
    std::string m_externalProcessName;

private:
    void removeBackingFile();
    // Takes m_lock, in watched slices when the process bounds its lock waits.
    void lockRecord() const;
    // One field of the record, read or written under m_lock.
    template <class T>
    T readLocked(const T& field) const;
    template <class T>
    void writeLocked(T& field, T value);
};

static_assert(CAExternalEncodeProxyMPI::kPayloadOffset == 176, "payload area offset in the segment");
