#include "platform/Clock.h"

#include <cerrno>
#include <ctime>
#include <sched.h>

namespace kqlib::platform {

namespace {

// Goes on while the machine sleeps, where the system has such a clock.
#ifdef CLOCK_BOOTTIME
constexpr clockid_t TICK_CLOCK = CLOCK_BOOTTIME;
#else
constexpr clockid_t TICK_CLOCK = CLOCK_MONOTONIC;
#endif

std::int64_t NowMs(clockid_t clock)
{
    timespec now{};
    ::clock_gettime(clock, &now);
    return std::int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

} // namespace

std::uint32_t TickMs()
{
    return static_cast<std::uint32_t>(NowMs(TICK_CLOCK));
}

std::int64_t WallClockMs()
{
    return NowMs(CLOCK_REALTIME);
}

void SleepMs(std::uint32_t ms)
{
    if (ms == 0) {
        ::sched_yield();
        return;
    }
    timespec rest{};
    rest.tv_sec = static_cast<time_t>(ms / 1000);
    rest.tv_nsec = static_cast<long>(ms % 1000) * 1000000;
    while (::nanosleep(&rest, &rest) != 0 && errno == EINTR) {
        // a signal came: sleep what is left
    }
}

bool ToLocalTime(std::int64_t wallMs, CalendarTime& out)
{
    std::int64_t seconds = wallMs / 1000;
    int millisecond = static_cast<int>(wallMs % 1000);
    if (millisecond < 0) { // before 1970: the part of a second still counts upwards
        millisecond += 1000;
        --seconds;
    }
    const auto time = static_cast<time_t>(seconds);
    tm local{};
    if (::localtime_r(&time, &local) == nullptr)
        return false;
    out = {local.tm_year + 1900, local.tm_mon + 1, local.tm_mday, local.tm_hour,
           local.tm_min,         local.tm_sec,     millisecond};
    return true;
}

} // namespace kqlib::platform
