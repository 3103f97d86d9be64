// Picture geometry: frame sizes, plane layouts per format, and copying, flipping and packing
// pictures between layouts.
#include "media/ZKColorFormats.h"
#include "media/ZKImageCopy.h"
#include "media/ZKImageLayout.h"
#include "evc/ZKResult.h"

#include "MediaTestSupport.h"
#include "common/Picture.h"

#include <cstring>
#include <vector>

using evctest::Bytes;
using evctest::TestPicture;

namespace {

constexpr long kAbsent = -1;

// Plane layouts as laid out in a buffer of 4096 bytes: row bytes and offsets of the planes.
struct LayoutRow {
    uint32_t format;
    int width, height, rowBytes;
    bool alpha;
    uint32_t rowBytesOut[4];
    long planeOffset[4];  // kAbsent for a null plane
};
const LayoutRow kLayouts[] = {
    {6, 8, 4, 0, false, {8, 4, 0, 0}, {0, 32, 40, kAbsent}},
    {6, 8, 4, 0, true, {8, 4, 0, 8}, {0, 32, 40, 48}},
    {6, 8, 4, 10, true, {10, 5, 0, 10}, {0, 40, 50, 60}},
    {6, 5, 3, 0, true, {5, 2, 0, 5}, {0, 15, 17, 22}},
    {13, 8, 4, 0, true, {8, 8, 8, 0}, {0, 32, 64, kAbsent}},  // alpha asked, none set
    {24, 8, 4, 0, false, {16, 16, 16, 0}, {0, 64, 128, kAbsent}},
    {31, 8, 4, 0, true, {16, 8, 0, 0}, {0, 64, 80, kAbsent}},  // never an alpha plane
    {32, 8, 4, 0, false, {16, 8, 8, 0}, {0, 64, 96, kAbsent}},
    {30, 50, 2, 0, false, {256, 0, 0, 0}, {0, kAbsent, kAbsent, kAbsent}},
    {1, 8, 4, 0, true, {32, 0, 0, 0}, {0, kAbsent, kAbsent, kAbsent}},
    {2, 8, 4, 0, false, {24, 0, 0, 0}, {0, kAbsent, kAbsent, kAbsent}},
    {17, 8, 4, 0, false, {8, 0, 0, 0}, {0, kAbsent, kAbsent, kAbsent}},
};

void ExpectPlanes(const ZKImage_t& image, const uint8_t* base, const long (&offsets)[4])
{
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(image.planes[i], offsets[i] == kAbsent ? nullptr : base + offsets[i]) << "plane " << i;
}

}  // namespace

TEST(ZKImageLayout, FrameSizes)
{
    const struct {
        uint32_t format, width, height, rowBytes;
        bool alpha;
        uint32_t expected;
    } rows[] = {
        {6, 1920, 1080, 0, true, 5184000},
        {6, 5, 3, 0, false, 22},   // 15 + 15/2, truncated
        {6, 8, 4, 10, false, 60},  // given row bytes win
        {13, 4, 2, 0, true, 32},
        {24, 4, 2, 0, true, 48},  // no alpha plane for 24
        {31, 4, 2, 0, true, 24},
        {32, 4, 2, 0, false, 32},
        {30, 1921, 1080, 7777, false, 5667840},  // 41 groups of 48, row bytes ignored
        {17, 1920, 1080, 1920, true, 0},
        {1, 3, 2, 16, false, 32},
        {7, 4, 4, 0, false, 0},  // no bytes per pixel to derive rows from
        {7, 4, 4, 10, false, 40},
    };
    for (const auto& row : rows)
        EXPECT_EQ(CalcFrameSize(row.format, row.width, row.height, row.rowBytes, row.alpha), row.expected)
            << "format " << row.format << " " << row.width << "x" << row.height << " R=" << row.rowBytes
            << " alpha=" << row.alpha;
}

