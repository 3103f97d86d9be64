// The start of a packet's or a bundle's information child: its 40-byte
// header, copied, with the time moved by the offset, then the descriptor,
// referred to where it lies (it must outlive the save).
#pragma once

#include "ebml/ebmlHodgePodge.h"
#include "ebml/ebmlMemoryStorage.h"
#include "media/CATime.h"
#include "transport/TimeOffset.h"

#include <cstdint>

// THeader is TZKPacketHeader or TZKBundleHeader. A descriptor size without
// bytes would announce more than the child holds: it becomes 0.
template <class THeader>
void ZKAddHeaderAndDescriptor(Ebml::HodgePodge& bytes, THeader header, const uint8_t* descriptor, const CATime& offset)
{
    if (descriptor == nullptr)
        header.descriptorSize = 0;
    header.time = ZKAddTimeOffset(header.time, header.timeBase, offset);
    uint8_t encoded[THeader::kSize];
    header.encode(encoded);
    bytes.add(encoded, sizeof encoded, Ebml::HodgePodgeStorage::Instance);
    if (header.descriptorSize != 0)
        bytes.add(Ebml::receiptForConstMemory(descriptor, header.descriptorSize));
}
