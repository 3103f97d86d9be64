#include "transport/TZKEncImage.h"

#include "ebml/ebmlMemoryStorage.h"
#include "transport/TZKFrameBundles.h"
#include "transport/TZKFrameInfo.h"
#include "transport/TimeOffset.h"

#include <cstring>
#include <limits>

bool TZKEncImage::eval(Ebml::IElementCrawler& crawler)
{
    return evalChildren(crawler, {&m_videoInfo, &m_imageData, &m_descriptors, &m_dataPackets});
}

bool TZKEncImage::isDefault() const
{
    return !m_videoInfo.mustSave() && !m_imageData.mustSave() && !m_descriptors.mustSave() &&
           !m_dataPackets.mustSave();
}

Ebml::uint64 TZKEncImage::calcSize() const
{
    return calcChildrenSize({&m_videoInfo, &m_imageData, &m_descriptors, &m_dataPackets});
}

Ebml::TReceiptPtr TZKEncImage::save(Ebml::IStorage& storage) const
{
    return saveChildren(storage, {&m_videoInfo, &m_imageData, &m_descriptors, &m_dataPackets});
}

Ebml::uint64 TZKEncImage::load(Ebml::IStorage& storage, Ebml::uint64 bytesToRead,
                               Ebml::IDelegateLoad* delegate)
{
    return loadChildren(storage, bytesToRead, delegate,
                        {&m_videoInfo, &m_imageData, &m_descriptors, &m_dataPackets});
}

void TZKEncImage::importFrame(const ZKEncImage_t* record, const CATime& offset)
{
    m_videoInfo->data().clear();
    m_imageData->data().clear();
    if (record == nullptr) {
        ZKImportFrameBundles(m_descriptors, m_dataPackets, nullptr, nullptr, offset);
        return;
    }
    const ZKImage_t& image = record->image;
    TZKVideoInfo info;
    info.colorFormat = image.colorFormat;
    info.width = image.width;
    info.height = image.height;
    info.bottomUp = image.bottomUp;
    for (int k = 0; k < 4; ++k)
        info.rowBytes[k] = image.rowBytes[k];
    info.time = ZKAddTimeOffset(image.time, image.timeScale, offset);
    info.timeScale = image.timeScale;
    info.originalTime = image.originalTime;
    info.originalTimeScale = image.originalTimeScale;
    info.originalFrameWithinSecond = image.originalFrameWithinSecond;
    info.streamFlags = record->streamFlags;
    info.streamValue = record->streamValue;
    if (image.planes[0] != nullptr && image.dataSize != 0) {
        m_imageData->set(Ebml::receiptForConstMemory(image.planes[0], image.dataSize));
        for (int k = 1; k < 4; ++k)
            info.planeOffsets[k - 1] = image.planes[k] != nullptr
                                           ? static_cast<uint32_t>(image.planes[k] - image.planes[0])
                                           : image.dataSize;
    }
    uint8_t block[TZKVideoInfo::kSize];
    info.encode(block);
    // Copied into a block of its own, so that copies of the element stay valid.
    m_videoInfo->set(block, sizeof block, Ebml::HodgePodgeStorage::Instance);
    ZKImportFrameBundles(m_descriptors, m_dataPackets, record->descriptors, image.dataPackets, offset);
}

TZKImageFramePtr TZKEncImage::exportFrame(const CATime& offset) const
{
    const Ebml::HodgePodge& infoBytes = m_videoInfo->data();
    const Ebml::uint64 infoSize = infoBytes.numBytes();
    if (infoSize != TZKVideoInfo::kSize && infoSize != TZKVideoInfo::kShortSize)
        return TZKImageFramePtr();
    uint8_t block[TZKVideoInfo::kSize];
    TZKVideoInfo info;
    if (!infoBytes.get(block) || !info.decode(block, infoSize))
        return TZKImageFramePtr();
    const Ebml::HodgePodge& pixels = m_imageData->data();
    if (pixels.numBytes() > std::numeric_limits<uint32_t>::max())
        return TZKImageFramePtr();
    const uint32_t dataSize = static_cast<uint32_t>(pixels.numBytes());

    ZKEncImage_t record;
    std::memset(&record, 0, sizeof record);
    ZKImage_t& image = record.image;
    image.colorFormat = info.colorFormat;
    image.width = info.width;
    image.height = info.height;
    image.bottomUp = info.bottomUp;
    for (int k = 0; k < 4; ++k)
        image.rowBytes[k] = info.rowBytes[k];
    image.time = ZKAddTimeOffset(info.time, info.timeScale, offset);
    image.timeScale = info.timeScale;
    image.originalTime = info.originalTime;
    image.originalTimeScale = info.originalTimeScale;
    image.originalFrameWithinSecond = info.originalFrameWithinSecond;
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
        uint8_t* plane0 = laidOut.image.planes[0];
        if (buffer == nullptr || plane0 == nullptr || plane0 < buffer->GetData() ||
            uint64_t(plane0 - buffer->GetData()) + dataSize > buffer->GetSize())
            return TZKImageFramePtr();
        pixels.get(plane0);
        // Only offsets inside the copied bytes are trusted.
        for (int k = 1; k < 4; ++k)
            if (info.planeOffsets[k - 1] < dataSize)
                laidOut.image.planes[k] = plane0 + info.planeOffsets[k - 1];
        frame->SetZKEncImage(&laidOut);
    }
    ZKAttachFrameBundles(*frame, ZKExportFrameBundles(m_descriptors, m_dataPackets, offset));
    return frame;
}
