// Frames written into and read from a payload area, as client and service exchange them: the
// hand-written golden EncImage bytes, areas too small, and bytes from a careless or hostile side;
// the direct path over the area against the general element, byte for byte and frame for frame.
#include "Packets.h"
#include "common/Golden.h"

#include "ebml/ebmlMemoryStorage.h"
#include "transport/ExternalVideoProxy.h"
#include "transport/TZKEncImageWire.h"

#include <cstring>

using namespace evctest;

namespace {

// Positions inside enc_image_golden.hex: EncImage head 3, information 3 + 144, ImageData 2 + 12,
// then Descriptors (0x89) and DataPackets (0x90).
constexpr size_t kDescriptorsAt = 3 + 147 + 14;
constexpr size_t kDescPacketChildSizeAt = kDescriptorsAt + 2 + 42 + 2 + 1;
constexpr size_t kDataPacketsAt = kDescriptorsAt + 2 + 90;
constexpr size_t kDataBundleHeaderAt = kDataPacketsAt + 4;
constexpr size_t kDataPacketHeaderAt = kDataBundleHeaderAt + 40 + 4;

Bytes GoldenBytes()
{
    return ReadHexFile(EVC_TRANSPORT_TEST_DATA "/enc_image_golden.hex");
}

// The frame that enc_image_golden.hex describes, with the bundles it owns.
struct GoldenFrame {
    uint8_t pixels[12] = {0x10, 0x11, 0x12, 0x13, 0x14, 0x15, 0x16, 0x17, 0x20, 0x21, 0x30, 0x31};
    TPacketBundlePtr descriptors{
        MakeBundle(0, 0, 1000, 0, {}, {MakePacket(1, 0, 0, 1000, 0, {}, {'S', 'P', 'S', '!'})})};
    TPacketBundlePtr dataPackets{
        MakeBundle(0, 5, 1000, 0, {}, {MakePacket(2, 1, 5, 1000, 33, {0xD1, 0xD2}, {0xAA, 0xBB, 0xCC})})};
    ZKEncImage_t record{};

