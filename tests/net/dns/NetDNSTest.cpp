#include "net/dns/NetDNS.h"
#include "common/TimedEvent.h"
#include "net/dns/NetDNSCache.h"
#include "platform/Clock.h"
#include "platform/ResolverConfig.h"
#include "tests/net/dns/Lookups.h"
#include "tests/peers/Port53.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace kqlib;
using namespace kqlib::test;
using testing::AllOf;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::Ge;
using testing::IsEmpty;
using testing::Lt;

constexpr NetIP::IPLOOKUPMODE MODE = NetIP::LOOKUP_ANY;
/// How much faster than the true tick the sped-up one runs.
constexpr std::uint32_t SPEED = 10;

std::vector<std::string> Servers(const NetDNS& dns)
{
    std::vector<std::string> servers;
    for (ULONG i = 0; i < dns.GetDNSServerCount(); ++i)
        servers.push_back(dns.GetDNSServer(i).str());
    return servers;
}

/// "chain3.example" is an alias of "chain2.example", and so on; "chain0.example" has an address.
Replies AnswerChain(const DNSQuery& query, std::size_t)
{
    const std::string::size_type digit = std::string("chain").size();
    if (query.name.size() <= digit || query.name[digit] == '0')
        return AnswerA(query, 0);
    std::string target = query.name;
    --target[digit];
    return {{DNSMessage(query).AddCName(target).Build()}};
}

/// Names and literals, without any server.
class NetDNSOfflineTest : public testing::Test
{
protected:
    // Whatever the machine's own configuration says, nothing is found.
    NetDNSOfflineTest() { platform::SetServerSettingsRoot("no-such-settings"); }
    ~NetDNSOfflineTest() override { platform::SetServerSettingsRoot(nullptr); }

    Messages m_msgs;
};

TEST_F(NetDNSOfflineTest, Construction_WithAndWithoutCache_EmptyAndNoExpiry)
{
    NetDNSCache cache;
    const NetDNS plain(MODE);
    const NetDNS cached(NetIP::LOOKUP_IP4, cache);
    EXPECT_EQ(plain.GetCache(), nullptr);
    EXPECT_EQ(cached.GetCache(), &cache);
    EXPECT_EQ(plain.GetIPLookupMode(), MODE);
    EXPECT_EQ(cached.GetIPLookupMode(), NetIP::LOOKUP_IP4);
    EXPECT_EQ(plain.GetFirstExpiryTime(), 0xFFFFFFFFUL);
    EXPECT_EQ(plain.GetARecordCount() + plain.GetPTRRecordCount() + plain.GetMXRecordCount() +
                  plain.GetTXTRecordCount() + plain.GetSPFRecordCount() + plain.GetDNSServerCount(),
              0U);
}

TEST_F(NetDNSOfflineTest, SetIPLookupMode_AnyValue_Kept)
{
    NetDNS dns(MODE);
    dns.SetIPLookupMode(static_cast<NetIP::IPLOOKUPMODE>(77));
    EXPECT_EQ(dns.GetIPLookupMode(), static_cast<NetIP::IPLOOKUPMODE>(77));
}

TEST_F(NetDNSOfflineTest, ResolveHost_AddressAccepted_ThatAddressAndNoQuery)
{
    NetDNS dns(MODE);
    Vector<NetIP> addresses;
    addresses.Add(NetIP("9.9.9.9"));
    EXPECT_TRUE(dns.ResolveHost("10.0.0.1", true, addresses, m_msgs));
    ASSERT_EQ(addresses.GetCount(), 1U);
    EXPECT_EQ(addresses.Get(0).GetText(), "10.0.0.1");
    NetIP address;
    EXPECT_TRUE(dns.ResolveHost("::1", true, address, m_msgs));
    EXPECT_EQ(address.GetText(), "::1");
    EXPECT_THAT(Codes(m_msgs), IsEmpty());
}

TEST_F(NetDNSOfflineTest, ResolveHost_AddressNotAccepted_54)
{
    NetDNS dns(MODE);
    Vector<NetIP> addresses;
    addresses.Add(NetIP("9.9.9.9"));
    EXPECT_FALSE(dns.ResolveHost("10.0.0.1", false, addresses, m_msgs));
    EXPECT_EQ(addresses.GetCount(), 0U);
    NetIP address("9.9.9.9");
    EXPECT_FALSE(dns.ResolveHost("::1", false, address, m_msgs));
    EXPECT_EQ(address.GetText(), "9.9.9.9");
    EXPECT_THAT(Codes(m_msgs), ElementsAre(54, 54));
}

TEST_F(NetDNSOfflineTest, ResolveHost_Empty_54)
{
    NetDNS dns(MODE);
    NetIP address;
    EXPECT_FALSE(dns.ResolveHost("", true, address, m_msgs));
    EXPECT_FALSE(dns.ResolveHost("", false, address, m_msgs));
    EXPECT_THAT(Codes(m_msgs), ElementsAre(54, 54));
}

TEST_F(NetDNSOfflineTest, ResolveHost_NumberText_IsAHostName)
{
    NetDNS dns(MODE);
    NetIP address;
    EXPECT_FALSE(dns.ResolveHost("167772161", true, address, m_msgs));
    EXPECT_FALSE(dns.ResolveHost("10.0.0", true, address, m_msgs));
    EXPECT_THAT(Codes(m_msgs), ElementsAre(53, 53));
}

