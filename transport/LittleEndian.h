// Numbers inside the binary children of frame and packet elements, and in the
// segment file header, are little-endian whatever the host byte order.
#pragma once

#include <cstddef>
#include <cstdint>

template <size_t N>
inline void ZKPutLE(uint8_t* out, uint64_t value)
{
    static_assert(N >= 1 && N <= 8, "1 to 8 bytes");
    for (size_t i = 0; i < N; ++i)
        out[i] = static_cast<uint8_t>(value >> (8 * i));
}

template <size_t N>
inline uint64_t ZKGetLE(const uint8_t* in)
{
    static_assert(N >= 1 && N <= 8, "1 to 8 bytes");
    uint64_t value = 0;
    for (size_t i = 0; i < N; ++i)
        value |= uint64_t(in[i]) << (8 * i);
    return value;
}
