#include "platform/Sockets.h"

#include "platform/Clock.h"
#include "tests/peers/Missing.h"
#include "tests/peers/Sockets.h"
#include "tests/peers/WaitFor.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <thread>
#include <vector>

using namespace kqlib::platform;
using namespace kqlib::test;

namespace {

constexpr std::uint32_t CLOCK_GRAIN_MS = 20; // how much earlier than asked a coarse clock may let a wait end
constexpr std::uint32_t SLACK_MS = 10000;    // how much later on a busy machine

/// Starts the socket library around each test.
class SocketsTest : public testing::Test
{
protected:
    void SetUp() override { ASSERT_TRUE(StartSockets()); }
    void TearDown() override { EndSockets(); }
};

/// A connection between two ends of this process.
class SocketPairTest : public SocketsTest
{
protected:
    void SetUp() override
    {
        SocketsTest::SetUp();
        listener = MakeListener();
        client = ConnectTo(LocalPort(listener));
        server = AcceptFrom(listener);
        ASSERT_TRUE(client.IsOpen() && server.IsOpen());
    }
    void TearDown() override
    {
        client.Close();
        server.Close();
        listener.Close();
        SocketsTest::TearDown();
    }

    OwnedSocket listener, client, server;
};

Endpoint LoopbackIP6(std::uint16_t port)
{
    Endpoint end;
    end.family = Family::IP6;
    end.bytes[15] = 1;
    end.port = port;
    return end;
}

/// A listener on ::1; not open when this machine has no IPv6.
OwnedSocket MakeListenerIP6(std::uint16_t port)
{
    OwnedSocket listener(OpenSocket(true, Family::IP6));
    if (!BindSocket(listener.Get(), LoopbackIP6(port), true) || !ListenSocket(listener.Get(), 5))
        listener.Close();
    return listener;
}

IoResult RecvOnce(const OwnedSocket& socket, std::size_t room)
{
    std::vector<unsigned char> buffer(room + 1);
    return RecvSocket(socket.Get(), buffer.data(), room);
}

IoResult SendOnce(const OwnedSocket& socket, std::size_t bytes)
{
    const std::vector<unsigned char> buffer(bytes + 1, 'x');
    return SendSocket(socket.Get(), buffer.data(), bytes);
}

/// Two datagram sockets that talk to each other.
struct DatagramPair
{
    DatagramPair()
        : one(MakeDatagramSocket())
        , two(MakeDatagramSocket())
    {
        connected = ConnectSocket(one.Get(), Loopback(LocalPort(two))) == IoResult::DONE &&
                    ConnectSocket(two.Get(), Loopback(LocalPort(one))) == IoResult::DONE;
    }
    OwnedSocket one, two;
    bool connected;
};

} // namespace

// --- opening, binding, listening

TEST_F(SocketsTest, CloseSocket_InvalidHandle_Ignored)
{
    CloseSocket(INVALID_SOCKET_HANDLE);
    AbortSocket(INVALID_SOCKET_HANDLE);
}

TEST_F(SocketsTest, BindSocket_PortZero_ListenerGetsAPort)
{
    const OwnedSocket listener = MakeListener();
    ASSERT_TRUE(listener.IsOpen());
    EXPECT_NE(LocalPort(listener), 0);
}

TEST_F(SocketsTest, BindSocket_PortZeroOfAConnectionToBe_ChosenWhenConnected)
{
    const OwnedSocket listener = MakeListener();
    const OwnedSocket client = ConnectTo(LocalPort(listener));
    ASSERT_TRUE(client.IsOpen());
    EXPECT_NE(LocalPort(client), 0);
}

TEST_F(SocketsTest, BindSocket_ForeignAddress_False)
{
    const OwnedSocket socket(OpenSocket(true, Family::IP4));
    Endpoint foreign;
    const unsigned char documentation[4] = {203, 0, 113, 7};
    std::memcpy(foreign.bytes, documentation, sizeof(documentation));
    EXPECT_FALSE(BindSocket(socket.Get(), foreign, true));
    EXPECT_FALSE(BindSocket(socket.Get(), foreign, false));
}

TEST_F(SocketsTest, BindSocket_PortOfALivingListener_False)
{
    const OwnedSocket first = MakeListener();
    EXPECT_FALSE(MakeListener(LocalPort(first)).IsOpen());
}

