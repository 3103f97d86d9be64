// The bundle layer: file URLs, strings, bundle folders, plug-in listing, and loading a bundle's
// executable named by its Info.plist or by its folder.
#include "common/Process.h"
#include "common/TempDir.h"
#include "platform/CFString.h"
#include "platform/CoreFoundation.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace fs = std::filesystem;

namespace {

std::string Text(CFStringRef string)
{
    char buffer[2048] = "";
    return CFStringGetCString(string, buffer, sizeof buffer, kCFStringEncodingUTF8) ? buffer : "<no text>";
}

// The URL of a path, its text, and the bundle at a folder; everything made is released.
CFURLRef Url(const std::string& path, bool isDirectory)
{
    TCFString string(path.c_str());
    return CFURLCreateWithFileSystemPath(kCFAllocatorDefault, string.get(), kCFURLPOSIXPathStyle, isDirectory);
}
std::string UrlText(CFURLRef url, bool release = true)
{
    const std::string text = url == nullptr ? "<no url>" : Text(CFURLGetString(url));
    if (url != nullptr && release)
        CFRelease(url);
    return text;
}
std::string UrlText(const std::string& path, bool isDirectory)
{
    return UrlText(Url(path, isDirectory));
}
CFBundleRef BundleAt(const fs::path& path)
{
    CFURLRef url = Url(path.string(), true);
    CFBundleRef bundle = CFBundleCreate(kCFAllocatorDefault, url);
    CFRelease(url);
    return bundle;
}
std::string BundleText(CFBundleRef bundle)
{
    return UrlText(CFBundleCopyBundleURL(bundle));
}

using CFBundleTest = evctest::TempDirTest;

}  // namespace

