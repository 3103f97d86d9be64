#include "media/CAFrame.h"

#include "media/CABufferPool.h"

CAFrame::~CAFrame()
{
    ReleaseBuffer();
}

void CAFrame::ReleaseBuffer()
{
    if (m_buffer != nullptr)
        m_buffer->Release();
    m_buffer = nullptr;
}

void CAFrame::ReplaceBuffer(uint32_t size)
{
    ReleaseBuffer();
    m_buffer = CABufferPool::GetBufferPool()->AquireBuffer(size);
    if (m_buffer == nullptr)
        throw kZKErrGeneral;
}

uintptr_t CAFrame::BufferStart() const
{
    return m_buffer ? reinterpret_cast<uintptr_t>(m_buffer->GetData()) : 0;
}

uint32_t CAFrame::BufferSize() const
{
    return m_buffer ? m_buffer->GetSize() : 0;
}

bool CAFrame::PointsInto(const void* address, uint64_t length) const
{
    const uintptr_t at = reinterpret_cast<uintptr_t>(address);
    if (m_buffer == nullptr)
        return at == 0;
    return at >= BufferStart() && at - BufferStart() <= length;
}

uint64_t CAFrame::RoomAfter(const void* address) const
{
    return BufferSize() - (reinterpret_cast<uintptr_t>(address) - BufferStart());
}

void ZKReplaceOwnedBundle(IPacketBundle*& owned, IPacketBundle* replacement)
{
    if (owned != nullptr && owned != replacement)
        owned->destroy();
    owned = replacement;
}
