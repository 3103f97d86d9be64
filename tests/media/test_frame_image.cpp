#include "media/CABufferPool.h"
#include "media/CAImageFrame.h"
#include "media/ZKImageLayout.h"
#include "evc/ZKResult.h"
#include "TestPacketBundle.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

namespace {

uintptr_t Address(const void* p)
{
    return reinterpret_cast<uintptr_t>(p);
}

class ImageFrameTest : public ::testing::Test {
protected:
    // Free buffers left by earlier tests would be reused with other sizes.
    void SetUp() override
    {
        liveBundles = TestPacketBundle::Live();
        CABufferPool::GetBufferPool()->ReleaseBuffers();
    }
    void TearDown() override
    {
        EXPECT_EQ(TestPacketBundle::Live(), liveBundles) << "a bundle leaked or was destroyed twice";
        EXPECT_EQ(CABufferPool::GetBufferPool()->GetUsedBufferCount(), 0u) << "a buffer was not given back";
    }

    // A frame of the given geometry laid out over a pooled buffer.
    static void Allocate(CAImageFrame& frame, EColorFormats format, uint32_t width, uint32_t height)
    {
        frame.SetColorFormat(format);
        frame.SetWidth(width);
        frame.SetHeight(height);
        ASSERT_NE(frame.GetZKImage().planes[0], nullptr);
    }

