#include "media/ZKImageCopy.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "media/ZKImageLayout.h"
#include "evc/ZKResult.h"

namespace {

// Copies `rows` rows, writing the destination from its last row backward when
// flip is set.
void CopyRows(const uint8_t* src, uint32_t srcRowBytes, uint8_t* dst, uint32_t dstRowBytes, size_t rows, bool flip)
{
    if (src == nullptr || dst == nullptr)
        return;
    const size_t width = std::min(srcRowBytes, dstRowBytes);
    for (size_t row = 0; row < rows; ++row) {
        const size_t dstRow = flip ? rows - 1 - row : row;
        std::memmove(dst + dstRow * dstRowBytes, src + row * srcRowBytes, width);
    }
}

IPacketBundle* CloneBundle(const IPacketBundle* bundle)
{
    IPacket* copy = bundle->clone();
    if (copy == nullptr)
        return nullptr;
    // A bundle's clone is a bundle; anything else cannot stand in for one.
    if (copy->getType() != IPacketBundle::kBundleType) {
        copy->destroy();
        return nullptr;
    }
    return static_cast<IPacketBundle*>(copy);
}

}  // namespace

void CopyZKImage(const ZKImage_t* source, ZKImage_t* destination, bool deep)
{
    if (source == nullptr || destination == nullptr)
        return;
    if (source->height != 0 && (source->planes[0] == nullptr || destination->planes[0] == nullptr))
        return;

    destination->originalTime = source->originalTime;
    destination->originalTimeScale = source->originalTimeScale;

    if (source->colorFormat != destination->colorFormat || source->width != destination->width ||
        source->height != destination->height)
        return;

    if (!deep)
        destination->dataPackets = source->dataPackets;
    else if (source->dataPackets != nullptr)
        destination->dataPackets = CloneBundle(source->dataPackets);

    const bool flip = (source->bottomUp != 0) != (destination->bottomUp != 0);
    const size_t h = source->height;
    const uint32_t* sr = source->rowBytes;
    const uint32_t* dr = destination->rowBytes;

    // Format 17 has a plane but no pixels.
    if (ZKIsOnePlaneFormat(source->colorFormat) && source->colorFormat != eColorFormatNoPixels) {
        CopyRows(source->planes[0], sr[0], destination->planes[0], dr[0], h, flip);
    } else if (source->colorFormat == 6) {
        CopyRows(source->planes[0], sr[0], destination->planes[0], dr[0], h, flip);
        if (source->planes[3] != nullptr && destination->planes[3] != nullptr)
            CopyRows(source->planes[3], sr[0], destination->planes[3], dr[0], h, flip);
        // Both chroma planes advance by row bytes 1: row bytes 2 stays 0 for this format.
        CopyRows(source->planes[1], sr[1], destination->planes[1], dr[1], h / 2, flip);
        CopyRows(source->planes[2], sr[1], destination->planes[2], dr[1], h / 2, flip);
    }
}

uint32_t FlipZKImage(const ZKImage_t* source, ZKImage_t* destination)
{
    if (source == nullptr || destination == nullptr)
        return kZKErrBadArgument;
    if (source->colorFormat != destination->colorFormat || source->width != destination->width ||
        source->height != destination->height)
        return kZKErrFormatMismatch;
    destination->bottomUp = source->bottomUp != 0 ? 0 : 1;
    CopyZKImage(source, destination, false);
    return kZKNoErr;
}

uint32_t ProResb64aPacking(const ZKImage_t* source, ZKImage_t* destination)
{
    if (source == nullptr || destination == nullptr)
        return kZKErrBadArgument;
    const size_t h = source->height;
    const size_t w = source->width;
    if (h == 0)
        return kZKNoErr;
    // Strides are whole 16-bit samples.
    const size_t srcStride = size_t{source->rowBytes[0] / 2} * 2;
    const size_t dstStride = size_t{destination->rowBytes[0] / 2} * 2;
    if (source->planes[0] == nullptr || destination->planes[0] == nullptr || srcStride < 2 * w || dstStride < 2 * w)
        return kZKErrBadArgument;
    if (destination->height < source->height)
        return kZKErrFormatMismatch;

    const bool flip = (source->bottomUp != 0) != (destination->bottomUp != 0);
    for (size_t row = 0; row < h; ++row) {
        const uint8_t* s = source->planes[0] + (flip ? h - 1 - row : row) * srcStride;
        uint8_t* d = destination->planes[0] + row * dstStride;
        for (size_t i = 0; i < w; ++i) {
            const uint8_t low = s[2 * i];
            d[2 * i] = s[2 * i + 1];
            d[2 * i + 1] = low;
        }
    }
    return kZKNoErr;
}
