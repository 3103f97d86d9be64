// What a host needs to name and read the VP9 compressor of the vp9.qv64
// bundle (libvpx): its codes, accepted formats, setting names and the types
// of the packets it hands out.
#pragma once

#include <cstdint>

#include "evc/FourCC.h"

namespace evc {
namespace vp9 {

// Presets name the compressor by these numbers in decimal:
// Manufacture4cc="1702257440" ('evc '), Codec4cc="1987063865" ('vp09').
constexpr uint32_t kManufacturer = evc::kManufacturer;
constexpr uint32_t kCodec = FourCC("vp09");
static_assert(kCodec == 1987063865u, "the code as presets spell it");

// Input colour formats and the VP9 profile each gives: 6 (8-bit 4:2:0,
// profile 0), 13 (8-bit 4:4:4, profile 1), 31 (10-bit 4:2:0, profile 2),
// 32 (10-bit 4:2:2) and 24 (10-bit 4:4:4, both profile 3).
constexpr uint32_t kInputColorFormats[] = {6, 13, 31, 32, 24};

// Data packets: one per shown picture, a VP9 frame (hidden reference frames
// travel inside the next shown one as a superframe), the way IVF and WebM
// store it; time and duration in the stream's time base.
constexpr uint32_t kPicturePacket = 0;
constexpr uint32_t kKeyPicturePacket = 1;

// The descriptors bundle holds one packet: the 8-byte VP codec configuration
// record (profile, level, bit depth << 4 | chroma subsampling << 1 | full
// range, colour primaries, transfer, matrix, 16-bit initialisation size 0),
// as an MP4 'vpcC' box holds it after its version and flags.
constexpr uint32_t kConfigurationPacket = FourCC("vpcC");

// Standard settings.
constexpr char kBitrate[] = "Bitrate";                    // eInt, kbit/s; 0: constant quality (CRF)
constexpr char kKeyFrameInterval[] = "KeyFrameInterval";  // eInt, pictures; 0: the encoder's own
// Non-standard settings.
constexpr char kCRF[] = "CRF";                  // eInt, 0 to 63, quality level when Bitrate is 0; default 32
constexpr char kSpeed[] = "Speed";              // eInt, -9 to 9 (cpu-used): higher is faster; default 1
constexpr char kThreads[] = "Threads";          // eInt, 0 to 64; 0: as many as the machine has
constexpr char kRowMT[] = "RowMT";              // eBool, row-based multithreading; default true
constexpr char kTileColumns[] = "TileColumns";  // eInt, log2 of the tile columns, 0 to 6; default 2
constexpr char kDeadline[] = "Deadline";        // eEnum, "good", "realtime", "best"; default "good"

}  // namespace vp9
}  // namespace evc
