/// @file
/// What a host needs to name and read the HEVC compressor of the hevc.qv64
/// bundle (x265): its codes (evc/Codecs.h, included), its own setting names and
/// the types of the headers it hands out. The compressor itself is reached only
/// through IVideoCompressor.
#pragma once

#include <cstdint>

#include "evc/Codecs.h"

namespace evc {
namespace hevc {

// kCodec, kInputColorFormats, the picture packet types, kBitrate and
// kKeyFrameInterval come from evc/Codecs.h. The data packets hold Annex-B
// bytes; KeyFrameInterval 0 means x265's own 250.

/// The descriptors bundle, once, with the first output that holds a picture:
/// one Annex-B header each, typed by its NAL unit type.
constexpr uint32_t kVideoParameterSetPacket = 32;
constexpr uint32_t kSequenceParameterSetPacket = 33;  ///< see kVideoParameterSetPacket
constexpr uint32_t kPictureParameterSetPacket = 34;   ///< see kVideoParameterSetPacket

// Non-standard settings.
constexpr char kPreset[] = "Preset";  ///< eEnum, "ultrafast" ... "placebo"; default "medium"
constexpr char kTune[] = "Tune";      ///< eEnum, "none", "psnr", "ssim", "grain", "zerolatency", ...; default "none"
/// eEnum, "auto", "main", "main10", "main422-10", "main444-8", "main444-10";
/// default "auto" (the profile the input format needs).
constexpr char kProfile[] = "Profile";
constexpr char kCRF[] = "CRF";              ///< eDouble, 0 to 51; default 28; used when Bitrate is 0
constexpr char kThreads[] = "Threads";      ///< eInt, 0 to 256, worker threads; 0: as many as the machine has
constexpr char kFrameRate[] = "FrameRate";  ///< eDouble, nominal pictures per second for rate control; 0: 25

}  // namespace hevc
}  // namespace evc
