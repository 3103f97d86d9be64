#include "transport/TZKEncImage.h"

#include "media/ZKImageLayout.h"

#include "transport/TimeOffset.h"

#include <cstring>

namespace {

// The fields the image record and the information block share, either way;
// the time is moved by the offset on its own.
template <class To, class From>
void CopyImageFields(To& to, const From& from, const CATime& offset)
{
    to.colorFormat = from.colorFormat;
    to.width = from.width;
    to.height = from.height;
    to.bottomUp = from.bottomUp;
    for (int k = 0; k < 4; ++k)
        to.rowBytes[k] = from.rowBytes[k];
    to.time = ZKAddTimeOffset(from.time, from.timeScale, offset);
    to.timeScale = from.timeScale;
    to.originalTime = from.originalTime;
    to.originalTimeScale = from.originalTimeScale;
    to.originalFrameWithinSecond = from.originalFrameWithinSecond;
}

}  // namespace

TZKVideoInfo TZKEncImage::infoOf(const ZKEncImage_t& record, const CATime& offset)
{
    const ZKImage_t& image = record.image;
    TZKVideoInfo info;
    CopyImageFields(info, image, offset);
    info.streamFlags = record.streamFlags;
    info.streamValue = record.streamValue;
    if (image.planes[0] != nullptr && image.dataSize != 0)
        for (int k = 1; k < 4; ++k)
            info.planeOffsets[k - 1] =
                image.planes[k] != nullptr ? static_cast<uint32_t>(image.planes[k] - image.planes[0]) : image.dataSize;
    return info;
}

void TZKEncImage::importFrame(const ZKEncImage_t* record, const CATime& offset)
{
    if (!beginImport(record, offset))
        return;
    const ZKImage_t& image = record->image;
    if (image.planes[0] != nullptr && image.dataSize != 0)
        setBytes(image.planes[0], image.dataSize);
    setInfo(infoOf(*record, offset));
    importBundles(record->descriptors, image.dataPackets, offset);
}

// The element's children as the parts of a frame.
class TZKEncImage::Parts : public TZKEncImageParts {
public:
    explicit Parts(const TZKEncImage& element) : m_element(element) {}
    bool info(TZKVideoInfo& info) const override { return m_element.getInfo(info); }
    bool pixelCount(uint32_t& size) const override { return m_element.bytesSize(size); }
    const uint8_t* pixelRun() const override
    {
        const Ebml::HodgePodge::TReceipts& runs = m_element.bytes().receipts();
        return runs.size() == 1 ? runs.front()->contiguousBytes() : nullptr;
    }
    void copyPixels(uint8_t* to) const override { m_element.bytes().get(to); }
    bool exportBundles(TPacketBundlePtr& descriptors, TPacketBundlePtr& dataPackets,
                       const CATime& offset) const override
    {
        return m_element.exportBundles(descriptors, dataPackets, offset);
    }

private:
    const TZKEncImage& m_element;
};

TZKImageFramePtr TZKEncImage::exportFrame(const CATime& offset, uint64_t maxBuffer) const
{
    return exportFrame(Parts(*this), offset, nullptr, maxBuffer);
}

TZKImageFramePtr TZKEncImage::exportFrameInPlace(const CATime& offset, ZKEncImage_t& record, uint64_t maxBuffer) const
{
    return exportFrame(Parts(*this), offset, &record, maxBuffer);
}

