#include "net/sockets/NetUDP.h"

#include "platform/Clock.h"
#include "platform/Sockets.h"
#include "tests/peers/KnownName.h"
#include "tests/peers/Missing.h"
#include "tests/peers/Sockets.h"
#include "tests/peers/WaitFor.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace kqlib;
using namespace kqlib::test;

namespace {

const NetIP LOOPBACK("127.0.0.1");

class TestUDP : public NetUDP
{
public:
    TestUDP()
        : NetUDP(NetIP::LOOKUP_ANY)
    {
    }
    using NetUDP::xGetHandle;
};

/// A client and the plain datagram socket that it talks to.
class NetUDPTest : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(NetSocket::sStartSockets());
        peer = MakeDatagramSocket();
        ASSERT_TRUE(peer.IsOpen());
    }
    void TearDown() override
    {
        peer.Close();
        client.Close();
        NetSocket::sEndSockets();
    }

    void Open()
    {
        ASSERT_TRUE(client.OpenClient(LOOPBACK, LocalPort(peer)));
        ASSERT_EQ(platform::ConnectSocket(peer.Get(), Loopback(client.GetLocalPort())), platform::IoResult::DONE);
    }
    void PeerSends(std::size_t size)
    {
        const std::vector<unsigned char> bytes(size + 1, 'p');
        std::size_t sent = size;
        ASSERT_EQ(platform::SendSocket(peer.Get(), bytes.data(), sent), platform::IoResult::DONE);
        ASSERT_EQ(platform::WaitSocket(client.xGetHandle(), true, 5000), platform::WaitResult::READY);
    }
    bool ClientSends(const std::string& bytes, unsigned long& len)
    {
        len = bytes.size();
        return client.SendClient(reinterpret_cast<const unsigned char*>(bytes.data()), len);
    }
    void ExpectClosed(int code)
    {
        EXPECT_FALSE(client.IsOpen());
        EXPECT_EQ(client.GetState(), NetUDP::US_CLOSED);
        EXPECT_EQ(client.GetLastError(), code);
        EXPECT_EQ(client.xGetHandle(), 0xFFFFFFFFU);
        EXPECT_EQ(client.GetRemotePort(), 0);
    }

    OwnedSocket peer;
    TestUDP client;
    unsigned char buffer[70000];
};

} // namespace

TEST_F(NetUDPTest, OpenClient_Address_OpenWithBothEndsKnown)
{
    EXPECT_FALSE(client.IsOpen());
    Open();
    EXPECT_TRUE(client.IsOpen());
    EXPECT_EQ(client.GetState(), NetUDP::US_OPEN);
    EXPECT_EQ(client.GetRemotePort(), LocalPort(peer));
    EXPECT_EQ(client.GetRemoteIP(), LOOPBACK);
    EXPECT_NE(client.GetLocalPort(), 0);
    EXPECT_EQ(client.GetLocalIP(), LOOPBACK);
}

TEST_F(NetUDPTest, OpenClient_EveryForm_Open)
{
    const unsigned short port = LocalPort(peer);
    const std::uint16_t local = UnservedPort(false);
    EXPECT_TRUE(client.OpenClient(LOOPBACK, port, LOOPBACK));
    EXPECT_TRUE(client.OpenClient(LOOPBACK, port, LOOPBACK, local));
    EXPECT_EQ(client.GetLocalPort(), local);
    EXPECT_TRUE(client.OpenClient(String("127.0.0.1"), port));
    EXPECT_TRUE(client.OpenClient(String("127.0.0.1"), port, String("127.0.0.1")));
    EXPECT_TRUE(client.OpenClient(String("127.0.0.1"), port, String("127.0.0.1"), local));
    EXPECT_EQ(client.GetLocalPort(), local);
    EXPECT_EQ(client.GetLastError(), 0);
}

TEST_F(NetUDPTest, OpenClient_OtherLocalAddress_IsUsed)
{
    const NetIP other("127.0.0.3");
    EXPECT_TRUE(client.OpenClient(LOOPBACK, LocalPort(peer), other));
    EXPECT_EQ(client.GetLocalIP(), other);
    EXPECT_TRUE(client.OpenClient(String("127.0.0.1"), LocalPort(peer), String("127.0.0.3")));
    EXPECT_EQ(client.GetLocalIP(), other);
}

