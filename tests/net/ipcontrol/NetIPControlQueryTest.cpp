#include "net/ipcontrol/NetIPControlQuery.h"
#include "common/EmailAddress.h"
#include "common/TimedEvent.h"
#include "net/dns/NetDNS.h"
#include "net/dns/NetDNSCache.h"
#include "net/ipcontrol/NetAntiHammer.h"
#include "net/ipcontrol/NetIPControl.h"
#include "platform/Clock.h"
#include "platform/ResolverConfig.h"
#include "tests/peers/DNSMessage.h"
#include "tests/peers/DataTable.h"
#include "tests/peers/FakeDNSServer.h"
#include "tests/peers/Port53.h"
#include "tests/peers/TempFolder.h"

#include <gtest/gtest.h>

#include <atomic>
#include <fstream>
#include <iterator>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <thread>

namespace {

using namespace kqlib;
using namespace kqlib::test;
using Replies = FakeDNSServer::Replies;

const NetIP LOCAL("192.168.0.1");

/// The rules of a line, with blanks between.
NetIPControl Rules(const std::string& line)
{
    NetIPControl list;
    std::istringstream stream(line);
    for (std::string text; stream >> text;) {
        NetIPControlEntry rule;
        EXPECT_TRUE(rule.SetByString(String(text))) << text;
        list.Add(rule);
    }
    return list;
}

class NetIPControlQueryTest : public testing::Test
{
protected:
    bool IsAllowed(const std::string& rules, const char* peer) const
    {
        const NetIPControl list = Rules(rules);
        const bool allowed = m_query.IsAllowed(list, LOCAL, NetIP(peer));
        EXPECT_NE(m_query.IsDenied(list, LOCAL, NetIP(peer)), allowed) << rules;
        return allowed;
    }
    bool IsMailAllowed(const std::string& rules, const char* peer, const char* sender,
                       std::initializer_list<const char*> recipients) const
    {
        ADDRESSES list;
        for (const char* recipient : recipients)
            list.Add(EmailAddress(recipient));
        const EmailAddress from(sender);
        const bool allowed = m_query.IsAllowed(Rules(rules), LOCAL, NetIP(peer), from, list);
        EXPECT_NE(m_query.IsDenied(Rules(rules), LOCAL, NetIP(peer), from, list), allowed) << rules;
        return allowed;
    }

