// The four entry points of a bundle that offers one compressor, from one
// macro: the bundle reports the pair of codes, makes the compressor for that
// pair only, and never lets an exception reach the host.
//
//     EVC_COMPRESSOR_PLUGIN(evc::FourCC("acme"), evc::FourCC("raw "), TMyCompressor)
//
// Use it once, at namespace scope, in one source file of the bundle.
#pragma once

#include <cstdint>

#include "evc/FourCC.h"
#include "evc/VideoCompressorPlugin.h"

#define EVC_COMPRESSOR_PLUGIN(MANUFACTURER, CODEC, COMPRESSOR)                                                         \
    EVC_PLUGIN_EXPORT uint64_t QVGetNumberVideoCompressors()                                                           \
    {                                                                                                                  \
        return 1;                                                                                                      \
    }                                                                                                                  \
    EVC_PLUGIN_EXPORT void QVGetVideoCompressorInfo(uint64_t index, uint32_t* manufacturer, uint32_t* codec,           \
                                                    uint64_t* info)                                                    \
    {                                                                                                                  \
        if (index != 0)                                                                                                \
            return;                                                                                                    \
        if (manufacturer != nullptr)                                                                                   \
            *manufacturer = (MANUFACTURER);                                                                            \
        if (codec != nullptr)                                                                                          \
            *codec = (CODEC);                                                                                          \
        /* Any value but 0 marks the slot as used. */                                                                  \
        if (info != nullptr)                                                                                           \
            *info = 1;                                                                                                 \
    }                                                                                                                  \
    EVC_PLUGIN_EXPORT IVideoCompressor* CreateVideoCompressor(uint32_t manufacturer, uint32_t codec)                   \
    {                                                                                                                  \
        if (manufacturer != (MANUFACTURER) || codec != (CODEC))                                                        \
            return nullptr;                                                                                            \
        try {                                                                                                          \
            return new COMPRESSOR;                                                                                     \
        } catch (...) {                                                                                                \
            return nullptr;                                                                                            \
        }                                                                                                              \
    }                                                                                                                  \
    /* Compressors are their owners' to delete; nothing global to release. */                                          \
    EVC_PLUGIN_EXPORT void QVShutDownPlugin() {}                                                                       \
    static_assert(true, "a semicolon may follow the macro")
