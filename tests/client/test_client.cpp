// The host side against the real service: a whole conversation, and a
// plug-in that crashes or hangs, which must cost the host nothing but an error.
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/wait.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <cstring>
#include <stdexcept>

#include "ServiceHarness.h"
#include "evc/Client.h"
#include "plugins/bundles/EchoReport.h"

using namespace evctest;

namespace {

evc::ClientOptions TestOptions()
{
    evc::ClientOptions options;
    options.servicePath = BuildPath("bin/evc-service");
    options.applicationFolder = BuildPath("");
    options.largestFrameBytes = 64 * 64 * 3 / 2;
    options.commandTimeout = std::chrono::milliseconds(1500);
    return options;
}

std::string FaultPreset(const char* fault)
{
    return EchoPreset(std::string("<NonStandardSettings><Fault Type=\"eEnum\" Value=\"") + fault +
                          "\"/></NonStandardSettings>",
                      "faul");
}

// No child of this process is left, running or zombie.
bool NoChildLeft()
{
    return waitpid(-1, nullptr, WNOHANG) < 0 && errno == ECHILD;
}

TEST(Client, ConversationWithTheEchoCompressor)
{
    std::string key;
    {
        evc::Client client(TestOptions());
        key = client.segmentKey();
        EXPECT_TRUE(client.serviceAlive());
        EXPECT_EQ(client.Begin(nullptr), kZKErrNoCompressor);
        EXPECT_EQ(client.SetOutput("<nope/>"), kZKErrBadPreset);
        ASSERT_EQ(client.SetOutput(EchoPreset("<StandardSettings><Bitrate Type=\"eInt\" Value=\"800\"/>"
                                              "</StandardSettings>")),
                  0u);
        EXPECT_EQ(client.SetStreamModeHint(3), 0u);
        TestImage image(64, 64, 3, 25, 9);
        EXPECT_EQ(client.Begin(&image.record, true), 0u);

        evc::EncodedFrame frame;
        ASSERT_EQ(client.CompressFrame(&image.record, true, true, &frame), 0u);
        ASSERT_GE(frame.packets.size(), 2u);
        const TEchoReport report =
            ParseEchoReport(std::string(frame.packets[0].data.begin(), frame.packets[0].data.end()));
        EXPECT_EQ(EchoValue(report, "setting.Bitrate"), "800 sets=1");
        EXPECT_EQ(EchoValue(report, "streamModeHint"), "3");
        EXPECT_EQ(EchoValue(report, "keyFrame"), "1");
        EXPECT_EQ(frame.packets[0].time, 3u);
        EXPECT_EQ(frame.packets[0].timeBase, 25u);
        EXPECT_EQ(frame.packets[1].data, image.bytes);
        ASSERT_EQ(frame.descriptors.size(), 1u);
        EXPECT_EQ(std::string(frame.descriptors[0].descriptor.begin(), frame.descriptors[0].descriptor.end()),
                  kEchoDescriptor);
        EXPECT_TRUE(client.IsLastPassEncodingReady());
        EXPECT_EQ(client.End(), 0u);
    }
    EXPECT_TRUE(NothingLeftFor(key));
    EXPECT_TRUE(NoChildLeft());
}

TEST(Client, ACrashingPlugInIsReportedAtOnceAndTheHostCarriesOn)
{
    std::string key;
    {
        evc::Client client(TestOptions());
        key = client.segmentKey();
        ASSERT_EQ(client.SetOutput(FaultPreset("CompressFrame:segv")), 0u);
        TestImage image(16, 16, 0, 25);
        const auto start = std::chrono::steady_clock::now();
        try {
            client.CompressFrame(&image.record, false, false, nullptr);
            FAIL() << "no error for a crashed service";
        } catch (const evc::ServiceError& e) {
            EXPECT_EQ(e.kind(), evc::ServiceError::Kind::Crashed);
            EXPECT_EQ(e.signal(), SIGSEGV);
            EXPECT_NE(std::string(e.what()).find("signal 11"), std::string::npos) << e.what();
        }
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
        EXPECT_FALSE(client.serviceAlive());
        // Later commands fail the same way instead of waiting.
        EXPECT_THROW(client.End(), evc::ServiceError);
    }
    EXPECT_TRUE(NothingLeftFor(key));
    EXPECT_TRUE(NoChildLeft());
}

TEST(Client, AHungPlugInIsStoppedAfterTheTimeOut)
{
    std::string key;
    {
        evc::Client client(TestOptions());
        key = client.segmentKey();
        ASSERT_EQ(client.SetOutput(FaultPreset("CompressFrame:hang")), 0u);
        TestImage image(16, 16, 0, 25);
        const auto start = std::chrono::steady_clock::now();
        try {
            client.CompressFrame(&image.record, false, false, nullptr);
            FAIL() << "no error for a hung service";
        } catch (const evc::ServiceError& e) {
            EXPECT_EQ(e.kind(), evc::ServiceError::Kind::TimedOut);
        }
        const auto waited = std::chrono::steady_clock::now() - start;
        EXPECT_GE(waited, std::chrono::milliseconds(1500));
        EXPECT_LT(waited, std::chrono::milliseconds(4000));
        EXPECT_FALSE(client.serviceAlive());
    }
    EXPECT_TRUE(NothingLeftFor(key));
    EXPECT_TRUE(NoChildLeft());
}

TEST(Client, AServiceThatExitsIsReportedWithItsStatusAndLastWords)
{
    evc::Client client(TestOptions());
    ASSERT_EQ(client.SetOutput(FaultPreset("Begin:throw")), 0u);
    try {
        client.Begin(nullptr);
        FAIL() << "no error for an ended service";
    } catch (const evc::ServiceError& e) {
        EXPECT_TRUE(e.kind() == evc::ServiceError::Kind::Exited || e.kind() == evc::ServiceError::Kind::Crashed);
        if (e.kind() == evc::ServiceError::Kind::Exited) {
            EXPECT_NE(e.exitStatus(), 0);
            EXPECT_NE(e.lastErrorLines().find("Error: "), std::string::npos) << e.lastErrorLines();
        }
    }
}

TEST(Client, AMissingServiceProgramFailsToStart)
{
    evc::ClientOptions options = TestOptions();
    options.servicePath = BuildPath("bin/no-such-service");
    try {
        evc::Client client(options);
        FAIL() << "started a missing program";
    } catch (const evc::ServiceError& e) {
        EXPECT_EQ(e.kind(), evc::ServiceError::Kind::StartFailed);
        EXPECT_NE(std::string(e.what()).find("no-such-service"), std::string::npos);
    }
    EXPECT_TRUE(NoChildLeft());
}

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

// A picture lent over the segment is read back by the service with exactly
// the pixels written into it, frame after frame; pictures that cannot be lent
// are refused with the matching error.
TEST(Client, ALentPictureTravelsWithItsExactPixels)
{
    evc::Client client(TestOptions());
    ASSERT_EQ(client.SetOutput(EchoPreset()), 0u);
    for (uint8_t seed : {1, 2}) {
        SCOPED_TRACE(int(seed));
        const TestImage image(64, 64, seed, 25, seed);
        ZKEncImage_t lent = client.LendPicture(eColorFormatYUV420Planar, 64, 64);
        ASSERT_EQ(lent.image.dataSize, image.bytes.size());
        EXPECT_TRUE(InMappingOf(client.segmentKey(), lent.image.planes[0], lent.image.dataSize));
        std::memcpy(lent.image.planes[0], image.bytes.data(), image.bytes.size());
        lent.image.time = seed;
        lent.image.timeScale = 25;
        evc::EncodedFrame frame;
        ASSERT_EQ(client.CompressFrame(&lent, seed == 1, false, &frame), 0u);
        ASSERT_GE(frame.packets.size(), 2u);
        EXPECT_EQ(frame.packets[0].time, seed);
        EXPECT_TRUE(frame.packets[1].data == image.bytes);
    }
    EXPECT_THROW(client.LendPicture(eColorFormatYUV420Planar, 16384, 16384), evc::UsageError);
    EXPECT_THROW(client.LendPicture(eColorFormatCount, 64, 64), std::invalid_argument);
}

}  // namespace
