// The plug-in records byte for byte, and the tables behind them: colour formats, audio formats and
// channel modes, eight-character codes, CRCs and standard frame rates.
#include "evc/ZKImage.h"

#include "MediaTestSupport.h"
#include "media/ZKAudio.h"
#include "media/ZKColorFormats.h"
#include "media/ZKCrc.h"
#include "media/ZKFourCC.h"
#include "media/ZKFrameRates.h"
#include "media/ZKUtils.h"

#include <cstring>
#include <numeric>

using evctest::Bytes;

namespace {

// The value whose little-endian bytes are at, at + 1, ...: a field written with it shows its
// offset and width in the record's bytes.
template <typename T>
T Seq(std::size_t at)
{
    uint64_t v = 0;
    for (std::size_t i = sizeof(T); i-- > 0;)
        v = v << 8 | uint8_t(at + i);
    return T(v);
}
template <typename T>
T* Ptr(std::size_t at)
{
    return reinterpret_cast<T*>(Seq<uintptr_t>(at));
}
// 0, 1, 2, ... with the padding ranges left zero.
Bytes Offsets(std::size_t size, std::initializer_list<std::pair<std::size_t, std::size_t>> padding)
{
    Bytes bytes(size);
    std::iota(bytes.begin(), bytes.end(), 0);
    for (const auto& gap : padding)
        std::fill(bytes.begin() + long(gap.first), bytes.begin() + long(gap.second), 0);
    return bytes;
}

}  // namespace

TEST(ZKRecords, FieldsAtTheirOffsetsLittleEndian)
{
    ZKEncImage_t enc;
    std::memset(&enc, 0, sizeof enc);
    ZKImage_t& image = enc.image;
    image.colorFormat = Seq<uint32_t>(0);
    image.colorRange = Seq<uint32_t>(4);
    image.width = Seq<uint32_t>(8);
    image.height = Seq<uint32_t>(12);
    image.bottomUp = Seq<uint32_t>(16);
    for (int p = 0; p < 4; ++p) {
        image.rowBytes[p] = Seq<uint32_t>(20 + 4 * p);
        image.planes[p] = Ptr<uint8_t>(40 + 8 * p);
    }
    image.time = Seq<uint64_t>(72);
    image.timeScale = Seq<uint64_t>(80);
    image.originalTime = Seq<uint64_t>(88);
    image.originalTimeScale = Seq<uint64_t>(96);
    image.originalFrameWithinSecond = Seq<uint32_t>(104);
    image.dataSize = Seq<uint32_t>(108);
    image.dataPackets = Ptr<IPacketBundle>(112);
    enc.descriptors = Ptr<IPacketBundle>(120);
    enc.streamValue = Seq<uint64_t>(128);
    enc.streamFlags = Seq<uint32_t>(136);
    EXPECT_EQ(evctest::BytesOf(enc), Offsets(144, {{36, 40}, {140, 144}}));

    ZKEncAudio_t audio;
    std::memset(&audio, 0, sizeof audio);
    audio.audio.time = Seq<uint64_t>(0);
    audio.audio.timeScale = Seq<uint64_t>(8);
    audio.audio.duration = Seq<uint64_t>(16);
    audio.audio.format = Seq<uint32_t>(24);
    audio.audio.channels = Seq<uint16_t>(28);
    audio.audio.sampleSize = Seq<uint16_t>(30);
    audio.audio.sampleRate = Seq<uint32_t>(32);
    audio.audio.numberSamples = Seq<uint32_t>(36);
    audio.audio.dataSize = Seq<uint32_t>(40);
    audio.audio.trackIndex = Seq<uint32_t>(44);
    audio.audio.data = Ptr<uint8_t>(48);
    audio.descriptors = Ptr<IPacketBundle>(56);
    audio.dataPackets = Ptr<IPacketBundle>(64);
    EXPECT_EQ(evctest::BytesOf(audio), Offsets(72, {}));
    EXPECT_EQ(sizeof(ZKImage_t), 120u);
    EXPECT_EQ(sizeof(ZKAudio_t), 56u);
}

