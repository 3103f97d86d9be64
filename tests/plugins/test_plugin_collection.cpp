#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <string>
#include <unistd.h>
#include <vector>

#include "plugins/CPluginCollection.h"
#include "plugins/PluginFixture.h"
#include "plugins/bundles/TestPluginCodes.h"

using namespace evctest;

namespace {

// The folder name of a bundle as its URL spells it ("a%20b.qv64").
std::string UrlName(CFBundleRef bundle)
{
    CFURLRef url = CFBundleCopyBundleURL(bundle);
    char buffer[2048] = "";
    CFStringGetCString(CFURLGetString(url), buffer, sizeof buffer, kCFStringEncodingUTF8);
    CFRelease(url);
    std::string text = buffer;
    if (!text.empty() && text.back() == '/')
        text.pop_back();
    return text.substr(text.rfind('/') + 1);
}

class PluginCollectionTest : public testing::Test {
protected:
    void SetUp() override
    {
        if (BuildDir().empty())
            GTEST_SKIP() << "EVC_BUILD_DIR is not set";
    }
    void TearDown() override
    {
        // Compressors made from the bundles are gone by now.
        m_collection.Uninitialize();
    }

    std::vector<std::string> LoadedNames() const
    {
        std::vector<std::string> names;
        const auto& bundles = m_collection.GetLoadedBundles();
        for (int i = 0; i < bundles.GetSize(); ++i)
            names.push_back(UrlName(*bundles[static_cast<unsigned long>(i)]));
        return names;
    }

    int BundleIndex(const std::string& name) const
    {
        const std::vector<std::string> names = LoadedNames();
        const auto found = std::find(names.begin(), names.end(), name);
        return found == names.end() ? -1 : static_cast<int>(found - names.begin());
    }

    // (bundle index, info) of every registration, in order.
    std::vector<std::pair<int, uint64_t>> Registrations() const
    {
        std::vector<std::pair<int, uint64_t>> result;
        const auto& records = m_collection.GetCompressors();
        for (int i = 0; i < records.GetSize(); ++i) {
            const auto* record = records[static_cast<unsigned long>(i)];
            result.emplace_back(record->m_bundleIndex, record->m_info);
        }
        return result;
    }