TEST_F(SocketsTest, BindSocket_ClosedHandle_False)
{
    OwnedSocket socket = MakeDatagramSocket();
    const SocketHandle handle = socket.Get();
    socket.Close();
    EXPECT_FALSE(BindSocket(handle, Loopback(0), true));
    EXPECT_FALSE(BindSocket(handle, Loopback(0), false));
}

TEST_F(SocketPairTest, BindSocket_PortOfAnEndedListenerWhoseConnectionLives_True)
{
    const std::uint16_t port = LocalPort(listener);
    listener.Close();
    const OwnedSocket again = MakeListener(port);
    EXPECT_TRUE(again.IsOpen());
    EXPECT_TRUE(ConnectTo(port).IsOpen());
}

TEST_F(SocketPairTest, BindSocket_PortOfAnEndedListenerWhoseConnectionEndedFirstHere_True)
{
    const std::uint16_t port = LocalPort(listener);
    listener.Close();
    server.Close(); // leaves the connection waiting for late packets
    EXPECT_EQ(WaitSocket(client.Get(), true, 5000), WaitResult::READY);
    client.Close();
    EXPECT_TRUE(MakeListener(port).IsOpen());
}

TEST_F(SocketsTest, ListenSocket_BoundSocket_True)
{
    const OwnedSocket socket(OpenSocket(true, Family::IP4));
    ASSERT_TRUE(BindSocket(socket.Get(), Loopback(0), true));
    EXPECT_TRUE(ListenSocket(socket.Get(), 5));
}

TEST_F(SocketsTest, ListenSocket_DatagramSocket_False)
{
    EXPECT_FALSE(ListenSocket(MakeDatagramSocket().Get(), 5));
}

TEST_F(SocketsTest, OpenSocket_IP6_ServesIP6Only)
{
    const OwnedSocket listener = MakeListenerIP6(0);
    if (!listener.IsOpen())
        KQ_MISSING("this machine has no ::1");
    const std::uint16_t port = UnservedPort();
    OwnedSocket six(OpenSocket(true, Family::IP6));
    Endpoint any;
    any.family = Family::IP6;
    any.port = port;
    ASSERT_TRUE(BindSocket(six.Get(), any, true));
    ASSERT_TRUE(ListenSocket(six.Get(), 5));
    EXPECT_FALSE(ConnectTo(port).IsOpen());
    Endpoint anyIP4;
    anyIP4.port = port;
    const OwnedSocket four(OpenSocket(true, Family::IP4));
    EXPECT_TRUE(BindSocket(four.Get(), anyIP4, true));
    EXPECT_TRUE(ListenSocket(four.Get(), 5));
}

TEST_F(SocketsTest, OpenSocket_FarMoreThan1024_AllUsable)
{
    constexpr std::size_t COUNT = 1100;
    std::vector<OwnedSocket> idle;
    while (idle.size() < COUNT) {
        idle.emplace_back(OpenSocket(false, Family::IP4));
        if (!idle.back().IsOpen())
            KQ_MISSING("this machine allows only " << idle.size() << " sockets");
    }
    const OwnedSocket listener = MakeListener();
    const OwnedSocket client = ConnectTo(LocalPort(listener));
    const OwnedSocket server = AcceptFrom(listener);
    ASSERT_TRUE(client.IsOpen() && server.IsOpen());
    EXPECT_EQ(WaitSocket(server.Get(), true, 10), WaitResult::TIMED_OUT);
    EXPECT_EQ(WaitSocket(server.Get(), false, 10), WaitResult::READY);
    ASSERT_TRUE(SendAll(client, "beyond"));
    EXPECT_EQ(WaitSocket(server.Get(), true, 5000), WaitResult::READY);
    EXPECT_EQ(ReceiveBytes(server, 6), "beyond");
}

// --- connecting

TEST_F(SocketsTest, PollConnect_UnservedPort_Refused)
{
    const OwnedSocket client(OpenSocket(true, Family::IP4));
    ASSERT_TRUE(BindSocket(client.Get(), Loopback(0), false));
    IoResult result = ConnectSocket(client.Get(), Loopback(UnservedPort()));
    EXPECT_TRUE(WaitFor([&] {
        if (result == IoResult::IN_PROGRESS)
            result = PollConnect(client.Get(), 1000);
        return result != IoResult::IN_PROGRESS;
    }));
    EXPECT_EQ(result, IoResult::REFUSED);
}