TEST_F(NetDNSOfflineTest, ResolveHost_CachedWithoutRecords_VectorFormTrueSingleFormFalse)
{
    NetDNSCache cache;
    cache.CacheALookup("host.example", TimedEvent::sGetNow() + 60000, VectorPtr<String>());
    NetDNS dns(MODE, cache);
    Vector<NetIP> addresses;
    EXPECT_TRUE(dns.ResolveHost("host.example", true, addresses, m_msgs));
    EXPECT_EQ(addresses.GetCount(), 0U);
    NetIP address;
    EXPECT_FALSE(dns.ResolveHost("host.example", true, address, m_msgs));
}

TEST_F(NetDNSOfflineTest, Lookup_CachedInEveryType_HitWithoutServersInAnyForm)
{
    NetDNSCache cache;
    const ULONG expiry = TimedEvent::sGetNow() + 60000;
    VectorPtr<String> records;
    records.Give(new String("record"));
    VectorPtr<NetDNS::MX_RECORD> exchangers;
    exchangers.Give(new NetDNS::MX_RECORD{7, "mx.example"});
    cache.CacheALookup("n", expiry, records);
    cache.CachePtrLookup("n", expiry, records);
    cache.CacheTxtLookup("n", expiry, records);
    cache.CacheSpfLookup("n", expiry, records);
    cache.CacheMxLookup("n", expiry, exchangers);
    NetDNS dns(MODE, cache);
    for (int round = 0; round < 2; ++round) {
        EXPECT_TRUE(dns.DoALookup("N", m_msgs) && dns.DoPTRLookup("N", m_msgs) && dns.DoTXTLookup("N", m_msgs) &&
                    dns.DoSPFLookup("N", m_msgs) && dns.DoMXLookup("N", m_msgs));
        EXPECT_TRUE(dns.DoALookup("n", "", m_msgs) && dns.DoPTRLookup("n", "", m_msgs) &&
                    dns.DoTXTLookup("n", "", m_msgs) && dns.DoSPFLookup("n", "", m_msgs) &&
                    dns.DoMXLookup("n", "", m_msgs));
        ASSERT_EQ(dns.GetARecordCount(), 1U);
        ASSERT_EQ(dns.GetPTRRecordCount(), 1U);
        ASSERT_EQ(dns.GetTXTRecordCount(), 1U);
        ASSERT_EQ(dns.GetSPFRecordCount(), 1U);
        ASSERT_EQ(dns.GetMXRecordCount(), 1U);
    }
    EXPECT_EQ(dns.GetARecord(0), "record");
    EXPECT_EQ(dns.GetPTRRecord(0), "record");
    EXPECT_EQ(dns.GetTXTRecord(0), "record");
    EXPECT_EQ(dns.GetSPFRecord(0), "record");
    EXPECT_EQ(dns.GetMXRecord(0), "mx.example");
    EXPECT_EQ(dns.GetMXRecordPriority(0), 7U);
    EXPECT_EQ(dns.GetFirstExpiryTime(), 0xFFFFFFFFUL);
    EXPECT_THAT(Codes(m_msgs), IsEmpty());
}

TEST_F(NetDNSOfflineTest, Lookup_MissWithCache_ClearsTheTypesList)
{
    NetDNSCache cache;
    VectorPtr<String> records;
    records.Give(new String("10.0.0.1"));
    cache.CacheALookup("n", TimedEvent::sGetNow() + 60000, records);
    NetDNS dns(MODE, cache);
    EXPECT_TRUE(dns.DoALookup("n", m_msgs));
    EXPECT_FALSE(dns.DoALookup("other", m_msgs));
    EXPECT_EQ(dns.GetARecordCount(), 0U);
}

TEST_F(NetDNSOfflineTest, Lookup_NoServerFound_53EvenForABadName)
{
    NetDNS dns(MODE);
    EXPECT_FALSE(dns.DoALookup("host.example", m_msgs));
    EXPECT_FALSE(dns.DoMXLookup("bad.", m_msgs));
    EXPECT_FALSE(dns.DoALookup("10.0.0.1", m_msgs));
    EXPECT_THAT(Codes(m_msgs), ElementsAre(53, 53, 53));
}

TEST_F(NetDNSOfflineTest, Lookup_ServerThatCannotBeResolved_53)
{
    NetDNS dns(MODE);
    EXPECT_FALSE(dns.DoALookup("host.example", "", m_msgs));
    EXPECT_FALSE(dns.DoALookup("host.example", String(300, 'x'), m_msgs));
    EXPECT_THAT(Codes(m_msgs), ElementsAre(53, 53));
}

TEST_F(NetDNSOfflineTest, Lookup_ServerThatCannotBeAsked_53)
{
    NetDNS dns(MODE);
    EXPECT_FALSE(dns.DoALookup("host.example", "255.255.255.255", m_msgs));
    EXPECT_THAT(Codes(m_msgs), ElementsAre(53));
}

TEST_F(NetDNSOfflineTest, SetDNSServers_AnyTexts_TakenAsTheyAre)
{
    NetDNS dns(MODE);
    SetServers(dns, {"10.0.0.1", "Name", "name", "10.0.0.1", ""});
    EXPECT_THAT(Servers(dns), ElementsAre("10.0.0.1", "Name", "name", "10.0.0.1", ""));
    SetServers(dns, {"10.0.0.2"});
    EXPECT_THAT(Servers(dns), ElementsAre("10.0.0.2"));
    dns.ClearDNSServers();
    EXPECT_EQ(dns.GetDNSServerCount(), 0U);
}

/// Look-ups over the network of loopback.
class NetDNSTest : public testing::Test
{
protected:
    void SetUp() override { KQ_NEED_PORT_53(); }
    void TearDown() override
    {
        TimedEvent::sSetSource(nullptr);
        platform::SetServerSettingsRoot(nullptr);
    }

