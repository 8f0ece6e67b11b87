// Address control: each block of memory that an operation asks for is not there once.
#include "tests/faults/posix/FaultPlan.h"

#include "net/dns/NetDNSCache.h"
#include "net/ipcontrol/NetAntiHammer.h"
#include "net/ipcontrol/NetIPControlQuery.h"
#include "tests/net/ipcontrol/MovableClock.h"
#include "tests/net/ipcontrol/NumberedAddress.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <map>
#include <new>

namespace kqlib::test {
namespace {

const NetIP LOCAL("192.168.0.1");

NetIPControlEntry Rule(const char* text)
{
    NetIPControlEntry rule;
    EXPECT_TRUE(rule.SetByString(text)) << text;
    return rule;
}

class FaultAccessTest : public testing::Test
{
protected:
    void SetUp() override { FaultPlan::sSetFailEverywhere(true); }
    void TearDown() override
    {
        FaultPlan::sEndMemoryScript();
        FaultPlan::sSetFailEverywhere(false);
    }

    /// Runs work without the block behind the first passing ones. True: there was such a block.
    static bool StrikeBlock(std::uint32_t passing, const std::function<void()>& work)
    {
        FaultPlan::sScriptMemory(passing, 1);
        try {
            work();
        } catch (const std::bad_alloc&) {
            EXPECT_TRUE(FaultPlan::sEndMemoryScript());
            return true;
        }
        return FaultPlan::sEndMemoryScript();
    }

