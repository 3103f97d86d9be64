// Base of the picture and audio frames: a pooled buffer for the frame's bytes,
// its time and duration, and stream markers.
#pragma once

#include "media/CABuffer.h"
#include "media/CATime.h"
#include "evc/ZKResult.h"
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
    // Bytes in the buffer; 0 without one.
    uint32_t BufferSize() const;
    // The address lies in [start, start + length] of the buffer; without a
    // buffer only null does.
    bool PointsInto(const void* address, uint64_t length) const;
    // Bytes from an address that PointsInto the buffer up to its end.
    uint64_t RoomAfter(const void* address) const;

    // The body of the plain setters, which all succeed.
    template <typename Field, typename Value>
    static uint32_t Store(Field& field, Value value)
    {
        field = value;
        return kZKNoErr;
    }

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

private:
    // Address of the buffer's first byte; 0 without a buffer.
    uintptr_t BufferStart() const;
};

// Replaces an owned bundle pointer, destroying the old bundle unless it is the
// new one.
void ZKReplaceOwnedBundle(IPacketBundle*& owned, IPacketBundle* replacement);