    /// Lets the library's tick, and with it every wait for an answer, run faster than the true one.
    static void SpeedUp()
    {
        TimedEvent::sSetSource([] { return platform::TickMs() * SPEED; });
    }

    Messages m_msgs;
};

/// Look-ups that need two name servers at a time.
class NetDNSSeveralServersTest : public NetDNSTest
{
};

TEST_F(NetDNSTest, Query_EachType_BytesAsLaidDown)
{
    FakeDNSServer server(AnswerCode(3));
    ASSERT_TRUE(server.IsRunning());
    NetDNS dns(MODE);
    const String address(server.GetAddress());
    EXPECT_FALSE(dns.DoALookup("Host.kq", address, m_msgs));
    EXPECT_FALSE(dns.DoMXLookup("a", address, m_msgs));
    EXPECT_FALSE(dns.DoPTRLookup("a", address, m_msgs));
    EXPECT_FALSE(dns.DoTXTLookup("a", address, m_msgs));
    EXPECT_FALSE(dns.DoSPFLookup("a", address, m_msgs));
    const std::vector<DNSQuery> queries = server.GetQueries();
    ASSERT_EQ(queries.size(), 5U);
    EXPECT_THAT(queries[0].bytes, ElementsAre(0xFF, 0xFF, 0x01, 0x00, 0, 1, 0, 0, 0, 0, 0, 0, 4, 'H', 'o', 's', 't', 2,
                                              'k', 'q', 0, 0, 1, 0, 1));
    EXPECT_THAT(queries[1].bytes, ElementsAre(0xFF, 0xFF, 0x01, 0x00, 0, 1, 0, 0, 0, 0, 0, 0, 1, 'a', 0, 0, 15, 0, 1));
    EXPECT_EQ(queries[2].type, 12U);
    EXPECT_EQ(queries[3].type, 16U);
    EXPECT_EQ(queries[4].type, 99U);
    EXPECT_EQ(dns.GetDNSServerCount(), 0U);
}

TEST_F(NetDNSTest, Lookup_NamesThatCannotBeEncoded_54OncePerAttemptAndNothingSent_KeptOnPurpose)
{
    FakeDNSServer server(AnswerA);
    NetDNS dns(MODE);
    const String names[] = {"", ".", "a.", ".a", "a..b", String(256, 'a')};
    for (const String& name : names) {
        Messages msgs;
        EXPECT_FALSE(dns.DoALookup(name, String(server.GetAddress()), msgs));
        EXPECT_THAT(Codes(msgs), ElementsAre(54, 54, 54)) << name.c_str();
    }
    EXPECT_EQ(server.GetQueryCount(), 0U);
}

TEST_F(NetDNSTest, Lookup_BadName_ServerStaysOnTheList)
{
    FakeDNSServer server(AnswerA);
    NetDNS dns(MODE);
    SetServers(dns, {server.GetAddress()});
    EXPECT_FALSE(dns.DoALookup("a.", m_msgs));
    EXPECT_EQ(dns.GetDNSServerCount(), 1U);
}

TEST_F(NetDNSTest, Lookup_LongestNameAndLongLabel_SentWithoutRegardTo63_KeptOnPurpose)
{
    FakeDNSServer server(AnswerA);
    NetDNS dns(MODE);
    const String address(server.GetAddress());
    EXPECT_TRUE(dns.DoALookup(String(127, 'a') + "." + String(127, 'b'), address, m_msgs));
    EXPECT_TRUE(dns.DoALookup(String(64, 'b') + ".c", address, m_msgs));
    const std::vector<DNSQuery> queries = server.GetQueries();
    ASSERT_EQ(queries.size(), 2U);
    EXPECT_EQ(queries[0].bytes.size(), 12U + 1 + 255 + 1 + 4);
    EXPECT_EQ(queries[0].name, std::string(127, 'a') + "." + std::string(127, 'b'));
    EXPECT_EQ(queries[1].bytes[12], 64);
}

TEST_F(NetDNSTest, Lookup_EachType_RecordsToRead)
{
    FakeDNSServer server([](const DNSQuery& query, std::size_t) -> Replies {
        DNSMessage answer(query);
        switch (query.type) {
        case DNSMessage::A:
            return {{answer.AddA("10.0.0.2").AddA("10.0.0.1").Build()}};
        case DNSMessage::PTR:
            return {{answer.AddPtr("one.example").AddPtr("two.example").Build()}};
        case DNSMessage::MX:
            return {{answer.AddMx(10, "ten").AddMx(5, "five").AddMx(10, "ten again").Build()}};
        default:
            return {{answer.AddText(query.type, {"only this", "not this"}).Build()}};
        }
    });
    NetDNS dns(MODE);
    SetServers(dns, {server.GetAddress()});
    ASSERT_TRUE(dns.DoALookup("n", m_msgs) && dns.DoPTRLookup("n", m_msgs) && dns.DoMXLookup("n", m_msgs) &&
                dns.DoTXTLookup("n", m_msgs) && dns.DoSPFLookup("n", m_msgs));
    EXPECT_THAT(ARecords(dns), ElementsAre("10.0.0.2", "10.0.0.1"));
    ASSERT_EQ(dns.GetPTRRecordCount(), 2U);
    EXPECT_EQ(dns.GetPTRRecord(0), "one.example");
    EXPECT_EQ(dns.GetPTRRecord(1), "two.example");
    ASSERT_EQ(dns.GetMXRecordCount(), 3U);
    EXPECT_EQ(dns.GetMXRecord(0), "five");
    EXPECT_EQ(dns.GetMXRecordPriority(0), 5U);
    EXPECT_EQ(dns.GetMXRecord(1), "ten again");
    EXPECT_EQ(dns.GetMXRecord(2), "ten");
    EXPECT_EQ(dns.GetMXRecordPriority(2), 10U);
    ASSERT_EQ(dns.GetTXTRecordCount(), 1U);
    EXPECT_EQ(dns.GetTXTRecord(0), "only this");
    ASSERT_EQ(dns.GetSPFRecordCount(), 1U);
    EXPECT_EQ(dns.GetSPFRecord(0), "only this");
    EXPECT_THAT(Codes(m_msgs), IsEmpty());
}

