#include "ServiceHarness.h"

#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <thread>

#include "ipc/details/AMemoryMappedFile.h"
#include "media/ZKImageLayout.h"
#include "plugins/bundles/EchoReport.h"
#include "transport/ExternalVideoProxy.h"

namespace evctest {

std::string BuildPath(const std::string& relative)
{
    const char* dir = std::getenv("EVC_BUILD_DIR");
    return std::string(dir != nullptr ? dir : "build") + "/" + relative;
}

TestImage::TestImage(int width, int height, uint64_t time, uint64_t timeScale, uint8_t seed)
{
    const uint32_t size = CalcFrameSize(6, width, height, 0, false);
    bytes.resize(size);
    for (size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<uint8_t>(i * 7 + seed);
    if (InitZKImage(&record.image, size, bytes.data(), 6, false, width, height, false, time, timeScale) != 0)
        std::abort();
}

ServiceHarness::ServiceHarness(size_t segmentBytes, const std::string& program)
    : m_channel(new CAExternalEncodeProxyMPI(segmentBytes))
{
    m_key = m_channel->GetSharedMemoryName();
    m_process.reset(new evc::ServiceProcess(BuildPath(program), {m_key, std::to_string(getpid()), "evc-tests"}));
}

ServiceHarness::~ServiceHarness()
{
    m_process.reset();  // kills and reaps a child that is still running
    m_channel.reset();  // removes the backing file and its lock
}

bool ServiceHarness::WaitResponse(int ms)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
    while (std::chrono::steady_clock::now() < deadline) {
        if (m_channel->TimedWaitForResponse(0))
            return true;
        if (!m_process->alive())
            return m_channel->TimedWaitForResponse(0);
        usleep(500);
    }
    return false;
}

uint32_t ServiceHarness::Send(int32_t command, int ms)
{
    m_channel->SetCommand(static_cast<CAExternalVideoProxySharedData::TCommand>(command));
    m_channel->PostCommand();
    return WaitResponse(ms) ? m_channel->GetStatus() : ~0u;
}

uint32_t ServiceHarness::SetOutput(const std::string& preset)
{
    const std::string folder = BuildPath("");
    const std::string bundle = "Evc.app";
    std::string all = folder + bundle + preset;
    std::copy(all.begin(), all.end(), m_channel->payload());
    record().m_payloadSize0 = static_cast<int32_t>(folder.size());
    record().m_payloadSize1 = static_cast<int32_t>(bundle.size());
    record().m_payloadSize2 = static_cast<int32_t>(preset.size());
    return Send(5);
}

uint32_t ServiceHarness::WriteFrame(size_t offset, const ZKEncImage_t& frame)
{
    ExternalVideoProxy proxy;
    proxy.Begin(m_channel->payload() + offset, static_cast<uint32_t>(m_channel->payloadCapacity() - offset));
    uint32_t size = 0;
    if (proxy.SerializeFrame(&frame, size, false) != 0)
        return 0;
    return size;
}

std::string ServiceHarness::ReplyReport()
{
    const int32_t size = record().m_payloadSize0;
    if (size <= 0)
        return "";
    ExternalVideoProxy proxy;
    proxy.Begin(m_channel->payload(), static_cast<uint32_t>(size));
    TZKImageFramePtr frame = proxy.DeSerializeFrame(static_cast<uint32_t>(size));
    if (!frame)
        return "<undecodable reply>";
    const ZKEncImage_t reply = frame->GetZKEncImage();
    const IPacketBundle* data = reply.image.dataPackets;
    if (data == nullptr || data->size() == 0)
        return "";
    return PacketData(data->get(0));
}

int ServiceHarness::WaitExit(int ms)
{
    if (!m_process->waitForExit(ms))
        return -1;
    return m_process->termSignal() != 0 ? 128 + m_process->termSignal() : m_process->exitStatus();
}

std::string EchoPreset(const std::string& settings, const char* codec)
{
    const uint32_t codecCode = codec != nullptr ? FourCC(*reinterpret_cast<const char(*)[5]>(codec)) : kEchoCodec;
    return "<?xml version=\"1.0\"?>\n<Output>\n  <VideoCompressor Manufacture4cc=\"" +
           std::to_string(kTestManufacturer) + "\" Codec4cc=\"" + std::to_string(codecCode) + "\">\n" + settings +
           "  </VideoCompressor>\n</Output>\n";
}

bool NothingLeftFor(const std::string& key)
{
    struct stat info;
    const bool fileLeft = stat(key.c_str(), &info) == 0;
    const bool lockLeft = stat(("/dev/shm/sem." + ZKMakePlatformSafeKey(key.c_str())).c_str(), &info) == 0;
    return !fileLeft && !lockLeft;
}

}  // namespace evctest
