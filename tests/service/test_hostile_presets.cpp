// Presets written to hurt: each gets an answer from the real service, which
// stays up and still takes a good preset afterwards. And the nesting bound
// that keeps the XML parser's recursion in check, row by row.
#include <gtest/gtest.h>

#include <sys/wait.h>

#include <cerrno>
#include <chrono>
#include <thread>

#include "ServiceHarness.h"
#include "evc/ZKResult.h"
#include "service/PresetText.h"

using namespace evctest;

namespace {

constexpr uint32_t kBadPreset = kZKErrBadPreset;
constexpr uint32_t kAnyStatus = 1;  // answered, whatever the status

std::string Repeat(const std::string& part, size_t times)
{
    std::string text;
    for (size_t i = 0; i < times; ++i)
        text += part;
    return text;
}

TEST(HostilePresets, EachIsAnsweredAndTheServiceStaysUp)
{
    const std::string deep = "<Output>" + Repeat("<a>", 40000) + Repeat("</a>", 40000) + "</Output>";
    const std::string lol =
        "<?xml version=\"1.0\"?><!DOCTYPE l [<!ENTITY a \"" + Repeat("x", 1000) +
        "\"><!ENTITY b \"&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;\"><!ENTITY c \"&b;&b;&b;&b;&b;&b;&b;&b;\">]>";
    const struct {
        const char* name;
        std::string preset;
        uint32_t status;
    } rows[] = {
        {"40000 levels", deep, kBadPreset},
        {"257 levels in settings", EchoPreset("<StandardSettings>" + Repeat("<Bitrate>", 257) + "</StandardSettings>"),
         kBadPreset},
        {"lead byte at the very end", std::string("<><s>\xEC", 6), kBadPreset},
        {"lead byte before a NUL", std::string("<Output a='\xF0\0<b>", 15), kAnyStatus},
        {"1 MB attribute",
         EchoPreset("<StandardSettings><Bitrate Type=\"eInt\" Value=\"" + Repeat("9", 1 << 20) +
                    "\"/></StandardSettings>"),
         0},
        {"entity expansion",
         lol + EchoPreset("<StandardSettings><Bitrate Type=\"eInt\" Value=\"&c;\"/>"
                          "</StandardSettings>"),
         kAnyStatus},
        {"unclosed document", EchoPreset("<StandardSettings><Bitrate Type=\"eInt\" Value=\"5").substr(0, 200),
         kAnyStatus},
        {"unclosed comment", "<Output><!-- " + Repeat("<a>", 1000), kAnyStatus},
        {"bool given as eInt", EchoPreset("<StandardSettings><TwoPass Type=\"eInt\" Value=\"1\"/></StandardSettings>"),
         kBadPreset},
        {"enum given as eDouble",
         EchoPreset("<NonStandardSettings><Preset Type=\"eDouble\" Value=\"2.5\"/></NonStandardSettings>"), kBadPreset},
        {"empty", "", kBadPreset},
    };

    ServiceHarness harness;
    ASSERT_TRUE(harness.WaitResponse()) << harness.process().lastErrorLines();
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const uint32_t status = harness.SetOutput(row.preset);
        ASSERT_NE(status, ~0u) << harness.process().lastErrorLines();
        if (row.status != kAnyStatus) {
            EXPECT_EQ(status, row.status);
        }
        ASSERT_TRUE(harness.process().alive()) << harness.process().lastErrorLines();
    }
    // Standard error reaches the host through a pipe that a thread reads: the line may come late.
    std::string errors;
    for (int i = 0; i < 500 && errors.find("\"TwoPass\" is given as eInt") == std::string::npos; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        errors = harness.process().lastErrorLines();
    }
    EXPECT_NE(errors.find("\"TwoPass\" is given as eInt"), std::string::npos) << errors;
    EXPECT_EQ(harness.SetOutput(EchoPreset()), 0u);
    harness.channel().SetCommand(CAExternalVideoProxySharedData::kQuit);
    harness.channel().PostCommand();
    EXPECT_EQ(harness.WaitExit(), 0);
}

TEST(HostilePresets, NestingDepthIsNeverUnderestimated)
{
    const struct {
        const char* text;
        unsigned depth;
    } rows[] = {
        {"<a><b/><c></c></a>", 2},
        {"<a><b><c/></b></a>", 3},
        {"<a x='>' y=\"/>\"><b>", 2},
        {"<a><!-- <b><c> --><d>", 2},
        {"<a><![CDATA[<b><c>]]><d>", 2},
        {"<?xml version='>'?><a><b>", 2},
        {"<!DOCTYPE x><a><b>", 2},
        {"</a></a><a>", 1},
        {"<1><2><a>", 1},
        {"<a x='unclosed><b><c>", 1},
        {"<\xC3\xA9><\xC3\xA9>", 2},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        EXPECT_EQ(PresetNestingDepth(row.text), row.depth);
    }
    EXPECT_EQ(PresetNestingDepth(Repeat("<a>", 100000)), kPresetMaxDepth + 1) << "counting stops past the limit";
}

}  // namespace
