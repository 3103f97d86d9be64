#include "TransportTestUtil.h"

#include "transport/ExternalVideoProxy.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

using namespace transport_test;

namespace {

const std::string kDataDir = EVC_TRANSPORT_TEST_DATA;

// Positions inside enc_image_golden.hex, from the byte groups of that file:
// EncImage head 3, TZKVideoInfo 3 + 144, ImageData 2 + 12, then Descriptors.
constexpr size_t kDescriptorsAt = 3 + 147 + 14;                             // 0x89
constexpr size_t kDescPacketChildSizeAt = kDescriptorsAt + 2 + 42 + 2 + 1;  // size of its 0x81
constexpr size_t kDataPacketsAt = kDescriptorsAt + 2 + 90;                  // 0x90
constexpr size_t kDataBundleHeaderAt = kDataPacketsAt + 4;                  // after 90 DB 83 A8
constexpr size_t kDataPacketHeaderAt = kDataBundleHeaderAt + 40 + 4;        // after 82 AF 81 AD

// The frame that enc_image_golden.hex describes, with the bundles it owns.
struct GoldenFrame {
    uint8_t pixels[12] = {0x10, 0x11, 0x12, 0x13, 0x14, 0x15, 0x16, 0x17, 0x20, 0x21, 0x30, 0x31};
    TPacketBundlePtr descriptors{bundle(0, 0, 1000, 0, {}, {packet(1, 0, 0, 1000, 0, {}, {'S', 'P', 'S', '!'})})};
    TPacketBundlePtr dataPackets{
        bundle(0, 5, 1000, 0, {}, {packet(2, 1, 5, 1000, 33, {0xD1, 0xD2}, {0xAA, 0xBB, 0xCC})})};
    ZKEncImage_t record;

