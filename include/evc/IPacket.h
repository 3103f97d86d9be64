/// @file
/// Compressed packets and ordered bundles of them, as compressors and frames
/// hand them around. Plug-ins are compiled apart from the service, so the order
/// of the virtual operations below is part of the binary contract: never
/// reorder, insert or remove one.
#pragma once

#include <cstdint>

/// A typed, timed byte string with an optional descriptor. The pointers it
/// hands out stay valid, and the bytes unchanged, until the packet is
/// destroyed.
class IPacket {
public:
    /// The codec's packet type (e.g. evc/H264Codec.h); IPacketBundle::kBundleType
    /// marks a bundle.
    virtual uint32_t getType() const = 0;
    /// The track the packet belongs to; 0 for a single stream.
    virtual uint32_t getTrack() const = 0;
    virtual uint64_t getTime() const = 0;              ///< in units of the time base
    virtual uint64_t getTimeBase() const = 0;          ///< units per second
    virtual uint64_t getDuration() const = 0;          ///< in units of the time base
    virtual const uint8_t* getDescriptor() const = 0;  ///< null when there is none
    virtual uint64_t getDescriptorSize() const = 0;    ///< bytes at getDescriptor()
    virtual const uint8_t* getData() const = 0;        ///< null when there is none
    virtual uint64_t getDataSize() const = 0;          ///< bytes at getData()
    /// A new packet with the same content, owned by the caller.
    virtual IPacket* clone() const = 0;
    /// Releases the object. Holders that did not create a packet release it
    /// with destroy, never with delete: the creator may live in another module.
    virtual void destroy() = 0;

protected:
    virtual ~IPacket() = default;
};

/// An ordered list of packets and nested bundles with a descriptor of its own.
class IPacketBundle : public IPacket {
public:
    /// The packet type that marks a bundle among packets.
    static constexpr uint32_t kBundleType = 28;

    /// Always kBundleType.
    uint32_t getType() const override { return kBundleType; }
    /// A bundle has members, not bytes: null and 0.
    const uint8_t* getData() const override { return nullptr; }
    uint64_t getDataSize() const override { return 0; }  ///< always 0

    /// Destroys every member.
    virtual void clear() = 0;
    virtual uint32_t size() const = 0;  ///< the number of members
    /// The member at index, or null when out of range; the bundle keeps it.
    virtual IPacket* get(uint32_t index) const = 0;
    /// Takes the member out (the caller owns it), null when out of range.
    virtual IPacket* remove(uint32_t index) = 0;
    /// Takes ownership; the packet must not be null.
    virtual void append(IPacket* packet) = 0;
    /// Stores packet at index and hands back the old member (the caller owns
    /// it); null and no change when the index is out of range or packet is null.
    virtual IPacket* replace(uint32_t index, IPacket* packet) = 0;

protected:
    ~IPacketBundle() override = default;
};

/// destroy() that accepts null, for holders of optional packets.
inline void ZKDestroyPacket(IPacket* packet)
{
    if (packet != nullptr)
        packet->destroy();
}
