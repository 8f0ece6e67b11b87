// Tests of NetTCPServiceSSL: sessions over TLS-capable sockets.
#include "net/service/NetTCPServiceSSL.h"

#include "net/session/NetTCPSessionSSL.h"
#include "net/sockets/NetTCPSSL.h"
#include "tests/net/service/TestService.h"
#include "tests/peers/CapturedEventLog.h"
#include "tests/peers/HalfTLSPeer.h"
#include "tests/peers/KnownName.h"
#include "tests/peers/MovedClocks.h"
#include "tests/peers/TLSFiles.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <new>
#include <thread>

namespace kqlib::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

class TLSService;

/// TLS from the first byte; then answers each command with "OK <command>".
class TLSServiceSession : public NetTCPSessionSSL
{
public:
    TLSServiceSession(TLSService& service, NetTCPSSL* connection, const EventLogSessionID& id);
    ~TLSServiceSession() override { xDeconstrEndSession(); }

protected:
    void xHandleSession() override
    {
        const TLSFiles& files = TLSFiles::sGet();
        if (xAcceptSSL(xGetMainSocketSSL(), xGetMainNetState(), "", files.GetCert(), files.GetKey()))
            NetTCPSession::xHandleSession();
    }
    void xEventMonCmdRecv(const String& command) override { xSendCommand(xGetMainSocket(), String("OK ") + command); }
};

class TLSService : public NetTCPServiceSSL
{
public:
    TLSService(ThreadPool& pool, NetDNSCache& cache)
        : NetTCPServiceSSL(pool, cache)
    {
    }
    ~TLSService() override { xEndThread(); }

    using NetTCPServiceSSL::xGetPool;
    using NetTCPServiceSSL::xGetResolver;

    ULONG GetSessionCount()
    {
        NetServiceStatus status;
        GetStatus(status);
        return static_cast<ULONG>(status.GetCurrentConnectionsIn());
    }

    std::atomic<bool> refuse{false}; ///< the factory returns null
    std::atomic<USHORT> goTo{0};     ///< unless 0, the factory first connects its socket to this port of "peer.example"
    std::atomic<bool> failsEarly{false}; ///< the factory finds no memory, before or after the session has its socket
    std::atomic<bool> failsLate{false};
    Trace trace; ///< what the factory was given

protected:
    NetTCPSession* xCreateSessionSSL(NetTCPSSL* const connection, EventLogSessionID id) override
    {
        trace.Add(std::string(connection->IsConnected() ? "connected" : "closed") +
                  (connection->IsSSLOn() ? ", TLS" : ", plain") +
                  (connection->GetIPLookupMode() == NetIP::LOOKUP_ANY ? "" : ", wrong mode"));
        if (goTo != 0)
            trace.Add(connection->Connect(String("peer.example"), goTo) ? "resolved" : "not resolved");
        if (failsEarly.exchange(false))
            throw std::bad_alloc();
        return refuse ? nullptr : new TLSServiceSession(*this, connection, id);
    }
};

TLSServiceSession::TLSServiceSession(TLSService& service, NetTCPSSL* connection, const EventLogSessionID& id)
    : NetTCPSessionSSL(service.xGetPool(), *service.xGetResolver().GetCache(), service.GetActivityLog(),
                       service.GetEventLog(), id, 60, connection)
{
    if (service.failsLate.exchange(false))
        throw std::bad_alloc(); // the session goes, with its connection
    xConstrStartSession();
}

class NetTCPServiceSSLTest : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(NetSocket::sStartSockets());
        NetTCPSSL::sStartSSL();
        m_service = std::make_unique<TLSService>(m_pool, m_cache);
        m_service->SetLogModeShared(&m_log, true);
        NetPortBinds binds;
        binds.AddByLine("127.0.0.1:0");
        m_service->SetSettings(binds, 1000, 0);
        Messages messages;
        ASSERT_TRUE(m_service->Init(messages));
        NetPortBinds failed;
        m_service->StartListen(failed);
        Vector<NetServiceStatus::ACTIVEPORT> ports;
        m_service->GetListeningPorts(ports);
        ASSERT_EQ(ports.GetCount(), 1U);
        m_port = ports.Get(0).port;
    }
    void TearDown() override
    {
        m_service.reset();
        NetSocket::sEndSockets();
    }

    std::unique_ptr<NetTCP> Connect() const
    {
        auto socket = std::make_unique<NetTCP>(NetIP::LOOKUP_ANY);
        EXPECT_TRUE(socket->Connect(NetIP(String("127.0.0.1")), m_port));
        socket->SetBlockTime(10);
        return socket;
    }
    /// Handshake, one command, its answer.
    void ExpectServed() const
    {
        const std::unique_ptr<NetTCP> socket = Connect();
        HalfTLSPeer peer(HalfTLSPeer::CLIENT);
        ASSERT_TRUE(peer.HandshakeOver(*socket));
        EXPECT_TRUE(HalfTLSPeer::sSendAll(*socket, peer.Encrypt("HELLO\r\n")));
        EXPECT_TRUE(WaitFor([&] { return peer.ReceiveFrom(*socket) == "OK HELLO\r\n"; }));
    }
    static bool SeesEnd(NetTCP& socket)
    {
        return WaitFor([&] {
            char bytes[512];
            unsigned long len = sizeof(bytes);
            return !socket.Recv(bytes, len);
        });
    }
    /// The texts of one peer's lines, in order.
    std::vector<std::string> LinesOf(USHORT port) const
    {
        std::vector<std::string> texts;
        for (const auto& event : m_log.GetEvents())
            if (event.kind == 'N' && event.remotePort == port)
                texts.push_back(event.event.str() + "|" + event.detail.str() + "|" + event.comment.str());
        return texts;
    }

    ThreadPool m_pool;
    NetDNSCache m_cache;
    CapturedEventLog m_log;
    std::unique_ptr<TLSService> m_service;
    USHORT m_port = 0;
};

