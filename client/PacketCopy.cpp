#include "client/PacketCopy.h"

namespace evc {

namespace {

// Nesting is bounded by what the transport accepted; this guards recursion
// against a bundle that contains itself.
constexpr unsigned kMaxDepth = 64;

}  // namespace

void CopyPackets(const IPacketBundle* bundle, unsigned depth, std::vector<Packet>& out)
{
    if (bundle == nullptr || depth > kMaxDepth)
        return;
    for (uint32_t i = 0; i < bundle->size(); ++i) {
        const IPacket* member = bundle->get(i);
        if (member == nullptr)
            continue;
        if (member->getType() == IPacketBundle::kBundleType) {
            CopyPackets(static_cast<const IPacketBundle*>(member), depth + 1, out);
            continue;
        }
        Packet packet;
        packet.type = member->getType();
        packet.track = member->getTrack();
        packet.time = member->getTime();
        packet.timeBase = member->getTimeBase();
        packet.duration = member->getDuration();
        if (member->getDescriptor() != nullptr)
            packet.descriptor.assign(member->getDescriptor(), member->getDescriptor() + member->getDescriptorSize());
        if (member->getData() != nullptr)
            packet.data.assign(member->getData(), member->getData() + member->getDataSize());
        packet.depth = depth;
        out.push_back(std::move(packet));
    }
}

EncodedFrame CopyEncodedFrame(const ZKEncImage_t& record)
{
    EncodedFrame frame;
    CopyPackets(record.descriptors, 0, frame.descriptors);
    CopyPackets(record.image.dataPackets, 0, frame.packets);
    frame.time = record.image.time;
    frame.timeScale = record.image.timeScale;
    frame.streamValue = record.streamValue;
    frame.streamFlags = record.streamFlags;
    return frame;
}

}  // namespace evc
