// The lowest layer of the channel: platform-safe names, named semaphores and the mapped backing
// file across processes, their error lines, the quiet mutex and temporary file names.
#include "common/Process.h"
#include "common/Scratch.h"
#include "Regex.h"

#include "ipc/details/AMemoryMappedFile.h"

#include <atomic>
#include <fstream>
#include <functional>
#include <thread>

using namespace evctest;

namespace {

// One error line: "ERROR: <file>:<line>, <signature> -- <reason>".
std::string ErrorLine(const std::string& signature, const std::string& reason = "")
{
    return "ERROR: [^\n]*ipc/details/AMemoryMappedFileUnix\\.cpp:[0-9]+, " + Escape(signature) + " -- " +
           (reason.empty() ? std::string("[^\n]*") : Escape(reason)) + "\n";
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

TEST_F(Primitives, ErrorLinesNameTheFailingOperation)
{
    const std::string existing = Path("existing"), missing = Path("missing");
    Own(existing);
    CASystemSemaphore first, target;
    ASSERT_TRUE(first.create(existing.c_str(), 0));
    const struct {
        const char* what;
        std::function<bool()> action;
        std::string expected;
    } cases[] = {
        {"attach of a missing name", [&] { return target.attach(missing.c_str()); },
         ErrorLine("bool CASystemSemaphore::attach(const char*)", "No such file or directory")},
        {"exclusive create of an existing name", [&] { return target.create(existing.c_str(), 1); },
         ErrorLine("bool CASystemSemaphore::create(const char*, unsigned int)", "File exists")},
        {"post on an empty object", [&] { return target.post(); }, ErrorLine("bool CASystemSemaphore::post()")},
        {"wait on an empty object", [&] { return target.wait(); }, ErrorLine("bool CASystemSemaphore::wait()")},
        {"mapped file without its lock", [&] { return CAMemoryMappedFile().attach(missing.c_str()); },
         ErrorLine("bool CASystemSemaphore::attach(const char*)", "No such file or directory") +
             ErrorLine("bool CAMemoryMappedFile::attach(const char*)", "No such file or directory")},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        ::testing::internal::CaptureStderr();
        EXPECT_FALSE(c.action());
        const std::string output = ::testing::internal::GetCapturedStderr();
        EXPECT_TRUE(Matches(output, c.expected)) << output;
    }
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
    EXPECT_TRUE(semaphore.timedWait(10000));
    EXPECT_FALSE(semaphore.timedWait(0));
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
    const std::string folder = Folder();
    const struct {
        const char *tmpdir, *temp, *tmp;  // null: unset
        std::string expectedFolder;
    } cases[] = {
        {folder.c_str(), nullptr, nullptr, folder},
        {"", folder.c_str(), "/nowhere", folder},
        {nullptr, "", folder.c_str(), folder},
        {nullptr, nullptr, nullptr, "/tmp"},
        {(folder + "/missing").c_str(), nullptr, nullptr, ""},
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
        ASSERT_EQ(made, !c.expectedFolder.empty()) << file;
        if (made) {
            EXPECT_TRUE(Matches(file, Escape(c.expectedFolder) + "/evcProbe[A-Za-z0-9]{10}")) << file;
            EXPECT_EQ(ReadBytes(file).size(), 0u);
            std::remove(file.c_str());
        }
    }
}

}  // namespace
