// Clocks and pauses of the system: the 32-bit millisecond tick, calendar time, sleeping.
// Inside the library only.
#pragma once

#include "platform/Export.h"

#include <cstdint>

namespace kqlib::platform {

/// A calendar time broken into its fields, of the local time zone or of UTC.
struct CalendarTime
{
    int year;        ///< four digits
    int month;       ///< 1 to 12
    int day;         ///< 1 to 31
    int hour;        ///< 0 to 23
    int minute;      ///< 0 to 59
    int second;      ///< 0 to 60
    int millisecond; ///< 0 to 999
};

/// Milliseconds since the system started (low 32 bits; wraps every 49.7 days). Differences of two ticks are taken in
/// unsigned 32-bit arithmetic. Any thread.
KQCOMMON_API std::uint32_t TickMs();

/// Milliseconds since 1970-01-01 00:00:00 UTC by the system's calendar clock. Any thread.
KQCOMMON_API std::int64_t WallClockMs();

/// Sleeps at least ms milliseconds (0: gives up the rest of the time slice). A signal does not shorten it.
KQCOMMON_API void SleepMs(std::uint32_t ms);

/// Breaks wallMs (milliseconds since 1970 UTC) into local time. False when the system cannot convert it. Any thread.
KQCOMMON_API bool ToLocalTime(std::int64_t wallMs, CalendarTime& out);

/// Breaks wallMs into UTC by calendar arithmetic of our own, valid for the years 1 to 9999. Any thread.
KQCOMMON_API bool ToUtcTime(std::int64_t wallMs, CalendarTime& out);

} // namespace kqlib::platform