TEST_F(NetDNSTest, Lookup_SecondOfAType_ReplacesTheFirst)
{
    FakeDNSServer server([](const DNSQuery& query, std::size_t number) -> Replies {
        return {{DNSMessage(query).AddA(number == 0 ? "10.0.0.1" : "10.0.0.2").Build()}};
    });
    NetDNS dns(MODE);
    SetServers(dns, {server.GetAddress()});
    ASSERT_TRUE(dns.DoALookup("n", m_msgs) && dns.DoALookup("n", m_msgs));
    EXPECT_THAT(ARecords(dns), ElementsAre("10.0.0.2"));
}

TEST_F(NetDNSTest, Lookup_RecordIndexPastTheCount_Throws)
{
    NetDNS dns(MODE);
    EXPECT_THROW((void)dns.GetARecord(0), std::out_of_range);
    EXPECT_THROW((void)dns.GetMXRecordPriority(0), std::out_of_range);
    EXPECT_THROW((void)dns.GetDNSServer(0), std::out_of_range);
}

/// Answers after so many milliseconds by the test's clock have gone by.
TEST_F(NetDNSTest, FirstExpiry_AnswerThatKeptWaiting_CountsFromItsArrival)
{
    static std::atomic<std::uint32_t> tick;
    tick = 1000000;
    TimedEvent::sSetSource([] { return tick.load(); });
    FakeDNSServer server([](const DNSQuery& query, std::size_t) -> Replies {
        tick += 3000; // the resolver is waiting since before
        return {{DNSMessage(query).AddA("10.0.0.1", 7000).Build()}};
    });
    NetDNSCache cache;
    NetDNS dns(MODE, cache);
    ASSERT_TRUE(dns.DoALookup("n", String(server.GetAddress()), m_msgs));
    EXPECT_EQ(dns.GetFirstExpiryTime(), 1003000U + 7000000U);
}

TEST_F(NetDNSTest, FirstExpiry_TTLOf60_5000SecondsAhead_KeptOnPurpose)
{
    FakeDNSServer server([](const DNSQuery& query, std::size_t) -> Replies {
        return {{DNSMessage(query).AddA("10.0.0.1", 60).Build()}};
    });
    NetDNS dns(MODE);
    const auto before = static_cast<std::uint32_t>(TimedEvent::sGetNow());
    ASSERT_TRUE(dns.DoALookup("n", String(server.GetAddress()), m_msgs));
    const auto after = static_cast<std::uint32_t>(TimedEvent::sGetNow());
    const auto ahead = static_cast<std::uint32_t>(dns.GetFirstExpiryTime() - before);
    EXPECT_GE(ahead, 5000000U);
    EXPECT_LE(ahead, 5000000U + (after - before));
    dns.ResetFirstExpiryTime();
    EXPECT_EQ(dns.GetFirstExpiryTime(), 0xFFFFFFFFUL);
}

TEST_F(NetDNSTest, FirstExpiry_SeveralAnswers_EarliestKept)
{
    FakeDNSServer server([](const DNSQuery& query, std::size_t number) -> Replies {
        const std::uint32_t ttls[] = {9000, 7000, 8000};
        return {{DNSMessage(query).AddA("10.0.0.1", ttls[number % 3]).Build()}};
    });
    TimedEvent::sSetSource([] { return 1000U; });
    NetDNS dns(MODE);
    const String address(server.GetAddress());
    ASSERT_TRUE(dns.DoALookup("n", address, m_msgs));
    EXPECT_EQ(dns.GetFirstExpiryTime(), 9001000UL);
    ASSERT_TRUE(dns.DoALookup("n", address, m_msgs));
    EXPECT_EQ(dns.GetFirstExpiryTime(), 7001000UL);
    ASSERT_TRUE(dns.DoALookup("n", address, m_msgs));
    EXPECT_EQ(dns.GetFirstExpiryTime(), 7001000UL);
}

TEST_F(NetDNSTest, FirstExpiry_LifeBeyond32Bits_Wraps_KeptOnPurpose)
{
    FakeDNSServer server([](const DNSQuery& query, std::size_t) -> Replies {
        return {{DNSMessage(query).AddA("10.0.0.1", 5000000).Build()}};
    });
    TimedEvent::sSetSource([] { return 1000U; });
    NetDNS dns(MODE);
    ASSERT_TRUE(dns.DoALookup("n", String(server.GetAddress()), m_msgs));
    EXPECT_EQ(dns.GetFirstExpiryTime(), 1000UL + 705032704UL);
}