TEST(ZKRecords, ColorFormatProperties)
{
    const struct {
        uint32_t bytesPerPixel, rowBytesAt100, bits;  // row bytes 0: no default
        bool argb, planarYuv;
    } table[] = {
        /*  0 */ {3, 300, 8, true, false},   /*  1 */ {4, 400, 8, true, false},
        /*  2 */ {3, 300, 8, true, false},   /*  3 */ {4, 400, 8, true, false},
        /*  4 */ {2, 0, 8, true, false},     /*  5 */ {2, 0, 8, true, false},
        /*  6 */ {1, 100, 8, false, true},   /*  7 */ {0, 0, 8, false, false},
        /*  8 */ {0, 0, 8, false, false},    /*  9 */ {2, 200, 8, false, false},
        /* 10 */ {1, 0, 8, false, false},    /* 11 */ {2, 200, 8, false, false},
        /* 12 */ {0, 0, 8, false, false},    /* 13 */ {1, 100, 8, false, true},
        /* 14 */ {0, 0, 8, false, true},     /* 15 */ {0, 0, 8, false, true},
        /* 16 */ {0, 0, 8, false, true},     /* 17 */ {1, 100, 0, false, false},
        /* 18 */ {8, 800, 10, true, false},  /* 19 */ {8, 800, 12, true, false},
        /* 20 */ {8, 800, 16, true, false},  /* 21 */ {8, 800, 10, true, false},
        /* 22 */ {8, 800, 12, true, false},  /* 23 */ {8, 800, 16, true, false},
        /* 24 */ {2, 200, 10, false, true},  /* 25 */ {0, 0, 12, false, true},
        /* 26 */ {0, 0, 16, false, true},    /* 27 */ {0, 0, 10, false, true},
        /* 28 */ {0, 0, 12, false, true},    /* 29 */ {0, 0, 16, false, true},
        /* 30 */ {4, 384, 10, false, false}, /* 31 */ {2, 200, 10, false, true},
        /* 32 */ {2, 200, 10, false, true},  /* past the end */ {0, 0, 0, false, false},
    };
    static_assert(sizeof table / sizeof table[0] == eColorFormatCount + 1, "one row per format");
    for (uint32_t f = 0; f <= eColorFormatCount; ++f) {
        SCOPED_TRACE(testing::Message() << "format " << f);
        EXPECT_EQ(GetBytesPerPixel(f), table[f].bytesPerPixel);
        EXPECT_EQ(ZKGetDefaultRowBytes(f, 100), table[f].rowBytesAt100);
        EXPECT_EQ(ZKGetBitResolution(f), table[f].bits);
        EXPECT_EQ(ZKIsARGBFormat(f), table[f].argb);
        EXPECT_EQ(ZKIsPlanarYuvFormat(f), table[f].planarYuv);
    }
    EXPECT_EQ(ZKGetDefaultRowBytes(0xFFFFFFFF, 100), 0u);
    EXPECT_EQ(ZKGetDefaultRowBytes(30, 48), 128u);  // 48 pixels in every 128 bytes
    EXPECT_EQ(ZKGetDefaultRowBytes(30, 49), 256u);
}

