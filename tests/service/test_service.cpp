// The real evc-service process: its command line and exit statuses, whole conversations over a
// segment the test creates, against the echo and faulty test plug-ins, and its sandbox: a running
// service is confined, and a plug-in that tries to run a program, make a process or reach the
// network ends the service with a report naming the call; the host only gets a ServiceError.
#include "ServiceHarness.h"
#include "plugins/bundles/EchoReport.h"

#include <csignal>
#include <fstream>
#include <iterator>

using namespace evctest;

namespace {

class Service : public ScratchTest {
protected:
    void SetUp() override
    {
        ScratchTest::SetUp();
        harness.reset(new ServiceHarness(1 << 20));
        Watch(harness->key());
        ASSERT_TRUE(harness->WaitResponse()) << harness->process().lastErrorLines();
    }
    void TearDown() override
    {
        // A service still serving leaves on the quit command, with status 0.
        if (harness->process().alive()) {
            harness->channel().SetCommand(CAExternalVideoProxySharedData::kQuit);
            harness->channel().PostCommand();
            EXPECT_EQ(harness->WaitExit(), 0) << harness->process().lastErrorLines();
        }
        harness.reset();
        ScratchTest::TearDown();
    }
    CAExternalVideoProxySharedData& Record() { return harness->record(); }
    TEchoReport Report() { return ParseEchoReport(harness->ReplyReport()); }

    std::unique_ptr<ServiceHarness> harness;
};

TEST(ServiceProgram, CommandLineAndStartUpFailures)
{
    const std::string program = BuildPath("bin/evc-service");
    const std::string usage = "USAGE: " + program + " clientShmKey clientProcessId clientApplicationName";
    const std::string noSegment = "Error: TMessagePassingInterface failed to attach to shared memory segment, key: ";
    const struct {
        std::vector<std::string> arguments;
        int status;
        std::string errors;  // in standard error
    } cases[] = {
        {{}, 1, usage},
        {{"a", "1"}, 1, usage},
        {{"a", "1", "b", "c"}, 1, usage},
        {{"/tmp/evc-no-such-segment", "1", "app"}, 2, noSegment + "/tmp/evc-no-such-segment"},
        {{"", "", ""}, 2, noSegment},  // empty arguments still count
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.arguments.size());
        evc::ServiceProcess process(program, c.arguments);
        ASSERT_TRUE(process.waitForExit(20000));
        EXPECT_EQ(process.exitStatus(), c.status);
        EXPECT_NE(process.lastErrorLines().find(c.errors), std::string::npos) << process.lastErrorLines();
    }
}

// Both end the service on their own, whatever the host-death watch does.
TEST(ServiceProgram, ASilentClientOrALockNeverReleasedEndsTheService)
{
    for (const bool holdLock : {false, true}) {
        SCOPED_TRACE(holdLock ? "lock never released" : "silent client");
        std::string key;
        {
            ServiceHarness harness(1 << 20, "bin/evc-service-short-timeout");
            key = harness.key();
            ASSERT_TRUE(harness.WaitResponse());
            CAMemoryMappedFile file;
            ASSERT_TRUE(!holdLock || (file.attach(key.c_str()) && file.lock()));
            // A host stopped halfway through a post: the count is up, the lock is kept. An idle
            // service reads the count without the lock, so only a count to take makes it wait for it.
            if (holdLock)
                __atomic_add_fetch(&harness.record().m_commandSemaphore.m_count, 1, __ATOMIC_RELEASE);
            EXPECT_EQ(harness.WaitExit(10000), holdLock ? 4 : 0);
            ASSERT_TRUE(!holdLock || file.unlock());
            EXPECT_EQ(harness.process().lastErrorLines(),
                      holdLock ? "evc-service: the segment's lock was not released within 500 ms; exiting"
                               : "serviceLoop ExternalVideoCompressorService.mpi.readClient exception:\n"
                                 "serviceLoop ExternalVideoCompressorService timed out: ");
        }
        EXPECT_FALSE(Exists(key) || LockExists(key));
    }
}

