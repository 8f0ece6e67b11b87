// Long rule lists: decided by an index, against the walk of the list rule by rule.
#include "common/EmailAddress.h"
#include "common/SettingsTransportSet.h"
#include "net/dns/NetDNSCache.h"
#include "net/ipcontrol/NetIPControl.h"
#include "net/ipcontrol/NetIPControlQuery.h"
#include "tests/net/ipcontrol/NumberedAddress.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <memory>
#include <random>
#include <thread>
#include <vector>

namespace {

using namespace kqlib;
using namespace kqlib::test;
using Entry = NetIPControlEntry;

/// More decisions than a list is walked for before it is indexed.
constexpr int ENOUGH = 66;

NetIP Address(NetIP::IPTYPE type, const unsigned char* bytes)
{
    NetIP ip;
    ip.Set(type, bytes);
    return ip;
}

Entry Rule(const char* text)
{
    Entry rule;
    EXPECT_TRUE(rule.SetByString(text)) << text;
    return rule;
}

NetIPControl Rules(std::initializer_list<const char*> texts)
{
    NetIPControl list;
    for (const char* text : texts)
        list.Add(Rule(text));
    return list;
}

/// The walk: the first rule that matches decides, and what none matches is allowed.
template <class... MAIL>
bool WalkAllows(const NetIPControlQuery& query, const NetIPControl& rules, const NetIP& local, const NetIP& peer,
                const MAIL&... mail)
{
    for (ULONG index = 0; index < rules.GetCount(); ++index)
        if (query.DoesMatch(rules.Get(index), local, peer, mail...))
            return rules.Get(index).GetAllow();
    return true;
}

class NetIPControlIndexTest : public testing::Test
{
protected:
    /// Makes as many decisions as bring an index about.
    void Wear(const NetIPControl& rules, const char* peer = "203.0.113.1") const
    {
        for (int decision = 0; decision < ENOUGH; ++decision)
            m_query.IsAllowed(rules, LOCAL, NetIP(peer));
    }
    bool IsAllowed(const NetIPControl& rules, const char* peer) const
    {
        const bool allowed = m_query.IsAllowed(rules, LOCAL, NetIP(peer));
        EXPECT_NE(m_query.IsDenied(rules, LOCAL, NetIP(peer)), allowed) << peer;
        EXPECT_EQ(WalkAllows(m_query, rules, LOCAL, NetIP(peer)), allowed) << peer;
        return allowed;
    }

    const NetIP LOCAL{"192.168.0.1"};
    NetDNSCache m_cache;
    NetIPControlQuery m_query{m_cache};
};

/// Lists and peers that meet often: few different bits, ends next to each other, and every kind of oddity.
class CHANCE
{
public:
    explicit CHANCE(unsigned seed)
        : m_random(seed)
    {
    }

    std::size_t Below(std::size_t bound) { return m_random() % bound; }

    NetIP AnyAddress()
    {
        if (Below(40) == 0)
            return xOddAddress();
        unsigned char bytes[16];
        const bool isEnd = Below(8) == 0;
        const unsigned char end = Below(2) == 0 ? 0 : 0xFF;
        for (unsigned char& byte : bytes)
            byte = isEnd ? end : xByte();
        return Address(Below(3) == 0 ? NetIP::IP_6 : NetIP::IP_4, bytes);
    }

    /// From the left, none, all, or anything.
    NetIP AnyMask()
    {
        if (Below(6) == 0)
            return AnyAddress();
        unsigned char bytes[16] = {};
        const NetIP::IPTYPE type = Below(3) == 0 ? NetIP::IP_6 : NetIP::IP_4;
        const std::size_t size = type == NetIP::IP_6 ? 16 : 4;
        const std::size_t bits = Below(size * 8 + 1);
        for (std::size_t bit = 0; bit < bits; ++bit)
            bytes[bit / 8] = static_cast<unsigned char>(bytes[bit / 8] | 0x80 >> bit % 8);
        if (Below(4) == 0)
            bytes[Below(size)] ^= static_cast<unsigned char>(1U << Below(8));
        return Address(type, bytes);
    }

