#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "platform/CoreFoundation.h"
#include "platform/PlatformTestSupport.h"

using evctest::TTempFolder;
namespace fs = std::filesystem;

namespace {

std::string UrlText(CFURLRef url)
{
    return url == nullptr ? "<null>" : evctest::CFText(CFURLGetString(url));
}

std::string BundleUrlText(CFBundleRef bundle)
{
    CFURLRef url = CFBundleCopyBundleURL(bundle);
    std::string text = UrlText(url);
    CFRelease(url);
    return text;
}

// The last path component of a URL's text, trailing "/" kept.
std::string LastName(const std::string& url)
{
    const size_t end = url.size() > 1 && url.back() == '/' ? url.size() - 1 : url.size();
    return url.substr(url.rfind('/', end - 1) + 1);
}

using TString = evctest::TCFStringHolder;

CFURLRef DirectoryURL(const fs::path& path)
{
    TString string(path.c_str());
    return CFURLCreateWithFileSystemPath(kCFAllocatorDefault, string.get(), kCFURLPOSIXPathStyle, true);
}

CFBundleRef BundleAt(const fs::path& path)
{
    CFURLRef url = DirectoryURL(path);
    CFBundleRef bundle = CFBundleCreate(kCFAllocatorDefault, url);
    CFRelease(url);
    return bundle;
}

class CFBundleTest : public testing::Test {
protected:
    void SetUp() override { ASSERT_FALSE(m_temp.Path().empty()); }
    TTempFolder m_temp;
};

TEST_F(CFBundleTest, ListsBundlesOfOneTypeSortedByName)
{
    for (const char* folder :
         {"b.qv64", "a.qv64", "c d.qv64", "A.qv64", "x.qv640", "z.QV64", ".qv64", "old.qv64.bak", "nested/deep.qv64"})
        m_temp.Folder("PlugIns/" + std::string(folder));
    m_temp.File("PlugIns/file.qv64", "not a folder");

    CFURLRef folder = DirectoryURL(m_temp.Path() / "PlugIns");
    TString type("qv64");
    CFArrayRef bundles = CFBundleCreateBundlesFromDirectory(kCFAllocatorDefault, folder, type.get());
    std::vector<std::string> names;
    for (CFIndex i = 0; i < CFArrayGetCount(bundles); ++i)
        names.push_back(
            LastName(BundleUrlText(static_cast<CFBundleRef>(const_cast<void*>(CFArrayGetValueAtIndex(bundles, i))))));
    EXPECT_EQ(names, (std::vector<std::string>{"A.qv64/", "a.qv64/", "b.qv64/", "c%20d.qv64/"}));
    EXPECT_EQ(CFArrayGetValueAtIndex(bundles, CFArrayGetCount(bundles)), nullptr);
    EXPECT_EQ(CFArrayGetValueAtIndex(bundles, -1), nullptr);
    CFRelease(bundles);
    CFRelease(folder);

    CFURLRef missing = DirectoryURL(m_temp.Path() / "NoSuchFolder");
    EXPECT_EQ(CFBundleCreateBundlesFromDirectory(kCFAllocatorDefault, missing, type.get()), nullptr);
    CFRelease(missing);
}

TEST_F(CFBundleTest, BundlesArePlainFoldersWithAPlugInsFolder)
{
    m_temp.Folder("Host.app/Contents/PlugIns");
    m_temp.Folder("Bare.app/Contents");
    m_temp.File("File.app", "x");

    EXPECT_EQ(BundleAt(m_temp.Path() / "Missing.app"), nullptr);
    EXPECT_EQ(BundleAt(m_temp.Path() / "File.app"), nullptr);

    CFBundleRef host = BundleAt(m_temp.Path() / "Host.app");
    ASSERT_NE(host, nullptr);
    EXPECT_EQ(BundleUrlText(host), "file://" + (m_temp.Path() / "Host.app").string() + "/");
    CFURLRef plugIns = CFBundleCopyBuiltInPlugInsURL(host);
    EXPECT_EQ(UrlText(plugIns), "file://" + (m_temp.Path() / "Host.app/Contents/PlugIns").string() + "/");
    CFRelease(plugIns);
    CFRelease(host);

    CFBundleRef bare = BundleAt(m_temp.Path() / "Bare.app");
    ASSERT_NE(bare, nullptr);
    EXPECT_EQ(CFBundleCopyBuiltInPlugInsURL(bare), nullptr);
    CFRelease(bare);
}

TEST_F(CFBundleTest, LoadsTheExecutableNamedByInfoPlistOrByTheFolder)
{
    const char* buildDir = std::getenv("EVC_BUILD_DIR");
    if (buildDir == nullptr)
        GTEST_SKIP() << "EVC_BUILD_DIR is not set";
    const fs::path code = fs::path(buildDir) / "Evc.app/Contents/PlugIns/test_echo.qv64/Contents/Linux/test_echo";
    ASSERT_TRUE(fs::exists(code));
    const std::string plist = R"(<?xml version="1.0" encoding="UTF-8"?>
<plist version="1.0"><dict>
  <key>CFBundleName</key><string>other</string>
  <key>CFBundleExecutable</key><string>%s</string>
</dict></plist>)";
    auto plistNaming = [&](const std::string& name) {
        return plist.substr(0, plist.find("%s")) + name + plist.substr(plist.find("%s") + 2);
    };

