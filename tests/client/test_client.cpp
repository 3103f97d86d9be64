// The host side against the real service: a whole conversation, pictures lent in the segment, plug-
// ins that crash, hang or throw, which must cost the host nothing but an error, the listing of
// compressors and their settings, and a preset whose kinds the compressor does not declare refused
// before the service sees it. And the client's own life around the service: a start-up that fails
// after the spawn, a service that breaks the protocol, the descriptors the service inherits, and a
// host that dies while the service works for it.
#include "ServiceHarness.h"
#include "client/Handles.h"
#include "client/ServiceProcess.h"
#include "common/Scratch.h"
#include "evc/Client.h"
#include "evc/CodecList.h"
#include "ipc/details/AMemoryMappedFile.h"
#include "ipc/details/QuickWakeUps.h"
#include "plugins/bundles/EchoReport.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <stdexcept>
#include <thread>

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
// over the segment and sent in two steps (nothing may touch the segment between them); pictures
// that cannot be lent are refused with the matching error.
TEST_F(Client, ConversationWithTheEchoCompressor)
{
    evc::Client client(TestClientOptions());
    Watch(client.segmentKey());
    EXPECT_TRUE(client.serviceAlive());
    EXPECT_EQ(client.Begin(nullptr), kZKErrNoCompressor);
    EXPECT_EQ(client.SetOutput("<nope/>"), kZKErrBadPreset);
    ASSERT_EQ(client.SetOutput(EchoPreset("<StandardSettings><Bitrate Type=\"eInt\" Value=\"800\"/><TwoPass "
                                          "Type=\"eBool\" Value=\"true\"/></StandardSettings>")),
              0u);
    EXPECT_EQ(client.SetStreamModeHint(3), 0u);
    EXPECT_EQ(client.SetFileFormatHint(4), 0u);
    EXPECT_EQ(client.SetInputColorFormat(5), 0u);
    EXPECT_EQ(client.Begin(nullptr), 0u) << "no sample";
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
        if (seed == 1) {
            ASSERT_EQ(client.CompressFrame(&lent, true, false, &frame), 0u);
        } else {
            client.PostCompressFrame(&lent, false, true);
            EXPECT_TRUE(client.compressPosted());
            EXPECT_THROW(client.LendPicture(eColorFormatYUV420Planar, 64, 64), evc::UsageError);
            EXPECT_THROW(client.PostCompressFrame(&lent, false, true), evc::UsageError);
            EXPECT_THROW(client.SetStreamModeHint(3), evc::UsageError);
            ASSERT_EQ(client.CollectCompressFrame(&frame), 0u);
            EXPECT_THROW(client.CollectCompressFrame(&frame), evc::UsageError) << "collected once";
        }
        ASSERT_GE(frame.packets.size(), 2u);
        const TEchoReport report =
            ParseEchoReport(std::string(frame.packets[0].data.begin(), frame.packets[0].data.end()));
        EXPECT_EQ(EchoValue(report, "setting.Bitrate"), "800 sets=1");
        EXPECT_EQ(EchoValue(report, "setting.TwoPass"), "false sets=1") << "only \"True\" is true";
        EXPECT_EQ(EchoValue(report, "streamModeHint"), "3");
        EXPECT_EQ(EchoValue(report, "fileFormatHint"), "4");
        EXPECT_EQ(EchoValue(report, "inputColorFormat"), "5");
        EXPECT_EQ(EchoValue(report, "begins"), "2");
        EXPECT_EQ(EchoValue(report, "keyFrame"), seed == 1 ? "1" : "0");
        EXPECT_EQ(frame.packets[0].time, seed);
        EXPECT_EQ(frame.packets[0].timeBase, 25u);
        EXPECT_TRUE(frame.packets[1].data == image.bytes);
        // The reply brings the packets back, not a picture buffer of its own as well.
        EXPECT_LT(frame.replyBytes, 2 * image.bytes.size());
        ASSERT_EQ(frame.descriptors.size(), 1u);
        EXPECT_EQ(std::string(frame.descriptors[0].descriptor.begin(), frame.descriptors[0].descriptor.end()),
                  kEchoDescriptor);
        const TEchoReport begin =
            ParseEchoReport(std::string(frame.descriptors[0].data.begin(), frame.descriptors[0].data.end()));
        EXPECT_EQ(EchoValue(begin, "begin.flag"), "1");
        EXPECT_EQ(EchoValue(begin, "begin.sample.time"), "3");
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

using ClientLife = ScratchTest;

// A handle without a child must not ask after the host's other children (waitpid(0) would reap them).
TEST(ChildHandle, AnEmptyHandleLeavesTheHostsOtherChildrenAlone)
{
    const pid_t other = fork();
    if (other == 0)
        _exit(0);
    siginfo_t info{};
    EXPECT_EQ(waitid(P_PID, other, &info, WEXITED | WNOWAIT), 0);  // a zombie, not reaped
    evc::ChildHandle none;
    EXPECT_FALSE(none.alive());
    EXPECT_EQ(waitpid(other, nullptr, 0), other);
}

// The end is told once the child is reapable (so a woken wait finds it gone, without looping), again
// while the callback asks and never while it lives; the pipe is still read to its end.
TEST(ServiceProcess, TellsTheChildsEndAndKeepsItsLastWords)
{
    std::mutex mutex;
    std::condition_variable told;
    int calls = 0;
    std::atomic<bool> killed{false};
    bool toldEarly = false;
    evc::ServiceProcess process("/bin/sh", {"-c", "echo last words >&2; exec sleep 60"}, false, [&] {
        std::lock_guard<std::mutex> lock(mutex);
        toldEarly = toldEarly || !killed;
        ++calls;
        told.notify_all();
        return calls < 3;
    });
    for (int i = 0; i < 10000 && process.lastErrorLines().empty(); ++i)
        usleep(1000);
    EXPECT_TRUE(process.alive());
    killed = true;
    kill(process.pid(), SIGKILL);
    std::unique_lock<std::mutex> lock(mutex);
    ASSERT_TRUE(told.wait_for(lock, std::chrono::seconds(10), [&] { return calls >= 1; }));
    EXPECT_FALSE(process.alive());
    EXPECT_TRUE(told.wait_for(lock, std::chrono::seconds(10), [&] { return calls == 3; }));
    EXPECT_FALSE(toldEarly);
    lock.unlock();
    EXPECT_EQ(process.termSignal(), SIGKILL);
    EXPECT_EQ(process.lastErrorLines(), "last words");
}

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
    EXPECT_THROW(client.PostCompressFrame(&huge.record, false, false), evc::UsageError);
    EXPECT_THROW(client.CollectCompressFrame(nullptr), evc::UsageError) << "nothing was posted";
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

// Only the two threads that hand the turn to each other run on the shortest slice: the host's
// thread that waits (when it asks) and the service's main thread, not the threads either starts
// later (a codec's workers must keep the default).
TEST_F(ClientLife, OnlyTheThreadsThatWaitRunOnShortSlices)
{
    unsigned long long shortest = 0, standard = 0;
    std::thread([&] {
        standard = ZKThreadSliceNs(0);
        if (ZKPreferQuickWakeUps())
            shortest = ZKThreadSliceNs(0);
    }).join();
    if (shortest == 0 || shortest == standard)
        GTEST_SKIP() << "this kernel keeps no slice per thread";
    for (const bool quick : {true, false}) {
        SCOPED_TRACE(quick ? "quickWakeUps" : "without quickWakeUps");
        std::thread([&] {
            evc::ClientOptions options = TestClientOptions();
            options.quickWakeUps = quick;
            evc::Client client(options);
            Watch(client.segmentKey());
            EXPECT_EQ(ZKThreadSliceNs(0), quick ? shortest : standard);
            unsigned long long later = 0;
            std::thread([&] { later = ZKThreadSliceNs(0); }).join();
            EXPECT_EQ(later, standard);
            const std::string tasks = "/proc/" + std::to_string(client.servicePid()) + "/task";
            for (const auto& entry : std::filesystem::directory_iterator(tasks)) {
                const int task = std::stoi(entry.path().filename());
                EXPECT_EQ(ZKThreadSliceNs(task), task == client.servicePid() ? shortest : standard) << task;
            }
        }).join();
    }
}

// The processors a thread may run on.
std::vector<int> ProcessorsOf(pid_t thread)
{
    cpu_set_t set;
    CPU_ZERO(&set);
    std::vector<int> processors;
    if (sched_getaffinity(thread, sizeof set, &set) != 0)
        return processors;
    for (int k = 0; k < CPU_SETSIZE; ++k) {
        if (CPU_ISSET(k, &set))
            processors.push_back(k);
    }
    return processors;
}

// With shareProcessor, the thread that posts a picture and the service's main thread stay on one
// processor from the stream's second picture on, and only they: the service's other
// threads keep the whole set, the host's thread gets its own back with the answer, and any other
// command (the codec may count processors then) runs the service's main thread on the whole set.
TEST_F(ClientLife, AHostThatSharesAProcessorKeepsOnlyThePairThere)
{
    const std::vector<int> whole = ProcessorsOf(0);
    if (whole.size() < 2)
        GTEST_SKIP() << "one processor only";
    std::thread([&] {
        evc::ClientOptions options = TestClientOptions();
        options.shareProcessor = true;
        evc::Client client(options);
        Watch(client.segmentKey());
        const pid_t service = client.servicePid();
        ASSERT_EQ(client.SetOutput(EchoPreset()), kZKNoErr);
        TestImage sample(16, 16, 0, 25);
        ASSERT_EQ(client.Begin(&sample.record), kZKNoErr);
        for (uint8_t k = 1; k <= 4; ++k) {
            SCOPED_TRACE(int(k));
            TestImage image(16, 16, k, 25, k);
            client.PostCompressFrame(&image.record, k == 1, false);
            const std::vector<int> mine = ProcessorsOf(0);
            ASSERT_EQ(mine.size(), 1u);
            evc::EncodedFrame frame;
            EXPECT_EQ(client.CollectCompressFrame(&frame), kZKNoErr);
            EXPECT_EQ(ProcessorsOf(0), whole);
            // Kept from the end of the second picture's command (which may or may not have come yet
            // at the second look), so always before it waited for the third.
            if (k != 2) {
                EXPECT_EQ(ProcessorsOf(service), k >= 3 ? mine : whole);
            }
            for (const auto& entry :
                 std::filesystem::directory_iterator("/proc/" + std::to_string(service) + "/task")) {
                const pid_t task = std::stoi(entry.path().filename());
                if (task != service) {
                    EXPECT_EQ(ProcessorsOf(task), whole) << task;
                }
            }
        }
        EXPECT_EQ(client.End(), kZKNoErr);
        EXPECT_EQ(ProcessorsOf(service), whole);
    }).join();
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
    // The orphaned service becomes our child, so the test can see it end (and the fixture can end
    // it when the test stops half-way).
    ASSERT_EQ(prctl(PR_SET_CHILD_SUBREAPER, 1), 0);
    struct Reset {
        ~Reset() { prctl(PR_SET_CHILD_SUBREAPER, 0); }
    } reset;
    for (const bool holdLock : {false, true}) {
        SCOPED_TRACE(holdLock ? "died holding the segment's lock" : "died mid-encode");
        int report[2];
        ASSERT_EQ(pipe(report), 0);
        ChildProcess host([&]() -> std::string {
            close(report[0]);
            evc::Client client(TestClientOptions());
            client.SetOutput(EchoPreset());
            TestImage image(64, 64, 0, 25);
            client.Begin(&image.record);
            client.CompressFrame(&image.record, true, false, nullptr);
            CAMemoryMappedFile file;
            if (holdLock && !(file.attach(client.segmentKey().c_str()) && file.lock()))
                return "the segment's lock was not taken";
            const std::string line = std::to_string(client.servicePid()) + " " + client.segmentKey() + "\n";
            (void)!write(report[1], line.data(), line.size());
            for (uint64_t n = 1;; ++n) {
                image.record.image.time = n;
                if (!holdLock)
                    client.CompressFrame(&image.record, false, false, nullptr);
            }
        });
        close(report[1]);
        char text[4096] = {};
        FILE* in = fdopen(report[0], "r");
        (void)!fgets(text, sizeof text, in);
        fclose(in);
        const std::string line(text);
        ASSERT_NE(line.find(' '), std::string::npos) << "the host did not start: " << host.Finish();
        const pid_t service = std::stoi(line);
        const std::string key = line.substr(line.find(' ') + 1, line.find('\n') - line.find(' ') - 1);
        Watch(key);
        host.Kill();
        EXPECT_TRUE(Reaped(service, 1000)) << "the service outlived its host";
        kill(service, SIGKILL);
        Reaped(service, 1000);
        // The next client sweeps whatever is left of the dead host's session.
        evc::Client next(TestClientOptions());
        Watch(next.segmentKey());
        EXPECT_FALSE(Exists(key));
        EXPECT_FALSE(LockExists(key));
    }
}

}  // namespace
