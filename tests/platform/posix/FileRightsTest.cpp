// Whose files are whose, by the rights of this kind of system.
#include "platform/Files.h"

#include "tests/peers/TempFolder.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <sys/stat.h>

namespace kqlib::platform {
namespace {

class PosixFilesTest : public testing::Test
{
protected:
    /// A file with a text and rights.
    std::string Make(const std::string& name, mode_t rights) const
    {
        const std::string path = (m_temp / name).string();
        std::ofstream(path) << "old";
        EXPECT_EQ(chmod(path.c_str(), rights), 0);
        return path;
    }
    std::string Path(const std::string& name) const { return (m_temp / name).string(); }
    static mode_t GetRights(const std::string& path)
    {
        struct stat status = {};
        EXPECT_EQ(stat(path.c_str(), &status), 0);
        return status.st_mode & 07777U;
    }
    static bool OpenOwnerOnly(const std::string& path, bool truncate)
    {
        const FileHandle file = OpenFile(path.c_str(), FileMode::WRITE, true, truncate, FileRights::OWNER);
        CloseFile(file);
        return file != INVALID_FILE_HANDLE;
    }

    test::TempFolder m_temp;
};

TEST_F(PosixFilesTest, OpenFile_OwnerOnlyOverAFileOfAnyRights_OthersLoseTheirs)
{
    for (const mode_t rights : {0777U, 0640U, 0606U, 0620U, 06755U}) {
        SCOPED_TRACE(rights);
        const std::string path = Make("a", rights);
        ASSERT_TRUE(OpenOwnerOnly(path, false));
        EXPECT_EQ(GetRights(path), 0600U);
        EXPECT_EQ(std::filesystem::file_size(path), 3U) << "it was not to be emptied";
        ASSERT_TRUE(OpenOwnerOnly(path, true));
        EXPECT_EQ(std::filesystem::file_size(path), 0U);
    }
}

TEST_F(PosixFilesTest, OpenFile_OwnerOnlyOverNarrowerRights_TheyStay)
{
    const std::string path = Make("a", 0200);
    ASSERT_TRUE(OpenOwnerOnly(path, true));
    EXPECT_EQ(GetRights(path), 0200U);
}

TEST_F(PosixFilesTest, OpenFile_NotOwnerOnly_RightsStay)
{
    const std::string path = Make("a", 0644);
    CloseFile(OpenFile(path.c_str(), FileMode::WRITE, true, true));
    EXPECT_EQ(GetRights(path), 0644U);
}

TEST_F(PosixFilesTest, OpenFile_OwnerOnlyThroughALink_FileBehindItLosesTheRights)
{
    const std::string path = Make("a", 0644);
    std::filesystem::create_symlink(path, m_temp / "link");
    ASSERT_TRUE(OpenOwnerOnly((m_temp / "link").string(), true));
    EXPECT_EQ(GetRights(path), 0600U);
}

TEST_F(PosixFilesTest, OpenFile_OwnerOnlyOverADevice_OpenAndItsRightsStay)
{
    const mode_t before = GetRights("/dev/null");
    EXPECT_TRUE(OpenOwnerOnly("/dev/null", true));
    EXPECT_EQ(GetRights("/dev/null"), before);
}

// The system lets nobody change the rights of this one.
TEST_F(PosixFilesTest, OpenFile_OwnerOnlyWhereRightsCannotBeTaken_Invalid)
{
    const std::string path = "/proc/self/comm";
    const FileHandle file = OpenFile(path.c_str(), FileMode::WRITE, false, false);
    if (file == INVALID_FILE_HANDLE)
        GTEST_SKIP() << "there is no such file here";
    CloseFile(file);
    EXPECT_FALSE(OpenOwnerOnly(path, false));
}

TEST_F(PosixFilesTest, NewFile_RightsAreThoseAskedFor)
{
    const mode_t before = ::umask(0);
    CloseFile(OpenFile(Path("usual").c_str(), FileMode::WRITE, true, false));
    CloseFile(OpenFile(Path("owner").c_str(), FileMode::WRITE, true, false, FileRights::OWNER));
    CloseFile(OpenFileToAppend(Path("group").c_str(), FileRights::OWNER_AND_GROUP));
    CloseFile(MakeNewFile(Path("made").c_str(), FileRights::OWNER));
    ::umask(before);
    EXPECT_EQ(GetRights(Path("usual")), mode_t{0666});
    EXPECT_EQ(GetRights(Path("owner")), mode_t{0600});
    EXPECT_EQ(GetRights(Path("group")), mode_t{0640});
    EXPECT_EQ(GetRights(Path("made")), mode_t{0600});
}

TEST_F(PosixFilesTest, FileThatIsThere_KeepsItsRights)
{
    CloseFile(OpenFileToAppend(Path("log").c_str(), FileRights::OWNER_AND_GROUP));
    ::chmod(Path("log").c_str(), 0604);
    CloseFile(OpenFileToAppend(Path("log").c_str(), FileRights::OWNER_AND_GROUP));
    EXPECT_EQ(GetRights(Path("log")), mode_t{0604});
}

TEST_F(PosixFilesTest, MakeNewFile_LinkThatLeadsNowhere_InvalidAndNotFollowed)
{
    std::filesystem::create_symlink(m_temp / "target", m_temp / "link");
    EXPECT_EQ(MakeNewFile(Path("link").c_str(), FileRights::OWNER), INVALID_FILE_HANDLE);
    EXPECT_FALSE(std::filesystem::exists(m_temp / "target"));
}

} // namespace
} // namespace kqlib::platform
