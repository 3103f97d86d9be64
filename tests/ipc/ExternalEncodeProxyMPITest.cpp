// The client/service channel: the record's bytes in the segment, the exact
// failure texts of both constructors, a full command/response exchange between
// two processes, the timed waits, and the clean-up of file and lock.

#include "ipc/IpcTestSupport.h"
#include "ipc/CAExternalEncodeProxyMPI.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <stdexcept>

#include <unistd.h>

namespace {

using TCommand = CAExternalVideoProxySharedData::TCommand;

// Gives the tests the segment's first byte, as a derived service class would.
class TestChannel : public CAExternalEncodeProxyMPI {
public:
    using CAExternalEncodeProxyMPI::CAExternalEncodeProxyMPI;
    const uint8_t* segment() const { return static_cast<const uint8_t*>(m_sharedMemory.data()); }
    bool wakeUps() const { return m_sharedMemory.wakeUps(); }
};

// Sets or clears the switch that turns futex wake-ups off, for one side
// (this process) while the object lives; a forked child inherits it.
class WakeUpSwitch {
public:
    explicit WakeUpSwitch(bool wakeUps)
    {
        const char* old = getenv("EVC_NO_FUTEX");
        m_had = old != nullptr;
        if (m_had)
            m_old = old;
        setenv("EVC_NO_FUTEX", wakeUps ? "0" : "1", 1);
    }
    ~WakeUpSwitch()
    {
        if (m_had)
            setenv("EVC_NO_FUTEX", m_old.c_str(), 1);
        else
            unsetenv("EVC_NO_FUTEX");
    }
    WakeUpSwitch(const WakeUpSwitch&) = delete;
    WakeUpSwitch& operator=(const WakeUpSwitch&) = delete;

private:
    bool m_had = false;
    std::string m_old;
};

std::string constructionError(const std::function<void()>& construct)
{
    try {
        construct();
    } catch (const std::runtime_error& e) {
        return e.what();
    }
    return "no exception";
}

uint32_t le32(const uint8_t* p)
{
    return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}

class ExternalEncodeProxyMPITest : public IpcScratchTest {
protected:
    // Registers a creating side's key: its file and lock must be gone at the end.
    void watch(const CAExternalEncodeProxyMPI& client) { expectLockRemoved(client.key()); }
    // Forty commands and the quit, each side waking its peer or not.
    void converse(bool clientWakeUps, bool serviceWakeUps);
};

TEST_F(ExternalEncodeProxyMPITest, FreshChannelLayout)
{
    std::string key;
    {
        TestChannel client(4096);
        watch(client);
        key = client.GetSharedMemoryName();
        EXPECT_EQ(&client.key(), &client.GetSharedMemoryName());
        EXPECT_TRUE(matchesRegex(key, escapeRegex(folder()) +
                                          "/TMessagePassingInterface"
                                          "[0-9a-f]{8}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{12}"
                                          "[A-Za-z0-9]{10}"))
            << key;
        EXPECT_TRUE(fileExists(key));
        EXPECT_TRUE(lockExists(key));

        const uint8_t* s = client.segment();
        ASSERT_NE(s, nullptr);
        EXPECT_EQ(reinterpret_cast<const uint8_t*>(client.sharedData()) - s, 64);
        EXPECT_EQ(client.payload() - s, 176);
        EXPECT_EQ(client.payloadCapacity(), 4096u - 176);

        // Block header at 8: fragment 176, data 120, name of 30 bytes.
        EXPECT_EQ(le32(s + 8), 176u);
        EXPECT_EQ(le32(s + 16), 120u);
        EXPECT_EQ(le32(s + 24), 30u);
        EXPECT_EQ(std::memcmp(s + 32, "CAExternalVideoProxySharedData", 30), 0);

        // The record: lock 1, both handshake semaphores 0, everything else 0.
        uint8_t expected[120] = {};
        expected[0] = 1;
        EXPECT_EQ(std::memcmp(s + 64, expected, sizeof expected), 0);
        EXPECT_EQ(client.GetCommand(), CAExternalVideoProxySharedData::kNone);
        EXPECT_EQ(client.GetStatus(), 0u);
        EXPECT_FALSE(client.GetIsKeyFrame());
        EXPECT_FALSE(client.GetIsLastFrame());

        // Every field lands at its offset in the segment, little-endian, and no
        // reserved byte is ever written.
        CAExternalVideoProxySharedData* r = client.sharedData();
        struct Field {
            const char* name;
            std::function<void()> write;
            size_t offset;  // in the segment
            std::vector<uint8_t> bytes;
        };
        const Field fields[] = {
            {"m_command", [&] { client.SetCommand(CAExternalVideoProxySharedData::kSetOutput); }, 80, {5, 0, 0, 0}},
            {"m_status", [&] { client.SetStatus(0x800300E9u); }, 88, {0xE9, 0x00, 0x03, 0x80}},
            {"m_isKeyFrame", [&] { client.SetIsKeyFrame(true); }, 96, {1}},
            {"m_isLastFrame", [&] { client.SetIsLastFrame(true); }, 104, {1}},
            {"m_beginFlag", [&] { r->m_beginFlag = 1; }, 112, {1}},
            {"m_isLastPassEncodingReady", [&] { r->m_isLastPassEncodingReady = 1; }, 120, {1}},
            {"m_fileFormatHint", [&] { r->m_fileFormatHint = 0x01020304; }, 128, {4, 3, 2, 1}},
            {"m_inputColorFormat", [&] { r->m_inputColorFormat = 0x11223344; }, 136, {0x44, 0x33, 0x22, 0x11}},
            {"m_streamModeHint", [&] { r->m_streamModeHint = 7; }, 144, {7, 0, 0, 0}},
            {"m_payloadSize0", [&] { r->m_payloadSize0 = -2; }, 152, {0xFE, 0xFF, 0xFF, 0xFF}},
            {"m_payloadSize1", [&] { r->m_payloadSize1 = 0x100; }, 160, {0, 1, 0, 0}},
            {"m_payloadSize2", [&] { r->m_payloadSize2 = 0x7FFFFFFF; }, 168, {0xFF, 0xFF, 0xFF, 0x7F}},
            {"m_payload", [&] { std::memset(client.payload(), 0x5A, 16); }, 176, std::vector<uint8_t>(16, 0x5A)},
        };
        std::vector<uint8_t> before(s, s + 4096);
        for (const Field& f : fields) {
            f.write();
            std::vector<uint8_t> after(s, s + 4096);
            for (size_t i = 0; i < f.bytes.size(); ++i)
                before[f.offset + i] = f.bytes[i];
            EXPECT_TRUE(after == before) << f.name;
            before = after;
        }
        EXPECT_EQ(client.GetCommand(), CAExternalVideoProxySharedData::kSetOutput);
        EXPECT_EQ(client.GetStatus(), 0x800300E9u);
        EXPECT_TRUE(client.GetIsKeyFrame());
        EXPECT_TRUE(client.GetIsLastFrame());
        EXPECT_EQ(s[64], 1);  // the record's lock is free again after every access
    }
    EXPECT_FALSE(fileExists(key));
    EXPECT_FALSE(lockExists(key));
}

TEST_F(ExternalEncodeProxyMPITest, AttachFailuresGiveExactTexts)
{
    // A key whose lock was never created: fails at once.
    const std::string missing = path("noSuchSegment");
    ChildProcess noLock([&] {
        ::testing::internal::CaptureStderr();
        const std::string text = constructionError([&] { TestChannel service(missing, 60000); });
        ::testing::internal::GetCapturedStderr();
        return text;
    });
    EXPECT_EQ(noLock.finish(5000),
              "TMessagePassingInterface failed to attach to shared memory segment, key: " + missing);

    // A segment without the record: gives up after the limit.
    const std::string bare = path("bare");
    ownLock(bare);
    CASharedMemory segment;
    ASSERT_TRUE(segment.create(bare.c_str(), 4096));
    ChildProcess noRecord([&] { return constructionError([&] { TestChannel service(bare, 50); }); });
    EXPECT_EQ(noRecord.finish(), "TMessagePassingInterface failed to discover client/server synchronization "
                                 "structure within 50 msec");

    // A block of that name too short for the record is not taken for it.
    void* shortBlock = segment.allocate("CAExternalVideoProxySharedData", 16);
    ASSERT_NE(shortBlock, nullptr);
    ChildProcess shortRecord([&] { return constructionError([&] { TestChannel service(bare, 0); }); });
    EXPECT_EQ(shortRecord.finish(), "TMessagePassingInterface failed to discover client/server synchronization "
                                    "structure within 0 msec");
    ASSERT_TRUE(segment.deallocate(shortBlock));

    // The record appearing within the limit is found.
    ChildProcess late([&]() -> std::string {
        TestChannel service(bare, 10000);
        const uint8_t* record = reinterpret_cast<const uint8_t*>(service.sharedData());
        if (record - service.segment() != 64 || record[0] != 1)
            return "record found at the wrong place";
        return service.key().empty() ? "" : "attaching side keeps a key";
    });
    CASystemTime::msleep(50);
    ASSERT_NE(segment.construct<CAExternalVideoProxySharedData>("CAExternalVideoProxySharedData"), nullptr);
    EXPECT_EQ(late.finish(), "");
    segment.detach();
    std::remove(bare.c_str());
}

TEST_F(ExternalEncodeProxyMPITest, CreatingSideFailuresLeaveNothing)
{
    ::testing::internal::CaptureStderr();
    const std::string tooSmallForSegment = constructionError([] { TestChannel client(0); });
    const std::string tooSmallForRecord = constructionError([] { TestChannel client(100); });
    setenv("TMPDIR", path("missing").c_str(), 1);
    const std::string noFolder = constructionError([] { TestChannel client(4096); });
    setenv("TMPDIR", folder().c_str(), 1);
    ::testing::internal::GetCapturedStderr();

    std::vector<std::string> match;
    ASSERT_TRUE(matchesRegex(tooSmallForSegment,
                             "TMessagePassingInterface failed to create shared memory segment (" +
                                 escapeRegex(folder()) +
                                 "/TMessagePassingInterface[-0-9a-f]{36}[A-Za-z0-9]{10}) of size 0 bytes",
                             &match))
        << tooSmallForSegment;
    expectLockRemoved(match.at(0));
    EXPECT_EQ(tooSmallForRecord,
              "TMessagePassingInterface failed to construct client/server synchronization structure");
    EXPECT_TRUE(matchesRegex(noFolder, "TMessagePassingInterface failed to generate a shared memory "
                                       "mapped file key: " +
                                           escapeRegex(folder()) +
                                           "/missing/TMessagePassingInterface[-0-9a-f]{36}XXXXXXXXXX"))
        << noFolder;
    // The fixture checks that the temporary folder is empty.
}

// A stand-in for the service: answers every command until the quit code with a
// status built from what it read, and a reply that reverses the payload.
std::string serveUntilQuit(const std::string& key, int* served, bool wakeUps)
{
    const WakeUpSwitch mode(wakeUps);
    TestChannel service(key, 10000);
    if (service.wakeUps() != wakeUps)
        return "the service ignored EVC_NO_FUTEX";
    service.setExternalProcessInfo(getppid(), "client");
    service.PostResponse();  // ready
    for (;;) {
        if (!service.TimedWaitForCommand(10))
            return "no command within 10 s";
        const TCommand command = service.GetCommand();
        if (command == CAExternalVideoProxySharedData::kQuit)
            return "";
        CAExternalVideoProxySharedData* r = service.sharedData();
        const int32_t length = r->m_payloadSize0;
        if (length < 0 || static_cast<size_t>(length) > service.payloadCapacity())
            return "payload length out of range";
        uint8_t* payload = service.payload();
        std::reverse(payload, payload + length);
        r->m_isLastPassEncodingReady = command == CAExternalVideoProxySharedData::kIsLastPassEncodingReady;
        const unsigned int status = 0x1000u * static_cast<unsigned int>(command) + (service.GetIsKeyFrame() ? 1u : 0u) +
                                    (service.GetIsLastFrame() ? 2u : 0u) + uint32_t(length) * 4u;
        ++*served;
        service.SetStatus(status);
        service.PostResponse();
    }
}

// Every pairing of a side that sleeps on futexes and wakes its peer with one
// that only polls holds a whole conversation.
TEST_F(ExternalEncodeProxyMPITest, ClientAndServiceAlternate)
{
    const struct {
        bool clientWakeUps;
        bool serviceWakeUps;
    } modes[] = {{true, true}, {true, false}, {false, true}, {false, false}};
    for (const auto& mode : modes) {
        SCOPED_TRACE(::testing::Message()
                     << "client wake-ups " << mode.clientWakeUps << ", service wake-ups " << mode.serviceWakeUps);
        converse(mode.clientWakeUps, mode.serviceWakeUps);
    }
}

void ExternalEncodeProxyMPITest::converse(bool clientWakeUps, bool serviceWakeUps)
{
    std::string key;
    {
        const WakeUpSwitch clientMode(clientWakeUps);
        TestChannel client(1 << 20);
        ASSERT_EQ(client.wakeUps(), clientWakeUps);
        watch(client);
        key = client.GetSharedMemoryName();
        client.setExternalProcessInfo(4242, "service");
        std::string name;
        EXPECT_EQ(client.getExternalProcessInfo(name), 4242);
        EXPECT_EQ(name, "service");

        ChildProcess service([&] {
            int served = 0;
            const std::string outcome = serveUntilQuit(key, &served, serviceWakeUps);
            return outcome.empty() && served != 40 ? "served " + std::to_string(served) : outcome;
        });
        ASSERT_TRUE(client.TimedWaitForResponse(10));  // the service is ready

        CAExternalVideoProxySharedData* r = client.sharedData();
        for (int i = 0; i < 40; ++i) {
            const TCommand command = static_cast<TCommand>(1 + i % 8);
            const bool key = i % 3 == 0;
            const bool last = i % 5 == 0;
            const int32_t length = i * 37;
            for (int32_t b = 0; b < length; ++b)
                client.payload()[b] = static_cast<uint8_t>(b * 7 + i);
            client.SetCommand(command);
            client.SetIsKeyFrame(key);
            client.SetIsLastFrame(last);
            r->m_payloadSize0 = length;
            client.PostCommand();
            ASSERT_TRUE(client.TimedWaitForResponse(10)) << "command " << i;

            EXPECT_EQ(client.GetStatus(),
                      0x1000u * (1 + i % 8) + (key ? 1 : 0) + (last ? 2 : 0) + uint32_t(length) * 4u);
            EXPECT_EQ(r->m_isLastPassEncodingReady != 0,
                      command == CAExternalVideoProxySharedData::kIsLastPassEncodingReady);
            for (int32_t b = 0; b < length; ++b)
                ASSERT_EQ(client.payload()[length - 1 - b], static_cast<uint8_t>(b * 7 + i));
            EXPECT_FALSE(client.TimedWaitForResponse(0)) << "one response per command";
        }
        client.SetCommand(CAExternalVideoProxySharedData::kQuit);
        client.PostCommand();
        EXPECT_EQ(service.finish(), "");
        EXPECT_TRUE(fileExists(key)) << "the attaching side must leave the file";
    }
    EXPECT_FALSE(fileExists(key));
    EXPECT_FALSE(lockExists(key));
}

// A peer that never posts: the wait still ends at its limit (not before),
// whether it sleeps on the futex or polls.
TEST_F(ExternalEncodeProxyMPITest, WaitsWithoutAPostEndAtTheirLimit)
{
    for (const bool wakeUps : {true, false}) {
        SCOPED_TRACE(wakeUps ? "futex" : "polling");
        const WakeUpSwitch mode(wakeUps);
        TestChannel client(4096);
        watch(client);
        ASSERT_EQ(client.wakeUps(), wakeUps);
        EXPECT_FALSE(client.TimedWaitForResponse(0));
        const CASystemTime clock;
        EXPECT_FALSE(client.WaitForResponseWithin(30));
        EXPECT_GE(clock.elapsed(), 30u);
        client.PostResponse();
        EXPECT_TRUE(client.WaitForResponseWithin(0));
    }
}

TEST_F(ExternalEncodeProxyMPITest, TimedWaitsTakeOnePostEach)
{
    TestChannel client(4096);
    watch(client);
    TestChannel service(client.key(), 1000);
    EXPECT_TRUE(service.key().empty());

    const CASystemTime clock;
    EXPECT_FALSE(service.TimedWaitForCommand(0));
    EXPECT_LT(clock.elapsed(), 1000u);
    client.PostCommand();
    EXPECT_TRUE(service.TimedWaitForCommand(0));
    EXPECT_FALSE(service.TimedWaitForCommand(0));

    // Readiness and a response posted back to back: taken one at a time.
    service.PostResponse();
    service.PostResponse();
    EXPECT_EQ(le32(client.segment() + 64 + 8), 2u);
    EXPECT_TRUE(client.TimedWaitForResponse(0));
    EXPECT_TRUE(client.TimedWaitForResponse(0));
    EXPECT_FALSE(client.TimedWaitForResponse(0));

    client.PostCommand();
    service.WaitForCommand();
    service.PostResponse();
    client.WaitForResponse();
    EXPECT_EQ(le32(client.segment() + 64 + 4), 0u);
    EXPECT_EQ(le32(client.segment() + 64 + 8), 0u);
}

TEST(ExternalEncodeProxyMPI, EmptyObjectHasNothing)
{
    CAExternalEncodeProxyMPI empty;
    EXPECT_EQ(empty.sharedData(), nullptr);
    EXPECT_EQ(empty.payload(), nullptr);
    EXPECT_EQ(empty.payloadCapacity(), 0u);
    EXPECT_TRUE(empty.key().empty());
}

}  // namespace