    CPluginCollection m_collection;
};

bool Contains(const std::vector<std::string>& names, const std::string& name)
{
    return std::find(names.begin(), names.end(), name) != names.end();
}

// Names of a compressor's non-standard settings.
std::vector<std::string> NonStandardNames(IVideoCompressor* compressor)
{
    std::vector<std::string> names;
    if (ISettingArray* settings = compressor->GetNonStandardSettings()) {
        for (int32_t i = 0; i < settings->GetCount(); ++i)
            names.push_back(settings->GetSetting(i)->GetName());
    }
    return names;
}

TEST_F(PluginCollectionTest, DiscoversTheHostBundleAndSkipsBadBundles)
{
    testing::internal::CaptureStderr();
    EXPECT_EQ(m_collection.Initialize(BuildDir(), kHostBundle), 0);
    const std::string errors = testing::internal::GetCapturedStderr();

    const std::vector<std::string> names = LoadedNames();
    EXPECT_TRUE(std::is_sorted(names.begin(), names.end()));
    for (const char* loaded : {"test_echo.qv64", "test_empty.qv64", "test_faulty.qv64"})
        EXPECT_TRUE(Contains(names, loaded)) << loaded;
    for (const char* skipped :
         {"test_noload.qv64", "test_nocode.qv64", "GpuAvcEncoder%20Mach-O.qv64", "GpuH264Ac3%20Mach-O.qv64"})
        EXPECT_FALSE(Contains(names, skipped)) << skipped;
    // The loader's own reason for the bundle that would not load.
    EXPECT_NE(errors.find("evc_test_symbol_that_nothing_defines"), std::string::npos) << errors;
    EXPECT_FALSE(m_collection.GetIsCudaSupported());
}

TEST_F(PluginCollectionTest, AppPathWithOrWithoutSlashFindsTheSameBundles)
{
    m_collection.Initialize(BuildDir(), kHostBundle);
    CPluginCollection withSlash;
    withSlash.Initialize(BuildDir() + "/", kHostBundle);
    EXPECT_EQ(withSlash.GetLoadedBundles().GetSize(), m_collection.GetLoadedBundles().GetSize());
    EXPECT_GT(withSlash.GetLoadedBundles().GetSize(), 0);
    withSlash.Uninitialize();
}

TEST_F(PluginCollectionTest, DiscoversOnceButRetriesUntilTheFolderIsListed)
{
    namespace fs = std::filesystem;
    // A host bundle without a plug-ins folder, then one that does not exist.
    const fs::path scratch = fs::temp_directory_path() / ("evc-plughost-" + std::to_string(getpid()));
    fs::create_directories(scratch / "Bare.app" / "Contents");
    struct TRemove {
        fs::path path;
        ~TRemove() { fs::remove_all(path); }
    } cleanup{scratch};

    m_collection.Initialize(scratch.string(), "Bare.app");
    EXPECT_EQ(m_collection.GetLoadedBundles().GetSize(), 0);
    m_collection.Initialize(scratch.string(), "Missing.app");
    EXPECT_EQ(m_collection.GetLoadedBundles().GetSize(), 0);

    m_collection.Initialize(BuildDir(), kHostBundle);
    const int loaded = m_collection.GetLoadedBundles().GetSize();
    EXPECT_GT(loaded, 0);

    // Listed once: a later call changes the path only.
    m_collection.Initialize(scratch.string(), "Bare.app");
    EXPECT_EQ(m_collection.GetAppPath(), scratch.string());
    EXPECT_EQ(m_collection.GetLoadedBundles().GetSize(), loaded);

    // After Uninitialize the folder is listed afresh.
    m_collection.Uninitialize();
    EXPECT_EQ(m_collection.GetLoadedBundles().GetSize(), 0);
    m_collection.Initialize(BuildDir(), kHostBundle);
    EXPECT_EQ(m_collection.GetLoadedBundles().GetSize(), loaded);
}

TEST_F(PluginCollectionTest, RegistersOfferedCompressorsByCodes)
{
    m_collection.Initialize(BuildDir(), kHostBundle);
    const int echo = BundleIndex("test_echo.qv64");
    const int faulty = BundleIndex("test_faulty.qv64");
    const int empty = BundleIndex("test_empty.qv64");
    ASSERT_GE(echo, 0);
    ASSERT_GE(faulty, 0);
    ASSERT_GE(empty, 0);

    using TRegs = std::vector<std::pair<int, uint64_t>>;
    m_collection.LoadVideoPlugin(kTestManufacturer, kEchoCodec);
    EXPECT_EQ(Registrations(), (TRegs{{echo, 1}}));

    // One pair in two bundles: bundle order.
    m_collection.LoadVideoPlugin(kTestManufacturer, kDualCodec);
    EXPECT_EQ(Registrations(), (TRegs{{echo, 1}, {echo, 5}, {faulty, 6}}));

    // Only the exact pair; the GPU bundles were never loaded.
    m_collection.LoadVideoPlugin(kOtherManufacturer, kEchoCodec);
    m_collection.LoadVideoPlugin(kTestManufacturer, kGpuCodec);
    EXPECT_EQ(Registrations().size(), 3u);

    // Codes 0 and 0: the empty slots (all three values 0) are skipped, the
    // slot that reports info 7 is not empty.
    m_collection.LoadVideoPlugin(0, 0);
    EXPECT_EQ(Registrations(), (TRegs{{echo, 1}, {echo, 5}, {faulty, 6}, {empty, 7}}));

    // Registered again by a later call; the first registration keeps winning.
    m_collection.LoadVideoPlugin(kTestManufacturer, kEchoCodec);
    EXPECT_EQ(Registrations().size(), 5u);
    EXPECT_EQ(FindPlugin(m_collection.GetCompressors(), 0, kEchoCodec), m_collection.GetCompressors()[0]);
}

TEST_F(PluginCollectionTest, FirstRegistrationWinsForAnyManufacturer)
{
    m_collection.Initialize(BuildDir(), kHostBundle);
    // The faulty bundle's (EvcT, twin) is registered before the echo
    // bundle's (EvcU, twin), although the echo bundle comes first.
    m_collection.LoadVideoPlugin(kTestManufacturer, kTwinCodec);
    m_collection.LoadVideoPlugin(kOtherManufacturer, kTwinCodec);

    struct {
        uint32_t manufacturer;
        const char* kindSetting;  // names the kind of compressor made
    } cases[] = {
        {0, "Fault"},
        {kTestManufacturer, "Fault"},
        {kOtherManufacturer, "Preset"},
    };
    for (const auto& test : cases) {
        std::unique_ptr<IVideoCompressor> compressor(m_collection.CreateVideoCompressor(test.manufacturer, kTwinCodec));
        ASSERT_NE(compressor, nullptr) << test.manufacturer;
        EXPECT_TRUE(Contains(NonStandardNames(compressor.get()), test.kindSetting)) << test.manufacturer;
    }
}

TEST_F(PluginCollectionTest, CreatesANewCompressorOnEachRequest)
{
    m_collection.Initialize(BuildDir(), kHostBundle);
    EXPECT_EQ(m_collection.CreateVideoCompressor(kTestManufacturer, kEchoCodec), nullptr) << "not registered yet";
    m_collection.LoadVideoPlugin(kTestManufacturer, kEchoCodec);

    std::unique_ptr<IVideoCompressor> first(m_collection.CreateVideoCompressor(kTestManufacturer, kEchoCodec));
    std::unique_ptr<IVideoCompressor> second(m_collection.CreateVideoCompressor(0, kEchoCodec));
    ASSERT_NE(first, nullptr);
    ASSERT_NE(second, nullptr);
    EXPECT_NE(first.get(), second.get());
    EXPECT_NE(first.get(), m_collection.GetCompressors()[0]->m_prototype);
    EXPECT_TRUE(Contains(NonStandardNames(first.get()), "Preset"));
    EXPECT_EQ(m_collection.CreateVideoCompressor(kOtherManufacturer, kEchoCodec), nullptr);
}

TEST_F(PluginCollectionTest, ThrowingEntryPointsCountAsEmpty)
{
    struct {
        const char* fault;
        size_t faultyRegistrations;  // of (EvcT, faul)
        bool created;
    } cases[] = {
        {"QVGetNumberVideoCompressors:throw", 0, false},
        // The outputs were written before the throw and stay.
        {"QVGetVideoCompressorInfo:throw", 1, true},
        {"CreateVideoCompressor:throw", 0, false},
        {"CreateInstance:throw", 1, false},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.fault);
        TEnvironmentGuard fault(kFaultEnvironment, test.fault);
        CPluginCollection collection;
        collection.Initialize(BuildDir(), kHostBundle);
        collection.LoadVideoPlugin(kTestManufacturer, kFaultyCodec);
        EXPECT_EQ(static_cast<size_t>(collection.GetCompressors().GetSize()), test.faultyRegistrations);
        std::unique_ptr<IVideoCompressor> compressor(collection.CreateVideoCompressor(kTestManufacturer, kFaultyCodec));
        EXPECT_EQ(compressor != nullptr, test.created);

        // The host carries on with the other bundles.
        collection.LoadVideoPlugin(kTestManufacturer, kEchoCodec);
        std::unique_ptr<IVideoCompressor> echo(collection.CreateVideoCompressor(kTestManufacturer, kEchoCodec));
        EXPECT_NE(echo, nullptr);
        echo.reset();
        compressor.reset();
        collection.Uninitialize();
    }
}

