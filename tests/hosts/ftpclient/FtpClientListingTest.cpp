// Listings from scripted servers: the best form that they offer, and what they may say in it.
#include "tests/hosts/ftpclient/FtpClientFixture.h"

namespace kqlib::test {
namespace {

using KIND = FtpRemoteEntry::KIND;

class FtpClientListing : public FtpClientFixture
{
protected:
    FtpClientResult List(bool wantsTimes = false)
    {
        REQUEST request = Make(REQUEST::LIST, "d");
        request.wantsTimes = wantsTimes;
        return m_client->Run(request);
    }
    static std::string NamesOf(const FtpClientResult& result)
    {
        std::string names;
        for (const FtpRemoteEntry& entry : result.entries)
            names += entry.name.str() + "|";
        return names;
    }
};

TEST_F(FtpClientListing, Mlsd_Offered_EntriesAsTheyAre)
{
    ScriptedTCPPeer peer;
    ScriptedTCPPeer data;
    ExpectLogin(peer);
    Expect(peer, "CWD /home/d", "250 in");
    ExpectSending(peer, data, "MLSD",
                  "type=cdir; .\r\ntype=file;size=5;modify=20200101000000; a b\r\ntype=dir; ..\r\n");
    Start(peer);
    const FtpClientResult result = List();
    ASSERT_TRUE(result.IsDone()) << result.text.c_str();
    EXPECT_EQ(NamesOf(result), "a b|..|") << "what is no name is sorted out by who makes files";
    EXPECT_EQ(result.entries[0].size, 5U);
}

TEST_F(FtpClientListing, Fallbacks_MlsdToListToNlst_OncePerConnection)
{
    ScriptedTCPPeer peer;
    ScriptedTCPPeer data[4];
    for (ScriptedTCPPeer& each : data)
        ASSERT_TRUE(each.Listen());
    ExpectLogin(peer);
    Expect(peer, "CWD /home/d", "250 in");
    ExpectPassive(peer, data[0]);
    Expect(peer, "MLSD", "500 what?");
    ExpectPassive(peer, data[1]);
    Expect(peer, "LIST -a", "502 no");
    ExpectPassive(peer, data[2]);
    Expect(peer, "LIST", "502 no");
    ExpectSending(peer, data[3], "NLST", "x/a\r\nb\r\n");
    Expect(peer, "CWD /home/d/a", "250 in");
    Expect(peer, "CWD /home/d/b", "550 no folder");
    ScriptedTCPPeer next;
    Expect(peer, "CWD /home/d", "250 in");
    ExpectSending(peer, next, "NLST", "");
    for (int i = 0; i < 3; ++i)
        ASSERT_TRUE(data[i].StartServer());
    Start(peer);
    const FtpClientResult result = List();
    ASSERT_TRUE(result.IsDone()) << result.text.c_str() << peer.GetFailure();
    EXPECT_EQ(NamesOf(result), "a|b|");
    EXPECT_EQ(result.entries[0].kind, KIND::FOLDER);
    EXPECT_EQ(result.entries[1].kind, KIND::FILE);
    EXPECT_TRUE(List().entries.empty()) << "the next one asks for names at once";
    EXPECT_TRUE(peer.WaitDone()) << peer.GetFailure();
}

TEST_F(FtpClientListing, List_DashATakenForAName_AskedAgainWithout)
{
    ScriptedTCPPeer peer;
    ScriptedTCPPeer data[3];
    ASSERT_TRUE(data[0].StartServer());
    ExpectLogin(peer);
    Expect(peer, "CWD /home/d", "250 in");
    ExpectPassive(peer, data[0]);
    Expect(peer, "MLSD", "502 no");
    ExpectSending(peer, data[1], "LIST -a", "");
    ExpectSending(peer, data[2], "LIST", "-rw-r--r-- 1 a b 7 Jan  1  2020 x y\r\n");
    Expect(peer, "MDTM /home/d/x y", "213 20200102030405.5");
    Start(peer);
    const FtpClientResult result = List(true);
    ASSERT_TRUE(result.IsDone()) << result.text.c_str() << peer.GetFailure();
    ASSERT_EQ(NamesOf(result), "x y|");
    EXPECT_EQ(result.entries[0].size, 7U);
    EXPECT_EQ(result.entries[0].modifiedMs, 1577934245000);
}

TEST_F(FtpClientListing, List_UnknownForm_NamesInstead)
{
    ScriptedTCPPeer peer;
    ScriptedTCPPeer data[3];
    ASSERT_TRUE(data[0].StartServer());
    ExpectLogin(peer);
    Expect(peer, "CWD /home/d", "250 in");
    ExpectPassive(peer, data[0]);
    Expect(peer, "MLSD", "502 no");
    ExpectSending(peer, data[1], "LIST -a", "A.TXT;1  7/8  1-JAN-2020\r\n");
    ExpectSending(peer, data[2], "NLST", "A.TXT\r\n");
    Expect(peer, "CWD /home/d/A.TXT", "550 no folder");
    Expect(peer, "SIZE /home/d/A.TXT", "213 7");
    Expect(peer, "MDTM /home/d/A.TXT", "550 no");
    Start(peer);
    const FtpClientResult result = List(true);
    ASSERT_TRUE(result.IsDone()) << result.text.c_str() << peer.GetFailure();
    ASSERT_EQ(NamesOf(result), "A.TXT|");
    EXPECT_EQ(result.entries[0].size, 7U);
    EXPECT_FALSE(result.entries[0].modifiedMs);
}

TEST_F(FtpClientListing, FolderThatIsNone_RefusedWithoutListing)
{
    ScriptedTCPPeer peer;
    ExpectLogin(peer);
    Expect(peer, "CWD /home/d", "501 no");
    peer.ReceiveToEnd();
    Start(peer);
    EXPECT_EQ(List().outcome, OUTCOME::REFUSED);
    m_client.reset();
    EXPECT_EQ(peer.GetReceived().find("EPSV"), std::string::npos);
}

TEST_F(FtpClientListing, Passive_AnotherAddressNamed_ConnectsToTheServerAllTheSame)
{
    for (const char* form : {"227 Entering (10,255,255,1,%s)", "227 =10,255,255,1,%s", "227 10,255,255,1,%s."}) {
        ScriptedTCPPeer peer;
        ScriptedTCPPeer data;
        data.Send("type=file; a\r\n");
        ASSERT_TRUE(data.StartServer());
        std::string answer = form;
        answer.replace(answer.find("%s"), 2,
                       std::to_string(data.GetPort() / 256) + "," + std::to_string(data.GetPort() % 256));
        ExpectLogin(peer);
        Expect(peer, "CWD /home/d", "250 in");
        Expect(peer, "EPSV", "500 what?");
        Expect(peer, "PASV", answer);
        Expect(peer, "MLSD", "150 here\r\n226 done");
        Start(peer);
        const FtpClientResult result = List();
        EXPECT_TRUE(result.IsDone()) << form << ": " << result.text.c_str();
        EXPECT_EQ(NamesOf(result), "a|");
    }
}

TEST_F(FtpClientListing, Passive_AnswersWithoutSense_Confused)
{
    for (const char* answer : {"229 x", "229 (|||0|)", "229 (|||65536|)", "229 (||1|)", "229 ()", "229 )("}) {
        ScriptedTCPPeer peer;
        ExpectLogin(peer);
        Expect(peer, "CWD /home/d", "250 in");
        Expect(peer, "EPSV", answer);
        Start(peer);
        EXPECT_EQ(List().outcome, OUTCOME::CONFUSED) << answer;
    }
    for (const char* answer : {"227 x", "227 (1,2,3,4,5)", "227 (1,2,3,4,0,0)", "227 (1,2,3,4,256,1)"}) {
        ScriptedTCPPeer peer;
        ExpectLogin(peer);
        Expect(peer, "CWD /home/d", "250 in");
        Expect(peer, "EPSV", "502 no");
        Expect(peer, "PASV", answer);
        Start(peer);
        EXPECT_EQ(List().outcome, OUTCOME::CONFUSED) << answer;
    }
}

TEST_F(FtpClientListing, Active_ServerNeverConnects_ItsWordEndsTheWaiting)
{
    ScriptedTCPPeer peer;
    ExpectLogin(peer);
    peer.ReceiveUntil("CWD /home/d\r\n").Send("250 in\r\n").ReceiveUntil("EPRT |1|127.0.0.1|").ReceiveUntil("\r\n");
    peer.Send("500 what?\r\n").ReceiveUntil("PORT 127,0,0,1,").ReceiveUntil("\r\n").Send("200 fine\r\n");
    Expect(peer, "MLSD", "150 here\r\n425 cannot connect");
    Expect(peer, "RMD /home/x", "250 gone");
    m_settings.isActive = true;
    Start(peer);
    const FtpClientResult result = List();
    EXPECT_EQ(result.outcome, OUTCOME::REFUSED);
    EXPECT_EQ(result.replyCode, 425U);
    EXPECT_TRUE(m_client->Run(Make(REQUEST::REMOVE_FOLDER, "x")).IsDone()) << "the connection goes on";
}

TEST_F(FtpClientListing, HangUp_AtEveryStepOfAListing_Lost)
{
    for (int last = 0; last < 5; ++last) {
        ScriptedTCPPeer peer;
        ScriptedTCPPeer data;
        data.Send("type=file; a\r\n");
        ASSERT_TRUE(data.StartServer());
        ExpectLogin(peer);
        peer.ReceiveUntil("CWD /home/d\r\n");
        if (last > 0)
            peer.Send("250 in\r\n").ReceiveUntil("EPSV\r\n");
        if (last > 1)
            peer.Send("229 (|||" + std::to_string(data.GetPort()) + "|)\r\n").ReceiveUntil("MLSD\r\n");
        if (last > 2)
            peer.Send("150 here\r\n");
        if (last > 3)
            peer.Send("226");
        Start(peer);
        EXPECT_EQ(List().outcome, OUTCOME::LOST) << last;
    }
}

TEST_F(FtpClientListing, Facts_MlstOrSizeAndTimeOrCwd)
{
    ScriptedTCPPeer peer;
    ExpectLogin(peer);
    Expect(peer, "MLST /home/a", "250-here\r\n type=file;size=3;modify=20200101000000; /home/a\r\n250 end");
    Expect(peer, "MLST /home/b", "500 what?");
    Expect(peer, "SIZE /home/b", "213 4");
    Expect(peer, "MDTM /home/b", "213 20200101000000");
    Expect(peer, "MLST /home/c", "502 no");
    Expect(peer, "SIZE /home/c", "550 a folder");
    Expect(peer, "MDTM /home/c", "550 a folder");
    Expect(peer, "CWD /home/c", "250 in");
    Expect(peer, "MLST /home/d", "550 not there");
    Start(peer);
    const FtpClientResult first = m_client->Run(Make(REQUEST::FACTS, "a"));
    ASSERT_EQ(first.entries.size(), 1U);
    EXPECT_EQ(first.entries[0].size, 3U);
    EXPECT_EQ(first.entries[0].name, "a");
    EXPECT_EQ(m_client->Run(Make(REQUEST::FACTS, "b")).entries.at(0).size, 4U);
    EXPECT_EQ(m_client->Run(Make(REQUEST::FACTS, "c")).entries.at(0).kind, KIND::FOLDER);
    EXPECT_EQ(m_client->Run(Make(REQUEST::FACTS, "d")).outcome, OUTCOME::REFUSED);
}

} // namespace
} // namespace kqlib::test
