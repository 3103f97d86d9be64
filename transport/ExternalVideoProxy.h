// Moves one picture at a time across a caller-owned byte area (the payload
// area of the shared record) as an "EncImage" element. The proxy owns no
// memory: every exchange begins with Begin over the area and its usable size.
#pragma once

#include "ebml/ebmlMemoryStorage.h"
#include "evc/ZKImage.h"
#include "evc/ZKResult.h"
#include "transport/TZKEncImage.h"

#include <cstdint>

class ExternalVideoProxy : public Ebml::MemoryStorage {
public:
    ExternalVideoProxy();

    // Points the proxy at [area, area + size), position 0. Nothing is read or written.
    uint32_t Begin(uint8_t* area, uint32_t size);
    // The area's start; size receives the current position (bytes written since
    // the last rewind).
    uint8_t* GetMemory(uint32_t& size) const;
    uint32_t End() { return 0; }
    // Writes at the current position and advances, or writes nothing when the
    // bytes do not fit.
    void CopyTo(const uint8_t* bytes, size_t count);

    // Writes record as one element at offset 0. size receives the element's
    // full size, also when it did not fit (kZKErrFrameTooLarge; then nothing
    // is written). With releaseBundles the record's two bundles are destroyed
    // afterwards; the caller still holds the pointers and clears them.
    uint32_t SerializeFrame(const ZKEncImage_t* record, uint32_t& size, bool releaseBundles);
    // Writes record at offset 0, or with append at the current position. The
    // record's data packets bundle is always destroyed and its pointer cleared.
    uint32_t SerializeFrame(ZKImage_t* record, uint32_t& size, bool append);
    // Reads the element at the current position, looking at no more than size
    // bytes, and moves past it. An empty pointer when there is no well-formed
    // "EncImage" there.
    TZKImageFramePtr DeSerializeFrame(uint32_t size);
    // The same, with the pixels left where they lie in the area: record
    // receives the frame's description with its planes in the area, valid
    // while the area is unchanged and the frame lives (an element without
    // pixels gives null planes). Spares the copy of the pixels when they are
    // read only once, before the area is written again.
    TZKImageFramePtr DeSerializeFrameInPlace(uint32_t size, ZKEncImage_t& record);
    // Frames read from now on may not describe a picture whose buffer takes
    // more than bytes (a peer's description must not buy more memory than
    // its area could carry); larger ones are not read. No limit at first.
    void LimitFrameBytes(uint64_t bytes) { m_frameLimit = bytes; }

    // Where SerializeFrame puts the first pixel byte of record, counted from
    // the element's start. Only the record's geometry, data size and bundles
    // count (its planes may be null). A host that writes a picture's pixels
    // there itself spares the serializer their copy.
    static uint64_t PixelOffset(const ZKEncImage_t& record);

    // Bytes that already lie where they are to be written (pixels written
    // straight into the area) are not copied again; bytes from elsewhere in
    // the area are moved, never copied over themselves.
    Ebml::TReceiptPtr save(const Ebml::uint8* data, std::size_t numBytes) override;
    using Ebml::MemoryStorage::save;

private:
    TZKImageFramePtr loadFrame(uint32_t size, ZKEncImage_t* inPlace);
    uint32_t saveFrame(const ZKEncImage_t& record, uint32_t& size);

    uint64_t m_frameLimit = UINT64_MAX;
};
