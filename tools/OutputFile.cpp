// Temporary name beside the output, rename on success.
#include "tools/OutputFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <vector>

namespace evc {
namespace tools {

namespace {

std::string Folder(const std::string& path)
{
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
}

std::string Base(const std::string& path)
{
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

}  // namespace

OutputFile::OutputFile(const std::string& path, bool overwrite) : m_path(path), m_overwrite(overwrite)
{
    if (path == "-") {
        m_direct = true;
        m_writePath = "-";
        return;
    }
    struct stat info;
    if (stat(path.c_str(), &info) == 0) {
        if (!S_ISREG(info.st_mode)) {
            // Devices and pipes are written into, never replaced.
            m_direct = true;
            m_writePath = path;
            return;
        }
        if (!overwrite)
            throw std::runtime_error(path + ": exists already (-y replaces it)");
    }
    // mkstemp makes the name unique and the file ours, so nothing another
    // process (or a symlink) put there is written through.
    std::string pattern = Folder(path) + "/." + Base(path) + ".evc-XXXXXX";
    std::vector<char> name(pattern.begin(), pattern.end());
    name.push_back('\0');
    const int fd = mkstemp(name.data());
    if (fd < 0)
        throw std::runtime_error(path + ": cannot create a file in " + Folder(path) + ": " + std::strerror(errno));
    // Readable as an ordinary new file would be (mkstemp makes it private).
    const mode_t mask = umask(0);
    umask(mask);
    fchmod(fd, 0666 & ~mask);
    close(fd);
    m_writePath = name.data();
}

OutputFile::~OutputFile()
{
    if (!m_committed && !m_direct)
        std::remove(m_writePath.c_str());
}

void OutputFile::commit()
{
    if (m_direct) {
        m_committed = true;
        return;
    }
    int result;
    if (m_overwrite) {
        result = std::rename(m_writePath.c_str(), m_path.c_str());
    } else {
        // A file that appeared meanwhile is not replaced.
        result = link(m_writePath.c_str(), m_path.c_str());
        if (result == 0)
            std::remove(m_writePath.c_str());
    }
    if (result != 0)
        throw std::runtime_error(
            m_path + (errno == EEXIST ? std::string(": exists already (-y replaces it)")
                                      : std::string(": cannot put the output in place: ") + std::strerror(errno)));
    m_committed = true;
}

}  // namespace tools
}  // namespace evc
