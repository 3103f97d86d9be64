#include "tools/Y4mReader.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <sstream>

namespace evc {
namespace tools {

namespace {

constexpr char kMagic[] = "YUV4MPEG2";
constexpr char kFrameMarker[] = "FRAME";
// Header and frame lines are short; a longer one means this is not a stream.
constexpr size_t kMaxLine = 4096;
constexpr uint32_t kMaxDimension = 16384;

uint32_t ParseNumber(const std::string& text, const std::string& tag)
{
    if (text.empty() || text[0] < '0' || text[0] > '9')
        throw Y4mError("bad YUV4MPEG2 header tag " + tag + ": not a number");
    errno = 0;
    char* end = nullptr;
    const unsigned long value = std::strtoul(text.c_str(), &end, 10);
    if (errno != 0 || *end != '\0' || value > UINT32_MAX)
        throw Y4mError("bad YUV4MPEG2 header tag " + tag + ": not a number");
    return static_cast<uint32_t>(value);
}

void ParseRatio(const std::string& text, const std::string& tag, uint32_t& num, uint32_t& den)
{
    const size_t colon = text.find(':');
    if (colon == std::string::npos)
        throw Y4mError("bad YUV4MPEG2 header tag " + tag + ": expected N:D");
    num = ParseNumber(text.substr(0, colon), tag);
    den = ParseNumber(text.substr(colon + 1), tag);
}

bool IsSupportedChroma(const std::string& chroma)
{
    return chroma == "420jpeg" || chroma == "420paldv" || chroma == "420mpeg2" || chroma == "420";
}

}  // namespace

Y4mReader::Y4mReader(std::istream& in) : m_in(in)
{
    const std::string line = readLine("header");
    if (line.compare(0, sizeof kMagic - 1, kMagic) != 0 ||
        (line.size() > sizeof kMagic - 1 && line[sizeof kMagic - 1] != ' '))
        throw Y4mError("not a YUV4MPEG2 stream (it does not start with \"YUV4MPEG2 \")");

    std::istringstream tags(line.substr(sizeof kMagic - 1));
    std::string tag;
    while (tags >> tag)
        parseTag(tag);

    if (m_header.width == 0 || m_header.height == 0)
        throw Y4mError("the YUV4MPEG2 header gives no picture size (W and H tags)");
    if (m_header.width > kMaxDimension || m_header.height > kMaxDimension)
        throw Y4mError("picture size " + std::to_string(m_header.width) + "x" + std::to_string(m_header.height) +
                       " is too large (at most " + std::to_string(kMaxDimension) + ")");
    if (m_header.fpsNum == 0 || m_header.fpsDen == 0)
        throw Y4mError("bad YUV4MPEG2 frame rate " + std::to_string(m_header.fpsNum) + ":" +
                       std::to_string(m_header.fpsDen));
    if (!IsSupportedChroma(m_header.chroma))
        throw Y4mError("unsupported YUV4MPEG2 colour space C" + m_header.chroma +
                       " (only 8-bit 4:2:0 is supported: C420jpeg, C420paldv, C420mpeg2, C420)");

    const size_t luma = size_t(m_header.width) * m_header.height;
    const size_t chroma = size_t((m_header.width + 1) / 2) * ((m_header.height + 1) / 2);
    m_frameBytes = luma + 2 * chroma;
}

void Y4mReader::parseTag(const std::string& tag)
{
    const std::string value = tag.substr(1);
    switch (tag[0]) {
    case 'W':
        m_header.width = ParseNumber(value, tag);
        break;
    case 'H':
        m_header.height = ParseNumber(value, tag);
        break;
    case 'F':
        ParseRatio(value, tag, m_header.fpsNum, m_header.fpsDen);
        break;
    case 'A':
        ParseRatio(value, tag, m_header.aspectNum, m_header.aspectDen);
        break;
    case 'I':
        if (value.size() != 1 || std::string("ptbm?").find(value[0]) == std::string::npos)
            throw Y4mError("bad YUV4MPEG2 interlace tag " + tag);
        m_header.interlace = value[0];
        break;
    case 'C':
        m_header.chroma = value;
        break;
    default:
        // X tags and tags of later versions carry nothing we need.
        break;
    }
}

std::string Y4mReader::readLine(const char* what)
{
    std::string line;
    for (;;) {
        const int c = m_in.get();
        if (c == std::char_traits<char>::eof())
            throw Y4mError(std::string("the YUV4MPEG2 ") + what + " line is cut short by the end of the input");
        if (c == '\n')
            return line;
        if (line.size() >= kMaxLine)
            throw Y4mError(std::string("the YUV4MPEG2 ") + what + " line is longer than " + std::to_string(kMaxLine) +
                           " bytes");
        line.push_back(static_cast<char>(c));
    }
}

bool Y4mReader::readFrame(uint8_t* out)
{
    if (m_in.peek() == std::char_traits<char>::eof())
        return false;
    const std::string frameNumber = std::to_string(m_framesRead + 1);
    // The marker is looked at before the rest of its line, so that pixels
    // where a marker belongs are reported as such, not as an endless line.
    char marker[sizeof kFrameMarker - 1];
    m_in.read(marker, sizeof marker);
    const size_t markerBytes = static_cast<size_t>(m_in.gcount());
    const bool markerMatches = std::memcmp(marker, kFrameMarker, markerBytes) == 0;
    if (markerMatches && markerBytes < sizeof marker)
        throw Y4mError("the YUV4MPEG2 frame line is cut short by the end of the input");
    const std::string parameters = markerMatches ? readLine("frame") : std::string();
    if (!markerMatches || (!parameters.empty() && parameters[0] != ' '))
        throw Y4mError("picture " + frameNumber + " of the YUV4MPEG2 stream does not start with \"FRAME\"");
    m_in.read(reinterpret_cast<char*>(out), static_cast<std::streamsize>(m_frameBytes));
    const size_t got = static_cast<size_t>(m_in.gcount());
    if (got != m_frameBytes)
        throw Y4mError("picture " + frameNumber + " of the YUV4MPEG2 stream is truncated (" + std::to_string(got) +
                       " of " + std::to_string(m_frameBytes) + " bytes)");
    ++m_framesRead;
    return true;
}

}  // namespace tools
}  // namespace evc
