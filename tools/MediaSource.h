// A FrameSource over libavformat and libavcodec: any file or pipe they read
// ("-" is standard input). The best video stream is decoded in this process;
// pictures that are not 8-bit 4:2:0 are converted with libswscale, those
// that are go out as they are. Times come from the stream's timestamps, so a
// variable frame rate stays variable.
#pragma once

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "tools/FrameSource.h"

struct AVCodecParameters;  // libavcodec's description of a stream

namespace evc {
namespace tools {

// The input cannot be used; the text is one line and does not repeat the
// input's name.
class InputError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct InputPlan {
    std::string path;         // "-": standard input
    bool copyAudio = true;    // keep the audio streams' packets
    uint64_t seekFrames = 0;  // pictures dropped at the start
    double seekSeconds = 0;   // pictures before this time are dropped
    uint64_t maxFrames = 0;   // 0: all
    // A chunk's first picture, on the clock of the whole input: the reader
    // seeks to the key picture at or before it and drops the pictures
    // before it, times staying on that clock. Where the input cannot seek
    // (a pipe, a stream without times) it reads on from the start.
    uint64_t chunkStart = 0;
    // Only the audio after the first picture (which sets the clock): no
    // other picture is decoded or given.
    bool audioOnly = false;
    bool verbose = false;  // say on stderr what is converted
    // The plug-in's colour formats; a source in one of them is sent as it
    // is, any other is converted to 8-bit 4:2:0 (6). Empty: 6 only.
    std::vector<uint32_t> acceptedFormats;
    // Whether the output can hold an audio codec (unset: no audio is kept).
    std::function<bool(const AVCodecParameters&)> audioAccepted;
};

// Opens the input and reads its stream information. Throws InputError. A
// YUV4MPEG2 file is mapped (Y4mSource.h); everything else, and a YUV4MPEG2
// pipe, goes through libavformat.
std::unique_ptr<FrameSource> OpenMediaSource(const InputPlan& plan);
// Through libavformat, whatever the input.
std::unique_ptr<FrameSource> OpenLibavSource(const InputPlan& plan);

}  // namespace tools
}  // namespace evc
