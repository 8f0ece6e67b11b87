// Dialogues: logging in, questions, parameters.
#include "tests/hosts/ftp/FtpServerFixture.h"

namespace kqlib::test {
namespace {

using FtpServerAccess = FtpServerFixture;

TEST_F(FtpServerAccess, LogIn_RightPassword_230)
{
    Start();
    FtpTestClient client;
    ASSERT_TRUE(client.Connect(m_port));
    EXPECT_EQ(client.Ask("USER admin"), "331 Password needed\n");
    EXPECT_EQ(client.Code("PASS secret"), 230);
    EXPECT_EQ(client.Code("PASS secret"), 202);
    EXPECT_EQ(client.Code("QUIT"), 221);
    EXPECT_TRUE(client.GetSocket().WaitClosed());
    EXPECT_TRUE(WaitNoSessions());
    EXPECT_TRUE(HasEvent("Login Success"));
    EXPECT_TRUE(HasEvent("Logged Out"));
}

TEST_F(FtpServerAccess, LogIn_UnknownNameAndWrongPassword_SameReplies)
{
    Start();
    FtpTestClient known;
    FtpTestClient unknown;
    ASSERT_TRUE(known.Connect(m_port) && unknown.Connect(m_port));
    EXPECT_EQ(known.Ask("USER admin"), unknown.Ask("USER nobody"));
    EXPECT_EQ(known.Ask("PASS wrong"), unknown.Ask("PASS wrong"));
    EXPECT_TRUE(HasEvent("Login Fail"));
}

TEST_F(FtpServerAccess, LogIn_TooManyWrongPasswords_421AndClosed)
{
    m_settings.SetLoginAttempts(2);
    Start();
    FtpTestClient client;
    ASSERT_TRUE(client.Connect(m_port));
    EXPECT_EQ(client.Code("USER admin"), 331);
    EXPECT_EQ(client.Code("PASS wrong"), 530);
    EXPECT_EQ(client.Code("PASS secret"), 503) << "USER must come again";
    EXPECT_EQ(client.Code("USER admin"), 331);
    EXPECT_EQ(client.Code("PASS wrong"), 421);
    EXPECT_TRUE(client.GetSocket().WaitClosed());
}

TEST_F(FtpServerAccess, LogIn_Anonymous_AnyPassword)
{
    Start();
    FtpTestClient client;
    ASSERT_TRUE(client.Connect(m_port));
    EXPECT_EQ(client.Code("USER anonymous"), 331);
    EXPECT_EQ(client.Code("PASS"), 230);
}

TEST_F(FtpServerAccess, LogIn_HomeMissing_530)
{
    FtpUserSettings user = User("lost", "read");
    user.SetHome("/nowhere/at/all");
    m_settings.SetUsers({user});
    Start();
    FtpTestClient client;
    ASSERT_TRUE(client.Connect(m_port));
    EXPECT_EQ(client.Code("USER lost"), 331);
    EXPECT_EQ(client.Code("PASS secret"), 530);
}

TEST_F(FtpServerAccess, User_WhenLoggedIn_LogsOutFirst)
{
    Start();
    FtpTestClient client = LogIn();
    EXPECT_EQ(client.Code("USER reader"), 331);
    EXPECT_EQ(client.Code("PWD"), 530);
    EXPECT_EQ(client.Code("PASS secret"), 230);
    EXPECT_EQ(client.Code("MKD x"), 550);
}

TEST_F(FtpServerAccess, Commands_BeforeLogIn_530)
{
    Start();
    FtpTestClient client;
    ASSERT_TRUE(client.Connect(m_port));
    for (const char* line : {"PWD",
                             "CWD /",
                             "CDUP",
                             "MKD a",
                             "RMD a",
                             "DELE a",
                             "RNFR a",
                             "RNTO a",
                             "SIZE a",
                             "MDTM a",
                             "MFMT 20200101000000 a",
                             "MLSD",
                             "MLST",
                             "LIST",
                             "NLST",
                             "TYPE I",
                             "STRU F",
                             "MODE S",
                             "PASV",
                             "EPSV",
                             "PORT 127,0,0,1,200,1",
                             "EPRT |1|127.0.0.1|51201|",
                             "RETR a",
                             "STOR a",
                             "APPE a",
                             "REST 0",
                             "ABOR",
                             "STAT",
                             "ALLO 1",
                             "STOU",
                             "HASH a",
                             "XSHA256 a",
                             "AVBL",
                             "SITE CHMOD 777 a",
                             "SITE WHO"})
        EXPECT_EQ(client.Code(line), 530) << line;
    EXPECT_EQ(client.Code("PASS x"), 503);
    for (const char* line : {"NOOP", "OPTS UTF8 ON"})
        EXPECT_EQ(client.Code(line), 200) << line;
    EXPECT_EQ(client.Code("SYST"), 215);
    EXPECT_EQ(client.Code("FEAT"), 211);
    EXPECT_EQ(client.Code("HELP"), 214);
    EXPECT_EQ(client.Code("QUIT"), 221);
}

TEST_F(FtpServerAccess, Commands_ArgumentMissingOrTooMuch_501)
{
    Start();
    FtpTestClient client = LogIn();
    for (const char* line : {"USER",
                             "OPTS",
                             "CWD",
                             "MKD",
                             "RMD",
                             "DELE",
                             "RNFR",
                             "RNTO",
                             "SIZE",
                             "MDTM",
                             "MFMT",
                             "TYPE",
                             "STRU",
                             "MODE",
                             "PORT",
                             "EPRT",
                             "RETR",
                             "STOR",
                             "APPE",
                             "REST",
                             "ALLO",
                             "SITE",
                             "PWD x",
                             "CDUP x",
                             "QUIT x",
                             "SYST x",
                             "FEAT x",
                             "PASV x",
                             "ABOR x",
                             "RETR ",
                             "ALLO x",
                             "ALLO 1 R",
                             "ALLO 1 2",
                             "REST x",
                             "REST -1",
                             "REST 1x",
                             "REST 99999999999999999999",
                             "TYPE I I I",
                             "PORT 1",
                             "PORT 127,0,0,1,1",
                             "PORT 127,0,0,256,1,1",
                             "PORT 127,0,0,1,1,1,1",
                             "PORT a,b,c,d,e,f",
                             "PORT 127,0,0,,1,1",
                             "EPRT 1",
                             "EPRT |1|127.0.0.1|",
                             "EPRT |x|127.0.0.1|51201|",
                             "EPRT |1|host|51201|",
                             "EPRT |1|127.0.0.1|70000|",
                             "EPRT |1|127.0.0.1|x|",
                             "EPRT |1|127.0.0.1|51201|x",
                             "EPSV x",
                             "MFMT 2020 a",
                             "MFMT 20200101000000",
                             "MFMT 20200101000000 "})
        EXPECT_EQ(client.Code(line), 501) << line;
    EXPECT_EQ(client.Code("PWD"), 257);
}

TEST_F(FtpServerAccess, Commands_UnknownOrNotOffered_500Or502)
{
    Start();
    FtpTestClient client = LogIn();
    EXPECT_EQ(client.Code("XYZZY"), 500);
    EXPECT_EQ(client.Code(""), 500);
    EXPECT_EQ(client.Code(" PWD"), 500);
    for (const char* line : {"ACCT x", "SMNT x", "REIN", "ADAT x"})
        EXPECT_EQ(client.Code(line), 502) << line;
    EXPECT_EQ(client.Code("pwd"), 257) << "case does not matter";
}

TEST_F(FtpServerAccess, Types_OfferedOnes200OthersRefused)
{
    Start();
    FtpTestClient client = LogIn();
    for (const char* line : {"TYPE A", "TYPE A N", "TYPE I", "TYPE L 8", "type i", "STRU F", "MODE S"})
        EXPECT_EQ(client.Code(line), 200) << line;
    for (const char* line : {"TYPE E", "TYPE A T", "TYPE A C", "TYPE L 36", "TYPE L", "TYPE X", "TYPE I N", "STRU R",
                             "STRU P", "MODE B", "MODE C"})
        EXPECT_EQ(client.Code(line), 504) << line;
    EXPECT_EQ(client.Code("ALLO 10"), 202);
    EXPECT_EQ(client.Code("ALLO 10 R 5"), 202);
}

TEST_F(FtpServerAccess, FeatAndOpts_FactsSelected_Shown)
{
    Start();
    FtpTestClient client = LogIn();
    const std::string features = client.Ask("FEAT");
    for (const char* line : {"\n UTF8\n", "\n MDTM\n", "\n SIZE\n", "\n REST STREAM\n", "\n EPSV\n", "\n EPRT\n",
                             "\n MFMT\n", "\n TVFS\n", "\n MLST type*;size*;modify*;perm*;unique*;UNIX.mode*;\n"})
        EXPECT_NE(features.find(line), std::string::npos) << line;
    EXPECT_EQ(client.Ask("OPTS MLST Size;nonsense;"), "200 MLST OPTS size;\n");
    EXPECT_NE(client.Ask("FEAT").find(" MLST type;size*;modify;perm;unique;UNIX.mode;\n"), std::string::npos);
    EXPECT_EQ(client.Ask("OPTS MLST"), "200 MLST OPTS\n");
    EXPECT_EQ(client.Code("OPTS UTF8"), 200);
    EXPECT_EQ(client.Code("OPTS UTF-8 ON"), 200);
    EXPECT_EQ(client.Code("OPTS UTF8 OFF"), 504);
    EXPECT_EQ(client.Code("OPTS XYZ"), 501);
}

TEST_F(FtpServerAccess, Help_EveryCommandHasItsSyntax)
{
    Start();
    FtpTestClient client = LogIn();
    const std::string help = client.Ask("HELP");
    for (const char* name :
         {"USER", "PASS", "QUIT", "NOOP", "SYST", "FEAT", "OPTS", "HELP", "PWD",   "CWD",     "CDUP",   "MKD",
          "RMD",  "DELE", "RNFR", "RNTO", "SIZE", "MDTM", "MFMT", "MLSD", "MLST",  "LIST",    "NLST",   "TYPE",
          "STRU", "MODE", "PASV", "EPSV", "PORT", "EPRT", "RETR", "STOR", "APPE",  "REST",    "ABOR",   "STAT",
          "ALLO", "XPWD", "XMKD", "SITE", "STOU", "HASH", "AVBL", "XMD5", "XSHA1", "XSHA256", "XSHA512"})
    {
        EXPECT_NE(help.find(std::string(" ") + name), std::string::npos) << name;
        EXPECT_EQ(client.Ask(std::string("HELP ") + name).rfind(std::string("214 Syntax: ") + name, 0), 0U) << name;
    }
    EXPECT_EQ(client.Code("HELP XYZZY"), 502);
    EXPECT_EQ(client.Code("HELP ADAT"), 502);
}

TEST_F(FtpServerAccess, Site_AdministratorsOnly)
{
    Start();
    FtpTestClient reader = LogIn("reader");
    FtpTestClient admin = LogIn();
    EXPECT_EQ(reader.Code("SITE WHO"), 550);
    EXPECT_EQ(reader.Code("SITE STAT"), 550);
    EXPECT_EQ(reader.Code("SITE HELP"), 214);
    const std::string who = admin.Ask("SITE WHO");
    EXPECT_NE(who.find(" reader 127.0.0.1:"), std::string::npos) << who;
    EXPECT_NE(who.find(" admin 127.0.0.1:"), std::string::npos) << who;
    EXPECT_NE(who.find(" idle\n"), std::string::npos) << who;
    EXPECT_EQ(admin.Code("SITE XYZZY 777 x"), 504);
    // The counters of a running session show with its first command in the next second.
    std::string totals;
    EXPECT_TRUE(WaitFor([&] {
        EXPECT_EQ(reader.Code("NOOP"), 200);
        totals = admin.Ask("SITE STAT");
        return totals.find(" Logins: 2\n") != std::string::npos;
    })) << totals;
    EXPECT_NE(totals.find(" Sessions now: 2\n"), std::string::npos) << totals;
    EXPECT_NE(totals.find(" Connections in: 2\n"), std::string::npos) << totals;
}

TEST_F(FtpServerAccess, Stat_WithoutPath_TellsTheState)
{
    Start();
    FtpTestClient client = LogIn();
    EXPECT_EQ(client.Code("EPSV"), 229);
    const std::string status = client.Ask("STAT");
    EXPECT_EQ(status.rfind("211-", 0), 0U);
    EXPECT_NE(status.find(" Logged in as admin\n"), std::string::npos);
    EXPECT_NE(status.find(" TYPE: ASCII"), std::string::npos);
    EXPECT_NE(status.find(" Data connection prepared\n"), std::string::npos);
}

TEST_F(FtpServerAccess, Idle_TooLong_421AndClosed)
{
    m_settings.SetIdleSecs(1);
    Start();
    FtpTestClient client = LogIn();
    EXPECT_EQ(client.ReadCode(), 421);
    EXPECT_TRUE(client.GetSocket().WaitClosed());
    EXPECT_TRUE(WaitNoSessions());
}

TEST_F(FtpServerAccess, Greeting_FromTheSettings)
{
    m_settings.SetGreeting("Hello there");
    Start();
    FtpTestSocket socket;
    ASSERT_TRUE(socket.Connect(m_port));
    std::string text;
    ASSERT_TRUE(WaitFor([&] { return socket.Receive(text), text.find('\n') != std::string::npos; }));
    EXPECT_EQ(text, "220 Hello there\r\n");
}

} // namespace
} // namespace kqlib::test
