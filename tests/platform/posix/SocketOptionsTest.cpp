// What the POSIX half sets on sockets and no call of the contract shows.
#include "platform/Sockets.h"

#include "tests/peers/WaitFor.h"

#include <gtest/gtest.h>

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

namespace kqlib::platform {
namespace {

bool SendsAtOnce(SocketHandle handle)
{
    int value = 0;
    socklen_t size = sizeof value;
    return getsockopt(static_cast<int>(handle), IPPROTO_TCP, TCP_NODELAY, &value, &size) == 0 && value != 0;
}

TEST(SocketOptions, StreamSockets_OutgoingAndAccepted_SendSmallPiecesAtOnce)
{
    ASSERT_TRUE(StartSockets());
    Endpoint place;
    place.bytes[0] = 127;
    place.bytes[3] = 1;
    const SocketHandle listener = OpenSocket(true, Family::IP4);
    ASSERT_TRUE(BindSocket(listener, place, true) && ListenSocket(listener, 5) && GetLocalEndpointIP4(listener, place));
    const SocketHandle client = OpenSocket(true, Family::IP4);
    ConnectSocket(client, place);
    SocketHandle accepted = INVALID_SOCKET_HANDLE;
    ASSERT_TRUE(WaitFor([&] { return AcceptSocket(listener, accepted) == IoResult::DONE; }));
    EXPECT_TRUE(SendsAtOnce(client));
    EXPECT_TRUE(SendsAtOnce(accepted));
    for (const SocketHandle handle : {listener, client, accepted})
        CloseSocket(handle);
    EndSockets();
}

} // namespace
} // namespace kqlib::platform
