// The faulty compressors: they crash, hang, throw or fail in a chosen entry point or operation, or
// try what the service's sandbox refuses (execve, fork, socket, connect: an attempt that gets
// through just returns), so tests can see the host survive it. (EvcT, faul) and its siblings
// produce nothing; (EvcT, fh26) is the real H.264 compressor of h264.qv64, in the same plug-ins
// folder, behind the same switch, so tests can see an encode recover with real, decodable output.
// The switch, "Operation:action[:condition...]", comes from the environment variable
// EVC_FAULTY_PLUGIN or from the non-standard eEnum setting "Fault" (which wins once set). The
// conditions: a number N (the first N calls of the operation still behave), t=N (only the input
// picture of time N), last (only the call that flushes the stream), once=PATH (only when it can
// create PATH, so only the first service that gets there fails).
#include <csignal>
#include <cstdlib>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string>
#include <dlfcn.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include "evc/H264Codec.h"
#include "evc/VideoCompressorPlugin.h"
#include "PluginKit.h"
#include "TestPluginCodes.h"

using namespace evctest;

namespace {

// The "Fault" setting's text; empty until a preset sets it.
std::string g_faultSetting;

// Calls per operation so far, for the "N" condition.
std::map<std::string, unsigned long> g_calls;

// Whether the conditions after the action hold for this call.
bool ConditionsHold(std::istringstream& fields, const char* operation, const ZKEncImage_t* input, bool last)
{
    unsigned long after = 0;
    bool timed = false, onLast = false, atTime = false;
    std::string once;
    for (std::string part; std::getline(fields, part, ':');) {
        if (part == "last")
            onLast = true;
        else if (part.compare(0, 2, "t=") == 0)
            timed = true,
            atTime = input != nullptr && input->image.time == std::strtoull(part.c_str() + 2, nullptr, 10);
        else if (part.compare(0, 5, "once=") == 0)
            once = part.substr(5);
        else
            after = std::strtoul(part.c_str(), nullptr, 10);
    }
    if (g_calls[operation]++ < after || ((timed || onLast) && !(atTime || (onLast && last))))
        return false;
    if (once.empty())
        return true;
    const int fd = open(once.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0600);
    return fd >= 0 && close(fd) == 0;
}

// Does what the chosen fault asks when operation is the chosen one; answers true when the caller
// should report failure ("fail").
bool MaybeFault(const char* operation, const ZKEncImage_t* input = nullptr, bool last = false)
{
    const char* environment = std::getenv(kFaultEnvironment);
    std::istringstream fields(!g_faultSetting.empty() ? g_faultSetting : environment != nullptr ? environment : "");
    std::string chosen, action;
    std::getline(fields, chosen, ':');
    if (!std::getline(fields, action, ':') || chosen != operation || !ConditionsHold(fields, operation, input, last))
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
    TFaultSetting() : kit::TEnum("Fault", "") {}
    void SetValue(const char* value) override
    {
        kit::TEnum::SetValue(value);
        g_faultSetting = Text();
    }
};

// The Fault setting first, then the wrapped compressor's own.
class TJoinedSettings : public ISettingArray {
public:
    TJoinedSettings(ISetting* first, ISettingArray* rest) : m_first(first), m_rest(rest) {}
    int32_t GetCount() const override { return 1 + (m_rest != nullptr ? m_rest->GetCount() : 0); }
    ISetting* GetSetting(int32_t index) const override
    {
        return index == 0 ? m_first : m_rest != nullptr && index > 0 ? m_rest->GetSetting(index - 1) : nullptr;
    }

private:
    ISetting* m_first;
    ISettingArray* m_rest;
};

// The real H.264 compressor's prototype from h264.qv64 beside this bundle, or null.
IVideoCompressor* RealH264Prototype()
{
    Dl_info self{};
    if (dladdr(reinterpret_cast<void*>(&RealH264Prototype), &self) == 0 || self.dli_fname == nullptr)
        return nullptr;
    // .../PlugIns/test_faulty.qv64/Contents/Linux/<file>
    std::string path = self.dli_fname;
    for (int up = 0; up < 4; ++up)
        path = path.substr(0, path.rfind('/'));
    void* code = dlopen((path + "/h264.qv64/Contents/Linux/h264").c_str(), RTLD_NOW | RTLD_LOCAL);
    auto create =
        code != nullptr
            ? reinterpret_cast<IVideoCompressor* (*)(uint32_t, uint32_t)>(dlsym(code, "CreateVideoCompressor"))
            : nullptr;
    return create != nullptr ? create(evc::h264::kManufacturer, evc::h264::kCodec) : nullptr;
}

// Produces nothing, or forwards every call to inner (owned by instances, lent to the prototype).
class CFaultyCompressor : public IVideoCompressor {
public:
    explicit CFaultyCompressor(IVideoCompressor* inner = nullptr, bool owned = false)
        : m_inner(inner), m_owned(owned), m_nonStandard(&m_fault, inner ? inner->GetNonStandardSettings() : nullptr)
    {
    }
    ~CFaultyCompressor() override
    {
        if (m_owned)
            delete m_inner;
    }

