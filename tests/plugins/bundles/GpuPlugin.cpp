// Built into the bundles named like the GPU encoders, which the host must
// never load. If one were loaded it would offer (EvcT, "gpu ").
#include "evc/VideoCompressorPlugin.h"
#include "TestPluginCodes.h"

EVC_PLUGIN_EXPORT uint64_t QVGetNumberVideoCompressors()
{
    return 1;
}

EVC_PLUGIN_EXPORT void QVGetVideoCompressorInfo(uint64_t, uint32_t* manufacturer, uint32_t* codec, uint64_t* info)
{
    *manufacturer = evctest::kTestManufacturer;
    *codec = evctest::kGpuCodec;
    *info = 9;
}

EVC_PLUGIN_EXPORT IVideoCompressor* CreateVideoCompressor(uint32_t, uint32_t)
{
    return nullptr;
}

EVC_PLUGIN_EXPORT void QVShutDownPlugin() {}
