// Tests of the forms of listings.
#include "hosts/ftp/FtpListing.h"

#include <gtest/gtest.h>

namespace kqlib {
namespace {

using platform::FileKind;

constexpr std::int64_t DAY_MS = 86400000;
constexpr std::int64_t NOW_MS = 1700000000000; // 2023-11-14 22:13:20 UTC

platform::FileFacts MakeFacts(FileKind kind, std::uint64_t size, std::int64_t modifiedMs, std::uint32_t permissions)
{
    platform::FileFacts facts;
    facts.kind = kind;
    facts.size = size;
    facts.modifiedMs = modifiedMs;
    facts.permissions = permissions;
    facts.volume = 0x10;
    facts.serial = 0xABC;
    return facts;
}

std::string Long(const String& name, const platform::FileFacts& facts)
{
    std::string line;
    FtpListing::sAddLongLine(line, name, facts, NOW_MS);
    return line;
}

std::string Facts(const platform::FileFacts& facts, std::uint32_t selection, FtpListing::RIGHTS rights)
{
    std::string line;
    FtpListing::sAddFactLine(line, "n", facts, selection, rights);
    return line;
}

TEST(FtpListing, LongLine_RecentFile_ShowsTimeOfDay)
{
    EXPECT_EQ(Long("a b.txt", MakeFacts(FileKind::FILE, 1234, NOW_MS, 0644)),
              "-rw-r--r--    1 ftp      ftp              1234 Nov 14 22:13 a b.txt\r\n");
}

TEST(FtpListing, LongLine_OldFutureAndHalfAYear_ShowYear)
{
    EXPECT_NE(Long("x", MakeFacts(FileKind::FILE, 0, 0, 0)).find(" Jan  1  1970 x\r\n"), std::string::npos);
    EXPECT_NE(Long("x", MakeFacts(FileKind::FILE, 0, NOW_MS + 1000, 0)).find(" Nov 14  2023 x\r\n"), std::string::npos);
    EXPECT_NE(Long("x", MakeFacts(FileKind::FILE, 0, NOW_MS - 181 * DAY_MS, 0)).find(":13 x\r\n"), std::string::npos);
    EXPECT_NE(Long("x", MakeFacts(FileKind::FILE, 0, NOW_MS - 182 * DAY_MS, 0)).find(" 2023 x\r\n"), std::string::npos);
}

TEST(FtpListing, LongLine_Kinds_HaveTheirLetters)
{
    EXPECT_EQ(Long("x", MakeFacts(FileKind::FOLDER, 0, 0, 0755)).substr(0, 10), "drwxr-xr-x");
    EXPECT_EQ(Long("x", MakeFacts(FileKind::LINK, 0, 0, 0777)).substr(0, 10), "lrwxrwxrwx");
    EXPECT_EQ(Long("x", MakeFacts(FileKind::OTHER, 0, 0, 0001)).substr(0, 10), "p--------x");
}

TEST(FtpListing, LongLine_SizeBeyond32Bits_Whole)
{
    EXPECT_NE(Long("x", MakeFacts(FileKind::FILE, 5000000000000, 0, 0)).find(" 5000000000000 "), std::string::npos);
}

TEST(FtpListing, LongLine_ControlCharactersInName_CannotForgeALine)
{
    const std::string line = Long("a\r\n-rw-r--r-- forged", MakeFacts(FileKind::FILE, 0, 0, 0));
    EXPECT_EQ(line.find("\r\n"), line.size() - 2);
    EXPECT_NE(line.find("a?"
                        "?-rw"),
              std::string::npos);
}

TEST(FtpListing, FactLine_AllFacts_InOrder)
{
    EXPECT_EQ(Facts(MakeFacts(FileKind::FILE, 7, NOW_MS, 0644), FtpListing::ALL_FACTS, {true, true, true}),
              "type=file;size=7;modify=20231114221320;perm=adfrw;unique=10gabc;UNIX.mode=0644; n\r\n");
    EXPECT_EQ(Facts(MakeFacts(FileKind::FOLDER, 0, NOW_MS, 0755), FtpListing::ALL_FACTS, {true, true, true}),
              "type=dir;modify=20231114221320;perm=cdeflmp;unique=10gabc;UNIX.mode=0755; n\r\n");
}

TEST(FtpListing, FactLine_RightsDecidePerm)
{
    const auto perm = [](FileKind kind, FtpListing::RIGHTS rights) {
        return Facts(MakeFacts(kind, 0, 0, 0), FtpListing::PERM, rights);
    };
    EXPECT_EQ(perm(FileKind::FILE, {true, false, false}), "perm=r; n\r\n");
    EXPECT_EQ(perm(FileKind::FILE, {false, true, false}), "perm=afw; n\r\n");
    EXPECT_EQ(perm(FileKind::FILE, {false, false, true}), "perm=d; n\r\n");
    EXPECT_EQ(perm(FileKind::FOLDER, {true, false, false}), "perm=el; n\r\n");
    EXPECT_EQ(perm(FileKind::FOLDER, {false, false, false}), "perm=e; n\r\n");
    EXPECT_EQ(perm(FileKind::LINK, {true, true, true}), "perm=df; n\r\n");
}

TEST(FtpListing, FactLine_NothingSelected_BlankAndName)
{
    EXPECT_EQ(Facts(MakeFacts(FileKind::FILE, 1, 0, 0), 0, {}), " n\r\n");
}

TEST(FtpListing, FactNames_ParsedWithoutRegardToCaseAndUnknownOnesLeftOut)
{
    EXPECT_EQ(FtpListing::sParseFactNames("TYPE;Size;nonsense;unix.MODE;"),
              FtpListing::TYPE | FtpListing::SIZE | FtpListing::UNIX_MODE);
    EXPECT_EQ(FtpListing::sParseFactNames(""), 0U);
    EXPECT_EQ(FtpListing::sGetFactNames(FtpListing::SIZE, false), "size;");
    EXPECT_EQ(FtpListing::sGetFactNames(FtpListing::SIZE, true), "type;size*;modify;perm;unique;UNIX.mode;");
}

} // namespace
} // namespace kqlib
