#include "tests/peers/DNSMessage.h"
#include "tests/peers/FakeDNSServer.h"
#include "tests/peers/Port53.h"
#include "tests/peers/RunProgram.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <string>
#include <vector>

namespace {

using namespace kqlib::test;
using nlohmann::json;
using testing::HasSubstr;
using testing::Not;
using Replies = FakeDNSServer::Replies;

PROGRAMRESULT Kq(const std::vector<std::string>& arguments)
{
    std::vector<std::string> all{"dns"};
    all.insert(all.end(), arguments.begin(), arguments.end());
    return RunProgram(KQ_PROGRAM, all);
}

/// Answers every type with two records.
Replies AnswerAnything(const DNSQuery& query, std::size_t)
{
    DNSMessage answer(query);
    switch (query.type) {
    case DNSMessage::A:
        return {{answer.AddA("10.0.0.2").AddA("10.0.0.1").Build()}};
    case DNSMessage::PTR:
        return {{answer.AddPtr("one.example").AddPtr("two.example").Build()}};
    case DNSMessage::MX:
        return {{answer.AddMx(20, "second.example").AddMx(10, "first.example").Build()}};
    default:
        return {{answer.AddText(query.type, {"v=spf1 -all"}).AddText(query.type, {"bell \a"}).Build()}};
    }
}

class DnsCommandTest : public testing::Test
{
protected:
    void SetUp() override { KQ_NEED_PORT_53(); }
};

TEST_F(DnsCommandTest, A_TwoAddresses_OneLineEach)
{
    FakeDNSServer server(AnswerAnything);
    const PROGRAMRESULT result = Kq({"a", "host.example", "--server", server.GetAddress()});
    EXPECT_TRUE(result.success) << result.output;
    EXPECT_THAT(result.output, HasSubstr("10.0.0.2\n10.0.0.1\n-- found, 2 record(s), from a server, "));
}

TEST_F(DnsCommandTest, Mx_TwoExchangers_PriorityInFront)
{
    FakeDNSServer server(AnswerAnything);
    const PROGRAMRESULT result = Kq({"mx", "example", "--server", server.GetAddress()});
    EXPECT_THAT(result.output, HasSubstr("10 first.example\n20 second.example\n"));
}

TEST_F(DnsCommandTest, Ptr_Address_ReverseNameAsked)
{
    FakeDNSServer server(AnswerAnything);
    EXPECT_TRUE(Kq({"ptr", "10.1.2.3", "--server", server.GetAddress()}).success);
    EXPECT_TRUE(Kq({"ptr", "4.3.2.1.in-addr.arpa", "--server", server.GetAddress()}).success);
    ASSERT_EQ(server.GetQueryCount(), 2U);
    EXPECT_EQ(server.GetQueries()[0].name, "3.2.1.10.in-addr.arpa");
    EXPECT_EQ(server.GetQueries()[1].name, "4.3.2.1.in-addr.arpa");
}

TEST_F(DnsCommandTest, Txt_ControlCharacters_ShownAsHex)
{
    FakeDNSServer server(AnswerAnything);
    const PROGRAMRESULT result = Kq({"txt", "example", "--server", server.GetAddress()});
    EXPECT_THAT(result.output, HasSubstr("v=spf1 -all\nbell %07\n"));
}

TEST_F(DnsCommandTest, Spf_Asked_Type99)
{
    FakeDNSServer server(AnswerAnything);
    EXPECT_TRUE(Kq({"spf", "example", "--server", server.GetAddress()}).success);
    ASSERT_EQ(server.GetQueryCount(), 1U);
    EXPECT_EQ(server.GetQueries()[0].type, 99U);
}

TEST_F(DnsCommandTest, Repeat_ThreeTimes_SecondAndThirdFromTheCache)
{
    FakeDNSServer server(AnswerAnything);
    const PROGRAMRESULT result = Kq({"mx", "example", "--server", server.GetAddress(), "--repeat", "3", "--json"});
    EXPECT_TRUE(result.success);
    const json document = json::parse(result.output);
    EXPECT_EQ(document["type"], "mx");
    EXPECT_EQ(document["name"], "example");
    ASSERT_EQ(document["lookups"].size(), 3U);
    EXPECT_EQ(document["lookups"][0]["cached"], false);
    EXPECT_EQ(document["lookups"][1]["cached"], true);
    EXPECT_EQ(document["lookups"][2]["cached"], true);
    const json expected =
        json::parse(R"([{"name":"first.example","priority":10},{"name":"second.example","priority":20}])");
    EXPECT_EQ(document["lookups"][2]["records"], expected);
    EXPECT_GE(document["lookups"][0]["milliseconds"].get<double>(), 0.0);
    EXPECT_EQ(server.GetQueryCount(), 1U);
}

TEST_F(DnsCommandTest, Checked_ForgedAnswerInFront_RefusedAndCounted)
{
    FakeDNSServer server([](const DNSQuery& query, std::size_t) -> Replies {
        auto forged = DNSMessage(query).AddA("6.6.6.6").Build();
        forged[0] ^= 1;
        return {{forged}, {DNSMessage(query).AddA("10.0.0.1").Build()}};
    });
    const PROGRAMRESULT plain = Kq({"a", "host.example", "--server", server.GetAddress()});
    EXPECT_THAT(plain.output, HasSubstr("6.6.6.6\n"));
    const json document = json::parse(
        Kq({"a", "host.example", "--server", server.GetAddress(), "--checked", "--repeat", "2", "--json"}).output);
    EXPECT_EQ(document["checked"], true);
    EXPECT_EQ(document["refused"], 1);
    EXPECT_EQ(document["lookups"][0]["records"], json::parse(R"(["10.0.0.1"])"));
    EXPECT_EQ(document["lookups"][0]["cached"], false);
    EXPECT_EQ(document["lookups"][1]["cached"], true);
}

TEST_F(DnsCommandTest, AaaaAndSrv_WithoutAnyOption_AskedWithOptions)
{
    FakeDNSServer server([](const DNSQuery& query, std::size_t) -> Replies {
        DNSMessage answer(query);
        if (query.type == DNSMessage::SRV)
            return {{answer.AddSrv(10, 5, 2121, "ftp.example").Build()}};
        std::vector<unsigned char> address(16);
        address[15] = 1;
        return {{answer.AddRecord(DNSMessage::Pointer(12), DNSMessage::AAAA, 60, address).Build()}};
    });
    EXPECT_THAT(Kq({"aaaa", "host.example", "--server", server.GetAddress()}).output, HasSubstr("::1\n-- found, 1 "));
    EXPECT_THAT(Kq({"srv", "_ftp._tcp.example", "--server", server.GetAddress()}).output,
                HasSubstr("10 5 2121 ftp.example\n"));
}

TEST_F(DnsCommandTest, Json_BytesThatAreNoText_StillJson)
{
    FakeDNSServer server([](const DNSQuery& query, std::size_t) -> Replies {
        return {{DNSMessage(query).AddText(query.type, {"\xFF\x01\""}).Build()}};
    });
    const PROGRAMRESULT result = Kq({"txt", "example", "--server", server.GetAddress(), "--json"});
    EXPECT_TRUE(json::accept(result.output)) << result.output;
}

TEST_F(DnsCommandTest, Failure_NameError_CodeInWordsAndFailure)
{
    FakeDNSServer server(
        [](const DNSQuery& query, std::size_t) -> Replies { return {{DNSMessage(query).Code(3).Build()}}; });
    const PROGRAMRESULT text = Kq({"a", "none.example", "--server", server.GetAddress()});
    EXPECT_FALSE(text.success);
    EXPECT_THAT(text.output, HasSubstr("message 54: there is no such name"));
    EXPECT_THAT(text.output, HasSubstr("-- failed, 0 record(s)"));
    const json document = json::parse(Kq({"a", "none.example", "--server", server.GetAddress(), "--json"}).output);
    EXPECT_EQ(document["lookups"][0]["success"], false);
    EXPECT_EQ(document["lookups"][0]["messages"][0]["code"], 54);
}

TEST(DnsCommand, Servers_ThisSystem_JsonListOrSaysThatThereAreNone)
{
    const PROGRAMRESULT document = Kq({"servers", "--json"});
    ASSERT_TRUE(json::accept(document.output)) << document.output;
    const json servers = json::parse(document.output)["servers"];
    EXPECT_EQ(document.success, !servers.empty());
    const PROGRAMRESULT text = Kq({"servers"});
    EXPECT_EQ(text.success, !servers.empty());
    for (const json& server : servers)
        EXPECT_THAT(text.output, HasSubstr(server.get<std::string>() + "\n"));
    EXPECT_EQ(text.output.find("no DNS servers found") != std::string::npos, servers.empty());
}

TEST(DnsCommand, WrongArguments_UsageAndFailure)
{
    for (const std::vector<std::string>& arguments : {std::vector<std::string>{},
                                                      {"a"},
                                                      {"soa", "example"},
                                                      {"a", "example", "--repeat", "0"},
                                                      {"a", "x", "--nil"}})
    {
        const PROGRAMRESULT result = Kq(arguments);
        EXPECT_FALSE(result.success);
        EXPECT_THAT(result.output, HasSubstr("--help"));
        EXPECT_THAT(result.output, Not(HasSubstr("record(s)")));
    }
}

} // namespace
