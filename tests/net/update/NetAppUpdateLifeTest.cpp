// Tests of the states: busy, cancelled, without a thread, and starting what was downloaded.
#include "tests/net/update/UpdateFixture.h"

#include "platform/Clock.h"
#include "platform/Files.h"
#include "platform/Signals.h"

#include <atomic>
#include <thread>

namespace kqlib::test {
namespace {

using Server = FakeHTTPServer;

constexpr auto IDLE = NetAppUpdate::ST_IDLE;
constexpr auto AVAILABLE = NetAppUpdate::ST_UPDATE_AVAILABLE;
constexpr auto DOWNLOADED = NetAppUpdate::ST_DOWNLOADED;

/// What a cancel may take: one wait for the socket, with room for a busy machine.
constexpr std::uint32_t CANCEL_LIMIT_MS = 4000;

class NetAppUpdateLifeTest : public UpdateFixture
{
protected:
    void ExpectReset() const
    {
        EXPECT_EQ(m_update->GetStatus(), IDLE);
        EXPECT_FALSE(m_update->IsBusy());
        EXPECT_EQ(m_update->GetReceivedAmount(), 0U);
        EXPECT_EQ(m_update->GetMaxReceivingAmount(), 0U);
        EXPECT_EQ(m_update->GetUpdateDescription(), "");
        EXPECT_EQ(m_update->GetUpdateVersion(), 0U);
        EXPECT_TRUE(m_update->GetDownloadedUpdatePath().empty());
    }
    void ExpectCancelIsQuick()
    {
        const std::uint32_t start = platform::TickMs();
        m_update->CancelAndReset();
        EXPECT_LT(platform::TickMs() - start, CANCEL_LIMIT_MS);
        ExpectReset();
    }
    /// Starts a check that is answered with these bytes and then with nothing.
    void StartStalledCheck(Server& server, const std::string& bytes)
    {
        server.AnswerAndStall(bytes);
        ASSERT_TRUE(server.Start());
        ASSERT_TRUE(StartCheck(server));
        ASSERT_TRUE(WaitFor([&] { return server.GetRequests().size() == 1; }));
    }
    void StartStalledDownload(Server& server, const std::string& bytes)
    {
        server.Answer(Server::sOk(VersionFile(server))).AnswerAndStall(bytes);
        ASSERT_TRUE(server.Start());
        ASSERT_EQ(Check(server), AVAILABLE);
        ASSERT_TRUE(m_update->DownloadUpdate());
        ASSERT_TRUE(WaitFor([&] { return server.GetRequests().size() == 2; }));
    }
};

TEST_F(NetAppUpdateLifeTest, Construct_Fresh_Idle)
{
    ExpectReset();
}

TEST_F(NetAppUpdateLifeTest, States_Values_AreThoseOfTheInterface)
{
    EXPECT_EQ(NetAppUpdate::ST_IDLE, 0);
    EXPECT_EQ(NetAppUpdate::ST_CHECKING, 1);
    EXPECT_EQ(NetAppUpdate::ST_NO_UPDATE, 2);
    EXPECT_EQ(NetAppUpdate::ST_UPDATE_AVAILABLE, 3);
    EXPECT_EQ(NetAppUpdate::ST_DOWNLOADING, 4);
    EXPECT_EQ(NetAppUpdate::ST_DOWNLOADED, 5);
    EXPECT_EQ(NetAppUpdate::ST_FAILED, 6);
}

// --- cancel

TEST_F(NetAppUpdateLifeTest, CancelAndReset_Idle_StaysIdle)
{
    ExpectCancelIsQuick();
}

TEST_F(NetAppUpdateLifeTest, CancelAndReset_CheckWaitsAnywhere_EndsSoon)
{
    for (const char* sent :
         {"", "HTTP/1.1 2", "HTTP/1.1 200 OK\r\nContent-Length: 5\r\n", "HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\n",
          "HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\n201\r\nNew\r\nh\r\n80\r\n/unfinished"})
    {
        Server server;
        StartStalledCheck(server, sent);
        EXPECT_EQ(m_update->GetStatus(), NetAppUpdate::ST_CHECKING);
        ExpectCancelIsQuick();
    }
}

TEST_F(NetAppUpdateLifeTest, CancelAndReset_PeerDripsHeaderForEver_EndsSoon)
{
    Server server;
    server.Answer("HTTP/1.1 200 OK\r\nX: " + std::string(1500, 'x'), 1);
    ASSERT_TRUE(server.Start());
    ASSERT_TRUE(StartCheck(server));
    ASSERT_TRUE(WaitFor([&] { return server.GetRequests().size() == 1; }));
    ExpectCancelIsQuick();
}

TEST_F(NetAppUpdateLifeTest, CancelAndReset_InARingOfRedirects_EndsSoon)
{
    Server server;
    for (int i = 0; i < 10; ++i)
        server.Answer(Server::sRedirect(302, "https://elsewhere/"), 1);
    ASSERT_TRUE(server.Start());
    ASSERT_TRUE(StartCheck(server));
    ASSERT_TRUE(WaitFor([&] { return server.GetRequests().size() >= 2; }));
    ExpectCancelIsQuick();
    EXPECT_LT(server.GetRequests().size(), 10U);
}

TEST_F(NetAppUpdateLifeTest, CancelAndReset_CheckDone_Forgotten)
{
    Server server;
    server.Answer(Server::sOk(VersionFile(server, "200"))).Answer(Server::sOk(VersionFile(server))).Answer("x");
    ASSERT_TRUE(server.Start());
    EXPECT_EQ(Check(server), NetAppUpdate::ST_NO_UPDATE);
    ExpectCancelIsQuick();
    EXPECT_EQ(Check(server), AVAILABLE);
    ExpectCancelIsQuick();
    EXPECT_EQ(Check(server), NetAppUpdate::ST_FAILED);
    ExpectCancelIsQuick();
}

TEST_F(NetAppUpdateLifeTest, CancelAndReset_DownloadWaitsAnywhere_EndsSoonAndNothingStays)
{
    const std::string answer = "HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\n" + MakeBody(300);
    for (const std::size_t size : {std::size_t{0}, std::size_t{20}, answer.size() - 300, answer.size()}) {
        Server server;
        StartStalledDownload(server, answer.substr(0, size));
        const bool inBody = size >= answer.size() - 300;
        EXPECT_TRUE(WaitFor([&] { return IsFolderEmpty() != inBody; })) << size;
        ExpectCancelIsQuick();
        EXPECT_TRUE(IsFolderEmpty()) << size;
    }
}

TEST_F(NetAppUpdateLifeTest, CancelAndReset_FullBodyButConnectionOpen_EndsSoonAndNothingStays)
{
    Server server;
    StartStalledDownload(server, Server::sOk("body"));
    EXPECT_TRUE(WaitFor([&] { return m_update->GetReceivedAmount() == 4; }));
    ExpectCancelIsQuick();
    EXPECT_TRUE(IsFolderEmpty());
}

TEST_F(NetAppUpdateLifeTest, CancelAndReset_Downloaded_FileStaysPathForgotten)
{
    EXPECT_EQ(DownloadAnswered(Server::sOk("body")), DOWNLOADED);
    ExpectCancelIsQuick();
    EXPECT_EQ(InstallerBytes(), "body");
    EXPECT_FALSE(m_update->RunUpdate(nullptr));
}

TEST_F(NetAppUpdateLifeTest, Destructor_DownloadUnderWay_EndsSoonAndNothingStays)
{
    Server server;
    StartStalledDownload(server, "HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\nhalf");
    const std::uint32_t start = platform::TickMs();
    m_update.reset();
    EXPECT_LT(platform::TickMs() - start, CANCEL_LIMIT_MS);
    EXPECT_TRUE(IsFolderEmpty());
}

TEST_F(NetAppUpdateLifeTest, CheckForUpdate_WhileAnotherRuns_FirstIsEnded)
{
    Server stalled;
    StartStalledCheck(stalled, "HTTP/1.1 ");
    Server server;
    server.Answer(Server::sOk(VersionFile(server)));
    ASSERT_TRUE(server.Start());
    EXPECT_EQ(Check(server), AVAILABLE);
}

TEST_F(NetAppUpdateLifeTest, CheckForUpdate_AfterADownload_StartsAfresh)
{
    EXPECT_EQ(DownloadAnswered(Server::sOk("body")), DOWNLOADED);
    Server server;
    StartStalledCheck(server, "");
    EXPECT_EQ(m_update->GetStatus(), NetAppUpdate::ST_CHECKING);
    EXPECT_EQ(m_update->GetReceivedAmount(), 0U);
    EXPECT_TRUE(m_update->GetDownloadedUpdatePath().empty());
}

// --- order of calls

TEST_F(NetAppUpdateLifeTest, DownloadUpdate_OtherStates_Refused)
{
    EXPECT_FALSE(m_update->DownloadUpdate());
    Server server;
    server.Answer(Server::sOk(VersionFile(server, "1"))).Answer("").Answer(Server::sOk(VersionFile(server)));
    server.Answer(Server::sOk("body"));
    ASSERT_TRUE(server.Start());
    EXPECT_EQ(Check(server), NetAppUpdate::ST_NO_UPDATE);
    EXPECT_FALSE(m_update->DownloadUpdate());
    EXPECT_EQ(m_update->GetStatus(), NetAppUpdate::ST_NO_UPDATE);
    EXPECT_EQ(Check(server), NetAppUpdate::ST_FAILED);
    EXPECT_FALSE(m_update->DownloadUpdate());
    EXPECT_EQ(Check(server), AVAILABLE);
    EXPECT_EQ(Download(), DOWNLOADED);
    EXPECT_FALSE(m_update->DownloadUpdate());
    EXPECT_EQ(m_update->GetStatus(), DOWNLOADED);
}

TEST_F(NetAppUpdateLifeTest, DownloadAndRunUpdate_WhileBusy_GiveUpAfterOneSecond)
{
    Server server;
    StartStalledCheck(server, "HTTP/1.1 ");
    const std::uint32_t start = platform::TickMs();
    EXPECT_FALSE(m_update->DownloadUpdate());
    const std::uint32_t once = platform::TickMs() - start;
    EXPECT_GE(once, 990U);
    EXPECT_LT(once, 3000U);
    EXPECT_FALSE(m_update->RunUpdate(nullptr));
    EXPECT_GE(platform::TickMs() - start, 1980U);
    EXPECT_EQ(m_update->GetStatus(), NetAppUpdate::ST_CHECKING);
}

TEST_F(NetAppUpdateLifeTest, DownloadUpdate_AtOnceWhenTheStateSaysSo_WaitsForTheThread)
{
    Server server;
    server.Answer(Server::sOk(VersionFile(server))).Answer(Server::sOk("body"));
    ASSERT_TRUE(server.Start());
    ASSERT_TRUE(StartCheck(server));
    while (m_update->GetStatus() == NetAppUpdate::ST_CHECKING)
        platform::SleepMs(0);
    EXPECT_EQ(Download(), DOWNLOADED);
}

// --- no thread to be had

/// Keeps the only thread of a pool busy.
class Occupant
{
public:
    explicit Occupant(ThreadPool& pool)
        : m_runs(pool.Run([this] { WaitFor([this] { return m_end.load(); }, 60000); }))
    {
        EXPECT_TRUE(m_runs);
        m_pool = &pool;
    }
    ~Occupant()
    {
        m_end = true;
        WaitFor([this] { return m_pool->GetRunningCount() == 0; });
    }
    Occupant(const Occupant&) = delete;
    Occupant& operator=(const Occupant&) = delete;

private:
    std::atomic<bool> m_end{false};
    ThreadPool* m_pool = nullptr;
    const bool m_runs;
};

TEST_F(NetAppUpdateLifeTest, NoThreadToBeHad_CheckAndDownload_StateGoesBack)
{
    ThreadPool small(1);
    NetAppUpdate update(small, m_folder.GetFilePath(), CURRENT_VERSION, "r", "setup");
    Server server;
    server.Answer(Server::sOk(VersionFile(server))).Answer(Server::sOk("body"));
    ASSERT_TRUE(server.Start());
    {
        const Occupant occupant(small);
        EXPECT_FALSE(update.CheckForUpdate("", "127.0.0.1", server.GetPort(), "/"));
        EXPECT_EQ(update.GetStatus(), IDLE);
        EXPECT_FALSE(update.IsBusy());
    }
    ASSERT_TRUE(update.CheckForUpdate("", "127.0.0.1", server.GetPort(), "/"));
    ASSERT_TRUE(WaitFor([&] { return !update.IsBusy(); }));
    ASSERT_EQ(update.GetStatus(), AVAILABLE);
    {
        const Occupant occupant(small);
        EXPECT_FALSE(update.DownloadUpdate());
        EXPECT_EQ(update.GetStatus(), AVAILABLE);
    }
    EXPECT_TRUE(update.DownloadUpdate());
    ASSERT_TRUE(WaitFor([&] { return !update.IsBusy(); }));
    EXPECT_EQ(update.GetStatus(), DOWNLOADED);
}

// --- starting the installer

TEST_F(NetAppUpdateLifeTest, RunUpdate_BeforeACompleteDownload_Refused)
{
    EXPECT_FALSE(m_update->RunUpdate(nullptr));
    Server server;
    server.Answer(Server::sOk(VersionFile(server))).Answer("");
    ASSERT_TRUE(server.Start());
    EXPECT_EQ(Check(server), AVAILABLE);
    EXPECT_FALSE(m_update->RunUpdate(nullptr));
    EXPECT_EQ(Download(), NetAppUpdate::ST_FAILED);
    EXPECT_FALSE(m_update->RunUpdate(nullptr));
}

TEST_F(NetAppUpdateLifeTest, RunUpdate_Script_Runs)
{
    if (platform::PathSeparator() != '/')
        GTEST_SKIP() << "scripts are not started by their first line on this system";
    const std::filesystem::path mark = m_folder / "mark";
    EXPECT_EQ(DownloadAnswered(Server::sOk("#!/bin/sh\nmkdir '" + mark.string() + "'\n")), DOWNLOADED);
    EXPECT_TRUE(m_update->RunUpdate(nullptr));
    EXPECT_TRUE(WaitFor([&] { return std::filesystem::exists(mark); }));
    EXPECT_EQ(m_update->GetStatus(), DOWNLOADED);
}

// An installer could not be ended by SIGTERM when a server that holds back such signals had started it.
TEST_F(NetAppUpdateLifeTest, RunUpdate_SignalsBlockedHere_NoneBlockedInTheInstaller)
{
    if (!std::filesystem::exists("/proc/self/status"))
        GTEST_SKIP() << "this system does not show the signals of a process";
    // Copies what the system says of the program over the file itself.
    EXPECT_EQ(DownloadAnswered(Server::sOk("#!/bin/cp /proc/self/status\n")), DOWNLOADED);
    std::thread([this] {
        platform::HoldProcessRequests(); // blocks signals of this thread
        EXPECT_TRUE(m_update->RunUpdate(nullptr));
    }).join();
    EXPECT_TRUE(WaitFor([this] { return InstallerBytes().find("SigBlk:\t0000000000000000\n") != std::string::npos; }))
        << InstallerBytes();
}

TEST_F(NetAppUpdateLifeTest, RunUpdate_SystemCannotStartIt_TrueAllTheSameKeptOnPurpose)
{
    if (platform::PathSeparator() != '/')
        GTEST_SKIP() << "this system may ask its user what to do with such a file";
    EXPECT_EQ(DownloadAnswered(Server::sOk("no program")), DOWNLOADED);
    EXPECT_TRUE(m_update->RunUpdate(nullptr));
    std::filesystem::remove(InstallerPath());
    EXPECT_TRUE(m_update->RunUpdate(nullptr));
}

} // namespace
} // namespace kqlib::test
