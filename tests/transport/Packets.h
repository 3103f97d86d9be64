// Packet and bundle builders for the transport tests, and a deep comparison of two packets.
#pragma once

#include "transport/PacketHolder.h"
#include "transport/TPacketBundle.h"
#include "transport/TQVAPIPacket.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace evctest {

inline TQVAPIPacket* MakePacket(uint32_t type, uint32_t track, uint64_t time, uint64_t timeBase, uint64_t duration,
                                const std::vector<uint8_t>& descriptor, const std::vector<uint8_t>& data)
{
    auto* p = new TQVAPIPacket;
    p->setType(type);
    p->setTrack(track);
    p->setTime(time);
    p->setTimeBase(timeBase);
    p->setDuration(duration);
    p->setDescriptor(descriptor.data(), descriptor.size());
    p->setData(data.data(), data.size());
    return p;
}

inline TPacketBundle* MakeBundle(uint32_t track, uint64_t time, uint64_t timeBase, uint64_t duration,
                                 const std::vector<uint8_t>& descriptor, std::vector<IPacket*> members)
{
    auto* b = new TPacketBundle;
    b->setTrack(track);
    b->setTime(time);
    b->setTimeBase(timeBase);
    b->setDuration(duration);
    b->setDescriptor(descriptor.data(), descriptor.size());
    for (IPacket* m : members)
        b->append(m);
    return b;
}

inline std::vector<uint8_t> BytesOf(const uint8_t* p, uint64_t n)
{
    return p == nullptr ? std::vector<uint8_t>() : std::vector<uint8_t>(p, p + n);
}

// Every field, the descriptor and data bytes, and the members in order and nesting.
inline void ExpectSamePacket(const IPacket* expected, const IPacket* actual, const std::string& where = "")
{
    SCOPED_TRACE(where);
    ASSERT_NE(actual, nullptr);
    EXPECT_EQ(actual->getType(), expected->getType());
    EXPECT_EQ(actual->getTrack(), expected->getTrack());
    EXPECT_EQ(actual->getTime(), expected->getTime());
    EXPECT_EQ(actual->getTimeBase(), expected->getTimeBase());
    EXPECT_EQ(actual->getDuration(), expected->getDuration());
    EXPECT_EQ(BytesOf(actual->getDescriptor(), actual->getDescriptorSize()),
              BytesOf(expected->getDescriptor(), expected->getDescriptorSize()));
    EXPECT_EQ(BytesOf(actual->getData(), actual->getDataSize()), BytesOf(expected->getData(), expected->getDataSize()));
    if (expected->getType() != IPacketBundle::kBundleType)
        return;
    auto* e = static_cast<const IPacketBundle*>(expected);
    auto* a = static_cast<const IPacketBundle*>(actual);
    ASSERT_EQ(a->size(), e->size());
    for (uint32_t i = 0; i < e->size(); ++i)
        ExpectSamePacket(e->get(i), a->get(i), where + "/" + std::to_string(i));
}

}  // namespace evctest