TEST_F(SocketsTest, PollConnect_ClosedHandle_Failed)
{
    OwnedSocket socket(OpenSocket(true, Family::IP4));
    const SocketHandle handle = socket.Get();
    socket.Close();
    EXPECT_EQ(PollConnect(handle, 0), IoResult::FAILED);
}

TEST_F(SocketsTest, ConnectSocket_ClosedHandle_Failed)
{
    OwnedSocket socket(OpenSocket(true, Family::IP4));
    const SocketHandle handle = socket.Get();
    socket.Close();
    EXPECT_EQ(ConnectSocket(handle, Loopback(1)), IoResult::FAILED);
}

// --- waiting

TEST_F(SocketPairTest, WaitSocket_NothingToRead_TimesOutAfterTheWholeTime)
{
    const std::uint32_t start = TickMs();
    EXPECT_EQ(WaitSocket(server.Get(), true, 150), WaitResult::TIMED_OUT);
    const std::uint32_t passed = TickMs() - start;
    EXPECT_GE(passed + CLOCK_GRAIN_MS, 150U);
    EXPECT_LT(passed, 150U + SLACK_MS);
}

TEST_F(SocketPairTest, WaitSocket_MoreThanASecond_TimesOutAfterTheWholeTime)
{
    const std::uint32_t start = TickMs();
    EXPECT_EQ(WaitSocket(server.Get(), true, 1200), WaitResult::TIMED_OUT);
    EXPECT_GE(TickMs() - start + CLOCK_GRAIN_MS, 1200U);
}

TEST_F(SocketPairTest, WaitSocket_ZeroTime_OnlyAsks)
{
    EXPECT_EQ(WaitSocket(server.Get(), true, 0), WaitResult::TIMED_OUT);
    EXPECT_EQ(WaitSocket(server.Get(), false, 0), WaitResult::READY);
}

TEST_F(SocketPairTest, WaitSocket_BytesComeLater_EndsAtOnce)
{
    std::thread sender([this] {
        SleepMs(50);
        SendAll(client, "x");
    });
    const std::uint32_t start = TickMs();
    EXPECT_EQ(WaitSocket(server.Get(), true, 60000), WaitResult::READY);
    EXPECT_LT(TickMs() - start, 50U + SLACK_MS);
    sender.join();
}

TEST_F(SocketPairTest, WaitSocket_LongestTime_DoesNotOverflow)
{
    ASSERT_TRUE(SendAll(client, "x"));
    ASSERT_EQ(WaitSocket(server.Get(), true, 5000), WaitResult::READY);
    for (const std::uint32_t ms : {2147483U, 2147484U, 4294967U, 4294968U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU})
        EXPECT_EQ(WaitSocket(server.Get(), true, ms), WaitResult::READY) << ms;
}

TEST_F(SocketPairTest, WaitSocket_PeerClosed_Ready)
{
    client.Close();
    EXPECT_EQ(WaitSocket(server.Get(), true, 5000), WaitResult::READY);
}

TEST_F(SocketPairTest, WaitSocket_PeerReset_ReadyBothWays)
{
    client.Abort();
    EXPECT_EQ(WaitSocket(server.Get(), true, 5000), WaitResult::READY);
    EXPECT_EQ(WaitSocket(server.Get(), false, 5000), WaitResult::READY);
}

TEST_F(SocketPairTest, WaitSocket_ClosedHandle_Failed)
{
    const SocketHandle handle = server.Get();
    server.Close();
    EXPECT_EQ(WaitSocket(handle, true, 10), WaitResult::FAILED);
    EXPECT_EQ(WaitSocket(handle, false, 10), WaitResult::FAILED);
}

// --- accepting

TEST_F(SocketsTest, WaitSocket_NoHandle_FailedAtOnce)
{
    const std::uint32_t start = TickMs();
    EXPECT_EQ(WaitSocket(INVALID_SOCKET_HANDLE, true, 60000), WaitResult::FAILED);
    EXPECT_EQ(WaitSocket(INVALID_SOCKET_HANDLE, false, 60000), WaitResult::FAILED);
    EXPECT_EQ(PollConnect(INVALID_SOCKET_HANDLE, 60000000), IoResult::FAILED);
    EXPECT_LT(std::uint32_t(TickMs() - start), 30000U);
}

