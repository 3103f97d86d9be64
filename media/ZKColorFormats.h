// Properties of the EColorFormats values and which conversions between them
// the host's converters support. Every function accepts any 32-bit value;
// values outside the enumeration have no properties (0 or false).
#pragma once

#include <cstdint>

#include "evc/ZKImage.h"

// How a format's planes lie one after the other in a single buffer.
enum class ZKPlaneLayout : uint8_t {
    kNone,      // no layout of its own: records cannot be laid out, planes are not moved
    kOnePlane,  // the pixels lie in plane 0 alone
    k420,       // two chroma planes of half the row bytes and half the rows (6 and 31)
    k422,       // two chroma planes of half the row bytes and all the rows (32)
    k444,       // two chroma planes as large as plane 0 (13 and 24)
    kMoveOnly,  // no layout of its own, but existing planes are moved as in k444 (15)
};

// One row of the format table: what a format is, and the rules that size and
// lay out its records. A frame looks its format up once and asks the row.
struct ZKColorFormatInfo {
    uint8_t bytesPerPixel;  // 0: none
    uint8_t bitResolution;
    bool argb;
    bool planarYuv;
    bool packed48In128;    // rows of 128 bytes for every started group of 48 pixels (30)
    bool defaultRowBytes;  // the format has a default row size
    ZKPlaneLayout layout;
    uint8_t sizeHalves;       // frame size in halves of plane 0 (rowBytes x height)
    uint8_t alphaSizeHalves;  // what an enabled alpha plane adds
    bool alphaPlane;          // the layout places an alpha plane (plane 3) when enabled

    // Row bytes of plane 0 when the caller gives none; 0 without a default.
    uint32_t DefaultRowBytes(uint32_t width) const;
    // Bytes of a buffer holding every plane, in 32-bit arithmetic. A rowBytes
    // of 0 means bytes per pixel x width.
    uint32_t FrameSize(uint32_t width, uint32_t height, uint32_t rowBytes, bool alpha) const;
    // Rows of the chroma planes (1 and 2) for a picture of height rows.
    uint32_t ChromaRows(uint32_t height) const { return layout == ZKPlaneLayout::k420 ? height / 2 : height; }
    // InitZKImage can lay out a record of this format.
    bool HasLayout() const { return layout != ZKPlaneLayout::kNone && layout != ZKPlaneLayout::kMoveOnly; }
    // ReplaceYUVImage moves the planes of a record of this format.
    bool MovesPlanes() const
    {
        return HasLayout() ? layout != ZKPlaneLayout::kOnePlane : layout != ZKPlaneLayout::kNone;
    }
};

// The row of colorFormat; values outside the enumeration get a row with no
// properties (zeros) and no layout.
const ZKColorFormatInfo& ZKGetColorFormatInfo(uint32_t colorFormat);

// Bytes per pixel, 0 for a format without one.
uint32_t GetBytesPerPixel(uint32_t colorFormat);
// Row bytes of plane 0 when the caller gives none, 0 for a format without a
// default (its records cannot be laid out by InitZKImage).
uint32_t ZKGetDefaultRowBytes(uint32_t colorFormat, uint32_t width);

bool ZKIsPlanarYuvFormat(uint32_t colorFormat);
bool ZKIsARGBFormat(uint32_t colorFormat);
uint32_t ZKGetBitResolution(uint32_t colorFormat);

// Both formats are RGB-like with the same depth, so they differ at most in
// component order.
bool ZKAreComponentsSwapped(uint32_t a, uint32_t b);
// One format is in the forward component order (1, 18, 19, 20) and the other
// in the reverse order (3, 21, 22, 23), whatever their depths.
bool ZKGetChangeBitResolutionSwapComponentOrder(uint32_t a, uint32_t b);

bool ZKCanDoColorConversion(uint32_t source, uint32_t destination);
// Equal formats, or a supported conversion from a to b.
bool ZKAreColorFormatsCompatible(uint32_t a, uint32_t b);
