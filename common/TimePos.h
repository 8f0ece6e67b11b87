// TimePos: a calendar date and time to the millisecond.
#pragma once

#include "common/String.h"

#include <cstdint>

namespace kqlib {

/// Milliseconds since 1970-01-01 00:00 UTC in a signed 64-bit number; 0 is "unset".
///
/// The current time comes from one replaceable source, so that tests can set the calendar. Ownership: a plain value.
/// Threads: one at a time; sSetSource is for tests, before other threads run. Errors: none.
class KQCOMMON_API TimePos
{
public:
    /// Unset.
    TimePos() = default;
    /// milliSecs since 1970 UTC; 0 is unset.
    explicit TimePos(SLONG8 milliSecs)
        : m_ms(milliSecs)
    {
    }

    /// The current time, of the source.
    ///@{
    void SetNow();
    static TimePos sNow();
    ///@}
    /// Unset, and the question for it: a time of exactly 1970-01-01 00:00 UTC counts as unset, too.
    ///@{
    void Reset() { m_ms = 0; }
    bool IsSet() const { return m_ms != 0; }
    ///@}
    /// Milliseconds since 1970 UTC, negative before it.
    ///@{
    SLONG8 GetMilliSeconds() const { return m_ms; }
    void SetMilliSeconds(SLONG8 milliSecs) { m_ms = milliSecs; }
    ///@}

    /// Moves the time, back when negative; it stops at the ends of the 64-bit range.
    ///@{
    void OffsetByDays(SLONG8 days);
    void OffsetByMilliSeconds(SLONG8 milliSecs);
    ///@}
    /// Whole seconds or days between two times, whichever is later.
    ///@{
    ULONG8 GetSecondsBetween(const TimePos& other) const;
    ULONG8 GetDaysBetween(const TimePos& other) const;
    ///@}
    /// "YYYY-MM-DD hh:mm:ss.mmm" in UTC; empty when unset.
    String GetText() const;

    /// By the number of milliseconds, so that an unset time counts as 1970.
    ///@{
    friend bool operator==(const TimePos&, const TimePos&) = default;
    friend auto operator<=>(const TimePos&, const TimePos&) = default;
    ///@}

    /// Replaces the source of the current time (milliseconds since 1970 UTC); null restores the system clock.
    static void sSetSource(SLONG8 (*source)());

private:
    SLONG8 m_ms = 0;
};

} // namespace kqlib
