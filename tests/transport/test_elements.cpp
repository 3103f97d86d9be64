// Packets and bundles in memory (ownership, deep copies), the fixed binary headers (frame
// information blocks in both forms, packet headers), frame and packet elements saved and loaded
// through EBML, and segment files written and read.
#include "Packets.h"
#include "common/Golden.h"
#include "common/Scratch.h"
#include "media/MediaTestSupport.h"

#include "ebml/ebmlMemoryStorage.h"
#include "transport/TZKEbmlPacket.h"
#include "transport/TZKEbmlPacketBundle.h"
#include "transport/TZKEncAudio.h"
#include "transport/TZKEncImage.h"
#include "transport/TZKFrameInfo.h"
#include "transport/TZKIntermediateSegment.h"
#include "transport/TZKPacketHeaders.h"
#include "transport/TZKSegmentWriter.h"

#include <cstring>
#include <memory>

using namespace evctest;

namespace {

const CATime kNoOffset(0, 0);

Bytes Save(const Ebml::IElement& element)
{
    Bytes bytes(element.calcSize());
    Ebml::MemoryStorage storage(bytes.data(), bytes.size());
    const Ebml::TReceiptPtr receipt = element.save(storage);
    EXPECT_TRUE(receipt && receipt->numBytes() == bytes.size());
    return bytes;
}

// An element loaded from its own copy of the bytes: loaded binaries refer into the storage, so
// the three live and die together.
template <class TElement>
struct Loaded {
    explicit Loaded(const Bytes& source) : bytes(source), storage(bytes.data(), bytes.size())
    {
        EXPECT_EQ(element.load(storage, bytes.size()), bytes.size());
    }
    Bytes bytes;
    Ebml::ConstMemoryStorage storage;
    TElement element;
};

ZKEncAudio_t AudioRecord(Bytes& samples, uint64_t time, IPacketBundle* descriptors, IPacketBundle* packets)
{
    ZKEncAudio_t record{};
    record.audio = {};
    record.audio.time = time;
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
    record.descriptors = descriptors;
    record.dataPackets = packets;
    return record;
}

ZKEncImage_t ImageRecord(Bytes& pixels, uint64_t time, uint64_t scale)
{
    ZKEncImage_t record{};
    record.image.colorFormat = eColorFormatYUV420Planar;
    record.image.width = 4;
    record.image.height = 2;
    record.image.rowBytes[0] = 4;
    record.image.rowBytes[1] = record.image.rowBytes[2] = 2;
    record.image.planes[0] = pixels.data();
    record.image.dataSize = static_cast<uint32_t>(pixels.size());
    record.image.time = time;
    record.image.timeScale = scale;
    return record;
}

TEST(Elements, BundleListKeepsOrderAndNestingAndCopiesDeeply)
{
    TPacketBundlePtr source(MakeBundle(0, 0, 1000, 0, {9},
                                       {MakePacket(1, 0, 0, 1000, 0, {}, {'A'}),
                                        MakeBundle(0, 0, 1000, 0, {}, {MakePacket(1, 0, 0, 1000, 0, {}, {'C'})}),
                                        MakePacket(1, 0, 0, 1000, 0, {}, {'D'})}));
    TZKEbmlPacketBundleElt element;
    element->importBundle(source.get(), kNoOffset);
    Loaded<TZKEbmlPacketBundleElt> loaded(Save(element));
    std::vector<uint64_t> ids;
    for (const Ebml::IElement* member : loaded.element->members().elts())
        ids.push_back(member->getId());
    EXPECT_EQ(ids, (std::vector<uint64_t>{0x82, 0x84, 0x82}));
    TPacketBundlePtr back(loaded.element->exportBundle(kNoOffset));
    ExpectSamePacket(source.get(), back.get());

    std::unique_ptr<Ebml::IElement> copy(TZKEbmlPacketBundleElt::createCopy(&element));
    const Bytes original = Save(element);
    element->importBundle(nullptr, kNoOffset);
    EXPECT_EQ(Save(*copy), original);
}

TEST(Elements, AudioRoundTripsAndReadsTheShortInformationForm)
{
    Bytes samples = Pattern(1024 * 4);
    TPacketBundlePtr descriptors(MakeBundle(1, 0, 48000, 0, {'a', 's', 'c'}, {}));
    TPacketBundlePtr packets(MakeBundle(1, 96000, 48000, 1024, {}, {MakePacket(9, 1, 96000, 48000, 1024, {}, {1, 2})}));
    const ZKEncAudio_t record = AudioRecord(samples, 96000, descriptors.get(), packets.get());
    TZKEncAudioElt element;
    element->importFrame(&record, kNoOffset);
    Loaded<TZKEncAudioElt> loaded(Save(element));
    TZKAudioFramePtr frame = loaded.element->exportFrame(kNoOffset);
    ASSERT_TRUE(frame);
    const ZKEncAudio_t back = frame->GetZKEncAudio();
    EXPECT_EQ(std::memcmp(&back.audio, &record.audio, offsetof(ZKAudio_t, data)), 0) << "every field";
    EXPECT_EQ(BytesOf(back.audio.data, back.audio.dataSize), samples);
    ExpectSamePacket(descriptors.get(), back.descriptors, "descriptors");
    ExpectSamePacket(packets.get(), back.dataPackets, "data packets");

    // Two 16-bit mono samples: the buffer holds the 4 bytes they take, whatever bytes follow.
    const struct {
        uint8_t infoSize, sampleBytes;
        bool ok;
    } rows[] = {{48, 4, true}, {50, 4, false}, {48, 2, true}, {48, 6, false}};
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << int(row.infoSize) << " " << int(row.sampleBytes));
        const uint8_t infoSize = row.infoSize;
        Bytes bytes = {0x92, uint8_t(0x80 | (2 + infoSize + 2 + row.sampleBytes)), 0x86, uint8_t(0x80 | infoSize)};
        Bytes info(infoSize, 0);
        info[0] = 100;   // time
        info[8] = 0x80;  // time scale 48000
        info[9] = 0xBB;
        info[24] = eAudioFormat16Bit;
        info[28] = 1;   // channels
        info[30] = 16;  // sample size
        info[36] = 2;   // number of samples
        info[40] = 5;   // track index
        bytes.insert(bytes.end(), info.begin(), info.end());
        bytes.insert(bytes.end(), {0x88, uint8_t(0x80 | row.sampleBytes)});
        for (uint8_t k = 1; k <= row.sampleBytes; ++k)
            bytes.push_back(k);
        Loaded<TZKEncAudioElt> shortForm(bytes);
        TZKAudioFramePtr sound = shortForm.element->exportFrame(kNoOffset);
        ASSERT_EQ(bool(sound), row.ok);
        if (!sound)
            continue;
        EXPECT_EQ(sound->GetTime(), CATime(100, 48000));
        EXPECT_EQ(sound->GetNumberSamples(), 2u);
        EXPECT_EQ(sound->GetTrackIndex(), 5u);
        const ZKAudio_t audio = sound->GetZKAudio();
        EXPECT_EQ(BytesOf(audio.data, audio.dataSize),
                  row.sampleBytes == 4 ? Bytes({1, 2, 3, 4}) : Bytes({1, 2, 0, 0}));
    }
}

