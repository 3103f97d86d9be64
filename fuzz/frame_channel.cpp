// The service's reading of a compress request from the payload area: the
// client's bytes, two "EncImage" elements back to back, are untrusted. The
// direct path over the area must agree with the general element: the same
// verdict, and a frame read either way is written back to the same bytes.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "ebml/ebmlMemoryStorage.h"
#include "transport/ExternalVideoProxy.h"
#include "transport/TZKEncImageWire.h"

namespace {

// Touches every byte a record claims, so that a record pointing outside its
// buffer (or, read in place, outside the area) shows up under the address
// sanitizer.
uint64_t Walk(const ZKEncImage_t& record)
{
    uint64_t sum = 0;
    if (record.image.planes[0] != nullptr)
        for (uint32_t i = 0; i < record.image.dataSize; ++i)
            sum += record.image.planes[0][i];
    for (const IPacketBundle* bundle : {record.descriptors, record.image.dataPackets}) {
        if (bundle == nullptr)
            continue;
        for (uint32_t k = 0; k < bundle->size(); ++k) {
            const IPacket* packet = bundle->get(k);
            if (packet->getData() != nullptr && packet->getDataSize() > 0)
                sum += packet->getData()[packet->getDataSize() - 1];
        }
    }
    return sum;
}

uint64_t Walk(const TZKImageFramePtr& frame)
{
    return frame ? Walk(frame->GetZKEncImage()) : 0;
}

// The frame's element, written by the proxy (the direct path when it can) or the general element.
std::vector<uint8_t> Written(const TZKImageFramePtr& frame, bool general)
{
    const ZKEncImage_t record = frame->GetZKEncImage();
    TZKEncImageElt element;
    element->importFrame(&record, CATime(0, 0));
    std::vector<uint8_t> bytes(element.calcSize());
    if (general) {
        Ebml::MemoryStorage storage(bytes.data(), bytes.size());
        element.save(storage);
    } else {
        ExternalVideoProxy proxy;
        proxy.Begin(bytes.data(), static_cast<uint32_t>(bytes.size()));
        uint32_t size = 0;
        if (proxy.SerializeFrame(&record, size, false) != 0 || size != bytes.size())
            __builtin_trap();
    }
    return bytes;
}

void CompareWithGeneral(const std::vector<uint8_t>& area)
{
    TZKEncImageWire wire;
    if (!wire.parse(area.data(), area.size()))
        return;
    const TZKImageFramePtr direct = TZKEncImage::exportFrame(wire, CATime(0, 0), nullptr, area.size());
    Ebml::ConstMemoryStorage storage(area.data(), area.size());
    TZKEncImageElt element;
    TZKImageFramePtr general;
    if (element.load(storage, area.size()) == wire.consumed())
        general = element->exportFrame(CATime(0, 0), area.size());
    if (bool(direct) != bool(general))
        __builtin_trap();
    if (direct && (Written(direct, false) != Written(general, true)))
        __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    // A copy of exact size: reads past it are caught.
    std::vector<uint8_t> area(data, data + size);
    const uint32_t first = size > 0 ? static_cast<uint32_t>(data[0]) * 7 % (size + 1) : 0;
    ExternalVideoProxy proxy;
    // As the service reads: no description may buy more than its area could carry.
    proxy.LimitFrameBytes(size);
    proxy.Begin(area.data(), static_cast<uint32_t>(area.size()));
    volatile uint64_t sink = Walk(proxy.DeSerializeFrame(static_cast<uint32_t>(size)));
    proxy.Begin(area.data(), static_cast<uint32_t>(area.size()));
    sink = sink + Walk(proxy.DeSerializeFrame(first));
    sink = sink + Walk(proxy.DeSerializeFrame(static_cast<uint32_t>(size - first)));
    // The input frame as the service reads it: pixels left in the area.
    proxy.Begin(area.data(), static_cast<uint32_t>(area.size()));
    ZKEncImage_t inPlace{};
    if (const TZKImageFramePtr frame = proxy.DeSerializeFrameInPlace(static_cast<uint32_t>(size), inPlace))
        sink = sink + Walk(inPlace);
    CompareWithGeneral(area);
    (void)sink;
    return 0;
}
