#include "common/ThreadPool.h"

#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <new>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

namespace kqlib {

/// One thread of the pool and what it is to do next. job and done are written by Run before the thread starts, or under
/// the state's lock while it is idle; the thread itself takes them.
struct ThreadPool::WORKER
{
    std::function<void()> job;
    std::function<void()> done;
    bool hasJob = false;             ///< under the state's lock
    std::condition_variable changed; ///< hasJob or ending was set
    std::thread thread;
};

/// What the pool and its threads share. Everything is guarded by the mutex.
struct ThreadPool::STATE
{
    explicit STATE(ULONG limit)
        : maxThreads(limit)
    {
    }

    bool StartWorkerPreLocked(std::function<void()>&& job, std::function<void()>&& done);
    void RunWorker(WORKER& worker);
    bool WaitForJob(WORKER& worker);

    mutable std::mutex mutex;
    const ULONG maxThreads; ///< 0 = no limit
    bool ending = false;
    std::vector<std::unique_ptr<WORKER>> workers;
    std::vector<WORKER*> idle; ///< the last one became idle last: its memory is still warm
};

ThreadPool::ThreadPool(ULONG maxThreads)
    : m_state(std::make_unique<STATE>(maxThreads))
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
    // No thread is added any more, so the list stays as it is.
    for (const auto& worker : m_state->workers)
        worker->thread.join();
}

bool ThreadPool::Run(std::function<void()> job, std::function<void()> done)
{
    std::unique_lock lock(m_state->mutex);
    if (m_state->ending)
        return false;
    if (m_state->idle.empty())
        return m_state->StartWorkerPreLocked(std::move(job), std::move(done));

    WORKER& worker = *m_state->idle.back();
    m_state->idle.pop_back();
    worker.job = std::move(job);
    worker.done = std::move(done);
    worker.hasJob = true;
    // Told after unlocking, so that the thread does not wake up only to wait for the lock.
    lock.unlock();
    worker.changed.notify_one();
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

/// Makes a thread that begins with this job. Both lists get their room first, so that a thread that runs is always
/// listed and can always become idle.
bool ThreadPool::STATE::StartWorkerPreLocked(std::function<void()>&& job, std::function<void()>&& done)
{
    if (maxThreads != 0 && workers.size() >= maxThreads)
        return false;
    const std::size_t before = workers.size();
    try {
        if (idle.capacity() <= before)
            idle.reserve(2 * before + 16);
        workers.push_back(std::make_unique<WORKER>());
        WORKER& worker = *workers.back();
        worker.job = std::move(job);
        worker.done = std::move(done);
        worker.hasJob = true;
        worker.thread = std::thread([this, &worker] { RunWorker(worker); });
        return true;
    } catch (const std::system_error&) {
        // The system has no thread to give.
    } catch (const std::bad_alloc&) {
        // Nor memory for one.
    }
    workers.resize(before);
    return false;
}

/// The life of a pool thread.
void ThreadPool::STATE::RunWorker(WORKER& worker)
{
    do {
        // What the job holds is released before the thread counts as idle; done is taken along, for the next job may be
        // handed over while it runs.
        std::function<void()> done = std::move(worker.done);
        std::exchange(worker.job, nullptr)();
        {
            std::lock_guard lock(mutex);
            worker.hasJob = false;
            idle.push_back(&worker);
        }
        if (done)
            done();
    } while (WaitForJob(worker));
}

/// True: the worker has its next job. False: the pool ends.
bool ThreadPool::STATE::WaitForJob(WORKER& worker)
{
    std::unique_lock lock(mutex);
    worker.changed.wait(lock, [this, &worker] { return worker.hasJob || ending; });
    return worker.hasJob;
}

} // namespace kqlib
