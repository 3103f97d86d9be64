// The packets and bundles the H.264 compressor hands out: its own
// implementations of the public packet interfaces, released with destroy.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "evc/IPacket.h"

namespace h264 {

// One typed, timed byte string without a descriptor.
class TPacket : public IPacket {
public:
    TPacket(uint32_t type, const uint8_t* data, size_t size, uint64_t time, uint64_t timeBase, uint64_t duration);

    uint32_t getType() const override { return m_type; }
    uint32_t getTrack() const override { return 0; }
    uint64_t getTime() const override { return m_time; }
    uint64_t getTimeBase() const override { return m_timeBase; }
    uint64_t getDuration() const override { return m_duration; }
    const uint8_t* getDescriptor() const override { return nullptr; }
    uint64_t getDescriptorSize() const override { return 0; }
    const uint8_t* getData() const override { return m_data.empty() ? nullptr : m_data.data(); }
    uint64_t getDataSize() const override { return m_data.size(); }
    IPacket* clone() const override { return new TPacket(*this); }
    void destroy() override { delete this; }

private:
    TPacket(const TPacket&) = default;

    uint32_t m_type;
    uint64_t m_time;
    uint64_t m_timeBase;
    uint64_t m_duration;
    std::vector<uint8_t> m_data;
};

// An ordered list of owned packets in one time base.
class TBundle : public IPacketBundle {
public:
    explicit TBundle(uint64_t timeBase) : m_timeBase(timeBase) {}
    TBundle(const TBundle&) = delete;
    TBundle& operator=(const TBundle&) = delete;
    ~TBundle() override { clear(); }

    uint32_t getTrack() const override { return 0; }
    uint64_t getTime() const override { return 0; }
    uint64_t getTimeBase() const override { return m_timeBase; }
    uint64_t getDuration() const override { return 0; }
    const uint8_t* getDescriptor() const override { return nullptr; }
    uint64_t getDescriptorSize() const override { return 0; }
    IPacket* clone() const override;
    void destroy() override { delete this; }

    void clear() override;
    uint32_t size() const override { return static_cast<uint32_t>(m_members.size()); }
    IPacket* get(uint32_t index) const override { return index < m_members.size() ? m_members[index] : nullptr; }
    IPacket* remove(uint32_t index) override;
    void append(IPacket* packet) override;
    IPacket* replace(uint32_t index, IPacket* packet) override;

private:
    uint64_t m_timeBase;
    std::vector<IPacket*> m_members;
};

// Destroys a bundle the compressor handed out.
struct TBundleDeleter {
    void operator()(IPacketBundle* bundle) const { ZKDestroyPacket(bundle); }
};

}  // namespace h264
