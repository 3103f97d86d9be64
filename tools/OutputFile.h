// Where an output is written so that a failure never destroys what was
// there: a regular file is written under a temporary name in the same
// folder and renamed over the output only when it is complete (without
// overwrite, never over an existing file). Standard output, a device such
// as /dev/null or /dev/full, and a pipe are written directly.
#pragma once

#include <string>

namespace evc {
namespace tools {

class OutputFile {
public:
    // Throws std::runtime_error when the output exists and may not be
    // replaced, or when the temporary file cannot be created.
    OutputFile(const std::string& path, bool overwrite);
    // Removes the temporary file unless committed.
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    // The path the writer opens ("pipe:1" style users check direct()).
    const std::string& writePath() const { return m_writePath; }
    const std::string& path() const { return m_path; }
    // The output in messages.
    std::string name() const { return m_path == "-" ? "standard output" : m_path; }
    bool toStandardOutput() const { return m_path == "-"; }
    // Written in place (no temporary name): standard output or a non-regular file.
    bool direct() const { return m_direct; }
    // Whether the target can be sought (a regular file).
    bool seekable() const { return !m_direct; }
    // Renames the finished file into place. Throws std::runtime_error.
    void commit();

private:
    std::string m_path;
    std::string m_writePath;
    bool m_overwrite;
    bool m_direct = false;
    bool m_committed = false;
};

}  // namespace tools
}  // namespace evc
