// Starting, changing, stopping a whole server, and what its logs hold afterwards.
#include "tests/hosts/ftp/FtpServerFixture.h"

#include "common/DataLogQuery.h"
#include "common/DataLogRecord.h"
#include "common/DataLogResults.h"
#include "common/ThreadEvent.h"

#include <chrono>
#include <list>

namespace kqlib::test {
namespace {

/// Longer than any stop on a busy machine, shorter than the time-out of a client that is stuck.
constexpr std::chrono::seconds HELD_UP(60);

class FtpServerLife : public FtpServerFixture
{
protected:
    static String Bind(std::uint16_t port) { return "127.0.0.1:" + String::sToString(port); }
    /// A port that nobody has now.
    static std::uint16_t FreePort()
    {
        FtpTestSocket finder;
        return finder.Listen();
    }
    /// What a client of that port hears first; empty: nobody listens there.
    static std::string GreetingAt(std::uint16_t port)
    {
        FtpTestSocket socket;
        std::string greeting;
        const bool isServed = socket.Connect(port);
        EXPECT_EQ(socket.Receive(greeting, isServed ? waitForMs : 0), isServed);
        return greeting;
    }
};

/// The records in the session log of a server that has stopped.
class SessionLog
{
public:
    explicit SessionLog(const TempFolder& folder)
    {
        DataLogRecord log;
        log.SetSettings(true, 3600, FromStdPath(folder / "logs"), "kqftpd-", "sessions");
        Messages messages;
        m_isRead = log.Query(DataLogQuery(), ThreadEvent(), NetSessionStatus(), m_results, messages);
    }
    bool IsRead() const { return m_isRead; }
    ULONG GetCount() const { return m_results.GetCount(); }
    const NetSessionStatus& Get(ULONG index) const
    {
        return dynamic_cast<const NetSessionStatus&>(m_results.Get(index));
    }

private:
    DataLogResults m_results;
    bool m_isRead = false;
};

TEST_F(FtpServerLife, Session_Ended_RecordedWithItsCounters)
{
    WriteHomeFile("f", "abc");
    Start();
    {
        FtpTestClient client = LogIn();
        std::string bytes;
        EXPECT_EQ(client.Download("RETR f", bytes), 226);
        EXPECT_EQ(client.Upload("STOR g", "12345"), 226);
        EXPECT_EQ(client.Code("QUIT"), 221);
    }
    EXPECT_TRUE(WaitNoSessions());
    NetServiceStatus totals;
    m_server.GetService().GetStatus(totals);
    EXPECT_EQ(totals.GetFilesRead(), 1U);
    EXPECT_EQ(totals.GetFilesCreated(), 1U);
    EXPECT_EQ(totals.GetLoginSuccesses(), 1U);
    EXPECT_EQ(totals.GetConnectionsIn(), 3U) << "the control connection and two for data";
    m_server.Stop();
    const SessionLog log(m_folder);
    ASSERT_TRUE(log.IsRead());
    ASSERT_EQ(log.GetCount(), 1U);
    EXPECT_EQ(log.Get(0).GetUser(), "admin");
    EXPECT_EQ(log.Get(0).GetFilesRead(), 1U);
    EXPECT_EQ(log.Get(0).GetFilesCreated(), 1U);
    EXPECT_EQ(log.Get(0).GetRemoteIP().GetText(), "127.0.0.1");
}

TEST_F(FtpServerLife, Stop_ManySessionsAtWork_QuickAndEveryOneRecorded)
{
    constexpr unsigned COUNT = 200;
    WriteHomeFile("big", "");
    std::filesystem::resize_file(Home() / "big", std::uintmax_t{1} << 34);
    m_settings.SetMaxSessionsPerAddress(0);
    Start();
    struct WORK
    {
        FtpTestClient client;
        FtpTestSocket data;
    };
    std::list<WORK> sessions;
    for (unsigned i = 0; i < COUNT; ++i) {
        WORK& work = sessions.emplace_back();
        ASSERT_TRUE(work.client.LogIn(m_port, "anonymous", "x"));
        if (i % 3 == 0)
            continue; // idle
        ASSERT_TRUE(work.client.OpenPassive(work.data));
        if (i % 3 == 1)
            EXPECT_EQ(work.client.Code("RETR big"), 150); // stuck, for nobody reads
        else
            EXPECT_NE(work.client.Code("PASV"), 0); // listening
    }
    EXPECT_EQ(SessionCount(), COUNT);
    const auto start = std::chrono::steady_clock::now();
    m_server.Stop();
    EXPECT_LT(std::chrono::steady_clock::now() - start, HELD_UP);
    const SessionLog log(m_folder);
    ASSERT_TRUE(log.IsRead());
    EXPECT_EQ(log.GetCount(), COUNT);
    EXPECT_EQ(sessions.front().client.ReadReply(), "421 The service is stopping\n");
}

TEST_F(FtpServerLife, Stop_ClientNeverReads_NotHeldUp)
{
    Start();
    FtpTestClient client = LogIn();
    std::string questions;
    for (int i = 0; i < 200000; ++i)
        questions += "HELP\r\n";
    client.GetSocket().SendUntilStuck(questions);
    const auto start = std::chrono::steady_clock::now();
    m_server.Stop();
    EXPECT_LT(std::chrono::steady_clock::now() - start, HELD_UP);
}

TEST_F(FtpServerLife, Stop_WhileAnAdministratorLooks_NoDeadlock)
{
    for (int round = 0; round < 5; ++round) {
        Start();
        std::list<FtpTestClient> clients;
        for (int i = 0; i < 4; ++i) {
            clients.push_back(LogIn());
            clients.back().Send("SITE WHO\r\nSITE STAT\r\nSITE WHO\r\nSITE STAT\r\n");
        }
        m_server.Stop();
    }
}

TEST_F(FtpServerLife, Reload_NewSettings_ForNewSessionsOnly)
{
    Start();
    FtpTestClient before = LogIn();
    FtpSettings changed = m_settings;
    changed.SetGreeting("Changed");
    changed.SetUsers({User("other", "read")});
    String error;
    EXPECT_TRUE(m_server.Reload(changed, error)) << error.c_str();
    EXPECT_EQ(before.Code("MKD still"), 257);
    FtpTestClient after;
    ASSERT_TRUE(after.Connect(m_port)) << "the port stays";
    EXPECT_EQ(after.Code("USER admin"), 331);
    EXPECT_EQ(after.Code("PASS secret"), 530);
    EXPECT_EQ(after.Code("USER other"), 331);
    EXPECT_EQ(after.Code("PASS secret"), 230);
}

// What the command line says is laid over settings that were good by themselves.
TEST_F(FtpServerLife, Reload_WrongSettings_NothingChanges)
{
    Start();
    FtpSettings changed = m_settings;
    changed.SetGreeting("Changed");
    changed.SetListenTLS(changed.GetListen());
    String error;
    EXPECT_FALSE(m_server.Reload(changed, error));
    EXPECT_TRUE(error.StartsWith("listen_tls: ")) << error.c_str();
    EXPECT_EQ(GreetingAt(m_port), "220 kqftpd ready\r\n");
}

TEST_F(FtpServerLife, Reload_PortTaken_NothingChanges)
{
    Start();
    FtpTestClient inside = LogIn();
    FtpTestSocket other;
    const std::uint16_t taken = other.Listen();
    const std::uint16_t free = FreePort();
    FtpSettings changed = m_settings;
    changed.SetListen(Bind(free) + "," + Bind(taken));
    changed.SetGreeting("Changed");
    changed.SetMaxSessions(1);
    changed.SetReservedSessions(0);
    for (int round = 0; round < 3; ++round) {
        String error;
        EXPECT_FALSE(m_server.Reload(changed, error));
        EXPECT_EQ(error, "cannot listen on " + Bind(taken));
        EXPECT_EQ(GreetingAt(free), "");
        EXPECT_EQ(GreetingAt(m_port), "220 kqftpd ready\r\n") << "port, greeting and limit are the old ones";
        EXPECT_EQ(inside.Code("NOOP"), 200);
    }
    other.Close();
    String error;
    EXPECT_TRUE(WaitFor([&] { return m_server.Reload(changed, error); })) << error.c_str();
    EXPECT_EQ(GreetingAt(m_port), "");
    EXPECT_EQ(inside.Code("QUIT"), 221);
    EXPECT_TRUE(WaitNoSessions());
    EXPECT_EQ(GreetingAt(taken), "220 Changed\r\n");
}

TEST_F(FtpServerLife, Reload_SamePortOnOtherAddresses_Moves)
{
    Start();
    FtpTestSocket other;
    const std::uint16_t taken = other.Listen();
    FtpSettings changed = m_settings;
    String error;
    changed.SetListen(String::sToString(m_port)); // on every address, of which this one is in the way
    EXPECT_TRUE(m_server.Reload(changed, error)) << error.c_str();
    EXPECT_NE(GreetingAt(m_port), "");
    changed.SetListen(Bind(m_port) + "," + Bind(taken));
    EXPECT_FALSE(m_server.Reload(changed, error));
    EXPECT_NE(GreetingAt(m_port), "");
    Vector<NetServiceStatus::ACTIVEPORT> ports;
    m_server.GetService().GetListeningPorts(ports);
    ASSERT_EQ(ports.GetCount(), 1U);
    EXPECT_EQ(ports.Get(0).ip.GetText(), "0.0.0.0") << "on every address again";
}

TEST_F(FtpServerLife, Reload_CertificateCannotBeHad_NothingChanges)
{
    Start();
    FtpSettings changed = m_settings;
    const std::uint16_t free = FreePort();
    changed.SetListen(Bind(free));
    changed.SetTLSCertificate("/nowhere/a.crt");
    changed.SetTLSKey("/nowhere/a.key");
    String error;
    EXPECT_FALSE(m_server.Reload(changed, error));
    EXPECT_EQ(GreetingAt(free), "");
    EXPECT_NE(GreetingAt(m_port), "");
}

TEST_F(FtpServerLife, Start_PortZeroAndATLSPort_EachOpenedOnceInTheirOrder)
{
    const std::uint16_t tlsPort = FreePort();
    m_settings.SetListenTLS(Bind(tlsPort));
    m_settings.SetStateFolder(FromStdPath(m_folder / "state"));
    String error;
    ASSERT_TRUE(m_server.Start(m_settings, error)) << error.c_str();
    Vector<NetServiceStatus::ACTIVEPORT> ports;
    m_server.GetService().GetListeningPorts(ports);
    ASSERT_EQ(ports.GetCount(), 2U);
    EXPECT_EQ(ports.Get(1).port, tlsPort) << "whoever starts the program reads the other one first";
    EXPECT_FALSE(HasEvent("Close Listening Port"));
}

TEST_F(FtpServerLife, Start_PortTaken_Refused)
{
    FtpTestSocket other;
    m_settings.SetListen("127.0.0.1:" + String::sToString(other.Listen()));
    String error;
    EXPECT_FALSE(m_server.Start(m_settings, error));
    EXPECT_FALSE(m_server.IsRunning());
    EXPECT_FALSE(error.empty());
}

TEST_F(FtpServerLife, Start_BadSettings_Refused)
{
    m_settings.SetBlockTimeMs(0);
    String error;
    EXPECT_FALSE(m_server.Start(m_settings, error));
    EXPECT_TRUE(error.StartsWith("block_time_ms:"));
}

TEST_F(FtpServerLife, LogFolder_CannotBeUsed_ServerServesAndSaysSo)
{
    WriteHomeFile("notafolder", "");
    const struct
    {
        std::filesystem::path folder;
        std::string warning;
    } cases[] = {{Home() / "notafolder", " is not a folder"}, {Home() / "notafolder/below", " cannot be made"}};
    for (const auto& each : cases) {
        m_settings.SetLogFolder(FromStdPath(each.folder));
        Start();
        FtpTestClient client = LogIn();
        std::string bytes;
        EXPECT_EQ(client.Download("NLST", bytes), 226);
        EXPECT_EQ(client.Code("QUIT"), 221);
        EXPECT_TRUE(WaitNoSessions());
        ASSERT_EQ(m_server.GetWarnings().size(), 1U);
        EXPECT_EQ(m_server.GetWarnings()[0].str(),
                  "log_folder: " + FromStdPath(each.folder).GetText().str() + each.warning);
    }
}

TEST_F(FtpServerLife, LogFolder_CannotBeUsedAndIsRequired_Refused)
{
    WriteHomeFile("notafolder", "");
    m_settings.SetLogFolder(FromStdPath(Home() / "notafolder"));
    m_settings.SetRequireLogs(true);
    String error;
    EXPECT_FALSE(m_server.Start(m_settings, error));
    EXPECT_FALSE(m_server.IsRunning());
    EXPECT_TRUE(error.StartsWith("log_folder: ")) << error.c_str();
    m_settings.SetLogFolder(FromStdPath(m_folder / "logs/deep"));
    Start();
    EXPECT_TRUE(m_server.GetWarnings().empty());
}

TEST_F(FtpServerLife, LogFileOfAnotherKind_CannotBeOpened_SaidSo)
{
    std::filesystem::create_directories(m_folder / "logs/kqftpd.log");
    Start();
    ASSERT_EQ(m_server.GetWarnings().size(), 1U);
    EXPECT_TRUE(m_server.GetWarnings()[0].StartsWith("log_folder: kqftpd.log cannot be opened in "));
}

TEST_F(FtpServerLife, HomeMissing_OthersAreServedAndItIsSaid)
{
    FtpUserSettings lost = User("lost", "read");
    lost.SetHome(FromStdPath(m_folder / "nowhere"));
    m_settings.SetUsers({User("admin", "read"), lost});
    Start();
    EXPECT_EQ(LogIn().Code("NOOP"), 200);
    ASSERT_EQ(m_server.GetWarnings().size(), 1U);
    EXPECT_EQ(m_server.GetWarnings()[0], "users[1].home: " + FromStdPath(m_folder / "nowhere").GetText() +
                                             ": No such file or folder (account \"lost\")");
    String error;
    m_settings.SetUsers({User("admin", "read")});
    EXPECT_TRUE(m_server.Reload(m_settings, error));
    EXPECT_TRUE(m_server.GetWarnings().empty());
}

TEST_F(FtpServerLife, BlockTime_Raised_SessionsWorkAlike)
{
    m_settings.SetBlockTimeMs(100);
    Start();
    FtpTestClient client = LogIn();
    std::string bytes;
    EXPECT_EQ(client.Upload("STOR f", "abc"), 226);
    EXPECT_EQ(client.Download("RETR f", bytes), 226);
    EXPECT_EQ(client.Code("QUIT"), 221);
}

TEST_F(FtpServerLife, PortIsThereAgain_AfterAStopWithConnectionsOpen)
{
    Start();
    const std::uint16_t port = m_port;
    FtpTestClient client = LogIn();
    m_server.Stop();
    m_settings.SetListen("127.0.0.1:" + String::sToString(port));
    Start();
    EXPECT_EQ(LogIn().Code("NOOP"), 200);
}

} // namespace
} // namespace kqlib::test
