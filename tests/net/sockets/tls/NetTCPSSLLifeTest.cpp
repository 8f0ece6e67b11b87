// Tests of what becomes of a NetTCPSSL: upgrading, accepting, closing, farewells.
#include "platform/Sockets.h"
#include "tests/net/sockets/tls/TLSFixture.h"

#include <vector>

namespace kqlib::test {
namespace {

class NetTCPSSLLife : public TLSFixture
{
};

TEST_F(NetTCPSSLLife, Upgrade_Connected_TakesHandleAndAddresses)
{
    TestTCPSSL other;
    const USHORT port = m_server.GetRemotePort();
    other.Upgrade(m_server);
    EXPECT_FALSE(m_server.IsActive());
    EXPECT_EQ(m_server.GetRemotePort(), 0);
    EXPECT_TRUE(other.IsConnected());
    EXPECT_FALSE(other.IsSSLOn());
    EXPECT_EQ(other.GetRemotePort(), port);
    ExpectTalk(m_client, other);
}

TEST_F(NetTCPSSLLife, Upgrade_BrokenOffMeanwhile_AddressesAreKnown)
{
    NetTCP plain(NetIP::LOOKUP_ANY);
    ASSERT_TRUE(plain.Connect(LOOPBACK(), m_listener.GetLocalPort()));
    const std::unique_ptr<NetTCP> accepted(m_listener.Accept());
    ASSERT_NE(accepted, nullptr);
    const USHORT port = plain.GetLocalPort();
    platform::AbortSocket(plain.Detach());
    TestTCPSSL other;
    other.Upgrade(*accepted);
    EXPECT_EQ(other.GetRemoteIP(), LOOPBACK());
    EXPECT_EQ(other.GetRemotePort(), port);
    EXPECT_EQ(other.GetLocalIP(), LOOPBACK());
    EXPECT_EQ(other.GetLocalPort(), m_listener.GetLocalPort());
    unsigned char byte = 0;
    EXPECT_TRUE(WaitFor([&] {
        unsigned long len = 1;
        return !other.Recv(&byte, len);
    }));
    EXPECT_FALSE(other.IsConnected());
}

TEST_F(NetTCPSSLLife, Upgrade_Listening_ListensHere)
{
    const USHORT port = m_listener.GetLocalPort();
    TestTCPSSL other;
    other.Upgrade(m_listener);
    EXPECT_TRUE(other.IsListening());
    EXPECT_EQ(other.GetLocalPort(), port);
    EXPECT_FALSE(m_listener.IsActive());
}

TEST_F(NetTCPSSLLife, Upgrade_FromClosed_BothClosed)
{
    NetTCP plain(NetIP::LOOKUP_ANY);
    m_server.Upgrade(plain);
    EXPECT_FALSE(m_server.IsActive());
    EXPECT_FALSE(plain.IsActive());
    EXPECT_TRUE(ReceiveEnd(m_client)) << "what was open before is closed";
}

TEST_F(NetTCPSSLLife, Upgrade_OverTLS_TheOldConnectionEnds)
{
    Secure();
    NetTCP plain(NetIP::LOOKUP_ANY);
    ASSERT_TRUE(plain.Connect(LOOPBACK(), m_listener.GetLocalPort()));
    const std::unique_ptr<NetTCP> accepted(m_listener.Accept());
    ASSERT_NE(accepted, nullptr);
    m_server.Upgrade(*accepted);
    EXPECT_TRUE(m_server.IsConnected());
    EXPECT_FALSE(m_server.IsSSLOn());
    EXPECT_TRUE(ReceiveEnd(m_client));
    ExpectTalk(plain, m_server);
}

TEST_F(NetTCPSSLLife, Upgrade_FromItself_Closed)
{
    m_server.Upgrade(m_server);
    EXPECT_FALSE(m_server.IsActive());
}

TEST_F(NetTCPSSLLife, Accept_OnAListeningOne_GivesAPlainSocket_KeptOnPurpose)
{
    TestTCPSSL listener;
    ASSERT_TRUE(listener.ListenSpecific(0, LOOPBACK()));
    listener.SetBlockTime(5000);
    ASSERT_TRUE(m_client.Connect(LOOPBACK(), listener.GetLocalPort()));
    const std::unique_ptr<NetTCP> accepted(listener.Accept());
    ASSERT_NE(accepted, nullptr);
    EXPECT_EQ(dynamic_cast<NetTCPSSL*>(accepted.get()), nullptr);
    m_server.Upgrade(*accepted);
    Secure();
}

TEST_F(NetTCPSSLLife, SelfAccept_ThenTLS_Done)
{
    m_server.Close();
    ASSERT_TRUE(m_server.ListenSpecific(0, LOOPBACK()));
    m_server.SetBlockTime(5000);
    ASSERT_TRUE(m_client.Connect(LOOPBACK(), m_server.GetLocalPort()));
    ASSERT_TRUE(m_server.SelfAccept());
    EXPECT_FALSE(m_server.IsSSLOn());
    Secure();
    ExpectTalk(m_client, m_server);
}

TEST_F(NetTCPSSLLife, Close_WithoutFarewell_PeerEndsWith48)
{
    HalfTLSPeer peer(HalfTLSPeer::CLIENT);
    SecureWith(peer);
    m_server.Close();
    ExpectClosed(m_server, NetSocket::ERR_NONE);
    EXPECT_TRUE(WaitFor([&] {
        peer.ReceiveFrom(m_client);
        return !m_client.IsConnected();
    }));
    EXPECT_FALSE(peer.HasFarewell());
}

TEST_F(NetTCPSSLLife, SSLEndSending_PeerLearnsAndMayStillSpeak)
{
    EXPECT_FALSE(m_client.SSLEndSending()) << "TLS is off";
    HalfTLSPeer peer(HalfTLSPeer::SERVER);
    SecureClientWith(peer);
    EXPECT_TRUE(SendAll(m_client, "all of it"));
    EXPECT_TRUE(m_client.SSLEndSending());
    EXPECT_TRUE(WaitFor([&] {
        peer.ReceiveFrom(m_server);
        return peer.HasFarewell();
    }));
    EXPECT_EQ(peer.ReceiveFrom(m_server), "all of it");
    EXPECT_TRUE(m_client.IsSSLOn());
    EXPECT_TRUE(SendAll(m_server, peer.Encrypt("late")));
    EXPECT_EQ(Receive(m_client, 4), "late");
    m_client.Close();
    EXPECT_FALSE(m_client.IsConnected());
}

// Closing at once once lost the end of uploads to servers that send session tickets after the handshake.
TEST_F(NetTCPSSLLife, SSLEndSending_PeerWithTicketsReadsLate_NothingLost)
{
    const std::string bytes(1000000, 'x'); // fits into the system's buffers
    HalfTLSPeer peer(HalfTLSPeer::SERVER, HalfTLSPeer::TLS_1_3);
    SecureClientWith(peer);
    ASSERT_TRUE(SendAll(m_client, bytes));
    ASSERT_TRUE(m_client.SSLEndSending());
    ASSERT_TRUE(SendAll(m_server, peer.Encrypt("unread until now")));
    EXPECT_TRUE(WaitFor([&] {
        peer.ReceiveFrom(m_server);
        return peer.HasFarewell();
    }));
    EXPECT_EQ(peer.ReceiveFrom(m_server).size(), bytes.size());
    EXPECT_EQ(Receive(m_client, 16), "unread until now");
}

TEST_F(NetTCPSSLLife, SSLEndSending_SystemsBuffersFull_FarewellGoesOutBehindTheirBytes)
{
    Secure();
    // Bytes beside TLS fill the system's buffers, so that no record has begun.
    m_client.SetBlockTime(20);
    const std::vector<unsigned char> bytes(65536);
    unsigned long filled = 0;
    for (const std::size_t size : {bytes.size(), std::size_t{1}}) {
        for (unsigned long sent = size; sent > 0; filled += sent) {
            sent = size;
            ASSERT_TRUE(m_client.NetTCP::Send(bytes.data(), sent));
        }
    }
    std::future<bool> ended = std::async(std::launch::async, [this] { return m_client.SSLEndSending(); });
    unsigned long read = 0;
    std::vector<unsigned char> buffer(1 << 20);
    EXPECT_TRUE(WaitFor([&] {
        unsigned long len = 0;
        do {
            len = buffer.size();
            EXPECT_TRUE(m_server.NetTCP::Recv(buffer.data(), len));
            read += len;
        } while (len > 0);
        return read > filled;
    }));
    EXPECT_TRUE(ended.get());
}

TEST_F(NetTCPSSLLife, ShutdownAndClose_SaysFarewellAndDoesNotWaitForThePeers_LastError48KeptOnPurpose)
{
    HalfTLSPeer peer(HalfTLSPeer::CLIENT);
    SecureWith(peer);
    EXPECT_LT(MillisecondsOf([&] { m_server.ShutdownAndClose(); }), 2000);
    ExpectClosed(m_server, NetSocket::ERR_IO);
    EXPECT_TRUE(WaitFor([&] {
        peer.ReceiveFrom(m_client);
        return !m_client.IsConnected();
    }));
    EXPECT_TRUE(peer.HasFarewell());
}

TEST_F(NetTCPSSLLife, ShutdownAndClose_PeersFarewellNotYetRead_48AsWellKeptOnPurpose)
{
    HalfTLSPeer peer(HalfTLSPeer::CLIENT);
    SecureWith(peer);
    EXPECT_TRUE(SendAll(m_client, peer.SayFarewell()));
    m_server.ShutdownAndClose();
    ExpectClosed(m_server, NetSocket::ERR_IO);
}

TEST_F(NetTCPSSLLife, Recv_PeersFarewell_48AndAnswered)
{
    HalfTLSPeer peer(HalfTLSPeer::CLIENT);
    SecureWith(peer);
    std::string bytes = peer.Encrypt("last");
    bytes += peer.SayFarewell();
    EXPECT_TRUE(SendAll(m_client, bytes));
    EXPECT_EQ(Receive(m_server, std::string::npos), "last");
    ExpectClosed(m_server, NetSocket::ERR_IO);
    EXPECT_TRUE(WaitFor([&] {
        peer.ReceiveFrom(m_client);
        return !m_client.IsConnected();
    }));
    EXPECT_TRUE(peer.HasFarewell());
}

TEST_F(NetTCPSSLLife, ShutdownAndClose_Plain_AsNetTCP)
{
    m_server.ShutdownAndClose();
    ExpectClosed(m_server, NetSocket::ERR_NONE);
    EXPECT_TRUE(ReceiveEnd(m_client));
}

TEST_F(NetTCPSSLLife, ShutdownAndClose_PeerGone_48)
{
    Secure();
    m_client.Close();
    m_server.ShutdownAndClose();
    ExpectClosed(m_server, NetSocket::ERR_IO);
}

TEST_F(NetTCPSSLLife, Closing_Twice_Nothing)
{
    Secure();
    m_server.ShutdownAndClose();
    m_server.ShutdownAndClose();
    m_server.Close();
    ExpectClosed(m_server, NetSocket::ERR_IO);
    Connect();
    EXPECT_EQ(m_server.GetLastError(), NetSocket::ERR_NONE);
    Secure();
    ExpectTalk(m_client, m_server);
}

TEST_F(NetTCPSSLLife, FreeSSLData_ConnectionStaysOpenAndIsPlain)
{
    Secure();
    ExpectTalk(m_client, m_server); // nothing of TLS is under way then
    m_server.xFreeSSLData();
    EXPECT_TRUE(m_server.IsConnected());
    EXPECT_FALSE(m_server.IsSSLOn());
    m_client.xFreeSSLData();
    ExpectTalk(m_client, m_server);
}

TEST_F(NetTCPSSLLife, Detach_OverTLS_HandleStaysOpenAndTLSEnds)
{
    Secure();
    ExpectTalk(m_client, m_server); // nothing of TLS is under way then
    NetTCPSSL other(NetIP::LOOKUP_ANY);
    other.Upgrade(m_server); // detaches
    EXPECT_FALSE(m_server.IsSSLOn());
    EXPECT_FALSE(m_server.IsActive());
    EXPECT_FALSE(other.IsSSLOn());
    m_client.xFreeSSLData();
    ExpectTalk(m_client, other);
}

TEST_F(NetTCPSSLLife, Connect_OverTLS_NewPlainConnection)
{
    Secure();
    ASSERT_TRUE(m_client.Connect(LOOPBACK(), m_listener.GetLocalPort()));
    EXPECT_TRUE(m_client.IsConnected());
    EXPECT_FALSE(m_client.IsSSLOn());
    EXPECT_TRUE(ReceiveEnd(m_server));
}

TEST_F(NetTCPSSLLife, Destructor_OverTLS_Closes)
{
    {
        NetTCPSSL shortLived(NetIP::LOOKUP_ANY);
        shortLived.Upgrade(m_server);
        std::future<bool> accepted =
            std::async(std::launch::async, [&] { return shortLived.SSLAccept(m_files.GetCert(), m_files.GetKey()); });
        EXPECT_TRUE(m_client.SSLConnect());
        ASSERT_TRUE(accepted.get());
    }
    EXPECT_TRUE(ReceiveEnd(m_client));
    EXPECT_EQ(m_client.GetLastError(), NetSocket::ERR_IO);
}

} // namespace
} // namespace kqlib::test
