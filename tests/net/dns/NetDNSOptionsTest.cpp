#include "net/dns/NetDNSOptions.h"
#include "common/TimedEvent.h"
#include "net/dns/NetDNS.h"
#include "net/dns/NetDNSCache.h"
#include "platform/ResolverConfig.h"
#include "tests/net/dns/Lookups.h"
#include "tests/peers/Missing.h"
#include "tests/peers/Port53.h"
#include "tests/peers/TempFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cctype>
#include <chrono>
#include <fstream>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace kqlib;
using namespace kqlib::test;
using testing::ElementsAre;
using testing::IsEmpty;
using Bytes = DNSMessage::Bytes;

Bytes AAAA(unsigned char last)
{
    return {0x20, 0x01, 0x0D, 0xB8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, last};
}

TEST(NetDNSOptions, Defaults_AsTheHeaderSays)
{
    const NetDNSOptions options;
    EXPECT_EQ(options.GetAnswerWaitMs(), 2000U);
    EXPECT_EQ(options.GetLookupLimitMs(), 10000U);
    EXPECT_EQ(options.GetRounds(), 2U);
    EXPECT_EQ(options.GetShortestLifeSec(), 0U);
    EXPECT_EQ(options.GetLongestLifeSec(), 86400U);
    EXPECT_EQ(options.GetLongestNegativeLifeSec(), 300U);
    EXPECT_TRUE(options.GetMixedCase());
    EXPECT_TRUE(options.GetLargeAnswers());
}

TEST(NetDNSOptions, Set_AtTheEndsOfTheRange_TakenAndBeyondRefused)
{
    NetDNSOptions options;
    EXPECT_TRUE(options.SetAnswerWaitMs(10) && options.SetAnswerWaitMs(60000));
    EXPECT_FALSE(options.SetAnswerWaitMs(9) || options.SetAnswerWaitMs(60001));
    EXPECT_EQ(options.GetAnswerWaitMs(), 60000U);
    EXPECT_TRUE(options.SetLookupLimitMs(10) && options.SetLookupLimitMs(600000));
    EXPECT_FALSE(options.SetLookupLimitMs(9) || options.SetLookupLimitMs(600001));
    EXPECT_EQ(options.GetLookupLimitMs(), 600000U);
    EXPECT_TRUE(options.SetRounds(1) && options.SetRounds(10));
    EXPECT_FALSE(options.SetRounds(0) || options.SetRounds(11));
    EXPECT_EQ(options.GetRounds(), 10U);
    EXPECT_TRUE(options.SetLifeBounds(0, 0) && options.SetLifeBounds(604800, 604800) && options.SetLifeBounds(5, 6));
    EXPECT_FALSE(options.SetLifeBounds(7, 6) || options.SetLifeBounds(1, 604801));
    EXPECT_EQ(options.GetShortestLifeSec(), 5U);
    EXPECT_EQ(options.GetLongestLifeSec(), 6U);
    EXPECT_TRUE(options.SetLongestNegativeLife(0) && options.SetLongestNegativeLife(10800));
    EXPECT_FALSE(options.SetLongestNegativeLife(10801));
    EXPECT_EQ(options.GetLongestNegativeLifeSec(), 10800U);
}

TEST(NetDNSOptions, Off_AAAAAndSRV_55WithoutAnyQuery)
{
    NetDNS dns(NetIP::LOOKUP_ANY);
    Messages msgs;
    EXPECT_FALSE(dns.DoAAAALookup("n", msgs) || dns.DoAAAALookup("n", "127.0.0.1", msgs) ||
                 dns.DoSRVLookup("n", msgs) || dns.DoSRVLookup("n", "127.0.0.1", msgs));
    EXPECT_THAT(Codes(msgs), ElementsAre(55, 55, 55, 55));
    EXPECT_EQ(dns.GetAAAARecordCount() + dns.GetSRVRecordCount() + dns.GetRefusedAnswers(), 0U);
    EXPECT_EQ(dns.GetOptions(), nullptr);
    EXPECT_THROW((void)dns.GetAAAARecord(0), std::out_of_range);
    EXPECT_THROW((void)dns.GetSRVRecord(0), std::out_of_range);
}

TEST(NetDNSOptions, SetOptions_Twice_LastOnesCountAndACopyIsKept)
{
    NetDNS dns(NetIP::LOOKUP_ANY);
    NetDNSOptions options;
    dns.SetOptions(options);
    ASSERT_TRUE(options.SetRounds(7));
    ASSERT_NE(dns.GetOptions(), nullptr);
    EXPECT_EQ(dns.GetOptions()->GetRounds(), 2U);
    dns.SetOptions(options);
    EXPECT_EQ(dns.GetOptions()->GetRounds(), 7U);
}

/// A resolver with options and the servers of loopback.
class NetDNSCheckedTest : public testing::Test
{
protected:
    NetDNSCheckedTest() { dns.SetOptions(options); }

    void SetUp() override { KQ_NEED_PORT_53(); }
    void TearDown() override
    {
        TimedEvent::sSetSource(nullptr);
        platform::SetServerSettingsRoot(nullptr);
    }

    void Use(const std::vector<std::string>& servers) { SetServers(dns, servers); }

    /// One round, and a short wait.
    void BeImpatient(ULONG waitMs = 1000)
    {
        ASSERT_TRUE(options.SetAnswerWaitMs(waitMs) && options.SetRounds(1));
        dns.SetOptions(options);
    }

    static std::atomic<std::uint32_t> tick;
    static void StopClock()
    {
        tick = 1000000;
        TimedEvent::sSetSource([] { return tick.load(); });
    }

    NetDNSOptions options;
    NetDNSCache cache;
    NetDNS dns{NetIP::LOOKUP_ANY, cache};
    Messages msgs;
};

std::atomic<std::uint32_t> NetDNSCheckedTest::tick{0};

/// The same for tests that need two name servers at a time.
class NetDNSCheckedSeveralServersTest : public NetDNSCheckedTest
{
};

