// Small checksums over picture bytes. None applies a final XOR; the caller
// chooses the initial value and may chain calls by passing the last result.
#pragma once

#include <cstdint>

// CRC-16, polynomial 0x1021, most significant bit first. A length below 1
// returns initial.
uint16_t Calc16BitCRC(const uint8_t* bytes, int length, uint16_t initial);
// CRC-8, polynomial 0xD5, most significant bit first. Only the low 8 bits of
// initial take part. A length below 1 returns initial.
uint16_t Calc8BitCRC(const uint8_t* bytes, int length, uint16_t initial);
// Calc16BitCRC over height rows of width 16-bit samples, rows `stride`
// samples apart. Each sample enters the register as its low byte, so samples
// from 0 to 255 give the same result as their bytes fed to Calc16BitCRC.
uint16_t Calc16BitCRCShort(const int16_t* samples, int width, int height, int stride, uint16_t initial);
