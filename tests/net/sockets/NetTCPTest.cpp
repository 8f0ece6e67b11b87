#include "net/sockets/NetTCP.h"

#include "platform/Sockets.h"
#include "tests/net/sockets/TestTCP.h"
#include "tests/peers/KnownName.h"
#include "tests/peers/Missing.h"
#include "tests/peers/ScriptedTCPPeer.h"
#include "tests/peers/Sockets.h"

#include <algorithm>
#include <future>
#include <vector>

using namespace kqlib;
using namespace kqlib::test;

namespace {

using NetTCPTest = NetSocketFixture;

const NetIP LOOPBACK("127.0.0.1");
const NetIP DOCUMENTATION("203.0.113.7"); // no machine has it

/// Sends until the system takes no more. The bytes sent.
std::size_t SendUntilFull(NetTCP& socket)
{
    const std::vector<unsigned char> block(65536, 'x');
    std::size_t total = 0;
    unsigned long len;
    do {
        len = block.size();
        EXPECT_TRUE(socket.Send(block.data(), len));
        total += len;
    } while (len > 0);
    return total;
}

void ExpectClosed(const NetTCP& socket, int code)
{
    EXPECT_EQ(socket.GetState(), NetTCP::TS_CLOSED);
    EXPECT_FALSE(socket.IsActive());
    EXPECT_FALSE(socket.IsConnected());
    EXPECT_FALSE(socket.IsListening());
    EXPECT_EQ(socket.GetLastError(), code);
    EXPECT_EQ(socket.GetRemotePort(), 0);
    EXPECT_EQ(socket.GetLocalPort(), 0);
}

} // namespace

// --- connecting

TEST_F(NetTCPTest, Connect_Listener_Connected)
{
    Connect();
    EXPECT_EQ(client.GetState(), NetTCP::TS_CONNECTED);
    EXPECT_TRUE(client.IsActive() && client.IsConnected() && !client.IsListening());
    EXPECT_EQ(server->GetState(), NetTCP::TS_CONNECTED);
    EXPECT_EQ(client.GetLastError(), 0);
}

TEST_F(NetTCPTest, Connect_UnservedPort_Error42)
{
    EXPECT_FALSE(client.Connect(LOOPBACK, UnservedPort()));
    ExpectClosed(client, 42);
}

TEST_F(NetTCPTest, Connect_UnservedPortWithABlockTime_Error42)
{
    client.SetBlockTime(1000); // microseconds here, kept on purpose
    EXPECT_FALSE(client.Connect(LOOPBACK, UnservedPort()));
    ExpectClosed(client, 42);
}

TEST_F(NetTCPTest, Connect_PortZero_Error42)
{
    EXPECT_FALSE(client.Connect(LOOPBACK, 0));
    ExpectClosed(client, 42);
}

TEST_F(NetTCPTest, Connect_ForeignLocalAddress_Error44)
{
    ASSERT_TRUE(listener.ListenSpecific(0, LOOPBACK));
    EXPECT_FALSE(client.Connect(LOOPBACK, listener.GetLocalPort(), DOCUMENTATION));
    ExpectClosed(client, 44);
}

TEST_F(NetTCPTest, Connect_LocalPortGiven_IsUsed)
{
    ASSERT_TRUE(listener.ListenSpecific(0, LOOPBACK));
    const std::uint16_t port = UnservedPort();
    ASSERT_TRUE(client.Connect(LOOPBACK, listener.GetLocalPort(), LOOPBACK, port));
    EXPECT_EQ(client.GetLocalPort(), port);
    server = Accept(listener);
    ASSERT_NE(server, nullptr);
    EXPECT_EQ(server->GetRemotePort(), port);
}

TEST_F(NetTCPTest, Connect_LocalAddressOfTheOtherFamily_Error44)
{
    ASSERT_TRUE(listener.ListenSpecific(0, LOOPBACK));
    EXPECT_FALSE(client.Connect(LOOPBACK, listener.GetLocalPort(), NetIP("2001:db8::1")));
    ExpectClosed(client, 44);
}

