#include "platform/Waiter.h"

#include "tests/peers/Sockets.h"
#include "tests/peers/posix/DescriptorShortage.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <iterator>
#include <memory>
#include <pthread.h>
#include <sys/resource.h>
#include <thread>
#include <vector>

using namespace kqlib::platform;
using namespace kqlib::test;

namespace {

constexpr std::uint32_t LONG_MS = 60000;

std::ptrdiff_t CountDescriptors()
{
    const std::filesystem::directory_iterator open("/proc/self/fd");
    return std::distance(begin(open), end(open));
}

double ThreadSeconds()
{
    timespec used;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &used);
    return static_cast<double>(used.tv_sec) + static_cast<double>(used.tv_nsec) / 1e9;
}

} // namespace

TEST(PosixWaiterTest, Descriptors_OneFromTheFirstWaitOnAndNoneLater)
{
    const std::ptrdiff_t before = CountDescriptors();
    bool woken = false;
    {
        std::vector<std::unique_ptr<Waiter>> waiters;
        for (int count = 0; count < 50; ++count) {
            waiters.push_back(std::make_unique<Waiter>());
            waiters.back()->Wake();
            EXPECT_EQ(waiters.back()->Wait(LONG_MS, woken), WaitResult::READY);
            EXPECT_EQ(waiters.back()->Wait(0, woken), WaitResult::TIMED_OUT);
        }
        EXPECT_EQ(CountDescriptors(), before);
        for (int round = 0; round < 10; ++round)
            for (const auto& waiter : waiters)
                EXPECT_EQ(waiter->Wait(1, woken), WaitResult::TIMED_OUT);
        EXPECT_EQ(CountDescriptors(), before + 50);
    }
    EXPECT_EQ(CountDescriptors(), before);
}

TEST(PosixWaiterTest, NoDescriptorForTheSignal_StillWokenReadyAndTimedOut)
{
    // A thread begins and ends with virtual calls.
    if (!DescriptorShortage::IsPossibleWithVirtualCalls())
        GTEST_SKIP() << "the sanitizer needs descriptors for virtual calls";
    const OwnedSocket listener = MakeListener();
    const OwnedSocket client = ConnectTo(LocalPort(listener));
    const OwnedSocket server = AcceptFrom(listener);
    Waiter waiter;
    bool woken = false;
    const DescriptorShortage shortage;
    ASSERT_TRUE(shortage.IsApplied());
    EXPECT_EQ(waiter.Wait(server.Get(), true, 50, woken), WaitResult::TIMED_OUT);
    std::thread waker([&] { waiter.Wake(); });
    EXPECT_EQ(waiter.Wait(server.Get(), true, Waiter::FOREVER, woken), WaitResult::READY);
    EXPECT_TRUE(woken);
    waker.join();
    ASSERT_TRUE(SendAll(client, "x"));
    EXPECT_EQ(waiter.Wait(server.Get(), true, Waiter::FOREVER, woken), WaitResult::READY);
    EXPECT_FALSE(woken);
}

TEST(PosixWaiterTest, DescriptorAbove1024_SeenAsAnyOther)
{
    rlimit limit = {};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    if (limit.rlim_max < 3000)
        GTEST_SKIP() << "this process may have " << limit.rlim_max << " descriptors only";
    const rlimit before = limit;
    limit.rlim_cur = std::max<rlim_t>(limit.rlim_cur, 3000);
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    {
        const OwnedSocket listener = MakeListener();
        const OwnedSocket client = ConnectTo(LocalPort(listener));
        const OwnedSocket low = AcceptFrom(listener);
        const OwnedSocket high(static_cast<SocketHandle>(fcntl(static_cast<int>(low.Get()), F_DUPFD_CLOEXEC, 2500)));
        ASSERT_TRUE(high.IsOpen());
        Waiter waiter;
        bool woken = false;
        EXPECT_EQ(waiter.Wait(high.Get(), true, 1, woken), WaitResult::TIMED_OUT);
        EXPECT_EQ(waiter.Wait(high.Get(), false, LONG_MS, woken), WaitResult::READY);
        ASSERT_TRUE(SendAll(client, "x"));
        EXPECT_EQ(waiter.Wait(high.Get(), true, LONG_MS, woken), WaitResult::READY);
    }
    setrlimit(RLIMIT_NOFILE, &before);
}

// The results of the wait before stood there as if they were those of the wait that failed.
TEST(PosixWaiterTest, SystemCannotWait_FailedAndNothingStaysOfTheWaitBefore)
{
    constexpr std::size_t COUNT = 600;
    rlimit before = {};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    if (before.rlim_cur <= COUNT)
        GTEST_SKIP() << "this process may have " << before.rlim_cur << " descriptors only";
    const OwnedSocket listener = MakeListener();
    const OwnedSocket client = ConnectTo(LocalPort(listener));
    std::vector<WaitedSocket> waited(COUNT);
    for (WaitedSocket& one : waited) {
        one.handle = client.Get();
        one.forRead = false;
        one.forWrite = true;
    }
    Waiter waiter;
    bool woken = false;
    ASSERT_EQ(waiter.Wait(waited.data(), COUNT, LONG_MS, woken), WaitResult::READY);
    // The system refuses a wait for more descriptors than the process may have.
    rlimit limit = before;
    limit.rlim_cur = COUNT - 100;
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    waiter.Wake();
    const WaitResult result = waiter.Wait(waited.data(), COUNT, LONG_MS, woken);
    setrlimit(RLIMIT_NOFILE, &before);
    EXPECT_EQ(result, WaitResult::FAILED);
    EXPECT_TRUE(woken);
    EXPECT_TRUE(std::all_of(waited.begin(), waited.end(),
                            [](const WaitedSocket& one) { return one.result == WaitResult::TIMED_OUT; }));
}

TEST(PosixWaiterTest, SignalHandlersRun_TheWaitGoesOnForTheRestOfItsTime)
{
    struct sigaction nothing = {};
    struct sigaction before = {};
    nothing.sa_handler = [](int) {};
    ASSERT_EQ(sigaction(SIGUSR1, &nothing, &before), 0);
    Waiter waiter;
    const auto start = std::chrono::steady_clock::now();
    std::atomic<bool> isOver{false};
    WaitResult result = WaitResult::FAILED;
    bool woken = true;
    std::thread waiting([&] {
        result = waiter.Wait(300, woken);
        isOver = true;
    });
    int signals = 0;
    while (!isOver) {
        pthread_kill(waiting.native_handle(), SIGUSR1);
        ++signals;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    waiting.join();
    sigaction(SIGUSR1, &before, nullptr);
    EXPECT_EQ(result, WaitResult::TIMED_OUT);
    EXPECT_FALSE(woken);
    EXPECT_GE(signals, 1);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(300));
}

TEST(PosixWaiterTest, Wait_TakesNoProcessorTime)
{
    const OwnedSocket listener = MakeListener();
    Waiter waiter;
    bool woken = false;
    const double before = ThreadSeconds();
    EXPECT_EQ(waiter.Wait(listener.Get(), true, 500, woken), WaitResult::TIMED_OUT);
    EXPECT_LT(ThreadSeconds() - before, 0.1);
}