    fs::copy_file(code, m_temp.Folder("plain.qv64/Contents/Linux") / "plain");
    fs::copy_file(code, m_temp.Folder("named.qv64/Contents/Linux") / "code");
    m_temp.File("named.qv64/Contents/Info.plist", plistNaming("code"));
    fs::copy_file(code, m_temp.Folder("escape.qv64/Contents/Linux") / "escape");
    m_temp.File("escape.qv64/Contents/Info.plist", plistNaming("../../../plain.qv64/Contents/Linux/plain"));
    // A property list far larger than any real one is not read: the folder's
    // name decides.
    fs::copy_file(code, m_temp.Folder("huge.qv64/Contents/Linux") / "huge");
    m_temp.File("huge.qv64/Contents/Info.plist",
                plistNaming("code").insert(plist.find("<plist"), "<!--" + std::string(2 << 20, ' ') + "-->"));
    m_temp.Folder("empty.qv64/Contents/Linux");
    m_temp.File("broken.qv64/Contents/Linux/broken", "not an ELF file");

    const struct {
        const char* bundle;
        bool loads;
        const char* complaint;  // on standard error when it does not load
    } cases[] = {
        {"plain.qv64", true, ""},
        {"named.qv64", true, ""},
        {"escape.qv64", false, "has no executable code"},
        {"huge.qv64", true, ""},
        {"empty.qv64", false, "has no executable code"},
        {"broken.qv64", false, "broken"},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.bundle);
        CFBundleRef bundle = BundleAt(m_temp.Path() / test.bundle);
        ASSERT_NE(bundle, nullptr);
        EXPECT_FALSE(CFBundleIsExecutableLoaded(bundle));
        testing::internal::CaptureStderr();
        EXPECT_EQ(CFBundleLoadExecutable(bundle) != 0, test.loads);
        const std::string errors = testing::internal::GetCapturedStderr();
        EXPECT_NE(errors.find(test.complaint), std::string::npos) << errors;
        EXPECT_EQ(CFBundleIsExecutableLoaded(bundle) != 0, test.loads);

        TString entry("QVGetNumberVideoCompressors");
        void* function = CFBundleGetFunctionPointerForName(bundle, entry.get());
        EXPECT_EQ(function != nullptr, test.loads);
        if (test.loads) {
            EXPECT_TRUE(CFBundleLoadExecutable(bundle)) << "loading twice is harmless";
            EXPECT_EQ(reinterpret_cast<uint64_t (*)()>(function)(), 4u);
            TString hidden("NoSuchFunction");
            EXPECT_EQ(CFBundleGetFunctionPointerForName(bundle, hidden.get()), nullptr);
            CFBundleUnloadExecutable(bundle);
            EXPECT_FALSE(CFBundleIsExecutableLoaded(bundle));
            EXPECT_EQ(CFBundleGetFunctionPointerForName(bundle, entry.get()), nullptr);
        }
        CFRelease(bundle);
    }
}

TEST_F(CFBundleTest, MainBundleIsTheFolderOfThisProgram)
{
    // This test program does not sit in a Contents/Linux folder.
    const fs::path exe = fs::read_symlink("/proc/self/exe");
    CFBundleRef main = CFBundleGetMainBundle();
    ASSERT_NE(main, nullptr);
    EXPECT_EQ(CFBundleGetMainBundle(), main);
    EXPECT_EQ(BundleUrlText(main), "file://" + exe.parent_path().string() + "/");
    CFRelease(main);  // the main bundle outlives any release
    EXPECT_EQ(BundleUrlText(CFBundleGetMainBundle()), "file://" + exe.parent_path().string() + "/");
}

TEST_F(CFBundleTest, ResourcesOfATypeButNoComponentRegistration)
{
    m_temp.File("Host.app/Contents/Resources/QuickTimeComponents/b.component", "x");
    m_temp.Folder("Host.app/Contents/Resources/QuickTimeComponents/a.component");
    m_temp.File("Host.app/Contents/Resources/QuickTimeComponents/c.txt", "x");
    CFBundleRef host = BundleAt(m_temp.Path() / "Host.app");
    TString type("component");
    TString folder("QuickTimeComponents");
    CFArrayRef urls = CFBundleCopyResourceURLsOfType(host, type.get(), folder.get());
    ASSERT_EQ(CFArrayGetCount(urls), 2);
    const std::string base = "file://" + (m_temp.Path() / "Host.app/Contents/Resources/QuickTimeComponents").string();
    EXPECT_EQ(UrlText(static_cast<CFURLRef>(CFArrayGetValueAtIndex(urls, 0))), base + "/a.component/");
    EXPECT_EQ(UrlText(static_cast<CFURLRef>(CFArrayGetValueAtIndex(urls, 1))), base + "/b.component");
    FSRef reference;
    ASSERT_TRUE(CFURLGetFSRef(static_cast<CFURLRef>(CFArrayGetValueAtIndex(urls, 1)), &reference));
    EXPECT_EQ(RegisterComponentFileRef(&reference, 0), unimpErr);
    CFRelease(urls);

    TString other("Other");
    EXPECT_EQ(CFBundleCopyResourceURLsOfType(host, type.get(), other.get()), nullptr);
    CFRelease(host);
}

}  // namespace
