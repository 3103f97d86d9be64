// Where evc-encode's raw pictures come from: a YUV4MPEG2 file or standard
// input, or the built-in moving test pattern. Pictures are 8-bit 4:2:0 in
// one buffer, planes Y, Cb, Cr back to back.
#pragma once

#include <cstddef>
#include <cstdint>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "tools/Y4mReader.h"

namespace evc {
namespace tools {

struct VideoFormat {
    uint32_t width = 0;
    uint32_t height = 0;
    uint32_t fpsNum = 25;
    uint32_t fpsDen = 1;

    // Bytes of one 4:2:0 picture (chroma rounded up, as YUV4MPEG2 stores it).
    size_t frameBytes() const;
};

class FrameSource {
public:
    virtual ~FrameSource() = default;
    virtual const VideoFormat& format() const = 0;
    // Fills frame (resized to format().frameBytes()); false after the last one.
    virtual bool next(std::vector<uint8_t>& frame) = 0;
    // The input's name in messages.
    virtual std::string name() const = 0;
};

// Opens path ("-": standard input) and reads its stream header. Throws
// Y4mError (or std::runtime_error when the file cannot be opened).
std::unique_ptr<FrameSource> OpenY4mSource(const std::string& path);

// "WxH@FPS:SECONDS", FPS a whole number or N/D, SECONDS decimal. Throws
// std::invalid_argument with a one-line explanation.
struct TestPatternPlan {
    VideoFormat format;
    uint64_t frames = 0;
};
TestPatternPlan ParseTestPattern(const std::string& text);
std::unique_ptr<FrameSource> MakeTestPatternSource(const TestPatternPlan& plan);

}  // namespace tools
}  // namespace evc
