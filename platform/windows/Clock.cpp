#include "platform/Clock.h"

#include "platform/windows/SystemHeaders.h"

namespace kqlib::platform {

namespace {

// A FILETIME counts 100 ns from 1601-01-01 UTC.
constexpr std::int64_t FILETIME_UNITS_PER_MS = 10000;
constexpr std::int64_t MS_FROM_1601_TO_1970 = 11644473600000LL;

std::int64_t MsFromFileTime(const FILETIME& time)
{
    const std::uint64_t units = (static_cast<std::uint64_t>(time.dwHighDateTime) << 32) | time.dwLowDateTime;
    return static_cast<std::int64_t>(units) / FILETIME_UNITS_PER_MS - MS_FROM_1601_TO_1970;
}

// False for a time that a FILETIME cannot hold.
bool MsToFileTime(std::int64_t wallMs, FILETIME& time)
{
    constexpr std::int64_t lastMs = INT64_MAX / FILETIME_UNITS_PER_MS - MS_FROM_1601_TO_1970;
    if (wallMs < -MS_FROM_1601_TO_1970 || wallMs > lastMs)
        return false;
    const auto units = static_cast<std::uint64_t>((wallMs + MS_FROM_1601_TO_1970) * FILETIME_UNITS_PER_MS);
    time.dwHighDateTime = static_cast<DWORD>(units >> 32);
    time.dwLowDateTime = static_cast<DWORD>(units & 0xFFFFFFFFU);
    return true;
}

} // namespace

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