    GoldenFrame()
    {
        std::memset(&record, 0, sizeof record);
        ZKImage_t& image = record.image;
        image.colorFormat = eColorFormatYUV420Planar;
        image.colorRange = eColorRangeDefault;
        image.width = 4;
        image.height = 2;
        image.rowBytes[0] = 4;
        image.rowBytes[1] = 2;
        image.rowBytes[2] = 2;
        image.planes[0] = pixels;
        image.planes[1] = pixels + 8;
        image.planes[2] = pixels + 10;
        image.time = 5;
        image.timeScale = 1000;
        image.originalTime = 7;
        image.originalTimeScale = 30;
        image.originalFrameWithinSecond = 2;
        image.dataSize = sizeof pixels;
        image.dataPackets = dataPackets.get();
        record.descriptors = descriptors.get();
        record.streamValue = 0x2233;
        record.streamFlags = 0x11;
    }
};

std::vector<uint8_t> goldenBytes()
{
    return readHexFile(kDataDir + "/enc_image_golden.hex");
}

TZKImageFramePtr readFrame(std::vector<uint8_t>& area, uint32_t size)
{
    ExternalVideoProxy proxy;
    proxy.Begin(area.data(), static_cast<uint32_t>(area.size()));
    return proxy.DeSerializeFrame(size);
}

// Reads every byte a frame exposes, so that the sanitizers see any stray pointer.
void touchEverything(const IPacket* p, int depth = 0)
{
    if (p == nullptr)
        return;
    ASSERT_LT(depth, 100);
    volatile uint8_t sink = 0;
    for (uint64_t i = 0; i < p->getDescriptorSize(); ++i)
        sink = sink ^ p->getDescriptor()[i];
    for (uint64_t i = 0; i < p->getDataSize(); ++i)
        sink = sink ^ p->getData()[i];
    if (p->getType() == IPacketBundle::kBundleType) {
        auto* b = static_cast<const IPacketBundle*>(p);
        for (uint32_t i = 0; i < b->size(); ++i)
            touchEverything(b->get(i), depth + 1);
    }
}

void expectEmptyOrWellFormed(TZKImageFramePtr& frame)
{
    if (!frame)
        return;
    IPacketBundle* descriptors = nullptr;
    IPacketBundle* dataPackets = nullptr;
    frame->ExchangeDescriptorsWith(descriptors);
    frame->ExchangeDataPacketsWith(dataPackets);
    touchEverything(descriptors);
    touchEverything(dataPackets);
    frame->ExchangeDescriptorsWith(descriptors);
    frame->ExchangeDataPacketsWith(dataPackets);
    if (const CABuffer* buffer = frame->GetBuffer()) {
        volatile uint8_t sink = 0;
        for (unsigned i = 0; i < buffer->GetSize(); ++i)
            sink = sink ^ buffer->GetData()[i];
    }
}

TEST(ExternalVideoProxy, WritesTheHandWrittenEncImageBytes)
{
    const std::vector<uint8_t> expected = goldenBytes();
    ASSERT_EQ(expected.size(), 349u);
    GoldenFrame golden;
    std::vector<uint8_t> area(1024, 0xEE);
    ExternalVideoProxy proxy;
    proxy.Begin(area.data(), static_cast<uint32_t>(area.size()));
    uint32_t written = 0;
    EXPECT_EQ(proxy.GetMemory(written), area.data());
    EXPECT_EQ(written, 0u);

    uint32_t size = 0;
    ASSERT_EQ(proxy.SerializeFrame(&golden.record, size, false), 0u);
    EXPECT_EQ(size, expected.size());
    proxy.GetMemory(written);
    EXPECT_EQ(written, size);
    EXPECT_EQ(std::vector<uint8_t>(area.begin(), area.begin() + size), expected);
    EXPECT_EQ(area[size], 0xEE) << "bytes after the element are left as they were";
    // release bundles was not asked for: the caller's bundles are intact.
    EXPECT_EQ(golden.descriptors->size(), 1u);
}

TEST(ExternalVideoProxy, ReadsTheHandWrittenEncImageBytes)
{
    std::vector<uint8_t> area = goldenBytes();
    GoldenFrame golden;
    TZKImageFramePtr frame = readFrame(area, static_cast<uint32_t>(area.size()));
    ASSERT_TRUE(frame);
    const ZKEncImage_t record = frame->GetZKEncImage();
    const ZKImage_t& image = record.image;
    EXPECT_EQ(image.colorFormat, 6u);
    EXPECT_EQ(image.width, 4u);
    EXPECT_EQ(image.height, 2u);
    EXPECT_EQ(image.rowBytes[0], 4u);
    EXPECT_EQ(image.rowBytes[1], 2u);
    ASSERT_NE(image.planes[0], nullptr);
    EXPECT_EQ(0, std::memcmp(image.planes[0], golden.pixels, sizeof golden.pixels));
    EXPECT_EQ(image.planes[1] - image.planes[0], 8);
    EXPECT_EQ(image.planes[2] - image.planes[0], 10);
    EXPECT_EQ(image.time, 5u);
    EXPECT_EQ(image.timeScale, 1000u);
    EXPECT_EQ(frame->GetOriginalTime().GetTime(), 7u);
    EXPECT_EQ(frame->GetOriginalFrameWithinSecond(), 2u);
    EXPECT_EQ(record.streamValue, 0x2233u);
    EXPECT_EQ(record.streamFlags, 0x11u);
    expectSamePacket(golden.descriptors.get(), record.descriptors, "descriptors");
    expectSamePacket(golden.dataPackets.get(), image.dataPackets, "data packets");
}

TEST(ExternalVideoProxy, RoundTripsA420FrameWithNestedBundles)
{
    const uint32_t width = 64, height = 48;
    const uint32_t lumaSize = width * height, chromaSize = (width / 2) * (height / 2);
    std::vector<uint8_t> pixels(lumaSize + 2 * chromaSize);
    std::mt19937 random(7);
    for (uint8_t& p : pixels)
        p = static_cast<uint8_t>(random());

    TPacketBundlePtr descriptors(bundle(
        3, 0, 90000, 0, {'h', 'd', 'r'},
        {packet(5, 3, 0, 90000, 0, {}, {0, 0, 0, 1, 0x67}), packet(5, 3, 0, 90000, 0, {9}, {0, 0, 0, 1, 0x68})}));
    // A, nested B holding C, then D.
    TPacketBundlePtr dataPackets(
        bundle(1, 3003, 30000, 1001, {},
               {packet(1, 1, 3003, 30000, 1001, {0xA}, std::vector<uint8_t>(300, 0xA1)),
                bundle(2, 3003, 30000, 0, {0xB, 0xB}, {packet(7, 2, 3004, 30000, 1, {}, {0xC})}),
                packet(4, 1, 4004, 30000, 1001, {}, std::vector<uint8_t>(5000, 0xD4))}));

    ZKEncImage_t record;
    std::memset(&record, 0, sizeof record);
    ZKImage_t& image = record.image;
    image.colorFormat = eColorFormatYUV420Planar;
    image.width = width;
    image.height = height;
    image.bottomUp = 1;
    image.rowBytes[0] = width;
    image.rowBytes[1] = image.rowBytes[2] = width / 2;
    image.planes[0] = pixels.data();
    image.planes[1] = pixels.data() + lumaSize;
    image.planes[2] = pixels.data() + lumaSize + chromaSize;
    image.time = 3003;
    image.timeScale = 30000;
    image.originalTime = 12;
    image.originalTimeScale = 25;
    image.originalFrameWithinSecond = 12;
    image.dataSize = static_cast<uint32_t>(pixels.size());
    image.dataPackets = dataPackets.get();
    record.descriptors = descriptors.get();
    record.streamValue = 0xFEDCBA9876543210ull;
    record.streamFlags = 0x80000001u;

    std::vector<uint8_t> area(64 * 1024);
    ExternalVideoProxy proxy;
    proxy.Begin(area.data(), static_cast<uint32_t>(area.size()));
    uint32_t size = 0;
    ASSERT_EQ(proxy.SerializeFrame(&record, size, false), 0u);

    std::vector<uint8_t> exact(area.begin(), area.begin() + size);
    TZKImageFramePtr frame = readFrame(exact, size);
    ASSERT_TRUE(frame);
    const ZKEncImage_t back = frame->GetZKEncImage();
    EXPECT_EQ(back.image.colorFormat, image.colorFormat);
    EXPECT_EQ(back.image.width, width);
    EXPECT_EQ(back.image.height, height);
    EXPECT_EQ(back.image.bottomUp, 1u);
    for (int k = 0; k < 3; ++k)
        EXPECT_EQ(back.image.rowBytes[k], image.rowBytes[k]) << k;
    ASSERT_NE(back.image.planes[0], nullptr);
    EXPECT_EQ(back.image.planes[1] - back.image.planes[0], lumaSize);
    EXPECT_EQ(back.image.planes[2] - back.image.planes[0], lumaSize + chromaSize);
    EXPECT_EQ(0, std::memcmp(back.image.planes[0], pixels.data(), pixels.size()));
    EXPECT_EQ(back.image.time, 3003u);
    EXPECT_EQ(back.image.timeScale, 30000u);
    EXPECT_EQ(frame->GetOriginalTime(), CATime(12, 25));
    EXPECT_EQ(back.image.originalFrameWithinSecond, 12u);
    EXPECT_EQ(back.streamValue, record.streamValue);
    EXPECT_EQ(back.streamFlags, record.streamFlags);
    expectSamePacket(descriptors.get(), back.descriptors, "descriptors");
    expectSamePacket(dataPackets.get(), back.image.dataPackets, "data packets");
}

TEST(ExternalVideoProxy, AnAreaTooSmallReportsTheFullSizeAndWritesNothing)
{
    GoldenFrame golden;
    for (uint32_t capacity : {0u, 1u, 10u, 148u, 348u}) {
        std::vector<uint8_t> area(capacity + 1, 0xEE);  // one guard byte
        ExternalVideoProxy proxy;
        proxy.Begin(area.data(), capacity);
        uint32_t size = 0;
        EXPECT_EQ(proxy.SerializeFrame(&golden.record, size, false), kZKErrFrameTooLarge) << capacity;
        EXPECT_EQ(size, 349u) << capacity;
        EXPECT_EQ(area, std::vector<uint8_t>(capacity + 1, 0xEE)) << capacity;
    }
    std::vector<uint8_t> area(349);
    ExternalVideoProxy proxy;
    proxy.Begin(area.data(), 349);
    uint32_t size = 0;
    EXPECT_EQ(proxy.SerializeFrame(&golden.record, size, false), 0u) << "an exact fit";
}

TEST(ExternalVideoProxy, ReleaseBundlesDestroysTheRecordsBundles)
{
    GoldenFrame golden;
    std::vector<uint8_t> area(1024);
    ExternalVideoProxy proxy;
    proxy.Begin(area.data(), static_cast<uint32_t>(area.size()));
    uint32_t size = 0;
    // Released by the proxy: the holders must let go first.
    golden.descriptors.release();
    golden.dataPackets.release();
    EXPECT_EQ(proxy.SerializeFrame(&golden.record, size, true), 0u);
    EXPECT_EQ(std::vector<uint8_t>(area.begin(), area.begin() + size), goldenBytes());
    EXPECT_EQ(proxy.SerializeFrame(static_cast<const ZKEncImage_t*>(nullptr), size, true), 0u);
}

TEST(ExternalVideoProxy, AppendedRawFramesReadBackInOrder)
{
    GoldenFrame first;
    GoldenFrame second;
    second.pixels[0] = 0x99;
    second.record.image.time = 6;
    std::vector<uint8_t> area(2048);
    ExternalVideoProxy proxy;
    proxy.Begin(area.data(), static_cast<uint32_t>(area.size()));
    uint32_t size1 = 0, size2 = 0;
    first.dataPackets.release();  // the raw form always destroys the data packets
    second.dataPackets.release();
    ASSERT_EQ(proxy.SerializeFrame(&first.record.image, size1, true), 0u);
    EXPECT_EQ(first.record.image.dataPackets, nullptr);
    ASSERT_EQ(proxy.SerializeFrame(&second.record.image, size2, true), 0u);
    uint32_t written = 0;
    proxy.GetMemory(written);
    EXPECT_EQ(written, size1 + size2);

    proxy.Begin(area.data(), size1 + size2);
    TZKImageFramePtr a = proxy.DeSerializeFrame(size1);
    TZKImageFramePtr b = proxy.DeSerializeFrame(size2);
    ASSERT_TRUE(a);
    ASSERT_TRUE(b);
    EXPECT_EQ(a->GetZKEncImage().image.time, 5u);
    EXPECT_EQ(b->GetZKEncImage().image.time, 6u);
    EXPECT_EQ(b->GetZKEncImage().image.planes[0][0], 0x99);
    // The raw form carries no descriptors and no stream fields.
    EXPECT_EQ(a->GetZKEncImage().descriptors, nullptr);
    EXPECT_EQ(a->GetZKEncImage().streamValue, 0u);
    EXPECT_FALSE(proxy.DeSerializeFrame(100)) << "nothing left";
}

TEST(ExternalVideoProxy, AFrameWithoutPixelsHasNoImageDataAndNoBuffer)
{
    GoldenFrame golden;
    golden.record.image.dataSize = 0;
    golden.record.image.planes[0] = nullptr;
    golden.record.descriptors = nullptr;
    golden.record.image.dataPackets = nullptr;
    std::vector<uint8_t> area(1024);
    ExternalVideoProxy proxy;
    proxy.Begin(area.data(), static_cast<uint32_t>(area.size()));
    uint32_t size = 0;
    ASSERT_EQ(proxy.SerializeFrame(&golden.record, size, false), 0u);
    // id, a two-byte size (147), then only the 147-byte information child.
    ASSERT_EQ(size, 150u);
    EXPECT_EQ(area[0], 0x91);
    EXPECT_EQ(area[1], 0x40);
    EXPECT_EQ(area[2], 0x93);
    EXPECT_EQ(area[3], 0x85);

    TZKImageFramePtr frame = readFrame(area, size);
    ASSERT_TRUE(frame);
    EXPECT_EQ(frame->GetBuffer(), nullptr);
    EXPECT_EQ(frame->GetWidth(), 4u);
}

TEST(ExternalVideoProxy, ChromaRowsPastThePixelBytesGiveNoFrame)
{
    // The plane offsets lie inside the 12 pixel bytes, but the row bytes the
    // sender claims would carry a chroma plane's rows past them.
    for (int plane : {1, 2}) {
        GoldenFrame golden;
        golden.record.image.rowBytes[plane] = 200;
        std::vector<uint8_t> area(1024);
        ExternalVideoProxy proxy;
        proxy.Begin(area.data(), static_cast<uint32_t>(area.size()));
        uint32_t size = 0;
        ASSERT_EQ(proxy.SerializeFrame(&golden.record, size, false), 0u);
        EXPECT_FALSE(readFrame(area, size)) << "plane " << plane;
    }
}

TEST(ExternalVideoProxy, TheShortInformationFormReadsBack)
{
    // A 96-byte TZKVideoInfo (eleven packed values, 4 reserved, then the times)
    // followed by 12 bytes of pixels.
    std::vector<uint8_t> element = {0x91, 0x80 | (2 + 96 + 2 + 12), 0x85, 0x80 | 96};
    auto put = [&element](uint64_t v, int n) {
        for (int i = 0; i < n; ++i)
            element.push_back(static_cast<uint8_t>(v >> (8 * i)));
    };
    for (uint32_t v : {6u, 4u, 2u, 0u, 4u, 2u, 2u, 0u, 8u, 10u, 12u})
        put(v, 4);
    put(0, 4);
    put(40, 8);
    put(1000, 8);
    put(3, 8);
    put(30, 8);
    put(1, 4);
    put(0x44, 4);
    put(0x55, 8);
    element.push_back(0x87);
    element.push_back(0x80 | 12);
    for (uint8_t i = 0; i < 12; ++i)
        element.push_back(i);

    TZKImageFramePtr frame = readFrame(element, static_cast<uint32_t>(element.size()));
    ASSERT_TRUE(frame);
    const ZKEncImage_t record = frame->GetZKEncImage();
    EXPECT_EQ(record.image.width, 4u);
    EXPECT_EQ(record.image.time, 40u);
    EXPECT_EQ(record.image.originalFrameWithinSecond, 1u);
    EXPECT_EQ(record.streamFlags, 0x44u);
    EXPECT_EQ(record.streamValue, 0x55u);
    EXPECT_EQ(record.image.planes[2] - record.image.planes[0], 10);
    EXPECT_EQ(record.image.planes[2][1], 11);

    // The same element with a 100-byte information child is refused.
    element[1] += 4;
    element[3] += 4;
    element.insert(element.begin() + 4 + 96, {0, 0, 0, 0});
    EXPECT_FALSE(readFrame(element, static_cast<uint32_t>(element.size())));
}

TEST(ExternalVideoProxy, LyingSizesDropOnlyWhatTheyDescribe)
{
    struct Case {
        const char* what;
        size_t at;
        std::vector<uint8_t> bytes;
        bool frame;
        int descriptorMembers;  // -1: no descriptors bundle
        int dataMembers;        // -1: no data packets bundle
    };
    const Case cases[] = {
        {"unchanged", 0, {0x91}, true, 1, 1},
        {"data packet announces one data byte more", kDataPacketHeaderAt + 36, {4}, true, 1, 0},
        {"data packet announces a huge descriptor", kDataPacketHeaderAt + 32, {0xFF, 0xFF, 0xFF, 0xFF}, true, 1, 0},
        {"data bundle header announces a descriptor", kDataBundleHeaderAt + 32, {1}, true, 1, -1},
        {"descriptor packet child shorter than a header", kDescPacketChildSizeAt, {0x80 | 39}, true, 0, 1},
        {"element larger than the area", 1, {0x7F, 0xFE}, false, 0, 0},
        {"information child of 100 bytes", 4, {0x64}, false, 0, 0},
        {"not an EncImage", 0, {0x92}, false, 0, 0},
    };
    for (const Case& c : cases) {
        std::vector<uint8_t> area = goldenBytes();
        std::copy(c.bytes.begin(), c.bytes.end(), area.begin() + c.at);
        TZKImageFramePtr frame = readFrame(area, static_cast<uint32_t>(area.size()));
        ASSERT_EQ(bool(frame), c.frame) << c.what;
        if (!frame)
            continue;
        const ZKEncImage_t record = frame->GetZKEncImage();
        EXPECT_EQ(record.descriptors ? int(record.descriptors->size()) : -1, c.descriptorMembers) << c.what;
        EXPECT_EQ(record.image.dataPackets ? int(record.image.dataPackets->size()) : -1, c.dataMembers) << c.what;
    }
}

TEST(ExternalVideoProxy, MalformedAreasGiveNoFrameOrAWellFormedOne)
{
    {
        std::vector<uint8_t> zeros(4096, 0);
        EXPECT_FALSE(readFrame(zeros, 4096));
        ExternalVideoProxy unset;
        EXPECT_FALSE(unset.DeSerializeFrame(100)) << "no area at all";
    }
    const std::vector<uint8_t> golden = goldenBytes();
    // Truncated at every length, in an area of exactly that length.
    for (size_t length = 0; length < golden.size(); ++length) {
        std::vector<uint8_t> area(golden.begin(), golden.begin() + length);
        TZKImageFramePtr frame = readFrame(area, static_cast<uint32_t>(length));
        expectEmptyOrWellFormed(frame);
        // And a caller that claims more than the area holds.
        frame = readFrame(area, 0xFFFFFFFF);
        expectEmptyOrWellFormed(frame);
    }
    // Every byte replaced by a few telling values.
    for (size_t at = 0; at < golden.size(); ++at) {
        for (int value : {0x00, 0x01, 0x7F, 0x80, 0xFF, golden[at] ^ 0x40}) {
            std::vector<uint8_t> area = golden;
            area[at] = static_cast<uint8_t>(value);
            TZKImageFramePtr frame = readFrame(area, static_cast<uint32_t>(area.size()));
            expectEmptyOrWellFormed(frame);
        }
    }
    // Random bytes, sometimes behind a plausible element head.
    std::mt19937 random(2024);
    for (int round = 0; round < 2000; ++round) {
        std::vector<uint8_t> area(1 + random() % 600);
        for (uint8_t& b : area)
            b = static_cast<uint8_t>(random());
        if (round % 2 == 0) {
            area[0] = 0x91;
            if (area.size() > 4) {
                area[1] = 0x40 | (area[1] & 0x03);
                area[3] = round % 4 == 0 ? 0x85 : area[3];
            }
        }
        TZKImageFramePtr frame = readFrame(area, static_cast<uint32_t>(area.size()));
        expectEmptyOrWellFormed(frame);
    }
}

// Pixels the host wrote straight into the area, where PixelOffset says the
// element puts them, give the very element a copy from elsewhere gives; so
// do pixels lying further on in the area (moved, not copied over themselves).
TEST(ExternalVideoProxy, PixelsAlreadyInTheAreaGiveTheSameElement)
{
    const struct {
        uint32_t width, height;
        size_t shift;  // where the pixels lie beyond their place
    } rows[] = {{2, 2, 0}, {64, 48, 0}, {64, 48, 5}, {1920, 1080, 0}, {1920, 1080, 4096}};
    for (const auto& row : rows) {
        SCOPED_TRACE(std::to_string(row.width) + "x" + std::to_string(row.height) + " shift " +
                     std::to_string(row.shift));
        const uint32_t luma = row.width * row.height, chroma = luma / 4;
        std::vector<uint8_t> pixels(luma + 2 * chroma);
        std::mt19937 random(row.width);
        for (uint8_t& p : pixels)
            p = static_cast<uint8_t>(random());
        ZKEncImage_t record;
        std::memset(&record, 0, sizeof record);
        record.image.colorFormat = eColorFormatYUV420Planar;
        record.image.width = row.width;
        record.image.height = row.height;
        record.image.rowBytes[0] = row.width;
        record.image.rowBytes[1] = row.width / 2;
        record.image.dataSize = static_cast<uint32_t>(pixels.size());
        record.image.time = 7;
        record.image.timeScale = 25;
        const size_t at = ExternalVideoProxy::PixelOffset(record);

        const auto serialize = [&](std::vector<uint8_t>& area, uint8_t* base) {
            for (int k = 0; k < 3; ++k)
                record.image.planes[k] = base + (k == 0 ? 0 : luma + (k - 1) * chroma);
            ExternalVideoProxy proxy;
            proxy.Begin(area.data(), static_cast<uint32_t>(area.size()));
            uint32_t size = 0;
            EXPECT_EQ(proxy.SerializeFrame(&record, size, false), 0u);
            area.resize(size);
        };
        std::vector<uint8_t> copied(pixels.size() + 8192);
        serialize(copied, pixels.data());
        ASSERT_GE(copied.size(), at + pixels.size());
        EXPECT_EQ(std::memcmp(copied.data() + at, pixels.data(), pixels.size()), 0) << "pixels at PixelOffset";

        std::vector<uint8_t> inPlace(pixels.size() + 8192);
        std::memcpy(inPlace.data() + at + row.shift, pixels.data(), pixels.size());
        serialize(inPlace, inPlace.data() + at + row.shift);
        EXPECT_TRUE(inPlace == copied);
    }
}

}  // namespace
