// Packets and bundles in memory (ownership, deep copies) and the fixed binary headers: frame
// information blocks in both forms, packet and bundle headers.
#include "Packets.h"
#include "common/Golden.h"

#include "transport/TZKFrameInfo.h"
#include "transport/TZKPacketHeaders.h"

#include <cstring>

using namespace evctest;

namespace {

// Counts live instances, so a test sees what destroy released.
class CountedPacket : public IPacket {
public:
    explicit CountedPacket(int& live) : m_live(live) { ++m_live; }
    uint32_t getType() const override { return 7; }
    uint32_t getTrack() const override { return 3; }
    uint64_t getTime() const override { return 40; }
    uint64_t getTimeBase() const override { return 90000; }
    uint64_t getDuration() const override { return 3003; }
    const uint8_t* getDescriptor() const override { return nullptr; }
    uint64_t getDescriptorSize() const override { return 0; }
    const uint8_t* getData() const override { return reinterpret_cast<const uint8_t*>("abc"); }
    uint64_t getDataSize() const override { return 3; }
    IPacket* clone() const override { return new CountedPacket(m_live); }
    void destroy() override { delete this; }

private:
    ~CountedPacket() override { --m_live; }
    int& m_live;
};

TEST(PacketBundle, OwnershipAcrossRemoveReplaceCloneClearAndDestroy)
{
    int live = 0;
    TPacketBundlePtr bundle(MakeBundle(2, 11, 48000, 1024, {1, 2, 3}, {new CountedPacket(live)}));
    auto* nested = new TPacketBundle;
    nested->append(new CountedPacket(live));
    bundle->append(nested);
    bundle->append(MakePacket(4, 0, 0, 1000, 0, {}, {'D'}));

    // Out of range and null replacements change nothing.
    TPacketPtr spare(MakePacket(9, 0, 0, 1000, 0, {}, {'x'}));
    EXPECT_EQ(bundle->get(3), nullptr);
    EXPECT_EQ(bundle->remove(3), nullptr);
    EXPECT_EQ(bundle->replace(3, spare.get()), nullptr);
    EXPECT_EQ(bundle->replace(0, nullptr), nullptr);
    ASSERT_EQ(bundle->size(), 3u);

    // A clone is deep: it outlives the original and owns copies of every member.
    TPacketBundlePtr copy(static_cast<IPacketBundle*>(bundle->clone()));
    EXPECT_EQ(live, 4);
    TPacketBundlePtr reference(MakeBundle(2, 11, 48000, 1024, {1, 2, 3}, {new CountedPacket(live)}));
    reference->append(MakeBundle(0, 0, 1000, 0, {}, {new CountedPacket(live)}));
    reference->append(MakePacket(4, 0, 0, 1000, 0, {}, {'D'}));
    bundle.reset();
    EXPECT_EQ(live, 4);
    ExpectSamePacket(reference.get(), copy.get(), "clone");
    reference.reset();

    // Remove and replace hand ownership back to the caller.
    TPacketPtr removed(copy->remove(0));
    ASSERT_NE(removed, nullptr);
    EXPECT_EQ(removed->getType(), 7u);
    TPacketPtr old(copy->replace(1, removed.release()));
    EXPECT_EQ(old->getDataSize(), 1u);
    EXPECT_EQ(copy->get(1)->getType(), 7u);
    copy->clear();
    EXPECT_EQ(copy->size(), 0u);
    EXPECT_EQ(live, 0);
    ZKDestroyPacket(nullptr);
}

TEST(Headers, FrameInformationShortFormsAndOtherSizes)
{
    Bytes video;
    // colour format, width, height, bottom-up, row bytes 0-3, plane offsets 1-3, reserved
    for (uint32_t v : {6u, 1920u, 1080u, 1u, 1920u, 960u, 960u, 0u, 2073600u, 2592000u, 3110400u, 0xEEEEEEEEu})
        PutLe(video, v, 4);
    for (uint64_t v : {3003, 30000, 77, 25})  // time, scale, original time, original scale
        PutLe(video, v, 8);
    PutLe(video, 24, 4);  // original frame within second
    PutLe(video, 0xA5, 4);
    PutLe(video, 0x1122334455667788ull, 8);
    ASSERT_EQ(video.size(), TZKVideoInfo::kShortSize);
    TZKVideoInfo info;
    ASSERT_TRUE(info.decode(video.data(), video.size()));
    // The long form gives every field a slot of 8 bytes, in the same order.
    uint8_t full[TZKVideoInfo::kSize];
    info.encode(full);
    Bytes expected;
    for (uint64_t v : {6u, 1920u, 1080u, 1u, 1920u, 960u, 960u, 0u, 2073600u, 2592000u, 3110400u, 3003u, 30000u, 77u,
                       25u, 24u, 0xA5u})
        PutLe(expected, v, 8);
    PutLe(expected, 0x1122334455667788ull, 8);
    EXPECT_EQ(Bytes(full, full + sizeof full), expected);

    Bytes audio;
    for (uint64_t v : {96000, 48000, 1024})  // time, scale, duration
        PutLe(audio, v, 8);
    PutLe(audio, 2, 4);  // format
    PutLe(audio, 2, 2);  // channels
    PutLe(audio, 16, 2);
    for (uint32_t v : {48000u, 1024u, 3u, 0u})  // rate, samples, track, reserved
        PutLe(audio, v, 4);
    ASSERT_EQ(audio.size(), TZKAudioInfo::kShortSize);
    TZKAudioInfo sound;
    ASSERT_TRUE(sound.decode(audio.data(), audio.size()));
    uint8_t long_[TZKAudioInfo::kSize];
    sound.encode(long_);
    expected.clear();
    for (uint64_t v : {96000, 48000, 1024, 2, 2, 16, 48000, 1024, 3})
        PutLe(expected, v, 8);
    EXPECT_EQ(Bytes(long_, long_ + sizeof long_), expected);

    const Bytes zeros(200, 0);
    for (size_t size : {0u, 47u, 49u, 71u, 73u, 95u, 97u, 143u, 145u}) {
        SCOPED_TRACE(size);
        EXPECT_FALSE(TZKVideoInfo().decode(zeros.data(), size));
        EXPECT_FALSE(TZKAudioInfo().decode(zeros.data(), size));
    }
}

TEST(Headers, PacketChildrenShorterThanTheyAnnounceAreRefused)
{
    const struct {
        size_t childSize;
        uint32_t descriptorSize, dataSize;
        bool accepted;
    } cases[] = {
        // Trailing bytes are ignored; the sum of the sizes must not wrap.
        {0, 0, 0, false},     {39, 0, 0, false},   {40, 0, 0, true},
        {44, 4, 0, true},     {44, 4, 1, false},   {144, 4, 100, true},
        {143, 4, 100, false}, {200, 4, 100, true}, {64, 0xFFFFFFFF, 0xFFFFFFFF, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.childSize);
        Bytes child(c.childSize + 8, 0x5A);
        if (c.childSize >= 40) {
            TZKPacketHeader header;
            header.type = 9;
            header.descriptorSize = c.descriptorSize;
            header.dataSize = c.dataSize;
            header.encode(child.data());
        }
        TZKPacketView view;
        ASSERT_EQ(view.parse(child.data(), c.childSize), c.accepted);
        if (!c.accepted)
            continue;
        EXPECT_EQ(view.header.type, 9u);
        EXPECT_EQ(view.descriptor, c.descriptorSize ? child.data() + 40 : nullptr);
        EXPECT_EQ(view.data, c.dataSize ? child.data() + 40 + c.descriptorSize : nullptr);
    }
    EXPECT_FALSE(TZKPacketView().parse(nullptr, 100));
}

}  // namespace
