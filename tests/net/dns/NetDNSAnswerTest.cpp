#include "net/dns/NetDNSAnswer.h"
#include "net/dns/NetDNSReader.h"
#include "tests/peers/DNSMessage.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using namespace kqlib;
using kqlib::test::DNSMessage;
using testing::ElementsAre;
using testing::IsEmpty;
using Bytes = DNSMessage::Bytes;

constexpr const char* NAME = "host.example";

NetDNSAnswer Parse(NetDNS::RRTYPE type, const Bytes& message)
{
    // A copy of exactly the message's size, so that a sanitizer sees any read behind it.
    const Bytes copy(message);
    NetDNSAnswer answer;
    answer.Parse(copy.data(), static_cast<ULONG>(copy.size()), NAME, type);
    return answer;
}

std::vector<std::string> Texts(const NetDNSAnswer& answer)
{
    std::vector<std::string> texts;
    for (const NetDNSAnswer::RECORD& record : answer.GetRecords())
        texts.push_back(record.text.str());
    return texts;
}

DNSMessage Question(unsigned type)
{
    return DNSMessage(NAME, type);
}

/// The name at the offset, "false" when it is none; behind it "@" and the position.
std::string StrictName(const Bytes& bytes, ULONG offset = 0)
{
    NetDNSReader reader(bytes.data(), static_cast<ULONG>(bytes.size()));
    String name("before");
    if (!reader.Seek(offset) || !reader.ReadStrictName(name))
        return "false";
    return name.str() + "@" + std::to_string(reader.GetPosition());
}

TEST(NetDNSReaderStrict, ReadStrictName_WellFormed_NameAndPosition)
{
    EXPECT_EQ(StrictName({3, 'w', 'w', 'w', 2, 'k', 'q', 0, 9}), "www.kq@8");
    EXPECT_EQ(StrictName({0}), "@1");
    EXPECT_EQ(StrictName({0, 7}), "@1");
    EXPECT_EQ(StrictName({2, 'k', 'q', 0, 1, 'a', 0xC0, 0, 9}, 4), "a.kq@8");
    EXPECT_EQ(StrictName({2, 'k', 'q', 0, 1, 'b', 0xC0, 0, 1, 'a', 0xC0, 4}, 8), "a.b.kq@12");
}

TEST(NetDNSReaderStrict, ReadStrictName_PointersThatDoNotLeadToTheFront_False)
{
    EXPECT_EQ(StrictName({0xC0, 0}), "false");
    EXPECT_EQ(StrictName({0xC0, 2, 1, 'a', 0}), "false");
    EXPECT_EQ(StrictName({1, 'a', 0xC0, 0}), "false");
    EXPECT_EQ(StrictName({0xC0, 2, 0xC0, 0}, 2), "false");
    EXPECT_EQ(StrictName({0xFF, 0xFF}), "false");
}

TEST(NetDNSReaderStrict, ReadStrictName_OddLabels_False)
{
    EXPECT_EQ(StrictName({3, 'a', '.', 'b', 0}), "false");
    EXPECT_EQ(StrictName({3, 'a', 0, 'b', 0}), "false");
    EXPECT_EQ(StrictName({0x80, 'a', 0}), "false");
    Bytes longest{63};
    longest.insert(longest.end(), 63, 'l');
    longest.push_back(0);
    EXPECT_EQ(StrictName(longest), std::string(63, 'l') + "@65");
    longest[0] = 64;
    longest.insert(longest.end() - 1, 'l');
    EXPECT_EQ(StrictName(longest), "false");
}

TEST(NetDNSReaderStrict, ReadStrictName_CutAnywhere_False)
{
    const Bytes whole{3, 'w', 'w', 'w', 2, 'k', 'q', 0};
    for (std::size_t size = 0; size < whole.size(); ++size)
        EXPECT_EQ(StrictName(Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size))), "false") << size;
}

TEST(NetDNSReaderStrict, ReadStrictName_255BytesOnTheWire_TrueAnd256False)
{
    for (const int last : {61, 62}) {
        Bytes bytes;
        for (const int length : {63, 63, 63, last}) {
            bytes.push_back(static_cast<BYTE>(length));
            bytes.insert(bytes.end(), static_cast<std::size_t>(length), 'n');
        }
        bytes.push_back(0);
        EXPECT_EQ(StrictName(bytes) != "false", bytes.size() <= 255) << bytes.size();
    }
}

