// What the media tests share: a bundle that counts its live instances, so that a test sees when a
// frame destroys, keeps or hands over its bundles, and a fixture that fails a test which leaks a
// bundle or a pooled buffer.
#pragma once

#include "common/TempDir.h"
#include "evc/IPacket.h"
#include "media/CABufferPool.h"

#include <gtest/gtest.h>

#include <atomic>

namespace evctest {
// The bytes of a plain record, for comparing with golden bytes.
template <typename T>
Bytes BytesOf(const T& record)
{
    const auto* p = reinterpret_cast<const uint8_t*>(&record);
    return Bytes(p, p + sizeof record);
}
}  // namespace evctest

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

// Starts from a pool without free buffers, so that reuse can only come from buffers the test
// made; ends checking that every bundle and buffer went back.
class MediaTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        m_pool = CABufferPool::GetBufferPool();
        ASSERT_EQ(m_pool->GetUsedBufferCount(), 0u);
        m_pool->ReleaseBuffers();
        m_baseCount = m_pool->GetPoolSize();
        m_liveBundles = TestPacketBundle::Live();
    }
    void TearDown() override
    {
        EXPECT_EQ(TestPacketBundle::Live(), m_liveBundles) << "a bundle leaked or was destroyed twice";
        EXPECT_EQ(m_pool->GetUsedBufferCount(), 0u) << "a buffer was not given back";
        m_pool->ReleaseBuffers();
    }

    CABufferPool* m_pool = nullptr;
    int m_baseCount = 0;
    int m_liveBundles = 0;
};
