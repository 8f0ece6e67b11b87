// Tests of the addresses of data connections.
#include "hosts/ftpcommon/FtpDataAddress.h"

#include <gtest/gtest.h>

namespace kqlib {
namespace {

TEST(FtpDataAddress, ParseNumbers_SixBytes_AddressAndPort)
{
    FtpDataAddress place;
    ASSERT_TRUE(place.ParseNumbers("132,235,1,2,24,131"));
    EXPECT_EQ(place.address.GetText(), "132.235.1.2");
    EXPECT_EQ(place.port, 6275);
    EXPECT_EQ(place.FormatNumbers(), "132,235,1,2,24,131");
    EXPECT_EQ(place.FormatExtended(), "|1|132.235.1.2|6275|");
    ASSERT_TRUE(place.ParseNumbers("255,255,255,255,255,255"));
    EXPECT_EQ(place.port, 65535);
}

TEST(FtpDataAddress, ParseNumbers_AnythingElse_Refused)
{
    FtpDataAddress place;
    for (const char* text : {"", "1,2,3,4,5", "1,2,3,4,5,6,7", "1,2,3,4,5,256", "1,2,3,4,5,-1", "1,2,3,4,5,x",
                             "1,2,3,4,,6", "1.2.3.4,5,6", "1,2,3,4,5,000006"})
        EXPECT_FALSE(place.ParseNumbers(text)) << text;
}

TEST(FtpDataAddress, SplitExtended_OwnDelimiter_Fields)
{
    FtpDataAddress::EXTENDED fields;
    ASSERT_TRUE(FtpDataAddress::sSplitExtended("|1|132.235.1.2|6275|", fields));
    EXPECT_EQ(fields.family, "1");
    EXPECT_EQ(fields.address, "132.235.1.2");
    EXPECT_EQ(fields.port, "6275");
    ASSERT_TRUE(FtpDataAddress::sSplitExtended("!!!6446!", fields));
    EXPECT_EQ(fields.family, "");
    EXPECT_EQ(fields.port, "6446");
    for (const char* text : {"", "|||1", "|||", "|||1||", "x|||1|", " ", "|a|b|c|d|"})
        EXPECT_FALSE(FtpDataAddress::sSplitExtended(text, fields)) << text;
}

TEST(FtpDataAddress, ParsePort_Numbers_Within16Bits)
{
    FtpDataAddress place;
    ASSERT_TRUE(place.ParsePort("65535"));
    EXPECT_EQ(place.port, 65535);
    for (const char* text : {"", "65536", "-1", "1 ", "0x1", "4294967297"})
        EXPECT_FALSE(place.ParsePort(text)) << text;
    EXPECT_EQ(place.port, 65535);
}

} // namespace
} // namespace kqlib
