#include "platform/Folders.h"

#include "platform/Clock.h"
#include "tests/peers/Missing.h"
#include "tests/peers/TempFolder.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <set>

namespace kqlib::platform {
namespace {

class FoldersTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        std::filesystem::create_directories(m_temp / "root/sub/deep");
        WriteText("root/sub/file.txt", "12345");
        WriteText("outside.txt", "secret");
        ASSERT_EQ(m_root.Open((m_temp / "root").string().c_str()), FileResult::DONE);
    }

    void WriteText(const std::string& name, const std::string& text) const
    {
        std::ofstream(m_temp / name, std::ios::binary) << text;
    }

    std::string ReadText(const std::string& name) const
    {
        std::ifstream in(m_temp / name, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }

    FileResult Kind(const std::string& path, FileKind& kind) const
    {
        FileFacts facts;
        const FileResult result = m_root.GetFacts(path, facts);
        kind = facts.kind;
        return result;
    }

    test::TempFolder m_temp;
    RootFolder m_root;
};

TEST_F(FoldersTest, Open_MissingOrFile_SaysWhich)
{
    RootFolder root;
    EXPECT_EQ(root.Open((m_temp / "none").string().c_str()), FileResult::NOT_FOUND);
    EXPECT_EQ(root.Open((m_temp / "outside.txt").string().c_str()), FileResult::NOT_FOLDER);
    EXPECT_FALSE(root.IsOpen());
    EXPECT_TRUE(m_root.IsOpen());
    m_root.Close();
    EXPECT_FALSE(m_root.IsOpen());
}

TEST_F(FoldersTest, GetFacts_FileAndFolder_KindSizeTime)
{
    FileFacts facts;
    ASSERT_EQ(m_root.GetFacts("sub/file.txt", facts), FileResult::DONE);
    EXPECT_EQ(facts.kind, FileKind::FILE);
    EXPECT_EQ(facts.size, 5U);
    EXPECT_EQ(facts.links, 1U);
    EXPECT_NEAR(static_cast<double>(facts.modifiedMs), static_cast<double>(WallClockMs()), 60000.0);
    EXPECT_NE(facts.permissions & 0400U, 0U);

    FileFacts folder;
    ASSERT_EQ(m_root.GetFacts("sub", folder), FileResult::DONE);
    EXPECT_EQ(folder.kind, FileKind::FOLDER);
    EXPECT_EQ(folder.size, 0U);
    EXPECT_EQ(folder.volume, facts.volume);
    EXPECT_NE(folder.serial, facts.serial);
    EXPECT_EQ(m_root.GetFacts("sub/none", facts), FileResult::NOT_FOUND);
    EXPECT_EQ(m_root.GetFacts("none/file", facts), FileResult::NOT_FOUND);
    EXPECT_EQ(m_root.GetFacts("sub/file.txt/x", facts), FileResult::NOT_FOLDER);
}

TEST_F(FoldersTest, GetFacts_EmptyNamesAndDots_AreSkipped)
{
    FileKind kind = FileKind::OTHER;
    for (const char* path : {"", "/", ".", "//sub/..", "./sub//deep/../.."}) {
        EXPECT_EQ(Kind(path, kind), FileResult::DONE) << path;
        EXPECT_EQ(kind, FileKind::FOLDER) << path;
    }
    EXPECT_EQ(Kind("/sub//.//file.txt", kind), FileResult::DONE);
    EXPECT_EQ(kind, FileKind::FILE);
}

TEST_F(FoldersTest, GetFacts_AboveTheRoot_Escapes)
{
    FileKind kind = FileKind::OTHER;
    for (const char* path : {"..", "../outside.txt", "sub/../..", "sub/../../outside.txt", "/../root"})
        EXPECT_EQ(Kind(path, kind), FileResult::ESCAPES) << path;
}

TEST_F(FoldersTest, GetFacts_NulInThePath_BadName)
{
    FileKind kind = FileKind::OTHER;
    EXPECT_EQ(Kind(std::string("sub\0/..", 7), kind), FileResult::BAD_NAME);
}

TEST_F(FoldersTest, OpenFile_CreateTwice_MadeOnlyOnce)
{
    FileHandle file = INVALID_FILE_HANDLE;
    bool made = false;
    EXPECT_EQ(m_root.OpenFile("sub/new", FileMode::WRITE, false, file, made), FileResult::NOT_FOUND);
    EXPECT_EQ(file, INVALID_FILE_HANDLE);
    ASSERT_EQ(m_root.OpenFile("sub/new", FileMode::WRITE, true, file, made), FileResult::DONE);
    EXPECT_TRUE(made);
    EXPECT_TRUE(WriteFile(file, "abc", 3));
    CloseFile(file);
    ASSERT_EQ(m_root.OpenFile("sub/new", FileMode::READWRITE, true, file, made), FileResult::DONE);
    EXPECT_FALSE(made);
    char buffer[8];
    std::size_t got = 0;
    EXPECT_TRUE(ReadFile(file, buffer, sizeof(buffer), got));
    EXPECT_EQ(std::string(buffer, got), "abc");
    CloseFile(file);
}

TEST_F(FoldersTest, OpenFile_Folder_IsFolder)
{
    FileHandle file = INVALID_FILE_HANDLE;
    bool made = false;
    EXPECT_EQ(m_root.OpenFile("sub", FileMode::READ, false, file, made), FileResult::IS_FOLDER);
    EXPECT_EQ(m_root.OpenFile("", FileMode::READ, false, file, made), FileResult::IS_FOLDER);
    EXPECT_EQ(m_root.OpenFile("sub", FileMode::WRITE, true, file, made), FileResult::IS_FOLDER);
    EXPECT_FALSE(made);
}

TEST_F(FoldersTest, MakeFolder_NewAndExisting_SaysWhich)
{
    EXPECT_EQ(m_root.MakeFolder("made"), FileResult::DONE);
    EXPECT_TRUE(std::filesystem::is_directory(m_temp / "root/made"));
    EXPECT_EQ(m_root.MakeFolder("made"), FileResult::EXISTS);
    EXPECT_EQ(m_root.MakeFolder("sub/file.txt"), FileResult::EXISTS);
    EXPECT_EQ(m_root.MakeFolder("none/made"), FileResult::NOT_FOUND);
    EXPECT_EQ(m_root.MakeFolder(""), FileResult::EXISTS);
}

TEST_F(FoldersTest, RemoveFolder_EmptyFullAndOthers_SaysWhich)
{
    EXPECT_EQ(m_root.RemoveFolder("sub"), FileResult::NOT_EMPTY);
    EXPECT_EQ(m_root.RemoveFolder("sub/file.txt"), FileResult::NOT_FOLDER);
    EXPECT_EQ(m_root.RemoveFolder("none"), FileResult::NOT_FOUND);
    EXPECT_EQ(m_root.RemoveFolder(""), FileResult::DENIED);
    EXPECT_EQ(m_root.RemoveFolder("sub/deep"), FileResult::DONE);
    EXPECT_FALSE(std::filesystem::exists(m_temp / "root/sub/deep"));
}

TEST_F(FoldersTest, RemoveFile_FileFolderAndMissing_SaysWhich)
{
    EXPECT_EQ(m_root.RemoveFile("sub/deep"), FileResult::IS_FOLDER);
    EXPECT_EQ(m_root.RemoveFile("sub/none"), FileResult::NOT_FOUND);
    EXPECT_EQ(m_root.RemoveFile(""), FileResult::DENIED);
    EXPECT_EQ(m_root.RemoveFile("sub/file.txt"), FileResult::DONE);
    EXPECT_FALSE(std::filesystem::exists(m_temp / "root/sub/file.txt"));
}

TEST_F(FoldersTest, Rename_ToAnotherFolder_Moves)
{
    EXPECT_EQ(m_root.Rename("sub/file.txt", "sub/deep/moved.txt", false), FileResult::DONE);
    EXPECT_EQ(ReadText("root/sub/deep/moved.txt"), "12345");
    EXPECT_EQ(m_root.Rename("sub/deep", "other", false), FileResult::DONE);
    EXPECT_EQ(ReadText("root/other/moved.txt"), "12345");
    EXPECT_EQ(m_root.Rename("none", "x", true), FileResult::NOT_FOUND);
    EXPECT_EQ(m_root.Rename("", "x", true), FileResult::DENIED);
    EXPECT_EQ(m_root.Rename("other/moved.txt", "../moved.txt", true), FileResult::ESCAPES);
}

TEST_F(FoldersTest, Rename_TargetExists_OnlyWithReplace)
{
    WriteText("root/target", "old");
    EXPECT_EQ(m_root.Rename("sub/file.txt", "target", false), FileResult::EXISTS);
    EXPECT_EQ(ReadText("root/target"), "old");
    EXPECT_EQ(m_root.Rename("sub/file.txt", "target", true), FileResult::DONE);
    EXPECT_EQ(ReadText("root/target"), "12345");
}

TEST_F(FoldersTest, SetModified_BeforeAndAfter1970_ReadBack)
{
    for (const std::int64_t wanted : {std::int64_t{1234567890123}, std::int64_t{-86399500}, std::int64_t{0}}) {
        ASSERT_EQ(m_root.SetModified("sub/file.txt", wanted), FileResult::DONE);
        FileFacts facts;
        ASSERT_EQ(m_root.GetFacts("sub/file.txt", facts), FileResult::DONE);
        // Some file systems note seconds only; time counts upwards there too.
        EXPECT_NEAR(static_cast<double>(facts.modifiedMs), static_cast<double>(wanted), 1000.0);
    }
    EXPECT_EQ(m_root.SetModified("none", 0), FileResult::NOT_FOUND);
}

TEST_F(FoldersTest, SetPermissions_OwnersWrite_ReadBack)
{
    FileFacts facts;
    ASSERT_EQ(m_root.SetPermissions("sub/file.txt", 0444), FileResult::DONE);
    ASSERT_EQ(m_root.GetFacts("sub/file.txt", facts), FileResult::DONE);
    EXPECT_EQ(facts.permissions, 0444U);
    ASSERT_EQ(m_root.SetPermissions("sub/file.txt", 0666), FileResult::DONE);
    ASSERT_EQ(m_root.GetFacts("sub/file.txt", facts), FileResult::DONE);
    EXPECT_EQ(facts.permissions, 0666U);
    EXPECT_EQ(facts.size, 5U);
    EXPECT_EQ(m_root.SetPermissions("sub/deep", 0700), FileResult::DONE);
    EXPECT_EQ(m_root.SetPermissions("none", 0700), FileResult::NOT_FOUND);
    EXPECT_EQ(m_root.SetPermissions("../outside.txt", 0777), FileResult::ESCAPES);
}

TEST_F(FoldersTest, GetFreeBytes_OfAFolder_AsTheStandardLibrarySays)
{
    for (const char* path : {"", "sub", "sub/deep/../deep"}) {
        std::uint64_t bytes = 0;
        ASSERT_EQ(m_root.GetFreeBytes(path, bytes), FileResult::DONE) << path;
        const auto expected = static_cast<double>(std::filesystem::space(m_temp.GetPath()).available);
        EXPECT_NEAR(static_cast<double>(bytes), expected, expected / 2 + 1e9) << "others write meanwhile";
    }
    std::uint64_t bytes = 0;
    EXPECT_EQ(m_root.GetFreeBytes("sub/file.txt", bytes), FileResult::NOT_FOLDER);
    EXPECT_EQ(m_root.GetFreeBytes("none", bytes), FileResult::NOT_FOUND);
    EXPECT_EQ(m_root.GetFreeBytes("..", bytes), FileResult::ESCAPES);
    EXPECT_EQ(RootFolder().GetFreeBytes("", bytes) == FileResult::DONE, false);
}

TEST_F(FoldersTest, FolderReader_AllEntries_EachOnceWithItsFacts)
{
    constexpr int count = 1500;
    for (int i = 0; i < count; i++)
        WriteText("root/sub/entry-" + std::to_string(i), std::string(static_cast<std::size_t>(i % 7), 'x'));
    FolderReader reader;
    ASSERT_EQ(reader.Open(m_root, "sub"), FileResult::DONE);
    std::map<std::string, FileFacts> found;
    std::string name;
    FileFacts facts;
    while (reader.Read(name, facts))
        EXPECT_TRUE(found.emplace(name, facts).second) << name;
    EXPECT_EQ(found.size(), static_cast<std::size_t>(count) + 2);
    EXPECT_EQ(found["deep"].kind, FileKind::FOLDER);
    EXPECT_EQ(found["file.txt"].size, 5U);
    EXPECT_EQ(found["entry-6"].size, 6U);
    EXPECT_FALSE(reader.Read(name, facts));
    EXPECT_EQ(reader.Open(m_root, "sub/file.txt"), FileResult::NOT_FOLDER);
    EXPECT_EQ(reader.Open(m_root, "none"), FileResult::NOT_FOUND);
}

TEST_F(FoldersTest, FolderReader_RootClosedMeanwhile_ReadsOn)
{
    FolderReader reader;
    ASSERT_EQ(reader.Open(m_root, ""), FileResult::DONE);
    m_root.Close();
    std::string name;
    FileFacts facts;
    ASSERT_TRUE(reader.Read(name, facts));
    EXPECT_EQ(name, "sub");
    EXPECT_FALSE(reader.Read(name, facts));
}

TEST_F(FoldersTest, OpenFile_NameOutsideAscii_TheSameOnTheDisk)
{
    const std::string name = "\xC3\xA4\xE2\x82\xAC.txt";
    FileHandle file = INVALID_FILE_HANDLE;
    bool made = false;
    ASSERT_EQ(m_root.OpenFile(name, FileMode::WRITE, true, file, made), FileResult::DONE);
    CloseFile(file);
    FolderReader reader;
    ASSERT_EQ(reader.Open(m_root, ""), FileResult::DONE);
    std::set<std::string> names;
    std::string one;
    FileFacts facts;
    while (reader.Read(one, facts))
        names.insert(one);
    EXPECT_EQ(names, (std::set<std::string>{"sub", name}));
}

/// Links made by the standard library; where the system gives none to this user, the case says so and is skipped.
class FolderLinksTest : public FoldersTest
{
protected:
    void Link(const std::string& name, const std::filesystem::path& text, bool folder)
    {
        std::error_code failed;
        if (folder)
            std::filesystem::create_directory_symlink(text, m_temp / name, failed);
        else
            std::filesystem::create_symlink(text, m_temp / name, failed);
        m_linksFail = m_linksFail || failed;
    }

