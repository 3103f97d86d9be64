// The memory-mapped backing file: creation, attachment from another process,
// its cross-process lock and the temporary file names.

#include "ipc/IpcTestSupport.h"
#include "ipc/details/AMemoryMappedFile.h"

#include <cstdlib>
#include <cstring>
#include <fstream>

namespace {

class MappedFileTest : public IpcScratchTest {
protected:
    // Makes a temporary file and registers its lock and the file for removal.
    std::string tempFile(const char* prefix = "mapped")
    {
        std::string file;
        EXPECT_TRUE(CAMemoryMappedFile::makeTempFile(file, prefix));
        ownLock(file);
        m_files.push_back(file);
        return file;
    }
    void TearDown() override
    {
        for (const std::string& file : m_files)
            std::remove(file.c_str());
        IpcScratchTest::TearDown();
    }
    std::vector<std::string> m_files;
};

TEST_F(MappedFileTest, EmptyObjectAnswersNothing)
{
    CAMemoryMappedFile file;
    EXPECT_EQ(file.data(), nullptr);
    EXPECT_EQ(file.size(), 0u);
    EXPECT_EQ(file.name(), "");
}

TEST_F(MappedFileTest, CreateGivesAZeroFilledMappingOfTheRequestedSize)
{
    const std::string name = tempFile();
    CAMemoryMappedFile file;
    ASSERT_TRUE(file.create(name.c_str(), 10000));
    EXPECT_EQ(file.size(), 10000u);
    EXPECT_EQ(file.name(), name);
    const std::vector<unsigned char> zeros(10000, 0);
    EXPECT_EQ(std::memcmp(file.data(), zeros.data(), zeros.size()), 0);

    // The lock is created exclusively: a second create fails and keeps the old state.
    void* before = file.data();
    ::testing::internal::CaptureStderr();
    EXPECT_FALSE(file.create(name.c_str(), 20000));
    const std::string output = ::testing::internal::GetCapturedStderr();
    EXPECT_NE(output.find("bool CAMemoryMappedFile::create(const char*, size_t) -- File exists"), std::string::npos)
        << output;
    EXPECT_EQ(file.data(), before);
    EXPECT_EQ(file.size(), 10000u);

    file.detach();
    EXPECT_EQ(file.data(), nullptr);
    EXPECT_TRUE(fileExists(name));  // detaching never deletes the file
}

TEST_F(MappedFileTest, CreateOnALongerFileMapsItAll)
{
    const std::string name = tempFile();
    {
        std::ofstream out(name, std::ios::binary);
        out << std::string(5000, 'x');
    }
    CAMemoryMappedFile file;
    ASSERT_TRUE(file.create(name.c_str(), 100));
    EXPECT_EQ(file.size(), 5000u);
    EXPECT_EQ(static_cast<const char*>(file.data())[4999], 'x');
}

TEST_F(MappedFileTest, SecondProcessSharesBytesAndLock)
{
    const std::string name = tempFile();
    CAMemoryMappedFile file;
    ASSERT_TRUE(file.create(name.c_str(), 4096));
    unsigned char* bytes = static_cast<unsigned char*>(file.data());
    bytes[0] = 0x11;
    bytes[4095] = 0x22;
    ASSERT_TRUE(file.lock());

    ChildProcess child([&]() -> std::string {
        CAMemoryMappedFile other;
        if (!other.attach(name.c_str()))
            return "attach failed";
        const unsigned char* seen = static_cast<const unsigned char*>(other.data());
        if (other.size() != 4096 || seen[0] != 0x11 || seen[4095] != 0x22)
            return "stores of the creator not visible";
        if (other.tryLock())
            return "lock held by the parent was taken";
        if (!other.timedLock(10000))  // the parent unlocks after reading "locked"
            return "lock never released";
        static_cast<unsigned char*>(other.data())[100] = 0x33;
        return other.unlock() ? "" : "unlock failed";
    });
    CASystemTime::msleep(50);
    ASSERT_TRUE(file.unlock());
    EXPECT_EQ(child.finish(), "");
    EXPECT_EQ(bytes[100], 0x33);
    EXPECT_TRUE(file.tryLock());
    EXPECT_TRUE(file.unlock());
}

TEST_F(MappedFileTest, TempFileFolderComesFromTheEnvironment)
{
    struct SavedEnv {
        std::vector<std::pair<std::string, std::string>> saved;
        std::vector<std::string> unset;
        SavedEnv()
        {
            for (const char* name : {"TMPDIR", "TEMP", "TMP"}) {
                if (const char* value = std::getenv(name))
                    saved.emplace_back(name, value);
                else
                    unset.push_back(name);
            }
        }
        ~SavedEnv()
        {
            for (const auto& entry : saved)
                setenv(entry.first.c_str(), entry.second.c_str(), 1);
            for (const std::string& name : unset)
                unsetenv(name.c_str());
        }
    } savedEnv;

    struct Case {
        const char* tmpdir;  // null: unset
        const char* temp;
        const char* tmp;
        std::string expectedFolder;
    };
    const Case cases[] = {
        {folder().c_str(), nullptr, nullptr, folder()},
        {"", folder().c_str(), "/nowhere", folder()},
        {nullptr, "", folder().c_str(), folder()},
        {nullptr, nullptr, nullptr, "/tmp"},
    };
    for (const Case& c : cases) {
        auto set = [](const char* name, const char* value) { value ? setenv(name, value, 1) : unsetenv(name); };
        set("TMPDIR", c.tmpdir);
        set("TEMP", c.temp);
        set("TMP", c.tmp);
        std::string file;
        ASSERT_TRUE(CAMemoryMappedFile::makeTempFile(file, "evcProbe"));
        EXPECT_TRUE(matchesRegex(file, escapeRegex(c.expectedFolder) + "/evcProbe[A-Za-z0-9]{10}")) << file;
        EXPECT_EQ(file.find("XXXX"), std::string::npos) << "all ten characters are replaced";
        std::ifstream in(file, std::ios::binary | std::ios::ate);
        EXPECT_TRUE(in.is_open());
        EXPECT_EQ(in.tellg(), 0);
        std::remove(file.c_str());
    }

    setenv("TMPDIR", (folder() + "/missing").c_str(), 1);
    std::string file;
    ::testing::internal::CaptureStderr();
    EXPECT_FALSE(CAMemoryMappedFile::makeTempFile(file, "p"));
    const std::string output = ::testing::internal::GetCapturedStderr();
    EXPECT_EQ(file, folder() + "/missing/pXXXXXXXXXX");
    EXPECT_NE(output.find(", static bool CAMemoryMappedFile::makeTempFile(std::string&, const char*)"
                          " -- No such file or directory\n"),
              std::string::npos)
        << output;
}

}  // namespace
