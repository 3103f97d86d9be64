/// @file
/// The entry points of a bundle that offers one compressor, from one macro:
/// the bundle reports the pair of codes, makes the compressor for that pair
/// only, describes its settings when COMPRESSOR can (DescribeSettings, as
/// evc::plugin::TCompressor has), and never lets an exception reach the host.
///
///     EVC_COMPRESSOR_PLUGIN(evc::FourCC("acme"), evc::FourCC("raw "), TMyCompressor)
///
/// Use it once, at namespace scope, in one source file of the bundle.
#pragma once

#include <cstdint>
#include <type_traits>
#include <utility>
#include <vector>

#include "evc/FourCC.h"
#include "evc/VideoCompressorPlugin.h"

namespace evc {
namespace plugin {
namespace detail {

template <class Compressor, class = void>
struct THasDescribeSettings : std::false_type {
};
template <class Compressor>
struct THasDescribeSettings<Compressor, std::void_t<decltype(std::declval<const Compressor&>().DescribeSettings(
                                            std::declval<std::vector<EVCSettingInfo>&>()))>> : std::true_type {
};

/// The settings of one compressor kept for the life of the code, so the
/// descriptions handed to the host stay valid; 0 for a compressor that cannot
/// describe them.
template <class Compressor>
uint64_t DescribeSettingsOf(const EVCSettingInfo** settings)
{
    if constexpr (THasDescribeSettings<Compressor>::value) {
        struct TKept {
            Compressor compressor;
            std::vector<EVCSettingInfo> infos;
            TKept() { compressor.DescribeSettings(infos); }
        };
        static const TKept kept;
        *settings = kept.infos.data();
        return kept.infos.size();
    } else {
        (void)settings;
        return 0;
    }
}

}  // namespace detail
}  // namespace plugin
}  // namespace evc

/// Defines the bundle's entry points for one compressor, COMPRESSOR (default
/// constructible; new COMPRESSOR is the prototype), offered under the codes
/// MANUFACTURER and CODEC. See the file's description.
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
    EVC_PLUGIN_EXPORT uint64_t EVCGetVideoCompressorSettings(uint32_t manufacturer, uint32_t codec,                    \
                                                             const EVCSettingInfo** settings)                          \
    {                                                                                                                  \
        if (settings == nullptr || manufacturer != (MANUFACTURER) || codec != (CODEC))                                 \
            return 0;                                                                                                  \
        try {                                                                                                          \
            return evc::plugin::detail::DescribeSettingsOf<COMPRESSOR>(settings);                                      \
        } catch (...) {                                                                                                \
            return 0;                                                                                                  \
        }                                                                                                              \
    }                                                                                                                  \
    /* Compressors are their owners' to delete; nothing global to release. */                                          \
    EVC_PLUGIN_EXPORT void QVShutDownPlugin() {}                                                                       \
    static_assert(true, "a semicolon may follow the macro")