class SegmentFile : public ScratchTest {};

TEST_F(SegmentFile, WrittenFramesReadBackWithProgressRewindAndEnd)
{
    const std::string file = Path("segment.seg");
    Bytes pixels(12), samples = Pattern(4096);
    TPacketBundlePtr packets(MakeBundle(0, 50, 25, 1, {}, {MakePacket(1, 0, 50, 25, 1, {}, {0xE1})}));
    {
        TZKSegmentWriter writer;
        EXPECT_FALSE(writer.open(file, CATime(50, 0))) << "no time scale";
        ASSERT_TRUE(writer.open(file, CATime(50, 25)));
        for (uint64_t n = 0; n < 3; ++n) {
            pixels[0] = static_cast<uint8_t>(n);
            ZKEncImage_t image = ImageRecord(pixels, 50 + n, 25);
            image.image.dataPackets = n == 1 ? packets.get() : nullptr;
            ASSERT_TRUE(writer.writeImage(&image, CATime(1, 25)));
            ZKEncAudio_t audio = AudioRecord(samples, 96000 + 1024 * n, nullptr, nullptr);
            ASSERT_TRUE(writer.writeAudio(&audio));
        }
        EXPECT_EQ(writer.getDuration(), CATime(3, 25));
        ASSERT_TRUE(writer.close());
    }
    const Bytes bytes = ReadBytes(file);
    Bytes head;
    for (uint64_t v : {50, 3, 25})
        PutLe(head, v, 8);
    ASSERT_GT(bytes.size(), 25u);
    EXPECT_EQ(Bytes(bytes.begin(), bytes.begin() + 24), head);
    EXPECT_EQ(bytes[24], 0x91) << "the first element follows the header";

    TZKIntermediateSegment segment;
    EXPECT_TRUE(segment.isEOF()) << "nothing open";
    ASSERT_TRUE(segment.open(file));
    EXPECT_EQ(segment.getStart(), CATime(50, 25));
    EXPECT_EQ(segment.getDuration(), CATime(3, 25));
    EXPECT_EQ(segment.getPayloadSize(), bytes.size() - 24);
    double progress = 0.0;
    for (int n = 0; n < 6; ++n) {
        SCOPED_TRACE(n);
        EXPECT_FALSE(segment.isEOF());
        std::unique_ptr<Ebml::IElement> element(segment.readNext());
        ASSERT_NE(element, nullptr);
        EXPECT_GT(segment.getProgress(), progress);
        progress = segment.getProgress();
        if (n % 2 == 0) {
            ASSERT_EQ(element->getId(), TZKEncImageElt::kId);
            const ZKEncImage_t record = static_cast<TZKEncImageElt&>(*element)->exportFrame(kNoOffset)->GetZKEncImage();
            EXPECT_EQ(record.image.time, 50u + n / 2);
            EXPECT_EQ(record.image.planes[0][0], n / 2);
            EXPECT_EQ(record.image.dataPackets != nullptr, n == 2);
        } else {
            ASSERT_EQ(element->getId(), TZKEncAudioElt::kId);
            TZKAudioFramePtr frame = static_cast<TZKEncAudioElt&>(*element)->exportFrame(kNoOffset);
            EXPECT_EQ(frame->GetTime(), CATime(96000 + 1024 * (n / 2), 48000));
        }
    }
    EXPECT_TRUE(segment.isEOF());
    EXPECT_DOUBLE_EQ(segment.getProgress(), 1.0);
    EXPECT_EQ(segment.readNext(), nullptr);
    segment.rewind();
    EXPECT_FALSE(segment.isEOF());
    EXPECT_DOUBLE_EQ(segment.getProgress(), 0.0);
    std::unique_ptr<Ebml::IElement> first(segment.readNext());
    EXPECT_EQ(first->getId(), TZKEncImageElt::kId);
    segment.close();
    EXPECT_TRUE(segment.isEOF());
    std::remove(file.c_str());
}