    bool m_linksFail = false;
};

TEST_F(FolderLinksTest, GetFacts_LinkInside_FollowedUnlessItIsAskedItself)
{
    Link("root/link", "sub/file.txt", false);
    Link("root/folder", "sub", true);
    if (m_linksFail)
        KQ_MISSING("symbolic links cannot be made here");
    FileFacts facts;
    ASSERT_EQ(m_root.GetFacts("link", facts), FileResult::DONE);
    EXPECT_EQ(facts.kind, FileKind::FILE);
    ASSERT_EQ(m_root.GetOwnFacts("link", facts), FileResult::DONE);
    EXPECT_EQ(facts.kind, FileKind::LINK);
    ASSERT_EQ(m_root.GetFacts("folder/../folder/file.txt", facts), FileResult::DONE);
    EXPECT_EQ(facts.size, 5U);
    EXPECT_EQ(m_root.RemoveFolder("folder"), FileResult::NOT_FOLDER);
    EXPECT_EQ(m_root.RemoveFile("folder"), FileResult::DONE);
    EXPECT_TRUE(std::filesystem::exists(m_temp / "root/sub"));
}

TEST_F(FolderLinksTest, OpenFile_LinkThatLeadsOut_Escapes)
{
    Link("root/up", "..", true);
    Link("root/file", "../outside.txt", false);
    Link("root/absolute", m_temp / "root", true);
    Link("root/sub/deep/far", "../../../outside.txt", false);
    if (m_linksFail)
        KQ_MISSING("symbolic links cannot be made here");
    FileHandle file = INVALID_FILE_HANDLE;
    bool made = false;
    for (const char* path : {"up/outside.txt", "file", "absolute/sub/file.txt", "sub/deep/far"}) {
        EXPECT_EQ(m_root.OpenFile(path, FileMode::READ, false, file, made), FileResult::ESCAPES) << path;
        EXPECT_EQ(m_root.OpenFile(path, FileMode::WRITE, true, file, made), FileResult::ESCAPES) << path;
    }
    EXPECT_EQ(ReadText("outside.txt"), "secret");
}

TEST_F(FolderLinksTest, GetFacts_LinksInACircle_TooMany)
{
    Link("root/a", "b", false);
    Link("root/b", "a", false);
    if (m_linksFail)
        KQ_MISSING("symbolic links cannot be made here");
    FileFacts facts;
    EXPECT_EQ(m_root.GetFacts("a", facts), FileResult::TOO_MANY_LINKS);
    EXPECT_EQ(m_root.GetOwnFacts("a", facts), FileResult::DONE);
}

} // namespace
} // namespace kqlib::platform
