#include "media/CAImageFrame.h"

#include "media/ZKColorFormats.h"
#include "media/ZKImageCopy.h"
#include "media/ZKImageLayout.h"

#include <cstring>
#include <utility>

namespace {

void ThrowOnError(uint32_t result)
{
    if (result != kZKNoErr)
        throw result;
}

// Frame sizes are 32-bit: refuse geometry whose size would wrap, since a
// wrapped size would lay planes out past the end of their buffer.
void ThrowUnlessSizeFits(const ZKImage_t& image, const ZKColorFormatInfo& format)
{
    const uint64_t width = image.width;
    const uint64_t rowBytes = image.rowBytes[0] != 0 ? image.rowBytes[0] : format.bytesPerPixel * width;
    const uint64_t packedRow = 128 * ((width + 47) / 48);
    const uint64_t widest = rowBytes > packedRow ? rowBytes : packedRow;
    // 4 x one plane covers every layout (4:4:4 with alpha is the largest).
    if (widest * image.height * 4 > UINT32_MAX)
        throw kZKErrBadArgument;
}

// Bytes from the first plane to the end of the last row: the frame size, but
// the last row counted at its default width when that is longer.
int64_t Extent(const ZKImage_t& image, const ZKColorFormatInfo& format, bool alpha)
{
    const int64_t frameSize = format.FrameSize(image.width, image.height, image.rowBytes[0], alpha);
    const int64_t paddedRow = format.FrameSize(image.width, 1, image.rowBytes[0], false);
    const int64_t plainRow = format.FrameSize(image.width, 1, 0, false);
    return frameSize - paddedRow + plainRow;
}

void ThrowUnlessSizeFits(const ZKImage_t& image)
{
    ThrowUnlessSizeFits(image, ZKGetColorFormatInfo(image.colorFormat));
}

int64_t Extent(const ZKImage_t& image, bool alpha)
{
    return Extent(image, ZKGetColorFormatInfo(image.colorFormat), alpha);
}

}  // namespace

CAImageFrame::CAImageFrame()
{
    std::memset(&m_record, 0, sizeof(m_record));
    m_record.image.colorFormat = eColorFormatYUV420Planar;
    m_record.image.colorRange = eColorRangeDefault;
}

CAImageFrame::~CAImageFrame()
{
    ZKDestroyPacket(m_record.descriptors);
    m_record.descriptors = nullptr;
    ZKDestroyPacket(m_record.image.dataPackets);
    m_record.image.dataPackets = nullptr;
}

void CAImageFrame::TakeTimesFrom(const ZKImage_t& image)
{
    m_time.Init(image.time, image.timeScale);
    m_originalTime.Init(image.originalTime, image.originalTimeScale);
    m_originalFrameWithinSecond = image.originalFrameWithinSecond;
}

void CAImageFrame::RefreshRecordTimes()
{
    ZKImage_t& image = m_record.image;
    image.time = m_time.GetTime();
    image.timeScale = m_time.GetTimeScale();
    image.originalTime = m_originalTime.GetTime();
    image.originalTimeScale = m_originalTime.GetTimeScale();
    image.originalFrameWithinSecond = m_originalFrameWithinSecond;
}

