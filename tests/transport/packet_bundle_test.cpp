#include "transport/PacketHolder.h"
#include "transport/TPacketBundle.h"
#include "transport/TQVAPIPacket.h"

#include <gtest/gtest.h>

#include <string>

namespace {

// Counts live instances so that tests can see what destroy released.
class CountedPacket : public IPacket {
public:
    explicit CountedPacket(int& live, uint32_t type = 7) : m_live(live), m_type(type) { ++m_live; }
    uint32_t getType() const override { return m_type; }
    uint32_t getTrack() const override { return 3; }
    uint64_t getTime() const override { return 40; }
    uint64_t getTimeBase() const override { return 90000; }
    uint64_t getDuration() const override { return 3003; }
    const uint8_t* getDescriptor() const override { return nullptr; }
    uint64_t getDescriptorSize() const override { return 0; }
    const uint8_t* getData() const override { return reinterpret_cast<const uint8_t*>("abc"); }
    uint64_t getDataSize() const override { return 3; }
    IPacket* clone() const override { return new CountedPacket(m_live, m_type); }
    void destroy() override { delete this; }

private:
    ~CountedPacket() override { --m_live; }
    int& m_live;
    uint32_t m_type;
};

TQVAPIPacket* makePacket(uint32_t type, const std::string& data, const std::string& descriptor = "")
{
    auto* packet = new TQVAPIPacket;
    packet->setType(type);
    packet->setData(reinterpret_cast<const uint8_t*>(data.data()), data.size());
    packet->setDescriptor(reinterpret_cast<const uint8_t*>(descriptor.data()), descriptor.size());
    return packet;
}

std::string dataOf(const IPacket* packet)
{
    return std::string(reinterpret_cast<const char*>(packet->getData()), packet->getDataSize());
}

TEST(TQVAPIPacket, DefaultsAndEmptyBytesReadAsNull)
{
    TPacketPtr packet(new TQVAPIPacket);
    EXPECT_EQ(packet->getType(), 0u);
    EXPECT_EQ(packet->getTrack(), 0u);
    EXPECT_EQ(packet->getTime(), 0u);
    EXPECT_EQ(packet->getTimeBase(), 1000u);
    EXPECT_EQ(packet->getDuration(), 0u);
    EXPECT_EQ(packet->getDescriptor(), nullptr);
    EXPECT_EQ(packet->getDescriptorSize(), 0u);
    EXPECT_EQ(packet->getData(), nullptr);
    EXPECT_EQ(packet->getDataSize(), 0u);
}

TEST(TQVAPIPacket, CloneCopiesEveryFieldFromAForeignPacket)
{
    int live = 0;
    TPacketPtr foreign(new CountedPacket(live, 5));
    TPacketPtr copy(TQVAPIPacket(*foreign).clone());
    EXPECT_EQ(copy->getType(), 5u);
    EXPECT_EQ(copy->getTrack(), 3u);
    EXPECT_EQ(copy->getTime(), 40u);
    EXPECT_EQ(copy->getTimeBase(), 90000u);
    EXPECT_EQ(copy->getDuration(), 3003u);
    EXPECT_EQ(copy->getDescriptor(), nullptr);
    EXPECT_EQ(dataOf(copy.get()), "abc");
    EXPECT_NE(copy->getData(), foreign->getData());
}

TEST(TPacketBundle, ReportsBundleTypeAndNoData)
{
    TPacketBundlePtr bundle(new TPacketBundle);
    EXPECT_EQ(bundle->getType(), 28u);
    EXPECT_EQ(bundle->getData(), nullptr);
    EXPECT_EQ(bundle->getDataSize(), 0u);
    EXPECT_EQ(bundle->getTimeBase(), 1000u);
    EXPECT_EQ(bundle->getDescriptor(), nullptr);
    EXPECT_EQ(bundle->size(), 0u);
}

TEST(TPacketBundle, OutOfRangeIndexesAndNullReplacementChangeNothing)
{
    TPacketBundlePtr bundle(new TPacketBundle);
    IPacket* only = makePacket(1, "x");
    bundle->append(only);
    TPacketPtr spare(makePacket(2, "y"));

    struct Case {
        const char* what;
        IPacket* result;
    };
    const Case cases[] = {
        {"get(1)", bundle->get(1)},
        {"get(max)", bundle->get(UINT32_MAX)},
        {"remove(1)", bundle->remove(1)},
        {"replace(5, p)", bundle->replace(5, spare.get())},
        {"replace(0, null)", bundle->replace(0, nullptr)},
    };
    for (const Case& c : cases)
        EXPECT_EQ(c.result, nullptr) << c.what;
    ASSERT_EQ(bundle->size(), 1u);
    EXPECT_EQ(bundle->get(0), only);
}

TEST(TPacketBundle, RemoveAndReplaceHandOwnershipBack)
{
    int live = 0;
    TPacketBundlePtr bundle(new TPacketBundle);
    bundle->append(new CountedPacket(live));
    bundle->append(makePacket(9, "second"));

    TPacketPtr removed(bundle->remove(0));
    ASSERT_NE(removed, nullptr);
    EXPECT_EQ(removed->getType(), 7u);
    ASSERT_EQ(bundle->size(), 1u);
    EXPECT_EQ(dataOf(bundle->get(0)), "second");

    TPacketPtr old(bundle->replace(0, removed.release()));
    ASSERT_NE(old, nullptr);
    EXPECT_EQ(dataOf(old.get()), "second");
    EXPECT_EQ(bundle->get(0)->getType(), 7u);
    EXPECT_EQ(live, 1);

    TPacketPtr last(bundle->remove(0));
    EXPECT_EQ(bundle->size(), 0u);
    last.reset();
    EXPECT_EQ(live, 0);
}

TEST(TPacketBundle, DestroyAndClearReleaseEveryMemberAtEveryDepth)
{
    int live = 0;
    auto* outer = new TPacketBundle;
    auto* inner = new TPacketBundle;
    inner->append(new CountedPacket(live));
    inner->append(new CountedPacket(live));
    outer->append(new CountedPacket(live));
    outer->append(inner);
    ASSERT_EQ(live, 3);

    outer->clear();
    EXPECT_EQ(outer->size(), 0u);
    EXPECT_EQ(live, 0);

    outer->append(new CountedPacket(live));
    outer->destroy();
    EXPECT_EQ(live, 0);
    ZKDestroyPacket(nullptr);
}

TEST(TPacketBundle, CloneIsDeepAndKeepsOrderAndNesting)
{
    int live = 0;
    TPacketHolder<TPacketBundle> bundle(new TPacketBundle);
    bundle->setTrack(2);
    bundle->setTime(11);
    bundle->setTimeBase(48000);
    bundle->setDuration(1024);
    const uint8_t desc[] = {1, 2, 3};
    bundle->setDescriptor(desc, sizeof desc);
    bundle->append(makePacket(1, "A"));
    auto* nested = new TPacketBundle;
    nested->append(new CountedPacket(live));
    bundle->append(nested);
    bundle->append(makePacket(4, "D"));

    TPacketBundlePtr copy(static_cast<IPacketBundle*>(bundle->clone()));
    EXPECT_EQ(live, 2);
    bundle.reset();
    EXPECT_EQ(live, 1);

    EXPECT_EQ(copy->getTrack(), 2u);
    EXPECT_EQ(copy->getTime(), 11u);
    EXPECT_EQ(copy->getTimeBase(), 48000u);
    EXPECT_EQ(copy->getDuration(), 1024u);
    ASSERT_EQ(copy->getDescriptorSize(), 3u);
    EXPECT_EQ(copy->getDescriptor()[2], 3);
    ASSERT_EQ(copy->size(), 3u);
    EXPECT_EQ(dataOf(copy->get(0)), "A");
    ASSERT_EQ(copy->get(1)->getType(), IPacketBundle::kBundleType);
    auto* nestedCopy = static_cast<IPacketBundle*>(copy->get(1));
    ASSERT_EQ(nestedCopy->size(), 1u);
    EXPECT_EQ(nestedCopy->get(0)->getType(), 7u);
    EXPECT_EQ(dataOf(copy->get(2)), "D");
    copy.reset();
    EXPECT_EQ(live, 0);
}

}  // namespace
