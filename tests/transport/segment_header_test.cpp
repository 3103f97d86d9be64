#include "transport/TZKSegmentHeader.h"

#include <gtest/gtest.h>

#include <cstring>

TEST(TZKSegmentHeader, EncodesThreeLittleEndianNumbers)
{
    TZKSegmentHeader header;
    header.start = 0x0102030405060708ull;
    header.duration = 90000;  // 0x15F90
    header.timeScale = 0xFFFFFFFFFFFFFFFEull;
    uint8_t bytes[TZKSegmentHeader::kSize];
    header.encode(bytes);

    const uint8_t expected[TZKSegmentHeader::kSize] = {
        0x08, 0x07, 0x06, 0x05, 0x04, 0x03, 0x02, 0x01,  // start
        0x90, 0x5F, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00,  // duration
        0xFE, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF,  // time scale
    };
    EXPECT_EQ(0, std::memcmp(bytes, expected, sizeof expected));

    const TZKSegmentHeader back = TZKSegmentHeader::decode(bytes);
    EXPECT_EQ(back.start, header.start);
    EXPECT_EQ(back.duration, header.duration);
    EXPECT_EQ(back.timeScale, header.timeScale);
}
