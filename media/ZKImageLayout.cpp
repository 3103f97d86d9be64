#include "media/ZKImageLayout.h"

#include <cstddef>

#include "media/ZKColorFormats.h"
#include "evc/ZKResult.h"

bool ZKIsOnePlaneFormat(uint32_t colorFormat)
{
    return ZKGetColorFormatInfo(colorFormat).layout == ZKPlaneLayout::kOnePlane;
}

bool ZKPlanesFitArea(const ZKImage_t& image, const uint8_t* start, uint64_t size)
{
    const ZKColorFormatInfo& format = ZKGetColorFormatInfo(image.colorFormat);
    const uint64_t lumaPixels = format.DefaultRowBytes(image.width);
    const bool halfChroma = format.layout == ZKPlaneLayout::k420 || format.layout == ZKPlaneLayout::k422;
    for (int k = 0; k < 4; ++k) {
        const uint8_t* plane = image.planes[k];
        if (plane == nullptr)
            continue;
        if (start == nullptr || plane < start || uint64_t(plane - start) > size)
            return false;
        const bool chroma = k == 1 || k == 2;
        const uint64_t rows = chroma ? format.ChromaRows(image.height) : image.height;
        const uint64_t rowBytes = k == 2 && image.rowBytes[2] == 0 ? image.rowBytes[1] : image.rowBytes[k];
        // The last row needs only its pixels, not its padding; a format
        // without a pixel size keeps whole rows.
        uint64_t lastRow = chroma && halfChroma ? lumaPixels / 2 : lumaPixels;
        if (lastRow == 0)
            lastRow = rowBytes;
        const uint64_t extent = rows == 0 ? 0 : (rows - 1) * rowBytes + lastRow;
        if (extent > size - uint64_t(plane - start))
            return false;
    }
    return true;
}

namespace {

// Only called with a non-null base: offsets from a null pointer are undefined.
uint8_t* At(uint8_t* base, size_t offset)
{
    return base + offset;
}

}  // namespace

uint32_t InitZKImage(ZKImage_t* image, uint32_t dataSize, void* data, uint32_t colorFormat, bool bottomUp, int rowBytes,
                     int width, int height, bool alpha)
{
    const ZKColorFormatInfo& format = ZKGetColorFormatInfo(colorFormat);
    if (image == nullptr || rowBytes < 0 || width < 0 || height < 0 || !format.HasLayout())
        return kZKErrBadArgument;

    const uint32_t w = static_cast<uint32_t>(width);
    const size_t h = static_cast<size_t>(height);
    const uint32_t r = rowBytes != 0 ? static_cast<uint32_t>(rowBytes) : format.DefaultRowBytes(w);

    image->dataSize = dataSize;
    image->colorFormat = colorFormat;
    image->colorRange = eColorRangeDefault;
    image->width = w;
    image->height = static_cast<uint32_t>(height);
    image->bottomUp = bottomUp ? 1 : 0;
    for (int i = 0; i < 4; ++i) {
        image->rowBytes[i] = 0;
        image->planes[i] = nullptr;
    }
    image->dataPackets = nullptr;
    image->time = 0;
    image->timeScale = 1;

    uint8_t* const base = static_cast<uint8_t*>(data);
    const size_t lumaSize = size_t{r} * h;

    image->rowBytes[0] = r;
    switch (format.layout) {
    case ZKPlaneLayout::kOnePlane:
        image->planes[0] = base;
        break;
    case ZKPlaneLayout::k420:
        image->rowBytes[1] = r / 2;
        if (base != nullptr) {
            image->planes[0] = base;
            image->planes[1] = At(base, lumaSize);
            image->planes[2] = At(image->planes[1], (h / 2) * (r / 2));
        }
        if (format.alphaPlane && alpha) {
            image->rowBytes[3] = r;
            if (base != nullptr)
                image->planes[3] = At(base, lumaSize + lumaSize / 2);
        }
        break;
    case ZKPlaneLayout::k422:
        image->rowBytes[1] = r / 2;
        image->rowBytes[2] = r / 2;
        if (base != nullptr) {
            image->planes[0] = base;
            image->planes[1] = At(base, lumaSize);
            image->planes[2] = At(image->planes[1], size_t{r / 2} * h);
        }
        break;
    default:  // k444: three full planes, never an alpha plane
        image->rowBytes[1] = r;
        image->rowBytes[2] = r;
        if (base != nullptr) {
            image->planes[0] = base;
            image->planes[1] = At(base, lumaSize);
            image->planes[2] = At(base, 2 * lumaSize);
        }
        break;
    }
    return kZKNoErr;
}

uint32_t InitZKImage(ZKImage_t* image, uint32_t dataSize, void* data, uint32_t colorFormat, bool bottomUp, int rowBytes,
                     int width, int height, bool alpha, uint64_t time, uint64_t timeScale)
{
    return InitZKImage(image, dataSize, data, colorFormat, bottomUp, rowBytes, width, height, alpha, time, timeScale, 0,
                       1, 0);
}