TEST_F(NetTCPTest, Connect_LocalAddressOfTheOtherFamily_ReadAsTheRemotesFamily)
{
    // Its first four bytes count: those of "::" are any address, those of the other are 127.0.0.3.
    ASSERT_TRUE(listener.ListenSpecific(0, LOOPBACK));
    EXPECT_TRUE(client.Connect(LOOPBACK, listener.GetLocalPort(), NetIP("::")));
    EXPECT_EQ(client.GetLocalIP(), LOOPBACK);
    EXPECT_TRUE(client.Connect(LOOPBACK, listener.GetLocalPort(), NetIP("7f00:3::")));
    EXPECT_EQ(client.GetLocalIP(), NetIP("127.0.0.3"));
}

TEST_F(NetTCPTest, Connect_AlreadyConnected_OldConnectionEnds)
{
    Connect();
    const std::unique_ptr<NetTCP> before = std::move(server);
    ASSERT_TRUE(client.Connect(LOOPBACK, listener.GetLocalPort()));
    EXPECT_TRUE(ReceiveEnd(*before));
    server = Accept(listener);
    ASSERT_NE(server, nullptr);
    EXPECT_TRUE(SendAll(client, "second"));
    EXPECT_EQ(Receive(*server, 6), "second");
}

TEST_F(NetTCPTest, Connect_AfterAFailure_ErrorStaysUntilTheNextFailure)
{
    EXPECT_FALSE(client.Connect(LOOPBACK, UnservedPort()));
    Connect();
    EXPECT_EQ(client.GetLastError(), 42);
}

TEST_F(NetTCPTest, Connect_ToItself_BytesComeBack)
{
    const std::uint16_t port = UnservedPort();
    if (!client.Connect(LOOPBACK, port, LOOPBACK, port)) {
        EXPECT_EQ(client.GetLastError(), 42); // a system may refuse it
        return;
    }
    EXPECT_EQ(client.GetRemotePort(), client.GetLocalPort());
    ASSERT_TRUE(SendAll(client, "mirror"));
    EXPECT_EQ(Receive(client, 6), "mirror");
    EXPECT_EQ(client.GetInDataBytes(), client.GetOutDataBytes());
}

TEST_F(NetTCPTest, Connect_AddressText_Connected)
{
    ASSERT_TRUE(listener.ListenSpecific(0, String("127.0.0.1")));
    const unsigned short port = listener.GetLocalPort();
    EXPECT_TRUE(client.Connect(String("127.0.0.1"), port));
    EXPECT_TRUE(client.Connect(String("127.0.0.1"), port, String()));
    EXPECT_TRUE(client.Connect(String("127.0.0.1"), port, String("127.0.0.2")));
    EXPECT_EQ(client.GetLocalIP(), NetIP("127.0.0.2"));
    const std::uint16_t local = UnservedPort();
    EXPECT_TRUE(client.Connect(String("127.0.0.1"), port, String("127.0.0.1"), local));
    EXPECT_EQ(client.GetLocalPort(), local);
}

TEST_F(NetTCPTest, Connect_UnknownName_Error41AndClosed)
{
    Connect();
    EXPECT_FALSE(client.Connect(String(), listener.GetLocalPort()));
    ExpectClosed(client, 41);
    EXPECT_TRUE(ReceiveEnd(*server));
}

TEST_F(NetTCPTest, Connect_UnknownLocalName_Error41AndClosed)
{
    ASSERT_TRUE(listener.ListenSpecific(0, LOOPBACK));
    EXPECT_FALSE(client.Connect(String("127.0.0.1"), listener.GetLocalPort(), String("bad..name")));
    ExpectClosed(client, 41);
}

TEST_F(NetTCPTest, Connect_NameInTheCache_Connected)
{
    NetDNSCache cache;
    MakeNameKnown(cache, "peer.test", "127.0.0.1");
    ASSERT_TRUE(listener.ListenSpecific(0, LOOPBACK));
    NetTCP socket(NetIP::LOOKUP_IP4, cache);
    EXPECT_TRUE(socket.Connect(String("peer.test"), listener.GetLocalPort()));
    EXPECT_EQ(socket.GetRemoteIP(), LOOPBACK);
}

// --- listening

TEST_F(NetTCPTest, ListenAll_AnyIP4AddressServed)
{
    ASSERT_TRUE(listener.ListenAll(0));
    EXPECT_EQ(listener.GetState(), NetTCP::TS_LISTENING);
    EXPECT_TRUE(listener.IsListening() && listener.IsActive() && !listener.IsConnected());
    EXPECT_EQ(listener.GetLocalIP(), NetIP::ANY_IP4);
    EXPECT_TRUE(client.Connect(NetIP("127.0.0.5"), listener.GetLocalPort()));
}

