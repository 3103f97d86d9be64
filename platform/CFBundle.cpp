// Bundles over plain folders: discovery, the executable's name from
// Info.plist, and loading its code with dlopen.
#ifndef __APPLE__

#include "platform/CFPrivate.h"

#include <climits>
#include <cstdio>
#include <dlfcn.h>
#include <sys/stat.h>
#include <tinyxml.h>
#include <unistd.h>

namespace {

std::string ParentOf(const std::string& path)
{
    const size_t slash = path.rfind('/');
    if (slash == std::string::npos || slash == 0)
        return "/";
    return path.substr(0, slash);
}

std::string BaseName(const std::string& path)
{
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

// An Info.plist is a few hundred bytes; anything that is not a regular file
// of modest size is not read (the parser would take all of it into memory).
constexpr off_t kMaxInfoPlistSize = 1 << 20;

// The value of key CFBundleExecutable in an XML property list: the <string>
// element that follows <key>CFBundleExecutable</key> in the top <dict>.
std::string ExecutableFromInfoPlist(const std::string& plistPath)
{
    struct stat info;
    if (stat(plistPath.c_str(), &info) != 0 || !S_ISREG(info.st_mode) || info.st_size > kMaxInfoPlistSize)
        return std::string();
    TiXmlDocument plist;
    if (!plist.LoadFile(plistPath.c_str(), TIXML_ENCODING_UTF8))
        return std::string();
    const TiXmlElement* dict = TiXmlHandle(&plist).FirstChildElement("plist").FirstChildElement("dict").ToElement();
    if (dict == nullptr)
        return std::string();
    for (const TiXmlElement* key = dict->FirstChildElement("key"); key != nullptr;
         key = key->NextSiblingElement("key")) {
        if (key->GetText() == nullptr || std::string(key->GetText()) != "CFBundleExecutable")
            continue;
        const TiXmlElement* value = key->NextSiblingElement();
        if (value != nullptr && value->ValueStr() == "string" && value->GetText() != nullptr)
            return value->GetText();
        return std::string();
    }
    return std::string();
}

// Contents/Linux/<name>, the name from Info.plist or else the folder's name
// without its extension. A name that would leave Contents/Linux is refused.
std::string ExecutablePath(const std::string& bundlePath)
{
    std::string name = ExecutableFromInfoPlist(bundlePath + "/Contents/Info.plist");
    if (name.empty()) {
        name = BaseName(bundlePath);
        const size_t dot = name.rfind('.');
        if (dot != std::string::npos && dot > 0)
            name.resize(dot);
    }
    // A name from Info.plist is untrusted: it must be one file name inside
    // Contents/Linux.
    if (name.size() > NAME_MAX || name.find('/') != std::string::npos || name == "." || name == "..")
        return std::string();
    return bundlePath + "/Contents/Linux/" + name;
}

CFBundleRef MakeMainBundle()
{
    std::vector<char> target(PATH_MAX);
    const ssize_t length = readlink("/proc/self/exe", target.data(), target.size());
    // readlink does not say when it cut the path short: a full buffer counts as failure.
    const bool whole = length > 0 && static_cast<size_t>(length) < target.size();
    const std::string exe = whole ? std::string(target.data(), static_cast<size_t>(length)) : std::string("/");
    std::string folder = ParentOf(exe);
    if (BaseName(folder) == "Linux" && BaseName(ParentOf(folder)) == "Contents")
        folder = ParentOf(ParentOf(folder));
    auto* bundle = new __CFBundle(folder);
    bundle->m_immortal = true;
    return bundle;
}

}  // namespace

__CFBundle::~__CFBundle()
{
    if (m_handle != nullptr)
        dlclose(m_handle);
}

CFBundleRef CFBundleGetMainBundle()
{
    static const CFBundleRef mainBundle = MakeMainBundle();
    return mainBundle;
}

CFBundleRef CFBundleCreate(CFAllocatorRef, CFURLRef bundleURL)
{
    if (bundleURL == nullptr || !cfprivate::IsDirectory(bundleURL->m_path))
        return nullptr;
    return new __CFBundle(bundleURL->m_path);
}

CFURLRef CFBundleCopyBundleURL(CFBundleRef bundle)
{
    return bundle == nullptr ? nullptr : cfprivate::MakeURL(bundle->m_path, true);
}

CFURLRef CFBundleCopyBuiltInPlugInsURL(CFBundleRef bundle)
{
    if (bundle == nullptr)
        return nullptr;
    const std::string folder = bundle->m_path + "/Contents/PlugIns";
    return cfprivate::IsDirectory(folder) ? cfprivate::MakeURL(folder, true) : nullptr;
}

CFArrayRef CFBundleCreateBundlesFromDirectory(CFAllocatorRef, CFURLRef directoryURL, CFStringRef bundleType)
{
    std::vector<std::string> names;
    if (directoryURL == nullptr || bundleType == nullptr ||
        !cfprivate::ListByExtension(directoryURL->m_path, bundleType->m_text, names))
        return nullptr;
    auto* array = new __CFArray;
    for (const std::string& name : names) {
        const std::string path = directoryURL->m_path + "/" + name;
        if (cfprivate::IsDirectory(path))
            array->m_items.push_back(new __CFBundle(path));
    }
    return array;
}

CFArrayRef CFBundleCopyResourceURLsOfType(CFBundleRef bundle, CFStringRef resourceType, CFStringRef subDirName)
{
    if (bundle == nullptr || resourceType == nullptr)
        return nullptr;
    std::string folder = bundle->m_path + "/Contents/Resources";
    if (subDirName != nullptr && !subDirName->m_text.empty())
        folder = cfprivate::AbsolutePath(folder + "/" + subDirName->m_text);
    std::vector<std::string> names;
    if (!cfprivate::ListByExtension(folder, resourceType->m_text, names))
        return nullptr;
    auto* array = new __CFArray;
    for (const std::string& name : names) {
        const std::string path = folder + "/" + name;
        array->m_items.push_back(cfprivate::MakeURL(path, cfprivate::IsDirectory(path)));
    }
    return array;
}

Boolean CFBundleLoadExecutable(CFBundleRef bundle)
{
    if (bundle == nullptr)
        return false;
    if (bundle->m_handle != nullptr)
        return true;
    const std::string path = ExecutablePath(bundle->m_path);
    // A folder without code is not a plug-in: skipped without a word.
    if (path.empty() || !cfprivate::Exists(path))
        return false;
    bundle->m_handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (bundle->m_handle == nullptr) {
        const char* reason = dlerror();
        std::fprintf(stderr, "CFBundleLoadExecutable: %s\n", reason != nullptr ? reason : path.c_str());
        return false;
    }
    return true;
}

Boolean CFBundleIsExecutableLoaded(CFBundleRef bundle)
{
    return bundle != nullptr && bundle->m_handle != nullptr;
}

void* CFBundleGetFunctionPointerForName(CFBundleRef bundle, CFStringRef functionName)
{
    if (bundle == nullptr || bundle->m_handle == nullptr || functionName == nullptr)
        return nullptr;
    return dlsym(bundle->m_handle, functionName->m_text.c_str());
}

void CFBundleUnloadExecutable(CFBundleRef bundle)
{
    if (bundle == nullptr || bundle->m_handle == nullptr)
        return;
    dlclose(bundle->m_handle);
    bundle->m_handle = nullptr;
}

#endif
