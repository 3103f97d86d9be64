// The listing of compressors and their settings through the service's listing
// mode, and the client refusing a preset whose kinds the compressor does not
// declare before the service sees it.
#include <gtest/gtest.h>

#include "ServiceHarness.h"
#include "evc/CodecList.h"
#include "plugins/bundles/TestPluginCodes.h"

using namespace evctest;

namespace {

evc::ClientOptions ListOptions()
{
    return TestClientOptions("bin/evc-service", 10000);
}

const evc::SettingInfo* Find(const std::vector<evc::CodecInfo>& codecs, uint32_t codec, const std::string& name)
{
    for (const evc::CodecInfo& info : codecs) {
        for (const evc::SettingInfo& setting : info.settings) {
            if (info.codec == codec && setting.name == name)
                return &setting;
        }
    }
    return nullptr;
}

TEST(CodecList, ListsEveryOfferWithKindsDefaultsAndRanges)
{
    const std::vector<evc::CodecInfo> codecs = evc::ListCodecs(ListOptions());
    const struct {
        uint32_t codec;
        const char* name;
        bool standard;
        const char* kind;
        const char* defaultValue;
        const char* range;
    } rows[] = {
        {evc::h264::kCodec, "Bitrate", true, "eInt", "0", "0..2147483647"},
        {evc::h264::kCodec, "CRF", false, "eDouble", "23", "0..51"},
        {evc::h264::kCodec, "Profile", false, "eEnum", "auto", "auto|baseline|main|high"},
        {kEchoCodec, "TwoPass", true, "eBool", "False", ""},
        {kEchoCodec, "Offset", false, "eUnsignedInt", "0", ""},
        // The twin offer of the echo bundle is not described: names only.
        {kTwinCodec, "Gain", false, "", "", ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const evc::SettingInfo* setting = Find(codecs, row.codec, row.name);
        ASSERT_NE(setting, nullptr);
        EXPECT_EQ(setting->standard, row.standard);
        EXPECT_EQ(setting->kind, row.kind);
        EXPECT_EQ(setting->defaultValue, row.defaultValue);
        EXPECT_EQ(setting->range, row.range);
    }
    for (const evc::CodecInfo& info : codecs)
        EXPECT_NE(info.codec, kGpuCodec) << "GPU bundles are never loaded";

    evc::ClientOptions missing = ListOptions();
    missing.servicePath = BuildPath("bin/no-such-service");
    EXPECT_THROW(evc::ListCodecs(missing), evc::ServiceError);
}

TEST(CodecList, ClientRefusesAKindMismatchBeforeTheServiceSeesIt)
{
    const std::string wrongKind =
        EchoPreset("<StandardSettings><TwoPass Type=\"eDouble\" Value=\"1\"/></StandardSettings>");
    evc::Client client(ListOptions());
    try {
        client.SetOutput(wrongKind);
        FAIL() << "the preset was sent";
    } catch (const evc::PresetError& e) {
        EXPECT_NE(std::string(e.what()).find("\"TwoPass\" is given as eDouble but the compressor declares eBool"),
                  std::string::npos)
            << e.what();
    }
    // Nothing reached the service: it has no compressor yet.
    EXPECT_EQ(client.Begin(nullptr), kZKErrNoCompressor);
    EXPECT_EQ(client.SetOutput(EchoPreset("<StandardSettings><TwoPass Type=\"eBool\" Value=\"True\"/>"
                                          "<Bitrate Type=\"eUnsignedInt\" Value=\"7\"/></StandardSettings>")),
              0u);
}

}  // namespace
