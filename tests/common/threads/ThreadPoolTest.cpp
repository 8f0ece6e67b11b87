#include "common/ThreadPool.h"

#include "common/ThreadEvent.h"
#include "tests/peers/WaitFor.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <new>
#include <set>
#include <stdexcept>
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

TEST(ThreadPool, IdleTime_ThreadsWithoutAJob_End)
{
    ThreadPool pool(0, 20);
    ThreadEvent goOn;
    for (int job = 0; job < 8; ++job)
        ASSERT_TRUE(pool.Run([&] { goOn.Wait(10000); }));
    EXPECT_EQ(pool.GetThreadCount(), 8U);
    goOn.Set();
    EXPECT_TRUE(WaitFor([&] { return pool.GetThreadCount() == 0; }));
    EXPECT_EQ(pool.GetRunningCount(), 0U);
    // The pool goes on.
    ThreadEvent ran;
    ASSERT_TRUE(pool.Run([&] { ran.Set(); }));
    EXPECT_TRUE(ran.Wait(10000));
    EXPECT_TRUE(WaitFor([&] { return pool.GetThreadCount() == 0; }));
}

TEST(ThreadPool, IdleTime_JobLastsLonger_ThreadStays)
{
    ThreadPool pool(1, 1);
    ThreadEvent goOn;
    ThreadEvent ended;
    ThreadEvent never;
    ASSERT_TRUE(pool.Run([&] { goOn.Wait(10000); }, [&] { ended.Set(); }));
    never.Wait(50); // well past the time that an idle thread has
    EXPECT_EQ(pool.GetThreadCount(), 1U);
    EXPECT_FALSE(pool.Run([] {}));
    goOn.Set();
    EXPECT_TRUE(ended.Wait(10000));
    // A thread that has ended leaves its place under the limit.
    EXPECT_TRUE(WaitFor([&] { return pool.GetThreadCount() == 0; }));
    EXPECT_TRUE(pool.Run([] {}));
}

TEST(ThreadPool, IdleTime_JobsComeAsThreadsEnd_EachRunsOnce)
{
    constexpr int THREADS = 4;
    constexpr int JOBS = 500;
    std::atomic<int> ran{0};
    {
        ThreadPool pool(0, 1);
        std::vector<std::thread> threads;
        for (int thread = 0; thread < THREADS; ++thread)
            threads.emplace_back([&] {
                for (int job = 0; job < JOBS; ++job) {
                    ThreadEvent ended;
                    ASSERT_TRUE(pool.Run([&] { ++ran; }, [&] { ended.Set(); }));
                    ASSERT_TRUE(ended.Wait(10000));
                    // About the time that a thread may be idle.
                    ended.Reset();
                    ended.Wait(static_cast<ULONG>(job % 3));
                }
            });
        for (std::thread& thread : threads)
            thread.join();
    }
    EXPECT_EQ(ran, THREADS * JOBS);
}

TEST(ThreadPool, IdleTimeZero_ThreadsStay)
{
    ThreadPool pool;
    ThreadEvent ended;
    ASSERT_TRUE(pool.Run([] {}, [&] { ended.Set(); }));
    ASSERT_TRUE(ended.Wait(10000));
    ThreadEvent never;
    EXPECT_FALSE(never.Wait(100));
    EXPECT_EQ(pool.GetThreadCount(), 1U);
}

/// Takes about so many bytes of the stack.
int UseStack(int kiloBytes)
{
    volatile char room[4096] = {};
    room[0] = static_cast<char>(kiloBytes);
    return kiloBytes <= 4 ? room[0] : UseStack(kiloBytes - 4) + room[0];
}

TEST(ThreadPool, StackBytes_MoreThanTheSystemGives_JobMayUseIt)
{
    ThreadPool pool(0, 0, 96UL * 1024 * 1024);
    ThreadEvent ended;
    ASSERT_TRUE(pool.Run([] { UseStack(20 * 1024); }, [&] { ended.Set(); }));
    EXPECT_TRUE(ended.Wait(20000));
}

TEST(ThreadPool, StackBytes_OfAnySize_JobRuns)
{
    for (const ULONG bytes : {1UL, 4096UL, 65536UL, 65537UL, 262144UL}) {
        ThreadPool pool(0, 0, bytes);
        ThreadEvent ended;
        ASSERT_TRUE(pool.Run([] {}, [&] { ended.Set(); })) << bytes;
        EXPECT_TRUE(ended.Wait(20000)) << bytes;
    }
}

TEST(ThreadPool, Run_JobThrows_EndsTheJobAloneAndIsCounted)
{
    ThreadPool pool(1);
    for (ULONG round = 0; round < 3; ++round) {
        ThreadEvent ended;
        ASSERT_TRUE(pool.Run([] { throw std::runtime_error("job"); }, [&] { ended.Set(); }));
        EXPECT_TRUE(ended.Wait(10000));
        EXPECT_EQ(pool.GetFailedCount(), round + 1);
    }
    ThreadEvent ran;
    ASSERT_TRUE(WaitFor([&] {
        return pool.Run([] { throw 1; },
                        [&] {
                            ran.Set();
                            throw std::bad_alloc();
                        });
    }));
    EXPECT_TRUE(ran.Wait(10000));
    EXPECT_TRUE(WaitFor([&] { return pool.GetFailedCount() == 5 && pool.GetRunningCount() == 0; }));
    EXPECT_EQ(pool.GetThreadCount(), 1U);
}

// Run told the thread of its job after the job could have brought about the end of the pool.
TEST(ThreadPool, Run_JobBringsAboutTheEndOfThePool_RunTouchesItNoMore)
{
    for (int round = 0; round < 300; ++round) {
        auto pool = std::make_unique<ThreadPool>();
        ThreadEvent first;
        ThreadEvent second;
        // The thread is on its way to its pause when the next job comes.
        ASSERT_TRUE(pool->Run([] {}, [&] { first.Set(); }));
        std::thread owner([&] {
            second.Wait(10000);
            pool.reset();
        });
        ThreadPool* const borrowed = pool.get();
        ASSERT_TRUE(first.Wait(10000));
        EXPECT_TRUE(borrowed->Run([&] { second.Set(); }));
        owner.join();
    }
}

} // namespace
} // namespace kqlib
