// Tests of NetTCPSessionSSL: the two handshakes, their log lines and counters.
#include "net/session/NetTCPSessionSSL.h"

#include "net/sockets/NetTCPSSL.h"
#include "tests/net/session/SessionFixture.h"
#include "tests/peers/HalfTLSPeer.h"
#include "tests/peers/TLSFiles.h"

#include <gmock/gmock.h>

#include <atomic>
#include <functional>
#include <future>
#include <new>

namespace kqlib::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// Its operations work without its thread too.
class TLSHostSession : public NetTCPSessionSSL
{
public:
    using NetTCPSessionSSL::NetTCPSessionSSL;
    ~TLSHostSession() override { xDeconstrEndSession(); }

    using NetTCPSessionSSL::xAcceptSSL;
    using NetTCPSessionSSL::xConnect;
    using NetTCPSessionSSL::xConnectSSL;
    using NetTCPSessionSSL::xConstrStartSession;
    using NetTCPSessionSSL::xGetMainSocket;
    using NetTCPSessionSSL::xGetMainSocketSSL;
    using NetTCPSessionSSL::xRecvData;
    using NetTCPSessionSSL::xSendAllData;
    using NetTCPSessionSSL::xSendCommand;
    using NetTCPSessionSSL::xSendCommandForce;
    using NetTCPSessionSSL::xSetBatchReplies;
    using NetTCPSessionSSL::xSetSessionCompleted;
    using NetTCPSessionSSL::xsGetNetState;

    bool wait = true;      ///< xWaitingForNetShouldWait
    int mainNetClosed = 0; ///< calls of xEventMainNetClosed
    /// What xEventMonCmdRecv does; none: the session does not read. Set before the thread runs.
    std::function<void(const String&)> command;
    std::function<void()> atMainNetClosed; ///< likewise, of xEventMainNetClosed

protected:
    void xHandleSession() override
    {
        if (command)
            xMonitorNet(xGetMainSocket());
    }
    void xEventMonCmdRecv(const String& text) override { command(text); }
    bool xWaitingForNetShouldWait() override { return wait; }
    void xEventMainNetClosed() override
    {
        ++mainNetClosed;
        if (atMainNetClosed)
            atMainNetClosed();
    }
};

class NetTCPSessionSSLTest : public SessionFixture
{
protected:
    void SetUp() override
    {
        NetTCPSSL::sStartSSL();
        SessionFixture::SetUp();
        auto socket = std::make_unique<NetTCPSSL>(NetIP::LOOKUP_ANY);
        socket->Upgrade(*m_served);
        m_host = std::make_unique<TLSHostSession>(m_pool, m_cache, m_dataLog, m_log, ID, 60, socket.release());
        m_state = TLSHostSession::xsGetNetState(m_host->xGetMainSocket());
    }
    void TearDown() override
    {
        m_host.reset();
        SessionFixture::TearDown();
    }

    bool Accept(const String& detail = "detail")
    {
        return m_host->xAcceptSSL(m_host->xGetMainSocketSSL(), m_state, detail, m_files.GetCert(), m_files.GetKey());
    }
    /// TLS between the session and a scripted client.
    void Secure(HalfTLSPeer& peer)
    {
        std::future<bool> accepted = std::async(std::launch::async, [&] { return Accept(); });
        EXPECT_TRUE(peer.HandshakeOver(*m_client));
        ASSERT_TRUE(accepted.get());
    }
    /// Makes every record final: no handshake is counted besides these.
    void ExpectCounted(ULONG8 successes, ULONG8 fails)
    {
        ASSERT_TRUE(m_host->xConstrStartSession());
        ASSERT_TRUE(WaitFor([&] { return m_host->IsComplete(); }));
        EXPECT_EQ(Stored(NetCounterBlock::SSL_SUCCESSES), successes);
        EXPECT_EQ(Stored(NetCounterBlock::SSL_FAILS), fails);
    }

    const TLSFiles& m_files = TLSFiles::sGet();
    std::unique_ptr<TLSHostSession> m_host;
    NETSTATE m_state;
};

TEST_F(NetTCPSessionSSLTest, AcceptSSL_Success_OneLineOneCount)
{
    HalfTLSPeer peer(HalfTLSPeer::CLIENT);
    Secure(peer);
    EXPECT_TRUE(m_host->xGetMainSocketSSL()->IsSSLOn());
    EXPECT_THAT(Lines(), ElementsAre(Line(m_state, "Connect SSL Success", "detail")));
    EXPECT_EQ(m_host->mainNetClosed, 0);
    m_log.Clear();
    ExpectCounted(1, 0);
}

