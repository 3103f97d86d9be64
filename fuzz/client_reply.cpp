// What a compromised service can make the client read: the reply to CompressFrame (its size in
// the command record and the frame element in the reply area, packets and bundles), the lines of
// its codec listing and its standard error, whose last lines go into error reports.
// Input: 4 bytes of reply size (little-endian, signed), 1 byte whose low bit says whether the
// command succeeded, then the payload area. A reply read is also read through the general frame
// element: the packets must be the same.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "client/PacketCopy.h"
#include "client/ReplyReader.h"
#include "client/ServiceProcess.h"
#include "ebml/ebmlMemoryStorage.h"
#include "transport/TZKEncImage.h"

namespace {

bool SamePackets(const std::vector<evc::Packet>& a, const std::vector<evc::Packet>& b)
{
    if (a.size() != b.size())
        return false;
    for (size_t i = 0; i < a.size(); ++i)
        if (a[i].type != b[i].type || a[i].track != b[i].track || a[i].time != b[i].time ||
            a[i].timeBase != b[i].timeBase || a[i].duration != b[i].duration || a[i].descriptor != b[i].descriptor ||
            a[i].data != b[i].data || a[i].depth != b[i].depth)
            return false;
    return true;
}

void CompareWithGeneral(const std::vector<uint8_t>& area, int32_t replyBytes, const evc::EncodedFrame& read)
{
    Ebml::ConstMemoryStorage storage(area.data(), static_cast<uint64_t>(replyBytes));
    TZKEncImageElt element;
    ZKEncImage_t record{};
    TZKImageFramePtr frame;
    if (element.load(storage, static_cast<uint64_t>(replyBytes)) != 0)
        frame = element->exportFrameInPlace(CATime(0, 0), record, area.size());
    if (!frame)
        __builtin_trap();
    const evc::EncodedFrame general = evc::CopyEncodedFrame(record);
    if (!SamePackets(general.descriptors, read.descriptors) || !SamePackets(general.packets, read.packets) ||
        general.time != read.time || general.streamValue != read.streamValue)
        __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 5)
        return 0;
    const int32_t replyBytes = static_cast<int32_t>(data[0] | data[1] << 8 | data[2] << 16 | uint32_t(data[3]) << 24);
    const uint32_t status = (data[4] & 1) != 0 ? kZKNoErr : kZKErrBadArgument;
    // A copy of exact size: reads past the area are caught.
    std::vector<uint8_t> area(data + 5, data + size);
    evc::EncodedFrame frame;
    if (evc::ReadCompressReply(area.data(), area.size(), replyBytes, status, frame).empty() && status == kZKNoErr)
        CompareWithGeneral(area, replyBytes, frame);

    const std::string text(reinterpret_cast<const char*>(data) + 5, size - 5);
    evc::ParseListing(text);
    // Standard error arrives in pieces of any size; repeated, it passes the kept tail's bound.
    evc::TextTail tail;
    const size_t piece = 1 + data[0];
    for (unsigned round = 0; round <= data[1] % 64u; ++round)
        for (size_t at = 0; at < text.size(); at += piece)
            tail.append(text.data() + at, std::min(piece, text.size() - at));
    tail.lastLines(data[2]);
    return 0;
}
