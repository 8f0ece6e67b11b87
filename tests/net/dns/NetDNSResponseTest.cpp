#include "net/dns/NetDNSResponse.h"
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

/// What became of one message.
struct OUTCOME
{
    bool ok = false;
    std::vector<std::string> records; ///< MX: "priority name"
    std::vector<int> codes;
    std::string cname;
    std::uint32_t minimumTTL = 0;
};

OUTCOME Parse(NetDNS::RRTYPE type, const Bytes& message, std::vector<std::string> before = {})
{
    VectorPtr<String> texts;
    VectorPtr<NetDNS::MX_RECORD> exchangers;
    for (const std::string& text : before)
        texts.Give(new String(text));
    NetDNSResponse response = type == NetDNS::RR_MX ? NetDNSResponse(exchangers) : NetDNSResponse(type, texts);
    Messages msgs;
    OUTCOME outcome;
    // A copy of exactly the message's size, so that a sanitizer sees any read behind it.
    const Bytes copy(message);
    outcome.ok = response.Parse(copy.data(), static_cast<ULONG>(copy.size()), msgs);
    for (ULONG i = 0; i < texts.GetCount(); ++i)
        outcome.records.push_back(texts.Get(i).str());
    for (ULONG i = 0; i < exchangers.GetCount(); ++i)
        outcome.records.push_back(std::to_string(exchangers.Get(i).priority) + " " + exchangers.Get(i).name.str());
    for (ULONG i = 0; i < msgs.GetMessageCount(); ++i)
        outcome.codes.push_back(msgs.Get(i));
    outcome.cname = response.GetCName().str();
    outcome.minimumTTL = response.GetMinimumTTL();
    return outcome;
}

DNSMessage Question(unsigned type)
{
    return DNSMessage("host.example", type);
}

TEST(NetDNSResponse, Parse_ARecords_InOrderOfTheAnswer)
{
    const OUTCOME outcome =
        Parse(NetDNS::RR_A, Question(1).AddA("10.0.0.2").AddA("255.0.10.255").AddA("10.0.0.1").Build());
    EXPECT_TRUE(outcome.ok);
    EXPECT_THAT(outcome.records, ElementsAre("10.0.0.2", "255.0.10.255", "10.0.0.1"));
    EXPECT_THAT(outcome.codes, IsEmpty());
    EXPECT_EQ(outcome.cname, "");
}

TEST(NetDNSResponse, Parse_PtrRecords_Names)
{
    const OUTCOME outcome = Parse(NetDNS::RR_PTR, Question(12).AddPtr("a.example").AddPtr("b.example").Build());
    EXPECT_TRUE(outcome.ok);
    EXPECT_THAT(outcome.records, ElementsAre("a.example", "b.example"));
}

TEST(NetDNSResponse, Parse_MxRecords_AscendingByPriority)
{
    const OUTCOME outcome = Parse(
        NetDNS::RR_MX, Question(15).AddMx(10, "ten").AddMx(5, "five").AddMx(65535, "last").AddMx(0, "null").Build());
    EXPECT_TRUE(outcome.ok);
    EXPECT_THAT(outcome.records, ElementsAre("0 null", "5 five", "10 ten", "65535 last"));
}

TEST(NetDNSResponse, Parse_MxRecordsOfEqualPriority_ReverseOrder_KeptOnPurpose)
{
    const OUTCOME outcome = Parse(
        NetDNS::RR_MX, Question(15).AddMx(10, "a").AddMx(10, "b").AddMx(5, "c").AddMx(10, "d").AddMx(5, "e").Build());
    EXPECT_THAT(outcome.records, ElementsAre("5 e", "5 c", "10 d", "10 b", "10 a"));
}

TEST(NetDNSResponse, Parse_TextOfOneString_WholeString)
{
    const std::string longest(255, 't');
    const OUTCOME outcome =
        Parse(NetDNS::RR_TXT, Question(16).AddText(16, {longest}).AddText(16, {""}).AddText(16, {"x y"}).Build());
    EXPECT_TRUE(outcome.ok);
    EXPECT_THAT(outcome.records, ElementsAre(longest, "", "x y"));
}

