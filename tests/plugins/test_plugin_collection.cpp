// The plug-in collection over the build's host bundle and the test bundles: discovery, bundles it
// must skip, registration by codes, the first registration winning, faulty entry points, lookups
// out of range, and lookups by codes (manufacturer 0 matching any). And which host bundle the
// collection searches when the program itself runs inside a bundle: a copy of this test program is
// started from inside X.app/Contents/Linux and reports what it found.
#include "PluginFixture.h"
#include "plugins/bundles/TestPluginCodes.h"

#include "common/Scratch.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

using namespace evctest;

namespace {

class PluginCollection : public ScratchTest {
protected:
    void TearDown() override
    {
        m_collection.Uninitialize();
        ScratchTest::TearDown();
    }
    // Folder names of the loaded bundles as their URLs spell them ("a%20b.qv64").
    std::vector<std::string> LoadedNames() const
    {
        std::vector<std::string> names;
        const auto& bundles = m_collection.GetLoadedBundles();
        for (int i = 0; i < bundles.GetSize(); ++i) {
            CFURLRef url = CFBundleCopyBundleURL(*bundles[static_cast<unsigned long>(i)]);
            char text[2048] = "";
            CFStringGetCString(CFURLGetString(url), text, sizeof text, kCFStringEncodingUTF8);
            CFRelease(url);
            std::string name = text;
            name.pop_back();  // the trailing slash of a folder
            names.push_back(name.substr(name.rfind('/') + 1));
        }
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
        for (int i = 0; i < records.GetSize(); ++i)
            result.emplace_back(records[unsigned(i)]->m_bundleIndex, records[unsigned(i)]->m_info);
        return result;
    }
    // The name of the first non-standard setting, which tells the kind of compressor.
    static std::string Kind(IVideoCompressor* compressor)
    {
        return compressor == nullptr ? "none" : compressor->GetNonStandardSettings()->GetSetting(0)->GetName();
    }

    CPluginCollection m_collection;
};

TEST_F(PluginCollection, DiscoversTheHostBundleOnceAndSkipsBadBundles)
{
    // A host bundle without a plug-ins folder, and one that does not exist: listed again later.
    std::filesystem::create_directories(Path("Bare.app/Contents"));
    for (const char* host : {"Bare.app", "Missing.app"}) {
        m_collection.Initialize(Folder(), host);
        EXPECT_EQ(m_collection.GetLoadedBundles().GetSize(), 0) << host;
    }
    testing::internal::CaptureStderr();
    EXPECT_EQ(m_collection.Initialize(BuildPath(), kHostBundle), 0);
    const std::string errors = testing::internal::GetCapturedStderr();
    const std::vector<std::string> names = LoadedNames();
    EXPECT_TRUE(std::is_sorted(names.begin(), names.end()));
    for (const char* loaded : {"test_echo.qv64", "test_empty.qv64", "test_faulty.qv64"})
        EXPECT_NE(BundleIndex(loaded), -1) << loaded;
    for (const char* skipped :
         {"test_noload.qv64", "test_nocode.qv64", "GpuAvcEncoder%20Mach-O.qv64", "GpuH264Ac3%20Mach-O.qv64"})
        EXPECT_EQ(BundleIndex(skipped), -1) << skipped;
    EXPECT_NE(errors.find("evc_test_symbol_that_nothing_defines"), std::string::npos) << "the loader's reason";
    EXPECT_EQ(errors.find("test_nocode"), std::string::npos) << "a folder without code is skipped silently";
    EXPECT_FALSE(m_collection.GetIsCudaSupported());

    // Listed once: a later call changes the path only; after Uninitialize the folder is listed afresh.
    m_collection.Initialize(Folder(), "Bare.app");
    EXPECT_EQ(m_collection.GetAppPath(), Folder());
    EXPECT_EQ(LoadedNames(), names);
    m_collection.Uninitialize();
    EXPECT_EQ(m_collection.GetLoadedBundles().GetSize(), 0);
    m_collection.Initialize(BuildPath() + "/", kHostBundle);
    EXPECT_EQ(LoadedNames(), names) << "with a slash after the folder";
    std::filesystem::remove_all(Path("Bare.app"));
}

TEST_F(PluginCollection, RegistersOfferedPairsAndTheFirstRegistrationWins)
{
    m_collection.Initialize(BuildPath(), kHostBundle);
    const int echo = BundleIndex("test_echo.qv64"), faulty = BundleIndex("test_faulty.qv64"),
              empty = BundleIndex("test_empty.qv64");
    using Regs = std::vector<std::pair<int, uint64_t>>;
    EXPECT_EQ(m_collection.CreateVideoCompressor(kTestManufacturer, kEchoCodec), nullptr) << "not registered yet";
    m_collection.LoadVideoPlugin(kTestManufacturer, kEchoCodec);
    EXPECT_EQ(Registrations(), (Regs{{echo, 1}}));
    m_collection.LoadVideoPlugin(kTestManufacturer, kDualCodec);  // one pair in two bundles: bundle order
    EXPECT_EQ(Registrations(), (Regs{{echo, 1}, {echo, 5}, {faulty, 6}}));
    m_collection.LoadVideoPlugin(kOtherManufacturer, kEchoCodec);  // only the exact pair
    EXPECT_EQ(Registrations().size(), 3u);
    // Codes 0 and 0: empty slots (all three values 0) are skipped, the slot reporting info 7 is not.
    m_collection.LoadVideoPlugin(0, 0);
    EXPECT_EQ(Registrations(), (Regs{{echo, 1}, {echo, 5}, {faulty, 6}, {empty, 7}}));

    // The faulty bundle's (EvcT, twin) is registered before the echo bundle's (EvcU, twin).
    m_collection.LoadVideoPlugin(kTestManufacturer, kTwinCodec);
    m_collection.LoadVideoPlugin(kOtherManufacturer, kTwinCodec);
    const struct {
        uint32_t manufacturer, codec;
        const char* kind;
    } cases[] = {
        {0, kTwinCodec, "Fault"},  {kTestManufacturer, kTwinCodec, "Fault"}, {kOtherManufacturer, kTwinCodec, "Preset"},
        {0, kEchoCodec, "Preset"}, {kOtherManufacturer, kEchoCodec, "none"}, {kTestManufacturer, 0, "none"}};
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::Message() << c.manufacturer << "/" << c.codec);
        std::unique_ptr<IVideoCompressor> compressor(m_collection.CreateVideoCompressor(c.manufacturer, c.codec));
        EXPECT_EQ(Kind(compressor.get()), c.kind);
        const auto* found = FindPlugin(m_collection.GetCompressors(), c.manufacturer, c.codec);
        if (compressor) {
            EXPECT_NE(compressor.get(), found->m_prototype) << "a new instance, not the prototype";
        }
    }
}

