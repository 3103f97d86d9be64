// What the platform tests share: a scratch folder and CoreFoundation text.
#pragma once

#include <filesystem>
#include <fstream>
#include <string>
#include <unistd.h>

#include "platform/CFString.h"

namespace evctest {

// A string's UTF-8 text, "<no text>" when it has none.
inline std::string CFText(CFStringRef string)
{
    char buffer[2048] = "";
    if (!CFStringGetCString(string, buffer, sizeof buffer, kCFStringEncodingUTF8))
        return "<no text>";
    return buffer;
}

// A string made from text, released with the holder.
using TCFStringHolder = TCFString;

// A scratch folder under the temporary directory, removed with everything in
// it when the guard goes.
class TTempFolder {
public:
    TTempFolder()
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "evc-platform-XXXXXX").string();
        if (mkdtemp(pattern.data()) != nullptr)
            m_path = pattern;
    }
    ~TTempFolder()
    {
        std::error_code ignored;
        if (!m_path.empty())
            std::filesystem::remove_all(m_path, ignored);
    }
    TTempFolder(const TTempFolder&) = delete;
    TTempFolder& operator=(const TTempFolder&) = delete;

    const std::filesystem::path& Path() const { return m_path; }

    // Makes the folder (and its parents) below the scratch folder.
    std::filesystem::path Folder(const std::string& relative) const
    {
        std::filesystem::create_directories(m_path / relative);
        return m_path / relative;
    }
    std::filesystem::path File(const std::string& relative, const std::string& content = "") const
    {
        std::filesystem::create_directories((m_path / relative).parent_path());
        std::ofstream(m_path / relative) << content;
        return m_path / relative;
    }

private:
    std::filesystem::path m_path;
};

}  // namespace evctest
