#include "transport/TQVAPIPacket.h"

#include "transport/PacketBytes.h"

TQVAPIPacket::TQVAPIPacket(const IPacket& source)
    : m_type(source.getType()), m_track(source.getTrack()), m_time(source.getTime()), m_timeBase(source.getTimeBase()),
      m_duration(source.getDuration())
{
    ZKAssignPacketBytes(m_descriptor, source.getDescriptor(), source.getDescriptorSize());
    ZKAssignPacketBytes(m_data, source.getData(), source.getDataSize());
}

const uint8_t* TQVAPIPacket::getDescriptor() const
{
    return ZKPacketBytesOrNull(m_descriptor);
}

const uint8_t* TQVAPIPacket::getData() const
{
    return ZKPacketBytesOrNull(m_data);
}

IPacket* TQVAPIPacket::clone() const
{
    return new TQVAPIPacket(static_cast<const IPacket&>(*this));
}

void TQVAPIPacket::setDescriptor(const uint8_t* bytes, uint64_t size)
{
    ZKAssignPacketBytes(m_descriptor, bytes, size);
}

void TQVAPIPacket::setData(const uint8_t* bytes, uint64_t size)
{
    ZKAssignPacketBytes(m_data, bytes, size);
}