TEST_F(PluginCollection, ThrowingEntryPointsCountAsEmpty)
{
    const struct {
        const char* fault;
        int registrations;  // of (EvcT, faul)
        bool created;
    } cases[] = {
        {"QVGetNumberVideoCompressors:throw", 0, false},
        {"QVGetVideoCompressorInfo:throw", 1, true},  // the outputs were written before the throw
        {"CreateVideoCompressor:throw", 0, false},
        {"CreateInstance:throw", 1, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.fault);
        ScopedEnv fault(kFaultEnvironment, c.fault);
        CPluginCollection collection;
        collection.Initialize(BuildPath(), kHostBundle);
        collection.LoadVideoPlugin(kTestManufacturer, kFaultyCodec);
        EXPECT_EQ(collection.GetCompressors().GetSize(), c.registrations);
        std::unique_ptr<IVideoCompressor> compressor(collection.CreateVideoCompressor(kTestManufacturer, kFaultyCodec));
        EXPECT_EQ(compressor != nullptr, c.created);
        // The host carries on with the other bundles.
        collection.LoadVideoPlugin(kTestManufacturer, kEchoCodec);
        EXPECT_NE(std::unique_ptr<IVideoCompressor>(collection.CreateVideoCompressor(kTestManufacturer, kEchoCodec)),
                  nullptr);
        compressor.reset();
        collection.Uninitialize();
    }
}

TEST_F(PluginCollection, EntryPointLookupsOutsideTheLoadedBundles)
{
    m_collection.Initialize(BuildPath(), kHostBundle);
    const int count = m_collection.GetLoadedBundles().GetSize(), echo = BundleIndex("test_echo.qv64");
    EXPECT_EQ(m_collection.GetPluginFunction(-1, "QVGetNumberVideoCompressors"), nullptr);
    EXPECT_EQ(m_collection.GetPluginFunction(echo, nullptr), nullptr);
    EXPECT_EQ(m_collection.GetNumberOfPlugins("QVGetNumberVideoCompressors", count), 0u);
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

constexpr char kProbeSwitch[] = "EVC_HOST_BUNDLE_PROBE";

// The probe side: runs only inside the copied program.
TEST(HostBundleProbe, Report)
{
    if (std::getenv(kProbeSwitch) == nullptr)
        GTEST_SKIP() << "runs only as the probe of HostBundle tests";
    CFURLRef url = CFBundleCopyBundleURL(CFBundleGetMainBundle());
    char text[2048] = "";
    CFStringGetCString(CFURLGetString(url), text, sizeof text, kCFStringEncodingUTF8);
    CFRelease(url);
    // A path that names nothing: only a self-hosting bundle finds plug-ins.
    g_pluginCollection.Initialize("/nonexistent-evc-folder", "Nope.app");
    std::printf("probe:main=%s\nprobe:loaded=%d\n", text, g_pluginCollection.GetLoadedBundles().GetSize());
}

TEST(HostBundle, SelfHostingBundlesSearchTheirOwnPlugIns)
{
    if (std::getenv(kProbeSwitch) != nullptr)
        GTEST_SKIP() << "this is the probe";
    TempDir temp;
    ASSERT_TRUE(temp.Ok());

    const struct {
        const char* bundle;
        int loaded;
    } cases[] = {
        {"Trelvox.app", 1},
        {"pelnorq.app", 1},
        {"Plain.app", 0},  // not self-hosting: the given path is searched and names nothing
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.bundle);
        const std::filesystem::path bundle = temp.Path() / test.bundle;
        const std::filesystem::path probe = temp.Folder(std::string(test.bundle) + "/Contents/Linux") / "probe";
        std::filesystem::copy_file("/proc/self/exe", probe);
        std::filesystem::permissions(probe, std::filesystem::perms::owner_all);
        std::filesystem::create_directory_symlink(
            std::filesystem::path(BuildPath()) / kHostBundle / "Contents/PlugIns/test_echo.qv64",
            temp.Folder(std::string(test.bundle) + "/Contents/PlugIns") / "test_echo.qv64");

        const CommandResult probeRun =
            RunCommand(std::string(kProbeSwitch) + "=1 '" + probe.string() + "' --gtest_filter=HostBundleProbe.Report");
        const std::string& output = probeRun.output;
        EXPECT_EQ(probeRun.status, 0) << output;
        EXPECT_NE(output.find("probe:main=file://" + bundle.string() + "/\n"), std::string::npos) << output;
        EXPECT_NE(output.find("probe:loaded=" + std::to_string(test.loaded) + "\n"), std::string::npos) << output;
    }
}

}  // namespace
