#include "common/DataLogRecord.h"
#include "common/DataLogTime.h"
#include "tests/common/logs/TestEntries.h"
#include "tests/peers/TempFolder.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <system_error>

namespace kqlib::test {
namespace {

constexpr ULONG HOUR_SECONDS = 3600;

class DataLogTest : public ::testing::Test
{
protected:
    void xOpen(DataLog& log, const FilePath& folder) { log.SetSettings(true, HOUR_SECONDS, folder, "srv-", "log"); }
    void xOpen(DataLog& log) { xOpen(log, m_folder.GetFilePath()); }

    /// Adds an entry; true when the log took it, without a message.
    bool xAdd(DataLog& log, const DataLogEntry& entry)
    {
        Messages messages;
        const bool added = log.AddEntry(entry, messages);
        EXPECT_EQ(messages.GetMessageCount(), 0U);
        return added;
    }

    template <class T> bool xQuery(const DataLog& log, const DataLogQuery& query = DataLogQuery())
    {
        Messages messages;
        const bool done = log.Query(query, m_cancel, T(), m_results, messages);
        EXPECT_EQ(messages.GetMessageCount(), 0U);
        return done;
    }

    /// The numbers of the records found, in order.
    std::vector<std::uint64_t> xNumbers() const
    {
        std::vector<std::uint64_t> numbers;
        for (ULONG index = 0; index < m_results.GetCount(); ++index)
            numbers.push_back(GetAs<NameEntry>(m_results, index).GetNumber());
        return numbers;
    }

    std::filesystem::path xGetFile() const { return m_folder / "srv-log.db"; }
    std::string xReadFile() const
    {
        std::ifstream file(xGetFile(), std::ios::binary);
        return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    }