TEST_F(NetDNSCheckedTest, Query_Bytes_AsDescribedButForIdentifierAndCase)
{
    FakeDNSServer server(AnswerA);
    options.SetMixedCase(false);
    options.SetLargeAnswers(false);
    dns.SetOptions(options);
    ASSERT_TRUE(dns.DoALookup("Host.kq", String(server.GetAddress()), msgs));
    Bytes query = server.GetQueries()[0].bytes;
    query[0] = query[1] = 0;
    EXPECT_THAT(query, ElementsAre(0, 0, 0x01, 0x00, 0, 1, 0, 0, 0, 0, 0, 0, 4, 'H', 'o', 's', 't', 2, 'k', 'q', 0, 0,
                                   1, 0, 1));
}

TEST_F(NetDNSCheckedTest, Query_Many_IdentifiersPortsAndCasesDiffer)
{
    FakeDNSServer server(AnswerA);
    Use({server.GetAddress()});
    constexpr int COUNT = 40;
    for (int i = 0; i < COUNT; ++i)
        ASSERT_TRUE(dns.DoALookup(String("name" + std::to_string(i) + ".with.letters.example"), msgs));
    std::set<unsigned> ids;
    std::set<unsigned> ports;
    std::set<std::string> tails;
    for (const DNSQuery& query : server.GetQueries()) {
        ids.insert(query.bytes[0] * 256U + query.bytes[1]);
        ports.insert(query.port);
        tails.insert(query.name.substr(query.name.find('.')));
    }
    // By chance a few of them may be equal.
    EXPECT_GT(ids.size(), COUNT - 5U);
    EXPECT_GT(ports.size(), COUNT / 2U);
    EXPECT_GT(tails.size(), COUNT - 5U);
    for (const std::string& tail : tails) {
        std::string lower;
        for (const char character : tail)
            lower += static_cast<char>(std::tolower(static_cast<unsigned char>(character)));
        EXPECT_EQ(lower, ".with.letters.example");
    }
}

TEST_F(NetDNSCheckedTest, Forged_OneOfEachKindInFront_CountedAndTheRightOneBelieved)
{
    FakeDNSServer server([](const DNSQuery& query, std::size_t) {
        const auto forge = [&query](std::size_t place, unsigned char flip) {
            Bytes bytes = DNSMessage(query).AddA("6.6.6.6").Build();
            bytes[place] ^= flip;
            return bytes;
        };
        const std::size_t type = 12 + query.name.size() + 2;
        Replies replies;
        replies.push_back({forge(0, 0x01)});        // the identifier,
        replies.push_back({forge(1, 0x80)});        // in both its bytes
        replies.push_back({forge(2, 0x80)});        // a query
        replies.push_back({forge(2, 0x08)});        // another operation
        replies.push_back({forge(4, 0x01)});        // 257 questions
        replies.push_back({forge(5, 0x01)});        // none
        replies.push_back({forge(13, 0x01)});       // another name
        replies.push_back({forge(13, 0x20)});       // the case of a letter
        replies.push_back({forge(type + 1, 0x01)}); // another type
        replies.push_back({forge(type + 3, 0x02)}); // another class
        replies.push_back({Bytes()});               // nothing
        replies.push_back({Bytes(query.bytes.begin(), query.bytes.begin() + 11)});
        const Bytes question = DNSMessage(query).Build();
        replies.push_back({Bytes(question.begin(), question.end() - 1)});
        replies.push_back({DNSMessage("quite.another", 1).AddA("6.6.6.6").Build()});
        replies.push_back({DNSMessage(query).AddA("10.0.0.1").Build()});
        return replies;
    });
    ASSERT_TRUE(dns.DoALookup("host.example", String(server.GetAddress()), msgs));
    EXPECT_THAT(ARecords(dns), ElementsAre("10.0.0.1"));
    EXPECT_EQ(dns.GetRefusedAnswers(), 14U);
    EXPECT_EQ(server.GetQueryCount(), 1U);
    EXPECT_THAT(Codes(msgs), IsEmpty());
}

TEST_F(NetDNSCheckedTest, Forged_OnlyForgedOnes_NeverBelievedAndCounted)
{
    FakeDNSServer server([](const DNSQuery& query, std::size_t) -> Replies {
        Bytes bytes = DNSMessage(query).AddA("6.6.6.6").Build();
        bytes[0] ^= 1;
        return {{bytes}, {bytes}};
    });
    BeImpatient();
    EXPECT_FALSE(dns.DoALookup("host.example", String(server.GetAddress()), msgs));
    EXPECT_THAT(ARecords(dns), IsEmpty());
    EXPECT_EQ(dns.GetRefusedAnswers(), 2U);
    EXPECT_THAT(Codes(msgs), ElementsAre(53));
}

TEST_F(NetDNSCheckedTest, Forged_65000BeforeTheRightOne_NoneBelieved)
{
    FakeDNSServer server([](const DNSQuery& query, std::size_t) {
        Replies replies;
        Bytes bytes = DNSMessage(query).AddA("6.6.6.6").Build();
        const unsigned right = query.bytes[0] * 256U + query.bytes[1];
        for (unsigned id = 0; id < 65000; ++id) {
            if (id == right)
                continue;
            bytes[0] = static_cast<unsigned char>(id >> 8);
            bytes[1] = static_cast<unsigned char>(id & 0xFF);
            replies.push_back({bytes});
        }
        // Several times, for the system drops what it has no room for.
        for (const unsigned delayMs : {300U, 1000U, 3000U, 8000U, 16000U})
            replies.push_back({DNSMessage(query).AddA("10.0.0.1").Build(), delayMs});
        return replies;
    });
    ASSERT_TRUE(options.SetAnswerWaitMs(30000) && options.SetLookupLimitMs(120000));
    dns.SetOptions(options);
    ASSERT_TRUE(dns.DoALookup("host.example", String(server.GetAddress()), msgs));
    EXPECT_THAT(ARecords(dns), ElementsAre("10.0.0.1"));
    EXPECT_GT(dns.GetRefusedAnswers(), 0U); // the system may have dropped many when its room was full
}

