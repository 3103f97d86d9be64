// The service executable's command line, start-up failures, time-out and
// exit statuses.
#include <gtest/gtest.h>

#include <climits>

#include "ServiceHarness.h"
#include "service/ZKConvertToScalar.h"

using namespace evctest;

namespace {

// Runs program with arguments; exit status and standard error.
std::pair<int, std::string> RunProgram(const std::string& program, const std::vector<std::string>& arguments)
{
    evc::ServiceProcess process(program, arguments);
    if (!process.waitForExit(20000))
        return {-1, "did not end"};
    return {process.exitStatus(), process.lastErrorLines()};
}

TEST(ServiceProcess, WrongArgumentCountPrintsUsageAndExitsWithOne)
{
    const std::string program = BuildPath("bin/evc-service");
    const std::string usage = "USAGE: " + program + " clientShmKey clientProcessId clientApplicationName";
    for (const auto& arguments : std::vector<std::vector<std::string>>{{}, {"a", "1"}, {"a", "1", "b", "c"}}) {
        const auto [status, errors] = RunProgram(program, arguments);
        EXPECT_EQ(status, 1) << arguments.size();
        EXPECT_EQ(errors, usage);
    }
}

TEST(ServiceProcess, MissingSegmentExitsWithTwoAndTheAttachText)
{
    const std::string key = "/tmp/evc-no-such-segment-for-test";
    const auto [status, errors] = RunProgram(BuildPath("bin/evc-service"), {key, "1", "app"});
    EXPECT_EQ(status, 2);
    EXPECT_NE(errors.find("Error: TMessagePassingInterface failed to attach to shared memory segment, key: " + key),
              std::string::npos)
        << errors;
    EXPECT_TRUE(NothingLeftFor(key));
}

TEST(ServiceProcess, EmptyArgumentsStillCount)
{
    // Three arguments, the key empty: not a usage error but an attach failure.
    const auto [status, errors] = RunProgram(BuildPath("bin/evc-service"), {"", "", ""});
    EXPECT_EQ(status, 2);
    EXPECT_EQ(errors.find("USAGE"), std::string::npos);
}

TEST(ServiceProcess, SilentClientEndsTheLoopWithStatusZero)
{
    std::string key;
    {
        ServiceHarness harness(1 << 20, "bin/evc-service-short-timeout");
        key = harness.key();
        ASSERT_TRUE(harness.WaitResponse());
        EXPECT_EQ(harness.WaitExit(10000), 0);
        EXPECT_EQ(harness.process().lastErrorLines(),
                  "serviceLoop ExternalVideoCompressorService.mpi.readClient exception:\n"
                  "serviceLoop ExternalVideoCompressorService timed out: ");
    }
    EXPECT_TRUE(NothingLeftFor(key));
}

TEST(ZKConvertToScalar, ReadsLikeAFormattedStreamExtraction)
{
    const std::pair<const char*, long long> cases[] = {
        {" 42", 42},
        {"+42", 42},
        {"42xyz", 42},
        {"-7", -7},
        {"\t\n9", 9},
        {"0x2A", 0},
        {"abc", 0},
        {"", 0},
        {"99999999999999999999", 0},
        {"9223372036854775807", LLONG_MAX},
        {"-9223372036854775808", LLONG_MIN},
    };
    for (const auto& [text, value] : cases)
        EXPECT_EQ(ZKConvertToScalar<long long>(text), value) << '"' << text << '"';
    EXPECT_EQ(static_cast<unsigned long long>(ZKConvertToScalar<long long>("-7")), 0xFFFFFFFFFFFFFFF9ull);
}

}  // namespace
