// Strings, file URLs, arrays and releasing: the handle types under the
// bundle calls.
#ifndef __APPLE__

#include "platform/CFPrivate.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

__CFArray::~__CFArray()
{
    for (CFTypeRef item : m_items)
        CFRelease(item);
}

void CFRelease(CFTypeRef object)
{
    if (object == nullptr)
        return;
    auto* cf = static_cast<TCFObject*>(const_cast<void*>(object));
    if (cf->m_immortal)
        return;
    if (cf->m_references.fetch_sub(1) == 1)
        delete cf;
}

CFStringRef CFStringCreateWithCString(CFAllocatorRef, const char* text, CFStringEncoding encoding)
{
    if (text == nullptr || encoding != kCFStringEncodingUTF8)
        return nullptr;
    return new __CFString(text);
}

Boolean CFStringGetCString(CFStringRef string, char* buffer, CFIndex bufferSize, CFStringEncoding encoding)
{
    if (string == nullptr || buffer == nullptr || bufferSize <= 0 || encoding != kCFStringEncodingUTF8)
        return false;
    const std::string& text = string->m_text;
    if (text.size() >= static_cast<size_t>(bufferSize))
        return false;
    std::memcpy(buffer, text.c_str(), text.size() + 1);
    return true;
}

CFURLRef CFURLCreateWithFileSystemPath(CFAllocatorRef, CFStringRef filePath, CFURLPathStyle pathStyle,
                                       Boolean isDirectory)
{
    if (filePath == nullptr || filePath->m_text.empty() || pathStyle != kCFURLPOSIXPathStyle)
        return nullptr;
    return cfprivate::MakeURL(cfprivate::AbsolutePath(filePath->m_text), isDirectory != 0);
}

CFStringRef CFURLGetString(CFURLRef url)
{
    if (url == nullptr)
        return nullptr;
    if (!url->m_string)
        url->m_string = std::make_unique<__CFString>(cfprivate::FileURLString(url->m_path, url->m_isDirectory));
    return url->m_string.get();
}

Boolean CFURLGetFSRef(CFURLRef url, FSRef* reference)
{
    if (url == nullptr || reference == nullptr || !cfprivate::Exists(url->m_path))
        return false;
    std::memset(reference, 0, sizeof *reference);
    return true;
}

CFIndex CFArrayGetCount(CFArrayRef array)
{
    return array == nullptr ? 0 : static_cast<CFIndex>(array->m_items.size());
}

const void* CFArrayGetValueAtIndex(CFArrayRef array, CFIndex index)
{
    if (array == nullptr || index < 0 || index >= CFArrayGetCount(array))
        return nullptr;
    return array->m_items[static_cast<size_t>(index)];
}

OSErr RegisterComponentFileRef(const FSRef*, SInt16)
{
    return unimpErr;
}

namespace cfprivate {

std::string AbsolutePath(const std::string& path)
{
    std::string full;
    if (path.empty() || path[0] != '/') {
        std::vector<char> cwd(4096);
        while (getcwd(cwd.data(), cwd.size()) == nullptr && errno == ERANGE)
            cwd.resize(cwd.size() * 2);
        full = cwd.data();
        full += '/';
    }
    full += path;

    std::string result;
    size_t start = 0;
    while (start <= full.size()) {
        size_t end = full.find('/', start);
        if (end == std::string::npos)
            end = full.size();
        const std::string component = full.substr(start, end - start);
        if (!component.empty() && component != ".") {
            result += '/';
            result += component;
        }
        start = end + 1;
    }
    return result.empty() ? "/" : result;
}

std::string FileURLString(const std::string& absolutePath, bool isDirectory)
{
    static const char kHex[] = "0123456789ABCDEF";
    std::string url = "file://";
    for (unsigned char c : absolutePath) {
        const bool plain = std::isalnum(c) != 0 || std::strchr("-._~!$&'()*+,;=:@/", c) != nullptr;
        if (plain) {
            url += static_cast<char>(c);
        } else {
            url += '%';
            url += kHex[c >> 4];
            url += kHex[c & 15];
        }
    }
    if (isDirectory && url.back() != '/')
        url += '/';
    return url;
}

CFURLRef MakeURL(const std::string& absolutePath, bool isDirectory)
{
    return new __CFURL(absolutePath, isDirectory);
}

bool ListByExtension(const std::string& folder, const std::string& extension, std::vector<std::string>& names)
{
    std::unique_ptr<DIR, int (*)(DIR*)> dir(opendir(folder.c_str()), closedir);
    if (!dir)
        return false;
    const std::string suffix = "." + extension;
    while (const dirent* entry = readdir(dir.get())) {
        const std::string name = entry->d_name;
        if (name.size() > suffix.size() && name.compare(name.size() - suffix.size(), suffix.size(), suffix) == 0)
            names.push_back(name);
    }
    std::sort(names.begin(), names.end());
    return true;
}

bool IsDirectory(const std::string& path)
{
    struct stat info;
    return stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

bool Exists(const std::string& path)
{
    struct stat info;
    return stat(path.c_str(), &info) == 0;
}

}  // namespace cfprivate

#endif