TEST_F(NetTCPSessionSSLTest, AcceptSSL_ReplyHeldBack_GoesOutInTheClearBeforeTheHandshake)
{
    m_host->xSetBatchReplies(true);
    m_host->command = [this](const String& text) {
        m_host->xSendCommand(m_host->xGetMainSocket(), text + "!");
        if (text == "AUTH") {
            EXPECT_TRUE(Accept());
        }
    };
    ClientSends("AUTH\r\nNEXT\r\n");
    ASSERT_TRUE(m_host->xConstrStartSession());
    EXPECT_EQ(ClientReceives(7), "AUTH!\r\n");
    HalfTLSPeer peer(HalfTLSPeer::CLIENT);
    EXPECT_TRUE(peer.HandshakeOver(*m_client));
    m_host->ForceComplete();
}

TEST_F(NetTCPSessionSSLTest, AcceptSSL_PlainText_TwoLinesClosedAndNoEvent_KeptOnPurpose)
{
    ClientSends("USER anonymous\r\n");
    EXPECT_FALSE(Accept("the detail"));
    EXPECT_FALSE(m_host->xGetMainSocket()->IsActive());
    EXPECT_EQ(m_host->xGetMainSocket()->GetLastError(), NetSocket::ERR_TLS);
    EXPECT_THAT(Lines(),
                ElementsAre(Line(m_state, "Connect SSL Fail", "the detail"), Line(m_state, "Connection Closed")));
    EXPECT_EQ(m_host->mainNetClosed, 0) << "the socket was closed already";
    EXPECT_TRUE(ClientSeesEnd());
    ExpectCounted(0, 1);
}

TEST_F(NetTCPSessionSSLTest, AcceptSSL_Silence_SameLinesAfter30Seconds)
{
    MovedTick tick(77);
    const std::size_t before = MovedTick::sGetAskedCount();
    std::future<bool> accepted = std::async(std::launch::async, [&] { return Accept(); });
    ASSERT_TRUE(WaitFor([&] { return MovedTick::sGetAskedCount() > before + 5; }));
    MovedTick::sAdvance(30000);
    ASSERT_EQ(accepted.wait_for(std::chrono::seconds(10)), std::future_status::ready);
    EXPECT_FALSE(accepted.get());
    EXPECT_THAT(Lines(), ElementsAre(Line(m_state, "Connect SSL Fail", "detail"), Line(m_state, "Connection Closed")));
    EXPECT_TRUE(ClientSeesEnd());
}

TEST_F(NetTCPSessionSSLTest, AcceptSSL_FileMissing_TwoLinesNotThreeAndClosed)
{
    EXPECT_FALSE(
        m_host->xAcceptSSL(m_host->xGetMainSocketSSL(), m_state, "", FilePath("/none/there"), m_files.GetKey()));
    EXPECT_FALSE(m_host->xGetMainSocket()->IsActive());
    EXPECT_THAT(Lines(), ElementsAre(Line(m_state, "Connect SSL Fail"), Line(m_state, "Connection Closed")));
    EXPECT_EQ(m_host->mainNetClosed, 1) << "the socket was still connected";
    EXPECT_TRUE(ClientSeesEnd());
    ExpectCounted(0, 1);
}

TEST_F(NetTCPSessionSSLTest, AcceptSSL_NotConnected_FalseAndNothingElse)
{
    NetTCPSSL other(NetIP::LOOKUP_ANY);
    EXPECT_FALSE(m_host->xAcceptSSL(&other, m_state, "detail", m_files.GetCert(), m_files.GetKey()));
    EXPECT_FALSE(m_host->xConnectSSL(&other, m_state, "detail"));
    EXPECT_THAT(Lines(), IsEmpty());
    ExpectCounted(0, 0);
}

