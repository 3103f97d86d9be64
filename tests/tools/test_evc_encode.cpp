// evc-encode end to end: the built program drives the real service and the
// H.264 plug-in on files made with ffmpeg; ffprobe and ffmpeg judge the
// outputs.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <csignal>
#include <numeric>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "ToolTestSupport.h"
#include "plugins/bundles/TestPluginCodes.h"
#include "transport/TZKEncImage.h"
#include "transport/TZKIntermediateSegment.h"

using namespace tool_test;
using evctest::Bytes;
using evctest::ReadBytes;

namespace {

// What ffprobe says of a file's first video stream, its pictures and
// packets: every value under its key, in order.
using Facts = std::map<std::string, std::vector<std::string>>;

Facts ParseFacts(const std::string& text)
{
    Facts facts;
    std::istringstream lines(text);
    std::string line;
    while (std::getline(lines, line)) {
        const size_t equals = line.find('=');
        if (equals != std::string::npos && line[0] != '[')
            facts[line.substr(0, equals)].push_back(line.substr(equals + 1));
    }
    return facts;
}

std::vector<double> Numbers(const std::vector<std::string>& texts)
{
    std::vector<double> values;
    for (const std::string& text : texts)
        if (text != "N/A")
            values.push_back(std::stod(text));
    return values;
}

double Fraction(const std::string& text)
{
    const size_t slash = text.find('/');
    return std::stod(text.substr(0, slash)) / (slash == std::string::npos ? 1 : std::stod(text.substr(slash + 1)));
}

// The source clips are made when a test first asks for them.
class EvcEncodeTest : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        if (HaveProgram("ffmpeg") && HaveProgram("ffprobe"))
            s_media = new TempDir();
    }
    static void TearDownTestSuite()
    {
        delete s_media;
        s_media = nullptr;
    }

    void SetUp() override
    {
        if (s_media == nullptr)
            GTEST_SKIP() << "ffmpeg and ffprobe are not installed";
        m_dir = std::make_unique<TempDir>();
        // The segment's backing file goes here, so the test sees it removed.
        m_segments = m_dir->file("segments");
        ASSERT_EQ(RunCommand("mkdir " + Quote(m_segments), *m_dir).status, 0);
    }

    void TearDown() override
    {
        if (!m_dir)
            return;
        EXPECT_TRUE(RunCommand("ls -A " + Quote(m_segments), *m_dir).out.empty()) << "the segment was removed";
        const std::vector<int> strays = ProcessesMentioning(m_segments);
        EXPECT_TRUE(strays.empty()) << "no service outlived its encoder";
        for (const int pid : strays)
            kill(pid, SIGKILL);
        m_dir.reset();
    }

    std::string Media(const std::string& name) const
    {
        const std::string lavfi = "ffmpeg -v error -y -f lavfi -i testsrc2=size=";
        const std::map<std::string, std::string> recipes = {
            {"src.mp4", lavfi + "160x120:rate=30000/1001:duration=1 -f lavfi -i sine=frequency=440:duration=1 "
                                "-c:v libx264 -pix_fmt yuv420p -c:a aac -shortest"},
            {"src422.mkv", lavfi + "128x96:rate=25:duration=0.8 -c:v libx264 -pix_fmt yuv422p10le"},
            {"vfr.mkv", lavfi + "128x96:rate=25:duration=0.8 -vf 'settb=1/1000,setpts=N*40+15*mod(N\\,2)+N*N' "
                                "-fps_mode passthrough -enc_time_base 1:1000 -c:v libx264"},
            {"src.y4m", lavfi + "96x64:rate=25:duration=0.8 -pix_fmt yuv420p"},
            {"rgb.nut", lavfi + "96x64:rate=25:duration=0.4 -c:v rawvideo -pix_fmt rgb24"},
            // Three scenes of 20 pictures (cuts at pictures 20 and 40), one
            // key picture in 21 (a chunk starts between the decoding and the
            // presentation time of one), and sound.
            {"cuts.ts", "ffmpeg -v error -y -f lavfi -i testsrc2=size=96x64:rate=25:duration=0.8 -f lavfi -i "
                        "smptebars=size=96x64:rate=25:duration=0.8 -f lavfi -i rgbtestsrc=size=96x64:rate=25:"
                        "duration=0.8 -f lavfi -i sine=duration=2.4 -filter_complex '[0][1][2]concat=n=3:v=1[v]' "
                        "-map '[v]' -map 3 -c:v libx264 -g 21 -bf 2 -sc_threshold 0 -c:a aac"},
            {"described.mkv", lavfi + "64x48:rate=25:duration=0.2 -vf setsar=4/3 -c:v libx264 -color_primaries "
                                      "bt709 -color_trc bt709 -colorspace bt709 -color_range pc"},
        };
        const std::string path = s_media->file(name);
        if (RunCommand("test -e " + Quote(path), *s_media).status != 0) {
            EXPECT_EQ(RunCommand(recipes.at(name) + " " + Quote(path), *s_media).status, 0) << name;
        }
        return path;
    }

    // A preset of a test compressor whose CompressFrame meets the given fault.
    std::string FaultPreset(const std::string& name, uint32_t codec, const std::string& fault)
    {
        return m_dir->Write(name, "<Output><VideoCompressor Manufacture4cc=\"" +
                                      std::to_string(evctest::kTestManufacturer) + "\" Codec4cc=\"" +
                                      std::to_string(codec) +
                                      "\"><NonStandardSettings><Fault Type=\"eEnum\" "
                                      "Value=\"CompressFrame:" +
                                      fault + "\"/></NonStandardSettings></VideoCompressor></Output>");
    }

    CommandResult Encode(const std::string& arguments)
    {
        // A group, so that the arguments may redirect standard output.
        return RunCommand("{ TMPDIR=" + Quote(m_segments) + " " + Quote(EncoderPath()) + " " + arguments + "; }",
                          *m_dir);
    }

    std::string Probe(const std::string& file, const std::string& what)
    {
        const std::string format = what.find(" -of ") == std::string::npos ? " -of csv=p=0 " : " ";
        const CommandResult r = RunCommand("ffprobe -v error " + what + format + Quote(file), *m_dir);
        EXPECT_EQ(r.status, 0) << r.err;
        return r.out;
    }

    Facts Describe(const std::string& file)
    {
        return ParseFacts(Probe(file, "-count_frames -select_streams v:0 -show_entries stream=codec_name,width,"
                                      "height,pix_fmt,time_base,avg_frame_rate,nb_read_frames:format=duration:frame="
                                      "best_effort_timestamp_time:packet=dts_time -of default=nw=1"));
    }

    std::string AudioDigest(const std::string& file)
    {
        return RunCommand("ffmpeg -v error -i " + Quote(file) + " -map 0:a -c copy -f md5 -", *m_dir).out;
    }

    double Psnr(const std::string& output, const std::string& source)
    {
        const CommandResult r = RunCommand("ffmpeg -i " + Quote(output) + " -i " + Quote(source) +
                                               " -lavfi '[0:v]format=yuv420p[a];[1:v]format=yuv420p[b];[a][b]psnr' "
                                               "-f null - 2>&1 | grep -o 'average:[0-9.inf]*'",
                                           *m_dir);
        return r.out.size() > 8 ? std::stod(r.out.substr(8)) : 0;
    }

    static TempDir* s_media;
    std::unique_ptr<TempDir> m_dir;
    std::string m_segments;
};