TEST(NetDNSAnswer, Parse_EachType_Records)
{
    EXPECT_THAT(Texts(Parse(NetDNS::RR_A, Question(1).AddA("10.0.0.2").AddA("10.0.0.1").Build())),
                ElementsAre("10.0.0.2", "10.0.0.1"));
    const Bytes address{0x20, 0x01, 0x0D, 0xB8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
    EXPECT_THAT(Texts(Parse(NetDNS::RR_AAAA, Question(28).AddRecord(DNSMessage::Pointer(12), 28, 60, address).Build())),
                ElementsAre("2001:db8::1"));
    EXPECT_THAT(Texts(Parse(NetDNS::RR_PTR, Question(12).AddPtr("a.example").Build())), ElementsAre("a.example"));
    EXPECT_THAT(Texts(Parse(NetDNS::RR_MX, Question(15).AddMx(9, "b").AddMx(9, "c").AddMx(5, "a").Build())),
                ElementsAre("a", "b", "c"));
    const NetDNSAnswer service =
        Parse(NetDNS::RR_SRV, Question(33).AddSrv(2, 0, 21, "b").AddSrv(1, 7, 2121, "a.example").Build());
    ASSERT_THAT(Texts(service), ElementsAre("a.example", "b"));
    EXPECT_EQ(service.GetRecords()[0].priority, 1);
    EXPECT_EQ(service.GetRecords()[0].weight, 7);
    EXPECT_EQ(service.GetRecords()[0].port, 2121);
}

TEST(NetDNSAnswer, Parse_TextOfSeveralStrings_JoinedWhole)
{
    for (const NetDNS::RRTYPE type : {NetDNS::RR_TXT, NetDNS::RR_SPF}) {
        const NetDNSAnswer answer = Parse(
            type,
            Question(type).AddText(type, {"v=spf1 ", "", "-all"}).AddText(type, {std::string(255, 't'), "u"}).Build());
        EXPECT_EQ(answer.GetCode(), 0);
        EXPECT_THAT(Texts(answer), ElementsAre("v=spf1 -all", std::string(255, 't') + "u"));
    }
}

TEST(NetDNSAnswer, Parse_NoMailHere_OneExchangerWithoutAName)
{
    // RFC 7505, followed by another record that must not become a part of it.
    const NetDNSAnswer answer =
        Parse(NetDNS::RR_MX, Question(15).AddRecord(DNSMessage::Pointer(12), 15, 60, {0, 0, 0}).AddMx(5, "mx").Build());
    EXPECT_THAT(Texts(answer), ElementsAre("", "mx"));
    EXPECT_THAT(Texts(Parse(NetDNS::RR_MX, Question(15).AddRecord(DNSMessage::Pointer(12), 15, 60, {0, 0, 0}).Build())),
                ElementsAre(""));
}

TEST(NetDNSAnswer, Parse_AliasesInOneAnswer_FollowedInAnyOrder)
{
    DNSMessage message = Question(1);
    message.AddRecord(DNSMessage::EncodeName("end.example"), 1, 50, {10, 0, 0, 7});
    message.AddRecord(DNSMessage::EncodeName("MIDDLE.example"), 5, 40, DNSMessage::EncodeName("end.EXAMPLE"));
    message.AddCName("middle.example", 60);
    const NetDNSAnswer answer = Parse(NetDNS::RR_A, message.Build());
    EXPECT_EQ(answer.GetCode(), 0);
    EXPECT_THAT(Texts(answer), ElementsAre("10.0.0.7"));
    EXPECT_EQ(answer.GetAlias(), "");
    EXPECT_EQ(answer.GetLifeSec(), 40U);
}

TEST(NetDNSAnswer, Parse_AliasWithoutItsRecords_ToBeAskedFor)
{
    const NetDNSAnswer answer = Parse(NetDNS::RR_A, Question(1).AddCName("real.example", 60).Build());
    EXPECT_EQ(answer.GetCode(), 0);
    EXPECT_THAT(Texts(answer), IsEmpty());
    EXPECT_EQ(answer.GetAlias(), "real.example");
    // The zone's word that there is nothing decides it.
    EXPECT_EQ(Parse(NetDNS::RR_A, Question(1).AddCName("real.example", 60).AddSoa(60, 30).Build()).GetCode(), 51);
    EXPECT_EQ(Parse(NetDNS::RR_A, Question(1).AddCName("real.example", 60).Code(3).Build()).GetCode(), 54);
}

TEST(NetDNSAnswer, Parse_AliasesInACircleOrTooMany_53)
{
    DNSMessage circle = Question(1);
    circle.AddCName("other.example").AddRecord(DNSMessage::EncodeName("other.example"), 5, 60, DNSMessage::Pointer(12));
    EXPECT_EQ(Parse(NetDNS::RR_A, circle.Build()).GetCode(), 53);
    for (const int count : {16, 17}) {
        DNSMessage chain = Question(1);
        chain.AddCName("n1");
        for (int i = 1; i < count; ++i)
            chain.AddRecord(DNSMessage::EncodeName("n" + std::to_string(i)), 5, 60,
                            DNSMessage::EncodeName("n" + std::to_string(i + 1)));
        chain.AddRecord(DNSMessage::EncodeName("n" + std::to_string(count)), 1, 60, {10, 0, 0, 1});
        EXPECT_EQ(Parse(NetDNS::RR_A, chain.Build()).GetCode(), count == 16 ? 0 : 53) << count;
    }
}

TEST(NetDNSAnswer, Parse_RecordsOfOthers_LeftAside)
{
    DNSMessage message = Question(1);
    message.AddRecord(DNSMessage::EncodeName("other.example"), 1, 60, {10, 9, 9, 9});
    message.AddRecord(DNSMessage::Pointer(12), 16, 60, {1, 't'});
    message.AddA("10.0.0.1");
    EXPECT_THAT(Texts(Parse(NetDNS::RR_A, message.Build())), ElementsAre("10.0.0.1"));
    Bytes otherClass = Question(1).AddA("10.0.0.1").Build();
    otherClass[otherClass.size() - 4 - 8 + 1] = 3;
    EXPECT_EQ(Parse(NetDNS::RR_A, otherClass).GetCode(), 51);
}

TEST(NetDNSAnswer, Parse_DataThatDoesNotFitItsLength_53)
{
    const auto code = [](unsigned type, const Bytes& data, long length = -1) {
        return Parse(static_cast<NetDNS::RRTYPE>(type),
                     Question(type).AddRecord(DNSMessage::Pointer(12), type, 60, data, length).AddA("1.1.1.1").Build())
            .GetCode();
    };
    EXPECT_EQ(code(1, {10, 0, 0}), 53);
    EXPECT_EQ(code(1, {10, 0, 0, 1, 0}), 53);
    EXPECT_EQ(code(28, Bytes(15)), 53);
    EXPECT_EQ(code(28, Bytes(16)), 0);
    EXPECT_EQ(code(16, {5, 'a', 'b'}), 53);
    EXPECT_EQ(code(12, {1, 'a', 0, 0}), 53);
    EXPECT_EQ(code(15, {0}), 53);
    EXPECT_EQ(code(33, {0, 1, 0, 2, 0}), 53);
    EXPECT_EQ(Parse(NetDNS::RR_A, Question(1).AddCName("x").Raw({1}).Build()).GetAlias(), "x");
    EXPECT_EQ(Parse(NetDNS::RR_A, Question(1).AddRecord(DNSMessage::Pointer(12), 5, 60, {0}).Build()).GetCode(), 53);
}

TEST(NetDNSAnswer, Parse_ResponseCodes_CodesOfTheResolver)
{
    const int expected[16] = {51, 52, 53, 54, 55, 56, 53, 53, 53, 53, 53, 53, 53, 53, 53, 53};
    for (unsigned code = 0; code < 16; ++code) {
        EXPECT_EQ(Parse(NetDNS::RR_A, Question(1).Code(code).Build()).GetCode(), expected[code]) << code;
        // Records do not save an answer that says it failed.
        const NetDNSAnswer answer = Parse(NetDNS::RR_A, Question(1).Code(code).AddA("10.0.0.1").Build());
        EXPECT_EQ(answer.GetCode(), code == 0 ? 0 : expected[code]);
        EXPECT_EQ(answer.GetRecords().size(), code == 0 ? 1U : 0U);
    }
}

// Once counted as "no records", so that no other server was asked.
TEST(NetDNSAnswer, Parse_ReferralToOtherServers_NoVerdict)
{
    const Bytes nameServer{0xC0, 12, 0, 2, 0, 1, 0, 0, 0, 60, 0, 2, 0xC0, 12};
    const auto parse = [&nameServer](DNSMessage message) {
        Bytes bytes = message.Raw(nameServer).Build();
        ++bytes[9]; // of the authorities
        return Parse(NetDNS::RR_A, bytes);
    };
    EXPECT_EQ(parse(Question(1)).GetCode(), 53);
    EXPECT_FALSE(parse(Question(1)).IsVerdict());
    EXPECT_EQ(parse(Question(1).AddA("10.0.0.1")).GetCode(), 0);
    EXPECT_EQ(parse(Question(1).AddCName("x")).GetAlias(), "x");
    EXPECT_EQ(parse(Question(1).AddSoa(60, 30)).GetCode(), 51) << "who knows the zone's start has looked";
    EXPECT_EQ(parse(Question(1).Code(3)).GetCode(), 54);
}

TEST(NetDNSAnswer, Parse_Truncated_SaidSoAndWithoutRecords)
{
    Bytes message = Question(1).AddA("10.0.0.1").Build();
    message[2] |= 0x02;
    const NetDNSAnswer answer = Parse(NetDNS::RR_A, message);
    EXPECT_TRUE(answer.IsTruncated());
    EXPECT_THAT(Texts(answer), IsEmpty());
}

TEST(NetDNSAnswer, Parse_Lives_ShortestCountsAndTheTopBitMeansNone)
{
    EXPECT_EQ(Parse(NetDNS::RR_A, Question(1).AddA("1.1.1.1", 90).AddA("1.1.1.2", 7).Build()).GetLifeSec(), 7U);
    EXPECT_EQ(Parse(NetDNS::RR_A, Question(1).AddA("1.1.1.1", 0x80000001U).Build()).GetLifeSec(), 0U);
    EXPECT_EQ(Parse(NetDNS::RR_A, Question(1).Code(3).AddSoa(60, 30).Build()).GetLifeSec(), 30U);
    EXPECT_EQ(Parse(NetDNS::RR_A, Question(1).AddSoa(20, 30).Build()).GetLifeSec(), 20U);
    EXPECT_EQ(Parse(NetDNS::RR_A, Question(1).Build()).GetLifeSec(), 0U);
}

TEST(NetDNSAnswer, Parse_UnfoldingToMoreThan256KiB_53)
{
    // Each record names one of 253 bytes by a pointer; its owner is one too.
    Bytes longest;
    for (const int length : {63, 63, 63, 61}) {
        longest.push_back(static_cast<BYTE>(length));
        longest.insert(longest.end(), static_cast<std::size_t>(length), 'n');
    }
    longest.push_back(0);
    for (const int records : {1000, 1100}) {
        DNSMessage message = Question(12);
        message.AddRecord(DNSMessage::Pointer(12), 12, 60, longest);
        for (int i = 0; i < records; ++i)
            message.AddRecord(DNSMessage::Pointer(12), 12, 60, DNSMessage::Pointer(12 + 14 + 4 + 12));
        EXPECT_EQ(Parse(NetDNS::RR_PTR, message.Build()).GetCode(), records == 1000 ? 0 : 53) << records;
    }
}

TEST(NetDNSAnswer, Parse_CutAnywhere_53AndNothingKept)
{
    const Bytes whole = Question(15).AddMx(10, "a.example").AddMx(5, "b.example").Build();
    ASSERT_EQ(Parse(NetDNS::RR_MX, whole).GetCode(), 0);
    for (std::size_t size = 0; size < whole.size(); ++size) {
        const NetDNSAnswer answer =
            Parse(NetDNS::RR_MX, Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)));
        EXPECT_EQ(answer.GetCode(), 53) << size;
        EXPECT_THAT(Texts(answer), IsEmpty());
    }
}

TEST(NetDNSAnswer, Parse_EveryByteChangedToEveryValue_RecordsOrACode)
{
    const Bytes good = Question(33).AddSrv(1, 2, 3, "a.example").AddCName("b.example").AddSoa(60, 30).Build();
    for (std::size_t place = 0; place < good.size(); ++place) {
        for (int value = 0; value < 256; ++value) {
            Bytes bad = good;
            bad[place] = static_cast<BYTE>(value);
            const NetDNSAnswer answer = Parse(NetDNS::RR_SRV, bad);
            EXPECT_EQ(answer.GetCode() != 0, answer.GetRecords().empty() && answer.GetAlias().empty());
        }
    }
}

} // namespace