TEST(NetDNSResponse, Parse_TextWithBytesOfEveryKind_Unchanged)
{
    const std::string odd("\0\xFF\"\r\n", 5);
    EXPECT_THAT(Parse(NetDNS::RR_SPF, Question(99).AddText(99, {odd}).Build()).records, ElementsAre(odd));
}

TEST(NetDNSResponse, Parse_LastTextOfTwoStrings_FirstStringOnly_KeptOnPurpose)
{
    for (const NetDNS::RRTYPE type : {NetDNS::RR_TXT, NetDNS::RR_SPF}) {
        const OUTCOME outcome = Parse(type, Question(type).AddText(type, {"first", "second"}).Build());
        EXPECT_TRUE(outcome.ok);
        EXPECT_THAT(outcome.records, ElementsAre("first"));
    }
}

TEST(NetDNSResponse, Parse_TextOfTwoStringsThenAnother_RestReadAsTheNextOwnerName_KeptOnPurpose)
{
    // The second string looks like a label in front of the pointer that is the next record's owner name.
    const OUTCOME outcome =
        Parse(NetDNS::RR_TXT, Question(16).AddText(16, {"first", "second"}).AddText(16, {"third"}).Build());
    EXPECT_TRUE(outcome.ok);
    EXPECT_THAT(outcome.records, ElementsAre("first", "third"));
}

TEST(NetDNSResponse, Parse_TextOfTwoStringsThenAnother_RestThatIsNoNameFails53_KeptOnPurpose)
{
    // The length byte of the second string looks like half a pointer, to a place outside the message.
    const OUTCOME outcome = Parse(
        NetDNS::RR_TXT, Question(16).AddText(16, {"first", std::string(0xF0, 's')}).AddText(16, {"third"}).Build());
    EXPECT_FALSE(outcome.ok);
    EXPECT_THAT(outcome.codes, ElementsAre(53));
    EXPECT_THAT(outcome.records, IsEmpty());
}

TEST(NetDNSResponse, Parse_WholeRecordHiddenInTheRestOfAText_ReadAsTheNextAnswer_KeptOnPurpose)
{
    // A record within the data of the first one; two answers are claimed and both are found.
    Bytes data{1, 'a'};
    const Bytes inner{0xC0, 12, 0, 16, 0, 1, 0, 1, 0, 0, 0, 2, 1, 'b'};
    data.insert(data.end(), inner.begin(), inner.end());
    const OUTCOME outcome =
        Parse(NetDNS::RR_TXT, Question(16).AddRecord(DNSMessage::Pointer(12), 16, 6000, data).Claim(2).Build());
    EXPECT_TRUE(outcome.ok);
    EXPECT_THAT(outcome.records, ElementsAre("a", "b"));
}

TEST(NetDNSResponse, Parse_DataLongerThanTheRecordSays_ReadAllTheSame_KeptOnPurpose)
{
    const OUTCOME outcome =
        Parse(NetDNS::RR_A, Question(1).AddRecord(DNSMessage::Pointer(12), 1, 60, {10, 0, 0, 1}, 0).Build());
    EXPECT_TRUE(outcome.ok);
    EXPECT_THAT(outcome.records, ElementsAre("10.0.0.1"));
}

TEST(NetDNSResponse, Parse_DataLengthPastTheEnd_Fails53)
{
    for (const long length : {5L, 1024L, 65535L}) {
        const OUTCOME outcome =
            Parse(NetDNS::RR_A, Question(1).AddRecord(DNSMessage::Pointer(12), 1, 60, {10, 0, 0, 1}, length).Build());
        EXPECT_FALSE(outcome.ok);
        EXPECT_THAT(outcome.codes, ElementsAre(53));
        EXPECT_THAT(outcome.records, IsEmpty());
    }
}

TEST(NetDNSResponse, Parse_TextLengthPastTheEnd_Fails53)
{
    const OUTCOME outcome =
        Parse(NetDNS::RR_TXT, Question(16).AddRecord(DNSMessage::Pointer(12), 16, 60, {5, 'a', 'b'}).Build());
    EXPECT_FALSE(outcome.ok);
    EXPECT_THAT(outcome.codes, ElementsAre(53));
}

