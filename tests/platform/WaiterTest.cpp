#include "platform/Waiter.h"

#include "platform/Clock.h"
#include "tests/peers/Sockets.h"
#include "tests/peers/WaitFor.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

using namespace kqlib::platform;
using namespace kqlib::test;

namespace {

constexpr std::uint32_t LONG_MS = 60000;     // a wait that is to end by something else
constexpr std::uint32_t CLOCK_GRAIN_MS = 20; // how much earlier than asked a coarse clock may let a wait end

class WaiterTest : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(StartSockets());
        m_listener = MakeListener(0, 128);
        xConnect(m_client, m_server);
    }
    void TearDown() override
    {
        m_client.Close();
        m_server.Close();
        m_listener.Close();
        EndSockets();
    }

    void xConnect(OwnedSocket& client, OwnedSocket& server) const
    {
        client = ConnectTo(LocalPort(m_listener));
        server = AcceptFrom(m_listener);
        ASSERT_TRUE(client.IsOpen() && server.IsOpen());
    }
    /// Runs the action on another thread once the wait is under way, as far as that can be told from outside: a while
    /// after the thread has said that it begins.
    template <class ACTION> std::thread xDuringWait(ACTION action)
    {
        return std::thread([this, action] {
            EXPECT_TRUE(WaitFor([this] { return m_begins.load(); }));
            SleepMs(20);
            action();
        });
    }
    WaitResult xWait(const OwnedSocket& socket, bool forRead, std::uint32_t waitMs = LONG_MS)
    {
        m_begins = true;
        return m_waiter.Wait(socket.Get(), forRead, waitMs, m_woken);
    }
    /// Sends until nothing more is taken.
    static void xFill(const OwnedSocket& socket)
    {
        const std::vector<unsigned char> bytes(65536, 'x');
        WaitFor([&] {
            std::size_t size = bytes.size();
            while (SendSocket(socket.Get(), bytes.data(), size) == IoResult::DONE)
                size = bytes.size();
            return WaitSocket(socket.Get(), false, 50) == WaitResult::TIMED_OUT;
        });
    }
    /// Receives what has come until nothing more comes.
    static void xDrain(const OwnedSocket& socket)
    {
        std::vector<unsigned char> buffer(65536);
        std::size_t size = buffer.size();
        while (WaitSocket(socket.Get(), true, 50) == WaitResult::READY &&
               RecvSocket(socket.Get(), buffer.data(), size) == IoResult::DONE)
            size = buffer.size();
    }

    OwnedSocket m_listener, m_client, m_server;
    Waiter m_waiter;
    bool m_woken = false;
    std::atomic<bool> m_begins{false};
};

} // namespace

// --- the wake-up

TEST_F(WaiterTest, Wake_BeforeTheWait_EndsItAtOnceAndIsTaken)
{
    m_waiter.Wake();
    EXPECT_EQ(m_waiter.Wait(LONG_MS, m_woken), WaitResult::READY);
    EXPECT_TRUE(m_woken);
    EXPECT_EQ(m_waiter.Wait(0, m_woken), WaitResult::TIMED_OUT);
    EXPECT_FALSE(m_woken);
}

TEST_F(WaiterTest, Wake_SeveralTimesBeforeTheWait_CountAsOne)
{
    for (int count = 0; count < 1000; ++count)
        m_waiter.Wake();
    EXPECT_EQ(m_waiter.Wait(LONG_MS, m_woken), WaitResult::READY);
    EXPECT_TRUE(m_woken);
    EXPECT_EQ(m_waiter.Wait(1, m_woken), WaitResult::TIMED_OUT);
    EXPECT_FALSE(m_woken);
}

TEST_F(WaiterTest, Wake_DuringTheWait_EndsIt)
{
    std::thread waker = xDuringWait([this] { m_waiter.Wake(); });
    m_begins = true;
    EXPECT_EQ(m_waiter.Wait(Waiter::FOREVER, m_woken), WaitResult::READY);
    EXPECT_TRUE(m_woken);
    waker.join();
}