TEST(ZKRecords, ColorConversions)
{
    // Within the RGB class a conversion exists when it loses no depth, except from the 8-byte
    // formats down to the 3-byte ones.
    int possible = 0;
    for (uint32_t s = 0; s < eColorFormatCount; ++s) {
        for (uint32_t d = 0; d < eColorFormatCount; ++d) {
            possible += ZKCanDoColorConversion(s, d) ? 1 : 0;
            const bool rgbRule = ZKGetBitResolution(s) >= ZKGetBitResolution(d) &&
                                 !(GetBytesPerPixel(s) == 8 && GetBytesPerPixel(d) == 3);
            EXPECT_TRUE(!ZKIsARGBFormat(s) || !ZKIsARGBFormat(d) || ZKCanDoColorConversion(s, d) == rgbRule)
                << s << " -> " << d;
        }
    }
    EXPECT_EQ(possible, 153);  // the sum of the conversion table's rows
    const struct {
        uint32_t source, destination;
        bool possible;
    } rows[] = {
        {6, 10, true},  {6, 4, false},  {6, 13, false}, {13, 1, true},   {13, 0, false}, {30, 6, true},
        {30, 1, false}, {9, 6, true},   {9, 1, false},  {11, 3, true},   {1, 13, true},  {0, 13, false},
        {0, 6, true},   {18, 30, true}, {24, 6, false}, {17, 17, false}, {33, 6, false}, {6, 33, false},
    };
    for (const auto& row : rows)
        EXPECT_EQ(ZKCanDoColorConversion(row.source, row.destination), row.possible)
            << row.source << " -> " << row.destination;
    EXPECT_TRUE(ZKAreColorFormatsCompatible(6, 9));
    EXPECT_FALSE(ZKAreColorFormatsCompatible(24, 6));
    EXPECT_TRUE(ZKAreComponentsSwapped(1, 3));
    EXPECT_TRUE(ZKAreComponentsSwapped(0, 5));    // same class, same depth
    EXPECT_FALSE(ZKAreComponentsSwapped(1, 18));  // depth differs
    EXPECT_FALSE(ZKAreComponentsSwapped(6, 6));   // not RGB
    for (uint32_t a : {1u, 18u, 19u, 20u})
        for (uint32_t b : {3u, 21u, 22u, 23u})
            EXPECT_TRUE(ZKGetChangeBitResolutionSwapComponentOrder(a, b) &&
                        ZKGetChangeBitResolutionSwapComponentOrder(b, a))
                << a << ", " << b;
    EXPECT_FALSE(ZKGetChangeBitResolutionSwapComponentOrder(1, 18));
    EXPECT_FALSE(ZKGetChangeBitResolutionSwapComponentOrder(0, 2));
}

TEST(ZKRecords, AudioFormatsAndChannelModes)
{
    const uint32_t bytes[] = {1, 2, 2, 3, 4, 4, 1, 2, 2, 3, 4, 4, 0, 0};
    for (uint32_t format = 0; format < sizeof bytes / sizeof bytes[0]; ++format)
        EXPECT_EQ(BytesPerSample(format), bytes[format]) << "format " << format;
    ZKAudio_t audio{};
    audio.format = eAudioFormat24Bit;
    audio.channels = 6;
    audio.numberSamples = 1001;
    EXPECT_EQ(CalcFrameSize(audio), 3u * 6 * 1001);

    // Silence only in the tail between the samples and the data size.
    uint8_t buffer[24];
    std::memset(buffer, 0x5A, sizeof buffer);
    audio = ZKAudio_t{};
    audio.format = eAudioFormat16Bit;
    audio.channels = 2;
    audio.numberSamples = 3;
    audio.data = buffer;
    audio.dataSize = 20;
    ZKPadAudioBufferWithSilence(&audio);
    EXPECT_EQ(Bytes(buffer, buffer + 24), evctest::Cat({Bytes(12, 0x5A), Bytes(8, 0), Bytes(4, 0x5A)}));
    audio.dataSize = 8;  // samples exceeding the size: nothing written
    std::memset(buffer, 0x5A, sizeof buffer);
    ZKPadAudioBufferWithSilence(&audio);
    ZKPadAudioBufferWithSilence(nullptr);
    EXPECT_EQ(Bytes(buffer, buffer + 24), Bytes(24, 0x5A));

    const struct {
        int32_t mode;
        const char* name;
        int channels;
    } modes[] = {
        {1, "Mono", 1},       {2, "Stereo", 2},     {3, "Joint Stereo", 2}, {4, "Dual Channel", 2}, {5, "4.1", 5},
        {6, "5.1", 6},        {7, "6.1", 7},        {8, "7.1", 8},          {9, "2.1", 3},          {10, "Quad", 4},
        {11, "2 Channel", 2}, {12, "4 Channel", 4}, {13, "6 Channel", 6},   {14, "8 Channel", 8},   {0, "undefined", 0},
        {15, "undefined", 0}, {-1, "undefined", 0},
    };
    for (const auto& row : modes) {
        EXPECT_STREQ(ZKGetChannelModeName(row.mode), row.name);
        EXPECT_EQ(ZKGetNumberChannels(row.mode), row.channels) << row.name;
        EXPECT_EQ(ZKGetChannelMode(row.name), row.channels > 0 ? row.mode : 0) << row.name;
    }
    for (const char* unknown : {"stereo", "7.1 ", "undefined", static_cast<const char*>(nullptr)})
        EXPECT_EQ(ZKGetChannelMode(unknown), eChannelModeUndefined);
    const EChannelMode forCount[] = {eChannelModeUndefined, eChannelModeMono,     eChannelModeStereo, eChannelMode2_1,
                                     eChannelModeQuad,      eChannelMode4_1,      eChannelMode5_1,    eChannelMode6_1,
                                     eChannelMode7_1,       eChannelModeUndefined};
    for (int count = 0; count < 10; ++count)
        EXPECT_EQ(ZKGetChannelMode(count), forCount[count]) << count << " channels";
    EXPECT_EQ(ZKGetChannelMode(-2), eChannelModeUndefined);
}

