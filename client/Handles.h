// Move-only owners of the client's system handles: a file descriptor, and a
// child process that is killed and reaped unless it was reaped already. Each
// releases what it holds on every path, error paths included.
#pragma once

#include <sys/types.h>

namespace evc {

class UniqueFd {
public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : m_fd(fd) {}
    ~UniqueFd() { reset(); }
    UniqueFd(UniqueFd&& other) noexcept : m_fd(other.release()) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept;
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;

    int get() const { return m_fd; }
    explicit operator bool() const { return m_fd >= 0; }
    int release();
    // Closes what it holds and takes fd.
    void reset(int fd = -1);

private:
    int m_fd = -1;
};

class ChildHandle {
public:
    ChildHandle() = default;
    explicit ChildHandle(pid_t pid) : m_pid(pid) {}
    // Kills (SIGKILL) a child that still runs, and reaps it.
    ~ChildHandle() { kill(); }
    ChildHandle(ChildHandle&& other) noexcept;
    ChildHandle& operator=(ChildHandle&& other) noexcept;
    ChildHandle(const ChildHandle&) = delete;
    ChildHandle& operator=(const ChildHandle&) = delete;

    pid_t pid() const { return m_pid; }
    // False once the child has ended (it is then reaped and its end known).
    bool alive();
    // Waits up to ms for the child to end; true when it has.
    bool waitForExit(int ms);
    // SIGKILL and reap; nothing when there is no child or it was reaped.
    void kill();

    // After the end: the signal that ended the child (0 if none) and its exit
    // status (-1 when a signal ended it).
    int termSignal() const { return m_termSignal; }
    int exitStatus() const { return m_exitStatus; }

private:
    void record(int status);

    pid_t m_pid = -1;
    bool m_reaped = false;
    int m_termSignal = 0;
    int m_exitStatus = -1;
};

}  // namespace evc
