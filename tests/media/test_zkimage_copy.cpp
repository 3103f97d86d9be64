#include "media/ZKImageCopy.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "media/ZKImageLayout.h"
#include "evc/ZKResult.h"
#include "TestPacketBundle.h"

namespace {

// A picture whose byte at row r, column c of plane p is p * 64 + r * 8 + c.
struct Picture {
    std::vector<uint8_t> bytes;
    ZKImage_t image{};

    Picture(uint32_t format, int width, int height, int rowBytes, bool alpha, bool bottomUp)
        : bytes(CalcFrameSize(format, width, height, rowBytes, alpha))
    {
        EXPECT_EQ(InitZKImage(&image, static_cast<uint32_t>(bytes.size()), bytes.data(), format, bottomUp, rowBytes,
                              width, height, alpha),
                  kZKNoErr);
    }

    void Fill()
    {
        for (int p = 0; p < 4; ++p) {
            for (uint32_t r = 0; r < Rows(p); ++r)
                for (uint32_t c = 0; c < Stride(p); ++c)
                    Row(p, r)[c] = static_cast<uint8_t>(p * 64 + r * 8 + c);
        }
    }

    uint32_t Rows(int p) const
    {
        if (image.planes[p] == nullptr)
            return 0;
        return (image.colorFormat == 6 && (p == 1 || p == 2)) ? image.height / 2 : image.height;
    }
    uint32_t Stride(int p) const { return image.colorFormat == 6 && p == 2 ? image.rowBytes[1] : image.rowBytes[p]; }
    uint8_t* Row(int p, uint32_t r) { return image.planes[p] + r * Stride(p); }
};

TEST(ZKImageCopy, CopiesRowsInOrderOrReversed)
{
    for (bool flip : {false, true}) {
        SCOPED_TRACE(flip ? "opposite bottom-up flags" : "same bottom-up flags");
        Picture src(1, 2, 3, 0, false, false);
        Picture dst(1, 2, 3, 0, false, flip);
        src.Fill();
        CopyZKImage(&src.image, &dst.image, false);
        for (uint32_t r = 0; r < 3; ++r) {
            const uint32_t from = flip ? 2 - r : r;
            EXPECT_EQ(0, std::memcmp(dst.Row(0, r), src.Row(0, from), 8)) << "row " << r;
        }
    }
}

TEST(ZKImageCopy, Yuv420PlanesAndAlpha)
{
    for (bool flip : {false, true}) {
        SCOPED_TRACE(flip ? "flipped" : "straight");
        Picture src(6, 4, 4, 0, true, false);
        Picture dst(6, 4, 4, 0, true, flip);
        src.Fill();
        CopyZKImage(&src.image, &dst.image, false);
        for (int p : {0, 1, 2, 3}) {
            const uint32_t rows = src.Rows(p);
            ASSERT_GT(rows, 0u);
            for (uint32_t r = 0; r < rows; ++r) {
                const uint32_t from = flip ? rows - 1 - r : r;
                EXPECT_EQ(0, std::memcmp(dst.Row(p, r), src.Row(p, from), src.Stride(p)))
                    << "plane " << p << " row " << r;
            }
        }
    }
}

TEST(ZKImageCopy, NarrowerStrideLimitsEachRow)
{
    Picture src(1, 2, 2, 12, false, false);  // 8 pixel bytes + 4 bytes of padding
    Picture dst(1, 2, 2, 0, false, false);   // 8 bytes per row, tightly packed
    src.Fill();
    CopyZKImage(&src.image, &dst.image, false);
    EXPECT_EQ(0, std::memcmp(dst.Row(0, 0), src.Row(0, 0), 8));
    EXPECT_EQ(0, std::memcmp(dst.Row(0, 1), src.Row(0, 1), 8));
}

TEST(ZKImageCopy, MismatchCopiesOnlyOriginalTime)
{
    auto* bundle = new TestPacketBundle(1);
    Picture src(1, 2, 2, 0, false, false);
    Picture dst(1, 3, 2, 0, false, false);  // width differs
    src.Fill();
    src.image.originalTime = 77;
    src.image.originalTimeScale = 25;
    src.image.dataPackets = bundle;
    CopyZKImage(&src.image, &dst.image, true);
    EXPECT_EQ(dst.image.originalTime, 77u);
    EXPECT_EQ(dst.image.originalTimeScale, 25u);
    EXPECT_EQ(dst.image.dataPackets, nullptr);
    for (uint8_t b : dst.bytes)
        EXPECT_EQ(b, 0);
    bundle->destroy();
}

TEST(ZKImageCopy, MissingFirstPlaneCopiesNothing)
{
    Picture src(1, 2, 2, 0, false, false);
    ZKImage_t dst{};
    ASSERT_EQ(InitZKImage(&dst, 0, nullptr, 1, false, 0, 2, 2, false), kZKNoErr);
    src.image.originalTime = 5;
    CopyZKImage(&src.image, &dst, false);
    EXPECT_EQ(dst.originalTime, 0u);
}

TEST(ZKImageCopy, DataPacketsSharedOrCloned)
{
    const int liveBefore = TestPacketBundle::Live();
    auto* bundle = new TestPacketBundle(1);
    Picture src(1, 2, 2, 0, false, false);
    Picture dst(1, 2, 2, 0, false, false);
    src.image.dataPackets = bundle;

    CopyZKImage(&src.image, &dst.image, false);
    EXPECT_EQ(dst.image.dataPackets, bundle);
    EXPECT_EQ(TestPacketBundle::Live(), liveBefore + 1);

    dst.image.dataPackets = nullptr;
    CopyZKImage(&src.image, &dst.image, true);
    ASSERT_NE(dst.image.dataPackets, nullptr);
    EXPECT_NE(dst.image.dataPackets, bundle);
    EXPECT_EQ(static_cast<TestPacketBundle*>(dst.image.dataPackets)->tag(), 1001u);
    EXPECT_EQ(TestPacketBundle::Live(), liveBefore + 2);
    dst.image.dataPackets->destroy();

    // A deep copy without a source bundle keeps the destination's.
    src.image.dataPackets = nullptr;
    dst.image.dataPackets = bundle;
    CopyZKImage(&src.image, &dst.image, true);
    EXPECT_EQ(dst.image.dataPackets, bundle);
    bundle->destroy();
    EXPECT_EQ(TestPacketBundle::Live(), liveBefore);
}

TEST(ZKImageCopy, FlipTurnsRowsAndFlag)
{
    Picture src(2, 1, 4, 0, false, true);
    Picture dst(2, 1, 4, 0, false, true);
    src.Fill();
    ASSERT_EQ(FlipZKImage(&src.image, &dst.image), kZKNoErr);
    EXPECT_EQ(dst.image.bottomUp, 0u);
    for (uint32_t r = 0; r < 4; ++r)
        EXPECT_EQ(0, std::memcmp(dst.Row(0, r), src.Row(0, 3 - r), 3)) << "row " << r;

    Picture other(2, 1, 5, 0, false, true);
    EXPECT_EQ(FlipZKImage(&src.image, &other.image), kZKErrFormatMismatch);
    Picture otherFormat(0, 1, 4, 0, false, true);
    EXPECT_EQ(FlipZKImage(&src.image, &otherFormat.image), kZKErrFormatMismatch);
    EXPECT_EQ(FlipZKImage(nullptr, &dst.image), kZKErrBadArgument);
}

TEST(ZKImageCopy, ProResb64aPackingSwapsBytes)
{
    for (bool flip : {false, true}) {
        SCOPED_TRACE(flip ? "flipped" : "straight");
        // Two rows of three samples, source stride 4 samples, destination 3.
        const uint8_t srcBytes[16] = {0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0xEE, 0xEE,
                                      0x11, 0x12, 0x13, 0x14, 0x15, 0x16, 0xEE, 0xEE};
        uint8_t source[16];
        std::memcpy(source, srcBytes, sizeof source);
        uint8_t dest[12] = {};
        ZKImage_t s{};
        ZKImage_t d{};
        s.width = 3;
        s.height = 2;
        s.rowBytes[0] = 8;
        s.planes[0] = source;
        d.width = 3;
        d.height = 2;
        d.rowBytes[0] = 6;
        d.planes[0] = dest;
        d.bottomUp = flip ? 1 : 0;
        ASSERT_EQ(ProResb64aPacking(&s, &d), kZKNoErr);
        const uint8_t straight[12] = {0x02, 0x01, 0x04, 0x03, 0x06, 0x05, 0x12, 0x11, 0x14, 0x13, 0x16, 0x15};
        const uint8_t flipped[12] = {0x12, 0x11, 0x14, 0x13, 0x16, 0x15, 0x02, 0x01, 0x04, 0x03, 0x06, 0x05};
        EXPECT_EQ(0, std::memcmp(dest, flip ? flipped : straight, sizeof dest));

        d.rowBytes[0] = 5;  // rows too short for three samples
        EXPECT_EQ(ProResb64aPacking(&s, &d), kZKErrBadArgument);
        d.rowBytes[0] = 6;
        d.height = 1;
        EXPECT_EQ(ProResb64aPacking(&s, &d), kZKErrFormatMismatch);
    }
}

}  // namespace
