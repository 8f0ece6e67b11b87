#include "net/dns/NetDNS.h"
#include "net/dns/NetDNSCache.h"
#include "net/dns/NetDNSOptions.h"
#include "net/ipcontrol/NetIPControl.h"
#include "net/ipcontrol/NetIPControlQuery.h"
#include "platform/ResolverConfig.h"
#include "platform/Sockets.h"
#include "tests/peers/FakeDNSServer.h"
#include "tests/peers/Missing.h"
#include "tests/peers/Port53.h"
#include "tests/peers/TempFolder.h"
#include "tests/peers/WaitFor.h"
#include "tests/peers/posix/ChildProcess.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

namespace {

using namespace kqlib;
using namespace kqlib::test;
using testing::AnyOf;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

/// named listens on addresses that an interface has, and loopback has this one.
constexpr const char* ADDRESS = "127.0.0.1";
constexpr int MOST_STARTS = 6;
constexpr const char* ADDRESS6 = "::1";
constexpr int BOOK = 20; ///< strings of 200 bytes in one text: more than a datagram holds
constexpr int MANY = 25; ///< addresses that still fit into the 512 bytes of a plain DNS answer

std::string Join(const std::string& prefix, int number, const std::string& suffix)
{
    return prefix + std::to_string(number) + suffix;
}

std::string ZoneHead()
{
    return "$TTL 60\n@ IN SOA ns hostmaster 1 3600 600 86400 60\n@ IN NS ns\nns IN A 192.0.2.53\n";
}

/// chain<n> is n aliases away from an address.
std::string MainZone()
{
    std::string zone = ZoneHead() + "chain0 IN A 192.0.2.10\n";
    for (int i = 1; i <= 6; ++i)
        zone += Join("chain", i, " IN CNAME ") + Join("chain", i - 1, "\n");
    for (int i = 1; i <= MANY; ++i)
        zone += Join("many IN A 192.0.2.", 100 + i, "\n");
    for (int i = 1; i <= 100; ++i)
        zone += Join("crowd IN A 198.51.100.", i, "\n");
    zone += "@ IN MX 10 a.mail\n@ IN MX 5 first.mail\n@ IN MX 10 b.mail\n@ IN MX 10 c.mail\n@ IN MX 65535 last.mail\n";
    zone += "mailalias IN CNAME @\n";
    zone += "long IN TXT \"" + std::string(255, 'l') + "\" \"" + std::string(40, 'r') + "\"\n";
    zone += "short IN TXT \"one string, with blanks\"\nempty IN TXT \"\"\n";
    zone += "@ IN SPF \"v=spf1 mx -all\"\ntwo IN SPF \"v=spf1 \" \"a -all\"\n";
    zone += "six IN AAAA 2001:db8::10\nboth IN A 192.0.2.30\nboth IN AAAA 2001:db8::30\nsixalias IN CNAME six\n";
    zone += "_ftp._tcp IN SRV 20 5 2121 b\n_ftp._tcp IN SRV 10 0 21 a\nnomail IN MX 0 .\n";
    zone += "book IN TXT";
    for (int i = 0; i < BOOK; ++i)
        zone += " \"" + std::string(200, static_cast<char>('a' + i)) + "\"";
    zone += "\n";
    zone += "MiXeD IN A 192.0.2.77\nlong-life 900000 IN A 192.0.2.78\n";
    return zone;
}

std::string ReverseZone()
{
    return ZoneHead() + "10 IN PTR chain0.kq.test.\n11 IN PTR one.kq.test.\n11 IN PTR two.kq.test.\n";
}

/// A named of its own on a loopback address, with the zones above; shared by all tests of the program.
class NAMED
{
public:
    NAMED()
    {
        if (std::string(KQ_NAMED).empty()) {
            m_whyNot = "named is not installed (package bind9)";
            return;
        }
        if (!CanServePort53()) {
            m_whyNot = "port 53 of loopback cannot be bound";
            return;
        }
        xWrite("kq.test", MainZone());
        xWrite("refused.test", ZoneHead() + "host IN A 192.0.2.1\n");
        xWrite("2.0.192.in-addr.arpa", ReverseZone());
        xWrite("named.conf", xConfiguration());
        // Where other tests share the loopback, one of them may hold the port just now: named then runs without it.
        for (int attempt = 0; attempt < MOST_STARTS && !m_serving; ++attempt)
            m_serving = xStart();
        if (!m_serving)
            m_failure = "named does not serve: " + xLog();
    }