TEST_F(NetTCPTest, ListenAll_NeverListensOnIP6)
{
    TestTCP probe;
    if (!probe.ListenSpecific(0, NetIP("::1")))
        KQ_MISSING("this machine has no ::1");
    const std::uint16_t port = UnservedPort();
    ASSERT_TRUE(listener.ListenAll(port));
    EXPECT_FALSE(client.Connect(NetIP("::1"), port));
    EXPECT_EQ(client.GetLastError(), 42);
}

TEST_F(NetTCPTest, ListenSpecific_PortInUse_Error44)
{
    ASSERT_TRUE(listener.ListenSpecific(0, LOOPBACK));
    TestTCP second;
    EXPECT_FALSE(second.ListenSpecific(listener.GetLocalPort(), LOOPBACK));
    ExpectClosed(second, 44);
    EXPECT_TRUE(listener.IsListening());
}

TEST_F(NetTCPTest, ListenSpecific_ForeignAddress_Error44)
{
    EXPECT_FALSE(listener.ListenSpecific(0, DOCUMENTATION));
    ExpectClosed(listener, 44);
}

TEST_F(NetTCPTest, ListenSpecific_UnknownName_Error41AndClosed)
{
    ASSERT_TRUE(listener.ListenAll(0));
    EXPECT_FALSE(listener.ListenSpecific(0, String("bad..name")));
    ExpectClosed(listener, 41);
}

TEST_F(NetTCPTest, ListenSpecific_SamePortWhileAnAcceptedConnectionLives_ListensAgain)
{
    Connect();
    const unsigned short port = listener.GetLocalPort();
    listener.Close();
    EXPECT_TRUE(listener.ListenSpecific(port, LOOPBACK));
    EXPECT_TRUE(SendAll(client, "on"));
    EXPECT_EQ(Receive(*server, 2), "on");
}

TEST_F(NetTCPTest, ListenSpecific_AgainOnTheSameObject_SamePort)
{
    ASSERT_TRUE(listener.ListenSpecific(0, LOOPBACK));
    const unsigned short port = listener.GetLocalPort();
    EXPECT_TRUE(listener.ListenSpecific(port, LOOPBACK));
    EXPECT_EQ(listener.GetLocalPort(), port);
}

// --- accepting

TEST_F(NetTCPTest, Accept_Closed_Error45)
{
    EXPECT_EQ(listener.Accept(), nullptr);
    ExpectClosed(listener, 45);
    EXPECT_FALSE(listener.SelfAccept());
    ExpectClosed(listener, 45);
}

TEST_F(NetTCPTest, Accept_Connected_Error45AndStillConnected)
{
    Connect();
    EXPECT_EQ(client.Accept(), nullptr);
    EXPECT_EQ(client.GetLastError(), 45);
    EXPECT_FALSE(client.SelfAccept());
    EXPECT_TRUE(client.IsConnected());
}

TEST_F(NetTCPTest, Accept_NothingWaitingAndBlockTimeZero_Error46AndStillListening)
{
    ASSERT_TRUE(listener.ListenSpecific(0, LOOPBACK));
    EXPECT_EQ(listener.Accept(), nullptr);
    EXPECT_EQ(listener.GetLastError(), 46);
    EXPECT_TRUE(listener.IsListening());
    EXPECT_FALSE(listener.SelfAccept());
    EXPECT_EQ(listener.GetLastError(), 46);
    EXPECT_TRUE(listener.IsListening());
}

TEST_F(NetTCPTest, Accept_NothingWaiting_WaitsTheBlockTime)
{
    ASSERT_TRUE(listener.ListenSpecific(0, LOOPBACK));
    listener.SetBlockTime(100);
    const std::uint32_t start = platform::TickMs();
    EXPECT_EQ(listener.Accept(), nullptr);
    EXPECT_GE(platform::TickMs() - start + CLOCK_GRAIN_MS, 100U);
    EXPECT_EQ(listener.GetLastError(), 46);
}

TEST_F(NetTCPTest, Accept_ConnectionComesLater_EndsAtOnce)
{
    ASSERT_TRUE(listener.ListenSpecific(0, LOOPBACK));
    listener.SetBlockTime(60000);
    auto accepted = std::async(std::launch::async, [this] { return std::unique_ptr<NetTCP>(listener.Accept()); });
    ASSERT_TRUE(client.Connect(LOOPBACK, accepted.valid() ? listener.GetLocalPort() : 0));
    EXPECT_NE(accepted.get(), nullptr);
}

