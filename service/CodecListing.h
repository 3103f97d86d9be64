// The service's listing mode: every compressor the plug-in bundles offer, with
// the settings each one has, as tab-separated lines a client reads back.
//
//   compressor <TAB> manufacturer <TAB> codec <TAB> info <TAB> bundle URL
//   setting <TAB> Standard|NonStandard <TAB> name <TAB> kind <TAB> default <TAB> range
//
// Codes are decimal, as presets write them. Setting lines follow their
// compressor's line; kind, default and range are empty when the bundle does
// not describe its settings (the names then come from a compressor object).
// Ranges are "MIN..MAX" for numbers and enumerators joined by '|'.
#pragma once

#include <cstddef>
#include <ostream>
#include <string>

#include "evc/VideoCompressorPlugin.h"

// Loads the plug-ins of appFolder/hostBundle and writes the listing. Always 0.
int ListCodecs(std::ostream& out, const std::string& appFolder, const std::string& hostBundle);

// The settings description the bundle of the registered compressor for the
// pair gives (see FindPlugin), or null with count 0.
const EVCSettingInfo* RegisteredSettingInfo(unsigned int manufacturer, unsigned int codec, size_t& count);