TEST_F(NetDNSCheckedTest, Forged_CaseNotRepeated_BelievedOnlyWithoutMixedCase)
{
    FakeDNSServer server([](const DNSQuery& query, std::size_t) -> Replies {
        Bytes bytes = DNSMessage(query).AddA("10.0.0.1").Build();
        for (std::size_t i = 12; bytes[i] != 0; ++i)
            bytes[i] = static_cast<unsigned char>(std::toupper(bytes[i]));
        return {{bytes}};
    });
    BeImpatient();
    const String name("a.name.with.so.many.letters.that.chance.cannot.make.them.all.great.example");
    EXPECT_FALSE(dns.DoALookup(name, String(server.GetAddress()), msgs));
    EXPECT_EQ(dns.GetRefusedAnswers(), 1U);
    options.SetMixedCase(false);
    dns.SetOptions(options);
    EXPECT_TRUE(dns.DoALookup(name, String(server.GetAddress()), msgs));
    EXPECT_EQ(dns.GetRefusedAnswers(), 1U);
}

TEST_F(NetDNSCheckedTest, Late_AnswerAfterTheWait_NotTakenForTheNextQuery)
{
    FakeDNSServer server([](const DNSQuery& query, std::size_t number) -> Replies {
        if (number == 0)
            return {{DNSMessage(query).AddA("6.6.6.6").Build(), 1000}};
        return {{DNSMessage(query).AddA("10.0.0.1").Build(), 1300}};
    });
    ASSERT_TRUE(options.SetAnswerWaitMs(40) && options.SetRounds(1));
    dns.SetOptions(options);
    EXPECT_FALSE(dns.DoALookup("host.example", String(server.GetAddress()), msgs));
    ASSERT_TRUE(options.SetAnswerWaitMs(20000));
    dns.SetOptions(options);
    EXPECT_TRUE(dns.DoALookup("host.example", String(server.GetAddress()), msgs));
    EXPECT_THAT(ARecords(dns), ElementsAre("10.0.0.1"));
}

TEST_F(NetDNSCheckedTest, Limit_SilentServerAndManyRounds_EndsTheLookup)
{
    FakeDNSServer server(Silence);
    ASSERT_TRUE(options.SetAnswerWaitMs(100) && options.SetRounds(10) && options.SetLookupLimitMs(250));
    dns.SetOptions(options);
    EXPECT_FALSE(dns.DoALookup("host.example", String(server.GetAddress()), msgs));
    EXPECT_LE(server.GetQueryCount(), 3U);
    EXPECT_THAT(Codes(msgs), ElementsAre(53));
}

TEST_F(NetDNSCheckedTest, Limit_ShorterThanTheWaitForAnAnswer_EndsTheWait)
{
    FakeDNSServer server(Silence);
    ASSERT_TRUE(options.SetAnswerWaitMs(60000) && options.SetRounds(1) && options.SetLookupLimitMs(50));
    dns.SetOptions(options);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(dns.DoALookup("host.example", String(server.GetAddress()), msgs));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(50)) << "the wait went on to its end";
    EXPECT_THAT(Codes(msgs), ElementsAre(53));
}

TEST_F(NetDNSCheckedTest, Limit_AliasesWithoutEnd_EndAfterEightQuestions)
{
    FakeDNSServer server([](const DNSQuery& query, std::size_t number) -> Replies {
        return {{DNSMessage(query).AddCName("alias" + std::to_string(number) + ".example").Build()}};
    });
    EXPECT_FALSE(dns.DoALookup("host.example", String(server.GetAddress()), msgs));
    EXPECT_EQ(server.GetQueryCount(), 8U);
    EXPECT_THAT(Codes(msgs), ElementsAre(53));
}

TEST_F(NetDNSCheckedTest, Lookup_FirstQueryLost_SecondRoundSucceedsWithoutACode)
{
    FakeDNSServer server(
        [](const DNSQuery& query, std::size_t number) { return number == 0 ? Replies{} : AnswerA(query, number); });
    ASSERT_TRUE(options.SetAnswerWaitMs(100) && options.SetRounds(10));
    dns.SetOptions(options);
    EXPECT_TRUE(dns.DoALookup("host.example", String(server.GetAddress()), msgs));
    EXPECT_GE(server.GetQueryCount(), 2U);
    EXPECT_THAT(Codes(msgs), IsEmpty());
}

TEST_F(NetDNSCheckedTest, Lookup_NamesThatCannotBeAskedFor_54OnceAndNothingSent)
{
    FakeDNSServer server(AnswerA);
    Use({server.GetAddress()});
    const String names[] = {"", ".", "a.", ".a", "a..b", String(64, 'a'), String("a\0b", 3), String(254, 'a')};
    for (const String& name : names) {
        Messages codes;
        EXPECT_FALSE(dns.DoALookup(name, codes)) << name.c_str();
        EXPECT_THAT(Codes(codes), ElementsAre(54));
        // Once took a place in the cache, whatever its length.
        EXPECT_FALSE(dns.DoALookup(name, codes));
        EXPECT_FALSE(dns.IsLastFromCache()) << name.c_str();
    }
    EXPECT_EQ(server.GetQueryCount(), 0U);
    EXPECT_TRUE(dns.DoALookup(String(63, 'a') + ".b", msgs));
}

