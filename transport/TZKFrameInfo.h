// The information blocks of the frame elements: "TZKVideoInfo" (144 bytes,
// or the older packed 96-byte form on reading) and "TZKAudioInfo" (72 bytes,
// or 48 on reading). All numbers little-endian; reserved bytes are written as
// zeros and ignored on reading.
#pragma once

#include <cstddef>
#include <cstdint>

struct TZKVideoInfo {
    static constexpr size_t kSize = 144;
    static constexpr size_t kShortSize = 96;

    uint32_t colorFormat = 0;
    uint32_t width = 0;
    uint32_t height = 0;
    uint32_t bottomUp = 0;
    uint32_t rowBytes[4] = {0, 0, 0, 0};
    // Offsets of planes 1 to 3 from plane 0; the data size marks an absent plane.
    uint32_t planeOffsets[3] = {0, 0, 0};
    uint64_t time = 0;
    uint64_t timeScale = 0;
    uint64_t originalTime = 0;
    uint64_t originalTimeScale = 0;
    uint32_t originalFrameWithinSecond = 0;
    uint32_t streamFlags = 0;
    uint64_t streamValue = 0;

    // Always the 144-byte form.
    void encode(uint8_t (&out)[kSize]) const;
    // Accepts exactly kSize or kShortSize bytes; false for any other size.
    bool decode(const uint8_t* in, size_t size);
};

struct TZKAudioInfo {
    static constexpr size_t kSize = 72;
    static constexpr size_t kShortSize = 48;

    uint64_t time = 0;
    uint64_t timeScale = 0;
    uint64_t duration = 0;
    uint32_t format = 0;
    uint16_t channels = 0;
    uint16_t sampleSize = 0;
    uint32_t sampleRate = 0;
    uint32_t numberSamples = 0;
    uint32_t trackIndex = 0;

    void encode(uint8_t (&out)[kSize]) const;
    bool decode(const uint8_t* in, size_t size);
};
