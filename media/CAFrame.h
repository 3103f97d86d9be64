// Base of the picture and audio frames: a pooled buffer for the frame's bytes,
// its time and duration, and stream markers.
#pragma once

#include "media/CABuffer.h"
#include "media/CATime.h"
#include "media/ZKResult.h"
#include "evc/IPacket.h"

#include <cstdint>

class CAFrame {
public:
    enum ERollType : int32_t {
        eRollTypeNone = 0,
    };

    CAFrame() = default;
    // Gives the buffer back to the pool.
    virtual ~CAFrame();

    CAFrame(const CAFrame&) = delete;
    CAFrame& operator=(const CAFrame&) = delete;

    CATime GetTime() const { return m_time; }
    void SetTime(const CATime& time) { m_time = time; }
    CATime GetDuration() const { return m_duration; }
    void SetDuration(const CATime& duration) { m_duration = duration; }
    bool GetIsEOF() const { return m_isEOF; }
    void SetIsEOF(bool isEOF) { m_isEOF = isEOF; }
    ERollType GetRollType() const { return m_rollType; }
    void SetRollType(ERollType rollType) { m_rollType = rollType; }

    // The pooled buffer holding the frame's bytes; null while there is none.
    // The frame keeps ownership.
    const CABuffer* GetBuffer() const { return m_buffer; }

protected:
    void ReleaseBuffer();
    // Replaces the buffer by a pooled one of size bytes; throws kZKErrGeneral
    // when the pool has no memory.
    void ReplaceBuffer(uint32_t size);
    // [start, start + size) of the buffer; start is 0 without a buffer.
    uintptr_t BufferStart() const;
    uint32_t BufferSize() const;

    // Runs a public operation: a thrown result code is returned, any other
    // exception becomes kZKErrGeneral.
    template <typename Operation>
    static uint32_t Guarded(Operation&& operation)
    {
        try {
            return operation();
        } catch (uint32_t code) {
            return code;
        } catch (...) {
            return kZKErrGeneral;
        }
    }

    CABuffer* m_buffer = nullptr;
    CATime m_time;
    CATime m_duration;
    bool m_isEOF = false;
    ERollType m_rollType = eRollTypeNone;
};

// Replaces an owned bundle pointer, destroying the old bundle unless it is the
// new one.
void ZKReplaceOwnedBundle(IPacketBundle*& owned, IPacketBundle* replacement);
