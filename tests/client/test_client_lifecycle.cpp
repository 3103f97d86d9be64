// The client's own life around the service: a start-up that fails after the
// spawn, a service that breaks the protocol, the descriptors the service
// inherits, and a host that dies while the service works for it.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>

#include "ServiceHarness.h"
#include "common/Scratch.h"
#include "evc/Client.h"
#include "ipc/details/AMemoryMappedFile.h"

using namespace evctest;

namespace {

using ClientLife = ScratchTest;

TEST_F(ClientLife, AStartThatFailsAfterTheSpawnLeavesNoChildAndNoSegment)
{
    struct Row {
        const char* name;
        const char* body;
        const char* says;
    };
    const Row rows[] = {
        {"exits", "echo going away >&2; exit 3", "exited with status 3"},
        {"never-answers", "exec sleep 30", "startTimeout"},
        // A megabyte without a line break, then the line that matters.
        {"floods", "head -c 1000000 /dev/zero | tr '\\0' x >&2; echo >&2; echo last words >&2; exit 4", "last words"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        // A shell script stands in for the service.
        evc::ClientOptions options = TestClientOptions();
        options.servicePath = Path(row.name);
        std::ofstream(options.servicePath) << "#!/bin/sh\n" << row.body << "\n";
        chmod(options.servicePath.c_str(), 0700);
        options.startTimeout = std::chrono::milliseconds(300);
        try {
            evc::Client client(options);
            ADD_FAILURE() << "started";
        } catch (const evc::ServiceError& e) {
            EXPECT_EQ(e.kind(), evc::ServiceError::Kind::StartFailed);
            EXPECT_NE(std::string(e.what()).find(row.says), std::string::npos) << row.says;
            EXPECT_LE(e.lastErrorLines().size(), 64u * 1024);
        }
        EXPECT_TRUE(NoChildLeft());
        std::filesystem::remove(options.servicePath);
    }
}

TEST_F(ClientLife, AServiceThatBreaksTheProtocolIsAServiceErrorNeverAStatus)
{
    const std::pair<const char*, const char*> rows[] = {
        {"unprompted", "a response arrived before"},
        {"negative-size", "reply size -5"},
        {"huge-size", "outside 0.."},
        {"garbage", "not a frame element"},
        {"empty-success", "succeeded without a reply"},
    };
    TestImage image(16, 16, 0, 25);
    for (const auto& [mode, says] : rows) {
        SCOPED_TRACE(mode);
        evc::ClientOptions options = TestClientOptions("bin/evc-rogue-service");
        options.applicationName = mode;
        evc::Client client(options);
        Watch(client.segmentKey());
        evc::EncodedFrame frame;
        // Time for the unprompted response to be posted: a response can be
        // refused only once it is there.
        usleep(50000);
        try {
            client.CompressFrame(&image.record, false, false, &frame);
            ADD_FAILURE() << "accepted";
        } catch (const evc::ServiceError& e) {
            EXPECT_EQ(e.kind(), evc::ServiceError::Kind::ProtocolViolation);
            EXPECT_NE(std::string(e.what()).find(says), std::string::npos) << e.what();
        }
        EXPECT_FALSE(client.serviceAlive());
        EXPECT_THROW(client.End(), evc::ServiceError);
    }
}

TEST_F(ClientLife, CallerMistakesAreUsageErrors)
{
    evc::Client client(TestClientOptions());
    Watch(client.segmentKey());
    TestImage huge(8000, 6000, 0, 25);
    EXPECT_THROW(client.CompressFrame(&huge.record, false, false, nullptr), evc::UsageError);
    EXPECT_THROW(client.SetOutput(std::string(client.payloadCapacity() + 1, ' ')), evc::UsageError);
    EXPECT_EQ(client.SetOutput(EchoPreset()), kZKNoErr);
    client.Quit();
    EXPECT_THROW(client.Begin(nullptr), evc::UsageError);
}

TEST_F(ClientLife, TheFlushMayTakeLongerPerPendingPictureAndTheErrorNamesTheLimit)
{
    evc::ClientOptions options = TestClientOptions();
    options.commandTimeout = std::chrono::milliseconds(200);
    options.pendingPictureTimeout = std::chrono::milliseconds(100);
    evc::Client client(options);
    Watch(client.segmentKey());
    // The faulty compressor returns no pictures and hangs on the fourth frame.
    ASSERT_EQ(client.SetOutput(FaultPreset("CompressFrame:hang:3")), kZKNoErr);
    TestImage image(16, 16, 0, 25);
    for (int n = 0; n < 3; ++n)
        ASSERT_EQ(client.CompressFrame(&image.record, false, false, nullptr), kZKNoErr);
    EXPECT_EQ(client.picturesPending(), 3u);
    try {
        client.CompressFrame(&image.record, false, true, nullptr);
        ADD_FAILURE() << "no time-out";
    } catch (const evc::ServiceError& e) {
        EXPECT_EQ(e.kind(), evc::ServiceError::Kind::TimedOut);
        EXPECT_NE(std::string(e.what()).find("within 600 ms (commandTimeout + 4 pending pictures x "
                                             "pendingPictureTimeout 100 ms)"),
                  std::string::npos)
            << e.what();
    }
}

TEST_F(ClientLife, TheServiceHoldsOnlyWhatItNeedsAlsoBesideAnotherSession)
{
    // A descriptor of the host's own that a careless spawn would hand on.
    const int hostFile = open(Path("host-private").c_str(), O_CREAT | O_RDWR, 0600);
    ASSERT_GE(hostFile, 0);
    {
        evc::Client first(TestClientOptions());
        evc::Client second(TestClientOptions());
        for (evc::Client* client : {&first, &second}) {
            Watch(client->segmentKey());
            ASSERT_EQ(client->SetOutput(EchoPreset()), kZKNoErr);
            TestImage image(16, 16, 0, 25);
            ASSERT_EQ(client->Begin(&image.record), kZKNoErr);
        }
        for (evc::Client* client : {&first, &second}) {
            const std::string folder = "/proc/" + std::to_string(client->servicePid()) + "/fd";
            for (const auto& entry : std::filesystem::directory_iterator(folder)) {
                std::error_code error;
                const std::string number = entry.path().filename(),
                                  target = std::filesystem::read_symlink(entry.path(), error);
                SCOPED_TRACE(number + " " + target);
                // The standard three, its own segment, the host watch's pidfd and the application
                // object's event queue.
                EXPECT_TRUE(number == "0" || number == "1" || number == "2" || target == client->segmentKey() ||
                            target == "anon_inode:[pidfd]" || target == "anon_inode:[eventfd]");
            }
        }
    }
    close(hostFile);
    std::filesystem::remove(Path("host-private"));
}

// Waits up to ms for a child of ours to end; true when it has (and is reaped).
bool Reaped(pid_t pid, int ms)
{
    for (int waited = 0; waited <= ms; waited += 10) {
        if (waitpid(pid, nullptr, WNOHANG) == pid)
            return true;
        usleep(10000);
    }
    return false;
}

TEST_F(ClientLife, AHostKilledMidEncodeLeavesNothingBehind)
{
    // The orphaned service becomes our child, so the test can see it end.
    ASSERT_EQ(prctl(PR_SET_CHILD_SUBREAPER, 1), 0);
    for (const bool holdLock : {false, true}) {
        SCOPED_TRACE(holdLock ? "died holding the segment's lock" : "died mid-encode");
        int report[2];
        ASSERT_EQ(pipe(report), 0);
        const pid_t host = fork();
        ASSERT_GE(host, 0);
        if (host == 0) {
            close(report[0]);
            evc::Client client(TestClientOptions());
            client.SetOutput(EchoPreset());
            TestImage image(64, 64, 0, 25);
            client.Begin(&image.record);
            client.CompressFrame(&image.record, true, false, nullptr);
            CAMemoryMappedFile file;
            if (holdLock && !(file.attach(client.segmentKey().c_str()) && file.lock()))
                _exit(1);
            const std::string line = std::to_string(client.servicePid()) + " " + client.segmentKey() + "\n";
            (void)!write(report[1], line.data(), line.size());
            for (uint64_t n = 1;; ++n) {
                image.record.image.time = n;
                if (!holdLock)
                    client.CompressFrame(&image.record, false, false, nullptr);
            }
        }
        close(report[1]);
        char text[4096] = {};
        FILE* in = fdopen(report[0], "r");
        (void)!fgets(text, sizeof text, in);
        fclose(in);
        const std::string line(text);
        ASSERT_NE(line.find(' '), std::string::npos) << "the host did not start";
        const pid_t service = std::stoi(line);
        const std::string key = line.substr(line.find(' ') + 1, line.find('\n') - line.find(' ') - 1);
        Watch(key);
        kill(host, SIGKILL);
        ASSERT_EQ(waitpid(host, nullptr, 0), host);
        EXPECT_TRUE(Reaped(service, 1000)) << "the service outlived its host";
        kill(service, SIGKILL);
        Reaped(service, 1000);
        // The next client sweeps whatever is left of the dead host's session.
        evc::Client next(TestClientOptions());
        Watch(next.segmentKey());
        EXPECT_FALSE(Exists(key));
        EXPECT_FALSE(LockExists(key));
    }
    prctl(PR_SET_CHILD_SUBREAPER, 0);
}

}  // namespace
