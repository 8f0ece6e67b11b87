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
/// still run. Ownership: owns its threads. Threads: any thread. Errors: Run answers false.
class KQCOMMON_API ThreadPool
{
public:
    /// maxThreads: 0 = no limit.
    explicit ThreadPool(ULONG maxThreads = 0);
    ~ThreadPool();
    ThreadPool(const ThreadPool&) = delete;
    ThreadPool& operator=(const ThreadPool&) = delete;

    /// Runs the job on a pool thread at once. False: the limit is reached, or the system has no thread to give; the job
    /// is not kept.
    [[nodiscard]] bool Run(std::function<void()> job);

    /// Threads made and still there, idle ones included.
    ULONG GetThreadCount() const;
    /// Jobs running now.
    ULONG GetRunningCount() const;

private:
    struct STATE;
    std::shared_ptr<STATE> m_state;
};

} // namespace kqlib
