#include "net/ipcontrol/NetAntiHammer.h"
#include "net/dns/NetDNSCache.h"
#include "tests/net/ipcontrol/MovableClock.h"
#include "tests/net/ipcontrol/NumberedAddress.h"
#include "tests/peers/WaitFor.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <thread>
#include <vector>

namespace {

using namespace kqlib;
using namespace kqlib::test;

NetIPControl Rules(std::initializer_list<const char*> texts)
{
    NetIPControl list;
    for (const char* text : texts) {
        NetIPControlEntry rule;
        EXPECT_TRUE(rule.SetByString(text));
        list.Add(rule);
    }
    return list;
}

class NetAntiHammerTest : public testing::Test
{
protected:
    bool Fail(int times = 1)
    {
        bool blocked = false;
        for (int i = 0; i < times; ++i)
            blocked = m_hammer.AddFailedAttempt(PEER, LOCAL);
        return blocked;
    }
    bool IsBlocked() { return m_hammer.IsBlocked(PEER, LOCAL); }
    /// Other numbers, without exemptions.
    void SetNumbers(ULONG attempts, ULONG windowSecs, ULONG blockSecs)
    {
        m_hammer.SetData(attempts, windowSecs, blockSecs, false, NetIPControl());
    }
    ULONG CountFailures()
    {
        Vector<NetAntiHammer::ENTRY> failed;
        Vector<NetAntiHammer::ENTRY> blocked;
        m_hammer.GetEntries(failed, blocked);
        return failed.GetCount() == 1 ? failed.Get(0).count : 0;
    }

