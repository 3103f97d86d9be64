#include "media/ZKFourCC.h"

#include <gtest/gtest.h>

#include <cstring>

namespace {

TEST(FourCC, EightCharacterString)
{
    char text[12];
    std::memset(text, 'x', sizeof text);
    ASSERT_TRUE(ZKGetManufactureCodecEightCCString(text, 0x5A4B4920, 0x4B525637));
    EXPECT_STREQ(text, "ZKI KRV7");
    EXPECT_EQ(text[9], 'x');  // nine bytes written, no more
    EXPECT_FALSE(ZKGetManufactureCodecEightCCString(nullptr, 1, 2));
}

TEST(FourCC, Codes)
{
    const struct {
        const char* text;
        bool ok;
        uint32_t manufacturer, codec;
    } cases[] = {
        {"appldvc ", true, 0x6170706C, 0x64766320},
        {"ZKI KRV7", true, 0x5A4B4920, 0x4B525637},
        {"ZKIRV7ProVideoCodec", true, 0x5A4B4920, 0x4B525637},
        {"QAXLVC1 ", true, 0x4D437074, 0x56433120},  // "MCpt", "VC1 "
        {"\xff\x80xyabcd", true, 0xFF807879, 0x61626364},
        {"appldvc", false, 0, 0},
        {"appldvc  ", false, 0, 0},
        {"", false, 0, 0},
    };
    for (const auto& c : cases) {
        uint32_t manufacturer = 0xDEAD;
        uint32_t codec = 0xBEEF;
        EXPECT_EQ(ZKGetFourCCCodes(c.text, &manufacturer, &codec), c.ok) << c.text;
        EXPECT_EQ(manufacturer, c.manufacturer) << c.text;
        EXPECT_EQ(codec, c.codec) << c.text;
    }

    uint32_t manufacturer = 1;
    uint32_t codec = 2;
    EXPECT_FALSE(ZKGetFourCCCodes(nullptr, &manufacturer, &codec));
    EXPECT_EQ(manufacturer, 0u);
    EXPECT_EQ(codec, 0u);
    EXPECT_FALSE(ZKGetFourCCCodes("abcdefgh", nullptr, &codec));
    EXPECT_FALSE(ZKGetFourCCCodes("abcdefgh", &manufacturer, nullptr));
}

TEST(FourCC, RoundTrip)
{
    uint32_t manufacturer = 0;
    uint32_t codec = 0;
    ASSERT_TRUE(ZKGetFourCCCodes("Abc1Xyz2", &manufacturer, &codec));
    char text[9];
    ASSERT_TRUE(ZKGetManufactureCodecEightCCString(text, manufacturer, codec));
    EXPECT_STREQ(text, "Abc1Xyz2");
}

}  // namespace
