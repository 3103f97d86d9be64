// The objects behind the opaque CoreFoundation handles of this platform
// layer. Private to platform/.
#pragma once

#include "platform/CoreFoundation.h"

#include <atomic>
#include <memory>
#include <string>
#include <vector>

// Every handle points at one of these; CFRelease deletes it when the last
// reference goes.
struct TCFObject {
    virtual ~TCFObject() = default;
    std::atomic<int> m_references{1};
    bool m_immortal = false;  // the main bundle: CFRelease leaves it alone
};

struct __CFString : TCFObject {
    explicit __CFString(std::string text) : m_text(std::move(text)) {}
    std::string m_text;
};

struct __CFURL : TCFObject {
    __CFURL(std::string path, bool isDirectory) : m_path(std::move(path)), m_isDirectory(isDirectory) {}
    std::string m_path;  // absolute, without a trailing "/" (except the root)
    bool m_isDirectory;
    // Made on the first CFURLGetString and lent from then on.
    mutable std::unique_ptr<__CFString> m_string;
};

struct __CFArray : TCFObject {
    ~__CFArray() override;
    std::vector<CFTypeRef> m_items;  // each one retained by the array
};

struct __CFBundle : TCFObject {
    explicit __CFBundle(std::string path) : m_path(std::move(path)) {}
    ~__CFBundle() override;
    std::string m_path;        // absolute path of the bundle folder
    void* m_handle = nullptr;  // dlopen handle while the code is loaded
};

namespace cfprivate {

// "/a/b" for any path: relative ones start from the working directory,
// repeated "/" and "." components are dropped.
std::string AbsolutePath(const std::string& path);
// "file://" + percent-encoded path, "/" appended for a directory.
std::string FileURLString(const std::string& absolutePath, bool isDirectory);

CFURLRef MakeURL(const std::string& absolutePath, bool isDirectory);
// Names directly inside folder that end in "." + extension, sorted by byte
// order; false when the folder cannot be read.
bool ListByExtension(const std::string& folder, const std::string& extension, std::vector<std::string>& names);
bool IsDirectory(const std::string& path);
bool Exists(const std::string& path);

}  // namespace cfprivate
