// evc-encode's progress line on standard error (rewritten in place a few
// times a second), in the manner of x264's: percent and frames done of the
// total when the length is known, fps, bit rate and the time left; and its
// closing summary.
#pragma once

#include <chrono>
#include <cstdint>
#include <ostream>
#include <string>

#include "tools/FrameSource.h"

namespace evc {
namespace tools {

class Progress {
public:
    // Writes nothing when not enabled.
    Progress(std::ostream& out, bool enabled, const VideoFormat& format);

    // After each picture sent, with the pictures and bytes come back so far
    // (the compressor runs some pictures behind); writes at most every
    // quarter second.
    void update(uint64_t frames, uint64_t picturesBack, uint64_t bytes);
    // Ends the progress line and writes the summary.
    void finish(uint64_t frames, uint64_t bytes, const std::string& outputPath);
    // Wipes the progress line so that an error message stands on its own.
    void abandon();

    double elapsedSeconds() const;
    // Compressed bits per second of video (not of wall time) over pictures.
    double bitrate(uint64_t pictures, uint64_t bytes) const;
    std::string line(uint64_t frames, uint64_t picturesBack, uint64_t bytes, double elapsed) const;

private:
    std::ostream& m_out;
    bool m_enabled;
    VideoFormat m_format;
    std::chrono::steady_clock::time_point m_start;
    std::chrono::steady_clock::time_point m_lastWrite;
    bool m_lineOpen = false;
    size_t m_lastLength = 0;
};

}  // namespace tools
}  // namespace evc
