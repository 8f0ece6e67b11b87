// MovedCalendar, MovedTick: clocks that a test moves.
#pragma once

#include "common/TimePos.h"
#include "common/TimedEvent.h"

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace kqlib::test {

/// While it lives the calendar stands still at the time that is set.
class MovedCalendar
{
public:
    explicit MovedCalendar(SLONG8 milliSecs)
    {
        Set(milliSecs);
        TimePos::sSetSource([] { return xsNow().load(); });
    }
    ~MovedCalendar() { TimePos::sSetSource(nullptr); }
    MovedCalendar(const MovedCalendar&) = delete;
    MovedCalendar& operator=(const MovedCalendar&) = delete;
    void Set(SLONG8 milliSecs) { xsNow() = milliSecs; }

private:
    static std::atomic<SLONG8>& xsNow()
    {
        static std::atomic<SLONG8> now;
        return now;
    }
};

/// The same for the tick. It knows how often it was asked for: who waits for what code under test begins by reading the
/// tick can wait for that.
class MovedTick
{
public:
    explicit MovedTick(std::uint32_t tick)
    {
        xsNow() = tick;
        TimedEvent::sSetSource([] {
            ++xsAsked();
            return xsNow().load();
        });
    }
    ~MovedTick() { TimedEvent::sSetSource(nullptr); }
    MovedTick(const MovedTick&) = delete;
    MovedTick& operator=(const MovedTick&) = delete;
    static void sAdvance(std::uint32_t milliSecs) { xsNow() += milliSecs; }
    static std::size_t sGetAskedCount() { return xsAsked(); }

private:
    static std::atomic<std::uint32_t>& xsNow()
    {
        static std::atomic<std::uint32_t> now;
        return now;
    }
    static std::atomic<std::size_t>& xsAsked()
    {
        static std::atomic<std::size_t> asked;
        return asked;
    }
};

} // namespace kqlib::test