TEST_F(NetTCPTest, Accept_HandsOnTheLookupMode)
{
    listener.SetIPLookupMode(NetIP::LOOKUP_IP6);
    Connect();
    EXPECT_EQ(server->GetIPLookupMode(), NetIP::LOOKUP_IP6);
    EXPECT_EQ(server->GetBlockTimeMs(), 0U);
    EXPECT_EQ(server->GetLastError(), 0);
}

TEST_F(NetTCPTest, Accept_HandsOnTheCache)
{
    NetDNSCache cache;
    MakeNameKnown(cache, "peer.test", "127.0.0.1");
    NetTCP cached(NetIP::LOOKUP_IP4, cache);
    ASSERT_TRUE(cached.ListenSpecific(0, LOOPBACK));
    ASSERT_TRUE(client.Connect(LOOPBACK, cached.GetLocalPort()));
    server = Accept(cached);
    ASSERT_NE(server, nullptr);
    EXPECT_TRUE(server->Connect(String("peer.test"), cached.GetLocalPort()));
}

TEST_F(NetTCPTest, Accept_SeveralWaiting_OneEach)
{
    ASSERT_TRUE(listener.ListenSpecific(0, LOOPBACK));
    TestTCP clients[4];
    for (TestTCP& one : clients)
        ASSERT_TRUE(one.Connect(LOOPBACK, listener.GetLocalPort()));
    for (const TestTCP& one : clients) {
        const auto accepted = Accept(listener);
        ASSERT_NE(accepted, nullptr);
        EXPECT_EQ(accepted->GetRemotePort(), one.GetLocalPort());
    }
    EXPECT_EQ(listener.Accept(), nullptr);
    EXPECT_EQ(listener.GetLastError(), 46);
}

TEST_F(NetTCPTest, Accept_PeerResetBefore_ListenerGoesOn)
{
    ASSERT_TRUE(listener.ListenSpecific(0, LOOPBACK));
    ScriptedTCPPeer peer;
    peer.Reset();
    ASSERT_TRUE(peer.StartClient(listener.GetLocalPort()));
    ASSERT_TRUE(peer.WaitDone()) << peer.GetFailure();
    server.reset(listener.Accept());
    if (server) {
        EXPECT_TRUE(ReceiveEnd(*server));
        EXPECT_EQ(server->GetLastError(), 48);
    } else {
        EXPECT_EQ(listener.GetLastError(), 46);
    }
    EXPECT_TRUE(listener.IsListening());
    Connect();
}

TEST_F(NetTCPTest, Accept_HandleGone_Error45AndListenerClosed)
{
    ASSERT_TRUE(listener.ListenSpecific(0, LOOPBACK));
    platform::CloseSocket(listener.xGetHandle());
    listener.SetBlockTime(5);
    EXPECT_EQ(listener.Accept(), nullptr);
    ExpectClosed(listener, 45);
}

TEST_F(NetTCPTest, Accept_SystemRefusesToAccept_Error45AndListenerClosed)
{
    TestTCP socket;
    ASSERT_TRUE(socket.xInitialise(true, NetIP::IP_4));
    const unsigned int handle = socket.Detach(); // it never was made to listen
    socket.xAttach(handle, NetTCP::TS_LISTENING);
    EXPECT_EQ(socket.Accept(), nullptr);
    ExpectClosed(socket, 45);
}

TEST_F(NetTCPTest, SelfAccept_ConnectionWaiting_ListenerBecomesIt)
{
    ASSERT_TRUE(listener.ListenSpecific(0, LOOPBACK));
    const unsigned short port = listener.GetLocalPort();
    ASSERT_TRUE(client.Connect(LOOPBACK, port));
    listener.xSetLastError(46);
    ASSERT_TRUE(WaitFor([this] { return listener.SelfAccept(); }));
    EXPECT_TRUE(listener.IsConnected());
    EXPECT_EQ(listener.GetLastError(), 0);
    EXPECT_EQ(listener.GetRemotePort(), client.GetLocalPort());
    EXPECT_TRUE(SendAll(client, "self"));
    EXPECT_EQ(Receive(listener, 4), "self");
    TestTCP late;
    EXPECT_FALSE(late.Connect(LOOPBACK, port));
    EXPECT_TRUE(late.ListenSpecific(port, LOOPBACK));
}

