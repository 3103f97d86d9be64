// What a chunk's segment file carries for the join, after its last frame
// element: which chunk of how many, its pictures, the compressor and the
// source's picture description. A fixed 112-byte record of little-endian
// numbers that opens with a zero byte (no frame element starts so, and
// readers of plain segment files stop there):
//    0  magic "\0EVCCHK1"         8  chunk index (from 0)   12  chunk count
//   16  first picture            24  pictures              32  time scale
//   40  compressor code           44  colour format         48  libav pixel format
//   52  width    56  height       60  fps numerator         64  fps denominator
//   68  flags (1: variable rate)  72  aspect numerator      76  aspect denominator
//   80  field order               84  range                 88  primaries
//   92  transfer                  96  matrix               100  zero
//  104  pictures of the whole input
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "tools/FrameSource.h"

namespace evc {
namespace tools {

struct ChunkTrailer {
    static constexpr size_t kSize = 112;

    uint32_t index = 0;
    uint32_t count = 1;
    uint64_t first = 0;
    uint64_t frames = 0;
    uint64_t totalFrames = 0;
    uint32_t codec = 0;
    VideoFormat format;  // expectedFrames is not kept

    void encode(uint8_t (&out)[kSize]) const;
    // Empty when the bytes are not a chunk trailer.
    static std::optional<ChunkTrailer> decode(const uint8_t (&in)[kSize]);
};

// Appends the trailer to a complete segment file; false when it cannot.
bool AppendChunkTrailer(const std::string& path, const ChunkTrailer& trailer);
// The trailer at the end of a segment file; empty for a plain segment file
// (or one that cannot be read).
std::optional<ChunkTrailer> ReadChunkTrailer(const std::string& path);

}  // namespace tools
}  // namespace evc
