// ThreadEvent: a flag that threads can wait for.
#pragma once

#include "common/Types.h"
#include "platform/Export.h"

#include <condition_variable>
#include <mutex>

namespace kqlib {

/// A manual-reset event. Any thread.
class KQCOMMON_API ThreadEvent
{
public:
    /// Not set.
    ThreadEvent() = default;
    ThreadEvent(const ThreadEvent&) = delete;
    ThreadEvent& operator=(const ThreadEvent&) = delete;

    /// Wakes all who wait; it stays set until Reset.
    void Set();
    /// From now on Wait waits again, also in a thread that Set has woken but that has not run yet.
    void Reset();
    /// Asks without waiting.
    bool IsSet() const;
    /// Waits at most milliSecs (past 32 bits: the largest such number); true when the event is set.
    bool Wait(ULONG milliSecs) const;

private:
    mutable std::mutex m_mutex;
    mutable std::condition_variable m_changed;
    bool m_set = false;
};

} // namespace kqlib
