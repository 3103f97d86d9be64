// What a host needs to name and read the HEVC compressor of the hevc.qv64
// bundle (x265): its codes, accepted formats, setting names and the types of
// the packets it hands out.
#pragma once

#include <cstdint>

#include "evc/FourCC.h"

namespace evc {
namespace hevc {

// Presets name the compressor by these numbers in decimal:
// Manufacture4cc="1702257440" ('evc '), Codec4cc="1752589105" ('hvc1').
constexpr uint32_t kManufacturer = evc::kManufacturer;
constexpr uint32_t kCodec = FourCC("hvc1");
static_assert(kCodec == 1752589105u, "the code as presets spell it");

// Input colour formats: 6 (8-bit 4:2:0, Main), 31 (10-bit 4:2:0, Main 10),
// 32 (10-bit 4:2:2), 13 (8-bit 4:4:4) and 24 (10-bit 4:4:4), the last three
// in the range extensions profiles. The library picks the bit depth.
constexpr uint32_t kInputColorFormats[] = {6, 31, 32, 13, 24};

// Data packets: one per compressed picture, in decode order, Annex-B bytes;
// time = presentation time, duration in the stream's time base. Every key
// picture is an IDR (closed groups of pictures).
constexpr uint32_t kPicturePacket = 0;
constexpr uint32_t kKeyPicturePacket = 1;

// The descriptors bundle, once, with the first output that holds a picture:
// one Annex-B header each, typed by its NAL unit type.
constexpr uint32_t kVideoParameterSetPacket = 32;
constexpr uint32_t kSequenceParameterSetPacket = 33;
constexpr uint32_t kPictureParameterSetPacket = 34;

// Standard settings.
constexpr char kBitrate[] = "Bitrate";                    // eInt, kbit/s; 0: quality mode (CRF)
constexpr char kKeyFrameInterval[] = "KeyFrameInterval";  // eInt, pictures; 0: the encoder's own (250)
// Non-standard settings.
constexpr char kPreset[] = "Preset";  // eEnum, "ultrafast" ... "placebo"; default "medium"
constexpr char kTune[] = "Tune";      // eEnum, "none", "psnr", "ssim", "grain", "zerolatency", ...; default "none"
// eEnum, "auto", "main", "main10", "main422-10", "main444-8", "main444-10";
// default "auto" (the profile the input format needs).
constexpr char kProfile[] = "Profile";
constexpr char kCRF[] = "CRF";              // eDouble, 0 to 51; default 28; used when Bitrate is 0
constexpr char kThreads[] = "Threads";      // eInt, 0 to 256, worker threads; 0: as many as the machine has
constexpr char kFrameRate[] = "FrameRate";  // eDouble, nominal pictures per second for rate control; 0: 25

}  // namespace hevc
}  // namespace evc
