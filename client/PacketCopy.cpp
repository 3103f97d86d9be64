#include "client/PacketCopy.h"

#include "transport/TZKEncImageWire.h"

namespace evc {

namespace {

// Nesting is bounded by what the transport accepted; this guards recursion
// against a bundle that contains itself.
constexpr unsigned kMaxDepth = 64;

// Null bytes leave the vectors empty.
void Append(std::vector<Packet>& out, const TZKPacketHeader& header, const uint8_t* descriptor, uint64_t descriptorSize,
            const uint8_t* data, uint64_t dataSize, unsigned depth)
{
    out.emplace_back();
    Packet& packet = out.back();
    packet.type = header.type;
    packet.track = header.track;
    packet.time = header.time;
    packet.timeBase = header.timeBase;
    packet.duration = header.duration;
    if (descriptor != nullptr)
        packet.descriptor.assign(descriptor, descriptor + descriptorSize);
    if (data != nullptr)
        packet.data.assign(data, data + dataSize);
    packet.depth = depth;
}

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
        // The header carries the fields; the sizes are the packet's own.
        Append(out, TZKPacketHeader::of(*member), member->getDescriptor(), member->getDescriptorSize(),
               member->getData(), member->getDataSize(), depth);
    }
}

void CopyWirePackets(const TZKWireBundle* bundle, std::vector<Packet>& out)
{
    if (bundle == nullptr)
        return;
    TZKEncImageWire::forEachPacket(
        *bundle, 0,
        [&out](const TZKPacketHeader& header, const uint8_t* descriptor, const uint8_t* data, unsigned depth) {
            Append(out, header, descriptor, header.descriptorSize, data, header.dataSize, depth);
        });
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
