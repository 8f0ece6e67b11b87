// The time of trying before a receive waits, seen in the calls to the system that are made.
#include "tests/net/sockets/posix/SocketFault.h"

#include "tests/net/sockets/TestTCP.h"
#include "tests/net/sockets/tls/TLSFixture.h"

#include <cerrno>

namespace kqlib::test {
namespace {

/// What one receive came to.
struct OUTCOME
{
    std::string received;
    bool hasWaited;
};

OUTCOME ReceiveOnce(NetTCP& socket)
{
    const SocketFault wait(SocketFault::WAIT, EINTR); // which only repeats the wait, and shows that there was one
    std::string bytes(64, '\0');
    unsigned long len = bytes.size();
    EXPECT_TRUE(socket.Recv(bytes.data(), len));
    bytes.resize(len);
    return {bytes, wait.IsUsedUp()};
}

/// Lets one receive bring bytes and gives the next one more of them, which its first three attempts do not find.
OUTCOME ReceiveAfterEmptyAttempts(NetTCP& from, NetTCP& to)
{
    EXPECT_TRUE(HalfTLSPeer::sSendAll(from, "a"));
    EXPECT_TRUE(WaitFor([&] { return ReceiveOnce(to).received == "a"; }));
    EXPECT_TRUE(HalfTLSPeer::sSendAll(from, "b"));
    OUTCOME outcome;
    {
        const SocketFault attempts(SocketFault::RECEIVE, EAGAIN, 3);
        outcome = ReceiveOnce(to);
    }
    EXPECT_TRUE(outcome.received == "b" || WaitFor([&] { return ReceiveOnce(to).received == "b"; }));
    return outcome;
}

/// Whether such a receive tries on until it has the bytes, without a wait. On a busy machine the time of trying may be
/// over after one attempt, so it has some turns.
bool TriesOn(NetTCP& from, NetTCP& to)
{
    return WaitFor([&] {
        const OUTCOME outcome = ReceiveAfterEmptyAttempts(from, to);
        return outcome.received == "b" && !outcome.hasWaited;
    });
}

/// Whether a receive that comes to nothing in time has made an attempt all the same.
bool AttemptsWhileIdle(NetTCP& socket)
{
    EXPECT_TRUE(WaitFor([&] { return ReceiveOnce(socket).hasWaited; })) << "nothing comes any more";
    const SocketFault attempt(SocketFault::RECEIVE, EAGAIN);
    const OUTCOME outcome = ReceiveOnce(socket);
    EXPECT_TRUE(outcome.received.empty());
    EXPECT_TRUE(outcome.hasWaited);
    return attempt.IsUsedUp();
}

class TryTimeTest : public NetSocketFixture
{
protected:
    void SetUp() override
    {
        NetSocketFixture::SetUp();
        Connect();
        client.SetBlockTime(5);
        server->SetBlockTime(5);
    }
};

TEST_F(TryTimeTest, Recv_NothingAtFirst_TriesAgainInsteadOfWaiting)
{
    ASSERT_TRUE(server->SetTryTime(NetSocket::MAX_TRY_MICROS));
    EXPECT_TRUE(TriesOn(client, *server));
}

TEST_F(TryTimeTest, Recv_NoTimeOfTrying_WaitsAfterOneAttempt)
{
    const OUTCOME outcome = ReceiveAfterEmptyAttempts(client, *server);
    EXPECT_TRUE(outcome.hasWaited);
    EXPECT_TRUE(outcome.received.empty());
}

TEST_F(TryTimeTest, Recv_IdleConnection_WaitsWithoutAnAttempt)
{
    ASSERT_TRUE(server->SetTryTime(NetSocket::MAX_TRY_MICROS));
    EXPECT_FALSE(AttemptsWhileIdle(*server));
}

TEST_F(TryTimeTest, Recv_BlockTimeZero_OneAttempt)
{
    ASSERT_TRUE(server->SetTryTime(NetSocket::MAX_TRY_MICROS));
    server->SetBlockTime(0);
    const OUTCOME outcome = ReceiveAfterEmptyAttempts(client, *server);
    EXPECT_FALSE(outcome.hasWaited);
    EXPECT_TRUE(outcome.received.empty());
}

TEST_F(TryTimeTest, Recv_TimeOfTryingOver_Waits)
{
    ASSERT_TRUE(server->SetTryTime(1));
    const SocketFault attempts(SocketFault::RECEIVE, EAGAIN, 1000000);
    const OUTCOME outcome = ReceiveOnce(*server);
    EXPECT_TRUE(outcome.hasWaited);
    EXPECT_TRUE(outcome.received.empty());
    EXPECT_FALSE(attempts.IsUsedUp());
}

TEST_F(TryTimeTest, Recv_ConnectionEndsWhileItTries_FalseAtOnce)
{
    ASSERT_TRUE(server->SetTryTime(NetSocket::MAX_TRY_MICROS));
    client.Close();
    const SocketFault attempts(SocketFault::RECEIVE, EAGAIN, 1);
    EXPECT_TRUE(ReceiveEnd(*server));
    EXPECT_EQ(server->GetLastError(), NetSocket::ERR_IO);
    EXPECT_EQ(server->GetPeerEnd(), NetTCP::PE_IN_ORDER);
}

TEST_F(TryTimeTest, Send_NoRoomAtFirst_WaitsAfterOneAttempt)
{
    ASSERT_TRUE(server->SetTryTime(NetSocket::MAX_TRY_MICROS));
    const SocketFault attempt(SocketFault::SEND, EAGAIN);
    const SocketFault wait(SocketFault::WAIT, EINTR);
    unsigned long len = 1;
    EXPECT_TRUE(server->Send("x", len));
    EXPECT_EQ(len, 1U);
    EXPECT_TRUE(wait.IsUsedUp());
}

class TryTimeTLSTest : public TLSFixture
{
protected:
    void SetUp() override
    {
        TLSFixture::SetUp();
        Secure();
        m_client.SetBlockTime(5);
        m_server.SetBlockTime(5);
    }
};

TEST_F(TryTimeTLSTest, Recv_NothingAtFirst_TriesAgainInsteadOfWaiting)
{
    ASSERT_TRUE(m_server.SetTryTime(NetSocket::MAX_TRY_MICROS));
    EXPECT_TRUE(TriesOn(m_client, m_server));
    ExpectTalk(m_client, m_server);
}

TEST_F(TryTimeTLSTest, Recv_NoTimeOfTrying_WaitsAfterOneAttempt)
{
    const OUTCOME outcome = ReceiveAfterEmptyAttempts(m_client, m_server);
    EXPECT_TRUE(outcome.hasWaited);
    EXPECT_TRUE(outcome.received.empty());
}

TEST_F(TryTimeTLSTest, Recv_IdleConnection_WaitsWithoutAnAttempt)
{
    ASSERT_TRUE(m_server.SetTryTime(NetSocket::MAX_TRY_MICROS));
    EXPECT_FALSE(AttemptsWhileIdle(m_server));
}

} // namespace
} // namespace kqlib::test
