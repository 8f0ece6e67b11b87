#include "common/ThreadControl.h"

namespace kqlib {

namespace {

std::atomic<std::uint32_t> endedCount{0};

} // namespace

std::uint32_t ThreadControl::sGetEndedCount()
{
    return endedCount.load();
}

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
    m_running.store(false);
    endedCount.fetch_add(1);
    m_ended.notify_all();
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
    m_running.store(false);
    endedCount.fetch_add(1);
    m_ended.notify_all();
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