TEST_F(WaiterTest, Wake_DuringTheWaitForASocket_EndsItAndTheSocketIsNotReady)
{
    for (const bool forRead : {true, false}) {
        if (!forRead)
            xFill(m_client);
        m_begins = false;
        std::thread waker = xDuringWait([this] { m_waiter.Wake(); });
        EXPECT_EQ(xWait(m_client, forRead, Waiter::FOREVER), WaitResult::READY);
        EXPECT_TRUE(m_woken);
        waker.join();
        EXPECT_EQ(xWait(m_client, forRead, 0), WaitResult::TIMED_OUT);
        EXPECT_FALSE(m_woken);
    }
}

TEST_F(WaiterTest, Wake_AndTheSocketIsReady_BothAreTold)
{
    ASSERT_TRUE(SendAll(m_server, "x"));
    ASSERT_EQ(WaitSocket(m_client.Get(), true, LONG_MS), WaitResult::READY);
    m_waiter.Wake();
    WaitedSocket socket;
    socket.handle = m_client.Get();
    EXPECT_EQ(m_waiter.Wait(&socket, 1, LONG_MS, m_woken), WaitResult::READY);
    EXPECT_TRUE(m_woken);
    EXPECT_EQ(socket.result, WaitResult::READY);
}

// Each wake-up of two threads that answer each other must arrive: one that is lost stops both.
TEST_F(WaiterTest, Wake_TwoThreadsAnswerEachOther_NoneIsLost)
{
    constexpr int ROUNDS = 20000;
    Waiter other;
    std::atomic<bool> failed{false};
    std::thread answerer([&] {
        for (int round = 0; round < ROUNDS && !failed; ++round) {
            bool woken = false;
            if (other.Wait(LONG_MS, woken) != WaitResult::READY || !woken)
                failed = true;
            m_waiter.Wake();
        }
    });
    int round = 0;
    for (; round < ROUNDS && !failed; ++round) {
        other.Wake();
        if (m_waiter.Wait(LONG_MS, m_woken) != WaitResult::READY || !m_woken)
            failed = true;
    }
    answerer.join();
    EXPECT_FALSE(failed) << round;
}

// The waker watches for the moment at which the wait begins, and comes a little later each time.
TEST_F(WaiterTest, Wake_JustAsTheWaitBegins_NoneIsLost)
{
    constexpr std::uint32_t ROUNDS = 100000;
    constexpr std::uint32_t LATEST = 64; // passes of an empty loop
    constexpr std::uint32_t PATIENCE = 2000;
    std::atomic<std::uint32_t> begun{0};
    std::atomic<bool> failed{false};
    std::thread waker([&] {
        for (std::uint32_t round = 1; round <= ROUNDS && !failed; ++round) {
            for (std::uint32_t looks = 1; begun < round && !failed; ++looks)
                if (looks % PATIENCE == 0)
                    std::this_thread::yield();
            for (std::atomic<std::uint32_t> late{0}; late < round % LATEST; ++late)
                ;
            m_waiter.Wake();
        }
    });
    std::uint32_t round = 1;
    for (; round <= ROUNDS && !failed; ++round) {
        begun = round;
        if (m_waiter.Wait(LONG_MS, m_woken) != WaitResult::READY || !m_woken)
            failed = true;
    }
    waker.join();
    EXPECT_FALSE(failed) << round;
}

// Wake-ups that come whenever they like, at each point of a wait: after each one, what it told of must be seen. Now and
// then the waker stands still until it is, so that no later wake-up makes good for one that was lost.
TEST_F(WaiterTest, Wake_AMillionTimesAgainstWaits_NoneIsLost)
{
    constexpr std::uint32_t WAKES = 1000000;
    constexpr std::uint32_t STOP_EVERY = 64;
    std::atomic<std::uint32_t> told{0};
    std::atomic<std::uint32_t> seen{0};
    std::atomic<bool> failed{false};
    std::thread waiting([&] {
        while (seen < WAKES && !failed) {
            bool woken = false;
            if (m_waiter.Wait(m_server.Get(), true, LONG_MS, woken) != WaitResult::READY || !woken)
                failed = true;
            seen = told.load();
        }
    });
    for (std::uint32_t number = 1; number <= WAKES && !failed; ++number) {
        told = number;
        m_waiter.Wake();
        while (number % STOP_EVERY == 0 && seen < number && !failed)
            std::this_thread::yield();
    }
    waiting.join();
    EXPECT_FALSE(failed);
    EXPECT_EQ(seen, WAKES);
}

