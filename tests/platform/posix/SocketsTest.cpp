#include "platform/Sockets.h"

#include "platform/Clock.h"
#include "tests/peers/Sockets.h"
#include "tests/peers/posix/DescriptorShortage.h"

#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>
#include <thread>
#include <vector>

using namespace kqlib::platform;
using namespace kqlib::test;

namespace {

int ToDescriptor(const OwnedSocket& socket)
{
    return static_cast<int>(socket.Get());
}

/// Lets a signal interrupt the calls of the thread that made it, again and again.
class Interrupter
{
public:
    Interrupter()
    {
        struct sigaction action = {};
        action.sa_handler = [](int) {}; // without SA_RESTART
        sigaction(SIGUSR1, &action, &m_before);
        m_thread = std::thread([this, target = pthread_self()] {
            while (!m_end) {
                pthread_kill(target, SIGUSR1);
                m_count++;
                SleepMs(1);
            }
        });
    }
    ~Interrupter()
    {
        m_end = true;
        m_thread.join();
        sigaction(SIGUSR1, &m_before, nullptr);
    }
    unsigned GetCount() const { return m_count; }

private:
    struct sigaction m_before = {};
    std::atomic<bool> m_end = false;
    std::atomic<unsigned> m_count = 0;
    std::thread m_thread;
};

} // namespace

TEST(PosixSocketsTest, WaitSocket_InterruptedBySignals_GoesOnForTheRestOfItsTime)
{
    const OwnedSocket listener = MakeListener();
    const Interrupter interrupter;
    const std::uint32_t start = TickMs();
    EXPECT_EQ(WaitSocket(listener.Get(), true, 200), WaitResult::TIMED_OUT);
    const std::uint32_t passed = TickMs() - start;
    EXPECT_GE(passed + 1, 200U);
    EXPECT_LT(passed, 10000U);
    EXPECT_GT(interrupter.GetCount(), 3U);
}

TEST(PosixSocketsTest, Transfer_InterruptedBySignals_NothingLost)
{
    const OwnedSocket listener = MakeListener();
    const OwnedSocket client = ConnectTo(LocalPort(listener));
    const OwnedSocket server = AcceptFrom(listener);
    const std::string bytes(4'000'000, 'x');
    std::thread sender([&] { SendAll(client, bytes); });
    const Interrupter interrupter;
    std::string received;
    while (received.size() < bytes.size()) {
        ASSERT_EQ(WaitSocket(server.Get(), true, 5000), WaitResult::READY);
        unsigned char buffer[10000];
        std::size_t size = sizeof(buffer);
        ASSERT_EQ(RecvSocket(server.Get(), buffer, size), IoResult::DONE);
        received.append(reinterpret_cast<const char*>(buffer), size);
    }
    sender.join();
    EXPECT_TRUE(received == bytes);
}

TEST(PosixSocketsTest, RecvSocket_PeerReset_Reset)
{
    const OwnedSocket listener = MakeListener();
    OwnedSocket client = ConnectTo(LocalPort(listener));
    const OwnedSocket server = AcceptFrom(listener);
    client.Abort();
    ASSERT_EQ(WaitSocket(server.Get(), true, 5000), WaitResult::READY);
    unsigned char byte;
    std::size_t size = 1;
    EXPECT_EQ(RecvSocket(server.Get(), &byte, size), IoResult::RESET);
}

/// A connection that was made and broken off by its other end before anybody asked; inOrderFirst: the other end first
/// ended its direction in order. What asking gives.
static IoResult PollBrokenConnection(bool inOrderFirst)
{
    const OwnedSocket listener = MakeListener();
    const OwnedSocket client(OpenSocket(true, Family::IP4));
    EXPECT_TRUE(BindSocket(client.Get(), Loopback(0), false));
    EXPECT_NE(ConnectSocket(client.Get(), Loopback(LocalPort(listener))), IoResult::FAILED);
    OwnedSocket server = AcceptFrom(listener);
    EXPECT_TRUE(server.IsOpen());
    if (inOrderFirst) {
        shutdown(ToDescriptor(server), SHUT_WR);
        EXPECT_EQ(WaitSocket(client.Get(), true, 5000), WaitResult::READY);
    }
    server.Abort();
    pollfd hangUp = {ToDescriptor(client), 0, 0};
    EXPECT_TRUE(WaitFor([&] { return poll(&hangUp, 1, 0) == 1 && (hangUp.revents & POLLERR) != 0; }));
    return PollConnect(client.Get(), 1000);
}

// The connection was made: that it is gone is for the next receive to tell.
TEST(PosixSocketsTest, PollConnect_BrokenOffBeforeItWasAsked_Done)
{
    EXPECT_EQ(PollBrokenConnection(false), IoResult::DONE);
    EXPECT_EQ(PollBrokenConnection(true), IoResult::DONE);
}