    int liveBundles = 0;
};

TEST_F(ImageFrameTest, NewFrameIsAnEmpty420PictureWithoutBuffer)
{
    CAImageFrame frame;
    EXPECT_EQ(frame.GetColorFormat(), eColorFormatYUV420Planar);
    EXPECT_EQ(frame.GetColorRange(), eColorRangeDefault);
    EXPECT_EQ(frame.GetWidth(), 0u);
    EXPECT_EQ(frame.GetHeight(), 0u);
    EXPECT_FALSE(frame.GetInterlaced());
    EXPECT_FALSE(frame.GetAlphaEnabled());
    EXPECT_FALSE(frame.GetIsEOF());
    EXPECT_EQ(frame.GetRollType(), CAFrame::eRollTypeNone);
    EXPECT_EQ(frame.GetTime(), CATime(0, 1));
    EXPECT_EQ(frame.GetBuffer(), nullptr);
    EXPECT_EQ(frame.CalcFrameSize(), 0u);

    const ZKEncImage_t record = frame.GetZKEncImage();
    EXPECT_EQ(record.image.colorFormat, 6u);
    EXPECT_EQ(record.image.dataSize, 0u);
    for (uint8_t* plane : record.image.planes)
        EXPECT_EQ(plane, nullptr);
    EXPECT_EQ(frame.GetBuffer(), nullptr);
}

TEST_F(ImageFrameTest, GetZKEncImageLaysOutAPooledBufferAndKeepsItWhileItFits)
{
    CAImageFrame frame;
    frame.SetColorFormat(eColorFormatARGB32);
    frame.SetWidth(1920);
    frame.SetHeight(1080);
    frame.SetTime(CATime(1001, 30000));
    frame.SetOriginalTime(CATime(7, 25));
    frame.SetOriginalFrameWithinSecond(3);

    const ZKEncImage_t first = frame.GetZKEncImage();
    const CABuffer* buffer = frame.GetBuffer();
    ASSERT_NE(buffer, nullptr);
    EXPECT_EQ(buffer->GetSize(), 8294400u);
    EXPECT_EQ(first.image.dataSize, 8294400u);
    EXPECT_EQ(first.image.planes[0], buffer->GetData());
    EXPECT_EQ(first.image.rowBytes[0], 7680u);
    EXPECT_EQ(first.image.time, 1001u);
    EXPECT_EQ(first.image.timeScale, 30000u);
    EXPECT_EQ(first.image.originalTime, 7u);
    EXPECT_EQ(first.image.originalTimeScale, 25u);
    EXPECT_EQ(first.image.originalFrameWithinSecond, 3u);

    // Same geometry: same buffer, only the times are refreshed.
    frame.SetTime(CATime(2002, 30000));
    const ZKEncImage_t second = frame.GetZKEncImage();
    EXPECT_EQ(frame.GetBuffer(), buffer);
    EXPECT_EQ(second.image.planes[0], first.image.planes[0]);
    EXPECT_EQ(second.image.time, 2002u);

    // Smaller geometry still fits the buffer.
    frame.SetHeight(720);
    frame.GetZKEncImage();
    EXPECT_EQ(frame.GetBuffer(), buffer);

    // Larger geometry replaces the buffer; the old one goes back to the pool.
    frame.SetHeight(2160);
    const ZKEncImage_t larger = frame.GetZKEncImage();
    ASSERT_NE(frame.GetBuffer(), nullptr);
    EXPECT_NE(frame.GetBuffer(), buffer);
    EXPECT_TRUE(buffer->IsAvailable());
    EXPECT_EQ(larger.image.dataSize, 1920u * 4 * 2160);
    EXPECT_EQ(CABufferPool::GetBufferPool()->GetUsedBufferCount(), 1u);
}

TEST_F(ImageFrameTest, EndOfStreamFrameDescribesNoData)
{
    CAImageFrame frame;
    Allocate(frame, eColorFormatYUV420Planar, 64, 32);
    frame.SetColorRange(eColorRangeUnspecified);
    frame.SetIsEOF(true);
    frame.SetTime(CATime(90, 30));
    const ZKImage_t record = frame.GetZKImage();
    EXPECT_EQ(record.dataSize, 0u);
    for (uint8_t* plane : record.planes)
        EXPECT_EQ(plane, nullptr);
    EXPECT_EQ(record.width, 64u);
    EXPECT_EQ(record.height, 32u);
    EXPECT_EQ(record.colorRange, 1u);
    EXPECT_EQ(record.time, 90u);
    EXPECT_EQ(record.timeScale, 30u);
}

TEST_F(ImageFrameTest, GetZKEncImageOfAFormatWithoutLayoutIsAllZero)
{
    CAImageFrame frame;
    Allocate(frame, eColorFormatARGB32, 16, 16);
    const CABuffer* buffer = frame.GetBuffer();
    // Format 4 has a size (2 bytes per pixel) but no plane layout.
    frame.SetColorFormat(eColorFormatRGB16A);
    frame.SetWidth(64);
    frame.SetRowBytes(0);
    frame.SetTime(CATime(5, 25));
    const ZKEncImage_t record = frame.GetZKEncImage();
    EXPECT_EQ(record.image.colorFormat, 0u);
    EXPECT_EQ(record.image.width, 0u);
    EXPECT_EQ(record.image.dataSize, 0u);
    EXPECT_EQ(record.image.planes[0], nullptr);
    EXPECT_EQ(record.image.time, 0u);
    EXPECT_EQ(record.image.timeScale, 0u);
    EXPECT_EQ(frame.GetBuffer(), buffer) << "a failed layout keeps the old buffer";

    // Geometry whose 32-bit size would wrap is refused, not laid out short.
    frame.SetColorFormat(eColorFormatARGB32);
    frame.SetWidth(65536);
    frame.SetHeight(65536);
    const ZKEncImage_t wrapped = frame.GetZKEncImage();
    EXPECT_EQ(wrapped.image.planes[0], nullptr);
    EXPECT_EQ(frame.GetBuffer(), buffer);
}

TEST_F(ImageFrameTest, SetZKImageAcceptsOnlyRecordsInsideTheBuffer)
{
    CAImageFrame frame;
    Allocate(frame, eColorFormatARGB32, 100, 10);  // 4000 bytes
    const ZKImage_t base = frame.GetZKImage();
    uint8_t* start = base.planes[0];

    EXPECT_EQ(frame.SetZKImage(nullptr), kZKErrBadArgument);

    struct Case {
        const char* name;
        uint8_t* firstPlane;
        uint32_t height;
        uint32_t rowBytes;
        uint32_t expected;
    };
    const Case cases[] = {
        {"exact fit", start, 10, 400, kZKNoErr},
        {"one row shorter, shifted by a row", start + 400, 9, 400, kZKNoErr},
        {"shifted by one byte", start + 1, 10, 400, kZKErrBadArgument},
        {"before the buffer", start - 4, 1, 400, kZKErrBadArgument},
        {"far outside", start + 100000, 1, 400, kZKErrBadArgument},
        // Padded rows: the last row only needs its 400 visible bytes.
        {"padded rows, last row unpadded", start, 8, 480, kZKNoErr},
        {"padded rows too many", start, 9, 480, kZKErrBadArgument},
    };
    for (const Case& c : cases) {
        ZKImage_t record = base;
        record.planes[0] = c.firstPlane;
        record.height = c.height;
        record.rowBytes[0] = c.rowBytes;
        record.time = 33;
        record.timeScale = 600;
        const ZKImage_t before = frame.GetZKImage();
        const CATime timeBefore = frame.GetTime();
        EXPECT_EQ(frame.SetZKImage(&record), c.expected) << c.name;
        if (c.expected == kZKNoErr) {
            EXPECT_EQ(frame.GetHeight(), c.height) << c.name;
            EXPECT_EQ(frame.GetTime(), CATime(33, 600)) << c.name;
        } else {
            EXPECT_EQ(frame.GetHeight(), before.height) << c.name;
            EXPECT_EQ(frame.GetRowBytes(), before.rowBytes[0]) << c.name;
            EXPECT_EQ(frame.GetTime(), timeBefore) << c.name;
        }
        // Back to the full layout for the next case.
        ASSERT_EQ(frame.SetZKImage(&base), kZKNoErr);
    }

    // Without a buffer only an empty record qualifies.
    CAImageFrame empty;
    ZKImage_t record = base;
    EXPECT_EQ(empty.SetZKImage(&record), kZKErrBadArgument);
    record.planes[0] = nullptr;
    record.height = 0;
    EXPECT_EQ(empty.SetZKImage(&record), kZKNoErr);
}

TEST_F(ImageFrameTest, SetZKEncImageChecksSizeAndPlacement)
{
    CAImageFrame frame;
    Allocate(frame, eColorFormatYUV420Planar, 64, 64);  // 6144 bytes
    const ZKEncImage_t base = frame.GetZKEncImage();
    uint8_t* start = base.image.planes[0];
    EXPECT_EQ(frame.SetZKEncImage(nullptr), kZKErrBadArgument);

    struct Case {
        const char* name;
        uint8_t* firstPlane;
        uint32_t height;
        uint32_t expected;
    };
    // Row bytes 64 + 32: the allowance past the end is (64 + 32) / 2 = 48.
    const Case cases[] = {
        {"same layout", start, 64, kZKNoErr},
        {"larger than the buffer", start, 66, kZKErrBadArgument},
        {"shifted within the allowance", start + 48, 64, kZKNoErr},
        {"shifted past the allowance", start + 49, 64, kZKErrBadArgument},
        {"before the buffer", start - 1, 64, kZKErrBadArgument},
        {"after the buffer", start + 6145, 2, kZKErrBadArgument},
    };
    TestPacketBundle* descriptors = new TestPacketBundle(1);
    for (const Case& c : cases) {
        ZKEncImage_t record = base;
        record.image.planes[0] = c.firstPlane;
        record.image.height = c.height;
        record.streamValue = 0x1122334455667788ull;
        EXPECT_EQ(frame.SetZKEncImage(&record), c.expected) << c.name;
        if (c.expected != kZKNoErr) {
            EXPECT_EQ(frame.GetHeight(), 64u) << c.name;
            EXPECT_EQ(frame.GetZKEncImage().streamValue, 0u) << c.name;
        }
        ASSERT_EQ(frame.SetZKEncImage(&base), kZKNoErr);
    }

    // A successful call takes the record's bundles and stream fields.
    ZKEncImage_t record = base;
    record.descriptors = descriptors;
    record.streamValue = 42;
    record.streamFlags = 7;
    ASSERT_EQ(frame.SetZKEncImage(&record), kZKNoErr);
    const ZKEncImage_t after = frame.GetZKEncImage();
    EXPECT_EQ(after.descriptors, descriptors);
    EXPECT_EQ(after.streamValue, 42u);
    EXPECT_EQ(after.streamFlags, 7u);
}

TEST_F(ImageFrameTest, ImportEncImageTakesANewBufferAndMovesThePlanesOntoIt)
{
    ZKEncImage_t source{};
    uint8_t foreign[16];
    ASSERT_EQ(
        InitZKImage(&source.image, 3110400, foreign, eColorFormatYUV420Planar, false, 0, 1920, 1080, false, 1, 25),
        kZKNoErr);
    TestPacketBundle* data = new TestPacketBundle(1);
    TestPacketBundle* descriptors = new TestPacketBundle(2);
    source.image.dataPackets = data;
    source.descriptors = descriptors;
    source.streamFlags = 5;

    CAImageFrame frame;
    EXPECT_EQ(frame.ImportEncImage(nullptr), kZKErrBadArgument);
    ASSERT_EQ(frame.ImportEncImage(&source), kZKNoErr);
    const CABuffer* buffer = frame.GetBuffer();
    ASSERT_NE(buffer, nullptr);
    EXPECT_EQ(buffer->GetSize(), 3110400u);
    EXPECT_EQ(frame.GetTime(), CATime(1, 25));

    const ZKEncImage_t record = frame.GetZKEncImage();
    EXPECT_EQ(frame.GetBuffer(), buffer);
    uint8_t* b = buffer->GetData();
    EXPECT_EQ(record.image.planes[0], b);
    EXPECT_EQ(record.image.planes[1], b + 2073600);
    EXPECT_EQ(record.image.planes[2], b + 2073600 + 518400);
    EXPECT_EQ(record.image.planes[3], nullptr);
    EXPECT_EQ(record.image.dataPackets, data);
    EXPECT_EQ(record.descriptors, descriptors);
    EXPECT_EQ(record.streamFlags, 5u);

    // One-plane format: the first plane is the buffer's start.
    ZKEncImage_t argb{};
    ASSERT_EQ(InitZKImage(&argb.image, 4 * 8 * 8, foreign, eColorFormatARGB32, false, 0, 8, 8, false), kZKNoErr);
    ASSERT_EQ(frame.ImportEncImage(&argb), kZKNoErr);
    EXPECT_TRUE(buffer->IsAvailable()) << "the previous buffer went back to the pool";
    ASSERT_NE(frame.GetBuffer(), nullptr);
    EXPECT_EQ(frame.GetZKImage().planes[0], frame.GetBuffer()->GetData());

    // No data: no buffer, and the sender's plane pointer is not kept.
    argb.image.dataSize = 0;
    ASSERT_EQ(frame.ImportEncImage(&argb), kZKNoErr);
    EXPECT_EQ(frame.GetBuffer(), nullptr);
    frame.SetIsEOF(true);
    EXPECT_EQ(frame.GetZKImage().planes[0], nullptr);
}

TEST_F(ImageFrameTest, ImportEncImageRefusesADataSizeShorterThanThePlanes)
{
    ZKEncImage_t source{};
    ASSERT_EQ(InitZKImage(&source.image, 100, nullptr, eColorFormatARGB32, false, 0, 64, 64, false), kZKNoErr);
    CAImageFrame frame;
    Allocate(frame, eColorFormatARGB32, 8, 8);
    const CABuffer* buffer = frame.GetBuffer();
    EXPECT_EQ(frame.ImportEncImage(&source), kZKErrFormatMismatch);
    EXPECT_EQ(frame.GetBuffer(), buffer);
    EXPECT_EQ(frame.GetWidth(), 8u);
}

TEST_F(ImageFrameTest, CopyZKImageAttributesKeepsPlanesAndTakesTheDataPackets)
{
    CAImageFrame frame;
    Allocate(frame, eColorFormatARGB32, 16, 8);
    const ZKImage_t own = frame.GetZKImage();

    ZKImage_t source = own;
    source.width = 17;
    EXPECT_EQ(frame.CopyZKImageAttributes(source), kZKErrFormatMismatch);
    source.width = 16;
    source.colorFormat = eColorFormatBGRA32;
    EXPECT_EQ(frame.CopyZKImageAttributes(source), kZKErrFormatMismatch);

    IPacketBundle* oldPackets = new TestPacketBundle(1);
    frame.ExchangeDataPacketsWith(oldPackets);
    ASSERT_EQ(oldPackets, nullptr);
    const int liveWithOld = TestPacketBundle::Live();

    TestPacketBundle* newPackets = new TestPacketBundle(2);
    uint8_t elsewhere[8];
    source = own;
    source.colorFormat = eColorFormatARGB32;
    source.bottomUp = 1;
    source.colorRange = 9;
    source.planes[0] = elsewhere;
    source.dataSize = 1;
    source.dataPackets = newPackets;
    source.time = 12;
    source.timeScale = 24;
    source.originalTime = 5;
    source.originalTimeScale = 10;
    source.originalFrameWithinSecond = 2;
    ASSERT_EQ(frame.CopyZKImageAttributes(source), kZKNoErr);
    EXPECT_EQ(TestPacketBundle::Live(), liveWithOld) << "the replaced bundle is destroyed";

    const ZKImage_t after = frame.GetZKImage();
    EXPECT_EQ(after.planes[0], own.planes[0]);
    EXPECT_EQ(after.dataSize, own.dataSize);
    EXPECT_EQ(after.dataPackets, newPackets);
    EXPECT_EQ(after.bottomUp, 1u);
    EXPECT_EQ(after.colorRange, 9u);
    EXPECT_EQ(frame.GetTime(), CATime(12, 24));
    EXPECT_EQ(frame.GetOriginalTime(), CATime(5, 10));
    EXPECT_EQ(frame.GetOriginalFrameWithinSecond(), 2u);

    // Its own description again: the shared bundle must survive.
    const ZKImage_t self = frame.GetZKImage();
    EXPECT_EQ(frame.CopyZKImageAttributes(self), kZKNoErr);
}

// Pixels of a 4 x 3 ARGB picture whose bytes name their row.
std::vector<uint8_t> RowNumbered(uint32_t rows, uint32_t rowBytes)
{
    std::vector<uint8_t> pixels(rows * rowBytes);
    for (uint32_t row = 0; row < rows; ++row)
        std::memset(pixels.data() + row * rowBytes, static_cast<int>(row + 1), rowBytes);
    return pixels;
}

TEST_F(ImageFrameTest, CopyZKImageCopiesOrFlipsThePixels)
{
    std::vector<uint8_t> pixels = RowNumbered(3, 16);
    ZKImage_t source{};
    ASSERT_EQ(InitZKImage(&source, 48, pixels.data(), eColorFormatARGB32, false, 0, 4, 3, false), kZKNoErr);

    for (bool flip : {false, true}) {
        CAImageFrame frame;
        frame.SetColorFormat(eColorFormatARGB32);
        frame.SetWidth(4);
        frame.SetHeight(3);
        ASSERT_EQ(frame.CopyZKImage(source, flip, false), kZKNoErr) << "flip " << flip;
        const ZKImage_t copy = frame.GetZKImage();
        EXPECT_EQ(copy.bottomUp, flip ? 1u : 0u);
        for (uint32_t row = 0; row < 3; ++row) {
            const uint8_t expected = static_cast<uint8_t>(flip ? 3 - row : row + 1);
            EXPECT_EQ(copy.planes[0][row * copy.rowBytes[0]], expected) << "flip " << flip << " row " << row;
            EXPECT_EQ(copy.planes[0][row * copy.rowBytes[0] + 15], expected);
        }
    }

    // A format of frame size 0 gets no buffer to copy into: general failure.
    ZKImage_t odd = source;
    odd.colorFormat = 7;
    CAImageFrame frame;
    EXPECT_EQ(frame.CopyZKImage(odd, false, false), kZKErrGeneral);
}

TEST_F(ImageFrameTest, CopyZKImageDeepClonesTheDataPackets)
{
    std::vector<uint8_t> pixels = RowNumbered(2, 8);
    ZKImage_t source{};
    ASSERT_EQ(InitZKImage(&source, 16, pixels.data(), eColorFormatARGB32, false, 0, 2, 2, false), kZKNoErr);
    TestPacketBundle* packets = new TestPacketBundle(5);
    source.dataPackets = packets;
    {
        CAImageFrame frame;
        ASSERT_EQ(frame.CopyZKImage(source, false, true), kZKNoErr);
        IPacketBundle* copy = frame.GetZKImage().dataPackets;
        ASSERT_NE(copy, nullptr);
        EXPECT_NE(copy, packets);
        EXPECT_EQ(static_cast<TestPacketBundle*>(copy)->tag(), 1005u);
    }
    packets->destroy();
}

TEST_F(ImageFrameTest, ContainsZKImageAndHasSameSpecs)
{
    CAImageFrame frame;
    ZKImage_t record{};
    EXPECT_TRUE(frame.ContainsZKImage(record)) << "no buffer: a null plane qualifies";
    Allocate(frame, eColorFormatARGB32, 10, 10);
    record = frame.GetZKImage();
    uint8_t* start = record.planes[0];
    const struct {
        uint8_t* plane;
        bool contained;
    } cases[] = {{start, true}, {start + 400, true}, {start + 401, false}, {start - 1, false}, {nullptr, false}};
    for (const auto& c : cases) {
        record.planes[0] = c.plane;
        EXPECT_EQ(frame.ContainsZKImage(record), c.contained) << Address(c.plane) - Address(start);
    }

    CAImageFrame other;
    other.SetColorFormat(eColorFormatARGB32);
    other.SetWidth(10);
    other.SetHeight(10);
    EXPECT_TRUE(frame.HasSameSpecs(other));
    frame.SetTime(CATime(1, 2));
    other.SetTime(CATime(2, 4));
    EXPECT_TRUE(frame.HasSameSpecs(other)) << "times compare by value";
    other.SetTime(CATime(1, 3));
    EXPECT_FALSE(frame.HasSameSpecs(other));
    other.SetTime(CATime(1, 2));
    other.SetButtomUp(true);
    EXPECT_FALSE(frame.HasSameSpecs(other));
    other.SetButtomUp(false);
    other.SetHeight(11);
    EXPECT_FALSE(frame.HasSameSpecs(other));
}

TEST_F(ImageFrameTest, EnsureWidthAndHeightAreEvenAndFrameSize)
{
    const struct {
        uint32_t width, height, evenWidth, evenHeight;
    } cases[] = {{1919, 1081, 1918, 1080}, {1920, 1080, 1920, 1080}, {1920, 1081, 1920, 1080}, {1, 1, 0, 0}};
    for (const auto& c : cases) {
        CAImageFrame frame;
        frame.SetWidth(c.width);
        frame.SetHeight(c.height);
        frame.EnsureWidthAndHeightAreEven();
        EXPECT_EQ(frame.GetWidth(), c.evenWidth);
        EXPECT_EQ(frame.GetHeight(), c.evenHeight);
    }

    CAImageFrame frame;
    frame.SetWidth(1920);
    frame.SetHeight(1080);
    EXPECT_EQ(frame.CalcFrameSize(), 3110400u);
    frame.SetAlphaEnabled(true);
    EXPECT_EQ(frame.CalcFrameSize(), 5184000u);
}

TEST_F(ImageFrameTest, BundlesAreExchangedAndDestroyedWithTheFrame)
{
    const int before = TestPacketBundle::Live();
    {
        CAImageFrame frame;
        IPacketBundle* descriptors = new TestPacketBundle(1);
        IPacketBundle* packets = new TestPacketBundle(2);
        frame.ExchangeDescriptorsWith(descriptors);
        frame.ExchangeDataPacketsWith(packets);
        EXPECT_EQ(descriptors, nullptr);
        EXPECT_EQ(packets, nullptr);
        const ZKEncImage_t record = frame.GetZKEncImage();
        ASSERT_NE(record.descriptors, nullptr);
        EXPECT_EQ(static_cast<TestPacketBundle*>(record.descriptors)->tag(), 1u);
        EXPECT_EQ(static_cast<TestPacketBundle*>(record.image.dataPackets)->tag(), 2u);

        // Taking one back out moves ownership to the caller.
        IPacketBundle* out = nullptr;
        frame.ExchangeDataPacketsWith(out);
        ASSERT_NE(out, nullptr);
        EXPECT_EQ(frame.GetZKEncImage().image.dataPackets, nullptr);
        out->destroy();
        EXPECT_EQ(TestPacketBundle::Live(), before + 1);
    }
    EXPECT_EQ(TestPacketBundle::Live(), before);
}

}  // namespace
