/// @file
/// Four-character codes as the 32-bit numbers plug-ins report and presets
/// spell in decimal.
#pragma once

#include <cstdint>

namespace evc {

/// The number of a four-character code such as "avc1" (a literal of exactly
/// four characters); the first character goes into the most significant byte.
constexpr uint32_t FourCC(const char (&code)[5])
{
    return (uint32_t(uint8_t(code[0])) << 24) | (uint32_t(uint8_t(code[1])) << 16) | (uint32_t(uint8_t(code[2])) << 8) |
           uint32_t(uint8_t(code[3]));
}

/// The manufacturer code of every compressor this project ships: 'evc '.
constexpr uint32_t kManufacturer = FourCC("evc ");
static_assert(kManufacturer == 1702257440u, "the code as presets spell it");

}  // namespace evc
