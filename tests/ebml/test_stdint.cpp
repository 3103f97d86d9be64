#include "ebml/ebmlMemoryStorage.h"
#include "ebml/ebmlStdInt.h"

#include <gtest/gtest.h>

#include <cstring>
#include <sstream>
#include <vector>

using namespace Ebml;

namespace {

typedef std::vector<uint8> Bytes;

Bytes encodeVsize(uint64 v, uint64 width = 0)
{
    uint8 buf[8];
    const uint64 n = width ? vsizeEncode(v, buf, width) : vsizeEncode(v, buf);
    return Bytes(buf, buf + n);
}

}  // namespace

TEST(EbmlStdInt, TablesMatchTheirFormulas)
{
    for (unsigned n = 1; n <= 8; ++n) {
        const uint64 byteMax = n == 8 ? ~0ULL : (1ULL << (8 * n)) - 1;
        EXPECT_EQ(uintMax[n], byteMax) << n;
        EXPECT_EQ(vsizeUnknown[n], (1ULL << (7 * n)) - 1) << n;
        EXPECT_EQ(vsizeRange[n], (1ULL << (7 * n)) - 2) << n;
        EXPECT_EQ(vsizeHalfRange[n], (1ULL << (7 * n - 1)) - 1) << n;
    }
    EXPECT_EQ(uintMax[0] | vsizeUnknown[0] | vsizeRange[0] | vsizeHalfRange[0], 0u);
}

TEST(EbmlStdInt, VsizeEncodingsAreByteExact)
{
    struct Case {
        uint64 value;
        uint64 width;  // 0: smallest
        Bytes bytes;
    } cases[] = {
        {0, 0, {0x80}},
        {0x7E, 0, {0xFE}},
        {0x7F, 0, {0x40, 0x7F}},  // 0x7F alone would be the 1-byte unknown size
        {200, 0, {0x40, 0xC8}},
        {0x3FFE, 0, {0x7F, 0xFE}},
        {0x3FFF, 0, {0x20, 0x3F, 0xFF}},
        {5, 4, {0x10, 0x00, 0x00, 0x05}},
        {30, 8, {0x01, 0, 0, 0, 0, 0, 0, 0x1E}},
        {0xFFFFFFFFFFFFFFULL, 8, {0x01, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}},
        {vsizeRange[8], 0, {0x01, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFE}},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(encodeVsize(c.value, c.width), c.bytes) << c.value;
        uint64 width = 0;
        const uint64 decoded = vsizeDecode(c.bytes.data(), width);
        EXPECT_EQ(width, c.bytes.size()) << c.value;
        if (c.value == vsizeUnknown[8])
            EXPECT_EQ(decoded, uintMax[8]);
        else
            EXPECT_EQ(decoded, c.value);
    }
    EXPECT_EQ(vsizeNumBytes(0x7E), 1u);
    EXPECT_EQ(vsizeNumBytes(0x7F), 2u);
}