TEST(NetDNSResponse, Parse_DataThatEndsTooEarly_Fails53AndDropsEarlierRecords)
{
    for (const auto& [type, data] : std::vector<std::pair<NetDNS::RRTYPE, Bytes>>{
             {NetDNS::RR_A, {10, 0, 0}},
             {NetDNS::RR_A, {}},
             {NetDNS::RR_MX, {0}},
             {NetDNS::RR_MX, {0, 10}},
             {NetDNS::RR_PTR, {3, 'a', 'b'}},
             {NetDNS::RR_TXT, {}},
             {NetDNS::RR_SPF, {1}},
         })
    {
        SCOPED_TRACE(std::to_string(type) + ", " + std::to_string(data.size()) + " bytes");
        const auto code = static_cast<unsigned>(type);
        const OUTCOME outcome =
            Parse(type, Question(code).AddRecord(DNSMessage::Pointer(12), code, 60, data).Build(), {"earlier"});
        EXPECT_FALSE(outcome.ok);
        EXPECT_THAT(outcome.codes, ElementsAre(53));
        if (type != NetDNS::RR_MX) {
            EXPECT_THAT(outcome.records, IsEmpty());
        }
    }
}

TEST(NetDNSResponse, Parse_TTLBelowFloor_5000_KeptOnPurpose)
{
    for (const std::uint32_t ttl : {0U, 60U, 4999U, 5000U})
        EXPECT_EQ(Parse(NetDNS::RR_A, Question(1).AddA("10.0.0.1", ttl).Build()).minimumTTL, 5000U) << ttl;
    EXPECT_EQ(Parse(NetDNS::RR_A, Question(1).AddA("10.0.0.1", 5001).Build()).minimumTTL, 5001U);
}

TEST(NetDNSResponse, Parse_SeveralTTLs_SmallestCounts)
{
    const OUTCOME outcome =
        Parse(NetDNS::RR_A, Question(1).AddA("1.1.1.1", 9000).AddA("1.1.1.2", 7000).AddA("1.1.1.3", 8000).Build());
    EXPECT_EQ(outcome.minimumTTL, 7000U);
    EXPECT_EQ(Parse(NetDNS::RR_A, Question(1).AddA("1.1.1.1", 0xFFFFFFFFU).Build()).minimumTTL, 0xFFFFFFFFU);
}

TEST(NetDNSResponse, Parse_CNameAndA_TargetOnly_KeptOnPurpose)
{
    const OUTCOME outcome = Parse(NetDNS::RR_A, Question(1).AddCName("real.example").AddA("10.0.0.1").Build());
    EXPECT_TRUE(outcome.ok);
    EXPECT_EQ(outcome.cname, "real.example");
    EXPECT_THAT(outcome.records, IsEmpty());
}

TEST(NetDNSResponse, Parse_AThenCName_RecordInFrontStays_KeptOnPurpose)
{
    const OUTCOME outcome = Parse(NetDNS::RR_A, Question(1).AddA("10.0.0.1").AddCName("real.example").Build());
    EXPECT_TRUE(outcome.ok);
    EXPECT_EQ(outcome.cname, "real.example");
    EXPECT_THAT(outcome.records, ElementsAre("10.0.0.1"));
}

TEST(NetDNSResponse, Parse_GarbageBehindACName_Ignored)
{
    const OUTCOME outcome =
        Parse(NetDNS::RR_MX, Question(15).AddCName("real.example").Raw({0xFF, 0xFF, 0xFF}).Claim(9).Build());
    EXPECT_TRUE(outcome.ok);
    EXPECT_EQ(outcome.cname, "real.example");
}

TEST(NetDNSResponse, Parse_EmptyCName_Fails53)
{
    const OUTCOME outcome = Parse(NetDNS::RR_A, Question(1).AddRecord(DNSMessage::Pointer(12), 5, 60, {0, 0}).Build());
    EXPECT_FALSE(outcome.ok);
    EXPECT_THAT(outcome.codes, ElementsAre(53));
}

TEST(NetDNSResponse, Parse_MalformedCName_Fails53)
{
    const OUTCOME outcome =
        Parse(NetDNS::RR_A, Question(1).AddRecord(DNSMessage::Pointer(12), 5, 60, {9, 'a', 'b'}).Build());
    EXPECT_FALSE(outcome.ok);
    EXPECT_THAT(outcome.codes, ElementsAre(53));
}

