#include "common/TimedEvent.h"

#include "platform/Clock.h"

#include <atomic>

namespace kqlib {

namespace {

std::atomic<std::uint32_t (*)()> source{nullptr};

} // namespace

TimedEvent::TimedEvent(ULONG startTick, ULONG intervalMs, bool triggered)
    : m_start(static_cast<std::uint32_t>(startTick))
    , m_interval(static_cast<std::uint32_t>(intervalMs))
    , m_triggered(triggered)
{
}

ULONG TimedEvent::sGetNow()
{
    std::uint32_t (*const replaced)() = source.load(std::memory_order_relaxed);
    return replaced != nullptr ? replaced() : platform::TickMs();
}

bool TimedEvent::IsTriggered(ULONG now) const
{
    return m_triggered || std::uint32_t(static_cast<std::uint32_t>(now) - m_start) >= m_interval;
}

void TimedEvent::Restart(ULONG now)
{
    m_start = static_cast<std::uint32_t>(now);
    m_triggered = false;
}

void TimedEvent::SetIntervalMS(ULONG intervalMs)
{
    m_interval = static_cast<std::uint32_t>(intervalMs);
}

void TimedEvent::sSetSource(std::uint32_t (*replacement)())
{
    source.store(replacement);
}

} // namespace kqlib
