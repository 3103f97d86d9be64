// Presets: the reader in the host process (the compressor codes a preset names, and its settings
// applied by name and kind to the echo compressor loaded from its bundle); presets written to hurt,
// each answered by the real service, which stays up and still takes a good preset afterwards; and
// the nesting bound that keeps the XML parser's recursion in check, row by row.
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <thread>

#include "ServiceHarness.h"
#include "evc/ZKResult.h"
#include "plugins/PluginFixture.h"
#include "plugins/bundles/EchoReport.h"
#include "service/PresetReader.h"
#include "service/PresetText.h"

using namespace evctest;

namespace {

TEST(PresetCodes, ReadsTheCompressorCodes)
{
    struct {
        const char* name;
        std::string preset;
        bool ok;
        unsigned int manufacturer, codec;  // starting at 11 and 22
    } cases[] = {
        {"plain", R"(<Output><VideoCompressor Manufacture4cc="1161257812" Codec4cc="1701012335"/></Output>)", true,
         1161257812, 1701012335},
        {"declaration and comment first, not the first child",
         R"(<?xml version="1.0"?><!-- p --><Output><Audio/><VideoCompressor Manufacture4cc="5" Codec4cc="6"/></Output>)",
         true, 5, 6},
        {"scanned like sscanf", R"(<Output><VideoCompressor Manufacture4cc="  7xyz" Codec4cc="-1"/></Output>)", true, 7,
         0xFFFFFFFFu},
        {"four letters do not scan", R"(<Output><VideoCompressor Manufacture4cc="EvcT" Codec4cc="9"/></Output>)", true,
         11, 9},
        {"attributes missing", R"(<Output><VideoCompressor/></Output>)", true, 11, 22},
        {"no VideoCompressor", R"(<Output><Other Manufacture4cc="1" Codec4cc="2"/></Output>)", true, 11, 22},
        {"unfinished document: what was parsed counts", R"(<Output><VideoCompressor Manufacture4cc="3" Codec4cc="4"/>)",
         true, 3, 4},
        {"wrong root", R"(<Input><VideoCompressor Manufacture4cc="1" Codec4cc="2"/></Input>)", false, 11, 22},
        {"not XML", "Bitrate=5000", false, 11, 22},
    };
    for (auto& test : cases) {
        unsigned int manufacturer = 11, codec = 22;
        EXPECT_EQ(DeSerializeVideoCodec4cc(test.preset, manufacturer, codec), test.ok) << test.name;
        EXPECT_EQ(manufacturer, test.manufacturer) << test.name;
        EXPECT_EQ(codec, test.codec) << test.name;
    }
}

// Settings applied to the echo compressor, loaded from its bundle.
class PresetSettingsTest : public testing::Test {
protected:
    void SetUp() override { ASSERT_NE(m_echo.get(), nullptr); }
    bool Apply(std::string preset) { return DeSerializeVideoCodecSettings(preset, m_echo.get()); }

    // The settings as the echo compressor reports them now.
    TEchoReport Report()
    {
        ZKEncImage_t output{};
        m_echo.get()->CompressFrame(nullptr, false, false, &output);
        return EchoReportOf(output);
    }
    TLoadedCompressor m_echo{kTestManufacturer, kEchoCodec};
};

TEST_F(PresetSettingsTest, AppliesEveryKindByName)
{
    ASSERT_TRUE(Apply(R"(<Output>
  <VideoCompressor Manufacture4cc="1161257812" Codec4cc="1701012335">
    <StandardSettings>
      <Bitrate Type="eInt" Value="5000"/>
      <KeyFrameInterval Type="eInt" Value=" -12"/>
      <Quality Type="eDouble" Value="0.25"/>
      <TwoPass Type="eBool" Value="True"/>
      <Nope Type="eInt" Value="1"/>
    </StandardSettings>
    <Audio><Bitrate Type="eInt" Value="1"/></Audio>
    <NonStandardSettings>
      <Preset Type="eEnum" Value="slow"/>
      <Tune Type="eEnum" Value="film"/>
      <Tune Type="eEnum" Value="grain"/>
      <Offset Type="eUnsignedInt" Value="7"/>
      <Twin Type="eInt" Value="9"/>
      <Bitrate Type="eInt" Value="1"/>
      <Gain Type="eDouble" Value="abc"/>
      <Gain Value="2.5"/>
      <Gain Type="eFloat" Value="3.5"/>
    </NonStandardSettings>
    <StandardSettings>
      <KeyFrameInterval Type="eInt" Value="250"/>
    </StandardSettings>
    <StandardSettings><!-- a comment first: nothing below applies -->
      <Bitrate Type="eInt" Value="1"/>
    </StandardSettings>
  </VideoCompressor>
</Output>)"));

    const TEchoReport report = Report();
    const std::pair<const char*, const char*> expected[] = {
        {"setting.Bitrate", "5000 sets=1"},   {"setting.KeyFrameInterval", "250 sets=2"},  // applied in document order
        {"setting.Quality", "0.25 sets=1"},   {"setting.TwoPass", "true sets=1"},
        {"setting.Preset", "slow sets=1"},    {"setting.Tune", "grain sets=2"},  // the later element wins
        {"setting.Offset", "7 sets=1"},       {"setting.Gain", "1 sets=0"},      // no value, no type, unknown type
        {"setting.ReturnStatus", "0 sets=0"},
    };
    for (const auto& [name, value] : expected)
        EXPECT_EQ(EchoValue(report, name), value) << name;
    // Every setting of that name receives the value.
    const auto twins = report.equal_range("setting.Twin");
    ASSERT_EQ(std::distance(twins.first, twins.second), 2);
    for (auto it = twins.first; it != twins.second; ++it)
        EXPECT_EQ(it->second, "9 sets=1");
}

TEST_F(PresetSettingsTest, AppliesNothingWithoutAStructure)
{
    const struct {
        const char* name;
        const char* preset;
        bool ok;
    } cases[] = {
        {"comment before the settings",
         "<Output><VideoCompressor><!-- c --><StandardSettings><Bitrate Type=\"eInt\" Value=\"1\"/>"
         "</StandardSettings></VideoCompressor></Output>",
         true},
        {"no VideoCompressor",
         "<Output><StandardSettings><Bitrate Type=\"eInt\" Value=\"1\"/></StandardSettings></Output>", true},
        {"empty VideoCompressor", "<Output><VideoCompressor/></Output>", true},
        {"wrong root",
         "<Input><VideoCompressor><StandardSettings><Bitrate Type=\"eInt\" Value=\"1\"/></StandardSettings>"
         "</VideoCompressor></Input>",
         false},
        {"garbage", "\x01\x02<", false},
    };
    for (const auto& test : cases) {
        EXPECT_EQ(Apply(test.preset), test.ok) << test.name;
        EXPECT_EQ(EchoValue(Report(), "setting.Bitrate"), "0 sets=0") << test.name;
    }
    // Null arguments are no-ops.
    DeSerializeSettingArray(nullptr, nullptr);
    DeSerializeSetting(nullptr, nullptr);
    std::string preset = "<Output><VideoCompressor/></Output>";
    EXPECT_TRUE(DeSerializeVideoCodecSettings(preset, nullptr));
}

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
