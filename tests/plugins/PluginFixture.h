// What the plug-in tests share: the build's host bundle, and one compressor made from it.
#pragma once

#include "common/Process.h"
#include "plugins/CPluginCollection.h"

#include <gtest/gtest.h>

#include <memory>

namespace evctest {

// A collection over the build's host bundle and one compressor made from it for a pair; the
// compressor goes first, then the bundles are unloaded.
class TLoadedCompressor {
public:
    TLoadedCompressor(uint32_t manufacturer, uint32_t codec)
    {
        m_collection.Initialize(BuildPath(), kHostBundle);
        m_collection.LoadVideoPlugin(manufacturer, codec);
        m_compressor.reset(m_collection.CreateVideoCompressor(manufacturer, codec));
    }
    ~TLoadedCompressor()
    {
        m_compressor.reset();
        m_collection.Uninitialize();
    }
    TLoadedCompressor(const TLoadedCompressor&) = delete;
    TLoadedCompressor& operator=(const TLoadedCompressor&) = delete;

    // Null when no loaded bundle makes the pair.
    IVideoCompressor* get() const { return m_compressor.get(); }

private:
    CPluginCollection m_collection;
    std::unique_ptr<IVideoCompressor> m_compressor;
};

}  // namespace evctest
