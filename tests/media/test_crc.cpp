#include "media/ZKCrc.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

namespace {

const uint8_t* Bytes(const char* text)
{
    return reinterpret_cast<const uint8_t*>(text);
}

TEST(ZKCrc, SixteenBitCheckValues)
{
    const char* check = "123456789";
    EXPECT_EQ(Calc16BitCRC(Bytes(check), 9, 0xFFFF), 0x29B1);
    EXPECT_EQ(Calc16BitCRC(Bytes(check), 9, 0x0000), 0x31C3);
    EXPECT_EQ(Calc16BitCRC(Bytes(check), 9, 0x1D0F), 0xE5CC);
    // Single bytes from a zero register read the table itself.
    const uint8_t one = 0x01;
    const uint8_t last = 0xFF;
    EXPECT_EQ(Calc16BitCRC(&one, 1, 0), 0x1021);
    EXPECT_EQ(Calc16BitCRC(&last, 1, 0), 0x1EF0);
    // Chaining through the initial value equals one pass.
    const uint16_t head = Calc16BitCRC(Bytes(check), 4, 0xFFFF);
    EXPECT_EQ(Calc16BitCRC(Bytes(check) + 4, 5, head), 0x29B1);
    // Nothing to process returns the initial value.
    EXPECT_EQ(Calc16BitCRC(Bytes(check), 0, 0x1234), 0x1234);
    EXPECT_EQ(Calc16BitCRC(Bytes(check), -5, 0x1234), 0x1234);
    EXPECT_EQ(Calc16BitCRC(nullptr, 9, 0x1234), 0x1234);
}

TEST(ZKCrc, EightBitCheckValues)
{
    const char* check = "123456789";
    EXPECT_EQ(Calc8BitCRC(Bytes(check), 9, 0x00), 0xBC);
    const uint8_t one = 0x01;
    EXPECT_EQ(Calc8BitCRC(&one, 1, 0), 0xD5);
    const uint16_t head = Calc8BitCRC(Bytes(check), 3, 0);
    EXPECT_EQ(Calc8BitCRC(Bytes(check) + 3, 6, head), 0xBC);
    EXPECT_EQ(Calc8BitCRC(Bytes(check), 0, 0x42), 0x42);
}

TEST(ZKCrc, SampleRowsMatchTheirBytes)
{
    // Three rows of four samples, stride six; the two padding samples per row
    // must not take part.
    const int16_t samples[] = {'1', '2', '3', '4', 999, 999, '5', '6', '7',
                               '8', 999, 999, '9', 'a', 'b', 'c', 999, 999};
    const char* bytes = "123456789abc";
    EXPECT_EQ(Calc16BitCRCShort(samples, 4, 3, 6, 0xFFFF), Calc16BitCRC(Bytes(bytes), 12, 0xFFFF));
    EXPECT_EQ(Calc16BitCRCShort(samples, 0, 3, 6, 0x77), 0x77);
    EXPECT_EQ(Calc16BitCRCShort(samples, 4, 0, 6, 0x77), 0x77);
}

}  // namespace
