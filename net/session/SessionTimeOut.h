// SessionTimeOut: the time without traffic after which a session's waits give up. Inside the library only.
#pragma once

#include "common/TimedEvent.h"

namespace kqlib {

/// A session's time-out, and what restarts it. It closes nothing by itself: the session asks.
///
/// Ownership: a plain value. Threads: one at a time. Errors: none.
class SessionTimeOut
{
public:
    /// Runs from now on. seconds: kept as milliseconds in 32 bits, as ticks are; a time that does not fit wraps.
    explicit SessionTimeOut(ULONG seconds);

    /// Changes the time without restarting it; 0 has passed at once.
    void SetSeconds(ULONG seconds);
    /// now, here and below: a tick of TimedEvent::sGetNow.
    bool HasPassed(ULONG now) const { return m_timer.IsTriggered(now); }
    /// Starts the time anew.
    void Restart(ULONG now) { m_timer.Restart(now); }

    /// Whether received and whether sent bytes restart it; both true at first.
    ///@{
    void SetRestartOnRecv(bool restart) { m_restartOnRecv = restart; }
    void SetRestartOnSend(bool restart) { m_restartOnSend = restart; }
    ///@}
    /// A command or bytes came, or bytes went out: restarts it at the present tick, unless that is turned off.
    ///@{
    void NoteRecv();
    void NoteSend();
    ///@}

private:
    TimedEvent m_timer;
    bool m_restartOnRecv = true;
    bool m_restartOnSend = true;
};

} // namespace kqlib