    TempFolder m_folder;
    ThreadEvent m_cancel;
    DataLogResults m_results;
};

using Numbers = std::vector<std::uint64_t>;

TEST_F(DataLogTest, New_DisabledNothingIsTaken)
{
    DataLogRecord log;
    EXPECT_FALSE(log.IsEnabled());
    EXPECT_FALSE(xAdd(log, NameEntry(1, 1)));
    EXPECT_FALSE(xQuery<NameEntry>(log));
}

TEST_F(DataLogTest, SetSettings_Enabled_FileIsFolderPrefixNameDb)
{
    DataLogRecord log;
    xOpen(log);
    EXPECT_TRUE(log.IsEnabled());
    EXPECT_TRUE(std::filesystem::exists(xGetFile()));
}

TEST_F(DataLogTest, SetSettings_Disabled_NoFile)
{
    DataLogRecord log;
    log.SetSettings(false, HOUR_SECONDS, m_folder.GetFilePath(), "srv-", "log");
    EXPECT_FALSE(log.IsEnabled());
    EXPECT_FALSE(std::filesystem::exists(xGetFile()));
}

TEST_F(DataLogTest, SetSettings_DisabledAfterUse_FileIsClosedAndCanGo)
{
    DataLogRecord log;
    xOpen(log);
    ASSERT_TRUE(xAdd(log, NameEntry(1, 1)));
    log.SetSettings(false, HOUR_SECONDS, FilePath(), "", "");
    EXPECT_FALSE(xAdd(log, NameEntry(2, 2)));
    // Closing folds the write-ahead file in and removes it.
    EXPECT_FALSE(std::filesystem::exists(m_folder / "srv-log.db-wal"));
    EXPECT_TRUE(std::filesystem::remove(xGetFile()));
}

TEST_F(DataLogTest, SetSettings_FolderMissing_IsMade)
{
    DataLogRecord log;
    FilePath folder = m_folder.GetFilePath();
    folder.MakeSafeForFileAppend(true);
    folder += "a/b/c";
    xOpen(log, folder);
    EXPECT_TRUE(xAdd(log, NameEntry(1, 1)));
    EXPECT_TRUE(std::filesystem::exists(m_folder.GetPath() / "a" / "b" / "c" / "srv-log.db"));
}

TEST_F(DataLogTest, AddEntry_Records_ARowEachOldestFirst)
{
    DataLogRecord log;
    xOpen(log);
    for (const SLONG8 start : {3000, 1000, 2000, 1000})
        ASSERT_TRUE(xAdd(log, NameEntry(start, static_cast<std::uint64_t>(start + m_results.GetCount()), "n")));
    ASSERT_TRUE(xQuery<NameEntry>(log));
    EXPECT_EQ(xNumbers(), (Numbers{1000, 1000, 2000, 3000}));
}

TEST_F(DataLogTest, AddEntry_Record_EveryByteComesBack)
{
    DataLogRecord log;
    xOpen(log);
    NameEntry entry(1700000000123, 0xFFEEDDCCBBAA0099, "name");
    entry.SetEndTime(TimePos(1700000009999));
    ASSERT_TRUE(xAdd(log, entry));
    ASSERT_TRUE(xQuery<NameEntry>(log));
    ASSERT_EQ(m_results.GetCount(), 1U);
    EXPECT_TRUE(entry.IsSame(m_results.Get(0)));
}

TEST_F(DataLogTest, AddEntry_LeavesTheEntryAsItIs)
{
    DataLogTime log;
    xOpen(log);
    const CountEntry entry(5, 6, 7);
    ASSERT_TRUE(xAdd(log, entry));
    ASSERT_TRUE(xAdd(log, entry));
    EXPECT_TRUE(entry.IsSame(CountEntry(5, 6, 7)));
}

TEST_F(DataLogTest, AddEntry_RecordWithoutStart_StandsAtItsEndOrNow)
{
    FakeCalendar calendar(1700000000000);
    DataLogRecord log;
    xOpen(log);
    ASSERT_TRUE(xAdd(log, NameEntry(0, 1)));
    NameEntry ended(0, 2);
    ended.SetEndTime(TimePos(1699999999000));
    ASSERT_TRUE(xAdd(log, ended));
    ASSERT_TRUE(xAdd(log, NameEntry(1699999999500, 3)));
    ASSERT_TRUE(xQuery<NameEntry>(log));
    EXPECT_EQ(xNumbers(), (Numbers{2, 3, 1}));
    EXPECT_FALSE(GetAs<NameEntry>(m_results, 2).GetStartTime().IsSet());
}

TEST_F(DataLogTest, AddEntry_SameTimeUnit_OneRowMerged)
{
    DataLogTime log;
    xOpen(log);
    ASSERT_TRUE(xAdd(log, CountEntry(100, 5, 4294967295U)));
    ASSERT_TRUE(xAdd(log, CountEntry(100, 3, 1)));
    ASSERT_TRUE(xAdd(log, CountEntry(101, 9, 2)));
    ASSERT_TRUE(xQuery<CountEntry>(log));
    ASSERT_EQ(m_results.GetCount(), 2U);
    EXPECT_TRUE(m_results.Get(0).IsSame(CountEntry(100, 5, 4294967296U)));
    EXPECT_TRUE(m_results.Get(1).IsSame(CountEntry(101, 9, 2)));
}

TEST_F(DataLogTest, AddEntry_LargestTimeUnit_IsKept)
{
    DataLogTime log;
    xOpen(log);
    ASSERT_TRUE(xAdd(log, CountEntry(4294967295U, 1, 1)));
    ASSERT_TRUE(xAdd(log, CountEntry(1, 1, 2)));
    ASSERT_TRUE(xQuery<CountEntry>(log));
    ASSERT_EQ(m_results.GetCount(), 2U);
    EXPECT_EQ(GetAs<CountEntry>(m_results, 1).GetTimeUnit(), 4294967295U);
}

TEST_F(DataLogTest, AddEntry_NoTimeUnit_False)
{
    DataLogTime log;
    xOpen(log);
    EXPECT_FALSE(xAdd(log, CountEntry(0, 1, 1)));
    ASSERT_TRUE(xQuery<CountEntry>(log));
    EXPECT_EQ(m_results.GetCount(), 0U);
}

TEST_F(DataLogTest, AddEntry_OtherKindOfEntry_False)
{
    DataLogTime units;
    xOpen(units);
    EXPECT_FALSE(xAdd(units, NameEntry(1000, 1)));
    DataLogRecord records;
    records.SetSettings(true, HOUR_SECONDS, m_folder.GetFilePath(), "", "records");
    EXPECT_FALSE(xAdd(records, CountEntry(1, 1, 1)));
}

TEST_F(DataLogTest, AddEntry_UnitHeldByAnotherClass_FalseAndKept)
{
    DataLogTime log;
    xOpen(log);
    ASSERT_TRUE(xAdd(log, WideEntry(100)));
    EXPECT_FALSE(xAdd(log, CountEntry(100, 1, 1)));
    EXPECT_TRUE(xAdd(log, CountEntry(101, 1, 1)));
    ASSERT_TRUE(xQuery<WideEntry>(log));
    EXPECT_EQ(m_results.GetCount(), 1U);
    ASSERT_TRUE(xQuery<CountEntry>(log));
    EXPECT_EQ(m_results.GetCount(), 1U);
}

TEST_F(DataLogTest, Query_Empty_TrueAndNothing)
{
    DataLogRecord log;
    xOpen(log);
    m_results.Give(new NameEntry(1, 1));
    EXPECT_TRUE(xQuery<NameEntry>(log));
    EXPECT_EQ(m_results.GetCount(), 0U);
}

TEST_F(DataLogTest, Query_Period_BothEndsInclusive)
{
    DataLogRecord log;
    xOpen(log);
    for (std::uint64_t number = 1; number <= 5; ++number)
        ASSERT_TRUE(xAdd(log, NameEntry(static_cast<SLONG8>(number * 1000), number)));
    DataLogQuery query;
    query.SetStart(TimePos(2000));
    query.SetEnd(TimePos(4000));
    ASSERT_TRUE(xQuery<NameEntry>(log, query));
    EXPECT_EQ(xNumbers(), (Numbers{2, 3, 4}));
    query.SetEnd(TimePos());
    ASSERT_TRUE(xQuery<NameEntry>(log, query));
    EXPECT_EQ(xNumbers(), (Numbers{2, 3, 4, 5}));
    query.SetStart(TimePos());
    query.SetEnd(TimePos(1999));
    ASSERT_TRUE(xQuery<NameEntry>(log, query));
    EXPECT_EQ(xNumbers(), (Numbers{1}));
}

TEST_F(DataLogTest, Query_FirstAndMaxCount_APageOfThem)
{
    DataLogRecord log;
    xOpen(log);
    for (std::uint64_t number = 1; number <= 10; ++number)
        ASSERT_TRUE(xAdd(log, NameEntry(static_cast<SLONG8>(number * 1000), number)));
    DataLogQuery query;
    query.SetFirst(3);
    query.SetMaxCount(2);
    ASSERT_TRUE(xQuery<NameEntry>(log, query));
    EXPECT_EQ(xNumbers(), (Numbers{4, 5}));
    query.SetFirst(9);
    ASSERT_TRUE(xQuery<NameEntry>(log, query));
    EXPECT_EQ(xNumbers(), (Numbers{10}));
    query.SetFirst(10);
    ASSERT_TRUE(xQuery<NameEntry>(log, query));
    EXPECT_EQ(m_results.GetCount(), 0U);
    query.SetFirst(8);
    query.SetMaxCount(0);
    ASSERT_TRUE(xQuery<NameEntry>(log, query));
    EXPECT_EQ(xNumbers(), (Numbers{9, 10}));
}

TEST_F(DataLogTest, Query_UnitLog_UnitsThatTheTimesLieIn)
{
    DataLogTime log;
    xOpen(log);
    for (ULONG unit = 100; unit < 110; ++unit)
        ASSERT_TRUE(xAdd(log, CountEntry(unit, 0, unit)));
    DataLogQuery query;
    query.SetStart(TimePos(102999));
    query.SetEnd(TimePos(104000));
    ASSERT_TRUE(xQuery<CountEntry>(log, query));
    ASSERT_EQ(m_results.GetCount(), 3U);
    EXPECT_EQ(GetAs<CountEntry>(m_results, 0).GetTimeUnit(), 102U);
    EXPECT_EQ(GetAs<CountEntry>(m_results, 2).GetTimeUnit(), 104U);
}

TEST_F(DataLogTest, Query_Cancelled_FalseAndNothing)
{
    DataLogRecord log;
    xOpen(log);
    ASSERT_TRUE(xAdd(log, NameEntry(1, 1)));
    m_cancel.Set();
    EXPECT_FALSE(xQuery<NameEntry>(log));
    EXPECT_EQ(m_results.GetCount(), 0U);
    m_cancel.Reset();
    EXPECT_TRUE(xQuery<NameEntry>(log));
    EXPECT_EQ(m_results.GetCount(), 1U);
}

/// A record that cancels the query when the third one is read.
class CancellingEntry : public NameEntry
{
public:
    explicit CancellingEntry(ThreadEvent& cancel)
        : m_cancel(cancel)
    {
    }
    CancellingEntry* SpawnEntry(unsigned long, bool) const override
    {
        if (++m_spawned == 3)
            m_cancel.Set();
        return new CancellingEntry(m_cancel);
    }

private:
    ThreadEvent& m_cancel;
    mutable int m_spawned = 0;
};

TEST_F(DataLogTest, Query_CancelledWhileItReads_FalseAndNothing)
{
    DataLogRecord log;
    xOpen(log);
    for (std::uint64_t number = 1; number <= 5; ++number)
        ASSERT_TRUE(xAdd(log, NameEntry(1, number)));
    Messages messages;
    EXPECT_FALSE(log.Query(DataLogQuery(), m_cancel, CancellingEntry(m_cancel), m_results, messages));
    EXPECT_TRUE(m_cancel.IsSet());
    EXPECT_EQ(m_results.GetCount(), 0U);
}

TEST_F(DataLogTest, Query_StoredTextUnsafe_IsMadeSafe)
{
    DataLogRecord log;
    xOpen(log);
    NameEntry entry(1, 1);
    entry.SetText("0123456789abcdefXYZ");
    ASSERT_TRUE(xAdd(log, entry));
    ASSERT_TRUE(xQuery<NameEntry>(log));
    ASSERT_EQ(m_results.GetCount(), 1U);
    EXPECT_EQ(GetAs<NameEntry>(m_results, 0).GetText(), "0123456789abcde");
}

TEST_F(DataLogTest, Reopened_EverythingIsThere)
{
    {
        DataLogTime log;
        xOpen(log);
        for (ULONG unit = 1; unit <= 50; ++unit)
            ASSERT_TRUE(xAdd(log, CountEntry(unit, 0, unit)));
    }
    DataLogTime log;
    xOpen(log);
    ASSERT_TRUE(xQuery<CountEntry>(log));
    EXPECT_EQ(m_results.GetCount(), 50U);
    EXPECT_EQ(SumCounts(m_results), 1275U);
}

TEST_F(DataLogTest, SecondConnection_ReadsWhileTheFirstWrites)
{
    DataLogRecord writer;
    DataLogRecord reader;
    xOpen(writer);
    xOpen(reader);
    for (std::uint64_t number = 1; number <= 20; ++number) {
        ASSERT_TRUE(xAdd(writer, NameEntry(static_cast<SLONG8>(number), number)));
        ASSERT_TRUE(xQuery<NameEntry>(reader));
        ASSERT_EQ(m_results.GetCount(), number);
    }
}

TEST_F(DataLogTest, SecondConnection_BothWrite_NothingIsLost)
{
    DataLogTime first;
    DataLogTime second;
    xOpen(first);
    xOpen(second);
    for (int round = 0; round < 20; ++round) {
        ASSERT_TRUE(xAdd(first, CountEntry(7, 1, 1)));
        ASSERT_TRUE(xAdd(second, CountEntry(7, 2, 1)));
    }
    ASSERT_TRUE(xQuery<CountEntry>(first));
    ASSERT_EQ(m_results.GetCount(), 1U);
    EXPECT_TRUE(m_results.Get(0).IsSame(CountEntry(7, 2, 40)));
}

TEST_F(DataLogTest, FolderUnusable_FalseUntilItCanBeMade)
{
    const std::filesystem::path inTheWay = m_folder / "sub";
    std::ofstream(inTheWay) << "a file where the folder should be";
    FilePath folder = m_folder.GetFilePath();
    folder.MakeSafeForFileAppend(true);
    folder += "sub";

    DataLogRecord log;
    xOpen(log, folder);
    EXPECT_TRUE(log.IsEnabled());
    EXPECT_FALSE(xAdd(log, NameEntry(1, 1)));
    EXPECT_FALSE(xQuery<NameEntry>(log));
    std::filesystem::remove(inTheWay);
    EXPECT_TRUE(xAdd(log, NameEntry(2, 2)));
    EXPECT_TRUE(xQuery<NameEntry>(log));
    EXPECT_EQ(xNumbers(), (Numbers{2}));
}

TEST_F(DataLogTest, FolderReadOnly_FalseUntilItMayBeWritten)
{
    using std::filesystem::perms;
    const std::filesystem::path sub = m_folder / "sub";
    std::filesystem::create_directory(sub);
    std::filesystem::permissions(sub, perms::owner_read | perms::owner_exec);
    if (std::ofstream(sub / "probe").is_open()) {
        std::filesystem::permissions(sub, perms::owner_all);
        GTEST_SKIP() << "this user may write into read-only folders (root, or a system without such rights)";
    }
    DataLogRecord log;
    FilePath folder = m_folder.GetFilePath();
    folder.MakeSafeForFileAppend(true);
    folder += "sub";
    xOpen(log, folder);
    EXPECT_FALSE(xAdd(log, NameEntry(1, 1)));
    std::filesystem::permissions(sub, perms::owner_all);
    EXPECT_TRUE(xAdd(log, NameEntry(2, 2)));
}

TEST_F(DataLogTest, FileDamaged_FalseNothingIsOverwrittenAndGoesOnWhenItIsReplaced)
{
    const std::string damage(8192, 'x');
    std::ofstream(xGetFile(), std::ios::binary) << damage;
    DataLogRecord log;
    xOpen(log);
    EXPECT_FALSE(xAdd(log, NameEntry(1, 1)));
    EXPECT_FALSE(xQuery<NameEntry>(log));
    EXPECT_EQ(xReadFile(), damage);
    std::filesystem::remove(xGetFile());
    EXPECT_TRUE(xAdd(log, NameEntry(2, 2)));
    EXPECT_TRUE(xQuery<NameEntry>(log));
    EXPECT_EQ(xNumbers(), (Numbers{2}));
}

TEST_F(DataLogTest, FileDamagedInside_NeverMoreThanAFalse)
{
    {
        DataLogRecord log;
        xOpen(log);
        for (std::uint64_t number = 1; number <= 400; ++number)
            ASSERT_TRUE(xAdd(log, NameEntry(static_cast<SLONG8>(number), number)));
    }
    const auto size = std::filesystem::file_size(xGetFile());
    ASSERT_GT(size, 12288U);
    {
        // Every page but the first is overwritten, so that the file opens and fails later.
        std::fstream file(xGetFile(), std::ios::binary | std::ios::in | std::ios::out);
        file.seekp(4096);
        file << std::string(static_cast<std::size_t>(size) - 4096, '\xA5');
    }
    DataLogRecord log;
    xOpen(log);
    EXPECT_FALSE(xAdd(log, NameEntry(1, 1)));
    EXPECT_FALSE(xQuery<NameEntry>(log));
    EXPECT_EQ(m_results.GetCount(), 0U);
    log.SetSettings(false, 0, FilePath(), "", "");
    std::filesystem::remove(xGetFile());
    xOpen(log);
    EXPECT_TRUE(xAdd(log, NameEntry(1, 1)));
}

TEST_F(DataLogTest, FileOfSomethingElse_IsLeftAlone)
{
    {
        DataLogRecord log;
        xOpen(log);
        ASSERT_TRUE(xAdd(log, NameEntry(1, 1)));
    }
    {
        // Bytes 60 to 63 of a database file hold the version of its content.
        std::fstream file(xGetFile(), std::ios::binary | std::ios::in | std::ios::out);
        file.seekp(63);
        file.put(99);
    }
    DataLogRecord log;
    xOpen(log);
    EXPECT_FALSE(xAdd(log, NameEntry(2, 2)));
    EXPECT_FALSE(xQuery<NameEntry>(log));
}

TEST_F(DataLogTest, FileOfAnotherProgram_IsLeftAlone)
{
    {
        DataLogRecord log;
        xOpen(log);
        ASSERT_TRUE(xAdd(log, NameEntry(1, 1)));
    }
    {
        // Without the version of its content and the mark of its program (bytes 68 to 71) it is anybody's database.
        std::fstream file(xGetFile(), std::ios::binary | std::ios::in | std::ios::out);
        file.seekp(60);
        file << std::string(4, '\0');
        file.seekp(68);
        file << std::string(4, '\0');
    }
    const std::string before = xReadFile();
    DataLogRecord log;
    xOpen(log);
    EXPECT_FALSE(xAdd(log, NameEntry(2, 2)));
    EXPECT_FALSE(xQuery<NameEntry>(log));
    EXPECT_EQ(xReadFile(), before);
}

TEST_F(DataLogTest, FileWithoutItsTable_FalseAndLeftAlone)
{
    {
        DataLogRecord log;
        xOpen(log);
        ASSERT_TRUE(xAdd(log, NameEntry(1, 1)));
    }
    std::string bytes = xReadFile();
    const std::string name = "records";
    for (std::size_t at = bytes.find(name); at != std::string::npos; at = bytes.find(name, at))
        bytes.replace(at, name.size(), "strange");
    std::ofstream(xGetFile(), std::ios::binary) << bytes;
    DataLogRecord log;
    xOpen(log);
    EXPECT_FALSE(xAdd(log, NameEntry(2, 2)));
    EXPECT_FALSE(xQuery<NameEntry>(log));
    EXPECT_EQ(xReadFile(), bytes);
}

TEST_F(DataLogTest, AddEntry_NobodyElseFoldsIn_DatabaseGrowsAtLast)
{
    DataLogRecord log;
    xOpen(log);
    const auto atFirst = std::filesystem::file_size(xGetFile());
    // Each entry writes a page or two; what the purger would have folded in long before stays for a while.
    std::uint64_t number = 0;
    while (number < 2500)
        ASSERT_TRUE(xAdd(log, NameEntry(1, ++number)));
    EXPECT_EQ(std::filesystem::file_size(xGetFile()), atFirst);
    while (number < 20000 && std::filesystem::file_size(xGetFile()) == atFirst)
        ASSERT_TRUE(xAdd(log, NameEntry(1, ++number)));
    EXPECT_GT(std::filesystem::file_size(xGetFile()), atFirst);
    DataLogQuery all;
    ASSERT_TRUE(xQuery<NameEntry>(log, all));
    EXPECT_EQ(m_results.GetCount(), number);
}

TEST_F(DataLogTest, FileDeletedWhileOpen_GoesOnInANewOne)
{
    DataLogRecord log;
    xOpen(log);
    ASSERT_TRUE(xAdd(log, NameEntry(1, 1)));
    std::error_code refused;
    if (!std::filesystem::remove(xGetFile(), refused))
        GTEST_SKIP() << "this system keeps an open file";
    ASSERT_TRUE(xAdd(log, NameEntry(2, 2)));
    EXPECT_TRUE(std::filesystem::exists(xGetFile()));
    ASSERT_TRUE(xQuery<NameEntry>(log));
    EXPECT_EQ(xNumbers(), (Numbers{2}));
}

} // namespace
} // namespace kqlib::test
