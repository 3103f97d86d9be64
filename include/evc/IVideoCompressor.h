/// @file
/// The compressor interface a plug-in's objects implement. The host calls the
/// operations by their position in the operation table (counting from 0, the
/// two destructor entries first), so the positions are the contract: never
/// reorder, insert or remove an operation. The ReservedNN operations hold
/// positions the host never calls.
#pragma once

#include <cstdint>

#include "evc/ISetting.h"
#include "evc/ZKImage.h"
#include "evc/ZKResult.h"

/// One compressor: the prototype a bundle's CreateVideoCompressor returns,
/// and every instance the host makes from it (CreateInstance), one per preset
/// applied. The service calls an instance from one thread at a time. Every
/// status is passed to the client as is: 0 for success, else a code of
/// evc/ZKResult.h or the codec's own. An exception that leaves an operation
/// ends the service (the client gets a ServiceError): return a status instead.
class IVideoCompressor {
public:
    virtual ~IVideoCompressor() = default;  ///< positions 0 and 1
    virtual void Reserved02() {}
    virtual void Reserved03() {}
    /// Position 4: the client's file format hint; the host gives it no meaning.
    virtual void SetFileFormatHint(uint32_t hint) = 0;
    virtual void Reserved05() {}
    /// Position 6: the client's stream mode hint; the host gives it no meaning.
    virtual void SetStreamModeHint(uint32_t hint) = 0;
    virtual void Reserved07() {}
    virtual void Reserved08() {}
    virtual void Reserved09() {}
    virtual void Reserved10() {}
    virtual void Reserved11() {}
    virtual void Reserved12() {}
    virtual void Reserved13() {}
    virtual void Reserved14() {}
    virtual void Reserved15() {}
    virtual void Reserved16() {}
    /// Position 17. Starts a stream whose frames look like sample (null when
    /// the client sent none), after the settings are applied; flag is the
    /// client's. The sample (and its pixels, if any) is valid during the call
    /// only. Returns the status for the client.
    virtual uint32_t Begin(const ZKEncImage_t* sample, bool flag) = 0;
    virtual void Reserved18() {}
    virtual void Reserved19() {}
    virtual void Reserved20() {}
    virtual void Reserved21() {}
    /// Position 22. Compresses one frame and describes what came out. input
    /// (null for a flush) and its pixels are valid during the call only.
    /// output (null when the client sent no output description) is to be
    /// given the data packets and descriptors bundles; they stay the
    /// compressor's (the service writes them to the client as soon as the
    /// call returns and never releases them), so keep them until the next
    /// CompressFrame or End. isLastFrame asks for every delayed picture.
    /// Returns the status for the client.
    virtual uint32_t CompressFrame(const ZKEncImage_t* input, bool isKeyFrame, bool isLastFrame,
                                   ZKEncImage_t* output) = 0;
    /// Position 23: ends the stream. The client is answered 0.
    virtual void End() = 0;
    virtual void Reserved24() {}
    /// Position 25: the answer the client's IsLastPassEncodingReady gets.
    virtual bool IsLastPassEncodingReady() = 0;
    virtual void Reserved26() {}
    virtual void Reserved27() {}
    virtual void Reserved28() {}
    /// Position 29. A new compressor of the same kind, owned by the caller, or null.
    virtual IVideoCompressor* CreateInstance() = 0;
    virtual void Reserved30() {}
    virtual void Reserved31() {}
    virtual void Reserved32() {}
    virtual void Reserved33() {}
    virtual void Reserved34() {}
    virtual void Reserved35() {}
    virtual void Reserved36() {}
    virtual void Reserved37() {}
    virtual void Reserved38() {}
    virtual void Reserved39() {}
    virtual void Reserved40() {}
    virtual void Reserved41() {}
    virtual void Reserved42() {}
    virtual void Reserved43() {}
    virtual void Reserved44() {}
    virtual void Reserved45() {}
    virtual void Reserved46() {}
    virtual void Reserved47() {}
    virtual void Reserved48() {}
    /// Position 49: the standard settings ("Bitrate", "KeyFrameInterval",
    /// ...) a preset's StandardSettings fill, or null. The compressor keeps
    /// the array.
    virtual ISettingArray* GetStandardSettings() = 0;
    /// Position 50: the codec's own settings a preset's NonStandardSettings
    /// fill, or null. The compressor keeps the array.
    virtual ISettingArray* GetNonStandardSettings() = 0;
    virtual void Reserved51() {}
    virtual void Reserved52() {}
    virtual void Reserved53() {}
    virtual void Reserved54() {}
    virtual void Reserved55() {}
    virtual void Reserved56() {}
    virtual void Reserved57() {}
    virtual void Reserved58() {}
    /// Position 59: the colour format (EColorFormats) the client announced.
    virtual void SetInputColorFormat(uint32_t colorFormat) = 0;
};