TEST(ZKRecords, EightCharacterCodes)
{
    const struct {
        const char* text;
        bool ok;
        uint32_t manufacturer, codec;
    } rows[] = {
        {"ZKI KRV7", true, 0x5A4B4920, 0x4B525637},
        {"ZKIRV7ProVideoCodec", true, 0x5A4B4920, 0x4B525637},
        {"QAXLVC1 ", true, 0x4D437074, 0x56433120},  // "MCpt", "VC1 "
        {"\xff\x80xyabcd", true, 0xFF807879, 0x61626364},
        {"appldvc", false, 0, 0},
        {"appldvc  ", false, 0, 0},
        {"", false, 0, 0},
        {nullptr, false, 0, 0},
    };
    for (const auto& row : rows) {
        uint32_t manufacturer = 0xDEAD, codec = 0xBEEF;
        EXPECT_EQ(ZKGetFourCCCodes(row.text, &manufacturer, &codec), row.ok) << row.text;
        EXPECT_EQ(manufacturer, row.manufacturer) << row.text;
        EXPECT_EQ(codec, row.codec) << row.text;
    }
    uint32_t code = 0;
    EXPECT_FALSE(ZKGetFourCCCodes("abcdefgh", nullptr, &code));
    EXPECT_FALSE(ZKGetFourCCCodes("abcdefgh", &code, nullptr));
    char text[12];
    std::memset(text, 'x', sizeof text);
    ASSERT_TRUE(ZKGetManufactureCodecEightCCString(text, 0x5A4B4920, 0x4B525637));
    EXPECT_STREQ(text, "ZKI KRV7");
    EXPECT_EQ(text[9], 'x');  // nine bytes written, no more
    EXPECT_FALSE(ZKGetManufactureCodecEightCCString(nullptr, 1, 2));
}

