// A bundle whose first slot is empty (all three values 0) and whose second
// reports codes 0 and 0 with info 7: only the second may be registered.
#include "evc/VideoCompressorPlugin.h"
#include "PluginKit.h"
#include "TestPluginCodes.h"

namespace {

class CIdleCompressor : public kit::TIdleCompressor<CIdleCompressor> {};

}  // namespace

EVC_PLUGIN_EXPORT uint64_t QVGetNumberVideoCompressors()
{
    return 2;
}

EVC_PLUGIN_EXPORT void QVGetVideoCompressorInfo(uint64_t index, uint32_t* manufacturer, uint32_t* codec, uint64_t* info)
{
    static constexpr kit::TOffer kOffers[] = {{0, 0, 0}, {0, 0, 7}};
    kit::WriteOffer(kOffers, index, manufacturer, codec, info);
}

// Offers an object for any pair, the empty slot's included: the host alone
// must keep the empty slot out.
EVC_PLUGIN_EXPORT IVideoCompressor* CreateVideoCompressor(uint32_t, uint32_t)
{
    static CIdleCompressor prototype;
    return &prototype;
}

EVC_PLUGIN_EXPORT void QVShutDownPlugin() {}
