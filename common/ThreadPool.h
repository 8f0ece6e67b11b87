// ThreadPool: the worker threads on which every threaded object runs.
#pragma once

#include "common/Types.h"
#include "platform/Export.h"

#include <functional>
#include <memory>

namespace kqlib {

/// A pool that makes threads on demand, keeps idle ones and uses them again.
///
/// Construct it before, and destroy it after, every object that runs on it. The destructor waits for the jobs that
/// still run; it must not run on a thread of the pool.
/// Ownership: owns its threads. Threads: any thread; a job may bring about the end of the pool, even while the Run that
/// started it is about to return. Errors: Run answers false and throws nothing. An exception that leaves a job, or its
/// done, ends that job and is counted; done is called all the same, and the thread goes on.
class KQCOMMON_API ThreadPool
{
public:
    /// maxThreads: 0 = no limit. idleMs: a thread that has had no job for so many milliseconds ends, 0 = none does.
    /// stackBytes: the address space of each thread's stack, 0 = as large as the system makes them; what jobs call
    /// must fit into it (TLS and a host's handlers take more than they seem to: measure before going below 256 KiB).
    explicit ThreadPool(ULONG maxThreads = 0, ULONG idleMs = 0, ULONG stackBytes = 0);
    /// Waits for the jobs that still run.
    ~ThreadPool();
    ThreadPool(const ThreadPool&) = delete;
    ThreadPool& operator=(const ThreadPool&) = delete;

    /// Runs the job on a pool thread at once: on the one that became idle last, else on a new one. done, when given, is
    /// called on the same thread after the job, when that thread already counts as idle: who learns through it that the
    /// job is over finds the thread free for the next one. It must be short.
    /// False: the limit is reached, the pool is being destroyed, or the system has no thread to give; neither is
    /// called.
    [[nodiscard]] bool Run(std::function<void()> job, std::function<void()> done = {});

    /// Threads made and still there, idle ones included.
    ULONG GetThreadCount() const;
    /// Jobs running now.
    ULONG GetRunningCount() const;
    /// Jobs that an exception has left, so far.
    ULONG GetFailedCount() const;

private:
    struct WORKER;
    struct STATE;
    std::unique_ptr<STATE> m_state;
};

} // namespace kqlib
