#include "service/CodecListing.h"

#include "plugins/CPluginCollection.h"

namespace {

// Plug-in text on one field of one line.
std::string Field(const char* text)
{
    std::string field = text != nullptr ? text : "";
    for (char& c : field) {
        if (c == '\t' || c == '\n' || c == '\r')
            c = ' ';
    }
    return field;
}

std::string BundleURL(int bundleIndex)
{
    const CFBundleRef* bundle = g_pluginCollection.GetLoadedBundles()[static_cast<unsigned long>(bundleIndex)];
    if (bundle == nullptr || *bundle == nullptr)
        return std::string();
    CFURLRef url = CFBundleCopyBundleURL(*bundle);
    if (url == nullptr)
        return std::string();
    char text[4096] = {};
    CFStringRef string = CFURLGetString(url);
    if (string == nullptr || !CFStringGetCString(string, text, sizeof text, kCFStringEncodingUTF8))
        text[0] = '\0';
    CFRelease(url);
    return Field(text);
}

const EVCSettingInfo* BundleSettingInfo(int bundleIndex, unsigned int manufacturer, unsigned int codec, size_t& count)
{
    count = 0;
    auto describe = reinterpret_cast<EVCGetVideoCompressorSettingsFunc>(
        g_pluginCollection.GetPluginFunction(bundleIndex, kEVCGetVideoCompressorSettings));
    if (describe == nullptr)
        return nullptr;
    const EVCSettingInfo* settings = nullptr;
    try {
        const uint64_t n = describe(manufacturer, codec, &settings);
        count = settings != nullptr ? static_cast<size_t>(n) : 0;
    } catch (...) {
        count = 0;
    }
    return count != 0 ? settings : nullptr;
}

void ListArray(std::ostream& out, const char* array, ISettingArray* settings)
{
    const int32_t count = settings != nullptr ? settings->GetCount() : 0;
    for (int32_t i = 0; i < count; ++i) {
        ISetting* setting = settings->GetSetting(i);
        if (setting != nullptr)
            out << "setting\t" << array << '\t' << Field(setting->GetName()) << "\t\t\t\n";
    }
}

// A bundle that does not describe its settings: their names, from an object.
void ListNamesOnly(std::ostream& out, int bundleIndex, unsigned int manufacturer, unsigned int codec)
{
    auto create = reinterpret_cast<CreateVideoCompressorFunc>(
        g_pluginCollection.GetPluginFunction(bundleIndex, kCreateVideoCompressor));
    if (create == nullptr)
        return;
    try {
        // The object stays the bundle's prototype; the process ends soon.
        IVideoCompressor* compressor = create(manufacturer, codec);
        if (compressor == nullptr)
            return;
        ListArray(out, "Standard", compressor->GetStandardSettings());
        ListArray(out, "NonStandard", compressor->GetNonStandardSettings());
    } catch (...) {
        // Names that could not be read are left out.
    }
}

}  // namespace

int ListCodecs(std::ostream& out, const std::string& appFolder, const std::string& hostBundle)
{
    g_pluginCollection.Initialize(appFolder, hostBundle.c_str());
    const int bundles = g_pluginCollection.GetLoadedBundles().GetSize();
    for (int b = 0; b < bundles; ++b) {
        const unsigned long offered = g_pluginCollection.GetNumberOfPlugins(kQVGetNumberVideoCompressors, b);
        for (unsigned long i = 0; i < offered; ++i) {
            unsigned int manufacturer = 0;
            unsigned int codec = 0;
            unsigned long info = 0;
            g_pluginCollection.GetPluginInfo(kQVGetVideoCompressorInfo, b, i, &manufacturer, &codec, &info);
            if (manufacturer == 0 && codec == 0 && info == 0)
                continue;
            out << "compressor\t" << manufacturer << '\t' << codec << '\t' << info << '\t' << BundleURL(b) << '\n';
            size_t count = 0;
            const EVCSettingInfo* settings = BundleSettingInfo(b, manufacturer, codec, count);
            if (settings == nullptr)
                ListNamesOnly(out, b, manufacturer, codec);
            for (size_t s = 0; s < count; ++s) {
                const EVCSettingInfo& setting = settings[s];
                out << "setting\t" << (setting.standard != 0 ? "Standard" : "NonStandard") << '\t'
                    << Field(setting.name) << '\t' << Field(setting.kind) << '\t' << Field(setting.defaultValue) << '\t'
                    << Field(setting.range) << '\n';
            }
        }
    }
    out.flush();
    return 0;
}

const EVCSettingInfo* RegisteredSettingInfo(unsigned int manufacturer, unsigned int codec, size_t& count)
{
    count = 0;
    const ZKPlugin<IVideoCompressor>* plugin = FindPlugin(g_pluginCollection.GetCompressors(), manufacturer, codec);
    if (plugin == nullptr)
        return nullptr;
    // A manufacturer of 0 matches any: ask for the codes the record holds.
    return BundleSettingInfo(plugin->m_bundleIndex, plugin->m_manufacturer, plugin->m_codec, count);
}
