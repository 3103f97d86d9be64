/// @file
/// Ready implementations of the packet interfaces for plug-in authors: a plain
/// packet holding its own copy of the bytes, and a bundle that owns its
/// members. Header-only, so a plug-in links nothing of ours. Both are released
/// with destroy(), the way the host releases what a plug-in hands out.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "evc/IPacket.h"

namespace evc {
namespace plugin {

/// One typed, timed byte string with an optional descriptor; it copies both.
class TPacket : public IPacket {
public:
    /// Copies size bytes at data (none when data is null); time and duration
    /// count units of timeBase per second. Create it with new; release it with
    /// destroy() (or hand it to a bundle, which then owns it).
    TPacket(uint32_t type, const uint8_t* data, size_t size, uint64_t time = 0, uint64_t timeBase = 1,
            uint64_t duration = 0, uint32_t track = 0)
        : m_type(type), m_track(track), m_time(time), m_timeBase(timeBase), m_duration(duration)
    {
        if (data != nullptr)
            m_data.assign(data, data + size);
    }
    /// Attaches a copy of descriptor bytes (codec-specific side data).
    void SetDescriptor(const uint8_t* descriptor, size_t size)
    {
        m_descriptor.assign(descriptor, descriptor + (descriptor != nullptr ? size : 0));
    }

    uint32_t getType() const override { return m_type; }    ///< as constructed
    uint32_t getTrack() const override { return m_track; }  ///< as constructed
    uint64_t getTime() const override { return m_time; }
    uint64_t getTimeBase() const override { return m_timeBase; }
    uint64_t getDuration() const override { return m_duration; }
    const uint8_t* getDescriptor() const override { return m_descriptor.empty() ? nullptr : m_descriptor.data(); }
    uint64_t getDescriptorSize() const override { return m_descriptor.size(); }  ///< 0 when none
    const uint8_t* getData() const override { return m_data.empty() ? nullptr : m_data.data(); }
    uint64_t getDataSize() const override { return m_data.size(); }  ///< 0 when none
    IPacket* clone() const override { return new TPacket(*this); }
    void destroy() override { delete this; }

protected:
    /// For clone(): a packet lives on the heap only.
    TPacket(const TPacket&) = default;
    ~TPacket() override = default;

private:
    uint32_t m_type;
    uint32_t m_track;
    uint64_t m_time;
    uint64_t m_timeBase;
    uint64_t m_duration;
    std::vector<uint8_t> m_descriptor;
    std::vector<uint8_t> m_data;
};

/// An ordered list of owned packets and nested bundles in one time base.
class TBundle : public IPacketBundle {
public:
    /// An empty bundle whose getTimeBase() is timeBase. Create it with new (or
    /// MakeBundle); release it with destroy(), which destroys every member.
    explicit TBundle(uint64_t timeBase = 1) : m_timeBase(timeBase) {}
    TBundle(const TBundle&) = delete;
    TBundle& operator=(const TBundle&) = delete;

    uint32_t getTrack() const override { return 0; }  ///< 0: a bundle has no track of its own
    uint64_t getTime() const override { return 0; }
    uint64_t getTimeBase() const override { return m_timeBase; }
    uint64_t getDuration() const override { return 0; }
    const uint8_t* getDescriptor() const override { return nullptr; }
    uint64_t getDescriptorSize() const override { return 0; }  ///< 0: no descriptor
    IPacket* clone() const override
    {
        std::unique_ptr<TBundle, void (*)(TBundle*)> copy(new TBundle(m_timeBase), [](TBundle* b) { b->destroy(); });
        for (const IPacket* member : m_members)
            copy->append(member->clone());
        return copy.release();
    }
    void destroy() override { delete this; }

    void clear() override
    {
        for (IPacket* member : m_members)
            member->destroy();
        m_members.clear();
    }
    uint32_t size() const override { return static_cast<uint32_t>(m_members.size()); }  ///< the number of members
    IPacket* get(uint32_t index) const override { return index < m_members.size() ? m_members[index] : nullptr; }
    IPacket* remove(uint32_t index) override
    {
        if (index >= m_members.size())
            return nullptr;
        IPacket* member = m_members[index];
        m_members.erase(m_members.begin() + index);
        return member;
    }
    /// Takes ownership of packet; a null one is ignored. When memory runs out
    /// the packet is destroyed and std::bad_alloc thrown.
    void append(IPacket* packet) override
    {
        if (packet == nullptr)
            return;
        try {
            m_members.push_back(packet);
        } catch (...) {
            packet->destroy();  // ownership was handed over: never leak it
            throw;
        }
    }
    IPacket* replace(uint32_t index, IPacket* packet) override
    {
        if (index >= m_members.size() || packet == nullptr)
            return nullptr;
        IPacket* old = m_members[index];
        m_members[index] = packet;
        return old;
    }

protected:
    ~TBundle() override { clear(); }

private:
    uint64_t m_timeBase;
    std::vector<IPacket*> m_members;
};

/// The deleter of owning packet pointers: destroy(), never delete.
struct TPacketDestroyer {
    void operator()(IPacket* packet) const { ZKDestroyPacket(packet); }  ///< destroys packet; null is ignored
};
/// An owned bundle, released with destroy().
using TBundlePtr = std::unique_ptr<TBundle, TPacketDestroyer>;
/// An owned packet, released with destroy().
using TPacketPtr = std::unique_ptr<IPacket, TPacketDestroyer>;

/// A new empty bundle in timeBase, owned by the pointer.
inline TBundlePtr MakeBundle(uint64_t timeBase)
{
    return TBundlePtr(new TBundle(timeBase));
}

}  // namespace plugin
}  // namespace evc
