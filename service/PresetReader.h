// Reading a preset: the XML document (root "Output") that names a compressor
// by manufacturer and codec code and lists values for its settings by name.
#pragma once

#include <string>
#include <vector>

#include "evc/IVideoCompressor.h"
#include "evc/VideoCompressorPlugin.h"

class TiXmlElement;

// Reads the "Manufacture4cc" and "Codec4cc" attributes of "VideoCompressor"
// as decimal integers. A missing or non-numeric attribute leaves its variable
// as it was, so callers start both at 0 (a pair no compressor registers).
// False when the document's root element is not "Output".
bool DeSerializeVideoCodec4cc(std::string& preset, unsigned int& manufacturer, unsigned int& codec);

// Pushes the values under "StandardSettings" and "NonStandardSettings" into
// the compressor's setting arrays, in document order. False when the root
// element is not "Output".
bool DeSerializeVideoCodecSettings(std::string& preset, IVideoCompressor* compressor);

// Applies every setting element under element to each setting of the same
// name in settings.
void DeSerializeSettingArray(ISettingArray* settings, TiXmlElement* element);

// Applies one setting element by its "Type" and "Value". The kind is trusted:
// the setting must really be of that kind (FindKindMismatch checks it where
// the compressor describes its settings). An element without "Type", or
// whose "Value" is missing or does not scan for its kind, is skipped.
void DeSerializeSetting(ISetting* setting, TiXmlElement* element);

// One setting element of a preset: its array, its name and the kind it names
// ("" when it has no "Type").
struct TPresetSetting {
    bool standard;
    std::string name;
    std::string kind;
};

// The codes and the setting elements of a preset, in document order; false
// when it is not a preset (as DeSerializeVideoCodec4cc).
bool ReadPresetSettings(const std::string& preset, unsigned int& manufacturer, unsigned int& codec,
                        std::vector<TPresetSetting>& settings);

// A message naming the first setting whose kind differs from what the
// compressor declares for a setting of that name and array ("eInt" and
// "eUnsignedInt" reach the same operation and agree); "" when all agree.
// Settings the compressor does not describe are not checked.
std::string FindKindMismatch(const std::vector<TPresetSetting>& settings, const EVCSettingInfo* declared,
                             size_t declaredCount);
