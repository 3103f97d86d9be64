#include "service/HostWatch.h"

#include <poll.h>
#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <thread>

#include "ipc/details/AMemoryMappedFile.h"

namespace {

// Set once, before the watches start.
long long g_hostPid = 0;
int g_hostFd = -1;
std::string g_segmentKey;
unsigned int g_lockWaitLimitMs = kLockWaitLimitMs;

[[noreturn]] void HostGone()
{
    CAMemoryMappedFile::removeIfAbandoned(g_segmentKey.c_str());
    std::fprintf(stderr, "evc-service: host process %lld is gone; exiting\n", g_hostPid);
    // No unwinding: the main thread may be inside a codec or a lock.
    _exit(0);
}

bool HostAlive()
{
    if (g_hostPid <= 0)
        return true;
    if (g_hostFd >= 0) {
        pollfd watched{g_hostFd, POLLIN, 0};
        return poll(&watched, 1, 0) == 0;
    }
    return kill(static_cast<pid_t>(g_hostPid), 0) == 0 || errno != ESRCH;
}

void WatchLockWait(unsigned int waitedMs)
{
    if (!HostAlive())
        HostGone();
    if (waitedMs < g_lockWaitLimitMs)
        return;
    std::fprintf(stderr, "evc-service: the segment's lock was not released within %u ms; exiting\n", g_lockWaitLimitMs);
    _exit(kExitLockNotReleased);
}

}  // namespace

void StartHostWatch(long long hostPid, const std::string& segmentKey, unsigned int lockWaitLimitMs)
{
    g_segmentKey = segmentKey;
    g_lockWaitLimitMs = lockWaitLimitMs;
    ZKSetLockWaitWatch(WatchLockWait);
    if (hostPid <= 0 || hostPid > INT32_MAX)
        return;
    g_hostPid = hostPid;
    const pid_t pid = static_cast<pid_t>(hostPid);
#ifdef SYS_pidfd_open
    // A pidfd is close-on-exec and cannot be fooled by a reused process id.
    g_hostFd = static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
#else
    errno = ENOSYS;
#endif
    if (g_hostFd < 0 && errno == ESRCH)
        HostGone();
    std::thread([] {
        if (g_hostFd >= 0) {
            pollfd watched{g_hostFd, POLLIN, 0};
            while (poll(&watched, 1, -1) < 0 && errno == EINTR) {}
        } else {
            while (HostAlive())
                usleep(100000);
        }
        HostGone();
    }).detach();
}
