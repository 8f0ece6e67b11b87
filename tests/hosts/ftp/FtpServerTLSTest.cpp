// Dialogues: AUTH TLS, protected data connections, ports that speak TLS from the first byte, certificates.
#include "tests/hosts/ftp/FtpServerFixture.h"
#include "tests/hosts/ftp/FtpTLSTestClient.h"
#include "tests/peers/FileRights.h"
#include "tests/peers/HalfTLSPeer.h"
#include "tests/peers/TLSFiles.h"

namespace kqlib::test {
namespace {

using CLIENT = FtpTLSTestClient;

class FtpServerTLS : public FtpServerFixture
{
protected:
    FtpServerTLS()
    {
        m_settings.SetTLSCertificate(TLSFiles::sGet().GetCert());
        m_settings.SetTLSKey(TLSFiles::sGet().GetKey());
    }

    /// A port for TLS from the first byte besides the other one.
    void StartImplicit()
    {
        FtpTestSocket finder;
        m_tlsPort = finder.Listen();
        finder.Close();
        m_settings.SetListenTLS("127.0.0.1:" + String::sToString(m_tlsPort));
        String error;
        ASSERT_TRUE(m_server.Start(m_settings, error)) << error.c_str();
        Vector<NetServiceStatus::ACTIVEPORT> ports;
        m_server.GetService().GetListeningPorts(ports);
        ASSERT_EQ(ports.GetCount(), 2U);
        m_port = ports.Get(ports.Get(0).port == m_tlsPort ? 1 : 0).port;
    }

    /// The common name of the certificate that the next handshake is made with; empty: no handshake.
    std::string AskForName()
    {
        NetTCP control(NetIP::LOOKUP_ANY);
        HalfTLSPeer peer(HalfTLSPeer::CLIENT);
        std::string received;
        if (!control.Connect("127.0.0.1", m_port) || !CLIENT::sReceive(control, received) ||
            !CLIENT::sSend(control, "AUTH TLS\r\n") || !CLIENT::sReceive(control, received) ||
            !peer.HandshakeOver(control))
            return {};
        return peer.GetPeerName();
    }

    /// Two uploads of "f", one ended with the farewell of TLS and one without.
    void UploadWithAndWithoutFarewell(CLIENT& client, bool mustSayFarewell)
    {
        for (const bool saysFarewell : {true, false}) {
            NetTCPSSL data(NetIP::LOOKUP_ANY);
            HalfTLSPeer peer(HalfTLSPeer::CLIENT);
            ASSERT_EQ(client.Begin(data, "STOR f", CLIENT::PASSIVE), 150);
            ASSERT_TRUE(peer.HandshakeOver(data));
            std::string wire = peer.Encrypt(Pattern(50000));
            if (saysFarewell)
                wire += peer.SayFarewell();
            ASSERT_TRUE(HalfTLSPeer::sSendAll(data, wire));
            if (saysFarewell) { // the answer comes although this end stays open
                std::string answer;
                while (CLIENT::sReceive(data, answer)) {
                }
                peer.Take(answer);
                static_cast<void>(peer.Decrypt());
                EXPECT_TRUE(peer.HasFarewell());
            }
            data.ShutdownAndClose();
            EXPECT_EQ(client.ReadCode(), saysFarewell || !mustSayFarewell ? 226 : 426) << saysFarewell;
            EXPECT_TRUE(ReadHomeFile("f") == Pattern(50000)) << saysFarewell;
        }
    }

