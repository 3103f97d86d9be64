// A fixture for tests that make files, named locks or child processes: each test gets its own
// TMPDIR, and on teardown nothing may be left: no file in that folder, no named lock of a watched
// key in /dev/shm, no child process. What is left is reported as a failure, then removed (a
// child is killed and reaped), so one failed test does not leave its processes to the next.
#pragma once

#include "common/TempDir.h"

#include <set>
#include <string>

namespace evctest {

// Whether the named lock of key exists in /dev/shm.
bool LockExists(const std::string& key);
// Whether path names anything.
bool Exists(const std::string& path);
// True when this process has no child, running or ended and not reaped.
bool NoChildLeft();

class ScratchTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    // A path inside the private folder (TMPDIR points there during the test).
    std::string Path(const std::string& name) const { return m_dir.File(name); }
    std::string Folder() const { return m_dir.Path().string(); }
    // The code under test must remove the lock of key by itself.
    void Watch(const std::string& key) { m_watched.insert(key); }
    // A lock the test made itself and nothing else removes: removed quietly at the end.
    void Own(const std::string& key) { m_owned.insert(key); }

private:
    TempDir m_dir;
    std::string m_savedTmpdir;
    bool m_hadTmpdir = false;
    std::set<std::string> m_watched;
    std::set<std::string> m_owned;
};

}  // namespace evctest
