// Mirroring both ways: trees, second runs, leftovers, and servers that mean harm.
#include "hosts/ftpclient/FtpMirrorDown.h"
#include "hosts/ftpclient/FtpMirrorUp.h"
#include "hosts/ftpclient/FtpNames.h"
#include "tests/hosts/ftpclient/FtpClientFixture.h"
#include "tests/hosts/ftpclient/FtpClientServerFixture.h"
#include "tests/peers/Missing.h"

namespace kqlib::test {
namespace {

using WHAT = FtpMirrorReport::WHAT;

class FtpMirror : public FtpClientServerFixture
{
protected:
    /// Files and folders of every kind; times are old enough to tell copies from.
    static void MakeTree(const std::filesystem::path& folder)
    {
        WriteFile(folder / "zero", "");
        WriteFile(folder / "some", Pattern(70000));
        WriteFile(folder / "sub" / "with blanks", "a");
        WriteFile(folder / "sub" / "deep er" / std::filesystem::path(u8"\u00fcml\u00e4ut"), "b");
        WriteFile(folder / ".hidden", "c");
        std::filesystem::create_directories(folder / "empty");
        for (const auto& entry : std::filesystem::recursive_directory_iterator(folder))
            if (entry.is_regular_file())
                SetTime(entry.path(), 100000);
    }
    FtpMirrorReport Down(bool expected = true)
    {
        FtpMirrorReport report;
        report.SetListener([this](WHAT what, const String& path, const String& reason) {
            if (what == WHAT::FAILED)
                m_failures += (path + ": " + reason + "\n").str();
        });
        EXPECT_EQ(FtpMirrorDown(*m_client, report).Run("tree", FromStdPath(Local() / "tree")), expected) << m_failures;
        return report;
    }
    FtpMirrorReport Up(bool expected = true, const char* remote = "tree")
    {
        FtpMirrorReport report;
        report.SetListener([this](WHAT what, const String& path, const String& reason) {
            if (what == WHAT::FAILED)
                m_failures += (path + ": " + reason + "\n").str();
        });
        EXPECT_EQ(FtpMirrorUp(*m_client, report).Run(FromStdPath(Local() / "tree"), remote), expected) << m_failures;
        return report;
    }

