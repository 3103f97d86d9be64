// The four functions a compressor plug-in bundle exports, found by the host
// by these exact names. A plug-in defines them with EVC_PLUGIN_EXPORT and
// builds with hidden visibility, so these four are all it exports.
//
// An exception that leaves an entry point is caught by the host and counts
// as an empty answer (a count of 0, no information, no object).
#pragma once

#include <cstdint>

#include "evc/IVideoCompressor.h"

#define EVC_PLUGIN_EXPORT extern "C" __attribute__((visibility("default")))

extern "C" {
// Number of compressors the bundle offers.
typedef uint64_t (*QVGetNumberVideoCompressorsFunc)();
// The codes of compressor index (from 0). The host zeroes the outputs first;
// all three left 0 marks an empty slot.
typedef void (*QVGetVideoCompressorInfoFunc)(uint64_t index, uint32_t* manufacturer, uint32_t* codec, uint64_t* info);
// An object for the pair, or null. The host keeps it as the prototype that
// new compressors are made from (CreateInstance).
typedef IVideoCompressor* (*CreateVideoCompressorFunc)(uint32_t manufacturer, uint32_t codec);
// Called before the host unloads the bundle's code.
typedef void (*QVShutDownPluginFunc)();
}

constexpr const char kQVGetNumberVideoCompressors[] = "QVGetNumberVideoCompressors";
constexpr const char kQVGetVideoCompressorInfo[] = "QVGetVideoCompressorInfo";
constexpr const char kCreateVideoCompressor[] = "CreateVideoCompressor";
constexpr const char kQVShutDownPlugin[] = "QVShutDownPlugin";

EVC_PLUGIN_EXPORT uint64_t QVGetNumberVideoCompressors();
EVC_PLUGIN_EXPORT void QVGetVideoCompressorInfo(uint64_t index, uint32_t* manufacturer, uint32_t* codec,
                                                uint64_t* info);
EVC_PLUGIN_EXPORT IVideoCompressor* CreateVideoCompressor(uint32_t manufacturer, uint32_t codec);
EVC_PLUGIN_EXPORT void QVShutDownPlugin();
