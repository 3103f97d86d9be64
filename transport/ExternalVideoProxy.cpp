#include "transport/ExternalVideoProxy.h"

#include "evc/ZKResult.h"
#include "transport/PacketHolder.h"
#include "transport/TZKEncImageWire.h"

#include <algorithm>
#include <cstring>
#include <limits>

namespace {

const CATime kNoOffset(0, 0);

}  // namespace

ExternalVideoProxy::ExternalVideoProxy() : Ebml::MemoryStorage(static_cast<uint8_t*>(nullptr), 0) {}

uint32_t ExternalVideoProxy::Begin(uint8_t* area, uint32_t size)
{
    file() = Ebml::FileInMemory(area, area != nullptr ? size : 0);
    return kZKNoErr;
}

uint8_t* ExternalVideoProxy::GetMemory(uint32_t& size) const
{
    size = static_cast<uint32_t>(file().position());
    return file().writableData();
}

void ExternalVideoProxy::CopyTo(const uint8_t* bytes, size_t count)
{
    save(bytes, count);
}

uint64_t ExternalVideoProxy::PixelOffset(const ZKEncImage_t& record)
{
    uint64_t offset = 0;
    if (TZKEncImageWire::pixelOffset(record, offset))
        return offset;
    ZKEncImage_t local = record;
    // The element only measures the pixels, never reads them: any address will do.
    if (local.image.planes[0] == nullptr)
        local.image.planes[0] = reinterpret_cast<uint8_t*>(&local);
    TZKEncImageElt element;
    element->importFrame(&local, kNoOffset);
    const Ebml::uint64 header = element.calcSize() - element->calcSize();
    const Ebml::uint64 info = element->videoInfo().mustSave() ? element->videoInfo().calcSize() : 0;
    const Ebml::uint64 dataHeader =
        element->imageData().mustSave() ? element->imageData().calcSize() - local.image.dataSize : 0;
    return header + info + dataHeader;
}

Ebml::TReceiptPtr ExternalVideoProxy::save(const Ebml::uint8* data, std::size_t numBytes)
{
    uint8_t* area = file().writableData();
    const Ebml::uint64 position = file().position();
    const Ebml::uint64 size = file().size();
    // Compared as numbers: the bytes may come from any other object.
    const uintptr_t start = reinterpret_cast<uintptr_t>(area);
    const uintptr_t from = reinterpret_cast<uintptr_t>(data);
    const bool fromArea = area != nullptr && from >= start && from - start < size;
    if (!fromArea || numBytes == 0)
        return Ebml::MemoryStorage::save(data, numBytes);
    if (numBytes > size - position || numBytes > size - (from - start))
        return Ebml::TReceiptPtr();
    if (data != area + position)
        std::memmove(area + position, data, numBytes);
    return skipWithReceipt(numBytes);
}

uint32_t ExternalVideoProxy::saveFrame(const ZKEncImage_t& record, uint32_t& size)
{
    // The common shape is written directly; the general element writes the same bytes.
    uint64_t wireSize = 0;
    if (TZKEncImageWire::measure(record, file().data(), file().size(), wireSize)) {
        size = static_cast<uint32_t>(std::min<uint64_t>(wireSize, std::numeric_limits<uint32_t>::max()));
        if (wireSize > file().size() - file().position())
            return kZKErrFrameTooLarge;
        TZKEncImageWire::write(record, file().writableData() + file().position());
        skip(wireSize);
        return kZKNoErr;
    }
    TZKEncImageElt element;
    element->importFrame(&record, kNoOffset);
    const Ebml::uint64 total = element.calcSize();
    size = static_cast<uint32_t>(std::min<Ebml::uint64>(total, std::numeric_limits<uint32_t>::max()));
    // Measured before writing: a piece that does not fit must not be attempted,
    // and the caller learns the size it would need.
    const Ebml::uint64 room = file().size() - file().position();
    if (total > room)
        return kZKErrFrameTooLarge;
    const Ebml::TReceiptPtr written = element.save(*this);
    if (!written || written->numBytes() != total)
        return kZKErrFrameTooLarge;
    return kZKNoErr;
}

uint32_t ExternalVideoProxy::SerializeFrame(const ZKEncImage_t* record, uint32_t& size, bool releaseBundles)
{
    seekTo(0);
    if (record == nullptr)
        return kZKNoErr;
    ZKEncImage_t local;
    std::memcpy(&local, record, sizeof local);
    uint32_t result = kZKErrGeneral;
    try {
        result = saveFrame(local, size);
    } catch (...) {
        result = kZKErrGeneral;
    }
    if (releaseBundles) {
        ZKDestroyPacket(local.descriptors);
        ZKDestroyPacket(local.image.dataPackets);
    }
    return result;
}

uint32_t ExternalVideoProxy::SerializeFrame(ZKImage_t* record, uint32_t& size, bool append)
{
    if (!append)
        seekTo(0);
    if (record == nullptr)
        return kZKNoErr;
    ZKEncImage_t local;
    std::memset(&local, 0, sizeof local);
    std::memcpy(&local.image, record, sizeof local.image);
    uint32_t result = kZKErrGeneral;
    try {
        result = saveFrame(local, size);
    } catch (...) {
        result = kZKErrGeneral;
    }
    ZKDestroyPacket(record->dataPackets);
    record->dataPackets = nullptr;
    return result;
}

TZKImageFramePtr ExternalVideoProxy::DeSerializeFrame(uint32_t size)
{
    return loadFrame(size, nullptr);
}

TZKImageFramePtr ExternalVideoProxy::DeSerializeFrameInPlace(uint32_t size, ZKEncImage_t& record)
{
    return loadFrame(size, &record);
}

TZKImageFramePtr ExternalVideoProxy::loadFrame(uint32_t size, ZKEncImage_t* inPlace)
{
    const Ebml::uint64 position = file().position();
    const Ebml::uint64 available = std::min<Ebml::uint64>(size, file().size() - position);
    if (available == 0)
        return TZKImageFramePtr();
    try {
        TZKEncImageWire wire;
        if (wire.parse(file().data() + position, available)) {
            skip(wire.consumed());
            return TZKEncImage::exportFrame(wire, kNoOffset, inPlace, m_frameLimit);
        }
        // A view of exactly the bytes the caller vouches for: nothing inside
        // the element can make the reader look past them.
        Ebml::ConstMemoryStorage window(file().data() + position, available);
        TZKEncImageElt element;
        const Ebml::uint64 consumed = element.load(window, available);
        if (consumed == 0)
            return TZKImageFramePtr();
        skip(std::min(consumed, available));
        return inPlace != nullptr ? element->exportFrameInPlace(kNoOffset, *inPlace, m_frameLimit)
                                  : element->exportFrame(kNoOffset, m_frameLimit);
    } catch (...) {
        return TZKImageFramePtr();
    }
}