TEST_F(NetTCPTest, SelfAccept_CountersOfTheObjectsEarlierLife_StayAndCountOn)
{
    Connect();
    ASSERT_TRUE(SendAll(client, "seven b"));
    ASSERT_EQ(Receive(*server, 7), "seven b");
    ASSERT_TRUE(SendAll(*server, "five!"));
    ASSERT_EQ(Receive(client, 5), "five!");
    // The object that has sent and received turns into a listener and that into a connection.
    ASSERT_TRUE(client.ListenSpecific(0, LOOPBACK));
    NetTCP other(NetIP::LOOKUP_ANY);
    ASSERT_TRUE(other.Connect(LOOPBACK, client.GetLocalPort()));
    ASSERT_TRUE(WaitFor([this] { return client.SelfAccept(); }));
    EXPECT_EQ(client.GetOutDataBytes(), 7U);
    EXPECT_EQ(client.GetInDataBytes(), 5U);
    ASSERT_TRUE(SendAll(other, "abc"));
    EXPECT_EQ(Receive(client, 3), "abc");
    ASSERT_TRUE(SendAll(client, "d"));
    EXPECT_EQ(client.GetOutDataBytes(), 8U);
    EXPECT_EQ(client.GetInDataBytes(), 8U);
}

TEST_F(NetTCPTest, SelfAccept_HandleGone_Error45AndClosed)
{
    ASSERT_TRUE(listener.ListenSpecific(0, LOOPBACK));
    platform::CloseSocket(listener.xGetHandle());
    listener.SetBlockTime(5);
    EXPECT_FALSE(listener.SelfAccept());
    ExpectClosed(listener, 45);
}

// --- sending and receiving

TEST_F(NetTCPTest, SendAndRecv_NotConnected_Error47)
{
    unsigned char byte = 'x';
    unsigned long len = 1;
    EXPECT_FALSE(client.Send(&byte, len));
    EXPECT_EQ(len, 0U);
    EXPECT_EQ(client.GetLastError(), 47);
    client.xSetLastError(0);
    len = 1;
    EXPECT_FALSE(client.Recv(&byte, len));
    EXPECT_EQ(len, 0U);
    EXPECT_EQ(client.GetLastError(), 47);
}

TEST_F(NetTCPTest, SendAndRecv_Listening_Error47AndStillListening)
{
    ASSERT_TRUE(listener.ListenSpecific(0, LOOPBACK));
    char byte = 'x';
    unsigned long len = 1;
    EXPECT_FALSE(listener.Recv(&byte, len));
    EXPECT_EQ(listener.GetLastError(), 47);
    EXPECT_TRUE(listener.IsListening());
}

TEST_F(NetTCPTest, Recv_PeerClosed_Error48AndClosed)
{
    Connect();
    server->Close();
    client.SetBlockTime(5000);
    char byte;
    unsigned long len = 1;
    EXPECT_FALSE(client.Recv(&byte, len));
    EXPECT_EQ(len, 0U);
    ExpectClosed(client, 48);
    len = 1;
    EXPECT_FALSE(client.Recv(&byte, len));
    EXPECT_EQ(client.GetLastError(), 47);
}

TEST_F(NetTCPTest, Recv_PeerClosedAfterLastBytes_BytesFirst)
{
    Connect();
    ASSERT_TRUE(SendAll(*server, "bye"));
    server->ShutdownAndClose();
    EXPECT_EQ(Receive(client, 3), "bye");
    EXPECT_TRUE(ReceiveEnd(client));
    ExpectClosed(client, 48);
}

TEST_F(NetTCPTest, Recv_PeerReset_Error48AndClosed)
{
    Connect();
    platform::AbortSocket(server->Detach());
    client.SetBlockTime(5000);
    char byte;
    unsigned long len = 1;
    EXPECT_FALSE(client.Recv(&byte, len));
    ExpectClosed(client, 48);
}