TEST(NetDNSResponse, Parse_OtherType_Fails53AndDropsEarlierRecords)
{
    const OUTCOME outcome = Parse(
        NetDNS::RR_A,
        Question(1).AddA("10.0.0.1").AddRecord(DNSMessage::Pointer(12), DNSMessage::OTHER, 60, Bytes(16)).Build());
    EXPECT_FALSE(outcome.ok);
    EXPECT_THAT(outcome.codes, ElementsAre(53));
    EXPECT_THAT(outcome.records, IsEmpty());
}

TEST(NetDNSResponse, Parse_RecordsOfAnotherAskedType_Fails53)
{
    EXPECT_FALSE(Parse(NetDNS::RR_TXT, Question(16).AddText(99, {"v=spf1"}).Build()).ok);
    EXPECT_FALSE(Parse(NetDNS::RR_SPF, Question(99).AddText(16, {"v=spf1"}).Build()).ok);
    EXPECT_FALSE(Parse(NetDNS::RR_A, Question(1).AddPtr("a.example").Build()).ok);
}

TEST(NetDNSResponse, Parse_OwnerIdAndClassOfAnotherKind_Accepted_KeptOnPurpose)
{
    Bytes message = Question(1).AddRecord(DNSMessage::EncodeName("other.example"), 1, 6000, {10, 0, 0, 9}).Build();
    message[0] = 0x12;                       // the id
    message[2] |= 0x02;                      // the truncation flag
    message[message.size() - 4 - 8 + 1] = 3; // the class of the record
    const OUTCOME outcome = Parse(NetDNS::RR_A, message);
    EXPECT_TRUE(outcome.ok);
    EXPECT_THAT(outcome.records, ElementsAre("10.0.0.9"));
}

TEST(NetDNSResponse, Parse_ResponseCodesWithoutAnswers_OneCodeEach)
{
    const int expected[16] = {51, 52, 53, 54, 55, 56, 53, 53, 53, 53, 53, 53, 53, 53, 53, 53};
    for (unsigned code = 0; code < 16; ++code) {
        const OUTCOME outcome = Parse(NetDNS::RR_A, Question(1).Code(code).Build());
        EXPECT_FALSE(outcome.ok);
        EXPECT_THAT(outcome.codes, ElementsAre(expected[code])) << code;
    }
}

TEST(NetDNSResponse, Parse_ResponseCodesWithAnswers_ParseGoesOnAndSucceeds_KeptOnPurpose)
{
    const int expected[16] = {0, 52, 53, 54, 55, 56, 53, 53, 53, 53, 53, 53, 53, 53, 53, 53};
    for (unsigned code = 0; code < 16; ++code) {
        const OUTCOME outcome = Parse(NetDNS::RR_A, Question(1).Code(code).AddA("10.0.0.1").Build());
        EXPECT_TRUE(outcome.ok) << code;
        EXPECT_THAT(outcome.records, ElementsAre("10.0.0.1"));
        if (code == 0) {
            EXPECT_THAT(outcome.codes, IsEmpty());
        } else {
            EXPECT_THAT(outcome.codes, ElementsAre(expected[code])) << code;
        }
    }
}

TEST(NetDNSResponse, Parse_ShorterThanAHeader_Fails53)
{
    const Bytes whole = Question(1).Build();
    for (std::ptrdiff_t size = 0; size < 12; ++size) {
        const OUTCOME outcome = Parse(NetDNS::RR_A, Bytes(whole.begin(), whole.begin() + size));
        EXPECT_FALSE(outcome.ok);
        EXPECT_THAT(outcome.codes, ElementsAre(53)) << size;
    }
}

TEST(NetDNSResponse, Parse_HeaderAlone_51WithoutAnswersElse53)
{
    EXPECT_THAT(Parse(NetDNS::RR_A, {0, 0, 0x81, 0x80, 0, 0, 0, 0, 0, 0, 0, 0}).codes, ElementsAre(51));
    EXPECT_THAT(Parse(NetDNS::RR_A, {0, 0, 0x81, 0x80, 0, 0, 0, 1, 0, 0, 0, 0}).codes, ElementsAre(53));
}

