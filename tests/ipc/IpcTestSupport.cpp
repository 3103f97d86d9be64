#include "ipc/IpcTestSupport.h"

#include "ipc/details/AMemoryMappedFile.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <exception>

#include <dirent.h>
#include <regex.h>
#include <semaphore.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

ChildProcess::ChildProcess(std::function<std::string()> body)
{
    int fds[2];
    if (pipe(fds) != 0)
        throw std::runtime_error("pipe failed");
    m_pid = fork();
    if (m_pid == -1) {
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
        } catch (...) {
            answer = "child: unknown exception";
        }
        size_t written = 0;
        while (written < answer.size()) {
            const ssize_t n = write(fds[1], answer.data() + written, answer.size() - written);
            if (n <= 0)
                break;
            written += static_cast<size_t>(n);
        }
        _exit(answer.empty() ? 0 : 1);
    }
    close(fds[1]);
    m_readFd = fds[0];
}

ChildProcess::~ChildProcess()
{
    if (!m_reaped)
        reap(true);
    if (m_readFd != -1)
        close(m_readFd);
}

void ChildProcess::reap(bool kill)
{
    if (m_reaped || m_pid <= 0)
        return;
    if (kill)
        ::kill(m_pid, SIGKILL);
    while (waitpid(m_pid, &m_status, 0) == -1 && errno == EINTR) {}
    m_reaped = true;
}

std::string ChildProcess::finish(unsigned int ms)
{
    const CASystemTime clock;
    while (!m_reaped) {
        const pid_t done = waitpid(m_pid, &m_status, WNOHANG);
        if (done == m_pid) {
            m_reaped = true;
            break;
        }
        if (clock.elapsed() > ms) {
            reap(true);
            return "child did not finish within " + std::to_string(ms) + " ms";
        }
        CASystemTime::msleep(1);
    }
    std::string answer;
    char buffer[512];
    ssize_t n;
    while ((n = read(m_readFd, buffer, sizeof buffer)) > 0)
        answer.append(buffer, static_cast<size_t>(n));
    if (WIFSIGNALED(m_status))
        return "child killed by signal " + std::to_string(WTERMSIG(m_status)) + " " + answer;
    if (!WIFEXITED(m_status) || (WEXITSTATUS(m_status) != 0 && answer.empty()))
        return "child ended with status " + std::to_string(m_status);
    return answer;
}

bool matchesRegex(const std::string& text, const std::string& pattern, std::vector<std::string>* groups)
{
    regex_t compiled;
    if (regcomp(&compiled, ("^(" + pattern + ")$").c_str(), REG_EXTENDED) != 0) {
        ADD_FAILURE() << "bad pattern " << pattern;
        return false;
    }
    std::vector<regmatch_t> matches(compiled.re_nsub + 1);
    const bool matched = regexec(&compiled, text.c_str(), matches.size(), matches.data(), 0) == 0;
    if (matched && groups) {
        groups->clear();
        for (size_t i = 2; i < matches.size(); ++i)
            groups->push_back(matches[i].rm_so < 0
                                  ? std::string()
                                  : text.substr(matches[i].rm_so, matches[i].rm_eo - matches[i].rm_so));
    }
    regfree(&compiled);
    return matched;
}

std::string escapeRegex(const std::string& text)
{
    std::string escaped;
    for (char ch : text) {
        if (std::strchr(".^$|()[]{}*+?\\", ch))
            escaped += '\\';
        escaped += ch;
    }
    return escaped;
}

void IpcScratchTest::SetUp()
{
    const char* tmpdir = std::getenv("TMPDIR");
    m_hadTmpdir = tmpdir != nullptr;
    if (tmpdir)
        m_savedTmpdir = tmpdir;
    std::string pattern = std::string(tmpdir && *tmpdir ? tmpdir : "/tmp") + "/evc-ipc-test-XXXXXX";
    ASSERT_NE(mkdtemp(pattern.data()), nullptr) << std::strerror(errno);
    m_folder = pattern;
    setenv("TMPDIR", m_folder.c_str(), 1);
}

void IpcScratchTest::TearDown()
{
    for (const std::string& name : m_ownedLocks)
        CASystemSemaphore::remove(name.c_str());
    for (const std::string& name : m_expectedGone) {
        if (lockExists(name)) {
            ADD_FAILURE() << "named lock of " << name << " left in /dev/shm";
            CASystemSemaphore::remove(name.c_str());
        }
    }
    if (m_hadTmpdir)
        setenv("TMPDIR", m_savedTmpdir.c_str(), 1);
    else
        unsetenv("TMPDIR");
    if (m_folder.empty())
        return;
    if (DIR* dir = opendir(m_folder.c_str())) {
        while (dirent* entry = readdir(dir)) {
            const std::string name = entry->d_name;
            if (name == "." || name == "..")
                continue;
            ADD_FAILURE() << "file left in the temporary folder: " << name;
            std::remove(path(name).c_str());
        }
        closedir(dir);
    }
    rmdir(m_folder.c_str());
}

bool IpcScratchTest::lockExists(const std::string& name)
{
    return fileExists("/dev/shm/sem." + ZKMakePlatformSafeKey(name.c_str()));
}

bool IpcScratchTest::fileExists(const std::string& path)
{
    struct stat status;
    return stat(path.c_str(), &status) == 0;
}