    Entry AnyRule()
    {
        Entry rule;
        rule.SetAllow(Below(2) == 0);
        const std::size_t kind = Below(40);
        rule.SetType(kind == 0   ? Entry::ET_ISLOCAL
                     : kind == 1 ? Entry::ET_SENDER
                     : kind == 2 ? Entry::ET_RCPT
                     : kind == 3 ? static_cast<Entry::ENTRYTYPE>(8 + Below(3))
                                 : static_cast<Entry::ENTRYTYPE>(kind % 3));
        rule.SetIP(AnyAddress());
        rule.SetIPHigh(rule.GetType() == Entry::ET_IPMASK ? AnyMask() : AnyAddress());
        if (rule.GetType() == Entry::ET_IPRANGE && rule.GetIPHigh() < rule.GetIPLow() && Below(4) != 0) {
            const NetIP low = rule.GetIPHigh();
            rule.SetIPHigh(rule.GetIPLow());
            rule.SetIPLow(low);
        }
        if (rule.GetType() == Entry::ET_SENDER || rule.GetType() == Entry::ET_RCPT)
            rule.SetAddress(Below(2) == 0 ? "*@lan" : "a*");
        return rule;
    }

    NetIPControl AnyList(std::size_t most)
    {
        m_spread = Below(3); // how much the addresses of this list differ
        NetIPControl rules;
        for (std::size_t count = Below(most + 1); count > 0; --count)
            rules.Add(AnyRule());
        return rules;
    }

    /// Often one that stands in a rule, or next to one that does.
    NetIP AnyPeer(const NetIPControl& rules)
    {
        if (rules.GetCount() == 0 || Below(2) == 0)
            return AnyAddress();
        const Entry& rule = rules.Get(static_cast<ULONG>(Below(rules.GetCount())));
        const NetIP& ip = Below(2) == 0 ? rule.GetIP() : rule.GetIPHigh();
        unsigned char bytes[16];
        std::memcpy(bytes, ip.GetBytes(), sizeof bytes);
        const std::size_t last = ip.IsIP4() ? 3 : 15;
        for (std::size_t place = last, step = Below(3); step != 0 && place <= last; --place) {
            bytes[place] = static_cast<unsigned char>(bytes[place] + (step == 1 ? 1 : 0xFF));
            if (bytes[place] != (step == 1 ? 0 : 0xFF))
                break;
        }
        return Address(ip.GetType(), bytes);
    }

private:
    unsigned char xByte()
    {
        static constexpr unsigned char FEW[] = {0, 1, 0x7F, 0x80, 0xFF};
        return m_spread == 0   ? static_cast<unsigned char>(Below(2))
               : m_spread == 1 ? FEW[Below(std::size(FEW))]
                               : static_cast<unsigned char>(Below(256));
    }
    /// As a damaged record may hold it: an IPv4 address with more bytes, or a type that there is not.
    NetIP xOddAddress()
    {
        unsigned char record[sizeof(NetIP)] = {};
        record[0] = static_cast<unsigned char>(Below(4));
        for (std::size_t place = 4; place < sizeof record; ++place)
            record[place] = static_cast<unsigned char>(Below(2));
        NetIP ip;
        std::memcpy(static_cast<void*>(&ip), record, sizeof ip);
        return ip;
    }

