// Dialogues: how data connections come about, and which are refused.
#include "tests/hosts/ftp/FtpServerFixture.h"

#include <cstdio>

namespace kqlib::test {
namespace {

using FtpServerData = FtpServerFixture;

/// The port in a reply to PASV for 127.0.0.1; 0: none.
std::uint16_t PortOfPasv(const std::string& reply, const std::string& address = "127,0,0,1")
{
    const std::string start = "227 Entering Passive Mode (" + address + ",";
    unsigned high = 0;
    unsigned low = 0;
    if (reply.rfind(start, 0) != 0 || std::sscanf(reply.c_str() + start.size(), "%u,%u).", &high, &low) != 2)
        return 0;
    return static_cast<std::uint16_t>(high * 256 + low);
}

std::string PortCommand(std::uint16_t port, const std::string& address = "127,0,0,1")
{
    return "PORT " + address + "," + std::to_string(port / 256) + "," + std::to_string(port % 256);
}

TEST_F(FtpServerData, Pasv_Transfer_Works)
{
    WriteHomeFile("f", "abc");
    Start();
    FtpTestClient client = LogIn();
    FtpTestSocket data;
    ASSERT_TRUE(data.Connect(PortOfPasv(client.Ask("PASV"))));
    EXPECT_EQ(client.Ask("RETR f"), "150 Sending 3 bytes\n");
    EXPECT_EQ(data.ReceiveAll(), "abc");
    EXPECT_EQ(client.ReadCode(), 226);
    EXPECT_TRUE(HasEvent("Open Listening Port Success"));
    EXPECT_TRUE(HasEvent("Closed Listening Port"));
    EXPECT_TRUE(HasEvent("File Download Success"));
}

TEST_F(FtpServerData, Pasv_ClientConnectsAfterTheCommand_Works)
{
    WriteHomeFile("f", "abc");
    Start();
    FtpTestClient client = LogIn();
    const std::uint16_t port = PortOfPasv(client.Ask("PASV"));
    EXPECT_EQ(client.Code("RETR f"), 150);
    FtpTestSocket data;
    ASSERT_TRUE(data.Connect(port));
    EXPECT_EQ(data.ReceiveAll(), "abc");
    EXPECT_EQ(client.ReadCode(), 226);
}

TEST_F(FtpServerData, Pasv_NobodyConnects_425)
{
    m_settings.SetConnectSecs(1);
    WriteHomeFile("f", "abc");
    Start();
    FtpTestClient client = LogIn();
    EXPECT_NE(PortOfPasv(client.Ask("PASV")), 0);
    EXPECT_EQ(client.Code("RETR f"), 150);
    EXPECT_EQ(client.ReadCode(), 425);
    EXPECT_EQ(client.Code("RETR f"), 425) << "the port is spent";
    EXPECT_EQ(client.Code("NOOP"), 200);
}

TEST_F(FtpServerData, Pasv_Repeated_OldPortIsClosed)
{
    Start();
    FtpTestClient client = LogIn();
    const std::uint16_t first = PortOfPasv(client.Ask("PASV"));
    const std::uint16_t second = PortOfPasv(client.Ask("PASV"));
    FtpTestSocket data;
    EXPECT_FALSE(data.Connect(first));
    EXPECT_TRUE(data.Connect(second));
}

TEST_F(FtpServerData, Pasv_ConnectionFromAnotherAddress_Refused)
{
    WriteHomeFile("f", "abc");
    Start();
    FtpTestClient client = LogIn();
    FtpTestSocket thief;
    ASSERT_TRUE(thief.Connect(PortOfPasv(client.Ask("PASV")), 2));
    EXPECT_EQ(client.Code("RETR f"), 150);
    EXPECT_EQ(client.ReadCode(), 425);
    EXPECT_EQ(thief.ReceiveAll(), "");
}

TEST_F(FtpServerData, Pasv_ConnectionResetBeforeItIsTaken_NobodyElseIsBlamed)
{
    Start();
    FtpTestClient client = LogIn();
    FtpTestSocket data;
    ASSERT_TRUE(client.OpenPassive(data));
    data.Reset();
    const std::string reply = client.Code("NLST") == 150 ? client.ReadReply() : "";
    // Some systems hand such a connection out, others take it back: then nobody comes.
    EXPECT_TRUE(reply == "425 No data connection\n" || reply == "426 The data connection was lost\n") << reply;
    EXPECT_EQ(client.Code("NOOP"), 200);
}

TEST_F(FtpServerData, PassivePorts_Range_KeptAndExhausted)
{
    // A range of one port that is free now.
    FtpTestSocket finder;
    const std::uint16_t free = finder.Listen();
    finder.Close();
    const std::string port = std::to_string(free);
    m_settings.SetPassivePorts(String(port + "-" + port));
    Start();
    FtpTestClient first = LogIn();
    FtpTestClient second = LogIn();
    EXPECT_EQ(FtpTestClient::PortOfEpsv(first.Ask("EPSV")), free);
    EXPECT_EQ(second.Code("EPSV"), 425);
    EXPECT_EQ(second.Code("PASV"), 425);
    EXPECT_EQ(FtpTestClient::PortOfEpsv(first.Ask("EPSV")), free) << "a client can have its own port again";
}

TEST_F(FtpServerData, ExternalAddress_NotToldToClientsOfThisMachine)
{
    m_settings.SetExternalAddress("203.0.113.9");
    Start();
    FtpTestClient client = LogIn();
    EXPECT_NE(PortOfPasv(client.Ask("PASV")), 0);
}

TEST_F(FtpServerData, Epsv_FormsAndAll)
{
    Start();
    FtpTestClient client = LogIn();
    EXPECT_EQ(client.Code("EPSV 1"), 229);
    for (const char* family : {"0", "2", "3", "99999"})
        EXPECT_EQ(client.Ask(std::string("EPSV ") + family), "522 Network protocol not supported, use (1)\n");
    for (const char* argument : {"x", "-1", "1 2", "100000", "ALLE"})
        EXPECT_EQ(client.Code(std::string("EPSV ") + argument), 501) << argument;
    EXPECT_EQ(client.Code("EPSV ALL"), 200);
    EXPECT_EQ(client.Code("PASV"), 503);
    EXPECT_EQ(client.Code(PortCommand(50000)), 503);
    EXPECT_EQ(client.Code("EPRT |1|127.0.0.1|50000|"), 503);
    EXPECT_EQ(client.Code("EPSV"), 229);
}

TEST_F(FtpServerData, PortAndEprt_Transfer_Works)
{
    WriteHomeFile("f", "abc");
    Start();
    FtpTestClient client = LogIn();
    for (const bool isExtended : {false, true}) {
        FtpTestSocket data;
        const std::uint16_t port = data.Listen();
        const std::string extended = "EPRT |1|127.0.0.1|" + std::to_string(port) + "|";
        EXPECT_EQ(client.Code(isExtended ? extended : PortCommand(port)), 200);
        EXPECT_EQ(client.Code("RETR f"), 150);
        ASSERT_TRUE(data.Accept());
        EXPECT_EQ(data.ReceiveAll(), "abc");
        EXPECT_EQ(client.ReadCode(), 226);
    }
    EXPECT_TRUE(HasEvent("Connect Success"));
}

TEST_F(FtpServerData, Port_ThirdPartyOrSystemPort_Refused)
{
    WriteHomeFile("f", "abc");
    Start();
    FtpTestClient client = LogIn();
    EXPECT_EQ(client.Code(PortCommand(50000, "127,0,0,2")), 500);
    EXPECT_EQ(client.Code(PortCommand(50000, "10,1,2,3")), 500);
    EXPECT_EQ(client.Code("EPRT |1|127.0.0.2|50000|"), 500);
    EXPECT_EQ(client.Code(PortCommand(1023)), 504);
    EXPECT_EQ(client.Code(PortCommand(0)), 504);
    EXPECT_EQ(client.Code("EPRT |1|127.0.0.1|80|"), 504);
    EXPECT_EQ(client.Code("EPRT |2|::1|50000|"), 522);
    EXPECT_EQ(client.Code("RETR f"), 425) << "nothing was prepared";
}

TEST_F(FtpServerData, Port_NobodyListens_425)
{
    FtpTestSocket finder;
    const std::uint16_t closed = finder.Listen();
    finder.Close();
    WriteHomeFile("f", "abc");
    Start();
    FtpTestClient client = LogIn();
    EXPECT_EQ(client.Code(PortCommand(closed)), 200);
    EXPECT_EQ(client.Code("RETR f"), 150);
    EXPECT_EQ(client.ReadCode(), 425);
    EXPECT_TRUE(HasEvent("Connect Fail"));
    EXPECT_TRUE(HasEvent("File Download Fail"));
}

TEST_F(FtpServerData, Transfer_WithoutPreparation_425)
{
    WriteHomeFile("f", "abc");
    Start();
    FtpTestClient client = LogIn();
    for (const char* line : {"RETR f", "STOR new", "APPE new", "LIST", "NLST", "MLSD"})
        EXPECT_EQ(client.Code(line), 425) << line;
    EXPECT_FALSE(IsInHome("new")) << "nothing was received, nothing is left";
    EXPECT_EQ(ReadHomeFile("f"), "abc");
}

TEST_F(FtpServerData, Stor_NoDataConnection_OldContentStays)
{
    m_settings.SetConnectSecs(1);
    WriteHomeFile("f", "abc");
    Start();
    FtpTestClient client = LogIn();
    EXPECT_EQ(client.Code("EPSV"), 229);
    EXPECT_EQ(client.Code("STOR f"), 150);
    EXPECT_EQ(client.ReadCode(), 425);
    EXPECT_EQ(ReadHomeFile("f"), "abc");
}

} // namespace
} // namespace kqlib::test
