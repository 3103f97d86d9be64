// The lowest layer of the channel: platform-safe names, named semaphores and the mapped backing
// file across processes, their error lines and temporary file names; and the shared segment: its
// bytes after create, allocate and free, best fit, merging, damaged chains, and blocks and in-
// segment semaphores shared by two processes.
#include "common/Process.h"
#include "common/Scratch.h"
#include "Regex.h"

#include "ipc/details/AMemoryMappedFile.h"
#include "ipc/details/ASharedMemory.h"

#include <atomic>
#include <cstring>
#include <fstream>
#include <thread>

using namespace evctest;

namespace {

// One error line: "ERROR: <file>:<line>, <signature> -- <reason>". gcc writes the signature's
// pointers "char*", clang "char *".
std::string ErrorLine(const std::string& signature, const std::string& reason)
{
    std::string pattern = Escape(signature);
    for (size_t at = 0; (at = pattern.find("\\*", at)) != std::string::npos; at += 4)
        pattern.replace(at, 2, " ?\\*");
    return "ERROR: [^\n]*ipc/details/AMemoryMappedFileUnix\\.cpp:[0-9]+, " + pattern + " -- " + Escape(reason) + "\n";
}

TEST(PlatformSafeKey, GoldenNamesAndSixBitPacking)
{
    EXPECT_EQ(ZKMakePlatformSafeKey(""), "QdpekxrQBrWCLzxxL266G_As7a0");
    EXPECT_EQ(ZKMakePlatformSafeKey("abc"), "fcfFsSa11gck_KISu1bmin9qOt9");
    EXPECT_TRUE(Matches(ZKMakePlatformSafeKey(std::string(700, 'k').c_str()), "[0-9A-Za-z_.]{27}"));
    const std::pair<std::vector<unsigned char>, const char*> cases[] = {
        {{}, ""}, {{0x00}, "00"}, {{0xFF}, ".3"}, {{0x01, 0x02, 0x03}, "18m0"}, {{0x3F, 0x00}, ".00"}};
    for (const auto& [bytes, expected] : cases) {
        std::string out = "stale";
        ZKEncodeBase64(bytes, out);
        EXPECT_EQ(out, expected);
    }
}

class Primitives : public ScratchTest {};

// Failures answer false and write a line naming the failing call; a mapped file stops at its lock.
TEST_F(Primitives, FailuresNameTheFailingCall)
{
    const std::string existing = Path("existing"), missing = Path("missing");
    Own(existing);
    CASystemSemaphore first, target;
    ASSERT_TRUE(first.create(existing.c_str(), 0));
    ::testing::internal::CaptureStderr();
    EXPECT_FALSE(target.create(existing.c_str(), 1) || target.post() || target.wait());
    ::testing::internal::GetCapturedStderr();
    ::testing::internal::CaptureStderr();
    EXPECT_FALSE(CAMemoryMappedFile().attach(missing.c_str()));
    const std::string output = ::testing::internal::GetCapturedStderr();
    EXPECT_TRUE(
        Matches(output, ErrorLine("bool CASystemSemaphore::attach(const char*)", "No such file or directory") +
                            ErrorLine("bool CAMemoryMappedFile::attach(const char*)", "No such file or directory")))
        << output;
    EXPECT_FALSE(Exists(missing)) << "the mapped file stopped at the lock";
}

TEST_F(Primitives, SemaphoreCountCrossesProcessesAndALateCreatorIsAwaited)
{
    const std::string name = Path("sem"), late = Path("late");
    Own(name);
    Own(late);
    CASystemSemaphore semaphore, awaited;
    ASSERT_TRUE(semaphore.create(name.c_str(), 0));
    ChildProcess child([&] {
        CASystemSemaphore other, created;
        if (!other.attach(name.c_str()) || !other.post() || !other.post())
            return "post failed";
        std::this_thread::sleep_for(std::chrono::milliseconds(30));
        return created.create(late.c_str(), 1) ? "" : "create failed";
    });
    EXPECT_TRUE(semaphore.timedWait(10000));
    EXPECT_TRUE(semaphore.waitWithin(10000)) << "the sleeping wait takes the second post";
    EXPECT_FALSE(semaphore.timedWait(0));
    EXPECT_FALSE(semaphore.waitWithin(5));
    ::testing::internal::CaptureStderr();  // every failed try writes its line
    EXPECT_TRUE(awaited.waitToAttach(late.c_str(), 10000));
    EXPECT_FALSE(CASystemSemaphore().waitToAttach(Path("never").c_str(), 20));
    ::testing::internal::GetCapturedStderr();
    EXPECT_EQ(child.Finish(), "");
    EXPECT_TRUE(awaited.tryWait()) << "the creator's initial count";
    EXPECT_FALSE(awaited.tryWait());
    ASSERT_TRUE(semaphore.post());
    EXPECT_TRUE(semaphore.timedWait(0)) << "a zero limit still looks once";
}

TEST_F(Primitives, MappedFileIsSharedWithItsLockByASecondProcess)
{
    std::string name;
    ASSERT_TRUE(CAMemoryMappedFile::makeTempFile(name, "mapped"));
    Own(name);
    CAMemoryMappedFile file;
    ASSERT_TRUE(file.create(name.c_str(), 4096));
    auto* bytes = static_cast<unsigned char*>(file.data());
    EXPECT_EQ(std::count(bytes, bytes + 4096, 0), 4096) << "zero-filled";
    ::testing::internal::CaptureStderr();
    EXPECT_FALSE(file.create(name.c_str(), 20000)) << "the lock is created exclusively";
    EXPECT_NE(::testing::internal::GetCapturedStderr().find("CAMemoryMappedFile::create"), std::string::npos);
    EXPECT_EQ(file.size(), 4096u);
    bytes[0] = 0x11;
    bytes[4095] = 0x22;
    ASSERT_TRUE(file.lock());
    ChildProcess child([&]() -> std::string {
        CAMemoryMappedFile other;
        if (!other.attach(name.c_str()))
            return "attach failed";
        const auto* seen = static_cast<const unsigned char*>(other.data());
        if (other.size() != 4096 || seen[0] != 0x11 || seen[4095] != 0x22)
            return "stores of the creator not visible";
        if (other.tryLock())
            return "lock held by the parent was taken";
        static_cast<volatile unsigned char*>(other.data())[1] = 1;  // tells the parent to let go
        if (!other.timedLock(10000))
            return "lock never released";
        static_cast<unsigned char*>(other.data())[100] = 0x33;
        return other.unlock() ? "" : "unlock failed";
    });
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (static_cast<volatile unsigned char*>(bytes)[1] == 0 && std::chrono::steady_clock::now() < deadline)
        std::this_thread::yield();
    ASSERT_TRUE(file.unlock());
    EXPECT_EQ(child.Finish(), "");
    EXPECT_EQ(bytes[100], 0x33);
    EXPECT_TRUE(file.tryLock() && file.unlock());
    file.detach();
    EXPECT_TRUE(Exists(name)) << "detaching never deletes the file";

    // A longer file is mapped whole.
    std::ofstream(name, std::ios::binary) << std::string(5000, 'x');
    CASystemSemaphore::remove(name.c_str());
    ASSERT_TRUE(file.create(name.c_str(), 100));
    EXPECT_EQ(file.size(), 5000u);
    file.detach();
    std::remove(name.c_str());
}

TEST_F(Primitives, TempFileFolderComesFromTheEnvironment)
{
    const std::string folder = Folder(), missing = folder + "/missing";
    const struct {
        const char *tmpdir, *temp, *tmp;  // null: unset
        std::string expectedFolder;
    } cases[] = {
        {folder.c_str(), nullptr, nullptr, folder},  // TMPDIR first
        {"", folder.c_str(), "/nowhere", folder},    // an empty one is passed over
        {nullptr, "", folder.c_str(), folder},       // TMP last
        {nullptr, nullptr, nullptr, "/tmp"},         // none
        {missing.c_str(), nullptr, nullptr, ""},     // a folder that is not there
    };
    const ScopedEnv temp("TEMP", ""), tmp("TMP", ""), tmpdir("TMPDIR", "");  // the rows set all three
    for (const auto& c : cases) {
        SCOPED_TRACE(c.expectedFolder);
        for (auto [name, value] : {std::pair{"TMPDIR", c.tmpdir}, {"TEMP", c.temp}, {"TMP", c.tmp}})
            value ? setenv(name, value, 1) : unsetenv(name);
        std::string file;
        ::testing::internal::CaptureStderr();
        const bool made = CAMemoryMappedFile::makeTempFile(file, "evcProbe");
        ::testing::internal::GetCapturedStderr();
        EXPECT_EQ(made, !c.expectedFolder.empty()) << file;
        if (made) {
            EXPECT_TRUE(Matches(file, Escape(c.expectedFolder) + "/evcProbe[A-Za-z0-9]{10}")) << file;
            EXPECT_EQ(ReadBytes(file).size(), 0u);
            std::remove(file.c_str());
        }
    }
}

constexpr size_t kSegmentSize = 4096;

uint64_t Word(const void* segment, size_t offset)
{
    uint64_t value;
    std::memcpy(&value, static_cast<const unsigned char*>(segment) + offset, sizeof value);
    return value;
}

bool AllZero(const void* segment, size_t from, size_t to)
{
    const auto* bytes = static_cast<const unsigned char*>(segment);
    return std::all_of(bytes + from, bytes + to, [](unsigned char b) { return b == 0; });
}

size_t OffsetOf(const CASharedMemory& segment, const void* address)
{
    return static_cast<size_t>(static_cast<const unsigned char*>(address) -
                               static_cast<const unsigned char*>(segment.data()));
}

class SharedMemory : public ScratchTest {
protected:
    void SetUp() override
    {
        ScratchTest::SetUp();
        m_key = Path("segment");
        Own(m_key);
    }
    // A new segment for the next row of a table: the old one's file and lock go first.
    CASharedMemory& Fresh()
    {
        m_segment.detach();
        m_view.detach();
        std::remove(m_key.c_str());
        CASystemSemaphore::remove(m_key.c_str());
        EXPECT_TRUE(m_segment.create(m_key.c_str(), kSegmentSize));
        return m_segment;
    }
    void TearDown() override
    {
        m_segment.detach();
        m_view.detach();
        std::remove(m_key.c_str());
        ScratchTest::TearDown();
    }
    std::string m_key;
    CASharedMemory m_segment, m_view;
};

TEST_F(SharedMemory, BytesAfterCreateAllocateAndFree)
{
    CASharedMemory& segment = Fresh();
    const void* s = segment.data();
    // Change counter 1, then one free fragment covering everything else.
    EXPECT_EQ(Word(s, 0), 1u);
    EXPECT_EQ(Word(s, 8), kSegmentSize - 8);
    EXPECT_TRUE(AllZero(s, 16, kSegmentSize));

    const char name[] = "CAExternalVideoProxySharedData";
    auto* block = static_cast<unsigned char*>(segment.allocate(name, 120));
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(OffsetOf(segment, block), 64u);
    EXPECT_EQ(Word(s, 0), 2u);
    EXPECT_EQ(Word(s, 8), 176u);  // 24 + 32 + 120
    EXPECT_EQ(Word(s, 16), 120u);
    EXPECT_EQ(Word(s, 24), 30u);
    EXPECT_EQ(std::memcmp(static_cast<const char*>(s) + 32, name, 30), 0);
    EXPECT_TRUE(AllZero(s, 62, 184));  // name padding and the new block
    EXPECT_EQ(Word(s, 184), kSegmentSize - 184);
    EXPECT_TRUE(AllZero(s, 192, kSegmentSize));

    size_t dataSize = 0;
    EXPECT_EQ(segment.findAddr(name, &dataSize), block);
    EXPECT_EQ(dataSize, 120u);
    EXPECT_EQ(segment.findAddr("CAExternalVideoProxySharedDat"), nullptr);
    std::memset(block, 0xAB, 120);
    EXPECT_TRUE(segment.deallocate(block + 50));  // any address inside the data
    EXPECT_EQ(Word(s, 0), 3u);
    EXPECT_EQ(Word(s, 8), kSegmentSize - 8);
    EXPECT_TRUE(AllZero(s, 16, kSegmentSize));
    EXPECT_FALSE(segment.deallocate(block)) << "nothing there any more";
    EXPECT_FALSE(CASharedMemory().create(m_key.c_str(), 24)) << "no room for counter and one header";
}

TEST_F(SharedMemory, NeighboursMergeWhateverTheOrderOfFreeing)
{
    for (const auto& order : {std::vector<int>{0, 2, 1}, {1, 0, 2}, {2, 1, 0}}) {
        SCOPED_TRACE(order[0]);
        CASharedMemory& segment = Fresh();
        void* blocks[3] = {segment.allocate("a", 40), segment.allocate("b", 40), segment.allocate("c", 40)};
        ASSERT_NE(segment.allocate("guard", 8), nullptr);  // keeps the tail apart
        for (int i : order)
            ASSERT_TRUE(segment.deallocate(blocks[i]));
        EXPECT_EQ(Word(segment.data(), 8), 3u * 72);  // three fragments of 24 + 8 + 40
        EXPECT_TRUE(AllZero(segment.data(), 16, 8 + 3 * 72));
        // Another process's view walks the same chain and reuses the merged hole.
        ASSERT_TRUE(m_view.attach(m_key.c_str()));
        EXPECT_EQ(OffsetOf(m_view, m_view.allocate("big", 3 * 72 - 32)), 8u + 32);
    }
}

TEST_F(SharedMemory, BestFitAndRemaindersTooSmallForAHeader)
{
    CASharedMemory& segment = Fresh();
    void* big = segment.allocate("big", 200);
    ASSERT_NE(segment.allocate("sep1", 8), nullptr);
    void* small = segment.allocate("small", 64);
    ASSERT_NE(segment.allocate("sep2", 8), nullptr);
    const size_t smallOffset = OffsetOf(segment, small);
    ASSERT_TRUE(segment.deallocate(big) && segment.deallocate(small));
    // "x" needs 32 + 64 bytes: the 96-byte hole, not the earlier 232-byte one.
    EXPECT_EQ(OffsetOf(segment, segment.allocate("x", 64)), smallOffset);
    const uint64_t counter = Word(segment.data(), 0);
    EXPECT_EQ(segment.allocate("huge", kSegmentSize), nullptr);
    EXPECT_EQ(segment.allocate("x", 8), nullptr) << "the name exists";
    EXPECT_EQ(Word(segment.data(), 0), counter) << "a refused allocation changes nothing";

    const struct {
        size_t leftover, fragment;  // fragment: size word of the new block's fragment
    } cases[] = {{8, 136}, {16, 136}, {24, 112}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.leftover);
        CASharedMemory& fresh = Fresh();
        void* hole = fresh.allocate("h", 104);  // fragment 24 + 8 + 104 = 136
        ASSERT_NE(fresh.allocate("guard", 8), nullptr);
        ASSERT_TRUE(fresh.deallocate(hole));
        ASSERT_NE(fresh.allocate("k", 104 - c.leftover), nullptr);
        EXPECT_EQ(Word(fresh.data(), 8), c.fragment);
        EXPECT_EQ(Word(fresh.data(), 16), 104 - c.leftover);
        if (c.fragment != 136) {
            EXPECT_EQ(Word(fresh.data(), 8 + c.fragment), c.leftover);
        }
        ASSERT_TRUE(m_view.attach(m_key.c_str()));
        EXPECT_EQ(OffsetOf(m_view, m_view.findAddr("guard")), 136u + 8 + 32);
        ASSERT_TRUE(m_view.deallocate(m_view.findAddr("k")));
        EXPECT_EQ(Word(fresh.data(), 8), 136u) << "merged back into one hole";
    }
}

