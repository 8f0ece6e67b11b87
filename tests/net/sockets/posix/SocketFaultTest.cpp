// What the sockets and the service make of failures of the system that only come when they are made.
#include "tests/net/sockets/posix/SocketFault.h"

#include "net/sockets/NetUDP.h"
#include "tests/net/service/ServiceFixture.h"
#include "tests/net/sockets/TestTCP.h"
#include "tests/peers/Sockets.h"

#include <gmock/gmock.h>

#include <cerrno>

namespace kqlib::test {
namespace {

const NetIP LOOPBACK("127.0.0.1");

void ExpectClosed(const NetTCP& socket, int code)
{
    EXPECT_FALSE(socket.IsActive());
    EXPECT_EQ(socket.GetLastError(), code);
    EXPECT_EQ(socket.GetLocalPort(), 0);
}

using SocketFaultTest = NetSocketFixture;

TEST_F(SocketFaultTest, Connect_NoSocketToBeHad_Error40)
{
    ASSERT_TRUE(listener.ListenSpecific(0, LOOPBACK));
    const SocketFault fault(SocketFault::SOCKET, EMFILE);
    EXPECT_FALSE(client.Connect(LOOPBACK, listener.GetLocalPort()));
    ExpectClosed(client, 40);
    EXPECT_TRUE(client.Connect(LOOPBACK, listener.GetLocalPort())) << "the object can be used again";
}

TEST_F(SocketFaultTest, ListenSpecific_NoSocketToBeHad_Error40AndTheOldOneClosed)
{
    ASSERT_TRUE(listener.ListenSpecific(0, LOOPBACK));
    const SocketFault fault(SocketFault::SOCKET, EMFILE);
    EXPECT_FALSE(listener.ListenSpecific(0, LOOPBACK));
    ExpectClosed(listener, 40);
}

TEST_F(SocketFaultTest, OpenClient_NoSocketToBeHad_Error40)
{
    NetUDP socket(NetIP::LOOKUP_ANY);
    const SocketFault fault(SocketFault::SOCKET, ENOBUFS);
    EXPECT_FALSE(socket.OpenClient(LOOPBACK, 53));
    EXPECT_EQ(socket.GetLastError(), 40);
    EXPECT_FALSE(socket.IsOpen());
}

TEST_F(SocketFaultTest, ListenSpecific_SystemRefusesToListen_Error43AndClosed)
{
    const SocketFault fault(SocketFault::LISTEN, EADDRINUSE);
    EXPECT_FALSE(listener.ListenSpecific(0, LOOPBACK));
    ExpectClosed(listener, 43);
    EXPECT_EQ(listener.xGetHandle(), 0xFFFFFFFFU);
    EXPECT_TRUE(fault.IsUsedUp());
}

TEST_F(SocketFaultTest, ListenAll_SystemRefusesToListen_Error43)
{
    const SocketFault fault(SocketFault::LISTEN, EADDRINUSE);
    EXPECT_FALSE(listener.ListenAll(0));
    ExpectClosed(listener, 43);
}

TEST_F(SocketFaultTest, Connect_WaitingForItFails_Error42AndClosed)
{
    ASSERT_TRUE(listener.ListenSpecific(0, LOOPBACK));
    const SocketFault fault(SocketFault::WAIT, ENOMEM);
    EXPECT_FALSE(client.Connect(LOOPBACK, listener.GetLocalPort()));
    ExpectClosed(client, 42);
}

TEST_F(SocketFaultTest, Accept_WaitingFails_Error45AndListenerClosed)
{
    ASSERT_TRUE(listener.ListenSpecific(0, LOOPBACK));
    listener.SetBlockTime(5);
    const SocketFault fault(SocketFault::WAIT, ENOMEM);
    EXPECT_EQ(listener.Accept(), nullptr);
    ExpectClosed(listener, 45);
}

TEST_F(SocketFaultTest, SelfAccept_WaitingFails_Error45AndListenerClosed)
{
    ASSERT_TRUE(listener.ListenSpecific(0, LOOPBACK));
    listener.SetBlockTime(5);
    const SocketFault fault(SocketFault::WAIT, ENOMEM);
    EXPECT_FALSE(listener.SelfAccept());
    ExpectClosed(listener, 45);
}

TEST_F(SocketFaultTest, Accept_AnyOtherFailure_Error45AndListenerClosed)
{
    ASSERT_TRUE(listener.ListenSpecific(0, LOOPBACK));
    const SocketFault fault(SocketFault::ACCEPT, EINVAL);
    EXPECT_EQ(listener.Accept(), nullptr);
    ExpectClosed(listener, 45);
}

TEST_F(SocketFaultTest, Accept_TheWaitingConnectionFailed_Error46AndTheNextIsTaken)
{
    ASSERT_TRUE(listener.ListenSpecific(0, LOOPBACK));
    ASSERT_TRUE(client.Connect(LOOPBACK, listener.GetLocalPort()));
    for (const int error : {ECONNABORTED, EPERM, EPROTO, ENETDOWN, EHOSTUNREACH, EMFILE, ENFILE, ENOBUFS, ENOMEM}) {
        const SocketFault fault(SocketFault::ACCEPT, error);
        EXPECT_EQ(listener.Accept(), nullptr);
        EXPECT_EQ(listener.GetLastError(), 46) << error;
        EXPECT_TRUE(listener.IsListening()) << error;
    }
    EXPECT_NE(Accept(listener), nullptr);
}

TEST_F(SocketFaultTest, Accept_InterruptedBySignals_GoesOnByItself)
{
    ASSERT_TRUE(listener.ListenSpecific(0, LOOPBACK));
    ASSERT_TRUE(client.Connect(LOOPBACK, listener.GetLocalPort()));
    listener.SetBlockTime(5000);
    const SocketFault fault(SocketFault::ACCEPT, EINTR, 3);
    const std::unique_ptr<NetTCP> accepted(listener.Accept());
    EXPECT_NE(accepted, nullptr);
    EXPECT_TRUE(fault.IsUsedUp());
}

TEST_F(SocketFaultTest, Connect_InterruptedBySignals_AttemptGoesOnByItself)
{
    ASSERT_TRUE(listener.ListenSpecific(0, LOOPBACK));
    const SocketFault fault(SocketFault::CONNECT, EINTR);
    EXPECT_TRUE(client.Connect(LOOPBACK, listener.GetLocalPort()));
    EXPECT_TRUE(fault.IsUsedUp());
    server = Accept(listener);
    ASSERT_NE(server, nullptr);
    EXPECT_TRUE(SendAll(client, "made"));
    EXPECT_EQ(Receive(*server, 4), "made");
}

TEST_F(SocketFaultTest, Connect_AnyOtherFailureAtOnce_Error42AndClosed)
{
    ASSERT_TRUE(listener.ListenSpecific(0, LOOPBACK));
    for (const int error : {EAGAIN, ENETUNREACH, EACCES}) {
        const SocketFault fault(SocketFault::CONNECT, error);
        EXPECT_FALSE(client.Connect(LOOPBACK, listener.GetLocalPort())) << error;
        ExpectClosed(client, 42);
    }
}

TEST_F(SocketFaultTest, Recv_WaitingFails_Error48AndLenZero)
{
    Connect();
    client.SetBlockTime(5);
    char byte = 0;
    unsigned long len = 1;
    {
        const SocketFault fault(SocketFault::WAIT, ENOMEM);
        EXPECT_FALSE(client.Recv(&byte, len));
    }
    EXPECT_EQ(len, 0U);
    ExpectClosed(client, 48);
}

TEST_F(SocketFaultTest, Send_WaitingFails_Error48AndLenZero)
{
    Connect();
    client.SetBlockTime(5);
    char byte = 0;
    unsigned long len = 1;
    {
        const SocketFault noRoom(SocketFault::SEND, EAGAIN);
        const SocketFault fault(SocketFault::WAIT, ENOMEM);
        EXPECT_FALSE(client.Send(&byte, len));
    }
    EXPECT_EQ(len, 0U);
    ExpectClosed(client, 48);
}

class DatagramFaultTest : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_peer.IsOpen());
        Open();
    }
    void Open()
    {
        ASSERT_TRUE(m_client.OpenClient(LOOPBACK, LocalPort(m_peer)));
        m_client.SetBlockTime(5000);
    }
    /// One step of the client fails; how it says so.
    void ExpectFails(bool sending, unsigned long lenAfter, int code)
    {
        unsigned long len = sizeof(m_bytes);
        EXPECT_FALSE(sending ? m_client.SendClient(m_bytes, len) : m_client.RecvClient(m_bytes, len));
        EXPECT_EQ(len, lenAfter);
        EXPECT_EQ(m_client.GetLastError(), code);
        EXPECT_FALSE(m_client.IsOpen());
    }

    OwnedSocket m_peer = MakeDatagramSocket();
    NetUDP m_client{NetIP::LOOKUP_ANY};
    unsigned char m_bytes[10] = {};
};

