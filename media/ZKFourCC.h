// Four-character codes: a 32-bit value whose most significant byte is the
// first character. A compressor is named by a manufacturer code and a codec
// code, written together as eight characters.
#pragma once

#include <cstdint>

// Writes the eight characters and a terminating zero into `text` (at least 9
// bytes). False only when text is null.
bool ZKGetManufactureCodecEightCCString(char* text, uint32_t manufacturer, uint32_t codec);
// Splits an eight-character name into its two codes; a few legacy names map
// to other codes. Both outputs are cleared first. False for a null argument or
// a text that is neither a legacy name nor exactly eight characters long.
bool ZKGetFourCCCodes(const char* text, uint32_t* manufacturer, uint32_t* codec);