TEST_F(SocketsTest, AcceptSocket_NothingWaiting_WouldBlock)
{
    const OwnedSocket listener = MakeListener();
    SocketHandle handle = INVALID_SOCKET_HANDLE;
    EXPECT_EQ(AcceptSocket(listener.Get(), handle), IoResult::WOULD_BLOCK);
    EXPECT_EQ(handle, INVALID_SOCKET_HANDLE);
}

TEST_F(SocketsTest, AcceptSocket_NotListening_Failed)
{
    const OwnedSocket socket(OpenSocket(true, Family::IP4));
    ASSERT_TRUE(BindSocket(socket.Get(), Loopback(0), true));
    SocketHandle handle = INVALID_SOCKET_HANDLE;
    EXPECT_EQ(AcceptSocket(socket.Get(), handle), IoResult::FAILED);
}

TEST_F(SocketPairTest, AcceptSocket_AcceptedHandle_NeverWaits)
{
    EXPECT_EQ(RecvOnce(server, 10), IoResult::WOULD_BLOCK);
}

TEST_F(SocketsTest, AcceptSocket_PeerResetBefore_ListenerGoesOn)
{
    const OwnedSocket listener = MakeListener();
    OwnedSocket early = ConnectTo(LocalPort(listener));
    ASSERT_TRUE(early.IsOpen());
    early.Abort();
    SocketHandle handle = INVALID_SOCKET_HANDLE;
    const IoResult result = AcceptSocket(listener.Get(), handle);
    const OwnedSocket gone(handle);
    ASSERT_TRUE(result == IoResult::DONE || result == IoResult::WOULD_BLOCK);
    if (result == IoResult::DONE) {
        Endpoint end = Loopback(4711);
        EXPECT_TRUE(GetRemoteEndpointIP4(gone.Get(), end) || end.port == 4711);
        EXPECT_NE(RecvOnce(gone, 10), IoResult::DONE);
    }
    const OwnedSocket client = ConnectTo(LocalPort(listener));
    EXPECT_TRUE(client.IsOpen());
    EXPECT_TRUE(AcceptFrom(listener).IsOpen());
}

TEST_F(SocketsTest, AcceptSocket_IP6_ConnectionWithoutIP4Addresses)
{
    const OwnedSocket listener = MakeListenerIP6(UnservedPort());
    if (!listener.IsOpen())
        KQ_MISSING("this machine has no ::1");
    Endpoint end;
    EXPECT_FALSE(GetLocalEndpointIP4(listener.Get(), end));
    const std::uint16_t port = UnservedPort();
    const OwnedSocket known = MakeListenerIP6(port);
    const OwnedSocket client(OpenSocket(true, Family::IP6));
    const IoResult started = ConnectSocket(client.Get(), LoopbackIP6(port));
    ASSERT_TRUE(started == IoResult::IN_PROGRESS || started == IoResult::DONE);
    const OwnedSocket server = AcceptFrom(known);
    ASSERT_TRUE(server.IsOpen());
    end = Loopback(4711);
    EXPECT_FALSE(GetRemoteEndpointIP4(server.Get(), end));
    EXPECT_FALSE(GetLocalEndpointIP4(server.Get(), end));
    EXPECT_EQ(end.port, 4711);
    EXPECT_EQ(end.bytes[0], 127);
}

// --- streams

TEST_F(SocketPairTest, RecvSocket_BytesSent_ArriveWhole)
{
    ASSERT_TRUE(SendAll(client, std::string("a\0b", 3)));
    EXPECT_EQ(ReceiveBytes(server, 3), std::string("a\0b", 3));
}

TEST_F(SocketPairTest, RecvSocket_PeerClosed_ClosedAfterTheLastBytes)
{
    ASSERT_TRUE(SendAll(client, "last"));
    client.Close();
    EXPECT_EQ(ReceiveBytes(server, 4), "last");
    EXPECT_TRUE(WaitFor([&] { return RecvOnce(server, 10) == IoResult::CLOSED; }));
}

TEST_F(SocketPairTest, RecvSocket_PeerReset_ResetOrClosed)
{
    client.Abort();
    ASSERT_EQ(WaitSocket(server.Get(), true, 5000), WaitResult::READY);
    const IoResult result = RecvOnce(server, 10); // not every system still knows how it ended after a wait
    EXPECT_TRUE(result == IoResult::RESET || result == IoResult::CLOSED);
}

