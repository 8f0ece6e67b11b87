// Dialogues: hashes, room, rights and times of files.
#include "tests/hosts/ftp/FtpServerFixture.h"

namespace kqlib::test {
namespace {

namespace fs = std::filesystem;

// Of "abc" and of nothing, as FIPS 180-2 and RFC 1321 list them.
constexpr const char* ABC_SHA256 = "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";
constexpr const char* ABC_SHA1 = "a9993e364706816aba3e25717850c26c9cd0d89d";
constexpr const char* EMPTY_SHA256 = "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855";
constexpr std::uintmax_t HUGE_BYTES = std::uintmax_t{1} << 34; // takes many seconds to hash; the file is sparse

class FtpServerCommands : public FtpServerFixture
{
protected:
    void MakeHugeFile() const
    {
        WriteHomeFile("huge", "");
        fs::resize_file(Home() / "huge", HUGE_BYTES);
    }
};

TEST_F(FtpServerCommands, Hash_KnownTexts_KnownHashes)
{
    WriteHomeFile("a b", "abc");
    WriteHomeFile("empty", "");
    Start();
    FtpTestClient client = LogIn("reader");
    EXPECT_EQ(client.Ask("HASH a b"), std::string("213 SHA-256 0-3 ") + ABC_SHA256 + " a b\n");
    EXPECT_EQ(client.Ask("HASH /empty"), std::string("213 SHA-256 0-0 ") + EMPTY_SHA256 + " /empty\n");
    EXPECT_EQ(client.Ask("OPTS HASH"), "200 SHA-256\n");
    EXPECT_EQ(client.Ask("OPTS HASH sha-1"), "200 SHA-1\n");
    EXPECT_EQ(client.Ask("HASH a b"), std::string("213 SHA-1 0-3 ") + ABC_SHA1 + " a b\n");
    EXPECT_EQ(client.Code("OPTS HASH CRC32"), 504);
    EXPECT_EQ(client.Ask("OPTS HASH"), "200 SHA-1\n");
    EXPECT_NE(client.Ask("FEAT").find("\n HASH SHA-512;SHA-256;SHA-1*;MD5\n"), std::string::npos);
}

TEST_F(FtpServerCommands, XHashes_KnownTexts_InCapitals)
{
    WriteHomeFile("a b", "abc");
    Start();
    FtpTestClient client = LogIn("reader");
    EXPECT_EQ(client.Ask("XSHA256 a b"), "250 BA7816BF8F01CFEA414140DE5DAE2223B00361A396177A9CB410FF61F20015AD\n");
    EXPECT_EQ(client.Ask("XSHA256 \"a b\""), client.Ask("XSHA256 a b"));
    EXPECT_EQ(client.Ask("XSHA1 a b"), "250 A9993E364706816ABA3E25717850C26C9CD0D89D\n");
    EXPECT_EQ(client.Ask("XMD5 a b"), "250 900150983CD24FB0D6963F7D28E17F72\n");
    EXPECT_EQ(client.Ask("XSHA512 a b"),
              "250 DDAF35A193617ABACC417349AE20413112E6FA4E89A97EA20A9EEEE64B55D39A2192992A274FC1A836BA3C23A3FEEBBD"
              "454D4423643CE80E2A9AC94FA54CA49F\n");
    const std::string features = client.Ask("FEAT");
    for (const char* line : {"\n XMD5\n", "\n XSHA1\n", "\n XSHA256\n", "\n XSHA512\n", "\n AVBL\n"})
        EXPECT_NE(features.find(line), std::string::npos) << line;
}

TEST_F(FtpServerCommands, Hash_SeveralPieces_AsOfTheWholeFile)
{
    const std::string bytes = Pattern(3 * 256 * 1024 + 1);
    WriteHomeFile("f", bytes);
    WriteHomeFile("g", bytes.substr(0, bytes.size() - 1) + "x");
    Start();
    FtpTestClient client = LogIn("reader");
    const std::string hash = client.Ask("XSHA256 f");
    EXPECT_EQ(client.Upload("STOR f", "x"), 553) << "still only a reader";
    EXPECT_EQ(client.Ask("XSHA256 f"), hash);
    EXPECT_NE(client.Ask("XSHA256 g"), hash);
}

TEST_F(FtpServerCommands, Hash_WhatMayNotBeRead_550)
{
    fs::create_directory(Home() / "d");
    WriteHomeFile("f", "abc");
    Start();
    FtpTestClient client = LogIn();
    FtpTestClient dropper = LogIn("dropper");
    for (const char* command : {"HASH ", "XSHA256 ", "XSHA1 ", "XMD5 ", "XSHA512 "}) {
        EXPECT_EQ(client.Code(std::string(command) + "d"), 550) << command;
        EXPECT_EQ(client.Code(std::string(command) + "missing"), 550) << command;
        EXPECT_EQ(client.Code(std::string(command) + "../../../etc/passwd"), 550) << command;
        EXPECT_EQ(client.Code(std::string(command) + "a\x01"), 550) << command;
        EXPECT_EQ(dropper.Code(std::string(command) + "f"), 550) << command;
    }
    EXPECT_EQ(client.Code("XSHA256 \""), 550);
    EXPECT_EQ(client.Code("XSHA256 \"\""), 550);
}

TEST_F(FtpServerCommands, Hash_Abor_426Then226AndTheDataConnectionWasNotTouched)
{
    MakeHugeFile();
    WriteHomeFile("f", "abc");
    Start();
    FtpTestClient client = LogIn();
    FtpTestSocket data;
    ASSERT_TRUE(client.OpenPassive(data));
    client.Send("HASH huge\r\n");
    client.Send("STAT\r\n");
    EXPECT_TRUE(client.ReadReply().starts_with("213 HASH /huge: "));
    client.Send("ABOR\r\n");
    EXPECT_EQ(client.ReadReply(), "426 Transfer aborted\n");
    EXPECT_EQ(client.ReadCode(), 226);
    ASSERT_TRUE(client.OpenPassive(data));
    EXPECT_EQ(client.Code("HASH f"), 213);
    EXPECT_EQ(client.Code("RETR f"), 150);
    EXPECT_EQ(data.ReceiveAll(), "abc");
    EXPECT_EQ(client.ReadCode(), 226);
}

TEST_F(FtpServerCommands, Hash_ServerStops_Ends)
{
    MakeHugeFile();
    Start();
    FtpTestClient client = LogIn();
    client.Send("HASH huge\r\nSTAT\r\n");
    EXPECT_TRUE(client.ReadReply().starts_with("213 HASH /huge: "));
    EXPECT_NE(LogIn().Ask("SITE WHO").find(" hashing /huge\n"), std::string::npos);
    m_server.Stop();
    EXPECT_EQ(client.ReadReply(), "421 The service is stopping\n");
    EXPECT_TRUE(client.GetSocket().WaitClosed());
}

TEST_F(FtpServerCommands, Hash_ClientHangsUp_SessionEnds)
{
    MakeHugeFile();
    Start();
    FtpTestClient client = LogIn();
    client.Send("XSHA512 huge\r\nSTAT\r\n");
    EXPECT_TRUE(client.ReadReply().starts_with("213 XSHA512 /huge: "));
    client.Close();
    EXPECT_TRUE(WaitNoSessions());
}

TEST_F(FtpServerCommands, Avbl_RoomOfAFolder_ForWriters)
{
    fs::create_directory(Home() / "d");
    WriteHomeFile("f", "abc");
    Start();
    FtpTestClient client = LogIn("writer");
    for (const char* line : {"AVBL", "AVBL /", "AVBL d"}) {
        const std::string reply = client.Ask(line);
        ASSERT_TRUE(reply.starts_with("213 ")) << reply;
        const double told = std::stod(reply.substr(4));
        const auto now = static_cast<double>(fs::space(Home()).available);
        EXPECT_NEAR(told, now, now / 2 + 1e9) << "others write meanwhile";
    }
    EXPECT_EQ(client.Code("AVBL f"), 550);
    EXPECT_EQ(client.Code("AVBL missing"), 550);
    FtpTestClient reader = LogIn("reader");
    EXPECT_EQ(reader.Code("AVBL"), 550);
}

TEST_F(FtpServerCommands, SiteChmod_SetsTheNineBits)
{
    fs::create_directory(Home() / "d");
    WriteHomeFile("a b", "abc");
    Start();
    FtpTestClient client = LogIn("writer");
    const auto mode = [this](const char* name) {
        return static_cast<unsigned>(fs::status(Home() / name).permissions() & fs::perms::all);
    };
    const unsigned meaning = platform::PathSeparator() == '/' ? 0777U : 0200U; // of the bits, on this system
    EXPECT_EQ(client.Code("SITE CHMOD 440 a b"), 200);
    EXPECT_EQ(mode("a b") & meaning, 0440U & meaning);
    EXPECT_EQ(client.Code("site chmod 0644 /a b"), 200);
    EXPECT_EQ(mode("a b") & meaning, 0644U & meaning);
    EXPECT_EQ(client.Code("SITE CHMOD 700 d"), 200);
    EXPECT_EQ(mode("d") & meaning, 0700U & meaning);
    EXPECT_EQ(ReadHomeFile("a b"), "abc");
}

TEST_F(FtpServerCommands, SiteChmod_NotPossible_Refused)
{
    WriteHomeFile("f", "abc");
    Start();
    FtpTestClient client = LogIn("writer");
    for (const char* line : {"SITE CHMOD", "SITE CHMOD 644", "SITE CHMOD 644 ", "SITE CHMOD 648 f", "SITE CHMOD 64 f",
                             "SITE CHMOD 4644 f", "SITE CHMOD u+x f", "SITE CHMOD 06440 f"})
        EXPECT_EQ(client.Code(line), 501) << line;
    EXPECT_EQ(client.Code("SITE CHMOD 644 missing"), 550);
    EXPECT_EQ(client.Code("SITE CHMOD 000 /"), 550) << "the home itself";
    EXPECT_EQ(client.Code("SITE CHMOD 000 ../.."), 550);
    FtpTestClient reader = LogIn("reader");
    EXPECT_EQ(reader.Code("SITE CHMOD 644 f"), 550);
}

TEST_F(FtpServerCommands, SiteChmod_Links_FollowedWithinTheHomeOnly)
{
    WriteHomeFile("f", "abc");
    std::ofstream(m_folder / "outside") << "x";
    fs::permissions(m_folder / "outside", fs::perms::owner_read);
    fs::create_symlink("../outside", Home() / "out");
    fs::create_symlink("f", Home() / "in");
    Start();
    FtpTestClient client = LogIn("writer");
    EXPECT_EQ(client.Code("SITE CHMOD 777 out"), 550);
    EXPECT_EQ(fs::status(m_folder / "outside").permissions() & fs::perms::owner_write, fs::perms::none);
    EXPECT_EQ(client.Code("SITE CHMOD 444 in"), 200);
    EXPECT_EQ(fs::status(Home() / "f").permissions() & fs::perms::owner_write, fs::perms::none);
}

TEST_F(FtpServerCommands, SiteUtime_BothForms_SetTheTime)
{
    WriteHomeFile("a b", "abc");
    WriteHomeFile("20260102030405", "x");
    Start();
    FtpTestClient client = LogIn("writer");
    EXPECT_EQ(client.Code("SITE UTIME 20260102030405 a b"), 200);
    EXPECT_EQ(client.Ask("MDTM a b"), "213 20260102030405\n");
    EXPECT_EQ(client.Code("SITE UTIME 202601020304 a b"), 200);
    EXPECT_EQ(client.Ask("MDTM a b"), "213 20260102030400\n");
    EXPECT_EQ(client.Code("site utime a b 20200101000000 20210203040506 20220101000000 UTC"), 200);
    EXPECT_EQ(client.Ask("MDTM a b"), "213 20210203040506\n") << "the time of the change is the second one";
    EXPECT_EQ(client.Code("SITE UTIME 20260102030405 20200101000000 20210203040506 20220101000000 UTC"), 200);
    EXPECT_EQ(client.Ask("MDTM 20260102030405"), "213 20210203040506\n");
}

TEST_F(FtpServerCommands, SiteUtime_NotPossible_Refused)
{
    WriteHomeFile("f", "abc");
    Start();
    FtpTestClient client = LogIn("writer");
    for (const char* line : {"SITE UTIME", "SITE UTIME f", "SITE UTIME 20260102030405", "SITE UTIME 20260102030405 ",
                             "SITE UTIME 20261302030405 f", "SITE UTIME 2026 f"})
        EXPECT_EQ(client.Code(line), 501) << line;
    EXPECT_EQ(client.Code("SITE UTIME 20260102030405 missing"), 550);
    FtpTestClient reader = LogIn("reader");
    EXPECT_EQ(reader.Code("SITE UTIME 20260102030405 f"), 550);
    EXPECT_NE(client.Ask("SITE HELP").find(" CHMOD <mode> <path>\n UTIME <time> <path>\n"), std::string::npos);
}

} // namespace
} // namespace kqlib::test
