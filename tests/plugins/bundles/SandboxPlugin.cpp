// A compressor that tries, in CompressFrame, what the service's sandbox must
// refuse: its non-standard eEnum setting "Try" names the attempt (execve,
// fork, socket, connect; anything else tries nothing). An attempt that is
// not refused answers kEscaped, so a test sees it got through.
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include "TestPluginCodes.h"
#include "evc/PluginEntryPoints.h"
#include "evc/PluginSettings.h"

namespace {

constexpr uint32_t kEscaped = 0x80010001;

using evc::plugin::EnumRow;
using evc::plugin::TSettingTable;

class CSandboxProbe : public IVideoCompressor {
public:
    void SetFileFormatHint(uint32_t) override {}
    void SetStreamModeHint(uint32_t) override {}
    void SetInputColorFormat(uint32_t) override {}
    uint32_t Begin(const ZKEncImage_t*, bool) override { return 0; }
    void End() override {}
    bool IsLastPassEncodingReady() override { return true; }
    IVideoCompressor* CreateInstance() override { return new CSandboxProbe; }
    ISettingArray* GetStandardSettings() override { return nullptr; }
    ISettingArray* GetNonStandardSettings() override { return &m_settings; }

    uint32_t CompressFrame(const ZKEncImage_t*, bool, bool, ZKEncImage_t*) override
    {
        const std::string& attempt = m_settings.Enum("Try");
        if (attempt == "execve") {
            char* const argv[] = {const_cast<char*>("/bin/true"), nullptr};
            execve("/bin/true", argv, nullptr);
            return kEscaped;
        }
        if (attempt == "fork") {
            const pid_t child = fork();
            if (child == 0)
                _exit(0);
            if (child > 0)
                waitpid(child, nullptr, 0);
            return child >= 0 ? kEscaped : 0;
        }
        if (attempt == "socket") {
            const int fd = socket(AF_INET, SOCK_STREAM, 0);
            if (fd >= 0)
                close(fd);
            return fd >= 0 ? kEscaped : 0;
        }
        if (attempt == "connect") {
            sockaddr_in address{};
            address.sin_family = AF_INET;
            address.sin_port = htons(9);
            address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
            // Even a descriptor that is no socket must not get this far.
            return connect(0, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 ? kEscaped : 0;
        }
        return 0;
    }

private:
    TSettingTable m_settings{{EnumRow("Try", {"nothing", "execve", "fork", "socket", "connect"}, "nothing")}};
};

}  // namespace

EVC_COMPRESSOR_PLUGIN(evctest::kTestManufacturer, evctest::kSandboxCodec, CSandboxProbe);
