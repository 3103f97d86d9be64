// The in-memory packet this system creates when it reads packets back.
#pragma once

#include "evc/IPacket.h"

#include <cstdint>
#include <vector>

class TQVAPIPacket : public IPacket {
public:
    TQVAPIPacket() = default;
    // Copies all seven fields through the interface of source.
    explicit TQVAPIPacket(const IPacket& source);
    ~TQVAPIPacket() override = default;

    uint32_t getType() const override { return m_type; }
    uint32_t getTrack() const override { return m_track; }
    uint64_t getTime() const override { return m_time; }
    uint64_t getTimeBase() const override { return m_timeBase; }
    uint64_t getDuration() const override { return m_duration; }
    const uint8_t* getDescriptor() const override;
    uint64_t getDescriptorSize() const override { return m_descriptor.size(); }
    const uint8_t* getData() const override;
    uint64_t getDataSize() const override { return m_data.size(); }
    IPacket* clone() const override;
    void destroy() override { delete this; }

    void setType(uint32_t type) { m_type = type; }
    void setTrack(uint32_t track) { m_track = track; }
    void setTime(uint64_t time) { m_time = time; }
    void setTimeBase(uint64_t timeBase) { m_timeBase = timeBase; }
    void setDuration(uint64_t duration) { m_duration = duration; }
    void setDescriptor(const uint8_t* bytes, uint64_t size);
    void setData(const uint8_t* bytes, uint64_t size);
    std::vector<uint8_t>& descriptor() { return m_descriptor; }
    std::vector<uint8_t>& data() { return m_data; }

private:
    uint32_t m_type = 0;
    uint32_t m_track = 0;
    uint64_t m_time = 0;
    uint64_t m_timeBase = 1000;
    uint64_t m_duration = 0;
    std::vector<uint8_t> m_descriptor;
    std::vector<uint8_t> m_data;
};
