// MovableClock: a tick that stands still until a test moves it.
#pragma once

#include "common/TimedEvent.h"

#include <atomic>
#include <cstdint>

namespace kqlib::test {

/// The tick source while it lives. Ownership: none. Threads: Advance any; one object at a time.
class MovableClock
{
public:
    explicit MovableClock(std::uint32_t start = 1000)
    {
        s_tick = start;
        TimedEvent::sSetSource([] { return s_tick.load(); });
    }
    ~MovableClock() { TimedEvent::sSetSource(nullptr); }
    MovableClock(const MovableClock&) = delete;
    MovableClock& operator=(const MovableClock&) = delete;

    void AdvanceMs(std::uint64_t milliSecs) { s_tick += static_cast<std::uint32_t>(milliSecs); }
    void AdvanceSecs(std::uint64_t secs) { AdvanceMs(secs * 1000); }
    std::uint32_t Get() const { return s_tick; }

private:
    static inline std::atomic<std::uint32_t> s_tick{0};
};

} // namespace kqlib::test
