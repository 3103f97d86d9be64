#include "service/MainThreadScheduling.h"

#include "ipc/details/FutexWake.h"
#include "ipc/details/QuickWakeUps.h"

#include <chrono>
#include <cstdlib>
#include <ctime>
#include <string>

#ifdef __linux__
#include <dirent.h>
#include <sched.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

namespace {

// The main thread is let go when it was busy for more than this share of the
// time over a window of CompressFrame commands.
constexpr double kMostBusyShare = 0.5;
constexpr int kCommandsPerWindow = 32;

// Codecs may finish setting up in their first pictures.
constexpr int kCompressionsBeforeKeeping = 2;

struct TShare {
    bool watching = false;  // the main thread has a short slice or a processor
    bool pinned = false;    // the main thread is kept on the processor now
    int processor = -1;     // named and not let go; -1 for none
    int compressions = 0;
#ifdef __linux__
    cpu_set_t whole;  // the set the service started with
#endif
    nlink_t threadLinks = 0;
    int commands = 0;
    double windowCpu = 0;
    std::chrono::steady_clock::time_point windowStart;
};

TShare g_share;

double ThreadCpuSeconds()
{
    timespec t{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) * 1e-9;
}

#ifdef __linux__
// The links of /proc/self/task are its threads plus two: a cheap way to see
// that a thread came.
nlink_t ThreadLinks()
{
    struct stat info {};
    return stat("/proc/self/task", &info) == 0 ? info.st_nlink : 0;
}

void FreeOtherThreads()
{
    const pid_t self = static_cast<pid_t>(gettid());
    DIR* tasks = opendir("/proc/self/task");
    if (tasks == nullptr)
        return;
    while (const dirent* entry = readdir(tasks)) {
        const pid_t task = static_cast<pid_t>(std::atoi(entry->d_name));
        if (task > 0 && task != self)
            sched_setaffinity(task, sizeof g_share.whole, &g_share.whole);
    }
    closedir(tasks);
}
#endif

void LetGo()
{
#ifdef __linux__
    if (g_share.pinned)
        sched_setaffinity(0, sizeof g_share.whole, &g_share.whole);
#endif
    g_share.pinned = false;
    g_share.processor = -1;
    g_share.watching = false;
    ZKPreferQuickWakeUps(false);
}

// Over each window of CompressFrame commands: whether the main thread was
// busy for most of it.
// The clocks are read at the window's ends only, not for every picture.
bool MainThreadBusy()
{
    if (g_share.commands == 0) {
        g_share.windowStart = std::chrono::steady_clock::now();
        g_share.windowCpu = ThreadCpuSeconds();
    }
    if (++g_share.commands <= kCommandsPerWindow)
        return false;
    const auto now = std::chrono::steady_clock::now();
    const double cpu = ThreadCpuSeconds();
    const double wall = std::chrono::duration<double>(now - g_share.windowStart).count();
    const bool busy = wall > 0 && (cpu - g_share.windowCpu) / wall > kMostBusyShare;
    g_share.commands = 0;
    return busy;
}

}  // namespace

void StartMainThreadScheduling()
{
    g_share.watching = ZKPreferQuickWakeUps();
#ifdef __linux__
    const char* named = std::getenv("EVC_PROCESSOR");
    if (named == nullptr || *named == '\0' || !ZKFutexWakeUpsEnabled())
        return;
    char* end = nullptr;
    const long processor = std::strtol(named, &end, 10);
    if (*end != '\0' || processor < 0 || processor >= CPU_SETSIZE || !ZKMayRunOn(static_cast<int>(processor)))
        return;
    CPU_ZERO(&g_share.whole);
    if (sched_getaffinity(0, sizeof g_share.whole, &g_share.whole) != 0)
        return;
    g_share.processor = static_cast<int>(processor);
    g_share.watching = true;
#endif
}

void MainThreadBeforeCommand(CAExternalVideoProxySharedData::TCommand command)
{
#ifdef __linux__
    if (g_share.pinned && command != CAExternalVideoProxySharedData::kCompressFrame) {
        sched_setaffinity(0, sizeof g_share.whole, &g_share.whole);
        g_share.pinned = false;
        g_share.compressions = 0;
    }
#else
    (void)command;
#endif
}

void MainThreadAfterCommand(CAExternalVideoProxySharedData::TCommand command)
{
    if (!g_share.watching || command != CAExternalVideoProxySharedData::kCompressFrame)
        return;
    if (MainThreadBusy())
        return LetGo();
#ifdef __linux__
    if (g_share.pinned) {
        // Threads started while the main thread was kept inherited its one processor.
        const nlink_t links = ThreadLinks();
        if (links != g_share.threadLinks) {
            FreeOtherThreads();
            g_share.threadLinks = links;
        }
        return;
    }
    if (g_share.processor < 0 || ++g_share.compressions < kCompressionsBeforeKeeping)
        return;
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(g_share.processor, &one);
    if (sched_setaffinity(0, sizeof one, &one) != 0) {
        g_share.processor = -1;
        return;
    }
    g_share.pinned = true;
    g_share.threadLinks = ThreadLinks();
#endif
}
