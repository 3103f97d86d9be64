// What a host needs to name and read the H.264 compressor of the h264.qv64
// bundle: its codes, its setting names and the types of the packets it hands
// out. The compressor itself is reached only through IVideoCompressor.
#pragma once

#include <cstdint>

#include "evc/FourCC.h"

namespace evc {
namespace h264 {

using evc::FourCC;

// Presets name the compressor by these numbers in decimal:
// Manufacture4cc="1702257440" ('evc '), Codec4cc="1635148593" ('avc1').
constexpr uint32_t kManufacturer = evc::kManufacturer;
constexpr uint32_t kCodec = FourCC("avc1");
static_assert(kManufacturer == 1702257440u && kCodec == 1635148593u, "codes as presets spell them");

// Input colour formats (EColorFormats): 6 (8-bit 4:2:0) is the usual one;
// also 31 (10-bit 4:2:0), 32 (10-bit 4:2:2) and 13 (8-bit 4:4:4). Others are
// refused with 0x800F0007.
constexpr uint32_t kInputColorFormat = 6;
constexpr uint32_t kInputColorFormats[] = {6, 31, 32, 13};

// Types of the packets in an output's data packets bundle: one packet per
// compressed picture, in decode order, Annex-B bytes (start codes included),
// time = presentation time and duration in the stream's time base (the time
// scale of the sample given to Begin).
constexpr uint32_t kPicturePacket = 0;     // any picture that is not an IDR
constexpr uint32_t kKeyPicturePacket = 1;  // an IDR picture (a random access point)

// Types of the packets in the descriptors bundle, which comes once, with the
// first output that holds a picture: the NAL unit type of each header.
constexpr uint32_t kSequenceParameterSetPacket = 7;
constexpr uint32_t kPictureParameterSetPacket = 8;

// Standard settings.
constexpr char kBitrate[] = "Bitrate";                    // eInt, kbit/s; 0: quality mode (CRF)
constexpr char kKeyFrameInterval[] = "KeyFrameInterval";  // eInt, pictures; 0: the encoder's own (250)
// Non-standard settings.
constexpr char kPreset[] = "Preset";  // eEnum, "ultrafast" ... "placebo"; default "medium"
constexpr char kTune[] = "Tune";      // eEnum, "none", "film", ... "zerolatency"; default "none"
// eEnum, "auto", "baseline", "main", "high", "high10", "high422", "high444";
// default "auto". "high" means the High profile that fits the input format
// (High 10, High 4:2:2 or High 4:4:4 Predictive for the formats beyond 6).
constexpr char kProfile[] = "Profile";
constexpr char kCRF[] = "CRF";          // eDouble, 0 to 51; default 23; used when Bitrate is 0
constexpr char kThreads[] = "Threads";  // eInt, 0: as many as the machine suits
// eDouble, nominal pictures per second; 0: 25. Rate control follows the
// pictures' times (one picture of delay) except with Tune "zerolatency",
// where it relies on this rate and every picture comes out of its own call.
constexpr char kFrameRate[] = "FrameRate";
// What the stream says about its pictures (the VUI), as ITU-T H.273 codes:
// eInt sample aspect ratio width and height (0: unknown), colour primaries,
// transfer characteristics and matrix coefficients (2: unspecified), eBool
// full range, eEnum field order "progressive", "tff" or "bff" (interlaced
// pictures, top or bottom field first).
constexpr char kSarWidth[] = "SarWidth";
constexpr char kSarHeight[] = "SarHeight";
constexpr char kColourPrimaries[] = "ColourPrimaries";
constexpr char kTransfer[] = "TransferCharacteristics";
constexpr char kMatrix[] = "MatrixCoefficients";
constexpr char kFullRange[] = "FullRange";
constexpr char kFieldOrder[] = "FieldOrder";

}  // namespace h264
}  // namespace evc
