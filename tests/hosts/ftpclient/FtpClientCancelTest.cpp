// Cancelling: while queued, while waiting, receiving and sending; the end of a session with a full queue.
#include "hosts/ftpclient/FtpNames.h"
#include "tests/hosts/ftpclient/FtpClientFixture.h"

#include <thread>

namespace kqlib::test {
namespace {

using KIND = FtpRemoteEntry::KIND;

class FtpClientCancel : public FtpClientFixture
{
protected:
    FtpClientSession& Session() { return m_client->GetSession(); }
    FtpClientResult Take(ULONG id)
    {
        FtpClientResult result;
        EXPECT_TRUE(Session().WaitForResult(id, result, 20000));
        return result;
    }
    static bool WaitReceived(const ScriptedTCPPeer& peer, const char* text)
    {
        return WaitFor([&] { return peer.GetReceived().find(text) != std::string::npos; });
    }
    /// Until the request has noticed that it was cancelled.
    bool WaitCatchingUp()
    {
        return WaitFor([&] {
            NetTCPSessionControllableSSL::STATE state;
            Session().GetState(state);
            return state.action == FtpClientSession::ACT_CATCHING_UP;
        });
    }
    REQUEST MakeDownload(ULONG8 size) const
    {
        REQUEST request = MakeTransfer(REQUEST::DOWNLOAD, "f", "f");
        request.version = {"f", KIND::FILE, size, 1577836800000};
        return request;
    }
};

TEST_F(FtpClientCancel, WhileQueued_NeverBegunAndTheOthersUnharmed)
{
    ScriptedTCPPeer peer;
    ExpectLogin(peer);
    peer.ReceiveUntil("DELE /home/a\r\n").Stall().Send("250 gone\r\n");
    Expect(peer, "DELE /home/c", "250 gone");
    Start(peer);
    const ULONG first = Session().Queue(Make(REQUEST::REMOVE_FILE, "a"));
    const ULONG second = Session().Queue(Make(REQUEST::REMOVE_FILE, "b"));
    const ULONG third = Session().Queue(Make(REQUEST::REMOVE_FILE, "c"));
    EXPECT_EQ(first, 1U);
    EXPECT_EQ(third, 3U);
    ASSERT_TRUE(WaitReceived(peer, "DELE /home/a"));
    Session().CancelReq(second);
    peer.Continue();
    EXPECT_TRUE(Take(first).IsDone());
    EXPECT_EQ(Take(second).outcome, OUTCOME::CANCELLED);
    EXPECT_TRUE(Take(third).IsDone());
    EXPECT_EQ(peer.GetReceived().find("/home/b"), std::string::npos);
}

TEST_F(FtpClientCancel, WhileWaitingForAReply_NextRequestReadsItsOwn)
{
    ScriptedTCPPeer peer;
    ExpectLogin(peer);
    peer.ReceiveUntil("DELE /home/a\r\n").Stall().Send("250-gone\r\n250 really\r\n");
    Expect(peer, "DELE /home/b", "550 the answer to b");
    Start(peer);
    const ULONG id = Session().Queue(Make(REQUEST::REMOVE_FILE, "a"));
    ASSERT_TRUE(WaitReceived(peer, "DELE /home/a"));
    Session().CancelReq(id);
    ASSERT_TRUE(WaitCatchingUp());
    peer.Continue();
    EXPECT_EQ(Take(id).outcome, OUTCOME::CANCELLED);
    const FtpClientResult next = m_client->Run(Make(REQUEST::REMOVE_FILE, "b"));
    EXPECT_EQ(next.text, "the server says: 550 the answer to b");
    EXPECT_EQ(peer.GetConnectionCount(), 1U);
}

TEST_F(FtpClientCancel, WhileReceiving_AbortedInOrderPartKeptConnectionGoesOn)
{
    ScriptedTCPPeer peer;
    ScriptedTCPPeer data;
    data.Send(std::string(1000, 'x')).ReceiveToEnd();
    ASSERT_TRUE(data.StartServer());
    ExpectLogin(peer);
    ExpectPassive(peer, data);
    Expect(peer, "RETR /home/f", "150 here");
    Expect(peer, "ABOR", "426 aborted\r\n226 fine");
    Expect(peer, "DELE /home/b", "550 the answer to b");
    Start(peer);
    const REQUEST request = MakeDownload(5000);
    const ULONG id = Session().Queue(request);
    ASSERT_TRUE(WaitFor([&] { return Session().GetProgress().moved == 1000; }));
    EXPECT_EQ(Session().GetProgress().total, 5000U);
    EXPECT_EQ(Session().GetProgress().name, "/home/f");
    Session().CancelReq(id);
    const FtpClientResult result = Take(id);
    EXPECT_EQ(result.outcome, OUTCOME::CANCELLED);
    EXPECT_EQ(result.moved, 1000U);
    EXPECT_EQ(ReadFile(FtpNames::sMakePartName(request.version).c_str()).size(), 1000U);
    EXPECT_EQ(m_client->Run(Make(REQUEST::REMOVE_FILE, "b")).text, "the server says: 550 the answer to b");
    EXPECT_EQ(peer.GetConnectionCount(), 1U);
    EXPECT_TRUE(data.WaitDone()) << data.GetFailure();
}

TEST_F(FtpClientCancel, WhileSending_StopsAndConnectionGoesOn)
{
    ScriptedTCPPeer peer;
    ScriptedTCPPeer data;
    WriteFile("f", std::string(32U << 20, 'x'));
    data.ReceiveBytes(1000).Stall().ReceiveToEnd();
    ASSERT_TRUE(data.StartServer());
    ExpectLogin(peer);
    ExpectPassive(peer, data);
    Expect(peer, "STOR /home/f", "150 go");
    Expect(peer, "ABOR", "226 done\r\n226 nothing to abort"); // a server that takes the end for the end of the file
    Expect(peer, "DELE /home/b", "550 the answer to b");
    m_settings.isInPlace = true;
    Start(peer);
    const ULONG id = Session().Queue(MakeTransfer(REQUEST::UPLOAD, "f", "f"));
    ASSERT_TRUE(WaitFor([&] { return Session().GetProgress().moved > 0; }));
    Session().CancelReq(id);
    EXPECT_EQ(Take(id).outcome, OUTCOME::CANCELLED);
    data.Continue();
    EXPECT_EQ(m_client->Run(Make(REQUEST::REMOVE_FILE, "b")).text, "the server says: 550 the answer to b");
    EXPECT_EQ(peer.GetConnectionCount(), 1U);
}

TEST_F(FtpClientCancel, ServerThatNeverAnswersAbor_ConnectionGivenUpAndMadeAnew)
{
    ScriptedTCPPeer peer;
    ScriptedTCPPeer data;
    data.Send("x").ReceiveToEnd();
    ASSERT_TRUE(data.StartServer());
    ExpectLogin(peer);
    ExpectPassive(peer, data);
    Expect(peer, "RETR /home/f", "150 here");
    Expect(peer, "ABOR", "426 aborted");
    peer.ReceiveToEnd().NextConnection();
    ExpectLogin(peer);
    peer.SetStepLimit(20000);
    Start(peer);
    const ULONG id = Session().Queue(MakeDownload(5000));
    ASSERT_TRUE(WaitFor([&] { return Session().GetProgress().moved == 1; }));
    Session().CancelAllReqs();
    EXPECT_EQ(Take(id).outcome, OUTCOME::CANCELLED);
    EXPECT_TRUE(Connect().IsDone()) << peer.GetFailure();
    EXPECT_EQ(peer.GetConnectionCount(), 2U);
}

TEST_F(FtpClientCancel, WhileWaitingForAnActiveConnection_Stops)
{
    ScriptedTCPPeer peer;
    ExpectLogin(peer);
    peer.ReceiveUntil("EPRT").ReceiveUntil("\r\n").Send("200 fine\r\n");
    Expect(peer, "RETR /home/f", "150 here");
    peer.Stall().Send("425 no\r\n");
    Expect(peer, "DELE /home/b", "250 gone");
    m_settings.isActive = true;
    Start(peer);
    const ULONG id = Session().Queue(MakeDownload(5000));
    ASSERT_TRUE(WaitReceived(peer, "RETR"));
    Session().CancelReq(id);
    ASSERT_TRUE(WaitCatchingUp());
    peer.Continue();
    EXPECT_EQ(Take(id).outcome, OUTCOME::CANCELLED);
    EXPECT_TRUE(m_client->Run(Make(REQUEST::REMOVE_FILE, "b")).IsDone());
    EXPECT_EQ(peer.GetConnectionCount(), 1U);
}

TEST_F(FtpClientCancel, ClientCancelled_EverythingAskedLaterToo)
{
    ScriptedTCPPeer peer;
    ExpectLogin(peer);
    peer.ReceiveUntil("DELE /home/a\r\n").Stall();
    Start(peer);
    std::thread canceller([&] {
        EXPECT_TRUE(WaitReceived(peer, "DELE /home/a"));
        m_client->Cancel();
    });
    EXPECT_EQ(m_client->Run(Make(REQUEST::REMOVE_FILE, "a")).outcome, OUTCOME::CANCELLED);
    canceller.join();
    EXPECT_EQ(m_client->Run(Make(REQUEST::REMOVE_FILE, "b")).outcome, OUTCOME::CANCELLED);
    EXPECT_TRUE(m_client->IsCancelled());
}

TEST_F(FtpClientCancel, EndWithAFullQueue_EveryRequestDisposedOf)
{
    ScriptedTCPPeer peer;
    ExpectLogin(peer);
    peer.ReceiveUntil("DELE /home/0\r\n").ReceiveToEnd();
    Start(peer);
    constexpr ULONG COUNT = 1000;
    for (ULONG i = 0; i < COUNT; ++i)
        Session().Queue(Make(REQUEST::REMOVE_FILE, String::sToString(i)));
    ASSERT_TRUE(WaitReceived(peer, "DELE /home/0"));
    Session().ForceComplete();
    for (ULONG id = 1; id <= COUNT; ++id) {
        FtpClientResult result;
        ASSERT_TRUE(Session().WaitForResult(id, result, 0)) << id;
        EXPECT_EQ(result.outcome, OUTCOME::CANCELLED) << id;
    }
    EXPECT_TRUE(peer.WaitDone()) << peer.GetFailure();
    EXPECT_EQ(peer.GetReceived().find("/home/1"), std::string::npos);
}

TEST_F(FtpClientCancel, DestroyedWhileReceiving_EndsAtOnce)
{
    ScriptedTCPPeer peer;
    ScriptedTCPPeer data;
    data.Send("x").ReceiveToEnd();
    ASSERT_TRUE(data.StartServer());
    ExpectLogin(peer);
    ExpectPassive(peer, data);
    Expect(peer, "RETR /home/f", "150 here");
    peer.ReceiveToEnd();
    Start(peer);
    Session().Queue(MakeDownload(5000));
    ASSERT_TRUE(WaitFor([&] { return Session().GetProgress().moved == 1; }));
    m_client.reset();
    EXPECT_TRUE(data.WaitDone()) << data.GetFailure();
    EXPECT_TRUE(peer.WaitDone()) << peer.GetFailure();
}

} // namespace
} // namespace kqlib::test
