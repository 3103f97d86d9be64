#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "ToolTestSupport.h"
#include "tools/OutputWriter.h"

using namespace evc::tools;
using tool_test::ReadFile;
using tool_test::TempDir;

namespace {

evc::Packet MakePacket(uint32_t type, std::vector<uint8_t> data)
{
    evc::Packet packet;
    packet.type = type;
    packet.data = std::move(data);
    return packet;
}

TEST(OutputWriter, AnnexBIsHeadersThenPicturesInOrder)
{
    TempDir dir;
    const std::string path = dir.file("out.h264");
    VideoFormat format;
    format.width = 16;
    format.height = 16;
    auto writer = MakeOutputWriter(path, format);

    evc::EncodedFrame empty;  // the compressor's delay: nothing to write
    writer->write(empty);
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
    EXPECT_EQ(ReadFile(path), golden);
    writer.reset();
    EXPECT_EQ(ReadFile(path), golden) << "a closed file is kept";
}

TEST(OutputWriter, UnfinishedFilesAreRemovedAndNamesChecked)
{
    TempDir dir;
    VideoFormat format;
    format.width = 16;
    format.height = 16;
    for (const char* name : {"partial.h264", "partial.evcseg"}) {
        SCOPED_TRACE(name);
        auto writer = MakeOutputWriter(dir.file(name), format);
        evc::EncodedFrame frame;
        frame.packets = {MakePacket(1, {0, 0, 0, 1, 0x65})};
        writer->write(frame);
        EXPECT_EQ(dir.entries(), std::vector<std::string>{name});
        writer.reset();  // as when the encode fails
        EXPECT_TRUE(dir.entries().empty());
    }
    EXPECT_THROW(MakeOutputWriter(dir.file("out.mp4"), format), std::invalid_argument);
    EXPECT_THROW(MakeOutputWriter(dir.file("no-such-folder/out.h264"), format), std::runtime_error);
    EXPECT_THROW(MakeOutputWriter(dir.file("no-such-folder/out.evcseg"), format), std::runtime_error);
}

}  // namespace
