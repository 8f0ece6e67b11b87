#include "platform/Threads.h"

#include <gtest/gtest.h>

#include <set>
#include <thread>
#include <vector>

namespace kqlib::platform {
namespace {

std::vector<std::uint32_t> TakeNumbers(std::uint32_t seed, std::size_t count)
{
    RandSeed(seed);
    std::vector<std::uint32_t> numbers;
    for (std::size_t i = 0; i < count; i++)
        numbers.push_back(RandNext());
    return numbers;
}

TEST(ThreadsTest, CurrentThreadId_TwoThreads_Differ)
{
    std::uint32_t other = 0;
    std::thread([&other] { other = CurrentThreadId(); }).join();
    EXPECT_NE(other, CurrentThreadId());
    EXPECT_EQ(CurrentThreadId(), CurrentThreadId());
}

TEST(ThreadsTest, RandNext_SameSeed_SameNumbersInRange)
{
    const auto first = TakeNumbers(1234, 1000);
    EXPECT_EQ(first, TakeNumbers(1234, 1000));
    EXPECT_NE(first, TakeNumbers(1235, 1000));
    for (const std::uint32_t number : first)
        EXPECT_LE(number, 32767U);
    EXPECT_GT(std::set<std::uint32_t>(first.begin(), first.end()).size(), 900U);
}

TEST(ThreadsTest, RandSeed_InAnotherThread_LeavesThisOneAlone)
{
    const auto alone = TakeNumbers(7, 10);
    RandSeed(7);
    std::vector<std::uint32_t> disturbed;
    for (int i = 0; i < 10; i++) {
        std::thread([] { TakeNumbers(99, 5); }).join();
        disturbed.push_back(RandNext());
    }
    EXPECT_EQ(alone, disturbed);
}

} // namespace
} // namespace kqlib::platform