TEST_F(SocketPairTest, RecvSocket_NoRoom_ReadsAsClosed)
{
    ASSERT_TRUE(SendAll(client, "x"));
    ASSERT_EQ(WaitSocket(server.Get(), true, 5000), WaitResult::READY);
    EXPECT_EQ(RecvOnce(server, 0), IoResult::CLOSED);
    EXPECT_EQ(ReceiveBytes(server, 1), "x");
}

TEST_F(SocketPairTest, RecvSocket_ClosedHandle_Failed)
{
    const SocketHandle handle = server.Get();
    server.Close();
    unsigned char byte = 'x';
    std::size_t size = 1;
    EXPECT_EQ(RecvSocket(handle, &byte, size), IoResult::FAILED);
    EXPECT_EQ(size, 0U);
    size = 1;
    EXPECT_EQ(SendSocket(handle, &byte, size), IoResult::FAILED);
    EXPECT_EQ(size, 0U);
}

TEST_F(SocketPairTest, SendSocket_PeerReset_ResetAndTheProcessLives)
{
    client.Abort();
    ASSERT_EQ(WaitSocket(server.Get(), true, 5000), WaitResult::READY);
    EXPECT_EQ(SendOnce(server, 10), IoResult::RESET);
    const IoResult again = SendOnce(server, 10);
    EXPECT_TRUE(again == IoResult::RESET || again == IoResult::FAILED);
}

TEST_F(SocketPairTest, SendSocket_PeerDoesNotRead_WouldBlockUntilItDoes)
{
    std::size_t total = 0;
    const std::vector<unsigned char> block(65536, 'x');
    IoResult result = IoResult::DONE;
    EXPECT_TRUE(WaitFor(
        [&] {
            std::size_t size = block.size();
            result = SendSocket(client.Get(), block.data(), size);
            total += size;
            return result != IoResult::DONE;
        },
        20000));
    EXPECT_EQ(result, IoResult::WOULD_BLOCK);
    EXPECT_EQ(WaitSocket(client.Get(), false, 5), WaitResult::TIMED_OUT);
    EXPECT_EQ(ReceiveBytes(server, total).size(), total);
    EXPECT_EQ(WaitSocket(client.Get(), false, 5000), WaitResult::READY);
    EXPECT_EQ(SendOnce(client, 1), IoResult::DONE);
}

TEST_F(SocketPairTest, ShutdownSocket_PeerSeesTheEnd)
{
    ShutdownSocket(client.Get());
    EXPECT_TRUE(WaitFor([&] { return RecvOnce(server, 10) == IoResult::CLOSED; }));
}

// --- datagrams

TEST_F(SocketsTest, RecvSocket_Datagrams_OnePerCall)
{
    const DatagramPair pair;
    ASSERT_TRUE(pair.connected);
    ASSERT_EQ(SendOnce(pair.one, 5), IoResult::DONE);
    ASSERT_EQ(SendOnce(pair.one, 7), IoResult::DONE);
    ASSERT_EQ(WaitSocket(pair.two.Get(), true, 5000), WaitResult::READY);
    unsigned char buffer[100];
    std::size_t size = sizeof(buffer);
    EXPECT_EQ(RecvSocket(pair.two.Get(), buffer, size), IoResult::DONE);
    EXPECT_EQ(size, 5U);
    size = sizeof(buffer);
    ASSERT_EQ(WaitSocket(pair.two.Get(), true, 5000), WaitResult::READY);
    EXPECT_EQ(RecvSocket(pair.two.Get(), buffer, size), IoResult::DONE);
    EXPECT_EQ(size, 7U);
    EXPECT_EQ(RecvOnce(pair.two, 10), IoResult::WOULD_BLOCK);
}

TEST_F(SocketsTest, RecvSocket_DatagramAsLongAsTheRoom_Done)
{
    const DatagramPair pair;
    ASSERT_TRUE(pair.connected);
    ASSERT_EQ(SendOnce(pair.one, 20), IoResult::DONE);
    ASSERT_EQ(WaitSocket(pair.two.Get(), true, 5000), WaitResult::READY);
    EXPECT_EQ(RecvOnce(pair.two, 20), IoResult::DONE);
}

