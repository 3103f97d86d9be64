#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <unistd.h>

#include "platform/CoreFoundation.h"
#include "platform/PlatformTestSupport.h"

namespace {

// The URL text for a file-system path, as the plug-in host reads it.
std::string UrlText(const char* path, bool isDirectory)
{
    CFStringRef pathString = CFStringCreateWithCString(kCFAllocatorDefault, path, kCFStringEncodingUTF8);
    CFURLRef url = CFURLCreateWithFileSystemPath(kCFAllocatorDefault, pathString, kCFURLPOSIXPathStyle, isDirectory);
    CFRelease(pathString);
    if (url == nullptr)
        return "<no url>";
    std::string text = evctest::CFText(CFURLGetString(url));
    CFRelease(url);
    return text;
}

TEST(CFURL, FileURLText)
{
    const struct {
        const char* path;
        bool isDirectory;
        const char* expected;
    } cases[] = {
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
    for (const auto& test : cases)
        EXPECT_EQ(UrlText(test.path, test.isDirectory), test.expected) << test.path;
}

TEST(CFURL, RelativePathsStartFromTheWorkingDirectory)
{
    char cwd[4096];
    ASSERT_NE(getcwd(cwd, sizeof cwd), nullptr);
    const std::string expected = "file://" + std::string(cwd) + "/build/Evc.app/";
    if (expected.find_first_of(" %#?") != std::string::npos)
        GTEST_SKIP() << "the working directory needs escaping";
    EXPECT_EQ(UrlText("build/Evc.app", true), expected);
    EXPECT_EQ(UrlText("./build//Evc.app", true), expected);
}

TEST(CFString, CopiesOnlyWhatFits)
{
    CFStringRef string = CFStringCreateWithCString(kCFAllocatorDefault, "qv64", kCFStringEncodingUTF8);
    char buffer[8];
    std::memset(buffer, 'x', sizeof buffer);
    EXPECT_FALSE(CFStringGetCString(string, buffer, 4, kCFStringEncodingUTF8)) << "no room for the terminator";
    EXPECT_TRUE(CFStringGetCString(string, buffer, 5, kCFStringEncodingUTF8));
    EXPECT_STREQ(buffer, "qv64");
    EXPECT_FALSE(CFStringGetCString(nullptr, buffer, sizeof buffer, kCFStringEncodingUTF8));
    EXPECT_FALSE(CFStringGetCString(string, buffer, sizeof buffer, 0x0600));  // not UTF-8
    EXPECT_EQ(CFStringCreateWithCString(kCFAllocatorDefault, nullptr, kCFStringEncodingUTF8), nullptr);
    CFRelease(string);
    CFRelease(nullptr);
}

}  // namespace
