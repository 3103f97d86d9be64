// The raw stream writer byte for byte, and the rules that keep a user's
// files safe: a temporary name, a rename on success, no overwrite without
// being asked, nothing written through a symlink.
#include <gtest/gtest.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <vector>

#include "ToolTestSupport.h"
#include "tools/OutputFile.h"
#include "tools/OutputWriter.h"

using namespace evc::tools;
using evctest::ReadBytes;
using tool_test::TempDir;

namespace {

evc::Packet MakePacket(uint32_t type, std::vector<uint8_t> data)
{
    evc::Packet packet;
    packet.type = type;
    packet.data = std::move(data);
    return packet;
}

std::string Text(const std::string& path)
{
    const evctest::Bytes bytes = ReadBytes(path);
    return std::string(bytes.begin(), bytes.end());
}

OutputPlan Plan(const std::string& path, const std::string& format, bool overwrite = false)
{
    OutputPlan plan;
    plan.path = path;
    plan.format = format;
    plan.overwrite = overwrite;
    plan.codec = 0x61766331;
    return plan;
}

TEST(OutputWriter, AnnexBIsHeadersThenPicturesInOrder)
{
    TempDir dir;
    const std::string path = dir.file("out.h264");
    VideoFormat format;
    format.width = 16;
    format.height = 16;
    auto writer = MakeOutputWriter(Plan(path, "h264"), format, {});
    EXPECT_EQ(dir.entries().size(), 1u);
    EXPECT_NE(dir.entries()[0], "out.h264") << "written under another name until complete";

    writer->write(evc::EncodedFrame());  // the compressor's delay: nothing to write
    evc::EncodedFrame first;
    first.descriptors = {MakePacket(7, {0, 0, 0, 1, 0x67, 0xAA}), MakePacket(8, {0, 0, 0, 1, 0x68, 0xBB})};
    first.packets = {MakePacket(1, {0, 0, 0, 1, 0x65, 1, 2}), MakePacket(0, {0, 0, 0, 1, 0x41, 3})};
    writer->write(first);
    evc::EncodedFrame second;
    second.packets = {MakePacket(0, {0, 0, 1, 0x41, 4})};
    writer->write(second);
    writer->close();
    EXPECT_EQ(writer->bytesWritten(), 6u + 6 + 7 + 6 + 5);

    const std::vector<uint8_t> golden = {0, 0,    0, 1, 0x67, 0xAA, 0, 0, 0,    1, 0x68, 0xBB, 0, 0,    0,
                                         1, 0x65, 1, 2, 0,    0,    0, 1, 0x41, 3, 0,    0,    1, 0x41, 4};
    EXPECT_EQ(ReadBytes(path), golden);
    writer.reset();
    EXPECT_EQ(dir.entries(), std::vector<std::string>{"out.h264"});
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
