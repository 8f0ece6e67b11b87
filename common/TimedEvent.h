// TimedEvent: a millisecond interval timer on the 32-bit tick.
#pragma once

#include "common/Types.h"
#include "platform/Export.h"

#include <cstdint>

namespace kqlib {

/// An interval since the last restart, in milliseconds, safe when the 32-bit tick wraps.
///
/// Ownership: a plain value. Threads: one at a time; sGetNow any thread. Errors: none.
class KQCOMMON_API TimedEvent
{
public:
    /// startTick: the tick it counts from. triggered: true makes IsTriggered true until the first Restart.
    TimedEvent(ULONG startTick, ULONG intervalMs, bool triggered);

    /// The millisecond tick, below 2^32.
    static ULONG sGetNow();
    /// True when the interval has passed at tick now since the last restart. An interval of 0 has passed at once.
    bool IsTriggered(ULONG now) const;
    /// Counts from tick now on.
    void Restart(ULONG now);
    /// Changes the interval without restarting it. Only the low 32 bits count.
    void SetIntervalMS(ULONG intervalMs);

    /// Replaces the tick source; null restores the system's. For tests, before other threads run.
    static void sSetSource(std::uint32_t (*source)());

private:
    std::uint32_t m_start;
    std::uint32_t m_interval;
    bool m_triggered;
};

} // namespace kqlib
