#include "media/ZKColorFormats.h"

#include "evc/ZKImage.h"

namespace {

using L = ZKPlaneLayout;

// Indexed by EColorFormats value. Columns: bytes per pixel, bit resolution,
// ARGB, planar YUV, packed 48-in-128 rows, default row bytes, plane layout,
// frame size and alpha plane size in halves of plane 0, alpha plane placed.
constexpr ZKColorFormatInfo kFormats[eColorFormatCount] = {
    /*  0 */ {3, 8, true, false, false, true, L::kOnePlane, 2, 0, false},
    /*  1 */ {4, 8, true, false, false, true, L::kOnePlane, 2, 0, false},
    /*  2 */ {3, 8, true, false, false, true, L::kOnePlane, 2, 0, false},
    /*  3 */ {4, 8, true, false, false, true, L::kOnePlane, 2, 0, false},
    /*  4 */ {2, 8, true, false, false, false, L::kNone, 2, 0, false},
    /*  5 */ {2, 8, true, false, false, false, L::kNone, 2, 0, false},
    /*  6 */ {1, 8, false, true, false, true, L::k420, 3, 2, true},
    /*  7 */ {0, 8, false, false, false, false, L::kNone, 2, 0, false},
    /*  8 */ {0, 8, false, false, false, false, L::kNone, 2, 0, false},
    /*  9 */ {2, 8, false, false, false, true, L::kOnePlane, 2, 0, false},
    /* 10 */ {1, 8, false, false, false, false, L::kNone, 2, 0, false},
    /* 11 */ {2, 8, false, false, false, true, L::kOnePlane, 2, 0, false},
    /* 12 */ {0, 8, false, false, false, false, L::kNone, 2, 0, false},
    /* 13 */ {1, 8, false, true, false, true, L::k444, 6, 2, false},
    /* 14 */ {0, 8, false, true, false, false, L::kNone, 2, 0, false},
    /* 15 */ {0, 8, false, true, false, false, L::kMoveOnly, 2, 0, false},
    /* 16 */ {0, 8, false, true, false, false, L::kNone, 2, 0, false},
    /* 17 */ {1, 0, false, false, false, true, L::kOnePlane, 0, 0, false},  // no pixels
    /* 18 */ {8, 10, true, false, false, true, L::kOnePlane, 2, 0, false},
    /* 19 */ {8, 12, true, false, false, true, L::kOnePlane, 2, 0, false},
    /* 20 */ {8, 16, true, false, false, true, L::kOnePlane, 2, 0, false},
    /* 21 */ {8, 10, true, false, false, true, L::kOnePlane, 2, 0, false},
    /* 22 */ {8, 12, true, false, false, true, L::kOnePlane, 2, 0, false},
    /* 23 */ {8, 16, true, false, false, true, L::kOnePlane, 2, 0, false},
    /* 24 */ {2, 10, false, true, false, true, L::k444, 6, 0, false},
    /* 25 */ {0, 12, false, true, false, false, L::kNone, 2, 0, false},
    /* 26 */ {0, 16, false, true, false, false, L::kNone, 2, 0, false},
    /* 27 */ {0, 10, false, true, false, false, L::kNone, 2, 0, false},
    /* 28 */ {0, 12, false, true, false, false, L::kNone, 2, 0, false},
    /* 29 */ {0, 16, false, true, false, false, L::kNone, 2, 0, false},
    /* 30 */ {4, 10, false, false, true, true, L::kOnePlane, 2, 0, false},
    /* 31 */ {2, 10, false, true, false, true, L::k420, 3, 0, false},
    /* 32 */ {2, 10, false, true, false, true, L::k422, 4, 0, false},
};

constexpr ZKColorFormatInfo kUnknownFormat = {0, 0, false, false, false, false, L::kNone, 2, 0, false};

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

const ZKColorFormatInfo& ZKGetColorFormatInfo(uint32_t colorFormat)
{
    return colorFormat < eColorFormatCount ? kFormats[colorFormat] : kUnknownFormat;
}

uint32_t ZKColorFormatInfo::DefaultRowBytes(uint32_t width) const
{
    if (!defaultRowBytes)
        return 0;
    return packed48In128 ? 128 * ((width + 47) / 48) : bytesPerPixel * width;
}

uint32_t ZKColorFormatInfo::FrameSize(uint32_t width, uint32_t height, uint32_t rowBytes, bool alpha) const
{
    // Packed rows are always measured by their groups, whatever rowBytes says.
    if (packed48In128)
        rowBytes = DefaultRowBytes(width);
    else if (rowBytes == 0)
        rowBytes = bytesPerPixel * width;
    // Plane 0 wraps at 32 bits; the halves are summed exactly, then wrap again.
    const uint64_t s = uint32_t(rowBytes * height);
    return static_cast<uint32_t>((s * sizeHalves) / 2 + (alpha ? (s * alphaSizeHalves) / 2 : 0));
}

uint32_t GetBytesPerPixel(uint32_t colorFormat)
{
    return ZKGetColorFormatInfo(colorFormat).bytesPerPixel;
}

uint32_t ZKGetDefaultRowBytes(uint32_t colorFormat, uint32_t width)
{
    return ZKGetColorFormatInfo(colorFormat).DefaultRowBytes(width);
}

bool ZKIsPlanarYuvFormat(uint32_t colorFormat)
{
    return ZKGetColorFormatInfo(colorFormat).planarYuv;
}

bool ZKIsARGBFormat(uint32_t colorFormat)
{
    return ZKGetColorFormatInfo(colorFormat).argb;
}

uint32_t ZKGetBitResolution(uint32_t colorFormat)
{
    return ZKGetColorFormatInfo(colorFormat).bitResolution;
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
