#include "transport/TZKPacketHeaders.h"

#include "evc/IPacket.h"
#include "transport/LittleEndian.h"

namespace {

uint32_t cutTo32(uint64_t value)
{
    return static_cast<uint32_t>(value);
}

}  // namespace

TZKPacketHeader TZKPacketHeader::of(const IPacket& packet)
{
    TZKPacketHeader header;
    header.type = packet.getType();
    header.track = packet.getTrack();
    header.time = packet.getTime();
    header.timeBase = packet.getTimeBase();
    header.duration = packet.getDuration();
    header.descriptorSize = cutTo32(packet.getDescriptorSize());
    header.dataSize = cutTo32(packet.getDataSize());
    return header;
}

void TZKPacketHeader::encode(uint8_t* out) const
{
    ZKPutLE<4>(out + 0, type);
    ZKPutLE<4>(out + 4, track);
    ZKPutLE<8>(out + 8, time);
    ZKPutLE<8>(out + 16, timeBase);
    ZKPutLE<8>(out + 24, duration);
    ZKPutLE<4>(out + 32, descriptorSize);
    ZKPutLE<4>(out + 36, dataSize);
}

TZKPacketHeader TZKPacketHeader::decode(const uint8_t* in)
{
    TZKPacketHeader header;
    header.type = cutTo32(ZKGetLE<4>(in + 0));
    header.track = cutTo32(ZKGetLE<4>(in + 4));
    header.time = ZKGetLE<8>(in + 8);
    header.timeBase = ZKGetLE<8>(in + 16);
    header.duration = ZKGetLE<8>(in + 24);
    header.descriptorSize = cutTo32(ZKGetLE<4>(in + 32));
    header.dataSize = cutTo32(ZKGetLE<4>(in + 36));
    return header;
}

TZKBundleHeader TZKBundleHeader::of(const IPacket& bundle)
{
    TZKBundleHeader header;
    header.track = bundle.getTrack();
    header.time = bundle.getTime();
    header.timeBase = bundle.getTimeBase();
    header.duration = bundle.getDuration();
    header.descriptorSize = cutTo32(bundle.getDescriptorSize());
    return header;
}

void TZKBundleHeader::encode(uint8_t* out) const
{
    ZKPutLE<4>(out + 0, track);
    ZKPutLE<4>(out + 4, 0);
    ZKPutLE<8>(out + 8, time);
    ZKPutLE<8>(out + 16, timeBase);
    ZKPutLE<8>(out + 24, duration);
    ZKPutLE<4>(out + 32, descriptorSize);
    ZKPutLE<4>(out + 36, 0);
}

TZKBundleHeader TZKBundleHeader::decode(const uint8_t* in)
{
    TZKBundleHeader header;
    header.track = cutTo32(ZKGetLE<4>(in + 0));
    header.time = ZKGetLE<8>(in + 8);
    header.timeBase = ZKGetLE<8>(in + 16);
    header.duration = ZKGetLE<8>(in + 24);
    header.descriptorSize = cutTo32(ZKGetLE<4>(in + 32));
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
