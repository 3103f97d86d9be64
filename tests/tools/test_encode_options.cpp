// evc-encode's pure parts: command lines, times, output formats, preset overrides, the test
// pattern's plan and the derivation of decoding times; and the rules that keep a user's files safe:
// a temporary name, a rename on success, no overwrite without being asked, nothing written through
// a symlink (the raw stream writer is judged by ffmpeg in the evc-encode tests).
#include <gtest/gtest.h>
#include <unistd.h>

#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "tools/DecodeTimes.h"
#include "tools/EncodeOptions.h"
#include "tools/FrameSource.h"
#include "tools/OutputWriter.h"
#include "tools/PresetDocument.h"
#include "tools/Progress.h"
#include "ToolTestSupport.h"
#include "tools/OutputFile.h"

using namespace evc::tools;
using evctest::ReadBytes;
using tool_test::TempDir;

namespace {

TEST(EncodeOptions, CommandLines)
{
    struct Case {
        std::vector<std::string> arguments;
        bool usable;
    };
    const std::vector<Case> cases = {
        {{"in.mp4", "-o", "out.mkv"}, true},
        {{"-", "-o", "-", "-f", "mp4"}, true},
        {{"--test-pattern", "64x48@25:1", "-o", "x.h264", "--crf", "20.5", "--preset", "veryfast"}, true},
        {{"--version"}, true},
        {{}, false},
        {{"in.mp4"}, false},
        {{"in.mp4", "-o", "-"}, false},  // standard output needs -f
        {{"a.mp4", "b.mp4", "-o", "x.mkv"}, false},
        {{"a.mp4", "--test-pattern", "64x48@25:1", "-o", "x.mkv"}, false},
        {{"a.mp4", "-o", "x.mkv", "--bogus"}, false},
        {{"a.mp4", "-o", "x.mkv", "--crf", "70"}, false},
        {{"a.mp4", "-o", "x.mkv", "--crf", "20", "--bitrate", "900"}, false},
        {{"a.mp4", "-o", "x.mkv", "--keyint", "2.5"}, false},
        {{"a.mp4", "-o", "x.mkv", "--ss", "1:x"}, false},
        {{"--join", "b.evcseg", "a.evcseg", "--audio-from", "a.mp4", "-o", "x.mkv"}, true},
        {{"a.mp4", "--audio-from", "a.mp4", "-o", "x.mkv"}, false},
        {{"a.mp4", "--chunk", "2/3", "--min-chunk", "25", "--chunk-plan", "plan"}, true},  // the plan alone
        {{"a.mp4", "--chunk-plan", "plan", "-o", "x.mkv"}, false},
        {{"--join", "-o", "x.mkv"}, false},
        {{"--join", "a.evcseg", "--jobs", "2", "-o", "x.mkv"}, false},
        {{"a.mp4", "--chunk", "4/3", "-o", "p.evcseg"}, false},
        {{"a.mp4", "--chunk", "1/2", "--jobs", "2", "-o", "p.evcseg"}, false},
        {{"a.mp4", "--jobs", "0", "-o", "x.mkv"}, false},
        {{"a.mp4", "--min-chunk", "50", "--max-chunk", "20", "-o", "x.mkv"}, false},
    };
    for (const Case& c : cases) {
        std::string line;
        for (const std::string& a : c.arguments)
            line += a + " ";
        SCOPED_TRACE(line);
        if (c.usable)
            EXPECT_NO_THROW(ParseEncodeOptions(c.arguments));
        else
            EXPECT_THROW(ParseEncodeOptions(c.arguments), UsageError);
    }
    const EncodeOptions o = ParseEncodeOptions(
        {"in.mp4",    "-o", "x.mkv", "--preset", "p.xml", "--preset", "slow", "--bitrate", "900",    "--keyint",  "48",
         "--threads", "2",  "-y",    "--frames", "10",    "--seek",   "3",    "--ss",      "1:02.5", "--no-audio"});
    EXPECT_EQ(o.presetFile, "p.xml") << "a file name after --preset is a preset file";
    EXPECT_EQ(o.preset, "slow");
    EXPECT_EQ(*o.bitrate, 900);
    EXPECT_EQ(*o.keyint, 48);
    EXPECT_EQ(*o.threads, 2);
    EXPECT_TRUE(o.overwrite && o.noAudio);
    EXPECT_EQ(o.frames, 10u);
    EXPECT_EQ(o.seekFrames, 3u);
    EXPECT_DOUBLE_EQ(o.seekSeconds, 62.5);
}

TEST(EncodeOptions, TimesAndFormats)
{
    const std::vector<std::pair<std::string, double>> times = {{"90", 90}, {"1:30", 90}, {"1:00:01.5", 3601.5}};
    for (const auto& t : times)
        EXPECT_DOUBLE_EQ(ParseTime(t.first), t.second) << t.first;
    for (const char* bad : {"", ":", "1::2", "-1", "1:2:3:4", "1.5:00"})
        EXPECT_THROW(ParseTime(bad), UsageError) << bad;

    const std::tuple<const char*, const char*, const char*> formats[] = {
        {"a.mkv", "", "mkv"},    {"a.MP4", "", "mp4"},   {"a.mov", "", "mov"},       {"a.webm", "", "webm"},
        {"a.264", "", "h264"},   {"a.h264", "", "h264"}, {"a.evcseg", "", "evcseg"}, {"-", "matroska", "mkv"},
        {"a.mkv", "mp4", "mp4"}, {"a.avi", "", ""},      {"dir.mkv/a", "", ""},      {"a.mkv", "flv", ""},
    };
    for (const auto& [path, requested, format] : formats)
        EXPECT_EQ(OutputFormat(path, requested), format) << path << " " << requested;
    // Which codec a container holds is seen end to end (a webm output of h264 is refused there).
    // The muxer's own set-up decides: .mov takes a tag for FLAC and Opus, then refuses them.
    const struct {
        const char* format;
        AVCodecID codec;
        bool holds;
    } audio[] = {{"h264", AV_CODEC_ID_AAC, false}, {"mp4", AV_CODEC_ID_AAC, true},   {"webm", AV_CODEC_ID_AAC, false},
                 {"mov", AV_CODEC_ID_FLAC, false}, {"mov", AV_CODEC_ID_OPUS, false}, {"mkv", AV_CODEC_ID_FLAC, true}};
    for (const auto& row : audio) {
        AVCodecParameters parameters{};
        parameters.codec_type = AVMEDIA_TYPE_AUDIO;
        parameters.codec_id = row.codec;
        parameters.sample_rate = 48000;
        av_channel_layout_default(&parameters.ch_layout, 2);
        EXPECT_EQ(FormatHoldsAudio(row.format, parameters), row.holds) << row.format << " " << row.codec;
    }
}

TEST(PresetDocument, OptionsOverrideTheFileAndKeepItsKinds)
{
    PresetDocument preset("<?xml version=\"1.0\"?><Output><VideoCompressor Manufacture4cc=\"1702257440\" "
                          "Codec4cc=\"1635148593\"><StandardSettings><Bitrate Type=\"eInt\" Value=\"2000\"/>"
                          "</StandardSettings><NonStandardSettings><Preset Type=\"eInt\" Value=\"4\"/>"
                          "</NonStandardSettings></VideoCompressor></Output>",
                          "test");
    EXPECT_EQ(preset.manufacturer(), 1702257440u);
    EXPECT_EQ(preset.codec(), 1635148593u);
    preset.apply({{true, "Bitrate", "eInt", "0"}, {false, "Preset", "eEnum", "7"}, {false, "CRF", "eDouble", "18"}});
    EXPECT_EQ(preset.value("Bitrate"), "0");
    EXPECT_EQ(preset.value("CRF"), "18");
    const std::string& text = preset.text();
    EXPECT_NE(text.find("<Preset Type=\"eInt\" Value=\"7\""), std::string::npos) << "the file's kind stays: " << text;
    EXPECT_NE(text.find("<CRF Type=\"eDouble\" Value=\"18\""), std::string::npos) << text;
    EXPECT_EQ(PresetDocument(text, "again").value("Preset"), "7") << "what is sent reads back";

    for (const char* bad : {"", "not xml", "<Input/>", "<Output/>", "<Output><VideoCompressor/></Output>"})
        EXPECT_THROW(PresetDocument(bad, "bad"), PresetError) << bad;
}

TEST(TestPatternPlan, Table)
{
    const std::pair<const char*, const char*> cases[] = {{"640x360@25:4", "640x360 25/1 25 100"},
                                                         {"320x240@30000/1001:2", "320x240 30000/1001 30000 60"},
                                                         {"16x16@25:0.01", "16x16 25/1 25 1"}};
    for (const auto& [text, plan] : cases) {
        const TestPatternPlan p = ParseTestPattern(text);
        std::ostringstream got;
        got << p.format.width << "x" << p.format.height << " " << p.format.fpsNum << "/" << p.format.fpsDen << " "
            << p.format.timeScale << " " << p.frames;
        EXPECT_EQ(got.str(), plan) << text;
    }
    for (const char* bad :
         {"640x360@25", "640x360:25@4", "0x360@25:4", "640x360@0:4", "640x360@25:-1", "99999x360@25:4"})
        EXPECT_THROW(ParseTestPattern(bad), std::invalid_argument) << bad;
}

TEST(Progress, LineAsX264ShowsIt)
{
    std::ostringstream out;
    VideoFormat format;
    format.expectedFrames = 200;
    const Progress progress(out, true, format);
    // 50 of 200 pictures of 1/25 s in 2 s: 25 fps, 6 s left; 25 kB in 2 s of video.
    EXPECT_EQ(progress.line(50, 50, 25000, 2.0), "[25.0%] 50/200 frames, 25.00 fps, 100.00 kb/s, eta 0:00:06");
    format.expectedFrames = 0;
    EXPECT_EQ(Progress(out, true, format).line(50, 50, 25000, 2.0), "50 frames: 25.00 fps, 100.00 kb/s");
    EXPECT_EQ(out.str(), "");
}

TEST(DecodeTimes, FollowTheReorderingDepth)
{
    struct Case {
        const char* name;
        std::vector<int64_t> pts;  // in decoding order
        size_t depth;
        std::vector<int64_t> dts;
        size_t minimum = 0;  // the depth's floor
    };
    const std::vector<Case> cases = {
        {"no B-pictures", {0, 10, 20, 30}, 0, {0, 10, 20, 30}},
        {"one B-picture", {0, 20, 10, 40, 30}, 1, {-10, 0, 10, 20, 30}},
        {"pyramid", {0, 40, 20, 10, 30, 50}, 2, {-20, -10, 0, 10, 20, 30}},
        {"variable spacing", {0, 50, 20, 60, 55}, 1, {-10, 0, 20, 50, 55}},
        // The first window shows one B-picture, a pyramid follows (as after a
        // restarted encoder): the floor keeps every time at or below its picture's.
        {"pyramid after the first window",
         {0, 20, 10, 40, 30, 80, 60, 50, 70},
         2,
         {-20, -10, 0, 10, 20, 30, 40, 50, 60},
         2},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        // A window smaller than the stream: times are released while it runs.
        DecodeTimes<size_t> order(4, c.minimum);
        std::vector<int64_t> dts;
        auto emit = [&](size_t index, int64_t pts, int64_t decode) {
            EXPECT_EQ(index, dts.size()) << "decoding order kept";
            EXPECT_EQ(pts, c.pts[index]);
            dts.push_back(decode);
        };
        for (size_t i = 0; i < c.pts.size(); ++i) {
            order.push(i, c.pts[i], 10);
            order.release(false, emit);
        }
        order.release(true, emit);
        EXPECT_EQ(order.depth(), c.depth);
        EXPECT_EQ(dts, c.dts);
    }
    DecodeTimes<int> twice;
    twice.push(0, 5, 1);
    EXPECT_THROW(twice.push(1, 5, 1), std::runtime_error);
}

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
