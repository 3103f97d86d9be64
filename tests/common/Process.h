// Other processes for tests: a forked body whose answer comes back through a pipe, programs of
// the build, and shell commands with their output.
#pragma once

#include <functional>
#include <string>

#include <sys/types.h>

namespace evctest {

// Runs body in a forked child; the child's answer ("" for success, else what went wrong) comes
// back through a pipe. The child ends with _exit, so nothing of the test runner runs twice; a
// child still running when the object goes (a test stopped by a failed assertion) is killed and
// reaped.
class ChildProcess {
public:
    explicit ChildProcess(std::function<std::string()> body);
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    // Waits up to ms for the child; its answer, or a text saying it crashed or overstayed.
    std::string Finish(unsigned ms = 20000);
    // Kills the child at once and reaps it.
    void Kill() { Reap(true); }

private:
    void Reap(bool kill);
    pid_t m_pid = -1;
    int m_readFd = -1;
    int m_status = 0;
    bool m_reaped = false;
};

// Sets an environment variable for the life of the object, then restores what was there.
class ScopedEnv {
public:
    ScopedEnv(const char* name, const char* value);
    ~ScopedEnv();
    ScopedEnv(const ScopedEnv&) = delete;
    ScopedEnv& operator=(const ScopedEnv&) = delete;

private:
    std::string m_name, m_old;
    bool m_had;
};

// EVC_BUILD_DIR (set by CTest) + "/" + relative; empty when the variable is not set.
std::string BuildPath(const std::string& relative = "");
// The build's host bundle of the test plug-ins (with links to the product's).
constexpr char kHostBundle[] = "EvcTests.app";

// Runs a shell command with standard error joined to standard output.
struct CommandResult {
    int status = -1;  // exit status, -1 when it did not exit normally
    std::string output;
};
CommandResult RunCommand(const std::string& command);
// The text in single quotes, for a shell command line.
std::string Quote(const std::string& text);

}  // namespace evctest