TEST_F(NetDNSCheckedTest, Lookup_EachType_RecordsToRead)
{
    FakeDNSServer server([](const DNSQuery& query, std::size_t) -> Replies {
        DNSMessage answer(query);
        switch (query.type) {
        case DNSMessage::AAAA:
            return {{answer.AddRecord(DNSMessage::Pointer(12), 28, 60, AAAA(2)).Build()}};
        case DNSMessage::SRV:
            return {{answer.AddSrv(20, 5, 21, "two.example").AddSrv(10, 0, 2121, "one.example").Build()}};
        case DNSMessage::MX:
            return {{answer.AddMx(10, "ten").AddMx(10, "ten again").AddMx(5, "five").Build()}};
        case DNSMessage::PTR:
            return {{answer.AddPtr("one.example").Build()}};
        default:
            return {{answer.AddText(query.type, {"all ", "of it"}).Build()}};
        }
    });
    Use({server.GetAddress()});
    for (int round = 0; round < 2; ++round) { // the second from the cache
        ASSERT_TRUE(dns.DoAAAALookup("n", msgs) && dns.DoSRVLookup("n", msgs) && dns.DoMXLookup("n", msgs) &&
                    dns.DoPTRLookup("n", msgs) && dns.DoTXTLookup("n", msgs) && dns.DoSPFLookup("n", msgs));
        ASSERT_EQ(dns.GetAAAARecordCount(), 1U);
        EXPECT_EQ(dns.GetAAAARecord(0), "2001:db8::2");
        ASSERT_EQ(dns.GetSRVRecordCount(), 2U);
        EXPECT_EQ(dns.GetSRVRecord(0).name, "one.example");
        EXPECT_EQ(dns.GetSRVRecord(0).priority, 10U);
        EXPECT_EQ(dns.GetSRVRecord(0).port, 2121U);
        EXPECT_EQ(dns.GetSRVRecord(1).weight, 5U);
        ASSERT_EQ(dns.GetMXRecordCount(), 3U);
        EXPECT_EQ(dns.GetMXRecord(0), "five");
        EXPECT_EQ(dns.GetMXRecord(1), "ten");
        EXPECT_EQ(dns.GetPTRRecord(0), "one.example");
        EXPECT_EQ(dns.GetTXTRecord(0), "all of it");
        EXPECT_EQ(dns.GetSPFRecord(0), "all of it");
    }
    EXPECT_EQ(server.GetQueryCount(), 6U);
    EXPECT_THAT(Codes(msgs), IsEmpty());
}

TEST_F(NetDNSCheckedTest, CName_WithItsRecordsInTheAnswer_OneQueryAndCachedUnderTheNameAskedFor)
{
    FakeDNSServer server([](const DNSQuery& query, std::size_t) -> Replies {
        return {{DNSMessage(query)
                     .AddCName("real.example")
                     .AddRecord(DNSMessage::EncodeName("real.example"), 1, 60, {10, 0, 0, 9})
                     .Build()}};
    });
    Use({server.GetAddress()});
    ASSERT_TRUE(dns.DoALookup("alias.example", msgs) && dns.DoALookup("Alias.example", msgs));
    EXPECT_THAT(ARecords(dns), ElementsAre("10.0.0.9"));
    EXPECT_EQ(server.GetQueryCount(), 1U);
}

TEST_F(NetDNSCheckedTest, CName_WithoutItsRecords_AskedForAndTheShortestLifeCounts)
{
    StopClock();
    FakeDNSServer server([](const DNSQuery& query, std::size_t number) -> Replies {
        return number == 0 ? Replies{{DNSMessage(query).AddCName("real.example", 20).Build()}}
                           : Replies{{DNSMessage(query).AddA("10.0.0.1", 60).Build()}};
    });
    Use({server.GetAddress()});
    ASSERT_TRUE(dns.DoALookup("alias.example", msgs));
    EXPECT_THAT(ARecords(dns), ElementsAre("10.0.0.1"));
    EXPECT_EQ(server.GetQueryCount(), 2U);
    EXPECT_EQ(dns.GetFirstExpiryTime(), tick + 20000U);
}

TEST_F(NetDNSCheckedTest, Life_OfTheZone_HonouredToTheMillisecond)
{
    StopClock();
    FakeDNSServer server([](const DNSQuery& query, std::size_t) -> Replies {
        return {{DNSMessage(query).AddA("10.0.0.1", 60).Build()}};
    });
    Use({server.GetAddress()});
    ASSERT_TRUE(dns.DoALookup("n", msgs));
    EXPECT_EQ(dns.GetFirstExpiryTime(), tick + 60000U);
    tick += 59999;
    ASSERT_TRUE(dns.DoALookup("N", msgs));
    EXPECT_EQ(server.GetQueryCount(), 1U);
    tick += 1;
    ASSERT_TRUE(dns.DoALookup("n", msgs));
    EXPECT_EQ(server.GetQueryCount(), 2U);
    tick += 59999; // the newer answer took the place of the older
    ASSERT_TRUE(dns.DoALookup("n", msgs));
    EXPECT_EQ(server.GetQueryCount(), 2U);
}

TEST_F(NetDNSCheckedTest, Life_AcrossTheWrapOfTheTick_Honoured)
{
    StopClock();
    tick = 0xFFFFFFFFU - 10000;
    FakeDNSServer server([](const DNSQuery& query, std::size_t) -> Replies {
        return {{DNSMessage(query).AddA("10.0.0.1", 60).Build()}};
    });
    Use({server.GetAddress()});
    ASSERT_TRUE(dns.DoALookup("n", msgs));
    tick += 59999;
    ASSERT_TRUE(dns.DoALookup("n", msgs));
    EXPECT_EQ(server.GetQueryCount(), 1U);
    tick += 1;
    ASSERT_TRUE(dns.DoALookup("n", msgs));
    EXPECT_EQ(server.GetQueryCount(), 2U);
}

// After 25 days without a look-up, answers that were long over once counted as living, for as many days.
TEST_F(NetDNSCheckedTest, Life_LongOver_NeverComesBack)
{
    StopClock();
    FakeDNSServer server([](const DNSQuery& query, std::size_t) -> Replies {
        return {{DNSMessage(query).AddA("10.0.0.1", 60).Build()}};
    });
    Use({server.GetAddress()});
    std::size_t asked = 0;
    for (const std::uint32_t later : {0x7FFFFFFFU, 0x80000000U, 0x80000000U + 60001, 0xFFFFFFFFU}) {
        ASSERT_TRUE(dns.DoALookup("n", msgs));
        EXPECT_EQ(server.GetQueryCount(), ++asked);
        tick += later;
    }
    ASSERT_TRUE(dns.DoALookup("n", msgs));
    EXPECT_EQ(server.GetQueryCount(), ++asked);
}