TEST_F(SocketsTest, RecvSocket_DatagramOneByteLongerThanTheRoom_Failed)
{
    const DatagramPair pair;
    ASSERT_TRUE(pair.connected);
    ASSERT_EQ(SendOnce(pair.one, 21), IoResult::DONE);
    ASSERT_EQ(WaitSocket(pair.two.Get(), true, 5000), WaitResult::READY);
    EXPECT_EQ(RecvOnce(pair.two, 20), IoResult::FAILED);
}

TEST_F(SocketsTest, RecvSocket_EmptyDatagram_Closed)
{
    const DatagramPair pair;
    ASSERT_TRUE(pair.connected);
    ASSERT_EQ(SendOnce(pair.one, 0), IoResult::DONE);
    ASSERT_EQ(WaitSocket(pair.two.Get(), true, 5000), WaitResult::READY);
    EXPECT_EQ(RecvOnce(pair.two, 10), IoResult::CLOSED);
}

TEST_F(SocketsTest, SendSocket_DatagramBeyondTheLargest_Failed)
{
    const DatagramPair pair;
    ASSERT_TRUE(pair.connected);
    EXPECT_EQ(SendOnce(pair.one, 65508), IoResult::FAILED);
}

TEST_F(SocketsTest, RecvSocket_DatagramToAnUnservedPort_Refused)
{
    const OwnedSocket socket = MakeDatagramSocket();
    ASSERT_EQ(ConnectSocket(socket.Get(), Loopback(UnservedPort(false))), IoResult::DONE);
    ASSERT_EQ(SendOnce(socket, 3), IoResult::DONE);
    EXPECT_TRUE(WaitFor([&] { return WaitSocket(socket.Get(), true, 10) == WaitResult::READY; }));
    EXPECT_EQ(RecvOnce(socket, 10), IoResult::REFUSED);
}

TEST_F(SocketsTest, SendSocket_AfterARefusedDatagram_Refused)
{
    const OwnedSocket socket = MakeDatagramSocket();
    ASSERT_EQ(ConnectSocket(socket.Get(), Loopback(UnservedPort(false))), IoResult::DONE);
    ASSERT_EQ(SendOnce(socket, 3), IoResult::DONE);
    IoResult result = IoResult::DONE;
    EXPECT_TRUE(WaitFor([&] {
        result = SendOnce(socket, 3);
        return result != IoResult::DONE;
    }));
    EXPECT_EQ(result, IoResult::REFUSED);
}

TEST_F(SocketsTest, SendSocketTo_NoFixedPeer_OtherEndAnswersTheSender)
{
    const OwnedSocket server = MakeDatagramSocket();
    const OwnedSocket client = MakeDatagramSocket();
    const unsigned char question[3] = {'a', 'b', 'c'};
    std::size_t size = sizeof(question);
    ASSERT_EQ(SendSocketTo(client.Get(), question, size, Loopback(LocalPort(server))), IoResult::DONE);
    EXPECT_EQ(size, 3U);
    ASSERT_EQ(WaitSocket(server.Get(), true, 5000), WaitResult::READY);
    unsigned char buffer[10];
    size = sizeof(buffer);
    Endpoint from;
    ASSERT_EQ(RecvSocketFrom(server.Get(), buffer, size, from), IoResult::DONE);
    EXPECT_EQ(size, 3U);
    EXPECT_EQ(from.port, LocalPort(client));
    EXPECT_EQ(std::memcmp(from.bytes, Loopback(0).bytes, 4), 0);
    size = 0;
    EXPECT_EQ(SendSocketTo(server.Get(), question, size, from), IoResult::DONE);
    ASSERT_EQ(WaitSocket(client.Get(), true, 5000), WaitResult::READY);
    size = sizeof(buffer);
    EXPECT_EQ(RecvSocketFrom(client.Get(), buffer, size, from), IoResult::DONE);
    EXPECT_EQ(size, 0U);
    EXPECT_EQ(from.port, LocalPort(server));
}

TEST_F(SocketsTest, RecvSocketFrom_NothingThere_WouldBlock)
{
    const OwnedSocket socket = MakeDatagramSocket();
    unsigned char buffer[10];
    std::size_t size = sizeof(buffer);
    Endpoint from;
    EXPECT_EQ(RecvSocketFrom(socket.Get(), buffer, size, from), IoResult::WOULD_BLOCK);
    EXPECT_EQ(size, 0U);
}

