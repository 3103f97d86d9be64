// The faulty test plug-in misbehaves exactly where it is asked to, so the
// service's isolation tests can rely on it.
#include <gtest/gtest.h>

#include <csignal>
#include <memory>
#include <unistd.h>

#include "plugins/CPluginCollection.h"
#include "plugins/PluginFixture.h"
#include "plugins/bundles/TestPluginCodes.h"

using namespace evctest;

namespace {

class FaultyPluginTest : public testing::Test {
protected:
    void SetUp() override
    {
        if (BuildDir().empty())
            GTEST_SKIP() << "EVC_BUILD_DIR is not set";
        m_collection.Initialize(BuildDir(), kHostBundle);
        m_collection.LoadVideoPlugin(kTestManufacturer, kFaultyCodec);
        m_compressor.reset(m_collection.CreateVideoCompressor(kTestManufacturer, kFaultyCodec));
        ASSERT_NE(m_compressor, nullptr);
    }
    void TearDown() override
    {
        m_compressor.reset();
        m_collection.Uninitialize();  // also forgets the fault chosen by a setting
    }

    // Chooses the fault through the non-standard "Fault" setting.
    void ChooseFault(const char* fault)
    {
        ISettingArray* settings = m_compressor->GetNonStandardSettings();
        ASSERT_NE(settings, nullptr);
        ASSERT_EQ(settings->GetCount(), 1);
        ASSERT_STREQ(settings->GetSetting(0)->GetName(), "Fault");
        static_cast<IEnumSetting*>(settings->GetSetting(0))->SetValue(fault);
    }

    uint32_t Compress() { return m_compressor->CompressFrame(nullptr, false, false, nullptr); }

    CPluginCollection m_collection;
    std::unique_ptr<IVideoCompressor> m_compressor;
};

TEST_F(FaultyPluginTest, BehavesUntilTheChosenCall)
{
    EXPECT_EQ(m_compressor->GetStandardSettings(), nullptr);
    EXPECT_EQ(Compress(), 0u);
    EXPECT_EQ(m_compressor->Begin(nullptr, false), 0u);

    ChooseFault("CompressFrame:fail:2");
    EXPECT_EQ(m_compressor->Begin(nullptr, false), 0u) << "another operation";
    EXPECT_EQ(Compress(), 0u);
    EXPECT_EQ(Compress(), 0u);
    EXPECT_EQ(Compress(), kFaultyStatus);
    EXPECT_EQ(Compress(), kFaultyStatus);

    // The setting wins over the environment once set.
    TEnvironmentGuard fault(kFaultEnvironment, "Begin:fail");
    EXPECT_EQ(m_compressor->Begin(nullptr, false), 0u);
    ChooseFault("End:throw");
    EXPECT_THROW(m_compressor->End(), std::exception);
}

TEST_F(FaultyPluginTest, CrashesOrHangsOnRequest)
{
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_EXIT(
        {
            ChooseFault("CompressFrame:segv");
            Compress();
        },
        testing::KilledBySignal(SIGSEGV), "");
    EXPECT_EXIT(
        {
            ChooseFault("Begin:abort");
            m_compressor->Begin(nullptr, true);
        },
        testing::KilledBySignal(SIGABRT), "");
    EXPECT_EXIT(
        {
            TEnvironmentGuard fault(kFaultEnvironment, "SetStreamModeHint:hang");
            alarm(1);  // only a hang lets the alarm end the child
            m_compressor->SetStreamModeHint(1);
            std::exit(0);
        },
        testing::KilledBySignal(SIGALRM), "");
}

}  // namespace
