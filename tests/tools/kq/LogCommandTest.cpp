#include "common/DataLogRecord.h"
#include "common/DataLogTime.h"
#include "common/Messages.h"
#include "net/status/NetSessionActivity.h"
#include "net/status/NetSessionStatus.h"
#include "tests/peers/RunProgram.h"
#include "tests/peers/TempFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace {

using namespace kqlib;
using namespace kqlib::test;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

constexpr SLONG8 NOON = 1'795'262'400'000; // 2026-11-21 12:00:00 UTC

/// A folder with the two logs of a service.
class LogCommandTest : public testing::Test
{
protected:
    void SetUp() override
    {
        const String folder(m_folder.GetPath().string());
        m_sessions.SetSettings(true, 0, FilePath(folder), "kqftpd-", "sessions");
        m_activity.SetSettings(true, 0, FilePath(folder), "kqftpd-", "activity");
    }

    void AddSession(int second, const char* user, const char* address, ULONG8 bytesOut)
    {
        NetSessionStatus session;
        session.SetStartTime(TimePos(NOON + second * 1000));
        session.SetEndTime(TimePos(NOON + second * 1000 + 500));
        session.SetSessionID(EventLogSessionID(static_cast<ULONG>(second), 0x1F));
        session.SetUser(user);
        session.SetRemoteIP(NetIP(String(address)));
        session.SetRemotePort(4000);
        session.SetLocalIP(NetIP(String("127.0.0.1")));
        session.SetLocalPort(21);
        session.SetDataOutBytes(bytesOut);
        session.SetCommandsIn(3);
        ASSERT_TRUE(m_sessions.AddEntry(session, m_messages));
    }
    void AddActivity(int second, ULONG connections, ULONG current, ULONG8 bytesOut)
    {
        NetSessionActivity entry;
        entry.SetTimeUnit(static_cast<ULONG>(NOON / 1000 + second));
        entry.SetConnectionsIn(connections);
        entry.SetCurrentConnectionsIn(current);
        entry.SetDataOutBytes(bytesOut);
        ASSERT_TRUE(m_activity.AddEntry(entry, m_messages));
    }
    PROGRAMRESULT Kq(const std::string& command, const std::vector<std::string>& more = {}) const
    {
        std::vector<std::string> all{"log", command, m_folder.GetPath().string()};
        all.insert(all.end(), more.begin(), more.end());
        return RunProgram(KQ_PROGRAM, all);
    }
    nlohmann::json KqJson(const std::string& command, std::vector<std::string> more = {}) const
    {
        more.insert(more.end(), {"--format", "json"});
        const PROGRAMRESULT result = Kq(command, more);
        EXPECT_TRUE(result.success) << result.output;
        return nlohmann::json::parse(result.output, nullptr, false);
    }

    const TempFolder m_folder;
    DataLogRecord m_sessions;
    DataLogTime m_activity;
    Messages m_messages;
};

TEST_F(LogCommandTest, Sessions_Table_LinesAndSums)
{
    AddSession(0, "anna", "10.0.0.1", 1536);
    AddSession(60, "bert", "10.0.0.2", 512);
    const PROGRAMRESULT result = Kq("sessions");
    EXPECT_TRUE(result.success);
    EXPECT_THAT(result.output, StartsWith("Start (UTC)          End (UTC)            Client         User"));
    EXPECT_THAT(result.output, HasSubstr("\n2026-11-21 12:00:00  2026-11-21 12:00:00  10.0.0.1:4000  anna         3   "
                                         "0  1.5 K       0     0         0              0\n"));
    EXPECT_THAT(result.output, HasSubstr("\n2 sessions"));
    EXPECT_THAT(result.output, HasSubstr(" 6   0  2.0 K "));
}

TEST_F(LogCommandTest, Sessions_WhileTheServiceAddsThem_SeenAtOnce)
{
    EXPECT_EQ(KqJson("sessions").size(), 0U);
    AddSession(0, "anna", "10.0.0.1", 1);
    EXPECT_EQ(KqJson("sessions").size(), 1U);
}