TEST(NetDNSResponse, Parse_TruncatedAtEveryLength_Fails53AndKeepsNothing)
{
    const struct
    {
        NetDNS::RRTYPE type;
        Bytes message;
    } cases[] = {
        {NetDNS::RR_A, Question(1).AddA("10.0.0.1").AddA("10.0.0.2").Build()},
        {NetDNS::RR_A, Question(1).AddCName("real.example").Build()},
        {NetDNS::RR_PTR, Question(12).AddPtr("a.example").AddPtr("b.example").Build()},
        {NetDNS::RR_MX, Question(15).AddMx(10, "a.example").AddMx(20, "b.example").Build()},
        {NetDNS::RR_TXT, Question(16).AddText(16, {"one"}).AddText(16, {"two"}).Build()},
        {NetDNS::RR_SPF, Question(99).AddText(99, {"one"}).AddText(99, {"two"}).Build()},
    };
    for (const auto& item : cases) {
        ASSERT_TRUE(Parse(item.type, item.message).ok);
        for (std::size_t size = 0; size < item.message.size(); ++size) {
            const OUTCOME outcome =
                Parse(item.type, Bytes(item.message.begin(), item.message.begin() + static_cast<std::ptrdiff_t>(size)));
            EXPECT_FALSE(outcome.ok) << item.type << " cut to " << size;
            EXPECT_THAT(outcome.codes, ElementsAre(53));
            EXPECT_THAT(outcome.records, IsEmpty());
        }
    }
}

TEST(NetDNSResponse, Parse_65535AnswersClaimed_Fails53)
{
    const OUTCOME outcome = Parse(NetDNS::RR_A, Question(1).AddA("10.0.0.1").Claim(65535).Build());
    EXPECT_FALSE(outcome.ok);
    EXPECT_THAT(outcome.codes, ElementsAre(53));
    EXPECT_THAT(outcome.records, IsEmpty());
}

TEST(NetDNSResponse, Parse_FewerAnswersClaimedThanThere_RestIgnored)
{
    EXPECT_THAT(Parse(NetDNS::RR_A, Question(1).AddA("10.0.0.1").AddA("10.0.0.2").Claim(1).Build()).records,
                ElementsAre("10.0.0.1"));
}

TEST(NetDNSResponse, Parse_PointerLoopsAndForwardPointers_LoopsFailForwardOnesWork)
{
    const unsigned data = 12 + 14 + 4 + 2 + 10; // where the data of the first record begins
    const OUTCOME loop = Parse(
        NetDNS::RR_PTR, Question(12).AddRecord(DNSMessage::Pointer(12), 12, 60, DNSMessage::Pointer(data)).Build());
    EXPECT_FALSE(loop.ok);
    EXPECT_THAT(loop.codes, ElementsAre(53));
    const OUTCOME forward =
        Parse(NetDNS::RR_PTR, Question(12)
                                  .AddRecord(DNSMessage::Pointer(12), 12, 60, DNSMessage::Pointer(data + 2))
                                  .Raw(DNSMessage::EncodeName("later.example"))
                                  .Build());
    EXPECT_TRUE(forward.ok);
    EXPECT_THAT(forward.records, ElementsAre("later.example"));
}

TEST(NetDNSResponse, Parse_PointerPastTheEnd_Fails53)
{
    const OUTCOME outcome = Parse(
        NetDNS::RR_PTR, Question(12).AddRecord(DNSMessage::Pointer(12), 12, 60, DNSMessage::Pointer(0x3FFF)).Build());
    EXPECT_FALSE(outcome.ok);
    EXPECT_THAT(outcome.codes, ElementsAre(53));
}

TEST(NetDNSResponse, Parse_FailureBeforeTheRecords_KeepsTheRecordsOfAnEarlierPass)
{
    EXPECT_THAT(Parse(NetDNS::RR_A, Question(1).Build(), {"10.9.9.9"}).records, ElementsAre("10.9.9.9"));
    EXPECT_THAT(Parse(NetDNS::RR_A, Question(1).AddA("10.0.0.1").Build(), {"10.9.9.9"}).records,
                ElementsAre("10.9.9.9", "10.0.0.1"));
    EXPECT_THAT(Parse(NetDNS::RR_A, Question(1).AddPtr("x").Build(), {"10.9.9.9"}).records, IsEmpty());
}