TEST_F(DatagramFaultTest, SendAndRecv_WaitingFails_Error48AndLenUnchangedKeptOnPurpose)
{
    for (const bool sending : {true, false}) {
        ASSERT_NO_FATAL_FAILURE(Open());
        const SocketFault fault(SocketFault::WAIT, ENOMEM);
        ExpectFails(sending, sizeof(m_bytes), 48);
        EXPECT_TRUE(fault.IsUsedUp());
    }
}

// Something came before, so that more is likely at hand: the wait comes first all the same.
TEST_F(DatagramFaultTest, Recv_WaitingFailsAfterADatagram_NoDatagramIsTriedFirst)
{
    ASSERT_EQ(platform::ConnectSocket(m_peer.Get(), Loopback(m_client.GetLocalPort())), platform::IoResult::DONE);
    ASSERT_TRUE(SendAll(m_peer, "one"));
    unsigned long len = sizeof(m_bytes);
    ASSERT_TRUE(m_client.RecvClient(m_bytes, len));
    ASSERT_EQ(len, 3U);
    ASSERT_TRUE(SendAll(m_peer, "two"));
    const SocketFault fault(SocketFault::WAIT, ENOMEM);
    ExpectFails(false, sizeof(m_bytes), 48);
}

TEST_F(DatagramFaultTest, SendAndRecv_ResetByThePeerIs49_EveryOtherFailure48)
{
    for (const bool sending : {true, false}) {
        for (const auto& [error, code] : {std::pair(ECONNRESET, 49),
                                          {ECONNREFUSED, 49},
                                          {ENETRESET, 48},
                                          {ECONNABORTED, 48},
                                          {EPIPE, 48},
                                          {EHOSTUNREACH, 48},
                                          {ENOMEM, 48}})
        {
            SCOPED_TRACE(error);
            ASSERT_NO_FATAL_FAILURE(Open());
            // So that there is something to read.
            ASSERT_EQ(platform::ConnectSocket(m_peer.Get(), Loopback(m_client.GetLocalPort())),
                      platform::IoResult::DONE);
            ASSERT_TRUE(SendAll(m_peer, "x"));
            const SocketFault fault(sending ? SocketFault::SEND : SocketFault::RECEIVE, error);
            ExpectFails(sending, 0, code);
            EXPECT_TRUE(fault.IsUsedUp());
        }
    }
}

