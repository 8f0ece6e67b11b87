#include "common/TimedEvent.h"

#include "platform/Clock.h"

#include <gtest/gtest.h>

namespace kqlib {
namespace {

class TimedEventSourceTest : public ::testing::Test
{
protected:
    ~TimedEventSourceTest() override { TimedEvent::sSetSource(nullptr); }
};

TEST(TimedEventTest, IsTriggered_OnceTheIntervalHasPassed)
{
    const TimedEvent event(1000, 500, false);
    EXPECT_FALSE(event.IsTriggered(1000));
    EXPECT_FALSE(event.IsTriggered(1499));
    EXPECT_TRUE(event.IsTriggered(1500));
    EXPECT_TRUE(event.IsTriggered(1501));
}

TEST(TimedEventTest, IsTriggered_TickWraps_CountsOn)
{
    TimedEvent event(0xFFFFFFF0UL, 32, false);
    EXPECT_FALSE(event.IsTriggered(0xFFFFFFFFUL));
    EXPECT_FALSE(event.IsTriggered(0));
    EXPECT_FALSE(event.IsTriggered(15));
    EXPECT_TRUE(event.IsTriggered(16));
    event.Restart(0xFFFFFFFFUL);
    EXPECT_FALSE(event.IsTriggered(30));
    EXPECT_TRUE(event.IsTriggered(31));
}

TEST(TimedEventTest, IsTriggered_IntervalZero_AtOnce)
{
    EXPECT_TRUE(TimedEvent(7, 0, false).IsTriggered(7));
}

TEST(TimedEventTest, IsTriggered_LongestInterval_OneTickBeforeTheWrap)
{
    const TimedEvent event(10, 0xFFFFFFFFUL, false);
    EXPECT_FALSE(event.IsTriggered(8));
    EXPECT_TRUE(event.IsTriggered(9));
}

TEST(TimedEventTest, Construct_AlreadyTriggered_UntilTheFirstRestart)
{
    TimedEvent event(1000, 500, true);
    EXPECT_TRUE(event.IsTriggered(1000));
    event.Restart(1000);
    EXPECT_FALSE(event.IsTriggered(1499));
    EXPECT_TRUE(event.IsTriggered(1500));
}

TEST(TimedEventTest, SetIntervalMS_WhileRunning_CountsFromTheSameStart)
{
    TimedEvent event(1000, 500, false);
    event.SetIntervalMS(100);
    EXPECT_FALSE(event.IsTriggered(1099));
    EXPECT_TRUE(event.IsTriggered(1100));
    event.SetIntervalMS(2000);
    EXPECT_FALSE(event.IsTriggered(2999));
    EXPECT_TRUE(event.IsTriggered(3000));
}

TEST(TimedEventTest, SetIntervalMS_ProductPast32Bits_LowBitsCount)
{
    // A product of seconds and 1000 in the wider type of some systems; the narrower one gives the same by itself.
    const ULONG8 product = 4294967295ULL * 1000;
    TimedEvent event(0, 1, false);
    event.SetIntervalMS(static_cast<ULONG>(product));
    EXPECT_FALSE(event.IsTriggered(4294966295UL));
    EXPECT_TRUE(event.IsTriggered(4294966296UL));
}

TEST(TimedEventTest, SGetNow_Below2To32AndTheSystemsTick)
{
    const std::uint32_t before = platform::TickMs();
    const ULONG now = TimedEvent::sGetNow();
    EXPECT_LE(now, 0xFFFFFFFFUL);
    EXPECT_LT(static_cast<std::uint32_t>(now) - before, 60000U);
}

TEST_F(TimedEventSourceTest, SGetNow_SourceReplaced_ItsTick)
{
    TimedEvent::sSetSource([]() -> std::uint32_t { return 0xFFFFFFFEU; });
    EXPECT_EQ(TimedEvent::sGetNow(), 0xFFFFFFFEUL);
}

} // namespace
} // namespace kqlib
