// The "EncImage" element of the frame channel written and read straight over
// contiguous memory, without the general element objects (one picture's
// request and reply cost no allocation here). Only the shape the general
// element writes is handled: children in their fixed order, sizes in their
// shortest form, bundle members that are packets or nested bundles. Anything
// else (a Void, a CRC-32, an unknown child, a size of unknown length, a packet
// that contradicts itself) is left to the general element: the functions say
// false and the caller takes that path, which writes the same bytes and reads
// the same frames.
#pragma once

#include "evc/ZKImage.h"
#include "media/CATime.h"
#include "transport/PacketHolder.h"
#include "transport/TZKEncImage.h"
#include "transport/TZKPacketHeaders.h"

#include <cstddef>
#include <cstdint>

// A bundle child as read: its header block, then the bytes of its members.
struct TZKWireBundle {
    TZKBundleView view;
    const uint8_t* members = nullptr;
    uint64_t membersSize = 0;
};

class TZKEncImageWire : public TZKEncImageParts {
public:
    // Deeper nesting of bundles is left to the general element.
    static constexpr unsigned kMaxDepth = 8;

    // The element's size for record, or false when record holds a bundle this
    // writer leaves alone, or bytes that start in [area, area + areaSize) and
    // run past its end (the general element refuses to move them).
    static bool measure(const ZKEncImage_t& record, const uint8_t* area, uint64_t areaSize, uint64_t& size);
    // Writes the measured element at out, in order; bytes that lie in the
    // area already are moved, and not at all where they are in place.
    static void write(const ZKEncImage_t& record, uint8_t* out);

    // Where write puts the first pixel byte of record, counted from the
    // element's start, or false as measure says (planes may be null).
    static bool pixelOffset(const ZKEncImage_t& record, uint64_t& offset);

    // Reads the element at bytes, looking at no more than available bytes.
    // False when they do not hold it in the shape above, or a bundle in it
    // cannot be read: the general reader then decides.
    bool parse(const uint8_t* bytes, uint64_t available);
    // The bytes the element took, header included.
    uint64_t consumed() const { return m_consumed; }
    const TZKWireBundle* descriptors() const { return m_hasDescriptors ? &m_descriptors : nullptr; }
    const TZKWireBundle* dataPackets() const { return m_hasDataPackets ? &m_dataPackets : nullptr; }
    // Leaves the bundles out of exported frames: the caller reads them here.
    void skipBundles() { m_skipBundles = true; }

    // Visits the packets of a parsed bundle in order, nested bundles in
    // place: visit(header, descriptor, data, depth), null pointers for no bytes.
    template <class TVisit>
    static void forEachPacket(const TZKWireBundle& bundle, unsigned depth, TVisit&& visit);

    bool info(TZKVideoInfo& info) const override;
    bool pixelCount(uint32_t& size) const override;
    const uint8_t* pixelRun() const override { return m_pixels; }
    void copyPixels(uint8_t* to) const override;
    bool exportBundles(TPacketBundlePtr& descriptors, TPacketBundlePtr& dataPackets,
                       const CATime& offset) const override;

private:
    const uint8_t* m_info = nullptr;
    uint64_t m_infoSize = 0;
    const uint8_t* m_pixels = nullptr;
    uint64_t m_pixelCount = 0;
    TZKWireBundle m_descriptors, m_dataPackets;
    bool m_hasDescriptors = false, m_hasDataPackets = false, m_skipBundles = false;
    uint64_t m_consumed = 0;
};

// One child read from [at, end): its id, then its payload. False when the id is
// another, the size is of unknown length or runs past end, or the payload is empty.
bool ZKWireChild(const uint8_t*& at, const uint8_t* end, uint8_t id, const uint8_t*& payload, uint64_t& size);

template <class TVisit>
void TZKEncImageWire::forEachPacket(const TZKWireBundle& bundle, unsigned depth, TVisit&& visit)
{
    const uint8_t* at = bundle.members;
    const uint8_t* end = at + bundle.membersSize;
    while (at < end) {
        const uint8_t* payload = nullptr;
        uint64_t size = 0;
        // Parsed before: each member is one of the two.
        if (ZKWireChild(at, end, 0x82, payload, size)) {
            const uint8_t* child = payload;
            const uint8_t* info = nullptr;
            uint64_t infoSize = 0;
            ZKWireChild(child, payload + size, 0x81, info, infoSize);
            TZKPacketView view;
            view.parse(info, static_cast<size_t>(infoSize));
            visit(view.header, view.descriptor, view.data, depth);
        } else if (ZKWireChild(at, end, 0x84, payload, size)) {
            TZKWireBundle nested;
            const uint8_t* child = payload;
            const uint8_t* info = nullptr;
            uint64_t infoSize = 0;
            ZKWireChild(child, payload + size, 0x83, info, infoSize);
            nested.members = child;
            nested.membersSize = static_cast<uint64_t>(payload + size - child);
            forEachPacket(nested, depth + 1, visit);
        } else {
            return;
        }
    }
}
