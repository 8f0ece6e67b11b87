// SingleThreadByPool: the base of every object with a thread of its own from the pool.
#pragma once

#include "common/Types.h"
#include "platform/Export.h"

#include <atomic>
#include <cstdint>
#include <memory>

namespace kqlib {

class ThreadPool;

/// One thread body, xThread, run on a pool thread.
///
/// The most derived destructor calls xEndThread first: once a derived part is gone its xThread must not run any more
/// (checked in debug builds). Ownership: borrows the pool, which must outlive it. Threads: xRunThread and xEndThread
/// one thread at a time, the others any thread. As soon as xIsThreadRunning turns false another thread may delete the
/// object: nothing of it is touched afterwards. An exception that leaves xThread ends the thread and no more; the pool
/// counts it (ThreadPool::GetFailedCount).
/// The order of the virtual functions is part of the binary interface; new ones go last.
class KQCOMMON_API SingleThreadByPool
{
public:
    /// The thread must have ended (checked in debug builds).
    virtual ~SingleThreadByPool();
    SingleThreadByPool(const SingleThreadByPool&) = delete;
    SingleThreadByPool& operator=(const SingleThreadByPool&) = delete;

private:
    /// The thread's body. It ends soon after xShouldThreadEnd turns true.
    virtual void xThread() = 0;

protected:
    /// Nothing runs yet.
    explicit SingleThreadByPool(ThreadPool& pool);

    /// Clears the end request and starts xThread on a pool thread; true at once when it runs already. False: no thread
    /// could be had.
    bool xRunThread();
    /// Asks the thread to end and waits for it. Nothing when it never ran. On the object's own thread it only asks. A
    /// thread whose end is asked for before its body began still runs the body.
    void xEndThread();
    /// Only asks.
    void xEndThreadAsync();
    /// True from the success of xRunThread until the body has returned.
    bool xIsThreadRunning() const;
    /// True once an end was asked for; every loop polls it.
    bool xShouldThreadEnd() const;
    /// The pool given at construction.
    ThreadPool& xGetPool() const;

    /// From here on one is added to counter just after xIsThreadRunning has turned false (wraps at 2^32): who looks
    /// through many objects for ended ones need not look while it stays the same. The thread holds counter in common
    /// with the caller. Of an end before this call it knows nothing. Any thread.
    void xCountEndIn(std::shared_ptr<std::atomic<std::uint32_t>> counter);

private:
    struct CONTROL;
    ThreadPool& m_pool;
    std::shared_ptr<CONTROL> m_control;
};

} // namespace kqlib
