/// @file
/// What a host needs to name and read the VP9 compressor of the vp9.qv64 bundle
/// (libvpx): its codes (evc/Codecs.h, included), its own setting names and the
/// types of the headers it hands out. The compressor itself is reached only
/// through IVideoCompressor.
#pragma once

#include <cstdint>

#include "evc/Codecs.h"

namespace evc {
namespace vp9 {

// kCodec, kInputColorFormats, the picture packet types, kBitrate and
// kKeyFrameInterval come from evc/Codecs.h. A data packet is one shown
// picture, a VP9 frame (hidden reference frames travel inside the next shown
// one as a superframe), the way IVF and WebM store it.

/// The descriptors bundle holds one packet: the 8-byte VP codec configuration
/// record (profile, level, bit depth << 4 | chroma subsampling << 1 | full
/// range, colour primaries, transfer, matrix, 16-bit initialisation size 0),
/// as an MP4 'vpcC' box holds it after its version and flags.
constexpr uint32_t kConfigurationPacket = FourCC("vpcC");

// Non-standard settings.
constexpr char kCRF[] = "CRF";                  ///< eInt, 0 to 63, quality level when Bitrate is 0; default 32
constexpr char kSpeed[] = "Speed";              ///< eInt, -9 to 9 (cpu-used): higher is faster; default 1
constexpr char kThreads[] = "Threads";          ///< eInt, 0 to 64; 0: as many as the machine has
constexpr char kRowMT[] = "RowMT";              ///< eBool, row-based multithreading; default true
constexpr char kTileColumns[] = "TileColumns";  ///< eInt, log2 of the tile columns, 0 to 6; default 2
constexpr char kDeadline[] = "Deadline";        ///< eEnum, "good", "realtime", "best"; default "good"

}  // namespace vp9
}  // namespace evc
