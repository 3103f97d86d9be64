// Whole conversations with the real evc-service process over a segment made
// by the test, against the echo and faulty test plug-ins.
#include <gtest/gtest.h>

#include <sys/wait.h>

#include <cerrno>
#include <csignal>

#include "ServiceHarness.h"
#include "plugins/bundles/EchoReport.h"
#include "transport/ExternalVideoProxy.h"

using namespace evctest;

namespace {

constexpr uint32_t kNoCompressor = kZKErrNoCompressor;
constexpr uint32_t kBadPreset = kZKErrBadPreset;
constexpr uint32_t kBadArgument = kZKErrBadArgument;

class ServiceConversation : public ::testing::Test {
protected:
    void SetUp() override
    {
        harness.reset(new ServiceHarness);
        key = harness->key();
        ASSERT_TRUE(harness->WaitResponse()) << harness->process().lastErrorLines();
    }
    void TearDown() override
    {
        // A service still serving must leave on the quit command, status 0.
        if (harness->process().alive()) {
            harness->channel().SetCommand(CAExternalVideoProxySharedData::kQuit);
            harness->channel().PostCommand();
            EXPECT_EQ(harness->WaitExit(), 0) << harness->process().lastErrorLines();
        }
        EXPECT_FALSE(harness->process().alive());
        harness.reset();
        EXPECT_TRUE(NothingLeftFor(key)) << key;
        EXPECT_TRUE(waitpid(-1, nullptr, WNOHANG) < 0 && errno == ECHILD) << "a child process is left";
    }
    // Command 3 with an input frame and an output description after it.
    uint32_t Compress(const TestImage& input, bool key, bool last)
    {
        const uint32_t in = harness->WriteFrame(0, input.record);
        ZKEncImage_t outputDescription{};
        outputDescription.image = input.record.image;
        outputDescription.image.dataSize = 0;
        for (auto& plane : outputDescription.image.planes)
            plane = nullptr;
        const uint32_t out = harness->WriteFrame(in, outputDescription);
        harness->record().m_payloadSize0 = static_cast<int32_t>(in);
        harness->record().m_payloadSize1 = static_cast<int32_t>(out);
        harness->channel().SetIsKeyFrame(key);
        harness->channel().SetIsLastFrame(last);
        return harness->Send(3);
    }