TEST_F(LogCommandTest, Sessions_Json_EveryField)
{
    AddSession(7, "anna", "10.0.0.1", 5'000'000'000ULL);
    const nlohmann::json list = KqJson("sessions");
    ASSERT_EQ(list.size(), 1U);
    EXPECT_EQ(list[0]["Start"], "2026-11-21T12:00:07.000Z");
    EXPECT_EQ(list[0]["End"], "2026-11-21T12:00:07.500Z");
    EXPECT_EQ(list[0]["Session"], "0000001F-00000007");
    EXPECT_EQ(list[0]["User"], "anna");
    EXPECT_EQ(list[0]["RemoteIP"], "10.0.0.1");
    EXPECT_EQ(list[0]["RemotePort"], 4000);
    EXPECT_EQ(list[0]["LocalIP"], "127.0.0.1");
    EXPECT_EQ(list[0]["LocalPort"], 21);
    EXPECT_EQ(list[0]["DataOutBytes"], 5'000'000'000ULL);
    EXPECT_EQ(list[0]["CommandsIn"], 3);
    EXPECT_EQ(list[0].size(), 8U + NetCounterBlock::COUNTER_COUNT);
}

TEST_F(LogCommandTest, Sessions_UserAndAddressAndCount_OnlyThose)
{
    for (int second = 0; second < 6; ++second)
        AddSession(second, second % 2 == 0 ? "anna" : "bert", second < 4 ? "10.0.0.1" : "10.0.0.2", 1);
    EXPECT_EQ(KqJson("sessions", {"--user", "anna"}).size(), 3U);
    EXPECT_EQ(KqJson("sessions", {"--address", "10.0.0.2"}).size(), 2U);
    EXPECT_EQ(KqJson("sessions", {"--user", "anna", "--address", "10.0.0.2"}).size(), 1U);
    const nlohmann::json second = KqJson("sessions", {"--user", "bert", "--first", "1", "--count", "1"});
    ASSERT_EQ(second.size(), 1U);
    EXPECT_EQ(second[0]["Start"], "2026-11-21T12:00:03.000Z") << "first and count apply to those of the user";
}

TEST_F(LogCommandTest, Sessions_FromAndTo_BothInclusive)
{
    for (int second = 0; second < 120; second += 30)
        AddSession(second, "anna", "10.0.0.1", 1);
    EXPECT_EQ(KqJson("sessions", {"--from", "2026-11-21 12:00:30"}).size(), 3U);
    EXPECT_EQ(KqJson("sessions", {"--to", "2026-11-21T12:00"}).size(), 2U) << "the whole minute";
    EXPECT_EQ(KqJson("sessions", {"--from", "2026-11-21", "--to", "2026-11-21"}).size(), 4U) << "the whole day";
    EXPECT_EQ(KqJson("sessions", {"--from", "2026-11-22"}).size(), 0U);
}

TEST_F(LogCommandTest, Sessions_NameOfAStranger_HarmlessEverywhere)
{
    AddSession(0, "=1+\",\x1B[2J", "10.0.0.1", 1);
    EXPECT_THAT(Kq("sessions").output, HasSubstr("=1+\",_[2J"));
    const PROGRAMRESULT csv = Kq("sessions", {"--format", "csv"});
    EXPECT_THAT(csv.output, HasSubstr("\"'=1+\"\",_[2J\"")) << "quoted, and no formula";
    EXPECT_THAT(csv.output, Not(HasSubstr("\x1B")));
    EXPECT_THAT(Kq("sessions", {"--format", "json"}).output, Not(HasSubstr("\x1B")));
}

TEST_F(LogCommandTest, Activity_Step_FoldedAsTheLogMerges)
{
    AddActivity(0, 2, 5, 100);
    AddActivity(59, 3, 4, 1000);
    AddActivity(60, 7, 1, 1);
    const nlohmann::json list = KqJson("activity", {"--step", "1m"});
    ASSERT_EQ(list.size(), 2U);
    EXPECT_EQ(list[0]["Start"], "2026-11-21T12:00:00.000Z");
    EXPECT_EQ(list[0]["ConnectionsIn"], 5);
    EXPECT_EQ(list[0]["DataOutBytes"], 1100);
    EXPECT_EQ(list[0]["CurrentConnectionsIn"], 5) << "the greater of the two";
    EXPECT_EQ(list[1]["ConnectionsIn"], 7);
    EXPECT_EQ(KqJson("activity", {"--step", "1"}).size(), 3U);
    EXPECT_EQ(KqJson("activity", {"--step", "1d"}).size(), 1U);
}

TEST_F(LogCommandTest, Activity_Csv_NamesThenOneLineEach)
{
    AddActivity(0, 2, 5, 100);
    const PROGRAMRESULT result = Kq("activity", {"--format", "csv"});
    EXPECT_THAT(result.output, StartsWith("Start,CurrentConnectionsIn,CurrentConnectionsOut,ConnectionsIn,"));
    EXPECT_THAT(result.output, HasSubstr("2026-11-21T12:00:00.000Z,5,0,2,0,0,0,100,0"));
}

TEST_F(LogCommandTest, Activity_LongTime_TableIsShort)
{
    for (int second = 0; second < 86400; second += 600)
        AddActivity(second, 1, 0, 0);
    EXPECT_EQ(KqJson("activity").size(), 48U) << "half hours: sixty lines at most";
}

TEST_F(LogCommandTest, Chart_Ascii_BarsByHeight)
{
    AddActivity(0, 1, 0, 0);
    AddActivity(1, 4, 0, 0);
    AddActivity(3, 2, 0, 0);
    const PROGRAMRESULT result = Kq(
        "activity", {"--format", "chart", "--ascii", "--height", "2", "--width", "20", "--counter", "ConnectionsIn"});
    EXPECT_TRUE(result.success);
    EXPECT_EQ(result.output, "ConnectionsIn per 1 s\n"
                             "     4 |   ##\n"
                             "       |## ##    ##\n"
                             "     0 +------------\n"
                             "        2026-11-21 12:00:00 to 2026-11-21 12:00:03 UTC\n");
}

TEST_F(LogCommandTest, Chart_Default_ThreeCountersInBlocks)
{
    AddActivity(0, 1, 0, 7);
    const PROGRAMRESULT result = Kq("activity", {"--format", "chart"});
    EXPECT_THAT(result.output, StartsWith("ConnectionsIn per 1 s\n"));
    EXPECT_THAT(result.output, HasSubstr("\nDataInBytes per 1 s\n"));
    EXPECT_THAT(result.output, HasSubstr("\nDataOutBytes per 1 s\n     7 \u2524\u2588"));
}

TEST_F(LogCommandTest, Chart_NothingLogged_SaysSo)
{
    EXPECT_THAT(Kq("activity", {"--format", "chart"}).output, HasSubstr("nothing happened"));
    EXPECT_THAT(Kq("activity", {"--format", "html"}).output, HasSubstr("Nothing happened in this time."));
}

TEST_F(LogCommandTest, Page_Output_StandsAlone)
{
    AddActivity(0, 2, 0, 2048);
    AddActivity(9, 1, 0, 0);
    const std::string path = (m_folder / "a.html").string();
    EXPECT_TRUE(Kq("activity", {"--format", "html", "--title", "A<B", "--output", path}).success);
    std::ifstream file(path, std::ios::binary);
    const std::string page(std::istreambuf_iterator<char>(file), {});
    EXPECT_THAT(page, StartsWith("<!DOCTYPE html>\n"));
    EXPECT_THAT(page, HasSubstr("<h1>A&lt;B</h1>"));
    EXPECT_THAT(page, HasSubstr("2026-11-21 12:00:00: 2.0 KiB sent"));
    EXPECT_THAT(page, Not(HasSubstr("http")));
    EXPECT_THAT(page, Not(HasSubstr("<script")));
    EXPECT_THAT(page, HasSubstr("prefers-color-scheme:dark"));
}

TEST_F(LogCommandTest, Output_CannotBeWritten_Failure)
{
    const PROGRAMRESULT result = Kq("activity", {"--output", (m_folder / "no" / "a.csv").string()});
    EXPECT_FALSE(result.success);
    EXPECT_THAT(result.output, StartsWith("kq: cannot write "));
}

TEST(LogCommandPlaceTest, NoLogThere_FailureAndNothingMade)
{
    const TempFolder folder;
    const PROGRAMRESULT result = RunProgram(KQ_PROGRAM, {"log", "sessions", folder.GetPath().string()});
    EXPECT_FALSE(result.success);
    EXPECT_THAT(result.output, StartsWith("kq: no session log that can be read in "));
    EXPECT_TRUE(std::filesystem::is_empty(folder.GetPath()));
}

TEST(LogCommandPlaceTest, DamagedLog_Failure)
{
    const TempFolder folder;
    std::ofstream(folder / "kqftpd-activity.db") << "this is no database, and long enough to be looked at as one";
    EXPECT_THAT(RunProgram(KQ_PROGRAM, {"log", "activity", folder.GetPath().string()}).output,
                StartsWith("kq: no activity log that can be read in "));
}

TEST_F(LogCommandTest, WrongArguments_UsageAndFailure)
{
    for (const std::vector<std::string>& wrong : {std::vector<std::string>{"--from", "yesterday"},
                                                  {"--to", "2026-02-30"},
                                                  {"--to", "2026-11-21 25:00"},
                                                  {"--step", "0"},
                                                  {"--step", "5x"},
                                                  {"--step", "99999999999"},
                                                  {"--counter", "Nothing"},
                                                  {"--format", "xml"},
                                                  {"--width", "1"}})
        EXPECT_FALSE(Kq("activity", wrong).success) << wrong[1];
    EXPECT_FALSE(Kq("sessions", {"--format", "chart"}).success) << "sessions have no chart";
}

} // namespace
