// A fixture that loads the h264.qv64 bundle and makes one compressor.
#pragma once

#include <gtest/gtest.h>

#include "codecs/H264Harness.h"

namespace evctest {

class H264Test : public testing::Test {
protected:
    void SetUp() override
    {
        const std::string path = H264BundleExecutable();
        if (path.empty())
            GTEST_SKIP() << "EVC_BUILD_DIR is not set";
        m_library = std::make_unique<TH264Library>(path);
        ASSERT_TRUE(m_library->IsLoaded()) << path << ": " << m_library->Error();
        m_compressor = MakeCompressor(*m_library);
        ASSERT_NE(m_compressor, nullptr);
    }
    void TearDown() override
    {
        // Compressors go before the code that made them.
        m_compressor.reset();
        m_library.reset();
    }

    std::unique_ptr<TH264Library> m_library;
    TCompressorPtr m_compressor;
};

}  // namespace evctest
