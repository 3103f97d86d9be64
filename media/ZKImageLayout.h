// Frame sizes and plane layouts of ZKImage_t records.
#pragma once

#include <cstdint>

#include "evc/ZKImage.h"
#include "media/ZKColorFormats.h"

// Formats whose pixels lie in plane 0 alone (17 among them, with no pixels).
bool ZKIsOnePlaneFormat(uint32_t colorFormat);

// True when every present plane lies in [start, start + size): all rows but
// the last at its row bytes, the last with its pixels alone (no padding). Chroma planes of 4:2:0 formats have half the rows; a
// plane 2 without row bytes of its own uses those of plane 1. For records
// whose geometry came from elsewhere, before any plane is touched.
bool ZKPlanesFitArea(const ZKImage_t& image, const uint8_t* start, uint64_t size);

// Lays out a record over `data` (which may be null: then every plane stays
// null). A rowBytes of 0 takes the format's default. Sets the data size,
// format, geometry and bottom-up flag; resets colour range to 1, all row bytes
// and planes, the data packets (to null), time to 0 and time scale to 1. The
// original time fields are left as they were unless an overload sets them.
// Returns kZKErrBadArgument, with the record untouched, for a null record, a
// negative row bytes, width or height, or a format without a plane layout.
[[nodiscard]] uint32_t InitZKImage(ZKImage_t* image, uint32_t dataSize, void* data, uint32_t colorFormat, bool bottomUp,
                                   int rowBytes, int width, int height, bool alpha);
// ... then time and time scale; original time 0 at scale 1, frame 0.
[[nodiscard]] uint32_t InitZKImage(ZKImage_t* image, uint32_t dataSize, void* data, uint32_t colorFormat, bool bottomUp,
                                   int rowBytes, int width, int height, bool alpha, uint64_t time, uint64_t timeScale);
// ... then all five time fields.
[[nodiscard]] uint32_t InitZKImage(ZKImage_t* image, uint32_t dataSize, void* data, uint32_t colorFormat, bool bottomUp,
                                   int rowBytes, int width, int height, bool alpha, uint64_t time, uint64_t timeScale,
                                   uint64_t originalTime, uint64_t originalTimeScale,
                                   uint32_t originalFrameWithinSecond);
// With a colour range, set after the base form.
[[nodiscard]] uint32_t InitZKImage(ZKImage_t* image, uint32_t dataSize, void* data, uint32_t colorFormat,
                                   uint32_t colorRange, bool bottomUp, int rowBytes, int width, int height, bool alpha,
                                   uint64_t time, uint64_t timeScale);
[[nodiscard]] uint32_t InitZKImage(ZKImage_t* image, uint32_t dataSize, void* data, uint32_t colorFormat,
                                   uint32_t colorRange, bool bottomUp, int rowBytes, int width, int height, bool alpha,
                                   uint64_t time, uint64_t timeScale, uint64_t originalTime, uint64_t originalTimeScale,
                                   uint32_t originalFrameWithinSecond);
// Default row bytes.
[[nodiscard]] uint32_t InitZKImage(ZKImage_t* image, uint32_t dataSize, void* data, uint32_t colorFormat, bool bottomUp,
                                   int width, int height, bool alpha);
[[nodiscard]] uint32_t InitZKImage(ZKImage_t* image, uint32_t dataSize, void* data, uint32_t colorFormat, bool bottomUp,
                                   int width, int height, bool alpha, uint64_t time, uint64_t timeScale);
[[nodiscard]] uint32_t InitZKImage(ZKImage_t* image, uint32_t dataSize, void* data, uint32_t colorFormat, bool bottomUp,
                                   int width, int height, bool alpha, uint64_t time, uint64_t timeScale,
                                   uint64_t originalTime, uint64_t originalTimeScale,
                                   uint32_t originalFrameWithinSecond);

// Bytes of a buffer holding every plane, in 32-bit arithmetic. A rowBytes of
// 0 means bytes per pixel x width. Format 17 has no pixels (0); format 30 is
// always measured by its packed groups, whatever rowBytes says.
uint32_t CalcFrameSize(uint32_t colorFormat, uint32_t width, uint32_t height, uint32_t rowBytes, bool alpha);
// Uses the record's format, width, height and plane-0 row bytes.
uint32_t CalcFrameSize(const ZKImage_t& image, bool alpha);

// Moves the planes of a planar record (formats 6, 13, 15, 24, 31, 32) onto a
// new buffer. The planes follow each other in the order and with the sizes
// that InitZKImage gives them, measured with the record's own row bytes:
// plane 1 starts after height rows of plane 0, plane 2 after plane 1's rows,
// and for 6 an existing alpha plane after the luma plane and one and a half
// times its size. Other formats are left alone; a null base clears the planes.
void ReplaceYUVImage(ZKImage_t* image, void* base);
// The same with the record's format row, for a caller that has it at hand.
void ReplaceYUVImage(ZKImage_t* image, void* base, const ZKColorFormatInfo& format);