/// PTR or MX records whose names are all pointers to the first one: the text of each unfolds again.
DNSMessage Unfolding(unsigned type, unsigned labels, unsigned records)
{
    const Bytes priority = type == DNSMessage::MX ? Bytes{0, 1} : Bytes();
    Bytes data = priority;
    for (unsigned i = 0; i < labels; ++i) {
        data.push_back(100);
        data.insert(data.end(), 100, 'x');
    }
    data.push_back(0);
    const auto name = static_cast<unsigned>(12 + 14 + 4 + 2 + 10 + priority.size());
    Bytes again = priority;
    again.push_back(static_cast<BYTE>(0xC0 | name >> 8));
    again.push_back(static_cast<BYTE>(name & 0xFF));
    DNSMessage message = Question(type);
    message.AddRecord(DNSMessage::Pointer(12), type, 6000, data);
    for (unsigned i = 1; i < records; ++i)
        message.AddRecord(DNSMessage::Pointer(12), type, 6000, again);
    return message;
}

TEST(NetDNSResponse, Parse_RecordsThatUnfoldTo64KiB_TakenAndMoreFails53)
{
    // With its owner each record has 12 + 10 * 101 - 1 bytes of text.
    for (const unsigned type : {DNSMessage::PTR, DNSMessage::MX}) {
        for (const unsigned records : {60U, 64U, 65U, 200U}) {
            const OUTCOME outcome = Parse(static_cast<NetDNS::RRTYPE>(type), Unfolding(type, 10, records).Build());
            EXPECT_EQ(outcome.ok, records * 1021 <= 65536) << records;
            EXPECT_EQ(outcome.records.size(), outcome.ok ? records : 0U);
            EXPECT_EQ(outcome.codes, outcome.ok ? std::vector<int>{} : std::vector<int>{53});
        }
    }
}

TEST(NetDNSResponse, Parse_TextsOwnersAndAliasesThatUnfoldTo64KiB_CountTogether)
{
    DNSMessage texts = Question(16);
    for (int i = 0; i < 245; ++i) // 245 * (255 + 12) = 65415
        texts.AddText(16, {std::string(255, 't')});
    EXPECT_TRUE(Parse(NetDNS::RR_TXT, texts.Build()).ok);
    EXPECT_FALSE(Parse(NetDNS::RR_TXT, texts.AddText(16, {std::string(255, 't')}).Build()).ok);

    const std::string alias(100, 'a');                    // the owner of the alias counts, and so does its target
    DNSMessage fits = Unfolding(DNSMessage::PTR, 10, 64); // 65344
    EXPECT_TRUE(Parse(NetDNS::RR_PTR, fits.AddCName(alias).Build()).ok);
    DNSMessage tooLong = Unfolding(DNSMessage::PTR, 10, 64);
    EXPECT_FALSE(Parse(NetDNS::RR_PTR, tooLong.AddCName(alias + "." + alias).Build()).ok);
}

TEST(NetDNSResponse, Parse_FullestHonestAnswersOfADatagram_Taken)
{
    // As many records as 1024 bytes hold, each naming the longest name there is.
    Bytes data;
    for (int i = 0; i < 4; ++i) {
        const unsigned char length = i < 3 ? 63 : 61;
        data.push_back(length);
        data.insert(data.end(), length, 'n');
    }
    data.push_back(0);
    const unsigned name = 12 + 14 + 4 + 2 + 10;
    DNSMessage message = Question(12);
    message.AddRecord(DNSMessage::Pointer(12), 12, 6000, data);
    unsigned records = 1;
    while (message.Build().size() + 14 <= 1024) {
        message.AddRecord(DNSMessage::Pointer(name), 12, 6000, DNSMessage::Pointer(name));
        ++records;
    }
    const OUTCOME outcome = Parse(NetDNS::RR_PTR, message.Build());
    EXPECT_TRUE(outcome.ok);
    EXPECT_EQ(outcome.records.size(), records);
}