    NetDNSCache m_cache;
    NetIPControlQuery m_query{m_cache};
};

// What is expected comes from Python's ipaddress module (tests/data/make_rule_cases.py).
TEST_F(NetIPControlQueryTest, AddressRules_TableOfCases_AsExpected)
{
    const auto rows = ReadDataTable("rule_cases.txt");
    ASSERT_GE(rows.size(), 300U);
    for (const auto& row : rows) {
        ASSERT_EQ(row.size(), 4U);
        const NetIPControl rules = Rules(row[0]);
        const NetIP local((String(row[1])));
        NetIP peer;
        ASSERT_TRUE(peer.Set(String(row[2]))) << row[2];
        const bool allow = row[3] == "allow";
        EXPECT_EQ(m_query.IsAllowed(rules, local, peer), allow) << row[0] << " for " << row[2];
        EXPECT_EQ(m_query.IsDenied(rules, local, peer), !allow) << row[0] << " for " << row[2];
        EXPECT_EQ(m_query.IsAllowed(rules, local, peer, EmailAddress(), ADDRESSES()), allow) << row[0];
    }
}

TEST_F(NetIPControlQueryTest, EmptyList_EverythingAllowed)
{
    EXPECT_TRUE(IsAllowed("", "10.0.0.5"));
    EXPECT_TRUE(IsAllowed("", "::1"));
    EXPECT_TRUE(IsMailAllowed("", "10.0.0.5", "ann@lan", {"bob@lan"}));
}

TEST_F(NetIPControlQueryTest, FirstMatch_Decides)
{
    const std::string rules = "-ip=10.0.0.5 +ipmask=10.0.0.0/255.0.0.0";
    EXPECT_FALSE(IsAllowed(rules, "10.0.0.5"));
    EXPECT_TRUE(IsAllowed(rules, "10.0.0.6"));
    EXPECT_TRUE(IsAllowed(rules, "192.168.1.1"));
    const std::string onlyOne = "+ip=10.0.0.5 -ipmask=0.0.0.0/0.0.0.0";
    EXPECT_TRUE(IsAllowed(onlyOne, "10.0.0.5"));
    EXPECT_FALSE(IsAllowed(onlyOne, "10.0.0.6"));
    EXPECT_FALSE(IsAllowed(onlyOne, "::1")); // the zero mask matches every type
}

TEST_F(NetIPControlQueryTest, IsLocal_PeerEqualsLocal_NothingElse)
{
    EXPECT_FALSE(IsAllowed("-islocal", "192.168.0.1"));
    EXPECT_TRUE(IsAllowed("-islocal", "192.168.0.2"));
    EXPECT_TRUE(IsAllowed("-islocal", "127.0.0.1"));
}

TEST_F(NetIPControlQueryTest, UnknownType_NeverMatches)
{
    NetIPControlEntry rule;
    rule.SetAllow(false);
    rule.SetIP(NetIP("10.0.0.5"));
    rule.SetType(static_cast<NetIPControlEntry::ENTRYTYPE>(8));
    NetIPControl rules;
    rules.Add(rule);
    EXPECT_TRUE(m_query.IsAllowed(rules, LOCAL, NetIP("10.0.0.5")));
    EXPECT_TRUE(m_query.IsAllowed(rules, LOCAL, NetIP("10.0.0.5"), EmailAddress(), ADDRESSES()));
}

TEST_F(NetIPControlQueryTest, MailRules_AddressOnly_PassedOver)
{
    EXPECT_TRUE(IsAllowed("-sender=* -rcpt=*", "10.0.0.5"));
    EXPECT_FALSE(IsAllowed("+sender=* +rcpt=* -ip=10.0.0.5", "10.0.0.5"));
    EXPECT_FALSE(IsMailAllowed("-rcpt=* +ip=10.0.0.5", "10.0.0.5", "ann@lan", {"bob@lan"}));
}

TEST_F(NetIPControlQueryTest, MailRules_SenderAndRecipients_Matched)
{
    EXPECT_FALSE(IsMailAllowed("-sender=*@LAN", "10.0.0.5", "ann@lan", {}));
    EXPECT_TRUE(IsMailAllowed("-sender=*@lan", "10.0.0.5", "ann@lan.example", {"x@lan"}));
    EXPECT_FALSE(IsMailAllowed("-sender=a?n@lan", "10.0.0.5", "ann@lan", {}));
    EXPECT_FALSE(IsMailAllowed("-sender=ann@lan", "10.0.0.5", "Ann@Lan", {}));
    EXPECT_FALSE(IsMailAllowed("-rcpt=post*@*", "10.0.0.5", "", {"ann@lan", "postmaster@lan"}));
    EXPECT_TRUE(IsMailAllowed("-rcpt=post*@*", "10.0.0.5", "postmaster@lan", {"ann@lan"}));
    EXPECT_FALSE(IsMailAllowed("+ip=10.0.0.6 -sender=*", "10.0.0.5", "", {}));
}

TEST_F(NetIPControlQueryTest, RecipientRule_NoRecipients_NeverMatches)
{
    EXPECT_TRUE(IsMailAllowed("-rcpt=*", "10.0.0.5", "ann@lan", {}));
    EXPECT_FALSE(IsMailAllowed("-rcpt=*", "10.0.0.5", "ann@lan", {""}));
}

TEST_F(NetIPControlQueryTest, MailRules_AddressIsTheObject_WildcardsOfAStrangerCount_KeptOnPurpose)
{
    EXPECT_FALSE(IsMailAllowed("-sender=ann@lan", "10.0.0.5", "*", {}));
    EXPECT_FALSE(IsMailAllowed("-rcpt=ann@lan", "10.0.0.5", "", {"a?n@*"}));
    // With wildcards on both sides the address is the pattern and the rule's text plain.
    EXPECT_TRUE(IsMailAllowed("-sender=*@lan", "10.0.0.5", "b?b@lan", {}));
    EXPECT_FALSE(IsMailAllowed("-sender=*@lan", "10.0.0.5", "?@lan", {}));
}

// --- rules that ask a name server

Replies AnswerNames(const DNSQuery& query, std::size_t)
{
    DNSMessage answer(query);
    if (query.type == DNSMessage::A && query.name == "two.example")
        return {{answer.AddA("10.0.0.1").AddA("10.0.0.5").Build()}};
    if (query.type == DNSMessage::A && query.name == "alias.example")
        return {{answer.AddCName("two.example").Build()}};
    if (query.name == "5.0.0.10.in-addr.arpa")
        return {{answer.AddPtr("first.elsewhere").AddPtr("Client5.LAN").Build()}};
    if (query.name == "6.0.0.10.in-addr.arpa")
        return {{answer.AddPtr("*").Build()}};
    if (query.name == "8.0.0.10.in-addr.arpa")
        return {{answer.AddPtr("*.lan").AddPtr("trusted.la?").Build()}};
    return {{answer.Code(3).Build()}};
}

/// The system's name servers are what a test says; in the place of /etc.
class NetIPControlHostTest : public NetIPControlQueryTest
{
protected:
    void SetUp() override
    {
        KQ_NEED_PORT_53();
        m_server = std::make_unique<FakeDNSServer>(AnswerNames);
        ASSERT_TRUE(m_server->IsRunning());
        UseServers({m_server->GetAddress()});
        NetDNS dns(NetIP::LOOKUP_ANY);
        if (!dns.GetDNSServers() || dns.GetDNSServer(0) != m_server->GetAddress())
            GTEST_SKIP() << "the name servers of this system are not taken from files";
    }
    void TearDown() override { platform::SetServerSettingsRoot(nullptr); }

