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

void ZKReplaceOwnedBundle(IPacketBundle*& owned, IPacketBundle* replacement)
{
    if (owned != nullptr && owned != replacement)
        owned->destroy();
    owned = replacement;
}
