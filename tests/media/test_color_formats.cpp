#include "media/ZKColorFormats.h"

#include <gtest/gtest.h>

#include "evc/ZKImage.h"

namespace {

struct FormatRow {
    uint32_t bytesPerPixel;
    uint32_t defaultRowBytesAt100;  // 0: no default
    uint32_t bits;
    bool argb;
    bool planarYuv;
};

// Written from the colour format table, one row per value 0 to 32.
const FormatRow kTable[] = {
    /*  0 */ {3, 300, 8, true, false},
    /*  1 */ {4, 400, 8, true, false},
    /*  2 */ {3, 300, 8, true, false},
    /*  3 */ {4, 400, 8, true, false},
    /*  4 */ {2, 0, 8, true, false},
    /*  5 */ {2, 0, 8, true, false},
    /*  6 */ {1, 100, 8, false, true},
    /*  7 */ {0, 0, 8, false, false},
    /*  8 */ {0, 0, 8, false, false},
    /*  9 */ {2, 200, 8, false, false},
    /* 10 */ {1, 0, 8, false, false},
    /* 11 */ {2, 200, 8, false, false},
    /* 12 */ {0, 0, 8, false, false},
    /* 13 */ {1, 100, 8, false, true},
    /* 14 */ {0, 0, 8, false, true},
    /* 15 */ {0, 0, 8, false, true},
    /* 16 */ {0, 0, 8, false, true},
    /* 17 */ {1, 100, 0, false, false},
    /* 18 */ {8, 800, 10, true, false},
    /* 19 */ {8, 800, 12, true, false},
    /* 20 */ {8, 800, 16, true, false},
    /* 21 */ {8, 800, 10, true, false},
    /* 22 */ {8, 800, 12, true, false},
    /* 23 */ {8, 800, 16, true, false},
    /* 24 */ {2, 200, 10, false, true},
    /* 25 */ {0, 0, 12, false, true},
    /* 26 */ {0, 0, 16, false, true},
    /* 27 */ {0, 0, 10, false, true},
    /* 28 */ {0, 0, 12, false, true},
    /* 29 */ {0, 0, 16, false, true},
    /* 30 */ {4, 384, 10, false, false},  // 128 x ceil(100 / 48)
    /* 31 */ {2, 200, 10, false, true},
    /* 32 */ {2, 200, 10, false, true},
};
static_assert(sizeof kTable / sizeof kTable[0] == eColorFormatCount, "one row per format");

TEST(ColorFormats, PropertiesPerFormat)
{
    for (uint32_t f = 0; f < eColorFormatCount; ++f) {
        SCOPED_TRACE(testing::Message() << "format " << f);
        EXPECT_EQ(GetBytesPerPixel(f), kTable[f].bytesPerPixel);
        EXPECT_EQ(ZKGetDefaultRowBytes(f, 100), kTable[f].defaultRowBytesAt100);
        EXPECT_EQ(ZKGetBitResolution(f), kTable[f].bits);
        EXPECT_EQ(ZKIsARGBFormat(f), kTable[f].argb);
        EXPECT_EQ(ZKIsPlanarYuvFormat(f), kTable[f].planarYuv);
    }
    for (uint32_t f : {33u, 64u, 0xFFFFFFFFu}) {
        EXPECT_EQ(GetBytesPerPixel(f), 0u);
        EXPECT_EQ(ZKGetDefaultRowBytes(f, 100), 0u);
        EXPECT_EQ(ZKGetBitResolution(f), 0u);
        EXPECT_FALSE(ZKIsARGBFormat(f));
        EXPECT_FALSE(ZKIsPlanarYuvFormat(f));
    }
    EXPECT_EQ(ZKGetDefaultRowBytes(30, 48), 128u);
    EXPECT_EQ(ZKGetDefaultRowBytes(30, 49), 256u);
}

TEST(ColorFormats, ConversionsAmongRgbFollowDepth)
{
    // Within the RGB class a conversion exists when it loses no depth, except
    // from the 8-byte formats down to the 3-byte ones.
    for (uint32_t s = 0; s < eColorFormatCount; ++s) {
        for (uint32_t d = 0; d < eColorFormatCount; ++d) {
            if (!ZKIsARGBFormat(s) || !ZKIsARGBFormat(d))
                continue;
            const bool expected = ZKGetBitResolution(s) >= ZKGetBitResolution(d) &&
                                  !(GetBytesPerPixel(s) == 8 && GetBytesPerPixel(d) == 3);
            EXPECT_EQ(ZKCanDoColorConversion(s, d), expected) << s << " -> " << d;
        }
    }
}

TEST(ColorFormats, ConversionsOutsideRgb)
{
    const struct {
        uint32_t source, destination;
        bool possible;
    } cases[] = {
        {6, 10, true},  {6, 8, true},   {6, 4, false},   {6, 13, false}, {13, 1, true},  {13, 3, true},
        {13, 0, false}, {13, 6, false}, {30, 6, true},   {30, 1, false}, {8, 6, true},   {9, 6, true},
        {9, 1, false},  {11, 3, true},  {11, 0, false},  {1, 13, true},  {0, 13, false}, {0, 6, true},
        {18, 30, true}, {23, 32, true}, {4, 6, false},   {20, 0, false}, {24, 6, false}, {31, 6, false},
        {32, 6, false}, {7, 6, false},  {17, 17, false}, {33, 6, false}, {6, 33, false}, {0xFFFFFFFF, 0, false},
    };
    for (const auto& c : cases)
        EXPECT_EQ(ZKCanDoColorConversion(c.source, c.destination), c.possible) << c.source << " -> " << c.destination;

    int possible = 0;
    for (uint32_t s = 0; s < eColorFormatCount; ++s)
        for (uint32_t d = 0; d < eColorFormatCount; ++d)
            possible += ZKCanDoColorConversion(s, d) ? 1 : 0;
    EXPECT_EQ(possible, 153);  // the sum of the conversion table's rows

    EXPECT_TRUE(ZKAreColorFormatsCompatible(24, 24));
    EXPECT_TRUE(ZKAreColorFormatsCompatible(6, 9));
    EXPECT_FALSE(ZKAreColorFormatsCompatible(24, 6));
}

TEST(ColorFormats, ComponentOrder)
{
    EXPECT_TRUE(ZKAreComponentsSwapped(1, 3));
    EXPECT_TRUE(ZKAreComponentsSwapped(18, 21));
    EXPECT_TRUE(ZKAreComponentsSwapped(0, 5));    // same class, same depth
    EXPECT_FALSE(ZKAreComponentsSwapped(1, 18));  // depth differs
    EXPECT_FALSE(ZKAreComponentsSwapped(6, 6));   // not RGB

    const uint32_t forward[] = {1, 18, 19, 20};
    const uint32_t reverse[] = {3, 21, 22, 23};
    for (uint32_t a : forward) {
        for (uint32_t b : reverse) {
            EXPECT_TRUE(ZKGetChangeBitResolutionSwapComponentOrder(a, b)) << a << ", " << b;
            EXPECT_TRUE(ZKGetChangeBitResolutionSwapComponentOrder(b, a)) << b << ", " << a;
        }
    }
    EXPECT_FALSE(ZKGetChangeBitResolutionSwapComponentOrder(1, 18));
    EXPECT_FALSE(ZKGetChangeBitResolutionSwapComponentOrder(3, 21));
    EXPECT_FALSE(ZKGetChangeBitResolutionSwapComponentOrder(0, 2));
}

}  // namespace