    void UseServers(const std::vector<std::string>& addresses)
    {
        std::filesystem::create_directories(m_root / "etc");
        std::ofstream file(m_root / "etc/resolv.conf");
        for (const std::string& address : addresses)
            file << "nameserver " << address << "\n";
        m_rootText = m_root.GetPath().string();
        platform::SetServerSettingsRoot(m_rootText.c_str());
    }

    TempFolder m_root;
    std::string m_rootText;
    std::unique_ptr<FakeDNSServer> m_server;
};

TEST_F(NetIPControlHostTest, Host_AnyOfItsAddresses_Matches)
{
    EXPECT_FALSE(IsAllowed("-host=two.example", "10.0.0.1"));
    EXPECT_FALSE(IsAllowed("-host=two.example", "10.0.0.5"));
    EXPECT_TRUE(IsAllowed("-host=two.example", "10.0.0.6"));
    EXPECT_FALSE(IsAllowed("-host=alias.example", "10.0.0.5"));
}

TEST_F(NetIPControlHostTest, Host_SecondCheck_FromTheCache)
{
    IsAllowed("-host=two.example", "10.0.0.1");
    const std::size_t queries = m_server->GetQueryCount();
    EXPECT_EQ(queries, 1U);
    EXPECT_FALSE(IsAllowed("-host=TWO.example", "10.0.0.5"));
    EXPECT_EQ(m_server->GetQueryCount(), queries);
}

TEST_F(NetIPControlHostTest, Host_NoSuchNameEmptyOrAddressText_NoMatch)
{
    EXPECT_TRUE(IsAllowed("-host=none.example", "10.0.0.1"));
    EXPECT_TRUE(IsAllowed("-host=10.0.0.1", "10.0.0.1")); // a host rule names a host
    NetIPControlEntry rule;
    rule.SetAllow(false);
    rule.SetType(NetIPControlEntry::ET_HOST);
    NetIPControl rules;
    rules.Add(rule);
    EXPECT_TRUE(m_query.IsAllowed(rules, LOCAL, NetIP("10.0.0.1")));
}

TEST_F(NetIPControlHostTest, ReverseHost_AnyName_RuleIsThePattern)
{
    EXPECT_FALSE(IsAllowed("-rhost=*.lan", "10.0.0.5"));
    EXPECT_FALSE(IsAllowed("-rhost=client?.LAN", "10.0.0.5"));
    EXPECT_FALSE(IsAllowed("-rhost=first.elsewhere", "10.0.0.5"));
    EXPECT_TRUE(IsAllowed("-rhost=*.lan.example", "10.0.0.5"));
    EXPECT_TRUE(IsAllowed("-rhost=*", "10.0.0.7")); // has no name
    EXPECT_TRUE(IsAllowed("-rhost=*", "2001:db8::1"));
}

// Who owns an address writes its reverse name; "*" there must not match every rule that has a wildcard.
TEST_F(NetIPControlHostTest, ReverseHost_NameOfAStrangerIsAWildcard_PlainTextToAPattern)
{
    EXPECT_FALSE(IsAllowed("+rhost=*.lan -ipmask=0.0.0.0/0.0.0.0", "10.0.0.6"));
    EXPECT_FALSE(IsAllowed("+rhost=client? -ipmask=0.0.0.0/0.0.0.0", "10.0.0.6"));
    EXPECT_TRUE(IsAllowed("+rhost=? -ipmask=0.0.0.0/0.0.0.0", "10.0.0.6"));
}

// Once let in everybody who owned a reverse zone: a name with wildcards was the pattern of a rule without any.
TEST_F(NetIPControlHostTest, ReverseHost_RuleWithoutWildcardsNameWithThem_NoMatch)
{
    const std::string everybodyElse = " -ipmask=0.0.0.0/0.0.0.0";
    for (const char* peer : {"10.0.0.6", "10.0.0.8"}) {
        EXPECT_FALSE(IsAllowed("+rhost=trusted.lan" + everybodyElse, peer)) << peer;
        EXPECT_FALSE(IsAllowed("+rhost=t" + everybodyElse, peer)) << peer;
        EXPECT_FALSE(IsMailAllowed("+rhost=trusted.lan" + everybodyElse, peer, "", {})) << peer;
    }
    // Plain texts are compared whole and without case; wildcards of the rule still count.
    EXPECT_TRUE(IsAllowed("+rhost=CLIENT5.lan" + everybodyElse, "10.0.0.5"));
    EXPECT_FALSE(IsAllowed("+rhost=client5.la" + everybodyElse, "10.0.0.5"));
    EXPECT_TRUE(IsAllowed("+rhost=?.LAN" + everybodyElse, "10.0.0.8"));
    EXPECT_TRUE(IsAllowed("+rhost=trusted*" + everybodyElse, "10.0.0.8"));
}

TEST_F(NetIPControlHostTest, CheapRuleFirst_NoQuery)
{
    EXPECT_TRUE(IsAllowed("+ip=10.0.0.1 -host=two.example -rhost=*", "10.0.0.1"));
    EXPECT_EQ(m_server->GetQueryCount(), 0U);
}

TEST_F(NetIPControlHostTest, IndexedList_NamesBehindTheDecidingAddress_NotAsked)
{
    const NetIPControl rules =
        Rules("-ip=10.0.0.9 -host=two.example +ip=10.0.0.6 -rhost=*.lan +ipmask=10.0.0.0/255.0.0.0");
    const auto ask = [&](const char* peer) {
        NetDNSCache cache; // which knows no name yet
        const std::size_t before = m_server->GetQueryCount();
        const bool allowed = NetIPControlQuery(cache).IsAllowed(rules, LOCAL, NetIP(peer));
        std::string asked = allowed ? "allowed" : "denied";
        for (std::size_t number = before; number < m_server->GetQueryCount(); ++number)
            asked += " " + m_server->GetQueries()[number].name;
        return asked;
    };
    for (int decision = 0; decision < 70; ++decision) // the later ones by the list's index
        ASSERT_EQ(ask("10.0.0.9"), "denied") << decision;
    EXPECT_EQ(ask("10.0.0.1"), "denied two.example");
    EXPECT_EQ(ask("10.0.0.6"), "allowed two.example");
    EXPECT_EQ(ask("10.0.0.7"), "allowed two.example 7.0.0.10.in-addr.arpa");
    EXPECT_EQ(ask("192.0.2.1"), "allowed two.example 1.2.0.192.in-addr.arpa");
    EXPECT_EQ(ask("10.0.0.5"), "denied two.example");
}

// The order and the number of look-ups are those of a list that is walked.
TEST_F(NetIPControlHostTest, IndexedLists_Random_LookUpsOfTheWalk)
{
    constexpr const char* TEXTS[] = {"-host=two.example",
                                     "+host=alias.example",
                                     "+host=none.example",
                                     "-rhost=*.lan",
                                     "+rhost=first.*",
                                     "-ip=10.0.0.5",
                                     "+ip=10.0.0.6",
                                     "-islocal",
                                     "+ipmask=10.0.0.4/255.255.255.254",
                                     "-ipmask=0.0.0.0/0.0.0.0",
                                     "+ipmask=10.0.0.1/255.0.0.1",
                                     "-sender=*"};
    std::mt19937 random(5);
    for (int list = 0; list < 40; ++list) {
        std::string line;
        for (std::size_t count = 2 + random() % 6; count > 0; --count)
            line += std::string(TEXTS[random() % std::size(TEXTS)]) + " ";
        const NetIPControl rules = Rules(line);
        for (int decision = 0; decision < 70; ++decision)
            m_query.IsAllowed(rules, LOCAL, NetIP("10.0.0.1")); // over a cache that soon knows the names
        for (const char* peer : {"10.0.0.1", "10.0.0.5", "10.0.0.6", "10.0.0.8", "192.168.0.1"}) {
            const auto record = [&](const auto& decide) {
                NetDNSCache cache;
                const std::size_t before = m_server->GetQueryCount();
                const NetIPControlQuery query(cache);
                std::string text = decide(query) ? "allowed" : "denied";
                const std::vector<DNSQuery> queries = m_server->GetQueries();
                for (std::size_t number = before; number < queries.size(); ++number)
                    text += " " + queries[number].name;
                return text;
            };
            const auto walk = [&](const NetIPControlQuery& query) {
                for (ULONG index = 0; index < rules.GetCount(); ++index)
                    if (query.DoesMatch(rules.Get(index), LOCAL, NetIP(peer)))
                        return rules.Get(index).GetAllow();
                return true;
            };
            const auto decide = [&](const NetIPControlQuery& query) {
                return query.IsAllowed(rules, LOCAL, NetIP(peer));
            };
            ASSERT_EQ(record(decide), record(walk)) << line << "for " << peer;
        }
    }
}

TEST_F(NetIPControlHostTest, NoServers_HostRulesDoNotMatch)
{
    UseServers({});
    EXPECT_TRUE(IsAllowed("-host=two.example -rhost=*", "10.0.0.5"));
}

TEST_F(NetIPControlHostTest, AntiHammerExemption_ByReverseName_LiftsTheBlock)
{
    NetAntiHammer hammer(m_cache);
    hammer.SetData(1, 300, 1800, true, Rules("+rhost=*.lan -ipmask=0.0.0.0/0.0.0.0"));
    EXPECT_TRUE(hammer.AddFailedAttempt(NetIP("10.0.0.5"), LOCAL));
    EXPECT_TRUE(hammer.AddFailedAttempt(NetIP("10.0.0.7"), LOCAL));
    EXPECT_EQ(m_server->GetQueryCount(), 0U); // failures are counted without asking
    EXPECT_FALSE(hammer.IsBlocked(NetIP("10.0.0.5"), LOCAL));
    EXPECT_TRUE(hammer.IsBlocked(NetIP("10.0.0.7"), LOCAL));
}

/// The tick at twenty times its speed, so that three waits of five seconds take less than one.
std::uint32_t FastTick()
{
    return platform::TickMs() * 20U;
}

TEST_F(NetIPControlHostTest, SilentServer_DelaysItsOwnCheckAlone)
{
    FakeDNSServer silent([](const DNSQuery&, std::size_t) { return Replies{}; });
    ASSERT_TRUE(silent.IsRunning());
    UseServers({silent.GetAddress()});
    TimedEvent::sSetSource(FastTick);
    std::atomic<bool> slowDone{false};
    bool slowAllowed = false;
    std::thread slow([&] {
        slowAllowed = m_query.IsAllowed(Rules("-host=two.example"), LOCAL, NetIP("10.0.0.1"));
        slowDone = true;
    });
    // Other checks over the same cache go on while that one waits.
    std::size_t others = 0;
    while (silent.GetQueryCount() < 3) {
        EXPECT_FALSE(IsAllowed("-ip=10.0.0.5", "10.0.0.5"));
        EXPECT_TRUE(m_query.IsAllowed(Rules("-ip=10.0.0.5"), LOCAL, NetIP("10.0.0.6")));
        EXPECT_FALSE(slowDone);
        ++others;
        std::this_thread::yield();
    }
    slow.join();
    TimedEvent::sSetSource(nullptr);
    EXPECT_GT(others, 10U);
    EXPECT_TRUE(slowAllowed); // no answer: the rule does not match
    EXPECT_EQ(silent.GetQueryCount(), 3U);
}

TEST_F(NetIPControlHostTest, AntiHammer_SilentServerInAnExemption_OtherChecksWait_KeptOnPurpose)
{
    FakeDNSServer silent([](const DNSQuery&, std::size_t) { return Replies{}; });
    ASSERT_TRUE(silent.IsRunning());
    UseServers({silent.GetAddress()});
    TimedEvent::sSetSource(FastTick);
    NetAntiHammer hammer(m_cache);
    hammer.SetData(1, 3000000, 3000000, true, Rules("+host=two.example -ipmask=0.0.0.0/0.0.0.0"));
    hammer.AddFailedAttempt(NetIP("10.0.0.1"), LOCAL);
    std::thread slow([&] { EXPECT_TRUE(hammer.IsBlocked(NetIP("10.0.0.1"), LOCAL)); });
    while (silent.GetQueryCount() == 0)
        std::this_thread::yield();
    EXPECT_FALSE(hammer.IsBlocked(NetIP("10.0.0.9"), LOCAL));
    EXPECT_EQ(silent.GetQueryCount(), 3U); // answered only after all three attempts of the other
    slow.join();
    TimedEvent::sSetSource(nullptr);
}

} // namespace
