// Where evc-encode's raw pictures come from: a video file read through
// libavformat and libavcodec (MediaSource.h), or the built-in moving test
// pattern. Pictures are planar YUV, each with its presentation time; audio
// packets to be copied come along with the picture they precede.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tools/LibavHandles.h"

namespace evc {
namespace tools {

struct VideoFormat {
    uint32_t width = 0;
    uint32_t height = 0;
    // Nominal rate; a variable-rate source has its average here.
    uint32_t fpsNum = 25;
    uint32_t fpsDen = 1;
    bool variableRate = false;
    // The pictures' layout: the plug-in's colour format and libav's name
    // for it (8-bit 4:2:0 unless the source has a deeper or fuller format
    // the plug-in takes as it is).
    uint32_t colorFormat = 6;
    int pixelFormat = 0;  // AV_PIX_FMT_YUV420P
    // Units per second of the pictures' times.
    uint64_t timeScale = 25;
    // What the source says about its pictures, as ITU-T H.273 codes and
    // libavutil's values (0 / 2: unknown).
    uint32_t sarNum = 0;
    uint32_t sarDen = 1;
    int fieldOrder = 0;  // AVFieldOrder
    int colorRange = 0;  // AVColorRange
    int colorPrimaries = 2;
    int colorTransfer = 2;
    int colorMatrix = 2;
    // Pictures the source will give, 0 when not known.
    uint64_t expectedFrames = 0;

    // Bytes of one picture, planes back to back (chroma rounded up).
    size_t frameBytes() const;
};

struct Picture;
// Copies a picture's planes to planes with the given row bytes.
void CopyPicture(const Picture& picture, const VideoFormat& format, uint8_t* const planes[3],
                 const uint32_t rowBytes[3]);

struct Picture {
    // As the decoder made it (no copy), or else the planes back to back in
    // pixels.
    FramePtr frame;
    std::vector<uint8_t> pixels;
    uint64_t time = 0;      // in format().timeScale units, from 0 up
    uint64_t duration = 0;  // the same units; 0 when the source does not say
    // The pixels lie in a mapping of the input file and no one has read them
    // yet (a decoder's pictures were just written, and are in the cache).
    bool mapped = false;
};

// An audio stream copied into the output.
struct AudioTrack {
    CodecParametersPtr parameters;
    int timeBaseNum = 1;
    int timeBaseDen = 1;
};

// An audio packet with its track index and times in the track's time base.
struct AudioPacket {
    size_t track = 0;
    PacketPtr packet;
};

class FrameSource {
public:
    virtual ~FrameSource() = default;
    virtual const VideoFormat& format() const = 0;
    // Fills picture; false after the last one. audio receives the packets
    // of the copied audio tracks read so far (after the last picture: the
    // rest of them).
    virtual bool next(Picture& picture, std::vector<AudioPacket>& audio) = 0;
    // The input's name in messages.
    virtual std::string name() const = 0;
    virtual const std::vector<AudioTrack>& audioTracks() const
    {
        static const std::vector<AudioTrack> none;
        return none;
    }
};

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