TEST_F(WaiterTest, Wake_ByManyThreads_EveryWordIsSeen)
{
    constexpr int THREADS = 8;
    constexpr int WORDS = 2000;
    std::atomic<int> told{0};
    std::vector<std::thread> wakers;
    for (int thread = 0; thread < THREADS; ++thread)
        wakers.emplace_back([&] {
            for (int word = 0; word < WORDS; ++word) {
                ++told;
                m_waiter.Wake();
            }
        });
    int seen = 0;
    while (seen < THREADS * WORDS) {
        ASSERT_EQ(m_waiter.Wait(LONG_MS, m_woken), WaitResult::READY);
        seen = told;
    }
    for (std::thread& waker : wakers)
        waker.join();
}

// --- the time

TEST_F(WaiterTest, Wait_NothingComes_EndsAfterTheTime)
{
    for (int kind = 0; kind < 3; ++kind) {
        const std::uint32_t start = TickMs();
        const WaitResult result = kind == 0 ? m_waiter.Wait(100, m_woken) : xWait(m_client, true, 100);
        EXPECT_EQ(result, WaitResult::TIMED_OUT);
        EXPECT_FALSE(m_woken);
        EXPECT_GE(TickMs() - start, 100U - CLOCK_GRAIN_MS);
    }
}

TEST_F(WaiterTest, Wait_ZeroTime_OnlyAsks)
{
    EXPECT_EQ(xWait(m_client, true, 0), WaitResult::TIMED_OUT);
    EXPECT_EQ(xWait(m_client, false, 0), WaitResult::READY);
    EXPECT_FALSE(m_woken);
}

// --- the sockets

TEST_F(WaiterTest, ForRead_BytesAreThere_AtOnceEachTimeUntilTheyAreTaken)
{
    ASSERT_TRUE(SendAll(m_server, "xy"));
    for (int count = 0; count < 3; ++count)
        EXPECT_EQ(xWait(m_client, true), WaitResult::READY);
    EXPECT_EQ(ReceiveBytes(m_client, 1).substr(0, 1), "x");
    xDrain(m_client);
    EXPECT_EQ(xWait(m_client, true, 0), WaitResult::TIMED_OUT);
    EXPECT_EQ(xWait(m_client, true, 50), WaitResult::TIMED_OUT);
}

TEST_F(WaiterTest, ForRead_BytesComeDuringTheWait_EndsIt)
{
    for (int round = 0; round < 3; ++round) {
        m_begins = false;
        std::thread sender = xDuringWait([this] { SendAll(m_server, "x"); });
        EXPECT_EQ(xWait(m_client, true, Waiter::FOREVER), WaitResult::READY);
        EXPECT_FALSE(m_woken);
        sender.join();
        EXPECT_EQ(ReceiveBytes(m_client, 1), "x");
    }
}

TEST_F(WaiterTest, ForRead_PeerEndsOrResetsDuringTheWait_EndsItAndStaysSo)
{
    std::thread closer = xDuringWait([this] { m_server.Close(); });
    EXPECT_EQ(xWait(m_client, true), WaitResult::READY);
    closer.join();
    for (int count = 0; count < 3; ++count)
        EXPECT_EQ(xWait(m_client, true), WaitResult::READY);

    xConnect(m_client, m_server);
    m_begins = false;
    std::thread aborter = xDuringWait([this] { m_server.Abort(); });
    EXPECT_EQ(xWait(m_client, true), WaitResult::READY);
    aborter.join();
    EXPECT_EQ(xWait(m_client, true), WaitResult::READY);
}