    MovableClock m_clock;
    NetDNSCache m_cache;
};

/// What an anti-hammer holds, by address: failures, and 0 for a blocked one.
using HELD = std::map<NetIP, ULONG>;

HELD GetHeld(const NetAntiHammer& hammer)
{
    Vector<NetAntiHammer::ENTRY> failed;
    Vector<NetAntiHammer::ENTRY> blocked;
    hammer.GetEntries(failed, blocked);
    HELD held;
    for (const Vector<NetAntiHammer::ENTRY>* entries : {&failed, &blocked})
        for (const NetAntiHammer::ENTRY& entry : *entries)
            EXPECT_TRUE(held.emplace(entry.ip, entry.count).second);
    return held;
}

// Once read outside its memory: what had grown first stayed grown.
TEST_F(FaultAccessTest, AddFailedAttempt_EachBlockMissingOnce_NothingChangesAndTheNextIsHeld)
{
    constexpr std::uint32_t ADDRESSES = 3000; // its table doubles a dozen times meanwhile
    NetAntiHammer hammer(m_cache);
    HELD expected;
    std::uint32_t struck = 0;
    for (std::uint32_t number = 0; number < ADDRESSES; ++number) {
        const NetIP ip = NumberedAddress(number);
        for (std::uint32_t passing = 0; passing < 10; ++passing) {
            bool isAdded = false;
            const bool isStruck = StrikeBlock(passing, [&] {
                EXPECT_FALSE(hammer.AddFailedAttempt(ip, LOCAL));
                isAdded = true;
            });
            struck += isStruck ? 1 : 0;
            ASSERT_EQ(isAdded, !isStruck);
            if (isAdded)
                break;
            ASSERT_FALSE(hammer.IsBlocked(ip, LOCAL));
        }
        expected.emplace(ip, 1);
        if (number % 100 == 0) {
            ASSERT_EQ(GetHeld(hammer), expected);
        }
    }
    EXPECT_GT(struck, ADDRESSES);
    EXPECT_EQ(GetHeld(hammer), expected);
    // What is held needs no more memory.
    for (std::uint32_t number = 0; number < ADDRESSES; ++number)
        for (int times = 2; times <= 5; ++times)
            EXPECT_FALSE(StrikeBlock(
                0, [&] { EXPECT_EQ(hammer.AddFailedAttempt(NumberedAddress(number), LOCAL), times == 5) << number; }));
    for (std::uint32_t number = 0; number < ADDRESSES; ++number)
        EXPECT_FALSE(StrikeBlock(0, [&] { EXPECT_TRUE(hammer.IsBlocked(NumberedAddress(number), LOCAL)); }));
}

// Once left a table without memory behind, which the next question read.
TEST_F(FaultAccessTest, ResetIPs_NoMemory_NeedsNone)
{
    NetAntiHammer hammer(m_cache);
    for (int round = 0; round < 3; ++round) {
        for (std::uint32_t number = 0; number < 3000; ++number)
            hammer.AddFailedAttempt(NumberedAddress(number), LOCAL);
        EXPECT_FALSE(StrikeBlock(0, [&] {
            hammer.ResetIPs();
            hammer.ResetIPs();
            EXPECT_FALSE(hammer.IsBlocked(NumberedAddress(7), LOCAL));
        }));
        EXPECT_TRUE(GetHeld(hammer).empty());
    }
}

TEST_F(FaultAccessTest, Expiry_NoMemory_NeedsNone)
{
    NetAntiHammer hammer(m_cache);
    for (std::uint32_t number = 0; number < 3000; ++number)
        hammer.AddFailedAttempt(NumberedAddress(number), LOCAL);
    m_clock.AdvanceSecs(301);
    EXPECT_FALSE(StrikeBlock(0, [&] { EXPECT_FALSE(hammer.IsBlocked(NumberedAddress(7), LOCAL)); }));
    EXPECT_TRUE(GetHeld(hammer).empty());
    EXPECT_FALSE(hammer.AddFailedAttempt(NumberedAddress(7), LOCAL));
    EXPECT_EQ(GetHeld(hammer).size(), 1U);
}

TEST_F(FaultAccessTest, Construction_EachBlockMissingOnce_Throws)
{
    std::uint32_t passing = 0;
    while (StrikeBlock(passing, [&] { NetAntiHammer hammer(m_cache); }))
        ++passing;
    EXPECT_GT(passing, 0U);
}

// Once left half a list when memory ran out: without its last deny it lifted every block.
TEST_F(FaultAccessTest, SetData_EachBlockMissingOnce_NothingHasChanged)
{
    NetAntiHammer hammer(m_cache);
    NetIPControl before;
    before.Add(Rule("+ip=10.0.0.1"));
    before.Add(Rule("-ipmask=0.0.0.0/0.0.0.0"));
    NetIPControl after;
    for (std::uint32_t number = 0; number < 20; ++number)
        after.Add(Rule("+host=a-name-too-long-to-be-held-without-a-block.example"));
    after.Add(Rule("+ip=10.0.0.2"));
    after.Add(Rule("-ipmask=0.0.0.0/0.0.0.0"));
    const NetIP one("10.0.0.1");
    const NetIP other("10.0.0.9");
    hammer.SetData(2, 300, 1800, true, before);
    std::uint32_t passing = 0;
    for (; StrikeBlock(passing, [&] { hammer.SetData(1, 1, 1, true, after); }); ++passing) {
        hammer.ResetIPs();
        ASSERT_FALSE(hammer.AddFailedAttempt(one, LOCAL)) << "two attempts, still";
        m_clock.AdvanceSecs(2);
        ASSERT_TRUE(hammer.AddFailedAttempt(one, LOCAL)) << "the window is as it was";
        hammer.AddFailedAttempt(other, LOCAL);
        hammer.AddFailedAttempt(other, LOCAL);
        m_clock.AdvanceSecs(2);
        ASSERT_FALSE(hammer.IsBlocked(one, LOCAL)) << "exempt, still";
        ASSERT_TRUE(hammer.IsBlocked(other, LOCAL)) << "nobody else is";
    }
    EXPECT_GT(passing, 20U);
    hammer.ResetIPs();
    EXPECT_TRUE(hammer.AddFailedAttempt(other, LOCAL));
}

TEST_F(FaultAccessTest, ListAssignment_EachBlockMissingOnce_OldListWhole)
{
    NetIPControl before;
    NetIPControl other;
    for (int number = 0; number < 5; ++number) {
        before.Add(Rule("+host=a-name-too-long-to-be-held-without-a-block.example"));
        other.Add(Rule("-host=another-name-too-long-to-be-held-without-a-block.example"));
    }
    NetIPControl list(before);
    std::uint32_t passing = 0;
    for (; StrikeBlock(passing, [&] { list = other; }); ++passing)
        ASSERT_TRUE(list == before);
    EXPECT_GT(passing, 4U);
    EXPECT_TRUE(list == other);
}

TEST_F(FaultAccessTest, Decision_EachBlockOfTheIndexMissingOnce_SameAnswersAndAnotherTry)
{
    constexpr std::uint32_t DECISIONS = 70; // more than a list is walked before it is indexed
    const NetIPControlQuery query(m_cache);
    NetIPControl rules;
    for (const char* text : {"-ip=10.0.0.1", "+ipmask=10.0.0.0/255.0.0.255", "-sender=*", "-iprange=10.0.0.0-10.9.9.9",
                             "-ip=2001:db8::1", "+ipmask=2001:db8::/ffff:ffff::ff", "-islocal"})
        rules.Add(Rule(text));
    std::uint32_t passing = 0;
    bool isStruck = true;
    for (; isStruck; ++passing) {
        rules.MoveTop(0); // what the list has learned about itself is forgotten
        isStruck = StrikeBlock(passing, [&] {
            for (std::uint32_t decision = 0; decision < 3 * DECISIONS; ++decision) {
                EXPECT_FALSE(query.IsAllowed(rules, LOCAL, NetIP("10.0.0.1")));
                EXPECT_TRUE(query.IsAllowed(rules, LOCAL, NetIP("10.1.1.0")));
                EXPECT_FALSE(query.IsAllowed(rules, LOCAL, NetIP("10.1.1.1")));
                EXPECT_FALSE(query.IsAllowed(rules, LOCAL, NetIP("2001:db8::1")));
                EXPECT_TRUE(query.IsAllowed(rules, LOCAL, NetIP("2001:db8::2")));
                EXPECT_FALSE(query.IsAllowed(rules, LOCAL, LOCAL));
            }
        });
        ASSERT_FALSE(HasFailure()) << "without block " << passing;
    }
    EXPECT_GT(passing, 10U);
}

TEST_F(FaultAccessTest, Decisions_NoMemoryForTheIndexAtFirst_MadeLaterAndOnce)
{
    const NetIPControlQuery query(m_cache);
    NetIPControl rules;
    rules.Add(Rule("-ip=10.0.0.1"));
    const auto decide = [&] {
        for (int decision = 0; decision < 70; ++decision)
            EXPECT_FALSE(query.IsAllowed(rules, LOCAL, NetIP("10.0.0.1")));
    };
    EXPECT_TRUE(StrikeBlock(0, decide));
    EXPECT_TRUE(StrikeBlock(0, decide)) << "tried again";
    decide();
    EXPECT_FALSE(StrikeBlock(0, decide)) << "it is there";
    rules.MoveTop(0);
    EXPECT_TRUE(StrikeBlock(0, decide)) << "of other rules";
}

TEST_F(FaultAccessTest, ListChanges_EachBlockMissingOnce_DecidedByWhatTheListHolds)
{
    const NetIPControlQuery query(m_cache);
    const NetIP peer("10.0.0.1");
    for (std::uint32_t passing = 0, struck = 1; struck != 0; ++passing) {
        NetIPControl rules;
        for (int number = 0; number < 4; ++number)
            rules.Add(Rule("-ip=10.0.0.1"));
        for (int decision = 0; decision < 70; ++decision)
            EXPECT_FALSE(query.IsAllowed(rules, LOCAL, peer));
        const auto change = [&](const auto& operation) {
            struck += StrikeBlock(passing, operation) ? 1 : 0;
            for (int decision = 0; decision < 70; ++decision)
                ASSERT_EQ(query.IsAllowed(rules, LOCAL, peer), rules.Get(0).GetAllow());
        };
        struck = 0;
        change([&] { rules.Add(Rule("+ip=10.0.0.1")); });
        change([&] { rules.MoveTop(rules.GetCount() - 1); });
        change([&] { rules.Update(0, Rule("-ip=10.0.0.1")); });
        change([&] { rules.Remove(0); });
        change([&] { rules.Append(NetIPControl(rules)); });
    }
}

} // namespace
} // namespace kqlib::test
