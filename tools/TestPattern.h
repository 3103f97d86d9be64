// The built-in moving test pattern: smooth luma and chroma gradients that
// drift, a bright box that bounces left and right and a dark box that moves
// down. Fully determined by the size and the picture number.
#pragma once

#include <cstdint>

namespace evc {
namespace tools {

// Draws picture n into out: width x height luma, then Cb and Cr planes of
// ((width + 1) / 2) x ((height + 1) / 2).
void DrawTestPattern(uint8_t* out, uint32_t width, uint32_t height, uint64_t n);

}  // namespace tools
}  // namespace evc
