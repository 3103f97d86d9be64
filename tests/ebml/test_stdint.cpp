// Variable-size integers at every width and ids: golden bytes. CRC-32 is checked where receipts
// compute it.
#include "EbmlTestTypes.h"

#include "ebml/ebmlStdInt.h"

using namespace EbmlTest;

TEST(EbmlStdInt, VsizeAtEveryWidth)
{
    const struct {
        uint64 value, width;  // width 0: the smallest
        const char* hex;
    } rows[] = {
        {0, 0, "80"},
        {0x7E, 0, "FE"},
        {0x7F, 0, "407F"},  // 0x7F alone would be the 1-byte unknown size
        {0x3FFE, 0, "7FFE"},
        {0x3FFF, 0, "203FFF"},
        {5, 4, "10000005"},
        {0x0FFFFFFE, 0, "1FFFFFFE"},
        {0x0FFFFFFF, 0, "080FFFFFFF"},
        {1ULL << 35, 0, "040800000000"},
        {1ULL << 42, 0, "02040000000000"},
        {30, 8, "010000000000001E"},
        {vsizeRange[8], 0, "01FFFFFFFFFFFFFE"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.hex);
        const Bytes bytes = Hex(row.hex);
        uint8 buf[8];
        const uint64 n = row.width ? vsizeEncode(row.value, buf, row.width) : vsizeEncode(row.value, buf);
        EXPECT_EQ(Bytes(buf, buf + n), bytes);
        EXPECT_EQ(row.width ? row.width : vsizeNumBytes(row.value), bytes.size());
        const Bytes more = Cat({bytes, {0x55}});  // with a byte behind that must stay unread
        ConstMemoryStorage storage(more.data(), more.size());
        uint64 width = 0;
        EXPECT_EQ(vsizeDecode(storage, width), row.value);
        EXPECT_EQ(width, bytes.size());
        EXPECT_EQ(storage.absolutePosition(), bytes.size());
    }
    for (unsigned n = 1; n <= 8; ++n) {  // all ones of any width is the unknown size
        uint8 buf[8];
        vsizeEncode(vsizeUnknown[n], buf, n);
        uint64 width = 0;
        EXPECT_EQ(vsizeDecode(buf, width), uintMax[8]) << n;
        EXPECT_EQ(width, n);
    }
    const Bytes zero = {0x00, 0x80};  // no width: nothing read or consumed
    ConstMemoryStorage storage(zero.data(), zero.size());
    uint64 width = 99;
    EXPECT_EQ(vsizeDecode(storage, width), uintMax[8]);
    EXPECT_EQ(width, 0u);
    EXPECT_EQ(storage.absolutePosition(), 0u);
}

TEST(EbmlStdInt, Ids)
{
    const struct {
        const char* hex;
        uint64 id, consumed;
    } rows[] = {
        {"1A45DFA39E", 0x1A45DFA3, 4},
        {"BF84", 0xBF, 1},
        {"4286", 0x4286, 2},
        {"0801020304", 0, 0},  // 5-byte id: too long
        {"0081", 0, 0},
        {"1A45", 0, 0},  // cut short
        {"", 0, 0},
    };
    for (const auto& row : rows) {
        const Bytes bytes = Hex(row.hex);
        ConstMemoryStorage storage(bytes.data(), bytes.size());
        EXPECT_EQ(loadEbmlId(storage), row.id) << row.hex;
        EXPECT_EQ(storage.absolutePosition(), row.consumed) << row.hex;
    }
}