TEST_F(SharedMemory, DamagedChainIsRefused)
{
    // Block "blk" at 8 (fragment 24 + 8 + 16 = 48), the free tail at 56.
    const struct {
        const char* what;
        size_t offset;
        uint64_t value;
    } cases[] = {
        {"tail size 0", 56, 0},
        {"tail size not a multiple of 8", 56, 12},
        {"tail running past the end", 56, kSegmentSize},
        {"block smaller than a header", 8, 16},
        {"block size far past the end", 8, ~uint64_t(0) - 7},
        {"name longer than the fragment", 8 + 16, uint64_t(1) << 62},
        {"data longer than the fragment", 8 + 8, 17},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        CASharedMemory& segment = Fresh();
        void* block = segment.allocate("blk", 16);
        ASSERT_EQ(OffsetOf(segment, block), 40u);
        ASSERT_TRUE(m_view.attach(m_key.c_str()));  // attached before the damage
        auto* bytes = static_cast<unsigned char*>(segment.data());
        std::memcpy(bytes + c.offset, &c.value, 8);
        const uint64_t counter = Word(bytes, 0) + 1;  // everybody reloads
        std::memcpy(bytes, &counter, 8);

        ::testing::internal::CaptureStderr();
        EXPECT_FALSE(CASharedMemory().attach(m_key.c_str()));
        ::testing::internal::GetCapturedStderr();
        EXPECT_EQ(m_view.findAddr("blk"), nullptr);
        EXPECT_EQ(m_view.allocate("new", 8), nullptr);
        EXPECT_FALSE(m_view.deallocate(block));
    }
}

