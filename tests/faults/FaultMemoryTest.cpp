// Memory: each block that a piece of work asks for is not there once, in turn.
#include "tests/faults/FaultServiceFixture.h"

#include "common/DataLogPurge.h"
#include "common/DataLogTime.h"
#include "common/EventLog.h"
#include "common/SettingsTransportSet.h"
#include "common/WithinMemory.h"
#include "net/update/NetAppUpdate.h"
#include "tests/common/logs/TestEntries.h"
#include "tests/peers/FakeHTTPServer.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>

namespace kqlib::test {
namespace {

/// Does the work again and again, each time without the next block of smallest bytes or more, until there is none any
/// more. How many there were.
template <class WORK> std::uint32_t WithoutEachBlock(const WORK& work, std::size_t smallest = 1)
{
    constexpr std::uint32_t MORE_THAN_EVER = 2000;
    for (std::uint32_t passing = 0; passing < MORE_THAN_EVER; ++passing) {
        SCOPED_TRACE("without block " + std::to_string(passing));
        FaultPlan::sScriptMemory(passing, smallest);
        work();
        if (!FaultPlan::sEndMemoryScript() || testing::Test::HasFailure()) {
            testing::Test::RecordProperty("blocks", static_cast<int>(passing));
            return passing;
        }
    }
    ADD_FAILURE() << "it asks for ever more";
    return MORE_THAN_EVER;
}

class FaultMemoryTest : public FaultServiceFixture
{
protected:
    void TearDown() override
    {
        FaultPlan::sEndMemoryScript();
        FaultPlan::sSetFailEverywhere(false);
        FaultServiceFixture::TearDown();
    }