TEST_F(SegmentFile, EmptyShortMissingAndDamagedFiles)
{
    TZKIntermediateSegment segment;
    EXPECT_FALSE(segment.open(Path("missing.seg")));
    {
        TZKSegmentWriter writer;
        ASSERT_TRUE(writer.open(Path("empty.seg"), CATime(0, 1000)));
    }  // the destructor completes the header
    ASSERT_TRUE(segment.open(Path("empty.seg")));
    EXPECT_EQ(segment.readNext(), nullptr);
    EXPECT_TRUE(segment.isEOF());

    Bytes header(24, 0);
    header[16] = 1;
    const struct {
        const char* name;
        Bytes bytes;
        bool opens;
    } cases[] = {
        {"short.seg", Bytes(23, 0), false},
        {"not a frame element", Cat({header, {0x1A, 0x45, 0xDF, 0xA3, 0x80}}), true},
        {"element longer than the file", Cat({header, {0x91, 0x40, 0xFF, 0x85, 0x40, 0x90, 0, 0, 0}}), true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        WriteBytes(Path("case.seg"), c.bytes);
        ASSERT_EQ(segment.open(Path("case.seg")), c.opens);
        if (!c.opens)
            continue;
        EXPECT_EQ(segment.readNext(), nullptr);
        EXPECT_FALSE(segment.isEOF()) << "the reader does not move over what it cannot read";
    }
    segment.close();
    std::remove(Path("empty.seg").c_str());
    std::remove(Path("case.seg").c_str());
}

// Counted bundles (a clone's tag is the original's + 1000) show what destroy released.
TEST(PacketBundle, OwnershipAcrossRemoveReplaceCloneClearAndDestroy)
{
    const int live = TestPacketBundle::Live();
    const auto make = [] {
        return TPacketBundlePtr(
            MakeBundle(2, 11, 48000, 1024, {1, 2, 3},
                       {new TestPacketBundle(1), MakeBundle(0, 0, 1000, 0, {}, {new TestPacketBundle(2)}),
                        MakePacket(4, 0, 0, 1000, 0, {}, {'D'})}));
    };
    TPacketBundlePtr bundle = make();

    // Out of range and null replacements change nothing.
    TPacketPtr spare(MakePacket(9, 0, 0, 1000, 0, {}, {'x'}));
    EXPECT_EQ(bundle->get(3), nullptr);
    EXPECT_EQ(bundle->remove(3), nullptr);
    EXPECT_EQ(bundle->replace(3, spare.get()), nullptr);
    EXPECT_EQ(bundle->replace(0, nullptr), nullptr);
    ASSERT_EQ(bundle->size(), 3u);

    // A clone is deep: it outlives the original and owns copies of every member.
    TPacketBundlePtr copy(static_cast<IPacketBundle*>(bundle->clone()));
    EXPECT_EQ(TestPacketBundle::Live() - live, 4);
    bundle.reset();
    EXPECT_EQ(TestPacketBundle::Live() - live, 2);
    ExpectSamePacket(make().get(), copy.get(), "clone");

    // Remove and replace hand ownership back to the caller.
    TPacketPtr removed(copy->remove(0));
    ASSERT_NE(removed, nullptr);
    EXPECT_EQ(static_cast<TestPacketBundle*>(removed.get())->tag(), 1001u);
    TPacketPtr old(copy->replace(1, removed.release()));
    EXPECT_EQ(old->getDataSize(), 1u);
    EXPECT_EQ(static_cast<const TestPacketBundle*>(copy->get(1))->tag(), 1001u);
    copy->clear();
    EXPECT_EQ(copy->size(), 0u);
    EXPECT_EQ(TestPacketBundle::Live(), live);
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

    // A packet child: its header, then the descriptor and data it announces (the frame channel's
    // lying sizes reach the rest).
    TZKPacketHeader packet;
    packet.descriptorSize = 4;
    uint8_t child[44] = {};
    packet.encode(child);
    TZKPacketView view;
    EXPECT_TRUE(view.parse(child, 44) && view.descriptor == child + 40 && view.data == nullptr);
    EXPECT_FALSE(view.parse(child, 43) || view.parse(nullptr, 44));
}

}  // namespace
