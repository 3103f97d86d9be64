// evc-inspect: the report of a written segment names every element, time and
// packet; damaged files end the report with a clear fault and status 1.
#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>

#include "common/Picture.h"
#include "common/Process.h"
#include "common/TempDir.h"
#include "evc/PluginPackets.h"
#include "inspect/SegmentReport.h"
#include "transport/TZKSegmentWriter.h"

namespace {

using evc::plugin::MakeBundle;
using evc::plugin::TPacket;

// Two 16x16 4:2:0 pictures at 25 fps; the second carries a stream header
// and two packets.
std::string WriteSegment(const evctest::TempDir& dir)
{
    evctest::TestPicture pixels(eColorFormatYUV420Planar, 16, 16);
    ZKEncImage_t& picture = pixels.Record();
    const std::string path = dir.File("two.evcseg");
    TZKSegmentWriter writer;
    EXPECT_TRUE(writer.open(path, CATime(0, 25)));
    EXPECT_TRUE(writer.writeImage(&picture, CATime(1, 25)));
    auto headers = MakeBundle(1000);
    headers->append(new TPacket(0, reinterpret_cast<const uint8_t*>("hdr"), 3));
    auto packets = MakeBundle(1000);
    packets->append(new TPacket(1, pixels.Buffer().data(), 100, 40, 1000, 40));
    packets->append(new TPacket(2, pixels.Buffer().data(), 7, 80, 1000, 40));
    picture.image.time = 1;
    picture.descriptors = headers.get();
    picture.image.dataPackets = packets.get();
    EXPECT_TRUE(writer.writeImage(&picture, CATime(1, 25)));
    EXPECT_TRUE(writer.close());
    return path;
}

TEST(Inspect, ReportsASegmentAndEndsADamagedOneWithAFault)
{
    evctest::TempDir dir;
    const std::string written = WriteSegment(dir);
    std::ostringstream out;
    EXPECT_EQ(evc::ReportSegment(written, out), "");
    const std::string report = out.str();
    for (const char* line :
         {"|  start 0/25 (0.000 s)\n", "|  duration 2/25 (0.080 s)\n", "+ 0: picture at byte 24\n",
          "|  time 1/25 (0.040 s), 16x16, colour format 6, 384 bytes of pixels\n",
          "|  descriptors: 1\n|    packet 0: type 0, track 0, time 0/1 (0.000 s), duration 0, 3 bytes\n",
          "|  packets: 2\n|    packet 0: type 1, track 0, time 40/1000 (0.040 s), duration 40, 100 bytes\n"
          "|    packet 1: type 2, track 0, time 80/1000 (0.080 s), duration 40, 7 bytes\n"}) {
        SCOPED_TRACE(line);
        EXPECT_NE(report.find(line), std::string::npos) << report;
    }

    const evctest::Bytes good = evctest::ReadBytes(written);
    const size_t firstEnd = good.size() / 3;  // inside the first element
    const struct {
        const char* name;
        evctest::Bytes bytes;
        const char* fault;
    } rows[] = {
        {"shorter than the header", evctest::Bytes(good.begin(), good.begin() + 10), "shorter than the 24-byte"},
        {"cut inside an element", evctest::Bytes(good.begin(), good.begin() + firstEnd),
         "element 0 at byte 24 is not a whole frame element"},
        {"second element cut", evctest::Bytes(good.begin(), good.end() - 5), "element 1 at byte"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const std::string path = dir.File(std::string(row.name) + ".evcseg");
        evctest::WriteBytes(path, row.bytes);
        const evctest::CommandResult run = evctest::RunCommand(std::string(EVC_INSPECT) + " '" + path + "'");
        EXPECT_EQ(run.status, 1) << run.output;
        EXPECT_NE(run.output.find("evc-inspect: " + path + ": "), std::string::npos) << run.output;
        EXPECT_NE(run.output.find(row.fault), std::string::npos) << run.output;
    }
    EXPECT_EQ(evctest::RunCommand(std::string(EVC_INSPECT) + " '" + dir.File("missing") + "'").status, 1);
}

}  // namespace
