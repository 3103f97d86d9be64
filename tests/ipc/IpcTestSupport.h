#pragma once
// Helpers for tests that run a second process and use system names: a forked
// child that is always reaped (and killed if it overstays), and a fixture that
// gives every test a private temporary folder and checks that neither files
// nor named semaphores are left behind.

#include <gtest/gtest.h>

#include <functional>
#include <set>
#include <string>
#include <vector>

#include <sys/types.h>

// Runs body in a forked child. The child's answer (empty for success, else a
// description of what went wrong) travels back through a pipe; the child ends
// with _exit so that nothing of the test runner runs twice.
class ChildProcess {
public:
    explicit ChildProcess(std::function<std::string()> body);
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    // Waits up to ms for the child to end and returns its answer; a child that
    // crashed, exited abnormally or ran out of time gives a text saying so.
    std::string finish(unsigned int ms = 20000);

    pid_t pid() const { return m_pid; }

private:
    void reap(bool kill);

    pid_t m_pid = -1;
    int m_readFd = -1;
    int m_status = 0;
    bool m_reaped = false;
};

// Whole-text match against a POSIX extended regular expression; groups, when
// given, receive the parenthesised sub-matches.
bool matchesRegex(const std::string& text, const std::string& pattern, std::vector<std::string>* groups = nullptr);
// The text with every regular-expression operator escaped.
std::string escapeRegex(const std::string& text);

class IpcScratchTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    // A path inside the private temporary folder (TMPDIR points there).
    std::string path(const std::string& name) const { return m_folder + "/" + name; }
    const std::string& folder() const { return m_folder; }

    // A lock name the test creates and that nothing else removes: removed at the end.
    void ownLock(const std::string& name) { m_ownedLocks.insert(name); }
    // A lock name the code under test must remove by itself: checked at the end.
    void expectLockRemoved(const std::string& name) { m_expectedGone.insert(name); }

    static bool lockExists(const std::string& name);
    static bool fileExists(const std::string& path);

private:
    std::string m_folder;
    std::string m_savedTmpdir;
    bool m_hadTmpdir = false;
    std::set<std::string> m_ownedLocks;
    std::set<std::string> m_expectedGone;
};
