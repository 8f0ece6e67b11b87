// ThreadControl: what a threaded object and its thread share. Inside the library only.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <thread>

namespace kqlib {

/// The end request and the running state of one threaded object.
///
/// Ownership: held in common by the object and its thread, because the object may be deleted as soon as IsRunning turns
/// false, while the thread is still on its way out. Threads: any thread, where nothing else is said. Errors: none.
class ThreadControl
{
public:
    /// Owner: from here on it counts as running and no end is asked for. False: it ran already, nothing changed.
    bool Start();
    /// Owner: takes Start back, when no thread could be had.
    void CancelStart();
    /// Own thread, before the body.
    void EnterBody();
    /// Own thread, after the body: not running any more. The object is not touched from here on.
    void LeaveBody();

    /// The end request: made once, kept until the next Start.
    ///@{
    void RequestEnd() { m_endRequested.store(true); }
    bool IsEndRequested() const { return m_endRequested.load(); }
    ///@}
    /// True from Start until LeaveBody or CancelStart.
    bool IsRunning() const { return m_running.load(); }
    /// Waits until it does not run. Returns at once, although it runs, on its own thread.
    void WaitUntilEnded();
    /// True on the thread that is in the body.
    bool IsOwnThread() const;

    /// One is added to counter whenever IsRunning has turned false from here on, just afterwards; wraps at 2^32.
    void CountEndIn(std::shared_ptr<std::atomic<std::uint32_t>> counter);

private:
    void xEndPreLocked();

    mutable std::mutex m_mutex;
    std::condition_variable m_ended;
    std::atomic<bool> m_running{false}; ///< written under the mutex
    std::atomic<bool> m_endRequested{false};
    std::thread::id m_bodyThread;                             ///< under the mutex; no thread outside the body
    std::shared_ptr<std::atomic<std::uint32_t>> m_endCounter; ///< under the mutex; null: nobody counts
};

} // namespace kqlib
