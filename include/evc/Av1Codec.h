// What a host needs to name and read the AV1 compressor of the av1.qv64
// bundle (SVT-AV1): its codes, accepted formats, setting names and the types
// of the packets it hands out.
#pragma once

#include <cstdint>

#include "evc/FourCC.h"

namespace evc {
namespace av1 {

// Presets name the compressor by these numbers in decimal:
// Manufacture4cc="1702257440" ('evc '), Codec4cc="1635135537" ('av01').
constexpr uint32_t kManufacturer = evc::kManufacturer;
constexpr uint32_t kCodec = FourCC("av01");
static_assert(kCodec == 1635135537u, "the code as presets spell it");

// Input colour formats: 6 (8-bit 4:2:0) and 31 (10-bit 4:2:0), both in the
// Main profile.
constexpr uint32_t kInputColorFormats[] = {6, 31};

// Data packets: one temporal unit per shown picture (OBUs in the low-overhead
// format, a temporal delimiter first, the sequence header again in key
// pictures), as IVF and WebM store it; time and duration in the stream's
// time base.
constexpr uint32_t kPicturePacket = 0;
constexpr uint32_t kKeyPicturePacket = 1;

// The descriptors bundle holds one packet: the sequence header OBU.
constexpr uint32_t kSequenceHeaderPacket = 1;

// Standard settings.
constexpr char kBitrate[] = "Bitrate";                    // eInt, kbit/s; 0: quality mode (CRF)
constexpr char kKeyFrameInterval[] = "KeyFrameInterval";  // eInt, pictures; 0: the encoder's own
// Non-standard settings.
constexpr char kCRF[] = "CRF";              // eInt, 1 to 63, quality when Bitrate is 0; default 35
constexpr char kPreset[] = "Preset";        // eInt, 0 (slowest, best) to 13 (fastest); default 10
constexpr char kThreads[] = "Threads";      // eInt, 0 to 256, logical processors to use; 0: all
constexpr char kFilmGrain[] = "FilmGrain";  // eInt, 0 to 50, film grain synthesis strength; 0: off
constexpr char kFrameRate[] = "FrameRate";  // eDouble, nominal pictures per second for rate control; 0: 25

}  // namespace av1
}  // namespace evc
