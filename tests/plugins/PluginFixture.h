// What the plug-in tests share: where the build put the host bundle, and a
// guard that sets the faulty plug-in's switch for one scope.
#pragma once

#include <string>

namespace evctest {

// The build folder (EVC_BUILD_DIR, set by CTest); the tests are skipped
// without it.
std::string BuildDir();
// The host bundle path relative to BuildDir().
constexpr char kHostBundle[] = "Evc.app";

// Sets an environment variable for the life of the guard.
class TEnvironmentGuard {
public:
    TEnvironmentGuard(const char* name, const char* value);
    ~TEnvironmentGuard();
    TEnvironmentGuard(const TEnvironmentGuard&) = delete;
    TEnvironmentGuard& operator=(const TEnvironmentGuard&) = delete;

private:
    std::string m_name;
    bool m_hadValue;
    std::string m_oldValue;
};

}  // namespace evctest
