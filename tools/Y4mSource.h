// YUV4MPEG2 files read by mapping them: each picture goes out as a frame over
// the file's own pages, so the only copy of its pixels evc-encode makes is
// the one into the shared segment (libavformat reads every picture into a
// fresh packet first). Only regular files of plain 8-bit 4:2:0 with the usual
// header tags; anything else (pipes, other colour spaces, unusual tags) is
// left to libavformat, which gives the same pictures, times and errors.
#pragma once

#include <memory>

#include "tools/MediaSource.h"

namespace evc {
namespace tools {

// The source, or null when the input is not for this reader. Throws
// InputError for a file it takes but cannot use.
std::unique_ptr<FrameSource> OpenMappedY4m(const InputPlan& plan);

}  // namespace tools
}  // namespace evc
