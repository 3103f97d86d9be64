// Test pictures.
#include "common/Picture.h"

#include <cmath>

#include "media/ZKColorFormats.h"
#include "media/ZKImageLayout.h"

#include <stdexcept>

namespace evctest {

TestPicture::TestPicture(uint32_t format, uint32_t width, uint32_t height, uint32_t rowBytes, bool bottomUp, bool alpha)
    : m_buffer(CalcFrameSize(format, width, height, rowBytes, alpha), 0xEE)
{
    if (InitZKImage(&m_record.image, uint32_t(m_buffer.size()), m_buffer.data(), format, bottomUp, int(rowBytes),
                    int(width), int(height), alpha, 0, 25) != 0)
        throw std::runtime_error("no layout for format " + std::to_string(format));
}

uint32_t TestPicture::Rows(int p) const
{
    const ZKImage_t& image = m_record.image;
    const bool half = (p == 1 || p == 2) && (image.colorFormat == 6 || image.colorFormat == 31);
    return image.planes[p] == nullptr ? 0 : half ? image.height / 2 : image.height;
}

uint32_t TestPicture::RowLength(int p) const
{
    const ZKImage_t& image = m_record.image;
    if (ZKIsARGBFormat(image.colorFormat))
        return image.width * GetBytesPerPixel(image.colorFormat);
    const bool half =
        (p == 1 || p == 2) && (image.colorFormat == 6 || image.colorFormat == 31 || image.colorFormat == 32);
    return (half ? image.width / 2 : image.width) * (ZKGetBitResolution(image.colorFormat) > 8 ? 2 : 1);
}

uint8_t* TestPicture::Row(int p, uint32_t top) const
{
    const ZKImage_t& image = m_record.image;
    const uint32_t stride = p == 2 && image.rowBytes[2] == 0 ? image.rowBytes[1] : image.rowBytes[p];
    return image.planes[p] + size_t(image.bottomUp ? Rows(p) - 1 - top : top) * stride;
}

Bytes TestPicture::Draw(int n, uint64_t step)
{
    const uint32_t format = m_record.image.colorFormat,
                   sample = !ZKIsARGBFormat(format) && ZKGetBitResolution(format) > 8 ? 2 : 1;
    for (int p = 0; p < 4; ++p)
        for (uint32_t y = 0; y < Rows(p); ++y)
            for (uint32_t x = 0; x < RowLength(p) / sample; ++x) {
                const uint32_t t = (x * (p + 2) + y * (4 - p) + 3 * uint32_t(n)) % 320;
                const uint32_t value = 40 + (t < 160 ? t : 320 - t) + (p == 0 && x / 16 == uint32_t(n) % 8 ? 50 : 0);
                const uint32_t wide = value * 4 + (x + y) % 4;
                uint8_t* at = Row(p, y) + x * sample;
                at[0] = uint8_t(sample == 2 ? wide : value);
                if (sample == 2)
                    at[1] = uint8_t(wide >> 8);
            }
    m_record.image.time = uint64_t(n) * step;
    return Visible();
}

Bytes TestPicture::Visible() const
{
    Bytes bytes;
    for (int p = 0; p < 4; ++p)
        for (uint32_t y = 0; y < Rows(p); ++y)
            bytes.insert(bytes.end(), Row(p, y), Row(p, y) + RowLength(p));
    return bytes;
}

double Psnr(const Bytes& a, const Bytes& b, int bits)
{
    double squares = 0;
    size_t count = 0;
    for (size_t i = 0; i + (bits > 8) < a.size(); i += bits > 8 ? 2 : 1, ++count) {
        const int x = bits > 8 ? a[i] | a[i + 1] << 8 : a[i];
        const int y = bits > 8 ? b[i] | b[i + 1] << 8 : b[i];
        squares += double(x - y) * (x - y);
    }
    const double peak = (1 << bits) - 1;
    return squares == 0 ? 99 : 10 * std::log10(peak * peak * count / squares);
}

}  // namespace evctest
