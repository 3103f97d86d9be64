// The preset evc-encode sends: a preset file (root "Output", one
// "VideoCompressor" with its codes and settings) with the settings given on
// the command line written over the file's. A setting keeps the kind the
// file gives it; one the file lacks gets the kind the H.264 plug-in uses.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace evc {
namespace tools {

class PresetError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct SettingOverride {
    bool standard = false;  // StandardSettings, else NonStandardSettings
    std::string name;
    std::string kind;  // "eInt", "eDouble", "eEnum", ...; used when the file lacks the setting
    std::string value;
};

class PresetDocument {
public:
    // Parses text; throws PresetError naming source when it is not a preset.
    PresetDocument(const std::string& text, const std::string& source);

    uint32_t manufacturer() const { return m_manufacturer; }
    uint32_t codec() const { return m_codec; }
    // The value the file gives a setting, or "" when it has none.
    std::string value(const std::string& name) const;

    void apply(const std::vector<SettingOverride>& overrides);
    const std::string& text() const { return m_text; }

private:
    std::string m_text;
    std::string m_source;
    uint32_t m_manufacturer = 0;
    uint32_t m_codec = 0;
};

// Reads a preset file; throws PresetError.
PresetDocument ReadPresetFile(const std::string& path);

}  // namespace tools
}  // namespace evc
