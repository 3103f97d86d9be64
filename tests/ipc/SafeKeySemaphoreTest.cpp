// Platform-safe names, named semaphores across processes, the thread mutex,
// the clock and the error line every primitive writes.

#include "ipc/IpcTestSupport.h"
#include "ipc/details/AMemoryMappedFile.h"

#include <cerrno>
#include <atomic>
#include <functional>
#include <thread>

namespace {

// One error line: "ERROR: <file>:<line>, <signature> -- <reason>".
std::string errorLine(const std::string& signature, const std::string& reason)
{
    return "ERROR: [^\n]*ipc/details/AMemoryMappedFileUnix\\.cpp:[0-9]+, " + escapeRegex(signature) + " -- " +
           (reason.empty() ? std::string("[^\n]*") : escapeRegex(reason)) + "\n";
}

TEST(PlatformSafeKey, GoldenNames)
{
    EXPECT_EQ(ZKMakePlatformSafeKey(""), "QdpekxrQBrWCLzxxL266G_As7a0");
    EXPECT_EQ(ZKMakePlatformSafeKey("abc"), "fcfFsSa11gck_KISu1bmin9qOt9");

    for (const std::string& key :
         {std::string("/tmp/TMessagePassingInterfaceX"), std::string(700, 'k'), std::string("a b\tc\xC3\xA9")}) {
        const std::string name = ZKMakePlatformSafeKey(key.c_str());
        EXPECT_TRUE(matchesRegex(name, "[0-9A-Za-z_.]{27}")) << name;
        EXPECT_EQ(name, ZKMakePlatformSafeKey(key.c_str()));
    }
    EXPECT_NE(ZKMakePlatformSafeKey("abd"), ZKMakePlatformSafeKey("abc"));
}

TEST(PlatformSafeKey, EncodesSixBitsLeastSignificantFirst)
{
    struct Case {
        std::vector<unsigned char> bytes;
        const char* expected;
    };
    const Case cases[] = {
        {{}, ""},
        {{0x00}, "00"},
        {{0xFF}, ".3"},                // 63, then the top two bits
        {{0x01, 0x02, 0x03}, "18m0"},  // 0x030201 in groups of six from the bottom
        {{0x3F, 0x00}, ".00"},
    };
    for (const Case& c : cases) {
        std::string out = "stale";
        ZKEncodeBase64(c.bytes, out);
        EXPECT_EQ(out, c.expected);
    }
}

TEST(PlatformSafeKey, StringHelpers)
{
    errno = ENOENT;
    EXPECT_EQ(ZKLastError(), "No such file or directory");

    std::string s = "kept";
    EXPECT_FALSE(zk_set_str(s, nullptr));
    EXPECT_FALSE(zk_set_str(s, ""));
    EXPECT_EQ(s, "kept");
    EXPECT_TRUE(zk_set_str(s, "new"));
    EXPECT_EQ(s, "new");
}

class SystemSemaphoreTest : public IpcScratchTest {};

TEST_F(SystemSemaphoreTest, ErrorLinesNameTheFailingOperation)
{
    const std::string existing = path("existing");
    ownLock(existing);
    CASystemSemaphore first;
    ASSERT_TRUE(first.create(existing.c_str(), 0));

    struct Case {
        const char* what;
        std::function<bool()> action;
        std::string expectedOutput;
    };
    CASystemSemaphore target;
    const std::string missing = path("missing");
    const Case cases[] = {
        {"attach of a missing name", [&] { return target.attach(missing.c_str()); },
         errorLine("bool CASystemSemaphore::attach(const char*)", "No such file or directory")},
        {"exclusive create of an existing name", [&] { return target.create(existing.c_str(), 1); },
         errorLine("bool CASystemSemaphore::create(const char*, unsigned int)", "File exists")},
        {"post on an empty object", [&] { return target.post(); }, errorLine("bool CASystemSemaphore::post()", "")},
        {"wait on an empty object", [&] { return target.wait(); }, errorLine("bool CASystemSemaphore::wait()", "")},
        {"tryWait on an empty object", [&] { return target.tryWait(); },
         errorLine("bool CASystemSemaphore::tryWait()", "")},
        {"mapped file without its lock",
         [&] {
             CAMemoryMappedFile file;
             return file.attach(missing.c_str());
         },
         errorLine("bool CASystemSemaphore::attach(const char*)", "No such file or directory") +
             errorLine("bool CAMemoryMappedFile::attach(const char*)", "No such file or directory")},
    };
    for (const Case& c : cases) {
        ::testing::internal::CaptureStderr();
        const bool ok = c.action();
        const std::string output = ::testing::internal::GetCapturedStderr();
        EXPECT_FALSE(ok) << c.what;
        EXPECT_TRUE(matchesRegex(output, c.expectedOutput)) << c.what << ":\n" << output;
    }
    EXPECT_FALSE(target.isOpen());
    // The mapped file stopped at the lock and never created the file.
    EXPECT_FALSE(fileExists(missing));
}

TEST_F(SystemSemaphoreTest, CountCrossesProcesses)
{
    const std::string name = path("sem");
    ownLock(name);
    CASystemSemaphore semaphore;
    ASSERT_TRUE(semaphore.create(name.c_str(), 0));

    ChildProcess child([&] {
        CASystemSemaphore other;
        if (!other.attach(name.c_str()))
            return std::string("attach failed");
        CASystemTime::msleep(30);
        return std::string(other.post() && other.post() ? "" : "post failed");
    });
    EXPECT_TRUE(semaphore.timedWait(10000));
    EXPECT_TRUE(semaphore.timedWait(10000));
    EXPECT_EQ(child.finish(), "");

    // Nothing left: a zero limit still tries twice, about a millisecond apart.
    const CASystemTime clock;
    EXPECT_FALSE(semaphore.timedWait(0));
    EXPECT_GE(clock.elapsed(), 1u);

    ASSERT_TRUE(semaphore.post());
    EXPECT_TRUE(semaphore.timedWait(0));
    EXPECT_FALSE(semaphore.tryWait());
}

TEST_F(SystemSemaphoreTest, WaitToAttachSeesALateCreator)
{
    const std::string name = path("late");
    ownLock(name);
    ChildProcess child([&] {
        CASystemTime::msleep(50);
        CASystemSemaphore created;
        return std::string(created.create(name.c_str(), 1) ? "" : "create failed");
    });
    CASystemSemaphore semaphore;
    ::testing::internal::CaptureStderr();  // every failed try writes its line
    const bool attached = semaphore.waitToAttach(name.c_str(), 10000);
    ::testing::internal::GetCapturedStderr();
    ASSERT_TRUE(attached);
    EXPECT_EQ(child.finish(), "");
    EXPECT_TRUE(semaphore.tryWait());  // the child's initial count

    CASystemSemaphore never;
    ::testing::internal::CaptureStderr();
    const CASystemTime clock;
    EXPECT_FALSE(never.waitToAttach(path("never").c_str(), 20));
    EXPECT_GT(clock.elapsed(), 20u);
    ::testing::internal::GetCapturedStderr();
}

TEST(ThreadMutex, TryLockOfABusyMutexIsQuiet)
{
    CAThreadMutex mutex;
    std::atomic<bool> locked{false};
    std::atomic<bool> release{false};
    std::thread holder([&] {
        mutex.lock();
        locked = true;
        while (!release)
            CASystemTime::msleep(1);
        mutex.unlock();
    });
    while (!locked)
        CASystemTime::msleep(1);

    ::testing::internal::CaptureStderr();
    EXPECT_FALSE(mutex.tryLock());
    const CASystemTime clock;
    EXPECT_FALSE(mutex.timedLock(5));
    EXPECT_GT(clock.elapsed(), 5u);
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");

    release = true;
    EXPECT_TRUE(mutex.timedLock(10000));
    EXPECT_TRUE(mutex.unlock());
    holder.join();
}

TEST(SystemTime, MeasuresSleeps)
{
    const CASystemTime clock;
    const unsigned int start = clock.elapsed();
    EXPECT_LT(start, 1000u);
    CASystemTime::msleep(20);
    EXPECT_GE(clock.elapsed(), start + 20);
}

}  // namespace
