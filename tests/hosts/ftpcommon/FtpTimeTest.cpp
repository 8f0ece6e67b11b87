// Tests of the times in commands, replies and listings.
#include "hosts/ftpcommon/FtpTime.h"

#include <gtest/gtest.h>

namespace kqlib {
namespace {

constexpr std::int64_t NOW_MS = 1700000000000; // 2023-11-14 22:13:20 UTC

TEST(FtpTime, FormattedAndParsed_Agree)
{
    std::int64_t timeMs = 0;
    EXPECT_EQ(FtpTime::sFormat(NOW_MS), "20231114221320");
    EXPECT_TRUE(FtpTime::sParse("20231114221320", timeMs));
    EXPECT_EQ(timeMs, NOW_MS);
    EXPECT_TRUE(FtpTime::sParse("20231114221320.25", timeMs));
    EXPECT_EQ(timeMs, NOW_MS + 250);
    EXPECT_TRUE(FtpTime::sParse("16010101000000", timeMs));
    EXPECT_EQ(FtpTime::sFormat(timeMs), "16010101000000");
    EXPECT_TRUE(FtpTime::sParse("20240229235959", timeMs));
    EXPECT_TRUE(FtpTime::sParse("99991231235959.999", timeMs));
    EXPECT_EQ(FtpTime::sFormat(timeMs), "99991231235959");
}

TEST(FtpTime, Parse_WrongTexts_Refused)
{
    std::int64_t timeMs = 0;
    for (const char* text :
         {"", "2023", "2023111422132", "202311142213200", "20231314221320", "20230229000000", "20231114241320",
          "20231114226020", "20231114221361", "2023111422132x", "-0231114221320", "20231114221320.",
          "20231114221320.1234", "20231114221320,1", "16001231235959", "00000101000000", "+0231114221320"})
        EXPECT_FALSE(FtpTime::sParse(text, timeMs)) << text;
}

TEST(FtpTime, ToFullSecond_AnyTime_NotLater)
{
    EXPECT_EQ(FtpTime::sToFullSecond(1999), 1000);
    EXPECT_EQ(FtpTime::sToFullSecond(2000), 2000);
    EXPECT_EQ(FtpTime::sToFullSecond(-1), -1000);
    EXPECT_EQ(FtpTime::sToFullSecond(0), 0);
}

} // namespace
} // namespace kqlib