TEST_F(Service, CompressOperandShapesAndReplySizes)
{
    ASSERT_EQ(harness->SetOutput(EchoPreset("<NonStandardSettings><ReplyPadding Type=\"eInt\" Value=\"0\"/>"
                                            "</NonStandardSettings>")),
              0u);
    TestImage image(8, 8, 1, 25);
    ZKEncImage_t description = Description(image.record);
    description.streamValue = 0x1122334455667788ull;
    const uint32_t inSize = harness->WriteFrame(0, image.record);
    const struct {
        const char* what;
        bool input, output;
    } cases[] = {
        {"neither", false, false}, {"input only: nothing to reply into", true, false}, {"output only", false, true}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        harness->WriteFrame(0, image.record);
        const uint32_t outSize = harness->WriteFrame(c.input ? inSize : 0, description);
        Record().m_payloadSize0 = c.input ? int32_t(inSize) : 0;
        Record().m_payloadSize1 = c.output ? int32_t(outSize) : 0;
        EXPECT_EQ(harness->Send(3), 0u);
        EXPECT_EQ(Record().m_payloadSize0 != 0, c.output);
        if (c.output) {
            EXPECT_EQ(EchoValue(Report(), "input"), "null");
            EXPECT_EQ(EchoValue(Report(), "output.streamValue"), std::to_string(description.streamValue));
        }
    }
    // A reply larger than the area answers with its full size; a compressor's own failure wins.
    const auto settings = [&](int status) {
        return EchoPreset("<NonStandardSettings><ReplyPadding Type=\"eInt\" Value=\"2000000\"/><ReturnStatus "
                          "Type=\"eInt\" Value=\"" +
                          std::to_string(int32_t(status)) + "\"/></NonStandardSettings>");
    };
    for (const uint32_t status : {0u, kZKErrGeneral}) {
        ASSERT_EQ(harness->SetOutput(settings(status)), 0u);
        EXPECT_EQ(harness->Compress(image, false, false), status ? status : kZKErrFrameTooLarge);
        EXPECT_GT(Record().m_payloadSize0, 2000000);
    }
    Record().m_payloadSize0 = 0;
    EXPECT_EQ(harness->Send(1), kZKErrGeneral) << "Begin passes the status through too";
}

TEST_F(Service, MalformedRequestsGetBadArgumentAndTheServiceKeepsServing)
{
    ASSERT_EQ(harness->SetOutput(EchoPreset()), 0u);
    TestImage image(16, 16, 0, 25);
    const int32_t capacity = static_cast<int32_t>(harness->channel().payloadCapacity());
    const int32_t half = int32_t(harness->WriteFrame(0, image.record) / 2);
    const struct {
        const char* what;
        int command;
        int32_t sizes[3];
        bool zeros;  // 64 zero bytes first
    } cases[] = {
        {"not an image element", 3, {64, 0, 0}, true},
        {"a Begin sample that is not one", 1, {64, 0, 0}, true},
        {"past the payload area", 3, {capacity + 1, 0, 0}, false},
        {"past it in sum", 3, {capacity, capacity, 0}, false},
        {"a huge Begin sample", 1, {0x7fffffff, 0, 0}, false},
        {"huge preset strings", 5, {0x7fffffff, 0x7fffffff, 0x7fffffff}, false},
        {"a frame cut in half", 3, {half, 0, 0}, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        if (c.zeros)
            std::fill(harness->channel().payload(), harness->channel().payload() + 64, 0);
        Record().m_payloadSize0 = c.sizes[0];
        Record().m_payloadSize1 = c.sizes[1];
        Record().m_payloadSize2 = c.sizes[2];
        EXPECT_EQ(harness->Send(c.command), kZKErrBadArgument);
    }
    // A few bytes describing a picture far larger than the payload area could carry.
    ZKEncImage_t huge{};
    huge.image.colorFormat = eColorFormatYUV420Planar;
    huge.image.width = 4;
    huge.image.height = 2;
    huge.image.rowBytes[0] = 286000000;
    Record().m_payloadSize0 = int32_t(harness->WriteFrame(0, huge));
    Record().m_payloadSize1 = Record().m_payloadSize2 = 0;
    ASSERT_GT(Record().m_payloadSize0, 0);
    EXPECT_EQ(harness->Send(1), kZKErrBadArgument);
    EXPECT_EQ(harness->Compress(image, true, false), 0u);
    EXPECT_NE(harness->ReplyReport(), "");
}

TEST_F(Service, WaysTheServiceEnds)
{
    struct Case {
        const char* what;
        std::function<void(ServiceHarness&)> act;
        int status;
        std::string lastWords;  // the start of standard error
    };
    const auto post = [](ServiceHarness& h, int command) {
        h.channel().SetCommand(static_cast<CAExternalVideoProxySharedData::TCommand>(command));
        h.channel().PostCommand();
    };
    const Case cases[] = {
        {"quit first", [&](ServiceHarness& h) { post(h, 9); }, 0, ""},
        {"unsupported command", [&](ServiceHarness& h) { post(h, 10); }, 2, "Error: unsupported request: 10"},
        {"negative preset length",
         [&](ServiceHarness& h) {
             h.record().m_payloadSize0 = -1;
             post(h, 5);
         },
         2, "Error: "},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        if (!harness->process().alive()) {
            harness.reset(new ServiceHarness(1 << 20));
            Watch(harness->key());
            ASSERT_TRUE(harness->WaitResponse());
        }
        c.act(*harness);
        EXPECT_EQ(harness->WaitExit(), c.status);
        EXPECT_EQ(harness->process().lastErrorLines().rfind(c.lastWords, 0), 0u) << harness->process().lastErrorLines();
        EXPECT_FALSE(harness->channel().TimedWaitForResponse(0)) << "no response";
    }
}

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
