// Whose files are whose, by the rights of this kind of system.
#include "platform/Files.h"

#include "tests/peers/TempFolder.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <grp.h>
#include <string>
#include <sys/stat.h>
#include <tuple>
#include <unistd.h>
#include <vector>

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

/// Acts as a user and a group that nobody has, without the rights of root, while it lives.
class OtherUser
{
public:
    OtherUser()
        : m_groups(static_cast<std::size_t>(getgroups(0, nullptr)))
    {
        EXPECT_GE(getgroups(static_cast<int>(m_groups.size()), m_groups.data()), 0);
        EXPECT_EQ(setgroups(0, nullptr), 0);
        EXPECT_EQ(setegid(GROUP), 0);
        EXPECT_EQ(seteuid(USER), 0);
    }
    ~OtherUser()
    {
        EXPECT_EQ(seteuid(0), 0);
        EXPECT_EQ(setegid(0), 0);
        EXPECT_EQ(setgroups(m_groups.size(), m_groups.data()), 0);
    }
    OtherUser(const OtherUser&) = delete;
    OtherUser& operator=(const OtherUser&) = delete;

    static constexpr uid_t USER = 54321;
    static constexpr gid_t GROUP = 54322;

private:
    std::vector<gid_t> m_groups;
};

class PosixCopyFileRightsTest : public PosixFilesTest
{
protected:
    void SetUp() override
    {
        // A root that only stands for an ordinary user may not either.
        if (geteuid() != 0 || chown(Make("probe", 0600).c_str(), OtherUser::USER, OtherUser::GROUP) != 0)
            GTEST_SKIP() << "only root may give files to others";
        EXPECT_EQ(chmod(m_temp.GetPath().c_str(), 0777), 0);
    }
    /// A file of an owner and a group.
    std::string MakeFor(uid_t owner, gid_t group, mode_t rights) const
    {
        const std::string path = Make("old", rights);
        EXPECT_EQ(chown(path.c_str(), owner, group), 0);
        EXPECT_EQ(chmod(path.c_str(), rights), 0);
        return path;
    }
    /// A new file with the rights of the old one: owner, group and rights.
    std::tuple<uid_t, gid_t, mode_t> Copy(const std::string& old) const
    {
        const FileHandle made = MakeNewFile(Path("new").c_str(), FileRights::OWNER);
        EXPECT_TRUE(CopyFileRights(old.c_str(), made));
        CloseFile(made);
        struct stat status = {};
        EXPECT_EQ(stat(Path("new").c_str(), &status), 0);
        return {status.st_uid, status.st_gid, status.st_mode & 07777U};
    }
};

TEST_F(PosixCopyFileRightsTest, MayGiveFilesAway_OwnerGroupAndRightsAreTheOldOnes)
{
    EXPECT_EQ(Copy(MakeFor(1, 2, 0664)), std::tuple(1U, 2U, 0664U));
}

TEST_F(PosixCopyFileRightsTest, MayNot_AGroupThatIsNotOnesOwnLosesItsRights)
{
    const std::string old = MakeFor(1, 2, 0664);
    const OtherUser user;
    EXPECT_EQ(Copy(old), std::tuple(OtherUser::USER, OtherUser::GROUP, 0604U));
}

TEST_F(PosixCopyFileRightsTest, MayNot_OnesOwnGroupKeepsThem)
{
    const std::string old = MakeFor(1, OtherUser::GROUP, 0664);
    const OtherUser user;
    EXPECT_EQ(Copy(old), std::tuple(OtherUser::USER, OtherUser::GROUP, 0664U));
}

TEST_F(PosixCopyFileRightsTest, MayNot_AnotherGroupOfOnesOwnIsGiven)
{
    const std::string old = MakeFor(1, 2, 0660);
    const OtherUser user;
    EXPECT_EQ(seteuid(0), 0);
    const gid_t groups[] = {2};
    EXPECT_EQ(setgroups(1, groups), 0);
    EXPECT_EQ(seteuid(OtherUser::USER), 0);
    EXPECT_EQ(Copy(old), std::tuple(OtherUser::USER, 2U, 0660U));
}

TEST_F(PosixFilesTest, CopyFileRights_NoSuchFile_False)
{
    const FileHandle made = MakeNewFile(Path("new").c_str(), FileRights::OWNER);
    EXPECT_FALSE(CopyFileRights(Path("none").c_str(), made));
    CloseFile(made);
}

TEST_F(PosixFilesTest, MakeNewFile_LinkThatLeadsNowhere_InvalidAndNotFollowed)
{
    std::filesystem::create_symlink(m_temp / "target", m_temp / "link");
    EXPECT_EQ(MakeNewFile(Path("link").c_str(), FileRights::OWNER), INVALID_FILE_HANDLE);
    EXPECT_FALSE(std::filesystem::exists(m_temp / "target"));
}

} // namespace
} // namespace kqlib::platform