TEST(ZKImageLayout, PlaneLayoutsPerFormat)
{
    std::vector<uint8_t> buffer(4096), other(4096);
    uint8_t* const base = buffer.data();
    for (const LayoutRow& row : kLayouts) {
        SCOPED_TRACE(testing::Message() << "format " << row.format << " " << row.width << "x" << row.height
                                        << " R=" << row.rowBytes << " alpha=" << row.alpha);
        ZKImage_t image;
        std::memset(&image, 0xA5, sizeof image);
        ASSERT_EQ(InitZKImage(&image, 4096, base, row.format, true, row.rowBytes, row.width, row.height, row.alpha),
                  kZKNoErr);
        for (int i = 0; i < 4; ++i)
            EXPECT_EQ(image.rowBytes[i], row.rowBytesOut[i]) << "row bytes " << i;
        ExpectPlanes(image, base, row.planeOffset);
        EXPECT_EQ(image.dataPackets, nullptr);
        EXPECT_EQ(image.originalTime, 0xA5A5A5A5A5A5A5A5ull);  // not the base form's business
        if (ZKIsPlanarYuvFormat(row.format)) {                 // moving the planes keeps the layout
            ReplaceYUVImage(&image, other.data());
            ExpectPlanes(image, other.data(), row.planeOffset);
        }
    }
    ZKImage_t image{};
    ASSERT_EQ(InitZKImage(&image, 0, nullptr, 6, false, 0, 16, 16, true), kZKNoErr);  // no data: no planes
    ExpectPlanes(image, nullptr, {kAbsent, kAbsent, kAbsent, kAbsent});
    EXPECT_EQ(image.rowBytes[1], 8u);
    ASSERT_EQ(InitZKImage(&image, 4096, base, 1, false, 0, 2, 2, false), kZKNoErr);
    ReplaceYUVImage(&image, other.data());  // not planar: untouched
    EXPECT_EQ(image.planes[0], base);
}

TEST(ZKImageLayout, InitRefusesWithoutTouchingTheRecord)
{
    uint8_t data[64];
    ZKImage_t image, before;
    std::memset(&image, 0xA5, sizeof image);
    before = image;
    for (uint32_t format : {4u, 7u, 15u, 25u, 29u, 33u}) {
        EXPECT_EQ(InitZKImage(&image, sizeof data, data, format, false, 0, 4, 4, false), kZKErrBadArgument) << format;
    }
    EXPECT_EQ(InitZKImage(&image, sizeof data, data, 6, false, 0, -4, 4, false), kZKErrBadArgument);
    EXPECT_EQ(InitZKImage(&image, sizeof data, data, 6, false, -1, 4, 4, false), kZKErrBadArgument);
    EXPECT_EQ(InitZKImage(nullptr, sizeof data, data, 6, false, 0, 4, 4, false), kZKErrBadArgument);
    EXPECT_EQ(std::memcmp(&image, &before, sizeof image), 0);

    // The other forms set times and range too.
    ASSERT_EQ(InitZKImage(&image, sizeof data, data, 1, 3u, true, 20, 4, 2, false, 10, 11, 12, 13, 14), kZKNoErr);
    EXPECT_EQ(std::make_pair(image.colorRange, image.originalFrameWithinSecond), std::make_pair(3u, 14u));
}

