#include "common/TimePos.h"

#include "platform/Clock.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <limits>

namespace kqlib {

namespace {

constexpr SLONG8 MS_PER_SECOND = 1000;
constexpr SLONG8 MS_PER_DAY = 86400 * MS_PER_SECOND;
constexpr SLONG8 MAX_MS = std::numeric_limits<SLONG8>::max();
constexpr SLONG8 MIN_MS = std::numeric_limits<SLONG8>::min();

std::atomic<SLONG8 (*)()> source{nullptr};

/// The distance between two times, whichever is later.
ULONG8 Distance(SLONG8 left, SLONG8 right)
{
    return left > right ? static_cast<ULONG8>(left) - static_cast<ULONG8>(right)
                        : static_cast<ULONG8>(right) - static_cast<ULONG8>(left);
}

} // namespace

void TimePos::SetNow()
{
    SLONG8 (*const replaced)() = source.load(std::memory_order_relaxed);
    m_ms = replaced != nullptr ? replaced() : platform::WallClockMs();
}

TimePos TimePos::sNow()
{
    TimePos now;
    now.SetNow();
    return now;
}

void TimePos::OffsetByDays(SLONG8 days)
{
    // A number of milliseconds holds half of the range; three such steps lead past its end from anywhere.
    constexpr SLONG8 maxDays = MAX_MS / MS_PER_DAY;
    for (int step = 0; step < 3; ++step) {
        const SLONG8 part = std::clamp(days, -maxDays, maxDays);
        OffsetByMilliSeconds(part * MS_PER_DAY);
        days -= part;
    }
}

void TimePos::OffsetByMilliSeconds(SLONG8 milliSecs)
{
    if (milliSecs > 0)
        m_ms = m_ms > MAX_MS - milliSecs ? MAX_MS : m_ms + milliSecs;
    else
        m_ms = m_ms < MIN_MS - milliSecs ? MIN_MS : m_ms + milliSecs;
}

ULONG8 TimePos::GetSecondsBetween(const TimePos& other) const
{
    return Distance(m_ms, other.m_ms) / static_cast<ULONG8>(MS_PER_SECOND);
}

ULONG8 TimePos::GetDaysBetween(const TimePos& other) const
{
    return Distance(m_ms, other.m_ms) / static_cast<ULONG8>(MS_PER_DAY);
}

String TimePos::GetText() const
{
    platform::CalendarTime time{};
    if (!IsSet() || !platform::ToUtcTime(m_ms, time))
        return {};
    char text[64];
    std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d.%03d", time.year, time.month, time.day, time.hour,
                  time.minute, time.second, time.millisecond);
    return text;
}

void TimePos::sSetSource(SLONG8 (*replacement)())
{
    source.store(replacement);
}

} // namespace kqlib
