#include "common/NetIP.h"

#include "tests/peers/DataTable.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

namespace kqlib {
namespace {

NetIP Ip(const char* text)
{
    NetIP ip;
    EXPECT_TRUE(ip.Set(text)) << text;
    return ip;
}

std::string HexBytes(const NetIP& ip)
{
    std::string hex;
    for (std::size_t index = 0; index < (ip.IsIP4() ? 4U : 16U); index++) {
        char digits[3];
        std::snprintf(digits, sizeof(digits), "%02x", static_cast<unsigned>(ip.GetBytes()[index]));
        hex += digits;
    }
    return hex;
}

// Made before any code runs; a dynamic initialisation would stop the compiler here.
constinit const NetIP STATIC_COPY = NetIP();

TEST(NetIPTest, New_UnsetIPv4_PrintsZeros)
{
    const NetIP ip;
    EXPECT_TRUE(ip.IsIP4());
    EXPECT_EQ(ip.GetType(), NetIP::IP_4);
    EXPECT_EQ(ip.GetText(), "0.0.0.0");
    EXPECT_EQ(ip, NetIP::ANY_IP4);
    EXPECT_EQ(ip, STATIC_COPY);
}

TEST(NetIPTest, Set_TextsOfTheTable_AsTheOtherImplementationReadsThem)
{
    const auto rows = test::ReadDataTable("addresses.txt");
    ASSERT_GT(rows.size(), 500U);
    for (const auto& row : rows) {
        SCOPED_TRACE("\"" + row.at(1) + "\"");
        NetIP ip(String("9.8.7.6"));
        if (row[0] == "invalid") {
            EXPECT_FALSE(ip.Set(row[1]));
            EXPECT_EQ(ip, Ip("9.8.7.6"));
            EXPECT_EQ(NetIP(String(row[1])), NetIP());
            continue;
        }
        ASSERT_EQ(row.size(), 4U);
        ASSERT_TRUE(ip.Set(row[1]));
        EXPECT_EQ(ip.IsIP4(), row[2].size() == 8);
        EXPECT_EQ(HexBytes(ip), row[2]);
        EXPECT_EQ(ip.GetText(), row[3]);
        EXPECT_EQ(Ip(row[3].c_str()), ip);
        EXPECT_EQ(NetIP(String(row[1])), ip);
    }
}

TEST(NetIPTest, Set_LeadingZerosInDottedText_DecimalKeptOnPurpose)
{
    EXPECT_EQ(Ip("010.001.000.099").GetText(), "10.1.0.99");
    EXPECT_EQ(Ip("::ffff:01.02.03.04"), Ip("::ffff:1.2.3.4"));
    EXPECT_FALSE(NetIP().Set("0001.2.3.4"));
    EXPECT_FALSE(NetIP().Set("0000.0.0.0"));
}

TEST(NetIPTest, Set_Zone_Refused)
{
    EXPECT_FALSE(NetIP().Set("fe80::1%eth0"));
    EXPECT_FALSE(NetIP().Set("fe80::1%1"));
    EXPECT_FALSE(NetIP().Set("fe80::1%"));
}

TEST(NetIPTest, Set_ZeroBytesAndBytesAbove127_Refused)
{
    EXPECT_FALSE(NetIP().Set(String("1.2.3.4\0", 8)));
    EXPECT_FALSE(NetIP().Set(String("1.2.3.4\0.5", 10)));
    EXPECT_FALSE(NetIP().Set(String("::1\0", 4)));
    EXPECT_FALSE(NetIP().Set("1.2.3.\xB2"));
    EXPECT_FALSE(NetIP().Set("::\xE1"));
}

TEST(NetIPTest, Set_VeryLongText_Refused)
{
    EXPECT_FALSE(NetIP().Set(String(1000000, '1')));
    EXPECT_FALSE(NetIP().Set(String(1000000, ':')));
    EXPECT_FALSE(NetIP().Set(String(1000000, '.')));
}

TEST(NetIPTest, Set_Bytes_ByType)
{
    unsigned char bytes[16];
    for (unsigned char index = 0; index < 16; index++)
        bytes[index] = static_cast<unsigned char>(index + 1);
    NetIP ip;
    EXPECT_TRUE(ip.Set(NetIP::IP_6, bytes));
    EXPECT_EQ(ip.GetText(), "102:304:506:708:90a:b0c:d0e:f10");
    EXPECT_TRUE(ip.Set(NetIP::IP_4, bytes));
    EXPECT_EQ(ip.GetText(), "1.2.3.4");
}

TEST(NetIPTest, Set_UnknownTypeOrNull_FalseAndUnchanged)
{
    const unsigned char bytes[16] = {};
    NetIP ip = Ip("1.2.3.4");
    EXPECT_FALSE(ip.Set(static_cast<NetIP::IPTYPE>(2), bytes));
    EXPECT_FALSE(ip.Set(NetIP::IP_4, nullptr));
    EXPECT_EQ(ip.GetText(), "1.2.3.4");
}

TEST(NetIPTest, Set_ItsOwnBytes_KeepsThem)
{
    NetIP ip = Ip("102:304::1");
    EXPECT_TRUE(ip.Set(NetIP::IP_4, ip.GetBytes()));
    EXPECT_EQ(ip, Ip("1.2.3.4"));
}

TEST(NetIPTest, Set_IPv4AfterIPv6_UnusedBytesAreZero)
{
    // Records hold addresses byte for byte: equal addresses are equal bytes.
    NetIP ip = Ip("ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff");
    ip = Ip("1.2.3.4");
    NetIP other = Ip("ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff");
    ASSERT_TRUE(other.Set("1.2.3.4"));
    EXPECT_EQ(std::memcmp(&ip, &other, sizeof(NetIP)), 0);
    const unsigned char wanted[20] = {0, 0, 0, 0, 1, 2, 3, 4};
    EXPECT_EQ(std::memcmp(&other, wanted, sizeof(wanted)), 0);
    other.Reset();
    EXPECT_EQ(std::memcmp(&other, &NetIP::ANY_IP4, sizeof(NetIP)), 0);
}

TEST(NetIPTest, Layout_TwentyBytes_TypeFirstInLittleEndianOrder)
{
    const NetIP ip = Ip("::2");
    unsigned char bytes[20];
    static_assert(sizeof(NetIP) == sizeof(bytes));
    std::memcpy(bytes, &ip, sizeof(bytes));
    const unsigned char wanted[20] = {1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 2};
    EXPECT_EQ(std::memcmp(bytes, wanted, sizeof(wanted)), 0);
}

TEST(NetIPTest, GetTextReverseByteOrder_IPv4_OctetsReversed)
{
    EXPECT_EQ(Ip("1.20.255.0").GetTextReverseByteOrder(), "0.255.20.1");
    EXPECT_EQ(NetIP().GetTextReverseByteOrder(), "0.0.0.0");
}

TEST(NetIPTest, GetTextReverseByteOrder_IPv6_NibblesReversed)
{
    EXPECT_EQ(Ip("2001:db8::567:89ab").GetTextReverseByteOrder(),
              "b.a.9.8.7.6.5.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.8.b.d.0.1.0.0.2");
}

TEST(NetIPTest, Order_TypeFirstThenBytes_Total)
{
    const NetIP sorted[] = {Ip("0.0.0.0"),   Ip("0.0.0.1"),        Ip("1.0.0.0"),         Ip("127.255.255.255"),
                            Ip("128.0.0.0"), Ip("192.168.0.10"),   Ip("255.255.255.255"), Ip("::"),
                            Ip("::1"),       Ip("::ffff:1.2.3.4"), Ip("7f00::"),          Ip("8000::"),
                            Ip("ffff::1")};
    for (const NetIP& left : sorted)
        for (const NetIP& right : sorted) {
            EXPECT_EQ(left < right, &left < &right);
            EXPECT_EQ(left <= right, &left <= &right);
            EXPECT_EQ(left > right, &left > &right);
            EXPECT_EQ(left >= right, &left >= &right);
            EXPECT_EQ(left == right, &left == &right);
            EXPECT_EQ(left != right, &left != &right);
        }
}

TEST(NetIPTest, IsSame_MaskedBits_Compared)
{
    const NetIP ip = Ip("192.168.17.5");
    EXPECT_TRUE(ip.IsSame(Ip("192.168.99.1"), Ip("255.255.0.0")));
    EXPECT_FALSE(ip.IsSame(Ip("192.169.17.5"), Ip("255.255.0.0")));
    EXPECT_TRUE(ip.IsSame(Ip("192.168.16.0"), Ip("255.255.254.0")));
    EXPECT_FALSE(ip.IsSame(Ip("192.168.18.0"), Ip("255.255.254.0")));
    EXPECT_TRUE(ip.IsSame(Ip("1.1.1.5"), Ip("0.0.0.255")));
    EXPECT_TRUE(ip.IsSame(ip, Ip("255.255.255.255")));
    EXPECT_TRUE(Ip("2001:db8::1").IsSame(Ip("2001:db8::2"), Ip("ffff:ffff::")));
    EXPECT_FALSE(Ip("2001:db8::1").IsSame(Ip("2001:db8::2"), Ip("ffff:ffff::3")));
}

TEST(NetIPTest, IsSame_MaskWithoutBits_TrueWhateverTheTypesKeptOnPurpose)
{
    EXPECT_TRUE(Ip("1.2.3.4").IsSame(Ip("5.6.7.8"), NetIP()));
    EXPECT_TRUE(Ip("1.2.3.4").IsSame(Ip("::1"), NetIP()));
    EXPECT_TRUE(Ip("1.2.3.4").IsSame(Ip("5.6.7.8"), Ip("::")));
    EXPECT_TRUE(Ip("::1").IsSame(Ip("5.6.7.8"), Ip("::")));
}

TEST(NetIPTest, IsSame_TypesDiffer_FalseWithAnyMaskBit)
{
    EXPECT_FALSE(Ip("0.0.0.0").IsSame(Ip("::"), Ip("0.0.0.1")));
    EXPECT_FALSE(Ip("0.0.0.0").IsSame(Ip("::"), Ip("::1")));
    EXPECT_FALSE(Ip("1.2.3.4").IsSame(Ip("1.2.3.4"), Ip("::1")));
}

TEST(NetIPTest, SGetAnyIP_EachType)
{
    EXPECT_EQ(NetIP::sGetAnyIP(NetIP::IP_4), NetIP::ANY_IP4);
    EXPECT_EQ(NetIP::sGetAnyIP(NetIP::IP_6).GetText(), "::");
    EXPECT_FALSE(NetIP::sGetAnyIP(NetIP::IP_6).IsIP4());
    EXPECT_EQ(NetIP::sGetAnyIP(static_cast<NetIP::IPTYPE>(7)), NetIP::ANY_IP4);
}

TEST(NetIPTest, LookupMode_AnyValue_MayBeCast)
{
    const auto mode = static_cast<NetIP::IPLOOKUPMODE>(0xFFFFFFFFU);
    EXPECT_EQ(static_cast<std::uint32_t>(mode), 0xFFFFFFFFU);
    EXPECT_EQ(static_cast<std::uint32_t>(NetIP::LOOKUP_ANY), 2U);
}

} // namespace
} // namespace kqlib
