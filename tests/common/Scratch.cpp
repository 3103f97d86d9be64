// Leftover checks of the scratch fixture.
#include "common/Scratch.h"

#include "ipc/details/AMemoryMappedFile.h"

#include <sys/stat.h>
#include <sys/wait.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace evctest {

bool LockExists(const std::string& key)
{
    return Exists("/dev/shm/sem." + ZKMakePlatformSafeKey(key.c_str()));
}

bool Exists(const std::string& path)
{
    struct stat info;
    return stat(path.c_str(), &info) == 0;
}

bool NoChildLeft()
{
    return waitpid(-1, nullptr, WNOHANG) < 0 && errno == ECHILD;
}

namespace {

// Kills every child of this process and reaps them.
void EndChildren()
{
    std::error_code ignored;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task", ignored)) {
        std::ifstream children(task.path() / "children");
        for (pid_t pid; children >> pid;)
            if (kill(pid, SIGKILL) == 0)
                waitpid(pid, nullptr, 0);
    }
}

}  // namespace

void ScratchTest::SetUp()
{
    ASSERT_TRUE(m_dir.Ok());
    const char* tmpdir = std::getenv("TMPDIR");
    m_hadTmpdir = tmpdir != nullptr;
    m_savedTmpdir = tmpdir != nullptr ? tmpdir : "";
    setenv("TMPDIR", Folder().c_str(), 1);
}

void ScratchTest::TearDown()
{
    for (const std::string& key : m_owned)
        CASystemSemaphore::remove(key.c_str());
    for (const std::string& key : m_watched) {
        EXPECT_FALSE(LockExists(key)) << "named lock of " << key << " left in /dev/shm";
        CASystemSemaphore::remove(key.c_str());
    }
    if (m_hadTmpdir)
        setenv("TMPDIR", m_savedTmpdir.c_str(), 1);
    else
        unsetenv("TMPDIR");
    std::error_code ignored;
    for (const auto& entry : std::filesystem::directory_iterator(m_dir.Path(), ignored))
        ADD_FAILURE() << "left in the temporary folder: " << entry.path().filename();
    if (!NoChildLeft()) {
        ADD_FAILURE() << "a child process is left";
        EndChildren();
    }
}

}  // namespace evctest