    /// What the machine lacks; empty when named could be started.
    const std::string& GetWhyNot() const { return m_whyNot; }
    /// Why it does not serve although it was started; empty when it does.
    const std::string& GetFailure() const { return m_failure; }

private:
    void xWrite(const std::string& name, const std::string& text) { std::ofstream(m_folder / name) << text; }

    std::string xConfiguration() const
    {
        const std::string folder = m_folder.GetPath().string();
        std::string text = "options { directory \"" + folder + "\"; pid-file \"" + folder +
                           "/named.pid\"; session-keyfile \"" + folder + "/session.key\"; listen-on port 53 { " +
                           ADDRESS + "; }; listen-on-v6 port 53 { " + ADDRESS6 +
                           "; }; recursion no; dnssec-validation no; allow-query { any; }; "
                           "minimal-responses yes; empty-zones-enable no; };\ncontrols { };\n";
        for (const char* zone : {"kq.test", "2.0.192.in-addr.arpa"})
            text += "zone \"" + std::string(zone) + "\" { type master; file \"" + zone + "\"; };\n";
        return text + "zone \"refused.test\" { type master; file \"refused.test\"; allow-query { none; }; };\n";
    }

    bool xStart()
    {
        m_process.reset();
        m_process = std::make_unique<ChildProcess>(
            std::vector<std::string>{KQ_NAMED, "-g", "-c", (m_folder / "named.conf").string(), "-n", "1"},
            m_folder / "log");
        return WaitFor([this] { return xAnswers() || !m_process->IsRunning(); }) && m_process->IsRunning();
    }

    bool xAnswers() const
    {
        NetDNS dns(NetIP::LOOKUP_ANY);
        Messages msgs;
        return dns.DoALookup("chain0.kq.test", ADDRESS, msgs) && dns.GetARecord(0) == "192.0.2.10";
    }

    std::string xLog() const
    {
        std::ifstream log(m_folder / "log");
        return {std::istreambuf_iterator<char>(log), std::istreambuf_iterator<char>()};
    }

    TempFolder m_folder;
    std::string m_whyNot;
    std::string m_failure;
    bool m_serving = false;
    std::unique_ptr<ChildProcess> m_process; // ends before its folder goes
};

class NamedTest : public testing::Test
{
protected:
    static void SetUpTestSuite() { s_named = std::make_unique<NAMED>(); }
    static void TearDownTestSuite() { s_named.reset(); }

    void SetUp() override
    {
        ASSERT_EQ(s_named->GetFailure(), "");
        if (!s_named->GetWhyNot().empty())
            KQ_MISSING(s_named->GetWhyNot());
    }

    static String Server() { return ADDRESS; }

    void UseServer(NetDNS& dns)
    {
        STRINGS servers;
        servers.push_back(Server());
        dns.SetDNSServers(servers);
    }

    std::vector<std::string> LookUpA(const char* name)
    {
        NetDNS dns(NetIP::LOOKUP_ANY);
        std::vector<std::string> records;
        if (!dns.DoALookup(name, Server(), m_msgs))
            records.push_back("failed");
        for (ULONG i = 0; i < dns.GetARecordCount(); ++i)
            records.push_back(dns.GetARecord(i).str());
        return records;
    }

    std::vector<int> Codes() const
    {
        std::vector<int> codes;
        for (ULONG i = 0; i < m_msgs.GetMessageCount(); ++i)
            codes.push_back(m_msgs.Get(i));
        return codes;
    }

