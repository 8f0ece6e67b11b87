#include "platform/Clock.h"

#include <gtest/gtest.h>

#include <chrono>
#include <ctime>

namespace kqlib::platform {
namespace {

struct UTC_CASE
{
    std::int64_t wallMs;
    CalendarTime time;
};

void ExpectSame(const CalendarTime& got, const CalendarTime& wanted)
{
    EXPECT_EQ(got.year, wanted.year);
    EXPECT_EQ(got.month, wanted.month);
    EXPECT_EQ(got.day, wanted.day);
    EXPECT_EQ(got.hour, wanted.hour);
    EXPECT_EQ(got.minute, wanted.minute);
    EXPECT_EQ(got.second, wanted.second);
    EXPECT_EQ(got.millisecond, wanted.millisecond);
}

// Expected values from the `date` program.
TEST(ClockTest, ToUtcTime_KnownMoments_TheirFields)
{
    const UTC_CASE cases[] = {
        {0, {1970, 1, 1, 0, 0, 0, 0}},
        {-1, {1969, 12, 31, 23, 59, 59, 999}},
        {951782399999, {2000, 2, 28, 23, 59, 59, 999}},
        {951782400000, {2000, 2, 29, 0, 0, 0, 0}},
        {951868800000, {2000, 3, 1, 0, 0, 0, 0}},
        {-2203977600000, {1900, 2, 28, 0, 0, 0, 0}},
        {-2203891200000, {1900, 3, 1, 0, 0, 0, 0}},
        {4107542399000, {2100, 2, 28, 23, 59, 59, 0}},
        {4107542400000, {2100, 3, 1, 0, 0, 0, 0}},
        {2147483648000, {2038, 1, 19, 3, 14, 8, 0}},
        {1234567890123, {2009, 2, 13, 23, 31, 30, 123}},
    };
    for (const UTC_CASE& one : cases) {
        SCOPED_TRACE(one.wallMs);
        CalendarTime got{};
        ASSERT_TRUE(ToUtcTime(one.wallMs, got));
        ExpectSame(got, one.time);
    }
}

TEST(ClockTest, ToUtcTime_EndsOfItsRange_ValidOnlyInside)
{
    constexpr std::int64_t first = -62135596800000;
    constexpr std::int64_t last = 253402300799999;
    CalendarTime got{};
    ASSERT_TRUE(ToUtcTime(first, got));
    ExpectSame(got, {1, 1, 1, 0, 0, 0, 0});
    ASSERT_TRUE(ToUtcTime(last, got));
    ExpectSame(got, {9999, 12, 31, 23, 59, 59, 999});
    EXPECT_FALSE(ToUtcTime(first - 1, got));
    EXPECT_FALSE(ToUtcTime(last + 1, got));
}

TEST(ClockTest, ToUtcTime_EveryDayOfFourHundredYears_FollowsTheDayBefore)
{
    constexpr std::int64_t msPerDay = 86400000;
    constexpr int daysOfEra = 146097;
    CalendarTime before{};
    ASSERT_TRUE(ToUtcTime(-msPerDay, before));
    for (int day = 0; day < daysOfEra; day++) {
        CalendarTime now{};
        ASSERT_TRUE(ToUtcTime(day * msPerDay, now));
        const bool nextDay = now.year == before.year && now.month == before.month && now.day == before.day + 1;
        const bool nextMonth = now.year == before.year && now.month == before.month + 1 && now.day == 1;
        const bool nextYear = now.year == before.year + 1 && now.month == 1 && now.day == 1 && before.month == 12;
        ASSERT_TRUE(nextDay || nextMonth || nextYear) << now.year << '-' << now.month << '-' << now.day;
        before = now;
    }
    ExpectSame(before, {2369, 12, 31, 0, 0, 0, 0});
}

TEST(ClockTest, ToLocalTime_ThisMoment_WithinADayOfUtcAndSameMillisecond)
{
    const std::int64_t now = WallClockMs();
    CalendarTime local{};
    CalendarTime utc{};
    ASSERT_TRUE(ToLocalTime(now, local));
    ASSERT_TRUE(ToUtcTime(now, utc));
    EXPECT_EQ(local.millisecond, utc.millisecond);
    EXPECT_EQ(local.second, utc.second);
    EXPECT_LE(std::abs(local.year - utc.year), 1);
}

TEST(ClockTest, ToLocalTime_PartOfASecondBefore1970_CountsUpwards)
{
    // Far enough from 1970 that no zone's offset leads past it.
    constexpr std::int64_t threeDays = 3 * 86400000;
    CalendarTime local{};
    CalendarTime wholeSecond{};
    ASSERT_TRUE(ToLocalTime(-threeDays + 250, local));
    ASSERT_TRUE(ToLocalTime(-threeDays, wholeSecond));
    EXPECT_EQ(local.year, 1969);
    EXPECT_EQ(local.millisecond, 250);
    EXPECT_EQ(local.second, wholeSecond.second);
    EXPECT_EQ(wholeSecond.millisecond, 0);
}

TEST(ClockTest, WallClockMs_Now_AgreesWithTheStandardClock)
{
    const auto standard =
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::system_clock::now().time_since_epoch())
            .count();
    EXPECT_NEAR(static_cast<double>(WallClockMs()), static_cast<double>(standard), 2000.0);
}

TEST(ClockTest, SleepMs_FiftyMilliseconds_TickAdvancesByAboutThat)
{
    // The tick of some systems advances in steps of 16 ms.
    const std::uint32_t before = TickMs();
    SleepMs(50);
    const std::uint32_t passed = TickMs() - before;
    EXPECT_GE(passed, 50U - 16U);
    EXPECT_LT(passed, 5000U);
}

TEST(ClockTest, SleepMs_Zero_ReturnsAtOnce)
{
    const std::uint32_t before = TickMs();
    for (int i = 0; i < 10; i++)
        SleepMs(0);
    EXPECT_LT(TickMs() - before, 1000U);
}

} // namespace
} // namespace kqlib::platform