TEST_F(NetTCPTest, GetPeerEnd_EachWayOfEnding_ToldAndGoneWithTheNextConnection)
{
    Connect();
    EXPECT_EQ(client.GetPeerEnd(), NetTCP::PE_NONE);
    char byte;
    unsigned long len = 1;
    EXPECT_TRUE(client.Recv(&byte, len)); // nothing there
    EXPECT_EQ(client.GetPeerEnd(), NetTCP::PE_NONE);
    ASSERT_TRUE(SendAll(*server, "bye"));
    server->Close();
    EXPECT_EQ(Receive(client, 4), "bye");
    EXPECT_EQ(client.GetPeerEnd(), NetTCP::PE_IN_ORDER);
    EXPECT_FALSE(client.Recv(&byte, len)); // a receive that is none changes nothing
    EXPECT_EQ(client.GetPeerEnd(), NetTCP::PE_IN_ORDER);
    Connect();
    EXPECT_EQ(client.GetPeerEnd(), NetTCP::PE_NONE);
    EXPECT_EQ(server->GetPeerEnd(), NetTCP::PE_NONE);
    platform::AbortSocket(server->Detach());
    EXPECT_TRUE(ReceiveEnd(client));
    EXPECT_EQ(client.GetPeerEnd(), NetTCP::PE_BROKEN_OFF);
    TestTCP other;
    Connect();
    other.xAttach(server->Detach(), NetTCP::TS_CONNECTED);
    EXPECT_EQ(other.GetPeerEnd(), NetTCP::PE_NONE);
    client.Close();
    EXPECT_EQ(client.GetPeerEnd(), NetTCP::PE_NONE); // this end closed it
    EXPECT_TRUE(ReceiveEnd(other));
    EXPECT_EQ(other.GetPeerEnd(), NetTCP::PE_IN_ORDER);
}

TEST_F(NetTCPTest, GetPeerEnd_ResetBehindBytes_BytesFirstThenBrokenOff)
{
    Connect();
    ASSERT_TRUE(SendAll(*server, "half"));
    EXPECT_EQ(Receive(client, 4), "half");
    platform::AbortSocket(server->Detach());
    EXPECT_TRUE(ReceiveEnd(client));
    EXPECT_EQ(client.GetPeerEnd(), NetTCP::PE_BROKEN_OFF);
}

TEST_F(NetTCPTest, GetPeerEnd_HandleGone_BrokenOff)
{
    for (const unsigned long blockTime : {0UL, 5UL}) {
        Connect();
        platform::CloseSocket(client.xGetHandle());
        client.SetBlockTime(blockTime);
        char byte;
        unsigned long len = 1;
        EXPECT_FALSE(client.Recv(&byte, len));
        EXPECT_EQ(client.GetPeerEnd(), NetTCP::PE_BROKEN_OFF);
    }
}

TEST_F(NetTCPTest, Send_PeerReset_Error48AndTheProcessLives)
{
    Connect();
    platform::AbortSocket(server->Detach());
    EXPECT_TRUE(WaitFor([this] {
        unsigned char byte = 'x';
        unsigned long len = 1;
        return !client.Send(&byte, len) && len == 0;
    }));
    ExpectClosed(client, 48);
}

TEST_F(NetTCPTest, Recv_HandleGone_Error48AndClosed)
{
    for (const unsigned long blockTime : {0UL, 5UL}) {
        Connect();
        platform::CloseSocket(client.xGetHandle());
        client.SetBlockTime(blockTime);
        char byte;
        unsigned long len = 1;
        EXPECT_FALSE(client.Recv(&byte, len));
        EXPECT_EQ(len, 0U);
        ExpectClosed(client, 48);
    }
}

TEST_F(NetTCPTest, Send_HandleGone_Error48AndClosed)
{
    for (const unsigned long blockTime : {0UL, 5UL}) {
        Connect();
        platform::CloseSocket(client.xGetHandle());
        client.SetBlockTime(blockTime);
        unsigned long len = 1;
        EXPECT_FALSE(client.Send("x", len));
        EXPECT_EQ(len, 0U);
        ExpectClosed(client, 48);
    }
}

TEST_F(NetTCPTest, Recv_NoRoomAndBytesWaiting_ReadsAsClosedKeptOnPurpose)
{
    Connect();
    ASSERT_TRUE(SendAll(*server, "x"));
    client.SetBlockTime(5000);
    char byte;
    unsigned long len = 0;
    EXPECT_FALSE(client.Recv(&byte, len));
    ExpectClosed(client, 48);
}

TEST_F(NetTCPTest, Send_NoBytes_TrueAndNothingCounted)
{
    Connect();
    for (const unsigned long blockTime : {0UL, 5UL}) {
        client.SetBlockTime(blockTime);
        unsigned long len = 0;
        EXPECT_TRUE(client.Send("", len));
        EXPECT_EQ(len, 0U);
    }
    EXPECT_EQ(client.GetOutDataBytes(), 0U);
    EXPECT_TRUE(client.IsConnected());
}

