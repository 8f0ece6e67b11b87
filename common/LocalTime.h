// GetLocalTime: the calendar of the machine. Inside the library only.
#pragma once

#include "common/TimePos.h"
#include "platform/Clock.h"

namespace kqlib {

/// The local time, or UTC where the system cannot tell the local one.
inline platform::CalendarTime GetLocalTime(const TimePos& time)
{
    platform::CalendarTime local = {};
    if (!platform::ToLocalTime(time.GetMilliSeconds(), local))
        platform::ToUtcTime(time.GetMilliSeconds(), local);
    return local;
}

} // namespace kqlib