    GoldenFrame()
    {
        ZKImage_t& image = record.image;
        image.colorFormat = eColorFormatYUV420Planar;
        image.width = 4;
        image.height = 2;
        image.rowBytes[0] = 4;
        image.rowBytes[1] = image.rowBytes[2] = 2;
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

// Writes record into an area of capacity bytes (plus a guard byte); status, size and the area.
struct Written {
    uint32_t status = 0, size = 0;
    Bytes area;
};
Written Write(const ZKEncImage_t& record, uint32_t capacity = 1024)
{
    Written w;
    w.area.assign(capacity + 1, 0xEE);
    ExternalVideoProxy proxy;
    proxy.Begin(w.area.data(), capacity);
    w.status = proxy.SerializeFrame(&record, w.size, false);
    return w;
}

TZKImageFramePtr Read(Bytes& area, uint32_t size)
{
    ExternalVideoProxy proxy;
    proxy.Begin(area.data(), static_cast<uint32_t>(area.size()));
    return proxy.DeSerializeFrame(size);
}

// Read with the pixels left in the area; record receives the description.
TZKImageFramePtr ReadInPlace(Bytes& area, uint32_t size, ZKEncImage_t& record)
{
    ExternalVideoProxy proxy;
    proxy.Begin(area.data(), static_cast<uint32_t>(area.size()));
    return proxy.DeSerializeFrameInPlace(size, record);
}

// The general element's bytes for record, and its reading of bytes (in place when record is given).
Bytes GeneralWrite(const ZKEncImage_t& record)
{
    TZKEncImageElt element;
    element->importFrame(&record, CATime(0, 0));
    Bytes bytes(element.calcSize());
    Ebml::MemoryStorage storage(bytes.data(), bytes.size());
    EXPECT_TRUE(element.save(storage));
    return bytes;
}
TZKImageFramePtr GeneralRead(const Bytes& area, ZKEncImage_t* inPlace = nullptr)
{
    Ebml::ConstMemoryStorage storage(area.data(), area.size());
    TZKEncImageElt element;
    if (element.load(storage, area.size()) == 0)
        return TZKImageFramePtr();
    return inPlace ? element->exportFrameInPlace(CATime(0, 0), *inPlace) : element->exportFrame(CATime(0, 0));
}

TEST(FrameChannel, WritesAndReadsTheGoldenEncImageBytes)
{
    Bytes golden = GoldenBytes();
    ASSERT_EQ(golden.size(), 349u);
    GoldenFrame frame;
    const Written w = Write(frame.record);
    ASSERT_EQ(w.status, 0u);
    EXPECT_EQ(Bytes(w.area.begin(), w.area.begin() + w.size), golden);
    EXPECT_EQ(w.area[w.size], 0xEE) << "bytes after the element are left as they were";
    EXPECT_EQ(frame.descriptors->size(), 1u) << "the caller's bundles are intact";
    // An area too small: the full size, and nothing written.
    for (uint32_t capacity : {0u, 148u, 348u}) {
        const Written small = Write(frame.record, capacity);
        EXPECT_EQ(small.status, kZKErrFrameTooLarge);
        EXPECT_EQ(small.size, 349u);
        EXPECT_EQ(small.area, Bytes(capacity + 1, 0xEE)) << capacity;
    }
    EXPECT_EQ(Write(frame.record, 349).status, 0u) << "an exact fit";

    TZKImageFramePtr back = Read(golden, 349);
    ASSERT_TRUE(back);
    const ZKEncImage_t record = back->GetZKEncImage();
    ZKImage_t expected = frame.record.image;
    for (int p = 0; p < 3; ++p)
        expected.planes[p] = record.image.planes[0] + (frame.record.image.planes[p] - frame.pixels);
    expected.dataPackets = record.image.dataPackets;
    EXPECT_EQ(std::memcmp(&record.image, &expected, sizeof expected), 0) << "every field and plane offset";
    EXPECT_EQ(std::memcmp(record.image.planes[0], frame.pixels, sizeof frame.pixels), 0);
    EXPECT_EQ(record.streamValue, 0x2233u);
    EXPECT_EQ(record.streamFlags, 0x11u);
    ExpectSamePacket(frame.descriptors.get(), record.descriptors, "descriptors");
    ExpectSamePacket(frame.dataPackets.get(), record.image.dataPackets, "data packets");

    // A description without pixels, read in place, stays one: no buffer is laid out for it.
    GoldenFrame description;
    for (uint8_t*& plane : description.record.image.planes)
        plane = nullptr;
    description.record.image.dataSize = 0;
    Written d = Write(description.record);
    ZKEncImage_t inPlace{};
    const TZKImageFramePtr held = ReadInPlace(d.area, d.size, inPlace);
    ASSERT_TRUE(held);
    EXPECT_EQ(inPlace.image.planes[0], nullptr);
    EXPECT_EQ(inPlace.image.dataSize, 0u);
    EXPECT_EQ(inPlace.image.width, description.record.image.width);
    ExpectSamePacket(description.dataPackets.get(), inPlace.image.dataPackets, "data packets");
}

TEST(FrameChannel, LyingSizesRefuseTheFrame)
{
    const struct {
        const char* what;
        size_t at;
        Bytes bytes;
        bool frame;
        int descriptorMembers, dataMembers;  // -1: no bundle
    } cases[] = {
        {"unchanged", 0, {0x91}, true, 1, 1},
        {"data packet announces one data byte more", kDataPacketHeaderAt + 36, {4}, false, 0, 0},
        {"data packet announces a huge descriptor", kDataPacketHeaderAt + 32, {0xFF, 0xFF, 0xFF, 0xFF}, false, 0, 0},
        {"data bundle header announces a descriptor", kDataBundleHeaderAt + 32, {1}, false, 0, 0},
        {"descriptor packet child shorter than a header", kDescPacketChildSizeAt, {0x80 | 39}, false, 0, 0},
        {"chroma row past the pixel bytes", 3 + 3 + 8 * 8, {11}, false, 0, 0},
        {"last chroma row without its padding", 3 + 3 + 5 * 8, {200}, true, 1, 1},
        {"plane offset past the pixel bytes", 3 + 3 + 9 * 8, {13}, false, 0, 0},
        {"element larger than the area", 1, {0x7F, 0xFE}, false, 0, 0},
        {"DataPackets one byte past the EncImage", kDataPacketsAt + 1, {0xDC}, false, 0, 0},
        {"information child of 100 bytes", 4, {0x64}, false, 0, 0},
        {"not an EncImage", 0, {0x92}, false, 0, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        Bytes area = GoldenBytes();
        std::copy(c.bytes.begin(), c.bytes.end(), area.begin() + c.at);
        const TZKImageFramePtr frame = Read(area, static_cast<uint32_t>(area.size()));
        // Read in place: the same verdicts, the pixels where they lie.
        ZKEncImage_t inPlace{};
        const TZKImageFramePtr direct = ReadInPlace(area, static_cast<uint32_t>(area.size()), inPlace);
        ASSERT_EQ(bool(frame), c.frame);
        ASSERT_EQ(bool(direct), c.frame) << "in place";
        ASSERT_EQ(bool(GeneralRead(area)), c.frame) << "the general element";
        if (!frame)
            continue;
        const ZKEncImage_t record = frame->GetZKEncImage();
        for (const ZKEncImage_t* r : {&record, static_cast<const ZKEncImage_t*>(&inPlace)}) {
            EXPECT_EQ(r->descriptors ? int(r->descriptors->size()) : -1, c.descriptorMembers);
            EXPECT_EQ(r->image.dataPackets ? int(r->image.dataPackets->size()) : -1, c.dataMembers);
        }
        // The compressor gets the sender's row bytes and plane offsets, never repaired ones.
        for (int k = 0; k < 3; ++k) {
            EXPECT_EQ(record.image.rowBytes[k], area[3 + 3 + 8 * (4 + k)]) << k;
            EXPECT_EQ(record.image.planes[k] - record.image.planes[0], k ? area[3 + 3 + 8 * (7 + k)] : 0) << k;
        }
        EXPECT_EQ(inPlace.image.planes[0], area.data() + 3 + 147 + 2);
        EXPECT_EQ(std::memcmp(inPlace.image.planes[0], record.image.planes[0], record.image.dataSize), 0);
    }
    // Cut short at the boundaries of its children, and claimed longer than the area: no frame.
    const Bytes golden = GoldenBytes();
    for (size_t length : {size_t(0), size_t(2), size_t(150), kDescriptorsAt, kDataPacketsAt + 10, size_t(348)}) {
        SCOPED_TRACE(length);
        Bytes area(golden.begin(), golden.begin() + length);
        EXPECT_FALSE(Read(area, static_cast<uint32_t>(length)));
        EXPECT_FALSE(Read(area, 0xFFFFFFFF));
    }
}

// Pixels the host wrote straight into the area, where PixelOffset says the element puts them, give
// the very element a copy from elsewhere gives; so do pixels lying further on in the area (moved,
// not copied over themselves).
TEST(FrameChannel, PixelsAlreadyInTheAreaGiveTheSameElement)
{
    const struct {
        uint32_t width, height;
        size_t shift;  // where the pixels lie beyond their place
    } rows[] = {{2, 2, 0}, {64, 48, 0}, {64, 48, 5}, {1920, 1080, 0}, {1920, 1080, 4096}};
    for (const auto& row : rows) {
        SCOPED_TRACE(::testing::Message() << row.width << "x" << row.height << " shift " << row.shift);
        const uint32_t luma = row.width * row.height, chroma = luma / 4;
        const Bytes pixels = Pattern(luma + 2 * chroma, row.width);
        ZKEncImage_t record{};
        record.image.colorFormat = eColorFormatYUV420Planar;
        record.image.width = row.width;
        record.image.height = row.height;
        record.image.rowBytes[0] = row.width;
        record.image.rowBytes[1] = row.width / 2;
        record.image.dataSize = static_cast<uint32_t>(pixels.size());
        record.image.time = 7;
        record.image.timeScale = 25;
        const size_t at = ExternalVideoProxy::PixelOffset(record);
        const auto serialize = [&](Bytes& area, const uint8_t* base) {
            for (int k = 0; k < 3; ++k)
                record.image.planes[k] = const_cast<uint8_t*>(base) + (k == 0 ? 0 : luma + (k - 1) * chroma);
            ExternalVideoProxy proxy;
            proxy.Begin(area.data(), static_cast<uint32_t>(area.size()));
            uint32_t size = 0;
            EXPECT_EQ(proxy.SerializeFrame(&record, size, false), 0u);
            area.resize(size);
        };
        Bytes copied(pixels.size() + 8192);
        serialize(copied, pixels.data());
        ASSERT_GE(copied.size(), at + pixels.size());
        EXPECT_TRUE(std::equal(pixels.begin(), pixels.end(), copied.begin() + at)) << "pixels at PixelOffset";
        Bytes inPlace(pixels.size() + 8192);
        std::copy(pixels.begin(), pixels.end(), inPlace.begin() + at + row.shift);
        serialize(inPlace, inPlace.data() + at + row.shift);
        EXPECT_TRUE(inPlace == copied);
        ZKEncImage_t back{};
        ASSERT_TRUE(ReadInPlace(inPlace, static_cast<uint32_t>(inPlace.size()), back));
        EXPECT_EQ(back.image.planes[0], inPlace.data() + at);
        EXPECT_EQ(back.image.planes[2] - back.image.planes[0], luma + chroma);
        EXPECT_EQ(back.image.time, 7u);
    }
}

// Records of every bundle shape: the direct path writes the general element's bytes and reads them
// back into the same frames; nesting deeper than it takes is left to the general element.
TEST(FrameChannel, DirectPathMatchesTheGeneralElement)
{
    const Bytes big(20000, 0x5A);
    const auto nested = [](int levels) {
        IPacket* inner = MakePacket(3, 0, 1, 90000, 0, {}, {1, 2});
        for (int k = 0; k < levels; ++k)
            inner = MakeBundle(k, k, 1000, 0, {uint8_t(k)}, {inner, MakePacket(4, 0, 2, 1000, 0, {}, {})});
        return static_cast<TPacketBundle*>(inner);
    };
    const struct {
        const char* what;
        bool pixels;
        TPacketBundle *descriptors, *dataPackets;
        bool direct;
    } rows[] = {
        {"golden", true, MakeBundle(0, 0, 1000, 0, {}, {MakePacket(1, 0, 0, 1000, 0, {}, {'S'})}),
         MakeBundle(0, 5, 1000, 0, {}, {MakePacket(2, 1, 5, 1000, 33, {0xD1}, {0xAA, 0xBB})}), true},
        {"description without bundles", false, nullptr, nullptr, true},
        {"packets of 20000 and 0 bytes, bundle descriptor", false, nullptr,
         MakeBundle(1, 2, 3, 4, Bytes(130, 7),
                    {MakePacket(1, 0, 0, 1, 0, Bytes(200, 9), big), MakePacket(1, 0, 0, 1, 0, {}, {})}),
         true},
        {"empty bundles", true, MakeBundle(0, 0, 1, 0, {}, {}), MakeBundle(0, 0, 1, 0, {}, {}), true},
        {"bundles nested nine deep", false, nested(7), nested(9), true},
        {"bundles nested ten deep", false, nullptr, nested(10), false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        const TPacketBundlePtr descriptors(row.descriptors), dataPackets(row.dataPackets);
        GoldenFrame frame;
        ZKEncImage_t record = frame.record;
        if (!row.pixels) {
            for (uint8_t*& plane : record.image.planes)
                plane = nullptr;
        }
        record.descriptors = descriptors.get();
        record.image.dataPackets = dataPackets.get();
        Written w = Write(record, 32768);
        ASSERT_EQ(w.status, 0u);
        w.area.resize(w.size);
        EXPECT_TRUE(w.area == GeneralWrite(record));
        TZKEncImageWire wire;
        EXPECT_EQ(wire.parse(w.area.data(), w.area.size()), row.direct);

        ZKEncImage_t inPlace{}, general{};
        const TZKImageFramePtr read = ReadInPlace(w.area, w.size, inPlace);
        const TZKImageFramePtr reference = GeneralRead(w.area, &general);
        ASSERT_TRUE(read && reference);
        EXPECT_EQ(std::memcmp(&inPlace.image, &general.image, offsetof(ZKImage_t, dataPackets)), 0);
        EXPECT_EQ(inPlace.streamValue, general.streamValue);
        for (auto pair : {std::make_pair(inPlace.descriptors, general.descriptors),
                          std::make_pair(inPlace.image.dataPackets, general.image.dataPackets)}) {
            ASSERT_EQ(pair.first == nullptr, pair.second == nullptr);
            if (pair.first)
                ExpectSamePacket(pair.second, pair.first);
        }
        const TZKImageFramePtr copied = Read(w.area, w.size);
        ASSERT_TRUE(copied);
        if (dataPackets)
            ExpectSamePacket(dataPackets.get(), copied->GetZKEncImage().image.dataPackets, "copied");
    }
}

}  // namespace