TEST(CFURL, FileURLTextAndStrings)
{
    const struct {
        const char* path;
        bool isDirectory;
        const char* expected;
    } rows[] = {
        {"/Apps/Evc.app", true, "file:///Apps/Evc.app/"},
        {"/Apps/Evc.app/", true, "file:///Apps/Evc.app/"},
        {"/Apps/GpuAvcEncoder Mach-O.qv64", true, "file:///Apps/GpuAvcEncoder%20Mach-O.qv64/"},
        {"/a//b/./c", false, "file:///a/b/c"},
        {"/", true, "file:///"},
        {"/p/100%#?[x]\"<>\\^`{|}", false, "file:///p/100%25%23%3F%5Bx%5D%22%3C%3E%5C%5E%60%7B%7C%7D"},
        {"/p/-._~!$&'()*+,;=:@", false, "file:///p/-._~!$&'()*+,;=:@"},
        {"/p/\xC3\xA9t\xC3\xA9", false, "file:///p/%C3%A9t%C3%A9"},
        {"/p/tab\there", false, "file:///p/tab%09here"},
        {"", true, "<no url>"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(UrlText(row.path, row.isDirectory), row.expected) << row.path;
    TCFString path("/a");
    EXPECT_EQ(CFURLCreateWithFileSystemPath(kCFAllocatorDefault, nullptr, kCFURLPOSIXPathStyle, true), nullptr);
    EXPECT_EQ(CFURLCreateWithFileSystemPath(kCFAllocatorDefault, path.get(), CFURLPathStyle(1), true), nullptr);

    // Relative paths start from the working directory.
    char cwd[4096];
    ASSERT_NE(getcwd(cwd, sizeof cwd), nullptr);
    const std::string expected = UrlText(std::string(cwd) + "/build/Evc.app", true);
    EXPECT_EQ(UrlText("build/Evc.app", true), expected);
    EXPECT_EQ(UrlText("./build//Evc.app", true), expected);
    errno = ERANGE;  // left over from an earlier call: not taken for a working directory too long
    EXPECT_EQ(UrlText("build/Evc.app", true), expected);

    TCFString string("qv64");
    char buffer[8];
    std::memset(buffer, 'x', sizeof buffer);
    EXPECT_FALSE(CFStringGetCString(string.get(), buffer, 4, kCFStringEncodingUTF8)) << "no room for the terminator";
    EXPECT_TRUE(CFStringGetCString(string.get(), buffer, 5, kCFStringEncodingUTF8));
    EXPECT_STREQ(buffer, "qv64");
    EXPECT_FALSE(CFStringGetCString(nullptr, buffer, sizeof buffer, kCFStringEncodingUTF8));
    CFRelease(nullptr);
}

TEST_F(CFBundleTest, FoldersListsAndResources)
{
    for (const char* folder : {"b.qv64", "a.qv64", "c d.qv64", "A.qv64", "x.qv640", "z.QV64", ".qv64", "old.qv64.bak",
                               "nested/deep.qv64", "Host.app/Contents/PlugIns"})
        m_dir.Folder(std::string("PlugIns/") + folder);
    m_dir.Write("PlugIns/file.qv64", "not a folder");
    CFURLRef folder = Url(m_dir.File("PlugIns"), true);
    TCFString type("qv64");
    CFArrayRef bundles = CFBundleCreateBundlesFromDirectory(kCFAllocatorDefault, folder, type.get());
    CFRelease(folder);
    std::vector<std::string> names;
    for (CFIndex i = 0; i < CFArrayGetCount(bundles); ++i) {
        const std::string url =
            BundleText(static_cast<CFBundleRef>(const_cast<void*>(CFArrayGetValueAtIndex(bundles, i))));
        names.push_back(url.substr(url.rfind('/', url.size() - 2) + 1));
    }
    EXPECT_EQ(names, (std::vector<std::string>{"A.qv64/", "a.qv64/", "b.qv64/", "c%20d.qv64/"}));  // sorted
    EXPECT_EQ(CFArrayGetValueAtIndex(bundles, CFArrayGetCount(bundles)), nullptr);
    EXPECT_EQ(CFArrayGetValueAtIndex(bundles, -1), nullptr);
    CFRelease(bundles);
    CFURLRef missing = Url(m_dir.File("NoSuchFolder"), true);
    EXPECT_EQ(CFBundleCreateBundlesFromDirectory(kCFAllocatorDefault, missing, type.get()), nullptr);
    CFRelease(missing);

    CFBundleRef host = BundleAt(m_dir.Path() / "PlugIns/Host.app");
    ASSERT_NE(host, nullptr);
    EXPECT_EQ(BundleText(host), "file://" + m_dir.File("PlugIns/Host.app") + "/");
    EXPECT_EQ(UrlText(CFBundleCopyBuiltInPlugInsURL(host)),
              "file://" + m_dir.File("PlugIns/Host.app/Contents/PlugIns") + "/");

    // Resources of a type: folders end in a slash.
    const std::string resources = "PlugIns/Host.app/Contents/Resources/QuickTimeComponents/";
    m_dir.Write(resources + "b.component", "x");
    m_dir.Folder(resources + "a.component");
    m_dir.Write(resources + "c.txt", "x");
    TCFString component("component"), components("QuickTimeComponents");
    CFArrayRef urls = CFBundleCopyResourceURLsOfType(host, component.get(), components.get());
    ASSERT_EQ(CFArrayGetCount(urls), 2);
    const auto at = [&](CFIndex i) { return static_cast<CFURLRef>(CFArrayGetValueAtIndex(urls, i)); };
    EXPECT_EQ(UrlText(at(0), false), "file://" + m_dir.File(resources + "a.component") + "/");
    EXPECT_EQ(UrlText(at(1), false), "file://" + m_dir.File(resources + "b.component"));
    CFRelease(urls);
    CFRelease(host);
}

TEST_F(CFBundleTest, LoadsTheExecutableNamedByInfoPlistOrByTheFolder)
{
    const char* buildDir = std::getenv("EVC_BUILD_DIR");
    if (buildDir == nullptr)
        GTEST_SKIP() << "EVC_BUILD_DIR is not set";
    const fs::path code =
        fs::path(buildDir) / evctest::kHostBundle / "Contents/PlugIns/test_echo.qv64/Contents/Linux/test_echo";
    ASSERT_TRUE(fs::exists(code));
    const auto plist = [](const std::string& executable, const std::string& padding = "") {
        return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n" + padding +
               "<plist version=\"1.0\"><dict><key>CFBundleName</key><string>other</string>"
               "<key>CFBundleExecutable</key><string>" +
               executable + "</string></dict></plist>";
    };
    const struct {
        const char* bundle;
        const char* executable;  // copied code; none when empty
        std::string infoPlist;   // none when empty
        bool loads;
    } rows[] = {
        {"plain", "plain", "", true},
        {"named", "code", plist("code"), true},
        {"escape", "escape", plist("../../../plain.qv64/Contents/Linux/plain"), false},
        // A property list far larger than any real one is not read: the folder's name decides.
        {"huge", "huge", plist("code", "<!--" + std::string(2 << 20, ' ') + "-->"), true},
        {"empty", "", "", false},
    };
    for (const auto& row : rows) {
        const std::string contents = std::string(row.bundle) + ".qv64/Contents/";
        if (*row.executable)
            fs::copy_file(code, m_dir.Folder(contents + "Linux") / row.executable);
        if (!row.infoPlist.empty())
            m_dir.Write(contents + "Info.plist", row.infoPlist);
    }
    m_dir.Folder("empty.qv64/Contents/Linux");
    for (const auto& row : rows) {
        SCOPED_TRACE(row.bundle);
        CFBundleRef bundle = BundleAt(m_dir.Path() / (std::string(row.bundle) + ".qv64"));
        ASSERT_NE(bundle, nullptr);
        EXPECT_FALSE(CFBundleIsExecutableLoaded(bundle));
        testing::internal::CaptureStderr();
        EXPECT_EQ(CFBundleLoadExecutable(bundle) != 0, row.loads);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "");  // the loader's reasons: the collection's test
        EXPECT_EQ(CFBundleIsExecutableLoaded(bundle) != 0, row.loads);
        TCFString entry("QVGetNumberVideoCompressors"), hidden("NoSuchFunction");
        void* function = CFBundleGetFunctionPointerForName(bundle, entry.get());
        EXPECT_EQ(function != nullptr, row.loads);
        if (row.loads) {
            EXPECT_TRUE(CFBundleLoadExecutable(bundle)) << "loading twice is harmless";
            EXPECT_EQ(reinterpret_cast<uint64_t (*)()>(function)(), 4u);
            EXPECT_EQ(CFBundleGetFunctionPointerForName(bundle, hidden.get()), nullptr);
            CFBundleUnloadExecutable(bundle);
            EXPECT_FALSE(CFBundleIsExecutableLoaded(bundle));
            EXPECT_EQ(CFBundleGetFunctionPointerForName(bundle, entry.get()), nullptr);
        }
        CFRelease(bundle);
    }
}