TEST_F(NetDNSCheckedTest, Life_OutsideTheBounds_LengthenedOrCut)
{
    StopClock();
    FakeDNSServer server([](const DNSQuery& query, std::size_t) -> Replies {
        return {{DNSMessage(query).AddA("10.0.0.1", query.name[0] == 's' ? 0 : 0x7FFFFFFF).Build()}};
    });
    Use({server.GetAddress()});
    options.SetMixedCase(false);
    ASSERT_TRUE(options.SetLifeBounds(5, 604800));
    dns.SetOptions(options);
    ASSERT_TRUE(dns.DoALookup("short", msgs));
    EXPECT_EQ(dns.GetFirstExpiryTime(), tick + 5000U);
    dns.ResetFirstExpiryTime();
    ASSERT_TRUE(dns.DoALookup("long", msgs));
    EXPECT_EQ(dns.GetFirstExpiryTime(), tick + 604800000U);
    tick += 604799999;
    ASSERT_TRUE(dns.DoALookup("long", msgs));
    EXPECT_EQ(server.GetQueryCount(), 2U);
}

TEST_F(NetDNSCheckedTest, Life_Of0_NotKept)
{
    FakeDNSServer server([](const DNSQuery& query, std::size_t) -> Replies {
        return {{DNSMessage(query).AddA("10.0.0.1", 0).Build()}};
    });
    Use({server.GetAddress()});
    ASSERT_TRUE(dns.DoALookup("n", msgs) && dns.DoALookup("n", msgs));
    EXPECT_EQ(server.GetQueryCount(), 2U);
}

TEST_F(NetDNSCheckedTest, Negative_WithAnSOA_KeptForItsTimeWithinTheBound)
{
    StopClock();
    FakeDNSServer server([](const DNSQuery& query, std::size_t) -> Replies {
        DNSMessage answer(query);
        return {{answer.Code(query.type == DNSMessage::A ? 3 : 0).AddSoa(3600, 30).Build()}};
    });
    Use({server.GetAddress()});
    ASSERT_TRUE(options.SetLongestNegativeLife(20));
    dns.SetOptions(options);
    for (int i = 0; i < 3; ++i) {
        EXPECT_FALSE(dns.DoALookup("n", msgs));
        EXPECT_FALSE(dns.DoTXTLookup("n", msgs));
    }
    EXPECT_EQ(server.GetQueryCount(), 2U);
    EXPECT_THAT(Codes(msgs), ElementsAre(54, 51, 54, 51, 54, 51));
    tick += 19999;
    EXPECT_FALSE(dns.DoALookup("n", msgs));
    EXPECT_EQ(server.GetQueryCount(), 2U);
    tick += 1;
    EXPECT_FALSE(dns.DoALookup("n", msgs));
    EXPECT_EQ(server.GetQueryCount(), 3U);
    EXPECT_EQ(dns.GetFirstExpiryTime(), 0xFFFFFFFFU);
}

TEST_F(NetDNSCheckedTest, Negative_WithoutAnSOAOrAFailure_NotKept)
{
    FakeDNSServer server([](const DNSQuery& query, std::size_t) -> Replies {
        return {{DNSMessage(query).Code(query.type == DNSMessage::A ? 3 : 2).Build()}};
    });
    Use({server.GetAddress()});
    for (int i = 0; i < 2; ++i) {
        EXPECT_FALSE(dns.DoALookup("n", msgs));
        EXPECT_FALSE(dns.DoTXTLookup("n", msgs));
    }
    EXPECT_EQ(server.GetQueryCount(), 4U);
    EXPECT_THAT(Codes(msgs), ElementsAre(54, 53, 54, 53));
}

TEST_F(NetDNSCheckedTest, Cache_BothWaysOverOne_NeverMixed)
{
    FakeDNSServer server([](const DNSQuery& query, std::size_t) -> Replies {
        const bool plain = query.bytes[0] == 0xFF && query.bytes[1] == 0xFF && query.name == "n";
        return {{DNSMessage(query).AddA(plain ? "10.0.0.1" : "10.0.0.2").Build()}};
    });
    Use({server.GetAddress()});
    NetDNS described(NetIP::LOOKUP_ANY, cache);
    described.SetDNSServers({String(server.GetAddress())});
    ASSERT_TRUE(described.DoALookup("n", msgs));
    // A name of many letters, so that the query with options is never written in small ones by chance.
    VectorPtr<String> records;
    EXPECT_TRUE(cache.IsALookupCached("n", records));
    ASSERT_TRUE(dns.DoALookup("n", msgs));
    EXPECT_EQ(server.GetQueryCount(), 2U) << "the described answer is none for a resolver with options";
    ASSERT_TRUE(dns.DoALookup("other", msgs));
    EXPECT_FALSE(cache.IsALookupCached("other", records));
    ASSERT_TRUE(described.DoALookup("other", msgs));
    EXPECT_EQ(server.GetQueryCount(), 4U);
    ASSERT_TRUE(described.DoALookup("n", msgs) && dns.DoALookup("n", msgs) && described.DoALookup("other", msgs) &&
                dns.DoALookup("other", msgs));
    EXPECT_EQ(server.GetQueryCount(), 4U);
}

TEST_F(NetDNSCheckedTest, Cache_10000LivingAnswers_FurtherOnesDroppedAndTheDescribedTablesStayFree)
{
    StopClock();
    FakeDNSServer server([](const DNSQuery& query, std::size_t) -> Replies {
        return {{DNSMessage(query).AddA("10.0.0.1", 600).Build()}};
    });
    Use({server.GetAddress()});
    for (int i = 0; i < 10001; ++i)
        ASSERT_TRUE(dns.DoALookup(String("name" + std::to_string(i)), msgs));
    const std::size_t asked = server.GetQueryCount();
    ASSERT_TRUE(dns.DoALookup("name0", msgs) && dns.DoALookup("name9999", msgs));
    EXPECT_EQ(server.GetQueryCount(), asked);
    ASSERT_TRUE(dns.DoALookup("name10000", msgs));
    EXPECT_EQ(server.GetQueryCount(), asked + 1);
    cache.CacheALookup("described", tick + 60000, VectorPtr<String>());
    VectorPtr<String> records;
    EXPECT_TRUE(cache.IsALookupCached("described", records));
    tick += 600000; // all are over now
    ASSERT_TRUE(dns.DoALookup("name10000", msgs) && dns.DoALookup("name10000", msgs));
    EXPECT_EQ(server.GetQueryCount(), asked + 2);
}

