#include "plugins/CPluginCollection.h"

#include <cstring>

#include "evc/VideoCompressorPlugin.h"
#include "platform/CFString.h"

CPluginCollection g_pluginCollection;

namespace {

// URL strings of bundles are read into buffers of this size.
constexpr CFIndex kURLTextSize = 2048;

// The hosts whose own bundle holds the plug-ins, whatever path they pass.
const char* const kSelfHostingBundles[] = {"Trelvox.app", "pelnorq.app"};

// GPU encoder bundles, left out unless CUDA is supported. URL text escapes
// the blank as %20.
const char* const kGpuBundles[] = {"GpuH264Ac3%20Mach-O.qv", "GpuAvcEncoder%20Mach-O.qv"};

// The bundle's URL as UTF-8 text; false when any step fails.
bool BundleURLText(CFBundleRef bundle, char (&text)[kURLTextSize])
{
    if (bundle == nullptr)
        return false;
    CFURLRef url = CFBundleCopyBundleURL(bundle);
    if (url == nullptr)
        return false;
    CFStringRef string = CFURLGetString(url);
    const bool ok = string != nullptr && CFStringGetCString(string, text, kURLTextSize, kCFStringEncodingUTF8);
    CFRelease(url);
    return ok;
}

}  // namespace

int CPluginCollection::Initialize(const std::string& appPath, const char* hostBundlePath)
{
    m_appPath = appPath;
    m_isCudaSupported = false;
    return LoadPlugins(hostBundlePath);
}

CFBundleRef CPluginCollection::ChooseHostBundle(const char* hostBundlePath) const
{
    CFBundleRef mainBundle = CFBundleGetMainBundle();
    char text[kURLTextSize];
    if (BundleURLText(mainBundle, text)) {
        for (const char* name : kSelfHostingBundles) {
            if (std::strstr(text, name) != nullptr)
                return mainBundle;
        }
    }

    std::string path = m_appPath;
    if (path.empty() || path.back() != '/')
        path += '/';
    path += hostBundlePath != nullptr ? hostBundlePath : "";
    TCFString pathString(path.c_str());
    CFURLRef url = CFURLCreateWithFileSystemPath(kCFAllocatorDefault, pathString.get(), kCFURLPOSIXPathStyle, true);
    if (url == nullptr)
        return nullptr;
    CFBundleRef bundle = CFBundleCreate(kCFAllocatorDefault, url);
    CFRelease(url);
    return bundle;
}

int CPluginCollection::LoadPlugins(const char* hostBundlePath)
{
    m_isCudaSupported = false;
    if (m_pluginBundles != nullptr)
        return 0;

    // An earlier call stopped before listing the folder: choose again.
    ReleaseHostBundle();
    m_hostBundle = ChooseHostBundle(hostBundlePath);
    if (m_hostBundle == nullptr)
        return 0;
    CFURLRef folder = CFBundleCopyBuiltInPlugInsURL(m_hostBundle);
    if (folder == nullptr)
        return 0;

    TCFString bundleType("qv64");
    m_pluginBundles = CFBundleCreateBundlesFromDirectory(kCFAllocatorDefault, folder, bundleType.get());
    const CFIndex count = CFArrayGetCount(m_pluginBundles);
    for (CFIndex i = 0; i < count; ++i) {
        auto bundle = static_cast<CFBundleRef>(const_cast<void*>(CFArrayGetValueAtIndex(m_pluginBundles, i)));
        if (bundle == nullptr || IgnorePlugin(bundle))
            continue;
        CFBundleLoadExecutable(bundle);
        if (CFBundleIsExecutableLoaded(bundle))
            m_loadedBundles.Append(bundle);
    }
    CFRelease(folder);
    return 0;
}

bool CPluginCollection::IgnorePlugin(CFBundleRef bundle) const
{
    if (m_isCudaSupported)
        return false;
    char text[kURLTextSize];
    if (!BundleURLText(bundle, text))
        return false;
    for (const char* name : kGpuBundles) {
        if (std::strstr(text, name) != nullptr)
            return true;
    }
    return false;
}

