// Logs and settings that one system wrote and another reads: the files in tests/data/written, from each of them.
#include "common/BinaryStore.h"
#include "common/DataLogQuery.h"
#include "common/DataLogRecord.h"
#include "common/DataLogResults.h"
#include "common/DataLogTime.h"
#include "common/Messages.h"
#include "common/SettingsTransportSet.h"
#include "common/ThreadEvent.h"
#include "net/status/NetSessionActivity.h"
#include "net/status/NetSessionStatus.h"
#include "tests/peers/TempFolder.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <vector>

namespace kqlib::test {
namespace {

constexpr ULONG MAX_32 = 0xFFFFFFFF;
constexpr ULONG8 MAX_64 = 0xFFFFFFFFFFFFFFFF;
constexpr const char* SYSTEMS[] = {"posix", "windows"};
constexpr const char* SESSION_LOG = "sessions";
constexpr const char* ACTIVITY_LOG = "activity";
constexpr const char* SETTINGS_FILE = "settings.json";

std::filesystem::path WrittenBy(const std::string& system)
{
    return std::filesystem::path(KQ_TEST_DATA) / "written" / system;
}

FilePath ToFilePath(const std::filesystem::path& path)
{
    return FilePath(path.string().c_str());
}

/// A session whose numbers are at and near their largest values, in byte and in word order told apart.
NetSessionStatus MakeSession(ULONG number)
{
    NetSessionStatus session;
    session.SetSessionID(EventLogSessionID(MAX_32 - number, 0x01020304));
    session.SetStartTime(TimePos(SLONG8(1700000000123) + SLONG8(number)));
    session.SetEndTime(TimePos(SLONG8(1700000123456) + SLONG8(number)));
    session.SetLocalIP(NetIP(String(number % 2 == 0 ? "10.1.2.3" : "2001:db8::7")));
    session.SetLocalPort(65535);
    session.SetRemoteIP(NetIP(String("192.168.200.1")));
    session.SetRemotePort(0x1234);
    session.SetUser("j\xC3\xBCrgen");
    session.SetConnectionsIn(MAX_32);
    session.SetDataInBytes(MAX_64);
    session.SetDataOutBytes(ULONG8(1) << 32);
    session.SetCommandsIn(0x0102030405060708);
    session.SetFilesRead(MAX_32 - number);
    return session;
}

/// The activity of one time unit; the last unit that there is among them.
NetSessionActivity MakeActivity(ULONG unit)
{
    NetSessionActivity activity;
    activity.SetTimeUnit(unit);
    activity.SetConnectionsIn(MAX_32);
    activity.SetCurrentConnectionsIn(7);
    activity.SetDataOutBytes(MAX_64 - 1);
    activity.SetFilesCreated(unit);
    return activity;
}

constexpr ULONG SESSIONS = 3;
constexpr ULONG UNITS[] = {1, 0x7FFFFFFF, 0x80000000, MAX_32};

SettingsTransportSet MakeSettings()
{
    String everyByte;
    for (int byte = 0; byte < 256; ++byte)
        everyByte += static_cast<char>(byte);
    SettingsTransportSet settings;
    settings.AddULONG("largest", MAX_32);
    settings.AddULONG("sign", 0x80000000);
    settings.AddUSHORT("port", 65535);
    settings.AddBool("yes", true);
    settings.AddString("bytes", everyByte);
    settings.AddTimePos("before1970", TimePos(SLONG8(-1)));
    settings.AddTimePos("after2038", TimePos(SLONG8(4294967296000)));
    settings.AddBinaryStore("store", BinaryStore(everyByte.data(), 256));
    settings.AddSet("list")->AddSet(SettingsTransportSet::UNNAMED)->AddString("item", "one");
    return settings;
}

void WriteAll(const std::filesystem::path& folder)
{
    Messages messages;
    DataLogRecord sessions;
    sessions.SetSettings(true, 0, ToFilePath(folder), "", SESSION_LOG);
    for (ULONG number = 0; number < SESSIONS; ++number)
        ASSERT_TRUE(sessions.AddEntry(MakeSession(number), messages));
    DataLogTime activity;
    activity.SetSettings(true, 0, ToFilePath(folder), "", ACTIVITY_LOG);
    for (const ULONG unit : UNITS)
        ASSERT_TRUE(activity.AddEntry(MakeActivity(unit), messages));
    sessions.SetSettings(false, 0, FilePath(), "", "");
    activity.SetSettings(false, 0, FilePath(), "", "");
    ASSERT_TRUE(MakeSettings().SaveToFile(ToFilePath(folder / SETTINGS_FILE)));
}

/// A copy of what a system wrote, for opening a log may change its file.
class ExchangeTest : public testing::TestWithParam<const char*>
{
protected:
    void SetUp() override
    {
        for (const auto& entry : std::filesystem::directory_iterator(WrittenBy(GetParam())))
            std::filesystem::copy_file(entry.path(), m_folder / entry.path().filename().string());
    }