TEST(NetDNSResponse, Parse_AliasWithALengthOfItsOwn_OnlyHeldAgainstTheMessage_KeptOnPurpose)
{
    const Bytes target = DNSMessage::EncodeName("real.example");
    for (const long length : {0L, 3L, static_cast<long>(target.size())}) {
        const OUTCOME outcome =
            Parse(NetDNS::RR_A, Question(1).AddRecord(DNSMessage::Pointer(12), 5, 60, target, length).Build());
        EXPECT_TRUE(outcome.ok) << length;
        EXPECT_EQ(outcome.cname, "real.example");
    }
    for (const long length : {static_cast<long>(target.size()) + 1, 0xFFFFL}) {
        const OUTCOME outcome =
            Parse(NetDNS::RR_A, Question(1).AddRecord(DNSMessage::Pointer(12), 5, 60, target, length).Build());
        EXPECT_FALSE(outcome.ok) << length;
        EXPECT_THAT(outcome.codes, ElementsAre(53));
        EXPECT_EQ(outcome.cname, "");
    }
}

TEST(NetDNSResponse, Parse_RootExchangerAtTheEnd_Fails53_KeptOnPurpose)
{
    // RFC 7505: a domain without mail. The root name is one byte, and a name needs two.
    const Bytes null{0, 0, 0};
    const OUTCOME outcome = Parse(NetDNS::RR_MX, Question(15).AddRecord(DNSMessage::Pointer(12), 15, 60, null).Build());
    EXPECT_FALSE(outcome.ok);
    EXPECT_THAT(outcome.codes, ElementsAre(53));
    EXPECT_THAT(outcome.records, IsEmpty());
}

TEST(NetDNSResponse, Parse_RootExchangerInFrontOfSomething_NameGoesOnThere_KeptOnPurpose)
{
    const Bytes null{0, 0, 0};
    // The owner of the record behind it, a pointer, is taken for the rest of the name: that record is then broken.
    EXPECT_FALSE(
        Parse(NetDNS::RR_MX, Question(15).AddRecord(DNSMessage::Pointer(12), 15, 60, null).AddMx(5, "mx").Build()).ok);
    // One that stands behind the answers (an authority, say) does no such harm, but the name is made of its owner.
    const OUTCOME followed = Parse(
        NetDNS::RR_MX, Question(15).AddRecord(DNSMessage::Pointer(12), 15, 60, null).AddMx(5, "mx").Claim(1).Build());
    EXPECT_TRUE(followed.ok);
    EXPECT_THAT(followed.records, ElementsAre("0 .host.example"));
    // A zero byte behind it ends the name, which is empty: the OPT record of EDNS begins with one.
    const OUTCOME edns = Parse(NetDNS::RR_MX, Question(15)
                                                  .AddRecord(DNSMessage::Pointer(12), 15, 60, null)
                                                  .Raw({0, 0, 41, 4, 0xD0, 0, 0, 0, 0, 0, 0})
                                                  .Build());
    EXPECT_TRUE(edns.ok);
    EXPECT_THAT(edns.records, ElementsAre("0 "));
    // Nothing behind the message is read: the sanitizers watch each of these copies.
    const Bytes whole =
        Question(15).AddRecord(DNSMessage::Pointer(12), 15, 60, null).Raw({3, 'o', 'r', 'g', 0}).Build();
    for (std::size_t size = whole.size() - 5; size < whole.size(); ++size)
        EXPECT_FALSE(Parse(NetDNS::RR_MX, Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size))).ok);
    EXPECT_THAT(Parse(NetDNS::RR_MX, whole).records, ElementsAre("0 .org"));
}

TEST(NetDNSResponse, Parse_EveryByteChangedToEveryValue_NeverReadsOutside)
{
    const Bytes good = Question(15).AddMx(10, "a.example").AddMx(20, "b.example").Build();
    for (std::size_t place = 0; place < good.size(); ++place) {
        for (int value = 0; value < 256; ++value) {
            Bytes bad = good;
            bad[place] = static_cast<BYTE>(value);
            const OUTCOME outcome = Parse(NetDNS::RR_MX, bad);
            EXPECT_TRUE(outcome.ok || !outcome.codes.empty());
        }
    }
}

} // namespace