TEST_F(NetUDPTest, OpenClient_ForeignLocalAddress_Error44)
{
    EXPECT_FALSE(client.OpenClient(LOOPBACK, 53, NetIP("203.0.113.7")));
    ExpectClosed(44);
}

TEST_F(NetUDPTest, OpenClient_LocalPortInUse_Error44)
{
    EXPECT_FALSE(client.OpenClient(LOOPBACK, 53, LOOPBACK, LocalPort(peer)));
    ExpectClosed(44);
}

// Nobody may send to everybody unasked.
TEST_F(NetUDPTest, OpenClient_AddressOfEverybody_Error42)
{
    EXPECT_FALSE(client.OpenClient(NetIP("255.255.255.255"), 53));
    ExpectClosed(42);
}

TEST_F(NetUDPTest, OpenClient_UnknownNames_Error41)
{
    EXPECT_FALSE(client.OpenClient(String(), 53));
    ExpectClosed(41);
    Open();
    EXPECT_FALSE(client.OpenClient(String("127.0.0.1"), 53, String("bad..name")));
    ExpectClosed(41);
}

TEST_F(NetUDPTest, OpenClient_NameInTheCache_Open)
{
    NetDNSCache cache;
    MakeNameKnown(cache, "peer.test", "127.0.0.1");
    NetUDP socket(NetIP::LOOKUP_IP4, cache);
    EXPECT_TRUE(socket.OpenClient(String("peer.test"), LocalPort(peer)));
    EXPECT_EQ(socket.GetRemoteIP(), LOOPBACK);
}

TEST_F(NetUDPTest, OpenClient_IP6_OpenWithoutAddresses)
{
    if (!client.OpenClient(NetIP("::1"), 53))
        KQ_MISSING("this machine has no ::1");
    EXPECT_TRUE(client.IsOpen());
    EXPECT_EQ(client.GetRemotePort(), 0);
    EXPECT_EQ(client.GetLocalPort(), 0);
}

TEST_F(NetUDPTest, SendAndRecv_NotOpen_Error47)
{
    unsigned long len = 5;
    EXPECT_FALSE(client.SendClient(buffer, len));
    EXPECT_EQ(len, 0U);
    EXPECT_EQ(client.GetLastError(), 47);
    len = 5;
    EXPECT_FALSE(client.RecvClient(buffer, len));
    EXPECT_EQ(len, 0U);
    EXPECT_EQ(client.GetLastError(), 47);
}

TEST_F(NetUDPTest, SendAndRecv_Datagrams_OnePerCallAndCounted)
{
    Open();
    unsigned long len = 0;
    ASSERT_TRUE(ClientSends("question", len));
    EXPECT_EQ(len, 8U);
    EXPECT_EQ(ReceiveBytes(peer, 8), "question");
    PeerSends(3);
    PeerSends(4);
    client.SetBlockTime(5000);
    len = sizeof(buffer);
    EXPECT_TRUE(client.RecvClient(buffer, len));
    EXPECT_EQ(len, 3U);
    len = sizeof(buffer);
    EXPECT_TRUE(client.RecvClient(buffer, len));
    EXPECT_EQ(len, 4U);
    EXPECT_EQ(client.GetInDataBytes(), 7U);
    EXPECT_EQ(client.GetOutDataBytes(), 8U);
}

TEST_F(NetUDPTest, RecvClient_NothingInTime_TrueWithLenZero)
{
    Open();
    unsigned long len = sizeof(buffer);
    EXPECT_TRUE(client.RecvClient(buffer, len));
    EXPECT_EQ(len, 0U);
    client.SetBlockTime(50);
    len = sizeof(buffer);
    const std::uint32_t start = platform::TickMs();
    EXPECT_TRUE(client.RecvClient(buffer, len));
    EXPECT_EQ(len, 0U);
    EXPECT_GE(platform::TickMs() - start + 20, 50U);
    EXPECT_TRUE(client.IsOpen());
}

