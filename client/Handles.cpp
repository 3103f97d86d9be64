#include "client/Handles.h"

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <utility>

namespace evc {

UniqueFd& UniqueFd::operator=(UniqueFd&& other) noexcept
{
    if (this != &other)
        reset(other.release());
    return *this;
}

int UniqueFd::release()
{
    return std::exchange(m_fd, -1);
}

void UniqueFd::reset(int fd)
{
    if (m_fd >= 0)
        close(m_fd);
    m_fd = fd;
}

ChildHandle::ChildHandle(ChildHandle&& other) noexcept
    : m_pid(std::exchange(other.m_pid, -1)), m_reaped(other.m_reaped), m_termSignal(other.m_termSignal),
      m_exitStatus(other.m_exitStatus)
{
}

ChildHandle& ChildHandle::operator=(ChildHandle&& other) noexcept
{
    if (this != &other) {
        kill();
        m_pid = std::exchange(other.m_pid, -1);
        m_reaped = other.m_reaped;
        m_termSignal = other.m_termSignal;
        m_exitStatus = other.m_exitStatus;
    }
    return *this;
}

void ChildHandle::record(int status)
{
    m_reaped = true;
    if (WIFSIGNALED(status)) {
        m_termSignal = WTERMSIG(status);
        m_exitStatus = -1;
    } else if (WIFEXITED(status)) {
        m_exitStatus = WEXITSTATUS(status);
    }
}

bool ChildHandle::alive()
{
    if (m_pid <= 0 || m_reaped)
        return false;
    int status = 0;
    const pid_t r = waitpid(m_pid, &status, WNOHANG);
    if (r == m_pid) {
        record(status);
        return false;
    }
    // Someone else reaped it (ECHILD): it is gone, its end unknown.
    if (r < 0 && errno == ECHILD)
        m_reaped = true;
    return r == 0;
}

bool ChildHandle::waitForExit(int ms)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
    while (alive()) {
        if (std::chrono::steady_clock::now() >= deadline)
            return false;
        usleep(1000);
    }
    return true;
}

void ChildHandle::kill()
{
    if (m_pid <= 0 || m_reaped)
        return;
    ::kill(m_pid, SIGKILL);
    int status = 0;
    pid_t r;
    while ((r = waitpid(m_pid, &status, 0)) < 0 && errno == EINTR) {}
    if (r == m_pid)
        record(status);
    else
        m_reaped = true;
}

}  // namespace evc
