#include "platform/Files.h"

#include "platform/Clock.h"
#include "tests/peers/TempFolder.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

namespace kqlib::platform {
namespace {

class FilesTest : public ::testing::Test
{
protected:
    std::string GetPath(const std::string& name) const { return (m_folder / name).string(); }

    static void Write(const std::string& path, const std::string& text)
    {
        const FileHandle file = OpenFile(path.c_str(), FileMode::WRITE, true, true);
        ASSERT_NE(file, INVALID_FILE_HANDLE);
        EXPECT_TRUE(WriteFile(file, text.data(), text.size()));
        CloseFile(file);
    }

    static std::string Read(const std::string& path)
    {
        const FileHandle file = OpenFile(path.c_str(), FileMode::READ, false, false);
        EXPECT_NE(file, INVALID_FILE_HANDLE);
        char buffer[256];
        std::size_t got = 0;
        EXPECT_TRUE(ReadFile(file, buffer, sizeof(buffer), got));
        CloseFile(file);
        return {buffer, got};
    }

    test::TempFolder m_folder;
};

TEST_F(FilesTest, OpenFile_MissingWithoutCreate_Invalid)
{
    EXPECT_EQ(OpenFile(GetPath("none").c_str(), FileMode::READ, false, false), INVALID_FILE_HANDLE);
    EXPECT_EQ(OpenFile(GetPath("no/folder").c_str(), FileMode::WRITE, true, false), INVALID_FILE_HANDLE);
}

TEST_F(FilesTest, OpenFile_Folder_Invalid)
{
    EXPECT_EQ(OpenFile(m_folder.GetPath().string().c_str(), FileMode::READ, false, false), INVALID_FILE_HANDLE);
}

TEST_F(FilesTest, WriteFile_ThenRead_SameBytes)
{
    const std::string bytes("a\0b\r\n\xFF", 6);
    Write(GetPath("a"), bytes);
    EXPECT_EQ(Read(GetPath("a")), bytes);
}

TEST_F(FilesTest, OpenFile_NameOutsideAscii_IsFoundAgain)
{
    const std::string name = (m_folder.GetPath().string() + "/") + "\xC3\xA4\xE2\x82\xAC";
    Write(name, "x");
    EXPECT_EQ(Read(name), "x");
    EXPECT_TRUE(RemoveFile(name.c_str()));
}

TEST_F(FilesTest, OpenFile_ExistingWithoutTruncate_KeepsItsBytes)
{
    Write(GetPath("a"), "12345");
    const FileHandle file = OpenFile(GetPath("a").c_str(), FileMode::READWRITE, true, false);
    ASSERT_NE(file, INVALID_FILE_HANDLE);
    EXPECT_TRUE(WriteFile(file, "ab", 2));
    CloseFile(file);
    EXPECT_EQ(Read(GetPath("a")), "ab345");
}

TEST_F(FilesTest, OpenFile_Truncate_Empties)
{
    Write(GetPath("a"), "12345");
    const FileHandle file = OpenFile(GetPath("a").c_str(), FileMode::WRITE, false, true);
    ASSERT_NE(file, INVALID_FILE_HANDLE);
    std::uint64_t size = 1;
    EXPECT_TRUE(GetFileSize(file, size));
    EXPECT_EQ(size, 0U);
    CloseFile(file);
}

TEST_F(FilesTest, OpenFile_OwnerOnly_OwnerReadsAndWrites)
{
    const FileHandle file = OpenFile(GetPath("key").c_str(), FileMode::WRITE, true, true, FileRights::OWNER);
    ASSERT_NE(file, INVALID_FILE_HANDLE);
    EXPECT_TRUE(WriteFile(file, "secret", 6));
    CloseFile(file);
    EXPECT_EQ(Read(GetPath("key")), "secret");
}

TEST_F(FilesTest, OpenFileToAppend_TwoHandles_EachWriteGoesToTheEnd)
{
    const FileHandle first = OpenFileToAppend(GetPath("log").c_str(), FileRights::OWNER_AND_GROUP);
    const FileHandle second = OpenFileToAppend(GetPath("log").c_str(), FileRights::OWNER_AND_GROUP);
    ASSERT_NE(first, INVALID_FILE_HANDLE);
    ASSERT_NE(second, INVALID_FILE_HANDLE);
    EXPECT_TRUE(WriteFile(first, "1", 1));
    EXPECT_TRUE(WriteFile(second, "22", 2));
    EXPECT_TRUE(WriteFile(first, "3", 1));
    std::uint64_t size = 0;
    EXPECT_TRUE(GetFileSize(first, size));
    EXPECT_EQ(size, 4U);
    CloseFile(first);
    CloseFile(second);
    EXPECT_EQ(Read(GetPath("log")), "1223");
}

TEST_F(FilesTest, OpenFileToAppend_FolderOrNoFolder_Invalid)
{
    EXPECT_EQ(OpenFileToAppend(m_folder.GetPath().string().c_str(), FileRights::USUAL), INVALID_FILE_HANDLE);
    EXPECT_EQ(OpenFileToAppend(GetPath("no/file").c_str(), FileRights::USUAL), INVALID_FILE_HANDLE);
}

TEST_F(FilesTest, MakeNewFile_NameIsThere_InvalidAndUntouched)
{
    Write(GetPath("a"), "1");
    EXPECT_EQ(MakeNewFile(GetPath("a").c_str(), FileRights::OWNER), INVALID_FILE_HANDLE);
    EXPECT_EQ(Read(GetPath("a")), "1");
    const FileHandle made = MakeNewFile(GetPath("b").c_str(), FileRights::OWNER);
    ASSERT_NE(made, INVALID_FILE_HANDLE);
    EXPECT_TRUE(WriteFile(made, "2", 1));
    CloseFile(made);
    EXPECT_EQ(Read(GetPath("b")), "2");
}

TEST_F(FilesTest, IsFileAt_UntilItIsMovedDeletedOrReplaced)
{
    const FileHandle file = OpenFileToAppend(GetPath("a").c_str(), FileRights::USUAL);
    EXPECT_TRUE(IsFileAt(file, GetPath("a").c_str()));
    Write(GetPath("b"), "another");
    EXPECT_FALSE(IsFileAt(file, GetPath("b").c_str()));
    EXPECT_TRUE(ReplaceFileBy(GetPath("a").c_str(), GetPath("c").c_str()));
    EXPECT_FALSE(IsFileAt(file, GetPath("a").c_str()));
    EXPECT_TRUE(ReplaceFileBy(GetPath("b").c_str(), GetPath("a").c_str()));
    EXPECT_FALSE(IsFileAt(file, GetPath("a").c_str()));
    EXPECT_FALSE(IsFileAt(INVALID_FILE_HANDLE, GetPath("a").c_str()));
    CloseFile(file);
}

TEST_F(FilesTest, IsFileAt_MovedWhileOpen_AtItsNewPlace)
{
    const FileHandle file = OpenFileToAppend(GetPath("a").c_str(), FileRights::USUAL);
    EXPECT_TRUE(ReplaceFileBy(GetPath("a").c_str(), GetPath("b").c_str()));
    EXPECT_TRUE(IsFileAt(file, GetPath("b").c_str()));
    CloseFile(file);
}

TEST_F(FilesTest, GetFileWriteTime_JustWritten_AboutNow)
{
    const FileHandle file = OpenFileToAppend(GetPath("a").c_str(), FileRights::USUAL);
    EXPECT_TRUE(WriteFile(file, "1", 1));
    std::int64_t written = 0;
    EXPECT_TRUE(GetFileWriteTime(file, written));
    EXPECT_LT(std::abs(written - WallClockMs()), 60000);
    CloseFile(file);
    EXPECT_FALSE(GetFileWriteTime(INVALID_FILE_HANDLE, written));
}

TEST_F(FilesTest, WriteFile_Written_AllOrNothing)
{
    const FileHandle file = OpenFileToAppend(GetPath("a").c_str(), FileRights::USUAL);
    std::size_t written = 9;
    EXPECT_TRUE(WriteFile(file, "123", 3, nullptr, &written));
    EXPECT_EQ(written, 3U);
    CloseFile(file);
    EXPECT_FALSE(WriteFile(INVALID_FILE_HANDLE, "123", 3, nullptr, &written));
    EXPECT_EQ(written, 0U);
}

TEST_F(FilesTest, ReadFile_AtTheEnd_ZeroBytesAndTrue)
{
    Write(GetPath("a"), "12");
    const FileHandle file = OpenFile(GetPath("a").c_str(), FileMode::READ, false, false);
    char buffer[8];
    std::size_t got = 9;
    EXPECT_TRUE(ReadFile(file, buffer, sizeof(buffer), got));
    EXPECT_EQ(got, 2U);
    EXPECT_TRUE(ReadFile(file, buffer, sizeof(buffer), got));
    EXPECT_EQ(got, 0U);
    CloseFile(file);
}

TEST_F(FilesTest, WriteFile_OpenedForReading_False)
{
    Write(GetPath("a"), "12");
    const FileHandle file = OpenFile(GetPath("a").c_str(), FileMode::READ, false, false);
    EXPECT_FALSE(WriteFile(file, "x", 1));
    CloseFile(file);
    EXPECT_EQ(Read(GetPath("a")), "12");
}

TEST_F(FilesTest, SeekFile_BeyondFourGigabytes_SizeFollows)
{
    constexpr std::uint64_t far = (std::uint64_t{1} << 32) + 5;
    const FileHandle file = OpenFile(GetPath("sparse").c_str(), FileMode::READWRITE, true, true);
    ASSERT_TRUE(SetFileSize(file, far));
    std::uint64_t size = 0;
    ASSERT_TRUE(GetFileSize(file, size));
    EXPECT_EQ(size, far);
    ASSERT_TRUE(SeekFile(file, far - 1));
    EXPECT_TRUE(WriteFile(file, "xy", 2));
    ASSERT_TRUE(GetFileSize(file, size));
    EXPECT_EQ(size, far + 1);
    EXPECT_FALSE(SeekFile(file, UINT64_MAX));
    CloseFile(file);
}

TEST_F(FilesTest, SetFileSize_Shorter_LeavesThePosition)
{
    Write(GetPath("a"), "123456");
    const FileHandle file = OpenFile(GetPath("a").c_str(), FileMode::READWRITE, false, false);
    ASSERT_TRUE(SeekFile(file, 2));
    ASSERT_TRUE(SetFileSize(file, 4));
    char byte = 0;
    std::size_t got = 0;
    EXPECT_TRUE(ReadFile(file, &byte, 1, got));
    EXPECT_EQ(byte, '3');
    EXPECT_TRUE(FlushFile(file));
    CloseFile(file);
    EXPECT_EQ(Read(GetPath("a")), "1234");
}

TEST_F(FilesTest, ReplaceFileBy_TargetExists_TakesItsPlace)
{
    Write(GetPath("new"), "new");
    Write(GetPath("old"), "old");
    EXPECT_TRUE(ReplaceFileBy(GetPath("new").c_str(), GetPath("old").c_str()));
    EXPECT_EQ(Read(GetPath("old")), "new");
    EXPECT_FALSE(RemoveFile(GetPath("new").c_str()));
}

TEST_F(FilesTest, ReplaceFileBy_SourceMissing_FalseAndTargetStays)
{
    Write(GetPath("old"), "old");
    EXPECT_FALSE(ReplaceFileBy(GetPath("new").c_str(), GetPath("old").c_str()));
    EXPECT_EQ(Read(GetPath("old")), "old");
}

TEST_F(FilesTest, RemoveFile_OpenElsewhere_NameIsGone)
{
    Write(GetPath("a"), "1");
    const FileHandle file = OpenFile(GetPath("a").c_str(), FileMode::READ, false, false);
    EXPECT_TRUE(RemoveFile(GetPath("a").c_str()));
    CloseFile(file);
    EXPECT_FALSE(RemoveFile(GetPath("a").c_str()));
}

TEST_F(FilesTest, CloseFile_InvalidHandle_Ignored)
{
    CloseFile(INVALID_FILE_HANDLE);
    std::uint64_t size = 0;
    EXPECT_FALSE(GetFileSize(INVALID_FILE_HANDLE, size));
}

} // namespace
} // namespace kqlib::platform