void CPluginCollection::LoadVideoPlugin(unsigned int manufacturer, unsigned int codec)
{
    for (int b = 0; b < m_loadedBundles.GetSize(); ++b) {
        const unsigned long count = GetNumberOfPlugins(kQVGetNumberVideoCompressors, b);
        for (unsigned long i = 0; i < count; ++i) {
            ZKPlugin<IVideoCompressor> plugin;
            plugin.m_bundleIndex = b;
            GetPluginInfo(kQVGetVideoCompressorInfo, b, i, &plugin.m_manufacturer, &plugin.m_codec, &plugin.m_info);
            if (plugin.m_manufacturer == 0 && plugin.m_codec == 0 && plugin.m_info == 0)
                continue;
            if (plugin.m_manufacturer != manufacturer || plugin.m_codec != codec)
                continue;
            auto create = reinterpret_cast<CreateVideoCompressorFunc>(GetPluginFunction(b, kCreateVideoCompressor));
            if (create == nullptr)
                continue;
            try {
                plugin.m_prototype = create(manufacturer, codec);
            } catch (...) {
                plugin.m_prototype = nullptr;
            }
            if (plugin.m_prototype != nullptr)
                m_compressors.Append(plugin);
        }
    }
}

void* CPluginCollection::GetPluginFunction(int bundleIndex, const char* name) const
{
    const CFBundleRef* slot = bundleIndex < 0 ? nullptr : m_loadedBundles[static_cast<unsigned long>(bundleIndex)];
    if (slot == nullptr || *slot == nullptr || name == nullptr)
        return nullptr;
    TCFString symbol(name);
    return CFBundleGetFunctionPointerForName(*slot, symbol.get());
}

unsigned long CPluginCollection::GetNumberOfPlugins(const char* entryName, int bundleIndex) const
{
    auto entry = reinterpret_cast<QVGetNumberVideoCompressorsFunc>(GetPluginFunction(bundleIndex, entryName));
    if (entry == nullptr)
        return 0;
    try {
        return entry();
    } catch (...) {
        return 0;
    }
}

void CPluginCollection::GetPluginInfo(const char* entryName, int bundleIndex, unsigned long index,
                                      unsigned int* manufacturer, unsigned int* codec, unsigned long* info) const
{
    if (manufacturer != nullptr)
        *manufacturer = 0;
    if (codec != nullptr)
        *codec = 0;
    if (info != nullptr)
        *info = 0;
    auto entry = reinterpret_cast<QVGetVideoCompressorInfoFunc>(GetPluginFunction(bundleIndex, entryName));
    if (entry == nullptr)
        return;
    try {
        entry(index, manufacturer, codec, info);
    } catch (...) {
        // Whatever the entry wrote before it threw stays.
    }
}

IVideoCompressor* CPluginCollection::CreateVideoCompressor(unsigned int manufacturer, unsigned int codec) const
{
    const ZKPlugin<IVideoCompressor>* plugin = FindPlugin(m_compressors, manufacturer, codec);
    if (plugin == nullptr)
        return nullptr;
    try {
        return plugin->m_prototype->CreateInstance();
    } catch (...) {
        return nullptr;
    }
}

int CPluginCollection::Uninitialize()
{
    for (int b = 0; b < m_loadedBundles.GetSize(); ++b) {
        CFBundleRef* slot = m_loadedBundles[static_cast<unsigned long>(b)];
        if (*slot == nullptr)
            continue;
        if (auto shutDown = reinterpret_cast<QVShutDownPluginFunc>(GetPluginFunction(b, kQVShutDownPlugin))) {
            try {
                shutDown();
            } catch (...) {
                // The bundle is unloaded all the same.
            }
        }
        CFBundleUnloadExecutable(*slot);
        *slot = nullptr;
    }
    m_loadedBundles.SetSize(0);
    CFRelease(m_pluginBundles);
    m_pluginBundles = nullptr;
    ReleaseHostBundle();
    return 0;
}

void CPluginCollection::ReleaseHostBundle()
{
    // The main bundle was used without being retained.
    if (m_hostBundle != CFBundleGetMainBundle())
        CFRelease(m_hostBundle);
    m_hostBundle = nullptr;
}

void CPluginCollection::RegisterQuickTimeComponents()
{
    if (m_hostBundle == nullptr)
        return;
    TCFString type("component");
    TCFString folder("QuickTimeComponents");
    CFArrayRef components = CFBundleCopyResourceURLsOfType(m_hostBundle, type.get(), folder.get());
    if (components == nullptr)
        return;
    const CFIndex count = CFArrayGetCount(components);
    for (CFIndex i = 0; i < count; ++i) {
        auto url = static_cast<CFURLRef>(CFArrayGetValueAtIndex(components, i));
        FSRef reference;
        if (url != nullptr && CFURLGetFSRef(url, &reference))
            RegisterComponentFileRef(&reference, 0);
    }
    CFRelease(components);
}
