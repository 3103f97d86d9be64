// The service's reading of a compress request from the payload area: the
// client's bytes, two "EncImage" elements back to back, are untrusted.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "transport/ExternalVideoProxy.h"

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
    (void)sink;
    return 0;
}
