#include "transport/TZKEncImageWire.h"

#include "ebml/ebmlStdInt.h"
#include "ebml/ebmlMixedElements.h"
#include "evc/IPacket.h"
#include "transport/TPacketBundle.h"
#include "transport/TQVAPIPacket.h"
#include "transport/TZKEbmlPacket.h"
#include "transport/TZKEbmlPacketBundle.h"
#include "transport/TZKFrameInfo.h"

#include <cstring>
#include <limits>

namespace {

constexpr uint8_t kEncImage = TZKEncImageElt::kId;
constexpr uint8_t kVideoInfo = TZKVideoInfoElt::kId;
constexpr uint8_t kImageData = TZKImageDataElt::kId;
constexpr uint8_t kDescriptors = TZKDescriptorsElt::kId;
constexpr uint8_t kDataPackets = TZKDataPacketsElt::kId;
constexpr uint8_t kBundle = TZKEbmlPacketBundleElt::kId;
constexpr uint8_t kBundleInfo = TZKPacketBundleInfoDescElt::kId;
constexpr uint8_t kPacket = TZKEbmlPacketElt::kId;
constexpr uint8_t kPacketInfo = TZKPacketInfoDescDataElt::kId;

const CATime kNoOffset(0, 0);

uint64_t ElementSize(uint64_t payload)
{
    return 1 + Ebml::vsizeNumBytes(payload) + payload;
}

// The headers as the general element writes them: a size without bytes is 0.
TZKPacketHeader PacketHeader(const IPacket& packet)
{
    TZKPacketHeader header = TZKPacketHeader::of(packet);
    if (packet.getData() == nullptr)
        header.dataSize = 0;
    if (packet.getDescriptor() == nullptr)
        header.descriptorSize = 0;
    return header;
}

TZKBundleHeader BundleHeader(const IPacketBundle& bundle)
{
    TZKBundleHeader header = TZKBundleHeader::of(bundle);
    if (bundle.getDescriptor() == nullptr)
        header.descriptorSize = 0;
    return header;
}

// False for bytes that start inside the area and run past its end.
struct TArea {
    const uint8_t* start;
    uint64_t size;

