// A child process started with posix_spawn whose standard error is collected
// through a pipe into a bounded buffer (the last 64 KiB) for error reports.
// The child gets standard input from /dev/null, our standard output, the
// pipe as standard error and no other descriptor; it runs in a process group
// of its own, so a terminal's Ctrl-C reaches only the host. The destructor
// kills a child that still runs and always reaps it; a constructor that
// fails after the spawn does the same. The thread that reads the pipe also
// watches the child through a pidfd (Linux 5.3 and later) and calls onEnd as
// soon as the child has ended, and again each millisecond while onEnd answers
// true; without a pidfd it never calls it.
#pragma once

#include <sys/types.h>

#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "client/Handles.h"

namespace evc {

// The tail of a stream of text: appending and reading the last lines both
// take time linear in the bytes involved, and memory stays bounded.
class TextTail {
public:
    static constexpr size_t kKeptBytes = 64 * 1024;

    void append(const char* data, size_t size);
    // The last count lines (a final line without a newline included), joined
    // with newlines, without the trailing newline.
    std::string lastLines(size_t count) const;

private:
    std::string m_text;
};

class ServiceProcess {
public:
    // Throws std::runtime_error when the program cannot be started.
    // onEnd runs on the reader thread and must not throw; it may still run
    // while the destructor reaps the child. The child gets our environment
    // with the NAME=value entries of settings added (replacing ours).
    ServiceProcess(const std::string& program, const std::vector<std::string>& arguments, bool forwardErrors = false,
                   std::function<bool()> onEnd = {}, const std::vector<std::string>& settings = {});
    ~ServiceProcess();

    ServiceProcess(const ServiceProcess&) = delete;
    ServiceProcess& operator=(const ServiceProcess&) = delete;

    pid_t pid() const { return m_child.pid(); }
    // False once the child has ended; its status is then known.
    bool alive() { return m_child.alive(); }
    // Waits up to ms milliseconds for the child to end; true when it has.
    bool waitForExit(int ms) { return m_child.waitForExit(ms); }
    // Sends SIGKILL and reaps.
    void kill() { m_child.kill(); }

    // After the child ended: the signal that ended it (0 if none) and its
    // exit status (-1 if it was killed by a signal).
    int termSignal() const { return m_child.termSignal(); }
    int exitStatus() const { return m_child.exitStatus(); }
    // The last lines written on standard error, joined with newlines. After
    // the child ended, it waits briefly for the pipe to drain first.
    std::string lastErrorLines(size_t count = 20);

private:
    void readErrors();

    bool m_forward;
    std::function<bool()> m_onEnd;
    std::mutex m_tailMutex;
    TextTail m_tail;
    bool m_readerDone = false;
    UniqueFd m_readEnd;
    // The child's pidfd; empty where the system has none.
    UniqueFd m_endFd;
    // Declared after what the reader uses and before the reader: a failed
    // constructor kills the child before the pipe closes.
    ChildHandle m_child;
    std::thread m_reader;
};

}  // namespace evc
