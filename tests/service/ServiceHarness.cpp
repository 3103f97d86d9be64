// The service harness: a child evc-service over a segment of the test's own.
#include "ServiceHarness.h"

#include "media/ZKImageLayout.h"
#include "plugins/bundles/EchoReport.h"
#include "transport/ExternalVideoProxy.h"

#include <unistd.h>

#include <chrono>

namespace evctest {

TestImage::TestImage(int width, int height, uint64_t time, uint64_t timeScale, uint8_t seed)
{
    const uint32_t size = CalcFrameSize(6, width, height, 0, false);
    bytes = Pattern(size, seed);
    if (InitZKImage(&record.image, size, bytes.data(), 6, false, width, height, false, time, timeScale) != 0)
        std::abort();
}

ServiceHarness::ServiceHarness(size_t segmentBytes, const std::string& program)
    : m_channel(new CAExternalEncodeProxyMPI(segmentBytes)), m_key(m_channel->GetSharedMemoryName())
{
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
        if (m_channel->WaitForResponseWithin(2))
            return true;
        if (!m_process->alive())
            return m_channel->TimedWaitForResponse(0);
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
    const std::string folder = BuildPath(), bundle = kHostBundle, all = folder + bundle + preset;
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
    return proxy.SerializeFrame(&frame, size, false) == 0 ? size : 0;
}

uint32_t ServiceHarness::Compress(const TestImage& input, bool key, bool last)
{
    const uint32_t in = WriteFrame(0, input.record);
    record().m_payloadSize0 = static_cast<int32_t>(in);
    record().m_payloadSize1 = static_cast<int32_t>(WriteFrame(in, Description(input.record)));
    m_channel->SetIsKeyFrame(key);
    m_channel->SetIsLastFrame(last);
    return Send(3);
}

std::string ServiceHarness::ReplyReport()
{
    const int32_t size = record().m_payloadSize0;
    ExternalVideoProxy proxy;
    proxy.Begin(m_channel->payload(), static_cast<uint32_t>(std::max(size, 0)));
    TZKImageFramePtr frame = proxy.DeSerializeFrame(static_cast<uint32_t>(std::max(size, 0)));
    return frame ? PacketData(EchoReportPacket(frame->GetZKEncImage())) : "";
}

int ServiceHarness::WaitExit(int ms)
{
    if (!m_process->waitForExit(ms))
        return -1;
    return m_process->termSignal() != 0 ? 128 + m_process->termSignal() : m_process->exitStatus();
}

std::string EchoPreset(const std::string& settings, const char* codec)
{
    return "<?xml version=\"1.0\"?>\n<Output>\n  <VideoCompressor Manufacture4cc=\"" +
           std::to_string(kTestManufacturer) + "\" Codec4cc=\"" +
           std::to_string(FourCC(*reinterpret_cast<const char(*)[5]>(codec))) + "\">\n" + settings +
           "  </VideoCompressor>\n</Output>\n";
}

std::string FaultPreset(const std::string& fault)
{
    return EchoPreset("<NonStandardSettings><Fault Type=\"eEnum\" Value=\"" + fault + "\"/></NonStandardSettings>",
                      "faul");
}

evc::ClientOptions TestClientOptions(const std::string& program, int timeoutMs)
{
    evc::ClientOptions options;
    options.servicePath = BuildPath(program);
    options.applicationFolder = BuildPath();
    options.largestFrameBytes = 64 * 64 * 3 / 2;
    options.commandTimeout = std::chrono::milliseconds(timeoutMs);
    return options;
}

ZKEncImage_t Description(const ZKEncImage_t& input)
{
    ZKEncImage_t description{};
    description.image = input.image;
    description.image.dataSize = 0;
    for (auto& plane : description.image.planes)
        plane = nullptr;
    return description;
}

}  // namespace evctest
