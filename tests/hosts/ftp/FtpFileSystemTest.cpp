// Tests of virtual paths and of the home that nothing leads out of.
#include "hosts/ftp/FtpFileSystem.h"

#include "hosts/ftpcommon/FtpFile.h"
#include "hosts/ftpcommon/FtpPaths.h"
#include "tests/peers/TempFolder.h"
#include "tests/peers/WaitFor.h"

#include <atomic>
#include <fstream>
#include <gtest/gtest.h>
#include <set>
#include <thread>

namespace kqlib {
namespace {

namespace fs = std::filesystem;
using platform::FileKind;
using platform::FileMode;
using platform::FileResult;

class FtpFileSystemTest : public testing::Test
{
protected:
    FtpFileSystemTest()
    {
        fs::create_directories(m_home / "a/b");
        fs::create_directory(m_folder / "outside");
        Write(m_folder / "outside/secret", "secret");
        Write(m_home / "file", "inside");
        Write(m_home / "a/file", "in a");
        EXPECT_EQ(m_files.Open(FromStdPath(m_home)), FileResult::DONE);
    }

    static void Write(const fs::path& path, const char* text) { std::ofstream(path, std::ios::binary) << text; }
    static std::string Read(const fs::path& path)
    {
        std::ifstream stream(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
    }

    String Resolve(const String& text)
    {
        String path;
        return m_files.Resolve(text, path) == FileResult::DONE ? path : String("refused");
    }
    FileResult OpenForReading(const char* path)
    {
        FtpFile file;
        return file.Open(m_files.GetRoot(), path, FileMode::READ, false);
    }
    FileResult Facts(const char* path)
    {
        FtpFileSystem::FACTS facts;
        return m_files.GetRoot().GetFacts(path, facts);
    }

    test::TempFolder m_folder;
    fs::path m_home = m_folder / "home";
    FtpFileSystem m_files;
};

// --- virtual paths

TEST_F(FtpFileSystemTest, Resolve_FromTheTop_PlainForm)
{
    EXPECT_EQ(Resolve(""), "/");
    EXPECT_EQ(Resolve("/"), "/");
    EXPECT_EQ(Resolve("x"), "/x");
    EXPECT_EQ(Resolve("//x///y/"), "/x/y");
    EXPECT_EQ(Resolve("/x/./y/."), "/x/y");
    EXPECT_EQ(Resolve("/x/../y"), "/y");
    EXPECT_EQ(Resolve(" x "), "/ x ");
    EXPECT_EQ(Resolve("..."), "/...");
}

TEST_F(FtpFileSystemTest, Resolve_AboveTheTop_StaysAtTheTop)
{
    EXPECT_EQ(Resolve(".."), "/");
    EXPECT_EQ(Resolve("../../../etc/passwd"), "/etc/passwd");
    EXPECT_EQ(Resolve("/a/../../.."), "/");
}

TEST_F(FtpFileSystemTest, Resolve_InAFolder_RelativeToIt)
{
    ASSERT_EQ(m_files.SetFolder("/a/b"), FileResult::DONE);
    EXPECT_EQ(Resolve("x"), "/a/b/x");
    EXPECT_EQ(Resolve(".."), "/a");
    EXPECT_EQ(Resolve("/x"), "/x");
    EXPECT_EQ(Resolve(""), "/a/b");
}

TEST_F(FtpFileSystemTest, Resolve_ControlCharactersAndTooLong_Refused)
{
    EXPECT_EQ(Resolve("a\r\nb"), "refused");
    EXPECT_EQ(Resolve(String("a\0b", 3)), "refused");
    EXPECT_EQ(Resolve("a\x7F"), "refused");
    EXPECT_EQ(Resolve(String(FtpFileSystem::MAX_PATH - 1, 'x')).size(), FtpFileSystem::MAX_PATH);
    EXPECT_EQ(Resolve(String(FtpFileSystem::MAX_PATH, 'x')), "refused");
}

TEST_F(FtpFileSystemTest, SetFolder_FileOrMissing_RefusedAndUnchanged)
{
    EXPECT_EQ(m_files.SetFolder("/file"), FileResult::NOT_FOLDER);
    EXPECT_EQ(m_files.SetFolder("/missing"), FileResult::NOT_FOUND);
    EXPECT_EQ(m_files.GetFolder(), "/");
}

// --- the walk

TEST_F(FtpFileSystemTest, Walk_DotDotAboveTheRoot_Escapes)
{
    EXPECT_EQ(OpenForReading("../outside/secret"), FileResult::ESCAPES);
    EXPECT_EQ(OpenForReading("a/../../outside/secret"), FileResult::ESCAPES);
    EXPECT_EQ(Facts(".."), FileResult::ESCAPES);
    EXPECT_EQ(Facts("a/.."), FileResult::DONE);
    EXPECT_EQ(OpenForReading("a/../file"), FileResult::DONE);
}

TEST_F(FtpFileSystemTest, Walk_AbsoluteLinks_Escape)
{
    fs::create_symlink(m_folder / "outside/secret", m_home / "link");
    fs::create_symlink(m_folder / "outside", m_home / "dirlink");
    fs::create_symlink(m_home / "file", m_home / "inlink"); // absolute, though it points inside
    EXPECT_EQ(OpenForReading("link"), FileResult::ESCAPES);
    EXPECT_EQ(OpenForReading("dirlink/secret"), FileResult::ESCAPES);
    EXPECT_EQ(OpenForReading("inlink"), FileResult::ESCAPES);
    EXPECT_EQ(m_files.SetFolder("/dirlink"), FileResult::ESCAPES);
}

TEST_F(FtpFileSystemTest, Walk_RelativeLinks_FollowedBeneathTheHomeOnly)
{
    fs::create_symlink("../file", m_home / "a/up");
    fs::create_symlink("a", m_home / "toa");
    fs::create_symlink("../outside/secret", m_home / "out");
    fs::create_symlink("a/../../outside", m_home / "sly");
    EXPECT_EQ(OpenForReading("a/up"), FileResult::DONE);
    EXPECT_EQ(OpenForReading("toa/up"), FileResult::DONE);
    EXPECT_EQ(OpenForReading("toa/b/../file"), FileResult::DONE);
    EXPECT_EQ(OpenForReading("out"), FileResult::ESCAPES);
    EXPECT_EQ(OpenForReading("sly/secret"), FileResult::ESCAPES);
}

TEST_F(FtpFileSystemTest, Walk_RelativeLinkMovedByRename_EscapesFromItsNewPlace)
{
    fs::create_symlink("../../outside/secret", m_home / "a/b/link"); // from here it stays inside: home/outside/secret
    EXPECT_EQ(OpenForReading("a/b/link"), FileResult::NOT_FOUND);
    ASSERT_EQ(m_files.Rename("/a/b/link", "/a/link", false), FileResult::DONE);
    EXPECT_EQ(OpenForReading("a/link"), FileResult::ESCAPES);
    ASSERT_EQ(m_files.Rename("/a/link", "/link", false), FileResult::DONE);
    EXPECT_EQ(OpenForReading("link"), FileResult::ESCAPES);
}

TEST_F(FtpFileSystemTest, Walk_LinkLoopAndLongChain_End)
{
    fs::create_symlink("loop2", m_home / "loop1");
    fs::create_symlink("loop1", m_home / "loop2");
    EXPECT_EQ(OpenForReading("loop1"), FileResult::TOO_MANY_LINKS);
    fs::create_symlink("file", m_home / "chain0");
    for (unsigned i = 1; i <= platform::MAX_LINKS; ++i)
        fs::create_symlink("chain" + std::to_string(i - 1), m_home / ("chain" + std::to_string(i)));
    EXPECT_EQ(OpenForReading(("chain" + std::to_string(platform::MAX_LINKS - 1)).c_str()), FileResult::DONE);
    EXPECT_EQ(OpenForReading(("chain" + std::to_string(platform::MAX_LINKS)).c_str()), FileResult::TOO_MANY_LINKS);
}

TEST_F(FtpFileSystemTest, Open_WritingThroughLinks_NeverOutside)
{
    fs::create_symlink("../outside/new", m_home / "out");
    fs::create_symlink("a/new", m_home / "in");
    FtpFile file;
    EXPECT_EQ(file.Open(m_files.GetRoot(), "out", FileMode::WRITE, true), FileResult::ESCAPES);
    EXPECT_FALSE(fs::exists(m_folder / "outside/new"));
    EXPECT_EQ(file.Open(m_files.GetRoot(), "in", FileMode::WRITE, true), FileResult::DONE);
    EXPECT_TRUE(file.WasMade());
    EXPECT_TRUE(fs::exists(m_home / "a/new"));
}

TEST_F(FtpFileSystemTest, Open_WhatIsNoFile_SaysWhat)
{
    FtpFile file;
    EXPECT_EQ(OpenForReading("a"), FileResult::IS_FOLDER);
    EXPECT_EQ(OpenForReading(""), FileResult::IS_FOLDER);
    EXPECT_EQ(OpenForReading("file/x"), FileResult::NOT_FOLDER);
    EXPECT_EQ(OpenForReading("missing"), FileResult::NOT_FOUND);
    EXPECT_EQ(OpenForReading("missing/x"), FileResult::NOT_FOUND);
    EXPECT_EQ(OpenForReading(std::string(300, 'x').c_str()), FileResult::BAD_NAME);
    EXPECT_EQ(file.Open(m_files.GetRoot(), "a", FileMode::WRITE, true), FileResult::IS_FOLDER);
}

TEST_F(FtpFileSystemTest, Open_Existing_KeepsContentAndIsNotMade)
{
    FtpFile file;
    ASSERT_EQ(file.Open(m_files.GetRoot(), "file", FileMode::WRITE, true), FileResult::DONE);
    EXPECT_FALSE(file.WasMade());
    EXPECT_EQ(file.GetSize(), 6U);
}

TEST_F(FtpFileSystemTest, RemoveAndRename_ActOnTheLinkItself)
{
    fs::create_symlink("../outside/secret", m_home / "out");
    fs::create_symlink("../outside", m_home / "outdir");
    EXPECT_NE(m_files.GetRoot().RemoveFolder("outdir"), FileResult::DONE);
    EXPECT_EQ(m_files.GetRoot().RemoveFile("outdir"), FileResult::DONE);
    EXPECT_EQ(m_files.Rename("/out", "/a/out", false), FileResult::DONE);
    EXPECT_EQ(m_files.GetRoot().RemoveFile("a/out"), FileResult::DONE);
    EXPECT_EQ(Read(m_folder / "outside/secret"), "secret");
}

TEST_F(FtpFileSystemTest, Changes_ThroughALinkOutOfTheHome_Refused)
{
    fs::create_symlink("../outside", m_home / "outdir");
    EXPECT_EQ(m_files.GetRoot().MakeFolder("outdir/new"), FileResult::ESCAPES);
    EXPECT_EQ(m_files.GetRoot().RemoveFile("outdir/secret"), FileResult::ESCAPES);
    EXPECT_EQ(m_files.Rename("/outdir/secret", "/mine", true), FileResult::ESCAPES);
    EXPECT_EQ(m_files.Rename("/file", "/outdir/file", true), FileResult::ESCAPES);
    EXPECT_EQ(m_files.GetRoot().SetModified("outdir/secret", 0), FileResult::ESCAPES);
    platform::FolderReader reader;
    EXPECT_EQ(reader.Open(m_files.GetRoot(), "outdir"), FileResult::ESCAPES);
}

TEST_F(FtpFileSystemTest, Root_RemovedOrRenamed_Denied)
{
    EXPECT_EQ(m_files.GetRoot().RemoveFolder(""), FileResult::DENIED);
    EXPECT_EQ(m_files.GetRoot().RemoveFile("/"), FileResult::DENIED);
    EXPECT_EQ(m_files.Rename("/", "/x", true), FileResult::DENIED);
    EXPECT_EQ(m_files.GetRoot().MakeFolder("/"), FileResult::EXISTS);
}

TEST_F(FtpFileSystemTest, Rename_OntoExisting_OnlyFilesAndOnlyWhenAllowed)
{
    EXPECT_EQ(m_files.Rename("/file", "/a/file", false), FileResult::EXISTS);
    EXPECT_EQ(Read(m_home / "a/file"), "in a");
    EXPECT_EQ(m_files.Rename("/file", "/a/file", true), FileResult::DONE);
    EXPECT_EQ(Read(m_home / "a/file"), "inside");
    fs::create_directory(m_home / "empty");
    EXPECT_EQ(m_files.Rename("/a/b", "/empty", true), FileResult::EXISTS);
    EXPECT_NE(m_files.Rename("/a", "/a/b/a", true), FileResult::DONE);
    EXPECT_EQ(m_files.Rename("/missing", "/x", true), FileResult::NOT_FOUND);
}

TEST_F(FtpFileSystemTest, MakeAndRemoveFolder_Outcomes)
{
    EXPECT_EQ(m_files.GetRoot().MakeFolder("new"), FileResult::DONE);
    EXPECT_EQ(m_files.GetRoot().MakeFolder("new"), FileResult::EXISTS);
    EXPECT_EQ(m_files.GetRoot().MakeFolder("missing/new"), FileResult::NOT_FOUND);
    EXPECT_EQ(m_files.GetRoot().RemoveFolder("a"), FileResult::NOT_EMPTY);
    EXPECT_EQ(m_files.GetRoot().RemoveFolder("file"), FileResult::NOT_FOLDER);
    EXPECT_EQ(m_files.GetRoot().RemoveFile("a"), FileResult::IS_FOLDER);
    EXPECT_EQ(m_files.GetRoot().RemoveFolder("new"), FileResult::DONE);
}

TEST_F(FtpFileSystemTest, SetModified_ThenFacts_SameTime)
{
    FtpFileSystem::FACTS facts;
    for (const std::int64_t timeMs : {std::int64_t{0}, std::int64_t{1700000000123}, std::int64_t{-1500}}) {
        ASSERT_EQ(m_files.GetRoot().SetModified("file", timeMs), FileResult::DONE);
        ASSERT_EQ(m_files.GetRoot().GetFacts("file", facts), FileResult::DONE);
        EXPECT_EQ(facts.modifiedMs, timeMs);
    }
    EXPECT_EQ(facts.kind, FileKind::FILE);
    EXPECT_EQ(facts.size, 6U);
}

TEST_F(FtpFileSystemTest, ShownFacts_Links_TargetsWithinTheHomeElseTheLinkItself)
{
    fs::create_symlink("a", m_home / "toa");
    fs::create_symlink("../outside/secret", m_home / "out");
    fs::create_symlink("nowhere", m_home / "dangling");
    FtpFileSystem::FACTS facts;
    ASSERT_EQ(m_files.GetShownFacts("/toa", facts), FileResult::DONE);
    EXPECT_EQ(facts.kind, FileKind::FOLDER);
    EXPECT_EQ(m_files.GetShownFacts("/out", facts), FileResult::ESCAPES);
    EXPECT_EQ(m_files.GetShownFacts("/dangling", facts), FileResult::NOT_FOUND);
    EXPECT_EQ(facts.size, 0U) << "the size of the target must not show";
}

TEST_F(FtpFileSystemTest, Reader_Folder_EveryEntryOnce)
{
    platform::FolderReader reader;
    ASSERT_EQ(reader.Open(m_files.GetRoot(), "a"), FileResult::DONE);
    std::set<std::string> names;
    std::string name;
    FtpFileSystem::FACTS facts;
    while (reader.Read(name, facts))
        EXPECT_TRUE(names.insert(name).second) << name;
    EXPECT_EQ(names, (std::set<std::string>{"b", "file"}));
    EXPECT_EQ(reader.Open(m_files.GetRoot(), "file"), FileResult::NOT_FOLDER);
    EXPECT_FALSE(reader.Read(name, facts));
}

TEST_F(FtpFileSystemTest, Walk_FolderAndLinkExchangedAllTheTime_NeverReadsOutside)
{
    // "swap" is by turns a folder of the home with a file "secret" of its own and a link out of the home.
    fs::create_directory(m_home / "real");
    Write(m_home / "real/secret", "harmless");
    fs::create_symlink("../outside", m_home / "evil");
    fs::rename(m_home / "real", m_home / "swap");
    std::atomic<bool> isDone{false};
    std::thread swapper([&] {
        while (!isDone) {
            fs::rename(m_home / "swap", m_home / "real");
            fs::rename(m_home / "evil", m_home / "swap");
            fs::rename(m_home / "swap", m_home / "evil");
            fs::rename(m_home / "real", m_home / "swap");
        }
    });
    // True: it was the folder at that moment.
    const auto openOnce = [this] {
        FtpFile file;
        if (file.Open(m_files.GetRoot(), "swap/secret", FileMode::READ, false) != FileResult::DONE)
            return false;
        char text[16] = {};
        std::size_t got = 0;
        EXPECT_TRUE(platform::ReadFile(file.Get(), text, sizeof text, got));
        EXPECT_EQ(std::string(text, got), "harmless");
        return true;
    };
    bool wasOpened = false;
    for (int i = 0; i < 20000 && !HasFailure(); ++i)
        wasOpened = openOnce() || wasOpened;
    EXPECT_TRUE(wasOpened || WaitFor(openOnce)); // a busy machine may let the swapper wait all that time
    isDone = true;
    swapper.join();
}

TEST_F(FtpFileSystemTest, Open_MissingHome_Refused)
{
    FtpFileSystem files;
    EXPECT_EQ(files.Open("/nowhere/at/all"), FileResult::NOT_FOUND);
    EXPECT_EQ(files.Open(FromStdPath(m_home / "file")), FileResult::NOT_FOLDER);
}

} // namespace
} // namespace kqlib
