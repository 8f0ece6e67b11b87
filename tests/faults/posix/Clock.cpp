// The wrapper's clocks. What they are moved by, everyone sees: a test compares what the libraries stored with what it
// reads itself.
#include "platform/Clock.h"

#include "tests/faults/posix/Interposition.h"

namespace kqlib::platform {

using test::Call;
using test::FAULT;
using test::FaultPlan;
using test::Real;

namespace {

constexpr std::int64_t MAX_SHIFT_MS = 20;
constexpr std::int64_t MAX_LEAP_MS = 48LL * 3600 * 1000;
constexpr std::uint32_t MAX_TICK_LEAP_MS = 0x80000000U;

/// -limit to limit.
std::int64_t Around(const FaultPlan::DRAW& draw, std::int64_t limit)
{
    return static_cast<std::int64_t>(draw.Below(static_cast<std::uint64_t>(2 * limit + 1))) - limit;
}

} // namespace

std::uint32_t TickMs()
{
    const Call call(__builtin_return_address(0));
    if (FaultPlan::sMayMoveClocks())
        if (const auto draw = call.Draw(FAULT::TICK_LEAP))
            FaultPlan::sMoveTick(static_cast<std::uint32_t>(draw.Below(MAX_TICK_LEAP_MS)));
    return Real<&TickMs>()() + FaultPlan::sGetTickOffset();
}

std::int64_t WallClockMs()
{
    const Call call(__builtin_return_address(0));
    if (FaultPlan::sMayMoveClocks()) {
        if (const auto draw = call.Draw(FAULT::WALL_LEAP))
            FaultPlan::sSetWallOffset(Around(draw, MAX_LEAP_MS));
        else if (const auto shift = call.Draw(FAULT::WALL_SHIFTED))
            FaultPlan::sSetWallOffset(Around(shift, MAX_SHIFT_MS));
    }
    return Real<&WallClockMs>()() + FaultPlan::sGetWallOffset();
}

void SleepMs(std::uint32_t ms)
{
    const Call call(__builtin_return_address(0));
    if (const auto draw = call.Draw(FAULT::SLEEP_LONG))
        ms += static_cast<std::uint32_t>(1 + draw.Below(4));
    Real<&SleepMs>()(ms);
}

bool ToLocalTime(std::int64_t wallMs, CalendarTime& out)
{
    const Call call(__builtin_return_address(0));
    return !call.Draw(FAULT::TIME_FAILS) && Real<&ToLocalTime>()(wallMs, out);
}

} // namespace kqlib::platform
