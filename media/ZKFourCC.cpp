#include "media/ZKFourCC.h"

#include <cstring>

namespace {

constexpr uint32_t Pack(const char* four)
{
    return static_cast<uint32_t>(static_cast<uint8_t>(four[0])) << 24 |
           static_cast<uint32_t>(static_cast<uint8_t>(four[1])) << 16 |
           static_cast<uint32_t>(static_cast<uint8_t>(four[2])) << 8 |
           static_cast<uint32_t>(static_cast<uint8_t>(four[3]));
}

void Unpack(uint32_t code, char* four)
{
    for (int i = 0; i < 4; ++i)
        four[i] = static_cast<char>((code >> (24 - 8 * i)) & 0xFF);
}

struct LegacyName {
    const char* text;
    uint32_t manufacturer;
    uint32_t codec;
};

// Names that older presets use instead of the eight characters of their codes.
constexpr LegacyName kLegacyNames[] = {
    {"ZKIRV7ProVideoCodec", Pack("ZKI "), Pack("KRV7")},
    {"QAXLVC1 ", Pack("MCpt"), Pack("VC1 ")},
};

}  // namespace

bool ZKGetManufactureCodecEightCCString(char* text, uint32_t manufacturer, uint32_t codec)
{
    if (text == nullptr)
        return false;
    Unpack(manufacturer, text);
    Unpack(codec, text + 4);
    text[8] = '\0';
    return true;
}

bool ZKGetFourCCCodes(const char* text, uint32_t* manufacturer, uint32_t* codec)
{
    if (manufacturer != nullptr)
        *manufacturer = 0;
    if (codec != nullptr)
        *codec = 0;
    if (text == nullptr || manufacturer == nullptr || codec == nullptr)
        return false;

    for (const LegacyName& legacy : kLegacyNames) {
        if (std::strcmp(text, legacy.text) == 0) {
            *manufacturer = legacy.manufacturer;
            *codec = legacy.codec;
            return true;
        }
    }
    if (std::strlen(text) != 8)
        return false;
    *manufacturer = Pack(text);
    *codec = Pack(text + 4);
    return true;
}
