// Finds the compressor plug-in bundles ("qv64") in the host bundle's built-in
// plug-ins folder, loads their code once per process, registers the
// compressors they offer for a manufacturer and codec code, and makes
// compressors on request. Main thread only.
#pragma once

#include <string>

#include "evc/IVideoCompressor.h"
#include "platform/CoreFoundation.h"
#include "plugins/ZKPlugin.h"
#include "support/Array_c.h"

class CPluginCollection {
public:
    CPluginCollection() = default;
    // Frees the lists only: plug-in code stays loaded until the process ends.
    ~CPluginCollection() = default;

    CPluginCollection(const CPluginCollection&) = delete;
    CPluginCollection& operator=(const CPluginCollection&) = delete;

    // Stores the application folder and loads the plug-ins of the host bundle
    // at appPath/hostBundlePath (first time only). Always 0.
    int Initialize(const std::string& appPath, const char* hostBundlePath);
    int LoadPlugins(const char* hostBundlePath);
    // True for a bundle that must not be loaded (the GPU encoders).
    bool IgnorePlugin(CFBundleRef bundle) const;
    // Registers every offered compressor with exactly this pair.
    void LoadVideoPlugin(unsigned int manufacturer, unsigned int codec);

    void* GetPluginFunction(int bundleIndex, const char* name) const;
    unsigned long GetNumberOfPlugins(const char* entryName, int bundleIndex) const;
    void GetPluginInfo(const char* entryName, int bundleIndex, unsigned long index, unsigned int* manufacturer,
                       unsigned int* codec, unsigned long* info) const;
    // A new compressor from the first matching registration (manufacturer 0
    // matches any), owned by the caller; null when none.
    IVideoCompressor* CreateVideoCompressor(unsigned int manufacturer, unsigned int codec) const;

    // Not used by the service: shuts the bundles down and unloads their code.
    int Uninitialize();
    void RegisterQuickTimeComponents();
    bool GetIsCudaSupported() const { return m_isCudaSupported; }

    // Read access for inspection.
    const Array_c<CFBundleRef>& GetLoadedBundles() const { return m_loadedBundles; }
    const Array_c<ZKPlugin<IVideoCompressor>>& GetCompressors() const { return m_compressors; }
    const std::string& GetAppPath() const { return m_appPath; }

private:
    CFBundleRef ChooseHostBundle(const char* hostBundlePath) const;
    void ReleaseHostBundle();

    std::string m_appPath;
    CFBundleRef m_hostBundle = nullptr;
    CFArrayRef m_pluginBundles = nullptr;  // set once the plug-ins folder was listed
    Array_c<CFBundleRef> m_loadedBundles;
    Array_c<ZKPlugin<IVideoCompressor>> m_compressors;
    bool m_isCudaSupported = false;
};

// The process's one collection.
extern CPluginCollection g_pluginCollection;
