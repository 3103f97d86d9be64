// Copies packets out of a bundle the transport owns into plain values the
// caller owns, nested bundles flattened in order.
#pragma once

#include <vector>

#include "evc/Client.h"
#include "evc/IPacket.h"

struct TZKWireBundle;

namespace evc {

void CopyPackets(const IPacketBundle* bundle, unsigned depth, std::vector<Packet>& out);
// The same for a bundle read in place from the payload area (null: none).
void CopyWirePackets(const TZKWireBundle* bundle, std::vector<Packet>& out);
// The packets, times and stream fields of a compressor's output record.
EncodedFrame CopyEncodedFrame(const ZKEncImage_t& record);

}  // namespace evc
