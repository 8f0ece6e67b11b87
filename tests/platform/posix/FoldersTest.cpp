// Work beneath one folder, where only POSIX has the things that stand in the way.
#include "platform/Folders.h"

#include "tests/peers/TempFolder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <sys/stat.h>
#include <vector>

namespace kqlib::platform {
namespace {

class PosixFoldersTest : public testing::Test
{
protected:
    void SetUp() override { ASSERT_EQ(m_root.Open(m_temp.GetPath().c_str()), FileResult::DONE); }

    FileResult Open(const std::string& path, FileMode mode)
    {
        FileHandle file = INVALID_FILE_HANDLE;
        bool made = false;
        const FileResult result = m_root.OpenFile(path, mode, true, file, made);
        EXPECT_FALSE(made);
        EXPECT_EQ(file, INVALID_FILE_HANDLE);
        return result;
    }

    test::TempFolder m_temp;
    RootFolder m_root;
};

TEST_F(PosixFoldersTest, OpenFile_Pipe_NotFileWithoutWaitingForItsOtherEnd)
{
    ASSERT_EQ(::mkfifo((m_temp / "pipe").c_str(), 0600), 0);
    EXPECT_EQ(Open("pipe", FileMode::READ), FileResult::NOT_FILE);
    EXPECT_EQ(Open("pipe", FileMode::WRITE), FileResult::NOT_FILE);
    EXPECT_EQ(Open("pipe", FileMode::READWRITE), FileResult::NOT_FILE);
}

// What the kernel shows of its own takes no new names and gives none away, not even for the administrator.
TEST_F(PosixFoldersTest, Change_WhereTheSystemAllowsNone_Denied)
{
    ASSERT_EQ(m_root.Open("/proc/self"), FileResult::DONE);
    EXPECT_EQ(m_root.RemoveFile("status"), FileResult::DENIED);
    EXPECT_EQ(m_root.RemoveFolder("fd"), FileResult::DENIED);
    FileFacts facts;
    EXPECT_EQ(m_root.GetFacts("status", facts), FileResult::DONE);
}

TEST_F(PosixFoldersTest, OpenFile_RunningProgramForWriting_Denied)
{
    const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe");
    ASSERT_EQ(m_root.Open(program.parent_path().c_str()), FileResult::DONE);
    EXPECT_EQ(Open(program.filename(), FileMode::WRITE), FileResult::DENIED);
}

TEST_F(PosixFoldersTest, Rename_FolderIntoItself_FailedAndNothingMoved)
{
    ASSERT_EQ(m_root.MakeFolder("outer"), FileResult::DONE);
    ASSERT_EQ(m_root.MakeFolder("outer/there"), FileResult::DONE);
    EXPECT_EQ(m_root.Rename("outer", "outer/inner", false), FileResult::FAILED);
    EXPECT_EQ(m_root.Rename("outer", "outer/inner", true), FileResult::FAILED);
    EXPECT_EQ(m_root.Rename("outer", "outer/there", false), FileResult::EXISTS);
    EXPECT_TRUE(std::filesystem::is_directory(m_temp / "outer/there"));
}

TEST_F(PosixFoldersTest, FolderReader_EntriesRemovedWhileItReads_LeftOut)
{
    const std::vector<std::string> names = {"one", "two", "three", "four"};
    for (const std::string& name : names)
        std::ofstream(m_temp / name) << name;
    FolderReader reader;
    ASSERT_EQ(reader.Open(m_root, ""), FileResult::DONE);
    // The system hands several names over at once: these it goes on telling.
    std::string first;
    FileFacts facts;
    ASSERT_TRUE(reader.Read(first, facts));
    ASSERT_NE(std::find(names.begin(), names.end(), first), names.end());
    for (const std::string& name : names)
        std::filesystem::remove(m_temp / name);
    std::string next;
    EXPECT_FALSE(reader.Read(next, facts)) << next;
}

} // namespace
} // namespace kqlib::platform
