// The in-memory bundle this system creates when it reads bundles back: an
// ordered list of owned packets (plain ones and nested bundles).
#pragma once

#include "evc/IPacket.h"

#include <cstdint>
#include <vector>

class TPacketBundle : public IPacketBundle {
public:
    TPacketBundle() = default;
    TPacketBundle(const TPacketBundle&) = delete;
    TPacketBundle& operator=(const TPacketBundle&) = delete;
    // Destroys every member.
    ~TPacketBundle() override;

    uint32_t getTrack() const override { return m_track; }
    uint64_t getTime() const override { return m_time; }
    uint64_t getTimeBase() const override { return m_timeBase; }
    uint64_t getDuration() const override { return m_duration; }
    const uint8_t* getDescriptor() const override;
    uint64_t getDescriptorSize() const override { return m_descriptor.size(); }
    // A deep copy: the header, the descriptor and a clone of every member.
    IPacket* clone() const override;
    void destroy() override { delete this; }

    void clear() override;
    uint32_t size() const override { return static_cast<uint32_t>(m_members.size()); }
    IPacket* get(uint32_t index) const override;
    IPacket* remove(uint32_t index) override;
    void append(IPacket* packet) override;
    IPacket* replace(uint32_t index, IPacket* packet) override;

    void setTrack(uint32_t track) { m_track = track; }
    void setTime(uint64_t time) { m_time = time; }
    void setTimeBase(uint64_t timeBase) { m_timeBase = timeBase; }
    void setDuration(uint64_t duration) { m_duration = duration; }
    void setDescriptor(const uint8_t* bytes, uint64_t size);

private:
    uint32_t m_track = 0;
    uint64_t m_time = 0;
    uint64_t m_timeBase = 1000;
    uint64_t m_duration = 0;
    std::vector<uint8_t> m_descriptor;
    std::vector<IPacket*> m_members;
};
