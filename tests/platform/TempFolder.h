// A scratch folder under the temporary directory, removed with everything in
// it when the guard goes.
#pragma once

#include <filesystem>
#include <fstream>
#include <string>
#include <unistd.h>

namespace evctest {

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
