#include "client/ServiceProcess.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <stdexcept>

extern char** environ;

namespace evc {

namespace {

constexpr size_t kKeptLines = 64;

}  // namespace

ServiceProcess::ServiceProcess(const std::string& program, const std::vector<std::string>& arguments,
                               bool forwardErrors)
    : m_forward(forwardErrors)
{
    int pipeFds[2];
    if (pipe2(pipeFds, O_CLOEXEC) != 0)
        throw std::runtime_error(std::string("cannot create a pipe: ") + std::strerror(errno));

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, pipeFds[1], STDERR_FILENO);

    std::vector<char*> argv;
    argv.push_back(const_cast<char*>(program.c_str()));
    for (const std::string& argument : arguments)
        argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);

    const int error = posix_spawn(&m_pid, program.c_str(), &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(pipeFds[1]);
    if (error != 0) {
        close(pipeFds[0]);
        m_pid = -1;
        throw std::runtime_error("cannot start " + program + ": " + std::strerror(error));
    }
    m_reader = std::thread(&ServiceProcess::readErrors, this, pipeFds[0]);
}

ServiceProcess::~ServiceProcess()
{
    if (m_pid > 0 && !m_reaped)
        kill();
    if (m_reader.joinable())
        m_reader.join();
}

void ServiceProcess::readErrors(int fd)
{
    char buffer[4096];
    for (;;) {
        const ssize_t n = read(fd, buffer, sizeof buffer);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            break;
        if (m_forward)
            (void)!write(STDERR_FILENO, buffer, static_cast<size_t>(n));
        std::lock_guard<std::mutex> lock(m_linesMutex);
        m_partial.append(buffer, static_cast<size_t>(n));
        size_t newline;
        while ((newline = m_partial.find('\n')) != std::string::npos) {
            m_lines.push_back(m_partial.substr(0, newline));
            m_partial.erase(0, newline + 1);
            if (m_lines.size() > kKeptLines)
                m_lines.pop_front();
        }
    }
    close(fd);
    std::lock_guard<std::mutex> lock(m_linesMutex);
    if (!m_partial.empty()) {
        m_lines.push_back(m_partial);
        m_partial.clear();
    }
    m_readerDone = true;
}

void ServiceProcess::recordStatus(int status)
{
    m_reaped = true;
    if (WIFSIGNALED(status)) {
        m_termSignal = WTERMSIG(status);
        m_exitStatus = -1;
    } else if (WIFEXITED(status)) {
        m_exitStatus = WEXITSTATUS(status);
    }
}

bool ServiceProcess::alive()
{
    if (m_pid <= 0 || m_reaped)
        return false;
    int status = 0;
    const pid_t r = waitpid(m_pid, &status, WNOHANG);
    if (r == m_pid) {
        recordStatus(status);
        return false;
    }
    return r == 0;
}

bool ServiceProcess::waitForExit(int ms)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
    while (alive()) {
        if (std::chrono::steady_clock::now() >= deadline)
            return false;
        usleep(1000);
    }
    return true;
}

void ServiceProcess::kill()
{
    if (m_pid <= 0 || m_reaped)
        return;
    ::kill(m_pid, SIGKILL);
    int status = 0;
    while (waitpid(m_pid, &status, 0) < 0 && errno == EINTR) {}
    recordStatus(status);
}

std::string ServiceProcess::lastErrorLines(size_t count)
{
    // A child that has ended may still have bytes in the pipe.
    if (m_reaped) {
        for (int i = 0; i < 200; ++i) {
            {
                std::lock_guard<std::mutex> lock(m_linesMutex);
                if (m_readerDone)
                    break;
            }
            usleep(1000);
        }
    }
    std::lock_guard<std::mutex> lock(m_linesMutex);
    std::string text;
    const size_t first = m_lines.size() > count ? m_lines.size() - count : 0;
    for (size_t i = first; i < m_lines.size(); ++i) {
        if (!text.empty())
            text += '\n';
        text += m_lines[i];
    }
    if (!m_partial.empty()) {
        if (!text.empty())
            text += '\n';
        text += m_partial;
    }
    return text;
}

}  // namespace evc