struct Probe {
    CASharedMemory::TSemaphore m_semaphore;
    int32_t m_value = 7;
    char m_text[16];
};

TEST_F(SharedMemory, TwoProcessesShareBlocksAndSemaphores)
{
    CASharedMemory& segment = Fresh();
    Probe* probe = segment.construct<Probe>("probe");
    ASSERT_NE(probe, nullptr);
    EXPECT_FALSE(segment.semaphoreWaitTimed(&probe->m_semaphore, 5));
    EXPECT_EQ(segment.waitToFindTimed<Probe>("late", 5), nullptr);
    CASharedMemory::TSemaphore outside;
    EXPECT_FALSE(segment.semaphorePost(&outside)) << "a semaphore outside the segment";

    ChildProcess child([&]() -> std::string {
        CASharedMemory other;
        if (!other.attach(m_key.c_str()))
            return "attach failed";
        size_t dataSize = 0;
        auto* seen = static_cast<Probe*>(other.findAddr("probe", &dataSize));
        if (seen == nullptr || dataSize != sizeof(Probe) || OffsetOf(other, seen) != 40 || seen->m_value != 7)
            return "probe not found as constructed";
        seen->m_value = 42;
        other.semaphorePost(&seen->m_semaphore);
        CASharedMemory::yield(30);
        return other.construct<Probe>("late") ? "" : "construct failed";
    });
    EXPECT_TRUE(segment.semaphoreWaitTimed(&probe->m_semaphore, 10000));
    EXPECT_EQ(probe->m_value, 42);
    // The child's allocation moves the change counter, so the cache reloads.
    Probe* late = segment.waitToFindTimed<Probe>("late", 10000);
    ASSERT_NE(late, nullptr);
    EXPECT_EQ(late->m_value, 7);
    EXPECT_EQ(child.Finish(), "");
    EXPECT_TRUE(segment.semaphorePost(&probe->m_semaphore));
    EXPECT_TRUE(segment.semaphoreWaitTimed(&probe->m_semaphore, 0)) << "looks before timing";
    EXPECT_EQ(probe->m_semaphore.m_count, 0);
    // A raised stop flag (the peer is gone) ends a long wait without sleeping; a post still counts.
    const std::atomic<bool> stop{true};
    EXPECT_FALSE(segment.semaphoreWaitTimed(&probe->m_semaphore, 60000, &stop));
    EXPECT_TRUE(segment.semaphorePost(&probe->m_semaphore));
    EXPECT_TRUE(segment.semaphoreWaitTimed(&probe->m_semaphore, 60000, &stop));
}

}  // namespace
