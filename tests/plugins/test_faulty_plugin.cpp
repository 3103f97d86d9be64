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
        m_faulty = std::make_unique<TLoadedCompressor>(kTestManufacturer, kFaultyCodec);
        ASSERT_NE(m_faulty->get(), nullptr);
    }
    // Unloading also forgets the fault chosen by a setting.
    void TearDown() override { m_faulty.reset(); }

    // Chooses the fault through the non-standard "Fault" setting.
    void ChooseFault(const char* fault)
    {
        ISettingArray* settings = Faulty()->GetNonStandardSettings();
        ASSERT_NE(settings, nullptr);
        ASSERT_EQ(settings->GetCount(), 1);
        ASSERT_STREQ(settings->GetSetting(0)->GetName(), "Fault");
        static_cast<IEnumSetting*>(settings->GetSetting(0))->SetValue(fault);
    }

    uint32_t Compress() { return Faulty()->CompressFrame(nullptr, false, false, nullptr); }

    IVideoCompressor* Faulty() const { return m_faulty->get(); }

    std::unique_ptr<TLoadedCompressor> m_faulty;
};

TEST_F(FaultyPluginTest, BehavesUntilTheChosenCall)
{
    EXPECT_EQ(Faulty()->GetStandardSettings(), nullptr);
    EXPECT_EQ(Compress(), 0u);
    EXPECT_EQ(Faulty()->Begin(nullptr, false), 0u);

    ChooseFault("CompressFrame:fail:2");
    EXPECT_EQ(Faulty()->Begin(nullptr, false), 0u) << "another operation";
    EXPECT_EQ(Compress(), 0u);
    EXPECT_EQ(Compress(), 0u);
    EXPECT_EQ(Compress(), kFaultyStatus);
    EXPECT_EQ(Compress(), kFaultyStatus);

    // The setting wins over the environment once set.
    TEnvironmentGuard fault(kFaultEnvironment, "Begin:fail");
    EXPECT_EQ(Faulty()->Begin(nullptr, false), 0u);
    ChooseFault("End:throw");
    EXPECT_THROW(Faulty()->End(), std::exception);
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
            Faulty()->Begin(nullptr, true);
        },
        testing::KilledBySignal(SIGABRT), "");
    EXPECT_EXIT(
        {
            TEnvironmentGuard fault(kFaultEnvironment, "SetStreamModeHint:hang");
            alarm(1);  // only a hang lets the alarm end the child
            Faulty()->SetStreamModeHint(1);
            std::exit(0);
        },
        testing::KilledBySignal(SIGALRM), "");
}

}  // namespace
