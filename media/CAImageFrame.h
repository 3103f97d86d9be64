// One picture: its ZKEncImage_t description, the pooled buffer holding its
// planes, and the packet bundles attached to it, which the frame owns.
#pragma once

#include "media/CAFrame.h"
#include "evc/ZKImage.h"

class CAImageFrame : public CAFrame {
public:
    // An empty frame of format 6 (4:2:0), colour range 1, 0 x 0, no buffer.
    CAImageFrame();
    // Destroys the descriptors and data packets bundles.
    ~CAImageFrame() override;

    uint32_t SetColorFormat(EColorFormats format) { return Store(m_record.image.colorFormat, format); }
    EColorFormats GetColorFormat() const { return static_cast<EColorFormats>(m_record.image.colorFormat); }
    uint32_t SetColorRange(ColorRanges_e range) { return Store(m_record.image.colorRange, range); }
    ColorRanges_e GetColorRange() const { return static_cast<ColorRanges_e>(m_record.image.colorRange); }
    uint32_t SetAlphaEnabled(bool enabled) { return Store(m_alphaEnabled, enabled); }
    bool GetAlphaEnabled() const { return m_alphaEnabled; }
    // Row bytes of the first plane.
    uint32_t SetRowBytes(uint32_t rowBytes) { return Store(m_record.image.rowBytes[0], rowBytes); }
    uint32_t GetRowBytes() const { return m_record.image.rowBytes[0]; }
    uint32_t SetWidth(uint32_t width) { return Store(m_record.image.width, width); }
    uint32_t GetWidth() const { return m_record.image.width; }
    uint32_t SetHeight(uint32_t height) { return Store(m_record.image.height, height); }
    uint32_t GetHeight() const { return m_record.image.height; }
    uint32_t SetButtomUp(bool bottomUp) { return Store(m_record.image.bottomUp, bottomUp ? 1u : 0u); }
    bool GetBottomUp() const { return m_record.image.bottomUp != 0; }
    uint32_t SetInterlaced(bool interlaced) { return Store(m_interlaced, interlaced); }
    bool GetInterlaced() const { return m_interlaced; }
    uint32_t SetOriginalTime(const CATime& time) { return Store(m_originalTime, time); }
    CATime GetOriginalTime() const { return m_originalTime; }
    uint32_t SetOriginalFrameWithinSecond(uint32_t frame) { return Store(m_originalFrameWithinSecond, frame); }
    uint32_t GetOriginalFrameWithinSecond() const { return m_originalFrameWithinSecond; }

    // The description with the frame's times, laid out over a buffer large
    // enough for the current geometry (acquired when missing or too small).
    // An end-of-stream frame describes no data. All zero on failure.
    ZKEncImage_t GetZKEncImage();
    ZKImage_t GetZKImage();
    // The description as it stands, never laid out: a frame without a buffer
    // (a description of a picture, not a picture) has null planes and a data
    // size of 0. The bundles stay the frame's.
    const ZKEncImage_t& Description() const { return m_record; }

    // Adopt a description whose planes lie inside the frame's buffer; the
    // frame takes over the record's bundles (an old bundle is destroyed).
    uint32_t SetZKImage(const ZKImage_t* image);
    uint32_t SetZKEncImage(const ZKEncImage_t* image);
    // Adopt a description from elsewhere: a new buffer of its data size is
    // taken and the planes are moved onto it; the caller fills the pixels.
    uint32_t ImportEncImage(const ZKEncImage_t* image);

    // Everything but the planes and the data size; the source's data packets
    // are taken over. With a buffer, format and geometry must match.
    uint32_t CopyZKImageAttributes(const ZKImage_t& source);
    // Attributes and pixels (rows flipped when the bottom-up flags differ);
    // deep clones the source's data packets instead of sharing them.
    uint32_t CopyZKImage(const ZKImage_t& source, bool flip, bool deep);

    // The record's first plane lies inside the frame's buffer.
    bool ContainsZKImage(const ZKImage_t& image) const;
    bool HasSameSpecs(const CAImageFrame& other) const;
    uint32_t CalcFrameSize() const;
    void EnsureWidthAndHeightAreEven();

    // Swap the frame's bundle with the caller's; ownership moves with it.
    void ExchangeDescriptorsWith(IPacketBundle*& descriptors);
    void ExchangeDataPacketsWith(IPacketBundle*& dataPackets);

private:
    void TakeTimesFrom(const ZKImage_t& image);
    void RefreshRecordTimes();
    void LayOutRecord();
    uint32_t CheckFitsBuffer(const ZKImage_t& image) const;
    uint32_t CheckEncFitsBuffer(const ZKEncImage_t& image) const;

    ZKEncImage_t m_record;
    bool m_interlaced = false;
    bool m_alphaEnabled = false;
    CATime m_originalTime;
    uint32_t m_originalFrameWithinSecond = 0;
};