    std::mt19937 m_random;
    std::size_t m_spread = 0;
};

TEST_F(NetIPControlIndexTest, RandomListsAndPeers_AsTheWalk)
{
    constexpr int LISTS = 4000;
    constexpr int PEERS = 150;
    CHANCE chance(13);
    const EmailAddress sender("ann@lan");
    ADDRESSES recipients;
    recipients.Add(EmailAddress("bob@lan"));
    for (int number = 0; number < LISTS; ++number) {
        const NetIPControl rules = chance.AnyList(number % 10 == 0 ? 200 : 12);
        Wear(rules);
        for (int i = 0; i < PEERS; ++i) {
            const NetIP peer = chance.AnyPeer(rules);
            const NetIP local = chance.Below(3) == 0 ? peer : LOCAL;
            ASSERT_EQ(m_query.IsAllowed(rules, local, peer), WalkAllows(m_query, rules, local, peer))
                << "list " << number << " of " << rules.GetCount() << ", peer " << peer.GetText().str();
            ASSERT_EQ(m_query.IsAllowed(rules, local, peer, sender, recipients),
                      WalkAllows(m_query, rules, local, peer, sender, recipients))
                << "list " << number << " of " << rules.GetCount() << ", peer " << peer.GetText().str();
        }
    }
}

TEST_F(NetIPControlIndexTest, FirstAndLastAddresses_BelongToTheirRules)
{
    const NetIPControl rules =
        Rules({"-ip=0.0.0.0", "-ip=255.255.255.255", "-ip=::", "-ip=ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff",
               "+iprange=0.0.0.1-0.0.0.2", "-iprange=0.0.0.2-0.0.0.4",
               "-iprange=2001:db8::ffff:ffff:ffff:ffff-2001:db8:0:1::", "-ipmask=10.0.0.0/255.0.0.0"});
    Wear(rules);
    for (const char* denied :
         {"0.0.0.0", "255.255.255.255", "::", "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff", "0.0.0.3", "0.0.0.4",
          "2001:db8::ffff:ffff:ffff:ffff", "2001:db8:0:1::", "10.0.0.0", "10.255.255.255"})
        EXPECT_FALSE(IsAllowed(rules, denied)) << denied;
    for (const char* allowed :
         {"0.0.0.1", "0.0.0.2", "0.0.0.5", "255.255.255.254", "::1", "ffff:ffff:ffff:ffff:ffff:ffff:ffff:fffe",
          "2001:db8::ffff:ffff:ffff:fffe", "2001:db8:0:1::1", "9.255.255.255", "11.0.0.0"})
        EXPECT_TRUE(IsAllowed(rules, allowed)) << allowed;
}

TEST_F(NetIPControlIndexTest, RuleForEverybodyAndRangeOverBothTypes_AllPeers)
{
    const NetIPControl everybody = Rules({"+ip=10.0.0.5", "+ip=2001:db8::5", "-ipmask=0.0.0.0/0.0.0.0"});
    const NetIPControl range = Rules({"+ip=10.0.0.5", "+ip=2001:db8::5", "-iprange=9.0.0.0-2001:db8::9"});
    Wear(everybody);
    Wear(range);
    for (const NetIPControl* rules : {&everybody, &range}) {
        EXPECT_TRUE(IsAllowed(*rules, "10.0.0.5"));
        EXPECT_TRUE(IsAllowed(*rules, "2001:db8::5"));
        EXPECT_FALSE(IsAllowed(*rules, "10.0.0.6"));
        EXPECT_FALSE(IsAllowed(*rules, "255.255.255.255"));
        EXPECT_FALSE(IsAllowed(*rules, "::"));
        EXPECT_FALSE(IsAllowed(*rules, "2001:db8::9"));
    }
    EXPECT_TRUE(IsAllowed(range, "8.255.255.255"));
    EXPECT_TRUE(IsAllowed(range, "2001:db8::a"));
    EXPECT_FALSE(IsAllowed(everybody, "2001:db8::a"));
}

TEST_F(NetIPControlIndexTest, OddMasks_BitsInAnyPlace)
{
    const NetIPControl rules = Rules({"+ipmask=10.0.0.7/255.0.0.255", "-ipmask=10.0.9.0/255.0.255.0",
                                      "-ipmask=2001:db8::1/ffff:ffff::ffff", "-ipmask=10.0.0.8/255.0.0.255"});
    Wear(rules);
    EXPECT_TRUE(IsAllowed(rules, "10.1.9.7"));
    EXPECT_FALSE(IsAllowed(rules, "10.1.9.6"));
    EXPECT_TRUE(IsAllowed(rules, "10.1.8.6"));
    EXPECT_FALSE(IsAllowed(rules, "10.1.8.8"));
    EXPECT_FALSE(IsAllowed(rules, "2001:db8:1:2:3:4:5:1"));
    EXPECT_TRUE(IsAllowed(rules, "2001:db8:1:2:3:4:5:2"));
}

TEST_F(NetIPControlIndexTest, EveryChangeAfterTheIndex_DecidesAnew)
{
    NetIPControl rules = Rules({"-ip=10.0.0.1", "+ip=10.0.0.2", "-ipmask=10.0.0.0/255.0.0.0"});
    Wear(rules);
    EXPECT_FALSE(IsAllowed(rules, "10.0.0.3"));
    const auto change = [&](const auto& operation, const char* peer, bool expected) {
        operation();
        EXPECT_EQ(IsAllowed(rules, peer), expected);
        Wear(rules);
        EXPECT_EQ(IsAllowed(rules, peer), expected);
    };
    change([&] { rules.Update(1, Rule("+ip=10.0.0.3")); }, "10.0.0.3", true);
    change([&] { rules.Remove(1); }, "10.0.0.3", false);
    change([&] { rules.Update(0, Rule("+ip=10.0.0.3")); }, "10.0.0.3", true);
    change([&] { rules.MoveTop(1); }, "10.0.0.3", false);
    change([&] { rules.MoveBottom(0); }, "10.0.0.3", true);
    change([&] { rules.MoveUp(1); }, "10.0.0.3", false);
    change([&] { rules.MoveDown(0); }, "10.0.0.3", true);
    change([&] { rules.Add(Rule("-ip=192.0.2.1")); }, "192.0.2.1", false);
    change([&] { rules.Append(Rules({"-ip=192.0.2.2"})); }, "192.0.2.2", false);
    change([&] { rules = Rules({"-ip=192.0.2.3"}); }, "192.0.2.2", true);
    SettingsTransportSet set;
    EXPECT_TRUE(Rules({"-ip=192.0.2.2"}).WriteTo(set));
    change([&] { EXPECT_TRUE(rules.ReadFrom(set)); }, "192.0.2.2", false);
    change([&] { rules.Reset(); }, "192.0.2.2", true);
    change([&] { rules.Add(Rule("-ip=192.0.2.2")); }, "192.0.2.2", false);
}

TEST_F(NetIPControlIndexTest, Copies_ShareNothingThatAChangeOfOneCouldBreak)
{
    NetIPControl list = Rules({"-ip=10.0.0.1", "+ip=10.0.0.2"});
    NetIPControl early(list); // shares from before the index is made
    Wear(early);
    NetIPControl late(list);
    NetIPControl assigned;
    assigned = early;
    const std::unique_ptr<SettingsTransferable> spawned(list.Spawn(true));
    auto& copy = static_cast<NetIPControl&>(*spawned);
    list.Update(0, Rule("+ip=10.0.0.1"));
    late.Reset();
    assigned.Add(Rule("-ip=10.0.0.2"));
    copy.MoveTop(1);
    early.Add(Rule("-ip=10.0.0.3"));
    EXPECT_TRUE(IsAllowed(list, "10.0.0.1"));
    EXPECT_TRUE(IsAllowed(late, "10.0.0.1"));
    for (const NetIPControl* other : {&assigned, &copy, &early}) {
        Wear(*other);
        EXPECT_FALSE(IsAllowed(*other, "10.0.0.1"));
        EXPECT_TRUE(IsAllowed(*other, "10.0.0.2"));
    }
    EXPECT_FALSE(IsAllowed(early, "10.0.0.3"));
    EXPECT_TRUE(IsAllowed(assigned, "10.0.0.3"));
}

TEST_F(NetIPControlIndexTest, ManyThreads_OneList_AllDecideAlike)
{
    constexpr int THREADS = 8;
    for (int round = 0; round < 20; ++round) {
        NetIPControl rules;
        for (std::uint32_t number = 0; number < 300; ++number) {
            Entry rule;
            rule.SetAllow(number % 2 == 0);
            rule.SetIP(NumberedAddress(number));
            rules.Add(rule);
        }
        std::vector<std::thread> threads;
        std::atomic<int> wrong{0};
        for (int thread = 0; thread < THREADS; ++thread)
            threads.emplace_back([&, thread] {
                const NetIPControl own(rules);
                const NetIPControl& mine = thread % 2 == 0 ? rules : own;
                for (std::uint32_t number = 0; number < 300; ++number)
                    wrong += m_query.IsAllowed(mine, LOCAL, NumberedAddress(number)) == (number % 2 == 0) ? 0 : 1;
            });
        for (std::thread& thread : threads)
            thread.join();
        EXPECT_EQ(wrong, 0);
    }
}

TEST_F(NetIPControlIndexTest, LongBlockList_EachRuleFound)
{
    constexpr std::uint32_t COUNT = 100000;
    NetIPControl rules;
    for (std::uint32_t number = 0; number < COUNT; ++number) {
        Entry rule;
        rule.SetAllow(false);
        rule.SetIP(NumberedAddress(0x0A000000U + number * 2));
        rules.Add(rule);
    }
    Wear(rules);
    for (std::uint32_t number = 0; number < COUNT; ++number) {
        ASSERT_FALSE(m_query.IsAllowed(rules, LOCAL, NumberedAddress(0x0A000000U + number * 2))) << number;
        ASSERT_TRUE(m_query.IsAllowed(rules, LOCAL, NumberedAddress(0x0A000001U + number * 2))) << number;
    }
}

} // namespace