// Lays the record out over a buffer that fits the current geometry, or over no
// data at all for an end-of-stream frame. The bundle pointers must be detached.
void CAImageFrame::LayOutRecord()
{
    ZKImage_t& image = m_record.image;
    const int rowBytes = static_cast<int>(image.rowBytes[0]);
    const int width = static_cast<int>(image.width);
    const int height = static_cast<int>(image.height);
    if (m_isEOF) {
        ThrowOnError(InitZKImage(&image, 0, nullptr, image.colorFormat, image.bottomUp != 0, rowBytes, width, height,
                                 m_alphaEnabled, m_time.GetTime(), m_time.GetTimeScale(), m_originalTime.GetTime(),
                                 m_originalTime.GetTimeScale(), m_originalFrameWithinSecond));
        return;
    }
    const ZKColorFormatInfo& format = ZKGetColorFormatInfo(image.colorFormat);
    ThrowUnlessSizeFits(image, format);
    const uint32_t frameSize = format.FrameSize(image.width, image.height, image.rowBytes[0], m_alphaEnabled);
    if (BufferSize() >= frameSize && (m_buffer != nullptr || frameSize == 0)) {
        RefreshRecordTimes();
        return;
    }
    // Check the layout before giving up the old buffer.
    ZKImage_t probe = image;
    ThrowOnError(InitZKImage(&probe, frameSize, nullptr, image.colorFormat, image.bottomUp != 0, rowBytes, width,
                             height, m_alphaEnabled));
    ReplaceBuffer(frameSize);
    ThrowOnError(InitZKImage(&image, frameSize, m_buffer->GetData(), image.colorFormat, image.colorRange,
                             image.bottomUp != 0, rowBytes, width, height, m_alphaEnabled, m_time.GetTime(),
                             m_time.GetTimeScale(), m_originalTime.GetTime(), m_originalTime.GetTimeScale(),
                             m_originalFrameWithinSecond));
}

ZKEncImage_t CAImageFrame::GetZKEncImage()
{
    IPacketBundle* dataPackets = std::exchange(m_record.image.dataPackets, nullptr);
    IPacketBundle* descriptors = std::exchange(m_record.descriptors, nullptr);
    ZKEncImage_t result;
    std::memset(&result, 0, sizeof(result));
    const uint32_t code = Guarded([this] {
        LayOutRecord();
        return kZKNoErr;
    });
    m_record.image.dataPackets = dataPackets;
    m_record.descriptors = descriptors;
    if (code == kZKNoErr)
        result = m_record;
    return result;
}

ZKImage_t CAImageFrame::GetZKImage()
{
    return GetZKEncImage().image;
}

// The record must lie inside the buffer: from its first plane, the frame size
// less the last row's padding (one row at its row bytes, one at the default).
uint32_t CAImageFrame::CheckFitsBuffer(const ZKImage_t& image) const
{
    const uint8_t* first = image.planes[0];
    if (!PointsInto(first, BufferSize()) || Extent(image, m_alphaEnabled) > static_cast<int64_t>(RoomAfter(first)))
        return kZKErrBadArgument;
    return kZKNoErr;
}

uint32_t CAImageFrame::CheckEncFitsBuffer(const ZKEncImage_t& record) const
{
    const ZKImage_t& image = record.image;
    const uint8_t* first = image.planes[0];
    const int64_t frameSize = ::CalcFrameSize(image, m_alphaEnabled);
    if (static_cast<int64_t>(BufferSize()) < frameSize || !PointsInto(first, BufferSize()))
        return kZKErrBadArgument;
    if (image.colorFormat != eColorFormatNoPixels) {
        int64_t rowBytesSum = 0;
        for (uint32_t rowBytes : image.rowBytes)
            rowBytesSum += rowBytes;
        const int64_t extent = frameSize - rowBytesSum / 2;
        if (extent > static_cast<int64_t>(RoomAfter(first)))
            return kZKErrBadArgument;
    }
    return kZKNoErr;
}

uint32_t CAImageFrame::SetZKImage(const ZKImage_t* image)
{
    if (image == nullptr)
        return kZKErrBadArgument;
    const uint32_t code = Guarded([this, image] {
        ThrowUnlessSizeFits(*image);
        return CheckFitsBuffer(*image);
    });
    if (code != kZKNoErr)
        return code;
    ZKReplaceOwnedBundle(m_record.image.dataPackets, image->dataPackets);
    m_record.image = *image;
    TakeTimesFrom(*image);
    return kZKNoErr;
}

uint32_t CAImageFrame::SetZKEncImage(const ZKEncImage_t* image)
{
    if (image == nullptr)
        return kZKErrBadArgument;
    const uint32_t code = Guarded([this, image] {
        ThrowUnlessSizeFits(image->image);
        return CheckEncFitsBuffer(*image);
    });
    if (code != kZKNoErr)
        return code;
    ZKReplaceOwnedBundle(m_record.image.dataPackets, image->image.dataPackets);
    ZKReplaceOwnedBundle(m_record.descriptors, image->descriptors);
    m_record = *image;
    TakeTimesFrom(image->image);
    return kZKNoErr;
}

