// "EncImage" (0x91): one picture as an EBML element. Children in this fixed
// order, each left out when it has nothing to save: "TZKVideoInfo" (0x85),
// "ImageData" (0x87, the whole pixel buffer as it lies), "Descriptors"
// (0x89) and "DataPackets" (0x90).
#pragma once

#include "ebml/ebmlElt.h"
#include "evc/ZKImage.h"

#include <cstdint>

#include "media/CAImageFrame.h"
#include "media/CASharedPtr.h"
#include "media/CATime.h"
#include "transport/TZKFrameElement.h"
#include "transport/TZKFrameInfo.h"

struct TNameVideoInfo {
    static constexpr const char* kName = "TZKVideoInfo";
};
struct TNameImageData {
    static constexpr const char* kName = "ImageData";
};
struct TNameEncImage {
    static constexpr const char* kName = "EncImage";
};

typedef Ebml::TElt<Ebml::VBinary, 0x85, TNameVideoInfo> TZKVideoInfoElt;
typedef Ebml::TElt<Ebml::VBinary, 0x87, TNameImageData> TZKImageDataElt;
typedef CASharedPtr<CAImageFrame, CAFrame> TZKImageFramePtr;

// What a frame is exported from: the parts of a loaded "EncImage", wherever
// they were loaded from (the element's children, or the bytes read directly).
class TZKEncImageParts {
public:
    virtual ~TZKEncImageParts() = default;
    // False when the information child is missing or malformed.
    virtual bool info(TZKVideoInfo& info) const = 0;
    // False when the pixel bytes are too many for a frame record's 32-bit size.
    virtual bool pixelCount(uint32_t& size) const = 0;
    // The pixel bytes where they lie as one run in memory, or null.
    virtual const uint8_t* pixelRun() const = 0;
    virtual void copyPixels(uint8_t* to) const = 0;
    // Both bundles, null where the element has none; false when one cannot be read.
    virtual bool exportBundles(TPacketBundlePtr& descriptors, TPacketBundlePtr& dataPackets,
                               const CATime& offset) const = 0;
};

class TZKEncImage : public TZKFrameElement<TZKVideoInfo, TZKVideoInfoElt, TZKImageDataElt> {
public:
    // Refers to the pixels and the record's bundles where they lie: they must
    // outlive the save. The offset is added to the time (0 units: unchanged).
    void importFrame(const ZKEncImage_t* record, const CATime& offset);
    // A new frame holding a copy of the pixels and the exported bundles; an
    // empty pointer when the information child is missing or malformed, the
    // pixels do not fit the format they claim, or the frame it describes
    // would take a buffer of more than maxBuffer bytes.
    TZKImageFramePtr exportFrame(const CATime& offset, uint64_t maxBuffer = UINT64_MAX) const;
    // The same checks and bundles, but the pixels stay where the loaded bytes
    // lie (one contiguous run, such as the shared payload area): record
    // receives the description with its planes over those bytes and the
    // frame's bundles, valid while both the bytes and the frame are; an
    // element without pixels gives null planes and a data size of 0 (no
    // buffer is laid out for a mere description). An empty pointer also when
    // the bytes are not one run in memory.
    TZKImageFramePtr exportFrameInPlace(const CATime& offset, ZKEncImage_t& record,
                                        uint64_t maxBuffer = UINT64_MAX) const;

    // The frame the parts describe, with the checks above; the pixels are
    // copied, or left in place when inPlace receives the description.
    static TZKImageFramePtr exportFrame(const TZKEncImageParts& parts, const CATime& offset, ZKEncImage_t* inPlace,
                                        uint64_t maxBuffer);
    // The information block that importFrame writes for record.
    static TZKVideoInfo infoOf(const ZKEncImage_t& record, const CATime& offset);

    const TZKVideoInfoElt& videoInfo() const { return m_info; }
    const TZKImageDataElt& imageData() const { return m_bytes; }

private:
    class Parts;
};

typedef Ebml::TElt<TZKEncImage, 0x91, TNameEncImage> TZKEncImageElt;
