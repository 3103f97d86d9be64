// The moving test pattern as a source, and the parsing of its plan.
#include "tools/FrameSource.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "tools/TestPattern.h"

extern "C" {
#include <libavutil/imgutils.h>
}

namespace evc {
namespace tools {

size_t VideoFormat::frameBytes() const
{
    const int bytes = av_image_get_buffer_size(AVPixelFormat(pixelFormat), int(width), int(height), 1);
    return bytes > 0 ? size_t(bytes) : 0;
}

void CopyPicture(const Picture& picture, const VideoFormat& format, uint8_t* const planes[3],
                 const uint32_t rowBytes[3])
{
    const int w = int(format.width);
    const int h = int(format.height);
    const uint8_t* source[4] = {};
    int sourceRows[4] = {};
    if (picture.frame) {
        for (int p = 0; p < 3; ++p) {
            source[p] = picture.frame->data[p];
            sourceRows[p] = picture.frame->linesize[p];
        }
    } else {
        av_image_fill_arrays(const_cast<uint8_t**>(source), sourceRows, picture.pixels.data(),
                             AVPixelFormat(format.pixelFormat), w, h, 1);
    }
    uint8_t* target[4] = {planes[0], planes[1], planes[2], nullptr};
    int targetRows[4] = {int(rowBytes[0]), int(rowBytes[1]), int(rowBytes[2]), 0};
    av_image_copy(target, targetRows, source, sourceRows, AVPixelFormat(format.pixelFormat), w, h);
}

namespace {

class TestPatternSource : public FrameSource {
public:
    explicit TestPatternSource(const TestPatternPlan& plan) : m_plan(plan) {}

    const VideoFormat& format() const override { return m_plan.format; }

    bool next(Picture& picture, std::vector<AudioPacket>&) override
    {
        if (m_next >= m_plan.frames)
            return false;
        picture.pixels.resize(m_plan.format.frameBytes());
        picture.time = m_next * m_plan.format.fpsDen;
        picture.duration = m_plan.format.fpsDen;
        DrawTestPattern(picture.pixels.data(), m_plan.format.width, m_plan.format.height, m_next++);
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
    plan.format.timeScale = plan.format.fpsNum;
    plan.frames = static_cast<uint64_t>(std::llround(seconds * plan.format.fpsNum / plan.format.fpsDen));
    if (plan.frames == 0)
        plan.frames = 1;
    plan.format.expectedFrames = plan.frames;
    return plan;
}

std::unique_ptr<FrameSource> MakeTestPatternSource(const TestPatternPlan& plan)
{
    return std::make_unique<TestPatternSource>(plan);
}

}  // namespace tools
}  // namespace evc