TEST(ZKRecords, CrcCheckValues)
{
    const auto* check = reinterpret_cast<const uint8_t*>("123456789");
    EXPECT_EQ(Calc16BitCRC(check, 9, 0xFFFF), 0x29B1);
    EXPECT_EQ(Calc16BitCRC(check, 9, 0x0000), 0x31C3);
    EXPECT_EQ(Calc16BitCRC(check, 9, 0x1D0F), 0xE5CC);
    EXPECT_EQ(Calc16BitCRC(check + 4, 5, Calc16BitCRC(check, 4, 0xFFFF)), 0x29B1);  // chained
    const uint8_t last = 0xFF;
    EXPECT_EQ(Calc16BitCRC(&last, 1, 0), 0x1EF0);
    EXPECT_EQ(Calc16BitCRC(check, 0, 0x1234), 0x1234);
    EXPECT_EQ(Calc16BitCRC(check, -5, 0x1234), 0x1234);
    EXPECT_EQ(Calc16BitCRC(nullptr, 9, 0x1234), 0x1234);
    EXPECT_EQ(Calc8BitCRC(check, 9, 0x00), 0xBC);
    EXPECT_EQ(Calc8BitCRC(check + 3, 6, Calc8BitCRC(check, 3, 0)), 0xBC);
    EXPECT_EQ(Calc8BitCRC(check, 0, 0x42), 0x42);
    // Rows of four samples at a stride of six: the padding samples take no part.
    const int16_t samples[] = {'1', '2', '3', '4', 999, 999, '5', '6', '7',
                               '8', 999, 999, '9', 'a', 'b', 'c', 999, 999};
    EXPECT_EQ(Calc16BitCRCShort(samples, 4, 3, 6, 0xFFFF),
              Calc16BitCRC(reinterpret_cast<const uint8_t*>("123456789abc"), 12, 0xFFFF));
    EXPECT_EQ(Calc16BitCRCShort(samples, 0, 3, 6, 0x77), 0x77);
    EXPECT_EQ(Calc16BitCRCShort(samples, 4, 0, 6, 0x77), 0x77);
}

TEST(ZKRecords, StandardFrameRates)
{
    const struct {
        double rate, tolerance, closest, difference;
    } rows[] = {
        {29.9, 0.1, 29.97, 0.07}, {29.9, 0.01, 0.0, 0.07},  // too far, the difference still reported
        {24.0, 0.0, 24.0, 0.0},   {23.98, 0.01, 23.976, -0.004},
        {2.0, 1.0, 1.0, -1.0},  // tie between 1 and 3: the lower stays
        {0.0, 5.0, 1.0, 1.0},     {1000.0, 1e9, 240.0, -760.0},
    };
    for (const auto& row : rows) {
        double difference = -12345.0;
        EXPECT_DOUBLE_EQ(ZKFindClosestStdFrameRate(row.rate, row.tolerance, &difference), row.closest) << row.rate;
        EXPECT_NEAR(difference, row.difference, 1e-9) << row.rate;
        EXPECT_DOUBLE_EQ(ZKFindClosestStdFrameRate(row.rate, row.tolerance, nullptr), row.closest);
    }
    const std::pair<double, double> next[] = {{24.0, 24.0}, {23.99, 23.976}, {0.5, 3.0},     {3.01, 3.0},
                                              {3.02, 5.0},  {29.98, 29.97},  {240.0, 240.0}, {240.03, 240.03}};
    for (const auto& row : next)
        EXPECT_DOUBLE_EQ(ZKFindNextStdFrameRate(row.first), row.second) << row.first;
    EXPECT_TRUE(ZKCloseEnough(1.0, 1.5, 0.5));
    EXPECT_FALSE(ZKCloseEnough(1.0, 1.5, 0.49));
    EXPECT_TRUE(ZKCloseEnough(1.5f, 1.0f, 0.5f));
    EXPECT_EQ(ZKUtils::rebaseTime(1001, 30000, 90000), 3003u);
    EXPECT_EQ(ZKUtils::rebaseTime(1, 4, 2), 1u);  // halves round up
    EXPECT_EQ(ZKUtils::rebaseTime((uint64_t{1} << 60) + 1, 9, 9), (uint64_t{1} << 60) + 1);
    EXPECT_EQ(ZKUtils::rebaseTime(UINT64_MAX, 1, 1000), UINT64_MAX);  // saturates
}
