// "EncAudio" (0x92): one block of audio as an EBML element. Children in this
// fixed order, each left out when it has nothing to save: "TZKAudioInfo"
// (0x86), "SampleBuffer" (0x88), "Descriptors" (0x89), "DataPackets" (0x90).
#pragma once

#include "ebml/ebmlElt.h"
#include "evc/ZKImage.h"
#include "media/CAAudioFrame.h"
#include "media/CASharedPtr.h"
#include "media/CATime.h"
#include "transport/TZKFrameElement.h"
#include "transport/TZKFrameInfo.h"

struct TNameAudioInfo {
    static constexpr const char* kName = "TZKAudioInfo";
};
struct TNameSampleBuffer {
    static constexpr const char* kName = "SampleBuffer";
};
struct TNameEncAudio {
    static constexpr const char* kName = "EncAudio";
};

typedef Ebml::TElt<Ebml::VBinary, 0x86, TNameAudioInfo> TZKAudioInfoElt;
typedef Ebml::TElt<Ebml::VBinary, 0x88, TNameSampleBuffer> TZKSampleBufferElt;
typedef CASharedPtr<CAAudioFrame, CAFrame> TZKAudioFramePtr;

class TZKEncAudio : public TZKFrameElement<TZKAudioInfo, TZKAudioInfoElt, TZKSampleBufferElt> {
public:
    // Refers to the samples and the record's bundles where they lie: they must
    // outlive the save.
    void importFrame(const ZKEncAudio_t* record, const CATime& offset);
    // A new frame with a copy of the samples; an empty pointer when the
    // information child is missing or has a size other than 72 or 48, or the
    // block it describes would take a buffer of more than maxBuffer bytes.
    TZKAudioFramePtr exportFrame(const CATime& offset, uint64_t maxBuffer = UINT64_MAX) const;

    const TZKAudioInfoElt& audioInfo() const { return m_info; }
    const TZKSampleBufferElt& sampleBuffer() const { return m_bytes; }
};

typedef Ebml::TElt<TZKEncAudio, 0x92, TNameEncAudio> TZKEncAudioElt;
