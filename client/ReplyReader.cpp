// Reading what the service writes back.
#include "client/ReplyReader.h"

#include <algorithm>
#include <cstdlib>
#include <sstream>

#include "client/PacketCopy.h"
#include "ipc/CAExternalEncodeProxyMPI.h"
#include "transport/ExternalVideoProxy.h"
#include "transport/TZKEncImageWire.h"

namespace evc {

namespace {

std::vector<std::string> Fields(const std::string& line)
{
    std::vector<std::string> fields;
    std::string field;
    std::istringstream stream(line);
    while (std::getline(stream, field, '\t'))
        fields.push_back(field);
    if (!line.empty() && line.back() == '\t')
        fields.emplace_back();
    return fields;
}

// Codes written by the service in decimal; 0 for anything else.
uint64_t Number(const std::string& text)
{
    char* end = nullptr;
    const unsigned long long value = std::strtoull(text.c_str(), &end, 10);
    return end != nullptr && *end == '\0' ? value : 0;
}

std::string NotAFrame(int32_t replyBytes)
{
    return "the reply of " + std::to_string(replyBytes) + " bytes is not a frame element";
}

}  // namespace

std::string ReadCompressReply(uint8_t* payload, uint64_t capacity, int32_t replyBytes, uint32_t status,
                              EncodedFrame& out)
{
    // The service always writes the output description back (at most the
    // reply area), so a reply it cannot have written is its fault.
    const uint64_t replyLimit = std::min<uint64_t>(capacity, CAExternalEncodeProxyMPI::kReplyAreaBytes);
    if (replyBytes < 0 || static_cast<uint64_t>(replyBytes) > replyLimit)
        return "reply size " + std::to_string(replyBytes) + " outside 0.." + std::to_string(replyLimit);
    if (status != kZKNoErr)
        return std::string();
    if (replyBytes == 0)
        return "CompressFrame succeeded without a reply";
    // Only the packets are taken: pixels a reply may carry stay unread.
    ZKEncImage_t reply{};
    TZKEncImageWire wire;
    wire.skipBundles();
    if (wire.parse(payload, static_cast<uint64_t>(replyBytes))) {
        // The common shape: the same checks, and the packets copied once,
        // straight from the area.
        const TZKImageFramePtr frame = TZKEncImage::exportFrame(wire, CATime(0, 0), &reply, capacity);
        if (!frame)
            return NotAFrame(replyBytes);
        out = CopyEncodedFrame(reply);
        CopyWirePackets(wire.descriptors(), out.descriptors);
        CopyWirePackets(wire.dataPackets(), out.packets);
    } else {
        ExternalVideoProxy proxy;
        proxy.Begin(payload, static_cast<uint32_t>(replyBytes));
        proxy.LimitFrameBytes(capacity);
        const TZKImageFramePtr frame = proxy.DeSerializeFrameInPlace(static_cast<uint32_t>(replyBytes), reply);
        if (!frame)
            return NotAFrame(replyBytes);
        out = CopyEncodedFrame(reply);
    }
    out.replyBytes = static_cast<uint32_t>(replyBytes);
    return std::string();
}

std::vector<CodecInfo> ParseListing(const std::string& text)
{
    std::vector<CodecInfo> codecs;
    std::istringstream lines(text);
    std::string line;
    while (std::getline(lines, line)) {
        const std::vector<std::string> f = Fields(line);
        if (f.size() >= 5 && f[0] == "compressor") {
            CodecInfo codec;
            codec.manufacturer = static_cast<uint32_t>(Number(f[1]));
            codec.codec = static_cast<uint32_t>(Number(f[2]));
            codec.info = Number(f[3]);
            codec.bundle = f[4];
            codecs.push_back(codec);
        } else if (f.size() >= 6 && f[0] == "setting" && !codecs.empty()) {
            codecs.back().settings.push_back({f[1] == "Standard", f[2], f[3], f[4], f[5]});
        }
    }
    return codecs;
}

}  // namespace evc
