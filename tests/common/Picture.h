// Test pictures in the plug-in record's layouts (as the media library lays them out): a pattern
// that moves with the frame number, drawn into a buffer of the picture's own with rows padded or
// stored bottom-up as asked, and the visible samples as ffmpeg's raw video holds them.
#pragma once

#include "common/TempDir.h"
#include "evc/ZKImage.h"

namespace evctest {

class TestPicture {
public:
    // rowBytes 0: the format's own; else the first plane's, the others following the layout. The
    // buffer starts filled with 0xEE; the time scale is 25.
    TestPicture(uint32_t format, uint32_t width, uint32_t height, uint32_t rowBytes = 0, bool bottomUp = false,
                bool alpha = false);
    TestPicture(const TestPicture&) = delete;  // the record points into the buffer
    TestPicture& operator=(const TestPicture&) = delete;
    // Draws frame n (smooth ramps and a bar that travel, 10-bit samples with detail in their low
    // bits) at time n x step; returns Visible().
    Bytes Draw(int n, uint64_t step = 1);
    // Each plane's samples, rows from the top, without padding: what a codec must be handed.
    Bytes Visible() const;

    ZKEncImage_t& Record() { return m_record; }
    ZKImage_t& Image() { return m_record.image; }
    Bytes& Buffer() { return m_buffer; }

private:
    uint32_t Rows(int p) const;
    uint32_t RowLength(int p) const;  // in bytes, without padding
    uint8_t* Row(int p, uint32_t top) const;

    Bytes m_buffer;
    ZKEncImage_t m_record{};
};

// The peak signal-to-noise ratio of b against a, samples of the given bits (little-endian above
// 8); 99 when they are equal.
double Psnr(const Bytes& a, const Bytes& b, int bits = 8);

}  // namespace evctest
