// Reading a preset: the XML document (root "Output") that names a compressor
// by manufacturer and codec code and lists values for its settings by name.
#pragma once

#include <string>

#include "evc/IVideoCompressor.h"

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
// the setting must really be of that kind. An element without "Type", or
// whose "Value" is missing or does not scan for its kind, is skipped.
void DeSerializeSetting(ISetting* setting, TiXmlElement* element);