    Messages m_msgs;
    static std::unique_ptr<NAMED> s_named;
};

std::unique_ptr<NAMED> NamedTest::s_named;

TEST_F(NamedTest, A_ChainsOf0To4_AddressAtTheEnd)
{
    for (int length = 0; length <= 4; ++length)
        EXPECT_THAT(LookUpA(Join("chain", length, ".kq.test").c_str()), ElementsAre("192.0.2.10")) << length;
    EXPECT_THAT(Codes(), IsEmpty());
}

TEST_F(NamedTest, A_ChainsOf5And6_FailWithoutACode_KeptOnPurpose)
{
    EXPECT_THAT(LookUpA("chain5.kq.test"), ElementsAre("failed"));
    EXPECT_THAT(LookUpA("chain6.kq.test"), ElementsAre("failed"));
    EXPECT_THAT(Codes(), IsEmpty());
}

TEST_F(NamedTest, A_ManyRecords_AllOfThem)
{
    const std::vector<std::string> records = LookUpA("many.kq.test");
    EXPECT_EQ(records.size(), static_cast<std::size_t>(MANY));
    for (int i = 1; i <= MANY; ++i)
        EXPECT_THAT(records, Contains(Join("192.0.2.", 100 + i, "")));
}

TEST_F(NamedTest, A_MoreRecordsThanADatagramHolds_NeverMoreThanWereSent)
{
    // The server cuts its answer: with some records, or with none, which is code 51.
    const std::vector<std::string> records = LookUpA("crowd.kq.test");
    EXPECT_LT(records.size(), 100U);
    EXPECT_THAT(Codes(), AnyOf(IsEmpty(), ElementsAre(51)));
}

TEST_F(NamedTest, A_NameInAnyCase_Found)
{
    EXPECT_THAT(LookUpA("mixed.KQ.test"), ElementsAre("192.0.2.77"));
    EXPECT_THAT(LookUpA("MIXED.kq.TEST"), ElementsAre("192.0.2.77"));
}

TEST_F(NamedTest, A_NoSuchName_54)
{
    EXPECT_THAT(LookUpA("none.kq.test"), ElementsAre("failed"));
    EXPECT_THAT(Codes(), ElementsAre(54));
}

TEST_F(NamedTest, Mx_NameWithoutExchangers_51)
{
    NetDNS dns(NetIP::LOOKUP_ANY);
    EXPECT_FALSE(dns.DoMXLookup("chain0.kq.test", Server(), m_msgs));
    EXPECT_THAT(Codes(), ElementsAre(51));
}

TEST_F(NamedTest, A_RefusedZone_56AndServerDropped)
{
    NetDNS dns(NetIP::LOOKUP_ANY);
    UseServer(dns);
    EXPECT_FALSE(dns.DoALookup("host.refused.test", m_msgs));
    EXPECT_THAT(Codes(), ElementsAre(56));
    EXPECT_EQ(dns.GetDNSServerCount(), 0U);
}

TEST_F(NamedTest, Mx_Ties_AscendingByPriority)
{
    for (const char* name : {"kq.test", "mailalias.kq.test"}) {
        NetDNS dns(NetIP::LOOKUP_ANY);
        ASSERT_TRUE(dns.DoMXLookup(name, Server(), m_msgs)) << name;
        ASSERT_EQ(dns.GetMXRecordCount(), 5U);
        EXPECT_EQ(dns.GetMXRecord(0), "first.mail.kq.test");
        EXPECT_EQ(dns.GetMXRecordPriority(0), 5U);
        std::vector<std::string> ties;
        for (ULONG i = 1; i <= 3; ++i) {
            EXPECT_EQ(dns.GetMXRecordPriority(i), 10U);
            ties.push_back(dns.GetMXRecord(i).str());
        }
        EXPECT_THAT(ties, UnorderedElementsAre("a.mail.kq.test", "b.mail.kq.test", "c.mail.kq.test"));
        EXPECT_EQ(dns.GetMXRecord(4), "last.mail.kq.test");
        EXPECT_EQ(dns.GetMXRecordPriority(4), 65535U);
    }
}

TEST_F(NamedTest, Txt_SeveralStrings_FirstOnly_KeptOnPurpose)
{
    NetDNS dns(NetIP::LOOKUP_ANY);
    ASSERT_TRUE(dns.DoTXTLookup("long.kq.test", Server(), m_msgs));
    ASSERT_EQ(dns.GetTXTRecordCount(), 1U);
    EXPECT_EQ(dns.GetTXTRecord(0), String(255, 'l'));
}

TEST_F(NamedTest, Txt_OneStringAndEmptyString_AsTheyAre)
{
    NetDNS dns(NetIP::LOOKUP_ANY);
    ASSERT_TRUE(dns.DoTXTLookup("short.kq.test", Server(), m_msgs));
    EXPECT_EQ(dns.GetTXTRecord(0), "one string, with blanks");
    ASSERT_TRUE(dns.DoTXTLookup("empty.kq.test", Server(), m_msgs));
    EXPECT_EQ(dns.GetTXTRecord(0), "");
}

TEST_F(NamedTest, Spf_Type99_FirstString)
{
    NetDNS dns(NetIP::LOOKUP_ANY);
    ASSERT_TRUE(dns.DoSPFLookup("kq.test", Server(), m_msgs));
    EXPECT_EQ(dns.GetSPFRecord(0), "v=spf1 mx -all");
    ASSERT_TRUE(dns.DoSPFLookup("two.kq.test", Server(), m_msgs));
    EXPECT_EQ(dns.GetSPFRecord(0), "v=spf1 ");
}

TEST_F(NamedTest, ResolveIP_Addresses_TheirNames)
{
    NetDNS dns(NetIP::LOOKUP_ANY);
    UseServer(dns);
    String name;
    ASSERT_TRUE(dns.ResolveIP(NetIP("192.0.2.10"), name, m_msgs));
    EXPECT_EQ(name, "chain0.kq.test");
    STRINGS names;
    ASSERT_TRUE(dns.ResolveIP(NetIP("192.0.2.11"), names, m_msgs));
    EXPECT_THAT(names, UnorderedElementsAre("one.kq.test", "two.kq.test"));
    EXPECT_FALSE(dns.ResolveIP(NetIP("192.0.2.99"), names, m_msgs));
    EXPECT_THAT(Codes(), ElementsAre(54));
}

TEST_F(NamedTest, ResolveHost_OverACache_SecondTimeWithoutTheServer)
{
    NetDNSCache cache;
    NetIP address;
    {
        NetDNS dns(NetIP::LOOKUP_ANY, cache);
        UseServer(dns);
        ASSERT_TRUE(dns.ResolveHost("mixed.kq.test", true, address, m_msgs));
        EXPECT_EQ(address.GetText(), "192.0.2.77");
    }
    NetDNS dns(NetIP::LOOKUP_ANY, cache);
    STRINGS dead;
    dead.push_back(String(FakeDNSServer::sGetDeadAddress()));
    dns.SetDNSServers(dead);
    EXPECT_TRUE(dns.ResolveHost("MIXED.kq.test", true, address, m_msgs));
    EXPECT_FALSE(dns.ResolveHost("chain0.kq.test", true, address, m_msgs));
}

TEST_F(NamedTest, Servers_DeadOneBeforeNamed_NamedAsked)
{
    NetDNS dns(NetIP::LOOKUP_ANY);
    STRINGS servers;
    servers.push_back(String(FakeDNSServer::sGetDeadAddress()));
    servers.push_back(Server());
    dns.SetDNSServers(servers);
    EXPECT_TRUE(dns.DoALookup("chain0.kq.test", m_msgs));
    ASSERT_EQ(dns.GetDNSServerCount(), 1U);
    EXPECT_EQ(dns.GetDNSServer(0), Server());
}

/// Look-ups with options, at either address of the server.
class NamedOptionsTest : public NamedTest
{
protected:
    NamedOptionsTest()
    {
        m_dns.SetOptions(m_options);
        UseServer(m_dns);
    }

