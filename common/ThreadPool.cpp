#include "common/ThreadPool.h"

#include "common/WithinMemory.h"
#include "platform/Threads.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <utility>
#include <vector>

namespace kqlib {

/// One thread of the pool and what it is to do next. job and done are written by Run before the thread starts, or under
/// the state's lock while it is idle; the thread itself takes them.
struct ThreadPool::WORKER : std::enable_shared_from_this<WORKER>
{
    explicit WORKER(STATE& state)
        : pool(state)
    {
    }

    STATE& pool;
    std::function<void()> job;
    std::function<void()> done;
    bool hasJob = false;             ///< under the state's lock
    std::condition_variable changed; ///< hasJob or ending was set
    platform::ThreadHandle thread = 0;
};

/// What the pool and its threads share. Everything is guarded by the mutex.
struct ThreadPool::STATE
{
    STATE(ULONG limit, ULONG idleMs, ULONG stack)
        : maxThreads(limit)
        , idleTime(static_cast<std::int64_t>(std::min(idleMs, ALL_BITS_32)))
        , stackBytes(stack)
    {
    }

    bool StartWorkerPreLocked(std::function<void()>&& job, std::function<void()>&& done);
    void RunWorker(WORKER& worker);
    void RunGuarded(const std::function<void()>& call);
    bool WaitForJob(WORKER& worker);
    std::shared_ptr<WORKER> RetirePreLocked(WORKER& worker);

    mutable std::mutex mutex;
    const ULONG maxThreads;                   ///< 0 = no limit
    const std::chrono::milliseconds idleTime; ///< 0 = for ever
    const std::size_t stackBytes;             ///< 0 = the system's
    bool ending = false;
    ULONG failed = 0;
    std::vector<std::shared_ptr<WORKER>> workers;
    std::vector<WORKER*> idle; ///< the last one became idle last: its memory is still warm
    /// The thread that ended last for want of jobs: it cannot wait for itself, so the next one does, or the destructor.
    std::shared_ptr<WORKER> ended;
};

ThreadPool::ThreadPool(ULONG maxThreads, ULONG idleMs, ULONG stackBytes)
    : m_state(std::make_unique<STATE>(maxThreads, idleMs, stackBytes))
{
}

ThreadPool::~ThreadPool()
{
    {
        std::lock_guard lock(m_state->mutex);
        m_state->ending = true;
        for (const auto& worker : m_state->workers)
            worker->changed.notify_one();
    }
    // No thread is added or ends by itself any more, so what is listed stays.
    for (const auto& worker : m_state->workers)
        platform::JoinThread(worker->thread);
    if (m_state->ended)
        platform::JoinThread(m_state->ended->thread);
}

bool ThreadPool::Run(std::function<void()> job, std::function<void()> done)
{
    std::unique_lock lock(m_state->mutex);
    if (m_state->ending)
        return false;
    if (m_state->idle.empty())
        return m_state->StartWorkerPreLocked(std::move(job), std::move(done));

    // Held until it is told: its thread may take the job by itself once the lock is free, and the job may bring about
    // the end of the pool.
    const std::shared_ptr<WORKER> worker = m_state->idle.back()->shared_from_this();
    m_state->idle.pop_back();
    worker->job = std::move(job);
    worker->done = std::move(done);
    worker->hasJob = true;
    // Told after unlocking, so that the thread does not wake up only to wait for the lock.
    lock.unlock();
    worker->changed.notify_one();
    return true;
}

ULONG ThreadPool::GetThreadCount() const
{
    std::lock_guard lock(m_state->mutex);
    return static_cast<ULONG>(m_state->workers.size());
}

ULONG ThreadPool::GetRunningCount() const
{
    std::lock_guard lock(m_state->mutex);
    return static_cast<ULONG>(m_state->workers.size() - m_state->idle.size());
}

ULONG ThreadPool::GetFailedCount() const
{
    std::lock_guard lock(m_state->mutex);
    return m_state->failed;
}

/// Makes a thread that begins with this job. Both lists get their room first, so that a thread that runs is always
/// listed and can always become idle.
bool ThreadPool::STATE::StartWorkerPreLocked(std::function<void()>&& job, std::function<void()>&& done)
{
    if (maxThreads != 0 && workers.size() >= maxThreads)
        return false;
    const std::size_t before = workers.size();
    bool started = false;
    static_cast<void>(RunWithinMemory([&] {
        if (idle.capacity() <= before)
            idle.reserve(2 * before + 16);
        workers.push_back(std::make_shared<WORKER>(*this));
        WORKER& worker = *workers.back();
        worker.job = std::move(job);
        worker.done = std::move(done);
        worker.hasJob = true;
        const auto body = [](void* self) {
            WORKER& own = *static_cast<WORKER*>(self);
            own.pool.RunWorker(own);
        };
        started = platform::StartThread(body, &worker, stackBytes, worker.thread);
    }));
    if (!started)
        workers.resize(before);
    return started;
}

/// The life of a pool thread.
void ThreadPool::STATE::RunWorker(WORKER& worker)
{
    do {
        // What the job holds is released before the thread counts as idle; done is taken along, for the next job may be
        // handed over while it runs.
        std::function<void()> done = std::move(worker.done);
        RunGuarded([&worker] { std::exchange(worker.job, nullptr)(); });
        {
            std::lock_guard lock(mutex);
            worker.hasJob = false;
            idle.push_back(&worker);
        }
        if (done)
            RunGuarded(done);
    } while (WaitForJob(worker));
}

/// Nothing that is thrown gets out of it.
void ThreadPool::STATE::RunGuarded(const std::function<void()>& call)
{
    try {
        call();
    } catch (...) {
        std::lock_guard lock(mutex);
        ++failed;
    }
}

/// True: the worker has its next job. False: the pool ends, or the thread has waited long enough and does.
bool ThreadPool::STATE::WaitForJob(WORKER& worker)
{
    std::unique_lock lock(mutex);
    const auto isWanted = [this, &worker] { return worker.hasJob || ending; };
    if (idleTime.count() == 0) {
        worker.changed.wait(lock, isWanted);
        return worker.hasJob;
    }
    if (worker.changed.wait_for(lock, idleTime, isWanted))
        return worker.hasJob;
    const std::shared_ptr<WORKER> before = RetirePreLocked(worker);
    lock.unlock();
    if (before)
        platform::JoinThread(before->thread);
    return false;
}

/// Takes an idle worker off the lists. Gives the one that ended before it, which is over but for its last steps.
std::shared_ptr<ThreadPool::WORKER> ThreadPool::STATE::RetirePreLocked(WORKER& worker)
{
    idle.erase(std::find(idle.begin(), idle.end(), &worker));
    const auto place =
        std::find_if(workers.begin(), workers.end(), [&](const auto& one) { return one.get() == &worker; });
    std::shared_ptr<WORKER> before = std::exchange(ended, std::move(*place));
    *place = std::move(workers.back());
    workers.pop_back();
    return before;
}

} // namespace kqlib