TEST_F(NetDNSTest, Cache_AnswerStored_NextLookupAsksNobody)
{
    FakeDNSServer server(AnswerA);
    NetDNSCache cache;
    NetDNS first(MODE, cache);
    ASSERT_TRUE(first.DoALookup("Host.example", String(server.GetAddress()), m_msgs));
    NetDNS second(MODE, cache);
    ASSERT_TRUE(second.DoALookup("host.EXAMPLE", String(server.GetAddress()), m_msgs));
    EXPECT_THAT(ARecords(second), ElementsAre("10.0.0.1"));
    EXPECT_EQ(server.GetQueryCount(), 1U);
}

TEST_F(NetDNSTest, Cache_EveryType_Stored)
{
    FakeDNSServer server([](const DNSQuery& query, std::size_t) -> Replies {
        DNSMessage answer(query);
        if (query.type == DNSMessage::A)
            return {{answer.AddA("10.0.0.1").Build()}};
        if (query.type == DNSMessage::PTR)
            return {{answer.AddPtr("p").Build()}};
        if (query.type == DNSMessage::MX)
            return {{answer.AddMx(1, "m").Build()}};
        return {{answer.AddText(query.type, {"t"}).Build()}};
    });
    NetDNSCache cache;
    for (int round = 0; round < 2; ++round) {
        NetDNS dns(MODE, cache);
        const String address(server.GetAddress());
        EXPECT_TRUE(dns.DoALookup("n", address, m_msgs) && dns.DoPTRLookup("n", address, m_msgs) &&
                    dns.DoMXLookup("n", address, m_msgs) && dns.DoTXTLookup("n", address, m_msgs) &&
                    dns.DoSPFLookup("n", address, m_msgs));
    }
    EXPECT_EQ(server.GetQueryCount(), 5U);
}

TEST_F(NetDNSTest, Cache_AliasAsked_StoredUnderTheTargetAndAliasAskedAnew_KeptOnPurpose)
{
    FakeDNSServer server(AnswerChain);
    NetDNSCache cache;
    NetDNS dns(MODE, cache);
    const String address(server.GetAddress());
    ASSERT_TRUE(dns.DoALookup("chain1.example", address, m_msgs));
    EXPECT_EQ(server.GetQueryCount(), 2U);
    ASSERT_TRUE(dns.DoALookup("chain0.example", address, m_msgs));
    EXPECT_EQ(server.GetQueryCount(), 2U);
    ASSERT_TRUE(dns.DoALookup("chain1.example", address, m_msgs));
    EXPECT_EQ(server.GetQueryCount(), 4U);
}

TEST_F(NetDNSTest, CName_ChainsOf1To4_Followed)
{
    FakeDNSServer server(AnswerChain);
    NetDNS dns(MODE);
    SetServers(dns, {server.GetAddress()});
    std::size_t queries = 0;
    for (std::size_t length = 1; length <= 4; ++length) {
        EXPECT_TRUE(dns.DoALookup(String("chain" + std::to_string(length) + ".example"), m_msgs)) << length;
        EXPECT_THAT(ARecords(dns), ElementsAre("10.0.0.1"));
        queries += length + 1;
        EXPECT_EQ(server.GetQueryCount(), queries);
    }
    EXPECT_THAT(Codes(m_msgs), IsEmpty());
}

TEST_F(NetDNSTest, CName_ChainsOf5And6_FailWithoutACodeAndTheServerIsDropped_KeptOnPurpose)
{
    FakeDNSServer server(AnswerChain);
    for (const char* name : {"chain5.example", "chain6.example"}) {
        NetDNS dns(MODE);
        SetServers(dns, {server.GetAddress()});
        EXPECT_FALSE(dns.DoALookup(name, m_msgs));
        EXPECT_EQ(dns.GetDNSServerCount(), 0U);
    }
    EXPECT_THAT(Codes(m_msgs), IsEmpty());
    EXPECT_EQ(server.GetQueryCount(), 10U);
}

TEST_F(NetDNSTest, CName_AnswerHoldsTheAddressToo_AskedAnewAllTheSame_KeptOnPurpose)
{
    FakeDNSServer server([](const DNSQuery& query, std::size_t number) -> Replies {
        if (number == 0)
            return {{DNSMessage(query).AddCName("real.example").AddA("10.9.9.9").Build()}};
        return AnswerA(query, number);
    });
    NetDNS dns(MODE);
    ASSERT_TRUE(dns.DoALookup("alias.example", String(server.GetAddress()), m_msgs));
    EXPECT_THAT(ARecords(dns), ElementsAre("10.0.0.1"));
    ASSERT_EQ(server.GetQueryCount(), 2U);
    EXPECT_EQ(server.GetQueries()[1].name, "real.example");
}

TEST_F(NetDNSTest, CName_RecordInFrontOfIt_StaysInTheList_KeptOnPurpose)
{
    FakeDNSServer server([](const DNSQuery& query, std::size_t number) -> Replies {
        if (number == 0)
            return {{DNSMessage(query).AddA("10.9.9.9").AddCName("real.example").Build()}};
        return AnswerA(query, number);
    });
    NetDNS dns(MODE);
    ASSERT_TRUE(dns.DoALookup("alias.example", String(server.GetAddress()), m_msgs));
    EXPECT_THAT(ARecords(dns), ElementsAre("10.9.9.9", "10.0.0.1"));
}

TEST_F(NetDNSTest, CName_TargetThatCannotBeAskedFor_54WithoutRetry)
{
    // A root label in front of "x" decodes to ".x", which has an empty label.
    FakeDNSServer server([](const DNSQuery& query, std::size_t) -> Replies {
        return {{DNSMessage(query).AddRecord(DNSMessage::Pointer(12), 5, 60, {0, 1, 'x', 0}).Build()}};
    });
    NetDNS dns(MODE);
    EXPECT_FALSE(dns.DoALookup("alias.example", String(server.GetAddress()), m_msgs));
    EXPECT_THAT(Codes(m_msgs), ElementsAre(54));
    EXPECT_EQ(server.GetQueryCount(), 1U);
}

