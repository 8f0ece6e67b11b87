// What kqftpd tells of failures of the system that nobody asks about.
#include "net/sockets/NetTCP.h"
#include "tests/hosts/ftp/FtpServerFixture.h"
#include "tests/net/sockets/posix/SocketFault.h"

#include <cerrno>

namespace kqlib::test {
namespace {

using FtpServerFaultTest = FtpServerFixture;

TEST_F(FtpServerFaultTest, ListeningSocket_Fails_Logged)
{
    Start();
    {
        const SocketFault fault(SocketFault::ACCEPT, EINVAL);
        NetTCP client(NetIP::LOOKUP_ANY);
        client.Connect(NetIP(String("127.0.0.1")), m_port); // makes the listener thread accept
        ASSERT_TRUE(WaitFor([&] { return fault.IsUsedUp(); }));
    }
    EXPECT_TRUE(WaitFor([this] { return HasEvent("Listening Port Lost"); }));
}

} // namespace
} // namespace kqlib::test