TEST_F(NetTCPSessionSSLTest, AcceptSSL_OtherSocketFails_NoEventOfTheMainOne)
{
    NetTCPSSL other(NetIP::LOOKUP_ANY);
    NetTCP listener(NetIP::LOOKUP_ANY);
    ASSERT_TRUE(listener.ListenSpecific(0, LOOPBACK()));
    ASSERT_TRUE(other.Connect(LOOPBACK(), listener.GetLocalPort()));
    const NETSTATE state = TLSHostSession::xsGetNetState(&other);
    EXPECT_FALSE(m_host->xAcceptSSL(&other, state, "", FilePath("/none/there"), m_files.GetKey()));
    EXPECT_FALSE(other.IsActive());
    EXPECT_TRUE(m_host->xGetMainSocket()->IsConnected());
    EXPECT_EQ(m_host->mainNetClosed, 0);
    EXPECT_THAT(Lines(), ElementsAre(Line(state, "Connect SSL Fail"), Line(state, "Connection Closed")));
}

// Who turns to TLS on a command must not let the monitor read, or must expect this (RFC 3207 section 6).
TEST_F(NetTCPSessionSSLTest, AcceptSSL_InAHandlerOfTheMonitor_BytesSentAlongInTheClearStayCommands_KeptOnPurpose)
{
    HalfTLSPeer peer(HalfTLSPeer::CLIENT);
    TEXTS commands;
    std::atomic<bool> asked{false};
    m_host->command = [&](const String& text) {
        commands.push_back(text.str());
        if (commands.size() == 2)
            return m_host->xSetSessionCompleted();
        asked = true;
        EXPECT_TRUE(Accept());
    };
    ClientSends("AUTH\r\nIN THE CLEAR\r\n");
    ASSERT_TRUE(m_host->xConstrStartSession());
    ASSERT_TRUE(WaitFor([&] { return asked.load(); })); // earlier, the monitor would take the handshake for commands
    EXPECT_TRUE(peer.HandshakeOver(*m_client));
    ASSERT_TRUE(WaitFor([&] { return m_host->IsComplete(); }));
    EXPECT_THAT(commands, ElementsAre("AUTH", "IN THE CLEAR"));
}

TEST_F(NetTCPSessionSSLTest, ConnectSSL_Success_SameTextsAsTheAcceptingSide_KeptOnPurpose)
{
    HalfTLSPeer peer(HalfTLSPeer::SERVER);
    std::future<bool> connected = std::async(
        std::launch::async, [&] { return m_host->xConnectSSL(m_host->xGetMainSocketSSL(), m_state, "out"); });
    EXPECT_TRUE(peer.HandshakeOver(*m_client));
    EXPECT_TRUE(connected.get());
    EXPECT_THAT(Lines(), ElementsAre(Line(m_state, "Connect SSL Success", "out")));
    ExpectCounted(1, 0);
}

TEST_F(NetTCPSessionSSLTest, ConnectSSL_Fails_CountedOnceAndTheNextIsFalseAtOnce)
{
    ClientSends("220 no TLS here\r\n");
    EXPECT_FALSE(m_host->xConnectSSL(m_host->xGetMainSocketSSL(), m_state, "out"));
    EXPECT_FALSE(m_host->xGetMainSocket()->IsActive());
    const TEXTS lines = Lines();
    EXPECT_THAT(lines, ElementsAre(Line(m_state, "Connect SSL Fail", "out"), Line(m_state, "Connection Closed")));
    EXPECT_FALSE(m_host->xConnectSSL(m_host->xGetMainSocketSSL(), m_state, "out"));
    EXPECT_EQ(Lines(), lines);
    ExpectCounted(0, 1);
}

TEST_F(NetTCPSessionSSLTest, Handler_ThrowsOverTLS_LoggedClosedAndTheClientSeesTheEnd)
{
    for (const bool isStandard : {true, false}) {
        SCOPED_TRACE(isStandard);
        TearDown();
        SetUp();
        m_log.Clear();
        HalfTLSPeer peer(HalfTLSPeer::CLIENT);
        Secure(peer);
        m_host->command = [&](const String&) {
            if (isStandard)
                throw std::bad_alloc();
            throw 42;
        };
        ASSERT_TRUE(m_host->xConstrStartSession());
        SendAll(*m_client, peer.Encrypt("NOOP\r\n"));
        ASSERT_TRUE(WaitFor([&] { return m_host->IsComplete(); }));
        EXPECT_TRUE(m_host->HasFailed());
        EXPECT_THAT(Lines(),
                    ElementsAre(Line(m_state, "Connect SSL Success", "detail"), Line(m_state, "Connection Accepted"),
                                Line(m_state, "Session Failed", "",
                                     isStandard ? std::bad_alloc().what() : "Exception of an unknown kind"),
                                Line(m_state, "Connection Closed")));
        EXPECT_EQ(m_host->mainNetClosed, 1);
        EXPECT_TRUE(ClientSeesEnd());
    }
}

