#include "tools/FrameSource.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <stdexcept>

#include "tools/TestPattern.h"

namespace evc {
namespace tools {

size_t VideoFormat::frameBytes() const
{
    return size_t(width) * height + 2 * (size_t((width + 1) / 2) * ((height + 1) / 2));
}

namespace {

class Y4mSource : public FrameSource {
public:
    explicit Y4mSource(const std::string& path) : m_path(path), m_reader(OpenStream(path))
    {
        const Y4mHeader& header = m_reader.header();
        m_format.width = header.width;
        m_format.height = header.height;
        m_format.fpsNum = header.fpsNum;
        m_format.fpsDen = header.fpsDen;
    }

    const VideoFormat& format() const override { return m_format; }

    bool next(std::vector<uint8_t>& frame) override
    {
        frame.resize(m_reader.frameBytes());
        return m_reader.readFrame(frame.data());
    }

    std::string name() const override { return m_path == "-" ? "standard input" : m_path; }

private:
    // Runs before the reader is built over the stream it returns.
    std::istream& OpenStream(const std::string& path)
    {
        if (path == "-")
            return std::cin;
        m_file.open(path, std::ios::binary);
        if (!m_file)
            throw std::runtime_error("cannot open " + path + ": " + std::strerror(errno));
        return m_file;
    }

    std::string m_path;
    std::ifstream m_file;
    Y4mReader m_reader;
    VideoFormat m_format;
};

class TestPatternSource : public FrameSource {
public:
    explicit TestPatternSource(const TestPatternPlan& plan) : m_plan(plan) {}

    const VideoFormat& format() const override { return m_plan.format; }

    bool next(std::vector<uint8_t>& frame) override
    {
        if (m_next >= m_plan.frames)
            return false;
        frame.resize(m_plan.format.frameBytes());
        DrawTestPattern(frame.data(), m_plan.format.width, m_plan.format.height, m_next++);
        return true;
    }

    std::string name() const override { return "test pattern"; }

private:
    TestPatternPlan m_plan;
    uint64_t m_next = 0;
};

uint32_t ParseWhole(const std::string& text, const std::string& plan)
{
    if (text.empty() || text.find_first_not_of("0123456789") != std::string::npos || text.size() > 9)
        throw std::invalid_argument("bad test pattern \"" + plan + "\": expected WxH@FPS:SECONDS, e.g. 640x360@25:4");
    return static_cast<uint32_t>(std::strtoul(text.c_str(), nullptr, 10));
}

}  // namespace

std::unique_ptr<FrameSource> OpenY4mSource(const std::string& path)
{
    return std::make_unique<Y4mSource>(path);
}

TestPatternPlan ParseTestPattern(const std::string& text)
{
    const size_t x = text.find('x');
    const size_t at = text.find('@');
    const size_t colon = text.find(':');
    const std::string usage = "bad test pattern \"" + text + "\": expected WxH@FPS:SECONDS, e.g. 640x360@25:4";
    if (x == std::string::npos || at == std::string::npos || colon == std::string::npos || !(x < at && at < colon))
        throw std::invalid_argument(usage);

    TestPatternPlan plan;
    plan.format.width = ParseWhole(text.substr(0, x), text);
    plan.format.height = ParseWhole(text.substr(x + 1, at - x - 1), text);
    const std::string rate = text.substr(at + 1, colon - at - 1);
    const size_t slash = rate.find('/');
    plan.format.fpsNum = ParseWhole(rate.substr(0, slash), text);
    plan.format.fpsDen = slash == std::string::npos ? 1 : ParseWhole(rate.substr(slash + 1), text);

    const std::string secondsText = text.substr(colon + 1);
    char* end = nullptr;
    const double seconds = std::strtod(secondsText.c_str(), &end);
    if (secondsText.empty() || *end != '\0' || !(seconds > 0) || seconds > 86400)
        throw std::invalid_argument(usage);

    if (plan.format.width == 0 || plan.format.height == 0 || plan.format.width > 16384 || plan.format.height > 16384)
        throw std::invalid_argument("bad test pattern \"" + text + "\": sizes go from 2 to 16384");
    if (plan.format.fpsNum == 0 || plan.format.fpsDen == 0)
        throw std::invalid_argument("bad test pattern \"" + text + "\": the frame rate must not be 0");
    plan.frames = static_cast<uint64_t>(std::llround(seconds * plan.format.fpsNum / plan.format.fpsDen));
    if (plan.frames == 0)
        plan.frames = 1;
    return plan;
}

std::unique_ptr<FrameSource> MakeTestPatternSource(const TestPatternPlan& plan)
{
    return std::make_unique<TestPatternSource>(plan);
}

}  // namespace tools
}  // namespace evc