TEST_F(NetDNSCheckedSeveralServersTest, Servers_FailingOrSilentOne_NextAskedAndTheListStays)
{
    FakeDNSServer failing(AnswerCode(2));
    FakeDNSServer alive(AnswerA);
    const std::string dead = FakeDNSServer::sGetDeadAddress();
    Use({dead, failing.GetAddress(), alive.GetAddress()});
    EXPECT_TRUE(dns.DoALookup("n", msgs));
    EXPECT_EQ(failing.GetQueryCount(), 1U);
    EXPECT_EQ(dns.GetDNSServerCount(), 3U);
    EXPECT_THAT(Codes(msgs), IsEmpty());
}

TEST_F(NetDNSCheckedSeveralServersTest, Servers_NameErrorFromTheFirst_IsTheVerdict)
{
    FakeDNSServer first(AnswerCode(3));
    FakeDNSServer second(AnswerA);
    Use({first.GetAddress(), second.GetAddress()});
    EXPECT_FALSE(dns.DoALookup("n", msgs));
    EXPECT_THAT(Codes(msgs), ElementsAre(54));
    EXPECT_EQ(second.GetQueryCount(), 0U);
}

TEST_F(NetDNSCheckedSeveralServersTest, Servers_AllUnwilling_LastCodeAndEachAskedOnce)
{
    FakeDNSServer first(AnswerCode(2));
    FakeDNSServer second(AnswerCode(5));
    Use({first.GetAddress(), second.GetAddress()});
    EXPECT_FALSE(dns.DoALookup("n", msgs));
    EXPECT_THAT(Codes(msgs), ElementsAre(56));
    EXPECT_EQ(first.GetQueryCount(), 1U);
    EXPECT_EQ(second.GetQueryCount(), 1U);
}

TEST_F(NetDNSCheckedTest, Servers_NoneOrUnknown_53)
{
    platform::SetServerSettingsRoot("no-such-settings");
    EXPECT_FALSE(dns.DoALookup("n", msgs));
    EXPECT_FALSE(dns.DoALookup("n", "", msgs));
    EXPECT_THAT(Codes(msgs), ElementsAre(53, 53));
}

TEST_F(NetDNSCheckedTest, Servers_WithAnIPv6Address_Asked)
{
    FakeDNSServer server(AnswerA, platform::Family::IP6);
    if (!server.IsRunning())
        KQ_MISSING("port 53 of ::1 cannot be had: no IPv6 here, or it is taken");
    EXPECT_EQ(server.GetAddress(), "::1");
    Use({"::1"});
    EXPECT_TRUE(dns.DoALookup("n", msgs));
    EXPECT_THAT(ARecords(dns), ElementsAre("10.0.0.1"));
}

TEST_F(NetDNSCheckedTest, ResolveHost_BothFamilies_IPv4FirstAndTheModeChooses)
{
    FakeDNSServer server([](const DNSQuery& query, std::size_t) -> Replies {
        DNSMessage answer(query);
        if (query.type == DNSMessage::AAAA)
            return {{answer.AddRecord(DNSMessage::Pointer(12), 28, 60, AAAA(1)).Build()}};
        return {{answer.AddA("10.0.0.1").AddA("10.0.0.2").Build()}};
    });
    Use({server.GetAddress()});
    const auto resolve = [this](NetIP::IPLOOKUPMODE mode) {
        dns.SetIPLookupMode(mode);
        Vector<NetIP> addresses;
        EXPECT_TRUE(dns.ResolveHost("host.example", true, addresses, msgs));
        std::vector<std::string> texts;
        for (const NetIP& address : addresses)
            texts.push_back(address.GetText().str());
        return texts;
    };
    EXPECT_THAT(resolve(NetIP::LOOKUP_ANY), ElementsAre("10.0.0.1", "10.0.0.2", "2001:db8::1"));
    EXPECT_THAT(resolve(NetIP::LOOKUP_IP4), ElementsAre("10.0.0.1", "10.0.0.2"));
    EXPECT_THAT(resolve(NetIP::LOOKUP_IP6), ElementsAre("2001:db8::1"));
    EXPECT_EQ(server.GetQueryCount(), 2U);
    EXPECT_THAT(Codes(msgs), IsEmpty());
}

TEST_F(NetDNSCheckedTest, ResolveHost_OneFamilyOnly_ThatOneWithoutACode)
{
    FakeDNSServer server([](const DNSQuery& query, std::size_t) -> Replies {
        DNSMessage answer(query);
        if (query.type == DNSMessage::AAAA)
            answer.AddRecord(DNSMessage::Pointer(12), 28, 60, AAAA(1));
        return {{answer.Build()}};
    });
    Use({server.GetAddress()});
    NetIP address;
    EXPECT_TRUE(dns.ResolveHost("host.example", true, address, msgs));
    EXPECT_EQ(address.GetText(), "2001:db8::1");
    EXPECT_THAT(Codes(msgs), IsEmpty());
}

TEST_F(NetDNSCheckedTest, ResolveHost_NeitherFamily_OneCode)
{
    FakeDNSServer server(AnswerCode(3));
    Use({server.GetAddress()});
    NetIP address;
    EXPECT_FALSE(dns.ResolveHost("host.example", true, address, msgs));
    EXPECT_THAT(Codes(msgs), ElementsAre(54));
}

TEST_F(NetDNSCheckedTest, ResolveIP_EitherFamily_ReverseNameOfItsZone)
{
    FakeDNSServer server([](const DNSQuery& query, std::size_t) -> Replies {
        return {{DNSMessage(query).AddPtr("host.example").Build()}};
    });
    Use({server.GetAddress()});
    options.SetMixedCase(false);
    dns.SetOptions(options);
    String name;
    ASSERT_TRUE(dns.ResolveIP(NetIP("10.1.2.3"), name, msgs) && dns.ResolveIP(NetIP("2001:db8::1"), name, msgs));
    EXPECT_EQ(name, "host.example");
    EXPECT_EQ(server.GetQueries()[0].name, "3.2.1.10.in-addr.arpa");
    EXPECT_EQ(server.GetQueries()[1].name, "1.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.8.b.d.0.1.0.0.2.ip6.arpa");
}

