// Helpers shared by the transport tests: packet and bundle builders, a deep
// comparison of bundles, and the reading of hand-written hex data files.
#pragma once

#include "transport/PacketHolder.h"
#include "transport/TPacketBundle.h"
#include "transport/TQVAPIPacket.h"

#include <gtest/gtest.h>

#include <cctype>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace transport_test {

inline TQVAPIPacket* packet(uint32_t type, uint32_t track, uint64_t time, uint64_t timeBase, uint64_t duration,
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

inline TPacketBundle* bundle(uint32_t track, uint64_t time, uint64_t timeBase, uint64_t duration,
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

inline std::vector<uint8_t> bytesOf(const uint8_t* p, uint64_t n)
{
    return p == nullptr ? std::vector<uint8_t>() : std::vector<uint8_t>(p, p + n);
}

// Every field, the descriptor and data bytes, and the members in order and nesting.
inline void expectSamePacket(const IPacket* expected, const IPacket* actual, const std::string& where)
{
    ASSERT_NE(actual, nullptr) << where;
    EXPECT_EQ(actual->getType(), expected->getType()) << where;
    EXPECT_EQ(actual->getTrack(), expected->getTrack()) << where;
    EXPECT_EQ(actual->getTime(), expected->getTime()) << where;
    EXPECT_EQ(actual->getTimeBase(), expected->getTimeBase()) << where;
    EXPECT_EQ(actual->getDuration(), expected->getDuration()) << where;
    EXPECT_EQ(bytesOf(actual->getDescriptor(), actual->getDescriptorSize()),
              bytesOf(expected->getDescriptor(), expected->getDescriptorSize()))
        << where;
    EXPECT_EQ(bytesOf(actual->getData(), actual->getDataSize()), bytesOf(expected->getData(), expected->getDataSize()))
        << where;
    if (expected->getType() != IPacketBundle::kBundleType)
        return;
    auto* e = static_cast<const IPacketBundle*>(expected);
    auto* a = static_cast<const IPacketBundle*>(actual);
    ASSERT_EQ(a->size(), e->size()) << where;
    for (uint32_t i = 0; i < e->size(); ++i)
        expectSamePacket(e->get(i), a->get(i), where + "/" + std::to_string(i));
}

// Hex bytes separated by blanks; '#' starts a comment running to the end of the line.
inline std::vector<uint8_t> readHexFile(const std::string& path)
{
    std::ifstream in(path);
    EXPECT_TRUE(in.good()) << path;
    std::vector<uint8_t> bytes;
    std::string line;
    while (std::getline(in, line)) {
        line = line.substr(0, line.find('#'));
        std::istringstream words(line);
        std::string word;
        while (words >> word)
            bytes.push_back(static_cast<uint8_t>(std::stoul(word, nullptr, 16)));
    }
    return bytes;
}

}  // namespace transport_test