    NetDNSOptions m_options;
    NetDNSCache m_cache;
    NetDNS m_dns{NetIP::LOOKUP_ANY, m_cache};
};

TEST_F(NamedOptionsTest, Addresses_OfEachFamilyAndBoth_Found)
{
    ASSERT_TRUE(m_dns.DoAAAALookup("six.kq.test", m_msgs));
    EXPECT_EQ(m_dns.GetAAAARecord(0), "2001:db8::10");
    ASSERT_TRUE(m_dns.DoAAAALookup("sixalias.kq.test", m_msgs));
    EXPECT_EQ(m_dns.GetAAAARecord(0), "2001:db8::10");
    Vector<NetIP> addresses;
    ASSERT_TRUE(m_dns.ResolveHost("both.kq.test", true, addresses, m_msgs));
    ASSERT_EQ(addresses.GetCount(), 2U);
    EXPECT_EQ(addresses.Get(0).GetText(), "192.0.2.30");
    EXPECT_EQ(addresses.Get(1).GetText(), "2001:db8::30");
    ASSERT_TRUE(m_dns.ResolveHost("chain0.kq.test", true, addresses, m_msgs));
    EXPECT_EQ(addresses.GetCount(), 1U);
    EXPECT_THAT(Codes(), IsEmpty());
    EXPECT_EQ(m_dns.GetRefusedAnswers(), 0U);
}

TEST_F(NamedOptionsTest, Chains_OfAnyLengthUpTo6_FollowedWithinTheAnswer)
{
    for (int length = 0; length <= 6; ++length) {
        ASSERT_TRUE(m_dns.DoALookup(String(Join("chain", length, ".kq.test")), m_msgs)) << length;
        EXPECT_EQ(m_dns.GetARecord(0), "192.0.2.10");
    }
}

TEST_F(NamedOptionsTest, Services_AndExchangers_InTheirOrder)
{
    ASSERT_TRUE(m_dns.DoSRVLookup("_ftp._tcp.kq.test", m_msgs));
    ASSERT_EQ(m_dns.GetSRVRecordCount(), 2U);
    EXPECT_EQ(m_dns.GetSRVRecord(0).name, "a.kq.test");
    EXPECT_EQ(m_dns.GetSRVRecord(0).port, 21U);
    EXPECT_EQ(m_dns.GetSRVRecord(1).weight, 5U);
    ASSERT_TRUE(m_dns.DoMXLookup("kq.test", m_msgs));
    EXPECT_EQ(m_dns.GetMXRecord(0), "first.mail.kq.test");
    EXPECT_EQ(m_dns.GetMXRecord(4), "last.mail.kq.test");
    ASSERT_TRUE(m_dns.DoMXLookup("nomail.kq.test", m_msgs));
    ASSERT_EQ(m_dns.GetMXRecordCount(), 1U);
    EXPECT_EQ(m_dns.GetMXRecord(0), "");
}

TEST_F(NamedOptionsTest, Texts_LongOnes_WholeAndOverTCPWhereTheyMust)
{
    ASSERT_TRUE(m_dns.DoTXTLookup("long.kq.test", m_msgs));
    EXPECT_EQ(m_dns.GetTXTRecord(0), String(255, 'l') + String(40, 'r'));
    ASSERT_TRUE(m_dns.DoTXTLookup("book.kq.test", m_msgs));
    EXPECT_EQ(m_dns.GetTXTRecord(0).size(), 200U * BOOK);
    ASSERT_TRUE(m_dns.DoALookup("crowd.kq.test", m_msgs));
    EXPECT_EQ(m_dns.GetARecordCount(), 100U);
    m_options.SetLargeAnswers(false);
    NetDNS plain(NetIP::LOOKUP_ANY);
    plain.SetOptions(m_options);
    EXPECT_FALSE(plain.DoTXTLookup("book.kq.test", Server(), m_msgs));
    EXPECT_THAT(Codes(), ElementsAre(53));
}

TEST_F(NamedOptionsTest, Nothing_NoNameNoRecordsAndRefused_CodesAndKept)
{
    EXPECT_FALSE(m_dns.DoALookup("none.kq.test", m_msgs));
    EXPECT_FALSE(m_dns.DoMXLookup("chain0.kq.test", m_msgs));
    EXPECT_FALSE(m_dns.DoALookup("host.refused.test", m_msgs));
    EXPECT_THAT(Codes(), ElementsAre(54, 51, 56));
    // The zone says how long "nothing" lives: no server is needed again.
    STRINGS dead;
    dead.push_back(String(FakeDNSServer::sGetDeadAddress()));
    m_dns.SetDNSServers(dead);
    Messages kept;
    EXPECT_FALSE(m_dns.DoALookup("none.kq.test", kept) || m_dns.DoMXLookup("chain0.kq.test", kept));
    ASSERT_EQ(kept.GetMessageCount(), 2U);
    EXPECT_EQ(kept.Get(0), 54);
    EXPECT_EQ(kept.Get(1), 51);
}

TEST_F(NamedOptionsTest, Reverse_NamesThatLeadBack_Confirmed)
{
    m_options.SetConfirmNames(true);
    m_dns.SetOptions(m_options);
    STRINGS names;
    ASSERT_TRUE(m_dns.ResolveIP(NetIP("192.0.2.10"), names, m_msgs));
    EXPECT_THAT(names, ElementsAre("chain0.kq.test"));
    EXPECT_FALSE(m_dns.ResolveIP(NetIP("192.0.2.11"), names, m_msgs)); // its names have no address
    EXPECT_THAT(Codes(), ElementsAre(54));
}

TEST_F(NamedOptionsTest, Server_AtItsIPv6Address_Answers)
{
    const platform::SocketHandle handle = platform::OpenSocket(false, platform::Family::IP6);
    platform::Endpoint loopback;
    loopback.family = platform::Family::IP6;
    loopback.bytes[15] = 1;
    const bool isThere = platform::BindSocket(handle, loopback, false);
    platform::CloseSocket(handle);
    if (!isThere)
        KQ_MISSING("there is no IPv6 loopback here");
    ASSERT_TRUE(m_dns.DoTXTLookup("book.kq.test", ADDRESS6, m_msgs));
    EXPECT_EQ(m_dns.GetTXTRecord(0).size(), 200U * BOOK);
}

/// Address rules that name hosts, decided by a name server that the system's settings name.
class NamedRulesTest : public NamedTest
{
protected:
    void SetUp() override
    {
        NamedTest::SetUp();
        if (IsSkipped() || HasFatalFailure())
            return;
        std::filesystem::create_directories(m_root / "etc");
        std::ofstream(m_root / "etc/resolv.conf") << "nameserver " << ADDRESS << "\n";
        m_rootText = m_root.GetPath().string();
        platform::SetServerSettingsRoot(m_rootText.c_str());
    }
    void TearDown() override { platform::SetServerSettingsRoot(nullptr); }

