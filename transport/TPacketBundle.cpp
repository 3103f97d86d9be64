#include "transport/TPacketBundle.h"

#include "transport/PacketBytes.h"

#include <cassert>

TPacketBundle::~TPacketBundle()
{
    clear();
}

const uint8_t* TPacketBundle::getDescriptor() const
{
    return ZKPacketBytesOrNull(m_descriptor);
}

IPacket* TPacketBundle::clone() const
{
    auto* copy = new TPacketBundle;
    copy->m_track = m_track;
    copy->m_time = m_time;
    copy->m_timeBase = m_timeBase;
    copy->m_duration = m_duration;
    copy->m_descriptor = m_descriptor;
    copy->m_members.reserve(m_members.size());
    for (const IPacket* member : m_members)
        copy->append(member->clone());
    return copy;
}

void TPacketBundle::clear()
{
    // Detach the list first: the bundle is already empty while members go.
    std::vector<IPacket*> members;
    members.swap(m_members);
    for (IPacket* member : members)
        member->destroy();
}

IPacket* TPacketBundle::get(uint32_t index) const
{
    return index < m_members.size() ? m_members[index] : nullptr;
}

IPacket* TPacketBundle::remove(uint32_t index)
{
    if (index >= m_members.size())
        return nullptr;
    IPacket* member = m_members[index];
    m_members.erase(m_members.begin() + index);
    return member;
}

void TPacketBundle::append(IPacket* packet)
{
    assert(packet != nullptr && "append of a null packet");
    // A null member would be destroyed without a test later on: refuse it.
    if (packet != nullptr)
        m_members.push_back(packet);
}

IPacket* TPacketBundle::replace(uint32_t index, IPacket* packet)
{
    if (index >= m_members.size() || packet == nullptr)
        return nullptr;
    IPacket* old = m_members[index];
    m_members[index] = packet;
    return old;
}

void TPacketBundle::setDescriptor(const uint8_t* bytes, uint64_t size)
{
    ZKAssignPacketBytes(m_descriptor, bytes, size);
}
