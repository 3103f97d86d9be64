#include "tools/TestPattern.h"

#include <algorithm>

namespace evc {
namespace tools {

namespace {

// A triangle wave over period steps, from 0 up to amplitude and back.
uint32_t Triangle(uint64_t position, uint32_t period, uint32_t amplitude)
{
    const uint64_t p = position % period;
    const uint64_t half = period / 2;
    const uint64_t up = p < half ? p : period - p;
    return static_cast<uint32_t>(up * amplitude / half);
}

void FillBox(uint8_t* plane, uint32_t stride, uint32_t rows, uint32_t x0, uint32_t y0, uint32_t w, uint32_t h,
             uint8_t value)
{
    for (uint32_t y = y0; y < std::min(rows, y0 + h); ++y)
        std::fill(plane + size_t(y) * stride + x0, plane + size_t(y) * stride + std::min(stride, x0 + w), value);
}

}  // namespace

void DrawTestPattern(uint8_t* out, uint32_t width, uint32_t height, uint64_t n)
{
    const uint32_t cw = (width + 1) / 2;
    const uint32_t ch = (height + 1) / 2;
    uint8_t* luma = out;
    uint8_t* cb = luma + size_t(width) * height;
    uint8_t* cr = cb + size_t(cw) * ch;

    // Video-range luma, a diagonal wave that drifts two pixels per picture.
    const uint32_t period = std::max<uint32_t>(2, (width + height) / 2) & ~1u;
    for (uint32_t y = 0; y < height; ++y)
        for (uint32_t x = 0; x < width; ++x)
            luma[size_t(y) * width + x] = static_cast<uint8_t>(16 + Triangle(x + y + 2 * n, period, 200));
    for (uint32_t y = 0; y < ch; ++y) {
        for (uint32_t x = 0; x < cw; ++x) {
            cb[size_t(y) * cw + x] = static_cast<uint8_t>(64 + Triangle(x + n, std::max<uint32_t>(2, cw) & ~1u, 128));
            cr[size_t(y) * cw + x] = static_cast<uint8_t>(64 + Triangle(y + n, std::max<uint32_t>(2, ch) & ~1u, 128));
        }
    }

    // A bright box bouncing horizontally and a dark one falling, on even
    // positions so that their chroma lines up.
    const uint32_t box = std::max<uint32_t>(2, std::min(width, height) / 6) & ~1u;
    if (box < width && box < height) {
        const uint32_t bx = Triangle(4 * n, 2 * (width - box), width - box) & ~1u;
        const uint32_t by = (height - box) / 3 & ~1u;
        FillBox(luma, width, height, bx, by, box, box, 235);
        FillBox(cb, cw, ch, bx / 2, by / 2, box / 2, box / 2, 128);
        FillBox(cr, cw, ch, bx / 2, by / 2, box / 2, box / 2, 128);

        const uint32_t dx = (width - box) * 2 / 3 & ~1u;
        const uint32_t dy = static_cast<uint32_t>((3 * n) % (height - box)) & ~1u;
        FillBox(luma, width, height, dx, dy, box, box, 40);
        FillBox(cb, cw, ch, dx / 2, dy / 2, box / 2, box / 2, 160);
        FillBox(cr, cw, ch, dx / 2, dy / 2, box / 2, box / 2, 100);
    }
}

}  // namespace tools
}  // namespace evc
