// What only the system shows of the sockets' work.
#include "tests/net/sockets/TestTCP.h"

#include "platform/Sockets.h"
#include "tests/peers/Sockets.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

namespace kqlib::test {
namespace {

const NetIP LOOPBACK("127.0.0.1");

using SocketStateTest = NetSocketFixture;

/// A second descriptor of the same socket: closing the first alone ends nothing then.
OwnedSocket Duplicate(const TestTCP& socket)
{
    return OwnedSocket(
        static_cast<platform::SocketHandle>(fcntl(static_cast<int>(socket.xGetHandle()), F_DUPFD_CLOEXEC, 0)));
}

TEST_F(SocketStateTest, ShutdownAndClose_HandleHeldElsewhereToo_PeerSeesTheEndAtOnce)
{
    Connect();
    const OwnedSocket held = Duplicate(client);
    ASSERT_TRUE(held.IsOpen());
    client.ShutdownAndClose();
    EXPECT_TRUE(ReceiveEnd(*server));
    EXPECT_EQ(server->GetLastError(), 48);
}

TEST_F(SocketStateTest, Close_HandleHeldElsewhereToo_ConnectionGoesOn)
{
    Connect();
    const OwnedSocket held = Duplicate(client);
    ASSERT_TRUE(held.IsOpen());
    client.Close();
    ASSERT_TRUE(test::SendAll(held, "still"));
    EXPECT_EQ(Receive(*server, 5), "still");
}

// The system tells the backlog of a listener where it tells, for a connection, what was acknowledged.
unsigned GetSystemsBacklog(const TestTCP& listener)
{
    tcp_info info = {};
    socklen_t size = sizeof info;
    EXPECT_EQ(getsockopt(static_cast<int>(listener.xGetHandle()), IPPROTO_TCP, TCP_INFO, &info, &size), 0);
    return info.tcpi_sacked;
}

TEST_F(SocketStateTest, Listen_EveryForm_BacklogOf5)
{
    ASSERT_TRUE(listener.ListenSpecific(0, LOOPBACK));
    EXPECT_EQ(GetSystemsBacklog(listener), 5U);
    ASSERT_TRUE(listener.ListenAll(0));
    EXPECT_EQ(GetSystemsBacklog(listener), 5U);
    ASSERT_TRUE(listener.ListenSpecific(0, String("127.0.0.1")));
    EXPECT_EQ(GetSystemsBacklog(listener), 5U);
}

TEST_F(SocketStateTest, SetBacklog_ThenListen_TheSystemHasIt)
{
    ASSERT_TRUE(listener.ListenAll(0));
    listener.SetBacklog(77);
    EXPECT_EQ(listener.GetBacklog(), 77U);
    EXPECT_EQ(GetSystemsBacklog(listener), 5U) << "the one that listens already keeps its own";
    ASSERT_TRUE(listener.ListenSpecific(0, LOOPBACK));
    EXPECT_EQ(GetSystemsBacklog(listener), 77U);
    listener.Close();
    ASSERT_TRUE(listener.ListenAll(0));
    EXPECT_EQ(GetSystemsBacklog(listener), 77U) << "it stays the object's";
}

} // namespace
} // namespace kqlib::test
