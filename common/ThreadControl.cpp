#include "common/ThreadControl.h"

#include <utility>

namespace kqlib {

bool ThreadControl::Start()
{
    std::lock_guard lock(m_mutex);
    if (m_running.load())
        return false;
    // Cleared here and not on the new thread: an end that is asked for before the body begins must not be lost.
    m_endRequested.store(false);
    m_running.store(true);
    return true;
}

void ThreadControl::CancelStart()
{
    std::lock_guard lock(m_mutex);
    xEndPreLocked();
}

void ThreadControl::EnterBody()
{
    std::lock_guard lock(m_mutex);
    m_bodyThread = std::this_thread::get_id();
}

void ThreadControl::LeaveBody()
{
    std::lock_guard lock(m_mutex);
    m_bodyThread = std::thread::id();
    xEndPreLocked();
}

void ThreadControl::xEndPreLocked()
{
    m_running.store(false);
    if (m_endCounter)
        m_endCounter->fetch_add(1);
    m_ended.notify_all();
}

void ThreadControl::CountEndIn(std::shared_ptr<std::atomic<std::uint32_t>> counter)
{
    std::lock_guard lock(m_mutex);
    m_endCounter = std::move(counter);
}

void ThreadControl::WaitUntilEnded()
{
    std::unique_lock lock(m_mutex);
    if (m_bodyThread == std::this_thread::get_id())
        return;
    m_ended.wait(lock, [this] { return !m_running.load(); });
}

bool ThreadControl::IsOwnThread() const
{
    std::lock_guard lock(m_mutex);
    return m_bodyThread == std::this_thread::get_id();
}

} // namespace kqlib