    void SetFileFormatHint(uint32_t hint) override
    {
        if (!MaybeFault("SetFileFormatHint") && m_inner)
            m_inner->SetFileFormatHint(hint);
    }
    void SetStreamModeHint(uint32_t hint) override
    {
        if (!MaybeFault("SetStreamModeHint") && m_inner)
            m_inner->SetStreamModeHint(hint);
    }
    void SetInputColorFormat(uint32_t format) override
    {
        if (!MaybeFault("SetInputColorFormat") && m_inner)
            m_inner->SetInputColorFormat(format);
    }
    uint32_t Begin(const ZKEncImage_t* sample, bool flag) override
    {
        return MaybeFault("Begin", sample) ? kFaultyStatus : m_inner ? m_inner->Begin(sample, flag) : 0;
    }
    uint32_t CompressFrame(const ZKEncImage_t* input, bool key, bool last, ZKEncImage_t* output) override
    {
        return MaybeFault("CompressFrame", input, last) ? kFaultyStatus
               : m_inner                                ? m_inner->CompressFrame(input, key, last, output)
                                                        : 0;
    }
    void End() override
    {
        if (!MaybeFault("End") && m_inner)
            m_inner->End();
    }
    bool IsLastPassEncodingReady() override
    {
        return !MaybeFault("IsLastPassEncodingReady") && (!m_inner || m_inner->IsLastPassEncodingReady());
    }
    IVideoCompressor* CreateInstance() override
    {
        MaybeFault("CreateInstance");
        if (m_inner == nullptr)
            return new CFaultyCompressor;
        IVideoCompressor* inner = m_inner->CreateInstance();
        return inner != nullptr ? new CFaultyCompressor(inner, true) : nullptr;
    }
    // The faul compressor has no standard settings at all.
    ISettingArray* GetStandardSettings() override
    {
        MaybeFault("GetStandardSettings");
        return m_inner ? m_inner->GetStandardSettings() : nullptr;
    }
    ISettingArray* GetNonStandardSettings() override
    {
        MaybeFault("GetNonStandardSettings");
        return &m_nonStandard;
    }

private:
    IVideoCompressor* m_inner;
    bool m_owned;
    TFaultSetting m_fault;
    TJoinedSettings m_nonStandard;
};

constexpr kit::TOffer kOffers[] = {
    {kTestManufacturer, kFaultyCodec, 3},
    {kTestManufacturer, kTwinCodec, 4},
    {kTestManufacturer, kDualCodec, 6},
    {kTestManufacturer, kFaultyH264Codec, 8},
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
    if (!kit::IsOffered(kOffers, manufacturer, codec))
        return nullptr;
    static CFaultyCompressor prototype;
    if (codec != kFaultyH264Codec)
        return &prototype;
    static IVideoCompressor* const real = RealH264Prototype();
    static CFaultyCompressor h264(real);
    return real != nullptr ? &h264 : nullptr;
}

EVC_PLUGIN_EXPORT void QVShutDownPlugin()
{
    g_faultSetting.clear();
    g_calls.clear();
}
