// Reader of YUV4MPEG2 streams: the stream header line, then one "FRAME" line
// and the raw planes (Y, Cb, Cr) per picture. Only 8-bit 4:2:0 is accepted,
// which is what the H.264 compressor takes as input.
#pragma once

#include <cstddef>
#include <cstdint>
#include <istream>
#include <stdexcept>
#include <string>

namespace evc {
namespace tools {

// A malformed or unsupported stream; the text is one line fit for the user.
class Y4mError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct Y4mHeader {
    uint32_t width = 0;
    uint32_t height = 0;
    uint32_t fpsNum = 25;  // F tag; 25:1 when the stream has none
    uint32_t fpsDen = 1;
    uint32_t aspectNum = 0;  // A tag; 0:0 means unknown
    uint32_t aspectDen = 0;
    char interlace = '?';            // I tag: p, t, b, m or ?
    std::string chroma = "420jpeg";  // C tag without the C; every 4:2:0 siting is accepted
};

class Y4mReader {
public:
    // Reads and checks the stream header. Throws Y4mError.
    explicit Y4mReader(std::istream& in);

    const Y4mHeader& header() const { return m_header; }
    // Bytes of one picture: the luma plane and two chroma planes of half size
    // (rounded up) in each direction.
    size_t frameBytes() const { return m_frameBytes; }
    // Reads the next picture into out, which holds frameBytes(). False at the
    // clean end of the stream; throws Y4mError for a missing "FRAME" marker or
    // a truncated picture.
    bool readFrame(uint8_t* out);
    uint64_t framesRead() const { return m_framesRead; }

private:
    std::string readLine(const char* what);
    void parseTag(const std::string& tag);

    std::istream& m_in;
    Y4mHeader m_header;
    size_t m_frameBytes = 0;
    uint64_t m_framesRead = 0;
};

}  // namespace tools
}  // namespace evc
