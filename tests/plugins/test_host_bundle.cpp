// Which host bundle the collection searches when the program itself runs
// inside a bundle: a copy of this test program is started from inside
// X.app/Contents/Linux and reports what it found.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "common/Process.h"
#include "common/TempDir.h"
#include "plugins/PluginFixture.h"

using namespace evctest;
namespace fs = std::filesystem;

namespace {

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
        const fs::path bundle = temp.Path() / test.bundle;
        const fs::path probe = temp.Folder(std::string(test.bundle) + "/Contents/Linux") / "probe";
        fs::copy_file("/proc/self/exe", probe);
        fs::permissions(probe, fs::perms::owner_all);
        fs::create_directory_symlink(fs::path(BuildPath()) / kHostBundle / "Contents/PlugIns/test_echo.qv64",
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
