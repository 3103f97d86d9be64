/// @file
/// What a host needs to name and read the AV1 compressor of the av1.qv64 bundle
/// (SVT-AV1): its codes (evc/Codecs.h, included), its own setting names and the
/// types of the headers it hands out. The compressor itself is reached only
/// through IVideoCompressor.
#pragma once

#include <cstdint>

#include "evc/Codecs.h"

namespace evc {
namespace av1 {

// kCodec, kInputColorFormats, the picture packet types, kBitrate and
// kKeyFrameInterval come from evc/Codecs.h. A data packet is one temporal
// unit per shown picture (OBUs in the low-overhead format, a temporal
// delimiter first, the sequence header again in key pictures), as IVF and
// WebM store it.

/// The descriptors bundle holds one packet: the sequence header OBU.
constexpr uint32_t kSequenceHeaderPacket = 1;

// Non-standard settings.
constexpr char kCRF[] = "CRF";              ///< eInt, 1 to 63, quality when Bitrate is 0; default 35
constexpr char kPreset[] = "Preset";        ///< eInt, 0 (slowest, best) to 13 (fastest); default 10
constexpr char kThreads[] = "Threads";      ///< eInt, 0 to 256, logical processors to use; 0: all
constexpr char kFilmGrain[] = "FilmGrain";  ///< eInt, 0 to 50, film grain synthesis strength; 0: off
constexpr char kFrameRate[] = "FrameRate";  ///< eDouble, nominal pictures per second for rate control; 0: 25

}  // namespace av1
}  // namespace evc
