// Variable-size integers, plain integers, floats, ids and CRC-32: golden bytes at every width.
#include "EbmlTestTypes.h"

#include "ebml/ebmlStdInt.h"

using namespace EbmlTest;

TEST(EbmlStdInt, VsizeAtEveryWidth)
{
    const struct {
        uint64 value, width;  // width 0: the smallest
        Bytes bytes;
    } rows[] = {
        {0, 0, {0x80}},
        {0x7E, 0, {0xFE}},
        {0x7F, 0, {0x40, 0x7F}},  // 0x7F alone would be the 1-byte unknown size
        {200, 0, {0x40, 0xC8}},
        {0x3FFE, 0, {0x7F, 0xFE}},
        {0x3FFF, 0, {0x20, 0x3F, 0xFF}},
        {5, 4, {0x10, 0x00, 0x00, 0x05}},
        {0x0FFFFFFE, 0, {0x1F, 0xFF, 0xFF, 0xFE}},
        {0x0FFFFFFF, 0, {0x08, 0x0F, 0xFF, 0xFF, 0xFF}},
        {1ULL << 35, 0, {0x04, 0x08, 0, 0, 0, 0}},
        {1ULL << 42, 0, {0x02, 0x04, 0, 0, 0, 0, 0}},
        {30, 8, {0x01, 0, 0, 0, 0, 0, 0, 0x1E}},
        {vsizeRange[8], 0, {0x01, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFE}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.value);
        uint8 buf[8];
        const uint64 n = row.width ? vsizeEncode(row.value, buf, row.width) : vsizeEncode(row.value, buf);
        EXPECT_EQ(Bytes(buf, buf + n), row.bytes);
        EXPECT_EQ(row.width ? row.width : vsizeNumBytes(row.value), row.bytes.size());
        uint64 width = 0;
        EXPECT_EQ(vsizeDecode(row.bytes.data(), width), row.value);
        EXPECT_EQ(width, row.bytes.size());
        // From a storage, with a byte behind that must stay unread.
        const Bytes more = Cat({row.bytes, {0x55}});
        ConstMemoryStorage storage(more.data(), more.size());
        EXPECT_EQ(vsizeDecode(storage, width), row.value);
        EXPECT_EQ(storage.absolutePosition(), row.bytes.size());
    }
    // All ones of any width is the unknown size.
    for (unsigned n = 1; n <= 8; ++n) {
        uint8 buf[8];
        vsizeEncode(vsizeUnknown[n], buf, n);
        uint64 width = 0;
        EXPECT_EQ(vsizeDecode(buf, width), uintMax[8]) << n;
        EXPECT_EQ(width, n);
    }
    // A first byte of zero has no width: nothing is read or consumed.
    const Bytes zero = {0x00, 0x80};
    uint64 width = 99;
    vsizeDecode(zero.data(), width);
    EXPECT_EQ(width, 0u);
    ConstMemoryStorage storage(zero.data(), zero.size());
    EXPECT_EQ(vsizeDecode(storage, width), uintMax[8]);
    EXPECT_EQ(storage.absolutePosition(), 0u);
}

TEST(EbmlStdInt, SignedVsize)
{
    const struct {
        int64 value;
        Bytes bytes;
    } rows[] = {{0, {0xBF}}, {-63, {0x80}}, {63, {0xFE}}, {64, {0x60, 0x3F}}, {-64, {0x5F, 0xBF}}};
    for (const auto& row : rows) {
        uint8 buf[8];
        const uint64 n = vsizeSignedEncode(row.value, buf);
        EXPECT_EQ(Bytes(buf, buf + n), row.bytes) << row.value;
        uint64 width = 0;
        EXPECT_EQ(vsizeSignedDecode(buf, width), row.value);
        EXPECT_EQ(width, n);
    }
    EXPECT_EQ(vsizeSignedNumBytes(-int64(vsizeHalfRange[7]) - 1), 8u);
}

TEST(EbmlStdInt, PlainIntegersAndFloats)
{
    const std::pair<uint64, uint64> unsignedRows[] = {
        {0, 1}, {0xFF, 1}, {0x100, 2}, {0x1A45DFA3, 4}, {0xFFFFFFFFFFULL, 5}, {~0ULL, 8}};
    for (const auto& row : unsignedRows)
        EXPECT_EQ(uintNumBytes(row.first), row.second) << row.first;
    const std::pair<int64, uint64> signedRows[] = {
        {-128, 1},           {127, 1},      {128, 2}, {-129, 2}, {-(int64(1) << 31), 4}, {int64(1) << 31, 5},
        {int64(1) << 55, 8}, {INT64_MIN, 8}};
    for (const auto& row : signedRows)
        EXPECT_EQ(intNumBytes(row.first), row.second) << row.first;

    uint8 buf[8];
    EXPECT_EQ(uintEncode(0x1A45DFA3, buf), 4u);
    EXPECT_EQ(Bytes(buf, buf + 4), (Bytes{0x1A, 0x45, 0xDF, 0xA3}));
    EXPECT_EQ(uintDecode(buf, 4), 0x1A45DFA3u);
    EXPECT_EQ(floatEncode(1.0f, buf), 4u);
    EXPECT_EQ(Bytes(buf, buf + 4), (Bytes{0x3F, 0x80, 0x00, 0x00}));
    EXPECT_EQ(floatDecode(buf), 1.0f);
    EXPECT_EQ(doubleEncode(-2.5, buf), 8u);
    EXPECT_EQ(Bytes(buf, buf + 8), (Bytes{0xC0, 0x04, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(doubleDecode(buf), -2.5);
}

TEST(EbmlStdInt, IdsFromStorage)
{
    const struct {
        Bytes bytes;
        uint64 id, consumed;
    } rows[] = {
        {{0x1A, 0x45, 0xDF, 0xA3, 0x9E}, 0x1A45DFA3, 4},
        {{0xBF, 0x84}, 0xBF, 1},
        {{0x42, 0x86}, 0x4286, 2},
        {{0x08, 0x01, 0x02, 0x03, 0x04}, 0, 0},  // 5-byte id: too long
        {{0x00, 0x81}, 0, 0},
        {{0x1A, 0x45}, 0, 0},  // cut short
        {{}, 0, 0},
    };
    for (const auto& row : rows) {
        ConstMemoryStorage storage(row.bytes.data(), row.bytes.size());
        EXPECT_EQ(loadEbmlId(storage), row.id) << row.id;
        EXPECT_EQ(storage.absolutePosition(), row.consumed) << row.id;
    }
}

TEST(EbmlStdInt, Crc32CheckValueInPieces)
{
    Crc32 crc;
    EXPECT_EQ(crc.checksum(), 0u);
    crc.compute("1234", 4);
    EXPECT_NE(crc.checksum(), 0xCBF43926u);
    crc.compute("56789", 5);  // checksum() did not end the computation
    EXPECT_EQ(crc.checksum(), 0xCBF43926u);
}