TEST_F(WaiterTest, ForRead_ConnectionComesDuringTheWait_ListenerIsReady)
{
    OwnedSocket client;
    std::thread connector = xDuringWait([&] { client = ConnectTo(LocalPort(m_listener)); });
    EXPECT_EQ(xWait(m_listener, true), WaitResult::READY);
    connector.join();
    const OwnedSocket accepted = AcceptFrom(m_listener);
    ASSERT_TRUE(accepted.IsOpen());
    // What was accepted has nothing of the listener's wait.
    EXPECT_EQ(xWait(accepted, true, 0), WaitResult::TIMED_OUT);
    EXPECT_EQ(xWait(accepted, false), WaitResult::READY);
}

TEST_F(WaiterTest, ForRead_DatagramComes_EndsIt)
{
    const OwnedSocket one = MakeDatagramSocket();
    const OwnedSocket two = MakeDatagramSocket();
    ASSERT_EQ(ConnectSocket(one.Get(), Loopback(LocalPort(two))), IoResult::DONE);
    std::thread sender = xDuringWait([&] { SendAll(one, "x"); });
    EXPECT_EQ(xWait(two, true), WaitResult::READY);
    sender.join();
}

TEST_F(WaiterTest, ForWrite_ThereIsRoom_AtOnceEachTime)
{
    for (int count = 0; count < 3; ++count)
        EXPECT_EQ(xWait(m_client, false), WaitResult::READY);
}

TEST_F(WaiterTest, ForWrite_RoomComesDuringTheWait_EndsIt)
{
    xFill(m_client);
    EXPECT_EQ(xWait(m_client, false, 0), WaitResult::TIMED_OUT);
    EXPECT_EQ(xWait(m_client, false, 50), WaitResult::TIMED_OUT);
    std::thread reader = xDuringWait([this] { xDrain(m_server); });
    EXPECT_EQ(xWait(m_client, false), WaitResult::READY);
    reader.join();
}

TEST_F(WaiterTest, ForWrite_ConnectionIsMadeOrRefused_EndsIt)
{
    OwnedSocket client(OpenSocket(true, Family::IP4));
    ConnectSocket(client.Get(), Loopback(LocalPort(m_listener)));
    EXPECT_EQ(xWait(client, false), WaitResult::READY);
    EXPECT_EQ(PollConnect(client.Get(), 0), IoResult::DONE);

    client = OwnedSocket(OpenSocket(true, Family::IP4));
    if (ConnectSocket(client.Get(), Loopback(UnservedPort())) == IoResult::IN_PROGRESS) {
        EXPECT_EQ(xWait(client, false), WaitResult::READY);
        EXPECT_EQ(PollConnect(client.Get(), 0), IoResult::REFUSED);
    }
}

TEST_F(WaiterTest, BothWays_OneIsReady_EndsIt)
{
    xFill(m_client);
    WaitedSocket socket;
    socket.handle = m_client.Get();
    socket.forWrite = true;
    EXPECT_EQ(m_waiter.Wait(&socket, 1, 0, m_woken), WaitResult::TIMED_OUT);
    ASSERT_TRUE(SendAll(m_server, "x"));
    EXPECT_EQ(m_waiter.Wait(&socket, 1, LONG_MS, m_woken), WaitResult::READY);
    EXPECT_EQ(socket.result, WaitResult::READY);
}

TEST_F(WaiterTest, Wait_NoHandle_FailedAtOnce)
{
    EXPECT_EQ(m_waiter.Wait(INVALID_SOCKET_HANDLE, true, LONG_MS, m_woken), WaitResult::FAILED);
    EXPECT_EQ(m_waiter.Wait(INVALID_SOCKET_HANDLE, false, 0, m_woken), WaitResult::FAILED);
    const SocketHandle closed = m_client.Get();
    m_client.Close();
    EXPECT_EQ(m_waiter.Wait(closed, true, LONG_MS, m_woken), WaitResult::FAILED);
}

TEST_F(WaiterTest, Wait_NoHandleAndAWakeUp_FailedAndWoken)
{
    m_waiter.Wake();
    EXPECT_EQ(m_waiter.Wait(INVALID_SOCKET_HANDLE, true, LONG_MS, m_woken), WaitResult::FAILED);
    EXPECT_TRUE(m_woken);
}

