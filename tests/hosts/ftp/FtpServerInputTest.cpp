// Dialogues with clients that do not keep to the rules.
#include "tests/hosts/ftp/FtpServerFixture.h"

namespace kqlib::test {
namespace {

using FtpServerInput = FtpServerFixture;

constexpr std::size_t MAX_COMMAND = 1024;

TEST_F(FtpServerInput, Line_UpToTheLimit_Whole)
{
    Start();
    FtpTestClient client = LogIn();
    // The CR counts while it waits for its LF, so 1022 characters are the longest line.
    const std::string longest = "CWD " + std::string(MAX_COMMAND - 2 - 4, 'x');
    EXPECT_EQ(client.Code(longest), 550) << "a name that long is none";
    EXPECT_EQ(client.Code("NOOP"), 200);
}

TEST_F(FtpServerInput, Line_Oversized_One500AndTheRestIsLeftOut)
{
    Start();
    FtpTestClient client = LogIn();
    for (const std::size_t size : {MAX_COMMAND - 1, MAX_COMMAND, MAX_COMMAND + 1, 2 * MAX_COMMAND - 1, 2 * MAX_COMMAND,
                                   2 * MAX_COMMAND + 1, 10 * MAX_COMMAND, 100 * MAX_COMMAND})
    {
        EXPECT_EQ(client.Ask(std::string(size, 'x')), "500 Line too long\n") << size;
        EXPECT_EQ(client.Code("NOOP"), 200) << size;
    }
}

TEST_F(FtpServerInput, Line_OversizedWithACommandInItsRest_NotRun)
{
    Start();
    FtpTestClient client = LogIn();
    EXPECT_EQ(client.Code(std::string(MAX_COMMAND, 'x').append("QUIT")), 500);
    EXPECT_EQ(client.Code("NOOP"), 200);
}

TEST_F(FtpServerInput, NulAndControlBytes_NeverReachAName)
{
    Start();
    FtpTestClient client = LogIn();
    client.Send(std::string("MKD a\0b\r\n", 9));
    EXPECT_EQ(client.ReadCode(), 550);
    client.Send(std::string("\0\0\0\r\n", 5));
    EXPECT_EQ(client.ReadCode(), 500);
    client.Send(std::string("NO\0OP\r\n", 7));
    EXPECT_EQ(client.ReadCode(), 500);
    client.Send("MKD a\rb\r\n");
    EXPECT_EQ(client.ReadCode(), 550);
    EXPECT_EQ(client.Code("MKD \x1B[2J"), 550);
    EXPECT_TRUE(std::filesystem::is_empty(Home()));
}

TEST_F(FtpServerInput, BadName_EachCommand_CodeThatTheStandardListsForIt)
{
    WriteHomeFile("f", "");
    Start();
    FtpTestClient client = LogIn();
    for (const char* command : {"CWD", "MKD", "RMD", "DELE", "RNFR", "SIZE", "MDTM", "MLST", "RETR"})
        EXPECT_EQ(client.Code(std::string(command) + " a\tb"), 550) << command;
    for (const char* command : {"LIST", "NLST", "STAT", "MLSD"})
        EXPECT_EQ(client.Code(std::string(command) + " a\tb"), 501) << command;
    for (const char* command : {"STOR", "APPE"})
        EXPECT_EQ(client.Code(std::string(command) + " a\tb"), 553) << command;
    EXPECT_EQ(client.Code("RNFR f"), 350);
    EXPECT_EQ(client.Code("RNTO a\tb"), 553);
}

TEST_F(FtpServerInput, TelnetCommandsAndNegotiation_AreSkipped)
{
    Start();
    FtpTestClient client = LogIn();
    const struct
    {
        std::string line;
        int code;
    } cases[] = {
        {"\xFF\xFB\x18\xFF\xFD\x03NOOP", 200},      // WILL and DO before the command
        {"NO\xFF\xFC\x01OP", 200},                  // WONT in it
        {"NOOP\xFF\xFE\x01", 200},                  // DONT behind it
        {"\xFF\xFA\x18\x01xterm\xFF\xF0NOOP", 200}, // a subnegotiation
        {"\xFF\xF9NOOP\xFF\xF1", 200},              // commands without an option
        {"\xFF\xF4\xFF\xF2NOOP", 200},              // an interrupt and its mark
        {"MKD a\xFF\xFF"
         "b",
         257},             // the byte itself
        {"NOOP\xFF", 500}, // no command of Telnet
        {"NOOP\xFFx", 500},
        {"\xFF\xFB", 500}, // cut short
        {"\xFF\xFA\x18", 500},
        {"NOOP\xFF\xFB\x01 \xFF\xFD\x01x", 200},
    };
    for (const auto& each : cases)
        EXPECT_EQ(client.Code(each.line), each.code) << testing::PrintToString(each.line);
    EXPECT_TRUE(IsInHome("a\xFF"
                         "b"));
}

TEST_F(FtpServerInput, Bytes_EveryValueAsACommand_Answered)
{
    Start();
    FtpTestClient client = LogIn();
    for (int value = 0; value < 256; ++value) {
        if (value == '\n' || value == '\r')
            continue;
        client.Send(std::string(1, static_cast<char>(value)) + "\r\n");
        EXPECT_EQ(client.ReadCode(), 500) << value;
    }
}

TEST_F(FtpServerInput, Lines_EndingInLFAlone_Accepted)
{
    Start();
    FtpTestClient client = LogIn();
    client.Send("NOOP\nPWD\n");
    EXPECT_EQ(client.ReadCode(), 200);
    EXPECT_EQ(client.ReadCode(), 257);
}

TEST_F(FtpServerInput, Commands_ByteByByteAndPipelined_SameReplies)
{
    Start();
    FtpTestClient client = LogIn();
    const std::string lines = "NOOP\r\nPWD\r\nSYST\r\nTYPE I\r\n";
    for (const char byte : lines)
        client.Send(std::string(1, byte));
    for (const int code : {200, 257, 215, 200})
        EXPECT_EQ(client.ReadCode(), code);
    client.Send(lines + lines + lines);
    for (int round = 0; round < 3; ++round)
        for (const int code : {200, 257, 215, 200})
            EXPECT_EQ(client.ReadCode(), code);
}

TEST_F(FtpServerInput, TransferSentAheadWithItsPort_ClientLearnsThePortInTime)
{
    WriteHomeFile("f", "content");
    Start();
    FtpTestClient client = LogIn();
    for (int round = 0; round < 3; ++round) {
        client.Send("NOOP\r\nEPSV\r\nRETR f\r\nNOOP\r\nPWD\r\n");
        EXPECT_EQ(client.ReadCode(), 200);
        FtpTestSocket data;
        ASSERT_TRUE(data.Connect(FtpTestClient::PortOfEpsv(client.ReadReply())));
        EXPECT_EQ(client.ReadCode(), 150);
        EXPECT_EQ(data.ReceiveAll(), "content");
        for (const int code : {226, 200, 257})
            EXPECT_EQ(client.ReadCode(), code);
    }
}

TEST_F(FtpServerInput, CommandsAheadOfQuit_AllAnsweredBeforeTheEnd)
{
    Start();
    FtpTestClient client = LogIn();
    client.Send("NOOP\r\nPWD\r\nQUIT\r\nSYST\r\n");
    for (const int code : {200, 257, 221})
        EXPECT_EQ(client.ReadCode(), code);
    EXPECT_TRUE(client.GetSocket().WaitClosed());
}

TEST_F(FtpServerInput, HangUp_AtEveryByteOfADialogue_ServerGoesOn)
{
    WriteHomeFile("f", "content");
    m_settings.SetMaxSessionsPerAddress(0);
    Start();
    const std::string dialogue = "USER admin\r\nPASS secret\r\nTYPE I\r\nEPSV\r\nRETR f\r\nSTOR g\r\nQUIT\r\n";
    for (std::size_t size = 0; size <= dialogue.size(); ++size) {
        FtpTestClient client;
        ASSERT_TRUE(client.Connect(m_port)) << size;
        client.Send(dialogue.substr(0, size));
        client.Close();
    }
    EXPECT_TRUE(WaitNoSessions());
    EXPECT_EQ(LogIn().Code("NOOP"), 200);
}

TEST_F(FtpServerInput, ClientNeverReads_EndsByTheTimeOut)
{
    m_settings.SetIdleSecs(4);
    Start();
    FtpTestClient client = LogIn();
    // Far more questions than the system keeps answers for; the server gets stuck sending, and gives up.
    std::string questions;
    for (int i = 0; i < 200000; ++i)
        questions += "HELP\r\n";
    client.GetSocket().SendUntilStuck(questions);
    EXPECT_TRUE(WaitNoSessions());
    EXPECT_EQ(LogIn().Code("NOOP"), 200);
}

TEST_F(FtpServerInput, CommandsBeyondTheBuffer_DuringATransfer_WaitAndAreAllAnswered)
{
    Start();
    FtpTestClient client = LogIn();
    FtpTestSocket data;
    ASSERT_TRUE(client.OpenPassive(data));
    EXPECT_EQ(client.Code("STOR f"), 150);
    constexpr int COUNT = 5000; // 30,000 bytes of commands; 8192 are kept while the transfer runs
    std::string lines;
    for (int i = 0; i < COUNT; ++i)
        lines += "NOOP\r\n";
    client.Send(lines);
    data.Send("x");
    data.Close();
    EXPECT_EQ(client.ReadCode(), 226);
    for (int i = 0; i < COUNT; ++i)
        ASSERT_EQ(client.ReadCode(), 200) << i;
}

TEST_F(FtpServerInput, NamesOnTheDiskWithLineEnds_CannotForgeReplies)
{
    WriteHomeFile("a\r\n226 forged", "");
    Start();
    FtpTestClient client = LogIn();
    std::string listing;
    EXPECT_EQ(client.Download("NLST", listing), 226);
    EXPECT_EQ(listing, "a??226 forged\r\n");
    EXPECT_EQ(client.Ask("STAT /").find("\n226 forged"), std::string::npos);
}

} // namespace
} // namespace kqlib::test
