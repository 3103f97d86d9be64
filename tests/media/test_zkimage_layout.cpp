#include "media/ZKImageLayout.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "evc/ZKResult.h"

namespace {

TEST(ZKImageLayout, CalcFrameSize)
{
    const struct {
        uint32_t format, width, height, rowBytes;
        bool alpha;
        uint32_t expected;
    } cases[] = {
        {6, 1920, 1080, 0, false, 3110400},
        {6, 1920, 1080, 0, true, 5184000},
        {6, 5, 3, 0, false, 22},   // 15 + 15/2, truncated
        {6, 8, 4, 10, false, 60},  // given row bytes win
        {13, 4, 2, 0, false, 24},
        {13, 4, 2, 0, true, 32},
        {24, 4, 2, 0, false, 48},
        {24, 4, 2, 0, true, 48},  // no alpha plane for 24
        {31, 4, 2, 0, false, 24},
        {31, 4, 2, 0, true, 24},
        {32, 4, 2, 0, false, 32},
        {30, 1920, 1080, 0, false, 5529600},
        {30, 1920, 1080, 7777, false, 5529600},  // row bytes ignored
        {30, 1921, 1080, 0, false, 5667840},     // 41 groups of 48
        {30, 48, 1, 0, false, 128},
        {30, 49, 1, 0, false, 256},
        {17, 1920, 1080, 1920, true, 0},
        {0, 3, 2, 0, false, 18},
        {1, 3, 2, 0, false, 24},
        {1, 3, 2, 16, false, 32},
        {18, 2, 2, 0, true, 32},
        {9, 4, 4, 0, false, 32},
        {7, 4, 4, 0, false, 0},  // no bytes per pixel to derive rows from
        {7, 4, 4, 10, false, 40},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(CalcFrameSize(c.format, c.width, c.height, c.rowBytes, c.alpha), c.expected)
            << "format " << c.format << " " << c.width << "x" << c.height << " R=" << c.rowBytes
            << " alpha=" << c.alpha;
    }

    ZKImage_t image{};
    image.colorFormat = 6;
    image.width = 1920;
    image.height = 1080;
    image.rowBytes[0] = 2048;
    EXPECT_EQ(CalcFrameSize(image, false), 2048u * 1080 * 3 / 2);
    EXPECT_EQ(CalcFrameSize(image, true), 2048u * 1080 * 5 / 2);
}

constexpr long kAbsent = -1;

struct LayoutCase {
    uint32_t format;
    int width, height, rowBytes;
    bool alpha;
    uint32_t rowBytesOut[4];
    long planeOffset[4];  // from the data pointer; kAbsent for a null plane
};

const LayoutCase kLayouts[] = {
    {6, 8, 4, 0, false, {8, 4, 0, 0}, {0, 32, 40, kAbsent}},
    {6, 8, 4, 0, true, {8, 4, 0, 8}, {0, 32, 40, 48}},
    {6, 8, 4, 10, true, {10, 5, 0, 10}, {0, 40, 50, 60}},
    {6, 5, 3, 0, true, {5, 2, 0, 5}, {0, 15, 17, 22}},
    {31, 8, 4, 0, true, {16, 8, 0, 0}, {0, 64, 80, kAbsent}},  // never an alpha plane
    {32, 8, 4, 0, false, {16, 8, 8, 0}, {0, 64, 96, kAbsent}},
    {13, 8, 4, 0, true, {8, 8, 8, 0}, {0, 32, 64, kAbsent}},  // alpha asked, none set
    {24, 8, 4, 0, false, {16, 16, 16, 0}, {0, 64, 128, kAbsent}},
    {30, 50, 2, 0, false, {256, 0, 0, 0}, {0, kAbsent, kAbsent, kAbsent}},
    {1, 8, 4, 0, true, {32, 0, 0, 0}, {0, kAbsent, kAbsent, kAbsent}},
    {2, 8, 4, 0, false, {24, 0, 0, 0}, {0, kAbsent, kAbsent, kAbsent}},
    {11, 8, 4, 0, false, {16, 0, 0, 0}, {0, kAbsent, kAbsent, kAbsent}},
    {17, 8, 4, 0, false, {8, 0, 0, 0}, {0, kAbsent, kAbsent, kAbsent}},
    {23, 8, 4, 0, false, {64, 0, 0, 0}, {0, kAbsent, kAbsent, kAbsent}},
};

ZKImage_t Garbage()
{
    ZKImage_t image;
    std::memset(&image, 0xA5, sizeof image);
    return image;
}

void ExpectPlanes(const ZKImage_t& image, const uint8_t* base, const long (&offsets)[4])
{
    for (int i = 0; i < 4; ++i) {
        if (offsets[i] == kAbsent)
            EXPECT_EQ(image.planes[i], nullptr) << "plane " << i;
        else
            EXPECT_EQ(image.planes[i], base + offsets[i]) << "plane " << i;
    }
}

void ExpectTimes(const ZKImage_t& image, uint64_t time, uint64_t timeScale, uint64_t originalTime,
                 uint64_t originalTimeScale, uint32_t frameWithinSecond)
{
    EXPECT_EQ(image.time, time);
    EXPECT_EQ(image.timeScale, timeScale);
    EXPECT_EQ(image.originalTime, originalTime);
    EXPECT_EQ(image.originalTimeScale, originalTimeScale);
    EXPECT_EQ(image.originalFrameWithinSecond, frameWithinSecond);
}

TEST(ZKImageLayout, InitPlaneLayouts)
{
    std::vector<uint8_t> buffer(4096);
    uint8_t* const base = buffer.data();
    for (const LayoutCase& c : kLayouts) {
        SCOPED_TRACE(testing::Message() << "format " << c.format << " " << c.width << "x" << c.height
                                        << " R=" << c.rowBytes << " alpha=" << c.alpha);
        ZKImage_t image = Garbage();
        ASSERT_EQ(InitZKImage(&image, 4096, base, c.format, true, c.rowBytes, c.width, c.height, c.alpha), kZKNoErr);
        for (int i = 0; i < 4; ++i)
            EXPECT_EQ(image.rowBytes[i], c.rowBytesOut[i]) << "row bytes " << i;
        ExpectPlanes(image, base, c.planeOffset);
        EXPECT_EQ(image.colorFormat, c.format);
        EXPECT_EQ(image.colorRange, 1u);
        EXPECT_EQ(image.width, static_cast<uint32_t>(c.width));
        EXPECT_EQ(image.height, static_cast<uint32_t>(c.height));
        EXPECT_EQ(image.bottomUp, 1u);
        EXPECT_EQ(image.dataSize, 4096u);
        EXPECT_EQ(image.dataPackets, nullptr);
        EXPECT_EQ(image.time, 0u);
        EXPECT_EQ(image.timeScale, 1u);
        // The original time fields are not the base form's business.
        EXPECT_EQ(image.originalTime, 0xA5A5A5A5A5A5A5A5ull);
        EXPECT_EQ(image.originalFrameWithinSecond, 0xA5A5A5A5u);

        // Every plane ends inside the frame size the same geometry reports.
        if (c.format == 17)
            continue;  // a format without pixels has frame size 0
        const long size = CalcFrameSize(image, c.alpha);
        const bool halfHeightChroma = c.format == 6 || c.format == 31;
        for (int i = 0; i < 4; ++i) {
            if (image.planes[i] == nullptr)
                continue;
            const bool chroma = i == 1 || i == 2;
            const long rows = chroma && halfHeightChroma ? c.height / 2 : c.height;
            const long stride = i == 2 && halfHeightChroma ? image.rowBytes[1] : image.rowBytes[i];
            EXPECT_LE(image.planes[i] - base + rows * stride, size) << "plane " << i;
        }
    }
}

TEST(ZKImageLayout, InitFullHdYuv420)
{
    std::vector<uint8_t> buffer(CalcFrameSize(6, 1920, 1080, 0, false));
    ZKImage_t image{};
    ASSERT_EQ(InitZKImage(&image, static_cast<uint32_t>(buffer.size()), buffer.data(), 6, false, 1920, 1080, false),
              kZKNoErr);
    EXPECT_EQ(image.rowBytes[0], 1920u);
    EXPECT_EQ(image.rowBytes[1], 960u);
    EXPECT_EQ(image.rowBytes[2], 0u);
    EXPECT_EQ(image.planes[1], buffer.data() + 2073600);
    EXPECT_EQ(image.planes[2], buffer.data() + 2073600 + 518400);
}

TEST(ZKImageLayout, InitWithoutDataLeavesPlanesNull)
{
    ZKImage_t image = Garbage();
    ASSERT_EQ(InitZKImage(&image, 0, nullptr, 6, false, 0, 16, 16, true), kZKNoErr);
    for (uint8_t* plane : image.planes)
        EXPECT_EQ(plane, nullptr);
    EXPECT_EQ(image.rowBytes[0], 16u);
    EXPECT_EQ(image.rowBytes[1], 8u);
}

TEST(ZKImageLayout, InitRefusesFormatsWithoutLayout)
{
    uint8_t data[64];
    const uint32_t refused[] = {4, 5, 7, 8, 10, 12, 14, 15, 16, 25, 26, 27, 28, 29, 33, 1000};
    for (uint32_t format : refused) {
        ZKImage_t image = Garbage();
        const ZKImage_t before = image;
        EXPECT_EQ(InitZKImage(&image, sizeof data, data, format, false, 0, 4, 4, false), kZKErrBadArgument)
            << "format " << format;
        EXPECT_EQ(0, std::memcmp(&image, &before, sizeof image)) << "format " << format;
    }
    ZKImage_t image = Garbage();
    EXPECT_EQ(InitZKImage(&image, sizeof data, data, 6, false, 0, -4, 4, false), kZKErrBadArgument);
    EXPECT_EQ(InitZKImage(&image, sizeof data, data, 6, false, 0, 4, -4, false), kZKErrBadArgument);
    EXPECT_EQ(InitZKImage(&image, sizeof data, data, 6, false, -1, 4, 4, false), kZKErrBadArgument);
    EXPECT_EQ(InitZKImage(nullptr, sizeof data, data, 6, false, 0, 4, 4, false), kZKErrBadArgument);
}

TEST(ZKImageLayout, InitOverloadsSetTimesAndRange)
{
    uint8_t data[256];
    ZKImage_t image = Garbage();

    ASSERT_EQ(InitZKImage(&image, sizeof data, data, 1, false, 0, 4, 4, false, 42, 90000), kZKNoErr);
    ExpectTimes(image, 42, 90000, 0, 1, 0);
    EXPECT_EQ(image.colorRange, 1u);

    ASSERT_EQ(InitZKImage(&image, sizeof data, data, 1, false, 0, 4, 4, false, 1, 2, 3, 4, 5), kZKNoErr);
    ExpectTimes(image, 1, 2, 3, 4, 5);

    ASSERT_EQ(InitZKImage(&image, sizeof data, data, 1, 7u, false, 0, 4, 4, false, 8, 9), kZKNoErr);
    EXPECT_EQ(image.colorRange, 7u);
    ExpectTimes(image, 8, 9, 0, 1, 0);

    ASSERT_EQ(InitZKImage(&image, sizeof data, data, 1, 3u, true, 20, 4, 4, false, 10, 11, 12, 13, 14), kZKNoErr);
    EXPECT_EQ(image.colorRange, 3u);
    EXPECT_EQ(image.rowBytes[0], 20u);
    ExpectTimes(image, 10, 11, 12, 13, 14);

    // The forms without row bytes take the default.
    ASSERT_EQ(InitZKImage(&image, sizeof data, data, 1, false, 4, 4, false, 15, 16), kZKNoErr);
    EXPECT_EQ(image.rowBytes[0], 16u);
    ExpectTimes(image, 15, 16, 0, 1, 0);
    ASSERT_EQ(InitZKImage(&image, sizeof data, data, 1, false, 5, 4, false, 1, 2, 3, 4, 5), kZKNoErr);
    EXPECT_EQ(image.rowBytes[0], 20u);
    ExpectTimes(image, 1, 2, 3, 4, 5);

    // A refused format leaves the time fields alone too.
    ZKImage_t before = image;
    EXPECT_EQ(InitZKImage(&image, sizeof data, data, 4, 1u, false, 0, 4, 4, false, 1, 2), kZKErrBadArgument);
    EXPECT_EQ(0, std::memcmp(&image, &before, sizeof image));
}

TEST(ZKImageLayout, ReplaceYUVImageKeepsTheInitLayout)
{
    std::vector<uint8_t> first(4096);
    std::vector<uint8_t> second(4096);
    for (const LayoutCase& c : kLayouts) {
        if (c.format != 6 && c.format != 13 && c.format != 24 && c.format != 31 && c.format != 32)
            continue;
        SCOPED_TRACE(testing::Message() << "format " << c.format << " alpha=" << c.alpha);
        ZKImage_t image{};
        ASSERT_EQ(InitZKImage(&image, 4096, first.data(), c.format, false, c.rowBytes, c.width, c.height, c.alpha),
                  kZKNoErr);
        ReplaceYUVImage(&image, second.data());
        ExpectPlanes(image, second.data(), c.planeOffset);
    }
}

TEST(ZKImageLayout, ReplaceYUVImageOtherFormats)
{
    uint8_t a[64];
    uint8_t b[64];
    ZKImage_t image{};
    image.colorFormat = 15;  // planar without an InitZKImage layout: full planes by row bytes 1
    image.height = 2;
    image.rowBytes[0] = 4;
    image.rowBytes[1] = 4;
    ReplaceYUVImage(&image, b);
    EXPECT_EQ(image.planes[0], b);
    EXPECT_EQ(image.planes[1], b + 8);
    EXPECT_EQ(image.planes[2], b + 16);

    ASSERT_EQ(InitZKImage(&image, sizeof a, a, 1, false, 0, 2, 2, false), kZKNoErr);
    ReplaceYUVImage(&image, b);  // not planar: untouched
    EXPECT_EQ(image.planes[0], a);

    ASSERT_EQ(InitZKImage(&image, sizeof a, a, 6, false, 0, 4, 4, true), kZKNoErr);
    ReplaceYUVImage(&image, nullptr);
    for (uint8_t* plane : image.planes)
        EXPECT_EQ(plane, nullptr);
    ReplaceYUVImage(nullptr, b);  // harmless
}

}  // namespace