uint32_t CAImageFrame::ImportEncImage(const ZKEncImage_t* image)
{
    if (image == nullptr)
        return kZKErrBadArgument;
    return Guarded([this, image] {
        // The description comes from elsewhere: its planes must fit its data
        // size, or the pixels written later would overrun the buffer.
        const ZKColorFormatInfo& format = ZKGetColorFormatInfo(image->image.colorFormat);
        ThrowUnlessSizeFits(image->image, format);
        if (image->image.dataSize != 0 && Extent(image->image, format, m_alphaEnabled) > image->image.dataSize)
            throw kZKErrFormatMismatch;
        ReleaseBuffer();
        ZKReplaceOwnedBundle(m_record.image.dataPackets, image->image.dataPackets);
        ZKReplaceOwnedBundle(m_record.descriptors, image->descriptors);
        m_record = *image;
        TakeTimesFrom(image->image);
        ZKImage_t& own = m_record.image;
        // The imported planes point into someone else's memory: never keep them.
        std::memset(own.planes, 0, sizeof(own.planes));
        if (own.dataSize == 0)
            return kZKNoErr;
        ReplaceBuffer(own.dataSize);
        if (format.planarYuv)
            ReplaceYUVImage(&own, m_buffer->GetData(), format);
        else
            own.planes[0] = m_buffer->GetData();
        return kZKNoErr;
    });
}

uint32_t CAImageFrame::CopyZKImageAttributes(const ZKImage_t& source)
{
    ZKImage_t& own = m_record.image;
    if (&source == &own)
        return kZKNoErr;
    if (m_buffer != nullptr &&
        (source.colorFormat != own.colorFormat || source.width != own.width || source.height != own.height))
        return kZKErrFormatMismatch;
    ZKReplaceOwnedBundle(own.dataPackets, source.dataPackets);
    ZKImage_t copy = source;
    std::memcpy(copy.planes, own.planes, sizeof(copy.planes));
    copy.dataSize = own.dataSize;
    own = copy;
    TakeTimesFrom(source);
    return kZKNoErr;
}

uint32_t CAImageFrame::CopyZKImage(const ZKImage_t& source, bool flip, bool deep)
{
    const uint32_t code = CopyZKImageAttributes(source);
    if (code != kZKNoErr)
        return code;
    if (flip)
        m_record.image.bottomUp ^= 1u;
    GetZKImage();
    if (m_buffer == nullptr || m_record.image.planes[0] == nullptr)
        return kZKErrGeneral;
    ::CopyZKImage(&source, &m_record.image, deep);
    return kZKNoErr;
}

bool CAImageFrame::ContainsZKImage(const ZKImage_t& image) const
{
    return PointsInto(image.planes[0], BufferSize());
}

bool CAImageFrame::HasSameSpecs(const CAImageFrame& other) const
{
    const ZKImage_t& a = m_record.image;
    const ZKImage_t& b = other.m_record.image;
    return a.bottomUp == b.bottomUp && a.colorFormat == b.colorFormat && a.width == b.width && a.height == b.height &&
           m_time == other.m_time;
}

uint32_t CAImageFrame::CalcFrameSize() const
{
    return ::CalcFrameSize(m_record.image, m_alphaEnabled);
}

void CAImageFrame::EnsureWidthAndHeightAreEven()
{
    ZKImage_t& image = m_record.image;
    if ((image.width & 1u) != 0 || (image.height & 1u) != 0) {
        image.width &= ~1u;
        image.height &= ~1u;
    }
}

void CAImageFrame::ExchangeDescriptorsWith(IPacketBundle*& descriptors)
{
    std::swap(m_record.descriptors, descriptors);
}

void CAImageFrame::ExchangeDataPacketsWith(IPacketBundle*& dataPackets)
{
    std::swap(m_record.image.dataPackets, dataPackets);
}