TEST(EbmlStdInt, AllOnesOfAnyWidthIsUnknownSize)
{
    for (unsigned n = 1; n <= 8; ++n) {
        uint8 buf[8];
        vsizeEncode(vsizeUnknown[n], buf, n);
        uint64 width = 0;
        EXPECT_EQ(vsizeDecode(buf, width), uintMax[8]) << n;
        EXPECT_EQ(width, n);
    }
    const uint8 zero[8] = {0x00, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
    uint64 width = 99;
    vsizeDecode(zero, width);
    EXPECT_EQ(width, 0u);  // no width, and nothing read past the first byte
}

TEST(EbmlStdInt, SignedVsize)
{
    struct Case {
        int64 value;
        Bytes bytes;
    } cases[] = {
        {0, {0xBF}}, {-63, {0x80}}, {63, {0xFE}}, {64, {0x60, 0x3F}}, {-64, {0x5F, 0xBF}},
    };
    for (const Case& c : cases) {
        uint8 buf[8];
        const uint64 n = vsizeSignedEncode(c.value, buf);
        EXPECT_EQ(Bytes(buf, buf + n), c.bytes) << c.value;
        uint64 width = 0;
        EXPECT_EQ(vsizeSignedDecode(buf, width), c.value);
        EXPECT_EQ(width, n);
    }
    EXPECT_EQ(vsizeSignedNumBytes(-int64(vsizeHalfRange[7]) - 1), 8u);
}

TEST(EbmlStdInt, PlainIntegerWidths)
{
    const std::pair<uint64, uint64> unsignedCases[] = {
        {0, 1},        {0xFF, 1},       {0x100, 2},           {0xBF, 1},
        {0xFFFFFF, 3}, {0x1A45DFA3, 4}, {0xFFFFFFFFFFULL, 5}, {0x1000000000000ULL, 7},
        {~0ULL, 8}};
    for (const auto& c : unsignedCases)
        EXPECT_EQ(uintNumBytes(c.first), c.second) << c.first;
    const std::pair<int64, uint64> signedCases[] = {{-128, 1},
                                                    {127, 1},
                                                    {128, 2},
                                                    {-129, 2},
                                                    {-32768, 2},
                                                    {32768, 3},
                                                    {-(int64(1) << 31), 4},
                                                    {int64(1) << 31, 5},
                                                    {(int64(1) << 55) - 1, 7},
                                                    {int64(1) << 55, 8},
                                                    {INT64_MIN, 8}};
    for (const auto& c : signedCases)
        EXPECT_EQ(intNumBytes(c.first), c.second) << c.first;

    uint8 buf[8];
    EXPECT_EQ(uintEncode(0x1A45DFA3, buf), 4u);
    EXPECT_EQ(Bytes(buf, buf + 4), (Bytes{0x1A, 0x45, 0xDF, 0xA3}));
    EXPECT_EQ(uintDecode(buf, 4), 0x1A45DFA3u);
    EXPECT_EQ(uintDecode(buf, 0), 0u);
}

TEST(EbmlStdInt, FloatsAreBigEndianBitPatterns)
{
    uint8 buf[8];
    EXPECT_EQ(floatEncode(1.0f, buf), 4u);
    EXPECT_EQ(Bytes(buf, buf + 4), (Bytes{0x3F, 0x80, 0x00, 0x00}));
    EXPECT_EQ(floatDecode(buf), 1.0f);
    EXPECT_EQ(doubleEncode(-2.5, buf), 8u);
    EXPECT_EQ(Bytes(buf, buf + 8), (Bytes{0xC0, 0x04, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(doubleDecode(buf), -2.5);
}

TEST(EbmlStdInt, LoadFromStorage)
{
    struct Case {
        Bytes bytes;
        uint64 id;
        uint64 consumed;
    } cases[] = {
        {{0x1A, 0x45, 0xDF, 0xA3, 0x9E}, 0x1A45DFA3, 4},
        {{0xBF, 0x84}, 0xBF, 1},
        {{0x42, 0x86}, 0x4286, 2},
        {{0x08, 0x01, 0x02, 0x03, 0x04}, 0, 0},  // 5-byte id: too long
        {{0x00, 0x81}, 0, 0},
        {{0x1A, 0x45}, 0, 0},  // cut short
        {{}, 0, 0},
    };
    for (const Case& c : cases) {
        ConstMemoryStorage storage(c.bytes.data(), c.bytes.size());
        EXPECT_EQ(loadEbmlId(storage), c.id);
        EXPECT_EQ(storage.absolutePosition(), c.consumed);
    }

    const uint8 size8[] = {0x01, 0, 0, 0, 0, 0, 0, 0x1E, 0x55};
    ConstMemoryStorage storage(size8, sizeof size8);
    uint64 width = 0;
    EXPECT_EQ(vsizeDecode(storage, width), 30u);
    EXPECT_EQ(width, 8u);
    EXPECT_EQ(storage.absolutePosition(), 8u);

    const uint8 bad[] = {0x00, 0x80};
    ConstMemoryStorage badStorage(bad, sizeof bad);
    EXPECT_EQ(vsizeDecode(badStorage, width), uintMax[8]);
    EXPECT_EQ(width, 0u);
    EXPECT_EQ(badStorage.absolutePosition(), 0u);
}

TEST(EbmlStdInt, Crc32CheckValues)
{
    Crc32 empty;
    EXPECT_EQ(empty.checksum(), 0u);
    Crc32 whole;
    whole.compute("123456789", 9);
    EXPECT_EQ(whole.checksum(), 0xCBF43926u);
    Crc32 pieces;
    pieces.compute("1234", 4);
    EXPECT_NE(pieces.checksum(), 0xCBF43926u);
    pieces.compute("56789", 5);  // checksum() did not end the computation
    EXPECT_EQ(pieces.checksum(), 0xCBF43926u);
}

TEST(EbmlStdInt, DiagnosticsHelpers)
{
    std::ostringstream os;
    const uint8 bytes[] = {0x0A, 0xBF, 0x00};
    serialize(os, bytes, sizeof bytes) << 255;
    EXPECT_EQ(os.str(), "0ABF00255");

    std::ostringstream spaces;
    {
        Indent::More more;
        Indent::More evenMore;
        spaces << indent(8) << "|";
    }
    EXPECT_EQ(spaces.str(), std::string(10, ' ') + "|");
    EXPECT_EQ(Indent::depth_, 0u);
}

TEST(EbmlStdInt, UniqueIdsFitIn57Bits)
{
    bool differ = false;
    const uint64 first = createUID();
    for (int i = 0; i < 16; ++i) {
        const uint64 id = createUID();
        EXPECT_LT(id, 1ULL << 57);
        differ = differ || id != first;
    }
    EXPECT_TRUE(differ);
}
