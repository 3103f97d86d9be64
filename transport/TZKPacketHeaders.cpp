#include "transport/TZKPacketHeaders.h"

#include "evc/IPacket.h"
#include "transport/LittleEndian.h"

namespace {

uint32_t cutTo32(uint64_t value)
{
    return static_cast<uint32_t>(value);
}

// Both headers keep time, time base, duration and descriptor size at bytes
// 8 to 35; they differ only in the first 8 bytes and the last 4.
template <class THeader>
void takeShared(THeader& header, const IPacket& packet)
{
    header.time = packet.getTime();
    header.timeBase = packet.getTimeBase();
    header.duration = packet.getDuration();
    header.descriptorSize = cutTo32(packet.getDescriptorSize());
}

template <class THeader>
void encodeShared(const THeader& header, uint8_t* out)
{
    ZKPutLE<8>(out + 8, header.time);
    ZKPutLE<8>(out + 16, header.timeBase);
    ZKPutLE<8>(out + 24, header.duration);
    ZKPutLE<4>(out + 32, header.descriptorSize);
}

template <class THeader>
void decodeShared(THeader& header, const uint8_t* in)
{
    header.time = ZKGetLE<8>(in + 8);
    header.timeBase = ZKGetLE<8>(in + 16);
    header.duration = ZKGetLE<8>(in + 24);
    header.descriptorSize = cutTo32(ZKGetLE<4>(in + 32));
}

}  // namespace

TZKPacketHeader TZKPacketHeader::of(const IPacket& packet)
{
    TZKPacketHeader header;
    header.type = packet.getType();
    header.track = packet.getTrack();
    takeShared(header, packet);
    header.dataSize = cutTo32(packet.getDataSize());
    return header;
}

void TZKPacketHeader::encode(uint8_t* out) const
{
    ZKPutLE<4>(out + 0, type);
    ZKPutLE<4>(out + 4, track);
    encodeShared(*this, out);
    ZKPutLE<4>(out + 36, dataSize);
}

TZKPacketHeader TZKPacketHeader::decode(const uint8_t* in)
{
    TZKPacketHeader header;
    header.type = cutTo32(ZKGetLE<4>(in + 0));
    header.track = cutTo32(ZKGetLE<4>(in + 4));
    decodeShared(header, in);
    header.dataSize = cutTo32(ZKGetLE<4>(in + 36));
    return header;
}

TZKBundleHeader TZKBundleHeader::of(const IPacket& bundle)
{
    TZKBundleHeader header;
    header.track = bundle.getTrack();
    takeShared(header, bundle);
    return header;
}

void TZKBundleHeader::encode(uint8_t* out) const
{
    ZKPutLE<4>(out + 0, track);
    ZKPutLE<4>(out + 4, 0);
    encodeShared(*this, out);
    ZKPutLE<4>(out + 36, 0);
}

TZKBundleHeader TZKBundleHeader::decode(const uint8_t* in)
{
    TZKBundleHeader header;
    header.track = cutTo32(ZKGetLE<4>(in + 0));
    decodeShared(header, in);
    return header;
}

bool TZKPacketView::parse(const uint8_t* bytes, size_t size)
{
    if (bytes == nullptr || size < TZKPacketHeader::kSize)
        return false;
    header = TZKPacketHeader::decode(bytes);
    // 64-bit sum of two 32-bit sizes cannot wrap.
    const uint64_t needed = uint64_t(TZKPacketHeader::kSize) + header.descriptorSize + header.dataSize;
    if (needed > size)
        return false;
    const uint8_t* rest = bytes + TZKPacketHeader::kSize;
    descriptor = header.descriptorSize != 0 ? rest : nullptr;
    data = header.dataSize != 0 ? rest + header.descriptorSize : nullptr;
    return true;
}

bool TZKBundleView::parse(const uint8_t* bytes, size_t size)
{
    if (bytes == nullptr || size < TZKBundleHeader::kSize)
        return false;
    header = TZKBundleHeader::decode(bytes);
    if (uint64_t(TZKBundleHeader::kSize) + header.descriptorSize > size)
        return false;
    descriptor = header.descriptorSize != 0 ? bytes + TZKBundleHeader::kSize : nullptr;
    return true;
}
