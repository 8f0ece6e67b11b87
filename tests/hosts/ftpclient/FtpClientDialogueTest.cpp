// Dialogues with scripted servers: greeting, log-in, replies in pieces, wrong replies, hang-ups, signs of life.
#include "tests/hosts/ftpclient/FtpClientFixture.h"

namespace kqlib::test {
namespace {

using FtpClientDialogue = FtpClientFixture;

TEST_F(FtpClientDialogue, Connect_EveryStep_StateTellsSo)
{
    ScriptedTCPPeer peer;
    ExpectLogin(peer);
    peer.ReceiveUntil("QUIT\r\n");
    Start(peer);
    const FtpClientResult result = Connect();
    ASSERT_TRUE(result.IsDone()) << result.text.c_str();
    NetTCPSessionControllableSSL::STATE state;
    m_client->GetSession().GetState(state);
    EXPECT_TRUE(state.connected);
    EXPECT_FALSE(state.secured);
    EXPECT_EQ(state.netState.remotePort, peer.GetPort());
    EXPECT_EQ(state.action, FtpClientSession::ACT_IDLE);
    EXPECT_TRUE(Connect().IsDone()) << "is connected already";
    m_client.reset();
    EXPECT_TRUE(peer.WaitDone()) << peer.GetFailure();
    EXPECT_EQ(peer.GetConnectionCount(), 1U);
}

TEST_F(FtpClientDialogue, Replies_ManyLinesByteByByte_Understood)
{
    ScriptedTCPPeer peer;
    peer.SendPieces("120-wait\r\n120 for it\r\n220-hello\r\n 221 no\r\n220-\r\n\r\n220 ready\r\n");
    peer.ReceiveUntil("USER ann\r\n").SendPieces("331-a\r\n331x\r\n331 b\r\n");
    peer.ReceiveUntil("PASS secret\r\n").SendPieces("230 in\n"); // LF alone will do
    peer.ReceiveUntil("FEAT\r\n").SendPieces("211-x\r\n MFMT\r\n211 end\r\n");
    peer.ReceiveUntil("OPTS UTF8 ON\r\n").SendPieces("501 no\r\n");
    peer.ReceiveUntil("PWD\r\n").SendPieces("257 \"/h\"\r\n");
    peer.ReceiveUntil("TYPE I\r\n").SendPieces("200-\r\n200\r\n");
    peer.ReceiveUntil("MKD /h/x\r\n").SendPieces("257 made\r\n");
    Start(peer);
    const FtpClientResult result = m_client->Run(Make(REQUEST::MAKE_FOLDER, "x"));
    EXPECT_TRUE(result.IsDone()) << result.text.c_str();
    EXPECT_TRUE(m_client->GetSession().CanSetTimes());
    EXPECT_TRUE(peer.WaitDone()) << peer.GetFailure();
}

TEST_F(FtpClientDialogue, Login_UserAlone_Enough)
{
    ScriptedTCPPeer peer;
    peer.Send("220 ready\r\n");
    Expect(peer, "USER ann", "230 in");
    Expect(peer, "FEAT", "500 no");
    Expect(peer, "OPTS UTF8 ON", "500 no");
    Expect(peer, "PWD", "550 no");
    Expect(peer, "TYPE I", "200 fine");
    Expect(peer, "DELE /x", "250 gone");
    Start(peer);
    EXPECT_TRUE(m_client->Run(Make(REQUEST::REMOVE_FILE, "x")).IsDone()) << "no folder told: the root";
}

TEST_F(FtpClientDialogue, Connect_NobodyListens_NoConnection)
{
    ScriptedTCPPeer peer;
    ASSERT_TRUE(peer.Listen());
    StartClient(1);
    EXPECT_EQ(Connect().outcome, OUTCOME::NO_CONNECTION);
}

TEST_F(FtpClientDialogue, Greeting_Refused_NoConnectionWithItsWords)
{
    ScriptedTCPPeer peer;
    peer.Send("421 too many users\r\n");
    Start(peer);
    const FtpClientResult result = Connect();
    EXPECT_EQ(result.outcome, OUTCOME::NO_CONNECTION);
    EXPECT_EQ(result.replyCode, 421U);
    EXPECT_NE(result.text.find("too many users"), String::npos);
}

TEST_F(FtpClientDialogue, Password_Refused_NoLogin)
{
    ScriptedTCPPeer peer;
    peer.Send("220 ready\r\n");
    Expect(peer, "USER ann", "331 password");
    Expect(peer, "PASS secret", "530 \x1B[31mno");
    peer.ReceiveToEnd();
    Start(peer);
    const FtpClientResult result = Connect();
    EXPECT_EQ(result.outcome, OUTCOME::NO_LOGIN);
    EXPECT_EQ(result.text, "the server says: 530 ?[31mno");
    EXPECT_TRUE(peer.WaitDone()) << "the connection is closed: " << peer.GetFailure();
}

TEST_F(FtpClientDialogue, WrongReplies_ConfusedAndClosed)
{
    for (const std::string& reply : {std::string("SSH-2.0-OpenSSH\r\n"), std::string("\r\n"), std::string("999 x\r\n"),
                                     std::string(20000, 'x').append("\r\n"), std::string("\0\0\0\0\r\n", 6)})
    {
        ScriptedTCPPeer peer;
        peer.Send(reply).ReceiveToEnd();
        Start(peer);
        EXPECT_EQ(Connect().outcome, OUTCOME::CONFUSED) << reply.substr(0, 20);
        EXPECT_TRUE(peer.WaitDone()) << peer.GetFailure();
    }
}

TEST_F(FtpClientDialogue, HangUp_AtEveryStepOfTheLogin_LostAndNextRequestConnectsAgain)
{
    const std::string steps[] = {"220 ready",    "331 password",  "230 welcome", "211 none",
                                 "200 utf fine", "257 \"/home\"", "200 type I"};
    constexpr std::size_t COUNT = std::size(steps);
    const std::string commands[COUNT] = {"", "USER", "PASS", "FEAT", "OPTS", "PWD", "TYPE"};
    for (std::size_t last = 0; last < COUNT; ++last) {
        ScriptedTCPPeer peer;
        for (std::size_t i = 0; i < last; ++i) {
            if (i != 0)
                peer.ReceiveUntil(commands[i]).ReceiveUntil("\r\n");
            peer.Send(steps[i] + "\r\n");
        }
        if (last != 0)
            peer.ReceiveUntil(commands[last]).ReceiveUntil("\r\n");
        peer.Send(steps[last].substr(0, 2)).NextConnection();
        ExpectLogin(peer);
        Start(peer);
        EXPECT_EQ(Connect().outcome, OUTCOME::LOST) << last;
        const FtpClientResult again = Connect();
        EXPECT_TRUE(again.IsDone()) << last << ": " << again.text.c_str() << peer.GetFailure();
    }
}

TEST_F(FtpClientDialogue, HangUpWhileIdle_NextRequestConnectsAgain)
{
    ScriptedTCPPeer peer;
    ExpectLogin(peer);
    peer.Send("421 idle too long\r\n").NextConnection();
    ExpectLogin(peer);
    Expect(peer, "MKD /home/x", "257 made");
    m_settings.retries = 1; // the farewell may come while the request is sent
    Start(peer);
    ASSERT_TRUE(Connect().IsDone());
    const FtpClientResult result = m_client->Run(Make(REQUEST::MAKE_FOLDER, "x"));
    EXPECT_TRUE(result.IsDone()) << result.text.c_str();
    EXPECT_EQ(peer.GetConnectionCount(), 2U);
}

TEST_F(FtpClientDialogue, SilentServer_TimeOut_Lost)
{
    ScriptedTCPPeer peer;
    ExpectLogin(peer);
    peer.ReceiveUntil("MKD").ReceiveToEnd();
    m_settings.timeOutSecs = 1;
    Start(peer);
    const FtpClientResult result = m_client->Run(Make(REQUEST::MAKE_FOLDER, "x"));
    EXPECT_EQ(result.outcome, OUTCOME::LOST);
    EXPECT_NE(result.text.find("nothing"), String::npos) << result.text.c_str();
    EXPECT_TRUE(peer.WaitDone()) << peer.GetFailure();
}

TEST_F(FtpClientDialogue, Retry_LostConnection_DoneAtTheSecondTry)
{
    ScriptedTCPPeer peer;
    ExpectLogin(peer);
    peer.ReceiveUntil("MKD /home/x\r\n").NextConnection();
    ExpectLogin(peer);
    Expect(peer, "MKD /home/x", "257 made");
    m_settings.retries = 1;
    Start(peer);
    const FtpClientResult result = m_client->Run(Make(REQUEST::MAKE_FOLDER, "x"));
    EXPECT_TRUE(result.IsDone()) << result.text.c_str();
}

TEST_F(FtpClientDialogue, Refused_OtherRequestsGoOnOnTheConnection)
{
    ScriptedTCPPeer peer;
    ExpectLogin(peer);
    Expect(peer, "RMD /home/x", "550 not empty");
    Expect(peer, "RMD /y", "250 gone");
    Start(peer);
    const FtpClientResult result = m_client->Run(Make(REQUEST::REMOVE_FOLDER, "x"));
    EXPECT_EQ(result.outcome, OUTCOME::REFUSED);
    EXPECT_EQ(result.replyCode, 550U);
    EXPECT_TRUE(m_client->Run(Make(REQUEST::REMOVE_FOLDER, "/y")).IsDone());
    EXPECT_EQ(peer.GetConnectionCount(), 1U);
}

TEST_F(FtpClientDialogue, PathWithLineEnd_NeverSent)
{
    ScriptedTCPPeer peer;
    ExpectLogin(peer);
    Expect(peer, "DELE /home/y", "250 gone");
    Start(peer);
    EXPECT_EQ(m_client->Run(Make(REQUEST::REMOVE_FILE, "x\r\nDELE z")).outcome, OUTCOME::LOCAL);
    EXPECT_TRUE(m_client->Run(Make(REQUEST::REMOVE_FILE, "y")).IsDone());
    EXPECT_EQ(peer.GetReceived().find("z"), std::string::npos);
}

TEST_F(FtpClientDialogue, KeepAlive_WhileIdle_SignsOfLifeAndSameConnection)
{
    ScriptedTCPPeer peer;
    ExpectLogin(peer);
    Expect(peer, "NOOP", "200 fine");
    Expect(peer, "NOOP", "500 what?"); // any answer will do
    Expect(peer, "DELE /home/x", "250 gone");
    m_settings.keepAliveSecs = 1;
    Start(peer);
    ASSERT_TRUE(Connect().IsDone());
    m_client->GetSession().CancelAllReqs(); // of no request: must not keep the signs of life from going out
    ASSERT_TRUE(WaitFor([&] { return peer.GetReceived().find("NOOP\r\nNOOP\r\n") != std::string::npos; }, 10000));
    EXPECT_TRUE(m_client->Run(Make(REQUEST::REMOVE_FILE, "x")).IsDone());
    EXPECT_EQ(peer.GetConnectionCount(), 1U);
}

TEST_F(FtpClientDialogue, KeepAliveOff_TimeOutWhileIdle_LeavesAndStaysUsable)
{
    ScriptedTCPPeer peer;
    ExpectLogin(peer);
    peer.ReceiveUntil("QUIT\r\n").NextConnection();
    ExpectLogin(peer);
    m_settings.keepAliveSecs = 0;
    m_settings.timeOutSecs = 1;
    Start(peer);
    ASSERT_TRUE(Connect().IsDone());
    ASSERT_TRUE(WaitFor([&] {
        NetTCPSessionControllableSSL::STATE state;
        m_client->GetSession().GetState(state);
        return !state.connected;
    }));
    EXPECT_TRUE(Connect().IsDone());
    EXPECT_EQ(peer.GetConnectionCount(), 2U);
}

TEST_F(FtpClientDialogue, StartTLS_RefusedOrTamperedWith_NoTLSAndNoPasswordSent)
{
    for (const char* answer : {"502 no TLS here\r\n", "234 go on\r\n230 welcome\r\n", "200 fine\r\n"}) {
        ScriptedTCPPeer peer;
        peer.Send("220 ready\r\n").ReceiveUntil("AUTH TLS\r\n").Send(answer).ReceiveToEnd();
        m_settings.tls = FtpClientSettings::TLS::EXPLICIT;
        Start(peer);
        EXPECT_EQ(Connect().outcome, OUTCOME::NO_TLS) << answer;
        EXPECT_TRUE(peer.WaitDone()) << peer.GetFailure();
        EXPECT_EQ(peer.GetReceived(), "AUTH TLS\r\n");
    }
}

TEST_F(FtpClientDialogue, StartTLS_HandshakeFails_NoTLSAndNoPasswordSent)
{
    ScriptedTCPPeer peer;
    peer.Send("220 ready\r\n")
        .ReceiveUntil("AUTH TLS\r\n")
        .Send("234 go on\r\n")
        .ReceiveBytes(5)
        .Send("no TLS at all\r\n");
    m_settings.tls = FtpClientSettings::TLS::EXPLICIT;
    Start(peer);
    EXPECT_EQ(Connect().outcome, OUTCOME::NO_TLS);
    EXPECT_EQ(peer.GetReceived().find("PASS"), std::string::npos);
}

} // namespace
} // namespace kqlib::test
