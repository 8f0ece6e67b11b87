// StopWatcher: Ctrl-C.
#pragma once

#include <atomic>
#include <functional>
#include <thread>

namespace kqlib {

/// Waits for requests to stop on a thread of its own. The first one calls a function; a second one ends the process at
/// once, for whoever cannot wait until a connection attempt has failed.
///
/// Ownership: owns its thread; what the function uses must outlive this object. Threads: one at a time.
class StopWatcher
{
public:
    explicit StopWatcher(std::function<void()> onStop);
    ~StopWatcher();
    StopWatcher(const StopWatcher&) = delete;
    StopWatcher& operator=(const StopWatcher&) = delete;

private:
    void xWatch();

    const std::function<void()> m_onStop;
    std::atomic<bool> m_isOver{false};
    std::thread m_thread;
};

} // namespace kqlib
