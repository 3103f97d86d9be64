// The client/service channel: the 120-byte command record at its offsets in the segment, the
// failure texts of both sides, a command/response conversation between two processes, the timed
// waits, and the removal of backing file and lock.
#include "common/Process.h"
#include "common/Scratch.h"
#include "Regex.h"

#include "ipc/CAExternalEncodeProxyMPI.h"

#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <stdexcept>

using namespace evctest;

namespace {

using Record = CAExternalVideoProxySharedData;

// Gives the tests the segment's first byte, as a derived service class would.
class TestChannel : public CAExternalEncodeProxyMPI {
public:
    using CAExternalEncodeProxyMPI::CAExternalEncodeProxyMPI;
    const uint8_t* segment() const { return static_cast<const uint8_t*>(m_sharedMemory.data()); }
    bool wakeUps() const { return m_sharedMemory.wakeUps(); }
};

// Turns futex wake-ups on or off for the sides this process (and its forked children) opens.
void SetWakeUps(bool on)
{
    setenv("EVC_NO_FUTEX", on ? "0" : "1", 1);
}

std::string ConstructionError(const std::function<void()>& construct)
{
    try {
        construct();
    } catch (const std::runtime_error& e) {
        return e.what();
    }
    return "no exception";
}

uint32_t Le32(const uint8_t* p)
{
    return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}

const std::string kKeyPattern = "/TMessagePassingInterface[0-9a-f]{8}(-[0-9a-f]{4}){3}-[0-9a-f]{12}[A-Za-z0-9]{10}";

class Channel : public ScratchTest {};

TEST_F(Channel, FreshRecordLayoutAndFieldOffsets)
{
    std::string key;
    {
        TestChannel client(4096);
        key = client.GetSharedMemoryName();
        Watch(key);
        EXPECT_TRUE(Matches(key, Escape(Folder()) + kKeyPattern)) << key;
        EXPECT_TRUE(Exists(key) && LockExists(key));
        const uint8_t* s = client.segment();
        ASSERT_NE(s, nullptr);
        EXPECT_EQ(reinterpret_cast<const uint8_t*>(client.sharedData()) - s, 64);
        EXPECT_EQ(client.payload() - s, 176);
        EXPECT_EQ(client.payloadCapacity(), 4096u - 176);
        // The record: lock 1, the rest 0.
        Bytes expected(120, 0);
        expected[0] = 1;
        EXPECT_EQ(Bytes(s + 64, s + 184), expected);

        // Every field lands at its offset, little-endian, and no reserved byte is written.
        Record* r = client.sharedData();
        const struct {
            const char* name;
            std::function<void()> write;
            size_t offset;  // in the segment
            Bytes bytes;
        } fields[] = {
            {"command", [&] { client.SetCommand(Record::kSetOutput); }, 80, {5, 0, 0, 0}},
            {"status", [&] { client.SetStatus(0x800300E9u); }, 88, {0xE9, 0x00, 0x03, 0x80}},
            {"isKeyFrame", [&] { client.SetIsKeyFrame(true); }, 96, {1}},
            {"isLastFrame", [&] { client.SetIsLastFrame(true); }, 104, {1}},
            {"beginFlag", [&] { r->m_beginFlag = 1; }, 112, {1}},
            {"isLastPassEncodingReady", [&] { r->m_isLastPassEncodingReady = 1; }, 120, {1}},
            {"fileFormatHint", [&] { r->m_fileFormatHint = 0x01020304; }, 128, {4, 3, 2, 1}},
            {"inputColorFormat", [&] { r->m_inputColorFormat = 0x11223344; }, 136, {0x44, 0x33, 0x22, 0x11}},
            {"streamModeHint", [&] { r->m_streamModeHint = 7; }, 144, {7, 0, 0, 0}},
            {"payloadSize0", [&] { r->m_payloadSize0 = -2; }, 152, {0xFE, 0xFF, 0xFF, 0xFF}},
            {"payloadSize1", [&] { r->m_payloadSize1 = 0x100; }, 160, {0, 1, 0, 0}},
            {"payloadSize2", [&] { r->m_payloadSize2 = 0x7FFFFFFF; }, 168, {0xFF, 0xFF, 0xFF, 0x7F}},
            {"payload", [&] { std::memset(client.payload(), 0x5A, 16); }, 176, Bytes(16, 0x5A)},
        };
        Bytes before(s, s + 4096);
        for (const auto& f : fields) {
            SCOPED_TRACE(f.name);
            f.write();
            std::copy(f.bytes.begin(), f.bytes.end(), before.begin() + f.offset);
            EXPECT_TRUE(Bytes(s, s + 4096) == before);
        }
    }
    EXPECT_FALSE(Exists(key));
}

TEST_F(Channel, FailuresOfBothSidesGiveExactTextsAndLeaveNothing)
{
    const std::string missing = Path("noSuchSegment"), bare = Path("bare");
    Own(bare);
    CASharedMemory segment;
    ASSERT_TRUE(segment.create(bare.c_str(), 4096));
    const std::string notFound = "TMessagePassingInterface failed to discover client/server synchronization "
                                 "structure within ";
    const struct {
        const char* what;
        std::function<void()> construct;
        std::string text;
    } cases[] = {
        {"no lock", [&] { TestChannel(missing, 60000); },
         "TMessagePassingInterface failed to attach to shared memory segment, key: " + missing},
        {"no record", [&] { TestChannel(bare, 50); }, notFound + "50 msec"},
        {"record too short",
         [&] {
             segment.allocate("CAExternalVideoProxySharedData", 16);
             TestChannel(bare, 0);
         },
         notFound + "0 msec"},
        {"segment too small", [] { TestChannel(0); },
         "TMessagePassingInterface failed to create shared memory segment (" + Escape(Folder()) + kKeyPattern +
             ") of size 0 bytes"},
        {"no room for the record", [] { TestChannel(100); },
         "TMessagePassingInterface failed to construct client/server synchronization structure"},
        {"no temporary folder",
         [&] {
             setenv("TMPDIR", Path("missing").c_str(), 1);
             TestChannel client(4096);
         },
         "TMessagePassingInterface failed to generate a shared memory mapped file key: " + Escape(Folder()) +
             "/missing" + kKeyPattern.substr(0, kKeyPattern.size() - 15) + "XXXXXXXXXX"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        // In a child: a failed attach may leave the process's view of the names in any state.
        ChildProcess child([&] {
            ::testing::internal::CaptureStderr();
            const std::string text = ConstructionError(c.construct);
            ::testing::internal::GetCapturedStderr();
            return Matches(text, c.text) ? "" : text;
        });
        EXPECT_EQ(child.Finish(), "");
    }
    segment.detach();
    std::remove(bare.c_str());
    // The fixture checks that the failed creations left no file.
}

// A stand-in for the service: answers every command until quit with a status built from what it
// read, and a reply that reverses the payload.
std::string ServeUntilQuit(const std::string& key, bool wakeUps)
{
    SetWakeUps(wakeUps);
    TestChannel service(key, 10000);
    if (service.wakeUps() != wakeUps)
        return "the service ignored EVC_NO_FUTEX";
    service.PostResponse();  // ready
    for (int served = 0;; ++served) {
        if (!service.TimedWaitForCommand(10))
            return "no command within 10 s";
        const Record::TCommand command = service.GetCommand();
        if (command == Record::kQuit)
            return served == 12 ? "" : "served " + std::to_string(served);
        Record* r = service.sharedData();
        const int32_t length = r->m_payloadSize0;
        if (length < 0 || static_cast<size_t>(length) > service.payloadCapacity())
            return "payload length out of range";
        std::reverse(service.payload(), service.payload() + length);
        r->m_isLastPassEncodingReady = command == Record::kIsLastPassEncodingReady;
        service.SetStatus(0x1000u * command + (service.GetIsKeyFrame() ? 1 : 0) + (service.GetIsLastFrame() ? 2 : 0) +
                          uint32_t(length) * 4u);
        service.PostResponse();
    }
}

// Every pairing of a side that sleeps on futexes and wakes its peer with one that only polls holds
// a whole conversation.
TEST_F(Channel, ClientAndServiceAlternate)
{
    for (const auto& [clientWakeUps, serviceWakeUps] :
         {std::pair{true, true}, {true, false}, {false, true}, {false, false}}) {
        SCOPED_TRACE(::testing::Message() << "client wake-ups " << clientWakeUps << ", service " << serviceWakeUps);
        SetWakeUps(clientWakeUps);
        TestChannel client(1 << 20);
        ASSERT_EQ(client.wakeUps(), clientWakeUps);
        const std::string key = client.GetSharedMemoryName();
        Watch(key);
        // C++17 lambdas cannot capture a structured binding.
        const bool serviceSleeps = serviceWakeUps;
        ChildProcess service([&] { return ServeUntilQuit(key, serviceSleeps); });
        ASSERT_TRUE(client.TimedWaitForResponse(10)) << "the service is ready";
        Record* r = client.sharedData();
        for (int i = 0; i < 12; ++i) {
            SCOPED_TRACE(i);
            const auto command = static_cast<Record::TCommand>(1 + i % 8);
            const bool isKey = i % 3 == 0, last = i % 5 == 0;
            const Bytes payload = Pattern(size_t(i) * 997, i);
            std::copy(payload.begin(), payload.end(), client.payload());
            client.SetCommand(command);
            client.SetIsKeyFrame(isKey);
            client.SetIsLastFrame(last);
            r->m_payloadSize0 = int32_t(payload.size());
            client.PostCommand();
            ASSERT_TRUE(client.TimedWaitForResponse(10));
            EXPECT_EQ(client.GetStatus(), 0x1000u * command + isKey + (last ? 2 : 0) + payload.size() * 4);
            EXPECT_EQ(r->m_isLastPassEncodingReady != 0, command == Record::kIsLastPassEncodingReady);
            EXPECT_TRUE(std::equal(payload.rbegin(), payload.rend(), client.payload()));
            EXPECT_FALSE(client.TimedWaitForResponse(0)) << "one response per command";
        }
        client.SetCommand(Record::kQuit);
        client.PostCommand();
        EXPECT_EQ(service.Finish(), "");
        EXPECT_TRUE(Exists(key)) << "the attaching side leaves the file";
    }
    unsetenv("EVC_NO_FUTEX");
}

TEST_F(Channel, TimedWaitsTakeOnePostEach)
{
    // A peer that never posts: the wait still ends at its limit, whether it sleeps or polls.
    for (const bool wakeUps : {true, false}) {
        SCOPED_TRACE(wakeUps ? "futex" : "polling");
        SetWakeUps(wakeUps);
        TestChannel alone(4096);
        Watch(alone.key());
        ASSERT_EQ(alone.wakeUps(), wakeUps);
        EXPECT_FALSE(alone.WaitForResponseWithin(30));
        alone.PostResponse();
        EXPECT_TRUE(alone.WaitForResponseWithin(0));
    }
    unsetenv("EVC_NO_FUTEX");
    TestChannel client(4096);
    Watch(client.key());
    TestChannel service(client.key(), 1000);
    EXPECT_TRUE(service.key().empty()) << "the attaching side owns no key";
    EXPECT_FALSE(service.TimedWaitForCommand(0));
    client.PostCommand();
    EXPECT_TRUE(service.TimedWaitForCommand(0));
    EXPECT_FALSE(service.TimedWaitForCommand(0));
    // Readiness and a response posted back to back: taken one at a time.
    service.PostResponse();
    service.PostResponse();
    EXPECT_EQ(Le32(client.segment() + 64 + 8), 2u);
    EXPECT_TRUE(client.TimedWaitForResponse(0) && client.TimedWaitForResponse(0));
    EXPECT_FALSE(client.TimedWaitForResponse(0));
    client.PostCommand();
    service.WaitForCommand();
    service.PostResponse();
    client.WaitForResponse();
    EXPECT_EQ(Le32(client.segment() + 64 + 4), 0u);
    EXPECT_EQ(Le32(client.segment() + 64 + 8), 0u);
    EXPECT_EQ(CAExternalEncodeProxyMPI().sharedData(), nullptr);
}

}  // namespace
