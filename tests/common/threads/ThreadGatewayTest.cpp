#include "common/ThreadGateway.h"

#include "common/ThreadSafe.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace kqlib {
namespace {

/// Adds up under the lock, taking it twice.
class Counter : public ThreadSafe
{
public:
    void Add()
    {
        const Guard guard(*this);
        xLock();
        ++m_count;
        xUnlock();
    }
    int Get() const
    {
        const Guard guard(*this);
        return m_count;
    }

private:
    int m_count = 0;
};

TEST(ThreadGateway, Lock_HeldByTheSameThread_MayBeTakenAgain)
{
    const ThreadGateway gateway;
    gateway.Lock();
    gateway.Lock();
    gateway.Unlock();
    gateway.Unlock();
    const ThreadGatewayGuard outer(gateway);
    const ThreadGatewayGuard inner(gateway);
}

TEST(ThreadGateway, Lock_ManyThreads_OneAtATime)
{
    const ThreadGateway gateway;
    int count = 0;
    std::vector<std::thread> threads;
    for (int index = 0; index < 8; ++index)
        threads.emplace_back([&] {
            for (int round = 0; round < 1000; ++round) {
                const ThreadGatewayGuard guard(gateway);
                ++count;
            }
        });
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(count, 8000);
}

TEST(ThreadSafe, Guard_ManyThreadsAndTakenTwice_OneAtATime)
{
    Counter counter;
    std::vector<std::thread> threads;
    for (int index = 0; index < 8; ++index)
        threads.emplace_back([&] {
            for (int round = 0; round < 1000; ++round)
                counter.Add();
        });
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(counter.Get(), 8000);
}

} // namespace
} // namespace kqlib
