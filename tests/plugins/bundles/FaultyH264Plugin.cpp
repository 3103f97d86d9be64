// The real H.264 compressor with a fault switch in front: it loads the
// h264.qv64 bundle beside its own and forwards every call, but crashes or
// hangs when the non-standard eEnum setting "Fault" says so, so tests can see
// an encode recover with real, decodable output. The switch reads
// "Operation:action:trigger[:once=PATH]": Operation Begin or CompressFrame,
// action segv or hang, trigger t=N (the input picture's time is N) or last
// (the call that flushes the stream). With once=PATH it fires only when it
// can create PATH, so only the first service that reaches the trigger fails.
#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <sstream>
#include <stdexcept>
#include <string>

#include "PluginKit.h"
#include "TestPluginCodes.h"
#include "evc/H264Codec.h"
#include "evc/PluginEntryPoints.h"

using namespace evctest;

namespace {

struct TFault {
    std::string operation;
    std::string action;
    bool onLast = false;
    bool onTime = false;
    uint64_t time = 0;
    std::string once;
};

TFault Parse(const std::string& text)
{
    TFault fault;
    std::istringstream fields(text);
    std::getline(fields, fault.operation, ':');
    std::getline(fields, fault.action, ':');
    for (std::string part; std::getline(fields, part, ':');) {
        fault.onLast = fault.onLast || part == "last";
        if (part.compare(0, 2, "t=") == 0)
            fault.onTime = true, fault.time = std::strtoull(part.c_str() + 2, nullptr, 10);
        else if (part.compare(0, 5, "once=") == 0)
            fault.once = part.substr(5);
    }
    return fault;
}

struct TFaultSetting : kit::TEnum {
    TFaultSetting() : TEnum("Fault", "") {}
};

// The Fault setting first, then the real compressor's own.
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

// The real compressor's prototype from the h264 bundle in the same plug-ins
// folder.
IVideoCompressor* LoadRealPrototype()
{
    Dl_info self{};
    if (dladdr(reinterpret_cast<void*>(&LoadRealPrototype), &self) == 0 || self.dli_fname == nullptr)
        return nullptr;
    // .../PlugIns/test_faulty_h264.qv64/Contents/Linux/<file>
    std::string path = self.dli_fname;
    for (int up = 0; up < 4; ++up)
        path = path.substr(0, path.rfind('/'));
    void* code = dlopen((path + "/h264.qv64/Contents/Linux/h264").c_str(), RTLD_NOW | RTLD_LOCAL);
    if (code == nullptr)
        return nullptr;
    auto create = reinterpret_cast<IVideoCompressor* (*)(uint32_t, uint32_t)>(dlsym(code, "CreateVideoCompressor"));
    return create != nullptr ? create(evc::h264::kManufacturer, evc::h264::kCodec) : nullptr;
}

class CFaultyH264 : public IVideoCompressor {
public:
    // The prototype lends the real prototype; an instance owns its compressor.
    CFaultyH264() : CFaultyH264(Prototype(), false) {}
    CFaultyH264(IVideoCompressor* inner, bool owned)
        : m_inner(inner), m_owned(owned), m_nonStandard(&m_fault, Checked(inner)->GetNonStandardSettings())
    {
    }
    ~CFaultyH264() override
    {
        if (m_owned)
            delete m_inner;
    }

    void SetFileFormatHint(uint32_t hint) override { m_inner->SetFileFormatHint(hint); }
    void SetStreamModeHint(uint32_t hint) override { m_inner->SetStreamModeHint(hint); }
    void SetInputColorFormat(uint32_t format) override { m_inner->SetInputColorFormat(format); }
    uint32_t Begin(const ZKEncImage_t* sample, bool flag) override
    {
        Maybe("Begin", sample, false);
        return m_inner->Begin(sample, flag);
    }
    uint32_t CompressFrame(const ZKEncImage_t* input, bool key, bool last, ZKEncImage_t* output) override
    {
        Maybe("CompressFrame", input, last);
        return m_inner->CompressFrame(input, key, last, output);
    }
    void End() override { m_inner->End(); }
    bool IsLastPassEncodingReady() override { return m_inner->IsLastPassEncodingReady(); }
    IVideoCompressor* CreateInstance() override
    {
        IVideoCompressor* inner = m_inner->CreateInstance();
        return inner != nullptr ? new CFaultyH264(inner, true) : nullptr;
    }
    ISettingArray* GetStandardSettings() override { return m_inner->GetStandardSettings(); }
    ISettingArray* GetNonStandardSettings() override { return &m_nonStandard; }

private:
    static IVideoCompressor* Prototype()
    {
        static IVideoCompressor* const prototype = LoadRealPrototype();
        return prototype;
    }
    static IVideoCompressor* Checked(IVideoCompressor* inner)
    {
        if (inner == nullptr)
            throw std::runtime_error("no h264.qv64 beside this bundle");
        return inner;
    }
    void Maybe(const char* operation, const ZKEncImage_t* input, bool last)
    {
        const TFault fault = Parse(m_fault.Text());
        if (fault.operation != operation)
            return;
        if (!(fault.onLast && last) && !(fault.onTime && input != nullptr && input->image.time == fault.time))
            return;
        if (!fault.once.empty()) {
            const int fd = open(fault.once.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0600);
            if (fd < 0)
                return;
            close(fd);
        }
        if (fault.action == "segv") {
            std::signal(SIGSEGV, SIG_DFL);
            std::raise(SIGSEGV);
        } else if (fault.action == "hang") {
            for (;;)
                pause();
        }
    }

    IVideoCompressor* m_inner;
    bool m_owned;
    TFaultSetting m_fault;
    TJoinedSettings m_nonStandard;
};

}  // namespace

EVC_COMPRESSOR_PLUGIN(kTestManufacturer, kFaultyH264Codec, CFaultyH264);
