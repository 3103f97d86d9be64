#include "plugins/PluginFixture.h"

#include <cstdlib>

namespace evctest {

std::string BuildDir()
{
    const char* dir = std::getenv("EVC_BUILD_DIR");
    return dir != nullptr ? dir : "";
}

TLoadedCompressor::TLoadedCompressor(uint32_t manufacturer, uint32_t codec)
{
    m_collection.Initialize(BuildDir(), kHostBundle);
    m_collection.LoadVideoPlugin(manufacturer, codec);
    m_compressor.reset(m_collection.CreateVideoCompressor(manufacturer, codec));
}

TLoadedCompressor::~TLoadedCompressor()
{
    m_compressor.reset();
    m_collection.Uninitialize();
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