uint32_t InitZKImage(ZKImage_t* image, uint32_t dataSize, void* data, uint32_t colorFormat, bool bottomUp, int rowBytes,
                     int width, int height, bool alpha, uint64_t time, uint64_t timeScale, uint64_t originalTime,
                     uint64_t originalTimeScale, uint32_t originalFrameWithinSecond)
{
    const uint32_t result = InitZKImage(image, dataSize, data, colorFormat, bottomUp, rowBytes, width, height, alpha);
    if (result != kZKNoErr)
        return result;
    image->time = time;
    image->timeScale = timeScale;
    image->originalTime = originalTime;
    image->originalTimeScale = originalTimeScale;
    image->originalFrameWithinSecond = originalFrameWithinSecond;
    return kZKNoErr;
}

uint32_t InitZKImage(ZKImage_t* image, uint32_t dataSize, void* data, uint32_t colorFormat, uint32_t colorRange,
                     bool bottomUp, int rowBytes, int width, int height, bool alpha, uint64_t time, uint64_t timeScale)
{
    return InitZKImage(image, dataSize, data, colorFormat, colorRange, bottomUp, rowBytes, width, height, alpha, time,
                       timeScale, 0, 1, 0);
}

uint32_t InitZKImage(ZKImage_t* image, uint32_t dataSize, void* data, uint32_t colorFormat, uint32_t colorRange,
                     bool bottomUp, int rowBytes, int width, int height, bool alpha, uint64_t time, uint64_t timeScale,
                     uint64_t originalTime, uint64_t originalTimeScale, uint32_t originalFrameWithinSecond)
{
    const uint32_t result = InitZKImage(image, dataSize, data, colorFormat, bottomUp, rowBytes, width, height, alpha,
                                        time, timeScale, originalTime, originalTimeScale, originalFrameWithinSecond);
    if (result == kZKNoErr)
        image->colorRange = colorRange;
    return result;
}

uint32_t InitZKImage(ZKImage_t* image, uint32_t dataSize, void* data, uint32_t colorFormat, bool bottomUp, int width,
                     int height, bool alpha)
{
    return InitZKImage(image, dataSize, data, colorFormat, bottomUp, 0, width, height, alpha);
}

uint32_t InitZKImage(ZKImage_t* image, uint32_t dataSize, void* data, uint32_t colorFormat, bool bottomUp, int width,
                     int height, bool alpha, uint64_t time, uint64_t timeScale)
{
    return InitZKImage(image, dataSize, data, colorFormat, bottomUp, 0, width, height, alpha, time, timeScale);
}

uint32_t InitZKImage(ZKImage_t* image, uint32_t dataSize, void* data, uint32_t colorFormat, bool bottomUp, int width,
                     int height, bool alpha, uint64_t time, uint64_t timeScale, uint64_t originalTime,
                     uint64_t originalTimeScale, uint32_t originalFrameWithinSecond)
{
    return InitZKImage(image, dataSize, data, colorFormat, bottomUp, 0, width, height, alpha, time, timeScale,
                       originalTime, originalTimeScale, originalFrameWithinSecond);
}

uint32_t CalcFrameSize(uint32_t colorFormat, uint32_t width, uint32_t height, uint32_t rowBytes, bool alpha)
{
    return ZKGetColorFormatInfo(colorFormat).FrameSize(width, height, rowBytes, alpha);
}

uint32_t CalcFrameSize(const ZKImage_t& image, bool alpha)
{
    return CalcFrameSize(image.colorFormat, image.width, image.height, image.rowBytes[0], alpha);
}

void ReplaceYUVImage(ZKImage_t* image, void* base)
{
    if (image != nullptr)
        ReplaceYUVImage(image, base, ZKGetColorFormatInfo(image->colorFormat));
}

void ReplaceYUVImage(ZKImage_t* image, void* base, const ZKColorFormatInfo& format)
{
    if (image == nullptr || !format.MovesPlanes())
        return;

    uint8_t* const b = static_cast<uint8_t*>(base);
    const bool hasAlpha = format.alphaPlane && image->planes[3] != nullptr;
    for (uint8_t*& plane : image->planes)
        plane = nullptr;
    if (b == nullptr)
        return;

    const size_t h = image->height;
    const size_t lumaSize = size_t{image->rowBytes[0]} * h;
    image->planes[0] = b;
    image->planes[1] = At(b, lumaSize);
    image->planes[2] = At(image->planes[1], size_t{format.ChromaRows(image->height)} * image->rowBytes[1]);
    if (hasAlpha)
        image->planes[3] = At(b, lumaSize + lumaSize / 2);
}