    bool holds(const uint8_t* bytes, uint64_t count) const
    {
        const uintptr_t from = reinterpret_cast<uintptr_t>(bytes);
        const uintptr_t base = reinterpret_cast<uintptr_t>(start);
        return start == nullptr || count == 0 || from < base || from - base >= size || count <= size - (from - base);
    }
};

// The payload of a bundle child; false for a shape left to the general element.
bool BundlePayload(const IPacketBundle& bundle, unsigned depth, const TArea& area, uint64_t& size)
{
    if (depth > TZKEncImageWire::kMaxDepth)
        return false;
    const TZKBundleHeader header = BundleHeader(bundle);
    if (!area.holds(bundle.getDescriptor(), header.descriptorSize))
        return false;
    size = ElementSize(TZKBundleHeader::kSize + header.descriptorSize);
    for (uint32_t i = 0; i < bundle.size(); ++i) {
        const IPacket* member = bundle.get(i);
        if (member == nullptr)
            continue;
        if (member->getType() == IPacketBundle::kBundleType) {
            uint64_t nested = 0;
            if (!BundlePayload(*static_cast<const IPacketBundle*>(member), depth + 1, area, nested))
                return false;
            size += ElementSize(nested);
            continue;
        }
        const TZKPacketHeader packet = PacketHeader(*member);
        if (!area.holds(member->getDescriptor(), packet.descriptorSize) ||
            !area.holds(member->getData(), packet.dataSize))
            return false;
        size += ElementSize(ElementSize(uint64_t(TZKPacketHeader::kSize) + packet.descriptorSize + packet.dataSize));
    }
    return true;
}

uint8_t* PutHeader(uint8_t* out, uint8_t id, uint64_t payload)
{
    *out++ = id;
    return out + Ebml::vsizeEncode(payload, out);
}

// Bytes already where they belong are left alone; others may lie further on
// in the same area, so they are moved rather than copied.
uint8_t* PutBytes(uint8_t* out, const uint8_t* bytes, uint64_t count)
{
    if (count != 0 && bytes != out)
        std::memmove(out, bytes, static_cast<size_t>(count));
    return out + count;
}

uint8_t* PutBundle(uint8_t* out, uint8_t id, const IPacketBundle& bundle, unsigned depth)
{
    uint64_t payload = 0;
    BundlePayload(bundle, depth, TArea{nullptr, 0}, payload);
    out = PutHeader(out, id, payload);
    const TZKBundleHeader header = BundleHeader(bundle);
    out = PutHeader(out, kBundleInfo, TZKBundleHeader::kSize + header.descriptorSize);
    header.encode(out);
    out = PutBytes(out + TZKBundleHeader::kSize, bundle.getDescriptor(), header.descriptorSize);
    for (uint32_t i = 0; i < bundle.size(); ++i) {
        const IPacket* member = bundle.get(i);
        if (member == nullptr)
            continue;
        if (member->getType() == IPacketBundle::kBundleType) {
            out = PutBundle(out, kBundle, *static_cast<const IPacketBundle*>(member), depth + 1);
            continue;
        }
        const TZKPacketHeader packet = PacketHeader(*member);
        const uint64_t info = uint64_t(TZKPacketHeader::kSize) + packet.descriptorSize + packet.dataSize;
        out = PutHeader(out, kPacket, ElementSize(info));
        out = PutHeader(out, kPacketInfo, info);
        packet.encode(out);
        out = PutBytes(out + TZKPacketHeader::kSize, member->getDescriptor(), packet.descriptorSize);
        out = PutBytes(out, member->getData(), packet.dataSize);
    }
    return out;
}

bool HasPixels(const ZKImage_t& image)
{
    return image.planes[0] != nullptr && image.dataSize != 0;
}

// The payload of the element and of its two bundle children.
bool Payloads(const ZKEncImage_t& record, const TArea& area, uint64_t& payload, uint64_t& descriptors,
              uint64_t& dataPackets)
{
    const ZKImage_t& image = record.image;
    payload = ElementSize(TZKVideoInfo::kSize);
    if (HasPixels(image)) {
        if (!area.holds(image.planes[0], image.dataSize))
            return false;
        payload += ElementSize(image.dataSize);
    }
    if (record.descriptors != nullptr) {
        if (!BundlePayload(*record.descriptors, 0, area, descriptors))
            return false;
        payload += ElementSize(descriptors);
    }
    if (image.dataPackets != nullptr) {
        if (!BundlePayload(*image.dataPackets, 0, area, dataPackets))
            return false;
        payload += ElementSize(dataPackets);
    }
    return true;
}

// The members of a bundle child: each a packet whose child reads, or a
// nested bundle that does, at most as many as the general element keeps.
bool ParseBundle(const uint8_t* payload, uint64_t size, unsigned depth, TZKWireBundle& bundle)
{
    if (depth > TZKEncImageWire::kMaxDepth)
        return false;
    const uint8_t* at = payload;
    const uint8_t* end = payload + size;
    const uint8_t* info = nullptr;
    uint64_t infoSize = 0;
    if (!ZKWireChild(at, end, kBundleInfo, info, infoSize) || !bundle.view.parse(info, static_cast<size_t>(infoSize)))
        return false;
    bundle.members = at;
    bundle.membersSize = static_cast<uint64_t>(end - at);
    for (uint64_t count = 0; at < end; ++count) {
        if (count == Ebml::MixedElements::kDefaultMaxCount)
            return false;
        const uint8_t* member = nullptr;
        uint64_t memberSize = 0;
        if (ZKWireChild(at, end, kPacket, member, memberSize)) {
            const uint8_t* child = member;
            TZKPacketView view;
            if (!ZKWireChild(child, member + memberSize, kPacketInfo, info, infoSize) || child != member + memberSize ||
                !view.parse(info, static_cast<size_t>(infoSize)) || view.header.type == IPacketBundle::kBundleType)
                return false;
        } else if (ZKWireChild(at, end, kBundle, member, memberSize)) {
            TZKWireBundle nested;
            if (!ParseBundle(member, memberSize, depth + 1, nested))
                return false;
        } else {
            return false;
        }
    }
    return true;
}

IPacketBundle* ExportBundle(const TZKWireBundle& wire, const CATime& offset)
{
    TPacketHolder<TPacketBundle> bundle(ZKNewBundle(wire.view, offset));
    const uint8_t* at = wire.members;
    const uint8_t* end = at + wire.membersSize;
    while (at < end) {
        const uint8_t* member = nullptr;
        uint64_t size = 0;
        // Parsed before: every member reads.
        if (ZKWireChild(at, end, kPacket, member, size)) {
            const uint8_t* child = member;
            const uint8_t* info = nullptr;
            uint64_t infoSize = 0;
            ZKWireChild(child, member + size, kPacketInfo, info, infoSize);
            TZKPacketView view;
            view.parse(info, static_cast<size_t>(infoSize));
            TQVAPIPacket* packet = ZKNewPacket(view.header, offset);
            if (view.descriptor != nullptr)
                std::memcpy(packet->descriptor().data(), view.descriptor, view.header.descriptorSize);
            if (view.data != nullptr)
                std::memcpy(packet->data().data(), view.data, view.header.dataSize);
            bundle->append(packet);
        } else if (ZKWireChild(at, end, kBundle, member, size)) {
            TZKWireBundle nested;
            ParseBundle(member, size, 0, nested);
            bundle->append(ExportBundle(nested, offset));
        } else {
            break;
        }
    }
    return bundle.release();
}

}  // namespace