TEST_F(NetTCPTest, Send_PeerDoesNotRead_TrueWithNothingSentUntilItDoes)
{
    Connect();
    const std::size_t total = SendUntilFull(client);
    EXPECT_EQ(client.GetOutDataBytes(), total & ALL_BITS_32);
    client.SetBlockTime(50);
    const std::uint32_t start = platform::TickMs();
    unsigned long len = 65536;
    const std::vector<unsigned char> block(len, 'y');
    EXPECT_TRUE(client.Send(block.data(), len));
    EXPECT_EQ(len, 0U);
    EXPECT_GE(platform::TickMs() - start + CLOCK_GRAIN_MS, 50U);
    EXPECT_TRUE(client.IsConnected());
    EXPECT_EQ(Receive(*server, total).size(), total);
    EXPECT_TRUE(SendAll(client, "room"));
    EXPECT_EQ(Receive(*server, 4), "room");
    EXPECT_EQ(server->GetInDataBytes(), (total + 4) & ALL_BITS_32);
}

TEST_F(NetTCPTest, Send_MoreThanTheSystemTakes_PartIsTakenAndTold)
{
    Connect();
    std::string large(64'000'000, '\0');
    for (std::size_t i = 0; i < large.size(); i += 997)
        large[i] = static_cast<char>(i % 251);
    unsigned long len = large.size();
    ASSERT_TRUE(client.Send(large.data(), len));
    EXPECT_GT(len, 0U);
    EXPECT_LT(len, large.size());
    EXPECT_EQ(Receive(*server, len), large.substr(0, len));
}

TEST_F(NetTCPTest, SendAndRecv_AllByteValuesThroughBothForms_Unchanged)
{
    Connect();
    std::string all;
    for (int value = 0; value < 256; value++)
        all += static_cast<char>(value);
    unsigned long len = all.size();
    ASSERT_TRUE(client.Send(reinterpret_cast<const unsigned char*>(all.data()), len));
    ASSERT_EQ(len, all.size());
    EXPECT_EQ(Receive(*server, 256), all);
    ASSERT_TRUE(SendAll(*server, all));
    std::vector<unsigned char> buffer(256);
    len = 256;
    client.SetBlockTime(5000);
    ASSERT_TRUE(client.Recv(buffer.data(), len));
    EXPECT_EQ(std::string(buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(len)), all.substr(0, len));
}

TEST_F(NetTCPTest, SendAndRecv_BothSidesAtOnce_EverythingArrives)
{
    Connect();
    client.SetBlockTime(20);
    server->SetBlockTime(20);
    const std::string there(3'000'000, 'a'), back(3'000'000, 'b');
    // One end does nothing but send, the other first takes it all and then answers.
    auto answer = std::async(std::launch::async, [&] {
        const std::string received = Receive(*server, there.size());
        return received == there && SendAll(*server, back);
    });
    EXPECT_TRUE(SendAll(client, there));
    EXPECT_EQ(Receive(client, back.size()), back);
    EXPECT_TRUE(answer.get());
}

TEST_F(NetTCPTest, Transfer_BeyondManyOpenSockets_Works)
{
    std::vector<OwnedSocket> idle;
    while (idle.size() < 1100) {
        idle.emplace_back(platform::OpenSocket(false, platform::Family::IP4));
        if (!idle.back().IsOpen())
            KQ_MISSING("this machine allows only " << idle.size() << " sockets");
    }
    listener.SetBlockTime(1000);
    client.SetBlockTime(10);
    Connect();
    server->SetBlockTime(10);
    ASSERT_TRUE(SendAll(client, "beyond"));
    EXPECT_EQ(Receive(*server, 6), "beyond");
}

// --- ending

TEST_F(NetTCPTest, ShutdownAndClose_Connected_PeerSeesTheEnd)
{
    Connect();
    client.ShutdownAndClose();
    EXPECT_FALSE(client.IsActive());
    EXPECT_TRUE(ReceiveEnd(*server));
    ExpectClosed(*server, 48);
    client.ShutdownAndClose();
    EXPECT_EQ(client.GetLastError(), 0);
}

TEST_F(NetTCPTest, ShutdownAndClose_Listening_JustCloses)
{
    ASSERT_TRUE(listener.ListenSpecific(0, LOOPBACK));
    listener.ShutdownAndClose();
    ExpectClosed(listener, 0);
}
