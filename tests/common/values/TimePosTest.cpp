#include "common/TimePos.h"

#include "platform/Clock.h"

#include <gtest/gtest.h>

#include <limits>

namespace kqlib {
namespace {

constexpr SLONG8 DAY_MS = 86400000;
constexpr SLONG8 LEAP_DAY_2000 = 951782400000; // 2000-02-29 00:00 UTC
constexpr SLONG8 MAX_MS = std::numeric_limits<SLONG8>::max();
constexpr SLONG8 MIN_MS = std::numeric_limits<SLONG8>::min();

/// Sets the calendar for one test.
class TimePosSourceTest : public ::testing::Test
{
protected:
    ~TimePosSourceTest() override { TimePos::sSetSource(nullptr); }
};

TEST(TimePosTest, New_Unset)
{
    const TimePos time;
    EXPECT_FALSE(time.IsSet());
    EXPECT_EQ(time.GetMilliSeconds(), 0);
    EXPECT_TRUE(time.GetText().empty());
}

TEST(TimePosTest, Reset_Unset)
{
    TimePos time(5);
    EXPECT_TRUE(time.IsSet());
    time.Reset();
    EXPECT_EQ(time, TimePos());
}

TEST(TimePosTest, SetNow_TheSystemsClock)
{
    const SLONG8 before = platform::WallClockMs();
    TimePos now;
    now.SetNow();
    EXPECT_GE(now.GetMilliSeconds(), before);
    EXPECT_LE(now.GetMilliSeconds(), before + 60000);
}

TEST_F(TimePosSourceTest, SetNow_SourceReplaced_ItsTimeUntilRestored)
{
    TimePos::sSetSource([] { return LEAP_DAY_2000; });
    EXPECT_EQ(TimePos::sNow(), TimePos(LEAP_DAY_2000));
    TimePos::sSetSource(nullptr);
    EXPECT_GT(TimePos::sNow(), TimePos(LEAP_DAY_2000));
}

TEST(TimePosTest, OffsetByDays_OverALeapDay_WholeDays)
{
    TimePos time(LEAP_DAY_2000 - DAY_MS + 5);
    EXPECT_EQ(time.GetText(), "2000-02-28 00:00:00.005");
    time.OffsetByDays(2);
    EXPECT_EQ(time.GetText(), "2000-03-01 00:00:00.005");
    time.OffsetByDays(-1);
    EXPECT_EQ(time.GetText(), "2000-02-29 00:00:00.005");
}

TEST(TimePosTest, OffsetByDays_Past2038_Continues)
{
    TimePos time(2147483647000);
    EXPECT_EQ(time.GetText(), "2038-01-19 03:14:07.000");
    time.OffsetByMilliSeconds(1000);
    EXPECT_EQ(time.GetText(), "2038-01-19 03:14:08.000");
    time.OffsetByDays(36524);
    EXPECT_EQ(time.GetText(), "2138-01-19 03:14:08.000");
    time.SetMilliSeconds(0);
    time.OffsetByDays(4294967295);
    EXPECT_EQ(time.GetMilliSeconds(), 4294967295 * DAY_MS);
}

TEST(TimePosTest, Offset_PastTheRange_StopsAtItsEnds)
{
    TimePos time(5);
    time.OffsetByDays(MAX_MS);
    EXPECT_EQ(time.GetMilliSeconds(), MAX_MS);
    time.OffsetByMilliSeconds(1);
    EXPECT_EQ(time.GetMilliSeconds(), MAX_MS);
    time.OffsetByMilliSeconds(MIN_MS);
    EXPECT_EQ(time.GetMilliSeconds(), -1);
    time.OffsetByDays(MIN_MS);
    EXPECT_EQ(time.GetMilliSeconds(), MIN_MS);
    time.OffsetByMilliSeconds(MIN_MS);
    EXPECT_EQ(time.GetMilliSeconds(), MIN_MS);
}

TEST(TimePosTest, OffsetByDays_AcrossTheWholeRange_ExactOrAtItsEnd)
{
    TimePos time(MIN_MS);
    time.OffsetByDays(MAX_MS);
    EXPECT_EQ(time.GetMilliSeconds(), MAX_MS);
    time.OffsetByDays(MIN_MS);
    EXPECT_EQ(time.GetMilliSeconds(), MIN_MS);
    // More days than a number of milliseconds can hold, and still not past the end.
    const SLONG8 days = MAX_MS / DAY_MS + 1;
    time.OffsetByDays(days);
    EXPECT_EQ(time.GetMilliSeconds(), MIN_MS + (days - 1) * DAY_MS + DAY_MS);
    time.SetMilliSeconds(MAX_MS);
    time.OffsetByDays(-days);
    EXPECT_EQ(time.GetMilliSeconds(), MAX_MS - (days - 1) * DAY_MS - DAY_MS);
    time.SetMilliSeconds(-5000);
    time.OffsetByDays(MAX_MS);
    EXPECT_EQ(time.GetMilliSeconds(), MAX_MS);
}

TEST(TimePosTest, Between_WhicheverIsLater_WholeUnits)
{
    const TimePos early(LEAP_DAY_2000);
    const TimePos late(LEAP_DAY_2000 + DAY_MS * 3 - 1);
    EXPECT_EQ(early.GetSecondsBetween(late), 3U * 86400U - 1U);
    EXPECT_EQ(late.GetSecondsBetween(early), 3U * 86400U - 1U);
    EXPECT_EQ(early.GetDaysBetween(late), 2U);
    EXPECT_EQ(late.GetDaysBetween(early), 2U);
    EXPECT_EQ(early.GetSecondsBetween(TimePos(LEAP_DAY_2000 + 999)), 0U);
    EXPECT_EQ(early.GetSecondsBetween(early), 0U);
}

TEST(TimePosTest, Between_EndsOfTheRange_NoOverflow)
{
    EXPECT_EQ(TimePos(MAX_MS).GetSecondsBetween(TimePos(MIN_MS)), 18446744073709551ULL);
    EXPECT_EQ(TimePos(MIN_MS).GetDaysBetween(TimePos(MAX_MS)), 213503982334ULL);
}

TEST(TimePosTest, Compare_ByTime)
{
    EXPECT_TRUE(TimePos(-1) < TimePos());
    EXPECT_TRUE(TimePos(2) > TimePos(1));
    EXPECT_TRUE(TimePos(2) >= TimePos(2) && TimePos(2) <= TimePos(2) && TimePos(2) == TimePos(2));
    EXPECT_TRUE(TimePos(2) != TimePos(3));
}

TEST(TimePosTest, GetText_Before1970_CountsUpwardsWithinTheSecond)
{
    EXPECT_EQ(TimePos(-1).GetText(), "1969-12-31 23:59:59.999");
    EXPECT_EQ(TimePos(1).GetText(), "1970-01-01 00:00:00.001");
}

TEST(TimePosTest, GetText_OutsideTheYears1To9999_Empty)
{
    EXPECT_EQ(TimePos(253402300799999).GetText(), "9999-12-31 23:59:59.999");
    EXPECT_TRUE(TimePos(253402300800000).GetText().empty());
    EXPECT_EQ(TimePos(-62135596800000).GetText(), "0001-01-01 00:00:00.000");
    EXPECT_TRUE(TimePos(MIN_MS).GetText().empty());
    EXPECT_TRUE(TimePos(MAX_MS).GetText().empty());
}

} // namespace
} // namespace kqlib