    bool IsDenied(const char* rule, const char* peer) const
    {
        NetIPControlEntry entry;
        EXPECT_TRUE(entry.SetByString(rule)) << rule;
        NetIPControl rules;
        rules.Add(entry);
        return NetIPControlQuery(m_cache).IsDenied(rules, NetIP("192.0.2.1"), NetIP(peer));
    }

    TempFolder m_root;
    std::string m_rootText;
    mutable NetDNSCache m_cache;
};

TEST_F(NamedRulesTest, HostRule_AddressesOfTheHost_Match)
{
    EXPECT_TRUE(IsDenied("-host=chain0.kq.test", "192.0.2.10"));
    EXPECT_TRUE(IsDenied("-host=CHAIN4.kq.test", "192.0.2.10")); // by way of four aliases
    EXPECT_FALSE(IsDenied("-host=chain0.kq.test", "192.0.2.11"));
    for (int i = 1; i <= MANY; ++i)
        EXPECT_TRUE(IsDenied("-host=many.kq.test", Join("192.0.2.", 100 + i, "").c_str())) << i;
    EXPECT_FALSE(IsDenied("-host=none.kq.test", "192.0.2.10"));
    EXPECT_FALSE(IsDenied("-host=host.refused.test", "192.0.2.1"));
}

TEST_F(NamedRulesTest, ReverseHostRule_AnyNameOfThePeer_Matches)
{
    EXPECT_TRUE(IsDenied("-rhost=*.KQ.test", "192.0.2.10"));
    EXPECT_TRUE(IsDenied("-rhost=one.kq.test", "192.0.2.11"));
    EXPECT_TRUE(IsDenied("-rhost=tw?.kq.test", "192.0.2.11"));
    EXPECT_FALSE(IsDenied("-rhost=three.kq.test", "192.0.2.11"));
    EXPECT_FALSE(IsDenied("-rhost=*", "192.0.2.99")); // no name there
    EXPECT_FALSE(IsDenied("-rhost=*", "198.51.100.1"));
}

} // namespace