TEST(PosixSocketsTest, OpenAndAccept_HandlesAreNotInherited)
{
    const OwnedSocket listener = MakeListener();
    const OwnedSocket client = ConnectTo(LocalPort(listener));
    const OwnedSocket server = AcceptFrom(listener);
    for (const OwnedSocket* socket : {&listener, &client, &server}) {
        EXPECT_NE(fcntl(ToDescriptor(*socket), F_GETFD) & FD_CLOEXEC, 0);
        EXPECT_NE(fcntl(ToDescriptor(*socket), F_GETFL) & O_NONBLOCK, 0);
    }
}

TEST(PosixSocketsTest, StartSockets_SignalDispositionsUntouched)
{
    ASSERT_TRUE(StartSockets());
    struct sigaction current = {};
    sigaction(SIGPIPE, nullptr, &current);
    EXPECT_EQ(current.sa_handler, SIG_DFL);
    EndSockets();
}

TEST(PosixSocketsTest, AcceptSocket_NoDescriptorsLeft_WouldBlockAfterAPauseAndServesLater)
{
    const OwnedSocket listener = MakeListener();
    const OwnedSocket client = ConnectTo(LocalPort(listener));
    ASSERT_EQ(WaitSocket(listener.Get(), true, 5000), WaitResult::READY);
    SocketHandle handle = INVALID_SOCKET_HANDLE;
    {
        const DescriptorShortage shortage;
        ASSERT_TRUE(shortage.IsApplied());
        const std::uint32_t start = TickMs();
        EXPECT_EQ(AcceptSocket(listener.Get(), handle), IoResult::WOULD_BLOCK);
        EXPECT_GE(TickMs() - start + 1, 2U);
        EXPECT_EQ(OpenSocket(true, Family::IP4), INVALID_SOCKET_HANDLE);
    }
    EXPECT_TRUE(AcceptFrom(listener).IsOpen());
}

TEST(PosixSocketsTest, BindSocket_OutgoingPortZero_LeavesTheChoiceToConnect)
{
    const OwnedSocket socket(OpenSocket(true, Family::IP4));
    ASSERT_TRUE(BindSocket(socket.Get(), Loopback(0), false));
    Endpoint end;
    ASSERT_TRUE(GetLocalEndpointIP4(socket.Get(), end));
    EXPECT_EQ(end.port, 0);
}

TEST(PosixSocketsTest, ListenSocket_AnotherBoundSocketListensFirst_False)
{
    const OwnedSocket first(OpenSocket(true, Family::IP4));
    ASSERT_TRUE(BindSocket(first.Get(), Loopback(0), true));
    const OwnedSocket second(OpenSocket(true, Family::IP4));
    ASSERT_TRUE(BindSocket(second.Get(), Loopback(LocalPort(first)), true)); // neither listens yet
    EXPECT_TRUE(ListenSocket(second.Get(), 5));
    EXPECT_FALSE(ListenSocket(first.Get(), 5));
}

TEST(PosixSocketsTest, NativeAddresses_RoundTrip_EveryFieldInItsPlace)
{
    sockaddr_in four;
    std::memset(&four, 0xEE, sizeof(four));
    ToNative(Loopback(0x1234, 7), four);
    EXPECT_EQ(four.sin_family, AF_INET);
    EXPECT_EQ(ntohs(four.sin_port), 0x1234);
    EXPECT_EQ(ntohl(four.sin_addr.s_addr), 0x7F000007U);
    const char zeros[sizeof(four.sin_zero)] = {};
    EXPECT_EQ(std::memcmp(four.sin_zero, zeros, sizeof(zeros)), 0);
    EXPECT_EQ(FromNative(four).port, 0x1234);
    EXPECT_EQ(FromNative(four).bytes[3], 7);

    Endpoint end;
    end.family = Family::IP6;
    end.port = 0xFEDC;
    for (unsigned char i = 0; i < 16; i++)
        end.bytes[i] = static_cast<unsigned char>(i + 1);
    sockaddr_in6 six;
    std::memset(&six, 0xEE, sizeof(six));
    ToNative(end, six);
    EXPECT_EQ(six.sin6_family, AF_INET6);
    EXPECT_EQ(six.sin6_flowinfo, 0U);
    EXPECT_EQ(six.sin6_scope_id, 0U);
    EXPECT_EQ(FromNative(six).port, 0xFEDC);
    EXPECT_EQ(FromNative(six).family, Family::IP6);
    EXPECT_EQ(std::memcmp(FromNative(six).bytes, end.bytes, 16), 0);
}