    const NetIP PEER{"10.0.0.5"};
    const NetIP LOCAL{"192.168.0.1"};
    MovableClock m_clock;
    NetDNSCache m_cache;
    NetAntiHammer m_hammer{m_cache};
};

TEST_F(NetAntiHammerTest, Defaults_FifthFailureBlocks)
{
    for (int i = 0; i < 4; ++i)
        EXPECT_FALSE(Fail()) << i;
    EXPECT_FALSE(IsBlocked());
    EXPECT_TRUE(Fail());
    EXPECT_TRUE(IsBlocked());
    EXPECT_FALSE(m_hammer.IsBlocked(NetIP("10.0.0.6"), LOCAL));
}

TEST_F(NetAntiHammerTest, Construction_NumbersGiven_IgnoredOnPurpose)
{
    NetAntiHammer hammer(m_cache, 1, 1, 1, false, NetIPControl());
    for (int i = 0; i < 4; ++i) {
        EXPECT_FALSE(hammer.AddFailedAttempt(PEER, LOCAL));
        m_clock.AdvanceSecs(300);
    }
    EXPECT_TRUE(hammer.AddFailedAttempt(PEER, LOCAL));
    m_clock.AdvanceSecs(1800);
    EXPECT_TRUE(hammer.IsBlocked(PEER, LOCAL));
    m_clock.AdvanceMs(1);
    EXPECT_FALSE(hammer.IsBlocked(PEER, LOCAL));
}

TEST_F(NetAntiHammerTest, Construction_Exemptions_TakenOver)
{
    NetAntiHammer hammer(m_cache, 9, 9, 9, true, Rules({"+ip=10.0.0.5", "-ipmask=0.0.0.0/0.0.0.0"}));
    for (int i = 0; i < 5; ++i) {
        hammer.AddFailedAttempt(PEER, LOCAL);
        hammer.AddFailedAttempt(NetIP("10.0.0.6"), LOCAL);
    }
    EXPECT_FALSE(hammer.IsBlocked(PEER, LOCAL));
    EXPECT_TRUE(hammer.IsBlocked(NetIP("10.0.0.6"), LOCAL));
}

TEST_F(NetAntiHammerTest, AddFailedAttempt_WhileBlocked_TrueAndBlockNotLonger_KeptOnPurpose)
{
    EXPECT_TRUE(Fail(5));
    m_clock.AdvanceSecs(1799);
    EXPECT_TRUE(Fail());
    m_clock.AdvanceMs(1000);
    EXPECT_TRUE(IsBlocked()); // exactly the block time: not yet over
    m_clock.AdvanceMs(1);
    EXPECT_FALSE(IsBlocked());
    EXPECT_FALSE(Fail()); // and it begins with one
    EXPECT_EQ(CountFailures(), 1U);
}

TEST_F(NetAntiHammerTest, AddFailedAttempt_FurtherApartThanTheWindow_NeverBlocks)
{
    for (int i = 0; i < 20; ++i) {
        EXPECT_FALSE(Fail()) << i;
        m_clock.AdvanceSecs(301);
    }
}

TEST_F(NetAntiHammerTest, AddFailedAttempt_ExactlyTheWindowApart_WindowSlides)
{
    for (int i = 0; i < 4; ++i) {
        EXPECT_FALSE(Fail());
        m_clock.AdvanceSecs(300);
    }
    EXPECT_TRUE(Fail()); // twenty minutes after the first
}

TEST_F(NetAntiHammerTest, AddFailedAttempt_OneMillisecondPastTheWindow_CountsFromOne)
{
    Fail(4);
    m_clock.AdvanceMs(300001);
    EXPECT_FALSE(Fail());
    EXPECT_EQ(CountFailures(), 1U);
}

TEST_F(NetAntiHammerTest, MaxAttempts_1_FirstFailureBlocks)
{
    SetNumbers(1, 300, 1800);
    EXPECT_TRUE(Fail());
    EXPECT_TRUE(IsBlocked());
}

TEST_F(NetAntiHammerTest, MaxAttempts_0_SecondFailureBlocks_KeptOnPurpose)
{
    SetNumbers(0, 300, 1800);
    EXPECT_FALSE(Fail());
    EXPECT_FALSE(IsBlocked());
    EXPECT_TRUE(Fail());
    EXPECT_TRUE(IsBlocked());
}

TEST_F(NetAntiHammerTest, IsBlocked_OnlyFailed_False)
{
    Fail(4);
    EXPECT_FALSE(IsBlocked());
    EXPECT_FALSE(m_hammer.IsBlocked(NetIP("10.9.9.9"), LOCAL));
    EXPECT_TRUE(Fail()); // asking changed nothing
}

TEST_F(NetAntiHammerTest, Local_AnyAddress_NotPartOfTheCount)
{
    for (int i = 0; i < 4; ++i)
        m_hammer.AddFailedAttempt(PEER, NumberedAddress(static_cast<std::uint32_t>(i)));
    EXPECT_TRUE(m_hammer.AddFailedAttempt(PEER, NetIP("::1")));
    EXPECT_TRUE(m_hammer.IsBlocked(PEER, NetIP()));
}

TEST_F(NetAntiHammerTest, Exemptions_EmptyList_LiftsEveryBlock_KeptOnPurpose)
{
    EXPECT_TRUE(Fail(5));
    m_hammer.SetData(5, 300, 1800, true, NetIPControl());
    EXPECT_TRUE(Fail()); // counting does not ask the list
    EXPECT_FALSE(IsBlocked());
    SetNumbers(5, 300, 1800);
    EXPECT_FALSE(IsBlocked()); // it is gone, not hidden
    EXPECT_EQ(Fail(4), false);
    EXPECT_TRUE(Fail());
}

TEST_F(NetAntiHammerTest, Exemptions_FlagNotSet_ListNotAsked)
{
    m_hammer.SetData(1, 300, 1800, false, NetIPControl());
    EXPECT_TRUE(Fail());
    EXPECT_TRUE(IsBlocked());
}

TEST_F(NetAntiHammerTest, Exemptions_RulesWithFinalDeny_OnlyThoseNamed)
{
    m_hammer.SetData(1, 300, 1800, true, Rules({"+islocal", "+iprange=10.0.0.4-10.0.0.5", "-ipmask=0.0.0.0/0.0.0.0"}));
    const NetIP other("10.0.0.6");
    EXPECT_TRUE(Fail());
    EXPECT_TRUE(m_hammer.AddFailedAttempt(other, LOCAL));
    EXPECT_FALSE(IsBlocked());
    EXPECT_TRUE(m_hammer.IsBlocked(other, LOCAL));
    EXPECT_FALSE(m_hammer.IsBlocked(other, other)); // "islocal" looks at the server's own address
}

TEST_F(NetAntiHammerTest, ResetIPs_Everything_Forgotten)
{
    Fail(5);
    m_hammer.AddFailedAttempt(NetIP("10.0.0.6"), LOCAL);
    m_hammer.ResetIPs();
    EXPECT_FALSE(IsBlocked());
    EXPECT_FALSE(Fail(4));
    Vector<NetAntiHammer::ENTRY> failed;
    Vector<NetAntiHammer::ENTRY> blocked;
    m_hammer.GetEntries(failed, blocked);
    EXPECT_EQ(failed.GetCount(), 1U);
    EXPECT_EQ(blocked.GetCount(), 0U);
}

TEST_F(NetAntiHammerTest, SetData_EntriesHeld_JudgedByTheNewNumbers)
{
    Fail(3);
    SetNumbers(4, 300, 1800);
    EXPECT_TRUE(Fail());
    m_clock.AdvanceSecs(100);
    SetNumbers(4, 300, 99);
    EXPECT_FALSE(IsBlocked());
}

TEST_F(NetAntiHammerTest, SetData_LongerTimes_WhatHadRunOutStaysGone)
{
    Fail(4);
    m_clock.AdvanceSecs(301);
    EXPECT_FALSE(m_hammer.IsBlocked(NetIP("10.9.9.9"), LOCAL)); // notices it
    SetNumbers(5, 1000, 1800);
    EXPECT_FALSE(Fail());
    EXPECT_EQ(CountFailures(), 1U);
}

// Once took the numbers of a SetData that no check had followed for what had run out.
TEST_F(NetAntiHammerTest, SetData_ShorterAndLongerAgainBetweenChecks_NothingLost)
{
    Fail(4);
    m_clock.AdvanceSecs(200);
    EXPECT_FALSE(IsBlocked());
    SetNumbers(5, 100, 1800);
    SetNumbers(5, 300, 1800);
    m_clock.AdvanceSecs(50);
    EXPECT_TRUE(Fail());
}

TEST_F(NetAntiHammerTest, Expiry_OnlyOnACheck_KeptOnPurpose)
{
    Fail(4);
    m_clock.AdvanceSecs(301);
    Vector<NetAntiHammer::ENTRY> failed;
    Vector<NetAntiHammer::ENTRY> blocked;
    m_hammer.GetEntries(failed, blocked);
    EXPECT_EQ(failed.GetCount(), 1U);
    m_hammer.IsBlocked(NetIP("10.9.9.9"), LOCAL);
    m_hammer.GetEntries(failed, blocked);
    EXPECT_EQ(failed.GetCount(), 0U);
}

TEST_F(NetAntiHammerTest, Expiry_ThousandsRunOutOneByOne_AllForgottenAndNewOnesHeld)
{
    SetNumbers(2, 300, 1800);
    const auto failAll = [&] {
        for (std::uint32_t i = 0; i < 3000; ++i)
            ASSERT_FALSE(m_hammer.AddFailedAttempt(NumberedAddress(i), LOCAL));
    };
    const auto count = [&] {
        Vector<NetAntiHammer::ENTRY> failed;
        Vector<NetAntiHammer::ENTRY> blocked;
        m_hammer.GetEntries(failed, blocked);
        EXPECT_EQ(blocked.GetCount(), 0U);
        return failed.GetCount();
    };
    failAll();
    EXPECT_EQ(count(), 3000U);
    m_clock.AdvanceSecs(301);
    // Each check forgets a few.
    for (int check = 0; check < 3000; ++check)
        EXPECT_FALSE(IsBlocked());
    EXPECT_EQ(count(), 0U);
    failAll();
    EXPECT_EQ(count(), 3000U);
    EXPECT_TRUE(m_hammer.AddFailedAttempt(NumberedAddress(2999), LOCAL));
}

TEST_F(NetAntiHammerTest, Tick_Wraps_AgesGoOn)
{
    m_clock.AdvanceMs(0xFFFFFFFFU - m_clock.Get()); // the last tick there is
    EXPECT_TRUE(Fail(5));
    m_clock.AdvanceSecs(1800);
    EXPECT_TRUE(IsBlocked());
    m_clock.AdvanceMs(1);
    EXPECT_FALSE(IsBlocked());
}

// The age of an entry is 32 bits wide: without a check for 49.7 days an entry is young again.
TEST_F(NetAntiHammerTest, Tick_WholeTurnWithoutACheck_BlockIsBack_KeptOnPurpose)
{
    EXPECT_TRUE(Fail(5));
    m_clock.AdvanceMs(0xFFFFFFFFU);
    m_clock.AdvanceSecs(1000);
    EXPECT_TRUE(IsBlocked());
}

TEST_F(NetAntiHammerTest, Times_LongerThanATurn_NeverRunOut)
{
    SetNumbers(2, 0xFFFFFFFFU, 4294968); // one second more than 32 bits of milliseconds hold
    Fail();
    m_clock.AdvanceMs(0xFFFFFFF0U);
    EXPECT_TRUE(Fail());
    m_clock.AdvanceMs(0xFFFFFFF0U);
    EXPECT_TRUE(IsBlocked());
}

TEST_F(NetAntiHammerTest, Times_Zero_OneMillisecondIsTooMuch)
{
    SetNumbers(2, 0, 0);
    EXPECT_FALSE(Fail());
    EXPECT_TRUE(Fail());
    EXPECT_TRUE(IsBlocked());
    m_clock.AdvanceMs(1);
    EXPECT_FALSE(IsBlocked());
    EXPECT_FALSE(Fail());
    m_clock.AdvanceMs(1);
    EXPECT_FALSE(Fail());
}

// Once lost the bits above 32, so that very many attempts became none.
TEST_F(NetAntiHammerTest, SetData_NumbersAbove32Bits_CutToTheLargest)
{
    if (sizeof(ULONG) == 4)
        GTEST_SKIP() << "no such number here";
    const ULONG large = static_cast<ULONG>(0x100000000ULL);
    SetNumbers(large, large, large); // would be 0, 0, 0
    EXPECT_FALSE(Fail());
    m_clock.AdvanceSecs(1000000); // in the largest window
    EXPECT_FALSE(Fail(10));
    EXPECT_EQ(CountFailures(), 11U);
    SetNumbers(large + 2, large + 1, large + 1);
    m_clock.AdvanceSecs(2000000);
    EXPECT_FALSE(Fail(2));
    SetNumbers(1, 4000000, large + 1);
    EXPECT_TRUE(Fail());
    m_clock.AdvanceSecs(2000000);
    EXPECT_TRUE(IsBlocked());
}

TEST_F(NetAntiHammerTest, Construction_CapAboveTheMost_CutToIt)
{
    class HAMMER : public NetAntiHammer
    {
    public:
        HAMMER(NetDNSCache& cache, ULONG maxEntries)
            : NetAntiHammer(cache, maxEntries)
        {
        }
    };
    std::vector<ULONG> caps = {~ULONG{0}, NetAntiHammer::MAX_ENTRIES + 1};
    if (sizeof(ULONG) > 4)
        caps.push_back(static_cast<ULONG>(0x100000000ULL));
    for (const ULONG cap : caps) {
        HAMMER hammer(m_cache, cap);
        EXPECT_FALSE(hammer.AddFailedAttempt(PEER, LOCAL));
        Vector<NetAntiHammer::ENTRY> failed;
        Vector<NetAntiHammer::ENTRY> blocked;
        hammer.GetEntries(failed, blocked);
        EXPECT_EQ(failed.GetCount(), 1U) << cap;
    }
}

/// Whose lock a test can hold.
class LOCKEDHAMMER : public NetAntiHammer
{
public:
    using NetAntiHammer::Guard;
    using NetAntiHammer::NetAntiHammer;
};

TEST_F(NetAntiHammerTest, EveryOperation_WhileAnotherThreadHoldsTheLock_Waits)
{
    LOCKEDHAMMER hammer(m_cache);
    Vector<NetAntiHammer::ENTRY> failed;
    Vector<NetAntiHammer::ENTRY> blocked;
    const std::vector<std::function<void()>> operations = {
        [&] { hammer.ResetIPs(); },
        [&] { hammer.AddFailedAttempt(PEER, LOCAL); },
        [&] { hammer.IsBlocked(PEER, LOCAL); },
        [&] { hammer.SetData(5, 300, 1800, false, NetIPControl()); },
        [&] { hammer.GetEntries(failed, blocked); },
    };
    for (std::size_t index = 0; index < operations.size(); ++index) {
        std::atomic<bool> isDone{false};
        std::thread thread;
        {
            const LOCKEDHAMMER::Guard guard(hammer);
            thread = std::thread([&] {
                operations[index]();
                isDone = true;
            });
            EXPECT_FALSE(WaitFor([&] { return isDone.load(); }, 50)) << index;
        }
        thread.join();
        EXPECT_TRUE(isDone);
    }
}

TEST_F(NetAntiHammerTest, GetEntries_Both_OldestFirst)
{
    SetNumbers(2, 300, 1800);
    for (std::uint32_t number : {3U, 1U, 2U, 1U, 4U, 3U}) {
        m_hammer.AddFailedAttempt(NumberedAddress(number), LOCAL);
        m_clock.AdvanceMs(10);
    }
    Vector<NetAntiHammer::ENTRY> failed;
    Vector<NetAntiHammer::ENTRY> blocked;
    m_hammer.GetEntries(failed, blocked);
    ASSERT_EQ(failed.GetCount(), 2U);
    EXPECT_EQ(failed.Get(0).ip, NumberedAddress(2));
    EXPECT_EQ(failed.Get(0).time, 1020U);
    EXPECT_EQ(failed.Get(0).count, 1U);
    EXPECT_EQ(failed.Get(1).ip, NumberedAddress(4));
    ASSERT_EQ(blocked.GetCount(), 2U);
    EXPECT_EQ(blocked.Get(0).ip, NumberedAddress(1));
    EXPECT_EQ(blocked.Get(0).count, 0U);
    EXPECT_EQ(blocked.Get(1).ip, NumberedAddress(3));
}

TEST_F(NetAntiHammerTest, Cap_1747626Addresses_TheNextIsNotTracked_KeptOnPurpose)
{
    static_assert(NetAntiHammer::MAX_ENTRIES == 1747626);
    SetNumbers(1, 300, 1800);
    for (std::uint32_t i = 0; i < 1000; ++i)
        ASSERT_TRUE(m_hammer.AddFailedAttempt(NumberedAddress(i), LOCAL));
    SetNumbers(2, 300, 1800);
    for (std::uint32_t i = 1000; i < 1747625; ++i)
        ASSERT_FALSE(m_hammer.AddFailedAttempt(NumberedAddress(i), LOCAL));
    SetNumbers(1, 300, 1800);
    EXPECT_TRUE(m_hammer.AddFailedAttempt(NumberedAddress(1747625), LOCAL)); // the last that fits
    EXPECT_FALSE(m_hammer.AddFailedAttempt(NumberedAddress(1747626), LOCAL));
    EXPECT_FALSE(m_hammer.IsBlocked(NumberedAddress(1747626), LOCAL));
    // Those that are held go on as ever.
    EXPECT_TRUE(m_hammer.IsBlocked(NumberedAddress(0), LOCAL));
    EXPECT_TRUE(m_hammer.AddFailedAttempt(NumberedAddress(1000000), LOCAL));
    EXPECT_FALSE(m_hammer.AddFailedAttempt(NumberedAddress(1747626), LOCAL));
    // All that only failed run out together: there is room at once.
    m_clock.AdvanceSecs(301);
    for (std::uint32_t i = 0; i < 5000; ++i)
        ASSERT_TRUE(m_hammer.AddFailedAttempt(NumberedAddress(3000000 + i), LOCAL));
    EXPECT_TRUE(m_hammer.IsBlocked(NumberedAddress(1000000), LOCAL));
    EXPECT_FALSE(m_hammer.IsBlocked(NumberedAddress(1000001), LOCAL));
    m_clock.AdvanceSecs(1801);
    for (std::uint32_t i = 0; i < 1747626; i += 997)
        ASSERT_FALSE(m_hammer.IsBlocked(NumberedAddress(i), LOCAL));
}

TEST_F(NetAntiHammerTest, Threads_ManyAtOnce_EachAddressBlockedOnce)
{
    constexpr std::uint32_t THREADS = 8;
    constexpr std::uint32_t PEERS = 200;
    std::vector<std::thread> threads;
    for (std::uint32_t thread = 0; thread < THREADS; ++thread)
        threads.emplace_back([this, thread] {
            for (std::uint32_t i = 0; i < 5 * PEERS; ++i) {
                m_hammer.AddFailedAttempt(NumberedAddress(thread * PEERS + i % PEERS), LOCAL);
                m_hammer.IsBlocked(NumberedAddress((thread + 1) % THREADS * PEERS + i % PEERS), LOCAL);
                if (i % 100 == 0)
                    SetNumbers(5, 300, 1800);
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    for (std::uint32_t i = 0; i < THREADS * PEERS; ++i)
        EXPECT_TRUE(m_hammer.IsBlocked(NumberedAddress(i), LOCAL)) << i;
}

} // namespace