bool ZKWireChild(const uint8_t*& at, const uint8_t* end, uint8_t id, const uint8_t*& payload, uint64_t& size)
{
    if (at >= end || *at != id || end - at < 2 || at[1] == 0)
        return false;
    const uint8_t* field = at + 1;
    uint64_t width = 1;
    for (uint8_t mask = 0x80; (field[0] & mask) == 0; mask >>= 1)
        ++width;
    if (width > uint64_t(end - field))
        return false;
    const uint64_t value = Ebml::vsizeDecode(field, width);
    if (value == Ebml::uintMax[8] || value == 0 || value > uint64_t(end - field) - width)
        return false;
    payload = field + width;
    size = value;
    at = payload + value;
    return true;
}

bool TZKEncImageWire::measure(const ZKEncImage_t& record, const uint8_t* area, uint64_t areaSize, uint64_t& size)
{
    uint64_t payload = 0, descriptors = 0, dataPackets = 0;
    if (!Payloads(record, TArea{area, areaSize}, payload, descriptors, dataPackets))
        return false;
    size = ElementSize(payload);
    return true;
}

bool TZKEncImageWire::pixelOffset(const ZKEncImage_t& record, uint64_t& offset)
{
    ZKEncImage_t local = record;
    // Only measured, never read: any address will do.
    if (local.image.planes[0] == nullptr)
        local.image.planes[0] = reinterpret_cast<uint8_t*>(&local);
    uint64_t payload = 0, descriptors = 0, dataPackets = 0;
    if (!Payloads(local, TArea{nullptr, 0}, payload, descriptors, dataPackets))
        return false;
    offset = 1 + Ebml::vsizeNumBytes(payload) + ElementSize(TZKVideoInfo::kSize);
    if (HasPixels(local.image))
        offset += 1 + Ebml::vsizeNumBytes(local.image.dataSize);
    return true;
}

void TZKEncImageWire::write(const ZKEncImage_t& record, uint8_t* out)
{
    uint64_t payload = 0, descriptors = 0, dataPackets = 0;
    Payloads(record, TArea{nullptr, 0}, payload, descriptors, dataPackets);
    const ZKImage_t& image = record.image;
    out = PutHeader(out, kEncImage, payload);
    out = PutHeader(out, kVideoInfo, TZKVideoInfo::kSize);
    uint8_t info[TZKVideoInfo::kSize];
    TZKEncImage::infoOf(record, kNoOffset).encode(info);
    out = PutBytes(out, info, sizeof info);
    if (HasPixels(image)) {
        out = PutHeader(out, kImageData, image.dataSize);
        out = PutBytes(out, image.planes[0], image.dataSize);
    }
    if (record.descriptors != nullptr)
        out = PutBundle(out, kDescriptors, *record.descriptors, 0);
    if (image.dataPackets != nullptr)
        PutBundle(out, kDataPackets, *image.dataPackets, 0);
}

bool TZKEncImageWire::parse(const uint8_t* bytes, uint64_t available)
{
    const bool skipBundles = m_skipBundles;
    *this = TZKEncImageWire();
    m_skipBundles = skipBundles;
    const uint8_t* at = bytes;
    const uint8_t* payload = nullptr;
    uint64_t size = 0;
    if (bytes == nullptr || !ZKWireChild(at, bytes + available, kEncImage, payload, size))
        return false;
    m_consumed = static_cast<uint64_t>(at - bytes);
    const uint8_t* child = payload;
    const uint8_t* end = payload + size;
    if (!ZKWireChild(child, end, kVideoInfo, m_info, m_infoSize))
        return false;
    ZKWireChild(child, end, kImageData, m_pixels, m_pixelCount);
    const uint8_t* bundle = nullptr;
    if (ZKWireChild(child, end, kDescriptors, bundle, size)) {
        if (!ParseBundle(bundle, size, 0, m_descriptors))
            return false;
        m_hasDescriptors = true;
    }
    if (ZKWireChild(child, end, kDataPackets, bundle, size)) {
        if (!ParseBundle(bundle, size, 0, m_dataPackets))
            return false;
        m_hasDataPackets = true;
    }
    return child == end;
}

bool TZKEncImageWire::info(TZKVideoInfo& info) const
{
    return info.decode(m_info, static_cast<size_t>(m_infoSize));
}

bool TZKEncImageWire::pixelCount(uint32_t& size) const
{
    if (m_pixelCount > std::numeric_limits<uint32_t>::max())
        return false;
    size = static_cast<uint32_t>(m_pixelCount);
    return true;
}

void TZKEncImageWire::copyPixels(uint8_t* to) const
{
    if (m_pixelCount != 0)
        std::memcpy(to, m_pixels, static_cast<size_t>(m_pixelCount));
}

bool TZKEncImageWire::exportBundles(TPacketBundlePtr& descriptors, TPacketBundlePtr& dataPackets,
                                    const CATime& offset) const
{
    if (m_skipBundles)
        return true;
    if (m_hasDescriptors)
        descriptors.reset(ExportBundle(m_descriptors, offset));
    if (m_hasDataPackets)
        dataPackets.reset(ExportBundle(m_dataPackets, offset));
    return true;
}
