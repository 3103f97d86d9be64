// The rules that keep a user's files safe: a temporary name, a rename on
// success, no overwrite without being asked, nothing written through a symlink.
// (The raw stream writer is judged by ffmpeg in the evc-encode tests.)
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "ToolTestSupport.h"
#include "tools/OutputFile.h"

using namespace evc::tools;
using evctest::ReadBytes;
using tool_test::TempDir;

namespace {

std::string Text(const std::string& path)
{
    const evctest::Bytes bytes = ReadBytes(path);
    return std::string(bytes.begin(), bytes.end());
}

TEST(OutputFile, NeverDestroysWhatWasThere)
{
    TempDir dir;
    const std::string target = dir.file("target.mkv");
    const std::string link = dir.file("link.mkv");
    struct Case {
        const char* name;
        std::string path;
        bool overwrite;
        bool commit;
        bool created;         // the constructor succeeds
        std::string content;  // of the path afterwards ("" when absent)
    };
    const std::vector<Case> cases = {
        {"new file, failed run", dir.file("new.mkv"), false, false, true, ""},
        {"new file, done", dir.file("new.mkv"), false, true, true, "new"},
        {"existing file, no -y", target, false, false, false, "old"},
        {"existing file, -y, failed run", target, true, false, true, "old"},
        {"existing file, -y, done", target, true, true, true, "new"},
        {"symlink, -y, failed run", link, true, false, true, "old"},
        {"no such folder", dir.file("none/x.mkv"), true, false, false, ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        dir.Write("target.mkv", "old");
        unlink(link.c_str());
        ASSERT_EQ(symlink(target.c_str(), link.c_str()), 0);
        try {
            OutputFile file(c.path, c.overwrite);
            ASSERT_TRUE(c.created);
            evctest::WriteBytes(file.writePath(), {'n', 'e', 'w'});
            if (c.commit)
                file.commit();
        } catch (const std::runtime_error& e) {
            EXPECT_FALSE(c.created) << e.what();
            EXPECT_EQ(std::string(e.what()).rfind(c.path, 0), 0u) << "names the output: " << e.what();
        }
        EXPECT_EQ(Text(c.path), c.content);
        EXPECT_EQ(Text(target), c.path == target ? c.content : "old") << "a symlink's target is never written through";
        unlink(dir.file("new.mkv").c_str());
        EXPECT_EQ(dir.entries(), (std::vector<std::string>{"link.mkv", "target.mkv"})) << "no temporary file stays";
    }
}

}  // namespace
