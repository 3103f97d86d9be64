/// @file
/// The compressors this project ships (the bundles h264.qv64, hevc.qv64,
/// vp9.qv64 and av1.qv64) in one table: the codes presets name them by, the
/// colour formats each accepts, and the packet types and standard settings
/// they all share. evc/H264Codec.h, evc/HevcCodec.h, evc/Vp9Codec.h and
/// evc/Av1Codec.h add what is particular to one codec; every name of
/// evc::codecs is also reachable through each codec's namespace
/// (evc::h264::kPicturePacket, evc::vp9::kBitrate, ...).
#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>

#include "evc/FourCC.h"

namespace evc {

/// What every shipped compressor has alike.
namespace codecs {

using evc::FourCC;
using evc::kManufacturer;

/// Types of the packets in an output's data packets bundle: one packet per
/// compressed picture, in decoding order, time = presentation time and
/// duration in the stream's time base (the time scale of the sample given to
/// Begin). A picture that is not a random access point:
constexpr uint32_t kPicturePacket = 0;
/// A random access point: an IDR picture (H.264, HEVC, closed groups of
/// pictures) or a key frame (VP9, AV1).
constexpr uint32_t kKeyPicturePacket = 1;

/// Standard setting: eInt, kbit/s; 0: constant quality (the codec's CRF).
constexpr char kBitrate[] = "Bitrate";
/// Standard setting: eInt, pictures between key pictures at most; 0: the
/// encoder's own.
constexpr char kKeyFrameInterval[] = "KeyFrameInterval";

}  // namespace codecs

/// H.264 through libx264 (bundle h264.qv64); more in evc/H264Codec.h.
namespace h264 {
using namespace codecs;
/// Codec4cc="1635148593" ('avc1') in presets.
constexpr uint32_t kCodec = FourCC("avc1");
/// Input colour formats (EColorFormats): 6 (8-bit 4:2:0) is the usual one;
/// also 31 (10-bit 4:2:0), 32 (10-bit 4:2:2) and 13 (8-bit 4:4:4).
constexpr uint32_t kInputColorFormats[] = {6, 31, 32, 13};
}  // namespace h264

/// HEVC through x265 (bundle hevc.qv64); more in evc/HevcCodec.h.
namespace hevc {
using namespace codecs;
/// Codec4cc="1752589105" ('hvc1') in presets.
constexpr uint32_t kCodec = FourCC("hvc1");
/// Input colour formats: 6 (8-bit 4:2:0, Main), 31 (10-bit 4:2:0, Main 10),
/// 32 (10-bit 4:2:2), 13 (8-bit 4:4:4) and 24 (10-bit 4:4:4), the last three
/// in the range extensions profiles. The library picks the bit depth.
constexpr uint32_t kInputColorFormats[] = {6, 31, 32, 13, 24};
}  // namespace hevc

/// VP9 through libvpx (bundle vp9.qv64); more in evc/Vp9Codec.h.
namespace vp9 {
using namespace codecs;
/// Codec4cc="1987063865" ('vp09') in presets.
constexpr uint32_t kCodec = FourCC("vp09");
/// Input colour formats and the VP9 profile each gives: 6 (8-bit 4:2:0,
/// profile 0), 13 (8-bit 4:4:4, profile 1), 31 (10-bit 4:2:0, profile 2),
/// 32 (10-bit 4:2:2) and 24 (10-bit 4:4:4, both profile 3).
constexpr uint32_t kInputColorFormats[] = {6, 13, 31, 32, 24};
}  // namespace vp9

/// AV1 through SVT-AV1 (bundle av1.qv64); more in evc/Av1Codec.h.
namespace av1 {
using namespace codecs;
/// Codec4cc="1635135537" ('av01') in presets.
constexpr uint32_t kCodec = FourCC("av01");
/// Input colour formats: 6 (8-bit 4:2:0) and 31 (10-bit 4:2:0), both in the
/// Main profile.
constexpr uint32_t kInputColorFormats[] = {6, 31};
}  // namespace av1

/// One shipped compressor. Presets name it by Manufacture4cc kManufacturer
/// ('evc ', 1702257440) and Codec4cc codec; any other colour format is
/// refused by Begin with 0x800F0007.
struct ShippedCodec {
    /// "h264", "hevc", "vp9" or "av1": the bundle NAME.qv64, the presets
    /// NAME-quality.xml and NAME-fast.xml, evc-encode's --codec NAME.
    const char* name;
    uint32_t codec;                     ///< Codec4cc
    const uint32_t* inputColorFormats;  ///< the EColorFormats it accepts, the usual one first
    size_t inputColorFormatCount;       ///< entries at inputColorFormats
};

/// Every shipped compressor, one row each.
constexpr ShippedCodec kShippedCodecs[] = {
    {"h264", h264::kCodec, h264::kInputColorFormats, std::size(h264::kInputColorFormats)},
    {"hevc", hevc::kCodec, hevc::kInputColorFormats, std::size(hevc::kInputColorFormats)},
    {"vp9", vp9::kCodec, vp9::kInputColorFormats, std::size(vp9::kInputColorFormats)},
    {"av1", av1::kCodec, av1::kInputColorFormats, std::size(av1::kInputColorFormats)},
};

/// The row of the shipped compressor whose Codec4cc is codec, or null.
constexpr const ShippedCodec* FindShippedCodec(uint32_t codec)
{
    for (const ShippedCodec& row : kShippedCodecs)
        if (row.codec == codec)
            return &row;
    return nullptr;
}

static_assert(h264::kCodec == 1635148593u && hevc::kCodec == 1752589105u && vp9::kCodec == 1987063865u &&
                  av1::kCodec == 1635135537u,
              "codes as presets spell them");

}  // namespace evc
