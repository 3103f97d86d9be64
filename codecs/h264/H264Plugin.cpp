// The entry points of the h264.qv64 bundle: one compressor, H.264 through
// libx264, offered under the codes of evc/H264Codec.h.
#include "evc/H264Codec.h"
#include "evc/PluginEntryPoints.h"

#include "CH264Compressor.h"

EVC_COMPRESSOR_PLUGIN(evc::h264::kManufacturer, evc::h264::kCodec, h264::CH264Compressor);