TEST_F(NetUDPTest, RecvClient_AfterADatagramToAClosedPort_Error49AndClosed)
{
    ASSERT_TRUE(client.OpenClient(LOOPBACK, UnservedPort(false)));
    unsigned long len = 0;
    ASSERT_TRUE(ClientSends("anybody", len));
    client.SetBlockTime(5000);
    len = sizeof(buffer);
    EXPECT_FALSE(client.RecvClient(buffer, len));
    EXPECT_EQ(len, 0U);
    ExpectClosed(49);
}

TEST_F(NetUDPTest, SendClient_AfterADatagramToAClosedPort_Error49AndClosed)
{
    ASSERT_TRUE(client.OpenClient(LOOPBACK, UnservedPort(false)));
    unsigned long len = 0;
    ASSERT_TRUE(ClientSends("anybody", len));
    EXPECT_TRUE(WaitFor([&] { return !ClientSends("again", len); }));
    EXPECT_EQ(len, 0U);
    ExpectClosed(49);
}

TEST_F(NetUDPTest, RecvClient_DatagramAsLongAsTheRoom_Whole)
{
    Open();
    PeerSends(512);
    unsigned long len = 512;
    EXPECT_TRUE(client.RecvClient(buffer, len));
    EXPECT_EQ(len, 512U);
}

TEST_F(NetUDPTest, RecvClient_DatagramLongerThanTheRoom_Error48AndClosed)
{
    Open();
    PeerSends(513);
    unsigned long len = 512;
    EXPECT_FALSE(client.RecvClient(buffer, len));
    EXPECT_EQ(len, 0U);
    ExpectClosed(48);
}

TEST_F(NetUDPTest, RecvClient_EmptyDatagram_Error48AndClosedKeptOnPurpose)
{
    Open();
    PeerSends(0);
    unsigned long len = sizeof(buffer);
    EXPECT_FALSE(client.RecvClient(buffer, len));
    ExpectClosed(48);
}

TEST_F(NetUDPTest, SendClient_LargestDatagram_Whole)
{
    Open();
    unsigned long len = 0;
    ASSERT_TRUE(ClientSends(std::string(65507, 'L'), len));
    EXPECT_EQ(len, 65507U);
    EXPECT_EQ(ReceiveBytes(peer, 65507).size(), 65507U);
}

TEST_F(NetUDPTest, SendClient_DatagramBeyondTheLargest_Error48AndClosed)
{
    Open();
    unsigned long len = 0;
    EXPECT_FALSE(ClientSends(std::string(65508, 'L'), len));
    EXPECT_EQ(len, 0U);
    ExpectClosed(48);
}

TEST_F(NetUDPTest, SendAndRecv_WaitingFails_Error48AndLenUnchangedKeptOnPurpose)
{
    for (const bool sending : {true, false}) {
        Open();
        client.SetBlockTime(5);
        platform::CloseSocket(client.xGetHandle());
        unsigned long len = 1234;
        EXPECT_FALSE(sending ? client.SendClient(buffer, len) : client.RecvClient(buffer, len));
        EXPECT_EQ(len, 1234U);
        ExpectClosed(48);
        peer = MakeDatagramSocket();
    }
}

TEST_F(NetUDPTest, OpenClient_LocalAddressOfTheOtherFamily_ReadAsTheRemotesFamily)
{
    // Its first four bytes count: those of "::" are any address, those of the other are 127.0.0.1.
    for (const char* const local : {"::", "7f00:1::"}) {
        EXPECT_TRUE(client.OpenClient(LOOPBACK, LocalPort(peer), NetIP(local))) << local;
        EXPECT_EQ(client.GetLocalIP(), LOOPBACK);
    }
}

TEST_F(NetUDPTest, Detach_Open_CallerOwnsTheHandle)
{
    Open();
    const OwnedSocket handle(client.Detach());
    EXPECT_TRUE(handle.IsOpen());
    EXPECT_FALSE(client.IsOpen());
    EXPECT_EQ(client.GetRemotePort(), 0);
    EXPECT_TRUE(SendAll(handle, "still"));
    EXPECT_EQ(ReceiveBytes(peer, 5), "still");
}

TEST_F(NetUDPTest, Close_Twice_Closed)
{
    Open();
    client.Close();
    client.Close();
    EXPECT_FALSE(client.IsOpen());
    EXPECT_EQ(client.GetLastError(), 0);
}
