#include "platform/Clock.h"

#include "platform/windows/FileTime.h"

namespace kqlib::platform {

std::uint32_t TickMs()
{
    return GetTickCount();
}

std::int64_t WallClockMs()
{
    FILETIME now;
    GetSystemTimeAsFileTime(&now);
    return MsFromFileTime(now);
}

void SleepMs(std::uint32_t ms)
{
    // The largest value would mean "for ever".
    Sleep(ms == INFINITE ? INFINITE - 1 : ms);
}

bool ToLocalTime(std::int64_t wallMs, CalendarTime& out)
{
    FILETIME time;
    SYSTEMTIME utc;
    SYSTEMTIME local;
    if (!MsToFileTime(wallMs, time) || !FileTimeToSystemTime(&time, &utc) ||
        !SystemTimeToTzSpecificLocalTime(nullptr, &utc, &local))
        return false;
    out = {local.wYear, local.wMonth, local.wDay, local.wHour, local.wMinute, local.wSecond, local.wMilliseconds};
    return true;
}

} // namespace kqlib::platform
