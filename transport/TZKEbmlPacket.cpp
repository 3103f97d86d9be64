#include "transport/TZKEbmlPacket.h"

#include "ebml/ebmlMemoryStorage.h"
#include "evc/IPacket.h"
#include "transport/PacketHolder.h"
#include "transport/TQVAPIPacket.h"
#include "transport/HeaderBytes.h"
#include "transport/TZKPacketHeaders.h"
#include "transport/TimeOffset.h"

bool TZKEbmlPacket::eval(Ebml::IElementCrawler& crawler)
{
    return evalChildren(crawler, {&m_info});
}

bool TZKEbmlPacket::isDefault() const
{
    return !m_info.mustSave();
}

Ebml::uint64 TZKEbmlPacket::calcSize() const
{
    return calcChildrenSize({&m_info});
}

Ebml::TReceiptPtr TZKEbmlPacket::save(Ebml::IStorage& storage) const
{
    return saveChildren(storage, {&m_info});
}

Ebml::uint64 TZKEbmlPacket::load(Ebml::IStorage& storage, Ebml::uint64 bytesToRead, Ebml::IDelegateLoad* delegate)
{
    return loadChildren(storage, bytesToRead, delegate, {&m_info});
}

void TZKEbmlPacket::importPacket(const IPacket* packet, const CATime& offset)
{
    Ebml::HodgePodge& bytes = m_info->data();
    bytes.clear();
    if (packet == nullptr)
        return;
    TZKPacketHeader header = TZKPacketHeader::of(*packet);
    // A size without bytes would announce more than the child holds.
    if (packet->getData() == nullptr)
        header.dataSize = 0;
    // The data, like the descriptor, is referred to where it lies.
    ZKAddHeaderAndDescriptor(bytes, header, packet->getDescriptor(), offset);
    if (header.dataSize != 0)
        bytes.add(Ebml::receiptForConstMemory(packet->getData(), header.dataSize));
}

IPacket* TZKEbmlPacket::exportPacket(const CATime& offset) const
{
    // Only the header is read on its own; the descriptor and the data go
    // straight from the child into the packet, without a copy in between.
    const Ebml::HodgePodge& bytes = m_info->data();
    uint8_t head[TZKPacketHeader::kSize];
    if (!bytes.getRange(0, sizeof head, head))
        return nullptr;
    const TZKPacketHeader header = TZKPacketHeader::decode(head);
    // 64-bit sum of two 32-bit sizes cannot wrap. The bundles' type is not a
    // packet's: readers take a member of that type for a bundle.
    if (uint64_t(sizeof head) + header.descriptorSize + header.dataSize > bytes.numBytes() ||
        header.type == IPacketBundle::kBundleType)
        return nullptr;
    TPacketHolder<TQVAPIPacket> packet(ZKNewPacket(header, offset));
    if ((header.descriptorSize != 0 &&
         !bytes.getRange(sizeof head, header.descriptorSize, packet->descriptor().data())) ||
        (header.dataSize != 0 &&
         !bytes.getRange(sizeof head + header.descriptorSize, header.dataSize, packet->data().data())))
        return nullptr;
    return packet.release();
}

TQVAPIPacket* ZKNewPacket(const TZKPacketHeader& header, const CATime& offset)
{
    auto* packet = new TQVAPIPacket;
    packet->setType(header.type);
    packet->setTrack(header.track);
    packet->setTime(ZKAddTimeOffset(header.time, header.timeBase, offset));
    packet->setTimeBase(header.timeBase);
    packet->setDuration(header.duration);
    packet->descriptor().resize(header.descriptorSize);
    packet->data().resize(header.dataSize);
    return packet;
}
