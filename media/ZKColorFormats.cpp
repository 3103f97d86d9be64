#include "media/ZKColorFormats.h"

#include "evc/ZKImage.h"

namespace {

enum RowRule : uint8_t {
    kNoDefault,     // the format has no default row bytes
    kPerPixel,      // bytes per pixel x width
    kPacked48In128  // 128 bytes for every started group of 48 pixels
};

struct FormatInfo {
    uint8_t bytesPerPixel;  // 0: none
    uint8_t bitResolution;
    bool argb;
    bool planarYuv;
    RowRule rowRule;
};

// Indexed by EColorFormats value.
constexpr FormatInfo kFormats[eColorFormatCount] = {
    /*  0 */ {3, 8, true, false, kPerPixel},
    /*  1 */ {4, 8, true, false, kPerPixel},
    /*  2 */ {3, 8, true, false, kPerPixel},
    /*  3 */ {4, 8, true, false, kPerPixel},
    /*  4 */ {2, 8, true, false, kNoDefault},
    /*  5 */ {2, 8, true, false, kNoDefault},
    /*  6 */ {1, 8, false, true, kPerPixel},
    /*  7 */ {0, 8, false, false, kNoDefault},
    /*  8 */ {0, 8, false, false, kNoDefault},
    /*  9 */ {2, 8, false, false, kPerPixel},
    /* 10 */ {1, 8, false, false, kNoDefault},
    /* 11 */ {2, 8, false, false, kPerPixel},
    /* 12 */ {0, 8, false, false, kNoDefault},
    /* 13 */ {1, 8, false, true, kPerPixel},
    /* 14 */ {0, 8, false, true, kNoDefault},
    /* 15 */ {0, 8, false, true, kNoDefault},
    /* 16 */ {0, 8, false, true, kNoDefault},
    /* 17 */ {1, 0, false, false, kPerPixel},
    /* 18 */ {8, 10, true, false, kPerPixel},
    /* 19 */ {8, 12, true, false, kPerPixel},
    /* 20 */ {8, 16, true, false, kPerPixel},
    /* 21 */ {8, 10, true, false, kPerPixel},
    /* 22 */ {8, 12, true, false, kPerPixel},
    /* 23 */ {8, 16, true, false, kPerPixel},
    /* 24 */ {2, 10, false, true, kPerPixel},
    /* 25 */ {0, 12, false, true, kNoDefault},
    /* 26 */ {0, 16, false, true, kNoDefault},
    /* 27 */ {0, 10, false, true, kNoDefault},
    /* 28 */ {0, 12, false, true, kNoDefault},
    /* 29 */ {0, 16, false, true, kNoDefault},
    /* 30 */ {4, 10, false, false, kPacked48In128},
    /* 31 */ {2, 10, false, true, kPerPixel},
    /* 32 */ {2, 10, false, true, kPerPixel},
};

const FormatInfo* Find(uint32_t colorFormat)
{
    return colorFormat < eColorFormatCount ? &kFormats[colorFormat] : nullptr;
}

constexpr uint64_t Bits()
{
    return 0;
}
template <typename... Rest>
constexpr uint64_t Bits(unsigned first, Rest... rest)
{
    return (uint64_t{1} << first) | Bits(rest...);
}

// Destinations reachable from each source format, one bit per format value.
constexpr uint64_t kConversions[eColorFormatCount] = {
    /*  0 */ Bits(0, 1, 2, 3, 4, 5, 6),
    /*  1 */ Bits(0, 1, 2, 3, 4, 5, 6, 9, 11, 13),
    /*  2 */ Bits(0, 1, 2, 3, 4, 5, 6),
    /*  3 */ Bits(0, 1, 2, 3, 4, 5, 6, 9, 11, 13),
    /*  4 */ Bits(0, 1, 2, 3, 4, 5),
    /*  5 */ Bits(0, 1, 2, 3, 4, 5),
    /*  6 */ Bits(0, 1, 2, 3, 6, 8, 9, 10, 11),
    /*  7 */ 0,
    /*  8 */ Bits(6),
    /*  9 */ Bits(6),
    /* 10 */ 0,
    /* 11 */ Bits(1, 3, 6),
    /* 12 */ 0,
    /* 13 */ Bits(1, 3),
    /* 14 */ 0,
    /* 15 */ 0,
    /* 16 */ 0,
    /* 17 */ 0,
    /* 18 */ Bits(1, 3, 4, 5, 6, 9, 11, 18, 21, 24, 30, 31, 32),
    /* 19 */ Bits(1, 3, 4, 5, 6, 9, 11, 18, 19, 21, 22, 24, 30, 31, 32),
    /* 20 */ Bits(1, 3, 4, 5, 6, 9, 11, 18, 19, 20, 21, 22, 23, 24, 30, 31, 32),
    /* 21 */ Bits(1, 3, 4, 5, 6, 9, 11, 18, 21, 24, 30, 31, 32),
    /* 22 */ Bits(1, 3, 4, 5, 6, 9, 11, 18, 19, 21, 22, 24, 30, 31, 32),
    /* 23 */ Bits(1, 3, 4, 5, 6, 9, 11, 18, 19, 20, 21, 22, 23, 24, 30, 31, 32),
    /* 24 */ 0,
    /* 25 */ 0,
    /* 26 */ 0,
    /* 27 */ 0,
    /* 28 */ 0,
    /* 29 */ 0,
    /* 30 */ Bits(6),
    /* 31 */ 0,
    /* 32 */ 0,
};

bool IsForwardOrder(uint32_t f)
{
    return f == 1 || f == 18 || f == 19 || f == 20;
}

bool IsReverseOrder(uint32_t f)
{
    return f == 3 || f == 21 || f == 22 || f == 23;
}

}  // namespace

