// Copying pictures whose planes lie apart into the segment.
#include "client/ScatteredPicture.h"

#include <cstring>

#include "media/ZKImageLayout.h"

namespace evc {

namespace {

constexpr int kPlanes = 3;

// A plane 2 without row bytes of its own uses those of plane 1 (4:2:0).
uint32_t RowBytes(const ZKImage_t& image, int plane)
{
    return plane == 2 && image.rowBytes[2] == 0 ? image.rowBytes[1] : image.rowBytes[plane];
}

}  // namespace

bool IsScattered(const ZKEncImage_t& picture)
{
    const ZKImage_t& image = picture.image;
    ZKImage_t standard{};
    if (image.planes[0] == nullptr ||
        InitZKImage(&standard, image.dataSize, image.planes[0], image.colorFormat, image.bottomUp != 0,
                    static_cast<int>(image.rowBytes[0]), static_cast<int>(image.width), static_cast<int>(image.height),
                    false) != kZKNoErr)
        return false;
    for (int p = 1; p < kPlanes; ++p)
        if (standard.planes[p] != image.planes[p] ||
            (image.planes[p] != nullptr && RowBytes(standard, p) != RowBytes(image, p)))
            return true;
    return false;
}

ZKEncImage_t GatherIntoSegment(Client& client, const ZKEncImage_t& picture)
{
    const ZKImage_t& from = picture.image;
    ZKEncImage_t lent = client.LendPicture(from.colorFormat, from.width, from.height);
    const ZKImage_t& to = lent.image;
    const uint8_t* end = to.planes[0] + to.dataSize;
    for (int p = kPlanes - 1; p >= 0; --p) {
        if (to.planes[p] == nullptr)
            continue;
        const uint32_t toRow = RowBytes(to, p);
        const uint32_t fromRow = RowBytes(from, p);
        if (from.planes[p] == nullptr || fromRow < toRow)
            throw UsageError("plane " + std::to_string(p) + " of the picture is missing or its rows are too short");
        // Planes are lent one after the other: this one ends where the next begins.
        const size_t rows = toRow != 0 ? static_cast<size_t>(end - to.planes[p]) / toRow : 0;
        if (fromRow == toRow) {
            std::memcpy(to.planes[p], from.planes[p], rows * toRow);
        } else {
            for (size_t r = 0; r < rows; ++r)
                std::memcpy(to.planes[p] + r * toRow, from.planes[p] + r * fromRow, toRow);
        }
        end = to.planes[p];
    }
    ZKEncImage_t out = picture;
    std::memcpy(out.image.rowBytes, to.rowBytes, sizeof out.image.rowBytes);
    std::memcpy(out.image.planes, to.planes, sizeof out.image.planes);
    out.image.dataSize = to.dataSize;
    return out;
}

}  // namespace evc
