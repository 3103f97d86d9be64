#include "H264Packets.h"

namespace h264 {

TPacket::TPacket(uint32_t type, const uint8_t* data, size_t size, uint64_t time, uint64_t timeBase, uint64_t duration)
    : m_type(type), m_time(time), m_timeBase(timeBase), m_duration(duration)
{
    if (data != nullptr)
        m_data.assign(data, data + size);
}

IPacket* TBundle::clone() const
{
    auto* copy = new TBundle(m_timeBase);
    for (const IPacket* member : m_members)
        copy->append(member->clone());
    return copy;
}

void TBundle::clear()
{
    for (IPacket* member : m_members)
        member->destroy();
    m_members.clear();
}

IPacket* TBundle::remove(uint32_t index)
{
    if (index >= m_members.size())
        return nullptr;
    IPacket* member = m_members[index];
    m_members.erase(m_members.begin() + index);
    return member;
}

void TBundle::append(IPacket* packet)
{
    // Members are destroyed without a null test, so none is stored.
    if (packet != nullptr)
        m_members.push_back(packet);
}

IPacket* TBundle::replace(uint32_t index, IPacket* packet)
{
    if (index >= m_members.size() || packet == nullptr)
        return nullptr;
    IPacket* old = m_members[index];
    m_members[index] = packet;
    return old;
}

}  // namespace h264