TEST_F(NetDNSCheckedTest, Lookup_Failed_RecordsOfTheOneBeforeAreGone)
{
    FakeDNSServer server([](const DNSQuery& query, std::size_t number) {
        return number == 0 ? AnswerA(query, number) : Replies{{DNSMessage(query).Code(3).Build()}};
    });
    Use({server.GetAddress()});
    ASSERT_TRUE(dns.DoALookup("n", msgs));
    EXPECT_FALSE(dns.DoALookup("other", msgs));
    EXPECT_EQ(dns.GetARecordCount(), 0U);
}

TEST_F(NetDNSCheckedTest, Hosts_NameInTheFile_AnsweredByItAlone)
{
    const TempFolder folder;
    std::ofstream(folder / "hosts", std::ios::binary) << "10.7.7.7 known.example alias\n";
    FakeDNSServer server(AnswerA);
    Use({server.GetAddress()});
    options.SetHostsFile(String((folder / "hosts").string()));
    dns.SetOptions(options);
    Vector<NetIP> addresses;
    ASSERT_TRUE(dns.ResolveHost("Known.example", true, addresses, msgs));
    ASSERT_EQ(addresses.GetCount(), 1U);
    EXPECT_EQ(addresses.Get(0).GetText(), "10.7.7.7");
    String name;
    ASSERT_TRUE(dns.ResolveIP(NetIP("10.7.7.7"), name, msgs));
    EXPECT_EQ(name, "known.example");
    EXPECT_EQ(server.GetQueryCount(), 0U);
    // A server that is named is asked; what it says stays in the cache, which comes first.
    ASSERT_TRUE(dns.DoALookup("alias", String(server.GetAddress()), msgs));
    EXPECT_THAT(ARecords(dns), ElementsAre("10.0.0.1"));
    ASSERT_TRUE(dns.DoALookup("known.example", msgs));
    EXPECT_THAT(ARecords(dns), ElementsAre("10.7.7.7"));
    ASSERT_TRUE(dns.DoALookup("unknown.example", msgs));
    EXPECT_THAT(ARecords(dns), ElementsAre("10.0.0.1"));
    EXPECT_THAT(Codes(msgs), IsEmpty());
}

TEST_F(NetDNSCheckedTest, Hosts_Off_NameAskedFor)
{
    EXPECT_EQ(options.GetHostsFile(), NetDNSOptions::sGetSystemHostsFile());
    EXPECT_FALSE(options.GetHostsFile().empty());
    FakeDNSServer server(AnswerA);
    Use({server.GetAddress()});
    options.SetHostsFile("");
    dns.SetOptions(options);
    ASSERT_TRUE(dns.DoALookup("localhost", msgs));
    EXPECT_EQ(server.GetQueryCount(), 1U);
}

/// Claims three names for any address; "right.example" alone leads back to 10.0.0.1 and 2001:db8::1.
Replies AnswerClaims(const DNSQuery& query, std::size_t)
{
    DNSMessage answer(query);
    const bool right = query.name.size() == std::string("right.example").size() && std::tolower(query.name[0]) == 'r';
    switch (query.type) {
    case DNSMessage::PTR:
        return {{answer.AddPtr("wrong.example").AddPtr("10.0.0.1").AddPtr("right.example").Build()}};
    case DNSMessage::AAAA:
        return {{answer.AddRecord(DNSMessage::Pointer(12), 28, 60, AAAA(right ? 1 : 2)).Build()}};
    default:
        return {{answer.AddA("10.0.0.9").AddA(right ? "10.0.0.1" : "10.0.0.8").Build()}};
    }
}

TEST_F(NetDNSCheckedTest, Confirm_NamesThatLeadBack_OnlyThose)
{
    FakeDNSServer server(AnswerClaims);
    Use({server.GetAddress()});
    STRINGS names;
    ASSERT_TRUE(dns.ResolveIP(NetIP("10.0.0.1"), names, msgs));
    EXPECT_EQ(names.size(), 3U);
    options.SetConfirmNames(true);
    dns.SetOptions(options);
    ASSERT_TRUE(dns.ResolveIP(NetIP("10.0.0.1"), names, msgs));
    EXPECT_THAT(names, ElementsAre("right.example"));
    ASSERT_TRUE(dns.ResolveIP(NetIP("2001:db8::1"), names, msgs));
    EXPECT_THAT(names, ElementsAre("right.example"));
    EXPECT_THAT(Codes(msgs), IsEmpty());
    EXPECT_FALSE(dns.ResolveIP(NetIP("10.0.0.7"), names, msgs));
    EXPECT_THAT(names, IsEmpty());
    EXPECT_THAT(Codes(msgs), ElementsAre(54));
}

TEST_F(NetDNSCheckedTest, Confirm_ManyClaims_EightOfThemLookedUp)
{
    FakeDNSServer server([](const DNSQuery& query, std::size_t) -> Replies {
        DNSMessage answer(query);
        if (query.type != DNSMessage::PTR)
            return {{answer.AddA("10.0.0.1").Build()}};
        for (int i = 0; i < 20; ++i)
            answer.AddPtr("name" + std::to_string(i) + ".example");
        return {{answer.Build()}};
    });
    Use({server.GetAddress()});
    options.SetConfirmNames(true);
    dns.SetOptions(options);
    STRINGS names;
    ASSERT_TRUE(dns.ResolveIP(NetIP("10.0.0.1"), names, msgs));
    EXPECT_EQ(names.size(), 8U);
    EXPECT_EQ(server.GetQueryCount(), 9U);
}

/// The answer without records that says that there is more.
Bytes Cut(const DNSQuery& query)
{
    Bytes bytes = DNSMessage(query).Build();
    bytes[2] |= 0x02;
    return bytes;
}

Replies AnswerCut(const DNSQuery& query, std::size_t)
{
    return {{Cut(query)}};
}