TEST_F(WaiterTest, SocketIsUsedElsewhereBetweenTheWaits_AsBefore)
{
    for (int round = 0; round < 10; ++round) {
        EXPECT_EQ(xWait(m_client, true, 1), WaitResult::TIMED_OUT);
        EXPECT_EQ(WaitSocket(m_client.Get(), true, 1), WaitResult::TIMED_OUT);
        ASSERT_TRUE(SendAll(m_server, "x"));
        EXPECT_EQ(WaitSocket(m_client.Get(), true, LONG_MS), WaitResult::READY);
        EXPECT_EQ(xWait(m_client, true), WaitResult::READY);
        EXPECT_EQ(ReceiveBytes(m_client, 1), "x");
        // It has stayed one that does not wait by itself.
        std::size_t size = 1;
        unsigned char byte = 0;
        EXPECT_EQ(RecvSocket(m_client.Get(), &byte, size), IoResult::WOULD_BLOCK);
    }
}

// --- many

TEST_F(WaiterTest, SeveralListeners_OneGetsAConnection_ThatOneIsReady)
{
    constexpr std::size_t COUNT = 100; // more than any wait for several events of a system takes
    std::vector<OwnedSocket> listeners;
    std::vector<WaitedSocket> waited(COUNT);
    for (WaitedSocket& one : waited) {
        listeners.push_back(MakeListener());
        ASSERT_TRUE(listeners.back().IsOpen());
        one.handle = listeners.back().Get();
    }
    for (const std::size_t chosen : {std::size_t{0}, std::size_t{63}, std::size_t{64}, COUNT - 1}) {
        m_begins = false;
        OwnedSocket client;
        std::thread connector = xDuringWait([&] { client = ConnectTo(LocalPort(listeners[chosen])); });
        m_begins = true;
        EXPECT_EQ(m_waiter.Wait(waited.data(), COUNT, LONG_MS, m_woken), WaitResult::READY);
        connector.join();
        for (std::size_t index = 0; index < COUNT; ++index)
            EXPECT_EQ(waited[index].result, index == chosen ? WaitResult::READY : WaitResult::TIMED_OUT) << index;
        EXPECT_TRUE(AcceptFrom(listeners[chosen]).IsOpen());
    }
    std::thread waker = xDuringWait([this] { m_waiter.Wake(); });
    EXPECT_EQ(m_waiter.Wait(waited.data(), COUNT, LONG_MS, m_woken), WaitResult::READY);
    EXPECT_TRUE(m_woken);
    waker.join();
}

TEST_F(WaiterTest, SeveralSockets_OneIsNone_ThatOneHasFailed)
{
    WaitedSocket waited[3];
    waited[0].handle = m_client.Get();
    waited[2].handle = m_server.Get();
    EXPECT_EQ(m_waiter.Wait(waited, 3, LONG_MS, m_woken), WaitResult::READY);
    EXPECT_EQ(waited[0].result, WaitResult::TIMED_OUT);
    EXPECT_EQ(waited[1].result, WaitResult::FAILED);
    EXPECT_EQ(waited[2].result, WaitResult::TIMED_OUT);
}

TEST_F(WaiterTest, HundredThreadsWait_EachIsWokenByItself)
{
    constexpr std::size_t COUNT = 100;
    std::vector<std::unique_ptr<Waiter>> waiters;
    std::vector<OwnedSocket> ends;
    std::vector<std::thread> threads;
    std::atomic<std::size_t> woken{0};
    for (std::size_t index = 0; index < COUNT; ++index) {
        OwnedSocket client;
        OwnedSocket server;
        xConnect(client, server);
        waiters.push_back(std::make_unique<Waiter>());
        threads.emplace_back([&woken, waiter = waiters.back().get(), handle = server.Get()] {
            bool wokenNow = false;
            if (waiter->Wait(handle, true, LONG_MS, wokenNow) == WaitResult::READY && wokenNow)
                ++woken;
        });
        ends.push_back(std::move(client));
        ends.push_back(std::move(server));
    }
    for (std::size_t index = 0; index < COUNT; ++index) {
        EXPECT_LE(woken, index);
        waiters[index]->Wake();
        EXPECT_TRUE(WaitFor([&] { return woken == index + 1; }));
    }
    for (std::thread& thread : threads)
        thread.join();
}