TEST_F(MediaTest, CopyInOrderReversedOrNarrower)
{
    for (bool flip : {false, true}) {
        SCOPED_TRACE(flip ? "opposite bottom-up flags" : "same bottom-up flags");
        TestPicture argb(1, 2, 3), argbCopy(1, 2, 3, 12, flip);  // padded rows
        argb.Draw(0);
        CopyZKImage(&argb.Image(), &argbCopy.Image(), false);
        EXPECT_EQ(argbCopy.Visible(), argb.Visible());
        TestPicture yuv(6, 4, 4, 0, false, true), yuvCopy(6, 4, 4, 0, flip, true);
        yuv.Draw(0);
        CopyZKImage(&yuv.Image(), &yuvCopy.Image(), false);
        EXPECT_EQ(yuvCopy.Visible(), yuv.Visible());
    }
    // A mismatch copies only the original time; a missing first plane copies nothing.
    TestPicture padded(1, 2, 2, 12), wider(1, 3, 2);
    padded.Draw(0);
    padded.Image().originalTime = 77;
    padded.Image().originalTimeScale = 25;
    CopyZKImage(&padded.Image(), &wider.Image(), true);
    EXPECT_EQ(wider.Image().originalTime, 77u);
    EXPECT_EQ(wider.Image().originalTimeScale, 25u);
    EXPECT_EQ(wider.Buffer(), Bytes(wider.Buffer().size(), 0xEE));
    ZKImage_t empty{};
    ASSERT_EQ(InitZKImage(&empty, 0, nullptr, 1, false, 0, 2, 2, false), kZKNoErr);
    CopyZKImage(&padded.Image(), &empty, false);
    EXPECT_EQ(empty.originalTime, 0u);

    // A shallow copy shares the source's bundle, a deep one clones it; a deep copy without a
    // source bundle keeps the destination's, a mismatch takes none.
    auto* bundle = new TestPacketBundle(1);
    TestPicture source(1, 2, 2), destination(1, 2, 2);
    ZKImage_t &src = source.Image(), &dst = destination.Image();
    src.dataPackets = bundle;
    CopyZKImage(&src, &dst, false);
    EXPECT_EQ(dst.dataPackets, bundle);
    dst.dataPackets = nullptr;
    CopyZKImage(&src, &dst, true);
    ASSERT_NE(dst.dataPackets, nullptr);
    EXPECT_EQ(static_cast<TestPacketBundle*>(dst.dataPackets)->tag(), 1001u);
    dst.dataPackets->destroy();
    src.dataPackets = nullptr;
    dst.dataPackets = bundle;
    CopyZKImage(&src, &dst, true);
    EXPECT_EQ(dst.dataPackets, bundle);
    CopyZKImage(&dst, &wider.Image(), true);
    EXPECT_EQ(wider.Image().dataPackets, nullptr);
    bundle->destroy();
}

TEST(ZKImageLayout, FlipAndPacking)
{
    TestPicture src(2, 1, 4, 0, true), dst(2, 1, 4, 0, true), taller(2, 1, 5, 0, true);
    src.Draw(0);
    ASSERT_EQ(FlipZKImage(&src.Image(), &dst.Image()), kZKNoErr);
    EXPECT_EQ(dst.Image().bottomUp, 0u);
    EXPECT_EQ(dst.Visible(), src.Visible());
    EXPECT_EQ(FlipZKImage(&src.Image(), &taller.Image()), kZKErrFormatMismatch);
    EXPECT_EQ(FlipZKImage(nullptr, &dst.Image()), kZKErrBadArgument);

    // Two rows of three 16-bit samples, source stride 4 samples, destination 3: bytes swapped.
    uint8_t source[16] = {1, 2, 3, 4, 5, 6, 0xEE, 0xEE, 0x11, 0x12, 0x13, 0x14, 0x15, 0x16, 0xEE, 0xEE};
    const std::vector<uint8_t> row0 = {2, 1, 4, 3, 6, 5}, row1 = {0x12, 0x11, 0x14, 0x13, 0x16, 0x15};
    for (bool flip : {false, true}) {
        uint8_t dest[12] = {};
        ZKImage_t s{}, d{};
        s.width = d.width = 3;
        s.height = d.height = 2;
        s.rowBytes[0] = 8;
        d.rowBytes[0] = 6;
        s.planes[0] = source;
        d.planes[0] = dest;
        d.bottomUp = flip;
        ASSERT_EQ(ProResb64aPacking(&s, &d), kZKNoErr);
        EXPECT_EQ(std::vector<uint8_t>(dest, dest + 6), flip ? row1 : row0);
        EXPECT_EQ(std::vector<uint8_t>(dest + 6, dest + 12), flip ? row0 : row1);
        d.rowBytes[0] = 5;  // rows too short for three samples
        EXPECT_EQ(ProResb64aPacking(&s, &d), kZKErrBadArgument);
        d.rowBytes[0] = 6;
        d.height = 1;
        EXPECT_EQ(ProResb64aPacking(&s, &d), kZKErrFormatMismatch);
    }
}
