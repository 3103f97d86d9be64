// The faulty compressor: crashes, hangs, throws or fails in a chosen entry
// point or operation, or tries what the service's sandbox refuses (execve, fork, socket, connect: an
// attempt that gets through just returns), so tests can see the host survive it. The choice,
// "Operation:action[:after]", comes from the environment variable
// EVC_FAULTY_PLUGIN or from the non-standard eEnum setting "Fault" (which
// wins once set). Without a fault it behaves as a compressor that produces
// nothing.
#include <csignal>
#include <cstdlib>
#include <map>
#include <stdexcept>
#include <string>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include "evc/VideoCompressorPlugin.h"
#include "PluginKit.h"
#include "TestPluginCodes.h"

using namespace evctest;

namespace {

// The "Fault" setting's text; empty until a preset sets it.
std::string g_faultSetting;

// Calls per operation so far, for the "after" count.
std::map<std::string, unsigned long> g_calls;

// Does what the chosen fault asks when operation is the chosen one; answers
// true when the caller should report failure ("fail").
bool MaybeFault(const char* operation)
{
    std::string fault = g_faultSetting;
    if (fault.empty()) {
        const char* environment = std::getenv(kFaultEnvironment);
        fault = environment != nullptr ? environment : "";
    }
    const size_t colon = fault.find(':');
    if (colon == std::string::npos || fault.compare(0, colon, operation) != 0)
        return false;
    std::string action = fault.substr(colon + 1);
    unsigned long after = 0;
    const size_t second = action.find(':');
    if (second != std::string::npos) {
        after = std::strtoul(action.c_str() + second + 1, nullptr, 10);
        action.resize(second);
    }
    if (g_calls[operation]++ < after)
        return false;

    if (action == "segv") {
        // The default action even when a sanitizer watches the signal.
        std::signal(SIGSEGV, SIG_DFL);
        std::raise(SIGSEGV);
    } else if (action == "abort") {
        std::signal(SIGABRT, SIG_DFL);
        std::abort();
    } else if (action == "hang") {
        for (;;)
            pause();
    } else if (action == "throw") {
        throw std::runtime_error(std::string("faulty plug-in: ") + operation);
    } else if (action == "execve") {
        char* const argv[] = {const_cast<char*>("/bin/true"), nullptr};
        execve("/bin/true", argv, nullptr);
    } else if (action == "fork") {
        const pid_t child = fork();
        if (child == 0)
            _exit(0);
        if (child > 0)
            waitpid(child, nullptr, 0);
    } else if (action == "socket") {
        close(socket(AF_INET, SOCK_STREAM, 0));
    } else if (action == "connect") {
        // Even a descriptor that is no socket must not get this far.
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(9);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        connect(0, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    }
    return action == "fail";
}

struct TFaultSetting : kit::TEnum {
    TFaultSetting(const char* name, const char* initial) : TEnum(name, initial) {}
    void SetValue(const char* value) override
    {
        TEnum::SetValue(value);
        g_faultSetting = Text();
    }
};

class CFaultyCompressor : public IVideoCompressor {
public:
    CFaultyCompressor() { m_nonStandard.Add<TFaultSetting>("Fault", ""); }

    void SetFileFormatHint(uint32_t) override { MaybeFault("SetFileFormatHint"); }
    void SetStreamModeHint(uint32_t) override { MaybeFault("SetStreamModeHint"); }
    void SetInputColorFormat(uint32_t) override { MaybeFault("SetInputColorFormat"); }
    uint32_t Begin(const ZKEncImage_t*, bool) override { return MaybeFault("Begin") ? kFaultyStatus : 0; }
    uint32_t CompressFrame(const ZKEncImage_t*, bool, bool, ZKEncImage_t*) override
    {
        return MaybeFault("CompressFrame") ? kFaultyStatus : 0;
    }
    void End() override { MaybeFault("End"); }
    bool IsLastPassEncodingReady() override { return !MaybeFault("IsLastPassEncodingReady"); }
    IVideoCompressor* CreateInstance() override
    {
        MaybeFault("CreateInstance");
        return new CFaultyCompressor;
    }
    // No standard settings at all.
    ISettingArray* GetStandardSettings() override
    {
        MaybeFault("GetStandardSettings");
        return nullptr;
    }
    ISettingArray* GetNonStandardSettings() override
    {
        MaybeFault("GetNonStandardSettings");
        return &m_nonStandard;
    }

private:
    kit::TSettingArray m_nonStandard;
};

constexpr kit::TOffer kOffers[] = {
    {kTestManufacturer, kFaultyCodec, 3},
    {kTestManufacturer, kTwinCodec, 4},
    {kTestManufacturer, kDualCodec, 6},
};

}  // namespace

EVC_PLUGIN_EXPORT uint64_t QVGetNumberVideoCompressors()
{
    MaybeFault("QVGetNumberVideoCompressors");
    return sizeof kOffers / sizeof kOffers[0];
}

EVC_PLUGIN_EXPORT void QVGetVideoCompressorInfo(uint64_t index, uint32_t* manufacturer, uint32_t* codec, uint64_t* info)
{
    // Written before the fault, so a throwing entry leaves its outputs.
    kit::WriteOffer(kOffers, index, manufacturer, codec, info);
    MaybeFault("QVGetVideoCompressorInfo");
}

EVC_PLUGIN_EXPORT IVideoCompressor* CreateVideoCompressor(uint32_t manufacturer, uint32_t codec)
{
    MaybeFault("CreateVideoCompressor");
    static CFaultyCompressor prototype;
    return kit::IsOffered(kOffers, manufacturer, codec) ? &prototype : nullptr;
}

EVC_PLUGIN_EXPORT void QVShutDownPlugin()
{
    g_faultSetting.clear();
    g_calls.clear();
}
