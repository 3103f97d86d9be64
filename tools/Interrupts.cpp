// The signal thread.
#include "tools/Interrupts.h"

#include <dirent.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>

namespace evc {
namespace tools {

namespace {

std::atomic<int> g_count{0};
std::atomic<int> g_service{0};

// The processes whose parent is this one: the services it started.
void KillChildren()
{
    const std::string self = std::to_string(getpid());
    DIR* folder = opendir("/proc");
    if (folder == nullptr)
        return;
    while (const dirent* entry = readdir(folder)) {
        const std::string name = entry->d_name;
        if (name.find_first_not_of("0123456789") != std::string::npos)
            continue;
        std::ifstream stat("/proc/" + name + "/stat");
        std::string line;
        std::getline(stat, line);
        // pid (command) state ppid ...; the command may hold blanks.
        const size_t close = line.rfind(')');
        std::istringstream fields(close == std::string::npos ? "" : line.substr(close + 1));
        std::string state;
        std::string parent;
        if (fields >> state >> parent && parent == self)
            kill(std::stoi(name), SIGKILL);
    }
    closedir(folder);
}

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
                // A session would start the service again: every service
                // this encoder starts from now on is stopped too, until the
                // encode has given up and the process ends.
                while (true) {
                    KillChildren();
                    std::this_thread::sleep_for(std::chrono::milliseconds(20));
                }
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