TEST_F(NetDNSTest, CName_TargetNotAnswered_AttemptStartsAgainAtTheAlias)
{
    FakeDNSServer server([](const DNSQuery& query, std::size_t) -> Replies {
        return query.name == "alias.example" ? Replies{{DNSMessage(query).AddCName("real.example").Build()}}
                                             : Replies{};
    });
    SpeedUp();
    NetDNS dns(MODE);
    EXPECT_FALSE(dns.DoALookup("alias.example", String(server.GetAddress()), m_msgs));
    EXPECT_THAT(Codes(m_msgs), ElementsAre(53, 53, 53));
    std::vector<std::string> names;
    for (const DNSQuery& query : server.GetQueries())
        names.push_back(query.name);
    EXPECT_THAT(names, ElementsAre("alias.example", "real.example", "alias.example", "real.example", "alias.example",
                                   "real.example"));
}

TEST_F(NetDNSSeveralServersTest, Servers_NameErrorFromTheFirst_NextAskedAndFirstKept)
{
    FakeDNSServer first(AnswerCode(3));
    FakeDNSServer second(AnswerA);
    NetDNS dns(MODE);
    SetServers(dns, {first.GetAddress(), second.GetAddress()});
    EXPECT_TRUE(dns.DoALookup("n", m_msgs));
    EXPECT_THAT(Codes(m_msgs), ElementsAre(54));
    EXPECT_THAT(Servers(dns), ElementsAre(first.GetAddress(), second.GetAddress()));
}

TEST_F(NetDNSTest, Servers_ResponseCodes_51And54KeepTheServerOthersDropIt)
{
    const int expected[16] = {51, 52, 53, 54, 55, 56, 53, 53, 53, 53, 53, 53, 53, 53, 53, 53};
    for (unsigned code = 0; code < 16; ++code) {
        FakeDNSServer server(AnswerCode(code));
        NetDNS dns(MODE);
        SetServers(dns, {server.GetAddress()});
        Messages msgs;
        EXPECT_FALSE(dns.DoALookup("n", msgs));
        EXPECT_THAT(Codes(msgs), ElementsAre(expected[code])) << code;
        EXPECT_EQ(server.GetQueryCount(), 1U) << "an answer is not retried";
        EXPECT_EQ(dns.GetDNSServerCount(), code == 0 || code == 3 ? 1U : 0U) << code;
    }
}

TEST_F(NetDNSTest, Servers_CodesOfEarlierLookupsInTheList_DoNotSaveTheServer)
{
    FakeDNSServer server(AnswerCode(5));
    NetDNS dns(MODE);
    SetServers(dns, {server.GetAddress()});
    m_msgs.AddMessage(54);
    m_msgs.AddMessage(51);
    EXPECT_FALSE(dns.DoALookup("n", m_msgs));
    EXPECT_EQ(dns.GetDNSServerCount(), 0U);
}

TEST_F(NetDNSTest, Servers_NobodyServesThePort_DroppedAtOnceAndNextAsked)
{
    FakeDNSServer alive(AnswerA);
    const std::string dead = FakeDNSServer::sGetDeadAddress();
    NetDNS dns(MODE);
    SetServers(dns, {dead, dead, alive.GetAddress()});
    const std::uint32_t start = platform::TickMs();
    EXPECT_TRUE(dns.DoALookup("n", m_msgs));
    EXPECT_LT(platform::TickMs() - start, 4000U);
    EXPECT_THAT(Codes(m_msgs), ElementsAre(53, 53));
    EXPECT_THAT(Servers(dns), ElementsAre(alive.GetAddress()));
}

TEST_F(NetDNSSeveralServersTest, Servers_SilentOne_ThreeAttemptsThenDroppedForGood)
{
    FakeDNSServer silent(Silence);
    FakeDNSServer alive(AnswerA);
    SpeedUp();
    NetDNS dns(MODE);
    SetServers(dns, {silent.GetAddress(), alive.GetAddress()});
    const auto start = static_cast<std::uint32_t>(TimedEvent::sGetNow());
    EXPECT_TRUE(dns.DoALookup("n", m_msgs));
    const auto passed = static_cast<std::uint32_t>(TimedEvent::sGetNow() - start);
    EXPECT_GE(passed, 15000U);
    EXPECT_EQ(silent.GetQueryCount(), 3U);
    EXPECT_THAT(Codes(m_msgs), ElementsAre(53, 53, 53));
    EXPECT_THAT(Servers(dns), ElementsAre(alive.GetAddress()));
    EXPECT_TRUE(dns.DoALookup("n", m_msgs));
    EXPECT_EQ(silent.GetQueryCount(), 3U);
}

TEST_F(NetDNSTest, Servers_SilentOneByTheTrueClock_5SecondsForEachAttempt)
{
    FakeDNSServer silent(Silence);
    NetDNS dns(MODE);
    SetServers(dns, {silent.GetAddress()});
    const std::uint32_t start = platform::TickMs();
    EXPECT_FALSE(dns.DoALookup("n", m_msgs));
    EXPECT_THAT(platform::TickMs() - start, AllOf(Ge(15000U), Lt(18000U)));
    EXPECT_EQ(dns.GetDNSServerCount(), 0U);
}

