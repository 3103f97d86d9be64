#include "transport/TZKEbmlPacket.h"

#include "ebml/ebmlMemoryStorage.h"
#include "evc/IPacket.h"
#include "transport/TQVAPIPacket.h"
#include "transport/TZKPacketHeaders.h"
#include "transport/TimeOffset.h"

#include <vector>

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

Ebml::uint64 TZKEbmlPacket::load(Ebml::IStorage& storage, Ebml::uint64 bytesToRead,
                                 Ebml::IDelegateLoad* delegate)
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
    if (packet->getDescriptor() == nullptr)
        header.descriptorSize = 0;
    if (packet->getData() == nullptr)
        header.dataSize = 0;
    header.time = ZKAddTimeOffset(header.time, header.timeBase, offset);
    uint8_t encoded[TZKPacketHeader::kSize];
    header.encode(encoded);
    // The header is small and built here, so it is copied; the descriptor and
    // the data are referred to where they lie.
    bytes.add(encoded, sizeof encoded, Ebml::HodgePodgeStorage::Instance);
    if (header.descriptorSize != 0)
        bytes.add(Ebml::receiptForConstMemory(packet->getDescriptor(), header.descriptorSize));
    if (header.dataSize != 0)
        bytes.add(Ebml::receiptForConstMemory(packet->getData(), header.dataSize));
}

IPacket* TZKEbmlPacket::exportPacket(const CATime& offset) const
{
    std::vector<uint8_t> bytes;
    m_info->get(bytes);
    TZKPacketView view;
    if (!view.parse(bytes.data(), bytes.size()))
        return nullptr;
    auto* packet = new TQVAPIPacket;
    packet->setType(view.header.type);
    packet->setTrack(view.header.track);
    packet->setTime(ZKAddTimeOffset(view.header.time, view.header.timeBase, offset));
    packet->setTimeBase(view.header.timeBase);
    packet->setDuration(view.header.duration);
    packet->setDescriptor(view.descriptor, view.header.descriptorSize);
    packet->setData(view.data, view.header.dataSize);
    return packet;
}
