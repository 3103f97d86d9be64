// A minimal bundle for frame tests: counts its live instances so that tests
// can see when a frame destroys, keeps or hands over its bundles.
#pragma once

#include "evc/IPacket.h"

#include <atomic>

class TestPacketBundle : public IPacketBundle {
public:
    static std::atomic<int>& Live()
    {
        static std::atomic<int> live{0};
        return live;
    }

    explicit TestPacketBundle(uint32_t tag = 0) : m_tag(tag) { ++Live(); }

    uint32_t tag() const { return m_tag; }

    uint32_t getTrack() const override { return 0; }
    uint64_t getTime() const override { return 0; }
    uint64_t getTimeBase() const override { return 1; }
    uint64_t getDuration() const override { return 0; }
    const uint8_t* getDescriptor() const override { return nullptr; }
    uint64_t getDescriptorSize() const override { return 0; }
    IPacket* clone() const override { return new TestPacketBundle(m_tag + 1000); }
    void destroy() override { delete this; }

    void clear() override {}
    uint32_t size() const override { return 0; }
    IPacket* get(uint32_t) const override { return nullptr; }
    IPacket* remove(uint32_t) override { return nullptr; }
    void append(IPacket* packet) override { packet->destroy(); }
    IPacket* replace(uint32_t, IPacket*) override { return nullptr; }

private:
    ~TestPacketBundle() override { --Live(); }

    uint32_t m_tag;
};
