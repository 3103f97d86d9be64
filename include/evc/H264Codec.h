// What a host needs to name and read the H.264 compressor of the h264.qv64
// bundle: its codes, its setting names and the types of the packets it hands
// out. The compressor itself is reached only through IVideoCompressor.
#pragma once

#include <cstdint>

namespace evc {
namespace h264 {

// A four-character code as the 32-bit number plug-ins report: the first
// character in the most significant byte.
constexpr uint32_t FourCC(const char (&code)[5])
{
    return (uint32_t(uint8_t(code[0])) << 24) | (uint32_t(uint8_t(code[1])) << 16) | (uint32_t(uint8_t(code[2])) << 8) |
           uint32_t(uint8_t(code[3]));
}

// Presets name the compressor by these numbers in decimal:
// Manufacture4cc="1702257440" ('evc '), Codec4cc="1635148593" ('avc1').
constexpr uint32_t kManufacturer = FourCC("evc ");
constexpr uint32_t kCodec = FourCC("avc1");
static_assert(kManufacturer == 1702257440u && kCodec == 1635148593u, "codes as presets spell them");

// The only input colour format: 8-bit 4:2:0, three planes (EColorFormats 6).
constexpr uint32_t kInputColorFormat = 6;

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
constexpr char kPreset[] = "Preset";    // eEnum, "ultrafast" ... "placebo"; default "medium"
constexpr char kTune[] = "Tune";        // eEnum, "none", "film", ... "zerolatency"; default "none"
constexpr char kProfile[] = "Profile";  // eEnum, "auto", "baseline", "main", "high"; default "auto"
constexpr char kCRF[] = "CRF";          // eDouble, 0 to 51; default 23; used when Bitrate is 0
constexpr char kThreads[] = "Threads";  // eInt, 0: as many as the machine suits
// eDouble, nominal pictures per second; 0: 25. Rate control follows the
// pictures' times (one picture of delay) except with Tune "zerolatency",
// where it relies on this rate and every picture comes out of its own call.
constexpr char kFrameRate[] = "FrameRate";

}  // namespace h264
}  // namespace evc