TEST_F(NetDNSSeveralServersTest, Servers_LyingOne_DroppedWithoutRetry)
{
    FakeDNSServer liar([](const DNSQuery& query, std::size_t) -> Replies {
        return {{DNSMessage(query).AddRecord(DNSMessage::Pointer(12), DNSMessage::OTHER, 60, {1, 2, 3, 4}).Build()}};
    });
    FakeDNSServer alive(AnswerA);
    NetDNS dns(MODE);
    SetServers(dns, {liar.GetAddress(), alive.GetAddress()});
    EXPECT_TRUE(dns.DoALookup("n", m_msgs));
    EXPECT_EQ(liar.GetQueryCount(), 1U);
    EXPECT_THAT(Codes(m_msgs), ElementsAre(53));
    EXPECT_THAT(Servers(dns), ElementsAre(alive.GetAddress()));
}

TEST_F(NetDNSSeveralServersTest, Servers_AllUsedUp_Fails)
{
    FakeDNSServer first(AnswerCode(3));
    FakeDNSServer second(AnswerCode(0));
    FakeDNSServer third(AnswerCode(2));
    NetDNS dns(MODE);
    SetServers(dns, {first.GetAddress(), third.GetAddress(), second.GetAddress()});
    EXPECT_FALSE(dns.DoALookup("n", m_msgs));
    EXPECT_THAT(Codes(m_msgs), ElementsAre(54, 53, 51));
    EXPECT_THAT(Servers(dns), ElementsAre(first.GetAddress(), second.GetAddress()));
}

TEST_F(NetDNSTest, Servers_GivenByHostName_Resolved)
{
    FakeDNSServer server(AnswerA);
    // The classic form of an address in three parts is no address text here, but a name that every system resolves.
    const NetIP address{String(server.GetAddress())};
    const unsigned char* bytes = address.GetBytes();
    const std::string name =
        std::to_string(bytes[0]) + "." + std::to_string(bytes[1]) + "." + std::to_string(bytes[2] * 256 + bytes[3]);
    NetDNS dns(MODE);
    SetServers(dns, {name});
    EXPECT_TRUE(dns.DoALookup("n", m_msgs));
    EXPECT_EQ(server.GetQueryCount(), 1U);
}

TEST_F(NetDNSTest, Servers_EmptyListSet_NextLookupDiscoversAgain)
{
    FakeDNSServer server(AnswerA);
    platform::SetServerSettingsRoot("no-such-settings");
    NetDNS dns(MODE);
    SetServers(dns, {server.GetAddress()});
    EXPECT_TRUE(dns.DoALookup("n", m_msgs));
    dns.SetDNSServers(STRINGS());
    EXPECT_FALSE(dns.DoALookup("n", m_msgs));
    EXPECT_THAT(Codes(m_msgs), ElementsAre(53));
}

TEST_F(NetDNSSeveralServersTest, ServerForm_OtherServersSet_OnlyTheGivenOneAskedAndListUntouched)
{
    FakeDNSServer listed(AnswerA);
    FakeDNSServer given(AnswerCode(5));
    NetDNS dns(MODE);
    SetServers(dns, {listed.GetAddress()});
    EXPECT_FALSE(dns.DoALookup("n", String(given.GetAddress()), m_msgs));
    EXPECT_THAT(Codes(m_msgs), ElementsAre(56));
    EXPECT_EQ(listed.GetQueryCount(), 0U);
    EXPECT_THAT(Servers(dns), ElementsAre(listed.GetAddress()));
}

TEST_F(NetDNSTest, Receive_FirstQueryLost_SecondAttemptSucceeds)
{
    FakeDNSServer server([](const DNSQuery& query, std::size_t number) -> Replies {
        return number == 0 ? Replies{} : AnswerA(query, number);
    });
    SpeedUp();
    NetDNS dns(MODE);
    EXPECT_TRUE(dns.DoALookup("n", String(server.GetAddress()), m_msgs));
    EXPECT_THAT(Codes(m_msgs), ElementsAre(53));
    EXPECT_EQ(server.GetQueryCount(), 2U);
}

TEST_F(NetDNSTest, Receive_AnswerToTheFirstQueryComesLate_TakenForTheSecond_KeptOnPurpose)
{
    // One id serves every query: whatever comes on the socket is the answer.
    FakeDNSServer server([](const DNSQuery& query, std::size_t number) -> Replies {
        if (number == 0)
            return {{DNSMessage(query).AddA("10.0.0.1").Build(), 5000 / SPEED + 200}};
        return {};
    });
    SpeedUp();
    NetDNS dns(MODE);
    EXPECT_TRUE(dns.DoALookup("n", String(server.GetAddress()), m_msgs));
    EXPECT_THAT(ARecords(dns), ElementsAre("10.0.0.1"));
}

TEST_F(NetDNSTest, Receive_AnswerTwice_SecondOfACNameTakenForTheTargets_KeptOnPurpose)
{
    FakeDNSServer server([](const DNSQuery& query, std::size_t number) -> Replies {
        const auto alias = DNSMessage(query).AddCName("real.example").Build();
        return number == 0 ? Replies{{alias}, {alias}} : Replies{{DNSMessage(query).AddA("10.0.0.1").Build(), 100}};
    });
    NetDNS dns(MODE);
    EXPECT_TRUE(dns.DoALookup("alias.example", String(server.GetAddress()), m_msgs));
    // The alias, its target after the first copy, and once more after the second copy.
    std::size_t asked = 0;
    for (const DNSQuery& query : server.GetQueries())
        asked += query.name == "real.example";
    EXPECT_EQ(asked, 2U);
}

