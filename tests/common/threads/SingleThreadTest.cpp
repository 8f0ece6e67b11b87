#include "common/SingleThread.h"

#include "platform/Threads.h"
#include "tests/peers/WaitFor.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <stdexcept>
#include <thread>

namespace kqlib {
namespace {

class Worker : public SingleThread
{
public:
    explicit Worker(bool returnsAtOnce = false)
        : m_returnsAtOnce(returnsAtOnce)
    {
    }
    ~Worker() override { xEndThread(); }

    bool Run(unsigned long& id) { return xRunThread(id); }
    void End() { xEndThread(); }
    void EndAsync() { xEndThreadAsync(); }
    bool IsRunning() const { return xIsThreadRunning(); }
    bool ShouldEnd() const { return xShouldThreadEnd(); }

    std::atomic<int> bodies{0};
    std::atomic<unsigned long> ownId{0};
    std::atomic<bool> endOnOwnThread{false};

private:
    void xThread() override
    {
        ownId = platform::CurrentThreadId();
        ++bodies;
        if (endOnOwnThread)
            xEndThread();
        while (!m_returnsAtOnce && !xShouldThreadEnd())
            std::this_thread::yield();
    }

    const bool m_returnsAtOnce;
};

TEST(SingleThread, xRunThread_GivesTheIdOfTheNewThread)
{
    Worker worker;
    unsigned long id = 0;
    ASSERT_TRUE(worker.Run(id));
    EXPECT_TRUE(worker.IsRunning());
    ASSERT_TRUE(WaitFor([&] { return worker.bodies == 1; }));
    EXPECT_EQ(id, worker.ownId);
    EXPECT_NE(id, platform::CurrentThreadId());
}

TEST(SingleThread, xRunThread_RunsAlready_TrueWithTheSameId)
{
    Worker worker;
    unsigned long first = 0;
    unsigned long second = 0;
    ASSERT_TRUE(worker.Run(first));
    ASSERT_TRUE(worker.Run(second));
    EXPECT_EQ(first, second);
    worker.End();
    EXPECT_EQ(worker.bodies, 1);
}

TEST(SingleThread, xRunThread_AfterTheEnd_RunsAgain)
{
    Worker worker;
    for (int round = 1; round <= 20; ++round) {
        unsigned long id = 0;
        ASSERT_TRUE(worker.Run(id));
        EXPECT_FALSE(worker.ShouldEnd());
        worker.End();
        EXPECT_FALSE(worker.IsRunning());
        EXPECT_EQ(worker.bodies, round);
    }
}

TEST(SingleThread, xEndThread_NeverRan_Returns)
{
    Worker worker;
    worker.End();
    EXPECT_TRUE(worker.ShouldEnd());
}

TEST(SingleThread, xEndThread_OnItsOwnThread_OnlyAsks)
{
    Worker worker;
    worker.endOnOwnThread = true;
    unsigned long id = 0;
    ASSERT_TRUE(worker.Run(id));
    EXPECT_TRUE(WaitFor([&] { return !worker.IsRunning(); }));
}

TEST(SingleThread, xEndThreadAsync_OnlyAsks)
{
    Worker worker;
    unsigned long id = 0;
    ASSERT_TRUE(worker.Run(id));
    worker.EndAsync();
    EXPECT_TRUE(WaitFor([&] { return !worker.IsRunning(); }));
}

TEST(SingleThread, Deleted_AsSoonAsItDoesNotRun_ThreadTouchesNothingOfIt)
{
    for (int round = 0; round < 200; ++round) {
        auto worker = std::make_unique<Worker>(true);
        unsigned long id = 0;
        ASSERT_TRUE(worker->Run(id));
        while (worker->IsRunning())
            std::this_thread::yield();
        worker.reset();
    }
}

/// Throws out of its body.
class ThrowingWorker : public SingleThread
{
public:
    ~ThrowingWorker() override { xEndThread(); }
    bool Run()
    {
        unsigned long id = 0;
        return xRunThread(id);
    }
    bool IsRunning() const { return xIsThreadRunning(); }
    void End() { xEndThread(); }

private:
    void xThread() override { throw std::runtime_error("body"); }
};

TEST(SingleThread, BodyThrows_ThreadHasEndedAndCanBeRunAgain)
{
    ThrowingWorker worker;
    for (int round = 0; round < 3; ++round) {
        ASSERT_TRUE(worker.Run());
        EXPECT_TRUE(WaitFor([&] { return !worker.IsRunning(); }));
        worker.End();
    }
}

} // namespace
} // namespace kqlib