    std::string m_failures;
};

TEST_F(FtpMirror, Down_WholeTree_ThenNothing)
{
    StartBoth();
    MakeTree(Home() / "tree");
    const FtpMirrorReport first = Down();
    EXPECT_EQ(first.GetCount(WHAT::MOVED), 5U);
    EXPECT_EQ(first.GetCount(WHAT::MADE_FOLDER), 3U);
    EXPECT_EQ(first.GetBytes(), 70003U);
    EXPECT_EQ(Describe(Local() / "tree"), Describe(Home() / "tree"));
    const FtpMirrorReport second = Down();
    EXPECT_EQ(second.GetCount(WHAT::MOVED), 0U);
    EXPECT_EQ(second.GetCount(WHAT::SAME), 5U);
    EXPECT_EQ(second.GetBytes(), 0U);
}

TEST_F(FtpMirror, Up_WholeTree_ThenNothing)
{
    StartBoth();
    MakeTree(Local() / "tree");
    const FtpMirrorReport first = Up();
    EXPECT_EQ(first.GetCount(WHAT::MOVED), 5U);
    EXPECT_EQ(Describe(Local() / "tree"), Describe(Home() / "tree"));
    const FtpMirrorReport second = Up();
    EXPECT_EQ(second.GetCount(WHAT::MOVED), 0U);
    EXPECT_EQ(second.GetCount(WHAT::SAME), 5U);
    EXPECT_EQ(Up(true, "new/folders/in between").GetCount(WHAT::MOVED), 5U);
    EXPECT_EQ(Describe(Local() / "tree"), Describe(Home() / "new/folders/in between"));
}

TEST_F(FtpMirror, Down_OneFileChanged_OnlyThatOne)
{
    StartBoth();
    MakeTree(Home() / "tree");
    Down();
    WriteFile(Home() / "tree/sub/with blanks", "z"); // of the same size
    const FtpMirrorReport report = Down();
    EXPECT_EQ(report.GetCount(WHAT::MOVED), 1U);
    EXPECT_EQ(Describe(Local() / "tree"), Describe(Home() / "tree"));
    SetTime(Local() / "tree/some", 5); // somebody changed it here
    EXPECT_EQ(Down().GetCount(WHAT::MOVED), 1U);
}

TEST_F(FtpMirror, Up_OneFileChanged_OnlyThatOneInEitherDirectionOfTime)
{
    StartBoth();
    MakeTree(Local() / "tree");
    Up();
    SetTime(Local() / "tree/some", 5);
    EXPECT_EQ(Up().GetCount(WHAT::MOVED), 1U);
    SetTime(Local() / "tree/some", 200000);
    EXPECT_EQ(Up().GetCount(WHAT::MOVED), 1U) << "an older version was put back";
    WriteFile(Local() / "tree/zero", "1");
    EXPECT_EQ(Up().GetCount(WHAT::MOVED), 1U);
    EXPECT_EQ(Describe(Local() / "tree"), Describe(Home() / "tree"));
}

TEST_F(FtpMirror, Down_PartsOfEarlierRuns_UsedOrRemoved)
{
    StartBoth();
    MakeTree(Home() / "tree");
    const FtpClientResult facts = Run(Make(REQUEST::FACTS, "tree/some"));
    const String part = FtpNames::sMakePartName(facts.entries.at(0));
    WriteFile(Local() / "tree" / part.str(), Pattern(70000).substr(0, 50000));
    WriteFile(Local() / "tree/.kqftp-0123456789abcdef.part", "of a version that is gone");
    const FtpMirrorReport report = Down();
    EXPECT_EQ(report.GetBytes(), 20003U);
    EXPECT_EQ(Describe(Local() / "tree"), Describe(Home() / "tree"));
}

TEST_F(FtpMirror, Up_PartsOfEarlierRuns_UsedOrRemoved)
{
    StartBoth();
    MakeTree(Local() / "tree");
    platform::RootFolder root;
    platform::FileFacts facts;
    ASSERT_EQ(root.Open(FromStdPath(Local() / "tree").c_str()), platform::FileResult::DONE);
    ASSERT_EQ(root.GetFacts("some", facts), platform::FileResult::DONE);
    const String part = FtpNames::sMakePartName({"some", FtpRemoteEntry::KIND::FILE, facts.size, facts.modifiedMs});
    WriteFile(Home() / "tree" / part.str(), Pattern(70000).substr(0, 50000));
    WriteFile(Home() / "tree/.kqftp-0123456789abcdef.part", "of a version that is gone");
    const FtpMirrorReport report = Up();
    EXPECT_EQ(report.GetBytes(), 20003U);
    EXPECT_EQ(Describe(Local() / "tree"), Describe(Home() / "tree"));
}

TEST_F(FtpMirror, Down_FileWhereAFolderIs_ReportedAndTheRestGoesOn)
{
    StartBoth();
    MakeTree(Home() / "tree");
    WriteFile(Local() / "tree/sub", "a file");
    std::filesystem::create_directories(Local() / "tree/some");
    const FtpMirrorReport report = Down(false);
    EXPECT_EQ(report.GetCount(WHAT::FAILED), 2U);
    EXPECT_EQ(report.GetCount(WHAT::MOVED), 2U);
    EXPECT_EQ(ReadFile(Local() / "tree/sub"), "a file");
}

TEST_F(FtpMirror, NoSuchFolder_Failed)
{
    StartBoth();
    EXPECT_EQ(Up(false).GetCount(WHAT::FAILED), 1U) << "no local folder";
    EXPECT_EQ(Down(false).GetCount(WHAT::FAILED), 1U);
}

TEST_F(FtpMirror, Cancelled_EndsWithoutGoingOn)
{
    StartBoth();
    MakeTree(Home() / "tree");
    m_client->Cancel();
    EXPECT_EQ(Down(false).GetCount(WHAT::MOVED), 0U);
}

TEST_F(FtpMirror, Down_LinkOutOfTheTarget_NothingWrittenBehindIt)
{
    StartBoth();
    MakeTree(Home() / "tree");
    std::filesystem::create_directories(Local() / "tree");
    std::filesystem::create_directories(m_folder / "outside");
    std::error_code error;
    std::filesystem::create_directory_symlink(m_folder / "outside", Local() / "tree/sub", error);
    if (error)
        KQ_MISSING("this system does not let this user make links");
    EXPECT_EQ(Down(false).GetCount(WHAT::FAILED), 1U);
    EXPECT_TRUE(std::filesystem::is_empty(m_folder / "outside"));
}

using FtpMirrorHostile = FtpClientFixture;

TEST_F(FtpMirrorHostile, NamesThatAreNone_RefusedAndNothingOutsideTheTarget)
{
    std::filesystem::create_directory(m_folder / "target");
    WriteFile("evil", "untouched");
    ScriptedTCPPeer peer;
    ScriptedTCPPeer data[2];
    ExpectLogin(peer);
    Expect(peer, "CWD /home/d", "250 in");
    const std::string nul = std::string("type=file;size=1; a") + '\0' + "b\r\n";
    ExpectSending(
        peer, data[0], "MLSD",
        "type=file;size=1; ../evil\r\ntype=file;size=1; /evil\r\ntype=file;size=1; \r\n"
        "type=dir; ..\r\ntype=dir; .\r\ntype=dir; ../..\r\ntype=dir; /\r\n" +
            nul + "type=file;size=1;modify=20200101000000; good\r\ntype=file;size=1;modify=20200101000000; good\r\n");
    ExpectSending(peer, data[1], "RETR /home/d/good", "1");
    Start(peer);
    FtpMirrorReport report;
    std::string reasons;
    report.SetListener(
        [&](WHAT, const String& path, const String& reason) { reasons += (path + ": " + reason + "\n").str(); });
    EXPECT_FALSE(FtpMirrorDown(*m_client, report).Run("d", FromStdPath(m_folder / "target")));
    EXPECT_EQ(report.GetCount(WHAT::FAILED), 9U) << reasons;
    EXPECT_EQ(report.GetCount(WHAT::MOVED), 1U);
    EXPECT_EQ(ReadFile("evil"), "untouched");
    EXPECT_EQ(ReadFile("target/good"), "1");
    EXPECT_EQ(CountFiles(), 2U);
    EXPECT_TRUE(peer.WaitDone()) << "nothing else was asked for: " << peer.GetFailure();
}

TEST_F(FtpMirrorHostile, FoldersWithoutEnd_GivenUp)
{
    constexpr int DEPTH = 101;
    ScriptedTCPPeer peer;
    ScriptedTCPPeer data[DEPTH];
    ExpectLogin(peer);
    std::string path = "/home/d";
    for (ScriptedTCPPeer& listing : data) {
        Expect(peer, "CWD " + path, "250 in");
        ExpectSending(peer, listing, "MLSD", "type=dir; a\r\n");
        path += "/a";
    }
    Start(peer);
    FtpMirrorReport report;
    EXPECT_FALSE(FtpMirrorDown(*m_client, report).Run("d", FromStdPath(m_folder / "t")));
    EXPECT_EQ(report.GetCount(WHAT::FAILED), 1U);
    EXPECT_TRUE(peer.WaitDone()) << peer.GetFailure();
}

} // namespace
} // namespace kqlib::test
