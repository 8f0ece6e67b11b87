// Tests of NetTCPSSL against peers that mean no good.
#include "tests/net/sockets/tls/TLSFixture.h"

#include "platform/Sockets.h"
#include "tests/peers/MovedClocks.h"

#include <thread>

namespace kqlib::test {
namespace {

class NetTCPSSLHostile : public TLSFixture
{
protected:
    static bool IsDone(std::future<bool>& step, unsigned ms)
    {
        return step.wait_for(std::chrono::milliseconds(ms)) == std::future_status::ready;
    }
    /// Waits until the handshake has noted when it began.
    static bool WaitBegun()
    {
        const std::size_t before = MovedTick::sGetAskedCount();
        return WaitFor([&] { return MovedTick::sGetAskedCount() > before + 2; });
    }
    /// The server's handshake fails with code 50, and at once.
    void ExpectHandshakeFails(std::future<bool> accepted)
    {
        ASSERT_TRUE(IsDone(accepted, 10000));
        EXPECT_FALSE(accepted.get());
        ExpectClosed(m_server, NetSocket::ERR_TLS);
    }
    /// One connection on which the peer sends these bytes and ends it.
    void ExpectBytesFail(const std::string& bytes, bool reset = false)
    {
        Connect();
        std::future<bool> accepted = StartAccept();
        SendAll(m_client, bytes);
        if (reset)
            platform::AbortSocket(m_client.Detach());
        else
            m_client.ShutdownAndClose();
        ExpectHandshakeFails(std::move(accepted));
    }
    static std::string ClientHello(HalfTLSPeer::VERSION version = HalfTLSPeer::ANY)
    {
        HalfTLSPeer peer(HalfTLSPeer::CLIENT, version);
        peer.Handshake();
        return peer.Give();
    }
};

TEST_F(NetTCPSSLHostile, SSLAccept_Silence_GivenUpAfterExactly30Seconds)
{
    // Shortly before the tick wraps.
    MovedTick tick(0xFFFFC000U);
    std::future<bool> accepted = StartAccept();
    ASSERT_TRUE(WaitBegun());
    MovedTick::sAdvance(29999);
    EXPECT_FALSE(IsDone(accepted, 50));
    MovedTick::sAdvance(1);
    ExpectHandshakeFails(std::move(accepted));
    EXPECT_TRUE(ReceiveEnd(m_client));
}

TEST_F(NetTCPSSLHostile, SSLConnect_Silence_GivenUpAfterExactly30Seconds)
{
    MovedTick tick(5);
    std::future<bool> connected = std::async(std::launch::async, [&] { return m_client.SSLConnect(); });
    ASSERT_TRUE(WaitBegun());
    MovedTick::sAdvance(29999);
    EXPECT_FALSE(IsDone(connected, 50));
    MovedTick::sAdvance(1);
    ASSERT_TRUE(IsDone(connected, 10000));
    EXPECT_FALSE(connected.get());
    ExpectClosed(m_client, NetSocket::ERR_TLS);
}

TEST_F(NetTCPSSLHostile, SSLAccept_OneByteASecond_GivenUpAfter30Seconds)
{
    MovedTick tick(1000);
    std::future<bool> accepted = StartAccept();
    ASSERT_TRUE(WaitBegun());
    const std::string hello = ClientHello();
    for (std::size_t second = 0; second < 30; ++second) {
        EXPECT_FALSE(IsDone(accepted, 5)) << second;
        EXPECT_TRUE(SendAll(m_client, hello.substr(second, 1)));
        MovedTick::sAdvance(1000);
    }
    ExpectHandshakeFails(std::move(accepted));
}

TEST_F(NetTCPSSLHostile, Handshake_ByteByByteButInTime_Done)
{
    for (const auto version : {HalfTLSPeer::TLS_1_2, HalfTLSPeer::TLS_1_3}) {
        Connect();
        HalfTLSPeer peer(HalfTLSPeer::CLIENT, version);
        std::future<bool> accepted = StartAccept();
        EXPECT_TRUE(peer.HandshakeOver(m_client, 1));
        ASSERT_TRUE(accepted.get());
        EXPECT_TRUE(SendAll(m_client, peer.Encrypt("in pieces")));
        EXPECT_EQ(Receive(m_server, 9), "in pieces");
    }
}

TEST_F(NetTCPSSLHostile, SSLAccept_PlainText_50AtOnce)
{
    for (const char* text : {"USER anonymous\r\n", "GET / HTTP/1.1\r\nHost: localhost\r\n\r\n", "\r\n\r\n\r\n"}) {
        SCOPED_TRACE(text);
        Connect();
        std::future<bool> accepted = StartAccept();
        EXPECT_TRUE(SendAll(m_client, text)); // and the connection stays open
        ExpectHandshakeFails(std::move(accepted));
    }
}

TEST_F(NetTCPSSLHostile, SSLConnect_PlainTextServer_50AtOnce)
{
    std::future<bool> connected = std::async(std::launch::async, [&] { return m_client.SSLConnect(); });
    EXPECT_TRUE(SendAll(m_server, "220 Service ready for new user\r\n"));
    ASSERT_TRUE(IsDone(connected, 10000));
    EXPECT_FALSE(connected.get());
    ExpectClosed(m_client, NetSocket::ERR_TLS);
}

TEST_F(NetTCPSSLHostile, SSLAccept_EndAtEveryByteOfTheHello_50)
{
    const std::string hello = ClientHello();
    ASSERT_GT(hello.size(), 100U);
    for (std::size_t size = 0; size <= hello.size(); ++size) {
        SCOPED_TRACE(size);
        ExpectBytesFail(hello.substr(0, size));
        ExpectBytesFail(hello.substr(0, size), true);
    }
}

TEST_F(NetTCPSSLHostile, SSLAccept_EachByteOfTheHelloDamaged_NeverHangsOrStaysOpen)
{
    const std::string hello = ClientHello();
    for (std::size_t at = 0; at < hello.size(); ++at) {
        SCOPED_TRACE(at);
        std::string damaged = hello;
        damaged[at] = static_cast<char>(damaged[at] ^ 0x80);
        ExpectBytesFail(damaged);
    }
}

TEST_F(NetTCPSSLHostile, Handshake_ClientEndsAfterEachStep_50)
{
    for (const auto version : {HalfTLSPeer::TLS_1_2, HalfTLSPeer::TLS_1_3})
        for (int steps = 1; steps <= 2; ++steps) {
            Connect();
            std::future<bool> accepted = StartAccept();
            HalfTLSPeer peer(HalfTLSPeer::CLIENT, version);
            for (int step = 0; step < steps; ++step) {
                peer.Handshake();
                std::string bytes = peer.Give();
                if (step > 0)
                    bytes.pop_back(); // the last byte of its second flight stays behind
                EXPECT_TRUE(SendAll(m_client, bytes));
                EXPECT_TRUE(WaitFor([&] { // the server's answer
                    peer.ReceiveFrom(m_client);
                    return peer.Handshake() || step > 0 || !peer.GetPeerName().empty();
                }));
            }
            m_client.ShutdownAndClose();
            ExpectHandshakeFails(std::move(accepted));
        }
}

TEST_F(NetTCPSSLHostile, SSLConnect_ServerEndsAtEveryStepOfItsAnswer_50)
{
    for (const auto version : {HalfTLSPeer::TLS_1_2, HalfTLSPeer::TLS_1_3})
        for (std::size_t part = 0; part < 4; ++part) {
            Connect();
            std::future<bool> connected = std::async(std::launch::async, [&] { return m_client.SSLConnect(); });
            HalfTLSPeer peer(HalfTLSPeer::SERVER, version);
            std::string answer;
            EXPECT_TRUE(WaitFor([&] {
                peer.ReceiveFrom(m_server);
                peer.Handshake();
                answer = peer.Give();
                return !answer.empty();
            }));
            EXPECT_TRUE(SendAll(m_server, answer.substr(0, answer.size() * part / 4)));
            m_server.ShutdownAndClose();
            ASSERT_TRUE(IsDone(connected, 10000));
            EXPECT_FALSE(connected.get());
            ExpectClosed(m_client, NetSocket::ERR_TLS);
        }
}

TEST_F(NetTCPSSLHostile, SSLAccept_FloodOfNoise_50)
{
    std::future<bool> accepted = StartAccept();
    EXPECT_FALSE(SendAll(m_client, std::string(32 << 20, '\x16')));
    ExpectHandshakeFails(std::move(accepted));
}

TEST_F(NetTCPSSLHostile, SSLAccept_WarningsWithoutEnd_50)
{
    std::future<bool> accepted = StartAccept();
    const std::string warning("\x15\x03\x01\x00\x02\x01\x5a", 7); // user_canceled
    for (int count = 0; count < 1000 && m_client.IsConnected(); ++count)
        SendAll(m_client, warning);
    ExpectHandshakeFails(std::move(accepted));
}

TEST_F(NetTCPSSLHostile, Recv_RenegotiationAttempts_NeverGranted)
{
    HalfTLSPeer peer(HalfTLSPeer::CLIENT, HalfTLSPeer::TLS_1_2);
    SecureWith(peer);
    EXPECT_TRUE(SendAll(m_client, peer.Renegotiate()));
    // The server says no by a warning and goes on; this client then takes the connection for lost.
    m_server.SetBlockTime(20);
    char byte;
    unsigned long len = 1;
    EXPECT_TRUE(WaitFor([&] {
        len = 1;
        EXPECT_TRUE(m_server.Recv(&byte, len));
        peer.ReceiveFrom(m_client);
        return peer.Handshake() || peer.HasFailed();
    }));
    EXPECT_TRUE(peer.HasFailed());
    EXPECT_TRUE(m_server.IsSSLOn());
    EXPECT_TRUE(SendAll(m_server, "still here"));
    m_client.ShutdownAndClose();
    EXPECT_TRUE(ReceiveEnd(m_server));
    ExpectClosed(m_server, NetSocket::ERR_IO);
}

TEST_F(NetTCPSSLHostile, Recv_HandshakeRecordsAfterTheHandshake_48)
{
    HalfTLSPeer peer(HalfTLSPeer::CLIENT, HalfTLSPeer::TLS_1_3);
    SecureWith(peer);
    EXPECT_TRUE(SendAll(m_client, ClientHello()));
    EXPECT_TRUE(ReceiveEnd(m_server));
    ExpectClosed(m_server, NetSocket::ERR_IO);
}

TEST_F(NetTCPSSLHostile, Recv_NewKeysWithoutEnd_EndsOrGoesOnButNeverHangs)
{
    HalfTLSPeer peer(HalfTLSPeer::CLIENT, HalfTLSPeer::TLS_1_3);
    SecureWith(peer);
    std::string flood;
    for (int count = 0; count < 2000; ++count)
        flood += peer.DemandNewKeys();
    flood += peer.Encrypt("end");
    std::thread sender([&] { SendAll(m_client, flood); });
    EXPECT_EQ(Receive(m_server, 3), "end");
    sender.join();
}

} // namespace
} // namespace kqlib::test
