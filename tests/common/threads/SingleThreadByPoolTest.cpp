#include "common/SingleThreadByPool.h"

#include "common/ThreadEvent.h"
#include "common/ThreadPool.h"
#include "tests/peers/WaitFor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <thread>
#include <utility>

namespace kqlib {
namespace {

/// Runs until it is asked to end, or returns at once.
class Worker : public SingleThreadByPool
{
public:
    explicit Worker(ThreadPool& pool, bool returnsAtOnce = false)
        : SingleThreadByPool(pool)
        , m_returnsAtOnce(returnsAtOnce)
    {
    }
    ~Worker() override { xEndThread(); }

    bool Run() { return xRunThread(); }
    void End() { xEndThread(); }
    void EndAsync() { xEndThreadAsync(); }
    bool IsRunning() const { return xIsThreadRunning(); }
    bool ShouldEnd() const { return xShouldThreadEnd(); }
    ThreadPool& GetPool() const { return xGetPool(); }
    void CountEndIn(std::shared_ptr<std::atomic<std::uint32_t>> counter) { xCountEndIn(std::move(counter)); }

    std::atomic<int> bodies{0};
    std::atomic<bool> endOnOwnThread{false};
    std::atomic<bool> sawEndAtOnce{false};

private:
    void xThread() override
    {
        ++bodies;
        sawEndAtOnce = xShouldThreadEnd();
        if (endOnOwnThread)
            xEndThread();
        while (!m_returnsAtOnce && !xShouldThreadEnd())
            std::this_thread::yield();
    }

