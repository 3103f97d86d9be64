// The service's sandbox: a running service is confined, and a plug-in that
// tries to run a program, make a process or reach the network ends the
// service with a report naming the call; the host only gets a ServiceError.
#include <gtest/gtest.h>

#include <csignal>
#include <fstream>
#include <iterator>

#include "ServiceHarness.h"

using namespace evctest;

namespace {

std::string StatusField(int pid, const std::string& field)
{
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(status, line);) {
        if (line.compare(0, field.size() + 1, field + ":") == 0)
            return line.substr(line.find_first_not_of(" \t", field.size() + 1));
    }
    return "";
}

TEST(Sandbox, ARunningServiceIsConfined)
{
    ServiceHarness harness;
    ASSERT_TRUE(harness.WaitResponse()) << harness.process().lastErrorLines();
    EXPECT_EQ(StatusField(harness.process().pid(), "Seccomp"), "2");
    EXPECT_EQ(StatusField(harness.process().pid(), "NoNewPrivs"), "1");
}

TEST(Sandbox, MemoryLimitReachesTheService)
{
#if defined(EVC_SANITIZE_ADDRESS) || defined(EVC_SANITIZE_THREAD)
    GTEST_SKIP() << "sanitizers reserve more address space than any useful limit";
#endif
    evc::ClientOptions options = TestClientOptions();
    options.maxServiceMemoryBytes = uint64_t(3) << 30;
    evc::Client client(options);
    std::ifstream limits("/proc/" + std::to_string(client.servicePid()) + "/limits");
    std::string text((std::istreambuf_iterator<char>(limits)), std::istreambuf_iterator<char>());
    EXPECT_NE(text.find("Max address space         3221225472           3221225472"), std::string::npos) << text;
    EXPECT_EQ(client.SetOutput(EchoPreset()), 0u);
}

TEST(Sandbox, EachForbiddenAttemptEndsTheServiceWithItsName)
{
    const struct {
        const char* attempt;
        const char* reported;  // nullptr: allowed, the frame succeeds
    } rows[] = {
        {"nothing", nullptr},
        {"execve", "sandbox refused execve"},
        {"fork", "sandbox refused clone (a new process)"},
        {"socket", "sandbox refused socket"},
        {"connect", "sandbox refused connect"},
    };
    TestImage image(16, 16, 0, 25);
    for (const auto& row : rows) {
        SCOPED_TRACE(row.attempt);
        evc::Client client(TestClientOptions());
        ASSERT_EQ(
            client.SetOutput(row.reported ? FaultPreset(std::string("CompressFrame:") + row.attempt) : EchoPreset()),
            0u);
        evc::EncodedFrame frame;
        if (row.reported == nullptr) {
            EXPECT_EQ(client.CompressFrame(&image.record, true, false, &frame), 0u);
            continue;
        }
        try {
            client.CompressFrame(&image.record, true, false, &frame);
            ADD_FAILURE() << "the attempt was not refused";
        } catch (const evc::ServiceError& e) {
            EXPECT_EQ(e.kind(), evc::ServiceError::Kind::Crashed);
            EXPECT_EQ(e.signal(), SIGSYS);
            EXPECT_NE(e.lastErrorLines().find(row.reported), std::string::npos) << e.what();
        }
        EXPECT_FALSE(client.serviceAlive());
    }
}

}  // namespace
