/// @file
/// The four functions a compressor plug-in bundle exports, found by the host
/// by these exact names, and an optional fifth that describes the settings. A
/// plug-in defines them with EVC_PLUGIN_EXPORT and builds with hidden
/// visibility, so these are all it exports.
///
/// An exception that leaves an entry point is caught by the host and counts
/// as an empty answer (a count of 0, no information, no object).
#pragma once

#include <cstdint>

#include "evc/IVideoCompressor.h"

/// Declares an entry point: C linkage, exported from a bundle built with
/// hidden visibility.
#define EVC_PLUGIN_EXPORT extern "C" __attribute__((visibility("default")))

extern "C" {
/// Number of compressors the bundle offers.
typedef uint64_t (*QVGetNumberVideoCompressorsFunc)();
/// The codes of compressor index (from 0). The host zeroes the outputs first;
/// all three left 0 marks an empty slot.
typedef void (*QVGetVideoCompressorInfoFunc)(uint64_t index, uint32_t* manufacturer, uint32_t* codec, uint64_t* info);
/// An object for the pair, or null. The host keeps it as the prototype that
/// new compressors are made from (CreateInstance).
typedef IVideoCompressor* (*CreateVideoCompressorFunc)(uint32_t manufacturer, uint32_t codec);
/// Called before the host unloads the bundle's code.
typedef void (*QVShutDownPluginFunc)();

/// One setting as a bundle describes it: the kind a preset must name it with,
/// its default and the values it accepts, all as a preset's "Value" writes them.
struct EVCSettingInfo {
    const char* name;          ///< the element name a preset gives the setting
    const char* kind;          ///< "eBool", "eEnum", "eInt", "eUnsignedInt" or "eDouble"
    int32_t standard;          ///< 1: under GetStandardSettings, 0: under GetNonStandardSettings
    const char* defaultValue;  ///< may be null
    const char* range;         ///< "MIN..MAX" for numbers, enumerators joined by '|', or null
};
/// Optional fifth entry point. The host calls a setting's SetValue by the kind
/// a preset names and cannot ask the setting itself, so a wrong kind in a preset
/// would call an operation the object does not have. A bundle that describes
/// its settings here lets the host and its clients refuse such a preset instead.
/// Sets *settings to an array that stays the bundle's and returns its length;
/// 0 when the bundle does not describe the pair.
typedef uint64_t (*EVCGetVideoCompressorSettingsFunc)(uint32_t manufacturer, uint32_t codec,
                                                      const EVCSettingInfo** settings);
}

/// The entry points' names, as the host looks them up.
constexpr const char kQVGetNumberVideoCompressors[] = "QVGetNumberVideoCompressors";
constexpr const char kQVGetVideoCompressorInfo[] = "QVGetVideoCompressorInfo";  ///< see kQVGetNumberVideoCompressors
constexpr const char kCreateVideoCompressor[] = "CreateVideoCompressor";        ///< see kQVGetNumberVideoCompressors
constexpr const char kQVShutDownPlugin[] = "QVShutDownPlugin";                  ///< see kQVGetNumberVideoCompressors
/// The optional fifth entry point's name.
constexpr const char kEVCGetVideoCompressorSettings[] = "EVCGetVideoCompressorSettings";

/// The entry points a bundle defines, as QVGetNumberVideoCompressorsFunc
/// describes.
EVC_PLUGIN_EXPORT uint64_t QVGetNumberVideoCompressors();
/// As QVGetVideoCompressorInfoFunc describes.
EVC_PLUGIN_EXPORT void QVGetVideoCompressorInfo(uint64_t index, uint32_t* manufacturer, uint32_t* codec,
                                                uint64_t* info);
/// As CreateVideoCompressorFunc describes.
EVC_PLUGIN_EXPORT IVideoCompressor* CreateVideoCompressor(uint32_t manufacturer, uint32_t codec);
/// As QVShutDownPluginFunc describes.
EVC_PLUGIN_EXPORT void QVShutDownPlugin();
/// As EVCGetVideoCompressorSettingsFunc describes; optional.
EVC_PLUGIN_EXPORT uint64_t EVCGetVideoCompressorSettings(uint32_t manufacturer, uint32_t codec,
                                                         const EVCSettingInfo** settings);
