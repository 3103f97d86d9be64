#include "tools/Progress.h"

#include <cstdio>

namespace evc {
namespace tools {

namespace {

constexpr std::chrono::milliseconds kInterval{250};

std::string Format(const char* pattern, double a, double b = 0, double c = 0)
{
    char text[128];
    std::snprintf(text, sizeof text, pattern, a, b, c);
    return text;
}

}  // namespace

Progress::Progress(std::ostream& out, bool enabled, const VideoFormat& format, uint64_t expectedFrames)
    : m_out(out), m_enabled(enabled), m_format(format), m_expectedFrames(expectedFrames),
      m_start(std::chrono::steady_clock::now()), m_lastWrite(m_start)
{
}

double Progress::elapsedSeconds() const
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - m_start).count();
}

double Progress::bitrate(uint64_t pictures, uint64_t bytes) const
{
    const double seconds = double(pictures) * m_format.fpsDen / m_format.fpsNum;
    return seconds > 0 ? bytes * 8.0 / seconds : 0;
}

std::string Progress::line(uint64_t frames, uint64_t picturesBack, uint64_t bytes) const
{
    const double elapsed = elapsedSeconds();
    std::string text = "frame " + std::to_string(frames);
    if (m_expectedFrames != 0)
        text += "/" + std::to_string(m_expectedFrames);
    text += Format("  %.1f fps  %.0f kbit/s  %.1f s", elapsed > 0 ? frames / elapsed : 0,
                   bitrate(picturesBack, bytes) / 1000, elapsed);
    return text;
}

void Progress::update(uint64_t frames, uint64_t picturesBack, uint64_t bytes)
{
    if (!m_enabled)
        return;
    const auto now = std::chrono::steady_clock::now();
    if (now - m_lastWrite < kInterval)
        return;
    m_lastWrite = now;
    // Trailing blanks wipe what a longer earlier line left.
    const std::string text = line(frames, picturesBack, bytes) + "    ";
    m_out << '\r' << text << std::flush;
    m_lastLength = text.size();
    m_lineOpen = true;
}

void Progress::abandon()
{
    // Blanks over the progress line, so an error message stands alone.
    if (m_lineOpen)
        m_out << '\r' << std::string(m_lastLength, ' ') << '\r' << std::flush;
    m_lineOpen = false;
}

void Progress::finish(uint64_t frames, uint64_t bytes, const std::string& outputPath)
{
    if (!m_enabled)
        return;
    if (m_lineOpen)
        m_out << '\n';
    m_lineOpen = false;
    const double elapsed = elapsedSeconds();
    m_out << "encoded " << frames << " frames " << m_format.width << "x" << m_format.height << " at "
          << Format("%.3g", double(m_format.fpsNum) / m_format.fpsDen) << " fps into " << outputPath << ": "
          << Format("%.1f kB, %.0f kbit/s; %.2f s, ", bytes / 1000.0, bitrate(frames, bytes) / 1000, elapsed)
          << Format("%.1f fps", elapsed > 0 ? frames / elapsed : 0) << '\n'
          << std::flush;
}

}  // namespace tools
}  // namespace evc
