// Reading the echo compressor's output back in tests.
#pragma once

#include <map>
#include <sstream>
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
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);)
        if (line.find('=') != std::string::npos)
            report.emplace(line.substr(0, line.find('=')), line.substr(line.find('=') + 1));
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
    return packet == nullptr || packet->getData() == nullptr
               ? std::string()
               : std::string(reinterpret_cast<const char*>(packet->getData()), packet->getDataSize());
}

// The report packet the echo compressor put into an output, or null.
inline const IPacket* EchoReportPacket(const ZKEncImage_t& output)
{
    const IPacketBundle* data = output.image.dataPackets;
    return data != nullptr && data->size() > 0 && data->get(0)->getType() == kEchoReportPacket ? data->get(0) : nullptr;
}

inline TEchoReport EchoReportOf(const ZKEncImage_t& output)
{
    return ParseEchoReport(PacketData(EchoReportPacket(output)));
}

}  // namespace evctest