    const bool m_returnsAtOnce;
};

TEST(SingleThreadByPool, New_NeitherRunsNorShouldEnd)
{
    ThreadPool pool;
    Worker worker(pool);
    EXPECT_FALSE(worker.IsRunning());
    EXPECT_FALSE(worker.ShouldEnd());
    EXPECT_EQ(&worker.GetPool(), &pool);
}

TEST(SingleThreadByPool, xRunThread_Success_RunningFromThenOn)
{
    ThreadPool pool;
    Worker worker(pool);
    ASSERT_TRUE(worker.Run());
    EXPECT_TRUE(worker.IsRunning());
    EXPECT_TRUE(WaitFor([&] { return worker.bodies == 1; }));
    worker.End();
    EXPECT_FALSE(worker.IsRunning());
}

TEST(SingleThreadByPool, xRunThread_RunsAlready_TrueAndOneBody)
{
    ThreadPool pool;
    Worker worker(pool);
    ASSERT_TRUE(worker.Run());
    EXPECT_TRUE(worker.Run());
    worker.End();
    EXPECT_EQ(worker.bodies, 1);
}

TEST(SingleThreadByPool, xRunThread_NoThreadToBeHad_FalseAndNotRunning)
{
    ThreadPool pool(1);
    Worker first(pool);
    Worker second(pool);
    ASSERT_TRUE(first.Run());
    EXPECT_FALSE(second.Run());
    EXPECT_FALSE(second.IsRunning());
    second.End();
    EXPECT_EQ(second.bodies, 0);
}

TEST(SingleThreadByPool, xRunThread_AfterTheEnd_TheOnlyThreadOfThePoolIsFreeAtOnce)
{
    ThreadPool pool(1);
    Worker worker(pool);
    for (int round = 0; round < 200; ++round) {
        ASSERT_TRUE(worker.Run()) << round;
        EXPECT_FALSE(worker.ShouldEnd());
        worker.End();
    }
    EXPECT_EQ(worker.bodies, 200);
}

TEST(SingleThreadByPool, xEndThread_NeverRan_Returns)
{
    ThreadPool pool;
    Worker worker(pool);
    worker.End();
    worker.End();
    EXPECT_TRUE(worker.ShouldEnd());
    EXPECT_FALSE(worker.IsRunning());
}

TEST(SingleThreadByPool, xEndThreadAsync_OnlyAsks)
{
    ThreadPool pool;
    Worker worker(pool);
    ASSERT_TRUE(worker.Run());
    worker.EndAsync();
    EXPECT_TRUE(worker.ShouldEnd());
    EXPECT_TRUE(WaitFor([&] { return !worker.IsRunning(); }));
}

TEST(SingleThreadByPool, xEndThread_BeforeTheBodyBegan_BodyStillRunsAndSeesTheRequest)
{
    ThreadPool pool;
    for (int round = 0; round < 200; ++round) {
        Worker worker(pool);
        ASSERT_TRUE(worker.Run());
        worker.End();
        EXPECT_EQ(worker.bodies, 1);
    }
}

TEST(SingleThreadByPool, xEndThread_AskedWhileThePoolIsBusyWithTheStart_RequestIsNotLost)
{
    // The end is asked for right after the start, mostly before the new thread gets to the body: were the request
    // cleared there, the body would never end.
    for (int round = 0; round < 50; ++round) {
        ThreadPool pool;
        Worker worker(pool);
        ASSERT_TRUE(worker.Run());
        worker.EndAsync();
        EXPECT_TRUE(WaitFor([&] { return !worker.IsRunning(); }));
        EXPECT_EQ(worker.bodies, 1);
    }
}

TEST(SingleThreadByPool, xEndThread_OnItsOwnThread_OnlyAsks)
{
    ThreadPool pool;
    Worker worker(pool);
    worker.endOnOwnThread = true;
    ASSERT_TRUE(worker.Run());
    EXPECT_TRUE(WaitFor([&] { return !worker.IsRunning(); }));
    EXPECT_TRUE(worker.ShouldEnd());
}

TEST(SingleThreadByPool, xRunThread_AfterAnEnd_ClearsTheRequest)
{
    ThreadPool pool;
    Worker worker(pool);
    worker.EndAsync();
    ASSERT_TRUE(worker.Run());
    EXPECT_FALSE(worker.ShouldEnd());
    ASSERT_TRUE(WaitFor([&] { return worker.bodies == 1; }));
    EXPECT_FALSE(worker.sawEndAtOnce);
}

TEST(SingleThreadByPool, Deleted_AsSoonAsItDoesNotRun_ThreadTouchesNothingOfIt)
{
    ThreadPool pool;
    for (int round = 0; round < 2000; ++round) {
        auto worker = std::make_unique<Worker>(pool, true);
        ASSERT_TRUE(worker->Run());
        while (worker->IsRunning())
            std::this_thread::yield();
        worker.reset();
    }
    EXPECT_LE(pool.GetThreadCount(), 2U);
}

TEST(SingleThreadByPool, xCountEndIn_EndsFromThenOn_CountedForThatObjectAlone)
{
    ThreadPool pool;
    Worker counted(pool);
    Worker other(pool);
    const auto ends = std::make_shared<std::atomic<std::uint32_t>>(0xFFFFFFFFU);
    ASSERT_TRUE(counted.Run());
    counted.End();
    counted.CountEndIn(ends);
    ASSERT_TRUE(other.Run());
    other.End();
    EXPECT_EQ(ends->load(), 0xFFFFFFFFU);
    ASSERT_TRUE(counted.Run());
    EXPECT_EQ(ends->load(), 0xFFFFFFFFU);
    counted.End();
    EXPECT_EQ(ends->load(), 0U) << "wraps";
}

TEST(SingleThreadByPool, xCountEndIn_NoThreadToBeHad_CountedToo)
{
    ThreadPool pool(1);
    Worker first(pool);
    Worker second(pool);
    const auto ends = std::make_shared<std::atomic<std::uint32_t>>(0);
    second.CountEndIn(ends);
    ASSERT_TRUE(first.Run());
    EXPECT_FALSE(second.Run());
    EXPECT_EQ(ends->load(), 1U);
}

TEST(SingleThreadByPool, xEndThread_FromTwoThreads_BothReturn)
{
    ThreadPool pool;
    Worker worker(pool);
    ASSERT_TRUE(worker.Run());
    std::thread other([&] { worker.End(); });
    worker.End();
    other.join();
    EXPECT_FALSE(worker.IsRunning());
}

#ifndef NDEBUG
/// Forgets to end its thread.
class Forgetful : public SingleThreadByPool
{
public:
    explicit Forgetful(ThreadPool& pool)
        : SingleThreadByPool(pool)
    {
    }
    bool Run() { return xRunThread(); }

private:
    void xThread() override
    {
        ThreadEvent never;
        never.Wait(10000);
    }
};

TEST(SingleThreadByPoolDeathTest, Destructor_ThreadStillRuns_StopsADebugBuild)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            ThreadPool pool;
            Forgetful worker(pool);
            if (!worker.Run())
                std::terminate();
        },
        // The thread sanitizer may see the mistake before the assertion does.
        ::testing::AnyOf(::testing::HasSubstr("must end the thread"), ::testing::HasSubstr("data race on vptr")));
}
#endif

} // namespace
} // namespace kqlib
