// scripts/evc-slurm through a real Slurm: a one-node cluster on this machine
// runs the chunk array and the join; a second submission with one chunk
// gone encodes that chunk only. Skipped where Slurm cannot start.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ToolTestSupport.h"
#include "common/TempDir.h"

using namespace tool_test;

namespace {

TEST(EvcSlurm, AChunkArrayAndItsJoinGiveTheWholeInputAndAReRunOnlyWhatIsMissing)
{
    if (!HaveProgram("ffmpeg") || !HaveProgram("ffprobe"))
        GTEST_SKIP() << "ffmpeg and ffprobe are not installed";
    TempDir dir;
    const std::string source = dir.file("cuts.mkv");
    ASSERT_EQ(RunCommand("ffmpeg -v error -y -f lavfi -i testsrc2=size=96x64:rate=25:duration=0.8 -f lavfi -i "
                         "smptebars=size=96x64:rate=25:duration=0.8 -f lavfi -i rgbtestsrc=size=96x64:rate=25:"
                         "duration=0.8 -filter_complex '[0][1][2]concat=n=3:v=1[v]' -map '[v]' -c:v ffv1 " +
                             Quote(source),
                         dir)
                  .status,
              0);
    const std::string scripts = std::string(EVC_SOURCE_DIR);
    const std::string output = dir.file("out.mkv");
    const std::string submit = Quote(scripts + "/scripts/evc-slurm") + " --wait -n 3 --evc-encode " +
                               Quote(EncoderPath()) + " -d " + Quote(dir.file("chunks")) + " " + Quote(source) +
                               " -o " + Quote(output) + " -- --preset-file h264-preview.xml";
    const CommandResult run =
        RunCommand("TMPDIR=" + Quote(dir.path()) + " " + Quote(scripts + "/tests/scripts/slurm-one-node.sh") + " " +
                       Quote(dir.file("cluster")) + " bash -c " +
                       Quote(submit + " && rm " + dir.file("chunks/part-00002.evcseg") + " && " + submit),
                   dir);
    if (run.status == 77)
        GTEST_SKIP() << run.err;
    ASSERT_EQ(run.status, 0) << run.out << run.err;
    EXPECT_NE(run.out.find("chunks 1,2,3 of 3"), std::string::npos) << run.out;
    EXPECT_NE(run.out.find("chunks 2 of 3:"), std::string::npos) << "only the missing chunk again: " << run.out;

    EXPECT_EQ(RunCommand("ffmpeg -v error -i " + Quote(output) + " -f null -", dir).err, "");
    const VideoTimes times = ProbeVideoTimes(output, dir);
    EXPECT_EQ(times.all, ProbeVideoTimes(source, dir).all) << "the source's times";
    EXPECT_EQ(times.keys, (std::vector<std::string>{"0.000000", "0.800000", "1.600000"})) << "chunks start at the cuts";
    EXPECT_TRUE(ProcessesMentioning(dir.path()).empty()) << "the cluster stopped";
    EXPECT_NE(RunCommand("test -e " + Quote(dir.file("cluster/slurm.conf")), dir).status, 0);
}

}  // namespace
