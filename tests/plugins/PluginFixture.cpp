#include "plugins/PluginFixture.h"

#include <cstdlib>

namespace evctest {

std::string BuildDir()
{
    const char* dir = std::getenv("EVC_BUILD_DIR");
    return dir != nullptr ? dir : "";
}

TEnvironmentGuard::TEnvironmentGuard(const char* name, const char* value) : m_name(name)
{
    const char* old = std::getenv(name);
    m_hadValue = old != nullptr;
    if (old != nullptr)
        m_oldValue = old;
    setenv(name, value, 1);
}

TEnvironmentGuard::~TEnvironmentGuard()
{
    if (m_hadValue)
        setenv(m_name.c_str(), m_oldValue.c_str(), 1);
    else
        unsetenv(m_name.c_str());
}

}  // namespace evctest