    template <class LOG> void Open(LOG& log, const char* name)
    {
        log.SetSettings(true, 0, m_folder.GetFilePath(), "", name);
        ASSERT_TRUE(log.IsEnabled());
    }

    static void ReadAll(const DataLog& log, const DataLogEntry& prototype, DataLogResults& results)
    {
        Messages messages;
        ASSERT_TRUE(log.Query(DataLogQuery(), ThreadEvent(), prototype, results, messages));
    }

    TempFolder m_folder;
};

std::vector<unsigned char> RawBytes(const DataLogEntry& entry)
{
    return {entry.GetRawData(), entry.GetRawData() + entry.GetRawSize()};
}

std::string ReadBytes(const std::filesystem::path& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

TEST_P(ExchangeTest, SessionLog_OfEachSystem_ReadByteForByte)
{
    DataLogRecord log;
    Open(log, SESSION_LOG);
    DataLogResults results;
    ReadAll(log, NetSessionStatus(), results);
    ASSERT_EQ(results.GetCount(), SESSIONS);
    for (ULONG number = 0; number < SESSIONS; ++number)
        EXPECT_EQ(RawBytes(results.Get(number)), RawBytes(MakeSession(number))) << number;
}

TEST_P(ExchangeTest, ActivityLog_OfEachSystem_ReadByteForByte)
{
    DataLogTime log;
    Open(log, ACTIVITY_LOG);
    DataLogResults results;
    ReadAll(log, NetSessionActivity(), results);
    ASSERT_EQ(results.GetCount(), std::size(UNITS));
    for (ULONG index = 0; index < results.GetCount(); ++index)
        EXPECT_EQ(RawBytes(results.Get(index)), RawBytes(MakeActivity(UNITS[index]))) << UNITS[index];
}

TEST_P(ExchangeTest, ActivityLog_EntryForAStoredUnit_MergedWithWrap)
{
    Messages messages;
    DataLogTime log;
    Open(log, ACTIVITY_LOG);
    NetSessionActivity more;
    more.SetTimeUnit(MAX_32);
    more.SetConnectionsIn(3);
    more.SetDataOutBytes(1);
    ASSERT_TRUE(log.AddEntry(more, messages));
    DataLogResults results;
    ReadAll(log, NetSessionActivity(), results);
    ASSERT_EQ(results.GetCount(), std::size(UNITS));
    const auto& last = dynamic_cast<const NetSessionActivity&>(results.Get(results.GetCount() - 1));
    EXPECT_EQ(last.GetTimeUnit(), MAX_32);
    EXPECT_EQ(last.GetConnectionsIn(), 2U);
    EXPECT_EQ(last.GetDataOutBytes(), MAX_64);
}

TEST_P(ExchangeTest, SessionLog_WrittenFurther_OldAndNewRead)
{
    Messages messages;
    DataLogRecord log;
    Open(log, SESSION_LOG);
    ASSERT_TRUE(log.AddEntry(MakeSession(SESSIONS), messages));
    DataLogResults results;
    ReadAll(log, NetSessionStatus(), results);
    ASSERT_EQ(results.GetCount(), SESSIONS + 1);
    EXPECT_EQ(RawBytes(results.Get(SESSIONS)), RawBytes(MakeSession(SESSIONS)));
}

TEST_P(ExchangeTest, Settings_OfEachSystem_SameContentAndSameBytesAsWrittenHere)
{
    SettingsTransportSet settings;
    ASSERT_TRUE(settings.LoadFromFile(ToFilePath(m_folder / SETTINGS_FILE)));
    EXPECT_TRUE(settings == MakeSettings());
    ASSERT_TRUE(MakeSettings().SaveToFile(ToFilePath(m_folder / "here.json")));
    EXPECT_EQ(ReadBytes(m_folder / "here.json"), ReadBytes(m_folder / SETTINGS_FILE));
}

INSTANTIATE_TEST_SUITE_P(Systems, ExchangeTest, testing::ValuesIn(SYSTEMS),
                         [](const testing::TestParamInfo<const char*>& system) { return std::string(system.param); });

/// Makes this system's files in the tree again; not one of the tests.
TEST(ExchangeFiles, DISABLED_WriteFiles)
{
    const std::filesystem::path folder = WrittenBy(KQ_SYSTEM);
    std::filesystem::remove_all(folder);
    std::filesystem::create_directories(folder);
    WriteAll(folder);
}

} // namespace
} // namespace kqlib::test