TEST_F(PluginCollectionTest, EntryPointLookupOutsideTheLoadedBundles)
{
    m_collection.Initialize(BuildDir(), kHostBundle);
    const int count = m_collection.GetLoadedBundles().GetSize();
    EXPECT_EQ(m_collection.GetPluginFunction(-1, "QVGetNumberVideoCompressors"), nullptr);
    EXPECT_EQ(m_collection.GetPluginFunction(count, "QVGetNumberVideoCompressors"), nullptr);
    EXPECT_EQ(m_collection.GetNumberOfPlugins("QVGetNumberVideoCompressors", count), 0u);
    const int echo = BundleIndex("test_echo.qv64");
    EXPECT_EQ(m_collection.GetNumberOfPlugins("QVGetNumberVideoCompressors", echo), 4u);
    EXPECT_EQ(m_collection.GetNumberOfPlugins("NoSuchEntry", echo), 0u);

    unsigned int manufacturer = 1, codec = 2;
    unsigned long info = 3;
    m_collection.GetPluginInfo("NoSuchEntry", echo, 0, &manufacturer, &codec, &info);
    EXPECT_EQ(manufacturer + codec + info, 0u) << "outputs zeroed before the lookup";
    m_collection.GetPluginInfo("QVGetVideoCompressorInfo", echo, 2, &manufacturer, &codec, &info);
    EXPECT_EQ(manufacturer, kOtherManufacturer);
    EXPECT_EQ(codec, kTwinCodec);
    EXPECT_EQ(info, 2u);
}

TEST(GlobalPluginCollection, StartsEmpty)
{
    EXPECT_EQ(g_pluginCollection.GetLoadedBundles().GetSize(), 0);
    EXPECT_EQ(g_pluginCollection.GetCompressors().GetSize(), 0);
    EXPECT_EQ(g_pluginCollection.CreateVideoCompressor(0, kEchoCodec), nullptr);
}

}  // namespace
