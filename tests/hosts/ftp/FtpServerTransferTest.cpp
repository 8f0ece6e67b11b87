// Dialogues: files and listings, restarts, line ends, and transfers that break off.
#include "tests/hosts/ftp/FtpServerFixture.h"
#include "tests/peers/Missing.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <iostream>
#include <set>
#include <thread>

namespace kqlib::test {
namespace {

namespace fs = std::filesystem;
using FtpServerTransfer = FtpServerFixture;

constexpr std::uintmax_t HUGE_BYTES = std::uintmax_t{1} << 34; // more than any buffers hold; the file is sparse

std::vector<std::string> Lines(const std::string& text)
{
    std::vector<std::string> lines;
    for (std::size_t start = 0; start < text.size();) {
        const std::size_t end = text.find("\r\n", start);
        lines.push_back(text.substr(start, end - start));
        start = end == std::string::npos ? text.size() : end + 2;
    }
    return lines;
}

TEST_F(FtpServerTransfer, StorThenRetr_SeveralSizes_SameBytes)
{
    Start();
    FtpTestClient client = LogIn();
    EXPECT_EQ(client.Code("TYPE I"), 200);
    for (const std::size_t size : {std::size_t{0}, std::size_t{1}, std::size_t{262143}, std::size_t{262144},
                                   std::size_t{262145}, std::size_t{3000000}})
    {
        const std::string bytes = Pattern(size);
        std::string got;
        EXPECT_EQ(client.Upload("STOR f", bytes), 226);
        EXPECT_EQ(ReadHomeFile("f"), bytes) << size;
        EXPECT_EQ(client.Download("RETR f", got), 226);
        EXPECT_EQ(got, bytes) << size;
    }
    EXPECT_TRUE(HasEvent("File Upload Success"));
}

TEST_F(FtpServerTransfer, Stor_OverALongerFile_ReplacesItWhole)
{
    WriteHomeFile("f", "a long content");
    Start();
    FtpTestClient client = LogIn();
    EXPECT_EQ(client.Upload("STOR f", "short"), 226);
    EXPECT_EQ(ReadHomeFile("f"), "short");
    EXPECT_EQ(client.Upload("STOR /", "x"), 553);
    EXPECT_EQ(client.Upload("STOR missing/f", "x"), 553);
    EXPECT_EQ(client.Upload("STOR " + std::string(300, 'x'), "x"), 553);
}

TEST_F(FtpServerTransfer, Retr_MissingOrFolder_550)
{
    fs::create_directory(Home() / "d");
    Start();
    FtpTestClient client = LogIn();
    std::string bytes;
    EXPECT_EQ(client.Download("RETR missing", bytes), 550);
    EXPECT_EQ(client.Download("RETR d", bytes), 550);
    EXPECT_TRUE(HasEvent("File Download Fail"));
}

TEST_F(FtpServerTransfer, Appe_NewAndExisting)
{
    Start();
    FtpTestClient client = LogIn();
    EXPECT_EQ(client.Upload("APPE f", "abc"), 226);
    EXPECT_EQ(client.Upload("APPE f", "def"), 226);
    EXPECT_EQ(client.Code("TYPE I"), 200);
    EXPECT_EQ(client.Code("REST 1"), 350);
    EXPECT_EQ(client.Upload("APPE f", "g"), 226);
    EXPECT_EQ(ReadHomeFile("f"), "abcdefg") << "APPE knows its place itself";
    EXPECT_TRUE(HasEvent("File Append Success"));
}

/// With the account "keeper", which has every right and may overwrite nothing.
class FtpServerKeeper : public FtpServerFixture
{
protected:
    FtpServerKeeper()
    {
        FtpUserSettings keeper = User("keeper", "read,write,delete");
        keeper.SetOverwrite(false);
        m_settings.SetUsers({User("admin", "read,write,delete,admin"), keeper});
        WriteHomeFile("old", "12345");
        WriteHomeFile("empty", "");
    }
    FtpTestClient LogInKeeper()
    {
        FtpTestClient client = LogIn("keeper");
        EXPECT_EQ(client.Code("TYPE I"), 200);
        return client;
    }
};

TEST_F(FtpServerKeeper, Uploads_WhatAFileHoldsStays)
{
    Start();
    FtpTestClient client = LogInKeeper();
    EXPECT_EQ(client.Upload("STOR new", "x"), 226);
    EXPECT_EQ(client.Upload("STOR new", "y"), 553);
    EXPECT_EQ(ReadHomeFile("new"), "x");
    EXPECT_EQ(client.Upload("STOR old", "y"), 553);
    EXPECT_EQ(client.Code("REST 4"), 350);
    EXPECT_EQ(client.Upload("STOR old", "y"), 553);
    EXPECT_EQ(ReadHomeFile("old"), "12345");
    EXPECT_TRUE(HasEvent("File Upload Fail"));
    EXPECT_EQ(client.Code("REST 5"), 350) << "goes on behind what is there";
    EXPECT_EQ(client.Upload("STOR old", "67"), 226);
    EXPECT_EQ(client.Upload("APPE old", "8"), 226);
    EXPECT_EQ(client.Upload("STOU old", "y"), 226);
    EXPECT_EQ(ReadHomeFile("old"), "12345678");
    EXPECT_EQ(client.Upload("STOR empty", "y"), 226) << "there is nothing to lose";
    EXPECT_EQ(client.Code("REST 9"), 350);
    EXPECT_EQ(client.Upload("STOR old", "y"), 554);
    FtpTestClient admin = LogIn();
    EXPECT_EQ(admin.Upload("STOR old", "y"), 226);
}

TEST_F(FtpServerKeeper, Rename_NeverReplaces)
{
    WriteHomeFile("f", "new");
    Start();
    FtpTestClient client = LogInKeeper();
    EXPECT_EQ(client.Code("RNFR f"), 350);
    EXPECT_EQ(client.Code("RNTO old"), 553);
    EXPECT_EQ(ReadHomeFile("old"), "12345");
    EXPECT_EQ(client.Code("RNFR f"), 350);
    EXPECT_EQ(client.Code("RNTO g"), 250);
    EXPECT_EQ(client.Code("DELE old"), 250) << "deleting has a right of its own";
}

TEST_F(FtpServerKeeper, HiddenUploads_NothingIsReplaced)
{
    m_settings.SetHiddenUploads(true);
    Start();
    FtpTestClient client = LogInKeeper();
    EXPECT_EQ(client.Upload("STOR old", "y"), 553);
    EXPECT_EQ(client.Upload("STOR new", "x"), 226);
    EXPECT_EQ(ReadHomeFile("new"), "x");
    FtpTestSocket data;
    ASSERT_TRUE(client.OpenPassive(data));
    EXPECT_EQ(client.Code("STOR race"), 150);
    WriteHomeFile("race", "first");
    data.Send("second");
    data.Close();
    EXPECT_EQ(client.ReadReply(), "553 There is one of that name already\n");
    EXPECT_EQ(ReadHomeFile("race"), "first");
    EXPECT_EQ(ReadHomeFile("old"), "12345");
    EXPECT_EQ(std::distance(fs::directory_iterator(Home()), fs::directory_iterator()), 4) << "no hidden file stays";
}

TEST_F(FtpServerTransfer, RefusedNames_InEveryCommandThatGivesAName)
{
    STRINGS patterns;
    for (const char* pattern : {"*.exe", ".ht*", "[~]*", "secret"})
        patterns.push_back(pattern);
    m_settings.SetRefusedNames(patterns);
    WriteHomeFile("f", "x");
    WriteHomeFile("there.exe", "x");
    fs::create_directory(Home() / "Secret");
    Start();
    FtpTestClient client = LogIn();
    for (const char* name : {"a.exe", "A.EXE", "/x/../a.exe", ".htaccess", "~f", "there.exe", "Secret/f"}) {
        EXPECT_EQ(client.Upload(std::string("STOR ") + name, "y"), 553) << name;
        EXPECT_EQ(client.Upload(std::string("APPE ") + name, "y"), 553) << name;
        EXPECT_EQ(client.Upload(std::string("STOU ") + name, "y"), 553) << name;
        EXPECT_EQ(client.Code(std::string("MKD ") + name), 550) << name;
        EXPECT_EQ(client.Code("RNFR f"), 350);
        EXPECT_EQ(client.Ask(std::string("RNTO ") + name), "553 Name not allowed\n") << name;
    }
    EXPECT_EQ(ReadHomeFile("there.exe"), "x");
    EXPECT_EQ(std::distance(fs::recursive_directory_iterator(Home()), fs::recursive_directory_iterator()), 3);
    EXPECT_TRUE(HasEvent("File Upload Fail"));
    EXPECT_TRUE(HasEvent("Directory Create Fail"));
    std::string bytes;
    EXPECT_EQ(client.Download("RETR there.exe", bytes), 226) << "what is there may be had";
    EXPECT_EQ(client.Code("RNFR there.exe"), 350);
    EXPECT_EQ(client.Code("RNTO there.txt"), 250);
    EXPECT_EQ(client.Upload("STOR a.exe.txt", "y"), 226);
}

TEST_F(FtpServerTransfer, Stou_NameIsFreeOrNot_UniqueAndTold)
{
    WriteHomeFile("taken", "old");
    fs::create_directories(Home() / "sub/inner");
    Start();
    FtpTestClient client = LogIn();
    EXPECT_EQ(client.Code("TYPE I"), 200);
    const auto store = [&client](const std::string& argument) {
        FtpTestSocket data;
        EXPECT_TRUE(client.OpenPassive(data));
        const std::string reply = client.Ask("STOU" + argument);
        EXPECT_TRUE(reply.starts_with("150 FILE: ")) << reply;
        data.Send("new");
        data.Close();
        EXPECT_EQ(client.ReadCode(), 226);
        return reply.substr(10, reply.size() - 11);
    };
    const auto read = [&client](const std::string& name) {
        std::string bytes;
        EXPECT_EQ(client.Download("RETR " + name, bytes), 226) << name;
        return bytes;
    };
    EXPECT_EQ(store(" free"), "free");
    EXPECT_EQ(ReadHomeFile("free"), "new");
    for (const char* argument : {"", " taken", " sub", " sub/", " sub/inner", " /", " sub/.."}) {
        const std::string name = store(argument);
        EXPECT_EQ(read(name), "new") << argument;
    }
    EXPECT_TRUE(store(" taken").starts_with("taken."));
    EXPECT_TRUE(store(" sub/inner").starts_with("/sub/inner."));
    EXPECT_TRUE(store("").starts_with("upload."));
    EXPECT_EQ(ReadHomeFile("taken"), "old");
    EXPECT_EQ(client.Code("CWD sub"), 250);
    EXPECT_TRUE(store("").starts_with("upload."));
    EXPECT_TRUE(store(" /taken").starts_with("/taken."));
    EXPECT_TRUE(HasEvent("File Upload Success"));
    const auto count = std::distance(fs::recursive_directory_iterator(Home()), fs::recursive_directory_iterator());
    EXPECT_EQ(count, 3 + 1 + 7 + 5);
}

TEST_F(FtpServerTransfer, Stou_NotPossible_RefusedAndNothingStays)
{
    Start();
    FtpTestClient reader = LogIn("reader");
    EXPECT_EQ(reader.Upload("STOU f", "x"), 553);
    FtpTestClient client = LogIn();
    EXPECT_EQ(client.Code("STOU f"), 425) << "no data connection";
    EXPECT_EQ(client.Upload("STOU missing/f", "x"), 553);
    EXPECT_EQ(client.Upload("STOU a\x01"
                            "b",
                            "x"),
              553);
    EXPECT_EQ(client.Upload("STOU " + std::string(300, 'x'), "x"), 553);
    EXPECT_TRUE(fs::is_empty(Home()));
    EXPECT_EQ(client.Code("REST 5"), 350);
    EXPECT_EQ(client.Upload("STOU f", "x"), 226) << "a restart means nothing here";
    EXPECT_EQ(ReadHomeFile("f"), "x");
}

TEST_F(FtpServerTransfer, RestThenRetr_AtTheBorders)
{
    WriteHomeFile("f", "0123456789");
    Start();
    FtpTestClient client = LogIn();
    EXPECT_EQ(client.Code("TYPE I"), 200);
    const struct
    {
        const char* rest;
        int code;
        const char* bytes;
    } cases[] = {
        {"REST 0", 226, "0123456789"},
        {"REST 1", 226, "123456789"},
        {"REST 9", 226, "9"},
        {"REST 10", 226, ""},
        {"REST 11", 554, ""},
        {"REST 4294967296", 554, ""},
        {"REST 18446744073709551615", 554, ""},
    };
    for (const auto& entry : cases) {
        std::string bytes;
        EXPECT_EQ(client.Code(entry.rest), 350) << entry.rest;
        EXPECT_EQ(client.Download("RETR f", bytes), entry.code) << entry.rest;
        EXPECT_EQ(bytes, entry.bytes) << entry.rest;
    }
    std::string bytes;
    EXPECT_EQ(client.Download("RETR f", bytes), 226);
    EXPECT_EQ(bytes, "0123456789") << "a restart counts once";
}

TEST_F(FtpServerTransfer, RestThenStor_GoesOnFromThere)
{
    WriteHomeFile("f", "0123456789");
    Start();
    FtpTestClient client = LogIn();
    EXPECT_EQ(client.Code("TYPE I"), 200);
    EXPECT_EQ(client.Code("REST 10"), 350);
    EXPECT_EQ(client.Upload("STOR f", "ab"), 226);
    EXPECT_EQ(ReadHomeFile("f"), "0123456789ab");
    EXPECT_EQ(client.Code("REST 3"), 350);
    EXPECT_EQ(client.Upload("STOR f", "X"), 226);
    EXPECT_EQ(ReadHomeFile("f"), "012X") << "what lay behind is gone";
    EXPECT_EQ(client.Code("REST 5"), 350);
    EXPECT_EQ(client.Upload("STOR f", "Y"), 554);
    EXPECT_EQ(client.Code("REST 1"), 350);
    EXPECT_EQ(client.Upload("STOR new", "Y"), 553);
    EXPECT_FALSE(IsInHome("new"));
    EXPECT_EQ(ReadHomeFile("f"), "012X");
}

TEST_F(FtpServerTransfer, TypeA_LineEnds_ConvertedBothWays)
{
    WriteHomeFile("f", "a\nb\n\nc");
    Start();
    FtpTestClient client = LogIn();
    std::string bytes;
    EXPECT_EQ(client.Download("RETR f", bytes), 226);
    EXPECT_EQ(bytes, "a\r\nb\r\n\r\nc");
    EXPECT_EQ(client.Upload("STOR g", "x\r\ny\rz\r"), 226);
    EXPECT_EQ(ReadHomeFile("g"), "x\ny\rz\r");
    EXPECT_EQ(client.Code("REST 1"), 350);
    EXPECT_EQ(client.Download("RETR f", bytes), 554) << "a position means nothing in TYPE A";
}

TEST_F(FtpServerTransfer, TypeA_LargeFileOfLineEnds_RoundTrip)
{
    std::string text;
    for (int i = 0; i < 200000; ++i)
        text += i % 3 == 0 ? "\r\n" : i % 3 == 1 ? "\n" : "word\r";
    WriteHomeFile("f", text);
    Start();
    FtpTestClient client = LogIn();
    std::string bytes;
    EXPECT_EQ(client.Download("RETR f", bytes), 226);
    EXPECT_EQ(client.Upload("STOR g", bytes), 226);
    EXPECT_EQ(ReadHomeFile("g"), text);
}

// --- listings

TEST_F(FtpServerTransfer, List_FolderFileAndFlags)
{
    WriteHomeFile("file one", "12345");
    fs::create_directory(Home() / "sub");
    WriteHomeFile("sub/inner", "");
    Start();
    FtpTestClient client = LogIn();
    std::string listing;
    EXPECT_EQ(client.Download("LIST", listing), 226);
    ASSERT_EQ(Lines(listing).size(), 2U) << listing;
    EXPECT_NE(listing.find("file one\r\n"), std::string::npos);
    EXPECT_NE(listing.find("drwx"), std::string::npos);
    for (const char* line : {"LIST -a", "LIST -la", "LIST -a -l", "LIST /", "LIST -l /"}) {
        std::string again;
        EXPECT_EQ(client.Download(line, again), 226) << line;
        EXPECT_EQ(Lines(again).size(), 2U) << line;
    }
    EXPECT_EQ(client.Download("LIST sub", listing), 226);
    EXPECT_NE(listing.find(" inner\r\n"), std::string::npos) << listing;
    EXPECT_EQ(client.Download("LIST file one", listing), 226);
    EXPECT_EQ(Lines(listing).size(), 1U);
    EXPECT_NE(listing.find("       5 "), std::string::npos);
    EXPECT_EQ(client.Download("LIST missing", listing), 550);
    EXPECT_TRUE(HasEvent("Directory View Success"));
    EXPECT_TRUE(HasEvent("Directory View Fail"));
}

TEST_F(FtpServerTransfer, Nlst_NamesCanBeGivenBackToRetr)
{
    fs::create_directory(Home() / "sub");
    WriteHomeFile("sub/inner", "x");
    Start();
    FtpTestClient client = LogIn();
    std::string names;
    EXPECT_EQ(client.Download("NLST", names), 226);
    EXPECT_EQ(names, "sub\r\n");
    EXPECT_EQ(client.Download("NLST sub", names), 226);
    EXPECT_EQ(names, "sub/inner\r\n");
    EXPECT_EQ(client.Download("NLST sub/inner", names), 226);
    EXPECT_EQ(names, "sub/inner\r\n");
    EXPECT_EQ(client.Download("NLST /", names), 226);
    EXPECT_EQ(names, "/sub\r\n");
    EXPECT_EQ(client.Code("CWD sub"), 250);
    EXPECT_EQ(client.Download("NLST", names), 226);
    EXPECT_EQ(names, "inner\r\n");
    EXPECT_EQ(client.Download("NLST missing", names), 550);
}

TEST_F(FtpServerTransfer, Wildcards_InListAndNlst_TheEntriesThemselves)
{
    for (const char* name : {"b.txt", "a.txt", "a.TXT", "c.bin", ".hidden.txt"})
        WriteHomeFile(name, "x");
    fs::create_directories(Home() / "d.txt");
    WriteHomeFile("d.txt/inner.txt", "x");
    Start();
    FtpTestClient client = LogIn();
    std::string listing;
    const auto names = [&](const std::string& pattern) {
        listing.clear();
        EXPECT_EQ(client.Download("NLST " + pattern, listing), 226) << pattern;
        std::string found;
        for (const std::string& line : Lines(listing))
            found += line + "|";
        return found;
    };
    EXPECT_EQ(names("*.txt"), "a.txt|b.txt|d.txt|");
    EXPECT_EQ(names("-a [!a]*"), "b.txt|c.bin|d.txt|");
    EXPECT_EQ(names("/?.bin"), "/c.bin|");
    EXPECT_EQ(names(".*"), ".hidden.txt|");
    EXPECT_EQ(names("d.txt/*"), "d.txt/inner.txt|") << "ready for RETR";
    EXPECT_EQ(names("d.txt/../*.bin"), "d.txt/../c.bin|");
    EXPECT_EQ(names("../../*.bin"), "../../c.bin|") << "above the top is the top";
    EXPECT_EQ(names("*.none"), "");
    EXPECT_EQ(client.Download("LIST *.txt", listing), 226);
    ASSERT_EQ(Lines(listing).size(), 3U) << listing;
    EXPECT_TRUE(Lines(listing)[0].ends_with(" a.txt"));
    EXPECT_TRUE(Lines(listing)[2].starts_with("d") && Lines(listing)[2].ends_with(" d.txt"));
    EXPECT_EQ(client.Code("CWD d.txt"), 250);
    EXPECT_EQ(names("*"), "inner.txt|");
}

TEST_F(FtpServerTransfer, Wildcards_WhereTheyMeanNothing_Refused)
{
    fs::create_directory(Home() / "d");
    WriteHomeFile("f", "x");
    Start();
    FtpTestClient client = LogIn();
    std::string listing;
    EXPECT_EQ(client.Download("NLST */f", listing), 550) << "a folder of that name";
    EXPECT_EQ(client.Download("NLST f/*", listing), 550);
    EXPECT_EQ(client.Download("NLST missing/*", listing), 550);
    EXPECT_EQ(client.Download("NLST a\x01*", listing), 501);
    EXPECT_EQ(client.Download("MLSD *", listing), 501);
    EXPECT_EQ(client.Code("STAT *"), 550);
    FtpTestClient dropper = LogIn("dropper");
    EXPECT_EQ(dropper.Download("LIST *", listing), 550) << "without the right to read";
}

TEST_F(FtpServerTransfer, Wildcards_NameThatHasThem_IsTakenFirst)
{
    if (platform::PathSeparator() != '/')
        GTEST_SKIP() << "this system has no such names";
    WriteHomeFile("a*", "x");
    WriteHomeFile("ab", "x");
    fs::create_directory(Home() / "[b]");
    WriteHomeFile("[b]/inner", "x");
    WriteHomeFile("b", "x");
    Start();
    FtpTestClient client = LogIn();
    std::string names;
    EXPECT_EQ(client.Download("NLST a*", names), 226);
    EXPECT_EQ(names, "a*\r\n");
    EXPECT_EQ(client.Download("NLST [b]", names), 226);
    EXPECT_EQ(names, "[b]/inner\r\n");
    EXPECT_EQ(client.Download("NLST [b]/i*", names), 226);
    EXPECT_EQ(names, "[b]/inner\r\n") << "the folder is no pattern";
    EXPECT_EQ(client.Download("NLST a\\**", names), 226);
    EXPECT_EQ(names, "a*\r\n");
    EXPECT_EQ(client.Download("NLST a?", names), 226);
    EXPECT_EQ(names, "a*\r\nab\r\n");
}

TEST_F(FtpServerTransfer, Wildcards_LinkOutOfTheHome_NotThere)
{
    fs::create_symlink("/", Home() / "out");
    fs::create_symlink("f", Home() / "in");
    WriteHomeFile("f", "x");
    Start();
    FtpTestClient client = LogIn();
    std::string names;
    EXPECT_EQ(client.Download("NLST *", names), 226);
    EXPECT_EQ(names, "f\r\nin\r\n");
    EXPECT_EQ(client.Download("NLST out/*", names), 550);
}

TEST_F(FtpServerTransfer, Mlsd_FolderOnly)
{
    WriteHomeFile("f", "12345");
    fs::create_symlink("f", Home() / "link");
    fs::create_symlink("nowhere", Home() / "dangling");
    Start();
    FtpTestClient client = LogIn();
    std::string listing;
    EXPECT_EQ(client.Code("OPTS MLST type;size;"), 200);
    EXPECT_EQ(client.Download("MLSD", listing), 226);
    const std::vector<std::string> lines = Lines(listing);
    EXPECT_EQ(std::set<std::string>(lines.begin(), lines.end()),
              (std::set<std::string>{"type=cdir; .", "type=file;size=5; f", "type=file;size=5; link"}));
    EXPECT_EQ(client.Download("MLSD f", listing), 501);
    EXPECT_EQ(client.Download("MLSD missing", listing), 501);
}

TEST_F(FtpServerTransfer, Listings_LinksThatCannotBeFollowed_AreNotThere)
{
    fs::create_directory(m_folder / "outside");
    fs::create_symlink("../outside", Home() / "out");
    fs::create_symlink(Home(), Home() / "absolute");
    fs::create_symlink("nowhere", Home() / "dangling");
    fs::create_symlink("loop", Home() / "loop");
    fs::create_symlink(".", Home() / "good");
    Start();
    FtpTestClient client = LogIn();
    std::string listing;
    EXPECT_EQ(client.Download("NLST", listing), 226);
    EXPECT_EQ(listing, "good\r\n");
    EXPECT_EQ(client.Download("LIST", listing), 226);
    EXPECT_EQ(Lines(listing).size(), 1U) << listing;
    for (const char* name : {"out", "absolute", "dangling", "loop"}) {
        for (const char* command : {"CWD ", "MLST ", "STAT "})
            EXPECT_EQ(client.Code(std::string(command) + name), 550) << command << name;
        for (const char* command : {"LIST ", "NLST ", "RETR "})
            EXPECT_EQ(client.Download(std::string(command) + name, listing), 550) << command << name;
    }
    EXPECT_EQ(client.Code("DELE out"), 250) << "the link itself is the user's";
}

TEST_F(FtpServerTransfer, Listings_AnyOrderOnTheDisk_SortedByName)
{
    const std::vector<std::string> sorted = {"B", "Z", "a", "a.b", "a1", "a10", "a2", "c"};
    for (const std::size_t index : {7, 2, 0, 5, 1, 3, 6, 4})
        WriteHomeFile(sorted[index], "");
    Start();
    FtpTestClient client = LogIn();
    std::string listing;
    std::string wanted;
    for (const std::string& name : sorted)
        wanted += name + "\r\n";
    EXPECT_EQ(client.Download("NLST", listing), 226);
    EXPECT_EQ(listing, wanted);
    for (const char* command : {"LIST", "MLSD"}) {
        EXPECT_EQ(client.Download(command, listing), 226);
        std::vector<std::string> lines = Lines(listing);
        if (command == std::string("MLSD"))
            lines.erase(lines.begin()); // of the folder itself
        ASSERT_EQ(lines.size(), sorted.size()) << command;
        for (std::size_t i = 0; i < lines.size(); ++i)
            EXPECT_TRUE(lines[i].ends_with(" " + sorted[i])) << lines[i];
    }
}

TEST_F(FtpServerTransfer, Stat_WithPath_ListsOnTheControlConnection)
{
    WriteHomeFile("f", "12345");
    Start();
    FtpTestClient client = LogIn();
    const std::string folder = client.Ask("STAT /");
    EXPECT_EQ(folder.rfind("212-", 0), 0U);
    EXPECT_NE(folder.find(" f\n212 End of status\n"), std::string::npos) << folder;
    EXPECT_EQ(client.Ask("STAT f").rfind("213-", 0), 0U);
    EXPECT_EQ(client.Code("STAT missing"), 550);
}

TEST_F(FtpServerTransfer, Listings_10000Files_Complete)
{
    constexpr int COUNT = 10000;
    for (int i = 0; i < COUNT; ++i)
        WriteHomeFile("file-" + std::to_string(i), "");
    Start();
    FtpTestClient client = LogIn();
    for (const char* line : {"LIST", "NLST", "MLSD"}) {
        std::string listing;
        EXPECT_EQ(client.Download(line, listing), 226);
        EXPECT_EQ(Lines(listing).size(), std::string(line) == "MLSD" ? COUNT + 1U : COUNT) << line;
        EXPECT_NE(listing.find("file-9999\r\n"), std::string::npos);
    }
    EXPECT_EQ(client.Code("STAT /"), 212);
}

// --- transfers that break off

/// A download that runs, of a file that never ends.
class FtpServerRunning : public FtpServerFixture
{
protected:
    void StartDownload(FtpTestClient& client, FtpTestSocket& data)
    {
        WriteHomeFile("big", "");
        fs::resize_file(Home() / "big", HUGE_BYTES);
        Start();
        client = LogIn();
        EXPECT_EQ(client.Code("TYPE I"), 200);
        ASSERT_TRUE(client.OpenPassive(data));
        ASSERT_EQ(client.Code("RETR big"), 150);
        std::string bytes;
        ASSERT_TRUE(data.Receive(bytes));
    }
    /// The number of the session at index in the live list.
    std::string SessionNumber(ULONG index)
    {
        NetServiceLiveStatus live;
        m_server.GetService().GetLiveSessions(live);
        EXPECT_LT(index, live.GetCount());
        return std::to_string(live.GetStatus(index).GetStatus().GetSessionID().GetSession());
    }
    void StartUpload(FtpTestClient& client, FtpTestSocket& data, const char* type = "TYPE I")
    {
        Start();
        client = LogIn();
        EXPECT_EQ(client.Code(type), 200);
        ASSERT_TRUE(client.OpenPassive(data));
        ASSERT_EQ(client.Code("STOR f"), 150);
        ASSERT_TRUE(data.Send("received"));
        ASSERT_TRUE(WaitFor([this] { return ReadHomeFile("f") == "received"; }));
    }
};

TEST_F(FtpServerRunning, Abor_InADownload_426Then226)
{
    FtpTestClient client;
    FtpTestSocket data;
    StartDownload(client, data);
    EXPECT_EQ(client.Code("ABOR"), 426);
    EXPECT_EQ(client.ReadCode(), 226);
    EXPECT_TRUE(data.WaitClosed(20000));
    EXPECT_EQ(client.Code("NOOP"), 200);
    EXPECT_TRUE(HasEvent("File Download Fail"));
    EXPECT_EQ(client.Code("ABOR"), 226) << "nothing runs";
}

TEST_F(FtpServerRunning, Abor_WithTelnetInterrupt_Works)
{
    FtpTestClient client;
    FtpTestSocket data;
    StartDownload(client, data);
    client.Send("\xFF\xF4\xFF\xF2"
                "ABOR\r\n");
    EXPECT_EQ(client.ReadCode(), 426);
    EXPECT_EQ(client.ReadCode(), 226);
}

TEST_F(FtpServerRunning, Abor_ByteByByteBehindOtherCommands_RepliesInOrder)
{
    FtpTestClient client;
    FtpTestSocket data;
    StartDownload(client, data);
    for (const char byte : std::string("SYST\r\nabor\r\nPWD\r\n"))
        client.Send(std::string(1, byte));
    EXPECT_EQ(client.ReadCode(), 426);
    EXPECT_EQ(client.ReadCode(), 215);
    EXPECT_EQ(client.ReadCode(), 226);
    EXPECT_EQ(client.ReadCode(), 257);
}

TEST_F(FtpServerRunning, Abor_InAnUpload_PartStaysForARestart)
{
    FtpTestClient client;
    FtpTestSocket data;
    StartUpload(client, data);
    EXPECT_EQ(client.Code("ABOR"), 426);
    EXPECT_EQ(client.ReadCode(), 226);
    EXPECT_TRUE(HasEvent("File Upload Fail"));
    EXPECT_EQ(client.Ask("SIZE f"), "213 8\n");
    EXPECT_EQ(client.Code("REST 8"), 350);
    EXPECT_EQ(client.Upload("STOR f", " and resumed"), 226);
    EXPECT_EQ(ReadHomeFile("f"), "received and resumed");
}

TEST_F(FtpServerRunning, Abor_WhileNobodyConnects_426Then226)
{
    WriteHomeFile("f", "x");
    Start();
    FtpTestClient client = LogIn();
    EXPECT_EQ(client.Code("EPSV"), 229);
    EXPECT_EQ(client.Code("RETR f"), 150);
    EXPECT_EQ(client.Code("ABOR"), 426);
    EXPECT_EQ(client.ReadCode(), 226);
}

TEST_F(FtpServerRunning, Abor_SentTogetherWithTheCommand_426Then226)
{
    WriteHomeFile("big", "");
    fs::resize_file(Home() / "big", HUGE_BYTES);
    Start();
    FtpTestClient client = LogIn();
    FtpTestSocket data;
    ASSERT_TRUE(client.OpenPassive(data));
    client.Send("RETR big\r\nABOR\r\n");
    EXPECT_EQ(client.ReadCode(), 150);
    EXPECT_EQ(client.ReadCode(), 426);
    EXPECT_EQ(client.ReadCode(), 226);
}

TEST_F(FtpServerRunning, Abor_SentTogetherWithAnUpload_OldContentStays)
{
    WriteHomeFile("f", "old");
    Start();
    FtpTestClient client = LogIn();
    FtpTestSocket data;
    ASSERT_TRUE(client.OpenPassive(data));
    client.Send("STOR f\r\nABOR\r\n");
    EXPECT_EQ(client.ReadCode(), 150);
    EXPECT_EQ(client.ReadCode(), 426);
    EXPECT_EQ(client.ReadCode(), 226);
    EXPECT_EQ(ReadHomeFile("f"), "old");
}

TEST_F(FtpServerRunning, Stat_WhileItRuns_AnsweredAtOnce)
{
    FtpTestClient client;
    FtpTestSocket data;
    StartUpload(client, data);
    EXPECT_EQ(client.Ask("STAT"), "213 STOR /f: 8 bytes moved\n");
    EXPECT_EQ(client.Ask("stat"), "213 STOR /f: 8 bytes moved\n");
    data.Close();
    EXPECT_EQ(client.ReadCode(), 226);
    EXPECT_EQ(ReadHomeFile("f"), "received");
}

TEST_F(FtpServerRunning, Stat_SentTogetherWithTheCommand_AnsweredBeforeTheEnd)
{
    Start();
    FtpTestClient client = LogIn();
    FtpTestSocket data;
    ASSERT_TRUE(client.OpenPassive(data));
    client.Send("STOR f\r\nSTAT\r\nSTAT\r\nNOOP\r\n");
    EXPECT_EQ(client.ReadCode(), 150);
    EXPECT_EQ(client.ReadReply(), "213 STOR /f: 0 bytes moved\n");
    EXPECT_EQ(client.ReadReply(), "213 STOR /f: 0 bytes moved\n");
    data.Close();
    EXPECT_EQ(client.ReadCode(), 226);
    EXPECT_EQ(client.ReadCode(), 200);
}

TEST_F(FtpServerRunning, OtherCommands_WaitUntilItsEnd)
{
    FtpTestClient client;
    FtpTestSocket data;
    StartUpload(client, data);
    client.Send("SYST\r\nPW");
    client.Send("D\r\nSTAT\r\nQUIT\r\n");
    EXPECT_EQ(client.ReadReply(200), "") << "nothing is answered out of turn";
    data.Close();
    EXPECT_EQ(client.ReadCode(), 226);
    EXPECT_EQ(client.ReadCode(), 215);
    EXPECT_EQ(client.ReadCode(), 257);
    EXPECT_EQ(client.ReadCode(), 211);
    EXPECT_EQ(client.ReadCode(), 221);
}

TEST_F(FtpServerRunning, StopTransferMessage_426AndTheSessionGoesOn)
{
    FtpTestClient client;
    FtpTestSocket data;
    StartDownload(client, data);
    m_server.GetService().SendControlMsgStopTransferAll("");
    EXPECT_EQ(client.ReadReply(), "426 Transfer stopped by the administrator\n");
    EXPECT_EQ(client.Code("NOOP"), 200);
}

TEST_F(FtpServerRunning, StopTransferMessage_WithoutATransfer_IsForgotten)
{
    WriteHomeFile("f", "x");
    Start();
    FtpTestClient client = LogIn();
    m_server.GetService().SendControlMsgStopTransferAll("");
    std::string bytes;
    EXPECT_EQ(client.Code("NOOP"), 200);
    WaitFor([] { return false; }, 100); // let the session take the message
    EXPECT_EQ(client.Download("RETR f", bytes), 226);
}

TEST_F(FtpServerRunning, DisconnectMessage_421AndClosed)
{
    FtpTestClient client;
    FtpTestSocket data;
    StartDownload(client, data);
    m_server.GetService().SendControlMsgDisconnectAll("Maintenance");
    EXPECT_EQ(client.ReadReply(), "421 Maintenance\n");
    EXPECT_TRUE(client.GetSocket().WaitClosed());
    EXPECT_TRUE(WaitNoSessions());
}

TEST_F(FtpServerRunning, DisconnectMessage_WhileIdle_421AndClosed)
{
    Start();
    FtpTestClient client = LogIn();
    m_server.GetService().SendControlMsgDisconnectAll("");
    EXPECT_EQ(client.ReadReply(), "421 Disconnected by the administrator\n");
    EXPECT_TRUE(client.GetSocket().WaitClosed());
}

TEST_F(FtpServerRunning, ControlConnectionHangsUp_TransferEnds)
{
    FtpTestClient client;
    FtpTestSocket data;
    StartDownload(client, data);
    client.Close();
    EXPECT_TRUE(data.WaitClosed(20000));
    EXPECT_TRUE(WaitNoSessions());
    EXPECT_TRUE(HasEvent("File Download Fail"));
}

TEST_F(FtpServerRunning, DataConnectionHangsUp_426)
{
    FtpTestClient client;
    FtpTestSocket data;
    StartDownload(client, data);
    data.Close();
    EXPECT_EQ(client.ReadCode(), 426);
    EXPECT_EQ(client.Code("NOOP"), 200);
}

TEST_F(FtpServerRunning, DataConnectionReset_UploadIs426AndRecordedAsFailure)
{
    for (const char* type : {"TYPE I", "TYPE A"}) {
        FtpTestClient client;
        FtpTestSocket data;
        StartUpload(client, data, type);
        data.Reset();
        EXPECT_EQ(client.ReadReply(), "426 The data connection was lost\n") << type;
        EXPECT_EQ(ReadHomeFile("f"), "received") << "what came stays, to be resumed";
        EXPECT_TRUE(HasEvent("File Upload Fail"));
        EXPECT_FALSE(HasEvent("File Upload Success"));
        ASSERT_TRUE(client.OpenPassive(data));
        ASSERT_EQ(client.Code("APPE f"), 150);
        data.Reset();
        const int code = client.ReadCode(); // not a byte came, and maybe nobody took the connection before it was reset
        EXPECT_TRUE(code == 426 || code == 425) << code;
        EXPECT_EQ(ReadHomeFile("f"), "received");
        EXPECT_TRUE(HasEvent("File Append Fail"));
        client.Close();
        m_server.Stop();
        fs::remove(Home() / "f");
    }
}

TEST_F(FtpServerRunning, Upload_FileIsBeingUploaded_450AndTheFirstGoesOn)
{
    FtpTestClient first;
    FtpTestSocket data;
    StartUpload(first, data);
    fs::create_symlink("f", Home() / "link");
    FtpTestClient second = LogIn("writer");
    for (const char* command : {"STOR f", "APPE f", "STOR link"})
        EXPECT_EQ(second.Upload(command, "other"), 450) << command;
    EXPECT_EQ(second.Code("REST 3"), 350);
    EXPECT_EQ(second.Upload("STOR f", "other"), 450);
    EXPECT_EQ(second.Upload("STOR g", "other"), 226);
    EXPECT_TRUE(data.Send(" more"));
    data.Close();
    EXPECT_EQ(first.ReadCode(), 226);
    EXPECT_EQ(ReadHomeFile("f"), "received more");
    for (int i = 0; i < 20; ++i) // the reply says that the file is free again
        ASSERT_EQ((i % 2 == 0 ? first : second).Upload("STOR f", "new"), 226);
    EXPECT_TRUE(HasEvent("File Upload Fail"));
}

TEST_F(FtpServerRunning, Upload_FirstOneFails_FileIsFreeAgain)
{
    FtpTestClient first;
    FtpTestSocket data;
    StartUpload(first, data);
    FtpTestClient second = LogIn("writer");
    data.Reset();
    EXPECT_EQ(first.ReadCode(), 426);
    EXPECT_EQ(second.Upload("STOR f", "other"), 226);
    ASSERT_TRUE(first.OpenPassive(data));
    ASSERT_EQ(first.Code("STOR f"), 150);
    first.Close(); // as if it had died
    EXPECT_TRUE(WaitFor([&] { return second.Upload("STOR f", "other") == 226; }));
}

TEST_F(FtpServerRunning, HiddenUploads_AppearWholeOrNotAtAll)
{
    m_settings.SetHiddenUploads(true);
    WriteHomeFile("f", "old");
    Start();
    FtpTestClient first = LogIn("writer");
    FtpTestClient second = LogIn("writer");
    FtpTestSocket data;
    ASSERT_TRUE(first.OpenPassive(data));
    ASSERT_EQ(first.Code("STOR f"), 150);
    ASSERT_TRUE(data.Send("first"));
    EXPECT_EQ(second.Upload("STOR f", "second"), 226);
    EXPECT_EQ(ReadHomeFile("f"), "second");
    data.Close();
    EXPECT_EQ(first.ReadCode(), 226);
    EXPECT_EQ(ReadHomeFile("f"), "first") << "who ends last wins, and nothing is mixed";
    ASSERT_TRUE(first.OpenPassive(data));
    ASSERT_EQ(first.Code("STOR f"), 150);
    ASSERT_TRUE(data.Send("half"));
    ASSERT_TRUE(WaitFor([this] {
        return std::any_of(fs::directory_iterator(Home()), fs::directory_iterator(),
                           [](const fs::directory_entry& file) {
                               return file.path().filename().string().starts_with(".kqftpd-") && file.file_size() == 4;
                           });
    }));
    data.Reset();
    EXPECT_EQ(first.ReadCode(), 426);
    EXPECT_EQ(ReadHomeFile("f"), "first");
    EXPECT_EQ(first.Upload("STOR new", "n"), 226);
    EXPECT_EQ(ReadHomeFile("new"), "n");
    EXPECT_EQ(first.Upload("APPE new", "ew"), 226) << "straight into the file";
    EXPECT_EQ(ReadHomeFile("new"), "new");
    EXPECT_EQ(first.Code("TYPE I"), 200);
    EXPECT_EQ(first.Code("REST 1"), 350);
    EXPECT_EQ(first.Upload("STOR new", "x"), 226);
    EXPECT_EQ(ReadHomeFile("new"), "nx");
    EXPECT_EQ(std::distance(fs::directory_iterator(Home()), fs::directory_iterator()), 2) << "no hidden file is left";
}

TEST_F(FtpServerRunning, HiddenUploads_WhatMayNotBeWritten_IsNotReplaced)
{
    m_settings.SetHiddenUploads(true);
    fs::create_directory(Home() / "folder");
    WriteHomeFile("target", "old");
    fs::create_symlink("target", Home() / "link");
    fs::create_symlink("../outside", Home() / "out");
    Start();
    FtpTestClient client = LogIn("writer");
    EXPECT_EQ(client.Upload("STOR folder", "x"), 553);
    EXPECT_EQ(client.Upload("STOR missing/f", "x"), 553);
    EXPECT_EQ(client.Upload("STOR out", "x"), 553);
    EXPECT_EQ(LogIn("reader").Upload("STOR f", "x"), 553);
    EXPECT_EQ(client.Upload("STOR link", "new"), 226);
    EXPECT_EQ(ReadHomeFile("target"), "new");
    EXPECT_TRUE(fs::is_symlink(Home() / "link"));
    EXPECT_EQ(client.Code("STOR f"), 425) << "no data connection was prepared";
    EXPECT_EQ(std::distance(fs::directory_iterator(Home()), fs::directory_iterator()), 4);
}

TEST_F(FtpServerRunning, NothingMoves_426AfterTheStallTime)
{
    m_settings.SetStallSecs(1);
    FtpTestClient client;
    FtpTestSocket data;
    StartUpload(client, data);
    EXPECT_EQ(client.ReadReply(), "426 Nothing moved for too long\n");
    EXPECT_EQ(client.Code("NOOP"), 200);
    EXPECT_EQ(ReadHomeFile("f"), "received");
}

TEST_F(FtpServerRunning, SiteStop_InADownload_426AndTheSessionGoesOn)
{
    FtpTestClient client;
    FtpTestSocket data;
    StartDownload(client, data);
    FtpTestClient admin = LogIn();
    EXPECT_EQ(admin.Ask("SITE STOP " + SessionNumber(0)), "200 Asked to stop its transfer\n");
    EXPECT_EQ(client.ReadReply(), "426 Transfer stopped by the administrator\n");
    EXPECT_EQ(client.Code("NOOP"), 200);
}

TEST_F(FtpServerRunning, SiteKick_InADownload_421WithTheTextAndGone)
{
    FtpTestClient client;
    FtpTestSocket data;
    StartDownload(client, data);
    FtpTestClient admin = LogIn();
    EXPECT_EQ(admin.Ask("SITE KICK " + SessionNumber(0) + " Back at  noon"), "200 Asked to end\n");
    EXPECT_EQ(client.ReadReply(), "421 Back at  noon\n");
    EXPECT_TRUE(client.GetSocket().WaitClosed());
    EXPECT_TRUE(WaitFor([this] { return SessionCount() == 1; }));
    EXPECT_EQ(admin.Code("NOOP"), 200);
}

TEST_F(FtpServerRunning, SiteKick_WrongOrUnknownSession_501Or550)
{
    Start();
    FtpTestClient admin = LogIn();
    FtpTestClient reader = LogIn("reader");
    for (const char* line : {"SITE KICK", "SITE STOP", "SITE KICK x", "SITE KICK -1", "SITE STOP 1 text"})
        EXPECT_EQ(admin.Code(line), 501) << line;
    EXPECT_EQ(admin.Code("SITE KICK 4294967295"), 550);
    EXPECT_EQ(admin.Code("SITE STOP 9999999999"), 550);
    EXPECT_EQ(reader.Code("SITE KICK " + SessionNumber(0)), 550);
    EXPECT_EQ(reader.Code("SITE STOP " + SessionNumber(0)), 550);
    EXPECT_EQ(SessionCount(), 2U);
}

TEST_F(FtpServerRunning, ClientNeverReads_426AfterTheStallTime)
{
    m_settings.SetStallSecs(1);
    FtpTestClient client;
    FtpTestSocket data;
    StartDownload(client, data);
    EXPECT_EQ(client.ReadReply(), "426 Nothing moved for too long\n");
}

TEST_F(FtpServerTransfer, Stor_DiskFull_452AndRecordedAsFailure)
{
    const std::string mount = "mount -t tmpfs -o size=1m tmpfs '" + Home().string() + "' 2>/dev/null";
    if (std::system(mount.c_str()) != 0) {
        KQ_MISSING("a small tmpfs cannot be mounted here (needs root)");
    }
    {
        Start();
        FtpTestClient client = LogIn();
        EXPECT_EQ(client.Code("TYPE I"), 200);
        FtpTestSocket data;
        ASSERT_TRUE(client.OpenPassive(data));
        EXPECT_EQ(client.Code("STOR f"), 150);
        data.Send(Pattern(4000000));
        EXPECT_EQ(client.ReadReply(), "452 No space left\n");
        EXPECT_TRUE(HasEvent("File Upload Fail"));
        EXPECT_EQ(client.Code("DELE f"), 250);
        EXPECT_EQ(client.Upload("STOR f", "small"), 226);
        m_server.Stop();
    }
    EXPECT_EQ(std::system(("umount '" + Home().string() + "'").c_str()), 0);
}

TEST_F(FtpServerTransfer, Transfers_FourClientsAtOnce_AllBytesRight)
{
    Start();
    std::vector<std::thread> threads;
    std::atomic<int> good{0};
    for (int number = 0; number < 4; ++number)
        threads.emplace_back([this, number, &good] {
            FtpTestClient client;
            if (!client.LogIn(m_port, "admin", "secret") || client.Code("TYPE I") != 200)
                return;
            const std::string name = "f" + std::to_string(number);
            const std::string bytes = Pattern(1000000 + static_cast<std::size_t>(number));
            std::string got;
            if (client.Upload("STOR " + name, bytes) == 226 && client.Download("RETR " + name, got) == 226 &&
                got == bytes && client.Code("RNFR " + name) == 350 && client.Code("RNTO moved-" + name) == 250)
                ++good;
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(good, 4);
}

} // namespace
} // namespace kqlib::test
