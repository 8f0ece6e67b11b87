// Tests of reading listings.
#include "hosts/ftpclient/FtpListParser.h"

#include <gtest/gtest.h>

namespace kqlib {
namespace {

using KIND = FtpRemoteEntry::KIND;
using FORM = FtpListParser::FORM;
using LINE = FtpListParser::LINE;

FtpRemoteEntry Entry(FORM form, const char* line)
{
    FtpRemoteEntry entry;
    EXPECT_EQ(FtpListParser::sParse(form, line, entry), LINE::ENTRY) << line;
    return entry;
}

LINE Kind(FORM form, const char* line)
{
    FtpRemoteEntry entry;
    return FtpListParser::sParse(form, line, entry);
}

TEST(FtpListParser, Facts_FileAndFolder_EveryFact)
{
    const FtpRemoteEntry file = Entry(FORM::FACTS, "Type=file;SIZE=12;Modify=20231114221320.75;perm=r; a name ");
    EXPECT_EQ(file.kind, KIND::FILE);
    EXPECT_EQ(file.name, "a name ");
    EXPECT_EQ(file.size, 12U);
    EXPECT_EQ(file.modifiedMs, 1700000000000);
    const FtpRemoteEntry folder = Entry(FORM::FACTS, "type=dir;  two blanks");
    EXPECT_EQ(folder.kind, KIND::FOLDER);
    EXPECT_EQ(folder.name, " two blanks");
    EXPECT_FALSE(folder.size);
    EXPECT_FALSE(folder.modifiedMs);
    EXPECT_EQ(Entry(FORM::FACTS, "type=OS.unix=slink:/etc; l").kind, KIND::LINK);
    EXPECT_EQ(Entry(FORM::FACTS, "type=OS.unix=chr-1/2; l").kind, KIND::OTHER);
    EXPECT_EQ(Entry(FORM::FACTS, " no facts").name, "no facts");
}

TEST(FtpListParser, Facts_FolderItself_NoEntry)
{
    EXPECT_EQ(Kind(FORM::FACTS, "type=cdir;modify=20231114221320; ."), LINE::NO_ENTRY);
    EXPECT_EQ(Kind(FORM::FACTS, "size=1;type=pdir; .."), LINE::NO_ENTRY);
    EXPECT_EQ(Kind(FORM::FACTS, "type=dir; type=cdir;"), LINE::ENTRY) << "the name is none of the facts";
}

TEST(FtpListParser, Facts_NumbersAndTimesThatAreNone_NotKnown)
{
    for (const char* line : {"type=file;size=-1; x", "type=file;size=; x", "type=file;size=99999999999999999999; x"})
        EXPECT_FALSE(Entry(FORM::FACTS, line).size) << line;
    EXPECT_FALSE(Entry(FORM::FACTS, "type=file;modify=2023; x").modifiedMs);
    EXPECT_EQ(Entry(FORM::FACTS, "type=file;size=9999999999999999999; x").size, 9999999999999999999U);
    EXPECT_EQ(Kind(FORM::FACTS, "type=file;size=1;"), LINE::UNKNOWN);
    EXPECT_EQ(Kind(FORM::FACTS, "nonsense name"), LINE::UNKNOWN);
    EXPECT_EQ(Kind(FORM::FACTS, ""), LINE::UNKNOWN);
}

TEST(FtpListParser, Long_LikeLs_NameWithBlanksKept)
{
    const FtpRemoteEntry file = Entry(FORM::LONG, "-rw-r--r--   1 ftp      ftp         12345 Nov 14 22:13  a  b ");
    EXPECT_EQ(file.kind, KIND::FILE);
    EXPECT_EQ(file.size, 12345U);
    EXPECT_EQ(file.name, " a  b ");
    EXPECT_FALSE(file.modifiedMs) << "neither year nor zone is known";
    EXPECT_EQ(Entry(FORM::LONG, "drwxr-xr-x 2 1000 1000 4096 Jan  1  2020 Jan").name, "Jan");
    EXPECT_EQ(Entry(FORM::LONG, "drwxr-xr-x 2 1000 4096 Jan  1  2020 no group").kind, KIND::FOLDER);
    EXPECT_EQ(Entry(FORM::LONG, "-rw------- 1 May May 7 Jun  1  2020 groups like months").size, 7U);
    const FtpRemoteEntry link = Entry(FORM::LONG, "lrwxrwxrwx 1 a b 3 Jan  1 12:00 here -> there");
    EXPECT_EQ(link.kind, KIND::LINK);
    EXPECT_EQ(link.name, "here");
}

TEST(FtpListParser, Long_OfDos_SizesAndFolders)
{
    const FtpRemoteEntry file = Entry(FORM::LONG, "01-31-24  12:34PM             12345 a name");
    EXPECT_EQ(file.kind, KIND::FILE);
    EXPECT_EQ(file.size, 12345U);
    EXPECT_EQ(file.name, "a name");
    const FtpRemoteEntry folder = Entry(FORM::LONG, "01-31-2024  12:34PM       <DIR>          a folder");
    EXPECT_EQ(folder.kind, KIND::FOLDER);
    EXPECT_EQ(folder.name, "a folder");
}

TEST(FtpListParser, Long_OtherLines_NoEntryOrUnknown)
{
    EXPECT_EQ(Kind(FORM::LONG, "total 12"), LINE::NO_ENTRY);
    EXPECT_EQ(Kind(FORM::LONG, "drwxr-xr-x 2 a b 4096 Jan  1 12:00 ."), LINE::NO_ENTRY);
    EXPECT_EQ(Kind(FORM::LONG, "drwxr-xr-x 2 a b 4096 Jan  1 12:00 .."), LINE::NO_ENTRY);
    for (const char* line : {"", "hello", "-rw-r--r--", "-rw-r--r-- 1 a b", "-rw-r--r-- 1 a b x Jan 1 12:00 n",
                             "-rw-r--r-- 1 a b 1 Jan", "drw 1 a b 1 Jan 1 12:00 n", "01-31-24  12:34PM"})
        EXPECT_EQ(Kind(FORM::LONG, line), LINE::UNKNOWN) << line;
}

TEST(FtpListParser, Names_FoldersBeforeThem_LeftOut)
{
    EXPECT_EQ(Entry(FORM::NAMES, "a name").name, "a name");
    EXPECT_EQ(Entry(FORM::NAMES, "folder/name").name, "name");
    EXPECT_EQ(Kind(FORM::NAMES, "folder/."), LINE::NO_ENTRY);
    EXPECT_EQ(Kind(FORM::NAMES, ".."), LINE::NO_ENTRY);
}

TEST(FtpListParser, ParseAll_LineEndsOfBothKinds_EntriesAndUnknownOnes)
{
    std::vector<FtpRemoteEntry> entries;
    EXPECT_EQ(FtpListParser::sParseAll(FORM::FACTS, "type=file; a\r\ntype=file; b\nwrong\r\ntype=file; c", entries),
              1U);
    ASSERT_EQ(entries.size(), 3U);
    EXPECT_EQ(entries[0].name, "a");
    EXPECT_EQ(entries[2].name, "c");
    EXPECT_EQ(FtpListParser::sParseAll(FORM::FACTS, "", entries), 0U);
}

} // namespace
} // namespace kqlib