TEST_F(SocketsTest, RecvSocketFrom_DatagramOneByteLongerThanTheRoom_FailedAndGone)
{
    const DatagramPair pair;
    ASSERT_TRUE(pair.connected);
    ASSERT_EQ(SendOnce(pair.one, 11), IoResult::DONE);
    ASSERT_EQ(WaitSocket(pair.two.Get(), true, 5000), WaitResult::READY);
    unsigned char buffer[10];
    std::size_t size = sizeof(buffer);
    Endpoint from;
    EXPECT_EQ(RecvSocketFrom(pair.two.Get(), buffer, size, from), IoResult::FAILED);
    EXPECT_EQ(size, 0U);
    EXPECT_EQ(from.port, 0U);
    size = sizeof(buffer);
    EXPECT_EQ(RecvSocketFrom(pair.two.Get(), buffer, size, from), IoResult::WOULD_BLOCK);
}

TEST_F(SocketsTest, SendSocketTo_DatagramBeyondTheLargest_FailedAndNothingSent)
{
    const OwnedSocket socket = MakeDatagramSocket();
    const std::vector<unsigned char> bytes(65508);
    std::size_t size = bytes.size();
    EXPECT_EQ(SendSocketTo(socket.Get(), bytes.data(), size, Loopback(LocalPort(socket))), IoResult::FAILED);
    EXPECT_EQ(size, 0U);
}

// --- addresses, buffers, names

TEST_F(SocketPairTest, GetEndpoints_BothEnds_MatchCrosswise)
{
    Endpoint clientLocal, clientRemote, serverLocal, serverRemote;
    ASSERT_TRUE(GetLocalEndpointIP4(client.Get(), clientLocal));
    ASSERT_TRUE(GetRemoteEndpointIP4(client.Get(), clientRemote));
    ASSERT_TRUE(GetLocalEndpointIP4(server.Get(), serverLocal));
    ASSERT_TRUE(GetRemoteEndpointIP4(server.Get(), serverRemote));
    EXPECT_EQ(clientLocal.port, serverRemote.port);
    EXPECT_EQ(clientRemote.port, serverLocal.port);
    EXPECT_EQ(std::memcmp(serverRemote.bytes, Loopback(0).bytes, 16), 0);
    EXPECT_EQ(clientRemote.family, Family::IP4);
}

TEST_F(SocketsTest, GetRemoteEndpointIP4_NotConnected_FalseAndOutUntouched)
{
    const OwnedSocket listener = MakeListener();
    Endpoint end = Loopback(4711, 9);
    EXPECT_FALSE(GetRemoteEndpointIP4(listener.Get(), end));
    EXPECT_EQ(end.port, 4711);
    EXPECT_EQ(end.bytes[3], 9);
}

TEST_F(SocketPairTest, SetBufferSizes_SystemReportsAtLeastThat)
{
    EXPECT_TRUE(SetRecvBufferSize(client.Get(), 8192));
    EXPECT_TRUE(SetSendBufferSize(client.Get(), 16384));
    EXPECT_GE(GetRecvBufferSize(client.Get()), 8192U);
    EXPECT_GE(GetSendBufferSize(client.Get()), 16384U);
}

TEST_F(SocketsTest, BufferSizes_InvalidHandle_ZeroAndFalse)
{
    EXPECT_EQ(GetRecvBufferSize(INVALID_SOCKET_HANDLE), 0U);
    EXPECT_EQ(GetSendBufferSize(INVALID_SOCKET_HANDLE), 0U);
    EXPECT_FALSE(SetRecvBufferSize(INVALID_SOCKET_HANDLE, 8192));
    EXPECT_FALSE(SetSendBufferSize(INVALID_SOCKET_HANDLE, 8192));
}

TEST_F(SocketsTest, LookupHostIP4_LocalHost_Loopback)
{
    unsigned char found[4][4] = {};
    ASSERT_GE(LookupHostIP4("localhost", found, 4), 1U);
    EXPECT_EQ(found[0][0], 127);
}

TEST_F(SocketsTest, LookupHostIP4_NoRoomForResults_Zero)
{
    unsigned char found[1][4] = {};
    EXPECT_EQ(LookupHostIP4("localhost", found, 0), 0U);
}

TEST_F(SocketsTest, LookupHostIP4_NotAName_Zero)
{
    unsigned char found[1][4] = {};
    EXPECT_EQ(LookupHostIP4("not a name", found, 1), 0U);
}