TEST_F(NetDNSTest, Receive_AnswerOfAnotherIdAndName_Taken_KeptOnPurpose)
{
    FakeDNSServer server([](const DNSQuery&, std::size_t) -> Replies {
        auto bytes = DNSMessage("quite.another", 28).AddA("10.0.0.7").Build();
        bytes[0] = 0;
        return {{bytes}};
    });
    NetDNS dns(MODE);
    EXPECT_TRUE(dns.DoALookup("n", String(server.GetAddress()), m_msgs));
    EXPECT_THAT(ARecords(dns), ElementsAre("10.0.0.7"));
}

TEST_F(NetDNSTest, Receive_1024Bytes_TakenAnd1025Refused)
{
    for (const std::size_t size : {1024U, 1025U}) {
        FakeDNSServer server([size](const DNSQuery& query, std::size_t) -> Replies {
            auto bytes = DNSMessage(query).AddA("10.0.0.1").Build();
            bytes.resize(size);
            return {{bytes}};
        });
        NetDNS dns(MODE);
        Messages msgs;
        EXPECT_EQ(dns.DoALookup("n", String(server.GetAddress()), msgs), size == 1024) << size;
        EXPECT_EQ(Codes(msgs), size == 1024 ? std::vector<int>{} : std::vector<int>{53});
    }
}

TEST_F(NetDNSTest, Receive_GoodAnswerCutAtEveryLength_Fails)
{
    const auto whole = DNSMessage("n", 15).AddMx(10, "a.example").AddMx(5, "b.example").Build();
    FakeDNSServer server([&whole](const DNSQuery&, std::size_t number) -> Replies {
        return {{{whole.begin(), whole.begin() + 1 + static_cast<std::ptrdiff_t>(number)}}};
    });
    NetDNS dns(MODE);
    for (std::size_t size = 1; size < whole.size(); ++size) {
        Messages msgs;
        EXPECT_FALSE(dns.DoMXLookup("n", String(server.GetAddress()), msgs)) << size;
        EXPECT_THAT(Codes(msgs), ElementsAre(53));
        EXPECT_EQ(dns.GetMXRecordCount(), 0U);
    }
    EXPECT_TRUE(dns.DoMXLookup("n", String(server.GetAddress()), m_msgs));
}

TEST_F(NetDNSTest, ResolveHost_Name_AddressesInOrder)
{
    FakeDNSServer server([](const DNSQuery& query, std::size_t) -> Replies {
        return {{DNSMessage(query).AddA("10.0.0.3").AddA("10.0.0.1").AddA("10.0.0.2").Build()}};
    });
    NetDNS dns(MODE);
    SetServers(dns, {server.GetAddress()});
    Vector<NetIP> addresses;
    ASSERT_TRUE(dns.ResolveHost("host.example", false, addresses, m_msgs));
    ASSERT_EQ(addresses.GetCount(), 3U);
    EXPECT_EQ(addresses.Get(0).GetText(), "10.0.0.3");
    EXPECT_EQ(addresses.Get(2).GetText(), "10.0.0.2");
    NetIP address;
    ASSERT_TRUE(dns.ResolveHost("host.example", true, address, m_msgs));
    EXPECT_EQ(address.GetText(), "10.0.0.3");
}

TEST_F(NetDNSTest, ResolveIP_Address_ReverseNameAskedAndNamesInOrder)
{
    FakeDNSServer server([](const DNSQuery& query, std::size_t) -> Replies {
        return {{DNSMessage(query).AddPtr("one.example").AddPtr("two.example").Build()}};
    });
    NetDNS dns(MODE);
    SetServers(dns, {server.GetAddress()});
    STRINGS names{"before"};
    ASSERT_TRUE(dns.ResolveIP(NetIP("10.1.2.3"), names, m_msgs));
    EXPECT_THAT(names, ElementsAre("one.example", "two.example"));
    String name;
    ASSERT_TRUE(dns.ResolveIP(NetIP("10.1.2.3"), name, m_msgs));
    EXPECT_EQ(name, "one.example");
    EXPECT_EQ(server.GetQueries()[0].name, "3.2.1.10.in-addr.arpa");
    EXPECT_EQ(server.GetQueries()[0].type, 12U);
}

TEST_F(NetDNSTest, ResolveIP_Unknown_FailsAndClears)
{
    FakeDNSServer server(AnswerCode(3));
    NetDNS dns(MODE);
    SetServers(dns, {server.GetAddress()});
    STRINGS names{"before"};
    EXPECT_FALSE(dns.ResolveIP(NetIP("10.1.2.3"), names, m_msgs));
    EXPECT_THAT(names, IsEmpty());
    String name("before");
    EXPECT_FALSE(dns.ResolveIP(NetIP("10.1.2.3"), name, m_msgs));
    EXPECT_EQ(name, "before");
}

TEST_F(NetDNSTest, Threads_16ResolversOverOneCache_AllResolve)
{
    FakeDNSServer server(AnswerA);
    NetDNSCache cache;
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 16; ++thread) {
        threads.emplace_back([&server, &cache, &failures, thread] {
            for (int i = 0; i < 40; ++i) {
                NetDNS dns(MODE, cache);
                Messages msgs;
                const String name("host" + std::to_string((thread + i) % 20) + ".example");
                failures += !dns.DoALookup(name, String(server.GetAddress()), msgs) || dns.GetARecord(0) != "10.0.0.1";
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(failures, 0);
    EXPECT_LT(server.GetQueryCount(), 16U * 20U + 1U);
}

} // namespace