TempDir* EvcEncodeTest::s_media = nullptr;

TEST_F(EvcEncodeTest, OutputsCarryTheSourceFaithfully)
{
    struct Case {
        const char* name;
        std::string source;
        std::string output;     // in the test's folder
        std::string arguments;  // {in} and {out} are replaced
        bool audio;             // the output carries the source's audio
        bool timed;             // the output has presentation times to compare
        const char* converted;  // the pixel format it is converted to, "" when sent as it is
    };
    const std::vector<Case> cases = {
        {"H.264 + AAC .mp4 to .mkv", "src.mp4", "out.mkv", "{in} -o {out}", true, true, ""},
        {"H.264 + AAC .mp4 to .mp4", "src.mp4", "out.mp4", "{in} -o {out}", true, true, ""},
        {"--no-audio to .mov", "src.mp4", "out.mov", "--no-audio {in} -o {out}", false, true, ""},
        {"10-bit 4:2:2 .mkv to .mp4", "src422.mkv", "out.mp4", "{in} -o {out}", false, true, ""},
        {"RGB converted", "rgb.nut", "out.mkv", "{in} -o {out}", false, true, "yuv420p"},
        {"variable frame rate .mkv", "vfr.mkv", "out.mkv", "{in} -o {out}", false, true, ""},
        {"y4m from a pipe to .h264", "src.y4m", "out.h264", "- -o {out} < {in}", false, false, ""},
        {"y4m to .mp4 on standard output", "src.y4m", "out.mp4", "{in} -f mp4 -o - > {out}", false, true, ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const std::string source = Media(c.source);
        const std::string output = m_dir->file(c.output);
        std::remove(output.c_str());
        std::string arguments = "-q " + c.arguments;
        arguments.replace(arguments.find("{in}"), 4, Quote(source));
        arguments.replace(arguments.find("{out}"), 5, Quote(output));
        const CommandResult run = Encode(arguments);
        ASSERT_EQ(run.status, 0) << run.err;
        EXPECT_EQ(run.err, "") << "--quiet writes nothing";

        Facts got = Describe(output);
        Facts want = Describe(source);
        for (const char* key : {"width", "height", "nb_read_frames"})
            EXPECT_EQ(got[key], want[key]) << key;
        EXPECT_EQ(got["pix_fmt"], *c.converted ? std::vector<std::string>{c.converted} : want["pix_fmt"]);
        EXPECT_EQ(got["codec_name"], std::vector<std::string>{"h264"});
        EXPECT_GT(Psnr(output, source), 35.0) << "CRF 18 by default";
        const std::string digest = AudioDigest(output);
        EXPECT_EQ(!digest.empty(), c.audio);
        if (c.audio) {
            EXPECT_EQ(digest, AudioDigest(source)) << "audio packets copied unchanged";
        }
        if (!c.timed)
            continue;

        const double tick = std::max(Fraction(want["time_base"].at(0)), Fraction(got["time_base"].at(0)));
        const std::vector<double> wantTimes = Numbers(want["best_effort_timestamp_time"]);
        const std::vector<double> gotTimes = Numbers(got["best_effort_timestamp_time"]);
        ASSERT_EQ(gotTimes.size(), wantTimes.size());
        for (size_t i = 0; i < wantTimes.size(); ++i)
            ASSERT_NEAR(gotTimes[i], wantTimes[i], tick * 1.01) << "picture " << i;
        const std::vector<double> dts = Numbers(got["dts_time"]);
        for (size_t i = 1; i < dts.size(); ++i)
            ASSERT_LT(dts[i - 1], dts[i]) << "decoding times increase, packet " << i;
        EXPECT_NEAR(Numbers(got["duration"]).at(0), Numbers(want["duration"]).at(0),
                    1.01 / Fraction(want["avg_frame_rate"].at(0)))
            << "within one picture";
    }
}

TEST_F(EvcEncodeTest, OptionsReachTheEncoder)
{
    const std::string output = m_dir->file("pattern.mkv");
    const CommandResult run = Encode("--test-pattern 320x240@30000/1001:1 --preset ultrafast --bitrate 100 "
                                     "--keyint 10 --frames 25 --profile baseline -o " +
                                     Quote(output));
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_NE(run.err.find("encoded 25 frames 320x240 at 29.97 fps into " + output), std::string::npos) << run.err;
    EXPECT_EQ(Probe(output, "-show_entries stream=profile,r_frame_rate"), "Constrained Baseline,30000/1001\n");
    const std::string keys = Probe(output, "-show_entries packet=flags");
    EXPECT_EQ(std::count(keys.begin(), keys.end(), 'K'), 3) << "--keyint 10 over 25 pictures: " << keys;
    // Twice the budget of 100 kbit/s over 25 pictures; without the rate control it takes five times.
    EXPECT_LT(ReadBytes(output).size(), 2 * 100000 / 8 * 25 * 1001 / 30000);

    // A raw stream has only its own word for the rate.
    const std::string raw = m_dir->file("ntsc.h264");
    ASSERT_EQ(Encode("-q --test-pattern 64x48@30000/1001:0.3 -o " + Quote(raw)).status, 0);
    EXPECT_EQ(Probe(raw, "-show_entries stream=r_frame_rate"), "30000/1001\n");

    // What the source says of its pictures reaches a raw stream too.
    const std::string described = m_dir->file("described.h264");
    ASSERT_EQ(Encode("-q " + Quote(Media("described.mkv")) + " -o " + Quote(described)).status, 0);
    EXPECT_EQ(Probe(described, "-show_entries stream=sample_aspect_ratio,color_range,color_space,color_transfer,"
                               "color_primaries"),
              "4:3,pc,bt709,bt709,bt709\n");

    const std::string seeked = m_dir->file("seeked.mp4");
    ASSERT_EQ(Encode("-q --ss 0.4 --frames 5 " + Quote(Media("src.mp4")) + " -o " + Quote(seeked)).status, 0);
    Facts facts = Describe(seeked);
    EXPECT_EQ(facts["nb_read_frames"], std::vector<std::string>{"5"});
    EXPECT_EQ(facts["best_effort_timestamp_time"].at(0), "0.000000") << "the output starts at 0";
}

TEST_F(EvcEncodeTest, ListsCodecsWithTheirSettings)
{
    const CommandResult run = Encode("--list-codecs");
    if (run.err.find("needs a service that can list") != std::string::npos)
        GTEST_SKIP() << "this service cannot list its plug-ins";
    ASSERT_EQ(run.status, 0) << run.err;
    for (const char* text : {"h264  'evc ' 'avc1'  (Manufacture4cc=\"1702257440\" Codec4cc=\"1635148593\")", "vp9",
                             "hevc", "av1", "Preset", "eEnum", "KeyFrameInterval"})
        EXPECT_NE(run.out.find(text), std::string::npos) << text << " in\n" << run.out;
}

TEST_F(EvcEncodeTest, SegmentFileReadsBackAfterARecovery)
{
    // The H.264 compressor behind a switch that crashes the first service at the picture of time
    // 10. (Segment files without a fault are the chunk tests'.)
    const std::string faulty =
        FaultPreset("faulty.xml", evctest::kFaultyH264Codec, "segv:t=10:once=" + m_dir->file("fired"));
    const std::string output = m_dir->file("clip.evcseg");
    const CommandResult run = Encode("-q --preset " + Quote(faulty) + " --test-pattern 64x48@25:1 -o " + Quote(output));
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_NE(run.err.find("recovered in"), std::string::npos) << run.err;
    TZKIntermediateSegment segment;
    ASSERT_TRUE(segment.open(output));
    EXPECT_EQ(segment.getStart().GetTimeScale(), 25u);
    EXPECT_NEAR(segment.getDuration().GetSeconds(), 1.0, 1e-9);
    std::vector<uint64_t> times;
    while (std::unique_ptr<Ebml::IElement> element{segment.readNext()}) {
        ASSERT_EQ(element->getId(), TZKEncImageElt::kId);
        TZKImageFramePtr frame = static_cast<TZKEncImageElt&>(*element)->exportFrame(CATime(0, 0));
        ASSERT_TRUE(frame);
        const ZKEncImage_t record = frame->GetZKEncImage();
        EXPECT_EQ(record.image.width, 64u);
        ASSERT_NE(record.image.dataPackets, nullptr);
        for (uint32_t i = 0; i < record.image.dataPackets->size(); ++i)
            times.push_back(record.image.dataPackets->get(i)->getTime());
    }
    std::sort(times.begin(), times.end());
    std::vector<uint64_t> all(25);
    std::iota(all.begin(), all.end(), 0);
    EXPECT_EQ(times, all) << "every picture once";
}

TEST_F(EvcEncodeTest, InterruptionFinishesOrAbandonsTheFile)
{
    // The last case's compressor hangs at its third picture, so the first
    // Ctrl-C cannot finish and the second must end it at once.
    const std::string hanging = FaultPreset("hanging.xml", evctest::kFaultyCodec, "hang:2");
    struct Case {
        const char* name;
        std::string arguments;
        std::string output;
        // Sent once the output's temporary file is there: with --jobs, once
        // the first chunk is done and joined (it is the first to start).
        const char* signals;
        size_t atLeast;  // pictures in the finished file; 0: abandoned
    };
    const std::vector<Case> cases = {
        {"once", "--preset ultrafast --test-pattern 160x120@25:3600", m_dir->file("finished.mkv"),
         "sleep 0.5; kill -INT $p", 1},
        // Five chunks of 280 pictures, started first, third, second: the
        // signal falls while the second is encoded, whose part done ends
        // the output.
        {"once, two jobs", "--preset medium --jobs 2 --test-pattern 192x108@25:56", m_dir->file("jobs.mp4"),
         "sleep 0.1; kill -INT $p", 280},
        {"twice", "-q --preset-file " + Quote(hanging) + " " + Quote(Media("src.y4m")), m_dir->file("abandoned.evcseg"),
         "sleep 0.5; kill -INT $p; sleep 0.3; kill -INT $p", 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const CommandResult run =
            RunCommand("TMPDIR=" + Quote(m_segments) + " " + Quote(EncoderPath()) + " " + c.arguments + " -o " +
                           Quote(c.output) + " & p=$!; while kill -0 $p && ! ls -A " + Quote(m_dir->path()) +
                           " | grep -q evc-; do sleep 0.05; done; " + c.signals + "; wait $p",
                       *m_dir);
        EXPECT_EQ(run.status, 130) << run.err;
        if (c.atLeast != 0) {
            // A playable file of the input's first pictures, without a gap.
            const std::vector<std::string> times = ProbeVideoTimes(c.output, *m_dir).all;
            EXPECT_GE(times.size(), c.atLeast);
            size_t misplaced = 0;
            for (size_t i = 0; i < times.size(); ++i)
                misplaced += std::fabs(std::stod(times[i]) - 0.04 * double(i)) > 1e-3;
            EXPECT_EQ(misplaced, 0u);
            EXPECT_NE(run.err.find("holds the " + std::to_string(times.size()) + " pictures done"), std::string::npos)
                << run.err;
            EXPECT_EQ(RunCommand("ffmpeg -v error -i " + Quote(c.output) + " -f null -", *m_dir).err, "");
            std::remove(c.output.c_str());
        }
        EXPECT_EQ(m_dir->entries(), (std::vector<std::string>{"hanging.xml", "segments"})) << "nothing else is left";
    }
}

TEST_F(EvcEncodeTest, BadInputFailsWithOneLineAndNoOutput)
{
    const std::string text = m_dir->Write("text.mp4", "this is not a video");
    const Bytes mp4 = ReadBytes(Media("src.mp4")), y4m = ReadBytes(Media("src.y4m"));
    const std::string truncated = m_dir->Write("truncated.mp4", Bytes(mp4.begin(), mp4.begin() + mp4.size() / 2));
    const std::string cutY4m = m_dir->Write("cut.y4m", Bytes(y4m.begin(), y4m.end() - 100));
    const std::string unconvertible = m_dir->file("y411.nut");
    ASSERT_EQ(
        RunCommand("head -c 9216 /dev/zero | ffmpeg -v error -f rawvideo -pix_fmt uyyvyy411 -s 64x32 -i - -c copy " +
                       Quote(unconvertible),
                   *m_dir)
            .status,
        0);
    const std::string existing = m_dir->Write("existing.evcseg", "keep me");
    const std::string crashing = FaultPreset("crashing.xml", evctest::kFaultyCodec, "segv:3");
    const std::string silent = FaultPreset("silent.xml", evctest::kFaultyCodec, "none");
    const std::string nobody =
        m_dir->Write("nobody.xml", "<Output><VideoCompressor Manufacture4cc=\"1\" Codec4cc=\"2\"/></Output>");
    const std::string clip = Quote(Media("src.y4m"));
    // The test compressors' codes fit no container.
    const std::string out = m_dir->file("out.evcseg");

    struct Case {
        const char* name;
        std::string arguments;
        std::string message;  // what the one line says, after "evc-encode: "
        int status;
    };
    const std::vector<Case> cases = {
        {"not video", Quote(text) + " -o " + Quote(out), text + ": not a video file", 1},
        {"truncated", Quote(truncated) + " -o " + Quote(out), truncated + ": not a video file, or a damaged one", 1},
        {"cut inside a picture", Quote(cutY4m) + " -o " + Quote(out), cutY4m + ": truncated", 1},
        {"missing", Quote(m_dir->file("none.mp4")) + " -o " + Quote(out), "none.mp4: No such file", 1},
        {"unconvertible pixels", Quote(unconvertible) + " -o " + Quote(out), "cannot be converted", 1},
        {"full output", clip + " -f mkv -o /dev/full", "/dev/full: cannot write: No space left", 1},
        {"unwritable folder", clip + " -o " + Quote(m_dir->file("none/out.mkv")), "cannot create", 1},
        {"codec the format cannot hold", clip + " -o " + Quote(m_dir->file("out.webm")), "cannot hold h264", 1},
        {"existing output", clip + " -o " + Quote(existing), existing + ": exists already (-y replaces it)", 1},
        {"codec crashes, -y", "-y --preset-file " + Quote(crashing) + " " + clip + " -o " + Quote(existing),
         "evc-service was killed by signal 11", 1},
        {"compressor returns nothing", "--preset-file " + Quote(silent) + " " + clip + " -o " + Quote(out),
         "returned no pictures for 20 pictures sent", 1},
        {"codes nobody offers", "--preset-file " + Quote(nobody) + " " + clip + " -o " + Quote(out), "0x800300E9", 1},
        {"missing preset", "--preset-file " + Quote(m_dir->file("no.xml")) + " " + clip + " -o " + Quote(out),
         "cannot read preset", 1},
        {"bad test pattern", "--test-pattern 64x48 -o " + Quote(out), "bad test pattern", 2},
        {"unknown format", clip + " -o " + Quote(m_dir->file("out.avi")), "cannot tell the output format", 2},
        {"standard output without -f", clip + " -o -", "needs -f", 2},
        {"bad number", clip + " --crf high -o " + Quote(out), "--crf takes a number", 2},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const CommandResult run = Encode(c.arguments);
        EXPECT_EQ(run.status, c.status) << run.err;
        // A progress line may have been drawn before the failure; it is
        // wiped, and what stays on the terminal is the message alone.
        const std::string shown = run.err.substr(run.err.rfind('\r') + 1);
        EXPECT_EQ(shown.rfind("evc-encode: ", 0), 0u) << run.err;
        EXPECT_NE(shown.find(c.message), std::string::npos) << run.err;
        EXPECT_EQ(run.err.find('\n'), run.err.size() - 1) << "one line: " << run.err;
        EXPECT_EQ(RunCommand("test -e " + Quote(out), *m_dir).status, 1) << "no partial output is left";
        EXPECT_EQ(ReadBytes(existing), Bytes({'k', 'e', 'e', 'p', ' ', 'm', 'e'}));
        EXPECT_EQ(m_dir->entries().size(), 9u) << "no temporary file is left";
    }
}

TEST_F(EvcEncodeTest, ChunksJoinIntoTheWholeInputOrNothing)
{
    const std::string source = Media("cuts.ts");
    const std::vector<std::string> sourceTimes = ProbeVideoTimes(source, *m_dir).all;
    ASSERT_EQ(sourceTimes.size(), 60u);
    const std::string preset = "-q --preset-file h264-preview.xml ";
    // The first chunk writes the plan, the others read it; a plan of
    // another chunk count is refused.
    auto chunk = [&](const std::string& k, const std::string& part) {
        const CommandResult run = Encode(preset + "--chunk " + k + " --chunk-plan " + Quote(m_dir->file("plan")) + " " +
                                         Quote(source) + (part.empty() ? "" : " -o " + Quote(m_dir->file(part))));
        EXPECT_EQ(run.status, part.empty() ? 1 : 0);
        EXPECT_NE(run.err.find(part.empty() ? "planned for 3 chunks" : ""), std::string::npos) << run.err;
        return Quote(m_dir->file(part)) + " ";
    };
    const std::string p1 = chunk("1/3", "part1.evcseg"), p2 = chunk("2/3", "part2.evcseg"),
                      p3 = chunk("3/3", "part3.evcseg");
    chunk("1/2", "");

    struct Row {
        const char* name;
        std::string arguments;  // without -o
        std::string output;
        std::vector<size_t> keys;  // the chunk boundaries among them
        const char* audio;         // the audio codec in the output
    };
    const std::vector<Row> rows = {
        {"two jobs (a chunk a scene)", preset + "--jobs 2 " + Quote(source), "jobs.mp4", {0, 20, 40}, "aac"},
        {"three chunks joined out of order",
         "-q --join " + p3 + p1 + p2 + "--audio-from " + Quote(source),
         "joined.mkv",
         {0, 20, 40},
         "aac"},
        {"joined into a raw stream", "-q --join " + p1 + p2 + p3, "joined.h264", {}, ""},
        {"two jobs, no audio", preset + "--no-audio --jobs 2 " + Quote(source), "silent.mkv", {}, ""},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const std::string output = m_dir->file(row.output);
        const CommandResult run = Encode(row.arguments + " -o " + Quote(output));
        ASSERT_EQ(run.status, 0) << run.err;
        EXPECT_EQ(RunCommand("ffmpeg -v error -i " + Quote(output) + " -f null -", *m_dir).err, "");
        const Facts facts = Describe(output);
        EXPECT_EQ(facts.at("nb_read_frames"), std::vector<std::string>{"60"});
        EXPECT_EQ(Probe(output, "-select_streams a -show_entries stream=codec_name"),
                  *row.audio ? row.audio + std::string("\n") : "");
        if (row.keys.empty())
            continue;  // a raw stream has no times
        const VideoTimes times = ProbeVideoTimes(output, *m_dir);
        EXPECT_EQ(times.all, sourceTimes) << "the source's times, each once";
        std::vector<std::string> expected;
        for (size_t k : row.keys)
            expected.push_back(sourceTimes[k]);
        EXPECT_EQ(times.keys, expected) << "a key frame at each chunk's start";
    }

    // With --frames the audio stops where the pictures do (what starts
    // before the end of the last one), however they were encoded.
    const std::string frames = "--frames 50 ", part = Quote(m_dir->file("short.evcseg"));
    std::vector<std::string> shortened;
    for (const std::string& arguments :
         {preset + frames + Quote(source), preset + frames + "--jobs 2 " + Quote(source),
          preset + frames + "--chunk 1/1 " + Quote(source) + " -o " + part + " && " + Quote(EncoderPath()) +
              " -q --join " + part + " --audio-from " + Quote(source) + " " + frames}) {
        shortened.push_back(m_dir->file("short" + std::to_string(shortened.size()) + ".mkv"));
        ASSERT_EQ(Encode(arguments + " -o " + Quote(shortened.back())).status, 0) << arguments;
    }
    const std::vector<double> audioTimes = Numbers(ParseFacts(
        Probe(shortened[0], "-select_streams a -show_entries packet=pts_time -of default=nw=1"))["pts_time"]);
    ASSERT_FALSE(audioTimes.empty());
    const double end = std::stod(sourceTimes[50]);  // the 50th picture's end
    EXPECT_LT(audioTimes.back(), end);
    EXPECT_GT(audioTimes.back(), end - 0.03) << "the audio goes on to the pictures' end";
    EXPECT_EQ(AudioDigest(shortened[1]), AudioDigest(shortened[0]));
    EXPECT_EQ(AudioDigest(shortened[2]), AudioDigest(shortened[0]));

    // Whatever is wrong with the chunks, nothing is written.
    const std::string cut = m_dir->file("cut.evcseg");
    ASSERT_EQ(RunCommand("{ head -c 300 " + p2 + "; tail -c 112 " + p2 + "; } > " + Quote(cut), *m_dir).status, 0);
    const std::vector<std::pair<std::string, std::string>> refused = {
        {p1 + p3, "chunk 2 of 3 is missing"},
        {p1 + p2 + p2 + p3, "chunk 2 is given twice"},
        {p1 + Quote(source) + " " + p3, "not the segment file of a chunk"},
        {p1 + Quote(cut) + " " + p3, "of the chunk's 20 pictures"},
    };
    for (const auto& [inputs, says] : refused) {
        SCOPED_TRACE(says);
        const CommandResult run = Encode("-q --join " + inputs + "-o " + Quote(m_dir->file("bad.mkv")));
        EXPECT_EQ(run.status, 1);
        EXPECT_NE(run.err.find(says), std::string::npos) << run.err;
        EXPECT_NE(RunCommand("test -e " + Quote(m_dir->file("bad.mkv")), *m_dir).status, 0);
    }
}

}  // namespace
