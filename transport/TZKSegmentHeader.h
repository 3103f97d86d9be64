// The 24-byte header that opens an intermediate segment file: start,
// duration and time scale, each an unsigned 64-bit little-endian number.
// The frame elements follow it to the end of the file.
#pragma once

#include <cstddef>
#include <cstdint>

struct TZKSegmentHeader {
    static constexpr size_t kSize = 24;
    static constexpr size_t kStartOffset = 0;
    static constexpr size_t kDurationOffset = 8;
    static constexpr size_t kTimeScaleOffset = 16;

    uint64_t start = 0;      // in units of the time scale
    uint64_t duration = 0;   // in units of the time scale
    uint64_t timeScale = 1;  // units per second

    void encode(uint8_t (&out)[kSize]) const;
    static TZKSegmentHeader decode(const uint8_t (&in)[kSize]);
};