class ServiceFaultTest : public ServiceFixture
{
};

TEST_F(ServiceFaultTest, StartListen_ListenerHadFailed_OpenedAnew)
{
    const USHORT port = FreePort();
    const std::string place = "127.0.0.1:" + std::to_string(port);
    Init(place);
    ASSERT_EQ(Listen(), port);
    m_log.Clear();
    {
        const SocketFault fault(SocketFault::ACCEPT, EINVAL);
        TestClient client(port); // makes the listener thread accept
        ASSERT_TRUE(WaitFor([&] { return fault.IsUsedUp(); }));
    }
    ASSERT_TRUE(WaitFor([&] { return !m_service->GetIsListening(); })) << "a dead one is not listed";
    EXPECT_FALSE(TestClient(port).IsConnected());
    EXPECT_EQ(Listen(), port);
    EXPECT_THAT(m_log.GetServiceTexts(),
                testing::ElementsAre("Close Listening Port|0.0.0.0:0|", "Open Listening Port Success|" + place + "|"));
    EXPECT_TRUE(TestClient(port).Talk("hello"));
}

TEST_F(ServiceFaultTest, OneListenerFails_TheOthersGoOn)
{
    m_service->SetLogLosses(true);
    Start("127.0.0.1:0,127.0.0.1:0");
    const std::vector<USHORT> ports = GetPorts();
    ASSERT_EQ(ports.size(), 2U);
    m_log.Clear();
    {
        const SocketFault fault(SocketFault::ACCEPT, EINVAL);
        TestClient client(ports[0]);
        ASSERT_TRUE(WaitFor([&] { return fault.IsUsedUp(); }));
    }
    ASSERT_TRUE(WaitFor([&] { return !TestClient(ports[0]).IsConnected() || !TestClient(ports[1]).IsConnected(); }));
    const bool firstFailed = !TestClient(ports[0]).IsConnected();
    ASSERT_TRUE(WaitFor([this] { return GetPorts().size() == 1; })) << "the dead one is not listed";
    EXPECT_THAT(GetPorts(), testing::ElementsAre(ports[firstFailed ? 1 : 0]));
    EXPECT_TRUE(m_service->GetIsListening());
    EXPECT_THAT(m_log.GetServiceTexts(), testing::ElementsAre("Listening Port Lost|127.0.0.1:" +
                                                              std::to_string(ports[firstFailed ? 0 : 1]) + "|"));
    NetTCPService::LOSSES losses;
    m_service->GetLosses(losses);
    EXPECT_EQ(losses.listenersLost, 1U);
    for (int round = 0; round < 3; ++round)
        EXPECT_TRUE(TestClient(ports[firstFailed ? 1 : 0]).Talk("hello"));
}

TEST_F(ServiceFaultTest, StartListen_OptionsWithABacklog_TheSystemIsAskedForIt)
{
    Start();
    EXPECT_EQ(SocketFault::sGetLastBacklog(), 5);
    NetServiceOptions options;
    ASSERT_TRUE(options.SetBacklog(128));
    m_service->SetOptions(options);
    EXPECT_EQ(SocketFault::sGetLastBacklog(), 5) << "an open port keeps its own";
    m_service->StopListen();
    Listen();
    EXPECT_EQ(SocketFault::sGetLastBacklog(), 128);
    m_service->SetOptions(NetServiceOptions());
    m_service->StopListen();
    Listen();
    EXPECT_EQ(SocketFault::sGetLastBacklog(), 5);
}

} // namespace
} // namespace kqlib::test
