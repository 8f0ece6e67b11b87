#include "common/ThreadPool.h"

#include "common/ThreadEvent.h"
#include "tests/peers/WaitFor.h"

#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

namespace kqlib {
namespace {

TEST(ThreadPool, New_HasNoThreads)
{
    ThreadPool pool;
    EXPECT_EQ(pool.GetThreadCount(), 0U);
    EXPECT_EQ(pool.GetRunningCount(), 0U);
}

TEST(ThreadPool, Run_RunsOnAnotherThread)
{
    ThreadPool pool;
    ThreadEvent ran;
    std::thread::id id;
    ASSERT_TRUE(pool.Run([&] {
        id = std::this_thread::get_id();
        ran.Set();
    }));
    ASSERT_TRUE(ran.Wait(5000));
    EXPECT_NE(id, std::this_thread::get_id());
}

TEST(ThreadPool, Run_OneAfterTheOther_ReusesTheIdleThread)
{
    ThreadPool pool;
    std::set<std::thread::id> ids;
    for (int round = 0; round < 100; ++round) {
        ThreadEvent ended;
        ASSERT_TRUE(pool.Run([&] { ids.insert(std::this_thread::get_id()); }, [&] { ended.Set(); }));
        ASSERT_TRUE(ended.Wait(5000));
    }
    EXPECT_EQ(ids.size(), 1U);
    EXPECT_EQ(pool.GetThreadCount(), 1U);
    EXPECT_EQ(pool.GetRunningCount(), 0U);
}

TEST(ThreadPool, Run_JobsAtTheSameTime_EachOnItsOwnThread)
{
    constexpr int JOBS = 32;
    ThreadPool pool;
    ThreadEvent goOn;
    std::atomic<int> inside{0};
    for (int index = 0; index < JOBS; ++index)
        ASSERT_TRUE(pool.Run([&] {
            ++inside;
            goOn.Wait(10000);
        }));
    EXPECT_TRUE(WaitFor([&] { return inside == JOBS; }));
    EXPECT_EQ(pool.GetThreadCount(), 32U);
    EXPECT_EQ(pool.GetRunningCount(), 32U);
    goOn.Set();
    EXPECT_TRUE(WaitFor([&] { return pool.GetRunningCount() == 0; }));
    EXPECT_EQ(pool.GetThreadCount(), 32U);
}

TEST(ThreadPool, Run_ManyIdle_OneJobWakesOneThread)
{
    ThreadPool pool;
    ThreadEvent goOn;
    for (int index = 0; index < 8; ++index)
        ASSERT_TRUE(pool.Run([&] { goOn.Wait(10000); }));
    goOn.Set();
    ASSERT_TRUE(WaitFor([&] { return pool.GetRunningCount() == 0; }));

    std::atomic<int> runs{0};
    ThreadEvent hold;
    ASSERT_TRUE(pool.Run([&] {
        ++runs;
        hold.Wait(10000);
    }));
    ASSERT_TRUE(WaitFor([&] { return runs == 1; }));
    EXPECT_EQ(pool.GetRunningCount(), 1U);
    EXPECT_EQ(pool.GetThreadCount(), 8U);
    hold.Set();
}

TEST(ThreadPool, Run_LimitReached_FalseAndNothingIsKept)
{
    ThreadPool pool(2);
    ThreadEvent goOn;
    ASSERT_TRUE(pool.Run([&] { goOn.Wait(10000); }));
    ASSERT_TRUE(pool.Run([&] { goOn.Wait(10000); }));
    bool ran = false;
    EXPECT_FALSE(pool.Run([&] { ran = true; }, [&] { ran = true; }));
    goOn.Set();
    EXPECT_TRUE(WaitFor([&] { return pool.GetRunningCount() == 0; }));
    EXPECT_FALSE(ran);
}

TEST(ThreadPool, Run_LimitOfOne_FreeAgainWhenDoneIsCalled)
{
    ThreadPool pool(1);
    for (int round = 0; round < 200; ++round) {
        ThreadEvent ended;
        ASSERT_TRUE(pool.Run([] {}, [&] { ended.Set(); })) << round;
        ASSERT_TRUE(ended.Wait(5000));
    }
}

TEST(ThreadPool, Run_FromAJob_Runs)
{
    ThreadPool pool;
    ThreadEvent ran;
    bool taken = false;
    ThreadEvent ended;
    ASSERT_TRUE(pool.Run([&] { taken = pool.Run([&] { ran.Set(); }); }, [&] { ended.Set(); }));
    EXPECT_TRUE(ended.Wait(5000));
    EXPECT_TRUE(taken);
    EXPECT_TRUE(ran.Wait(5000));
}

TEST(ThreadPool, Run_WhatTheJobHolds_IsReleasedBeforeDone)
{
    ThreadPool pool;
    auto held = std::make_shared<int>(1);
    std::weak_ptr<int> watch = held;
    ThreadEvent ended;
    bool gone = false;
    ASSERT_TRUE(pool.Run([held = std::move(held)] {},
                         [&] {
                             gone = watch.expired();
                             ended.Set();
                         }));
    ASSERT_TRUE(ended.Wait(5000));
    EXPECT_TRUE(gone);
}

TEST(ThreadPool, Destructor_JobsStillRun_WaitsForThem)
{
    std::atomic<int> finished{0};
    {
        ThreadPool pool;
        for (int index = 0; index < 16; ++index)
            ASSERT_TRUE(pool.Run([&] {
                std::this_thread::yield();
                ++finished;
            }));
    }
    EXPECT_EQ(finished, 16);
}

TEST(ThreadPool, Destructor_JobAsksForMore_False)
{
    bool taken = true;
    {
        auto pool = std::make_unique<ThreadPool>();
        ThreadPool& target = *pool;
        ASSERT_TRUE(target.Run([&] {
            // Taken until the destructor has begun.
            while (target.Run([] {}))
                std::this_thread::yield();
            taken = false;
        }));
    }
    EXPECT_FALSE(taken);
}

TEST(ThreadPool, Run_FromManyThreads_EveryJobRunsOnce)
{
    constexpr int CALLERS = 8;
    constexpr int JOBS = 500;
    std::atomic<int> runs{0};
    std::atomic<int> taken{0};
    {
        ThreadPool pool(16);
        std::vector<std::thread> callers;
        for (int index = 0; index < CALLERS; ++index)
            callers.emplace_back([&] {
                for (int job = 0; job < JOBS; ++job)
                    if (pool.Run([&] { ++runs; }))
                        ++taken;
            });
        for (auto& caller : callers)
            caller.join();
        EXPECT_LE(pool.GetThreadCount(), 16U);
    }
    EXPECT_EQ(runs, taken);
    EXPECT_GT(taken, 0);
}

} // namespace
} // namespace kqlib
