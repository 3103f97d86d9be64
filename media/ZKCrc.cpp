#include "media/ZKCrc.h"

#include <cstddef>

#include <boost/crc.hpp>

namespace {

// Table-driven, unreflected, no final XOR; the initial value comes per call.
using Crc16 = boost::crc_optimal<16, 0x1021, 0, 0, false, false>;
using Crc8 = boost::crc_optimal<8, 0xD5, 0, 0, false, false>;

}  // namespace

uint16_t Calc16BitCRC(const uint8_t* bytes, int length, uint16_t initial)
{
    if (bytes == nullptr || length < 1)
        return initial;
    Crc16 crc(initial);
    crc.process_bytes(bytes, static_cast<size_t>(length));
    return crc.checksum();
}

uint16_t Calc8BitCRC(const uint8_t* bytes, int length, uint16_t initial)
{
    if (bytes == nullptr || length < 1)
        return initial;
    Crc8 crc(static_cast<uint8_t>(initial & 0xFF));
    crc.process_bytes(bytes, static_cast<size_t>(length));
    return crc.checksum();
}

uint16_t Calc16BitCRCShort(const int16_t* samples, int width, int height, int stride, uint16_t initial)
{
    if (samples == nullptr || width < 1 || height < 1)
        return initial;
    Crc16 crc(initial);
    for (ptrdiff_t row = 0; row < height; ++row) {
        const int16_t* line = samples + row * stride;
        for (int i = 0; i < width; ++i)
            crc.process_byte(static_cast<uint8_t>(line[i] & 0xFF));
    }
    return crc.checksum();
}
