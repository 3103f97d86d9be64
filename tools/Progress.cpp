// The progress line and the summary.
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

Progress::Progress(std::ostream& out, bool enabled, const VideoFormat& format)
    : m_out(out), m_enabled(enabled), m_format(format), m_start(std::chrono::steady_clock::now()), m_lastWrite(m_start)
{
}

double Progress::elapsedSeconds() const
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - m_start).count();
}

double Progress::bitrate(uint64_t pictures, uint64_t bytes) const
{
    const double seconds = m_format.fpsNum != 0 ? double(pictures) * m_format.fpsDen / m_format.fpsNum : 0;
    return seconds > 0 ? bytes * 8.0 / seconds : 0;
}

std::string Progress::line(uint64_t frames, uint64_t picturesBack, uint64_t bytes, double elapsed) const
{
    const double fps = elapsed > 0 ? frames / elapsed : 0;
    const double kbits = bitrate(picturesBack, bytes) / 1000;
    const uint64_t total = m_format.expectedFrames;
    if (total == 0 || frames > total)
        return std::to_string(frames) + " frames: " + Format("%.2f fps, %.2f kb/s", fps, kbits);
    const double left = fps > 0 ? (total - frames) / fps : 0;
    const long seconds = static_cast<long>(left + 0.5);
    char eta[32];
    std::snprintf(eta, sizeof eta, "%ld:%02ld:%02ld", seconds / 3600, seconds / 60 % 60, seconds % 60);
    return Format("[%.1f%%] ", 100.0 * frames / total) + std::to_string(frames) + "/" + std::to_string(total) +
           " frames, " + Format("%.2f fps, %.2f kb/s, eta ", fps, kbits) + eta;
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
    const std::string text = line(frames, picturesBack, bytes, elapsedSeconds()) + "    ";
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
          << Format("%.4g", double(m_format.fpsNum) / m_format.fpsDen) << " fps into " << outputPath << ": "
          << Format("%.1f kB, %.0f kbit/s; %.2f s, ", bytes / 1000.0, bitrate(frames, bytes) / 1000, elapsed)
          << Format("%.1f fps", elapsed > 0 ? frames / elapsed : 0) << '\n'
          << std::flush;
}

}  // namespace tools
}  // namespace evc
