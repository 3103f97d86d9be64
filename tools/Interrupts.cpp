// The signal thread.
#include "tools/Interrupts.h"

#include <signal.h>

#include <atomic>
#include <thread>

namespace evc {
namespace tools {

namespace {

std::atomic<int> g_count{0};
std::atomic<int> g_service{0};

}  // namespace

void InstallInterrupts()
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    std::thread([set] {
        while (true) {
            int signal = 0;
            if (sigwait(&set, &signal) != 0)
                continue;
            if (++g_count >= 2) {
                const int pid = g_service.load();
                if (pid > 0)
                    kill(pid, SIGKILL);
            }
        }
    }).detach();
}

int InterruptCount()
{
    return g_count.load();
}

void SetServiceToKill(int pid)
{
    g_service.store(pid);
}

}  // namespace tools
}  // namespace evc