uint32_t GetBytesPerPixel(uint32_t colorFormat)
{
    const FormatInfo* info = Find(colorFormat);
    return info != nullptr ? info->bytesPerPixel : 0;
}

uint32_t ZKGetDefaultRowBytes(uint32_t colorFormat, uint32_t width)
{
    const FormatInfo* info = Find(colorFormat);
    if (info == nullptr)
        return 0;
    switch (info->rowRule) {
    case kPerPixel:
        return info->bytesPerPixel * width;
    case kPacked48In128:
        return 128 * ((width + 47) / 48);
    case kNoDefault:
        break;
    }
    return 0;
}

bool ZKIsPlanarYuvFormat(uint32_t colorFormat)
{
    const FormatInfo* info = Find(colorFormat);
    return info != nullptr && info->planarYuv;
}

bool ZKIsARGBFormat(uint32_t colorFormat)
{
    const FormatInfo* info = Find(colorFormat);
    return info != nullptr && info->argb;
}

uint32_t ZKGetBitResolution(uint32_t colorFormat)
{
    const FormatInfo* info = Find(colorFormat);
    return info != nullptr ? info->bitResolution : 0;
}

bool ZKAreComponentsSwapped(uint32_t a, uint32_t b)
{
    return ZKIsARGBFormat(a) && ZKIsARGBFormat(b) && ZKGetBitResolution(a) == ZKGetBitResolution(b);
}

bool ZKGetChangeBitResolutionSwapComponentOrder(uint32_t a, uint32_t b)
{
    return (IsReverseOrder(a) && IsForwardOrder(b)) || (IsForwardOrder(a) && IsReverseOrder(b));
}

bool ZKCanDoColorConversion(uint32_t source, uint32_t destination)
{
    if (source >= eColorFormatCount || destination >= eColorFormatCount)
        return false;
    return (kConversions[source] >> destination) & 1u;
}

bool ZKAreColorFormatsCompatible(uint32_t a, uint32_t b)
{
    return a == b || ZKCanDoColorConversion(a, b);
}