    ULONG CountLiveSessions()
    {
        NetServiceLiveStatus live;
        m_service->GetLiveSessions(live);
        return live.GetCount();
    }
    /// A client comes, talks as far as it can, and goes; so does its session.
    bool Visit(bool secured)
    {
        FaultClient client;
        std::string number;
        return client.Connect(secured ? m_securedPort : m_plainPort, secured) && client.Talk(2, number);
    }
    void ExpectOneSessionEnds(bool secured)
    {
        const std::uint32_t blocks = WithoutEachBlock([&] {
            Visit(secured);
            EXPECT_TRUE(WaitFor([this] { return CountLiveSessions() == 0; }));
            FaultPlan::sEndMemoryScript();
            EXPECT_TRUE(Visit(secured)) << "the next one is served";
            EXPECT_TRUE(WaitFor([this] { return CountLiveSessions() == 0; }));
        });
        EXPECT_GT(blocks, 5U);
        m_service->StopListen();
        m_service->CloseSessions();
        EXPECT_EQ(Status().GetCurrentConnectionsIn(), 0U);
        const std::map<ULONG, NetSessionStatus> records = Records();
        EXPECT_LE(records.size(), m_service->made);
        EXPECT_GE(records.size() + blocks, m_service->made) << "at most one is lost for each block";
        EXPECT_GE(records.size(), blocks + 1) << "those in between are all there";
    }
};

TEST_F(FaultMemoryTest, Session_EachBlockMissingOnce_ItEndsAndTheNextIsServed)
{
    ExpectOneSessionEnds(false);
}

TEST_F(FaultMemoryTest, SessionWithTLS_EachBlockMissingOnce_ItEndsAndTheNextIsServed)
{
    ExpectOneSessionEnds(true);
}

TEST_F(FaultMemoryTest, CloseSessions_EachBlockOfTheCallerMissingOnce_AllEndAndNothingThrows)
{
    std::uint32_t passing = 0;
    for (bool isStruck = true; isStruck && !HasFailure(); ++passing) {
        FaultClient clients[3];
        for (FaultClient& client : clients) {
            std::string answer;
            ASSERT_TRUE(client.Connect(m_plainPort, false));
            ASSERT_TRUE(client.Ask("ECHO x", 0, answer));
        }
        ASSERT_EQ(CountLiveSessions(), 3U);
        FaultPlan::sScriptMemory(passing, 1); // from here on: the clients came undisturbed
        FaultPlan::sSetFailEverywhere(true);
        EXPECT_NO_THROW(m_service->CloseSessions());
        FaultPlan::sSetFailEverywhere(false);
        isStruck = FaultPlan::sEndMemoryScript();
        EXPECT_EQ(CountLiveSessions(), 0U);
        EXPECT_TRUE(Visit(false)) << "the service goes on";
        EXPECT_TRUE(WaitFor([this] { return CountLiveSessions() == 0; }));
    }
    EXPECT_GT(passing, 3U);
}

TEST_F(FaultMemoryTest, EventLine_NoMemoryForItsText_LeftOutAndTheNextIsWritten)
{
    EventLog& log = m_service->GetEventLog();
    const String large(std::string(2000, 'x'));
    const std::uint32_t blocks = WithoutEachBlock(
        [&] {
            ThreadEvent done;
            ASSERT_TRUE(m_pool->Run([&] {
                log.PrintServiceNormal("Struck", large, "");
                done.Set();
            }));
            ASSERT_TRUE(done.Wait(20000));
        },
        LARGE_BLOCK);
    EXPECT_GT(blocks, 0U);
    log.PrintPurge();
    std::ifstream file(m_folder / "events.log");
    const std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    std::size_t count = 0;
    for (std::size_t at = text.find("Struck"); at != std::string::npos; at = text.find("Struck", at + 1))
        ++count;
    EXPECT_EQ(count, 1U) << "the last one, which had its text";
}

/// Does the work on a thread of the pool, as far as there is memory, and waits for it.
template <class WORK> void RunOnPool(ThreadPool& pool, const WORK& work)
{
    ThreadEvent done;
    ASSERT_TRUE(pool.Run([&] {
        static_cast<void>(RunWithinMemory(work));
        done.Set();
    }));
    ASSERT_TRUE(done.Wait(20000));
}

/// Open files of the process whose names hold this.
std::size_t CountOpenFiles(const std::string& name)
{
    std::size_t count = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code closedMeanwhile;
        const std::string target = std::filesystem::read_symlink(entry.path(), closedMeanwhile).string();
        count += target.find(name) != std::string::npos ? 1U : 0U;
    }
    return count;
}

TEST_F(FaultMemoryTest, EventLog_EachBlockMissingOnceWhileItsFileIsOpened_NoHandleIsLost)
{
    EventLogSettings settings;
    settings.SetEnabled(true);
    settings.SetFolder(m_folder.GetFilePath());
    settings.SetFileName("opened.log");
    std::ofstream(m_folder / "opened.log") << "a line without an end";
    const std::uint32_t blocks = WithoutEachBlock([&] {
        RunOnPool(*m_pool, [&] {
            EventLog log;
            log.SetSettings(settings);
            log.PrintServiceNormal("E", "", "");
        });
        EXPECT_EQ(CountOpenFiles("opened.log"), 0U);
    });
    EXPECT_GT(blocks, 0U);
}

// The path is so long that what is made of it are large blocks. Small ones are left alone: the JSON package asks for
// some of them where it must not fail, in destructors.
TEST_F(FaultMemoryTest, SaveToFile_EachLargeBlockMissingOnce_NoHandleAndNoOtherFileStays)
{
    const std::filesystem::path folder = m_folder / std::string(250, 's');
    std::filesystem::create_directory(folder);
    const FilePath path = (folder / "settings.json").string().c_str();
    SettingsTransportSet set;
    set.AddString("text", "short");
    ASSERT_TRUE(set.SaveToFile(path));
    const std::uint32_t blocks = WithoutEachBlock(
        [&] {
            RunOnPool(*m_pool, [&] { static_cast<void>(set.SaveToFile(path)); });
            EXPECT_EQ(CountOpenFiles("settings.json"), 0U);
            const std::filesystem::directory_iterator files(folder);
            EXPECT_EQ(std::distance(begin(files), end(files)), 1);
            SettingsTransportSet read;
            EXPECT_TRUE(read.LoadFromFile(path));
            EXPECT_TRUE(read == set);
        },
        LARGE_BLOCK);
    EXPECT_GT(blocks, 0U);
}

TEST_F(FaultMemoryTest, Purge_EachBlockMissingOnce_TheNextLookMakesUpForIt)
{
    FakeCalendar calendar(1699999200000); // 2023-11-14 22:00:00 UTC
    constexpr SLONG8 OLD = 1699999200 - 500 * 86400LL;
    DataLogTime units;
    units.SetSettings(true, 1, m_folder.GetFilePath(), "purged-", "units");
    DataLogPurge purge(*m_pool);
    purge.InitMonitorLog(units);
    const std::uint32_t blocks = WithoutEachBlock([&] {
        Messages messages;
        ASSERT_TRUE(units.AddEntry(CountEntry(static_cast<ULONG>(OLD), 0, 1), messages));
        ASSERT_TRUE(purge.Start());
        EXPECT_TRUE(WaitFor([&] {
            DataLogResults results;
            return units.Query(DataLogQuery(), ThreadEvent(), CountEntry(), results, messages) &&
                   results.GetCount() == 0;
        }));
        purge.Stop();
    });
    EXPECT_GT(blocks, 0U);
}

TEST_F(FaultMemoryTest, Update_EachBlockMissingOnce_FailsOrSucceedsAndCanBeTriedAgain)
{
    NetAppUpdate update(*m_pool, m_folder.GetFilePath(), 200, "Product 2.0", "setup");
    const auto run = [&] {
        FakeHTTPServer server;
        server.Answer(FakeHTTPServer::sOk("201\r\nNews\r\n127.0.0.1\r\n" + std::to_string(server.GetPort()) +
                                          "\r\n/files/setup.bin\r\n"));
        server.Answer(FakeHTTPServer::sOk(std::string(100000, 'i')));
        ASSERT_TRUE(server.Start());
        const auto ended = [&] { return !update.IsBusy(); };
        static_cast<void>(update.CheckForUpdate("detail", "127.0.0.1", server.GetPort(), "/version.txt"));
        EXPECT_TRUE(WaitFor(ended));
        if (update.GetStatus() == NetAppUpdate::ST_UPDATE_AVAILABLE) {
            EXPECT_TRUE(update.DownloadUpdate());
            EXPECT_TRUE(WaitFor(ended));
        }
    };
    const std::uint32_t blocks = WithoutEachBlock([&] {
        std::filesystem::remove(m_folder / "setup201.exe");
        run();
        EXPECT_TRUE(update.GetStatus() == NetAppUpdate::ST_FAILED || update.GetStatus() == NetAppUpdate::ST_DOWNLOADED)
            << update.GetStatus();
        FaultPlan::sEndMemoryScript();
        const FilePath path = update.GetDownloadedUpdatePath();
        EXPECT_EQ(path.empty(), update.GetStatus() == NetAppUpdate::ST_FAILED);
        EXPECT_EQ(std::filesystem::exists(m_folder / "setup201.exe"), !path.empty()) << "no part of it stays";
        run();
        EXPECT_EQ(update.GetStatus(), NetAppUpdate::ST_DOWNLOADED);
    });
    EXPECT_GT(blocks, 0U);
}

} // namespace
} // namespace kqlib::test
