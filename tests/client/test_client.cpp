// The host side against the real service: a whole conversation, pictures lent in the segment,
// plug-ins that crash, hang or throw, which must cost the host nothing but an error, the listing of
// compressors and their settings, and a preset whose kinds the compressor does not declare refused
// before the service sees it.
#include "ServiceHarness.h"
#include "evc/Client.h"
#include "evc/CodecList.h"
#include "plugins/bundles/EchoReport.h"

#include <csignal>
#include <cstring>
#include <fstream>
#include <stdexcept>

using namespace evctest;

namespace {

using Client = ScratchTest;

// Whether [p, p + n) lies in this process's mapping of the file at path.
bool InMappingOf(const std::string& path, const uint8_t* p, size_t n)
{
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);) {
        unsigned long long from = 0, to = 0;
        if (line.size() > path.size() && line.compare(line.size() - path.size(), path.size(), path) == 0 &&
            std::sscanf(line.c_str(), "%llx-%llx", &from, &to) == 2)
            return reinterpret_cast<uintptr_t>(p) >= from && reinterpret_cast<uintptr_t>(p) + n <= to;
    }
    return false;
}

// The pictures travel with their exact pixels: the first from the host's memory, the second lent
// over the segment; pictures that cannot be lent are refused with the matching error.
TEST_F(Client, ConversationWithTheEchoCompressor)
{
    evc::Client client(TestClientOptions());
    Watch(client.segmentKey());
    EXPECT_TRUE(client.serviceAlive());
    EXPECT_EQ(client.Begin(nullptr), kZKErrNoCompressor);
    EXPECT_EQ(client.SetOutput("<nope/>"), kZKErrBadPreset);
    ASSERT_EQ(client.SetOutput(EchoPreset("<StandardSettings><Bitrate Type=\"eInt\" Value=\"800\"/>"
                                          "</StandardSettings>")),
              0u);
    EXPECT_EQ(client.SetStreamModeHint(3), 0u);
    const TestImage sample(64, 64, 3, 25, 9);
    EXPECT_EQ(client.Begin(&sample.record, true), 0u);
    for (uint8_t seed : {1, 2}) {
        SCOPED_TRACE(int(seed));
        TestImage image(64, 64, seed, 25, seed);
        ZKEncImage_t lent = image.record;
        if (seed == 2) {
            lent = client.LendPicture(eColorFormatYUV420Planar, 64, 64);
            ASSERT_EQ(lent.image.dataSize, image.bytes.size());
            EXPECT_TRUE(InMappingOf(client.segmentKey(), lent.image.planes[0], lent.image.dataSize));
            std::memcpy(lent.image.planes[0], image.bytes.data(), image.bytes.size());
            lent.image.time = seed;
            lent.image.timeScale = 25;
        }
        evc::EncodedFrame frame;
        ASSERT_EQ(client.CompressFrame(&lent, seed == 1, seed == 2, &frame), 0u);
        ASSERT_GE(frame.packets.size(), 2u);
        const TEchoReport report =
            ParseEchoReport(std::string(frame.packets[0].data.begin(), frame.packets[0].data.end()));
        EXPECT_EQ(EchoValue(report, "setting.Bitrate"), "800 sets=1");
        EXPECT_EQ(EchoValue(report, "streamModeHint"), "3");
        EXPECT_EQ(EchoValue(report, "keyFrame"), seed == 1 ? "1" : "0");
        EXPECT_EQ(frame.packets[0].time, seed);
        EXPECT_EQ(frame.packets[0].timeBase, 25u);
        EXPECT_TRUE(frame.packets[1].data == image.bytes);
        // The reply brings the packets back, not a picture buffer of its own as well.
        EXPECT_LT(frame.replyBytes, 2 * image.bytes.size());
        ASSERT_EQ(frame.descriptors.size(), 1u);
        EXPECT_EQ(std::string(frame.descriptors[0].descriptor.begin(), frame.descriptors[0].descriptor.end()),
                  kEchoDescriptor);
    }
    EXPECT_THROW(client.LendPicture(eColorFormatYUV420Planar, 16384, 16384), evc::UsageError);
    EXPECT_THROW(client.LendPicture(eColorFormatCount, 64, 64), std::invalid_argument);
    EXPECT_TRUE(client.IsLastPassEncodingReady());
    EXPECT_EQ(client.End(), 0u);
}

// A crash is reported as a crash (not after the time-out), a hang as a time-out, an exit with its
// status and last words; later commands fail the same way instead of waiting.
TEST_F(Client, PlugInFaultsCostTheHostOnlyAnError)
{
    using Kind = evc::ServiceError::Kind;
    const struct {
        const char* fault;
        Kind kind;
        int signal;
        const char* words;  // in the message or the last lines of standard error
    } cases[] = {
        {"CompressFrame:segv", Kind::Crashed, SIGSEGV, "signal 11"},
        {"CompressFrame:abort", Kind::Crashed, SIGABRT, "signal 6"},
        {"CompressFrame:hang", Kind::TimedOut, 0, ""},
        {"CompressFrame:throw", Kind::Exited, 0, "Error: "},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.fault);
        evc::Client client(TestClientOptions());
        Watch(client.segmentKey());
        ASSERT_EQ(client.SetOutput(FaultPreset(c.fault)), 0u);
        TestImage image(16, 16, 0, 25);
        try {
            client.CompressFrame(&image.record, false, false, nullptr);
            ADD_FAILURE() << "no error";
        } catch (const evc::ServiceError& e) {
            EXPECT_EQ(e.kind(), c.kind) << e.what();
            EXPECT_EQ(e.signal(), c.signal);
            const std::string words = e.what() + std::string("\n") + e.lastErrorLines();
            EXPECT_NE(words.find(c.words), std::string::npos) << words;
            if (c.kind == Kind::Exited) {
                EXPECT_NE(e.exitStatus(), 0);
            }
        }
        EXPECT_FALSE(client.serviceAlive());
        EXPECT_THROW(client.End(), evc::ServiceError);
    }
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
    const std::vector<evc::CodecInfo> codecs = evc::ListCodecs(TestClientOptions("bin/evc-service", 10000));
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

    evc::ClientOptions missing = TestClientOptions("bin/evc-service", 10000);
    missing.servicePath = BuildPath("bin/no-such-service");
    EXPECT_THROW(evc::ListCodecs(missing), evc::ServiceError);
}

TEST(CodecList, ClientRefusesAKindMismatchBeforeTheServiceSeesIt)
{
    const std::string wrongKind =
        EchoPreset("<StandardSettings><TwoPass Type=\"eDouble\" Value=\"1\"/></StandardSettings>");
    evc::Client client(TestClientOptions("bin/evc-service", 10000));
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