TZKImageFramePtr TZKEncImage::exportFrame(const TZKEncImageParts& parts, const CATime& offset, ZKEncImage_t* inPlace,
                                          uint64_t maxBuffer)
{
    TZKVideoInfo info;
    uint32_t dataSize = 0;
    if (!parts.info(info) || !parts.pixelCount(dataSize))
        return TZKImageFramePtr();
    // The frame is laid out over a buffer sized by the sender's geometry and
    // row bytes: a few bytes of description must not buy a huge allocation.
    if (CalcFrameSize(info.colorFormat, info.width, info.height, info.rowBytes[0], false) > maxBuffer)
        return TZKImageFramePtr();
    // An offset equal to the data size marks an absent plane; one past it is
    // refused rather than replaced by the buffer's own layout.
    if (dataSize != 0)
        for (uint32_t planeOffset : info.planeOffsets)
            if (planeOffset > dataSize)
                return TZKImageFramePtr();

    ZKEncImage_t record;
    std::memset(&record, 0, sizeof record);
    ZKImage_t& image = record.image;
    CopyImageFields(image, info, offset);
    image.dataSize = dataSize;
    record.streamValue = info.streamValue;
    record.streamFlags = info.streamFlags;

    TZKImageFramePtr frame(new CAImageFrame);
    // The bundles join the frame only once it is built, so that a refused
    // frame leaves no doubt about who releases them.
    if (frame->ImportEncImage(&record) != 0)
        return TZKImageFramePtr();
    // A frame without pixels (a description) gets no buffer.
    if (dataSize != 0) {
        ZKEncImage_t laidOut = frame->GetZKEncImage();
        const CABuffer* buffer = frame->GetBuffer();
        uint8_t* bufferPlane0 = laidOut.image.planes[0];
        if (buffer == nullptr || bufferPlane0 == nullptr || bufferPlane0 < buffer->GetData() ||
            uint64_t(bufferPlane0 - buffer->GetData()) + dataSize > buffer->GetSize())
            return TZKImageFramePtr();
        uint8_t* plane0 = bufferPlane0;
        if (inPlace != nullptr) {
            // The pixels are used where they were loaded from, not copied.
            const uint8_t* where = parts.pixelRun();
            if (where == nullptr)
                return TZKImageFramePtr();
            plane0 = const_cast<uint8_t*>(where);
            // Each plane at its place in the buffer's layout, or where the
            // sender says; one that starts past the bytes is refused (the
            // copying read refuses it too).
            for (int k = 0; k < 4; ++k) {
                uint8_t*& plane = laidOut.image.planes[k];
                if (plane == nullptr)
                    continue;
                uint64_t at = uint64_t(plane - bufferPlane0);
                if (k > 0 && info.planeOffsets[k - 1] < dataSize)
                    at = info.planeOffsets[k - 1];
                if (at >= dataSize)
                    return TZKImageFramePtr();
                plane = plane0 + at;
            }
        } else {
            parts.copyPixels(plane0);
        }
        // Only offsets inside the copied bytes are trusted.
        for (int k = 1; k < 4; ++k)
            if (info.planeOffsets[k - 1] < dataSize)
                laidOut.image.planes[k] = plane0 + info.planeOffsets[k - 1];
        // Row bytes come from the sender too: every plane's rows must lie in
        // the copied bytes before a compressor reads them.
        if (!ZKPlanesFitArea(laidOut.image, plane0, dataSize))
            return TZKImageFramePtr();
        // The compressor gets the sender's row bytes or no frame at all.
        if (std::memcmp(laidOut.image.rowBytes, info.rowBytes, sizeof laidOut.image.rowBytes) != 0)
            return TZKImageFramePtr();
        if (inPlace != nullptr)
            *inPlace = laidOut;
        else if (frame->SetZKEncImage(&laidOut) != 0)
            return TZKImageFramePtr();
    }
    TPacketBundlePtr descriptors;
    TPacketBundlePtr dataPackets;
    if (!parts.exportBundles(descriptors, dataPackets, offset))
        return TZKImageFramePtr();
    ZKAttachBundles(*frame, descriptors, dataPackets);
    if (inPlace != nullptr) {
        // The frame's record brings the bundles; pixels stay in place.
        const ZKEncImage_t& withBundles = frame->Description();
        if (dataSize == 0) {
            // A description without pixels stays one: no buffer is laid out.
            *inPlace = withBundles;
        } else {
            inPlace->descriptors = withBundles.descriptors;
            inPlace->image.dataPackets = withBundles.image.dataPackets;
        }
    }
    return frame;
}
