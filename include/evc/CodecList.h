/// @file
/// The compressors a host bundle offers and the settings each one has, read by
/// running evc-service in its listing mode: plug-in code never loads into the
/// calling process, so a plug-in that crashes while listed costs an error only.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "evc/Client.h"

namespace evc {

/// One setting of a compressor, as its bundle describes it.
struct SettingInfo {
    bool standard = false;     ///< under the standard settings, else the non-standard ones
    std::string name;          ///< the element name a preset gives it
    std::string kind;          ///< "eBool", "eEnum", "eInt", "eUnsignedInt", "eDouble"; "" unknown
    std::string defaultValue;  ///< as a preset writes it; "" unknown
    std::string range;         ///< "MIN..MAX", enumerators joined by '|', or ""
};

/// One compressor a plug-in bundle offers.
struct CodecInfo {
    uint32_t manufacturer = 0;  ///< four-character code, as presets write it in decimal (Manufacture4cc)
    uint32_t codec = 0;         ///< four-character code, as presets write it in decimal (Codec4cc)
    uint64_t info = 0;          ///< the bundle's own information word (non-zero)
    std::string bundle;         ///< URL of the plug-in bundle
    /// Its settings, standard ones first; empty when the bundle does not
    /// describe them (no EVCGetVideoCompressorSettings).
    std::vector<SettingInfo> settings;
};

/// Runs `evc-service --list-codecs FOLDER BUNDLE` with the service and host
/// bundle the options name (as Client does) and parses its lines. Throws
/// ServiceError when the service cannot start, fails, or takes longer than
/// options.commandTimeout.
EVC_CLIENT_API std::vector<CodecInfo> ListCodecs(const ClientOptions& options = ClientOptions());

/// A preset whose setting names a kind the compressor does not declare; the
/// preset was not sent and the client stays usable.
class EVC_CLIENT_API PresetError : public UsageError {
public:
    using UsageError::UsageError;
};

/// A message naming the first setting of the preset whose kind differs from
/// the kind the preset's compressor declares in codecs; "" when all agree, the
/// preset does not parse, or codecs does not describe its compressor.
EVC_CLIENT_API std::string CheckPresetKinds(const std::string& presetXml, const std::vector<CodecInfo>& codecs);

}  // namespace evc
