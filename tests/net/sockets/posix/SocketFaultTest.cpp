// What the sockets and the service make of failures of the system that only come when they are made.
#include "tests/net/sockets/posix/SocketFault.h"

#include "net/sockets/NetUDP.h"
#include "tests/net/service/ServiceFixture.h"
#include "tests/net/sockets/TestTCP.h"

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
    for (const int error : {ECONNABORTED, EPROTO, ENETDOWN, EHOSTUNREACH, EMFILE, ENFILE, ENOBUFS, ENOMEM}) {
        const SocketFault fault(SocketFault::ACCEPT, error);
        EXPECT_EQ(listener.Accept(), nullptr);
        EXPECT_EQ(listener.GetLastError(), 46) << error;
        EXPECT_TRUE(listener.IsListening()) << error;
    }
    EXPECT_NE(Accept(listener), nullptr);
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
    EXPECT_THAT(GetPorts(), testing::ElementsAre(ports[firstFailed ? 1 : 0])) << "the dead one is not listed";
    EXPECT_TRUE(m_service->GetIsListening());
    EXPECT_THAT(m_log.GetServiceTexts(), testing::ElementsAre("Listening Port Lost|127.0.0.1:" +
                                                              std::to_string(ports[firstFailed ? 0 : 1]) + "|"));
    NetTCPService::LOSSES losses;
    m_service->GetLosses(losses);
    EXPECT_EQ(losses.listenersLost, 1U);
    for (int round = 0; round < 3; ++round)
        EXPECT_TRUE(TestClient(ports[firstFailed ? 1 : 0]).Talk("hello"));
}

} // namespace
} // namespace kqlib::test
