// Files to and from scripted servers: parts, lost connections, refusals, servers that say one thing and do another.
#include "hosts/ftpclient/FtpNames.h"
#include "tests/hosts/ftpclient/FtpClientFixture.h"

namespace kqlib::test {
namespace {

using KIND = FtpRemoteEntry::KIND;

class FtpClientTransfer : public FtpClientFixture
{
protected:
    /// A download of the file "f" with ten bytes, of a version that is known.
    REQUEST MakeDownload() const
    {
        REQUEST request = MakeTransfer(REQUEST::DOWNLOAD, "f", "f");
        request.version = {"f", KIND::FILE, 10U, 1577836800000};
        return request;
    }
    String PartName() const { return FtpNames::sMakePartName(MakeDownload().version); }

    /// The version of a local file, by which its part on the server is called.
    std::string UploadPart(const char* name) const
    {
        platform::RootFolder root;
        platform::FileFacts facts;
        EXPECT_EQ(root.Open(m_folder.GetFilePath().c_str()), platform::FileResult::DONE);
        EXPECT_EQ(root.GetFacts(name, facts), platform::FileResult::DONE);
        return "/home/" + FtpNames::sMakePartName({name, KIND::FILE, facts.size, facts.modifiedMs}).str();
    }
};

TEST_F(FtpClientTransfer, Download_Whole_NameAndTimeOnlyWhenComplete)
{
    ScriptedTCPPeer peer;
    ScriptedTCPPeer data;
    ExpectLogin(peer);
    ExpectSending(peer, data, "RETR /home/f", "0123456789");
    Start(peer);
    const FtpClientResult result = m_client->Run(MakeDownload());
    ASSERT_TRUE(result.IsDone()) << result.text.c_str();
    EXPECT_EQ(result.moved, 10U);
    EXPECT_EQ(ReadFile("f"), "0123456789");
    EXPECT_EQ(CountFiles(), 1U);
    platform::RootFolder root;
    platform::FileFacts facts;
    ASSERT_EQ(root.Open(m_folder.GetFilePath().c_str()), platform::FileResult::DONE);
    ASSERT_EQ(root.GetFacts("f", facts), platform::FileResult::DONE);
    EXPECT_EQ(facts.modifiedMs, 1577836800000);
}

TEST_F(FtpClientTransfer, Download_ConnectionLostInTheMiddle_PartKeptAndResumed)
{
    ScriptedTCPPeer peer;
    ScriptedTCPPeer data[2];
    ExpectLogin(peer);
    ExpectSending(peer, data[0], "RETR /home/f", "0123", "426 lost");
    data[1].Send("456789");
    ASSERT_TRUE(data[1].StartServer());
    ExpectPassive(peer, data[1]);
    Expect(peer, "REST 4", "350 from there");
    Expect(peer, "RETR /home/f", "150 here\r\n226 done");
    WriteFile("f", "old");
    Start(peer);
    const FtpClientResult lost = m_client->Run(MakeDownload());
    EXPECT_TRUE(lost.IsWorthAnotherTry()) << lost.text.c_str();
    EXPECT_EQ(ReadFile("f"), "old") << "untouched until the new one is complete";
    EXPECT_EQ(ReadFile(PartName().c_str()), "0123");
    const FtpClientResult result = m_client->Run(MakeDownload());
    ASSERT_TRUE(result.IsDone()) << result.text.c_str() << peer.GetFailure();
    EXPECT_EQ(result.moved, 6U);
    EXPECT_EQ(ReadFile("f"), "0123456789");
    EXPECT_EQ(CountFiles(), 1U);
}

TEST_F(FtpClientTransfer, Download_EndsEarlyWithSuccess_LostAndTriedAgain)
{
    ScriptedTCPPeer peer;
    ScriptedTCPPeer data[2];
    ExpectLogin(peer);
    ExpectSending(peer, data[0], "RETR /home/f", "0123", "226 done");
    data[1].Send("456789");
    ASSERT_TRUE(data[1].StartServer());
    ExpectPassive(peer, data[1]);
    Expect(peer, "REST 4", "350 from there");
    Expect(peer, "RETR /home/f", "150 here\r\n226 done");
    m_settings.retries = 1;
    Start(peer);
    const FtpClientResult result = m_client->Run(MakeDownload());
    ASSERT_TRUE(result.IsDone()) << result.text.c_str() << peer.GetFailure();
    EXPECT_EQ(ReadFile("f"), "0123456789");
}

TEST_F(FtpClientTransfer, Download_RestartRefused_FromTheBeginning)
{
    ScriptedTCPPeer peer;
    ScriptedTCPPeer data;
    data.Send("0123456789");
    ASSERT_TRUE(data.StartServer());
    ExpectLogin(peer);
    ExpectPassive(peer, data);
    Expect(peer, "REST 4", "502 no");
    Expect(peer, "RETR /home/f", "150 here\r\n226 done");
    WriteFile(PartName().c_str(), "wxyz");
    Start(peer);
    ASSERT_TRUE(m_client->Run(MakeDownload()).IsDone());
    EXPECT_EQ(ReadFile("f"), "0123456789");
}

TEST_F(FtpClientTransfer, Download_PartComplete_OnlyRenamed)
{
    ScriptedTCPPeer peer;
    ExpectLogin(peer);
    peer.ReceiveToEnd();
    WriteFile(PartName().c_str(), "0123456789");
    Start(peer);
    ASSERT_TRUE(m_client->Run(MakeDownload()).IsDone());
    EXPECT_EQ(ReadFile("f"), "0123456789");
    EXPECT_EQ(peer.GetReceived().find("RETR"), std::string::npos);
}

TEST_F(FtpClientTransfer, Download_PartLargerThanTheFile_FromTheBeginning)
{
    ScriptedTCPPeer peer;
    ScriptedTCPPeer data;
    ExpectLogin(peer);
    ExpectSending(peer, data, "RETR /home/f", "0123456789");
    WriteFile(PartName().c_str(), "eleven byte");
    Start(peer);
    ASSERT_TRUE(m_client->Run(MakeDownload()).IsDone());
    EXPECT_EQ(ReadFile("f"), "0123456789");
}

TEST_F(FtpClientTransfer, Download_MoreBytesThanAnnounced_RefusedAndNothingLeft)
{
    ScriptedTCPPeer peer;
    ScriptedTCPPeer data;
    ExpectLogin(peer);
    ExpectSending(peer, data, "RETR /home/f", std::string(100000, 'x'));
    Start(peer);
    EXPECT_EQ(m_client->Run(MakeDownload()).outcome, OUTCOME::DIFFERENT);
    EXPECT_EQ(CountFiles(), 0U);
}

TEST_F(FtpClientTransfer, Download_Refused_NothingLeft)
{
    ScriptedTCPPeer peer;
    ScriptedTCPPeer data;
    ASSERT_TRUE(data.StartServer());
    ExpectLogin(peer);
    ExpectPassive(peer, data);
    Expect(peer, "RETR /home/f", "550 not there");
    Start(peer);
    const FtpClientResult result = m_client->Run(MakeDownload());
    EXPECT_EQ(result.outcome, OUTCOME::REFUSED);
    EXPECT_EQ(CountFiles(), 0U);
}

TEST_F(FtpClientTransfer, Download_NoDataConnectionToBeHad_TryAgain)
{
    ScriptedTCPPeer peer;
    ScriptedTCPPeer gone;
    ASSERT_TRUE(gone.Listen());
    ExpectLogin(peer);
    Expect(peer, "EPSV", "229 (|||1|)");
    Start(peer);
    const FtpClientResult result = m_client->Run(MakeDownload());
    EXPECT_EQ(result.outcome, OUTCOME::LOST);
}

TEST_F(FtpClientTransfer, Download_OutOfTheFolder_NothingAsked)
{
    ScriptedTCPPeer peer;
    ExpectLogin(peer);
    peer.ReceiveToEnd();
    Start(peer);
    REQUEST request = MakeDownload();
    request.localName = "../f";
    EXPECT_EQ(m_client->Run(request).outcome, OUTCOME::LOCAL);
    request.localName = "no/such/folder/f";
    EXPECT_EQ(m_client->Run(request).outcome, OUTCOME::LOCAL);
    EXPECT_EQ(peer.GetReceived().find("RETR"), std::string::npos);
    EXPECT_EQ(CountFiles(), 0U);
}

TEST_F(FtpClientTransfer, Download_FolderInItsPlace_LocalAndNoPartLeft)
{
    ScriptedTCPPeer peer;
    ScriptedTCPPeer data;
    ExpectLogin(peer);
    ExpectSending(peer, data, "RETR /home/f", "0123456789");
    std::filesystem::create_directory(m_folder / "f");
    Start(peer);
    EXPECT_EQ(m_client->Run(MakeDownload()).outcome, OUTCOME::LOCAL);
    EXPECT_EQ(CountFiles(), 1U);
}

TEST_F(FtpClientTransfer, Upload_Whole_PartThenNameThenTime)
{
    ScriptedTCPPeer peer;
    ScriptedTCPPeer data;
    WriteFile("f", "0123456789");
    const std::string part = UploadPart("f");
    data.ReceiveToEnd();
    ASSERT_TRUE(data.StartServer());
    ExpectLogin(peer, " MFMT\r\n");
    ExpectPassive(peer, data);
    Expect(peer, "STOR " + part, "150 go\r\n226 done");
    Expect(peer, "RNFR " + part, "350 and?");
    Expect(peer, "RNTO /home/f", "250 renamed");
    peer.ReceiveUntil("MFMT 2").ReceiveUntil(" /home/f\r\n").Send("213 set\r\n");
    Start(peer);
    REQUEST request = MakeTransfer(REQUEST::UPLOAD, "f", "f");
    request.mayResume = false;
    const FtpClientResult result = m_client->Run(request);
    ASSERT_TRUE(result.IsDone()) << result.text.c_str() << peer.GetFailure();
    EXPECT_TRUE(data.WaitDone());
    EXPECT_EQ(data.GetReceived(), "0123456789");
}

TEST_F(FtpClientTransfer, Upload_PartThere_ResumedAndChecked)
{
    for (const bool isPutTogetherWell : {true, false}) {
        ScriptedTCPPeer peer;
        ScriptedTCPPeer data;
        WriteFile("f", "0123456789");
        const std::string part = UploadPart("f");
        data.ReceiveToEnd();
        ASSERT_TRUE(data.StartServer());
        ExpectLogin(peer);
        Expect(peer, "SIZE " + part, "213 4");
        ExpectPassive(peer, data);
        Expect(peer, "REST 4", "350 from there");
        Expect(peer, "STOR " + part, "150 go\r\n226 done");
        Expect(peer, "SIZE " + part, isPutTogetherWell ? "213 10" : "213 6");
        if (isPutTogetherWell) {
            Expect(peer, "RNFR " + part, "350 and?");
            Expect(peer, "RNTO /home/f", "250 renamed");
        }
        Start(peer);
        const FtpClientResult result = m_client->Run(MakeTransfer(REQUEST::UPLOAD, "f", "f"));
        EXPECT_EQ(result.outcome, isPutTogetherWell ? OUTCOME::DONE : OUTCOME::DIFFERENT) << peer.GetFailure();
        EXPECT_TRUE(data.WaitDone());
        EXPECT_EQ(data.GetReceived(), "456789");
    }
}

TEST_F(FtpClientTransfer, Upload_RenamingRefused_PartRemovedAndSaid)
{
    ScriptedTCPPeer peer;
    ScriptedTCPPeer data;
    WriteFile("f", "");
    const std::string part = UploadPart("f");
    data.ReceiveToEnd();
    ASSERT_TRUE(data.StartServer());
    ExpectLogin(peer);
    Expect(peer, "SIZE " + part, "550 no");
    ExpectPassive(peer, data);
    Expect(peer, "STOR " + part, "150 go\r\n226 done");
    Expect(peer, "RNFR " + part, "350 and?");
    Expect(peer, "RNTO /home/f", "553 no");
    Expect(peer, "DELE " + part, "250 gone");
    Start(peer);
    const FtpClientResult result = m_client->Run(MakeTransfer(REQUEST::UPLOAD, "f", "f"));
    EXPECT_EQ(result.outcome, OUTCOME::REFUSED);
    EXPECT_EQ(result.replyCode, 553U);
    EXPECT_TRUE(peer.WaitDone()) << peer.GetFailure();
}

TEST_F(FtpClientTransfer, UploadInPlace_OneCommand)
{
    ScriptedTCPPeer peer;
    ScriptedTCPPeer data;
    WriteFile("f", "0123456789");
    data.ReceiveToEnd();
    ASSERT_TRUE(data.StartServer());
    ExpectLogin(peer);
    ExpectPassive(peer, data);
    Expect(peer, "STOR /home/f", "150 go\r\n226 done");
    m_settings.isInPlace = true;
    Start(peer);
    EXPECT_TRUE(m_client->Run(MakeTransfer(REQUEST::UPLOAD, "f", "f")).IsDone()) << peer.GetFailure();
    EXPECT_TRUE(data.WaitDone());
    EXPECT_EQ(data.GetReceived(), "0123456789");
}

TEST_F(FtpClientTransfer, Upload_DiskOfTheServerFull_ItsWordsTold)
{
    ScriptedTCPPeer peer;
    ScriptedTCPPeer data;
    WriteFile("f", std::string(32U << 20, 'x'));
    data.ReceiveBytes(1000).Reset();
    ASSERT_TRUE(data.StartServer());
    ExpectLogin(peer);
    ExpectPassive(peer, data);
    peer.ReceiveUntil("STOR").ReceiveUntil("\r\n").Send("150 go\r\n452 no space\r\n");
    m_settings.isInPlace = true;
    Start(peer);
    const FtpClientResult result = m_client->Run(MakeTransfer(REQUEST::UPLOAD, "f", "f"));
    EXPECT_EQ(result.outcome, OUTCOME::REFUSED);
    EXPECT_EQ(result.replyCode, 452U);
}

TEST_F(FtpClientTransfer, Upload_NoSuchFile_NothingAsked)
{
    ScriptedTCPPeer peer;
    ExpectLogin(peer);
    peer.ReceiveToEnd();
    Start(peer);
    EXPECT_EQ(m_client->Run(MakeTransfer(REQUEST::UPLOAD, "f", "f")).outcome, OUTCOME::LOCAL);
    std::filesystem::create_directory(m_folder / "d");
    EXPECT_EQ(m_client->Run(MakeTransfer(REQUEST::UPLOAD, "d", "d")).outcome, OUTCOME::LOCAL);
    EXPECT_EQ(peer.GetReceived().find("STOR"), std::string::npos);
}

TEST_F(FtpClientTransfer, HangUp_AtEveryStepOfADownload_LostAndPartOnlyOfWhatCame)
{
    for (int last = 0; last < 4; ++last) {
        ScriptedTCPPeer peer;
        ScriptedTCPPeer data;
        data.Send("0123");
        ASSERT_TRUE(data.StartServer());
        ExpectLogin(peer);
        peer.ReceiveUntil("EPSV\r\n");
        if (last > 0)
            peer.Send("229 (|||" + std::to_string(data.GetPort()) + "|)\r\n").ReceiveUntil("RETR /home/f\r\n");
        if (last > 1)
            peer.Send("150 here\r\n");
        if (last > 2)
            peer.Send("426-");
        Start(peer);
        EXPECT_EQ(m_client->Run(MakeDownload()).outcome, OUTCOME::LOST) << last;
        EXPECT_FALSE(std::filesystem::exists(m_folder / "f"));
        if (last > 1)
            EXPECT_EQ(ReadFile(PartName().c_str()), "0123");
        else
            EXPECT_EQ(CountFiles(), 0U);
        std::filesystem::remove(m_folder / PartName().str());
    }
}

} // namespace
} // namespace kqlib::test
