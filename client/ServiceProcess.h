// A child process started with posix_spawn whose standard error is collected
// through a pipe: the last lines are kept for error reports. The destructor
// kills a child that is still running and always reaps it.
#pragma once

#include <sys/types.h>

#include <deque>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace evc {

class ServiceProcess {
public:
    // Throws std::runtime_error when the program cannot be started.
    ServiceProcess(const std::string& program, const std::vector<std::string>& arguments, bool forwardErrors = false);
    ~ServiceProcess();

    ServiceProcess(const ServiceProcess&) = delete;
    ServiceProcess& operator=(const ServiceProcess&) = delete;

    pid_t pid() const { return m_pid; }
    // False once the child has ended; its status is then known.
    bool alive();
    // Waits up to ms milliseconds for the child to end; true when it has.
    bool waitForExit(int ms);
    // Sends SIGKILL and reaps.
    void kill();

    // After the child ended: the signal that ended it (0 if none) and its
    // exit status (-1 if it was killed by a signal).
    int termSignal() const { return m_termSignal; }
    int exitStatus() const { return m_exitStatus; }
    // The last lines written on standard error, joined with newlines. After
    // the child ended, it waits briefly for the pipe to drain first.
    std::string lastErrorLines(size_t count = 20);

private:
    void readErrors(int fd);
    void recordStatus(int status);

    pid_t m_pid = -1;
    bool m_reaped = false;
    int m_termSignal = 0;
    int m_exitStatus = -1;
    bool m_forward;
    std::thread m_reader;
    std::mutex m_linesMutex;
    std::deque<std::string> m_lines;
    std::string m_partial;
    bool m_readerDone = false;
};

}  // namespace evc
