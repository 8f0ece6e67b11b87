#include "platform/Files.h"

#include "tests/peers/TempFolder.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <sys/stat.h>

namespace kqlib::platform {
namespace {

class PosixFilesTest : public testing::Test
{
protected:
    std::string GetPath(const std::string& name) const { return (m_folder / name).string(); }
    mode_t GetMode(const std::string& name) const
    {
        struct stat status = {};
        EXPECT_EQ(::stat(GetPath(name).c_str(), &status), 0);
        return status.st_mode & 07777;
    }

    test::TempFolder m_folder;
};

TEST_F(PosixFilesTest, NewFile_RightsAreThoseAskedFor)
{
    const mode_t before = ::umask(0);
    CloseFile(OpenFile(GetPath("usual").c_str(), FileMode::WRITE, true, false));
    CloseFile(OpenFile(GetPath("owner").c_str(), FileMode::WRITE, true, false, FileRights::OWNER));
    CloseFile(OpenFileToAppend(GetPath("group").c_str(), FileRights::OWNER_AND_GROUP));
    CloseFile(MakeNewFile(GetPath("made").c_str(), FileRights::OWNER));
    ::umask(before);
    EXPECT_EQ(GetMode("usual"), mode_t{0666});
    EXPECT_EQ(GetMode("owner"), mode_t{0600});
    EXPECT_EQ(GetMode("group"), mode_t{0640});
    EXPECT_EQ(GetMode("made"), mode_t{0600});
}

TEST_F(PosixFilesTest, FileThatIsThere_KeepsItsRights)
{
    CloseFile(OpenFileToAppend(GetPath("log").c_str(), FileRights::OWNER_AND_GROUP));
    ::chmod(GetPath("log").c_str(), 0604);
    CloseFile(OpenFileToAppend(GetPath("log").c_str(), FileRights::OWNER_AND_GROUP));
    EXPECT_EQ(GetMode("log"), mode_t{0604});
}

TEST_F(PosixFilesTest, MakeNewFile_LinkThatLeadsNowhere_InvalidAndNotFollowed)
{
    std::filesystem::create_symlink(m_folder / "target", m_folder / "link");
    EXPECT_EQ(MakeNewFile(GetPath("link").c_str(), FileRights::OWNER), INVALID_FILE_HANDLE);
    EXPECT_FALSE(std::filesystem::exists(m_folder / "target"));
}

} // namespace
} // namespace kqlib::platform
