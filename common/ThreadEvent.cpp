#include "common/ThreadEvent.h"

#include <algorithm>
#include <chrono>

namespace kqlib {

// The waiters are told while the mutex is held: a waiter that then deletes the event cannot do so before Set is
// through.
void ThreadEvent::Set()
{
    std::lock_guard lock(m_mutex);
    m_set = true;
    m_changed.notify_all();
}

void ThreadEvent::Reset()
{
    std::lock_guard lock(m_mutex);
    m_set = false;
}

bool ThreadEvent::IsSet() const
{
    std::lock_guard lock(m_mutex);
    return m_set;
}

bool ThreadEvent::Wait(ULONG milliSecs) const
{
    const std::chrono::milliseconds limit(static_cast<std::int64_t>(std::min(milliSecs, ALL_BITS_32)));
    std::unique_lock lock(m_mutex);
    return m_changed.wait_for(lock, limit, [this] { return m_set; });
}

} // namespace kqlib
