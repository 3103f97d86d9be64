#include "TransportTestUtil.h"

#include "ebml/ebmlMemoryStorage.h"
#include "transport/TZKEbmlPacket.h"
#include "transport/TZKEbmlPacketBundle.h"
#include "transport/TZKEncAudio.h"
#include "transport/TZKEncImage.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <vector>

using namespace transport_test;

namespace {

const CATime kNoOffset(0, 0);

std::vector<uint8_t> saveElement(const Ebml::IElement& element)
{
    std::vector<uint8_t> bytes(element.calcSize());
    Ebml::MemoryStorage storage(bytes.data(), bytes.size());
    const Ebml::TReceiptPtr receipt = element.save(storage);
    EXPECT_TRUE(receipt);
    EXPECT_EQ(receipt->numBytes(), bytes.size());
    return bytes;
}

// An element loaded from its own copy of the bytes: loaded binaries refer
// into the storage, so the three live and die together (element first).
template <class TElement>
struct Loaded {
    explicit Loaded(const std::vector<uint8_t>& source) : bytes(source), storage(bytes.data(), bytes.size())
    {
        EXPECT_EQ(element.load(storage, bytes.size()), bytes.size());
    }
    std::vector<uint8_t> bytes;
    Ebml::ConstMemoryStorage storage;
    TElement element;
};

template <class TElement>
std::unique_ptr<Loaded<TElement>> loadElement(const std::vector<uint8_t>& bytes)
{
    return std::unique_ptr<Loaded<TElement>>(new Loaded<TElement>(bytes));
}

TEST(TZKEbmlPacket, ChildIsHeaderThenDescriptorThenData)
{
    struct Case {
        std::vector<uint8_t> descriptor;
        std::vector<uint8_t> data;
        std::vector<uint8_t> head;  // DataPacket id and size, child id and size
    };
    const Case cases[] = {
        {{}, {}, {0x82, 0x80 | 42, 0x81, 0x80 | 40}},
        {{1, 2, 3, 4}, std::vector<uint8_t>(100, 7), {0x82, 0x40, 147, 0x81, 0x40, 144}},
    };
    for (const Case& c : cases) {
        TPacketPtr source(packet(3, 2, 1, 1000, 4, c.descriptor, c.data));
        TZKEbmlPacketElt element;
        element->importPacket(source.get(), kNoOffset);
        const std::vector<uint8_t> bytes = saveElement(element);
        ASSERT_EQ(bytes.size(), c.head.size() + 40 + c.descriptor.size() + c.data.size());
        EXPECT_EQ(std::vector<uint8_t>(bytes.begin(), bytes.begin() + c.head.size()), c.head);
        const size_t body = c.head.size();
        EXPECT_EQ(bytes[body + 32], c.descriptor.size());
        EXPECT_EQ(bytes[body + 36], c.data.size());
        EXPECT_EQ(std::vector<uint8_t>(bytes.begin() + body + 40, bytes.begin() + body + 40 + c.descriptor.size()),
                  c.descriptor);

        auto loaded = loadElement<TZKEbmlPacketElt>(bytes);
        TPacketPtr back(loaded->element->exportPacket(kNoOffset));
        expectSamePacket(source.get(), back.get(), "packet");
        EXPECT_EQ(back->getDescriptor() == nullptr, c.descriptor.empty());
        EXPECT_EQ(back->getData() == nullptr, c.data.empty());
    }
}

TEST(TZKEbmlPacketBundle, ListKeepsOrderAndNestingOfMembers)
{
    TPacketBundlePtr source(
        bundle(0, 0, 1000, 0, {},
               {packet(1, 0, 0, 1000, 0, {}, {'A'}), bundle(0, 0, 1000, 0, {}, {packet(1, 0, 0, 1000, 0, {}, {'C'})}),
                packet(1, 0, 0, 1000, 0, {}, {'D'})}));
    TZKEbmlPacketBundleElt element;
    element->importBundle(source.get(), kNoOffset);
    auto loaded = loadElement<TZKEbmlPacketBundleElt>(saveElement(element));

    std::vector<uint64_t> ids;
    for (const Ebml::IElement* member : loaded->element->members().elts())
        ids.push_back(member->getId());
    EXPECT_EQ(ids, (std::vector<uint64_t>{0x82, 0x84, 0x82}));
    const auto* nested =
        static_cast<const TZKEbmlPacketBundleElt*>(*std::next(loaded->element->members().elts().begin()));
    ASSERT_EQ(nested->payload().members().getCount(), 1u);
    EXPECT_EQ(nested->payload().members().elts().front()->getId(), 0x82u);

    TPacketBundlePtr back(loaded->element->exportBundle(kNoOffset));
    expectSamePacket(source.get(), back.get(), "bundle");
    EXPECT_EQ(back->getType(), 28u);
    EXPECT_EQ(back->getData(), nullptr);

    // A copy of the element is deep: it outlives the original.
    std::unique_ptr<Ebml::IElement> copy(TZKEbmlPacketBundleElt::createCopy(&element));
    const std::vector<uint8_t> original = saveElement(element);
    element->importBundle(nullptr, kNoOffset);
    EXPECT_EQ(saveElement(*copy), original);
}

TEST(FrameElements, TimeOffsetIsAddedBothWays)
{
    const CATime offset(10, 1000);
    uint8_t pixels[12] = {};
    TPacketBundlePtr packets(bundle(0, 5, 1000, 0, {}, {packet(1, 0, 2, 90000, 0, {}, {1})}));
    ZKEncImage_t record;
    std::memset(&record, 0, sizeof record);
    record.image.colorFormat = eColorFormatYUV420Planar;
    record.image.width = 4;
    record.image.height = 2;
    record.image.rowBytes[0] = 4;
    record.image.rowBytes[1] = record.image.rowBytes[2] = 2;
    record.image.planes[0] = pixels;
    record.image.dataSize = sizeof pixels;
    record.image.time = 5;
    record.image.timeScale = 1000;
    record.image.dataPackets = packets.get();

    TZKEncImageElt element;
    element->importFrame(&record, offset);
    std::vector<uint8_t> info;
    element->videoInfo()->get(info);
    ASSERT_EQ(info.size(), 144u);
    EXPECT_EQ(info[88], 15) << "5 + 10 at the record's own time scale";

    auto loaded = loadElement<TZKEncImageElt>(saveElement(element));
    TZKImageFramePtr frame = loaded->element->exportFrame(offset);
    ASSERT_TRUE(frame);
    const ZKEncImage_t back = frame->GetZKEncImage();
    EXPECT_EQ(back.image.time, 25u);
    ASSERT_NE(back.image.dataPackets, nullptr);
    EXPECT_EQ(back.image.dataPackets->getTime(), 25u);
    // 10 ms at 90 kHz is 900 units, added once on the way in and once on the way out.
    EXPECT_EQ(back.image.dataPackets->get(0)->getTime(), 2u + 900 + 900);

    TZKImageFramePtr unshifted = loaded->element->exportFrame(kNoOffset);
    ASSERT_TRUE(unshifted);
    EXPECT_EQ(unshifted->GetZKEncImage().image.time, 15u);
}

TEST(TZKEncAudio, RoundTripsSamplesFieldsAndBundles)
{
    std::vector<uint8_t> samples(1024 * 2 * 2);
    for (size_t i = 0; i < samples.size(); ++i)
        samples[i] = static_cast<uint8_t>(i * 7);
    TPacketBundlePtr descriptors(bundle(1, 0, 48000, 0, {'a', 's', 'c'}, {}));
    TPacketBundlePtr dataPackets(bundle(1, 96000, 48000, 1024, {}, {packet(9, 1, 96000, 48000, 1024, {}, {1, 2})}));
    ZKEncAudio_t record;
    std::memset(&record, 0, sizeof record);
    record.audio.time = 96000;
    record.audio.timeScale = 48000;
    record.audio.duration = 1024;
    record.audio.format = eAudioFormat16Bit;
    record.audio.channels = 2;
    record.audio.sampleSize = 16;
    record.audio.sampleRate = 48000;
    record.audio.numberSamples = 1024;
    record.audio.dataSize = static_cast<uint32_t>(samples.size());
    record.audio.trackIndex = 1;
    record.audio.data = samples.data();
    record.descriptors = descriptors.get();
    record.dataPackets = dataPackets.get();

    TZKEncAudioElt element;
    element->importFrame(&record, kNoOffset);
    EXPECT_EQ(element->sampleBuffer()->calcSize(), samples.size());
    auto loaded = loadElement<TZKEncAudioElt>(saveElement(element));
    TZKAudioFramePtr frame = loaded->element->exportFrame(kNoOffset);
    ASSERT_TRUE(frame);
    const ZKEncAudio_t back = frame->GetZKEncAudio();
    EXPECT_EQ(back.audio.time, 96000u);
    EXPECT_EQ(back.audio.timeScale, 48000u);
    EXPECT_EQ(back.audio.duration, 1024u);
    EXPECT_EQ(back.audio.format, 2u);
    EXPECT_EQ(back.audio.channels, 2u);
    EXPECT_EQ(back.audio.sampleSize, 16u);
    EXPECT_EQ(back.audio.sampleRate, 48000u);
    EXPECT_EQ(back.audio.numberSamples, 1024u);
    EXPECT_EQ(back.audio.trackIndex, 1u);
    ASSERT_NE(back.audio.data, nullptr);
    EXPECT_EQ(0, std::memcmp(back.audio.data, samples.data(), samples.size()));
    expectSamePacket(descriptors.get(), back.descriptors, "descriptors");
    expectSamePacket(dataPackets.get(), back.dataPackets, "data packets");
}

TEST(TZKEncAudio, ReadsTheShortInformationFormAndRefusesOthers)
{
    for (uint8_t infoSize : {48, 50}) {
        std::vector<uint8_t> element = {0x92, uint8_t(0x80 | (2 + infoSize + 2 + 4)), 0x86, uint8_t(0x80 | infoSize)};
        std::vector<uint8_t> info(infoSize, 0);
        info[0] = 100;   // time
        info[8] = 0x80;  // time scale 0xBB80 = 48000
        info[9] = 0xBB;
        info[24] = 2;   // format
        info[28] = 1;   // channels
        info[30] = 16;  // sample size
        info[36] = 2;   // number of samples
        info[40] = 5;   // track index
        element.insert(element.end(), info.begin(), info.end());
        element.insert(element.end(), {0x88, 0x84, 1, 2, 3, 4});
        auto loaded = loadElement<TZKEncAudioElt>(element);
        TZKAudioFramePtr frame = loaded->element->exportFrame(kNoOffset);
        if (infoSize == 50) {
            EXPECT_FALSE(frame);
            continue;
        }
        ASSERT_TRUE(frame);
        EXPECT_EQ(frame->GetTime(), CATime(100, 48000));
        EXPECT_EQ(frame->GetNumberChannels(), 1u);
        EXPECT_EQ(frame->GetNumberSamples(), 2u);
        EXPECT_EQ(frame->GetTrackIndex(), 5u);
        ASSERT_NE(frame->GetBuffer(), nullptr);
        EXPECT_EQ(frame->GetBuffer()->GetData()[3], 4);
    }
}

}  // namespace
