// Child processes and commands for tests.
#include "common/Process.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <thread>

namespace evctest {

ChildProcess::ChildProcess(std::function<std::string()> body)
{
    int fds[2];
    if (pipe(fds) != 0)
        throw std::runtime_error("pipe failed");
    m_pid = fork();
    if (m_pid < 0) {
        close(fds[0]);
        close(fds[1]);
        throw std::runtime_error("fork failed");
    }
    if (m_pid == 0) {
        close(fds[0]);
        std::string answer;
        try {
            answer = body();
        } catch (const std::exception& e) {
            answer = std::string("child exception: ") + e.what();
        }
        if (write(fds[1], answer.data(), answer.size()) < 0)
            answer = "write failed";
        _exit(answer.empty() ? 0 : 1);
    }
    close(fds[1]);
    m_readFd = fds[0];
}

ChildProcess::~ChildProcess()
{
    Reap(true);
    close(m_readFd);
}

void ChildProcess::Reap(bool kill)
{
    if (m_reaped || m_pid <= 0)
        return;
    if (kill)
        ::kill(m_pid, SIGKILL);
    while (waitpid(m_pid, &m_status, 0) < 0 && errno == EINTR) {}
    m_reaped = true;
}

std::string ChildProcess::Finish(unsigned ms)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
    while (!m_reaped && waitpid(m_pid, &m_status, WNOHANG) != m_pid) {
        if (std::chrono::steady_clock::now() > deadline) {
            Reap(true);
            return "child did not finish within " + std::to_string(ms) + " ms";
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    m_reaped = true;
    std::string answer;
    char buffer[512];
    ssize_t n;
    while ((n = read(m_readFd, buffer, sizeof buffer)) > 0)
        answer.append(buffer, static_cast<size_t>(n));
    if (WIFSIGNALED(m_status))
        return "child killed by signal " + std::to_string(WTERMSIG(m_status)) + " " + answer;
    if (WEXITSTATUS(m_status) != 0 && answer.empty())
        return "child ended with status " + std::to_string(WEXITSTATUS(m_status));
    return answer;
}

ScopedEnv::ScopedEnv(const char* name, const char* value) : m_name(name)
{
    const char* old = std::getenv(name);
    m_had = old != nullptr;
    m_old = m_had ? old : "";
    setenv(name, value, 1);
}

ScopedEnv::~ScopedEnv()
{
    if (m_had)
        setenv(m_name.c_str(), m_old.c_str(), 1);
    else
        unsetenv(m_name.c_str());
}

std::string BuildPath(const std::string& relative)
{
    const char* dir = std::getenv("EVC_BUILD_DIR");
    return dir == nullptr || *dir == '\0' ? "" : std::string(dir) + "/" + relative;
}

CommandResult RunCommand(const std::string& command)
{
    CommandResult result;
    FILE* pipe = popen((command + " 2>&1").c_str(), "r");
    if (pipe == nullptr)
        return result;
    char buffer[4096];
    size_t got;
    while ((got = std::fread(buffer, 1, sizeof buffer, pipe)) > 0)
        result.output.append(buffer, got);
    const int status = pclose(pipe);
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return result;
}

std::string Quote(const std::string& text)
{
    return "'" + text + "'";
}

}  // namespace evctest