TEST_F(NetTCPSessionSSLTest, AcceptSSL_FailsAndTheHandlerThrows_ClosedAndLoggedBeforeTheCallerSeesIt)
{
    m_host->atMainNetClosed = [] { throw std::bad_alloc(); };
    EXPECT_THROW(static_cast<void>(m_host->xAcceptSSL(m_host->xGetMainSocketSSL(), m_state, "", FilePath("/none/there"),
                                                      m_files.GetKey())),
                 std::bad_alloc);
    EXPECT_FALSE(m_host->xGetMainSocket()->IsActive());
    EXPECT_THAT(Lines(), ElementsAre(Line(m_state, "Connect SSL Fail"), Line(m_state, "Connection Closed")));
    EXPECT_TRUE(ClientSeesEnd());
    ExpectCounted(0, 1);
}

TEST_F(NetTCPSessionSSLTest, Constructor_NoSocket_AnUnconnectedTLSOne)
{
    TLSHostSession host(m_pool, m_cache, m_dataLog, m_log, ID, 60, nullptr);
    ASSERT_NE(dynamic_cast<NetTCPSSL*>(host.xGetMainSocket()), nullptr);
    EXPECT_EQ(host.xGetMainSocketSSL(), host.xGetMainSocket());
    EXPECT_FALSE(host.xGetMainSocket()->IsActive());
    NetTCP listener(NetIP::LOOKUP_ANY);
    ASSERT_TRUE(listener.ListenSpecific(0, LOOPBACK()));
    EXPECT_TRUE(host.xConnect(host.xGetMainSocket(), "127.0.0.1", listener.GetLocalPort()));
}

TEST_F(NetTCPSessionSSLTest, SendAllData_GivenUpThenForcedLastWords_AllArriveOverTLS)
{
    HalfTLSPeer peer(HalfTLSPeer::CLIENT);
    Secure(peer);
    const std::vector<unsigned char> much(16 << 20, 'm');
    m_host->wait = false; // gives up after its first part
    EXPECT_FALSE(m_host->xSendAllData(m_host->xGetMainSocket(), much.data(), static_cast<ULONG>(much.size())));
    m_host->wait = true;
    EXPECT_GT(m_host->xGetMainSocket()->GetOutDataBytes(), 0U);
    const std::string lastWords = "426 Cancelled\r\n";
    EXPECT_TRUE(m_host->xSendCommandForce(m_host->xGetMainSocket(), "426 Cancelled"));
    EXPECT_TRUE(WaitFor([&] { return peer.ReceiveFrom(*m_client).find("\r\n") != std::string::npos; }));
    // A record that was begun when the sending was given up is finished first, and counted then.
    const unsigned long before = m_host->xGetMainSocket()->GetOutDataBytes() - lastWords.size();
    EXPECT_TRUE(peer.ReceiveFrom(*m_client) == std::string(before, 'm') + lastWords);
}

TEST_F(NetTCPSessionSSLTest, SendAllData_GivenUpInsideARecordThenForcedLastWords_AllArriveOverTLS)
{
    HalfTLSPeer peer(HalfTLSPeer::CLIENT);
    Secure(peer);
    NetTCPSSL& socket = *m_host->xGetMainSocketSSL();
    const std::vector<unsigned char> much(131072, 'm');
    socket.SetBlockTime(0);
    for (unsigned long len = 1; len > 0;) { // until the system takes no more
        len = much.size();
        ASSERT_TRUE(socket.Send(much.data(), len));
    }
    const unsigned long before = socket.GetOutDataBytes();
    socket.SetBlockTime(2);
    std::future<bool> sent =
        std::async(std::launch::async, [&] { return m_host->xSendCommandForce(&socket, "426 Cancelled"); });
    EXPECT_TRUE(WaitFor([&] { return peer.ReceiveFrom(*m_client).find("\r\n") != std::string::npos; }, 20000));
    EXPECT_TRUE(sent.get());
    // The record that was begun was finished first.
    EXPECT_TRUE(peer.ReceiveFrom(*m_client) == std::string(before + 16384, 'm') + "426 Cancelled\r\n");
}

} // namespace
} // namespace kqlib::test