TEST_F(NetDNSCheckedTest, Large_Query_SaysThat1232BytesMayCome)
{
    FakeDNSServer server(AnswerA);
    ASSERT_TRUE(dns.DoALookup("n", String(server.GetAddress()), msgs));
    const Bytes query = server.GetQueries()[0].bytes;
    ASSERT_EQ(query.size(), 12U + 3 + 4 + 11);
    EXPECT_EQ(query[11], 1);
    EXPECT_THAT(Bytes(query.end() - 11, query.end()), ElementsAre(0, 0, 41, 0x04, 0xD0, 0, 0, 0, 0, 0, 0));
}

TEST_F(NetDNSCheckedTest, Large_DatagramsOfAnySize_Taken)
{
    for (const std::size_t size : {1025U, 1232U, 1400U, 60000U}) {
        FakeDNSServer server([size](const DNSQuery& query, std::size_t) -> Replies {
            Bytes bytes = DNSMessage(query).AddA("10.0.0.1").Build();
            bytes.resize(size);
            return {{bytes}};
        });
        EXPECT_TRUE(dns.DoALookup(String("n" + std::to_string(size)), String(server.GetAddress()), msgs)) << size;
    }
}

TEST_F(NetDNSCheckedTest, Large_AnswerCut_AskedForAgainOverTCP)
{
    FakeDNSServer server(AnswerCut);
    const std::string text(255, 't');
    ASSERT_TRUE(server.ServeStreams([&text](const DNSQuery& query, std::size_t) -> Replies {
        DNSMessage answer(query);
        for (int i = 0; i < 100; ++i)
            answer.AddText(16, {text, text});
        const Bytes framed = FakeDNSServer::sFrame(answer.Build());
        // In pieces: the length byte by byte, the message in two.
        return {{Bytes(framed.begin(), framed.begin() + 1)},
                {Bytes(framed.begin() + 1, framed.begin() + 2), 5},
                {Bytes(framed.begin() + 2, framed.begin() + 1000), 5},
                {Bytes(framed.begin() + 1000, framed.end()), 5}};
    }));
    ASSERT_TRUE(dns.DoTXTLookup("n", String(server.GetAddress()), msgs));
    ASSERT_EQ(dns.GetTXTRecordCount(), 100U);
    EXPECT_EQ(dns.GetTXTRecord(99), text + text);
    EXPECT_EQ(server.GetQueryCount(), 1U);
    EXPECT_EQ(server.GetStreamQueryCount(), 1U);
}

TEST_F(NetDNSCheckedTest, Large_AnswerCutAndNoOrABadStream_53)
{
    const auto lookUp = [this](const FakeDNSServer::Script& script) {
        FakeDNSServer server(AnswerCut);
        if (script) {
            EXPECT_TRUE(server.ServeStreams(script));
        }
        Messages codes;
        EXPECT_FALSE(dns.DoALookup("host.example", String(server.GetAddress()), codes));
        return Codes(codes);
    };
    BeImpatient();
    EXPECT_THAT(lookUp(nullptr), ElementsAre(53)); // nobody serves it
    EXPECT_THAT(lookUp(Silence), ElementsAre(53)); // it says nothing,
    EXPECT_THAT(lookUp([](const DNSQuery&, std::size_t) {
                    return Replies{{Bytes{0, 50, 1, 2}}};
                }),
                ElementsAre(53)); // or breaks off
    EXPECT_THAT(lookUp([](const DNSQuery&, std::size_t) { return Replies{{Bytes{0, 0}}}; }), ElementsAre(53));
    EXPECT_THAT(lookUp([](const DNSQuery& query, std::size_t) { return Replies{{FakeDNSServer::sFrame(Cut(query))}}; }),
                ElementsAre(53)); // it cuts too
    const ULONG refused = dns.GetRefusedAnswers();
    EXPECT_THAT(lookUp([](const DNSQuery& query, std::size_t) {
                    Bytes bytes = DNSMessage(query).AddA("6.6.6.6").Build();
                    bytes[0] ^= 1;
                    return Replies{{FakeDNSServer::sFrame(bytes)}};
                }),
                ElementsAre(53));
    EXPECT_EQ(dns.GetRefusedAnswers(), refused + 1);
}

TEST_F(NetDNSCheckedTest, Large_Off_PlainQueryAndACutAnswerIs53)
{
    FakeDNSServer server(AnswerCut);
    ASSERT_TRUE(server.ServeStreams([](const DNSQuery& query, std::size_t) {
        return Replies{{FakeDNSServer::sFrame(DNSMessage(query).AddA("10.0.0.1").Build())}};
    }));
    options.SetLargeAnswers(false);
    dns.SetOptions(options);
    EXPECT_FALSE(dns.DoALookup("n", String(server.GetAddress()), msgs));
    EXPECT_THAT(Codes(msgs), ElementsAre(53));
    EXPECT_EQ(server.GetStreamQueryCount(), 0U);
    EXPECT_EQ(server.GetQueries()[0].bytes.size(), 12U + 3 + 4);
}

TEST_F(NetDNSCheckedTest, Large_ServerFromBeforeEDNS_AskedAgainPlainly)
{
    for (const unsigned code : {1U, 4U}) {
        FakeDNSServer server([code](const DNSQuery& query, std::size_t number) {
            return query.bytes[11] != 0 ? Replies{{DNSMessage(query).Code(code).Build()}} : AnswerA(query, number);
        });
        EXPECT_TRUE(dns.DoALookup(String("n" + std::to_string(code)), String(server.GetAddress()), msgs));
        EXPECT_EQ(server.GetQueryCount(), 2U);
    }
    EXPECT_THAT(Codes(msgs), IsEmpty());
}

TEST_F(NetDNSCheckedTest, Threads_16ResolversOverOneCache_AllResolve)
{
    FakeDNSServer server(AnswerA);
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 16; ++thread) {
        threads.emplace_back([&, thread] {
            for (int i = 0; i < 40; ++i) {
                NetDNS resolver(NetIP::LOOKUP_ANY, cache);
                resolver.SetOptions(options);
                Messages codes;
                const String name("host" + std::to_string((thread + i) % 20) + ".example");
                failures += !resolver.DoALookup(name, String(server.GetAddress()), codes) ||
                            resolver.GetARecord(0) != "10.0.0.1";
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(failures, 0);
    EXPECT_LT(server.GetQueryCount(), 16U * 20U + 1U);
}

} // namespace