TEST_F(NetTCPServiceSSLTest, CreateSession_NoMemory_ConnectionClosedOthersServed)
{
    m_service->failsEarly = true;
    EXPECT_TRUE(TestClient(m_port).WaitClosed());
    m_service->failsLate = true;
    EXPECT_TRUE(TestClient(m_port).WaitClosed());
    NetTCPSSL client(NetIP::LOOKUP_ANY);
    ASSERT_TRUE(client.Connect(NetIP(String("127.0.0.1")), m_port));
    EXPECT_TRUE(client.SSLConnect());
    EXPECT_EQ(m_log.Count("Connection Refused"), 2U);
}

TEST_F(NetTCPServiceSSLTest, Session_MadeOverAConnectedPlainTLSSocket_ThenServedOverTLS)
{
    ExpectServed();
    EXPECT_THAT(m_service->trace.Get(), ElementsAre("connected, plain"));
    EXPECT_EQ(m_log.Count("Connect SSL Success"), 1U);
}

TEST_F(NetTCPServiceSSLTest, Factory_ReturnsNull_ClosedWithoutASession)
{
    m_service->refuse = true;
    for (int count = 0; count < 10; ++count) {
        const std::unique_ptr<NetTCP> socket = Connect();
        const USHORT port = socket->GetLocalPort();
        EXPECT_TRUE(SeesEnd(*socket));
        EXPECT_THAT(LinesOf(port), IsEmpty());
    }
    EXPECT_EQ(m_service->GetSessionCount(), 0U);
    m_service->refuse = false;
    ExpectServed();
}

TEST_F(NetTCPServiceSSLTest, Connection_GivenToTheFactory_HasTheServicesCache)
{
    MakeNameKnown(m_cache, "peer.example", "127.0.0.1");
    NetTCP peer(NetIP::LOOKUP_ANY);
    ASSERT_TRUE(peer.ListenSpecific(0, NetIP(String("127.0.0.1"))));
    m_service->refuse = true;
    m_service->goTo = peer.GetLocalPort();
    const std::unique_ptr<NetTCP> client = Connect();
    EXPECT_TRUE(WaitFor([&] { return m_service->trace.GetCount() == 2; }));
    EXPECT_THAT(m_service->trace.Get(), ElementsAre("connected, plain", "resolved"));
}

TEST_F(NetTCPServiceSSLTest, SilentClients_OthersAreServedAndTheyEndAfter30Seconds)
{
    MovedTick tick(1000);
    std::vector<std::unique_ptr<NetTCP>> silent;
    for (int count = 0; count < 10; ++count)
        silent.push_back(Connect());
    ASSERT_TRUE(WaitFor([&] { return m_service->GetSessionCount() == 10; }));
    const std::size_t asked = MovedTick::sGetAskedCount();
    ASSERT_TRUE(WaitFor([&] { return MovedTick::sGetAskedCount() > asked + 200; })); // all wait for a hello now
    ExpectServed();
    MovedTick::sAdvance(30000);
    for (const auto& socket : silent) {
        const USHORT port = socket->GetLocalPort();
        EXPECT_TRUE(SeesEnd(*socket));
        EXPECT_TRUE(WaitFor([&] { return LinesOf(port).size() >= 2; }));
        const std::vector<std::string> lines = LinesOf(port);
        EXPECT_THAT(lines, Contains("Connect SSL Fail||"));
        EXPECT_TRUE(!lines.empty() && lines.back() == "Connection Closed||");
    }
    ExpectServed();
}

TEST_F(NetTCPServiceSSLTest, PlainTextClient_ClosedWithExactLines)
{
    const std::unique_ptr<NetTCP> socket = Connect();
    const USHORT port = socket->GetLocalPort();
    // What is sent in pieces may not get through: the first ones are enough for the service to end it.
    static_cast<void>(HalfTLSPeer::sSendAll(*socket, "USER anonymous\r\n"));
    EXPECT_TRUE(SeesEnd(*socket));
    EXPECT_TRUE(WaitFor([&] { return m_service->GetSessionCount() == 0; }));
    const std::vector<std::string> lines = LinesOf(port);
    ASSERT_GE(lines.size(), 2U);
    EXPECT_EQ(lines[lines.size() - 2], "Connect SSL Fail||");
    EXPECT_EQ(lines.back(), "Connection Closed||");
}

TEST_F(NetTCPServiceSSLTest, CrowdOfBrokenHandshakes_ServiceGoesOn)
{
    std::vector<std::thread> crowd;
    for (int number = 0; number < 4; ++number)
        crowd.emplace_back([this, number] {
            HalfTLSPeer peer(HalfTLSPeer::CLIENT);
            peer.Handshake();
            const std::string hello = peer.Give();
            for (std::size_t count = 0; count < 15; ++count) {
                const std::unique_ptr<NetTCP> socket = Connect();
                HalfTLSPeer::sSendAll(*socket, number % 2 == 0 ? hello.substr(0, count * 17) : std::string(count, 'x'));
            }
        });
    for (std::thread& thread : crowd)
        thread.join();
    ExpectServed();
    EXPECT_TRUE(WaitFor([&] { return m_service->GetSessionCount() <= 1; }));
    EXPECT_TRUE(WaitFor([&] { return m_log.Count("Connect SSL Fail") == 60; }));
}

} // namespace
} // namespace kqlib::test
