/// @file
/// What a host needs to name and read the H.264 compressor of the h264.qv64
/// bundle (libx264): its codes (evc/Codecs.h, included), its own setting names
/// and the types of the headers it hands out. The compressor itself is reached
/// only through IVideoCompressor.
#pragma once

#include <cstdint>

#include "evc/Codecs.h"

namespace evc {
namespace h264 {

// kCodec, kInputColorFormats, the picture packet types, kBitrate and
// kKeyFrameInterval come from evc/Codecs.h. The data packets hold Annex-B
// bytes (start codes included).

/// The usual input colour format: 8-bit 4:2:0.
constexpr uint32_t kInputColorFormat = 6;

/// Types of the packets in the descriptors bundle, which comes once, with the
/// first output that holds a picture: the NAL unit type of each header.
constexpr uint32_t kSequenceParameterSetPacket = 7;
constexpr uint32_t kPictureParameterSetPacket = 8;  ///< see kSequenceParameterSetPacket

// Non-standard settings (KeyFrameInterval 0 means libx264's own 250):
constexpr char kPreset[] = "Preset";  ///< eEnum, "ultrafast" ... "placebo"; default "medium"
constexpr char kTune[] = "Tune";      ///< eEnum, "none", "film", ... "zerolatency"; default "none"
/// eEnum, "auto", "baseline", "main", "high", "high10", "high422", "high444";
/// default "auto". "high" means the High profile that fits the input format
/// (High 10, High 4:2:2 or High 4:4:4 Predictive for the formats beyond 6).
constexpr char kProfile[] = "Profile";
constexpr char kCRF[] = "CRF";          ///< eDouble, 0 to 51; default 23; used when Bitrate is 0
constexpr char kThreads[] = "Threads";  ///< eInt, 0: as many as the machine suits
/// eDouble, nominal pictures per second; 0: 25. Rate control follows the
/// pictures' times (one picture of delay) except with Tune "zerolatency",
/// where it relies on this rate and every picture comes out of its own call.
constexpr char kFrameRate[] = "FrameRate";
// What the stream says about its pictures (the VUI), as ITU-T H.273 codes:
constexpr char kSarWidth[] = "SarWidth";                 ///< eInt, sample aspect ratio width; 0: unknown
constexpr char kSarHeight[] = "SarHeight";               ///< eInt, sample aspect ratio height; 0: unknown
constexpr char kColourPrimaries[] = "ColourPrimaries";   ///< eInt, colour primaries; 2: unspecified
constexpr char kTransfer[] = "TransferCharacteristics";  ///< eInt, transfer characteristics; 2: unspecified
constexpr char kMatrix[] = "MatrixCoefficients";         ///< eInt, matrix coefficients; 2: unspecified
constexpr char kFullRange[] = "FullRange";               ///< eBool, full-range samples
/// eEnum, "progressive", "tff" or "bff" (interlaced pictures, top or bottom
/// field first).
constexpr char kFieldOrder[] = "FieldOrder";

}  // namespace h264
}  // namespace evc
