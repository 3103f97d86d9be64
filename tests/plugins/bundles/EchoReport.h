// Reading the echo compressor's output back in tests.
#pragma once

#include <map>
#include <string>

#include "evc/IPacket.h"
#include "evc/ZKImage.h"
#include "TestPluginCodes.h"

namespace evctest {

// The lines "name=value" of a report; a name may occur more than once.
using TEchoReport = std::multimap<std::string, std::string>;

inline TEchoReport ParseEchoReport(const std::string& text)
{
    TEchoReport report;
    size_t start = 0;
    while (start < text.size()) {
        size_t end = text.find('\n', start);
        if (end == std::string::npos)
            end = text.size();
        const std::string line = text.substr(start, end - start);
        const size_t equals = line.find('=');
        if (equals != std::string::npos)
            report.emplace(line.substr(0, equals), line.substr(equals + 1));
        start = end + 1;
    }
    return report;
}

// The first value of name, or "<missing>".
inline std::string EchoValue(const TEchoReport& report, const std::string& name)
{
    const auto found = report.find(name);
    return found == report.end() ? "<missing>" : found->second;
}

inline std::string PacketData(const IPacket* packet)
{
    if (packet == nullptr || packet->getData() == nullptr)
        return std::string();
    return std::string(reinterpret_cast<const char*>(packet->getData()), packet->getDataSize());
}

// The report the echo compressor put into an output description; empty when
// there is none.
inline TEchoReport EchoReportOf(const ZKEncImage_t& output)
{
    const IPacketBundle* data = output.image.dataPackets;
    if (data == nullptr || data->size() == 0 || data->get(0)->getType() != kEchoReportPacket)
        return TEchoReport();
    return ParseEchoReport(PacketData(data->get(0)));
}

}  // namespace evctest
