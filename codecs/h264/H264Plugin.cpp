// The entry points of the h264.qv64 bundle: one compressor, H.264 through
// libx264, offered under the codes of evc/H264Codec.h.
#include "evc/H264Codec.h"
#include "evc/VideoCompressorPlugin.h"

#include "CH264Compressor.h"

namespace {
// The third value the host keeps for the compressor; it only has to make the
// slot non-empty.
constexpr uint64_t kInfo = 1;
}  // namespace

EVC_PLUGIN_EXPORT uint64_t QVGetNumberVideoCompressors()
{
    return 1;
}

EVC_PLUGIN_EXPORT void QVGetVideoCompressorInfo(uint64_t index, uint32_t* manufacturer, uint32_t* codec, uint64_t* info)
{
    if (index != 0)
        return;
    if (manufacturer != nullptr)
        *manufacturer = evc::h264::kManufacturer;
    if (codec != nullptr)
        *codec = evc::h264::kCodec;
    if (info != nullptr)
        *info = kInfo;
}

EVC_PLUGIN_EXPORT IVideoCompressor* CreateVideoCompressor(uint32_t manufacturer, uint32_t codec)
{
    if (manufacturer != evc::h264::kManufacturer || codec != evc::h264::kCodec)
        return nullptr;
    try {
        return new h264::CH264Compressor;
    } catch (...) {
        return nullptr;
    }
}

EVC_PLUGIN_EXPORT void QVShutDownPlugin()
{
    // libx264 keeps no global state, and compressors are their owners' to delete.
}
