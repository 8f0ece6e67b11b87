#include "common/ThreadGateway.h"
#include "common/ThreadSafe.h"

#include "tests/peers/WaitFor.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <thread>
#include <vector>

namespace kqlib {
namespace {

constexpr unsigned BRIEFLY_MS = 20;

/// A class that locks itself, with operations that use each other.
class Counter : public ThreadSafe
{
public:
    void Increment()
    {
        const Guard guard(*this);
        xAdd();
    }
    void Lock() const { xLock(); }
    void Unlock() const { xUnlock(); }
    int Get() const
    {
        const Guard guard(*this);
        return m_value;
    }

private:
    void xAdd()
    {
        xLock();
        ++m_value;
        xUnlock();
    }

    int m_value = 0;
};

/// Another thread gets what take takes only after the second of two releases of this thread.
void ExpectFreeAfterTwoReleases(const std::function<void()>& take, const std::function<void()>& release)
{
    std::atomic<bool> taken = false;
    const auto isTaken = [&] { return taken.load(); };
    take();
    take();
    std::thread other([&] {
        take();
        taken = true;
        release();
    });
    EXPECT_FALSE(WaitFor(isTaken, BRIEFLY_MS));
    release();
    EXPECT_FALSE(WaitFor(isTaken, BRIEFLY_MS));
    release();
    EXPECT_TRUE(WaitFor(isTaken));
    other.join();
}

TEST(ThreadGatewayTest, Lock_TwiceByOneThread_FreeAfterTwoUnlocks)
{
    const ThreadGateway gateway;
    ExpectFreeAfterTwoReleases([&] { gateway.Lock(); }, [&] { gateway.Unlock(); });
}

TEST(ThreadGatewayTest, Guard_NestedScopes_FreeAtTheEndOfTheOuter)
{
    const ThreadGateway gateway;
    ExpectFreeAfterTwoReleases([&] { gateway.Lock(); },
                               [&] {
                                   {
                                       const ThreadGatewayGuard outer(gateway);
                                       const ThreadGatewayGuard inner(gateway);
                                   }
                                   gateway.Unlock();
                               });
}

TEST(ThreadSafeTest, XLock_TwiceByOneThread_FreeAfterTwoUnlocks)
{
    const Counter counter;
    ExpectFreeAfterTwoReleases([&] { counter.Lock(); }, [&] { counter.Unlock(); });
}

TEST(ThreadSafeTest, Guard_ManyThreads_NoIncrementIsLost)
{
    constexpr int THREADS = 4;
    constexpr int TIMES = 5000;
    Counter counter;
    std::vector<std::thread> threads;
    for (int thread = 0; thread < THREADS; thread++)
        threads.emplace_back([&] {
            for (int time = 0; time < TIMES; time++)
                counter.Increment();
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(counter.Get(), THREADS * TIMES);
}

TEST(ThreadSafeTest, Lock_TwoObjects_AreIndependent)
{
    const Counter held;
    Counter free;
    held.Lock();
    std::thread([&] { free.Increment(); }).join();
    held.Unlock();
    EXPECT_EQ(free.Get(), 1);
}

} // namespace
} // namespace kqlib