    std::unique_ptr<ServiceHarness> harness;
    std::string key;
};

TEST_F(ServiceConversation, QuitAsFirstCommandEndsWithStatusZeroAndNoResponse)
{
    harness->channel().SetCommand(CAExternalVideoProxySharedData::kQuit);
    harness->channel().PostCommand();
    EXPECT_EQ(harness->WaitExit(), 0);
    EXPECT_FALSE(harness->channel().TimedWaitForResponse(0));
    EXPECT_EQ(harness->process().lastErrorLines(), "");
}

TEST_F(ServiceConversation, CommandsBeforeACompressorAnswerNoCompressor)
{
    for (int command : {1, 2, 3, 4, 6, 7, 8})
        EXPECT_EQ(harness->Send(command), kNoCompressor) << "command " << command;
    // A preset whose codes nobody offers leaves the service without one.
    EXPECT_EQ(harness->SetOutput(EchoPreset("", "none")), kNoCompressor);
    EXPECT_EQ(harness->Send(2), kNoCompressor);
    for (const char* preset : {"", "<Input/>", "not xml at all", "<?xml version=\"1.0\"?><output/>"})
        EXPECT_EQ(harness->SetOutput(preset), kBadPreset) << preset;
    EXPECT_EQ(harness->Send(9), ~0u);
    EXPECT_EQ(harness->WaitExit(), 0);
}

TEST_F(ServiceConversation, PresetSettingsReachTheEchoCompressor)
{
    const std::string settings = "    <StandardSettings>\n"
                                 "      <Bitrate Type=\"eInt\" Value=\"1234\"/>\n"
                                 "      <TwoPass Type=\"eBool\" Value=\"true\"/>\n"
                                 "      <Quality Type=\"eDouble\" Value=\"0.75\"/>\n"
                                 "      <Preset Type=\"eEnum\" Value=\"standard-only-name\"/>\n"
                                 "    </StandardSettings>\n"
                                 "    <NonStandardSettings>\n"
                                 "      <Preset Type=\"eEnum\" Value=\"slow\"/>\n"
                                 "      <Offset Type=\"eUnsignedInt\" Value=\"-1\"/>\n"
                                 "      <Twin Type=\"eInt\" Value=\"3\"/>\n"
                                 "      <Twin Type=\"eInt\" Value=\"9\"/>\n"
                                 "    </NonStandardSettings>\n";
    ASSERT_EQ(harness->SetOutput(EchoPreset(settings)), 0u);
    TestImage image(16, 8, 40, 600);
    ASSERT_EQ(Compress(image, true, false), 0u);
    const TEchoReport report = ParseEchoReport(harness->ReplyReport());
    EXPECT_EQ(EchoValue(report, "setting.Bitrate"), "1234 sets=1");
    // Only "True" is true.
    EXPECT_EQ(EchoValue(report, "setting.TwoPass"), "false sets=1");
    EXPECT_EQ(EchoValue(report, "setting.Quality"), "0.75 sets=1");
    EXPECT_EQ(EchoValue(report, "setting.Preset"), "slow sets=1");
    EXPECT_EQ(EchoValue(report, "setting.Offset"), "-1 sets=1");
    // Both settings named Twin get each value; the later element wins.
    const auto twins = report.equal_range("setting.Twin");
    ASSERT_EQ(std::distance(twins.first, twins.second), 2);
    for (auto it = twins.first; it != twins.second; ++it)
        EXPECT_EQ(it->second, "9 sets=2");
}

TEST_F(ServiceConversation, FramesHintsAndBeginSampleArriveIntact)
{
    ASSERT_EQ(harness->SetOutput(EchoPreset()), 0u);
    harness->record().m_inputColorFormat = 6;
    EXPECT_EQ(harness->Send(6), 0u);
    harness->record().m_fileFormatHint = 0xABCD;
    EXPECT_EQ(harness->Send(7), 0u);
    harness->record().m_streamModeHint = 77;
    EXPECT_EQ(harness->Send(8), 0u);

    // Command 1 without a sample, then with one.
    harness->record().m_payloadSize0 = 0;
    harness->record().m_beginFlag = 0;
    EXPECT_EQ(harness->Send(1), 0u);
    TestImage sample(32, 16, 0, 25);
    harness->record().m_payloadSize0 = static_cast<int32_t>(harness->WriteFrame(0, sample.record));
    harness->record().m_beginFlag = 1;
    EXPECT_EQ(harness->Send(1), 0u);

    TestImage image(32, 16, 1001, 30000, 5);
    ASSERT_EQ(Compress(image, false, true), 0u);
    const TEchoReport report = ParseEchoReport(harness->ReplyReport());
    EXPECT_EQ(EchoValue(report, "keyFrame"), "0");
    EXPECT_EQ(EchoValue(report, "lastFrame"), "1");
    EXPECT_EQ(EchoValue(report, "input.width"), "32");
    EXPECT_EQ(EchoValue(report, "input.height"), "16");
    EXPECT_EQ(EchoValue(report, "input.time"), "1001");
    EXPECT_EQ(EchoValue(report, "input.timeScale"), "30000");
    EXPECT_EQ(EchoValue(report, "input.dataSize"), std::to_string(image.bytes.size()));
    EXPECT_EQ(EchoValue(report, "fileFormatHint"), std::to_string(0xABCD));
    EXPECT_EQ(EchoValue(report, "streamModeHint"), "77");
    EXPECT_EQ(EchoValue(report, "inputColorFormat"), "6");
    EXPECT_EQ(EchoValue(report, "begins"), "2");

    // The pixels the compressor saw are the ones sent, and the begin record
    // travels in the descriptors.
    ExternalVideoProxy proxy;
    proxy.Begin(harness->channel().payload(), static_cast<uint32_t>(harness->record().m_payloadSize0));
    TZKImageFramePtr reply = proxy.DeSerializeFrame(static_cast<uint32_t>(harness->record().m_payloadSize0));
    ASSERT_TRUE(reply);
    const ZKEncImage_t out = reply->GetZKEncImage();
    ASSERT_NE(out.image.dataPackets, nullptr);
    ASSERT_GE(out.image.dataPackets->size(), 2u);
    EXPECT_EQ(PacketData(out.image.dataPackets->get(1)), std::string(image.bytes.begin(), image.bytes.end()));
    ASSERT_NE(out.descriptors, nullptr);
    ASSERT_EQ(out.descriptors->size(), 1u);
    const TEchoReport begin = ParseEchoReport(PacketData(out.descriptors->get(0)));
    EXPECT_EQ(EchoValue(begin, "begin.flag"), "1");
    EXPECT_EQ(EchoValue(begin, "begin.sample.width"), "32");
    EXPECT_EQ(EchoValue(begin, "begin.sample.timeScale"), "25");

    // Command 4 after the last frame, then command 2.
    harness->record().m_isLastPassEncodingReady = 0;
    EXPECT_EQ(harness->Send(4), 0u);
    EXPECT_EQ(harness->record().m_isLastPassEncodingReady, 1);
    EXPECT_EQ(harness->Send(2), 0u);
}

TEST_F(ServiceConversation, CompressFrameOperandShapes)
{
    ASSERT_EQ(harness->SetOutput(EchoPreset()), 0u);

    // Both sizes 0: two null descriptions, no reply.
    harness->record().m_payloadSize0 = 0;
    harness->record().m_payloadSize1 = 0;
    EXPECT_EQ(harness->Send(3), 0u);
    EXPECT_EQ(harness->record().m_payloadSize0, 0);

    // Input only: nothing to reply into.
    TestImage image(8, 8, 1, 25);
    harness->record().m_payloadSize0 = static_cast<int32_t>(harness->WriteFrame(0, image.record));
    harness->record().m_payloadSize1 = 0;
    EXPECT_EQ(harness->Send(3), 0u);
    EXPECT_EQ(harness->record().m_payloadSize0, 0);

    // Output description only: read from the start of the payload.
    ZKEncImage_t description{};
    description.image = image.record.image;
    description.image.dataSize = 0;
    for (auto& plane : description.image.planes)
        plane = nullptr;
    description.streamValue = 0x1122334455667788ull;
    harness->record().m_payloadSize0 = 0;
    harness->record().m_payloadSize1 = static_cast<int32_t>(harness->WriteFrame(0, description));
    EXPECT_EQ(harness->Send(3), 0u);
    const TEchoReport report = ParseEchoReport(harness->ReplyReport());
    EXPECT_EQ(EchoValue(report, "input"), "null");
    EXPECT_EQ(EchoValue(report, "output.streamValue"), std::to_string(0x1122334455667788ull));
}

TEST_F(ServiceConversation, MalformedRequestsGetBadArgumentAndServiceKeepsServing)
{
    ASSERT_EQ(harness->SetOutput(EchoPreset()), 0u);
    uint8_t* payload = harness->channel().payload();

    // Bytes that are not an image element.
    std::fill(payload, payload + 64, 0);
    harness->record().m_payloadSize0 = 64;
    harness->record().m_payloadSize1 = 0;
    EXPECT_EQ(harness->Send(3), kBadArgument);
    harness->record().m_payloadSize0 = 64;
    EXPECT_EQ(harness->Send(1), kBadArgument);

    // Lengths past the payload area, alone and in sum.
    const int32_t capacity = static_cast<int32_t>(harness->channel().payloadCapacity());
    harness->record().m_payloadSize0 = capacity + 1;
    EXPECT_EQ(harness->Send(3), kBadArgument);
    harness->record().m_payloadSize0 = capacity;
    harness->record().m_payloadSize1 = capacity;
    EXPECT_EQ(harness->Send(3), kBadArgument);
    harness->record().m_payloadSize0 = 0x7fffffff;
    EXPECT_EQ(harness->Send(1), kBadArgument);
    harness->record().m_payloadSize0 = 0x7fffffff;
    harness->record().m_payloadSize1 = 0x7fffffff;
    harness->record().m_payloadSize2 = 0x7fffffff;
    EXPECT_EQ(harness->Send(5), kBadArgument);

    // A truncated frame element: the first half of a good one.
    TestImage image(16, 16, 0, 25);
    const uint32_t size = harness->WriteFrame(0, image.record);
    harness->record().m_payloadSize0 = static_cast<int32_t>(size / 2);
    harness->record().m_payloadSize1 = 0;
    EXPECT_EQ(harness->Send(3), kBadArgument);

    // Still serving.
    EXPECT_EQ(Compress(image, true, false), 0u);
    EXPECT_NE(harness->ReplyReport(), "");
}

TEST_F(ServiceConversation, CompressorStatusIsPassedThrough)
{
    const std::string settings =
        "<NonStandardSettings><ReturnStatus Type=\"eInt\" Value=\"-2147418111\"/></NonStandardSettings>";
    ASSERT_EQ(harness->SetOutput(EchoPreset(settings)), 0u);
    harness->record().m_payloadSize0 = 0;
    EXPECT_EQ(harness->Send(1), kZKErrGeneral);
    TestImage image(8, 8, 0, 25);
    EXPECT_EQ(Compress(image, false, false), kZKErrGeneral);
}

TEST_F(ServiceConversation, UnsupportedCodesEndTheServiceWithStatusTwo)
{
    harness->channel().SetCommand(static_cast<CAExternalVideoProxySharedData::TCommand>(10));
    harness->channel().PostCommand();
    EXPECT_EQ(harness->WaitExit(), 2);
    EXPECT_EQ(harness->process().lastErrorLines(), "Error: unsupported request: 10");
    EXPECT_FALSE(harness->channel().TimedWaitForResponse(0));
}

TEST_F(ServiceConversation, NegativeSetOutputLengthEndsTheService)
{
    harness->record().m_payloadSize0 = -1;
    harness->record().m_payloadSize1 = 0;
    harness->record().m_payloadSize2 = 0;
    harness->channel().SetCommand(CAExternalVideoProxySharedData::kSetOutput);
    harness->channel().PostCommand();
    EXPECT_EQ(harness->WaitExit(), 2);
    EXPECT_EQ(harness->process().lastErrorLines().rfind("Error: ", 0), 0u);
}

TEST_F(ServiceConversation, ACrashingCompressorTakesOnlyTheServiceDown)
{
    ASSERT_EQ(
        harness->SetOutput(EchoPreset(
            "<NonStandardSettings><Fault Type=\"eEnum\" Value=\"CompressFrame:segv\"/></NonStandardSettings>", "faul")),
        0u);
    TestImage image(8, 8, 0, 25);
    EXPECT_EQ(Compress(image, false, false), ~0u);
    EXPECT_EQ(harness->WaitExit(), 128 + SIGSEGV);
}

}  // namespace
