// Preset documents from a client: the codes, the setting elements with their kinds, and applying
// them to a compressor whose settings are of every kind. None of it may crash or read past the
// text, whatever the bytes.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "evc/PluginSettings.h"
#include "plugins/bundles/PluginKit.h"
#include "service/PresetReader.h"

namespace {

using namespace evc::plugin;

class TSettingsOnly : public kit::TIdleCompressor<TSettingsOnly> {
public:
    ISettingArray* GetStandardSettings() override { return &m_standard; }
    ISettingArray* GetNonStandardSettings() override { return &m_nonStandard; }
    TSettingTable m_standard{{IntRow("Bitrate", 0), BoolRow("TwoPass", false)}};
    TSettingTable m_nonStandard{{EnumRow("Preset", {"fast", "slow"}, "fast"), DoubleRow("CRF", 23, 0, 51)}};
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    std::string preset(reinterpret_cast<const char*>(data), size);
    unsigned int manufacturer = 0;
    unsigned int codec = 0;
    std::vector<TPresetSetting> settings;
    if (!ReadPresetSettings(preset, manufacturer, codec, settings))
        return 0;
    TSettingsOnly compressor;
    std::vector<EVCSettingInfo> declared;
    compressor.m_standard.Describe(true, declared);
    compressor.m_nonStandard.Describe(false, declared);
    // Only presets whose kinds agree reach the settings, as in the service.
    if (FindKindMismatch(settings, declared.data(), declared.size()).empty())
        DeSerializeVideoCodecSettings(preset, &compressor);
    return 0;
}
