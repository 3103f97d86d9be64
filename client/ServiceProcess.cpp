#include "client/ServiceProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <stdexcept>

extern char** environ;

namespace evc {

void TextTail::append(const char* data, size_t size)
{
    m_text.append(data, size);
    // Trimmed in steps of at least kKeptBytes, so each byte moves at most once.
    if (m_text.size() > 2 * kKeptBytes)
        m_text.erase(0, m_text.size() - kKeptBytes);
}

std::string TextTail::lastLines(size_t count) const
{
    const size_t start = m_text.size() > kKeptBytes ? m_text.size() - kKeptBytes : 0;
    size_t end = m_text.size();
    if (end > start && m_text[end - 1] == '\n')
        --end;
    size_t from = end;
    for (size_t lines = 0; from > start && lines < count;) {
        --from;
        if (m_text[from] == '\n' && ++lines == count) {
            ++from;
            break;
        }
    }
    return m_text.substr(from, end - from);
}

namespace {

// posix_spawn's attribute and action objects, destroyed on every path.
struct SpawnSetup {
    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
    SpawnSetup()
    {
        posix_spawn_file_actions_init(&actions);
        posix_spawnattr_init(&attributes);
    }
    ~SpawnSetup()
    {
        posix_spawn_file_actions_destroy(&actions);
        posix_spawnattr_destroy(&attributes);
    }
    SpawnSetup(const SpawnSetup&) = delete;
    SpawnSetup& operator=(const SpawnSetup&) = delete;
};

}  // namespace

ServiceProcess::ServiceProcess(const std::string& program, const std::vector<std::string>& arguments,
                               bool forwardErrors, std::function<bool()> onEnd,
                               const std::vector<std::string>& settings)
    : m_forward(forwardErrors), m_onEnd(std::move(onEnd))
{
    int pipeFds[2];
    if (pipe2(pipeFds, O_CLOEXEC) != 0)
        throw std::runtime_error(std::string("cannot create a pipe: ") + std::strerror(errno));
    m_readEnd.reset(pipeFds[0]);
    const UniqueFd writeEnd(pipeFds[1]);

    SpawnSetup setup;
    posix_spawn_file_actions_addopen(&setup.actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&setup.actions, writeEnd.get(), STDERR_FILENO);
    // Nothing else of the host's reaches the child, whatever flags it has.
    posix_spawn_file_actions_addclosefrom_np(&setup.actions, STDERR_FILENO + 1);
    sigset_t signals;
    sigemptyset(&signals);
    posix_spawnattr_setsigmask(&setup.attributes, &signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGPIPE);
    posix_spawnattr_setsigdefault(&setup.attributes, &signals);
    posix_spawnattr_setpgroup(&setup.attributes, 0);
    posix_spawnattr_setflags(&setup.attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);

    std::vector<char*> argv;
    argv.push_back(const_cast<char*>(program.c_str()));
    for (const std::string& argument : arguments)
        argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);

    std::vector<char*> environment;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const char* equals = std::strchr(*entry, '=');
        const size_t nameLength = equals != nullptr ? static_cast<size_t>(equals - *entry) + 1 : std::strlen(*entry);
        bool replaced = false;
        for (const std::string& setting : settings)
            replaced = replaced || setting.compare(0, nameLength, *entry, nameLength) == 0;
        if (!replaced)
            environment.push_back(*entry);
    }
    for (const std::string& setting : settings)
        environment.push_back(const_cast<char*>(setting.c_str()));
    environment.push_back(nullptr);

    pid_t pid = -1;
    const int error =
        posix_spawn(&pid, program.c_str(), &setup.actions, &setup.attributes, argv.data(), environment.data());
    if (error != 0)
        throw std::runtime_error("cannot start " + program + ": " + std::strerror(error));
    m_child = ChildHandle(pid);
#ifdef SYS_pidfd_open
    // Close-on-exec; the child is not reaped before us, so its id is still its own.
    if (m_onEnd)
        m_endFd.reset(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)));
#endif
    m_reader = std::thread(&ServiceProcess::readErrors, this);
}

ServiceProcess::~ServiceProcess()
{
    m_child.kill();
    if (m_reader.joinable())
        m_reader.join();
}

// Until the pipe's end and, with a pidfd, the child's: the pipe usually ends
// first (a dying process closes its files before it becomes a zombie).
void ServiceProcess::readErrors()
{
    char buffer[4096];
    pollfd watched[2] = {{m_readEnd.get(), POLLIN, 0}, {m_endFd ? m_endFd.get() : -1, POLLIN, 0}};
    bool again = false;
    while (watched[0].fd >= 0 || watched[1].fd >= 0 || again) {
        const int ready = poll(watched, 2, again ? 1 : -1);
        if (ready < 0 && errno != EINTR)
            break;
        if (ready == 0 || watched[1].revents != 0) {
            watched[1].fd = -1;
            watched[1].revents = 0;
            again = m_onEnd();
        }
        if (ready <= 0 || watched[0].revents == 0)
            continue;
        const ssize_t n = read(m_readEnd.get(), buffer, sizeof buffer);
        if (n < 0 && (errno == EINTR || errno == EAGAIN))
            continue;
        if (n <= 0) {
            watched[0].fd = -1;
            std::lock_guard<std::mutex> lock(m_tailMutex);
            m_readerDone = true;
            continue;
        }
        if (m_forward)
            (void)!write(STDERR_FILENO, buffer, static_cast<size_t>(n));
        std::lock_guard<std::mutex> lock(m_tailMutex);
        m_tail.append(buffer, static_cast<size_t>(n));
    }
    std::lock_guard<std::mutex> lock(m_tailMutex);
    m_readerDone = true;
}

std::string ServiceProcess::lastErrorLines(size_t count)
{
    // A child that has ended may still have bytes in the pipe.
    if (!m_child.alive()) {
        for (int i = 0; i < 200; ++i) {
            {
                std::lock_guard<std::mutex> lock(m_tailMutex);
                if (m_readerDone)
                    break;
            }
            usleep(1000);
        }
    }
    std::lock_guard<std::mutex> lock(m_tailMutex);
    return m_tail.lastLines(count);
}

}  // namespace evc