    std::uint16_t m_tlsPort = 0;
};

TEST_F(FtpServerTLS, Dialogue_EveryReply)
{
    Start();
    CLIENT client;
    ASSERT_TRUE(client.Connect(m_port));
    EXPECT_EQ(client.ReadCode(), 220);
    EXPECT_NE(client.Ask("FEAT").find("\n AUTH TLS\n PBSZ\n PROT\n"), std::string::npos);
    EXPECT_EQ(client.Code("AUTH"), 501);
    EXPECT_EQ(client.Ask("AUTH SSL"), "504 Only AUTH TLS is offered\n");
    EXPECT_EQ(client.Code("AUTH TLS-P"), 504);
    EXPECT_EQ(client.Code("AUTH KERBEROS_V4"), 504);
    EXPECT_EQ(client.Ask("PBSZ 0"), "503 AUTH TLS comes first\n");
    EXPECT_EQ(client.Ask("PROT P"), "503 AUTH TLS comes first\n");
    EXPECT_EQ(client.Ask("CCC"), "533 TLS is not on\n");
    EXPECT_EQ(client.Ask("AUTH TLS"), "234 Begin the TLS handshake\n");
    ASSERT_TRUE(client.Secure());
    EXPECT_EQ(client.Ask("AUTH TLS"), "503 TLS is on already\n");
    EXPECT_EQ(client.Ask("PROT P"), "503 PBSZ 0 comes first\n");
    EXPECT_EQ(client.Code("PBSZ"), 501);
    EXPECT_EQ(client.Code("PBSZ x"), 501);
    EXPECT_EQ(client.Code("PBSZ -1"), 501);
    EXPECT_EQ(client.Code("PBSZ 42949672960"), 501);
    EXPECT_EQ(client.Ask("PBSZ 0"), "200 PBSZ=0\n");
    EXPECT_EQ(client.Ask("PBSZ 4294967295"), "200 PBSZ=0\n");
    EXPECT_EQ(client.Code("PROT"), 501);
    EXPECT_EQ(client.Code("PROT S"), 536);
    EXPECT_EQ(client.Code("PROT E"), 536);
    EXPECT_EQ(client.Code("PROT X"), 504);
    EXPECT_EQ(client.Ask("PROT P"), "200 Data connections are private\n");
    EXPECT_EQ(client.Ask("prot c"), "200 Data connections are clear\n");
    EXPECT_EQ(client.Ask("CCC"), "534 The control connection stays protected\n");
    EXPECT_EQ(client.Code("USER admin"), 331);
    EXPECT_EQ(client.Code("PASS secret"), 230);
    EXPECT_EQ(client.Code("QUIT"), 221);
    EXPECT_TRUE(client.WaitClosed());
    EXPECT_TRUE(HasEvent("Connect SSL Success"));
    EXPECT_FALSE(HasEvent("Connect SSL Fail"));
}

TEST_F(FtpServerTLS, Auth_OlderNameAndSmallLetters_Work)
{
    Start();
    for (const char* line : {"AUTH TLS-C", "auth tls"}) {
        CLIENT client;
        ASSERT_TRUE(client.Connect(m_port));
        EXPECT_EQ(client.ReadCode(), 220);
        EXPECT_EQ(client.Code(line), 234) << line;
        ASSERT_TRUE(client.Secure()) << line;
        EXPECT_EQ(client.Code("NOOP"), 200);
    }
}

TEST_F(FtpServerTLS, Auth_AfterLogin_EverythingStartsAnew)
{
    WriteHomeFile("f", "a\nb");
    Start();
    CLIENT client;
    ASSERT_TRUE(client.Connect(m_port));
    EXPECT_EQ(client.ReadCode(), 220);
    EXPECT_EQ(client.Code("USER admin"), 331);
    EXPECT_EQ(client.Code("PASS secret"), 230);
    EXPECT_EQ(client.Code("TYPE I"), 200);
    EXPECT_EQ(client.Code("EPSV ALL"), 200);
    EXPECT_EQ(client.Code("REST 2"), 350);
    EXPECT_EQ(client.Code("AUTH TLS"), 234);
    ASSERT_TRUE(client.Secure());
    EXPECT_EQ(client.Code("PWD"), 530);
    EXPECT_EQ(client.Code("PASS secret"), 503) << "the name counts no more";
    EXPECT_EQ(client.Code("USER reader"), 331);
    EXPECT_EQ(client.Code("PASS secret"), 230);
    EXPECT_EQ(client.Code("PASV"), 227);
    std::string bytes;
    EXPECT_EQ(client.Download("RETR f", bytes, CLIENT::PASSIVE, false), 226);
    EXPECT_EQ(bytes, "a\r\nb") << "as text, and from the start";
    EXPECT_TRUE(HasEvent("Logged Out"));
}

TEST_F(FtpServerTLS, Auth_CommandsSentAlongInTheClear_AreDropped)
{
    Start();
    CLIENT client;
    ASSERT_TRUE(client.Connect(m_port));
    EXPECT_EQ(client.ReadCode(), 220);
    client.Send("AUTH TLS\r\nUSER admin\r\nPASS sec");
    EXPECT_EQ(client.ReadCode(), 234);
    ASSERT_TRUE(client.Secure());
    EXPECT_EQ(client.Code("NOOP"), 200) << "nor is half a line kept";
    EXPECT_EQ(client.Code("PASS secret"), 503);
}

TEST_F(FtpServerTLS, Auth_NoTLSInTheSettings_NotOffered)
{
    m_settings.SetTLSCertificate(FilePath());
    m_settings.SetTLSKey(FilePath());
    Start();
    FtpTestClient client = LogIn();
    EXPECT_EQ(client.Ask("FEAT").find("AUTH"), std::string::npos);
    EXPECT_EQ(client.Code("AUTH TLS"), 502);
    EXPECT_EQ(client.Code("PBSZ 0"), 503);
    EXPECT_EQ(client.Code("PROT P"), 503);
    EXPECT_EQ(client.Code("CCC"), 533);
}

TEST_F(FtpServerTLS, Handshake_Nonsense_EndsTheConnectionAndIsLogged)
{
    Start();
    FtpTestClient client;
    ASSERT_TRUE(client.Connect(m_port));
    EXPECT_EQ(client.Code("AUTH TLS"), 234);
    client.Send("USER admin\r\nPASS secret\r\n");
    EXPECT_TRUE(client.GetSocket().WaitClosed());
    EXPECT_TRUE(WaitNoSessions());
    EXPECT_TRUE(HasEvent("Connect SSL Fail"));
    EXPECT_FALSE(HasEvent("Login Success"));
    CLIENT other;
    EXPECT_TRUE(other.LogIn(m_port)) << "the server goes on";
}

TEST_F(FtpServerTLS, Handshake_PeerLeaves_SessionEnds)
{
    Start();
    FtpTestClient client;
    ASSERT_TRUE(client.Connect(m_port));
    EXPECT_EQ(client.Code("AUTH TLS"), 234);
    client.Close();
    EXPECT_TRUE(WaitNoSessions());
    EXPECT_TRUE(HasEvent("Connect SSL Fail"));
}

TEST_F(FtpServerTLS, ProtectedData_BothWaysUpAndDown_BytesAreTheSame)
{
    Start();
    CLIENT client;
    ASSERT_TRUE(client.LogIn(m_port));
    ASSERT_TRUE(client.Protect());
    EXPECT_EQ(client.Code("TYPE I"), 200);
    for (const CLIENT::MODE mode : {CLIENT::PASSIVE, CLIENT::ACTIVE}) {
        for (const std::size_t size : {0U, 1U, 16384U, 16385U, 3000001U}) {
            const std::string sent = Pattern(size);
            EXPECT_EQ(client.Upload("STOR f", sent, mode), 226) << size;
            EXPECT_TRUE(ReadHomeFile("f") == sent) << size;
            std::string received;
            EXPECT_EQ(client.Download("RETR f", received, mode), 226) << size;
            EXPECT_TRUE(received == sent) << size;
        }
        std::string listing;
        EXPECT_EQ(client.Download("NLST", listing, mode), 226);
        EXPECT_EQ(listing, "f\r\n");
    }
    EXPECT_FALSE(HasEvent("Connect SSL Fail"));
}

TEST_F(FtpServerTLS, ProtectedData_ReallyIsTLS_AndEndsWithAFarewell)
{
    WriteHomeFile("f", Pattern(100000));
    Start();
    CLIENT client;
    ASSERT_TRUE(client.LogIn(m_port));
    ASSERT_TRUE(client.Protect());
    EXPECT_EQ(client.Code("TYPE I"), 200);
    for (const HalfTLSPeer::VERSION version : {HalfTLSPeer::TLS_1_2, HalfTLSPeer::TLS_1_3}) {
        NetTCPSSL data(NetIP::LOOKUP_ANY);
        HalfTLSPeer peer(HalfTLSPeer::CLIENT, version);
        ASSERT_EQ(client.Begin(data, "RETR f", CLIENT::PASSIVE), 150);
        ASSERT_TRUE(peer.HandshakeOver(data));
        std::string wire;
        while (CLIENT::sReceive(data, wire)) {
        }
        peer.Take(wire);
        EXPECT_TRUE(peer.Decrypt() == Pattern(100000));
        EXPECT_TRUE(peer.HasFarewell()) << "the file is not cut short";
        EXPECT_EQ(client.ReadCode(), 226);
    }
}

TEST_F(FtpServerTLS, Upload_EndsWithOrWithoutFarewell_WholeAsTheSettingsSay)
{
    for (const bool mustSayFarewell : {true, false}) {
        m_settings.SetRequireTLSFarewell(mustSayFarewell);
        Start();
        CLIENT client;
        ASSERT_TRUE(client.LogIn(m_port));
        ASSERT_TRUE(client.Protect());
        EXPECT_EQ(client.Code("TYPE I"), 200);
        UploadWithAndWithoutFarewell(client, mustSayFarewell);
    }
}

TEST_F(FtpServerTLS, Upload_ResetOverTLS_426WhateverTheSettingsSay)
{
    m_settings.SetRequireTLSFarewell(false);
    Start();
    CLIENT client;
    ASSERT_TRUE(client.LogIn(m_port));
    ASSERT_TRUE(client.Protect());
    NetTCPSSL data(NetIP::LOOKUP_ANY);
    ASSERT_EQ(client.Begin(data, "STOR f", CLIENT::PASSIVE), 150);
    ASSERT_TRUE(data.SSLConnect());
    ASSERT_TRUE(CLIENT::sSend(data, "half of it"));
    ASSERT_TRUE(WaitFor([this] { return ReadHomeFile("f") == "half of it"; }));
    platform::AbortSocket(data.Detach());
    EXPECT_EQ(client.ReadCode(), 426);
    EXPECT_TRUE(HasEvent("File Upload Fail"));
}

TEST_F(FtpServerTLS, ClearData_OverSecuredControl_Works)
{
    Start();
    CLIENT client;
    ASSERT_TRUE(client.LogIn(m_port));
    std::string received;
    EXPECT_EQ(client.Upload("STOR f", "abc", CLIENT::PASSIVE, false), 226);
    EXPECT_EQ(client.Download("RETR f", received, CLIENT::ACTIVE, false), 226) << "clear is how it begins";
    EXPECT_EQ(received, "abc");
    ASSERT_TRUE(client.Protect());
    EXPECT_EQ(client.Code("PROT C"), 200);
    EXPECT_EQ(client.Download("RETR f", received, CLIENT::PASSIVE, false), 226);
}

TEST_F(FtpServerTLS, ProtectedData_HandshakeFails_522AndTheSessionGoesOn)
{
    WriteHomeFile("f", "abc");
    Start();
    CLIENT client;
    ASSERT_TRUE(client.LogIn(m_port));
    ASSERT_TRUE(client.Protect());
    for (const char* command : {"RETR f", "STOR f", "STOR new", "LIST"}) {
        NetTCPSSL data(NetIP::LOOKUP_ANY);
        ASSERT_EQ(client.Begin(data, command, CLIENT::PASSIVE), 150) << command;
        EXPECT_TRUE(CLIENT::sSend(data, "this is no handshake, but long enough to be looked at\r\n"));
        EXPECT_EQ(client.ReadReply(), "522 The TLS handshake of the data connection failed\n") << command;
    }
    EXPECT_EQ(ReadHomeFile("f"), "abc") << "the old content stays";
    EXPECT_FALSE(IsInHome("new"));
    std::string received;
    EXPECT_EQ(client.Download("RETR f", received), 226);
    EXPECT_TRUE(HasEvent("Connect SSL Fail"));
    EXPECT_TRUE(HasEvent("File Upload Fail"));
}

TEST_F(FtpServerTLS, Abort_DuringProtectedDownload_426Then226)
{
    WriteHomeFile("f", Pattern(64U << 20));
    Start();
    CLIENT client;
    ASSERT_TRUE(client.LogIn(m_port));
    ASSERT_TRUE(client.Protect());
    EXPECT_EQ(client.Code("TYPE I"), 200);
    NetTCPSSL data(NetIP::LOOKUP_ANY);
    ASSERT_EQ(client.Begin(data, "RETR f", CLIENT::PASSIVE), 150);
    ASSERT_TRUE(data.SSLConnect());
    std::string some;
    EXPECT_TRUE(CLIENT::sReceive(data, some));
    client.Send("STAT\r\nABOR\r\n");
    EXPECT_EQ(client.ReadCode(), 213);
    EXPECT_EQ(client.ReadCode(), 426);
    EXPECT_EQ(client.ReadCode(), 226);
    data.Close();
    EXPECT_EQ(client.Code("NOOP"), 200);
}

TEST_F(FtpServerTLS, RequireTLS_InTheClear_NoLogin)
{
    m_settings.SetRequireTLS(true);
    Start();
    FtpTestClient client;
    ASSERT_TRUE(client.Connect(m_port));
    EXPECT_EQ(client.Ask("USER admin"), "530 Logging in needs TLS, AUTH TLS comes first\n");
    EXPECT_EQ(client.Ask("PASS secret"), "530 Logging in needs TLS, AUTH TLS comes first\n");
    EXPECT_EQ(client.Code("PWD"), 530);
    EXPECT_EQ(client.Code("NOOP"), 200);
    EXPECT_EQ(client.Code("USER anonymous"), 530);
}

TEST_F(FtpServerTLS, RequireTLS_DataInTheClear_Refused)
{
    m_settings.SetRequireTLS(true);
    WriteHomeFile("f", "abc");
    Start();
    CLIENT client;
    ASSERT_TRUE(client.LogIn(m_port));
    std::string received;
    EXPECT_EQ(client.Download("RETR f", received), 521);
    EXPECT_EQ(client.Upload("STOR new", "abc"), 521);
    EXPECT_FALSE(IsInHome("new"));
    EXPECT_EQ(client.Download("LIST", received), 521);
    EXPECT_EQ(client.Code("PBSZ 0"), 200);
    EXPECT_EQ(client.Ask("PROT C"), "534 Data connections must be protected\n");
    EXPECT_EQ(client.Code("PROT P"), 200);
    EXPECT_EQ(client.Download("RETR f", received), 226);
    EXPECT_EQ(received, "abc");
}

TEST_F(FtpServerTLS, ImplicitPort_HandshakeComesFirstAndDataIsProtected)
{
    WriteHomeFile("f", "abc");
    StartImplicit();
    CLIENT client;
    ASSERT_TRUE(client.Connect(m_tlsPort));
    ASSERT_TRUE(client.Secure());
    EXPECT_EQ(client.ReadReply(), "220 kqftpd ready\n");
    EXPECT_EQ(client.Code("AUTH TLS"), 503);
    EXPECT_EQ(client.Code("USER admin"), 331);
    EXPECT_EQ(client.Code("PASS secret"), 230);
    std::string received;
    EXPECT_EQ(client.Download("RETR f", received), 226) << "without PROT P";
    EXPECT_EQ(received, "abc");
    EXPECT_EQ(client.Code("PROT C"), 503) << "PBSZ 0 comes first here, too";
    ASSERT_TRUE(client.Protect());
    EXPECT_EQ(client.Download("RETR f", received, CLIENT::ACTIVE), 226);
    EXPECT_EQ(client.Code("PROT C"), 200);
    EXPECT_EQ(client.Download("RETR f", received, CLIENT::PASSIVE, false), 226);
    CLIENT other;
    EXPECT_TRUE(other.LogIn(m_port)) << "the other port is plain at first";
}

TEST_F(FtpServerTLS, ImplicitPort_PlainText_NoGreeting)
{
    StartImplicit();
    FtpTestSocket socket;
    ASSERT_TRUE(socket.Connect(m_tlsPort));
    ASSERT_TRUE(socket.Send("USER admin\r\nPASS secret\r\n"));
    const std::string answer = socket.ReceiveAll();
    EXPECT_TRUE(socket.IsEnded());
    EXPECT_EQ(answer.find("220"), std::string::npos);
    EXPECT_TRUE(WaitNoSessions());
    EXPECT_TRUE(HasEvent("Connect SSL Fail"));
}

TEST_F(FtpServerTLS, Disconnect_LastWordsComeOverTLS)
{
    Start();
    CLIENT client;
    ASSERT_TRUE(client.LogIn(m_port));
    m_server.GetService().SendControlMsgDisconnectAll("Closing down");
    EXPECT_EQ(client.ReadReply(), "421 Closing down\n");
    EXPECT_TRUE(client.WaitClosed());
}

TEST_F(FtpServerTLS, Certificate_NoneNamed_MadeOnceAndForItsOwner)
{
    m_settings.SetTLSCertificate(FilePath());
    m_settings.SetTLSKey(FilePath());
    m_settings.SetOfferTLS(true);
    const std::filesystem::path state = m_folder / "state";
    m_settings.SetStateFolder(FromStdPath(state));
    Start();
    const std::string made = ReadFile(state / "kqftpd.crt");
    EXPECT_NE(made.find("BEGIN CERTIFICATE"), std::string::npos);
    EXPECT_EQ(AskForName(), "kqftpd");
    m_server.Stop();
    Start();
    EXPECT_EQ(ReadFile(state / "kqftpd.crt"), made) << "the same is used again";
    EXPECT_EQ(AskForName(), "kqftpd");
    ExpectOwnerOnly(state / "kqftpd.key");
}

TEST_F(FtpServerTLS, Certificate_CannotBeHad_StartSaysWhy)
{
    const auto errorOf = [this] {
        String error;
        EXPECT_FALSE(m_server.Start(m_settings, error));
        EXPECT_FALSE(m_server.IsRunning());
        return error;
    };
    m_settings.SetTLSKey(FromStdPath(m_folder / "no.key"));
    EXPECT_EQ(errorOf(), FromStdPath(m_folder / "no.key").GetText() + " cannot be read");
    m_settings.SetTLSCertificate(FromStdPath(m_folder / "no.crt"));
    EXPECT_EQ(errorOf(), FromStdPath(m_folder / "no.crt").GetText() + " cannot be read");
    m_settings.SetTLSCertificate(FilePath());
    m_settings.SetTLSKey(FilePath());
    m_settings.SetOfferTLS(true);
    EXPECT_EQ(errorOf(), "tls_certificate: none is named, and there is no state_folder to make one in");
    WriteHomeFile("file", "");
    m_settings.SetStateFolder(FromStdPath(Home() / "file" / "state"));
    EXPECT_TRUE(errorOf().StartsWith("no certificate can be made in "));
}

TEST_F(FtpServerTLS, Certificate_MadeOneLostItsKey_NotReplaced)
{
    m_settings.SetTLSCertificate(FilePath());
    m_settings.SetTLSKey(FilePath());
    m_settings.SetOfferTLS(true);
    const std::filesystem::path state = m_folder / "state";
    m_settings.SetStateFolder(FromStdPath(state));
    std::filesystem::create_directory(state);
    std::ofstream(state / "kqftpd.crt") << "somebody's own";
    String error;
    EXPECT_FALSE(m_server.Start(m_settings, error));
    EXPECT_EQ(ReadFile(state / "kqftpd.crt"), "somebody's own");
}

TEST_F(FtpServerTLS, Certificate_FilesExchanged_NextHandshakeUsesThem)
{
    const std::filesystem::path cert = m_folder / "ftp.crt";
    const std::filesystem::path key = m_folder / "ftp.key";
    const auto install = [&](const TLSFiles& files) {
        // Removed first: one standard library overwrites nothing, whatever it is told.
        std::filesystem::remove(cert);
        std::filesystem::remove(key);
        std::filesystem::copy_file(ToStdPath(files.GetCert()), cert);
        std::filesystem::copy_file(ToStdPath(files.GetKey()), key);
    };
    const TLSFiles first("first.example");
    const TLSFiles second("second.example");
    install(first);
    m_settings.SetTLSCertificate(FromStdPath(cert));
    m_settings.SetTLSKey(FromStdPath(key));
    Start();
    EXPECT_EQ(AskForName(), "first.example");
    CLIENT client;
    ASSERT_TRUE(client.LogIn(m_port));
    install(second);
    EXPECT_EQ(AskForName(), "second.example");
    EXPECT_EQ(client.Code("NOOP"), 200) << "who is connected stays so";
}

TEST_F(FtpServerTLS, Certificate_DamagedLater_HandshakeFailsAndIsLogged)
{
    const std::filesystem::path cert = m_folder / "ftp.crt";
    std::filesystem::copy_file(ToStdPath(TLSFiles::sGet().GetCert()), cert);
    m_settings.SetTLSCertificate(FromStdPath(cert));
    Start();
    std::ofstream(cert) << "nonsense";
    EXPECT_EQ(AskForName(), "");
    EXPECT_TRUE(WaitNoSessions());
    EXPECT_TRUE(HasEvent("Connect SSL Fail"));
}

TEST_F(FtpServerTLS, Reload_TLSTurnedOn_NewSessionsHaveIt)
{
    m_settings.SetTLSCertificate(FilePath());
    m_settings.SetTLSKey(FilePath());
    Start();
    FtpTestClient before;
    ASSERT_TRUE(before.Connect(m_port));
    m_settings.SetOfferTLS(true);
    String error;
    EXPECT_FALSE(m_server.Reload(m_settings, error)) << "there is no certificate";
    EXPECT_TRUE(m_server.IsRunning());
    m_settings.SetTLSCertificate(TLSFiles::sGet().GetCert());
    m_settings.SetTLSKey(TLSFiles::sGet().GetKey());
    ASSERT_TRUE(m_server.Reload(m_settings, error)) << error.c_str();
    EXPECT_EQ(before.Code("AUTH TLS"), 502);
    CLIENT after;
    EXPECT_TRUE(after.LogIn(m_port));
}

} // namespace
} // namespace kqlib::test
