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

[[noreturn]] void HostGone(long long hostPid, const std::string& segmentKey)
{
    CAMemoryMappedFile::removeIfAbandoned(segmentKey.c_str());
    std::fprintf(stderr, "evc-service: host process %lld is gone; exiting\n", hostPid);
    // No unwinding: the main thread may be inside a codec or a lock.
    _exit(0);
}

bool HostAlive(pid_t pid)
{
    return kill(pid, 0) == 0 || errno != ESRCH;
}

}  // namespace

void StartHostWatch(long long hostPid, const std::string& segmentKey)
{
    if (hostPid <= 0 || hostPid > INT32_MAX)
        return;
    const pid_t pid = static_cast<pid_t>(hostPid);
#ifdef SYS_pidfd_open
    // A pidfd is close-on-exec and cannot be fooled by a reused process id.
    const int fd = static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
#else
    const int fd = -1;
    errno = ENOSYS;
#endif
    if (fd < 0 && errno == ESRCH)
        HostGone(hostPid, segmentKey);
    std::thread([fd, pid, hostPid, segmentKey] {
        if (fd >= 0) {
            pollfd watched{fd, POLLIN, 0};
            while (poll(&watched, 1, -1) < 0 && errno == EINTR) {}
        } else {
            while (HostAlive(pid))
                usleep(100000);
        }
        HostGone(hostPid, segmentKey);
    }).detach();
}
