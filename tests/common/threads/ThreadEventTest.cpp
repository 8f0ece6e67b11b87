#include "common/ThreadEvent.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>
#include <vector>

namespace kqlib {
namespace {

TEST(ThreadEvent, New_IsNotSet)
{
    ThreadEvent event;
    EXPECT_FALSE(event.IsSet());
    EXPECT_FALSE(event.Wait(0));
}

TEST(ThreadEvent, Set_StaysSetUntilReset)
{
    ThreadEvent event;
    event.Set();
    EXPECT_TRUE(event.IsSet());
    EXPECT_TRUE(event.Wait(0));
    EXPECT_TRUE(event.Wait(1000));
    EXPECT_TRUE(event.IsSet());
    event.Reset();
    EXPECT_FALSE(event.IsSet());
}

TEST(ThreadEvent, Wait_NeverSet_FalseAfterTheTime)
{
    ThreadEvent event;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(event.Wait(30));
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(30));
}

TEST(ThreadEvent, Wait_LongestTime_EndsWhenSet)
{
    ThreadEvent event;
    std::thread setter([&] { event.Set(); });
    EXPECT_TRUE(event.Wait(static_cast<ULONG>(-1)));
    setter.join();
}

TEST(ThreadEvent, Set_SeveralWaiters_AllWake)
{
    ThreadEvent event;
    std::atomic<int> woken{0};
    std::vector<std::thread> waiters;
    for (int index = 0; index < 8; ++index)
        waiters.emplace_back([&] {
            if (event.Wait(10000))
                ++woken;
        });
    event.Set();
    for (auto& waiter : waiters)
        waiter.join();
    EXPECT_EQ(woken, 8);
}

TEST(ThreadEvent, Set_WaiterDeletesTheEventAtOnce_NothingIsTouchedAfterwards)
{
    for (int round = 0; round < 500; ++round) {
        auto event = std::make_unique<ThreadEvent>();
        std::thread setter([&target = *event] { target.Set(); });
        EXPECT_TRUE(event->Wait(10000));
        event.reset();
        setter.join();
    }
}

} // namespace
} // namespace kqlib
