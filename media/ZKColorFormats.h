// Properties of the EColorFormats values and which conversions between them
// the host's converters support. Every function accepts any 32-bit value;
// values outside the enumeration have no properties (0 or false).
#pragma once

#include <cstdint>

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
