#include "net/session/SessionTimeOut.h"

#include "tests/peers/MovedClocks.h"

#include <gtest/gtest.h>

namespace kqlib::test {
namespace {

TEST(SessionTimeOut, HasPassed_AroundItsTime_AlsoWhenTheTickWraps)
{
    for (const std::uint32_t start : {5U, 0xFFFFFFFFU - 500U}) {
        const MovedTick tick(start);
        const SessionTimeOut timeOut(1);
        EXPECT_FALSE(timeOut.HasPassed(start));
        EXPECT_FALSE(timeOut.HasPassed(static_cast<std::uint32_t>(start + 999U)));
        EXPECT_TRUE(timeOut.HasPassed(static_cast<std::uint32_t>(start + 1000U)));
    }
}

TEST(SessionTimeOut, SetSeconds_WhileItRuns_DoesNotRestart)
{
    const MovedTick tick(0);
    SessionTimeOut timeOut(10);
    timeOut.SetSeconds(2);
    EXPECT_FALSE(timeOut.HasPassed(1999));
    EXPECT_TRUE(timeOut.HasPassed(2000));
    timeOut.SetSeconds(0);
    EXPECT_TRUE(timeOut.HasPassed(0));
    timeOut.SetSeconds(4294968); // 704 ms more than 32 bits hold
    EXPECT_FALSE(timeOut.HasPassed(703));
    EXPECT_TRUE(timeOut.HasPassed(704));
}

TEST(SessionTimeOut, Restart_AtATick_CountsFromThere)
{
    const MovedTick tick(0);
    SessionTimeOut timeOut(1);
    timeOut.Restart(600);
    EXPECT_FALSE(timeOut.HasPassed(1599));
    EXPECT_TRUE(timeOut.HasPassed(1600));
}

TEST(SessionTimeOut, NoteRecvAndSend_EachWithItsSwitch_RestartAtThePresentTick)
{
    MovedTick tick(0);
    SessionTimeOut timeOut(1);
    MovedTick::sAdvance(500);
    timeOut.NoteRecv();
    EXPECT_FALSE(timeOut.HasPassed(1499));
    MovedTick::sAdvance(500);
    timeOut.NoteSend();
    EXPECT_FALSE(timeOut.HasPassed(1999));
    MovedTick::sAdvance(500);
    timeOut.SetRestartOnRecv(false);
    timeOut.NoteRecv();
    EXPECT_TRUE(timeOut.HasPassed(2000));
    timeOut.NoteSend();
    EXPECT_FALSE(timeOut.HasPassed(2000));
    MovedTick::sAdvance(500);
    timeOut.SetRestartOnRecv(true);
    timeOut.SetRestartOnSend(false);
    timeOut.NoteSend();
    EXPECT_TRUE(timeOut.HasPassed(2500));
    timeOut.NoteRecv();
    EXPECT_FALSE(timeOut.HasPassed(2500));
}

} // namespace
} // namespace kqlib::test
