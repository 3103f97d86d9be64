// What the plug-in tests share: where the build put the host bundle, and a
// guard that sets the faulty plug-in's switch for one scope.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "plugins/CPluginCollection.h"

namespace evctest {

// The build folder (EVC_BUILD_DIR, set by CTest); the tests are skipped
// without it.
std::string BuildDir();
// The host bundle path relative to BuildDir().
constexpr char kHostBundle[] = "Evc.app";

// A collection over the build's host bundle and one compressor made from it
// for a pair; the compressor goes first, then the bundles are unloaded.
class TLoadedCompressor {
public:
    TLoadedCompressor(uint32_t manufacturer, uint32_t codec);
    ~TLoadedCompressor();
    TLoadedCompressor(const TLoadedCompressor&) = delete;
    TLoadedCompressor& operator=(const TLoadedCompressor&) = delete;

    // Null when no loaded bundle makes the pair.
    IVideoCompressor* get() const { return m_compressor.get(); }
    IVideoCompressor* operator->() const { return m_compressor.get(); }

private:
    CPluginCollection m_collection;
    std::unique_ptr<IVideoCompressor> m_compressor;
};

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
